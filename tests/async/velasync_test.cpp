#include <atomic>
#include <climits>
#include <fstream>
#include <sched.h>
#include <thread>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/asynctest.h"
#include "support/playedclock.h"

namespace {

using support::asserts;
using support::async_line;
using support::kNothingReady;
using support::log_lines;
using support::names;
using support::ready_lines;
using support::socket_pair;

/* A loop whose clock only the test moves. */
class Velasync : public support::async_test {
  protected:
    support::played_clock clock_;
};

/* One whose clock goes by itself. */
using VelasyncPoll = support::async_test;

TEST_F(Velasync, FreshLoopHasNothingToDo)
{
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(own_lines(), kNothingReady);
    EXPECT_EQ(vel_async_get_timeout_ms(async_), -1);
    EXPECT_EQ(log_.take(), log_lines{});
    EXPECT_FALSE(native_ready());
}

TEST_F(Velasync, NativeHandleIsADescriptorOfItsOwn)
{
    const int native = vel_async_get_native_handle(async_);
    EXPECT_GE(native, 0);
    EXPECT_EQ(support::descriptors_since(before_).size() > 0, true);
    EXPECT_EQ(before_.count(native), 0u);
    EXPECT_EQ(support::descriptors().count(native), 1u);
    EXPECT_EQ(vel_async_get_native_handle(async_), native);
    vel_async_destroy(async_);
    async_ = nullptr;
    EXPECT_EQ(support::descriptors(), before_);
}

TEST_F(Velasync, LoopsAreIndependent)
{
    socket_pair pair;
    velasync *other = vel_async_create();
    ASSERT_NE(other, nullptr);
    EXPECT_NE(vel_async_get_native_handle(other), vel_async_get_native_handle(async_));
    EXPECT_EQ(watch_read(pair.own(), "a"), VEL_ERROR_NONE);
    timeout(0, "t");
    pair.make_readable();
    EXPECT_EQ(vel_async_process(other), VEL_ERROR_NONE);
    EXPECT_EQ(take(), names{});
    vel_async_destroy(other);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"a", "t timed out"}));
}

/* Timeouts. */

TEST_F(Velasync, TimeoutOfNothingFiresInTheNextPass)
{
    timeout(0, "a");
    EXPECT_EQ(take(), names{});
    EXPECT_EQ(vel_async_get_timeout_ms(async_), 0);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a timed out"}));
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), names{});
    EXPECT_EQ(own_lines(), kNothingReady + kNothingReady);
}

TEST_F(Velasync, TimeoutFiresWhenItIsDueAndNotBefore)
{
    timeout(30, "a");
    for (int64_t us : {29000, 999}) {
        clock_.move_us(us);
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
        EXPECT_EQ(take(), names{});
    }
    clock_.move_us(1);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a timed out"}));
}

TEST_F(Velasync, TimeoutsFireInTheOrderOfTheirDeadlines)
{
    timeout(30, "30");
    timeout(10, "10");
    timeout(20, "20");
    timeout(10, "10 again");
    clock_.move_us(10000);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"10 timed out", "10 again timed out"}));
    clock_.move_us(100000);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"20 timed out", "30 timed out"}));
}

/* Rounded up, so that no wait ends too early. */
TEST_F(Velasync, TimeLeftIsRoundedUpToMilliseconds)
{
    const struct {
        int64_t left; /* in microseconds */
        int ms;
    } rows[] = {
        {2000000, 2000}, {1999999, 2000}, {1999001, 2000}, {1999000, 1999}, {1000001, 1001},
        {1000000, 1000}, {999999, 1000},  {1001, 2},       {1000, 1},       {999, 1},
        {1, 1},          {0, 0},          {-1, 0},         {-1000000, 0},   {-5000001, 0},
    };
    timeout(2000, "a");
    int64_t left = 2000000;
    for (const auto &row : rows) {
        clock_.move_us(left - row.left);
        left = row.left;
        EXPECT_EQ(vel_async_get_timeout_ms(async_), row.ms) << row.left;
    }
    EXPECT_EQ(process(), VEL_ERROR_NONE);
}

/* The clock counts nanoseconds, the deadlines do not. */
TEST_F(Velasync, NanosecondsAreCutOff)
{
    timeout(1, "a");
    clock_.nanoseconds += 999999;
    EXPECT_EQ(vel_async_get_timeout_ms(async_), 1);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    clock_.nanoseconds += 1;
    EXPECT_EQ(vel_async_get_timeout_ms(async_), 0);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a timed out"}));
}

