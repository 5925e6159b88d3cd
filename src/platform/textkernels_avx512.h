#ifndef VELLIB_PLATFORM_TEXTKERNELS_AVX512_H
#define VELLIB_PLATFORM_TEXTKERNELS_AVX512_H

#include "platform/textkernels.h"

#include <immintrin.h>

/* Kernels for AVX-512 with VBMI and VBMI2. A byte is looked up in a table of 64 or 128 by one instruction,
 * and masks make a short step of any length, so that hardly anything is left to the plain loops.
 * The methods are those that W. Mula and D. Lemire describe in "Base64 encoding and decoding at
 * almost the speed of a memory copy". */
#define VEL_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi2")))

static bool vel_avx512_usable()
{
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
           __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("bmi2");
}

/* 64 or 128 bytes of table, made from what stands at each index. */
template <size_t Size> struct vel_avx512_table {
    uint8_t bytes[Size];
};

template <size_t Size, typename Function>
static constexpr vel_avx512_table<Size> vel_avx512_fill(Function function)
{
    vel_avx512_table<Size> table = {};
    for (size_t i = 0; i < Size; i++)
        table.bytes[i] = static_cast<uint8_t>(function(i));
    return table;
}

static constexpr char vel_avx512_alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/* 0x80 marks what is no digit. */
static constexpr unsigned vel_avx512_base64_value(size_t byte)
{
    for (unsigned value = 0; value < 64; value++)
        if (static_cast<size_t>(vel_avx512_alphabet[value]) == byte)
            return value;
    return 0x80;
}

static constexpr unsigned vel_avx512_hex_value(size_t byte)
{
    if (byte >= '0' && byte <= '9')
        return static_cast<unsigned>(byte - '0');
    if ((byte >= 'A' && byte <= 'F') || (byte >= 'a' && byte <= 'f'))
        return static_cast<unsigned>((byte & 0x0f) + 9);
    return 0x80;
}

/* The mask of the lowest count bits, for 1 to 64. */
static inline uint64_t vel_avx512_mask(size_t count)
{
    return ~UINT64_C(0) >> (64 - count);
}

VEL_AVX512 static inline __m512i vel_avx512_load(const void *source)
{
    return _mm512_loadu_si512(source);
}

/* The values of 64 bytes of text by a table of 128, and the mask of those that are no digit. */
VEL_AVX512 static inline uint64_t vel_avx512_lookup(__m512i *valuesptr, __m512i text,
                                                    const vel_avx512_table<128> &table)
{
    __m512i values = _mm512_permutex2var_epi8(vel_avx512_load(table.bytes), text,
                                              vel_avx512_load(table.bytes + 64));
    *valuesptr = values;
    return _mm512_movepi8_mask(_mm512_or_si512(values, text));
}

/* The index order gives each group of 4 digits its 3 bytes, the middle one twice; the shifts then
 * pick 6 bits each, for two groups in 64 bits. Bits above the 6 do not count in the last look-up. */
VEL_AVX512 static inline __m512i vel_avx512_base64_digits(__m512i bytes)
{
    static constexpr auto spread = vel_avx512_fill<64>([](size_t i) {
        constexpr size_t order[] = {1, 0, 2, 1};
        return i / 4 * 3 + order[i % 4];
    });
    static constexpr auto alphabet =
        vel_avx512_fill<64>([](size_t i) { return vel_avx512_alphabet[i]; });

    __m512i groups = _mm512_permutexvar_epi8(vel_avx512_load(spread.bytes), bytes);
    __m512i shifts = _mm512_set1_epi64(0x3036242a1016040a);
    __m512i values = _mm512_multishift_epi64_epi8(shifts, groups);
    return _mm512_permutexvar_epi8(values, vel_avx512_load(alphabet.bytes));
}

