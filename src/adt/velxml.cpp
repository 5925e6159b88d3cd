/* The parser keeps one level of elements in hand. Where an element opens a child, the level above
 * waits in its own node: all that it needs later can be told from the node, and the way back up
 * takes the field `level` of the last node of a chain, which has no sibling to point to. The same
 * way serves the output, so that nothing here uses more stack for a deeper document. */
#include <vellib/velxml.h>

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include <vellib/velfile.h>
#include <vellib/velmalloc.h>
#include <vellib/velstrndup.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "adt/velxml"

/* Places are offsets into the text, lengths are in bytes. */
struct velxmlnode {
    struct velxmlnode *level;    /* the next sibling; the last has vel_xml_way_up, see there */
    struct velxmlnode *children; /* the first of them */
    size_t tagstart;             /* behind the "<" */
    size_t taglen;
    size_t attributestart;
    size_t attributelen;
    size_t valuestart;
    size_t valuelen; /* 0 without a value */
};

struct velxml {
    char *xml;
    size_t xmllen;
    size_t pos; /* of the parser */
    struct velxmlnode *root;
};

/* The parser's hold on one level of elements.
 *
 * tagstate: 0 between elements, 1 in the name, 2 in the attributes, 3 in the content, 4 in the end
 * tag, 5 element complete. valuestate: 0 no value so far, 1 in the value, 2 behind it. */
struct vel_xml_level {
    struct velxmlnode *parent = nullptr; /* NULL at the top */
    struct velxmlnode *velxmlnode =
        nullptr; /* the current one, which stands in the tree already, or NULL */
    struct velxmlnode **place = nullptr; /* of the current or else the next node */
    struct velxmlnode *end = nullptr;    /* what stands there when no node does */
    int tagstate = 0;
    int valuestate = 0;
    size_t endtagstart = 0;
    int result = -1;
};

/* What the field `level` holds at the end of a chain: NULL at the top, else the parent with the
 * lowest bit set, which no node's own address has. */
static struct velxmlnode *vel_xml_way_up(struct velxmlnode *parent)
{
    auto address = reinterpret_cast<uintptr_t>(parent);
    return reinterpret_cast<struct velxmlnode *>(parent ? address | 1 : 0);
}

static bool vel_xml_is_way_up(const struct velxmlnode *link)
{
    return !link || (reinterpret_cast<uintptr_t>(link) & 1);
}

static struct velxmlnode *vel_xml_parent(const struct velxmlnode *last)
{
    auto address = reinterpret_cast<uintptr_t>(last->level);
    return reinterpret_cast<struct velxmlnode *>(address & ~static_cast<uintptr_t>(1));
}

static struct velxmlnode *vel_xml_next(const struct velxmlnode *velxmlnode)
{
    return vel_xml_is_way_up(velxmlnode->level) ? nullptr : velxmlnode->level;
}

static struct velxmlnode *vel_xml_node_create()
{
    auto *velxmlnode = static_cast<struct velxmlnode *>(vel_cmalloc(sizeof(struct velxmlnode)));
    if (!velxmlnode)
        VEL_LOG(7, "not enough memory for velxmlnode");
    return velxmlnode;
}

/* Destroys a node, what is below it and its further siblings. A child that is taken out of its
 * chain comes before its parent in the chain of those that are left to destroy. */
static void vel_xml_node_destroy(struct velxmlnode *velxmlnode)
{
    VEL_ASSERT(velxmlnode != NULL);

    while (velxmlnode) {
        struct velxmlnode *next = velxmlnode->children;
        if (next) {
            velxmlnode->children = vel_xml_next(next);
            next->level = velxmlnode;
        } else {
            next = vel_xml_next(velxmlnode);
            vel_free(velxmlnode);
        }
        velxmlnode = next;
    }
}

static void vel_xml_clear(velxml *velxml)
{
    VEL_ASSERT(velxml != NULL);

    if (velxml->root)
        vel_xml_node_destroy(velxml->root);
    if (velxml->xml)
        vel_free(velxml->xml);
    velxml->root = nullptr;
    velxml->xml = nullptr;
    velxml->xmllen = 0;
    velxml->pos = 0;
}

