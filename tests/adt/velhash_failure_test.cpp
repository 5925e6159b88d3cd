#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/hashitems.h"
#include "support/logcapture.h"

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

static const char kModule[] = "adt/velhash";
static const char kNoStructure[] = "not enough memory for hash array structure";

static log_line no_slots(size_t bytes)
{
    return {kModule, 7,
            "not enough memory for hash array slots (" + std::to_string(bytes) + " bytes)"};
}

TEST(VelhashMemory, CreateLogsWhatWasMissing)
{
    log_capture log;
    const auto failures = allocfail_lines(log, [] {
        hash_observer seen;
        velhash *table = hash_create(&seen);
        if (table)
            vel_hash_destroy(table);
        return table != nullptr;
    });
    EXPECT_THAT(failures,
                ElementsAre(log_line{kModule, 7, "not enough memory for velhash structure"},
                            log_line{kModule, 7, kNoStructure}, no_slots(80)));
}

TEST(VelhashMemory, CreateFromLogsWhatWasMissing)
{
    log_capture log;
    hash_observer seen;
    velhash *table = hash_create(&seen);
    const auto failures = allocfail_each(log, [table] {
        velhash *copy = vel_hash_create_from(table);
        if (copy)
            vel_hash_destroy(copy);
        return copy != nullptr;
    });
    ASSERT_EQ(failures.size(), 3u);
    EXPECT_THAT(failures[0],
                ElementsAre(log_line{kModule, 7, "not enough memory for duplicating hashtable"}));
    EXPECT_THAT(failures[1], Contains(log_line{kModule, 7, kNoStructure}));
    EXPECT_THAT(failures[2], Contains(no_slots(80)));
    vel_hash_destroy(table);
}

/* A resize starts, fails for lack of either part of the new array, and starts again. */
static void expect_second_start(const std::vector<std::vector<log_line>> &failures,
                                const std::string &verb, size_t from, size_t to)
{
    const std::string slots = std::to_string(to) + " slots";
    const log_line start{kModule, 13, "start " + verb + "ing hashtable to " + slots};
    const log_line kept{kModule, 7,
                        "not enough memory to " + verb + " the hashtable from " +
                            std::to_string(from) + " to " + slots};
    EXPECT_THAT(failures,
                ElementsAre(ElementsAre(start, log_line{kModule, 7, kNoStructure}, kept, start),
                            ElementsAre(start, no_slots(16 * to), kept, start)));
}

/* A table of the keys from 0 on, of which those from left on are removed again. It meets no failure,
 * and nothing of it is left in the log. */
static velhash *table_with(hash_observer *seen, log_capture *log, int added, int left)
{
    malloc_pause pause;
    velhash *table = hash_create(seen);
    for (int key = 0; key < added; key++)
        hash_add(table, key);
    for (int key = added - 1; key >= left; key--)
        EXPECT_TRUE(hash_remove(table, key));
    log->clear();
    return table;
}

TEST(VelhashMemory, AGrowthThatCannotStartIsTriedAgainByTheNextAdd)
{
    log_capture log;
    const auto failures = allocfail_each(log, [&log] {
        hash_observer seen;
        velhash *table = table_with(&seen, &log, 4, 4);
        hash_add(table, 4);
        const bool grows = hash_state_of(table).biggerslots == 21;
        if (!grows) {
            EXPECT_EQ(hash_state_of(table), (hash_state{5, 5, 0, 0, 0, 0}));
            hash_add(table, 5);
            EXPECT_EQ(hash_state_of(table), (hash_state{6, 5, 0, 21, 0, 0}));
            EXPECT_THAT(hash_keys_of(table), ElementsAre(0, 5, 1, 2, 3, 4));
        }
        vel_hash_destroy(table);
        return grows;
    });
    expect_second_start(failures, "grow", 5, 21);
}

TEST(VelhashMemory, AShrinkThatCannotStartIsTriedAgainByTheNextRemove)
{
    log_capture log;
    const auto failures = allocfail_each(log, [&log] {
        hash_observer seen;
        velhash *table = table_with(&seen, &log, 10, 3);
        EXPECT_TRUE(hash_remove(table, 2));
        const bool shrinks = hash_state_of(table).smallerslots == 5;
        if (!shrinks) {
            EXPECT_EQ(hash_state_of(table), (hash_state{2, 21, 0, 0, 0, 0}));
            EXPECT_TRUE(hash_remove(table, 1));
            EXPECT_EQ(hash_state_of(table), (hash_state{1, 21, 0, 0, 0, 5}));
        }
        vel_hash_destroy(table);
        return shrinks;
    });
    expect_second_start(failures, "shrink", 21, 5);
}

