#include <vellib/velrmdir.h>

#include <unistd.h>

#include "util/velassert.h"

int vel_rmdir(const char *pathname)
{
    VEL_ASSERT(pathname != NULL);

    return rmdir(pathname);
}
