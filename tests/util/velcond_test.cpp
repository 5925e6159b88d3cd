#include <cerrno>
#include <deque>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/condcalls.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_malloc.h"

using support::calls_of;
using support::lock_failure;
using calls = std::vector<std::string>;

static bool cond_life()
{
    velcond *cond = vel_cond_create();
    if (!cond)
        return false;
    EXPECT_EQ(vel_cond_lock(cond), 0);
    EXPECT_EQ(vel_cond_signal(cond), 0);
    EXPECT_EQ(vel_cond_broadcast(cond), 0);
    EXPECT_EQ(vel_cond_unlock(cond), 0);
    EXPECT_EQ(vel_cond_signal(cond), 0);
    EXPECT_EQ(vel_cond_broadcast(cond), 0);
    vel_cond_destroy(cond);
    return true;
}

/* The condition is destroyed before the mutex. */
TEST(Velcond, Life)
{
    EXPECT_EQ(calls_of([] { EXPECT_TRUE(cond_life()); }),
              (calls{"pthread_mutex_init", "pthread_cond_init", "pthread_mutex_lock",
                     "pthread_cond_signal", "pthread_cond_broadcast", "pthread_mutex_unlock",
                     "pthread_cond_signal", "pthread_cond_broadcast", "pthread_cond_destroy",
                     "pthread_mutex_destroy"}));
}

TEST(Velcond, EveryAllocationMayFail)
{
    support::vel_oom_drive(cond_life);
}

TEST(VelcondCreate, NoMemoryGivesNullAndLogsNothing)
{
    support::log_capture log;
    {
        const support::malloc_watch first(1);
        EXPECT_EQ(vel_cond_create(), nullptr);
    }
    EXPECT_EQ(log.take(), (std::vector<support::log_line>{}));
}

/* The memory is freed: the leak check finds it otherwise. */
TEST(VelcondCreate, FailedMutexGivesNullAndLogsNothing)
{
    support::log_capture log;
    const lock_failure failure("pthread_mutex_init", EAGAIN);
    EXPECT_EQ(calls_of([] { EXPECT_EQ(vel_cond_create(), nullptr); }),
              (calls{"pthread_mutex_init"}));
    EXPECT_EQ(log.take(), (std::vector<support::log_line>{}));
}

TEST(VelcondCreate, FailedConditionDestroysTheMutexAndLogsNothing)
{
    support::log_capture log;
    const lock_failure failure("pthread_cond_init", EAGAIN);
    EXPECT_EQ(calls_of([] { EXPECT_EQ(vel_cond_create(), nullptr); }),
              (calls{"pthread_mutex_init", "pthread_cond_init", "pthread_mutex_destroy"}));
    EXPECT_EQ(log.take(), (std::vector<support::log_line>{}));
}

TEST(Velcond, HandsItemsFromThreadToThread)
{
    velcond *cond = vel_cond_create();
    ASSERT_NE(cond, nullptr);
    std::deque<int> queue;
    std::vector<int> taken;
    std::thread consumer([&] {
        for (int turn = 0; turn < 1000; turn++) {
            vel_cond_lock(cond);
            while (queue.empty())
                EXPECT_EQ(vel_cond_wait(cond), 0);
            taken.push_back(queue.front());
            queue.pop_front();
            vel_cond_unlock(cond);
        }
    });
    std::vector<int> expected;
    for (int turn = 0; turn < 1000; turn++) {
        vel_cond_lock(cond);
        queue.push_back(turn);
        if (turn % 2) {
            EXPECT_EQ(vel_cond_signal(cond), 0);
        }
        vel_cond_unlock(cond);
        if (turn % 2 == 0) {
            EXPECT_EQ(vel_cond_signal(cond), 0); /* without the lock */
        }
        expected.push_back(turn);
    }
    consumer.join();
    EXPECT_EQ(taken, expected);
    vel_cond_destroy(cond);
}

