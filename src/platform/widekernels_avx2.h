#ifndef VELLIB_PLATFORM_WIDEKERNELS_AVX2_H
#define VELLIB_PLATFORM_WIDEKERNELS_AVX2_H

#include "platform/widekernels.h"

#include <cstdint>
#include <cstring>
#include <immintrin.h>

/* Kernels for AVX2. UTF-8 is checked by the method of J. Keiser and D. Lemire in "Validating UTF-8
 * In Less Than One Instruction Per Byte"; the mask of the first bytes then leads from character to
 * character, so that no step waits for the length of the character before it. */
#define VEL_AVX2 __attribute__((target("avx2,bmi,popcnt")))

static bool vel_avx2_usable()
{
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
           __builtin_cpu_supports("popcnt");
}

VEL_AVX2 static inline __m256i vel_avx2_load(const void *source)
{
    return _mm256_loadu_si256(static_cast<const __m256i *>(source));
}

VEL_AVX2 static inline void vel_avx2_store(void *dest, __m256i value)
{
    _mm256_storeu_si256(static_cast<__m256i *>(dest), value);
}

/* The same 16 bytes in both lanes. */
VEL_AVX2 static inline __m256i vel_avx2_both(const uint8_t (&table)[16])
{
    return _mm256_broadcastsi128_si256(
        _mm_loadu_si128(static_cast<const __m128i *>(static_cast<const void *>(table))));
}

/* What can be wrong with a byte and the one before it; a fault is one that both nibbles of the
 * one before and the high nibble of the byte agree on. Two further bytes in a row are no fault
 * where a third or fourth byte is due. */
enum : uint8_t {
    VEL_AVX2_SHORT = 0x01,     /* a further byte is missing */
    VEL_AVX2_LONG = 0x02,      /* one too many behind a single byte */
    VEL_AVX2_OVERLONG3 = 0x04, /* 0xe0 and a second byte below 0xa0 */
    VEL_AVX2_LARGE = 0x08,     /* 0xf4 and a second byte from 0x90 on, or a larger first byte */
    VEL_AVX2_SURROGATE = 0x10, /* 0xed and a second byte from 0xa0 on */
    VEL_AVX2_OVERLONG2 = 0x20, /* 0xc0 or 0xc1 */
    VEL_AVX2_OVERLONG4 = 0x40, /* 0xf0, or one above 0xf4, and a second byte below 0x90 */
    VEL_AVX2_FURTHER = 0x80,   /* two further bytes in a row */
    VEL_AVX2_ANY = VEL_AVX2_SHORT | VEL_AVX2_LONG | VEL_AVX2_FURTHER,
    VEL_AVX2_ABOVE = VEL_AVX2_ANY | VEL_AVX2_LARGE | VEL_AVX2_OVERLONG4,
};

static constexpr uint8_t vel_avx2_before_high[16] = {
    VEL_AVX2_LONG,
    VEL_AVX2_LONG,
    VEL_AVX2_LONG,
    VEL_AVX2_LONG,
    VEL_AVX2_LONG,
    VEL_AVX2_LONG,
    VEL_AVX2_LONG,
    VEL_AVX2_LONG,
    VEL_AVX2_FURTHER,
    VEL_AVX2_FURTHER,
    VEL_AVX2_FURTHER,
    VEL_AVX2_FURTHER,
    VEL_AVX2_SHORT | VEL_AVX2_OVERLONG2,
    VEL_AVX2_SHORT,
    VEL_AVX2_SHORT | VEL_AVX2_OVERLONG3 | VEL_AVX2_SURROGATE,
    VEL_AVX2_SHORT | VEL_AVX2_LARGE | VEL_AVX2_OVERLONG4,
};

static constexpr uint8_t vel_avx2_before_low[16] = {
    VEL_AVX2_ANY | VEL_AVX2_OVERLONG3 | VEL_AVX2_OVERLONG2 | VEL_AVX2_OVERLONG4,
    VEL_AVX2_ANY | VEL_AVX2_OVERLONG2,
    VEL_AVX2_ANY,
    VEL_AVX2_ANY,
    VEL_AVX2_ANY | VEL_AVX2_LARGE,
    VEL_AVX2_ABOVE,
    VEL_AVX2_ABOVE,
    VEL_AVX2_ABOVE,
    VEL_AVX2_ABOVE,
    VEL_AVX2_ABOVE,
    VEL_AVX2_ABOVE,
    VEL_AVX2_ABOVE,
    VEL_AVX2_ABOVE,
    VEL_AVX2_ABOVE | VEL_AVX2_SURROGATE,
    VEL_AVX2_ABOVE,
    VEL_AVX2_ABOVE,
};

