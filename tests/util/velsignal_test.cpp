#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <pthread.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/logcapture.h"
#include "support/platform_function.h"
#include "support/rows.h"

using disposition = void (*)(int);

/* The table as it was before anything ran. */
static const bool zeroatload = [] {
    for (const vel_signal_row &row : vel_signal_table)
        if (row.callback || row.context)
            return false;
    return true;
}();

/* What the last call of signal was for, and the row of that signal at that moment; whether the
 * platform refuses. */
static int setsignal;
static vel_signal_row rowatset;
static bool refuse;

extern "C" disposition signal(int number, disposition handler) noexcept
{
    setsignal = number;
    if (number > 0 && number < VEL_SIGNAL_COUNT)
        rowatset = vel_signal_table[number];
    if (refuse) {
        errno = EINVAL;
        return SIG_ERR;
    }
    return support::platform_function<disposition(int, disposition)>("signal")(number, handler);
}

/* What a callback was called with, and how often. */
static std::atomic<int> arrivals;
static std::atomic<int> arrivedsignal;
static std::atomic<void *> arrivedcontext;

static void note_arrival(int velsignal, void *context)
{
    arrivals++;
    arrivedsignal = velsignal;
    arrivedcontext = context;
}

static std::atomic<int> others;

static void note_other(int, void *)
{
    others++;
}

static disposition disposition_of(int number)
{
    struct sigaction action = {};
    sigaction(number, nullptr, &action);
    return action.sa_handler;
}

static const int kSignals[] = {SIGINT, SIGTERM, SIGPIPE};

class Velsignal : public testing::Test {
  protected:
    void SetUp() override
    {
        arrivals = 0;
        others = 0;
        arrivedsignal = 0;
        arrivedcontext = nullptr;
        refuse = false;
    }
    void TearDown() override
    {
        refuse = false;
        for (const int number : kSignals)
            signal(number, SIG_DFL);
        memset(vel_signal_table, 0, sizeof(vel_signal_table));
        EXPECT_EQ(log.take(), (std::vector<support::log_line>{})); /* nothing here logs */
    }

    support::log_capture log;
    int context = 0;
};

TEST_F(Velsignal, TableIsZeroAtLoad)
{
    EXPECT_TRUE(zeroatload);
    EXPECT_EQ(VEL_SIGNAL_COUNT, 16);
    EXPECT_EQ(VEL_SIGNAL_NONE, 0);
    EXPECT_EQ(sizeof(vel_signal_table), 16 * 2 * sizeof(void *));
}

static void expect_empty_but(int number)
{
    for (int i = 0; i < VEL_SIGNAL_COUNT; i++)
        if (i != number) {
            EXPECT_EQ(vel_signal_table[i].callback, nullptr) << i;
            EXPECT_EQ(vel_signal_table[i].context, nullptr) << i;
        }
}

struct register_case {
    const char *name;
    int (*registration)(vel_signal_cb *callback, void *context);
    int row;
    int platformsignal;
};

static const register_case kRegisterCases[] = {
    {"Interrupt", vel_signal_register_sigint, 2, SIGINT},
    {"Termination", vel_signal_register_sigterm, 15, SIGTERM},
};

class VelsignalRegister : public Velsignal, public testing::WithParamInterface<register_case> {};

TEST_P(VelsignalRegister, CallbackRunsOnceADeliveryAndStays)
{
    const register_case &one = GetParam();
    ASSERT_EQ(one.registration(note_arrival, &context), 0);
    EXPECT_EQ(vel_signal_table[one.row].callback, &note_arrival);
    EXPECT_EQ(vel_signal_table[one.row].context, &context);
    expect_empty_but(one.row);
    EXPECT_EQ(arrivals, 0);

    for (int turn = 1; turn <= 3; turn++) {
        raise(one.platformsignal);
        EXPECT_EQ(arrivals, turn);
        EXPECT_EQ(arrivedsignal, one.platformsignal);
        EXPECT_EQ(arrivedcontext, &context);
    }
}

/* A signal that arrives at once finds a complete row. */
TEST_P(VelsignalRegister, RowIsWrittenBeforeTheDispositionChanges)
{
    const register_case &one = GetParam();
    ASSERT_EQ(one.registration(note_arrival, &context), 0);
    EXPECT_EQ(setsignal, one.platformsignal);
    EXPECT_EQ(rowatset.callback, &note_arrival);
    EXPECT_EQ(rowatset.context, &context);
}

TEST_P(VelsignalRegister, NewCallbackReplacesTheOld)
{
    const register_case &one = GetParam();
    ASSERT_EQ(one.registration(note_other, nullptr), 0);
    ASSERT_EQ(one.registration(note_arrival, &context), 0);
    raise(one.platformsignal);
    EXPECT_EQ(arrivals, 1);
    EXPECT_EQ(others, 0);
}

