/* Setting nodes, and adding to containers. */
#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>

#include "adt/veljson_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

/* ---- Setting ---- */

/* Makes a node, or with NULL the root, which is created if there is none, an empty one of a type
 * other than object. Returns it, or NULL without memory, which is logged. */
static veljsonnode *vel_json_node_reset(veljson *veljson, veljsonnode *node, uint32_t nodetype)
{
    if (!node)
        node = veljson->root;
    if (!node) {
        veljson->root = vel_json_node_create(nodetype);
        return veljson->root;
    }
    vel_json_node_clear(node);
    node->nodetype = nodetype;
    return node;
}

static vel_error_t vel_json_node_set_type(veljson *veljson, veljsonnode *node, uint32_t nodetype)
{
    return vel_json_node_reset(veljson, node, nodetype) ? VEL_ERROR_NONE : VEL_ERROR_NO_MEMORY;
}

vel_error_t vel_json_node_set_null(veljson *veljson, veljsonnode *node)
{
    VEL_ASSERT(veljson != NULL);

    return vel_json_node_set_type(veljson, node, VEL_JSON_TYPE_NULL);
}

vel_error_t vel_json_node_set_true(veljson *veljson, veljsonnode *node)
{
    VEL_ASSERT(veljson != NULL);

    return vel_json_node_set_type(veljson, node, VEL_JSON_TYPE_TRUE);
}

vel_error_t vel_json_node_set_false(veljson *veljson, veljsonnode *node)
{
    VEL_ASSERT(veljson != NULL);

    return vel_json_node_set_type(veljson, node, VEL_JSON_TYPE_FALSE);
}

vel_error_t vel_json_node_set_string(veljson *veljson, veljsonnode *node, const char *string)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(string != NULL);

    char *const copy = vel_strdup(string);
    if (!copy) {
        VEL_LOG(7, "not enough memory for a string");
        return VEL_ERROR_NO_MEMORY;
    }
    node = vel_json_node_reset(veljson, node, VEL_JSON_TYPE_STRING);
    if (!node) {
        vel_free(copy);
        return VEL_ERROR_NO_MEMORY;
    }
    node->value.string = copy;
    vel_json_node_note_change(node);
    return VEL_ERROR_NONE;
}

vel_error_t vel_json_node_set_integer(veljson *veljson, veljsonnode *node, int64_t value)
{
    VEL_ASSERT(veljson != NULL);

    node = vel_json_node_reset(veljson, node, VEL_JSON_TYPE_INTEGER);
    if (!node)
        return VEL_ERROR_NO_MEMORY;
    node->value.number = static_cast<double>(value);
    node->integervalue = value;
    return VEL_ERROR_NONE;
}

/* Not as the parser rounds: that is the contract. What does not fit, or is no number, becomes the
 * lowest, as it does where the processor converts it. */
static int64_t vel_json_round_up(double value)
{
    const double limit = 0x1p63;

    value += 0.5;
    return value >= -limit && value < limit ? static_cast<int64_t>(value) : INT64_MIN;
}

vel_error_t vel_json_node_set_double(veljson *veljson, veljsonnode *node, double value)
{
    VEL_ASSERT(veljson != NULL);

    node = vel_json_node_reset(veljson, node, VEL_JSON_TYPE_DOUBLE);
    if (!node)
        return VEL_ERROR_NO_MEMORY;
    node->value.number = value;
    node->integervalue = vel_json_round_up(value);
    return VEL_ERROR_NONE;
}

vel_error_t vel_json_node_set_array(veljson *veljson, veljsonnode *node)
{
    VEL_ASSERT(veljson != NULL);

    return vel_json_node_set_type(veljson, node, VEL_JSON_TYPE_ARRAY);
}

vel_error_t vel_json_node_set_object(veljson *veljson, veljsonnode *node)
{
    VEL_ASSERT(veljson != NULL);

    if (!node)
        node = veljson->root;
    if (!node)
        return vel_json_node_set_type(veljson, node, VEL_JSON_TYPE_OBJECT);

    velstringhash *const hash = vel_json_node_hash_create(node);
    if (!hash)
        return VEL_ERROR_NO_MEMORY;
    vel_json_node_clear(node);
    node->nodetype = VEL_JSON_TYPE_OBJECT;
    node->hash = hash;
    vel_json_node_note_change(node);
    return VEL_ERROR_NONE;
}

/* ---- Adding ---- */

veljsonnode *vel_json_node_array_add(veljson *veljson, veljsonnode *arraynode)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(arraynode != NULL);

    if (arraynode->nodetype != VEL_JSON_TYPE_ARRAY) {
        VEL_LOG(6, "node is not an array");
        return nullptr;
    }
    veljsonnode *const element = vel_json_node_create(VEL_JSON_TYPE_NULL);
    if (!element) {
        VEL_LOG(7, "not enough memory for a JSON node");
        return nullptr;
    }
    vel_json_array_append(arraynode, element);
    vel_json_node_note_change(arraynode);
    return element;
}

/* Gives a key node its key and its value, a null. What is made is the key node's, also on failure. */
static bool vel_json_keynode_build(veljsonnode *keynode, const char *key)
{
    keynode->value.string = vel_strdup(key);
    if (!keynode->value.string) {
        VEL_LOG(7, "not enough memory for object key");
        return false;
    }
    keynode->children = vel_json_node_create(VEL_JSON_TYPE_NULL);
    if (!keynode->children) {
        VEL_LOG(7, "not enough memory for object value node");
        return false;
    }
    return true;
}

static bool vel_json_object_add_keynode(const veljsonnode *objectnode, veljsonnode *keynode,
                                        const char *key)
{
    if (!vel_json_keynode_build(keynode, key))
        return false;
    if (vel_stringhash_add(objectnode->hash, keynode->value.string, keynode) < 0) {
        VEL_LOG(7, "not enough memory to add a value to the hashtable");
        return false;
    }
    vel_json_node_note_change(objectnode);
    return true;
}

veljsonnode *vel_json_node_object_add(veljson *veljson, veljsonnode *objectnode, const char *key)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(objectnode != NULL);
    VEL_ASSERT(key != NULL);

    if (objectnode->nodetype != VEL_JSON_TYPE_OBJECT) {
        VEL_LOG(6, "node is not an object");
        return nullptr;
    }
    (void)vel_json_object_hash(objectnode);
    VEL_ASSERT(objectnode->hash != NULL);
    veljsonnode *const keynode = vel_json_node_create(VEL_JSON_TYPE_STRING);
    if (!keynode) {
        VEL_LOG(7, "not enough memory for object key node");
        return nullptr;
    }
    if (!vel_json_object_add_keynode(objectnode, keynode, key)) {
        vel_json_node_destroy(keynode);
        return nullptr;
    }
    return keynode->children;
}
