#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <pthread.h>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"

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

/* The memory is freed: the leak check finds it otherwise. */
TEST(VelmutexPlatform, FailedInitialisationGivesNull)
{
    failing = "init";
    velmutex *mutex = vel_mutex_create();
    failing = nullptr;
    EXPECT_EQ(mutex, nullptr);
}

TEST(VelmutexPlatformDeathTest, FailureOfThePlatformAborts)
{
    velmutex *mutex = vel_mutex_create();
    ASSERT_NE(mutex, nullptr);
    EXPECT_DEATH((failing = "lock", vel_mutex_lock(mutex)),
                 support::asserts("err == 0", "vel_mutex_lock"));
    EXPECT_DEATH((vel_mutex_lock(mutex), failing = "unlock", vel_mutex_unlock(mutex)),
                 support::asserts("err == 0", "vel_mutex_unlock"));
    vel_mutex_destroy(mutex);
}
