#include <vellib/velgetopt.h>

#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velerror.h>

#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/optiontest.h"
#include "support/rows.h"
#include "support/stdstreams.h"

using support::asserts;
using support::log_line;
using support::option_error;
using support::option_errors;

using log_lines = std::vector<log_line>;

static const char kModule[] = "util/velgetopt";

static const char kUsage[] = "usage: PROGRAM OPTIONS\n"
                             "OPTIONS:\n"
                             " -f, --flag                   A flag.\n"
                             " -g                           Another flag.\n"
                             " -s, --string=text            A string.\n"
                             " -n, --number=count           A number.\n"
                             " -m=count                     Another number.\n"
                             " -c, --call=word              A word for the callback.\n"
                             " -h, --help                   Show help.\n";

/* A program with options of every kind. */
class Velgetopt : public testing::Test {
  protected:
    void SetUp() override
    {
        options = vel_getopt_create();
        ASSERT_NE(options, nullptr);
        ASSERT_EQ(vel_getopt_flag_set(options, "flag", 'f', &flag, "A flag."), 0);
        ASSERT_EQ(vel_getopt_flag_set(options, nullptr, 'g', &otherflag, "Another flag."), 0);
        ASSERT_EQ(vel_getopt_const_string(options, "string", 's', &string, "text", "A string."), 0);
        ASSERT_EQ(vel_getopt_int(options, "number", 'n', &number, "count", "A number."), 0);
        ASSERT_EQ(vel_getopt_int(options, nullptr, 'm', &othernumber, "count", "Another number."),
                  0);
        ASSERT_EQ(vel_getopt_string_callback(options, "call", 'c', "word",
                                             "A word for the callback.", take_word, this),
                  0);
        ASSERT_EQ(vel_getopt_help(options, "help", 'h'), 0);
        vel_getopt_set_error_callback(options, support::collect_option_error, &errors);
    }
    void TearDown() override
    {
        vel_getopt_destroy(options);
        EXPECT_EQ(log.take(), (log_lines{}));
    }

    static vel_error_t take_word(const char *argument, void *context)
    {
        auto *test = static_cast<Velgetopt *>(context);
        test->words.push_back(argument);
        return test->wordresult;
    }

    int parse(const std::vector<std::string> &words_)
    {
        const support::arguments arguments(words_);
        return vel_getopt_parse(options, arguments.count(), arguments.values());
    }

    support::log_capture log;
    velgetopt *options = nullptr;
    int flag = 0;
    int otherflag = 0;
    const char *string = nullptr;
    int number = 77;
    int othernumber = 77;
    std::vector<std::string> words;
    vel_error_t wordresult = VEL_ERROR_NONE;
    option_errors errors;
};

/* ---- command lines that are good ---- */

struct good_case {
    const char *name;
    std::vector<std::string> arguments;
    int optind;
    int flag = 0;
    int otherflag = 0;
    const char *string = nullptr; /* what the string is when the parse ends */
    int number = 77;
    int othernumber = 77;
    std::vector<std::string> words = {};
};

