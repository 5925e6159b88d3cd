#include <cstdint>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/jsontest.h"
#include "support/logcapture.h"
#include "support/platform_malloc.h"
#include "support/rows.h"

using namespace support;
using testing::IsEmpty;

struct output_row {
    const char *name;
    const char *text; /* is parsed */
    const char *output;
};

static void PrintTo(const output_row &row, std::ostream *out)
{
    *out << row.text;
}

class VeljsonOutput : public testing::TestWithParam<output_row> {};

TEST_P(VeljsonOutput, Row)
{
    json_document document(GetParam().text);
    const std::string before = json_text_of(document);
    log_capture log;
    EXPECT_EQ(document.output(), GetParam().output);
    EXPECT_THAT(json_lines(log), IsEmpty());
    EXPECT_EQ(json_text_of(document), before);
}

static const output_row kOutputRows[] = {
    {"EmptyObject", "{}", "{ }"},
    {"EmptyArray", "[]", "[ ]"},
    {"NestedEmptyArray", "{\"a\":[]}", "{ \"a\": [ ] }"},
    {"NestedEmptyObjects", "[{},{}]", "[ { }, { } ]"},
    {"OneMember", "{\"a\":1}", "{ \"a\": 1 }"},
    {"OneElement", "[1]", "[ 1 ]"},
    {"TwoElements", "[1,2]", "[ 1, 2 ]"},
    {"Keywords", "[true,false,null]", "[ true, false, null ]"},
    {"Nested", "[[1,[2]],3]", "[ [ 1, [ 2 ] ], 3 ]"},
    {"LineBreaksGo", "[\n1\n,\n2\n]\n", "[ 1, 2 ]"},
    {"EscapedKey", R"({"a\"\n":1})", R"({ "a\"\n": 1 })"},
    {"EmptyKey", R"({"":""})", R"({ "": "" })"},
    {"ShortEscapes", R"(["\"\\\b\t\n\f\r"])", R"([ "\"\\\b\t\n\f\r" ])"},
    {"TabQuoteAndOne", R"(["\t\"\u0001"])", R"([ "\t\"\u0001" ])"},
    {"OtherControlCharacters", R"(["\u000b\u000e\u001f\u0007"])",
     R"([ "\u000b\u000e\u001f\u0007" ])"},
    {"SlashIsPlain", R"(["\/"])", R"([ "/" ])"},
    {"DeleteIsPlain", R"(["\u007f"])", "[ \"\x7f\" ]"},
    {"Utf8IsPlain", R"(["\u00e4\ud83d\ude00"])", "[ \"\xc3\xa4\xf0\x9f\x98\x80\" ]"},
    {"AnyHighByteIsPlain", "[\"\x80\xff\"]", "[ \"\x80\xff\" ]"},
    {"EndsAtZero", R"(["a\u0000b"])", R"([ "a" ])"},
    {"Integers", "[0,-1,10,9223372036854775807,-9223372036854775808]",
     "[ 0, -1, 10, 9223372036854775807, -9223372036854775808 ]"},
    {"LosesAnIntegerOutOfRange", "[9223372036854775808]", "[ 0 ]"},
    {"LosesALeadingZero", "[01]", "[ 1 ]"},
};

INSTANTIATE_TEST_SUITE_P(Rows, VeljsonOutput, testing::ValuesIn(kOutputRows), row_name());

struct double_row {
    const char *name;
    double value;
    const char *output;
};

static void PrintTo(const double_row &row, std::ostream *out)
{
    *out << row.value;
}

class VeljsonOutputDouble : public testing::TestWithParam<double_row> {};

TEST_P(VeljsonOutputDouble, Row)
{
    json_document document;
    EXPECT_EQ(vel_json_node_set_double(document, nullptr, GetParam().value), VEL_ERROR_NONE);
    EXPECT_EQ(document.output(), GetParam().output);
}

using limits = std::numeric_limits<double>;

static const double_row kDoubleRows[] = {
    {"Zero", 0.0, "0"},
    {"NegativeZero", -0.0, "-0"},
    {"One", 1.0, "1"},
    {"Tenth", 0.1, "0.1"},
    {"OneAndAHalf", 1.5, "1.5"},
    {"Negative", -2.25, "-2.25"},
    {"SixDigits", 123456.0, "123456"},
    {"SevenDigits", 1234567.0, "1.23457e+06"},
    {"RoundedUpToSeven", 999999.5, "1e+06"},
    {"HalfToEven", 100000.5, "100000"},
    {"HalfToEvenUp", 100001.5, "100002"},
    {"Third", 1.0 / 3, "0.333333"},
    {"FourZeros", 0.0001, "0.0001"},
    {"FiveZeros", 0.00001, "1e-05"},
    {"Largest", limits::max(), "1.79769e+308"},
    {"Smallest", limits::denorm_min(), "4.94066e-324"},
    {"LongestText", -limits::min(), "-2.22507e-308"},
    {"Infinity", limits::infinity(), "inf"},
    {"NegativeInfinity", -limits::infinity(), "-inf"},
    {"NotANumber", limits::quiet_NaN(), "nan"},
    {"NegativeNotANumber", -limits::quiet_NaN(), "-nan"},
};

INSTANTIATE_TEST_SUITE_P(Rows, VeljsonOutputDouble, testing::ValuesIn(kDoubleRows), row_name());

TEST(VeljsonOutputRoot, AScalar)
{
    json_document document;
    EXPECT_EQ(vel_json_node_set_null(document, nullptr), VEL_ERROR_NONE);
    EXPECT_EQ(document.output(), "null");
    EXPECT_EQ(vel_json_node_set_string(document, nullptr, "a\"\x01"), VEL_ERROR_NONE);
    EXPECT_EQ(document.output(), "\"a\\\"\\u0001\"");
    EXPECT_EQ(vel_json_node_set_integer(document, nullptr, INT64_MIN), VEL_ERROR_NONE);
    EXPECT_EQ(document.output(), "-9223372036854775808");
}

