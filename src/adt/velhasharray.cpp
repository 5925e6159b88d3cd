#include "adt/velhasharray.h"

#include <algorithm>
#include <cstring>

#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

/* An array is a part of velhash, and its lines say so. */
static constexpr char vel_hash_array_module[] = "adt/velhash";

static size_t vel_hash_blockcount(size_t slotcount)
{
    return (slotcount + vel_hash_blockslots - 1) / vel_hash_blockslots;
}

void vel_hash_array_destroy(velhasharray *velhasharray)
{
    vel_free(velhasharray->slots);
    vel_free(velhasharray);
}

/* One block of memory for the slots and the usage of their blocks, of which only the usage is
 * zeroed. NULL also if its size cannot be told in a size_t. */
static velhashslot *vel_hash_array_allocate_slots(size_t slotcount)
{
    if (slotcount > SIZE_MAX / sizeof(velhashslot) / 2)
        return nullptr;
    const size_t slotsize = slotcount * sizeof(velhashslot);
    const size_t usagesize = vel_hash_blockcount(slotcount) * sizeof(uint32_t);

    auto *slots = static_cast<velhashslot *>(vel_malloc(slotsize + usagesize));
    if (slots)
        memset(slots + slotcount, 0, usagesize);
    return slots;
}

velhasharray *vel_hash_array_create(size_t slotcount)
{
    VEL_ASSERT(slotcount >= 5);

    auto *velhasharray =
        static_cast<struct velhasharray *>(vel_cmalloc(sizeof(struct velhasharray)));
    if (!velhasharray) {
        VEL_LOG_IN(vel_hash_array_module, 7, "not enough memory for hash array structure");
        return nullptr;
    }
    velhasharray->slots = vel_hash_array_allocate_slots(slotcount);
    if (!velhasharray->slots) {
        VEL_LOG_IN(vel_hash_array_module, 7, "not enough memory for hash array slots (%zu bytes)",
                   slotcount * sizeof(velhashslot));
        vel_hash_array_destroy(velhasharray);
        return nullptr;
    }
    velhasharray->slotcount = slotcount;
    velhasharray->reciprocal = SIZE_MAX / slotcount;
    velhasharray->blockusage = reinterpret_cast<uint32_t *>(velhasharray->slots + slotcount);
    return velhasharray;
}

void vel_hash_array_open_block(velhasharray *velhasharray, size_t block)
{
    const size_t start = block * vel_hash_blockslots;
    const size_t count = std::min(vel_hash_blockslots, velhasharray->slotcount - start);

    memset(velhasharray->slots + start, 0, count * sizeof(velhashslot));
    velhasharray->blockusage[block] = 1;
}

vel_listlink *vel_hash_array_first(const velhasharray *velhasharray, size_t startslot,
                                   size_t *slotptr)
{
    VEL_ASSERT(startslot < velhasharray->slotcount);

    const size_t slotcount = velhasharray->slotcount;
    size_t slot = startslot;
    while (slot < slotcount) {
        const size_t block = slot / vel_hash_blockslots;
        const size_t end = std::min((block + 1) * vel_hash_blockslots, slotcount);

        if (velhasharray->blockusage[block] <= 1)
            slot = end;
        for (; slot < end; slot++) {
            if (velhasharray->slots[slot].head) {
                *slotptr = slot;
                return velhasharray->slots[slot].head;
            }
        }
    }
    *slotptr = slotcount - 1;
    return nullptr;
}
