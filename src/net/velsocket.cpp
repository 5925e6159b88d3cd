#include <vellib/velsocket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <unistd.h>

#include <vellib/velmalloc.h>

#include "net/velsocket_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velsocket"

static constexpr velsocketerrno vel_socket_bind_errors[] = {
    {EADDRINUSE, VEL_ERROR_ADDRESS_IN_USE, 7, "bind() returned error %d"},
    {0, VEL_ERROR_GENERIC, 7, "bind() returned error %d"},
};

static constexpr velsocketerrno vel_socket_accept_errors[] = {
    {EINVAL, VEL_ERROR_INVALID_ARGUMENT, 0, nullptr},
    {EAGAIN, VEL_ERROR_WOULD_BLOCK, 0, nullptr},
    {0, VEL_ERROR_GENERIC, 7, "accept() returned error %d"},
};

vel_error_t vel_socket_map_errno(const velsocketerrno *row, int platformerrno)
{
    return vel_descriptor_map_errno(VEL_MODULE, row, platformerrno);
}

bool vel_socket_is_inet(const struct sockaddr *sockaddr)
{
    return sockaddr->sa_family == AF_INET || sockaddr->sa_family == AF_INET6;
}

void vel_socket_set_port(struct sockaddr *sockaddr, unsigned int port)
{
    const in_port_t netport = htons(static_cast<uint16_t>(port));
    if (sockaddr->sa_family == AF_INET6)
        reinterpret_cast<struct sockaddr_in6 *>(sockaddr)->sin6_port = netport;
    else
        reinterpret_cast<struct sockaddr_in *>(sockaddr)->sin_port = netport;
}

unsigned int vel_socket_fetch_port(const struct sockaddr *sockaddr)
{
    if (sockaddr->sa_family == AF_INET6)
        return ntohs(reinterpret_cast<const struct sockaddr_in6 *>(sockaddr)->sin6_port);
    return ntohs(reinterpret_cast<const struct sockaddr_in *>(sockaddr)->sin_port);
}

static int vel_socket_set_nonblocking(struct velsocket *velsocket)
{
    VEL_ASSERT(velsocket != NULL);

    return vel_descriptor_set_nonblocking(VEL_MODULE, velsocket->descriptor) ? 0 : -1;
}

vel_error_t vel_socket_init(velsocket *velsocket, int domain, int type, int protocol)
{
    VEL_ASSERT(velsocket != NULL);

    if (velsocket->descriptor >= 0)
        (void)close(velsocket->descriptor);
    velsocket->descriptor = socket(domain, type, protocol);
    if (velsocket->descriptor < 0) {
        const int platformerrno = errno;
        velsocket->descriptor = -1;
        VEL_LOG(7, "socket() call failed, error %d", platformerrno);
        return VEL_ERROR_GENERIC;
    }
    if (vel_socket_set_nonblocking(velsocket) != 0) {
        VEL_LOG(7, "unable to set the socket to non-blocking mode");
        return VEL_ERROR_GENERIC;
    }
    velsocket->domain = domain;
    velsocket->socktype = type;
    return VEL_ERROR_NONE;
}

/* Makes a socket that has no descriptor yet. */
static velsocket *vel_socket_allocate()
{
    auto *velsocket = static_cast<struct velsocket *>(vel_cmalloc(sizeof(struct velsocket)));
    if (!velsocket) {
        VEL_LOG(7, "not enough memory for velsocket structure");
        return nullptr;
    }
    velsocket->descriptor = -1;
    velsocket->wakeupread = -1;
    velsocket->wakeupwrite = -1;
    velsocket->readtimeout = vel_timeout_create();
    if (!velsocket->readtimeout) {
        VEL_LOG(7, "unable to create timeout context");
        vel_socket_destroy(velsocket);
        return nullptr;
    }
    vel_timeout_set(velsocket->readtimeout, -1, 0);
    return velsocket;
}

void vel_socket_connectctx_destroy(velsocketconnect *connectctx)
{
    VEL_ASSERT(connectctx != NULL);

    if (connectctx->walk.veladdrinfo)
        vel_addrinfo_destroy(connectctx->walk.veladdrinfo);
    if (connectctx->timeout)
        vel_timeout_destroy(connectctx->timeout);
    vel_free(connectctx);
}

velsocket *vel_socket_create(int domain, int type, int protocol)
{
    struct velsocket *velsocket = vel_socket_allocate();
    if (!velsocket)
        return nullptr;

    vel_error_t velerror = vel_socket_init(velsocket, domain, type, protocol);
    if (velerror != VEL_ERROR_NONE) {
        vel_socket_destroy(velsocket);
        VEL_LOG(7, "unable to initialize socket, error %d (%s)", velerror,
                vel_error_string(velerror));
        return nullptr;
    }
    return velsocket;
}

