#include "support/httpfront.h"

/* Life. */

TEST_F(Velhttp, GenericCreateHasNothing)
{
    velhttp *generic = vel_http_generic_create();
    ASSERT_NE(generic, nullptr);
    EXPECT_EQ(vel_http_get_context(generic), nullptr);
    EXPECT_EQ(vel_http_get_async_context(generic), nullptr);
    EXPECT_EQ(vel_http_reset(generic), VEL_ERROR_NONE);
    EXPECT_NE(vel_http_get_deprecated(generic), nullptr);
    vel_http_destroy(generic);
    EXPECT_EQ(logged(), lines());
}

TEST_F(Velhttp, DestroyGivesTheContextOfTheBackend)
{
    vel_http_destroy(http);
    http = nullptr;
    EXPECT_EQ(backend.calls, names{"destroy"});
    EXPECT_EQ(logged(), lines());
}

TEST_F(Velhttp, Contexts)
{
    int one, two;
    EXPECT_EQ(vel_http_get_context(http), &backend);
    vel_http_set_async_context(http, &one);
    EXPECT_EQ(vel_http_get_async_context(http), &one);
    EXPECT_EQ(vel_http_get_context(http), &backend);
    vel_http_set_context(http, &two);
    EXPECT_EQ(vel_http_get_context(http), &two);
    EXPECT_EQ(vel_http_get_async_context(http), &one);
    vel_http_set_context(http, &backend);
}

TEST_F(Velhttp, GenericCreateWithoutMemory)
{
    const support::log_line last = line(7, "unable to create HTTP request context");
    const auto failures = each_failure(log, kModule, [] {
        velhttp *created = vel_http_generic_create();
        if (created)
            vel_http_destroy(created);
        return created != nullptr;
    });
    const support::log_line headers =
        line(7, "unable to create the response headers module context");
    const std::string store = "net/velhttpheaders";
    EXPECT_EQ(
        failures,
        (std::vector<lines>{
            {line(7, "not enough memory for the velhttp context")},
            {line(7, "not enough memory for velhttp request context"), last},
            {line(7, "not enough memory for veltimeout context"), last},
            {line(7, "not enough memory for idle timeout"), last},
            {line(7, "not enough memory for progress callback timeout"), last},
            {line(7, "not enough memory for the request header list"), last},
            {{store, 7, "not enough memory for velhttpheaders structure"}, headers, last},
            {{store, 7, "not enough memory for the response header hashtable"}, headers, last},
        }));
}

/* Reset. */

TEST_F(Velhttp, ResetClearsTheRequest)
{
    int uploads = 0, bodies = 0;
    const auto count = [](int64_t, int64_t, void *context) {
        ++*static_cast<int *>(context);
        return 0;
    };
    const auto count_body = [](const void *, size_t, void *context) -> vel_error_t {
        ++*static_cast<int *>(context);
        return VEL_ERROR_NONE;
    };
    EXPECT_EQ(vel_http_set_url(http, kUrl), VEL_ERROR_NONE);
    vel_http_set_method_put(http);
    EXPECT_EQ(vel_http_set_request_body(http, "body", 4), VEL_ERROR_NONE);
    inside([&] {
        vel_http_set_status_code(http, 200);
        EXPECT_EQ(vel_http_write_response_header(http, "Server", "y"), VEL_ERROR_NONE);
        EXPECT_EQ(vel_http_write_response_body(http, "answer", 6), VEL_ERROR_NONE);
    });
    EXPECT_EQ(vel_http_add_header(http, "A: 1"), VEL_ERROR_NONE);
    vel_http_set_progress_callbacks(http, count, &uploads, count, &uploads);
    vel_http_set_response_body_callback(http, count_body, &bodies);
    vel_http_abort(http);
    log.clear();
    backend.calls.clear();

    EXPECT_EQ(vel_http_reset(http), VEL_ERROR_NONE);
    EXPECT_EQ(backend.calls, names{"reset"});
    EXPECT_EQ(logged(), lines());
    EXPECT_EQ(vel_http_is_aborted(http), 0);
    EXPECT_EQ(vel_http_get_status_code(http), 0u);
    EXPECT_EQ(http_headers(http), names());
    EXPECT_EQ(request_body(), "NULL, 0");
    EXPECT_STREQ(vel_http_get_method(http), "GET");
    EXPECT_STREQ(vel_http_get_response_header(http, "server"), "y");
    char *body = nullptr;
    EXPECT_EQ(vel_http_get_response_body(http, &body), VEL_ERROR_INVALID_ARGUMENT);

    inside([&] {
        EXPECT_EQ(vel_http_is_aborted(http), 0);
        EXPECT_EQ(vel_http_write_response_body(http, "again", 5), VEL_ERROR_NONE);
        vel_http_progress_upload_force(http);
        vel_http_progress_download_force(http);
    });
    EXPECT_EQ(uploads, 0);
    EXPECT_EQ(bodies, 0);
    EXPECT_EQ(vel_http_get_response_body(http, &body), VEL_ERROR_NONE);
    EXPECT_STREQ(body, "again");
    vel_free(body);
}