static const good_case kGoodCases[] = {
    {"Nothing", {}, 1},
    {"ArgumentAlone", {"file"}, 1},
    {"FlagEndsAtArgument", {"-f", "file", "-g"}, 2, 1},
    {"EmptyArgumentEndsIt", {"-f", "", "-g"}, 2, 1},
    {"DashesEndIt", {"-f", "--", "-g"}, 3, 1},
    {"DashesAlone", {"--"}, 2},
    {"DashesLast", {"-f", "--"}, 3, 1},
    {"DashIsPassedOver", {"-", "-f", "-", "--flag"}, 5, 1},
    {"DashAlone", {"-"}, 2},
    {"LongFlag", {"--flag"}, 2, 1},
    {"FlagIgnoresValue", {"--flag=anything", "-g"}, 3, 1, 1},
    {"FlagIgnoresEmptyValue", {"--flag=", "file"}, 2, 1},
    {"FlagLeavesNextArgument", {"--flag", "1"}, 2, 1},
    {"Cluster", {"-fg"}, 2, 1, 1},
    {"ClusterRepeats", {"-gff"}, 2, 1, 1},
    {"ShortString", {"-s", "x"}, 3, 0, 0, "x"},
    {"LongString", {"--string", "x", "y"}, 3, 0, 0, "x"},
    {"StringBehindEqualSign", {"--string=x", "y"}, 2, 0, 0, "x"},
    {"StringBehindFirstEqualSign", {"--string=x=y="}, 2, 0, 0, "x=y="},
    {"EmptyStringBehindEqualSign", {"--string=", "-f"}, 3, 1, 0, ""},
    {"EmptyString", {"-s", ""}, 3, 0, 0, ""},
    {"LastStringStays", {"-s", "x", "--string", "y"}, 5, 0, 0, "y"},
    {"StringTakesOption", {"-s", "-f"}, 3, 0, 0, "-f"},
    {"LongStringTakesOption", {"--string", "--flag"}, 3, 0, 0, "--flag"},
    {"StringTakesDashes", {"-s", "--", "-f"}, 4, 1, 0, "--"},
    {"Number", {"-n", "5"}, 3, 0, 0, nullptr, 5},
    {"NegativeNumber", {"-n", "-5"}, 3, 0, 0, nullptr, -5},
    {"NumberBehindEqualSign", {"--number=0"}, 2, 0, 0, nullptr, 0},
    {"NumberWithSign", {"--number", "+12"}, 3, 0, 0, nullptr, 12},
    {"NumberAfterSpace", {"-n", " \t7"}, 3, 0, 0, nullptr, 7},
    {"NumberWithZeros", {"-n", "000000000000000000000010"}, 3, 0, 0, nullptr, 10},
    {"LargestNumber", {"-n", "2147483647"}, 3, 0, 0, nullptr, INT_MAX},
    {"SmallestNumber", {"-n", "-2147483648"}, 3, 0, 0, nullptr, INT_MIN},
    {"ClusterTakesTwoValues", {"-nm", "1", "2", "3"}, 4, 0, 0, nullptr, 1, 2},
    {"ClusterTakesValuesInItsOrder", {"-mfn", "1", "2"}, 4, 1, 0, nullptr, 2, 1},
    {"ClusterDoesNotHoldValues", {"-nf", "5"}, 3, 1, 0, nullptr, 5},
    {"Callback", {"-c", "a", "--call=b", "--call", "c"}, 6, 0, 0, nullptr, 77, 77, {"a", "b", "c"}},
    {"CallbackWithEmptyValue", {"--call="}, 2, 0, 0, nullptr, 77, 77, {""}},
    {"CallbackTwiceInCluster", {"-cc", "a", "b"}, 4, 0, 0, nullptr, 77, 77, {"a", "b"}},
};

class VelgetoptGood : public Velgetopt, public testing::WithParamInterface<good_case> {};

TEST_P(VelgetoptGood, Parse)
{
    const good_case &row = GetParam();
    const support::arguments arguments(row.arguments);
    support::stream_capture out(stdout);

    EXPECT_EQ(vel_getopt_parse(options, arguments.count(), arguments.values()), 0);
    EXPECT_EQ(vel_getopt_optind(options), row.optind);
    EXPECT_EQ(flag, row.flag);
    EXPECT_EQ(otherflag, row.otherflag);
    EXPECT_STREQ(string, row.string);
    EXPECT_EQ(number, row.number);
    EXPECT_EQ(othernumber, row.othernumber);
    EXPECT_EQ(words, row.words);
    EXPECT_EQ(errors, (option_errors{}));
    EXPECT_EQ(out.text(), "");
}

