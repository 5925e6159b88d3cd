#include <vellib/veldeletefile.h>

#include <unistd.h>

#include "util/velassert.h"

int vel_deletefile(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return unlink(filename);
}
