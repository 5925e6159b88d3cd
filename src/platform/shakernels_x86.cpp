#include "platform/shakernels.h"

#include <atomic>

#include "platform/shakernels_plain.h"
#include "platform/shakernels_shani.h"

static constexpr vel_shakernels vel_x86_shakernels[] = {vel_shani_kernels, vel_plain_shakernels};

std::span<const vel_shakernels> vel_shakernels_all()
{
    return vel_x86_shakernels;
}

/* The answer is kept: asking the processor takes longer than a short hash, and under a hypervisor
 * twenty times as long. Whoever asks first at the same time finds the same. */
const vel_shakernels *vel_shakernels_best()
{
    static std::atomic<const vel_shakernels *> best{nullptr};
    const vel_shakernels *kernels = best.load(std::memory_order_relaxed);
    if (!kernels) {
        kernels = vel_x86_shakernels;
        while (!kernels->usable())
            kernels++;
        best.store(kernels, std::memory_order_relaxed);
    }
    return kernels;
}
