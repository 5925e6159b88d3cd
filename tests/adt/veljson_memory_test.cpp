#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/eachfailure.h"
#include "support/jsontest.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/rows.h"

using namespace support;
using testing::ElementsAreArray;

static const char kModule[] = "adt/veljson";

/* The lines of one failure; those of level 7 unless it says otherwise. */
using failure = std::vector<std::pair<int, const char *>>;

static std::vector<log_lines> expected_of(const std::vector<failure> &failures)
{
    std::vector<log_lines> expected;
    for (const failure &each : failures) {
        expected.emplace_back();
        for (const auto &[level, text] : each)
            expected.back().push_back(json_line(level, text));
    }
    return expected;
}

static const std::pair<int, const char *> kNode = {7, "not enough memory for JSON node"};
static const std::pair<int, const char *> kHash = {7, "not enough memory for hashtable"};
static const std::pair<int, const char *> kContext = {7,
                                                      "not enough memory for JSON parser context"};
static const std::pair<int, const char *> kElement = {13, "unable to parse an array element"};
static const std::pair<int, const char *> kMember = {13, "unable to parse a value for a key"};
static const std::pair<int, const char *> kKey = {6, "expecting a string for a key"};
static const std::pair<int, const char *> kDecoded = {7, "not enough memory for decoded string"};
static const std::pair<int, const char *> kDecode = {7, "unable to decode the string"};
static const std::pair<int, const char *> kAdd = {
    7, "not enough memory to add a value to the hashtable"};
static const std::pair<int, const char *> kString = {7, "not enough memory for a string"};
static const std::pair<int, const char *> kArrayNode = {7, "not enough memory for a JSON node"};
static const std::pair<int, const char *> kKeyNode = {7, "not enough memory for object key node"};
static const std::pair<int, const char *> kKeyCopy = {7, "not enough memory for object key"};
static const std::pair<int, const char *> kValueNode = {7,
                                                        "not enough memory for object value node"};
static const std::pair<int, const char *> kCopyEnds = {
    7, "not enough memory to copy a node to an array"};
static const std::pair<int, const char *> kCopyString = {
    7, "unable to copy a string node, error 12 (not enough memory)"};
static const std::pair<int, const char *> kCopy = {
    7, "unable to copy a node, error 12 (not enough memory)"};

TEST(VeljsonMemory, Create)
{
    log_capture log;
    const auto failures = each_failure(log, kModule, [] {
        veljson *document = vel_json_create();
        if (document)
            vel_json_destroy(document);
        return document != nullptr;
    });
    EXPECT_THAT(failures,
                ElementsAreArray(expected_of({{{7, "not enough memory for veljson context"}}})));
}

TEST(VeljsonMemory, NodeCreate)
{
    log_capture log;
    json_document document;
    for (unsigned int type = VEL_JSON_TYPE_OBJECT; type < VEL_JSON_TYPE_COUNT; type++) {
        const auto failures = each_failure(log, kModule, [&] {
            veljsonnode *node = vel_json_node_create(type);
            if (!node)
                return false;
            EXPECT_EQ(vel_json_node_set_null(document, node), VEL_ERROR_NONE);
            vel_free(node);
            return true;
        });
        if (type == VEL_JSON_TYPE_OBJECT)
            EXPECT_THAT(failures, ElementsAreArray(expected_of({{kNode}, {kHash}})));
        else
            EXPECT_THAT(failures, ElementsAreArray(expected_of({{kNode}})));
    }
}

/* ---- Parsing ---- */

struct parse_row {
    const char *name;
    const char *text;
    std::vector<failure> failures;
};

static void PrintTo(const parse_row &row, std::ostream *out)
{
    *out << row.text;
}

class VeljsonMemoryParse : public testing::TestWithParam<parse_row> {};

TEST_P(VeljsonMemoryParse, LeavesTheDocumentEmpty)
{
    log_capture log;
    json_document document;
    const auto failures = each_failure(log, kModule, [&] {
        {
            malloc_pause pause;
            EXPECT_EQ(vel_json_parse(document, "[1,[2],{\"a\":\"b\"}]"), 0);
            log.clear();
        }
        if (vel_json_parse(document, GetParam().text) == 0)
            return true;
        EXPECT_EQ(document.root(), nullptr);
        return false;
    });
    EXPECT_THAT(failures, ElementsAreArray(expected_of(GetParam().failures)));
    json_document other(GetParam().text);
    EXPECT_EQ(json_text_of(document), json_text_of(other));
}

