#include <vellib/veltruncate.h>

#include <errno.h>
#include <unistd.h>

#include "util/velassert.h"

int vel_truncate(const char *filename, int64_t length)
{
    VEL_ASSERT(filename != NULL);

    const auto offset = static_cast<off_t>(length);
    if (offset != length) {
        errno = EFBIG;
        return -1;
    }
    return truncate(filename, offset);
}
