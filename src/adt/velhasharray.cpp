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
    if (velhasharray->borrowed)
        return;
    vel_free(velhasharray->slots);
    vel_free(velhasharray);
}

/* The size of the block for the slots and the usage of their blocks. */
static size_t vel_hash_array_slotsize(size_t slotcount)
{
    return slotcount * sizeof(velhashslot) + vel_hash_blockcount(slotcount) * sizeof(uint32_t);
}

/* Gives an array its slots, of which only the usage of the blocks is zeroed. */
static void vel_hash_array_set_slots(velhasharray *velhasharray, velhashslot *slots,
                                     size_t slotcount)
{
    velhasharray->slotcount = slotcount;
    velhasharray->slots = slots;
    velhasharray->reciprocal = SIZE_MAX / slotcount;
    velhasharray->blockusage = reinterpret_cast<uint32_t *>(slots + slotcount);
    memset(velhasharray->blockusage, 0, vel_hash_blockcount(slotcount) * sizeof(uint32_t));
}

/* NULL also if the size cannot be told in a size_t. */
static velhashslot *vel_hash_array_allocate_slots(size_t slotcount)
{
    if (slotcount > SIZE_MAX / sizeof(velhashslot) / 2)
        return nullptr;
    return static_cast<velhashslot *>(vel_malloc(vel_hash_array_slotsize(slotcount)));
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
    velhashslot *const slots = vel_hash_array_allocate_slots(slotcount);
    if (!slots) {
        VEL_LOG_IN(vel_hash_array_module, 7, "not enough memory for hash array slots (%zu bytes)",
                   slotcount * sizeof(velhashslot));
        vel_hash_array_destroy(velhasharray);
        return nullptr;
    }
    vel_hash_array_set_slots(velhasharray, slots, slotcount);
    return velhasharray;
}

size_t vel_hash_array_size(size_t slotcount)
{
    return (sizeof(velhasharray) + vel_hash_array_slotsize(slotcount) + 7) & ~size_t{7};
}

velhasharray *vel_hash_array_create_in(void *memory, size_t slotcount)
{
    auto *const velhasharray = static_cast<struct velhasharray *>(memory);

    *velhasharray = {};
    velhasharray->borrowed = true;
    vel_hash_array_set_slots(velhasharray, reinterpret_cast<velhashslot *>(velhasharray + 1),
                             slotcount);
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