static const parse_row kParseRows[] = {
    {"Array", "[]", {{kContext}, {kNode}}},
    {"Object", "{}", {{kContext}, {kNode}, {kHash}}},
    {"Integer", "[1]", {{kContext}, {kNode}, {kNode, kElement}}},
    {"Double", "[1.5]", {{kContext}, {kNode}, {kNode, kElement}}},
    {"True",
     "[true]",
     {{kContext}, {kNode}, {kNode, {7, "not enough memory for node 'true'"}, kElement}}},
    {"False",
     "[false]",
     {{kContext}, {kNode}, {kNode, {7, "not enough memory for node 'false'"}, kElement}}},
    {"Null",
     "[null]",
     {{kContext}, {kNode}, {kNode, {7, "not enough memory for node 'null'"}, kElement}}},
    {"String", "[\"a\"]", {{kContext}, {kNode}, {kNode, kElement}, {kDecoded, kDecode, kElement}}},
    {"EscapedString",
     R"(["\u00e4\n"])",
     {{kContext}, {kNode}, {kNode, kElement}, {kDecoded, kDecode, kElement}}},
    {"Member",
     "{\"a\":1}",
     {{kContext},
      {kNode},
      {kHash},
      {kNode, kKey},
      {kDecoded, kDecode, kKey},
      {kNode, kMember},
      {kAdd}}},
    {"InnerObject", "[{}]", {{kContext}, {kNode}, {kNode, kElement}, {kHash, kElement}}},
    {"InnerArray", "[[[]]]", {{kContext}, {kNode}, {kNode, kElement}, {kNode, kElement, kElement}}},
    {"RepeatedKey",
     "{\"a\":[],\"a\":[]}",
     {{kContext},
      {kNode},
      {kHash},
      {kNode, kKey},
      {kDecoded, kDecode, kKey},
      {kNode, kMember},
      {kAdd},
      {kNode, kKey},
      {kDecoded, kDecode, kKey},
      {kNode, kMember},
      {kAdd}}},
};

INSTANTIATE_TEST_SUITE_P(Rows, VeljsonMemoryParse, testing::ValuesIn(kParseRows), row_name());

/* With members, strings and elements enough for several chunks of memory. */
static std::string long_text()
{
    std::string text = "{\"list\":[";
    for (int i = 0; i < 2000; i++)
        text += "1,\"a\\n\",[],";
    text += "],\"text\":\"" + std::string(10000, 'x') + "\\n\",\"map\":{";
    for (int i = 0; i < 20; i++)
        text += "\"key" + std::to_string(i) + "\":{\"a\":" + std::to_string(i) + "},";
    return text + "}}";
}

/* Fails each allocation of a parse, which then says one of these first and leaves nothing. Returns what
 * was said. */
static std::set<std::string> each_failure_of_parse(log_capture &log, const std::string &text,
                                                   const std::vector<failure> &failures)
{
    json_document document;
    std::set<std::string> said;
    size_t count;
    {
        malloc_watch watch;
        EXPECT_EQ(vel_json_parse(document, text.c_str()), 0);
        count = malloc_watch::count();
    }
    for (size_t number = 1; number <= count; number++) {
        bool accepted;
        {
            malloc_watch watch(number);
            accepted = vel_json_parse(document, text.c_str()) == 0;
        }
        const log_lines lines = json_lines(log);
        EXPECT_EQ(lines.empty(), accepted);
        EXPECT_EQ(document.root() == nullptr, !accepted);
        if (lines.empty())
            continue;
        EXPECT_THAT(expected_of(failures), testing::Contains(log_lines{lines[0]}));
        said.insert(lines[0].text);
    }
    EXPECT_EQ(vel_json_parse(document, text.c_str()), 0);
    EXPECT_EQ(json_text_of(document), json_text_of(json_document(text)));
    log.clear();
    return said;
}

