#include <algorithm>
#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/oom.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static const char kModule[] = "adt/velcache";

static vel_error_t set_block(velcache *cache, const std::string &key, const std::string &data)
{
    return vel_cache_set(cache, key.c_str(), data.data(), data.size());
}

static std::optional<std::string> get_block(velcache *cache, const std::string &key)
{
    const void *data = "dirt";
    size_t length = 77;
    const vel_error_t result = vel_cache_get(cache, key.c_str(), &data, &length);
    if (result == VEL_ERROR_NONE) {
        EXPECT_NE(data, nullptr);
        return std::string(static_cast<const char *>(data), length);
    }
    EXPECT_EQ(result, VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0u);
    return {};
}

class Velcache : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_NE(cache, nullptr);
        log.clear();
    }

    ~Velcache() override
    {
        log.clear();
        vel_cache_destroy(cache);
        EXPECT_THAT(log.take(), IsEmpty()); /* the accounting ends at 0 */
    }

    /* Adds items of size bytes each, of which the first is the oldest. */
    void set_items(const std::string &keys, size_t size)
    {
        for (const char key : keys)
            EXPECT_EQ(set_block(cache, std::string(1, key), std::string(size - 49, key)),
                      VEL_ERROR_NONE);
    }

    /* Those of the keys a to z that are in the cache. */
    std::string keys()
    {
        std::string present;
        for (char key = 'a'; key <= 'z'; key++)
            if (get_block(cache, std::string(1, key)))
                present.push_back(key);
        return present;
    }

    log_capture log;
    velcache *cache = vel_cache_create(1000);
};

TEST_F(Velcache, GetGivesACopyOfTheBlock)
{
    char data[] = {'a', 0, 'b'};
    EXPECT_EQ(vel_cache_set(cache, "key", data, sizeof(data)), VEL_ERROR_NONE);
    data[0] = 'x';
    EXPECT_EQ(get_block(cache, "key"), std::string("a\0b", 3));
}

