#ifndef VELLIB_VELHANDLE_H
#define VELLIB_VELHANDLE_H

#include <stddef.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velhandle: a stream of bytes that does not know its transport. A transport creates a handle,
 * gives it callbacks and a context of its own, and the program reads, writes and reads lines
 * through the handle, with a time limit each way. vel_handle_tcp_create and vel_handle_udp_create
 * are such transports.
 *
 * What moves bytes returns a count, and leaves the reason for a short one in the handle, for
 * vel_handle_get_error. VEL_ERROR_END_OF_FILE, VEL_ERROR_TIMED_OUT and VEL_ERROR_WAKEUP are
 * ordinary ends.
 *
 * Timeouts are seconds and microseconds below 1000000; negative seconds mean no limit, which is
 * where a new handle stands. The write timeout is also that of connecting, and the read timeout
 * that of accepting.
 *
 * An operation for which the transport has set no callback logs this at level 6 and gives
 * VEL_ERROR_UNSUPPORTED.
 * Threads: one at a time, except that any thread may call vel_handle_wakeup. */
typedef struct velhandle velhandle;

struct sockaddr;

/* Releases what the context holds. The first thing that vel_handle_destroy does. */
typedef void vel_handle_destroy_cb(velhandle *velhandle);

/* Begins a connect to a name or a numeric address, and a port from 1 to 65535.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_IN_PROGRESS if the connect must be waited for, or a failure. */
typedef vel_error_t vel_handle_connect_cb(velhandle *velhandle, const char *name,
                                          unsigned int port);

/* Waits, within the write timeout, for the connect that was begun.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_IN_PROGRESS to be called again, or a failure. */
typedef vel_error_t vel_handle_connect_wait_cb(velhandle *velhandle);

/* Reads what there is, at most count bytes, and waits up to the read timeout that the handle has
 * at this moment for the first of them.
 *
 * Returns the number of bytes, or 0 with the reason given to vel_handle_set_error:
 * VEL_ERROR_END_OF_FILE and VEL_ERROR_TIMED_OUT are the quiet ones. */
typedef size_t vel_handle_read_cb(velhandle *velhandle, void *buf, size_t count);

/* Makes one attempt to write count bytes.
 *
 * Returns the number of bytes written, or 0 with the reason given to vel_handle_set_error:
 * VEL_ERROR_WOULD_BLOCK asks the caller to poll and come again. */
typedef size_t vel_handle_write_cb(velhandle *velhandle, const void *buf, size_t count);

/* Waits, within the write timeout, until writing is possible.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_TIMED_OUT when the time is up, or a failure. */
typedef vel_error_t vel_handle_poll_write_cb(velhandle *velhandle);

/* Delivers the local port.
 *
 * Returns VEL_ERROR_NONE or a failure. */
typedef vel_error_t vel_handle_local_port_cb(velhandle *velhandle, unsigned int *portptr);

/* Delivers the address of the peer.
 *
 * salenptr  holds the room at sockaddr in bytes, and receives the length of the address.
 *
 * Returns VEL_ERROR_NONE or a failure. */
typedef vel_error_t vel_handle_peer_name_cb(velhandle *velhandle, struct sockaddr *sockaddr,
                                            size_t *salenptr);

/* Waits for a connection within the read timeout.
 *
 * connectionhandleptr  receives a new handle, which becomes the caller's, or NULL.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_WAKEUP or VEL_ERROR_TIMED_OUT when there was none, or a
 * failure. */
typedef vel_error_t vel_handle_accept_cb(velhandle *velhandle,
                                         struct velhandle **connectionhandleptr);

/* Makes the thread that waits in a read or accept of this handle return with VEL_ERROR_WAKEUP.
 *
 * Returns VEL_ERROR_NONE or a failure.
 * Threads: any. */
typedef vel_error_t vel_handle_wakeup_cb(velhandle *velhandle);

VEL_DECLARATIONS_BEGIN

/* Creates a handle without callbacks: the first step of a transport.
 *
 * Returns the handle, for vel_handle_destroy, or NULL if there is not enough memory. */
