/* Connecting by name. A connect has two halves: the first one begins, and returns as soon as an
 * address neither takes nor refuses the connection at once; the second one waits for that address,
 * and for those that follow if it fails. What they share is the connect context, which hangs on
 * the socket in between. A failure of one address never ends the walk through the addresses. */

#include "net/velsocket_internal.h"

#include <cstring>

#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velsocket"

static velsocketconnect *vel_socket_connectctx_create(unsigned int port)
{
    auto *connectctx = static_cast<velsocketconnect *>(vel_cmalloc(sizeof(velsocketconnect)));
    if (!connectctx) {
        VEL_LOG(7, "not enough memory for socket connect context");
        VEL_LOG(7, "unable to create socket connect context");
        return nullptr;
    }
    connectctx->timeout = vel_timeout_create();
    if (!connectctx->timeout) {
        VEL_LOG(7, "not enough memory for socket connect timeout context");
        vel_socket_connectctx_destroy(connectctx);
        VEL_LOG(7, "unable to create socket connect context");
        return nullptr;
    }
    connectctx->error = VEL_ERROR_CANNOT_CONNECT;
    connectctx->walk.port = port;
    return connectctx;
}

/* Logs that a connect could not be made, quietly if a signal was the reason. */
static void vel_socket_log_failed_connect(const char *name, unsigned int port, vel_error_t velerror)
{
    VEL_LOG(velerror == VEL_ERROR_INTERRUPTED ? 13 : 7,
            "failed to connect %s tcp port %u, error %d (%s)", name, port, velerror,
            vel_error_string(velerror));
}

velsocket *vel_socket_tcp_connect(const char *name, unsigned int port, vel_error_t *velerrorptr)
{
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);
    VEL_ASSERT(velerrorptr != NULL);

    return vel_socket_tcp_connect_with_timeout(name, port, -1, 0, velerrorptr);
}

velsocket *vel_socket_tcp_connect_with_timeout(const char *name, unsigned int port, int timeoutsecs,
                                               unsigned int timeoutusecs, vel_error_t *velerrorptr)
{
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);
    VEL_ASSERT(timeoutusecs < 1000000);
    VEL_ASSERT(velerrorptr != NULL);

    vel_error_t velerror;
    struct velsocket *velsocket = vel_socket_tcp_connect_async(name, port, &velerror);
    if (velsocket && velerror == VEL_ERROR_IN_PROGRESS) {
        velerror = vel_socket_connect_wait(velsocket, timeoutsecs, timeoutusecs);
        if (velerror != VEL_ERROR_NONE) {
            vel_socket_destroy(velsocket);
            velsocket = nullptr;
        }
    }
    if (!velsocket) {
        vel_socket_log_failed_connect(name, port, velerror);
        VEL_ASSERT(velerror != VEL_ERROR_NONE);
    }
    *velerrorptr = velerror;
    return velsocket;
}

/* Walks without a socket to begin with. The context becomes the socket's if the result is
 * VEL_ERROR_IN_PROGRESS, and is destroyed otherwise. */
static vel_error_t vel_socket_tcp_connect_first(velsocketconnect *connectctx,
                                                struct velsocket **velsocketptr)
{
    vel_error_t velerror = vel_socket_tcp_connect_next(connectctx, velsocketptr);
    if (velerror == VEL_ERROR_IN_PROGRESS) {
        (*velsocketptr)->connectctx = connectctx;
        return velerror;
    }
    vel_socket_connectctx_destroy(connectctx);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG(7, "vel_socket_tcp_connect_next() returned %d (%s)", velerror,
                vel_error_string(velerror));
        if (*velsocketptr)
            vel_socket_destroy(*velsocketptr);
        *velsocketptr = nullptr;
    }
    return velerror;
}

velsocket *vel_socket_tcp_connect_async(const char *name, unsigned int port,
                                        vel_error_t *velerrorptr)
{
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);
    VEL_ASSERT(velerrorptr != NULL);

    velsocketconnect *connectctx = vel_socket_connectctx_create(port);
    if (!connectctx) {
        *velerrorptr = VEL_ERROR_NO_MEMORY;
        return nullptr;
    }
    *velerrorptr = vel_socket_walk_begin(&connectctx->walk, name, /*udp=*/false);
    if (*velerrorptr != VEL_ERROR_NONE) {
        vel_socket_connectctx_destroy(connectctx);
        return nullptr;
    }
    struct velsocket *velsocket = nullptr;
    *velerrorptr = vel_socket_tcp_connect_first(connectctx, &velsocket);
    return velsocket;
}

