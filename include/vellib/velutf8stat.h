#ifndef VELLIB_VELUTF8STAT_H
#define VELLIB_VELUTF8STAT_H

#include <stdint.h>

#include <vellib/velapi.h>

/* velutf8stat: velstat for paths in UTF-8: what kind of file a path names, and its size. A
 * symbolic link to a directory counts as a directory and as a link. One object may be used for one
 * path after the other.
 * Threads: one at a time. */
typedef struct velutf8stat velutf8stat;

VEL_DECLARATIONS_BEGIN

/* Creates an object that knows no path yet.
 *
 * Returns the object, for vel_utf8stat_destroy, or NULL, logged, if there is not enough memory. */
VEL_API velutf8stat *vel_utf8stat_create(void);

/* Destroys an object. */
VEL_API void vel_utf8stat_destroy(velutf8stat *velutf8stat);

/* Looks at a path, without following it if it is a symbolic link, but for finding out whether it
 * leads to a directory.
 *
 * Returns 0, or -1 with errno set; then the queries below give -1. Logs nothing. */
VEL_API int vel_utf8stat_lstat(velutf8stat *velutf8stat, const char *path);

/* Tells whether the path is a directory or a symbolic link to one.
 *
 * Returns 1 or 0, or -1 if the last vel_utf8stat_lstat failed or there was none. */
VEL_API int vel_utf8stat_is_directory(velutf8stat *velutf8stat);

/* Tells whether the path is a symbolic link.
 *
 * Returns 1 or 0, or -1 if the last vel_utf8stat_lstat failed or there was none. */
VEL_API int vel_utf8stat_is_symlink(velutf8stat *velutf8stat);

/* Gives the size in bytes; of a symbolic link, its own.
 *
 * Returns the size, or -1 if the last vel_utf8stat_lstat failed or there was none. */
VEL_API int64_t vel_utf8stat_get_size(velutf8stat *velutf8stat);

VEL_DECLARATIONS_END

#endif
