#include <cstring>

#include <vellib/velmalloc.h>

#include "adt/veljson_internal.h"
#include "adt/veljson_scan.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

static inline bool vel_json_is_hex(char ch)
{
    return (ch >= '0' && ch <= '9') || (ch >= 'A' && ch <= 'F') || (ch >= 'a' && ch <= 'f');
}

/* ---- Decoding ---- */

/* The text between two quotes, of which pos is the next character. */
struct vel_json_decoder {
    const char *string;
    size_t length;
    size_t pos;
    char *result;     /* where the decoded bytes go; NULL to count them only */
    size_t resultlen; /* is never more than pos, and so cannot overflow */
};

static void vel_json_decoder_put(vel_json_decoder *decoder, unsigned int byte)
{
    if (decoder->result)
        decoder->result[decoder->resultlen] = static_cast<char>(byte);
    decoder->resultlen++;
}

/* Puts a code point up to 0x10ffff as UTF-8. */
static void vel_json_decoder_put_unicode(vel_json_decoder *decoder, uint32_t character)
{
    if (character < 0x80) {
        vel_json_decoder_put(decoder, character);
        return;
    }
    if (character < 0x800) {
        vel_json_decoder_put(decoder, 0xc0 | character >> 6);
    } else {
        if (character < 0x10000) {
            vel_json_decoder_put(decoder, 0xe0 | character >> 12);
        } else {
            vel_json_decoder_put(decoder, 0xf0 | character >> 18);
            vel_json_decoder_put(decoder, 0x80 | (character >> 12 & 0x3f));
        }
        vel_json_decoder_put(decoder, 0x80 | (character >> 6 & 0x3f));
    }
    vel_json_decoder_put(decoder, 0x80 | (character & 0x3f));
}

/* Reads four hexadecimal digits. A failure is logged and gives 0, which nothing tells from a zero:
 * the parser has seen the digits before. */
static uint32_t vel_json_parser_parse_unicode(vel_json_decoder *decoder)
{
    uint32_t character = 0;

    for (int i = 0; i < 4; i++) {
        if (decoder->pos >= decoder->length) {
            VEL_LOG(6, "got end-of-data in a unicode character escape sequence");
            return 0;
        }
        const char ch = decoder->string[decoder->pos];
        if (ch == '\0') {
            VEL_LOG(6, "unexpected NUL character in the middle of a unicode character escape "
                       "sequence");
            return 0;
        }
        if (!vel_json_is_hex(ch)) {
            VEL_LOG(6,
                    "unexpected character '%c' in the middle of a unicode character escape "
                    "sequence",
                    ch);
            return 0;
        }
        decoder->pos++;
        character = character << 4 | static_cast<uint32_t>(ch <= '9' ? ch - '0' : (ch & 7) + 9);
    }
    return character;
}

/* Reads the second part of a surrogate pair and puts the code point of both. */
static bool vel_json_decoder_take_second_part(vel_json_decoder *decoder, uint32_t high)
{
    if (decoder->pos >= decoder->length) {
        VEL_LOG(6, "got end-of-data after a first part of a surrogate pair");
        return false;
    }
    if (decoder->string[decoder->pos] != '\\') {
        VEL_LOG(6, "expected the second part of a surrogate pair but got no escape character");
        return false;
    }
    decoder->pos++;
    if (decoder->pos >= decoder->length) {
        VEL_LOG(6, "got end-of-data after an escaping backslash");
        return false;
    }
    const char ch = decoder->string[decoder->pos];
    if (ch != 'u') {
        VEL_LOG(6, "expected the escaped second part of a surrogate pair but got '\\%c'", ch);
        return false;
    }
    decoder->pos++;
    const uint32_t low = vel_json_parser_parse_unicode(decoder);
    if (low < 0xdc00 || low > 0xdfff) {
        VEL_LOG(6, "expected a second part of the surrogate pair but got 0x%04x", low);
        return false;
    }
    vel_json_decoder_put_unicode(decoder, ((low & 0x3ff) | (high & 0x3ff) << 10) + 0x10000);
    return true;
}

/* Reads what stands behind a \u. */
static bool vel_json_decoder_take_unicode(vel_json_decoder *decoder)
{
    const uint32_t character = vel_json_parser_parse_unicode(decoder);

    if (character >= 0xdc00 && character <= 0xdfff) {
        VEL_LOG(6,
                "unexpected occurrence of a second part of the surrogate 0x%04x without a "
                "preceeding first part",
                character);
        return false;
    }
    if (character >= 0xd800 && character <= 0xdbff)
        return vel_json_decoder_take_second_part(decoder, character);
    vel_json_decoder_put_unicode(decoder, character);
    return true;
}

