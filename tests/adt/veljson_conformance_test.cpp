#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/jsontest.h"
#include "support/logcapture.h"
#include "support/rows.h"

using namespace support;

/* The grammar of RFC 8259, rule by rule, with what its letter says about a text and what the parser
 * does. Where they differ the row says why, and nowhere else. */
struct conformance_row {
    const char *name;
    const char *rule; /* of RFC 8259, with its section */
    std::string text;
    bool standard; /* whether the grammar has the text */
    bool accepted; /* whether the parser accepts it */
    const char *deviation = nullptr;
};

static void PrintTo(const conformance_row &row, std::ostream *out)
{
    *out << row.rule << ": " << json_visible(row.text);
}

class VeljsonConformance : public testing::TestWithParam<conformance_row> {};

TEST_P(VeljsonConformance, Row)
{
    const conformance_row &row = GetParam();
    EXPECT_EQ(row.deviation != nullptr, row.standard != row.accepted);
    log_capture log;
    json_document document;
    EXPECT_EQ(vel_json_parse(document, row.text.c_str()), row.accepted ? 0 : -1);
    EXPECT_EQ(document.root() != nullptr, row.accepted);
}

static const char kContainersOnly[] = "a document is an object or an array";
static const char kTrailingComma[] = "a comma may stand behind the last";
static const char kMissingBrace[] = "the end of the text behind a member ends the object";
static const char kLeadingZero[] = "one zero may stand before other digits";
static const char kNoExponent[] = "there are no exponents";
static const char kRawControl[] = "all bytes are taken as they are";
static const char kDotFirst[] = "a minus may be followed by a dot";
static const char kSurrogates[] = "a surrogate alone is no character";
static const char kDepth[] = "there are at most 99 levels";

static std::string levels(size_t count)
{
    return std::string(count, '[') + std::string(count, ']');
}

