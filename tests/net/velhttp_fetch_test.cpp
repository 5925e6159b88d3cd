#include "support/httpperform.h"
#include "support/oom.h"
#include "support/tempdir.h"

/* Into a file. */

static support::http_backend *creates;
static bool createfails;

static velhttp *create_backend()
{
    return createfails ? nullptr : creates->create();
}

class VelhttpFetch : public testing::Test {
  protected:
    void SetUp() override
    {
        creates = &backend;
        createfails = false;
        played = true;
        backend.perform = [](velhttp *velhttp) {
            vel_http_set_status_code(velhttp, 200);
            vel_http_write_response_body(velhttp, "one\n\0", 5);
            return vel_http_write_response_body(velhttp, "two", 3);
        };
    }
    void TearDown() override
    {
        played = false;
    }

    vel_error_t fetch()
    {
        return vel_http_generic_get_url_to_file("http://a/b", "out", create_backend);
    }

    lines logged()
    {
        return log.take_from(kModule);
    }

    support::temporary_directory directory;
    support::log_capture log;
    support::http_backend backend;
};

TEST_F(VelhttpFetch, IntoAFile)
{
    support::write_file("out", "something that is longer than what comes");
    EXPECT_EQ(fetch(), VEL_ERROR_NONE);
    EXPECT_EQ(support::read_file("out"), std::string("one\n\0two", 8));
    EXPECT_EQ(backend.calls, (names{"url http://a/b", "perform", "destroy"}));
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpFetch, FileWithoutLimit)
{
    backend.perform = [](velhttp *velhttp) {
        int seconds = 77;
        unsigned int microseconds = 77;
        vel_http_timeout_reset(velhttp, &seconds, &microseconds);
        EXPECT_EQ(span(seconds, microseconds), span(-1, 0));
        vel_http_set_status_code(velhttp, 200);
        return VEL_ERROR_NONE;
    };
    EXPECT_EQ(fetch(), VEL_ERROR_NONE);
    EXPECT_EQ(support::read_file("out"), "");
}

TEST_F(VelhttpFetch, FileCannotBeCreated)
{
    EXPECT_EQ(vel_http_generic_get_url_to_file("http://a/b", "missing/out", create_backend),
              VEL_ERROR_WRITE);
    EXPECT_EQ(logged(), lines{line(7, "unable to create the output file 'missing/out'")});
    EXPECT_EQ(backend.calls, names());
}

TEST_F(VelhttpFetch, ContextCannotBeCreated)
{
    createfails = true;
    EXPECT_EQ(fetch(), VEL_ERROR_GENERIC);
    EXPECT_EQ(logged(), lines{line(7, "unable to create the HTTP context")});
    EXPECT_EQ(support::read_file("out"), "");
}

TEST_F(VelhttpFetch, UrlIsRefused)
{
    backend.urlresult = VEL_ERROR_BUSY;
    EXPECT_EQ(fetch(), VEL_ERROR_BUSY);
    EXPECT_EQ(logged(), lines{line(7, "unable to set the URL, error 206 (resource is busy)")});
    EXPECT_EQ(backend.calls, (names{"url http://a/b", "destroy"}));
}

TEST_F(VelhttpFetch, TransferFailsAndWhatCameStays)
{
    backend.perform = [](velhttp *velhttp) {
        vel_http_set_status_code(velhttp, 200);
        vel_http_write_response_body(velhttp, "half", 4);
        return VEL_ERROR_CONNECTION_RESET;
    };
    EXPECT_EQ(fetch(), VEL_ERROR_CONNECTION_RESET);
    EXPECT_EQ(logged(), lines{line(7, "unable to download, error 104 (connection reset by peer)")});
    EXPECT_EQ(support::read_file("out"), "half");
    EXPECT_EQ(backend.count("destroy"), 1u);
}

TEST_F(VelhttpFetch, OtherStatus)
{
    for (const unsigned int status : {0u, 201u, 404u}) {
        backend.calls.clear();
        backend.perform = [&](velhttp *velhttp) {
            vel_http_set_status_code(velhttp, status);
            return vel_http_write_response_body(velhttp, "page", 4);
        };
        EXPECT_EQ(fetch(), VEL_ERROR_GENERIC);
        EXPECT_EQ(logged(),
                  lines{line(7, "The HTTP server returned status code " + std::to_string(status))});
        EXPECT_EQ(support::read_file("out"), "page");
        EXPECT_EQ(backend.count("destroy"), 1u);
    }
}

TEST_F(VelhttpFetch, IntoAStreamThatStaysOpen)
{
    FILE *file = fopen("out", "w+b");
    ASSERT_NE(file, nullptr);
    fputs("before ", file);
    backend.perform = [](velhttp *velhttp) {
        int seconds = 77;
        unsigned int microseconds = 77;
        EXPECT_EQ(vel_http_timeout_check(velhttp, &seconds, &microseconds), VEL_ERROR_NONE);
        EXPECT_EQ(span(seconds, microseconds), span(5, 7));
        vel_http_set_status_code(velhttp, 200);
        return vel_http_write_response_body(velhttp, "body", 4);
    };
    EXPECT_EQ(
        vel_http_generic_get_url_to_fileptr_with_timeout("http://a/b", file, 5, 7, create_backend),
        VEL_ERROR_NONE);
    EXPECT_GE(fputs(" behind", file), 0);
    EXPECT_EQ(fclose(file), 0);
    EXPECT_EQ(support::read_file("out"), "before body behind");
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpFetch, StreamWithoutTime)
{
    FILE *file = fopen("out", "w+b");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(
        vel_http_generic_get_url_to_fileptr_with_timeout("http://a/b", file, 0, 0, create_backend),
        VEL_ERROR_TIMER_EXPIRED);
    EXPECT_EQ(logged(), (lines{kFullExpired, kTimeout,
                               line(7, "unable to download, error 62 (timer expired)")}));
    EXPECT_EQ(fclose(file), 0);
}

