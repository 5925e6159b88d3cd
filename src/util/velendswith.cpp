#include <vellib/velendswith.h>

#include <cstring>

#include "util/velassert.h"

int vel_endswith(const char *string, const char *suffix)
{
    VEL_ASSERT(string != NULL);
    VEL_ASSERT(suffix != NULL);

    const size_t stringlen = strlen(string);
    const size_t suffixlen = strlen(suffix);
    return suffixlen <= stringlen && strcmp(string + stringlen - suffixlen, suffix) == 0;
}
