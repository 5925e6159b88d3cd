#include <cstring>

#include <vellib/vellimit.h>
#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>

#include "adt/veljson_internal.h"
#include "adt/veljson_levels.h"
#include "adt/veljson_scan.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

static constexpr size_t vel_json_output_firstsize = 4095;

/* The text that has been written. There is always room for one more byte, the terminator. */
struct veljsonoutput {
    char *buf;
    size_t buflen;
    size_t pos;
};

/* ---- The buffer ---- */

/* Doubles the buffer until len bytes more fit. Each size is asked for by itself, so that the line
 * of a failure names the first that could not be had. */
static vel_error_t vel_json_output_grow(veljsonoutput *output, size_t len)
{
    VEL_ASSERT(len > 0);

    while (len >= output->buflen - output->pos) {
        const size_t buflen = output->buflen * 2;
        if (output->buflen > vel_limit_max_size_t() / 2) {
            VEL_LOG(6, "maximum buffer size %zu reached", output->buflen);
            return VEL_ERROR_NO_MEMORY;
        }
        auto *const buf = static_cast<char *>(vel_realloc(output->buf, buflen));
        if (!buf) {
            VEL_LOG(7, "not enough memory for JSON output buffer (%zu bytes)", buflen);
            return VEL_ERROR_NO_MEMORY;
        }
        output->buf = buf;
        output->buflen = buflen;
    }
    return VEL_ERROR_NONE;
}

/* Makes room for len bytes more. */
static inline vel_error_t vel_json_node_output_buffer_check(veljsonoutput *output, size_t len)
{
    return len < output->buflen - output->pos ? VEL_ERROR_NONE : vel_json_output_grow(output, len);
}

/* Writes bytes for which there is room. */
static inline void vel_json_output_put(veljsonoutput *output, const char *bytes, size_t len)
{
    vel_json_copy_text(output->buf + output->pos, bytes, len);
    output->pos += len;
}

static vel_error_t vel_json_output_text(veljsonoutput *output, const char *text, size_t len)
{
    const vel_error_t error = vel_json_node_output_buffer_check(output, len);

    if (error == VEL_ERROR_NONE)
        vel_json_output_put(output, text, len);
    return error;
}

/* ---- Strings ---- */

/* The letter behind the backslash; 'u' for the long form, 0 for a byte that stays as it is. */
static char vel_json_escape_letter(unsigned char byte)
{
    switch (byte) {
    case '"':
    case '\\':
        return static_cast<char>(byte);
    case '\b':
        return 'b';
    case '\t':
        return 't';
    case '\n':
        return 'n';
    case '\f':
        return 'f';
    case '\r':
        return 'r';
    default:
        return byte < 32 ? 'u' : '\0';
    }
}

/* Writes the escape of a byte to result, unless that is NULL. Returns its length. */
static size_t vel_json_escape_to(char *result, unsigned char byte)
{
    static constexpr char hexdigits[] = "0123456789abcdef";
    const char letter = vel_json_escape_letter(byte);
    const char escape[] = {'\\', letter, '0', '0', hexdigits[byte >> 4], hexdigits[byte & 15]};
    const size_t length = letter == 'u' ? 6 : 2;

    if (result)
        memcpy(result, escape, length);
    return length;
}

/* Writes the escaped text to result, unless that is NULL. Returns its length. */
static size_t vel_json_string_escape_to(char *result, const char *string, size_t len)
{
    size_t pos = 0;

    for (size_t i = 0; i < len; i++) {
        const size_t plain = vel_json_scan_plain(string + i, len - i);
        if (result)
            memcpy(result + pos, string + i, plain);
        pos += plain;
        i += plain;
        if (i < len)
            pos += vel_json_escape_to(result ? result + pos : nullptr,
                                      static_cast<unsigned char>(string[i]));
    }
    return pos;
}

/* Returns the escaped text as a new string, or NULL without memory, which is logged. */
static char *vel_json_string_escape(const char *string, size_t len, size_t *resultlenptr)
{
    const size_t resultlen = vel_json_string_escape_to(nullptr, string, len);
    auto *const result = static_cast<char *>(vel_malloc(resultlen + 1));

    if (!result) {
        VEL_LOG(7, "not enough memory for escaping string (%zu bytes)", resultlen + 1);
        return nullptr;
    }
    const size_t pos = vel_json_string_escape_to(result, string, len);
    VEL_ASSERT(pos == resultlen);
    result[resultlen] = '\0';
    *resultlenptr = resultlen;
    return result;
}

