#ifndef VELLIB_ADT_VELJSON_POOL_H
#define VELLIB_ADT_VELJSON_POOL_H

#include <cstddef>
#include <cstdint>

/* Memory for the nodes and strings of a long text, a chunk at a time. It is given back as a whole,
 * so what is built by setting and adding does not come from here; once there is such, the tree has to
 * be walked before. */

struct vel_json_pool;

struct vel_json_chunk {
    vel_json_chunk *next;
    vel_json_pool *pool;
    alignas(8) char bytes[];
};

struct vel_json_pool {
    vel_json_chunk *chunks;
    vel_json_chunk *chunk; /* the one that blocks are taken from */
    char *free;            /* its rest */
    size_t left;
    size_t chunksize;
    size_t reserved;    /* bytes that will be taken one day */
    char *reservedfree; /* where */
    bool changed;       /* the tree has blocks of their own */
};

/* So many bytes behind each block may be written to before the next one is taken. */
static constexpr size_t vel_json_pool_slack = 16;

/* No chunk is larger, but for one that a single string has. */
static constexpr size_t vel_json_chunksize_most = (32 << 20) - 4096;

/* Prepares an empty pool for a text of this size. */
void vel_json_pool_begin(vel_json_pool *pool, size_t textsize);

/* Takes size bytes out of a new chunk. */
void *vel_json_pool_take_slowly(vel_json_pool *pool, size_t size);

/* Gives all memory back. */
void vel_json_pool_clear(vel_json_pool *pool);

/* Takes a block of size bytes, below 2^60, for pointers and numbers; NULL without memory, which is
 * not logged. */
static inline void *vel_json_pool_take(vel_json_pool *pool, size_t size)
{
    size = (size + 7) & ~size_t{7};
    if (size > pool->left)
        return vel_json_pool_take_slowly(pool, size);
    void *const block = pool->free;
    pool->free += size;
    pool->left -= size;
    return block;
}

/* Gives back what a block of size bytes has behind the first newsize, unless it has a chunk to itself. */
static inline void vel_json_pool_shorten(vel_json_pool *pool, const void *block, size_t size,
                                         size_t newsize)
{
    size = (size + 7) & ~size_t{7};
    newsize = (newsize + 7) & ~size_t{7};
    if (static_cast<const char *>(block) + size != pool->free)
        return;
    pool->free -= size - newsize;
    pool->left += size - newsize;
}

/* More bytes are not promised, as no block has so many. */
static constexpr size_t vel_json_pool_reserved_most = SIZE_MAX / 2;

/* Promises size bytes, a multiple of eight, to be taken later. Where the address space is small, what a
 * text asks for together may be beyond what can be told; then the promise cannot be kept. */
static inline void vel_json_pool_reserve(vel_json_pool *pool, size_t size)
{
    if (size < vel_json_pool_reserved_most - pool->reserved)
        pool->reserved += size;
    else
        pool->reserved = vel_json_pool_reserved_most;
}

/* Allocates all that has been promised, as pages that cost nothing until they are taken. Returns false
 * without memory, which is not logged. */
bool vel_json_pool_keep_promise(vel_json_pool *pool);

/* Takes size bytes of what was promised. */
void *vel_json_pool_take_reserved(vel_json_pool *pool, size_t size);

#endif
