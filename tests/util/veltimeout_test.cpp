#include <cerrno>
#include <cstdint>
#include <ostream>
#include <sys/time.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_function.h"
#include "support/platform_malloc.h"
#include "support/rows.h"

/* While played, the wall clock shows this; and how often it was read. */
static bool played;
static struct timeval wallclock;
static int readings;
static bool clockfails;

extern "C" int gettimeofday(struct timeval *time, void *zone) noexcept
{
    if (!played)
        return support::platform_function<int(struct timeval *, void *)>("gettimeofday")(time,
                                                                                         zone);
    readings++;
    *time = wallclock;
    if (clockfails) {
        errno = EFAULT;
        return -1;
    }
    return 0;
}

/* What a check or a reset gives, for comparing and printing. */
struct answer {
    int result;
    int seconds;
    unsigned int microseconds;

    bool operator==(const answer &) const = default;
};

static std::ostream &operator<<(std::ostream &out, const answer &one)
{
    return out << one.result << ": " << one.seconds << " s, " << one.microseconds << " us";
}

static const int64_t kNow = 1000000000;

class Veltimeout : public testing::Test {
  protected:
    void SetUp() override
    {
        timeout = vel_timeout_create();
        ASSERT_NE(timeout, nullptr);
        played = true;
        set_clock(kNow, 250000);
    }
    void TearDown() override
    {
        played = false;
        clockfails = false;
        vel_timeout_destroy(timeout);
    }

    static void set_clock(int64_t seconds, int64_t microseconds)
    {
        wallclock = {static_cast<time_t>(seconds), static_cast<suseconds_t>(microseconds)};
        readings = 0;
    }

    answer check()
    {
        answer one = {77, 77, 77};
        one.result = vel_timeout_check(timeout, &one.seconds, &one.microseconds);
        return one;
    }

    answer reset()
    {
        answer one = {0, 77, 77};
        vel_timeout_reset(timeout, &one.seconds, &one.microseconds);
        return one;
    }

    veltimeout *timeout = nullptr;
};

TEST_F(Veltimeout, NeverSetHasExpired)
{
    EXPECT_EQ(check(), (answer{1, 0, 0}));
    EXPECT_EQ(check(), (answer{1, 0, 0}));
    EXPECT_EQ(reset(), (answer{0, 0, 0}));
    EXPECT_EQ(check(), (answer{1, 0, 0}));
}

TEST_F(Veltimeout, NothingHasExpired)
{
    vel_timeout_set(timeout, 0, 0);
    EXPECT_EQ(check(), (answer{1, 0, 0}));
}

TEST_F(Veltimeout, NegativeIsWithoutEnd)
{
    vel_timeout_set(timeout, -5, 7);
    EXPECT_EQ(readings, 0);
    EXPECT_EQ(check(), (answer{-1, -1, 0}));
    set_clock(kNow * 2, 0);
    EXPECT_EQ(check(), (answer{-1, -1, 0}));
    EXPECT_EQ(reset(), (answer{0, -5, 7}));
    EXPECT_EQ(check(), (answer{-1, -1, 0}));
    EXPECT_EQ(readings, 0);
}

TEST_F(Veltimeout, MinusOneIsHandedOutByReset)
{
    vel_timeout_set(timeout, -1, 0);
    EXPECT_EQ(reset(), (answer{0, -1, 0}));
}

TEST_F(Veltimeout, EveryOutputIsOptional)
{
    int seconds = 77;
    unsigned int microseconds = 77;
    for (const int value : {-3, 4}) {
        const int result = value < 0 ? -1 : 0;
        vel_timeout_set(timeout, value, 5);
        EXPECT_EQ(vel_timeout_check(timeout, nullptr, nullptr), result);
        EXPECT_EQ(vel_timeout_check(timeout, &seconds, nullptr), result);
        EXPECT_EQ(seconds, value < 0 ? -1 : 4);
        EXPECT_EQ(vel_timeout_check(timeout, nullptr, &microseconds), result);
        EXPECT_EQ(microseconds, value < 0 ? 0u : 5u);
        vel_timeout_reset(timeout, nullptr, nullptr);
        vel_timeout_reset(timeout, &seconds, nullptr);
        EXPECT_EQ(seconds, value);
        vel_timeout_reset(timeout, nullptr, &microseconds);
        EXPECT_EQ(microseconds, 5u);
    }
}

