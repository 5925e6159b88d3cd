#include "platform/ticks.h"

#include <mach/mach_time.h>

uint64_t vel_ticks_read()
{
    return mach_absolute_time();
}

int vel_ticks_ratio(uint32_t *numeratorptr, uint32_t *denominatorptr)
{
    mach_timebase_info_data_t ratio{};
    const kern_return_t error = mach_timebase_info(&ratio);
    *numeratorptr = error == KERN_SUCCESS ? ratio.numer : 0;
    *denominatorptr = error == KERN_SUCCESS ? ratio.denom : 0;
    return error;
}
