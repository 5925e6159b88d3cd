#ifndef VELLIB_VELPUNYCODE_WCHAR_H
#define VELLIB_VELPUNYCODE_WCHAR_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velpunycode_wchar: the functions of velwchar.h once more, under names of their own, for the
 * Punycode module to stand by itself. They differ in these names and in the path in lines of log.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Counts the characters of a wide string, as vel_wchar_strlen does. */
VEL_API size_t vel_punycode_wchar_strlen(const wchar_t *wstring);

/* Converts a wide string to UTF-8, as vel_wchar_to_utf8 does. */
VEL_API char *vel_punycode_wchar_to_utf8(const wchar_t *wstring);

/* Converts UTF-8 to a wide string, as vel_wchar_from_utf8 does. */
VEL_API wchar_t *vel_punycode_wchar_from_utf8(const char *utf8);

/* Converts UTF-8 to wide characters in an array, as vel_wchar_buffer_from_utf8 does. */
VEL_API int vel_punycode_wchar_buffer_from_utf8(wchar_t *warray, size_t *warraylenptr,
                                                const char *utf8);

VEL_DECLARATIONS_END

#endif
