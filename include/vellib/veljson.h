#ifndef VELLIB_VELJSON_H
#define VELLIB_VELJSON_H

#include <stdint.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* veljson: a JSON document as a tree of nodes. It is read from a text or built node by node, looked
 * into by paths, and written back to text. Members of an object have no order of their own: they
 * come out in that of the table they are kept in.
 *
 * A path is the end of an argument list: keys of objects as const char *; for an element of an
 * array the string "#" and behind it the index, from 0, as an unsigned long and nothing else; and
 * (char *)NULL at the end. A path of nothing but the end leads to where it starts. A member whose
 * key is "#" is out of reach for a path.
 *
 * What the parser reads differs from RFC 8259:
 * - The text is an object or an array, of at most 99 levels.
 * - A comma may stand behind the last element or member. The brace of an object may be missing where
 *   the text ends behind a member, unless that ends in a number.
 * - Numbers have no exponents, and may begin with one zero. A whole number that does not fit 64 bits
 *   becomes 0.
 * - Strings may hold any byte but a zero one, and are not checked for being UTF-8. \u0000 ends a
 *   string for all that looks at it.
 * - The last of several members with the same key wins.
 *
 * Threads: one at a time for each document, also where it is only looked at: fetching, enumerating,
 * writing and copying out of it may move what they find.
 * Note: doubles are written with six digits, as %g does, which may give an exponent, inf or nan, and
 * these are not read again. All numbers are read and written with a dot, in any locale. */
typedef struct veljson veljson;

/* A node of a document, which owns it. It lives until it, or what it is in, is set anew, its key is
 * added once more, the document is parsed into, or destroyed. */
typedef struct veljsonnode veljsonnode;

/* The types of nodes. No node of a document has the first; the last is their number. */
#define VEL_JSON_TYPE_NONE    0
#define VEL_JSON_TYPE_OBJECT  1
#define VEL_JSON_TYPE_ARRAY   2
#define VEL_JSON_TYPE_STRING  3
#define VEL_JSON_TYPE_INTEGER 4
#define VEL_JSON_TYPE_DOUBLE  5
#define VEL_JSON_TYPE_TRUE    6
#define VEL_JSON_TYPE_FALSE   7
#define VEL_JSON_TYPE_NULL    8
#define VEL_JSON_TYPE_COUNT   9

VEL_DECLARATIONS_BEGIN

/* ---- Life ---- */

/* Creates an empty document.
 *
 * Returns the document, for vel_json_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API veljson *vel_json_create(void);

/* Destroys a document with all its nodes. */
VEL_API void vel_json_destroy(veljson *veljson);

/* Reads a text into a document. What the document held is destroyed first in any case.
 *
 * json  is not referred to afterwards.
 *
 * Returns 0, or -1 with an empty document if the text is not accepted or there is not enough memory,
 * which is logged.
 * Note: the memory of a long text is given back as a whole, with the document or when that is parsed
 * into again; setting its nodes anew does not give it back. */
VEL_API int vel_json_parse(veljson *veljson, const char *json);

/* Creates a node that no document owns.
 *
 * nodetype  VEL_JSON_TYPE_OBJECT to VEL_JSON_TYPE_NULL.
 *
 * Returns the node, or NULL if there is not enough memory, which is logged. vel_free releases one
 * that holds nothing; vel_json_node_set_null makes any node hold nothing. */
VEL_API veljsonnode *vel_json_node_create(unsigned int nodetype);

/* ---- Fetching by a path from the root ---- */

/* Finds a node.
 *
 * veljsonnodeptr  receives the node, which stays the document's.
 * ...             a path as veljson.h has it, closed by (char *)NULL.
 *
 * Returns 0, or -1 if the path leads nowhere, which is logged: a key or an index that is missing at
 * level 13, a node of the wrong type at level 6.
 * Note: a path of nothing but the end, in an empty document, gives 0 and NULL. */
