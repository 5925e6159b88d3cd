/* What the client sends, and what becomes of sends that fail. */

#include "support/icap.h"

/* A source of a request body, of the given pieces. */
struct body_source {
    std::deque<std::string> pieces;
    std::vector<size_t> asked;

    static size_t callback(void *buffer, size_t size, void *context)
    {
        auto *self = static_cast<body_source *>(context);
        self->asked.push_back(size);
        if (self->pieces.empty())
            return 0;
        const std::string piece = self->pieces.front();
        self->pieces.pop_front();
        piece.copy(static_cast<char *>(buffer), size);
        return piece.size();
    }
};

struct request_case {
    const char *name;
    const char *method;
    std::string request;
    std::string response;
    std::string requestbody;
    std::string responsebody;
    const char *encapsulated; /* REQ, RES and BOTH stand for the length of the headers */
    std::string parts;        /* what follows the head */
    lines logged = {};
};

static void PrintTo(const request_case &one, std::ostream *out)
{
    *out << one.name;
}

static const support::log_line kChunkLine4 = said(10, "chunk len: 4");
static const std::string kBody = "abcdefghijklmnopqrstuvwxyz";
static const std::string kFramed = "1a\r\n" + kBody + "\r\n0\r\n\r\n";
static const std::string kBytes("\0\r\n\r\n\xff", 6);
static const std::string kReady = "2\r\nab\r\n0\r\n\r\n";
static const std::string kPage(4096, 'p');

static std::string with_sizes(std::string text, const request_case &row)
{
    const std::pair<std::string, size_t> sizes[] = {
        {"BOTH", row.request.size() + row.response.size()},
        {"REQ", row.request.size()},
        {"RES", row.response.size()}};
    for (const auto &[word, size] : sizes) {
        for (size_t at; (at = text.find(word)) != text.npos;)
            text.replace(at, word.size(), std::to_string(size));
    }
    return text;
}

class VelicapRequest : public Velicap,
                       public testing::WithParamInterface<std::tuple<bool, request_case>> {
  protected:
    void prepare(const request_case &row)
    {
        const std::string method = row.method;
        if (method == "REQMOD")
            vel_icap_set_method_reqmod(icap);
        else if (method == "RESPMOD")
            vel_icap_set_method_respmod(icap);
        else
            vel_icap_set_method_options(icap);
        if (!row.request.empty())
            set_request(row.request);
        if (!row.response.empty())
            set_response(row.response);
        if (!row.requestbody.empty())
            set_request_body(row.requestbody);
        if (!row.responsebody.empty())
            set_response_body(row.responsebody);
    }

    /* Sends the message of a row, and compares what arrives. The answer tells of no body, so that
     * only sending looks at the encoding. */
    void check(const request_case &row, const std::function<void()> &prepares)
    {
        const bool local = std::get<0>(GetParam());
        icap_server server(local,
                           {{"ICAP/1.0 204 No\r\n\r\n", http_ending::close, row.parts.size()}});
        prepares();
        EXPECT_EQ(exchange(server), VEL_ERROR_NONE);
        EXPECT_EQ(server.finish(), texts{server.head(row.method, "/svc",
                                                     with_sizes(row.encapsulated, row), allow204_) +
                                         row.parts});
        EXPECT_EQ(logged(), joined({row.logged, {said_status(204)}}));
    }

    bool allow204_ = false;
};

TEST_P(VelicapRequest, Bytes)
{
    const request_case &row = std::get<1>(GetParam());
    for (const bool allow : {false, true}) {
        /* Once set it stays. */
        if (allow)
            vel_icap_set_allow_204(icap);
        allow204_ = allow;
        for (const size_t limit : {SIZE_MAX, size_t(1)}) {
            wire.sendlimit = row.parts.size() > 100000 ? SIZE_MAX : limit;
            check(row, [&] { prepare(row); });
            vel_icap_reset(icap);
        }
    }
}

