#ifndef VELLIB_ADT_VELSTRINGHASH_INTERNAL_H
#define VELLIB_ADT_VELSTRINGHASH_INTERNAL_H

#include <cstddef>

#include <vellib/velstringhash.h>

/* Ends a resize that is going on. Until the next change of the table lookups only read, and may come
 * from several threads. */
void vel_stringhash_settle(velstringhash *velstringhash);

/* Entries in memory of a neighbour, who has some at hand. */

/* Tells whether the entry of a value is in memory of the neighbour. */
typedef bool vel_stringhash_borrowed_cb(const void *value);

/* Sets what tells that, before the first entry of the kind. */
void vel_stringhash_set_borrowed(velstringhash *velstringhash,
                                 vel_stringhash_borrowed_cb *borrowedcallback);

/* The bytes that an entry takes whose key has this length. */
size_t vel_stringhash_entry_size(size_t keylen);

/* What vel_stringhash_add does, in memory of that size for pointers, which has to outlive the
 * entry; so it does not fail. */
void vel_stringhash_add_in(velstringhash *velstringhash, void *memory, const char *key,
                           void *value);

#endif
