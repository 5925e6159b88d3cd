#include "support/httpperform.h"

/* Asynchronous transfers. */

class VelhttpAsync : public VelhttpPerform {
  protected:
    void SetUp() override
    {
        VelhttpPerform::SetUp();
        EXPECT_EQ(vel_http_add_header(http, "a: 1"), VEL_ERROR_NONE);
        EXPECT_EQ(vel_http_set_request_body(http, "body", 4), VEL_ERROR_NONE);
        vel_http_enable_system_ca(http);
        backend.start = [&](velhttp *, velhttprequest *request, vel_error_t *) {
            requests.push_back(request);
            return &dirt;
        };
        done = [&](velhttp *asked, vel_error_t result) {
            EXPECT_EQ(asked, http);
            results.push_back(result);
        };
    }

    void *start(vel_error_t expected)
    {
        vel_error_t result = 77;
        void *given = vel_http_perform_async(http, call_completion, &done, &result);
        EXPECT_EQ(result, expected);
        return given;
    }

    bool prepared_is_fresh()
    {
        size_t len = 77;
        return vel_http_get_request_body(http, &len) == nullptr && len == 0 &&
               http_headers(http).empty() && vel_http_is_system_ca_enabled(http) == 0;
    }

    int dirt = 0;
    std::vector<velhttprequest *> requests;
    std::vector<vel_error_t> results;
    completion_function done;
};

TEST_F(VelhttpAsync, WithoutCallback)
{
    vel_http_set_perform_async_callback(http, nullptr);
    EXPECT_EQ(start(VEL_ERROR_UNSUPPORTED), nullptr);
    EXPECT_EQ(logged(), lines{line(6, "The HTTP implementation does not support performing an "
                                      "asynchronous operation")});
    EXPECT_TRUE(prepared_is_fresh());
    EXPECT_EQ(results, std::vector<vel_error_t>());
}

