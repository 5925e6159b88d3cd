#ifndef VELLIB_VELI64TOSTR_H
#define VELLIB_VELI64TOSTR_H

#include <stdint.h>

#include <vellib/velapi.h>

/* veli64tostr: the decimal text of a number.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Converts a number to decimal digits, with a "-" before them if it is negative.
 *
 * Returns a new string, or NULL if there is not enough memory. Logs nothing. */
VEL_API char *vel_i64tostr(int64_t value);

VEL_DECLARATIONS_END

#endif
