#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/jsonfetch.h"
#include "support/jsontest.h"
#include "support/logcapture.h"

using namespace support;
using testing::IsEmpty;

/* The four ways to a node; they have to agree. */
template <typename... Path>
fetched<const veljsonnode *> fetch_node(log_capture &log, veljson *json, Path... path)
{
    char block = 0;
    auto *dirt = reinterpret_cast<veljsonnode *>(&block);
    const veljsonnode *constdirt = dirt;
    const auto one = fetch(log, constdirt, [&](const veljsonnode **out) {
        return vel_json_fetch_node_const(json, out, path..., nullptr);
    });
    EXPECT_EQ(fetch(log, constdirt,
                    [&](const veljsonnode **out) {
                        return vel_json_node_fetch_node_const(json, nullptr, out, path..., nullptr);
                    }),
              one);
    const auto other = fetch(log, dirt, [&](veljsonnode **out) {
        return vel_json_fetch_node(json, out, path..., nullptr);
    });
    EXPECT_EQ(other.result, one.result);
    EXPECT_EQ(other.value, one.value);
    EXPECT_EQ(other.lines, one.lines);
    EXPECT_EQ(fetch(log, dirt,
                    [&](veljsonnode **out) {
                        return vel_json_node_fetch_node(json, nullptr, out, path..., nullptr);
                    }),
              other);
    return one;
}

static const char kTree[] =
    R"({"name":"tree","list":[10,[20,21],{"deep":[{"end":"here"}]}],"none":[],"object":{},)"
    R"("number":7,"#":1,"":"empty key"})";

class VeljsonFetch : public testing::Test {
  protected:
    template <typename... Path> std::string text_at(Path... path)
    {
        const auto one = fetch_node(log, document, path...);
        EXPECT_EQ(one.result, 0);
        EXPECT_THAT(one.lines, IsEmpty());
        return one.value ? json_value_of(document, const_cast<veljsonnode *>(one.value)).text()
                         : "";
    }

    template <typename... Path> void expect_nothing(int level, const char *text, Path... path)
    {
        EXPECT_EQ(fetch_node(log, document, path...),
                  (fetched<const veljsonnode *>{-1, nullptr, {json_line(level, text)}}));
    }

    log_capture log;
    json_document document{kTree};
};

TEST_F(VeljsonFetch, TheEmptyPathGivesTheRoot)
{
    EXPECT_EQ(fetch_node(log, document).value, document.root());
    EXPECT_NE(document.root(), nullptr);
}

TEST_F(VeljsonFetch, PathsOfKeysAndIndices)
{
    EXPECT_EQ(text_at("name"), "\"tree\"");
    EXPECT_EQ(text_at(""), "\"empty key\"");
    EXPECT_EQ(text_at("list", "#", 0ul), "10");
    EXPECT_EQ(text_at("list", "#", 1ul), "[20,21]");
    EXPECT_EQ(text_at("list", "#", 1ul, "#", 1ul), "21");
    EXPECT_EQ(text_at("list", "#", 2ul, "deep", "#", 0ul, "end"), "\"here\"");
    EXPECT_EQ(text_at("none"), "[]");
    EXPECT_EQ(text_at("object"), "{}");
}

TEST_F(VeljsonFetch, MissingKeys)
{
    expect_nothing(13, "did not find node named 'absent' under an object", "absent");
    expect_nothing(13, "did not find node named 'Name' under an object", "Name");
    expect_nothing(13, "did not find node named 'a' under an object", "object", "a");
    expect_nothing(13, "did not find node named 'x' under an object", "list", "#", 2ul, "x", "y");
}

TEST_F(VeljsonFetch, MissingElements)
{
    expect_nothing(13, "trying to access an empty array, looking for index 0", "none", "#", 0ul);
    expect_nothing(13, "trying to access an empty array, looking for index 9", "none", "#", 9ul);
    expect_nothing(13, "trying to access array beyond the end at index 2, looking for index 3",
                   "list", "#", 3ul);
    expect_nothing(13,
                   "trying to access array beyond the end at index 2, looking for index "
                   "18446744073709551615",
                   "list", "#", std::numeric_limits<unsigned long>::max());
}

TEST_F(VeljsonFetch, WrongShapes)
{
    expect_nothing(6, "trying to access array but the node type is object", "#", 0ul);
    expect_nothing(6, "trying to access array but the node type is object", "object", "#", 0ul);
    expect_nothing(6, "trying to access array but the node type is string", "name", "#", 0ul);
    expect_nothing(6, "trying to access array but the node type is number", "number", "#", 0ul);
    expect_nothing(6, "trying to access object but the node type is array", "list", "a");
    expect_nothing(6, "trying to access object but the node type is string", "name", "a");
    expect_nothing(6, "trying to access object but the node type is number", "number", "a");
}

