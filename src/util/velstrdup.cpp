#include <vellib/velstrdup.h>

#include <cstring>

#include <vellib/vellimit.h>
#include <vellib/velmalloc.h>

#include "util/velassert.h"

char *vel_strdup(const char *string)
{
    VEL_ASSERT(string != NULL);

    const size_t len = strlen(string);
    if (len == vel_limit_max_size_t())
        return nullptr;
    auto *copy = static_cast<char *>(vel_malloc(len + 1));
    if (copy)
        memcpy(copy, string, len + 1);
    return copy;
}
