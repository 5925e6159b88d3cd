#include <vellib/velutf8deletefile.h>

#include <vellib/veldeletefile.h>

#include "util/velassert.h"

int vel_utf8deletefile(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_deletefile(filename);
}
