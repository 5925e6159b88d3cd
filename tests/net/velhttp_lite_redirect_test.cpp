/* Redirects and refusals by a proxy: what takes more than one request. */

#include "support/httplite.h"

#include "support/rows.h"

static std::string head(const char *method, const std::string &target, unsigned int port)
{
    return std::string(method) + " " + target +
           " HTTP/1.0\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n";
}

/* Redirects. */

TEST_F(VelhttpLite, StatusesThatRedirect)
{
    for (const unsigned int status : {300u, 301u, 302u, 303u, 304u, 305u, 307u, 308u}) {
        const bool follows = status == 301 || status == 302;
        const std::string first = http_answer(std::to_string(status) + " Moved",
                                              "Location: /to\r\nContent-Length: 5\r\n", "moved");
        http_server server({{first, http_ending::hold}, {http_answer("200 OK", "", "final")}});
        EXPECT_EQ(fetch(server.url("/from")), VEL_ERROR_NONE);
        const names requests = server.finish();
        EXPECT_EQ(requests.size(), follows ? 2u : 1u) << status;
        EXPECT_EQ(vel_http_get_status_code(http), follows ? 200u : status);
        EXPECT_EQ(body(), follows ? "final" : "moved");
        EXPECT_EQ(header("location"), follows ? "none" : "/to");
        EXPECT_EQ(logged(), follows ? (lines{lite_status(status), kRedirect, lite_status(200)})
                                    : lines{lite_status(status)});
    }
}

TEST_F(VelhttpLite, RedirectRepeatsTheRequest)
{
    for (const char *method : {"GET", "POST", "PUT", "DELETE", "LIST"}) {
        http_server server(
            {{http_answer("302 Found", "location: /to?x#y\r\n", "dropped"), http_ending::close, 4},
             {http_answer("200 OK", "", "final"), http_ending::close, 4}});
        EXPECT_EQ(vel_http_set_method(http, method), VEL_ERROR_NONE);
        EXPECT_EQ(vel_http_add_header(http, "X-A: 1"), VEL_ERROR_NONE);
        EXPECT_EQ(vel_http_set_request_body(http, "body", 4), VEL_ERROR_NONE);
        EXPECT_EQ(fetch(server.url("/from")), VEL_ERROR_NONE);
        const std::string rest = "X-A: 1\r\nContent-Length: 4\r\n\r\nbody";
        EXPECT_EQ(server.finish(), (names{head(method, "/from", server.port()) + rest,
                                          head(method, "/to?x#y", server.port()) + rest}));
        EXPECT_EQ(body(), "final");
    }
}

TEST_F(VelhttpLite, RedirectToAnotherServer)
{
    http_server second({{http_answer("200 OK", "", "second")}});
    http_server first(
        {{http_answer("301 Moved", "Location: " + second.url("/there") + "\r\n", "")}});
    EXPECT_EQ(fetch(first.url("/here")), VEL_ERROR_NONE);
    EXPECT_EQ(body(), "second");
    EXPECT_EQ(first.finish(), names{head("GET", "/here", first.port()) + "\r\n"});
    EXPECT_EQ(second.finish(), names{head("GET", "/there", second.port()) + "\r\n"});
}

TEST_F(VelhttpLite, RedirectThroughAProxy)
{
    http_server proxy({{http_answer("301 Moved", "Location: /x\r\n", "")},
                       {http_answer("302 Found", "Location: http://b:81/y\r\n", "")},
                       {http_answer("200 OK", "", "end")}});
    EXPECT_EQ(vel_http_set_proxy(http, "127.0.0.1", proxy.port()), VEL_ERROR_NONE);
    EXPECT_EQ(fetch("http://a"), VEL_ERROR_NONE);
    EXPECT_EQ(proxy.finish(), (names{"GET http://a HTTP/1.0\r\nHost: a\r\n\r\n",
                                     "GET http://a/x HTTP/1.0\r\nHost: a\r\n\r\n",
                                     "GET http://b:81/y HTTP/1.0\r\nHost: b:81\r\n\r\n"}));
    EXPECT_EQ(body(), "end");
}

TEST_F(VelhttpLite, RedirectInALoop)
{
    http_server server({{http_answer("302 Found", "Location: /again\r\n", "x")}}, true);
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_OUT_OF_RANGE);
    lines expected;
    for (int request = 0; request < 10; request++) {
        expected.push_back(lite_status(302));
        expected.push_back(kRedirect);
    }
    expected.push_back(front(7, "Too many redirects (10)"));
    EXPECT_EQ(logged(), expected);
    EXPECT_EQ(vel_http_get_status_code(http), 302u);
    EXPECT_EQ(header("location"), "/again");
}

