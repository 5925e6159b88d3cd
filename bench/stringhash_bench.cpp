/* The string hash against the hash tables that a C or C++ program would take instead. All own a
 * copy of the key; keys have 12 to 20 bytes. */

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <random>
#include <unordered_map>

#include <glib.h>
#include <malloc.h>
#include <uthash.h>

#include <vellib/velstringhash.h>

#include "bench.h"

namespace {

struct vel_table {
    velstringhash *table = vel_stringhash_create(nullptr, nullptr);

    ~vel_table()
    {
        vel_stringhash_destroy(table);
    }
    void add(const char *key, void *value)
    {
        vel_stringhash_add(table, key, value);
    }
    void *find(const char *key)
    {
        return vel_stringhash_lookup(table, key);
    }
    void remove(const char *key)
    {
        vel_stringhash_remove(table, key);
    }
};

struct glib_table {
    GHashTable *table = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);

    ~glib_table()
    {
        g_hash_table_destroy(table);
    }
    void add(const char *key, void *value)
    {
        g_hash_table_replace(table, g_strdup(key), value);
    }
    void *find(const char *key)
    {
        return g_hash_table_lookup(table, key);
    }
    void remove(const char *key)
    {
        g_hash_table_remove(table, key);
    }
};

struct uthash_item {
    UT_hash_handle hh;
    void *value;
    char key[];
};

/* The key stands inside the item, so that uthash too has one block an item. */
struct uthash_table {
    uthash_item *table = nullptr;

    ~uthash_table()
    {
        uthash_item *item, *next;
        HASH_ITER(hh, table, item, next)
        {
            HASH_DEL(table, item);
            free(item);
        }
    }
    void add(const char *key, void *value)
    {
        const size_t length = strlen(key);
        auto *item = static_cast<uthash_item *>(malloc(sizeof(uthash_item) + length + 1));
        uthash_item *old;

        item->value = value;
        memcpy(item->key, key, length + 1);
        HASH_REPLACE(hh, table, key[0], length, item, old);
        free(old);
    }
    void *find(const char *key)
    {
        uthash_item *item;
        HASH_FIND(hh, table, key, strlen(key), item);
        return item ? item->value : nullptr;
    }
    void remove(const char *key)
    {
        uthash_item *item;
        HASH_FIND(hh, table, key, strlen(key), item);
        if (!item)
            return;
        HASH_DEL(table, item);
        free(item);
    }
};

struct std_table {
    std::unordered_map<std::string, void *> table;

    void add(const char *key, void *value)
    {
        table.insert_or_assign(key, value);
    }
    void *find(const char *key)
    {
        const auto found = table.find(key);
        return found == table.end() ? nullptr : found->second;
    }
    void remove(const char *key)
    {
        table.erase(key);
    }
};

const std::vector<std::string> kContenders = {"vellib", "GHashTable", "uthash", "unordered_map"};

std::vector<std::string> make_keys(size_t count, char first, std::mt19937_64 &random)
{
    static const char letters[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
    std::vector<std::string> keys(count);

    for (std::string &key : keys) {
        key.resize(12 + random() % 9);
        for (char &character : key)
            character = letters[random() % 64];
        key[0] = first;
    }
    return keys;
}

/* The order of the lookups is another than that of the adds. */
struct workload {
    std::vector<std::string> keys, shuffled, missing;

    explicit workload(size_t count)
    {
        std::mt19937_64 random(count);
        keys = make_keys(count, '+', random);
        missing = make_keys(count, '*', random);
        shuffled = keys;
        std::shuffle(shuffled.begin(), shuffled.end(), random);
    }
};

struct results {
    bench::series add{kContenders.size()}, hit{kContenders.size()}, miss{kContenders.size()},
        remove{kContenders.size()};
};

template <typename Step> double per_key(const std::vector<std::string> &keys, Step step)
{
    const auto start = bench::clock::now();
    for (const std::string &key : keys)
        step(key);
    return bench::nanoseconds(bench::clock::now() - start) / static_cast<double>(keys.size());
}

/* What an earlier table has left in the heap would be tidied up at the cost of a later one. */
template <typename Table> std::unique_ptr<Table> make_table()
{
    malloc_trim(0);
    return std::make_unique<Table>();
}

template <typename Table> void run(size_t contender, const workload &load, results &results)
{
    auto table = make_table<Table>();
    size_t found = 0;

    results.add.add(contender, per_key(load.keys, [&](const std::string &key) {
                        table->add(key.c_str(), table.get());
                    }));
    results.hit.add(contender, per_key(load.shuffled, [&](const std::string &key) {
                        found += table->find(key.c_str()) != nullptr;
                    }));
    results.miss.add(contender, per_key(load.missing, [&](const std::string &key) {
                         found += table->find(key.c_str()) != nullptr;
                     }));
    results.remove.add(contender, per_key(load.shuffled, [&](const std::string &key) {
                           table->remove(key.c_str());
                       }));
    if (found != load.keys.size())
        abort();
}

void bench_operations(size_t count, int rounds)
{
    const workload load(count);
    results results;

    for (int round = 0; round < rounds; round++) {
        run<vel_table>(0, load, results);
        run<glib_table>(1, load, results);
        run<uthash_table>(2, load, results);
        run<std_table>(3, load, results);
    }
    const std::string size = " " + std::to_string(count);
    bench::print_row("add" + size, results.add);
    bench::print_row("hit" + size, results.hit);
    bench::print_row("miss" + size, results.miss);
    bench::print_row("remove" + size, results.remove);
}

/* Time of the processor, so that other programs on a busy machine do not count. */
double thread_milliseconds()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

template <typename Table> double longest_add(const std::vector<std::string> &keys)
{
    auto table = make_table<Table>();
    double longest = 0;
    double last = thread_milliseconds();

    for (const std::string &key : keys) {
        table->add(key.c_str(), table.get());
        const double now = thread_milliseconds();
        longest = std::max(longest, now - last);
        last = now;
    }
    return longest;
}

/* The lowest of the rounds: what the machine takes away by itself is not the table's. */
void bench_longest_add(size_t count, int rounds)
{
    std::mt19937_64 random(count);
    const std::vector<std::string> keys = make_keys(count, '+', random);
    bench::series longest(kContenders.size());

    for (int round = 0; round < rounds; round++) {
        longest.add(0, longest_add<vel_table>(keys));
        longest.add(1, longest_add<glib_table>(keys));
        longest.add(2, longest_add<uthash_table>(keys));
        longest.add(3, longest_add<std_table>(keys));
    }
    std::vector<double> lowest;
    for (size_t i = 0; i < kContenders.size(); i++)
        lowest.push_back(longest.lowest(i));
    bench::print_header("longest add, ms", kContenders);
    bench::print_row("growing to " + std::to_string(count), lowest);
}

} // namespace

int main()
{
    bench::print_header("ns per operation", kContenders);
    bench_operations(1000, 1000);
    bench_operations(100000, 11);
    bench_operations(1000000, 5);
    bench_longest_add(4000000, 3);
    return 0;
}
