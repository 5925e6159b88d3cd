#include <vellib/velhttpheaders.h>

#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>
#include <vellib/velstrdup_lowercase.h>
#include <vellib/velstringhash.h>
#include <vellib/velstrndup.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttpheaders"

struct velhttpheaders {
    velstringhash *hash; /* name in lower case to a value of its own */
};

/* One line of a header text: where it ends and where its first colon stands, if it has one. */
struct vel_httpheaders_line {
    const char *end;
    const char *colon;
};

static void vel_httpheaders_header_destroy(void *item, void *context)
{
    VEL_ASSERT(item != NULL);
    VEL_ASSERT(context == NULL);

    vel_free(item);
}

static vel_httpheaders_line vel_httpheaders_scan_line(const char *pos, const char *bufferend)
{
    const char *colon = nullptr;

    for (; pos < bufferend && *pos != '\0' && *pos != '\n' && *pos != '\r'; pos++) {
        if (*pos == ':' && !colon)
            colon = pos;
    }
    return {pos, colon};
}

static bool vel_httpheaders_is_blank(char c)
{
    return c == ' ' || c == '\t';
}

/* Stores a value under a name in lower case. The value becomes the table's only on success. The log
 * calls the header what it was given as. */
static vel_error_t vel_httpheaders_store(velhttpheaders *headers, const char *lowername,
                                         char *value, const char *given)
{
    if (vel_stringhash_add(headers->hash, lowername, value) == 0)
        return VEL_ERROR_NONE;

    VEL_LOG(7, "unable to store the header '%s' value '%s'", given, value ? value : "<NULL>");
    vel_free(value);
    return VEL_ERROR_NO_MEMORY;
}

static vel_error_t vel_httpheaders_parse_value(velhttpheaders *headers, const char *name,
                                               const char *pos, const char *end)
{
    while (pos < end && vel_httpheaders_is_blank(*pos))
        pos++;
    while (pos < end && vel_httpheaders_is_blank(end[-1]))
        end--;

    char *value = vel_strndup(pos, static_cast<size_t>(end - pos));
    if (!value) {
        VEL_LOG(7, "not enough memory for header value");
        return VEL_ERROR_NO_MEMORY;
    }
    return vel_httpheaders_store(headers, name, value, name);
}

static vel_error_t vel_httpheaders_parse_line(velhttpheaders *headers, const char *pos,
                                              vel_httpheaders_line line)
{
    if (!line.colon) {
        VEL_LOG(7, "no colon (:) found while parsing the headers");
        return VEL_ERROR_INVALID_SYNTAX;
    }
    char *name = vel_strndup_lowercase(pos, static_cast<size_t>(line.colon - pos));
    if (!name) {
        VEL_LOG(7, "not enough memory for header name");
        return VEL_ERROR_NO_MEMORY;
    }
    const vel_error_t error = vel_httpheaders_parse_value(headers, name, line.colon + 1, line.end);
    vel_free(name);
    return error;
}

static vel_error_t vel_httpheaders_parse_text(velhttpheaders *headers, const char *buffer,
                                              size_t bufferlen, bool skipfirstline)
{
    const char *pos = buffer;
    const char *const bufferend = buffer + bufferlen;

    while (pos < bufferend) {
        const vel_httpheaders_line line = vel_httpheaders_scan_line(pos, bufferend);
        if (line.end == pos)
            break;

        if (skipfirstline) {
            VEL_LOG(10, "skipping first line, should be HTTP request or status line");
            skipfirstline = false;
        } else if (const vel_error_t error = vel_httpheaders_parse_line(headers, pos, line)) {
            return error;
        }
        pos = line.end;
        if (pos < bufferend && *pos == '\r')
            pos++;
        if (pos < bufferend && *pos == '\n')
            pos++;
    }
    return VEL_ERROR_NONE;
}

velhttpheaders *vel_httpheaders_create(void)
{
    auto *headers =
        static_cast<struct velhttpheaders *>(vel_cmalloc(sizeof(struct velhttpheaders)));
    if (!headers) {
        VEL_LOG(7, "not enough memory for velhttpheaders structure");
        return nullptr;
    }
    headers->hash = vel_stringhash_create(vel_httpheaders_header_destroy, nullptr);
    if (!headers->hash) {
        VEL_LOG(7, "not enough memory for the response header hashtable");
        vel_httpheaders_destroy(headers);
        return nullptr;
    }
    return headers;
}

void vel_httpheaders_destroy(velhttpheaders *velhttpheaders)
{
    VEL_ASSERT(velhttpheaders != NULL);

    if (velhttpheaders->hash)
        vel_stringhash_destroy(velhttpheaders->hash);
    vel_free(velhttpheaders);
}

void vel_httpheaders_clear(velhttpheaders *velhttpheaders)
{
    VEL_ASSERT(velhttpheaders != NULL);

    vel_stringhash_clear(velhttpheaders->hash);
}

vel_error_t vel_httpheaders_add(velhttpheaders *velhttpheaders, const char *name, const char *value)
{
    VEL_ASSERT(velhttpheaders != NULL);
    VEL_ASSERT(name != NULL);

    char *lowername = vel_strdup_lowercase(name);
    if (!lowername) {
        VEL_LOG(7, "not enough memory for duplicating header name '%s'", name);
        return VEL_ERROR_NO_MEMORY;
    }
    vel_error_t result = VEL_ERROR_NO_MEMORY;
    char *copy = value ? vel_strdup(value) : nullptr;
    if (value && !copy)
        VEL_LOG(7, "not enough memory for duplicating value '%s'", value);
    else
        result = vel_httpheaders_store(velhttpheaders, lowername, copy, name);
    vel_free(lowername);
    return result;
}

vel_error_t vel_httpheaders_parse(velhttpheaders *velhttpheaders, const char *buffer,
                                  size_t bufferlen)
{
    VEL_ASSERT(velhttpheaders != NULL);
    VEL_ASSERT(buffer != NULL);

    return vel_httpheaders_parse_text(velhttpheaders, buffer, bufferlen, /*skipfirstline=*/false);
}

vel_error_t vel_httpheaders_parse_from_message(velhttpheaders *velhttpheaders, const char *buffer,
                                               size_t bufferlen)
{
    VEL_ASSERT(velhttpheaders != NULL);
    VEL_ASSERT(buffer != NULL);

    return vel_httpheaders_parse_text(velhttpheaders, buffer, bufferlen, /*skipfirstline=*/true);
}

const char *vel_httpheaders_get(velhttpheaders *velhttpheaders, const char *name)
{
    VEL_ASSERT(velhttpheaders != NULL);
    VEL_ASSERT(name != NULL);

    char *lowername = vel_strdup_lowercase(name);
    if (!lowername) {
        VEL_LOG(7, "unable to convert the header name to lowercase");
        return nullptr;
    }
    auto *value = static_cast<const char *>(vel_stringhash_lookup(velhttpheaders->hash, lowername));
    vel_free(lowername);
    return value;
}
