#ifndef VELLIB_VELSTRTOI64_H
#define VELLIB_VELSTRTOI64_H

#include <stdint.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velstrtoi64: a decimal number from text.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Converts white space, an optional sign and decimal digits to a number.
 *
 * str  the text.
 * out  receives the number; 0 where the result is neither VEL_ERROR_NONE nor
 *      VEL_ERROR_INCOMPLETE.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_INCOMPLETE if something follows the digits, also white space;
 * VEL_ERROR_INVALID_SYNTAX if there is no digit; VEL_ERROR_OUT_OF_RANGE if the number does not fit,
 * whatever follows it. Logs nothing. */
VEL_API vel_error_t vel_strtoi64(const char *str, int64_t *out);

VEL_DECLARATIONS_END

#endif
