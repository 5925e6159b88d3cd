#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/eachfailure.h"
#include "support/httpbackend.h"
#include "support/logcapture.h"
#include "support/rows.h"

using support::asserts;
using support::each_failure;
using support::http_headers;
using lines = std::vector<support::log_line>;
using names = std::vector<std::string>;

static const char kModule[] = "net/velhttp";
static const char kUrl[] = "http://host:81/path";

static support::log_line line(int level, const std::string &text)
{
    return {kModule, level, text};
}

/* What the getters of two texts give. */
static std::pair<std::string, std::string> pair_of(const char *first, const char *second)
{
    return {first ? first : "NULL", second ? second : "NULL"};
}

class Velhttp : public testing::Test {
  protected:
    void SetUp() override
    {
        http = backend.create();
        ASSERT_NE(http, nullptr);
    }
    void TearDown() override
    {
        if (http)
            vel_http_destroy(http);
    }

    /* Runs an action inside of a transfer that ends well. */
    void inside(const std::function<void()> &action)
    {
        backend.perform = [&](velhttp *) {
            action();
            return VEL_ERROR_NONE;
        };
        EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    }

    void perform()
    {
        inside([] {});
    }

    lines logged()
    {
        return log.take_from(kModule);
    }

    std::string proxy()
    {
        const char *hostname = "dirt";
        unsigned int port = 77;
        vel_http_get_proxy(http, &hostname, &port);
        return (hostname ? hostname : "NULL") + (":" + std::to_string(port));
    }

    std::pair<std::string, std::string> auth()
    {
        const char *user = "dirt", *password = "dirt";
        vel_http_get_proxy_auth(http, &user, &password);
        return pair_of(user, password);
    }

    std::pair<std::string, std::string> ca()
    {
        const char *filename = "dirt", *path = "dirt";
        vel_http_get_ca_information(http, &filename, &path);
        return pair_of(filename, path);
    }

    std::string request_body()
    {
        size_t len = 77;
        const void *body = vel_http_get_request_body(http, &len);
        return body ? std::string(static_cast<const char *>(body), len)
                    : "NULL, " + std::to_string(len);
    }

    support::log_capture log;
    support::http_backend backend;
    velhttp *http = nullptr;
};

using nowhere = std::pair<std::string, std::string>;

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

/* Results. */

TEST_F(Velhttp, StatusCode)
{
    perform();
    EXPECT_EQ(vel_http_get_status_code(http), 0u);
    inside([&] { vel_http_set_status_code(http, 599); });
    EXPECT_EQ(vel_http_get_status_code(http), 599u);
    backend.perform = [&](velhttp *) {
        vel_http_set_status_code(http, 201);
        return VEL_ERROR_IO;
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_IO);
    EXPECT_EQ(vel_http_get_status_code(http), 201u);
    EXPECT_EQ(logged(), lines());
}

TEST_F(Velhttp, ResponseHeader)
{
    inside([&] {
        EXPECT_EQ(vel_http_write_response_header(http, "Server", "x"), VEL_ERROR_NONE);
        EXPECT_EQ(vel_http_write_response_header(http, "SERVER", "y"), VEL_ERROR_NONE);
        EXPECT_STREQ(vel_http_get_response_header(http, "sErver"), "y");
    });
    EXPECT_STREQ(vel_http_get_response_header(http, "Server"), "y");
    EXPECT_EQ(vel_http_get_response_header(http, "Date"), nullptr);
    EXPECT_EQ(logged(), lines());
}

struct int_case {
    const char *name;
    const char *text; /* NULL for no header */
    vel_error_t result;
    int value;
};

static void PrintTo(const int_case &one, std::ostream *out)
{
    *out << testing::PrintToString(one.text);
}

class VelhttpHeaderInt : public Velhttp, public testing::WithParamInterface<int_case> {};

