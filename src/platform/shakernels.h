#ifndef VELLIB_PLATFORM_SHAKERNELS_H
#define VELLIB_PLATFORM_SHAKERNELS_H

#include <cstddef>
#include <cstdint>
#include <span>

/* platform/shakernels.h: the block steps of SHA-1 and SHA-256 (FIPS 180-4, 6.1.2 and 6.2.2), in
 * the instructions that a processor has for them. Each takes count blocks of 64 bytes, aligned or
 * not, into the chaining state, whose words are numbers in the order of the standard. */
struct vel_shakernels {
    const char *name;
    bool (*usable)(); /* on the processor at hand */
    void (*sha1)(uint32_t *h, const uint8_t *blocks, size_t count);
    void (*sha256)(uint32_t *h, const uint8_t *blocks, size_t count);
};

/* All that this build has, the best first. The last is usable everywhere. */
std::span<const vel_shakernels> vel_shakernels_all();

/* The first that is usable. */
const vel_shakernels *vel_shakernels_best();

#endif
