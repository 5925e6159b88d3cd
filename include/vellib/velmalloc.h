#ifndef VELLIB_VELMALLOC_H
#define VELLIB_VELMALLOC_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velmalloc: all memory of the library, and of a program that wants its own failures driven too.
 * Ordinarily these are the platform's allocator. With VELMALLOC_FAILMODE in the environment, set
 * to anything or to nothing, each allocation fails once for every call stack that reaches it; see
 * velmallocfail. The variable is read at the first allocation and never again.
 * Threads: any. With VELMALLOC_FAILMODE, one at a time. */

VEL_DECLARATIONS_BEGIN

/* Allocates a block that is not initialised.
 *
 * size  in bytes; 0 gives what the platform's malloc gives.
 *
 * Returns the block, for vel_free, or NULL if there is not enough memory. Logs nothing. */
VEL_API void *vel_malloc(size_t size);

/* Allocates a zeroed block for count items of size bytes each.
 *
 * Returns the block, for vel_free, or NULL if there is not enough memory. Logs nothing. */
VEL_API void *vel_calloc(size_t count, size_t size);

/* Allocates a zeroed block of size bytes.
 *
 * Returns the block, for vel_free, or NULL if there is not enough memory. Logs nothing. */
VEL_API void *vel_cmalloc(size_t size);

/* Changes the size of a block, which may move.
 *
 * pointer  a block, or NULL for a new one.
 * size     the new size in bytes; 0 counts as 1, so that the block is never freed.
 *
 * Returns the block, or NULL with the old block unchanged if there is not enough memory. Logs
 * nothing.
 * Note: VELMALLOC_FAILMODE does not make this function fail. */
VEL_API void *vel_realloc(void *pointer, size_t size);

/* Frees a block.
 *
 * pointer  a block of this family, or NULL, which does nothing. */
VEL_API void vel_free(void *pointer);

/* Forgets the failure database in memory; a part of vel_uninit. The mode stays, and the file is
 * loaded anew at the next allocation.
 * Threads: no other thread may be in the library. */
VEL_API void vel_malloc_uninit(void);

VEL_DECLARATIONS_END

#endif
