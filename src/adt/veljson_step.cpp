/* Stepping through arrays and objects, and what a node is. */
#include "adt/veljson_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

/* ---- Stepping ---- */

const veljsonnode *vel_json_node_fetch_next_const(veljson *veljson, const veljsonnode *node)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(node != NULL);

    return node->next;
}

veljsonnode *vel_json_node_fetch_next(veljson *veljson, veljsonnode *node)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(node != NULL);

    return node->next;
}

static bool vel_json_enumerate_begins(const veljsonnode *objectnode, const char **keyptr,
                                      veljsonnode **nodeptr)
{
    *keyptr = nullptr;
    *nodeptr = nullptr;
    if (objectnode->nodetype == VEL_JSON_TYPE_OBJECT)
        return true;
    VEL_LOG(6, "node is not an object");
    return false;
}

void *vel_json_enumerate_start(veljson *veljson, veljsonnode *objectnode, const char **keyptr,
                               veljsonnode **nodeptr)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(objectnode != NULL);
    VEL_ASSERT(keyptr != NULL);
    VEL_ASSERT(nodeptr != NULL);

    if (!vel_json_enumerate_begins(objectnode, keyptr, nodeptr))
        return nullptr;
    return vel_json_object_first(objectnode, keyptr, nodeptr);
}

void *vel_json_enumerate_next(veljson *veljson, veljsonnode *objectnode, void *veljsonenumhandle,
                              const char **keyptr, veljsonnode **nodeptr)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(objectnode != NULL);
    VEL_ASSERT(veljsonenumhandle != NULL);
    VEL_ASSERT(keyptr != NULL);
    VEL_ASSERT(nodeptr != NULL);

    if (!vel_json_enumerate_begins(objectnode, keyptr, nodeptr))
        return nullptr;
    return vel_json_object_next(objectnode, veljsonenumhandle, keyptr, nodeptr);
}

/* ---- Types ---- */

#define VEL_JSON_DEFINE_IS(name, condition)                                                        \
    int vel_json_is_##name(veljson *veljson, const veljsonnode *node)                              \
    {                                                                                              \
        VEL_ASSERT(veljson != NULL);                                                               \
        VEL_ASSERT(node != NULL);                                                                  \
                                                                                                   \
        const uint32_t nodetype = node->nodetype;                                                  \
        return condition;                                                                          \
    }

VEL_JSON_DEFINE_IS(object, nodetype == VEL_JSON_TYPE_OBJECT)
VEL_JSON_DEFINE_IS(array, nodetype == VEL_JSON_TYPE_ARRAY)
VEL_JSON_DEFINE_IS(string, nodetype == VEL_JSON_TYPE_STRING)
VEL_JSON_DEFINE_IS(number, nodetype == VEL_JSON_TYPE_INTEGER || nodetype == VEL_JSON_TYPE_DOUBLE)
VEL_JSON_DEFINE_IS(integer, nodetype == VEL_JSON_TYPE_INTEGER)
VEL_JSON_DEFINE_IS(double, nodetype == VEL_JSON_TYPE_DOUBLE)
VEL_JSON_DEFINE_IS(boolean, nodetype == VEL_JSON_TYPE_TRUE || nodetype == VEL_JSON_TYPE_FALSE)
VEL_JSON_DEFINE_IS(true, nodetype == VEL_JSON_TYPE_TRUE)
VEL_JSON_DEFINE_IS(false, nodetype == VEL_JSON_TYPE_FALSE)
VEL_JSON_DEFINE_IS(null, nodetype == VEL_JSON_TYPE_NULL)