TEST_F(Veltimeout, EachSetResetAndCheckReadsTheClockOnce)
{
    vel_timeout_set(timeout, 5, 0);
    EXPECT_EQ(readings, 1);
    check();
    EXPECT_EQ(readings, 2);
    reset();
    EXPECT_EQ(readings, 3);
}

/* A check, at a time since the set, after those before it. */
struct step {
    int64_t seconds;
    int64_t microseconds;
    answer expected;
};

struct countdown_case {
    const char *name;
    int seconds;
    unsigned int microseconds;
    std::vector<step> steps;
};

static void PrintTo(const countdown_case &one, std::ostream *out)
{
    *out << one.name;
}

/* The clock shows 250000 microseconds at the set. */
static const countdown_case kCountdowns[] = {
    {"HalfSecondIsLeft", 2, 500000, {{1, 0, {0, 1, 500000}}, {2, 0, {0, 0, 500000}}}},
    {"NoTimePassed", 2, 500000, {{0, 0, {0, 2, 500000}}, {0, 0, {0, 2, 500000}}}},
    {"BorrowsFromTheRemainingSeconds", 3, 100000, {{0, 200000, {0, 2, 900000}}}},
    {"BorrowsFromTheElapsedSeconds", 3, 0, {{1, 900000, {0, 1, 100000}}}},
    {"BorrowsFromBoth", 3, 100000, {{1, 800000, {0, 1, 300000}}}},
    {"EqualMicrosecondsDoNotBorrow", 3, 100000, {{1, 100000, {0, 2, 0}}}},
    {"ExactlyAllHasExpired", 1, 900000, {{1, 900000, {1, 0, 0}}}},
    {"OneMicrosecondBefore", 1, 900000, {{1, 899999, {0, 0, 1}}, {1, 900000, {1, 0, 0}}}},
    {"OneMicrosecondAfter", 1, 900000, {{1, 900001, {1, 0, 0}}}},
    {"SecondsAreOver", 1, 900000, {{2, 0, {1, 0, 0}}}},
    {"StaysExpired", 1, 0, {{5, 0, {1, 0, 0}}, {5, 0, {1, 0, 0}}, {6, 1, {1, 0, 0}}}},
    {"ClockSetBackByAnHour",
     10,
     0,
     {{3, 0, {0, 7, 0}}, {-3597, 0, {0, 7, 0}}, {-3595, 0, {0, 5, 0}}, {-3590, 0, {1, 0, 0}}}},
    {"ClockSetBackWithinTheSecond",
     1,
     0,
     {{0, 500000, {0, 0, 500000}}, {0, 400000, {0, 0, 500000}}, {0, 899999, {0, 0, 1}}}},
    {"ClockSetBackByAMicrosecond", 1, 0, {{0, -1, {0, 1, 0}}, {0, 999999, {1, 0, 0}}}},
    {"ExpiredAndClockSetBack",
     1,
     0,
     {{1, 0, {1, 0, 0}}, {-3600, 0, {0, 0, 0}}, {-3600, 0, {1, 0, 0}}}},
    {"ClockSetForward", 10, 0, {{3600, 0, {1, 0, 0}}}},
    {"LongestTime",
     2147483647,
     999999,
     {{2147483646, 0, {0, 1, 999999}}, {2147483647, 0, {0, 0, 999999}}}},
    /* The elapsed seconds keep 32 bits: more than that looks as if the clock had been set back,
     * or as if nothing had passed. */
    {"LongestElapsedTime", 10, 0, {{2147483647, 999999, {1, 0, 0}}}},
    {"ElapsedSecondsTurnNegative", 10, 0, {{2147483648, 0, {0, 10, 0}}}},
    {"ElapsedSecondsTurnToZero", 10, 0, {{4294967296, 0, {0, 10, 0}}}},
    {"ElapsedSecondsTurnSmall", 10, 0, {{4294967299, 500000, {0, 6, 500000}}}},
    {"SetBackFarTurnsPositive", 10, 0, {{-4294967294, 0, {0, 8, 0}}}},
};

class VeltimeoutCountdown : public Veltimeout,
                            public testing::WithParamInterface<countdown_case> {};

TEST_P(VeltimeoutCountdown, Steps)
{
    vel_timeout_set(timeout, GetParam().seconds, GetParam().microseconds);
    for (const step &one : GetParam().steps) {
        const int64_t total = 250000 + one.microseconds;
        set_clock(kNow + one.seconds + (total >= 1000000), total % 1000000);
        EXPECT_EQ(check(), one.expected) << one.seconds << " s " << one.microseconds << " us";
        EXPECT_EQ(readings, 1);
    }
    const answer initial = {0, GetParam().seconds, GetParam().microseconds};
    EXPECT_EQ(reset(), initial);
}