vel_error_t vel_socket_connect(velsocket *velsocket, const char *name, unsigned int port)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);

    vel_error_t velerror = vel_socket_connect_async(velsocket, name, port);
    if (velerror == VEL_ERROR_IN_PROGRESS)
        velerror = vel_socket_connect_wait(velsocket, -1, 0);
    else if (velerror != VEL_ERROR_NONE)
        vel_socket_log_failed_connect(name, port, velerror);
    return vel_socket_keep_error(velsocket, velerror);
}

static vel_error_t vel_socket_connect_first(struct velsocket *velsocket, const char *name,
                                            unsigned int port)
{
    /* The context of a connect still in progress is lost here, not destroyed. */
    velsocket->connectctx = vel_socket_connectctx_create(port);
    if (!velsocket->connectctx)
        return VEL_ERROR_NO_MEMORY;

    const bool udp = velsocket->socktype == SOCK_DGRAM;
    if (!udp && velsocket->socktype != SOCK_STREAM) {
        VEL_LOG(7, "unsupported socktype %d", velsocket->socktype);
        return VEL_ERROR_UNSUPPORTED;
    }
    vel_error_t velerror = vel_socket_walk_begin(&velsocket->connectctx->walk, name, udp);
    if (velerror != VEL_ERROR_NONE)
        return velerror;

    velerror = vel_socket_connect_next(velsocket);
    if (velerror == VEL_ERROR_IN_PROGRESS)
        return velerror;
    vel_socket_connectctx_destroy(velsocket->connectctx);
    velsocket->connectctx = nullptr;
    if (velerror != VEL_ERROR_NONE)
        VEL_LOG(7, "vel_socket_connect_next() returned %d (%s)", velerror,
                vel_error_string(velerror));
    return velerror;
}

vel_error_t vel_socket_connect_async(velsocket *velsocket, const char *name, unsigned int port)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);

    return vel_socket_keep_error(velsocket, vel_socket_connect_first(velsocket, name, port));
}

/* Waits for the address in progress. Returns VEL_ERROR_NONE if it has ended, with the errno that it
 * ended with, 0 if it has taken the connection. */
static vel_error_t vel_socket_connect_wait_once(struct velsocket *velsocket, int seconds,
                                                unsigned int microseconds, int *platformerrnoptr)
{
    vel_error_t velerror = vel_socket_poll_write(velsocket, seconds, microseconds);
    if (velerror != VEL_ERROR_NONE) {
        const bool usual = velerror == VEL_ERROR_INTERRUPTED || velerror == VEL_ERROR_TIMED_OUT;
        VEL_LOG(usual ? 13 : 7, "polling for connecting socket returned error %d (%s)", velerror,
                vel_error_string(velerror));
        return velerror;
    }
    socklen_t length = sizeof *platformerrnoptr;
    const int ret =
        getsockopt(velsocket->descriptor, SOL_SOCKET, SO_ERROR, platformerrnoptr, &length);
    if (ret != 0) {
        VEL_LOG(7, "getsockopt() failed, error %d", ret);
        return VEL_ERROR_GENERIC;
    }
    return VEL_ERROR_NONE;
}

/* Goes on from an address that has failed with an errno to the next. Returns true if that one is in
 * progress; otherwise velerrorptr receives what to report in the end. */
static bool vel_socket_connect_advance(struct velsocket *velsocket, velsocketconnect *connectctx,
                                       int platformerrno, vel_error_t *velerrorptr)
{
    vel_error_t velerror = vel_socket_map_connect_error(platformerrno);
    VEL_ASSERT(velerror != VEL_ERROR_NONE);
    vel_socket_connectctx_update_error(connectctx, velerror);

    /* The socket may have any type, and the next address gets a TCP connect all the same. */
    velerror = vel_socket_tcp_connect_next(connectctx, &velsocket);
    if (velerror == VEL_ERROR_IN_PROGRESS)
        return true;
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG(7, "vel_socket_tcp_connect_next() returned %d (%s)", velerror,
                vel_error_string(velerror));
        vel_socket_connectctx_update_error(connectctx, velerror);
        velerror = connectctx->error; /* may be VEL_ERROR_IN_PROGRESS, which ends the wait too */
    }
    *velerrorptr = velerror;
    return false;
}

