#ifndef VELLIB_UTIL_VELURLENCODE_INTERNAL_H
#define VELLIB_UTIL_VELURLENCODE_INTERNAL_H

#include <vellib/velurlencode.h>

#include "platform/textkernels.h"

/* The exported function on chosen kernels, so that a test reaches all of them. */
vel_error_t vel_urlencode_buffer_with(const vel_textkernels *kernels, velurlencode *velurlencode,
                                      char *dst, size_t *dstlenptr, const char *src, size_t srclen);

#endif