struct location_case {
    const char *name;
    std::string headers;
    vel_error_t result;
    lines complaints;
};

static void PrintTo(const location_case &one, std::ostream *out)
{
    *out << one.headers;
}

class VelhttpLiteLocation : public VelhttpLite,
                            public testing::WithParamInterface<location_case> {};

TEST_P(VelhttpLiteLocation, LeadsNowhere)
{
    EXPECT_EQ(fetch_answer(http_answer("302 Found", GetParam().headers, "")), GetParam().result);
    lines expected = {lite_status(302), kRedirect};
    expected.insert(expected.end(), GetParam().complaints.begin(), GetParam().complaints.end());
    EXPECT_EQ(logged(), expected);
    EXPECT_EQ(vel_http_get_response_header(http, "server") != nullptr,
              GetParam().headers.find("Server") != std::string::npos);
}

static lines invalid_url(const std::string &url)
{
    return {front(6, "invalid URL '" + url + "'"),
            front(7, "Unable to set the redirect URL '" + url + "'")};
}

static const location_case kLocationCases[] = {
    {"None", "Server: y\r\n", VEL_ERROR_PROTOCOL, {front(7, "Redirect without Location header")}},
    {"Empty", "Location:\r\n", VEL_ERROR_INVALID_ARGUMENT, invalid_url("")},
    {"Relative", "Location: x/y\r\n", VEL_ERROR_INVALID_ARGUMENT, invalid_url("x/y")},
    {"Dots", "Location: ../x\r\n", VEL_ERROR_INVALID_ARGUMENT, invalid_url("../x")},
    {"Query", "Location: ?x\r\n", VEL_ERROR_INVALID_ARGUMENT, invalid_url("?x")},
    {"RelativeWithTwoSlashes",
     "Location: x/y/z\r\n",
     VEL_ERROR_INVALID_ARGUMENT,
     {lite_error(7, "parsing URL 'x/y/z' failed", 22)}},
    {"OtherScheme",
     "Location: https://127.0.0.1/\r\n",
     VEL_ERROR_UNSUPPORTED,
     {lite(6, "the URL 'https://127.0.0.1/' must start with http://")}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpLiteLocation, testing::ValuesIn(kLocationCases),
                         support::row_name());

/* "//HOST" is a path of the same server. */
TEST_F(VelhttpLite, RedirectToTwoSlashesStaysOnTheServer)
{
    http_server server({{http_answer("302 Found", "Location: //other/x\r\n", "")},
                        {http_answer("200 OK", "", "same")}});
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_NONE);
    EXPECT_EQ(body(), "same");
    EXPECT_EQ(server.finish()[1], head("GET", "//other/x", server.port()) + "\r\n");
}

/* A proxy that wants credentials. */

static const support::log_line kNoUser = front(7, "No user defined for proxy authentication");
static const std::string kRequest = "GET http://h/ HTTP/1.0\r\nHost: h\r\n\r\n";

static std::string refusal(const std::string &headers)
{
    return http_answer("407 Refused", headers + "Content-Length: 2\r\n", "no");
}

TEST_F(VelhttpLite, BasicIsPreparedButNotSent)
{
    http_server proxy({{refusal("Proxy-Authenticate: Basic realm=x\r\n"), http_ending::hold},
                       {http_answer("200 OK", "", "later"), http_ending::close}});
    EXPECT_EQ(vel_http_set_proxy_with_auth(http, "127.0.0.1", proxy.port(), "user", "secret"),
              VEL_ERROR_NONE);
    EXPECT_EQ(fetch("http://h/"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_get_status_code(http), 0u);
    EXPECT_EQ(header("proxy-authenticate"), "none");
    EXPECT_EQ(body(), "none");
    EXPECT_EQ(logged(), (lines{lite_status(407), front(10, "HTTP proxy user: 'user'"),
                               front(10, "Retry with Basic authentication")}));
    /* Nothing of it outlives the transfer. */
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_get_status_code(http), 200u);
    EXPECT_EQ(proxy.finish(), (names{kRequest, kRequest}));
}

