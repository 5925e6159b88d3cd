#ifndef VELLIB_VELSTRINGHASH_H
#define VELLIB_VELSTRINGHASH_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velstringhash: a dictionary from string keys to pointers, on the hash table of velhash.h, which
 * resizes a step at a time. Keys are copied and compared byte by byte, so case matters.
 * Threads: one at a time, also for a lookup and for an enumeration: during a resize a lookup moves
 * the entry that it finds. */
typedef struct velstringhash velstringhash;

/* Ends a value that has left the table: replaced, removed, cleared or destroyed with it.
 *
 * value    the value, which may be NULL if NULL was added.
 * context  what was given to vel_stringhash_create.
 *
 * Runs in the thread of the call and must not use the table. */
typedef void vel_stringhash_destroy_cb(void *value, void *context);

VEL_DECLARATIONS_BEGIN

/* Creates an empty table.
 *
 * destroycallback  called for each value that leaves the table; with NULL, values are dropped.
 * context          handed to the callback; may be NULL.
 *
 * Returns the table, for vel_stringhash_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API velstringhash *vel_stringhash_create(vel_stringhash_destroy_cb *destroycallback,
                                             void *context);

/* Creates an empty table with the callback and the context of another. Entries are not copied.
 *
 * Returns the table, for vel_stringhash_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API velstringhash *vel_stringhash_create_from(velstringhash *original);

/* Destroys a table with its entries. */
VEL_API void vel_stringhash_destroy(velstringhash *velstringhash);

/* Destroys all entries. */
VEL_API void vel_stringhash_clear(velstringhash *velstringhash);

/* Stores a value under a key. The value that stood there, if any, goes to the callback.
 *
 * key    is copied.
 * value  becomes the table's if the call succeeds; may be NULL.
 *
 * Returns 0, or -1 with nothing changed if there is not enough memory, which is not logged. */
VEL_API int vel_stringhash_add(velstringhash *velstringhash, const char *key, void *value);

/* Removes a key. Its value goes to the callback.
 *
 * Returns 0, or -1 if the key is not there. */
VEL_API int vel_stringhash_remove(velstringhash *velstringhash, const char *key);

/* Looks up the value under a key.
 *
 * Returns the value, which stays the table's, or NULL if the key is not there.
 * Note: a NULL that was stored looks like a missing key. */
VEL_API void *vel_stringhash_lookup(velstringhash *velstringhash, const char *key);

/* Gives the first entry of an enumeration, which gives each entry once, in no particular order.
 *
 * keyptr    receives the key, which stays the table's; NULL at the end. May be NULL.
 * valueptr  receives the value; NULL at the end. May be NULL.
 *
 * Returns a handle of the entry for vel_stringhash_enumerate_next, or NULL if there is none. */
VEL_API void *vel_stringhash_enumerate_start(velstringhash *velstringhash, const char **keyptr,
                                             void **valueptr);

/* Gives the entry after another one. From the start of an enumeration to its end nothing may be
 * added, removed or looked up.
 *
 * prevstringhashitem  the handle that was given last.
 * keyptr, valueptr    as in vel_stringhash_enumerate_start.
 *
 * Returns a handle of the entry, or NULL if there are no more. */
VEL_API void *vel_stringhash_enumerate_next(velstringhash *velstringhash, void *prevstringhashitem,
                                            const char **keyptr, void **valueptr);

VEL_DECLARATIONS_END

#endif
