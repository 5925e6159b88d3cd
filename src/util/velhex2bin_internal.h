#ifndef VELLIB_UTIL_VELHEX2BIN_INTERNAL_H
#define VELLIB_UTIL_VELHEX2BIN_INTERNAL_H

#include <vellib/velhex2bin.h>

#include "platform/textkernels.h"

/* The exported function on chosen kernels, so that a test reaches all of them. */
vel_error_t vel_hex2bin_with(const vel_textkernels *kernels, const char *hexstring, void **destptr,
                             size_t *destlenptr);

#endif
