#ifndef VELLIB_VELSTAT_H
#define VELLIB_VELSTAT_H

#include <stdint.h>

#include <vellib/velapi.h>

/* velstat: what kind of file a path names, and its size. A symbolic link to a directory counts as
 * a directory and as a link. One object may be used for one path after the other.
 * Threads: one at a time. */
typedef struct velstat velstat;

VEL_DECLARATIONS_BEGIN

/* Creates an object that knows no path yet.
 *
 * Returns the object, for vel_stat_destroy, or NULL, logged, if there is not enough memory. */
VEL_API velstat *vel_stat_create(void);

/* Destroys an object. */
VEL_API void vel_stat_destroy(velstat *velstat);

/* Looks at a path, without following it if it is a symbolic link, but for finding out whether it
 * leads to a directory.
 *
 * Returns 0, or -1 with errno set; then the queries below give -1. Logs nothing. */
VEL_API int vel_stat_lstat(velstat *velstat, const char *path);

/* Tells whether the path is a directory or a symbolic link to one.
 *
 * Returns 1 or 0, or -1 if the last vel_stat_lstat failed or there was none. */
VEL_API int vel_stat_is_directory(velstat *velstat);

/* Tells whether the path is a symbolic link.
 *
 * Returns 1 or 0, or -1 if the last vel_stat_lstat failed or there was none. */
VEL_API int vel_stat_is_symlink(velstat *velstat);

/* Gives the size in bytes; of a symbolic link, its own.
 *
 * Returns the size, or -1 if the last vel_stat_lstat failed or there was none. */
VEL_API int64_t vel_stat_get_size(velstat *velstat);

VEL_DECLARATIONS_END

#endif
