#ifndef VELLIB_VELHARDLINK_H
#define VELLIB_VELHARDLINK_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velhardlink: further names of files. */

VEL_DECLARATIONS_BEGIN

/* Gives a file a further name, as link does.
 *
 * target    a name of the file.
 * linkpath  the further one, in the same file system.
 *
 * Returns VEL_ERROR_NONE, or, logged,
 * - VEL_ERROR_NOT_FOUND, VEL_ERROR_NOT_DIRECTORY, VEL_ERROR_EXISTS, VEL_ERROR_CROSS_DEVICE,
 *   VEL_ERROR_TOO_MANY_LINKS, VEL_ERROR_ACCESS, VEL_ERROR_NO_SPACE, VEL_ERROR_QUOTA,
 *   VEL_ERROR_READ_ONLY, VEL_ERROR_SYMLINK_LOOP, VEL_ERROR_NAME_TOO_LONG, VEL_ERROR_IO,
 *   VEL_ERROR_NO_MEMORY or VEL_ERROR_BAD_ADDRESS as the platform says,
 * - VEL_ERROR_UNSUPPORTED if the target is a directory, or the file system does not have this,
 * - VEL_ERROR_GENERIC for any other error.
 * Threads: any. */
VEL_API vel_error_t vel_hardlink(const char *target, const char *linkpath);

VEL_DECLARATIONS_END

#endif
