#ifndef VELLIB_VELLOCKQUEUE_H
#define VELLIB_VELLOCKQUEUE_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* vellockqueue: a queue of pointers between threads, first in, first out, without a limit. A pop
 * may wait for an item. A producer says that no more will come with vel_lockqueue_set_end;
 * consumers then get what is left, and VEL_ERROR_END_OF_FILE for ever after.
 *
 * Items pass at two levels. vel_lockqueue_push and vel_lockqueue_pop wrap each item in an element
 * of their own. The functions on elements move such a wrapper as it is: they allocate nothing and
 * cannot run out of memory, and a host that pushes again what it popped never touches the
 * allocator. Both may be mixed on one queue. What an item is, the queue never asks.
 * Threads: any number may push, pop and set the end at once. */
typedef struct vellockqueue vellockqueue;

/* vellockqueue_element: the wrapper of one item. It belongs to the queue from its push to its pop
 * and to whoever holds it otherwise, and may be in one queue only.
 * Threads: its owner alone. */
typedef struct vellockqueue_element vellockqueue_element;

/* Destroys an item that was left in a queue; called by the thread that destroys the queue. */
typedef void vel_lockqueue_destroy_item_cb(void *item);

VEL_DECLARATIONS_BEGIN

/* Creates an element with NULL for its item.
 *
 * Returns the element, for vel_lockqueue_element_destroy or a queue, or NULL if there is not enough
 * memory, which is not logged. */
VEL_API vellockqueue_element *vel_lockqueue_element_create(void);

/* Destroys an element that is in no queue. Its item is left alone. */
VEL_API void vel_lockqueue_element_destroy(vellockqueue_element *element);

/* Puts an item into an element that is in no queue.
 *
 * item  may be NULL. */
VEL_API void vel_lockqueue_element_set_item(vellockqueue_element *element, void *item);

/* Gives the item of an element that is in no queue. */
VEL_API void *vel_lockqueue_element_get_item(vellockqueue_element *element);

/* Creates a queue that is empty and open.
 *
 * error_out  receives VEL_ERROR_NONE; VEL_ERROR_NO_MEMORY; or VEL_ERROR_GENERIC if the lock could
 *            not be made, be it for want of memory. May be NULL.
 *
 * Returns the queue, for vel_lockqueue_destroy, or NULL, which is not logged. */
VEL_API vellockqueue *vel_lockqueue_create(vel_error_t *error_out);

/* Destroys a queue and the elements in it, the oldest first.
 *
 * destroyitem  called for the item of each element; NULL leaves the items alone.
 *
 * Note: nobody may be in the queue. A thread that waits in a pop is not woken; set the end and join
 * it before. */
VEL_API void vel_lockqueue_destroy(vellockqueue *queue, vel_lockqueue_destroy_item_cb *destroyitem);

/* Appends an element and wakes one thread that waits in a pop.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_WRITE if the end is set; then the element stays the
 * caller's. Allocates nothing. */
VEL_API vel_error_t vel_lockqueue_push_element(vellockqueue *queue, vellockqueue_element *element);

/* Appends an item and wakes one thread that waits in a pop.
 *
 * item  may be NULL.
 *
 * Returns VEL_ERROR_NONE; or VEL_ERROR_NO_MEMORY, or VEL_ERROR_WRITE if the end is set: then the
 * item stays the caller's. Neither is logged. */
VEL_API vel_error_t vel_lockqueue_push(vellockqueue *queue, void *item);

/* Sets the end: nothing more can be pushed, and a pop finds what is left and then the end. Wakes
 * all threads that wait in a pop. There is no way back, and a second time changes nothing. */
VEL_API void vel_lockqueue_set_end(vellockqueue *queue);

/* Takes the oldest element out of the queue.
 *
 * error_out  receives VEL_ERROR_NONE, or VEL_ERROR_END_OF_FILE if the end is set and nothing left.
 *            May be NULL.
 *
 * Returns the element, now the caller's, or NULL. Blocks while the queue is empty, until a push or
 * the end. */
VEL_API vellockqueue_element *vel_lockqueue_pop_element(vellockqueue *queue,
                                                        vel_error_t *error_out);

/* Takes the oldest element out of the queue if there is one.
 *
 * error_out  receives VEL_ERROR_NONE; VEL_ERROR_NOT_FOUND if the queue is empty and open; or
 *            VEL_ERROR_END_OF_FILE if the end is set and nothing left. May be NULL.
 *
 * Returns the element, now the caller's, or NULL. */
VEL_API vellockqueue_element *vel_lockqueue_pop_element_try(vellockqueue *queue,
                                                            vel_error_t *error_out);

/* Takes the oldest item out of the queue and destroys its element.
 *
 * error_out  receives what vel_lockqueue_pop_element gives, and may not be NULL.
 *
 * Returns the item, or NULL. Blocks while the queue is empty, until a push or the end.
 * Note: an item may be NULL itself; only the code tells. */
VEL_API void *vel_lockqueue_pop(vellockqueue *queue, vel_error_t *error_out);

/* Takes the oldest item out of the queue if there is one, and destroys its element.
 *
 * error_out  receives what vel_lockqueue_pop_element_try gives, and may not be NULL.
 *
 * Returns the item, or NULL.
 * Note: an item may be NULL itself; only the code tells. */
VEL_API void *vel_lockqueue_pop_try(vellockqueue *queue, vel_error_t *error_out);

VEL_DECLARATIONS_END

#endif
