#ifndef VELLIB_VELTIME_H
#define VELLIB_VELTIME_H

#include <time.h>

#include <vellib/velapi.h>

/* veltime: the wall clock. Both forward to the platform.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Gives the time in seconds since 1970-01-01 00:00:00 UTC.
 *
 * timeptr  receives the time too, unless NULL.
 *
 * Returns what the platform's time returns. */
VEL_API time_t vel_time(time_t *timeptr);

/* Breaks a time down into the fields of the local time zone.
 *
 * Returns result, or NULL with errno set if the time cannot be represented. */
VEL_API struct tm *vel_localtime_r(const time_t *timep, struct tm *result);

VEL_DECLARATIONS_END

#endif
