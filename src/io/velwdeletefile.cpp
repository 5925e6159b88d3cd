#include <vellib/velwdeletefile.h>

#include <errno.h>

#include <vellib/veldeletefile.h>
#include <vellib/velmalloc.h>
#include <vellib/velwchar.h>

#include "util/velassert.h"

int vel_wdeletefile(const wchar_t *wfilename)
{
    VEL_ASSERT(wfilename != NULL);

    char *filename = vel_wchar_to_utf8(wfilename);
    if (!filename) {
        errno = ENOMEM;
        return -1;
    }
    const int result = vel_deletefile(filename);
    const int platformerrno = errno;
    vel_free(filename);
    errno = platformerrno;
    return result;
}
