/* Allocations that fail in an exchange, and whole exchanges under failure injection. */

#include "support/icap.h"

#include <cstring>
#include <set>
#include <tuple>

#include "support/eachfailure.h"
#include "support/oom.h"

static const std::string kLayout = "Encapsulated: res-hdr=0, res-body=4\r\n\r\n";
static const std::string kAnswer =
    "ICAP/1.0 200 OK\r\n" + kLayout + "head5\r\nhello\r\n5\r\nworld\r\n0\r\n\r\n";

/* The size of everything that is sent: one server serves all. */
static const std::string kBody = "abcdefghijklmnopqrstuvwxyz";
static const size_t kPartsLength = kResponse.size() + 4 + kBody.size() + 7;

class VelicapMemory : public VelicapBoth {};
INSTANTIATE_TEST_SUITE_P(Transport, VelicapMemory, testing::Bool(), transport_name());

/* Each allocation of an exchange fails in turn; some can be done without. The server repeats its
 * one exchange, and its thread does not allocate meanwhile. */
TEST_P(VelicapMemory, EachFailureOfAnExchangeIsNamed)
{
    icap_server server(GetParam(), {{kAnswer, http_ending::close, kPartsLength}}, true);
    const std::string url = server.url("/svc");
    ASSERT_EQ(vel_icap_set_url(icap, url.c_str()), VEL_ERROR_NONE);
    support::warm_log(log);
    std::set<support::log_line, decltype([](const auto &a, const auto &b) {
                 return std::tie(a.level, a.text) < std::tie(b.level, b.text);
             })>
        met;
    bool reached = true;
    for (size_t number = 1; reached; number++) {
        vel_icap_reset(icap);
        vel_icap_set_method_respmod(icap);
        set_response(kResponse);
        set_response_body(kBody);
        vel_error_t result;
        size_t count;
        {
            support::malloc_watch watch(number);
            result = vel_icap_perform(icap);
            count = watch.count();
        }
        ASSERT_LT(number, 100u);
        reached = count >= number;
        const lines now = all_logged();
        met.insert(now.begin(), now.end());
        if (result == VEL_ERROR_NONE) {
            EXPECT_EQ(headers(), "head");
            EXPECT_EQ(body(), "helloworld");
        } else if (!GetParam() && result == VEL_ERROR_END_OF_FILE) {
            /* Without a socket the walk over the addresses is at its end. */
        } else if (result == VEL_ERROR_PROTOCOL) {
            /* A header that cannot be looked up is not there. */
            EXPECT_EQ(now.back(), said(6, "no Encapsulated header in the ICAP response"));
        } else {
            EXPECT_EQ(result, VEL_ERROR_NO_MEMORY) << number;
        }
    }
    lines expected = {
        said(7, "not enough memory for URL parsing context"),
        said_error(7, "unable to parse URL '" + url + "',", 12),
        said(7, "not enough memory for request"),
        said(7, "not enough memory for chunk length"),
        said_error(7, "unable to send chunk,", 12),
        said(7, "not enough memory for raw ICAP response headers (39 bytes)"),
        said(7, "parsing headers failed"),
        said(7, "not enough memory for response body (4 bytes)"),
        said_error(7, "the write callback did not accept the data,", 12),
        said(6, "unable to read icap header"),
        said(7, "not enough memory for response body (5 bytes)"),
        said(7, "not enough memory for response body (10 bytes)"),
        said(6, "unable to read encapsulated chunked body"),
    };
    expected[5].text = "not enough memory for raw ICAP response headers (" +
                       std::to_string(kLayout.size() - 2) + " bytes)";
    if (GetParam()) {
        expected.push_back(said(7, "not enough memory for the request URL"));
        expected.push_back(said(7, "not enough memory for unescape buffer"));
        expected.push_back(said_error(
            7, "unescaping socket path '" + icap_server::escape(server.path()) + "' failed,", 12));
        expected.push_back(said(7, "not enough memory for unix domain socket handle"));
        expected.push_back(said(7, "not enough memory for TCP handle"));
    } else {
        expected.push_back(said(7, "unable to create velhandle"));
    }
    for (const support::log_line &line : expected)
        EXPECT_EQ(met.count(line), 1u) << line;
}

/* What the callback is given goes out as it is, or not at all. */
TEST_P(VelicapMemory, CallbackWithoutMemory)
{
    const auto source = [](void *buffer, size_t, void *context) -> size_t {
        auto *left = static_cast<int *>(context);
        return (*left)-- > 0 ? kBody.copy(static_cast<char *>(buffer), kBody.size()) : 0;
    };
    for (const bool encoded : {false, true}) {
        const std::string &request = encoded ? kChunkedRequest : kRequest;
        const size_t length = request.size() + kBody.size() + (encoded ? 0 : 11);
        icap_server server(GetParam(), {{"ICAP/1.0 204 No\r\n\r\n", http_ending::close, length}},
                           true);
        ASSERT_EQ(vel_icap_set_url(icap, server.url("/svc").c_str()), VEL_ERROR_NONE);
        support::warm_log(log);
        std::set<std::string> met;
        bool reached = true;
        for (size_t number = 1; reached; number++) {
            int left = 1;
            vel_icap_set_method_reqmod(icap);
            set_request(request);
            vel_icap_set_request_body_callback(icap, source, &left);
            support::malloc_watch watch(number);
            (void)vel_icap_perform(icap);
            reached = watch.count() >= number;
            ASSERT_LT(number, 100u);
            const support::malloc_pause pause;
            for (const support::log_line &line : all_logged())
                met.insert(line.text);
        }
        EXPECT_EQ(met.count("not enough memory for chunk send buffer"), 1u);
        EXPECT_EQ(met.count("vel_icap_part_is_chunk_encoded() returned error 12 (not enough "
                            "memory)"),
                  encoded ? 1u : 0u);
        EXPECT_EQ(met.count("unable to send encapsulated part, error 12 (not enough memory)"),
                  encoded ? 0u : 1u);
    }
}