/* Reads what stands behind a backslash. */
static bool vel_json_decoder_take_escape(vel_json_decoder *decoder)
{
    if (decoder->pos >= decoder->length) {
        VEL_LOG(6, "got end-of-data after an escaping backslash");
        return false;
    }
    const char ch = decoder->string[decoder->pos++];
    switch (ch) {
    case '\0':
        VEL_LOG(6, "unexpected NUL character in the middle of a string");
        return false;
    case 'u':
        return vel_json_decoder_take_unicode(decoder);
    case 'b':
        vel_json_decoder_put(decoder, '\b');
        return true;
    case 'f':
        vel_json_decoder_put(decoder, '\f');
        return true;
    case 'n':
        vel_json_decoder_put(decoder, '\n');
        return true;
    case 'r':
        vel_json_decoder_put(decoder, '\r');
        return true;
    case 't':
        vel_json_decoder_put(decoder, '\t');
        return true;
    default:
        vel_json_decoder_put(decoder, static_cast<unsigned char>(ch));
        return true;
    }
}

/* Puts what stands before the next backslash. */
static void vel_json_decoder_put_plain(vel_json_decoder *decoder)
{
    const char *const plain = decoder->string + decoder->pos;
    const size_t rest = decoder->length - decoder->pos;
    const auto *const backslash = static_cast<const char *>(memchr(plain, '\\', rest));
    const size_t length = backslash ? static_cast<size_t>(backslash - plain) : rest;

    if (decoder->result)
        memcpy(decoder->result + decoder->resultlen, plain, length);
    decoder->resultlen += length;
    decoder->pos += length;
}

static bool vel_json_decoder_run(vel_json_decoder *decoder)
{
    decoder->pos = 0;
    decoder->resultlen = 0;
    while (decoder->pos < decoder->length) {
        vel_json_decoder_put_plain(decoder);
        if (decoder->pos == decoder->length)
            break;
        decoder->pos++;
        if (!vel_json_decoder_take_escape(decoder))
            return false;
    }
    return true;
}

static char *vel_json_string_allocate(size_t length, vel_json_pool *pool)
{
    void *const result = pool ? vel_json_pool_take(pool, length + 1) : vel_malloc(length + 1);

    if (!result)
        VEL_LOG(7, "not enough memory for decoded string");
    return static_cast<char *>(result);
}

/* Decodes in one pass, as the text is never longer than what it is decoded from. */
static char *vel_json_parser_decode_to_pool(const char *string, size_t length, vel_json_pool *pool)
{
    char *const result = vel_json_string_allocate(length, pool);
    vel_json_decoder decoder = {string, length, 0, result, 0};

    if (!result || !vel_json_decoder_run(&decoder))
        return nullptr;
    result[decoder.resultlen] = '\0';
    vel_json_pool_shorten(pool, result, length + 1, decoder.resultlen + 1);
    return result;
}

char *vel_json_parser_parse_string_decode(const char *string, size_t length, vel_json_pool *pool)
{
    VEL_ASSERT(string != NULL);

    if (pool)
        return vel_json_parser_decode_to_pool(string, length, pool);
    vel_json_decoder decoder = {string, length, 0, nullptr, 0};
    if (!vel_json_decoder_run(&decoder))
        return nullptr;
    decoder.result = vel_json_string_allocate(decoder.resultlen, pool);
    if (!decoder.result)
        return nullptr;
    (void)vel_json_decoder_run(&decoder); /* what went well once goes well again */
    decoder.result[decoder.resultlen] = '\0';
    return decoder.result;
}

/* Copies a piece of the text to the pool, by whole vectors if it is short. */
static inline void vel_json_parser_copy_to_pool(const veljsonparser *parser, char *dest,
                                                const char *string, size_t length)
{
    const auto behind = static_cast<size_t>(parser->json + parser->jsonlen - string);

    if (length <= 64 && behind >= 64 + vel_json_pool_slack)
        vel_json_copy_vectors(dest, string, length);
    else
        memcpy(dest, string, length);
}

/* The same for a text without escapes. */
static char *vel_json_parser_copy_string(const veljsonparser *parser, const char *string,
                                         size_t length)
{
    char *const result = vel_json_string_allocate(length, parser->pool);

    if (!result)
        return nullptr;
    if (parser->pool)
        vel_json_parser_copy_to_pool(parser, result, string, length);
    else
        memcpy(result, string, length);
    result[length] = '\0';
    return result;
}

/* ---- Scanning ---- */

