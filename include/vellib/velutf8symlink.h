#ifndef VELLIB_VELUTF8SYMLINK_H
#define VELLIB_VELUTF8SYMLINK_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velutf8symlink: velsymlink for paths in UTF-8. The two do the same. */

VEL_DECLARATIONS_BEGIN

/* Makes a symbolic link to a file, as vel_symlink_file does, with its results.
 * Threads: any. */
VEL_API vel_error_t vel_utf8symlink_file(const char *target, const char *linkpath);

/* Makes a symbolic link to a directory, as vel_symlink_directory does, with its results.
 * Threads: any. */
VEL_API vel_error_t vel_utf8symlink_directory(const char *target, const char *linkpath);

VEL_DECLARATIONS_END

#endif
