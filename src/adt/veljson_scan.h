#ifndef VELLIB_ADT_VELJSON_SCAN_H
#define VELLIB_ADT_VELJSON_SCAN_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

/* Searches of eight bytes at a time. In a mask the highest bit of a byte says that it was found;
 * bytes behind the first that was found may be marked as well without cause. */

static constexpr uint64_t vel_json_scan_ones = UINT64_C(0x0101010101010101);

static inline uint64_t vel_json_scan_below(uint64_t block, unsigned char limit)
{
    return (block - vel_json_scan_ones * limit) & ~block & vel_json_scan_ones * 0x80;
}

static inline uint64_t vel_json_scan_equal(uint64_t block, unsigned char byte)
{
    return vel_json_scan_below(block ^ vel_json_scan_ones * byte, 1);
}

/* How many bytes of a block stand before the first that the mask marks. */
static inline size_t vel_json_scan_before(uint64_t mask)
{
    return static_cast<size_t>(std::countr_zero(mask)) / 8;
}

static inline uint64_t vel_json_scan_load(const char *bytes)
{
    uint64_t block;

    memcpy(&block, bytes, sizeof block);
    if constexpr (std::endian::native == std::endian::big)
        block = __builtin_bswap64(block);
    return block;
}

/* The first quote or backslash from pos on, or length. */
static inline size_t vel_json_scan_string(const char *text, size_t pos, size_t length)
{
    for (; length - pos >= 8; pos += 8) {
        const uint64_t block = vel_json_scan_load(text + pos);
        const uint64_t mask = vel_json_scan_equal(block, '"') | vel_json_scan_equal(block, '\\');
        if (mask)
            return pos + vel_json_scan_before(mask);
    }
    while (pos < length && text[pos] != '"' && text[pos] != '\\')
        pos++;
    return pos;
}

/* How many of the first length bytes come before the first that has to be escaped. */
static inline size_t vel_json_scan_plain(const char *text, size_t length)
{
    size_t pos = 0;

    for (; length - pos >= 8; pos += 8) {
        const uint64_t block = vel_json_scan_load(text + pos);
        const uint64_t mask = vel_json_scan_equal(block, '"') | vel_json_scan_equal(block, '\\') |
                              vel_json_scan_below(block, 32);
        if (mask)
            return pos + vel_json_scan_before(mask);
    }
    while (pos < length && text[pos] != '"' && text[pos] != '\\' &&
           static_cast<unsigned char>(text[pos]) >= 32)
        pos++;
    return pos;
}

#endif
