#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/hashmodel.h"
#include "support/hashwalk.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/stringhash.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using value_list = std::vector<void *>;

static void record_value(void *value, void *context)
{
    static_cast<value_list *>(context)->push_back(value);
}

static std::vector<std::pair<std::string, void *>> content_of(velstringhash *table)
{
    std::vector<std::pair<std::string, void *>> content;
    const char *key = "dirt";
    void *value = &content;
    for (void *item = vel_stringhash_enumerate_start(table, &key, &value); item;
         item = vel_stringhash_enumerate_next(table, item, &key, &value))
        content.emplace_back(key, value);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(value, nullptr);
    return content;
}

class Velstringhash : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_NE(table, nullptr);
    }

    ~Velstringhash() override
    {
        vel_stringhash_destroy(table);
    }

    value_list destroyed;
    velstringhash *table = vel_stringhash_create(record_value, &destroyed);
    int first = 1;
    int second = 2;
};

TEST_F(Velstringhash, LookupGivesTheValue)
{
    EXPECT_EQ(vel_stringhash_add(table, "a", &first), 0);
    EXPECT_EQ(vel_stringhash_add(table, "b", &second), 0);
    EXPECT_EQ(vel_stringhash_lookup(table, "a"), &first);
    EXPECT_EQ(vel_stringhash_lookup(table, "b"), &second);
    EXPECT_EQ(vel_stringhash_lookup(table, "c"), nullptr);
    EXPECT_THAT(destroyed, IsEmpty());
}

TEST_F(Velstringhash, AStoredNullLooksLikeAMissingKeyButIsThere)
{
    EXPECT_EQ(vel_stringhash_add(table, "a", nullptr), 0);
    EXPECT_EQ(vel_stringhash_lookup(table, "a"), nullptr);
    EXPECT_THAT(content_of(table), ElementsAre(std::pair{"a", nullptr}));
    EXPECT_EQ(vel_stringhash_remove(table, "a"), 0);
    EXPECT_THAT(destroyed, ElementsAre(nullptr));
}

TEST_F(Velstringhash, TheKeyIsCopied)
{
    char key[] = "key";
    EXPECT_EQ(vel_stringhash_add(table, key, &first), 0);
    key[0] = 'K';
    EXPECT_EQ(vel_stringhash_lookup(table, "key"), &first);
    const char *stored = nullptr;
    vel_stringhash_enumerate_start(table, &stored, nullptr);
    EXPECT_STREQ(stored, "key");
    EXPECT_NE(stored, key);
}

TEST_F(Velstringhash, KeysAreCaseSensitiveAndMayBeEmptyOrAnyBytes)
{
    EXPECT_EQ(vel_stringhash_add(table, "Key", &first), 0);
    EXPECT_EQ(vel_stringhash_lookup(table, "key"), nullptr);
    EXPECT_EQ(vel_stringhash_add(table, "", &second), 0);
    EXPECT_EQ(vel_stringhash_lookup(table, ""), &second);
    EXPECT_EQ(vel_stringhash_add(table, "\xff\x80\n", &destroyed), 0);
    EXPECT_EQ(vel_stringhash_lookup(table, "\xff\x80\n"), &destroyed);
}

TEST_F(Velstringhash, AnAddWithTheSameKeyReplacesTheValue)
{
    EXPECT_EQ(vel_stringhash_add(table, "a", &first), 0);
    EXPECT_EQ(vel_stringhash_add(table, "a", &second), 0);
    EXPECT_THAT(destroyed, ElementsAre(&first));
    EXPECT_THAT(content_of(table), ElementsAre(std::pair{"a", &second}));
}

/* The item that has the key goes while the other array, which has one with the same hash, is still to
 * be searched. */
TEST_F(Velstringhash, AnAddMayTakeItsKeyFromTheItemThatItReplaces)
{
    const std::vector<std::string> filling = {"d", "n", "x", "\x82"}; /* all in slot 0 of 5 */
    for (const std::string &key : filling)
        ASSERT_EQ(vel_stringhash_add(table, key.c_str(), nullptr), 0);
    ASSERT_EQ(vel_stringhash_add(table, "AAAAAAA@xxxxxxxb", &first), 0);
    ASSERT_EQ(vel_stringhash_add(table, "AAAAAAAAxxxxxxxB", &second), 0);
    ASSERT_EQ(vel_hashfunc_string("AAAAAAA@xxxxxxxb"), vel_hashfunc_string("AAAAAAAAxxxxxxxB"));

    const char *key = nullptr;
    void *value = nullptr;
    void *item = vel_stringhash_enumerate_start(table, &key, &value);
    while (item && value != &first)
        item = vel_stringhash_enumerate_next(table, item, &key, &value);
    ASSERT_STREQ(key, "AAAAAAA@xxxxxxxb");
    EXPECT_EQ(vel_stringhash_add(table, key, &destroyed), 0);
    EXPECT_THAT(destroyed, ElementsAre(&first));
    EXPECT_EQ(vel_stringhash_lookup(table, "AAAAAAA@xxxxxxxb"), &destroyed);
    EXPECT_EQ(vel_stringhash_lookup(table, "AAAAAAAAxxxxxxxB"), &second);
}

