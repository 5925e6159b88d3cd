#include "util/velgetopt_internal.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velerror.h>

#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/optiontest.h"
#include "support/rows.h"

using support::asserts;
using support::log_line;

using log_lines = std::vector<log_line>;

/* ---- the wrapper, in other columns than those of the usage text ---- */

static std::string description(const char *text, int current, int start, int maximum)
{
    char *written = nullptr;
    size_t length = 0;
    FILE *out = open_memstream(&written, &length);
    vel_getopt_show_description(out, text, current, start, maximum);
    fclose(out);
    std::string result(written, length);
    free(written);
    return result;
}

struct description_case {
    const char *name;
    const char *text;
    int current;
    int start;
    int maximum;
    const char *written;
};

static const description_case kDescriptionCases[] = {
    {"FromColumnZero", "ab", 0, 2, 10, "  ab\n"},
    {"OneBeforeStart", "ab", 1, 2, 10, " ab\n"},
    {"AtStart", "ab", 2, 2, 10, "\n  ab\n"},
    {"PastStart", "ab", 9, 2, 10, "\n  ab\n"},
    {"NoIndent", "ab", 0, 0, 10, "\nab\n"},
    {"OneCharacterWide", "abc", 0, 1, 2, " a\n b\n c\n"},
    {"OneCharacterWideWithSpace", "a b", 0, 1, 2, " a\n b\n"},
    {"Words", "one two three", 0, 2, 8, "  one\n  two\n  three\n"},
    {"WidthIsMetByWord", "abcdef gh", 0, 2, 8, "  abcdef\n  gh\n"},
    {"WidthIsNotMetByWords", "ab def", 0, 2, 8, "  ab\n  def\n"},
    {"Empty", "", 0, 2, 8, "  \n"},
};

class VelgetoptDescription : public testing::TestWithParam<description_case> {};

TEST_P(VelgetoptDescription, Text)
{
    const description_case &row = GetParam();
    EXPECT_EQ(description(row.text, row.current, row.start, row.maximum), row.written);
}

INSTANTIATE_TEST_SUITE_P(All, VelgetoptDescription, testing::ValuesIn(kDescriptionCases),
                         support::row_name());

TEST(VelgetoptInternalDeathTest, DescriptionAssertsItsArguments)
{
    const char *const function = "vel_getopt_show_description";
    EXPECT_DEATH(vel_getopt_show_description(nullptr, nullptr, -1, 1, 1),
                 asserts("out != NULL", function));
    EXPECT_DEATH(vel_getopt_show_description(stdout, nullptr, -1, 1, 1),
                 asserts("description != NULL", function));
    EXPECT_DEATH(vel_getopt_show_description(stdout, "", -1, 1, 1),
                 asserts("currentcolumn >= 0", function));
    EXPECT_DEATH(vel_getopt_show_description(stdout, "", 0, 1, 1),
                 asserts("startcolumn < maxwidth", function));
    EXPECT_DEATH(vel_getopt_show_description(stdout, "", 0, -1, 0),
                 asserts("maxwidth > 0", function));
}

/* ---- option types ---- */

TEST(VelgetoptInternal, OptionTypesHaveTheirNumbers)
{
    EXPECT_EQ(VEL_GETOPT_TYPE_NONE, 0);
    EXPECT_EQ(VEL_GETOPT_TYPE_HELP, 1);
    EXPECT_EQ(VEL_GETOPT_TYPE_CONST_STRING, 2);
    EXPECT_EQ(VEL_GETOPT_TYPE_INT, 3);
    EXPECT_EQ(VEL_GETOPT_TYPE_FLAG_SET, 4);
    EXPECT_EQ(VEL_GETOPT_TYPE_STRING_CALLBACK, 5);
    EXPECT_EQ(VEL_GETOPT_TYPE_COUNT, 6);
}

class VelgetoptType : public support::option_test {
  protected:
    void SetUp() override
    {
        option_test::SetUp();
        ASSERT_NE(options, nullptr);
        vel_getopt_set_error_callback(options, support::collect_option_error, &errors);
    }
    void TearDown() override
    {
        option_test::TearDown();
        EXPECT_EQ(errors, (support::option_errors{}));
    }

    support::log_capture log;
    support::option_errors errors;
};

TEST_F(VelgetoptType, UnknownTypeFails)
{
    velgetoptoption option = {};
    for (const int type : {0, 6, -1, 1000}) {
        option.optiontype = type;
        EXPECT_EQ(vel_getopt_option_process(options, &option, "-x", "value"), -1);
        EXPECT_EQ(log.take(), (log_lines{{"util/velgetopt", 6,
                                          "unrecognized option type " + std::to_string(type)}}));
    }
}

TEST_F(VelgetoptType, ProcessTellsWhetherTheValueWasUsed)
{
    int number = 0;
    velgetoptoption option = {};
    option.data.intptr = &number;
    option.optiontype = VEL_GETOPT_TYPE_FLAG_SET;
    EXPECT_EQ(vel_getopt_option_process(options, &option, "-x", "5"), 0);
    EXPECT_EQ(number, 1);
    option.optiontype = VEL_GETOPT_TYPE_INT;
    EXPECT_EQ(vel_getopt_option_process(options, &option, "-x", "5"), 1);
    EXPECT_EQ(number, 5);
}

using VelgetoptTypeDeathTest = VelgetoptType;

TEST_F(VelgetoptTypeDeathTest, AddAssertsItsArguments)
{
    const auto add = [&](int type, const char *text) {
        vel_getopt_option_add(options, type, "x", 'x', nullptr, text, nullptr, {nullptr});
    };
    const char *const function = "vel_getopt_option_add";
    EXPECT_DEATH(add(VEL_GETOPT_TYPE_NONE, nullptr),
                 asserts("optiontype > VEL_GETOPT_TYPE_NONE", function));
    EXPECT_DEATH(add(-1, ""), asserts("optiontype > VEL_GETOPT_TYPE_NONE", function));
    EXPECT_DEATH(add(VEL_GETOPT_TYPE_COUNT, nullptr),
                 asserts("optiontype < VEL_GETOPT_TYPE_COUNT", function));
    EXPECT_DEATH(add(VEL_GETOPT_TYPE_HELP, nullptr), asserts("description != NULL", function));
}

TEST_F(VelgetoptTypeDeathTest, DestinationsAreAsserted)
{
    velgetoptoption option = {};
    option.optiontype = VEL_GETOPT_TYPE_CONST_STRING;
    EXPECT_DEATH(vel_getopt_option_process(options, &option, "-x", "y"),
                 asserts("option->data.conststringptr != NULL"));
    option.optiontype = VEL_GETOPT_TYPE_INT;
    EXPECT_DEATH(vel_getopt_option_process(options, &option, "-x", "5"),
                 asserts("option->data.intptr != NULL"));
    option.optiontype = VEL_GETOPT_TYPE_FLAG_SET;
    EXPECT_DEATH(vel_getopt_option_process(options, &option, "-x", nullptr),
                 asserts("option->data.intptr != NULL"));
}
