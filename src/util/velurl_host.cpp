#include "util/velurl_internal.h"

#include <cstring>
#include <initializer_list>

#include <vellib/velmalloc.h>
#include <vellib/velstrndup.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

/* This is the second half of velurl, and its log lines say so. */
#define VEL_MODULE "util/velurl"

/* The six characters that isspace knows in the C locale; the host's locale may know more. */
bool vel_url_is_empty_string(const char *string)
{
    VEL_ASSERT(string != NULL);

    return string[strspn(string, " \t\n\v\f\r")] == '\0';
}

/* Where the authority ends. The characters are looked for one after another, wherever they stand:
 * a "/" counts even behind a "?". */
static const char *vel_url_authority_end(const char *authority)
{
    for (char c : {'/', '?', '#'})
        if (const char *end = strchr(authority, c))
            return end;
    return authority + strlen(authority);
}

vel_error_t vel_url_get_authority_from_url(const char *url, char **authority)
{
    VEL_ASSERT(url != NULL);
    VEL_ASSERT(authority != NULL);

    *authority = nullptr;
    const char *slashes = strstr(url, "//");
    if (!slashes) {
        VEL_LOG(6, "URI '%s' does not contain authority", url);
        return VELURL_ERROR_INVALID;
    }
    const char *start = slashes + 2;
    const char *end = vel_url_authority_end(start);
    if (end == start || vel_url_is_empty_string(start)) {
        VEL_LOG(6, "URI '%s' has empty authority", url);
        return VELURL_ERROR_INVALID;
    }
    *authority = vel_strndup(start, static_cast<size_t>(end - start));
    return *authority ? VEL_ERROR_NONE : VEL_ERROR_NO_MEMORY;
}

vel_error_t vel_url_get_host_from_authority(const char *authority, char **host)
{
    VEL_ASSERT(authority != NULL);
    VEL_ASSERT(host != NULL);

    *host = nullptr;
    const char *start = authority;
    if (const char *at = strchr(authority, '@')) {
        start = at + 1;
        if (*start == '\0') {
            VEL_LOG(6, "URI authority '%s' has empty host", authority);
            return VELURL_ERROR_INVALID;
        }
    }
    *host = vel_strndup(start, strcspn(start, ":"));
    return *host ? VEL_ERROR_NONE : VEL_ERROR_NO_MEMORY;
}

vel_error_t vel_url_get_host_from_url(const char *url, char **host)
{
    VEL_ASSERT(url != NULL);
    VEL_ASSERT(host != NULL);

    *host = nullptr;
    char *authority;
    vel_error_t error = vel_url_get_authority_from_url(url, &authority);
    if (error != VEL_ERROR_NONE)
        return error;
    error = vel_url_get_host_from_authority(authority, host);
    vel_free(authority);
    return error;
}

vel_error_t vel_url_replace_host_in_url(const char *url, const char *original_host,
                                        const char *new_host, char **new_url)
{
    VEL_ASSERT(url != NULL);
    VEL_ASSERT(original_host != NULL);
    VEL_ASSERT(new_host != NULL);
    VEL_ASSERT(new_url != NULL);

    size_t urllen = strlen(url), originallen = strlen(original_host), newlen = strlen(new_host);
    if (originallen > urllen) {
        VEL_LOG(6, "Invalid URL '%s' or original host '%s'", url, original_host);
        return VELURL_ERROR_INVALID;
    }
    const char *match = strstr(url, original_host);
    if (!match) {
        VEL_LOG(6, "Original host '%s' is not a part of the URL '%s'", original_host, url);
        return VELURL_ERROR_INVALID;
    }
    auto *replaced = static_cast<char *>(vel_malloc(urllen - originallen + newlen + 1));
    if (!replaced)
        return VEL_ERROR_NO_MEMORY;

    auto headlen = static_cast<size_t>(match - url);
    memcpy(replaced, url, headlen);
    memcpy(replaced + headlen, new_host, newlen);
    memcpy(replaced + headlen + newlen, match + originallen, urllen - originallen - headlen + 1);
    *new_url = replaced;
    return VEL_ERROR_NONE;
}
