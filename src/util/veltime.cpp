#include <vellib/veltime.h>

#include "util/velassert.h"

time_t vel_time(time_t *timeptr)
{
    return time(timeptr);
}

struct tm *vel_localtime_r(const time_t *timep, struct tm *result)
{
    VEL_ASSERT(timep);
    VEL_ASSERT(result);

    return localtime_r(timep, result);
}
