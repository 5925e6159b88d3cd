#ifndef VELLIB_VELASYNC_H
#define VELLIB_VELASYNC_H

#include <vellib/velapi.h>
#include <vellib/velasync_handle.h>
#include <vellib/velasync_socket.h>
#include <vellib/velasync_timeout.h>
#include <vellib/velerror.h>

/* velasync: an event loop of one thread. It watches descriptors for readiness and calls timeouts,
 * and leaves the thread to its host:
 *
 *     while (vel_async_process(velasync) == VEL_ERROR_INCOMPLETE)
 *         vel_async_poll(velasync);
 *
 * ends when nothing is registered any more. A host with a loop of its own waits there until
 * vel_async_get_native_handle is readable, for at most vel_async_get_timeout_ms milliseconds, and
 * calls vel_async_process at each wake.
 *
 * All callbacks run within vel_async_process, and may register, unregister and cancel whatever they
 * like. The loop does not own the descriptors, which are plain ones and not velsockets.
 * Threads: one at a time, callbacks included.
 * Note: each turn writes lines at level 1 to the default log, and the sink for standard error shows
 * them until it is disabled or its level set to 0. */

VEL_DECLARATIONS_BEGIN

/* Creates a loop with nothing registered. It takes four descriptors at most.
 *
 * Returns the loop, for vel_async_destroy, or NULL, logged, if there is not enough memory or the
 * platform gives no event queue. */
VEL_API velasync *vel_async_create(void);

/* Destroys a loop. Descriptors that are still registered are forgotten.
 * Note: with a timeout pending, or with one cancelled and no vel_async_process since, it calls the
 * callbacks with VEL_ERROR_CANCELED and then aborts. Cancel all, and process, before. */
VEL_API void vel_async_destroy(velasync *velasync);

/* Returns a descriptor that is readable while a registered one is ready, the same one at each call, or
 * -1 if the kernel has no room for it. Wait on it in any way, and do nothing else with it. */
VEL_API int vel_async_get_native_handle(velasync *velasync);

/* Registers a timeout.
 *
 * milliseconds  the time from now. A timeout of 0 is called in the next vel_async_process.
 *
 * Returns the operation, for vel_async_cancel, or NULL, logged, if there is not enough memory. It
 * belongs to the loop, and is valid until the callback has been called.
 * Note: with a time above 2147483647 vel_async_get_timeout_ms, and with it vel_async_process and
 * vel_async_poll, abort as soon as no other timeout comes before it. */
VEL_API velasyncop *vel_async_register_timeout_ms(velasync *velasync, unsigned int milliseconds,
                                                  vel_async_timeout_cb *callback, void *context);

/* Registers a descriptor for reading, as vel_async_socket_register_read does. What is always ready,
 * such as a regular file, is so here too. */
VEL_API vel_error_t vel_async_register_socket_read(velasync *velasync, int s,
                                                   vel_async_socket_cb *callback, void *context);

/* Registers a descriptor for writing, as vel_async_socket_register_write does. */
VEL_API vel_error_t vel_async_register_socket_write(velasync *velasync, int s,
                                                    vel_async_socket_cb *callback, void *context);

/* Ends the registration of a descriptor for reading, as vel_async_socket_unregister_read does.
 * Note: unregister before closing. The platform forgets a descriptor that is closed, but not while a
 * duplicate of it is open, as one is in a child that was forked. */
VEL_API vel_error_t vel_async_unregister_socket_read(velasync *velasync, int s);

/* Ends the registration of a descriptor for writing, as vel_async_socket_unregister_write does.
 * Note: not for a descriptor that is registered for reading too: see there. */
VEL_API vel_error_t vel_async_unregister_socket_write(velasync *velasync, int s);

/* Returns the milliseconds until the next timeout, rounded up: 0 if it is due, -1 if there is
 * none. */
VEL_API int vel_async_get_timeout_ms(velasync *velasync);

/* Waits until a registered descriptor is ready or the next timeout is due, and leaves the rest to
 * vel_async_process. A signal ends the wait early. With no timeout pending the wait has no limit;
 * with nothing registered it returns at once. */
VEL_API void vel_async_poll(velasync *velasync);

/* Serves one descriptor that is ready, if any, and then all timeouts that are due. What was cancelled
 * is served before and after each of the two. Never waits.
 *
 * Returns VEL_ERROR_INCOMPLETE while anything is registered, and VEL_ERROR_NONE otherwise. Failures
 * on the way are logged only. */
VEL_API vel_error_t vel_async_process(velasync *velasync);

/* Cancels a timeout: its callback is called with VEL_ERROR_CANCELED, and not in here but in
 * vel_async_process; in the current one if this is called from a callback. So a timeout that is due
 * is not called with VEL_ERROR_TIMED_OUT any more, also if another timeout cancels it in the same
 * pass. */
VEL_API void vel_async_cancel(velasync *velasync, velasyncop *velasyncop);

VEL_DECLARATIONS_END

#endif
