#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/eachfailure.h"
#include "support/logcapture.h"
#include "support/xmltree.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static char *const kEnd = nullptr;
static const xml_found kMissing{-1, {}};
static const xml_found kNoValue{0, {}};

static xml_found found(const std::string &value)
{
    return {0, value};
}

/* Queries are tried on one document, and log nothing. */
class VelxmlQuery : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_EQ(vel_xml_parse(document.xml, "<?xml version=\"1.0\"?>\n"
                                              "<a>top<b>0</b><c>other</c><b>1<d>deep</d></b>\n"
                                              " <b/><b></b><b> 2 </b><bb>3</bb></a>\n"
                                              "<a><b>second</b></a>\n"
                                              "<e x=\"1\"></e>< y>noname</>\n"),
                  0);
    }

    ~VelxmlQuery() override
    {
        EXPECT_THAT(log.take(), IsEmpty());
    }

    template <typename... Item> xml_found query(Item... item)
    {
        return xml_query(document.xml, item...);
    }

    log_capture log;
    xml_document document;
};

TEST_F(VelxmlQuery, AnItemNamesATopLevelNode)
{
    EXPECT_EQ(query("a"), found("top"));
    EXPECT_EQ(query("b"), kMissing);
    EXPECT_EQ(query("f"), kMissing);
}

TEST_F(VelxmlQuery, ItemsDescend)
{
    EXPECT_EQ(query("a", "b"), found("0"));
    EXPECT_EQ(query("a", "c"), found("other"));
    EXPECT_EQ(query("a", "b#", 1u, "d"), found("deep"));
    EXPECT_EQ(query("a", "d"), kMissing);
    EXPECT_EQ(query("a", "a"), kMissing);
    EXPECT_EQ(query("f", "b"), kMissing);
    EXPECT_EQ(query("e", "b"), kMissing); /* has no children */
}

/* The first b of a has no child d, and the first one is the one that is taken. */
TEST_F(VelxmlQuery, AnItemDoesNotLookFurtherThanItsNode)
{
    EXPECT_EQ(query("a", "b", "d"), kMissing);
}

TEST_F(VelxmlQuery, AnOccurrenceCountsSiblingsOfTheName)
{
    EXPECT_EQ(query("a", "b#", 0u), found("0"));
    EXPECT_EQ(query("a", "b#", 1u), found("1"));
    EXPECT_EQ(query("a", "b#", 2u), kNoValue);
    EXPECT_EQ(query("a", "b#", 3u), found("2 "));
    EXPECT_EQ(query("a", "b#", 4u), kMissing);
    EXPECT_EQ(query("a", "b#", 4294967295u), kMissing);
    EXPECT_EQ(query("a#", 1u, "b"), found("second"));
    EXPECT_EQ(query("a#", 1u, "b#", 0u), found("second"));
    EXPECT_EQ(query("a#", 1u, "b#", 1u), kMissing);
    EXPECT_EQ(query("a#", 2u), kMissing);
}

TEST_F(VelxmlQuery, ANameMatchesAsAWholeAndInItsCase)
{
    EXPECT_EQ(query("a", "bb"), found("3"));
    EXPECT_EQ(query("a", "bbb"), kMissing);
    EXPECT_EQ(query("A"), kMissing);
    EXPECT_EQ(query("a", "b#b"), kMissing); /* the mark stands at the end only */
}

TEST_F(VelxmlQuery, AnEmptyElementIsFoundWithItsSlash)
{
    EXPECT_EQ(query("a", "b/"), kNoValue);
    EXPECT_EQ(query("a", "b/#", 0u), kNoValue);
    EXPECT_EQ(query("a", "b/#", 1u), kMissing);
}

TEST_F(VelxmlQuery, ADeclarationIsANode)
{
    EXPECT_EQ(query("?xml"), kNoValue);
}

TEST_F(VelxmlQuery, TheEmptyNameFindsNodesWithoutAName)
{
    EXPECT_EQ(query(""), found("noname"));
    EXPECT_EQ(query("#", 0u), found("noname"));
    EXPECT_EQ(query("#", 1u), kNoValue); /* the node behind the last element */
    EXPECT_EQ(query("#", 2u), kMissing);
    EXPECT_EQ(query("a", ""), kMissing);
}

TEST_F(VelxmlQuery, AnEmptyPathIsTheRoot)
{
    EXPECT_EQ(query(), kNoValue); /* the declaration */
    EXPECT_EQ(vel_xml_parse(document.xml, "<a>x</a><b>y</b>"), 0);
    EXPECT_EQ(query(), found("x"));
}

TEST_F(VelxmlQuery, AValueIsAPointerIntoTheDocument)
{
    ASSERT_EQ(vel_xml_parse(document.xml, "<a>value</a><b>v</b>"), 0);
    const char *a = nullptr, *again = nullptr, *b = nullptr;
    size_t length = 0;
    EXPECT_EQ(vel_xml_query_value_const(document.xml, &a, &length, "a", kEnd), 0);
    EXPECT_EQ(length, 5u);
    EXPECT_EQ(vel_xml_query_value_const(document.xml, &again, &length, "a", kEnd), 0);
    EXPECT_EQ(again, a);
    EXPECT_EQ(vel_xml_query_value_const(document.xml, &b, &length, "b", kEnd), 0);
    EXPECT_EQ(b, a + 12);
    EXPECT_EQ(std::string(a - 3), "<a>value</a><b>v</b>"); /* which is a copy of the whole text */
}

