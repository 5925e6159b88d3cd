#include <vellib/velinifile.h>

#include <stdio.h>
#include <string.h>

#include <vellib/velfile.h>
#include <vellib/velmalloc.h>
#include <vellib/velstrstrip.h>

#include "util/velassert.h"
#include "util/velinifile_internal.h"

velinifilespan vel_inifile_strip(velinifilespan span)
{
    vel_strptrstrip(&span.text, &span.len);
    return span;
}

static velinifilespan vel_inifile_span(const char *text)
{
    return {text, strlen(text)};
}

/* ---- Life ------------------------------------------------------------------------------------ */

velinifile *vel_inifile_create(vel_error_t *error_out)
{
    auto *inifile = static_cast<struct velinifile *>(vel_cmalloc(sizeof(struct velinifile)));
    if (error_out)
        *error_out = inifile ? VEL_ERROR_NONE : VEL_ERROR_NO_MEMORY;
    return inifile;
}

static void vel_inifile_free_index(velinifileindex *index)
{
    if (index->slots)
        vel_free(index->slots);
}

void vel_inifile_destroy(velinifile *inifile)
{
    VEL_ASSERT(inifile);

    while (auto *line = static_cast<velinifileline *>(inifile->list.head)) {
        VEL_LIST_REMOVE(&inifile->list, line);
        vel_free(line);
    }
    while (velinifilesection *section = inifile->sections) {
        inifile->sections = section->next;
        vel_inifile_free_index(&section->keys);
        vel_free(section);
    }
    vel_inifile_free_index(&inifile->nosection.keys);
    vel_inifile_free_index(&inifile->index);
    vel_free(inifile);
}

/* ---- Sections -------------------------------------------------------------------------------- */

/* The section of exactly that name that has lines, or NULL. */
static velinifilesection *vel_inifile_find_section(struct velinifile *inifile, const char *name)
{
    if (!name)
        return &inifile->nosection;
    /* The entry is the first field of a section. */
    return reinterpret_cast<velinifilesection *>(vel_inifile_index_find(&inifile->index, name));
}

velinifilesection *vel_inifile_obtain_section(struct velinifile *inifile, velinifilespan name)
{
    const velinifilespan stripped = vel_inifile_strip(name);
    auto *section =
        static_cast<velinifilesection *>(vel_cmalloc(sizeof(velinifilesection) + stripped.len + 1));
    if (!section)
        return nullptr;
    auto *text = reinterpret_cast<char *>(section + 1);
    memcpy(text, stripped.text, stripped.len);
    section->entry.name = text;

    velinifilesection *former = vel_inifile_find_section(inifile, text);
    if (former || !vel_inifile_index_reserve(&inifile->index)) {
        vel_free(section);
        return former;
    }
    (void)vel_inifile_index_put(&inifile->index, &section->entry);
    section->next = inifile->sections;
    inifile->sections = section;
    return section;
}

/* ---- Lines ----------------------------------------------------------------------------------- */

/* Copies a text and a NUL to *destptr, and steps behind them. Returns the copy. */
static char *vel_inifile_copy(char **destptr, velinifilespan span)
{
    char *copy = *destptr;
    memcpy(copy, span.text, span.len);
    copy[span.len] = '\0';
    *destptr = copy + span.len + 1;
    return copy;
}

static velinifileline *vel_inifile_create_line(velinifilesection *section, size_t textlen)
{
    auto *line = static_cast<velinifileline *>(vel_malloc(sizeof(velinifileline) + textlen));
    if (line) {
        *line = {};
        line->section = section;
    }
    return line;
}

static char *vel_inifile_text(velinifileline *line)
{
    return reinterpret_cast<char *>(line + 1);
}

/* Tells whether stripping takes something off the end of a text. */
static bool vel_inifile_is_cut(velinifilespan span, velinifilespan stripped)
{
    return stripped.text + stripped.len != span.text + span.len;
}

/* The stripped form of a text whose copy is given: a piece of that, or one more copy. */
static const char *vel_inifile_copy_stripped(char **destptr, const char *copy, velinifilespan span,
                                             velinifilespan stripped)
{
    if (vel_inifile_is_cut(span, stripped))
        return vel_inifile_copy(destptr, stripped);
    return copy + (stripped.text - span.text);
}

