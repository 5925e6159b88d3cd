#ifndef VELLIB_VELURLENCODE_H
#define VELLIB_VELURLENCODE_H

#include <stddef.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velurlencode: percent encoding (RFC 3986, 2.1) of bytes for a URL. A table says which bytes stand
 * for themselves: the letters, the digits and !'()*-._~ unless vel_urlencode_skip adds more. All
 * others, the space and those above 127 included, become "%" and two upper-case digits.
 *
 * Threads: any number may encode with one table while none changes it.
 * Note: a space becomes "%20", never "+". */
typedef struct velurlencode velurlencode;

VEL_DECLARATIONS_BEGIN

/* Encodes a string with the default table. For one that is used again, create a table.
 *
 * Returns a new string, or NULL after logging that there is not enough memory. */
VEL_API char *vel_urlencode(const char *string);

/* Creates a default table.
 *
 * Returns it, for vel_urlencode_destroy, or NULL after logging that there is not enough memory. */
VEL_API velurlencode *vel_urlencode_create(void);

/* Destroys a table. NULL is not accepted. */
VEL_API void vel_urlencode_destroy(velurlencode *velurlencode);

/* Makes the table the default one again. */
VEL_API void vel_urlencode_reset(velurlencode *velurlencode);

/* Lets the bytes of a string stand for themselves, besides those that already do, until the next
 * reset: "/" for a path. */
VEL_API void vel_urlencode_skip(velurlencode *velurlencode, const char *skipchars);

/* Encodes a string.
 *
 * dstptr  receives a new string, also where src is empty.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_NO_MEMORY; or VEL_ERROR_INVALID_ARGUMENT if the size of the
 * result does not fit in a size_t. Failures are logged. */
VEL_API vel_error_t vel_urlencode_string(velurlencode *velurlencode, char **dstptr,
                                         const char *src);

/* Encodes bytes into the caller's memory, as much as there is room for: the last escape may be cut.
 * A NUL among the bytes becomes "%00".
 *
 * dst        the room; NULL only with a room of 0, to measure.
 * dstlenptr  the room in bytes; receives the length of the whole result, without terminator, also
 *            where there is too little room.
 * src        the bytes; not NULL, even where srclen is 0.
 * srclen     their number.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_OUT_OF_RANGE for too little room; or VEL_ERROR_INVALID_ARGUMENT
 * if the length does not fit in a size_t. Logs nothing.
 *
 * Note: a terminator is written if there is room for it. A room of just the length is success
 * without one. */
VEL_API vel_error_t vel_urlencode_buffer(velurlencode *velurlencode, char *dst, size_t *dstlenptr,
                                         const char *src, size_t srclen);

VEL_DECLARATIONS_END

#endif
