#include "adt/veljson_pool.h"

#include <algorithm>

#include <vellib/velmalloc.h>

/* The first chunk is as large as the text, and each is twice as large as the one before. Pages that
 * are not reached cost nothing, and the platform's allocator learns from a large block that has been
 * freed to keep as much for the next text. */
static constexpr size_t vel_json_chunksize_least = 16384;
static constexpr size_t vel_json_chunksize_most = (32 << 20) - 4096;

struct vel_json_chunk {
    vel_json_chunk *next;
    alignas(8) char bytes[];
};

void *vel_json_pool_take_slowly(vel_json_pool *pool, size_t size)
{
    const bool islong = size > pool->chunksize / 8; /* has a chunk to itself */
    const size_t chunksize = islong ? size : pool->chunksize;
    auto *const chunk =
        static_cast<vel_json_chunk *>(vel_malloc(sizeof(vel_json_chunk) + chunksize));

    if (!chunk)
        return nullptr;
    chunk->next = pool->chunks;
    pool->chunks = chunk;
    if (!islong) {
        pool->free = chunk->bytes + size;
        pool->left = chunksize - size;
        pool->chunksize = std::min(2 * chunksize, vel_json_chunksize_most);
    }
    return chunk->bytes;
}

void vel_json_pool_begin(vel_json_pool *pool, size_t textsize)
{
    pool->chunksize = std::clamp(textsize, vel_json_chunksize_least, vel_json_chunksize_most);
}

void vel_json_pool_clear(vel_json_pool *pool)
{
    while (vel_json_chunk *const chunk = pool->chunks) {
        pool->chunks = chunk->next;
        vel_free(chunk);
    }
    pool->free = nullptr;
    pool->left = 0;
}
