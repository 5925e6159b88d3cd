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

/* Sixteen bytes at once, where the processor can. Functions take vectors by reference, since how they are
 * passed depends on that. */
typedef uint8_t vel_json_vector __attribute__((vector_size(16)));

/* How many bytes stand before the first that is not zero. */
template <typename Vector> static inline size_t vel_json_vector_before(const Vector &mask)
{
    const auto *const bytes = reinterpret_cast<const char *>(&mask);
    const uint64_t low = vel_json_scan_load(bytes);

    if (low)
        return vel_json_scan_before(low);
    const uint64_t high = vel_json_scan_load(bytes + 8);
    return high ? 8 + vel_json_scan_before(high) : 16;
}

/* The first quote or backslash from pos on, or length. */
static inline size_t vel_json_scan_string(const char *text, size_t pos, size_t length)
{
    for (; length - pos >= 16; pos += 16) {
        vel_json_vector vector;
        memcpy(&vector, text + pos, sizeof vector);
        const size_t before = vel_json_vector_before((vector == '"') | (vector == '\\'));
        if (before < 16)
            return pos + before;
    }
    while (pos < length && text[pos] != '"' && text[pos] != '\\')
        pos++;
    return pos;
}

/* The first byte from pos on that is no white space, or length. */
static inline size_t vel_json_scan_space(const char *text, size_t pos, size_t length)
{
    for (; length - pos >= 16; pos += 16) {
        vel_json_vector vector;
        memcpy(&vector, text + pos, sizeof vector);
        const size_t before = vel_json_vector_before((vector != ' ') & (vector != '\n') &
                                                     (vector != '\r') & (vector != '\t'));
        if (before < 16)
            return pos + before;
    }
    while (text[pos] == ' ' || text[pos] == '\n' || text[pos] == '\r' || text[pos] == '\t')
        pos++; /* the terminator ends the loop */
    return pos;
}

/* Copies length bytes, and whatever is behind them up to a multiple of sixteen, for which there is
 * room; source has to have that too. */
static inline void vel_json_copy_vectors(char *dest, const char *source, size_t length)
{
    for (size_t pos = 0; pos < length; pos += 16)
        memcpy(dest + pos, source + pos, 16);
}

/* How many of eight bytes, or of sixteen, come before the first that has to be escaped. */
static inline size_t vel_json_scan_plain_eight(const char *text)
{
    const uint64_t block = vel_json_scan_load(text);
    const uint64_t mask = vel_json_scan_equal(block, '"') | vel_json_scan_equal(block, '\\') |
                          vel_json_scan_below(block, 32);

    return mask ? vel_json_scan_before(mask) : 8;
}

static inline size_t vel_json_scan_plain_sixteen(const char *text)
{
    vel_json_vector vector;

    memcpy(&vector, text, sizeof vector);
    return vel_json_vector_before((vector == '"') | (vector == '\\') | (vector < 32));
}

/* How many of the first length bytes come before the first that has to be escaped. */
static inline size_t vel_json_scan_plain(const char *text, size_t length)
{
    size_t pos = 0;

    for (; length - pos >= 16; pos += 16) {
        const size_t before = vel_json_scan_plain_sixteen(text + pos);
        if (before < 16)
            return pos + before;
    }
    if (length - pos >= 8) {
        const size_t before = vel_json_scan_plain_eight(text + pos);
        if (before < 8)
            return pos + before;
        pos += 8;
    }
    while (pos < length && text[pos] != '"' && text[pos] != '\\' &&
           static_cast<unsigned char>(text[pos]) >= 32)
        pos++;
    return pos;
}

/* The same for a key of a hash, which is filled up with NUL to whole groups of eight; that ends it too. */
static inline size_t vel_json_scan_plain_key(const char *key)
{
    size_t pos = 0, before;

    do {
        before = vel_json_scan_plain_eight(key + pos);
        pos += before;
    } while (before == 8);
    return pos;
}

/* Copies a piece of Size to twice Size bytes, by its first and its last Size bytes. */
template <size_t Size>
static inline void vel_json_copy_ends(char *dest, const char *source, size_t length)
{
    char first[Size], last[Size];

    memcpy(first, source, Size);
    memcpy(last, source + length - Size, Size);
    memcpy(dest, first, Size);
    memcpy(dest + length - Size, last, Size);
}

/* Copies a piece of text, a short one without a call. */
static inline void vel_json_copy_text(char *dest, const char *source, size_t length)
{
    if (length > 16)
        memcpy(dest, source, length);
    else if (length >= 8)
        vel_json_copy_ends<8>(dest, source, length);
    else if (length >= 4)
        vel_json_copy_ends<4>(dest, source, length);
    else if (length >= 2)
        vel_json_copy_ends<2>(dest, source, length);
    else if (length == 1)
        *dest = *source;
}

/* The number that eight digits make, the first one in the lowest byte: pairs, then fours, then all. */
static inline uint64_t vel_json_eight_digits(uint64_t digits)
{
    digits = digits * 10 + (digits >> 8);
    digits = ((digits & UINT64_C(0x000000ff000000ff)) * (100 + (UINT64_C(1000000) << 32)) +
              (digits >> 16 & UINT64_C(0x000000ff000000ff)) * (1 + (UINT64_C(10000) << 32))) >>
             32;
    return digits & UINT32_MAX;
}

/* Takes the digits from text on behind those that are in *digitsptr, wrapping around. Returns where they
 * end, which is at end if not before. Up to eight are taken at once, moved up so that zeros stand before
 * them. */
static inline const char *vel_json_read_digits(const char *text, const char *end,
                                               uint64_t *digitsptr)
{
    static constexpr uint64_t tens[] = {1,      10,      100,      1000,     10000,
                                        100000, 1000000, 10000000, 100000000};
    uint64_t digits = *digitsptr;
    size_t count = 8;

    while (count == 8 && end - text >= 8) {
        const uint64_t block = vel_json_scan_load(text) ^ vel_json_scan_ones * '0';
        const uint64_t others =
            (block | (block + vel_json_scan_ones * 6)) & vel_json_scan_ones * 0xf0;
        count = others ? vel_json_scan_before(others) : 8;
        if (count == 0)
            break;
        digits = digits * tens[count] + vel_json_eight_digits(block << 8 * (8 - count));
        text += count;
    }
    if (count == 8)
        for (; text < end && *text >= '0' && *text <= '9'; text++)
            digits = digits * 10 + static_cast<uint64_t>(*text - '0');
    *digitsptr = digits;
    return text;
}

#endif
