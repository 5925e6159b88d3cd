/* The steps of an exchange over a made-up transport, the escaped path, and states that no caller can
 * bring about. */

#include "support/icap.h"

#include <optional>

#include "net/velicap_internal.h"
#include "support/transport.h"

using support::bytes;
using support::fails_with;
using support::room;
using support::transport_turn;

class VelicapInternal : public Velicap {
  protected:
    void SetUp() override
    {
        Velicap::SetUp();
        wire.played = true;
        transport_.emplace();
        icap->velhandle = transport_->handle();
        vel_timeout_set(icap->veltimeout, -1, 0);
    }
    void TearDown() override
    {
        icap->velhandle = nullptr;
        transport_.reset();
        Velicap::TearDown();
    }

    /* The text comes in one read. */
    void receive(const std::string &text)
    {
        transport_->reads = {bytes(text)};
    }
    /* Everything is taken, in pieces of a byte if there are not many. */
    void take(size_t count)
    {
        for (size_t number = 0; number < count; number++)
            transport_->writes.push_back(room(100000));
    }
    vel_error_t send(uint32_t method, const char *name, const char *host, unsigned int port)
    {
        icap->method = method;
        return vel_icap_send_request(icap, name, "icap://u/x", host, port);
    }

    std::optional<support::transport> transport_;
};

TEST_F(VelicapInternal, InitialState)
{
    EXPECT_NE(icap->buffer, nullptr);
    EXPECT_EQ(icap->bufferlen, 4096u);
    EXPECT_EQ(icap->timeoutseconds, -1);
    EXPECT_EQ(icap->timeoutmicroseconds, 0u);
    EXPECT_EQ(icap->url, nullptr);
    EXPECT_EQ(icap->method, 0u);
    EXPECT_EQ(icap->allow204, 0u);
    EXPECT_NE(icap->responseheaders, nullptr);
    EXPECT_EQ(icap->rawheaders, nullptr);
}

