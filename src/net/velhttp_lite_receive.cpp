#include "net/velhttp_lite_internal.h"

#include <string.h>

#include <algorithm>

#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>

#include "net/velstatusline_core.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp_lite"

struct vel_http_lite_status_twin {
    static constexpr const char *module = VEL_MODULE;
    static constexpr const char *protocol = "HTTP";
    static constexpr const char *prefix = "HTTP/";
    static constexpr int codelevel = 13;
};

/* The level for a failure: an interrupted wait is what a caller brings about. */
static int vel_http_lite_level(vel_error_t error)
{
    return error == VEL_ERROR_INTERRUPTED ? 13 : 7;
}

/* Checks the time limits and lets the next read wait as long as they allow. Logs nothing. */
static vel_error_t vel_http_lite_set_read_timeout(struct velhttp *velhttp,
                                                  struct velhandle *velhandle)
{
    int seconds = 0;
    unsigned int microseconds = 0;
    const vel_error_t error = vel_http_timeout_check(velhttp, &seconds, &microseconds);
    if (!error)
        vel_handle_set_read_timeout(velhandle, seconds, microseconds);
    return error;
}

/* Gathers one line with its LF, however many reads it takes. Returns its length; *errorptr tells
 * whether it is complete. */
static size_t vel_http_lite_read_line(struct velhttp *velhttp, struct velhandle *velhandle,
                                      char *buffer, size_t bufferlen, vel_error_t *errorptr)
{
    size_t count = 0;

    while (count < bufferlen) {
        if (vel_http_lite_is_aborted(velhttp)) {
            *errorptr = VEL_ERROR_CANCELED;
            return count;
        }
        *errorptr = vel_http_lite_set_read_timeout(velhttp, velhandle);
        if (*errorptr) {
            VEL_LOG(7, "checking timeout, error %d (%s)", *errorptr, vel_error_string(*errorptr));
            return count;
        }
        const size_t added = vel_handle_read_line(velhandle, buffer + count, bufferlen - count);
        if (added > 0) {
            vel_http_reset_idle_timeout(velhttp);
            count += added;
        }
        *errorptr = vel_http_lite_get_error(velhttp, velhandle);
        if (*errorptr) {
            VEL_LOG(vel_http_lite_level(*errorptr), "reading input line failed, error %d (%s)",
                    *errorptr, vel_error_string(*errorptr));
            return count;
        }
        vel_http_progress_download_check(velhttp);
        if (count > 0 && buffer[count - 1] == '\n')
            return count;
    }
    VEL_LOG(6, "input line was too long to fit the buffer (%zu bytes)", bufferlen);
    *errorptr = VEL_ERROR_MESSAGE_TOO_LONG;
    return count;
}

/* Reads one line into the buffer and ends it with a NUL in the place of its CR LF or LF. */
static vel_error_t vel_http_lite_read_text(struct velhttp *velhttp, velhttplite *http,
                                           size_t *lengthptr)
{
    vel_error_t error = VEL_ERROR_NONE;
    size_t length =
        vel_http_lite_read_line(velhttp, http->velhandle, http->buffer, http->bufferlen, &error);
    *lengthptr = 0;
    if (error)
        return error;

    length--;
    if (length > 0 && http->buffer[length - 1] == '\r')
        length--;
    http->buffer[length] = '\0';
    *lengthptr = length;
    return VEL_ERROR_NONE;
}

vel_error_t vel_http_lite_read_status_code(struct velhttp *velhttp, velhttplite *http)
{
    VEL_ASSERT(http->bufferuse == 0);
    VEL_ASSERT(http->bufferpos == 0);

    size_t length = 0;
    vel_error_t error = vel_http_lite_read_text(velhttp, http, &length);
    if (error) {
        VEL_LOG(vel_http_lite_level(error), "reading HTTP status code failed, error %d (%s)", error,
                vel_error_string(error));
        return error;
    }
    unsigned int code = 0;
    error = vel_statuscore_parse<vel_http_lite_status_twin>(http->buffer, &code);
    if (!error)
        vel_http_set_status_code(velhttp, code);
    return error;
}

static vel_error_t vel_http_lite_store_header(struct velhttp *velhttp, const char *name,
                                              const char *value)
{
    const vel_error_t error = vel_http_write_response_header(velhttp, name, value);
    if (error) {
        VEL_LOG(7, "unable to store the header '%s' value '%s'", name, value ? value : "<NULL>");
    }
    return error;
}

/* Takes a header line apart in place. */
static vel_error_t vel_http_lite_take_header(struct velhttp *velhttp, char *line)
{
    char *colon = strchr(line, ':');
    if (!colon) {
        VEL_LOG(6, "header '%s' without a colon", line);
        return vel_http_lite_store_header(velhttp, line, nullptr);
    }
    *colon = '\0';
    const char *start = colon + 1;
    while (*start == ' ')
        start++;
    char *value = vel_strdup(start);
    if (!value) {
        VEL_LOG(7, "not enough memory for header '%s' value '%s'", line, start);
        return VEL_ERROR_NO_MEMORY;
    }
    const vel_error_t error = vel_http_lite_store_header(velhttp, line, value);
    vel_free(value);
    return error;
}

