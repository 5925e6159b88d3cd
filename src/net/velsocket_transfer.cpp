#include "net/velsocket_internal.h"

#include <algorithm>
#include <cerrno>

#include <vellib/vellimit.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velsocket"

/* An errno of sending as it is first seen; vel_socket_write sees it once more, by
 * vel_descriptor_write_errors. */
static constexpr velsocketerrno vel_socket_send_errors[] = {
    {EACCES, VEL_ERROR_ACCESS, 0, nullptr},
    {EPIPE, VEL_ERROR_BROKEN_PIPE, 0, nullptr},
    {EAGAIN, VEL_ERROR_WOULD_BLOCK, 0, nullptr},
    {ECONNRESET, VEL_ERROR_CONNECTION_RESET, 7, "unable to write to socket, error %d (ECONNRESET)"},
    {0, VEL_ERROR_GENERIC, 7, "an unmapped error value %d"},
};

/* Keeps a length within what a count with a sign can tell. */
static size_t vel_socket_clamp(size_t len)
{
    return std::min(len, vel_limit_max_size_t() >> 1);
}

/* Receives once, without waiting. addrlenptr takes the room in sockaddr, and receives the length
 * of the sender's address, which may be more. */
static vel_error_t vel_socket_recvfrom(struct velsocket *velsocket, size_t *resultptr, void *buf,
                                       size_t len, int flags, struct sockaddr *sockaddr,
                                       uint64_t *addrlenptr)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(resultptr != NULL);
    VEL_ASSERT(buf != NULL);
    VEL_ASSERT(len > 0);
    VEL_ASSERT(sockaddr != NULL);
    VEL_ASSERT(addrlenptr != NULL);

    *resultptr = 0;
    auto socklen = static_cast<socklen_t>(*addrlenptr);
    const ssize_t count =
        recvfrom(velsocket->descriptor, buf, vel_socket_clamp(len), flags, sockaddr, &socklen);
    if (count < 0)
        return vel_socket_map_errno(vel_descriptor_recv_errors, errno);
    *addrlenptr = socklen;
    *resultptr = static_cast<size_t>(count);
    return VEL_ERROR_NONE;
}

/* Receives into the buffer, and the sender into peeraddr. */
static vel_error_t vel_socket_receive(struct velsocket *velsocket, size_t *resultptr, void *buf,
                                      size_t len)
{
    velsocket->peeraddrlen = sizeof(struct sockaddr_in);
    return vel_socket_recvfrom(velsocket, resultptr, buf, len, 0,
                               reinterpret_cast<struct sockaddr *>(&velsocket->peeraddr),
                               &velsocket->peeraddrlen);
}

/* Logs why sending failed and translates it. call is the name of the system call. */
static vel_error_t vel_socket_send_failed(int platformerrno, const char *call)
{
    vel_error_t velerror = vel_socket_map_errno(vel_socket_send_errors, platformerrno);
    if (velerror != VEL_ERROR_WOULD_BLOCK)
        VEL_LOG(7, "unable to write to socket, error %d", platformerrno);
    if (velerror == VEL_ERROR_ACCESS)
        VEL_LOG(7, "%s() returned EACCES", call);
    return velerror;
}

static vel_error_t vel_socket_send(struct velsocket *velsocket, size_t *resultptr, const void *buf,
                                   size_t len, int flags)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(resultptr != NULL);
    VEL_ASSERT(buf != NULL);
    VEL_ASSERT(len > 0);

    const ssize_t count = send(velsocket->descriptor, buf, vel_socket_clamp(len), flags);
    if (count < 0)
        return vel_socket_send_failed(errno, "send");
    *resultptr = static_cast<size_t>(count);
    return VEL_ERROR_NONE;
}

static vel_error_t vel_socket_sendto(struct velsocket *velsocket, size_t *resultptr,
                                     const void *buf, size_t len, int flags,
                                     const struct sockaddr *sockaddr, uint64_t sockaddrlen)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(resultptr != NULL);
    VEL_ASSERT(buf != NULL);
    VEL_ASSERT(len > 0);
    VEL_ASSERT(sockaddr != NULL);

    const ssize_t count = sendto(velsocket->descriptor, buf, vel_socket_clamp(len), flags, sockaddr,
                                 static_cast<socklen_t>(sockaddrlen));
    if (count < 0)
        return vel_socket_send_failed(errno, "sendto");
    *resultptr = static_cast<size_t>(count);
    return VEL_ERROR_NONE;
}

