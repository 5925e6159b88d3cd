#ifndef TESTS_SUPPORT_LOCKCALLS_H
#define TESTS_SUPPORT_LOCKCALLS_H

#include <cstring>
#include <string>
#include <vector>

#include "support/platform_function.h"

/* Calls of the platform's locks, which a program that includes this defines itself by means of
 * lock_call. */

namespace support {

/* The function that answers with lock_error instead of doing its work, while set. */
inline const char *lock_failing;
inline int lock_error;

/* Takes the names of the calls, while set. For one thread. */
inline std::vector<std::string> *lock_calls;

template <typename... Arguments> int lock_call(const char *name, Arguments... arguments)
{
    if (lock_calls)
        lock_calls->push_back(name);
    if (lock_failing && !strcmp(lock_failing, name))
        return lock_error;
    return platform_function<int(Arguments...)>(name)(arguments...);
}

/* Makes a function fail while it lives. */
class lock_failure {
  public:
    lock_failure(const char *name, int error)
    {
        lock_failing = name;
        lock_error = error;
    }
    ~lock_failure()
    {
        lock_failing = nullptr;
    }
    lock_failure(const lock_failure &) = delete;
    lock_failure &operator=(const lock_failure &) = delete;
};

/* The names of the calls that an action makes. */
template <typename Action> std::vector<std::string> calls_of(Action action)
{
    std::vector<std::string> calls;
    lock_calls = &calls;
    action();
    lock_calls = nullptr;
    return calls;
}

} // namespace support

#endif
