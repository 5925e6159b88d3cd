#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/eachfailure.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/rows.h"
#include "support/xmltree.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static const char kModule[] = "adt/velxml";
static const char kTooShort[] = "xml too short to finish this tag";
static const char kMismatch[] = "end tag does not match with start tag";

struct parse_row {
    const char *name;
    const char *text;
    int result;
    std::vector<std::string> lines; /* all of level 6 */
    const char *output;             /* of the tree, or NULL where the document is empty */
};

static std::string unexpected(char character, int tagstate)
{
    return std::string("unexpected '") + character + "', tagstate " + std::to_string(tagstate);
}

static std::string ended(int tagstate)
{
    return "XML ended unexpectedly, tagstate " + std::to_string(tagstate);
}

static std::string lengths(int end, int start)
{
    return "end tag len " + std::to_string(end) + " != start tag len " + std::to_string(start);
}

/* Documents as they are meant. */
static const parse_row kAccepted[] = {
    {"Empty", "", 0, {}, nullptr},
    {"Value", "<a>text</a>", 0, {}, "<a>\n  text\n</a>\n"},
    {"ValueIsNotDecoded", "<a>&lt;\xc3\xa4\xff</a>", 0, {}, "<a>\n  &lt;\xc3\xa4\xff\n</a>\n"},
    {"BlanksLeadAndTrail", "<a>  text  </a>", 0, {}, "<a>\n  text  \n</a>\n"},
    {"LineEndsLead", "<a>\r\n x \r\n</a>", 0, {}, "<a>\n  x \r\n\n</a>\n"},
    {"TabBeginsValue", "<a>\tx</a>", 0, {}, "<a>\n  \tx\n</a>\n"},
    {"OtherControlBeginsValue", "<a>\vx</a>", 0, {}, "<a>\n  \vx\n</a>\n"},
    {"BlankInsideValue", "<a>x \n y</a>", 0, {}, "<a>\n  x \n y\n</a>\n"},
    {"MarksInsideValue", "<a>/x=?\"y\"</a>", 0, {}, "<a>\n  /x=?\"y\"\n</a>\n"},
    {"Attributes",
     "<a b=\"1\" c=\"2\">x</a>",
     0,
     {},
     "<a b=\"1\" c=\"2\">\n"
     "  x\n"
     "</a>\n"},
    {"AttributesBeginBehindOneBlank", "<a  b >x</a>", 0, {}, "<a  b >\n  x\n</a>\n"},
    {"AttributesHoldLineEnds", "<a b\n\tc>x</a>", 0, {}, "<a b\n\tc>\n  x\n</a>\n"},
    {"AttributesOfNoLength", "<a >x</a>", 0, {}, "<a>\n  x\n</a>\n"},
    {"Declaration",
     "<?xml version=\"1.0\"?><a>x</a>",
     0,
     {},
     "<?xml version=\"1.0\"?>\n"
     "<a>\n"
     "  x\n"
     "</a>\n"},
    {"DeclarationWithoutAttributes", "<?xml?>", 0, {}, "<?xml?>\n"},
    {"Children",
     "<a><b>1</b><b>2</b></a>",
     0,
     {},
     "<a>\n"
     "  <b>\n"
     "    1\n"
     "  </b>\n"
     "  <b>\n"
     "    2\n"
     "  </b>\n"
     "</a>\n"},
    {"ValueBeforeChild",
     "<a>x<b>y</b></a>",
     0,
     {},
     "<a>\n"
     "  x\n"
     "  <b>\n"
     "    y\n"
     "  </b>\n"
     "</a>\n"},
    {"SpaceAroundChildren",
     "<a>\n  <b>1</b>\r\n  <c>2</c>\n</a>",
     0,
     {},
     "<a>\n"
     "  <b>\n"
     "    1\n"
     "  </b>\n"
     "  <c>\n"
     "    2\n"
     "  </c>\n"
     "</a>\n"},
    {"ValueBehindChildGoesToTheNext",
     "<a><b>1</b>x<c></c></a>",
     0,
     {},
     "<a>\n"
     "  <b>\n"
     "    1\n"
     "  </b>\n"
     "  <c>\n"
     "    x\n"
     "  </c>\n"
     "</a>\n"},
    {"Siblings", "<a>1</a><b>2</b>", 0, {}, "<a>\n  1\n</a>\n<b>\n  2\n</b>\n"},
    {"SpaceBetweenSiblings", "<a>1</a> <b>2</b>", 0, {}, "<a>\n  1\n</a>\n<b>\n  2\n</b>\n"},
    {"Nested",
     "<a><b><c>x</c></b></a>",
     0,
     {},
     "<a>\n"
     "  <b>\n"
     "    <c>\n"
     "      x\n"
     "    </c>\n"
     "  </b>\n"
     "</a>\n"},
};

