#ifndef VELLIB_VELDIR_H
#define VELLIB_VELDIR_H

#include <stdint.h>

#include <vellib/velapi.h>

/* veldir: the entries of a directory, one after the other, and the removal of whole trees.
 *
 * What kind of file an entry is gets looked up when it is first asked for, once an entry: a walk
 * that asks for names alone makes no further system call. Paths and names are bytes as the file
 * system has them; velutf8dir is the same with names in Normalization Form C.
 * Threads: one at a time. */
typedef struct veldir veldir;

VEL_DECLARATIONS_BEGIN

/* Opens a directory. There is no current entry yet.
 *
 * path  is copied; NULL is the current directory, and then entries are looked up by their bare
 *       names, wherever the process has moved since.
 *
 * Returns the handle, for vel_dir_destroy, or NULL. A directory that does not exist is not logged;
 * one that cannot be opened for another reason, and want of memory, is. */
VEL_API veldir *vel_dir_open(const char *path);

/* Closes a directory. */
VEL_API void vel_dir_destroy(veldir *veldir);

/* Moves to the next entry, in the order of the platform. "." and ".." are among them.
 *
 * Returns 0 with a new current entry, -1 at the end of the directory, or the positive error number
 * of the platform. Without a current entry the queries below fail. Logs nothing. */
VEL_API int vel_dir_next(veldir *veldir);

/* Gives the name of the current entry, which stays the handle's and is valid until vel_dir_next.
 *
 * Returns the name, or NULL, logged, if there is no current entry; then vel_dir_get_error gives 22
 * (VEL_ERROR_INVALID_ARGUMENT). */
VEL_API const char *vel_dir_fetch_name(veldir *veldir);

/* Copies the name of the current entry.
 *
 * Returns a new string, or NULL, logged, if there is no current entry or not enough memory. */
VEL_API char *vel_dir_copy_name(veldir *veldir);

/* Tells whether the current entry is a directory or a symbolic link to one.
 *
 * Returns 1 or 0, or -1, logged, if there is no current entry or it cannot be looked up. */
VEL_API int vel_dir_is_directory(veldir *veldir);

/* Tells whether the current entry is a symbolic link.
 *
 * Returns 1 or 0, or -1, logged, if there is no current entry or it cannot be looked up. */
VEL_API int vel_dir_is_symlink(veldir *veldir);

/* Gives the size of the current entry in bytes; of a symbolic link, its own.
 *
 * Returns the size, or -1, logged, if there is no current entry or it cannot be looked up. */
VEL_API int64_t vel_dir_get_size(veldir *veldir);

/* Gives 22 (VEL_ERROR_INVALID_ARGUMENT) after a name was asked for without a current entry, until
 * vel_dir_next meets the end of the directory, and otherwise 0.
 *
 * Note: no other failure shows here. */
VEL_API int vel_dir_get_error(veldir *veldir);

/* Gives the character between the parts of a path, '/'. */
VEL_API char vel_dir_separator(void);

/* Removes a directory with all that is in it. A symbolic link to a directory is removed itself,
 * here and anywhere in the tree, and what it leads to stays.
 *
 * path  a directory, or a symbolic link to one; anything else is refused.
 *
 * Returns 0, or a number other than 0, and each failure is logged. What cannot be removed does not
 * keep the rest from being removed; it stays, with the directories above it.
 * Note: a tree may be of any depth. It takes up to 65 descriptors, and memory for each level; with
 * less than that, the result says that something stays. */
VEL_API int vel_dir_remove_recursive(const char *path);

VEL_DECLARATIONS_END

#endif