TEST_F(VeljsonFetch, TypesAreNamedInMessages)
{
    const std::pair<const char *, const char *> kNames[] = {
        {"{}", "object"},  {"[]", "array"},  {"\"\"", "string"}, {"1", "number"},
        {"1.5", "number"}, {"true", "true"}, {"false", "false"}, {"null", "null"}};
    for (const auto &[text, name] : kNames) {
        json_document other(std::string("[") + text + "]");
        const bool array = std::string(name) == "array";
        const auto one = array ? fetch_node(log, other, "#", 0ul, "a")
                               : fetch_node(log, other, "#", 0ul, "#", 0ul);
        EXPECT_EQ(one.lines, log_lines(1, json_line(6, std::string("trying to access ") +
                                                           (array ? "object" : "array") +
                                                           " but the node type is " + name)));
    }
}

TEST_F(VeljsonFetch, AnEmptyDocumentHasNothingBehindAPath)
{
    json_document empty;
    for (const auto &one : {fetch_node(log, empty, "a"), fetch_node(log, empty, "#", 0ul)})
        EXPECT_EQ(one,
                  (fetched<const veljsonnode *>{-1, nullptr, {json_line(6, "no JSON parsed")}}));
}

TEST_F(VeljsonFetch, AnEmptyDocumentAndAnEmptyPathDifferByConst)
{
    json_document empty;
    auto *dirt = document.root();
    const veljsonnode *constdirt = dirt;
    const fetched<const veljsonnode *> found = {0, nullptr, {}};
    const fetched<veljsonnode *> missing = {-1, nullptr, {json_line(6, "no JSON parsed")}};
    EXPECT_EQ(fetch(log, constdirt,
                    [&](const veljsonnode **out) {
                        return vel_json_fetch_node_const(empty, out, nullptr);
                    }),
              found);
    EXPECT_EQ(fetch(log, constdirt,
                    [&](const veljsonnode **out) {
                        return vel_json_node_fetch_node_const(empty, nullptr, out, nullptr);
                    }),
              found);
    EXPECT_EQ(fetch(log, dirt,
                    [&](veljsonnode **out) { return vel_json_fetch_node(empty, out, nullptr); }),
              missing);
    EXPECT_EQ(fetch(log, dirt,
                    [&](veljsonnode **out) {
                        return vel_json_node_fetch_node(empty, nullptr, out, nullptr);
                    }),
              missing);
}

TEST_F(VeljsonFetch, AMemberNamedAsTheMarkerIsOutOfReach)
{
    expect_nothing(6, "trying to access array but the node type is object", "#", 0ul);
    EXPECT_EQ(json_value_of(document, document.root()).members.at("#").text(), "1");
}

TEST_F(VeljsonFetch, FromANodeThePathGoesOnThere)
{
    veljsonnode *list = document.member("list");
    veljsonnode *found = nullptr;
    EXPECT_EQ(vel_json_node_fetch_node(document, list, &found, "#", 2ul, "deep", nullptr), 0);
    EXPECT_EQ(json_value_of(document, found).text(), "[{\"end\":\"here\"}]");
    const veljsonnode *constfound = nullptr;
    EXPECT_EQ(
        vel_json_node_fetch_node_const(document, list, &constfound, "#", 2ul, "deep", nullptr), 0);
    EXPECT_EQ(constfound, found);
    EXPECT_EQ(vel_json_node_fetch_node(document, found, &found, nullptr), 0);
    EXPECT_EQ(constfound, found);
    int value = 0;
    EXPECT_EQ(vel_json_node_fetch_int(document, list, &value, "#", 1ul, "#", 0ul, nullptr), 0);
    EXPECT_EQ(value, 20);
    const char *string = nullptr;
    EXPECT_EQ(vel_json_node_fetch_string(document, constfound, &string, "#", 0ul, "end", nullptr),
              0);
    EXPECT_STREQ(string, "here");
}

