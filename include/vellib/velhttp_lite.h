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

/* Creates an HTTP client.
 *
 * Returns the context, for vel_http_destroy and all functions of velhttp, or NULL if there is not
 * enough memory, which is logged.
 * Note: an IPv6 address goes into the Host header without brackets, which some servers refuse.
 * Note: after a 407 with a proxy user set, the transfer ends with the status code 0, if the proxy
 * offers Basic; without one, the request is sent again as it was, up to 10 times in all.
 * Note: a header line without a colon makes the process abort when the response is dropped; see
 * vel_httpheaders_add. */
VEL_API velhttp *vel_http_lite_create(void);

VEL_DECLARATIONS_END

#endif