TEST(VeljsonMemory, ParsingALongTextLeavesTheDocumentEmpty)
{
    log_capture log;
    warm_log(log);
    EXPECT_EQ(each_failure_of_parse(log, long_text(), {{kContext}, {kNode}, {kHash}}).size(), 3u);
}

/* Memory comes in chunks, so that the text decides what they are not enough for. */
TEST(VeljsonMemory, ParsingALongTextFailsAnywhere)
{
    log_capture log;
    warm_log(log);
    for (const char *escape : {"", "\\n"}) {
        std::string members;
        for (int i = 0; i < 70; i++)
            members += "\"k" + std::to_string(i) + escape + "\":\"" + escape + "\",";
        std::string text;
        for (int i = 0; i < 30; i++)
            text += "{" + members + "},";
        std::set<std::string> said;
        for (size_t blanks = 0; blanks < 2400; blanks += 96)
            said.merge(each_failure_of_parse(log, std::string(blanks, ' ') + "[" + text + "]",
                                             {{kContext}, {kNode}, {kHash}, {kDecoded}}));
        EXPECT_THAT(said, testing::SizeIs(4));
    }
}

/* ---- Setting and adding ---- */

struct change_row {
    const char *name;
    bool (*change)(const json_document &document, veljsonnode *node);
    std::vector<failure> onroot; /* that does not exist */
    std::vector<failure> onnode;
};

static void PrintTo(const change_row &row, std::ostream *out)
{
    *out << row.name;
}

class VeljsonMemorySet : public testing::TestWithParam<change_row> {};

TEST_P(VeljsonMemorySet, LeavesAnEmptyDocumentEmpty)
{
    log_capture log;
    json_document document;
    const auto failures = each_failure(log, kModule, [&] {
        if (GetParam().change(document, nullptr))
            return true;
        EXPECT_EQ(document.root(), nullptr);
        return false;
    });
    EXPECT_THAT(failures, ElementsAreArray(expected_of(GetParam().onroot)));
    EXPECT_NE(document.root(), nullptr);
}

TEST_P(VeljsonMemorySet, LeavesANodeAsItWas)
{
    static const char kBefore[] = "[1,{\"a\":[\"b\",2]},\"c\"]";
    log_capture log;
    json_document document(kBefore);
    veljsonnode *const node = document.element(1);
    const auto failures = each_failure(log, kModule, [&] {
        if (GetParam().change(document, node))
            return true;
        EXPECT_EQ(json_text_of(document), kBefore);
        return false;
    });
    EXPECT_THAT(failures, ElementsAreArray(expected_of(GetParam().onnode)));
    EXPECT_NE(json_text_of(document), kBefore);
}

template <vel_error_t (*set)(veljson *, veljsonnode *)>
static bool set_with(const json_document &document, veljsonnode *node)
{
    const vel_error_t result = set(document, node);
    EXPECT_TRUE(result == VEL_ERROR_NONE || result == VEL_ERROR_NO_MEMORY) << result;
    return result == VEL_ERROR_NONE;
}

static vel_error_t set_string(veljson *json, veljsonnode *node)
{
    return vel_json_node_set_string(json, node, "text");
}

static vel_error_t set_integer(veljson *json, veljsonnode *node)
{
    return vel_json_node_set_integer(json, node, 7);
}

static vel_error_t set_double(veljson *json, veljsonnode *node)
{
    return vel_json_node_set_double(json, node, 1.5);
}

static const change_row kChangeRows[] = {
    {"Null", set_with<vel_json_node_set_null>, {{kNode}}, {}},
    {"True", set_with<vel_json_node_set_true>, {{kNode}}, {}},
    {"False", set_with<vel_json_node_set_false>, {{kNode}}, {}},
    {"Integer", set_with<set_integer>, {{kNode}}, {}},
    {"Double", set_with<set_double>, {{kNode}}, {}},
    {"String", set_with<set_string>, {{kString}, {kNode}}, {{kString}}},
    {"Array", set_with<vel_json_node_set_array>, {{kNode}}, {}},
    {"Object", set_with<vel_json_node_set_object>, {{kNode}, {kHash}}, {{kHash}}},
};

