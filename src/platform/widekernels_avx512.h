#ifndef VELLIB_PLATFORM_WIDEKERNELS_AVX512_H
#define VELLIB_PLATFORM_WIDEKERNELS_AVX512_H

#include "platform/widekernels.h"

#include <cstdint>
#include <immintrin.h>

/* Kernels for AVX-512 with VBMI2, which packs the bytes of a mask together. The thought is that of
 * R. Clausecker and D. Lemire in "Transcoding Unicode Characters with AVX-512 Instructions". Masks
 * make a short step of any length, so that only what is not valid is left to the plain loops. */
#define VEL_AVX512                                                                                 \
    __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")))

static bool vel_avx512_usable()
{
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
           __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("bmi") &&
           __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt");
}

/* A table for look-up, made from what stands at each index. */
template <typename Entry, size_t Size> struct vel_avx512_lookup {
    Entry entries[Size];
};

template <typename Entry, size_t Size, typename Function>
static constexpr vel_avx512_lookup<Entry, Size> vel_avx512_fill(Function function)
{
    vel_avx512_lookup<Entry, Size> table = {};
    for (size_t i = 0; i < Size; i++)
        table.entries[i] = static_cast<Entry>(function(i));
    return table;
}

template <typename Entry, size_t Size>
VEL_AVX512 static inline __m512i vel_avx512_load(const vel_avx512_lookup<Entry, Size> &table)
{
    static_assert(sizeof(table) == 64);
    return _mm512_loadu_si512(table.entries);
}

/* The mask of the lowest count bits, for 0 to 64. */
VEL_AVX512 static inline uint64_t vel_avx512_mask(size_t count)
{
    return _bzhi_u64(~UINT64_C(0), static_cast<unsigned>(count));
}

/* The least value that the second byte of a character may have, by the low six bits of a first byte
 * from 0xc0 on. Behind a byte that begins nothing only 1 will do, and that is no second byte. */
static constexpr auto vel_avx512_second_least = vel_avx512_fill<uint8_t, 64>([](size_t i) {
    const size_t first = 0xc0 + i;
    if (first < 0xc2 || first > 0xf4)
        return 1;
    return first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
});

/* How far it may lie above that. */
static constexpr auto vel_avx512_second_span = vel_avx512_fill<uint8_t, 64>([](size_t i) {
    const size_t first = 0xc0 + i;
    if (first < 0xc2 || first > 0xf4)
        return 0;
    if (first == 0xed || first == 0xe0)
        return 0x1f;
    return first == 0xf0 ? 0x2f : first == 0xf4 ? 0x0f : 0x3f;
});

/* How many of 64 valid bytes belong to characters that are complete. The branches are foreseen, so
 * that a step need not wait for the masks of the one before it. */
static inline size_t vel_avx512_complete(const char *utf8)
{
    static constexpr unsigned char cut[] = {0, 0xc0, 0xe0, 0xf0};
    for (size_t back = 1; back <= 3; back++)
        if (static_cast<unsigned char>(utf8[64 - back]) >= cut[back])
            return 64 - back;
    return 64;
}

/* Tells whether 64 bytes that begin with a character are valid, as far as their characters are
 * complete, and where a character begins. Each byte has to be a second, third or fourth one just
 * where a byte before it asks for that, and a second byte has to lie in the range that the first
 * one gives. */
VEL_AVX512 static inline bool vel_avx512_check(__m512i text, uint64_t *firstptr)
{
    static constexpr auto behind = vel_avx512_fill<uint8_t, 64>([](size_t i) { return i + 1; });

    const uint64_t further = _mm512_cmplt_epi8_mask(text, _mm512_set1_epi8(-0x40));
    const uint64_t from2 = _mm512_cmpge_epu8_mask(text, _mm512_set1_epi8(-0x40));
    const uint64_t from3 = _mm512_cmpge_epu8_mask(text, _mm512_set1_epi8(-0x20));
    const uint64_t from4 = _mm512_cmpge_epu8_mask(text, _mm512_set1_epi8(-0x10));

    __m512i second = _mm512_permutexvar_epi8(vel_avx512_load(behind), text);
    second = _mm512_sub_epi8(
        second, _mm512_permutexvar_epi8(text, vel_avx512_load(vel_avx512_second_least)));
    const uint64_t bad = _mm512_mask_cmpgt_epu8_mask(
        from2 & ~UINT64_C(0) >> 1, second,
        _mm512_permutexvar_epi8(text, vel_avx512_load(vel_avx512_second_span)));

    *firstptr = ~further;
    return !(bad | (further ^ (from2 << 1 | from3 << 2 | from4 << 3)));
}

