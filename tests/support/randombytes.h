#ifndef TESTS_SUPPORT_RANDOMBYTES_H
#define TESTS_SUPPORT_RANDOMBYTES_H

#include <random>
#include <string>

namespace support {

inline std::string random_bytes(std::mt19937 &random, size_t size)
{
    std::string bytes(size, '\0');
    for (char &byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

/* The same bytes for the same seed. */
inline std::string seeded_bytes(size_t size, unsigned int seed = 1)
{
    std::mt19937 random(seed);
    return random_bytes(random, size);
}

} // namespace support

#endif