INSTANTIATE_TEST_SUITE_P(Rows, VeljsonMemorySet, testing::ValuesIn(kChangeRows), row_name());

TEST(VeljsonMemory, ArrayAddLeavesTheArrayAsItWas)
{
    log_capture log;
    json_document document("[1,\"a\"]");
    const auto failures = each_failure(log, kModule, [&] {
        if (vel_json_node_array_add(document, document.root()))
            return true;
        EXPECT_EQ(json_text_of(document), "[1,\"a\"]");
        return false;
    });
    EXPECT_THAT(failures, ElementsAreArray(expected_of({{kNode, kArrayNode}})));
    EXPECT_EQ(json_text_of(document), "[1,\"a\",null]");
}

TEST(VeljsonMemory, ObjectAddLeavesTheObjectAsItWas)
{
    for (const char *key : {"new", "a"}) {
        log_capture log;
        json_document document("{\"a\":[1],\"b\":2}");
        const auto failures = each_failure(log, kModule, [&] {
            if (vel_json_node_object_add(document, document.root(), key))
                return true;
            EXPECT_EQ(json_text_of(document), "{\"a\":[1],\"b\":2}");
            return false;
        });
        EXPECT_THAT(failures, ElementsAreArray(expected_of(
                                  {{kNode, kKeyNode}, {kKeyCopy}, {kNode, kValueNode}, {kAdd}})));
    }
}

/* ---- Copying ---- */

static bool is_part(const json_value &part, const json_value &whole)
{
    if (part.type == VEL_JSON_TYPE_NULL)
        return true;
    if (part.type != whole.type)
        return false;
    for (const auto &[key, value] : part.members) {
        const auto found = whole.members.find(key);
        if (found == whole.members.end() || !is_part(value, found->second))
            return false;
    }
    for (size_t i = 0; i < part.elements.size(); i++)
        if (i >= whole.elements.size() || !is_part(part.elements[i], whole.elements[i]))
            return false;
    return part.type == VEL_JSON_TYPE_OBJECT || part.type == VEL_JSON_TYPE_ARRAY || part == whole;
}

struct copy_row {
    const char *name;
    const char *source;
    std::vector<failure> failures;
    std::vector<std::pair<vel_error_t, const char *>> copies; /* what comes of each failure */
};

static void PrintTo(const copy_row &row, std::ostream *out)
{
    *out << row.source;
}

class VeljsonMemoryCopy : public testing::TestWithParam<copy_row> {};

TEST_P(VeljsonMemoryCopy, IsShortWhereItFailed)
{
    log_capture log;
    json_document source(GetParam().source);
    json_document document("[\"old\"]");
    const std::string whole = json_text_of(source);
    std::vector<std::pair<vel_error_t, std::string>> copies;
    const auto failures = each_failure(log, kModule, [&] {
        {
            malloc_pause pause;
            EXPECT_EQ(vel_json_parse(document, "[\"old\"]"), 0);
            log.clear();
        }
        const vel_error_t result =
            vel_json_node_copy_node(document, document.element(0), source, source.root());
        const log_lines said = log.take_from(kModule);
        malloc_pause pause;
        const json_value copy = json_value_of(document, document.element(0));
        log.clear();
        if (result == VEL_ERROR_NONE && copy.text() == whole)
            return true;
        copies.emplace_back(result, copy.text());
        /* Given back for each_failure to take. */
        for (const log_line &each : said) {
            vel_log_macro_mutex_lock();
            vel_log_macro_set_values(nullptr, each.level, "adt/veljson", 1);
            vel_log_macro_format("%s", each.text.c_str());
            vel_log_macro_mutex_unlock();
        }
        return false;
    });
    EXPECT_THAT(failures, ElementsAreArray(expected_of(GetParam().failures)));
    copies.erase(std::unique(copies.begin(), copies.end()), copies.end());
    EXPECT_THAT(copies, ElementsAreArray(std::vector<std::pair<vel_error_t, std::string>>(
                            GetParam().copies.begin(), GetParam().copies.end())));
}

