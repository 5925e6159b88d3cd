#include <cmath>
#include <cstdint>
#include <ctime>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_function.h"
#include "support/platform_malloc.h"
#include "support/rows.h"

/* While played, the monotonic clock shows this; how often it was read, and whether another clock
 * was. */
static bool played;
static struct timespec monotonic;
static int readings;
static bool otherclock;

extern "C" int clock_gettime(clockid_t clock, struct timespec *time) noexcept
{
    if (!played)
        return support::platform_function<int(clockid_t, struct timespec *)>("clock_gettime")(clock,
                                                                                              time);
    otherclock |= clock != CLOCK_MONOTONIC;
    readings++;
    *time = monotonic;
    return 0;
}

static void set_clock(int64_t seconds, int64_t nanoseconds)
{
    monotonic = {static_cast<time_t>(seconds), static_cast<long>(nanoseconds)};
    readings = 0;
}

/* What getsplit and gettotal give. */
struct interval {
    int seconds;
    unsigned int microseconds;

    bool operator==(const interval &) const = default;
};

static std::ostream &operator<<(std::ostream &out, const interval &one)
{
    return out << one.seconds << " s, " << one.microseconds << " us";
}

class Veltimer : public testing::Test {
  protected:
    void SetUp() override
    {
        played = true;
        otherclock = false;
        set_clock(1000, 5);
        timer = vel_timer_create();
        ASSERT_NE(timer, nullptr);
    }
    void TearDown() override
    {
        vel_timer_destroy(timer);
        played = false;
        EXPECT_FALSE(otherclock);
    }

    void split_at(int64_t seconds, int64_t nanoseconds)
    {
        set_clock(seconds, nanoseconds);
        vel_timer_split(timer);
    }

    interval getsplit()
    {
        interval one = {77, 77};
        vel_timer_getsplit(timer, 1, &one.seconds, &one.microseconds, nullptr);
        return one;
    }

    interval gettotal()
    {
        interval one = {77, 77};
        vel_timer_gettotal(timer, 1, &one.seconds, &one.microseconds, nullptr);
        return one;
    }

    veltimer *timer = nullptr;
};

TEST_F(Veltimer, FreshTimerHasStarted)
{
    EXPECT_EQ(readings, 1);
    EXPECT_EQ(getsplit(), (interval{0, 0}));
    EXPECT_EQ(gettotal(), (interval{0, 0}));
    split_at(1003, 5);
    EXPECT_EQ(gettotal(), (interval{3, 0}));
    EXPECT_EQ(getsplit(), (interval{3, 0}));
}

TEST_F(Veltimer, StartBeginsAnewWithOneReading)
{
    split_at(1003, 5);
    vel_timer_storesplit(timer);
    split_at(1004, 5);
    set_clock(2000, 0);
    vel_timer_start(timer);
    EXPECT_EQ(readings, 1);
    EXPECT_EQ(getsplit(), (interval{0, 0}));
    EXPECT_EQ(gettotal(), (interval{0, 0}));
    split_at(2001, 500000000);
    EXPECT_EQ(getsplit(), (interval{1, 500000}));
    EXPECT_EQ(gettotal(), (interval{1, 500000}));
}

TEST_F(Veltimer, SplitsAreMeasuredOneAfterTheOther)
{
    split_at(1002, 5);
    EXPECT_EQ(getsplit(), (interval{2, 0}));
    vel_timer_storesplit(timer);
    EXPECT_EQ(getsplit(), (interval{0, 0}));
    EXPECT_EQ(gettotal(), (interval{2, 0}));

    split_at(1005, 250000005);
    EXPECT_EQ(getsplit(), (interval{3, 250000}));
    EXPECT_EQ(gettotal(), (interval{5, 250000}));

    /* Without a storesplit the base stays. */
    split_at(1006, 5);
    EXPECT_EQ(getsplit(), (interval{4, 0}));
    EXPECT_EQ(gettotal(), (interval{6, 0}));
}

TEST_F(Veltimer, OnlyStartAndSplitReadTheClock)
{
    split_at(1002, 5);
    EXPECT_EQ(readings, 1);
    set_clock(1010, 0);
    vel_timer_storesplit(timer);
    getsplit();
    EXPECT_EQ(gettotal(), (interval{2, 0}));
    EXPECT_EQ(readings, 0);
}

struct interval_case {
    const char *name;
    int64_t seconds; /* the clock at the split */
    int64_t nanoseconds;
    interval expected;
};

static void PrintTo(const interval_case &one, std::ostream *out)
{
    *out << one.name;
}

/* The clock starts at 1000 seconds and 5 nanoseconds. */
static const interval_case kIntervals[] = {
    {"MicrosecondsAreTruncated", 1000, 1004, {0, 0}},
    {"OneMicrosecond", 1000, 1005, {0, 1}},
    {"NanosecondBeforeASecond", 1001, 4, {0, 999999}},
    {"WholeSecond", 1001, 5, {1, 0}},
    {"Longest", 1000 + INT64_C(2147483647), 999999005, {2147483647, 999999}},
    {"HighBitIsLost", 1000 + INT64_C(2147483648), 5, {0, 0}},
    {"HighBitsAreLost", 1000 + INT64_C(2147483648) * 3 + 7, 2005, {7, 2}},
};

class VeltimerInterval : public Veltimer, public testing::WithParamInterface<interval_case> {};

