#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <execinfo.h>
#include <functional>

#include <gmock/gmock.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/child.h"
#include "support/platform_malloc.h"
#include "support/repeat.h"
#include "support/rows.h"
#include "support/tempdir.h"

using support::read_file;
using support::run_child;
using support::write_file;

static const char kDatabase[] = "velmallocfail.db";
static const char kEnabled[] = "VELMALLOC_FAILMODE enabled!\n";

/* The stack that the platform gives, while armed. */
static bool armed;
static bool nosymbols;
static int asked;
static std::vector<std::string> frames;

extern "C" int backtrace(void **buffer, int size)
{
    if (!armed)
        return reinterpret_cast<int (*)(void **, int)>(dlsym(RTLD_NEXT, "backtrace"))(buffer, size);
    asked = size;
    const int count = std::min(size, static_cast<int>(frames.size()));
    for (int i = 0; i < count; i++)
        buffer[i] = &frames[static_cast<size_t>(i)];
    return count;
}

extern "C" char **backtrace_symbols(void *const *buffer, int size) noexcept
{
    if (!armed)
        return reinterpret_cast<char **(*)(void *const *, int)>(
            dlsym(RTLD_NEXT, "backtrace_symbols"))(buffer, size);
    if (nosymbols)
        return nullptr;
    /* One block, as the platform gives it. */
    size_t length = sizeof(char *) * (static_cast<size_t>(size) + 1);
    for (int i = 0; i < size; i++)
        length += frames[static_cast<size_t>(i)].size() + 1;
    char **symbols = static_cast<char **>(SUPPORT_PLATFORM(malloc)(length));
    char *text = reinterpret_cast<char *>(symbols + size + 1);
    for (int i = 0; i < size; i++) {
        symbols[i] = strcpy(text, frames[static_cast<size_t>(i)].c_str());
        text += strlen(text) + 1;
    }
    return symbols;
}

/* One stack after the other for the allocations of this program. */
static void arm(const std::vector<std::string> &stack)
{
    armed = true;
    frames = stack;
}

struct stack_case {
    const char *name;
    std::vector<std::string> stack;
    const char *text;
};

static const char kSelf[] = "lib(vel_mallocfail_backtrace_stacktrace+0x1) [0x1]";
static const char kCheck[] = "lib() [0x2]";
static const char kMalloc[] = "lib(vel_mallocfail_malloc+0x3) [0x3]";
static const char kCalloc[] = "lib(vel_mallocfail_calloc+0x4) [0x4]";

static const stack_case kStackCases[] = {
    {"NoFrames", {}, ""},
    {"OneFrame", {"exe(main+0x7) [0x5]"}, "exe(main+0x7)"},
    {"CommaBetweenFrames", {"a(b+0x1) [0x5]", "c(+0x2) [0x6]", "d [0x7]"}, "a(b+0x1),c(+0x2),d"},
    {"OwnFramesOfMalloc", {kSelf, kCheck, kMalloc, "a(b+0x1) [0x5]"}, "a(b+0x1)"},
    {"OwnFramesOfCalloc", {kSelf, kCheck, kCalloc, "a(b+0x1) [0x5]"}, "a(b+0x1)"},
    {"OwnFramesAlone", {kSelf, kCheck, kMalloc}, ""},
    {"NothingButTheFirst", {kSelf}, ""},
    {"MallocAndThenCallocAreSkipped", {kMalloc, kCalloc, "a [0x5]"}, "a"},
    {"CallocAndThenMallocAreNot",
     {kCalloc, kMalloc, "a [0x5]"},
     "lib(vel_mallocfail_malloc+0x3),a"},
    {"EachIsSkippedOnce", {kCheck, kCheck, "a [0x5]"}, "lib(),a"},
    {"SelfIsSkippedAtTheVeryBeginningAlone",
     {kCheck, kSelf, "a [0x5]"},
     "lib(vel_mallocfail_backtrace_stacktrace+0x1),a"},
    {"OuterFramesAreNotSkipped",
     {kSelf, "a [0x5]", kCheck, kMalloc},
     "a,lib(),lib(vel_mallocfail_malloc+0x3)"},
    {"NoAddress", {"a(b+0x1)", "c"}, "a(b+0x1),c"},
    {"LastBracketCounts", {"a [b] [0x5]"}, "a [b]"},
    {"BracketAtTheBeginningIsText", {"[0x5]"}, "[0x5]"},
    {"ByteBeforeTheBracketIsDropped", {"ab[0x5]", "c[0x6]", "d [0x7]"}, "a,,d"},
};