TEST_P(VelhttpHeaderInt, Value)
{
    inside([&] {
        if (GetParam().text) {
            EXPECT_EQ(vel_http_write_response_header(http, "X-Int", GetParam().text),
                      VEL_ERROR_NONE);
        }
    });
    int value = 77;
    EXPECT_EQ(vel_http_get_response_header_int(http, "x-int", &value), GetParam().result);
    EXPECT_EQ(value, GetParam().value);
    EXPECT_EQ(logged(), lines());
}

static const int_case kIntCases[] = {
    {"Plain", "12", VEL_ERROR_NONE, 12},
    {"Zero", "0", VEL_ERROR_NONE, 0},
    {"Negative", "-12", VEL_ERROR_NONE, -12},
    {"Plus", "+12", VEL_ERROR_NONE, 12},
    {"Blanks", " \t12 ", VEL_ERROR_NONE, 12},
    {"Decimal", "012", VEL_ERROR_NONE, 12},
    {"NotHexadecimal", "0x12", VEL_ERROR_NONE, 0},
    {"Tail", "12abc", VEL_ERROR_NONE, 12},
    {"Text", "abc", VEL_ERROR_NONE, 0},
    {"Empty", "", VEL_ERROR_NONE, 0},
    {"Largest", "2147483647", VEL_ERROR_NONE, 2147483647},
    {"AboveLargest", "2147483648", VEL_ERROR_OUT_OF_RANGE, -1},
    {"Smallest", "-2147483648", VEL_ERROR_NONE, -2147483647 - 1},
    {"BelowSmallest", "-2147483649", VEL_ERROR_OUT_OF_RANGE, -1},
    {"TwoToThe32nd", "4294967296", VEL_ERROR_OUT_OF_RANGE, -1},
    {"LargestLong", "9223372036854775807", VEL_ERROR_OUT_OF_RANGE, -1},
    {"AboveLong", "9223372036854775808", VEL_ERROR_OUT_OF_RANGE, -1},
    {"BelowLong", "-99999999999999999999", VEL_ERROR_OUT_OF_RANGE, -1},
    {"Missing", nullptr, VEL_ERROR_NOT_FOUND, -1},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpHeaderInt, testing::ValuesIn(kIntCases),
                         support::row_name());

TEST_F(Velhttp, HeaderIntDoesNotMindAnEarlierErrno)
{
    inside([&] { vel_http_write_response_header(http, "x", "5"); });
    int value = 77;
    errno = ERANGE;
    EXPECT_EQ(vel_http_get_response_header_int(http, "x", &value), VEL_ERROR_NONE);
    EXPECT_EQ(value, 5);
}

TEST_F(Velhttp, ResponseBodyIsCopied)
{
    static const std::string kBody("a\0bcd", 5);
    inside([&] {
        EXPECT_EQ(vel_http_write_response_body(http, kBody.data(), 2), VEL_ERROR_NONE);
        EXPECT_EQ(vel_http_write_response_body(http, kBody.data() + 2, 3), VEL_ERROR_NONE);
    });
    for (int round = 0; round < 2; round++) {
        char dirt = 0, *body = &dirt, *sized = &dirt;
        size_t size = 77;
        {
            support::malloc_watch watch;
            ASSERT_EQ(vel_http_get_response_body(http, &body), VEL_ERROR_NONE);
            ASSERT_EQ(vel_http_get_response_body_and_size(http, &sized, &size), VEL_ERROR_NONE);
            EXPECT_EQ(watch.sizes(), (std::vector<size_t>{6, 5}));
        }
        EXPECT_EQ(std::string(body, 6), kBody + std::string("\0", 1));
        EXPECT_EQ(std::string(sized, size), kBody);
        body[0] = sized[0] = 'x';
        vel_free(body);
        vel_free(sized);
    }
    EXPECT_EQ(logged(), lines());
}

