#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/jsontest.h"
#include "support/logcapture.h"
#include "support/rows.h"

using namespace support;

struct line {
    int level;
    const char *text;
};

struct parse_row {
    const char *name;
    std::string text;
    std::string value; /* as json_value::text gives it; "" if the text is refused */
    std::vector<line> lines;
};

static void PrintTo(const parse_row &row, std::ostream *out)
{
    *out << json_visible(row.text);
}

class VeljsonParse : public testing::TestWithParam<parse_row> {
  protected:
    /* With some white space before the text. */
    static void expect_row(size_t blanks)
    {
        const parse_row &row = GetParam();
        log_capture log;
        json_document document("[true]");
        log.clear();
        const int result = vel_json_parse(document, (std::string(blanks, ' ') + row.text).c_str());
        const log_lines logged = json_lines(log);
        EXPECT_EQ(result, row.value.empty() ? -1 : 0);
        EXPECT_EQ(json_text_of(document), row.value);
        log_lines expected;
        for (const line &each : row.lines)
            expected.push_back(json_line(each.level, each.text));
        EXPECT_EQ(logged, expected);
    }
};

TEST_P(VeljsonParse, Row)
{
    expect_row(0);
}

/* A long text is kept in memory in another way than a short one. */
TEST_P(VeljsonParse, RowInALongText)
{
    expect_row(20000);
}

static const line kElement = {13, "unable to parse an array element"};
static const line kMember = {13, "unable to parse a value for a key"};
static const line kKey = {6, "expecting a string for a key"};
static const line kArrayEnd = {6, "got end-of-data in the middle of an array"};
static const line kObjectEnd = {6, "got end-of-data in the middle of an object"};
static const line kStringEnd = {6, "got end-of-data in the middle of a string"};
static const line kNumberEnd = {6, "got end-of-data in the middle of a number"};
static const line kDecode = {7, "unable to decode the string"};

static const parse_row kDocumentRows[] = {
    {"Empty", "", "", {{6, "expecting JSON but got an empty string"}}},
    {"WhiteSpaceAlone", " \t\n\r", "", {{6, "expecting JSON but got an empty string"}}},
    {"TopLevelNumber", "5", "", {{6, "expecting '{' or '[' but got '5'"}}},
    {"TopLevelString", "\"a\"", "", {{6, "expecting '{' or '[' but got '\"'"}}},
    {"TopLevelTrue", "true", "", {{6, "expecting '{' or '[' but got 't'"}}},
    {"TopLevelNull", " null", "", {{6, "expecting '{' or '[' but got 'n'"}}},
    {"TopLevelClose", "]", "", {{6, "expecting '{' or '[' but got ']'"}}},
    {"OtherWhiteSpaceIsNone", "\v[]", "", {{6, "expecting '{' or '[' but got '\v'"}}},
    {"ByteOrderMark", "\xef\xbb\xbf[]", "", {{6, "expecting '{' or '[' but got '\xef'"}}},
    {"Comment", "/**/[]", "", {{6, "expecting '{' or '[' but got '/'"}}},
    {"SpaceAround", "\r\n\t [] \t\r\n", "[]", {}},
    {"JunkBehind", "[] x", "", {{6, "expected end-of-data but got 'x'"}}},
    {"SecondDocument", "{}{}", "", {{6, "expected end-of-data but got '{'"}}},
    {"CommaBehind", "[],", "", {{6, "expected end-of-data but got ','"}}},
    {"ClosedTwice", "{\"a\":[]}}", "", {{6, "expected end-of-data but got '}'"}}},
    {"CommentBehind", "[] // end", "", {{6, "expected end-of-data but got '/'"}}},
};

