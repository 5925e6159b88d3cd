#ifndef VELLIB_VELSTRCASECMP_H
#define VELLIB_VELSTRCASECMP_H

#include <vellib/velapi.h>

/* velstrcasecmp: comparison without regard to case.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Compares two strings, taking each byte through tolower of the process's locale.
 *
 * Returns 0 if they are equal, otherwise the difference of the first two bytes that differ, which
 * are taken as signed: bytes from 0x80 upwards come before ASCII. */
VEL_API int vel_strcasecmp(const char *s1, const char *s2);

VEL_DECLARATIONS_END

#endif
