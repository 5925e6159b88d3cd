#include "platform/ticks.h"

#include <time.h>

uint64_t vel_ticks_read()
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

int vel_ticks_ratio(uint32_t *numeratorptr, uint32_t *denominatorptr)
{
    *numeratorptr = 1;
    *denominatorptr = 1;
    return 0;
}
