#ifndef VELLIB_VELSTRNDUP_H
#define VELLIB_VELSTRNDUP_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velstrndup: a copy of the beginning of a string.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Copies at most n bytes of a string, and terminates them.
 *
 * string  at most n bytes of it are read, so it need not be terminated within them.
 *
 * Returns a new string, or NULL if there is not enough memory. Logs nothing. */
VEL_API char *vel_strndup(const char *string, size_t n);

VEL_DECLARATIONS_END

#endif