velsocket *vel_socket_tcp_create(void)
{
    struct velsocket *velsocket = vel_socket_create(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (!velsocket)
        VEL_LOG(7, "unable to create a TCP socket");
    return velsocket;
}

velsocket *vel_socket_udp_create(void)
{
    struct velsocket *velsocket = vel_socket_create(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (!velsocket)
        VEL_LOG(7, "unable to create a UDP socket");
    return velsocket;
}

void vel_socket_destroy(velsocket *velsocket)
{
    VEL_ASSERT(velsocket != NULL);

    if (velsocket->connectctx)
        vel_socket_connectctx_destroy(velsocket->connectctx);
    if (velsocket->readtimeout)
        vel_timeout_destroy(velsocket->readtimeout);
    if (velsocket->descriptor >= 0)
        (void)close(velsocket->descriptor);
    /* The wakeup pipe is left open: another thread may be about to write to it, and must not hit a
     * descriptor that has become something else. */
    vel_free(velsocket);
}

vel_error_t vel_socket_get_error(velsocket *velsocket)
{
    VEL_ASSERT(velsocket != NULL);
    return velsocket->error.load(std::memory_order_relaxed);
}

/* Binds to the first address that the list has, and enables wakeup on a UDP socket. An address of
 * another family than IPv4 and IPv6 ends this before either, and is no failure. */
static vel_error_t vel_socket_bind_first(struct velsocket *velsocket,
                                         struct veladdrinfo *veladdrinfo, unsigned int port,
                                         bool udp)
{
    struct sockaddr *sockaddr;
    socklen_t socklen;
    vel_error_t velerror = vel_addrinfo_get_next(veladdrinfo, &sockaddr, &socklen);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG(7, "address resolution failed, error %d (%s)", velerror,
                vel_error_string(velerror));
        return velerror;
    }
    if (!vel_socket_is_inet(sockaddr)) {
        VEL_LOG(6, "unimplemented address family %d", sockaddr->sa_family);
        return VEL_ERROR_NONE;
    }
    if (sockaddr->sa_family == AF_INET6 && velsocket->domain != AF_INET6) {
        /* For a UDP socket as well, which is thereby turned into a TCP socket. */
        velerror = vel_socket_init(velsocket, AF_INET6, SOCK_STREAM, IPPROTO_TCP);
        if (velerror != VEL_ERROR_NONE) {
            VEL_LOG(7, "unable to initialize socket for IPv6, error %d (%s)", velerror,
                    vel_error_string(velerror));
            return velerror;
        }
    }
    vel_socket_set_port(sockaddr, port);
    if (bind(velsocket->descriptor, sockaddr, socklen) != 0)
        return vel_socket_map_errno(vel_socket_bind_errors, errno);
    if (!udp)
        return VEL_ERROR_NONE;

    velerror = vel_socket_enable_wakeup(velsocket);
    if (velerror != VEL_ERROR_NONE)
        VEL_LOG(7, "unable to enable wakeup on the UDP listen socket");
    return velerror;
}

static vel_error_t vel_socket_bind_numeric(struct velsocket *velsocket, const char *address,
                                           unsigned int port)
{
    const bool udp = velsocket->socktype == SOCK_DGRAM;
    if (!udp && velsocket->socktype != SOCK_STREAM) {
        VEL_LOG(7, "unsupported socktype %d", velsocket->socktype);
        return VEL_ERROR_UNSUPPORTED;
    }
    struct veladdrinfo *veladdrinfo = vel_addrinfo_create(address);
    if (!veladdrinfo) {
        VEL_LOG(7, "not enough memory for veladdrinfo context");
        return VEL_ERROR_GENERIC;
    }
    if (udp)
        vel_addrinfo_set_udp(veladdrinfo);
    vel_addrinfo_set_numerichost(veladdrinfo);
    vel_error_t velerror = vel_socket_bind_first(velsocket, veladdrinfo, port, udp);
    vel_addrinfo_destroy(veladdrinfo);
    return velerror;
}

vel_error_t vel_socket_bind(velsocket *velsocket, const char *address, unsigned int port)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(address != NULL);
    VEL_ASSERT(port < 65536);

    return vel_socket_keep_error(velsocket, vel_socket_bind_numeric(velsocket, address, port));
}

vel_error_t vel_socket_listen(velsocket *velsocket, int backlog)
{
    VEL_ASSERT(velsocket != NULL);

    vel_error_t velerror = vel_socket_enable_wakeup(velsocket);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG(7, "unable to enable wakeup on the listen socket");
    } else if (listen(velsocket->descriptor, backlog) != 0) {
        const int platformerrno = errno;
        VEL_LOG(7, "listen() returned error %d", platformerrno);
        velerror = VEL_ERROR_GENERIC;
    }
    return vel_socket_keep_error(velsocket, velerror);
}

static vel_error_t vel_socket_accept_connection(const struct velsocket *velsocket,
                                                struct velsocket **connectionsocketptr)
{
    struct sockaddr_storage peeraddr = {};
    socklen_t peeraddrlen = sizeof peeraddr;
    const int descriptor =
        accept(velsocket->descriptor, reinterpret_cast<struct sockaddr *>(&peeraddr), &peeraddrlen);
    if (descriptor < 0)
        return vel_socket_map_errno(vel_socket_accept_errors, errno);