static const parse_row kObjectRows[] = {
    {"Empty", "{}", "{}", {}},
    {"EmptyWithSpace", "{ \t\r\n}", "{}", {}},
    {"One", "{\"a\":\"b\"}", "{\"a\":\"b\"}", {}},
    {"SpaceEverywhere", " { \"a\" : \"b\" , \"c\" : [ ] } ", "{\"a\":\"b\",\"c\":[]}", {}},
    {"TwoMembers", "{\"a\":1,\"b\":2}", "{\"a\":1,\"b\":2}", {}},
    {"TrailingComma", "{\"a\":1,}", "{\"a\":1}", {}},
    {"TrailingCommaAndSpace", "{\"a\":1 , \n}", "{\"a\":1}", {}},
    {"EmptyKey", "{\"\":1}", "{\"\":1}", {}},
    {"EscapedKey", "{\"\\u0061\\n\":1}", "{\"a\n\":1}", {}},
    {"KeyEndsAtZero", "{\"a\\u0000b\":1}", "{\"a\":1}", {}},
    {"KeysEqualUpToZero", "{\"a\\u0000b\":1,\"a\":2}", "{\"a\":2}", {}},
    {"RepeatedKey", "{\"a\":1,\"a\":2}", "{\"a\":2}", {}},
    {"RepeatedKeyOtherType",
     "{\"a\":[1,[2]],\"b\":1,\"a\":{\"c\":null}}",
     "{\"a\":{\"c\":null},\"b\":1}",
     {}},
    {"KeysAreCaseSensitive", "{\"a\":1,\"A\":2}", "{\"A\":2,\"a\":1}", {}},
    {"Nested", "{\"a\":{\"b\":{\"c\":{}}}}", "{\"a\":{\"b\":{\"c\":{}}}}", {}},

    {"CommaAlone", "{,}", "", {{6, "unexpected character ',', expecting a string or '}'"}}},
    {"TwoCommas", "{\"a\":1,,}", "", {{6, "unexpected character ',', expecting a string or '}'"}}},
    {"BareKey", "{a:1}", "", {{6, "unexpected character 'a', expecting a string or '}'"}}},
    {"NumberAsKey", "{1:1}", "", {{6, "unexpected character '1', expecting a string or '}'"}}},
    {"SingleQuotes", "{'a':1}", "", {{6, "unexpected character ''', expecting a string or '}'"}}},
    {"WrongClose", "{]", "", {{6, "unexpected character ']', expecting a string or '}'"}}},
    {"NoComma", "{\"a\":1 \"b\":2}", "", {{6, "expecting ',' or '}' but got '\"'"}}},
    {"ClosedAsAnArray", "{\"a\":1]", "", {{6, "expecting ',' or '}' but got ']'"}}},
    {"Semicolon", "{\"a\":null;}", "", {{6, "expecting ',' or '}' but got ';'"}}},
    {"NoColon", "{\"a\" \"b\"}", "", {{6, "expecting a colon, got '\"'"}}},
    {"NoColonNoValue", "{\"a\"}", "", {{6, "expecting a colon, got '}'"}}},
    {"TwoColons", "{\"a\"::1}", "", {{6, "unimplemented ':'"}, kMember}},
    {"NoValue", "{\"a\":}", "", {{6, "unimplemented '}'"}, kMember}},
    {"BadKey", "{\"\\q\":1}", "", {{6, "unexpected escape sequence '\\q'"}, kKey}},
    {"BadSurrogateInKey",
     "{\"\\udc00\":1}",
     "",
     {{6, "unexpected occurrence of a second part of the surrogate 0xdc00 without a preceeding "
          "first part"},
      kDecode,
      kKey}},

    {"EndsBehindAMember", "{\"a\":\"b\"", "{\"a\":\"b\"}", {}},
    {"EndsBehindAMemberAndSpace", "{\"a\":\"b\" \n", "{\"a\":\"b\"}", {}},
    {"EndsBehindAComma", "{\"a\":\"b\",", "{\"a\":\"b\"}", {}},
    {"EndsBehindACommaAndSpace", "{\"a\":\"b\", ", "{\"a\":\"b\"}", {}},
    {"EndsBehindAKeyword", "{\"a\":true", "{\"a\":true}", {}},
    {"EndsBehindANumberAndSpace", "{\"a\":1 ", "{\"a\":1}", {}},
    {"EndsBehindANumberAndComma", "{\"a\":1,", "{\"a\":1}", {}},
    {"TwoEndBehindAMember", "{\"a\":{\"b\":\"c\"", "{\"a\":{\"b\":\"c\"}}", {}},
    {"EndsBehindAnArray", "{\"a\":[]", "{\"a\":[]}", {}},
    {"EndsBehindTheBrace", "{", "", {kObjectEnd}},
    {"EndsBehindTheBraceAndSpace", "{ \n", "", {kObjectEnd}},
    {"EndsInAKey", "{\"a", "", {kStringEnd, kKey, kObjectEnd}},
    {"EndsInALaterKey", "{\"a\":\"b\",\"", "", {kStringEnd, kKey, kObjectEnd}},
    {"EndsBehindAKey",
     "{\"a\"",
     "",
     {{6, "got end-of-data in an object when expecting a colon"}, kObjectEnd}},
    {"EndsBehindAKeyAndSpace",
     "{\"a\" ",
     "",
     {{6, "got end-of-data in an object when expecting a colon"}, kObjectEnd}},
    {"EndsBehindAColon",
     "{\"a\":",
     "",
     {{6, "got end-of-data in an object when expecting a value for a key"}, kObjectEnd}},
    {"EndsBehindAColonAndSpace",
     "{\"a\": ",
     "",
     {{6, "got end-of-data in an object when expecting a value for a key"}, kObjectEnd}},
    {"EndsInANumber", "{\"a\":1", "", {kNumberEnd, kMember, kObjectEnd}},
    {"EndsInAString", "{\"a\":\"b", "", {kStringEnd, kMember, kObjectEnd}},
    {"EndsInAnObject", "{\"a\":{", "", {kObjectEnd, kMember, kObjectEnd}},
    {"EndsInAnArray", "{\"a\":[", "", {kArrayEnd, kMember, kObjectEnd}},
};