/* A step takes 48 bytes. The plain ones load 64, and so leave some to at most two masked ones. */
VEL_AVX512 static size_t vel_avx512_base64_encode(char *dest, const uint8_t *source, size_t len)
{
    size_t taken = 0;
    for (; len - taken >= 64; taken += 48, dest += 64)
        _mm512_storeu_si512(dest, vel_avx512_base64_digits(vel_avx512_load(source + taken)));

    while (len - taken >= 3) {
        size_t step = len - taken >= 48 ? 48 : (len - taken) / 3 * 3;
        __m512i bytes = _mm512_maskz_loadu_epi8(vel_avx512_mask(step), source + taken);
        _mm512_mask_storeu_epi8(dest, vel_avx512_mask(step / 3 * 4),
                                vel_avx512_base64_digits(bytes));
        taken += step;
        dest += step / 3 * 4;
    }
    return taken;
}

static constexpr auto vel_avx512_base64_table =
    vel_avx512_fill<128>([](size_t i) { return vel_avx512_base64_value(i); });

/* Joins 64 values to 48 bytes, which stand at the front. */
VEL_AVX512 static inline __m512i vel_avx512_base64_join(__m512i values)
{
    static constexpr auto pack =
        vel_avx512_fill<64>([](size_t i) { return i < 48 ? i / 3 * 4 + 2 - i % 3 : 0; });

    __m512i pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi32(0x01400140));
    __m512i groups = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
    return _mm512_permutexvar_epi8(vel_avx512_load(pack.bytes), groups);
}

/* How many of count bytes stand before the first one of the mask, in whole groups of size. */
static inline size_t vel_avx512_good(uint64_t bad, size_t count, size_t size)
{
    size_t good = bad ? static_cast<size_t>(__builtin_ctzll(bad)) : count;
    return (good < count ? good : count) / size * size;
}

/* Whole steps first; then at most one short step, which ends with the text or before the first
 * byte that is no digit. */
VEL_AVX512 static size_t vel_avx512_base64_decode(uint8_t *dest, const uint8_t *source, size_t len)
{
    __m512i values;
    size_t taken = 0;
    for (; len - taken >= 64; taken += 64, dest += 48) {
        if (vel_avx512_lookup(&values, vel_avx512_load(source + taken), vel_avx512_base64_table))
            break;
        _mm512_mask_storeu_epi8(dest, vel_avx512_mask(48), vel_avx512_base64_join(values));
    }

    size_t rest = len - taken < 64 ? len - taken : 64;
    if (rest < 4)
        return taken;
    __m512i text = _mm512_maskz_loadu_epi8(vel_avx512_mask(rest), source + taken);
    size_t good =
        vel_avx512_good(vel_avx512_lookup(&values, text, vel_avx512_base64_table), rest, 4);
    if (good)
        _mm512_mask_storeu_epi8(dest, vel_avx512_mask(good / 4 * 3),
                                vel_avx512_base64_join(values));
    return taken + good;
}

/* 4 bytes in each 64 bits; the shifts pick their 8 nibbles. The two bits above a nibble do count
 * in the look-up, and so the table repeats. */
VEL_AVX512 static inline __m512i vel_avx512_hex_digits(__m256i bytes)
{
    static constexpr auto digits =
        vel_avx512_fill<64>([](size_t i) { return "0123456789abcdef"[i % 16]; });

    __m512i shifts = _mm512_set1_epi64(0x181c1014080c0004);
    __m512i nibbles = _mm512_multishift_epi64_epi8(shifts, _mm512_cvtepu32_epi64(bytes));
    return _mm512_permutexvar_epi8(nibbles, vel_avx512_load(digits.bytes));
}

VEL_AVX512 static size_t vel_avx512_hex_encode(char *dest, const uint8_t *source, size_t len)
{
    size_t taken = 0;
    for (; len - taken >= 32; taken += 32, dest += 64) {
        __m256i bytes = _mm256_loadu_si256(
            static_cast<const __m256i *>(static_cast<const void *>(source + taken)));
        _mm512_storeu_si512(dest, vel_avx512_hex_digits(bytes));
    }

    size_t rest = len - taken;
    if (rest > 0) {
        auto mask = static_cast<__mmask32>(vel_avx512_mask(rest));
        __m256i bytes = _mm256_maskz_loadu_epi8(mask, source + taken);
        _mm512_mask_storeu_epi8(dest, vel_avx512_mask(rest * 2), vel_avx512_hex_digits(bytes));
    }
    return len;
}

static constexpr auto vel_avx512_hex_table =
    vel_avx512_fill<128>([](size_t i) { return vel_avx512_hex_value(i); });

