#include <vellib/vellocalization.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/potest.h"
#include "support/rows.h"

using support::log_line;

using log_lines = std::vector<log_line>;

static const char kModule[] = "util/vellocalization";
static const char kPath[] = "./domain/de.po";

/* A complaint about a line: its level, its text up to the name of the file, its number. */
struct complaint {
    int level;
    std::string text;
    int line;
};

struct parse_case {
    const char *name;
    std::string content;
    std::map<std::string, const char *> translations; /* NULL: there is none */
    std::vector<complaint> complaints = {};           /* an error in the syntax, if there are any */
};

static std::string unrecognized(const std::string &line)
{
    return "unrecognized line '" + line + "'";
}

static const char kNoMsgid[] = "msgstr without preceeding msgid";
static const char kNoItem[] = "a continuation line without preceeding msgid";

/* ---- the format ---- */

static const parse_case kParseCases[] = {
    {"Empty", "", {{"", nullptr}}},
    {"Pair", "msgid \"a\"\nmsgstr \"x\"\n", {{"a", "x"}, {"x", nullptr}}},
    {"NoLineFeedAtTheEnd", "msgid \"a\"\nmsgstr \"x\"", {{"a", "x"}}},
    {"Pairs", "msgid \"a\"\nmsgstr \"x\"\n\nmsgid \"b\"\nmsgstr \"y\"\n", {{"a", "x"}, {"b", "y"}}},
    {"PairsWithoutEmptyLine",
     "msgid \"a\"\nmsgstr \"x\"\nmsgid \"b\"\nmsgstr \"y\"\n",
     {{"a", "x"}, {"b", "y"}}},
    {"Continuations", "msgid \"a\"\n\"b\"\nmsgstr \"x\"\n\"y\"\n", {{"ab", "xy"}, {"a", nullptr}}},
    {"ManyContinuations",
     "msgid \"\"\n\"a\"\n\"\"\n\"b\"\n\"c\"\nmsgstr \"\"\n\"x\"\n\"y\"\n",
     {{"abc", "xy"}}},
    {"Comments",
     "# one\n#: two\n#, fuzzy\nmsgid \"a\"\n# three\nmsgstr \"x\"\n#~ msgid \"b\"\n",
     {{"a", "x"}, {"b", nullptr}}},
    {"CommentBeforeContinuation",
     "msgid \"a\"\n# a comment\n\n\"b\"\nmsgstr \"x\"\n#\n\"y\"\n",
     {{"ab", "xy"}}},
    {"CarriageReturns",
     "# c\r\nmsgid \"a\"\r\n\"b\"\r\n\r\nmsgstr \"x\"\r\n\"y\"\r\n",
     {{"ab", "xy"}}},
    {"CarriageReturnAlone", "\r\nmsgid \"a\"\n\r\nmsgstr \"x\"\r", {{"a", "x"}}},
    {"OneCarriageReturnIsRemoved", "msgid \"a\nmsgstr \"x\r\r\n", {{"a", "x\r"}}},
    {"NoLinefeedBehindCarriageReturn", "msgid \"a\rb\"\nmsgstr \"x\"\n", {{"a\rb", "x"}}},
    {"SpaceBehindQuoteIsKept", "msgid \"a\" \nmsgstr \"x\"\t\n", {{"a\" ", "x\"\t"}}},
    {"SpaceBeforeQuote", "msgid  \"a\"\nmsgstr  \"x\"\n", {{" \"a\"", " \"x\""}}},
    {"NoQuotes", "msgid a b\nmsgstr x\n", {{"a b", "x"}}},
    {"NoOpeningQuote", "msgid a\"\nmsgstr x\"\n", {{"a\"", "x\""}}},
    {"NoClosingQuote", "msgid \"a\n\"b\nmsgstr \"x\n", {{"ab", "x"}}},
    {"QuoteAlone", "msgid \"\nmsgstr \"\n", {{"", ""}}},
    {"QuoteAloneContinues", "msgid \"a\n\"\n\"\"\nmsgstr \"x\"\n\"\n", {{"a", "x"}}},
    {"NothingBehindKeyword", "msgid \nmsgstr \n", {{"", ""}}},
    {"Escapes",
     "msgid \"a\\nb\\t\\\\c\\\"\"\nmsgstr \"\\x\\\\\\\\y\"\n",
     {{"anbt\\c\"", "x\\\\y"}}},
    {"EscapedLastQuote", "msgid \"a\\\"\nmsgstr \"x\"\n", {{"a", "x"}}},
    {"BackslashAtTheEnd", "msgid a\\\nmsgstr \"x\\\\\\\"\n", {{"a", "x\\"}}},
    {"BackslashAlone", "msgid \\\nmsgstr \"\\\"\n", {{"", ""}}},
    {"QuotesInside", "msgid \"a\"b\"c\"\nmsgstr \"\"\"\"\n", {{"a\"b\"c", "\"\""}}},
    {"Utf8", "msgid \"\xc3\xa9\"\nmsgstr \"\xe4\xb8\x96\"\n", {{"\xc3\xa9", "\xe4\xb8\x96"}}},
    {"NotUtf8", "msgid \"\xff\"\nmsgstr \"\xfe\x80\"\n", {{"\xff", "\xfe\x80"}}},
    {"PercentSigns", "msgid \"%s %n\"\nmsgstr \"%d%%\"\n", {{"%s %n", "%d%%"}}},
    {"EqualKeys", "msgid \"a\"\nmsgstr \"x\"\nmsgid \"a\"\nmsgstr \"y\"\n", {{"a", "y"}}},
    {"MsgidWithoutMsgstr",
     "msgid \"a\"\nmsgid \"b\"\nmsgstr \"y\"\n",
     {{"a", nullptr}, {"b", "y"}}},
    {"LastMsgidWithoutMsgstr",
     "msgid \"a\"\nmsgstr \"x\"\nmsgid \"b\"\n",
     {{"a", "x"}, {"b", nullptr}}},
    {"BytesBehindNulAreLost",
     std::string("msgid \"a\0b\"\nmsgstr \"x\"\n", 23),
     {{"a", "x"}, {"ab", nullptr}}},
    {"NulAtTheBeginning", std::string("\0oops\nmsgid \"a\"\nmsgstr \"x\"\n", 27), {{"a", "x"}}},
};

