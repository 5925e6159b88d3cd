#ifndef VELLIB_VELENDSWITH_H
#define VELLIB_VELENDSWITH_H

#include <vellib/velapi.h>

/* velendswith: the end of a string.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Tells whether string ends in suffix, byte for byte.
 *
 * Returns 1 if it does, also if suffix is empty, otherwise 0. */
VEL_API int vel_endswith(const char *string, const char *suffix);

VEL_DECLARATIONS_END

#endif
