/* The time limit, which is one over the whole of an exchange. */

#include "support/icap.h"

#include <set>

static const std::string kOkLine = "ICAP/1.0 200 OK\r\n";
static const std::string kHead = kOkLine + "Encapsulated: res-hdr=0, res-body=4\r\n\r\n";
static const std::string kWhole = kHead + "head5\r\nhello\r\n0\r\n\r\n";
static const support::log_line kPolling =
    said_error(13, "polling read for a socket returned", VEL_ERROR_TIMED_OUT);
static const support::log_line kBroken = said(6, "unable to read encapsulated chunked body");

class VelicapTime : public VelicapBoth {
  protected:
    vel_error_t modify(const icap_server &server)
    {
        vel_icap_set_method_respmod(icap);
        set_response(kResponse);
        return exchange(server);
    }
};
INSTANTIATE_TEST_SUITE_P(Transport, VelicapTime, testing::Bool(), transport_name());

/* TCP does not even connect; the socket does. */
TEST_P(VelicapTime, NoTimeAtAll)
{
    icap_server server(GetParam(), {{kWhole}});
    vel_icap_set_timeout(icap, 0, 0);
    EXPECT_EQ(modify(server), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(logged(), lines{kTimeout});
    EXPECT_EQ(wire.connects, GetParam() ? std::vector<int>{AF_UNIX} : std::vector<int>());
    EXPECT_EQ(server.finish(), GetParam() ? texts{""} : texts());
}

TEST_P(VelicapTime, LimitStaysForTheNextExchange)
{
    icap_server server(GetParam(), {{kWhole}, {kWhole}, {kWhole}});
    vel_icap_set_timeout(icap, 0, 0);
    EXPECT_EQ(modify(server), VEL_ERROR_TIMED_OUT);
    vel_icap_reset(icap);
    EXPECT_EQ(modify(server), VEL_ERROR_TIMED_OUT);
    vel_icap_set_timeout(icap, -1, 0);
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
}

TEST_P(VelicapTime, LimitBeginsAnewWithEachExchange)
{
    icap_server server(GetParam(), {{kWhole}}, true);
    wire.played = true;
    wire.recvlimit = 1;
    wire.recvtime = 1000000;
    vel_icap_set_timeout(icap, static_cast<int>(kWhole.size()) + 1, 0);
    for (int turn = 0; turn < 3; turn++)
        EXPECT_EQ(modify(server), VEL_ERROR_NONE);
}

/* Answers that stop. What is there of a line is taken for a line that has no end. */

struct stall_case {
    const char *name;
    std::string answer;
    vel_error_t result;
    lines logged;
};

static void PrintTo(const stall_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelicapStall : public Velicap,
                     public testing::WithParamInterface<std::tuple<bool, stall_case>> {};

TEST_P(VelicapStall, Expires)
{
    const auto &[local, row] = GetParam();
    icap_server server(local, {{row.answer, http_ending::hold}});
    vel_icap_set_timeout(icap, 0, 50000);
    vel_icap_set_method_respmod(icap);
    set_response(kResponse);
    EXPECT_EQ(exchange(server), row.result);
    lines said_of_it = logged();
    if (local) {
        EXPECT_EQ(std::erase(said_of_it, kPolling), 1u);
    }
    EXPECT_EQ(said_of_it, row.logged);
}

static support::log_line expired(const std::string &text)
{
    return said_error(7, text, VEL_ERROR_TIMED_OUT);
}

static const stall_case kStallCases[] = {
    {"Status", "", VEL_ERROR_TIMED_OUT, {expired("unable to read ICAP result code,")}},
    {"StatusLine",
     "ICAP/1.0 2",
     VEL_ERROR_INTERNAL,
     {said(6, "reading a line did not terminate at a linefeed")}},
    {"Headers",
     kOkLine,
     VEL_ERROR_TIMED_OUT,
     {said_status(200), expired("unable to read ICAP headers,")}},
    {"HeaderLine",
     kOkLine + "A",
     VEL_ERROR_INTERNAL,
     {said_status(200), said(6, "reading a header line did not terminate at a linefeed")}},
    {"EncapsulatedHeaders",
     kHead,
     VEL_ERROR_TIMED_OUT,
     {said_status(200), expired("unable to read encapsulated headers information,"),
      said(6, "unable to read icap header")}},
    /* What came with the lines in front is there only when the wait for more is over. */
    {"InEncapsulatedHeaders",
     kHead + "he",
     VEL_ERROR_TIMED_OUT,
     {said_status(200), kTimeout, said(6, "unable to read icap header")}},
    {"ChunkSize",
     kHead + "head",
     VEL_ERROR_TIMED_OUT,
     {said_status(200), expired("unable to read chunk size,"), kBroken}},
    {"ChunkSizeLine",
     kHead + "head5",
     VEL_ERROR_INTERNAL,
     {said_status(200), said(6, "reading a chunk size line did not terminate at a linefeed"),
      kBroken}},
    {"Chunk",
     kHead + "head5\r\n",
     VEL_ERROR_TIMED_OUT,
     {said_status(200), expired("unable to read more body information,"), kBroken}},
    {"InAChunk",
     kHead + "head5\r\nhel",
     VEL_ERROR_TIMED_OUT,
     {said_status(200), kTimeout, kBroken}},
    /* The line behind a chunk is waited for all the time that was left, and the check is next. */
    {"BehindAChunk",
     kHead + "head5\r\nhello",
     VEL_ERROR_TIMED_OUT,
     {said_status(200), kTimeout, kBroken}},
};

struct stall_row_name {
    std::string operator()(const testing::TestParamInfo<std::tuple<bool, stall_case>> &info) const
    {
        return std::string(std::get<0>(info.param) ? "Unix" : "Tcp") + std::get<1>(info.param).name;
    }
};
INSTANTIATE_TEST_SUITE_P(Table, VelicapStall,
                         testing::Combine(testing::Bool(), testing::ValuesIn(kStallCases)),
                         stall_row_name());

/* The end of the last line is not needed. */
TEST_P(VelicapTime, StallBehindTheLastChunkIsNoFailure)
{
    icap_server server(GetParam(), {{kHead + "head5\r\nhello\r\n0\r\n", http_ending::hold}});
    vel_icap_set_timeout(icap, 0, 50000);
    EXPECT_EQ(modify(server), VEL_ERROR_NONE);
    EXPECT_EQ(body(), "hello");
}

TEST_P(VelicapTime, BlockedWrite)
{
    icap_server server(GetParam(), {{"", http_ending::hold, 0, false}});
    vel_icap_set_timeout(icap, 0, 50000);
    vel_icap_set_method_reqmod(icap);
    set_request(kRequest);
    set_request_body(std::string(32 << 20, 'x'));
    EXPECT_EQ(exchange(server), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(logged(), (lines{said(10, "chunk len: 9"), expired("unable to send chunk data,"),
                               expired("unable to send chunk,")}));
}

/* A played clock, on which time passes with the calls. */

/* Bytes that come slowly do not begin the limit anew. */
TEST_P(VelicapTime, SlowServer)
{
    wire.played = true;
    wire.recvlimit = 1;
    wire.recvtime = 1000000;
    for (const size_t seconds : {size_t(10), kOkLine.size() + 5, kHead.size() + 2,
                                 kWhole.size() - 12, kWhole.size() - 7}) {
        SCOPED_TRACE(seconds);
        icap_server server(GetParam(), {{kWhole, http_ending::hold}});
        vel_icap_set_timeout(icap, static_cast<int>(seconds), 0);
        const vel_error_t result = modify(server);
        EXPECT_TRUE(result == VEL_ERROR_TIMED_OUT || result == VEL_ERROR_INTERNAL) << result;
        EXPECT_EQ(vel_icap_get_status_code(icap), seconds < kOkLine.size() ? 0u : 200u);
    }
}

/* Headers without end are ended by the limit. */
TEST_P(VelicapTime, EndlessHeaders)
{
    std::string answer = kOkLine;
    for (int number = 0; number < 500; number++)
        answer += "X: y\r\n";
    icap_server server(GetParam(), {{answer, http_ending::hold}});
    wire.played = true;
    wire.recvlimit = 6;
    wire.recvtime = 1000000;
    vel_icap_set_timeout(icap, 100, 0);
    const vel_error_t result = modify(server);
    EXPECT_TRUE(result == VEL_ERROR_TIMED_OUT || result == VEL_ERROR_INTERNAL) << result;
    const size_t length = icap_headers().size();
    EXPECT_GE(length, 500u);
    EXPECT_LE(length, 600u);
}

/* Time that the request took is missing for the answer. */
TEST_P(VelicapTime, SlowNetwork)
{
    wire.played = true;
    wire.sendtime = 10000000;
    vel_icap_set_timeout(icap, 15, 0);
    icap_server server(GetParam(), {{kWhole, http_ending::hold}});
    EXPECT_EQ(modify(server), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(logged(), lines{kTimeout}) << "before the status";
    vel_icap_set_timeout(icap, 25, 0);
    icap_server other(GetParam(), {{kWhole, http_ending::hold}});
    EXPECT_EQ(modify(other), VEL_ERROR_NONE);
}

/* A result, and what was logged. */
using outcome = std::pair<vel_error_t, texts>;

static outcome outcome_of(vel_error_t result, const lines &logged)
{
    outcome one = {result, {}};
    for (const support::log_line &line : logged)
        one.second.push_back(line.text);
    return one;
}

/* An hour passes before one reading of the clock, each one in turn. */
TEST_P(VelicapTime, TimeRunsOutAtEachReadingOfTheClock)
{
    const support::log_line status = said_status(200);
    const support::log_line icapheader = said(6, "unable to read icap header");
    std::set<outcome> expected = {
        outcome_of(VEL_ERROR_NONE, {status}),
        outcome_of(VEL_ERROR_TIMED_OUT, {kTimeout}), /* in front of connect, request or status */
        outcome_of(VEL_ERROR_TIMED_OUT, {expired("unable to read ICAP result code,")}),
        outcome_of(VEL_ERROR_TIMED_OUT, {status, kTimeout}),
        outcome_of(VEL_ERROR_TIMED_OUT, {status, expired("unable to read ICAP headers,")}),
        outcome_of(VEL_ERROR_TIMED_OUT, {status, kTimeout, icapheader}),
        outcome_of(VEL_ERROR_TIMED_OUT, {status, kTimeout, kBroken}),
        outcome_of(VEL_ERROR_TIMED_OUT, {status, expired("unable to read chunk size,"), kBroken}),
    };
    std::set<outcome> allowed = expected;
    /* Where the transport looks at the clock itself, or waits. */
    allowed.insert(outcome_of(VEL_ERROR_TIMED_OUT, {expired("connection failed,")}));
    for (const char *text : {"unable to read encapsulated headers information,",
                             "unable to read more body information,"}) {
        allowed.insert(outcome_of(VEL_ERROR_TIMED_OUT,
                                  {status, expired(text), text[15] == 'e' ? icapheader : kBroken}));
    }
    /* In the middle of a line. */
    allowed.insert(outcome_of(VEL_ERROR_INTERNAL,
                              {said(6, "reading a line did not terminate at a linefeed")}));
    allowed.insert(
        outcome_of(VEL_ERROR_INTERNAL,
                   {status, said(6, "reading a header line did not terminate at a linefeed")}));
    allowed.insert(outcome_of(
        VEL_ERROR_INTERNAL,
        {status, said(6, "reading a chunk size line did not terminate at a linefeed"), kBroken}));

    icap_server server(GetParam(), {{kWhole, http_ending::hold}}, true);
    std::set<outcome> met;
    wire.played = true;
    for (const size_t limit : {SIZE_MAX, size_t(1)}) {
        wire.recvlimit = limit;
        bool completed = false;
        for (size_t reading = 1; !completed; reading++) {
            ASSERT_LT(reading, 2000u);
            vel_icap_set_timeout(icap, 600, 0);
            wire.readings = 0;
            wire.jumpat = reading;
            const vel_error_t result = modify(server);
            completed = wire.readings < reading;
            lines said_of_it = logged();
            std::erase(said_of_it, kPolling);
            const outcome one = outcome_of(result, said_of_it);
            ASSERT_EQ(allowed.count(one), 1u) << testing::PrintToString(one);
            met.insert(one);
        }
    }
    for (const outcome &one : expected)
        EXPECT_EQ(met.count(one), 1u) << testing::PrintToString(one);
}

/* Assertions. */

class VelicapTimeDeathTest : public Velicap {};

/* The limit is looked at when it comes into force. */
TEST_F(VelicapTimeDeathTest, Microseconds)
{
    vel_icap_set_timeout(icap, 1, 1000000);
    EXPECT_DEATH((void)vel_icap_perform(icap), asserts("microseconds < 1000000"));
}
