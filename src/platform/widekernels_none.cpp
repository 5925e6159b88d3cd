#include "platform/widekernels.h"

#include "platform/widekernels_plain.h"

std::span<const vel_widekernels> vel_widekernels_all()
{
    return {&vel_plain_kernels, 1};
}

const vel_widekernels *vel_widekernels_best()
{
    return &vel_plain_kernels;
}
