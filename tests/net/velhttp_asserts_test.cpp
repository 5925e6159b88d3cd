#include "support/httpfront.h"

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
    char *body;
    EXPECT_DEATH(vel_http_get_response_header(http, nullptr),
                 asserts("name != NULL", "vel_http_get_response_header"));
    EXPECT_DEATH(vel_http_get_response_header_int(http, nullptr, nullptr),
                 asserts("name != NULL", "vel_http_get_response_header_int"));
    EXPECT_DEATH(vel_http_get_response_header_int(http, "a", nullptr),
                 asserts("valueptr != NULL", "vel_http_get_response_header_int"));
    EXPECT_DEATH(vel_http_get_response_body(http, nullptr),
                 asserts("bodyptr != NULL", "vel_http_get_response_body"));
    EXPECT_DEATH(vel_http_get_response_body_and_size(http, nullptr, nullptr),
                 asserts("bodyptr != NULL", "vel_http_get_response_body_and_size"));
    EXPECT_DEATH(vel_http_get_response_body_and_size(http, &body, nullptr),
                 asserts("sizeptr != NULL", "vel_http_get_response_body_and_size"));
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
    EXPECT_DEATH(vel_http_get_method(http), asserts("activereq != NULL", "vel_http_get_method"));
}