/* What is accepted beside that, and what it turns into. */
static const parse_row kTolerated[] = {
    {"BlankAlone", " ", 0, {}, "<?>\n"},
    {"TrailingLineFeed", "<a></a>\n", 0, {}, "<aa>\n<?>\n"},
    {"TrailingSpaceMakesOneNode", "<a>x</a> \r\n ", 0, {}, "<a>\n  x\n</a>\n<?>\n"},
    {"TextAlone", "x", 0, {}, "<?>\n"},
    {"TrailingText", "<a>x</a>y", 0, {}, "<a>\n  x\n</a>\n<?>\n"},
    {"TrailingTab", "<a>x</a>\t", 0, {}, "<a>\n  x\n</a>\n<?>\n"},
    {"TextBeforeTag", "a<b></b>", 0, {}, "<b>\n  a\n</b>\n"},
    {"TextBetweenSiblings", "<a></a> x <b></b>", 0, {}, "<aa>\n<b>\n  x \n</b>\n"},
    {"TextBeforeTagThenSpace", "a<b> \r\n</b>", 0, {}, "<b>\n  a\n</b>\n"},
    {"TextBeforeTagThenChild", "a<b> <c/></b>", 0, {}, "<b>\n  a\n  <c/c>\n</b>\n"},
    {"EmptyElement", "<a/>", 0, {}, "<a/a>\n"},
    {"EmptyElementWithAttributes", "<a b/>", 0, {}, "<a b/a>\n"},
    {"EmptyElementBehindBlank", "<a />", 0, {}, "<a /a>\n"},
    {"EmptyElements", "<a/><b/>", 0, {}, "<a/a>\n<b/b>\n"},
    {"EmptyElementAsChild", "<a><b/></a>", 0, {}, "<a>\n  <b/b>\n</a>\n"},
    {"EmptyElementTakesTextBeforeIt", "x<b/>", 0, {}, "<b/>\n  x\n</b/>\n"},
    {"QuestionMarkCompletes", "<a?><b?>", 0, {}, "<aa>\n<bb>\n"},
    {"QuestionMarkLeavesNoAttributes", "<a ?>", 0, {}, "<aa>\n"},
    {"OnlyTheLastQuestionMarkGoes",
     "<?a b?c?"
     "?>",
     0,
     {},
     "<?a b?c?"
     "?>\n"},
    {"QuestionMarkOfTheEndTagGoes", "<a>x</a?>", 0, {}, "<a>\n  x\n</a>\n"},
    {"QuestionMarkAlone", "<?>", 0, {}, "<?>\n"},
    {"QuestionMarkBeforeSlash", "<a?/>", 0, {}, "<a?/a>\n"},
    {"SlashBeforeQuestionMark", "<a/?>", 0, {}, "<a/a>\n"},
    {"SlashInsideName", "<a/b>x</a/b>", 0, {}, "<a/b>\n  x\n</a/b>\n"},
    {"NameWithTab", "<a\tb>x</a\tb>", 0, {}, "<a\tb>\n  x\n</a\tb>\n"},
    {"NameWithLineFeed", "<a\nb c>x</a\nb>", 0, {}, "<a\nb c>\n  x\n</a\nb>\n"},
    {"NameOfNoLength", "<>x</>", 0, {}, "<>\n  x\n</>\n"},
    {"NameOfNoLengthWithAttributes", "< a>x</>", 0, {}, "< a>\n  x\n</>\n"},
    {"QuotesDoNotHideATagsEnd", "<a b=\">\"x</a>", 0, {}, "<a b=\">\n  \"x\n</a>\n"},
    {"CommentIsAnElement", "<!-- c -->x</!-->", 0, {}, "<!-- c -->\n  x\n</!-->\n"},
    {"EndTagAlone", "</a>", 0, {}, nullptr},
    {"EndTagEndsTheTop", "<a>x</a></b><", 0, {}, "<a>\n  x\n</a>\n"},
    {"UnfinishedEndTagEndsTheTop", "<a>x</a> </", 0, {}, "<a>\n  x\n</a>\n"},
};