static const parse_row kArrayRows[] = {
    {"Empty", "[]", "[]", {}},
    {"EmptyWithSpace", "[ \t\r\n]", "[]", {}},
    {"One", "[null]", "[null]", {}},
    {"OfEverything",
     "[ 1 , -2.5 , \"a\" , true,false,null , [ ] , { } ]",
     "[1,-2.5~-3,\"a\",true,false,null,[],{}]",
     {}},
    {"TrailingComma", "[1,]", "[1]", {}},
    {"TrailingCommaAndSpace", "[1 ,\n ]", "[1]", {}},
    {"Nested", "[[[]],[[],[]]]", "[[[]],[[],[]]]", {}},
    {"OfObjects", "[{\"a\":1},{\"a\":2}]", "[{\"a\":1},{\"a\":2}]", {}},

    {"CommaAlone", "[,]", "", {{6, "unimplemented ','"}, kElement}},
    {"LeadingComma", "[,1]", "", {{6, "unimplemented ','"}, kElement}},
    {"TwoCommas", "[1,,2]", "", {{6, "unimplemented ','"}, kElement}},
    {"TwoTrailingCommas", "[1,,]", "", {{6, "unimplemented ','"}, kElement}},
    {"WrongClose", "[}", "", {{6, "unimplemented '}'"}, kElement}},
    {"ClosedAsAnObject", "[1}", "", {{6, "expecting ',' or ']' but got '}'"}}},
    {"NoComma", "[1 2]", "", {{6, "expecting ',' or ']' but got '2'"}}},
    {"NoCommaBetweenStrings", "[\"a\"\"b\"]", "", {{6, "expecting ',' or ']' but got '\"'"}}},
    {"Colon", "[\"a\":1]", "", {{6, "expecting ',' or ']' but got ':'"}}},
    {"Comment", "[1 /* one */]", "", {{6, "expecting ',' or ']' but got '/'"}}},
    {"InnerIsBad", "[[[,]]]", "", {{6, "unimplemented ','"}, kElement, kElement, kElement}},
    {"LaterElementIsBad", "[[1],{\"a\":+}]", "", {{6, "unimplemented '+'"}, kMember, kElement}},

    {"EndsBehindTheBracket", "[", "", {kArrayEnd}},
    {"EndsBehindTheBracketAndSpace", "[ \n", "", {kArrayEnd}},
    {"EndsBehindAnElement", "[\"a\"", "", {kArrayEnd}},
    {"EndsBehindAnElementAndSpace", "[\"a\" ", "", {kArrayEnd}},
    {"EndsBehindAComma", "[\"a\",", "", {kArrayEnd}},
    {"EndsBehindACommaAndSpace", "[\"a\", ", "", {kArrayEnd}},
    {"EndsInANumber", "[1", "", {kNumberEnd, kElement, kArrayEnd}},
    {"EndsBehindANumberAndSpace", "[1 ", "", {kArrayEnd}},
    {"EndsInAString", "[\"a", "", {kStringEnd, kElement, kArrayEnd}},
    {"EndsInAnArray", "[[", "", {kArrayEnd, kElement, kArrayEnd}},
    {"EndsInAnObject", "[{", "", {kObjectEnd, kElement, kArrayEnd}},
    {"EndsBehindAMember", "[{\"a\":\"b\"", "", {kArrayEnd}},
};

