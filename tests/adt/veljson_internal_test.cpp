#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "adt/veljson_internal.h"
#include "support/assertion.h"
#include "support/jsontest.h"
#include "support/logcapture.h"
#include "support/rows.h"

using namespace support;
using testing::HasSubstr;

TEST(VeljsonTypeName, OfEachType)
{
    static const char *const kNames[] = {"none",   "object", "array", "string", "number",
                                         "number", "true",   "false", "null"};
    for (unsigned int type = VEL_JSON_TYPE_NONE; type < VEL_JSON_TYPE_COUNT; type++)
        EXPECT_STREQ(vel_json_type_name(type), kNames[type]);
    EXPECT_STREQ(vel_json_type_name(VEL_JSON_TYPE_COUNT), "unknown");
    EXPECT_STREQ(vel_json_type_name(0xffffffff), "unknown");
}

/* ---- What a document is made of ---- */

TEST(VeljsonShape, ANumberIsBothKindsOfNumber)
{
    json_document document("[7,-1.5,99999999999999999999]");
    EXPECT_EQ(document.element(0)->nodetype, unsigned(VEL_JSON_TYPE_INTEGER));
    EXPECT_EQ(document.element(0)->integervalue, 7);
    EXPECT_EQ(document.element(0)->value.number, 7.0);
    EXPECT_EQ(document.element(1)->nodetype, unsigned(VEL_JSON_TYPE_DOUBLE));
    EXPECT_EQ(document.element(1)->integervalue, -2);
    EXPECT_EQ(document.element(1)->value.number, -1.5);
    EXPECT_EQ(document.element(2)->nodetype, unsigned(VEL_JSON_TYPE_INTEGER));
    EXPECT_EQ(document.element(2)->integervalue, 0);
    EXPECT_EQ(document.element(2)->value.number, 0.0);
}

static void expect_key_node(veljson *document, const char *key)
{
    auto *const keynode =
        static_cast<veljsonnode *>(vel_stringhash_lookup(document->root->hash, key));
    ASSERT_NE(keynode, nullptr);
    EXPECT_EQ(keynode->nodetype, unsigned(VEL_JSON_TYPE_STRING));
    EXPECT_STREQ(keynode->value.string, key);
    veljsonnode *value = nullptr;
    EXPECT_EQ(vel_json_fetch_node(document, &value, key, nullptr), 0);
    EXPECT_EQ(keynode->children, value);
    EXPECT_EQ(keynode->next, nullptr);
    EXPECT_EQ(value->next, nullptr);
}

TEST(VeljsonShape, AMemberIsAKeyNodeWithItsValueBelow)
{
    json_document document("{\"a\":1}");
    ASSERT_NE(vel_json_node_object_add(document, document.root(), "b"), nullptr);
    expect_key_node(document, "a");
    expect_key_node(document, "b");
}

TEST(VeljsonShape, AnArrayIsAChain)
{
    json_document document("[1,2]");
    veljsonnode *const first = document.root()->children;
    EXPECT_EQ(first, document.element(0));
    EXPECT_EQ(first->next, document.element(1));
    EXPECT_EQ(first->next->next, nullptr);
    veljsonnode *const added = vel_json_node_array_add(document, document.root());
    EXPECT_EQ(first->next->next, added);
}

/* Rather no memory than too little, where what tables need together cannot be told. */
TEST(VeljsonPool, PromisesNoMoreThanThereCanBe)
{
    const size_t most = vel_json_pool_reserved_most;
    vel_json_pool pool = {};
    vel_json_pool_reserve(&pool, 280);
    EXPECT_EQ(pool.reserved, 280u);
    vel_json_pool_reserve(&pool, most - 281);
    EXPECT_EQ(pool.reserved, most - 1);
    for (int i = 0; i < 3; i++) {
        vel_json_pool_reserve(&pool, most - 7);
        EXPECT_EQ(pool.reserved, most);
    }
}

