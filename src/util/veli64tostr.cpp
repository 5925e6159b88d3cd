#include <vellib/veli64tostr.h>

#include <vellib/velmalloc.h>

#include "util/velassert.h"

static size_t vel_i64tostr_count_digits(uint64_t value)
{
    size_t count = 1;
    for (; value >= 10; value /= 10)
        count++;
    return count;
}

char *vel_i64tostr(int64_t value)
{
    const bool negative = value < 0;
    uint64_t rest = negative ? -static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    const size_t digits = vel_i64tostr_count_digits(rest);
    const size_t len = (negative ? 1 : 0) + digits;

    auto *str = static_cast<char *>(vel_malloc(len + 1));
    if (!str)
        return nullptr;
    size_t pos = 0;
    if (negative)
        str[pos++] = '-';

    /* From the last digit to the first. */
    size_t i = digits - 1;
    VEL_ASSERT(pos + i + 1 == len);
    for (;; i--, rest /= 10) {
        str[pos + i] = static_cast<char>('0' + rest % 10);
        if (i == 0)
            break;
    }
    pos += digits;
    VEL_ASSERT(pos == len);
    str[len] = '\0';
    return str;
}
