#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/jsontest.h"
#include "support/logcapture.h"

using namespace support;
using testing::IsEmpty;

static const char *const kValues[] = {"null", "true", "false",         "\"text\"",
                                      "5",    "2.5",  "[1,[2],\"x\"]", "{\"a\":{\"b\":[\"x\"]}}"};

TEST(VeljsonCopy, CopiesAWholeDocument)
{
    const std::string text =
        R"({"list":[1,-2.5,"a\n",true,false,null,[[]],{"x":{}}],"":{"deep":{"er":[0]}}})";
    json_document source(text);
    json_document document("{\"old\":[1,2]}");
    log_capture log;
    EXPECT_EQ(vel_json_node_copy(document, document.root(), source), VEL_ERROR_NONE);
    EXPECT_THAT(json_lines(log), IsEmpty());
    EXPECT_EQ(json_text_of(document),
              "{\"\":{\"deep\":{\"er\":[0]}},"
              "\"list\":[1,-2.5~-2,\"a\n\",true,false,null,[[]],{\"x\":{}}]}");
    EXPECT_EQ(json_text_of(source),
              "{\"\":{\"deep\":{\"er\":[0]}},"
              "\"list\":[1,-2.5~-3,\"a\n\",true,false,null,[[]],{\"x\":{}}]}");
    EXPECT_EQ(vel_json_parse(source, "[]"), 0);
    veljsonnode *const list = document.member("list");
    EXPECT_EQ(json_value_of(document, list).elements.size(), 8u);
}

TEST(VeljsonCopy, CopiesIntoAPlaceWithinADocument)
{
    json_document source("[1,[2]]");
    json_document document("{\"a\":[[7,8,9],\"next\"]}");
    veljsonnode *place = nullptr;
    ASSERT_EQ(vel_json_fetch_node(document, &place, "a", "#", 0ul, nullptr), 0);
    EXPECT_EQ(vel_json_node_copy(document, place, source), VEL_ERROR_NONE);
    EXPECT_EQ(json_text_of(document), "{\"a\":[[1,[2]],\"next\"]}");
    EXPECT_NE(vel_json_node_array_add(document, place), nullptr);
    EXPECT_EQ(json_text_of(document), "{\"a\":[[1,[2],null],\"next\"]}");
}

TEST(VeljsonCopy, AnEmptySourceDoesNothing)
{
    json_document source;
    for (const char *text : {"{\"a\":1}", "[1]"}) {
        json_document document(text);
        log_capture log;
        EXPECT_EQ(vel_json_node_copy(document, document.root(), source), VEL_ERROR_NONE);
        EXPECT_EQ(json_text_of(document), text);
        EXPECT_THAT(json_lines(log), IsEmpty());
    }
}

TEST(VeljsonCopy, RefusesAnotherType)
{
    json_document source("[1]");
    json_document document(R"([{"a":1},"a",1,1.5,true,false,null])");
    log_capture log;
    for (unsigned long i = 0; i < 7; i++) {
        EXPECT_EQ(vel_json_node_copy(document, document.element(i), source),
                  VEL_ERROR_INVALID_ARGUMENT);
        EXPECT_EQ(json_lines(log), log_lines(1, json_line(6, "the node types do not match")));
    }
    EXPECT_EQ(json_text_of(document), R"([{"a":1},"a",1,1.5~2,true,false,null])");
    EXPECT_EQ(json_text_of(source), "[1]");
}

TEST(VeljsonCopyNode, CopiesEachTypeOntoEach)
{
    log_capture log;
    for (const char *from : kValues) {
        for (const char *to : kValues) {
            json_document source(std::string("[0,") + from + ",1]");
            json_document document(std::string("[2,") + to + ",3]");
            const std::string expected = json_value_of(source, source.element(1)).text();
            EXPECT_EQ(
                vel_json_node_copy_node(document, document.element(1), source, source.element(1)),
                VEL_ERROR_NONE);
            EXPECT_EQ(json_text_of(document), "[2," + expected + ",3]");
            EXPECT_EQ(json_text_of(source), "[0," + expected + ",1]");
        }
    }
    EXPECT_THAT(json_lines(log), IsEmpty());
}

