#ifndef VELLIB_VELSTRSTRIP_H
#define VELLIB_VELSTRSTRIP_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velstrstrip: text without the white space at its ends, by isspace of the process's locale.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Moves a pointer and a length to the text without white space at both ends. The bytes stay.
 *
 * strptr     the text, not necessarily terminated.
 * strlenptr  its length in bytes.
 *
 * Where all is white space the pointer stays and the length becomes 0. */
VEL_API void vel_strptrstrip(const char **strptr, size_t *strlenptr);

/* Copies a string without the white space at both ends.
 *
 * Returns a new string, or NULL if there is not enough memory. Logs nothing. */
VEL_API char *vel_strstrip(const char *str);

VEL_DECLARATIONS_END

#endif
