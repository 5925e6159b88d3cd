#ifndef VELLIB_VELASYNC_TIMEOUT_H
#define VELLIB_VELASYNC_TIMEOUT_H

#include <vellib/velapi.h>
#include <vellib/velasync_handle.h>
#include <vellib/velasync_operations.h>
#include <vellib/velerror.h>

/* velasync_timeout: timeouts in the order of their deadlines, on a monotonic clock of their own. Those
 * with equal deadlines stand in the order in which they were added. A part of velasync, which a host
 * need not use.
 * Threads: one at a time. */
typedef struct velasynctimeout velasynctimeout;

/* Takes the end of a timeout, which is called once for each.
 *
 * code     VEL_ERROR_TIMED_OUT if its time has come, VEL_ERROR_CANCELED if it was cancelled.
 * context  what the timeout was added with.
 *
 * It may add timeouts and cancel others. Its own velasyncop is freed right after it returns, and
 * must not be cancelled in it or later. */
typedef void vel_async_timeout_cb(vel_error_t code, void *context);

VEL_DECLARATIONS_BEGIN

/* Creates an empty queue, and starts its clock.
 *
 * operations  where the operations of the timeouts are entered; must outlive the queue.
 *
 * Returns the queue, for vel_async_timeout_destroy, or NULL, logged, if there is not enough
 * memory. */
VEL_API velasynctimeout *vel_async_timeout_create(velasyncoperations *operations);

/* Destroys a queue. The callback of each pending timeout is called with VEL_ERROR_CANCELED, in
 * order; it may not add timeouts.
 * Note: the operations of those timeouts stay in the operations object, on whose destruction that
 * aborts. */
VEL_API void vel_async_timeout_destroy(velasynctimeout *timeout);

/* Adds a timeout.
 *
 * seconds, microseconds  the time from now, not negative and below 1000000.
 *
 * Returns the operation, for vel_async_operations_cancel, or NULL, logged, if there is not enough
 * memory. It belongs to the queue, and is valid until the callback has been called. */
VEL_API velasyncop *vel_async_timeout_add_us(velasynctimeout *timeout, int seconds,
                                             unsigned int microseconds,
                                             vel_async_timeout_cb *callback, void *context);

/* Gives the time that is left until the first timeout: 0 and 0 if it is due, -1 and 0 if there is
 * none. */
VEL_API void vel_async_timeout_get_us(velasynctimeout *timeout, int *secondsptr,
                                      unsigned int *microsecondsptr);

/* Calls the callbacks of the timeouts that are due, in order, by one reading of the clock. Those that
 * are to be cancelled are passed over.
 *
 * Returns VEL_ERROR_NONE if this has emptied the queue, and VEL_ERROR_INCOMPLETE if it was empty
 * before or is not empty yet. */
VEL_API vel_error_t vel_async_timeout_process(velasynctimeout *timeout);

VEL_DECLARATIONS_END

#endif
