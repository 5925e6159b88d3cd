/* The parser is one of its own. It differs from velurl, and older programs count on that: the host
 * keeps its brackets, and a ":" needs a port. */
#include <vellib/velhttp_deprecated.h>

#include <cstdlib>
#include <cstring>

#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>
#include <vellib/velstrndup.h>

#include "net/velhttp_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp_deprecated"

/* What the parser finds. The strings are owned. */
struct vel_http_deprecated_url {
    char *scheme;
    char *hostname;
    unsigned int port;
    char *query;
};

/* The scan of the host. */
struct vel_http_deprecated_marks {
    const char *start;         /* of the host name */
    const char *end = nullptr; /* of the host name */
    bool userseen = false;
    char ipv6 = '?'; /* '?' where a token begins, 'X' in any other, '[' in brackets, ']' behind */
};

static constexpr struct {
    const char *scheme;
    unsigned int port;
} vel_http_deprecated_default_ports[] = {
    {"ftp", 21},
    {"http", 80},
    {"https", 443},
    {"icap", 1344},
};

static bool vel_http_deprecated_take_bracket(vel_http_deprecated_marks *marks, const char *url,
                                             char bracket)
{
    if (bracket == '[' && marks->ipv6 != '?') {
        VEL_LOG(6, "URL '%s' has '[' in hostname or username that does not start an IPv6 address",
                url);
        return false;
    }
    if (bracket == ']' && marks->ipv6 != '[') {
        VEL_LOG(6, "URL '%s' has ']' in hostname or username that does not end an IPv6 address",
                url);
        return false;
    }
    marks->ipv6 = bracket;
    return true;
}

/* Takes the "@" before the host, which begins anew behind it. */
static bool vel_http_deprecated_take_user(vel_http_deprecated_marks *marks, const char *url,
                                          const char *pos)
{
    if (marks->userseen) {
        VEL_LOG(6, "URL '%s' has multiple user names ('@') in hostname", url);
        return false;
    }
    if (marks->ipv6 == '[' || marks->ipv6 == ']') {
        VEL_LOG(6, "URL '%s' has '@' in hostname after an IPv6 address", url);
        return false;
    }
    *marks = {.start = pos + 1, .userseen = true};
    return true;
}

static bool vel_http_deprecated_take_colon(vel_http_deprecated_marks *marks, const char *url,
                                           const char *pos)
{
    if (marks->ipv6 == '[')
        return true;
    if (marks->end) {
        VEL_LOG(6, "URL '%s' has two colons in hostname or username", url);
        return false;
    }
    marks->end = pos;
    return true;
}

/* Scans up to the "/" behind the host or the end of the URL. */
static bool vel_http_deprecated_scan(vel_http_deprecated_marks *marks, const char *url)
{
    const char *pos = marks->start;
    for (bool good = true; *pos != '\0' && *pos != '/'; pos++) {
        if (*pos != '[' && marks->ipv6 == '?')
            marks->ipv6 = 'X';
        if (*pos == '[' || *pos == ']')
            good = vel_http_deprecated_take_bracket(marks, url, *pos);
        else if (*pos == '@')
            good = vel_http_deprecated_take_user(marks, url, pos);
        else if (*pos == ':')
            good = vel_http_deprecated_take_colon(marks, url, pos);
        if (!good)
            return false;
    }
    if (!marks->end)
        marks->end = pos;
    return true;
}

static unsigned int vel_http_deprecated_default_port(const char *scheme, const char *url)
{
    for (const auto &entry : vel_http_deprecated_default_ports)
        if (strcmp(scheme, entry.scheme) == 0)
            return entry.port;
    VEL_LOG(13, "unrecognized scheme '%s' in URL '%s'", scheme, url);
    return 0;
}

/* Reads the port at *posptr, which then stands behind it. */
static bool vel_http_deprecated_parse_port(vel_http_deprecated_url *parsed, const char *url,
                                           const char **posptr)
{
    if (**posptr != ':') {
        VEL_ASSERT(**posptr == '/' || **posptr == '\0');
        parsed->port = vel_http_deprecated_default_port(parsed->scheme, url);
        return true;
    }
    char *end;
    const unsigned long port = strtoul(*posptr + 1, &end, 10);
    if (port == 0 || port > 65535) {
        VEL_LOG(6, "the port number must be between 1-65535");
        return false;
    }
    parsed->port = static_cast<unsigned int>(port);
    if (*end != '/' && *end != '\0') {
        VEL_LOG(6, "invalid character '%c' in port number", *end);
        return false;
    }
    *posptr = end;
    return true;
}

