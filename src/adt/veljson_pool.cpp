#include "adt/veljson_pool.h"

#include <algorithm>

#include <vellib/velmalloc.h>

#include "util/velassert.h"

/* Mostly all fits into the first chunk; if not, each is twice as large as the one before. Pages that
 * are not reached cost nothing, and the platform's allocator learns from a large block that has been
 * freed to keep as much for the next text. */
static constexpr size_t vel_json_chunksize_least = 65536;

static vel_json_chunk *vel_json_pool_add_chunk(vel_json_pool *pool, size_t size)
{
    auto *const chunk = static_cast<vel_json_chunk *>(
        vel_malloc(sizeof(vel_json_chunk) + size + vel_json_pool_slack));

    if (!chunk)
        return nullptr;
    chunk->next = pool->chunks;
    chunk->pool = pool;
    pool->chunks = chunk;
    return chunk;
}

void *vel_json_pool_take_slowly(vel_json_pool *pool, size_t size)
{
    const bool islong = size > pool->chunksize / 8; /* has a chunk to itself */
    const size_t chunksize = islong ? size : pool->chunksize;
    vel_json_chunk *const chunk = vel_json_pool_add_chunk(pool, chunksize);

    if (!chunk)
        return nullptr;
    if (!islong) {
        pool->chunk = chunk;
        pool->free = chunk->bytes + size;
        pool->left = chunksize - size;
        pool->chunksize = std::min(2 * chunksize, vel_json_chunksize_most);
    }
    return chunk->bytes;
}

bool vel_json_pool_keep_promise(vel_json_pool *pool)
{
    if (pool->reserved == 0)
        return true;
    vel_json_chunk *const chunk = vel_json_pool_add_chunk(pool, pool->reserved);
    if (chunk)
        pool->reservedfree = chunk->bytes;
    return chunk != nullptr;
}

void *vel_json_pool_take_reserved(vel_json_pool *pool, size_t size)
{
    VEL_ASSERT(size <= pool->reserved);

    void *const block = pool->reservedfree;
    pool->reservedfree += size;
    pool->reserved -= size;
    return block;
}

void vel_json_pool_begin(vel_json_pool *pool, size_t textsize)
{
    pool->chunksize = std::clamp(4 * std::min(textsize, vel_json_chunksize_most),
                                 vel_json_chunksize_least, vel_json_chunksize_most);
}

void vel_json_pool_clear(vel_json_pool *pool)
{
    while (vel_json_chunk *const chunk = pool->chunks) {
        pool->chunks = chunk->next;
        vel_free(chunk);
    }
    *pool = {};
}
