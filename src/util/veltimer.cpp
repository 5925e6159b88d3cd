#include <vellib/veltimer.h>

#include <vellib/velmalloc.h>

#include "platform/ticks.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/veltimer"

struct veltimer {
    uint64_t start;                /* ticks, as the next two */
    uint64_t stored_split;         /* where the interval of vel_timer_getsplit begins */
    uint64_t split;                /* where both intervals end */
    uint32_t timebase_numerator;   /* nanoseconds ... */
    uint32_t timebase_denominator; /* ... of so many ticks */
};

static void vel_timer_gettime(uint64_t *t)
{
    VEL_ASSERT(t != NULL);

    *t = vel_ticks_read();
}

veltimer *vel_timer_create(void)
{
    auto *veltimer = static_cast<struct veltimer *>(vel_malloc(sizeof(struct veltimer)));
    if (!veltimer) {
        VEL_LOG(7, "not enough memory for timer context");
        return nullptr;
    }
    const int error =
        vel_ticks_ratio(&veltimer->timebase_numerator, &veltimer->timebase_denominator);
    if (error != 0) {
        VEL_LOG(6, "mach_timebase_info() failed, error %d", error);
        vel_free(veltimer);
        return nullptr;
    }
    vel_timer_start(veltimer);
    return veltimer;
}

void vel_timer_destroy(veltimer *veltimer)
{
    VEL_ASSERT(veltimer != NULL);

    vel_free(veltimer);
}

void vel_timer_start(veltimer *veltimer)
{
    VEL_ASSERT(veltimer != NULL);

    vel_timer_gettime(&veltimer->start);
    veltimer->stored_split = veltimer->start;
    veltimer->split = veltimer->start;
}

void vel_timer_split(veltimer *veltimer)
{
    VEL_ASSERT(veltimer != NULL);

    vel_timer_gettime(&veltimer->split);
}

void vel_timer_storesplit(veltimer *veltimer)
{
    VEL_ASSERT(veltimer != NULL);

    veltimer->stored_split = veltimer->split;
}

/* Gives the interval from t1 to t2. */
static void vel_timer_diff(const veltimer *veltimer, const uint64_t *t1, const uint64_t *t2,
                           uint64_t count, int *secondsptr, unsigned int *microsecondsptr,
                           double *rateptr)
{
    VEL_ASSERT(veltimer != NULL);
    VEL_ASSERT(t1 != NULL);
    VEL_ASSERT(t2 != NULL);

    const uint64_t nanoseconds =
        (*t2 - *t1) * veltimer->timebase_numerator / veltimer->timebase_denominator;
    const auto seconds = static_cast<int>(nanoseconds / 1000000000 & 0x7fffffff);
    const auto microseconds = static_cast<unsigned int>(nanoseconds % 1000000000 / 1000);

    if (secondsptr)
        *secondsptr = seconds;
    if (microsecondsptr)
        *microsecondsptr = microseconds;
    if (rateptr) {
        *rateptr = static_cast<double>(count) /
                   (static_cast<double>(seconds) + static_cast<double>(microseconds) / 1000000.0);
    }
}

void vel_timer_getsplit(veltimer *veltimer, uint64_t count, int *secondsptr,
                        unsigned int *microsecondsptr, double *rateptr)
{
    VEL_ASSERT(veltimer != NULL);

    vel_timer_diff(veltimer, &veltimer->stored_split, &veltimer->split, count, secondsptr,
                   microsecondsptr, rateptr);
}

void vel_timer_gettotal(veltimer *veltimer, uint64_t count, int *secondsptr,
                        unsigned int *microsecondsptr, double *rateptr)
{
    VEL_ASSERT(veltimer != NULL);

    vel_timer_diff(veltimer, &veltimer->start, &veltimer->split, count, secondsptr, microsecondsptr,
                   rateptr);
}
