#ifndef VELLIB_UTIL_VELHEXDIGITS_CORE_H
#define VELLIB_UTIL_VELHEXDIGITS_CORE_H

#include <array>
#include <cstdint>

/* Hexadecimal digits of either case, which velhex2bin and velurldecode read by a table. */

/* Stands above every value of a digit. */
static constexpr uint8_t VEL_HEXDIGITS_INVALID = 0x80;

static constexpr std::array<uint8_t, 256> vel_hexdigits_fill_values()
{
    std::array<uint8_t, 256> values = {};
    for (auto &entry : values)
        entry = VEL_HEXDIGITS_INVALID;
    for (uint8_t value = 0; value < 16; value++) {
        values[static_cast<uint8_t>("0123456789abcdef"[value])] = value;
        values[static_cast<uint8_t>("0123456789ABCDEF"[value])] = value;
    }
    return values;
}

/* The value of each byte as a digit. */
static constexpr auto vel_hexdigits_values = vel_hexdigits_fill_values();

#endif
