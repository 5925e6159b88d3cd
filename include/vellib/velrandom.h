#ifndef VELLIB_VELRANDOM_H
#define VELLIB_VELRANDOM_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velrandom: random bytes from a pool of 1024, into which noise of the system is XORed and which is
 * stirred with SHA-256 (FIPS 180-4). The first draw gathers noise, and so does the draw of each
 * byte after 1024 more: from /dev/urandom, from files in /proc, from the clocks. What cannot be
 * opened is passed over without a word.
 *
 * NULL for a pool means the global one, which comes into being at its first use and lives until
 * vel_uninit or vel_random_uninit. A program that draws in several threads gives each a pool of its
 * own, or lets one at a time draw.
 * Threads: one at a time for each pool; the global pool has no lock either, and its first use least
 * of all.
 * Note: without any file to read, only the clocks are left to tell one pool from another, and
 * nothing reports that. The bytes are those of the pool itself, which is not wiped when it is
 * destroyed: draw keys from the platform. */
typedef struct velrandom velrandom;

VEL_DECLARATIONS_BEGIN

/* Creates the global pool, if it does not exist yet.
 *
 * Returns 0, or -1 if there is not enough memory, which is logged. */
VEL_API int vel_random_init(void);

/* Destroys the global pool, if it exists. Its next use creates another, which begins anew. */
VEL_API void vel_random_uninit(void);

/* Creates a pool. It is empty until the first draw gathers noise.
 *
 * Returns the pool, for vel_random_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API velrandom *vel_random_create(void);

/* Destroys a pool. Here NULL does not mean the global one. */
VEL_API void vel_random_destroy(velrandom *velrandom);

/* Adds up to 1024 bytes of a file to the pool, such as a program kept from an earlier run, and
 * keeps the name in place of an earlier one. The file is only ever read, and only now.
 *
 * velrandom  the pool, or NULL for the global one.
 * filename   is copied. It need not be there.
 *
 * Returns 0, or -1 if there is not enough memory, which is logged; the earlier name stays then.
 * Note: aborts if what can be opened cannot be read, as a directory. */
VEL_API int vel_random_set_filename(velrandom *velrandom, const char *filename);

/* Draws bytes.
 *
 * velrandom  the pool, or NULL for the global one.
 * buffer     receives the bytes; not NULL even if count is 0.
 * count      how many bytes. Also a draw of 0 gathers noise if it is the first.
 *
 * Returns 0, or -1 with nothing written if there is no memory for the global pool, which is
 * logged. */
VEL_API int vel_random_buffer(velrandom *velrandom, void *buffer, size_t count);

/* Draws a number of 32 bits, the first byte being the most significant.
 *
 * velrandom  the pool, or NULL for the global one.
 *
 * Returns the number, or 0xDEADBEEF if there is no memory for the global pool, which is logged.
 * Note: nothing tells the two apart. */
VEL_API unsigned int vel_random_uint(velrandom *velrandom);

VEL_DECLARATIONS_END

#endif
