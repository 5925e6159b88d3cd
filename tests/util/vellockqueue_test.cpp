#include <vellib/vellockqueue.h>

#include <cerrno>
#include <deque>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/condcalls.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_malloc.h"

using support::calls_of;
using support::cond_wait_action;
using support::lock_failure;
using calls = std::vector<std::string>;

static const calls kPush = {"pthread_mutex_lock", "pthread_cond_signal", "pthread_mutex_unlock"};
static const calls kTry = {"pthread_mutex_lock", "pthread_mutex_unlock"};
static const calls kEnd = {"pthread_mutex_lock", "pthread_cond_broadcast", "pthread_mutex_unlock"};

static int item[4];
static std::vector<void *> destroyed;

static void destroy_item(void *one)
{
    destroyed.push_back(one);
}

class Vellockqueue : public testing::Test {
  protected:
    Vellockqueue() : queue_(vel_lockqueue_create(&error_))
    {
        EXPECT_NE(queue_, nullptr);
        EXPECT_EQ(error_, VEL_ERROR_NONE);
        destroyed.clear();
    }
    ~Vellockqueue() override
    {
        if (queue_)
            vel_lockqueue_destroy(queue_, nullptr);
        EXPECT_EQ(log_.take(), std::vector<support::log_line>());
    }
    void push(void *one)
    {
        EXPECT_EQ(vel_lockqueue_push(queue_, one), VEL_ERROR_NONE);
    }
    void expect_items(const std::vector<void *> &items)
    {
        for (void *expected : items) {
            error_ = -1;
            EXPECT_EQ(vel_lockqueue_pop(queue_, &error_), expected);
            EXPECT_EQ(error_, VEL_ERROR_NONE);
        }
    }
    /* All four pops give nothing, and this code. */
    void expect_nothing(vel_error_t code)
    {
        error_ = -1;
        EXPECT_EQ(vel_lockqueue_pop_try(queue_, &error_), nullptr);
        EXPECT_EQ(error_, code);
        error_ = -1;
        EXPECT_EQ(vel_lockqueue_pop_element_try(queue_, &error_), nullptr);
        EXPECT_EQ(error_, code);
        EXPECT_EQ(vel_lockqueue_pop_element_try(queue_, nullptr), nullptr);
        if (code != VEL_ERROR_END_OF_FILE)
            return;
        error_ = -1;
        EXPECT_EQ(vel_lockqueue_pop(queue_, &error_), nullptr);
        EXPECT_EQ(error_, code);
        error_ = -1;
        EXPECT_EQ(vel_lockqueue_pop_element(queue_, &error_), nullptr);
        EXPECT_EQ(error_, code);
        EXPECT_EQ(vel_lockqueue_pop_element(queue_, nullptr), nullptr);
    }

    support::log_capture log_;
    vel_error_t error_ = -1;
    vellockqueue *queue_;
};

TEST_F(Vellockqueue, CreateWithoutOutput)
{
    vellockqueue *other = vel_lockqueue_create(nullptr);
    ASSERT_NE(other, nullptr);
    vel_lockqueue_destroy(other, destroy_item);
    EXPECT_TRUE(destroyed.empty());
}

TEST_F(Vellockqueue, EmptyAndOpen)
{
    expect_nothing(VEL_ERROR_NOT_FOUND);
}

TEST_F(Vellockqueue, FirstInFirstOut)
{
    push(&item[0]);
    push(&item[1]);
    push(&item[2]);
    expect_items({&item[0], &item[1]});
    push(&item[3]);
    EXPECT_EQ(vel_lockqueue_pop_try(queue_, &error_), &item[2]);
    EXPECT_EQ(error_, VEL_ERROR_NONE);
    expect_items({&item[3]});
    expect_nothing(VEL_ERROR_NOT_FOUND);
}