/* Makes room for a text of len bytes in quotes. */
static vel_error_t vel_json_output_quoted_check(veljsonoutput *output, size_t len)
{
    if (len > vel_limit_max_size_t() - 2) {
        VEL_LOG(7, "escaped string length would wrap size_t");
        return VEL_ERROR_OUT_OF_RANGE;
    }
    return vel_json_node_output_buffer_check(output, len + 2);
}

/* Writes a text that needs no more escapes, in quotes. */
static vel_error_t vel_json_output_quoted(veljsonoutput *output, const char *text, size_t len)
{
    const vel_error_t error = vel_json_output_quoted_check(output, len);

    if (error)
        return error;
    vel_json_output_put(output, "\"", 1);
    vel_json_output_put(output, text, len);
    vel_json_output_put(output, "\"", 1);
    return VEL_ERROR_NONE;
}

/* Writes a text in quotes that is escaped on the way. */
static vel_error_t vel_json_output_escaped(veljsonoutput *output, const char *string, size_t len)
{
    const size_t escapedlen = vel_json_string_escape_to(nullptr, string, len);
    const vel_error_t error = vel_json_output_quoted_check(output, escapedlen);

    if (error)
        return error;
    vel_json_output_put(output, "\"", 1);
    output->pos += vel_json_string_escape_to(output->buf + output->pos, string, len);
    vel_json_output_put(output, "\"", 1);
    return VEL_ERROR_NONE;
}

/* Once a text is long, strings are spared the way through a block of their own. A short text allocates
 * for each, as the contract has it. */
static vel_error_t vel_json_output_string(veljsonoutput *output, const char *string)
{
    size_t len = strlen(string);

    if (output->buflen > vel_json_output_firstsize)
        return vel_json_scan_plain(string, len) == len
                   ? vel_json_output_quoted(output, string, len)
                   : vel_json_output_escaped(output, string, len);

    char *const escaped = vel_json_string_escape(string, len, &len);
    if (!escaped) {
        VEL_LOG(7, "not enough memory for escaping string for JSON");
        return VEL_ERROR_NO_MEMORY;
    }
    const vel_error_t error = vel_json_output_quoted(output, escaped, len);
    vel_free(escaped);
    return error;
}

/* Writes a key of a hash, and what separates it from its value. */
static vel_error_t vel_json_output_key(veljsonoutput *output, const char *key)
{
    const size_t len = vel_json_scan_plain_key(key);

    if (output->buflen > vel_json_output_firstsize && key[len] == '\0') {
        const vel_error_t error = vel_json_node_output_buffer_check(output, len + 4);
        if (error)
            return error;
        vel_json_output_put(output, "\"", 1);
        vel_json_output_put(output, key, len);
        vel_json_output_put(output, "\": ", 3);
        return VEL_ERROR_NONE;
    }
    const vel_error_t error = vel_json_output_string(output, key);
    return error ? error : vel_json_output_text(output, ": ", 2);
}

/* ---- Numbers ---- */

static constexpr char vel_json_digitpairs[] = "0001020304050607080910111213141516171819202122232425"
                                              "262728293031323334353637383940414243444546474"
                                              "8495051525354555657585960616263646566676869707172737"
                                              "475767778798081828384858687888990919293949596"
                                              "979899";
static_assert(sizeof vel_json_digitpairs == 201);

static vel_error_t vel_json_output_integer(veljsonoutput *output, int64_t value)
{
    char text[20]; /* a sign and up to 19 digits, from the right */
    size_t i = sizeof text;
    uint64_t magnitude = static_cast<uint64_t>(value);

    if (value < 0)
        magnitude = -magnitude;
    for (; magnitude >= 100; magnitude /= 100) {
        const size_t pair = magnitude % 100 * 2;
        VEL_ASSERT(i > 1);
        text[--i] = vel_json_digitpairs[pair + 1];
        text[--i] = vel_json_digitpairs[pair];
    }
    do {
        VEL_ASSERT(i > 0);
        text[--i] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude > 0);
    if (value < 0)
        text[--i] = '-';
    return vel_json_output_text(output, text + i, sizeof text - i);
}

static vel_error_t vel_json_output_double(veljsonoutput *output, double value)
{
    char text[vel_json_doublesize];

    return vel_json_output_text(output, text, vel_json_double_to_text(text, value));
}

