#include <vellib/velutf8rmdir.h>

#include <vellib/velrmdir.h>

#include "util/velassert.h"

int vel_utf8rmdir(const char *pathname)
{
    VEL_ASSERT(pathname != NULL);

    return vel_rmdir(pathname);
}
