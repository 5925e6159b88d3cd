#include "support/httplite.h"

#include "support/eachfailure.h"
#include "support/rows.h"

/* Life. */

TEST_F(VelhttpLite, CreateLogsNothing)
{
    EXPECT_EQ(logged(), lines());
    EXPECT_NE(vel_http_get_context(http), nullptr);
}

TEST_F(VelhttpLite, CreateWithoutMemory)
{
    const support::log_line last = lite(7, "unable to create generic velhttp context");
    const auto failures = support::each_failure(log, "net/velhttp", [] {
        velhttp *created = vel_http_lite_create();
        if (created)
            vel_http_destroy(created);
        return created != nullptr;
    });
    ASSERT_EQ(failures.size(), 10u);
    EXPECT_EQ(failures[0], (lines{front(7, "not enough memory for the velhttp context"), last}));
    for (size_t number = 0; number < 8; number++)
        EXPECT_EQ(failures[number].back(), last);
    EXPECT_EQ(failures[8], lines{lite(7, "not enough memory for velhttp lite context")});
    EXPECT_EQ(failures[9], lines{lite(7, "not enough memory for receive buffer (4096 bytes)")});
}

TEST_F(VelhttpLite, NoUrl)
{
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(logged(), lines{lite(6, "no URL set")});
}

TEST_F(VelhttpLite, UrlWithoutMemoryIsNone)
{
    EXPECT_EQ(vel_http_set_url(http, "http://h/"), VEL_ERROR_NONE);
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_http_set_url(http, "http://other/"), VEL_ERROR_NO_MEMORY);
    }
    EXPECT_EQ(logged(), lines());
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(logged(), lines{lite(6, "no URL set")});
}

TEST_F(VelhttpLite, UrlIsKeptThoughTheFrontRefusesIt)
{
    EXPECT_EQ(vel_http_set_url(http, "x:/y"), VEL_ERROR_INVALID_ARGUMENT);
    logged();
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(logged(), lines{lite_error(7, "parsing URL 'x:/y' failed", 22)});
}

TEST_F(VelhttpLite, UnparsableUrl)
{
    EXPECT_EQ(fetch("http://a:b:c/"), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(logged(), lines{lite_error(7, "parsing URL 'http://a:b:c/' failed", 22)});
}

TEST_F(VelhttpLite, OtherSchemesAreRefusedWithoutConnecting)
{
    http_server server({{http_answer("200 OK", "", "")}});
    for (const bool proxied : {false, true}) {
        if (proxied) {
            EXPECT_EQ(vel_http_set_proxy(http, "127.0.0.1", server.port()), VEL_ERROR_NONE);
        }
        for (const std::string scheme : {"https", "HTTP", "ftp", "httpx", "htt", ""}) {
            const std::string url = scheme + "://127.0.0.1:" + std::to_string(server.port()) + "/";
            EXPECT_EQ(fetch(url), VEL_ERROR_UNSUPPORTED) << url;
            EXPECT_EQ(logged(), lines{lite(6, "the URL '" + url + "' must start with http://")});
        }
    }
    EXPECT_EQ(server.finish(), names());
}

TEST_F(VelhttpLite, AsynchronousTransfersAreNot)
{
    const auto done = [](velhttp *, vel_error_t, void *) {};
    vel_error_t result = VEL_ERROR_NONE;
    EXPECT_EQ(vel_http_perform_async(http, done, nullptr, &result), nullptr);
    EXPECT_EQ(result, VEL_ERROR_UNSUPPORTED);
}

TEST_F(VelhttpLite, ResetKeepsTheUrl)
{
    http_server server({{http_answer("200 OK", "", "one")}, {http_answer("201 OK", "", "two")}});
    EXPECT_EQ(fetch(server.url("/a")), VEL_ERROR_NONE);
    EXPECT_EQ(body(), "one");
    EXPECT_EQ(vel_http_reset(http), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(body(), "two");
    EXPECT_EQ(vel_http_get_status_code(http), 201u);
    const std::string expected =
        "GET /a HTTP/1.0\r\nHost: 127.0.0.1:" + std::to_string(server.port()) + "\r\n\r\n";
    EXPECT_EQ(server.finish(), names(2, expected));
}

TEST_F(VelhttpLite, AbortedBeforeItStarts)
{
    http_server server({{http_answer("200 OK", "", "")}, {http_answer("200 OK", "", "")}});
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_NONE);
    logged();
    vel_http_abort(http);
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_CANCELED);
    EXPECT_EQ(logged(), (lines{kAborting, kAborted}));
    EXPECT_EQ(server.finish().size(), 1u) << "nothing was connected";
}

