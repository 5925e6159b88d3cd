#include <vellib/velutf8hardlink.h>

#include "io/velhardlink_internal.h"
#include "util/velassert.h"

#define VEL_MODULE "io/velutf8hardlink"

vel_error_t vel_utf8hardlink(const char *target, const char *linkpath)
{
    VEL_ASSERT(target != NULL);
    VEL_ASSERT(linkpath != NULL);

    return vel_hardlink_internal(VEL_MODULE, target, linkpath);
}