TEST_F(Vellockqueue, DrainsBeforeTheEnd)
{
    push(&item[0]);
    push(&item[1]);
    vel_lockqueue_set_end(queue_);
    expect_items({&item[0], &item[1]});
    expect_nothing(VEL_ERROR_END_OF_FILE);
    vel_lockqueue_set_end(queue_);
    expect_nothing(VEL_ERROR_END_OF_FILE);
}

TEST_F(Vellockqueue, TryDrainsBeforeTheEnd)
{
    push(&item[0]);
    vel_lockqueue_set_end(queue_);
    EXPECT_EQ(vel_lockqueue_pop_try(queue_, &error_), &item[0]);
    EXPECT_EQ(error_, VEL_ERROR_NONE);
    expect_nothing(VEL_ERROR_END_OF_FILE);
}

/* The leak check finds the element that was made for the item. */
TEST_F(Vellockqueue, PushAfterTheEnd)
{
    vellockqueue_element *element = vel_lockqueue_element_create();
    vel_lockqueue_element_set_item(element, &item[1]);
    push(&item[0]);
    vel_lockqueue_set_end(queue_);
    EXPECT_EQ(vel_lockqueue_push(queue_, &item[1]), VEL_ERROR_WRITE);
    EXPECT_EQ(vel_lockqueue_push_element(queue_, element), VEL_ERROR_WRITE);
    EXPECT_EQ(vel_lockqueue_element_get_item(element), &item[1]);
    expect_items({&item[0]});
    expect_nothing(VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(vel_lockqueue_push(queue_, &item[1]), VEL_ERROR_WRITE);
    expect_nothing(VEL_ERROR_END_OF_FILE);
    vel_lockqueue_element_destroy(element);
}

TEST_F(Vellockqueue, NullIsAnItem)
{
    push(nullptr);
    push(&item[0]);
    push(nullptr);
    expect_items({nullptr, &item[0]});
    error_ = -1;
    EXPECT_EQ(vel_lockqueue_pop_try(queue_, &error_), nullptr);
    EXPECT_EQ(error_, VEL_ERROR_NONE);
    expect_nothing(VEL_ERROR_NOT_FOUND);
}

/* An element begins with its links; behind them is the item. */
static std::vector<void *> fields(const vellockqueue_element *element)
{
    void *const *words = reinterpret_cast<void *const *>(element);
    return {words[0], words[1], words[2]};
}

TEST_F(Vellockqueue, Elements)
{
    vellockqueue_element *elements[3];
    for (int i = 0; i < 3; i++) {
        elements[i] = vel_lockqueue_element_create();
        ASSERT_NE(elements[i], nullptr);
        EXPECT_EQ(fields(elements[i]), (std::vector<void *>{nullptr, nullptr, nullptr}));
        EXPECT_EQ(vel_lockqueue_element_get_item(elements[i]), nullptr);
        vel_lockqueue_element_set_item(elements[i], &item[i]);
        EXPECT_EQ(vel_lockqueue_element_get_item(elements[i]), &item[i]);
    }
    for (int round = 0; round < 2; round++) {
        for (vellockqueue_element *element : elements)
            EXPECT_EQ(vel_lockqueue_push_element(queue_, element), VEL_ERROR_NONE);
        error_ = -1;
        EXPECT_EQ(vel_lockqueue_pop_element(queue_, &error_), elements[0]);
        EXPECT_EQ(error_, VEL_ERROR_NONE);
        EXPECT_EQ(vel_lockqueue_pop_element(queue_, nullptr), elements[1]);
        error_ = -1;
        EXPECT_EQ(vel_lockqueue_pop_element_try(queue_, &error_), elements[2]);
        EXPECT_EQ(error_, VEL_ERROR_NONE);
        for (int i = 0; i < 3; i++)
            EXPECT_EQ(fields(elements[i]), (std::vector<void *>{nullptr, nullptr, &item[i]}));
    }
    for (vellockqueue_element *element : elements)
        vel_lockqueue_element_destroy(element);
}

TEST_F(Vellockqueue, BothLevelsOnOneQueue)
{
    vellockqueue_element *element = vel_lockqueue_element_create();
    vel_lockqueue_element_set_item(element, &item[1]);
    push(&item[0]);
    EXPECT_EQ(vel_lockqueue_push_element(queue_, element), VEL_ERROR_NONE);
    element = vel_lockqueue_pop_element(queue_, nullptr);
    EXPECT_EQ(vel_lockqueue_element_get_item(element), &item[0]);
    vel_lockqueue_element_destroy(element);
    expect_items({&item[1]});
}

/* The leak check finds elements that stay. */
TEST_F(Vellockqueue, DestroyGivesTheOldestFirst)
{
    for (int i = 0; i < 4; i++)
        push(&item[i]);
    push(nullptr);
    expect_items({&item[0]});
    vel_lockqueue_destroy(queue_, destroy_item);
    queue_ = nullptr;
    EXPECT_EQ(destroyed, (std::vector<void *>{&item[1], &item[2], &item[3], nullptr}));
}

TEST_F(Vellockqueue, DestroyWithoutDestroyerDropsTheItems)
{
    push(&item[0]);
    push(&item[1]);
    vel_lockqueue_set_end(queue_);
}

TEST_F(Vellockqueue, RandomStepsBesideADeque)
{
    std::mt19937 random(1);
    std::deque<void *> model;
    for (uintptr_t i = 1; i < 20000; i++) {
        if (random() % 2) {
            push(reinterpret_cast<void *>(i));
            model.push_back(reinterpret_cast<void *>(i));
            continue;
        }
        void *expected = model.empty() ? nullptr : model.front();
        ASSERT_EQ(vel_lockqueue_pop_try(queue_, &error_), expected);
        ASSERT_EQ(error_, expected ? VEL_ERROR_NONE : VEL_ERROR_NOT_FOUND);
        if (expected)
            model.pop_front();
    }
}

/* One signal for each push, also for a refused one, under the lock. */
TEST_F(Vellockqueue, CallsOfThePlatform)
{
    vellockqueue_element *element = vel_lockqueue_element_create();
    EXPECT_EQ(calls_of([&] { vel_lockqueue_push_element(queue_, element); }), kPush);
    EXPECT_EQ(calls_of([&] { vel_lockqueue_pop_element(queue_, nullptr); }), kTry);
    EXPECT_EQ(calls_of([&] { vel_lockqueue_push(queue_, nullptr); }), kPush);
    EXPECT_EQ(calls_of([&] { vel_lockqueue_pop_try(queue_, &error_); }), kTry);
    EXPECT_EQ(calls_of([&] { vel_lockqueue_pop_try(queue_, &error_); }), kTry);
    EXPECT_EQ(calls_of([&] { vel_lockqueue_element_set_item(element, nullptr); }), calls());
    EXPECT_EQ(calls_of([&] { vel_lockqueue_element_get_item(element); }), calls());
    EXPECT_EQ(calls_of([&] { vel_lockqueue_set_end(queue_); }), kEnd);
    EXPECT_EQ(calls_of([&] { vel_lockqueue_set_end(queue_); }), kEnd);
    EXPECT_EQ(calls_of([&] { vel_lockqueue_push_element(queue_, element); }), kPush);
    EXPECT_EQ(calls_of([&] { vel_lockqueue_push(queue_, nullptr); }), kPush);
    EXPECT_EQ(calls_of([&] { vel_lockqueue_pop(queue_, &error_); }), kTry);
    vel_lockqueue_element_destroy(element);
}

TEST_F(Vellockqueue, DestroyTakesNoLock)
{
    push(&item[0]);
    const calls made = calls_of([&] { vel_lockqueue_destroy(queue_, destroy_item); });
    queue_ = nullptr;
    EXPECT_EQ(made, (calls{"pthread_cond_destroy", "pthread_mutex_destroy"}));
    EXPECT_EQ(destroyed.size(), 1u);
}

/* Being woken means nothing: what counts is an item or the end. */
TEST_F(Vellockqueue, WaitsUntilAnItemIsThere)
{
    int waits = 0;
    cond_wait_action = [&] {
        EXPECT_EQ(error_, VEL_ERROR_GENERIC);
        waits++;
        if (waits == 3)
            push(&item[1]);
    };
    EXPECT_EQ(vel_lockqueue_pop(queue_, &error_), &item[1]);
    cond_wait_action = nullptr;
    EXPECT_EQ(error_, VEL_ERROR_NONE);
    EXPECT_EQ(waits, 3);
}

TEST_F(Vellockqueue, WaitsUntilTheEnd)
{
    int waits = 0;
    cond_wait_action = [&] {
        waits++;
        if (waits == 2)
            vel_lockqueue_set_end(queue_);
    };
    EXPECT_EQ(vel_lockqueue_pop_element(queue_, &error_), nullptr);
    EXPECT_EQ(error_, VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(waits, 2);
    EXPECT_EQ(vel_lockqueue_pop_element(queue_, nullptr), nullptr);
    EXPECT_EQ(waits, 2);
    cond_wait_action = nullptr;
}

TEST_F(Vellockqueue, LastItemAndTheEndDuringAWait)
{
    cond_wait_action = [&] {
        push(&item[2]);
        vel_lockqueue_set_end(queue_);
    };
    EXPECT_EQ(vel_lockqueue_pop(queue_, &error_), &item[2]);
    cond_wait_action = nullptr;
    EXPECT_EQ(error_, VEL_ERROR_NONE);
    expect_nothing(VEL_ERROR_END_OF_FILE);
}

/* Another popper may be faster. */
TEST_F(Vellockqueue, ItemThatIsGoneAfterAWait)
{
    int waits = 0;
    cond_wait_action = [&] {
        waits++;
        push(&item[waits]);
        if (waits == 1) {
            vel_error_t error = -1;
            EXPECT_EQ(vel_lockqueue_pop_try(queue_, &error), &item[1]);
        }
    };
    EXPECT_EQ(vel_lockqueue_pop(queue_, &error_), &item[2]);
    cond_wait_action = nullptr;
}

TEST(VellockqueueMemory, Element)
{
    support::log_capture log;
    support::malloc_watch watch(1, 1);
    EXPECT_EQ(vel_lockqueue_element_create(), nullptr);
    EXPECT_EQ(log.take(), std::vector<support::log_line>());
}

TEST_F(Vellockqueue, PushWithoutMemory)
{
    push(&item[0]);
    {
        support::malloc_watch watch(1, 1);
        EXPECT_EQ(vel_lockqueue_push(queue_, &item[1]), VEL_ERROR_NO_MEMORY);
    }
    expect_items({&item[0]});
    expect_nothing(VEL_ERROR_NOT_FOUND);
    vel_lockqueue_set_end(queue_);
    support::malloc_watch watch(1, 1);
    EXPECT_EQ(vel_lockqueue_push(queue_, &item[1]), VEL_ERROR_NO_MEMORY);
}

/* Only the queue itself is a matter of memory; its lock is not, whatever it lacks. */
TEST(VellockqueueMemory, Create)
{
    support::log_capture log;
    const vel_error_t codes[] = {VEL_ERROR_NO_MEMORY, VEL_ERROR_GENERIC};
    for (size_t number = 1; number <= 2; number++) {
        vel_error_t error = -1;
        support::malloc_watch watch(number, number);
        EXPECT_EQ(vel_lockqueue_create(&error), nullptr);
        EXPECT_EQ(error, codes[number - 1]);
    }
    {
        support::malloc_watch watch(1, 1);
        EXPECT_EQ(vel_lockqueue_create(nullptr), nullptr);
    }
    {
        support::malloc_watch watch(2, 2);
        EXPECT_EQ(vel_lockqueue_create(nullptr), nullptr);
    }
    for (const char *failing : {"pthread_mutex_init", "pthread_cond_init"}) {
        const lock_failure failure(failing, EAGAIN);
        vel_error_t error = -1;
        EXPECT_EQ(vel_lockqueue_create(&error), nullptr);
        EXPECT_EQ(error, VEL_ERROR_GENERIC);
        EXPECT_EQ(vel_lockqueue_create(nullptr), nullptr);
    }
    EXPECT_EQ(log.take(), std::vector<support::log_line>());
}

TEST_F(Vellockqueue, RecycledElementsWantNoMemory)
{
    for (int i = 0; i < 4; i++)
        push(&item[i]);
    support::malloc_watch watch;
    for (int i = 0; i < 10000; i++) {
        vellockqueue_element *element = vel_lockqueue_pop_element(queue_, &error_);
        ASSERT_EQ(vel_lockqueue_element_get_item(element), &item[i % 4]);
        ASSERT_EQ(vel_lockqueue_push_element(queue_, element), VEL_ERROR_NONE);
    }
    EXPECT_EQ(support::malloc_watch::count(), 0u);
}

static bool use_queue()
{
    vel_error_t error = -1;
    vellockqueue *queue = vel_lockqueue_create(&error);
    if (!queue) {
        EXPECT_NE(error, VEL_ERROR_NONE);
        return false;
    }
    vellockqueue_element *element = vel_lockqueue_element_create();
    bool done = element && vel_lockqueue_push(queue, &item[0]) == VEL_ERROR_NONE &&
                vel_lockqueue_push(queue, &item[1]) == VEL_ERROR_NONE;
    if (done) {
        EXPECT_EQ(vel_lockqueue_push_element(queue, element), VEL_ERROR_NONE);
        element = nullptr;
        EXPECT_EQ(vel_lockqueue_pop(queue, &error), &item[0]);
        vel_lockqueue_set_end(queue);
        const vel_error_t refused = vel_lockqueue_push(queue, &item[2]);
        done = refused == VEL_ERROR_WRITE;
        EXPECT_TRUE(done || refused == VEL_ERROR_NO_MEMORY);
    }
    if (element)
        vel_lockqueue_element_destroy(element);
    vel_lockqueue_destroy(queue, nullptr);
    return done;
}

TEST(VellockqueueFailures, EachAllocation)
{
    EXPECT_GE(support::vel_oom_drive(use_queue), 6u);
}

TEST(VellockqueueDeathTest, Queue)
{
    EXPECT_DEATH(vel_lockqueue_push_element(nullptr, nullptr), support::asserts("queue"));
    EXPECT_DEATH(vel_lockqueue_pop_element(nullptr, nullptr), support::asserts("queue"));
    EXPECT_DEATH(vel_lockqueue_pop_element_try(nullptr, nullptr), support::asserts("queue"));
    EXPECT_DEATH(vel_lockqueue_destroy(nullptr, nullptr), support::asserts("queue"));
    EXPECT_DEATH(vel_lockqueue_push(nullptr, nullptr), support::asserts("queue"));
    EXPECT_DEATH(vel_lockqueue_set_end(nullptr), support::asserts("queue"));
    vel_error_t error;
    EXPECT_DEATH(vel_lockqueue_pop(nullptr, &error), support::asserts("queue"));
    EXPECT_DEATH(vel_lockqueue_pop_try(nullptr, &error), support::asserts("queue"));
}

TEST(VellockqueueDeathTest, Element)
{
    vellockqueue *queue = vel_lockqueue_create(nullptr);
    EXPECT_DEATH(vel_lockqueue_push_element(queue, nullptr), support::asserts("element"));
    EXPECT_DEATH(vel_lockqueue_element_destroy(nullptr), support::asserts("element"));
    vel_lockqueue_destroy(queue, nullptr);
}

TEST(VellockqueueDeathTest, Output)
{
    vellockqueue *queue = vel_lockqueue_create(nullptr);
    EXPECT_DEATH(vel_lockqueue_pop(queue, nullptr), support::asserts("error_out != NULL"));
    EXPECT_DEATH(vel_lockqueue_pop_try(queue, nullptr), support::asserts("error_out != NULL"));
    vel_lockqueue_destroy(queue, nullptr);
}