using vel_xml_stops = std::array<bool, 256>;

static constexpr vel_xml_stops vel_xml_fill_stops(std::initializer_list<unsigned char> bytes)
{
    vel_xml_stops stops = {};
    for (unsigned char byte : bytes)
        stops[byte] = true;
    return stops;
}

static constexpr auto vel_xml_name_stops = vel_xml_fill_stops({'\0', '<', '>', ' '});
static constexpr auto vel_xml_text_stops = vel_xml_fill_stops({'\0', '<', '>'});

/* Moves on to the next byte that means something. The text ends in a NUL. */
static inline void vel_xml_skip(velxml *velxml, const vel_xml_stops &stops)
{
    const char *text = velxml->xml + velxml->pos;
    while (!stops[static_cast<unsigned char>(*text)])
        text++;
    velxml->pos = static_cast<size_t>(text - velxml->xml);
}

static bool vel_xml_is_space(char c)
{
    return c == ' ' || c == '\r' || c == '\n';
}

/* Takes the byte at the position, which has no meaning of its own, and those like it behind it.
 * False stops the parser. */
static bool vel_xml_take_text(velxml *velxml, vel_xml_level *level)
{
    if (level->tagstate == 1) {
        vel_xml_skip(velxml, vel_xml_name_stops);
        return true;
    }
    if (level->tagstate == 2 || level->tagstate == 4 || level->valuestate == 1) {
        vel_xml_skip(velxml, vel_xml_text_stops);
        return true;
    }
    if (vel_xml_is_space(velxml->xml[velxml->pos]) &&
        (level->valuestate == 0 || level->tagstate == 3)) {
        velxml->pos++;
        return true;
    }
    if (level->valuestate == 0) {
        level->velxmlnode->valuestart = velxml->pos;
        level->valuestate = 1;
        velxml->pos++;
        return true;
    }
    if (level->tagstate != 3)
        VEL_LOG(6, "tagstate %d, valuestate %d", level->tagstate, level->valuestate);
    return false;
}

/* Compares the name in the end tag that ends at endpos with that of the element. */
static bool vel_xml_end_tag_matches(const velxml *velxml, const vel_xml_level *level, size_t endpos)
{
    const struct velxmlnode *node = level->velxmlnode;
    const size_t len = endpos - level->endtagstart;
    if (len != node->taglen) {
        VEL_LOG(6, "end tag len %lu != start tag len %lu", static_cast<unsigned long>(len),
                static_cast<unsigned long>(node->taglen));
        return false;
    }
    if (memcmp(velxml->xml + level->endtagstart, velxml->xml + node->tagstart, len) != 0) {
        VEL_LOG(6, "end tag does not match with start tag");
        return false;
    }
    return true;
}

/* Moves on from an element that is complete. */
static void vel_xml_complete(vel_xml_level *level)
{
    level->end = vel_xml_way_up(level->parent);
    level->place = &level->velxmlnode->level;
    *level->place = level->end;
    level->velxmlnode = nullptr;
    level->tagstate = 0;
    level->valuestate = 0;
    level->endtagstart = 0;
}

/* What ended a turn of vel_xml_node_parse_recursive. */
enum vel_xml_turn {
    VEL_XML_TURN_STOPPED, /* the level, or all data was read */
    VEL_XML_TURN_CHILD,   /* the current element has a child at the position */
};

