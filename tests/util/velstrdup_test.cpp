#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/oom.h"
#include "support/platform_malloc.h"
#include "support/rows.h"

/* All bytes but the NUL, and what they become. */
static std::string all_bytes(bool lower)
{
    std::string text;
    for (int byte = 1; byte < 256; byte++)
        text += static_cast<char>(lower && byte >= 'A' && byte <= 'Z' ? byte + 32 : byte);
    return text;
}

struct dup_function {
    const char *name;
    char *(*dup)(const char *string);
    bool lower;
    const char *function;
};

static char *strndup_whole(const char *string)
{
    return vel_strndup(string, SIZE_MAX);
}

static char *strndup_lowercase_whole(const char *string)
{
    return vel_strndup_lowercase(string, SIZE_MAX);
}

static const dup_function kDups[] = {
    {"Strdup", vel_strdup, false, "vel_strdup"},
    {"Strndup", strndup_whole, false, "vel_strndup"},
    {"StrdupLowercase", vel_strdup_lowercase, true, "vel_strdup_lowercase"},
    {"StrndupLowercase", strndup_lowercase_whole, true, "vel_strndup_lowercase"},
};

class Velstrdup : public testing::TestWithParam<dup_function> {};

TEST_P(Velstrdup, EmptyString)
{
    char *copy = GetParam().dup("");
    ASSERT_STREQ(copy, "");
    vel_free(copy);
}

TEST_P(Velstrdup, EveryByte)
{
    const std::string source = all_bytes(false);
    char *copy = GetParam().dup(source.c_str());
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, source.c_str());
    EXPECT_EQ(copy, all_bytes(GetParam().lower));
    vel_free(copy);
}

TEST_P(Velstrdup, AllocatesLengthAndTerminator)
{
    support::malloc_watch watch;
    char *copy = GetParam().dup("abc");
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{4});
    vel_free(copy);
}

TEST_P(Velstrdup, NoMemory)
{
    support::malloc_watch watch(1);
    EXPECT_EQ(GetParam().dup("abc"), nullptr);
}

TEST_P(Velstrdup, StringIsAsserted)
{
    EXPECT_DEATH(GetParam().dup(nullptr), support::asserts("string != NULL", GetParam().function));
}

INSTANTIATE_TEST_SUITE_P(Functions, Velstrdup, testing::ValuesIn(kDups), support::row_name());

struct limit_case {
    const char *name;
    size_t n;
    const char *copy;
};

static const limit_case kLimitCases[] = {
    {"Nothing", 0, ""},          {"One", 1, "A"},        {"Shorter", 3, "AbC"},
    {"ExactLength", 5, "AbCdE"}, {"Longer", 6, "AbCdE"}, {"MuchLonger", 1000, "AbCdE"},
};

class VelstrndupCase : public testing::TestWithParam<limit_case> {};

TEST_P(VelstrndupCase, Copy)
{
    char *copy = vel_strndup("AbCdE", GetParam().n);
    EXPECT_STREQ(copy, GetParam().copy);
    vel_free(copy);
}

TEST_P(VelstrndupCase, LowercaseCopy)
{
    std::string expected = GetParam().copy;
    for (char &byte : expected)
        byte = static_cast<char>(byte | 0x20);
    char *copy = vel_strndup_lowercase("AbCdE", GetParam().n);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy, expected);
    vel_free(copy);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelstrndupCase, testing::ValuesIn(kLimitCases), support::row_name());

/* The sanitizer reports a read behind the block. */
TEST(Velstrndup, SourceNeedsNoTerminatorWithinTheLimit)
{
    char *source = static_cast<char *>(malloc(3));
    memcpy(source, "XyZ", 3);
    char *copy = vel_strndup(source, 3);
    EXPECT_STREQ(copy, "XyZ");
    vel_free(copy);
    copy = vel_strndup_lowercase(source, 3);
    EXPECT_STREQ(copy, "xyz");
    vel_free(copy);
    copy = vel_strndup(source, 0);
    EXPECT_STREQ(copy, "");
    vel_free(copy);
    free(source);
}

TEST(Velstrdup, LowercaseDoesNotKnowTheLocale)
{
    char *copy = vel_strdup_lowercase("\xc3\x84\xc4[]@Z{`");
    EXPECT_STREQ(copy, "\xc3\x84\xc4[]@z{`");
    vel_free(copy);
}

TEST(Velmemdup, CopiesBytes)
{
    const char source[] = "ab\0cd";
    char *copy = static_cast<char *>(vel_memdup(source, 6));
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, source);
    EXPECT_EQ(memcmp(copy, source, 6), 0);
    vel_free(copy);
}

TEST(Velmemdup, SizeOfNothingIsABlockOfOneByte)
{
    support::malloc_watch watch;
    void *copy = vel_memdup("", 0);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{1});
    *static_cast<char *>(copy) = 'x';
    vel_free(copy);
}

TEST(Velmemdup, NoMemory)
{
    support::malloc_watch watch(1, 2);
    EXPECT_EQ(vel_memdup("abc", 3), nullptr);
    EXPECT_EQ(vel_memdup("abc", 0), nullptr);
}

TEST(VelmemdupDeathTest, MemoryIsAsserted)
{
    EXPECT_DEATH(vel_memdup(nullptr, 1), support::asserts("memory != NULL", "vel_memdup"));
    EXPECT_DEATH(vel_memdup(nullptr, 0), support::asserts("memory != NULL", "vel_memdup"));
}

/* Each copy in turn, freed whatever became of it. */
static bool dup_life()
{
    char *copies[] = {
        vel_strdup("AbC"),
        vel_strndup("AbC", 2),
        vel_strdup_lowercase("AbC"),
        vel_strndup_lowercase("AbC", 2),
        static_cast<char *>(vel_memdup("AbC", 4)),
        static_cast<char *>(vel_memdup("AbC", 0)),
    };
    bool complete = true;
    for (char *copy : copies) {
        complete = complete && copy;
        vel_free(copy);
    }
    return complete;
}

TEST(Velstrdup, EveryAllocationMayFail)
{
    EXPECT_GE(support::vel_oom_drive(dup_life), 6u);
}
