#include <vellib/velgethostname.h>

#include <errno.h>
#include <unistd.h>

#include <cstddef>

#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>

#include "util/vellog_macros.h"

#define VEL_MODULE "util/velgethostname"

static constexpr size_t vel_gethostname_bufferlen = 257;

static char *vel_gethostname_into(char *buffer)
{
    if (gethostname(buffer, vel_gethostname_bufferlen) != 0) {
        const int platformerrno = errno;
        VEL_LOG(7, "gethostname() failed: errno %d", platformerrno);
        return nullptr;
    }
    /* The platform need not terminate a name that it cut. */
    buffer[vel_gethostname_bufferlen - 1] = '\0';
    char *hostname = vel_strdup(buffer);
    if (!hostname)
        VEL_LOG(7, "not enough memory for hostname");
    return hostname;
}

char *vel_gethostname(void)
{
    auto *buffer = static_cast<char *>(vel_malloc(vel_gethostname_bufferlen));
    if (!buffer) {
        VEL_LOG(7, "not enough memory for gethostname() buffer");
        return nullptr;
    }
    char *hostname = vel_gethostname_into(buffer);
    vel_free(buffer);
    return hostname;
}