TEST_F(Velasync, LongestDelayThatCanBeTold)
{
    timeout(INT_MAX, "a");
    EXPECT_EQ(vel_async_get_timeout_ms(async_), INT_MAX);
    clock_.move_us(int64_t{INT_MAX} * 1000 - 1);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    clock_.move_us(1);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a timed out"}));
}

TEST_F(Velasync, LongerDelaysAreWellBehindTheHead)
{
    timeout(UINT_MAX, "long");
    timeout(0, "short");
    EXPECT_EQ(vel_async_get_timeout_ms(async_), 0);
    clock_.move_us(int64_t{UINT_MAX} * 1000 - 1);
    EXPECT_EQ(vel_async_get_timeout_ms(async_), 0);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"short timed out"}));
    EXPECT_EQ(vel_async_get_timeout_ms(async_), 1);
    clock_.move_us(1);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"long timed out"}));
}

TEST_F(Velasync, CallbackMayStartTheNextTimeout)
{
    int fired = 0;
    std::function<void()> again = [&] {
        if (++fired < 5)
            timeout(10, "again", again);
    };
    timeout(10, "first", again);
    for (int i = 0; i < 4; i++) {
        clock_.move_us(10000);
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
        EXPECT_EQ(fired, i + 1);
    }
    clock_.move_us(10000);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(fired, 5);
}

/* Cancelling. */

TEST_F(Velasync, CanceledTimeoutIsToldInTheNextPass)
{
    velasyncop *op = timeout(1000, "a");
    vel_async_cancel(async_, op);
    EXPECT_EQ(take(), names{});
    EXPECT_EQ(vel_async_get_timeout_ms(async_), 1000); /* stays in its queue until then */
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a canceled"}));
    EXPECT_EQ(vel_async_get_timeout_ms(async_), -1);
    clock_.move_us(2000000);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), names{});
}

TEST_F(Velasync, DueTimeoutCanStillBeCanceled)
{
    velasyncop *op = timeout(0, "a");
    timeout(0, "b");
    clock_.move_us(1000000);
    EXPECT_EQ(vel_async_get_timeout_ms(async_), 0);
    vel_async_cancel(async_, op);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a canceled", "b timed out"}));
}

/* In the order of the calls, not of the deadlines. */
TEST_F(Velasync, CancelsAreServedInTheirOrder)
{
    velasyncop *ops[] = {timeout(10, "a"), timeout(20, "b"), timeout(30, "c"), timeout(40, "d")};
    for (int i : {2, 0, 3})
        vel_async_cancel(async_, ops[i]);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"c canceled", "a canceled", "d canceled"}));
    vel_async_cancel(async_, ops[1]);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"b canceled"}));
}

TEST_F(Velasync, CancelingTwiceIsCancelingOnce)
{
    velasyncop *a = timeout(10, "a");
    velasyncop *b = timeout(20, "b");
    for (velasyncop *op : {a, b, a, b, b})
        vel_async_cancel(async_, op);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a canceled", "b canceled"}));
}

/* They are added to those that the pass works on. */
TEST_F(Velasync, CancelCallbackMayCancelMore)
{
    velasyncop *c = timeout(30, "c");
    velasyncop *b = timeout(20, "b", [&] { vel_async_cancel(async_, c); });
    velasyncop *a = timeout(10, "a", [&] { vel_async_cancel(async_, b); });
    timeout(1, "d");
    vel_async_cancel(async_, a);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"a canceled", "b canceled", "c canceled"}));
    clock_.move_us(1000);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"d timed out"}));
}

TEST_F(Velasync, CancelCallbackMayStartTimeouts)
{
    velasyncop *a = timeout(10, "a", [&] { timeout(0, "b"); });
    vel_async_cancel(async_, a);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a canceled", "b timed out"}));
}

TEST_F(Velasync, TimeoutCallbackMayCancelALaterOne)
{
    velasyncop *b = timeout(1000, "b");
    timeout(0, "a", [&] { vel_async_cancel(async_, b); });
    EXPECT_EQ(process(), VEL_ERROR_NONE); /* served before the host has control */
    EXPECT_EQ(take(), (names{"a timed out", "b canceled"}));
}

/* A canceled timeout does not fire: a timeout that another one cancels in the pass in which both
 * are due is told so after the rest. */
