/* What the client makes of answers. */

#include "support/icap.h"

#include <string_view>

static std::string crlf(const std::string &line, size_t length)
{
    return line + std::string(length - line.size() - 2, 'x') + "\r\n";
}

/* The method of an exchange, and whether the message that is sent declares itself chunked. */
enum class asks { reqmod, respmod, options, chunked_reqmod, chunked_respmod };

static const std::string kOkLine = "ICAP/1.0 200 OK\r\n";
static const std::string kEof = " error 204 (end of file)";
static const std::string kNone = "none";

struct answer_case {
    const char *name;
    asks what;
    std::string answer;
    vel_error_t result;
    lines logged; /* behind the line on the status, if there is a status */
    unsigned int status;
    std::string icapheaders = kNone;
    std::string headers = kNone;
    std::string body = kNone;
};

static void PrintTo(const answer_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelicapAnswerTest : public Velicap {
  protected:
    /* Gives the lines that sending logs. */
    lines prepare(asks what)
    {
        switch (what) {
        case asks::reqmod:
            vel_icap_set_method_reqmod(icap);
            set_request(kRequest);
            return {};
        case asks::chunked_reqmod:
            vel_icap_set_method_reqmod(icap);
            set_request(kChunkedRequest);
            return {};
        case asks::respmod:
            /* What the request says does not count. */
            vel_icap_set_method_respmod(icap);
            set_request(kChunkedRequest);
            set_response(kResponse);
            return {};
        case asks::chunked_respmod:
            vel_icap_set_method_respmod(icap);
            set_request(kRequest);
            set_response(kChunkedResponse);
            return {};
        case asks::options:
            vel_icap_set_method_options(icap);
            return {};
        }
        return {};
    }
};

class VelicapAnswer : public VelicapAnswerTest,
                      public testing::WithParamInterface<std::tuple<bool, answer_case>> {};

TEST_P(VelicapAnswer, Row)
{
    const auto &[local, row] = GetParam();
    for (const size_t limit : {SIZE_MAX, size_t(4096), size_t(1)}) {
        if (limit == 1 && row.answer.size() > 20000)
            continue;
        SCOPED_TRACE(limit);
        wire.recvlimit = limit;
        icap_server server(local, {{row.answer, http_ending::close}});
        prepare(row.what);
        EXPECT_EQ(exchange(server), row.result);
        const lines status = row.logged.size() > 0 && row.icapheaders == kNone && row.status == 0
                                 ? lines()
                                 : lines{said_status(row.status)};
        EXPECT_EQ(logged(), joined({status, row.logged}));
        EXPECT_EQ(vel_icap_get_status_code(icap), row.status);
        EXPECT_EQ(icap_headers(), row.icapheaders);
        EXPECT_EQ(headers(), row.headers);
        EXPECT_EQ(body(), row.body);
        vel_icap_reset(icap);
    }
}

/* A refusal of the first line. */
static answer_case bad_status(const char *name, const std::string &answer, vel_error_t result,
                              int level, const std::string &text)
{
    return {name, asks::reqmod, answer, result, {said(level, text)}, 0};
}

static const std::string kNulls("ICAP/1.0 204 a\0b\0\r\n\r\n", 21);

static const answer_case kStatusCases[] = {
    bad_status("Nothing", "", VEL_ERROR_END_OF_FILE, 7, "unable to read ICAP result code," + kEof),
    bad_status("Unfinished", "ICAP/1.0 200 OK", VEL_ERROR_INTERNAL, 6,
               "reading a line did not terminate at a linefeed"),
    bad_status("UnfinishedByALinefeed", "ICAP/1.0 200 OK\r", VEL_ERROR_INTERNAL, 6,
               "reading a line did not terminate at a linefeed"),
    bad_status("Line4097", crlf("ICAP/1.0 204 ", 4097) + "\r\n", VEL_ERROR_MESSAGE_TOO_LONG, 6,
               "The result code line was too long to fit the buffer (4096 bytes)"),
    bad_status("Line4096WithoutEnd", std::string(4096, 'I'), VEL_ERROR_MESSAGE_TOO_LONG, 6,
               "The result code line was too long to fit the buffer (4096 bytes)"),
    bad_status("Line4095WithoutEnd", std::string(4095, 'I'), VEL_ERROR_INTERNAL, 6,
               "reading a line did not terminate at a linefeed"),
    bad_status("Endless", std::string(100000, 'x'), VEL_ERROR_MESSAGE_TOO_LONG, 6,
               "The result code line was too long to fit the buffer (4096 bytes)"),
    bad_status("Http", "HTTP/1.1 200 OK\r\n\r\n", VEL_ERROR_PROTOCOL, 6,
               "The ICAP response 'HTTP/1.1 200 OK' did not start with 'ICAP/'"),
    bad_status("SmallLetters", "icap/1.0 200 OK\r\n\r\n", VEL_ERROR_PROTOCOL, 6,
               "The ICAP response 'icap/1.0 200 OK' did not start with 'ICAP/'"),
    bad_status("Shorter", "ICAP\r\n\r\n", VEL_ERROR_PROTOCOL, 6,
               "The ICAP response 'ICAP' did not start with 'ICAP/'"),
    bad_status("Empty", "\r\n", VEL_ERROR_PROTOCOL, 6,
               "The ICAP response '' did not start with 'ICAP/'"),
    bad_status("EmptyLinefeed", "\n", VEL_ERROR_PROTOCOL, 6,
               "The ICAP response '' did not start with 'ICAP/'"),
    bad_status("Null", std::string("\0ICAP/1.0 200\r\n", 15), VEL_ERROR_PROTOCOL, 6,
               "The ICAP response '' did not start with 'ICAP/'"),
    bad_status("NoCode", "ICAP/1.0\r\n", VEL_ERROR_PROTOCOL, 6,
               "The ICAP response 'ICAP/1.0' did not have the result code"),
    bad_status("NoVersion", "ICAP/\r\n", VEL_ERROR_PROTOCOL, 6,
               "The ICAP response 'ICAP/' did not have the result code"),
    bad_status("Letter", "ICAP/1.0 2x0 OK\r\n", VEL_ERROR_PROTOCOL, 6,
               "Invalid result code digit 'x' in response 'ICAP/1.0 2x0 OK'"),
    bad_status("Sign", "ICAP/1.0 -200 OK\r\n", VEL_ERROR_PROTOCOL, 6,
               "Invalid result code digit '-' in response 'ICAP/1.0 -200 OK'"),
    bad_status("Tab", "ICAP/1.0 200\tOK\r\n", VEL_ERROR_PROTOCOL, 6,
               "Invalid result code digit '\t' in response 'ICAP/1.0 200\tOK'"),
    bad_status("TwoCarriageReturns", "ICAP/1.0 200\r\r\n", VEL_ERROR_PROTOCOL, 6,
               "Invalid result code digit '\r' in response 'ICAP/1.0 200\r'"),
    bad_status("Code1000", "ICAP/1.0 1000 OK\r\n", VEL_ERROR_PROTOCOL, 6,
               "Invalid ICAP status code in response 'ICAP/1.0 1000 OK'"),
    bad_status("HugeCode", "ICAP/1.0 99999999999999999999999 OK\r\n", VEL_ERROR_PROTOCOL, 6,
               "Invalid ICAP status code in response 'ICAP/1.0 99999999999999999999999 OK'"),
    bad_status("CodeIsTooLargeBeforeTheLetter", "ICAP/1.0 1000x\r\n", VEL_ERROR_PROTOCOL, 6,
               "Invalid ICAP status code in response 'ICAP/1.0 1000x'"),

    {"NoContent", asks::reqmod, "ICAP/1.0 204 No\r\n\r\n", VEL_ERROR_NONE, {}, 204, "\r\n"},
    {"NoReason", asks::reqmod, "ICAP/1.0 204\r\n\r\n", VEL_ERROR_NONE, {}, 204, "\r\n"},
    {"Linefeeds", asks::reqmod, "ICAP/1.0 204 No\n\n", VEL_ERROR_NONE, {}, 204, "\n"},
    {"OtherVersion", asks::reqmod, "ICAP/ 204 No\r\n\r\n", VEL_ERROR_NONE, {}, 204, "\r\n"},
    {"LeadingZeros", asks::reqmod, "ICAP/1.0 0000204 No\r\n\r\n", VEL_ERROR_NONE, {}, 204, "\r\n"},
    {"Line4096",
     asks::reqmod,
     crlf("ICAP/1.0 204 ", 4096) + "\r\n",
     VEL_ERROR_NONE,
     {},
     204,
     "\r\n"},
    {"NullsInTheReason", asks::reqmod, kNulls, VEL_ERROR_NONE, {}, 204, "\r\n"},
    {"NothingIsReadBehind204",
     asks::reqmod,
     "ICAP/1.0 204 No\r\nEncapsulated: nonsense\r\n\r\n5\r\nhello\r\n0\r\n\r\n",
     VEL_ERROR_NONE,
     {},
     204,
     "Encapsulated: nonsense\r\n\r\n"},
    {"Code999",
     asks::reqmod,
     "ICAP/1.0 999\r\nEncapsulated: null-body=0\r\n\r\n",
     VEL_ERROR_NONE,
     {},
     999,
     "Encapsulated: null-body=0\r\n\r\n"},
    {"TwoBlanksAreCode0",
     asks::reqmod,
     "ICAP/1.0  200\r\nEncapsulated: null-body=0\r\n\r\n",
     VEL_ERROR_NONE,
     {},
     0,
     "Encapsulated: null-body=0\r\n\r\n"},
    {"BlankAtTheEndIsCode0",
     asks::reqmod,
     "ICAP/1.0 \r\nEncapsulated: null-body=0\r\n\r\n",
     VEL_ERROR_NONE,
     {},
     0,
     "Encapsulated: null-body=0\r\n\r\n"},
    {"Code100IsAnAnswer",
     asks::reqmod,
     "ICAP/1.0 100 Continue\r\nEncapsulated: null-body=0\r\n\r\n",
     VEL_ERROR_NONE,
     {},
     100,
     "Encapsulated: null-body=0\r\n\r\n"},
    {"Code404IsNoFailure",
     asks::reqmod,
     "ICAP/1.0 404 No\r\nEncapsulated: null-body=0\r\n\r\n",
     VEL_ERROR_NONE,
     {},
     404,
     "Encapsulated: null-body=0\r\n\r\n"},
    {"Code500HasABody",
     asks::respmod,
     "ICAP/1.0 500 No\r\nEncapsulated: res-body=0\r\n\r\n2\r\nno\r\n0\r\n\r\n",
     VEL_ERROR_NONE,
     {},
     500,
     "Encapsulated: res-body=0\r\n\r\n",
     kNone,
     "no"},
};

struct answer_row_name {
    std::string operator()(const testing::TestParamInfo<std::tuple<bool, answer_case>> &info) const
    {
        return std::string(std::get<0>(info.param) ? "Unix" : "Tcp") + std::get<1>(info.param).name;
    }
};
INSTANTIATE_TEST_SUITE_P(Status, VelicapAnswer,
                         testing::Combine(testing::Bool(), testing::ValuesIn(kStatusCases)),
                         answer_row_name());

/* ICAP headers. */

static answer_case bad_headers(const char *name, const std::string &rest, vel_error_t result,
                               const lines &logged, const std::string &icapheaders)
{
    return {name, asks::reqmod, kOkLine + rest, result, logged, 200, icapheaders};
}

static std::string many_headers()
{
    std::string text;
    for (int number = 0; number < 2000; number++)
        text += "X-" + std::to_string(number) + ": value\r\n";
    return text;
}

static const std::string kMany = many_headers();
static const lines kHeadersEnd = {said(7, "unable to read ICAP headers," + kEof)};
static const lines kHeaderUnfinished = {
    said(6, "reading a header line did not terminate at a linefeed")};
static const lines kHeaderTooLong = {
    said(6, "The header line was too long to fit the buffer (4096 bytes)")};
static const lines kParsing = {said(7, "parsing headers failed")};
static const lines kNoLayout = {said(6, "no Encapsulated header in the ICAP response")};
static const lines kBadLayout = {said(6, "unable to parse Encapsulated header")};

static const answer_case kHeaderCases[] = {
    bad_headers("None", "", VEL_ERROR_END_OF_FILE, kHeadersEnd, kNone),
    bad_headers("EndBehindOne", "A: b\r\n", VEL_ERROR_END_OF_FILE, kHeadersEnd, "A: b\r\n"),
    bad_headers("Unfinished", "A: b\r\nC", VEL_ERROR_INTERNAL, kHeaderUnfinished, "A: b\r\n"),
    bad_headers("UnfinishedEmpty", "A: b\r\n\r", VEL_ERROR_INTERNAL, kHeaderUnfinished, "A: b\r\n"),
    bad_headers("Line4097", "A: b\r\n" + crlf("C: ", 4097) + "\r\n", VEL_ERROR_MESSAGE_TOO_LONG,
                kHeaderTooLong, "A: b\r\n"),
    bad_headers("Line4096WithoutEnd", std::string(4096, 'x'), VEL_ERROR_MESSAGE_TOO_LONG,
                kHeaderTooLong, kNone),
    bad_headers("EndlessLine", std::string(100000, 'x'), VEL_ERROR_MESSAGE_TOO_LONG, kHeaderTooLong,
                kNone),
    bad_headers("EndlessHeaders", kMany, VEL_ERROR_END_OF_FILE, kHeadersEnd, kMany),
    bad_headers("NoColon", "A: b\r\nbad\r\nC: d\r\n\r\n", VEL_ERROR_INVALID_SYNTAX, kParsing,
                "A: b\r\nbad\r\n"),
    bad_headers("Folded", "A: b\r\n c\r\n\r\n", VEL_ERROR_INVALID_SYNTAX, kParsing,
                "A: b\r\n c\r\n"),
    bad_headers("NoLayout", "A: b\r\n\r\n", VEL_ERROR_PROTOCOL, kNoLayout, "A: b\r\n\r\n"),
    bad_headers("NoHeaders", "\r\n", VEL_ERROR_PROTOCOL, kNoLayout, "\r\n"),
    bad_headers("LayoutWithABlankInItsName", "Encapsulated : null-body=0\r\n\r\n",
                VEL_ERROR_PROTOCOL, kNoLayout, "Encapsulated : null-body=0\r\n\r\n"),
    bad_headers("EmptyLayout", "Encapsulated:\r\n\r\n", VEL_ERROR_PROTOCOL, kBadLayout,
                "Encapsulated:\r\n\r\n"),
    bad_headers("WrongOrder", "Encapsulated: null-body=0, req-hdr=0\r\n\r\n", VEL_ERROR_PROTOCOL,
                kBadLayout, "Encapsulated: null-body=0, req-hdr=0\r\n\r\n"),
    bad_headers(
        "LayoutOfAnotherMethod", "Encapsulated: opt-body=0\r\n\r\n", VEL_ERROR_PROTOCOL,
        {said(6, "opt-body can only be present in OPTIONS method: 'opt-body=0'"), kBadLayout[0]},
        "Encapsulated: opt-body=0\r\n\r\n"),
    bad_headers("Offset", "Encapsulated: req-hdr=1, null-body=2\r\n\r\nab", VEL_ERROR_UNSUPPORTED,
                {said(6, "XXX UNSUPPORTED: non-zero encapsulated body header offset: "
                         "'req-hdr=1, null-body=2'"),
                 kBadLayout[0]},
                "Encapsulated: req-hdr=1, null-body=2\r\n\r\n"),

    {"Line4096",
     asks::reqmod,
     "ICAP/1.0 204 No\r\n" + crlf("A: ", 4096) + "\r\n",
     VEL_ERROR_NONE,
     {},
     204,
     crlf("A: ", 4096) + "\r\n"},
    {"Many",
     asks::reqmod,
     "ICAP/1.0 204 No\r\n" + kMany + "\r\n",
     VEL_ERROR_NONE,
     {},
     204,
     kMany + "\r\n"},
    {"Bytes",
     asks::reqmod,
     "ICAP/1.0 204 No\r\nA: \xff\x01 \t\r\nB:\n\n",
     VEL_ERROR_NONE,
     {},
     204,
     "A: \xff\x01 \t\r\nB:\n\n"},
    {"AnyCaseOfTheName",
     asks::reqmod,
     kOkLine + "eNCAPSULATED:null-body=0 \r\n\r\n",
     VEL_ERROR_NONE,
     {},
     200,
     "eNCAPSULATED:null-body=0 \r\n\r\n"},
    {"LastLayoutCounts",
     asks::reqmod,
     kOkLine + "Encapsulated: x\r\nEncapsulated: null-body=0\r\n\r\n",
     VEL_ERROR_NONE,
     {},
     200,
     "Encapsulated: x\r\nEncapsulated: null-body=0\r\n\r\n"},
};
INSTANTIATE_TEST_SUITE_P(Headers, VelicapAnswer,
                         testing::Combine(testing::Bool(), testing::ValuesIn(kHeaderCases)),
                         answer_row_name());

/* A NUL ends what is read of a line, and not what is kept of it. */
TEST_F(VelicapAnswerTest, NullInAHeader)
{
    const std::string layout("Encapsulated: null-body=0\0, x\r\n\r\n", 33);
    for (const bool local : {false, true}) {
        icap_server server(local, {{kOkLine + layout, http_ending::close}});
        prepare(asks::reqmod);
        EXPECT_EQ(exchange(server), VEL_ERROR_NONE);
        EXPECT_EQ(logged(), lines{said_status(200)});
        char *text = nullptr;
        ASSERT_EQ(vel_icap_get_response_icap_headers(icap, &text), VEL_ERROR_NONE);
        EXPECT_EQ(std::string(text, layout.size()), layout);
        EXPECT_EQ(text[layout.size()], '\0');
        vel_free(text);
        vel_icap_reset(icap);
    }
}

/* Encapsulated headers and bodies. */

/* An answer to a message, with a layout. */
static std::string layout(const std::string &value)
{
    return "Encapsulated: " + value + "\r\n\r\n";
}

static answer_case whole(const char *name, asks what, const std::string &value,
                         const std::string &rest, const std::string &headers,
                         const std::string &body)
{
    const bool encoded = what == asks::chunked_reqmod || what == asks::chunked_respmod;
    return {name,
            what,
            kOkLine + layout(value) + rest,
            VEL_ERROR_NONE,
            encoded ? lines{kEncoded} : lines(),
            200,
            layout(value),
            headers,
            body};
}

/* A body of an answer to RESPMOD that cannot be read to its end. */
static answer_case broken(const char *name, const std::string &rest, vel_error_t result,
                          const support::log_line &line, const std::string &body = kNone)
{
    return {name,
            asks::respmod,
            kOkLine + layout("res-body=0") + rest,
            result,
            {line, said(6, "unable to read encapsulated chunked body")},
            200,
            layout("res-body=0"),
            kNone,
            body};
}

static const std::string kHead = "HTTP/1.1 200 OK\r\nA: b\r\n\r\n"; /* 25 bytes */
static const std::string kLongHead(10000, 'h');
static const std::string kLongBody(10000, 'b');
static const std::string kHello = "5\r\nhello\r\n0\r\n\r\n";
static const support::log_line kChunkEnd = said(7, "unable to read chunk size," + kEof);
static const support::log_line kSizeUnfinished =
    said(6, "reading a chunk size line did not terminate at a linefeed");
static const support::log_line kSizeTooLong =
    said(6, "The chunk size line was too long to fit the buffer (4096 bytes)");

static support::log_line extra(const std::string &line)
{
    return said(7, "extra data after the chunk size in '" + line + "'");
}

static const answer_case kBodyCases[] = {
    whole("RespmodAll", asks::respmod, "res-hdr=0, res-body=25", kHead + kHello, kHead, "hello"),
    whole("ReqmodAll", asks::reqmod, "req-hdr=0, req-body=25", kHead + kHello, kHead, "hello"),
    whole("ReqmodResponse", asks::reqmod, "res-hdr=0, res-body=25", kHead + kHello, kHead, "hello"),
    whole("HeadersOnly", asks::respmod, "res-hdr=0, null-body=25", kHead + kHello, kHead, kNone),
    whole("BodyOnly", asks::respmod, "res-body=0", kHello, kNone, "hello"),
    whole("Nothing", asks::respmod, "null-body=0", kHello, kNone, kNone),
    whole("Options", asks::options, "null-body=0", "", kNone, kNone),
    whole("OptionsBody", asks::options, "opt-body=0", kHello, kNone, "hello"),
    whole("OptionsBodyBehindBytes", asks::options, "opt-body=3", "abc" + kHello, "abc", "hello"),
    whole("LongHeaders", asks::respmod, "res-hdr=0, res-body=10000", kLongHead + kHello, kLongHead,
          "hello"),
    whole("Headers4096", asks::respmod, "res-hdr=0, res-body=4096",
          kLongHead.substr(0, 4096) + kHello, kLongHead.substr(0, 4096), "hello"),
    whole("Headers4097", asks::respmod, "res-hdr=0, null-body=4097", kLongHead.substr(0, 4097),
          kLongHead.substr(0, 4097), kNone),
    /* The end of the connection may come early where no body is expected. */
    whole("HeadersCutShort", asks::respmod, "res-hdr=0, null-body=100", kHead, kHead, kNone),
    whole("HeadersMissing", asks::respmod, "res-hdr=0, null-body=100", "", kNone, kNone),
    {"HeadersCutShortBeforeABody",
     asks::respmod,
     kOkLine + layout("res-hdr=0, res-body=100") + kHead,
     VEL_ERROR_END_OF_FILE,
     {kChunkEnd, said(6, "unable to read encapsulated chunked body")},
     200,
     layout("res-hdr=0, res-body=100"),
     kHead},
    whole("HugeHeadersCutShort", asks::respmod, "res-hdr=0, null-body=18446744073709551615", kHead,
          kHead, kNone),

    /* Chunks. */
    whole("SeveralChunks", asks::respmod, "res-body=0",
          "1\r\na\r\n2\r\nbc\r\nA\r\n0123456789\r\na\r\n0123456789\r\n0\r\n\r\n", kNone,
          "abc01234567890123456789"),
    whole("NoChunk", asks::respmod, "res-body=0", "0\r\n\r\n", kNone, kNone),
    whole("LongChunk", asks::respmod, "res-body=0", "2710\r\n" + kLongBody + "\r\n0\r\n\r\n", kNone,
          kLongBody),
    whole("LongChunks", asks::respmod, "res-body=0",
          "2710\r\n" + kLongBody + "\r\n2710\r\n" + kLongBody + "\r\n0\r\n\r\n", kNone,
          kLongBody + kLongBody),
    whole("Linefeeds", asks::respmod, "res-body=0", "5\nhello\n0\n\n", kNone, "hello"),
    whole("BytesOfAllKinds", asks::respmod, "res-body=0",
          "6\r\n" + std::string("\0\r\n\0\xff\n", 6) + "\r\n0\r\n\r\n", kNone,
          std::string("\0\r\n\0\xff\n", 6)),
    whole("LeadingZeros", asks::respmod, "res-body=0", "0005\r\nhello\r\n00\r\n\r\n", kNone,
          "hello"),
    whole("Prefix", asks::respmod, "res-body=0", "0x5\r\nhello\r\n0\r\n\r\n", kNone, "hello"),
    whole("BlankInFront", asks::respmod, "res-body=0", " 5\r\nhello\r\n0\r\n\r\n", kNone, "hello"),
    whole("PlusSign", asks::respmod, "res-body=0", "+5\r\nhello\r\n0\r\n\r\n", kNone, "hello"),
    whole("SizeLine4096", asks::respmod, "res-body=0",
          std::string(4093, '0') + "5\r\nhello\r\n0\r\n\r\n", kNone, "hello"),
    whole("EmptyLineEnds", asks::respmod, "res-body=0", "5\r\nhello\r\n\r\n5\r\nhello\r\n", kNone,
          "hello"),
    whole("EmptyLineAtOnce", asks::respmod, "res-body=0", "\r\n5\r\nhello\r\n", kNone, kNone),
    whole("NothingBehindTheZeroChunk", asks::respmod, "res-body=0", "5\r\nhello\r\n0\r\n", kNone,
          "hello"),
    whole("Trailer", asks::respmod, "res-body=0", "5\r\nhello\r\n0\r\nA: b\r\n\r\n", kNone,
          "hello"),
    whole("RestOfALineBehindAChunk", asks::respmod, "res-body=0",
          "5\r\nhello and more\r\n0\r\n\r\n", kNone, "hello"),
    /* The line behind a chunk is taken unseen. */
    whole("NoLineEndBehindAChunk", asks::respmod, "res-body=0", "5\r\nhello0\r\n\r\n", kNone,
          "hello"),
    whole("NoLineEndBetweenChunks", asks::respmod, "res-body=0", "1\r\na1\r\n\r\n", kNone, "a"),

    broken("NoBody", "", VEL_ERROR_END_OF_FILE, kChunkEnd),
    broken("SizeUnfinished", "5", VEL_ERROR_INTERNAL, kSizeUnfinished),
    broken("SizeLine4097", std::string(4094, '0') + "5\r\nhello\r\n0\r\n\r\n",
           VEL_ERROR_MESSAGE_TOO_LONG, kSizeTooLong),
    broken("SizeWithoutEnd", std::string(100000, '0'), VEL_ERROR_MESSAGE_TOO_LONG, kSizeTooLong),
    broken("Extension", "a;ext=1\r\n0123456789\r\n0\r\n\r\n", VEL_ERROR_PROTOCOL, extra("a;ext=1")),
    broken("BlankBehind", "5 \r\nhello\r\n0\r\n\r\n", VEL_ERROR_PROTOCOL, extra("5 ")),
    broken("Letters", "xyz\r\n", VEL_ERROR_PROTOCOL, extra("xyz")),
    broken("SecondSize", "5\r\nhello\r\n5;\r\nhello\r\n", VEL_ERROR_PROTOCOL, extra("5;"), "hello"),
    broken("TooLarge", "10000000000000000\r\n", VEL_ERROR_PROTOCOL,
           said(7, "unable to parse the chunk size '10000000000000000'")),
    broken("FarTooLargeWithMore", "fffffffffffffffffffffffff;a\r\n", VEL_ERROR_PROTOCOL,
           said(7, "unable to parse the chunk size 'fffffffffffffffffffffffff;a'")),
    broken("CutInAChunk", "5\r\nhel", VEL_ERROR_END_OF_FILE, kChunkEnd, "hel"),
    broken("CutBeforeAChunk", "5\r\n", VEL_ERROR_END_OF_FILE, kChunkEnd),
    broken("CutBehindAChunk", "5\r\nhello", VEL_ERROR_END_OF_FILE, kChunkEnd, "hello"),
    broken("CutBehindItsLine", "5\r\nhello\r\n", VEL_ERROR_END_OF_FILE, kChunkEnd, "hello"),
    broken("CutInTheLastSize", "5\r\nhello\r\n0", VEL_ERROR_INTERNAL, kSizeUnfinished, "hello"),
    broken("HugeSizeCutShort", "ffffffffffffffff\r\nhello", VEL_ERROR_END_OF_FILE, kChunkEnd,
           "hello"),
    broken("NegativeSizeCutShort", "-1\r\nhello", VEL_ERROR_END_OF_FILE, kChunkEnd, "hello"),
    broken("LongLineBehindAChunk", "5\r\nhello" + std::string(4100, 'x') + "\r\n0\r\n\r\n",
           VEL_ERROR_PROTOCOL, extra("xxxx"), "hello"),

    /* The answer to a message that declared itself chunked stays in chunks; its end is doubled. */
    whole("Rechunked", asks::chunked_reqmod, "req-body=0", kHello, kNone,
          "5\r\nhello\r\n0\r\n\r\n0\r\n\r\n"),
    whole("RechunkedResponseToRequest", asks::chunked_reqmod, "res-body=0", kHello, kNone,
          "5\r\nhello\r\n0\r\n\r\n0\r\n\r\n"),
    whole("RechunkedRespmod", asks::chunked_respmod, "res-hdr=0, res-body=25", kHead + kHello,
          kHead, "5\r\nhello\r\n0\r\n\r\n0\r\n\r\n"),
    whole("RechunkedSizesAsTheyCame", asks::chunked_respmod, "res-body=0",
          "0005\nhello\nA\n0123456789\n 0\n\n", kNone,
          "0005\r\nhello\r\nA\r\n0123456789\r\n 0\r\n\r\n0\r\n\r\n"),
    whole("RechunkedNothing", asks::chunked_respmod, "res-body=0", "0\r\n\r\n", kNone,
          "0\r\n\r\n0\r\n\r\n"),
    whole("RechunkedEmptyLine", asks::chunked_respmod, "res-body=0", "5\r\nhello\r\n\r\n", kNone,
          "5\r\nhello\r\n0\r\n\r\n"),
    {"RechunkedCutShort",
     asks::chunked_respmod,
     kOkLine + layout("res-body=0") + "5\r\nhel",
     VEL_ERROR_END_OF_FILE,
     {kEncoded, kChunkEnd, said(6, "unable to read encapsulated chunked body")},
     200,
     layout("res-body=0"),
     kNone,
     "5\r\nhel\r\n"},
    {"ChunkedWithoutBody",
     asks::chunked_respmod,
     kOkLine + layout("null-body=0"),
     VEL_ERROR_NONE,
     {},
     200,
     layout("null-body=0")},
};
INSTANTIATE_TEST_SUITE_P(Body, VelicapAnswer,
                         testing::Combine(testing::Bool(), testing::ValuesIn(kBodyCases)),
                         answer_row_name());

/* Answers that end anywhere. */

class VelicapCut : public VelicapBoth {};
INSTANTIATE_TEST_SUITE_P(Transport, VelicapCut, testing::Bool(), transport_name());

TEST_P(VelicapCut, Anywhere)
{
    const std::string head = kOkLine + layout("res-hdr=0, res-body=25") + kHead;
    const std::string answer = head + kHello;
    for (size_t length = 0; length <= answer.size(); length++) {
        SCOPED_TRACE(length);
        icap_server server(GetParam(), {{answer.substr(0, length), http_ending::close}});
        vel_icap_set_method_respmod(icap);
        set_response(kResponse);
        const vel_error_t result = exchange(server);
        const bool atline = length == 0 || answer[length - 1] == '\n' ||
                            (length + kHead.size() >= head.size() && length < head.size()) ||
                            (length > head.size() + 3 && length < head.size() + 11);
        if (length >= answer.size() - 2) {
            EXPECT_EQ(result, VEL_ERROR_NONE);
        } else {
            EXPECT_EQ(result, atline ? VEL_ERROR_END_OF_FILE : VEL_ERROR_INTERNAL);
        }
        EXPECT_EQ(vel_icap_get_status_code(icap), length < kOkLine.size() ? 0u : 200u);
        const size_t begin = head.size() - kHead.size();
        EXPECT_EQ(headers(),
                  length > begin ? answer.substr(begin, length - begin).substr(0, 25) : kNone);
        const size_t data = head.size() + 3;
        EXPECT_EQ(body(), length > data ? answer.substr(data, length - data).substr(0, 5) : kNone);
        vel_icap_reset(icap);
        vel_icap_destroy(icap);
        icap = vel_icap_create();
        ASSERT_NE(icap, nullptr);
    }
}
