#include <climits>
#include <cstdarg>
#include <cstring>

#include <vellib/velconvert.h>

#include "adt/veljson_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

/* ---- The walk along a path ---- */

/* An index near the last one is found from there: a loop over all indices takes one step each. */
static veljsonnode *vel_json_array_element(veljsonnode *arraynode, unsigned long index)
{
    veljsonnode *node = arraynode->children;
    unsigned long i = 0;

    if (arraynode->lastnode && arraynode->lastindex <= index) {
        node = arraynode->lastnode;
        i = arraynode->lastindex;
    }
    for (; i < index && node->next; i++)
        node = node->next;
    if (i <= UINT32_MAX) {
        arraynode->lastnode = node;
        arraynode->lastindex = static_cast<uint32_t>(i);
    }
    if (i < index) {
        VEL_LOG(13, "trying to access array beyond the end at index %lu, looking for index %lu", i,
                index);
        return nullptr;
    }
    return node;
}

static veljsonnode *vel_json_fetch_element(veljsonnode *node, unsigned long index)
{
    if (!node->children) {
        VEL_LOG(13, "trying to access an empty array, looking for index %lu", index);
        return nullptr;
    }
    return vel_json_array_element(node, index);
}

static veljsonnode *vel_json_fetch_member(veljsonnode *node, const char *key)
{
    if (node->nodetype != VEL_JSON_TYPE_OBJECT) {
        VEL_LOG(6, "trying to access object but the node type is %s",
                vel_json_type_name(node->nodetype));
        return nullptr;
    }
    if (!node->chained)
        VEL_ASSERT(node->hash != NULL);
    node = vel_json_object_lookup(node, key);
    if (!node) {
        VEL_LOG(13, "did not find node named '%s' under an object", key);
        return nullptr;
    }
    if (node->place) /* in the pool there is no key node */
        return node;
    VEL_ASSERT(node->children != NULL);
    return node->children;
}

static int vel_json_fetch_from_nothing()
{
    VEL_LOG(6, "no JSON parsed");
    return -1;
}

/* Goes from a node, or with NULL from the root, where the path leads, which is written to nodeptr.
 * rootfirst: there has to be a root also if the path is at its end at once. */
static int vel_json_node_walk(veljson *veljson, veljsonnode *node, veljsonnode **nodeptr,
                              bool rootfirst, va_list path)
{
    *nodeptr = nullptr;
    if (!node)
        node = veljson->root;
    if (!node && rootfirst)
        return vel_json_fetch_from_nothing();

    while (const char *const item = va_arg(path, const char *)) {
        if (!node)
            return vel_json_fetch_from_nothing();
        if (strcmp(item, "#") != 0) {
            node = vel_json_fetch_member(node, item);
        } else if (node->nodetype == VEL_JSON_TYPE_ARRAY) {
            node = vel_json_fetch_element(node, va_arg(path, unsigned long));
        } else {
            VEL_LOG(6, "trying to access array but the node type is %s",
                    vel_json_type_name(node->nodetype));
            return -1;
        }
        if (!node)
            return -1;
    }
    *nodeptr = node;
    return 0;
}

static int vel_json_node_fetch(veljson *veljson, veljsonnode *node, veljsonnode **veljsonnodeptr,
                               va_list path)
{
    return vel_json_node_walk(veljson, node, veljsonnodeptr, /*rootfirst=*/true, path);
}

/* The walk leaves notes in the nodes, none of which is really constant. */
static int vel_json_node_fetch_const(veljson *veljson, const veljsonnode *node,
                                     const veljsonnode **veljsonnodeptr, va_list path)
{
    veljsonnode *found;
    const int result = vel_json_node_walk(veljson, const_cast<veljsonnode *>(node), &found,
                                          /*rootfirst=*/false, path);

    *veljsonnodeptr = found;
    return result;
}

/* ---- What is made of a node ---- */

/* The number at the start of a string. */
static int vel_json_convert_string(const char *string, double *valueptr)
{
    char *endptr;
    const double value = vel_json_strtod(string, &endptr);

    if (endptr == string)
        return -1;
    *valueptr = value;
    return 0;
}

