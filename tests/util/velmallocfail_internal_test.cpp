#include <string>

#include <gtest/gtest.h>

#include "util/velmallocfail_internal.h"

#include "support/assertion.h"

static char kFirst[] = "aaa [0x1]";
static char kSecond[] = "bb [0x2]";
static char *kSymbols[] = {kFirst, kSecond};
static void *const kFrames[] = {kFirst, kSecond};

/* The text is "aaa,bb". */
struct room_case {
    size_t room;
    int result;
    const char *written; /* of eight bytes, all '.' before */
};

static const room_case kRoomCases[] = {
    {0, -1, "........"}, {1, -1, "........"}, {2, -1, "........"}, {3, -1, "aaa....."},
    {4, -1, "aaa,...."}, {5, -1, "aaa,...."}, {6, 0, "aaa,bb.."},  {7, 0, "aaa,bb.."},
};

TEST(VelmallocfailGenerate, WholeFramesThatFitAreWrittenAndAllAreCounted)
{
    for (const room_case &row : kRoomCases) {
        char buffer[] = "........";
        size_t length = row.room;
        EXPECT_EQ(
            vel_mallocfail_backtrace_stacktrace_generate(buffer, &length, 2, kFrames, kSymbols),
            row.result)
            << row.room;
        EXPECT_EQ(length, 6u) << row.room;
        EXPECT_STREQ(buffer, row.written) << row.room;
    }
}

/* The frame in the middle is too long, and the last one would fit but for its position. */
TEST(VelmallocfailGenerate, NothingIsWrittenBehindAFrameThatIsMissing)
{
    char middle[] = "mmmmmmmmmm";
    char *symbols[] = {kFirst, middle, kSecond};
    void *const frames[] = {kFirst, middle, kSecond};
    char buffer[] = "........";
    size_t length = 8;
    EXPECT_EQ(vel_mallocfail_backtrace_stacktrace_generate(buffer, &length, 3, frames, symbols),
              -1);
    EXPECT_EQ(length, 17u);
    EXPECT_STREQ(buffer, "aaa,....");
}

TEST(VelmallocfailGenerate, MeasuresWithoutBuffer)
{
    size_t length = 0;
    EXPECT_EQ(vel_mallocfail_backtrace_stacktrace_generate(nullptr, &length, 2, kFrames, kSymbols),
              -1);
    EXPECT_EQ(length, 6u);
    length = 0;
    EXPECT_EQ(vel_mallocfail_backtrace_stacktrace_generate(nullptr, &length, 0, kFrames, kSymbols),
              0);
    EXPECT_EQ(length, 0u);
}

TEST(VelmallocfailGenerateDeathTest, ArgumentsAreAsserted)
{
    const char function[] = "vel_mallocfail_backtrace_stacktrace_generate";
    size_t none = 0;
    size_t some = 1;
    char buffer[1];
    const auto generate = vel_mallocfail_backtrace_stacktrace_generate;
    EXPECT_DEATH(generate(buffer, nullptr, 2, kFrames, kSymbols),
                 support::asserts("bufferlen != NULL", function));
    EXPECT_DEATH(generate(nullptr, &some, 2, kFrames, kSymbols),
                 support::asserts("buffer != NULL || *bufferlen == 0", function));
    EXPECT_DEATH(generate(nullptr, &none, -1, kFrames, kSymbols),
                 support::asserts("framecount >= 0", function));
    EXPECT_DEATH(generate(nullptr, &none, 2, nullptr, kSymbols),
                 support::asserts("frames != NULL", function));
    EXPECT_DEATH(generate(nullptr, &none, 2, kFrames, nullptr),
                 support::asserts("symbols != NULL", function));
}

TEST(VelmallocfailGenerateDeathTest, UnwinderAssertsItsArguments)
{
    const char function[] = "vel_mallocfail_unwind_stacktrace_generate";
    size_t none = 0;
    size_t some = 1;
    char buffer[1];
    const auto generate = vel_mallocfail_unwind_stacktrace_generate;
    EXPECT_DEATH(generate(buffer, nullptr, nullptr),
                 support::asserts("bufferlen != NULL", function));
    EXPECT_DEATH(generate(nullptr, &some, nullptr),
                 support::asserts("buffer != NULL || *bufferlen == 0", function));
    EXPECT_DEATH(generate(nullptr, &none, nullptr),
                 support::asserts("unwcursorptr != NULL", function));
}