vel_error_t vel_http_lite_read_headers(struct velhttp *velhttp, velhttplite *http)
{
    VEL_ASSERT(http->bufferuse == 0);
    VEL_ASSERT(http->bufferpos == 0);

    for (;;) {
        size_t length = 0;
        vel_error_t error = vel_http_lite_read_text(velhttp, http, &length);
        if (error) {
            VEL_LOG(vel_http_lite_level(error), "unable to read HTTP headers, error %d (%s)", error,
                    vel_error_string(error));
            return error;
        }
        if (length == 0)
            return VEL_ERROR_NONE;
        error = vel_http_lite_take_header(velhttp, http->buffer);
        if (error)
            return error;
    }
}

/* How much of the body is still to come. */
struct vel_http_lite_bodyleft {
    bool known;    /* false: the body runs to the end of the connection */
    uint64_t left; /* bytes; very large for a negative Content-Length */
};

static size_t vel_http_lite_limit(size_t size, const vel_http_lite_bodyleft *body)
{
    return body->known && body->left < size ? static_cast<size_t>(body->left) : size;
}

/* Hands on what is buffered of the body. */
static vel_error_t vel_http_lite_hand_out_body(struct velhttp *velhttp, velhttplite *http,
                                               size_t available, vel_http_lite_bodyleft *body)
{
    vel_http_reset_idle_timeout(velhttp);
    const vel_error_t error =
        vel_http_write_response_body(velhttp, http->buffer + http->bufferpos, available);
    if (error) {
        VEL_LOG(7, "the write callback did not accept the data, error %d (%s)", error,
                vel_error_string(error));
        return error;
    }
    http->bufferpos += available;
    body->left -= available;
    return VEL_ERROR_NONE;
}

/* Reads what there is of the body, up to the room of the buffer. That may be
 * nothing, if a wait ended for a progress tick. VEL_ERROR_END_OF_FILE is the end of the connection,
 * which is not logged. */
static vel_error_t vel_http_lite_read_ahead(struct velhttp *velhttp, velhttplite *http,
                                            const vel_http_lite_bodyleft *body)
{
    http->bufferuse = 0;
    http->bufferfill = vel_handle_read(http->velhandle, http->buffer,
                                       vel_http_lite_limit(kVelHttpLiteReadSize, body));
    if (http->bufferfill > 0)
        return VEL_ERROR_NONE;

    const vel_error_t error = vel_http_lite_get_error(velhttp, http->velhandle);
    if (error && error != VEL_ERROR_END_OF_FILE) {
        VEL_LOG(vel_http_lite_level(error), "unable to read more body information, error %d (%s)",
                error, vel_error_string(error));
    }
    return error;
}

/* Takes the next piece of the body into hand: from what was read ahead, or from the connection.
 * The piece is empty where a wait has ended for a progress tick. */
static vel_error_t vel_http_lite_take_piece(struct velhttp *velhttp, velhttplite *http,
                                            const vel_http_lite_bodyleft *body)
{
    vel_error_t error = vel_http_lite_set_read_timeout(velhttp, http->velhandle);
    if (error) {
        VEL_LOG(7, "a timeout occurred");
        return error;
    }
    if (http->bufferuse == http->bufferfill) {
        error = vel_http_lite_read_ahead(velhttp, http, body);
        if (error)
            return error;
    }
    if (http->bufferuse < http->bufferfill)
        vel_http_reset_idle_timeout(velhttp);
    vel_http_progress_download_check(velhttp);
    http->bufferpos = http->bufferuse;
    http->bufferuse += std::min(http->bufferlen, http->bufferfill - http->bufferuse);
    return VEL_ERROR_NONE;
}

static vel_error_t vel_http_lite_read_pieces(struct velhttp *velhttp, velhttplite *http,
                                             vel_http_lite_bodyleft *body)
{
    for (;;) {
        if (vel_http_lite_is_aborted(velhttp))
            return VEL_ERROR_CANCELED;

        vel_error_t error = VEL_ERROR_NONE;
        const size_t available = vel_http_lite_limit(http->bufferuse - http->bufferpos, body);
        if (available > 0) {
            error = vel_http_lite_hand_out_body(velhttp, http, available, body);
            if (error)
                return error;
            continue;
        }
        if (body->known && body->left == 0)
            return VEL_ERROR_NONE;
        error = vel_http_lite_take_piece(velhttp, http, body);
        if (error)
            return error == VEL_ERROR_END_OF_FILE ? VEL_ERROR_NONE : error;
    }
}

vel_error_t vel_http_lite_read_body(struct velhttp *velhttp, velhttplite *http)
{
    int length = 0;
    vel_http_lite_bodyleft body = {};
    body.known =
        vel_http_get_response_header_int(velhttp, "content-length", &length) == VEL_ERROR_NONE;
    body.left = static_cast<uint64_t>(static_cast<int64_t>(length));

    vel_http_progress_download_force(velhttp);
    vel_error_t error = vel_http_lite_read_pieces(velhttp, http, &body);
    vel_http_progress_download_force(velhttp);
    if (!error && vel_http_lite_is_aborted(velhttp))
        error = VEL_ERROR_CANCELED;
    return error;
}