static constexpr uint8_t vel_avx2_after_common =
    VEL_AVX2_LONG | VEL_AVX2_OVERLONG2 | VEL_AVX2_FURTHER;

static constexpr uint8_t vel_avx2_byte_high[16] = {
    VEL_AVX2_SHORT,
    VEL_AVX2_SHORT,
    VEL_AVX2_SHORT,
    VEL_AVX2_SHORT,
    VEL_AVX2_SHORT,
    VEL_AVX2_SHORT,
    VEL_AVX2_SHORT,
    VEL_AVX2_SHORT,
    vel_avx2_after_common | VEL_AVX2_OVERLONG3 | VEL_AVX2_OVERLONG4,
    vel_avx2_after_common | VEL_AVX2_OVERLONG3 | VEL_AVX2_LARGE,
    vel_avx2_after_common | VEL_AVX2_SURROGATE | VEL_AVX2_LARGE,
    vel_avx2_after_common | VEL_AVX2_SURROGATE | VEL_AVX2_LARGE,
    VEL_AVX2_SHORT,
    VEL_AVX2_SHORT,
    VEL_AVX2_SHORT,
    VEL_AVX2_SHORT,
};

VEL_AVX2 static inline __m256i vel_avx2_high(__m256i bytes)
{
    return _mm256_and_si256(_mm256_srli_epi16(bytes, 4), _mm256_set1_epi8(0x0f));
}

/* Zero if the bytes are valid behind those before them, as far as these 32 can tell. */
VEL_AVX2 static inline __m256i vel_avx2_faults(__m256i before, __m256i text)
{
    const __m256i lanes = _mm256_permute2x128_si256(before, text, 0x21);
    const __m256i one = _mm256_alignr_epi8(text, lanes, 15);
    const __m256i two = _mm256_alignr_epi8(text, lanes, 14);
    const __m256i three = _mm256_alignr_epi8(text, lanes, 13);

    const __m256i low = _mm256_and_si256(one, _mm256_set1_epi8(0x0f));
    __m256i pairs = _mm256_shuffle_epi8(vel_avx2_both(vel_avx2_before_high), vel_avx2_high(one));
    pairs = _mm256_and_si256(pairs, _mm256_shuffle_epi8(vel_avx2_both(vel_avx2_before_low), low));
    pairs = _mm256_and_si256(
        pairs, _mm256_shuffle_epi8(vel_avx2_both(vel_avx2_byte_high), vel_avx2_high(text)));
    const __m256i due = _mm256_or_si256(_mm256_subs_epu8(two, _mm256_set1_epi8(0xe0 - 0x80)),
                                        _mm256_subs_epu8(three, _mm256_set1_epi8(0xf0 - 0x80)));
    return _mm256_xor_si256(_mm256_and_si256(due, _mm256_set1_epi8(-0x80)), pairs);
}

VEL_AVX2 static inline uint64_t vel_avx2_bits(__m256i front, __m256i back)
{
    return static_cast<uint32_t>(_mm256_movemask_epi8(front)) |
           static_cast<uint64_t>(static_cast<uint32_t>(_mm256_movemask_epi8(back))) << 32;
}

/* How many of 64 valid bytes belong to characters that are complete. */
static inline size_t vel_avx2_complete(const char *utf8)
{
    static constexpr unsigned char cut[] = {0, 0xc0, 0xe0, 0xf0};
    for (size_t back = 1; back <= 3; back++)
        if (static_cast<unsigned char>(utf8[64 - back]) >= cut[back])
            return 64 - back;
    return 64;
}

/* The characters whose bytes are given in the order of the text: the bytes behind each are shifted
 * out and the marks cut off; what is left is 6 bits a byte, or 7 in a single one. The tables are
 * looked up by the low three bits, with all single bytes as 0. */
VEL_AVX2 static inline __m256i vel_avx2_characters(__m256i bytes)
{
    static constexpr uint8_t order[16] = {3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12};

    bytes = _mm256_shuffle_epi8(bytes, vel_avx2_both(order));
    const __m256i kind = _mm256_max_epu32(_mm256_srli_epi32(bytes, 28), _mm256_set1_epi32(8));
    const __m256i shift = _mm256_setr_epi32(24, 24, 24, 24, 16, 16, 8, 0);
    const __m256i bits =
        _mm256_setr_epi32(0x7f, 0x7f, 0x7f, 0x7f, 0x1f3f, 0x1f3f, 0x0f3f3f, 0x073f3f3f);
    bytes = _mm256_srlv_epi32(bytes, _mm256_permutevar8x32_epi32(shift, kind));
    bytes = _mm256_and_si256(bytes, _mm256_permutevar8x32_epi32(bits, kind));
    const __m256i pairs = _mm256_maddubs_epi16(bytes, _mm256_set1_epi32(0x40014001));
    return _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x10000001));
}

