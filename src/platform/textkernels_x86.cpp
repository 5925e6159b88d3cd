#include "platform/textkernels.h"

#include "platform/textkernels_avx2.h"
#include "platform/textkernels_avx512.h"
#include "platform/textkernels_plain.h"

static constexpr vel_textkernels vel_x86_kernels[] = {
    vel_avx512_kernels,
    vel_avx2_kernels,
    vel_plain_kernels,
};

std::span<const vel_textkernels> vel_textkernels_all()
{
    return vel_x86_kernels;
}

const vel_textkernels *vel_textkernels_best()
{
    const vel_textkernels *kernels = vel_x86_kernels;
    while (!kernels->usable())
        kernels++;
    return kernels;
}
