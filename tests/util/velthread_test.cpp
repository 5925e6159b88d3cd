#include <atomic>
#include <cerrno>
#include <functional>
#include <pthread.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/lockcalls.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_malloc.h"

using support::calls_of;
using support::lock_failure;
using support::log_capture;
using calls = std::vector<std::string>;
using lines = std::vector<support::log_line>;

/* What the last call of pthread_create was given and gave; and what runs inside it, before it does
 * its work. */
static const pthread_attr_t *createattr;
static void *(*createstart)(void *);
static void *createarg;
static pthread_t createid;
static std::function<void()> duringcreate;
static void **joinplace;

extern "C" int pthread_create(pthread_t *id, const pthread_attr_t *attr, void *(*start)(void *),
                              void *arg) noexcept
{
    createattr = attr;
    createstart = start;
    createarg = arg;
    if (duringcreate)
        duringcreate();
    const int result = support::lock_call("pthread_create", id, attr, start, arg);
    createid = *id;
    return result;
}

extern "C" int pthread_join(pthread_t id, void **place)
{
    joinplace = place;
    return support::lock_call("pthread_join", id, place);
}

extern "C" int pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr) noexcept
{
    return support::lock_call("pthread_mutex_init", mutex, attr);
}

extern "C" int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept
{
    return support::lock_call("pthread_mutex_lock", mutex);
}

static void *add_one(void *arg)
{
    int *number = static_cast<int *>(arg);
    ++*number;
    return number;
}

static void *log_a_line(void *)
{
    vel_log_macro_mutex_lock();
    vel_log_macro_set_values(nullptr, 8, "test/thread", 1);
    vel_log_macro_format("a line");
    vel_log_macro_mutex_unlock();
    return nullptr;
}

class Velthread : public testing::Test {
  protected:
    void SetUp() override
    {
        thread = vel_thread_create();
        ASSERT_NE(thread, nullptr);
    }
    void TearDown() override
    {
        vel_thread_destroy(thread);
        vel_log_uninit();
    }

    velthread *thread = nullptr;
    int number = 5;
};

using VelthreadDeathTest = Velthread;

TEST_F(Velthread, RunsOnceAndGivesItsResult)
{
    void *result = this;
    ASSERT_EQ(vel_thread_start(thread, add_one, &number), 0);
    EXPECT_EQ(vel_thread_join(thread, &result), 0);
    EXPECT_EQ(result, &number);
    EXPECT_EQ(number, 6);
}

TEST_F(Velthread, ResultNeedNotBeTaken)
{
    ASSERT_EQ(vel_thread_start(thread, add_one, &number), 0);
    EXPECT_EQ(vel_thread_join(thread, nullptr), 0);
    EXPECT_EQ(joinplace, nullptr);
    EXPECT_EQ(number, 6);
}

/* No attributes, and the routine and its argument as they are. */
TEST_F(Velthread, PassesStraightToThePlatform)
{
    void *result = nullptr;
    ASSERT_EQ(vel_thread_start(thread, add_one, &number), 0);
    EXPECT_EQ(createattr, nullptr);
    EXPECT_EQ(createstart, &add_one);
    EXPECT_EQ(createarg, &number);
    EXPECT_EQ(vel_thread_join(thread, &result), 0);
    EXPECT_EQ(joinplace, &result);
}

TEST_F(Velthread, FailedStartIsLoggedAndMayBeRepeated)
{
    log_capture log;
    {
        const lock_failure failure("pthread_create", EAGAIN);
        EXPECT_EQ(vel_thread_start(thread, add_one, &number), EAGAIN);
    }
    EXPECT_EQ(log.take(), (lines{{"util/velthread", 7, "pthread_create() returned error 11"}}));
    EXPECT_EQ(number, 5);

    EXPECT_EQ(vel_thread_start(thread, add_one, &number), 0);
    EXPECT_EQ(vel_thread_join(thread, nullptr), 0);
    EXPECT_EQ(number, 6);
    EXPECT_EQ(log.take(), (lines{}));
}

