#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <pthread.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/oom.h"

/* The call of the platform that fails, while set. */
static const char *failing;

static int forward(const char *name, pthread_mutex_t *mutex)
{
    return reinterpret_cast<int (*)(pthread_mutex_t *)>(dlsym(RTLD_NEXT, name))(mutex);
}

static bool fails(const char *name)
{
    return failing && !strcmp(failing, name);
}

extern "C" int pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr) noexcept
{
    if (fails("init"))
        return EAGAIN;
    return reinterpret_cast<int (*)(pthread_mutex_t *, const pthread_mutexattr_t *)>(
        dlsym(RTLD_NEXT, "pthread_mutex_init"))(mutex, attr);
}

extern "C" int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept
{
    return fails("lock") ? EINVAL : forward("pthread_mutex_lock", mutex);
}

extern "C" int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept
{
    return fails("unlock") ? EPERM : forward("pthread_mutex_unlock", mutex);
}

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

/* The memory is freed: the leak check finds it otherwise. */
TEST(Velmutex, FailedInitialisationGivesNull)
{
    failing = "init";
    velmutex *mutex = vel_mutex_create();
    failing = nullptr;
    EXPECT_EQ(mutex, nullptr);
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

TEST(VelmutexDeathTest, FailureOfThePlatformAborts)
{
    velmutex *mutex = vel_mutex_create();
    ASSERT_NE(mutex, nullptr);
    EXPECT_DEATH((failing = "lock", vel_mutex_lock(mutex)),
                 support::asserts("err == 0", "vel_mutex_lock"));
    EXPECT_DEATH((vel_mutex_lock(mutex), failing = "unlock", vel_mutex_unlock(mutex)),
                 support::asserts("err == 0", "vel_mutex_unlock"));
    vel_mutex_destroy(mutex);
}

TEST(VelmutexDeathTest, DestroyingALockedMutexAborts)
{
    velmutex *mutex = vel_mutex_create();
    ASSERT_NE(mutex, nullptr);
    EXPECT_DEATH((vel_mutex_lock(mutex), vel_mutex_destroy(mutex)),
                 support::asserts("err == 0", "vel_mutex_destroy"));
    vel_mutex_destroy(mutex);
}
