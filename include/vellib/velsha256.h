#ifndef VELLIB_VELSHA256_H
#define VELLIB_VELSHA256_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velsha256: the SHA-256 hash (FIPS 180-4, 6.2). One hash is create or init, any number of updates,
 * finalize, digest. The same context takes a new message after init.
 * Threads: one at a time for each context. */
typedef struct velsha256 velsha256;

VEL_DECLARATIONS_BEGIN

/* Creates a context, ready for update.
 *
 * Returns the context, for vel_sha256_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API velsha256 *vel_sha256_create(void);

/* Makes a context ready for a new message, whatever it was used for. */
VEL_API void vel_sha256_init(velsha256 *velsha256);

/* Destroys a context. It is not wiped. */
VEL_API void vel_sha256_destroy(velsha256 *velsha256);

/* Takes in a piece of the message.
 *
 * data   the piece; anything, also NULL, if count is 0.
 * count  its length in bytes. */
VEL_API void vel_sha256_update(velsha256 *velsha256, const void *data, size_t count);

/* Ends the message: pads it and takes in what was left of it. vel_sha256_digest then gives the
 * hash.
 * Note: nothing marks a context as finished. A second finalize, or an update, goes on from the
 * state that was reached and gives the hash of no message. */
VEL_API void vel_sha256_finalize(velsha256 *velsha256);

/* Writes the state: the hash, after vel_sha256_finalize. The context stays as it is.
 *
 * digest  receives 32 bytes. */
VEL_API void vel_sha256_digest(velsha256 *velsha256, unsigned char *digest);

VEL_DECLARATIONS_END

#endif