TEST_F(Velhttp, ResetKeepsTheRest)
{
    EXPECT_EQ(vel_http_set_proxy_with_auth(http, "proxy", 3128, "u", "p"), VEL_ERROR_NONE);
    vel_http_set_timeout(http, 12, 34);
    vel_http_set_idle_timeout(http, 56, 78);
    vel_http_enable_system_ca(http);
    EXPECT_EQ(vel_http_set_ca_filename(http, "file"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_set_ca_path(http, "path"), VEL_ERROR_NONE);
    velhttpdeprecated *deprecated = vel_http_get_deprecated(http);
    EXPECT_EQ(vel_http_reset(http), VEL_ERROR_NONE);
    perform();

    int seconds = 0;
    unsigned int microseconds = 0;
    EXPECT_EQ(proxy(), "proxy:3128");
    EXPECT_EQ(auth(), nowhere("u", "p"));
    EXPECT_EQ(ca(), nowhere("file", "path"));
    EXPECT_EQ(vel_http_is_system_ca_enabled(http), 1);
    EXPECT_EQ(vel_http_get_deprecated(http), deprecated);
    vel_http_get_idle_timeout(http, &seconds, &microseconds);
    EXPECT_EQ(seconds, 56);
    EXPECT_EQ(microseconds, 78u);
    vel_http_timeout_reset(http, &seconds, &microseconds);
    EXPECT_EQ(seconds, 12);
    EXPECT_EQ(microseconds, 34u);
}

TEST_F(Velhttp, ResetGivesTheResultOfTheBackendAndClearsAllTheSame)
{
    EXPECT_EQ(vel_http_add_header(http, "A: 1"), VEL_ERROR_NONE);
    backend.resetresult = VEL_ERROR_BUSY;
    EXPECT_EQ(vel_http_reset(http), VEL_ERROR_BUSY);
    EXPECT_EQ(http_headers(http), names());
    EXPECT_EQ(logged(), lines());
}

TEST_F(Velhttp, ResetWithoutCallback)
{
    vel_http_set_reset_callback(http, nullptr);
    EXPECT_EQ(vel_http_add_header(http, "A: 1"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_reset(http), VEL_ERROR_NONE);
    EXPECT_EQ(http_headers(http), names());
}

/* URL. The base URL shows in the redirect to a path. */

TEST_F(Velhttp, UrlWithoutCallback)
{
    vel_http_set_url_callback(http, nullptr);
    EXPECT_EQ(vel_http_set_url(http, kUrl), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(logged(),
              lines{line(6, "this HTTP implementation does not support setting the URL")});
}

TEST_F(Velhttp, UrlRefusedByTheBackend)
{
    backend.urlresult = VEL_ERROR_ACCESS;
    EXPECT_EQ(vel_http_set_url(http, "x"), VEL_ERROR_ACCESS);
    EXPECT_EQ(backend.calls, names{"url x"});
    EXPECT_EQ(logged(), lines());
}

struct base_case {
    const char *name;
    std::vector<std::string> urls; /* set in turn */
    std::string base;
    lines logged;
};

static void PrintTo(const base_case &one, std::ostream *out)
{
    *out << testing::PrintToString(one.urls);
}

class VelhttpBase : public Velhttp, public testing::WithParamInterface<base_case> {};

TEST_P(VelhttpBase, ShowsInARedirect)
{
    names expected;
    for (const std::string &url : GetParam().urls) {
        const bool good = std::count(url.begin(), url.end(), '/') >= 2;
        EXPECT_EQ(vel_http_set_url(http, url.c_str()),
                  good ? VEL_ERROR_NONE : VEL_ERROR_INVALID_ARGUMENT);
        expected.push_back("url " + url);
    }
    EXPECT_EQ(logged(), GetParam().logged);
    backend.perform = [&](velhttp *) {
        vel_http_set_status_code(http, backend.count("perform") == 1 ? 301 : 200);
        return vel_http_write_response_header(http, "location", "/to");
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    expected.insert(expected.end(), {"perform", "url " + GetParam().base + "/to", "perform"});
    EXPECT_EQ(backend.calls, expected);
}

static const base_case kBaseCases[] = {
    {"Full", {"http://a:1/b/c?d"}, "http://a:1", {}},
    {"NoPath", {"http://a"}, "http://a", {}},
    {"PathAlone", {"http://a/"}, "http://a", {}},
    {"SlashInQuery", {"http://a?b/c"}, "http://a?b", {}},
    {"TwoSlashesApart", {"a/b/c"}, "a/b/c", {}},
    {"SlashesFirst", {"///"}, "//", {}},
    {"Replaced", {"http://a/", "http://b/c"}, "http://b", {}},
    {"OneSlash", {"http://a/", "x/y"}, "http://a", {line(6, "invalid URL 'x/y'")}},
    {"NoSlash", {"http://a/", ""}, "http://a", {line(6, "invalid URL ''")}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpBase, testing::ValuesIn(kBaseCases), support::row_name());

TEST_F(Velhttp, UrlWithoutMemory)
{
    EXPECT_EQ(vel_http_set_url(http, kUrl), VEL_ERROR_NONE);
    const auto failures = each_failure(log, kModule, [&] {
        const vel_error_t result = vel_http_set_url(http, "http://other/");
        EXPECT_TRUE(result == VEL_ERROR_NONE || result == VEL_ERROR_NO_MEMORY);
        return result == VEL_ERROR_NONE;
    });
    EXPECT_EQ(failures, std::vector<lines>{{line(7, "not enough memory for base URL")}});
    EXPECT_EQ(backend.count("url http://other/"), 2u);
}

/* Method. */

struct method_case {
    const char *name;
    std::function<vel_error_t(velhttp *)> set;
    const char *method;
};

class VelhttpMethod : public Velhttp, public testing::WithParamInterface<method_case> {};

static vel_error_t set_plain(void (*set)(velhttp *), velhttp *http)
{
    set(http);
    return VEL_ERROR_NONE;
}

static std::function<vel_error_t(velhttp *)> set_to(const char *method)
{
    return [method](velhttp *http) { return vel_http_set_method(http, method); };
}

TEST_P(VelhttpMethod, IsWhatTheBackendSees)
{
    for (const char *before : {"GET", "Custom"}) {
        EXPECT_EQ(vel_http_set_method(http, before), VEL_ERROR_NONE);
        EXPECT_EQ(GetParam().set(http), VEL_ERROR_NONE);
        inside([&] { EXPECT_STREQ(vel_http_get_method(http), GetParam().method); });
        EXPECT_STREQ(vel_http_get_method(http), GetParam().method);
    }
    EXPECT_EQ(logged(), lines());
}

static const method_case kMethodCases[] = {
    {"Default", [](velhttp *http) { return vel_http_reset(http); }, "GET"},
    {"Get", [](velhttp *http) { return set_plain(vel_http_set_method_get, http); }, "GET"},
    {"Post", [](velhttp *http) { return set_plain(vel_http_set_method_post, http); }, "POST"},
    {"Put", [](velhttp *http) { return set_plain(vel_http_set_method_put, http); }, "PUT"},
    {"Delete", [](velhttp *http) { return set_plain(vel_http_set_method_delete, http); }, "DELETE"},
    {"GetByName", set_to("GET"), "GET"},
    {"PostByName", set_to("POST"), "POST"},
    {"PutByName", set_to("PUT"), "PUT"},
    {"DeleteByName", set_to("DELETE"), "DELETE"},
    {"SmallGet", set_to("get"), "get"},
    {"SmallPost", set_to("post"), "post"},
    {"Longer", set_to("GETS"), "GETS"},
    {"Shorter", set_to("GE"), "GE"},
    {"Other", set_to("OPTIONS"), "OPTIONS"},
    {"Empty", set_to(""), ""},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpMethod, testing::ValuesIn(kMethodCases),
                         support::row_name());

TEST_F(Velhttp, MethodIsACopy)
{
    char method[] = "LIST";
    EXPECT_EQ(vel_http_set_method(http, method), VEL_ERROR_NONE);
    method[0] = 'x';
    inside([&] { EXPECT_STREQ(vel_http_get_method(http), "LIST"); });
}

TEST_F(Velhttp, MethodWithoutMemoryIsNone)
{
    support::warm_log(log);
    EXPECT_EQ(vel_http_set_method(http, "OLD"), VEL_ERROR_NONE);
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_http_set_method(http, "NEW"), VEL_ERROR_NO_MEMORY);
    }
    EXPECT_EQ(logged(), lines{line(7, "not enough memory for setting method to 'NEW'")});
    inside([&] {
        EXPECT_STREQ(vel_http_get_method(http), "GET");
        EXPECT_EQ(logged(), lines{line(6, "INTERNAL ERROR: Unrecognized method 0")});
    });
}

TEST_F(Velhttp, FixedMethodNeedsNoMemory)
{
    support::malloc_watch watch(1, 64);
    for (const char *method : {"GET", "POST", "PUT", "DELETE"})
        EXPECT_EQ(vel_http_set_method(http, method), VEL_ERROR_NONE);
}

/* Request headers and body. */

TEST_F(Velhttp, HeadersStandInTheirOrder)
{
    char third[] = "a: 3";
    for (const char *header :
         std::initializer_list<const char *>{"b: 1", "a: 2", third, "no colon", ""})
        EXPECT_EQ(vel_http_add_header(http, header), VEL_ERROR_NONE);
    third[0] = 'x';
    EXPECT_EQ(http_headers(http), (names{"b: 1", "a: 2", "a: 3", "no colon", ""}));
    inside([&] {
        EXPECT_EQ(http_headers(http), (names{"b: 1", "a: 2", "a: 3", "no colon", ""}));
        EXPECT_EQ(vel_http_add_header(http, "c: 4"), VEL_ERROR_NONE);
        EXPECT_EQ(http_headers(http).size(), 6u);
    });
    EXPECT_EQ(http_headers(http), names());
    EXPECT_EQ(logged(), lines());
}

TEST_F(Velhttp, HeaderIsWrittenAtTheEnd)
{
    const char *header = "dirt";
    EXPECT_EQ(vel_http_get_header(http, nullptr, &header), nullptr);
    EXPECT_EQ(header, nullptr);
    EXPECT_EQ(vel_http_add_header(http, "a: 1"), VEL_ERROR_NONE);
    void *iterator = vel_http_get_header(http, nullptr, &header);
    ASSERT_NE(iterator, nullptr);
    EXPECT_STREQ(header, "a: 1");
    EXPECT_EQ(vel_http_get_header(http, iterator, &header), nullptr);
    EXPECT_EQ(header, nullptr);
}

TEST_F(Velhttp, HeaderWithoutMemory)
{
    EXPECT_EQ(vel_http_add_header(http, "a: 1"), VEL_ERROR_NONE);
    const auto failures = each_failure(log, kModule, [&] {
        const vel_error_t result = vel_http_add_header(http, "b: 2");
        EXPECT_TRUE(result == VEL_ERROR_NONE || result == VEL_ERROR_NO_MEMORY);
        return result == VEL_ERROR_NONE;
    });
    EXPECT_EQ(failures, (std::vector<lines>{{line(7, "not enough memory for header entry")},
                                            {line(7, "not enough memory for header line")}}));
    EXPECT_EQ(http_headers(http), (names{"a: 1", "b: 2"}));
}

TEST_F(Velhttp, RequestBodyIsACopy)
{
    EXPECT_EQ(request_body(), "NULL, 0");
    char data[] = "a\0b";
    EXPECT_EQ(vel_http_set_request_body(http, data, 3), VEL_ERROR_NONE);
    data[0] = 'x';
    EXPECT_EQ(request_body(), std::string("a\0b", 3));
    EXPECT_EQ(vel_http_set_request_body(http, "longer one", 10), VEL_ERROR_NONE);
    EXPECT_EQ(request_body(), "longer one");
    inside([&] { EXPECT_EQ(request_body(), "longer one"); });
    EXPECT_EQ(request_body(), "longer one");
    inside([&] { EXPECT_EQ(request_body(), "longer one"); });
}

TEST_F(Velhttp, RequestBodyMayBeEmpty)
{
    size_t len = 77;
    EXPECT_EQ(vel_http_set_request_body(http, "x", 0), VEL_ERROR_NONE);
    vel_http_get_request_body(http, &len);
    EXPECT_EQ(len, 0u);
}

TEST_F(Velhttp, RequestBodyWithoutMemoryKeepsTheEarlierOne)
{
    support::warm_log(log);
    EXPECT_EQ(vel_http_set_request_body(http, "earlier", 7), VEL_ERROR_NONE);
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_http_set_request_body(http, "later", 5), VEL_ERROR_NO_MEMORY);
    }
    EXPECT_EQ(logged(), lines{line(7, "not enough memory for request body (5 bytes)")});
    EXPECT_EQ(request_body(), "earlier");
}

/* Proxy. */

TEST_F(Velhttp, NoProxyAtFirst)
{
    perform();
    EXPECT_EQ(proxy(), "NULL:0");
    EXPECT_EQ(auth(), nowhere("NULL", "NULL"));
}

TEST_F(Velhttp, ProxyIsSetAndRemoved)
{
    perform();
    char name[] = "proxy";
    EXPECT_EQ(vel_http_set_proxy(http, name, 65535), VEL_ERROR_NONE);
    name[0] = 'x';
    EXPECT_EQ(proxy(), "proxy:65535");
    EXPECT_EQ(vel_http_set_proxy(http, "other", 1), VEL_ERROR_NONE);
    EXPECT_EQ(proxy(), "other:1");
    EXPECT_EQ(vel_http_set_proxy(http, nullptr, 0), VEL_ERROR_NONE);
    EXPECT_EQ(proxy(), "NULL:0");
    EXPECT_EQ(vel_http_set_proxy(http, nullptr, 8080), VEL_ERROR_NONE);
    EXPECT_EQ(proxy(), "NULL:8080");
    EXPECT_EQ(vel_http_set_proxy(http, "", 8080), VEL_ERROR_NONE);
    EXPECT_EQ(proxy(), ":8080");
    EXPECT_EQ(logged(), lines());
}

TEST_F(Velhttp, ProxyGettersTakeNull)
{
    EXPECT_EQ(vel_http_set_proxy_with_auth(http, "proxy", 3128, "u", "p"), VEL_ERROR_NONE);
    perform();
    const char *text = nullptr;
    unsigned int port = 0;
    vel_http_get_proxy(http, nullptr, nullptr);
    vel_http_get_proxy(http, &text, nullptr);
    EXPECT_STREQ(text, "proxy");
    vel_http_get_proxy(http, nullptr, &port);
    EXPECT_EQ(port, 3128u);
    vel_http_get_proxy_auth(http, nullptr, nullptr);
    vel_http_get_proxy_auth(http, &text, nullptr);
    EXPECT_STREQ(text, "u");
    vel_http_get_proxy_auth(http, nullptr, &text);
    EXPECT_STREQ(text, "p");
}

TEST_F(Velhttp, ProxyAuth)
{
    perform();
    EXPECT_EQ(vel_http_set_proxy_with_auth(http, "proxy", 3128, "u", "p"), VEL_ERROR_NONE);
    EXPECT_EQ(proxy(), "proxy:3128");
    EXPECT_EQ(auth(), nowhere("u", "p"));
    EXPECT_EQ(vel_http_set_proxy_with_auth(http, "proxy", 3128, "v", nullptr), VEL_ERROR_NONE);
    EXPECT_EQ(auth(), nowhere("v", ""));
    EXPECT_EQ(vel_http_set_proxy_with_auth(http, "other", 1, "", "p"), VEL_ERROR_NONE);
    EXPECT_EQ(proxy(), "other:1");
    EXPECT_EQ(auth(), nowhere("NULL", "NULL"));
    EXPECT_EQ(logged(), lines());
}

TEST_F(Velhttp, ProxyForgetsCredentials)
{
    perform();
    EXPECT_EQ(vel_http_set_proxy_with_auth(http, "proxy", 3128, "u", "p"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_set_proxy(http, "proxy", 3128), VEL_ERROR_NONE);
    EXPECT_EQ(auth(), nowhere("NULL", "NULL"));
}

TEST_F(Velhttp, ProxyWithoutMemoryForgetsCredentialsAllTheSame)
{
    perform();
    support::warm_log(log);
    EXPECT_EQ(vel_http_set_proxy_with_auth(http, "proxy", 3128, "u", "p"), VEL_ERROR_NONE);
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_http_set_proxy(http, "other", 1), VEL_ERROR_NO_MEMORY);
    }
    EXPECT_EQ(logged(), lines{line(7, "not enough memory for proxy hostname 'other'")});
    EXPECT_EQ(proxy(), "proxy:3128");
    EXPECT_EQ(auth(), nowhere("NULL", "NULL"));
}