TEST_F(Velasync, TimeoutCallbackMayCancelADueOne)
{
    velasyncop *b = nullptr;
    velasyncop *d = nullptr;
    timeout(0, "a", [&] {
        vel_async_cancel(async_, d);
        vel_async_cancel(async_, b);
    });
    b = timeout(0, "b");
    timeout(0, "c");
    d = timeout(0, "d");
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a timed out", "c timed out", "d canceled", "b canceled"}));
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), names{});
}

/* The cancel takes effect before the queue is looked at. */
TEST_F(Velasync, SocketCallbackMayCancelADueTimeout)
{
    socket_pair pair;
    velasyncop *op = timeout(0, "t");
    timeout(0, "u");
    EXPECT_EQ(watch_read(pair.own(), "a", [&] { vel_async_cancel(async_, op); }), VEL_ERROR_NONE);
    pair.make_readable();
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"a", "t canceled", "u timed out"}));
    EXPECT_EQ(unwatch_read(pair.own()), VEL_ERROR_NONE);
}

/* The order of a pass: canceled, one event, canceled, due, canceled. */
TEST_F(Velasync, PassHasItsOrder)
{
    socket_pair pair;
    velasyncop *first = timeout(1000, "first");
    velasyncop *second = timeout(1000, "second");
    velasyncop *third = timeout(1000, "third");
    timeout(0, "due", [&] { vel_async_cancel(async_, third); });
    EXPECT_EQ(watch_read(pair.own(), "socket", [&] { vel_async_cancel(async_, second); }),
              VEL_ERROR_NONE);
    pair.make_readable();
    vel_async_cancel(async_, first);
    log_.clear();
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"first canceled", "socket", "second canceled", "due timed out",
                             "third canceled"}));
    EXPECT_EQ(own_lines(), ready_lines(pair.own()));
    EXPECT_EQ(unwatch_read(pair.own()), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
}

/* Descriptors. */

TEST_F(Velasync, EventsComeOneAPass)
{
    socket_pair a;
    socket_pair b;
    EXPECT_EQ(watch_read(a.own(), "a", [&] { a.drain(); }), VEL_ERROR_NONE);
    EXPECT_EQ(watch_read(b.own(), "b", [&] { b.drain(); }), VEL_ERROR_NONE);
    a.make_readable();
    b.make_readable();
    timeout(0, "t");
    EXPECT_TRUE(native_ready());
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    names first = take();
    ASSERT_EQ(first.size(), 2u);
    EXPECT_EQ(first[1], "t timed out"); /* after every single event */
    EXPECT_TRUE(native_ready());
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    const names second = take();
    EXPECT_EQ(second, (names{first[0] == "a" ? "b" : "a"}));
    EXPECT_FALSE(native_ready());
    log_.clear();
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), names{});
    EXPECT_EQ(own_lines(), kNothingReady);
}

TEST_F(Velasync, DestroyDropsDescriptorsSilently)
{
    socket_pair pair;
    EXPECT_EQ(watch_read(pair.own(), "r"), VEL_ERROR_NONE);
    EXPECT_EQ(watch_write(pair.own(), "w"), VEL_ERROR_NONE);
    log_.clear();
    vel_async_destroy(async_);
    async_ = nullptr;
    EXPECT_EQ(log_.take(), log_lines{});
    EXPECT_EQ(take(), names{});
    pair.make_readable(); /* still open */
}

/* Waiting. */

TEST_F(VelasyncPoll, FreshLoopDoesNotWait)
{
    vel_async_poll(async_);
    EXPECT_EQ(own_lines(), (log_lines{async_line(1, "kevent() returned 0 events")}));
}

TEST_F(VelasyncPoll, DueTimeoutDoesNotWait)
{
    socket_pair pair;
    EXPECT_EQ(watch_read(pair.own(), "a"), VEL_ERROR_NONE);
    timeout(0, "t");
    log_.clear();
    vel_async_poll(async_);
    EXPECT_EQ(own_lines(), (log_lines{async_line(1, "kevent() returned 0 events")}));
    EXPECT_EQ(take(), names{});
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"t timed out"}));
    EXPECT_EQ(unwatch_read(pair.own()), VEL_ERROR_NONE);
}