static int vel_json_node_convert_int64(const veljsonnode *node, int64_t *valueptr)
{
    double number;

    switch (node->nodetype) {
    case VEL_JSON_TYPE_STRING:
        if (vel_json_convert_string(node->value.string, &number) < 0)
            return -1;
        *valueptr = vel_convert_i64_from_double_round(number);
        return 0;
    case VEL_JSON_TYPE_INTEGER:
    case VEL_JSON_TYPE_DOUBLE:
        *valueptr = node->integervalue;
        return 0;
    case VEL_JSON_TYPE_TRUE:
    case VEL_JSON_TYPE_FALSE:
        *valueptr = node->nodetype == VEL_JSON_TYPE_TRUE;
        return 0;
    default:
        return -1;
    }
}

/* Writes 0 on failure. allow64bit: also what is beyond the range of an int. */
static int vel_json_node_convert_int(const veljsonnode *node, int64_t *valueptr, bool allow64bit)
{
    VEL_ASSERT(node != NULL);
    VEL_ASSERT(valueptr != NULL);

    *valueptr = 0;
    if (vel_json_node_convert_int64(node, valueptr) < 0)
        return -1;
    if (!allow64bit && (*valueptr < INT_MIN || *valueptr > INT_MAX)) {
        VEL_LOG(6, "value too long to fit in an int variable");
        *valueptr = 0;
        return -1;
    }
    return 0;
}

static int vel_json_node_convert_double(const veljsonnode *node, double *valueptr)
{
    VEL_ASSERT(node != NULL);
    VEL_ASSERT(valueptr != NULL);

    *valueptr = 0;
    switch (node->nodetype) {
    case VEL_JSON_TYPE_STRING:
        return vel_json_convert_string(node->value.string, valueptr);
    case VEL_JSON_TYPE_INTEGER:
    case VEL_JSON_TYPE_DOUBLE:
        *valueptr = node->value.number;
        return 0;
    case VEL_JSON_TYPE_TRUE:
    case VEL_JSON_TYPE_FALSE:
        *valueptr = node->nodetype == VEL_JSON_TYPE_TRUE;
        return 0;
    default:
        return -1;
    }
}

/* The functions below share these four, and write the output on failure too. The node may be NULL
 * for the root. */

static int vel_json_node_vfetch_string(veljson *veljson, const veljsonnode *node,
                                       const char **stringptr, va_list path)
{
    const veljsonnode *found;

    *stringptr = nullptr;
    if (vel_json_node_fetch_const(veljson, node, &found, path) < 0)
        return -1;
    if (!found || found->nodetype != VEL_JSON_TYPE_STRING)
        return -1;
    *stringptr = found->value.string;
    return 0;
}

static int vel_json_node_vfetch_int(veljson *veljson, const veljsonnode *node, int *valueptr,
                                    va_list path)
{
    const veljsonnode *found;
    int64_t value = 0;
    int result = vel_json_node_fetch_const(veljson, node, &found, path);

    if (result == 0)
        result = vel_json_node_convert_int(found, &value, /*allow64bit=*/false);
    *valueptr = static_cast<int>(value);
    return result;
}

static int vel_json_node_vfetch_int64(veljson *veljson, const veljsonnode *node, int64_t *valueptr,
                                      va_list path)
{
    const veljsonnode *found;

    *valueptr = 0;
    if (vel_json_node_fetch_const(veljson, node, &found, path) < 0)
        return -1;
    return vel_json_node_convert_int(found, valueptr, /*allow64bit=*/true);
}

static int vel_json_node_vfetch_double(veljson *veljson, const veljsonnode *node, double *valueptr,
                                       va_list path)
{
    const veljsonnode *found;

    *valueptr = 0;
    if (vel_json_node_fetch_const(veljson, node, &found, path) < 0)
        return -1;
    return vel_json_node_convert_double(found, valueptr);
}

/* ---- From the root ---- */

int vel_json_fetch_node_const(veljson *veljson, const veljsonnode **veljsonnodeptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(veljsonnodeptr != NULL);

    va_list path;
    va_start(path, veljsonnodeptr);
    const int result = vel_json_node_fetch_const(veljson, nullptr, veljsonnodeptr, path);
    va_end(path);
    return result;
}