class VelmallocfailStack : public testing::TestWithParam<stack_case> {};

TEST_P(VelmallocfailStack, Text)
{
    arm(GetParam().stack);
    char *text = vel_mallocfail_backtrace_stacktrace();
    armed = false;
    EXPECT_STREQ(text, GetParam().text);
    free(text);
}

TEST_P(VelmallocfailStack, NoMemoryGivesNull)
{
    arm(GetParam().stack);
    support::malloc_watch watch(1);
    char *text = vel_mallocfail_backtrace_stacktrace();
    armed = false;
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{strlen(GetParam().text) + 1});
}

INSTANTIATE_TEST_SUITE_P(Rows, VelmallocfailStack, testing::ValuesIn(kStackCases),
                         support::row_name());

TEST(VelmallocfailBacktrace, FiftyFramesAtMost)
{
    arm(std::vector<std::string>(60, "a [0x5]"));
    char *text = vel_mallocfail_backtrace_stacktrace();
    armed = false;
    EXPECT_EQ(asked, 50);
    EXPECT_EQ(std::count(text, text + strlen(text), 'a'), 50);
    free(text);
}

TEST(VelmallocfailBacktrace, RealStackHoldsNoAddresses)
{
    char *text = vel_mallocfail_backtrace_stacktrace();
    ASSERT_NE(text, nullptr);
    EXPECT_THAT(text, testing::HasSubstr("_test("));
    EXPECT_THAT(text, testing::HasSubstr("),"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr(" [")));
    free(text);
}

TEST(VelmallocfailDeathTest, SymbolsAreAsserted)
{
    arm({"a [0x5]"});
    nosymbols = true;
    EXPECT_DEATH(vel_mallocfail_backtrace_stacktrace(),
                 support::asserts("symbols != NULL", "vel_mallocfail_backtrace_stacktrace"));
    nosymbols = false;
    armed = false;
}

/* The unwinding generator is for the check alone. */
TEST(VelmallocfailDeathTest, UnwinderMayNotBeCalledFromElsewhere)
{
    EXPECT_DEATH(vel_mallocfail_unwind_stacktrace(),
                 testing::ContainsRegex("Assertion failed: \\(strcmp\\(.*vel_mallocfail_checkfail"
                                        ".*function vel_mallocfail_unwind_stacktrace_generate"));
}

/* The tests of the check. Each body runs in processes of its own with failure injection on. */
class Velmallocfail : public testing::Test {
  protected:
    void TearDown() override
    {
        armed = false;
    }

    /* Returns what the process printed behind the line of the mode. */
    std::string run(const std::function<void()> &body)
    {
        const auto result = run_child([&] {
            setenv("VELMALLOC_FAILMODE", "", 1);
            body();
            vel_mallocfail_uninit();
        });
        EXPECT_TRUE(result.completed) << result;
        EXPECT_THAT(result.err, testing::StartsWith(kEnabled));
        return result.err.substr(std::min(result.err.size(), strlen(kEnabled)));
    }

    support::temporary_directory directory_;
};

/* Whether an allocation under this stack succeeds. */
static bool allocate(const std::vector<std::string> &stack)
{
    arm(stack);
    void *block = vel_malloc(10);
    armed = false;
    vel_free(block);
    return block != nullptr;
}

static bool allocate(const std::string &frame)
{
    return allocate(std::vector<std::string>{frame + " [0x5]"});
}

static void *volatile sunk;

