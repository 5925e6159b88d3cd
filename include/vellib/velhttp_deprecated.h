#ifndef VELLIB_VELHTTP_DEPRECATED_H
#define VELLIB_VELHTTP_DEPRECATED_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>
#include <vellib/velhttp.h>

/* velhttp_deprecated: what only older programs use. New ones parse URLs with velurl.
 * Threads: as velhttp has it for the switch; a URL is taken apart in any. */

VEL_DECLARATIONS_BEGIN

/* Takes a URL apart in one call. A user name and a password are dropped.
 *
 * url          of the form scheme://host, with a port, a path and a query if it has them.
 * schemeptr    receives the text before the first ":".
 * hostnameptr  receives the host. An IPv6 address keeps its brackets.
 * portptr      receives the port: that of the URL, or else that of the scheme, or 0. On failure it
 *              receives the port as far as it was known.
 * queryptr     receives all from the "/" behind the host, or "/".
 *
 * Each of the four outputs may be NULL. The strings are for vel_free.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_INVALID_ARGUMENT for a text that is no such URL, or
 * VEL_ERROR_NO_MEMORY. Failures are logged.
 * Threads: any, at any time.
 * Note: unlike velurl, it refuses a ":" without a port behind it.
 * Note: log lines hold the whole URL, a password in it included. */
VEL_API vel_error_t vel_http_parse_url(const char *url, char **schemeptr, char **hostnameptr,
                                       unsigned int *portptr, char **queryptr);

/* A switch of the prepared request, for backends that speak TLS; the one of this library does not
 * read it. It is off in each new request. */

/* Lets a certificate pass whose name does not match. */
VEL_API void vel_http_deprecated_allow_invalid_tls_certificate_name(velhttp *velhttp);

/* Refuses such a certificate again. */
VEL_API void vel_http_deprecated_disallow_invalid_tls_certificate_name(velhttp *velhttp);

/* Tells whether such a certificate may pass: 1 or 0. */
VEL_API int vel_http_deprecated_is_invalid_tls_certificate_name_allowed(velhttp *velhttp);

VEL_DECLARATIONS_END

#endif
