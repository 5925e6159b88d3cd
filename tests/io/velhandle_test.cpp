#include <functional>
#include <string>
#include <sys/socket.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/oom.h"
#include "support/platform_malloc.h"
#include "support/rows.h"
#include "support/transport.h"

namespace {

using support::asserts;
using support::bytes;
using support::fails_silently;
using support::fails_with;
using support::handle_line;
using support::log_line;
using support::log_lines;
using support::room;

using Velhandle = support::transport_test;

/* Life and settings. */

TEST_F(Velhandle, BeginsWithNothingSet)
{
    velhandle *velhandle = vel_handle_create();
    ASSERT_NE(velhandle, nullptr);
    EXPECT_EQ(vel_handle_get_error(velhandle), VEL_ERROR_NONE);
    EXPECT_EQ(vel_handle_get_context(velhandle), nullptr);
    int seconds = 77;
    unsigned int microseconds = 77;
    vel_handle_get_read_timeout(velhandle, &seconds, &microseconds);
    EXPECT_EQ(seconds, -1);
    EXPECT_EQ(microseconds, 0u);
    seconds = 77, microseconds = 77;
    vel_handle_get_write_timeout(velhandle, &seconds, &microseconds);
    EXPECT_EQ(seconds, -1);
    EXPECT_EQ(microseconds, 0u);
    vel_handle_destroy(velhandle);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(Velhandle, KeepsTheContext)
{
    int context = 0;
    velhandle *velhandle = vel_handle_create();
    vel_handle_set_context(velhandle, &context);
    EXPECT_EQ(vel_handle_get_context(velhandle), &context);
    vel_handle_set_context(velhandle, nullptr);
    EXPECT_EQ(vel_handle_get_context(velhandle), nullptr);
    vel_handle_destroy(velhandle);
}

/* With the handle as it was, so that the transport finds its context. */
TEST_F(Velhandle, DestroyCallsTheTransportFirst)
{
    std::vector<std::string> seen;
    velhandle *velhandle = vel_handle_create();
    vel_handle_set_context(velhandle, &seen);
    vel_handle_set_error(velhandle, VEL_ERROR_BUSY);
    vel_handle_set_destroy_callback(velhandle, [](struct velhandle *destroyed) {
        static_cast<std::vector<std::string> *>(vel_handle_get_context(destroyed))
            ->push_back(std::to_string(vel_handle_get_error(destroyed)));
    });
    vel_handle_destroy(velhandle);
    EXPECT_EQ(seen, std::vector<std::string>{"206"});
}

struct timeout_case {
    const char *name;
    int seconds;
    unsigned int microseconds;
    int keptseconds;
    unsigned int keptmicroseconds;
};

std::ostream &operator<<(std::ostream &out, const timeout_case &row)
{
    return out << row.name;
}

const timeout_case kTimeoutCases[] = {
    {"Positive", 5, 7, 5, 7},
    {"Nothing", 0, 0, 0, 0},
    {"MostMicroseconds", 0, 999999, 0, 999999},
    {"Long", 2147483647, 999999, 2147483647, 999999},
    {"Infinite", -1, 0, -1, 0},
    {"MinusOneLosesItsMicroseconds", -1, 5, -1, 0},
    {"MinusFive", -5, 999999, -1, 0},
    {"MinusFiveAndNoMicroseconds", -5, 0, -1, 0},
    {"MostNegative", -2147483647 - 1, 4294967295u, -1, 0},
};

class VelhandleTimeoutCase : public Velhandle, public testing::WithParamInterface<timeout_case> {};

TEST_P(VelhandleTimeoutCase, IsStored)
{
    const timeout_case &row = GetParam();
    int seconds = 77;
    unsigned int microseconds = 77;
    vel_handle_set_read_timeout(handle_, 3, 4);
    vel_handle_set_write_timeout(handle_, row.seconds, row.microseconds);
    vel_handle_get_write_timeout(handle_, &seconds, &microseconds);
    EXPECT_EQ(seconds, row.keptseconds);
    EXPECT_EQ(microseconds, row.keptmicroseconds);
    expect_read_timeout(3, 4);

    vel_handle_set_write_timeout(handle_, 3, 4);
    vel_handle_set_read_timeout(handle_, row.seconds, row.microseconds);
    expect_read_timeout(row.keptseconds, row.keptmicroseconds);
    vel_handle_get_write_timeout(handle_, &seconds, &microseconds);
    EXPECT_EQ(seconds, 3);
    EXPECT_EQ(microseconds, 4u);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelhandleTimeoutCase, testing::ValuesIn(kTimeoutCases),
                         support::row_name());

TEST_F(Velhandle, SetErrorTakesEveryCode)
{
    for (int code : {0, 1, 125, 200, 221, VEL_ERROR_COUNT - 1}) {
        vel_handle_set_error(handle_, code);
        EXPECT_EQ(error(), code);
    }
}

/* Reading. */

TEST_F(Velhandle, ReadAsksOnceForAllOfIt)
{
    transport_.reads = {bytes("abc"), bytes("defghij")};
    vel_handle_set_error(handle_, VEL_ERROR_BUSY);
    vel_handle_set_read_timeout(handle_, 3, 500);
    EXPECT_EQ(read(10), "abc");
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(read(4), "defg");
    EXPECT_EQ(read(4), "hij");
    EXPECT_EQ(transport_.asked, (std::vector<size_t>{10, 4, 4}));
    EXPECT_EQ(transport_.errors, (std::vector<vel_error_t>(3, VEL_ERROR_INTERNAL)));
    EXPECT_EQ(transport_.timeouts, (std::vector<std::pair<int, unsigned int>>(3, {3, 500})));
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(Velhandle, ReadFailureIsThatOfTheTransport)
{
    transport_.reads = {fails_with(VEL_ERROR_TIMED_OUT), fails_with(VEL_ERROR_CONNECTION_RESET)};
    EXPECT_EQ(read(10), "");
    EXPECT_EQ(error(), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(read(10), "");
    EXPECT_EQ(error(), VEL_ERROR_CONNECTION_RESET);
    EXPECT_EQ(read(10), "");
    EXPECT_EQ(error(), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(Velhandle, ReadWithoutAReasonIsInternal)
{
    transport_.reads = {fails_silently()};
    EXPECT_EQ(read(10), "");
    EXPECT_EQ(error(), VEL_ERROR_INTERNAL);
}

TEST_F(Velhandle, ReadHidesAnErrorBesideBytes)
{
    support::transport_turn turn = bytes("abc");
    turn.velerror = VEL_ERROR_IO;
    transport_.reads = {turn};
    EXPECT_EQ(read(10), "abc");
    EXPECT_EQ(error(), VEL_ERROR_NONE);
}

const log_line kNoRead = handle_line(6, "this handle cannot be used for reading");

TEST_F(Velhandle, ReadIsNotSupported)
{
    vel_handle_set_read_callback(handle_, nullptr);
    EXPECT_EQ(read(10), "");
    EXPECT_EQ(error(), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(log_.take(), (log_lines{kNoRead}));
}

/* Reading behind a line, which leaves bytes in the handle. */
class VelhandleBuffered : public Velhandle {
  protected:
    void SetUp() override
    {
        transport_.reads = {bytes("line\n0123456789")};
        ASSERT_EQ(read_line(100), "line\n");
        transport_.asked.clear();
    }
};

TEST_F(VelhandleBuffered, PartOfTheBufferLeavesTheRest)
{
    vel_handle_set_error(handle_, VEL_ERROR_BUSY);
    EXPECT_EQ(read(4), "0123");
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(read(6), "456789");
    EXPECT_EQ(transport_.asked, std::vector<size_t>{});
}

TEST_F(VelhandleBuffered, MoreThanTheBufferAsksForTheRest)
{
    transport_.reads = {bytes("abcdefghijklmn")};
    EXPECT_EQ(read(20), "0123456789abcdefghij");
    EXPECT_EQ(transport_.asked, (std::vector<size_t>{10}));
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(read(20), "klmn");
    EXPECT_EQ(transport_.asked, (std::vector<size_t>{10, 20}));
}

TEST_F(VelhandleBuffered, FailureBehindTheBufferIsNotShown)
{
    transport_.reads = {fails_with(VEL_ERROR_CONNECTION_RESET)};
    EXPECT_EQ(read(20), "0123456789");
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(read(20), "");
    EXPECT_EQ(error(), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(VelhandleBuffered, BufferIsDeliveredWithoutATransport)
{
    vel_handle_set_read_callback(handle_, nullptr);
    EXPECT_EQ(read(4), "0123");
    EXPECT_EQ(read(20), "456789");
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(log_.take(), log_lines{});
    EXPECT_EQ(read(20), "");
    EXPECT_EQ(error(), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(log_.take(), (log_lines{kNoRead}));
}

/* The buffer is freed by the read that finds it empty, and a line makes a new one. */
TEST_F(VelhandleBuffered, BufferIsFreedWhenFoundEmpty)
{
    transport_.reads = {bytes("a\n"), bytes("b"), bytes("c\n")};
    const support::malloc_watch watch;
    EXPECT_EQ(read(10), "0123456789");
    EXPECT_EQ(read_line(10), "a\n");
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{});
    EXPECT_EQ(read(1), "b");
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{});
    EXPECT_EQ(read_line(10), "c\n");
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{4096});
}

/* Writing. */

struct write_case {
    const char *name;
    std::deque<support::transport_turn> writes;
    std::deque<vel_error_t> polls;
    std::string written; /* of "0123456789" */
    vel_error_t velerror;
    std::vector<size_t> offered;
    log_lines logged;
};

std::ostream &operator<<(std::ostream &out, const write_case &row)
{
    return out << row.name;
}

const support::transport_turn kBlocks = fails_with(VEL_ERROR_WOULD_BLOCK);

const write_case kWriteCases[] = {
    {"AtOnce", {room(10)}, {}, "0123456789", VEL_ERROR_NONE, {10}, {}},
    {"InPieces", {room(1), room(4), room(100)}, {}, "0123456789", VEL_ERROR_NONE, {10, 9, 5}, {}},
    {"WaitsForRoom", {kBlocks, room(10)}, {0}, "0123456789", VEL_ERROR_NONE, {10, 10}, {}},
    {"WaitsAgainAndAgain",
     {room(3), kBlocks, kBlocks, room(3), kBlocks, room(4)},
     {0, 0, 0},
     "0123456789",
     VEL_ERROR_NONE,
     {10, 7, 7, 7, 4, 4},
     {}},
    {"FailsAtOnce",
     {fails_with(VEL_ERROR_BROKEN_PIPE)},
     {},
     "",
     VEL_ERROR_BROKEN_PIPE,
     {10},
     {handle_line(7, "velhandle write returned error 32 (broken pipe)")}},
    {"FailsInTheMiddle",
     {room(6), fails_with(VEL_ERROR_CONNECTION_RESET)},
     {},
     "012345",
     VEL_ERROR_CONNECTION_RESET,
     {10, 4},
     {handle_line(7, "velhandle write returned error 104 (connection reset by peer)")}},
    {"FailsAfterAWait",
     {room(2), kBlocks, fails_with(VEL_ERROR_TIMED_OUT)},
     {0},
     "01",
     VEL_ERROR_TIMED_OUT,
     {10, 8, 8},
     {handle_line(7, "velhandle write returned error 201 (timed out)")}},
    {"FailsWithoutAReason",
     {room(2), fails_silently()},
     {},
     "01",
     VEL_ERROR_NONE,
     {10, 8},
     {handle_line(7, "velhandle write returned error 0 (success)")}},
    {"WaitTimesOutQuietly",
     {room(2), kBlocks},
     {VEL_ERROR_TIMED_OUT},
     "01",
     VEL_ERROR_TIMED_OUT,
     {10, 8},
     {}},
    {"WaitFails",
     {room(2), kBlocks},
     {VEL_ERROR_INTERRUPTED},
     "01",
     VEL_ERROR_INTERRUPTED,
     {10, 8},
     {handle_line(7, "poll write callback returned error 4 (interrupted system call)")}},
    {"WaitWouldBlockItself",
     {kBlocks},
     {VEL_ERROR_WOULD_BLOCK},
     "",
     VEL_ERROR_WOULD_BLOCK,
     {10},
     {handle_line(7, "poll write callback returned error 11 (would block)")}},
};

class VelhandleWriteCase : public Velhandle, public testing::WithParamInterface<write_case> {};

TEST_P(VelhandleWriteCase, Write)
{
    transport_.writes = GetParam().writes;
    transport_.polls = GetParam().polls;
    vel_handle_set_error(handle_, VEL_ERROR_BUSY);
    EXPECT_EQ(vel_handle_write(handle_, "0123456789", 10), GetParam().written.size());
    EXPECT_EQ(transport_.written, GetParam().written);
    EXPECT_EQ(transport_.offered, GetParam().offered);
    EXPECT_EQ(error(), GetParam().velerror);
    EXPECT_EQ(log_.take(), GetParam().logged);
    EXPECT_TRUE(transport_.writes.empty());
    EXPECT_TRUE(transport_.polls.empty());
    /* No callback ever sees what was there before. */
    EXPECT_EQ(transport_.errors, std::vector<vel_error_t>(transport_.errors.size(), 0));
}

INSTANTIATE_TEST_SUITE_P(Rows, VelhandleWriteCase, testing::ValuesIn(kWriteCases),
                         support::row_name());

TEST_F(Velhandle, WriteIsNotSupported)
{
    vel_handle_set_write_callback(handle_, nullptr);
    EXPECT_EQ(vel_handle_write(handle_, "x", 1), 0u);
    EXPECT_EQ(error(), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(log_.take(), (log_lines{handle_line(6, "this handle cannot be used for writing")}));
}

/* A short count with no error is what a caller gets. */
TEST_F(Velhandle, WriteThatWouldBlockWithoutAPoll)
{
    vel_handle_set_poll_write_callback(handle_, nullptr);
    transport_.writes = {room(3), kBlocks};
    EXPECT_EQ(vel_handle_write(handle_, "0123456789", 10), 3u);
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(log_.take(), (log_lines{handle_line(7, "velhandle write would block but the handle "
                                                     "does not have support for polling writes")}));
}

/* Connecting. */

struct connect_record {
    std::vector<std::string> calls;
    std::deque<vel_error_t> begins;
    std::deque<vel_error_t> waits;
};

vel_error_t next_of(std::deque<vel_error_t> *results)
{
    EXPECT_FALSE(results->empty());
    if (results->empty())
        return VEL_ERROR_INTERNAL;
    const vel_error_t velerror = results->front();
    results->pop_front();
    return velerror;
}

vel_error_t begin_connect(velhandle *velhandle, const char *name, unsigned int port)
{
    auto *record = static_cast<connect_record *>(vel_handle_get_context(velhandle));
    record->calls.push_back("connect " + std::string(name) + " " + std::to_string(port));
    return next_of(&record->begins);
}

vel_error_t wait_connect(velhandle *velhandle)
{
    auto *record = static_cast<connect_record *>(vel_handle_get_context(velhandle));
    record->calls.push_back("wait");
    return next_of(&record->waits);
}

class VelhandleConnect : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_NE(handle_, nullptr);
        vel_handle_set_context(handle_, &record_);
        vel_handle_set_connect_callback(handle_, begin_connect);
        vel_handle_set_connect_wait_callback(handle_, wait_connect);
        vel_handle_set_error(handle_, VEL_ERROR_BUSY);
    }
    void TearDown() override
    {
        EXPECT_EQ(vel_handle_get_error(handle_), VEL_ERROR_BUSY); /* not written */
        EXPECT_TRUE(record_.begins.empty());
        EXPECT_TRUE(record_.waits.empty());
        vel_handle_destroy(handle_);
    }
    velhandle *const handle_ = vel_handle_create();
    connect_record record_;
    support::log_capture log_;
};

struct connect_case {
    const char *name;
    std::deque<vel_error_t> begins;
    std::deque<vel_error_t> waits;
    vel_error_t result;
};

std::ostream &operator<<(std::ostream &out, const connect_case &row)
{
    return out << row.name;
}

const connect_case kConnectCases[] = {
    {"AtOnce", {0}, {}, VEL_ERROR_NONE},
    {"FailsAtOnce", {VEL_ERROR_HOST_UNRESOLVED}, {}, VEL_ERROR_HOST_UNRESOLVED},
    {"TimesOutAtOnce", {VEL_ERROR_TIMED_OUT}, {}, VEL_ERROR_TIMED_OUT},
    {"Later", {VEL_ERROR_IN_PROGRESS}, {0}, VEL_ERROR_NONE},
    {"MuchLater",
     {VEL_ERROR_IN_PROGRESS},
     {VEL_ERROR_IN_PROGRESS, VEL_ERROR_IN_PROGRESS, 0},
     VEL_ERROR_NONE},
    {"FailsLater",
     {VEL_ERROR_IN_PROGRESS},
     {VEL_ERROR_IN_PROGRESS, VEL_ERROR_TIMED_OUT},
     VEL_ERROR_TIMED_OUT},
};

class VelhandleConnectCase : public VelhandleConnect,
                             public testing::WithParamInterface<connect_case> {};

TEST_P(VelhandleConnectCase, Connect)
{
    record_.begins = GetParam().begins;
    record_.waits = GetParam().waits;
    std::vector<std::string> calls(1 + record_.waits.size(), "wait");
    calls[0] = "connect host 80";
    EXPECT_EQ(vel_handle_connect(handle_, "host", 80), GetParam().result);
    EXPECT_EQ(record_.calls, calls);
    EXPECT_EQ(log_.take(), log_lines{});
}

/* The steps hand on what the transport says, and go no further. */
TEST_P(VelhandleConnectCase, InSteps)
{
    record_.begins = GetParam().begins;
    record_.waits = GetParam().waits;
    EXPECT_EQ(vel_handle_connect_begin(handle_, "host", 65535), GetParam().begins[0]);
    EXPECT_EQ(record_.calls, std::vector<std::string>{"connect host 65535"});
    for (vel_error_t velerror : GetParam().waits)
        EXPECT_EQ(vel_handle_connect_wait(handle_), velerror);
    EXPECT_EQ(log_.take(), log_lines{});
}

INSTANTIATE_TEST_SUITE_P(Rows, VelhandleConnectCase, testing::ValuesIn(kConnectCases),
                         support::row_name());

TEST_F(VelhandleConnect, BeginIsNotSupported)
{
    vel_handle_set_connect_callback(handle_, nullptr);
    EXPECT_EQ(vel_handle_connect_begin(handle_, "host", 80), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(log_.take(), (log_lines{handle_line(6, "this handle cannot be used to connect")}));
    EXPECT_EQ(vel_handle_connect(handle_, "host", 80), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(log_.take(), (log_lines{handle_line(6, "this handle cannot be used to connect")}));
    EXPECT_EQ(record_.calls, std::vector<std::string>{});
}

TEST_F(VelhandleConnect, WaitIsNotSupported)
{
    vel_handle_set_connect_wait_callback(handle_, nullptr);
    EXPECT_EQ(vel_handle_connect_wait(handle_), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(log_.take(),
              (log_lines{handle_line(6, "this handle cannot be used to wait for connection")}));
    record_.begins = {VEL_ERROR_IN_PROGRESS};
    EXPECT_EQ(vel_handle_connect(handle_, "host", 80), VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(log_.take(),
              (log_lines{handle_line(6, "connect in progress but no wait callback available")}));
}

/* The operations that forward. */

vel_error_t forwarded; /* what the transport returns */
velhandle *const kAccepted = reinterpret_cast<velhandle *>(16);

struct forward_case {
    const char *name;
    void (*set)(velhandle *velhandle);
    vel_error_t (*call)(velhandle *velhandle, bool *written);
    std::string failure;
    std::string unsupported;
    bool stores;
};

std::ostream &operator<<(std::ostream &out, const forward_case &row)
{
    return out << row.name;
}

const forward_case kForwardCases[] = {
    {"LocalPort",
     [](velhandle *velhandle) {
         vel_handle_set_local_port_callback(velhandle, [](struct velhandle *, unsigned int *ptr) {
             *ptr = 1234; /* a failure is to show nothing of it, here and below */
             return forwarded;
         });
     },
     [](velhandle *velhandle, bool *written) {
         unsigned int port = 77;
         const vel_error_t velerror = vel_handle_get_local_port(velhandle, &port);
         *written = port == (velerror == 0 ? 1234 : 0);
         return velerror;
     },
     "getting the local port for the handle failed",
     "this handle does not support getting the local port number", false},
    {"PeerName",
     [](velhandle *velhandle) {
         vel_handle_set_peer_name_callback(
             velhandle, [](struct velhandle *, sockaddr *address, size_t *lengthptr) {
                 EXPECT_EQ(*lengthptr, sizeof *address);
                 address->sa_family = AF_INET6;
                 *lengthptr = 14;
                 return forwarded;
             });
     },
     [](velhandle *velhandle, bool *written) {
         sockaddr address = {};
         size_t length = sizeof address;
         const vel_error_t velerror = vel_handle_get_peer_name(velhandle, &address, &length);
         *written = velerror == 0 ? length == 14 && address.sa_family == AF_INET6 : length == 0;
         return velerror;
     },
     "getting the peer name for the handle failed",
     "this handle does not support getting the peer name", false},
    {"Accept",
     [](velhandle *velhandle) {
         vel_handle_set_accept_callback(velhandle, [](struct velhandle *, struct velhandle **ptr) {
             *ptr = kAccepted;
             return forwarded;
         });
     },
     [](velhandle *velhandle, bool *written) {
         struct velhandle *connection = velhandle;
         const vel_error_t velerror = vel_handle_accept(velhandle, &connection);
         *written = connection == (velerror == 0 ? kAccepted : nullptr);
         return velerror;
     },
     "accepting an incoming connection failed",
     "this handle does not support accepting incoming connections", true},
    {"Wakeup",
     [](velhandle *velhandle) {
         vel_handle_set_wakeup_callback(velhandle, [](struct velhandle *) { return forwarded; });
     },
     [](velhandle *velhandle, bool *written) {
         *written = true;
         return vel_handle_wakeup(velhandle);
     },
     "waking up a handle failed", "this handle does not support waking up", false},
};

class VelhandleForwardCase : public Velhandle, public testing::WithParamInterface<forward_case> {
  protected:
    /* Has the transport return this and sees that it is handed on and stored where it should be. */
    log_lines forward(vel_error_t velerror, vel_error_t expected)
    {
        forwarded = velerror;
        vel_handle_set_error(handle_, VEL_ERROR_BUSY);
        bool written = false;
        EXPECT_EQ(GetParam().call(handle_, &written), expected);
        EXPECT_TRUE(written);
        EXPECT_EQ(error(), GetParam().stores ? expected : VEL_ERROR_BUSY);
        return log_.take();
    }
};

TEST_P(VelhandleForwardCase, HandsOnWhatTheTransportGives)
{
    GetParam().set(handle_);
    EXPECT_EQ(forward(VEL_ERROR_NONE, VEL_ERROR_NONE), log_lines{});
    EXPECT_EQ(forward(VEL_ERROR_GENERIC, VEL_ERROR_GENERIC),
              (log_lines{handle_line(7, GetParam().failure + ", error 202 (generic error)")}));
}

/* An accept without a connection is nothing special. */
TEST_P(VelhandleForwardCase, TimeoutAndWakeup)
{
    GetParam().set(handle_);
    const bool quiet = GetParam().stores;
    EXPECT_EQ(forward(VEL_ERROR_TIMED_OUT, VEL_ERROR_TIMED_OUT),
              quiet ? log_lines{}
                    : (log_lines{handle_line(7, GetParam().failure + ", error 201 (timed out)")}));
    EXPECT_EQ(
        forward(VEL_ERROR_WAKEUP, VEL_ERROR_WAKEUP),
        quiet ? log_lines{}
              : (log_lines{handle_line(7, GetParam().failure + ", error 213 (wakeup requested)")}));
}

TEST_P(VelhandleForwardCase, IsNotSupported)
{
    EXPECT_EQ(forward(VEL_ERROR_NONE, VEL_ERROR_UNSUPPORTED),
              (log_lines{handle_line(6, GetParam().unsupported)}));
}

INSTANTIATE_TEST_SUITE_P(Rows, VelhandleForwardCase, testing::ValuesIn(kForwardCases),
                         support::row_name());

/* Memory. */

TEST_F(Velhandle, CreateNeedsMemory)
{
    velhandle *velhandle = handle_;
    {
        const support::malloc_watch watch(1);
        velhandle = vel_handle_create();
    }
    EXPECT_EQ(velhandle, nullptr);
    EXPECT_EQ(log_.take(), (log_lines{handle_line(7, "not enough memory for velhandle")}));
}

/* Of the timeout nothing is said. */
TEST_F(Velhandle, CreateNeedsMemoryForTheTimeout)
{
    velhandle *velhandle = handle_;
    {
        const support::malloc_watch watch(2);
        velhandle = vel_handle_create();
    }
    EXPECT_EQ(velhandle, nullptr);
    EXPECT_EQ(log_.take(), log_lines{});
}

bool handle_life()
{
    velhandle *velhandle = vel_handle_create();
    if (!velhandle)
        return false;
    bool ended = false;
    vel_handle_set_context(velhandle, &ended);
    vel_handle_set_read_callback(velhandle, [](struct velhandle *self, void *buf, size_t count) {
        bool *endedptr = static_cast<bool *>(vel_handle_get_context(self));
        if (*endedptr || count == 1) {
            /* One byte at a time is how a line is read without its buffer. */
            *endedptr = true;
            vel_handle_set_error(self, VEL_ERROR_END_OF_FILE);
            return size_t{0};
        }
        memcpy(buf, "one\ntwo\n", 8);
        *endedptr = true;
        return size_t{8};
    });
    char line[16];
    const bool good = vel_handle_read_line(velhandle, line, sizeof line) == 4 &&
                      vel_handle_read_line(velhandle, line, sizeof line) == 4 &&
                      vel_handle_read(velhandle, line, sizeof line) == 0;
    vel_handle_destroy(velhandle);
    return good;
}

TEST(VelhandleOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(handle_life);
}

/* Assertions. */

using VelhandleDeathTest = Velhandle;

TEST_F(VelhandleDeathTest, Handle)
{
    const struct {
        const char *function;
        std::function<void()> call;
    } calls[] = {
        {"vel_handle_destroy", [] { vel_handle_destroy(nullptr); }},
        {"vel_handle_set_destroy_callback",
         [] { vel_handle_set_destroy_callback(nullptr, nullptr); }},
        {"vel_handle_set_connect_callback",
         [] { vel_handle_set_connect_callback(nullptr, nullptr); }},
        {"vel_handle_set_connect_wait_callback",
         [] { vel_handle_set_connect_wait_callback(nullptr, nullptr); }},
        {"vel_handle_set_read_callback", [] { vel_handle_set_read_callback(nullptr, nullptr); }},
        {"vel_handle_set_write_callback", [] { vel_handle_set_write_callback(nullptr, nullptr); }},
        {"vel_handle_set_poll_write_callback",
         [] { vel_handle_set_poll_write_callback(nullptr, nullptr); }},
        {"vel_handle_set_local_port_callback",
         [] { vel_handle_set_local_port_callback(nullptr, nullptr); }},
        {"vel_handle_set_peer_name_callback",
         [] { vel_handle_set_peer_name_callback(nullptr, nullptr); }},
        {"vel_handle_set_accept_callback",
         [] { vel_handle_set_accept_callback(nullptr, nullptr); }},
        {"vel_handle_set_wakeup_callback",
         [] { vel_handle_set_wakeup_callback(nullptr, nullptr); }},
        {"vel_handle_set_context", [] { vel_handle_set_context(nullptr, nullptr); }},
        {"vel_handle_get_context", [] { vel_handle_get_context(nullptr); }},
        {"vel_handle_set_error", [] { vel_handle_set_error(nullptr, VEL_ERROR_COUNT); }},
        {"vel_handle_get_error", [] { vel_handle_get_error(nullptr); }},
        {"vel_handle_set_write_timeout", [] { vel_handle_set_write_timeout(nullptr, 0, 0); }},
        {"vel_handle_set_read_timeout", [] { vel_handle_set_read_timeout(nullptr, 0, 0); }},
        {"vel_handle_get_write_timeout",
         [] { vel_handle_get_write_timeout(nullptr, nullptr, nullptr); }},
        {"vel_handle_get_read_timeout",
         [] { vel_handle_get_read_timeout(nullptr, nullptr, nullptr); }},
        {"vel_handle_connect", [] { vel_handle_connect(nullptr, nullptr, 0); }},
        {"vel_handle_connect_begin", [] { vel_handle_connect_begin(nullptr, nullptr, 0); }},
        {"vel_handle_connect_wait", [] { vel_handle_connect_wait(nullptr); }},
        {"vel_handle_read", [] { vel_handle_read(nullptr, nullptr, 0); }},
        {"vel_handle_write", [] { vel_handle_write(nullptr, nullptr, 0); }},
        {"vel_handle_read_line", [] { vel_handle_read_line(nullptr, nullptr, 0); }},
        {"vel_handle_get_local_port", [] { vel_handle_get_local_port(nullptr, nullptr); }},
        {"vel_handle_get_peer_name", [] { vel_handle_get_peer_name(nullptr, nullptr, nullptr); }},
        {"vel_handle_accept", [] { vel_handle_accept(nullptr, nullptr); }},
        {"vel_handle_wakeup", [] { vel_handle_wakeup(nullptr); }},
    };
    for (const auto &row : calls)
        EXPECT_DEATH(row.call(), asserts("velhandle != NULL", row.function)) << row.function;
}

TEST_F(VelhandleDeathTest, Timeouts)
{
    int seconds = 0;
    EXPECT_DEATH(vel_handle_get_write_timeout(handle_, nullptr, nullptr),
                 asserts("secondsptr != NULL", "vel_handle_get_write_timeout"));
    EXPECT_DEATH(vel_handle_get_write_timeout(handle_, &seconds, nullptr),
                 asserts("microsecondsptr != NULL", "vel_handle_get_write_timeout"));
    EXPECT_DEATH(vel_handle_get_read_timeout(handle_, nullptr, nullptr),
                 asserts("secondsptr != NULL", "vel_handle_get_read_timeout"));
    EXPECT_DEATH(vel_handle_get_read_timeout(handle_, &seconds, nullptr),
                 asserts("microsecondsptr != NULL", "vel_handle_get_read_timeout"));
}

TEST_F(VelhandleDeathTest, SetError)
{
    EXPECT_DEATH(vel_handle_set_error(handle_, VEL_ERROR_COUNT),
                 asserts("velerror < VEL_ERROR_COUNT", "vel_handle_set_error"));
    EXPECT_DEATH(vel_handle_set_error(handle_, 2147483647),
                 asserts("velerror < VEL_ERROR_COUNT", "vel_handle_set_error"));
}

TEST_F(VelhandleDeathTest, Connect)
{
    const struct {
        const char *name;
        vel_error_t (*connect)(velhandle *, const char *, unsigned int);
    } twins[] = {{"vel_handle_connect", vel_handle_connect},
                 {"vel_handle_connect_begin", vel_handle_connect_begin}};
    for (const auto &twin : twins) {
        EXPECT_DEATH(twin.connect(handle_, nullptr, 0), asserts("name != NULL", twin.name));
        EXPECT_DEATH(twin.connect(handle_, "host", 0), asserts("port > 0", twin.name));
        EXPECT_DEATH(twin.connect(handle_, "host", 65536), asserts("port < 65536", twin.name));
    }
}

TEST_F(VelhandleDeathTest, Transfers)
{
    char byte = 0;
    EXPECT_DEATH(vel_handle_read(handle_, nullptr, 0), asserts("buf != NULL", "vel_handle_read"));
    EXPECT_DEATH(vel_handle_read(handle_, &byte, 0), asserts("count > 0", "vel_handle_read"));
    EXPECT_DEATH(vel_handle_write(handle_, nullptr, 0), asserts("buf != NULL", "vel_handle_write"));
    EXPECT_DEATH(vel_handle_write(handle_, &byte, 0), asserts("count > 0", "vel_handle_write"));
    EXPECT_DEATH(vel_handle_read_line(handle_, nullptr, 0),
                 asserts("buf != NULL", "vel_handle_read_line"));
    EXPECT_DEATH(vel_handle_read_line(handle_, &byte, 0),
                 asserts("size > 0", "vel_handle_read_line"));
}

TEST_F(VelhandleDeathTest, Outputs)
{
    sockaddr address = {};
    size_t length = 0;
    EXPECT_DEATH(vel_handle_get_local_port(handle_, nullptr),
                 asserts("portptr != NULL", "vel_handle_get_local_port"));
    EXPECT_DEATH(vel_handle_get_peer_name(handle_, nullptr, nullptr),
                 asserts("sockaddr != NULL", "vel_handle_get_peer_name"));
    EXPECT_DEATH(vel_handle_get_peer_name(handle_, &address, nullptr),
                 asserts("salenptr != NULL", "vel_handle_get_peer_name"));
    EXPECT_DEATH(vel_handle_get_peer_name(handle_, &address, &length),
                 asserts("*salenptr > 0", "vel_handle_get_peer_name"));
    EXPECT_DEATH(vel_handle_accept(handle_, nullptr),
                 asserts("connectionhandleptr != NULL", "vel_handle_accept"));
}

/* A transport that clears the error and gives nothing. */
TEST_F(VelhandleDeathTest, ReadWithoutAResult)
{
    transport_.reads = {fails_with(VEL_ERROR_NONE)};
    EXPECT_DEATH(read(10),
                 asserts("result > 0 || velhandle->error != VEL_ERROR_NONE", "vel_handle_read"));
}

} // namespace
