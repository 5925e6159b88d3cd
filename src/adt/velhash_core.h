#ifndef VELLIB_ADT_VELHASH_CORE_H
#define VELLIB_ADT_VELHASH_CORE_H

#include <cstddef>

#include <vellib/velhash.h>
#include <vellib/vellist.h>

#include "adt/velhasharray.h"
#include "util/velassert.h"

/* The table of velhash and the operations that have to be fast, as templates over a kind of item:
 * velhash reaches its items through the callbacks of the host; velstringhash knows its own. */

static constexpr size_t vel_hash_initialslots = 5;

/* Takes size bytes for pointers, which outlive the table, out of memory of a neighbour; NULL if there
 * are none. */
typedef void *vel_hash_take_cb(void *takecontext, size_t size);

/* In memory of a neighbour things stand one behind the other, so that their sizes are multiples of
 * eight. */
struct alignas(8) velhash {
    size_t minslotcount;
    velhasharray *mainarray;    /* the array in use; NULL in a half-built table only */
    velhasharray *biggerarray;  /* while the table grows, the one that items move to */
    velhasharray *smallerarray; /* the same while it shrinks; never both */
    size_t entries;             /* items in the table */
    vel_hash_calc_cb *calchashcallback;
    vel_hash_compare_cb *comparecallback;
    vel_hash_destroy_cb *destroycallback;
    size_t linkoffset; /* from the start of an item to its link, in bytes */
    void *context;     /* of the callbacks */
    vel_hash_take_cb
        *takecallback; /* where a resize has its array, or NULL for a block of its own */
    void *takecontext;
    bool borrowed; /* the table is in memory of a neighbour */
};

/* Makes a table in memory of a neighbour, or returns NULL, with a line logged. It is empty, but its
 * arrays are those of a table to which this many items have been added, with keys of which no two are
 * equal. */
velhash *vel_hash_create_in(size_t entries, size_t linkoffset, vel_hash_calc_cb *calchashcallback,
                            vel_hash_compare_cb *comparecallback,
                            vel_hash_destroy_cb *destroycallback, void *context,
                            vel_hash_take_cb *takecallback, void *takecontext);

/* The bytes that it takes. */
size_t vel_hash_size(size_t entries);

/* The slots of its mainarray. *growingptr receives whether there is a biggerarray. */
size_t vel_hash_slotcount_after(size_t entries, bool *growingptr);

/* Logs what the creation of a table says. */
void vel_hash_log_create();

/* Logs what is said when the last of this many items is added, with keys of which no two are equal. */
void vel_hash_log_add(size_t entries);

/* Starts a resize, unless there is no memory, which it logs. */
void vel_hash_start_growing(velhash *velhash);
void vel_hash_start_shrinking(velhash *velhash);

/* With how many items an array begins to grow, and to how many slots. */
static inline size_t vel_hash_limit(size_t slotcount)
{
    return slotcount - slotcount / 10;
}

static inline size_t vel_hash_grown(size_t slotcount)
{
    return 4 * slotcount + 1;
}

/* Ends a resize once mainarray is empty. */
void vel_hash_replace_main(velhash *velhash);

/* The array that new items go to, and that old ones move to during a resize. */
static inline velhasharray *vel_hash_target(const velhash *velhash)
{
    if (velhash->biggerarray) {
        VEL_ASSERT(velhash->smallerarray == NULL);
        return velhash->biggerarray;
    }
    return velhash->smallerarray ? velhash->smallerarray : velhash->mainarray;
}

/* Ends the resize if mainarray has become empty. */
static inline void vel_hash_check_if_main_empty(velhash *velhash)
{
    VEL_ASSERT(velhash->biggerarray != NULL || velhash->smallerarray != NULL);

    if (velhash->mainarray->entries == 0)
        vel_hash_replace_main(velhash);
}

/* A Kind is a struct of facts about the items:
 *   key                               what a search compares with
 *   item(velhash, link)               the item around a link
 *   link(velhash, item)               the link in an item
 *   filtered                          whether only items with the hash of a key can match it
 *   matches(velhash, item, key)       whether an item has the key
 *   hash_of(velhash, item)            its hash
 *   take(velhash, slot, hash, link)   takes an item out of mainarray, and returns the one taken */

