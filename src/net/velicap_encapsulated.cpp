#include "net/velicap_internal.h"

#include <errno.h>
#include <inttypes.h>
#include <stdlib.h>
#include <string.h>

#include <vellib/velmalloc.h>
#include <vellib/velsnprintf.h>
#include <vellib/velstrdup_lowercase.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velicap"

/* The words of an Encapsulated header in the order in which they may stand there. The first four
 * are the kinds of parts, under the same numbers. */
enum : unsigned int {
    kVelIcapOptBody = VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES,
    kVelIcapNullBody,
    kVelIcapWordCount,
};

static constexpr const char *kVelIcapWords[kVelIcapWordCount] = {
    "req-hdr=", "res-hdr=", "req-body=", "res-body=", "opt-body=", "null-body=",
};

/* Sets of parts and words, one bit each. */
static constexpr unsigned int kReqHdr = 1u << VEL_ICAP_ENCAPSULATED_GEN_REQHDR;
static constexpr unsigned int kResHdr = 1u << VEL_ICAP_ENCAPSULATED_GEN_RESHDR;
static constexpr unsigned int kReqBody = 1u << VEL_ICAP_ENCAPSULATED_GEN_REQBODY;
static constexpr unsigned int kResBody = 1u << VEL_ICAP_ENCAPSULATED_GEN_RESBODY;
static constexpr unsigned int kOptBody = 1u << kVelIcapOptBody;
static constexpr unsigned int kNullBody = 1u << kVelIcapNullBody;
static constexpr unsigned int kRequest = kReqHdr | kReqBody;
static constexpr unsigned int kResponse = kResHdr | kResBody;

/* A method, and what a request of it must have and may not have. */
struct vel_icap_method_rule {
    const char *name;
    unsigned int needs;
    unsigned int refuses;
    const char *complaint;
};

/* By the number of the method. */
static constexpr vel_icap_method_rule kMethods[] = {
    {nullptr, 0, 0, nullptr},
    {"REQMOD", kReqHdr, kResponse, "invalid set of encapsulated parts for REQMOD"},
    {"RESPMOD", kResHdr, kReqBody, "invalid set of encapsulated parts for RESPMOD"},
    {"OPTIONS", 0, kRequest | kResponse, "no encapsulated parts allowed for OPTIONS"},
};

/* Two sets of words of which an answer to some methods may have either, but not some of both; a word
 * that stands in both sets may not be there at all. */
struct vel_icap_conflict {
    unsigned int methods; /* one bit each; that of VEL_ICAP_METHOD_NONE is all other numbers */
    unsigned int one;
    unsigned int other;
    bool isfatal; /* false: only logged */
    const char *complaint;
};

static constexpr unsigned int kNoMethod = 1u << VEL_ICAP_METHOD_NONE;
static constexpr unsigned int kReqmod = 1u << VEL_ICAP_METHOD_REQMOD;
static constexpr unsigned int kRespmod = 1u << VEL_ICAP_METHOD_RESPMOD;
static constexpr unsigned int kOptions = 1u << VEL_ICAP_METHOD_OPTIONS;
static constexpr unsigned int kAnyMethod = kNoMethod | kReqmod | kRespmod | kOptions;

static constexpr char kReqmodComplaint[] = "REQMOD method can only contain req-hdr and req-body or "
                                           "res-hdr and res-body (or null-body)";

/* In the order in which they are tested. */
static constexpr vel_icap_conflict kConflicts[] = {
    {kAnyMethod, kNullBody, kReqBody | kResBody | kOptBody, true,
     "other kind of bodies cannot be given when null-body is given"},
    {kAnyMethod, kReqHdr, kResHdr, false, "req-hdr and res-hdr cannot be present at the same time"},
    {kAnyMethod & ~kOptions, kOptBody, kOptBody, true,
     "opt-body can only be present in OPTIONS method"},
    {kOptions, kRequest | kResponse, kRequest | kResponse, true,
     "OPTIONS method can only contain opt-body or null-body"},
    {kRespmod, kRequest, kRequest, true,
     "RESPMOD method can only contain res-hdr and res-body or null-body"},
    {kReqmod, kRequest, kResponse, true, kReqmodComplaint},
};

/* What was found in an Encapsulated header. */
struct vel_icap_words {
    unsigned int mask; /* the words that are there */
    uint64_t values[kVelIcapWordCount];
};

const char *vel_icap_method_name(unsigned int method)
{
    return method <= VEL_ICAP_METHOD_OPTIONS ? kMethods[method].name : nullptr;
}

