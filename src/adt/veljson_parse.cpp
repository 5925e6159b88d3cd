/* The parser, by recursive descent: each function begins at pos, on a character that its caller has
 * seen, and leaves pos behind what it has read. Levels are limited, so recursion is too. */
#include <cstring>

#include <vellib/velmalloc.h>

#include "adt/veljson_internal.h"
#include "adt/veljson_members.h"
#include "adt/veljson_scan.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

static constexpr unsigned int vel_json_parser_maxdepth = 100;

/* A text of this length is worth chunks of memory, which go only with the whole document. */
static constexpr size_t vel_json_parser_longtext = 16384;

static int vel_json_parser_parse_value(veljsonparser *parser, veljsonnode **nodeptr);

static inline bool vel_json_parser_at_end(const veljsonparser *parser)
{
    return parser->pos >= parser->jsonlen;
}

static inline void vel_json_parser_skip_whitespace(veljsonparser *parser)
{
    const auto ch = static_cast<unsigned char>(parser->json[parser->pos]);

    if (ch <= ' ') /* mostly there is none */
        parser->pos = vel_json_scan_space(parser->json, parser->pos, parser->jsonlen);
}

/* ---- Memory ---- */

veljsonnode *vel_json_parser_create_node_slowly(const veljsonparser *parser, uint32_t nodetype)
{
    if (!parser->pool)
        return vel_json_node_create(nodetype);

    void *const block = vel_json_pool_take(parser->pool, sizeof(veljsonnode));
    if (!block) {
        VEL_LOG(7, "not enough memory for JSON node");
        return nullptr;
    }
    return vel_json_pool_make_node(parser->pool, block, nodetype);
}

/* ---- Objects ---- */

/* Reads the colon and the value behind a key. */
static int vel_json_parser_parse_pair_value(veljsonparser *parser, veljsonnode **valueptr)
{
    vel_json_parser_skip_whitespace(parser);
    if (vel_json_parser_at_end(parser)) {
        VEL_LOG(6, "got end-of-data in an object when expecting a colon");
        return -1;
    }
    if (parser->json[parser->pos] != ':') {
        VEL_LOG(6, "expecting a colon, got '%c'", parser->json[parser->pos]);
        return -1;
    }
    parser->pos++;
    vel_json_parser_skip_whitespace(parser);
    if (vel_json_parser_at_end(parser)) {
        VEL_LOG(6, "got end-of-data in an object when expecting a value for a key");
        return -1;
    }
    if (vel_json_parser_parse_value(parser, valueptr) < 0) {
        VEL_LOG(13, "unable to parse a value for a key");
        return -1;
    }
    return 0;
}

/* Reads the value of a key node, and adds that to the object. */
static int vel_json_parser_parse_member(veljsonparser *parser, const veljsonnode *objectnode,
                                        veljsonnode *veljsonnode)
{
    if (vel_json_parser_parse_pair_value(parser, &veljsonnode->children) < 0)
        return -1;

    VEL_ASSERT(veljsonnode->nodetype == VEL_JSON_TYPE_STRING);
    if (vel_stringhash_add(objectnode->hash, veljsonnode->value.string, veljsonnode) < 0) {
        VEL_LOG(7, "not enough memory to add a value to the hashtable");
        return -1;
    }
    return 0;
}

static int vel_json_parser_parse_pair(veljsonparser *parser, const veljsonnode *objectnode)
{
    veljsonnode *keynode = nullptr;
    int result = vel_json_parser_parse_string(parser, &keynode);

    if (result < 0)
        VEL_LOG(6, "expecting a string for a key");
    else
        result = vel_json_parser_parse_member(parser, objectnode, keynode);
    if (result < 0 && keynode)
        vel_json_node_destroy(keynode);
    return result;
}

/* Reads a pair where the object is in the pool. */
static int vel_json_parser_parse_pooled_pair(veljsonparser *parser, vel_json_members *members)
{
    velstringhashitem *const entry = vel_json_parser_parse_key(parser);
    if (!entry) {
        VEL_LOG(6, "expecting a string for a key");
        return -1;
    }
    veljsonnode *value = nullptr;
    if (vel_json_parser_parse_pair_value(parser, &value) < 0)
        return -1;
    entry->value = value;
    if (!vel_json_members_add(members, entry)) {
        VEL_LOG(7, "not enough memory to add a value to the hashtable");
        return -1;
    }
    return 0;
}

