#ifndef VELLIB_PLATFORM_SHAKERNELS_SHANI_H
#define VELLIB_PLATFORM_SHAKERNELS_SHANI_H

/* The block steps in the SHA instructions of x86, which do four rounds of SHA-1, or two of
 * SHA-256, at once. Of the message schedule only the last sixteen words are kept: four registers
 * in a ring. */

#include <cpuid.h>
#include <immintrin.h>

#include "platform/shakernels.h"
#include "platform/shakernels_plain.h"

#define VEL_TARGET_SHANI __attribute__((target("sha,sse4.1,ssse3")))

VEL_TARGET_SHANI static inline __m128i vel_shani_load(const void *address)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(address));
}

VEL_TARGET_SHANI static inline void vel_shani_store(void *address, __m128i value)
{
    _mm_storeu_si128(static_cast<__m128i *>(address), value);
}

/* Rounds 4 r to 4 r + 3 with function f. E of the next four is A of these, rotated, which is what
 * sha1nexte adds. */
template <int f>
VEL_TARGET_SHANI static inline void vel_shani_sha1_rounds(int r, __m128i *w, __m128i &abcd,
                                                          __m128i &before, __m128i e0)
{
    if (r >= 4) {
        const __m128i far =
            _mm_xor_si128(_mm_sha1msg1_epu32(w[r & 3], w[(r + 1) & 3]), w[(r + 2) & 3]);
        w[r & 3] = _mm_sha1msg2_epu32(far, w[(r + 3) & 3]);
    }
    const __m128i e = r == 0 ? _mm_add_epi32(e0, w[0]) : _mm_sha1nexte_epu32(before, w[r & 3]);
    before = abcd;
    abcd = _mm_sha1rnds4_epu32(abcd, e, f);
}

template <int f>
VEL_TARGET_SHANI static inline void vel_shani_sha1_twenty(__m128i *w, __m128i &abcd,
                                                          __m128i &before, __m128i e0)
{
    vel_shani_sha1_rounds<f>(5 * f, w, abcd, before, e0);
    vel_shani_sha1_rounds<f>(5 * f + 1, w, abcd, before, e0);
    vel_shani_sha1_rounds<f>(5 * f + 2, w, abcd, before, e0);
    vel_shani_sha1_rounds<f>(5 * f + 3, w, abcd, before, e0);
    vel_shani_sha1_rounds<f>(5 * f + 4, w, abcd, before, e0);
}

VEL_TARGET_SHANI static inline void vel_shani_sha1(uint32_t *h, const uint8_t *blocks, size_t count)
{
    const __m128i swap = _mm_set_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f);
    __m128i abcd = _mm_shuffle_epi32(vel_shani_load(h), 0x1b);
    __m128i e0 = _mm_set_epi32(static_cast<int>(h[4]), 0, 0, 0);

    for (; count > 0; count--, blocks += 64) {
        const __m128i oldabcd = abcd;
        __m128i before = abcd;
        __m128i w[4];
#pragma GCC unroll 4
        for (int i = 0; i < 4; i++)
            w[i] = _mm_shuffle_epi8(vel_shani_load(blocks + 16 * i), swap);
        vel_shani_sha1_twenty<0>(w, abcd, before, e0);
        vel_shani_sha1_twenty<1>(w, abcd, before, e0);
        vel_shani_sha1_twenty<2>(w, abcd, before, e0);
        vel_shani_sha1_twenty<3>(w, abcd, before, e0);
        e0 = _mm_sha1nexte_epu32(before, e0);
        abcd = _mm_add_epi32(abcd, oldabcd);
    }
    vel_shani_store(h, _mm_shuffle_epi32(abcd, 0x1b));
    h[4] = static_cast<uint32_t>(_mm_extract_epi32(e0, 3));
}

/* Rounds 4 r to 4 r + 3. */
VEL_TARGET_SHANI static inline void vel_shani_sha256_rounds(int r, __m128i *w, __m128i &abef,
                                                            __m128i &cdgh)
{
    if (r >= 4) {
        const __m128i last = w[(r + 3) & 3];
        const __m128i far = _mm_add_epi32(_mm_sha256msg1_epu32(w[r & 3], w[(r + 1) & 3]),
                                          _mm_alignr_epi8(last, w[(r + 2) & 3], 4));
        w[r & 3] = _mm_sha256msg2_epu32(far, last);
    }
    const __m128i kw = _mm_add_epi32(w[r & 3], vel_shani_load(vel_sha256_k + 4 * r));
    cdgh = _mm_sha256rnds2_epu32(cdgh, abef, kw);
    abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(kw, 0x0e));
}

VEL_TARGET_SHANI static inline void vel_shani_sha256(uint32_t *h, const uint8_t *blocks,
                                                     size_t count)
{
    const __m128i swap = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
    const __m128i cdab = _mm_shuffle_epi32(vel_shani_load(h), 0xb1);
    const __m128i efgh = _mm_shuffle_epi32(vel_shani_load(h + 4), 0x1b);
    __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
    __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xf0);

    for (; count > 0; count--, blocks += 64) {
        const __m128i oldabef = abef;
        const __m128i oldcdgh = cdgh;
        __m128i w[4];
#pragma GCC unroll 4
        for (int i = 0; i < 4; i++)
            w[i] = _mm_shuffle_epi8(vel_shani_load(blocks + 16 * i), swap);
#pragma GCC unroll 16
        for (int r = 0; r < 16; r++)
            vel_shani_sha256_rounds(r, w, abef, cdgh);
        abef = _mm_add_epi32(abef, oldabef);
        cdgh = _mm_add_epi32(cdgh, oldcdgh);
    }
    const __m128i feba = _mm_shuffle_epi32(abef, 0x1b);
    const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xb1);
    vel_shani_store(h, _mm_blend_epi16(feba, dchg, 0xf0));
    vel_shani_store(h + 4, _mm_alignr_epi8(dchg, feba, 8));
}

/* __builtin_cpu_supports does not know the SHA instructions in every compiler. */
static inline bool vel_shani_usable()
{
    unsigned int a, b, c, d;
    if (!__builtin_cpu_supports("sse4.1") || !__builtin_cpu_supports("ssse3"))
        return false;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) && (b & (1u << 29)) != 0;
}

inline constexpr vel_shakernels vel_shani_kernels = {"SHA-NI", vel_shani_usable, vel_shani_sha1,
                                                     vel_shani_sha256};

#endif
