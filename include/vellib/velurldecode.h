#ifndef VELLIB_VELURLDECODE_H
#define VELLIB_VELURLDECODE_H

#include <stddef.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velurldecode: the bytes behind percent-encoded text (RFC 3986, 2.1). "%" and two digits of either
 * case give a byte, "+" gives a space, and any other byte, whichever it is, gives itself.
 *
 * Threads: any.
 * Note: "%00" gives a NUL in the middle, where a reader of strings stops. Who must not be deceived
 * takes vel_urldecode_buffer and its length. */

VEL_DECLARATIONS_BEGIN

/* Decodes a string.
 *
 * Returns a new string, or NULL after logging that the text is bad or that there is not enough
 * memory. */
VEL_API char *vel_urldecode(const char *string);

/* Decodes a string.
 *
 * dstptr  receives a new string, also where src is empty.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_INCOMPLETE for an escape that the end of src cuts off;
 * VEL_ERROR_INVALID_SYNTAX for a "%" without digits behind it; VEL_ERROR_NO_MEMORY; or
 * VEL_ERROR_INVALID_ARGUMENT if the size of the result does not fit in a size_t. Failures are
 * logged. */
VEL_API vel_error_t vel_urldecode_string(char **dstptr, const char *src);

/* Decodes bytes into the caller's memory, as much as there is room for.
 *
 * dst        the room; NULL only with a room of 0, to measure. What was decoded before a failure
 *            stays in it.
 * dstlenptr  the room in bytes; receives the length of the whole result, without terminator, or of
 *            what came before a bad escape.
 * src        the text; not NULL, even where srclen is 0.
 * srclen     its length in bytes.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_INCOMPLETE and VEL_ERROR_INVALID_SYNTAX as for
 * vel_urldecode_string; VEL_ERROR_OUT_OF_RANGE for too little room, whatever else was wrong; or
 * VEL_ERROR_INVALID_ARGUMENT if the length does not fit in a size_t. Logs nothing.
 *
 * Note: a terminator is written if there is room for it. A room of just the length is success
 * without one. */
VEL_API vel_error_t vel_urldecode_buffer(char *dst, size_t *dstlenptr, const char *src,
                                         size_t srclen);

VEL_DECLARATIONS_END

#endif
