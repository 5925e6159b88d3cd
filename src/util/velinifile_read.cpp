#include "util/velinifile_internal.h"

#include <stdio.h>
#include <string.h>

#include <vellib/velconvert.h>
#include <vellib/velfile.h>
#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>
#include <vellib/velstrdupf.h>
#include <vellib/velstrstrip.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velinifile"

static constexpr size_t vel_inifile_bufferlen = 4095;

/* What is known between two lines of a file. */
struct velinifilereader {
    struct velinifile *inifile;
    const char *filename;
    unsigned int line;
    velinifilesection *section; /* in which the line stands */
};

/* Reads a line of any length into the buffer, which grows and stays grown. *usedptr receives its
 * length. Returns VEL_ERROR_END_OF_FILE if there is no further line. */
static vel_error_t vel_inifile_read_line(FILE *file, char **bufferptr, size_t *buflenptr,
                                         size_t *usedptr)
{
    VEL_ASSERT(file != NULL);
    VEL_ASSERT(bufferptr != NULL);
    VEL_ASSERT(*bufferptr != NULL);
    VEL_ASSERT(buflenptr != NULL);
    VEL_ASSERT(*buflenptr > 0);

    size_t used = 0;
    for (;;) {
        while (*buflenptr - used > 1) {
            int maxreadlen = 0;
            (void)vel_convert_int_from_size_t(&maxreadlen, *buflenptr - used);
            VEL_ASSERT(maxreadlen > 0);
            if (!vel_file_fgets(*bufferptr + used, maxreadlen, file)) {
                *usedptr = used;
                if (vel_file_feof(file))
                    return used > 0 ? VEL_ERROR_NONE : VEL_ERROR_END_OF_FILE;
                VEL_LOG(7, "fgets() returned error %d", vel_file_ferror(file));
                return VEL_ERROR_GENERIC;
            }
            used += strlen(*bufferptr + used);
            *usedptr = used;
            if (used > 0 && (*bufferptr)[used - 1] == '\n')
                return VEL_ERROR_NONE;
        }

        const size_t newlen = *buflenptr * 2;
        if (newlen <= *buflenptr) {
            VEL_LOG(6, "the line length is too long");
            return VEL_ERROR_OUT_OF_RANGE;
        }
        auto *newbuffer = static_cast<char *>(vel_realloc(*bufferptr, newlen));
        if (!newbuffer) {
            VEL_LOG(7, "not enough memory for the line buffer");
            return VEL_ERROR_NO_MEMORY;
        }
        newbuffer[newlen - 1] = '\0';
        *bufferptr = newbuffer;
        *buflenptr = newlen;
    }
}

/* Cuts all CR and LF off the end of a line. */
static void vel_inifile_trim_newline(velinifilespan *line)
{
    while (line->len > 0 &&
           (line->text[line->len - 1] == '\n' || line->text[line->len - 1] == '\r'))
        line->len--;
}

/* Logs nothing where one of the two parts of the line cannot be built. */
static vel_error_t vel_inifile_refuse(const velinifilereader *reader, const char *fault)
{
    char *prefix = vel_strdupf("Parse error at %s:%u: ", reader->filename, reader->line);
    if (prefix) {
        char *message = vel_strdup(fault);
        if (message)
            VEL_LOG(6, "%s%s", prefix, message);
        vel_free(message);
    }
    vel_free(prefix);
    return VEL_ERROR_INVALID_SYNTAX;
}

static vel_error_t vel_inifile_append(velinifilereader *reader, velinifileline *line)
{
    if (!line)
        return VEL_ERROR_NO_MEMORY;
    if (!vel_inifile_index_reserve(&line->section->keys)) {
        vel_free(line);
        return VEL_ERROR_NO_MEMORY;
    }
    vel_inifile_insert(reader->inifile, static_cast<velinifileline *>(reader->inifile->list.tail),
                       line);
    return VEL_ERROR_NONE;
}

static vel_error_t vel_inifile_append_other(velinifilereader *reader, velinifilespan raw)
{
    return vel_inifile_append(reader, vel_inifile_create_other_line(reader->section, raw));
}