velinifileline *vel_inifile_create_key_line(velinifilesection *section, velinifilespan key,
                                            velinifilespan value)
{
    const velinifilespan strippedkey = vel_inifile_strip(key);
    const velinifilespan strippedvalue = vel_inifile_strip(value);
    const size_t keycopylen = vel_inifile_is_cut(key, strippedkey) ? strippedkey.len + 1 : 0;
    const size_t valuecopylen =
        vel_inifile_is_cut(value, strippedvalue) ? strippedvalue.len + 1 : 0;
    velinifileline *line =
        vel_inifile_create_line(section, key.len + 1 + value.len + 1 + keycopylen + valuecopylen);
    if (!line)
        return nullptr;
    char *text = vel_inifile_text(line);
    const char *keycopy = vel_inifile_copy(&text, key);
    const char *valuecopy = vel_inifile_copy(&text, value);
    line->entry.name = vel_inifile_copy_stripped(&text, keycopy, key, strippedkey);
    line->value = vel_inifile_copy_stripped(&text, valuecopy, value, strippedvalue);
    return line;
}

velinifileline *vel_inifile_create_other_line(velinifilesection *section, velinifilespan raw)
{
    velinifileline *line = vel_inifile_create_line(section, raw.len + 1);
    if (!line)
        return nullptr;
    char *text = vel_inifile_text(line);
    (void)vel_inifile_copy(&text, raw);
    return line;
}

/* The line of a key that the index has. */
static velinifileline *vel_inifile_line_of(velinifileentry *entry)
{
    return entry ? reinterpret_cast<velinifileline *>(reinterpret_cast<char *>(entry) -
                                                      offsetof(velinifileline, entry))
                 : nullptr;
}

/* The last line of a section with this key, or NULL. */
static velinifileline *vel_inifile_get_line(struct velinifile *inifile, const char *section,
                                            const char *key)
{
    velinifilesection *found = vel_inifile_find_section(inifile, section);
    return found ? vel_inifile_line_of(vel_inifile_index_find(&found->keys, key)) : nullptr;
}

static void vel_inifile_link(vel_list *list, velinifileline *place, velinifileline *line)
{
    if (!place) {
        VEL_LIST_ADD_HEAD(list, line);
        return;
    }
    line->prev = place;
    line->next = place->next;
    if (place->next)
        place->next->prev = line;
    else
        list->tail = line;
    place->next = line;
}

void vel_inifile_insert(struct velinifile *inifile, velinifileline *place, velinifileline *line)
{
    velinifilesection *section = line->section;

    vel_inifile_link(&inifile->list, place, line);
    if (!section->first)
        section->first = line;
    if (line->entry.name) {
        section->lastkey = line;
        line->older = vel_inifile_line_of(vel_inifile_index_put(&section->keys, &line->entry));
    }
}

/* The next line towards the head that has a key in the same section, or NULL. */
static velinifileline *vel_inifile_former_key(const velinifileline *line)
{
    velinifileline *former = line->prev;
    while (former && !(former->entry.name && former->section == line->section))
        former = former->prev;
    return former;
}

/* Removes a line that has a key and that the index does not lead to any more. */
static void vel_inifile_remove(struct velinifile *inifile, velinifileline *line)
{
    velinifilesection *section = line->section;

    if (section->lastkey == line)
        section->lastkey = vel_inifile_former_key(line);
    /* Only lines ahead of all headers can be without a line of their own section before them. */
    if (section->first == line)
        section->first = line->next && line->next->section == section ? line->next : nullptr;
    VEL_LIST_REMOVE(&inifile->list, line);
    vel_free(line);
}

/* ---- Editing --------------------------------------------------------------------------------- */

/* Puts a new line in the place of one with the same section and key. */
static vel_error_t vel_inifile_replace(struct velinifile *inifile, velinifileline *line,
                                       velinifilespan key, velinifilespan value)
{
    velinifilesection *section = line->section;
    velinifileline *newline = vel_inifile_create_key_line(section, key, vel_inifile_strip(value));
    if (!newline)
        return VEL_ERROR_NO_MEMORY;

    newline->older = line->older;
    (void)vel_inifile_index_put(&section->keys, &newline->entry);
    vel_inifile_link(&inifile->list, line, newline);
    if (section->first == line)
        section->first = newline;
    if (section->lastkey == line)
        section->lastkey = newline;
    VEL_LIST_REMOVE(&inifile->list, line);
    vel_free(line);
    return VEL_ERROR_NONE;
}

static velinifileline *vel_inifile_create_header(velinifilesection *section, const char *name)
{
    const size_t len = strlen(name);
    velinifileline *line = vel_inifile_create_line(section, len + 3);
    if (!line)
        return nullptr;
    char *text = vel_inifile_text(line);
    *text++ = '[';
    memcpy(text, name, len);
    memcpy(text + len, "]", 2);
    return line;
}

