#include <cstdint>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/oom.h"
#include "support/platform_malloc.h"
#include "support/rows.h"

struct parse_case {
    const char *name;
    const char *text;
    vel_error_t result;
    int64_t value;
};

static const parse_case kParseCases[] = {
    {"Zero", "0", VEL_ERROR_NONE, 0},
    {"MinusZero", "-0", VEL_ERROR_NONE, 0},
    {"Number", "1234567890", VEL_ERROR_NONE, 1234567890},
    {"Plus", "+7", VEL_ERROR_NONE, 7},
    {"Minus", "-7", VEL_ERROR_NONE, -7},
    {"SpaceAndPlus", "  +7", VEL_ERROR_NONE, 7},
    {"EverySpace", " \t\n\v\f\r-12", VEL_ERROR_NONE, -12},
    {"LeadingZerosAreDecimal", "-0000000000000000000000000000010", VEL_ERROR_NONE, -10},
    {"Largest", "9223372036854775807", VEL_ERROR_NONE, INT64_MAX},
    {"Smallest", "-9223372036854775808", VEL_ERROR_NONE, INT64_MIN},
    {"AboveLargest", "9223372036854775808", VEL_ERROR_OUT_OF_RANGE, 0},
    {"BelowSmallest", "-9223372036854775809", VEL_ERROR_OUT_OF_RANGE, 0},
    {"UnsignedLargest", "18446744073709551615", VEL_ERROR_OUT_OF_RANGE, 0},
    {"UnsignedWraps", "18446744073709551616", VEL_ERROR_OUT_OF_RANGE, 0},
    {"UnsignedWrapsToSmall", "18446744073709551619", VEL_ERROR_OUT_OF_RANGE, 0},
    {"TenthOfUnsignedAndOne", "18446744073709551620", VEL_ERROR_OUT_OF_RANGE, 0},
    {"Enormous", "99999999999999999999", VEL_ERROR_OUT_OF_RANGE, 0},
    {"EnormousNegative", "-99999999999999999999", VEL_ERROR_OUT_OF_RANGE, 0},
    {"VeryLong", "100000000000000000000000000000000000000000", VEL_ERROR_OUT_OF_RANGE, 0},
    {"EnormousWithJunk", "99999999999999999999x", VEL_ERROR_OUT_OF_RANGE, 0},
    {"AboveLargestWithJunk", "9223372036854775808x", VEL_ERROR_OUT_OF_RANGE, 0},
    {"BelowSmallestWithJunk", "-9223372036854775809 ", VEL_ERROR_OUT_OF_RANGE, 0},
    {"SmallestWithJunk", "-9223372036854775808,", VEL_ERROR_INCOMPLETE, INT64_MIN},
    {"Junk", "12abc", VEL_ERROR_INCOMPLETE, 12},
    {"TrailingSpace", "7 ", VEL_ERROR_INCOMPLETE, 7},
    {"Fraction", "-3.9", VEL_ERROR_INCOMPLETE, -3},
    {"Hexadecimal", "0x10", VEL_ERROR_INCOMPLETE, 0},
    {"Grouping", "1,000", VEL_ERROR_INCOMPLETE, 1},
    {"Empty", "", VEL_ERROR_INVALID_SYNTAX, 0},
    {"LoneMinus", "-", VEL_ERROR_INVALID_SYNTAX, 0},
    {"LonePlus", "+", VEL_ERROR_INVALID_SYNTAX, 0},
    {"SpaceAlone", " \t", VEL_ERROR_INVALID_SYNTAX, 0},
    {"TwoSigns", "+-7", VEL_ERROR_INVALID_SYNTAX, 0},
    {"SpaceBehindTheSign", "- 7", VEL_ERROR_INVALID_SYNTAX, 0},
    {"Letters", "abc", VEL_ERROR_INVALID_SYNTAX, 0},
    {"HighByte", "\xff", VEL_ERROR_INVALID_SYNTAX, 0},
    {"HighByteBehind", "5\xb2", VEL_ERROR_INCOMPLETE, 5},
};

class Velstrtoi64Case : public testing::TestWithParam<parse_case> {};

TEST_P(Velstrtoi64Case, Parse)
{
    int64_t value = 0x5a5a5a5a;
    EXPECT_EQ(vel_strtoi64(GetParam().text, &value), GetParam().result);
    EXPECT_EQ(value, GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Rows, Velstrtoi64Case, testing::ValuesIn(kParseCases),
                         support::row_name());

TEST(Velstrtoi64DeathTest, ArgumentsAreAsserted)
{
    int64_t value = 0;
    EXPECT_DEATH(vel_strtoi64(nullptr, &value), support::asserts("str != NULL", "vel_strtoi64"));
    EXPECT_DEATH(vel_strtoi64("", nullptr), support::asserts("out != NULL", "vel_strtoi64"));
    EXPECT_DEATH(vel_strtoi64(nullptr, nullptr), support::asserts("str != NULL", "vel_strtoi64"));
}

static void expect_text(int64_t value, const std::string &expected)
{
    char *text = vel_i64tostr(value);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text, expected);
    int64_t back = 7;
    EXPECT_EQ(vel_strtoi64(text, &back), VEL_ERROR_NONE);
    EXPECT_EQ(back, value);
    vel_free(text);
}

TEST(Veli64tostr, Limits)
{
    expect_text(0, "0");
    expect_text(INT64_MAX, "9223372036854775807");
    expect_text(INT64_MIN, "-9223372036854775808");
}

/* Around every power of ten, where the number of digits changes. */
TEST(Veli64tostr, EveryNumberOfDigits)
{
    int64_t power = 1;
    for (int digits = 1; digits <= 19; digits++) {
        for (int64_t value : {power - 1, power, -power, 1 - power})
            expect_text(value, std::to_string(value));
        if (digits < 19)
            power *= 10;
    }
}

TEST(Veli64tostr, RandomNumbers)
{
    std::mt19937_64 random(20260102);
    for (int i = 0; i < 2000; i++) {
        const int64_t value = static_cast<int64_t>(random()) >> (random() % 64);
        expect_text(value, std::to_string(value));
    }
}

TEST(Veli64tostr, BlockHasTheExactLength)
{
    support::malloc_watch watch;
    vel_free(vel_i64tostr(0));
    vel_free(vel_i64tostr(-10));
    vel_free(vel_i64tostr(INT64_MIN));
    EXPECT_EQ(watch.sizes(), (std::vector<size_t>{2, 4, 21}));
}

TEST(Veli64tostr, NoMemory)
{
    support::malloc_watch watch(1);
    EXPECT_EQ(vel_i64tostr(-5), nullptr);
}

static bool number_life()
{
    char *text = vel_i64tostr(-5);
    if (!text)
        return false;
    EXPECT_STREQ(text, "-5");
    vel_free(text);
    return true;
}

TEST(Veli64tostr, EveryAllocationMayFail)
{
    support::vel_oom_drive(number_life);
}