/* The four bytes from the place of the lowest bit on, which is then taken away. With no bit left
 * they are those behind the step. */
VEL_AVX2 static inline int vel_avx2_next(const char *utf8, uint64_t *firstptr)
{
    int bytes;
    memcpy(&bytes, utf8 + _tzcnt_u64(*firstptr), sizeof(bytes));
    *firstptr = _blsr_u64(*firstptr);
    return bytes;
}

/* Writes the count characters of a step. */
VEL_AVX2 static inline void vel_avx2_write_wide(wchar_t *dest, const char *utf8, uint64_t first,
                                                size_t count)
{
    for (size_t done = 0; done < count; done += 8) {
        __m128i front = _mm_cvtsi32_si128(vel_avx2_next(utf8, &first));
        front = _mm_insert_epi32(front, vel_avx2_next(utf8, &first), 1);
        front = _mm_insert_epi32(front, vel_avx2_next(utf8, &first), 2);
        front = _mm_insert_epi32(front, vel_avx2_next(utf8, &first), 3);
        __m128i back = _mm_cvtsi32_si128(vel_avx2_next(utf8, &first));
        back = _mm_insert_epi32(back, vel_avx2_next(utf8, &first), 1);
        back = _mm_insert_epi32(back, vel_avx2_next(utf8, &first), 2);
        back = _mm_insert_epi32(back, vel_avx2_next(utf8, &first), 3);
        const __m256i wide =
            vel_avx2_characters(_mm256_inserti128_si256(_mm256_castsi128_si256(front), back, 1));
        if (count - done >= 8) {
            vel_avx2_store(dest + done, wide);
        } else {
            const __m256i number = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
            const __m256i left = _mm256_set1_epi32(static_cast<int>(count - done));
            _mm256_maskstore_epi32(static_cast<int *>(static_cast<void *>(dest + done)),
                                   _mm256_cmpgt_epi32(left, number), wide);
        }
    }
}

VEL_AVX2 static inline void vel_avx2_write_ascii(wchar_t *dest, const char *utf8)
{
    for (size_t done = 0; done < 64; done += 8)
        vel_avx2_store(dest + done,
                       _mm256_cvtepu8_epi32(_mm_loadl_epi64(
                           static_cast<const __m128i *>(static_cast<const void *>(utf8 + done)))));
}

/* A step takes up to 64 bytes, and the last load of vel_avx2_next reads four behind them. */
VEL_AVX2 static size_t vel_avx2_to_wide(wchar_t *dest, size_t room, const char *utf8, size_t len,
                                        size_t *writtenptr)
{
    size_t taken = 0, written = 0;
    while (len - taken >= 68 && (!dest || room - written >= 64)) {
        const char *from = utf8 + taken;
        const __m256i front = vel_avx2_load(from), back = vel_avx2_load(from + 32);
        if (!_mm256_movemask_epi8(_mm256_or_si256(front, back))) {
            if (dest)
                vel_avx2_write_ascii(dest + written, from);
            taken += 64;
            written += 64;
            continue;
        }
        const __m256i faults = _mm256_or_si256(vel_avx2_faults(_mm256_setzero_si256(), front),
                                               vel_avx2_faults(front, back));
        if (!_mm256_testz_si256(faults, faults))
            break;
        const size_t steplen = vel_avx2_complete(from);
        const __m256i further = _mm256_set1_epi8(-0x40);
        const uint64_t first =
            ~vel_avx2_bits(_mm256_cmpgt_epi8(further, front), _mm256_cmpgt_epi8(further, back)) &
            ~UINT64_C(0) >> (64 - steplen);
        const auto count = static_cast<size_t>(_mm_popcnt_u64(first));
        if (dest)
            vel_avx2_write_wide(dest + written, from, first, count);
        taken += steplen;
        written += count;
    }
    *writtenptr = written;
    return taken;
}

/* True if all are code points and none is a surrogate. */
VEL_AVX2 static inline bool vel_avx2_wide_valid(__m256i wide)
{
    const __m256i limit = _mm256_set1_epi32(0x10ffff);
    const __m256i fits = _mm256_cmpeq_epi32(_mm256_max_epu32(wide, limit), limit);
    const __m256i block = _mm256_and_si256(wide, _mm256_set1_epi32(~0x7ff));
    const __m256i surrogate = _mm256_cmpeq_epi32(block, _mm256_set1_epi32(0xd800));
    return _mm256_movemask_epi8(_mm256_andnot_si256(surrogate, fits)) == -1;
}

