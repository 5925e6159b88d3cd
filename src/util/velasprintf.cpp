#include <vellib/velasprintf.h>

#include <vellib/velmalloc.h>
#include <vellib/velsnprintf.h>

#include "util/velassert.h"

int vel_asprintf(char **strp, const char *format, ...)
{
    VEL_ASSERT(strp != NULL);
    VEL_ASSERT(format != NULL);

    va_list ap;
    va_start(ap, format);
    const int result = vel_vasprintf(strp, format, ap);
    va_end(ap);
    return result;
}

int vel_vasprintf(char **strp, const char *format, va_list ap)
{
    VEL_ASSERT(strp != NULL);
    VEL_ASSERT(format != NULL);

    *strp = nullptr;
    va_list measured;
    va_copy(measured, ap);
    const int needlen = vel_vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (needlen < 0)
        return needlen;

    const size_t size = static_cast<size_t>(needlen) + 1;
    auto *text = static_cast<char *>(vel_malloc(size));
    if (!text)
        return -1;
    const int result = vel_vsnprintf(text, size, format, ap);
    VEL_ASSERT(result == needlen);
    text[needlen] = '\0';
    *strp = text;
    return result;
}