/* The text before is dropped when the raw headers cannot grow. */
TEST_P(VelicapMemory, RawHeadersThatCannotGrow)
{
    icap_server server(GetParam(), {{"ICAP/1.0 204 No\r\nA: b\r\n\r\n"}}, true);
    ASSERT_EQ(vel_icap_set_url(icap, server.url("/svc").c_str()), VEL_ERROR_NONE);
    bool met = false;
    for (size_t number = 1; !met; number++) {
        ASSERT_LT(number, 100u);
        vel_icap_reset(icap);
        vel_icap_set_method_options(icap);
        {
            support::malloc_watch watch(number);
            (void)vel_icap_perform(icap);
        }
        const lines all = logged();
        met = !all.empty() && all.back() == said(7, "not enough memory for raw ICAP response "
                                                    "headers (8 bytes)");
    }
    EXPECT_EQ(icap_headers(), "none");
}

TEST_P(VelicapMemory, Results)
{
    icap_server server(GetParam(), {{kAnswer}});
    vel_icap_set_method_respmod(icap);
    set_response(kResponse);
    ASSERT_EQ(exchange(server), VEL_ERROR_NONE);
    log.clear();
    char dirt = 0, *text = &dirt;
    size_t size = 77;
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_icap_get_response_icap_headers(icap, &text), VEL_ERROR_NO_MEMORY);
    }
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(logged(), lines{said(7, "not enough memory for the ICAP response headers")});
    text = &dirt;
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_icap_get_response_headers(icap, &text), VEL_ERROR_NO_MEMORY);
    }
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(logged(), lines{said(7, "not enough memory for the encapsulated response headers")});
    text = &dirt;
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_icap_get_response_body_and_size(icap, &text, &size), VEL_ERROR_NO_MEMORY);
    }
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(logged(), lines{said(7, "not enough memory for response body (10 bytes)")});
}

/* Exchanges of several kinds, each with a server in this process. */

static const std::string kEcho = "ICAP/1.0 200 OK\r\nISTag: x\r\nEncapsulated: req-hdr=0, "
                                 "req-body=4\r\n\r\nhead5\r\nhello\r\n0\r\n\r\n";
static const std::string kFirst = "ICAP/1.0 204 No\r\nA: b\r\n\r\n";

static bool results_of(velicap *icap, const std::string &body)
{
    char *icapheaders = nullptr, *headers = nullptr, *data = nullptr;
    size_t size = 0;
    const bool completed =
        vel_icap_get_response_icap_headers(icap, &icapheaders) == VEL_ERROR_NONE &&
        vel_icap_get_response_headers(icap, &headers) == VEL_ERROR_NONE &&
        vel_icap_get_response_body_and_size(icap, &data, &size) == VEL_ERROR_NONE;
    if (completed) {
        EXPECT_STREQ(headers, "head");
        EXPECT_EQ(std::string(data, size), body);
    }
    vel_free(icapheaders);
    vel_free(headers);
    vel_free(data);
    return completed;
}

static bool life_of_exchanges(bool local)
{
    wire = {};
    icap_server server(local, {{kFirst, http_ending::close},
                               {kAnswer, http_ending::close, kPartsLength},
                               {kEcho, http_ending::close, kChunkedRequest.size() + 2}});
    velicap *icap = vel_icap_create();
    if (!icap)
        return false;
    int left = 1;
    const auto source = [](void *buffer, size_t, void *context) -> size_t {
        memcpy(buffer, "ab", 2);
        return (*static_cast<int *>(context))-- > 0 ? 2 : 0;
    };
    bool completed = vel_icap_set_url(icap, server.url("/svc").c_str()) == VEL_ERROR_NONE;
    vel_icap_set_method_options(icap);
    completed = completed && vel_icap_perform(icap) == VEL_ERROR_NONE;
    static int lost[2]; /* exchanges that failed at the first line of the ICAP headers */
    char *icapheaders = nullptr;
    if (!completed && vel_icap_get_status_code(icap) == 204 &&
        vel_icap_get_response_icap_headers(icap, &icapheaders) == VEL_ERROR_INVALID_ARGUMENT)
        lost[local]++;
    vel_free(icapheaders);
    vel_icap_set_method_respmod(icap);
    completed =
        completed &&
        vel_icap_set_response_headers(icap, kResponse.data(), kResponse.size()) == VEL_ERROR_NONE &&
        vel_icap_set_response_body(icap, kBody.data(), kBody.size()) == VEL_ERROR_NONE &&
        vel_icap_perform(icap) == VEL_ERROR_NONE && results_of(icap, "helloworld");
    vel_icap_set_method_reqmod(icap);
    vel_icap_set_request_body_callback(icap, source, &left);
    completed = completed &&
                vel_icap_set_request_headers(icap, kChunkedRequest.data(),
                                             kChunkedRequest.size()) == VEL_ERROR_NONE &&
                vel_icap_perform(icap) == VEL_ERROR_NONE &&
                results_of(icap, "5\r\nhello\r\n0\r\n\r\n0\r\n\r\n");
    if (completed) {
        EXPECT_EQ(lost[local], 1);
    }
    vel_icap_destroy(icap);
    return completed;
}

TEST(VelicapOom, Tcp)
{
    support::vel_oom_drive([] { return life_of_exchanges(false); });
}

TEST(VelicapOom, Unix)
{
    support::vel_oom_drive([] { return life_of_exchanges(true); });
}
