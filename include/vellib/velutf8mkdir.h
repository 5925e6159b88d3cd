#ifndef VELLIB_VELUTF8MKDIR_H
#define VELLIB_VELUTF8MKDIR_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velutf8mkdir: velmkdir for paths in UTF-8. The two do the same. */

VEL_DECLARATIONS_BEGIN

/* Makes a directory, as vel_mkdir does.
 *
 * Returns 0, or -1 with errno set; logs nothing.
 * Threads: any. */
VEL_API int vel_utf8mkdir(const char *pathname);

/* Makes a directory and those above it that are missing, as vel_mkdir_recursive does, with its
 * results.
 * Threads: any. */
VEL_API vel_error_t vel_utf8mkdir_recursive(const char *pathname);

/* Makes the directory that a file is to stand in, and those above it, as vel_mkdir_file_path does.
 *
 * Returns 0, or -1, logged.
 * Threads: any. */
VEL_API int vel_utf8mkdir_file_path(const char *filename);

VEL_DECLARATIONS_END

#endif
