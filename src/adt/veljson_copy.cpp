#include <vellib/velerror.h>

#include "adt/veljson_internal.h"
#include "adt/veljson_levels.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

static vel_error_t vel_json_node_copy_string(veljson *veljson, veljsonnode *dest,
                                             const veljsonnode *source)
{
    const vel_error_t error = vel_json_node_set_string(veljson, dest, source->value.string);

    if (error)
        VEL_LOG(7, "unable to copy a string node, error %d (%s)", error, vel_error_string(error));
    return error;
}

/* Makes dest what source is, without what is in it. */
static vel_error_t vel_json_node_copy_one(veljson *veljson, veljsonnode *dest,
                                          const veljsonnode *source)
{
    switch (source->nodetype) {
    case VEL_JSON_TYPE_OBJECT:
        return vel_json_node_set_object(veljson, dest);
    case VEL_JSON_TYPE_ARRAY:
        return vel_json_node_set_array(veljson, dest);
    case VEL_JSON_TYPE_STRING:
        return vel_json_node_copy_string(veljson, dest, source);
    case VEL_JSON_TYPE_INTEGER:
        return vel_json_node_set_integer(veljson, dest, source->integervalue);
    case VEL_JSON_TYPE_DOUBLE:
        return vel_json_node_set_double(veljson, dest, source->value.number);
    case VEL_JSON_TYPE_TRUE:
        return vel_json_node_set_true(veljson, dest);
    case VEL_JSON_TYPE_FALSE:
        return vel_json_node_set_false(veljson, dest);
    case VEL_JSON_TYPE_NULL:
        return vel_json_node_set_null(veljson, dest);
    case VEL_JSON_TYPE_NONE:
        VEL_LOG(6, "invalid node type VEL_JSON_TYPE_NONE");
        return VEL_ERROR_INVALID_ARGUMENT;
    default:
        VEL_UNREACHABLE();
    }
}

/* Says that the copy of a node failed; of an object, nothing is said. */
static void vel_json_node_copy_log(const veljsonnode *source, vel_error_t error)
{
    if (source->nodetype != VEL_JSON_TYPE_OBJECT)
        VEL_LOG(7, "unable to copy a node, error %d (%s)", error, vel_error_string(error));
}

/* Copies a node, without what is in it, and goes down into it. */
static vel_error_t vel_json_node_copy_enter(veljson *veljson, vel_json_levels *levels,
                                            veljsonnode *dest, const veljsonnode *source)
{
    vel_error_t error = vel_json_node_copy_one(veljson, dest, source);

    if (error == VEL_ERROR_NONE &&
        (source->nodetype == VEL_JSON_TYPE_OBJECT || source->nodetype == VEL_JSON_TYPE_ARRAY)) {
        if (!vel_json_levels_push(levels, dest, source))
            error = VEL_ERROR_NO_MEMORY;
    }
    if (error)
        vel_json_node_copy_log(source, error);
    return error;
}

/* Copies the next member of an object. */
static vel_error_t vel_json_node_copy_member(veljson *veljson, vel_json_levels *levels)
{
    vel_json_level *const level = vel_json_levels_top(levels);
    const char *const key = level->key;
    const veljsonnode *const valuenode = level->value;
    VEL_ASSERT(key != NULL);

    veljsonnode *const dest = vel_json_node_object_add(veljson, level->dest, key);
    if (!dest)
        return VEL_ERROR_NO_MEMORY;
    vel_json_level_step(level);
    return vel_json_node_copy_enter(veljson, levels, dest, valuenode);
}

/* Copies the next element of an array. Where there is no memory for it the array ends, as if nothing
 * were wrong: that is the contract. */
static vel_error_t vel_json_node_copy_element(veljson *veljson, vel_json_levels *levels)
{
    vel_json_level *const level = vel_json_levels_top(levels);
    const veljsonnode *const element = level->value;

    veljsonnode *const dest = vel_json_node_array_add(veljson, level->dest);
    if (!dest) {
        VEL_LOG(7, "not enough memory to copy a node to an array");
        levels->count--;
        return VEL_ERROR_NONE;
    }
    vel_json_level_step(level);
    return vel_json_node_copy_enter(veljson, levels, dest, element);
}

static vel_error_t vel_json_node_copy_levels(veljson *veljson, veljsonnode *dest,
                                             const veljsonnode *source)
{
    vel_json_levels levels;

    vel_json_levels_begin(&levels);
    vel_error_t error = vel_json_node_copy_enter(veljson, &levels, dest, source);
    while (error == VEL_ERROR_NONE && levels.count > 0) {
        const vel_json_level *const level = vel_json_levels_top(&levels);
        if (!level->value)
            levels.count--;
        else if (level->source->nodetype == VEL_JSON_TYPE_OBJECT)
            error = vel_json_node_copy_member(veljson, &levels);
        else
            error = vel_json_node_copy_element(veljson, &levels);
    }
    /* A failure is one of all containers around it. */
    for (; levels.count > 0; levels.count--)
        vel_json_node_copy_log(vel_json_levels_top(&levels)->source, error);
    vel_json_levels_end(&levels);
    return error;
}

vel_error_t vel_json_node_copy(veljson *veljson, veljsonnode *node, struct veljson *source)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(node != NULL);
    VEL_ASSERT(source != NULL);

    const veljsonnode *const sourcenode = source->root;
    if (!sourcenode)
        return VEL_ERROR_NONE;
    if (sourcenode->nodetype != node->nodetype) {
        VEL_LOG(6, "the node types do not match");
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    VEL_ASSERT(sourcenode->nodetype == VEL_JSON_TYPE_OBJECT || sourcenode->nodetype == VEL_JSON_TYPE_ARRAY);
    return vel_json_node_copy_levels(veljson, node, sourcenode);
}

vel_error_t vel_json_node_copy_node(veljson *veljson, veljsonnode *node, struct veljson *source,
                                    const veljsonnode *sourcenode)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(node != NULL);
    VEL_ASSERT(source != NULL);
    VEL_ASSERT(sourcenode != NULL);

    return vel_json_node_copy_levels(veljson, node, sourcenode);
}