static const request_case kRequestCases[] = {
    {"Options", "OPTIONS", "", "", "", "", "null-body=0", ""},
    {"Reqmod", "REQMOD", kRequest, "", "", "", "req-hdr=0, null-body=REQ", kRequest},
    {"ReqmodBody",
     "REQMOD",
     kRequest,
     "",
     kBody,
     "",
     "req-hdr=0, req-body=REQ",
     kRequest + kFramed,
     {kChunkLine4}},
    {"ReqmodByte",
     "REQMOD",
     kRequest,
     "",
     "x",
     "",
     "req-hdr=0, req-body=REQ",
     kRequest + "1\r\nx\r\n0\r\n\r\n",
     {said(10, "chunk len: 3")}},
    {"ReqmodBytes",
     "REQMOD",
     kRequest,
     "",
     kBytes,
     "",
     "req-hdr=0, req-body=REQ",
     kRequest + "6\r\n" + kBytes + "\r\n0\r\n\r\n",
     {said(10, "chunk len: 3")}},
    {"ReqmodPage",
     "REQMOD",
     kRequest,
     "",
     kPage,
     "",
     "req-hdr=0, req-body=REQ",
     kRequest + "1000\r\n" + kPage + "\r\n0\r\n\r\n",
     {said(10, "chunk len: 6")}},
    {"ReqmodLargeBodyIsOneChunk",
     "REQMOD",
     kRequest,
     "",
     std::string(300000, 'x'),
     "",
     "req-hdr=0, req-body=REQ",
     kRequest + "493e0\r\n" + std::string(300000, 'x') + "\r\n0\r\n\r\n",
     {said(10, "chunk len: 7")}},
    {"ReqmodChunkedAlready",
     "REQMOD",
     kChunkedRequest,
     "",
     kReady,
     "",
     "req-hdr=0, req-body=REQ",
     kChunkedRequest + kReady,
     {kEncoded}},
    {"ReqmodChunkedInNameOnly",
     "REQMOD",
     kChunkedRequest,
     "",
     "ab",
     "",
     "req-hdr=0, req-body=REQ",
     kChunkedRequest + "ab",
     {kEncoded}},
    {"ReqmodChunkedWithoutBody", "REQMOD", kChunkedRequest, "", "", "", "req-hdr=0, null-body=REQ",
     kChunkedRequest},
    {"ReqmodHeadersAreNotLookedAt",
     "REQMOD",
     "x",
     "",
     kBody,
     "",
     "req-hdr=0, req-body=REQ",
     "x" + kFramed,
     {kChunkLine4}},
    {"RespmodWithoutBodies", "RESPMOD", "", kResponse, "", "", "res-hdr=0, null-body=RES",
     kResponse},
    {"RespmodBothHeaders", "RESPMOD", kRequest, kResponse, "", "",
     "req-hdr=0, res-hdr=REQ, null-body=BOTH", kRequest + kResponse},
    {"RespmodBody",
     "RESPMOD",
     "",
     kResponse,
     "",
     kBody,
     "res-hdr=0, res-body=RES",
     kResponse + kFramed,
     {kChunkLine4}},
    {"RespmodAll",
     "RESPMOD",
     kRequest,
     kResponse,
     "",
     kBody,
     "req-hdr=0, res-hdr=REQ, res-body=BOTH",
     kRequest + kResponse + kFramed,
     {kChunkLine4}},
    {"RespmodChunkedAlready",
     "RESPMOD",
     kRequest,
     kChunkedResponse,
     "",
     kReady,
     "req-hdr=0, res-hdr=REQ, res-body=BOTH",
     kRequest + kChunkedResponse + kReady,
     {kEncoded}},
    {"RespmodChunkedRequestDoesNotCount",
     "RESPMOD",
     kChunkedRequest,
     kResponse,
     "",
     kBody,
     "req-hdr=0, res-hdr=REQ, res-body=BOTH",
     kChunkedRequest + kResponse + kFramed,
     {kChunkLine4}},
};

struct transport_row_name {
    template <typename Row> std::string operator()(const testing::TestParamInfo<Row> &info) const
    {
        return std::string(std::get<0>(info.param) ? "Unix" : "Tcp") + std::get<1>(info.param).name;
    }
};
INSTANTIATE_TEST_SUITE_P(Table, VelicapRequest,
                         testing::Combine(testing::Bool(), testing::ValuesIn(kRequestCases)),
                         transport_row_name());

/* Bodies of a callback. */

struct callback_case {
    const char *name;
    bool respmod;
    std::string request;
    std::deque<std::string> pieces;
    const char *encapsulated;
    std::string parts;
    lines logged;
};

