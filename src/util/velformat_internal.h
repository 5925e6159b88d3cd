#ifndef VELLIB_UTIL_VELFORMAT_INTERNAL_H
#define VELLIB_UTIL_VELFORMAT_INTERNAL_H

#include <stdarg.h>

#include <cstddef>

#include <vellib/velerror.h>
#include <vellib/velformat.h>

/* Formats into a buffer.
 *
 * buffer        NULL to measure, when most is not logged.
 * bufferlenptr  holds the size of the buffer; receives the size that is needed, with the NUL.
 * arguments     the pairs; left as they are, as each lookup takes a copy.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_OUT_OF_RANGE if all is well but the buffer is too small;
 * VEL_ERROR_INVALID_ARGUMENT if a lookup met a value of NULL; or VEL_ERROR_NO_MEMORY. */
vel_error_t vel_format_internal(char *buffer, size_t *bufferlenptr, const char *format,
                                va_list arguments);

#endif