static const copy_row kCopyRows[] = {
    {"String",
     "[\"a\"]",
     {{kNode, kArrayNode, kCopyEnds}, {kString, kCopyString, kCopy, kCopy}},
     {{VEL_ERROR_NONE, "[]"}, {VEL_ERROR_NO_MEMORY, "[null]"}}},
    {"Array",
     "[1,2,3]",
     {{kNode, kArrayNode, kCopyEnds}},
     {{VEL_ERROR_NONE, "[]"}, {VEL_ERROR_NONE, "[1]"}, {VEL_ERROR_NONE, "[1,2]"}}},
    {"InnerArray",
     "[[1],2]",
     {{kNode, kArrayNode, kCopyEnds}},
     {{VEL_ERROR_NONE, "[]"}, {VEL_ERROR_NONE, "[[],2]"}, {VEL_ERROR_NONE, "[[1]]"}}},
    {"Object",
     "{\"a\":\"b\"}",
     {{kHash},
      {kNode, kKeyNode},
      {kKeyCopy},
      {kNode, kValueNode},
      {kAdd},
      {kString, kCopyString, kCopy}},
     {{VEL_ERROR_NO_MEMORY, "\"old\""},
      {VEL_ERROR_NO_MEMORY, "{}"},
      {VEL_ERROR_NO_MEMORY, "{\"a\":null}"}}},
    {"ObjectInAnArray",
     "[{\"a\":1}]",
     {{kNode, kArrayNode, kCopyEnds},
      {kHash, kCopy},
      {kNode, kKeyNode, kCopy},
      {kKeyCopy, kCopy},
      {kNode, kValueNode, kCopy},
      {kAdd, kCopy}},
     {{VEL_ERROR_NONE, "[]"}, {VEL_ERROR_NO_MEMORY, "[null]"}, {VEL_ERROR_NO_MEMORY, "[{}]"}}},
};

INSTANTIATE_TEST_SUITE_P(Rows, VeljsonMemoryCopy, testing::ValuesIn(kCopyRows), row_name());

TEST(VeljsonMemory, ACopyThatFailsIsAPartOfItsSource)
{
    log_capture log;
    json_document source(R"({"a":["x",{"b":[1,[2,"y"],3]},"z"],"c":{"d":{}}})");
    json_document document("{\"old\":1}");
    const json_value whole = json_value_of(source, source.root());
    each_failure(log, kModule, [&] {
        {
            malloc_pause pause;
            EXPECT_EQ(vel_json_parse(document, "{\"old\":1}"), 0);
            log.clear();
        }
        const vel_error_t result = vel_json_node_copy(document, document.root(), source);
        EXPECT_TRUE(result == VEL_ERROR_NONE || result == VEL_ERROR_NO_MEMORY) << result;
        malloc_pause pause;
        const log_lines said = log.take_from(kModule);
        const json_value copy = json_value_of(document, document.root());
        if (said.empty()) {
            EXPECT_EQ(copy, whole);
            return true;
        }
        EXPECT_NE(copy, whole);
        EXPECT_TRUE(is_part(copy, whole) || copy.text() == "{\"old\":1}") << copy;
        return false;
    });
}

/* ---- Output ---- */

struct output_row {
    const char *name;
    std::string text;
    std::vector<failure> failures;
};

static void PrintTo(const output_row &row, std::ostream *out)
{
    *out << row.name;
}

class VeljsonMemoryOutput : public testing::TestWithParam<output_row> {};

TEST_P(VeljsonMemoryOutput, LeavesTheDocumentAsItWas)
{
    log_capture log;
    json_document document(GetParam().text);
    const std::string before = json_text_of(document);
    const auto failures = each_failure(log, kModule, [&] {
        char *text = vel_json_output(document);
        EXPECT_EQ(json_text_of(document), before);
        if (!text)
            return false;
        vel_free(text);
        return true;
    });
    EXPECT_THAT(failures, ElementsAreArray(expected_of(GetParam().failures)));
}

static const std::pair<int, const char *> kOutput = {7, "not enough memory for JSON output"};
static const std::pair<int, const char *> kResult = {7, "not enough memory for JSON output result"};
static const std::pair<int, const char *> kEscape = {
    7, "not enough memory for escaping string for JSON"};

