#ifndef VELLIB_VELSIZET_H
#define VELLIB_VELSIZET_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velsizet: arithmetic on sizes that does not wrap.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Multiplies two sizes.
 *
 * Returns the product, or the largest size_t where the product is larger. */
VEL_API size_t vel_sizet_multiply_and_limit(size_t a, size_t b);

VEL_DECLARATIONS_END

#endif
