#ifndef TESTS_SUPPORT_PLAYEDCLOCK_H
#define TESTS_SUPPORT_PLAYEDCLOCK_H

/* Defines clock_gettime for the whole program, so that a test says how late it is. Include this in
 * one source of a program. */

#include <cstdint>
#include <ctime>

#include "support/platform_function.h"

namespace support {

/* Takes the place of the monotonic clock while it lives; it stands still unless moved. One at a
 * time. */
class played_clock {
  public:
    played_clock()
    {
        active_ = this;
    }
    ~played_clock()
    {
        active_ = nullptr;
    }
    played_clock(const played_clock &) = delete;
    played_clock &operator=(const played_clock &) = delete;

    int64_t nanoseconds = int64_t{1000} * 1000000000 + 5;

    void move_us(int64_t microseconds)
    {
        nanoseconds += microseconds * 1000;
    }
    static played_clock *active()
    {
        return active_;
    }

  private:
    static inline played_clock *active_;
};

} // namespace support

extern "C" int clock_gettime(clockid_t clock, struct timespec *time) noexcept
{
    const support::played_clock *played = support::played_clock::active();
    if (!played || clock != CLOCK_MONOTONIC)
        return support::platform_function<int(clockid_t, struct timespec *)>("clock_gettime")(clock,
                                                                                              time);
    time->tv_sec = static_cast<time_t>(played->nanoseconds / 1000000000);
    time->tv_nsec = static_cast<long>(played->nanoseconds % 1000000000);
    return 0;
}

#endif
