#include "support/httpperform.h"
#include "support/rows.h"

/* The loop. */

TEST_F(VelhttpPerform, WithoutCallback)
{
    progress download;
    vel_http_set_perform_callback(http, nullptr);
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(logged(), lines{line(6, "The HTTP implementation does not support performing an "
                                      "operation")});
    EXPECT_EQ(download.calls, (told{{0, -1}}));
    EXPECT_EQ(vel_http_get_status_code(http), 0u);
    EXPECT_EQ(logged(), lines()) << "a request is active";
}

TEST_F(VelhttpPerform, OtherStatusesAreFinal)
{
    for (const unsigned int status :
         {0u, 100u, 200u, 204u, 300u, 303u, 304u, 307u, 308u, 401u, 404u, 407u, 500u, 999u}) {
        backend.calls.clear();
        answer({status}, "http://elsewhere/");
        EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
        EXPECT_EQ(backend.calls, names{"perform"}) << status;
        EXPECT_EQ(vel_http_get_status_code(http), status);
    }
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpPerform, ResultOfTheBackendIsHandedUp)
{
    for (const vel_error_t result :
         std::initializer_list<vel_error_t>{VEL_ERROR_IO, VEL_ERROR_TIMED_OUT, -5, 12345}) {
        backend.calls.clear();
        backend.perform = [&](velhttp *) {
            vel_http_set_status_code(http, 301);
            vel_http_write_response_header(http, "location", "http://elsewhere/");
            return result;
        };
        EXPECT_EQ(vel_http_perform(http), result);
        EXPECT_EQ(backend.calls, names{"perform"});
    }
    EXPECT_EQ(logged(), lines());
}

struct redirect_case {
    const char *name;
    const char *url;
    const char *location;
    names urls; /* what the backend is given after each of two redirects */
};

static void PrintTo(const redirect_case &one, std::ostream *out)
{
    *out << one.url << " to " << one.location;
}

class VelhttpRedirect : public VelhttpPerform, public testing::WithParamInterface<redirect_case> {};

TEST_P(VelhttpRedirect, Twice)
{
    ASSERT_EQ(vel_http_set_url(http, GetParam().url), VEL_ERROR_NONE);
    backend.calls.clear();
    answer({301, 302, 200}, GetParam().location);
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(backend.calls, (names{"perform", "url " + GetParam().urls[0], "perform",
                                    "url " + GetParam().urls[1], "perform"}));
    EXPECT_EQ(vel_http_get_status_code(http), 200u);
    EXPECT_EQ(logged(), (lines{kRedirect, kRedirect}));
}