/* Parses on the level at hand. Assertions bear the name of the function, and so all stand here. */
static vel_xml_turn vel_xml_node_parse_recursive(velxml *velxml, vel_xml_level *level)
{
    struct velxmlnode *&velxmlnode = level->velxmlnode;
    int &tagstate = level->tagstate, &valuestate = level->valuestate;
    size_t &endtagstart = level->endtagstart;
    const char *xml = velxml->xml;

    while (velxml->pos < velxml->xmllen) {
        if (!velxmlnode) {
            velxmlnode = vel_xml_node_create();
            if (!velxmlnode)
                return VEL_XML_TURN_STOPPED;
            *level->place = velxmlnode;
        }

        const char c = xml[velxml->pos];
        if (c == '<') {
            if (valuestate == 1) {
                velxmlnode->valuelen = velxml->pos - velxmlnode->valuestart;
                valuestate = 2;
            }
            if (tagstate != 0 && tagstate != 3 && tagstate != 5) {
                VEL_LOG(6, "unexpected '<', tagstate %d", tagstate);
                return VEL_XML_TURN_STOPPED;
            }
            if (velxml->pos + 1 >= velxml->xmllen) {
                VEL_LOG(6, "xml too short to finish this tag");
                return VEL_XML_TURN_STOPPED;
            }
            if (xml[velxml->pos + 1] != '/') {
                if (tagstate != 0)
                    return VEL_XML_TURN_CHILD;
                velxmlnode->tagstart = velxml->pos + 1;
                tagstate = 1;
            } else if (tagstate == 3) {
                tagstate = 4;
                VEL_ASSERT(endtagstart == 0);
                endtagstart = velxml->pos + 2;
            } else if (tagstate == 0) {
                /* The end tag is the parent's, and nothing may stand in front of it here. */
                VEL_ASSERT(velxmlnode != NULL);
                VEL_ASSERT(velxmlnode->level == NULL);
                VEL_ASSERT(velxmlnode->children == NULL);
                VEL_ASSERT(velxmlnode->tagstart == 0);
                VEL_ASSERT(velxmlnode->taglen == 0);
                VEL_ASSERT(velxmlnode->attributestart == 0);
                VEL_ASSERT(velxmlnode->attributelen == 0);
                VEL_ASSERT(velxmlnode->valuestart == 0);
                VEL_ASSERT(velxmlnode->valuelen == 0);
                vel_xml_node_destroy(velxmlnode);
                velxmlnode = nullptr;
                *level->place = level->end;
                level->result = 0;
                return VEL_XML_TURN_STOPPED;
            } else if (tagstate == 5) {
                level->result = 0;
                return VEL_XML_TURN_STOPPED;
            } else {
                VEL_UNREACHABLE();
            }
            velxml->pos++;
        } else if (c == '>') {
            if (tagstate != 1 && tagstate != 2 && tagstate != 4) {
                VEL_LOG(6, "unexpected '>', tagstate %d", tagstate);
                return VEL_XML_TURN_STOPPED;
            }
            if (valuestate != 0 && valuestate != 2) {
                VEL_LOG(6, "unexpected value state %d", valuestate);
                return VEL_XML_TURN_STOPPED;
            }
            size_t pos = velxml->pos;
            VEL_ASSERT(pos >= 1);
            const char last = xml[pos - 1];
            if (last == '?')
                pos--;
            if (tagstate == 2) {
                VEL_ASSERT(velxmlnode->attributestart > 0);
                velxmlnode->attributelen = pos - velxmlnode->attributestart;
            } else if (tagstate == 1) {
                velxmlnode->taglen = pos - velxmlnode->tagstart;
            } else if (!vel_xml_end_tag_matches(velxml, level, pos)) {
                return VEL_XML_TURN_STOPPED;
            }
            tagstate = tagstate == 4 || last == '?' || last == '/' ? 5 : 3;
            if (tagstate == 5)
                vel_xml_complete(level);
            velxml->pos++;
        } else if (c == ' ' && tagstate == 1) {
            VEL_ASSERT(valuestate != 1);
            velxmlnode->taglen = velxml->pos - velxmlnode->tagstart;
            velxmlnode->attributestart = velxml->pos + 1;
            tagstate = 2;
            velxml->pos++;
        } else if (!vel_xml_take_text(velxml, level)) {
            return VEL_XML_TURN_STOPPED;
        }
    }
    return VEL_XML_TURN_STOPPED;
}

/* Begins the level of the current element's children. */
static void vel_xml_enter(vel_xml_level *level)
{
    struct velxmlnode *parent = level->velxmlnode;
    parent->level = vel_xml_way_up(level->parent);
    /* There are children already where their level ended without the end tag of the parent. */
    if (parent->children)
        vel_xml_node_destroy(parent->children);
    parent->children = nullptr;
    *level = {.parent = parent, .place = &parent->children};
}

