#include <vellib/velstrndup.h>

#include <cstring>

#include <vellib/vellimit.h>
#include <vellib/velmalloc.h>

#include "util/velassert.h"

char *vel_strndup(const char *string, size_t n)
{
    VEL_ASSERT(string != NULL);

    const size_t len = strnlen(string, n);
    if (len == vel_limit_max_size_t())
        return nullptr;
    auto *copy = static_cast<char *>(vel_malloc(len + 1));
    if (!copy)
        return nullptr;
    memcpy(copy, string, len);
    copy[len] = '\0';
    return copy;
}
