#include <vellib/velhashfunc.h>

#include <cstring>

#include "adt/velhashfunc_internal.h"
#include "util/velassert.h"

uint64_t vel_hashfunc_string(const char *string)
{
    VEL_ASSERT(string != NULL);

    const size_t length = strlen(string);
    return vel_hashfunc_combine(string, length, vel_hashfunc_rest(string, length));
}