static __attribute__((noinline)) void *allocate_on_another_path()
{
    void *block = vel_malloc(1);
    sunk = block; /* no tail call */
    return block;
}

TEST_F(Velmallocfail, StackIsRecordedBeforeTheFailure)
{
    EXPECT_EQ(run([] {
                  EXPECT_FALSE(allocate("one"));
                  EXPECT_EQ(read_file(kDatabase), "one\n");
                  EXPECT_TRUE(allocate("one"));
                  EXPECT_FALSE(allocate("two"));
                  EXPECT_EQ(read_file(kDatabase), "one\ntwo\n");
                  EXPECT_TRUE(allocate("two"));
                  EXPECT_TRUE(allocate("one"));
                  EXPECT_EQ(read_file(kDatabase), "one\ntwo\n");
              }),
              "");
}

TEST_F(Velmallocfail, CallocAsksAsMallocDoes)
{
    run([] {
        arm({"one [0x5]"});
        EXPECT_EQ(vel_calloc(1, 10), nullptr);
        void *block = vel_malloc(20);
        EXPECT_NE(block, nullptr) << "known by its stack, not by the function";
        vel_free(block);
        block = vel_cmalloc(30);
        EXPECT_NE(block, nullptr);
        vel_free(block);
        arm({"two [0x5]"});
        EXPECT_EQ(vel_cmalloc(10), nullptr);
        arm({"three [0x5]"});
        EXPECT_EQ(vel_mallocfail_malloc(10), nullptr);
        arm({"four [0x5]"});
        EXPECT_EQ(vel_mallocfail_calloc(10, 1), nullptr);
        block = vel_mallocfail_calloc(10, 1);
        EXPECT_NE(block, nullptr);
        vel_free(block);
    });
    EXPECT_EQ(read_file(kDatabase), "one\ntwo\nthree\nfour\n");
}

/* The exported pair asks the database in plain mode as well. */
TEST_F(Velmallocfail, DirectCallNeedsNoMode)
{
    const auto result = run_child([] {
        arm({"one [0x5]"});
        EXPECT_EQ(vel_mallocfail_malloc(10), nullptr);
        void *block = vel_mallocfail_malloc(10);
        EXPECT_NE(block, nullptr);
        vel_free(block);
        vel_mallocfail_uninit();
    });
    EXPECT_TRUE(result.completed) << result;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(read_file(kDatabase), "one\n");
}

TEST_F(Velmallocfail, NextProcessKnowsTheStack)
{
    for (int process = 0; process < 3; process++)
        run([process] {
            EXPECT_EQ(allocate("one"), process > 0);
            EXPECT_TRUE(allocate("one"));
        });
    EXPECT_EQ(read_file(kDatabase), "one\n");
}

/* With the stacks of this very program. */
TEST_F(Velmallocfail, RealPlacesAreToldApart)
{
    support::repeat_in_place(3, [this](int process) {
        run([process] {
            support::repeat_in_place(2, [process](int turn) {
                void *here = vel_malloc(1);
                void *there = allocate_on_another_path();
                EXPECT_EQ(here != nullptr, process + turn > 0);
                EXPECT_EQ(there != nullptr, process + turn > 0);
                vel_free(here);
                vel_free(there);
            });
        });
    });
    const std::string file = read_file(kDatabase);
    EXPECT_EQ(std::count(file.begin(), file.end(), '\n'), 2);
    EXPECT_EQ(file.back(), '\n');
    EXPECT_THAT(file, testing::Not(testing::HasSubstr(" [")));
}

TEST_F(Velmallocfail, UninitForgetsAndTheFileIsLoadedAnew)
{
    run([] {
        EXPECT_FALSE(allocate("one"));
        vel_mallocfail_uninit();
        EXPECT_TRUE(allocate("one")) << "from the file";
        write_file(kDatabase, "two\n");
        EXPECT_FALSE(allocate("two")) << "the file is read once a life";
        vel_uninit();
        EXPECT_TRUE(allocate("two"));
        EXPECT_FALSE(allocate("one"));
    });
    EXPECT_EQ(read_file(kDatabase), "two\ntwo\none\n");
}

