#ifndef VELLIB_VELBIN2HEX_H
#define VELLIB_VELBIN2HEX_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velbin2hex: bytes as hexadecimal digits. */

VEL_DECLARATIONS_BEGIN

/* Writes each byte as two lower-case hexadecimal digits, the upper four bits first.
 *
 * buf  the bytes; not NULL, even where len is 0.
 * len  their number.
 *
 * Returns a new string, or NULL after logging that there is not enough memory or that the length
 * of the text does not fit in a size_t.
 * Threads: any, at any time. */
VEL_API char *vel_bin2hex(const void *buf, size_t len);

VEL_DECLARATIONS_END

#endif