INSTANTIATE_TEST_SUITE_P(Rows, VeltimeoutCountdown, testing::ValuesIn(kCountdowns),
                         support::row_name());

TEST_F(Veltimeout, ResetStartsOver)
{
    vel_timeout_set(timeout, 3, 5);
    set_clock(kNow + 2, 250000);
    EXPECT_EQ(check(), (answer{0, 1, 5}));
    EXPECT_EQ(reset(), (answer{0, 3, 5}));
    set_clock(kNow + 4, 250000);
    EXPECT_EQ(check(), (answer{0, 1, 5}));
    set_clock(kNow + 9, 250000);
    EXPECT_EQ(check(), (answer{1, 0, 0}));
    EXPECT_EQ(reset(), (answer{0, 3, 5}));
    EXPECT_EQ(check(), (answer{0, 3, 5}));
}

/* A set without end leaves the last reading alone, and one with an end takes a new one. */
TEST_F(Veltimeout, SetAfterWithoutEndReadsTheClock)
{
    vel_timeout_set(timeout, 3, 0);
    vel_timeout_set(timeout, -1, 0);
    set_clock(kNow + 100, 250000);
    vel_timeout_set(timeout, 3, 0);
    EXPECT_EQ(check(), (answer{0, 3, 0}));
}

/* What the clock has written counts, whatever it returns. */
TEST_F(Veltimeout, FailureOfTheClockIsIgnored)
{
    vel_timeout_set(timeout, 3, 0);
    set_clock(kNow + 1, 250000);
    clockfails = true;
    EXPECT_EQ(check(), (answer{0, 2, 0}));
}

TEST(VeltimeoutReal, CountsDownOnTheRealClock)
{
    veltimeout *timeout = vel_timeout_create();
    ASSERT_NE(timeout, nullptr);
    int seconds = 77;
    unsigned int microseconds = 77;
    vel_timeout_set(timeout, 3600, 0);
    EXPECT_EQ(vel_timeout_check(timeout, &seconds, &microseconds), 0);
    EXPECT_GE(seconds, 3000);
    EXPECT_LE(seconds, 3600);
    EXPECT_LT(microseconds, 1000000u);
    vel_timeout_destroy(timeout);
}

TEST(VeltimeoutCreate, NoMemoryGivesNullAndLogsNothing)
{
    support::log_capture log;
    {
        const support::malloc_watch first(1);
        EXPECT_EQ(vel_timeout_create(), nullptr);
    }
    EXPECT_EQ(log.take(), (std::vector<support::log_line>{}));
}

static bool timeout_life()
{
    veltimeout *timeout = vel_timeout_create();
    if (!timeout)
        return false;
    vel_timeout_set(timeout, 5, 0);
    EXPECT_EQ(vel_timeout_check(timeout, nullptr, nullptr), 0);
    vel_timeout_reset(timeout, nullptr, nullptr);
    vel_timeout_destroy(timeout);
    return true;
}

TEST(VeltimeoutOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(timeout_life);
}

TEST(VeltimeoutDeathTest, HandleIsAsserted)
{
    EXPECT_DEATH(vel_timeout_destroy(nullptr),
                 support::asserts("veltimeout != NULL", "vel_timeout_destroy"));
    EXPECT_DEATH(vel_timeout_set(nullptr, 0, 1000000),
                 support::asserts("veltimeout != NULL", "vel_timeout_set"));
    EXPECT_DEATH(vel_timeout_check(nullptr, nullptr, nullptr),
                 support::asserts("veltimeout != NULL", "vel_timeout_check"));
    EXPECT_DEATH(vel_timeout_reset(nullptr, nullptr, nullptr),
                 support::asserts("veltimeout != NULL", "vel_timeout_reset"));
}

TEST(VeltimeoutDeathTest, MicrosecondsAreAsserted)
{
    veltimeout *timeout = vel_timeout_create();
    ASSERT_NE(timeout, nullptr);
    for (const int seconds : {1, -1})
        for (const unsigned int microseconds : {1000000u, 0xffffffffu})
            EXPECT_DEATH(vel_timeout_set(timeout, seconds, microseconds),
                         support::asserts("microseconds < 1000000", "vel_timeout_set"));
    vel_timeout_destroy(timeout);
}