static const output_row kOutputRows[] = {
    {"Short", "[1,2.5,{}]", {{kOutput}, {kResult}}},
    {"PlainKey",
     "[{\"a\":true}]",
     {{kOutput}, {{7, "not enough memory for escaping string (2 bytes)"}, kEscape}, {kResult}}},
    {"PlainStrings",
     R"(["abc",""])",
     {{kOutput},
      {{7, "not enough memory for escaping string (4 bytes)"}, kEscape},
      {{7, "not enough memory for escaping string (1 bytes)"}, kEscape},
      {kResult}}},
    {"Escapes",
     R"(["a\n\u0001"])",
     {{kOutput}, {{7, "not enough memory for escaping string (10 bytes)"}, kEscape}, {kResult}}},
    {"EscapedKey",
     R"({"\"":1})",
     {{kOutput}, {{7, "not enough memory for escaping string (3 bytes)"}, kEscape}, {kResult}}},
    {"Long",
     "[\"" + std::string(5000, 'x') + "\"]",
     {{kOutput},
      {{7, "not enough memory for escaping string (5001 bytes)"}, kEscape},
      {{7, "not enough memory for JSON output buffer (8190 bytes)"}},
      {kResult}}},
    {"LongKey",
     "{\"" + std::string(5000, 'x') + "\":1}",
     {{kOutput},
      {{7, "not enough memory for escaping string (5001 bytes)"}, kEscape},
      {{7, "not enough memory for JSON output buffer (8190 bytes)"}},
      {kResult}}},
};

INSTANTIATE_TEST_SUITE_P(Rows, VeljsonMemoryOutput, testing::ValuesIn(kOutputRows), row_name());

/* ---- Fetching ---- */

/* A walk over a nest deeper than the levels that it has at hand needs memory for more. */
TEST(VeljsonMemory, WalksOfDeepNests)
{
    log_capture log;
    json_document document("[]");
    veljsonnode *node = document.root();
    for (int level = 0; level < 150; level++) {
        node = vel_json_node_array_add(document, node);
        ASSERT_NE(node, nullptr);
        ASSERT_EQ(vel_json_node_set_array(document, node), VEL_ERROR_NONE);
    }
    const std::string text = document.output();
    const support::log_line levels =
        json_line(7, "not enough memory for the levels of a JSON document");
    json_document copy("[]");
    warm_log(log);
    size_t written = 0, copied = 0;
    for (size_t number = 1; number < 400; number++) {
        char *again;
        {
            malloc_watch watch(number);
            again = vel_json_output(document);
        }
        const log_lines lines = json_lines(log);
        EXPECT_EQ(lines.empty(), again != nullptr);
        written += again ? 0 : lines[0] == levels;
        if (again) {
            EXPECT_EQ(again, text);
            vel_free(again);
        }
    }
    for (size_t number = 1; number < 400; number++) {
        vel_error_t result;
        {
            malloc_watch watch(number);
            result = vel_json_node_copy(copy, copy.root(), document);
        }
        const log_lines lines = json_lines(log);
        if (!lines.empty() && lines[0] == levels) {
            EXPECT_EQ(result, VEL_ERROR_NO_MEMORY);
            copied++;
        }
    }
    EXPECT_EQ(written, 1u);
    EXPECT_EQ(copied, 1u);
    EXPECT_EQ(copy.output(), text);
}

