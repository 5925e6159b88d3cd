#ifndef VELLIB_VELASYNC_OPERATIONS_H
#define VELLIB_VELASYNC_OPERATIONS_H

#include <vellib/velapi.h>
#include <vellib/velasync_handle.h>
#include <vellib/velerror.h>

/* velasync_operations: the pending operations of an event loop, and those to be cancelled. A part
 * of velasync, which a host need not use.
 * Threads: one at a time. */
typedef struct velasyncoperations velasyncoperations;

VEL_DECLARATIONS_BEGIN

/* Creates an object without operations.
 *
 * Returns the object, for vel_async_operations_destroy, or NULL, logged, if there is not enough
 * memory. */
VEL_API velasyncoperations *vel_async_operations_create(void);

/* Destroys an object. Aborts if there is an operation left in it, pending or to be cancelled. */
VEL_API void vel_async_operations_destroy(velasyncoperations *operations);

/* Adds an operation at the end of the pending ones. */
VEL_API void vel_async_operations_append_active(velasyncoperations *operations,
                                                velasyncop *velasyncop);

/* Takes an operation out of the pending ones. */
VEL_API void vel_async_operations_remove_active(velasyncoperations *operations,
                                                velasyncop *velasyncop);

/* Moves a pending operation to the end of those to be cancelled. No callback runs. An operation that
 * is to be cancelled already stays where it is. */
VEL_API void vel_async_operations_cancel(velasyncoperations *operations, velasyncop *velasyncop);

/* Cancels what is to be cancelled, in order, along with what the callbacks add to it: calls each
 * one's cancel callback, and destroys its handle.
 *
 * Returns VEL_ERROR_NONE. */
VEL_API vel_error_t vel_async_operations_process_canceled(velasyncoperations *operations);

VEL_DECLARATIONS_END

#endif