/* The characters whose first bytes stand in text where the 16 lowest bytes from the place in
 * places tell. The bytes of each are put in order, those of the next one shifted out, and the marks
 * cut off; what is left is 6 bits a byte, or 7 in a single one. */
VEL_AVX512 static inline __m512i vel_avx512_characters(__m512i text, __m512i places, size_t from)
{
    static constexpr auto shift = vel_avx512_fill<uint32_t, 16>([](size_t i) {
        return i < 8 ? 24 : i < 14 ? 16 : i < 15 ? 8 : 0;
    });
    static constexpr auto bits = vel_avx512_fill<uint32_t, 16>([](size_t i) {
        return i < 8 ? 0x7f : i < 14 ? 0x1f3f : i < 15 ? 0x0f3f3f : 0x073f3f3f;
    });
    static constexpr auto four = vel_avx512_fill<uint8_t, 64>([](size_t i) { return i / 4; });

    __m512i order =
        _mm512_add_epi8(vel_avx512_load(four), _mm512_set1_epi8(static_cast<char>(from)));
    order = _mm512_permutexvar_epi8(order, places);
    order = _mm512_add_epi8(order, _mm512_set1_epi32(0x00010203));
    __m512i bytes = _mm512_permutexvar_epi8(order, text);
    const __m512i kind = _mm512_srli_epi32(bytes, 28);
    bytes = _mm512_srlv_epi32(bytes, _mm512_permutexvar_epi32(kind, vel_avx512_load(shift)));
    bytes = _mm512_and_si512(bytes, _mm512_permutexvar_epi32(kind, vel_avx512_load(bits)));
    const __m512i pairs = _mm512_maddubs_epi16(bytes, _mm512_set1_epi32(0x40014001));
    return _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x10000001));
}

/* Writes the characters of a step. */
VEL_AVX512 static inline void vel_avx512_write_wide(wchar_t *dest, __m512i text, uint64_t first,
                                                    size_t count)
{
    static constexpr auto identity = vel_avx512_fill<uint8_t, 64>([](size_t i) { return i; });

    const __m512i places = _mm512_maskz_compress_epi8(first, vel_avx512_load(identity));
    size_t done = 0;
    for (; count - done >= 16; done += 16)
        _mm512_storeu_si512(dest + done, vel_avx512_characters(text, places, done));
    if (count > done)
        _mm512_mask_storeu_epi32(dest + done, static_cast<__mmask16>(vel_avx512_mask(count - done)),
                                 vel_avx512_characters(text, places, done));
}

VEL_AVX512 static inline void vel_avx512_write_ascii(wchar_t *dest, __m512i text)
{
    _mm512_storeu_si512(dest, _mm512_cvtepu8_epi32(_mm512_castsi512_si128(text)));
    _mm512_storeu_si512(dest + 16, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(text, 1)));
    _mm512_storeu_si512(dest + 32, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(text, 2)));
    _mm512_storeu_si512(dest + 48, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(text, 3)));
}

/* The NULs that fill up the last step show a character that is cut off as not valid. */
VEL_AVX512 static size_t vel_avx512_to_wide(wchar_t *dest, size_t room, const char *utf8,
                                            size_t len, size_t *writtenptr)
{
    size_t taken = 0, written = 0;
    while (taken < len) {
        const size_t rest = len - taken < 64 ? len - taken : 64;
        const __m512i text = _mm512_maskz_loadu_epi8(vel_avx512_mask(rest), utf8 + taken);
        if (rest == 64 && !_mm512_movepi8_mask(text)) {
            if (dest && room - written < 64)
                break;
            if (dest)
                vel_avx512_write_ascii(dest + written, text);
            taken += 64;
            written += 64;
            continue;
        }
        uint64_t first;
        if (!vel_avx512_check(text, &first))
            break;
        const size_t step = rest < 64 ? rest : vel_avx512_complete(utf8 + taken);
        first &= vel_avx512_mask(step);
        const auto count = static_cast<size_t>(_mm_popcnt_u64(first));
        if (dest && room - written < count)
            break;
        if (dest)
            vel_avx512_write_wide(dest + written, text, first, count);
        taken += step;
        written += count;
    }
    *writtenptr = written;
    return taken;
}

/* The bytes of 16 characters, in four places each, and which of these count. The fields of 6 bits
 * are picked first; then each first byte gets its mark, and all behind it the one for those. */
