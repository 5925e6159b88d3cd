#include <vellib/velsha256.h>

#include <vellib/velmalloc.h>

#include "crypto/velsha_core.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "crypto/velsha256"

struct velsha256 : velsha_context<8> {};

/* The block step, for count blocks. */
static void vel_sha256_chunk_process(velsha256 *velsha256, const uint8_t *chunk, size_t count)
{
    VEL_ASSERT(velsha256 != NULL);
    VEL_ASSERT(chunk != NULL);

    vel_shakernels_best()->sha256(velsha256->h, chunk, count);
}

struct vel_sha256_twin {
    using context = velsha256;

    static constexpr uint32_t initial[] = {
        0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
        0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19,
    };

    static constexpr auto process = vel_sha256_chunk_process;
};

velsha256 *vel_sha256_create(void)
{
    auto *velsha256 = static_cast<struct velsha256 *>(vel_cmalloc(sizeof(struct velsha256)));
    if (!velsha256) {
        VEL_LOG(7, "not enough memory for SHA256 context");
        return nullptr;
    }
    vel_sha256_init(velsha256);
    return velsha256;
}

void vel_sha256_init(velsha256 *velsha256)
{
    VEL_ASSERT(velsha256 != NULL);

    vel_shacore_init<vel_sha256_twin>(velsha256);
}

void vel_sha256_destroy(velsha256 *velsha256)
{
    VEL_ASSERT(velsha256 != NULL);

    vel_free(velsha256);
}

void vel_sha256_update(velsha256 *velsha256, const void *data, size_t count)
{
    VEL_ASSERT(velsha256 != NULL);
    VEL_ASSERT(velsha256->chunkuse < 64);

    vel_shacore_update<vel_sha256_twin>(velsha256, data, count);
}

void vel_sha256_finalize(velsha256 *velsha256)
{
    VEL_ASSERT(velsha256 != NULL);
    VEL_ASSERT(velsha256->chunkuse < 64);

    vel_shacore_finalize<vel_sha256_twin>(velsha256);
}

void vel_sha256_digest(velsha256 *velsha256, unsigned char *digest)
{
    VEL_ASSERT(velsha256 != NULL);
    VEL_ASSERT(digest != NULL);

    const unsigned char *pos = vel_shacore_digest<vel_sha256_twin>(velsha256, digest);
    VEL_ASSERT(pos - digest == 32);
}