/* Takes "[NAME]". content begins at the bracket; end is the last closing one. */
static vel_error_t vel_inifile_parse_header(velinifilereader *reader, velinifilespan raw,
                                            velinifilespan content, const char *end)
{
    const velinifilespan rest = {end + 1,
                                 static_cast<size_t>(content.text + content.len - (end + 1))};
    if (vel_inifile_strip(rest).len > 0)
        return vel_inifile_refuse(reader, "bogus characters after ']'");
    velinifilesection *section = vel_inifile_obtain_section(
        reader->inifile, {content.text + 1, static_cast<size_t>(end - content.text) - 1});
    if (!section)
        return VEL_ERROR_NO_MEMORY;
    reader->section = section;
    return vel_inifile_append_other(reader, raw);
}

/* Takes "KEY=VALUE". A key has one character at least, so that it may begin with "=". */
static vel_error_t vel_inifile_parse_key(velinifilereader *reader, velinifilespan content)
{
    const auto *equals = static_cast<const char *>(memchr(content.text + 1, '=', content.len - 1));
    if (!equals)
        return vel_inifile_refuse(reader, "no '=' found on non-empty non-comment line");
    const auto keylen = static_cast<size_t>(equals - content.text);
    return vel_inifile_append(reader,
                              vel_inifile_create_key_line(reader->section, {content.text, keylen},
                                                          {equals + 1, content.len - keylen - 1}));
}

static vel_error_t vel_inifile_parse_line(velinifilereader *reader, velinifilespan line)
{
    vel_inifile_trim_newline(&line);
    const velinifilespan stripped = vel_inifile_strip(line);
    if (stripped.len == 0 || stripped.text[0] == ';' || stripped.text[0] == '#')
        return vel_inifile_append_other(reader, line);

    /* Only the white space in front goes; what is written keeps that at the end. */
    const velinifilespan content = {stripped.text,
                                    line.len - static_cast<size_t>(stripped.text - line.text)};
    if (content.text[0] == '[') {
        const auto *end = static_cast<const char *>(memrchr(content.text, ']', content.len));
        if (end)
            return vel_inifile_parse_header(reader, line, content, end);
    }
    return vel_inifile_parse_key(reader, content);
}

/* Reads all lines. *iscutptr tells whether it was reading that failed, and not a line. */
static vel_error_t vel_inifile_read_lines(velinifilereader *reader, FILE *file, bool *iscutptr)
{
    size_t linebuflen = vel_inifile_bufferlen;
    *iscutptr = true;
    auto *linebuffer = static_cast<char *>(vel_malloc(linebuflen));
    if (!linebuffer)
        return VEL_ERROR_NO_MEMORY;
    linebuffer[linebuflen - 1] = '\0';

    vel_error_t error = VEL_ERROR_NONE;
    for (reader->line = 1; !error; reader->line++) {
        size_t used = 0;
        error = vel_inifile_read_line(file, &linebuffer, &linebuflen, &used);
        if (error)
            break;
        VEL_ASSERT(linebuffer[linebuflen - 1] == '\0');
        error = vel_inifile_parse_line(reader, {linebuffer, used});
        *iscutptr = !error;
    }
    vel_free(linebuffer);
    return error == VEL_ERROR_END_OF_FILE ? VEL_ERROR_NONE : error;
}

/* Whoever gives the file a line that is none gets nothing; where reading breaks off, the lines read
 * so far stay, and the error tells. */
static velinifile *vel_inifile_create_from_stream(FILE *file, const char *filename,
                                                  vel_error_t *errorptr)
{
    vel_error_t velerror = VEL_ERROR_NONE;
    struct velinifile *inifile = vel_inifile_create(&velerror);
    if (!inifile) {
        VEL_ASSERT(velerror != VEL_ERROR_NONE);
        *errorptr = velerror;
        return nullptr;
    }
    velinifilereader reader = {inifile, filename, 0, &inifile->nosection};
    bool iscut = false;
    *errorptr = vel_inifile_read_lines(&reader, file, &iscut);
    if (*errorptr && !iscut) {
        vel_inifile_destroy(inifile);
        return nullptr;
    }
    return inifile;
}

velinifile *vel_inifile_create_from_file(const char *filename, vel_error_t *error_out)
{
    VEL_ASSERT(filename);

    vel_error_t velerror = VEL_ERROR_NOT_FOUND;
    struct velinifile *inifile = nullptr;
    FILE *file = vel_file_open_binary(filename);
    if (file) {
        inifile = vel_inifile_create_from_stream(file, filename, &velerror);
        (void)vel_file_close(file);
    }
    if (error_out)
        *error_out = velerror;
    return inifile;
}
