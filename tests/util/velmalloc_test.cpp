#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/child.h"
#include "support/platform_malloc.h"
#include "support/repeat.h"
#include "support/rows.h"
#include "support/tempdir.h"

/* No test here allocates through the library in the process that the children start from: the mode
 * is read once a process. */

static const char kLine[] = "VELMALLOC_FAILMODE enabled!\n";
static const char kDatabase[] = "velmallocfail.db";

struct allocation {
    const char *name;
    void *(*allocate)(size_t size);
};

static void *calloc_one(size_t size)
{
    return vel_calloc(1, size);
}

static const allocation kAllocations[] = {
    {"Malloc", vel_malloc},
    {"Calloc", calloc_one},
    {"Cmalloc", vel_cmalloc},
};

class Velmalloc : public testing::TestWithParam<allocation> {
  protected:
    support::temporary_directory directory_;
};

INSTANTIATE_TEST_SUITE_P(Functions, Velmalloc, testing::ValuesIn(kAllocations),
                         support::row_name());

TEST_P(Velmalloc, PlainModeAllocatesAndSaysNothing)
{
    const auto result = support::run_child([] {
        support::malloc_watch watch;
        void *block = GetParam().allocate(100);
        EXPECT_NE(block, nullptr);
        memset(block, 0x5a, 100);
        vel_free(block);
        EXPECT_EQ(watch.sizes(), std::vector<size_t>{100});
    });
    EXPECT_TRUE(result.completed) << result;
    EXPECT_EQ(result.err, "");
    EXPECT_FALSE(std::filesystem::exists(kDatabase));
}

TEST_P(Velmalloc, PlainModeHandsOnTheFailureOfThePlatform)
{
    const auto result = support::run_child([] {
        support::malloc_watch watch(1);
        EXPECT_EQ(GetParam().allocate(10), nullptr);
    });
    EXPECT_TRUE(result.completed) << result;
}

TEST_P(Velmalloc, SizeOfNothingIsPassedOn)
{
    const auto result = support::run_child([] {
        support::malloc_watch watch;
        vel_free(GetParam().allocate(0));
        EXPECT_EQ(watch.sizes(), std::vector<size_t>{0});
    });
    EXPECT_TRUE(result.completed) << result;
}

/* The value of the variable does not matter. */
TEST_P(Velmalloc, PresenceOfTheVariableTurnsFailureOn)
{
    for (const char *value : {"", "0", "no"}) {
        std::filesystem::remove(kDatabase);
        const auto result = support::run_child([value] {
            setenv("VELMALLOC_FAILMODE", value, 1);
            EXPECT_EQ(GetParam().allocate(10), nullptr);
        });
        EXPECT_TRUE(result.completed) << result;
        EXPECT_EQ(result.err, kLine);
        EXPECT_TRUE(std::filesystem::exists(kDatabase));
    }
}

TEST_P(Velmalloc, SecondTimeTheSamePlaceSucceeds)
{
    const auto result = support::run_child([] {
        setenv("VELMALLOC_FAILMODE", "", 1);
        support::repeat_in_place(3, [](int turn) {
            void *block = GetParam().allocate(static_cast<size_t>(turn) + 1);
            EXPECT_EQ(block != nullptr, turn > 0) << "the size takes no part";
            vel_free(block);
        });
    });
    EXPECT_TRUE(result.completed) << result;
}

TEST_P(Velmalloc, VariableIsReadOnceEvenAcrossUninit)
{
    const auto enabled = support::run_child([] {
        setenv("VELMALLOC_FAILMODE", "", 1);
        EXPECT_EQ(GetParam().allocate(1), nullptr);
        unsetenv("VELMALLOC_FAILMODE");
        EXPECT_EQ(GetParam().allocate(2), nullptr);
        vel_uninit();
        EXPECT_EQ(GetParam().allocate(3), nullptr);
        vel_malloc_uninit();
        EXPECT_EQ(GetParam().allocate(4), nullptr);
    });
    EXPECT_TRUE(enabled.completed) << enabled;
    EXPECT_EQ(enabled.err, kLine) << "printed once";

    std::filesystem::remove(kDatabase);
    const auto plain = support::run_child([] {
        for (int turn = 0; turn < 2; turn++) {
            void *block = GetParam().allocate(1);
            EXPECT_NE(block, nullptr);
            vel_free(block);
            setenv("VELMALLOC_FAILMODE", "", 1);
            vel_uninit();
        }
    });
    EXPECT_TRUE(plain.completed) << plain;
    EXPECT_EQ(plain.err, "");
    EXPECT_FALSE(std::filesystem::exists(kDatabase));
}