/* Reads members up to the closing brace. Once there was one, the end of the data is as good.
 *
 * members  of an object in the pool, otherwise NULL. */
static int vel_json_parser_parse_members(veljsonparser *parser, const veljsonnode *objectnode,
                                         vel_json_members *members)
{
    int result = -1;

    while (!vel_json_parser_at_end(parser)) {
        char ch = parser->json[parser->pos];
        if (ch == '}') {
            parser->pos++;
            return 0;
        }
        if (ch != '"') {
            VEL_LOG(6, "unexpected character '%c', expecting a string or '}'", ch);
            return -1;
        }
        result = members ? vel_json_parser_parse_pooled_pair(parser, members)
                         : vel_json_parser_parse_pair(parser, objectnode);
        if (result < 0 || vel_json_parser_at_end(parser))
            return result;

        ch = parser->json[parser->pos];
        if (ch != ',' && ch != '}') {
            VEL_LOG(6, "expecting ',' or '}' but got '%c'", ch);
            return -1;
        }
        parser->pos++;
        if (ch == '}')
            return 0;
        vel_json_parser_skip_whitespace(parser);
    }
    return result;
}

static int vel_json_parser_parse_pooled_members(veljsonparser *parser, veljsonnode *objectnode)
{
    vel_json_members members;

    vel_json_members_begin(&members, objectnode, parser->pool);
    const int result = vel_json_parser_parse_members(parser, objectnode, &members);
    vel_json_members_end(&members);
    return result;
}

static int vel_json_parser_parse_object(veljsonparser *parser, veljsonnode **nodeptr)
{
    const char ch = parser->json[parser->pos];
    VEL_ASSERT(ch == '{');

    veljsonnode *const objectnode = vel_json_parser_create_node(parser, VEL_JSON_TYPE_OBJECT);
    if (!objectnode)
        return -1;
    *nodeptr = objectnode;
    parser->pos++;
    vel_json_parser_skip_whitespace(parser);

    const int result = parser->pool ? vel_json_parser_parse_pooled_members(parser, objectnode)
                                    : vel_json_parser_parse_members(parser, objectnode, nullptr);
    if (result < 0 && vel_json_parser_at_end(parser))
        VEL_LOG(6, "got end-of-data in the middle of an object");
    return result;
}

/* ---- Arrays ---- */

static int vel_json_parser_parse_elements(veljsonparser *parser, veljsonnode *arraynode)
{
    while (!vel_json_parser_at_end(parser)) {
        if (parser->json[parser->pos] == ']') {
            parser->pos++;
            return 0;
        }
        veljsonnode *element = nullptr;
        const int result = vel_json_parser_parse_value(parser, &element);
        if (element)
            vel_json_array_append(arraynode, element);
        if (result < 0) {
            VEL_LOG(13, "unable to parse an array element");
            return -1;
        }
        if (vel_json_parser_at_end(parser))
            return -1;

        const char ch = parser->json[parser->pos];
        if (ch != ',' && ch != ']') {
            VEL_LOG(6, "expecting ',' or ']' but got '%c'", ch);
            return -1;
        }
        parser->pos++;
        if (ch == ']')
            return 0;
        vel_json_parser_skip_whitespace(parser);
    }
    return -1;
}

static int vel_json_parser_parse_array(veljsonparser *parser, veljsonnode **nodeptr)
{
    const char ch = parser->json[parser->pos];
    VEL_ASSERT(ch == '[');

    veljsonnode *const arraynode = vel_json_parser_create_node(parser, VEL_JSON_TYPE_ARRAY);
    if (!arraynode)
        return -1;
    *nodeptr = arraynode;
    parser->pos++;
    vel_json_parser_skip_whitespace(parser);

    const int result = vel_json_parser_parse_elements(parser, arraynode);
    if (result < 0 && vel_json_parser_at_end(parser))
        VEL_LOG(6, "got end-of-data in the middle of an array");
    return result;
}

/* ---- Values ---- */

/* The node is the caller's also on failure, when it may be half-built. */
static int vel_json_parser_parse_object_or_array(veljsonparser *parser, veljsonnode **nodeptr)
{
    int result = -1;

    parser->depth++;
    if (parser->depth >= parser->maxdepth)
        VEL_LOG(6, "maximum parsing depth %u reached", parser->depth);
    else if (parser->json[parser->pos] == '{')
        result = vel_json_parser_parse_object(parser, nodeptr);
    else
        result = vel_json_parser_parse_array(parser, nodeptr);
    VEL_ASSERT(parser->depth > 0);
    parser->depth--;
    return result;
}

