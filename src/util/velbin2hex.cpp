#include <vellib/velbin2hex.h>

#include <cstdint>

#include <vellib/vellimit.h>
#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/velbin2hex_internal.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velbin2hex"

char *vel_bin2hex_with(const vel_textkernels *kernels, const void *buf, size_t len)
{
    if (len > (vel_limit_max_size_t() - 1) / 2) {
        VEL_LOG(6, "size is too high for a size_t");
        return nullptr;
    }
    auto *text = static_cast<char *>(vel_malloc(2 * len + 1));
    if (!text) {
        VEL_LOG(7, "not enough memory for conversion result");
        return nullptr;
    }

    auto *source = static_cast<const uint8_t *>(buf);
    for (size_t i = kernels->hex_encode(text, source, len); i < len; i++) {
        text[2 * i] = "0123456789abcdef"[source[i] >> 4];
        text[2 * i + 1] = "0123456789abcdef"[source[i] & 0x0f];
    }
    text[2 * len] = '\0';
    return text;
}

char *vel_bin2hex(const void *buf, size_t len)
{
    VEL_ASSERT(buf != NULL);

    return vel_bin2hex_with(vel_textkernels_best(), buf, len);
}
