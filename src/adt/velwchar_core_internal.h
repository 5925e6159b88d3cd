#ifndef VELLIB_ADT_VELWCHAR_CORE_INTERNAL_H
#define VELLIB_ADT_VELWCHAR_CORE_INTERNAL_H

#include <cstddef>

#include "platform/widekernels.h"

/* Both directions on chosen kernels, so that a test reaches all of them. Each stands here in either
 * set of names. Results: 0, 1 if the room was too small, -1 for what is not valid. */

/* As vel_wchar_buffer_from_utf8; len is that of utf8 in bytes. */
int vel_wchar_buffer_from_utf8_with(const vel_widekernels *kernels, wchar_t *warray,
                                    size_t *warraylenptr, const char *utf8, size_t len);
int vel_punycode_wchar_buffer_from_utf8_with(const vel_widekernels *kernels, wchar_t *warray,
                                             size_t *warraylenptr, const char *utf8, size_t len);

/* utf8        may be NULL if *utf8lenptr is 0: then it measures.
 * utf8lenptr  holds the room in bytes, with the NUL, and receives the length without it. With a
 *             surrogate that has no partner it is the length so far, with what is no code point 0. */
int vel_wchar_to_utf8_buffer(const vel_widekernels *kernels, char *utf8, size_t *utf8lenptr,
                             const wchar_t *wstring);
int vel_punycode_wchar_to_utf8_buffer(const vel_widekernels *kernels, char *utf8,
                                      size_t *utf8lenptr, const wchar_t *wstring);

#endif