/* ---- Nodes ---- */

/* Writes a node, of a container only how it begins; into that it goes down. */
static vel_error_t vel_json_output_node(veljsonoutput *output, vel_json_levels *levels,
                                        const veljsonnode *node)
{
    switch (node->nodetype) {
    case VEL_JSON_TYPE_OBJECT:
    case VEL_JSON_TYPE_ARRAY:
        if (!vel_json_levels_push(levels, nullptr, node))
            return VEL_ERROR_NO_MEMORY;
        return vel_json_output_text(output, node->nodetype == VEL_JSON_TYPE_OBJECT ? "{ " : "[ ",
                                    2);
    case VEL_JSON_TYPE_STRING:
        return vel_json_output_string(output, node->value.string);
    case VEL_JSON_TYPE_INTEGER:
        return vel_json_output_integer(output, node->integervalue);
    case VEL_JSON_TYPE_DOUBLE:
        return vel_json_output_double(output, node->value.number);
    case VEL_JSON_TYPE_TRUE:
        return vel_json_output_text(output, "true", 4);
    case VEL_JSON_TYPE_FALSE:
        return vel_json_output_text(output, "false", 5);
    case VEL_JSON_TYPE_NULL:
        return vel_json_output_text(output, "null", 4);
    default:
        VEL_LOG(6, "unhandled node type %u", node->nodetype);
        return VEL_ERROR_INTERNAL;
    }
}

/* Steps behind a value that is complete, and writes what separates it from the next or the end. */
static vel_error_t vel_json_output_separator(veljsonoutput *output, vel_json_level *level)
{
    vel_json_level_step(level);
    return level->value ? vel_json_output_text(output, ", ", 2)
                        : vel_json_output_text(output, " ", 1);
}

/* Writes the end of a container. */
static vel_error_t vel_json_output_end(veljsonoutput *output, vel_json_levels *levels)
{
    const vel_json_level *const level = vel_json_levels_top(levels);
    const bool isobject = level->source->nodetype == VEL_JSON_TYPE_OBJECT;

    levels->count--;
    return vel_json_output_text(output, isobject ? "}" : "]", 1);
}

/* Writes the value in hand, with its key if it has one. */
static vel_error_t vel_json_output_value(veljsonoutput *output, vel_json_levels *levels)
{
    const vel_json_level *const level = vel_json_levels_top(levels);
    vel_error_t error = VEL_ERROR_NONE;

    if (level->source->nodetype == VEL_JSON_TYPE_OBJECT) {
        error = vel_json_output_key(output, level->key);
    }
    if (error == VEL_ERROR_NONE)
        error = vel_json_output_node(output, levels, level->value);
    return error;
}

static vel_error_t vel_json_node_output(veljsonoutput *output, const veljsonnode *node)
{
    VEL_ASSERT(node != NULL);

    vel_json_levels levels;
    vel_json_levels_begin(&levels);
    vel_error_t error = vel_json_output_node(output, &levels, node);
    while (error == VEL_ERROR_NONE && levels.count > 0) {
        const size_t depth = levels.count;
        if (vel_json_levels_top(&levels)->value)
            error = vel_json_output_value(output, &levels);
        else
            error = vel_json_output_end(output, &levels);
        /* Unless that went down, a value of the level at the top is complete now. */
        if (error == VEL_ERROR_NONE && levels.count > 0 && levels.count <= depth)
            error = vel_json_output_separator(output, vel_json_levels_top(&levels));
    }
    vel_json_levels_end(&levels);
    return error;
}

char *vel_json_output(veljson *veljson)
{
    VEL_ASSERT(veljson != NULL);

    veljsonoutput output = {};
    output.buf = static_cast<char *>(vel_malloc(vel_json_output_firstsize));
    if (!output.buf) {
        VEL_LOG(7, "not enough memory for JSON output");
        return nullptr;
    }
    output.buflen = vel_json_output_firstsize;

    char *result = nullptr;
    if (vel_json_node_output(&output, veljson->root) == VEL_ERROR_NONE) {
        const size_t pos = output.pos, buflen = output.buflen;
        VEL_ASSERT(pos < buflen);
        output.buf[pos] = '\0';
        result = vel_strdup(output.buf);
        if (!result)
            VEL_LOG(7, "not enough memory for JSON output result");
    }
    vel_free(output.buf);
    return result;
}
