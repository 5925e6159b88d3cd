#ifndef TESTS_SUPPORT_DECODED_H
#define TESTS_SUPPORT_DECODED_H

#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include <vellib/velerror.h>
#include <vellib/velmalloc.h>

namespace support {

/* What a decoder gives that returns its data in a block. */
struct decoded {
    vel_error_t result;
    std::string data;

    bool operator==(const decoded &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const decoded &what)
{
    return out << what.result << " " << testing::PrintToString(what.data);
}

/* Takes the outputs of a decoder, and releases the block. */
inline decoded take_decoded(vel_error_t result, void *block, size_t length)
{
    EXPECT_EQ(block != nullptr, result == VEL_ERROR_NONE);
    if (result != VEL_ERROR_NONE || !block) {
        EXPECT_EQ(length, 0u);
        return {result, ""};
    }
    const std::string data(static_cast<char *>(block), length);
    EXPECT_EQ(static_cast<char *>(block)[length], 0); /* not counted */
    vel_free(block);
    return {result, data};
}

} // namespace support

#endif
