#include <climits>
#include <cstdint>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/rows.h"

struct compare_case {
    const char *name;
    const char *s1;
    const char *s2;
    int result; /* of the whole strings */
};

static const compare_case kCompareCases[] = {
    {"BothEmpty", "", "", 0},
    {"Equal", "content-Length", "Content-length", 0},
    {"DifferenceOfTheLowerCaseLetters", "a", "B", 'a' - 'b'},
    {"UpperAgainstLower", "Z", "a", 'z' - 'a'},
    {"FirstDifferenceCounts", "abXz", "ABya", 'x' - 'y'},
    {"FirstIsPrefix", "ab", "abc", -'c'},
    {"SecondIsPrefix", "abC", "ab", 'c'},
    {"EmptyAgainstText", "", "Q", -'q'},
    {"NotALetter", "a_", "aB", '_' - 'b'},
    {"BracketIsNoLetter", "[", "{", '[' - '{'},
    {"HighByteRanksBelowAscii", "\xe4", "a", static_cast<signed char>(0xe4) - 'a'},
    {"HighByteRanksBelowTheEnd", "\x80", "", -128},
    {"HighBytesAmongThemselves", "\xff", "\x80", -1 - -128},
    {"HighBytesHaveNoCase", "\xc4", "\xe4", 0xc4 - 0xe4},
    {"HighBytesEqual", "x\xff", "X\xff", 0},
};

class VelstrcasecmpCase : public testing::TestWithParam<compare_case> {};

TEST_P(VelstrcasecmpCase, Whole)
{
    EXPECT_EQ(vel_strcasecmp(GetParam().s1, GetParam().s2), GetParam().result);
    EXPECT_EQ(vel_strcasecmp(GetParam().s2, GetParam().s1), -GetParam().result);
}

TEST_P(VelstrcasecmpCase, WithLimitBeyondTheEnd)
{
    EXPECT_EQ(vel_strncasecmp(GetParam().s1, GetParam().s2, 100), GetParam().result);
    EXPECT_EQ(vel_strncasecmp(GetParam().s2, GetParam().s1, SIZE_MAX), -GetParam().result);
}

TEST_P(VelstrcasecmpCase, WithNoLengthAllAreEqual)
{
    EXPECT_EQ(vel_strncasecmp(GetParam().s1, GetParam().s2, 0), 0);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelstrcasecmpCase, testing::ValuesIn(kCompareCases),
                         support::row_name());

TEST(Velstrncasecmp, LimitEndsTheComparison)
{
    EXPECT_EQ(vel_strncasecmp("abX", "ABy", 2), 0);
    EXPECT_EQ(vel_strncasecmp("abX", "ABy", 3), 'x' - 'y');
    EXPECT_EQ(vel_strncasecmp("ab", "ABy", 2), 0);
    EXPECT_EQ(vel_strncasecmp("ab", "ABy", 3), -'y');
}

/* The sanitizer reports a read behind the blocks. */
TEST(Velstrncasecmp, NoTerminatorIsNeededWithinTheLimit)
{
    char *s1 = static_cast<char *>(malloc(2));
    char *s2 = static_cast<char *>(malloc(2));
    memcpy(s1, "Ab", 2);
    memcpy(s2, "aB", 2);
    EXPECT_EQ(vel_strncasecmp(s1, s2, 2), 0);
    free(s1);
    free(s2);
}

TEST(VelstrcasecmpDeathTest, StringsAreAsserted)
{
    EXPECT_DEATH(vel_strcasecmp(nullptr, ""), support::asserts("s1 != NULL", "vel_strcasecmp"));
    EXPECT_DEATH(vel_strcasecmp("", nullptr), support::asserts("s2 != NULL", "vel_strcasecmp"));
    EXPECT_DEATH(vel_strcasecmp(nullptr, nullptr),
                 support::asserts("s1 != NULL", "vel_strcasecmp"));
    EXPECT_DEATH(vel_strncasecmp(nullptr, "", 0),
                 support::asserts("s1 != NULL", "vel_strncasecmp"));
    EXPECT_DEATH(vel_strncasecmp("", nullptr, 0),
                 support::asserts("s2 != NULL", "vel_strncasecmp"));
}
