#include "platform/shakernels.h"

#include "platform/shakernels_plain.h"

std::span<const vel_shakernels> vel_shakernels_all()
{
    return {&vel_plain_shakernels, 1};
}

const vel_shakernels *vel_shakernels_best()
{
    return &vel_plain_shakernels;
}
