#ifndef VELLIB_PLATFORM_TICKS_H
#define VELLIB_PLATFORM_TICKS_H

#include <stdint.h>

/* A clock that never goes back, in ticks of a constant length. */

/* Reads the clock. */
uint64_t vel_ticks_read();

/* Gives the length of a tick, numerator / denominator nanoseconds. Returns 0, or the platform's
 * number of an error with both outputs 0. */
int vel_ticks_ratio(uint32_t *numeratorptr, uint32_t *denominatorptr);

#endif