    struct velsocket *connection = vel_socket_allocate();
    if (!connection) {
        VEL_LOG(7, "unable to create a connection socket");
        (void)close(descriptor);
        return VEL_ERROR_NO_MEMORY;
    }
    connection->descriptor = descriptor;
    connection->domain = peeraddr.ss_family;
    connection->socktype = SOCK_STREAM;
    if (vel_socket_set_nonblocking(connection) != 0) {
        VEL_LOG(7, "unable to set the connection socket to non-blocking mode");
        vel_socket_destroy(connection);
        return VEL_ERROR_GENERIC;
    }
    *connectionsocketptr = connection;
    return VEL_ERROR_NONE;
}

vel_error_t vel_socket_accept(velsocket *velsocket, struct velsocket **connectionsocketptr)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(connectionsocketptr != NULL);

    *connectionsocketptr = nullptr;
    return vel_socket_keep_error(velsocket,
                                 vel_socket_accept_connection(velsocket, connectionsocketptr));
}

vel_error_t vel_socket_enable_broadcast(velsocket *velsocket)
{
    VEL_ASSERT(velsocket != NULL);

    const int on = 1;
    if (setsockopt(velsocket->descriptor, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
        const int platformerrno = errno;
        VEL_LOG(7, "setsockopt() SO_BROADCAST failed, errno %d", platformerrno);
        return VEL_ERROR_GENERIC;
    }
    return VEL_ERROR_NONE;
}

static vel_error_t vel_socket_read_local_port(const struct velsocket *velsocket,
                                              struct sockaddr_storage *room, unsigned int *portptr)
{
    auto *sockaddr = reinterpret_cast<struct sockaddr *>(room);
    socklen_t socklen = sizeof *room;
    if (getsockname(velsocket->descriptor, sockaddr, &socklen) != 0) {
        const int platformerrno = errno;
        VEL_LOG(7, "getsockname() returned error %d", platformerrno);
        return VEL_ERROR_GENERIC;
    }
    if (!vel_socket_is_inet(sockaddr)) {
        VEL_LOG(6, "unimplemented address family %d", sockaddr->sa_family);
        return VEL_ERROR_UNSUPPORTED;
    }
    *portptr = vel_socket_fetch_port(sockaddr);
    return VEL_ERROR_NONE;
}

vel_error_t vel_socket_get_local_port(velsocket *velsocket, unsigned int *portptr)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(portptr != NULL);

    *portptr = 0;
    auto *room = static_cast<struct sockaddr_storage *>(vel_cmalloc(sizeof(sockaddr_storage)));
    if (!room) {
        VEL_LOG(7, "not enough memory for struct sockaddr_storage");
        return vel_socket_keep_error(velsocket, VEL_ERROR_NO_MEMORY);
    }
    vel_error_t velerror = vel_socket_read_local_port(velsocket, room, portptr);
    vel_free(room);
    return vel_socket_keep_error(velsocket, velerror);
}

static vel_error_t vel_socket_read_peer_name(const struct velsocket *velsocket,
                                             struct sockaddr *sockaddr, size_t *salenptr)
{
    switch (velsocket->socktype) {
    case SOCK_STREAM: {
        auto socklen = static_cast<socklen_t>(std::min<size_t>(*salenptr, INT_MAX));
        if (getpeername(velsocket->descriptor, sockaddr, &socklen) != 0) {
            const int platformerrno = errno;
            VEL_LOG(7, "getpeername() returned error %d", platformerrno);
            return VEL_ERROR_GENERIC;
        }
        *salenptr = socklen;
        return VEL_ERROR_NONE;
    }
    case SOCK_DGRAM:
        if (*salenptr < velsocket->peeraddrlen)
            return VEL_ERROR_OUT_OF_RANGE;
        memcpy(sockaddr, &velsocket->peeraddr, velsocket->peeraddrlen);
        *salenptr = velsocket->peeraddrlen;
        return VEL_ERROR_NONE;
    default:
        VEL_LOG(7, "unsupported socktype %d", velsocket->socktype);
        return VEL_ERROR_UNSUPPORTED;
    }
}

vel_error_t vel_socket_get_peer_name(velsocket *velsocket, struct sockaddr *sockaddr,
                                     size_t *salenptr)
{
    VEL_ASSERT(velsocket != NULL);
    VEL_ASSERT(sockaddr != NULL);
    VEL_ASSERT(salenptr != NULL);
    VEL_ASSERT(*salenptr > 0);

    vel_error_t velerror = vel_socket_read_peer_name(velsocket, sockaddr, salenptr);
    if (velerror != VEL_ERROR_NONE)
        *salenptr = 0;
    return vel_socket_keep_error(velsocket, velerror);
}
