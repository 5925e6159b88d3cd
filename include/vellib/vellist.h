#ifndef VELLIB_VELLIST_H
#define VELLIB_VELLIST_H

#include <stddef.h>

#include <vellib/velapi.h>

/* vellist: a doubly linked list whose links stand in the items. An item begins with two pointers,
 * next and prev, in this order, as vel_listlink has them; they are NULL at the ends of a list and
 * outside of one. A zeroed head is the empty list.
 * Threads: one at a time. */

/* The head of a list. */
typedef struct vel_list {
    void *head; /* the first item, or NULL */
    void *tail; /* the last item, or NULL */
} vel_list;

/* How an item begins. Its own fields may have the type of the item. */
typedef struct vel_listlink {
    void *next;
    void *prev;
} __attribute__((may_alias)) vel_listlink;

VEL_DECLARATIONS_BEGIN

/* Creates an empty list.
 *
 * Returns the list, for vel_list_destroy, or NULL if there is not enough memory. Logs nothing. */
VEL_API vel_list *vel_list_create(void);

/* Frees the head of a list. The items are left alone: empty the list before.
 *
 * list  a list from vel_list_create, or NULL. */
VEL_API void vel_list_destroy(vel_list *list);

/* Makes a head that stands in other memory the empty list. */
VEL_API void vel_list_init(vel_list *list);

/* Adds an item behind the last one. */
#define VEL_LIST_ADD_TAIL(list, item) vel_list_add_tail_inline(list, item)

/* Adds an item before the first one. */
#define VEL_LIST_ADD_HEAD(list, item) vel_list_add_head_inline(list, item)

/* Takes an item out of the list that it is in; its links become NULL. */
#define VEL_LIST_REMOVE(list, item) vel_list_remove_inline(list, item)

static inline void vel_list_add_tail_inline(vel_list *list, void *item)
{
    vel_listlink *const link = (vel_listlink *)item;
    vel_listlink *const last = (vel_listlink *)list->tail;

    link->prev = last;
    link->next = NULL;
    if (last)
        last->next = item;
    else
        list->head = item;
    list->tail = item;
}

static inline void vel_list_add_head_inline(vel_list *list, void *item)
{
    vel_listlink *const link = (vel_listlink *)item;
    vel_listlink *const first = (vel_listlink *)list->head;

    link->next = first;
    link->prev = NULL;
    if (first)
        first->prev = item;
    else
        list->tail = item;
    list->head = item;
}

static inline void vel_list_remove_inline(vel_list *list, void *item)
{
    vel_listlink *const link = (vel_listlink *)item;

    if (link->prev)
        ((vel_listlink *)link->prev)->next = link->next;
    else
        list->head = link->next;
    if (link->next)
        ((vel_listlink *)link->next)->prev = link->prev;
    else
        list->tail = link->prev;
    link->next = NULL;
    link->prev = NULL;
}

VEL_DECLARATIONS_END

#endif
