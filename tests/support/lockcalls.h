#ifndef TESTS_SUPPORT_LOCKCALLS_H
#define TESTS_SUPPORT_LOCKCALLS_H

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "support/platform_function.h"

/* Calls of the platform's locks, which a program that includes this defines itself by means of
 * lock_call. */

namespace support {

/* Makes a function answer with an error instead of doing its work, while it lives. */
class lock_failure {
  public:
    lock_failure(const char *name, int error) : name_(name), error_(error), outer_(innermost_)
    {
        innermost_ = this;
    }
    ~lock_failure()
    {
        innermost_ = outer_;
    }
    lock_failure(const lock_failure &) = delete;
    lock_failure &operator=(const lock_failure &) = delete;

    /* What the function answers; nothing where it does its work. */
    static std::optional<int> of(const char *name)
    {
        for (const lock_failure *failure = innermost_; failure; failure = failure->outer_)
            if (!strcmp(failure->name_, name))
                return failure->error_;
        return std::nullopt;
    }

  private:
    static inline const lock_failure *innermost_;
    const char *name_;
    int error_;
    const lock_failure *outer_;
};

/* Takes the names of the calls, while set. For one thread. */
inline std::vector<std::string> *lock_calls;

template <typename... Arguments> int lock_call(const char *name, Arguments... arguments)
{
    if (lock_calls)
        lock_calls->push_back(name);
    if (const std::optional<int> error = lock_failure::of(name))
        return *error;
    return platform_function<int(Arguments...)>(name)(arguments...);
}

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
