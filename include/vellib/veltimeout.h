#ifndef VELLIB_VELTIMEOUT_H
#define VELLIB_VELTIMEOUT_H

#include <vellib/velapi.h>

/* veltimeout: a countdown that is read by polling. A loop that may block asks it at each turn how
 * much time is left, and hands that to its next wait.
 *
 * It runs on the wall clock and counts what passes between two checks, not towards a deadline:
 * when the clock is set back, the time between the checks around that moment is not counted, and
 * the countdown goes on from there.
 *
 * Times are seconds, where a negative value means without end, and microseconds below 1000000. A
 * timeout of 0 and 0 has expired from the start, and so has one that was never set.
 * Threads: one at a time; a check changes the object. */
typedef struct veltimeout veltimeout;

VEL_DECLARATIONS_BEGIN

/* Creates a timeout, which has expired until it is set.
 *
 * Returns the timeout, for vel_timeout_destroy, or NULL if there is not enough memory, which is
 * not logged. */
VEL_API veltimeout *vel_timeout_create(void);

/* Destroys a timeout. */
VEL_API void vel_timeout_destroy(veltimeout *veltimeout);

/* Starts the countdown.
 *
 * seconds       negative for one without end.
 * microseconds  below 1000000, or it aborts. */
VEL_API void vel_timeout_set(veltimeout *veltimeout, int seconds, unsigned int microseconds);

/* Takes the time since the last check off the countdown and gives what is left.
 *
 * secondsptr, microsecondsptr  receive what is left: -1 and 0 without end, 0 and 0 when expired.
 *                              Each may be NULL.
 *
 * Returns -1 without end, 0 while time is left, 1 when expired. Reads the clock once, or not at
 * all without end.
 * Note: right after the clock was set back an expired timeout may give 0 once, with 0 and 0. */
VEL_API int vel_timeout_check(veltimeout *veltimeout, int *secondsptr,
                              unsigned int *microsecondsptr);

/* Starts the countdown anew with what was last set.
 *
 * secondsptr, microsecondsptr  receive the values given to vel_timeout_set, just as they were.
 *                              Each may be NULL. */
VEL_API void vel_timeout_reset(veltimeout *veltimeout, int *secondsptr,
                               unsigned int *microsecondsptr);

VEL_DECLARATIONS_END

#endif
