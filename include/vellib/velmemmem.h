#ifndef VELLIB_VELMEMMEM_H
#define VELLIB_VELMEMMEM_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velmemmem: bytes within bytes.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Finds the first place where needle stands in haystack.
 *
 * Returns a pointer into haystack, or NULL if it stands nowhere. An empty needle stands at the
 * beginning, also of an empty haystack. */
VEL_API void *vel_memmem(const void *haystack, size_t haystack_len, const void *needle,
                         size_t needle_len);

VEL_DECLARATIONS_END

#endif
