#include <cstdarg>
#include <string>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/oom.h"
#include "support/platform_malloc.h"
#include "support/rows.h"

static const char *volatile null_format = nullptr;

static int asprintf_list(char **strp, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = vel_vasprintf(strp, format, arguments);
    va_end(arguments);
    return result;
}

static char *strdupf_list(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char *result = vel_vstrdupf(format, arguments);
    va_end(arguments);
    return result;
}

struct asprintf_twin {
    const char *name;
    int (*print)(char **strp, const char *format, ...);
};

static const asprintf_twin kAsprintfTwins[] = {
    {"Arguments", vel_asprintf},
    {"ArgumentList", asprintf_list},
};

class Velasprintf : public testing::TestWithParam<asprintf_twin> {};

TEST_P(Velasprintf, Text)
{
    char dirt = 0;
    char *text = &dirt;
    EXPECT_EQ(GetParam().print(&text, "%s-%d-%s", "abc", 7, "de"), 8);
    EXPECT_STREQ(text, "abc-7-de");
    vel_free(text);
}

TEST_P(Velasprintf, EmptyText)
{
    char dirt = 0;
    char *text = &dirt;
    EXPECT_EQ(GetParam().print(&text, "%s", ""), 0);
    EXPECT_STREQ(text, "");
    vel_free(text);
}

TEST_P(Velasprintf, LongText)
{
    const std::string source(100000, 'y');
    char *text = nullptr;
    EXPECT_EQ(GetParam().print(&text, "<%s>", source.c_str()), 100002);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text, "<" + source + ">");
    vel_free(text);
}

TEST_P(Velasprintf, FormatErrorIsNegativeAndWritesNull)
{
    char dirt = 0;
    char *text = &dirt;
    EXPECT_LT(GetParam().print(&text, "%ls", L"\x3b1"), 0);
    EXPECT_EQ(text, nullptr);
}

TEST_P(Velasprintf, NoMemoryIsMinusOneAndWritesNull)
{
    char dirt = 0;
    char *text = &dirt;
    support::malloc_watch watch(1);
    EXPECT_EQ(GetParam().print(&text, "%s", "abc"), -1);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{4});
}

TEST_P(Velasprintf, ArgumentsAreAsserted)
{
    char *text = nullptr;
    EXPECT_DEATH(GetParam().print(nullptr, "%d", 1), support::asserts("strp != NULL"));
    EXPECT_DEATH(GetParam().print(&text, null_format, 1), support::asserts("format != NULL"));
    EXPECT_DEATH(GetParam().print(nullptr, null_format, 1), support::asserts("strp != NULL"));
}

INSTANTIATE_TEST_SUITE_P(Twins, Velasprintf, testing::ValuesIn(kAsprintfTwins),
                         support::row_name());

struct strdupf_twin {
    const char *name;
    char *(*print)(const char *format, ...);
};

static const strdupf_twin kStrdupfTwins[] = {
    {"Arguments", vel_strdupf},
    {"ArgumentList", strdupf_list},
};

class Velstrdupf : public testing::TestWithParam<strdupf_twin> {};

TEST_P(Velstrdupf, Text)
{
    char *text = GetParam().print("%s-%d-%s", "abc", 7, "de");
    EXPECT_STREQ(text, "abc-7-de");
    vel_free(text);
    text = GetParam().print("%s", "");
    EXPECT_STREQ(text, "");
    vel_free(text);
}

TEST_P(Velstrdupf, FormatErrorGivesNull)
{
    EXPECT_EQ(GetParam().print("%ls", L"\x3b1"), nullptr);
}

TEST_P(Velstrdupf, NoMemoryGivesNull)
{
    support::malloc_watch watch(1);
    EXPECT_EQ(GetParam().print("%s", "abc"), nullptr);
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{4});
}

TEST_P(Velstrdupf, FormatIsAsserted)
{
    EXPECT_DEATH(GetParam().print(null_format, 1), support::asserts("format != NULL"));
}

INSTANTIATE_TEST_SUITE_P(Twins, Velstrdupf, testing::ValuesIn(kStrdupfTwins), support::row_name());

static bool print_life()
{
    char *texts[4] = {};
    const bool complete = vel_asprintf(&texts[0], "%d", 1) == 1 &&
                          asprintf_list(&texts[1], "%d", 2) == 1 &&
                          (texts[2] = vel_strdupf("%d", 3)) && (texts[3] = strdupf_list("%d", 4));
    for (char *text : texts)
        vel_free(text);
    return complete;
}

TEST(Velasprintf, EveryAllocationMayFail)
{
    EXPECT_GE(support::vel_oom_drive(print_life), 4u);
}