TEST_F(VelhttpFetch, FullDisk)
{
    backend.perform = [](velhttp *velhttp) {
        vel_http_set_status_code(velhttp, 200);
        return vel_http_write_response_body(velhttp, "12345", 5);
    };
    EXPECT_EQ(vel_http_generic_get_url_to_file("http://a/b", "/dev/full", create_backend),
              VEL_ERROR_WRITE);
    EXPECT_EQ(logged(), (lines{line(7, "short write 0/5 bytes"),
                               line(7, "unable to download, error 203 (write error)")}));
    EXPECT_EQ(backend.count("destroy"), 1u);
}

TEST_F(VelhttpFetch, WithoutMemory)
{
    const auto failures = each_failure(log, kModule, [&] { return fetch() == VEL_ERROR_NONE; });
    const lines base = {line(7, "not enough memory for base URL"),
                        line(7, "unable to set the URL, error 12 (not enough memory)")};
    ASSERT_FALSE(failures.empty());
    EXPECT_EQ(failures.front(), (lines{line(7, "not enough memory for the velhttp context"),
                                       line(7, "unable to create the HTTP context")}));
    EXPECT_EQ(failures.back(), base);
}

/* The ordinary life of all of it, under failure injection. */

static bool life_of_a_transfer(velhttp *http, support::http_backend &backend)
{
    proxy_function choose = [](velhttp *asking, const std::string &, const std::string &,
                               unsigned int) {
        return vel_http_set_proxy_with_auth(asking, "proxy", 1, "u", "p");
    };
    vel_http_set_proxy_callback(http, call_proxy, &choose);
    backend.perform = [&](velhttp *) -> vel_error_t {
        const bool first = backend.count("perform") == 1;
        vel_error_t result = VEL_ERROR_NONE;
        vel_http_set_status_code(http, 407);
        if (result == VEL_ERROR_NONE)
            result = vel_http_write_response_header(http, "Proxy-Authenticate", "Basic");
        if (result == VEL_ERROR_NONE)
            result = vel_http_handle_auth_request(http);
        vel_http_set_status_code(http, first ? 302 : 200);
        if (result == VEL_ERROR_NONE)
            result = vel_http_write_response_header(http, "location", "/x");
        if (result == VEL_ERROR_NONE)
            result = vel_http_write_response_body(http, "body", 4);
        return result;
    };
    char *body = nullptr, *sized = nullptr;
    size_t size = 0;
    const bool completed =
        vel_http_set_url(http, "http://a:81/b") == VEL_ERROR_NONE &&
        vel_http_set_method(http, "LIST") == VEL_ERROR_NONE &&
        vel_http_set_ca_filename(http, "file") == VEL_ERROR_NONE &&
        vel_http_set_ca_path(http, "path") == VEL_ERROR_NONE &&
        vel_http_add_header(http, "a: 1") == VEL_ERROR_NONE &&
        vel_http_set_request_body(http, "body", 4) == VEL_ERROR_NONE &&
        vel_http_perform(http) == VEL_ERROR_NONE &&
        vel_http_get_response_body(http, &body) == VEL_ERROR_NONE &&
        vel_http_get_response_body_and_size(http, &sized, &size) == VEL_ERROR_NONE;
    vel_http_set_proxy_callback(http, nullptr, nullptr);
    vel_free(body);
    vel_free(sized);
    return completed;
}

static bool life_of_an_asynchronous_transfer(velhttp *http, support::http_backend &backend)
{
    velhttprequest *started = nullptr;
    bool received = false;
    completion_function done = [&](velhttp *, vel_error_t) {
        received = vel_http_write_response_body(http, "body", 4) == VEL_ERROR_NONE;
    };
    backend.start = [&](velhttp *, velhttprequest *request, vel_error_t *) {
        started = request;
        return request;
    };
    vel_error_t result = VEL_ERROR_NONE;
    if (!vel_http_perform_async(http, call_completion, &done, &result)) {
        EXPECT_EQ(result, VEL_ERROR_NO_MEMORY);
        return false;
    }
    vel_http_complete_request(http, started, VEL_ERROR_NONE);
    return received;
}

static bool ordinary_life()
{
    support::http_backend backend;
    velhttp *http = backend.create();
    if (!http)
        return false;
    const bool completed =
        life_of_a_transfer(http, backend) && life_of_an_asynchronous_transfer(http, backend);
    vel_http_destroy(http);
    return completed;
}

TEST(VelhttpOom, OrdinaryLife)
{
    support::vel_oom_drive(ordinary_life);
}

TEST(VelhttpFetchDeathTest, Arguments)
{
    const auto to_stream = vel_http_generic_get_url_to_fileptr_with_timeout;
    const auto to_file = vel_http_generic_get_url_to_file;
    const char *const stream = "vel_http_generic_get_url_to_fileptr_with_timeout";
    const char *const file = "vel_http_generic_get_url_to_file";
    EXPECT_DEATH(to_stream(nullptr, nullptr, 0, 0, nullptr), asserts("url != NULL", stream));
    EXPECT_DEATH(to_stream("", nullptr, 0, 0, nullptr), asserts("file != NULL", stream));
    EXPECT_DEATH(to_stream("", stdout, 0, 0, nullptr), asserts("createfunc != NULL", stream));
    EXPECT_DEATH(to_file(nullptr, nullptr, nullptr), asserts("url != NULL", file));
    EXPECT_DEATH(to_file("", nullptr, nullptr), asserts("filename != NULL", file));
    EXPECT_DEATH(to_file("", "/dev/null", nullptr), asserts("createfunc != NULL", file));
}
