#ifndef VELLIB_VELTRUNCATE_H
#define VELLIB_VELTRUNCATE_H

#include <stdint.h>

#include <vellib/velapi.h>

/* veltruncate: the length of a file. */

VEL_DECLARATIONS_BEGIN

/* Cuts a file to a length, or fills it up to it with zero bytes, as truncate does.
 *
 * filename  of the file.
 * length    in bytes.
 *
 * Returns 0, or -1 with errno set; logs nothing.
 * Threads: any. */
VEL_API int vel_truncate(const char *filename, int64_t length);

VEL_DECLARATIONS_END

#endif