VEL_API int vel_json_fetch_node_const(veljson *veljson, const veljsonnode **veljsonnodeptr, ...);

/* Finds a node that is to be changed.
 *
 * veljsonnodeptr  receives the node, which stays the document's.
 * ...             a path as veljson.h has it, closed by (char *)NULL.
 *
 * Returns 0, or -1 as vel_json_fetch_node_const, also for any path in an empty document. */
VEL_API int vel_json_fetch_node(veljson *veljson, veljsonnode **veljsonnodeptr, ...);

/* Finds a string.
 *
 * stringptr  receives the node's own string.
 * ...        a path as veljson.h has it, closed by (char *)NULL.
 *
 * Returns 0, or -1 if the path leads nowhere, which is logged as by vel_json_fetch_node_const, or to
 * something else, which is not. */
VEL_API int vel_json_fetch_string(veljson *veljson, const char **stringptr, ...);

/* Finds a value and makes an int of it: a number is rounded; of a string the number that it begins
 * with is taken; true is 1, false is 0.
 *
 * valueptr  receives the value.
 * ...       a path as veljson.h has it, closed by (char *)NULL.
 *
 * Returns 0, or -1 if the path leads nowhere, if what it leads to has no such value, or if that does
 * not fit, which is logged.
 * Note: aborts for a path of nothing but the end in an empty document. */
VEL_API int vel_json_fetch_int(veljson *veljson, int *valueptr, ...);

/* Finds a value and makes a 64-bit integer of it, as vel_json_fetch_int does.
 *
 * valueptr  receives the value.
 * ...       a path as veljson.h has it, closed by (char *)NULL. */
VEL_API int vel_json_fetch_int64(veljson *veljson, int64_t *valueptr, ...);

/* Finds a value and makes a double of it, as vel_json_fetch_int does but without rounding.
 *
 * valueptr  receives the value.
 * ...       a path as veljson.h has it, closed by (char *)NULL. */
VEL_API int vel_json_fetch_double(veljson *veljson, double *valueptr, ...);

/* Finds a true or a false.
 *
 * valueptr  receives 1 or 0.
 * ...       a path as veljson.h has it, closed by (char *)NULL.
 *
 * Returns 0, or -1 if the path leads nowhere, which is logged as by vel_json_fetch_node_const, or to
 * something else, which is not. */
VEL_API int vel_json_fetch_boolean(veljson *veljson, int *valueptr, ...);

/* Finds out whether a value is null.
 *
 * valueptr  receives 1 if the path leads to a null, or else 0.
 * ...       a path as veljson.h has it, closed by (char *)NULL.
 *
 * Returns 0, or -1 if the path leads nowhere. */
VEL_API int vel_json_fetch_null(veljson *veljson, int *valueptr, ...);

/* ---- Fetching by a path from a node; NULL is the root ---- */

/* Finds a node, as vel_json_fetch_node_const.
 *
 * node            where the path starts; NULL is the root.
 * veljsonnodeptr  receives the node, which stays the document's.
 * ...             a path as veljson.h has it, closed by (char *)NULL. */
VEL_API int vel_json_node_fetch_node_const(veljson *veljson, const veljsonnode *node,
                                           const veljsonnode **veljsonnodeptr, ...);

/* Finds a node that is to be changed, as vel_json_fetch_node.
 *
 * node            where the path starts; NULL is the root.
 * veljsonnodeptr  receives the node, which stays the document's.
 * ...             a path as veljson.h has it, closed by (char *)NULL. */
VEL_API int vel_json_node_fetch_node(veljson *veljson, veljsonnode *node,
                                     veljsonnode **veljsonnodeptr, ...);

/* Finds a string, as vel_json_fetch_string.
 *
 * node       where the path starts; NULL is the root.
 * stringptr  receives the node's own string.
 * ...        a path as veljson.h has it, closed by (char *)NULL. */
VEL_API int vel_json_node_fetch_string(veljson *veljson, const veljsonnode *node,
                                       const char **stringptr, ...);

