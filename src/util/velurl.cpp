#include <vellib/velurl.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velurl"

struct velurl {
    char *scheme;
    char *netloc;
    char *username;
    char *password;
    char *host;
    uint32_t port;
    char *localpart;
    char *path;
    char *params;
    char *query;
};

/* What the scan of the netloc finds. A ":" may end a user name and begin a password, or end a host
 * and begin a port: which of them is known at the "@", or when there is none. */
struct vel_url_marks {
    const char *netlocstart; /* and start of the user name */
    const char *netlocend = nullptr;
    const char *usernameend = nullptr;
    const char *passwordstart = nullptr;
    const char *passwordend = nullptr;
    const char *hoststart;
    const char *hostend = nullptr;
    const char *portstart = nullptr;
    bool userseen = false;
    int colons = 0;  /* since the netloc began or the "@" */
    char ipv6 = '?'; /* '?' where a token begins, 'X' in any other, '[' in brackets, ']' behind */
};

static constexpr struct {
    const char *scheme;
    uint32_t port;
} vel_url_default_ports[] = {
    {"http", 80},
    {"https", 443},
    {"ftp", 21},
    {"icap", 1344},
};

/* A copy of the text from start up to end, or NULL. */
static inline char *vel_url_copy(const char *start, const char *end)
{
    auto len = static_cast<size_t>(end - start);
    auto *copy = static_cast<char *>(vel_malloc(len + 1));
    if (copy) {
        memcpy(copy, start, len);
        copy[len] = '\0';
    }
    return copy;
}

static inline void vel_url_release(char **field)
{
    if (*field)
        vel_free(*field);
    *field = nullptr;
}

static void vel_url_clear(velurl *velurl)
{
    vel_url_release(&velurl->scheme);
    vel_url_release(&velurl->netloc);
    vel_url_release(&velurl->username);
    vel_url_release(&velurl->password);
    vel_url_release(&velurl->host);
    vel_url_release(&velurl->localpart);
    vel_url_release(&velurl->path);
    vel_url_release(&velurl->params);
    vel_url_release(&velurl->query);
}