static vel_error_t vel_socket_connect_wait_all(struct velsocket *velsocket,
                                               velsocketconnect *connectctx, int seconds,
                                               unsigned int microseconds)
{
    for (;;) {
        int platformerrno = 0;
        vel_error_t velerror =
            vel_socket_connect_wait_once(velsocket, seconds, microseconds, &platformerrno);
        if (velerror != VEL_ERROR_NONE)
            return velerror;
        if (platformerrno == 0) {
            VEL_LOG(13, "connected");
            return VEL_ERROR_NONE;
        }
        if (!vel_socket_connect_advance(velsocket, connectctx, platformerrno, &velerror))
            return velerror;
        if (vel_timeout_check(connectctx->timeout, &seconds, &microseconds) == 1) {
            VEL_LOG(13, "connect timeout occurred");
            return VEL_ERROR_TIMED_OUT;
        }
    }
}

vel_error_t vel_socket_connect_wait(velsocket *velsocket, int timeoutsecs,
                                    unsigned int timeoutusecs)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(timeoutsecs >= -1);
    VEL_ASSERT(timeoutusecs < 1000000);

    velsocketconnect *connectctx = velsocket->connectctx;
    if (!connectctx) {
        VEL_LOG(6, "invalid call, no connect context present");
        return VEL_ERROR_BAD_HANDLE;
    }
    struct veltimeout *veltimeout = connectctx->timeout;
    VEL_ASSERT(veltimeout != NULL);
    vel_timeout_set(veltimeout, timeoutsecs, timeoutusecs);

    vel_error_t velerror =
        vel_socket_connect_wait_all(velsocket, connectctx, timeoutsecs, timeoutusecs);
    if (velerror != VEL_ERROR_TIMED_OUT && velerror != VEL_ERROR_IN_PROGRESS) {
        vel_socket_connectctx_destroy(connectctx);
        velsocket->connectctx = nullptr;
    }
    return velerror;
}

/* Stores the first address that fits as the destination of a socket, which it creates. The socket
 * may have been created on failure too. */
static vel_error_t vel_socket_udp_connect_first(velsocketwalk *walk,
                                                struct velsocket **velsocketptr)
{
    for (;;) {
        struct sockaddr *sockaddr;
        socklen_t socklen;
        vel_error_t velerror = vel_socket_walk_next(walk, &sockaddr, &socklen);
        if (velerror != VEL_ERROR_NONE)
            return velerror;

        const int family = sockaddr->sa_family;
        velerror = vel_socket_create_or_init(velsocketptr, family, SOCK_DGRAM, IPPROTO_UDP);
        if (velerror != VEL_ERROR_NONE) {
            vel_socket_walk_skip(walk, family, "UDP", velerror);
            continue;
        }
        struct velsocket *velsocket = *velsocketptr;
        if (socklen <= sizeof velsocket->destaddr) {
            memcpy(&velsocket->destaddr, sockaddr, socklen);
            velsocket->destaddrlen = socklen;
            return VEL_ERROR_NONE;
        }
        /* An IPv6 address never fits. */
        VEL_LOG(7, "address length %ld exceeds the maximum %lu supported",
                static_cast<long>(socklen), static_cast<unsigned long>(sizeof velsocket->destaddr));
    }
}

velsocket *vel_socket_udp_connect(const char *name, unsigned int port, vel_error_t *velerrorptr)
{
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);
    VEL_ASSERT(velerrorptr != NULL);

    velsocketwalk walk = {};
    walk.port = port;
    *velerrorptr = vel_socket_walk_begin(&walk, name, /*udp=*/true);
    if (*velerrorptr != VEL_ERROR_NONE)
        return nullptr;

    struct velsocket *velsocket = nullptr;
    *velerrorptr = vel_socket_udp_connect_first(&walk, &velsocket);
    vel_addrinfo_destroy(walk.veladdrinfo);
    if (*velerrorptr != VEL_ERROR_NONE && velsocket) {
        vel_socket_destroy(velsocket);
        velsocket = nullptr;
    }
    return velsocket;
}
