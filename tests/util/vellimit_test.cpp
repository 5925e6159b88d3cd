#include <climits>
#include <cstdint>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/rows.h"

TEST(Vellimit, LargestValues)
{
    EXPECT_EQ(vel_limit_max_unsigned_int(), 0xFFFFFFFFu);
    EXPECT_EQ(vel_limit_max_unsigned_long(), ULONG_MAX);
    EXPECT_EQ(vel_limit_max_size_t(), SIZE_MAX);
}

struct multiply_case {
    const char *name;
    size_t a;
    size_t b;
    size_t result;
};

static const size_t kMax = SIZE_MAX;
static const size_t kHalf = size_t{1} << (sizeof(size_t) * 4); /* 2 to the half of the bits */

static const multiply_case kMultiplyCases[] = {
    {"BothZero", 0, 0, 0},
    {"FirstZero", 0, kMax, 0},
    {"SecondZero", kMax, 0, 0},
    {"Small", 6, 7, 42},
    {"TwiceTheLargest", 2, kMax, kMax},
    {"LargestTwice", kMax, 2, kMax},
    {"LargestOnce", kMax, 1, kMax},
    {"OnceTheLargest", 1, kMax, kMax},
    {"LargestSquared", kMax, kMax, kMax},
    {"HalfFits", kMax / 2, 2, kMax - 1},
    {"HalfAndOneIsTooMuch", kMax / 2 + 1, 2, kMax},
    {"ThirdFitsExactly", kMax / 3, 3, kMax},
    {"ThirdAndOneIsTooMuch", kMax / 3 + 1, 3, kMax},
    {"HalvesOfTheBits", kHalf, kHalf / 2, kMax / 2 + 1},
    {"HalvesOfTheBitsTooMuch", kHalf, kHalf, kMax},
};

class VelsizetCase : public testing::TestWithParam<multiply_case> {};

TEST_P(VelsizetCase, MultiplyAndLimit)
{
    EXPECT_EQ(vel_sizet_multiply_and_limit(GetParam().a, GetParam().b), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsizetCase, testing::ValuesIn(kMultiplyCases),
                         support::row_name());
