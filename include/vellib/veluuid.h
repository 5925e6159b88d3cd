#ifndef VELLIB_VELUUID_H
#define VELLIB_VELUUID_H

#include <vellib/velapi.h>
#include <vellib/velrandom.h>

/* veluuid: random UUIDs, version 4 (RFC 4122, 4.4).
 * Threads: one at a time for each veluuid and for the pool that it draws from, which is the global
 * one unless it was given another. */
typedef struct veluuid veluuid;

VEL_DECLARATIONS_BEGIN

/* Creates a source of UUIDs that draws from the global pool.
 *
 * Returns the source, for vel_uuid_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API veluuid *vel_uuid_create(void);

/* Destroys a source. The pool that it drew from stays. */
VEL_API void vel_uuid_destroy(veluuid *veluuid);

/* Sets the pool to draw from.
 *
 * velrandom  the pool, which stays the caller's and has to outlive its use here, or NULL for the
 *            global one. */
VEL_API void vel_uuid_set_random(veluuid *veluuid, velrandom *velrandom);

/* Makes a UUID.
 *
 * Returns its text of 36 characters, in lower case, or NULL if there is not enough memory, which
 * is logged. */
VEL_API char *vel_uuid_random(veluuid *veluuid);

VEL_DECLARATIONS_END

#endif
