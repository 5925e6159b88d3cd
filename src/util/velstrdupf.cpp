#include <vellib/velstrdupf.h>

#include <vellib/velmalloc.h>
#include <vellib/velsnprintf.h>

#include "util/velassert.h"

char *vel_strdupf(const char *format, ...)
{
    VEL_ASSERT(format != NULL);

    va_list ap;
    va_start(ap, format);
    char *text = vel_vstrdupf(format, ap);
    va_end(ap);
    return text;
}

char *vel_vstrdupf(const char *format, va_list ap)
{
    VEL_ASSERT(format != NULL);

    va_list measured;
    va_copy(measured, ap);
    const int needlen = vel_vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (needlen < 0)
        return nullptr;

    const size_t size = static_cast<size_t>(needlen) + 1;
    auto *text = static_cast<char *>(vel_malloc(size));
    if (!text)
        return nullptr;
    const int count = vel_vsnprintf(text, size, format, ap);
    VEL_ASSERT(count == needlen);
    text[needlen] = '\0';
    return text;
}
