#ifndef VELLIB_VELPUNYCODE_VELURL_H
#define VELLIB_VELPUNYCODE_VELURL_H

#include <stddef.h>
#include <stdint.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velpunycode_velurl: Punycode (RFC 3492) on arrays of code points. The Punycode text is such an
 * array too, with an ASCII character in each element. Nothing here is logged.
 *
 * The two functions on a caller's array measure as well: with NULL and a capacity of 0 they give
 * the length needed. Where the array is too small they fill it and return 223, a code without text
 * that comes from nowhere else.
 *
 * Threads: any.
 * Note: the time grows with the square of the length: limit what comes from outside. */

VEL_DECLARATIONS_BEGIN

/* Encodes code points, whatever the name says (RFC 3492, 6.3), with digits in lower case.
 *
 * punycode     receives the text; NULL only with a capacity of 0.
 * punycodelen  the capacity in elements; receives the length of the whole text, or on failure of
 *              what came before.
 * warray       the code points.
 * warraylen    their number.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_OUT_OF_RANGE for a value of 0x110000 or above and for an
 * overflow; or 223 if the capacity is too small. */
VEL_API vel_error_t vel_punycode_velurl_decode_from_warray(uint32_t *punycode, size_t *punycodelen,
                                                           const uint32_t *warray,
                                                           size_t warraylen);

/* Decodes a text, digits in either case (RFC 3492, 6.2).
 *
 * warray       receives the values; NULL only with a capacity of 0.
 * warraylen    the capacity in elements; receives the number of all values, or on failure of those
 *              that came before.
 * punycode     the text.
 * punycodelen  its length in elements.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_OUT_OF_RANGE for an element that does not belong to the text,
 * for an end within a number and for an overflow; or 223 if the capacity is too small.
 *
 * Note: a value need not be a code point. Surrogates and numbers above 0x10ffff may come out. */
VEL_API vel_error_t vel_punycode_velurl_decode_to_warray(uint32_t *warray, size_t *warraylen,
                                                         const uint32_t *punycode,
                                                         size_t punycodelen);

/* Encodes code points to a new array, as vel_punycode_velurl_decode_from_warray does.
 *
 * punycode  receives the array, for vel_free; NULL also where the text is empty.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_OUT_OF_RANGE or VEL_ERROR_NO_MEMORY. */
VEL_API vel_error_t vel_punycode_velurl_encode(const uint32_t *warray, size_t warraylen,
                                               uint32_t **punycode, size_t *punycodelen);

/* Decodes a text to a new array, as vel_punycode_velurl_decode_to_warray does.
 *
 * warray  receives the array, for vel_free; NULL also where there are no values.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_OUT_OF_RANGE or VEL_ERROR_NO_MEMORY. */
VEL_API vel_error_t vel_punycode_velurl_decode(const uint32_t *punycode, size_t punycodelen,
                                               uint32_t **warray, size_t *warraylen);

VEL_DECLARATIONS_END

#endif
