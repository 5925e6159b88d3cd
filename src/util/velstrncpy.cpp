#include <vellib/velstrncpy.h>

#include <cstring>

#include "util/velassert.h"

char *vel_strncpy(char *dest, const char *src, size_t n)
{
    VEL_ASSERT(dest != NULL);
    VEL_ASSERT(src != NULL);

    if (n == 0)
        return dest;
    const size_t len = strnlen(src, n - 1);
    memcpy(dest, src, len);
    dest[len] = '\0';
    return dest;
}
