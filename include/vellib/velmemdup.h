#ifndef VELLIB_VELMEMDUP_H
#define VELLIB_VELMEMDUP_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velmemdup: a copy of a block of memory.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Copies a block.
 *
 * memory  the block; it may not be NULL, even if size is 0.
 * size    in bytes; 0 gives a block of its own all the same.
 *
 * Returns a new block, or NULL if there is not enough memory. Logs nothing. */
VEL_API void *vel_memdup(const void *memory, size_t size);

VEL_DECLARATIONS_END

#endif
