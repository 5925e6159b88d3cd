#ifndef VELLIB_NET_VELHTTP_LITE_INTERNAL_H
#define VELLIB_NET_VELHTTP_LITE_INTERNAL_H

/* What the sources of net/velhttp_lite share. All of them log as net/velhttp_lite. */

#include <stddef.h>

#include <vellib/velhandle.h>
#include <vellib/velhttp.h>

/* A line of the head may be this long, and so may a piece of the body that is handed on. */
constexpr size_t kVelHttpLiteBufferSize = 4096;

/* What one read of body data asks for, and the room there is. A large body then costs a system
 * call for every 8 pieces; each piece is handed on as if it had been read by itself. */
constexpr size_t kVelHttpLiteReadSize = 8 * kVelHttpLiteBufferSize;

/* The record of the backend. */
struct velhttplite {
    char *buffer; /* owned; status line, header lines and body pieces pass through it */
    size_t bufferlen;
    size_t bufferpos;            /* next unread byte of the piece of body in hand */
    size_t bufferuse;            /* end of that piece */
    size_t bufferfill;           /* end of what was read, behind the piece */
    struct velhandle *velhandle; /* owned; the connection of a perform, else NULL */
    char *url;                   /* owned; the URL given last */
};

/* velhttp_lite_send.cpp: sends head and body. host and port are those of the URL. */
vel_error_t vel_http_lite_send_request(struct velhttp *velhttp, struct velhandle *velhandle,
                                       const char *method, const char *query, const char *host,
                                       unsigned int port);

/* velhttp_lite_receive.cpp: the three parts of a response, in this order. */
vel_error_t vel_http_lite_read_status_code(struct velhttp *velhttp, velhttplite *http);
vel_error_t vel_http_lite_read_headers(struct velhttp *velhttp, velhttplite *http);
vel_error_t vel_http_lite_read_body(struct velhttp *velhttp, velhttplite *http);

/* Tells whether the transfer is to end, and logs it. */
bool vel_http_lite_is_aborted(struct velhttp *velhttp);
/* The error of the handle. Where that is a wait that ended, which may have been for a progress
 * tick, it is what the time limits say. */
vel_error_t vel_http_lite_get_error(struct velhttp *velhttp, struct velhandle *velhandle);

#endif
