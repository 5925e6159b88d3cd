#ifndef TESTS_SUPPORT_SHA_H
#define TESTS_SUPPORT_SHA_H

/* SHA-1 and SHA-256 (FIPS 180-4) once more, written for nothing but to be read beside the standard:
 * what the library computes is compared with it. The constants of SHA-256 are computed from the
 * primes that the standard takes them from. */

#include <bit>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace support {

__extension__ typedef unsigned __int128 uint128;

/* The largest number whose power is not above value; the power is 2 or 3. */
inline uint64_t sha_root(uint128 value, int power)
{
    uint64_t root = 0;
    for (int bit = 40; bit >= 0; bit--) {
        const uint128 tried = root | uint64_t{1} << bit;
        if ((power == 2 ? tried * tried : tried * tried * tried) <= value)
            root |= uint64_t{1} << bit;
    }
    return root;
}

/* The first 32 bits of the fractional parts of roots of the first count primes. */
inline std::vector<uint32_t> sha_fractions(size_t count, int power)
{
    std::vector<uint32_t> fractions;
    for (uint64_t number = 2; fractions.size() < count; number++) {
        bool prime = true;
        for (uint64_t divisor = 2; divisor < number; divisor++)
            prime = prime && number % divisor != 0;
        if (prime)
            fractions.push_back(
                static_cast<uint32_t>(sha_root(uint128{number} << (32 * power), power)));
    }
    return fractions;
}

inline uint32_t sha_word(const uint8_t *block, size_t index)
{
    uint32_t word = 0;
    for (size_t i = 0; i < 4; i++)
        word = word << 8 | block[4 * index + i];
    return word;
}

struct naive_sha1 {
    static std::vector<uint32_t> initial()
    {
        return {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
    }

    static void block(std::vector<uint32_t> &h, const uint8_t *bytes)
    {
        std::vector<uint32_t> w(80);
        for (size_t t = 0; t < 80; t++)
            w[t] = t < 16 ? sha_word(bytes, t)
                          : std::rotl(w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16], 1);
        uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
        for (size_t t = 0; t < 80; t++) {
            const uint32_t ch = (b & c) ^ (~b & d);
            const uint32_t parity = b ^ c ^ d;
            const uint32_t maj = (b & c) ^ (b & d) ^ (c & d);
            const uint32_t f = t < 20 ? ch : t < 40 ? parity : t < 60 ? maj : parity;
            const uint64_t square = t < 20 ? 2 : t < 40 ? 3 : t < 60 ? 5 : 10;
            const auto k = static_cast<uint32_t>(sha_root(uint128{square} << 60, 2));
            const uint32_t next = std::rotl(a, 5) + f + e + k + w[t];
            e = d, d = c, c = std::rotl(b, 30), b = a, a = next;
        }
        h[0] += a, h[1] += b, h[2] += c, h[3] += d, h[4] += e;
    }
};

struct naive_sha256 {
    static std::vector<uint32_t> initial()
    {
        return sha_fractions(8, 2);
    }

    static void block(std::vector<uint32_t> &h, const uint8_t *bytes)
    {
        static const std::vector<uint32_t> k = sha_fractions(64, 3);
        const auto rotr = [](uint32_t x, int n) { return std::rotr(x, n); };
        std::vector<uint32_t> w(64);
        for (size_t t = 0; t < 64; t++) {
            if (t < 16) {
                w[t] = sha_word(bytes, t);
                continue;
            }
            const uint32_t x = w[t - 15], y = w[t - 2];
            w[t] = (rotr(y, 17) ^ rotr(y, 19) ^ (y >> 10)) + w[t - 7] +
                   (rotr(x, 7) ^ rotr(x, 18) ^ (x >> 3)) + w[t - 16];
        }
        std::vector<uint32_t> v = h; /* a to h */
        for (size_t t = 0; t < 64; t++) {
            const uint32_t sum1 = rotr(v[4], 6) ^ rotr(v[4], 11) ^ rotr(v[4], 25);
            const uint32_t sum0 = rotr(v[0], 2) ^ rotr(v[0], 13) ^ rotr(v[0], 22);
            const uint32_t ch = (v[4] & v[5]) ^ (~v[4] & v[6]);
            const uint32_t maj = (v[0] & v[1]) ^ (v[0] & v[2]) ^ (v[1] & v[2]);
            const uint32_t t1 = v[7] + sum1 + ch + k[t] + w[t];
            v = {t1 + sum0 + maj, v[0], v[1], v[2], v[3] + t1, v[4], v[5], v[6]};
        }
        for (size_t i = 0; i < 8; i++)
            h[i] += v[i];
    }
};

/* A context with the life that those of the library have, a byte at a time: also finalizing twice
 * and going on after that have results. */
template <typename Algorithm> class naive_sha {
  public:
    void init()
    {
        h_ = Algorithm::initial();
        used_ = 0;
        total_ = 0;
    }

    void update(const std::string &bytes)
    {
        for (const char byte : bytes) {
            chunk_[used_++] = static_cast<uint8_t>(byte);
            if (used_ == 64)
                take();
            used_ %= 64;
        }
        total_ += bytes.size();
    }

    void finalize()
    {
        size_t end = used_;
        chunk_[end++] = 0x80;
        if (end > 56) {
            while (end < 64)
                chunk_[end++] = 0;
            take();
            end = 0;
        }
        while (end < 56)
            chunk_[end++] = 0;
        for (int shift = 56; shift >= 0; shift -= 8)
            chunk_[end++] = static_cast<uint8_t>(total_ * 8 >> shift);
        take();
    }

    std::string digest() const
    {
        std::string bytes;
        for (const uint32_t word : h_)
            for (int shift = 24; shift >= 0; shift -= 8)
                bytes.push_back(static_cast<char>(word >> shift));
        return bytes;
    }

  private:
    void take()
    {
        Algorithm::block(h_, chunk_);
    }

    std::vector<uint32_t> h_ = Algorithm::initial();
    uint8_t chunk_[64] = {};
    size_t used_ = 0;
    uint64_t total_ = 0;
};

inline std::string hex(const std::string &bytes)
{
    std::string text;
    for (const char byte : bytes) {
        char digits[3];
        snprintf(digits, sizeof(digits), "%02x", static_cast<unsigned int>(byte) & 0xff);
        text += digits;
    }
    return text;
}

} // namespace support

#endif
