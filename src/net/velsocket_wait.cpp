#include "net/velsocket_internal.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velsocket"

static vel_error_t vel_socket_wait_readable(const struct velsocket *velsocket, int timeoutsecs,
                                            unsigned int timeoutusecs)
{
    struct pollfd pollfds[] = {{velsocket->descriptor, POLLIN, 0},
                               {velsocket->wakeupread, POLLIN, 0}};
    int count = 0;
    const vel_error_t velerror =
        vel_descriptor_poll(VEL_MODULE, pollfds, velsocket->wakeupread != -1 ? 2 : 1, timeoutsecs,
                            timeoutusecs, &count);
    if (velerror != VEL_ERROR_NONE)
        return velerror;
    if (pollfds[0].revents & POLLIN)
        return VEL_ERROR_NONE;
    if (pollfds[1].revents & POLLIN) {
        char byte;
        if (read(velsocket->wakeupread, &byte, 1) < 0) {
            const int platformerrno = errno;
            VEL_LOG(8, "wakeup pipe read failed, error %d", platformerrno);
        }
        return VEL_ERROR_WAKEUP;
    }
    return vel_descriptor_no_event(VEL_MODULE, count);
}

vel_error_t vel_socket_poll_read(velsocket *velsocket, int timeoutsecs, unsigned int timeoutusecs)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(timeoutusecs < 1000000);

    return vel_socket_keep_error(velsocket,
                                 vel_socket_wait_readable(velsocket, timeoutsecs, timeoutusecs));
}

vel_error_t vel_socket_poll_write(velsocket *velsocket, int timeoutsecs, unsigned int timeoutusecs)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(timeoutusecs < 1000000);

    return vel_socket_keep_error(
        velsocket,
        vel_descriptor_poll_write(VEL_MODULE, velsocket->descriptor, timeoutsecs, timeoutusecs));
}

vel_error_t vel_socket_enable_wakeup(velsocket *velsocket)
{
    VEL_ASSERT(velsocket != NULL);

    if (velsocket->wakeupread != -1)
        return VEL_ERROR_NONE;

    int ends[2];
    if (pipe(ends) != 0) {
        const int platformerrno = errno;
        VEL_LOG(7, "pipe() returned error %d", platformerrno);
        return VEL_ERROR_GENERIC;
    }
    velsocket->wakeupread = ends[0];
    velsocket->wakeupwrite = ends[1];
    return VEL_ERROR_NONE;
}

/* Touches nothing but the pipe, as this runs beside the thread that the socket belongs to. */
vel_error_t vel_socket_wakeup(velsocket *velsocket)
{
    VEL_ASSERT(velsocket != NULL);

    vel_error_t velerror = VEL_ERROR_NONE;
    if (velsocket->wakeupwrite == -1) {
        VEL_LOG(6, "waking up this socket is not enabled");
        velerror = VEL_ERROR_UNSUPPORTED;
    }
    /* Without a pipe this fails, which is what the caller then gets. */
    if (write(velsocket->wakeupwrite, "X", 1) < 0) {
        const int platformerrno = errno;
        VEL_LOG(7, "unable to write to the wakeup pipe, error %d", platformerrno);
        velerror = VEL_ERROR_WRITE;
    }
    return velerror;
}
