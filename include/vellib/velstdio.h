#ifndef VELLIB_VELSTDIO_H
#define VELLIB_VELSTDIO_H

#include <vellib/velapi.h>

/* velstdio: printing where nothing may be allocated.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Prints to the standard error stream.
 *
 * Returns what fprintf returns. */
VEL_API int vel_stdio_printf_stderr(const char *format, ...) VEL_PRINTF(1, 2);

VEL_DECLARATIONS_END

#endif
