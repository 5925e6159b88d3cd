#include "platform/textkernels.h"

#include "platform/textkernels_plain.h"

std::span<const vel_textkernels> vel_textkernels_all()
{
    return {&vel_plain_kernels, 1};
}

const vel_textkernels *vel_textkernels_best()
{
    return &vel_plain_kernels;
}
