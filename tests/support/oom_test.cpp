#include "support/oom.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

/* Runs the sweep and expects it to fail the test with this text. The process that the sweep starts
 * comes here as well and must not have its failures taken away. */
static void expect_caught(bool (*scenario)(), const std::string &text)
{
    if (getenv("VEL_OOM_DRIVEN")) {
        support::vel_oom_drive(scenario);
        return;
    }

    testing::TestPartResultArray results;
    {
        testing::ScopedFakeTestPartResultReporter reporter(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
        support::vel_oom_drive(scenario);
    }
    ASSERT_EQ(results.size(), 1);
    EXPECT_NE(std::string(results.GetTestPartResult(0).message()).find(text), std::string::npos)
        << results.GetTestPartResult(0).message();
}

static bool sound()
{
    char *first = vel_strdup("first");
    char *second = first ? vel_strdup("second") : nullptr;
    char *third = second ? vel_strdup("third") : nullptr;
    vel_free(first);
    vel_free(second);
    vel_free(third);
    return third != nullptr;
}

TEST(OomDrive, SoundScenarioPassesAndItsStacksAreCounted)
{
    EXPECT_EQ(support::vel_oom_drive(sound), 3u);
}

/* Forgets what it had when the second allocation fails. */
static bool crashing()
{
    char *first = vel_strdup("first");
    if (!first)
        return false;
    char *second = vel_strdup("second");
    static_cast<volatile char *>(second)[0] = 'S';
    vel_free(first);
    vel_free(second);
    return true;
}

TEST(OomDrive, CrashIsCaught)
{
    expect_caught(crashing, "under failure injection ended with wait status");
}

static bool allocating_nothing()
{
    return true;
}

TEST(OomDrive, NoAllocationIsCaught)
{
    expect_caught(allocating_nothing, "allocated nothing");
}

static bool never_completing()
{
    vel_free(vel_strdup("text"));
    return false;
}

TEST(OomDrive, ScenarioThatNeverCompletesIsCaught)
{
    expect_caught(never_completing, "the scenario fails although no allocation does");
}

static bool exiting()
{
    vel_free(vel_strdup("text"));
    exit(0);
}

TEST(OomDrive, EarlyExitIsCaught)
{
    expect_caught(exiting, "under failure injection ended with wait status 0");
}

static bool expecting_wrongly()
{
    char *copy = vel_strdup("text");
    EXPECT_NE(copy, nullptr) << "the first time it is";
    vel_free(copy);
    return copy != nullptr;
}

TEST(OomDrive, FailedExpectationInTheScenarioIsCaught)
{
    expect_caught(expecting_wrongly, "under failure injection ended with wait status");
}

#if defined(__SANITIZE_ADDRESS__)
/* Returns without freeing the first when the second fails. */
static bool leaking()
{
    char *first = vel_strdup("first");
    if (!first)
        return false;
    char *second = vel_strdup("second");
    if (!second)
        return false;
    vel_free(first);
    vel_free(second);
    return true;
}

/* Where the build looks for leaks. */
TEST(OomDrive, LeakIsCaught)
{
    expect_caught(leaking, "LeakSanitizer: detected memory leaks");
}
#endif
