#include <vellib/velutf8mkdir.h>

#include <vellib/velmkdir.h>

#include "io/velmkdir_internal.h"
#include "util/velassert.h"

#define VEL_MODULE "io/velutf8mkdir"

int vel_utf8mkdir(const char *pathname)
{
    VEL_ASSERT(pathname != NULL);

    return vel_mkdir(pathname);
}

vel_error_t vel_utf8mkdir_recursive(const char *pathname)
{
    VEL_ASSERT(pathname != NULL);

    return vel_mkdir_recursive_internal(VEL_MODULE, pathname);
}

int vel_utf8mkdir_file_path(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_mkdir_file_path_internal(VEL_MODULE, filename);
}
