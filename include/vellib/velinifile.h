#ifndef VELLIB_VELINIFILE_H
#define VELLIB_VELINIFILE_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velinifile: INI files that are read, edited and written again.
 *
 * An object holds the lines of a file: comments, empty lines, their order, and sections and keys that
 * stand there twice all survive. Only lines that were edited change.
 *
 * A line is empty; or a comment, which begins with ";" or "#"; or a section header "[NAME]", whose
 * name ends at the last "]"; or "KEY=VALUE", whose key ends at the first "=" that is not the first
 * character. White space around the line, the name, the key and the value does not count. Case
 * matters. There are no quotes, no escapes and no continued lines.
 *
 * A section is given by its name, without white space around it. NULL stands for the lines ahead of
 * the first header.
 * Threads: one at a time. */
typedef struct velinifile velinifile;

VEL_DECLARATIONS_BEGIN

/* Creates an object without lines.
 *
 * error_out  receives VEL_ERROR_NONE or VEL_ERROR_NO_MEMORY; may be NULL.
 *
 * Returns the object, for vel_inifile_destroy, or NULL if there is not enough memory. */
VEL_API velinifile *vel_inifile_create(vel_error_t *error_out);

/* Reads a file.
 *
 * filename   its path.
 * error_out  receives the cause, as below; may be NULL.
 *
 * Returns the object, for vel_inifile_destroy, or NULL. The cause is
 * - VEL_ERROR_NONE,
 * - VEL_ERROR_NOT_FOUND if the file cannot be opened, for whatever reason,
 * - VEL_ERROR_INVALID_SYNTAX for a line that is none of the above; the log has its number and the
 *   reason,
 * - VEL_ERROR_NO_MEMORY,
 * - VEL_ERROR_GENERIC if the file cannot be read on, as a directory, which is logged,
 * - VEL_ERROR_OUT_OF_RANGE for a line that is longer than memory can be, which is logged.
 * Note: an object can come with an error: after VEL_ERROR_GENERIC and VEL_ERROR_OUT_OF_RANGE, and
 * after VEL_ERROR_NO_MEMORY if it was the buffer of a line, it has the lines read so far. Look at
 * *error_out, and destroy what is not NULL.
 * Note: a line of 4 GiB aborts the process. */
VEL_API velinifile *vel_inifile_create_from_file(const char *filename, vel_error_t *error_out);

/* Destroys an object. */
VEL_API void vel_inifile_destroy(velinifile *inifile);

/* Writes the lines to a file, each with a line feed, over what it had before. That is no safe save:
 * a failure leaves the file cut off.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_WRITE if the file cannot be created or written. */
VEL_API vel_error_t vel_inifile_write_file(velinifile *inifile, const char *filename);

/* Looks up a value. Where a key stands in the section twice, the last one counts.
 *
 * section  the name of the section, or NULL.
 * key      the key, without white space around it.
 *
 * Returns the value, or NULL if there is none. It belongs to the object, and is valid until this key
 * is next set or deleted. */
VEL_API const char *vel_inifile_get(velinifile *inifile, const char *section, const char *key);

/* Sets a value. The last line of the section with this key is written anew, as "KEY=VALUE"; without
 * one a line is added behind the last key of the section. A section that is not there is added at the
 * end, and keys without a section at the top.
 *
 * section    the name of the section, or NULL.
 * key        the key; white space around it is dropped.
 * new_value  the value; white space around it does not count, but a line that is added keeps it.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY with the object unchanged.
 * Note: nothing tests that the texts fit the file: one with a line feed in it reads as two lines. */
VEL_API vel_error_t vel_inifile_set(velinifile *inifile, const char *section, const char *key,
                                    const char *new_value);

/* Removes all lines of the section with this key. The section stays, even if it is left empty.
 *
 * section  the name of the section, or NULL.
 * key      the key, without white space around it.
 * count    receives how many lines there were; may be NULL. */
VEL_API void vel_inifile_delete_all(velinifile *inifile, const char *section, const char *key,
                                    unsigned int *count);

VEL_DECLARATIONS_END

#endif
