/* Contexts that are used again and again, and what one exchange leaves to the next. */

#include "support/icap.h"

static const std::string kOkLine = "ICAP/1.0 200 OK\r\n";
static const std::string kLayout = "Encapsulated: res-hdr=0, res-body=4\r\n\r\n";
static const std::string kWhole = kOkLine + kLayout + "head5\r\nhello\r\n0\r\n\r\n";
static const std::string kNoContent = "ICAP/1.0 204 No\r\nISTag: x\r\n\r\n";

class VelicapPerform : public VelicapBoth {
  protected:
    vel_error_t modify(const icap_server &server)
    {
        vel_icap_set_method_respmod(icap);
        set_response(kResponse);
        return exchange(server);
    }
    vel_error_t options(const icap_server &server)
    {
        vel_icap_set_method_options(icap);
        return exchange(server);
    }

    /* Everything that an exchange may leave. */
    texts left()
    {
        return {std::to_string(vel_icap_get_status_code(icap)), icap_headers(), headers(), body()};
    }
};
INSTANTIATE_TEST_SUITE_P(Transport, VelicapPerform, testing::Bool(), transport_name());

TEST_P(VelicapPerform, ResultsCanBeReadAgainAndAgain)
{
    icap_server server(GetParam(), {{kWhole}});
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
    for (int turn = 0; turn < 3; turn++)
        EXPECT_EQ(left(), (texts{"200", kLayout, "head", "hello"}));
}

TEST_P(VelicapPerform, NoContentLeavesNothingButIcapHeaders)
{
    icap_server server(GetParam(), {{kNoContent}});
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
    EXPECT_EQ(left(), (texts{"204", "ISTag: x\r\n\r\n", "none", "none"}));
}

/* Only a reset empties the raw headers. */
TEST_P(VelicapPerform, IcapHeadersGrow)
{
    icap_server server(GetParam(), {{kWhole}, {kNoContent}, {kWhole}, {kNoContent}});
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
    EXPECT_EQ(left(), (texts{"204", kLayout + "ISTag: x\r\n\r\n", "none", "none"}));
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
    EXPECT_EQ(left(), (texts{"200", kLayout + "ISTag: x\r\n\r\n" + kLayout, "head", "hello"}));
    vel_icap_reset(icap);
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
    EXPECT_EQ(left(), (texts{"204", "ISTag: x\r\n\r\n", "none", "none"}));
}

/* The headers by name are of the last answer alone. */
TEST_P(VelicapPerform, LayoutIsNotTakenFromTheAnswerBefore)
{
    icap_server server(GetParam(), {{kWhole}, {kOkLine + "\r\n"}});
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
    logged();
    EXPECT_EQ(modify(server), VEL_ERROR_PROTOCOL);
    EXPECT_EQ(logged(),
              (lines{said_status(200), said(6, "no Encapsulated header in the ICAP response")}));
    EXPECT_EQ(left(), (texts{"200", kLayout + "\r\n", "none", "none"}));
}

TEST_P(VelicapPerform, ResetKeepsTheUrlAndTheStatus)
{
    vel_icap_set_allow_204(icap);
    icap_server server(GetParam(), {{kWhole}, {kNoContent}});
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
    vel_icap_set_method_reqmod(icap);
    set_request(kRequest);
    vel_icap_reset(icap);
    EXPECT_EQ(left(), (texts{"200", "none", "none", "none"}));
    EXPECT_EQ(vel_icap_perform(icap), VEL_ERROR_INVALID_ARGUMENT) << "without a method";
    vel_icap_set_method_options(icap);
    EXPECT_EQ(vel_icap_perform(icap), VEL_ERROR_NONE);
    EXPECT_EQ(server.finish()[1], server.head("OPTIONS", "/svc", "null-body=0", true));
}

