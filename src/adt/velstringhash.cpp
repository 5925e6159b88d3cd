#include <vellib/velstringhash.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <vellib/velmalloc.h>

#include "adt/velhash_core.h"
#include "adt/velhashfunc_internal.h"
#include "adt/velstringhash_internal.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "adt/velstringhash"

struct alignas(8) velstringhash {
    velhash *hash;                              /* its context is the velstringhash */
    vel_stringhash_destroy_cb *destroycallback; /* or NULL */
    void *context;
    vel_stringhash_borrowed_cb *borrowedcallback; /* or NULL: no memory of items is borrowed */
};

static_assert(offsetof(velstringhashitem, key) % 8 == 0);
static_assert(offsetof(velstringhashitem, link) == 0);

/* A key that is searched for or added. */
struct vel_stringhash_key {
    const char *string;
    size_t length;
    uint64_t lastgroup; /* what the key has behind its last whole group, filled up with NUL */
    size_t hash;
};

static inline vel_stringhash_key vel_stringhash_make_key(const char *string, size_t length)
{
    const uint64_t rest = vel_hashfunc_rest(string, length);

    return {string, length, rest << 8 * (7 - length % 8) << 8,
            static_cast<size_t>(vel_hashfunc_combine(string, length, rest))};
}

static inline vel_stringhash_key vel_stringhash_make_key(const char *string)
{
    return vel_stringhash_make_key(string, strlen(string));
}

/* Each group is known to be there before it is read, since those before it had no NUL. */
static inline bool vel_stringhash_same_key(const velstringhashitem *item,
                                           const vel_stringhash_key &key)
{
    size_t position = 0;

    for (; position + 8 <= key.length; position += 8)
        if (memcmp(item->key + position, key.string + position, 8) != 0)
            return false;
    return vel_hashfunc_load<uint64_t>(item->key + position) == key.lastgroup;
}

/* Items of a string hash, known through and through. */
struct vel_stringhash_kind {
    using key = vel_stringhash_key;
    static constexpr bool filtered = true;

    static velstringhashitem *item(const velhash *, vel_listlink *link)
    {
        return reinterpret_cast<velstringhashitem *>(reinterpret_cast<char *>(link) -
                                                     offsetof(velstringhashitem, link));
    }

    static vel_listlink *link(const velhash *, void *item)
    {
        return &static_cast<velstringhashitem *>(item)->link;
    }

    static bool matches(const velhash *, const velstringhashitem *item, const key &key)
    {
        return item->hash == key.hash && vel_stringhash_same_key(item, key);
    }

    static size_t hash_of(const velhash *, const velstringhashitem *item)
    {
        return item->hash;
    }

    static const void *take(velhash *velhash, size_t slot, size_t, vel_listlink *link)
    {
        vel_hash_array_unlink(velhash->mainarray, slot, link);
        return item(velhash, link);
    }
};

/* ---- Callbacks of the table ---- */

static size_t vel_stringhash_calchashitem(const void *item, void *)
{
    VEL_ASSERT(item != NULL);

    return static_cast<const velstringhashitem *>(item)->hash;
}

static int vel_stringhash_compareitem(const void *item1, const void *item2, void *)
{
    VEL_ASSERT(item1 != NULL);
    VEL_ASSERT(item2 != NULL);

    return strcmp(static_cast<const velstringhashitem *>(item1)->key,
                  static_cast<const velstringhashitem *>(item2)->key);
}

static void vel_stringhash_destroyitem(void *item, void *context)
{
    VEL_ASSERT(item != NULL);
    VEL_ASSERT(context != NULL);

    const auto *const velstringhash = static_cast<struct velstringhash *>(context);
    void *const value = static_cast<velstringhashitem *>(item)->value;
    const bool borrowed = velstringhash->borrowedcallback && velstringhash->borrowedcallback(value);
    if (velstringhash->destroycallback)
        velstringhash->destroycallback(value, velstringhash->context);
    if (!borrowed)
        vel_free(item);
}

/* ---- Life ---- */

velstringhash *vel_stringhash_create(vel_stringhash_destroy_cb *destroycallback, void *context)
{
    auto *velstringhash =
        static_cast<struct velstringhash *>(vel_cmalloc(sizeof(struct velstringhash)));
    if (!velstringhash) {
        VEL_LOG(7, "not enough memory for velstringhash structure");
        return nullptr;
    }
    velstringhash->destroycallback = destroycallback;
    velstringhash->context = context;
    velstringhash->hash =
        vel_hash_create(offsetof(velstringhashitem, link), vel_stringhash_calchashitem,
                        vel_stringhash_compareitem, vel_stringhash_destroyitem, velstringhash);
    if (!velstringhash->hash) {
        vel_stringhash_destroy(velstringhash);
        return nullptr;
    }
    return velstringhash;
}

