#ifndef VELLIB_VELCONVERT_H
#define VELLIB_VELCONVERT_H

#include <stddef.h>
#include <stdint.h>

#include <vellib/velapi.h>

/* velconvert: changes of type that say what becomes of a value that does not fit.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Stores a size in an int.
 *
 * dest  receives the value; its lowest bits where it does not fit.
 * src   the size.
 *
 * Returns 0, or -1 if it does not fit. */
VEL_API int vel_convert_int_from_size_t(int *dest, size_t src);

/* Stores a size in an int, at most the largest int.
 *
 * Returns 0, or 1 if the value was limited. */
VEL_API int vel_convert_int_from_size_t_and_limit(int *dest, size_t src);

/* Stores a size in an unsigned int, at most the largest.
 *
 * Returns 0, or 1 if the value was limited. */
VEL_API int vel_convert_uint_from_size_t_and_limit(unsigned int *dest, size_t src);

/* Rounds to the nearest whole number, halves away from zero.
 *
 * Returns the number; the lowest one if it does not fit. */
VEL_API long vel_convert_long_from_double_round(double value);

/* Rounds to the nearest whole number, halves away from zero.
 *
 * Returns the number; the lowest one if it does not fit. */
VEL_API int64_t vel_convert_i64_from_double_round(double value);

/* Stores a pointer to char as a pointer to unsigned char. */
VEL_API void vel_convert_custr_from_cstr(const unsigned char **destptr, const char *src);

/* Stores a pointer to unsigned char as a pointer to char. */
VEL_API void vel_convert_cstr_from_custr(const char **destptr, const unsigned char *src);

VEL_DECLARATIONS_END

#endif