TEST_P(VelicapPerform, MethodIsForOneExchange)
{
    icap_server server(GetParam(), {{kWhole}});
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
    logged();
    const size_t connects = wire.connects.size();
    EXPECT_EQ(vel_icap_perform(icap), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(logged(), lines{said(6, "INTERNAL ERROR: Unrecognized method 0")});
    EXPECT_EQ(wire.connects.size(), connects);
    /* The answer before is gone all the same, but for two things. */
    EXPECT_EQ(left(), (texts{"200", kLayout, "none", "none"}));
}

/* Each failure in front of a good exchange, with a reset between and without. */
TEST_P(VelicapPerform, AfterFailures)
{
    const std::pair<const char *, vel_error_t> failures[] = {
        {"", VEL_ERROR_END_OF_FILE},
        {"nonsense\r\n", VEL_ERROR_PROTOCOL},
        {"ICAP/1.0 200 OK\r\nbad\r\n\r\n", VEL_ERROR_INVALID_SYNTAX},
        {"ICAP/1.0 200 OK\r\n\r\n", VEL_ERROR_PROTOCOL},
        {"ICAP/1.0 200 OK\r\nEncapsulated: res-hdr=3, res-body=4\r\n\r\n", VEL_ERROR_UNSUPPORTED},
        {"ICAP/1.0 200 OK\r\nEncapsulated: res-hdr=0, res-body=4\r\n\r\nhead", 204},
        {"ICAP/1.0 200 OK\r\nEncapsulated: res-hdr=0, res-body=4\r\n\r\nheadx", 208},
        {"ICAP/1.0 200 OK\r\nEncapsulated: res-hdr=0, res-body=4\r\n\r\nhead5\r\nhel", 204},
    };
    for (const auto &[answer, result] : failures) {
        for (const bool resets : {false, true}) {
            icap_server server(GetParam(), {{answer}, {kWhole}});
            EXPECT_EQ(modify(server), result) << answer;
            if (resets)
                vel_icap_reset(icap);
            EXPECT_EQ(modify(server), VEL_ERROR_NONE) << answer;
            EXPECT_EQ(headers(), "head");
            EXPECT_EQ(body(), "hello");
            if (resets) {
                EXPECT_EQ(icap_headers(), kLayout);
            }
        }
    }
}

TEST_P(VelicapPerform, StatusOutlivesAFailedConnect)
{
    std::string url;
    {
        icap_server server(GetParam(), {{kNoContent}});
        EXPECT_EQ(options(server), VEL_ERROR_NONE);
        url = server.url("/svc");
    }
    vel_icap_set_method_options(icap);
    EXPECT_EQ(vel_icap_perform(icap),
              GetParam() ? VEL_ERROR_GENERIC : VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(vel_icap_get_status_code(icap), 204u);
}

TEST_P(VelicapPerform, AThousandExchanges)
{
    const int rounds = 500;
    icap_server server(GetParam(), {{kWhole}, {kNoContent}}, true);
    for (int round = 0; round < rounds; round++) {
        ASSERT_EQ(modify(server), VEL_ERROR_NONE);
        ASSERT_EQ(body(), "hello");
        ASSERT_EQ(modify(server), VEL_ERROR_NONE);
        ASSERT_EQ(vel_icap_get_status_code(icap), 204u);
    }
    std::string all;
    for (int round = 0; round < rounds; round++)
        all += kLayout + "ISTag: x\r\n\r\n";
    EXPECT_EQ(icap_headers(), all);
}

/* No connection outlives its exchange. */
TEST_P(VelicapPerform, ConnectionsAreClosed)
{
    icap_server server(GetParam(), {{kWhole, http_ending::hold},
                                    {"nonsense\r\n", http_ending::hold},
                                    {kNoContent, http_ending::hold}});
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
    EXPECT_EQ(modify(server), VEL_ERROR_PROTOCOL);
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
    EXPECT_EQ(server.finish().size(), 3u);
}

/* Contexts in turns, of both kinds. */
TEST(VelicapContexts, SideBySide)
{
    wire = {};
    support::log_capture log;
    icap_server servers[] = {{false, {{kWhole}}, true}, {true, {{kWhole}}, true}};
    velicap *contexts[4];
    for (size_t number = 0; number < std::size(contexts); number++) {
        contexts[number] = vel_icap_create();
        ASSERT_NE(contexts[number], nullptr);
        EXPECT_EQ(vel_icap_set_url(contexts[number], servers[number % 2].url("/").c_str()),
                  VEL_ERROR_NONE);
    }
    for (int turn = 0; turn < 3; turn++) {
        for (velicap *icap : contexts) {
            vel_icap_set_method_respmod(icap);
            EXPECT_EQ(vel_icap_set_response_headers(icap, kResponse.data(), kResponse.size()),
                      VEL_ERROR_NONE);
        }
        for (velicap *icap : contexts)
            EXPECT_EQ(vel_icap_perform(icap), VEL_ERROR_NONE);
    }
    for (velicap *icap : contexts) {
        char *body = nullptr;
        size_t size = 0;
        EXPECT_EQ(vel_icap_get_response_body_and_size(icap, &body, &size), VEL_ERROR_NONE);
        EXPECT_EQ(std::string(body, size), "hello");
        vel_free(body);
        vel_icap_destroy(icap);
    }
}
