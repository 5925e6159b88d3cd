#include <vellib/velhardlink.h>

#include <errno.h>
#include <unistd.h>

#include "io/velhardlink_internal.h"
#include "io/velpatherror_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "io/velhardlink"

vel_error_t vel_hardlink_internal(const char *module, const char *target, const char *linkpath)
{
    if (link(target, linkpath) == 0)
        return VEL_ERROR_NONE;

    const int platformerrno = errno;
    VEL_LOG_IN(module, 7, "link() failed, error %d", platformerrno);
    const vel_error_t velerror = vel_patherror_find(platformerrno, &vel_patherror::hardlink);
    if (velerror == VEL_ERROR_GENERIC) /* the word is the one of velsymlink, and stays */
        VEL_LOG_IN(module, 6, "symlink() returned an unhandled error %d", platformerrno);
    return velerror;
}

vel_error_t vel_hardlink(const char *target, const char *linkpath)
{
    VEL_ASSERT(target != NULL);
    VEL_ASSERT(linkpath != NULL);

    return vel_hardlink_internal(VEL_MODULE, target, linkpath);
}
