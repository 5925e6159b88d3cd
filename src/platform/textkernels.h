#ifndef VELLIB_PLATFORM_TEXTKERNELS_H
#define VELLIB_PLATFORM_TEXTKERNELS_H

#include <cstddef>
#include <cstdint>
#include <span>

/* platform/textkernels.h: base64, hex and percent encoding in the wide steps of a processor.
 *
 * A kernel converts from the front as much as its steps fit, and returns how much of the source it
 * took, which may be nothing; the caller's plain loop does the rest. It reads nothing behind the
 * source, and writes the result of what it took and nothing behind that. */
struct vel_textkernels {
    const char *name;
    bool (*usable)(); /* on the processor at hand */

    /* Bytes to digits; the number taken is a multiple of 3. */
    size_t (*base64_encode)(char *dest, const uint8_t *source, size_t len);

    /* Digits to bytes, in whole groups: the number taken is a multiple of 4 and ends before the
     * first byte that is no digit. */
    size_t (*base64_decode)(uint8_t *dest, const uint8_t *source, size_t len);

    /* Bytes to lower-case digits. */
    size_t (*hex_encode)(char *dest, const uint8_t *source, size_t len);

    /* Digits of either case to bytes: the number taken is even and ends before the first byte that
     * is no digit. */
    size_t (*hex_decode)(uint8_t *dest, const uint8_t *source, size_t len);

    /* The two of percent encoding give the length of the result in *countptr. With NULL for dest
     * they only count; otherwise they stop where the room could be too small. */

    /* Bytes to text. entries has 256 bytes, 0 for each byte that needs an escape. */
    size_t (*percent_encode)(char *dest, size_t room, const uint8_t *source, size_t len,
                             const uint8_t *entries, size_t *countptr);

    /* Text to bytes, in whole escapes and ending before a bad one; "+" gives a space. */
    size_t (*percent_decode)(uint8_t *dest, size_t room, const uint8_t *source, size_t len,
                             size_t *countptr);
};

/* All that this build has, the best first. The last takes nothing and is usable everywhere. */
std::span<const vel_textkernels> vel_textkernels_all();

/* The first that is usable. Nothing is kept between calls, as the answer is cheap to find. */
const vel_textkernels *vel_textkernels_best();

#endif