/* Joins 64 values to 32 bytes. */
VEL_AVX512 static inline __m256i vel_avx512_hex_join(__m512i values)
{
    return _mm512_cvtepi16_epi8(_mm512_maddubs_epi16(values, _mm512_set1_epi16(0x0110)));
}

VEL_AVX512 static size_t vel_avx512_hex_decode(uint8_t *dest, const uint8_t *source, size_t len)
{
    __m512i values;
    size_t taken = 0;
    for (; len - taken >= 64; taken += 64, dest += 32) {
        if (vel_avx512_lookup(&values, vel_avx512_load(source + taken), vel_avx512_hex_table))
            break;
        _mm256_storeu_si256(static_cast<__m256i *>(static_cast<void *>(dest)),
                            vel_avx512_hex_join(values));
    }

    size_t rest = len - taken < 64 ? len - taken : 64;
    if (rest < 2)
        return taken;
    __m512i text = _mm512_maskz_loadu_epi8(vel_avx512_mask(rest), source + taken);
    size_t good = vel_avx512_good(vel_avx512_lookup(&values, text, vel_avx512_hex_table), rest, 2);
    if (good)
        _mm256_mask_storeu_epi8(dest, static_cast<__mmask32>(vel_avx512_mask(good / 2)),
                                vel_avx512_hex_join(values));
    return taken + good;
}

/* The mask of the lowest count bits, none and all included. */
VEL_AVX512 static inline uint64_t vel_avx512_mask_any(size_t count)
{
    return _bzhi_u64(~UINT64_C(0), static_cast<unsigned>(count));
}

/* A table of 256. */
struct vel_avx512_entries {
    __m512i parts[4];
};

/* The bytes of text whose entry is 0. */
VEL_AVX512 static inline uint64_t vel_avx512_escaped(const vel_avx512_entries &entries,
                                                     __m512i text)
{
    __m512i low = _mm512_permutex2var_epi8(entries.parts[0], text, entries.parts[1]);
    __m512i high = _mm512_permutex2var_epi8(entries.parts[2], text, entries.parts[3]);
    __m512i found = _mm512_mask_blend_epi8(_mm512_movepi8_mask(text), low, high);
    return _mm512_testn_epi8_mask(found, found);
}

VEL_AVX512 static size_t vel_avx512_percent_count(const vel_avx512_entries &entries,
                                                  const uint8_t *source, size_t len)
{
    size_t escapes = 0;
    for (size_t pos = 0; pos < len; pos += 64) {
        const uint64_t mask = vel_avx512_mask_any(len - pos < 64 ? len - pos : 64);
        __m512i text = _mm512_maskz_loadu_epi8(mask, source + pos);
        escapes +=
            static_cast<size_t>(__builtin_popcountll(vel_avx512_escaped(entries, text) & mask));
    }
    return len + 2 * escapes;
}

/* Three places for each of 21 bytes: itself or "%", and its two digits. */
VEL_AVX512 static inline __m512i vel_avx512_percent_spread(__m512i bytes, uint64_t escapes)
{
    static constexpr auto thirds = vel_avx512_fill<64>([](size_t i) { return i / 3; });
    static constexpr auto digits =
        vel_avx512_fill<64>([](size_t i) { return "0123456789ABCDEF"[i % 16]; });
    constexpr uint64_t firsts = 0x9249249249249249, seconds = firsts << 1;

    __m512i each = _mm512_permutexvar_epi8(vel_avx512_load(thirds.bytes), bytes);
    __m512i nibble = _mm512_set1_epi8(0x0f);
    __m512i values = _mm512_and_si512(each, nibble);
    values =
        _mm512_mask_mov_epi8(values, seconds, _mm512_and_si512(_mm512_srli_epi16(each, 4), nibble));
    __m512i text = _mm512_permutexvar_epi8(values, vel_avx512_load(digits.bytes));
    text = _mm512_mask_mov_epi8(text, firsts, each);
    return _mm512_mask_mov_epi8(text, escapes, _mm512_set1_epi8('%'));
}

