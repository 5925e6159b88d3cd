#include <cstddef>
#include <cstring>

#include <vellib/velconvert.h>
#include <vellib/velfile.h>
#include <vellib/vellocalization.h>
#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/vellocalization_internal.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/vellocalization"

/* A string that may continue on further lines. */
struct vel_localization_text {
    char *string; /* owned; NULL if there is none */
    size_t len;
    size_t capacity; /* bytes of the block, which holds a NUL as well */
};

/* From here on a text that continues takes room for as much again. */
static constexpr size_t vel_localization_longtext = 4096;

/* What is known between two lines of a file. */
struct vel_localization_po {
    struct vellanguage *vellanguage;
    const char *path;
    unsigned int line;
    vel_localization_text msgid;
    vel_localization_text msgstr;
    vel_error_t result;
};

/* ---- Strings ---- */

/* The length of a string without the backslashes that make the character behind them literal. */
static size_t vel_localization_decoded_length(const char *string, size_t len)
{
    size_t destlen = 0;
    for (size_t i = 0; i < len; i++) {
        if (string[i] == '\\' && ++i == len)
            break;
        destlen++;
    }
    return destlen;
}

char *vel_localization_handle_string(const char *string)
{
    VEL_ASSERT(string != NULL);

    size_t len = strlen(string);
    if (string[0] == '"') {
        string++;
        len--;
        if (len > 0 && string[len - 1] == '"')
            len--;
    }

    const size_t destlen = vel_localization_decoded_length(string, len);
    auto *dest = static_cast<char *>(vel_malloc(destlen + 1));
    if (!dest) {
        VEL_LOG(7, "not enough memory for handling string");
        return nullptr;
    }
    size_t pos = 0;
    for (size_t i = 0; i < len; i++) {
        if (string[i] == '\\' && ++i == len)
            break;
        VEL_ASSERT(pos < destlen);
        dest[pos++] = string[i];
    }
    VEL_ASSERT(pos == destlen);
    dest[pos] = '\0';
    return dest;
}

static void vel_localization_text_clear(vel_localization_text *text)
{
    if (text->string)
        vel_free(text->string);
    *text = {};
}

/* Makes a decoded string, which is taken over, the text. */
static void vel_localization_text_set(vel_localization_text *text, char *string)
{
    vel_localization_text_clear(text);
    text->string = string;
    text->len = strlen(string);
    text->capacity = text->len + 1;
}

/* Moves the text to a block with room for more. It is a new one, not the old one grown: growth never
 * fails under failure injection, and a host shall be able to see what want of memory does here. */
static bool vel_localization_text_reserve(vel_localization_text *text, size_t more)
{
    const size_t needed = text->len + more + 1;
    if (needed <= text->capacity)
        return true;
    const size_t capacity = needed < vel_localization_longtext ? needed : 2 * needed;
    auto *string = static_cast<char *>(vel_malloc(capacity));
    if (!string)
        return false;
    memcpy(string, text->string, text->len);
    vel_free(text->string);
    text->string = string;
    text->capacity = capacity;
    return true;
}

/* Appends to the text, which is lost on failure. */
static bool vel_localization_text_append(vel_localization_text *text, const char *string)
{
    const size_t len = strlen(string);
    if (!vel_localization_text_reserve(text, len)) {
        vel_localization_text_clear(text);
        return false;
    }
    memcpy(text->string + text->len, string, len + 1);
    text->len += len;
    return true;
}

/* ---- Lines ---- */

/* Gives the pair to the language. */
static bool vel_localization_po_add(vel_localization_po *po)
{
    const char *msgid = po->msgid.string;

    VEL_ASSERT(msgid != NULL);
    if (vel_stringhash_add(po->vellanguage->hash, msgid, po->msgstr.string) != 0) {
        VEL_LOG(7, "unable to add string for %s in %s line %u", msgid, po->path, po->line);
        po->result = VEL_ERROR_NO_MEMORY;
        return false;
    }
    po->msgstr = {};
    vel_localization_text_clear(&po->msgid);
    return true;
}

/* Notes a string that cannot be decoded. */
static void vel_localization_po_refuse(vel_localization_po *po, const char *keyword)
{
    VEL_LOG(7, "unable to handle %s in %s line %u", keyword, po->path, po->line);
    po->result = VEL_ERROR_INVALID_SYNTAX;
}

