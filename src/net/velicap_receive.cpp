#include "net/velicap_internal.h"

#include <errno.h>
#include <inttypes.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include <vellib/velmalloc.h>

#include "net/velresponsedata_core.h"
#include "net/velstatusline_core.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velicap"

struct vel_icap_status_twin {
    static constexpr const char *module = VEL_MODULE;
    static constexpr const char *protocol = "ICAP";
    static constexpr const char *prefix = "ICAP/";
    static constexpr int codelevel = 10;
};

/* How the log calls a line of the answer. */
struct vel_icap_line_words {
    const char *what; /* it could not read */
    const char *longone;
    const char *openone;
};

static constexpr vel_icap_line_words kStatusLine = {"ICAP result code", "result code line", "line"};
static constexpr vel_icap_line_words kHeaderLine = {"ICAP headers", "header line", "header line"};
static constexpr vel_icap_line_words kSizeLine = {"chunk size", "chunk size line",
                                                  "chunk size line"};

/* Checks the time and lets the next read wait as long as there is left. */
static vel_error_t vel_icap_set_read_timeout(struct velicap *velicap)
{
    int seconds = 0;
    unsigned int microseconds = 0;
    const vel_error_t error = vel_icap_check_time(velicap, &seconds, &microseconds);
    if (!error)
        vel_handle_set_read_timeout(velicap->velhandle, seconds, microseconds);
    return error;
}

/* Reads one line with its LF into the buffer. */
static vel_error_t vel_icap_read_line(struct velicap *velicap, const vel_icap_line_words &words,
                                      size_t *lengthptr)
{
    *lengthptr = 0;
    vel_error_t error = vel_icap_set_read_timeout(velicap);
    if (error)
        return error;

    const size_t count =
        vel_handle_read_line(velicap->velhandle, velicap->buffer, velicap->bufferlen);
    if (count == 0) {
        error = vel_handle_get_error(velicap->velhandle);
        VEL_LOG(7, "unable to read %s, error %d (%s)", words.what, error, vel_error_string(error));
        return error;
    }
    if (velicap->buffer[count - 1] == '\n') {
        *lengthptr = count;
        return VEL_ERROR_NONE;
    }
    if (count == velicap->bufferlen) {
        VEL_LOG(6, "The %s was too long to fit the buffer (%" PRIu64 " bytes)", words.longone,
                velicap->bufferlen);
        return VEL_ERROR_MESSAGE_TOO_LONG;
    }
    VEL_LOG(6, "reading a %s did not terminate at a linefeed", words.openone);
    return VEL_ERROR_INTERNAL;
}

/* Puts a NUL in the place of the LF or CR LF. Returns what is left of the length. */
static size_t vel_icap_cut_line_end(char *line, size_t length)
{
    length--;
    if (length > 0 && line[length - 1] == '\r')
        length--;
    line[length] = '\0';
    return length;
}

vel_error_t vel_icap_read_status_code(struct velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    size_t length = 0;
    const vel_error_t error = vel_icap_read_line(velicap, kStatusLine, &length);
    if (error)
        return error;
    (void)vel_icap_cut_line_end(velicap->buffer, length);
    return vel_statuscore_parse<vel_icap_status_twin>(velicap->buffer, &velicap->statuscode);
}

/* Appends a line as it came. */
static vel_error_t vel_icap_append_raw_header(struct velicap *velicap, size_t length)
{
    const uint64_t newlen = velicap->rawheaderslen + length;
    /* The first block is not vel_realloc's, which failure injection leaves alone. */
    auto *rawheaders = static_cast<char *>(
        velicap->rawheaders ? vel_realloc(velicap->rawheaders, newlen) : vel_malloc(newlen));
    if (!rawheaders) {
        VEL_LOG(7, "not enough memory for raw ICAP response headers (%" PRIu64 " bytes)", newlen);
        vel_free(velicap->rawheaders);
        velicap->rawheaders = nullptr;
        velicap->rawheaderslen = 0;
        return VEL_ERROR_NO_MEMORY;
    }
    memcpy(rawheaders + velicap->rawheaderslen, velicap->buffer, length);
    velicap->rawheaders = rawheaders;
    velicap->rawheaderslen = newlen;
    return VEL_ERROR_NONE;
}

vel_error_t vel_icap_read_icap_headers(struct velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    for (;;) {
        size_t length = 0;
        vel_error_t error = vel_icap_read_line(velicap, kHeaderLine, &length);
        if (!error)
            error = vel_icap_append_raw_header(velicap, length);
        if (error)
            return error;
        length = vel_icap_cut_line_end(velicap->buffer, length);
        if (length == 0)
            return VEL_ERROR_NONE;
        error = vel_httpheaders_parse(velicap->responseheaders, velicap->buffer, length);
        if (error) {
            VEL_LOG(7, "parsing headers failed");
            return error;
        }
    }
}

