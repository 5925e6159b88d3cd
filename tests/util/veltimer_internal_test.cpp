#include <cerrno>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "support/logcapture.h"

/* The stopwatch once more, under names of its own and on a clock of our own. */
#define vel_timer_create     ticks_timer_create
#define vel_timer_destroy    ticks_timer_destroy
#define vel_timer_start      ticks_timer_start
#define vel_timer_split      ticks_timer_split
#define vel_timer_storesplit ticks_timer_storesplit
#define vel_timer_getsplit   ticks_timer_getsplit
#define vel_timer_gettotal   ticks_timer_gettotal
#define vel_ticks_read       ticks_clock_read
#define vel_ticks_ratio      ticks_clock_ratio

#include "util/veltimer.cpp"

static uint64_t ticks;
static uint32_t numerator;
static uint32_t denominator;
static int ratioerror;

uint64_t vel_ticks_read()
{
    return ticks;
}

int vel_ticks_ratio(uint32_t *numeratorptr, uint32_t *denominatorptr)
{
    *numeratorptr = ratioerror ? 0 : numerator;
    *denominatorptr = ratioerror ? 0 : denominator;
    return ratioerror;
}

struct ratio_case {
    const char *name;
    uint32_t numerator;
    uint32_t denominator;
    uint64_t from;
    uint64_t to;
    int seconds;
    unsigned int microseconds;
};

static const ratio_case kRatios[] = {
    {"Nanoseconds", 1, 1, 0, 2000000000, 2, 0},
    {"TicksOf24Megahertz", 125, 3, 100, 100 + 24000000 * 5 + 12, 5, 0},
    {"HalfMicrosecondIsTruncated", 125, 3, 0, 36, 0, 1},
    /* 2 ticks of 2/3 nanoseconds are 1, and 1500 are 1000: divided first, they would be 0. */
    {"MultipliesFirst", 2, 3, 0, 1500, 0, 1},
    {"CounterWrapsAround", 1000, 1, UINT64_MAX - 4, 5, 0, 10},
    /* 2^63 ticks of 2 nanoseconds are 0 in 64 bits, and 5000 ticks more are 10 microseconds. */
    {"ProductKeeps64Bits", 2, 1, 0, (UINT64_C(1) << 63) + 5000, 0, 10},
    {"ProductKeeps64BitsBeforeDividing", 4, 2, 0, (UINT64_C(1) << 62) + 5000, 0, 10},
};

TEST(VeltimerTicks, RatioAndArithmetic)
{
    for (const ratio_case &one : kRatios) {
        SCOPED_TRACE(one.name);
        numerator = one.numerator;
        denominator = one.denominator;
        ticks = one.from;
        auto *timer = vel_timer_create();
        ASSERT_NE(timer, nullptr);
        ticks = one.to;
        vel_timer_split(timer);
        int seconds = 77;
        unsigned int microseconds = 77;
        vel_timer_gettotal(timer, 1, &seconds, &microseconds, nullptr);
        EXPECT_EQ(seconds, one.seconds);
        EXPECT_EQ(microseconds, one.microseconds);
        vel_timer_destroy(timer);
    }
}

/* The memory is freed: the leak check finds it otherwise. */
TEST(VeltimerTicks, UnknownRatioIsLoggedAndGivesNull)
{
    support::log_capture log;
    ratioerror = 5;
    auto *timer = vel_timer_create();
    ratioerror = 0;
    EXPECT_EQ(timer, nullptr);
    EXPECT_EQ(log.take(), (std::vector<support::log_line>{
                              {"util/veltimer", 6, "mach_timebase_info() failed, error 5"}}));
}
