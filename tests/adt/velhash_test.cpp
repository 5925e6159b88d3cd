#include <cstddef>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/hashitems.h"
#include "support/logcapture.h"
#include "support/oom.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static const char kModule[] = "adt/velhash";

class Velhash : public testing::Test {
  protected:
    void SetUp() override
    {
        table = hash_create(&seen);
        ASSERT_NE(table, nullptr);
        log.clear();
    }

    void TearDown() override
    {
        vel_hash_destroy(table);
        EXPECT_EQ(seen.searchedfirst, 0u); /* the stored item is the first argument */
    }

    void add_keys(int first, int count)
    {
        for (int key = first; key < first + count; key++)
            hash_add(table, key);
    }

    /* A table of 21 slots that holds the keys from 0, 3 to 18 of them, in no resize. */
    void fill_21_slots(int count)
    {
        add_keys(0, 10);
        add_keys(10, count - 10);
        for (int key = 9; key >= count; key--)
            ASSERT_TRUE(hash_remove(table, key));
        ASSERT_EQ(hash_state_of(table), (hash_state{static_cast<size_t>(count), 21, 0, 0, 0, 0}));
        seen.clear();
        log.clear();
    }

    hash_observer seen;
    velhash *table = nullptr;
    log_capture log;
};

TEST(VelhashCreate, LogsTheInitialSizeAndIsEmpty)
{
    log_capture log;
    hash_observer seen;
    velhash *table = hash_create(&seen);
    ASSERT_NE(table, nullptr);
    EXPECT_THAT(log.take(),
                ElementsAre(log_line{kModule, 13, "create an initial hash array of size 5"}));
    EXPECT_EQ(hash_state_of(table), (hash_state{0, 5, 0, 0, 0, 0}));
    EXPECT_EQ(vel_hash_enumerate_start(table), nullptr);
    EXPECT_EQ(hash_find(table, 1), nullptr);
    vel_hash_destroy(table);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(VelhashCreate, TakesANullContext)
{
    velhash *table = vel_hash_create(
        offsetof(hash_item, link), [](const void *, void *context) -> size_t { return !context; },
        [](const void *item1, const void *item2, void *context) -> int {
            return context != nullptr || item1 != item2;
        },
        [](void *item, void *context) {
            EXPECT_EQ(context, nullptr);
            delete static_cast<hash_item *>(item);
        },
        nullptr);
    ASSERT_NE(table, nullptr);
    hash_item *item = hash_add(table, 1);
    EXPECT_EQ(vel_hash_lookup(table, item), item);
    vel_hash_destroy(table);
}

TEST_F(Velhash, DebugStateTakesNullForEachOutput)
{
    add_keys(0, 6);
    vel_hash_debug_state(table, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    hash_state state{91, 92, 93, 94, 95, 96};
    vel_hash_debug_state(table, &state.mainentries, nullptr, nullptr, nullptr, nullptr, nullptr);
    vel_hash_debug_state(table, nullptr, &state.mainslots, nullptr, nullptr, nullptr, nullptr);
    vel_hash_debug_state(table, nullptr, nullptr, &state.biggerentries, nullptr, nullptr, nullptr);
    vel_hash_debug_state(table, nullptr, nullptr, nullptr, &state.biggerslots, nullptr, nullptr);
    vel_hash_debug_state(table, nullptr, nullptr, nullptr, nullptr, &state.smallerentries, nullptr);
    vel_hash_debug_state(table, nullptr, nullptr, nullptr, nullptr, nullptr, &state.smallerslots);
    EXPECT_EQ(state, (hash_state{4, 5, 2, 21, 0, 0}));
}

TEST_F(Velhash, LookupFindsWhatWasAddedAndRemoveGivesItBack)
{
    hash_item *item = hash_add(table, 3);
    EXPECT_EQ(hash_find(table, 3), item);
    EXPECT_EQ(hash_find(table, 8), nullptr); /* the same slot */
    vel_hash_remove(table, item);
    EXPECT_EQ(hash_find(table, 3), nullptr);
    EXPECT_THAT(seen.destroyed, IsEmpty());
    EXPECT_EQ(item->link.next, nullptr);
    EXPECT_EQ(item->link.prev, nullptr);
    delete item;
}

TEST_F(Velhash, AddReplacesAnEqualItem)
{
    hash_item *old = hash_add(table, 1);
    hash_add(table, 6);
    hash_item *item = hash_add(table, 1);
    EXPECT_THAT(seen.destroyed, ElementsAre(old));
    EXPECT_EQ(hash_state_of(table), (hash_state{2, 5, 0, 0, 0, 0}));
    EXPECT_EQ(hash_find(table, 1), item);
    EXPECT_THAT(hash_keys_of(table), ElementsAre(6, 1)); /* the new one is linked at the tail */
}

TEST_F(Velhash, AddReplacesAnItemOfTheMainArrayDuringAGrowth)
{
    add_keys(0, 4);
    hash_item *old = hash_add(table, 4);
    ASSERT_EQ(hash_state_of(table), (hash_state{5, 5, 0, 21, 0, 0}));
    hash_item *item = hash_add(table, 4);
    EXPECT_THAT(seen.destroyed, ElementsAre(old));
    /* One left by the replacement and one by the move. */
    EXPECT_EQ(hash_state_of(table), (hash_state{3, 5, 2, 21, 0, 0}));
    EXPECT_THAT(hash_keys_of(table), ElementsAre(0, 4, 1, 2, 3));
    EXPECT_EQ(hash_find(table, 4), item);
}

TEST_F(Velhash, AddReplacesAnItemOfTheTargetDuringAGrowth)
{
    add_keys(0, 5);
    hash_item *old = hash_add(table, 5);
    hash_add(table, 5);
    EXPECT_THAT(seen.destroyed, ElementsAre(old));
    EXPECT_EQ(hash_state_of(table), (hash_state{3, 5, 3, 21, 0, 0}));
}

TEST_F(Velhash, AddThatReplacesTheLastItemOfTheMainArrayEndsTheResize)
{
    add_keys(0, 9);
    ASSERT_EQ(hash_state_of(table), (hash_state{1, 5, 8, 21, 0, 0}));
    hash_add(table, 4);
    EXPECT_THAT(seen.destroyedkeys, ElementsAre(4));
    EXPECT_EQ(hash_state_of(table), (hash_state{9, 21, 0, 0, 0, 0}));
}

TEST_F(Velhash, AReplacingAddStartsNoGrowth)
{
    add_keys(0, 4);
    hash_add(table, 0);
    EXPECT_EQ(hash_state_of(table), (hash_state{4, 5, 0, 0, 0, 0}));
}

TEST_F(Velhash, GrowsAtTheFifthItemAndMovesOneItemAnAdd)
{
    add_keys(0, 4);
    EXPECT_EQ(hash_state_of(table), (hash_state{4, 5, 0, 0, 0, 0}));
    EXPECT_THAT(log.take(), IsEmpty());

    hash_add(table, 4); /* starts the growth, and moves nothing */
    EXPECT_EQ(hash_state_of(table), (hash_state{5, 5, 0, 21, 0, 0}));
    EXPECT_THAT(log.take(),
                ElementsAre(log_line{kModule, 13, "start growing hashtable to 21 slots"}));

    for (size_t added = 1; added < 5; added++) {
        hash_add(table, 4 + static_cast<int>(added));
        EXPECT_EQ(hash_state_of(table), (hash_state{5 - added, 5, 2 * added, 21, 0, 0}));
    }
    EXPECT_THAT(log.take(), IsEmpty());
    hash_add(table, 9);
    EXPECT_EQ(hash_state_of(table), (hash_state{10, 21, 0, 0, 0, 0}));
    EXPECT_THAT(log.take(), ElementsAre(log_line{
                                kModule, 13, "replacing the main hash array with the bigger one"}));
}

TEST_F(Velhash, GrowsAtNinetyPercentOfEachSize)
{
    const std::vector<std::pair<size_t, size_t>> expected = {
        {5, 5}, {19, 21}, {77, 85}, {307, 341}, {1229, 1365}};
    std::vector<std::pair<size_t, size_t>> starts;
    size_t slots = 0;
    for (int key = 0; key < 2000; key++) {
        hash_add(table, key);
        const hash_state state = hash_state_of(table);
        if (state.biggerslots > slots) {
            starts.emplace_back(state.mainentries, state.mainslots);
            EXPECT_EQ(state.biggerslots, 4 * state.mainslots + 1);
            EXPECT_EQ(state.biggerentries, 0u);
            slots = state.biggerslots;
        }
    }
    EXPECT_EQ(starts, expected);
}

TEST_F(Velhash, HashesOncePerOperationAndOncePerMovedItem)
{
    add_keys(0, 5);
    EXPECT_THAT(seen.hashed, ElementsAre(0, 1, 2, 3, 4));
    seen.clear();
    hash_add(table, 5);
    EXPECT_THAT(seen.hashed, ElementsAre(5, 0));
    seen.clear();
    hash_item *item = hash_find(table, 5);
    EXPECT_THAT(seen.hashed, ElementsAre(5));
    seen.clear();
    vel_hash_remove(table, item);
    EXPECT_THAT(seen.hashed, ElementsAre(5, 1));
    delete item;
}

TEST_F(Velhash, MovesTheHeadOfTheFirstSlotThatIsNotEmpty)
{
    for (int key : {9, 4, 3, 8, 13})
        hash_add(table, key);
    ASSERT_THAT(hash_keys_of(table), ElementsAre(3, 8, 13, 9, 4));
    std::vector<int> moved;
    for (int key = 100; key < 105; key++) {
        seen.clear();
        hash_add(table, key);
        ASSERT_EQ(seen.hashed.size(), 2u);
        moved.push_back(seen.hashed[1]);
    }
    EXPECT_THAT(moved, ElementsAre(3, 8, 13, 9, 4));
}

TEST_F(Velhash, LookupDuringAResizeMovesTheItemFoundInTheMainArray)
{
    add_keys(0, 5);
    EXPECT_EQ(hash_find(table, 25), nullptr);
    EXPECT_EQ(hash_state_of(table), (hash_state{5, 5, 0, 21, 0, 0}));
    hash_item *item = hash_find(table, 3);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(hash_state_of(table), (hash_state{4, 5, 1, 21, 0, 0}));
    EXPECT_THAT(hash_keys_of(table), ElementsAre(3, 0, 1, 2, 4));
    EXPECT_EQ(hash_find(table, 3), item); /* now in the target, so nothing moves */
    EXPECT_EQ(hash_state_of(table), (hash_state{4, 5, 1, 21, 0, 0}));
}

TEST_F(Velhash, LookupOfTheLastItemOfTheMainArrayEndsTheResize)
{
    add_keys(0, 5);
    for (int key = 0; key < 4; key++)
        EXPECT_NE(hash_find(table, key), nullptr);
    ASSERT_EQ(hash_state_of(table), (hash_state{1, 5, 4, 21, 0, 0}));
    log.clear();
    EXPECT_NE(hash_find(table, 4), nullptr);
    EXPECT_EQ(hash_state_of(table), (hash_state{5, 21, 0, 0, 0, 0}));
    EXPECT_THAT(log.take(), ElementsAre(log_line{
                                kModule, 13, "replacing the main hash array with the bigger one"}));
}

TEST_F(Velhash, RemoveOfTheLastItemOfTheMainArrayEndsTheResize)
{
    add_keys(0, 9);
    ASSERT_EQ(hash_state_of(table), (hash_state{1, 5, 8, 21, 0, 0}));
    EXPECT_TRUE(hash_remove(table, 4));
    EXPECT_EQ(hash_state_of(table), (hash_state{8, 21, 0, 0, 0, 0}));
    EXPECT_THAT(seen.destroyed, IsEmpty());
}

TEST_F(Velhash, RemoveDuringAGrowthMovesOneItem)
{
    add_keys(0, 6);
    ASSERT_EQ(hash_state_of(table), (hash_state{4, 5, 2, 21, 0, 0}));
    EXPECT_TRUE(hash_remove(table, 5));
    EXPECT_EQ(hash_state_of(table), (hash_state{3, 5, 2, 21, 0, 0}));
    EXPECT_THAT(hash_keys_of(table), ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(Velhash, ShrinksWhenTwoItemsOfTwentyOneSlotsAreLeft)
{
    fill_21_slots(3);
    EXPECT_TRUE(hash_remove(table, 2));
    EXPECT_EQ(hash_state_of(table), (hash_state{2, 21, 0, 0, 0, 5})); /* nothing has moved yet */
    EXPECT_THAT(log.take(),
                ElementsAre(log_line{kModule, 13, "start shrinking hashtable to 5 slots"}));
    EXPECT_TRUE(hash_remove(table, 1));
    EXPECT_EQ(hash_state_of(table), (hash_state{1, 5, 0, 0, 0, 0}));
    EXPECT_THAT(
        log.take(),
        ElementsAre(log_line{kModule, 13, "replacing the main hash array with the smaller one"}));
    EXPECT_THAT(hash_keys_of(table), ElementsAre(0));
}

TEST_F(Velhash, ShrinksAtTenPercentOfEachSize)
{
    const std::vector<std::pair<size_t, size_t>> expected = {
        {136, 1365}, {34, 341}, {8, 85}, {2, 21}};
    add_keys(0, 700); /* 1365 slots, with no resize in progress */
    ASSERT_EQ(hash_state_of(table), (hash_state{700, 1365, 0, 0, 0, 0}));
    std::vector<std::pair<size_t, size_t>> starts;
    size_t slots = 1365;
    /* From the last on: those that are moved come from the first on. */
    for (int key = 699; key >= 0; key--) {
        EXPECT_TRUE(hash_remove(table, key));
        const hash_state state = hash_state_of(table);
        if (state.smallerslots && state.smallerslots < slots) {
            starts.emplace_back(state.mainentries, state.mainslots);
            EXPECT_EQ(state.smallerslots, (state.mainslots - 1) / 4);
            EXPECT_EQ(state.smallerentries, 0u);
            slots = state.smallerslots;
        }
    }
    EXPECT_EQ(starts, expected);
}

TEST_F(Velhash, AddsDuringAShrinkEndAtTheSmallerSizeAndGrowAgain)
{
    fill_21_slots(3);
    EXPECT_TRUE(hash_remove(table, 2));
    hash_add(table, 7);
    EXPECT_EQ(hash_state_of(table), (hash_state{1, 21, 0, 0, 2, 5}));
    EXPECT_THAT(hash_keys_of(table), ElementsAre(0, 7, 1)); /* the target first */
    hash_add(table, 12);
    EXPECT_EQ(hash_state_of(table), (hash_state{4, 5, 0, 0, 0, 0}));
    hash_add(table, 17);
    EXPECT_EQ(hash_state_of(table), (hash_state{5, 5, 0, 21, 0, 0}));
}

TEST_F(Velhash, FiveSlotsNeverShrink)
{
    hash_add(table, 1);
    EXPECT_TRUE(hash_remove(table, 1));
    EXPECT_EQ(hash_state_of(table), (hash_state{0, 5, 0, 0, 0, 0}));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(Velhash, EnumerationGoesOnFromTheTargetToTheMainArray)
{
    for (int key : {0, 1, 2, 3, 5}) /* 0 and 5 share a slot */
        hash_add(table, key);
    EXPECT_THAT(hash_keys_of(table), ElementsAre(0, 5, 1, 2, 3)); /* the target is empty */
    hash_add(table, 41); /* in the last slot of the target, beyond which none is searched */
    EXPECT_THAT(hash_keys_of(table), ElementsAre(0, 41, 5, 1, 2, 3));
    hash_add(table, 20);
    EXPECT_THAT(hash_keys_of(table), ElementsAre(0, 5, 41, 20, 1, 2, 3));
}

/* Without a resize there is no check: the chain ends and the next slot follows. */
TEST_F(Velhash, EnumerateNextOfAForeignItemWithoutAResizeGoesOnBehindItsSlot)
{
    add_keys(0, 4);
    hash_item foreign{16, false, {}};
    auto *next = static_cast<hash_item *>(vel_hash_enumerate_next(table, &foreign));
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(next->key, 2);
    foreign.key = 4;
    EXPECT_EQ(vel_hash_enumerate_next(table, &foreign), nullptr);
}

TEST_F(Velhash, ClearDuringAGrowthLeavesFiveEmptySlots)
{
    add_keys(0, 7);
    log.clear();
    vel_hash_clear(table);
    EXPECT_EQ(hash_state_of(table), (hash_state{0, 5, 0, 0, 0, 0}));
    EXPECT_THAT(seen.destroyedkeys, ElementsAre(0, 1, 5, 6, 2, 3, 4)); /* bigger, then main */
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_THAT(hash_keys_of(table), IsEmpty());

    add_keys(0, 10); /* a growth after that begins from the first slot again */
    EXPECT_EQ(hash_state_of(table), (hash_state{10, 21, 0, 0, 0, 0}));
    EXPECT_THAT(hash_keys_of(table), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
}

TEST_F(Velhash, ClearDuringAShrinkLeavesFiveEmptySlots)
{
    fill_21_slots(3);
    EXPECT_TRUE(hash_remove(table, 2));
    hash_add(table, 7);
    ASSERT_EQ(hash_state_of(table), (hash_state{1, 21, 0, 0, 2, 5}));
    vel_hash_clear(table);
    EXPECT_EQ(hash_state_of(table), (hash_state{0, 5, 0, 0, 0, 0}));
    EXPECT_THAT(seen.destroyedkeys, ElementsAre(0, 7, 1)); /* smaller, then main */
}

TEST_F(Velhash, ClearOfABiggerTableReturnsToTheMinimum)
{
    fill_21_slots(12);
    vel_hash_clear(table);
    EXPECT_EQ(hash_state_of(table), (hash_state{0, 5, 0, 0, 0, 0}));
    EXPECT_THAT(seen.destroyedkeys, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11));
    EXPECT_THAT(log.take(), IsEmpty());
}

struct counting_context {
    velhash *table;
    std::vector<size_t> mainentries; /* at each call of the callback */
};

struct counting_item {
    vel_listlink link;
    size_t key;
};

static size_t counting_calc(const void *item, void *)
{
    return static_cast<const counting_item *>(item)->key;
}

static int counting_compare(const void *item1, const void *item2, void *)
{
    return static_cast<const counting_item *>(item1)->key !=
           static_cast<const counting_item *>(item2)->key;
}

static void counting_destroy(void *, void *context)
{
    auto *const seen = static_cast<counting_context *>(context);
    size_t mainentries = 99;
    vel_hash_debug_state(seen->table, &mainentries, nullptr, nullptr, nullptr, nullptr, nullptr);
    seen->mainentries.push_back(mainentries);
}

TEST(VelhashClear, AnItemCountsUntilItsCallbackHasReturnedButNotOneThatIsReplaced)
{
    counting_context seen{};
    counting_item items[] = {{{}, 0}, {{}, 1}, {{}, 2}, {{}, 2}};
    seen.table = vel_hash_create(offsetof(counting_item, link), counting_calc, counting_compare,
                                 counting_destroy, &seen);
    ASSERT_NE(seen.table, nullptr);

    for (counting_item &item : items)
        vel_hash_add(seen.table, &item);
    EXPECT_THAT(seen.mainentries, ElementsAre(2));
    vel_hash_clear(seen.table);
    EXPECT_THAT(seen.mainentries, ElementsAre(2, 3, 2, 1));
    vel_hash_destroy(seen.table);
}

TEST_F(Velhash, CreateFromDuringAResizeGivesAPlainEmptyTable)
{
    add_keys(0, 6);
    log.clear();
    velhash *copy = vel_hash_create_from(table);
    ASSERT_NE(copy, nullptr);
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(hash_state_of(copy), (hash_state{0, 5, 0, 0, 0, 0}));
    EXPECT_EQ(hash_state_of(table), (hash_state{4, 5, 2, 21, 0, 0}));
    seen.clear();
    hash_item *item = hash_add(copy, 1); /* with the callbacks, the offset and the context */
    EXPECT_EQ(hash_find(copy, 1), item);
    EXPECT_THAT(seen.hashed, ElementsAre(1, 1));
    vel_hash_destroy(copy);
    EXPECT_THAT(seen.destroyed, ElementsAre(item));
    EXPECT_NE(hash_find(table, 1), nullptr);
}

/* Not detected, and meant: the slot of the foreign item is emptied and an entry is counted off. */
TEST_F(Velhash, RemoveOfAForeignItemWithoutAResizeEmptiesItsSlot)
{
    hash_item *lost = hash_add(table, 1);
    hash_item *alsolost = hash_add(table, 6);
    hash_add(table, 2);
    hash_item foreign{11, false, {}};
    vel_hash_remove(table, &foreign);
    EXPECT_EQ(hash_state_of(table), (hash_state{2, 5, 0, 0, 0, 0}));
    EXPECT_EQ(hash_find(table, 1), nullptr);
    EXPECT_THAT(hash_keys_of(table), ElementsAre(2));
    foreign.key = 3; /* an empty slot: now the counters agree with the items again */
    vel_hash_remove(table, &foreign);
    EXPECT_EQ(hash_state_of(table), (hash_state{1, 5, 0, 0, 0, 0}));
    delete lost;
    delete alsolost;
}

/* The same in a large table, whose slots may be kept in another way: one slot of two items, and one
 * that has never had an item. */
TEST_F(Velhash, RemoveOfForeignItemsFromALargeTable)
{
    add_keys(0, 700);
    hash_item *lost = hash_find(table, 5);
    hash_item *alsolost = hash_add(table, 5 + 1365);
    ASSERT_EQ(hash_state_of(table), (hash_state{701, 1365, 0, 0, 0, 0}));
    for (int key : {5 + 2 * 1365, 1300}) {
        hash_item foreign{key, false, {}};
        vel_hash_remove(table, &foreign);
    }
    EXPECT_EQ(hash_state_of(table), (hash_state{699, 1365, 0, 0, 0, 0}));
    EXPECT_EQ(hash_keys_of(table).size(), 699u);
    EXPECT_EQ(hash_find(table, 5), nullptr);
    EXPECT_EQ(hash_find(table, 1300), nullptr);
    hash_item *item = hash_add(table, 1300);
    EXPECT_EQ(hash_find(table, 1300), item);
    EXPECT_EQ(hash_keys_of(table).back(), 1300);
    delete lost;
    delete alsolost;
}

TEST_F(Velhash, RemoveOfAForeignItemDuringAResizeChangesNothing)
{
    add_keys(0, 6);
    const std::vector<int> before = hash_keys_of(table);
    hash_item foreign{1, false, {}};
    vel_hash_remove(table, &foreign);
    EXPECT_EQ(hash_state_of(table), (hash_state{4, 5, 2, 21, 0, 0}));
    EXPECT_EQ(hash_keys_of(table), before);
    EXPECT_THAT(seen.destroyed, IsEmpty());
}

static bool hash_life()
{
    hash_observer seen;
    velhash *table = hash_create(&seen);
    if (!table)
        return false;
    for (int key = 0; key < 100; key++)
        hash_add(table, key);
    for (int key = 0; key < 99; key++)
        EXPECT_TRUE(hash_remove(table, key));
    for (int key = 0; key < 30; key++)
        hash_add(table, key);
    velhash *copy = vel_hash_create_from(table);
    if (copy)
        vel_hash_destroy(copy);
    EXPECT_EQ(hash_keys_of(table).size(), 31u);
    vel_hash_clear(table);
    EXPECT_THAT(hash_keys_of(table), IsEmpty());
    vel_hash_destroy(table);
    return copy != nullptr;
}

TEST(VelhashOom, Life)
{
    vel_oom_drive(hash_life);
}
