#include <vellib/velrename.h>

#include <stdio.h>

#include "util/velassert.h"

int vel_rename(const char *oldpath, const char *newpath)
{
    VEL_ASSERT(oldpath != NULL);
    VEL_ASSERT(newpath != NULL);

    return rename(oldpath, newpath);
}