TEST(VeljsonMemory, FetchingNeedsNone)
{
    log_capture log;
    json_document document(R"({"a":[1,"2.5",null,{"b":"c"},true]})");
    warm_log(log);
    malloc_watch watch(1, SIZE_MAX);
    const char *string = nullptr;
    int integer = 0;
    int64_t int64 = 0;
    double number = 0;
    veljsonnode *node = nullptr;
    EXPECT_EQ(vel_json_fetch_string(document, &string, "a", "#", 3ul, "b", nullptr), 0);
    EXPECT_STREQ(string, "c");
    EXPECT_EQ(vel_json_fetch_int(document, &integer, "a", "#", 1ul, nullptr), 0);
    EXPECT_EQ(integer, 3);
    EXPECT_EQ(vel_json_fetch_int64(document, &int64, "a", "#", 0ul, nullptr), 0);
    EXPECT_EQ(int64, 1);
    EXPECT_EQ(vel_json_fetch_double(document, &number, "a", "#", 1ul, nullptr), 0);
    EXPECT_EQ(number, 2.5);
    EXPECT_EQ(vel_json_fetch_boolean(document, &integer, "a", "#", 4ul, nullptr), 0);
    EXPECT_EQ(integer, 1);
    EXPECT_EQ(vel_json_fetch_null(document, &integer, "a", "#", 2ul, nullptr), 0);
    EXPECT_EQ(integer, 1);
    EXPECT_EQ(vel_json_fetch_node(document, &node, "a", nullptr), 0);
    EXPECT_EQ(vel_json_fetch_node(document, &node, "b", nullptr), -1);
    EXPECT_NE(vel_json_enumerate_start(document, document.root(), &string, &node), nullptr);
    EXPECT_STREQ(string, "a");
    EXPECT_EQ(malloc_watch::count(), 0u);
}

/* ---- Life ---- */

static bool build(veljson *document)
{
    veljsonnode *root = nullptr;
    if (vel_json_node_set_object(document, nullptr) != VEL_ERROR_NONE ||
        vel_json_fetch_node(document, &root, nullptr) != 0)
        return false;
    for (int i = 0; i < 12; i++) {
        veljsonnode *const list =
            vel_json_node_object_add(document, root, std::to_string(i % 10).c_str());
        if (!list || vel_json_node_set_array(document, list) != VEL_ERROR_NONE)
            return false;
        veljsonnode *const element = vel_json_node_array_add(document, list);
        if (!element || vel_json_node_set_string(document, element, "a\n") != VEL_ERROR_NONE)
            return false;
    }
    return true;
}

static bool copy(veljson *document, veljson *source)
{
    veljsonnode *node = nullptr;
    veljsonnode *list = nullptr;
    if (vel_json_fetch_node(document, &node, nullptr) != 0 ||
        vel_json_node_copy(document, node, source) != VEL_ERROR_NONE)
        return false;
    /* An array that is short is a failure that nothing tells. */
    if (vel_json_fetch_node(document, &list, "list", nullptr) != 0)
        return false;
    return vel_json_node_fetch_node(document, list, &node, "#", 2ul, nullptr) == 0;
}

static bool document_life(veljson *document, veljson *source)
{
    static const char kText[] = R"({"list":[1,-2.5,{"a":"\u00e4\n"}],"t":true,"n":null,"":{}})";
    if (vel_json_parse(source, kText) != 0 || !build(document) || !copy(document, source))
        return false;
    char *text = vel_json_output(document);
    if (!text)
        return false;
    const bool good = vel_json_parse(source, text) == 0;
    vel_free(text);
    return good;
}

/* What is changed lies in other memory than what was parsed. */
static bool change_long(veljson *document, veljson *source)
{
    static const std::string kText = long_text();
    veljsonnode *root = nullptr, *list = nullptr, *element = nullptr, *other = nullptr;
    if (vel_json_parse(document, kText.c_str()) != 0 ||
        vel_json_fetch_node(document, &root, nullptr) != 0 ||
        vel_json_fetch_node(source, &other, nullptr) != 0 ||
        vel_json_fetch_node(document, &list, "list", nullptr) != 0 ||
        vel_json_fetch_node(document, &element, "list", "#", 1ul, nullptr) != 0)
        return false;
    veljsonnode *const map = vel_json_node_object_add(document, root, "map");
    return map && vel_json_node_set_string(document, element, "b") == VEL_ERROR_NONE &&
           vel_json_node_copy_node(document, element, source, other) == VEL_ERROR_NONE &&
           vel_json_node_set_object(document, list) == VEL_ERROR_NONE &&
           vel_json_node_set_integer(document, root, 1) == VEL_ERROR_NONE;
}

static bool json_life()
{
    veljson *document = vel_json_create();
    veljson *source = document ? vel_json_create() : nullptr;
    const bool good = source && document_life(document, source) && change_long(source, document);
    if (source)
        vel_json_destroy(source);
    if (document)
        vel_json_destroy(document);
    return good;
}

TEST(VeljsonOom, Life)
{
    vel_oom_drive(json_life);
}
