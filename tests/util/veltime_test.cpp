#include <cerrno>
#include <cstring>
#include <ctime>
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"

/* The platform's two functions answer through these while armed. */
static bool armed;
static time_t now;
static bool noplace;

extern "C" time_t time(time_t *result) noexcept
{
    if (!armed)
        return reinterpret_cast<time_t (*)(time_t *)>(dlsym(RTLD_NEXT, "time"))(result);
    if (result)
        *result = now;
    return now;
}

extern "C" struct tm *localtime_r(const time_t *timep, struct tm *result) noexcept
{
    if (armed && noplace)
        return nullptr;
    return reinterpret_cast<struct tm *(*)(const time_t *, struct tm *)>(
        dlsym(RTLD_NEXT, "localtime_r"))(timep, result);
}

class Veltime : public testing::Test {
  protected:
    void TearDown() override
    {
        armed = false;
        noplace = false;
    }
};

TEST_F(Veltime, IsThePlatformsTime)
{
    armed = true;
    now = 1234567890;
    time_t written = 7;
    const time_t result = vel_time(&written);
    const time_t alone = vel_time(nullptr);
    now = static_cast<time_t>(-1);
    const time_t failed = vel_time(nullptr);
    armed = false;

    EXPECT_EQ(result, 1234567890);
    EXPECT_EQ(written, 1234567890);
    EXPECT_EQ(alone, 1234567890);
    EXPECT_EQ(failed, static_cast<time_t>(-1));
}

TEST_F(Veltime, LocaltimeIsThePlatforms)
{
    const time_t when = 1234567890;
    struct tm expected;
    struct tm result;
    memset(&result, 0x5a, sizeof(result));
    ASSERT_EQ(localtime_r(&when, &expected), &expected);
    ASSERT_EQ(vel_localtime_r(&when, &result), &result);
    EXPECT_EQ(result.tm_year, expected.tm_year);
    EXPECT_EQ(result.tm_yday, expected.tm_yday);
    EXPECT_EQ(result.tm_hour, expected.tm_hour);
    EXPECT_EQ(result.tm_min, expected.tm_min);
    EXPECT_EQ(result.tm_sec, expected.tm_sec);
    EXPECT_EQ(result.tm_isdst, expected.tm_isdst);
}

TEST_F(Veltime, FailureOfThePlatformIsHandedOn)
{
    const time_t when = 0;
    struct tm result;
    armed = true;
    noplace = true;
    EXPECT_EQ(vel_localtime_r(&when, &result), nullptr);
}

TEST(VeltimeDeathTest, LocaltimeAssertsBothArguments)
{
    const time_t when = 0;
    struct tm result;
    EXPECT_DEATH(vel_localtime_r(nullptr, &result), support::asserts("timep", "vel_localtime_r"));
    EXPECT_DEATH(vel_localtime_r(&when, nullptr), support::asserts("result", "vel_localtime_r"));
    EXPECT_DEATH(vel_localtime_r(nullptr, nullptr), support::asserts("timep", "vel_localtime_r"));
}
