#ifndef VELLIB_VELSTRDUPF_H
#define VELLIB_VELSTRDUPF_H

#include <stdarg.h>

#include <vellib/velapi.h>

/* velstrdupf: formatting into a new string that is the result.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Formats into a new string.
 *
 * format  as for printf.
 *
 * Returns the string, or NULL if the format is in error or there is not enough memory. Logs
 * nothing. */
VEL_API char *vel_strdupf(const char *format, ...) VEL_PRINTF(1, 2);

/* Does what vel_strdupf does, with an argument list, which is used up. */
VEL_API char *vel_vstrdupf(const char *format, va_list ap) VEL_PRINTF(1, 0);

VEL_DECLARATIONS_END

#endif
