#include <string>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/jsontest.h"
#include "support/smallstack.h"

using namespace support;

static constexpr size_t kElements = 10000000;

static std::string long_array()
{
    std::string text = "[ ";
    for (size_t i = 0; i < kElements; i++)
        text += "7, ";
    text.replace(text.size() - 2, 2, " ]");
    return text;
}

TEST(VeljsonDepth, ALongArrayIsParsedWrittenAndDestroyed)
{
    const std::string text = long_array();
    run_on_small_stack([&text] {
        veljson *document = vel_json_create();
        ASSERT_NE(document, nullptr);
        ASSERT_EQ(vel_json_parse(document, text.c_str()), 0);
        int last = 0;
        EXPECT_EQ(vel_json_fetch_int(document, &last, "#", kElements - 1, nullptr), 0);
        EXPECT_EQ(last, 7);
        char *written = vel_json_output(document);
        ASSERT_NE(written, nullptr);
        EXPECT_TRUE(written == text);
        vel_free(written);
        vel_json_destroy(document);
    });
}

/* All of it is destroyed where the end is not accepted. */
TEST(VeljsonDepth, ALongArrayThatFailsAtItsEnd)
{
    std::string text = long_array();
    text.back() = '}';
    run_on_small_stack([&text] {
        json_document document;
        EXPECT_EQ(vel_json_parse(document, text.c_str()), -1);
        EXPECT_EQ(document.root(), nullptr);
    });
}

TEST(VeljsonDepth, ALongArrayIsBuiltAndCopied)
{
    run_on_small_stack([] {
        json_document document("[]"), copy("[]");
        veljsonnode *const root = document.root();
        for (size_t i = 0; i < kElements / 10; i++) {
            veljsonnode *const element = vel_json_node_array_add(document, root);
            ASSERT_NE(element, nullptr);
            ASSERT_EQ(vel_json_node_set_integer(document, element, 7), VEL_ERROR_NONE);
        }
        ASSERT_EQ(vel_json_node_copy(copy, copy.root(), document), VEL_ERROR_NONE);
        EXPECT_TRUE(copy.output() == document.output());
        EXPECT_EQ(vel_json_node_set_null(document, nullptr), VEL_ERROR_NONE);
    });
}

/* Who builds a document may nest deeper than a text may. */
TEST(VeljsonDepth, DeepNestsAreBuiltCopiedWrittenAndDestroyed)
{
    static constexpr size_t kLevels = 100000;
    run_on_small_stack([] {
        json_document document("[]"), copy("[]");
        veljsonnode *node = document.root();
        std::string expected = "[ ";
        for (size_t i = 0; i < kLevels; i++) {
            node = vel_json_node_array_add(document, node);
            ASSERT_NE(node, nullptr);
            ASSERT_EQ(vel_json_node_set_object(document, node), VEL_ERROR_NONE);
            node = vel_json_node_object_add(document, node, "a");
            ASSERT_NE(node, nullptr);
            ASSERT_EQ(vel_json_node_set_array(document, node), VEL_ERROR_NONE);
            expected += "{ \"a\": [ ";
        }
        expected += "]";
        for (size_t i = 0; i < kLevels; i++)
            expected += " } ]";
        EXPECT_TRUE(document.output() == expected);
        ASSERT_EQ(vel_json_node_copy(copy, copy.root(), document), VEL_ERROR_NONE);
        EXPECT_TRUE(copy.output() == expected);
        EXPECT_EQ(vel_json_parse(copy, "[]"), 0);
    });
}

TEST(VeljsonDepth, ALongObjectIsParsedWrittenAndDestroyed)
{
    std::string text = "{";
    for (size_t i = 0; i < 200000; i++)
        text += "\"" + std::to_string(i) + "\":[],";
    run_on_small_stack([&text] {
        json_document document(text);
        const std::string written = document.output();
        /* Three blanks more for each member, and two for the braces less the comma at the end. */
        EXPECT_EQ(written.size(), text.size() + 200000 * 3 + 1);
    });
}