template <typename Kind>
static inline vel_listlink *vel_hash_array_find(const velhash *velhash,
                                                const velhasharray *velhasharray, size_t slot,
                                                size_t hash, const typename Kind::key &key)
{
    const velhashslot *const hashslot = vel_hash_array_peek(velhasharray, slot);
    if (!hashslot || (Kind::filtered && !(hashslot->filter & vel_hash_filter_bit(hash))))
        return nullptr;

    vel_listlink *link = hashslot->head;
    while (link && !Kind::matches(velhash, Kind::item(velhash, link), key))
        link = static_cast<vel_listlink *>(link->next);
    return link;
}

/* Moves the first item of mainarray over, and ends the resize if that was the last. What comes
 * next is known, and its item is fetched meanwhile. */
template <typename Kind>
static inline void vel_hash_move_one_item(velhash *velhash, velhasharray *targethasharray)
{
    velhasharray *const mainarray = velhash->mainarray;
    size_t slot = mainarray->cursor;
    vel_listlink *const link = vel_hash_array_first(mainarray, slot, &slot);

    if (link) {
        const auto *const firstitem = Kind::item(velhash, link);
        const size_t hash = Kind::hash_of(velhash, firstitem);
        const void *const it = Kind::take(velhash, slot, hash, link);

        VEL_ASSERT(it == firstitem);
        __builtin_prefetch(vel_hash_array_first(mainarray, slot, &slot));
        vel_hash_array_link(targethasharray, vel_hash_array_slot(targethasharray, hash), hash,
                            link);
    }
    mainarray->cursor = slot;
    vel_hash_check_if_main_empty(velhash);
}

/* Destroys the item of an array that has the key, if there is one. */
template <typename Kind>
static inline void vel_hash_array_drop(velhash *velhash, velhasharray *velhasharray, size_t slot,
                                       size_t hash, const typename Kind::key &key)
{
    vel_listlink *const link = vel_hash_array_find<Kind>(velhash, velhasharray, slot, hash, key);

    if (!link)
        return;
    vel_hash_array_unlink(velhasharray, slot, link);
    velhash->destroycallback(Kind::item(velhash, link), velhash->context);
    velhash->entries--;
}

template <typename Kind>
static inline void vel_hash_add_item(velhash *velhash, void *item, size_t hash,
                                     const typename Kind::key &key)
{
    velhasharray *const mainarray = velhash->mainarray;
    size_t slot = vel_hash_array_slot(mainarray, hash);

    vel_hash_array_drop<Kind>(velhash, mainarray, slot, hash, key);
    velhasharray *const target = vel_hash_target(velhash);
    if (target != mainarray) {
        slot = vel_hash_array_slot(target, hash);
        vel_hash_array_drop<Kind>(velhash, target, slot, hash, key);
    }

    vel_hash_array_link(target, slot, hash, Kind::link(velhash, item));
    velhash->entries++;
    if (target != mainarray)
        vel_hash_move_one_item<Kind>(velhash, target);
    else if (mainarray->entries >= vel_hash_limit(mainarray->slotcount))
        vel_hash_start_growing(velhash);
}

/* Finds an item. One that is found in mainarray during a resize is moved over at once. */
template <typename Kind>
static inline vel_listlink *vel_hash_lookup_item(velhash *velhash, const typename Kind::key &key,
                                                 size_t hash)
{
    velhasharray *const target = vel_hash_target(velhash);
    velhasharray *const mainarray = velhash->mainarray;
    const size_t targetslot = vel_hash_array_slot(target, hash);
    vel_listlink *link = vel_hash_array_find<Kind>(velhash, target, targetslot, hash, key);

    if (link || target == mainarray)
        return link;
    const size_t mainslot = vel_hash_array_slot(mainarray, hash);
    link = vel_hash_array_find<Kind>(velhash, mainarray, mainslot, hash, key);
    if (!link)
        return nullptr;
    const auto *const item = Kind::item(velhash, link);
    const void *const it = Kind::take(velhash, mainslot, hash, link);
    VEL_ASSERT(it == item);
    vel_hash_array_link(target, targetslot, hash, link);
    vel_hash_check_if_main_empty(velhash);
    return link;
}

/* What follows once an item has been counted out of its array and of the table. */
template <typename Kind>
static inline void vel_hash_after_remove(velhash *velhash, velhasharray *targethasharray)
{
    const velhasharray *const mainarray = velhash->mainarray;

    if (targethasharray != mainarray)
        vel_hash_move_one_item<Kind>(velhash, targethasharray);
    else if (mainarray->entries <= mainarray->slotcount / 10 &&
             mainarray->slotcount > velhash->minslotcount)
        vel_hash_start_shrinking(velhash);
}

#endif
