/* The heap of timeouts beside an ordered set. */

#include "async/velasync_timeoutheap.h"

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace {

/* A timeout with a number that counts up. */
struct node : velasynctimeoutnode {
    size_t number;
};

struct earlier {
    bool operator()(const node *a, const node *b) const
    {
        return std::tie(a->seconds, a->micros, a->number) <
               std::tie(b->seconds, b->micros, b->number);
    }
};

class VelasyncTimeoutheap : public testing::Test {
  protected:
    void TearDown() override
    {
        vel_async_timeoutheap_destroy(heap_);
    }
    node *add(int32_t seconds, uint32_t micros)
    {
        EXPECT_TRUE(vel_async_timeoutheap_reserve(heap_));
        nodes_.push_back(std::make_unique<node>());
        node *one = nodes_.back().get();
        one->seconds = seconds;
        one->micros = micros;
        one->number = nodes_.size();
        vel_async_timeoutheap_add(heap_, one);
        expected_.insert(one);
        return one;
    }
    void remove(node *one)
    {
        vel_async_timeoutheap_remove(heap_, one);
        expected_.erase(one);
        one->slot = SIZE_MAX; /* the heap does not look at it any more */
    }
    void expect_first()
    {
        velasynctimeoutnode *first = expected_.empty() ? nullptr : *expected_.begin();
        ASSERT_EQ(vel_async_timeoutheap_first(heap_), first);
    }

    velasynctimeoutheap *heap_ = vel_async_timeoutheap_create();
    std::vector<std::unique_ptr<node>> nodes_;
    std::set<node *, earlier> expected_;
};

TEST_F(VelasyncTimeoutheap, EmptyOneHasNoFirst)
{
    expect_first();
    remove(add(1, 0));
    expect_first();
    expect_first();
}

/* It grows and shrinks between a few and a few thousand, and many deadlines are equal. */
TEST_F(VelasyncTimeoutheap, Model)
{
    std::mt19937 random(5);
    for (int step = 0; step < 60000; step++) {
        const bool growing = step / 6000 % 2 == 0;
        if (expected_.empty() || random() % 100 < (growing ? 70u : 30u)) {
            add(static_cast<int32_t>(random() % 5) - 1, random() % 40);
        } else if (random() % 3 == 0) {
            remove(*expected_.begin());
        } else {
            auto any = expected_.begin();
            std::advance(any, random() % std::min<size_t>(expected_.size(), 50));
            remove(*any);
        }
        if (random() % 8 == 0) {
            ASSERT_NO_FATAL_FAILURE(expect_first());
        }
    }
    while (!expected_.empty()) {
        ASSERT_NO_FATAL_FAILURE(expect_first());
        remove(*expected_.begin());
    }
    expect_first();
}

TEST_F(VelasyncTimeoutheap, NegativeSecondsAreFirst)
{
    add(0, 0);
    add(INT32_MAX, 999999);
    add(INT32_MIN, 999999);
    add(INT32_MIN, 0);
    add(-1, 999999);
    while (!expected_.empty()) {
        expect_first();
        remove(*expected_.begin());
    }
}

/* What is removed makes room for what is added, also when nobody looks at the first. */
TEST_F(VelasyncTimeoutheap, RemovedOnesDoNotPileUp)
{
    add(0, 0);
    node *old = add(1, 0);
    for (uint32_t i = 0; i < 100000; i++) {
        node *one = add(2, i);
        remove(old);
        old = one;
    }
    EXPECT_LE(heap_->capacity, 32u);
    expect_first();
}

/* Most of many go, in each order. */
TEST_F(VelasyncTimeoutheap, OrderStaysWhenMostAreGone)
{
    for (bool fromtheend : {false, true}) {
        for (uint32_t i = 0; i < 2000; i++)
            add(3, i * 7919 % 2000);
        std::vector<node *> all(expected_.begin(), expected_.end());
        if (fromtheend)
            std::reverse(all.begin(), all.end());
        for (size_t i = 0; i + 10 < all.size(); i++) {
            remove(all[i]);
            if (i % 100 == 0) {
                ASSERT_NO_FATAL_FAILURE(expect_first());
            }
        }
        while (!expected_.empty()) {
            ASSERT_NO_FATAL_FAILURE(expect_first());
            remove(*expected_.begin());
        }
    }
}

} // namespace
