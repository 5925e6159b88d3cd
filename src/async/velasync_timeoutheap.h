#ifndef VELLIB_ASYNC_VELASYNC_TIMEOUTHEAP_H
#define VELLIB_ASYNC_VELASYNC_TIMEOUTHEAP_H

#include <cstddef>
#include <cstdint>

/* Timeouts by deadline, and by the order of adding where deadlines are equal: a heap with four
 * children a node, in an array that has all that is compared. To look at the first takes constant
 * time, to add and to remove it logarithmic time. Any other that is removed leaves its entry behind,
 * until that is first or most entries are such: most timeouts never fire, and cost little then. */

struct velasynctimeoutnode {
    int32_t seconds; /* the deadline; compared with its sign */
    uint32_t micros; /* below 1000000 */
    size_t position; /* in the array */
};

struct velasynctimeoutentry {
    int64_t deadline;          /* the seconds above the microseconds */
    uint64_t sequence;         /* tells which of two equal deadlines was added first */
    velasynctimeoutnode *node; /* NULL if it was removed; the first entry always has one */
};

struct velasynctimeoutheap {
    velasynctimeoutentry *entries; /* owned, unless it is those below */
    size_t count;
    size_t vacantcount; /* of the entries without a node */
    size_t capacity;
    uint64_t sequence; /* of the next one */
    velasynctimeoutentry few[32];
};

/* Creates an empty heap with room for a few, or returns NULL. */
velasynctimeoutheap *vel_async_timeoutheap_create();

void vel_async_timeoutheap_destroy(velasynctimeoutheap *heap);

/* Makes room for one more. Returns false, with nothing changed, if there is not enough memory. */
bool vel_async_timeoutheap_reserve(velasynctimeoutheap *heap);

/* Adds a node, of which the deadline is set, and for which there is room. */
void vel_async_timeoutheap_add(velasynctimeoutheap *heap, velasynctimeoutnode *node);

/* Removes a node. */
void vel_async_timeoutheap_remove(velasynctimeoutheap *heap, velasynctimeoutnode *node);

/* Returns the first node, or NULL. */
static inline velasynctimeoutnode *vel_async_timeoutheap_first(const velasynctimeoutheap *heap)
{
    return heap->count > 0 ? heap->entries[0].node : nullptr;
}

#endif