static int vel_json_parser_parse_keyword(veljsonparser *parser, veljsonnode **nodeptr,
                                         const char *word, unsigned int nodetype)
{
    const size_t length = strlen(word);

    if (parser->jsonlen - parser->pos < length ||
        strncmp(parser->json + parser->pos, word, length) != 0)
        return -1;
    *nodeptr = vel_json_parser_create_node(parser, nodetype);
    if (!*nodeptr) {
        VEL_LOG(7, "not enough memory for node '%s'", word);
        return -1;
    }
    parser->pos += length;
    return 0;
}

static int vel_json_parser_parse_value_by_type(veljsonparser *parser, veljsonnode **nodeptr)
{
    const char ch = parser->json[parser->pos];

    switch (ch) {
    case '"':
        return vel_json_parser_parse_string(parser, nodeptr);
    case '-':
    case '0' ... '9':
        return vel_json_parser_parse_number(parser, nodeptr);
    case '{':
    case '[':
        return vel_json_parser_parse_object_or_array(parser, nodeptr);
    case 't':
        return vel_json_parser_parse_keyword(parser, nodeptr, "true", VEL_JSON_TYPE_TRUE);
    case 'f':
        return vel_json_parser_parse_keyword(parser, nodeptr, "false", VEL_JSON_TYPE_FALSE);
    case 'n':
        return vel_json_parser_parse_keyword(parser, nodeptr, "null", VEL_JSON_TYPE_NULL);
    default:
        VEL_LOG(6, "unimplemented '%c'", ch);
        return -1;
    }
}

/* Also skips the white space behind the value. */
static int vel_json_parser_parse_value(veljsonparser *parser, veljsonnode **nodeptr)
{
    const int result = vel_json_parser_parse_value_by_type(parser, nodeptr);

    if (result == 0)
        vel_json_parser_skip_whitespace(parser);
    return result;
}

/* ---- Documents ---- */

static int vel_json_parser_parse(veljsonparser *parser)
{
    VEL_ASSERT(parser != NULL);
    VEL_ASSERT(parser->json != NULL);
    VEL_ASSERT(parser->veljson != NULL);
    VEL_ASSERT(parser->veljson->root == NULL);

    vel_json_parser_skip_whitespace(parser);
    if (vel_json_parser_at_end(parser)) {
        VEL_LOG(6, "expecting JSON but got an empty string");
        return -1;
    }
    const char ch = parser->json[parser->pos];
    if (ch != '{' && ch != '[') {
        VEL_LOG(6, "expecting '{' or '[' but got '%c'", ch);
        return -1;
    }
    if (vel_json_parser_parse_object_or_array(parser, &parser->veljson->root) < 0)
        return -1;

    vel_json_parser_skip_whitespace(parser);
    if (!vel_json_parser_at_end(parser)) {
        VEL_LOG(6, "expected end-of-data but got '%c'", parser->json[parser->pos]);
        return -1;
    }
    if (parser->pool && !vel_json_pool_keep_promise(parser->pool)) {
        VEL_LOG(7, "not enough memory for hashtable");
        return -1;
    }
    return 0;
}

int vel_json_parse(veljson *veljson, const char *json)
{
    VEL_ASSERT(veljson != NULL);
    VEL_ASSERT(json != NULL);

    vel_json_clear(veljson);
    auto *const parser = static_cast<veljsonparser *>(vel_cmalloc(sizeof(veljsonparser)));
    if (!parser) {
        VEL_LOG(7, "not enough memory for JSON parser context");
        return -1;
    }
    parser->veljson = veljson;
    parser->json = json;
    parser->jsonlen = strlen(json);
    parser->maxdepth = vel_json_parser_maxdepth;
    if (parser->jsonlen >= vel_json_parser_longtext) {
        parser->pool = &veljson->pool;
        vel_json_pool_begin(parser->pool, parser->jsonlen);
    }

    const int result = vel_json_parser_parse(parser);
    if (result < 0)
        vel_json_clear(veljson);
    vel_free(parser);
    return result;
}
