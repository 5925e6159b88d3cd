#ifndef VELLIB_VELMKDIR_H
#define VELLIB_VELMKDIR_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velmkdir: new directories, alone or with all those above them. */

VEL_DECLARATIONS_BEGIN

/* Makes a directory, as mkdir does, with mode 0777 less the umask.
 *
 * Returns 0, or -1 with errno set; logs nothing.
 * Threads: any. */
VEL_API int vel_mkdir(const char *pathname);

/* Makes a directory and those above it that are missing. Another process may make the same ones
 * meanwhile.
 *
 * Returns VEL_ERROR_NONE, also if the directory is there already, or
 * - VEL_ERROR_EXISTS if pathname is there and is no directory,
 * - VEL_ERROR_NOT_DIRECTORY if something above it is none,
 * - VEL_ERROR_ACCESS, VEL_ERROR_NO_SPACE, VEL_ERROR_READ_ONLY, VEL_ERROR_TOO_MANY_LINKS,
 *   VEL_ERROR_SYMLINK_LOOP or VEL_ERROR_NAME_TOO_LONG as the platform says,
 * - VEL_ERROR_NO_MEMORY; logged if it is memory for the path above,
 * - VEL_ERROR_GENERIC, logged, for any other error of the platform.
 * After a failure some of the directories above may have been made.
 * Note: a symbolic link to a directory counts as no directory where it is the last part of
 * pathname, and gives VEL_ERROR_EXISTS; above that it is followed.
 * Threads: any. */
VEL_API vel_error_t vel_mkdir_recursive(const char *pathname);

/* Makes the directory that a file is to stand in, and those above it, as vel_mkdir_recursive does.
 *
 * filename  of the file, which is not touched. Without a separator, or with none but a first
 *           character, there is nothing to do.
 *
 * Returns 0, or -1, logged, which is also the result where that directory is a symbolic link to
 * one.
 * Threads: any. */
VEL_API int vel_mkdir_file_path(const char *filename);

VEL_DECLARATIONS_END

#endif
