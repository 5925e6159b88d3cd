#ifndef VELLIB_VELBASE64_H
#define VELLIB_VELBASE64_H

#include <stddef.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velbase64: bytes as text in the standard alphabet of RFC 4648, section 4.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Encodes bytes, with "=" padding and without line breaks (RFC 4648, section 4).
 *
 * buf  the bytes; not NULL, even where len is 0.
 * len  their number.
 *
 * Returns a new string, or NULL after logging that there is not enough memory or that the length
 * of the text does not fit in a size_t. */
VEL_API char *vel_base64_encode(const void *buf, size_t len);

/* Decodes text to bytes.
 *
 * White space (tab, line feed, vertical tab, form feed, carriage return, space) is skipped
 * anywhere. The first "=" ends the data; behind it only white space and one more "=" may stand.
 *
 * destptr     receives a new block, also if the text holds no data. A NUL stands behind the data.
 * destlenptr  receives the number of bytes, without that NUL.
 * source      the text, which may hold any byte; not NULL, even where sourcelen is 0.
 * sourcelen   its length in bytes.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_INVALID_ARGUMENT for a byte that does not belong to the text
 * or behind its padding; VEL_ERROR_INVALID_SYNTAX for a third "="; or VEL_ERROR_NO_MEMORY. Failures
 * are logged.
 *
 * Note: padding is optional and not compared with the data: "Zm8", "Zm8=" and "Zm8==" are the
 * same. A single digit left over gives a byte of its six bits and two zero bits. */
VEL_API vel_error_t vel_base64_decode(void **destptr, size_t *destlenptr, const char *source,
                                      size_t sourcelen);

VEL_DECLARATIONS_END

#endif
