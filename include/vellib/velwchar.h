#ifndef VELLIB_VELWCHAR_H
#define VELLIB_VELWCHAR_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velwchar: strings in UTF-8 to strings of wide characters and back. A wide character is a wchar_t
 * of 32 bits, and holds one code point (UTF-32).
 *
 * UTF-8 is validated as RFC 3629 has it: overlong forms, surrogates and values above U+10FFFF are
 * refused.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Counts the characters of a wide string before its terminator. */
VEL_API size_t vel_wchar_strlen(const wchar_t *wstring);

/* Converts a wide string to UTF-8. A pair of surrogates is taken as the one code point it stands
 * for.
 *
 * Returns a new string, or NULL for a surrogate without its partner or a value above U+10FFFF, which
 * is logged, or if there is not enough memory, which is not.
 *
 * Note: the top bit of a wide character is dropped, so 0x80000041 gives "A", and 0x80000000 a NUL in
 * the middle of the string. A character with this bit is not seen as a surrogate: 0x8000d800 gives
 * three bytes that vel_wchar_from_utf8 refuses. */
VEL_API char *vel_wchar_to_utf8(const wchar_t *wstring);

/* Converts UTF-8 to a wide string.
 *
 * Returns a new wide string, for vel_free, or NULL for what is not valid UTF-8, which is logged, or
 * if there is not enough memory, which is not. */
VEL_API wchar_t *vel_wchar_from_utf8(const char *utf8);

/* Converts UTF-8 to wide characters in an array of the caller's.
 *
 * warray        receives the characters that fit, and a terminator if it fits behind them. NULL
 *               only measures.
 * warraylenptr  holds the capacity of the array in wide characters, 0 if there is none, and
 *               receives the number of characters in the whole string without a terminator, or 0 if
 *               it is not valid.
 * utf8          the string.
 *
 * Returns 0, 1 if the capacity is below that number, or -1 for what is not valid UTF-8, which is
 * logged; the array may then hold what came before it.
 *
 * Note: a capacity of just that number gives 0 without a terminator. Measuring gives 1, except for
 * an empty string. */
VEL_API int vel_wchar_buffer_from_utf8(wchar_t *warray, size_t *warraylenptr, const char *utf8);

VEL_DECLARATIONS_END

#endif