static vel_error_t vel_socket_write_udp(struct velsocket *velsocket, size_t *resultptr,
                                        const void *buf, size_t len)
{
    auto *sockaddr = reinterpret_cast<const struct sockaddr *>(&velsocket->destaddr);
    uint64_t sockaddrlen = velsocket->destaddrlen;
    if (!vel_socket_is_inet(sockaddr) || vel_socket_fetch_port(sockaddr) == 0) {
        sockaddr = reinterpret_cast<const struct sockaddr *>(&velsocket->peeraddr);
        sockaddrlen = velsocket->peeraddrlen;
    }
    vel_error_t velerror =
        vel_socket_sendto(velsocket, resultptr, buf, len, 0, sockaddr, sockaddrlen);
    if (velerror != VEL_ERROR_ACCESS)
        return velerror;

    /* This is how a broadcast address is refused. */
    VEL_LOG(7, "sendto() returned EACCES");
    VEL_LOG(7, "trying to enable sending to broadcast address");
    velerror = vel_socket_enable_broadcast(velsocket);
    if (velerror != VEL_ERROR_NONE)
        VEL_LOG(7, "failed to enable sending to broadcast address, error %d (%s)", velerror,
                vel_error_string(velerror));
    VEL_LOG(7, "retrying sendto()");
    return vel_socket_sendto(velsocket, resultptr, buf, len, 0, sockaddr, sockaddrlen);
}

/* Waits within what is left of readtimeout until there is something to read. */
static vel_error_t vel_socket_wait_to_receive(struct velsocket *velsocket)
{
    int seconds;
    unsigned int microseconds;
    if (vel_timeout_check(velsocket->readtimeout, &seconds, &microseconds) == 1)
        return VEL_ERROR_TIMED_OUT;

    vel_error_t velerror = vel_socket_poll_read(velsocket, seconds, microseconds);
    if (velerror != VEL_ERROR_NONE)
        VEL_LOG(13, "polling read for a socket returned error %d (%s)", velerror,
                vel_error_string(velerror));
    return velerror;
}

/* The first attempt comes before any wait, so that waiting data costs one call. Whatever makes it
 * fail, there is a second one and no third. */
static vel_error_t vel_socket_read_within(struct velsocket *velsocket, size_t *resultptr, void *buf,
                                          size_t maxlen)
{
    if (vel_timeout_check(velsocket->readtimeout, nullptr, nullptr) == 1)
        return VEL_ERROR_TIMED_OUT;

    vel_error_t velerror = vel_socket_receive(velsocket, resultptr, buf, maxlen);
    if (velerror == VEL_ERROR_WOULD_BLOCK) {
        velerror = vel_socket_wait_to_receive(velsocket);
        if (velerror != VEL_ERROR_NONE)
            return velerror;
        velerror = VEL_ERROR_WOULD_BLOCK;
    }
    if (velerror != VEL_ERROR_NONE) {
        velerror = vel_socket_receive(velsocket, resultptr, buf, maxlen);
        if (velerror != VEL_ERROR_NONE) {
            VEL_LOG(7, "vel_socket_recvfrom() returned error %d (%s)", velerror,
                    vel_error_string(velerror));
            return velerror;
        }
    }
    return *resultptr > 0 ? VEL_ERROR_NONE : VEL_ERROR_END_OF_FILE;
}

size_t vel_socket_read(velsocket *velsocket, void *buf, size_t maxlen)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(buf != NULL);
    VEL_ASSERT(maxlen > 0);

    return vel_socket_read_with_timeout(velsocket, buf, maxlen, -1, 0);
}

size_t vel_socket_read_with_timeout(velsocket *velsocket, void *buf, size_t maxlen, int timeoutsecs,
                                    unsigned int timeoutusecs)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(buf != NULL);
    VEL_ASSERT(maxlen > 0);
    VEL_ASSERT(timeoutusecs < 1000000);

    size_t count = 0;
    vel_timeout_set(velsocket->readtimeout, timeoutsecs, timeoutusecs);
    velsocket->readerror = vel_socket_read_within(velsocket, &count, buf, maxlen);
    vel_socket_keep_error(velsocket, velsocket->readerror);
    return count;
}

size_t vel_socket_write(velsocket *velsocket, const void *buf, size_t len)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(buf != NULL);
    VEL_ASSERT(len > 0);

    const bool udp = velsocket->socktype == SOCK_DGRAM;
    size_t count = 0;
    velsocket->writeerror = udp ? vel_socket_write_udp(velsocket, &count, buf, len)
                                : vel_socket_send(velsocket, &count, buf, len, 0);
    vel_socket_keep_error(velsocket, velsocket->writeerror);
    if (velsocket->writeerror == VEL_ERROR_NONE)
        return count;

    /* The errno is read once more, as it stands after the lines logged so far. */
    const int platformerrno = errno;
    if (platformerrno == EACCES) {
        VEL_LOG(7, "%s() returned EACCES", udp ? "sendto" : "send");
        return EACCES;
    }
    velsocket->writeerror = vel_socket_map_errno(vel_descriptor_write_errors, platformerrno);
    vel_socket_keep_error(velsocket, velsocket->writeerror);
    return 0;
}
