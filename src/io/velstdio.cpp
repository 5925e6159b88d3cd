#include <vellib/velstdio.h>

#include <cstdarg>
#include <cstdio>

#include "util/velassert.h"

int vel_stdio_printf_stderr(const char *format, ...)
{
    VEL_ASSERT(format != NULL);

    va_list ap;
    va_start(ap, format);
    const int result = vfprintf(stderr, format, ap);
    va_end(ap);
    return result;
}
