#include "support/httpfront.h"

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
