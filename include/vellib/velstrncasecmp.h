#ifndef VELLIB_VELSTRNCASECMP_H
#define VELLIB_VELSTRNCASECMP_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velstrncasecmp: comparison of beginnings without regard to case.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Compares at most n bytes of two strings as vel_strcasecmp does.
 *
 * Returns what vel_strcasecmp returns; 0 if n is 0. */
VEL_API int vel_strncasecmp(const char *s1, const char *s2, size_t n);

VEL_DECLARATIONS_END

#endif