TEST(VelmallocZero, CallocAndCmallocGiveZeroes)
{
    for (const char *mode : {"plain", "failing"}) {
        support::temporary_directory directory;
        const auto result = support::run_child([mode] {
            static const char zeroes[96] = {};
            if (!strcmp(mode, "failing"))
                setenv("VELMALLOC_FAILMODE", "", 1);
            support::repeat_in_place(4, [mode](int turn) {
                void *first = vel_calloc(12, 8);
                void *second = vel_cmalloc(96);
                if (first && second) {
                    EXPECT_EQ(memcmp(first, zeroes, 96), 0);
                    EXPECT_EQ(memcmp(second, zeroes, 96), 0);
                    memset(first, 0x5a, 96);
                    memset(second, 0x5a, 96);
                } else {
                    EXPECT_TRUE(turn == 0 && !strcmp(mode, "failing"));
                }
                vel_free(first);
                vel_free(second);
            });
        });
        EXPECT_TRUE(result.completed) << mode << result;
    }
}

TEST(VelmallocFree, NullIsHarmless)
{
    vel_free(nullptr);
}

TEST(VelmallocRealloc, KeepsTheContentAndNullAllocates)
{
    char *block = static_cast<char *>(vel_realloc(nullptr, 4));
    ASSERT_NE(block, nullptr);
    memcpy(block, "abcd", 4);
    block = static_cast<char *>(vel_realloc(block, 5000));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(memcmp(block, "abcd", 4), 0);
    block = static_cast<char *>(vel_realloc(block, 2));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(memcmp(block, "ab", 2), 0);
    vel_free(block);
}

TEST(VelmallocRealloc, SizeOfNothingIsABlockOfOneByte)
{
    support::malloc_watch watch;
    char *block = static_cast<char *>(vel_realloc(nullptr, 0));
    ASSERT_NE(block, nullptr);
    *block = 'x';
    block = static_cast<char *>(vel_realloc(block, 0));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(*block, 'x');
    vel_free(block);
    EXPECT_EQ(watch.sizes(), (std::vector<size_t>{1, 1}));
}

TEST(VelmallocRealloc, HandsOnTheFailureOfThePlatform)
{
    void *block = vel_realloc(nullptr, 4);
    {
        support::malloc_watch watch(1);
        EXPECT_EQ(vel_realloc(block, 8), nullptr);
    }
    vel_free(block);
}

/* Nor does it read the variable, so the line is not printed. */
TEST(VelmallocRealloc, NeverFailsOnPurpose)
{
    support::temporary_directory directory;
    const auto result = support::run_child([] {
        setenv("VELMALLOC_FAILMODE", "", 1);
        void *block = vel_realloc(nullptr, 10);
        EXPECT_NE(block, nullptr);
        block = vel_realloc(block, 20);
        EXPECT_NE(block, nullptr);
        block = vel_realloc(block, 0);
        EXPECT_NE(block, nullptr);
        vel_free(block);
    });
    EXPECT_TRUE(result.completed) << result;
    EXPECT_EQ(result.err, "");
    EXPECT_FALSE(std::filesystem::exists(kDatabase));

    const auto enabled = support::run_child([] {
        setenv("VELMALLOC_FAILMODE", "", 1);
        EXPECT_EQ(vel_malloc(1), nullptr);
        void *block = vel_realloc(nullptr, 10);
        EXPECT_NE(block, nullptr);
        vel_free(block);
    });
    EXPECT_TRUE(enabled.completed) << enabled;
}

#if !defined(SUPPORT_INTERCEPTOR)
/* A sanitizer stands between the library and backtrace, with a frame of its own. */
TEST(VelmallocBacktrace, OwnFrameIsSkipped)
{
    char *text = vel_mallocfail_backtrace_stacktrace();
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text).find("vel_mallocfail"), std::string::npos) << text;
    free(text);
}
#endif

TEST(VelmallocUninit, IsHarmlessWithoutUseAndTwice)
{
    const auto result = support::run_child([] {
        vel_malloc_uninit();
        vel_malloc_uninit();
        vel_mallocfail_uninit();
        vel_mallocfail_uninit();
    });
    EXPECT_TRUE(result.completed) << result;
    EXPECT_EQ(result.err, "");
}