/* ---- what is outside of it ---- */

static const parse_case kBadCases[] = {
    {"MsgstrAlone", "msgstr \"x\"\n", {{"", nullptr}}, {{6, kNoMsgid, 1}}},
    {"MsgstrAloneThenPairs",
     "msgstr \"x\"\nmsgid \"a\"\nmsgstr \"1\"\nmsgid \"b\"\nmsgstr \"2\"\nmsgid \"c\"\nmsgstr "
     "\"3\"\n",
     {{"a", "1"}, {"b", "2"}, {"c", nullptr}},
     {{6, kNoMsgid, 1}}},
    {"SecondMsgstr",
     "msgid \"a\"\nmsgstr \"x\"\nmsgstr \"y\"\nmsgid \"b\"\nmsgstr \"z\"\n# end\n",
     {{"a", "x"}, {"b", nullptr}},
     {{6, kNoMsgid, 3}}},
    {"ContinuationAlone", "\"a\"\n", {{"a", nullptr}}, {{6, kNoItem, 1}}},
    {"ContinuationBehindBadLine",
     "msgid \"a\"\nmsgstr \"x\"\nbad\n\"y\"\n",
     {{"a", "x"}, {"a\"y", nullptr}},
     {{6, unrecognized("bad"), 3}, {6, kNoItem, 4}}},
    {"ContinuationBehindMsgstrAlone",
     "msgstr \"x\"\n\"y\"\n",
     {},
     {{6, kNoMsgid, 1}, {6, kNoItem, 2}}},
    {"IndentedMsgid",
     " msgid \"a\"\nmsgstr \"x\"\n",
     {{"a", nullptr}},
     {{6, unrecognized(" msgid \"a\""), 1}, {6, kNoMsgid, 2}}},
    {"IndentedComment", "\t# c\n", {}, {{6, unrecognized("\t# c"), 1}}},
    {"IndentedContinuation",
     "msgid \"a\"\n  \"b\"\nmsgstr \"x\"\nmsgid \"\"\nmsgstr \"\"\n",
     {{"a", "x"}, {"ab", nullptr}, {"", nullptr}},
     {{6, unrecognized("  \"b\""), 2}}},
    {"SpacesAlone", "  \n", {}, {{6, unrecognized("  "), 1}}},
    {"TabBehindKeyword",
     "msgid\t\"a\"\nmsgid \"b\"\nmsgstr\t\"y\"\n",
     {{"a", nullptr}, {"b", nullptr}},
     {{6, unrecognized("msgid\t\"a\""), 1}, {6, unrecognized("msgstr\t\"y\""), 3}}},
    {"KeywordWithoutSpace",
     "msgid\nmsgstr\nmsgid\"a\"\n",
     {},
     {{6, unrecognized("msgid"), 1},
      {6, unrecognized("msgstr"), 2},
      {6, unrecognized("msgid\"a\""), 3}}},
    {"KeywordInCapitals", "MSGID \"a\"\n", {}, {{6, unrecognized("MSGID \"a\""), 1}}},
    {"Context",
     "msgctxt \"c\"\nmsgid \"a\"\nmsgstr \"x\"\n\nmsgid \"b\"\nmsgstr \"y\"\n",
     {{"a", "x"}, {"b", nullptr}},
     {{6, unrecognized("msgctxt \"c\""), 1}}},
    {"Plural",
     "msgid \"a\"\nmsgid_plural \"as\"\nmsgstr[0] \"x\"\nmsgstr[1] \"xs\"\n",
     {{"a", nullptr}, {"as", nullptr}},
     {{6, unrecognized("msgid_plural \"as\""), 2},
      {6, unrecognized("msgstr[0] \"x\""), 3},
      {6, unrecognized("msgstr[1] \"xs\""), 4}}},
    {"PluralContinuesMsgid",
     "msgid \"a\"\nmsgid_plural \"\"\n\"b\"\nmsgstr \"x\"\nmsgid \"c\"\n",
     {{"ab", "x"}},
     {{6, unrecognized("msgid_plural \"\""), 2}}},
    {"BadLineEndsPair",
     "msgid \"a\"\nmsgstr \"x\"\nbad\nmsgstr \"y\"\n",
     {{"a", "x"}},
     {{6, unrecognized("bad"), 3}, {6, kNoMsgid, 4}}},
    {"BadLineInPair",
     "msgid \"a\"\nbad\nmsgstr \"x\"\nmsgid \"b\"\n",
     {{"a", "x"}},
     {{6, unrecognized("bad"), 2}}},
    {"BadLineWithCarriageReturn", "bad\r\n", {}, {{6, unrecognized("bad"), 1}}},
    {"LinesAreCountedWithCommentsAndEmptyOnes",
     "# one\n\n\r\n# four\nbad\n",
     {},
     {{6, unrecognized("bad"), 5}}},
    {"ByteOrderMark",
     "\xef\xbb\xbfmsgid \"a\"\nmsgstr \"x\"\n",
     {},
     {{6, unrecognized("\xef\xbb\xbfmsgid \"a\""), 1}, {6, kNoMsgid, 2}}},
    {"PercentSigns", "%s%n\n", {}, {{6, unrecognized("%s%n"), 1}}},
};