TEST_F(Velthread, FailedJoinIsLoggedAndMayBeRepeated)
{
    log_capture log;
    void *result = this;
    ASSERT_EQ(vel_thread_start(thread, add_one, &number), 0);
    {
        const lock_failure failure("pthread_join", EDEADLK);
        EXPECT_EQ(vel_thread_join(thread, &result), EDEADLK);
    }
    EXPECT_EQ(log.take(), (lines{{"util/velthread", 7, "pthread_join() returned error 35"}}));

    EXPECT_EQ(vel_thread_join(thread, &result), 0);
    EXPECT_EQ(result, &number);
    EXPECT_EQ(log.take(), (lines{}));
}

/* From the first start on every line takes the lock, before that none does. */
TEST_F(Velthread, StartMakesTheLogThreaded)
{
    log_capture log;
    EXPECT_EQ(calls_of([] { log_a_line(nullptr); }), (calls{}));
    ASSERT_EQ(vel_thread_start(thread, add_one, &number), 0);
    EXPECT_EQ(vel_thread_join(thread, nullptr), 0);
    EXPECT_EQ(calls_of([] { log_a_line(nullptr); }), (calls{"pthread_mutex_lock"}));
}

/* The lock of the log is there before the thread can be. */
TEST_F(Velthread, LogComesBeforeTheThread)
{
    log_capture log;
    EXPECT_EQ(calls_of([this] { ASSERT_EQ(vel_thread_start(thread, add_one, &number), 0); }),
              (calls{"pthread_mutex_init", "pthread_create"}));
    EXPECT_EQ(vel_thread_join(thread, nullptr), 0);
}

TEST_F(Velthread, FailedLogIsLoggedAndLeavesTheThreadStartable)
{
    log_capture log;
    {
        const lock_failure failure("pthread_mutex_init", EAGAIN);
        EXPECT_EQ(calls_of([this] { EXPECT_EQ(vel_thread_start(thread, add_one, &number), -1); }),
                  (calls{"pthread_mutex_init"}));
    }
    EXPECT_EQ(log.take(), (lines{{"util/velthread", 7, "failed to initialize threaded logging"}}));
    EXPECT_EQ(number, 5);

    EXPECT_EQ(vel_thread_start(thread, add_one, &number), 0);
    EXPECT_EQ(vel_thread_join(thread, nullptr), 0);
    EXPECT_EQ(number, 6);
}

TEST_F(Velthread, LogsFromSeveralThreads)
{
    log_capture log;
    velthread *threads[4] = {};
    for (velthread *&one : threads) {
        one = vel_thread_create();
        ASSERT_NE(one, nullptr);
        ASSERT_EQ(vel_thread_start(one, log_a_line, nullptr), 0);
    }
    for (velthread *one : threads) {
        EXPECT_EQ(vel_thread_join(one, nullptr), 0);
        vel_thread_destroy(one);
    }
    EXPECT_EQ(log.take(), (lines(4, {"test/thread", 8, "a line"})));
}

struct gate {
    velcond *cond;
    bool open;
    bool passed;
};

static void *pass_gate(void *arg)
{
    auto *way = static_cast<struct gate *>(arg);
    vel_cond_lock(way->cond);
    while (!way->open)
        vel_cond_wait(way->cond);
    way->passed = true;
    vel_cond_unlock(way->cond);
    return nullptr;
}

/* It is neither waited for nor stopped. */
TEST_F(Velthread, DestroyLeavesARunningThreadAlone)
{
    gate way = {vel_cond_create(), false, false};
    velthread *abandoned = vel_thread_create();
    ASSERT_NE(abandoned, nullptr);
    ASSERT_EQ(vel_thread_start(abandoned, pass_gate, &way), 0);
    vel_thread_destroy(abandoned);

    vel_cond_lock(way.cond);
    EXPECT_FALSE(way.passed);
    way.open = true;
    vel_cond_signal(way.cond);
    vel_cond_unlock(way.cond);
    EXPECT_EQ(pthread_join(createid, nullptr), 0); /* it is not detached either */
    EXPECT_TRUE(way.passed);
    vel_cond_destroy(way.cond);
}