TEST(VeljsonShape, AClearedNodeIsOfNoTypeAndKeepsItsPlace)
{
    json_document document("[{\"a\":1},[2],\"b\",4]");
    for (unsigned long i = 0; i < 4; i++) {
        veljsonnode *const node = document.element(i);
        veljsonnode *const next = node->next;
        vel_json_node_clear(node);
        EXPECT_EQ(node->nodetype, unsigned(VEL_JSON_TYPE_NONE));
        EXPECT_EQ(node->children, nullptr);
        EXPECT_EQ(node->hash, nullptr);
        EXPECT_EQ(node->value.string, nullptr);
        EXPECT_EQ(node->integervalue, 0);
        EXPECT_EQ(node->next, next);
    }
}

/* ---- The decoder, for texts that the scan before it lets nobody pass ---- */

struct decode_row {
    const char *name;
    std::string_view text;
    const char *decoded; /* or NULL */
    std::vector<const char *> lines;
};

static void PrintTo(const decode_row &row, std::ostream *out)
{
    *out << json_visible(std::string(row.text));
}

class VeljsonDecode : public testing::TestWithParam<decode_row> {};

TEST_P(VeljsonDecode, Row)
{
    log_capture log;
    const std::string text(GetParam().text);
    char *decoded = vel_json_parser_parse_string_decode(text.data(), text.size(), nullptr);
    EXPECT_STREQ(decoded, GetParam().decoded);
    vel_free(decoded);
    log_lines expected;
    for (const char *line : GetParam().lines)
        expected.push_back(json_line(6, line));
    EXPECT_EQ(json_lines(log), expected);
}

static const char kHexEnd[] = "got end-of-data in a unicode character escape sequence";
static const char kHexNul[] =
    "unexpected NUL character in the middle of a unicode character escape sequence";
static const char kHexBad[] =
    "unexpected character 'g' in the middle of a unicode character escape sequence";

using namespace std::literals;

static const decode_row kDecodeRows[] = {
    {"Nothing", ""sv, "", {}},
    {"Plain", "abc"sv, "abc", {}},
    {"StopsAtTheLength", R"(a\u00e4)"sv, "a\xc3\xa4", {}},
    {"BackslashLast", "ab\\"sv, nullptr, {"got end-of-data after an escaping backslash"}},
    {"NulBehindABackslash",
     "ab\\\0c"sv,
     nullptr,
     {"unexpected NUL character in the middle of a string"}},
    {"PairAtTheEnd",
     R"(\ud83d)"sv,
     nullptr,
     {"got end-of-data after a first part of a surrogate pair"}},
    {"PairAndBadDigits",
     R"(\ud83d\udg00)"sv,
     nullptr,
     {kHexBad, "expected a second part of the surrogate pair but got 0x0000"}},
    {"PairAndTooFewDigits",
     R"(\ud83d\udc0)"sv,
     nullptr,
     {kHexEnd, "expected a second part of the surrogate pair but got 0x0000"}},
    {"PairAndNul",
     "\\ud83d\\ud\0c0"sv,
     nullptr,
     {kHexNul, "expected a second part of the surrogate pair but got 0x0000"}},
    /* A zero stands for bad digits, and the text goes on; each of the two passes says it. */
    {"TooFewDigits", R"(a\u12)"sv, "a", {kHexEnd, kHexEnd}},
    {"NulAsADigit", "a\\u1\0"sv, "a", {kHexNul, kHexNul}},
    {"BadDigit", R"(a\u1g22)"sv, "a", {kHexBad, kHexBad}},
};

INSTANTIATE_TEST_SUITE_P(Rows, VeljsonDecode, testing::ValuesIn(kDecodeRows), row_name());

/* ---- Nodes that no document has ---- */

TEST(VeljsonBroken, OutputOfAnUnknownType)
{
    for (const unsigned int type : {VEL_JSON_TYPE_NONE, VEL_JSON_TYPE_COUNT, 77}) {
        log_capture log;
        json_document document("[1,2,3]");
        document.element(1)->nodetype = type;
        EXPECT_EQ(vel_json_output(document), nullptr);
        EXPECT_EQ(json_lines(log),
                  log_lines(1, json_line(6, "unhandled node type " + std::to_string(type))));
    }
}