TEST_F(Velstringhash, RemoveRunsTheCallback)
{
    EXPECT_EQ(vel_stringhash_add(table, "a", &first), 0);
    EXPECT_EQ(vel_stringhash_remove(table, "a"), 0);
    EXPECT_THAT(destroyed, ElementsAre(&first));
    EXPECT_THAT(content_of(table), IsEmpty());
}

TEST_F(Velstringhash, RemoveOfAMissingKeyGivesMinusOneAndRunsNoCallback)
{
    EXPECT_EQ(vel_stringhash_add(table, "a", &first), 0);
    EXPECT_EQ(vel_stringhash_remove(table, "b"), -1);
    EXPECT_THAT(destroyed, IsEmpty());
    EXPECT_EQ(vel_stringhash_lookup(table, "a"), &first);
}

TEST_F(Velstringhash, ClearAndDestroyRunTheCallback)
{
    EXPECT_EQ(vel_stringhash_add(table, "a", &first), 0);
    EXPECT_EQ(vel_stringhash_add(table, "b", &second), 0);
    vel_stringhash_clear(table);
    EXPECT_THAT(destroyed, UnorderedElementsAre(&first, &second));
    EXPECT_EQ(vel_stringhash_lookup(table, "a"), nullptr);

    destroyed.clear();
    velstringhash *other = vel_stringhash_create(record_value, &destroyed);
    EXPECT_EQ(vel_stringhash_add(other, "a", &first), 0);
    vel_stringhash_destroy(other);
    EXPECT_THAT(destroyed, ElementsAre(&first));
}

TEST(VelstringhashCreate, WithoutACallbackValuesAreDropped)
{
    velstringhash *table = vel_stringhash_create(nullptr, nullptr);
    ASSERT_NE(table, nullptr);
    int value = 0;
    EXPECT_EQ(vel_stringhash_add(table, "a", &value), 0);
    EXPECT_EQ(vel_stringhash_add(table, "a", &table), 0);
    EXPECT_EQ(vel_stringhash_add(table, "b", &value), 0);
    EXPECT_EQ(vel_stringhash_add(table, "c", &value), 0);
    EXPECT_EQ(vel_stringhash_remove(table, "b"), 0);
    vel_stringhash_clear(table);
    EXPECT_EQ(vel_stringhash_add(table, "a", &value), 0);
    vel_stringhash_destroy(table);
}

TEST_F(Velstringhash, CreateFromHasTheCallbackAndTheContextButNoItems)
{
    EXPECT_EQ(vel_stringhash_add(table, "a", &first), 0);
    velstringhash *copy = vel_stringhash_create_from(table);
    ASSERT_NE(copy, nullptr);
    EXPECT_THAT(content_of(copy), IsEmpty());
    EXPECT_EQ(vel_stringhash_add(copy, "a", &second), 0);
    EXPECT_EQ(vel_stringhash_lookup(table, "a"), &first);
    vel_stringhash_destroy(copy);
    EXPECT_THAT(destroyed, ElementsAre(&second));
}

TEST_F(Velstringhash, EnumerationTakesNullForEachOutput)
{
    EXPECT_EQ(vel_stringhash_add(table, "a", &first), 0);
    const char *key = "dirt";
    void *value = &second;
    void *item = vel_stringhash_enumerate_start(table, &key, nullptr);
    ASSERT_NE(item, nullptr);
    EXPECT_STREQ(key, "a");
    EXPECT_EQ(vel_stringhash_enumerate_next(table, item, &key, nullptr), nullptr);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(vel_stringhash_enumerate_start(table, nullptr, &value), item);
    EXPECT_EQ(value, &first);
    EXPECT_EQ(vel_stringhash_enumerate_next(table, item, nullptr, &value), nullptr);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(vel_stringhash_enumerate_start(table, nullptr, nullptr), item);
    EXPECT_EQ(vel_stringhash_enumerate_next(table, item, nullptr, nullptr), nullptr);
}

