#include "async/velasync_timeoutheap.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include <vellib/velmalloc.h>

static constexpr size_t vel_async_timeoutheap_children = 4;

static bool vel_async_timeoutheap_before(const velasynctimeoutentry &a,
                                         const velasynctimeoutentry &b)
{
    return a.deadline < b.deadline || (a.deadline == b.deadline && a.sequence < b.sequence);
}

static void vel_async_timeoutheap_put(velasynctimeoutheap *heap, size_t position,
                                      const velasynctimeoutentry &entry)
{
    heap->entries[position] = entry;
    if (entry.node)
        entry.node->position = position;
}

/* Puts an entry at a free position or above, moving what comes after it down. */
static void vel_async_timeoutheap_rise(velasynctimeoutheap *heap, size_t position,
                                       const velasynctimeoutentry &entry)
{
    while (position > 0) {
        const size_t parent = (position - 1) / vel_async_timeoutheap_children;
        if (!vel_async_timeoutheap_before(entry, heap->entries[parent]))
            break;
        vel_async_timeoutheap_put(heap, position, heap->entries[parent]);
        position = parent;
    }
    vel_async_timeoutheap_put(heap, position, entry);
}

/* Puts an entry at a free position or below, moving what comes before it up. */
static void vel_async_timeoutheap_sink(velasynctimeoutheap *heap, size_t position,
                                       const velasynctimeoutentry &entry)
{
    for (;;) {
        size_t child = vel_async_timeoutheap_children * position + 1;
        if (child >= heap->count)
            break;
        const size_t end = std::min(child + vel_async_timeoutheap_children, heap->count);
        for (size_t other = child + 1; other < end; other++) {
            if (vel_async_timeoutheap_before(heap->entries[other], heap->entries[child]))
                child = other;
        }
        if (!vel_async_timeoutheap_before(heap->entries[child], entry))
            break;
        vel_async_timeoutheap_put(heap, position, heap->entries[child]);
        position = child;
    }
    vel_async_timeoutheap_put(heap, position, entry);
}

velasynctimeoutheap *vel_async_timeoutheap_create()
{
    auto *heap = static_cast<velasynctimeoutheap *>(vel_cmalloc(sizeof(velasynctimeoutheap)));
    if (!heap)
        return nullptr;
    heap->entries = heap->few;
    heap->capacity = std::size(heap->few);
    return heap;
}

/* Frees the array, if it is one of its own. */
static void vel_async_timeoutheap_release(velasynctimeoutheap *heap)
{
    if (heap->entries != heap->few)
        vel_free(heap->entries);
}

void vel_async_timeoutheap_destroy(velasynctimeoutheap *heap)
{
    vel_async_timeoutheap_release(heap);
    vel_free(heap);
}

bool vel_async_timeoutheap_reserve(velasynctimeoutheap *heap)
{
    if (heap->count < heap->capacity)
        return true;
    /* The entries stand in memory already, so twice their size does not overflow. */
    const size_t size = heap->capacity * sizeof(velasynctimeoutentry);
    auto *entries = static_cast<velasynctimeoutentry *>(vel_malloc(2 * size));
    if (!entries)
        return false;
    memcpy(entries, heap->entries, size);
    vel_async_timeoutheap_release(heap);
    heap->entries = entries;
    heap->capacity *= 2;
    return true;
}

void vel_async_timeoutheap_add(velasynctimeoutheap *heap, velasynctimeoutnode *node)
{
    const int64_t deadline =
        static_cast<int64_t>(node->seconds) * (int64_t{1} << 32) + node->micros;
    vel_async_timeoutheap_rise(heap, heap->count++, {deadline, heap->sequence++, node});
}

static void vel_async_timeoutheap_remove_first(velasynctimeoutheap *heap)
{
    const velasynctimeoutentry last = heap->entries[--heap->count];
    if (heap->count > 0)
        vel_async_timeoutheap_sink(heap, 0, last);
}

/* Drops the entries without a node, and makes a heap of the others. */
static void vel_async_timeoutheap_compact(velasynctimeoutheap *heap)
{
    size_t count = 0;
    for (size_t i = 0; i < heap->count; i++) {
        if (heap->entries[i].node)
            vel_async_timeoutheap_put(heap, count++, heap->entries[i]);
    }
    heap->count = count;
    heap->vacantcount = 0;
    for (size_t i = count; i-- > 0;) {
        const velasynctimeoutentry entry = heap->entries[i];
        vel_async_timeoutheap_sink(heap, i, entry);
    }
}

void vel_async_timeoutheap_remove(velasynctimeoutheap *heap, velasynctimeoutnode *node)
{
    heap->entries[node->position].node = nullptr;
    heap->vacantcount++;
    while (heap->count > 0 && !heap->entries[0].node) {
        vel_async_timeoutheap_remove_first(heap);
        heap->vacantcount--;
    }
    if (heap->vacantcount > heap->count / 2)
        vel_async_timeoutheap_compact(heap);
}
