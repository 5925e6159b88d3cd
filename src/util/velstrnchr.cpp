#include <vellib/velstrnchr.h>

#include <cstring>

#include "util/velassert.h"

char *vel_strnchr(const char *string, size_t n, int c)
{
    VEL_ASSERT(string != NULL);

    return static_cast<char *>(const_cast<void *>(memchr(string, c, n)));
}