TEST_F(Velstringhash, EnumerationOfAnEmptyTableWritesItsOutputs)
{
    EXPECT_THAT(content_of(table), IsEmpty());
}

/* The order of enumeration shows the slots, the resizes and what has moved. */
class VelstringhashModel : public testing::Test {
  protected:
    friend hash_walk;

    static constexpr int kKeys = 30000;

    VelstringhashModel()
        : keys(make_keys()), walk(20261121, kKeys),
          model([this](int key) { return static_cast<size_t>(string_hash(keys[key])); })
    {
    }

    ~VelstringhashModel() override
    {
        vel_stringhash_destroy(table);
    }

    /* Lengths from 0 to about 20, so that all forms of the last group occur. */
    static std::vector<std::string> make_keys()
    {
        static const std::string filler = "abcdefghijklmno";
        std::set<std::string> distinct{""};
        for (int number = 0; distinct.size() < kKeys; number++)
            distinct.insert(filler.substr(0, number % 15) + std::to_string(number));
        return {distinct.begin(), distinct.end()};
    }

    void step()
    {
        destroyed.clear();
        walk.take_step(*this);
        const hash_state state = model.state();
        if (state.mainslots + state.biggerslots < 120)
            compare_enumeration();
    }

    void add(int key)
    {
        void *value = &values[serial++ % kKeys];
        value_list replaced;
        if (const auto old = items.find(key); old != items.end())
            replaced.push_back(old->second);
        else
            walk.added(key);
        ASSERT_EQ(vel_stringhash_add(table, keys[key].c_str(), value), 0);
        ASSERT_EQ(destroyed, replaced);
        ASSERT_EQ(model.add(key).found, !replaced.empty());
        items[key] = value;
    }

    void remove(int key)
    {
        ASSERT_EQ(vel_stringhash_remove(table, keys[key].c_str()), 0);
        ASSERT_THAT(destroyed, ElementsAre(items.at(key)));
        ASSERT_TRUE(model.lookup(key).found);
        ASSERT_TRUE(model.remove(key).found);
        items.erase(key);
        walk.removed(key);
    }

    void find(int key)
    {
        const auto known = items.find(key);
        void *value = known == items.end() ? nullptr : known->second;
        ASSERT_EQ(vel_stringhash_lookup(table, keys[key].c_str()), value);
        ASSERT_EQ(model.lookup(key).found, known != items.end());
        if (known == items.end()) {
            ASSERT_EQ(vel_stringhash_remove(table, keys[key].c_str()), -1);
        }
        ASSERT_TRUE(destroyed.empty());
    }

    void clear()
    {
        value_list expected;
        for (const int key : model.clear())
            expected.push_back(items.at(key));
        vel_stringhash_clear(table);
        ASSERT_EQ(destroyed, expected);
        items.clear();
        walk.cleared();
    }

    void compare_enumeration()
    {
        const char *key = nullptr;
        void *value = nullptr;
        void *item = vel_stringhash_enumerate_start(table, &key, &value);
        for (const int expected : model.enumerate()) {
            ASSERT_NE(item, nullptr);
            ASSERT_EQ(key, keys[expected]);
            ASSERT_EQ(value, items.at(expected));
            item = vel_stringhash_enumerate_next(table, item, &key, &value);
        }
        ASSERT_EQ(item, nullptr);
    }

    std::vector<std::string> keys;
    hash_walk walk;
    hash_model model;
    value_list destroyed;
    velstringhash *table = vel_stringhash_create(record_value, &destroyed);
    std::map<int, void *> items;
    std::vector<char> values = std::vector<char>(kKeys);
    size_t serial = 0;
};

TEST_F(VelstringhashModel, AgreesAfterEveryStep)
{
    size_t mostslots = 0;
    for (int i = 0; i < 1000000; i++) {
        ASSERT_NO_FATAL_FAILURE(step()) << "in step " << i;
        mostslots = std::max(mostslots, model.state().mainslots);
        if (i % 1009 == 0) {
            ASSERT_NO_FATAL_FAILURE(compare_enumeration()) << "after step " << i;
        }
    }
    EXPECT_EQ(mostslots, 21845u);
}

TEST_F(Velstringhash, AnAddWithoutMemoryChangesNothingAndLogsNothing)
{
    log_capture log;
    EXPECT_EQ(vel_stringhash_add(table, "a", &first), 0);
    const auto failures = allocfail_each(log, [this] {
        if (vel_stringhash_add(table, "a", &second) == 0)
            return true;
        EXPECT_EQ(vel_stringhash_lookup(table, "a"), &first);
        EXPECT_THAT(destroyed, IsEmpty());
        return false;
    });
    ASSERT_FALSE(failures.empty());
    EXPECT_THAT(failures, testing::Each(IsEmpty()));
    EXPECT_EQ(vel_stringhash_lookup(table, "a"), &second);
}

