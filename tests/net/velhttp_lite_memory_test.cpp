/* Allocations that fail in a transfer, and whole fetches under failure injection. */

#include "support/httplite.h"

#include <set>

#include "support/eachfailure.h"
#include "support/oom.h"
#include "support/tempdir.h"

/* Each allocation of a transfer fails in turn; some can be done without. The server repeats its one
 * exchange, and its thread does not allocate meanwhile. */
TEST_F(VelhttpLite, EachFailureOfATransferIsNamed)
{
    http_server server({{http_answer("200 OK", "Server: y\r\nContent-Length: 4\r\n", "body"),
                         http_ending::close, 4}},
                       true);
    const std::string url = server.url("/");
    ASSERT_EQ(vel_http_set_request_body(http, "body", 4), VEL_ERROR_NONE);
    ASSERT_EQ(vel_http_set_url(http, url.c_str()), VEL_ERROR_NONE);
    support::warm_log(log);
    std::set<std::string> said;
    bool reached = true;
    for (size_t number = 1; reached; number++) {
        vel_error_t result;
        size_t count;
        {
            support::malloc_watch watch(number);
            result = vel_http_perform(http);
            count = watch.sizes().size();
        }
        ASSERT_LT(count, 64u) << "more are not watched";
        reached = count >= number;
        const lines now = logged();
        for (const support::log_line &line : now)
            said.insert(line.text);
        if (result == VEL_ERROR_NONE) {
            EXPECT_EQ(body(), "body");
        } else if (result == VEL_ERROR_END_OF_FILE) {
            /* Without a socket the walk over the addresses is at its end. */
            EXPECT_EQ(now, lines{lite_error(7, "connection failed", result)});
        } else {
            EXPECT_EQ(result, VEL_ERROR_NO_MEMORY);
        }
    }
    for (const char *expected :
         {"unable to create URL parsing context", "unable to create velhandle",
          "not enough memory for request", "not enough memory for sending content length",
          "not enough memory for header 'Server' value 'y'",
          "unable to store the header 'Server' value 'y'",
          "not enough memory for header 'Content-Length' value '4'",
          "not enough memory for response body (4 bytes)",
          "the write callback did not accept the data, error 12 (not enough memory)"})
        EXPECT_EQ(said.count(expected), 1u) << expected;
    EXPECT_EQ(said.count("parsing URL '" + url + "' failed, error 12 (not enough memory)"), 1u);
}

/* Fetches of several kinds, each from a server in this process. */

static const std::string kBody(10000, 'x');

static bool fetch_to_file(const http_server &server)
{
    const vel_error_t result =
        vel_http_generic_get_url_to_file(server.url("/a").c_str(), "out", vel_http_lite_create);
    if (result == VEL_ERROR_NONE) {
        EXPECT_EQ(support::read_file("out"), kBody);
    }
    return result == VEL_ERROR_NONE;
}

static bool life_of_a_fetch()
{
    http_server server({{http_answer("200 OK", "Server: y\r\n", kBody)}}, true);
    return fetch_to_file(server);
}

static bool life_of_a_redirected_post_through_a_proxy()
{
    http_server proxy(
        {{http_answer("302 Found", "Location: /to\r\n", ""), http_ending::close, 4},
         {http_answer("407 No", "Content-Length: 0\r\n", ""), http_ending::keep, 4},
         {http_answer("200 OK", "Content-Length: 4\r\n", "body"), http_ending::hold, 4}});
    velhttp *http = vel_http_lite_create();
    if (!http)
        return false;
    char *body = nullptr;
    const bool completed = vel_http_set_proxy(http, "127.0.0.1", proxy.port()) == VEL_ERROR_NONE &&
                           vel_http_set_method(http, "LIST") == VEL_ERROR_NONE &&
                           vel_http_add_header(http, "a: 1") == VEL_ERROR_NONE &&
                           vel_http_set_request_body(http, "body", 4) == VEL_ERROR_NONE &&
                           vel_http_set_url(http, "http://h/from") == VEL_ERROR_NONE &&
                           vel_http_perform(http) == VEL_ERROR_NONE &&
                           vel_http_get_response_body(http, &body) == VEL_ERROR_NONE;
    if (completed) {
        EXPECT_EQ(vel_http_get_status_code(http), 200u);
        EXPECT_STREQ(body, "body");
    }
    vel_free(body);
    vel_http_destroy(http);
    return completed;
}

TEST(VelhttpLiteOom, Fetch)
{
    support::vel_oom_drive(life_of_a_fetch);
}

TEST(VelhttpLiteOom, RedirectedPostThroughAProxy)
{
    support::vel_oom_drive(life_of_a_redirected_post_through_a_proxy);
}

TEST(VelhttpLiteFetch, IntoAFile)
{
    support::temporary_directory directory;
    http_server server({{http_answer("200 OK", "", kBody)}});
    EXPECT_TRUE(fetch_to_file(server));
}