velstringhash *vel_stringhash_create_from(velstringhash *original)
{
    VEL_ASSERT(original != NULL);

    return vel_stringhash_create(original->destroycallback, original->context);
}

void vel_stringhash_destroy(velstringhash *velstringhash)
{
    VEL_ASSERT(velstringhash != NULL);

    const bool borrowed = velstringhash->hash && velstringhash->hash->borrowed;
    if (velstringhash->hash)
        vel_hash_destroy(velstringhash->hash);
    if (!borrowed)
        vel_free(velstringhash);
}

void vel_stringhash_clear(velstringhash *velstringhash)
{
    VEL_ASSERT(velstringhash != NULL);

    vel_hash_clear(velstringhash->hash);
}

/* ---- Entries ---- */

/* Fills an item and adds it. The key may lie in the item that goes for it, so from there on it is
 * read in the new one. */
static void vel_stringhash_add_item(velstringhash *velstringhash, velstringhashitem *item,
                                    const vel_stringhash_key &key, void *value)
{
    item->value = value;
    item->hash = key.hash;
    memset(item->key + key.length / 8 * 8, 0, 8);
    memcpy(item->key, key.string, key.length);
    const vel_stringhash_key ownkey = {item->key, key.length, key.lastgroup, key.hash};
    vel_hash_add_item<vel_stringhash_kind>(velstringhash->hash, item, key.hash, ownkey);
}

int vel_stringhash_add(velstringhash *velstringhash, const char *key, void *value)
{
    VEL_ASSERT(velstringhash != NULL);
    VEL_ASSERT(key != NULL);

    const vel_stringhash_key newkey = vel_stringhash_make_key(key);
    void *const item = vel_malloc(vel_stringhash_entry_size(newkey.length));
    if (!item)
        return -1;
    vel_stringhash_add_item(velstringhash, static_cast<velstringhashitem *>(item), newkey, value);
    return 0;
}

/* Takes the item with a key out of the table, which goes through the same states as in a lookup
 * that moves the item and a remove of it after that. Returns the item, or NULL. */
static velstringhashitem *vel_stringhash_take(velhash *velhash, const vel_stringhash_key &key)
{
    velhasharray *const target = vel_hash_target(velhash);
    velhasharray *velhasharray = target;
    size_t slot = vel_hash_array_slot(velhasharray, key.hash);
    vel_listlink *link =
        vel_hash_array_find<vel_stringhash_kind>(velhash, velhasharray, slot, key.hash, key);

    if (!link && target != velhash->mainarray) {
        velhasharray = velhash->mainarray;
        slot = vel_hash_array_slot(velhasharray, key.hash);
        link = vel_hash_array_find<vel_stringhash_kind>(velhash, velhasharray, slot, key.hash, key);
    }
    if (!link)
        return nullptr;

    vel_hash_array_unlink(velhasharray, slot, link);
    if (velhasharray != target)
        vel_hash_check_if_main_empty(velhash);
    velhash->entries--;
    vel_hash_after_remove<vel_stringhash_kind>(velhash, target);
    return vel_stringhash_kind::item(velhash, link);
}

int vel_stringhash_remove(velstringhash *velstringhash, const char *key)
{
    VEL_ASSERT(velstringhash != NULL);
    VEL_ASSERT(key != NULL);

    velstringhashitem *const item =
        vel_stringhash_take(velstringhash->hash, vel_stringhash_make_key(key));
    if (!item)
        return -1;
    vel_stringhash_destroyitem(item, velstringhash);
    return 0;
}

void *vel_stringhash_lookup(velstringhash *velstringhash, const char *key)
{
    VEL_ASSERT(velstringhash != NULL);
    VEL_ASSERT(key != NULL);

    const vel_stringhash_key searchkey = vel_stringhash_make_key(key);
    velhash *const velhash = velstringhash->hash;
    vel_listlink *const link =
        vel_hash_lookup_item<vel_stringhash_kind>(velhash, searchkey, searchkey.hash);
    return link ? vel_stringhash_kind::item(velhash, link)->value : nullptr;
}

void vel_stringhash_settle(velstringhash *velstringhash)
{
    velhash *const velhash = velstringhash->hash;
    while (vel_hash_target(velhash) != velhash->mainarray)
        vel_hash_move_one_item<vel_stringhash_kind>(velhash, vel_hash_target(velhash));
}

