#include "net/velsocket_internal.h"

#include <cerrno>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velsocket"

static constexpr velsocketerrno vel_socket_connect_errors[] = {
    {EINPROGRESS, VEL_ERROR_IN_PROGRESS, 13, "connection in progress"},
    {EPERM, VEL_ERROR_PERMISSION, 7, "connect() returned EPERM"},
    {EINTR, VEL_ERROR_INTERRUPTED, 13, "connect() returned error %d"},
    {EBADF, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: connect() returned EBADF"},
    {EACCES, VEL_ERROR_ACCESS, 7, "connect() returned EACCES"},
    {EFAULT, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: connect() returned EFAULT"},
    {EAGAIN, VEL_ERROR_GENERIC, 7, "connect() returned error %d"},
    {EALREADY, VEL_ERROR_GENERIC, 7, "connect() returned error %d"},
    {EAFNOSUPPORT, VEL_ERROR_GENERIC, 7, "connect() returned error %d"},
    {EADDRINUSE, VEL_ERROR_GENERIC, 7, "connect() returned error %d"},
    {ENOTSOCK, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: connect() returned ENOTSOCK"},
    {ENETUNREACH, VEL_ERROR_NETWORK_UNREACHABLE, 7, "connect() returned network unreachable"},
    {EISCONN, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: connect() returned EISCONN"},
    {ETIMEDOUT, VEL_ERROR_CONNECTION_TIMED_OUT, 7, "connect() returned timeout"},
    {ECONNREFUSED, VEL_ERROR_CONNECTION_REFUSED, 7, "connection refused"},
    {0, VEL_ERROR_GENERIC, 6, "connect() returned an unhandled error %d"},
};

vel_error_t vel_socket_map_connect_error(int platformerrno)
{
    return vel_socket_map_errno(vel_socket_connect_errors, platformerrno);
}

void vel_socket_connectctx_update_error(velsocketconnect *connectctx, vel_error_t velerror)
{
    VEL_ASSERT(connectctx != NULL);

    const vel_error_t old = connectctx->error;
    if (old == VEL_ERROR_PERMISSION ||
        (old == VEL_ERROR_CANNOT_CONNECT && velerror != VEL_ERROR_PERMISSION))
        connectctx->error = velerror;
}

vel_error_t vel_socket_walk_begin(velsocketwalk *walk, const char *name, bool udp)
{
    walk->veladdrinfo = vel_addrinfo_create(name);
    if (!walk->veladdrinfo) {
        VEL_LOG(7, "not enough memory for veladdrinfo context");
        return VEL_ERROR_NO_MEMORY;
    }
    if (udp)
        vel_addrinfo_set_udp(walk->veladdrinfo);
    return VEL_ERROR_NONE;
}

vel_error_t vel_socket_walk_next(velsocketwalk *walk, struct sockaddr **sockaddrptr,
                                 socklen_t *socklenptr)
{
    for (;;) {
        vel_error_t velerror = vel_addrinfo_get_next(walk->veladdrinfo, sockaddrptr, socklenptr);
        if (velerror != VEL_ERROR_NONE) {
            if (velerror != VEL_ERROR_END_OF_FILE)
                VEL_LOG(7, "name resolution failed, error %d (%s)", velerror,
                        vel_error_string(velerror));
            return velerror;
        }
        const int family = (*sockaddrptr)->sa_family;
        if (!vel_socket_is_inet(*sockaddrptr)) {
            VEL_LOG(6, "unimplemented address family %d", family);
        } else if (!(family == AF_INET ? walk->noipv4 : walk->noipv6)) {
            vel_socket_set_port(*sockaddrptr, walk->port);
            return VEL_ERROR_NONE;
        }
    }
}

void vel_socket_walk_skip(velsocketwalk *walk, int family, const char *protocol,
                          vel_error_t velerror)
{
    VEL_LOG(7, "unable to create a %s socket for %s, error %d (%s)", protocol,
            family == AF_INET ? "IPv4" : "IPv6", velerror, vel_error_string(velerror));
    if (family == AF_INET)
        walk->noipv4 = 1;
    else
        walk->noipv6 = 1;
}

vel_error_t vel_socket_create_or_init(struct velsocket **velsocketptr, int family, int type,
                                      int protocol)
{
    if (*velsocketptr)
        return vel_socket_init(*velsocketptr, family, type, protocol);
    *velsocketptr = vel_socket_create(family, type, protocol);
    return *velsocketptr ? VEL_ERROR_NONE : VEL_ERROR_GENERIC;
}

/* Returns VEL_ERROR_NONE if the address has taken the connection at once. */
static vel_error_t vel_socket_internal_connect(struct velsocket *velsocket,
                                               const struct sockaddr *sockaddr,
                                               socklen_t sockaddrlen)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(sockaddr != NULL);
    VEL_ASSERT(sockaddrlen > 0);

    const int ret = connect(velsocket->descriptor, sockaddr, sockaddrlen);
    if (ret == 0)
        return VEL_ERROR_NONE;

    const int platformerrno = errno;
    VEL_ASSERT(ret == -1);
    vel_error_t velerror = vel_socket_map_connect_error(platformerrno);
    if (velerror == VEL_ERROR_IN_PROGRESS)
        VEL_LOG(13, "connection in progress");
    return velerror;
}

vel_error_t vel_socket_tcp_connect_next(velsocketconnect *connectctx,
                                        struct velsocket **velsocketptr)
{
    VEL_ASSERT(connectctx != NULL);
    VEL_ASSERT(velsocketptr != NULL);

    for (;;) {
        struct sockaddr *sockaddr;
        socklen_t socklen;
        vel_error_t velerror = vel_socket_walk_next(&connectctx->walk, &sockaddr, &socklen);
        if (velerror != VEL_ERROR_NONE)
            return velerror;

        const int family = sockaddr->sa_family;
        velerror = vel_socket_create_or_init(velsocketptr, family, SOCK_STREAM, IPPROTO_TCP);
        if (velerror != VEL_ERROR_NONE) {
            vel_socket_walk_skip(&connectctx->walk, family, "TCP", velerror);
            continue;
        }
        velerror = vel_socket_internal_connect(*velsocketptr, sockaddr, socklen);
        switch (velerror) {
        case VEL_ERROR_IN_PROGRESS:
        case VEL_ERROR_NONE:
            return velerror;
        case VEL_ERROR_PERMISSION:
            if (family == AF_INET6) {
                VEL_LOG(9, "connect() was not permitted to an IPv6 address, "
                           "skip trying any other IPv6 addresses");
                connectctx->walk.noipv6 = 1;
            }
            break;
        default:
            vel_socket_connectctx_update_error(connectctx, velerror);
            break;
        }
    }
}

vel_error_t vel_socket_connect_next(struct velsocket *velsocket)
{
    VEL_ASSERT(velsocket != NULL);
    velsocketconnect *connectctx = velsocket->connectctx;
    VEL_ASSERT(connectctx != NULL);

    int protocol;
    switch (velsocket->socktype) {
    case SOCK_STREAM:
        protocol = IPPROTO_TCP;
        break;
    case SOCK_DGRAM:
        protocol = IPPROTO_UDP;
        break;
    default:
        VEL_LOG(5, "unsupported socktype %d", velsocket->socktype);
        VEL_UNREACHABLE();
    }
    for (;;) {
        struct sockaddr *sockaddr;
        socklen_t socklen;
        vel_error_t velerror = vel_socket_walk_next(&connectctx->walk, &sockaddr, &socklen);
        if (velerror != VEL_ERROR_NONE)
            return velerror;

        const int family = sockaddr->sa_family;
        velerror = vel_socket_init(velsocket, family, velsocket->socktype, protocol);
        if (velerror != VEL_ERROR_NONE) {
            vel_socket_walk_skip(&connectctx->walk, family, "TCP", velerror);
            continue;
        }
        velerror = vel_socket_internal_connect(velsocket, sockaddr, socklen);
        if (velerror == VEL_ERROR_IN_PROGRESS || velerror == VEL_ERROR_NONE)
            return velerror;
        vel_socket_connectctx_update_error(connectctx, velerror);
    }
}