static const parse_row kRefused[] = {
    {"EndTagDiffers", "<a></b>", -1, {kMismatch}, nullptr},
    {"EndTagDiffersInCase", "<a></A>", -1, {kMismatch}, nullptr},
    {"EndTagDiffersAtTheEnd", "<abc></abd>", -1, {kMismatch}, nullptr},
    {"EndTagLonger", "<a></ab>", -1, {lengths(2, 1)}, nullptr},
    {"EndTagShorter", "<abc></ab>", -1, {lengths(2, 3)}, nullptr},
    {"EndTagOfNoLength", "<a></>", -1, {lengths(0, 1)}, nullptr},
    {"EndTagQuestionMark", "<a></?>", -1, {lengths(0, 1)}, nullptr},
    {"EndTagWithBlank", "<a>x</a >", -1, {lengths(2, 1)}, nullptr},
    {"EndTagWithSlash", "<a></a/>", -1, {lengths(2, 1)}, nullptr},
    {"EndTagOfChildDiffers", "<a><b></c></a>", -1, {kMismatch}, nullptr},
    {"CloseFirst", ">", -1, {unexpected('>', 0)}, nullptr},
    {"CloseBehindText", "x>", -1, {unexpected('>', 0)}, nullptr},
    {"CloseBehindElement", "<a></a>>", -1, {unexpected('>', 0)}, nullptr},
    {"CloseInContent", "<a>>", -1, {unexpected('>', 3)}, nullptr},
    {"CloseInValue", "<a>x></a>", -1, {unexpected('>', 3)}, nullptr},
    {"CloseInQuotes", "<a b=\">\">x</a>", -1, {unexpected('>', 3)}, nullptr},
    {"OpenInName", "<a<b>", -1, {unexpected('<', 1)}, nullptr},
    {"OpenBehindOpen", "<<", -1, {unexpected('<', 1)}, nullptr},
    {"OpenInAttributes", "<a <b>", -1, {unexpected('<', 2)}, nullptr},
    {"OpenInEndTag", "<a></a<", -1, {unexpected('<', 4)}, nullptr},
    {"OpenIsLast", "<", -1, {kTooShort}, nullptr},
    {"OpenIsLastBehindText", "x<", -1, {kTooShort}, nullptr},
    {"OpenIsLastBehindElement", "<a>x</a><", -1, {kTooShort}, nullptr},
    {"OpenIsLastInContent", "<a>x<", -1, {kTooShort}, nullptr},
    {"OpenIsLastBehindChild", "<a><b/><", -1, {kTooShort}, nullptr},
    {"EndsInName", "<a", -1, {ended(1)}, nullptr},
    {"EndsInNameWithTab", "<a\t", -1, {ended(1)}, nullptr},
    {"EndsInAttributes", "<a ", -1, {ended(2)}, nullptr},
    {"EndsInQuotes", "<a b=\"", -1, {ended(2)}, nullptr},
    {"EndsInContent", "<a>", -1, {ended(3)}, nullptr},
    {"EndsInValue", "<a>x", -1, {ended(3)}, nullptr},
    {"EndsInEndTag", "<a></a", -1, {ended(4)}, nullptr},
    {"EndsBehindSlash", "<a></", -1, {ended(4)}, nullptr},
    {"EveryOpenLevelReportsTheEnd", "<a><b><c", -1, {ended(1), ended(3), ended(3)}, nullptr},
    {"SecondValue", "a<b>x</b>", -1, {}, nullptr},
    {"SecondValueIsTab", "a<b>\t</b>", -1, {}, nullptr},
    {"SecondValueInChild", "<a><c/>a<b>x</b></a>", -1, {}, nullptr},
    {"SecondValueBehindSpace", "a<b> \r\n=</b>", -1, {}, nullptr},
};