TEST(VeljsonBroken, CopyOfAClearedNode)
{
    log_capture log;
    json_document source("[1,2]"), document("[3]");
    vel_json_node_clear(source.element(1));
    EXPECT_EQ(vel_json_node_copy_node(document, document.element(0), source, source.element(1)),
              VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(json_lines(log),
              (log_lines{json_line(6, "invalid node type VEL_JSON_TYPE_NONE"),
                         json_line(7, "unable to copy a node, error 22 (invalid argument)")}));
}

class VeljsonInternalDeathTest : public testing::Test {
  protected:
    json_document document{"{\"a\":1}"};
    veljsonnode *root = document.root();
    veljsonnode *node = nullptr;
    const veljsonnode *constnode = nullptr;
};

TEST_F(VeljsonInternalDeathTest, Nodes)
{
    EXPECT_DEATH(vel_json_node_destroy(nullptr),
                 asserts("veljsonnode != NULL", "vel_json_node_destroy"));
    EXPECT_DEATH(vel_json_node_clear(nullptr), asserts("node != NULL", "vel_json_node_clear"));
}

TEST_F(VeljsonInternalDeathTest, CopyOfAnUnknownType)
{
    json_document other("[1]");
    other.element(0)->nodetype = VEL_JSON_TYPE_COUNT;
    EXPECT_DEATH(vel_json_node_copy_node(document, root, other, other.element(0)),
                 testing::ContainsRegex("adt/veljson:[0-9]+: Assertion failed\\.\n"));
}

/* A table that is missing, as nothing can make it. */
TEST_F(VeljsonInternalDeathTest, ObjectWithoutATable)
{
    velstringhash *const hash = root->hash;
    root->hash = nullptr;
    EXPECT_DEATH(vel_json_fetch_node(document, &node, "a", nullptr), asserts("node->hash != NULL"));
    EXPECT_DEATH(vel_json_fetch_node_const(document, &constnode, "a", nullptr),
                 asserts("node->hash != NULL"));
    EXPECT_DEATH(vel_json_node_object_add(document, root, "a"),
                 asserts("objectnode->hash != NULL", "vel_json_node_object_add"));
    json_document other("[0]");
    EXPECT_DEATH(vel_json_node_copy_node(other, other.element(0), document, root),
                 asserts("source->hash != NULL"));
    root->hash = hash;
}

TEST_F(VeljsonInternalDeathTest, KeyWithoutAValue)
{
    auto *const keynode = static_cast<veljsonnode *>(vel_stringhash_lookup(root->hash, "a"));
    veljsonnode *const value = keynode->children;
    keynode->children = nullptr;
    EXPECT_DEATH(vel_json_fetch_node(document, &node, "a", nullptr),
                 asserts("node->children != NULL"));
    EXPECT_DEATH(vel_json_fetch_node_const(document, &constnode, "a", nullptr),
                 asserts("node->children != NULL"));
    json_document other("[0]");
    EXPECT_DEATH(vel_json_node_copy_node(other, other.element(0), document, root),
                 asserts("valuenode != NULL"));
    EXPECT_DEATH(vel_json_output(document), asserts("valuenode != NULL"));
    keynode->children = value;
}

TEST_F(VeljsonInternalDeathTest, TableOfMembers)
{
    const auto destroy_with = [](veljsonnode *object, void *member) {
        velstringhash *const hash = vel_json_node_hash_create(object);
        if (hash && vel_stringhash_add(hash, "a", member) == 0)
            vel_stringhash_destroy(hash);
    };
    EXPECT_DEATH(destroy_with(root, nullptr),
                 asserts("item != NULL", "vel_json_node_hash_destroy_cb"));
    EXPECT_DEATH(destroy_with(nullptr, root),
                 asserts("context != NULL", "vel_json_node_hash_destroy_cb"));
}

TEST_F(VeljsonInternalDeathTest, Parser)
{
    veljsonparser parser = {};
    parser.veljson = document;
    parser.json = "x";
    parser.jsonlen = 1;
    parser.maxdepth = 100;
    EXPECT_DEATH(vel_json_parser_parse_string(&parser, &node),
                 testing::AllOf(HasSubstr("Assertion failed: (ch == '"),
                                HasSubstr("), function vel_json_parser_parse_string, file ")));
    EXPECT_DEATH(vel_json_parser_parse_number(&parser, &node),
                 asserts("ch == '-' || (ch >= '0' && ch <= '9')", "vel_json_parser_parse_number"));
    EXPECT_DEATH(vel_json_parser_parse_string_decode(nullptr, 0, nullptr),
                 asserts("string != NULL", "vel_json_parser_parse_string_decode"));
}
