#include "adt/veljson_members.h"

#include <cstring>

#include "util/velassert.h"

/* In a chain of so many members a key is searched for without a table. */
static constexpr size_t vel_json_members_few = 16;

static void *vel_json_members_take(void *takecontext, size_t size)
{
    return vel_json_pool_take(static_cast<vel_json_pool *>(takecontext), size);
}

static void *vel_json_members_take_reserved(void *takecontext, size_t size)
{
    return vel_json_pool_take_reserved(static_cast<vel_json_pool *>(takecontext), size);
}

static velstringhashitem *vel_json_members_next(const velstringhashitem *entry)
{
    return static_cast<velstringhashitem *>(entry->link.next);
}

/* ---- Chains and tables ---- */

static void vel_json_object_order(veljsonnode *objectnode)
{
    if (objectnode->ordered)
        return;
    objectnode->members = vel_stringhash_order(objectnode->members, objectnode->membercount);
    objectnode->ordered = true;
}

/* Makes the table of an object from its chain. Returns false without memory, which is logged. */
static bool vel_json_object_replace_chain(veljsonnode *objectnode,
                                          vel_stringhash_take_cb *takecallback, vel_json_pool *pool)
{
    vel_json_object_order(objectnode);
    velstringhash *const hash = vel_json_node_hash_create_in(objectnode, takecallback, pool);
    if (!hash)
        return false;
    objectnode->hash = hash;
    objectnode->membercount = 0;
    objectnode->chained = false;
    return true;
}

velstringhash *vel_json_object_make_table(veljsonnode *objectnode)
{
    const bool made = vel_json_object_replace_chain(objectnode, vel_json_members_take_reserved,
                                                    vel_json_node_pool(objectnode));
    VEL_ASSERT(made);
    vel_stringhash_release(objectnode->hash);
    return objectnode->hash;
}

/* ---- Reading ---- */

void vel_json_members_begin(vel_json_members *members, veljsonnode *objectnode, vel_json_pool *pool)
{
    *members = {objectnode, pool, nullptr, {}};
    objectnode->chained = true;
    vel_stringhash_log_create();
}

/* Whether the chain has the key of an entry. */
static bool vel_json_members_has(vel_json_members *members, const velstringhashitem *entry)
{
    const uint64_t place = uint64_t{entry->hash} * 0x9e3779b97f4a7c15 >> 56;
    const uint64_t bit = uint64_t{1} << place % 64;
    uint64_t *const seen = &members->seen[place / 64];

    if (!(*seen & bit)) {
        *seen |= bit;
        return false;
    }
    const velstringhashitem *other = members->objectnode->members;
    while (other && !vel_stringhash_same_entry(other, entry))
        other = vel_json_members_next(other);
    return other != nullptr;
}

/* Puts a member with a key that is new behind the chain. */
static void vel_json_members_append(vel_json_members *members, velstringhashitem *entry)
{
    veljsonnode *const objectnode = members->objectnode;

    entry->link.next = nullptr;
    if (members->last)
        members->last->link.next = entry;
    else
        objectnode->members = entry;
    members->last = entry;
    vel_stringhash_log_add(++objectnode->membercount);
}

bool vel_json_members_add(vel_json_members *members, velstringhashitem *entry)
{
    veljsonnode *const objectnode = members->objectnode;

    if (objectnode->chained) {
        if (!vel_json_members_has(members, entry) &&
            objectnode->membercount < vel_stringhash_chain_most) {
            vel_json_members_append(members, entry);
            return true;
        }
        if (!vel_json_object_replace_chain(objectnode, vel_json_members_take, members->pool))
            return false;
    }
    vel_stringhash_add_entry(objectnode->hash, entry);
    return true;
}

void vel_json_members_end(vel_json_members *members)
{
    veljsonnode *const objectnode = members->objectnode;

    if (objectnode->chained)
        vel_json_pool_reserve(members->pool, vel_stringhash_size(objectnode->membercount));
    else
        vel_stringhash_release(objectnode->hash);
}

/* ---- Looking ---- */

/* A chain does as long as a table would not move what is found. */
veljsonnode *vel_json_object_lookup(veljsonnode *objectnode, const char *key)
{
    if (objectnode->chained && objectnode->membercount <= vel_json_members_few) {
        vel_json_object_order(objectnode);
        size_t left = objectnode->membercount;
        const velstringhashitem *entry = objectnode->members;
        for (; entry && strcmp(entry->key, key) != 0; left--)
            entry = vel_json_members_next(entry);
        if (left == 0 || left > vel_stringhash_pending(objectnode->membercount))
            return entry ? static_cast<veljsonnode *>(entry->value) : nullptr;
    }
    return static_cast<veljsonnode *>(vel_stringhash_lookup(vel_json_object_hash(objectnode), key));
}

/* Writes what is known of an entry of a chain, which may be NULL. */
static void *vel_json_chain_enumerated(velstringhashitem *entry, const char **keyptr,
                                       veljsonnode **nodeptr)
{
    *keyptr = entry ? entry->key : nullptr;
    *nodeptr = entry ? static_cast<veljsonnode *>(entry->value) : nullptr;
    return entry;
}

/* The same for a handle to a member of a table. */
static void *vel_json_table_enumerated(void *handle, void *member, veljsonnode **nodeptr)
{
    *nodeptr = handle ? vel_json_member_value(member) : nullptr;
    return handle;
}

void *vel_json_object_first(const veljsonnode *objectnode, const char **keyptr,
                            veljsonnode **nodeptr)
{
    if (objectnode->chained) {
        vel_json_object_order(const_cast<veljsonnode *>(objectnode)); /* no node is constant */
        return vel_json_chain_enumerated(objectnode->members, keyptr, nodeptr);
    }
    void *member;
    void *const handle = vel_stringhash_enumerate_start(objectnode->hash, keyptr, &member);
    return vel_json_table_enumerated(handle, member, nodeptr);
}

void *vel_json_object_next(const veljsonnode *objectnode, void *handle, const char **keyptr,
                           veljsonnode **nodeptr)
{
    if (objectnode->chained)
        return vel_json_chain_enumerated(
            vel_json_members_next(static_cast<velstringhashitem *>(handle)), keyptr, nodeptr);
    void *member;
    handle = vel_stringhash_enumerate_next(objectnode->hash, handle, keyptr, &member);
    return vel_json_table_enumerated(handle, member, nodeptr);
}
