#include <vellib/velconvert.h>

#include <climits>
#include <limits>

#include <vellib/vellimit.h>

#include "util/velassert.h"

int vel_convert_int_from_size_t(int *dest, size_t src)
{
    VEL_ASSERT(dest != NULL);

    const int value = static_cast<int>(src);
    *dest = value;
    return value < 0 || static_cast<size_t>(value) != src ? -1 : 0;
}

int vel_convert_int_from_size_t_and_limit(int *dest, size_t src)
{
    VEL_ASSERT(dest != NULL);

    if (src >= static_cast<size_t>(INT_MAX) + 1) {
        *dest = INT_MAX;
        return 1;
    }
    const int value = static_cast<int>(src);
    VEL_ASSERT((size_t) value == src);
    *dest = value;
    return 0;
}

int vel_convert_uint_from_size_t_and_limit(unsigned int *dest, size_t src)
{
    VEL_ASSERT(dest != NULL);

    if (src > vel_limit_max_unsigned_int()) {
        *dest = vel_limit_max_unsigned_int();
        return 1;
    }
    const auto value = static_cast<unsigned int>(src);
    VEL_ASSERT((size_t) value == src);
    *dest = value;
    return 0;
}

/* Halves away from zero, as adding before truncating does. What does not fit, or is no number,
 * becomes the lowest, as it does where the processor converts it; the language has no rule. */
template <typename Integer> static Integer vel_convert_round(double value)
{
    const auto lowest = std::numeric_limits<Integer>::min();
    const double limit = -static_cast<double>(lowest);
    const double rounded = value >= 0 ? value + 0.5 : value - 0.5;

    return rounded >= -limit && rounded < limit ? static_cast<Integer>(rounded) : lowest;
}

long vel_convert_long_from_double_round(double value)
{
    return vel_convert_round<long>(value);
}

int64_t vel_convert_i64_from_double_round(double value)
{
    return vel_convert_round<int64_t>(value);
}

void vel_convert_custr_from_cstr(const unsigned char **destptr, const char *src)
{
    VEL_ASSERT(destptr != NULL);
    VEL_ASSERT(src != NULL);

    *destptr = reinterpret_cast<const unsigned char *>(src);
}

void vel_convert_cstr_from_custr(const char **destptr, const unsigned char *src)
{
    VEL_ASSERT(destptr != NULL);
    VEL_ASSERT(src != NULL);

    *destptr = reinterpret_cast<const char *>(src);
}