static const parse_row kKeywordRows[] = {
    {"True", "[true]", "[true]", {}},
    {"False", "[false]", "[false]", {}},
    {"Null", "[null]", "[null]", {}},
    {"CutOffTrue", "[tru]", "", {kElement}},
    {"CutOffFalse", "[fals]", "", {kElement}},
    {"CutOffNull", "[nul]", "", {kElement}},
    {"CutOffByTheEnd", "[tru", "", {kElement}},
    {"WrongWord", "[nothing]", "", {kElement}},
    {"WrongWordAsMember", "{\"a\":falsy}", "", {kMember}},
    {"UpperCase", "[True]", "", {{6, "unimplemented 'T'"}, kElement}},
    {"UpperCaseLater", "[nULL]", "", {kElement}},
    {"LongerWord", "[truex]", "", {{6, "expecting ',' or ']' but got 'x'"}}},
    {"LongerWordAsMember", "{\"a\":nullx}", "", {{6, "expecting ',' or '}' but got 'x'"}}},
    {"TwoWords", "[truefalse]", "", {{6, "expecting ',' or ']' but got 'f'"}}},
    {"Undefined", "[undefined]", "", {{6, "unimplemented 'u'"}, kElement}},
    {"NaN", "[NaN]", "", {{6, "unimplemented 'N'"}, kElement}},
    {"HighByte", "[\xc3\xa4]", "", {{6, "unimplemented '\xc3'"}, kElement}},
};

