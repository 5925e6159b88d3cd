#ifndef TESTS_SUPPORT_CONDCALLS_H
#define TESTS_SUPPORT_CONDCALLS_H

/* Defines the platform's functions of mutexes and conditions for the whole program by means of
 * lock_call. Include this in one source of a program. */

#include <functional>
#include <pthread.h>

#include <gtest/gtest.h>

#include "support/lockcalls.h"

namespace support {

/* Runs instead of a wait, with the lock free, while set. */
inline std::function<void()> cond_wait_action;

} // namespace support

int pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr) noexcept
{
    return support::lock_call("pthread_mutex_init", mutex, attr);
}

int pthread_mutex_destroy(pthread_mutex_t *mutex) noexcept
{
    return support::lock_call("pthread_mutex_destroy", mutex);
}

int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept
{
    return support::lock_call("pthread_mutex_lock", mutex);
}

int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept
{
    return support::lock_call("pthread_mutex_unlock", mutex);
}

int pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attr) noexcept
{
    EXPECT_EQ(attr, nullptr); /* default attributes */
    return support::lock_call("pthread_cond_init", cond, attr);
}

int pthread_cond_destroy(pthread_cond_t *cond) noexcept
{
    return support::lock_call("pthread_cond_destroy", cond);
}

int pthread_cond_wait(pthread_cond_t *cond, pthread_mutex_t *mutex)
{
    if (!support::cond_wait_action)
        return support::lock_call("pthread_cond_wait", cond, mutex);
    if (support::lock_calls)
        support::lock_calls->push_back("pthread_cond_wait");
    std::vector<std::string> *const calls = support::lock_calls;
    support::lock_calls = nullptr;
    pthread_mutex_unlock(mutex);
    support::cond_wait_action();
    pthread_mutex_lock(mutex);
    support::lock_calls = calls;
    return 0;
}

int pthread_cond_signal(pthread_cond_t *cond) noexcept
{
    return support::lock_call("pthread_cond_signal", cond);
}

int pthread_cond_broadcast(pthread_cond_t *cond) noexcept
{
    return support::lock_call("pthread_cond_broadcast", cond);
}

#endif
