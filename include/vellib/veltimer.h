#ifndef VELLIB_VELTIMER_H
#define VELLIB_VELTIMER_H

#include <stdint.h>

#include <vellib/velapi.h>

/* veltimer: a stopwatch on the monotonic clock of the platform. A split is a reading of the clock;
 * intervals are taken between readings, so read first and ask then. The usual turn measures one
 * interval after the other:
 *
 *     vel_timer_split(veltimer);
 *     vel_timer_getsplit(veltimer, bytes, &seconds, &microseconds, &bytespersecond);
 *     vel_timer_storesplit(veltimer);
 *
 * Threads: one at a time. */
typedef struct veltimer veltimer;

VEL_DECLARATIONS_BEGIN

/* Creates a timer and starts it.
 *
 * Returns the timer, for vel_timer_destroy, or NULL, logged, if there is not enough memory or the
 * platform does not say how long its ticks are. */
VEL_API veltimer *vel_timer_create(void);

/* Destroys a timer. */
VEL_API void vel_timer_destroy(veltimer *veltimer);

/* Reads the clock and begins anew: start, stored split and split are this one reading. */
VEL_API void vel_timer_start(veltimer *veltimer);

/* Reads the clock and keeps the reading as the split. */
VEL_API void vel_timer_split(veltimer *veltimer);

/* Begins the next interval of vel_timer_getsplit at the split; the clock is not read. */
VEL_API void vel_timer_storesplit(veltimer *veltimer);

/* Gives the interval from the stored split to the split; the clock is not read.
 *
 * count            the number of things that the rate is about.
 * secondsptr       receives the whole seconds, of which only the low 31 bits are kept.
 * microsecondsptr  receives the rest, below 1000000, rounded down.
 * rateptr          receives count a second; infinity or not a number over an interval of 0.
 *
 * Each of the three may be NULL. */
VEL_API void vel_timer_getsplit(veltimer *veltimer, uint64_t count, int *secondsptr,
                                unsigned int *microsecondsptr, double *rateptr);

/* Gives the interval from the start to the split, in the way of vel_timer_getsplit. */
VEL_API void vel_timer_gettotal(veltimer *veltimer, uint64_t count, int *secondsptr,
                                unsigned int *microsecondsptr, double *rateptr);

VEL_DECLARATIONS_END

#endif