static const parse_row kStringRows[] = {
    {"Empty", "[\"\"]", "[\"\"]", {}},
    {"Plain", "[\"a b\"]", "[\"a b\"]", {}},
    {"ShortEscapes", R"(["\b\f\n\r\t\"\\\/"])", "[\"\b\f\n\r\t\"\\/\"]", {}},
    {"EscapedQuoteAtTheEnd", R"(["a\""])", "[\"a\"\"]", {}},
    {"EscapedBackslashAtTheEnd", R"(["a\\"])", "[\"a\\\"]", {}},
    {"RawControlCharacters", "[\"a\n\t\x01\x1f\x7f\"]", "[\"a\n\t\x01\x1f\x7f\"]", {}},
    {"RawUtf8", "[\"\xc3\xa4\xe2\x82\xac\"]", "[\"\xc3\xa4\xe2\x82\xac\"]", {}},
    {"BytesThatAreNotUtf8",
     "[\"\x80\xff\xc0\xaf\xed\xa0\x80\"]",
     "[\"\x80\xff\xc0\xaf\xed\xa0\x80\"]",
     {}},
    {"BracketsAndCommas", "[\"[{]},:\"]", "[\"[{]},:\"]", {}},

    {"OneByte", R"(["\u0001\u0041\u007f\u007F"])", "[\"\x01\x41\x7f\x7f\"]", {}},
    {"TwoBytes", R"(["\u0080\u07ff"])", "[\"\xc2\x80\xdf\xbf\"]", {}},
    {"ThreeBytes",
     R"(["\u0800\ud7ff\ue000\uffff"])",
     "[\"\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf\"]",
     {}},
    {"FourBytes", R"(["\ud83d\ude00"])", "[\"\xf0\x9f\x98\x80\"]", {}},
    {"FirstPair", R"(["\ud800\udc00"])", "[\"\xf0\x90\x80\x80\"]", {}},
    {"LastPair", R"(["\udbff\udfff"])", "[\"\xf4\x8f\xbf\xbf\"]", {}},
    {"UpperCaseDigits", R"(["\uD83D\uDE00\u00E4"])", "[\"\xf0\x9f\x98\x80\xc3\xa4\"]", {}},
    {"DigitsBehindAnEscape", R"(["\u00411"])", "[\"A1\"]", {}},
    {"ZeroEndsIt", R"(["a\u0000b"])", "[\"a\"]", {}},
    {"ZeroAlone", R"(["\u0000"])", "[\"\"]", {}},

    {"UnknownEscape", R"(["\q"])", "", {{6, "unexpected escape sequence '\\q'"}, kElement}},
    {"UpperCaseEscape", R"(["\N"])", "", {{6, "unexpected escape sequence '\\N'"}, kElement}},
    {"UpperCaseUnicode", R"(["\U0041"])", "", {{6, "unexpected escape sequence '\\U'"}, kElement}},
    {"SingleQuoteEscape", R"(["\'"])", "", {{6, "unexpected escape sequence '\\''"}, kElement}},
    {"HexEscape", R"(["\x41"])", "", {{6, "unexpected escape sequence '\\x'"}, kElement}},
    {"EscapedLineFeed", "[\"\\\n\"]", "", {{6, "unexpected escape sequence '\\\n'"}, kElement}},
    {"FirstDigitIsBad",
     R"(["\ug123"])",
     "",
     {{6, "unexpected character 'g' in the middle of a unicode character escape sequence"},
      kElement}},
    {"LastDigitIsBad",
     R"(["\u123 "])",
     "",
     {{6, "unexpected character ' ' in the middle of a unicode character escape sequence"},
      kElement}},
    {"TooFewDigits",
     R"(["\u12"])",
     "",
     {{6, "unexpected character '\"' in the middle of a unicode character escape sequence"},
      kElement}},
    {"SignAsDigit",
     R"(["\u+123"])",
     "",
     {{6, "unexpected character '+' in the middle of a unicode character escape sequence"},
      kElement}},
    {"BadDigitInASecondPart",
     R"(["\ud83d\udg00"])",
     "",
     {{6, "unexpected character 'g' in the middle of a unicode character escape sequence"},
      kElement}},

    {"SecondPartAlone",
     R"(["\udc00"])",
     "",
     {{6, "unexpected occurrence of a second part of the surrogate 0xdc00 without a preceeding "
          "first part"},
      kDecode,
      kElement}},
    {"LastSecondPartAlone",
     R"(["a\udfff"])",
     "",
     {{6, "unexpected occurrence of a second part of the surrogate 0xdfff without a preceeding "
          "first part"},
      kDecode,
      kElement}},
    {"PartsInTheWrongOrder",
     R"(["\udc00\ud800"])",
     "",
     {{6, "unexpected occurrence of a second part of the surrogate 0xdc00 without a preceeding "
          "first part"},
      kDecode,
      kElement}},
    {"FirstPartAlone",
     R"(["\ud83d"])",
     "",
     {{6, "got end-of-data after a first part of a surrogate pair"}, kDecode, kElement}},
    {"FirstPartAndText",
     R"(["\ud83dx"])",
     "",
     {{6, "expected the second part of a surrogate pair but got no escape character"},
      kDecode,
      kElement}},
    {"FirstPartAndOtherEscape",
     R"(["\ud83d\n"])",
     "",
     {{6, "expected the escaped second part of a surrogate pair but got '\\n'"},
      kDecode,
      kElement}},
    {"TwoFirstParts",
     R"(["\ud83d\ud83d"])",
     "",
     {{6, "expected a second part of the surrogate pair but got 0xd83d"}, kDecode, kElement}},
    {"FirstPartAndOtherUnicode",
     R"(["\ud83d\u0041"])",
     "",
     {{6, "expected a second part of the surrogate pair but got 0x0041"}, kDecode, kElement}},
    {"FirstPartAndTheNextAboveTheRange",
     R"(["\udbff\ue000"])",
     "",
     {{6, "expected a second part of the surrogate pair but got 0xe000"}, kDecode, kElement}},

    {"EndsBehindTheQuote", "[\"", "", {kStringEnd, kElement, kArrayEnd}},
    {"EndsBehindABackslash",
     "[\"a\\",
     "",
     {{6, "got end-of-data after an escaping backslash"}, kStringEnd, kElement, kArrayEnd}},
    {"EndsBehindABackslashAndU",
     "[\"\\u",
     "",
     {{6, "got end-of-data in a unicode character escape sequence"},
      kStringEnd,
      kElement,
      kArrayEnd}},
    {"EndsInUnicode",
     "[\"\\u004",
     "",
     {{6, "got end-of-data in a unicode character escape sequence"},
      kStringEnd,
      kElement,
      kArrayEnd}},
    {"EndsBehindAnEscape", "[\"\\n", "", {kStringEnd, kElement, kArrayEnd}},
    {"EndsBehindAnEscapedQuote", "[\"a\\\"", "", {kStringEnd, kElement, kArrayEnd}},
    {"EndsBehindUnicode", "[\"\\u0041", "", {kStringEnd, kElement, kArrayEnd}},
    {"BadDigitIsFoundBeforeTheEnd",
     "[\"\\uq1\"]",
     "",
     {{6, "unexpected character 'q' in the middle of a unicode character escape sequence"},
      kElement}},
};

