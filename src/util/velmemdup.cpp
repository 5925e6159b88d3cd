#include <vellib/velmemdup.h>

#include <cstring>

#include <vellib/velmalloc.h>

#include "util/velassert.h"

void *vel_memdup(const void *memory, size_t size)
{
    VEL_ASSERT(memory != NULL);

    void *copy = vel_malloc(size ? size : 1);
    if (copy && size)
        memcpy(copy, memory, size);
    return copy;
}
