#include <vellib/veljson.h>

#include <iterator>

#include <vellib/velmalloc.h>

#include "adt/veljson_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

static constexpr const char *vel_json_type_names[] = {
    "none", "object", "array", "string", "number", "number", "true", "false", "null",
};
static_assert(std::size(vel_json_type_names) == VEL_JSON_TYPE_COUNT);

const char *vel_json_type_name(unsigned int nodetype)
{
    return nodetype < VEL_JSON_TYPE_COUNT ? vel_json_type_names[nodetype] : "unknown";
}

/* ---- Nodes ---- */

/* item is a key node, or a value in a pool. While its object is being destroyed, and has no type, it is
 * only put aside there: else the stack would grow with each level of the document. */
static void vel_json_node_hash_destroy_cb(void *item, void *context)
{
    VEL_ASSERT(item != NULL);
    VEL_ASSERT(context != NULL);

    auto *const member = static_cast<veljsonnode *>(item);
    auto *const objectnode = static_cast<veljsonnode *>(context);
    if (objectnode->nodetype == VEL_JSON_TYPE_NONE)
        vel_json_array_append(objectnode, member);
    else
        vel_json_node_destroy(member);
}

/* The entry of a member in the hash is where its node is. What is no node is left to the callback that
 * destroys it. */
static bool vel_json_member_is_pooled(const void *item)
{
    return item && static_cast<const veljsonnode *>(item)->place;
}

static velstringhash *vel_json_node_hash_complete(velstringhash *hash)
{
    if (hash)
        vel_stringhash_set_borrowed(hash, vel_json_member_is_pooled);
    else
        VEL_LOG(7, "not enough memory for hashtable");
    return hash;
}

velstringhash *vel_json_node_hash_create(veljsonnode *objectnode)
{
    return vel_json_node_hash_complete(
        vel_stringhash_create(vel_json_node_hash_destroy_cb, objectnode));
}

velstringhash *vel_json_node_hash_create_in(veljsonnode *objectnode,
                                            vel_stringhash_take_cb *takecallback,
                                            vel_json_pool *pool)
{
    return vel_json_node_hash_complete(
        vel_stringhash_create_in(objectnode->members, objectnode->membercount,
                                 vel_json_node_hash_destroy_cb, objectnode, takecallback, pool));
}

veljsonnode *vel_json_node_create(unsigned int nodetype)
{
    VEL_ASSERT(nodetype > VEL_JSON_TYPE_NONE);
    VEL_ASSERT(nodetype < VEL_JSON_TYPE_COUNT);

    auto *const node = static_cast<veljsonnode *>(vel_cmalloc(sizeof(veljsonnode)));
    if (!node) {
        VEL_LOG(7, "not enough memory for JSON node");
        return nullptr;
    }
    node->nodetype = nodetype;
    if (nodetype != VEL_JSON_TYPE_OBJECT)
        return node;

    node->hash = vel_json_node_hash_create(node);
    if (!node->hash) {
        vel_free(node);
        return nullptr;
    }
    return node;
}

/* Takes what a node holds out of it, and releases what is not a node. Returns the nodes, as a chain
 * by next whose last one is written to tailptr. */
static veljsonnode *vel_json_node_take_contents(veljsonnode *node, veljsonnode **tailptr)
{
    const uint32_t nodetype = node->nodetype;

    if (nodetype == VEL_JSON_TYPE_OBJECT) {
        velstringhash *const hash = vel_json_object_hash(node);
        node->nodetype = VEL_JSON_TYPE_NONE;
        node->children = nullptr;
        vel_stringhash_destroy(hash);
    }
    if (nodetype == VEL_JSON_TYPE_STRING) {
        if (!node->stringpooled)
            vel_free(node->value.string);
        *tailptr = node->children; /* the one value of a key node */
    } else {
        *tailptr = node->value.tail;
    }
    return node->children;
}

/* Whether a node and all that it holds are in the pool, and so need no destruction. */
static bool vel_json_node_is_all_pooled(const veljsonnode *node)
{
    return node->place && !vel_json_node_pool(node)->changed;
}

void vel_json_node_destroy(veljsonnode *veljsonnode)
{
    VEL_ASSERT(veljsonnode != NULL);

    if (vel_json_node_is_all_pooled(veljsonnode))
        return;
    /* What a node holds goes before the nodes that are still waiting. */
    struct veljsonnode *waiting = veljsonnode;
    while (waiting) {
        struct veljsonnode *const node = waiting, *tail;
        struct veljsonnode *const contents = vel_json_node_take_contents(node, &tail);

        waiting = node->next;
        if (contents) {
            tail->next = waiting;
            waiting = contents;
        }
        if (!node->place)
            vel_free(node);
    }
}

void vel_json_node_clear(veljsonnode *node)
{
    VEL_ASSERT(node != NULL);

    veljsonnode *tail, *contents = nullptr;
    if (!vel_json_node_is_all_pooled(node))
        contents = vel_json_node_take_contents(node, &tail);
    veljsonnode *const next = node->next;
    const uint32_t place = node->place;

    *node = {};
    node->next = next;
    node->place = place;
    if (contents)
        vel_json_node_destroy(contents);
}

/* ---- Documents ---- */

veljson *vel_json_create()
{
    auto *const veljson = static_cast<struct veljson *>(vel_cmalloc(sizeof(struct veljson)));

    if (!veljson)
        VEL_LOG(7, "not enough memory for veljson context");
    return veljson;
}

void vel_json_clear(veljson *veljson)
{
    if (veljson->root)
        vel_json_node_destroy(veljson->root);
    veljson->root = nullptr;
    vel_json_pool_clear(&veljson->pool);
}

void vel_json_destroy(veljson *veljson)
{
    VEL_ASSERT(veljson != NULL);

    vel_json_clear(veljson);
    vel_free(veljson);
}
