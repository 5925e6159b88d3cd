#include <vellib/velutf8rename.h>

#include <vellib/velrename.h>

#include "util/velassert.h"

int vel_utf8rename(const char *oldpath, const char *newpath)
{
    VEL_ASSERT(oldpath != NULL);
    VEL_ASSERT(newpath != NULL);

    return vel_rename(oldpath, newpath);
}