vel_error_t vel_icap_check_parts(struct velicap *velicap)
{
    if (!vel_icap_method_name(velicap->method)) {
        VEL_LOG(7, "no method set for request");
        return VEL_ERROR_PROTOCOL;
    }
    const vel_icap_method_rule *rule = &kMethods[velicap->method];
    unsigned int mask = 0;
    for (unsigned int kind = 0; kind < VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES; kind++) {
        if (velicap->encapsulated[kind].data)
            mask |= 1u << kind;
    }
    if ((mask & rule->needs) == rule->needs && (mask & rule->refuses) == 0)
        return VEL_ERROR_NONE;
    VEL_LOG(7, "%s", rule->complaint);
    return VEL_ERROR_PROTOCOL;
}

/* ---- The header of the request --------------------------------------------------------------- */

/* The text being built, in the one buffer of the process. */
struct vel_icap_outtext {
    char buffer[1024];
    size_t outpos;
};

static vel_icap_outtext vel_icap_encapsulated_text;

static void vel_icap_append_word(vel_icap_outtext *text, const char *word, uint64_t offset)
{
    const int length =
        vel_snprintf(text->buffer + text->outpos, sizeof(text->buffer) - text->outpos,
                     "%s%s%" PRIu64, text->outpos > 0 ? ", " : "", word, offset);
    text->outpos += static_cast<size_t>(length); /* all words together fit many times */
}

/* Tells whether the callback gives the body of this kind. */
static bool vel_icap_is_streamed(const struct velicap *velicap, unsigned int kind)
{
    if (!velicap->requestbodycallback)
        return false;
    return velicap->method == VEL_ICAP_METHOD_REQMOD
               ? kind == VEL_ICAP_ENCAPSULATED_GEN_REQBODY
               : velicap->method == VEL_ICAP_METHOD_RESPMOD &&
                     kind == VEL_ICAP_ENCAPSULATED_GEN_RESBODY;
}

static void vel_icap_build_encapsulated_header_part(const struct velicap *velicap,
                                                    vel_icap_outtext *text, unsigned int kind,
                                                    uint64_t *enc_pos, bool *hasbody)
{
    const velicappart *part = &velicap->encapsulated[kind];
    if (!part->data && !vel_icap_is_streamed(velicap, kind))
        return;
    vel_icap_append_word(text, kVelIcapWords[kind], *enc_pos);
    *enc_pos += part->size;
    if ((1u << kind) & (kReqBody | kResBody))
        *hasbody = true;
}

const char *vel_icap_build_encapsulated_header(velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(!velicap->encapsulated[VEL_ICAP_ENCAPSULATED_GEN_REQBODY].data ||
               !velicap->encapsulated[VEL_ICAP_ENCAPSULATED_GEN_RESBODY].data);

    vel_icap_outtext *text = &vel_icap_encapsulated_text;
    uint64_t enc_pos = 0;
    bool hasbody = false;
    text->outpos = 0;
    for (unsigned int kind = 0; kind < VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES; kind++)
        vel_icap_build_encapsulated_header_part(velicap, text, kind, &enc_pos, &hasbody);
    if (!hasbody)
        vel_icap_append_word(text, kVelIcapWords[kVelIcapNullBody], enc_pos);
    return text->buffer;
}

/* ---- Bodies that are in chunks already ------------------------------------------------------- */

vel_error_t vel_icap_http_part_has_chunked_transfer(velicappart *part, int *value)
{
    VEL_ASSERT(part != NULL);
    VEL_ASSERT(value != NULL);

    *value = 0;
    const char *coding =
        part->headers ? vel_httpheaders_get(part->headers, "transfer-encoding") : nullptr;
    if (!coding)
        return VEL_ERROR_NONE;
    char *lowercoding = vel_strdup_lowercase(coding);
    if (!lowercoding)
        return VEL_ERROR_NO_MEMORY;
    if (strstr(lowercoding, "chunked")) {
        VEL_LOG(10, "Part already chunk-encoded, not encoding again");
        *value = 1;
    }
    vel_free(lowercoding);
    return VEL_ERROR_NONE;
}

vel_error_t vel_icap_part_is_chunk_encoded(velicap *velicap, unsigned int kind, int *value)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(value != NULL);

    switch (kind) {
    case VEL_ICAP_ENCAPSULATED_GEN_REQBODY:
        return vel_icap_http_part_has_chunked_transfer(
            &velicap->encapsulated[VEL_ICAP_ENCAPSULATED_GEN_REQHDR], value);
    case VEL_ICAP_ENCAPSULATED_GEN_RESBODY:
        return vel_icap_http_part_has_chunked_transfer(
            &velicap->encapsulated[VEL_ICAP_ENCAPSULATED_GEN_RESHDR], value);
    default:
        *value = 0;
        return VEL_ERROR_NONE;
    }
}

/* ---- The header of the answer ---------------------------------------------------------------- */

/* Reads the number of one word at pos, and steps behind the separator that follows. *endsptr tells
 * whether the text ends there instead. */
