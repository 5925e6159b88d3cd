#ifndef VELLIB_UTIL_VELURL_INTERNAL_H
#define VELLIB_UTIL_VELURL_INTERNAL_H

#include <vellib/velurl.h>

/* These codes lie below VEL_ERROR_COUNT and have no text. */
static constexpr vel_error_t VELURL_ERROR_INVALID = 222;   /* no host is found */
static constexpr vel_error_t VELURL_ERROR_TRUNCATED = 223; /* an array for Punycode is too small */

/* The host in the text of a URL, found by searching alone, for the conversion of its name. The
 * parser is not used and would at times find another host, which is meant to be so: here "?" and
 * "#" end an authority that no "/" ends, and brackets mean nothing. */

/* Finds the host. New strings are for vel_free; on failure NULL is written, and all but
 * VEL_ERROR_NO_MEMORY is logged. */
vel_error_t vel_url_get_host_from_url(const char *url, char **host);
vel_error_t vel_url_get_authority_from_url(const char *url, char **authority);
vel_error_t vel_url_get_host_from_authority(const char *authority, char **host);

/* Replaces the first place where original_host stands in the URL, be that the scheme or the user
 * name. On failure *new_url is left as it was, as its callers count on. */
vel_error_t vel_url_replace_host_in_url(const char *url, const char *original_host,
                                        const char *new_host, char **new_url);

/* True if there is nothing but ASCII white space. */
bool vel_url_is_empty_string(const char *string);

#endif