INSTANTIATE_TEST_SUITE_P(All, VelgetoptGood, testing::ValuesIn(kGoodCases), support::row_name());

/* ---- command lines that are not ---- */

struct bad_case {
    const char *name;
    std::vector<std::string> arguments;
    option_errors errors;
    log_lines lines = {};
};

static const bad_case kBadCases[] = {
    {"UnknownShort", {"-x"}, {{VEL_ERROR_NOT_FOUND, "-x", {}}}},
    {"UnknownShortInCluster", {"-fxg"}, {{VEL_ERROR_NOT_FOUND, "-x", {}}}},
    {"DashInCluster", {"-f-"}, {{VEL_ERROR_NOT_FOUND, "--", {}}}},
    {"ShortIsCaseSensitive", {"-F"}, {{VEL_ERROR_NOT_FOUND, "-F", {}}}},
    {"ValueInCluster",
     {"-n5"},
     {{VEL_ERROR_INVALID_SYNTAX, "-n", {}}},
     {{kModule, 6, "option '-n' requires an argument"}}},
    {"UnknownLong", {"--bogus"}, {{VEL_ERROR_NOT_FOUND, "--bogus", {}}}},
    {"UnknownLongWithValue", {"--bogus=value"}, {{VEL_ERROR_NOT_FOUND, "--bogus", {}}}},
    {"LongIsNoPrefix", {"--fla"}, {{VEL_ERROR_NOT_FOUND, "--fla", {}}}},
    {"LongIsLonger", {"--flags"}, {{VEL_ERROR_NOT_FOUND, "--flags", {}}}},
    {"LongIsCaseSensitive", {"--Flag"}, {{VEL_ERROR_NOT_FOUND, "--Flag", {}}}},
    {"ShortNameIsNotLong", {"--f"}, {{VEL_ERROR_NOT_FOUND, "--f", {}}}},
    {"EqualSignAlone", {"--=x"}, {{VEL_ERROR_NOT_FOUND, "--", {}}}},
    {"ThreeDashes", {"---"}, {{VEL_ERROR_NOT_FOUND, "---", {}}}},
    {"NumberWithoutValue",
     {"-n"},
     {{VEL_ERROR_INVALID_SYNTAX, "-n", {}}},
     {{kModule, 6, "option '-n' requires an argument"}}},
    {"LongNumberWithoutValue",
     {"--number"},
     {{VEL_ERROR_INVALID_SYNTAX, "--number", {}}},
     {{kModule, 6, "option '--number' requires an argument"}}},
    {"SecondNumberWithoutValue",
     {"-nm", "1"},
     {{VEL_ERROR_INVALID_SYNTAX, "-m", {}}},
     {{kModule, 6, "option '-m' requires an argument"}}},
    {"StringWithoutValue",
     {"-s"},
     {{VEL_ERROR_INVALID_SYNTAX, "-s", {}}},
     {{kModule, 13, "option '-s' requires an argument"}}},
    {"LongStringWithoutValue",
     {"-f", "--string"},
     {{VEL_ERROR_INVALID_SYNTAX, "--string", {}}},
     {{kModule, 13, "option '--string' requires an argument"}}},
    {"CallbackWithoutValue",
     {"--call"},
     {{VEL_ERROR_INVALID_SYNTAX, "--call", {}}},
     {{kModule, 13, "option '--call' requires an argument"}}},
    {"NoNumber", {"-n", "abc"}, {{VEL_ERROR_INVALID_ARGUMENT, "-n", "abc"}}},
    {"EmptyNumber", {"--number="}, {{VEL_ERROR_INVALID_ARGUMENT, "--number", ""}}},
    {"EmptyNumberArgument", {"--number", ""}, {{VEL_ERROR_INVALID_ARGUMENT, "--number", ""}}},
    {"NumberWithTail", {"--number=5x"}, {{VEL_ERROR_INVALID_ARGUMENT, "--number", "5x"}}},
    {"NumberWithSpaceBehind", {"-n", "5 "}, {{VEL_ERROR_INVALID_ARGUMENT, "-n", "5 "}}},
    {"HexadecimalNumber", {"-n", "0x10"}, {{VEL_ERROR_INVALID_ARGUMENT, "-n", "0x10"}}},
    {"SignAlone", {"-n", "-"}, {{VEL_ERROR_INVALID_ARGUMENT, "-n", "-"}}},
    {"TooLarge", {"-n", "2147483648"}, {{VEL_ERROR_OUT_OF_RANGE, "-n", "2147483648"}}},
    {"TooSmall", {"-n", "-2147483649"}, {{VEL_ERROR_OUT_OF_RANGE, "-n", "-2147483649"}}},
    {"FarTooLarge",
     {"-n", "9223372036854775808"},
     {{VEL_ERROR_OUT_OF_RANGE, "-n", "9223372036854775808"}}},
    {"TooLargeWithTail",
     {"--number=99999999999999999999x"},
     {{VEL_ERROR_OUT_OF_RANGE, "--number", "99999999999999999999x"}}},
    {"LargeIn32Bits", {"-n", "4294967297"}, {{VEL_ERROR_OUT_OF_RANGE, "-n", "4294967297"}}},
    {"LargeWithTail", {"-n", "4294967297x"}, {{VEL_ERROR_INVALID_ARGUMENT, "-n", "4294967297x"}}},
    {"OnlyTheFirstErrorCounts", {"-x", "--bogus", "-n"}, {{VEL_ERROR_NOT_FOUND, "-x", {}}}},
};

