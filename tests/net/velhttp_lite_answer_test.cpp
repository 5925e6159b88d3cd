#include "support/httplite.h"

#include <gmock/gmock.h>

#include "support/assertion.h"
#include "support/rows.h"

/* The read-ahead of the client, and its buffer, have this size. */
static const size_t kBuffer = 4096;

/* Pieces in which an answer comes in. */
static const size_t kPieces[] = {SIZE_MAX, 1, 2, 7, 4095};

static const support::log_line kTooLong =
    lite(6, "input line was too long to fit the buffer (4096 bytes)");

/* The status line. */

struct status_case {
    const char *name;
    std::string statusline; /* with its end */
    vel_error_t result;
    unsigned int status;
    lines logged;
};

static void PrintTo(const status_case &one, std::ostream *out)
{
    *out << testing::PrintToString(one.statusline);
}

class VelhttpLiteStatus : public VelhttpLite, public testing::WithParamInterface<status_case> {};

TEST_P(VelhttpLiteStatus, Line)
{
    const status_case &row = GetParam();
    for (const size_t piece : kPieces) {
        wire.recvlimit = piece;
        EXPECT_EQ(fetch_answer(row.statusline + "A: b\r\n\r\nbody"), row.result);
        EXPECT_EQ(vel_http_get_status_code(http), row.status);
        EXPECT_EQ(logged(), row.logged);
        if (row.result == VEL_ERROR_NONE) {
            EXPECT_EQ(header("a"), "b");
            EXPECT_EQ(body(), "body");
        }
    }
}

static lines refused(const std::string &text)
{
    return {lite(6, text)};
}

static status_case accepted(const char *name, const std::string &statusline, unsigned int status)
{
    return {name, statusline, VEL_ERROR_NONE, status, {lite_status(status)}};
}

static lines too_long_in(const char *reading)
{
    return {kTooLong, lite_error(7, reading, 90)};
}

static const char kReadingStatus[] = "reading HTTP status code failed";
static const char kReadingHeaders[] = "unable to read HTTP headers";

static std::string padded(const std::string &start, size_t len, const std::string &end)
{
    return start + std::string(len - start.size() - end.size(), 'x') + end;
}