/* A step takes 21 bytes, and drops the digits that are not wanted. */
VEL_AVX512 static size_t vel_avx512_percent_encode(char *dest, size_t room, const uint8_t *source,
                                                   size_t len, const uint8_t *entries,
                                                   size_t *countptr)
{
    constexpr uint64_t firsts = 0x1249249249249249;
    const vel_avx512_entries table = {{vel_avx512_load(entries), vel_avx512_load(entries + 64),
                                       vel_avx512_load(entries + 128),
                                       vel_avx512_load(entries + 192)}};
    if (!dest) {
        *countptr = vel_avx512_percent_count(table, source, len);
        return len;
    }
    size_t taken = 0, count = 0;
    while (taken < len) {
        const size_t step = len - taken < 21 ? len - taken : 21;
        const uint64_t mask = vel_avx512_mask(step);
        __m512i bytes = _mm512_maskz_loadu_epi8(mask, source + taken);
        const uint64_t escapes = _pdep_u64(vel_avx512_escaped(table, bytes) & mask, firsts);
        const uint64_t keep = (firsts & vel_avx512_mask(step * 3)) | escapes << 1 | escapes << 2;
        const auto kept = static_cast<size_t>(__builtin_popcountll(keep));
        if (room - count < kept)
            break;
        __m512i text = vel_avx512_percent_spread(bytes, escapes);
        _mm512_mask_storeu_epi8(dest + count, vel_avx512_mask(kept),
                                _mm512_maskz_compress_epi8(keep, text));
        count += kept;
        taken += step;
    }
    *countptr = count;
    return taken;
}

/* Each place is decoded as if an escape stood there; the "%" choose. Both digits of one may stand
 * behind the step, which is that much longer then. Behind the text there are no digits. */
VEL_AVX512 static size_t vel_avx512_percent_decode(uint8_t *dest, size_t room,
                                                   const uint8_t *source, size_t len,
                                                   size_t *countptr)
{
    size_t taken = 0, count = 0;
    while (taken < len) {
        const size_t rest = len - taken, step = rest < 64 ? rest : 64;
        const uint8_t *from = source + taken;
        __m512i text = _mm512_maskz_loadu_epi8(vel_avx512_mask(step), from), high, low;
        __m512i second =
            _mm512_maskz_loadu_epi8(vel_avx512_mask_any(rest < 65 ? rest - 1 : 64), from + 1);
        __m512i third = _mm512_maskz_loadu_epi8(vel_avx512_mask_any(rest < 2    ? 0
                                                                    : rest < 66 ? rest - 2
                                                                                : 64),
                                                from + 2);
        const uint64_t bad = vel_avx512_lookup(&high, second, vel_avx512_hex_table) |
                             vel_avx512_lookup(&low, third, vel_avx512_hex_table);
        const uint64_t escapes = _mm512_cmpeq_epi8_mask(text, _mm512_set1_epi8('%'));
        if (escapes & bad)
            break;

        const uint64_t keep = vel_avx512_mask(step) & ~(escapes << 1 | escapes << 2);
        const auto kept = static_cast<size_t>(__builtin_popcountll(keep));
        if (dest) {
            if (room - count < kept)
                break;
            high = _mm512_slli_epi16(_mm512_and_si512(high, _mm512_set1_epi8(0x0f)), 4);
            const uint64_t pluses = _mm512_cmpeq_epi8_mask(text, _mm512_set1_epi8('+'));
            __m512i bytes = _mm512_mask_mov_epi8(text, pluses, _mm512_set1_epi8(' '));
            bytes = _mm512_mask_mov_epi8(bytes, escapes, _mm512_or_si512(high, low));
            _mm512_mask_storeu_epi8(dest + count, vel_avx512_mask(kept),
                                    _mm512_maskz_compress_epi8(keep, bytes));
        }
        count += kept;
        taken += step + (escapes >> 63) * 2 + (escapes >> 62 & 1);
    }
    *countptr = count;
    return taken;
}

static constexpr vel_textkernels vel_avx512_kernels = {
    "avx512",
    vel_avx512_usable,
    vel_avx512_base64_encode,
    vel_avx512_base64_decode,
    vel_avx512_hex_encode,
    vel_avx512_hex_decode,
    vel_avx512_percent_encode,
    vel_avx512_percent_decode,
};

#endif
