#include <cerrno>
#include <csignal>
#include <ctime>
#include <sys/select.h>
#include <sys/time.h>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/platform_function.h"

/* While armed, select notes what it was given and answers without waiting. */
static bool armed;
static int selectresult;
static int selecterror;
static int selectcount;
static struct timeval selecttime;
static bool selectplain; /* no descriptors of any kind */

extern "C" int select(int count, fd_set *readset, fd_set *writeset, fd_set *exceptset,
                      struct timeval *time)
{
    if (!armed)
        return support::platform_function<int(int, fd_set *, fd_set *, fd_set *, struct timeval *)>(
            "select")(count, readset, writeset, exceptset, time);
    selectcount++;
    selectplain = count == 0 && !readset && !writeset && !exceptset;
    selecttime = *time;
    errno = selecterror;
    return selectresult;
}

class Velsleep : public testing::Test {
  protected:
    void arm(int result, int error)
    {
        armed = true;
        selectresult = result;
        selecterror = error;
        selectcount = 0;
    }
    void TearDown() override
    {
        armed = false;
    }
};

static double now()
{
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

TEST_F(Velsleep, WaitsInSelectWithoutDescriptors)
{
    arm(0, 0);
    EXPECT_EQ(vel_sleep(12, 345678), 0);
    EXPECT_EQ(selectcount, 1);
    EXPECT_TRUE(selectplain);
    EXPECT_EQ(selecttime.tv_sec, 12);
    EXPECT_EQ(selecttime.tv_usec, 345678);
}

TEST_F(Velsleep, SecondsAreUnsigned)
{
    arm(0, 0);
    EXPECT_EQ(vel_sleep(0xffffffffu, 999999), 0);
    EXPECT_EQ(selecttime.tv_sec, 0xffffffffL);
    EXPECT_EQ(selecttime.tv_usec, 999999);
}

/* Neither slept to the end nor reported. */
TEST_F(Velsleep, InterruptionEndsItWithoutAnError)
{
    arm(-1, EINTR);
    EXPECT_EQ(vel_sleep(12, 0), 0);
    EXPECT_EQ(selectcount, 1);
}

TEST_F(Velsleep, RefusalIsHandedOn)
{
    arm(-1, ENOMEM);
    EXPECT_EQ(vel_sleep(12, 0), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(selectcount, 1);
}

TEST_F(Velsleep, SleepsForTheTime)
{
    const double before = now();
    EXPECT_EQ(vel_sleep(0, 999999), 0);
    EXPECT_GE(now() - before, 0.999999);
}

TEST_F(Velsleep, NothingReturnsAtOnce)
{
    const double before = now();
    EXPECT_EQ(vel_sleep(0, 0), 0);
    EXPECT_LT(now() - before, 30.0);
}

static void take_alarm(int)
{
}

/* The alarm repeats, so that one comes while the sleep lasts. */
TEST_F(Velsleep, SignalEndsTheSleep)
{
    struct sigaction action = {};
    struct sigaction previous;
    action.sa_handler = take_alarm;
    action.sa_flags = SA_RESTART;
    ASSERT_EQ(sigaction(SIGALRM, &action, &previous), 0);
    const struct itimerval often = {{0, 20000}, {0, 20000}};
    const struct itimerval never = {};
    const double before = now();
    setitimer(ITIMER_REAL, &often, nullptr);
    const int result = vel_sleep(200, 0);
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_LT(now() - before, 100.0);
    EXPECT_EQ(result, 0);
    sigaction(SIGALRM, &previous, nullptr);
}

TEST(VelsleepDeathTest, MicrosecondsAreAsserted)
{
    EXPECT_DEATH(vel_sleep(0, 1000000), support::asserts("microseconds < 1000000", "vel_sleep"));
    EXPECT_DEATH(vel_sleep(0, 0xffffffffu),
                 support::asserts("microseconds < 1000000", "vel_sleep"));
}
