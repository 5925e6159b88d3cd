/* The queue of timeouts by itself, in microseconds. */

#include <algorithm>
#include <climits>
#include <deque>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/playedclock.h"

namespace {

using support::asserts;
using log_lines = std::vector<support::log_line>;
using names = std::vector<std::string>;

/* Time left, as vel_async_timeout_get_us tells it. */
struct left {
    int seconds;
    unsigned int microseconds;

    bool operator==(const left &) const = default;
};

std::ostream &operator<<(std::ostream &out, const left &time)
{
    return out << time.seconds << " s, " << time.microseconds << " us";
}

class VelasyncTimeout : public testing::Test {
  protected:
    void SetUp() override
    {
        operations_ = vel_async_operations_create();
        ASSERT_NE(operations_, nullptr);
        queue_ = vel_async_timeout_create(operations_);
        ASSERT_NE(queue_, nullptr);
    }
    void TearDown() override
    {
        if (queue_)
            vel_async_timeout_destroy(queue_);
        vel_async_operations_destroy(operations_);
        EXPECT_EQ(log_.take(), log_lines{});
    }

    struct note {
        names *called;
        std::string name;
        std::function<void()> then;
    };
    static void timed(vel_error_t code, void *context)
    {
        auto *one = static_cast<note *>(context);
        one->called->push_back(one->name + " " + std::to_string(code));
        one->then();
    }
    velasyncop *add(
        int seconds, unsigned int microseconds, const std::string &name,
        const std::function<void()> &then = [] {})
    {
        velasyncop *op = vel_async_timeout_add_us(queue_, seconds, microseconds, timed,
                                                  &notes_.emplace_back(note{&called_, name, then}));
        EXPECT_NE(op, nullptr);
        return op;
    }
    left time_left()
    {
        left time = {77, 77};
        vel_async_timeout_get_us(queue_, &time.seconds, &time.microseconds);
        return time;
    }
    vel_error_t process()
    {
        return vel_async_timeout_process(queue_);
    }
    names take()
    {
        return std::exchange(called_, {});
    }

    support::played_clock clock_;
    support::log_capture log_;
    velasyncoperations *operations_ = nullptr;
    velasynctimeout *queue_ = nullptr;
    std::deque<note> notes_;
    names called_;
};

TEST_F(VelasyncTimeout, EmptyQueue)
{
    EXPECT_EQ(time_left(), (left{-1, 0}));
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    clock_.move_us(5000000);
    EXPECT_EQ(time_left(), (left{-1, 0}));
}

TEST_F(VelasyncTimeout, TimeLeftOfTheHead)
{
    const struct {
        int64_t moved; /* in microseconds, since the row before */
        left time;
    } rows[] = {
        {0, {3, 250000}}, {1, {3, 249999}},  {249999, {3, 0}}, {1, {2, 999999}},
        {999999, {2, 0}}, {1999999, {0, 1}}, {1, {0, 0}},      {1, {0, 0}},
        {999998, {0, 0}}, {1, {0, 0}},       {1, {0, 0}},      {7000000, {0, 0}},
    };
    clock_.move_us(500000);
    add(3, 250000, "a");
    add(4, 0, "b");
    for (const auto &row : rows) {
        clock_.move_us(row.moved);
        EXPECT_EQ(time_left(), row.time);
    }
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a 201", "b 201"}));
    EXPECT_EQ(time_left(), (left{-1, 0}));
}

TEST_F(VelasyncTimeout, NewHeadIsAskedAtOnce)
{
    add(10, 0, "a");
    EXPECT_EQ(time_left(), (left{10, 0}));
    add(20, 0, "b");
    EXPECT_EQ(time_left(), (left{10, 0}));
    add(5, 1, "c");
    EXPECT_EQ(time_left(), (left{5, 1}));
    clock_.move_us(60000000);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"c 201", "a 201", "b 201"}));
}

/* 999999 microseconds from a now of 999999: one second more, and 999998. */
TEST_F(VelasyncTimeout, MicrosecondsCarryOver)
{
    clock_.move_us(7999999);
    add(0, 999999, "a");
    EXPECT_EQ(time_left(), (left{0, 999999}));
    clock_.move_us(1); /* 8.000000 */
    EXPECT_EQ(time_left(), (left{0, 999998}));
    clock_.move_us(999997);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    clock_.move_us(1); /* 8.999998 */
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a 201"}));

    add(0, 2, "b"); /* 9.000000 */
    EXPECT_EQ(time_left(), (left{0, 2}));
    clock_.move_us(1);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    clock_.move_us(1);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"b 201"}));
}