/* Ends the level at hand, whose result then stands. */
static void vel_xml_end(const velxml *velxml, vel_xml_level *level)
{
    if (velxml->pos >= velxml->xmllen) {
        if (level->tagstate == 0)
            level->result = 0;
        else
            VEL_LOG(6, "XML ended unexpectedly, tagstate %d", level->tagstate);
    }
    if (level->velxmlnode)
        level->velxmlnode->level = vel_xml_way_up(level->parent);
}

/* Takes up the level above, which was left in the content of an element. The result is that of
 * the level below, and the place is that of a complete element until there is one. */
static void vel_xml_leave(vel_xml_level *level)
{
    struct velxmlnode *node = level->parent;
    *level = {.parent = vel_xml_parent(node),
              .velxmlnode = node,
              .tagstate = 3,
              .valuestate = node->valuelen > 0 ? 2 : 0,
              .result = level->result};
}

static int vel_xml_node_parse(velxml *velxml)
{
    VEL_ASSERT(velxml != NULL);
    VEL_ASSERT(velxml->xml != NULL);
    VEL_ASSERT(velxml->root == NULL);

    vel_xml_level level = {.place = &velxml->root};
    for (;;) {
        if (vel_xml_node_parse_recursive(velxml, &level) == VEL_XML_TURN_CHILD) {
            vel_xml_enter(&level);
            continue;
        }
        vel_xml_end(velxml, &level);
        while (level.parent && level.result != 0) {
            vel_xml_leave(&level);
            vel_xml_end(velxml, &level);
        }
        if (!level.parent)
            return level.result;
        vel_xml_leave(&level);
    }
}

/* Writes a piece of the text, which may be empty. */
static void vel_xml_output_span(const velxml *velxml, FILE *out, size_t start, size_t len)
{
    (void)vel_file_write(out, velxml->xml + start, len);
}

static void vel_xml_output_text(FILE *out, const char *text)
{
    (void)vel_file_write(out, text, strlen(text));
}

static void vel_xml_output_indent(FILE *out, size_t indent)
{
    static const char blanks[] = "                                                                ";
    for (size_t left = indent * 2; left > 0;) {
        const size_t part = left < sizeof(blanks) - 1 ? left : sizeof(blanks) - 1;
        (void)vel_file_write(out, blanks, part);
        left -= part;
    }
}

/* Writes what stands in front of the children, or all of an element that has neither children nor
 * a value. */
static void vel_xml_output_start(const velxml *velxml, FILE *out, const struct velxmlnode *node,
                                 size_t indent)
{
    vel_xml_output_indent(out, indent);
    vel_xml_output_text(out, "<");
    vel_xml_output_span(velxml, out, node->tagstart, node->taglen);
    if (node->attributelen > 0) {
        vel_xml_output_text(out, " ");
        vel_xml_output_span(velxml, out, node->attributestart, node->attributelen);
    }
    if (node->valuelen == 0 && !node->children) {
        if (node->taglen > 0)
            vel_xml_output_span(velxml, out, node->tagstart, 1);
        else
            vel_xml_output_text(out, "?");
    }
    vel_xml_output_text(out, ">\n");
    if (node->valuelen > 0) {
        vel_xml_output_indent(out, indent + 1);
        vel_xml_output_span(velxml, out, node->valuestart, node->valuelen);
        vel_xml_output_text(out, "\n");
    }
}

/* Writes what stands behind the children. */
static void vel_xml_output_end(const velxml *velxml, FILE *out, const struct velxmlnode *node,
                               size_t indent)
{
    if (node->valuelen == 0 && !node->children)
        return;
    vel_xml_output_indent(out, indent);
    vel_xml_output_text(out, "</");
    vel_xml_output_span(velxml, out, node->tagstart, node->taglen);
    vel_xml_output_text(out, ">\n");
}

