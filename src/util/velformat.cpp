#include <vellib/velformat.h>

#include <algorithm>
#include <cstring>

#include <vellib/velmalloc.h>
#include <vellib/velstrndup.h>

#include "util/velassert.h"
#include "util/velformat_internal.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velformat"

/* What is written, and counted on where it does not fit. */
struct vel_format_output {
    char *buffer; /* NULL while measuring */
    size_t bufferlen;
    size_t pos;
    vel_error_t error; /* the first, but for output that does not fit */
};

static void vel_format_put(vel_format_output *output, const char *text, size_t len)
{
    if (output->pos < output->bufferlen)
        memcpy(output->buffer + output->pos, text, std::min(len, output->bufferlen - output->pos));
    output->pos += len;
}

static void vel_format_fail(vel_format_output *output, vel_error_t error)
{
    if (output->error == VEL_ERROR_NONE)
        output->error = error;
}

/* Puts the value of a variable. A value of NULL ends the walk over the pairs, whatever its name. */
static void vel_format_put_value(vel_format_output *output, const char *varname, const char *format,
                                 va_list arguments)
{
    for (;;) {
        const char *name = va_arg(arguments, const char *);
        if (!name) {
            if (output->buffer)
                VEL_LOG(6, "no variable '%s' given for format string '%s'", varname, format);
            return;
        }
        const char *value = va_arg(arguments, const char *);
        if (!value) {
            VEL_LOG(6, "value given for '%s' was NULL", "(null)");
            vel_format_fail(output, VEL_ERROR_INVALID_ARGUMENT);
            return;
        }
        if (strcmp(name, varname) == 0) {
            vel_format_put(output, value, strlen(value));
            return;
        }
    }
}

/* Puts the value of the variable whose name this is. Returns false if formatting cannot go on. */
static bool vel_format_put_variable(vel_format_output *output, const char *name, size_t varnamelen,
                                    const char *format, va_list arguments)
{
    VEL_ASSERT(varnamelen > 0);

    char *varname = vel_strndup(name, varnamelen);
    if (!varname) {
        VEL_LOG(7, "not enough memory for variable name");
        vel_format_fail(output, VEL_ERROR_NO_MEMORY);
        return false;
    }
    va_list walked;
    va_copy(walked, arguments);
    vel_format_put_value(output, varname, format, walked);
    va_end(walked);
    vel_free(varname);
    return true;
}

vel_error_t vel_format_internal(char *buffer, size_t *bufferlenptr, const char *format,
                                va_list arguments)
{
    VEL_ASSERT(bufferlenptr != NULL);
    VEL_ASSERT(*bufferlenptr == 0 || buffer != NULL);
    VEL_ASSERT(format != NULL);

    vel_format_output output = {buffer, *bufferlenptr, 0, VEL_ERROR_NONE};
    size_t start = 0; /* of the name of the variable that is open; 0 is none */
    size_t i = 0;
    for (bool more = true; more && format[i] != '\0'; i++) {
        const char ch = format[i];
        if (start == 0 && ch == '%') {
            start = i + 1;
        } else if (start == 0) {
            vel_format_put(&output, &ch, 1);
        } else if (ch == '%' && start == i) {
            start = 0;
            VEL_ASSERT(ch == '%');
            vel_format_put(&output, &ch, 1);
        } else if (ch == '%') {
            VEL_ASSERT(start < i);
            more = vel_format_put_variable(&output, format + start, i - start, format, arguments);
            start = 0;
        }
    }
    if (start > 0) {
        if (buffer)
            VEL_LOG(6, "unterminated variable '%s' in format string '%s'", format + start, format);
        VEL_ASSERT(start < i);
        vel_format_put(&output, format + start - 1, i - start + 1);
    }
    if (output.pos < output.bufferlen)
        buffer[output.pos] = '\0';
    else
        vel_format_fail(&output, VEL_ERROR_OUT_OF_RANGE);
    *bufferlenptr = output.pos + 1;
    return output.error;
}

/* Formats into a new buffer of the size that was measured. */
static char *vel_format_fill(size_t resultlen, const char *format, va_list arguments)
{
    auto *result = static_cast<char *>(vel_malloc(resultlen));
    if (!result) {
        VEL_LOG(7, "not enough memory for formatting string");
        return nullptr;
    }
    const vel_error_t error = vel_format_internal(result, &resultlen, format, arguments);
    if (error != VEL_ERROR_NONE) {
        VEL_LOG(6, "final formatting returned error %d (%s)", error, vel_error_string(error));
        vel_free(result);
        return nullptr;
    }
    return result;
}

char *vel_format(const char *format, ...)
{
    VEL_ASSERT(format != NULL);

    va_list arguments;
    va_start(arguments, format);
    char *result = nullptr;
    size_t resultlen = 0;
    const vel_error_t error = vel_format_internal(nullptr, &resultlen, format, arguments);
    if (error == VEL_ERROR_OUT_OF_RANGE) {
        VEL_ASSERT(resultlen > 0);
        result = vel_format_fill(resultlen, format, arguments);
    } else {
        VEL_LOG(6, "initial formatting returned error %d (%s)", error, vel_error_string(error));
    }
    va_end(arguments);
    return result;
}