class VellocalizationParse : public Vellocalization,
                             public testing::WithParamInterface<parse_case> {};

TEST_P(VellocalizationParse, File)
{
    const parse_case &row = GetParam();
    support::write_file("domain/de.po", row.content);
    log_lines expected = {{kModule, 13, "no language 'de'"}};
    for (const complaint &one : row.complaints)
        expected.push_back(
            {kModule, one.level, one.text + " in " + kPath + " line " + std::to_string(one.line)});
    if (!row.complaints.empty()) {
        const std::string tail = std::string(kPath) + ", error 209 (invalid syntax)";
        expected.push_back({kModule, 7, "unable to load po file " + tail});
        expected.push_back({kModule, 13, "failed to load localization file " + tail});
    }

    EXPECT_EQ(load(), row.complaints.empty() ? VEL_ERROR_NONE : VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(lines(), expected);
    for (const auto &[key, value] : row.translations)
        EXPECT_EQ(translation("de", key), value ? std::optional<std::string>(value) : std::nullopt)
            << key;
}

INSTANTIATE_TEST_SUITE_P(Good, VellocalizationParse, testing::ValuesIn(kParseCases),
                         support::row_name());
INSTANTIATE_TEST_SUITE_P(Bad, VellocalizationParse, testing::ValuesIn(kBadCases),
                         support::row_name());

/* ---- long lines ---- */

/* A line of a given length, without its line feed. */
static std::string long_line(const std::string &keyword, size_t length)
{
    std::string line = keyword + "\"";
    line.resize(length - 1, 'l');
    return line + "\"";
}

struct long_case {
    const char *name;
    size_t length;      /* of the line with msgstr, without its end */
    const char *ending; /* of all lines */
    int badline;        /* where the line behind it stands, by the counter */
};

/* A line of 4095 bytes fills the buffer, and its line feed is a line of its own. */
static const long_case kLongCases[] = {
    {"Of4093", 4093, "\n", 3},
    {"Of4094", 4094, "\n", 3},
    {"Of4095", 4095, "\n", 4},
    {"Of4093WithReturn", 4093, "\r\n", 3},
    {"Of4094WithReturn", 4094, "\r\n", 4},
    {"Of4095WithReturn", 4095, "\r\n", 4},
    {"Of4096", 4096, "\n", 4},
};

class VellocalizationLong : public Vellocalization,
                            public testing::WithParamInterface<long_case> {};

TEST_P(VellocalizationLong, LineIsWhole)
{
    const long_case &row = GetParam();
    const std::string line = long_line("msgstr ", row.length);
    support::write_file("domain/de.po", std::string("msgid \"a\"") + row.ending + line +
                                            row.ending + "bad" + row.ending);
    EXPECT_EQ(load(), VEL_ERROR_INVALID_SYNTAX);
    const log_lines found = lines();
    ASSERT_EQ(found.size(), 4u);
    EXPECT_EQ(found[1], (log_line{kModule, 6,
                                  "unrecognized line 'bad' in ./domain/de.po line " +
                                      std::to_string(row.badline)}));
    EXPECT_EQ(translation("de", "a"), std::string(row.length - strlen("msgstr ") - 2, 'l'));
}

INSTANTIATE_TEST_SUITE_P(All, VellocalizationLong, testing::ValuesIn(kLongCases),
                         support::row_name());

/* The rest begins where the buffer ended: with its last letter here. */
TEST_F(Vellocalization, RestOfLongLineIsLineOfItsOwn)
{
    const std::string line = long_line("msgstr ", 4097);
    support::write_file("domain/de.po", "msgid \"a\"\n" + line + "\n");
    EXPECT_EQ(load(), VEL_ERROR_INVALID_SYNTAX);
    const log_lines found = lines();
    ASSERT_EQ(found.size(), 4u);
    EXPECT_EQ(found[1], (log_line{kModule, 6, "unrecognized line 'l\"' in ./domain/de.po line 3"}));
    EXPECT_EQ(translation("de", "a"), std::string(4095 - strlen("msgstr \""), 'l'));
}

TEST_F(Vellocalization, LongCommentHasRestToo)
{
    support::write_file("domain/de.po", "#" + std::string(4095, 'c') + "\n");
    EXPECT_EQ(load(), VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(lines()[1], (log_line{kModule, 6, "unrecognized line 'c' in ./domain/de.po line 2"}));
}

TEST_F(Vellocalization, StringOfManyLines)
{
    std::string content = "msgid \"\"\n";
    std::string key;
    for (int line = 0; line < 1000; line++) {
        content += "\"line " + std::to_string(line) + "\"\n";
        key += "line " + std::to_string(line);
    }
    support::write_file("domain/de.po", content + "msgstr \"x\"\n");
    EXPECT_EQ(load_quietly(), VEL_ERROR_NONE);
    EXPECT_EQ(translation("de", key), "x");
}
