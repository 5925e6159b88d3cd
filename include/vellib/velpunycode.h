#ifndef VELLIB_VELPUNYCODE_H
#define VELLIB_VELPUNYCODE_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velpunycode: Punycode (RFC 3492) on strings: a label of a host name, without the prefix "xn--".
 * No letter is folded and nothing is normalised.
 *
 * Threads: any.
 * Note: an empty string aborts the process. A program tests what comes from outside before. */

VEL_DECLARATIONS_BEGIN

/* Encodes a label.
 *
 * input   the label; NULL is refused.
 * output  receives a new string; NULL is refused.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_INVALID_ARGUMENT for NULL; VEL_ERROR_GENERIC for bad UTF-8,
 * which is logged, and for a lack of memory around the conversion; VEL_ERROR_OUT_OF_RANGE for an
 * overflow; or VEL_ERROR_NO_MEMORY. */
VEL_API vel_error_t vel_punycode_encode(const char *input, char **output);

/* Decodes a label.
 *
 * input   the text of the label; NULL is refused.
 * output  receives a new string; NULL is refused.
 *
 * Returns as vel_punycode_encode does; also VEL_ERROR_OUT_OF_RANGE for a text that is no Punycode,
 * and VEL_ERROR_GENERIC for one that holds what no UTF-8 can, which is logged. */
VEL_API vel_error_t vel_punycode_decode(const char *input, char **output);

VEL_DECLARATIONS_END

#endif