VEL_API velhandle *vel_handle_create(void);

/* Has the transport release its context, which closes a connection, and frees the handle with
 * everything that was read ahead. */
VEL_API void vel_handle_destroy(velhandle *velhandle);

/* Sets how the transport releases its context. NULL, as on a new handle, means not at all. */
VEL_API void vel_handle_set_destroy_callback(velhandle *velhandle, vel_handle_destroy_cb *callback);

/* Sets how the transport begins a connect. NULL, as on a new handle, means that it cannot. */
VEL_API void vel_handle_set_connect_callback(velhandle *velhandle, vel_handle_connect_cb *callback);

/* Sets how the transport waits for a connect. NULL, as on a new handle, means that it cannot. */
VEL_API void vel_handle_set_connect_wait_callback(velhandle *velhandle,
                                                  vel_handle_connect_wait_cb *callback);

/* Sets how the transport reads. NULL, as on a new handle, means that it cannot. */
VEL_API void vel_handle_set_read_callback(velhandle *velhandle, vel_handle_read_cb *callback);

/* Sets how the transport writes. NULL, as on a new handle, means that it cannot. */
VEL_API void vel_handle_set_write_callback(velhandle *velhandle, vel_handle_write_cb *callback);

/* Sets how the transport waits until it can write. NULL, as on a new handle, means that it cannot: a
 * write that would block ends then. */
VEL_API void vel_handle_set_poll_write_callback(velhandle *velhandle,
                                                vel_handle_poll_write_cb *callback);

/* Sets how the transport finds its port. NULL, as on a new handle, means that it cannot. */
VEL_API void vel_handle_set_local_port_callback(velhandle *velhandle,
                                                vel_handle_local_port_cb *callback);

/* Sets how the transport finds the address of its peer. NULL, as on a new handle, means that it
 * cannot. */
VEL_API void vel_handle_set_peer_name_callback(velhandle *velhandle,
                                               vel_handle_peer_name_cb *callback);

/* Sets how the transport accepts a connection. NULL, as on a new handle, means that it cannot. */
VEL_API void vel_handle_set_accept_callback(velhandle *velhandle, vel_handle_accept_cb *callback);

/* Sets how the transport is woken up. NULL, as on a new handle, means that it cannot be. */
VEL_API void vel_handle_set_wakeup_callback(velhandle *velhandle, vel_handle_wakeup_cb *callback);

/* Sets the transport's private data, which the handle never frees. */
VEL_API void vel_handle_set_context(velhandle *velhandle, void *context);

/* Returns the transport's private data, or NULL if none was set. */
VEL_API void *vel_handle_get_context(velhandle *velhandle);

/* Sets the error of the handle; for transports.
 *
 * velerror  less than VEL_ERROR_COUNT, or the process aborts. */
VEL_API void vel_handle_set_error(velhandle *velhandle, vel_error_t velerror);

/* Returns the error of the last read, write or accept, or VEL_ERROR_NONE. */
VEL_API vel_error_t vel_handle_get_error(velhandle *velhandle);

/* Sets the time limit of connecting, and of each wait of a write.
 *
 * seconds       negative for no limit.
 * microseconds  below 1000000, or the next wait aborts. */
VEL_API void vel_handle_set_write_timeout(velhandle *velhandle, int seconds,
                                          unsigned int microseconds);

/* Sets the time limit of a read, a line and accepting.
 *
 * seconds       negative for no limit.
 * microseconds  below 1000000, or the next wait aborts.
 *
 * Note: 0 and 0 is a limit that has already passed: nothing is read, whatever is waiting. */
VEL_API void vel_handle_set_read_timeout(velhandle *velhandle, int seconds,
                                         unsigned int microseconds);

/* Fetches the write timeout; no limit is -1 and 0. */
VEL_API void vel_handle_get_write_timeout(velhandle *velhandle, int *secondsptr,
                                          unsigned int *microsecondsptr);

/* Fetches the read timeout; no limit is -1 and 0. Within vel_handle_read_line the transport sees
 * the time that is left for the line. */
VEL_API void vel_handle_get_read_timeout(velhandle *velhandle, int *secondsptr,
                                         unsigned int *microsecondsptr);

