/* The layout that an answer tells, in its Encapsulated header. */

#include "support/icap.h"

#include <random>

#include "net/velicap_internal.h"
#include "support/icaplayout.h"

static const unsigned int kNone = 0, kReqmod = 1, kRespmod = 2, kOptions = 3;

using layout = support::icap_layout;

namespace support {
static std::ostream &operator<<(std::ostream &out, const icap_layout &one)
{
    return out << one.header << " " << one.body << " " << one.hasbody;
}
} // namespace support

static const layout kUntouched = {77, 78, 79};

struct parse_result {
    vel_error_t result;
    texts logged;
    layout stored;

    bool operator==(const parse_result &) const = default;
};

static std::ostream &operator<<(std::ostream &out, const parse_result &one)
{
    return out << one.result << " (" << one.stored << ") " << testing::PrintToString(one.logged);
}

class VelicapEncapsulated : public Velicap {
  protected:
    parse_result parse(unsigned int method, const std::string &text)
    {
        icap->method = static_cast<decltype(icap->method)>(method);
        icap->headeroffset = kUntouched.header;
        icap->bodyoffset = kUntouched.body;
        icap->hasbody = static_cast<decltype(icap->hasbody)>(kUntouched.hasbody);
        errno = ENOENT; /* of some earlier call */
        parse_result one = {vel_icap_parse_encapsulated_header(icap, text.c_str()), {}, {}};
        one.stored = {icap->headeroffset, icap->bodyoffset, static_cast<int>(icap->hasbody)};
        if (!quiet_) {
            for (const support::log_line &line : logged()) {
                EXPECT_EQ(line, said(6, line.text));
                one.logged.push_back(line.text);
            }
        }
        return one;
    }

    bool quiet_ = false;
};

/* One row for each rule. */

struct parse_case {
    const char *name;
    unsigned int method;
    const char *text;
    vel_error_t result;
    texts logged;
    layout stored = kUntouched;
};

