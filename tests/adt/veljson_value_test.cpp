#include <cmath>
#include <cstdint>
#include <limits>
#include <ostream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/jsonfetch.h"
#include "support/jsontest.h"
#include "support/logcapture.h"
#include "support/rows.h"

using namespace support;
using testing::IsEmpty;

/* What the fetches of values make of one. */
struct value_row {
    const char *name;
    const char *text;
    int result; /* of the fetches of an integer of 64 bits and of a double */
    int64_t integer;
    double number;
    int boolean = -1; /* 1, 0 or none */
    bool isnull = false;
};

static void PrintTo(const value_row &row, std::ostream *out)
{
    *out << row.text;
}

class VeljsonFetchValue : public testing::TestWithParam<value_row> {
  protected:
    /* From the root and from a node; both have to agree. */
    template <typename Output, typename FromRoot, typename FromNode>
    fetched<Output> fetch_both(Output dirt, FromRoot fromroot, FromNode fromnode)
    {
        const auto one = fetch(log, dirt, [&](Output *out) {
            return fromroot(document, out, "a", "#", 1ul, nullptr);
        });
        EXPECT_EQ(fetch(log, dirt,
                        [&](Output *out) {
                            return fromnode(document, nullptr, out, "a", "#", 1ul, nullptr);
                        }),
                  one);
        const veljsonnode *array = document.member("a");
        EXPECT_EQ(
            fetch(log, dirt,
                  [&](Output *out) { return fromnode(document, array, out, "#", 1ul, nullptr); }),
            one);
        return one;
    }

    log_capture log;
    json_document document{"{\"a\":[0," + std::string(GetParam().text) + ",0]}"};
};

TEST_P(VeljsonFetchValue, Int64)
{
    EXPECT_EQ(fetch_both(int64_t(77), vel_json_fetch_int64, vel_json_node_fetch_int64),
              (fetched<int64_t>{GetParam().result, GetParam().integer, {}}));
}

TEST_P(VeljsonFetchValue, Int)
{
    fetched<int> expected = {GetParam().result, static_cast<int>(GetParam().integer), {}};
    if (expected.value != GetParam().integer)
        expected = {-1, 0, {json_line(6, "value too long to fit in an int variable")}};
    EXPECT_EQ(fetch_both(77, vel_json_fetch_int, vel_json_node_fetch_int), expected);
}

TEST_P(VeljsonFetchValue, Double)
{
    const auto one = fetch_both(77.0, vel_json_fetch_double, vel_json_node_fetch_double);
    EXPECT_EQ(one, (fetched<double>{GetParam().result, GetParam().number, {}}));
    EXPECT_EQ(std::signbit(one.value), std::signbit(GetParam().number));
}

TEST_P(VeljsonFetchValue, Boolean)
{
    const auto one = fetch(log, 77, [&](int *out) {
        return vel_json_fetch_boolean(document, out, "a", "#", 1ul, nullptr);
    });
    const int boolean = GetParam().boolean;
    EXPECT_EQ(one, (fetched<int>{boolean < 0 ? -1 : 0, boolean > 0, {}}));
}

TEST_P(VeljsonFetchValue, Null)
{
    const auto one = fetch(log, 77, [&](int *out) {
        return vel_json_fetch_null(document, out, "a", "#", 1ul, nullptr);
    });
    EXPECT_EQ(one, (fetched<int>{0, GetParam().isnull, {}}));
}

TEST_P(VeljsonFetchValue, String)
{
    const char *dirt = "dirt";
    const auto one = fetch_both(dirt, vel_json_fetch_string, vel_json_node_fetch_string);
    const bool isstring = GetParam().text[0] == '"';
    EXPECT_EQ(one.result, isstring ? 0 : -1);
    EXPECT_THAT(one.lines, IsEmpty());
    if (isstring)
        EXPECT_EQ("\"" + std::string(one.value) + "\"", GetParam().text);
    else
        EXPECT_EQ(one.value, nullptr);
}