TEST_F(Velmallocfail, FileIsReadLineByLine)
{
    write_file(kDatabase, "one\n\nthree");
    run([] {
        EXPECT_TRUE(allocate("one"));
        EXPECT_TRUE(allocate(std::vector<std::string>{})) << "an empty line is an empty stack";
        EXPECT_TRUE(allocate("three")) << "the last line needs no line feed";
        EXPECT_FALSE(allocate("two"));
    });
    EXPECT_EQ(read_file(kDatabase), "one\n\nthreetwo\n");
}

/* What stands behind a NUL is not part of the line. */
TEST_F(Velmallocfail, FileWithNuls)
{
    write_file(kDatabase, std::string("on\0e\n\0two\nthree\n", 17));
    run([] {
        EXPECT_TRUE(allocate("on"));
        EXPECT_TRUE(allocate(std::vector<std::string>{}));
        EXPECT_TRUE(allocate("three"));
        EXPECT_FALSE(allocate("two"));
    });
}

TEST_F(Velmallocfail, EmptyStacksAreOneStack)
{
    run([] {
        EXPECT_FALSE(allocate(std::vector<std::string>{}));
        EXPECT_TRUE(allocate({kSelf, kCheck, kMalloc}));
        EXPECT_TRUE(allocate(std::vector<std::string>{}));
    });
    EXPECT_EQ(read_file(kDatabase), "\n");
}

/* 4094 characters are read at once; what is longer arrives in pieces. */
TEST_F(Velmallocfail, LongestLineThatMatches)
{
    const std::string longest(4094, 'l');
    for (int process = 0; process < 3; process++)
        EXPECT_EQ(run([&] {
                      EXPECT_EQ(allocate(longest), process > 0);
                      EXPECT_TRUE(allocate(longest));
                      EXPECT_EQ(allocate(std::vector<std::string>{}), process > 0)
                          << "its line feed is a piece of its own";
                  }),
                  "");
}

TEST_F(Velmallocfail, LongerLineNeverMatches)
{
    const std::string longer = std::string(4094, 'l') + "m";
    std::string file;
    for (int process = 0; process < 3; process++) {
        EXPECT_EQ(run([&] {
                      EXPECT_FALSE(allocate(longer));
                      EXPECT_TRUE(allocate(longer)) << "the same life knows it";
                      EXPECT_EQ(allocate("m"), process > 0) << "the second piece is an entry";
                  }),
                  "");
        file += longer + "\n";
        if (process == 0)
            file += "m\n";
        EXPECT_EQ(read_file(kDatabase), file);
    }
}

/* A directory of that name can be opened for reading, but not for appending. */
TEST_F(Velmallocfail, FileThatCannotBeOpened)
{
    std::filesystem::create_directory(kDatabase);
    EXPECT_EQ(run([] {
                  EXPECT_FALSE(allocate("one"));
                  EXPECT_TRUE(allocate("one")) << "in memory all the same";
              }),
              "unable to append stacktrace in file velmallocfail.db\n");
}

TEST_F(Velmallocfail, FileThatCannotBeWritten)
{
    const std::string large(70000, 'x'); /* more than the stream holds back */
    EXPECT_EQ(run([&] {
                  EXPECT_FALSE(allocate("one"));
                  std::filesystem::remove(kDatabase);
                  std::filesystem::create_symlink("/dev/full", kDatabase);
                  EXPECT_FALSE(allocate(large));
                  EXPECT_TRUE(allocate(large));
              }),
              "unable to write stacktrace in file velmallocfail.db\n");
}

TEST_F(Velmallocfail, FileThatCannotBeClosedIsNotMentioned)
{
    EXPECT_EQ(run([&] {
                  EXPECT_FALSE(allocate("one"));
                  std::filesystem::remove(kDatabase);
                  std::filesystem::create_symlink("/dev/full", kDatabase);
                  EXPECT_FALSE(allocate("two"));
                  EXPECT_TRUE(allocate("two"));
              }),
              "");
}

