/* States that no caller can bring about. */

#include <cstdint>
#include <functional>
#include <ostream>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "net/velhttp_internal.h"
#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/rows.h"

using support::asserts;
using lines = std::vector<support::log_line>;

class VelhttpInternal : public testing::Test {
  protected:
    void SetUp() override
    {
        http = vel_http_generic_create();
        ASSERT_NE(http, nullptr);
        request = http->preparereq;
        vel_http_set_active_request(http, request);
    }
    void TearDown() override
    {
        http->preparereq = request;
        vel_http_destroy(http);
    }

    support::log_capture log;
    velhttp *http = nullptr;
    velhttprequest *request = nullptr;
};

TEST_F(VelhttpInternal, InitialRequest)
{
    EXPECT_EQ(request->velhttp, http);
    EXPECT_EQ(request->timeoutseconds, -1);
    EXPECT_EQ(request->timeoutmicroseconds, 0u);
    EXPECT_EQ(request->idleseconds, 30);
    EXPECT_EQ(request->idlemicroseconds, 0u);
    EXPECT_EQ(request->method, 2u);
    EXPECT_EQ(request->baseurl, nullptr);
    EXPECT_EQ(request->responsedata, nullptr);
    EXPECT_EQ(request->deprecated.invalidtlscertificatename, 0);
}

TEST_F(VelhttpInternal, OtherMethodsAreErrors)
{
    request->method = static_cast<vel_http_method>(6);
    EXPECT_STREQ(vel_http_get_method(http), "GET");
    EXPECT_EQ(log.take_from("net/velhttp"),
              (lines{{"net/velhttp", 6, "INTERNAL ERROR: Unrecognized method 6"}}));
}

TEST_F(VelhttpInternal, SizeOfTheBodyWouldWrapAround)
{
    ASSERT_EQ(vel_http_write_response_body(http, "body", 4), VEL_ERROR_NONE);
    const size_t len = request->responsedatalen;
    request->responsedatalen = SIZE_MAX;
    char dirt = 0, *body = &dirt;
    EXPECT_EQ(vel_http_get_response_body(http, &body), VEL_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(body, nullptr);
    EXPECT_EQ(log.take_from("net/velhttp"),
              (lines{{"net/velhttp", 6, "body length too high, size would wrap around"}}));
    request->responsedatalen = len;
}

TEST_F(VelhttpInternal, AuthenticationSchemes)
{
    for (const auto &[scheme, bit] : std::initializer_list<std::pair<const char *, unsigned int>>{
             {"basic x", 1}, {" DIGEST", 2}, {"ntlm", 4}, {"negotiate xyz", 8}, {"other", 0}}) {
        request->authoffered = 0;
        ASSERT_EQ(vel_http_write_response_header(http, "Proxy-Authenticate", scheme),
                  VEL_ERROR_NONE);
        EXPECT_EQ(request->authoffered, bit) << scheme;
    }
    for (const char *scheme : {"Digest", "NTLM", "Digest again"})
        ASSERT_EQ(vel_http_write_response_header(http, "proxy-authenticate", scheme),
                  VEL_ERROR_NONE);
    EXPECT_EQ(request->authoffered, 2u | 4u);
}

struct prepare_case {
    const char *name;
    std::function<void(velhttp *)> call;
    const char *expression = "preparereq != NULL";
};

static void PrintTo(const prepare_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelhttpPreparedDeathTest : public VelhttpInternal,
                                 public testing::WithParamInterface<prepare_case> {};

TEST_P(VelhttpPreparedDeathTest, IsAsserted)
{
    http->preparereq = nullptr;
    EXPECT_DEATH(GetParam().call(http), asserts(GetParam().expression, GetParam().name));
}

static size_t len;
static const char *header;
static vel_error_t error;
static int progress(int64_t, int64_t, void *)
{
    return 0;
}
static void complete(velhttp *, vel_error_t, void *)
{
}
static vel_error_t take_url(velhttp *, const char *)
{
    return VEL_ERROR_NONE;
}
static void set_url(velhttp *http)
{
    vel_http_set_url_callback(http, take_url);
    vel_http_set_url(http, "http://h/");
}

static const prepare_case kPrepareCases[] = {
    {"vel_http_reset", [](velhttp *http) { vel_http_reset(http); }},
    {"vel_http_set_proxy_callback",
     [](velhttp *http) { vel_http_set_proxy_callback(http, nullptr, nullptr); }},
    {"vel_http_set_timeout", [](velhttp *http) { vel_http_set_timeout(http, 1, 0); }},
    {"vel_http_set_idle_timeout", [](velhttp *http) { vel_http_set_idle_timeout(http, 1, 0); }},
    {"vel_http_enable_system_ca", [](velhttp *http) { vel_http_enable_system_ca(http); }},
    {"vel_http_set_ca_filename", [](velhttp *http) { vel_http_set_ca_filename(http, "f"); }},
    {"vel_http_set_ca_path", [](velhttp *http) { vel_http_set_ca_path(http, "p"); }},
    {"vel_http_set_url", set_url},
    {"vel_http_set_method", [](velhttp *http) { vel_http_set_method(http, "GET"); }},
    {"vel_http_set_method_get", [](velhttp *http) { vel_http_set_method_get(http); }},
    {"vel_http_set_method_post", [](velhttp *http) { vel_http_set_method_post(http); }},
    {"vel_http_set_method_put", [](velhttp *http) { vel_http_set_method_put(http); }},
    {"vel_http_set_method_delete", [](velhttp *http) { vel_http_set_method_delete(http); }},
    {"vel_http_add_header", [](velhttp *http) { vel_http_add_header(http, "a: 1"); }},
    {"vel_http_set_request_body", [](velhttp *http) { vel_http_set_request_body(http, "b", 1); }},
    {"vel_http_set_response_body_callback",
     [](velhttp *http) { vel_http_set_response_body_callback(http, nullptr, nullptr); }},
    {"vel_http_set_upload_progress_callback",
     [](velhttp *http) { vel_http_set_upload_progress_callback(http, progress, nullptr); }},
    {"vel_http_set_download_progress_callback",
     [](velhttp *http) { vel_http_set_download_progress_callback(http, progress, nullptr); }},
    {"vel_http_get_header", [](velhttp *http) { vel_http_get_header(http, nullptr, &header); }},
    {"vel_http_get_request_body", [](velhttp *http) { vel_http_get_request_body(http, &len); }},
    {"vel_http_set_proxy", [](velhttp *http) { vel_http_set_proxy(http, "h", 1); },
     "request != NULL"},
    {"vel_http_perform", [](velhttp *http) { vel_http_perform(http); }, "request != NULL"},
    {"vel_http_perform_async",
     [](velhttp *http) { vel_http_perform_async(http, complete, nullptr, &error); },
     "request != NULL"},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpPreparedDeathTest, testing::ValuesIn(kPrepareCases),
                         support::row_name());

class VelhttpInternalDeathTest : public VelhttpInternal {};

TEST_F(VelhttpInternalDeathTest, TimeoutIsThere)
{
    veltimeout *kept = request->veltimeout;
    request->veltimeout = nullptr;
    EXPECT_DEATH(vel_http_timeout_check(http, nullptr, nullptr),
                 asserts("veltimeout != NULL", "vel_http_timeout_check"));
    request->veltimeout = kept;
}
