#ifndef VELLIB_VELSYMLINK_H
#define VELLIB_VELSYMLINK_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velsymlink: symbolic links. Some platforms tell links to files and to directories apart when they
 * are made, hence two functions; on this one they do the same.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Makes a symbolic link to a file, as symlink does.
 *
 * target    what the link holds. It need not exist; a relative one counts from the directory that
 *           the link stands in.
 * linkpath  of the link.
 *
 * Returns VEL_ERROR_NONE, or, logged,
 * - VEL_ERROR_NOT_FOUND, VEL_ERROR_ACCESS, VEL_ERROR_NO_SPACE, VEL_ERROR_QUOTA,
 *   VEL_ERROR_READ_ONLY, VEL_ERROR_SYMLINK_LOOP, VEL_ERROR_NAME_TOO_LONG, VEL_ERROR_IO,
 *   VEL_ERROR_NO_MEMORY or VEL_ERROR_BAD_ADDRESS as the platform says,
 * - VEL_ERROR_UNSUPPORTED if the file system has no symbolic links,
 * - VEL_ERROR_GENERIC for any other error.
 * Note: a linkpath that exists, and one below what is no directory, give VEL_ERROR_GENERIC. */
VEL_API vel_error_t vel_symlink_file(const char *target, const char *linkpath);

/* Makes a symbolic link to a directory: the arguments and the results are those of
 * vel_symlink_file. */
VEL_API vel_error_t vel_symlink_directory(const char *target, const char *linkpath);

VEL_DECLARATIONS_END

#endif
