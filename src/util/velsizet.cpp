#include <vellib/velsizet.h>

#include <vellib/vellimit.h>

size_t vel_sizet_multiply_and_limit(size_t a, size_t b)
{
    if (a == 0 || b == 0)
        return 0;
    if (vel_limit_max_size_t() / b < a)
        return vel_limit_max_size_t();
    return a * b;
}