TEST_F(Velhttp, ResponseBodyWithoutData)
{
    perform();
    char dirt = 0, *body = &dirt;
    size_t size = 77;
    EXPECT_EQ(vel_http_get_response_body(http, &body), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(body, nullptr);
    body = &dirt;
    EXPECT_EQ(vel_http_get_response_body_and_size(http, &body, &size), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(body, nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(logged(), lines(2, line(6, "no response data available")));
}

TEST_F(Velhttp, ResponseBodyWithoutMemory)
{
    inside([&] { EXPECT_EQ(vel_http_write_response_body(http, "12345", 5), VEL_ERROR_NONE); });
    support::warm_log(log);
    char dirt = 0, *body = &dirt;
    size_t size = 77;
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_http_get_response_body(http, &body), VEL_ERROR_NO_MEMORY);
    }
    EXPECT_EQ(body, nullptr);
    body = &dirt;
    EXPECT_EQ(logged(), lines{line(7, "not enough memory for response body (5 bytes)")});
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_http_get_response_body_and_size(http, &body, &size), VEL_ERROR_NO_MEMORY);
    }
    EXPECT_EQ(body, nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(logged(), lines{line(7, "not enough memory for response body (5 bytes)")});
}

TEST_F(Velhttp, ResetResponseKeepsTheStatus)
{
    inside([&] {
        vel_http_set_status_code(http, 200);
        vel_http_write_response_header(http, "a", "1");
        vel_http_write_response_body(http, "old", 3);
        vel_http_reset_response(http);
        EXPECT_EQ(vel_http_get_status_code(http), 200u);
        EXPECT_EQ(vel_http_get_response_header(http, "a"), nullptr);
        vel_http_write_response_body(http, "new", 3);
    });
    char *body = nullptr;
    EXPECT_EQ(vel_http_get_response_body(http, &body), VEL_ERROR_NONE);
    EXPECT_STREQ(body, "new");
    vel_free(body);
    vel_http_reset_response(http);
    EXPECT_EQ(vel_http_get_response_body(http, &body), VEL_ERROR_INVALID_ARGUMENT);
}

TEST_F(Velhttp, Abort)
{
    inside([&] {
        EXPECT_EQ(vel_http_is_aborted(http), 0);
        vel_http_abort(http);
        EXPECT_EQ(vel_http_is_aborted(http), 1);
        vel_http_abort(http);
        EXPECT_EQ(vel_http_is_aborted(http), 1);
    });
    EXPECT_EQ(vel_http_is_aborted(http), 0);
    EXPECT_EQ(logged(), lines(2, line(10, "aborting transfer")));
}

/* Without an active request. */

struct inactive_case {
    const char *name;
    std::function<void(velhttp *)> call;
    lines logged;
};

