#ifndef VELLIB_PLATFORM_WIDEKERNELS_H
#define VELLIB_PLATFORM_WIDEKERNELS_H

#include <cstddef>
#include <span>

/* platform/widekernels.h: UTF-8 and wide characters of 32 bits in the wide steps of a processor.
 *
 * A kernel converts from the front, stops at the latest before the first character that is not
 * valid, and may stop earlier; it returns how much of the source it took, in whole characters. The
 * caller's plain loop does the rest. With NULL for dest it measures, and room does not count;
 * otherwise it stops before a step that the room may not be enough for. It reads nothing behind the
 * source. */
struct vel_widekernels {
    const char *name;
    bool (*usable)(); /* on the processor at hand */

    /* UTF-8 to wide characters, room and *writtenptr in wide characters. Writes nothing behind
     * those that it counts. */
    size_t (*to_wide)(wchar_t *dest, size_t room, const char *utf8, size_t len, size_t *writtenptr);

    /* Wide characters to UTF-8, room and *writtenptr in bytes. Surrogates are not valid here. What
     * stands in the room behind the bytes that it counts may change. */
    size_t (*to_utf8)(char *dest, size_t room, const wchar_t *wide, size_t len, size_t *writtenptr);
};

/* All that this build has, the best first. The last takes nothing and is usable everywhere. */
std::span<const vel_widekernels> vel_widekernels_all();

/* The first that is usable. Nothing is kept between calls, as the answer is cheap to find. */
const vel_widekernels *vel_widekernels_best();

#endif
