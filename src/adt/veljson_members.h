#ifndef VELLIB_ADT_VELJSON_MEMBERS_H
#define VELLIB_ADT_VELJSON_MEMBERS_H

#include <cstddef>
#include <cstdint>

#include "adt/veljson_internal.h"

/* The members of an object that is being read into the pool. Its entries are those of a table, whose
 * values are the members' without key nodes between. But as long as it can do without, it has no table,
 * only the memory promised for one: then the entries are a chain. It is in the order of the text until
 * somebody looks, and from then on in that of the table. A table is made of it at once if a key comes
 * twice, or if there are many members; later, if a table would change. All log lines of the table come
 * when they would come from one. */

/* An object that is being read. */
struct vel_json_members {
    veljsonnode *objectnode;
    vel_json_pool *pool;
    velstringhashitem *last; /* of the chain, or NULL */
    uint64_t seen[4];        /* a bit for each key in the chain */
};

/* Begins an object without members. */
void vel_json_members_begin(vel_json_members *members, veljsonnode *objectnode,
                            vel_json_pool *pool);

/* Adds a member that has its key and its value. Returns false without memory, which is logged. */
bool vel_json_members_add(vel_json_members *members, velstringhashitem *entry);

/* Ends the object. */
void vel_json_members_end(vel_json_members *members);

#endif