class VelgetoptBad : public Velgetopt, public testing::WithParamInterface<bad_case> {};

TEST_P(VelgetoptBad, Parse)
{
    support::stream_capture out(stdout);
    EXPECT_EQ(parse(GetParam().arguments), -1);
    EXPECT_EQ(vel_getopt_optind(options), 0);
    EXPECT_EQ(errors, GetParam().errors);
    EXPECT_EQ(log.take(), GetParam().lines);
    EXPECT_EQ(number, GetParam().name == std::string("SecondNumberWithoutValue") ? 1 : 77);
    EXPECT_EQ(string, nullptr);
    EXPECT_EQ(words, (std::vector<std::string>{}));
    EXPECT_EQ(out.text(), "");
}

/* Nothing but the result tells when there is no callback. */
TEST_P(VelgetoptBad, ParseWithoutErrorCallback)
{
    vel_getopt_set_error_callback(options, nullptr, nullptr);
    support::stream_capture out(stdout);
    support::stream_capture err(stderr);
    EXPECT_EQ(parse(GetParam().arguments), -1);
    EXPECT_EQ(vel_getopt_optind(options), 0);
    EXPECT_EQ(log.take(), GetParam().lines);
    EXPECT_EQ(errors, (option_errors{}));
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(err.text(), "");
}

INSTANTIATE_TEST_SUITE_P(All, VelgetoptBad, testing::ValuesIn(kBadCases), support::row_name());

TEST_F(Velgetopt, FailureOfCallbackGoesToErrorCallback)
{
    wordresult = VEL_ERROR_QUOTA;
    EXPECT_EQ(parse({"-c", "a", "-f"}), -1);
    EXPECT_EQ(words, (std::vector<std::string>{"a"}));
    EXPECT_EQ(errors, (option_errors{{VEL_ERROR_QUOTA, "-c", "a"}}));
    EXPECT_EQ(vel_getopt_optind(options), 0);
    EXPECT_EQ(flag, 0);
}

TEST_F(Velgetopt, FailureOfCallbackNamesLongOptionWithoutValue)
{
    wordresult = -3;
    EXPECT_EQ(parse({"--call=a"}), -1);
    EXPECT_EQ(errors, (option_errors{{-3, "--call", "a"}}));
}

