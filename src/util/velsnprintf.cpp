#include <vellib/velsnprintf.h>

#include <cstdio>

#include "util/velassert.h"

int vel_snprintf(char *str, size_t size, const char *format, ...)
{
    VEL_ASSERT(str != NULL || size == 0);
    VEL_ASSERT(format != NULL);

    va_list ap;
    va_start(ap, format);
    const int result = vel_vsnprintf(str, size, format, ap);
    va_end(ap);
    return result;
}

int vel_vsnprintf(char *str, size_t size, const char *format, va_list ap)
{
    VEL_ASSERT(str != NULL || size == 0);
    VEL_ASSERT(format != NULL);

    const int result = vsnprintf(str, size, format, ap);
    /* Not every platform terminates text that it cuts. */
    if (str && size != 0)
        str[size - 1] = '\0';
    return result;
}
