#ifndef VELLIB_VELSTRDUP_LOWERCASE_H
#define VELLIB_VELSTRDUP_LOWERCASE_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velstrdup_lowercase: a copy in lower case, of ASCII letters alone and in any locale.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Copies a string with A to Z replaced by a to z.
 *
 * Returns a new string, or NULL if there is not enough memory. Logs nothing. */
VEL_API char *vel_strdup_lowercase(const char *string);

/* Copies at most n bytes of a string with A to Z replaced by a to z.
 *
 * string  at most n bytes of it are read, so it need not be terminated within them.
 *
 * Returns a new string, or NULL if there is not enough memory. Logs nothing. */
VEL_API char *vel_strndup_lowercase(const char *string, size_t n);

VEL_DECLARATIONS_END

#endif
