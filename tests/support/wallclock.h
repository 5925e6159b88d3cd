#ifndef TESTS_SUPPORT_WALLCLOCK_H
#define TESTS_SUPPORT_WALLCLOCK_H

/* Defines the platform's clocks for the whole program, so that a test says what time it is. Include
 * this in one source of a program. */

#include <cstdint>
#include <ctime>
#include <deque>

#include "support/platform_function.h"

namespace support {

/* Takes the place of the clocks while it lives. One at a time. */
class wall_clock {
  public:
    wall_clock()
    {
        active_ = this;
    }
    ~wall_clock()
    {
        active_ = nullptr;
    }
    wall_clock(const wall_clock &) = delete;
    wall_clock &operator=(const wall_clock &) = delete;

    time_t now = 1700000000; /* 2023-11-14T22:13:20Z */
    bool localtimefails = false;
    std::deque<int64_t> monotonic = {}; /* readings to come, in microseconds; the last one stays */

    static wall_clock *active()
    {
        return active_;
    }

    timespec read()
    {
        const int64_t reading = monotonic.empty() ? 0 : monotonic.front();
        if (monotonic.size() > 1)
            monotonic.pop_front();
        return {static_cast<time_t>(reading / 1000000),
                static_cast<long>(reading % 1000000 * 1000)};
    }

  private:
    static inline wall_clock *active_;
};

} // namespace support

extern "C" {

int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    support::wall_clock *active = support::wall_clock::active();
    if (!active || clock != CLOCK_MONOTONIC)
        return support::platform_function<int(clockid_t, timespec *)>("clock_gettime")(clock, now);
    *now = active->read();
    return 0;
}

time_t time(time_t *timeptr) noexcept
{
    const support::wall_clock *active = support::wall_clock::active();
    if (!active)
        return support::platform_function<time_t(time_t *)>("time")(timeptr);
    if (timeptr)
        *timeptr = active->now;
    return active->now;
}

struct tm *localtime_r(const time_t *__restrict timeptr, struct tm *__restrict result) noexcept
{
    const support::wall_clock *active = support::wall_clock::active();
    if (active && active->localtimefails)
        return nullptr;
    return support::platform_function<struct tm *(const time_t *, struct tm *)>("localtime_r")(
        timeptr, result);
}

} // extern "C"

#endif
