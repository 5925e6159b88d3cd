#include "platform/widekernels.h"

#include "platform/widekernels_avx2.h"
#include "platform/widekernels_avx512.h"
#include "platform/widekernels_plain.h"

static constexpr vel_widekernels vel_x86_kernels[] = {
    vel_avx512_kernels,
    vel_avx2_kernels,
    vel_plain_kernels,
};

std::span<const vel_widekernels> vel_widekernels_all()
{
    return vel_x86_kernels;
}

const vel_widekernels *vel_widekernels_best()
{
    const vel_widekernels *kernels = vel_x86_kernels;
    while (!kernels->usable())
        kernels++;
    return kernels;
}
