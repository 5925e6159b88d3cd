#ifndef VELLIB_ADT_VELJSON_INTERNAL_H
#define VELLIB_ADT_VELJSON_INTERNAL_H

#include <bit>
#include <cstddef>
#include <cstdint>

#include <vellib/veljson.h>
#include <vellib/velstringhash.h>

#include "adt/veljson_pool.h"
#include "adt/velstringhash_internal.h"

/* All sources of the module log under its one path. */
#define VEL_MODULE "adt/veljson"

struct veljson {
    veljsonnode *root;  /* or NULL */
    vel_json_pool pool; /* empty unless a long text was parsed */
};

/* What a node is, and where. */
struct vel_json_nodehead {
    uint32_t nodetype : 7;     /* VEL_JSON_TYPE_... */
    uint32_t place : 22;       /* in the chunk, in units of eight bytes; 0 if not in a pool */
    uint32_t stringpooled : 1; /* of a string: value.string is in the pool */
    uint32_t chained : 1;      /* of an object: has members and no hash (veljson_members.h) */
    uint32_t ordered : 1;      /* of such an object: the members are in the order of a hash */
};

/* A number fills both value.number and integervalue. A member of an object is a string node with
 * the key, the key node, under that key in the hash; its only child is the member's value. Where the
 * parser put the object into a pool, the hash has the value itself, also in the pool. */
struct veljsonnode : vel_json_nodehead {
    uint32_t lastindex; /* of an array with a lastnode: its index */
    veljsonnode *next;  /* the next element of the array that this is an element of, or NULL */
    union {
        veljsonnode *children;      /* of an array: the first element; of a key node: the value */
        velstringhash *hash;        /* of an object: its members; its context is the object */
        velstringhashitem *members; /* of an object without a table: the first member, or NULL */
    };
    union {
        char *string;      /* of a string; NULL in a half-built one */
        double number;     /* of an integer or a double */
        veljsonnode *tail; /* of a non-empty array: the last element; see also the destruction */
    } value;
    union {
        int64_t integervalue;  /* of an integer or a double */
        veljsonnode *lastnode; /* of an array: the element that was found last, or NULL */
        size_t membercount;    /* of an object without a table */
    };
};
static_assert(VEL_JSON_TYPE_COUNT < 1 << 7 && vel_json_chunksize_most / 8 < 1 << 22);

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

/* The same for one with an ordered chain, in memory of the pool. */
velstringhash *vel_json_node_hash_create_in(veljsonnode *objectnode,
                                            vel_stringhash_take_cb *takecallback,
                                            vel_json_pool *pool);

/* The pool of a node that is in one. */
static inline vel_json_pool *vel_json_node_pool(const veljsonnode *node)
{
    const auto *const chunk = reinterpret_cast<const vel_json_chunk *>(
        reinterpret_cast<const char *>(node) - size_t{node->place} * 8);

    return chunk->pool;
}

/* Notes that a node has got something in a block of its own. */
static inline void vel_json_node_note_change(const veljsonnode *node)
{
    if (node->place)
        vel_json_node_pool(node)->changed = true;
}

/* The value of a member, by what the hash has of it. */
static inline veljsonnode *vel_json_member_value(void *member)
{
    auto *const node = static_cast<veljsonnode *>(member);

    return node->place ? node : node->children;
}

/* Puts an element behind the last one. */
static inline void vel_json_array_append(veljsonnode *arraynode, veljsonnode *element)
{
    if (arraynode->children)
        arraynode->value.tail->next = element;
    else
        arraynode->children = element;
    arraynode->value.tail = element;
}

/* ---- veljson_members.cpp ---- */

/* Makes the table of an object that has none, and returns it. */
velstringhash *vel_json_object_make_table(veljsonnode *objectnode);

/* The table of an object. */
static inline velstringhash *vel_json_object_hash(const veljsonnode *objectnode)
{
    if (objectnode->chained) /* no node is really constant */
        return vel_json_object_make_table(const_cast<veljsonnode *>(objectnode));
    return objectnode->hash;
}

/* What the table of an object would find, or NULL. */
veljsonnode *vel_json_object_lookup(veljsonnode *objectnode, const char *key);

/* The members of an object in the order of its table. Each returns a handle, or NULL, with the key and
 * the value written, or NULL. */
void *vel_json_object_first(const veljsonnode *objectnode, const char **keyptr,
                            veljsonnode **nodeptr);
void *vel_json_object_next(const veljsonnode *objectnode, void *handle, const char **keyptr,
                           veljsonnode **nodeptr);

/* ---- veljson_parse.cpp ---- */

/* Does what vel_json_parser_create_node does where that takes more than a moment. */
veljsonnode *vel_json_parser_create_node_slowly(const veljsonparser *parser, uint32_t nodetype);

/* Composed as a number: what compilers make of fields set one by one keeps the processor waiting. */
static inline vel_json_nodehead vel_json_make_nodehead(uint32_t nodetype, uint32_t place)
{
    const auto placeunit = std::bit_cast<uint32_t>(vel_json_nodehead{0, 1, 0, 0, 0});
    const auto head = std::bit_cast<uint32_t>(vel_json_nodehead{nodetype & 0x7f, 0, 0, 0, 0});

    return std::bit_cast<vel_json_nodehead>(head + place * placeunit);
}

/* Makes a node in a block of the chunk that blocks are taken from. */
static inline veljsonnode *vel_json_pool_make_node(const vel_json_pool *pool, void *block,
                                                   uint32_t nodetype)
{
    auto *const node = static_cast<veljsonnode *>(block);
    const auto distance = static_cast<size_t>(static_cast<const char *>(block) -
                                              reinterpret_cast<const char *>(pool->chunk));

    *node = {vel_json_make_nodehead(nodetype, static_cast<uint32_t>(distance / 8)),
             0,
             nullptr,
             {},
             {},
             {}};
    return node;
}

/* Does what vel_json_node_create does, where the parser has its nodes; in the pool an object has no
 * table. */
static inline veljsonnode *vel_json_parser_create_node(const veljsonparser *parser,
                                                       uint32_t nodetype)
{
    vel_json_pool *const pool = parser->pool;

    if (!pool || pool->left < sizeof(veljsonnode))
        return vel_json_parser_create_node_slowly(parser, nodetype);
    return vel_json_pool_make_node(pool, vel_json_pool_take(pool, sizeof(veljsonnode)), nodetype);
}

/* ---- veljson_parse_string.cpp, veljson_parse_number.cpp ---- */

/* Each reads what begins at pos into a new node, which is written to nodeptr if there was memory for
 * it, also where the rest fails. */
int vel_json_parser_parse_string(veljsonparser *parser, veljsonnode **nodeptr);
int vel_json_parser_parse_number(veljsonparser *parser, veljsonnode **nodeptr);

/* Reads a key to a new entry in the pool. Returns it, or NULL. */
velstringhashitem *vel_json_parser_parse_key(veljsonparser *parser);

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

/* digits divided by 10^scale, exactly rounded; digits is what at most 19 digits make. Returns false where
 * that is not computed here. */
bool vel_json_digits_to_double(uint64_t digits, size_t scale, double *valueptr);

/* Room for any double as vel_json_double_to_text writes it. */
static constexpr size_t vel_json_doublesize = 25;

/* Writes value as %g of the C locale does. Returns the length; there is no terminator. */
size_t vel_json_double_to_text(char *text, double value);

#endif