static const parse_row kNumberRows[] = {
    {"Zero", "[0]", "[0]", {}},
    {"NegativeZero", "[-0]", "[0]", {}},
    {"One", "[1]", "[1]", {}},
    {"Negative", "[-17]", "[-17]", {}},
    {"Digits", "[1234567890]", "[1234567890]", {}},
    {"ZerosBehind", "[1000]", "[1000]", {}},
    {"Largest", "[9223372036854775807]", "[9223372036854775807]", {}},
    {"Smallest", "[-9223372036854775808]", "[-9223372036854775808]", {}},
    {"AboveTheLargest", "[9223372036854775808]", "[0]", {}},
    {"BelowTheSmallest", "[-9223372036854775809]", "[0]", {}},
    {"TwentyDigits", "[99999999999999999999]", "[0]", {}},
    {"AHundredDigits", "[" + std::string(100, '7') + "]", "[0]", {}},
    {"LeadingZero", "[01]", "[1]", {}},
    {"LeadingZeroNegative", "[-01]", "[-1]", {}},
    {"LeadingZeroAndZeroLater", "[010]", "[10]", {}},
    {"LeadingZeroAndTwoZerosLater", "[0100]", "[100]", {}},
    {"LeadingZeroAndFraction", "[01.5]", "[1.5~2]", {}},
    {"Half", "[0.5]", "[0.5~1]", {}},
    {"Double", "[1.5]", "[1.5~2]", {}},
    {"NegativeDouble", "[-1.5]", "[-1.5~-2]", {}},
    {"BelowAHalf", "[2.4]", "[2.4~2]", {}},
    {"NegativeBelowAHalf", "[-2.4]", "[-2.4~-2]", {}},
    {"ZeroPointZero", "[0.0]", "[0~0]", {}},
    {"ZeroPointZeros", "[0.000]", "[0~0]", {}},
    {"NegativeZeroPointZero", "[-0.0]", "[-0~0]", {}},
    {"WholeDouble", "[3.0]", "[3~3]", {}},
    {"SmallFraction", "[0.001]", "[0.001~0]", {}},
    {"NothingBeforeTheDot", "[-.5]", "[-0.5~-1]", {}},
    {"LongFraction", "[0.1000000000000000055511151231257827021181583404541015625]", "[0.1~0]", {}},
    {"DoubleBelowTheLimit", "[2251799813685249.5]", "[2251799813685249.5~2251799813685250]", {}},
    {"TabBehind", "[1\t]", "[1]", {}},
    {"LineFeedBehind", "[1\n]", "[1]", {}},
    {"CarriageReturnBehind", "[1\r]", "[1]", {}},
    {"BlankBehind", "[1.5 ]", "[1.5~2]", {}},
    {"CommaBehind", "[1,2]", "[1,2]", {}},
    {"BraceBehind", "{\"a\":1.5}", "{\"a\":1.5~2}", {}},

    {"TwoZeros", "[00]", "", {{6, "a number cannot start with two consecutive zeros"}, kElement}},
    {"TwoZerosNegative",
     "[-00]",
     "",
     {{6, "a number cannot start with two consecutive zeros"}, kElement}},
    {"TwoZerosAndMore",
     "[001]",
     "",
     {{6, "a number cannot start with two consecutive zeros"}, kElement}},
    {"MinusAlone", "[-]", "", {{6, "invalid syntax while parsing a number"}, kElement}},
    {"MinusAndBlank", "[- 1]", "", {{6, "invalid syntax while parsing a number"}, kElement}},
    {"TwoMinuses", "[--1]", "", {{6, "unimplemented '-'"}, kElement}},
    {"MinusInside", "[1-2]", "", {{6, "unimplemented '-'"}, kElement}},
    {"Plus", "[+1]", "", {{6, "unimplemented '+'"}, kElement}},
    {"LeadingDot", "[.5]", "", {{6, "unimplemented '.'"}, kElement}},
    {"DotAtTheEnd",
     "[1.]",
     "",
     {{6, "the next character after a dot must be a digit but was ']'"}, kElement}},
    {"DotAndComma",
     "[1.,2]",
     "",
     {{6, "the next character after a dot must be a digit but was ','"}, kElement}},
    {"DotAndLetter",
     "[1.e5]",
     "",
     {{6, "the next character after a dot must be a digit but was 'e'"}, kElement}},
    {"TwoDotsTogether",
     "[1..2]",
     "",
     {{6, "the next character after a dot must be a digit but was '.'"}, kElement}},
    {"TwoDots", "[1.2.3]", "", {{6, "a number containing two dots not allowed"}, kElement}},
    {"Exponent", "[1e5]", "", {{6, "unimplemented 'e'"}, kElement}},
    {"UpperCaseExponent", "[1E5]", "", {{6, "unimplemented 'E'"}, kElement}},
    {"FractionAndExponent", "[1.5e+3]", "", {{6, "unimplemented 'e'"}, kElement}},
    {"Hexadecimal", "[0x10]", "", {{6, "unimplemented 'x'"}, kElement}},
    {"Colon", "[1:2]", "", {{6, "unimplemented ':'"}, kElement}},
    {"OpeningBracketBehind", "[1[]]", "", {{6, "unimplemented '['"}, kElement}},
    {"QuoteBehind", "[1\"a\"]", "", {{6, "unimplemented '\"'"}, kElement}},
    {"SlashBehind", "[1/2]", "", {{6, "unimplemented '/'"}, kElement}},
    {"VerticalTabBehind", "[1\v]", "", {{6, "unimplemented '\v'"}, kElement}},
    {"MinusAndLetter", "[-Infinity]", "", {{6, "unimplemented 'I'"}, kElement}},

    {"EndsInDigits", "[12", "", {kNumberEnd, kElement, kArrayEnd}},
    {"EndsBehindAMinus", "[-", "", {kNumberEnd, kElement, kArrayEnd}},
    {"EndsBehindAFraction", "[1.5", "", {kNumberEnd, kElement, kArrayEnd}},
    {"EndsBehindADot",
     "[1.",
     "",
     {{6, "expected a digit after a dot in a number"}, kNumberEnd, kElement, kArrayEnd}},
};

INSTANTIATE_TEST_SUITE_P(Document, VeljsonParse, testing::ValuesIn(kDocumentRows), row_name());
INSTANTIATE_TEST_SUITE_P(Object, VeljsonParse, testing::ValuesIn(kObjectRows), row_name());
INSTANTIATE_TEST_SUITE_P(Array, VeljsonParse, testing::ValuesIn(kArrayRows), row_name());
INSTANTIATE_TEST_SUITE_P(Keyword, VeljsonParse, testing::ValuesIn(kKeywordRows), row_name());
INSTANTIATE_TEST_SUITE_P(String, VeljsonParse, testing::ValuesIn(kStringRows), row_name());
INSTANTIATE_TEST_SUITE_P(Number, VeljsonParse, testing::ValuesIn(kNumberRows), row_name());