TEST(VeljsonOutputString, EveryByte)
{
    std::string text;
    std::string expected;
    for (int byte = 1; byte < 256; byte++) {
        const char ch = static_cast<char>(byte);
        text += ch;
        static const std::string kShort = "\"\\\b\t\n\f\r";
        const size_t place = kShort.find(ch);
        char code[8];
        snprintf(code, sizeof code, "\\u%04x", byte);
        if (place != std::string::npos)
            expected += std::string("\\") + "\"\\btnfr"[place];
        else
            expected += byte < 32 ? std::string(code) : std::string(1, ch);
    }
    json_document document;
    EXPECT_EQ(vel_json_node_set_string(document, nullptr, text.c_str()), VEL_ERROR_NONE);
    EXPECT_EQ(document.output(), "\"" + expected + "\"");
}

TEST(VeljsonOutputString, EscapesAtEveryPlace)
{
    for (size_t length = 0; length < 100; length++) {
        for (size_t place = 0; place < length; place++) {
            std::string text(length, 'a');
            text[place] = '\x1e';
            std::string expected = text;
            expected.replace(place, 1, "\\u001e");
            json_document document;
            ASSERT_EQ(vel_json_node_set_string(document, nullptr, text.c_str()), VEL_ERROR_NONE);
            ASSERT_EQ(document.output(), "\"" + expected + "\"");
        }
    }
}

TEST(VeljsonOutputObject, MembersComeInTheOrderOfTheEnumeration)
{
    json_document document("{}");
    for (int i = 0; i < 300; i++) {
        ASSERT_NE(vel_json_node_object_add(document, document.root(), std::to_string(i).c_str()),
                  nullptr);
        std::string expected = "{ ";
        const char *key = nullptr;
        veljsonnode *value = nullptr;
        for (void *handle = vel_json_enumerate_start(document, document.root(), &key, &value);
             handle;
             handle = vel_json_enumerate_next(document, document.root(), handle, &key, &value))
            expected += "\"" + std::string(key) + "\": null, ";
        expected.replace(expected.size() - 2, 2, " }");
        ASSERT_EQ(document.output(), expected);
    }
}

/* Texts of all lengths around those at which the buffer grows, by each kind of writer. */
TEST(VeljsonOutputBuffer, EveryLengthAroundAGrowth)
{
    static const char *const kEnds[] = {"1",       "-9223372036854775808",
                                        "1.25",    "true",
                                        "\"abc\"", "[ ]",
                                        "{ }",     "{ \"key\": [ 1, 2.5, null, false ] }"};
    for (const size_t size : {4095, 8190, 16380}) {
        for (const std::string end : kEnds) {
            for (size_t length = size - 60; length < size + 8; length++) {
                const std::string expected =
                    "[ \"" + std::string(length, 'x') + "\", " + end + " ]";
                json_document document(expected);
                ASSERT_EQ(document.output(), expected) << length;
            }
        }
    }
}

TEST(VeljsonOutputBuffer, AStringThatFillsItExactly)
{
    for (size_t length = 4080; length < 4100; length++) {
        json_document document;
        const std::string text(length, 'x');
        ASSERT_EQ(vel_json_node_set_string(document, nullptr, text.c_str()), VEL_ERROR_NONE);
        ASSERT_EQ(document.output(), "\"" + text + "\"");
    }
}

static std::vector<size_t> allocations_of_output(size_t length)
{
    json_document document("[\"" + std::string(length, 'x') + "\"]");
    malloc_watch watch;
    char *text = vel_json_output(document);
    const std::vector<size_t> sizes = malloc_watch::sizes();
    EXPECT_NE(text, nullptr);
    vel_free(text);
    return sizes;
}

TEST(VeljsonOutputBuffer, DoublesAndTheResultHasItsExactSize)
{
    /* With the brackets, the blanks and the quotes. */
    const std::vector<size_t> small = allocations_of_output(10);
    EXPECT_EQ(small.front(), 4095u);
    EXPECT_EQ(small.back(), 10u + 6 + 1);
    EXPECT_THAT(small, testing::Not(testing::Contains(8190u)));

    const std::vector<size_t> large = allocations_of_output(5000);
    EXPECT_EQ(large.front(), 4095u);
    EXPECT_EQ(large.back(), 5000u + 6 + 1);
    EXPECT_THAT(large, testing::Contains(8190u));
    EXPECT_THAT(large, testing::Not(testing::Contains(16380u)));

    const std::vector<size_t> larger = allocations_of_output(16380);
    EXPECT_EQ(larger.back(), 16380u + 6 + 1);
    EXPECT_THAT(larger, testing::IsSupersetOf({8190u, 16380u, 32760u}));
}

TEST(VeljsonOutputBuffer, LongTextsComeThroughWhole)
{
    for (const size_t length : {5000, 100000, 3000000}) {
        std::string text;
        for (size_t i = 0; i < length; i++)
            text += static_cast<char>('a' + i % 26);
        json_document document("[\"" + text + "\"]");
        EXPECT_TRUE(document.output() == "[ \"" + text + "\" ]") << length;
    }
}

TEST(VeljsonOutputDeathTest, Assertions)
{
    json_document document;
    EXPECT_DEATH(vel_json_output(nullptr), asserts("veljson != NULL", "vel_json_output"));
    EXPECT_DEATH(vel_json_output(document), asserts("node != NULL", "vel_json_node_output"));
}
