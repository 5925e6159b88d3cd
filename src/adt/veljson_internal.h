#ifndef VELLIB_ADT_VELJSON_INTERNAL_H
#define VELLIB_ADT_VELJSON_INTERNAL_H

#include <cstddef>
#include <cstdint>

#include <vellib/veljson.h>
#include <vellib/velstringhash.h>

#include "adt/veljson_pool.h"

/* All sources of the module log under its one path. */
#define VEL_MODULE "adt/veljson"

struct veljson {
    veljsonnode *root;  /* or NULL */
    vel_json_pool pool; /* empty unless a long text was parsed */
};

/* A number fills both value.number and integervalue. A member of an object is a string node with
 * the key, the key node, under that key in the hash; its only child is the member's value. */
struct veljsonnode {
    veljsonnode *next;     /* the next element of the array that this is an element of, or NULL */
    veljsonnode *children; /* of an array: the first element; of a key node: the value */
    union {
        velstringhash *hash;   /* of an object: its key nodes; its context is the object */
        veljsonnode *lastnode; /* of an array: the element that was found last, or NULL */
    };
    uint32_t nodetype; /* VEL_JSON_TYPE_... */
    bool pooled;       /* the node is in the pool */
    bool stringpooled; /* of a string: so is value.string */
    union {
        char *string;      /* of a string; NULL in a half-built one */
        double number;     /* of an integer or a double */
        veljsonnode *tail; /* of a non-empty array: the last element; see also the destruction */
    } value;
    union {
        int64_t integervalue; /* of an integer or a double */
        size_t lastindex;     /* of an array with a lastnode: its index */
    };
};

struct veljsonparser {
    struct veljson *veljson;
    vel_json_pool *pool; /* of the document, or NULL for blocks of their own */
    const char *json;
    size_t jsonlen;
    unsigned int maxdepth; /* a level of this number is refused */
    unsigned int depth;
    size_t pos;
};

/* ---- veljson.cpp ---- */

/* The word for a type. */
const char *vel_json_type_name(unsigned int nodetype);

/* Makes a document empty. */
void vel_json_clear(veljson *veljson);

/* Destroys a node, what stands behind it in its array, and all that they hold, with a bounded
 * stack. */
void vel_json_node_destroy(veljsonnode *veljsonnode);

/* Makes a node hold nothing, and be of no type. It keeps its place in an array. */
void vel_json_node_clear(veljsonnode *node);

/* Creates the table of an object; failure is logged. */
velstringhash *vel_json_node_hash_create(veljsonnode *objectnode);

/* Puts an element behind the last one. */
static inline void vel_json_array_append(veljsonnode *arraynode, veljsonnode *element)
{
    if (arraynode->children)
        arraynode->value.tail->next = element;
    else
        arraynode->children = element;
    arraynode->value.tail = element;
}

/* ---- veljson_parse.cpp ---- */

/* What vel_json_node_create does, where the parser has its nodes. */
veljsonnode *vel_json_parser_create_node(const veljsonparser *parser, uint32_t nodetype);

/* ---- veljson_parse_string.cpp, veljson_parse_number.cpp ---- */

/* Each reads what begins at pos into a new node, which is written to nodeptr if there was memory for
 * it, also where the rest fails. */
int vel_json_parser_parse_string(veljsonparser *parser, veljsonnode **nodeptr);
int vel_json_parser_parse_number(veljsonparser *parser, veljsonnode **nodeptr);

/* The text between the quotes with its escapes resolved, as a new string, or NULL.
 *
 * pool  where the string is to be; NULL for a block of its own. */
char *vel_json_parser_parse_string_decode(const char *string, size_t length, vel_json_pool *pool);

/* ---- veljson_number.cpp ---- */

/* strtod of the C locale. */
double vel_json_strtod(const char *text, char **endptr);

/* The value of digits with at most one dot between them, and a minus before them at most, exactly
 * as strtod of the C locale gives it. *endptr receives where the number ends, which is behind the
 * end of the text in the end. */
double vel_json_decimal_to_double(const char *text, size_t length, const char **endptr);

/* Room for any double as vel_json_double_to_text writes it. */
static constexpr size_t vel_json_doublesize = 25;

/* Writes value as %g of the C locale does. Returns the length; there is no terminator. */
size_t vel_json_double_to_text(char *text, double value);

#endif
