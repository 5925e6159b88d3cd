/* The order in which a table lists entries, without the table. */
#include <cstdint>
#include <utility>

#include "adt/velhash_core.h"
#include "adt/velstringhash_internal.h"
#include "util/velassert.h"

void vel_stringhash_log_create()
{
    vel_hash_log_create();
}

void vel_stringhash_log_add(size_t entries)
{
    vel_hash_log_add(entries);
}

size_t vel_stringhash_pending(size_t entries)
{
    bool growing;
    const size_t slotcount = vel_hash_slotcount_after(entries, &growing);

    return growing ? 2 * vel_hash_limit(slotcount) - entries : 0;
}

/* The entries of an array in the order in which they were added to it or moved there. */
struct vel_stringhash_sequence {
    velstringhashitem *entries[vel_stringhash_chain_most];
    size_t first; /* those before it have moved on */
    size_t end;
};

static void vel_stringhash_append(vel_stringhash_sequence *sequence, velstringhashitem *entry)
{
    sequence->entries[sequence->end++] = entry;
}

/* Sorts a sequence by the slots of an array, those of a slot in their order. */
static void vel_stringhash_sort(vel_stringhash_sequence *sequence, size_t slotcount)
{
    static constexpr size_t mostslots = 85; /* are enough for the longest chain */
    uint8_t places[mostslots + 1] = {};     /* behind the last one of the slot before */
    uint8_t slots[vel_stringhash_chain_most];
    velstringhashitem *unsorted[vel_stringhash_chain_most];
    const size_t count = sequence->end;

    VEL_ASSERT(slotcount <= mostslots);
    for (size_t i = 0; i < count; i++) {
        unsorted[i] = sequence->entries[i];
        slots[i] = static_cast<uint8_t>(unsorted[i]->hash % slotcount);
        places[slots[i] + 1]++;
    }
    for (size_t slot = 1; slot <= slotcount; slot++)
        places[slot] = static_cast<uint8_t>(places[slot] + places[slot - 1]);
    for (size_t i = 0; i < count; i++)
        sequence->entries[places[slots[i]]++] = unsorted[i];
}

/* Links a sequence behind a place, and returns the place behind it. */
static void **vel_stringhash_link(void **place, const vel_stringhash_sequence *sequence)
{
    for (size_t i = sequence->first; i < sequence->end; i++) {
        *place = sequence->entries[i];
        place = &sequence->entries[i]->link.next;
    }
    *place = nullptr;
    return place;
}

/* Each array is filled by the entries that are added, and by those of the array before, of which each
 * addition moves the first one in order. */
velstringhashitem *vel_stringhash_order(velstringhashitem *chain, size_t entries)
{
    VEL_ASSERT(entries <= vel_stringhash_chain_most);

    vel_stringhash_sequence sequences[2];
    vel_stringhash_sequence *main = &sequences[0], *target = &sequences[1];
    size_t slotcount = vel_hash_initialslots;

    main->first = main->end = 0;
    for (;;) {
        target->first = target->end = 0;
        while (chain && (main->first < main->end || target->end < vel_hash_limit(slotcount))) {
            vel_stringhash_append(target, chain);
            chain = static_cast<velstringhashitem *>(chain->link.next);
            if (main->first < main->end)
                vel_stringhash_append(target, main->entries[main->first++]);
        }
        vel_stringhash_sort(target, slotcount);
        if (!chain)
            break;
        std::swap(main, target);
        slotcount = vel_hash_grown(slotcount);
    }
    void *first;
    (void)vel_stringhash_link(vel_stringhash_link(&first, target), main);
    return static_cast<velstringhashitem *>(first);
}
