#ifndef VELLIB_VELMUTEX_H
#define VELLIB_VELMUTEX_H

#include <vellib/velapi.h>

/* velmutex: a lock, neither recursive nor error-checking. A failure of the platform's lock is a
 * bug of the program and aborts: only the creation can fail.
 * Threads: any, but for creating and destroying. */
typedef struct velmutex velmutex;

VEL_DECLARATIONS_BEGIN

/* Creates a mutex.
 *
 * Returns the mutex, for vel_mutex_destroy, or NULL if there is not enough memory or the platform
 * refuses. Logs nothing. */
VEL_API velmutex *vel_mutex_create(void);

/* Destroys a mutex, which no thread may hold: a locked one aborts where the platform tells. */
VEL_API void vel_mutex_destroy(velmutex *velmutex);

/* Locks a mutex, waiting as long as another thread has it.
 *
 * Returns 0. */
VEL_API int vel_mutex_lock(velmutex *velmutex);

/* Unlocks a mutex that this thread has locked.
 *
 * Returns 0. */
VEL_API int vel_mutex_unlock(velmutex *velmutex);

VEL_DECLARATIONS_END

#endif
