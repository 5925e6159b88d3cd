#include <cerrno>
#include <chrono>
#include <future>
#include <pthread.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/lockcalls.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_malloc.h"

using support::calls_of;
using support::lock_failure;
using calls = std::vector<std::string>;

extern "C" int pthread_rwlock_init(pthread_rwlock_t *lock,
                                   const pthread_rwlockattr_t *attr) noexcept
{
    /* Default attributes, whichever way they are asked for. */
    EXPECT_EQ(attr, nullptr);
    return support::lock_call("pthread_rwlock_init", lock, attr);
}

extern "C" int pthread_rwlock_destroy(pthread_rwlock_t *lock) noexcept
{
    return support::lock_call("pthread_rwlock_destroy", lock);
}

extern "C" int pthread_rwlock_rdlock(pthread_rwlock_t *lock) noexcept
{
    return support::lock_call("pthread_rwlock_rdlock", lock);
}

extern "C" int pthread_rwlock_wrlock(pthread_rwlock_t *lock) noexcept
{
    return support::lock_call("pthread_rwlock_wrlock", lock);
}

extern "C" int pthread_rwlock_unlock(pthread_rwlock_t *lock) noexcept
{
    return support::lock_call("pthread_rwlock_unlock", lock);
}

static bool rwlock_life()
{
    velrwlock *lock = vel_rwlock_create();
    if (!lock)
        return false;
    EXPECT_EQ(vel_rwlock_rdlock(lock), 0);
    EXPECT_EQ(vel_rwlock_rdlock(lock), 0);
    EXPECT_EQ(vel_rwlock_unlock(lock), 0);
    EXPECT_EQ(vel_rwlock_unlock(lock), 0);
    EXPECT_EQ(vel_rwlock_wrlock(lock), 0);
    EXPECT_EQ(vel_rwlock_unlock(lock), 0);
    vel_rwlock_destroy(lock);
    return true;
}

TEST(Velrwlock, Life)
{
    EXPECT_EQ(calls_of([] { EXPECT_TRUE(rwlock_life()); }),
              (calls{"pthread_rwlock_init", "pthread_rwlock_rdlock", "pthread_rwlock_rdlock",
                     "pthread_rwlock_unlock", "pthread_rwlock_unlock", "pthread_rwlock_wrlock",
                     "pthread_rwlock_unlock", "pthread_rwlock_destroy"}));
}

TEST(Velrwlock, EveryAllocationMayFail)
{
    support::vel_oom_drive(rwlock_life);
}

TEST(Velrwlock, NoMemoryGivesNullAndLogsNothing)
{
    support::log_capture log;
    {
        const support::malloc_watch first(1);
        EXPECT_EQ(vel_rwlock_create(), nullptr);
    }
    EXPECT_EQ(log.take(), (std::vector<support::log_line>{}));
}

/* The memory is freed: the leak check finds it otherwise. */
TEST(Velrwlock, FailedInitialisationGivesNullAndLogsNothing)
{
    support::log_capture log;
    const lock_failure failure("pthread_rwlock_init", EAGAIN);
    EXPECT_EQ(calls_of([] { EXPECT_EQ(vel_rwlock_create(), nullptr); }),
              (calls{"pthread_rwlock_init"}));
    EXPECT_EQ(log.take(), (std::vector<support::log_line>{}));
}

TEST(Velrwlock, ReadersHoldItTogether)
{
    velrwlock *lock = vel_rwlock_create();
    ASSERT_NE(lock, nullptr);
    ASSERT_EQ(vel_rwlock_rdlock(lock), 0);
    std::future<int> other = std::async(std::launch::async, [lock] {
        const int result = vel_rwlock_rdlock(lock);
        vel_rwlock_unlock(lock);
        return result;
    });
    const std::future_status status = other.wait_for(std::chrono::seconds(30));
    EXPECT_EQ(vel_rwlock_unlock(lock), 0);
    EXPECT_EQ(status, std::future_status::ready);
    EXPECT_EQ(other.get(), 0);
    vel_rwlock_destroy(lock);
}

TEST(Velrwlock, WritersAreAlone)
{
    velrwlock *lock = vel_rwlock_create();
    ASSERT_NE(lock, nullptr);
    int first = 0;
    int second = 0;
    int torn[2] = {0, 0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; i++) {
        threads.emplace_back([&] {
            for (int turn = 0; turn < 2000; turn++) {
                vel_rwlock_wrlock(lock);
                first++;
                second++;
                vel_rwlock_unlock(lock);
            }
        });
        threads.emplace_back([&, i] {
            for (int turn = 0; turn < 2000; turn++) {
                vel_rwlock_rdlock(lock);
                torn[i] += first != second;
                vel_rwlock_unlock(lock);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(first, 4000);
    EXPECT_EQ(second, 4000);
    EXPECT_EQ(torn[0] + torn[1], 0);
    vel_rwlock_destroy(lock);
}

TEST(VelrwlockDeathTest, HandleIsAsserted)
{
    EXPECT_DEATH(vel_rwlock_destroy(nullptr),
                 support::asserts("velrwlock != NULL", "vel_rwlock_destroy"));
    EXPECT_DEATH(vel_rwlock_rdlock(nullptr),
                 support::asserts("velrwlock != NULL", "vel_rwlock_rdlock"));
    EXPECT_DEATH(vel_rwlock_wrlock(nullptr),
                 support::asserts("velrwlock != NULL", "vel_rwlock_wrlock"));
    EXPECT_DEATH(vel_rwlock_unlock(nullptr),
                 support::asserts("velrwlock != NULL", "vel_rwlock_unlock"));
}

TEST(VelrwlockDeathTest, FailureOfThePlatformAborts)
{
    velrwlock *lock = vel_rwlock_create();
    ASSERT_NE(lock, nullptr);
    EXPECT_DEATH(
        {
            const lock_failure failure("pthread_rwlock_rdlock", EAGAIN);
            vel_rwlock_rdlock(lock);
        },
        support::asserts("err == 0", "vel_rwlock_rdlock"));
    EXPECT_DEATH(
        {
            const lock_failure failure("pthread_rwlock_wrlock", EDEADLK);
            vel_rwlock_wrlock(lock);
        },
        support::asserts("err == 0", "vel_rwlock_wrlock"));
    EXPECT_DEATH(
        {
            const lock_failure failure("pthread_rwlock_unlock", EPERM);
            vel_rwlock_rdlock(lock);
            vel_rwlock_unlock(lock);
        },
        support::asserts("err == 0", "vel_rwlock_unlock"));
    EXPECT_DEATH(
        {
            const lock_failure failure("pthread_rwlock_destroy", EBUSY);
            vel_rwlock_destroy(lock);
        },
        support::asserts("err == 0", "vel_rwlock_destroy"));
    vel_rwlock_destroy(lock);
}