static void PrintTo(const callback_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelicapCallback : public Velicap,
                        public testing::WithParamInterface<std::tuple<bool, callback_case>> {};

TEST_P(VelicapCallback, Bytes)
{
    const auto &[local, row] = GetParam();
    body_source source{row.pieces, {}};
    icap_server server(local, {{"ICAP/1.0 204 No\r\n\r\n", http_ending::close, row.parts.size()}});
    const request_case sizes = {"", "", row.request, row.respmod ? kResponse : "", "", "", "", ""};
    if (row.respmod) {
        vel_icap_set_method_respmod(icap);
        set_response(kResponse);
    } else {
        vel_icap_set_method_reqmod(icap);
    }
    if (!row.request.empty())
        set_request(row.request);
    vel_icap_set_request_body_callback(icap, body_source::callback, &source);
    EXPECT_EQ(exchange(server), VEL_ERROR_NONE);
    EXPECT_EQ(server.finish(), texts{server.head(row.respmod ? "RESPMOD" : "REQMOD", "/svc",
                                                 with_sizes(row.encapsulated, sizes)) +
                                     row.parts});
    EXPECT_EQ(logged(),
              joined({{said(7, "call request body callback")}, row.logged, {said_status(204)}}));
    EXPECT_EQ(source.asked, std::vector<size_t>(row.pieces.size() + 1, 4096));
}

static const support::log_line kChunkLine6 = said(10, "chunk len: 6");

static const callback_case kCallbackCases[] = {
    {"NoBuffer", false, kRequest, {}, "req-hdr=0, req-body=REQ", kRequest + "\r\n0\r\n\r\n", {}},
    {"OneBuffer",
     false,
     kRequest,
     {kBody},
     "req-hdr=0, req-body=REQ",
     kRequest + kFramed,
     {kChunkLine4}},
    /* Nothing ends a chunk but the end of the body. */
    {"TwoFullBuffers",
     false,
     kRequest,
     {kPage, kPage},
     "req-hdr=0, req-body=REQ",
     kRequest + "1000\r\n" + kPage + "1000\r\n" + kPage + "\r\n0\r\n\r\n",
     {kChunkLine6, kChunkLine6}},
    {"ThreeBuffers",
     false,
     kRequest,
     {"a", kBody, "b"},
     "req-hdr=0, req-body=REQ",
     kRequest + "1\r\na1a\r\n" + kBody + "1\r\nb\r\n0\r\n\r\n",
     {said(10, "chunk len: 3"), kChunkLine4, said(10, "chunk len: 3")}},
    {"ChunkedAlready",
     false,
     kChunkedRequest,
     {"2\r\na", "b\r\n0\r\n", "\r\n"},
     "req-hdr=0, req-body=REQ",
     kChunkedRequest + kReady,
     {kEncoded}},
    {"ChunkedAlreadyNoBuffer",
     false,
     kChunkedRequest,
     {},
     "req-hdr=0, req-body=REQ",
     kChunkedRequest,
     {kEncoded}},
    {"Respmod",
     true,
     kRequest,
     {kBody},
     "req-hdr=0, res-hdr=REQ, res-body=BOTH",
     kRequest + kResponse + kFramed,
     {kChunkLine4}},
    {"RespmodAlone",
     true,
     "",
     {kBody},
     "res-hdr=0, res-body=RES",
     kResponse + kFramed,
     {kChunkLine4}},
    /* The body is sent in the place of one of the request, whose headers tell. */
    {"RespmodOfAChunkedRequest",
     true,
     kChunkedRequest,
     {kReady},
     "req-hdr=0, res-hdr=REQ, res-body=BOTH",
     kChunkedRequest + kResponse + kReady,
     {kEncoded}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelicapCallback,
                         testing::Combine(testing::Bool(), testing::ValuesIn(kCallbackCases)),
                         transport_row_name());

class VelicapSend : public VelicapBoth {
  protected:
    static http_exchange no_content(const std::string &parts)
    {
        return {"ICAP/1.0 204 No\r\n\r\n", http_ending::close, parts.size()};
    }
};
INSTANTIATE_TEST_SUITE_P(Transport, VelicapSend, testing::Bool(), transport_name());

TEST_P(VelicapSend, CallbackComesBeforeAStoredBody)
{
    icap_server server(GetParam(), {no_content(kRequest + kFramed)});
    body_source source{{kBody}, {}};
    vel_icap_set_method_reqmod(icap);
    set_request(kRequest);
    set_request_body("stored");
    vel_icap_set_request_body_callback(icap, body_source::callback, &source);
    EXPECT_EQ(exchange(server), VEL_ERROR_NONE);
    EXPECT_EQ(server.finish(),
              texts{server.head("REQMOD", "/svc",
                                "req-hdr=0, req-body=" + std::to_string(kRequest.size())) +
                    kRequest + kFramed});
}

/* With a stored response body both go out, and nothing says so. */
TEST_P(VelicapSend, CallbackBesideAStoredResponseBody)
{
    const std::string parts = kResponse + kFramed + "2\r\nno\r\n0\r\n\r\n";
    icap_server server(GetParam(), {no_content(parts)});
    body_source source{{kBody}, {}};
    vel_icap_set_method_respmod(icap);
    set_response(kResponse);
    set_response_body("no");
    vel_icap_set_request_body_callback(icap, body_source::callback, &source);
    EXPECT_EQ(exchange(server), VEL_ERROR_NONE);
    EXPECT_EQ(server.finish(),
              texts{server.head("RESPMOD", "/svc",
                                "res-hdr=0, res-body=" + std::to_string(kResponse.size())) +
                    parts});
}

/* A callback belongs to one exchange, and OPTIONS sends its body unannounced. */
TEST_P(VelicapSend, CallbackWithOptions)
{
    icap_server server(GetParam(), {no_content(kFramed), no_content("")});
    body_source source{{kBody}, {}};
    vel_icap_set_method_options(icap);
    vel_icap_set_request_body_callback(icap, body_source::callback, &source);
    EXPECT_EQ(exchange(server), VEL_ERROR_NONE);
    vel_icap_set_method_options(icap);
    EXPECT_EQ(exchange(server), VEL_ERROR_NONE);
    const std::string head = server.head("OPTIONS", "/svc", "null-body=0");
    EXPECT_EQ(server.finish(), (texts{head + kFramed, head}));
    EXPECT_EQ(source.asked.size(), 2u);
}

TEST_P(VelicapSend, PartsAreForOneExchange)
{
    icap_server server(GetParam(), {no_content(kRequest), no_content("")});
    vel_icap_set_method_reqmod(icap);
    set_request(kRequest);
    EXPECT_EQ(exchange(server), VEL_ERROR_NONE);
    EXPECT_STREQ(vel_icap_build_encapsulated_header(icap), "null-body=0");
    vel_icap_set_method_options(icap);
    EXPECT_EQ(exchange(server), VEL_ERROR_NONE);
    EXPECT_EQ(server.finish()[1], server.head("OPTIONS", "/svc", "null-body=0"));
}

/* The local part of the URL goes out as it is written. */
TEST_P(VelicapSend, LocalParts)
{
    for (const std::string service : {"/", "/a/b?c=d&e", "/a;b#c", "/%41 x"}) {
        icap_server server(GetParam(), {no_content("")});
        vel_icap_set_method_options(icap);
        EXPECT_EQ(vel_icap_set_url(icap, server.url(service).c_str()), VEL_ERROR_NONE);
        EXPECT_EQ(vel_icap_perform(icap), VEL_ERROR_NONE);
        EXPECT_EQ(server.finish(), texts{server.head("OPTIONS", service, "null-body=0")});
    }
}

/* Sets of parts that do not fit the method cost a connection, and nothing is sent. */
TEST_P(VelicapSend, InvalidSetsOfParts)
{
    struct parts_row {
        void (*method)(velicap *);
        const char *kinds; /* digits */
    };
    const support::log_line reqmod = said(7, "invalid set of encapsulated parts for REQMOD");
    const support::log_line respmod = said(7, "invalid set of encapsulated parts for RESPMOD");
    const support::log_line options = said(7, "no encapsulated parts allowed for OPTIONS");
    const std::pair<parts_row, support::log_line> rows[] = {
        {{vel_icap_set_method_reqmod, ""}, reqmod},
        {{vel_icap_set_method_reqmod, "2"}, reqmod},
        {{vel_icap_set_method_reqmod, "1"}, reqmod},
        {{vel_icap_set_method_reqmod, "01"}, reqmod},
        {{vel_icap_set_method_reqmod, "03"}, reqmod},
        {{vel_icap_set_method_reqmod, "012"}, reqmod},
        {{vel_icap_set_method_respmod, ""}, respmod},
        {{vel_icap_set_method_respmod, "0"}, respmod},
        {{vel_icap_set_method_respmod, "3"}, respmod},
        {{vel_icap_set_method_respmod, "03"}, respmod},
        {{vel_icap_set_method_respmod, "12"}, respmod},
        {{vel_icap_set_method_respmod, "012"}, respmod},
        {{vel_icap_set_method_options, "0"}, options},
        {{vel_icap_set_method_options, "1"}, options},
        {{vel_icap_set_method_options, "2"}, options},
        {{vel_icap_set_method_options, "3"}, options},
    };
    for (const auto &[row, line] : rows) {
        icap_server server(GetParam(), {{"", http_ending::close}});
        const std::string kinds = row.kinds;
        row.method(icap);
        if (kinds.find('0') != kinds.npos)
            set_request(kRequest);
        if (kinds.find('1') != kinds.npos)
            set_response(kResponse);
        if (kinds.find('2') != kinds.npos)
            set_request_body("b");
        if (kinds.find('3') != kinds.npos)
            set_response_body("b");
        EXPECT_EQ(exchange(server), VEL_ERROR_PROTOCOL) << kinds;
        EXPECT_EQ(logged(), lines{line}) << kinds;
        EXPECT_EQ(server.finish(), texts{""}) << kinds;
    }
}

/* Each place where sending may fail: at once, and in the middle. */

TEST_P(VelicapSend, EachSendFails)
{
    const support::log_line part = said_error(7, "unable to send encapsulated part,", 104);
    const support::log_line chunk = said_error(7, "unable to send chunk,", 104);
    const support::log_line end = said_error(7, "unable to send the chunk end,", 104);
    const std::vector<lines> expected = {
        {}, /* of the head, below */
        {part},
        {part},
        {kChunkLine4, said_error(7, "unable to send chunk length,", 104), chunk},
        {kChunkLine4, said_error(7, "unable to send chunk data,", 104), chunk},
        {kChunkLine4, end, end},
    };
    for (size_t number = 0; number < expected.size(); number++) {
        icap_server server(GetParam(), {{"", http_ending::hold, 10000}});
        wire.turns["send"] = after(number, {fails(ECONNRESET)});
        vel_icap_set_method_respmod(icap);
        set_request(kRequest);
        set_response(kResponse);
        set_response_body(kBody);
        EXPECT_EQ(exchange(server), VEL_ERROR_CONNECTION_RESET);
        const std::string head =
            server.head("RESPMOD", "/svc",
                        "req-hdr=0, res-hdr=" + std::to_string(kRequest.size()) +
                            ", res-body=" + std::to_string(kRequest.size() + kResponse.size()));
        const lines own = number > 0
                              ? expected[number]
                              : lines{said(7, "short write, 0/" + std::to_string(head.size()) +
                                                  " bytes written")};
        lines all = logged();
        if (GetParam()) {
            ASSERT_FALSE(all.empty());
            const auto at =
                std::find(all.begin(), all.end(), said(7, "unable to write to socket, error 104"));
            ASSERT_NE(at, all.end());
            all.erase(at);
        }
        EXPECT_EQ(all, own);
        const texts got = server.finish();
        ASSERT_EQ(got.size(), 1u);
        const std::string whole = head + kRequest + kResponse + kFramed;
        EXPECT_TRUE(whole.starts_with(got[0]) && got[0].size() < whole.size());
    }
}

TEST_P(VelicapSend, HeadIsCutShort)
{
    icap_server server(GetParam(), {{"", http_ending::hold}});
    wire.sendlimit = 10;
    wire.turns["send"] = after(2, {fails(ECONNRESET)});
    vel_icap_set_method_options(icap);
    EXPECT_EQ(exchange(server), VEL_ERROR_CONNECTION_RESET);
    const std::string head = server.head("OPTIONS", "/svc", "null-body=0");
    EXPECT_EQ(logged().back(),
              said(7, "short write, 20/" + std::to_string(head.size()) + " bytes written"));
    EXPECT_EQ(server.finish(), texts{head.substr(0, 20)});
}

TEST_P(VelicapSend, EachSendOfACallbackFails)
{
    const support::log_line callback = said(7, "call request body callback");
    const support::log_line part = said_error(7, "unable to send encapsulated part,", 104);
    const support::log_line end = said_error(7, "unable to send the chunk end,", 104);
    const support::log_line len = said_error(7, "unable to send chunk length,", 104);
    const support::log_line data = said_error(7, "unable to send chunk data,", 104);
    const std::vector<lines> chunked = {{callback, kChunkLine4, len, part},
                                        {callback, kChunkLine4, data, part},
                                        {callback, kChunkLine4, kChunkLine4, len, part},
                                        {callback, kChunkLine4, kChunkLine4, data, part},
                                        {callback, kChunkLine4, kChunkLine4, end, end}};
    const std::vector<lines> raw = {{callback, kEncoded, part}, {callback, kEncoded, part}};
    for (const bool encoded : {false, true}) {
        const std::vector<lines> &expected = encoded ? raw : chunked;
        for (size_t number = 0; number < expected.size(); number++) {
            icap_server server(GetParam(), {{"", http_ending::hold, 10000}});
            body_source source{{kBody, kBody}, {}};
            wire.turns["send"] = after(2 + number, {fails(ECONNRESET)});
            vel_icap_set_method_reqmod(icap);
            set_request(encoded ? kChunkedRequest : kRequest);
            vel_icap_set_request_body_callback(icap, body_source::callback, &source);
            EXPECT_EQ(exchange(server), VEL_ERROR_CONNECTION_RESET);
            lines all = logged();
            std::erase(all, said(7, "unable to write to socket, error 104"));
            EXPECT_EQ(all, expected[number]) << encoded << number;
        }
    }
}

TEST_P(VelicapSend, RawBodyFails)
{
    icap_server server(GetParam(), {{"", http_ending::hold, 10000}});
    wire.turns["send"] = after(2, {fails(ECONNRESET)});
    vel_icap_set_method_reqmod(icap);
    set_request(kChunkedRequest);
    set_request_body(kReady);
    EXPECT_EQ(exchange(server), VEL_ERROR_CONNECTION_RESET);
    lines all = logged();
    std::erase(all, said(7, "unable to write to socket, error 104"));
    EXPECT_EQ(all, (lines{kEncoded, said_error(7, "unable to send encapsulated part,", 104)}));
}

/* Assertions. */

class VelicapSendDeathTest : public VelicapBoth {};
INSTANTIATE_TEST_SUITE_P(Transport, VelicapSendDeathTest, testing::Bool(), transport_name());

static void send_empty_body(velicap *icap, const std::string &url, const std::string &headers)
{
    vel_icap_set_method_reqmod(icap);
    (void)vel_icap_set_request_headers(icap, headers.data(), headers.size());
    (void)vel_icap_set_request_body(icap, "", 0);
    (void)vel_icap_set_url(icap, url.c_str());
    (void)vel_icap_perform(icap);
}

TEST_P(VelicapSendDeathTest, EmptyBodyInChunks)
{
    icap_server server(GetParam(), {{"ICAP/1.0 204 No\r\n\r\n", http_ending::close}}, true);
    EXPECT_DEATH(send_empty_body(icap, server.url("/svc"), kRequest),
                 asserts("chunklen > 0", "vel_icap_send_chunk"));
    /* Raw it is no bytes at all. */
    send_empty_body(icap, server.url("/svc"), kChunkedRequest);
    EXPECT_EQ(vel_icap_get_status_code(icap), 204u);
}

TEST_P(VelicapSendDeathTest, BothBodies)
{
    /* What the check of the method refuses first does not get there. */
    icap_server server(GetParam(), {{"", http_ending::close}}, true);
    vel_icap_set_method_respmod(icap);
    set_response(kResponse);
    set_request_body("a");
    set_response_body("b");
    EXPECT_EQ(exchange(server), VEL_ERROR_PROTOCOL);
}