TEST_F(VelasyncTimeout, ExactlyNowIsDue)
{
    add(1, 500000, "a");
    clock_.move_us(1499999);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), names{});
    clock_.move_us(1);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a 201"}));
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
}

TEST_F(VelasyncTimeout, EqualDeadlinesKeepTheirOrder)
{
    add(1, 0, "a");
    clock_.move_us(400000);
    add(0, 600000, "b");
    add(0, 600001, "d");
    clock_.move_us(600000);
    add(0, 0, "c");
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"a 201", "b 201", "c 201"}));
    clock_.move_us(1);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"d 201"}));
}

TEST_F(VelasyncTimeout, InsertedBeforeBetweenAndBehind)
{
    for (unsigned int ms : {30, 10, 20, 40, 20, 10, 0, 30})
        add(0, ms * 1000, std::to_string(ms));
    clock_.move_us(1000000);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"0 201", "10 201", "10 201", "20 201", "20 201", "30 201", "30 201",
                             "40 201"}));
}

/* A pass has one now. What its callbacks add is in the queue when it goes on. */
TEST_F(VelasyncTimeout, CallbackThatAddsWhileTheClockStands)
{
    add(0, 0, "a", [&] {
        add(0, 0, "b");
        add(0, 1, "c");
        EXPECT_EQ(time_left(), (left{0, 0}));
    });
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"a 201", "b 201"}));
    clock_.move_us(1);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"c 201"}));
}

TEST_F(VelasyncTimeout, CallbackThatAddsWhileTheClockMoves)
{
    add(0, 1, "later");
    add(0, 0, "a", [&] {
        clock_.move_us(1);
        add(0, 0, "b");
    });
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"a 201"}));
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"later 201", "b 201"}));
}

/* An added one that is due stands behind those that were due already. */
TEST_F(VelasyncTimeout, AddedOneTakesItsPlace)
{
    add(0, 0, "a", [&] { add(0, 0, "d"); });
    add(0, 0, "b");
    add(0, 0, "c");
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a 201", "b 201", "c 201", "d 201"}));
}

/* The item is out of the queue when its callback runs. */
TEST_F(VelasyncTimeout, FiredOneIsOutOfTheQueue)
{
    left time = {77, 77};
    add(0, 0, "a", [&] { time = time_left(); });
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(time, (left{-1, 0}));
}

TEST_F(VelasyncTimeout, CanceledOnesLeaveTheQueue)
{
    velasyncop *a = add(0, 10, "a");
    velasyncop *b = add(0, 20, "b");
    velasyncop *c = add(0, 30, "c");
    for (velasyncop *op : {b, a, c})
        vel_async_operations_cancel(operations_, op);
    EXPECT_EQ(time_left(), (left{0, 10}));
    EXPECT_EQ(vel_async_operations_process_canceled(operations_), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"b 125", "a 125", "c 125"}));
    EXPECT_EQ(time_left(), (left{-1, 0}));
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
}

/* Its item is gone then, and its handle is not. */
TEST_F(VelasyncTimeout, HandleCancelLeavesTheHandle)
{
    velasyncop *op = add(1, 0, "a");
    vel_async_handle_cancel(op);
    EXPECT_EQ(take(), (names{"a 125"}));
    EXPECT_EQ(time_left(), (left{-1, 0}));
    vel_async_operations_remove_active(operations_, op);
    vel_async_handle_destroy(op);
}

TEST_F(VelasyncTimeout, DestroyCancelsInTheOrderOfTheQueue)
{
    velasyncop *ops[] = {add(3, 0, "c"), add(1, 0, "a"), add(2, 0, "b")};
    vel_async_timeout_destroy(queue_);
    queue_ = nullptr;
    EXPECT_EQ(take(), (names{"a 125", "b 125", "c 125"}));
    for (velasyncop *op : ops) {
        vel_async_operations_remove_active(operations_, op);
        vel_async_handle_destroy(op);
    }
}

/* Many, with many equal deadlines, and with half of them canceled, in exact order. Under the naive
 * walk from the head this would not end within the time that a test has. */
