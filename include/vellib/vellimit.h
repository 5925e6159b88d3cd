#ifndef VELLIB_VELLIMIT_H
#define VELLIB_VELLIMIT_H

#include <stddef.h>

#include <vellib/velapi.h>

/* vellimit: the largest values of the unsigned types, for languages without C's headers.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Returns the largest unsigned int. */
VEL_API unsigned int vel_limit_max_unsigned_int(void);

/* Returns the largest unsigned long. */
VEL_API unsigned long vel_limit_max_unsigned_long(void);

/* Returns the largest size_t. */
VEL_API size_t vel_limit_max_size_t(void);

VEL_DECLARATIONS_END

#endif
