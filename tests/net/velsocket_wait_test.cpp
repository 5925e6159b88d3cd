#include <atomic>
#include <fcntl.h>
#include <poll.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/platform_function.h"
#include "support/rows.h"
#include "support/sockettest.h"

/* While set, waits are noted and end at once without an event. */
static std::vector<int> *waits;

int poll(pollfd *set, nfds_t count, int milliseconds)
{
    static const auto next = support::platform_function<int(pollfd *, nfds_t, int)>("poll");
    if (!waits)
        return next(set, count, milliseconds);
    waits->push_back(milliseconds);
    return 0;
}

namespace {

using support::bound;
using support::kLong;
using support::local_port;
using support::log_line;
using support::log_lines;
using support::socket_line;

using VelsocketWait = support::socket_test;

const log_line kNotEnabled = socket_line(6, "waking up this socket is not enabled");
const log_line kNotWritten = socket_line(7, "unable to write to the wakeup pipe, error 9");

struct wait_case {
    const char *name;
    int seconds;
    unsigned int microseconds;
    int milliseconds;
};

std::ostream &operator<<(std::ostream &out, const wait_case &row)
{
    return out << row.name;
}

const wait_case kWaitCases[] = {
    {"Nothing", 0, 0, 0},
    {"OneMicrosecond", 0, 1, 1},
    {"AlmostOneMillisecond", 0, 999, 1},
    {"OneMillisecond", 0, 1000, 1},
    {"AboveOneMillisecond", 0, 1001, 2},
    {"AlmostOneSecond", 0, 999999, 1000},
    {"OneSecond", 1, 0, 1000},
    {"OneSecondAndABit", 1, 1, 1001},
    {"TwoAndAHalf", 2, 500000, 2500},
    {"MostThatFits", 2147483, 647000, 2147483647},
    {"Infinite", -1, 0, -1},
    {"AnyNegative", -5, 7, -1},
};

class VelsocketWaitCase : public VelsocketWait, public testing::WithParamInterface<wait_case> {};

TEST_P(VelsocketWaitCase, IsRoundedUp)
{
    velsocket *velsocket = vel_socket_tcp_create();
    std::vector<int> noted;
    waits = &noted;
    const vel_error_t read =
        vel_socket_poll_read(velsocket, GetParam().seconds, GetParam().microseconds);
    const vel_error_t write =
        vel_socket_poll_write(velsocket, GetParam().seconds, GetParam().microseconds);
    waits = nullptr;
    EXPECT_EQ(read, VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(write, VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(noted, std::vector<int>(2, GetParam().milliseconds));
    vel_socket_destroy(velsocket);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketWaitCase, testing::ValuesIn(kWaitCases),
                         support::row_name());

TEST_F(VelsocketWait, PollReadTimesOut)
{
    connect();
    EXPECT_EQ(vel_socket_poll_read(client_, 0, 1000), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(VelsocketWait, PollReadSeesDataAndItsEnd)
{
    connect();
    EXPECT_EQ(vel_socket_write(connection_, "x", 1), 1u);
    EXPECT_EQ(vel_socket_poll_read(client_, kLong, 0), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_NONE);
    EXPECT_EQ(read(client_), "x");
    close(&connection_);
    EXPECT_EQ(vel_socket_poll_read(client_, kLong, 0), VEL_ERROR_NONE);
}

TEST_F(VelsocketWait, PollWriteIsReadyAtOnce)
{
    connect();
    EXPECT_EQ(vel_socket_poll_read(client_, 0, 0), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(vel_socket_poll_write(client_, kLong, 0), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_NONE);
}

/* A socket that is not connected reports a hang-up; any event will do. */
TEST_F(VelsocketWait, PollWriteDoesNotLookAtTheEvent)
{
    velsocket *velsocket = vel_socket_tcp_create();
    EXPECT_EQ(vel_socket_poll_write(velsocket, kLong, 0), VEL_ERROR_NONE);
    vel_socket_destroy(velsocket);
}

/* Wakeups. */

TEST_F(VelsocketWait, WakeupIsKeptForTheNextPoll)
{
    listen();
    EXPECT_EQ(vel_socket_wakeup(listener_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_poll_read(listener_, -1, 0), VEL_ERROR_WAKEUP);
    EXPECT_EQ(vel_socket_get_error(listener_), VEL_ERROR_WAKEUP);
    EXPECT_EQ(vel_socket_poll_read(listener_, 0, 1000), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(VelsocketWait, EachWakeupEndsOneWait)
{
    listen();
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(vel_socket_wakeup(listener_), VEL_ERROR_NONE);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(vel_socket_poll_read(listener_, 0, 0), VEL_ERROR_WAKEUP);
    EXPECT_EQ(vel_socket_poll_read(listener_, 0, 0), VEL_ERROR_TIMED_OUT);
}

TEST_F(VelsocketWait, DataWinsOverAWakeup)
{
    velsocket *velsocket = bound(vel_socket_udp_create());
    pipes_++;
    vel_error_t velerror = -1;
    client_ = vel_socket_udp_connect("127.0.0.1", local_port(velsocket), &velerror);
    ASSERT_NE(client_, nullptr);
    EXPECT_EQ(vel_socket_write(client_, "data", 4), 4u);
    EXPECT_EQ(vel_socket_wakeup(velsocket), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_poll_read(velsocket, kLong, 0), VEL_ERROR_NONE);
    EXPECT_EQ(read(velsocket), "data");
    EXPECT_EQ(vel_socket_poll_read(velsocket, kLong, 0), VEL_ERROR_WAKEUP);
    EXPECT_EQ(vel_socket_poll_read(velsocket, 0, 0), VEL_ERROR_TIMED_OUT);
    vel_socket_destroy(velsocket);
}

TEST_F(VelsocketWait, WakeupWithoutAPipe)
{
    velsocket *velsocket = vel_socket_tcp_create();
    EXPECT_EQ(vel_socket_wakeup(velsocket), VEL_ERROR_WRITE);
    EXPECT_EQ(log_.take(), (log_lines{kNotEnabled, kNotWritten}));
    vel_socket_destroy(velsocket);
}

/* The owner's result is none of the waking thread's business. */
TEST_F(VelsocketWait, WakeupTouchesOnlyThePipe)
{
    connect();
    EXPECT_EQ(vel_socket_poll_read(client_, 0, 0), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(vel_socket_wakeup(client_), VEL_ERROR_WRITE);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(vel_socket_enable_wakeup(client_), VEL_ERROR_NONE);
    pipes_++;
    EXPECT_EQ(vel_socket_poll_read(client_, 0, 0), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(vel_socket_wakeup(client_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_TIMED_OUT);
}

TEST_F(VelsocketWait, EnableWakeupTwiceKeepsThePipe)
{
    velsocket *velsocket = vel_socket_tcp_create();
    EXPECT_EQ(vel_socket_enable_wakeup(velsocket), VEL_ERROR_NONE);
    const std::set<int> enabled = support::descriptors();
    EXPECT_EQ(vel_socket_wakeup(velsocket), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_enable_wakeup(velsocket), VEL_ERROR_NONE);
    EXPECT_EQ(support::descriptors(), enabled);
    pipes_++;

    EXPECT_EQ(vel_socket_bind(velsocket, "127.0.0.1", 0), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_listen(velsocket, 5), VEL_ERROR_NONE);
    EXPECT_EQ(support::descriptors(), enabled);
    EXPECT_EQ(vel_socket_poll_read(velsocket, kLong, 0), VEL_ERROR_WAKEUP);
    vel_socket_destroy(velsocket);
}

/* The pipe also stays in blocking mode, and holds the one byte. */
TEST_F(VelsocketWait, PipeOutlivesItsSocket)
{
    velsocket *velsocket = vel_socket_tcp_create();
    const std::set<int> before = support::descriptors();
    EXPECT_EQ(vel_socket_enable_wakeup(velsocket), VEL_ERROR_NONE);
    const std::vector<int> ends = support::descriptors_since(before);
    ASSERT_EQ(ends.size(), 2u);
    EXPECT_EQ(vel_socket_wakeup(velsocket), VEL_ERROR_NONE);
    vel_socket_destroy(velsocket);
    EXPECT_EQ(support::descriptors_since(before_), ends);
    pipes_++;

    EXPECT_EQ(fcntl(ends[0], F_GETFL) & (O_NONBLOCK | O_ACCMODE), O_RDONLY);
    EXPECT_EQ(fcntl(ends[1], F_GETFL) & (O_NONBLOCK | O_ACCMODE), O_WRONLY);
    char bytes[2] = {};
    EXPECT_EQ(::read(ends[0], bytes, sizeof bytes), 1);
    EXPECT_EQ(bytes[0], 'X');
}

/* The descriptor is made anew; the pipe is not. */
TEST_F(VelsocketWait, PipeSurvivesAConnect)
{
    listen();
    velsocket *velsocket = vel_socket_tcp_create();
    EXPECT_EQ(vel_socket_enable_wakeup(velsocket), VEL_ERROR_NONE);
    pipes_++;
    EXPECT_EQ(vel_socket_wakeup(velsocket), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_connect(velsocket, "127.0.0.1", local_port(listener_)), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_poll_read(velsocket, kLong, 0), VEL_ERROR_WAKEUP);
    vel_socket_destroy(velsocket);
}

/* The waiting thread has no limit of time, so that it ends only if each wakeup reaches it, whether
 * it waits already or not. */
TEST_F(VelsocketWait, WakeupFromAnotherThread)
{
    constexpr int kRounds = 50;
    listen();
    std::atomic<int> woken = 0;
    std::thread owner([&] {
        for (int i = 0; i < kRounds; i++) {
            if (vel_socket_poll_read(listener_, -1, 0) == VEL_ERROR_WAKEUP)
                woken++;
        }
    });
    for (int i = 0; i < kRounds; i++)
        EXPECT_EQ(vel_socket_wakeup(listener_), VEL_ERROR_NONE);
    owner.join();
    EXPECT_EQ(woken, kRounds);
}

} // namespace
