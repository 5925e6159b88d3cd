#ifndef VELLIB_PLATFORM_TEXTKERNELS_PLAIN_H
#define VELLIB_PLATFORM_TEXTKERNELS_PLAIN_H

#include "platform/textkernels.h"

/* The kernels that take nothing, so that the callers' plain loops do everything. */

static bool vel_plain_usable()
{
    return true;
}

static size_t vel_plain_encode(char *, const uint8_t *, size_t)
{
    return 0;
}

static size_t vel_plain_decode(uint8_t *, const uint8_t *, size_t)
{
    return 0;
}

static size_t vel_plain_percent_encode(char *, size_t, const uint8_t *, size_t, const uint8_t *,
                                       size_t *countptr)
{
    *countptr = 0;
    return 0;
}

static size_t vel_plain_percent_decode(uint8_t *, size_t, const uint8_t *, size_t, size_t *countptr)
{
    *countptr = 0;
    return 0;
}

static constexpr vel_textkernels vel_plain_kernels = {
    "plain",          vel_plain_usable, vel_plain_encode,         vel_plain_decode,
    vel_plain_encode, vel_plain_decode, vel_plain_percent_encode, vel_plain_percent_decode,
};

#endif
