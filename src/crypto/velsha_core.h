#ifndef VELLIB_CRYPTO_VELSHA_CORE_H
#define VELLIB_CRYPTO_VELSHA_CORE_H

/* The body that SHA-1 and SHA-256 share (FIPS 180-4, 5.1.1 and 6): gathering blocks, padding, and
 * giving out the state. A twin names its context, its size, its initial state and its block step.
 *
 * Finishing comes in two steps. Finalize pads into the state and marks nothing, digest only reads
 * the state, and an update after a finalize goes on from there: the random pool stands on that. */

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/shakernels.h"
#include "util/velassert.h"

constexpr size_t kVelShaBlockSize = 64;

template <size_t words> struct velsha_context {
    uint32_t h[words]; /* the chaining state */
    uint8_t chunk[kVelShaBlockSize];
    size_t chunkuse; /* bytes in chunk; below its size between calls */
    uint64_t total;  /* bytes taken in by update */
};

template <typename Twin> static void vel_shacore_init(typename Twin::context *context)
{
    memcpy(context->h, Twin::initial, sizeof(context->h));
    context->chunkuse = 0;
    context->total = 0;
}

/* Fills up a chunk that was begun. Returns how much of the data that took. */
template <typename Twin>
static size_t vel_shacore_fill_chunk(typename Twin::context *context, const uint8_t *data,
                                     size_t count)
{
    const size_t copycount = std::min(kVelShaBlockSize - context->chunkuse, count);
    VEL_ASSERT(copycount > 0);
    memcpy(context->chunk + context->chunkuse, data, copycount);
    context->chunkuse += copycount;
    if (context->chunkuse == kVelShaBlockSize) {
        Twin::process(context, context->chunk, 1);
        context->chunkuse = 0;
    }
    return copycount;
}

template <typename Twin>
static void vel_shacore_update(typename Twin::context *context, const void *data, size_t count)
{
    if (count == 0)
        return; /* data may be anything then */
    context->total += count;

    auto *bytes = static_cast<const uint8_t *>(data);
    if (context->chunkuse != 0) {
        const size_t copycount = vel_shacore_fill_chunk<Twin>(context, bytes, count);
        bytes += copycount;
        count -= copycount;
    }
    const size_t blocks = count / kVelShaBlockSize;
    if (blocks > 0)
        Twin::process(context, bytes, blocks);
    const size_t left = count % kVelShaBlockSize;
    VEL_ASSERT(left < 64);
    if (left > 0) {
        memcpy(context->chunk, bytes + blocks * kVelShaBlockSize, left);
        context->chunkuse = left;
    }
}

/* Unrolled, it becomes one store. */
template <typename Number> static inline void vel_shacore_store(uint8_t *bytes, Number value)
{
#pragma GCC unroll 8
    for (size_t i = 0; i < sizeof(value); i++)
        bytes[i] = static_cast<uint8_t>(value >> (8 * (sizeof(value) - 1 - i)));
}

/* Changes the state and the chunk, and neither chunkuse nor total. */
template <typename Twin> static void vel_shacore_finalize(typename Twin::context *context)
{
    constexpr size_t lengthpos = kVelShaBlockSize - sizeof(uint64_t);
    size_t chunkuse = context->chunkuse;

    context->chunk[chunkuse++] = 0x80;
    if (chunkuse > lengthpos) {
        memset(context->chunk + chunkuse, 0, kVelShaBlockSize - chunkuse);
        Twin::process(context, context->chunk, 1);
        chunkuse = 0;
    }
    VEL_ASSERT(chunkuse <= 56);
    memset(context->chunk + chunkuse, 0, lengthpos - chunkuse);
    vel_shacore_store(context->chunk + lengthpos, context->total * 8);
    Twin::process(context, context->chunk, 1);
}

/* Returns where the digest ends. */
template <typename Twin>
static unsigned char *vel_shacore_digest(const typename Twin::context *context, unsigned char *pos)
{
#pragma GCC unroll 8
    for (const uint32_t word : context->h) {
        vel_shacore_store(pos, word);
        pos += sizeof(word);
    }
    return pos;
}

#endif