/* Connects, and waits until that is done.
 *
 * name  the host, as the transport understands it.
 * port  1 to 65535.
 *
 * Returns VEL_ERROR_NONE or the transport's failure. Without a way to wait for a connect that is
 * under way, this is logged and VEL_ERROR_IN_PROGRESS is returned. */
VEL_API vel_error_t vel_handle_connect(velhandle *velhandle, const char *name, unsigned int port);

/* Begins to connect.
 *
 * name  the host, as the transport understands it.
 * port  1 to 65535.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_IN_PROGRESS if vel_handle_connect_wait must follow, or the
 * transport's failure. */
VEL_API vel_error_t vel_handle_connect_begin(velhandle *velhandle, const char *name,
                                             unsigned int port);

/* Waits, within the write timeout, for the connect that was begun.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_IN_PROGRESS to be called again, or the transport's failure. */
VEL_API vel_error_t vel_handle_connect_wait(velhandle *velhandle);

/* Reads what there is, at most count bytes: first what vel_handle_read_line has read ahead, then
 * one read of the transport. It does not go on until count is reached.
 *
 * buf    receives them.
 * count  more than 0.
 *
 * Returns the number of bytes, with no error left in the handle, or 0 with the reason there.
 * Blocks for the read timeout at most, and vel_handle_wakeup ends it. */
VEL_API size_t vel_handle_read(velhandle *velhandle, void *buf, size_t count);

/* Writes count bytes, waiting as often as the transport would block.
 *
 * buf    the bytes.
 * count  more than 0.
 *
 * Returns the number of bytes written; if that is less than count, the reason is left in the
 * handle, and is logged unless it is VEL_ERROR_TIMED_OUT.
 * Note: the write timeout begins anew with each wait, and is no limit for the whole.
 * Note: a transport that would block and cannot be polled ends the write with no error left. */
VEL_API size_t vel_handle_write(velhandle *velhandle, const void *buf, size_t count);

/* Reads up to and including the next line feed. What comes behind it in the same read of the
 * transport is kept for the next read.
 *
 * buf   receives the line with its line feed, and its carriage return if it has one. No NUL is
 *       added.
 * size  more than 0. A longer line comes in pieces of this size, which is no error.
 *
 * Returns the number of bytes, or 0 with the reason in the handle. If the transport ends or the
 * time is up within a line, the part of it is returned and the reason left in the handle as well.
 * The read timeout limits the whole line. */
VEL_API size_t vel_handle_read_line(velhandle *velhandle, void *buf, size_t size);

/* Fetches the local port.
 *
 * Returns VEL_ERROR_NONE or the transport's failure, which is logged. */
VEL_API vel_error_t vel_handle_get_local_port(velhandle *velhandle, unsigned int *portptr);

/* Fetches the address of the peer.
 *
 * salenptr  holds the room at sockaddr in bytes, more than 0, and receives the length of the
 *           address.
 *
 * Returns VEL_ERROR_NONE or the transport's failure, which is logged. */
VEL_API vel_error_t vel_handle_get_peer_name(velhandle *velhandle, struct sockaddr *sockaddr,
                                             size_t *salenptr);

/* Waits for a connection within the read timeout.
 *
 * connectionhandleptr  receives a new handle for vel_handle_destroy. It has timeouts of its own,
 *                      without limit.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_TIMED_OUT, VEL_ERROR_WAKEUP after vel_handle_wakeup, or the
 * transport's failure, which is logged. The result is the error of the handle as well. */
VEL_API vel_error_t vel_handle_accept(velhandle *velhandle, struct velhandle **connectionhandleptr);

/* Makes the thread that waits in a read or accept of this handle return with VEL_ERROR_WAKEUP, or
 * the next such wait if there is none now: a wakeup is not lost.
 *
 * Returns VEL_ERROR_NONE or the transport's failure, which is logged.
 * Threads: any, while the handle exists. */
VEL_API vel_error_t vel_handle_wakeup(velhandle *velhandle);

VEL_DECLARATIONS_END

#endif