TEST_F(Velstringhash, AGrowthWithoutMemoryDoesNotFailTheAdd)
{
    log_capture log;
    for (const char *key : {"a", "b", "c", "d"})
        EXPECT_EQ(vel_stringhash_add(table, key, &first), 0);
    size_t succeeded = 0;
    allocfail_each(log, [this, &succeeded] {
        const bool added = vel_stringhash_add(table, "e", &second) == 0;
        malloc_pause pause;
        succeeded += added;
        EXPECT_EQ(vel_stringhash_lookup(table, "e"), added ? &second : nullptr);
        if (added)
            vel_stringhash_clear(table);
        for (const char *key : {"a", "b", "c", "d"})
            EXPECT_EQ(vel_stringhash_add(table, key, &first), 0);
        return added;
    });
    EXPECT_GE(succeeded, 2u); /* without the array, without its slots, and in the log */
}

static bool stringhash_life()
{
    value_list destroyed;
    velstringhash *table = vel_stringhash_create(record_value, &destroyed);
    if (!table)
        return false;
    bool good = true;
    for (int i = 0; good && i < 100; i++)
        good = vel_stringhash_add(table, std::to_string(i).c_str(), table) == 0;
    good = good && vel_stringhash_add(table, "7", nullptr) == 0;
    for (int i = 0; good && i < 99; i++)
        EXPECT_EQ(vel_stringhash_remove(table, std::to_string(i).c_str()), 0);
    velstringhash *copy = good ? vel_stringhash_create_from(table) : nullptr;
    if (copy) {
        EXPECT_EQ(vel_stringhash_lookup(table, "99"), table);
        good = vel_stringhash_add(copy, "1", table) == 0;
        vel_stringhash_destroy(copy);
        vel_stringhash_clear(table);
    }
    vel_stringhash_destroy(table);
    return good && copy;
}

TEST(VelstringhashOom, Life)
{
    vel_oom_drive(stringhash_life);
}

using VelstringhashDeathTest = Velstringhash;

TEST_F(VelstringhashDeathTest, EveryFunctionAssertsTheTable)
{
    const char *key = nullptr;
    void *value = nullptr;
    EXPECT_DEATH(vel_stringhash_create_from(nullptr),
                 asserts("original != NULL", "vel_stringhash_create_from"));
    EXPECT_DEATH(vel_stringhash_destroy(nullptr),
                 asserts("velstringhash != NULL", "vel_stringhash_destroy"));
    EXPECT_DEATH(vel_stringhash_clear(nullptr),
                 asserts("velstringhash != NULL", "vel_stringhash_clear"));
    EXPECT_DEATH(vel_stringhash_add(nullptr, "a", nullptr),
                 asserts("velstringhash != NULL", "vel_stringhash_add"));
    EXPECT_DEATH(vel_stringhash_remove(nullptr, "a"),
                 asserts("velstringhash != NULL", "vel_stringhash_remove"));
    EXPECT_DEATH(vel_stringhash_lookup(nullptr, "a"),
                 asserts("velstringhash != NULL", "vel_stringhash_lookup"));
    EXPECT_DEATH(vel_stringhash_enumerate_start(nullptr, &key, &value),
                 asserts("velstringhash != NULL", "vel_stringhash_enumerate_start"));
    EXPECT_DEATH(vel_stringhash_enumerate_next(nullptr, this, &key, &value),
                 asserts("velstringhash != NULL", "vel_stringhash_enumerate_next"));
}

TEST_F(VelstringhashDeathTest, EveryFunctionAssertsTheKeyOrTheItem)
{
    EXPECT_DEATH(vel_stringhash_add(table, nullptr, nullptr),
                 asserts("key != NULL", "vel_stringhash_add"));
    EXPECT_DEATH(vel_stringhash_remove(table, nullptr),
                 asserts("key != NULL", "vel_stringhash_remove"));
    EXPECT_DEATH(vel_stringhash_lookup(table, nullptr),
                 asserts("key != NULL", "vel_stringhash_lookup"));
    EXPECT_DEATH(vel_stringhash_enumerate_next(table, nullptr, nullptr, nullptr),
                 asserts("prevstringhashitem != NULL", "vel_stringhash_enumerate_next"));
}