TEST(Velcond, BroadcastWakesAllWaiters)
{
    velcond *cond = vel_cond_create();
    ASSERT_NE(cond, nullptr);
    int waiting = 0;
    bool go = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([&] {
            vel_cond_lock(cond);
            waiting++;
            vel_cond_broadcast(cond);
            while (!go)
                vel_cond_wait(cond);
            waiting--;
            vel_cond_unlock(cond);
        });
    vel_cond_lock(cond);
    while (waiting < 4)
        vel_cond_wait(cond);
    go = true;
    EXPECT_EQ(vel_cond_broadcast(cond), 0); /* one call, and all are waiting */
    vel_cond_unlock(cond);
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(waiting, 0);
    vel_cond_destroy(cond);
}

/* The platform's wait returns at once, and so does this one: it does not wait for a reason. */
TEST(Velcond, SpuriousWakeupPassesThrough)
{
    velcond *cond = vel_cond_create();
    ASSERT_NE(cond, nullptr);
    const lock_failure spurious("pthread_cond_wait", 0);
    EXPECT_EQ(calls_of([cond] {
                  vel_cond_lock(cond);
                  EXPECT_EQ(vel_cond_wait(cond), 0);
                  vel_cond_unlock(cond);
              }),
              (calls{"pthread_mutex_lock", "pthread_cond_wait", "pthread_mutex_unlock"}));
    vel_cond_destroy(cond);
}

TEST(VelcondDeathTest, HandleIsAsserted)
{
    EXPECT_DEATH(vel_cond_destroy(nullptr),
                 support::asserts("velcond != NULL", "vel_cond_destroy"));
    EXPECT_DEATH(vel_cond_lock(nullptr), support::asserts("velcond != NULL", "vel_cond_lock"));
    EXPECT_DEATH(vel_cond_unlock(nullptr), support::asserts("velcond != NULL", "vel_cond_unlock"));
    EXPECT_DEATH(vel_cond_wait(nullptr), support::asserts("velcond != NULL", "vel_cond_wait"));
    EXPECT_DEATH(vel_cond_signal(nullptr), support::asserts("velcond != NULL", "vel_cond_signal"));
    EXPECT_DEATH(vel_cond_broadcast(nullptr),
                 support::asserts("velcond != NULL", "vel_cond_broadcast"));
}

struct failing_operation {
    const char *platform;
    int (*operation)(velcond *velcond);
    const char *function;
};

static const failing_operation kFailingOperations[] = {
    {"pthread_mutex_lock", vel_cond_lock, "vel_cond_lock"},
    {"pthread_mutex_unlock", vel_cond_unlock, "vel_cond_unlock"},
    {"pthread_cond_wait", vel_cond_wait, "vel_cond_wait"},
    {"pthread_cond_signal", vel_cond_signal, "vel_cond_signal"},
    {"pthread_cond_broadcast", vel_cond_broadcast, "vel_cond_broadcast"},
};

TEST(VelcondDeathTest, FailureOfThePlatformAborts)
{
    velcond *cond = vel_cond_create();
    ASSERT_NE(cond, nullptr);
    for (const failing_operation &row : kFailingOperations)
        EXPECT_DEATH(
            {
                const lock_failure failure(row.platform, EINVAL);
                row.operation(cond);
            },
            support::asserts("err == 0", row.function));
    for (const char *platform : {"pthread_cond_destroy", "pthread_mutex_destroy"})
        EXPECT_DEATH(
            {
                const lock_failure failure(platform, EBUSY);
                vel_cond_destroy(cond);
            },
            support::asserts("err == 0", "vel_cond_destroy"));
    vel_cond_destroy(cond);
}

TEST(VelcondDeathTest, MutexThatStaysAfterAFailedConditionAborts)
{
    EXPECT_DEATH(
        {
            const lock_failure failure("pthread_cond_init", EAGAIN);
            const lock_failure stays("pthread_mutex_destroy", EBUSY);
            vel_cond_create();
        },
        support::asserts("res == 0", "vel_cond_create"));
}
