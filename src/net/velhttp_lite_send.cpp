#include "net/velhttp_lite_internal.h"

#include <string.h>

#include <vellib/velmalloc.h>
#include <vellib/velstrcasecmp.h>
#include <vellib/velstrdupf.h>
#include <vellib/velstrncasecmp.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp_lite"

static constexpr char kContentLength[] = "content-length:";

static vel_error_t vel_http_lite_check_write_timeout(struct velhttp *velhttp, int *secondsptr,
                                                     unsigned int *microsecondsptr)
{
    const vel_error_t error = vel_http_timeout_check(velhttp, secondsptr, microsecondsptr);
    switch (error) {
    case VEL_ERROR_NONE:
        break;
    case VEL_ERROR_TIMED_OUT:
        VEL_LOG(7, "a timeout occurred");
        break;
    case VEL_ERROR_TIMER_EXPIRED:
        VEL_LOG(7, "the full transfer timer expired");
        break;
    default:
        VEL_LOG(7, "unexpected error checking the timeout, error %d (%s)", error,
                vel_error_string(error));
        break;
    }
    return error;
}

/* Sends all of data, however often the waits in between end for a progress tick. */
static vel_error_t vel_http_lite_write(struct velhttp *velhttp, struct velhandle *velhandle,
                                       const void *data, size_t length)
{
    size_t sent = 0;

    for (;;) {
        if (vel_http_lite_is_aborted(velhttp))
            return VEL_ERROR_CANCELED;
        int seconds = 0;
        unsigned int microseconds = 0;
        vel_error_t error = vel_http_lite_check_write_timeout(velhttp, &seconds, &microseconds);
        if (error || sent == length)
            return error;

        vel_handle_set_write_timeout(velhandle, seconds, microseconds);
        const size_t count =
            vel_handle_write(velhandle, static_cast<const char *>(data) + sent, length - sent);
        if (count > 0) {
            vel_http_reset_idle_timeout(velhttp);
            sent += count;
        } else {
            error = vel_http_lite_get_error(velhttp, velhandle);
            if (error) {
                VEL_LOG(7, "unable to send data, error %d (%s)", error, vel_error_string(error));
                return error;
            }
        }
        vel_http_progress_upload_check(velhttp);
    }
}

static vel_error_t vel_http_lite_write_text(struct velhttp *velhttp, struct velhandle *velhandle,
                                            const char *text)
{
    return vel_http_lite_write(velhttp, velhandle, text, strlen(text));
}

static vel_error_t vel_http_lite_send_head(struct velhttp *velhttp, struct velhandle *velhandle,
                                           const char *method, const char *query, const char *host,
                                           unsigned int port)
{
    static constexpr char kVersion[] = "HTTP/1.0";
    char *head = port == 80 ? vel_strdupf("%s %s %s\r\nHost: %s\r\n", method, query, kVersion, host)
                            : vel_strdupf("%s %s %s\r\nHost: %s:%u\r\n", method, query, kVersion,
                                          host, port);
    if (!head) {
        VEL_LOG(7, "not enough memory for request");
        return VEL_ERROR_NO_MEMORY;
    }
    const vel_error_t error = vel_http_lite_write_text(velhttp, velhandle, head);
    if (error)
        VEL_LOG(7, "sending request failed, error %d (%s)", error, vel_error_string(error));
    vel_free(head);
    return error;
}

/* Sends the headers that were added. *haslengthptr receives whether one gives the length of the
 * body. */
static vel_error_t vel_http_lite_send_headers(struct velhttp *velhttp, struct velhandle *velhandle,
                                              bool *haslengthptr)
{
    const char *header = nullptr;
    void *iterator = vel_http_get_header(velhttp, nullptr, &header);

    *haslengthptr = false;
    for (; iterator; iterator = vel_http_get_header(velhttp, iterator, &header)) {
        vel_error_t error = vel_http_lite_write_text(velhttp, velhandle, header);
        if (error) {
            VEL_LOG(7, "unable to send header '%s', error %d (%s)", header, error,
                    vel_error_string(error));
            return error;
        }
        error = vel_http_lite_write_text(velhttp, velhandle, "\r\n");
        if (error) {
            VEL_LOG(7, "unable to send header '%s' end of line, error %d (%s)", header, error,
                    vel_error_string(error));
            return error;
        }
        if (vel_strncasecmp(header, kContentLength, sizeof(kContentLength) - 1) == 0)
            *haslengthptr = true;
    }
    return VEL_ERROR_NONE;
}

static vel_error_t vel_http_lite_send_content_length(struct velhttp *velhttp,
                                                     struct velhandle *velhandle, size_t length)
{
    char *line = vel_strdupf("Content-Length: %zu\r\n", length);
    if (!line) {
        VEL_LOG(7, "not enough memory for sending content length");
        return VEL_ERROR_NO_MEMORY;
    }
    const vel_error_t error = vel_http_lite_write_text(velhttp, velhandle, line);
    if (error)
        VEL_LOG(7, "unable to send content length, error %d (%s)", error, vel_error_string(error));
    vel_free(line);
    return error;
}

static vel_error_t vel_http_lite_send_body(struct velhttp *velhttp, struct velhandle *velhandle,
                                           const void *body, size_t bodylen)
{
    vel_http_progress_upload_check(velhttp);
    const vel_error_t error = vel_http_lite_write(velhttp, velhandle, body, bodylen);
    if (error) {
        VEL_LOG(7, "unable to send the request body, error %d (%s)", error,
                vel_error_string(error));
    }
    return error;
}

/* Sends what follows the request line and the host. */
static vel_error_t vel_http_lite_send_rest(struct velhttp *velhttp, struct velhandle *velhandle,
                                           const char *method)
{
    bool haslength = false;
    vel_error_t error = vel_http_lite_send_headers(velhttp, velhandle, &haslength);
    if (error)
        return error;

    size_t bodylen = 0;
    const void *body = vel_http_get_request_body(velhttp, &bodylen);
    const bool wantslength =
        bodylen > 0 || vel_strcasecmp(method, "POST") == 0 || vel_strcasecmp(method, "PUT") == 0;
    if (!haslength && wantslength) {
        error = vel_http_lite_send_content_length(velhttp, velhandle, bodylen);
        if (error)
            return error;
    }
    error = vel_http_lite_write_text(velhttp, velhandle, "\r\n");
    if (error) {
        VEL_LOG(7, "unable to send end of headers, error %d (%s)", error, vel_error_string(error));
        return error;
    }
    return bodylen > 0 ? vel_http_lite_send_body(velhttp, velhandle, body, bodylen)
                       : VEL_ERROR_NONE;
}

vel_error_t vel_http_lite_send_request(struct velhttp *velhttp, struct velhandle *velhandle,
                                       const char *method, const char *query, const char *host,
                                       unsigned int port)
{
    VEL_ASSERT(port >= 1);
    VEL_ASSERT(port <= 65535);

    vel_error_t error = VEL_ERROR_CANCELED;
    vel_http_progress_upload_force(velhttp);
    if (!vel_http_lite_is_aborted(velhttp)) {
        error = vel_http_lite_send_head(velhttp, velhandle, method, query, host, port);
        if (!error)
            error = vel_http_lite_send_rest(velhttp, velhandle, method);
    }
    vel_http_progress_upload_force(velhttp);
    if (!error && vel_http_lite_is_aborted(velhttp))
        error = VEL_ERROR_CANCELED;
    return error;
}
