#include <vellib/velstrdup_lowercase.h>

#include <cstring>

#include <vellib/vellimit.h>
#include <vellib/velmalloc.h>

#include "util/velassert.h"

/* limited tells whether n counts: an unlimited string has no length to be given. */
static char *vel_strdup_lowercase_internal(const char *string, bool limited, size_t n)
{
    const size_t len = limited ? strnlen(string, n) : strlen(string);
    if (len == vel_limit_max_size_t())
        return nullptr;
    auto *copy = static_cast<char *>(vel_malloc(len + 1));
    if (!copy)
        return nullptr;
    for (size_t i = 0; i < len; i++) {
        const char c = string[i];
        copy[i] = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    }
    copy[len] = '\0';
    return copy;
}

char *vel_strdup_lowercase(const char *string)
{
    VEL_ASSERT(string != NULL);

    return vel_strdup_lowercase_internal(string, /*limited=*/false, 0);
}

char *vel_strndup_lowercase(const char *string, size_t n)
{
    VEL_ASSERT(string != NULL);

    return vel_strdup_lowercase_internal(string, /*limited=*/true, n);
}