TEST_F(VelhttpAsync, StartsAndCompletes)
{
    EXPECT_EQ(start(VEL_ERROR_NONE), http);
    EXPECT_EQ(backend.calls, names{"start"});
    EXPECT_TRUE(prepared_is_fresh());
    EXPECT_EQ(vel_http_get_status_code(http), 0u);
    EXPECT_EQ(logged(), lines{line(6, "no active request set")}) << "the start activates nothing";

    vel_http_set_active_request(http, requests[0]);
    vel_http_set_status_code(http, 200);
    EXPECT_EQ(vel_http_write_response_header(http, "server", "y"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_write_response_body(http, "answer", 6), VEL_ERROR_NONE);
    vel_http_set_active_request(http, nullptr);
    done = [&](velhttp *, vel_error_t result) {
        results.push_back(result);
        EXPECT_EQ(vel_http_get_status_code(http), 200u);
        EXPECT_STREQ(vel_http_get_response_header(http, "server"), "y");
        EXPECT_EQ(response_body(), "answer");
        EXPECT_EQ(vel_http_is_system_ca_enabled(http), 1);
    };
    vel_http_complete_request(http, requests[0], VEL_ERROR_IO);
    EXPECT_EQ(results, std::vector<vel_error_t>{VEL_ERROR_IO});
    EXPECT_EQ(vel_http_is_system_ca_enabled(http), 0);
    EXPECT_EQ(logged(), lines());
    EXPECT_EQ(vel_http_get_status_code(http), 0u);
    EXPECT_EQ(logged(), lines{line(6, "no active request set")});
}

TEST_F(VelhttpAsync, SeveralAtOnce)
{
    for (int transfer = 0; transfer < 3; transfer++) {
        EXPECT_EQ(vel_http_set_method(http, std::to_string(transfer).c_str()), VEL_ERROR_NONE);
        EXPECT_EQ(start(VEL_ERROR_NONE), http);
    }
    names methods;
    done = [&](velhttp *, vel_error_t result) {
        methods.push_back(std::string(vel_http_get_method(http)) + " " + std::to_string(result));
    };
    for (const size_t transfer : {1u, 2u, 0u})
        vel_http_complete_request(http, requests[transfer], static_cast<int>(transfer));
    EXPECT_EQ(methods, (names{"1 1", "2 2", "0 0"}));
}

TEST_F(VelhttpAsync, CompletionMayStartTheNext)
{
    done = [&](velhttp *, vel_error_t result) {
        results.push_back(result);
        if (results.size() < 3) {
            EXPECT_EQ(start(VEL_ERROR_NONE), http);
        }
    };
    EXPECT_EQ(start(VEL_ERROR_NONE), http);
    for (size_t transfer = 0; transfer < 3; transfer++)
        vel_http_complete_request(http, requests[transfer], static_cast<int>(transfer));
    EXPECT_EQ(results, (std::vector<vel_error_t>{0, 1, 2}));
}

TEST_F(VelhttpAsync, StartFails)
{
    backend.start = [&](velhttp *, velhttprequest *, vel_error_t *errorptr) {
        *errorptr = VEL_ERROR_BUSY;
        return nullptr;
    };
    EXPECT_EQ(start(VEL_ERROR_BUSY), nullptr);
    EXPECT_TRUE(prepared_is_fresh());
    EXPECT_EQ(results, std::vector<vel_error_t>());
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpAsync, StartFailsAfterASynchronousTransfer)
{
    EXPECT_EQ(inside([&] { vel_http_set_status_code(http, 200); }), VEL_ERROR_NONE);
    vel_http_set_perform_async_callback(http, nullptr);
    EXPECT_EQ(start(VEL_ERROR_UNSUPPORTED), nullptr);
    log.clear();
    EXPECT_EQ(vel_http_get_status_code(http), 0u);
    EXPECT_EQ(logged(), lines{line(6, "no active request set")});
}

TEST_F(VelhttpAsync, TransferSeesTheRequest)
{
    vel_http_set_timeout(http, 5, 0);
    vel_http_set_idle_timeout(http, 7, 0);
    pass(100);
    backend.start = [&](velhttp *, velhttprequest *request, vel_error_t *) -> void * {
        /* The fresh one is not prepared before this call has returned. */
        size_t len = 0;
        EXPECT_NE(vel_http_get_request_body(http, &len), nullptr);
        EXPECT_EQ(http_headers(http), names{"a: 1"});
        vel_http_set_active_request(http, request);
        EXPECT_EQ(wait_of_check(), span(5, 0));
        pass(1);
        EXPECT_EQ(wait_of_check(), span(4, 0));
        vel_http_set_active_request(http, nullptr);
        requests.push_back(request);
        return request;
    };
    EXPECT_EQ(start(VEL_ERROR_NONE), http);
    vel_http_complete_request(http, requests[0], VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpAsync, ResponseIsReset)
{
    EXPECT_EQ(inside([&] {
                  vel_http_set_status_code(http, 200);
                  vel_http_write_response_header(http, "server", "y");
                  vel_http_write_response_body(http, "old", 3);
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(start(VEL_ERROR_NONE), http);
    done = [&](velhttp *, vel_error_t) {
        EXPECT_EQ(vel_http_get_status_code(http), 0u);
        EXPECT_EQ(vel_http_get_response_header(http, "server"), nullptr);
        EXPECT_EQ(response_body(), "none");
        results.push_back(0);
    };
    vel_http_complete_request(http, requests[0], VEL_ERROR_NONE);
    EXPECT_EQ(results.size(), 1u);
}

TEST_F(VelhttpAsync, ProgressIsToldAtTheStart)
{
    progress download;
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    backend.start = [&](velhttp *, velhttprequest *request, vel_error_t *) {
        EXPECT_EQ(download.calls, (told{{0, -1}}));
        vel_http_set_active_request(http, request);
        EXPECT_EQ(wait_of_check(), span(1, 0));
        vel_http_set_active_request(http, nullptr);
        requests.push_back(request);
        return request;
    };
    EXPECT_EQ(start(VEL_ERROR_NONE), http);
    EXPECT_EQ(download.calls.size(), 1u);
    vel_http_complete_request(http, requests[0], VEL_ERROR_NONE);
}

TEST_F(VelhttpAsync, ProxyCallback)
{
    names asked;
    proxy_function choose = [&](velhttp *, const std::string &scheme, const std::string &host,
                                unsigned int port) -> vel_error_t {
        asked.push_back(scheme + " " + host + " " + std::to_string(port));
        return asked.size() == 1 ? VEL_ERROR_NONE : VEL_ERROR_ACCESS;
    };
    vel_http_set_proxy_callback(http, call_proxy, &choose);
    EXPECT_EQ(start(VEL_ERROR_NONE), http);
    vel_http_complete_request(http, requests[0], VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines());

    vel_http_set_proxy_callback(http, call_proxy, &choose);
    EXPECT_EQ(vel_http_set_url(http, "http://b/"), VEL_ERROR_NONE);
    EXPECT_EQ(start(VEL_ERROR_ACCESS), nullptr);
    EXPECT_EQ(asked, (names{"http a 81", "http b 80"}));
    EXPECT_EQ(backend.count("start"), 1u);
    EXPECT_EQ(logged(), lines{line(7, "the proxy callback returned error 13 (permission "
                                      "denied)")});
}

TEST_F(VelhttpAsync, ProxyCallbackOfAnUnparsableUrl)
{
    proxy_function choose = [](velhttp *, const std::string &, const std::string &, unsigned int) {
        return VEL_ERROR_NONE;
    };
    vel_http_set_proxy_callback(http, call_proxy, &choose);
    EXPECT_EQ(vel_http_set_url(http, "http://a:b:c/d"), VEL_ERROR_NONE);
    EXPECT_EQ(start(VEL_ERROR_INVALID_ARGUMENT), nullptr);
    EXPECT_EQ(logged(), lines{line(7, "unable to parse URL 'http://a:b:c', error 22 (invalid "
                                      "argument)")});
    EXPECT_TRUE(prepared_is_fresh());
}

/* The one that is active, not the one that is being started, gets the proxy. */
TEST_F(VelhttpAsync, ProxyCallbackSetsTheProxyOfTheActiveRequest)
{
    EXPECT_EQ(start(VEL_ERROR_NONE), http);
    vel_http_set_active_request(http, requests[0]);
    proxy_function choose = [&](velhttp *asking, const std::string &, const std::string &,
                                unsigned int) {
        return vel_http_set_proxy_with_auth(asking, "chosen", 5, "u", "p");
    };
    EXPECT_EQ(vel_http_set_url(http, "http://b/"), VEL_ERROR_NONE);
    vel_http_set_proxy_callback(http, call_proxy, &choose);
    EXPECT_EQ(start(VEL_ERROR_NONE), http);
    EXPECT_EQ(vel_http_set_proxy(http, "prepared", 6), VEL_ERROR_NONE) << "callback is over";
    names proxies;
    done = [&](velhttp *, vel_error_t) {
        const char *hostname = nullptr, *user = nullptr;
        vel_http_get_proxy(http, &hostname, nullptr);
        vel_http_get_proxy_auth(http, &user, nullptr);
        proxies.push_back(std::string(hostname ? hostname : "NULL") + (user ? user : ""));
    };
    vel_http_complete_request(http, requests[0], VEL_ERROR_NONE);
    vel_http_complete_request(http, requests[1], VEL_ERROR_NONE);
    EXPECT_EQ(proxies, (names{"chosenu", "NULL"}));
}

TEST_F(VelhttpAsync, WithoutMemoryThePreparedRequestStays)
{
    const support::log_line last = line(7, "unable to create new velhttp request context");
    size_t len = 0;
    support::warm_log(log);
    size_t number = 0;
    for (;;) {
        void *given;
        vel_error_t result = 77;
        {
            support::malloc_watch watch(++number);
            given = vel_http_perform_async(http, call_completion, &done, &result);
        }
        if (given)
            break;
        ASSERT_LT(number, 64u);
        EXPECT_EQ(result, VEL_ERROR_NO_MEMORY);
        EXPECT_EQ(logged().back(), last);
        EXPECT_NE(vel_http_get_request_body(http, &len), nullptr);
        EXPECT_EQ(http_headers(http), names{"a: 1"});
        EXPECT_EQ(vel_http_is_system_ca_enabled(http), 1);
    }
    EXPECT_GT(number, 6u);
    vel_http_complete_request(http, requests[0], VEL_ERROR_NONE);
}

class VelhttpAsyncDeathTest : public VelhttpAsync {};

TEST_F(VelhttpAsyncDeathTest, Arguments)
{
    vel_error_t result;
    EXPECT_DEATH(vel_http_perform_async(http, nullptr, nullptr, &result),
                 asserts("callback != NULL", "vel_http_perform_async"));
    EXPECT_DEATH(vel_http_perform_async(http, call_completion, nullptr, nullptr),
                 asserts("result != NULL", "vel_http_perform_async"));
    EXPECT_DEATH(vel_http_complete_request(http, nullptr, VEL_ERROR_NONE),
                 asserts("velhttprequest != NULL", "vel_http_complete_request"));
}

TEST_F(VelhttpAsyncDeathTest, ProxyCallbackWithoutUrl)
{
    proxy_function choose = [](velhttp *, const std::string &, const std::string &, unsigned int) {
        return VEL_ERROR_NONE;
    };
    EXPECT_EQ(vel_http_reset(http), VEL_ERROR_NONE);
    vel_http_set_proxy_callback(http, call_proxy, &choose);
    EXPECT_DEATH(start(VEL_ERROR_NONE), asserts("url != NULL", "vel_url_set_url"));
}

TEST_F(VelhttpAsyncDeathTest, ProxyCallbackWithoutAnActiveRequest)
{
    proxy_function choose = [](velhttp *asking, const std::string &, const std::string &,
                               unsigned int) { return vel_http_set_proxy(asking, "h", 1); };
    vel_http_set_proxy_callback(http, call_proxy, &choose);
    EXPECT_DEATH(start(VEL_ERROR_NONE), asserts("request != NULL", "vel_http_set_proxy"));
}

TEST_F(VelhttpAsyncDeathTest, StartFailsWithoutAnError)
{
    backend.start = [](velhttp *, velhttprequest *, vel_error_t *errorptr) {
        *errorptr = VEL_ERROR_NONE;
        return nullptr;
    };
    EXPECT_DEATH(start(VEL_ERROR_NONE),
                 asserts("velerror != VEL_ERROR_NONE", "vel_http_perform_async"));
}

TEST_F(VelhttpAsyncDeathTest, CompletionWithinTheStart)
{
    backend.start = [](velhttp *velhttp, velhttprequest *request, vel_error_t *) {
        vel_http_complete_request(velhttp, request, VEL_ERROR_NONE);
        return request;
    };
    EXPECT_DEATH(start(VEL_ERROR_NONE),
                 asserts("velhttp->preparereq != velhttprequest", "vel_http_complete_request"));
}
