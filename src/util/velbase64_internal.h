#ifndef VELLIB_UTIL_VELBASE64_INTERNAL_H
#define VELLIB_UTIL_VELBASE64_INTERNAL_H

#include <vellib/velbase64.h>

#include "platform/textkernels.h"

/* The exported functions on chosen kernels, so that a test reaches all of them. */

char *vel_base64_encode_with(const vel_textkernels *kernels, const void *buf, size_t len);

vel_error_t vel_base64_decode_with(const vel_textkernels *kernels, void **destptr,
                                   size_t *destlenptr, const char *source, size_t sourcelen);

#endif
