#ifndef TESTS_SUPPORT_STRINGHASH_H
#define TESTS_SUPPORT_STRINGHASH_H

#include <cstdint>
#include <string_view>

namespace support {

/* The library's string hash, read plainly: groups of up to eight bytes as numbers, the first byte
 * highest, each taken in after a rotation by 5; the terminator ends the group that it stands in,
 * so that a whole number of groups is followed by one of no bytes. */
inline uint64_t string_hash(std::string_view string)
{
    uint64_t hash = 0;
    for (size_t group = 0; group <= string.size() / 8; group++) {
        uint64_t word = 0;
        for (const char byte : string.substr(group * 8, 8))
            word = word * 256 + static_cast<unsigned char>(byte);
        hash = word ^ ((hash << 5) + (hash >> 59));
    }
    return hash;
}

} // namespace support

#endif
