#include <cstdlib>
#include <string>

#include <gmock/gmock.h>

#include <vellib/velmallocfail.h>

#include "support/repeat.h"

/* The unwinding generator knows its callers by their names, so these functions of the test take the
 * places of the library's own. */
extern "C" {
char *vel_mallocfail_checkfail(void);
void *vel_mallocfail_malloc(size_t size);
char *test_calls_check(void);
char *test_calls_malloc(void);
}

static char *volatile trace;

__attribute__((noinline)) char *vel_mallocfail_checkfail(void)
{
    char *text = vel_mallocfail_unwind_stacktrace();
    trace = text; /* and so this is no tail call */
    return text;
}

__attribute__((noinline)) void *vel_mallocfail_malloc(size_t size)
{
    char *text = vel_mallocfail_checkfail();
    return text + (size - size);
}

__attribute__((noinline)) char *test_calls_check(void)
{
    char *text = vel_mallocfail_checkfail();
    trace = text;
    return text;
}

__attribute__((noinline)) char *test_calls_malloc(void)
{
    char *text = static_cast<char *>(vel_mallocfail_malloc(1));
    trace = text;
    return text;
}

TEST(VelmallocfailUnwind, TextIsNamesAndLocationsFromTheCallerOutwards)
{
    char *text = test_calls_check();
    ASSERT_NE(text, nullptr);
    EXPECT_THAT(text, testing::ContainsRegex("^test_calls_check@[0-9a-f]+,"));
    EXPECT_THAT(text, testing::ContainsRegex(",main@[0-9a-f]+,"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("vel_mallocfail")));
    free(text);
}

__attribute__((noinline)) static char *test_calls_itself(int times)
{
    char *text = times > 0 ? test_calls_itself(times - 1) : test_calls_check();
    trace = text;
    return text;
}

/* The outer end of a stack that is too deep is left out. */
TEST(VelmallocfailUnwind, DeepStack)
{
    char *texts[] = {test_calls_itself(300), test_calls_itself(600)};
    for (char *text : texts) {
        ASSERT_NE(text, nullptr);
        EXPECT_THAT(text, testing::ContainsRegex("^test_calls_check@[0-9a-f]+,"));
        EXPECT_THAT(text, testing::Not(testing::HasSubstr("main@")));
    }
    EXPECT_STREQ(texts[0], texts[1]);
    for (char *text : texts)
        free(text);
}

TEST(VelmallocfailUnwind, AllocatorsFrameIsSkipped)
{
    char *text = test_calls_malloc();
    ASSERT_NE(text, nullptr);
    EXPECT_THAT(text, testing::ContainsRegex("^test_calls_malloc@[0-9a-f]+,"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("vel_mallocfail")));
    free(text);
}

TEST(VelmallocfailUnwind, StartOfTheProgramHasNoLocation)
{
    char *text = test_calls_check();
    ASSERT_NE(text, nullptr);
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("__libc_start_main@")));
    free(text);
}

TEST(VelmallocfailUnwind, SameStackGivesTheSameText)
{
    std::string texts[2];
    support::repeat_in_place(2, [&](int turn) {
        char *text = test_calls_check();
        ASSERT_NE(text, nullptr);
        texts[turn] = text;
        free(text);
    });
    EXPECT_EQ(texts[0], texts[1]);

    char *other = test_calls_malloc();
    ASSERT_NE(other, nullptr);
    EXPECT_NE(other, texts[0]);
    free(other);
}
