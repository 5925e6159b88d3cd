#ifndef VELLIB_VELHEX2BIN_H
#define VELLIB_VELHEX2BIN_H

#include <stddef.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velhex2bin: hexadecimal digits as bytes. */

VEL_DECLARATIONS_BEGIN

/* Reads each two hexadecimal digits, of either case, as one byte, the upper four bits first.
 *
 * hexstring   the digits and nothing else.
 * destptr     receives a new block, also for an empty string. A NUL stands behind the data.
 * destlenptr  receives the number of bytes, without that NUL.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_INCOMPLETE for an odd length, whatever the string holds;
 * VEL_ERROR_OUT_OF_RANGE for a character that is no digit; or VEL_ERROR_NO_MEMORY, which alone is
 * logged.
 * Threads: any, at any time. */
VEL_API vel_error_t vel_hex2bin(const char *hexstring, void **destptr, size_t *destlenptr);

VEL_DECLARATIONS_END

#endif
