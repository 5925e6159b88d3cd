#ifndef VELLIB_VELWCS_H
#define VELLIB_VELWCS_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velwcs: strings of wide characters, which end in a zero. Lengths are in wide characters.
 * Nothing is logged.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Counts the characters of a wide string before its terminator. */
VEL_API size_t vel_wcslen(const wchar_t *wstring);

/* Compares two wide strings.
 *
 * Returns 0 if they are equal, or else the first character of s1 that differs less that of s2, both
 * taken as unsigned numbers of 32 bits, so that the result may wrap around. */
VEL_API int vel_wcscmp(const wchar_t *s1, const wchar_t *s2);

/* Compares at most the first n characters of two wide strings.
 *
 * Returns what vel_wcscmp does; 0 if n is 0. */
VEL_API int vel_wcsncmp(const wchar_t *s1, const wchar_t *s2, size_t n);

/* Copies a wide string.
 *
 * Returns the copy, for vel_free, or NULL if there is not enough memory. */
VEL_API wchar_t *vel_wcsdup(const wchar_t *wstring);

/* Copies at most the first n characters of a wide string, and terminates the copy.
 *
 * Returns the copy, for vel_free, or NULL if there is not enough memory. */
VEL_API wchar_t *vel_wcsndup(const wchar_t *wstring, size_t n);

VEL_DECLARATIONS_END

#endif
