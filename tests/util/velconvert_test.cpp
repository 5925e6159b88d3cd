#include <climits>
#include <cstdint>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/rows.h"

struct size_case {
    const char *name;
    size_t src;
    int cut, cutresult;       /* vel_convert_int_from_size_t */
    int limited, limitresult; /* vel_convert_int_from_size_t_and_limit */
    unsigned int ulimited;    /* vel_convert_uint_from_size_t_and_limit */
    int ulimitresult;
};

static const size_t kHigh = size_t{1} << 32;

static const size_case kSizeCases[] = {
    {"Zero", 0, 0, 0, 0, 0, 0, 0},
    {"Small", 12345, 12345, 0, 12345, 0, 12345, 0},
    {"LargestInt", 0x7FFFFFFF, INT_MAX, 0, INT_MAX, 0, 0x7FFFFFFF, 0},
    {"AboveLargestInt", 0x80000000, INT_MIN, -1, INT_MAX, 1, 0x80000000, 0},
    {"LargestUnsigned", 0xFFFFFFFF, -1, -1, INT_MAX, 1, UINT_MAX, 0},
    {"AboveLargestUnsigned", kHigh, 0, -1, INT_MAX, 1, UINT_MAX, 1},
    {"CutToAPositiveNumber", kHigh + 5, 5, -1, INT_MAX, 1, UINT_MAX, 1},
    {"CutToANegativeNumber", kHigh + 0x80000001, INT_MIN + 1, -1, INT_MAX, 1, UINT_MAX, 1},
    {"Largest", SIZE_MAX, -1, -1, INT_MAX, 1, UINT_MAX, 1},
};

class VelconvertSizeCase : public testing::TestWithParam<size_case> {};

TEST_P(VelconvertSizeCase, IntIsCut)
{
    int dest = 0x5a5a;
    EXPECT_EQ(vel_convert_int_from_size_t(&dest, GetParam().src), GetParam().cutresult);
    EXPECT_EQ(dest, GetParam().cut);
}

TEST_P(VelconvertSizeCase, IntIsLimited)
{
    int dest = 0x5a5a;
    EXPECT_EQ(vel_convert_int_from_size_t_and_limit(&dest, GetParam().src), GetParam().limitresult);
    EXPECT_EQ(dest, GetParam().limited);
}

TEST_P(VelconvertSizeCase, UnsignedIsLimited)
{
    unsigned int dest = 0x5a5a;
    EXPECT_EQ(vel_convert_uint_from_size_t_and_limit(&dest, GetParam().src),
              GetParam().ulimitresult);
    EXPECT_EQ(dest, GetParam().ulimited);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelconvertSizeCase, testing::ValuesIn(kSizeCases),
                         support::row_name());

struct round_case {
    const char *name;
    double value;
    int64_t result;
};

static const round_case kRoundCases[] = {
    {"Zero", 0.0, 0},
    {"MinusZero", -0.0, 0},
    {"Below", 0.4, 0},
    {"BelowNegative", -0.4, 0},
    {"Half", 0.5, 1},
    {"HalfNegative", -0.5, -1},
    {"HalfAwayFromZero", 2.5, 3},
    {"HalfAwayFromZeroNegative", -2.5, -3},
    {"Above", 2.6, 3},
    {"Whole", -17.0, -17},
    {"Large", 4503599627370495.5, 4503599627370496},
    {"LargeNegative", -1e15, -1000000000000000},
    /* The addition rounds up to 1. */
    {"JustBelowHalf", 0.49999999999999994, 1},
};

class VelconvertRoundCase : public testing::TestWithParam<round_case> {};

TEST_P(VelconvertRoundCase, Long)
{
    EXPECT_EQ(vel_convert_long_from_double_round(GetParam().value), GetParam().result);
}

TEST_P(VelconvertRoundCase, Int64)
{
    EXPECT_EQ(vel_convert_i64_from_double_round(GetParam().value), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelconvertRoundCase, testing::ValuesIn(kRoundCases),
                         support::row_name());

TEST(Velconvert, CharPointers)
{
    const char source[] = "a\xff";
    const unsigned char *unsignedsource = nullptr;
    vel_convert_custr_from_cstr(&unsignedsource, source);
    ASSERT_EQ(static_cast<const void *>(unsignedsource), source);
    EXPECT_EQ(unsignedsource[1], 0xff);

    const char *back = nullptr;
    vel_convert_cstr_from_custr(&back, unsignedsource);
    EXPECT_EQ(back, source);
}

TEST(VelconvertDeathTest, PointersAreAsserted)
{
    const unsigned char *unsigneddest = nullptr;
    const char *dest = nullptr;
    EXPECT_DEATH(vel_convert_custr_from_cstr(nullptr, ""),
                 support::asserts("destptr != NULL", "vel_convert_custr_from_cstr"));
    EXPECT_DEATH(vel_convert_custr_from_cstr(&unsigneddest, nullptr),
                 support::asserts("src != NULL", "vel_convert_custr_from_cstr"));
    EXPECT_DEATH(vel_convert_cstr_from_custr(nullptr, reinterpret_cast<const unsigned char *>("")),
                 support::asserts("destptr != NULL", "vel_convert_cstr_from_custr"));
    EXPECT_DEATH(vel_convert_cstr_from_custr(&dest, nullptr),
                 support::asserts("src != NULL", "vel_convert_cstr_from_custr"));
    EXPECT_DEATH(vel_convert_int_from_size_t(nullptr, 0),
                 support::asserts("dest != NULL", "vel_convert_int_from_size_t"));
    EXPECT_DEATH(vel_convert_int_from_size_t_and_limit(nullptr, 0),
                 support::asserts("dest != NULL", "vel_convert_int_from_size_t_and_limit"));
    EXPECT_DEATH(vel_convert_uint_from_size_t_and_limit(nullptr, 0),
                 support::asserts("dest != NULL", "vel_convert_uint_from_size_t_and_limit"));
}
