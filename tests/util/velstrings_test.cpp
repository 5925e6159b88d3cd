#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/oom.h"
#include "support/platform_malloc.h"
#include "support/rows.h"

TEST(Velstrnchr, FindsTheFirst)
{
    const char text[] = "abcabc";
    EXPECT_EQ(vel_strnchr(text, 6, 'a'), text);
    EXPECT_EQ(vel_strnchr(text, 6, 'c'), text + 2);
    EXPECT_EQ(vel_strnchr(text, 3, 'c'), text + 2);
    EXPECT_EQ(vel_strnchr(text, 2, 'c'), nullptr);
    EXPECT_EQ(vel_strnchr(text, 6, 'x'), nullptr);
    EXPECT_EQ(vel_strnchr(text, 0, 'a'), nullptr);
}

TEST(Velstrnchr, GoesOnBehindANul)
{
    const char text[] = "ab\0cd";
    EXPECT_EQ(vel_strnchr(text, 5, 'd'), text + 4);
    EXPECT_EQ(vel_strnchr(text, 5, '\0'), text + 2);
    EXPECT_EQ(vel_strnchr(text, 2, '\0'), nullptr);
}

TEST(Velstrnchr, ComparesAsChar)
{
    const char text[] = "a\xff";
    EXPECT_EQ(vel_strnchr(text, 2, 0xff), text + 1);
    EXPECT_EQ(vel_strnchr(text, 2, -1), text + 1);
    EXPECT_EQ(vel_strnchr(text, 2, 0x100 + 'a'), text);
}

TEST(VelstrnchrDeathTest, StringIsAsserted)
{
    EXPECT_DEATH(vel_strnchr(nullptr, 0, 'a'), support::asserts("string != NULL", "vel_strnchr"));
}

struct endswith_case {
    const char *name;
    const char *string;
    const char *suffix;
    int result;
};

static const endswith_case kEndswithCases[] = {
    {"Ending", "file.po", ".po", 1},     {"NotEnding", "file.po", ".mo", 0},
    {"Whole", ".po", ".po", 1},          {"SuffixLonger", "po", ".po", 0},
    {"EmptySuffix", "file.po", "", 1},   {"BothEmpty", "", "", 1},
    {"EmptyString", "", "a", 0},         {"InTheMiddle", "a.po.b", ".po", 0},
    {"CaseCounts", "file.PO", ".po", 0}, {"Repeated", "aaa", "aa", 1},
};

class VelendswithCase : public testing::TestWithParam<endswith_case> {};