struct mass {
    std::vector<uint32_t> *fired;
    uint32_t number;
};

void fired(vel_error_t code, void *context)
{
    auto *one = static_cast<mass *>(context);
    one->fired->push_back(one->number * 2 + (code == VEL_ERROR_CANCELED));
}

TEST_F(VelasyncTimeout, HundredThousand)
{
    constexpr uint32_t kCount = 100000;
    const struct {
        const char *name;
        std::function<uint32_t(uint32_t)> delay; /* in milliseconds, of the n-th */
    } rows[] = {
        {"random", [random = std::mt19937(1)](uint32_t) mutable { return random() % 20000 * 37; }},
        {"ascending", [](uint32_t n) { return n; }},
        {"descending", [](uint32_t n) { return kCount - n; }},
        {"equal", [](uint32_t) { return 1000u; }},
        {"interleaved", [](uint32_t n) { return n % 2 ? n : 2 * kCount - n; }},
    };
    for (const auto &row : rows) {
        std::vector<uint32_t> order;
        std::vector<mass> contexts(kCount);
        std::vector<uint32_t> delays(kCount);
        auto delay = row.delay;
        for (uint32_t n = 0; n < kCount; n++) {
            contexts[n] = {&order, n};
            delays[n] = delay(n);
            ASSERT_NE(vel_async_timeout_add_us(queue_, static_cast<int>(delays[n] / 1000),
                                               delays[n] % 1000 * 1000, fired, &contexts[n]),
                      nullptr);
        }
        std::vector<uint32_t> expected(kCount);
        for (uint32_t n = 0; n < kCount; n++)
            expected[n] = n;
        std::stable_sort(expected.begin(), expected.end(),
                         [&](uint32_t a, uint32_t b) { return delays[a] < delays[b]; });
        for (uint32_t &number : expected)
            number *= 2;
        /* In several passes. */
        while (time_left().seconds != -1) {
            const left time = time_left();
            clock_.move_us(int64_t{time.seconds} * 1000000 + time.microseconds + 5000000);
            process();
        }
        EXPECT_TRUE(order == expected) << row.name;
    }
}

TEST_F(VelasyncTimeout, HundredThousandAndHalfOfThemCanceled)
{
    constexpr uint32_t kCount = 100000;
    std::mt19937 random(2);
    std::vector<uint32_t> order;
    std::vector<mass> contexts(kCount);
    std::vector<uint32_t> delays(kCount);
    std::vector<velasyncop *> ops(kCount);
    for (uint32_t n = 0; n < kCount; n++) {
        contexts[n] = {&order, n};
        delays[n] = random() % 1000000;
        ops[n] = vel_async_timeout_add_us(queue_, 1, delays[n], fired, &contexts[n]);
        ASSERT_NE(ops[n], nullptr);
    }
    std::vector<uint32_t> numbers(kCount);
    for (uint32_t n = 0; n < kCount; n++)
        numbers[n] = n;
    std::shuffle(numbers.begin(), numbers.end(), random);
    std::vector<uint32_t> expected;
    for (uint32_t i = 0; i < kCount / 2; i++) {
        vel_async_operations_cancel(operations_, ops[numbers[i]]);
        expected.push_back(numbers[i] * 2 + 1);
    }
    EXPECT_EQ(vel_async_operations_process_canceled(operations_), VEL_ERROR_NONE);
    EXPECT_TRUE(order == expected);

    std::vector<uint32_t> rest(numbers.begin() + kCount / 2, numbers.end());
    std::sort(rest.begin(), rest.end());
    std::stable_sort(rest.begin(), rest.end(),
                     [&](uint32_t a, uint32_t b) { return delays[a] < delays[b]; });
    for (uint32_t number : rest)
        expected.push_back(number * 2);
    clock_.move_us(2000000);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_TRUE(order == expected);
}

/* Adds, cancels and passes by chance beside a sorted map, with few and with many pending. Long ones
 * that are canceled early are most of them, as in life. */
