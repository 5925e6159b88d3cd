#ifndef VELLIB_VELHASHFUNC_H
#define VELLIB_VELHASHFUNC_H

#include <stdint.h>

#include <vellib/velapi.h>

/* velhashfunc: the hash of strings that the whole library uses.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Gives the hash of a string. It is the same on every processor and in every version.
 *
 * string  is taken as groups of eight bytes, the first byte of a group highest; a last group of
 *         fewer bytes, which may be empty, stands in the low bytes. From 0 onward, the hash is
 *         rotated left by 5 bits and combined with each group by exclusive or.
 *
 * Note: the hash is fixed and has no seed, so whoever chooses the keys can make them collide. */
VEL_API uint64_t vel_hashfunc_string(const char *string);

VEL_DECLARATIONS_END

#endif
