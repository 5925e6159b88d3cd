#include <cstdint>
#include <ostream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/jsontest.h"
#include "support/logcapture.h"
#include "support/rows.h"

using namespace support;
using testing::IsEmpty;

struct setter {
    const char *name;
    vel_error_t (*set)(veljson *, veljsonnode *);
    const char *value;
};

static const setter kSetters[] = {
    {"Null", vel_json_node_set_null, "null"},
    {"True", vel_json_node_set_true, "true"},
    {"False", vel_json_node_set_false, "false"},
    {"String",
     [](veljson *json, veljsonnode *node) { return vel_json_node_set_string(json, node, "a\tb"); },
     "\"a\tb\""},
    {"EmptyString",
     [](veljson *json, veljsonnode *node) { return vel_json_node_set_string(json, node, ""); },
     "\"\""},
    {"Integer",
     [](veljson *json, veljsonnode *node) { return vel_json_node_set_integer(json, node, -7); },
     "-7"},
    {"LargestInteger",
     [](veljson *json, veljsonnode *node) {
         return vel_json_node_set_integer(json, node, INT64_MAX);
     },
     "9223372036854775807"},
    {"SmallestInteger",
     [](veljson *json, veljsonnode *node) {
         return vel_json_node_set_integer(json, node, INT64_MIN);
     },
     "-9223372036854775808"},
    {"Double",
     [](veljson *json, veljsonnode *node) { return vel_json_node_set_double(json, node, 1.5); },
     "1.5~2"},
    {"NegativeDouble",
     [](veljson *json, veljsonnode *node) { return vel_json_node_set_double(json, node, -1.5); },
     "-1.5~-1"},
    {"NegativeDoubleBelow",
     [](veljson *json, veljsonnode *node) { return vel_json_node_set_double(json, node, -2.75); },
     "-2.75~-2"},
    {"NegativeDoubleAboveAHalf",
     [](veljson *json, veljsonnode *node) { return vel_json_node_set_double(json, node, -0.25); },
     "-0.25~0"},
    {"DoubleBelowAHalf",
     [](veljson *json, veljsonnode *node) { return vel_json_node_set_double(json, node, 2.25); },
     "2.25~2"},
    {"Array", vel_json_node_set_array, "[]"},
    {"Object", vel_json_node_set_object, "{}"},
};

static void PrintTo(const setter &row, std::ostream *out)
{
    *out << row.name;
}

class VeljsonSet : public testing::TestWithParam<setter> {
  protected:
    void set(veljson *json, veljsonnode *node)
    {
        EXPECT_EQ(GetParam().set(json, node), VEL_ERROR_NONE);
    }

    log_capture log;
};

TEST_P(VeljsonSet, MakesARoot)
{
    json_document document;
    set(document, nullptr);
    EXPECT_THAT(json_lines(log), IsEmpty());
    EXPECT_EQ(json_text_of(document), GetParam().value);
}

TEST_P(VeljsonSet, ReplacesTheRootByNullAndByItsNode)
{
    for (const bool bynode : {false, true}) {
        json_document document("{\"a\":[1,{\"b\":\"c\"}]}");
        veljsonnode *const root = document.root();
        set(document, bynode ? root : nullptr);
        EXPECT_EQ(document.root(), root);
        EXPECT_EQ(json_text_of(document), GetParam().value);
    }
}

static const char *const kOldValues[] = {
    "null", "true", "false", "\"old\"", "5", "2.5", "[1,[2],\"x\"]", "{\"a\":{\"b\":[\"x\"]}}"};

TEST_P(VeljsonSet, KeepsThePlaceInAnArrayAndAnObject)
{
    for (const std::string old : kOldValues) {
        json_document document("{\"list\":[0," + old + ",2],\"map\":{\"k\":" + old + "}}");
        veljsonnode *element = nullptr, *member = nullptr;
        ASSERT_EQ(vel_json_fetch_node(document, &element, "list", "#", 1ul, nullptr), 0);
        ASSERT_EQ(vel_json_fetch_node(document, &member, "map", "k", nullptr), 0);
        set(document, element);
        set(document, member);
        EXPECT_EQ(json_text_of(document), std::string("{\"list\":[0,") + GetParam().value +
                                              ",2],\"map\":{\"k\":" + GetParam().value + "}}");
    }
}

TEST_P(VeljsonSet, TakesTheSameValueTwice)
{
    json_document document;
    set(document, nullptr);
    set(document, nullptr);
    EXPECT_EQ(json_text_of(document), GetParam().value);
}