static vel_error_t vel_icap_scan_value(const char *encapsulated, const char **pos, uint64_t *value,
                                       bool *endsptr)
{
    char *end = nullptr;
    errno = 0;
    *value = strtoull(*pos, &end, 10);
    if (errno == ERANGE) { /* musl sets errno for a text without a number too */
        VEL_LOG(6, "converting the value in the encapsulated header '%s' failed", encapsulated);
        return VEL_ERROR_PROTOCOL;
    }
    *endsptr = *end == '\0';
    if (*endsptr)
        return VEL_ERROR_NONE;
    if (*end != ',') {
        VEL_LOG(6, "expected separator ',' in encapsulated header but got '%c'", *end);
        return VEL_ERROR_PROTOCOL;
    }
    end++;
    if (*end == '\0') {
        VEL_LOG(6, "unexpected end of string after a comma in encapsulated header '%s'",
                encapsulated);
        return VEL_ERROR_PROTOCOL;
    }
    if (*end != ' ') {
        VEL_LOG(6, "expected space after a comma in encapsulated header but got '%c'", *end);
        return VEL_ERROR_PROTOCOL;
    }
    *pos = end + 1;
    return VEL_ERROR_NONE;
}

/* Each word has one chance, in its order: so what is unknown, repeated or out of order is never
 * reached, and fails without a line of its own. */
static vel_error_t vel_icap_scan_words(const char *encapsulated, vel_icap_words *words)
{
    const char *pos = encapsulated;
    for (unsigned int i = 0; i < kVelIcapWordCount; i++) {
        const size_t length = strlen(kVelIcapWords[i]);
        if (strncmp(pos, kVelIcapWords[i], length) != 0)
            continue;
        pos += length;
        bool ends = false;
        const vel_error_t error = vel_icap_scan_value(encapsulated, &pos, &words->values[i], &ends);
        if (error)
            return error;
        words->mask |= 1u << i;
        if (ends)
            return VEL_ERROR_NONE;
    }
    return VEL_ERROR_PROTOCOL;
}

/* Tests whether an answer to the method may have these words. */
static vel_error_t vel_icap_check_words(unsigned int method, unsigned int mask,
                                        const char *encapsulated)
{
    const char *name = vel_icap_method_name(method);
    const unsigned int methodbit = name ? 1u << method : kNoMethod;
    for (const vel_icap_conflict &conflict : kConflicts) {
        if (!(conflict.methods & methodbit) || !(mask & conflict.one) || !(mask & conflict.other))
            continue;
        VEL_LOG(6, "%s: '%s'", conflict.complaint, encapsulated);
        if (conflict.isfatal)
            return VEL_ERROR_PROTOCOL;
    }
    if (name)
        return VEL_ERROR_NONE;
    VEL_LOG(6, "unhandled ICAP method %u", method);
    return VEL_ERROR_INTERNAL;
}

/* Looks for the first word of a set. Returns kVelIcapWordCount if none is there. */
static unsigned int vel_icap_find_word(const vel_icap_words *words, unsigned int set)
{
    unsigned int i = 0;
    while (i < kVelIcapWordCount && !(words->mask & set & (1u << i)))
        i++;
    return i;
}

/* Where headers and body begin: after the tests there is at most one word for each. */
static vel_error_t vel_icap_take_offsets(struct velicap *velicap, const vel_icap_words *words,
                                         const char *encapsulated)
{
    const unsigned int header = vel_icap_find_word(words, kReqHdr | kResHdr);
    const unsigned int body = vel_icap_find_word(words, kReqBody | kResBody | kOptBody | kNullBody);
    if (body == kVelIcapWordCount) {
        VEL_LOG(6, "no body for %s in encapsulated: '%s'", vel_icap_method_name(velicap->method),
                encapsulated);
        return VEL_ERROR_PROTOCOL;
    }
    velicap->headeroffset = header < kVelIcapWordCount ? words->values[header] : 0;
    velicap->bodyoffset = words->values[body];
    velicap->hasbody = body != kVelIcapNullBody;
    if (velicap->headeroffset == 0)
        return VEL_ERROR_NONE;
    VEL_LOG(6, "XXX UNSUPPORTED: non-zero encapsulated body header offset: '%s'", encapsulated);
    return VEL_ERROR_UNSUPPORTED;
}

vel_error_t vel_icap_parse_encapsulated_header(struct velicap *velicap, const char *encapsulated)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(encapsulated != NULL);

    vel_icap_words words = {};
    vel_error_t error = vel_icap_scan_words(encapsulated, &words);
    if (!error)
        error = vel_icap_check_words(velicap->method, words.mask, encapsulated);
    if (!error)
        error = vel_icap_take_offsets(velicap, &words, encapsulated);
    return error;
}