/* A child that was read makes its parent's level a success, whatever stops that level later. */
static const parse_row kSucceededByAChild[] = {
    {"Unclosed", "<a><b></b>", 0, {ended(3)}, "<a>\n  <bb>\n</a>\n"},
    {"UnclosedBehindText", "<a><b></b>x", 0, {ended(3)}, "<a>\n  <bb>\n  <?>\n</a>\n"},
    {"UnclosedEndTag", "<a><b></b></a", 0, {ended(4)}, "<a>\n  <bb>\n</a>\n"},
    {"TwoUnclosed",
     "<a><b><c/></b>",
     0,
     {ended(3)},
     "<a>\n"
     "  <b>\n"
     "    <c/c>\n"
     "  </b>\n"
     "</a>\n"},
    {"EachUnclosedLevelReportsTheEnd",
     "<r><a><b/>",
     0,
     {ended(3), ended(3)},
     "<r>\n"
     "  <a>\n"
     "    <b/b>\n"
     "  </a>\n"
     "</r>\n"},
    {"UnclosedSibling", "<a><b/></a><c>", 0, {ended(3)}, "<a>\n  <b/b>\n</a>\n<cc>\n"},
    {"UnfinishedSibling", "<a><b/></a><c d", 0, {ended(2)}, "<a>\n  <b/b>\n</a>\n<cc>\n"},
    {"UnfinishedName", "<a><b/></a><c", 0, {ended(1)}, "<a>\n  <b/b>\n</a>\n<?>\n"},
    {"EndTagDiffers", "<a><b/></c>", 0, {kMismatch}, "<a>\n  <b/b>\n</a>\n"},
    {"EndTagLonger", "<a><b/></ab>", 0, {lengths(2, 1)}, "<a>\n  <b/b>\n</a>\n"},
    {"OpenInEndTag", "<a><b/></a<", 0, {unexpected('<', 4)}, "<a>\n  <b/b>\n</a>\n"},
    {"CloseBehindElement", "<a><b/></a>>", 0, {unexpected('>', 0)}, "<a>\n  <b/b>\n</a>\n<?>\n"},
    {"OpenIsLast", "<a><b/></a><", 0, {kTooShort}, "<a>\n  <b/b>\n</a>\n<?>\n"},
    {"SecondValue", "<a><b/></a>x<c>y", 0, {}, "<a>\n  <b/b>\n</a>\n<c>\n  x\n</c>\n"},
    {"TheParentGoesOnWhereTheLevelStopped",
     "<r><a><b></b></c></r>",
     0,
     {kMismatch, unexpected('>', 3)},
     "<r>\n"
     "  <a>\n"
     "    <bb>\n"
     "  </a>\n"
     "</r>\n"},
    {"EveryParentMeetsTheLastOpen",
     "<r><a><b><c/></b><",
     0,
     {kTooShort, kTooShort, kTooShort},
     "<r>\n"
     "  <a>\n"
     "    <b>\n"
     "      <c/c>\n"
     "    </b>\n"
     "    <?>\n"
     "  </a>\n"
     "</r>\n"},
    {"TheParentReadsOnAndTheNewChildrenReplaceTheOld",
     "<r><a><b/></a<c>x</c></r>",
     0,
     {unexpected('<', 4)},
     "<r>\n"
     "  <c>\n"
     "    x\n"
     "  </c>\n"
     "</r>\n"},
    {"TheParentTakesWhatStoppedTheLevelAsItsValue",
     "<a><b><c/></b>x<d>y</a>",
     0,
     {},
     "<a>\n"
     "  y\n"
     "  <b>\n"
     "    <c/c>\n"
     "  </b>\n"
     "  <d>\n"
     "    x\n"
     "  </d>\n"
     "</a>\n"},
    {"TheParentThatHasAValueStopsThereToo",
     "<a>v<b><c/></b>x<d>y</a>",
     0,
     {},
     "<a>\n"
     "  v\n"
     "  <b>\n"
     "    <c/c>\n"
     "  </b>\n"
     "  <d>\n"
     "    x\n"
     "  </d>\n"
     "</a>\n"},
    {"TheParentMeetsTheSameClose",
     "<r><a><b/></a>x<c>></r>",
     0,
     {unexpected('>', 3), unexpected('>', 3)},
     "<r>\n"
     "  <a>\n"
     "    <b/b>\n"
     "  </a>\n"
     "  <c>\n"
     "    x\n"
     "  </c>\n"
     "</r>\n"},
};