TEST_F(Velhttp, ProxyAuthWithoutMemory)
{
    perform();
    std::vector<nowhere> seen;
    const auto failures = each_failure(log, kModule, [&] {
        {
            support::malloc_watch pause;
            EXPECT_EQ(vel_http_set_proxy_with_auth(http, "proxy", 3128, "u", "p"), VEL_ERROR_NONE);
        }
        support::malloc_watch watch(seen.size() + 1);
        const vel_error_t result = vel_http_set_proxy_with_auth(http, "other", 1, "v", "q");
        EXPECT_TRUE(result == VEL_ERROR_NONE || result == VEL_ERROR_NO_MEMORY);
        seen.push_back(auth());
        EXPECT_EQ(proxy(), result == VEL_ERROR_NONE ? "other:1" : "proxy:3128");
        return result == VEL_ERROR_NONE;
    });
    EXPECT_EQ(failures,
              (std::vector<lines>{{line(7, "not enough memory for proxy auth")},
                                  {line(7, "not enough memory for proxy hostname 'other'")}}));
    EXPECT_EQ(seen, (std::vector<nowhere>{{"u", "p"}, {"u", "p"}, {"NULL", "NULL"}, {"v", "q"}}));
}

/* Certificates. */

TEST_F(Velhttp, CertificateNames)
{
    perform();
    EXPECT_EQ(ca(), nowhere("NULL", "NULL"));
    char name[] = "file";
    EXPECT_EQ(vel_http_set_ca_filename(http, name), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_set_ca_path(http, "path"), VEL_ERROR_NONE);
    name[0] = 'x';
    EXPECT_EQ(ca(), nowhere("file", "path"));
    EXPECT_EQ(vel_http_set_ca_filename(http, "other"), VEL_ERROR_NONE);
    EXPECT_EQ(ca(), nowhere("other", "path"));
    EXPECT_EQ(vel_http_set_ca_filename(http, nullptr), VEL_ERROR_NONE);
    EXPECT_EQ(ca(), nowhere("NULL", "path"));
    EXPECT_EQ(vel_http_set_ca_path(http, ""), VEL_ERROR_NONE);
    EXPECT_EQ(ca(), nowhere("NULL", ""));
    EXPECT_EQ(vel_http_set_ca_path(http, nullptr), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_set_ca_path(http, nullptr), VEL_ERROR_NONE);
    EXPECT_EQ(ca(), nowhere("NULL", "NULL"));
    EXPECT_EQ(logged(), lines());

    const char *text = nullptr;
    EXPECT_EQ(vel_http_set_ca_path(http, "path"), VEL_ERROR_NONE);
    vel_http_get_ca_information(http, nullptr, nullptr);
    vel_http_get_ca_information(http, nullptr, &text);
    EXPECT_STREQ(text, "path");
    vel_http_get_ca_information(http, &text, nullptr);
    EXPECT_EQ(text, nullptr);
}