TEST_F(Velcache, GetOfAMissingKeyWritesBothOutputsAndLogsNothing)
{
    log.clear();
    EXPECT_EQ(get_block(cache, "key"), std::nullopt);
    EXPECT_EQ(set_block(cache, "key", "data"), VEL_ERROR_NONE);
    EXPECT_EQ(get_block(cache, "Key"), std::nullopt);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(Velcache, SetReplacesTheBlock)
{
    EXPECT_EQ(set_block(cache, "key", "one"), VEL_ERROR_NONE);
    EXPECT_EQ(set_block(cache, "key", "second"), VEL_ERROR_NONE);
    EXPECT_EQ(get_block(cache, "key"), "second");
}

TEST_F(Velcache, ABlockOfNoBytesIsABlock)
{
    EXPECT_EQ(vel_cache_set(cache, "key", "", 0), VEL_ERROR_NONE);
    const void *data = nullptr;
    size_t length = 77;
    EXPECT_EQ(vel_cache_get(cache, "key", &data, &length), VEL_ERROR_NONE);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(length, 0u);
    const volatile char byte = *static_cast<const char *>(data); /* the block has one byte */
    (void)byte;
}

TEST_F(Velcache, ABlockOfNoBytesCountsFortyEightAndItsKey)
{
    vel_cache_set_memory_limit(cache, 48 + 3 - 1);
    EXPECT_EQ(set_block(cache, "key", ""), VEL_ERROR_OUT_OF_RANGE);
    EXPECT_THAT(
        log.take(),
        ElementsAre(log_line{
            kModule, 6, "cache item size exceeds the maximum cache size limit (51 > 50 bytes)"}));
    vel_cache_set_memory_limit(cache, 48 + 3 + 1);
    EXPECT_EQ(set_block(cache, "key", ""), VEL_ERROR_NONE);
}

TEST_F(Velcache, AnItemOfExactlyTheLimitIsStoredAndReported)
{
    vel_cache_set_memory_limit(cache, 60);
    EXPECT_EQ(set_block(cache, "key", "123456789"), VEL_ERROR_INTERNAL);
    EXPECT_THAT(log.take(), ElementsAre(log_line{
                                kModule, 6, "INTERNAL ERROR: usesize 60 exceeds the maxsize 60"}));
    EXPECT_EQ(get_block(cache, "key"), "123456789");
    EXPECT_EQ(set_block(cache, "b", ""), VEL_ERROR_NONE); /* evicts it */
    EXPECT_EQ(get_block(cache, "key"), std::nullopt);
    EXPECT_EQ(get_block(cache, "b"), "");
}

TEST_F(Velcache, SeveralItemsThatFillTheCacheExactlyAreReportedWithTheLast)
{
    set_items("abc", 250);
    EXPECT_EQ(set_block(cache, "d", std::string(201, 'd')), VEL_ERROR_INTERNAL);
    EXPECT_EQ(keys(), "abcd");
    EXPECT_EQ(set_block(cache, "e", ""), VEL_ERROR_NONE);
    EXPECT_EQ(keys(), "bcde");
}

TEST_F(Velcache, AnItemLargerThanTheLimitChangesNothing)
{
    EXPECT_EQ(set_block(cache, "key", "old"), VEL_ERROR_NONE);
    EXPECT_EQ(set_block(cache, "other", "too"), VEL_ERROR_NONE);
    log.clear();
    EXPECT_EQ(set_block(cache, "key", std::string(1000 - 51 + 1, 'x')), VEL_ERROR_OUT_OF_RANGE);
    EXPECT_THAT(log.take(),
                ElementsAre(log_line{
                    kModule, 6,
                    "cache item size exceeds the maximum cache size limit (1001 > 1000 bytes)"}));
    EXPECT_EQ(get_block(cache, "key"), "old");
    EXPECT_EQ(get_block(cache, "other"), "too");
}

TEST_F(Velcache, ASizeThatWrapsAroundIsRefused)
{
    EXPECT_EQ(set_block(cache, "key", "old"), VEL_ERROR_NONE);
    log.clear();
    for (const size_t size : {SIZE_MAX, SIZE_MAX - 50}) { /* 48 + 3 + size wraps from here */
        EXPECT_EQ(vel_cache_set(cache, "key", "x", size), VEL_ERROR_OUT_OF_RANGE);
        EXPECT_THAT(log.take(), ElementsAre(log_line{kModule, 6, "cache item data too large"}));
    }
    EXPECT_EQ(vel_cache_set(cache, "key", "x", SIZE_MAX - 51), VEL_ERROR_OUT_OF_RANGE);
    EXPECT_THAT(log.take(),
                ElementsAre(log_line{kModule, 6,
                                     "cache item size exceeds the maximum cache size limit "
                                     "(18446744073709551615 > 1000 bytes)"}));
    EXPECT_EQ(get_block(cache, "key"), "old");
}

TEST_F(Velcache, TheOldestItemIsEvictedAndAGetDoesNotSaveIt)
{
    set_items("abc", 300);
    EXPECT_TRUE(get_block(cache, "a"));
    set_items("d", 300);
    EXPECT_EQ(keys(), "bcd");
}

TEST_F(Velcache, ReplacingMakesAKeyTheNewest)
{
    set_items("abc", 300);
    set_items("a", 300);
    set_items("d", 300);
    EXPECT_EQ(keys(), "acd");
}

TEST_F(Velcache, AReplacementEvictsOnlyWhatIsNeededAfterTheOldSizeHasGone)
{
    set_items("abc", 300);
    set_items("a", 399); /* 999 with the other two */
    EXPECT_EQ(keys(), "abc");
    set_items("c", 450); /* a and b leave 301 */
    EXPECT_EQ(keys(), "ac");
}

TEST_F(Velcache, AKeyMayLieInABlockThatItsItemReplaces)
{
    static const char key[] = "own";
    const void *block = nullptr;
    size_t length = 0;

    ASSERT_EQ(vel_cache_set(cache, key, key, sizeof(key)), VEL_ERROR_NONE);
    ASSERT_EQ(vel_cache_get(cache, key, &block, &length), VEL_ERROR_NONE);
    EXPECT_EQ(vel_cache_set(cache, static_cast<const char *>(block), "new", 3), VEL_ERROR_NONE);
    EXPECT_EQ(get_block(cache, key), "new");
}

TEST_F(Velcache, ALowerLimitEvictsTheOldestFirst)
{
    set_items("abc", 300);
    vel_cache_set_memory_limit(cache, 900);
    EXPECT_EQ(keys(), "abc"); /* at the limit is within it */
    vel_cache_set_memory_limit(cache, 899);
    EXPECT_EQ(keys(), "bc");
    vel_cache_set_memory_limit(cache, 599);
    EXPECT_EQ(keys(), "c");
    vel_cache_set_memory_limit(cache, 0);
    EXPECT_EQ(keys(), "");
    EXPECT_EQ(set_block(cache, "a", ""), VEL_ERROR_OUT_OF_RANGE);
}

TEST_F(Velcache, AHigherLimitKeepsAllAndTakesMore)
{
    set_items("abc", 300);
    vel_cache_set_memory_limit(cache, 1300);
    set_items("d", 300);
    EXPECT_EQ(keys(), "abcd");
}

/* The newest block in front. */
struct cache_model {
    struct item {
        std::string key, data;

        size_t size() const
        {
            return 48 + key.size() + data.size();
        }
    };

    void remove(std::deque<item>::iterator it)
    {
        usesize -= it->size();
        items.erase(it);
    }

    void evict(size_t target)
    {
        while (usesize > target)
            remove(std::prev(items.end()));
    }

    std::deque<item>::iterator find(const std::string &key)
    {
        return std::find_if(items.begin(), items.end(),
                            [&](const item &each) { return each.key == key; });
    }

    vel_error_t set(const item &added)
    {
        if (added.size() > limitsize)
            return VEL_ERROR_OUT_OF_RANGE;
        if (const auto old = find(added.key); old != items.end())
            remove(old);
        evict(limitsize - added.size());
        items.push_front(added);
        usesize += added.size();
        return usesize >= limitsize ? VEL_ERROR_INTERNAL : VEL_ERROR_NONE;
    }

    std::deque<item> items;
    size_t limitsize = 0;
    size_t usesize = 0;
};

class VelcacheModel : public testing::Test {
  protected:
    ~VelcacheModel() override
    {
        vel_cache_destroy(cache);
    }

    void step()
    {
        const std::string key = "key" + std::to_string(random() % 150);
        const size_t dice = random() % 1000;
        if (dice < 2) {
            model.limitsize = random() % 10 ? 100 + random() % 8000 : random() % 60;
            model.evict(model.limitsize);
            vel_cache_set_memory_limit(cache, model.limitsize);
        } else if (dice < 500) {
            const auto it = model.find(key);
            const auto expected = it == model.items.end() ? std::nullopt : std::optional(it->data);
            ASSERT_EQ(get_block(cache, key), expected);
        } else {
            size_t length = random() % (dice < 520 ? 2000 : 100);
            if (dice > 990 && model.limitsize > 48 + key.size())
                length =
                    model.limitsize - 48 - key.size() + random() % 2; /* fills it, or is over */
            const std::string data(length, static_cast<char>(random()));
            ASSERT_EQ(set_block(cache, key, data), model.set({key, data}));
        }
    }

    /* What was evicted, and nothing else, is gone. */
    void compare_content()
    {
        size_t present = 0;
        for (int i = 0; i < 150; i++)
            present += get_block(cache, "key" + std::to_string(i)).has_value();
        ASSERT_EQ(present, model.items.size());
        for (const cache_model::item &each : model.items)
            ASSERT_EQ(get_block(cache, each.key), each.data);
    }

    log_capture log; /* keeps the expected lines off the terminal */
    std::mt19937 random{20261121};
    velcache *cache = vel_cache_create(0);
    cache_model model;
};

TEST_F(VelcacheModel, AgreesAfterEveryStep)
{
    for (int i = 0; i < 100000; i++) {
        ASSERT_NO_FATAL_FAILURE(step()) << "in step " << i;
        if (i % 50 == 0) {
            ASSERT_NO_FATAL_FAILURE(compare_content()) << "after step " << i;
        }
    }
    for (const log_line &line : log.take()) {
        ASSERT_TRUE(line.level == 13 || line.text.starts_with("cache item size exceeds") ||
                    line.text.starts_with("INTERNAL ERROR: usesize"))
            << line;
    }
}

TEST(VelcacheMemory, CreateLogsWhatWasMissing)
{
    log_capture log;
    const auto failures = allocfail_lines(log, [] {
        velcache *cache = vel_cache_create(100);
        if (cache)
            vel_cache_destroy(cache);
        return cache != nullptr;
    });
    ASSERT_GE(failures.size(), 4u);
    EXPECT_EQ(failures[0], (log_line{kModule, 7, "not enough memory for cache context"}));
    EXPECT_EQ(failures[1], (log_line{kModule, 7, "not enough memory for cache item list"}));
    for (size_t i = 2; i < failures.size(); i++)
        EXPECT_EQ(failures[i], (log_line{kModule, 7, "not enough memory for a hashtable"}));
}

TEST_F(Velcache, SetLogsWhatWasMissing)
{
    EXPECT_EQ(set_block(cache, "key", "old"), VEL_ERROR_NONE);
    EXPECT_EQ(set_block(cache, "other", "too"), VEL_ERROR_NONE);
    std::vector<vel_error_t> results;
    const auto failures = allocfail_each(log, [this, &results] {
        const vel_error_t result = set_block(cache, "key", "new");
        EXPECT_EQ(get_block(cache, "other"), "too");
        if (result == VEL_ERROR_NONE)
            return true;
        results.push_back(result);
        if (result == VEL_ERROR_NO_MEMORY)
            EXPECT_EQ(get_block(cache, "key"), "old");
        else
            EXPECT_EQ(get_block(cache, "key"), std::nullopt); /* the old one is gone by then */
        return false;
    });
    const log_line noroom{kModule, 7, "not enough memory to add cache item to hashtable"};
    const std::vector<log_line> expected[] = {
        {{kModule, 7, "not enough memory for cache item"}},
        {{kModule, 7, "not enough memory for the key of the cache item"}},
        {{kModule, 7, "not enough memory for cache item data"}},
        {noroom}};
    /* The string hash allocates once or more. */
    ASSERT_GE(failures.size(), 4u);
    for (size_t i = 0; i < failures.size(); i++) {
        EXPECT_EQ(failures[i], expected[std::min<size_t>(i, 3)]);
        EXPECT_EQ(results[i], i < 3 ? VEL_ERROR_NO_MEMORY : VEL_ERROR_OUT_OF_RANGE);
    }
    EXPECT_EQ(get_block(cache, "key"), "new");
}

static bool cache_life()
{
    velcache *cache = vel_cache_create(2011);
    if (!cache)
        return false;
    bool good = true;
    for (int i = 0; good && i < 60; i++)
        good = set_block(cache, std::to_string(i % 40), std::string(i, 'x')) == VEL_ERROR_NONE;
    if (good) {
        EXPECT_EQ(get_block(cache, "19"), std::string(59, 'x'));
        vel_cache_set_memory_limit(cache, 300);
    }
    vel_cache_destroy(cache);
    return good;
}

TEST(VelcacheOom, Life)
{
    vel_oom_drive(cache_life);
}

using VelcacheDeathTest = Velcache;

TEST_F(VelcacheDeathTest, Assertions)
{
    EXPECT_DEATH(vel_cache_destroy(nullptr), asserts("velcache != NULL", "vel_cache_destroy"));
    EXPECT_DEATH(vel_cache_set_memory_limit(nullptr, 1),
                 asserts("velcache != NULL", "vel_cache_set_memory_limit"));
    EXPECT_DEATH(vel_cache_set(nullptr, "a", "", 0), asserts("velcache != NULL", "vel_cache_set"));
    EXPECT_DEATH(vel_cache_set(cache, nullptr, "", 0), asserts("key != NULL", "vel_cache_set"));
    EXPECT_DEATH(vel_cache_set(cache, "a", nullptr, 0), asserts("data != NULL", "vel_cache_set"));
}