TEST(VelhashMemory, AClearThatCannotShrinkKeepsTheSize)
{
    log_capture log;
    const auto failures = allocfail_each(log, [&log] {
        hash_observer seen;
        velhash *table = table_with(&seen, &log, 12, 12);
        vel_hash_clear(table);
        const bool minimal = hash_state_of(table).mainslots == 5;
        EXPECT_EQ(hash_state_of(table), (hash_state{0, minimal ? 5u : 21u, 0, 0, 0, 0}));
        EXPECT_EQ(seen.destroyed.size(), 12u);
        hash_item *item = hash_add(table, 30);
        EXPECT_EQ(hash_find(table, 30), item);
        vel_hash_destroy(table);
        return minimal;
    });
    const log_line kept{
        kModule, 7,
        "not enough memory to return the hash array to the minimum size, keeping the current size"};
    EXPECT_THAT(failures, ElementsAre(ElementsAre(log_line{kModule, 7, kNoStructure}, kept),
                                      ElementsAre(no_slots(80), kept)));
}

/* The only way to a target filled beyond its threshold: the check does not look at it. */
TEST(VelhashMemory, NoGrowthStartsWhereAResizeEnds)
{
    hash_observer seen;
    log_capture log;
    velhash *table = hash_create(&seen);
    for (int key = 0; key < 4; key++)
        hash_add(table, key);
    {
        malloc_watch all(1, SIZE_MAX);
        for (int key = 4; key < 40; key++)
            hash_add(table, key);
    }
    EXPECT_EQ(hash_state_of(table), (hash_state{40, 5, 0, 0, 0, 0}));
    EXPECT_EQ(hash_keys_of(table).size(), 40u);

    hash_add(table, 40);
    ASSERT_EQ(hash_state_of(table), (hash_state{41, 5, 0, 21, 0, 0}));
    for (int key = 41; key < 82; key++)
        hash_add(table, key);
    EXPECT_EQ(hash_state_of(table), (hash_state{82, 21, 0, 0, 0, 0}));
    hash_add(table, 82);
    EXPECT_EQ(hash_state_of(table), (hash_state{83, 21, 0, 85, 0, 0}));
    vel_hash_destroy(table);
}

TEST(VelhashMemory, AShrinkMayStartWithAnEmptyMainArray)
{
    hash_observer seen;
    log_capture log;
    velhash *table = hash_create(&seen);
    for (int key = 0; key < 10; key++)
        hash_add(table, key);
    for (int key = 9; key > 2; key--)
        EXPECT_TRUE(hash_remove(table, key));
    {
        malloc_watch all(1, SIZE_MAX);
        EXPECT_TRUE(hash_remove(table, 2));
        EXPECT_TRUE(hash_remove(table, 1));
    }
    ASSERT_EQ(hash_state_of(table), (hash_state{1, 21, 0, 0, 0, 0}));

    EXPECT_TRUE(hash_remove(table, 0));
    EXPECT_EQ(hash_state_of(table), (hash_state{0, 21, 0, 0, 0, 5}));
    EXPECT_EQ(hash_find(table, 0), nullptr);
    EXPECT_THAT(hash_keys_of(table), IsEmpty());
    EXPECT_EQ(hash_state_of(table), (hash_state{0, 21, 0, 0, 0, 5}));
    hash_add(table, 3);
    EXPECT_EQ(hash_state_of(table), (hash_state{1, 5, 0, 0, 0, 0}));
    vel_hash_destroy(table);
}

class VelhashDeathTest : public testing::Test {
  protected:
    ~VelhashDeathTest() override
    {
        vel_hash_destroy(table);
    }

    hash_observer seen;
    velhash *table = hash_create(&seen);
    hash_item item{1, false, {}};
};

TEST_F(VelhashDeathTest, CreateAssertsItsCallbacks)
{
    EXPECT_DEATH(vel_hash_create(0, nullptr, hash_item_compare, hash_item_destroy, nullptr),
                 asserts("calchashcallback != NULL"));
    EXPECT_DEATH(vel_hash_create(0, hash_item_calc, nullptr, hash_item_destroy, nullptr),
                 asserts("comparecallback != NULL"));
    EXPECT_DEATH(vel_hash_create(0, hash_item_calc, hash_item_compare, nullptr, nullptr),
                 asserts("destroycallback != NULL"));
}