TEST_F(VelhttpLite, EachTransferConnects)
{
    http_server server(
        {{http_answer("200 OK", "Content-Length: 3\r\n", "one"), http_ending::hold},
         {http_answer("200 OK", "Content-Length: 3\r\n", "two"), http_ending::hold}});
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(body(), "two");
    EXPECT_EQ(server.finish().size(), 2u);
}

/* Requests. */

struct request_case {
    const char *name;
    std::function<void(velhttp *)> prepare;
    std::string url;      /* behind "http://127.0.0.1:PORT", or the whole through a proxy */
    std::string expected; /* with PORT for the port of the server */
    size_t bodylen = 0;
};

static void PrintTo(const request_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelhttpLiteRequest : public VelhttpLite, public testing::WithParamInterface<request_case> {
  protected:
    static std::string with_port(std::string text, unsigned int port)
    {
        for (size_t at; (at = text.find("PORT")) != text.npos;)
            text.replace(at, 4, std::to_string(port));
        return text;
    }
};

TEST_P(VelhttpLiteRequest, Bytes)
{
    const request_case &row = GetParam();
    for (const size_t limit : {SIZE_MAX, size_t(1)}) {
        http_server server({{http_answer("200 OK", "", ""), http_ending::close, row.bodylen}});
        wire.sendlimit = limit;
        const bool proxied = row.url.starts_with("http:");
        if (proxied) {
            EXPECT_EQ(vel_http_set_proxy(http, "127.0.0.1", server.port()), VEL_ERROR_NONE);
        }
        row.prepare(http);
        EXPECT_EQ(fetch(proxied ? row.url : "http://" + with_port(row.url, server.port())),
                  VEL_ERROR_NONE);
        EXPECT_EQ(server.finish(), names{with_port(row.expected, server.port())});
        EXPECT_EQ(logged(), lines{lite_status(200)});
    }
}

static std::function<void(velhttp *)> with_header(const char *header)
{
    return [header](velhttp *http) { vel_http_add_header(http, header); };
}

static std::function<void(velhttp *)> with_method(const char *method, const std::string &body = "")
{
    return [method, body](velhttp *http) {
        vel_http_set_method(http, method);
        if (!body.empty())
            vel_http_set_request_body(http, body.data(), body.size());
    };
}

static std::function<void(velhttp *)> with_header_and_body(const char *header)
{
    return [header](velhttp *http) {
        vel_http_set_method_post(http);
        vel_http_add_header(http, header);
        vel_http_set_request_body(http, "body", 4);
    };
}

static void with_nothing(velhttp *)
{
}

static const std::string kHost = " HTTP/1.0\r\nHost: 127.0.0.1:PORT\r\n";
static const std::string kBytes("\0\r\n\r\n\xff", 6);
static const std::string kLarge(3000000, 'x');
static const request_case kRequestCases[] = {
    {"Get", with_nothing, "127.0.0.1:PORT/a?b", "GET /a?b" + kHost + "\r\n"},
    {"NoPath", with_nothing, "127.0.0.1:PORT", "GET /" + kHost + "\r\n"},
    {"WholeLocalPart", with_nothing, "127.0.0.1:PORT/a;b?c;d#e", "GET /a;b?c;d#e" + kHost + "\r\n"},
    {"Fragment", with_nothing, "127.0.0.1:PORT/a#b", "GET /a#b" + kHost + "\r\n"},
    {"NotEncoded", with_nothing, "127.0.0.1:PORT/a b\xc3\xa4%",
     "GET /a b\xc3\xa4%" + kHost + "\r\n"},
    {"UserIsNotSent", with_nothing, "u:p@127.0.0.1:PORT/", "GET /" + kHost + "\r\n"},
    {"HostAsWritten", with_nothing, "localhost:PORT/",
     "GET / HTTP/1.0\r\nHost: localhost:PORT\r\n\r\n"},
    {"Header", with_header("X-A: 1"), "127.0.0.1:PORT/", "GET /" + kHost + "X-A: 1\r\n\r\n"},
    {"Headers",
     [](velhttp *http) {
         for (const char *header : {"b: 1", "a: 2", "b: 3"})
             vel_http_add_header(http, header);
     },
     "127.0.0.1:PORT/", "GET /" + kHost + "b: 1\r\na: 2\r\nb: 3\r\n\r\n"},
    {"HeaderUnchecked", with_header("Host: other"), "127.0.0.1:PORT/",
     "GET /" + kHost + "Host: other\r\n\r\n"},
    {"EmptyHeader", with_header(""), "127.0.0.1:PORT/", "GET /" + kHost + "\r\n\r\n"},
    {"Post", with_method("POST"), "127.0.0.1:PORT/",
     "POST /" + kHost + "Content-Length: 0\r\n\r\n"},
    {"Put", with_method("PUT"), "127.0.0.1:PORT/", "PUT /" + kHost + "Content-Length: 0\r\n\r\n"},
    {"SmallPost", with_method("poSt"), "127.0.0.1:PORT/",
     "poSt /" + kHost + "Content-Length: 0\r\n\r\n"},
    {"SmallPut", with_method("put"), "127.0.0.1:PORT/",
     "put /" + kHost + "Content-Length: 0\r\n\r\n"},
    {"Delete", with_method("DELETE"), "127.0.0.1:PORT/", "DELETE /" + kHost + "\r\n"},
    {"OtherMethod", with_method("X-Method"), "127.0.0.1:PORT/", "X-Method /" + kHost + "\r\n"},
    {"LongerThanPost", with_method("POSTS"), "127.0.0.1:PORT/", "POSTS /" + kHost + "\r\n"},
    {"EmptyMethod", with_method(""), "127.0.0.1:PORT/", " /" + kHost + "\r\n"},
    {"PostBody", with_method("POST", "body"), "127.0.0.1:PORT/",
     "POST /" + kHost + "Content-Length: 4\r\n\r\nbody", 4},
    {"PutBody", with_method("PUT", kBytes), "127.0.0.1:PORT/",
     "PUT /" + kHost + "Content-Length: 6\r\n\r\n" + kBytes, 6},
    {"GetBody", with_method("GET", "b"), "127.0.0.1:PORT/",
     "GET /" + kHost + "Content-Length: 1\r\n\r\nb", 1},
    {"DeleteBody", with_method("DELETE", "b"), "127.0.0.1:PORT/",
     "DELETE /" + kHost + "Content-Length: 1\r\n\r\nb", 1},
    {"OwnContentLength", with_header_and_body("CONTENT-LENGTH: 5"), "127.0.0.1:PORT/",
     "POST /" + kHost + "CONTENT-LENGTH: 5\r\n\r\nbody", 4},
    {"OwnContentLengthOf15Bytes", with_header_and_body("content-length:"), "127.0.0.1:PORT/",
     "POST /" + kHost + "content-length:\r\n\r\nbody", 4},
    {"OwnContentLengthOf14Bytes", with_header_and_body("content-length"), "127.0.0.1:PORT/",
     "POST /" + kHost + "content-length\r\nContent-Length: 4\r\n\r\nbody", 4},
    {"OwnContentLengthWithBlank", with_header_and_body("Content-Length : 4"), "127.0.0.1:PORT/",
     "POST /" + kHost + "Content-Length : 4\r\nContent-Length: 4\r\n\r\nbody", 4},
    {"OwnContentLengthWithoutBody", with_header("Content-Length: 0"), "127.0.0.1:PORT/",
     "GET /" + kHost + "Content-Length: 0\r\n\r\n"},
    {"Proxy", with_header("X-A: 1"), "http://h:8080/a?b",
     "GET http://h:8080/a?b HTTP/1.0\r\nHost: h:8080\r\nX-A: 1\r\n\r\n"},
    {"ProxyPort80", with_nothing, "http://h/a", "GET http://h/a HTTP/1.0\r\nHost: h\r\n\r\n"},
    {"ProxyExplicitPort80", with_nothing, "http://h:80/a",
     "GET http://h:80/a HTTP/1.0\r\nHost: h\r\n\r\n"},
    {"ProxyNoPath", with_nothing, "http://h", "GET http://h HTTP/1.0\r\nHost: h\r\n\r\n"},
    {"ProxyUser", with_nothing, "http://u:p@h:81/#x",
     "GET http://u:p@h:81/#x HTTP/1.0\r\nHost: h:81\r\n\r\n"},
    {"ProxyIpv6Host", with_nothing, "http://[::1]:81/",
     "GET http://[::1]:81/ HTTP/1.0\r\nHost: ::1:81\r\n\r\n"},
    {"ProxyPost", with_method("POST", "body"), "http://h/",
     "POST http://h/ HTTP/1.0\r\nHost: h\r\nContent-Length: 4\r\n\r\nbody", 4},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpLiteRequest, testing::ValuesIn(kRequestCases),
                         support::row_name());

TEST_F(VelhttpLite, LargeBodyIsSentWhole)
{
    http_server server({{http_answer("200 OK", "", ""), http_ending::close, kLarge.size()}});
    EXPECT_EQ(vel_http_set_request_body(http, kLarge.data(), kLarge.size()), VEL_ERROR_NONE);
    vel_http_set_method_put(http);
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_NONE);
    const names requests = server.finish();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_NE(requests[0].find("\r\nContent-Length: 3000000\r\n\r\n"), std::string::npos);
    EXPECT_TRUE(requests[0].ends_with("\r\n\r\n" + kLarge));
}

