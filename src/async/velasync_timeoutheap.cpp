#include "async/velasync_timeoutheap.h"

/* Tells whether a comes before b. */
static bool vel_async_timeoutheap_before(const velasynctimeoutnode *a, const velasynctimeoutnode *b)
{
    if (a->seconds != b->seconds)
        return a->seconds < b->seconds;
    if (a->micros != b->micros)
        return a->micros < b->micros;
    return a->sequence < b->sequence;
}

/* Makes one tree of two, the later one becoming a child of the earlier one. */
static velasynctimeoutnode *vel_async_timeoutheap_merge(velasynctimeoutnode *a,
                                                        velasynctimeoutnode *b)
{
    velasynctimeoutnode *parent = vel_async_timeoutheap_before(a, b) ? a : b;
    velasynctimeoutnode *child = parent == a ? b : a;
    child->prev = parent;
    child->next = parent->child;
    if (child->next)
        child->next->prev = child;
    parent->child = child;
    return parent;
}

/* Makes one tree of a list of children, or returns NULL if there are none. Merging neighbours first
 * and the results then from the last to the first is what keeps the trees shallow. */
static velasynctimeoutnode *vel_async_timeoutheap_gather(velasynctimeoutnode *list)
{
    velasynctimeoutnode *pairs = nullptr; /* in reverse, linked by next */
    while (list) {
        velasynctimeoutnode *tree = list;
        velasynctimeoutnode *neighbour = list->next;
        list = nullptr;
        if (neighbour) {
            list = neighbour->next;
            tree = vel_async_timeoutheap_merge(tree, neighbour);
        }
        tree->next = pairs;
        pairs = tree;
    }
    velasynctimeoutnode *result = pairs;
    velasynctimeoutnode *rest = pairs ? pairs->next : nullptr;
    while (rest) {
        velasynctimeoutnode *tree = rest;
        rest = rest->next;
        result = vel_async_timeoutheap_merge(result, tree);
    }
    return result;
}

/* Adds a tree. */
static void vel_async_timeoutheap_plant(velasynctimeoutheap *heap, velasynctimeoutnode *tree)
{
    if (tree && heap->root)
        tree = vel_async_timeoutheap_merge(heap->root, tree);
    if (!tree)
        return;
    tree->next = nullptr;
    tree->prev = nullptr;
    heap->root = tree;
}

void vel_async_timeoutheap_add(velasynctimeoutheap *heap, velasynctimeoutnode *node)
{
    node->child = nullptr;
    node->sequence = heap->sequence++;
    vel_async_timeoutheap_plant(heap, node);
}

void vel_async_timeoutheap_remove(velasynctimeoutheap *heap, velasynctimeoutnode *node)
{
    if (node == heap->root) {
        heap->root = nullptr;
    } else {
        if (node->prev->child == node)
            node->prev->child = node->next;
        else
            node->prev->next = node->next;
        if (node->next)
            node->next->prev = node->prev;
    }
    vel_async_timeoutheap_plant(heap, vel_async_timeoutheap_gather(node->child));
}