TEST(VeljsonCopyNode, RoundsADoubleAnew)
{
    json_document source("[-1.5]");
    json_document document("[0]");
    EXPECT_EQ(vel_json_node_copy_node(document, document.element(0), source, source.element(0)),
              VEL_ERROR_NONE);
    EXPECT_EQ(json_text_of(source), "[-1.5~-2]");
    EXPECT_EQ(json_text_of(document), "[-1.5~-1]");
}

TEST(VeljsonCopyNode, CopiesWithinADocument)
{
    json_document document("{\"a\":[1,{\"b\":\"c\"}],\"d\":null}");
    EXPECT_EQ(
        vel_json_node_copy_node(document, document.member("d"), document, document.member("a")),
        VEL_ERROR_NONE);
    EXPECT_EQ(json_text_of(document), "{\"a\":[1,{\"b\":\"c\"}],\"d\":[1,{\"b\":\"c\"}]}");
}

TEST(VeljsonCopyNode, ManyMembersAndElements)
{
    std::string text = "{\"list\":[";
    for (int i = 0; i < 2000; i++)
        text += std::to_string(i) + ",";
    text += "]";
    for (int i = 0; i < 2000; i++)
        text += ",\"key" + std::to_string(i) + "\":" + std::to_string(i);
    text += "}";
    json_document source(text);
    json_document document("{}");
    EXPECT_EQ(vel_json_node_copy(document, document.root(), source), VEL_ERROR_NONE);
    EXPECT_EQ(json_text_of(document), json_text_of(source));
}

class VeljsonCopyDeathTest : public testing::Test {
  protected:
    json_document document{"{\"a\":[]}"};
    veljsonnode *root = document.root();
};

static const char kDocument[] = "veljson != NULL";

TEST_F(VeljsonCopyDeathTest, Copying)
{
    json_document source("{}");
    EXPECT_DEATH(vel_json_node_copy(nullptr, root, source),
                 asserts(kDocument, "vel_json_node_copy"));
    EXPECT_DEATH(vel_json_node_copy(document, nullptr, source),
                 asserts("node != NULL", "vel_json_node_copy"));
    EXPECT_DEATH(vel_json_node_copy(document, root, nullptr),
                 asserts("source != NULL", "vel_json_node_copy"));
    EXPECT_DEATH(vel_json_node_copy_node(nullptr, root, source, source.root()),
                 asserts(kDocument, "vel_json_node_copy_node"));
    EXPECT_DEATH(vel_json_node_copy_node(document, nullptr, source, source.root()),
                 asserts("node != NULL", "vel_json_node_copy_node"));
    EXPECT_DEATH(vel_json_node_copy_node(document, root, nullptr, source.root()),
                 asserts("source != NULL", "vel_json_node_copy_node"));
    EXPECT_DEATH(vel_json_node_copy_node(document, root, source, nullptr),
                 asserts("sourcenode != NULL", "vel_json_node_copy_node"));
}

TEST_F(VeljsonCopyDeathTest, CopyOfARootThatIsNoContainer)
{
    json_document source, scalar;
    EXPECT_EQ(vel_json_node_set_true(source, nullptr), VEL_ERROR_NONE);
    EXPECT_EQ(vel_json_node_set_true(scalar, nullptr), VEL_ERROR_NONE);
    EXPECT_DEATH(vel_json_node_copy(scalar, scalar.root(), source),
                 asserts("sourcenode->nodetype == VEL_JSON_TYPE_OBJECT || "
                         "sourcenode->nodetype == VEL_JSON_TYPE_ARRAY",
                         "vel_json_node_copy"));
}