static void vel_localization_po_take_msgstr(vel_localization_po *po, const char *string)
{
    if (!po->msgid.string) {
        VEL_LOG(6, "msgstr without preceeding msgid in %s line %u", po->path, po->line);
        po->result = VEL_ERROR_INVALID_SYNTAX;
        return;
    }
    const char *msgstr = po->msgstr.string;
    VEL_ASSERT(msgstr == NULL);
    char *decoded = vel_localization_handle_string(string);
    if (decoded)
        vel_localization_text_set(&po->msgstr, decoded);
    else
        vel_localization_po_refuse(po, "msgstr");
}

static void vel_localization_po_take_msgid(vel_localization_po *po, const char *string)
{
    vel_localization_text_clear(&po->msgid);
    char *decoded = vel_localization_handle_string(string);
    if (decoded)
        vel_localization_text_set(&po->msgid, decoded);
    else
        vel_localization_po_refuse(po, "msgid");
}

/* What follows the keyword at the start of a line, or NULL if it does not stand there. */
static inline const char *vel_localization_after(const char *line, const char *keyword)
{
    const size_t len = strlen(keyword);
    return strncmp(line, keyword, len) == 0 ? line + len : nullptr;
}

/* Takes a line that starts an item. Returns false if reading cannot go on. */
static bool vel_localization_po_take_item(vel_localization_po *po, const char *line)
{
    if (po->msgstr.string && !vel_localization_po_add(po))
        return false;
    if (const char *msgstr = vel_localization_after(line, "msgstr ")) {
        vel_localization_po_take_msgstr(po, msgstr);
    } else if (const char *msgid = vel_localization_after(line, "msgid ")) {
        vel_localization_po_take_msgid(po, msgid);
    } else {
        VEL_LOG(6, "unrecognized line '%s' in %s line %u", line, po->path, po->line);
        po->result = VEL_ERROR_INVALID_SYNTAX;
    }
    return true;
}

/* Takes a line that continues an item. Returns false if reading cannot go on. That is not a failure
 * of the file: the string alone is lost, and what was read before it counts. */
static bool vel_localization_po_take_continuation(vel_localization_po *po, const char *line)
{
    if (!po->msgid.string) {
        VEL_LOG(6, "a continuation line without preceeding msgid in %s line %u", po->path,
                po->line);
        po->result = VEL_ERROR_INVALID_SYNTAX;
        return true;
    }
    const bool inmsgstr = po->msgstr.string;
    const char *keyword = inmsgstr ? "msgstr" : "msgid";
    char *decoded = vel_localization_handle_string(line);
    if (!decoded) {
        vel_localization_po_refuse(po, keyword);
        return true;
    }
    const bool appended =
        vel_localization_text_append(inmsgstr ? &po->msgstr : &po->msgid, decoded);
    vel_free(decoded);
    if (!appended)
        VEL_LOG(7, "not enough memory to append %s", keyword);
    return appended;
}

/* Cuts the end off a line. */
static void vel_localization_trim(char *line)
{
    size_t len = strlen(line);
    if (len > 0 && line[len - 1] == '\n')
        line[--len] = '\0';
    if (len > 0 && line[len - 1] == '\r')
        line[--len] = '\0';
}

static bool vel_localization_po_take_line(vel_localization_po *po, char *line)
{
    po->line++;
    vel_localization_trim(line);
    switch (line[0]) {
    case '\0':
    case '#':
        return true;
    case '"':
        return vel_localization_po_take_continuation(po, line);
    default:
        return vel_localization_po_take_item(po, line);
    }
}

vel_error_t vel_localization_load_po(vellanguage *vellanguage, FILE *file, const char *path,
                                     char *buffer, size_t bufferlen)
{
    VEL_ASSERT(vellanguage != NULL);
    VEL_ASSERT(file != NULL);
    VEL_ASSERT(buffer != NULL);
    VEL_ASSERT(bufferlen > 0);

    int size;
    const int res = vel_convert_int_from_size_t(&size, bufferlen);
    VEL_ASSERT(res == 0);

    vel_localization_po po = {};
    po.vellanguage = vellanguage;
    po.path = path;
    po.result = VEL_ERROR_NONE;
    while (vel_file_fgets(buffer, size, file))
        if (!vel_localization_po_take_line(&po, buffer))
            break;
    if (po.result == VEL_ERROR_NONE && po.msgid.string && po.msgstr.string)
        (void)vel_localization_po_add(&po);
    vel_localization_text_clear(&po.msgid);
    vel_localization_text_clear(&po.msgstr);
    return po.result;
}
