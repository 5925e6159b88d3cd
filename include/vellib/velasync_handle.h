#ifndef VELLIB_VELASYNC_HANDLE_H
#define VELLIB_VELASYNC_HANDLE_H

#include <vellib/velapi.h>
#include <vellib/vellist.h>

/* velasync_handle: velasyncop, the handle of an operation that is pending in an event loop. It
 * begins with the two links of a vel_list item, and stands in one list at a time. The functions
 * here are what the loop is made of; a host needs them only for operations of its own.
 * Threads: one at a time. */
typedef struct velasyncop velasyncop;

/* Does what must happen when the operation is cancelled. context is that of the operation. */
typedef void vel_async_cancel_cb(void *context);

VEL_DECLARATIONS_BEGIN

/* Creates a handle that is in no list.
 *
 * cancel_callback  what vel_async_handle_cancel calls; NULL only if that is never called.
 * context          what the callback gets.
 *
 * Returns the handle, for vel_async_handle_destroy, or NULL, logged, if there is not enough
 * memory. */
VEL_API velasyncop *vel_async_handle_create(vel_async_cancel_cb *cancel_callback, void *context);

/* Frees a handle, which must be in no list. Neither calls the callback nor frees its context. */
VEL_API void vel_async_handle_destroy(velasyncop *velasyncop);

/* Adds a handle at the end of a list. */
VEL_API void vel_async_handle_append(velasyncop *velasyncop, vel_list *vel_list);

/* Takes a handle out of the list that it is in. */
VEL_API void vel_async_handle_remove(velasyncop *velasyncop, vel_list *vel_list);

/* Calls the cancel callback, and does nothing else. */
VEL_API void vel_async_handle_cancel(velasyncop *velasyncop);

VEL_DECLARATIONS_END

#endif
