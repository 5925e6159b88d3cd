#include <vellib/veluuid.h>

#include <cstdint>
#include <cstring>

#include <vellib/velmalloc.h>
#include <vellib/velstrdupf.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/veluuid"

struct veluuid {
    struct velrandom *velrandom; /* the caller's, or NULL for the global one */
};

veluuid *vel_uuid_create(void)
{
    auto *veluuid = static_cast<struct veluuid *>(vel_cmalloc(sizeof(struct veluuid)));
    if (!veluuid)
        VEL_LOG(7, "unable to create uuid context");
    return veluuid;
}

void vel_uuid_destroy(veluuid *veluuid)
{
    VEL_ASSERT(veluuid != NULL);

    vel_free(veluuid);
}

void vel_uuid_set_random(veluuid *veluuid, velrandom *velrandom)
{
    VEL_ASSERT(veluuid != NULL);

    veluuid->velrandom = velrandom;
}

char *vel_uuid_random(veluuid *veluuid)
{
    VEL_ASSERT(veluuid != NULL);

    uint8_t b[16];
    memset(b, 0xdd, sizeof(b));
    if (vel_random_buffer(veluuid->velrandom, b, sizeof(b)) != 0) {
        VEL_LOG(7, "vel_random_buffer() failed");
        return nullptr;
    }
    b[6] = static_cast<uint8_t>((b[6] & 0x0f) | 0x40); /* the version */
    b[8] = static_cast<uint8_t>((b[8] & 0x3f) | 0x80); /* the variant */

    char *text = vel_strdupf("%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                             b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10],
                             b[11], b[12], b[13], b[14], b[15]);
    if (!text)
        VEL_LOG(7, "not enough memory for UUID string");
    return text;
}
