#include <vellib/velsha1.h>

#include <vellib/velmalloc.h>

#include "crypto/velsha_core.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "crypto/velsha1"

struct velsha1 : velsha_context<5> {};

/* The block step, for count blocks. */
static void vel_sha1_chunk_process(velsha1 *velsha1, const uint8_t *chunk, size_t count)
{
    VEL_ASSERT(velsha1 != NULL);
    VEL_ASSERT(chunk != NULL);

    vel_shakernels_best()->sha1(velsha1->h, chunk, count);
}

struct vel_sha1_twin {
    using context = velsha1;

    static constexpr uint32_t initial[] = {
        0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0,
    };

    static constexpr auto process = vel_sha1_chunk_process;
};

velsha1 *vel_sha1_create(void)
{
    auto *velsha1 = static_cast<struct velsha1 *>(vel_cmalloc(sizeof(struct velsha1)));
    if (!velsha1) {
        VEL_LOG(7, "not enough memory for SHA-1 context");
        return nullptr;
    }
    vel_sha1_init(velsha1);
    return velsha1;
}

void vel_sha1_init(velsha1 *velsha1)
{
    VEL_ASSERT(velsha1 != NULL);

    vel_shacore_init<vel_sha1_twin>(velsha1);
}

void vel_sha1_destroy(velsha1 *velsha1)
{
    VEL_ASSERT(velsha1 != NULL);

    vel_free(velsha1);
}

void vel_sha1_update(velsha1 *velsha1, const void *data, size_t count)
{
    VEL_ASSERT(velsha1 != NULL);
    VEL_ASSERT(velsha1->chunkuse < 64);

    vel_shacore_update<vel_sha1_twin>(velsha1, data, count);
}

void vel_sha1_finalize(velsha1 *velsha1)
{
    VEL_ASSERT(velsha1 != NULL);
    VEL_ASSERT(velsha1->chunkuse < 64);

    vel_shacore_finalize<vel_sha1_twin>(velsha1);
}

void vel_sha1_digest(velsha1 *velsha1, unsigned char *digest)
{
    VEL_ASSERT(velsha1 != NULL);
    VEL_ASSERT(digest != NULL);

    const unsigned char *pos = vel_shacore_digest<vel_sha1_twin>(velsha1, digest);
    VEL_ASSERT(pos - digest == 20);
}
