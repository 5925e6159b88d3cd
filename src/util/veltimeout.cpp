#include <vellib/veltimeout.h>

#include <stdint.h>

#include <sys/time.h>

#include <vellib/velmalloc.h>

#include "util/velassert.h"

struct veltimeout {
    timeval last;                   /* the wall clock at the last set or check */
    int64_t remaining_seconds;      /* -1 without end */
    int32_t remaining_microseconds; /* 0 to 999999 */
    int32_t initial_seconds;        /* as given to vel_timeout_set, negative ones too */
    uint32_t initial_microseconds;
};

static constexpr int32_t kMicroseconds = 1000000; /* in a second */

static void vel_timeout_gettime(timeval *t)
{
    VEL_ASSERT(t != NULL);

    (void)gettimeofday(t, nullptr);
}

veltimeout *vel_timeout_create(void)
{
    return static_cast<struct veltimeout *>(vel_cmalloc(sizeof(struct veltimeout)));
}

void vel_timeout_destroy(veltimeout *veltimeout)
{
    VEL_ASSERT(veltimeout != NULL);

    vel_free(veltimeout);
}

void vel_timeout_set(veltimeout *veltimeout, int seconds, unsigned int microseconds)
{
    VEL_ASSERT(veltimeout != NULL);
    VEL_ASSERT(microseconds < 1000000);

    if (seconds < 0) {
        veltimeout->remaining_seconds = -1;
        veltimeout->remaining_microseconds = 0;
    } else {
        vel_timeout_gettime(&veltimeout->last);
        veltimeout->remaining_seconds = seconds;
        veltimeout->remaining_microseconds = static_cast<int32_t>(microseconds);
    }
    veltimeout->initial_seconds = seconds;
    veltimeout->initial_microseconds = microseconds;
}

/* Takes the time from last to now off what is left. Returns true once nothing is left. */
static bool vel_timeout_charge(veltimeout *veltimeout, const timeval *now)
{
    int64_t difference = now->tv_sec - veltimeout->last.tv_sec;
    auto microseconds = static_cast<int32_t>(now->tv_usec - veltimeout->last.tv_usec);
    if (microseconds < 0) {
        microseconds += kMicroseconds;
        difference -= 1;
    }
    const auto seconds = static_cast<int32_t>(difference);

    /* The clock was set back: what was lost to the jump is not known, and not charged. */
    if (seconds < 0)
        return false;

    if (seconds > veltimeout->remaining_seconds ||
        (seconds == veltimeout->remaining_seconds &&
         microseconds >= veltimeout->remaining_microseconds)) {
        veltimeout->remaining_seconds = 0;
        veltimeout->remaining_microseconds = 0;
        return true;
    }

    veltimeout->remaining_seconds -= seconds;
    if (veltimeout->remaining_microseconds < microseconds) {
        veltimeout->remaining_seconds -= 1;
        veltimeout->remaining_microseconds += kMicroseconds;
    }
    veltimeout->remaining_microseconds -= microseconds;
    return false;
}

int vel_timeout_check(veltimeout *veltimeout, int *secondsptr, unsigned int *microsecondsptr)
{
    VEL_ASSERT(veltimeout != NULL);

    int result = -1;
    if (veltimeout->remaining_seconds != -1) {
        timeval now{};
        vel_timeout_gettime(&now);
        result = vel_timeout_charge(veltimeout, &now) ? 1 : 0;
        veltimeout->last = now;
    }

    if (secondsptr)
        *secondsptr = static_cast<int>(veltimeout->remaining_seconds);
    if (microsecondsptr)
        *microsecondsptr = static_cast<unsigned int>(veltimeout->remaining_microseconds);
    return result;
}

void vel_timeout_reset(veltimeout *veltimeout, int *secondsptr, unsigned int *microsecondsptr)
{
    VEL_ASSERT(veltimeout != NULL);

    vel_timeout_set(veltimeout, veltimeout->initial_seconds, veltimeout->initial_microseconds);
    if (secondsptr)
        *secondsptr = veltimeout->initial_seconds;
    if (microsecondsptr)
        *microsecondsptr = veltimeout->initial_microseconds;
}