TEST_F(Velgetopt, FailureKeepsWhatWasStoredBefore)
{
    EXPECT_EQ(parse({"-fn", "3", "--string=x", "--bogus", "-g"}), -1);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(number, 3);
    EXPECT_NE(string, nullptr);
    EXPECT_EQ(otherflag, 0);
}

/* ---- what the parse takes from its arguments ---- */

TEST_F(Velgetopt, StringIsNotCopied)
{
    const support::arguments arguments({"-s", "one", "--string=two"});
    ASSERT_EQ(vel_getopt_parse(options, 3, arguments.values()), 0);
    EXPECT_EQ(string, arguments.values()[2]);
    ASSERT_EQ(vel_getopt_parse(options, 4, arguments.values()), 0);
    EXPECT_EQ(string, arguments.values()[3] + strlen("--string="));
}

TEST_F(Velgetopt, ArgcOfZeroOrOneParsesNothing)
{
    const support::arguments arguments({"-f"});
    EXPECT_EQ(vel_getopt_parse(options, 1, arguments.values()), 0);
    EXPECT_EQ(vel_getopt_optind(options), 1);

    EXPECT_EQ(vel_getopt_parse(options, 0, arguments.values()), 0);
    EXPECT_EQ(vel_getopt_optind(options), 1);
    EXPECT_EQ(flag, 0);
}

TEST_F(Velgetopt, FirstArgumentIsPassedOver)
{
    char option[] = "-f";
    char *argv[] = {option, nullptr};
    EXPECT_EQ(vel_getopt_parse(options, 1, argv), 0);
    EXPECT_EQ(flag, 0);
}

TEST_F(Velgetopt, ArgcEndsTheArguments)
{
    const support::arguments arguments({"-n", "5"});
    EXPECT_EQ(vel_getopt_parse(options, 2, arguments.values()), -1);
    EXPECT_EQ(errors, (option_errors{{VEL_ERROR_INVALID_SYNTAX, "-n", {}}}));
    EXPECT_EQ(number, 77);
    log.clear();
}

TEST_F(Velgetopt, OptindIsZeroBeforeTheFirstParse)
{
    EXPECT_EQ(vel_getopt_optind(options), 0);
}

TEST_F(Velgetopt, OptindFollowsTheLastParse)
{
    EXPECT_EQ(parse({"-f", "a"}), 0);
    EXPECT_EQ(vel_getopt_optind(options), 2);
    EXPECT_EQ(parse({"-x"}), -1);
    EXPECT_EQ(vel_getopt_optind(options), 0);
    EXPECT_EQ(parse({}), 0);
    EXPECT_EQ(vel_getopt_optind(options), 1);
}

/* ---- help ---- */

TEST_F(Velgetopt, HelpPrintsUsageAndGoesOn)
{
    support::stream_capture out(stdout);
    EXPECT_EQ(parse({"-h"}), 1);
    EXPECT_EQ(vel_getopt_optind(options), 2);
    EXPECT_EQ(out.text(), kUsage);

    EXPECT_EQ(parse({"--help=please", "-f", "file"}), 1);
    EXPECT_EQ(vel_getopt_optind(options), 3);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(out.text(), std::string(kUsage) + kUsage);
}

TEST_F(Velgetopt, HelpTwicePrintsUsageTwice)
{
    support::stream_capture out(stdout);
    EXPECT_EQ(parse({"-hh"}), 1);
    EXPECT_EQ(out.text(), std::string(kUsage) + kUsage);
}

TEST_F(Velgetopt, ErrorBehindHelpFails)
{
    support::stream_capture out(stdout);
    EXPECT_EQ(parse({"--help", "--bogus"}), -1);
    EXPECT_EQ(vel_getopt_optind(options), 0);
    EXPECT_EQ(out.text(), kUsage);
    EXPECT_EQ(errors, (option_errors{{VEL_ERROR_NOT_FOUND, "--bogus", {}}}));
}

