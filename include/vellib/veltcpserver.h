#ifndef VELLIB_VELTCPSERVER_H
#define VELLIB_VELTCPSERVER_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>
#include <vellib/velhandle.h>

/* veltcpserver: a TCP server with a thread for each connection. It listens on one address and
 * port, and calls one function with each connection, on a thread of that connection's own.
 *
 *     vel_tcpserver_create, set_address, set_port, set_callback
 *     vel_tcpserver_start ... vel_tcpserver_stop, vel_tcpserver_wait    or vel_tcpserver_run
 *     vel_tcpserver_destroy
 *
 * A server runs once; for another run, create another. The number of connections, and so of
 * threads, has no limit.
 * Threads: one at a time, except that any thread may call vel_tcpserver_stop.
 * Note: while accepting fails for good, as with no descriptor left, the accept thread tries again
 * at once and logs each failure at level 7.
 * Note: call vel_signal_ignore_sigpipe first; a write to a connection that the peer has closed
 * ends the process otherwise. */
typedef struct veltcpserver veltcpserver;

/* Serves one connection.
 *
 * velhandle  the connection, without limits of time. It is destroyed when the callback returns,
 *            and the callback must not do so.
 * context    what was given to vel_tcpserver_set_callback.
 *
 * Threads: called on the connection's thread with no lock held, for several connections at once.
 * It may call vel_tcpserver_stop, but not vel_tcpserver_wait, which waits for it. It must return
 * by itself, for instance by a read timeout: nothing else ends it. */
typedef void vel_tcpserver_cb(veltcpserver *veltcpserver, velhandle *velhandle, void *context);

VEL_DECLARATIONS_BEGIN

/* Creates a server, for all IPv4 addresses of the host and a free port until set otherwise.
 *
 * Returns the server, for vel_tcpserver_destroy, or NULL if there is not enough memory. */
VEL_API veltcpserver *vel_tcpserver_create(void);

/* Destroys a server that was never started, or for which vel_tcpserver_wait or vel_tcpserver_run
 * has returned; it neither stops nor waits. */
VEL_API void vel_tcpserver_destroy(veltcpserver *veltcpserver);

/* Sets the address to listen on.
 *
 * address  a numeric address, IPv4 or IPv6, copied.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY with the address unchanged. */
VEL_API vel_error_t vel_tcpserver_set_address(veltcpserver *veltcpserver, const char *address);

/* Sets the port to listen on: 0 to 65535, where 0 takes a free one. */
VEL_API void vel_tcpserver_set_port(veltcpserver *veltcpserver, unsigned int port);

/* Sets the function that serves a connection, and its context. It must be set before the start. */
VEL_API void vel_tcpserver_set_callback(veltcpserver *veltcpserver, vel_tcpserver_cb *callback,
                                        void *context);

/* Begins to listen, and starts the accept thread.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_BUSY if the server was started before; VEL_ERROR_NO_MEMORY; or
 * what vel_handle_tcp_listen returns, such as VEL_ERROR_ADDRESS_IN_USE. A failure is logged, and
 * leaves no thread; after any but VEL_ERROR_BUSY the start can be tried again. */
VEL_API vel_error_t vel_tcpserver_start(veltcpserver *veltcpserver);

/* Ends accepting, for good. Connections that are being served go on until their callbacks return.
 * Threads: any, the callback included, but no signal handler. Never blocks. */
VEL_API void vel_tcpserver_stop(veltcpserver *veltcpserver);

/* Waits until the server has been stopped and every callback has returned. To be called once after
 * a successful start; a second call aborts. */
VEL_API void vel_tcpserver_wait(veltcpserver *veltcpserver);

/* Starts the server and waits for its end.
 *
 * Returns VEL_ERROR_NONE after the end, or the failure of the start. */
VEL_API vel_error_t vel_tcpserver_run(veltcpserver *veltcpserver);

/* Fetches the port that a server which was started listens on. Aborts before the start.
 *
 * Returns VEL_ERROR_NONE, or the failure of vel_handle_get_local_port, which is logged. */
VEL_API vel_error_t vel_tcpserver_get_port(veltcpserver *veltcpserver, unsigned int *portptr);

VEL_DECLARATIONS_END

#endif
