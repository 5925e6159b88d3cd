#ifndef VELLIB_VELSOCKET_H
#define VELLIB_VELSOCKET_H

#include <stddef.h>
#include <sys/socket.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velsocket: one TCP or UDP socket that never blocks by itself; it waits where it is told to, and
 * for as long as it is told to. Connecting by name walks the addresses of the name until one of
 * them takes the connection.
 *
 * A time is given as whole seconds, of which negative ones mean for ever, and microseconds below
 * 1000000. Waits are rounded up to milliseconds. A port is a number below 65536, in the order of
 * the host. The result of most operations is also kept, for vel_socket_get_error.
 *
 * Threads: one at a time, except that another one may call vel_socket_wakeup.
 * Note: a write to a connection that the peer has closed raises SIGPIPE, which ends the process
 * unless the host has dealt with it; see vel_signal_ignore_sigpipe. */
typedef struct velsocket velsocket;

VEL_DECLARATIONS_BEGIN

/* Creates a socket in non-blocking mode.
 *
 * domain, type, protocol  as for socket(2).
 *
 * Returns the socket, for vel_socket_destroy, or NULL with the reason logged. */
VEL_API velsocket *vel_socket_create(int domain, int type, int protocol);

/* Creates an IPv4 TCP socket; see vel_socket_create. */
VEL_API velsocket *vel_socket_tcp_create(void);

/* Creates an IPv4 UDP socket; see vel_socket_create. */
VEL_API velsocket *vel_socket_udp_create(void);

/* Closes and destroys a socket, and ends a connect that is in progress.
 * Note: the two descriptors that vel_socket_enable_wakeup opens stay open for the life of the
 * process. */
VEL_API void vel_socket_destroy(velsocket *velsocket);

/* Gives the result of the last operation that keeps one. */
VEL_API vel_error_t vel_socket_get_error(velsocket *velsocket);

/* Binds a socket to a local address. An IPv6 address replaces the descriptor of a socket that was
 * made for another family. For UDP, wakeup is enabled as well.
 *
 * address  a numeric address; names are not resolved.
 * port     0 lets the platform choose one.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_ADDRESS_IN_USE; VEL_ERROR_UNSUPPORTED for a socket that is
 * neither stream nor datagram; what vel_addrinfo_get_next gives, such as
 * VEL_ERROR_INVALID_SYNTAX; or VEL_ERROR_GENERIC. Every failure is logged. SO_REUSEADDR is not set.
 * Note: a UDP socket of the IPv4 family that is bound to an IPv6 address becomes a TCP socket. */
VEL_API vel_error_t vel_socket_bind(velsocket *velsocket, const char *address, unsigned int port);

/* Makes a bound TCP socket listen and enables wakeup on it.
 *
 * backlog  how many connections may wait to be accepted.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_GENERIC, which is logged. */
VEL_API vel_error_t vel_socket_listen(velsocket *velsocket, int backlog);

/* Accepts a connection if one is waiting; wait with vel_socket_poll_read before.
 *
 * connectionsocketptr  receives the connection, a socket of its own, for vel_socket_destroy.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_WOULD_BLOCK if no connection is waiting;
 * VEL_ERROR_INVALID_ARGUMENT if the socket does not listen; VEL_ERROR_NO_MEMORY; or
 * VEL_ERROR_GENERIC. The last two are logged. */
VEL_API vel_error_t vel_socket_accept(velsocket *velsocket, struct velsocket **connectionsocketptr);

/* Waits for ever for bytes and reads them; see vel_socket_read_with_timeout. */
VEL_API size_t vel_socket_read(velsocket *velsocket, void *buf, size_t maxlen);

/* Reads what there is, or waits for something and reads that.
 *
 * maxlen                     room in buf, above 0.
 * timeoutsecs, timeoutusecs  the limit of the wait; negative seconds for none.
 *
 * Returns the number of bytes read. 0 comes with the reason in vel_socket_get_error:
 * VEL_ERROR_END_OF_FILE if the peer has closed, VEL_ERROR_TIMED_OUT, VEL_ERROR_WAKEUP,
 * VEL_ERROR_WOULD_BLOCK if a wait ended but nothing was there, VEL_ERROR_CONNECTION_RESET,
 * VEL_ERROR_INTERRUPTED, VEL_ERROR_NO_MEMORY, VEL_ERROR_INTERNAL or VEL_ERROR_GENERIC. Failures are
 * logged.
 * Note: with a time of 0 nothing is read, whatever is waiting. An empty datagram reads as the end
 * of file. Of the sender of a datagram 16 bytes are kept, so IPv6 senders are cut short. */