TEST_F(VeljsonFetch, StepsThroughAnArray)
{
    veljsonnode *first = nullptr;
    ASSERT_EQ(vel_json_fetch_node(document, &first, "list", "#", 0ul, nullptr), 0);
    std::vector<std::string> texts;
    const veljsonnode *constnode = first;
    for (veljsonnode *node = first; node; node = vel_json_node_fetch_next(document, node)) {
        EXPECT_EQ(constnode, node);
        constnode = vel_json_node_fetch_next_const(document, constnode);
        texts.push_back(json_value_of(document, node).text());
    }
    EXPECT_EQ(constnode, nullptr);
    EXPECT_THAT(texts, testing::ElementsAre("10", "[20,21]", "{\"deep\":[{\"end\":\"here\"}]}"));
    EXPECT_EQ(vel_json_node_fetch_next(document, document.root()), nullptr);
    EXPECT_EQ(vel_json_node_fetch_next(document, document.member("name")), nullptr);
}

TEST_F(VeljsonFetch, EnumerationOfWhatIsNoObject)
{
    json_document other("[[],\"a\",1,1.5,true,false,null]");
    log.clear();
    std::vector<veljsonnode *> nodes = {other.root()};
    for (unsigned long i = 0; i < 7; i++)
        nodes.push_back(other.element(i));
    veljsonnode *object = document.root();
    for (veljsonnode *node : nodes) {
        const char *key = "dirt";
        veljsonnode *value = object;
        EXPECT_EQ(vel_json_enumerate_start(other, node, &key, &value), nullptr);
        EXPECT_EQ(key, nullptr);
        EXPECT_EQ(value, nullptr);
        key = "dirt";
        value = object;
        EXPECT_EQ(vel_json_enumerate_next(other, node, &key, &key, &value), nullptr);
        EXPECT_EQ(key, nullptr);
        EXPECT_EQ(value, nullptr);
        EXPECT_EQ(json_lines(log), log_lines(2, json_line(6, "node is not an object")));
    }
}

TEST_F(VeljsonFetch, EnumerationOfAnEmptyObject)
{
    const char *key = "dirt";
    veljsonnode *value = document.root();
    EXPECT_EQ(vel_json_enumerate_start(document, document.member("object"), &key, &value), nullptr);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(value, nullptr);
    EXPECT_THAT(json_lines(log), IsEmpty());
}

static std::vector<std::string> keys_of(veljson *json, veljsonnode *object)
{
    std::vector<std::string> keys;
    const char *key = nullptr;
    veljsonnode *value = nullptr;
    for (void *handle = vel_json_enumerate_start(json, object, &key, &value); handle;
         handle = vel_json_enumerate_next(json, object, handle, &key, &value)) {
        keys.push_back(key);
        EXPECT_NE(value, nullptr);
    }
    return keys;
}

static std::vector<std::string> keys_of(velstringhash *hash)
{
    std::vector<std::string> keys;
    const char *key = nullptr;
    void *value = nullptr;
    for (void *handle = vel_stringhash_enumerate_start(hash, &key, &value); handle;
         handle = vel_stringhash_enumerate_next(hash, handle, &key, &value))
        keys.push_back(key);
    return keys;
}

/* The order is that of a string hash with the same history, also in the middle of a resize. */
class VeljsonOrder : public testing::Test {
  protected:
    ~VeljsonOrder() override
    {
        vel_stringhash_destroy(hash);
    }

    static std::string key_of(int number)
    {
        return "key" + std::to_string(number * number % 457);
    }

    velstringhash *hash = vel_stringhash_create(nullptr, nullptr);
};

TEST_F(VeljsonOrder, OfParsedMembers)
{
    std::string text = "{";
    for (int i = 0; i < 600; i++) {
        text += "\"" + key_of(i) + "\":null,";
        ASSERT_EQ(vel_stringhash_add(hash, key_of(i).c_str(), hash), 0);
        json_document document(text);
        ASSERT_EQ(keys_of(document, document.root()), keys_of(hash)) << i;
    }
}

TEST_F(VeljsonOrder, OfAddedMembersThatAreFetchedInBetween)
{
    json_document document("{}");
    for (int i = 0; i < 600; i++) {
        ASSERT_EQ(vel_stringhash_add(hash, key_of(i).c_str(), hash), 0);
        ASSERT_NE(vel_json_node_object_add(document, document.root(), key_of(i).c_str()), nullptr);
        ASSERT_EQ(keys_of(document, document.root()), keys_of(hash)) << i;
        if (i % 3 == 0) { /* a look-up moves what it finds */
            const std::string key = key_of(i * 7);
            const veljsonnode *node = nullptr;
            ASSERT_EQ(vel_json_fetch_node_const(document, &node, key.c_str(), nullptr) == 0,
                      vel_stringhash_lookup(hash, key.c_str()) != nullptr);
        }
    }
}
