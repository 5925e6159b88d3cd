#include <vellib/velutf8symlink.h>

#include "io/velsymlink_internal.h"
#include "util/velassert.h"

#define VEL_MODULE "io/velutf8symlink"

vel_error_t vel_utf8symlink_file(const char *target, const char *linkpath)
{
    VEL_ASSERT(target != NULL);
    VEL_ASSERT(linkpath != NULL);

    return vel_symlink_unix(VEL_MODULE, target, linkpath);
}

vel_error_t vel_utf8symlink_directory(const char *target, const char *linkpath)
{
    VEL_ASSERT(target != NULL);
    VEL_ASSERT(linkpath != NULL);

    return vel_symlink_unix(VEL_MODULE, target, linkpath);
}
