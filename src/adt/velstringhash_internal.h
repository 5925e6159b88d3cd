#ifndef VELLIB_ADT_VELSTRINGHASH_INTERNAL_H
#define VELLIB_ADT_VELSTRINGHASH_INTERNAL_H

#include <cstddef>

#include <vellib/vellist.h>
#include <vellib/velstringhash.h>

/* Ends a resize that is going on. Until the next change of the table lookups only read, and may come
 * from several threads. */
void vel_stringhash_settle(velstringhash *velstringhash);

/* Tables in memory of a neighbour, who has some at hand. */

/* An entry, one block of memory. The hash is compared first, so that a key is hardly ever looked at in
 * vain. The key is filled up with NUL, one at least, to whole groups of eight bytes. */
struct velstringhashitem {
    vel_listlink link;
    void *value; /* the host's */
    size_t hash; /* of the key */
    char key[];
};

/* The bytes that an entry takes whose key has this length. */
static inline size_t vel_stringhash_entry_size(size_t keylen)
{
    return sizeof(velstringhashitem) + keylen / 8 * 8 + 8;
}

/* Gives an entry whose key is in place, of this length and not yet filled up, all but its value. */
void vel_stringhash_set_entry(velstringhashitem *entry, size_t keylen);

/* Tells whether two entries have the same key. */
bool vel_stringhash_same_entry(const velstringhashitem *entry, const velstringhashitem *other);

/* Tells whether the entry of a value is in memory of the neighbour. */
typedef bool vel_stringhash_borrowed_cb(const void *value);

/* Sets what tells that, before an entry of the kind goes. */
void vel_stringhash_set_borrowed(velstringhash *velstringhash,
                                 vel_stringhash_borrowed_cb *borrowedcallback);

/* Takes size bytes for pointers, which outlive the table, out of memory of the neighbour; NULL if there
 * are none. */
typedef void *vel_stringhash_take_cb(void *takecontext, size_t size);

/* A chain of entries, by the next of their links, no two with the same key, instead of a table to which
 * they have been added one after the other. The chain may be brought into the order in which that table
 * lists them. */

static constexpr size_t vel_stringhash_chain_most = 64;

/* Logs what is said when the table is created, and when the last of this many entries is added to it. */
void vel_stringhash_log_create();
void vel_stringhash_log_add(size_t entries);

/* Brings a chain of at most vel_stringhash_chain_most entries into order. Returns the first. */
velstringhashitem *vel_stringhash_order(velstringhashitem *chain, size_t entries);

/* How many entries at the end of an ordered chain the table would move if they are looked up. */
size_t vel_stringhash_pending(size_t entries);

/* The bytes that the table takes. */
size_t vel_stringhash_size(size_t entries);

/* Makes the table of an ordered chain in memory of the neighbour, or returns NULL, with a line logged. */
velstringhash *vel_stringhash_create_in(velstringhashitem *chain, size_t entries,
                                        vel_stringhash_destroy_cb *destroycallback, void *context,
                                        vel_stringhash_take_cb *takecallback, void *takecontext);

/* Does what vel_stringhash_add does with an entry that has all that belongs to it, and cannot fail. */
void vel_stringhash_add_entry(velstringhash *velstringhash, velstringhashitem *entry);

/* Has a table in such memory allocate from now on. */
void vel_stringhash_release(velstringhash *velstringhash);

#endif