TEST_F(VelhashDeathTest, EveryFunctionAssertsTheTable)
{
    EXPECT_DEATH(vel_hash_create_from(nullptr),
                 asserts("original != NULL", "vel_hash_create_from"));
    EXPECT_DEATH(vel_hash_destroy(nullptr), asserts("velhash != NULL", "vel_hash_destroy"));
    EXPECT_DEATH(vel_hash_clear(nullptr), asserts("velhash != NULL", "vel_hash_clear"));
    EXPECT_DEATH(vel_hash_add(nullptr, &item), asserts("velhash != NULL", "vel_hash_add"));
    EXPECT_DEATH(vel_hash_remove(nullptr, &item), asserts("velhash != NULL", "vel_hash_remove"));
    EXPECT_DEATH(vel_hash_lookup(nullptr, &item), asserts("velhash != NULL", "vel_hash_lookup"));
    EXPECT_DEATH(vel_hash_enumerate_start(nullptr),
                 asserts("velhash != NULL", "vel_hash_enumerate_start"));
    EXPECT_DEATH(vel_hash_enumerate_next(nullptr, &item),
                 asserts("velhash != NULL", "vel_hash_enumerate_next"));
    EXPECT_DEATH(
        vel_hash_debug_state(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
        asserts("velhash != NULL", "vel_hash_debug_state"));
}

TEST_F(VelhashDeathTest, EveryFunctionAssertsTheItem)
{
    EXPECT_DEATH(vel_hash_add(table, nullptr), asserts("item != NULL", "vel_hash_add"));
    EXPECT_DEATH(vel_hash_remove(table, nullptr), asserts("item != NULL", "vel_hash_remove"));
    EXPECT_DEATH(vel_hash_lookup(table, nullptr), asserts("searchitem != NULL", "vel_hash_lookup"));
    EXPECT_DEATH(vel_hash_enumerate_next(table, nullptr),
                 asserts("item != NULL", "vel_hash_enumerate_next"));
}

TEST_F(VelhashDeathTest, EnumerateNextOfAForeignItemDuringAResize)
{
    for (int key = 0; key < 6; key++)
        hash_add(table, key);
    hash_item foreign{1, false, {}};
    EXPECT_DEATH(vel_hash_enumerate_next(table, &foreign),
                 "adt/velhash:[0-9]+\\[6\\] invalid hash item\n"
                 "adt/velhash:[0-9]+: Assertion failed\\.\n");
}

TEST_F(VelhashDeathTest, RemoveFromAnEmptyTable)
{
    EXPECT_DEATH(vel_hash_remove(table, &item),
                 asserts("targethasharray->entries > 0", "vel_hash_remove"));
}

/* The contract is a lookup first: a remove straight from an enumeration counts the item off the
 * target, although it lies in the main array. */
static void remove_without_lookup(velhash *table)
{
    for (int key = 0; key < 6; key++)
        hash_add(table, key); /* 1, 2, 3 and 4 in the main array, 0 and 5 in the bigger */
    void *last = nullptr;
    for (void *each = vel_hash_enumerate_start(table); each;
         each = vel_hash_enumerate_next(table, each))
        last = each;
    vel_hash_remove(table, last);
    const hash_state state = hash_state_of(table);
    vel_stdio_printf_stderr("main %lu/%lu bigger %lu/%lu\n", state.mainentries, state.mainslots,
                            state.biggerentries, state.biggerslots);
    vel_hash_destroy(table);
}

TEST_F(VelhashDeathTest, RemoveWithoutALookupDuringAResizeBreaksTheCounters)
{
    EXPECT_DEATH(remove_without_lookup(table),
                 "main 3/5 bigger 2/21\n.*\\(velhasharray->entries == 0\\)");
}

TEST_F(VelhashDeathTest, AMoveAssertsThatTheComparisonFindsTheItem)
{
    for (int key = 0; key < 5; key++)
        hash_add(table, key);
    auto add_with_broken_comparison = [this] {
        seen.neverequal = true;
        hash_add(table, 5);
    };
    EXPECT_DEATH(add_with_broken_comparison(),
                 asserts("it == firstitem", "vel_hash_move_one_item"));
}

TEST_F(VelhashDeathTest, ALookupAssertsThatTheComparisonFindsTheItemAgain)
{
    for (int key = 0; key < 5; key++)
        hash_add(table, key);
    auto find_with_broken_comparison = [this] {
        seen.equalonlywhensearching = true;
        hash_find(table, 3);
    };
    EXPECT_DEATH(find_with_broken_comparison(), asserts("it == item"));
}
