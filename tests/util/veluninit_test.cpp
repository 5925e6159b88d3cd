#include <cstdlib>
#include <string>

#include <gmock/gmock.h>

#include <vellib/vellib.h>

#include "support/child.h"
#include "support/repeat.h"
#include "support/tempdir.h"

static int count_call(const char *, size_t, int, time_t, void *context)
{
    ++*static_cast<int *>(context);
    return 0;
}

TEST(Veluninit, IsHarmlessAsTheFirstCallAndTwice)
{
    const auto result = support::run_child([] {
        vel_uninit();
        vel_uninit();
    });
    EXPECT_TRUE(result.completed) << result;
    EXPECT_EQ(result.err, "");
}

/* Without it, the leak check finds the log of the child. */
TEST(Veluninit, DestroysTheDefaultLog)
{
    const auto result = support::run_child([] {
        VEL_LOG_AT(nullptr, 1, "adt/velcache", 61, "first");
        vel_uninit();
        vel_uninit();
    });
    EXPECT_TRUE(result.completed) << result;
    EXPECT_THAT(result.err, testing::EndsWith(" adt/velcache:61[1] first\n"));
}

TEST(Veluninit, LogArisesAnewWithItsDefaults)
{
    support::temporary_directory directory;
    const auto result = support::run_child([] {
        int calls = 0;
        vel_log_callback_set(nullptr, count_call, &calls);
        vel_log_callback_enable(nullptr);
        vel_log_stderr_disable(nullptr);
        vel_log_stderr_set_level(nullptr, 1);
        vel_log_stdout_enable(nullptr);
        EXPECT_EQ(vel_log_logfile_set_name(nullptr, "some.log"), 0);
        vel_log_logfile_enable(nullptr);
        VEL_LOG_AT(nullptr, 1, "adt/velcache", 61, "before");
        EXPECT_EQ(calls, 1);

        vel_uninit();
        VEL_LOG_AT(nullptr, 8, "adt/velcache", 62, "after");
        VEL_LOG_AT(nullptr, 9, "adt/velcache", 63, "above the threshold");
        EXPECT_EQ(calls, 1);
        vel_uninit();
    });
    EXPECT_TRUE(result.completed) << result;
    EXPECT_THAT(result.out, testing::EndsWith("before\n"));
    EXPECT_THAT(result.err,
                testing::MatchesRegex("[0-9-]+ [0-9:]+ adt/velcache:62\\[8\\] after\n"));
    EXPECT_THAT(support::read_file("some.log"), testing::EndsWith("before\n"));
}

TEST(Veluninit, ForgetsTheFailureDatabaseButNotItsFile)
{
    support::temporary_directory directory;
    const auto result = support::run_child([] {
        setenv("VELMALLOC_FAILMODE", "", 1);
        support::repeat_in_place(3, [](int life) {
            void *block = vel_malloc(1);
            EXPECT_EQ(block != nullptr, life > 0) << "known from the file";
            vel_free(block);
            vel_uninit();
        });
        std::filesystem::remove("velmallocfail.db");
        support::repeat_in_place(2, [](int turn) {
            void *block = vel_malloc(1);
            EXPECT_EQ(block != nullptr, turn > 0);
            vel_free(block);
        });
        vel_uninit();
    });
    EXPECT_TRUE(result.completed) << result;
    EXPECT_EQ(result.err, "VELMALLOC_FAILMODE enabled!\n");
}
