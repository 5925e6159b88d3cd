#include <cstdint>
#include <map>
#include <ostream>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/hashitems.h"
#include "support/hashmodel.h"
#include "support/hashwalk.h"
#include "support/rows.h"

using namespace support;

struct model_run {
    const char *name;
    size_t (*hash)(int key);
    int keys; /* the keys go from 0 up to this */
    int steps;
};

static void PrintTo(const model_run &run, std::ostream *out)
{
    *out << run.name;
}

/* One table, beside a std::map for its content and the model for its shape. */
class table_under_test {
  public:
    explicit table_under_test(const model_run &run)
        : walk(20261121, run.keys), model(run.hash),
          table((seen.hash = run.hash, hash_create(&seen)))
    {
    }

    ~table_under_test()
    {
        seen.clear();
        const std::vector<int> keys = model.clear();
        vel_hash_destroy(table);
        EXPECT_EQ(seen.destroyedkeys, keys);
    }

    void step()
    {
        seen.clear();
        walk.take_step(*this);
        compare_shape();
    }

    void compare_enumeration()
    {
        ASSERT_EQ(hash_keys_of(table), model.enumerate());
    }

    std::set<size_t> growths; /* the slot counts that were grown to, and shrunk to */
    std::set<size_t> shrinks;

  private:
    friend hash_walk;

    void add(int key)
    {
        const auto old = items.find(key);
        std::vector<const hash_item *> destroyed;
        if (old != items.end())
            destroyed.push_back(old->second);
        else
            walk.added(key);
        items[key] = hash_add(table, key);
        const hash_model::outcome outcome = model.add(key);
        ASSERT_EQ(outcome.found, !destroyed.empty());
        ASSERT_EQ(seen.destroyed, destroyed);
        expect_hashed(key, outcome);
    }

    void find(int key)
    {
        const auto known = items.find(key);
        hash_item *found = hash_find(table, key);
        const hash_model::outcome outcome = model.lookup(key);
        ASSERT_EQ(found, known == items.end() ? nullptr : known->second);
        ASSERT_EQ(outcome.found, found != nullptr);
        ASSERT_TRUE(seen.destroyed.empty());
        compare_shape();
        seen.hashed.clear();
    }

    void remove(int key)
    {
        find(key);
        hash_item *item = items.at(key);
        vel_hash_remove(table, item);
        const hash_model::outcome outcome = model.remove(key);
        ASSERT_TRUE(outcome.found);
        ASSERT_TRUE(seen.destroyed.empty());
        expect_hashed(key, outcome);
        items.erase(key);
        walk.removed(key);
        delete item;
    }

    void clear()
    {
        const std::vector<int> keys = model.clear();
        vel_hash_clear(table);
        ASSERT_EQ(seen.destroyedkeys, keys);
        items.clear();
        walk.cleared();
    }

    /* The hash calls of a step tell which item has moved: its own, and that of the item moved. */
    void expect_hashed(int key, const hash_model::outcome &outcome)
    {
        std::vector<int> expected{key};
        if (outcome.moved)
            expected.push_back(*outcome.moved);
        ASSERT_EQ(seen.hashed, expected);
    }

    void compare_shape()
    {
        const hash_state state = hash_state_of(table);
        ASSERT_EQ(state, model.state());
        ASSERT_EQ(state.mainentries + state.biggerentries + state.smallerentries, items.size());
        if (state.mainslots > mainslots)
            growths.insert(state.mainslots);
        if (state.mainslots < mainslots)
            shrinks.insert(state.mainslots);
        mainslots = state.mainslots;
        /* The cost of an enumeration is that of the slots. */
        if (state.mainslots + state.biggerslots < 120)
            compare_enumeration();
    }

    hash_walk walk;
    hash_model model;
    hash_observer seen;
    std::map<int, hash_item *> items;
    size_t mainslots = 5;
    velhash *table;
};

class VelhashModel : public testing::TestWithParam<model_run> {};

TEST_P(VelhashModel, AgreesAfterEveryStep)
{
    table_under_test table(GetParam());
    for (int step = 0; step < GetParam().steps; step++) {
        ASSERT_NO_FATAL_FAILURE(table.step()) << "in step " << step;
        if (step % 1009 == 0) {
            ASSERT_NO_FATAL_FAILURE(table.compare_enumeration()) << "after step " << step;
        }
    }
    EXPECT_EQ(table.growths, (std::set<size_t>{21, 85, 341, 1365, 5461, 21845}));
    EXPECT_EQ(table.shrinks, (std::set<size_t>{5, 21, 85, 341, 1365, 5461}));
}

static const model_run kRuns[] = {
    {"Scattered", [](int key) { return static_cast<size_t>(key * UINT64_C(0x9E3779B97F4A7C15)); },
     30000, 1000000},
    {"Identity", [](int key) { return static_cast<size_t>(key); }, 8000, 150000},
    {"Colliding", [](int key) { return SIZE_MAX - static_cast<size_t>(key) / 16; }, 8000, 150000},
};

INSTANTIATE_TEST_SUITE_P(Hash, VelhashModel, testing::ValuesIn(kRuns), row_name());