class VelxmlParse : public testing::TestWithParam<parse_row> {
  protected:
    log_capture log;
    xml_document document;
};

TEST_P(VelxmlParse, Row)
{
    const parse_row &row = GetParam();
    std::string text = row.text;
    ASSERT_EQ(vel_xml_parse(document.xml, text.c_str()), row.result);
    text.assign(text.size(), '#'); /* the document has its own copy */

    std::vector<log_line> expected;
    for (const std::string &line : row.lines)
        expected.push_back({kModule, 6, line});
    EXPECT_EQ(log.take(), expected);
    if (row.output)
        EXPECT_EQ(xml_output(document.xml), row.output);
    else
        EXPECT_TRUE(xml_is_empty(document.xml));
    EXPECT_THAT(log.take(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Accepted, VelxmlParse, testing::ValuesIn(kAccepted), row_name());
INSTANTIATE_TEST_SUITE_P(Tolerated, VelxmlParse, testing::ValuesIn(kTolerated), row_name());
INSTANTIATE_TEST_SUITE_P(Refused, VelxmlParse, testing::ValuesIn(kRefused), row_name());
INSTANTIATE_TEST_SUITE_P(SucceededByAChild, VelxmlParse, testing::ValuesIn(kSucceededByAChild),
                         row_name());

TEST(Velxml, ParsingAgainReplacesTheDocument)
{
    xml_document document;
    EXPECT_EQ(vel_xml_parse(document.xml, "<a>1</a><b>2</b>"), 0);
    EXPECT_EQ(vel_xml_parse(document.xml, "<a>3</a>"), 0);
    EXPECT_EQ(xml_output(document.xml), "<a>\n  3\n</a>\n");
    EXPECT_EQ(vel_xml_parse(document.xml, ""), 0);
    EXPECT_TRUE(xml_is_empty(document.xml));
}

TEST(Velxml, AFailureEmptiesTheDocument)
{
    log_capture log;
    xml_document document;
    EXPECT_EQ(vel_xml_parse(document.xml, "<a>1</a><b>2</b>"), 0);
    EXPECT_EQ(vel_xml_parse(document.xml, "<a>1</a><b>"), -1);
    EXPECT_THAT(log.take(), ElementsAre(log_line{kModule, 6, ended(3)}));
    EXPECT_TRUE(xml_is_empty(document.xml));
    EXPECT_EQ(vel_xml_parse(document.xml, "<b>2</b>"), 0);
    EXPECT_EQ(xml_output(document.xml), "<b>\n  2\n</b>\n");
}

TEST(VelxmlMemory, CreateLogsNothing)
{
    log_capture log;
    const auto failures = each_failure(log, "", [] {
        xml_document document;
        return document.xml != nullptr;
    });
    EXPECT_THAT(failures, ElementsAre(IsEmpty()));
}

TEST(VelxmlMemory, ParseLogsWhatWasMissingAndEmptiesTheDocument)
{
    log_capture log;
    xml_document document;
    const auto failures = each_failure(log, "", [&document] {
        {
            malloc_pause pause;
            EXPECT_EQ(vel_xml_parse(document.xml, "<b>old</b>"), 0);
        }
        const int result = vel_xml_parse(document.xml, "<a><b>text</b></a>");
        EXPECT_EQ(xml_is_empty(document.xml), result != 0);
        return result == 0;
    });
    EXPECT_THAT(
        failures,
        ElementsAre(ElementsAre(log_line{kModule, 7, "not enough memory for the XML (18 bytes)"}),
                    ElementsAre(log_line{kModule, 7, "not enough memory for velxmlnode"})));
}

/* The result of the child stands when there is no memory for what follows. */
TEST(VelxmlMemory, ATrailingNodeThatCannotBeMadeIsLogged)
{
    log_capture log;
    xml_document document;
    size_t count;
    {
        malloc_watch watch;
        EXPECT_EQ(vel_xml_parse(document.xml, "<a><b/></a> "), 0);
        count = malloc_watch::count();
    }
    warm_log(log);
    {
        malloc_watch watch(count);
        EXPECT_EQ(vel_xml_parse(document.xml, "<a><b/></a> "), 0);
    }
    EXPECT_THAT(log.take(), ElementsAre(log_line{kModule, 7, "not enough memory for velxmlnode"}));
    EXPECT_EQ(xml_output(document.xml), "<a>\n  <b/b>\n</a>\n");
}

static bool xml_life()
{
    xml_document document;
    if (!document.xml)
        return false;
    if (vel_xml_parse(document.xml, "<?xml version=\"1.0\"?>\n<a>x<b>1</b> <b c=\"d\">2</b></a>\n"))
        return false;
    char *value = vel_xml_query_value(document.xml, "a", "b#", 1u, static_cast<char *>(nullptr));
    if (!value)
        return false;
    EXPECT_STREQ(value, "2");
    vel_free(value);
    return vel_xml_parse(document.xml, "<a/>") == 0 && vel_xml_parse(document.xml, "<a>") == -1;
}

TEST(VelxmlOom, Life)
{
    vel_oom_drive(xml_life);
}

/* Each aborts where an end tag meets what the level has read in front of it. */
struct abort_row {
    const char *name;
    const char *text;
    const char *expression;
};

static const abort_row kAborts[] = {
    {"TextBehindChild", "<a>x<b/>y</a>", "velxmlnode->valuestart == 0"},
    {"TextBehindChildAndSpace", "<a><b/>\n y </a>", "velxmlnode->valuestart == 0"},
    {"TabBehindChild", "<a><b></b>\t</a>", "velxmlnode->valuestart == 0"},
    {"TextBehindElement", "<a></a>x</a>", "velxmlnode->valuestart == 0"},
    {"TextBehindSpace", " x</a>", "velxmlnode->valuestart == 0"},
    {"TextAtTheStart", "x</a>", "velxmlnode->valuelen == 0"},
};

class VelxmlAbortDeathTest : public testing::TestWithParam<abort_row> {};

TEST_P(VelxmlAbortDeathTest, Row)
{
    xml_document document;
    EXPECT_DEATH(vel_xml_parse(document.xml, GetParam().text),
                 asserts(GetParam().expression, "vel_xml_node_parse_recursive"));
}

INSTANTIATE_TEST_SUITE_P(Rows, VelxmlAbortDeathTest, testing::ValuesIn(kAborts), row_name());

TEST(VelxmlDeathTest, Handles)
{
    EXPECT_DEATH(vel_xml_destroy(nullptr), asserts("velxml != NULL", "vel_xml_destroy"));
    EXPECT_DEATH(vel_xml_parse(nullptr, "<a/>"), asserts("velxml != NULL", "vel_xml_clear"));
    EXPECT_DEATH(vel_xml_parse(nullptr, nullptr), asserts("velxml != NULL", "vel_xml_clear"));
}