TEST_F(VelhttpLite, WithoutUserTheRequestIsRepeatedTenTimes)
{
    std::vector<http_exchange> script(
        11, {refusal("Proxy-Authenticate: Basic\r\n"), http_ending::keep});
    http_server proxy(script);
    EXPECT_EQ(vel_http_set_proxy(http, "127.0.0.1", proxy.port()), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_add_header(http, "X-A: 1"), VEL_ERROR_NONE);
    vel_http_set_method_post(http);
    EXPECT_EQ(fetch("http://h/"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_get_status_code(http), 407u);
    EXPECT_EQ(body(), "none");
    lines expected;
    for (int request = 0; request < 10; request++) {
        expected.push_back(lite_status(407));
        expected.push_back(kNoUser);
    }
    EXPECT_EQ(logged(), expected);
    names requests = proxy.finish();
    ASSERT_EQ(requests.size(), 11u) << "the eleventh one begins and is not sent";
    EXPECT_EQ(requests.back(), "");
    requests.pop_back();
    EXPECT_EQ(requests, names(10, "POST http://h/ HTTP/1.0\r\nHost: h\r\nX-A: 1\r\n"
                                  "Content-Length: 0\r\n\r\n"));
}

TEST_F(VelhttpLite, WithoutUserALaterAnswerCounts)
{
    http_server proxy(
        {{refusal("X-First: 1\r\n"), http_ending::keep},
         {refusal(""), http_ending::keep},
         {http_answer("200 OK", "Content-Length: 5\r\n", "final"), http_ending::hold}});
    EXPECT_EQ(vel_http_set_proxy(http, "127.0.0.1", proxy.port()), VEL_ERROR_NONE);
    EXPECT_EQ(fetch("http://h/"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_get_status_code(http), 200u);
    EXPECT_EQ(body(), "final");
    EXPECT_EQ(header("x-first"), "1") << "the response is not reset between";
    EXPECT_EQ(logged(),
              (lines{lite_status(407), kNoUser, lite_status(407), kNoUser, lite_status(200)}));
    EXPECT_EQ(proxy.finish(), names(3, kRequest));
}

TEST_F(VelhttpLite, WithoutUserAClosedConnectionIsAnError)
{
    http_server proxy({{refusal(""), http_ending::close}});
    EXPECT_EQ(vel_http_set_proxy(http, "127.0.0.1", proxy.port()), VEL_ERROR_NONE);
    EXPECT_EQ(fetch("http://h/"), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(vel_http_get_status_code(http), 407u);
    EXPECT_EQ(logged(),
              (lines{lite_status(407), kNoUser, lite_error(7, "reading input line failed", 204),
                     lite_error(7, "reading HTTP status code failed", 204)}));
    EXPECT_EQ(proxy.finish(), names{kRequest + kRequest});
}

struct refusal_case {
    const char *name;
    bool proxied;
    bool user;
    const char *headers;
    lines complaints;
};

static void PrintTo(const refusal_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelhttpLiteRefusal : public VelhttpLite, public testing::WithParamInterface<refusal_case> {};

TEST_P(VelhttpLiteRefusal, EndsAtOnce)
{
    const refusal_case &row = GetParam();
    http_server server({{refusal(row.headers), http_ending::hold}});
    if (row.proxied) {
        EXPECT_EQ(vel_http_set_proxy_with_auth(http, "127.0.0.1", server.port(),
                                               row.user ? "user" : "", "secret"),
                  VEL_ERROR_NONE);
    }
    EXPECT_EQ(fetch(row.proxied ? "http://h/" : server.url("/")), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_get_status_code(http), 407u);
    EXPECT_EQ(body(), "none");
    lines expected = row.complaints;
    expected.insert(expected.begin(), lite_status(407));
    EXPECT_EQ(logged(), expected);
    EXPECT_EQ(server.finish().size(), 1u);
}

static const refusal_case kRefusalCases[] = {
    {"NoProxy",
     false,
     false,
     "Proxy-Authenticate: Basic\r\n",
     {front(7, "Proxy server is not defined")}},
    {"NothingOffered", true, true, "", {}},
    {"OtherSchemes", true, true, "Proxy-Authenticate: Digest\r\nProxy-Authenticate: NTLM\r\n", {}},
    {"OriginSchemes", true, true, "WWW-Authenticate: Basic\r\n", {}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpLiteRefusal, testing::ValuesIn(kRefusalCases),
                         support::row_name());

TEST_F(VelhttpLite, BodiesThatAreNotHandedOn)
{
    for (const unsigned int status : {401u, 407u, 403u}) {
        EXPECT_EQ(fetch_answer(http_answer(std::to_string(status), "", "page")), VEL_ERROR_NONE);
        EXPECT_EQ(vel_http_get_status_code(http), status);
        EXPECT_EQ(body(), status == 403 ? "page" : "none");
    }
}
