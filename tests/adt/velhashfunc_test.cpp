#include <cstdint>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/rows.h"
#include "support/stringhash.h"

struct hash_case {
    const char *name;
    std::string string;
    uint64_t hash;
};

static void PrintTo(const hash_case &row, std::ostream *out)
{
    *out << row.name;
}

static const hash_case kHashCases[] = {
    {"Empty", "", 0},
    {"OneCharacter", "a", 0x61},
    {"TwoCharacters", "ab", 0x6162},
    {"SevenAreNotPadded", "abcdefg", 0x61626364656667},
    /* 0x6162636465666768, rotated left by 5 through the round of the terminator */
    {"EightAreRotatedOnce", "abcdefgh", 0x2c4c6c8caccced0c},
    {"NineTakeTheRotationAndOneByte", "abcdefghi", 0x2c4c6c8caccced0c ^ 0x69},
    {"HighBytesAreUnsigned", "\x80\xff", 0x80ff},
    {"TopBitsComeBackAtTheLowEnd", "\xff\xff\xff\xff\xff\xff\xff\xff", UINT64_MAX},
    {"FiveTopBitsRotate", "\xf8\x01\x01\x01\x01\x01\x01\x01", 0x002020202020203f},
};

class VelhashfuncCase : public testing::TestWithParam<hash_case> {};

TEST_P(VelhashfuncCase, String)
{
    EXPECT_EQ(vel_hashfunc_string(GetParam().string.c_str()), GetParam().hash);
    EXPECT_EQ(support::string_hash(GetParam().string), GetParam().hash);
}

INSTANTIATE_TEST_SUITE_P(Table, VelhashfuncCase, testing::ValuesIn(kHashCases),
                         support::row_name());

/* Every length, at every alignment, with every byte but NUL. */
TEST(Velhashfunc, AgreesWithAPlainReading)
{
    std::mt19937 random(20261121);
    for (size_t length = 0; length < 130; length++) {
        for (size_t round = 0; round < 64; round++) {
            const size_t offset = round % 16;
            std::string buffer(offset, 'x');
            for (size_t i = 0; i < length; i++)
                buffer.push_back(static_cast<char>(1 + random() % 255));
            buffer.shrink_to_fit(); /* a read beyond the terminator shows */
            ASSERT_EQ(vel_hashfunc_string(buffer.c_str() + offset),
                      support::string_hash(buffer.substr(offset)))
                << "length " << length << " offset " << offset;
        }
    }
}

TEST(VelhashfuncDeathTest, AssertsTheString)
{
    EXPECT_DEATH(vel_hashfunc_string(nullptr),
                 support::asserts("string != NULL", "vel_hashfunc_string"));
}
