#include <vellib/velformat.h>

#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velerror.h>
#include <vellib/velmalloc.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/eachfailure.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/rows.h"

using support::asserts;
using support::log_line;

using log_lines = std::vector<log_line>;
using pair_list = std::vector<std::pair<const char *, const char *>>;

static const char kModule[] = "util/velformat";

/* Formats with up to four pairs. */
static std::optional<std::string> format(const char *text, const pair_list &pairs)
{
    const char *words[8] = {};
    for (size_t index = 0; index < pairs.size(); index++) {
        words[2 * index] = pairs[index].first;
        words[2 * index + 1] = pairs[index].second;
    }
    char *formatted = vel_format(text, words[0], words[1], words[2], words[3], words[4], words[5],
                                 words[6], words[7], static_cast<char *>(nullptr));
    if (!formatted)
        return std::nullopt;
    std::string result = formatted;
    vel_free(formatted);
    return result;
}

struct format_case {
    const char *name;
    const char *format;
    pair_list pairs;
    std::optional<std::string> formatted;
    log_lines lines = {};
};

static const log_line kNullValue = {kModule, 6, "value given for '(null)' was NULL"};
static const log_line kInvalid = {kModule, 6,
                                  "initial formatting returned error 22 (invalid argument)"};

static log_line unknown(const std::string &variable, const std::string &format)
{
    return {kModule, 6, "no variable '" + variable + "' given for format string '" + format + "'"};
}

static log_line unterminated(const std::string &variable, const std::string &format)
{
    return {kModule, 6,
            "unterminated variable '" + variable + "' in format string '" + format + "'"};
}

static const format_case kFormatCases[] = {
    {"Empty", "", {}, ""},
    {"EmptyWithPairs", "", {{"a", "1"}}, ""},
    {"Plain", "plain \\n text", {}, "plain \\n text"},
    {"Variable", "x%a%y", {{"a", "1"}}, "x1y"},
    {"VariableAlone", "%a%", {{"a", "1"}}, "1"},
    {"LongName", "%a b-c.d%", {{"a", "1"}, {"a b-c.d", "2"}}, "2"},
    {"NameInUtf8", "%\xc3\xa9%", {{"e", "1"}, {"\xc3\xa9", "2"}}, "2"},
    {"CaseMatters", "%a%%A%", {{"A", "1"}, {"a", "2"}}, "21"},
    {"NoPrefix", "%ab%", {{"a", "1"}, {"abc", "2"}, {"ab", "3"}}, "3"},
    {"Twice", "%a%%a%-%a%", {{"a", "1"}}, "11-1"},
    {"OrderOfPairsIsFree", "%b%%a%", {{"a", "1"}, {"b", "2"}}, "21"},
    {"FirstPairWins", "%a%", {{"a", "1"}, {"a", "2"}}, "1"},
    {"EmptyValue", "x%a%y", {{"a", ""}}, "xy"},
    {"ValueIsNotScanned", "%a%", {{"a", "%a%%b%%"}}, "%a%%b%%"},
    {"PercentSign", "100%%", {}, "100%"},
    {"PercentSignAlone", "%%", {}, "%"},
    {"PercentSigns", "%%%%%%", {}, "%%%"},
    {"PercentSignThenVariable", "%%%a%", {{"a", "1"}}, "%1"},
    {"VariableThenPercentSign", "%a%%%", {{"a", "1"}}, "1%"},
    {"EmptyNameIsPercentSign", "%%", {{"", "1"}}, "%"},
    {"NoConversion", "%s d%", {{"s d", "1"}}, "1"},
    {"Unknown", "x%b%y", {{"a", "1"}}, "xy", {unknown("b", "x%b%y")}},
    {"UnknownWithoutPairs", "x%b%y", {}, "xy", {unknown("b", "x%b%y")}},
    {"UnknownTwice", "%b%%c%", {{"a", "1"}}, "", {unknown("b", "%b%%c%"), unknown("c", "%b%%c%")}},
    {"Unterminated", "x%a", {{"a", "1"}}, "x%a", {unterminated("a", "x%a")}},
    {"UnterminatedAlone", "%s", {}, "%s", {unterminated("s", "%s")}},
    {"UnterminatedLong",
     "%a%, %rest of it",
     {{"a", "1"}},
     "1, %rest of it",
     {unterminated("rest of it", "%a%, %rest of it")}},
    {"UnterminatedBehindPercentSign", "%%%a", {}, "%%a", {unterminated("a", "%%%a")}},
    {"UnknownAndUnterminated",
     "%a%%b",
     {},
     "%b",
     {unknown("a", "%a%%b"), unterminated("b", "%a%%b")}},
    {"NullValue", "x%a%y", {{"a", nullptr}}, std::nullopt, {kNullValue, kInvalid}},
    {"NullValueBeforeTheMatch",
     "x%b%y",
     {{"a", nullptr}, {"b", "2"}},
     std::nullopt,
     {kNullValue, kInvalid}},
    {"NullValueBehindTheMatch", "x%a%y", {{"a", "1"}, {"b", nullptr}}, "x1y"},
    {"NullValueBehindAnyPairOfTheName", "x%a%y", {{"a", "1"}, {"a", nullptr}}, "x1y"},
    {"NullValueWithoutVariable", "xy%%", {{"a", nullptr}}, "xy%"},
    {"NullValueWithUnterminated", "x%b", {{"a", nullptr}}, "x%b", {unterminated("b", "x%b")}},
    {"UnknownReachesNullValue",
     "x%c%y",
     {{"a", "1"}, {"b", nullptr}},
     std::nullopt,
     {kNullValue, kInvalid}},
    {"NullValueIsMetByEachVariable",
     "%c%%a%%d%",
     {{"a", "1"}, {"b", nullptr}},
     std::nullopt,
     {kNullValue, kNullValue, kInvalid}},
    {"NullValueBehindGoodVariable",
     "%a%%c%",
     {{"a", "1"}, {"b", nullptr}},
     std::nullopt,
     {kNullValue, kInvalid}},
};