TEST_F(Velgetopt, ErrorBeforeHelpHidesIt)
{
    support::stream_capture out(stdout);
    EXPECT_EQ(parse({"--bogus", "--help"}), -1);
    EXPECT_EQ(out.text(), "");
}

TEST_F(Velgetopt, HelpIsForgottenByTheNextParse)
{
    support::stream_capture out(stdout);
    EXPECT_EQ(parse({"-h"}), 1);
    EXPECT_EQ(parse({"-f"}), 0);
    EXPECT_EQ(parse({"-h", "-x"}), -1);
    EXPECT_EQ(parse({}), 0);
}

/* ---- declarations ---- */

TEST_F(Velgetopt, FirstOfEqualNamesWins)
{
    int second = 0;
    ASSERT_EQ(vel_getopt_flag_set(options, "flag", 'g', &second, "Never reached."), 0);
    ASSERT_EQ(vel_getopt_flag_set(options, "second", 'f', &second, "By its long name."), 0);
    EXPECT_EQ(parse({"-f", "--flag", "-g"}), 0);
    EXPECT_EQ(second, 0);
    EXPECT_EQ(parse({"--second"}), 0);
    EXPECT_EQ(second, 1);
}

TEST_F(Velgetopt, DeclarationIsCopied)
{
    char longopt[] = "copied";
    char optionname[] = "name";
    char description[] = "Text.";
    int value = 0;
    velgetopt *other = vel_getopt_create();
    ASSERT_EQ(vel_getopt_int(other, longopt, 0, &value, optionname, description), 0);
    longopt[0] = optionname[0] = description[0] = '?';
    EXPECT_EQ(support::usage_text(other), "usage: PROGRAM OPTIONS\nOPTIONS:\n"
                                          " --copied=name                Text.\n");
    vel_getopt_destroy(other);
}

TEST_F(Velgetopt, EmptyLongNameIsFoundBeforeEqualSign)
{
    const char *value = nullptr;
    ASSERT_EQ(vel_getopt_const_string(options, "", 0, &value, "x", "Odd."), 0);
    const support::arguments arguments({"--=odd", "--"});
    EXPECT_EQ(vel_getopt_parse(options, arguments.count(), arguments.values()), 0);
    EXPECT_STREQ(value, "odd");
    EXPECT_EQ(vel_getopt_optind(options), 3);
}

TEST_F(Velgetopt, DashCanBeShortName)
{
    int dash = 0;
    ASSERT_EQ(vel_getopt_flag_set(options, nullptr, '-', &dash, "Odd."), 0);
    EXPECT_EQ(parse({"-f-"}), 0);
    EXPECT_EQ(dash, 1);
}

TEST_F(Velgetopt, ContextOfCallbackMayBeNull)
{
    static int calls;
    calls = 0;
    const auto count = [](const char *, void *context) -> vel_error_t {
        EXPECT_EQ(context, nullptr);
        calls++;
        return VEL_ERROR_NONE;
    };
    ASSERT_EQ(vel_getopt_string_callback(options, "count", 0, "x", "Counts.", count, nullptr), 0);
    EXPECT_EQ(parse({"--count=1", "--count", "2"}), 0);
    EXPECT_EQ(calls, 2);
}

/* ---- assertions ---- */

static vel_error_t refuse(const char *, void *)
{
    return VEL_ERROR_GENERIC;
}

class VelgetoptDeathTest : public Velgetopt {};

TEST_F(VelgetoptDeathTest, LifeAssertsHandle)
{
    EXPECT_DEATH(vel_getopt_destroy(nullptr), asserts("velgetopt != NULL", "vel_getopt_destroy"));
    EXPECT_DEATH(vel_getopt_set_error_callback(nullptr, nullptr, nullptr),
                 asserts("velgetopt != NULL", "vel_getopt_set_error_callback"));
}