/* Writes a chain of top-level nodes and all below. Nothing in the document is touched. */
static int vel_xml_output_recursive(const velxml *velxml, FILE *out,
                                    const struct velxmlnode *velxmlnode, size_t indent)
{
    VEL_ASSERT(velxml != NULL);
    VEL_ASSERT(out != NULL);
    VEL_ASSERT(velxmlnode != NULL);

    const struct velxmlnode *node = velxmlnode;
    while (node) {
        vel_xml_output_start(velxml, out, node, indent);
        if (node->children) {
            node = node->children;
            indent++;
            continue;
        }
        vel_xml_output_end(velxml, out, node, indent);
        while (node && !vel_xml_next(node)) {
            node = vel_xml_parent(node);
            if (node)
                vel_xml_output_end(velxml, out, node, --indent);
        }
        if (node)
            node = vel_xml_next(node);
    }
    return 0;
}

/* The first, or with a number that of so many behind it, among a node and its further siblings that
 * has the name, or NULL. */
static const struct velxmlnode *vel_xml_find(const velxml *velxml, const struct velxmlnode *node,
                                             const char *name, size_t namelen, unsigned int number)
{
    for (; node; node = vel_xml_next(node))
        if (node->taglen == namelen && memcmp(velxml->xml + node->tagstart, name, namelen) == 0 &&
            number-- == 0)
            break;
    return node;
}

static int vel_xml_query_value_const_va(const velxml *velxml, const char **valueptr,
                                        size_t *valuelenptr, va_list path)
{
    VEL_ASSERT(velxml != NULL);
    VEL_ASSERT(valueptr != NULL);
    VEL_ASSERT(valuelenptr != NULL);

    *valueptr = nullptr;
    *valuelenptr = 0;
    const struct velxmlnode *velxmlnode = nullptr, *chain = velxml->root;
    const char *item = va_arg(path, const char *);
    const bool empty = !item;
    for (; item; item = va_arg(path, const char *)) {
        size_t len = strlen(item);
        unsigned int number = 0;
        if (len > 0 && item[len - 1] == '#') {
            len--;
            number = va_arg(path, unsigned int);
        }
        velxmlnode = vel_xml_find(velxml, chain, item, len, number);
        if (!velxmlnode)
            return -1;
        chain = velxmlnode->children;
    }
    if (empty) {
        velxmlnode = velxml->root;
        VEL_ASSERT(velxmlnode != NULL);
    }
    if (velxmlnode->valuelen > 0) {
        *valueptr = velxml->xml + velxmlnode->valuestart;
        *valuelenptr = velxmlnode->valuelen;
    }
    return 0;
}

velxml *vel_xml_create(void)
{
    return static_cast<struct velxml *>(vel_cmalloc(sizeof(struct velxml)));
}

void vel_xml_destroy(velxml *velxml)
{
    VEL_ASSERT(velxml != NULL);

    vel_xml_clear(velxml);
    vel_free(velxml);
}

int vel_xml_parse(velxml *velxml, const char *xml)
{
    vel_xml_clear(velxml); /* asserts the handle, which comes before the text */
    VEL_ASSERT(xml != NULL);

    const size_t len = strlen(xml);
    velxml->xml = vel_strndup(xml, len);
    if (!velxml->xml) {
        VEL_LOG(7, "not enough memory for the XML (%lu bytes)", static_cast<unsigned long>(len));
        return -1;
    }
    velxml->xmllen = len;
    if (vel_xml_node_parse(velxml) != 0) {
        vel_xml_clear(velxml);
        return -1;
    }
    return 0;
}

int vel_xml_output(velxml *velxml, FILE *out)
{
    VEL_ASSERT(velxml != NULL);
    VEL_ASSERT(out != NULL);

    return vel_xml_output_recursive(velxml, out, velxml->root, 0);
}

char *vel_xml_query_value(velxml *velxml, ...)
{
    const char *source;
    size_t len;
    va_list path;
    va_start(path, velxml);
    const int result = vel_xml_query_value_const_va(velxml, &source, &len, path);
    va_end(path);
    if (result != 0)
        return nullptr;

    char *value = vel_strndup(source, len);
    if (!value)
        VEL_LOG(7, "not enough memory for value (%lu bytes)", static_cast<unsigned long>(len));
    return value;
}

int vel_xml_query_value_const(velxml *velxml, const char **valueptr, size_t *valuelenptr, ...)
{
    va_list path;
    va_start(path, valuelenptr);
    const int result = vel_xml_query_value_const_va(velxml, valueptr, valuelenptr, path);
    va_end(path);
    return result;
}
