#ifndef VELLIB_VELUTF8DIR_H
#define VELLIB_VELUTF8DIR_H

#include <stdint.h>

#include <vellib/velapi.h>

/* velutf8dir: veldir with names in Normalization Form C (UAX #15), in which text from other sources
 * can be compared with them. A file system may have stored "e" and a combining accent; here that is
 * the one character.
 *
 * A name is converted when it is first asked for. Entries are looked up, and removed, under the name
 * that the file system has, which may tell the two forms apart: a path made of a name from here need
 * not lead to the entry. A name that is not valid UTF-8 comes out as it is.
 * Threads: one at a time. */
typedef struct velutf8dir velutf8dir;

VEL_DECLARATIONS_BEGIN

/* Opens a directory. There is no current entry yet.
 *
 * path  is copied; NULL is the current directory, and then entries are looked up by their bare
 *       names, wherever the process has moved since.
 *
 * Returns the handle, for vel_utf8dir_destroy, or NULL. A directory that does not exist is not
 * logged; one that cannot be opened for another reason, and want of memory, is. */
VEL_API velutf8dir *vel_utf8dir_open(const char *path);

/* Closes a directory. */
VEL_API void vel_utf8dir_destroy(velutf8dir *velutf8dir);

/* Moves to the next entry, in the order of the platform. "." and ".." are among them.
 *
 * Returns 0 with a new current entry, -1 at the end of the directory, or the positive error number
 * of the platform. Without a current entry the queries below fail. Logs nothing. */
VEL_API int vel_utf8dir_next(velutf8dir *velutf8dir);

/* Gives the name of the current entry in Normalization Form C. It stays the handle's and is valid
 * until vel_utf8dir_next; a second call gives the same pointer.
 *
 * Returns the name, or NULL, logged, if there is no current entry, not enough memory, or if the name
 * takes more bytes in this form, which few do (U+0958 for one). Without a current entry
 * vel_utf8dir_get_error then gives 22 (VEL_ERROR_INVALID_ARGUMENT). */
VEL_API const char *vel_utf8dir_fetch_name(velutf8dir *velutf8dir);

/* Copies what vel_utf8dir_fetch_name gives.
 *
 * Returns a new string, or NULL, logged, where vel_utf8dir_fetch_name gives it, and if there is not
 * enough memory. */
VEL_API char *vel_utf8dir_copy_name(velutf8dir *velutf8dir);

/* Tells whether the current entry is a directory or a symbolic link to one.
 *
 * Returns 1 or 0, or -1, logged, if there is no current entry or it cannot be looked up. */
VEL_API int vel_utf8dir_is_directory(velutf8dir *velutf8dir);

/* Tells whether the current entry is a symbolic link.
 *
 * Returns 1 or 0, or -1, logged, if there is no current entry or it cannot be looked up. */
VEL_API int vel_utf8dir_is_symlink(velutf8dir *velutf8dir);

/* Gives the size of the current entry in bytes; of a symbolic link, its own.
 *
 * Returns the size, or -1, logged, if there is no current entry or it cannot be looked up. */
VEL_API int64_t vel_utf8dir_get_size(velutf8dir *velutf8dir);

/* Gives 22 (VEL_ERROR_INVALID_ARGUMENT) after a name was asked for without a current entry, until
 * vel_utf8dir_next meets the end of the directory, and otherwise 0.
 *
 * Note: no other failure shows here. */
VEL_API int vel_utf8dir_get_error(velutf8dir *velutf8dir);

/* Gives the character between the parts of a path, '/'. */
VEL_API char vel_utf8dir_separator(void);

/* Removes a directory with all that is in it, as vel_dir_remove_recursive does, and logs each path
 * before it is deleted that is no directory.
 *
 * path  a directory, or a symbolic link to one; anything else is refused.
 *
 * Returns 0, or a number other than 0, and each failure is logged. */
VEL_API int vel_utf8dir_remove_recursive(const char *path);

VEL_DECLARATIONS_END

#endif