TEST_F(VelasyncTimeout, BesideASortedMap)
{
    struct entry {
        uint32_t number;
        velasyncop *op;
    };
    std::mt19937 random(5);
    std::multimap<int64_t, entry> model; /* by deadline; equal ones in the order of adding */
    std::deque<mass> contexts;
    std::vector<uint32_t> order;
    std::vector<uint32_t> expected;
    int64_t now = 0;
    for (int step = 0; step < 100000; step++) {
        const size_t target = step / 20000 % 2 ? 10 : 3000;
        const unsigned int choice = random() % 8;
        if (choice < 4 && model.size() < target) {
            const auto number = static_cast<uint32_t>(contexts.size());
            const int64_t delay = random() % 4 ? random() % 3000 * 1000 : random() % 20;
            mass *context = &contexts.emplace_back(mass{&order, number});
            velasyncop *op = vel_async_timeout_add_us(queue_, static_cast<int>(delay / 1000000),
                                                      static_cast<unsigned int>(delay % 1000000),
                                                      fired, context);
            ASSERT_NE(op, nullptr);
            model.insert({now + delay, {number, op}});
        } else if (choice < 7 && !model.empty()) {
            auto chosen = model.lower_bound(now + random() % 3000000);
            if (chosen == model.end())
                chosen = model.begin();
            vel_async_operations_cancel(operations_, chosen->second.op);
            EXPECT_EQ(vel_async_operations_process_canceled(operations_), VEL_ERROR_NONE);
            expected.push_back(chosen->second.number * 2 + 1);
            model.erase(chosen);
        } else {
            const int64_t moved = random() % 50;
            clock_.move_us(moved);
            now += moved;
            const bool empty = model.empty();
            while (!model.empty() && model.begin()->first <= now) {
                expected.push_back(model.begin()->second.number * 2);
                model.erase(model.begin());
            }
            ASSERT_EQ(process(), !empty && model.empty() ? VEL_ERROR_NONE : VEL_ERROR_INCOMPLETE);
        }
        const int64_t wait = model.empty() ? 0 : std::max<int64_t>(model.begin()->first - now, 0);
        ASSERT_EQ(time_left(), (model.empty() ? left{-1, 0}
                                              : left{static_cast<int>(wait / 1000000),
                                                     static_cast<unsigned int>(wait % 1000000)}))
            << step;
        ASSERT_EQ(order, expected) << step;
        order.clear();
        expected.clear();
    }
    for (const auto &[deadline, one] : model)
        vel_async_operations_cancel(operations_, one.op);
    EXPECT_EQ(vel_async_operations_process_canceled(operations_), VEL_ERROR_NONE);
}

/* Assertions. */

using VelasyncTimeoutDeathTest = VelasyncTimeout;

void ignored(vel_error_t, void *)
{
}

TEST_F(VelasyncTimeoutDeathTest, Arguments)
{
    int seconds = 0;
    unsigned int microseconds = 0;
    EXPECT_DEATH(vel_async_timeout_create(nullptr),
                 asserts("operations != NULL", "vel_async_timeout_create"));
    EXPECT_DEATH(vel_async_timeout_destroy(nullptr),
                 asserts("timeout != NULL", "vel_async_timeout_destroy"));
    EXPECT_DEATH(vel_async_timeout_get_us(nullptr, &seconds, &microseconds),
                 asserts("timeout != NULL", "vel_async_timeout_get_us"));
    EXPECT_DEATH(vel_async_timeout_get_us(queue_, nullptr, nullptr),
                 asserts("secondsptr != NULL", "vel_async_timeout_get_us"));
    EXPECT_DEATH(vel_async_timeout_get_us(queue_, &seconds, nullptr),
                 asserts("microsecondsptr != NULL", "vel_async_timeout_get_us"));
    EXPECT_DEATH(vel_async_timeout_process(nullptr),
                 asserts("timeout != NULL", "vel_async_timeout_process"));
    EXPECT_DEATH(vel_async_timeout_add_us(queue_, -1, 1000000, nullptr, nullptr),
                 asserts("seconds >= 0", "vel_async_timeout_add_us"));
    EXPECT_DEATH(vel_async_timeout_add_us(queue_, 0, 1000000, nullptr, nullptr),
                 asserts("microseconds < 1000000", "vel_async_timeout_add_us"));
    EXPECT_DEATH(vel_async_timeout_add_us(queue_, 0, 0, nullptr, nullptr),
                 asserts("callback != NULL", "vel_async_timeout_add_us"));
    EXPECT_DEATH(vel_async_timeout_add_us(nullptr, 0, 0, ignored, nullptr),
                 asserts("timeout != NULL"));
}

} // namespace