/* Copies what is left: the host, and all from pos on. */
static vel_error_t vel_http_deprecated_copy(vel_http_deprecated_url *parsed,
                                            const vel_http_deprecated_marks *marks, const char *pos)
{
    parsed->hostname = vel_strndup(marks->start, static_cast<size_t>(marks->end - marks->start));
    if (!parsed->hostname) {
        VEL_LOG(7, "not enough memory for hostname");
        parsed->port = 0;
        return VEL_ERROR_NO_MEMORY;
    }
    parsed->query = vel_strdup(*pos ? pos : "/");
    if (!parsed->query) {
        VEL_LOG(7, "not enough memory for query part of the URL");
        return VEL_ERROR_NO_MEMORY;
    }
    return VEL_ERROR_NONE;
}

/* Fills the empty record from the URL. On failure the caller frees what there is. */
static vel_error_t vel_http_deprecated_fill(vel_http_deprecated_url *parsed, const char *url)
{
    const char *colon = strchr(url, ':');
    if (!colon) {
        VEL_LOG(6, "URL '%s' has no colon after scheme", url);
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    if (strncmp(colon, "://", 3) != 0) {
        VEL_LOG(6, "URL '%s' has no :// after scheme", url);
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    parsed->scheme = vel_strndup(url, static_cast<size_t>(colon - url));
    if (!parsed->scheme) {
        VEL_LOG(7, "not enough memory for URL scheme");
        return VEL_ERROR_NO_MEMORY;
    }
    vel_http_deprecated_marks marks = {.start = colon + 3};
    if (!vel_http_deprecated_scan(&marks, url))
        return VEL_ERROR_INVALID_ARGUMENT;
    const char *pos = marks.end;
    if (!vel_http_deprecated_parse_port(parsed, url, &pos))
        return VEL_ERROR_INVALID_ARGUMENT;
    return vel_http_deprecated_copy(parsed, &marks, pos);
}

/* Hands out a string, or frees it where nobody wants it. */
static void vel_http_deprecated_hand_out(char **stringptr, char *string)
{
    if (stringptr)
        *stringptr = string;
    else
        vel_free(string);
}

static vel_error_t vel_http_deprecated_parse_url(const char *url, char **schemeptr,
                                                 char **hostnameptr, unsigned int *portptr,
                                                 char **queryptr)
{
    vel_http_deprecated_url parsed = {};
    const vel_error_t error = vel_http_deprecated_fill(&parsed, url);
    if (error != VEL_ERROR_NONE) {
        vel_free(parsed.scheme);
        vel_free(parsed.hostname);
        parsed.scheme = parsed.hostname = nullptr; /* there is no query: it comes last */
    }
    vel_http_deprecated_hand_out(schemeptr, parsed.scheme);
    vel_http_deprecated_hand_out(hostnameptr, parsed.hostname);
    vel_http_deprecated_hand_out(queryptr, parsed.query);
    if (portptr)
        *portptr = parsed.port;
    return error;
}

vel_error_t vel_http_parse_url(const char *url, char **schemeptr, char **hostnameptr,
                               unsigned int *portptr, char **queryptr)
{
    VEL_ASSERT(url != NULL);

    return vel_http_deprecated_parse_url(url, schemeptr, hostnameptr, portptr, queryptr);
}

void vel_http_deprecated_allow_invalid_tls_certificate_name(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttpdeprecated *deprecated = vel_http_get_deprecated(velhttp);
    VEL_ASSERT(deprecated != NULL);

    deprecated->invalidtlscertificatename = 1;
}

void vel_http_deprecated_disallow_invalid_tls_certificate_name(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttpdeprecated *deprecated = vel_http_get_deprecated(velhttp);
    VEL_ASSERT(deprecated != NULL);

    deprecated->invalidtlscertificatename = 0;
}

int vel_http_deprecated_is_invalid_tls_certificate_name_allowed(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    const velhttpdeprecated *deprecated = vel_http_get_deprecated(velhttp);
    VEL_ASSERT(deprecated != NULL);

    return deprecated->invalidtlscertificatename;
}
