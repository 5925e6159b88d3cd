#ifndef VELLIB_NET_VELDESCRIPTOR_CORE_H
#define VELLIB_NET_VELDESCRIPTOR_CORE_H

/* What velsocket and the UNIX-domain transport of velicap do alike with the descriptor of a stream
 * socket. module is the path of the module that logs. */

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <fcntl.h>
#include <poll.h>

#include <vellib/velerror.h>

#include "util/vellog_macros.h"

/* What one errno of a call means. A table of them ends in a row with errno 0, which stands for
 * every errno without a row of its own. */
struct velsocketerrno {
    int platformerrno;
    vel_error_t velerror;
    int level;
    const char *format; /* of the line to log; takes the errno or nothing. NULL for no line */
};

inline constexpr velsocketerrno vel_descriptor_recv_errors[] = {
    {EAGAIN, VEL_ERROR_WOULD_BLOCK, 13, "recv() returned EWOULDBLOCK"},
    {EWOULDBLOCK, VEL_ERROR_WOULD_BLOCK, 13, "recv() returned EWOULDBLOCK"},
    {EINTR, VEL_ERROR_INTERRUPTED, 13, "recv() returned EINTR"},
    {EBADF, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: recv() returned EBADF"},
    {ENOMEM, VEL_ERROR_NO_MEMORY, 7, "recv() returned not enough memory"},
    {EFAULT, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: recv() returned EFAULT"},
    {EINVAL, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: recv() returned EINVAL"},
    {ENOTSOCK, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: recv() returned ENOTSOCK"},
    {ECONNRESET, VEL_ERROR_CONNECTION_RESET, 7, "recv() returned ECONNRESET"},
    {ENOTCONN, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: recv() returned ENOTCONN"},
    {ECONNREFUSED, VEL_ERROR_INTERNAL, 7, "INTERNAL ERROR: recv() returned connection refused"},
    {0, VEL_ERROR_GENERIC, 6, "recv() returned an unhandled error %d"},
};

inline constexpr velsocketerrno vel_descriptor_write_errors[] = {
    {EPIPE, VEL_ERROR_BROKEN_PIPE, 0, nullptr},
    {EAGAIN, VEL_ERROR_WOULD_BLOCK, 0, nullptr},
    {EWOULDBLOCK, VEL_ERROR_WOULD_BLOCK, 0, nullptr},
    {ECONNRESET, VEL_ERROR_CONNECTION_RESET, 7, "unable to write to socket, error %d"},
    {0, VEL_ERROR_GENERIC, 7, "an unmapped error value %d"},
};

inline constexpr velsocketerrno vel_descriptor_poll_errors[] = {
    {EINTR, VEL_ERROR_INTERRUPTED, 0, nullptr},
    {ENOMEM, VEL_ERROR_NO_MEMORY, 0, nullptr},
    {EFAULT, VEL_ERROR_INTERNAL, 0, nullptr},
    {EINVAL, VEL_ERROR_INTERNAL, 0, nullptr},
    {0, VEL_ERROR_GENERIC, 6, "poll() returned an unhandled error %d"},
};

/* Translates an errno by a table, and logs it if its row says so. */
static inline vel_error_t vel_descriptor_map_errno(const char *module, const velsocketerrno *row,
                                                   int platformerrno)
{
    while (row->platformerrno != 0 && row->platformerrno != platformerrno)
        row++;
    if (row->format)
        VEL_LOG_IN(module, row->level, row->format, platformerrno);
    return row->velerror;
}

/* Returns false, logged, if the descriptor cannot be made non-blocking. */
static inline bool vel_descriptor_set_nonblocking(const char *module, int descriptor)
{
    int result = fcntl(descriptor, F_GETFL);
    if (result >= 0) {
        if (result & O_NONBLOCK)
            return true;
        result = fcntl(descriptor, F_SETFL, result | O_NONBLOCK);
    }
    if (result != 0)
        VEL_LOG_IN(module, 7, "fcntl() returned error %d", result);
    return result == 0;
}

/* Gives the time as poll takes it, rounded up. More than poll can count is as much as it can. */
static inline int vel_descriptor_poll_milliseconds(int seconds, unsigned int microseconds)
{
    if (seconds < 0)
        return -1;
    const int64_t milliseconds =
        int64_t{1000} * seconds + microseconds / 1000 + (microseconds % 1000 != 0);
    return static_cast<int>(std::min<int64_t>(milliseconds, INT_MAX));
}

/* Waits until one of the descriptors has an event, and counts those that have. */
static inline vel_error_t vel_descriptor_poll(const char *module, struct pollfd *pollfds,
                                              nfds_t length, int seconds, unsigned int microseconds,
                                              int *countptr)
{
    *countptr = poll(pollfds, length, vel_descriptor_poll_milliseconds(seconds, microseconds));
    if (*countptr < 0)
        return vel_descriptor_map_errno(module, vel_descriptor_poll_errors, errno);
    return *countptr > 0 ? VEL_ERROR_NONE : VEL_ERROR_TIMED_OUT;
}

/* Waits until the descriptor takes more, or has failed, which the next write then tells. */
static inline vel_error_t vel_descriptor_poll_write(const char *module, int descriptor, int seconds,
                                                    unsigned int microseconds)
{
    struct pollfd pollfd = {descriptor, POLLOUT, 0};
    int count = 0;
    return vel_descriptor_poll(module, &pollfd, 1, seconds, microseconds, &count);
}

/* Says that poll has counted events of which none is one that was waited for. */
static inline vel_error_t vel_descriptor_no_event(const char *module, int count)
{
    VEL_LOG_IN(module, 6, "INTERNAL ERROR: poll() returned %d but no event is available", count);
    return VEL_ERROR_INTERNAL;
}

#endif
