#ifndef VELLIB_ADT_VELHASHARRAY_H
#define VELLIB_ADT_VELHASHARRAY_H

#include <cstddef>
#include <cstdint>

#include <vellib/vellist.h>

/* The arrays of slots that a velhash has one or, while it resizes, two of. What they know of an
 * item is its link and its hash.
 *
 * Four things make an operation cheap without showing outside:
 * - The slots of an array are not initialised when it is made, but in blocks, each when the first
 *   item of the block arrives. So the call that starts a resize does not pay for the whole array.
 * - Each block counts its items, and a walk over the slots leaps blocks that have none.
 * - An array that a resize empties only loses items, so the search for its first item goes on
 *   from where the last one was found.
 * - A slot has a filter, which tells of most keys that are not there without looking at an item. */

/* A page of slots. */
static constexpr size_t vel_hash_blockslots = 256;

/* The chain of a slot is a list whose links end in NULL forward; backward the link of the head
 * leads to the tail. */
struct velhashslot {
    vel_listlink *head; /* or NULL */
    uint64_t filter;    /* the bit of each item in the chain, and of some that were in it */
};

struct alignas(8) velhasharray {
    size_t slotcount;
    velhashslot *slots;   /* those of a block that is not in use are garbage */
    size_t entries;       /* items in this array */
    size_t reciprocal;    /* the largest size_t divided by slotcount */
    size_t cursor;        /* while a resize empties this array, no slot before it has an item */
    uint32_t *blockusage; /* for each block 0, or 1 and the number of its items, or more */
    bool borrowed;        /* is in memory of somebody else */
};

/* Creates an empty array, or returns NULL, with a line logged for velhash. */
velhasharray *vel_hash_array_create(size_t slotcount);

/* The bytes, a multiple of eight, that an array takes with all that belongs to it, if it is to be in
 * the memory of somebody else. */
size_t vel_hash_array_size(size_t slotcount);

/* Makes an empty array in memory of that size for pointers, which has to outlive it. */
velhasharray *vel_hash_array_create_in(void *memory, size_t slotcount);

/* Destroys an array, whose items nobody looks after. */
void vel_hash_array_destroy(velhasharray *velhasharray);

/* Makes the heads of a block empty, and counts it as in use. */
void vel_hash_array_open_block(velhasharray *velhasharray, size_t block);

/* The first item from slot startslot on, or NULL. The slot is written to slotptr. */
vel_listlink *vel_hash_array_first(const velhasharray *velhasharray, size_t startslot,
                                   size_t *slotptr);

/* hash modulo slotcount, by a multiplication. The quotient is exact or too low by one. */
static inline size_t vel_hash_array_slot(const velhasharray *velhasharray, size_t hash)
{
#ifdef __SIZEOF_INT128__
    static_assert(sizeof(size_t) == 8);
    const auto product = static_cast<unsigned __int128>(hash) * velhasharray->reciprocal;
    const size_t rest = hash - static_cast<size_t>(product >> 64) * velhasharray->slotcount;

    return rest < velhasharray->slotcount ? rest : rest - velhasharray->slotcount;
#else
    return hash % velhasharray->slotcount;
#endif
}

/* The bit in the filter of a slot that stands for a hash. */
static inline uint64_t vel_hash_filter_bit(size_t hash)
{
    return uint64_t{1} << (uint64_t{hash} * 0x9e3779b97f4a7c15 >> 58);
}

/* A slot that may have items, or NULL. */
static inline const velhashslot *vel_hash_array_peek(const velhasharray *velhasharray, size_t slot)
{
    if (slot < velhasharray->cursor || velhasharray->blockusage[slot / vel_hash_blockslots] == 0)
        return nullptr;
    return &velhasharray->slots[slot];
}

/* Links an item at the tail of a slot. */
static inline void vel_hash_array_link(velhasharray *velhasharray, size_t slot, size_t hash,
                                       vel_listlink *link)
{
    const size_t block = slot / vel_hash_blockslots;
    if (velhasharray->blockusage[block] == 0)
        vel_hash_array_open_block(velhasharray, block);
    velhasharray->blockusage[block]++;
    velhasharray->entries++;

    velhashslot *const hashslot = &velhasharray->slots[slot];
    vel_listlink *const head = hashslot->head;
    link->next = nullptr;
    if (head) {
        auto *const tail = static_cast<vel_listlink *>(head->prev);
        tail->next = link;
        link->prev = tail;
        head->prev = link;
    } else {
        link->prev = link;
        hashslot->head = link;
    }
    hashslot->filter |= vel_hash_filter_bit(hash);
}

/* Unlinks an item that is in a slot, and leaves it to the caller to count it out of entries. */
static inline void vel_hash_array_unlink_counted(velhasharray *velhasharray, size_t slot,
                                                 vel_listlink *link)
{
    velhasharray->blockusage[slot / vel_hash_blockslots]--;

    velhashslot *const hashslot = &velhasharray->slots[slot];
    auto *const next = static_cast<vel_listlink *>(link->next);
    auto *const prev = static_cast<vel_listlink *>(link->prev);
    if (hashslot->head == link)
        hashslot->head = next;
    else
        prev->next = next;
    if (next)
        next->prev = prev;
    else if (hashslot->head)
        hashslot->head->prev = prev;
    else
        hashslot->filter = 0;
    link->next = nullptr;
    link->prev = nullptr;
}

/* Unlinks an item that is in a slot. */
static inline void vel_hash_array_unlink(velhasharray *velhasharray, size_t slot,
                                         vel_listlink *link)
{
    velhasharray->entries--;
    vel_hash_array_unlink_counted(velhasharray, slot, link);
}

#endif