int vel_json_fetch_node(veljson *veljson, veljsonnode **veljsonnodeptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(veljsonnodeptr != NULL);

    va_list path;
    va_start(path, veljsonnodeptr);
    const int result = vel_json_node_fetch(veljson, nullptr, veljsonnodeptr, path);
    va_end(path);
    return result;
}

int vel_json_fetch_string(veljson *veljson, const char **stringptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(stringptr != NULL);

    va_list path;
    va_start(path, stringptr);
    const int result = vel_json_node_vfetch_string(veljson, nullptr, stringptr, path);
    va_end(path);
    return result;
}

int vel_json_fetch_int(veljson *veljson, int *valueptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(valueptr != NULL);

    va_list path;
    va_start(path, valueptr);
    const int result = vel_json_node_vfetch_int(veljson, nullptr, valueptr, path);
    va_end(path);
    return result;
}

int vel_json_fetch_int64(veljson *veljson, int64_t *valueptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(valueptr != NULL);

    va_list path;
    va_start(path, valueptr);
    const int result = vel_json_node_vfetch_int64(veljson, nullptr, valueptr, path);
    va_end(path);
    return result;
}

int vel_json_fetch_double(veljson *veljson, double *valueptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(valueptr != NULL);

    va_list path;
    va_start(path, valueptr);
    const int result = vel_json_node_vfetch_double(veljson, nullptr, valueptr, path);
    va_end(path);
    return result;
}

int vel_json_fetch_boolean(veljson *veljson, int *valueptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(valueptr != NULL);

    const veljsonnode *node;
    va_list path;
    va_start(path, valueptr);
    const int result = vel_json_node_fetch_const(veljson, nullptr, &node, path);
    va_end(path);

    *valueptr = node && node->nodetype == VEL_JSON_TYPE_TRUE;
    if (result < 0 || !node || !vel_json_is_boolean(veljson, node))
        return -1;
    return 0;
}

int vel_json_fetch_null(veljson *veljson, int *valueptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(valueptr != NULL);

    const veljsonnode *node;
    va_list path;
    va_start(path, valueptr);
    const int result = vel_json_node_fetch_const(veljson, nullptr, &node, path);
    va_end(path);

    *valueptr = node && node->nodetype == VEL_JSON_TYPE_NULL;
    return result;
}

/* ---- From a node ---- */

int vel_json_node_fetch_node_const(veljson *veljson, const veljsonnode *node,
                                   const veljsonnode **veljsonnodeptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(veljsonnodeptr != NULL);

    va_list path;
    va_start(path, veljsonnodeptr);
    const int result = vel_json_node_fetch_const(veljson, node, veljsonnodeptr, path);
    va_end(path);
    return result;
}

int vel_json_node_fetch_node(veljson *veljson, veljsonnode *node, veljsonnode **veljsonnodeptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(veljsonnodeptr != NULL);

    va_list path;
    va_start(path, veljsonnodeptr);
    const int result = vel_json_node_fetch(veljson, node, veljsonnodeptr, path);
    va_end(path);
    return result;
}

int vel_json_node_fetch_string(veljson *veljson, const veljsonnode *node, const char **stringptr,
                               ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(stringptr != NULL);

    va_list path;
    va_start(path, stringptr);
    const int result = vel_json_node_vfetch_string(veljson, node, stringptr, path);
    va_end(path);
    return result;
}

int vel_json_node_fetch_int(veljson *veljson, const veljsonnode *node, int *valueptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(valueptr != NULL);

    va_list path;
    va_start(path, valueptr);
    const int result = vel_json_node_vfetch_int(veljson, node, valueptr, path);
    va_end(path);
    return result;
}

int vel_json_node_fetch_int64(veljson *veljson, const veljsonnode *node, int64_t *valueptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(valueptr != NULL);

    va_list path;
    va_start(path, valueptr);
    const int result = vel_json_node_vfetch_int64(veljson, node, valueptr, path);
    va_end(path);
    return result;
}

int vel_json_node_fetch_double(veljson *veljson, const veljsonnode *node, double *valueptr, ...)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(valueptr != NULL);

    va_list path;
    va_start(path, valueptr);
    const int result = vel_json_node_vfetch_double(veljson, node, valueptr, path);
    va_end(path);
    return result;
}