static const status_case kStatusCases[] = {
    accepted("Ok", "HTTP/1.0 200 OK\r\n", 200),
    accepted("NoReason", "HTTP/1.0 404\r\n", 404),
    accepted("BlankReason", "HTTP/1.0 204 \r\n", 204),
    accepted("LineFeed", "HTTP/1.0 200 OK\n", 200),
    accepted("TwoReturns", "HTTP/1.0 200 OK\r\r\n", 200),
    accepted("OtherVersion", "HTTP/1.1 200 OK\r\n", 200),
    accepted("AnyVersion", "HTTP/x:y\t 200 OK\r\n", 200),
    accepted("NoVersion", "HTTP/ 500\r\n", 500),
    accepted("TwoBlanks", "HTTP/1.0  200 OK\r\n", 0),
    accepted("BlankAlone", "HTTP/1.0 \r\n", 0),
    accepted("Largest", "HTTP/1.0 999 X\r\n", 999),
    accepted("LeadingZeros", "HTTP/1.0 0000000000200 OK\r\n", 200),
    accepted("OneDigit", "HTTP/1.0 7\r\n", 7),
    accepted("ReasonOfAnything", "HTTP/1.0 200 \x01: \xff\r\n", 200),
    accepted("LineOf4095Bytes", padded("HTTP/1.0 200 ", kBuffer - 1, "\r\n"), 200),
    accepted("LineOf4096Bytes", padded("HTTP/1.0 200 ", kBuffer, "\r\n"), 200),
    accepted("LineOf4096BytesWithoutReturn", padded("HTTP/1.0 200 ", kBuffer, "\n"), 200),
    {"LineOf4097Bytes", padded("HTTP/1.0 200 ", kBuffer + 1, "\r\n"), VEL_ERROR_MESSAGE_TOO_LONG, 0,
     too_long_in(kReadingStatus)},
    {"LineOf10000Bytes", padded("HTTP/1.0 200 ", 10000, "\r\n"), VEL_ERROR_MESSAGE_TOO_LONG, 0,
     too_long_in(kReadingStatus)},
    {"OtherProtocol", "ICY 200 OK\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("The HTTP response 'ICY 200 OK' did not start with 'HTTP/'")},
    {"SmallProtocol", "http/1.0 200 OK\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("The HTTP response 'http/1.0 200 OK' did not start with 'HTTP/'")},
    {"Cut", "HTTP\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("The HTTP response 'HTTP' did not start with 'HTTP/'")},
    {"Empty", "\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("The HTTP response '' did not start with 'HTTP/'")},
    {"EmptyLineFeed", "\n", VEL_ERROR_PROTOCOL, 0,
     refused("The HTTP response '' did not start with 'HTTP/'")},
    {"LeadingBlank", " HTTP/1.0 200 OK\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("The HTTP response ' HTTP/1.0 200 OK' did not start with 'HTTP/'")},
    {"NoCode", "HTTP/1.0\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("The HTTP response 'HTTP/1.0' did not have the result code")},
    {"TabInPlaceOfBlank", "HTTP/1.0\t200\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("The HTTP response 'HTTP/1.0\t200' did not have the result code")},
    {"LetterInCode", "HTTP/1.0 20x OK\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("Invalid result code digit 'x' in response 'HTTP/1.0 20x OK'")},
    {"Sign", "HTTP/1.0 -1 OK\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("Invalid result code digit '-' in response 'HTTP/1.0 -1 OK'")},
    {"TabBehindCode", "HTTP/1.0 200\tOK\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("Invalid result code digit '\t' in response 'HTTP/1.0 200\tOK'")},
    {"ReturnInCode", "HTTP/1.0 200\rOK\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("Invalid result code digit '\r' in response 'HTTP/1.0 200\rOK'")},
    {"FourDigits", "HTTP/1.0 1000 OK\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("Invalid HTTP status code in response 'HTTP/1.0 1000 OK'")},
    {"ManyDigits", "HTTP/1.0 99999999999999999999999999\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("Invalid HTTP status code in response 'HTTP/1.0 99999999999999999999999999'")},
    {"NoStatusLine", "Server: y\r\n", VEL_ERROR_PROTOCOL, 0,
     refused("The HTTP response 'Server: y' did not start with 'HTTP/'")},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpLiteStatus, testing::ValuesIn(kStatusCases),
                         support::row_name());

/* What is behind a NUL in the status line may count or not. */
TEST_F(VelhttpLite, NulInTheStatusLine)
{
    const std::string statusline = "HTTP/1.0 200 OK";
    for (size_t at = 0; at < statusline.size(); at++) {
        std::string changed = statusline;
        changed[at] = '\0';
        const vel_error_t result = fetch_answer(changed + "\r\nA: b\r\n\r\nbody");
        const lines said = logged();
        ASSERT_EQ(said.size(), 1u);
        if (at < 5) {
            EXPECT_EQ(said[0], lite(6, "The HTTP response '" + statusline.substr(0, at) +
                                           "' did not start with 'HTTP/'"));
        } else if (at >= 12) {
            EXPECT_EQ(said[0], lite_status(200));
        }
        if (result == VEL_ERROR_NONE) {
            EXPECT_EQ(header("a"), "b");
            EXPECT_EQ(body(), "body");
        } else {
            EXPECT_EQ(result, VEL_ERROR_PROTOCOL) << at;
        }
    }
}

TEST_F(VelhttpLite, NulInAHeaderValueEndsIt)
{
    const std::string value("b\0c", 3);
    EXPECT_EQ(fetch_answer("HTTP/1.0 200 OK\r\nA: " + value + "\r\nD: e\r\n\r\n" + value),
              VEL_ERROR_NONE);
    EXPECT_EQ(header("a"), "b");
    EXPECT_EQ(header("d"), "e");
    EXPECT_EQ(body(), value);
}

/* Headers. */

struct header_case {
    const char *name;
    std::string headers;
    std::vector<std::pair<std::string, std::string>> values;
};

static void PrintTo(const header_case &one, std::ostream *out)
{
    *out << testing::PrintToString(one.headers);
}

class VelhttpLiteHeaders : public VelhttpLite, public testing::WithParamInterface<header_case> {};

TEST_P(VelhttpLiteHeaders, Values)
{
    for (const size_t piece : kPieces) {
        wire.recvlimit = piece;
        EXPECT_EQ(fetch_answer(http_answer("200 OK", GetParam().headers, "body")), VEL_ERROR_NONE);
        for (const auto &[name, value] : GetParam().values)
            EXPECT_EQ(header(name.c_str()), value) << name;
        EXPECT_EQ(body(), "body");
        EXPECT_EQ(logged(), lines{lite_status(200)});
    }
}

static std::string many_headers(size_t count, size_t len)
{
    std::string headers;
    for (size_t number = 0; number < count; number++)
        headers += padded("X-" + std::to_string(number) + ": ", len, "\r\n");
    return headers;
}

static const header_case kHeaderCases[] = {
    {"None", "", {{"a", "none"}}},
    {"Several", "A: 1\r\nB: 2\r\n", {{"a", "1"}, {"b", "2"}}},
    {"LineFeeds", "A: 1\nB: 2\n", {{"a", "1"}, {"b", "2"}}},
    {"Replaced", "A: 1\r\na: 2\r\n", {{"a", "2"}}},
    {"NoValue", "A:\r\nB: \r\n", {{"a", ""}, {"b", ""}}},
    {"NoName", ": v\r\n", {{"", "v"}}},
    {"NoBlank", "A:b\r\n", {{"a", "b"}}},
    {"BlanksBeforeTheValue", "A:   b c\r\n", {{"a", "b c"}}},
    {"TabsStay", "A: \t b\r\n", {{"a", "\t b"}}},
    {"BlanksBehindTheValueStay", "A: b \t \r\n", {{"a", "b \t "}}},
    {"NameIsUnchanged", " A : b\r\n", {{" a ", "b"}, {"a", "none"}}},
    {"LaterColons", "A: b: c:\r\n", {{"a", "b: c:"}}},
    {"ReturnsInside", "A: b\rc\r\r\n", {{"a", "b\rc\r"}}},
    {"ReturnInFrontOfAColon", "\r: x\r\n", {{"\r", "x"}}},
    {"LineOf4095Bytes", padded("A: ", kBuffer - 1, "\r\n"), {{"a", std::string(4090, 'x')}}},
    {"LineOf4096Bytes", padded("A: ", kBuffer, "\r\n"), {{"a", std::string(4091, 'x')}}},
    {"LineOf4096BytesWithoutReturn", padded("A: ", kBuffer, "\n"), {{"a", std::string(4092, 'x')}}},
    {"OneMiB",
     many_headers(1024, 1024),
     {{"x-0", std::string(1017, 'x')}, {"x-1023", std::string(1014, 'x')}}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpLiteHeaders, testing::ValuesIn(kHeaderCases),
                         support::row_name());

TEST_F(VelhttpLite, HeaderLineOf4097Bytes)
{
    for (const size_t piece : kPieces) {
        wire.recvlimit = piece;
        EXPECT_EQ(fetch_answer(http_answer("200 OK", "A: 1\r\n" + padded("B: ", 4097, "\r\n"), "")),
                  VEL_ERROR_MESSAGE_TOO_LONG);
        EXPECT_EQ(logged(),
                  (lines{lite_status(200), kTooLong, lite_error(7, kReadingHeaders, 90)}));
        EXPECT_EQ(vel_http_get_status_code(http), 200u);
        EXPECT_EQ(header("a"), "1");
        EXPECT_EQ(header("b"), "none");
    }
}

TEST_F(VelhttpLite, InterimStatusIsFinal)
{
    EXPECT_EQ(fetch_answer("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\n\r\nbody"),
              VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_get_status_code(http), 100u);
    EXPECT_EQ(body(), "HTTP/1.1 200 OK\r\n\r\nbody");
}

/* The body. */

struct body_case {
    const char *name;
    std::string headers;
    std::string sent;
    std::string received; /* "none" for none at all */
    http_ending ending = http_ending::close;
    lines complaints = {};
};

static void PrintTo(const body_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelhttpLiteBody : public VelhttpLite, public testing::WithParamInterface<body_case> {};

TEST_P(VelhttpLiteBody, Bytes)
{
    const body_case &row = GetParam();
    lines expected = row.complaints;
    expected.insert(expected.begin(), lite_status(200));
    for (const size_t piece : kPieces) {
        wire.recvlimit = piece;
        EXPECT_EQ(fetch_answer(http_answer("200 OK", row.headers, row.sent), row.ending),
                  VEL_ERROR_NONE);
        EXPECT_TRUE(body() == row.received) << body().size() << " bytes";
        EXPECT_EQ(logged(), expected);
    }
}

static lines junk_length(const std::string &value, int error)
{
    return {front(7, "parsing content-length '" + value + "' failed, error " +
                         std::to_string(error) + " (" + vel_error_string(error) + ")"),
            front(6, "considering the content length unknown")};
}

static std::string pattern(size_t len)
{
    std::string bytes(len, '\0');
    for (size_t i = 0; i < len; i++)
        bytes[i] = static_cast<char>(i * 31 + i / 251);
    return bytes;
}

static body_case whole(const char *name, size_t len, bool known)
{
    const std::string bytes = pattern(len);
    return {name, known ? "Content-Length: " + std::to_string(len) + "\r\n" : "", bytes,
            len > 0 ? bytes : "none", known ? http_ending::hold : http_ending::close};
}

static const std::string kChunked = "4\r\nbody\r\n0\r\n\r\n";
static const body_case kBodyCases[] = {
    whole("Empty", 0, false),
    whole("EmptyKnown", 0, true),
    whole("OneByte", 1, false),
    whole("OneByteKnown", 1, true),
    whole("Of4095Bytes", 4095, false),
    whole("Of4095BytesKnown", 4095, true),
    whole("Of4096Bytes", 4096, false),
    whole("Of4096BytesKnown", 4096, true),
    whole("Of4097Bytes", 4097, false),
    whole("Of4097BytesKnown", 4097, true),
    whole("Of65536Bytes", 65536, false),
    whole("Of65537BytesKnown", 65537, true),
    whole("Of300000Bytes", 300000, false),
    whole("Of300000BytesKnown", 300000, true),
    {"Shorter", "Content-Length: 5\r\n", "abc", "abc"},
    {"NothingOfFive", "Content-Length: 5\r\n", "", "none"},
    {"MuchShorter", "Content-Length: 2147483647\r\n", "abc", "abc"},
    {"Longer", "Content-Length: 5\r\n", "abcdefgh", "abcde", http_ending::hold},
    {"LongerThanZero", "Content-Length: 0\r\n", "abc", "none", http_ending::hold},
    {"MuchLonger", "Content-Length: 5000\r\n", pattern(20000), pattern(20000).substr(0, 5000),
     http_ending::hold},
    {"Negative", "Content-Length: -5\r\n", "abc", "abc"},
    {"TwoToThe31st", "Content-Length: 2147483648\r\n", "abc", "abc"},
    {"TwoToThe64th", "Content-Length: 18446744073709551616\r\n", "abc", "abc", http_ending::close,
     junk_length("18446744073709551616", VEL_ERROR_OUT_OF_RANGE)},
    {"Junk", "Content-Length: junk\r\n", "abc", "none", http_ending::hold,
     junk_length("junk", VEL_ERROR_INVALID_SYNTAX)},
    {"EmptyLength", "Content-Length:\r\n", "abc", "none", http_ending::hold,
     junk_length("", VEL_ERROR_INVALID_SYNTAX)},
    {"Tail", "Content-Length: 2, 2\r\n", "abc", "ab", http_ending::hold,
     junk_length("2, 2", VEL_ERROR_INCOMPLETE)},
    {"LastLengthCounts", "Content-Length: 1\r\ncontent-length: 2\r\n", "abc", "ab",
     http_ending::hold},
    {"ChunksAreNotDecoded", "Transfer-Encoding: chunked\r\n", kChunked, kChunked},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpLiteBody, testing::ValuesIn(kBodyCases),
                         support::row_name());

TEST_F(VelhttpLite, BodyComesInPiecesOfTheBufferAtMost)
{
    std::vector<size_t> sizes;
    std::string received;
    const auto take = [](const void *data, size_t size, void *context) -> vel_error_t {
        auto *test = static_cast<std::pair<std::vector<size_t> *, std::string *> *>(context);
        test->first->push_back(size);
        test->second->append(static_cast<const char *>(data), size);
        return VEL_ERROR_NONE;
    };
    std::pair<std::vector<size_t> *, std::string *> context = {&sizes, &received};
    vel_http_set_response_body_callback(http, take, &context);
    const std::string bytes = pattern(100000);
    EXPECT_EQ(fetch_answer(http_answer("200 OK", "", bytes)), VEL_ERROR_NONE);
    EXPECT_TRUE(received == bytes);
    EXPECT_LE(*std::max_element(sizes.begin(), sizes.end()), kBuffer);
}

/* However much one read has brought. */
TEST_F(VelhttpLite, BodyCallbackAbortsBehindTheFirstPiece)
{
    std::pair<velhttp *, size_t> context = {http, 0};
    const auto abort = [](const void *, size_t size, void *given) -> vel_error_t {
        auto *called = static_cast<std::pair<velhttp *, size_t> *>(given);
        vel_http_abort(called->first);
        called->second += size;
        return VEL_ERROR_NONE;
    };
    vel_http_set_response_body_callback(http, abort, &context);
    EXPECT_EQ(fetch_answer(http_answer("200 OK", "", pattern(100000))), VEL_ERROR_CANCELED);
    EXPECT_GT(context.second, 0u);
    EXPECT_LE(context.second, kBuffer);
}

TEST_F(VelhttpLite, BodyCallbackFails)
{
    const auto fail = [](const void *, size_t, void *) -> vel_error_t { return VEL_ERROR_QUOTA; };
    vel_http_set_response_body_callback(http, fail, nullptr);
    EXPECT_EQ(fetch_answer(http_answer("200 OK", "", "body")), VEL_ERROR_QUOTA);
    EXPECT_EQ(logged(), (lines{lite_status(200),
                               lite_error(7, "the write callback did not accept the data", 122)}));
}

TEST_F(VelhttpLite, BodyCallbackAborts)
{
    for (const char *length : {"", "Content-Length: 4\r\n"}) {
        const auto abort = [](const void *, size_t, void *context) -> vel_error_t {
            vel_http_abort(static_cast<velhttp *>(context));
            return VEL_ERROR_NONE;
        };
        vel_http_set_response_body_callback(http, abort, http);
        EXPECT_EQ(fetch_answer(http_answer("200 OK", length, "body")), VEL_ERROR_CANCELED);
        EXPECT_EQ(logged(), (lines{lite_status(200), kAborting, kAborted}));
    }
}

/* A connection that ends too early. */

static const std::string kStatusLine = "HTTP/1.0 200 OK\r\n";
static const std::string kHead = kStatusLine + "A: b\r\nContent-Length: 5\r\n\r\n";

/* What is logged when so much of the head came in before an error. */
static lines head_failed(size_t len, int level, int error)
{
    lines expected = {
        lite_error(level, "reading input line failed", error),
        lite_error(level, len < kStatusLine.size() ? kReadingStatus : kReadingHeaders, error)};
    if (len >= kStatusLine.size())
        expected.insert(expected.begin(), lite_status(200));
    return expected;
}

TEST_F(VelhttpLite, CutAtEveryByte)
{
    const std::string answer = kHead + "hello";
    for (size_t len = 0; len <= answer.size(); len++) {
        const vel_error_t result = fetch_answer(answer.substr(0, len));
        if (len < kHead.size()) {
            EXPECT_EQ(result, VEL_ERROR_END_OF_FILE) << len;
            EXPECT_EQ(logged(), head_failed(len, 7, VEL_ERROR_END_OF_FILE)) << len;
        } else {
            EXPECT_EQ(result, VEL_ERROR_NONE) << len;
            EXPECT_EQ(logged(), lines{lite_status(200)});
            EXPECT_EQ(body(), len > kHead.size() ? answer.substr(kHead.size(), len - kHead.size())
                                                 : "none");
        }
    }
}

struct errno_case {
    const char *name;
    int platformerrno;
    vel_error_t result;
    int level;
};

static void PrintTo(const errno_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelhttpLiteErrno : public VelhttpLite, public testing::WithParamInterface<errno_case> {};

TEST_P(VelhttpLiteErrno, AtEveryByte)
{
    const errno_case &row = GetParam();
    const std::string answer = kHead + "hello";
    for (size_t len = 0; len < answer.size(); len++) {
        http_server server({{answer, http_ending::hold}});
        wire.recvlimit = 1;
        wire.recvskip = len;
        wire.recverrno = row.platformerrno;
        EXPECT_EQ(fetch(server.url("/")), row.result) << len;
        if (len < kHead.size()) {
            EXPECT_EQ(logged(), head_failed(len, row.level, row.result)) << len;
        } else {
            EXPECT_EQ(logged(), (lines{lite_status(200),
                                       lite_error(row.level, "unable to read more body information",
                                                  row.result)}))
                << len;
            EXPECT_EQ(body(), len > kHead.size() ? answer.substr(kHead.size(), len - kHead.size())
                                                 : "none");
        }
    }
}

static const errno_case kErrnoCases[] = {
    {"Reset", ECONNRESET, VEL_ERROR_CONNECTION_RESET, 7},
    {"Interrupted", EINTR, VEL_ERROR_INTERRUPTED, 13},
    {"NoMemory", ENOMEM, VEL_ERROR_NO_MEMORY, 7},
    {"Other", EIO, VEL_ERROR_GENERIC, 7},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpLiteErrno, testing::ValuesIn(kErrnoCases),
                         support::row_name());

/* The socket layer reads twice, and the second read behind a reset finds the end; and for a moment
 * poll tells of nothing but an error. So it depends on the moment what is seen. */
static const auto kOfAReset =
    testing::AnyOf(VEL_ERROR_CONNECTION_RESET, VEL_ERROR_END_OF_FILE, VEL_ERROR_INTERNAL);

TEST_F(VelhttpLite, Reset)
{
    for (const size_t len : {size_t(0), kStatusLine.size(), kHead.size() - 3}) {
        const vel_error_t result = fetch_answer(kHead.substr(0, len), http_ending::reset);
        EXPECT_THAT(result, kOfAReset) << len;
        EXPECT_EQ(logged(), head_failed(len, 7, result)) << len;
    }
    const vel_error_t result = fetch_answer(kHead + "half", http_ending::reset);
    lines expected = {lite_status(200)};
    if (result != VEL_ERROR_NONE) {
        EXPECT_THAT(result, kOfAReset);
        expected.push_back(lite_error(7, "unable to read more body information", result));
    }
    EXPECT_EQ(logged(), expected);
    EXPECT_EQ(body(), "half");
}

/* A header without a colon has no value, which is not to leave the store. */

class VelhttpLiteDeathTest : public VelhttpLite {};

TEST_F(VelhttpLiteDeathTest, HeaderWithoutColon)
{
    const auto fetch_it = [&] {
        if (fetch_answer(http_answer("200 OK", "A: 1\r\nno colon\r\nB: 2\r\n", "body")) !=
                VEL_ERROR_NONE ||
            logged() != lines{lite_status(200), lite(6, "header 'no colon' without a colon")} ||
            header("a") != "1" || header("b") != "2" || header("no colon") != "none" ||
            body() != "body")
            _exit(1);
    };
    const auto text = support::asserts("item != NULL", "vel_httpheaders_header_destroy");
    EXPECT_DEATH((fetch_it(), vel_http_destroy(http)), text);
    EXPECT_DEATH((fetch_it(), vel_http_perform(http)), text);
}
