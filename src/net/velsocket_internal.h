#ifndef VELLIB_NET_VELSOCKET_INTERNAL_H
#define VELLIB_NET_VELSOCKET_INTERNAL_H

/* What the sources of velsocket share. From the ground up: velsocket.cpp has life, names and
 * listening, velsocket_wait.cpp polling and wakeup, velsocket_transfer.cpp reading and writing,
 * velsocket_walk.cpp trying the addresses of a host in turn, and velsocket_connect.cpp the connects
 * that stand on that. All of them log as net/velsocket. */

#include <atomic>
#include <cstdint>
#include <netinet/in.h>

#include <vellib/veladdrinfo.h>
#include <vellib/velsocket.h>
#include <vellib/veltimeout.h>

#include "net/veldescriptor_core.h"

/* A walk through the addresses of a host. */
struct velsocketwalk {
    struct veladdrinfo *veladdrinfo; /* owned by whoever owns the walk */
    unsigned int port;               /* for every address */
    int noipv4;                      /* 1: skip all further IPv4 addresses */
    int noipv6;                      /* 1: skip all further IPv6 addresses */
};

/* A connect in progress. */
struct velsocketconnect {
    vel_error_t error;          /* the failure to report in the end */
    struct veltimeout *timeout; /* owned; the bound of vel_socket_connect_wait */
    struct velsocketwalk walk;  /* its veladdrinfo is owned */
};

struct velsocket {
    struct velsocketconnect *connectctx; /* owned, NULL if no connect is in progress */
    int descriptor;                      /* -1 if there is none */
    int wakeupread;                      /* the ends of the wakeup pipe, both -1 if not enabled */
    int wakeupwrite;
    struct sockaddr_in destaddr; /* where a UDP socket sends to; zero if it has no destination */
    uint64_t destaddrlen;
    /* The source of the last datagram. Only as many bytes as a sockaddr_in has are ever received
     * into it, and the rest stays zero; the room is there as peeraddrlen counts what was cut off. */
    struct sockaddr_storage peeraddr;
    uint64_t peeraddrlen;
    struct veltimeout *readtimeout; /* owned */
    int domain;                     /* what the descriptor was made with */
    int socktype;
    /* Of the last operation that keeps one. Relaxed: the port of a server may be asked for while the
     * thread of the server waits on the same socket, and both leave their result here. So an
     * operation returns its own result, and never what it finds here. */
    std::atomic<vel_error_t> error;
    /* Of the last read and of the last write, for the handle: what it finds in error may be of the
     * other thread by then. */
    vel_error_t readerror;
    vel_error_t writeerror;
};

/* Keeps the result of an operation in the socket, and returns it. */
static inline vel_error_t vel_socket_keep_error(struct velsocket *velsocket, vel_error_t velerror)
{
    velsocket->error.store(velerror, std::memory_order_relaxed);
    return velerror;
}

/* Translates an errno by a table, and logs it if its row says so. */
vel_error_t vel_socket_map_errno(const velsocketerrno *row, int platformerrno);

/* Gives a socket a new descriptor in non-blocking mode, in place of the one it may have; the wakeup
 * pipe stays. Returns VEL_ERROR_NONE, or VEL_ERROR_GENERIC, which is logged. */
vel_error_t vel_socket_init(velsocket *velsocket, int domain, int type, int protocol);

/* Destroys a connect in whatever state it is. */
void vel_socket_connectctx_destroy(velsocketconnect *connectctx);

/* Writes a port, in the host's order, into an IPv4 or IPv6 address. */
void vel_socket_set_port(struct sockaddr *sockaddr, unsigned int port);

/* Reads the port of an IPv4 or IPv6 address, in the host's order. */
unsigned int vel_socket_fetch_port(const struct sockaddr *sockaddr);

/* Tells whether an address is of IPv4 or IPv6. */
bool vel_socket_is_inet(const struct sockaddr *sockaddr);

/* Translates the errno with which a connect has ended, and logs it. */
vel_error_t vel_socket_map_connect_error(int platformerrno);

/* Keeps the failure to report in the end: the first real one. A permission failure says least, as
 * on an IPv6 address it often means that the platform forbids that family. */
void vel_socket_connectctx_update_error(velsocketconnect *connectctx, vel_error_t velerror);

/* Gives the walk its list of addresses, of which nothing is looked up yet. Returns
 * VEL_ERROR_NO_MEMORY, which is logged, if it cannot. */
vel_error_t vel_socket_walk_begin(velsocketwalk *walk, const char *name, bool udp);

/* Gives the next address of a family that is still to be tried, with the port in it;
 * VEL_ERROR_END_OF_FILE after the last. */
vel_error_t vel_socket_walk_next(velsocketwalk *walk, struct sockaddr **sockaddrptr,
                                 socklen_t *socklenptr);

/* Ends the trying of a family of which no socket could be made. */
void vel_socket_walk_skip(velsocketwalk *walk, int family, const char *protocol,
                          vel_error_t velerror);

/* Creates the socket at the first address, and makes its descriptor anew at every later one. */
vel_error_t vel_socket_create_or_init(velsocket **velsocketptr, int family, int type, int protocol);

/* Tries addresses by TCP until one takes the connection (VEL_ERROR_NONE) or has it in progress.
 * VEL_ERROR_END_OF_FILE means that there are no more; what they failed with stands in the context.
 *
 * velsocketptr  the socket, or NULL in it to have one created at the first address. It may have
 *               been created on failure too. */
vel_error_t vel_socket_tcp_connect_next(velsocketconnect *connectctx, velsocket **velsocketptr);

/* Does the same on a socket that the caller has made, with its type and its context. A permission
 * failure counts like any other here. */
vel_error_t vel_socket_connect_next(velsocket *velsocket);

#endif
