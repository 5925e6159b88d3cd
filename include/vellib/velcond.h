#ifndef VELLIB_VELCOND_H
#define VELLIB_VELCOND_H

#include <vellib/velapi.h>

/* velcond: a mutex and a condition in one object, used as a monitor. A thread locks it, tests its
 * own condition, waits on the same object while that does not hold, and unlocks it:
 *
 *     vel_cond_lock(velcond);
 *     while (queue_is_empty(queue))
 *         vel_cond_wait(velcond);
 *     take_from(queue);
 *     vel_cond_unlock(velcond);
 *
 * There is no wait with a time limit. The mutex is not recursive. An operation that the platform
 * refuses is a bug of the caller and aborts: what returns has worked, and returns 0.
 * Threads: any, once created; nobody may use the object while it is destroyed. */
typedef struct velcond velcond;

VEL_DECLARATIONS_BEGIN

/* Creates an object that nobody holds.
 *
 * Returns the object, for vel_cond_destroy, or NULL if there is not enough memory or the platform
 * has nothing to give, which is not logged. */
VEL_API velcond *vel_cond_create(void);

/* Destroys an object that nobody holds or waits on. */
VEL_API void vel_cond_destroy(velcond *velcond);

/* Takes the mutex.
 *
 * Returns 0. Blocks while another thread holds it. */
VEL_API int vel_cond_lock(velcond *velcond);

/* Gives the mutex back.
 *
 * Returns 0. */
VEL_API int vel_cond_unlock(velcond *velcond);

/* Gives the mutex, which the caller holds, back, waits to be woken and takes the mutex again.
 *
 * Returns 0. Blocks until vel_cond_signal or vel_cond_broadcast.
 * Note: it may also return when nobody has signalled; wait in a loop on your own condition. */
VEL_API int vel_cond_wait(velcond *velcond);

/* Wakes one thread that waits, if there is one. The caller may hold the mutex or not.
 *
 * Returns 0. */
VEL_API int vel_cond_signal(velcond *velcond);

/* Wakes all threads that wait. The caller may hold the mutex or not.
 *
 * Returns 0. */
VEL_API int vel_cond_broadcast(velcond *velcond);

VEL_DECLARATIONS_END

#endif
