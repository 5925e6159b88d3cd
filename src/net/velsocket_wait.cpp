#include "net/velsocket_internal.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <unistd.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velsocket"

static constexpr velsocketerrno vel_socket_poll_errors[] = {
    {EINTR, VEL_ERROR_INTERRUPTED, 0, nullptr},
    {ENOMEM, VEL_ERROR_NO_MEMORY, 0, nullptr},
    {EFAULT, VEL_ERROR_INTERNAL, 0, nullptr},
    {EINVAL, VEL_ERROR_INTERNAL, 0, nullptr},
    {0, VEL_ERROR_GENERIC, 6, "poll() returned an unhandled error %d"},
};

/* Gives the time as poll takes it, rounded up. More than poll can count is as much as it can. */
static int vel_socket_poll_milliseconds(int seconds, unsigned int microseconds)
{
    if (seconds < 0)
        return -1;
    const int64_t milliseconds =
        int64_t{1000} * seconds + microseconds / 1000 + (microseconds % 1000 != 0);
    return static_cast<int>(std::min<int64_t>(milliseconds, INT_MAX));
}

static vel_error_t vel_socket_wait_readable(const struct velsocket *velsocket, int milliseconds)
{
    struct pollfd pollfds[] = {{velsocket->descriptor, POLLIN, 0},
                               {velsocket->wakeupread, POLLIN, 0}};
    const int count = poll(pollfds, velsocket->wakeupread != -1 ? 2 : 1, milliseconds);
    if (count < 0)
        return vel_socket_map_errno(vel_socket_poll_errors, errno);
    if (count == 0)
        return VEL_ERROR_TIMED_OUT;
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
    VEL_LOG(6, "INTERNAL ERROR: poll() returned %d but no event is available", count);
    return VEL_ERROR_INTERNAL;
}

vel_error_t vel_socket_poll_read(velsocket *velsocket, int timeoutsecs, unsigned int timeoutusecs)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(timeoutusecs < 1000000);

    return vel_socket_keep_error(
        velsocket, vel_socket_wait_readable(
                       velsocket, vel_socket_poll_milliseconds(timeoutsecs, timeoutusecs)));
}

vel_error_t vel_socket_poll_write(velsocket *velsocket, int timeoutsecs, unsigned int timeoutusecs)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(timeoutusecs < 1000000);

    struct pollfd pollfd = {velsocket->descriptor, POLLOUT, 0};
    const int count = poll(&pollfd, 1, vel_socket_poll_milliseconds(timeoutsecs, timeoutusecs));
    vel_error_t velerror = count > 0 ? VEL_ERROR_NONE : VEL_ERROR_TIMED_OUT;
    if (count < 0)
        velerror = vel_socket_map_errno(vel_socket_poll_errors, errno);
    return vel_socket_keep_error(velsocket, velerror);
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