TEST_P(VelsignalRegister, NullRestoresTheDefaultAndKeepsTheContext)
{
    const register_case &one = GetParam();
    ASSERT_EQ(one.registration(note_arrival, nullptr), 0);
    EXPECT_NE(disposition_of(one.platformsignal), SIG_DFL);
    ASSERT_EQ(one.registration(nullptr, &context), 0);
    EXPECT_EQ(disposition_of(one.platformsignal), SIG_DFL);
    EXPECT_EQ(vel_signal_table[one.row].callback, nullptr);
    EXPECT_EQ(vel_signal_table[one.row].context, &context);
    EXPECT_EQ(rowatset.context, &context);
    EXPECT_EQ(arrivals, 0);
}

TEST_P(VelsignalRegister, RefusalEmptiesTheRow)
{
    const register_case &one = GetParam();
    ASSERT_EQ(one.registration(note_arrival, &context), 0);
    refuse = true;
    EXPECT_EQ(one.registration(note_other, &context), -1);
    EXPECT_EQ(rowatset.callback, &note_other);
    EXPECT_EQ(vel_signal_table[one.row].callback, nullptr);
    EXPECT_EQ(vel_signal_table[one.row].context, nullptr);
    EXPECT_EQ(one.registration(nullptr, &context), -1);
    EXPECT_EQ(vel_signal_table[one.row].context, nullptr);
}

TEST_P(VelsignalRegister, DeliveryOnAnEmptyRowCallsNothing)
{
    const register_case &one = GetParam();
    ASSERT_EQ(one.registration(note_arrival, &context), 0);
    vel_signal_table[one.row].callback = nullptr;
    raise(one.platformsignal);
    EXPECT_EQ(arrivals, 0);
}

TEST_P(VelsignalRegister, RunsOnTheThreadThatThePlatformChose)
{
    const register_case &one = GetParam();
    ASSERT_EQ(one.registration(note_arrival, &context), 0);
    std::thread([&one] { pthread_kill(pthread_self(), one.platformsignal); }).join();
    EXPECT_EQ(arrivals, 1);
    EXPECT_EQ(arrivedcontext, &context);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsignalRegister, testing::ValuesIn(kRegisterCases),
                         support::row_name());

TEST_F(Velsignal, BothAreApart)
{
    int other = 0;
    ASSERT_EQ(vel_signal_register_sigint(note_arrival, &context), 0);
    ASSERT_EQ(vel_signal_register_sigterm(note_other, &other), 0);
    raise(SIGTERM);
    EXPECT_EQ(arrivals, 0);
    EXPECT_EQ(others, 1);
    raise(SIGINT);
    EXPECT_EQ(arrivals, 1);
    EXPECT_EQ(arrivedcontext, &context);
    EXPECT_EQ(others, 1);
}

TEST_F(Velsignal, IgnoredBrokenPipeIsAnErrorOfTheWrite)
{
    ASSERT_EQ(disposition_of(SIGPIPE), SIG_DFL); /* the library does not do it by itself */
    ASSERT_EQ(vel_signal_ignore_sigpipe(), 0);
    EXPECT_EQ(disposition_of(SIGPIPE), SIG_IGN);
    expect_empty_but(-1);

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    close(ends[1]);
}

TEST_F(Velsignal, RefusedIgnoringGivesMinusOneAndLeavesTheTable)
{
    vel_signal_table[13].context = &context;
    refuse = true;
    EXPECT_EQ(vel_signal_ignore_sigpipe(), -1);
    EXPECT_EQ(setsignal, SIGPIPE);
    EXPECT_EQ(vel_signal_table[13].context, &context);
    EXPECT_EQ(disposition_of(SIGPIPE), SIG_DFL);
}

/* vel_uninit takes the log away as well, so this one does without the fixture. */
TEST(VelsignalUninit, RegistrationStays)
{
    int context = 0;
    arrivals = 0;
    ASSERT_EQ(vel_signal_register_sigterm(note_arrival, &context), 0);
    vel_uninit();
    EXPECT_EQ(vel_signal_table[15].callback, &note_arrival);
    EXPECT_EQ(vel_signal_table[15].context, &context);
    raise(SIGTERM);
    EXPECT_EQ(arrivals, 1);
    EXPECT_EQ(vel_signal_register_sigterm(nullptr, nullptr), 0);
}

TEST(VelsignalDeathTest, DefaultActionEndsTheProcess)
{
    EXPECT_EXIT(
        {
            vel_signal_register_sigint(note_arrival, nullptr);
            vel_signal_register_sigint(nullptr, nullptr);
            raise(SIGINT);
        },
        testing::KilledBySignal(SIGINT), "");
}
