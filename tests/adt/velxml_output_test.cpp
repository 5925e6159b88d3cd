#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/rows.h"
#include "support/xmltree.h"

using namespace support;
using testing::IsEmpty;

struct output_row {
    const char *name;
    const char *text;
    const char *output;
};

static const output_row kOutputs[] = {
    {"LeafEndsInItsFirstCharacter", "<abc></abc>", "<abca>\n"},
    {"LeafWithAttributes", "<abc d=\"e\"></abc>", "<abc d=\"e\"a>\n"},
    {"LeafWithoutAName", "<></>", "<?>\n"},
    {"LeafWithoutANameButAttributes", "< b></>", "< b?>\n"},
    {"LeafOfSlash", "<b/>", "<b/b>\n"},
    {"LeafOfMarkAndSlash", "<!/>", "<!/!>\n"},
    {"LeafOfQuestionMark", "<?b?>", "<?b?>\n"},
    {"EmptyNode", "<b/>\n", "<b/b>\n<?>\n"},
    {"NodeWithValueAndAttributes", "<a b>x</a>", "<a b>\n  x\n</a>\n"},
    {"NodeWithoutANameWithValue", "<>x</>", "<>\n  x\n</>\n"},
    {"ValueIsWrittenAsItWasRead", "<a>x\n  y\xff&amp;%s </a>", "<a>\n  x\n  y\xff&amp;%s \n</a>\n"},
    {"NameAndAttributesAreWrittenAsTheyWereRead", "<a%d\xc3\n %s\n>x</a%d\xc3\n>",
     "<a%d\xc3\n %s\n>\n  x\n</a%d\xc3\n>\n"},
    {"AttributesDoNotReappearInTheEndTag", "<a b><c/></a>", "<a b>\n  <c/c>\n</a>\n"},
    {"Indents", "<a>1<b>2<c>3<d/></c></b></a>",
     "<a>\n"
     "  1\n"
     "  <b>\n"
     "    2\n"
     "    <c>\n"
     "      3\n"
     "      <d/d>\n"
     "    </c>\n"
     "  </b>\n"
     "</a>\n"},
    {"Siblings", "<a>1</a><b><c/><d>2</d></b><e></e>",
     "<a>\n"
     "  1\n"
     "</a>\n"
     "<b>\n"
     "  <c/c>\n"
     "  <d>\n"
     "    2\n"
     "  </d>\n"
     "</b>\n"
     "<ee>\n"},
};

class VelxmlOutput : public testing::TestWithParam<output_row> {};

TEST_P(VelxmlOutput, Row)
{
    log_capture log;
    xml_document document;
    ASSERT_EQ(vel_xml_parse(document.xml, GetParam().text), 0);
    EXPECT_EQ(xml_output(document.xml), GetParam().output);
    EXPECT_EQ(xml_output(document.xml), GetParam().output); /* it changes nothing */
    EXPECT_THAT(log.take(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Rows, VelxmlOutput, testing::ValuesIn(kOutputs), row_name());

/* It goes on behind what the stream has. */
TEST(VelxmlOutputStream, IsNeitherRewoundNorClosed)
{
    xml_document document;
    ASSERT_EQ(vel_xml_parse(document.xml, "<a/>"), 0);
    char *text = nullptr;
    size_t length = 0;
    FILE *out = open_memstream(&text, &length);
    fputs("before ", out);
    EXPECT_EQ(vel_xml_output(document.xml, out), 0);
    EXPECT_EQ(vel_xml_output(document.xml, out), 0);
    fputs("after", out);
    fclose(out);
    EXPECT_STREQ(text, "before <a/a>\n<a/a>\nafter");
    free(text);
}

TEST(VelxmlOutputStream, AFullDiskIsIgnored)
{
    log_capture log;
    xml_document document;
    ASSERT_EQ(vel_xml_parse(document.xml, "<a>x<b></b></a>"), 0);
    FILE *out = fopen("/dev/full", "w");
    ASSERT_NE(out, nullptr);
    setvbuf(out, nullptr, _IONBF, 0);
    EXPECT_EQ(vel_xml_output(document.xml, out), 0);
    EXPECT_NE(ferror(out), 0);
    fclose(out);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(VelxmlOutputDeathTest, Arguments)
{
    xml_document document;
    ASSERT_EQ(vel_xml_parse(document.xml, "<a/>"), 0);
    EXPECT_DEATH(vel_xml_output(nullptr, stdout), asserts("velxml != NULL", "vel_xml_output"));
    EXPECT_DEATH(vel_xml_output(document.xml, nullptr), asserts("out != NULL", "vel_xml_output"));
}

TEST(VelxmlOutputDeathTest, AnEmptyDocument)
{
    xml_document document;
    EXPECT_DEATH(vel_xml_output(document.xml, stdout),
                 asserts("velxmlnode != NULL", "vel_xml_output_recursive"));
    ASSERT_EQ(vel_xml_parse(document.xml, ""), 0);
    EXPECT_DEATH(vel_xml_output(document.xml, stdout), asserts("velxmlnode != NULL"));
}
