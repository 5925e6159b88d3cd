#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/oom.h"

static bool mutex_life()
{
    velmutex *mutex = vel_mutex_create();
    if (!mutex)
        return false;
    EXPECT_EQ(vel_mutex_lock(mutex), 0);
    EXPECT_EQ(vel_mutex_unlock(mutex), 0);
    EXPECT_EQ(vel_mutex_lock(mutex), 0);
    EXPECT_EQ(vel_mutex_unlock(mutex), 0);
    vel_mutex_destroy(mutex);
    return true;
}

TEST(Velmutex, Life)
{
    EXPECT_TRUE(mutex_life());
}

TEST(Velmutex, EveryAllocationMayFail)
{
    support::vel_oom_drive(mutex_life);
}

TEST(Velmutex, ExcludesThreads)
{
    velmutex *mutex = vel_mutex_create();
    ASSERT_NE(mutex, nullptr);
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([&] {
            for (int turn = 0; turn < 5000; turn++) {
                vel_mutex_lock(mutex);
                count++;
                vel_mutex_unlock(mutex);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(count, 20000);
    vel_mutex_destroy(mutex);
}

TEST(VelmutexDeathTest, HandleIsAsserted)
{
    EXPECT_DEATH(vel_mutex_destroy(nullptr),
                 support::asserts("velmutex != NULL", "vel_mutex_destroy"));
    EXPECT_DEATH(vel_mutex_lock(nullptr), support::asserts("velmutex != NULL", "vel_mutex_lock"));
    EXPECT_DEATH(vel_mutex_unlock(nullptr),
                 support::asserts("velmutex != NULL", "vel_mutex_unlock"));
}

TEST(VelmutexDeathTest, DestroyingALockedMutexAborts)
{
    velmutex *mutex = vel_mutex_create();
    ASSERT_NE(mutex, nullptr);
    EXPECT_DEATH((vel_mutex_lock(mutex), vel_mutex_destroy(mutex)),
                 support::asserts("err == 0", "vel_mutex_destroy"));
    vel_mutex_destroy(mutex);
}