TEST_P(VelendswithCase, Result)
{
    EXPECT_EQ(vel_endswith(GetParam().string, GetParam().suffix), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelendswithCase, testing::ValuesIn(kEndswithCases),
                         support::row_name());

TEST(VelendswithDeathTest, StringsAreAsserted)
{
    EXPECT_DEATH(vel_endswith(nullptr, ""), support::asserts("string != NULL", "vel_endswith"));
    EXPECT_DEATH(vel_endswith("", nullptr), support::asserts("suffix != NULL", "vel_endswith"));
    EXPECT_DEATH(vel_endswith(nullptr, nullptr),
                 support::asserts("string != NULL", "vel_endswith"));
}

TEST(Velmemmem, FindsTheFirstMatch)
{
    const char hay[] = "ab\0abc\0abc";
    EXPECT_EQ(vel_memmem(hay, 10, "abc", 3), hay + 3);
    EXPECT_EQ(vel_memmem(hay, 10, "\0a", 2), hay + 2);
    EXPECT_EQ(vel_memmem(hay, 5, "abc", 3), nullptr);
    EXPECT_EQ(vel_memmem(hay, 10, "abd", 3), nullptr);
    EXPECT_EQ(vel_memmem(hay, 2, "abc", 3), nullptr);
    EXPECT_EQ(vel_memmem(hay, 0, "a", 1), nullptr);
    EXPECT_EQ(vel_memmem(hay, 10, hay, 10), hay);
}

TEST(Velmemmem, EmptyNeedleIsFoundAtTheBeginning)
{
    const char hay[] = "abc";
    EXPECT_EQ(vel_memmem(hay, 3, "", 0), hay);
    EXPECT_EQ(vel_memmem(hay, 0, "", 0), hay);
}

TEST(VelmemmemDeathTest, BlocksAreAsserted)
{
    EXPECT_DEATH(vel_memmem(nullptr, 0, "", 0), support::asserts("haystack != NULL", "vel_memmem"));
    EXPECT_DEATH(vel_memmem("", 0, nullptr, 0), support::asserts("needle != NULL", "vel_memmem"));
}

struct copy_case {
    const char *name;
    const char *src;
    size_t n;
    const char *dest; /* of eight bytes, all 'x' before */
};

static const copy_case kCopyCases[] = {
    {"NoRoom", "abc", 0, "xxxxxxxx"},       {"RoomForTheEnd", "abc", 1, "\0xxxxxxx"},
    {"Cut", "abc", 2, "a\0xxxxxx"},         {"ExactlyN", "abc", 3, "ab\0xxxxx"},
    {"JustFits", "abc", 4, "abc\0xxxx"},    {"RestIsLeftAlone", "abc", 8, "abc\0xxxx"},
    {"Empty", "", 8, "\0xxxxxxx"},          {"EmptyInOne", "", 1, "\0xxxxxxx"},
    {"LastByte", "abcdefgh", 8, "abcdefg"},
};

class VelstrncpyCase : public testing::TestWithParam<copy_case> {};

TEST_P(VelstrncpyCase, Copy)
{
    char dest[] = "xxxxxxxx";
    EXPECT_EQ(vel_strncpy(dest, GetParam().src, GetParam().n), dest);
    EXPECT_EQ(std::string(dest, 8), std::string(GetParam().dest, 8));
}

INSTANTIATE_TEST_SUITE_P(Rows, VelstrncpyCase, testing::ValuesIn(kCopyCases), support::row_name());

/* The sanitizer reports a read behind the block. */
TEST(Velstrncpy, SourceNeedsNoTerminatorWithinN)
{
    char *source = static_cast<char *>(malloc(3));
    memcpy(source, "abc", 3);
    char dest[4] = "xxx";
    EXPECT_STREQ(vel_strncpy(dest, source, 3), "ab");
    free(source);
}

TEST(VelstrncpyDeathTest, BothAreAsserted)
{
    char dest[1];
    EXPECT_DEATH(vel_strncpy(nullptr, "", 0), support::asserts("dest != NULL", "vel_strncpy"));
    EXPECT_DEATH(vel_strncpy(dest, nullptr, 0), support::asserts("src != NULL", "vel_strncpy"));
    EXPECT_DEATH(vel_strncpy(nullptr, nullptr, 0), support::asserts("dest != NULL", "vel_strncpy"));
}

struct strip_case {
    const char *name;
    const char *text;
    size_t begin;
    const char *stripped;
};

static const strip_case kStripCases[] = {
    {"Empty", "", 0, ""},
    {"NothingToDo", "abc", 0, "abc"},
    {"OneLetter", "a", 0, "a"},
    {"Begin", "  abc", 2, "abc"},
    {"End", "abc \n", 0, "abc"},
    {"Both", "\t abc \r\n", 2, "abc"},
    {"InnerStays", " a \t b ", 1, "a \t b"},
    {"EveryKind", " \t\n\v\f\rx\r\f\v\n\t ", 6, "x"},
    {"AllSpace", " \t\n", 0, ""},
    {"HighByteIsNoSpace", "\xa0 ", 0, "\xa0"},
};

class VelstrstripCase : public testing::TestWithParam<strip_case> {};

TEST_P(VelstrstripCase, String)
{
    char *stripped = vel_strstrip(GetParam().text);
    ASSERT_NE(stripped, nullptr);
    EXPECT_NE(stripped, GetParam().text);
    EXPECT_STREQ(stripped, GetParam().stripped);
    vel_free(stripped);
}

TEST_P(VelstrstripCase, Pointer)
{
    const char *text = GetParam().text;
    size_t length = strlen(text);
    vel_strptrstrip(&text, &length);
    EXPECT_EQ(text, GetParam().text + GetParam().begin);
    EXPECT_EQ(std::string(text, length), GetParam().stripped);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelstrstripCase, testing::ValuesIn(kStripCases),
                         support::row_name());

/* The sanitizer reports a read behind the block. */
TEST(Velstrptrstrip, GoesByTheLengthAlone)
{
    char *block = static_cast<char *>(malloc(3));
    memcpy(block, "   ", 3);
    const char *text = block;
    size_t length = 3;
    vel_strptrstrip(&text, &length);
    EXPECT_EQ(text, block);
    EXPECT_EQ(length, 0u);

    text = " a\0b ";
    length = 5;
    vel_strptrstrip(&text, &length);
    EXPECT_EQ(std::string(text, length), std::string("a\0b", 3));
    free(block);
}

TEST(Velstrptrstrip, LengthOfNothingChangesNothing)
{
    const char *const before = "  ";
    const char *text = before;
    size_t length = 0;
    vel_strptrstrip(&text, &length);
    EXPECT_EQ(text, before);
    EXPECT_EQ(length, 0u);
}

TEST(Velstrstrip, NoMemory)
{
    support::malloc_watch watch(1);
    EXPECT_EQ(vel_strstrip(" a "), nullptr);
}

TEST(VelstrstripDeathTest, ArgumentsAreAsserted)
{
    const char *text = "";
    size_t length = 0;
    EXPECT_DEATH(vel_strstrip(nullptr), support::asserts("str", "vel_strstrip"));
    EXPECT_DEATH(vel_strptrstrip(nullptr, &length), support::asserts("strptr", "vel_strptrstrip"));
    EXPECT_DEATH(vel_strptrstrip(&text, nullptr), support::asserts("strlenptr", "vel_strptrstrip"));
    EXPECT_DEATH(vel_strptrstrip(nullptr, nullptr), support::asserts("strptr", "vel_strptrstrip"));
}

static bool strip_life()
{
    char *text = vel_strstrip(" a ");
    if (!text)
        return false;
    EXPECT_STREQ(text, "a");
    vel_free(text);
    return true;
}

TEST(Velstrstrip, EveryAllocationMayFail)
{
    support::vel_oom_drive(strip_life);
}
