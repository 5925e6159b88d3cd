#include <deque>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/oom.h"

/* An item as a user writes it: its own type in its links. */
struct item {
    item *next;
    item *prev;
    int number;
};

static std::vector<int> forward(const vel_list *list)
{
    std::vector<int> numbers;
    for (const item *it = static_cast<const item *>(list->head); it; it = it->next)
        numbers.push_back(it->number);
    return numbers;
}

static std::vector<int> backward(const vel_list *list)
{
    std::vector<int> numbers;
    for (const item *it = static_cast<const item *>(list->tail); it; it = it->prev)
        numbers.push_back(it->number);
    return numbers;
}

static item make_item(int number)
{
    static item dirt;
    return {&dirt, &dirt, number};
}

TEST(Vellist, CreateGivesAnEmptyList)
{
    vel_list *list = vel_list_create();
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->head, nullptr);
    EXPECT_EQ(list->tail, nullptr);
    vel_list_destroy(list);
}

TEST(Vellist, InitEmptiesAHead)
{
    vel_list list;
    memset(static_cast<void *>(&list), 0x5a, sizeof(list));
    vel_list_init(&list);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
}

TEST(Vellist, ZeroedHeadIsTheEmptyList)
{
    vel_list list = {};
    item only = make_item(1);
    VEL_LIST_ADD_TAIL(&list, &only);
    EXPECT_EQ(list.head, &only);
    EXPECT_EQ(list.tail, &only);
}

TEST(Vellist, DestroyTakesNull)
{
    vel_list_destroy(nullptr);
}

/* The item would not be its own if the list freed or changed it. */
TEST(Vellist, DestroyLeavesItemsAlone)
{
    vel_list *list = vel_list_create();
    ASSERT_NE(list, nullptr);
    item first = make_item(1);
    item second = make_item(2);
    VEL_LIST_ADD_TAIL(list, &first);
    VEL_LIST_ADD_TAIL(list, &second);
    vel_list_destroy(list);
    EXPECT_EQ(first.number, 1);
    EXPECT_EQ(first.next, &second);
    EXPECT_EQ(second.prev, &first);
}

TEST(Vellist, AddTail)
{
    vel_list list = {};
    item items[] = {make_item(1), make_item(2), make_item(3)};
    for (item &it : items) {
        VEL_LIST_ADD_TAIL(&list, &it);
        EXPECT_EQ(list.tail, &it);
        EXPECT_EQ(it.next, nullptr);
    }
    EXPECT_EQ(items[0].prev, nullptr);
    EXPECT_EQ(forward(&list), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(backward(&list), (std::vector<int>{3, 2, 1}));
}

TEST(Vellist, AddHead)
{
    vel_list list = {};
    item items[] = {make_item(1), make_item(2), make_item(3)};
    for (item &it : items) {
        VEL_LIST_ADD_HEAD(&list, &it);
        EXPECT_EQ(list.head, &it);
        EXPECT_EQ(it.prev, nullptr);
    }
    EXPECT_EQ(items[0].next, nullptr);
    EXPECT_EQ(forward(&list), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(backward(&list), (std::vector<int>{1, 2, 3}));
}

TEST(Vellist, RemoveTheOnlyItem)
{
    vel_list list = {};
    item only = make_item(1);
    VEL_LIST_ADD_HEAD(&list, &only);
    VEL_LIST_REMOVE(&list, &only);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
    EXPECT_EQ(only.next, nullptr);
    EXPECT_EQ(only.prev, nullptr);
}

TEST(Vellist, RemoveEachPosition)
{
    for (int gone = 1; gone <= 3; gone++) {
        vel_list list = {};
        item items[] = {make_item(1), make_item(2), make_item(3)};
        std::vector<int> left;
        for (item &it : items) {
            VEL_LIST_ADD_TAIL(&list, &it);
            if (it.number != gone)
                left.push_back(it.number);
        }
        VEL_LIST_REMOVE(&list, &items[gone - 1]);
        EXPECT_EQ(items[gone - 1].next, nullptr);
        EXPECT_EQ(items[gone - 1].prev, nullptr);
        EXPECT_EQ(forward(&list), left);
        EXPECT_EQ(backward(&list), std::vector<int>(left.rbegin(), left.rend()));
    }
}

/* A link whose fields are plain pointers does as well. */
TEST(Vellist, PlainLinks)
{
    vel_list list = {};
    vel_listlink first;
    vel_listlink second;
    VEL_LIST_ADD_TAIL(&list, &second);
    VEL_LIST_ADD_HEAD(&list, &first);
    EXPECT_EQ(list.head, &first);
    EXPECT_EQ(first.next, &second);
    EXPECT_EQ(second.prev, &first);
    VEL_LIST_REMOVE(&list, &first);
    EXPECT_EQ(list.head, &second);
    EXPECT_EQ(second.prev, nullptr);
}

TEST(Vellist, AgreesWithADequeOverRandomSteps)
{
    std::mt19937 random(20260101);
    std::vector<item> items;
    for (int i = 0; i < 64; i++)
        items.push_back(make_item(i));
    std::vector<bool> inside(items.size());
    std::deque<int> model;
    vel_list list = {};

    for (int step = 0; step < 20000; step++) {
        const size_t pick = random() % items.size();
        const int number = items[pick].number;
        if (inside[pick]) {
            VEL_LIST_REMOVE(&list, &items[pick]);
            std::erase(model, number);
        } else if (random() % 2) {
            VEL_LIST_ADD_TAIL(&list, &items[pick]);
            model.push_back(number);
        } else {
            VEL_LIST_ADD_HEAD(&list, &items[pick]);
            model.push_front(number);
        }
        inside[pick] = !inside[pick];
        if (step % 16 == 0) {
            ASSERT_EQ(forward(&list), std::vector<int>(model.begin(), model.end()));
            ASSERT_EQ(backward(&list), std::vector<int>(model.rbegin(), model.rend()));
        }
    }
}

static bool list_life()
{
    vel_list *list = vel_list_create();
    if (!list)
        return false;
    item only = make_item(1);
    VEL_LIST_ADD_TAIL(list, &only);
    VEL_LIST_REMOVE(list, &only);
    vel_list_destroy(list);
    return true;
}

TEST(Vellist, EveryAllocationMayFail)
{
    support::vel_oom_drive(list_life);
}
