#ifndef VELLIB_VELUDPSERVER_H
#define VELLIB_VELUDPSERVER_H

#include <stddef.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>
#include <vellib/velhandle.h>

/* veludpserver: a UDP server on one thread. It listens on one address and port, and calls one
 * function with each datagram, one after the other.
 *
 *     vel_udpserver_create, set_address, set_port, set_callback
 *     vel_udpserver_start ... vel_udpserver_stop, vel_udpserver_wait    or vel_udpserver_run
 *     vel_udpserver_destroy
 *
 * A server runs once; for another run, create another.
 * Threads: one at a time, except that any thread may call vel_udpserver_stop.
 * Note: an empty datagram is logged at level 7, as a read that failed, and not handed on.
 * Note: the thread writes two lines at level 1 to the default log at every turn, and the sink for
 * standard error shows them until it is disabled or its level set to 0.
 * Note: while reading fails for good, the thread tries again at once and logs each failure at
 * level 7. */
typedef struct veludpserver veludpserver;

/* Serves one datagram.
 *
 * velhandle  the listening handle, the server's own. A vel_handle_write answers the sender of this
 *            datagram, and vel_handle_get_peer_name tells its address.
 * buffer     the datagram; the server's, and lent for this call.
 * length     its length in bytes, never 0.
 * context    what was given to vel_udpserver_set_callback.
 *
 * Threads: called on the reception thread with no lock held, and not again before it has returned;
 * until then further datagrams wait in the buffer of the platform, which drops what it has no room
 * for. It may call vel_udpserver_stop, but not vel_udpserver_wait, which waits for it. */
typedef void vel_udpserver_cb(veludpserver *veludpserver, velhandle *velhandle, const void *buffer,
                              size_t length, void *context);

VEL_DECLARATIONS_BEGIN

/* Creates a server, for all IPv4 addresses of the host and a free port until set otherwise.
 *
 * Returns the server, for vel_udpserver_destroy, or NULL if there is not enough memory. */
VEL_API veludpserver *vel_udpserver_create(void);

/* Destroys a server that was never started, or for which vel_udpserver_wait or vel_udpserver_run
 * has returned; it neither stops nor waits. */
VEL_API void vel_udpserver_destroy(veludpserver *veludpserver);

/* Sets the address to listen on.
 *
 * address  a numeric IPv4 address, copied.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY with the address unchanged.
 * Note: an IPv6 address starts a server that gets no datagrams, as a socket bound to one becomes a
 * stream socket; each read of it fails, and is logged. */
VEL_API vel_error_t vel_udpserver_set_address(veludpserver *veludpserver, const char *address);

/* Sets the port to listen on: 0 to 65535, where 0 takes a free one. */
VEL_API void vel_udpserver_set_port(veludpserver *veludpserver, unsigned int port);

/* Sets the function that serves a datagram, and its context. It must be set before the start. */
VEL_API void vel_udpserver_set_callback(veludpserver *veludpserver, vel_udpserver_cb *callback,
                                        void *context);

/* Begins to listen, and starts the reception thread.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_BUSY if the server was started before; VEL_ERROR_NO_MEMORY; or
 * what vel_handle_udp_listen returns, such as VEL_ERROR_ADDRESS_IN_USE. A failure is logged, and
 * leaves no thread; after any but VEL_ERROR_BUSY the start can be tried again.
 * Note: a thread that then finds no memory for its buffer logs that and ends; the server looks as if
 * it ran, and receives nothing. */
VEL_API vel_error_t vel_udpserver_start(veludpserver *veludpserver);

/* Ends reception, for good. A callback that runs goes on until it returns.
 * Threads: any, the callback included, but no signal handler. Never blocks. */
VEL_API void vel_udpserver_stop(veludpserver *veludpserver);

/* Waits until the server has been stopped and the reception thread has ended. To be called once
 * after a successful start; a second call aborts. */
VEL_API void vel_udpserver_wait(veludpserver *veludpserver);

/* Starts the server and waits for its end.
 *
 * Returns VEL_ERROR_NONE after the end, or the failure of the start. */
VEL_API vel_error_t vel_udpserver_run(veludpserver *veludpserver);

/* Fetches the port that a server which was started listens on. Aborts before the start.
 *
 * Returns VEL_ERROR_NONE, or the failure of vel_handle_get_local_port, which is logged. */
VEL_API vel_error_t vel_udpserver_get_port(veludpserver *veludpserver, unsigned int *portptr);

VEL_DECLARATIONS_END

#endif
