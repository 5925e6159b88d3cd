/* A queue between threads: nothing is lost or doubled, and each producer's items keep their order. */

#include "support/soak.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <ostream>
#include <sched.h>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellockqueue.h>

#include "support/rows.h"

namespace {

/* An item names its producer and its place among that one's items. */
void *item_of(uintptr_t producer, uintptr_t number)
{
    return reinterpret_cast<void *>(producer << 32 | number);
}

struct traffic_case {
    std::string name;
    int producers;
    int consumers;
    bool elements; /* pushed and popped, and handed back for the next push */
    bool tries;    /* consumers do not wait in the queue */
};

std::ostream &operator<<(std::ostream &out, const traffic_case &row)
{
    return out << row.name;
}

class VellockqueueTraffic : public testing::TestWithParam<traffic_case> {
  protected:
    void produce(uintptr_t producer, uintptr_t count)
    {
        for (uintptr_t i = 0; i < count; i++) {
            if (!GetParam().elements) {
                failures_ += vel_lockqueue_push(queue_, item_of(producer, i)) != VEL_ERROR_NONE;
                continue;
            }
            vellockqueue_element *element = vel_lockqueue_pop_element(spare_, nullptr);
            vel_lockqueue_element_set_item(element, item_of(producer, i));
            failures_ += vel_lockqueue_push_element(queue_, element) != VEL_ERROR_NONE;
        }
    }
    /* False at the end. */
    bool consume_one(std::vector<void *> *items)
    {
        vel_error_t error = -1;
        void *item = nullptr;
        if (GetParam().elements) {
            vellockqueue_element *element = GetParam().tries
                                                ? vel_lockqueue_pop_element_try(queue_, &error)
                                                : vel_lockqueue_pop_element(queue_, &error);
            if (element) {
                item = vel_lockqueue_element_get_item(element);
                failures_ += vel_lockqueue_push_element(spare_, element) != VEL_ERROR_NONE;
            }
        } else {
            item = GetParam().tries ? vel_lockqueue_pop_try(queue_, &error)
                                    : vel_lockqueue_pop(queue_, &error);
        }
        if (error == VEL_ERROR_NONE)
            items->push_back(item);
        else if (error == VEL_ERROR_NOT_FOUND && GetParam().tries)
            sched_yield();
        else
            failures_ += error != VEL_ERROR_END_OF_FILE;
        return error != VEL_ERROR_END_OF_FILE;
    }