/* One wait is enough, with a descriptor beside it or without. */
TEST_F(VelasyncPoll, WaitsForTheTimeout)
{
    socket_pair pair;
    for (bool beside : {false, true}) {
        if (beside) {
            EXPECT_EQ(watch_read(pair.own(), "a"), VEL_ERROR_NONE);
        }
        timeout(20, "t");
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
        EXPECT_EQ(take(), names{});
        log_.clear();
        vel_async_poll(async_);
        EXPECT_EQ(own_lines(), (log_lines{async_line(1, "kevent() returned 0 events")}));
        EXPECT_EQ(process(), beside ? VEL_ERROR_INCOMPLETE : VEL_ERROR_NONE);
        EXPECT_EQ(take(), (names{"t timed out"}));
    }
}

/* What it sees stays for the pass. */
TEST_F(VelasyncPoll, LeavesTheEventPending)
{
    socket_pair pair;
    EXPECT_EQ(watch_read(pair.own(), "a", [&] { pair.drain(); }), VEL_ERROR_NONE);
    velasyncop *op = timeout(1000000, "t");
    pair.make_readable();
    log_.clear();
    for (int i = 0; i < 3; i++)
        vel_async_poll(async_);
    const support::log_line one = async_line(1, "kevent() returned 1 events");
    EXPECT_EQ(own_lines(), (log_lines{one, one, one}));
    EXPECT_EQ(take(), names{});
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"a"}));
    EXPECT_EQ(own_lines(), ready_lines(pair.own()));
    vel_async_cancel(async_, op);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
}

/* Whether a thread of this process waits in the kernel. */
bool sleeps(pid_t task)
{
    std::ifstream stat("/proc/self/task/" + std::to_string(task) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    return text.substr(text.rfind(')') + 2, 1) == "S";
}

/* Only a descriptor ends it. */
TEST_F(VelasyncPoll, WaitsForADescriptorWithoutAnEnd)
{
    socket_pair pair;
    EXPECT_EQ(watch_read(pair.own(), "a", [&] { pair.drain(); }), VEL_ERROR_NONE);
    std::atomic<bool> waiting = false;
    std::atomic<bool> written = false;
    std::thread peer([&, task = gettid()] {
        while (!waiting || !sleeps(task))
            sched_yield();
        written = true;
        pair.make_readable();
    });
    waiting = true;
    vel_async_poll(async_);
    EXPECT_TRUE(written);
    peer.join();
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"a"}));

    EXPECT_EQ(unwatch_read(pair.own()), VEL_ERROR_NONE);
    vel_async_poll(async_); /* no more descriptor, no wait */
}

/* The loop of a host that lets the library wait: a number goes round between two sockets. */
TEST_F(VelasyncPoll, UsersLoop)
{
    socket_pair pair;
    int rounds = 0;
    velasyncop *op = timeout(60000, "limit");
    const auto pass_on = [&](int from, int to) {
        char number = 0;
        EXPECT_EQ(read(from, &number, 1), 1);
        number++;
        rounds++;
        EXPECT_EQ(write(to, &number, 1), 1);
        if (number == 100) {
            vel_async_cancel(async_, op);
            EXPECT_EQ(unwatch_read(pair.own()), VEL_ERROR_NONE);
            EXPECT_EQ(unwatch_read(pair.peer()), VEL_ERROR_NONE);
        }
    };
    watch_read(pair.own(), "own", [&] { pass_on(pair.own(), pair.own()); });
    watch_read(pair.peer(), "peer", [&] { pass_on(pair.peer(), pair.peer()); });
    const char zero = 0;
    EXPECT_EQ(write(pair.own(), &zero, 1), 1);
    while (process() == VEL_ERROR_INCOMPLETE)
        vel_async_poll(async_);
    EXPECT_EQ(rounds, 100);
    EXPECT_EQ(take().back(), "limit canceled");
}

/* Assertions. */

using VelasyncDeathTest = Velasync;

