#ifndef VELLIB_VELSTRDUP_H
#define VELLIB_VELSTRDUP_H

#include <vellib/velapi.h>

/* velstrdup: a copy of a string.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Copies a string.
 *
 * Returns a new string, or NULL if there is not enough memory. Logs nothing. */
VEL_API char *vel_strdup(const char *string);

VEL_DECLARATIONS_END

#endif