TEST(VelthreadCreate, NoMemoryIsLogged)
{
    log_capture log;
    {
        const support::malloc_watch first(1);
        EXPECT_EQ(vel_thread_create(), nullptr);
    }
    EXPECT_EQ(log.take(), (lines{{"util/velthread", 7, "not enough memory for thread context"}}));
}

static bool thread_life()
{
    int number = 0;
    velthread *thread = vel_thread_create();
    if (!thread)
        return false;
    const bool started = vel_thread_start(thread, add_one, &number) == 0;
    if (started) {
        EXPECT_EQ(vel_thread_join(thread, nullptr), 0);
    }
    EXPECT_EQ(number, started ? 1 : 0);
    vel_thread_destroy(thread);
    return started;
}

TEST(VelthreadOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(thread_life);
}

TEST(VelthreadArgumentsDeathTest, HandleIsAsserted)
{
    EXPECT_DEATH(vel_thread_destroy(nullptr),
                 support::asserts("velthread != NULL", "vel_thread_destroy"));
    EXPECT_DEATH(vel_thread_start(nullptr, add_one, nullptr),
                 support::asserts("velthread != NULL", "vel_thread_start"));
    EXPECT_DEATH(vel_thread_join(nullptr, nullptr),
                 support::asserts("velthread != NULL", "vel_thread_join"));
}

static const char kNone[] = "velthread->state == VEL_THREAD_STATE_NONE";
static const char kRunning[] = "velthread->state == VEL_THREAD_STATE_RUNNING";

TEST_F(VelthreadDeathTest, JoinOfAnUnstartedThreadAborts)
{
    EXPECT_DEATH(vel_thread_join(thread, nullptr), support::asserts(kRunning, "vel_thread_join"));
}

TEST_F(VelthreadDeathTest, JoinAfterAFailedStartAborts)
{
    EXPECT_DEATH(
        {
            const lock_failure failure("pthread_create", EAGAIN);
            vel_thread_start(thread, add_one, &number);
            vel_thread_join(thread, nullptr);
        },
        support::asserts(kRunning, "vel_thread_join"));
}

TEST_F(VelthreadDeathTest, SecondStartAborts)
{
    ASSERT_EQ(vel_thread_start(thread, add_one, &number), 0);
    EXPECT_DEATH(vel_thread_start(thread, add_one, &number),
                 support::asserts(kNone, "vel_thread_start"));
    EXPECT_EQ(vel_thread_join(thread, nullptr), 0);
}

TEST_F(VelthreadDeathTest, StartAfterAFailedJoinAborts)
{
    log_capture log;
    ASSERT_EQ(vel_thread_start(thread, add_one, &number), 0);
    {
        const lock_failure failure("pthread_join", ESRCH);
        EXPECT_EQ(vel_thread_join(thread, nullptr), ESRCH);
    }
    EXPECT_DEATH(vel_thread_start(thread, add_one, &number),
                 support::asserts(kNone, "vel_thread_start"));
    EXPECT_EQ(vel_thread_join(thread, nullptr), 0);
}

TEST_F(VelthreadDeathTest, JoinedThreadIsSpent)
{
    ASSERT_EQ(vel_thread_start(thread, add_one, &number), 0);
    ASSERT_EQ(vel_thread_join(thread, nullptr), 0);
    EXPECT_DEATH(vel_thread_start(thread, add_one, &number),
                 support::asserts(kNone, "vel_thread_start"));
    EXPECT_DEATH(vel_thread_join(thread, nullptr), support::asserts(kRunning, "vel_thread_join"));
}

/* The state changes before the platform is called. */
TEST_F(VelthreadDeathTest, StartInsideAStartAborts)
{
    duringcreate = [this] {
        EXPECT_DEATH(vel_thread_start(thread, add_one, &number),
                     support::asserts(kNone, "vel_thread_start"));
    };
    const int result = vel_thread_start(thread, add_one, &number);
    duringcreate = nullptr;
    ASSERT_EQ(result, 0);
    EXPECT_EQ(vel_thread_join(thread, nullptr), 0);
}
