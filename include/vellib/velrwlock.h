#ifndef VELLIB_VELRWLOCK_H
#define VELLIB_VELRWLOCK_H

#include <vellib/velapi.h>

/* velrwlock: a lock that many readers hold together, or one writer alone. Not recursive; whether
 * readers or writers go first is the platform's choice.
 *
 * An operation that the platform refuses is a bug of the caller and aborts: what returns has
 * worked, and returns 0.
 * Threads: any, once created; nobody may use the lock while it is destroyed. */
typedef struct velrwlock velrwlock;

VEL_DECLARATIONS_BEGIN

/* Creates a lock that nobody holds.
 *
 * Returns the lock, for vel_rwlock_destroy, or NULL if there is not enough memory or the platform
 * has no lock to give, which is not logged. */
VEL_API velrwlock *vel_rwlock_create(void);

/* Destroys a lock that nobody holds. */
VEL_API void vel_rwlock_destroy(velrwlock *velrwlock);

/* Takes the lock for reading.
 *
 * Returns 0. Blocks while a writer holds the lock. */
VEL_API int vel_rwlock_rdlock(velrwlock *velrwlock);

/* Takes the lock for writing.
 *
 * Returns 0. Blocks while anybody holds the lock. */
VEL_API int vel_rwlock_wrlock(velrwlock *velrwlock);

/* Gives the lock back, whether it is held for reading or for writing.
 *
 * Returns 0. */
VEL_API int vel_rwlock_unlock(velrwlock *velrwlock);

VEL_DECLARATIONS_END

#endif
