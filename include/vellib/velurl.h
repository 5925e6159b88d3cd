#ifndef VELLIB_VELURL_H
#define VELLIB_VELURL_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velurl: the parts of a URL of the form scheme://netloc[/path][;params][?query], where netloc is
 * [username[:password]@]host[:port]. Nothing is decoded, normalised or put in lower case, and most
 * characters are not checked: a host program that needs more of a host name tests it itself.
 *
 * All parts are NULL, and the port is 0, until a URL has been parsed.
 *
 * Threads: one at a time.
 * Note: "#" has no meaning here. A fragment stays in the path, the params or the query. */
typedef struct velurl velurl;

VEL_DECLARATIONS_BEGIN

/* Creates a parser without a URL.
 *
 * Returns it, for vel_url_destroy, or NULL after logging that there is not enough memory. */
VEL_API velurl *vel_url_create(void);

/* Destroys a parser and all strings that it handed out. NULL is not accepted. */
VEL_API void vel_url_destroy(velurl *velurl);

/* Parses a URL in place of the one before. On failure the parts of the one before stay.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_INVALID_ARGUMENT for a text that is no such URL, or
 * VEL_ERROR_NO_MEMORY. Failures are logged.
 *
 * Note: log lines hold the whole URL, a password in it included.
 * Note: the netloc ends at "/" and nowhere else, so "http://host?x=1" has the host "host?x=1". */
VEL_API vel_error_t vel_url_set_url(velurl *velurl, const char *url);

/* The getters of the parts. What they return stays the parser's, and is valid until the next
 * successful vel_url_set_url or vel_url_destroy. */

/* Gives the text before the first ":", which may be empty. */
VEL_API const char *vel_url_get_scheme(velurl *velurl);

/* Gives all between "://" and the next "/" or the end, which may be empty. */
VEL_API const char *vel_url_get_netloc(velurl *velurl);

/* Gives the user name, or NULL if the netloc holds no "@". */
VEL_API const char *vel_url_get_username(velurl *velurl);

/* Gives the password, or NULL if no ":" stands before the "@". */
VEL_API const char *vel_url_get_password(velurl *velurl);

/* Gives the host, which may be empty. An IPv6 address comes without its brackets. */
VEL_API const char *vel_url_get_host(velurl *velurl);

/* Gives the port: that of the URL, or else 21 for the scheme "ftp", 80 for "http", 443 for "https",
 * 1344 for "icap" and 0 for any other, upper case included. */
VEL_API unsigned int vel_url_get_port(velurl *velurl);

/* Gives all from the "/" that ends the netloc, or "/" if nothing is there. */
VEL_API const char *vel_url_get_localpart(velurl *velurl);

/* Gives the local part up to its first ";" or "?". */
VEL_API const char *vel_url_get_path(velurl *velurl);

/* Gives the text between the ";" that ends the path and the next "?", or NULL if there is no such
 * ";". */
VEL_API const char *vel_url_get_params(velurl *velurl);

/* Gives all behind the first "?" of the local part, or NULL if there is none. */
VEL_API const char *vel_url_get_query(velurl *velurl);

/* International host names in their ASCII form and back: the labels between the dots are converted
 * by Punycode (RFC 3492), with the prefix "xn--". Case, normal form, allowed characters and lengths
 * are the caller's business. All four take a text and give a new string in *result.
 *
 * Threads: any, at any time. */

/* Converts the labels of a host name with bytes above 127 to ASCII, by Punycode behind "xn--", and
 * leaves the others as they are.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_NO_MEMORY; VEL_ERROR_OUT_OF_RANGE for a label that cannot be
 * converted; VEL_ERROR_GENERIC for one that is no UTF-8 on either side, or where there was no memory
 * for a step of the conversion of a label; or VEL_ERROR_INVALID_ARGUMENT, logged, if an argument is
 * NULL. */
VEL_API vel_error_t vel_url_idna_host_to_ascii(const char *host, char **result);

/* Converts the labels of a host name that begin with "xn--", in lower case, to Unicode, and leaves
 * the others as they are. Results are as for vel_url_idna_host_to_ascii.
 * Note: the label "xn--" aborts the process. Look for it in a name from outside. */
VEL_API vel_error_t vel_url_idna_host_to_unicode(const char *host, char **result);

/* Converts the host in a URL to ASCII. A URL without one gives 222, a code without text, and is
 * logged; other results are as for vel_url_idna_host_to_ascii.
 *
 * result  is left as it was on failure, unless url is NULL.
 *
 * Note: the host is looked for as text. Where it stands in the scheme or the user name as well, it
 * is converted there and nowhere else. */
VEL_API vel_error_t vel_url_idna_url_to_ascii(const char *url, char **result);

/* Converts the host in a URL to Unicode, in all else as vel_url_idna_url_to_ascii does. */
VEL_API vel_error_t vel_url_idna_url_to_unicode(const char *url, char **result);

VEL_DECLARATIONS_END

#endif