static const conformance_row kRows[] = {
    /* JSON-text = ws value ws */
    {"TextObject", "2: JSON-text", "{}", true, true},
    {"TextArray", "2: JSON-text", "[]", true, true},
    {"TextString", "2: JSON-text", "\"a\"", true, false, kContainersOnly},
    {"TextNumber", "2: JSON-text", "1", true, false, kContainersOnly},
    {"TextTrue", "2: JSON-text", "true", true, false, kContainersOnly},
    {"TextFalse", "2: JSON-text", "false", true, false, kContainersOnly},
    {"TextNull", "2: JSON-text", "null", true, false, kContainersOnly},
    {"TextEmpty", "2: JSON-text", "", false, false},
    {"TextSpace", "2: JSON-text", " ", false, false},
    {"TextTwice", "2: JSON-text", "[][]", false, false},
    {"TextAndJunk", "2: JSON-text", "[]x", false, false},

    /* The six structural characters, with ws on both sides */
    {"SpaceAroundBrackets", "2: begin-array, end-array", " [ ] ", true, true},
    {"SpaceAroundBraces", "2: begin-object, end-object", " { } ", true, true},
    {"SpaceAroundColon", "2: name-separator", "{\"a\" : 1}", true, true},
    {"SpaceAroundComma", "2: value-separator", "[1 , 2]", true, true},
    {"Blank", "2: ws", " []", true, true},
    {"Tab", "2: ws", "\t[]\t", true, true},
    {"LineFeed", "2: ws", "\n[\n]\n", true, true},
    {"CarriageReturn", "2: ws", "\r\n[\r\n]\r\n", true, true},
    {"FormFeed", "2: ws", "\f[]", false, false},
    {"VerticalTab", "2: ws", "[\v]", false, false},
    {"NoBreakSpace", "2: ws", "[\xc2\xa0]", false, false},
    {"Comment", "2: ws", "[/**/]", false, false},

    /* value = false / null / true / object / array / number / string */
    {"ValueTrue", "3: value", "[true]", true, true},
    {"ValueFalse", "3: value", "[false]", true, true},
    {"ValueNull", "3: value", "[null]", true, true},
    {"ValueObject", "3: value", "[{}]", true, true},
    {"ValueArray", "3: value", "[[]]", true, true},
    {"ValueNumber", "3: value", "[1]", true, true},
    {"ValueString", "3: value", "[\"a\"]", true, true},
    {"NamesAreLowerCase", "3: value", "[True]", false, false},
    {"NoOtherNames", "3: value", "[undefined]", false, false},
    {"NamesAreWhole", "3: value", "[tru]", false, false},
    {"NamesEnd", "3: value", "[truer]", false, false},

    /* object = begin-object [ member *( value-separator member ) ] end-object */
    {"ObjectOfOne", "4: object", "{\"a\":1}", true, true},
    {"ObjectOfTwo", "4: object", "{\"a\":1,\"b\":2}", true, true},
    {"NamesNeedNotDiffer", "4: object", "{\"a\":1,\"a\":2}", true, true},
    {"ObjectTrailingComma", "4: object", "{\"a\":1,}", false, true, kTrailingComma},
    {"ObjectCommaAlone", "4: object", "{,}", false, false},
    {"ObjectTwoCommas", "4: object", "{\"a\":1,,\"b\":2}", false, false},
    {"ObjectLeadingComma", "4: object", "{,\"a\":1}", false, false},
    {"ObjectNoComma", "4: object", "{\"a\":1 \"b\":2}", false, false},
    {"ObjectNoBrace", "4: object", "{\"a\":[]", false, true, kMissingBrace},
    {"ObjectNoBraceBehindAComma", "4: object", "{\"a\":[],", false, true, kMissingBrace},
    {"InnerObjectNoBrace", "4: object", "{\"a\":{\"b\":[]", false, true, kMissingBrace},
    {"EmptyObjectNoBrace", "4: object", "{", false, false},
    {"ObjectWrongBrace", "4: object", "{]", false, false},
    {"MemberNoColon", "4: member", "{\"a\" 1}", false, false},
    {"MemberNoValue", "4: member", "{\"a\":}", false, false},
    {"MemberOnlyName", "4: member", "{\"a\"}", false, false},
    {"MemberNameIsAString", "4: member", "{1:1}", false, false},
    {"MemberNameIsQuoted", "4: member", "{a:1}", false, false},

    /* array = begin-array [ value *( value-separator value ) ] end-array */
    {"ArrayOfTwo", "5: array", "[1,2]", true, true},
    {"ArrayMixed", "5: array", "[1,\"a\",null]", true, true},
    {"ArrayTrailingComma", "5: array", "[1,]", false, true, kTrailingComma},
    {"ArrayCommaAlone", "5: array", "[,]", false, false},
    {"ArrayTwoCommas", "5: array", "[1,,2]", false, false},
    {"ArrayTwoTrailingCommas", "5: array", "[1,,]", false, false},
    {"ArrayNoComma", "5: array", "[1 2]", false, false},
    {"ArrayNoBracket", "5: array", "[[]", false, false},
    {"ArrayWrongBracket", "5: array", "[}", false, false},

    /* number = [ minus ] int [ frac ] [ exp ] */
    {"IntZero", "6: int", "[0]", true, true},
    {"IntDigits", "6: int", "[1203]", true, true},
    {"IntMinus", "6: minus", "[-1]", true, true},
    {"IntMinusZero", "6: minus", "[-0]", true, true},
    {"IntPlus", "6: minus", "[+1]", false, false},
    {"MinusAlone", "6: int", "[-]", false, false},
    {"MinusTwice", "6: minus", "[--1]", false, false},
    {"LeadingZero", "6: int", "[01]", false, true, kLeadingZero},
    {"LeadingZeroBehindAMinus", "6: int", "[-01]", false, true, kLeadingZero},
    {"LeadingZeroBeforeAFraction", "6: int", "[01.5]", false, true, kLeadingZero},
    {"LeadingZeros", "6: int", "[00]", false, false},
    {"Frac", "6: frac", "[0.5]", true, true},
    {"FracZeros", "6: frac", "[1.00]", true, true},
    {"FracNoDigits", "6: frac", "[1.]", false, false},
    {"FracNoInt", "6: int", "[.5]", false, false},
    {"FracNoIntBehindAMinus", "6: int", "[-.5]", false, true, kDotFirst},
    {"FracTwice", "6: frac", "[1.2.3]", false, false},
    {"Exp", "6: exp", "[1e5]", true, false, kNoExponent},
    {"ExpUpperCase", "6: e", "[1E5]", true, false, kNoExponent},
    {"ExpPlus", "6: exp", "[1e+5]", true, false, kNoExponent},
    {"ExpMinus", "6: exp", "[1.5e-5]", true, false, kNoExponent},
    {"ExpNoDigits", "6: exp", "[1e]", false, false},
    {"BeyondAnyType", "6: number", "[123456789012345678901234567890]", true, true},
    {"MorePrecisionThanADouble", "6: number", "[0.12345678901234567890123456789]", true, true},
    {"Hexadecimal", "6: number", "[0x1]", false, false},
    {"NotANumber", "6: number", "[NaN]", false, false},
    {"Infinity", "6: number", "[-Infinity]", false, false},
    {"NumberAtTheEndOfTheText", "6: number", "{\"a\":1", false, false},
    {"NumberAndBlankAtTheEnd", "6: number", "{\"a\":1 ", false, true, kMissingBrace},

    /* string = quotation-mark *char quotation-mark */
    {"StringEmpty", "7: string", "[\"\"]", true, true},
    {"StringUnclosed", "7: string", "[\"a]", false, false},
    {"StringSingleQuotes", "7: quotation-mark", "['a']", false, false},
    {"CharAscii", "7: unescaped", "[\" !#[]~\x7f\"]", true, true},
    {"CharUtf8", "7: unescaped", "[\"\xc3\xa4\xf0\x9f\x98\x80\"]", true, true},
    {"CharLineFeed", "7: unescaped", "[\"\n\"]", false, true, kRawControl},
    {"CharTab", "7: unescaped", "[\"\t\"]", false, true, kRawControl},
    {"CharLastControl", "7: unescaped", "[\"\x1f\"]", false, true, kRawControl},
    {"CharNotUtf8", "8.1: UTF-8", "[\"\xff\"]", false, true, kRawControl},
    {"CharOverlongUtf8", "8.1: UTF-8", "[\"\xc0\xaf\"]", false, true, kRawControl},
    {"CharSurrogateInUtf8", "8.1: UTF-8", "[\"\xed\xa0\x80\"]", false, true, kRawControl},
    {"EscapesAll", "7: char", R"(["\"\\\/\b\f\n\r\t"])", true, true},
    {"EscapeUnknown", "7: char", R"(["\a"])", false, false},
    {"EscapeZero", "7: char", R"(["\0"])", false, false},
    {"EscapeUnicode", "7: char", R"(["\u00e4\uABCD"])", true, true},
    {"EscapeUnicodeZero", "7: char", R"(["\u0000"])", true, true},
    {"EscapeUnicodeShort", "7: char", R"(["\u00e"])", false, false},
    {"EscapeUnicodeDigits", "7: char", R"(["\u00eg"])", false, false},
    {"EscapeUnicodeUpperCase", "7: char", R"(["\U00e4"])", false, false},
    {"EscapePair", "7: char", R"(["\ud834\udd1e"])", true, true},
    {"EscapeFirstPartAlone", "8.2: unpaired surrogates", R"(["\ud834"])", true, false, kSurrogates},
    {"EscapeSecondPartAlone", "8.2: unpaired surrogates", R"(["\udd1e"])", true, false,
     kSurrogates},
    {"EscapePartsSwapped", "8.2: unpaired surrogates", R"(["\udd1e\ud834"])", true, false,
     kSurrogates},
    {"EscapeNothing", "7: escape", "[\"\\\"]", false, false},

    {"ByteOrderMark", "8.1: no byte order mark", "\xef\xbb\xbf[]", false, false},
    {"Depth99", "9: limits on the depth", levels(99), true, true},
    {"Depth100", "9: limits on the depth", levels(100), true, false, kDepth},
};

INSTANTIATE_TEST_SUITE_P(Rows, VeljsonConformance, testing::ValuesIn(kRows), row_name());