static const value_row kValueRows[] = {
    {"Object", "{}", -1, 0, 0},
    {"Array", "[1]", -1, 0, 0},
    {"Null", "null", -1, 0, 0, -1, true},
    {"True", "true", 0, 1, 1, 1},
    {"False", "false", 0, 0, 0, 0},

    {"Zero", "0", 0, 0, 0},
    {"Integer", "12", 0, 12, 12},
    {"LargestInt", "2147483647", 0, 2147483647, 2147483647},
    {"SmallestInt", "-2147483648", 0, -2147483648, -2147483648.0},
    {"AboveTheLargestInt", "2147483648", 0, 2147483648, 2147483648},
    {"BelowTheSmallestInt", "-2147483649", 0, -2147483649, -2147483649.0},
    {"ThreeBillion", "3000000000", 0, 3000000000, 3000000000},
    {"LowBitsOfAnIntAreNone", "4294967296", 0, 4294967296, 4294967296},
    {"LargestInt64", "9223372036854775807", 0, INT64_MAX, 9223372036854775807.0},
    {"SmallestInt64", "-9223372036854775808", 0, INT64_MIN, -9223372036854775808.0},

    {"Double", "2.5", 0, 3, 2.5},
    {"NegativeDouble", "-2.5", 0, -3, -2.5},
    {"LargestIntAndAFraction", "2147483647.25", 0, 2147483647, 2147483647.25},
    {"RoundedOutOfAnInt", "2147483647.5", 0, 2147483648, 2147483647.5},
    {"RoundedIntoAnInt", "-2147483648.25", 0, -2147483648, -2147483648.25},
    {"BelowAnIntByAHalf", "-2147483648.5", 0, -2147483649, -2147483648.5},

    {"StringOfAnInteger", "\"12\"", 0, 12, 12},
    {"StringOfADouble", "\"2.5\"", 0, 3, 2.5},
    {"StringOfANegativeDouble", "\"-2.5\"", 0, -3, -2.5},
    {"StringAndRest", "\"12abc\"", 0, 12, 12},
    {"StringAndComma", "\"2,5\"", 0, 2, 2},
    {"StringAndDot", "\"2.\"", 0, 2, 2},
    {"StringLeadingDot", "\".5\"", 0, 1, 0.5},
    {"StringLeadingComma", "\",5\"", -1, 0, 0},
    {"StringLeadingSpace", "\"  7\"", 0, 7, 7},
    {"StringLeadingPlus", "\"+7\"", 0, 7, 7},
    {"StringExponent", "\"1e3\"", 0, 1000, 1000},
    {"StringNegativeExponent", "\"-15e-1x\"", 0, -2, -1.5},
    {"StringExponentWithoutDigits", "\"1e\"", 0, 1, 1},
    {"StringHexadecimal", "\"0x10\"", 0, 16, 16},
    {"StringHexadecimalFraction", "\"0x1.8p1\"", 0, 3, 3},
    {"StringHexadecimalWithoutDigits", "\"0xg\"", 0, 0, 0},
    {"StringNegativeZero", "\"-0\"", 0, 0, -0.0},
    {"StringOutOfAnInt", "\"3000000000\"", 0, 3000000000, 3000000000},
    {"StringOfWords", "\"abc\"", -1, 0, 0},
    {"StringEmpty", "\"\"", -1, 0, 0},
    {"StringOfSpace", "\"  \"", -1, 0, 0},
    {"StringOfASign", "\"-\"", -1, 0, 0},
    {"StringOfADot", "\".\"", -1, 0, 0},
    {"StringTrue", "\"true\"", -1, 0, 0},
};

INSTANTIATE_TEST_SUITE_P(Rows, VeljsonFetchValue, testing::ValuesIn(kValueRows), row_name());

TEST(VeljsonFetchDouble, StringsOfWhatIsNoFiniteNumber)
{
    json_document document(R"(["inf","-Infinity","nan","1e400","-1e400","1e-400"])");
    const double inf = std::numeric_limits<double>::infinity();
    const double expected[] = {inf, -inf, 0, inf, -inf, 0};
    for (unsigned long i = 0; i < 6; i++) {
        double number = 77;
        EXPECT_EQ(vel_json_fetch_double(document, &number, "#", i, nullptr), 0);
        if (i == 2)
            EXPECT_TRUE(std::isnan(number));
        else
            EXPECT_EQ(number, expected[i]) << i;
    }
}

/* Where the path leads nowhere, every fetch says so and writes its output. */
TEST(VeljsonFetchMissing, EachFetchWritesItsOutput)
{
    log_capture log;
    json_document document("{}");
    const log_lines lines = {json_line(13, "did not find node named 'a' under an object")};
    const char *dirt = "dirt";
    const auto string = [&](auto call) {
        EXPECT_EQ(fetch(log, dirt, call), (fetched<const char *>{-1, nullptr, lines}));
    };
    const auto integer = [&](auto call) {
        EXPECT_EQ(fetch(log, 77, call), (fetched<int>{-1, 0, lines}));
    };
    const auto int64 = [&](auto call) {
        EXPECT_EQ(fetch(log, int64_t(77), call), (fetched<int64_t>{-1, 0, lines}));
    };
    const auto number = [&](auto call) {
        EXPECT_EQ(fetch(log, 77.0, call), (fetched<double>{-1, 0, lines}));
    };
    string([&](const char **out) { return vel_json_fetch_string(document, out, "a", nullptr); });
    string([&](const char **out) {
        return vel_json_node_fetch_string(document, nullptr, out, "a", nullptr);
    });
    integer([&](int *out) { return vel_json_fetch_int(document, out, "a", nullptr); });
    integer(
        [&](int *out) { return vel_json_node_fetch_int(document, nullptr, out, "a", nullptr); });
    integer([&](int *out) { return vel_json_fetch_boolean(document, out, "a", nullptr); });
    integer([&](int *out) { return vel_json_fetch_null(document, out, "a", nullptr); });
    int64([&](int64_t *out) { return vel_json_fetch_int64(document, out, "a", nullptr); });
    int64([&](int64_t *out) {
        return vel_json_node_fetch_int64(document, nullptr, out, "a", nullptr);
    });
    number([&](double *out) { return vel_json_fetch_double(document, out, "a", nullptr); });
    number([&](double *out) {
        return vel_json_node_fetch_double(document, nullptr, out, "a", nullptr);
    });
}

TEST(VeljsonFetchString, ThePointerIsTheNodesOwn)
{
    json_document document("[\"a\"]");
    const char *first = nullptr, *second = nullptr;
    EXPECT_EQ(vel_json_fetch_string(document, &first, "#", 0ul, nullptr), 0);
    EXPECT_EQ(vel_json_fetch_string(document, &second, "#", 0ul, nullptr), 0);
    EXPECT_EQ(first, second);
}
