#ifndef VELLIB_PLATFORM_SHAKERNELS_PLAIN_H
#define VELLIB_PLATFORM_SHAKERNELS_PLAIN_H

/* The block steps for every processor. Rounds come in turns after which each variable has its old
 * part again, so that none is ever moved. */

#include <bit>
#include <cstring>

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

template <typename Part>
static inline void vel_sha1_round(uint32_t a, uint32_t &b, uint32_t c, uint32_t d, uint32_t &e,
                                  uint32_t w)
{
    e += std::rotl(a, 5) + Part::f(b, c, d) + Part::k + w;
    b = std::rotl(b, 30);
}

template <typename Part> static inline void vel_sha1_twenty(uint32_t *v, const uint32_t *w)
{
    for (int t = 0; t < 20; t += 5) {
        vel_sha1_round<Part>(v[0], v[1], v[2], v[3], v[4], w[t]);
        vel_sha1_round<Part>(v[4], v[0], v[1], v[2], v[3], w[t + 1]);
        vel_sha1_round<Part>(v[3], v[4], v[0], v[1], v[2], w[t + 2]);
        vel_sha1_round<Part>(v[2], v[3], v[4], v[0], v[1], w[t + 3]);
        vel_sha1_round<Part>(v[1], v[2], v[3], v[4], v[0], w[t + 4]);
    }
}

static inline void vel_sha1_plain(uint32_t *h, const uint8_t *blocks, size_t count)
{
    for (; count > 0; count--, blocks += 64) {
        uint32_t w[80];
        for (int t = 0; t < 16; t++)
            w[t] = vel_sha_load(blocks + 4 * t);
        for (int t = 16; t < 80; t++)
            w[t] = std::rotl(w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16], 1);

        uint32_t v[5] = {h[0], h[1], h[2], h[3], h[4]};
        vel_sha1_twenty<vel_sha1_choose>(v, w);
        vel_sha1_twenty<vel_sha1_parity>(v, w + 20);
        vel_sha1_twenty<vel_sha1_majority>(v, w + 40);
        vel_sha1_twenty<vel_sha1_last_parity>(v, w + 60);
        for (int i = 0; i < 5; i++)
            h[i] += v[i];
    }
}

static inline void vel_sha256_round(uint32_t a, uint32_t b, uint32_t c, uint32_t &d, uint32_t e,
                                    uint32_t f, uint32_t g, uint32_t &h, uint32_t kw)
{
    const uint32_t sum1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
    const uint32_t sum0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
    const uint32_t t1 = h + sum1 + (g ^ (e & (f ^ g))) + kw;
    d += t1;
    h = t1 + sum0 + ((a & b) | (c & (a | b)));
}

static inline void vel_sha256_eight(uint32_t *v, const uint32_t *w, const uint32_t *k)
{
    vel_sha256_round(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], w[0] + k[0]);
    vel_sha256_round(v[7], v[0], v[1], v[2], v[3], v[4], v[5], v[6], w[1] + k[1]);
    vel_sha256_round(v[6], v[7], v[0], v[1], v[2], v[3], v[4], v[5], w[2] + k[2]);
    vel_sha256_round(v[5], v[6], v[7], v[0], v[1], v[2], v[3], v[4], w[3] + k[3]);
    vel_sha256_round(v[4], v[5], v[6], v[7], v[0], v[1], v[2], v[3], w[4] + k[4]);
    vel_sha256_round(v[3], v[4], v[5], v[6], v[7], v[0], v[1], v[2], w[5] + k[5]);
    vel_sha256_round(v[2], v[3], v[4], v[5], v[6], v[7], v[0], v[1], w[6] + k[6]);
    vel_sha256_round(v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[0], w[7] + k[7]);
}

static inline void vel_sha256_plain(uint32_t *h, const uint8_t *blocks, size_t count)
{
    for (; count > 0; count--, blocks += 64) {
        uint32_t w[64];
        for (int t = 0; t < 16; t++)
            w[t] = vel_sha_load(blocks + 4 * t);
        for (int t = 16; t < 64; t++) {
            const uint32_t w15 = w[t - 15];
            const uint32_t w2 = w[t - 2];
            w[t] = w[t - 16] + (std::rotr(w15, 7) ^ std::rotr(w15, 18) ^ (w15 >> 3)) + w[t - 7] +
                   (std::rotr(w2, 17) ^ std::rotr(w2, 19) ^ (w2 >> 10));
        }
        uint32_t v[8];
        memcpy(v, h, sizeof(v));
        for (int t = 0; t < 64; t += 8)
            vel_sha256_eight(v, w + t, vel_sha256_k + t);
        for (int i = 0; i < 8; i++)
            h[i] += v[i];
    }
}

inline constexpr vel_shakernels vel_plain_shakernels = {"plain", [] { return true; },
                                                        vel_sha1_plain, vel_sha256_plain};

#endif
