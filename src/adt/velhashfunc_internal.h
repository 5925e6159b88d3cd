#ifndef VELLIB_ADT_VELHASHFUNC_INTERNAL_H
#define VELLIB_ADT_VELHASHFUNC_INTERNAL_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

/* The parts of vel_hashfunc_string for who knows the length of the string as well. They read eight
 * bytes at once and never more than the string has. */

/* An unsigned number of the type Number, first byte highest. */
template <typename Number> static inline uint64_t vel_hashfunc_load(const char *bytes)
{
    Number number;

    memcpy(&number, bytes, sizeof number);
    if constexpr (std::endian::native == std::endian::little) {
        if constexpr (sizeof number == 8)
            number = __builtin_bswap64(number);
        else if constexpr (sizeof number == 4)
            number = __builtin_bswap32(number);
        else
            number = __builtin_bswap16(number);
    }
    return number;
}

/* The reverse, for a group of eight. */
static inline void vel_hashfunc_store(char *bytes, uint64_t group)
{
    if constexpr (std::endian::native == std::endian::little)
        group = __builtin_bswap64(group);
    memcpy(bytes, &group, sizeof group);
}

/* The last, incomplete group. Where two loads overlap they have the same bits in the same place. */
static inline uint64_t vel_hashfunc_rest(const char *string, size_t length)
{
    const size_t rest = length % 8;
    const char *const start = string + (length - rest);

    if (rest == 0)
        return 0;
    if (length > 8)
        return vel_hashfunc_load<uint64_t>(string + length - 8) & ((uint64_t{1} << 8 * rest) - 1);
    if (rest >= 4)
        return vel_hashfunc_load<uint32_t>(start) << 8 * (rest - 4) |
               vel_hashfunc_load<uint32_t>(start + rest - 4);
    if (rest >= 2)
        return vel_hashfunc_load<uint16_t>(start) << 8 * (rest - 2) |
               vel_hashfunc_load<uint16_t>(start + rest - 2);
    return static_cast<unsigned char>(*start);
}

/* rest is what vel_hashfunc_rest gives. */
static inline uint64_t vel_hashfunc_combine(const char *string, size_t length, uint64_t rest)
{
    uint64_t hash = 0;

    for (size_t position = 0; position + 8 <= length; position += 8)
        hash = vel_hashfunc_load<uint64_t>(string + position) ^ std::rotl(hash, 5);
    return rest ^ std::rotl(hash, 5);
}

#endif