TEST_P(VeltimerInterval, Split)
{
    split_at(GetParam().seconds, GetParam().nanoseconds);
    EXPECT_EQ(getsplit(), GetParam().expected);
    EXPECT_EQ(gettotal(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Rows, VeltimerInterval, testing::ValuesIn(kIntervals),
                         support::row_name());

struct rate_case {
    const char *name;
    int64_t seconds; /* after the start */
    int64_t nanoseconds;
    uint64_t count;
    double rate;
};

static void PrintTo(const rate_case &one, std::ostream *out)
{
    *out << one.name;
}

static const rate_case kRates[] = {
    {"HundredInTwoSeconds", 2, 0, 100, 50.0},
    {"MicrosecondsCount", 0, 250000000, 100, 400.0},
    {"Both", 1, 500000000, 3, 2.0},
    {"NanosecondsDoNotCount", 2, 999, 100, 50.0},
    {"None", 2, 0, 0, 0.0},
    {"LargestCount", 1, 0, UINT64_MAX, 18446744073709551615.0},
    {"SecondsOfTheRateAreMasked", INT64_C(2147483648) + 2, 0, 100, 50.0},
    {"ZeroIntervalIsInfinity", 0, 0, 1, INFINITY},
};

class VeltimerRate : public Veltimer, public testing::WithParamInterface<rate_case> {};

TEST_P(VeltimerRate, Rate)
{
    double split = 77;
    double total = 77;
    split_at(1000 + GetParam().seconds, 5 + GetParam().nanoseconds);
    vel_timer_getsplit(timer, GetParam().count, nullptr, nullptr, &split);
    vel_timer_gettotal(timer, GetParam().count, nullptr, nullptr, &total);
    EXPECT_EQ(split, GetParam().rate);
    EXPECT_EQ(total, GetParam().rate);
}

INSTANTIATE_TEST_SUITE_P(Rows, VeltimerRate, testing::ValuesIn(kRates), support::row_name());

TEST_F(Veltimer, NothingInNoTimeIsNoNumber)
{
    double rate = 77;
    vel_timer_getsplit(timer, 0, nullptr, nullptr, &rate);
    EXPECT_TRUE(std::isnan(rate));
    rate = 77;
    vel_timer_gettotal(timer, 0, nullptr, nullptr, &rate);
    EXPECT_TRUE(std::isnan(rate));
}

TEST_F(Veltimer, EveryOutputIsOptional)
{
    int seconds = 77;
    unsigned int microseconds = 77;
    double rate = 77;
    split_at(1002, 500000005);
    for (const auto get : {vel_timer_getsplit, vel_timer_gettotal}) {
        get(timer, 5, nullptr, nullptr, nullptr);
        seconds = 77;
        get(timer, 5, &seconds, nullptr, nullptr);
        EXPECT_EQ(seconds, 2);
        microseconds = 77;
        get(timer, 5, nullptr, &microseconds, nullptr);
        EXPECT_EQ(microseconds, 500000u);
        rate = 77;
        get(timer, 5, nullptr, nullptr, &rate);
        EXPECT_EQ(rate, 2.0);
    }
}

TEST(VeltimerReal, RunsOnTheRealClock)
{
    veltimer *timer = vel_timer_create();
    ASSERT_NE(timer, nullptr);
    struct timespec before;
    struct timespec after;
    clock_gettime(CLOCK_MONOTONIC, &before);
    vel_timer_start(timer);
    vel_sleep(0, 20000);
    vel_timer_split(timer);
    clock_gettime(CLOCK_MONOTONIC, &after);
    const double limit = static_cast<double>(after.tv_sec - before.tv_sec) +
                         static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e9;
    int seconds = 77;
    unsigned int microseconds = 77;
    vel_timer_gettotal(timer, 1, &seconds, &microseconds, nullptr);
    const double total = seconds + microseconds / 1e6;
    EXPECT_GE(total, 0.02);
    EXPECT_LE(total, limit);
    vel_timer_destroy(timer);
}

TEST(VeltimerCreate, NoMemoryGivesNull)
{
    support::log_capture log;
    {
        const support::malloc_watch first(1);
        EXPECT_EQ(vel_timer_create(), nullptr);
    }
    EXPECT_EQ(log.take(), (std::vector<support::log_line>{
                              {"util/veltimer", 7, "not enough memory for timer context"}}));
}

static bool timer_life()
{
    veltimer *timer = vel_timer_create();
    if (!timer)
        return false;
    vel_timer_start(timer);
    vel_timer_split(timer);
    vel_timer_storesplit(timer);
    vel_timer_gettotal(timer, 1, nullptr, nullptr, nullptr);
    vel_timer_destroy(timer);
    return true;
}

TEST(VeltimerOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(timer_life);
}

TEST(VeltimerDeathTest, HandleIsAsserted)
{
    const char *text = "veltimer != NULL";
    EXPECT_DEATH(vel_timer_destroy(nullptr), support::asserts(text, "vel_timer_destroy"));
    EXPECT_DEATH(vel_timer_start(nullptr), support::asserts(text, "vel_timer_start"));
    EXPECT_DEATH(vel_timer_split(nullptr), support::asserts(text, "vel_timer_split"));
    EXPECT_DEATH(vel_timer_storesplit(nullptr), support::asserts(text, "vel_timer_storesplit"));
    EXPECT_DEATH(vel_timer_getsplit(nullptr, 1, nullptr, nullptr, nullptr),
                 support::asserts(text, "vel_timer_getsplit"));
    EXPECT_DEATH(vel_timer_gettotal(nullptr, 1, nullptr, nullptr, nullptr),
                 support::asserts(text, "vel_timer_gettotal"));
}
