#include <algorithm>
#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/jsontest.h"
#include "support/logcapture.h"
#include "support/rows.h"

using namespace support;
using testing::IsEmpty;

static std::string repeat(const std::string &text, size_t times)
{
    std::string result;
    for (size_t i = 0; i < times; i++)
        result += text;
    return result;
}

/* Texts that nest one thing in another, and what the level above a refused one says. */
struct depth_row {
    const char *name;
    const char *open;
    const char *close;
    const char *above;
};

static const depth_row kDepthRows[] = {
    {"Arrays", "[", "]", "unable to parse an array element"},
    {"Objects", "{\"a\":", "}", "unable to parse a value for a key"},
};

static void PrintTo(const depth_row &row, std::ostream *out)
{
    *out << row.name;
}

class VeljsonParseDepth : public testing::TestWithParam<depth_row> {
  protected:
    static std::string nested(size_t levels)
    {
        std::string inner = GetParam().open[0] == '[' ? "[]" : "{}";
        return repeat(GetParam().open, levels - 1) + inner + repeat(GetParam().close, levels - 1);
    }
};

TEST_P(VeljsonParseDepth, NinetyNineLevelsAreAccepted)
{
    log_capture log;
    json_document document;
    EXPECT_EQ(vel_json_parse(document, nested(99).c_str()), 0);
    EXPECT_THAT(json_lines(log), IsEmpty());
    EXPECT_EQ(json_text_of(document).size(), nested(99).size());
}