/* Steps over the four digits of a \u. */
static bool vel_json_parser_skip_unicode(veljsonparser *parser)
{
    for (int i = 0; i < 4; i++) {
        if (parser->pos >= parser->jsonlen) {
            VEL_LOG(6, "got end-of-data in a unicode character escape sequence");
            return false;
        }
        const char ch = parser->json[parser->pos];
        if (!vel_json_is_hex(ch)) {
            VEL_LOG(6,
                    "unexpected character '%c' in the middle of a unicode character escape "
                    "sequence",
                    ch);
            return false;
        }
        parser->pos++;
    }
    return true;
}

/* Steps over a backslash and its escape. */
static bool vel_json_parser_skip_escape(veljsonparser *parser)
{
    parser->pos++;
    if (parser->pos >= parser->jsonlen) {
        VEL_LOG(6, "got end-of-data after an escaping backslash");
        return false;
    }
    const char ch = parser->json[parser->pos];
    if (ch == 'u') {
        parser->pos++;
        return vel_json_parser_skip_unicode(parser);
    }
    if (!strchr("\"\\/bfnrt", ch)) {
        VEL_LOG(6, "unexpected escape sequence '\\%c'", ch);
        return false;
    }
    parser->pos++;
    return true;
}

/* What stands between two quotes. */
struct vel_json_quoted {
    const char *string;
    size_t length;
    bool escaped; /* there are escapes in it */
};

/* Steps to the closing quote. */
static bool vel_json_parser_skip_string(veljsonparser *parser, bool *escapedptr)
{
    while (parser->pos < parser->jsonlen) {
        parser->pos = vel_json_scan_string(parser->json, parser->pos, parser->jsonlen);
        if (parser->pos >= parser->jsonlen)
            return false;
        if (parser->json[parser->pos] == '"')
            return true;
        *escapedptr = true;
        if (!vel_json_parser_skip_escape(parser))
            return false;
    }
    return false;
}

/* Steps over a string with its quotes. */
static bool vel_json_parser_take_quoted(veljsonparser *parser, vel_json_quoted *quoted)
{
    const size_t start = ++parser->pos;

    quoted->escaped = false;
    if (!vel_json_parser_skip_string(parser, &quoted->escaped)) {
        if (parser->pos >= parser->jsonlen)
            VEL_LOG(6, "got end-of-data in the middle of a string");
        return false;
    }
    quoted->string = parser->json + start;
    quoted->length = parser->pos++ - start;
    return true;
}

int vel_json_parser_parse_string(veljsonparser *parser, veljsonnode **nodeptr)
{
    const char ch = parser->json[parser->pos];
    VEL_ASSERT(ch == '\"');

    veljsonnode *const node = vel_json_parser_create_node(parser, VEL_JSON_TYPE_STRING);
    if (!node)
        return -1;
    *nodeptr = node;
    vel_json_quoted quoted;
    if (!vel_json_parser_take_quoted(parser, &quoted))
        return -1;

    VEL_ASSERT(node->value.string == NULL);
    node->stringpooled = parser->pool != nullptr;
    node->value.string =
        quoted.escaped
            ? vel_json_parser_parse_string_decode(quoted.string, quoted.length, parser->pool)
            : vel_json_parser_copy_string(parser, quoted.string, quoted.length);
    if (!node->value.string) {
        VEL_LOG(7, "unable to decode the string");
        return -1;
    }
    return 0;
}

/* Makes an entry for a key. */
static velstringhashitem *vel_json_parser_create_entry(const veljsonparser *parser,
                                                       const vel_json_quoted *quoted)
{
    const char *key = quoted->string;
    size_t length = quoted->length;

    if (quoted->escaped) {
        key = vel_json_parser_parse_string_decode(key, length, parser->pool);
        if (!key)
            return nullptr;
        length = strlen(key); /* a NUL among the escapes ends it */
    }
    auto *const entry = static_cast<velstringhashitem *>(
        vel_json_pool_take(parser->pool, vel_stringhash_entry_size(length)));
    if (!entry) {
        VEL_LOG(7, "not enough memory for decoded string");
        return nullptr;
    }
    if (quoted->escaped)
        memcpy(entry->key, key, length);
    else
        vel_json_parser_copy_to_pool(parser, entry->key, key, length);
    vel_stringhash_set_entry(entry, length);
    return entry;
}

velstringhashitem *vel_json_parser_parse_key(veljsonparser *parser)
{
    vel_json_quoted quoted;

    if (!vel_json_parser_take_quoted(parser, &quoted))
        return nullptr;
    velstringhashitem *const entry = vel_json_parser_create_entry(parser, &quoted);
    if (!entry)
        VEL_LOG(7, "unable to decode the string");
    return entry;
}
