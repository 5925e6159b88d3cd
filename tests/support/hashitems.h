#ifndef TESTS_SUPPORT_HASHITEMS_H
#define TESTS_SUPPORT_HASHITEMS_H

/* Items with numbers for keys, for tests of the hash table, and callbacks that record what a table
 * does with them. */

#include <cstddef>
#include <vector>

#include <vellib/vellib.h>

#include "support/hashmodel.h"

namespace support {

struct hash_item {
    int key;
    bool searching;    /* only ever looked for, not in a table */
    vel_listlink link; /* behind the key, so that the offset counts */
};

/* What a table called back, and how its callbacks answer. */
struct hash_observer {
    size_t (*hash)(int key) = [](int key) { return static_cast<size_t>(key); };
    bool equalonlywhensearching = false;
    bool neverequal = false;
    std::vector<int> hashed;
    std::vector<const hash_item *> destroyed;
    std::vector<int> destroyedkeys;
    size_t searchedfirst = 0; /* comparisons with the item searched for as the first argument */

    void clear()
    {
        hashed.clear();
        destroyed.clear();
        destroyedkeys.clear();
    }
};

inline size_t hash_item_calc(const void *item, void *context)
{
    auto *seen = static_cast<hash_observer *>(context);
    const int key = static_cast<const hash_item *>(item)->key;
    seen->hashed.push_back(key);
    return seen->hash(key);
}

inline int hash_item_compare(const void *item1, const void *item2, void *context)
{
    auto *seen = static_cast<hash_observer *>(context);
    const auto *first = static_cast<const hash_item *>(item1);
    const auto *second = static_cast<const hash_item *>(item2);
    seen->searchedfirst += first->searching;
    if (seen->neverequal || (seen->equalonlywhensearching && !second->searching))
        return 1;
    return first->key != second->key;
}

inline void hash_item_destroy(void *item, void *context)
{
    auto *seen = static_cast<hash_observer *>(context);
    seen->destroyed.push_back(static_cast<hash_item *>(item));
    seen->destroyedkeys.push_back(static_cast<hash_item *>(item)->key);
    delete static_cast<hash_item *>(item);
}

inline velhash *hash_create(hash_observer *seen)
{
    return vel_hash_create(offsetof(hash_item, link), hash_item_calc, hash_item_compare,
                           hash_item_destroy, seen);
}

inline hash_item *hash_add(velhash *table, int key)
{
    auto *item = new hash_item{key, false, {}};
    vel_hash_add(table, item);
    return item;
}

inline hash_item *hash_find(velhash *table, int key)
{
    const hash_item search{key, true, {}};
    return static_cast<hash_item *>(vel_hash_lookup(table, &search));
}

/* Looks up, removes and deletes. */
inline bool hash_remove(velhash *table, int key)
{
    hash_item *item = hash_find(table, key);
    if (!item)
        return false;
    vel_hash_remove(table, item);
    delete item;
    return true;
}

inline hash_state hash_state_of(velhash *table)
{
    hash_state state{91, 92, 93, 94, 95, 96};
    vel_hash_debug_state(table, &state.mainentries, &state.mainslots, &state.biggerentries,
                         &state.biggerslots, &state.smallerentries, &state.smallerslots);
    return state;
}

inline std::vector<int> hash_keys_of(velhash *table)
{
    std::vector<int> keys;
    for (void *item = vel_hash_enumerate_start(table); item;
         item = vel_hash_enumerate_next(table, item))
        keys.push_back(static_cast<hash_item *>(item)->key);
    return keys;
}

} // namespace support

#endif
