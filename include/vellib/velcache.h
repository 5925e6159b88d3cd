#ifndef VELLIB_VELCACHE_H
#define VELLIB_VELCACHE_H

#include <stddef.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velcache: copies of byte blocks under string keys, within a limit in bytes. The block set
 * longest ago is evicted first; a get does not make a block younger.
 *
 * A block counts with its length, the length of its key and 48 bytes. The memory of the process
 * that it takes is more than that: the limit bounds the content.
 * Threads: one at a time, also for vel_cache_get, as a lookup may move entries. */
typedef struct velcache velcache;

VEL_DECLARATIONS_BEGIN

/* Creates an empty cache.
 *
 * limitsize  the limit in bytes, counted as above.
 *
 * Returns the cache, for vel_cache_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API velcache *vel_cache_create(size_t limitsize);

/* Destroys a cache with its blocks. */
VEL_API void vel_cache_destroy(velcache *velcache);

/* Changes the limit and evicts the oldest blocks until the rest is within it.
 *
 * limitsize  the limit in bytes; 0 empties the cache. */
VEL_API void vel_cache_set_memory_limit(velcache *velcache, size_t limitsize);

/* Stores a copy of a block under a key, in place of one that is there. The oldest blocks are
 * evicted as far as the new one needs the room.
 *
 * key      is copied.
 * data     is copied; not NULL even if datalen is 0.
 * datalen  the length in bytes.
 *
 * Returns VEL_ERROR_NONE, or, logged,
 * - VEL_ERROR_OUT_OF_RANGE if the block alone is over the limit, with the cache unchanged. Or there
 *   is no memory for its entry in the table: then the block that the key had and blocks evicted for
 *   the new one are gone.
 * - VEL_ERROR_NO_MEMORY if there is no memory for the copies, with the cache unchanged.
 * - VEL_ERROR_INTERNAL if the cache is filled to the last byte of its limit.
 * Note: with VEL_ERROR_INTERNAL the block is stored all the same. Leave a byte of room to avoid
 * it. */
VEL_API vel_error_t vel_cache_set(velcache *velcache, const char *key, const void *data,
                                  size_t datalen);

/* Looks up the block under key.
 *
 * dataptr     receives the block. It stays the cache's, and is valid until key is set again
 *             or evicted, or the cache is destroyed.
 * datalenptr  receives its length in bytes.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NOT_FOUND with NULL and 0 written. Logs nothing. */
VEL_API vel_error_t vel_cache_get(velcache *velcache, const char *key, const void **dataptr,
                                  size_t *datalenptr);

VEL_DECLARATIONS_END

#endif
