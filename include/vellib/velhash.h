#ifndef VELLIB_VELHASH_H
#define VELLIB_VELHASH_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velhash: a chained hash table over links that stand in the items. It never stops to resize: to
 * grow or shrink it makes a second array of slots, and each add and each remove that follows moves
 * one item over. No single call pays for the whole table.
 *
 * The items are memory of the caller, and the table allocates nothing for them, so adding cannot
 * fail. An item has a vel_listlink (vellist.h) somewhere inside, at the same offset in every item,
 * which the table uses while it has the item:
 *
 *     struct person { const char *name; vel_listlink link; };
 *     velhash *people = vel_hash_create(offsetof(struct person, link), ...);
 *
 * A key is in a table once: adding an item destroys the item with an equal key. From
 * vel_hash_add until vel_hash_remove an item is the table's, which ends it through the destroy
 * callback.
 *
 * A table starts with 5 slots and never has fewer. It starts to grow, to four times as many slots
 * and one, when nine in ten are outnumbered, and to shrink when a tenth of the slots or less is
 * left of items. Without memory for the second array it goes on as it is and tries again later.
 * Threads: one at a time, also for a lookup and for an enumeration: during a resize a lookup moves
 * the item that it finds. */
typedef struct velhash velhash;

/* Gives the hash of an item. Called once for each add, lookup and remove, and for each item that an
 * add or a remove moves, so it should be cheap; it must give the same for as long as the item is in
 * the table.
 *
 * item     an item, or what was given to vel_hash_lookup.
 * context  what was given to vel_hash_create.
 *
 * The callbacks of a table run in the thread of the call and must not use the table. */
typedef size_t vel_hash_calc_cb(const void *item, void *context);

/* Compares the keys of two items.
 *
 * item1    an item of the table.
 * item2    an item, or what was given to vel_hash_lookup.
 * context  what was given to vel_hash_create.
 *
 * Returns 0 if the keys are equal, or any other number. */
typedef int vel_hash_compare_cb(const void *item1, const void *item2, void *context);

/* Destroys an item that the table has let go of. */
typedef void vel_hash_destroy_cb(void *item, void *context);

VEL_DECLARATIONS_BEGIN

/* Creates an empty table.
 *
 * linkoffset       distance in bytes from the start of an item to its link.
 * calchashcallback, comparecallback, destroycallback  may not be NULL.
 * context          handed to the callbacks; may be NULL.
 *
 * Returns the table, for vel_hash_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API velhash *vel_hash_create(size_t linkoffset, vel_hash_calc_cb *calchashcallback,
                                 vel_hash_compare_cb *comparecallback,
                                 vel_hash_destroy_cb *destroycallback, void *context);

/* Creates an empty table with the offset, callbacks and context of another. Items are not copied.
 *
 * Returns the table, for vel_hash_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API velhash *vel_hash_create_from(velhash *original);

/* Destroys a table with its items. */
VEL_API void vel_hash_destroy(velhash *velhash);

/* Destroys all items and returns the table to 5 slots, or leaves it at its size if there is not
 * enough memory, which is logged. */
VEL_API void vel_hash_clear(velhash *velhash);

/* Adds an item. An item with an equal key that is in the table is destroyed first.
 *
 * item  becomes the table's. It must not be in the table. */
VEL_API void vel_hash_add(velhash *velhash, void *item);

/* Takes an item out without destroying it. The way is to look the item up and to remove what
 * vel_hash_lookup gave, with nothing done to the table in between.
 *
 * item  an item in the table; it is the caller's again.
 *
 * Note: that the item is there is not checked. While the table resizes, only vel_hash_lookup
 * makes sure that an item can be removed, and removing one that an enumeration gave spoils the
 * counters. */
VEL_API void vel_hash_remove(velhash *velhash, void *item);

/* Looks up the item with a key.
 *
 * searchitem  what the calc and compare callbacks accept as an item, typically one on the stack
 *             with the key filled in. It is not kept.
 *
 * Returns the item, which stays the table's, or NULL if there is none. */
VEL_API void *vel_hash_lookup(velhash *velhash, const void *searchitem);

/* Gives the first item of an enumeration, which gives each item once, in no particular order.
 *
 * Returns the item, which stays the table's, or NULL if the table is empty. */
VEL_API void *vel_hash_enumerate_start(velhash *velhash);

/* Gives the item after another one. From the start of an enumeration to its end nothing may be
 * added, removed or looked up.
 *
 * item  the item that was given last.
 *
 * Returns the item, which stays the table's, or NULL if there are no more.
 * Note: an item that is not in the table may abort the process, after a line of level 6. */
VEL_API void *vel_hash_enumerate_next(velhash *velhash, void *item);

/* Tells how the items are spread, for tests. Each pointer may be NULL.
 *
 * mainentries, mainslots        items and slots of the array in use.
 * biggerentries, biggerslots    those of the array that items move to while the table grows, or 0.
 * smallerentries, smallerslots  those of the array that they move to while it shrinks, or 0. */
VEL_API void vel_hash_debug_state(velhash *velhash, size_t *mainentries, size_t *mainslots,
                                  size_t *biggerentries, size_t *biggerslots,
                                  size_t *smallerentries, size_t *smallerslots);

VEL_DECLARATIONS_END

#endif
