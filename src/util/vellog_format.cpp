/* The calls that log. The buffers of a log only grow, and to the size needed, so a line allocates
 * where it is the longest so far. */
#include <vellib/vellog.h>

#include <cstddef>
#include <cstring>

#include <vellib/velmalloc.h>
#include <vellib/velsnprintf.h>

#include "util/velassert.h"
#include "util/vellog_internal.h"

/* Text in a block of a given size. An add that has no room returns false. */
struct vel_log_text {
    char *next;
    char *end; /* where the NUL still fits */
};

static bool vel_log_text_add(vel_log_text *text, const char *part, size_t length)
{
    if (static_cast<size_t>(text->end - text->next) < length)
        return false;
    memcpy(text->next, part, length);
    text->next += length;
    return true;
}

/* The digits go where they stay: bytes that have just been written are slow to copy. */
static bool vel_log_text_add_number(vel_log_text *text, unsigned long magnitude, bool negative)
{
    ptrdiff_t length = negative ? 2 : 1;
    for (unsigned long rest = magnitude; rest >= 10; rest /= 10)
        length++;
    if (text->end - text->next < length)
        return false;
    text->next += length;
    char *digit = text->next;
    do {
        *--digit = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (negative)
        *--digit = '-';
    return true;
}

static bool vel_log_text_add_int(vel_log_text *text, int value)
{
    const auto bits = static_cast<unsigned int>(value);
    return vel_log_text_add_number(text, value < 0 ? 0 - bits : bits, value < 0);
}

/* Terminates the text, and returns its length. */
static int vel_log_text_end(vel_log_text *text, const char *begin)
{
    *text->next = '\0';
    return static_cast<int>(text->next - begin);
}

/* Formats what has no conversions but %s, %d, %lu and %zu. Returns false for anything else. */
static bool vel_log_text_format(vel_log_text *text, const char *format, va_list ap)
{
    for (;;) {
        const size_t length = static_cast<size_t>(strchrnul(format, '%') - format);
        if (!vel_log_text_add(text, format, length))
            return false;
        format += length;
        if (*format == '\0')
            return true;
        bool added = false;
        if (format[1] == 'd') {
            added = vel_log_text_add_int(text, va_arg(ap, int));
        } else if (format[1] == 's') {
            const char *string = va_arg(ap, const char *);
            added = string && vel_log_text_add(text, string, strlen(string));
        } else if (format[1] == 'l' && format[2] == 'u') {
            added = vel_log_text_add_number(text, va_arg(ap, unsigned long), false);
            format++;
        } else if (format[1] == 'z' && format[2] == 'u') {
            added = vel_log_text_add_number(text, va_arg(ap, size_t), false);
            format++;
        }
        if (!added)
            return false;
        format += 2;
    }
}

/* Does what vel_vsnprintf does, and sooner for what fits and is simple. That is nearly every line,
 * and also those that no sink wants are formatted: an event loop has several at each turn. */
static int vel_log_vsnprintf(char *str, size_t size, const char *format, va_list ap)
{
    if (size > 0 && format) {
        vel_log_text text = {str, str + size - 1};
        va_list again;
        va_copy(again, ap);
        const bool done = vel_log_text_format(&text, format, again);
        va_end(again);
        if (done)
            return vel_log_text_end(&text, str);
    }
    return vel_vsnprintf(str, size, format, ap);
}

/* Makes room for count characters and the NUL; what the buffer held is lost. */
static bool vel_log_reserve(char **bufferptr, size_t *buflenptr, size_t count)
{
    if (*buflenptr > count)
        return true;
    vel_free(*bufferptr);
    *buflenptr = 0;
    *bufferptr = static_cast<char *>(vel_malloc(count + 1));
    if (!*bufferptr)
        return false;
    *buflenptr = count + 1;
    return true;
}

/* Formats twice: to measure, and then always into the buffer. Returns false if the message cannot
 * be formatted or there is no memory for it. */
static bool vel_log_format_twice(vellog *vellog, const char *format, va_list ap, size_t *countptr)
{
    va_list measured;
    va_copy(measured, ap);
    int res = vel_vsnprintf(vellog->buffer, vellog->buflen, format, measured);
    va_end(measured);
    if (res < 0)
        return false;
    auto count = static_cast<size_t>(res);
    if (!vel_log_reserve(&vellog->buffer, &vellog->buflen, count))
        return false;

    res = vel_vsnprintf(vellog->buffer, vellog->buflen, format, ap);
    VEL_ASSERT(res >= 0);
    count = static_cast<size_t>(res);
    VEL_ASSERT(count < vellog->buflen);
    *countptr = count;
    return true;
}

static int vel_log_internal(vellog *vellog, int level, int raw, const char *format, va_list ap)
{
    vellog = vel_log_check_internal(vellog);
    if (!vellog)
        return -1;
    /* A lock that cannot be made lets the message go out without one. */
    if (!vellog->mutex && vel_log_global && vel_log_global->macromutex)
        vellog->mutex = vel_mutex_create();
    velmutex *mutex = vellog->mutex;
    if (mutex)
        vel_mutex_lock(mutex);

    int result = -1;
    size_t count;
    if (vel_log_format_twice(vellog, format, ap, &count) &&
        vel_log_buffer(vellog, nullptr, vellog->buffer, count, level, raw) == 0)
        result = 0;

    if (mutex)
        vel_mutex_unlock(mutex);
    return result;
}

int vel_log(vellog *vellog, int level, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    const int result = vel_log_internal(vellog, level, /*raw=*/0, format, ap);
    va_end(ap);
    return result;
}

int vel_log_raw(vellog *vellog, int level, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    const int result = vel_log_internal(vellog, level, /*raw=*/1, format, ap);
    va_end(ap);
    return result;
}

void vel_log_macro_mutex_lock(void)
{
    if (vel_log_global && vel_log_global->macromutex)
        vel_mutex_lock(vel_log_global->macromutex);
}

void vel_log_macro_mutex_unlock(void)
{
    if (vel_log_global && vel_log_global->macromutex)
        vel_mutex_unlock(vel_log_global->macromutex);
}

void vel_log_macro_set_values(vellog *vellog, int level, const char *file, int line)
{
    if (!vel_log_global && vel_log_init() != 0)
        return;
    vel_log_global->macrolog = vellog;
    vel_log_global->macrolevel = level;
    vel_log_global->macrofile = file;
    vel_log_global->macroline = line;
}

static const char vel_log_prefix_format[] = "%s:%d[%d]";

/* Does what vel_snprintf does with the format of the prefix, and sooner for what fits. */
static int vel_log_write_prefix(char *str, size_t size, const char *file, int line, int level)
{
    if (size > 0 && file) {
        vel_log_text text = {str, str + size - 1};
        if (vel_log_text_add(&text, file, strlen(file)) && vel_log_text_add(&text, ":", 1) &&
            vel_log_text_add_int(&text, line) && vel_log_text_add(&text, "[", 1) &&
            vel_log_text_add_int(&text, level) && vel_log_text_add(&text, "]", 1))
            return vel_log_text_end(&text, str);
    }
    return vel_snprintf(str, size, vel_log_prefix_format, file, line, level);
}

/* Gives the prefix, or NULL where the message has to go out without. */
static const char *vel_log_macro_format_prefix(vellog *vellog, const char *file, int line,
                                               int level)
{
    int res = vel_log_write_prefix(vellog->prefix, vellog->prefixlen, file, line, level);
    if (res < 0)
        return nullptr;
    auto count = static_cast<size_t>(res);
    if (vellog->prefixlen <= count) {
        if (!vel_log_reserve(&vellog->prefix, &vellog->prefixlen, count))
            return nullptr;
        VEL_ASSERT(vellog->prefixlen > count);
        res = vel_log_write_prefix(vellog->prefix, vellog->prefixlen, file, line, level);
        VEL_ASSERT(res >= 0);
        count = static_cast<size_t>(res);
    }
    VEL_ASSERT(count < vellog->prefixlen);
    return vellog->prefix;
}

/* Formats once where the message fits: a line that no sink wants costs just this. */
static bool vel_log_macro_format_message(vellog *vellog, const char *format, va_list ap,
                                         size_t *countptr)
{
    va_list again;
    va_copy(again, ap);
    int res = vel_log_vsnprintf(vellog->buffer, vellog->buflen, format, ap);
    bool formatted = res >= 0;
    auto count = static_cast<size_t>(res);
    if (formatted && vellog->buflen <= count) {
        formatted = vel_log_reserve(&vellog->buffer, &vellog->buflen, count);
        if (formatted) {
            VEL_ASSERT(vellog->buflen > count);
            res = vel_log_vsnprintf(vellog->buffer, vellog->buflen, format, again);
            VEL_ASSERT(res >= 0);
            count = static_cast<size_t>(res);
        }
    }
    va_end(again);
    if (!formatted)
        return false;
    VEL_ASSERT(count < vellog->buflen);
    *countptr = count;
    return true;
}

int vel_log_macro_format(const char *format, ...)
{
    if (!vel_log_global && vel_log_init() != 0)
        return -1;
    vellog *vellog = vel_log_check_internal(vel_log_global->macrolog);
    if (!vellog)
        return -1;
    const int level = vel_log_global->macrolevel;
    const char *prefix = vel_log_macro_format_prefix(vellog, vel_log_global->macrofile,
                                                     vel_log_global->macroline, level);
    size_t count;
    va_list ap;
    va_start(ap, format);
    const bool formatted = vel_log_macro_format_message(vellog, format, ap, &count);
    va_end(ap);
    if (!formatted)
        return -1;
    return vel_log_buffer(vellog, prefix, vellog->buffer, count, level, 0) == 0 ? 0 : -1;
}

static const char *vel_log_macro_prefix_twice(vellog *vellog, const char *file, int line, int level)
{
    int res =
        vel_snprintf(vellog->prefix, vellog->prefixlen, vel_log_prefix_format, file, line, level);
    if (res < 0)
        return nullptr;
    auto count = static_cast<size_t>(res);
    if (!vel_log_reserve(&vellog->prefix, &vellog->prefixlen, count))
        return nullptr;
    res = vel_snprintf(vellog->prefix, vellog->prefixlen, vel_log_prefix_format, file, line, level);
    VEL_ASSERT(res >= 0);
    count = static_cast<size_t>(res);
    VEL_ASSERT(count < vellog->prefixlen);
    return vellog->prefix;
}

int vel_log_macro(vellog *vellog, int level, const char *file, int line, const char *format, ...)
{
    VEL_ASSERT(file != NULL);

    vellog = vel_log_check_internal(vellog);
    if (!vellog)
        return -1;
    const char *prefix = vel_log_macro_prefix_twice(vellog, file, line, level);
    size_t count;
    va_list ap;
    va_start(ap, format);
    const bool formatted = vel_log_format_twice(vellog, format, ap, &count);
    va_end(ap);
    if (!formatted)
        return -1;
    return vel_log_buffer(vellog, prefix, vellog->buffer, count, level, 0) == 0 ? 0 : -1;
}
