#include <vellib/velstrtoi64.h>

#include <cctype>

#include "util/velassert.h"

/* Takes the digits at *strptr into *valueptr and moves behind them. */
static vel_error_t vel_strtoi64_digits(const char **strptr, uint64_t *valueptr)
{
    vel_error_t result = VEL_ERROR_INVALID_SYNTAX;
    uint64_t value = 0;
    const char *str = *strptr;
    for (; isdigit(static_cast<unsigned char>(*str)); str++) {
        const auto digit = static_cast<uint64_t>(*str - '0');
        uint64_t next;
        if (__builtin_mul_overflow(value, UINT64_C(10), &next) ||
            __builtin_add_overflow(next, digit, &next)) {
            result = VEL_ERROR_OUT_OF_RANGE;
            break;
        }
        value = next;
        result = VEL_ERROR_NONE;
    }
    *strptr = str;
    *valueptr = value;
    return result;
}

vel_error_t vel_strtoi64(const char *str, int64_t *out)
{
    VEL_ASSERT(str != NULL);
    VEL_ASSERT(out != NULL);

    *out = 0;
    while (isspace(static_cast<unsigned char>(*str)))
        str++;
    const bool negative = *str == '-';
    if (*str == '+' || *str == '-')
        str++;

    uint64_t value;
    vel_error_t result = vel_strtoi64_digits(&str, &value);
    if (result == VEL_ERROR_NONE && *str != '\0')
        result = VEL_ERROR_INCOMPLETE;

    /* Out of range even if more is wrong with the text. */
    const uint64_t limit = UINT64_C(1) << 63;
    if (value > limit || (value == limit && !negative))
        result = VEL_ERROR_OUT_OF_RANGE;
    if (result == VEL_ERROR_NONE || result == VEL_ERROR_INCOMPLETE)
        *out = static_cast<int64_t>(negative ? -value : value);
    return result;
}