TEST_F(Velhttp, CertificateNamesWithoutMemory)
{
    using setter = vel_error_t (*)(velhttp *, const char *);
    perform();
    support::warm_log(log);
    for (const setter set : {setter(vel_http_set_ca_filename), setter(vel_http_set_ca_path)}) {
        EXPECT_EQ(set(http, "old"), VEL_ERROR_NONE);
        {
            support::malloc_watch watch(1, 64);
            EXPECT_EQ(set(http, "new"), VEL_ERROR_NO_MEMORY);
            EXPECT_EQ(set(http, "old"), VEL_ERROR_NONE) << "equal texts need no copy";
        }
        EXPECT_EQ(logged(), lines{line(7, "not enough memory for copy of the value")});
    }
    EXPECT_EQ(ca(), nowhere("old", "old"));
}

TEST_F(Velhttp, SystemCertificates)
{
    EXPECT_EQ(vel_http_is_system_ca_enabled(http), 0);
    vel_http_enable_system_ca(http);
    EXPECT_EQ(vel_http_is_system_ca_enabled(http), 1);
    vel_http_enable_system_ca(http);
    EXPECT_EQ(vel_http_is_system_ca_enabled(http), 1);
    inside([&] { EXPECT_EQ(vel_http_is_system_ca_enabled(http), 1); });
    EXPECT_EQ(logged(), lines());
}

/* Limits. */

TEST_F(Velhttp, IdleTimeout)
{
    int seconds = 77;
    unsigned int microseconds = 77;
    perform();
    vel_http_get_idle_timeout(http, &seconds, &microseconds);
    EXPECT_EQ(seconds, 30);
    EXPECT_EQ(microseconds, 0u);
    vel_http_set_idle_timeout(http, -5, 999999);
    vel_http_get_idle_timeout(http, &seconds, &microseconds);
    EXPECT_EQ(seconds, -5);
    EXPECT_EQ(microseconds, 999999u);
}

TEST_F(Velhttp, TimeoutResetGivesTheLimit)
{
    int seconds = 77;
    unsigned int microseconds = 77;
    vel_http_timeout_reset(http, &seconds, &microseconds);
    EXPECT_EQ(seconds, -1);
    EXPECT_EQ(microseconds, 0u);
    vel_http_set_timeout(http, 5, 7);
    vel_http_timeout_reset(http, &seconds, nullptr);
    vel_http_timeout_reset(http, nullptr, &microseconds);
    vel_http_timeout_reset(http, nullptr, nullptr);
    EXPECT_EQ(seconds, 5);
    EXPECT_EQ(microseconds, 7u);
    EXPECT_EQ(logged(), lines());
}
