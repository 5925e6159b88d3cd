#ifndef VELLIB_VELUTF8FILE_H
#define VELLIB_VELUTF8FILE_H

#include <stddef.h>
#include <stdio.h>

#include <vellib/velapi.h>

/* velutf8file: velfile for paths in UTF-8. Here the two differ in the save with a backup alone.
 *
 * A stream from here is used with the functions of velfile. A failure leaves errno as the failing
 * call set it; only what says so is logged.
 * Threads: streams have the platform's own locks. Two saves of one file at a time damage each
 * other; there is no lock against it. */

VEL_DECLARATIONS_BEGIN

/* Creates a file for writing bytes, as vel_file_create_binary does.
 *
 * Returns the stream, for vel_file_close, or NULL with errno set. */
VEL_API FILE *vel_utf8file_create_binary(const char *filename);

/* Opens a file for reading bytes, as vel_file_open_binary does.
 *
 * Returns the stream, for vel_file_close, or NULL with errno set. */
VEL_API FILE *vel_utf8file_open_binary(const char *filename);

/* Creates a file for writing text, as vel_file_create_ascii does.
 *
 * Returns the stream, for vel_file_close, or NULL with errno set. */
VEL_API FILE *vel_utf8file_create_ascii(const char *filename);

/* Opens a file for writing text at its end, as vel_file_append_ascii does.
 *
 * Returns the stream, for vel_file_close, or NULL with errno set. */
VEL_API FILE *vel_utf8file_append_ascii(const char *filename);

/* Tells whether a file is there, as vel_file_exists does.
 *
 * name  a path; NULL gives -1.
 *
 * Returns 1 if it exists, 0 if it does not, and -1, with errno set, if that cannot be told. */
VEL_API int vel_utf8file_exists(const char *name);

/* Saves data as the whole content of a file, as vel_file_data_save does.
 *
 * data     may be NULL if datalen is 0.
 * datalen  in bytes.
 *
 * Returns 0, or -1 with errno set. */
VEL_API int vel_utf8file_data_save(const char *filename, const void *data, size_t datalen);

/* Loads a whole file, as vel_file_data_load does.
 *
 * dataptr  receives the content in a new block, for vel_free, with a NUL behind it that is not
 *          counted.
 * datalen  receives its length in bytes. May be NULL.
 *
 * Returns 0, or -1 with NULL and 0 written. */
VEL_API int vel_utf8file_data_load(const char *filename, void **dataptr, size_t *datalen);

/* Saves data as the whole content of a file so that a complete version can be loaded at any moment,
 * as vel_file_data_save_with_backup does.
 *
 * data     may be NULL if datalen is 0.
 * datalen  in bytes.
 *
 * Returns 0, or -1. Logged is what vel_file_data_save_with_backup logs, and a backup that cannot be
 * removed.
 * Note: 0 is no proof that the data was saved. It is also the result where the old version cannot
 * be renamed to its backup, and stays; only the log says so. */
VEL_API int vel_utf8file_data_save_with_backup(const char *filename, const void *data,
                                               size_t datalen);

/* Loads a whole file, or if it cannot be opened its backup, as vel_file_data_load_with_backup does.
 *
 * dataptr  receives the content, as from vel_utf8file_data_load.
 * datalen  receives its length in bytes. May be NULL.
 *
 * Returns 0, or -1 with NULL and 0 written; only a lack of memory for the name is logged. */
VEL_API int vel_utf8file_data_load_with_backup(const char *filename, void **dataptr,
                                               size_t *datalen);

VEL_DECLARATIONS_END

#endif
