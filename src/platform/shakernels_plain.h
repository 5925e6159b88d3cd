#ifndef VELLIB_PLATFORM_SHAKERNELS_PLAIN_H
#define VELLIB_PLATFORM_SHAKERNELS_PLAIN_H

/* The block steps for every processor. Rounds come in turns after which each variable has its old
 * part again, so that none is ever moved. Of the message schedule only the last sixteen words are
 * kept, in a ring. */

#include <bit>

#include "platform/shakernels.h"

alignas(16) inline constexpr uint32_t vel_sha256_k[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2,
};

static inline uint32_t vel_sha_load(const uint8_t *bytes)
{
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

/* The function and the constant of each twenty rounds. */
struct vel_sha1_choose {
    static constexpr uint32_t k = 0x5a827999;
    static uint32_t f(uint32_t b, uint32_t c, uint32_t d)
    {
        return d ^ (b & (c ^ d));
    }
};
struct vel_sha1_parity {
    static constexpr uint32_t k = 0x6ed9eba1;
    static uint32_t f(uint32_t b, uint32_t c, uint32_t d)
    {
        return b ^ c ^ d;
    }
};
struct vel_sha1_majority {
    static constexpr uint32_t k = 0x8f1bbcdc;
    static uint32_t f(uint32_t b, uint32_t c, uint32_t d)
    {
        return (b & c) | (d & (b | c));
    }
};
struct vel_sha1_last_parity : vel_sha1_parity {
    static constexpr uint32_t k = 0xca62c1d6;
};

template <int t, typename Part>
static inline void vel_sha1_round(uint32_t a, uint32_t &b, uint32_t c, uint32_t d, uint32_t &e,
                                  uint32_t *w)
{
    if constexpr (t >= 16)
        w[t % 16] = std::rotl(w[(t - 3) % 16] ^ w[(t - 8) % 16] ^ w[(t - 14) % 16] ^ w[t % 16], 1);
    e += std::rotl(a, 5) + Part::f(b, c, d) + Part::k + w[t % 16];
    b = std::rotl(b, 30);
}

/* Rounds from t to end. */
template <int t, int end, typename Part>
static inline void vel_sha1_rounds(uint32_t &a, uint32_t &b, uint32_t &c, uint32_t &d, uint32_t &e,
                                   uint32_t *w)
{
    vel_sha1_round<t, Part>(a, b, c, d, e, w);
    vel_sha1_round<t + 1, Part>(e, a, b, c, d, w);
    vel_sha1_round<t + 2, Part>(d, e, a, b, c, w);
    vel_sha1_round<t + 3, Part>(c, d, e, a, b, w);
    vel_sha1_round<t + 4, Part>(b, c, d, e, a, w);
    if constexpr (t + 5 < end)
        vel_sha1_rounds<t + 5, end, Part>(a, b, c, d, e, w);
}

static inline void vel_sha1_plain(uint32_t *h, const uint8_t *blocks, size_t count)
{
    for (; count > 0; count--, blocks += 64) {
        uint32_t w[16];
        for (int i = 0; i < 16; i++)
            w[i] = vel_sha_load(blocks + 4 * i);

        uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
        vel_sha1_rounds<0, 20, vel_sha1_choose>(a, b, c, d, e, w);
        vel_sha1_rounds<20, 40, vel_sha1_parity>(a, b, c, d, e, w);
        vel_sha1_rounds<40, 60, vel_sha1_majority>(a, b, c, d, e, w);
        vel_sha1_rounds<60, 80, vel_sha1_last_parity>(a, b, c, d, e, w);
        h[0] += a;
        h[1] += b;
        h[2] += c;
        h[3] += d;
        h[4] += e;
    }
}

/* Round t + i, t being that of the first of sixteen. The words of the first sixteen are there. */
template <int i>
static inline void vel_sha256_round(uint32_t a, uint32_t b, uint32_t c, uint32_t &d, uint32_t e,
                                    uint32_t f, uint32_t g, uint32_t &h, uint32_t *w, int t)
{
    if (t > 0) {
        const uint32_t w15 = w[(i + 1) % 16];
        const uint32_t w2 = w[(i + 14) % 16];
        w[i] += (std::rotr(w15, 7) ^ std::rotr(w15, 18) ^ (w15 >> 3)) + w[(i + 9) % 16] +
                (std::rotr(w2, 17) ^ std::rotr(w2, 19) ^ (w2 >> 10));
    }
    const uint32_t sum1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
    const uint32_t sum0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
    const uint32_t t1 = h + sum1 + (g ^ (e & (f ^ g))) + vel_sha256_k[t + i] + w[i];
    d += t1;
    h = t1 + sum0 + ((a & b) | (c & (a | b)));
}

template <int i>
static inline void vel_sha256_eight(uint32_t &a, uint32_t &b, uint32_t &c, uint32_t &d, uint32_t &e,
                                    uint32_t &f, uint32_t &g, uint32_t &h, uint32_t *w, int t)
{
    vel_sha256_round<i>(a, b, c, d, e, f, g, h, w, t);
    vel_sha256_round<i + 1>(h, a, b, c, d, e, f, g, w, t);
    vel_sha256_round<i + 2>(g, h, a, b, c, d, e, f, w, t);
    vel_sha256_round<i + 3>(f, g, h, a, b, c, d, e, w, t);
    vel_sha256_round<i + 4>(e, f, g, h, a, b, c, d, w, t);
    vel_sha256_round<i + 5>(d, e, f, g, h, a, b, c, w, t);
    vel_sha256_round<i + 6>(c, d, e, f, g, h, a, b, w, t);
    vel_sha256_round<i + 7>(b, c, d, e, f, g, h, a, w, t);
}

static inline void vel_sha256_plain(uint32_t *state, const uint8_t *blocks, size_t count)
{
    for (; count > 0; count--, blocks += 64) {
        uint32_t w[16];
        for (int i = 0; i < 16; i++)
            w[i] = vel_sha_load(blocks + 4 * i);

        uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
        uint32_t e = state[4], f = state[5], g = state[6], h = state[7];
        for (int t = 0; t < 64; t += 16) {
            vel_sha256_eight<0>(a, b, c, d, e, f, g, h, w, t);
            vel_sha256_eight<8>(a, b, c, d, e, f, g, h, w, t);
        }
        state[0] += a;
        state[1] += b;
        state[2] += c;
        state[3] += d;
        state[4] += e;
        state[5] += f;
        state[6] += g;
        state[7] += h;
    }
}

inline constexpr vel_shakernels vel_plain_shakernels = {"plain", [] { return true; },
                                                        vel_sha1_plain, vel_sha256_plain};

#endif
