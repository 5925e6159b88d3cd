#include <vellib/vellimit.h>

#include <climits>
#include <cstdint>

unsigned int vel_limit_max_unsigned_int(void)
{
    return UINT_MAX;
}

unsigned long vel_limit_max_unsigned_long(void)
{
    return ULONG_MAX;
}

size_t vel_limit_max_size_t(void)
{
    return SIZE_MAX;
}
