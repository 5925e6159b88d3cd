#ifndef VELLIB_VELTHREAD_H
#define VELLIB_VELTHREAD_H

#include <vellib/velapi.h>

/* velthread: one thread that is started once and joined once. Starting what was started or
 * joined, and joining what does not run, aborts. A thread whose routine has returned counts as
 * running until it is joined.
 * Threads: one owner creates, starts, joins and destroys. */
typedef struct velthread velthread;

VEL_DECLARATIONS_BEGIN

/* Creates an object for a thread that is yet to be started.
 *
 * Returns the object, for vel_thread_destroy, or NULL, logged, if there is not enough memory. */
VEL_API velthread *vel_thread_create(void);

/* Frees the object, in whatever state it is.
 * Note: a thread that was not joined goes on, and its resources are never given back. */
VEL_API void vel_thread_destroy(velthread *velthread);

/* Starts the thread, after making the default log safe for several threads
 * (vel_log_init_threaded), for the whole process.
 *
 * start  the routine of the thread; what it returns is for vel_thread_join.
 * arg    what it gets.
 *
 * Returns 0; -1 if the log could not be made safe; or the error number of the platform. A failure
 * is logged, and the same object may be started again. */
VEL_API int vel_thread_start(velthread *velthread, void *(*start)(void *), void *arg);

/* Waits for the end of the thread, which must have been started.
 *
 * returnptr  receives what the routine returned; may be NULL. Not written on failure.
 *
 * Returns 0, or the error number of the platform, logged; the thread then counts as running.
 * Blocks until the routine returns. */
VEL_API int vel_thread_join(velthread *velthread, void **returnptr);

VEL_DECLARATIONS_END

#endif