/* How many bytes each of 8 characters needs. */
VEL_AVX2 static inline __m256i vel_avx2_utf8_lengths(__m256i wide)
{
    __m256i lengths = _mm256_set1_epi32(1);
    lengths = _mm256_sub_epi32(lengths, _mm256_cmpgt_epi32(wide, _mm256_set1_epi32(0x7f)));
    lengths = _mm256_sub_epi32(lengths, _mm256_cmpgt_epi32(wide, _mm256_set1_epi32(0x7ff)));
    return _mm256_sub_epi32(lengths, _mm256_cmpgt_epi32(wide, _mm256_set1_epi32(0xffff)));
}

/* The mask of those of 8 characters that are above a limit. */
VEL_AVX2 static inline unsigned vel_avx2_above(__m256i wide, int limit)
{
    const __m256i above = _mm256_cmpgt_epi32(wide, _mm256_set1_epi32(limit));
    return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(above)));
}

/* How many bytes 8 characters need. */
VEL_AVX2 static inline size_t vel_avx2_utf8_length(__m256i wide)
{
    const unsigned further = vel_avx2_above(wide, 0x7f) | vel_avx2_above(wide, 0x7ff) << 8 |
                             vel_avx2_above(wide, 0xffff) << 16;
    return 8 + static_cast<size_t>(_mm_popcnt_u32(further));
}

/* The bytes of 8 characters, each from the front of its four places on. They are made at the
 * back, where the fields of 6 bits have fixed places, and then moved. */
VEL_AVX2 static inline __m256i vel_avx2_utf8_bytes(__m256i wide, __m256i lengths)
{
    const __m256i six = _mm256_set1_epi32(0x3f);
    __m256i bytes = _mm256_slli_epi32(_mm256_and_si256(wide, six), 24);
    __m256i field = _mm256_and_si256(_mm256_srli_epi32(wide, 6), six);
    bytes = _mm256_or_si256(bytes, _mm256_slli_epi32(field, 16));
    field = _mm256_and_si256(_mm256_srli_epi32(wide, 12), six);
    bytes = _mm256_or_si256(bytes, _mm256_slli_epi32(field, 8));
    bytes = _mm256_or_si256(bytes, _mm256_srli_epi32(wide, 18));

    const __m256i marks = _mm256_permutevar8x32_epi32(
        _mm256_setr_epi32(0, 0, static_cast<int>(0x80c00000), static_cast<int>(0x8080e000),
                          static_cast<int>(0x808080f0), 0, 0, 0),
        lengths);
    bytes = _mm256_or_si256(bytes, marks);
    const __m256i single = _mm256_cmpeq_epi32(lengths, _mm256_set1_epi32(1));
    bytes = _mm256_blendv_epi8(bytes, _mm256_slli_epi32(wide, 24), single);
    return _mm256_srlv_epi32(bytes,
                             _mm256_slli_epi32(_mm256_sub_epi32(_mm256_set1_epi32(4), lengths), 3));
}

/* Writes 8 characters, four bytes each, of which the next one overwrites those that do not count. */
VEL_AVX2 static inline size_t vel_avx2_write_utf8(char *dest, __m256i bytes, __m256i lengths)
{
    uint32_t words[8], lens[8];
    vel_avx2_store(words, bytes);
    vel_avx2_store(lens, lengths);
    size_t written = 0;
    for (size_t i = 0; i < 8; i++) {
        memcpy(dest + written, &words[i], sizeof(words[i]));
        written += lens[i];
    }
    return written;
}

VEL_AVX2 static size_t vel_avx2_to_utf8(char *dest, size_t room, const wchar_t *wide, size_t len,
                                        size_t *writtenptr)
{
    size_t taken = 0, written = 0;
    for (; len - taken >= 8 && (!dest || room - written >= 32); taken += 8) {
        const __m256i values = vel_avx2_load(wide + taken);
        if (_mm256_testz_si256(values, _mm256_set1_epi32(~0x7f))) {
            if (dest) {
                const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(values),
                                                       _mm256_extracti128_si256(values, 1));
                _mm_storel_epi64(static_cast<__m128i *>(static_cast<void *>(dest + written)),
                                 _mm_packus_epi16(words, words));
            }
            written += 8;
            continue;
        }
        if (!vel_avx2_wide_valid(values))
            break;
        if (!dest) {
            written += vel_avx2_utf8_length(values);
            continue;
        }
        const __m256i lengths = vel_avx2_utf8_lengths(values);
        written +=
            vel_avx2_write_utf8(dest + written, vel_avx2_utf8_bytes(values, lengths), lengths);
    }
    *writtenptr = written;
    return taken;
}

static constexpr vel_widekernels vel_avx2_kernels = {
    "avx2",
    vel_avx2_usable,
    vel_avx2_to_wide,
    vel_avx2_to_utf8,
};

#endif
