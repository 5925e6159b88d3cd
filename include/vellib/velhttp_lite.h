#ifndef VELLIB_VELHTTP_LITE_H
#define VELLIB_VELHTTP_LITE_H

#include <vellib/velapi.h>
#include <vellib/velhttp.h>

/* velhttp_lite: a small blocking backend of velhttp that speaks HTTP/1.0 (RFC 1945) over TCP,
 * directly or through an HTTP proxy, with one connection for each request. It knows URLs of the
 * scheme "http" only, no TLS, no chunked transfer coding and no asynchronous transfers, and it adds
 * no header of its own but Host and, where a body is or could be expected, Content-Length.
 * Threads: as velhttp has it. */

VEL_DECLARATIONS_BEGIN

/* Creates an HTTP client. Its vel_http_perform gives, besides what that tells of itself,
 * - VEL_ERROR_INVALID_ARGUMENT without a URL, or for one that cannot be parsed,
 * - VEL_ERROR_UNSUPPORTED for a scheme other than "http",
 * - what vel_socket_connect_async and vel_socket_connect_wait give, such as
 *   VEL_ERROR_HOST_UNRESOLVED and VEL_ERROR_CONNECTION_REFUSED,
 * - VEL_ERROR_BROKEN_PIPE, VEL_ERROR_CONNECTION_RESET or VEL_ERROR_END_OF_FILE where the connection
 *   is lost before the headers are complete,
 * - VEL_ERROR_PROTOCOL for a status line that is not understood,
 * - VEL_ERROR_INTERRUPTED for a signal during a wait,
 * - VEL_ERROR_MESSAGE_TOO_LONG for a line of more than 4096 bytes in front of the body.
 * A body that ends early is no failure: compare its length with the Content-Length.
 *
 * Returns the context, for vel_http_destroy and all functions of velhttp, or NULL if there is not
 * enough memory, which is logged.
 * Note: a user and a password in the URL are not sent.
 * Note: an IPv6 address goes into the Host header without brackets, which some servers refuse.
 * Note: after a 407 with a proxy user set, the transfer ends with the status code 0, if the proxy
 * offers Basic; without one, the request is sent again as it was, up to 10 times in all.
 * Note: a header line without a colon makes the process abort when the response is dropped; see
 * vel_httpheaders_add. */
VEL_API velhttp *vel_http_lite_create(void);

VEL_DECLARATIONS_END

#endif
