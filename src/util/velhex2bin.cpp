#include <vellib/velhex2bin.h>

#include <cstdint>
#include <cstring>

#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/velhex2bin_internal.h"
#include "util/velhexdigits_core.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velhex2bin"

/* False at the first character that is no digit. */
static bool vel_hex2bin_convert(const vel_textkernels *kernels, uint8_t *dest,
                                const uint8_t *digits, size_t len)
{
    for (size_t i = kernels->hex_decode(dest, digits, len); i < len; i += 2) {
        unsigned high = vel_hexdigits_values[digits[i]];
        unsigned low = vel_hexdigits_values[digits[i + 1]];
        if ((high | low) >= VEL_HEXDIGITS_INVALID)
            return false;
        dest[i / 2] = static_cast<uint8_t>(high << 4 | low);
    }
    dest[len / 2] = '\0';
    return true;
}

vel_error_t vel_hex2bin_with(const vel_textkernels *kernels, const char *hexstring, void **destptr,
                             size_t *destlenptr)
{
    *destptr = nullptr;
    *destlenptr = 0;

    size_t len = strlen(hexstring);
    if (len % 2)
        return VEL_ERROR_INCOMPLETE;
    size_t size = len / 2 + 1;
    auto *dest = static_cast<uint8_t *>(vel_malloc(size));
    if (!dest) {
        VEL_LOG(7, "not enough memory for binary buffer (%lu bytes)",
                static_cast<unsigned long>(size));
        return VEL_ERROR_NO_MEMORY;
    }

    auto *digits = static_cast<const uint8_t *>(static_cast<const void *>(hexstring));
    if (!vel_hex2bin_convert(kernels, dest, digits, len)) {
        vel_free(dest);
        return VEL_ERROR_OUT_OF_RANGE;
    }
    *destptr = dest;
    *destlenptr = len / 2;
    return VEL_ERROR_NONE;
}

vel_error_t vel_hex2bin(const char *hexstring, void **destptr, size_t *destlenptr)
{
    VEL_ASSERT(hexstring != NULL);
    VEL_ASSERT(destptr != NULL);
    VEL_ASSERT(destlenptr != NULL);

    return vel_hex2bin_with(vel_textkernels_best(), hexstring, destptr, destlenptr);
}
