#ifndef VELLIB_VELSNPRINTF_H
#define VELLIB_VELSNPRINTF_H

#include <stdarg.h>
#include <stddef.h>

#include <vellib/velapi.h>

/* velsnprintf: formatting into a buffer.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Formats into a buffer and always terminates what it stores.
 *
 * str     the buffer, or NULL to measure.
 * size    its size in bytes; 0 if str is NULL.
 * format  as for printf.
 *
 * Returns the length of the whole text without the NUL, which can be more than was stored, or a
 * negative number if the format is in error. */
VEL_API int vel_snprintf(char *str, size_t size, const char *format, ...) VEL_PRINTF(3, 4);

/* Does what vel_snprintf does, with an argument list, which is used up. */
VEL_API int vel_vsnprintf(char *str, size_t size, const char *format, va_list ap) VEL_PRINTF(3, 0);

VEL_DECLARATIONS_END

#endif