VEL_API size_t vel_socket_read_with_timeout(velsocket *velsocket, void *buf, size_t maxlen,
                                            int timeoutsecs, unsigned int timeoutusecs);

/* Writes once, without waiting. A UDP socket sends to the destination of vel_socket_udp_connect, or
 * else to the sender of the last datagram.
 *
 * len  bytes in buf, above 0.
 *
 * Returns the number of bytes written, which may be fewer than len. 0 comes with the reason in
 * vel_socket_get_error: VEL_ERROR_WOULD_BLOCK, VEL_ERROR_BROKEN_PIPE, VEL_ERROR_CONNECTION_RESET or
 * VEL_ERROR_GENERIC. All but the first are logged.
 * Note: where the platform refuses access (EACCES), 13 is returned and vel_socket_get_error
 * gives VEL_ERROR_ACCESS. */
VEL_API size_t vel_socket_write(velsocket *velsocket, const void *buf, size_t len);

/* Waits until there is something to read or accept, or until a wakeup.
 *
 * timeoutsecs   seconds; negative for no limit.
 * timeoutusecs  microseconds more, below 1000000.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_TIMED_OUT, VEL_ERROR_WAKEUP, VEL_ERROR_INTERRUPTED (a signal),
 * VEL_ERROR_NO_MEMORY, VEL_ERROR_INTERNAL or VEL_ERROR_GENERIC. If there is both something to read
 * and a wakeup, the wakeup is kept for the next wait. */
VEL_API vel_error_t vel_socket_poll_read(velsocket *velsocket, int timeoutsecs,
                                         unsigned int timeoutusecs);

/* Waits until the socket can be written to or has failed.
 *
 * timeoutsecs   seconds; negative for no limit.
 * timeoutusecs  microseconds more, below 1000000.
 *
 * Returns what vel_socket_poll_read returns, except that a wakeup does not end this wait. */
VEL_API vel_error_t vel_socket_poll_write(velsocket *velsocket, int timeoutsecs,
                                          unsigned int timeoutusecs);

/* Lets vel_socket_wakeup end waits for reading. vel_socket_listen, and vel_socket_bind of a UDP
 * socket, do this by themselves; a second time does nothing.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_GENERIC, which is logged. */
VEL_API vel_error_t vel_socket_enable_wakeup(velsocket *velsocket);

/* Ends one wait for reading: the one that is on, or the next.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_WRITE, which is logged, also if wakeup is not enabled.
 * Threads: any, once vel_socket_enable_wakeup has returned. */
VEL_API vel_error_t vel_socket_wakeup(velsocket *velsocket);

/* Lets a UDP socket send to a broadcast address. vel_socket_write does this by itself on need.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_GENERIC, which is logged. The result is not kept. */
VEL_API vel_error_t vel_socket_enable_broadcast(velsocket *velsocket);

/* Gives the local port of a socket.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_NO_MEMORY, VEL_ERROR_UNSUPPORTED for a socket that is neither
 * IPv4 nor IPv6, or VEL_ERROR_GENERIC. Failures are logged. */
VEL_API vel_error_t vel_socket_get_local_port(velsocket *velsocket, unsigned int *portptr);

/* Gives the address of the peer of a TCP socket, or of the sender of the last datagram.
 *
 * sockaddr  receives the address.
 * salenptr  the room in sockaddr, above 0; receives the length of the address, or 0 on failure.
 *           For TCP this may be more than the room, and the address is then cut off. Before the
 *           first read of a UDP socket the length is 0; a read that receives nothing makes it 16.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_OUT_OF_RANGE if the sender of a datagram does not fit;
 * VEL_ERROR_UNSUPPORTED for a socket that is neither stream nor datagram; or VEL_ERROR_GENERIC. The
 * last two are logged.
 * Note: only the first 16 bytes of a sender are kept, so behind them the address of an IPv6 sender
 * reads as zero. */
VEL_API vel_error_t vel_socket_get_peer_name(velsocket *velsocket, struct sockaddr *sockaddr,
                                             size_t *salenptr);

/* Connects to a TCP port and waits for ever; see vel_socket_tcp_connect_with_timeout. */
VEL_API velsocket *vel_socket_tcp_connect(const char *name, unsigned int port,
                                          vel_error_t *velerrorptr);