vel_error_t vel_icap_store_in_memory(struct velicap *velicap, const void *data, uint64_t size)
{
    VEL_ASSERT(velicap != NULL);

    if (!vel_responsecore_reserve(velicap, size)) {
        VEL_LOG(7, "not enough memory for response body (%" PRIu64 " bytes)",
                velicap->responsedatapos + size);
        return VEL_ERROR_NO_MEMORY;
    }
    velicap->responsedatalen = velicap->responsedatapos + size;
    VEL_ASSERT(velicap->responsedatapos + size <= velicap->responsedatalen);
    memcpy(velicap->responsedata + velicap->responsedatapos, data, size);
    velicap->responsedatapos += size;
    return VEL_ERROR_NONE;
}

static vel_error_t vel_icap_store(struct velicap *velicap, const void *data, uint64_t size)
{
    const vel_error_t error = vel_icap_store_in_memory(velicap, data, size);
    if (error) {
        VEL_LOG(7, "the write callback did not accept the data, error %d (%s)", error,
                vel_error_string(error));
    }
    return error;
}

/* Reads size bytes of what the log calls what, and stores them. The end of the connection is no
 * failure here: it shows where something must follow. */
static vel_error_t vel_icap_read_bytes(struct velicap *velicap, uint64_t size, const char *what)
{
    while (size > 0) {
        vel_error_t error = vel_icap_set_read_timeout(velicap);
        if (error)
            return error;
        const size_t count = vel_handle_read(velicap->velhandle, velicap->buffer,
                                             std::min(size, velicap->bufferlen));
        if (count == 0) {
            error = vel_handle_get_error(velicap->velhandle);
            if (error == VEL_ERROR_END_OF_FILE)
                return VEL_ERROR_NONE;
            VEL_LOG(7, "unable to read %s information, error %d (%s)", what, error,
                    vel_error_string(error));
            return error;
        }
        error = vel_icap_store(velicap, velicap->buffer, count);
        if (error)
            return error;
        size -= count;
    }
    return VEL_ERROR_NONE;
}

vel_error_t vel_icap_read_encapsulated_headers(struct velicap *velicap, uint64_t size)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(velicap->responseheader == NULL);

    return vel_icap_read_bytes(velicap, size, "encapsulated headers");
}

/* Reads the size of a chunk from the text of its line. */
static vel_error_t vel_icap_parse_chunk_size(const char *text, uint64_t *sizeptr)
{
    char *end = nullptr;
    errno = 0;
    *sizeptr = strtoull(text, &end, 16);
    if (errno == ERANGE) { /* musl sets errno for a text without a number too */
        VEL_LOG(7, "unable to parse the chunk size '%s'", text);
        return VEL_ERROR_PROTOCOL;
    }
    if (*end != '\0') {
        VEL_LOG(7, "extra data after the chunk size in '%s'", text);
        return VEL_ERROR_PROTOCOL;
    }
    return VEL_ERROR_NONE;
}

/* Reads the chunk whose size line, of length bytes, stands in the buffer. With rechunk the framing
 * is stored, too. */
static vel_error_t vel_icap_read_chunk(struct velicap *velicap, size_t length, bool rechunk,
                                       uint64_t *sizeptr)
{
    vel_error_t error = vel_icap_parse_chunk_size(velicap->buffer, sizeptr);
    if (!error && rechunk)
        error = vel_icap_store(velicap, velicap->buffer, length);
    if (!error && rechunk)
        error = vel_icap_store(velicap, "\r\n", 2);
    if (!error)
        error = vel_icap_read_bytes(velicap, *sizeptr, "more body");
    if (!error && rechunk)
        error = vel_icap_store(velicap, "\r\n", 2);
    return error;
}

/* Tells whether the body stays in chunks: if the message that was sent was in chunks itself. */
static vel_error_t vel_icap_is_rechunked(struct velicap *velicap, bool *rechunkptr)
{
    unsigned int kind = VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES;
    if (velicap->method == VEL_ICAP_METHOD_REQMOD)
        kind = VEL_ICAP_ENCAPSULATED_GEN_REQBODY;
    else if (velicap->method == VEL_ICAP_METHOD_RESPMOD)
        kind = VEL_ICAP_ENCAPSULATED_GEN_RESBODY;

    int value = 0;
    const vel_error_t error = vel_icap_part_is_chunk_encoded(velicap, kind, &value);
    *rechunkptr = value != 0;
    return error;
}

/* The chunk of size 0 is a chunk like any other, so what is stored of its framing is doubled by the
 * end that is added last. */
vel_error_t vel_icap_read_body_chunked(struct velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    bool rechunk = false;
    vel_error_t error = vel_icap_is_rechunked(velicap, &rechunk);
    if (error)
        return error;
    uint64_t chunksize = 1;
    while (chunksize > 0) {
        size_t length = 0;
        error = vel_icap_read_line(velicap, kSizeLine, &length);
        if (error)
            return error;
        length = vel_icap_cut_line_end(velicap->buffer, length);
        if (length == 0)
            break;
        error = vel_icap_read_chunk(velicap, length, rechunk, &chunksize);
        if (error)
            return error;
        /* The line end of the chunk, or the empty line behind the last. */
        (void)vel_handle_read_line(velicap->velhandle, velicap->buffer, velicap->bufferlen);
    }
    return rechunk ? vel_icap_store(velicap, "0\r\n\r\n", 5) : VEL_ERROR_NONE;
}