/* Takes the "@" at pos, and makes ready for the host behind it. */
static vel_error_t vel_url_take_user(vel_url_marks *marks, const char *url, const char *pos)
{
    if (marks->userseen) {
        VEL_LOG(6, "URL '%s' has multiple user names ('@') in network locality", url);
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    if (marks->passwordstart)
        marks->passwordend = pos;
    else
        marks->usernameend = pos;
    if (marks->ipv6 == '[' || marks->ipv6 == ']') {
        VEL_LOG(6, "URL '%s' has '@' in network locality after an IPv6 address", url);
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    marks->userseen = true;
    marks->hoststart = pos + 1;
    marks->hostend = nullptr;
    marks->portstart = nullptr;
    marks->colons = 0;
    marks->ipv6 = '?';
    return VEL_ERROR_NONE;
}

/* Takes the ":" at pos, which stands outside brackets. */
static vel_error_t vel_url_take_colon(vel_url_marks *marks, const char *url, const char *pos)
{
    if (++marks->colons > 1) {
        VEL_LOG(6, "URL '%s' has two colons in hostname or username", url);
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    if (marks->ipv6 != ']')
        marks->hostend = pos;
    if (!marks->usernameend) {
        marks->usernameend = pos;
        marks->passwordstart = pos + 1;
    }
    marks->portstart = pos + 1;
    return VEL_ERROR_NONE;
}

/* Takes the bracket at pos. */
static vel_error_t vel_url_take_bracket(vel_url_marks *marks, const char *url, const char *pos)
{
    if (*pos == '[') {
        if (marks->ipv6 != '?') {
            VEL_LOG(6,
                    "URL '%s' has '[' in hostname or username that does not start an IPv6 address",
                    url);
            return VEL_ERROR_INVALID_ARGUMENT;
        }
        marks->hoststart = pos + 1;
    } else {
        if (marks->ipv6 != '[') {
            VEL_LOG(6, "URL '%s' has ']' in hostname or username that does not end an IPv6 address",
                    url);
            return VEL_ERROR_INVALID_ARGUMENT;
        }
        marks->hostend = pos;
    }
    marks->ipv6 = *pos;
    return VEL_ERROR_NONE;
}

/* Where a byte means something in a netloc. */
static constexpr std::array<bool, 256> vel_url_fill_special()
{
    std::array<bool, 256> special = {};
    for (unsigned char c : {'\0', '/', '[', ']', '@', ':'})
        special[c] = true;
    return special;
}

static constexpr auto vel_url_special = vel_url_fill_special();

/* Scans the netloc from its start up to the "/" or the end of the URL. */
static vel_error_t vel_url_scan_netloc(vel_url_marks *marks, const char *url)
{
    vel_error_t error = VEL_ERROR_NONE;
    const char *pos = marks->netlocstart;
    while (error == VEL_ERROR_NONE) {
        const char *ordinary = pos;
        while (!vel_url_special[static_cast<unsigned char>(*pos)])
            pos++;
        if (*pos == '\0' || *pos == '/')
            break;
        if (marks->ipv6 == '?' && (pos > ordinary || *pos == ':'))
            marks->ipv6 = 'X';
        if (*pos == '[' || *pos == ']')
            error = vel_url_take_bracket(marks, url, pos);
        else if (*pos == '@')
            error = vel_url_take_user(marks, url, pos);
        else if (marks->ipv6 != '[')
            error = vel_url_take_colon(marks, url, pos);
        pos++;
    }
    marks->netlocend = pos;
    if (!marks->hostend)
        marks->hostend = pos;
    if (!marks->portstart)
        marks->portstart = pos;
    return error;
}

/* Copies what the marks tell. */
static vel_error_t vel_url_copy_netloc(velurl *velurl, const vel_url_marks *marks)
{
    velurl->netloc = vel_url_copy(marks->netlocstart, marks->netlocend);
    if (!velurl->netloc) {
        VEL_LOG(7, "not enough memory for URL network location");
        return VEL_ERROR_NO_MEMORY;
    }
    if (marks->userseen) {
        velurl->username = vel_url_copy(marks->netlocstart, marks->usernameend);
        if (!velurl->username) {
            VEL_LOG(7, "not enough memory for username");
            return VEL_ERROR_NO_MEMORY;
        }
    }
    if (marks->passwordend) {
        velurl->password = vel_url_copy(marks->passwordstart, marks->passwordend);
        if (!velurl->password) {
            VEL_LOG(7, "not enough memory for password");
            return VEL_ERROR_NO_MEMORY;
        }
    }
    velurl->host = vel_url_copy(marks->hoststart, marks->hostend);
    if (!velurl->host) {
        VEL_LOG(7, "not enough memory for host");
        return VEL_ERROR_NO_MEMORY;
    }
    return VEL_ERROR_NONE;
}

static uint32_t vel_url_default_port(const char *scheme, const char *url)
{
    for (const auto &entry : vel_url_default_ports)
        if (strcmp(scheme, entry.scheme) == 0)
            return entry.port;
    VEL_LOG(13, "unrecognized scheme '%s' in URL '%s'", scheme, url);
    return 0;
}

/* Reads the port at *posptr, which then stands behind it. */
static vel_error_t vel_url_parse_port(velurl *velurl, const char *url, const char **posptr)
{
    if (**posptr == '/' || **posptr == '\0') {
        velurl->port = vel_url_default_port(velurl->scheme, url);
        return VEL_ERROR_NONE;
    }

    char *end = nullptr;
    uint64_t port = strtoul(*posptr, &end, 10);
    if (port == 0 || port > 65535) {
        VEL_LOG(6, "the port number must be between 1-65535");
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    if (*end != '/' && *end != '\0') {
        VEL_LOG(6, "invalid character '%c' in port number", *end);
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    velurl->port = static_cast<uint32_t>(port);
    *posptr = end;
    return VEL_ERROR_NONE;
}

/* Copies the local part as a whole and in pieces. It is what stands at start, or "/". */
static vel_error_t vel_url_copy_localpart(velurl *velurl, const char *start)
{
    const char *local = *start ? start : "/";
    const char *end = local + strlen(local);
    velurl->localpart = vel_url_copy(local, end);
    if (!velurl->localpart) {
        VEL_LOG(7, "not enough memory for localpart part of the URL");
        return VEL_ERROR_NO_MEMORY;
    }

    /* A "?" ends both path and params, and a ";" behind it means nothing. */
    auto *query = static_cast<const char *>(memchr(local, '?', static_cast<size_t>(end - local)));
    const char *paramsend = query ? query : end;
    auto *params =
        static_cast<const char *>(memchr(local, ';', static_cast<size_t>(paramsend - local)));
    velurl->path = vel_url_copy(local, params ? params : paramsend);
    if (!velurl->path) {
        VEL_LOG(7, "not enough memory for path part of the URL");
        return VEL_ERROR_NO_MEMORY;
    }
    if (params) {
        velurl->params = vel_url_copy(params + 1, paramsend);
        if (!velurl->params) {
            VEL_LOG(7, "not enough memory for params part of the URL");
            return VEL_ERROR_NO_MEMORY;
        }
    }
    if (query) {
        velurl->query = vel_url_copy(query + 1, end);
        if (!velurl->query) {
            VEL_LOG(7, "not enough memory for query part of the URL");
            return VEL_ERROR_NO_MEMORY;
        }
    }
    return VEL_ERROR_NONE;
}

/* Fills the empty record from the URL. On failure the caller clears what there is. */
static vel_error_t vel_url_parse(velurl *velurl, const char *url)
{
    const char *colon = strchr(url, ':');
    if (!colon) {
        VEL_LOG(6, "URL '%s' has no colon after scheme", url);
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    velurl->scheme = vel_url_copy(url, colon);
    if (!velurl->scheme) {
        VEL_LOG(7, "not enough memory for URL scheme");
        return VEL_ERROR_NO_MEMORY;
    }
    if (strncmp(colon, "://", 3) != 0) {
        VEL_LOG(6, "URL '%s' has no :// after scheme", url);
        return VEL_ERROR_INVALID_ARGUMENT;
    }

    vel_url_marks marks = {.netlocstart = colon + 3, .hoststart = colon + 3};
    vel_error_t error = vel_url_scan_netloc(&marks, url);
    if (error == VEL_ERROR_NONE)
        error = vel_url_copy_netloc(velurl, &marks);
    const char *pos = marks.portstart;
    if (error == VEL_ERROR_NONE)
        error = vel_url_parse_port(velurl, url, &pos);
    if (error == VEL_ERROR_NONE)
        error = vel_url_copy_localpart(velurl, pos);
    return error;
}

velurl *vel_url_create(void)
{
    auto *velurl = static_cast<struct velurl *>(vel_cmalloc(sizeof(struct velurl)));
    if (!velurl)
        VEL_LOG(7, "not enough memory for url parsing context");
    return velurl;
}

void vel_url_destroy(velurl *velurl)
{
    VEL_ASSERT(velurl != NULL);

    vel_url_clear(velurl);
    vel_free(velurl);
}

vel_error_t vel_url_set_url(velurl *velurl, const char *url)
{
    VEL_ASSERT(velurl != NULL);
    VEL_ASSERT(url != NULL);

    struct velurl parsed = {};
    vel_error_t error = vel_url_parse(&parsed, url);
    if (error != VEL_ERROR_NONE) {
        vel_url_clear(&parsed);
        return error;
    }
    vel_url_clear(velurl);
    *velurl = parsed;
    return VEL_ERROR_NONE;
}

const char *vel_url_get_scheme(velurl *velurl)
{
    VEL_ASSERT(velurl != NULL);

    return velurl->scheme;
}

const char *vel_url_get_netloc(velurl *velurl)
{
    VEL_ASSERT(velurl != NULL);

    return velurl->netloc;
}

const char *vel_url_get_username(velurl *velurl)
{
    VEL_ASSERT(velurl != NULL);

    return velurl->username;
}

const char *vel_url_get_password(velurl *velurl)
{
    VEL_ASSERT(velurl != NULL);

    return velurl->password;
}

const char *vel_url_get_host(velurl *velurl)
{
    VEL_ASSERT(velurl != NULL);

    return velurl->host;
}

unsigned int vel_url_get_port(velurl *velurl)
{
    VEL_ASSERT(velurl != NULL);

    return velurl->port;
}

const char *vel_url_get_localpart(velurl *velurl)
{
    VEL_ASSERT(velurl != NULL);

    return velurl->localpart;
}

const char *vel_url_get_path(velurl *velurl)
{
    VEL_ASSERT(velurl != NULL);

    return velurl->path;
}

const char *vel_url_get_params(velurl *velurl)
{
    VEL_ASSERT(velurl != NULL);

    return velurl->params;
}

const char *vel_url_get_query(velurl *velurl)
{
    VEL_ASSERT(velurl != NULL);

    return velurl->query;
}
