#ifndef VELLIB_UTIL_VELURLDECODE_INTERNAL_H
#define VELLIB_UTIL_VELURLDECODE_INTERNAL_H

#include <vellib/velurldecode.h>

#include "platform/textkernels.h"

/* The exported function on chosen kernels, so that a test reaches all of them. */
vel_error_t vel_urldecode_buffer_with(const vel_textkernels *kernels, char *dst, size_t *dstlenptr,
                                      const char *src, size_t srclen);

#endif