/* The platform's own allocations. With a file of two lines these are, in order: 1 the context,
 * 2 the line buffer, 3 and 4 the first entry and its text, 5 and 6 the second, 7 the stack's text,
 * 8 the entry of an unknown stack, or the block itself. */
struct shortage {
    const char *name;
    size_t failing;
    const char *printed;
    bool knowsone, knowstwo; /* afterwards, from the file */
};

static const shortage kShortages[] = {
    {"Nothing", 100, "", true, true},
    {"LineBuffer", 2, "vel_mallocfail_file_load: not enough memory for line buffer (4096 bytes)\n",
     false, false},
    {"FirstEntry", 3,
     "vel_mallocfail_file_load: not enough memory for stackframe entry (24 bytes)\n", false, false},
    {"FirstText", 4, "vel_mallocfail_file_load: not enough memory for stacktrace (4 bytes)\n",
     false, false},
    {"SecondEntry", 5,
     "vel_mallocfail_file_load: not enough memory for stackframe entry (24 bytes)\n", true, false},
    {"SecondText", 6, "vel_mallocfail_file_load: not enough memory for stacktrace (6 bytes)\n",
     true, false},
};

class VelmallocfailShortage : public Velmallocfail, public testing::WithParamInterface<shortage> {};

TEST_P(VelmallocfailShortage, WhatWasReadStays)
{
    write_file(kDatabase, "one\nthree\n");
    EXPECT_EQ(run([] {
                  {
                      support::malloc_watch watch(GetParam().failing);
                      EXPECT_FALSE(allocate("two"));
                  }
                  EXPECT_EQ(read_file(kDatabase), "one\nthree\ntwo\n");
                  EXPECT_EQ(allocate("one"), GetParam().knowsone);
                  EXPECT_EQ(allocate("three"), GetParam().knowstwo);
                  EXPECT_TRUE(allocate("two"));
              }),
              GetParam().printed);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelmallocfailShortage, testing::ValuesIn(kShortages),
                         support::row_name());

TEST_F(Velmallocfail, NoMemoryForTheContextFailsAndRecordsNothing)
{
    write_file(kDatabase, "one\n");
    EXPECT_EQ(run([] {
                  {
                      support::malloc_watch watch(1);
                      EXPECT_FALSE(allocate("one"));
                  }
                  EXPECT_TRUE(allocate("one")) << "the next allocation tries again";
              }),
              "");
    EXPECT_EQ(read_file(kDatabase), "one\n");
}

/* The file has the stack, but memory has not. */
TEST_F(Velmallocfail, NoMemoryForTheEntryFailsTwice)
{
    EXPECT_EQ(run([] {
                  {
                      support::malloc_watch watch(3);
                      EXPECT_FALSE(allocate("one"));
                      EXPECT_EQ(watch.sizes().size(), 3u) << "context, text, entry";
                  }
                  EXPECT_FALSE(allocate("one"));
                  EXPECT_TRUE(allocate("one"));
              }),
              "");
    EXPECT_EQ(read_file(kDatabase), "one\none\n");
}

TEST_F(Velmallocfail, NoMemoryForTheStackAborts)
{
    const auto result = run_child([] {
        setenv("VELMALLOC_FAILMODE", "", 1);
        support::malloc_watch watch(2);
        allocate("one");
    });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_THAT(result.err, support::asserts("stacktrace != NULL", "vel_mallocfail_checkfail"));
    EXPECT_FALSE(std::filesystem::exists(kDatabase));
}

TEST_F(Velmallocfail, KnownStackHandsOnTheFailureOfThePlatform)
{
    write_file(kDatabase, "one\n");
    run([] {
        EXPECT_TRUE(allocate("one"));
        support::malloc_watch watch(2);
        EXPECT_FALSE(allocate("one"));
        EXPECT_EQ(watch.sizes(), (std::vector<size_t>{4, 10})) << "the stack's text and the block";
    });
    EXPECT_EQ(read_file(kDatabase), "one\n");
}
