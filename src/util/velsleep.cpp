#include <vellib/velsleep.h>

#include <errno.h>
#include <sys/select.h>
#include <sys/time.h>

#include "util/velassert.h"

int vel_sleep(unsigned int seconds, unsigned int microseconds)
{
    VEL_ASSERT(microseconds < 1000000);

    timeval time{};
    time.tv_sec = static_cast<time_t>(seconds);
    time.tv_usec = static_cast<suseconds_t>(microseconds);
    const int result = select(0, nullptr, nullptr, nullptr, &time);
    /* An early end is what a signal is meant to bring about, and no failure. */
    return result == -1 && errno == EINTR ? 0 : result;
}
