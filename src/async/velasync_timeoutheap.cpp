#include "async/velasync_timeoutheap.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include <vellib/velmalloc.h>

static constexpr size_t vel_async_timeoutheap_children = 4;
/* The first three levels: what comes there will soon be first, and its node be looked at. */
static constexpr size_t vel_async_timeoutheap_soon = 1 + 4 + 4 * 4;

static bool vel_async_timeoutheap_before(const velasynctimeoutentry &a,
                                         const velasynctimeoutentry &b)
{
    return a.deadline < b.deadline || (a.deadline == b.deadline && a.sequence < b.sequence);
}

/* Puts an entry at a free position or above, moving what comes after it down. */
static void vel_async_timeoutheap_rise(velasynctimeoutheap *heap, size_t position,
                                       const velasynctimeoutentry &entry)
{
    while (position > 0) {
        const size_t parent = (position - 1) / vel_async_timeoutheap_children;
        if (!vel_async_timeoutheap_before(entry, heap->entries[parent]))
            break;
        heap->entries[position] = heap->entries[parent];
        position = parent;
    }
    heap->entries[position] = entry;
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
        heap->entries[position] = heap->entries[child];
        if (position < vel_async_timeoutheap_soon)
            __builtin_prefetch(heap->nodes[heap->entries[position].slot]);
        position = child;
    }
    heap->entries[position] = entry;
}

/* Shares out the slots, of which each entry in use has one. */
static void vel_async_timeoutheap_share_out(velasynctimeoutheap *heap)
{
    for (size_t slot = heap->count; slot < heap->capacity; slot++)
        heap->entries[slot].slot = slot;
}

velasynctimeoutheap *vel_async_timeoutheap_create()
{
    auto *heap = static_cast<velasynctimeoutheap *>(vel_cmalloc(sizeof(velasynctimeoutheap)));
    if (!heap)
        return nullptr;
    heap->entries = heap->fewentries;
    heap->nodes = heap->fewnodes;
    heap->capacity = std::size(heap->fewentries);
    vel_async_timeoutheap_share_out(heap);
    return heap;
}

void vel_async_timeoutheap_destroy(velasynctimeoutheap *heap)
{
    vel_free(heap->block);
    vel_free(heap);
}

/* Drops the entries without a node, and makes a heap of the others. */
static void vel_async_timeoutheap_compact(velasynctimeoutheap *heap)
{
    size_t count = 0;
    for (size_t i = 0; i < heap->count; i++) {
        if (heap->nodes[heap->entries[i].slot])
            std::swap(heap->entries[count++], heap->entries[i]);
    }
    heap->count = count;
    heap->vacantcount = 0;
    for (size_t i = count; i-- > 0;) {
        const velasynctimeoutentry entry = heap->entries[i];
        vel_async_timeoutheap_sink(heap, i, entry);
    }
}

/* Doubles the room. Without memory for that all stays as it is. */
static void vel_async_timeoutheap_grow(velasynctimeoutheap *heap)
{
    /* As much stands in memory already, so twice the size does not overflow. */
    const size_t entriessize = heap->capacity * sizeof(velasynctimeoutentry);
    const size_t nodessize = heap->capacity * sizeof(velasynctimeoutnode *);
    void *block = vel_malloc(2 * (entriessize + nodessize));
    if (!block)
        return;
    auto *entries = static_cast<velasynctimeoutentry *>(block);
    auto *nodes = reinterpret_cast<velasynctimeoutnode **>(entries + 2 * heap->capacity);
    memcpy(entries, heap->entries, entriessize);
    memcpy(nodes, heap->nodes, nodessize);
    vel_free(heap->block);
    heap->block = block;
    heap->entries = entries;
    heap->nodes = nodes;
    heap->capacity *= 2;
    vel_async_timeoutheap_share_out(heap);
}

bool vel_async_timeoutheap_reserve(velasynctimeoutheap *heap)
{
    if (heap->count == heap->capacity && heap->vacantcount <= heap->count / 2)
        vel_async_timeoutheap_grow(heap);
    if (heap->count == heap->capacity && heap->vacantcount > 0)
        vel_async_timeoutheap_compact(heap);
    return heap->count < heap->capacity;
}

void vel_async_timeoutheap_add(velasynctimeoutheap *heap, velasynctimeoutnode *node)
{
    const int64_t deadline =
        static_cast<int64_t>(node->seconds) * (int64_t{1} << 32) + node->micros;
    node->slot = heap->entries[heap->count].slot;
    heap->nodes[node->slot] = node;
    vel_async_timeoutheap_rise(heap, heap->count++, {deadline, heap->sequence++, node->slot});
}

/* Drops the first of several entries. Its slot is free. */
static void vel_async_timeoutheap_drop_first(velasynctimeoutheap *heap)
{
    const size_t slot = heap->entries[0].slot;
    const velasynctimeoutentry last = heap->entries[--heap->count];
    heap->entries[heap->count].slot = slot;
    vel_async_timeoutheap_sink(heap, 0, last);
}

void vel_async_timeoutheap_remove(velasynctimeoutheap *heap, velasynctimeoutnode *node)
{
    heap->nodes[node->slot] = nullptr;
    heap->vacantcount++;
}

velasynctimeoutnode *vel_async_timeoutheap_first(velasynctimeoutheap *heap)
{
    if (heap->vacantcount > heap->count / 2)
        vel_async_timeoutheap_compact(heap);
    while (heap->count > 0) {
        velasynctimeoutnode *node = heap->nodes[heap->entries[0].slot];
        if (node)
            return node;
        vel_async_timeoutheap_drop_first(heap);
        heap->vacantcount--;
    }
    return nullptr;
}