static const redirect_case kRedirectCases[] = {
    {"Path", "http://a:81/b/c?d", "/x", {"http://a:81/x", "http://a:81/x"}},
    {"PathFromNoPath", "http://a", "/", {"http://a/", "http://a/"}},
    {"TwoSlashes", "http://a/b", "//h/x", {"http://a//h/x", "http://a//h/x"}},
    {"Full", "http://a/b", "http://c:1/d", {"http://c:1/d", "http://c:1/d"}},
    {"OtherScheme", "http://a/b", "https://c/", {"https://c/", "https://c/"}},
    {"RelativeWithTwoSlashes", "http://a/b", "x/y/z", {"x/y/z", "x/y/z"}},
    {"LeadingBlank", "http://a/b", " /x/", {" /x/", " /x/"}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpRedirect, testing::ValuesIn(kRedirectCases),
                         support::row_name());

TEST_F(VelhttpPerform, RedirectToAPathOfTheNewHost)
{
    backend.perform = [&](velhttp *) {
        const size_t number = backend.count("perform");
        vel_http_set_status_code(http, number < 3 ? 302 : 200);
        return vel_http_write_response_header(http, "location",
                                              number == 1 ? "http://other:5/x" : "/y");
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(backend.calls, (names{"perform", "url http://other:5/x", "perform",
                                    "url http://other:5/y", "perform"}));
}

TEST_F(VelhttpPerform, RedirectKeepsMethodHeadersAndBody)
{
    vel_http_set_method_post(http);
    EXPECT_EQ(vel_http_set_request_body(http, "body", 4), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_add_header(http, "a: 1"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_add_header(http, "b: 2"), VEL_ERROR_NONE);
    backend.perform = [&](velhttp *) {
        size_t len = 0;
        EXPECT_STREQ(vel_http_get_method(http), "POST");
        EXPECT_EQ(memcmp(vel_http_get_request_body(http, &len), "body", 4), 0);
        EXPECT_EQ(len, 4u);
        EXPECT_EQ(http_headers(http), (names{"a: 1", "b: 2"}));
        vel_http_set_status_code(http, backend.count("perform") < 4 ? 301 : 200);
        return vel_http_write_response_header(http, "location", "/x");
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(backend.count("perform"), 4u);
    EXPECT_EQ(http_headers(http), names());

    backend.perform = [&](velhttp *) {
        size_t len = 0;
        EXPECT_STREQ(vel_http_get_method(http), "POST");
        EXPECT_NE(vel_http_get_request_body(http, &len), nullptr);
        EXPECT_EQ(len, 4u);
        EXPECT_EQ(http_headers(http), names());
        return VEL_ERROR_NONE;
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
}

TEST_F(VelhttpPerform, RedirectStartsTheResponseAnew)
{
    backend.perform = [&](velhttp *) {
        const bool first = backend.count("perform") == 1;
        EXPECT_EQ(vel_http_get_status_code(http), 0u);
        EXPECT_EQ(vel_http_get_response_header(http, "x-first"), nullptr);
        EXPECT_EQ(downloaded(), (state{0, -1}));
        if (first) {
            EXPECT_EQ(vel_http_write_response_body(http, "early", 5), VEL_ERROR_NONE);
        }
        vel_http_set_status_code(http, first ? 301 : 200);
        EXPECT_EQ(vel_http_write_response_body(http, first ? "moved" : "final", 5), VEL_ERROR_NONE);
        if (first) {
            EXPECT_EQ(vel_http_write_response_header(http, "content-length", "10"), VEL_ERROR_NONE);
            EXPECT_EQ(vel_http_write_response_header(http, "x-first", "1"), VEL_ERROR_NONE);
        }
        return vel_http_write_response_header(http, "location", "/x");
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(backend.count("perform"), 2u);
    EXPECT_EQ(response_body(), "final");
    EXPECT_EQ(vel_http_get_response_header(http, "x-first"), nullptr);
}

TEST_F(VelhttpPerform, RedirectWithoutLocation)
{
    for (const unsigned int status : {301u, 302u}) {
        backend.perform = [&](velhttp *) {
            vel_http_set_status_code(http, status);
            return vel_http_write_response_header(http, "server", "y");
        };
        EXPECT_EQ(vel_http_perform(http), VEL_ERROR_PROTOCOL);
        EXPECT_EQ(logged(), (lines{kRedirect, line(7, "Redirect without Location header")}));
        EXPECT_EQ(vel_http_get_status_code(http), status);
        EXPECT_STREQ(vel_http_get_response_header(http, "server"), "y");
    }
}

TEST_F(VelhttpPerform, RedirectToARelativeLocation)
{
    for (const std::string location : {"x/y", "", "x", "?q"}) {
        backend.calls.clear();
        answer({302}, location.c_str());
        EXPECT_EQ(vel_http_perform(http), VEL_ERROR_INVALID_ARGUMENT);
        EXPECT_EQ(backend.calls, (names{"perform", "url " + location}));
        EXPECT_EQ(logged(), (lines{kRedirect, line(6, "invalid URL '" + location + "'"),
                                   line(7, "Unable to set the redirect URL '" + location + "'")}));
    }
}

TEST_F(VelhttpPerform, RedirectRefusedByTheBackend)
{
    answer({302}, "/x");
    backend.urlresult = VEL_ERROR_BUSY;
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_BUSY);
    EXPECT_EQ(logged(),
              (lines{kRedirect, line(7, "Unable to set the redirect URL 'http://a:81/x'")}));
    EXPECT_EQ(vel_http_get_status_code(http), 302u);
}

TEST_F(VelhttpPerform, TenRedirectsAreTooMany)
{
    answer({302}, "/x");
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(backend.count("perform"), 10u);
    EXPECT_EQ(backend.count("url http://a:81/x"), 10u);
    lines expected(10, kRedirect);
    expected.push_back(line(7, "Too many redirects (10)"));
    EXPECT_EQ(logged(), expected);
    EXPECT_EQ(vel_http_get_status_code(http), 302u);
}

TEST_F(VelhttpPerform, NineRedirectsAreNot)
{
    answer({301, 302, 301, 302, 301, 302, 301, 302, 301, 200}, "/x");
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(backend.count("perform"), 10u);
    EXPECT_EQ(logged(), lines(9, kRedirect));
}

TEST_F(VelhttpPerform, EveryWayOutCleansUp)
{
    const std::vector<std::pair<std::function<void()>, vel_error_t>> ways = {
        {[&] { answer({200}, nullptr); }, VEL_ERROR_NONE},
        {[&] { answer({302}, nullptr); }, VEL_ERROR_PROTOCOL},
        {[&] { answer({302}, "x"); }, VEL_ERROR_INVALID_ARGUMENT},
        {[&] { answer({302}, "/x"); }, VEL_ERROR_OUT_OF_RANGE},
        {[&] { backend.perform = [](velhttp *) { return VEL_ERROR_IO; }; }, VEL_ERROR_IO},
        {[&] { vel_http_set_timeout(http, 0, 0); }, VEL_ERROR_TIMER_EXPIRED},
        {[&] { vel_http_set_perform_callback(http, nullptr); }, VEL_ERROR_UNSUPPORTED},
    };
    EXPECT_EQ(inside([] {}), VEL_ERROR_NONE);
    for (const auto &[prepare, result] : ways) {
        prepare();
        EXPECT_EQ(vel_http_add_header(http, "a: 1"), VEL_ERROR_NONE);
        vel_http_abort(http);
        EXPECT_EQ(vel_http_perform(http), result);
        EXPECT_EQ(http_headers(http), names()) << result;
        EXPECT_EQ(vel_http_is_aborted(http), 0) << result;
    }
}

TEST_F(VelhttpPerform, AbortBetweenTransfersIsSeenOnce)
{
    EXPECT_EQ(inside([] {}), VEL_ERROR_NONE);
    vel_http_abort(http);
    EXPECT_EQ(inside([&] { EXPECT_EQ(vel_http_is_aborted(http), 1); }), VEL_ERROR_NONE);
    EXPECT_EQ(inside([&] { EXPECT_EQ(vel_http_is_aborted(http), 0); }), VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines{kAborting});
}

TEST_F(VelhttpPerform, AbortLastsOverRedirects)
{
    int passes = 0;
    backend.perform = [&](velhttp *) {
        EXPECT_EQ(vel_http_is_aborted(http), passes == 0 ? 0 : 1);
        if (passes++ == 0)
            vel_http_abort(http);
        vel_http_set_status_code(http, passes < 3 ? 301 : 200);
        return vel_http_write_response_header(http, "location", "/x");
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(passes, 3);
}

/* The proxy callback. */

TEST_F(VelhttpPerform, ProxyIsChosenForEachPass)
{
    names asked, proxies;
    proxy_function choose = [&](velhttp *asking, const std::string &scheme, const std::string &host,
                                unsigned int port) -> vel_error_t {
        EXPECT_EQ(asking, http);
        asked.push_back(scheme + " " + host + " " + std::to_string(port));
        return asked.size() == 2 ? vel_http_set_proxy_with_auth(asking, "second", 2, "u", "p")
                                 : vel_http_set_proxy(asking, "proxy", 1);
    };
    vel_http_set_proxy_callback(http, call_proxy, &choose);
    backend.perform = [&](velhttp *) {
        const char *hostname = nullptr, *user = nullptr;
        vel_http_get_proxy(http, &hostname, nullptr);
        vel_http_get_proxy_auth(http, &user, nullptr);
        proxies.push_back(std::string(hostname) + (user ? user : ""));
        vel_http_set_status_code(http, proxies.size() < 3 ? 302 : 200);
        return vel_http_write_response_header(http, "location",
                                              proxies.size() == 1 ? "https://other/x" : "/y");
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(asked, (names{"http a 81", "https other 443", "https other 443"}));
    EXPECT_EQ(proxies, (names{"proxy", "secondu", "proxy"}));
    EXPECT_EQ(logged(), (lines{kRedirect, kRedirect}));
}

TEST_F(VelhttpPerform, ProxyCallbackFails)
{
    int asked = 0;
    proxy_function choose = [&](velhttp *, const std::string &, const std::string &,
                                unsigned int) -> vel_error_t {
        return ++asked == 2 ? VEL_ERROR_ACCESS : VEL_ERROR_NONE;
    };
    vel_http_set_proxy_callback(http, call_proxy, &choose);
    answer({302}, "/x");
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_ACCESS);
    EXPECT_EQ(backend.count("perform"), 1u);
    EXPECT_EQ(
        logged(),
        (lines{kRedirect, line(7, "the proxy callback returned error 13 (permission denied)")}));
    EXPECT_EQ(vel_http_get_status_code(http), 0u) << "the response was reset before";
}

TEST_F(VelhttpPerform, ProxyCallbackTakesTime)
{
    proxy_function choose = [&](velhttp *, const std::string &, const std::string &,
                                unsigned int) -> vel_error_t {
        pass(6);
        return VEL_ERROR_NONE;
    };
    vel_http_set_timeout(http, 6, 0);
    vel_http_set_proxy_callback(http, call_proxy, &choose);
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_TIMER_EXPIRED);
    EXPECT_EQ(backend.calls, names());
    EXPECT_EQ(logged(), (lines{kFullExpired, kTimeout}));
}

TEST_F(VelhttpPerform, ProxyCallbackOfAnUnparsableUrl)
{
    proxy_function choose = [](velhttp *, const std::string &, const std::string &,
                               unsigned int) -> vel_error_t {
        ADD_FAILURE() << "called";
        return VEL_ERROR_NONE;
    };
    vel_http_set_proxy_callback(http, call_proxy, &choose);
    EXPECT_EQ(vel_http_set_url(http, "http://a:b:c/d"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(logged(), lines{line(7, "unable to parse URL 'http://a:b:c', error 22 (invalid "
                                      "argument)")});
    EXPECT_EQ(backend.count("perform"), 0u);
}

TEST_F(VelhttpPerform, WithoutMemory)
{
    proxy_function choose = [](velhttp *, const std::string &, const std::string &, unsigned int) {
        return VEL_ERROR_NONE;
    };
    vel_http_set_proxy_callback(http, call_proxy, &choose);
    backend.perform = [&](velhttp *) {
        const bool again = backend.count("perform") == 1;
        vel_http_set_status_code(http, again ? 302 : 200);
        return vel_http_write_response_header(http, "location", "/x");
    };
    const auto failures = each_failure(log, kModule, [&] {
        backend.calls.clear();
        const vel_error_t result = vel_http_perform(http);
        EXPECT_TRUE(result == VEL_ERROR_NONE || result == VEL_ERROR_NO_MEMORY ||
                    result == VEL_ERROR_PROTOCOL)
            << result;
        return result == VEL_ERROR_NONE;
    });
    const support::log_line context = line(7, "not enough memory for URL parsing context");
    const support::log_line redirect =
        line(7, "not enough memory for the redirect URL 'http://a:81/x'");
    const support::log_line parse =
        line(7, "unable to parse URL 'http://a:81', error 12 (not enough memory)");
    const support::log_line base = line(7, "not enough memory for base URL");
    const support::log_line refused = line(7, "Unable to set the redirect URL 'http://a:81/x'");
    /* A header that cannot be looked up is none. */
    const lines unseen = {
        kRedirect,
        {"net/velhttpheaders", 7, "unable to convert the header name to lowercase"},
        line(7, "Redirect without Location header")};
    for (const lines &expected :
         {unseen, lines{context}, lines{parse}, lines{kRedirect, redirect},
          lines{kRedirect, base, refused}, lines{kRedirect, context}, lines{kRedirect, parse}})
        EXPECT_EQ(std::count(failures.begin(), failures.end(), expected), 1)
            << testing::PrintToString(expected) << " in " << testing::PrintToString(failures);
}

class VelhttpPerformDeathTest : public VelhttpPerform {};

TEST_F(VelhttpPerformDeathTest, ProxyCallbackWithoutUrl)
{
    proxy_function choose = [](velhttp *, const std::string &, const std::string &, unsigned int) {
        return VEL_ERROR_NONE;
    };
    EXPECT_EQ(vel_http_reset(http), VEL_ERROR_NONE);
    vel_http_set_proxy_callback(http, call_proxy, &choose);
    EXPECT_DEATH(vel_http_perform(http), asserts("url != NULL", "vel_url_set_url"));
}
