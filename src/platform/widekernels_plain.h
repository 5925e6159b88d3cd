#ifndef VELLIB_PLATFORM_WIDEKERNELS_PLAIN_H
#define VELLIB_PLATFORM_WIDEKERNELS_PLAIN_H

#include "platform/widekernels.h"

/* The kernels that take nothing, so that the callers' plain loops do everything. */

static bool vel_plain_usable()
{
    return true;
}

static size_t vel_plain_to_wide(wchar_t *, size_t, const char *, size_t, size_t *writtenptr)
{
    *writtenptr = 0;
    return 0;
}

static size_t vel_plain_to_utf8(char *, size_t, const wchar_t *, size_t, size_t *writtenptr)
{
    *writtenptr = 0;
    return 0;
}

static constexpr vel_widekernels vel_plain_kernels = {
    "plain",
    vel_plain_usable,
    vel_plain_to_wide,
    vel_plain_to_utf8,
};

#endif