/* Connects to a TCP port of a host. The addresses of the host are tried in turn.
 *
 * name          a name or a numeric address. Its lookup is not bounded by the time.
 * port          above 0.
 * timeoutsecs   seconds for all addresses together, or -1 for ever; no other negative number.
 * timeoutusecs  microseconds more, below 1000000.
 * velerrorptr   receives VEL_ERROR_NONE or the reason of the failure: what
 *               vel_addrinfo_get_next gives if the name was not resolved, VEL_ERROR_TIMED_OUT, or
 *               the first failure of an address, as vel_socket_connect_wait has them.
 *
 * Returns the connected socket, for vel_socket_destroy, or NULL with the reason logged.
 * Note: if every address fails at once, in connect(2) itself, the reason is
 * VEL_ERROR_END_OF_FILE. */
VEL_API velsocket *vel_socket_tcp_connect_with_timeout(const char *name, unsigned int port,
                                                       int timeoutsecs, unsigned int timeoutusecs,
                                                       vel_error_t *velerrorptr);

/* Begins to connect to a TCP port of a host, and returns without waiting for the connection.
 *
 * name         a name or a numeric address. Its lookup blocks.
 * port         above 0.
 * velerrorptr  receives VEL_ERROR_IN_PROGRESS, with which vel_socket_connect_wait goes on;
 *              VEL_ERROR_NONE if the connection is there already; or the reason of the failure.
 *
 * Returns the socket, for vel_socket_destroy, or NULL with the reason logged. */
VEL_API velsocket *vel_socket_tcp_connect_async(const char *name, unsigned int port,
                                                vel_error_t *velerrorptr);

/* Connects a socket to a port of a host and waits for ever.
 *
 * Returns what vel_socket_connect_async and vel_socket_connect_wait return.
 * Note: a UDP socket takes datagrams from that port alone afterwards, but vel_socket_write does not
 * send there before one has come; see vel_socket_udp_connect. */
VEL_API vel_error_t vel_socket_connect(velsocket *velsocket, const char *name, unsigned int port);

/* Begins to connect a socket to a port of a host. The descriptor is made anew for each address.
 *
 * name  a name or a numeric address. Its lookup blocks.
 * port  above 0.
 *
 * Returns VEL_ERROR_IN_PROGRESS, with which vel_socket_connect_wait goes on; VEL_ERROR_NONE if the
 * connection is there already; VEL_ERROR_END_OF_FILE if every address failed at once;
 * VEL_ERROR_UNSUPPORTED for a socket that is neither stream nor datagram; VEL_ERROR_NO_MEMORY; or
 * what vel_addrinfo_get_next gives. Failures are logged.
 * Note: to begin while another connect is in progress on the socket loses the memory of the
 * earlier one. */
VEL_API vel_error_t vel_socket_connect_async(velsocket *velsocket, const char *name,
                                             unsigned int port);

/* Waits until a connect that was begun has ended. Where an address fails, the next one is tried
 * within the same time.
 *
 * timeoutsecs   seconds for all addresses together, or -1 for ever; no other negative number.
 * timeoutusecs  microseconds more, below 1000000.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_TIMED_OUT, after which the wait may be repeated;
 * VEL_ERROR_BAD_HANDLE if no connect is in progress; VEL_ERROR_INTERRUPTED for a signal;
 * VEL_ERROR_NO_MEMORY; or the first failure of an address: VEL_ERROR_CONNECTION_REFUSED,
 * VEL_ERROR_CONNECTION_TIMED_OUT, VEL_ERROR_NETWORK_UNREACHABLE, VEL_ERROR_ACCESS,
 * VEL_ERROR_INTERNAL for a descriptor that was closed, or VEL_ERROR_GENERIC, of which the log has
 * the number; VEL_ERROR_END_OF_FILE if no address was permitted. Failures are logged, and every
 * result but VEL_ERROR_TIMED_OUT ends the connect.
 * Note: vel_socket_wakeup does not end this wait. */
VEL_API vel_error_t vel_socket_connect_wait(velsocket *velsocket, int timeoutsecs,
                                            unsigned int timeoutusecs);

/* Creates a UDP socket whose datagrams go to a port of a host: the first IPv4 address of it. The
 * platform is not asked to connect, so an unreachable host shows up at the first write.
 *
 * name         a name or a numeric address. Its lookup blocks.
 * port         above 0.
 * velerrorptr  receives VEL_ERROR_NONE or the reason of the failure: VEL_ERROR_END_OF_FILE if the
 *              host has no IPv4 address, VEL_ERROR_NO_MEMORY, or what vel_addrinfo_get_next gives.
 *
 * Returns the socket, for vel_socket_destroy, or NULL. */
VEL_API velsocket *vel_socket_udp_connect(const char *name, unsigned int port,
                                          vel_error_t *velerrorptr);

VEL_DECLARATIONS_END

#endif