class VelformatCase : public testing::TestWithParam<format_case> {};

TEST_P(VelformatCase, Format)
{
    support::log_capture log;
    EXPECT_EQ(format(GetParam().format, GetParam().pairs), GetParam().formatted);
    EXPECT_EQ(log.take(), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(All, VelformatCase, testing::ValuesIn(kFormatCases), support::row_name());

TEST(Velformat, ManyPairs)
{
    char *formatted = vel_format("%a%%b%%c%%d%%e%%f%%g%%h%%i%%j%%k%%l%", "l", "12", "k", "11", "j",
                                 "10", "i", "9", "h", "8", "g", "7", "f", "6", "e", "5", "d", "4",
                                 "c", "3", "b", "2", "a", "1", static_cast<char *>(nullptr));
    EXPECT_STREQ(formatted, "123456789101112");
    vel_free(formatted);
}

TEST(Velformat, NothingIsReadBehindTheNullName)
{
    support::log_capture log;
    char *formatted =
        vel_format("%a%", static_cast<char *>(nullptr), "a", "1", static_cast<char *>(nullptr));
    EXPECT_STREQ(formatted, "");
    vel_free(formatted);
    EXPECT_EQ(log.take(), (log_lines{unknown("a", "%a%")}));
}

TEST(Velformat, LargeValues)
{
    const std::string value(1 << 20, 'v');
    const std::string name(1 << 16, 'n');
    const std::string text = "<%" + name + "%%" + name + "%>";
    EXPECT_EQ(format(text.c_str(), {{"a", "1"}, {name.c_str(), value.c_str()}}),
              "<" + value + value + ">");
}

/* ---- beside a naive implementation ---- */

struct naive_result {
    std::optional<std::string> formatted;
    log_lines lines;
};

static naive_result naive_format(const std::string &text, const pair_list &pairs)
{
    naive_result result = {"", {}};
    log_lines nulls;
    size_t position = 0;
    for (size_t sign; (sign = text.find('%', position)) != std::string::npos;) {
        *result.formatted += text.substr(position, sign - position);
        const size_t end = text.find('%', sign + 1);
        if (end == std::string::npos) {
            result.lines.push_back(unterminated(text.substr(sign + 1), text));
            position = sign;
            break;
        }
        position = end + 1;
        const std::string name = text.substr(sign + 1, end - sign - 1);
        if (name.empty()) {
            *result.formatted += '%';
            continue;
        }
        size_t pair = 0;
        while (pair < pairs.size() && pairs[pair].second && pairs[pair].first != name)
            pair++;
        if (pair == pairs.size())
            result.lines.push_back(unknown(name, text));
        else if (!pairs[pair].second)
            nulls.push_back(kNullValue);
        else
            *result.formatted += pairs[pair].second;
    }
    if (!nulls.empty()) {
        nulls.push_back(kInvalid);
        return {std::nullopt, nulls};
    }
    *result.formatted += text.substr(position);
    return result;
}

/* A format that does not abort. */
static std::string any_format(std::mt19937 &engine)
{
    for (;;) {
        std::string text;
        for (unsigned count = engine() % 12; count > 0; count--)
            text += "ab%%%x"[engine() % 6];
        size_t sign = std::string::npos;
        for (size_t position = 0; position < text.size(); position++)
            if (text[position] == '%')
                sign = sign == std::string::npos ? position : std::string::npos;
        if (sign == std::string::npos || sign + 1 < text.size())
            return text;
    }
}

TEST(Velformat, RandomFormats)
{
    support::log_capture log;
    static const char *const kNames[] = {"a", "b", "x", "ab", "aa"};
    static const char *const kValues[] = {"", "1", "%", "%a%", "a longer value", nullptr};
    std::mt19937 engine(4711);
    size_t failed = 0;
    for (int turn = 0; turn < 5000; turn++) {
        const std::string text = any_format(engine);
        pair_list pairs;
        for (unsigned count = engine() % 5; count > 0; count--)
            pairs.push_back({kNames[engine() % 5], kValues[engine() % 6]});
        const naive_result expected = naive_format(text, pairs);
        ASSERT_EQ(format(text.c_str(), pairs), expected.formatted) << text;
        ASSERT_EQ(log.take(), expected.lines) << text;
        failed += !expected.formatted;
    }
    EXPECT_GT(failed, 200u);
    EXPECT_LT(failed, 4000u);
}

/* ---- without memory ---- */

TEST(Velformat, FailedAllocations)
{
    support::log_capture log;
    support::warm_log(log);
    const std::vector<log_lines> failures = support::allocfail_each(log, [] {
        const std::optional<std::string> formatted = format("%a%-%b%", {{"a", "1"}, {"b", "2"}});
        EXPECT_TRUE(!formatted || *formatted == "1-2");
        return formatted.has_value();
    });
    const log_line variable = {kModule, 7, "not enough memory for variable name"};
    const log_line initial = {kModule, 6,
                              "initial formatting returned error 12 (not enough memory)"};
    const log_line final = {kModule, 6, "final formatting returned error 12 (not enough memory)"};
    EXPECT_EQ(failures,
              (std::vector<log_lines>{{variable, initial},
                                      {variable, initial},
                                      {{kModule, 7, "not enough memory for formatting string"}},
                                      {variable, final},
                                      {variable, final}}));
}

TEST(VelformatOom, Life)
{
    support::vel_oom_drive([] {
        const std::optional<std::string> formatted =
            format("%a%%b%%%%nobody%%rest", {{"a", "1"}, {"b", "2"}});
        EXPECT_TRUE(!formatted || *formatted == "12%%rest");
        return formatted.has_value();
    });
}

/* ---- assertions ---- */

TEST(VelformatDeathTest, FormatIsAsserted)
{
    EXPECT_DEATH(format(nullptr, {}), asserts("format != NULL", "vel_format"));
}

TEST(VelformatDeathTest, PercentSignThatOpensNothing)
{
    for (const char *text : {"%", "100%", "%%%", "%a%%"})
        EXPECT_DEATH(format(text, {{"a", "1"}}), asserts("start < i", "vel_format_internal"))
            << text;
}