TEST_F(VelgetoptDeathTest, DeclarationsAssertHandleFirst)
{
    EXPECT_DEATH(vel_getopt_const_string(nullptr, nullptr, 0, nullptr, nullptr, nullptr),
                 asserts("velgetopt != NULL"));
    EXPECT_DEATH(vel_getopt_int(nullptr, nullptr, 0, nullptr, nullptr, nullptr),
                 asserts("velgetopt != NULL"));
    EXPECT_DEATH(vel_getopt_flag_set(nullptr, nullptr, 0, nullptr, nullptr),
                 asserts("velgetopt != NULL"));
    EXPECT_DEATH(
        vel_getopt_string_callback(nullptr, nullptr, 0, nullptr, nullptr, nullptr, nullptr),
        asserts("velgetopt != NULL"));
    EXPECT_DEATH(vel_getopt_help(nullptr, nullptr, 0), asserts("velgetopt != NULL"));
}

TEST_F(VelgetoptDeathTest, DestinationsAreAsserted)
{
    EXPECT_DEATH(vel_getopt_const_string(options, "a", 0, nullptr, nullptr, nullptr),
                 asserts("stringptr != NULL"));
    EXPECT_DEATH(vel_getopt_int(options, "a", 0, nullptr, nullptr, nullptr),
                 asserts("intptr != NULL"));
    EXPECT_DEATH(vel_getopt_flag_set(options, "a", 0, nullptr, nullptr), asserts("intptr != NULL"));
}

TEST_F(VelgetoptDeathTest, OptionNamesAreAsserted)
{
    EXPECT_DEATH(vel_getopt_const_string(options, "a", 0, &string, nullptr, nullptr),
                 asserts("optionname != NULL"));
    EXPECT_DEATH(vel_getopt_int(options, "a", 0, &number, nullptr, nullptr),
                 asserts("optionname != NULL"));
    EXPECT_DEATH(vel_getopt_string_callback(options, "a", 0, nullptr, nullptr, refuse, nullptr),
                 asserts("optionname != NULL"));
}

TEST_F(VelgetoptDeathTest, DescriptionsAreAsserted)
{
    EXPECT_DEATH(vel_getopt_const_string(options, "a", 0, &string, "b", nullptr),
                 asserts("description != NULL"));
    EXPECT_DEATH(vel_getopt_int(options, "a", 0, &number, "b", nullptr),
                 asserts("description != NULL"));
    EXPECT_DEATH(vel_getopt_flag_set(options, "a", 0, &flag, nullptr),
                 asserts("description != NULL"));
    EXPECT_DEATH(vel_getopt_string_callback(options, "a", 0, "b", nullptr, refuse, nullptr),
                 asserts("description != NULL"));
}

TEST_F(VelgetoptDeathTest, MissingCallbackIsAsserted)
{
    ASSERT_EQ(vel_getopt_string_callback(options, "missing", 0, "b", "c", nullptr, nullptr), 0);
    EXPECT_DEATH(parse({"--missing=x"}),
                 asserts("option->callback != NULL", "vel_getopt_option_process"));
    EXPECT_DEATH(parse({"--missing"}),
                 asserts("option->callback != NULL", "vel_getopt_option_process"));
}

TEST_F(VelgetoptDeathTest, ParseAssertsItsArguments)
{
    char *argv[] = {nullptr};
    EXPECT_DEATH(vel_getopt_parse(nullptr, -1, nullptr),
                 asserts("velgetopt != NULL", "vel_getopt_parse"));
    EXPECT_DEATH(vel_getopt_parse(options, -1, nullptr), asserts("argc >= 0", "vel_getopt_parse"));
    EXPECT_DEATH(vel_getopt_parse(options, 0, nullptr),
                 asserts("argv != NULL", "vel_getopt_parse"));
    EXPECT_DEATH(vel_getopt_parse(options, -1, argv), asserts("argc >= 0"));
}
