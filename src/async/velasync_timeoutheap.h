#ifndef VELLIB_ASYNC_VELASYNC_TIMEOUTHEAP_H
#define VELLIB_ASYNC_VELASYNC_TIMEOUTHEAP_H

#include <cstdint>

/* Timeouts by deadline, and by the order of adding where deadlines are equal: a pairing heap. To add
 * and to look at the first takes constant time, to remove any one logarithmic time on average. The
 * nodes stand in what they are about, so nothing is ever allocated. */

/* Each node has its first child, and the children of a node are a list, in no order. */
struct velasynctimeoutnode {
    velasynctimeoutnode *child;
    velasynctimeoutnode *next;
    velasynctimeoutnode *prev; /* the parent, for its first child */
    int32_t seconds;           /* the deadline; compared with its sign */
    uint32_t micros;           /* below 1000000 */
    uint64_t sequence;         /* tells which of two equal deadlines was added first */
};

/* Zeroed, it is empty. */
struct velasynctimeoutheap {
    velasynctimeoutnode *root; /* the first timeout, or NULL */
    uint64_t sequence;         /* of the next one */
};

/* Adds a node, of which the deadline is set. */
void vel_async_timeoutheap_add(velasynctimeoutheap *heap, velasynctimeoutnode *node);

/* Removes a node. */
void vel_async_timeoutheap_remove(velasynctimeoutheap *heap, velasynctimeoutnode *node);

#endif
