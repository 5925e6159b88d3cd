#ifndef VELLIB_UTIL_VELINIFILE_INTERNAL_H
#define VELLIB_UTIL_VELINIFILE_INTERNAL_H

/* What the sources of util/velinifile share: velinifile.cpp edits the lines, velinifile_index.cpp
 * finds them by name, velinifile_read.cpp makes them from a file. All of them log as
 * util/velinifile. */

#include <stdint.h>

#include <cstddef>

#include <vellib/velinifile.h>
#include <vellib/vellist.h>

struct velinifileline;
struct velinifilesection;

/* What an index finds by its name: a section of the file, or the last line of a section with a
 * key. */
struct velinifileentry {
    const char *name; /* NULL for what no index has */
    uint64_t hash;
};

/* A table with open addressing, at most half full. */
struct velinifileindex {
    velinifileentry **slots; /* owned; NULL in free ones */
    size_t slotcount;        /* a power of two, or 0 */
    size_t usecount;
};

/* The lines of one name, wherever in the file they stand. Its name stands behind it. It has an index
 * of its own, so that reading a file section by section works on little memory at a time. */
struct velinifilesection {
    velinifileentry entry;
    velinifileindex keys;
    velinifilesection *next;
    velinifileline *first;   /* of its lines; NULL if there is none */
    velinifileline *lastkey; /* of its lines that have a key; NULL if there is none */
};

/* Its text stands behind it, in the same block of memory: the line as it will be written, without
 * its line feed, and with a NUL in the place of the "=" behind a key. The stripped key and value are
 * pieces of that text where these end with a NUL, or else stand behind it. */
struct velinifileline {
    velinifileline *next; /* first two fields: the link of a vel_list */
    velinifileline *prev;
    velinifileentry entry; /* the key; no name if the line has none */
    velinifilesection *section;
    velinifileline *older; /* the line before with the same section and key, or NULL */
    const char *value;     /* NULL if the line has no key */
};

struct velinifile {
    vel_list list;               /* of velinifileline, in the order of the file */
    velinifileindex index;       /* of the sections */
    velinifilesection nosection; /* of the lines ahead of the first header */
    velinifilesection *sections; /* the others, owned */
};

/* A piece of a text. */
struct velinifilespan {
    const char *text;
    size_t len;
};

velinifilespan vel_inifile_strip(velinifilespan span);

/* velinifile_index.cpp */

/* Makes sure that the next entry can be put. Returns false if there is not enough memory. */
bool vel_inifile_index_reserve(velinifileindex *index);
/* The entry of that name, or NULL. */
velinifileentry *vel_inifile_index_find(const velinifileindex *index, const char *name);
/* Puts an entry in the place of the one with its name, which is returned, or in a free one. */
velinifileentry *vel_inifile_index_put(velinifileindex *index, velinifileentry *entry);
void vel_inifile_index_remove(velinifileindex *index, const velinifileentry *entry);

/* velinifile.cpp */

/* The section of that name, stripped, which is made if there is none. NULL if there is not enough
 * memory. */
velinifilesection *vel_inifile_obtain_section(struct velinifile *inifile, velinifilespan name);
/* Makes a line "KEY=VALUE" of the texts as they are; its key and value are the stripped ones. NULL if
 * there is not enough memory. */
velinifileline *vel_inifile_create_key_line(velinifilesection *section, velinifilespan key,
                                            velinifilespan value);
/* Makes a header, a comment or an empty line. NULL if there is not enough memory. */
velinifileline *vel_inifile_create_other_line(velinifilesection *section, velinifilespan raw);
/* Links a line behind another one, or in front of all with place NULL. The index of its section must
 * have room. */
void vel_inifile_insert(struct velinifile *inifile, velinifileline *place, velinifileline *line);

#endif
