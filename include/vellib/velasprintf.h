#ifndef VELLIB_VELASPRINTF_H
#define VELLIB_VELASPRINTF_H

#include <stdarg.h>

#include <vellib/velapi.h>

/* velasprintf: formatting into a new string that is an output.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Formats into a new string.
 *
 * strp    receives the string.
 * format  as for printf.
 *
 * Returns the length of the string, or a negative number if the format is in error or there is
 * not enough memory. Logs nothing. */
VEL_API int vel_asprintf(char **strp, const char *format, ...) VEL_PRINTF(2, 3);

/* Does what vel_asprintf does, with an argument list, which is used up. */
VEL_API int vel_vasprintf(char **strp, const char *format, va_list ap) VEL_PRINTF(2, 0);

VEL_DECLARATIONS_END

#endif