/* What the old type kept in the node means nothing to the new one. */
TEST_P(VeljsonSet, ThenTakesEveryOtherSetter)
{
    for (const setter &other : kSetters) {
        json_document document;
        set(document, nullptr);
        EXPECT_EQ(other.set(document, document.root()), VEL_ERROR_NONE);
        EXPECT_EQ(json_text_of(document), other.value);
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, VeljsonSet, testing::ValuesIn(kSetters), row_name());

TEST(VeljsonSetString, KeepsACopy)
{
    std::string text = "text";
    json_document document;
    EXPECT_EQ(vel_json_node_set_string(document, nullptr, text.c_str()), VEL_ERROR_NONE);
    text = "gone";
    EXPECT_EQ(json_text_of(document), "\"text\"");
}

TEST(VeljsonSetString, TakesTheNodesOwnString)
{
    json_document document("[\"text\"]");
    const char *string = nullptr;
    EXPECT_EQ(vel_json_fetch_string(document, &string, "#", 0ul, nullptr), 0);
    EXPECT_EQ(vel_json_node_set_string(document, document.element(0), string + 1), VEL_ERROR_NONE);
    EXPECT_EQ(json_text_of(document), "[\"ext\"]");
}

TEST(VeljsonSetString, TakesAStringOfWhatItReplaces)
{
    json_document document("[[\"text\"]]");
    const char *string = nullptr;
    EXPECT_EQ(vel_json_fetch_string(document, &string, "#", 0ul, "#", 0ul, nullptr), 0);
    EXPECT_EQ(vel_json_node_set_string(document, nullptr, string), VEL_ERROR_NONE);
    EXPECT_EQ(json_text_of(document), "\"text\"");
}

TEST(VeljsonSetInteger, IsADoubleToo)
{
    json_document document;
    double number = 0;
    EXPECT_EQ(vel_json_node_set_integer(document, nullptr, -9007199254740993), VEL_ERROR_NONE);
    EXPECT_EQ(vel_json_fetch_double(document, &number, nullptr), 0);
    EXPECT_EQ(number, -9007199254740992.0);
}

TEST(VeljsonArrayAdd, AddsNullsAtTheEnd)
{
    json_document document("[1]");
    log_capture log;
    veljsonnode *const first = vel_json_node_array_add(document, document.root());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(json_text_of(document), "[1,null]");
    veljsonnode *const second = vel_json_node_array_add(document, document.root());
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(vel_json_node_set_string(document, first, "first"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_json_node_set_array(document, second), VEL_ERROR_NONE);
    EXPECT_NE(vel_json_node_array_add(document, second), nullptr);
    EXPECT_EQ(json_text_of(document), "[1,\"first\",[null]]");
    EXPECT_EQ(vel_json_node_fetch_next(document, first), second);
    EXPECT_THAT(json_lines(log), IsEmpty());
}

TEST(VeljsonArrayAdd, AnArrayThatIsSetAnewBeginsAnew)
{
    json_document document("[1,2,3]");
    EXPECT_EQ(document.element(2), document.element(2));
    EXPECT_EQ(vel_json_node_set_array(document, nullptr), VEL_ERROR_NONE);
    log_capture log;
    veljsonnode *node = document.root();
    EXPECT_EQ(vel_json_fetch_node(document, &node, "#", 0ul, nullptr), -1);
    EXPECT_EQ(node, nullptr);
    EXPECT_NE(vel_json_node_array_add(document, document.root()), nullptr);
    EXPECT_NE(vel_json_node_array_add(document, document.root()), nullptr);
    EXPECT_EQ(json_text_of(document), "[null,null]");
}

TEST(VeljsonArrayAdd, IndicesInAnyOrderBetweenAdds)
{
    json_document document("[]");
    for (int i = 0; i < 200; i++) {
        veljsonnode *const added = vel_json_node_array_add(document, document.root());
        ASSERT_NE(added, nullptr);
        ASSERT_EQ(vel_json_node_set_integer(document, added, i), VEL_ERROR_NONE);
        for (const int index : {i, 0, i / 2, i, i * 7 % (i + 1)}) {
            int value = -1;
            ASSERT_EQ(vel_json_fetch_int(document, &value, "#", static_cast<unsigned long>(index),
                                         nullptr),
                      0);
            ASSERT_EQ(value, index);
        }
    }
}

TEST(VeljsonArrayAdd, RefusesWhatIsNoArray)
{
    log_capture log;
    json_document document(R"([{},"a",1,1.5,true,false,null])");
    for (unsigned long i = 0; i < 7; i++) {
        EXPECT_EQ(vel_json_node_array_add(document, document.element(i)), nullptr);
        EXPECT_EQ(json_lines(log), log_lines(1, json_line(6, "node is not an array")));
    }
    EXPECT_EQ(json_text_of(document), R"([{},"a",1,1.5~2,true,false,null])");
}

TEST(VeljsonObjectAdd, AddsNulls)
{
    json_document document("{\"a\":1}");
    log_capture log;
    veljsonnode *const added = vel_json_node_object_add(document, document.root(), "b");
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(json_text_of(document), "{\"a\":1,\"b\":null}");
    EXPECT_EQ(vel_json_node_set_object(document, added), VEL_ERROR_NONE);
    EXPECT_NE(vel_json_node_object_add(document, added, ""), nullptr);
    EXPECT_EQ(json_text_of(document), "{\"a\":1,\"b\":{\"\":null}}");
    EXPECT_EQ(document.member("b"), added);
    EXPECT_THAT(json_lines(log), IsEmpty());
}

TEST(VeljsonObjectAdd, ReplacesAMemberOfTheSameKey)
{
    json_document document("{\"a\":[1,{\"b\":\"c\"}],\"b\":2}");
    EXPECT_NE(vel_json_node_object_add(document, document.root(), "a"), nullptr);
    EXPECT_EQ(json_text_of(document), "{\"a\":null,\"b\":2}");
    veljsonnode *const second = vel_json_node_object_add(document, document.root(), "a");
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(vel_json_node_set_true(document, second), VEL_ERROR_NONE);
    EXPECT_EQ(json_text_of(document), "{\"a\":true,\"b\":2}");
}

TEST(VeljsonObjectAdd, KeepsACopyOfTheKey)
{
    json_document document("{\"a\":1}");
    std::string key = "key";
    EXPECT_NE(vel_json_node_object_add(document, document.root(), key.c_str()), nullptr);
    key = "gone";
    EXPECT_EQ(json_text_of(document), "{\"a\":1,\"key\":null}");
}

TEST(VeljsonObjectAdd, TakesTheKeyOfTheMemberItReplaces)
{
    json_document document("{\"a\":1}");
    const char *key = nullptr;
    veljsonnode *value = nullptr;
    ASSERT_NE(vel_json_enumerate_start(document, document.root(), &key, &value), nullptr);
    EXPECT_NE(vel_json_node_object_add(document, document.root(), key), nullptr);
    EXPECT_EQ(json_text_of(document), "{\"a\":null}");
}

TEST(VeljsonObjectAdd, RefusesWhatIsNoObject)
{
    log_capture log;
    json_document document(R"([[1],"a",1,1.5,true,false,null])");
    for (unsigned long i = 0; i < 7; i++) {
        EXPECT_EQ(vel_json_node_object_add(document, document.element(i), "a"), nullptr);
        EXPECT_EQ(json_lines(log), log_lines(1, json_line(6, "node is not an object")));
    }
    EXPECT_EQ(json_text_of(document), R"([[1],"a",1,1.5~2,true,false,null])");
}

class VeljsonChangeDeathTest : public testing::Test {
  protected:
    json_document document{"{\"a\":[]}"};
    veljsonnode *root = document.root();
};

static const char kDocument[] = "veljson != NULL";

TEST_F(VeljsonChangeDeathTest, Setters)
{
    EXPECT_DEATH(vel_json_node_set_null(nullptr, root),
                 asserts(kDocument, "vel_json_node_set_null"));
    EXPECT_DEATH(vel_json_node_set_true(nullptr, root),
                 asserts(kDocument, "vel_json_node_set_true"));
    EXPECT_DEATH(vel_json_node_set_false(nullptr, root),
                 asserts(kDocument, "vel_json_node_set_false"));
    EXPECT_DEATH(vel_json_node_set_string(nullptr, root, "a"),
                 asserts(kDocument, "vel_json_node_set_string"));
    EXPECT_DEATH(vel_json_node_set_string(document, root, nullptr),
                 asserts("string != NULL", "vel_json_node_set_string"));
    EXPECT_DEATH(vel_json_node_set_integer(nullptr, root, 1),
                 asserts(kDocument, "vel_json_node_set_integer"));
    EXPECT_DEATH(vel_json_node_set_double(nullptr, root, 1),
                 asserts(kDocument, "vel_json_node_set_double"));
    EXPECT_DEATH(vel_json_node_set_array(nullptr, root),
                 asserts(kDocument, "vel_json_node_set_array"));
    EXPECT_DEATH(vel_json_node_set_object(nullptr, root),
                 asserts(kDocument, "vel_json_node_set_object"));
}

TEST_F(VeljsonChangeDeathTest, Adding)
{
    EXPECT_DEATH(vel_json_node_array_add(nullptr, document.member("a")),
                 asserts(kDocument, "vel_json_node_array_add"));
    EXPECT_DEATH(vel_json_node_array_add(document, nullptr),
                 asserts("arraynode != NULL", "vel_json_node_array_add"));
    EXPECT_DEATH(vel_json_node_object_add(nullptr, root, "a"),
                 asserts(kDocument, "vel_json_node_object_add"));
    EXPECT_DEATH(vel_json_node_object_add(document, nullptr, "a"),
                 asserts("objectnode != NULL", "vel_json_node_object_add"));
    EXPECT_DEATH(vel_json_node_object_add(document, root, nullptr),
                 asserts("key != NULL", "vel_json_node_object_add"));
}