TEST_F(VelasyncDeathTest, Handle)
{
    const struct {
        const char *function;
        std::function<void()> call;
    } rows[] = {
        {"vel_async_destroy", [] { vel_async_destroy(nullptr); }},
        {"vel_async_get_native_handle", [] { vel_async_get_native_handle(nullptr); }},
        {"vel_async_register_timeout_ms",
         [] { vel_async_register_timeout_ms(nullptr, 0, nullptr, nullptr); }},
        {"vel_async_register_socket_read",
         [] { vel_async_register_socket_read(nullptr, -1, nullptr, nullptr); }},
        {"vel_async_register_socket_write",
         [] { vel_async_register_socket_write(nullptr, -1, nullptr, nullptr); }},
        {"vel_async_unregister_socket_read", [] { vel_async_unregister_socket_read(nullptr, -1); }},
        {"vel_async_unregister_socket_write",
         [] { vel_async_unregister_socket_write(nullptr, -1); }},
        {"vel_async_get_timeout_ms", [] { vel_async_get_timeout_ms(nullptr); }},
        {"vel_async_poll", [] { vel_async_poll(nullptr); }},
        {"vel_async_process", [] { vel_async_process(nullptr); }},
    };
    for (const auto &row : rows)
        EXPECT_DEATH(row.call(), asserts("velasync != NULL", row.function)) << row.function;
    EXPECT_DEATH(vel_async_cancel(nullptr, nullptr), asserts("velasync", "vel_async_cancel"));
    EXPECT_DEATH(vel_async_cancel(async_, nullptr), asserts("velasyncop", "vel_async_cancel"));
}

TEST_F(VelasyncDeathTest, Arguments)
{
    EXPECT_DEATH(vel_async_register_timeout_ms(async_, 0, nullptr, nullptr),
                 asserts("callback != NULL", "vel_async_register_timeout_ms"));
    for (const support::direction &way : {support::kRead, support::kWrite}) {
        const std::string word = way.name == std::string("Read") ? "read" : "write";
        EXPECT_DEATH(way.registers(async_, -1, nullptr, nullptr),
                     asserts("s >= 0", "vel_async_register_socket_" + word));
        EXPECT_DEATH(way.registers(async_, 0, nullptr, nullptr),
                     asserts("callback != NULL", "vel_async_register_socket_" + word));
        EXPECT_DEATH(way.unregisters(async_, -1),
                     asserts("s >= 0", "vel_async_unregister_socket_" + word));
    }
}

/* The 32-bit product of seconds and 1000 turns negative. */
TEST_F(VelasyncDeathTest, DelayThatCannotBeTold)
{
    timeout(2147483648u, "long");
    for (const auto &call : std::vector<std::function<void()>>{
             [&] { vel_async_get_timeout_ms(async_); }, [&] { vel_async_poll(async_); },
             [&] { vel_async_process(async_); }})
        EXPECT_DEATH(call(), asserts("result >= 0", "vel_async_get_timeout_ms"));
    /* It goes by: */
    clock_.move_us(int64_t{2147483648} * 1000);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
}

/* After their callbacks have run, in the order of the queue. */
TEST_F(VelasyncDeathTest, DestroyWithPendingTimeouts)
{
    const auto says = [](vel_error_t code, void *context) {
        fprintf(stderr, "%s %d\n", static_cast<const char *>(context), code);
    };
    char second[] = "second";
    char first[] = "first";
    velasyncop *a = vel_async_register_timeout_ms(async_, 20, says, second);
    velasyncop *b = vel_async_register_timeout_ms(async_, 10, says, first);
    EXPECT_DEATH(vel_async_destroy(async_),
                 testing::AllOf(testing::StartsWith("first 125\nsecond 125\n"),
                                asserts("operations->activeops->head == NULL",
                                        "vel_async_operations_destroy")));
    vel_async_cancel(async_, b);
    EXPECT_DEATH(vel_async_destroy(async_),
                 testing::AllOf(testing::StartsWith("first 125\nsecond 125\n"),
                                asserts("operations->tocancelops->head == NULL",
                                        "vel_async_operations_destroy")));
    vel_async_cancel(async_, a);
    testing::internal::CaptureStderr();
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "first 125\nsecond 125\n");
}

/* It is the descriptors that go first. */
TEST_F(VelasyncDeathTest, TimeoutThatIsDestroyedMayNotUnregister)
{
    socket_pair pair;
    struct host {
        velasync *async;
        int descriptor;
    } host = {async_, pair.own()};
    const auto unregister = [](vel_error_t, void *context) {
        const auto *closing = static_cast<struct host *>(context);
        vel_async_unregister_socket_read(closing->async, closing->descriptor);
    };
    EXPECT_EQ(watch_read(pair.own(), "r"), VEL_ERROR_NONE);
    velasyncop *op = vel_async_register_timeout_ms(async_, 10, unregister, &host);
    EXPECT_DEATH(vel_async_destroy(async_),
                 asserts("velasyncsocket != NULL", "vel_async_socket_unregister_read"));
    vel_async_cancel(async_, op);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
}

} // namespace
