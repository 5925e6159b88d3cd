#ifndef VELLIB_UTIL_VELBIN2HEX_INTERNAL_H
#define VELLIB_UTIL_VELBIN2HEX_INTERNAL_H

#include <vellib/velbin2hex.h>

#include "platform/textkernels.h"

/* The exported function on chosen kernels, so that a test reaches all of them. */
char *vel_bin2hex_with(const vel_textkernels *kernels, const void *buf, size_t len);

#endif