static void PrintTo(const parse_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelicapEncapsulatedTable : public VelicapEncapsulated,
                                 public testing::WithParamInterface<parse_case> {};

TEST_P(VelicapEncapsulatedTable, Row)
{
    const parse_case &row = GetParam();
    EXPECT_EQ(parse(row.method, row.text), (parse_result{row.result, row.logged, row.stored}));
}

static const vel_error_t kOk = VEL_ERROR_NONE, kBad = VEL_ERROR_PROTOCOL;
static const std::string kNullRule =
    "other kind of bodies cannot be given when null-body is given: '";
static const std::string kTwoHeaders = "req-hdr and res-hdr cannot be present at the same time: '";
static const std::string kOptRule = "opt-body can only be present in OPTIONS method: '";
static const std::string kOptionsRule = "OPTIONS method can only contain opt-body or null-body: '";
static const std::string kRespmodRule =
    "RESPMOD method can only contain res-hdr and res-body or null-body: '";
static const std::string kReqmodRule = "REQMOD method can only contain req-hdr and req-body or "
                                       "res-hdr and res-body (or null-body): '";
static const std::string kOffset = "XXX UNSUPPORTED: non-zero encapsulated body header offset: '";
static const std::string kNumber = "converting the value in the encapsulated header '";
static const std::string kEnd = "unexpected end of string after a comma in encapsulated header '";
static const std::string kSpace = "expected space after a comma in encapsulated header but got '";
static const std::string kSeparator = "expected separator ',' in encapsulated header but got '";
#define TOO_LARGE "99999999999999999999"

static const parse_case kParseCases[] = {
    /* What is good. */
    {"Reqmod", kReqmod, "req-hdr=0, req-body=137", kOk, {}, {0, 137, 1}},
    {"ReqmodNoBody", kReqmod, "req-hdr=0, null-body=137", kOk, {}, {0, 137, 0}},
    {"ReqmodResponse", kReqmod, "res-hdr=0, res-body=200", kOk, {}, {0, 200, 1}},
    {"ReqmodResponseNoBody", kReqmod, "res-hdr=0, null-body=200", kOk, {}, {0, 200, 0}},
    {"ReqmodRequestBodyAlone", kReqmod, "req-body=0", kOk, {}, {0, 0, 1}},
    {"ReqmodResponseBodyAlone", kReqmod, "res-body=0", kOk, {}, {0, 0, 1}},
    {"ReqmodResponseBodyAt7", kReqmod, "res-body=7", kOk, {}, {0, 7, 1}},
    {"ReqmodNothing", kReqmod, "null-body=0", kOk, {}, {0, 0, 0}},
    {"Respmod", kRespmod, "res-hdr=0, res-body=200", kOk, {}, {0, 200, 1}},
    {"RespmodNoBody", kRespmod, "res-hdr=0, null-body=200", kOk, {}, {0, 200, 0}},
    {"RespmodBodyAlone", kRespmod, "res-body=0", kOk, {}, {0, 0, 1}},
    {"RespmodNothing", kRespmod, "null-body=5", kOk, {}, {0, 5, 0}},
    {"Options", kOptions, "null-body=0", kOk, {}, {0, 0, 0}},
    {"OptionsBody", kOptions, "opt-body=0", kOk, {}, {0, 0, 1}},
    {"OptionsBodyAt9", kOptions, "opt-body=9", kOk, {}, {0, 9, 1}},

    /* Numbers, as strtoul takes them. */
    {"LeadingZeros", kReqmod, "null-body=0007", kOk, {}, {0, 7, 0}},
    {"LeadingBlank", kReqmod, "null-body= 7", kOk, {}, {0, 7, 0}},
    {"PlusSign", kReqmod, "null-body=+7", kOk, {}, {0, 7, 0}},
    {"MinusSignWrapsAround", kReqmod, "null-body=-1", kOk, {}, {0, UINT64_MAX, 0}},
    {"Largest", kReqmod, "null-body=18446744073709551615", kOk, {}, {0, UINT64_MAX, 0}},
    {"TooLarge",
     kReqmod,
     "null-body=18446744073709551616",
     kBad,
     {kNumber + "null-body=18446744073709551616' failed"}},
    {"TooLargeInFront",
     kReqmod,
     "req-hdr=" TOO_LARGE ", null-body=0",
     kBad,
     {kNumber + "req-hdr=" TOO_LARGE ", null-body=0' failed"}},
    {"NoNumberIsZero", kReqmod, "null-body=", kOk, {}, {0, 0, 0}},
    {"NoNumberInFront", kReqmod, "req-hdr=, req-body=1", kOk, {}, {0, 1, 1}},
    {"NotDecimal", kReqmod, "null-body=0x10", kBad, {kSeparator + "x'"}},
    {"NoNumberButLetters", kReqmod, "null-body=abc", kBad, {kSeparator + "a'"}},

    /* Separators. */
    {"Blank", kReqmod, "req-hdr=0 , req-body=1", kBad, {kSeparator + " '"}},
    {"Semicolon", kReqmod, "req-hdr=0; req-body=1", kBad, {kSeparator + ";'"}},
    {"EndsInAComma", kReqmod, "req-hdr=0,", kBad, {kEnd + "req-hdr=0,'"}},
    {"EndsInACommaBehindTheLastWord", kReqmod, "null-body=0,", kBad, {kEnd + "null-body=0,'"}},
    {"NoSpace", kReqmod, "req-hdr=0,res-body=1", kBad, {kSpace + "r'"}},
    {"Tab", kReqmod, "req-hdr=0,\tres-body=1", kBad, {kSpace + "\t'"}},
    {"EndsInASpace", kReqmod, "req-hdr=0, ", kBad, {}},
    {"TwoSpaces", kReqmod, "req-hdr=0,  req-body=1", kBad, {}},
    {"MoreBehindTheLastWord", kReqmod, "null-body=0, ", kBad, {}},
    {"BlankBehindTheNumber", kReqmod, "null-body=0 ", kBad, {kSeparator + " '"}},

    /* What no row matches says nothing. */
    {"Empty", kReqmod, "", kBad, {}},
    {"UnknownWord", kReqmod, "foo=0", kBad, {}},
    {"UnknownWordBehind", kReqmod, "req-hdr=0, foo=0", kBad, {}},
    {"WrongOrder", kRespmod, "res-body=0, res-hdr=0", kBad, {}},
    {"Twice", kReqmod, "req-hdr=0, req-hdr=0, req-body=1", kBad, {}},
    {"Case", kReqmod, "Req-Hdr=0, null-body=0", kBad, {}},
    {"LeadingSpace", kReqmod, " null-body=0", kBad, {}},
    {"NoEqualsSign", kReqmod, "null-body", kBad, {}},
    {"BlankInFrontOfTheEqualsSign", kReqmod, "null-body =0", kBad, {}},

    /* null-body with another body. */
    {"NullAndRequest",
     kReqmod,
     "req-body=0, null-body=0",
     kBad,
     {kNullRule + "req-body=0, null-body=0'"}},
    {"NullAndResponse",
     kRespmod,
     "res-body=0, null-body=0",
     kBad,
     {kNullRule + "res-body=0, null-body=0'"}},
    {"NullAndOptions",
     kOptions,
     "opt-body=0, null-body=0",
     kBad,
     {kNullRule + "opt-body=0, null-body=0'"}},
    {"NullRuleComesFirst",
     kReqmod,
     "req-hdr=0, res-hdr=0, opt-body=0, null-body=0",
     kBad,
     {kNullRule + "req-hdr=0, res-hdr=0, opt-body=0, null-body=0'"}},

    /* Two headers: a line, and then that of the method. */
    {"TwoHeadersReqmod",
     kReqmod,
     "req-hdr=0, res-hdr=1, req-body=2",
     kBad,
     {kTwoHeaders + "req-hdr=0, res-hdr=1, req-body=2'",
      kReqmodRule + "req-hdr=0, res-hdr=1, req-body=2'"}},
    {"TwoHeadersRespmod",
     kRespmod,
     "req-hdr=0, res-hdr=1, null-body=2",
     kBad,
     {kTwoHeaders + "req-hdr=0, res-hdr=1, null-body=2'",
      kRespmodRule + "req-hdr=0, res-hdr=1, null-body=2'"}},
    {"TwoHeadersOptions",
     kOptions,
     "req-hdr=0, res-hdr=1",
     kBad,
     {kTwoHeaders + "req-hdr=0, res-hdr=1'", kOptionsRule + "req-hdr=0, res-hdr=1'"}},
    {"TwoHeadersAndOptBody",
     kRespmod,
     "req-hdr=0, res-hdr=1, opt-body=2",
     kBad,
     {kTwoHeaders + "req-hdr=0, res-hdr=1, opt-body=2'",
      kOptRule + "req-hdr=0, res-hdr=1, opt-body=2'"}},
    {"TwoHeadersNoMethod",
     kNone,
     "req-hdr=0, res-hdr=1, null-body=2",
     VEL_ERROR_INTERNAL,
     {kTwoHeaders + "req-hdr=0, res-hdr=1, null-body=2'", "unhandled ICAP method 0"}},

    /* opt-body elsewhere. */
    {"OptBodyReqmod", kReqmod, "opt-body=0", kBad, {kOptRule + "opt-body=0'"}},
    {"OptBodyRespmod",
     kRespmod,
     "res-hdr=0, opt-body=0",
     kBad,
     {kOptRule + "res-hdr=0, opt-body=0'"}},
    {"OptBodyNoMethod", kNone, "opt-body=0", kBad, {kOptRule + "opt-body=0'"}},

    /* The methods. */
    {"OptionsReqHdr",
     kOptions,
     "req-hdr=0, null-body=0",
     kBad,
     {kOptionsRule + "req-hdr=0, null-body=0'"}},
    {"OptionsResHdr",
     kOptions,
     "res-hdr=0, opt-body=0",
     kBad,
     {kOptionsRule + "res-hdr=0, opt-body=0'"}},
    {"OptionsReqBody", kOptions, "req-body=0", kBad, {kOptionsRule + "req-body=0'"}},
    {"OptionsResBody", kOptions, "res-body=0", kBad, {kOptionsRule + "res-body=0'"}},
    {"RespmodReqHdr",
     kRespmod,
     "req-hdr=0, res-body=0",
     kBad,
     {kRespmodRule + "req-hdr=0, res-body=0'"}},
    {"RespmodReqBody",
     kRespmod,
     "res-hdr=0, req-body=0",
     kBad,
     {kRespmodRule + "res-hdr=0, req-body=0'"}},
    {"ReqmodReqHdrResBody",
     kReqmod,
     "req-hdr=0, res-body=0",
     kBad,
     {kReqmodRule + "req-hdr=0, res-body=0'"}},
    {"ReqmodResHdrReqBody",
     kReqmod,
     "res-hdr=0, req-body=0",
     kBad,
     {kReqmodRule + "res-hdr=0, req-body=0'"}},
    {"ReqmodTwoBodies",
     kReqmod,
     "req-body=0, res-body=0",
     kBad,
     {kReqmodRule + "req-body=0, res-body=0'"}},
    {"NoMethod", kNone, "null-body=0", VEL_ERROR_INTERNAL, {"unhandled ICAP method 0"}},
    {"OtherMethod", 4, "null-body=0", VEL_ERROR_INTERNAL, {"unhandled ICAP method 4"}},

    /* No body at all. */
    {"NoBodyReqmodRequest",
     kReqmod,
     "req-hdr=0",
     kBad,
     {"no body for REQMOD in encapsulated: 'req-hdr=0'"}},
    {"NoBodyReqmodResponse",
     kReqmod,
     "res-hdr=0",
     kBad,
     {"no body for REQMOD in encapsulated: 'res-hdr=0'"}},
    {"NoBodyRespmod",
     kRespmod,
     "res-hdr=0",
     kBad,
     {"no body for RESPMOD in encapsulated: 'res-hdr=0'"}},

    /* Headers that do not stand at the beginning; the offsets are stored all the same. */
    {"OffsetRequest",
     kReqmod,
     "req-hdr=10, req-body=20",
     VEL_ERROR_UNSUPPORTED,
     {kOffset + "req-hdr=10, req-body=20'"},
     {10, 20, 1}},
    {"OffsetResponse",
     kReqmod,
     "res-hdr=1, null-body=0",
     VEL_ERROR_UNSUPPORTED,
     {kOffset + "res-hdr=1, null-body=0'"},
     {1, 0, 0}},
    {"OffsetRespmod",
     kRespmod,
     "res-hdr=5, res-body=5",
     VEL_ERROR_UNSUPPORTED,
     {kOffset + "res-hdr=5, res-body=5'"},
     {5, 5, 1}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelicapEncapsulatedTable, testing::ValuesIn(kParseCases),
                         support::row_name());

/* The same by a second implementation, which logs nothing. */
static parse_result naive(unsigned int method, const std::string &text)
{
    parse_result one = {VEL_ERROR_NONE, {}, kUntouched};
    one.result = support::icap_layout_of(method, text, &one.stored);
    return one;
}

static std::string random_text(std::mt19937 &random)
{
    static const std::vector<std::string> kNumbers = {"0", "0",  "0",  "0",   "1",   "137",
                                                      "",  "-1", " 4", "0x1", "abc", TOO_LARGE};
    static const std::vector<std::string> kSeparators = {", ", ", ",  ", ", ", ", ", ", ", ",
                                                         ",",  ",  ", ";",  " ",  ""};
    static const std::vector<std::string> kOthers = {"Req-Hdr=", "foo=", "null-body", "=", ""};
    const auto any = [&](const auto &from) {
        return std::string(from[random() % std::size(from)]);
    };
    std::string text;
    const bool ordered = random() % 4 != 0;
    const unsigned int chosen = random();
    for (size_t number = 0; number < std::size(support::kIcapWords); number++) {
        if ((chosen >> number * 2) % 4 != 0)
            continue;
        text += text.empty() ? "" : any(kSeparators);
        text += ordered             ? support::kIcapWords[number]
                : random() % 8 == 0 ? any(kOthers)
                                    : any(support::kIcapWords);
        text += any(kNumbers);
    }
    if (random() % 8 == 0 && !text.empty())
        text[random() % text.size()] = "a0=, \t-"[random() % 7];
    return text;
}

TEST_F(VelicapEncapsulated, LikeASecondImplementation)
{
    std::mt19937 random(20240229);
    std::map<vel_error_t, int> results;
    vel_log_uninit(); /* the lines of the log are compared above, and cost more than the parser */
    vel_log_stderr_disable(nullptr);
    quiet_ = true;
    for (int number = 0; number < 100000; number++) {
        const std::string text = random_text(random);
        const unsigned int method = random() % 32 == 0 ? 4 : 1 + random() % 3;
        const parse_result expected = naive(method, text);
        ASSERT_EQ(parse(method, text), expected) << method << " '" << text << "'";
        results[expected.result]++;
    }
    for (const int result :
         {0, VEL_ERROR_PROTOCOL + 0, VEL_ERROR_UNSUPPORTED + 0, VEL_ERROR_INTERNAL + 0})
        EXPECT_GT(results[result], 300) << result;
}

/* Every combination of the six words, in order. */
TEST_F(VelicapEncapsulated, EveryMask)
{
    int good = 0;
    for (const unsigned int method : {kNone, kReqmod, kRespmod, kOptions}) {
        for (unsigned int mask = 0; mask < 64; mask++) {
            std::string text;
            for (unsigned int bit = 0; bit < 6; bit++) {
                if (mask >> bit & 1)
                    text += (text.empty() ? "" : ", ") + support::kIcapWords[bit] + "0";
            }
            parse_result one = parse(method, text);
            one.logged.clear();
            EXPECT_EQ(one, naive(method, text)) << method << " '" << text << "'";
            good += one.result == VEL_ERROR_NONE;
        }
    }
    EXPECT_EQ(good, 13);
}

using VelicapEncapsulatedDeathTest = VelicapEncapsulated;

TEST_F(VelicapEncapsulatedDeathTest, Arguments)
{
    const char *const function = "vel_icap_parse_encapsulated_header";
    EXPECT_DEATH((void)vel_icap_parse_encapsulated_header(nullptr, "null-body=0"),
                 asserts("velicap != NULL", function));
    EXPECT_DEATH((void)vel_icap_parse_encapsulated_header(icap, nullptr),
                 asserts("encapsulated != NULL", function));
}