static void PrintTo(const inactive_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelhttpInactive : public Velhttp, public testing::WithParamInterface<inactive_case> {};

TEST_P(VelhttpInactive, BeforeAnyTransfer)
{
    GetParam().call(http);
    EXPECT_EQ(logged(), GetParam().logged);
}

TEST_P(VelhttpInactive, AfterTheActiveRequestWasTakenAway)
{
    inside([&] {
        vel_http_set_status_code(http, 200);
        vel_http_write_response_header(http, "x", "5");
        vel_http_write_response_body(http, "body", 4);
    });
    vel_http_set_active_request(http, nullptr);
    GetParam().call(http);
    EXPECT_EQ(logged(), GetParam().logged);
}

static const lines kInactive = {line(6, "no active request set")};
static char dirt;
static const inactive_case kInactiveCases[] = {
    {"StatusCode", [](velhttp *http) { EXPECT_EQ(vel_http_get_status_code(http), 0u); }, kInactive},
    {"ResponseHeader",
     [](velhttp *http) { EXPECT_EQ(vel_http_get_response_header(http, "x"), nullptr); }, kInactive},
    {"ResponseHeaderInt",
     [](velhttp *http) {
         int value = 77;
         EXPECT_EQ(vel_http_get_response_header_int(http, "x", &value), VEL_ERROR_NOT_FOUND);
         EXPECT_EQ(value, -1);
     },
     kInactive},
    {"ResponseBody",
     [](velhttp *http) {
         char *body = &dirt;
         EXPECT_EQ(vel_http_get_response_body(http, &body), VEL_ERROR_INVALID_ARGUMENT);
         EXPECT_EQ(body, nullptr);
     },
     kInactive},
    {"ResponseBodyAndSize",
     [](velhttp *http) {
         char *body = &dirt;
         size_t size = 77;
         EXPECT_EQ(vel_http_get_response_body_and_size(http, &body, &size),
                   VEL_ERROR_INVALID_ARGUMENT);
         EXPECT_EQ(body, nullptr);
         EXPECT_EQ(size, 0u);
     },
     {line(6, "vel_http_get_response_body_and_size: no active request set")}},
    {"Proxy",
     [](velhttp *http) {
         const char *hostname = "dirt";
         unsigned int port = 77;
         vel_http_get_proxy(http, &hostname, &port);
         EXPECT_EQ(hostname, nullptr);
         EXPECT_EQ(port, 0u);
         vel_http_get_proxy(http, nullptr, nullptr);
     },
     lines(2, line(6, "vel_http_get_proxy: no active request set"))},
    {"ProxyAuth",
     [](velhttp *http) {
         const char *user = "dirt", *password = "dirt";
         vel_http_get_proxy_auth(http, &user, &password);
         EXPECT_EQ(user, nullptr);
         EXPECT_EQ(password, nullptr);
         vel_http_get_proxy_auth(http, nullptr, nullptr);
     },
     lines(2, line(6, "vel_http_get_proxy_auth: no active request set"))},
    {"CaInformation",
     [](velhttp *http) {
         const char *filename = "dirt", *path = "dirt";
         vel_http_get_ca_information(http, &filename, &path);
         EXPECT_EQ(filename, nullptr);
         EXPECT_EQ(path, nullptr);
         vel_http_get_ca_information(http, nullptr, nullptr);
     },
     lines(2, line(6, "vel_http_get_ca_information: no active request set"))},
    {"IdleTimeout",
     [](velhttp *http) {
         int seconds = 77;
         unsigned int microseconds = 77;
         vel_http_get_idle_timeout(http, &seconds, &microseconds);
         EXPECT_EQ(seconds, 0);
         EXPECT_EQ(microseconds, 0u);
     },
     {line(6, "vel_http_get_idle_timeout: no active request set")}},
    {"IsAborted",
     [](velhttp *http) { EXPECT_EQ(vel_http_is_aborted(http), 0); },
     {line(6, "vel_http_is_aborted: no active request set")}},
    {"Abort",
     [](velhttp *http) { vel_http_abort(http); },
     {line(6, "vel_http_abort: no active request set")}},
    {"ResetIdleTimeout",
     [](velhttp *http) { vel_http_reset_idle_timeout(http); },
     {line(6, "vel_http_reset_idle_timeout: no active request set")}},
    {"ResetResponse", [](velhttp *http) { vel_http_reset_response(http); }, kInactive},
    {"TimeoutCheck",
     [](velhttp *http) {
         int seconds = 77;
         unsigned int microseconds = 77;
         EXPECT_EQ(vel_http_timeout_check(http, &seconds, &microseconds), VEL_ERROR_INTERNAL);
         EXPECT_EQ(seconds, -1);
         EXPECT_EQ(microseconds, 0u);
         EXPECT_EQ(vel_http_timeout_check(http, nullptr, nullptr), VEL_ERROR_INTERNAL);
     },
     lines(2, line(6, "vel_http_timeout_check: no active request set"))},
    {"WriteResponseHeader",
     [](velhttp *http) {
         EXPECT_EQ(vel_http_write_response_header(http, "a", "b"), VEL_ERROR_INVALID_ARGUMENT);
     },
     kInactive},
    {"WriteResponseBody",
     [](velhttp *http) {
         EXPECT_EQ(vel_http_write_response_body(http, "a", 1), VEL_ERROR_INVALID_ARGUMENT);
     },
     kInactive},
    {"HandleAuthRequest",
     [](velhttp *http) {
         EXPECT_EQ(vel_http_handle_auth_request(http), VEL_ERROR_INVALID_ARGUMENT);
     },
     kInactive},
    {"ProgressUploadCheck", [](velhttp *http) { vel_http_progress_upload_check(http); }, kInactive},
    {"ProgressDownloadCheck", [](velhttp *http) { vel_http_progress_download_check(http); },
     kInactive},
    {"SystemCa", [](velhttp *http) { EXPECT_EQ(vel_http_is_system_ca_enabled(http), 0); }, {}},
    {"TimeoutReset",
     [](velhttp *http) {
         int seconds = 77;
         vel_http_timeout_reset(http, &seconds, nullptr);
         EXPECT_EQ(seconds, -1);
     },
     {}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpInactive, testing::ValuesIn(kInactiveCases),
                         support::row_name());

/* Which of two requests a function reads: the active one is one that an asynchronous transfer has
 * taken, and has other settings than the prepared one. */

class VelhttpTwoRequests : public Velhttp {
  protected:
    void SetUp() override
    {
        Velhttp::SetUp();
        EXPECT_EQ(vel_http_set_proxy_with_auth(http, "active", 1, "ua", "pa"), VEL_ERROR_NONE);
        EXPECT_EQ(vel_http_set_ca_filename(http, "active"), VEL_ERROR_NONE);
        EXPECT_EQ(vel_http_set_method(http, "ACTIVE"), VEL_ERROR_NONE);
        EXPECT_EQ(vel_http_add_header(http, "active: 1"), VEL_ERROR_NONE);
        EXPECT_EQ(vel_http_set_request_body(http, "active", 6), VEL_ERROR_NONE);
        vel_http_set_timeout(http, 100, 1);
        vel_http_set_idle_timeout(http, 200, 2);
        vel_http_enable_system_ca(http);
        deprecated = vel_http_get_deprecated(http);
        backend.start = [&](velhttp *, velhttprequest *started, vel_error_t *) {
            request = started;
            return this;
        };
        vel_error_t result = VEL_ERROR_BUSY;
        const auto done = [](velhttp *, vel_error_t, void *) {};
        ASSERT_EQ(vel_http_perform_async(http, done, nullptr, &result), http);
        ASSERT_EQ(result, VEL_ERROR_NONE);
        vel_http_set_active_request(http, request);
    }
    void TearDown() override
    {
        vel_http_complete_request(http, request, VEL_ERROR_NONE);
        Velhttp::TearDown();
    }

    velhttprequest *request = nullptr;
    velhttpdeprecated *deprecated = nullptr;
};

TEST_F(VelhttpTwoRequests, ActiveGetters)
{
    EXPECT_EQ(vel_http_set_proxy(http, "prepared", 2), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_set_ca_filename(http, "prepared"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_set_method(http, "PREPARED"), VEL_ERROR_NONE);
    vel_http_set_timeout(http, 300, 3);
    vel_http_set_idle_timeout(http, 400, 4);

    int seconds = 77;
    unsigned int microseconds = 77;
    EXPECT_EQ(proxy(), "active:1");
    EXPECT_EQ(auth(), nowhere("ua", "pa"));
    EXPECT_EQ(ca(), nowhere("active", "NULL"));
    EXPECT_STREQ(vel_http_get_method(http), "ACTIVE");
    vel_http_get_idle_timeout(http, &seconds, &microseconds);
    EXPECT_EQ(seconds, 200);
    EXPECT_EQ(microseconds, 2u);
    vel_http_timeout_reset(http, &seconds, &microseconds);
    EXPECT_EQ(seconds, 100);
    EXPECT_EQ(microseconds, 1u);
    vel_http_set_active_request(http, nullptr);
    vel_http_timeout_reset(http, &seconds, &microseconds);
    EXPECT_EQ(seconds, 300);
    EXPECT_EQ(microseconds, 3u);
}

TEST_F(VelhttpTwoRequests, PreparedGetters)
{
    EXPECT_EQ(http_headers(http), names());
    EXPECT_EQ(request_body(), "NULL, 0");
    EXPECT_EQ(vel_http_add_header(http, "prepared: 1"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_set_request_body(http, "prepared", 8), VEL_ERROR_NONE);
    EXPECT_EQ(http_headers(http), names{"prepared: 1"});
    EXPECT_EQ(request_body(), "prepared");
    EXPECT_NE(vel_http_get_deprecated(http), deprecated);
}

TEST_F(VelhttpTwoRequests, SystemCertificates)
{
    EXPECT_EQ(vel_http_is_system_ca_enabled(http), 1);
    vel_http_set_active_request(http, nullptr);
    EXPECT_EQ(vel_http_is_system_ca_enabled(http), 0);
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpTwoRequests, ResetWorksOnThePreparedOne)
{
    vel_http_abort(http);
    vel_http_set_status_code(http, 200);
    EXPECT_EQ(vel_http_write_response_body(http, "body", 4), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_reset(http), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_is_aborted(http), 1);
    EXPECT_EQ(vel_http_get_status_code(http), 200u);
    EXPECT_STREQ(vel_http_get_method(http), "ACTIVE");
    char *body = nullptr;
    EXPECT_EQ(vel_http_get_response_body(http, &body), VEL_ERROR_NONE);
    EXPECT_STREQ(body, "body");
    vel_free(body);
}

/* Assertions. */

struct handle_case {
    const char *name;
    std::function<void()> call;
};

static void PrintTo(const handle_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelhttpHandleDeathTest : public testing::TestWithParam<handle_case> {};

TEST_P(VelhttpHandleDeathTest, IsAsserted)
{
    EXPECT_DEATH(GetParam().call(), asserts("velhttp != NULL", GetParam().name));
}

static const handle_case kHandleCases[] = {
    {"vel_http_destroy", [] { vel_http_destroy(nullptr); }},
    {"vel_http_reset", [] { vel_http_reset(nullptr); }},
    {"vel_http_set_async_context", [] { vel_http_set_async_context(nullptr, nullptr); }},
    {"vel_http_get_async_context", [] { vel_http_get_async_context(nullptr); }},
    {"vel_http_set_url", [] { vel_http_set_url(nullptr, nullptr); }},
    {"vel_http_set_method", [] { vel_http_set_method(nullptr, nullptr); }},
    {"vel_http_set_method_get", [] { vel_http_set_method_get(nullptr); }},
    {"vel_http_set_method_post", [] { vel_http_set_method_post(nullptr); }},
    {"vel_http_set_method_put", [] { vel_http_set_method_put(nullptr); }},
    {"vel_http_set_method_delete", [] { vel_http_set_method_delete(nullptr); }},
    {"vel_http_add_header", [] { vel_http_add_header(nullptr, nullptr); }},
    {"vel_http_set_request_body", [] { vel_http_set_request_body(nullptr, nullptr, 0); }},
    {"vel_http_set_proxy", [] { vel_http_set_proxy(nullptr, nullptr, 65536); }},
    {"vel_http_set_proxy_with_auth",
     [] { vel_http_set_proxy_with_auth(nullptr, nullptr, 65536, nullptr, nullptr); }},
    {"vel_http_set_proxy_callback", [] { vel_http_set_proxy_callback(nullptr, nullptr, nullptr); }},
    {"vel_http_set_timeout", [] { vel_http_set_timeout(nullptr, 0, 0); }},
    {"vel_http_set_idle_timeout", [] { vel_http_set_idle_timeout(nullptr, 0, 0); }},
    {"vel_http_enable_system_ca", [] { vel_http_enable_system_ca(nullptr); }},
    {"vel_http_set_ca_filename", [] { vel_http_set_ca_filename(nullptr, nullptr); }},
    {"vel_http_set_ca_path", [] { vel_http_set_ca_path(nullptr, nullptr); }},
    {"vel_http_set_response_body_callback",
     [] { vel_http_set_response_body_callback(nullptr, nullptr, nullptr); }},
    {"vel_http_set_upload_progress_callback",
     [] { vel_http_set_upload_progress_callback(nullptr, nullptr, nullptr); }},
    {"vel_http_set_download_progress_callback",
     [] { vel_http_set_download_progress_callback(nullptr, nullptr, nullptr); }},
    {"vel_http_set_progress_callbacks",
     [] { vel_http_set_progress_callbacks(nullptr, nullptr, nullptr, nullptr, nullptr); }},
    {"vel_http_perform", [] { vel_http_perform(nullptr); }},
    {"vel_http_perform_async", [] { vel_http_perform_async(nullptr, nullptr, nullptr, nullptr); }},
    {"vel_http_complete_request",
     [] { vel_http_complete_request(nullptr, nullptr, VEL_ERROR_NONE); }},
    {"vel_http_abort", [] { vel_http_abort(nullptr); }},
    {"vel_http_get_status_code", [] { vel_http_get_status_code(nullptr); }},
    {"vel_http_get_response_header", [] { vel_http_get_response_header(nullptr, nullptr); }},
    {"vel_http_get_response_header_int",
     [] { vel_http_get_response_header_int(nullptr, nullptr, nullptr); }},
    {"vel_http_get_response_body", [] { vel_http_get_response_body(nullptr, nullptr); }},
    {"vel_http_get_response_body_and_size",
     [] { vel_http_get_response_body_and_size(nullptr, nullptr, nullptr); }},
    {"vel_http_get_deprecated", [] { vel_http_get_deprecated(nullptr); }},
    {"vel_http_set_context", [] { vel_http_set_context(nullptr, nullptr); }},
    {"vel_http_get_context", [] { vel_http_get_context(nullptr); }},
    {"vel_http_set_destroy_callback", [] { vel_http_set_destroy_callback(nullptr, nullptr); }},
    {"vel_http_set_reset_callback", [] { vel_http_set_reset_callback(nullptr, nullptr); }},
    {"vel_http_set_url_callback", [] { vel_http_set_url_callback(nullptr, nullptr); }},
    {"vel_http_set_perform_callback", [] { vel_http_set_perform_callback(nullptr, nullptr); }},
    {"vel_http_set_perform_async_callback",
     [] { vel_http_set_perform_async_callback(nullptr, nullptr); }},
    {"vel_http_get_method", [] { vel_http_get_method(nullptr); }},
    {"vel_http_get_header", [] { vel_http_get_header(nullptr, nullptr, nullptr); }},
    {"vel_http_get_request_body", [] { vel_http_get_request_body(nullptr, nullptr); }},
    {"vel_http_get_proxy", [] { vel_http_get_proxy(nullptr, nullptr, nullptr); }},
    {"vel_http_get_proxy_auth", [] { vel_http_get_proxy_auth(nullptr, nullptr, nullptr); }},
    {"vel_http_get_ca_information", [] { vel_http_get_ca_information(nullptr, nullptr, nullptr); }},
    {"vel_http_is_system_ca_enabled", [] { vel_http_is_system_ca_enabled(nullptr); }},
    {"vel_http_get_idle_timeout", [] { vel_http_get_idle_timeout(nullptr, nullptr, nullptr); }},
    {"vel_http_is_aborted", [] { vel_http_is_aborted(nullptr); }},
    {"vel_http_set_status_code", [] { vel_http_set_status_code(nullptr, 0); }},
    {"vel_http_write_response_header",
     [] { vel_http_write_response_header(nullptr, nullptr, nullptr); }},
    {"vel_http_write_response_body", [] { vel_http_write_response_body(nullptr, nullptr, 0); }},
    {"vel_http_reset_response", [] { vel_http_reset_response(nullptr); }},
    {"vel_http_timeout_check", [] { vel_http_timeout_check(nullptr, nullptr, nullptr); }},
    {"vel_http_timeout_reset", [] { vel_http_timeout_reset(nullptr, nullptr, nullptr); }},
    {"vel_http_reset_idle_timeout", [] { vel_http_reset_idle_timeout(nullptr); }},
    {"vel_http_progress_upload_check", [] { vel_http_progress_upload_check(nullptr); }},
    {"vel_http_progress_upload_force", [] { vel_http_progress_upload_force(nullptr); }},
    {"vel_http_progress_download_check", [] { vel_http_progress_download_check(nullptr); }},
    {"vel_http_progress_download_force", [] { vel_http_progress_download_force(nullptr); }},
    {"vel_http_handle_auth_request", [] { vel_http_handle_auth_request(nullptr); }},
    {"vel_http_set_active_request", [] { vel_http_set_active_request(nullptr, nullptr); }},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpHandleDeathTest, testing::ValuesIn(kHandleCases),
                         support::row_name());

class VelhttpDeathTest : public Velhttp {};

TEST_F(VelhttpDeathTest, Proxy)
{
    EXPECT_DEATH(vel_http_set_proxy(http, "h", 65536),
                 asserts("port <= 65535", "vel_http_set_proxy"));
    EXPECT_DEATH(vel_http_set_proxy(http, nullptr, 65536),
                 asserts("port <= 65535", "vel_http_set_proxy"));
    EXPECT_DEATH(vel_http_set_proxy(http, "h", 0),
                 asserts("hostname == NULL || port > 0", "vel_http_set_proxy"));
    EXPECT_DEATH(vel_http_set_proxy_with_auth(http, "h", 65536, "u", "p"),
                 asserts("port <= 65535"));
    EXPECT_DEATH(vel_http_set_proxy_with_auth(http, "h", 0, "u", "p"),
                 asserts("hostname == NULL || port > 0"));
    EXPECT_DEATH(vel_http_set_proxy_with_auth(http, "h", 1, nullptr, "p"),
                 asserts("string != NULL", "vel_strdup"));
}

TEST_F(VelhttpDeathTest, Setters)
{
    EXPECT_DEATH(vel_http_set_url(http, nullptr), asserts("url != NULL", "vel_http_set_url"));
    EXPECT_DEATH(vel_http_set_method(http, nullptr),
                 asserts("method != NULL", "vel_http_set_method"));
    EXPECT_DEATH(vel_http_add_header(http, nullptr),
                 asserts("header != NULL", "vel_http_add_header"));
    EXPECT_DEATH(vel_http_set_request_body(http, nullptr, 0),
                 asserts("data != NULL", "vel_http_set_request_body"));
    EXPECT_DEATH(vel_http_set_timeout(http, 0, 1000000), asserts("microseconds < 1000000"));
    EXPECT_DEATH(vel_http_set_idle_timeout(http, 0, 1000000), asserts("microseconds < 1000000"));
}

TEST_F(VelhttpDeathTest, Getters)
{
    int seconds;
    EXPECT_DEATH(vel_http_get_request_body(http, nullptr),
                 asserts("bodylenptr != NULL", "vel_http_get_request_body"));
    EXPECT_DEATH(vel_http_get_header(http, nullptr, nullptr),
                 asserts("headerptr != NULL", "vel_http_get_header"));
    EXPECT_DEATH(vel_http_get_idle_timeout(http, nullptr, nullptr),
                 asserts("secondsptr != NULL", "vel_http_get_idle_timeout"));
    EXPECT_DEATH(vel_http_get_idle_timeout(http, &seconds, nullptr),
                 asserts("microsecondsptr != NULL", "vel_http_get_idle_timeout"));
}

TEST_F(VelhttpDeathTest, WithoutAnActiveRequest)
{
    EXPECT_DEATH(vel_http_set_status_code(http, 200),
                 asserts("velhttprequest != NULL", "vel_http_set_status_code"));
    EXPECT_DEATH(vel_http_get_method(http), testing::HasSubstr("function vel_http_get_method"));
}