/* Adds a header and a line at the end of the file. */
static vel_error_t vel_inifile_add_section(struct velinifile *inifile, const char *name,
                                           velinifilespan key, velinifilespan value)
{
    velinifilesection *section = vel_inifile_obtain_section(inifile, vel_inifile_span(name));
    if (!section || !vel_inifile_index_reserve(&section->keys))
        return VEL_ERROR_NO_MEMORY;
    velinifileline *header = vel_inifile_create_header(section, name);
    velinifileline *line = header ? vel_inifile_create_key_line(section, key, value) : nullptr;
    if (!line) {
        if (header)
            vel_free(header);
        return VEL_ERROR_NO_MEMORY;
    }
    vel_inifile_insert(inifile, static_cast<velinifileline *>(inifile->list.tail), header);
    vel_inifile_insert(inifile, header, line);
    return VEL_ERROR_NONE;
}

static vel_error_t vel_inifile_add(struct velinifile *inifile, const char *name, velinifilespan key,
                                   velinifilespan value)
{
    velinifilesection *section = vel_inifile_find_section(inifile, name);
    /* A section is known without a line only if there was no memory for one. */
    if (name && !(section && section->first))
        return vel_inifile_add_section(inifile, name, key, value);
    velinifileline *line = vel_inifile_create_key_line(section, key, value);
    if (!line)
        return VEL_ERROR_NO_MEMORY;
    if (!vel_inifile_index_reserve(&section->keys)) {
        vel_free(line);
        return VEL_ERROR_NO_MEMORY;
    }
    vel_inifile_insert(inifile, section->lastkey ? section->lastkey : section->first, line);
    return VEL_ERROR_NONE;
}

vel_error_t vel_inifile_set(velinifile *inifile, const char *section, const char *key,
                            const char *new_value)
{
    VEL_ASSERT(inifile);
    VEL_ASSERT(key);
    VEL_ASSERT(new_value);

    char *strippedkey = vel_strstrip(key);
    if (!strippedkey)
        return VEL_ERROR_NO_MEMORY;
    const velinifilespan keyspan = vel_inifile_span(strippedkey);
    const velinifilespan valuespan = vel_inifile_span(new_value);
    velinifileline *line = vel_inifile_get_line(inifile, section, strippedkey);
    const vel_error_t error = line ? vel_inifile_replace(inifile, line, keyspan, valuespan)
                                   : vel_inifile_add(inifile, section, keyspan, valuespan);
    vel_free(strippedkey);
    return error;
}

void vel_inifile_delete_all(velinifile *inifile, const char *section, const char *key,
                            unsigned int *count)
{
    VEL_ASSERT(inifile);
    VEL_ASSERT(key);

    unsigned int removed = 0;
    velinifileline *line = vel_inifile_get_line(inifile, section, key);
    if (line)
        vel_inifile_index_remove(&line->section->keys, &line->entry);
    while (line) {
        velinifileline *older = line->older;
        vel_inifile_remove(inifile, line);
        removed++;
        line = older;
    }
    if (count)
        *count = removed;
}

/* ---- What a program asks for ----------------------------------------------------------------- */

const char *vel_inifile_get(velinifile *inifile, const char *section, const char *key)
{
    VEL_ASSERT(inifile);
    VEL_ASSERT(key);

    const velinifileline *line = vel_inifile_get_line(inifile, section, key);
    return line ? line->value : nullptr;
}

static bool vel_inifile_write_line(FILE *file, const char *text, bool haskey)
{
    if (!haskey)
        return vel_file_fprintf(file, "%s\n", text) >= 0;
    return vel_file_fprintf(file, "%s=%s\n", text, text + strlen(text) + 1) >= 0;
}

vel_error_t vel_inifile_write_file(velinifile *inifile, const char *filename)
{
    VEL_ASSERT(inifile);
    VEL_ASSERT(filename);

    FILE *file = vel_file_create_binary(filename);
    if (!file)
        return VEL_ERROR_WRITE;
    bool good = true;
    for (auto *line = static_cast<velinifileline *>(inifile->list.head); line && good;
         line = line->next)
        good = vel_inifile_write_line(file, vel_inifile_text(line), line->entry.name != nullptr);
    /* What was buffered meets a full disk only here. */
    if (vel_file_close(file) != 0)
        good = false;
    return good ? VEL_ERROR_NONE : VEL_ERROR_WRITE;
}
