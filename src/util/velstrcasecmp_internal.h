#ifndef VELLIB_UTIL_VELSTRCASECMP_INTERNAL_H
#define VELLIB_UTIL_VELSTRCASECMP_INTERNAL_H

#include <cctype>

/* Lowers a byte by the process's locale; the result is signed, so that bytes from 0x80 upwards rank
 * below ASCII. What tolower itself makes of a negative byte differs: glibc gives the positive one
 * back, and GCC optimises as if it did not. */
static inline int vel_strcasecmp_lower(char byte)
{
    return static_cast<signed char>(tolower(static_cast<unsigned char>(byte)));
}

#endif