VEL_AVX512 static inline uint64_t vel_avx512_utf8_bytes(__m512i *bytesptr, __m512i wide)
{
    const __mmask16 from2 = _mm512_cmpge_epu32_mask(wide, _mm512_set1_epi32(0x80));
    const __mmask16 from3 = _mm512_cmpge_epu32_mask(wide, _mm512_set1_epi32(0x800));
    const __mmask16 from4 = _mm512_cmpge_epu32_mask(wide, _mm512_set1_epi32(0x10000));

    const __m512i shifts = _mm512_set1_epi64(0x20262c3200060c12);
    __m512i bytes = _mm512_multishift_epi64_epi8(shifts, wide);
    bytes = _mm512_and_si512(bytes, _mm512_set1_epi32(0x3f3f3f3f));
    __m512i marks = _mm512_set1_epi32(static_cast<int>(0x80c00000));
    marks = _mm512_mask_mov_epi32(marks, from3, _mm512_set1_epi32(static_cast<int>(0x8080e000)));
    marks = _mm512_mask_mov_epi32(marks, from4, _mm512_set1_epi32(static_cast<int>(0x808080f0)));
    bytes = _mm512_or_si512(bytes, marks);
    *bytesptr = _mm512_mask_blend_epi32(from2, _mm512_slli_epi32(wide, 24), bytes);
    return _mm512_movepi8_mask(*bytesptr) | UINT64_C(0x8888888888888888);
}

/* True if all are code points and none is a surrogate. */
VEL_AVX512 static inline bool vel_avx512_wide_valid(__m512i wide)
{
    const __m512i block = _mm512_and_si512(wide, _mm512_set1_epi32(~0x7ff));
    return !(_mm512_cmpgt_epu32_mask(wide, _mm512_set1_epi32(0x10ffff)) |
             _mm512_cmpeq_epi32_mask(block, _mm512_set1_epi32(0xd800)));
}

/* How many bytes 16 characters need. */
VEL_AVX512 static inline size_t vel_avx512_utf8_length(__m512i wide)
{
    const uint64_t from2 = _mm512_cmpge_epu32_mask(wide, _mm512_set1_epi32(0x80));
    const uint64_t from3 = _mm512_cmpge_epu32_mask(wide, _mm512_set1_epi32(0x800));
    const uint64_t from4 = _mm512_cmpge_epu32_mask(wide, _mm512_set1_epi32(0x10000));
    return static_cast<size_t>(16 + _mm_popcnt_u64(from2 | from3 << 16 | from4 << 32));
}

VEL_AVX512 static inline bool vel_avx512_wide_ascii(const wchar_t *wide)
{
    const __m512i all = _mm512_or_si512(
        _mm512_or_si512(_mm512_loadu_si512(wide), _mm512_loadu_si512(wide + 16)),
        _mm512_or_si512(_mm512_loadu_si512(wide + 32), _mm512_loadu_si512(wide + 48)));
    return !_mm512_test_epi32_mask(all, _mm512_set1_epi32(~0x7f));
}

VEL_AVX512 static inline void vel_avx512_write_narrow(char *dest, const wchar_t *wide)
{
    for (size_t done = 0; done < 64; done += 16)
        _mm_storeu_si128(static_cast<__m128i *>(static_cast<void *>(dest + done)),
                         _mm512_cvtepi32_epi8(_mm512_loadu_si512(wide + done)));
}

/* A short last step is filled up with NULs, whose bytes are then left out. */
VEL_AVX512 static size_t vel_avx512_to_utf8(char *dest, size_t room, const wchar_t *wide,
                                            size_t len, size_t *writtenptr)
{
    size_t taken = 0, written = 0;
    while (taken < len) {
        if (len - taken >= 64 && (!dest || room - written >= 64) &&
            vel_avx512_wide_ascii(wide + taken)) {
            if (dest)
                vel_avx512_write_narrow(dest + written, wide + taken);
            taken += 64;
            written += 64;
            continue;
        }
        const size_t rest = len - taken < 16 ? len - taken : 16;
        const auto mask = static_cast<__mmask16>(vel_avx512_mask(rest));
        const __m512i values = _mm512_maskz_loadu_epi32(mask, wide + taken);
        if (!vel_avx512_wide_valid(values))
            break;
        if (!dest) {
            written += vel_avx512_utf8_length(values) - (16 - rest);
        } else {
            __m512i bytes;
            const uint64_t keep = vel_avx512_utf8_bytes(&bytes, values) & vel_avx512_mask(rest * 4);
            const auto count = static_cast<size_t>(_mm_popcnt_u64(keep));
            if (room - written < count)
                break;
            _mm512_mask_storeu_epi8(dest + written, vel_avx512_mask(count),
                                    _mm512_maskz_compress_epi8(keep, bytes));
            written += count;
        }
        taken += rest;
    }
    *writtenptr = written;
    return taken;
}

static constexpr vel_widekernels vel_avx512_kernels = {
    "avx512",
    vel_avx512_usable,
    vel_avx512_to_wide,
    vel_avx512_to_utf8,
};

#endif