TEST_F(VelxmlQuery, AValueAtTheStartOfTheText)
{
    ASSERT_EQ(vel_xml_parse(document.xml, "a<b></b>"), 0);
    EXPECT_EQ(query("b"), found("a"));
}

/* Nothing ended it, so it has no length. */
TEST_F(VelxmlQuery, TextAtTheEndIsNoValue)
{
    ASSERT_EQ(vel_xml_parse(document.xml, "<a>x</a>y"), 0);
    EXPECT_EQ(query(""), kNoValue);
}

TEST_F(VelxmlQuery, AnEmptyDocumentHasNothing)
{
    ASSERT_EQ(vel_xml_parse(document.xml, ""), 0);
    EXPECT_EQ(query("a"), kMissing);
    EXPECT_EQ(query("#", 0u), kMissing);
    EXPECT_EQ(vel_xml_query_value(document.xml, "a", kEnd), nullptr);

    xml_document untouched;
    EXPECT_EQ(xml_query(untouched.xml, "a"), kMissing);
}

TEST_F(VelxmlQuery, ValueGivesACopy)
{
    char *value = vel_xml_query_value(document.xml, "a", "b#", 3u, kEnd);
    EXPECT_STREQ(value, "2 ");
    EXPECT_EQ(vel_xml_parse(document.xml, "<a>x</a>"), 0);
    EXPECT_STREQ(value, "2 ");
    vel_free(value);

    value = vel_xml_query_value(document.xml, kEnd);
    EXPECT_STREQ(value, "x");
    vel_free(value);
    EXPECT_EQ(vel_xml_query_value(document.xml, "b", kEnd), nullptr);
    EXPECT_EQ(vel_xml_query_value(document.xml, "a#", 1u, kEnd), nullptr);
}

TEST_F(VelxmlQuery, ValueLogsWhatWasMissing)
{
    const auto failures = each_failure(log, "", [this] {
        char *value = vel_xml_query_value(document.xml, "a", "b#", 1u, "d", kEnd);
        const bool succeeded = value != nullptr;
        vel_free(value);
        return succeeded;
    });
    EXPECT_THAT(failures, ElementsAre(ElementsAre(
                              log_line{"adt/velxml", 7, "not enough memory for value (4 bytes)"})));
}

TEST_F(VelxmlQuery, ThreadsQueryOneDocument)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([this] {
            for (int turn = 0; turn < 200; turn++) {
                EXPECT_EQ(query("a", "b#", 1u, "d"), found("deep"));
                EXPECT_EQ(query("a", "f"), kMissing);
                char *value = vel_xml_query_value(document.xml, "a", "c", kEnd);
                EXPECT_STREQ(value, "other");
                vel_free(value);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

using VelxmlQueryDeathTest = VelxmlQuery;

TEST_F(VelxmlQueryDeathTest, Arguments)
{
    const std::string function = "vel_xml_query_value_const_va";
    const char *value;
    size_t length;
    EXPECT_DEATH(vel_xml_query_value(nullptr, "a", kEnd), asserts("velxml != NULL", function));
    EXPECT_DEATH(vel_xml_query_value_const(nullptr, &value, &length, "a", kEnd),
                 asserts("velxml != NULL", function));
    EXPECT_DEATH(vel_xml_query_value_const(document.xml, nullptr, &length, "a", kEnd),
                 asserts("valueptr != NULL", function));
    EXPECT_DEATH(vel_xml_query_value_const(document.xml, &value, nullptr, "a", kEnd),
                 asserts("valuelenptr != NULL", function));
}

TEST_F(VelxmlQueryDeathTest, AnEmptyPathOnAnEmptyDocument)
{
    xml_document empty;
    EXPECT_DEATH(vel_xml_query_value(empty.xml, kEnd),
                 asserts("velxmlnode != NULL", "vel_xml_query_value_const_va"));
    ASSERT_EQ(vel_xml_parse(empty.xml, "</a>"), 0);
    EXPECT_DEATH(xml_query(empty.xml), asserts("velxmlnode != NULL"));
    EXPECT_EQ(vel_xml_parse(empty.xml, "<"), -1); /* what the failure left */
    EXPECT_DEATH(xml_query(empty.xml), asserts("velxmlnode != NULL"));
    log.clear();
}

TEST_F(VelxmlQueryDeathTest, AStringOfANodeWithoutAValue)
{
    EXPECT_DEATH(vel_xml_query_value(document.xml, "e", kEnd),
                 asserts("string != NULL", "vel_strndup"));
    EXPECT_DEATH(vel_xml_query_value(document.xml, "a", "b/", kEnd),
                 asserts("string != NULL", "vel_strndup"));
}