TEST_F(VelhttpLite, CredentialsAreNotSentUnasked)
{
    http_server server({{http_answer("200 OK", "", "")}});
    EXPECT_EQ(vel_http_set_proxy_with_auth(http, "127.0.0.1", server.port(), "u", "p"),
              VEL_ERROR_NONE);
    EXPECT_EQ(fetch("http://h/"), VEL_ERROR_NONE);
    EXPECT_EQ(server.finish(), names{"GET http://h/ HTTP/1.0\r\nHost: h\r\n\r\n"});
}

/* The proxy is what is connected to, whatever the host of the URL is. */
TEST_F(VelhttpLite, ProxyIsRefused)
{
    unsigned int port;
    {
        http_server server({});
        port = server.port();
    }
    EXPECT_EQ(vel_http_set_proxy(http, "127.0.0.1", port), VEL_ERROR_NONE);
    EXPECT_EQ(fetch("http://h/"), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(logged(), (lines{lite_error(7, "connection failed", 111),
                               lite_error(7,
                                          "connecting to proxy 127.0.0.1 port " +
                                              std::to_string(port) + " failed",
                                          111)}));
}

TEST_F(VelhttpLite, ServerIsRefused)
{
    unsigned int port;
    {
        http_server server({});
        port = server.port();
    }
    EXPECT_EQ(fetch("http://127.0.0.1:" + std::to_string(port)), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(logged(), lines{lite_error(7, "connection failed", 111)});
    EXPECT_EQ(vel_http_get_status_code(http), 0u);
}

/* Each place where sending may fail. */
TEST_F(VelhttpLite, EachSendFails)
{
    const std::vector<support::log_line> expected = {
        lite_error(7, "sending request failed", 104),
        lite_error(7, "unable to send header 'a: 1'", 104),
        lite_error(7, "unable to send header 'a: 1' end of line", 104),
        lite_error(7, "unable to send header 'b: 2'", 104),
        lite_error(7, "unable to send header 'b: 2' end of line", 104),
        lite_error(7, "unable to send content length", 104),
        lite_error(7, "unable to send end of headers", 104),
        lite_error(7, "unable to send the request body", 104),
    };
    for (size_t number = 0; number < expected.size(); number++) {
        http_server server({{"", http_ending::hold}});
        wire.sendskip = number;
        wire.senderrno = ECONNRESET;
        vel_http_set_method_post(http);
        vel_http_add_header(http, "a: 1");
        vel_http_add_header(http, "b: 2");
        vel_http_set_request_body(http, "body", 4);
        EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_CONNECTION_RESET);
        EXPECT_EQ(logged(), (lines{lite_error(7, "unable to send data", 104), expected[number]}));
    }
}
