#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/logcapture.h"
#include "support/smallstack.h"
#include "support/xmltree.h"

using namespace support;

static std::string repeated(const std::string &piece, size_t count)
{
    std::string out;
    out.reserve(piece.size() * count);
    for (size_t i = 0; i < count; i++)
        out += piece;
    return out;
}

constexpr size_t kMillion = 1000000;

TEST(VelxmlDepth, AMillionLevels)
{
    const std::string text = repeated("<a>", kMillion) + "x" + repeated("</a>", kMillion);
    run_on_small_stack([&text] {
        xml_document document;
        EXPECT_EQ(vel_xml_parse(document.xml, text.c_str()), 0);
        EXPECT_EQ(xml_query(document.xml, "a", "a", "a"), (xml_found{0, {}}));
        EXPECT_EQ(vel_xml_parse(document.xml, text.c_str()), 0); /* clears the first one */
    });
}

TEST(VelxmlDepth, AMillionLevelsThatFailInTheDepth)
{
    const std::string text = repeated("<a>", kMillion) + "></a>";
    run_on_small_stack([&text] {
        log_capture log;
        xml_document document;
        EXPECT_EQ(vel_xml_parse(document.xml, text.c_str()), -1);
        EXPECT_THAT(log.take(),
                    testing::ElementsAre(log_line{"adt/velxml", 6, "unexpected '>', tagstate 3"}));
        EXPECT_TRUE(xml_is_empty(document.xml));
    });
}

/* Each level holds the levels below it, and two siblings of its own. */
TEST(VelxmlDepth, LevelsWithSiblings)
{
    const size_t count = kMillion / 4;
    const std::string text = repeated("<b/><a>v<c/>", count) + repeated("<d></d></a><b/>", count);
    run_on_small_stack([&text] {
        xml_document document;
        EXPECT_EQ(vel_xml_parse(document.xml, text.c_str()), 0);
        EXPECT_EQ(xml_query(document.xml, "a", "a", "a"), (xml_found{0, "v"}));
        EXPECT_EQ(xml_query(document.xml, "b/#", 1u), (xml_found{0, {}}));
        EXPECT_EQ(xml_query(document.xml, "a", "d"), (xml_found{0, {}}));
    });
}

TEST(VelxmlDepth, AMillionSiblings)
{
    const std::string text = repeated("<a/>", kMillion);
    run_on_small_stack([&text] {
        xml_document document;
        EXPECT_EQ(vel_xml_parse(document.xml, text.c_str()), 0);
        EXPECT_EQ(xml_query(document.xml, "a/#", 999999u), (xml_found{0, {}}));
        EXPECT_EQ(xml_query(document.xml, "a/#", 1000000u), (xml_found{-1, {}}));
    });
}

/* The text written grows with the square of the depth, so this is as deep as no recursion on this
 * stack would go and no deeper. */
TEST(VelxmlDepth, IsWritten)
{
    const size_t depth = 4000;
    const std::string text = repeated("<a>", depth) + repeated("</a>", depth);
    std::string written;
    run_on_small_stack([&text, &written] {
        xml_document document;
        EXPECT_EQ(vel_xml_parse(document.xml, text.c_str()), 0);
        written = xml_output(document.xml);
    });
    std::string expected;
    for (size_t level = 0; level + 1 < depth; level++)
        expected += std::string(2 * level, ' ') + "<a>\n";
    expected += std::string(2 * (depth - 1), ' ') + "<aa>\n";
    for (size_t level = depth - 1; level-- > 0;)
        expected += std::string(2 * level, ' ') + "</a>\n";
    EXPECT_TRUE(written == expected); /* too long to print */
}
