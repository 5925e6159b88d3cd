#include <vellib/velhashfunc.h>

#include <cstring>

#include "adt/velhashfunc_internal.h"
#include "util/velassert.h"

uint64_t vel_hashfunc_string(const char *string)
{
    VEL_ASSERT(string != NULL);

    return vel_hashfunc_sized_string(string, strlen(string));
}
