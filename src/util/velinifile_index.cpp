#include "util/velinifile_internal.h"

#include <string.h>

#include <vellib/velhashfunc.h>
#include <vellib/velmalloc.h>

static constexpr size_t vel_inifile_index_first = 8; /* slots */

static uint64_t vel_inifile_index_hash(const char *name)
{
    const uint64_t hash = vel_hashfunc_string(name) * UINT64_C(0x9E3779B97F4A7C15);
    return hash ^ hash >> 32;
}

/* The slot of that name, or the free one where it is to be put. */
static velinifileentry **vel_inifile_index_slot(const velinifileindex *index, const char *name,
                                                uint64_t hash)
{
    for (size_t i = hash;; i++) {
        velinifileentry **slot = &index->slots[i & (index->slotcount - 1)];
        const velinifileentry *entry = *slot;
        if (!entry || (entry->hash == hash && strcmp(entry->name, name) == 0))
            return slot;
    }
}

/* The first free slot for a hash. */
static velinifileentry **vel_inifile_index_free_slot(const velinifileindex *index, uint64_t hash)
{
    size_t i = hash;
    while (index->slots[i & (index->slotcount - 1)])
        i++;
    return &index->slots[i & (index->slotcount - 1)];
}

bool vel_inifile_index_reserve(velinifileindex *index)
{
    if (index->usecount < index->slotcount / 2)
        return true;
    velinifileindex bigger = {};
    bigger.slotcount = index->slotcount > 0 ? index->slotcount * 2 : vel_inifile_index_first;
    bigger.slots =
        static_cast<velinifileentry **>(vel_calloc(bigger.slotcount, sizeof(velinifileentry *)));
    if (!bigger.slots)
        return false;
    for (size_t i = 0; i < index->slotcount; i++) {
        if (index->slots[i])
            *vel_inifile_index_free_slot(&bigger, index->slots[i]->hash) = index->slots[i];
    }
    bigger.usecount = index->usecount;
    if (index->slots)
        vel_free(index->slots);
    *index = bigger;
    return true;
}

velinifileentry *vel_inifile_index_find(const velinifileindex *index, const char *name)
{
    if (index->usecount == 0)
        return nullptr;
    return *vel_inifile_index_slot(index, name, vel_inifile_index_hash(name));
}

velinifileentry *vel_inifile_index_put(velinifileindex *index, velinifileentry *entry)
{
    entry->hash = vel_inifile_index_hash(entry->name);
    velinifileentry **slot = vel_inifile_index_slot(index, entry->name, entry->hash);
    velinifileentry *former = *slot;
    *slot = entry;
    index->usecount += !former;
    return former;
}

void vel_inifile_index_remove(velinifileindex *index, const velinifileentry *entry)
{
    const size_t mask = index->slotcount - 1;
    size_t hole =
        static_cast<size_t>(vel_inifile_index_slot(index, entry->name, entry->hash) - index->slots);

    /* What stands behind the hole moves into it, unless it would then stand ahead of its hash. */
    for (size_t i = (hole + 1) & mask; index->slots[i]; i = (i + 1) & mask) {
        const size_t distance = (i - index->slots[i]->hash) & mask;
        if (distance < ((i - hole) & mask))
            continue;
        index->slots[hole] = index->slots[i];
        hole = i;
    }
    index->slots[hole] = nullptr;
    index->usecount--;
}