/* ---- In memory of a neighbour ---- */

void vel_stringhash_set_entry(velstringhashitem *entry, size_t keylen)
{
    const size_t restlen = keylen % 8;
    char *const lastgroup = entry->key + (keylen - restlen);
    const uint64_t group = vel_hashfunc_load<uint64_t>(lastgroup) & ~(~uint64_t{0} >> 8 * restlen);

    vel_hashfunc_store(lastgroup, group);
    entry->hash = static_cast<size_t>(
        vel_hashfunc_combine(entry->key, keylen, group >> 8 * (7 - restlen) >> 8));
}

bool vel_stringhash_same_entry(const velstringhashitem *entry, const velstringhashitem *other)
{
    return entry->hash == other->hash && strcmp(entry->key, other->key) == 0;
}

void vel_stringhash_set_borrowed(velstringhash *velstringhash,
                                 vel_stringhash_borrowed_cb *borrowedcallback)
{
    velstringhash->borrowedcallback = borrowedcallback;
}

void vel_stringhash_add_entry(velstringhash *velstringhash, velstringhashitem *entry)
{
    const vel_stringhash_key key = vel_stringhash_make_key(entry->key);

    vel_hash_add_item<vel_stringhash_kind>(velstringhash->hash, entry, key.hash, key);
}

void vel_stringhash_release(velstringhash *velstringhash)
{
    velstringhash->hash->takecallback = nullptr;
}

/* ---- Chains ---- */

size_t vel_stringhash_size(size_t entries)
{
    return sizeof(velstringhash) + vel_hash_size(entries);
}

/* Links the entries of an ordered chain, as many as that, in an array. Returns those behind them. */
static velstringhashitem *vel_stringhash_fill(velhasharray *velhasharray, velstringhashitem *chain,
                                              size_t entries)
{
    for (; entries > 0; entries--) {
        auto *const next = static_cast<velstringhashitem *>(chain->link.next);
        vel_hash_array_link(velhasharray, vel_hash_array_slot(velhasharray, chain->hash),
                            chain->hash, &chain->link);
        chain = next;
    }
    return chain;
}

velstringhash *vel_stringhash_create_in(velstringhashitem *chain, size_t entries,
                                        vel_stringhash_destroy_cb *destroycallback, void *context,
                                        vel_stringhash_take_cb *takecallback, void *takecontext)
{
    auto *const velstringhash = static_cast<struct velstringhash *>(
        takecallback(takecontext, sizeof(struct velstringhash)));
    if (!velstringhash) {
        VEL_LOG(7, "not enough memory for velstringhash structure");
        return nullptr;
    }
    velhash *const hash =
        vel_hash_create_in(entries, offsetof(velstringhashitem, link), vel_stringhash_calchashitem,
                           vel_stringhash_compareitem, vel_stringhash_destroyitem, velstringhash,
                           takecallback, takecontext);
    if (!hash)
        return nullptr;
    *velstringhash = {hash, destroycallback, context, nullptr};
    const size_t pending = vel_stringhash_pending(entries);
    chain = vel_stringhash_fill(vel_hash_target(hash), chain, entries - pending);
    (void)vel_stringhash_fill(hash->mainarray, chain, pending);
    hash->entries = entries;
    return velstringhash;
}

/* ---- Enumeration ---- */

/* Writes what the caller of an enumeration wants to know of an item, which may be NULL. */
static void *vel_stringhash_enumerated(void *item, const char **keyptr, void **valueptr)
{
    const auto *const stringhashitem = static_cast<velstringhashitem *>(item);

    if (keyptr)
        *keyptr = stringhashitem ? stringhashitem->key : nullptr;
    if (valueptr)
        *valueptr = stringhashitem ? stringhashitem->value : nullptr;
    return item;
}

void *vel_stringhash_enumerate_start(velstringhash *velstringhash, const char **keyptr,
                                     void **valueptr)
{
    VEL_ASSERT(velstringhash != NULL);

    return vel_stringhash_enumerated(vel_hash_enumerate_start(velstringhash->hash), keyptr,
                                     valueptr);
}

void *vel_stringhash_enumerate_next(velstringhash *velstringhash, void *prevstringhashitem,
                                    const char **keyptr, void **valueptr)
{
    VEL_ASSERT(velstringhash != NULL);
    VEL_ASSERT(prevstringhashitem != NULL);

    return vel_stringhash_enumerated(
        vel_hash_enumerate_next(velstringhash->hash, prevstringhashitem), keyptr, valueptr);
}