TEST_F(VelicapInternal, SettersStore)
{
    vel_icap_set_timeout(icap, -5, 4000000);
    EXPECT_EQ(icap->timeoutseconds, -5);
    EXPECT_EQ(icap->timeoutmicroseconds, 4000000u);
    vel_icap_set_method_reqmod(icap);
    EXPECT_EQ(icap->method, 1u);
    vel_icap_set_method_respmod(icap);
    EXPECT_EQ(icap->method, 2u);
    vel_icap_set_method_options(icap);
    EXPECT_EQ(icap->method, 3u);
    vel_icap_set_allow_204(icap);
    set_request("a\r\nb: c\r\n\r\n");
    EXPECT_EQ(icap->encapsulated[0].size, 11u);
    EXPECT_EQ(icap->encapsulated[0].data[11], '\0');
    EXPECT_STREQ(vel_httpheaders_get(icap->encapsulated[0].headers, "b"), "c");
    set_request_body(std::string("\0x", 2));
    EXPECT_EQ(icap->encapsulated[2].size, 2u);
    EXPECT_EQ(icap->encapsulated[2].data[2], '\0');
    EXPECT_EQ(icap->encapsulated[2].headers, nullptr);
    EXPECT_EQ(vel_icap_set_request_headers(icap, "a\nb", 3), VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(icap->encapsulated[0].headers, nullptr);
    EXPECT_STREQ(icap->encapsulated[0].data, "a\nb");
    icap->velhandle = nullptr; /* the reset would destroy it */
    vel_icap_reset(icap);
    EXPECT_EQ(icap->allow204, 1u);
    EXPECT_EQ(icap->timeoutseconds, -5);
    EXPECT_EQ(icap->method, 0u);
    for (const velicappart &part : icap->encapsulated) {
        EXPECT_EQ(part.data, nullptr);
        EXPECT_EQ(part.size, 0u);
        EXPECT_EQ(part.headers, nullptr);
    }
}

TEST_F(VelicapInternal, ResetForgetsTheLayout)
{
    icap->headeroffset = 1;
    icap->bodyoffset = 2;
    icap->hasbody = 1;
    icap->statuscode = 204;
    icap->velhandle = nullptr;
    vel_icap_reset(icap);
    EXPECT_EQ(icap->headeroffset, 0u);
    EXPECT_EQ(icap->bodyoffset, 0u);
    EXPECT_EQ(icap->hasbody, 0u);
    EXPECT_EQ(icap->rawheaderslen, 0u);
    EXPECT_EQ(icap->statuscode, 204u);
}

/* Sending. */

TEST_F(VelicapInternal, HostWithAndWithoutPort)
{
    take(4);
    EXPECT_EQ(send(3, "OPTIONS", "h", 0), VEL_ERROR_NONE);
    EXPECT_EQ(transport_->written, "OPTIONS icap://u/x ICAP/1.0\r\nHost: h\r\n"
                                   "Encapsulated: null-body=0\r\n\r\n");
    transport_->written.clear();
    vel_icap_set_allow_204(icap);
    EXPECT_EQ(send(3, "OPTIONS", "h", 65535), VEL_ERROR_NONE);
    EXPECT_EQ(transport_->written, "OPTIONS icap://u/x ICAP/1.0\r\nHost: h:65535\r\n"
                                   "Allow: 204\r\nEncapsulated: null-body=0\r\n\r\n");
}

TEST_F(VelicapInternal, NoMethodForTheRequest)
{
    EXPECT_EQ(send(0, "OPTIONS", "h", 1), VEL_ERROR_PROTOCOL);
    EXPECT_EQ(logged(), lines{said(7, "no method set for request")});
}

/* A write that ends early and leaves no error is taken up again. */
TEST_F(VelicapInternal, HeadInSeveralWrites)
{
    vel_handle_set_poll_write_callback(transport_->handle(), nullptr);
    transport_->writes = {room(5), fails_with(VEL_ERROR_WOULD_BLOCK),
                          fails_with(VEL_ERROR_WOULD_BLOCK), room(1), room(1000)};
    EXPECT_EQ(send(3, "OPTIONS", "h", 0), VEL_ERROR_NONE);
    EXPECT_EQ(transport_->written, "OPTIONS icap://u/x ICAP/1.0\r\nHost: h\r\n"
                                   "Encapsulated: null-body=0\r\n\r\n");
    EXPECT_EQ(logged(), lines());
}

/* The time to write is set once; what the head took is not missing for the parts. */
TEST_F(VelicapInternal, WriteTimeoutOfTheWholeRequest)
{
    std::vector<std::pair<int, unsigned int>> timeouts;
    for (int number = 0; number < 5; number++) {
        transport_turn turn = room(1000);
        turn.before = [&] {
            timeouts.emplace_back();
            vel_handle_get_write_timeout(transport_->handle(), &timeouts.back().first,
                                         &timeouts.back().second);
            wire.clock += 1000000;
        };
        transport_->writes.push_back(turn);
    }
    vel_timeout_set(icap->veltimeout, 10, 5);
    wire.clock += 2000000;
    set_request(kRequest);
    set_request_body("b");
    EXPECT_EQ(send(1, "REQMOD", "h", 0), VEL_ERROR_NONE);
    EXPECT_EQ(timeouts, (std::vector<std::pair<int, unsigned int>>(5, {8, 5})));
}

TEST_F(VelicapInternal, RequestWithoutTime)
{
    vel_timeout_set(icap->veltimeout, 1, 0);
    wire.clock += 1000000;
    EXPECT_EQ(send(3, "OPTIONS", "h", 0), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(logged(), lines{kTimeout});
    /* The parts are looked at first. */
    EXPECT_EQ(send(1, "REQMOD", "h", 0), VEL_ERROR_PROTOCOL);
}

TEST_F(VelicapInternal, Chunks)
{
    take(3);
    const std::string data(4096, 'x');
    EXPECT_EQ(vel_icap_send_chunk(transport_->handle(), data.data(), data.size()), VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines{said(10, "chunk len: 6")});
    EXPECT_EQ(vel_icap_send_chunk_end(transport_->handle()), VEL_ERROR_NONE);
    EXPECT_EQ(transport_->written, "1000\r\n" + data + "\r\n0\r\n\r\n");
    EXPECT_EQ(logged(), lines());
}

/* Reading. */

TEST_F(VelicapInternal, TimeLeftForEachRead)
{
    icap->method = 3;
    vel_timeout_set(icap->veltimeout, 20, 0);
    for (const char *text : {"ICAP/1.0 200 OK\r\n", "A: b\r\n", "\r\n", "head", "5\r\n", "hello",
                             "\r\n", "0\r\n", "\r\n"}) {
        transport_turn turn = bytes(text);
        turn.before = [] { wire.clock += 1000000; };
        transport_->reads.push_back(turn);
    }
    EXPECT_EQ(vel_icap_read_status_code(icap), VEL_ERROR_NONE);
    EXPECT_EQ(vel_icap_read_icap_headers(icap), VEL_ERROR_NONE);
    EXPECT_EQ(vel_icap_read_encapsulated_headers(icap, 4), VEL_ERROR_NONE);
    EXPECT_EQ(vel_icap_read_body_chunked(icap), VEL_ERROR_NONE);
    EXPECT_EQ(std::string(icap->responsedata, icap->responsedatapos), "headhello");
    /* The line behind a chunk has the time that was set for the read before it. */
    EXPECT_EQ(
        transport_->timeouts,
        (std::vector<std::pair<int, unsigned int>>{
            {20, 0}, {19, 0}, {18, 0}, {17, 0}, {16, 0}, {15, 0}, {15, 0}, {13, 0}, {13, 0}}));
}

TEST_F(VelicapInternal, EachReadNeedsTime)
{
    receive("ICAP/1.0 200 OK\r\n\r\n");
    vel_timeout_set(icap->veltimeout, 0, 0);
    for (vel_error_t (*read)(struct velicap *) :
         {vel_icap_read_status_code, vel_icap_read_icap_headers, vel_icap_read_body_chunked}) {
        EXPECT_EQ(read(icap), VEL_ERROR_TIMED_OUT);
        EXPECT_EQ(logged(), lines{kTimeout});
    }
    EXPECT_EQ(vel_icap_read_encapsulated_headers(icap, 1), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(logged(), lines{kTimeout});
    EXPECT_EQ(vel_icap_read_encapsulated_headers(icap, 0), VEL_ERROR_NONE);
    EXPECT_EQ(transport_->asked, std::vector<size_t>());
}

/* No more than the buffer is asked for, and no more than is announced. */
TEST_F(VelicapInternal, SizesOfReads)
{
    receive(std::string(5000, 'h'));
    EXPECT_EQ(vel_icap_read_encapsulated_headers(icap, 5000), VEL_ERROR_NONE);
    EXPECT_EQ(transport_->asked, (std::vector<size_t>{4096, 904}));
    EXPECT_EQ(icap->responsedatapos, 5000u);
}

TEST_F(VelicapInternal, FailedReads)
{
    const std::pair<vel_error_t (*)(struct velicap *), const char *> steps[] = {
        {vel_icap_read_status_code, "unable to read ICAP result code,"},
        {vel_icap_read_icap_headers, "unable to read ICAP headers,"},
        {vel_icap_read_body_chunked, "unable to read chunk size,"},
    };
    for (const auto &[step, text] : steps) {
        transport_->reads = {fails_with(VEL_ERROR_IO)};
        EXPECT_EQ(step(icap), VEL_ERROR_IO);
        EXPECT_EQ(logged(), lines{said_error(7, text, VEL_ERROR_IO)});
    }
    transport_->reads = {fails_with(VEL_ERROR_IO)};
    EXPECT_EQ(vel_icap_read_encapsulated_headers(icap, 4), VEL_ERROR_IO);
    EXPECT_EQ(logged(), lines{said_error(7, "unable to read encapsulated headers information,",
                                         VEL_ERROR_IO)});
    transport_->reads = {bytes("4\r\n"), bytes("ab"), fails_with(VEL_ERROR_IO)};
    EXPECT_EQ(vel_icap_read_body_chunked(icap), VEL_ERROR_IO);
    EXPECT_EQ(logged(),
              lines{said_error(7, "unable to read more body information,", VEL_ERROR_IO)});
    /* The line behind a chunk is not looked at. */
    transport_->reads = {bytes("2\r\n"), bytes("cd"), fails_with(VEL_ERROR_IO), bytes("0\r\n")};
    EXPECT_EQ(vel_icap_read_body_chunked(icap), VEL_ERROR_NONE);
    EXPECT_EQ(std::string(icap->responsedata, icap->responsedatapos), "abcd");
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelicapInternal, StoreAppends)
{
    EXPECT_EQ(vel_icap_store_in_memory(icap, "ab", 2), VEL_ERROR_NONE);
    EXPECT_EQ(vel_icap_store_in_memory(icap, "\0c", 2), VEL_ERROR_NONE);
    EXPECT_EQ(std::string(icap->responsedata, icap->responsedatapos), std::string("ab\0c", 4));
    EXPECT_EQ(icap->responsedatalen, 4u);
}

TEST_F(VelicapInternal, OtherMethods)
{
    icap->method = 4;
    EXPECT_EQ(vel_icap_get_method(icap), nullptr);
    EXPECT_EQ(logged(), lines{said(6, "INTERNAL ERROR: Unrecognized method 4")});
    const char *names[] = {"REQMOD", "RESPMOD", "OPTIONS"};
    for (uint32_t method = 1; method <= 3; method++) {
        icap->method = method;
        EXPECT_STREQ(vel_icap_get_method(icap), names[method - 1]);
    }
}

/* Parts by themselves. */

TEST_F(VelicapInternal, PartWithoutHeaders)
{
    velicappart part = {};
    int value = 77;
    EXPECT_EQ(vel_icap_http_part_has_chunked_transfer(&part, &value), VEL_ERROR_NONE);
    EXPECT_EQ(value, 0);
    set_response(kChunkedResponse);
    EXPECT_EQ(vel_icap_http_part_has_chunked_transfer(&icap->encapsulated[1], &value),
              VEL_ERROR_NONE);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(logged(), lines{kEncoded});
}

/* The escaped path. */

struct escape_case {
    const char *name;
    const char *text;
    vel_error_t result;  /* with enough room */
    std::string decoded; /* what has been written, without the NUL of a success */
    const char *line = nullptr;
};

static void PrintTo(const escape_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelicapEscape : public Velicap, public testing::WithParamInterface<escape_case> {};

TEST_P(VelicapEscape, WithAnyRoom)
{
    const escape_case &row = GetParam();
    const bool good = row.result == VEL_ERROR_NONE;
    const std::string whole = row.decoded + (good ? std::string(1, '\0') : "");
    for (uint64_t capacity = 0; capacity <= whole.size() + 2; capacity++) {
        /* Of just the room, so that a byte too many is found. */
        std::vector<char> dest(capacity);
        uint64_t length = capacity;
        EXPECT_EQ(vel_icap_unescape_buffer(capacity ? dest.data() : nullptr, &length, row.text),
                  good && capacity < whole.size() ? VEL_ERROR_INCOMPLETE : row.result);
        EXPECT_EQ(length, whole.size());
        const size_t written = std::min<size_t>(capacity, whole.size());
        EXPECT_EQ(std::string(dest.data(), written), whole.substr(0, written));
        EXPECT_EQ(logged(), row.line ? lines{said(6, row.line)} : lines());
    }
}

TEST_P(VelicapEscape, IntoAString)
{
    const escape_case &row = GetParam();
    char dirt = 0, *dest = &dirt;
    EXPECT_EQ(vel_icap_unescape_socket_path(&dest, row.text), row.result);
    EXPECT_STREQ(dest, row.result ? nullptr : row.decoded.c_str());
    vel_free(dest);
    EXPECT_EQ(logged(), row.line ? lines{said(6, row.line)} : lines());
}

static const vel_error_t kSyntax = VEL_ERROR_INVALID_SYNTAX;
static const escape_case kEscapeCases[] = {
    {"Empty", "", VEL_ERROR_NONE, ""},
    {"Plain", "/run/svc.sock", VEL_ERROR_NONE, "/run/svc.sock"},
    {"Escaped", "%2Frun%2fsvc%2Esock", VEL_ERROR_NONE, "/run/svc.sock"},
    {"AllDigits", "%01%23%45%67%89%ab%cd%ef%AB%CD%EF", VEL_ERROR_NONE,
     "\x01\x23\x45\x67\x89\xab\xcd\xef\xab\xcd\xef"},
    {"PlusIsPlus", "a+b", VEL_ERROR_NONE, "a+b"},
    {"Percent", "%25zz", VEL_ERROR_NONE, "%zz"},
    {"Nul", "ab%00cd", VEL_ERROR_NONE, "ab"},
    {"NulHidesWhatFollows", "%00%zz", VEL_ERROR_NONE, ""},
    {"HighBytes", "\xc3\xa4%ff", VEL_ERROR_NONE, "\xc3\xa4\xff"},
    {"BadFirstDigit", "ab%zz", kSyntax, "ab", "invalid character 'z' in percent encoding"},
    {"BadSecondDigit", "%4G", kSyntax, "", "invalid character 'G' in percent encoding"},
    {"BelowTheDigits", "%/0", kSyntax, "", "invalid character '/' in percent encoding"},
    {"AboveTheDigits", "%0:", kSyntax, "", "invalid character ':' in percent encoding"},
    {"BelowTheLetters", "%@0", kSyntax, "", "invalid character '@' in percent encoding"},
    {"BelowTheSmallLetters", "%0`", kSyntax, "", "invalid character '`' in percent encoding"},
    {"Sign", "%+1", kSyntax, "", "invalid character '+' in percent encoding"},
    {"PercentAgain", "a%%", kSyntax, "a", "invalid character '%' in percent encoding"},
};
INSTANTIATE_TEST_SUITE_P(Table, VelicapEscape, testing::ValuesIn(kEscapeCases),
                         support::row_name());

TEST_F(VelicapInternal, EscapesThatAreCutOff)
{
    for (const char *text : {"a%", "a%2"}) {
        uint64_t length = 0;
        EXPECT_EQ(vel_icap_unescape_buffer(nullptr, &length, text), VEL_ERROR_INVALID_SYNTAX);
        EXPECT_EQ(length, 1u);
        EXPECT_EQ(logged(),
                  lines{said(6, std::string("invalid character '\0' in percent encoding", 41))});
    }
}

/* Assertions. */

using VelicapInternalDeathTest = VelicapInternal;

TEST_F(VelicapInternalDeathTest, Sending)
{
    EXPECT_DEATH((void)vel_icap_send_request(nullptr, "OPTIONS", "u", "h", 1),
                 asserts("velicap != NULL", "vel_icap_send_request"));
    EXPECT_DEATH((void)vel_icap_send_request(icap, "OPTIONS", nullptr, "h", 1),
                 asserts("url != NULL", "vel_icap_send_request"));
    EXPECT_DEATH((void)vel_icap_send_request(icap, "OPTIONS", "u", nullptr, 1),
                 asserts("host != NULL", "vel_icap_send_request"));
    EXPECT_DEATH((void)vel_icap_send_request(icap, "OPTIONS", "u", "h", 65536),
                 asserts("port <= 65535", "vel_icap_send_request"));
    EXPECT_DEATH(
        (void)vel_icap_send_encapsulated_part(icap, 4),
        asserts("i < VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES", "vel_icap_send_encapsulated_part"));
    EXPECT_DEATH((void)vel_icap_send_chunk(nullptr, "x", 1),
                 asserts("handle != NULL", "vel_icap_send_chunk"));
    EXPECT_DEATH((void)vel_icap_send_chunk(icap->velhandle, nullptr, 1),
                 asserts("chunkdata != NULL", "vel_icap_send_chunk"));
    EXPECT_DEATH((void)vel_icap_send_chunk(icap->velhandle, "x", 0),
                 asserts("chunklen > 0", "vel_icap_send_chunk"));
    icap->velhandle = nullptr;
    EXPECT_DEATH((void)vel_icap_send_request(icap, "OPTIONS", "u", "h", 1),
                 asserts("velicap->velhandle != NULL", "vel_icap_send_request"));
}

TEST_F(VelicapInternalDeathTest, Connecting)
{
    EXPECT_DEATH((void)vel_icap_connect_tcp(nullptr, "h", 1),
                 asserts("velicap != NULL", "vel_icap_connect_tcp"));
    EXPECT_DEATH((void)vel_icap_connect_tcp(icap, nullptr, 1),
                 asserts("host != NULL", "vel_icap_connect_tcp"));
    EXPECT_DEATH((void)vel_icap_connect_tcp(icap, "h", 0),
                 asserts("port > 0", "vel_icap_connect_tcp"));
    EXPECT_DEATH((void)vel_icap_connect_tcp(icap, "h", 65536),
                 asserts("port < 65536", "vel_icap_connect_tcp"));
    uint64_t length = 1;
    EXPECT_DEATH((void)vel_icap_unescape_buffer(nullptr, &length, "x"),
                 asserts("dest != NULL || *destlenptr == 0", "vel_icap_unescape_buffer"));
}

TEST_F(VelicapInternalDeathTest, Reading)
{
    EXPECT_DEATH((void)vel_icap_read_status_code(nullptr),
                 asserts("velicap != NULL", "vel_icap_read_status_code"));
    EXPECT_DEATH((void)vel_icap_read_icap_headers(nullptr),
                 asserts("velicap != NULL", "vel_icap_read_icap_headers"));
    EXPECT_DEATH((void)vel_icap_read_encapsulated_headers(nullptr, 0),
                 asserts("velicap != NULL", "vel_icap_read_encapsulated_headers"));
    EXPECT_DEATH((void)vel_icap_read_body_chunked(nullptr),
                 asserts("velicap != NULL", "vel_icap_read_body_chunked"));
    EXPECT_DEATH((void)vel_icap_store_in_memory(nullptr, "x", 1),
                 asserts("velicap != NULL", "vel_icap_store_in_memory"));
    EXPECT_DEATH(
        {
            icap->responseheader = icap->buffer;
            (void)vel_icap_read_encapsulated_headers(icap, 0);
        },
        asserts("velicap->responseheader == NULL", "vel_icap_read_encapsulated_headers"));
    EXPECT_DEATH(
        {
            icap->veltimeout = nullptr;
            (void)vel_icap_timeout_check(icap, nullptr, nullptr);
        },
        asserts("velicap->veltimeout", "vel_icap_timeout_check"));
}
