#ifndef VELLIB_ASYNC_VELASYNC_TIMEOUTHEAP_H
#define VELLIB_ASYNC_VELASYNC_TIMEOUTHEAP_H

#include <cstddef>
#include <cstdint>

/* Timeouts by deadline, and by the order of adding where deadlines are equal: a heap with four
 * children a node, in an array that has all that is compared. To look at the first takes constant
 * time, to add and to take it away logarithmic time. What is removed leaves its entry behind, and the
 * next look at the first drops it, if it stands first or most entries are such: most timeouts never
 * fire, and cost little then.
 *
 * An entry has a slot as long as it stands there, and the node knows the slot and not the entry. So
 * what moves in the heap does not touch the nodes, which are spread over the memory. */

struct velasynctimeoutnode {
    int32_t seconds; /* the deadline; compared with its sign */
    uint32_t micros; /* below 1000000 */
    size_t slot;
};

struct velasynctimeoutentry {
    int64_t deadline;  /* the seconds above the microseconds */
    uint64_t sequence; /* tells which of two equal deadlines was added first */
    size_t slot;
};

struct velasynctimeoutheap {
    velasynctimeoutentry *entries; /* those behind the count have the free slots */
    velasynctimeoutnode **nodes;   /* by slot, NULL if it was removed */
    size_t count;
    size_t vacantcount; /* of the entries without a node */
    size_t capacity;
    uint64_t sequence; /* of the next one */
    void *block;       /* owned: entries and nodes, unless they are those below */
    velasynctimeoutentry fewentries[32];
    velasynctimeoutnode *fewnodes[32];
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
velasynctimeoutnode *vel_async_timeoutheap_first(velasynctimeoutheap *heap);

#endif