/* Finds an int, as vel_json_fetch_int.
 *
 * node      where the path starts; NULL is the root.
 * valueptr  receives the value.
 * ...       a path as veljson.h has it, closed by (char *)NULL. */
VEL_API int vel_json_node_fetch_int(veljson *veljson, const veljsonnode *node, int *valueptr, ...);

/* Finds a 64-bit integer, as vel_json_fetch_int64.
 *
 * node      where the path starts; NULL is the root.
 * valueptr  receives the value.
 * ...       a path as veljson.h has it, closed by (char *)NULL. */
VEL_API int vel_json_node_fetch_int64(veljson *veljson, const veljsonnode *node, int64_t *valueptr,
                                      ...);

/* Finds a double, as vel_json_fetch_double.
 *
 * node      where the path starts; NULL is the root.
 * valueptr  receives the value.
 * ...       a path as veljson.h has it, closed by (char *)NULL. */
VEL_API int vel_json_node_fetch_double(veljson *veljson, const veljsonnode *node, double *valueptr,
                                       ...);

/* ---- Stepping through arrays and objects ---- */

/* Steps to the next element of an array.
 *
 * node  an element; the first has the path "#", 0UL from the array.
 *
 * Returns the element behind it, or NULL behind the last one. */
VEL_API const veljsonnode *vel_json_node_fetch_next_const(veljson *veljson,
                                                          const veljsonnode *node);

/* Steps to the next element of an array, which is to be changed, as vel_json_node_fetch_next_const
 * does. */
VEL_API veljsonnode *vel_json_node_fetch_next(veljson *veljson, veljsonnode *node);

/* Gives the first member of an object. From then to the end of the enumeration nothing may be added
 * to the object, and no path may lead through it.
 *
 * keyptr   receives the key, which stays the document's.
 * nodeptr  receives the value.
 *
 * Returns a handle of the member for vel_json_enumerate_next, or NULL if there is none or if the
 * node is not an object, which is logged. */
VEL_API void *vel_json_enumerate_start(veljson *veljson, veljsonnode *objectnode,
                                       const char **keyptr, veljsonnode **nodeptr);

/* Gives the member after another one.
 *
 * veljsonenumhandle  the handle that was given last.
 * keyptr, nodeptr    as for vel_json_enumerate_start.
 *
 * Returns a handle, or NULL, as vel_json_enumerate_start. */
VEL_API void *vel_json_enumerate_next(veljson *veljson, veljsonnode *objectnode,
                                      void *veljsonenumhandle, const char **keyptr,
                                      veljsonnode **nodeptr);

/* ---- What a node is ---- */

/* Tells whether a node is an object: 1 or 0. */
VEL_API int vel_json_is_object(veljson *veljson, const veljsonnode *node);

/* Tells whether a node is an array: 1 or 0. */
VEL_API int vel_json_is_array(veljson *veljson, const veljsonnode *node);

/* Tells whether a node is a string: 1 or 0. */
VEL_API int vel_json_is_string(veljson *veljson, const veljsonnode *node);

/* Tells whether a node is an integer or a double: 1 or 0. */
VEL_API int vel_json_is_number(veljson *veljson, const veljsonnode *node);

/* Tells whether a node is a number that was written without a dot, or set as an integer: 1 or 0. */
VEL_API int vel_json_is_integer(veljson *veljson, const veljsonnode *node);

/* Tells whether a node is a number that was written with a dot, or set as a double: 1 or 0. */
VEL_API int vel_json_is_double(veljson *veljson, const veljsonnode *node);

/* Tells whether a node is true or false: 1 or 0. */
VEL_API int vel_json_is_boolean(veljson *veljson, const veljsonnode *node);

/* Tells whether a node is true: 1 or 0. */
VEL_API int vel_json_is_true(veljson *veljson, const veljsonnode *node);

/* Tells whether a node is false: 1 or 0. */
VEL_API int vel_json_is_false(veljson *veljson, const veljsonnode *node);