TEST_P(VeljsonParseDepth, AHundredAreRefused)
{
    log_capture log;
    json_document document;
    for (const size_t levels : {100, 101, 5000}) {
        EXPECT_EQ(vel_json_parse(document, nested(levels).c_str()), -1);
        log_lines expected(1, json_line(6, "maximum parsing depth 100 reached"));
        expected.insert(expected.end(), 99, json_line(13, GetParam().above));
        EXPECT_EQ(json_lines(log), expected);
        EXPECT_EQ(document.root(), nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, VeljsonParseDepth, testing::ValuesIn(kDepthRows), row_name());

TEST(VeljsonParseDepth, BothKindsCountAndLeavingGivesALevelBack)
{
    json_document document;
    const std::string mixed = repeat("[{\"a\":", 49) + "[]" + repeat("}]", 49);
    EXPECT_EQ(vel_json_parse(document, mixed.c_str()), 0);
    const std::string side = repeat("[", 98) + repeat("[],", 300) + repeat("]", 98);
    EXPECT_EQ(vel_json_parse(document, side.c_str()), 0);
    log_capture log;
    const std::string tooDeep = repeat("[{\"a\":", 50) + "1" + repeat("}]", 50);
    EXPECT_EQ(vel_json_parse(document, tooDeep.c_str()), -1);
    EXPECT_EQ(json_lines(log).at(0), json_line(6, "maximum parsing depth 100 reached"));
}

TEST(VeljsonParseState, ANewDocumentIsEmpty)
{
    json_document document;
    EXPECT_EQ(document.root(), nullptr);
}

TEST(VeljsonParseState, AParseReplacesTheTree)
{
    json_document document("{\"a\":[1,2,{\"b\":\"c\"}]}");
    EXPECT_EQ(vel_json_parse(document, "[2]"), 0);
    EXPECT_EQ(json_text_of(document), "[2]");
}

TEST(VeljsonParseState, AFailedParseLeavesTheDocumentEmptyAndUsable)
{
    log_capture log;
    for (const char *bad : {"", "5", "[1,2,", "{\"a\":[1,{\"b\":x}]}", "[] x"}) {
        json_document document("{\"a\":[1,2,{\"b\":\"c\"}]}");
        EXPECT_EQ(vel_json_parse(document, bad), -1);
        EXPECT_EQ(document.root(), nullptr);
        EXPECT_EQ(vel_json_parse(document, "[3]"), 0);
        EXPECT_EQ(json_text_of(document), "[3]");
    }
}

TEST(VeljsonParseState, TheTextIsNeitherChangedNorKept)
{
    const std::string source = R"({"key":["\u0061\n",12.5,-7]})";
    std::vector<char> text(source.c_str(), source.c_str() + source.size() + 1);
    json_document document;
    EXPECT_EQ(vel_json_parse(document, text.data()), 0);
    EXPECT_EQ(std::string(text.data()), source);
    std::fill(text.begin(), text.end(), 'x');
    text.clear();
    text.shrink_to_fit();
    EXPECT_EQ(json_text_of(document), "{\"key\":[\"a\n\",12.5~13,-7]}");
}

TEST(VeljsonParseState, AnIntegerOutOfRangeCountsAsZeroAsADoubleToo)
{
    json_document document("[99999999999999999999]");
    double number = 77;
    EXPECT_EQ(vel_json_fetch_double(document, &number, "#", 0ul, nullptr), 0);
    EXPECT_EQ(number, 0.0);
    EXPECT_EQ(vel_json_is_integer(document, document.element(0)), 1);
}

TEST(VeljsonParseState, AnIntegerIsADoubleToo)
{
    json_document document("[9007199254740993]");
    double number = 77;
    EXPECT_EQ(vel_json_fetch_double(document, &number, "#", 0ul, nullptr), 0);
    EXPECT_EQ(number, 9007199254740992.0);
}

/* Every byte but zero at each of some places: a refusal says which, an acceptance keeps it. */
TEST(VeljsonParseBytes, OutsideOfStrings)
{
    log_capture log;
    json_document document;
    const std::string known = "\t\n\r \"-0123456789[]{tfn";
    for (int byte = 1; byte < 256; byte++) {
        const std::string text = std::string("[") + static_cast<char>(byte) + "]";
        if (known.find(static_cast<char>(byte)) != std::string::npos)
            continue;
        EXPECT_EQ(vel_json_parse(document, text.c_str()), -1) << byte;
        EXPECT_EQ(json_lines(log),
                  (log_lines{json_line(6, "unimplemented '" + text.substr(1, 1) + "'"),
                             json_line(13, "unable to parse an array element")}))
            << byte;
    }
}

TEST(VeljsonParseBytes, InsideOfStrings)
{
    json_document document;
    for (int byte = 1; byte < 256; byte++) {
        if (byte == '"' || byte == '\\')
            continue;
        const std::string text = std::string("[\"a") + static_cast<char>(byte) + "b\"]";
        EXPECT_EQ(vel_json_parse(document, text.c_str()), 0) << byte;
        EXPECT_EQ(json_text_of(document), text) << byte;
    }
}

static std::string utf8_of(unsigned int code)
{
    const auto byte = [](unsigned int value) { return static_cast<char>(value); };
    if (code < 0x80)
        return {byte(code)};
    if (code < 0x800)
        return {byte(0xc0 | code >> 6), byte(0x80 | (code & 0x3f))};
    if (code < 0x10000)
        return {byte(0xe0 | code >> 12), byte(0x80 | (code >> 6 & 0x3f)),
                byte(0x80 | (code & 0x3f))};
    return {byte(0xf0 | code >> 18), byte(0x80 | (code >> 12 & 0x3f)),
            byte(0x80 | (code >> 6 & 0x3f)), byte(0x80 | (code & 0x3f))};
}

static std::string escape_of(unsigned int code)
{
    char text[16];
    if (code < 0x10000)
        snprintf(text, sizeof text, "\\u%04x", code);
    else
        snprintf(text, sizeof text, "\\u%04X\\u%04x", 0xd800 + ((code - 0x10000) >> 10),
                 0xdc00 + ((code - 0x10000) & 0x3ff));
    return text;
}

TEST(VeljsonParseUnicode, EveryCodePoint)
{
    json_document document;
    for (unsigned int first = 0; first < 0x110000; first += 0x400) {
        if (first >= 0xd800 && first < 0xe000)
            continue;
        std::string text = "[\"";
        std::string expected;
        for (unsigned int code = first; code < first + 0x400; code++) {
            if (code == 0)
                continue;
            text += escape_of(code);
            expected += utf8_of(code);
        }
        ASSERT_EQ(vel_json_parse(document, (text + "\"]").c_str()), 0) << first;
        const char *string = nullptr;
        ASSERT_EQ(vel_json_fetch_string(document, &string, "#", 0ul, nullptr), 0);
        ASSERT_EQ(string, expected) << first;
    }
}

TEST(VeljsonParseLong, StringsOfEveryLengthAndAlignment)
{
    json_document document;
    for (size_t length = 0; length < 300; length++) {
        const std::string plain(length, 'a');
        const std::string text =
            std::string(length % 17, ' ') + "[\"" + plain + "\\n\",\"" + plain + "\"]";
        ASSERT_EQ(vel_json_parse(document, text.c_str()), 0);
        ASSERT_EQ(json_text_of(document), "[\"" + plain + "\n\",\"" + plain + "\"]");
    }
}

TEST(VeljsonParseLong, ManyMembersWithTheLastOfEachKeyKept)
{
    std::string text = "{";
    for (int i = 0; i < 5000; i++)
        text += "\"key" + std::to_string(i % 3000) + "\":" + std::to_string(i) + ",";
    json_document document(text);
    for (int i = 0; i < 3000; i++) {
        int value = -1;
        ASSERT_EQ(
            vel_json_fetch_int(document, &value, ("key" + std::to_string(i)).c_str(), nullptr), 0);
        ASSERT_EQ(value, i < 2000 ? i + 3000 : i);
    }
}

TEST(VeljsonParseDeathTest, Assertions)
{
    json_document document;
    EXPECT_DEATH(vel_json_destroy(nullptr), asserts("veljson != NULL", "vel_json_destroy"));
    EXPECT_DEATH(vel_json_parse(nullptr, "[]"), asserts("veljson != NULL", "vel_json_parse"));
    EXPECT_DEATH(vel_json_parse(document, nullptr), asserts("json != NULL", "vel_json_parse"));
    EXPECT_DEATH(vel_json_parse(nullptr, nullptr), asserts("veljson != NULL", "vel_json_parse"));
    EXPECT_DEATH(vel_json_node_create(VEL_JSON_TYPE_NONE),
                 asserts("nodetype > VEL_JSON_TYPE_NONE", "vel_json_node_create"));
    EXPECT_DEATH(vel_json_node_create(VEL_JSON_TYPE_COUNT),
                 asserts("nodetype < VEL_JSON_TYPE_COUNT", "vel_json_node_create"));
    EXPECT_DEATH(vel_json_node_create(77),
                 asserts("nodetype < VEL_JSON_TYPE_COUNT", "vel_json_node_create"));
}

TEST(VeljsonNode, CreateGivesANodeOfEachType)
{
    json_document document;
    for (unsigned int type = VEL_JSON_TYPE_OBJECT; type < VEL_JSON_TYPE_COUNT; type++) {
        veljsonnode *node = vel_json_node_create(type);
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(json_type_of(document, node), type);
        if (type == VEL_JSON_TYPE_OBJECT) {
            EXPECT_NE(vel_json_node_object_add(document, node, "a"), nullptr);
            EXPECT_EQ(json_value_of(document, node).text(), "{\"a\":null}");
        }
        EXPECT_EQ(vel_json_node_set_null(document, node), VEL_ERROR_NONE);
        vel_free(node);
    }
}

TEST(VeljsonNode, TypesHaveTheirNumbers)
{
    EXPECT_EQ(VEL_JSON_TYPE_NONE, 0);
    EXPECT_EQ(VEL_JSON_TYPE_OBJECT, 1);
    EXPECT_EQ(VEL_JSON_TYPE_ARRAY, 2);
    EXPECT_EQ(VEL_JSON_TYPE_STRING, 3);
    EXPECT_EQ(VEL_JSON_TYPE_INTEGER, 4);
    EXPECT_EQ(VEL_JSON_TYPE_DOUBLE, 5);
    EXPECT_EQ(VEL_JSON_TYPE_TRUE, 6);
    EXPECT_EQ(VEL_JSON_TYPE_FALSE, 7);
    EXPECT_EQ(VEL_JSON_TYPE_NULL, 8);
    EXPECT_EQ(VEL_JSON_TYPE_COUNT, 9);
}
