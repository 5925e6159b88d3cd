#include <vellib/velmemmem.h>

#include <cstring>

#include "util/velassert.h"

void *vel_memmem(const void *haystack, size_t haystack_len, const void *needle, size_t needle_len)
{
    VEL_ASSERT(haystack != NULL);
    VEL_ASSERT(needle != NULL);

    /* Platforms differ on the empty needle. */
    if (needle_len == 0)
        return const_cast<void *>(haystack);
    return memmem(haystack, haystack_len, needle, needle_len);
}
