#ifndef VELLIB_ADT_VELJSON_POOL_H
#define VELLIB_ADT_VELJSON_POOL_H

#include <cstddef>

/* Memory for the nodes and strings of a long text, a chunk at a time. It is given back as a whole,
 * so what is built by setting and adding does not come from here. */

struct vel_json_chunk;

struct vel_json_pool {
    vel_json_chunk *chunks;
    char *free; /* the rest of a chunk */
    size_t left;
    size_t chunksize;
};

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

#endif