/* Tells whether a node is null: 1 or 0. */
VEL_API int vel_json_is_null(veljson *veljson, const veljsonnode *node);

/* ---- Setting ----
 *
 * Each makes a node into something else, and destroys what it held; it stays where it is. NULL for
 * the node is the root, which is created if there is none. */

/* Makes a node a null.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY, which is logged, with the node unchanged. */
VEL_API vel_error_t vel_json_node_set_null(veljson *veljson, veljsonnode *node);

/* Makes a node a true. Results are as for vel_json_node_set_null. */
VEL_API vel_error_t vel_json_node_set_true(veljson *veljson, veljsonnode *node);

/* Makes a node a false. Results are as for vel_json_node_set_null. */
VEL_API vel_error_t vel_json_node_set_false(veljson *veljson, veljsonnode *node);

/* Makes a node a string, of which it takes a copy. Results are as for vel_json_node_set_null. */
VEL_API vel_error_t vel_json_node_set_string(veljson *veljson, veljsonnode *node,
                                             const char *string);

/* Makes a node an integer. Results are as for vel_json_node_set_null. */
VEL_API vel_error_t vel_json_node_set_integer(veljson *veljson, veljsonnode *node, int64_t value);

/* Makes a node a double. Results are as for vel_json_node_set_null.
 *
 * Note: for who fetches an integer it counts as the value plus 0.5, cut off: -1.5 is -1, where the
 * same number in a parsed text is -2. */
VEL_API vel_error_t vel_json_node_set_double(veljson *veljson, veljsonnode *node, double value);

/* Makes a node an array without elements. Results are as for vel_json_node_set_null. */
VEL_API vel_error_t vel_json_node_set_array(veljson *veljson, veljsonnode *node);

/* Makes a node an object without members. Results are as for vel_json_node_set_null. */
VEL_API vel_error_t vel_json_node_set_object(veljson *veljson, veljsonnode *node);

/* ---- Adding and copying ---- */

/* Adds a null behind the last element of an array, in the same time however long that is.
 *
 * Returns the new element, to be set to what it shall be, or NULL if the node is not an array or
 * there is not enough memory, which is logged. */
VEL_API veljsonnode *vel_json_node_array_add(veljson *veljson, veljsonnode *arraynode);

/* Adds a null to an object under a key. A member that had the key is destroyed.
 *
 * key  is copied.
 *
 * Returns the new value, to be set to what it shall be, or NULL if the node is not an object or
 * there is not enough memory, which is logged. */
VEL_API veljsonnode *vel_json_node_object_add(veljson *veljson, veljsonnode *objectnode,
                                              const char *key);

/* Copies a document into a node, in place of what it held.
 *
 * node    is of the same type as the root of source.
 * source  if it is empty, nothing is done. Aborts if its root is neither an object nor an array.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_INVALID_ARGUMENT if the types differ; VEL_ERROR_NO_MEMORY with
 * what was copied until then. Failures are logged.
 * Note: if there is no memory for an element of an array, the array ends there, which is logged, and
 * the result is VEL_ERROR_NONE. */
VEL_API vel_error_t vel_json_node_copy(veljson *veljson, veljsonnode *node, struct veljson *source);

/* Copies a node of any type into a node, in place of what it held.
 *
 * source      the document of sourcenode.
 * sourcenode  neither in node, nor has node in it.
 *
 * Returns what vel_json_node_copy returns. */
VEL_API vel_error_t vel_json_node_copy_node(veljson *veljson, veljsonnode *node,
                                            struct veljson *source, const veljsonnode *sourcenode);

/* ---- Writing ---- */

/* Writes a document as a text of one line. Aborts if the document is empty.
 *
 * Returns the text, for vel_free, or NULL if there is not enough memory, which is logged. */
VEL_API char *vel_json_output(veljson *veljson);

VEL_DECLARATIONS_END

#endif
