#ifndef VELLIB_PLATFORM_TEXTKERNELS_AVX2_H
#define VELLIB_PLATFORM_TEXTKERNELS_AVX2_H

#include "platform/textkernels.h"
#include "platform/textkernels_plain.h"

#include <cstring>
#include <immintrin.h>

/* Kernels for AVX2, with 16 bytes in each of two lanes. The methods are those that W. Mula and
 * D. Lemire describe in "Faster Base64 Encoding and Decoding Using AVX2 Instructions".
 *
 * The two loops of base64 are bound by the look-up, as a byte shuffle looks up by four bits only:
 * a digit is found from its range, and the range from either nibble. */
#define VEL_AVX2 __attribute__((target("avx2")))

static bool vel_avx2_usable()
{
    return __builtin_cpu_supports("avx2");
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
VEL_AVX2 static inline __m256i vel_avx2_both(const int8_t (&table)[16])
{
    return _mm256_broadcastsi128_si256(
        _mm_loadu_si128(static_cast<const __m128i *>(static_cast<const void *>(table))));
}

/* Spreads 12 bytes of each lane to 16 values of 6 bits. */
VEL_AVX2 static inline __m256i vel_avx2_base64_split(__m256i bytes)
{
    static constexpr int8_t spread[16] = {1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10};

    __m256i groups = _mm256_shuffle_epi8(bytes, vel_avx2_both(spread));
    __m256i outer = _mm256_mulhi_epu16(_mm256_and_si256(groups, _mm256_set1_epi32(0x0fc0fc00)),
                                       _mm256_set1_epi32(0x04000040));
    __m256i inner = _mm256_mullo_epi16(_mm256_and_si256(groups, _mm256_set1_epi32(0x003f03f0)),
                                       _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(outer, inner);
}

/* The digits of values. Ranges: 13 "A" to "Z", 0 "a" to "z", 1 to 10 the digits, 11 "+", 12 "/". */
VEL_AVX2 static inline __m256i vel_avx2_base64_digits(__m256i values)
{
    static constexpr int8_t offset[16] = {
        'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
        '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A',      0,        0,
    };

    __m256i range = _mm256_subs_epu8(values, _mm256_set1_epi8(51));
    __m256i upper = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
    range = _mm256_or_si256(range, _mm256_and_si256(upper, _mm256_set1_epi8(13)));
    return _mm256_add_epi8(values, _mm256_shuffle_epi8(vel_avx2_both(offset), range));
}

/* The second load reaches 28 bytes for 24 that are used. */
VEL_AVX2 static size_t vel_avx2_base64_encode(char *dest, const uint8_t *source, size_t len)
{
    size_t taken = 0;
    for (; len - taken >= 28; taken += 24, dest += 32) {
        const uint8_t *from = source + taken;
        __m256i bytes =
            _mm256_loadu2_m128i(static_cast<const __m128i *>(static_cast<const void *>(from + 12)),
                                static_cast<const __m128i *>(static_cast<const void *>(from)));
        vel_avx2_store(dest, vel_avx2_base64_digits(vel_avx2_base64_split(bytes)));
    }
    return taken;
}

/* True if all 32 bytes are digits. Each set bit of the one table stands for a set of high nibbles
 * that the low nibble may not stand with; the other tells the sets that a high nibble is in. */
VEL_AVX2 static inline bool vel_avx2_base64_valid(__m256i digits)
{
    static constexpr int8_t bylow[16] = {0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                         0x11, 0x11, 0x13, 0x1a, 0x1b, 0x1b, 0x1b, 0x1a};
    static constexpr int8_t byhigh[16] = {0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08,
                                          0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10};

    __m256i nibble = _mm256_set1_epi8(0x0f);
    __m256i low = _mm256_and_si256(digits, nibble);
    __m256i high = _mm256_and_si256(_mm256_srli_epi32(digits, 4), nibble);
    return _mm256_testz_si256(_mm256_shuffle_epi8(vel_avx2_both(bylow), low),
                              _mm256_shuffle_epi8(vel_avx2_both(byhigh), high));
}

/* The values of 32 digits. The high nibble tells the range; "/" shares its with "+", and so takes
 * the unused range below. */
VEL_AVX2 static inline __m256i vel_avx2_base64_values(__m256i digits)
{
    static constexpr int8_t offset[16] = {0,    63 - '/', 62 - '+', 52 - '0',
                                          -'A', -'A',     26 - 'a', 26 - 'a'};

    __m256i high = _mm256_and_si256(_mm256_srli_epi32(digits, 4), _mm256_set1_epi8(0x0f));
    __m256i slash = _mm256_cmpeq_epi8(digits, _mm256_set1_epi8('/'));
    __m256i range = _mm256_add_epi8(high, slash);
    return _mm256_add_epi8(digits, _mm256_shuffle_epi8(vel_avx2_both(offset), range));
}

/* Joins 32 values to 24 bytes, which stand at the front. */
VEL_AVX2 static inline __m256i vel_avx2_base64_join(__m256i values)
{
    static constexpr int8_t pack[16] = {2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1};

    __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
    __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    __m256i lanes = _mm256_shuffle_epi8(groups, vel_avx2_both(pack));
    return _mm256_permutevar8x32_epi32(lanes, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
}

/* Two stores, as the block of the caller may end behind these 24 bytes. */
VEL_AVX2 static size_t vel_avx2_base64_decode(uint8_t *dest, const uint8_t *source, size_t len)
{
    size_t taken = 0;
    for (; len - taken >= 32; taken += 32, dest += 24) {
        __m256i digits = vel_avx2_load(source + taken);
        if (!vel_avx2_base64_valid(digits))
            break;
        __m256i bytes = vel_avx2_base64_join(vel_avx2_base64_values(digits));
        _mm_storeu_si128(static_cast<__m128i *>(static_cast<void *>(dest)),
                         _mm256_castsi256_si128(bytes));
        _mm_storel_epi64(static_cast<__m128i *>(static_cast<void *>(dest + 16)),
                         _mm256_extracti128_si256(bytes, 1));
    }
    return taken;
}

VEL_AVX2 static size_t vel_avx2_hex_encode(char *dest, const uint8_t *source, size_t len)
{
    static constexpr int8_t digits[16] = {'0', '1', '2', '3', '4', '5', '6', '7',
                                          '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};

    __m256i nibble = _mm256_set1_epi8(0x0f);
    size_t taken = 0;
    for (; len - taken >= 32; taken += 32, dest += 64) {
        __m256i bytes = vel_avx2_load(source + taken);
        __m256i high = _mm256_and_si256(_mm256_srli_epi16(bytes, 4), nibble);
        high = _mm256_shuffle_epi8(vel_avx2_both(digits), high);
        __m256i low = _mm256_shuffle_epi8(vel_avx2_both(digits), _mm256_and_si256(bytes, nibble));
        __m256i front = _mm256_unpacklo_epi8(high, low);
        __m256i back = _mm256_unpackhi_epi8(high, low);
        vel_avx2_store(dest, _mm256_permute2x128_si256(front, back, 0x20));
        vel_avx2_store(dest + 32, _mm256_permute2x128_si256(front, back, 0x31));
    }
    return taken;
}

/* The values of 32 digits; what is none gets one above 15. Each of two candidates is far too large
 * where the other is right: "0" to "9" wrap to 0xf6 and up, and letters of either case come down to
 * 0 to 5. */
VEL_AVX2 static inline __m256i vel_avx2_hex_values(__m256i text)
{
    __m256i figure = _mm256_add_epi8(text, _mm256_set1_epi8(0xff - '9' - 0x100));
    figure = _mm256_sub_epi8(_mm256_subs_epu8(figure, _mm256_set1_epi8(6)),
                             _mm256_set1_epi8(static_cast<char>(0xf0)));
    __m256i letter = _mm256_and_si256(text, _mm256_set1_epi8(static_cast<char>(0xdf)));
    letter = _mm256_sub_epi8(letter, _mm256_set1_epi8('A'));
    letter = _mm256_adds_epu8(letter, _mm256_set1_epi8(10));
    return _mm256_min_epu8(figure, letter);
}

VEL_AVX2 static size_t vel_avx2_hex_decode(uint8_t *dest, const uint8_t *source, size_t len)
{
    size_t taken = 0;
    for (; len - taken >= 32; taken += 32, dest += 16) {
        __m256i values = vel_avx2_hex_values(vel_avx2_load(source + taken));
        if (_mm256_movemask_epi8(_mm256_adds_epu8(values, _mm256_set1_epi8(127 - 15))))
            break;
        __m256i bytes = _mm256_maddubs_epi16(values, _mm256_set1_epi16(0x0110));
        bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(bytes, bytes), 0x08);
        _mm_storeu_si128(static_cast<__m128i *>(static_cast<void *>(dest)),
                         _mm256_castsi256_si128(bytes));
    }
    return taken;
}

/* For each mask of 8 bytes, the indexes of those that stay, at the front. */
struct vel_avx2_pack_table {
    uint8_t indexes[256][8];
};

static constexpr vel_avx2_pack_table vel_avx2_fill_pack()
{
    vel_avx2_pack_table table = {};
    for (unsigned mask = 0; mask < 256; mask++)
        for (unsigned i = 0, count = 0; i < 8; i++)
            if (mask >> i & 1)
                table.indexes[mask][count++] = static_cast<uint8_t>(i);
    return table;
}

static constexpr auto vel_avx2_pack = vel_avx2_fill_pack();

/* Moves the bytes of the mask to the front of dest, which has room for all 32. */
VEL_AVX2 static inline void vel_avx2_compress(uint8_t *dest, __m256i bytes, uint32_t mask)
{
    uint8_t all[32];
    vel_avx2_store(all, bytes);
    for (const uint8_t *from = all; from < all + 32; from += 8, mask >>= 8) {
        __m128i eight =
            _mm_loadl_epi64(static_cast<const __m128i *>(static_cast<const void *>(from)));
        const uint8_t *indexes = vel_avx2_pack.indexes[mask & 0xff];
        __m128i order =
            _mm_loadl_epi64(static_cast<const __m128i *>(static_cast<const void *>(indexes)));
        _mm_storel_epi64(static_cast<__m128i *>(static_cast<void *>(dest)),
                         _mm_shuffle_epi8(eight, order));
        dest += __builtin_popcount(mask & 0xff);
    }
}

/* Each place is decoded as if an escape stood there; the "%" choose. Both digits of one may stand
 * behind the step, which is that much longer then. */
VEL_AVX2 static size_t vel_avx2_percent_decode(uint8_t *dest, size_t room, const uint8_t *source,
                                               size_t len, size_t *countptr)
{
    const __m256i zero = _mm256_setzero_si256(), space = _mm256_set1_epi8(' ');
    size_t taken = 0, count = 0;
    while (len - taken >= 34) {
        __m256i text = vel_avx2_load(source + taken);
        __m256i high = vel_avx2_hex_values(vel_avx2_load(source + taken + 1));
        __m256i low = vel_avx2_hex_values(vel_avx2_load(source + taken + 2));
        __m256i isescape = _mm256_cmpeq_epi8(text, _mm256_set1_epi8('%'));
        auto escapes = static_cast<uint32_t>(_mm256_movemask_epi8(isescape));
        __m256i excess = _mm256_subs_epu8(_mm256_max_epu8(high, low), _mm256_set1_epi8(15));
        __m256i good = _mm256_cmpeq_epi8(excess, zero);
        if (escapes & ~static_cast<uint32_t>(_mm256_movemask_epi8(good)))
            break;

        const uint32_t keep = ~(escapes << 1 | escapes << 2);
        const auto kept = static_cast<size_t>(__builtin_popcount(keep));
        if (dest) {
            if (room - count < kept)
                break;
            high = _mm256_slli_epi16(_mm256_and_si256(high, _mm256_set1_epi8(15)), 4);
            __m256i isplus = _mm256_cmpeq_epi8(text, _mm256_set1_epi8('+'));
            __m256i bytes = _mm256_blendv_epi8(text, space, isplus);
            bytes = _mm256_blendv_epi8(bytes, _mm256_or_si256(high, low), isescape);
            uint8_t packed[32 + 8];
            vel_avx2_compress(packed, bytes, keep);
            memcpy(dest + count, packed, kept);
        }
        count += kept;
        taken += 32 + (escapes >> 31) * 2 + (escapes >> 30 & 1);
    }
    *countptr = count;
    return taken;
}

static constexpr vel_textkernels vel_avx2_kernels = {
    "avx2",
    vel_avx2_usable,
    vel_avx2_base64_encode,
    vel_avx2_base64_decode,
    vel_avx2_hex_encode,
    vel_avx2_hex_decode,
    vel_plain_percent_encode, /* a plain loop without branches does well */
    vel_avx2_percent_decode,
};

#endif
