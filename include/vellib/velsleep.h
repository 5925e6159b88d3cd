#ifndef VELLIB_VELSLEEP_H
#define VELLIB_VELSLEEP_H

#include <vellib/velapi.h>

/* velsleep: a pause of the calling thread. */

VEL_DECLARATIONS_BEGIN

/* Sleeps for a time. A signal ends the sleep early; the rest is not made up for.
 *
 * seconds, microseconds  the time; the microseconds are below 1000000, or it aborts.
 *
 * Returns 0, also if a signal ended the sleep, or -1 with errno set if the platform refused.
 * Blocks the calling thread alone.
 * Threads: any. */
VEL_API int vel_sleep(unsigned int seconds, unsigned int microseconds);

VEL_DECLARATIONS_END

#endif
