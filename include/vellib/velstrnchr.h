#ifndef VELLIB_VELSTRNCHR_H
#define VELLIB_VELSTRNCHR_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velstrnchr: a byte within bytes.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Finds the first byte that is c among the first n, also behind a NUL.
 *
 * string  n bytes, terminated or not.
 * c       compared as a char; it may be NUL.
 *
 * Returns a pointer into string, or NULL. */
VEL_API char *vel_strnchr(const char *string, size_t n, int c);

VEL_DECLARATIONS_END

#endif
