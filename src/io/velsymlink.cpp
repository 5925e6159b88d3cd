#include <vellib/velsymlink.h>

#include <errno.h>
#include <unistd.h>

#include "io/velpatherror_internal.h"
#include "io/velsymlink_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "io/velsymlink"

vel_error_t vel_symlink_unix(const char *module, const char *target, const char *linkpath)
{
    if (symlink(target, linkpath) == 0)
        return VEL_ERROR_NONE;

    const int platformerrno = errno;
    VEL_LOG_IN(module, 7, "symlink() failed, errno %d", platformerrno);
    const vel_error_t velerror = vel_patherror_find(platformerrno, &vel_patherror::symlink);
    if (velerror == VEL_ERROR_GENERIC)
        VEL_LOG_IN(module, 6, "symlink() returned an unhandled error %d", platformerrno);
    return velerror;
}

vel_error_t vel_symlink_file(const char *target, const char *linkpath)
{
    VEL_ASSERT(target != NULL);
    VEL_ASSERT(linkpath != NULL);

    return vel_symlink_unix(VEL_MODULE, target, linkpath);
}

vel_error_t vel_symlink_directory(const char *target, const char *linkpath)
{
    VEL_ASSERT(target != NULL);
    VEL_ASSERT(linkpath != NULL);

    return vel_symlink_unix(VEL_MODULE, target, linkpath);
}