    vellockqueue *queue_ = vel_lockqueue_create(nullptr);
    vellockqueue *spare_ = vel_lockqueue_create(nullptr);
    std::atomic<int> failures_ = 0;
};

std::vector<traffic_case> traffic_cases()
{
    std::vector<traffic_case> rows;
    for (const int producers : {1, 2, 8})
        for (const int consumers : {1, 2, 8})
            for (const bool elements : {false, true})
                rows.push_back({std::to_string(producers) + "To" + std::to_string(consumers) +
                                    (elements ? "Elements" : "Items"),
                                producers, consumers, elements, false});
    rows.push_back({"2To2TriedItems", 2, 2, false, true});
    rows.push_back({"2To2TriedElements", 2, 2, true, true});
    return rows;
}

INSTANTIATE_TEST_SUITE_P(, VellockqueueTraffic, testing::ValuesIn(traffic_cases()),
                         support::row_name());

TEST_P(VellockqueueTraffic, EachItemOnceAndInOrder)
{
    const uintptr_t total = support::soak_length<uintptr_t>(1000000, 16000);
    const auto producers = static_cast<uintptr_t>(GetParam().producers);
    const uintptr_t each = total / producers;
    for (int i = 0; i < 64; i++)
        ASSERT_EQ(vel_lockqueue_push(spare_, nullptr), VEL_ERROR_NONE);

    std::vector<std::vector<void *>> taken(static_cast<size_t>(GetParam().consumers));
    std::vector<std::thread> consumers, others;
    for (std::vector<void *> &items : taken)
        consumers.emplace_back([this, &items] {
            while (consume_one(&items)) {
            }
        });
    for (uintptr_t producer = 0; producer < producers; producer++)
        others.emplace_back([this, producer, each] { produce(producer, each); });
    for (std::thread &thread : others)
        thread.join();
    vel_lockqueue_set_end(queue_);
    for (std::thread &thread : consumers)
        thread.join();
    EXPECT_EQ(failures_, 0);

    /* A consumer sees each producer's items in their order. */
    for (const std::vector<void *> &items : taken) {
        std::vector<uintptr_t> next(producers, 0);
        for (void *item : items) {
            const auto word = reinterpret_cast<uintptr_t>(item);
            ASSERT_GE(word & 0xffffffff, next.at(word >> 32));
            next[word >> 32] = (word & 0xffffffff) + 1;
        }
    }
    std::vector<void *> all, expected;
    for (const std::vector<void *> &items : taken)
        all.insert(all.end(), items.begin(), items.end());
    std::sort(all.begin(), all.end());
    for (uintptr_t producer = 0; producer < producers; producer++)
        for (uintptr_t i = 0; i < each; i++)
            expected.push_back(item_of(producer, i));
    EXPECT_TRUE(all == expected) << all.size() << " of " << expected.size();
    support::soak_report(all.size(), "items");
    vel_lockqueue_destroy(queue_, nullptr);
    vel_lockqueue_destroy(spare_, nullptr);
}

/* Poppers that wait, or are about to, all see the end. */
TEST(VellockqueueThread, EndWakesAllPoppers)
{
    const int rounds = support::soak_length(20000, 300);
    for (int round = 0; round < rounds; round++) {
        vellockqueue *queue = vel_lockqueue_create(nullptr);
        std::atomic<int> begun = 0, ended = 0, items = 0;
        std::vector<std::thread> poppers;
        for (int i = 0; i < 4; i++)
            poppers.emplace_back([&] {
                begun++;
                vel_error_t error = -1;
                while (vel_lockqueue_pop(queue, &error))
                    items++;
                ended += error == VEL_ERROR_END_OF_FILE;
            });
        while (begun < 4)
            sched_yield();
        for (int i = 0; i < round % 3; i++)
            EXPECT_EQ(vel_lockqueue_push(queue, &items), VEL_ERROR_NONE);
        vel_lockqueue_set_end(queue);
        for (std::thread &popper : poppers)
            popper.join();
        EXPECT_EQ(ended, 4);
        EXPECT_EQ(items, round % 3);
        vel_lockqueue_destroy(queue, nullptr);
    }
    support::soak_report(static_cast<uint64_t>(rounds), "queues that end");
}

/* A push wakes a popper: two threads hand one item to and fro, and wait each time. */
TEST(VellockqueueThread, ToAndFro)
{
    vellockqueue *there = vel_lockqueue_create(nullptr);
    vellockqueue *back = vel_lockqueue_create(nullptr);
    const uintptr_t count = support::soak_length<uintptr_t>(1000000, 10000);
    std::thread other([&] {
        vel_error_t error = -1;
        while (true) {
            void *item = vel_lockqueue_pop(there, &error);
            if (error != VEL_ERROR_NONE)
                break;
            EXPECT_EQ(vel_lockqueue_push(back, item), VEL_ERROR_NONE);
        }
        EXPECT_EQ(error, VEL_ERROR_END_OF_FILE);
    });
    for (uintptr_t i = 0; i < count; i++) {
        vel_error_t error = -1;
        ASSERT_EQ(vel_lockqueue_push(there, item_of(0, i)), VEL_ERROR_NONE);
        ASSERT_EQ(vel_lockqueue_pop(back, &error), item_of(0, i));
        ASSERT_EQ(error, VEL_ERROR_NONE);
    }
    vel_lockqueue_set_end(there);
    other.join();
    vel_lockqueue_destroy(there, nullptr);
    vel_lockqueue_destroy(back, nullptr);
    support::soak_report(count, "items there and back");
}

} // namespace
