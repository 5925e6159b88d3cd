#ifndef VELLIB_VELFILE_H
#define VELLIB_VELFILE_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <vellib/velapi.h>

/* velfile: the platform's buffered streams under named modes, positions of 64 bits, and whole
 * files loaded and saved at once.
 *
 * A file is the platform's FILE, so that streams from elsewhere may be used as well. Paths are
 * bytes in the encoding of the platform. A failure leaves errno as the failing call set it; only
 * what says so is logged.
 * Threads: streams have the platform's own locks. Two saves of one file at a time damage each
 * other; there is no lock against it. */

/* An amount of bytes to seek by. */
typedef uint64_t vel_uint64_t;

VEL_DECLARATIONS_BEGIN

/* Creates a file for writing bytes, or empties the one there is (mode "wb").
 *
 * Returns the stream, for vel_file_close, or NULL with errno set. */
VEL_API FILE *vel_file_create_binary(const char *filename);

/* Opens a file for reading bytes (mode "rb").
 *
 * Returns the stream, for vel_file_close, or NULL with errno set. */
VEL_API FILE *vel_file_open_binary(const char *filename);

/* Opens a file that exists for reading and writing bytes (mode "rb+").
 *
 * Returns the stream, for vel_file_close, or NULL with errno set. */
VEL_API FILE *vel_file_update_binary(const char *filename);

/* Creates a file for writing text, or empties the one there is (mode "w").
 *
 * Returns the stream, for vel_file_close, or NULL with errno set. */
VEL_API FILE *vel_file_create_ascii(const char *filename);

/* Opens a file for reading text (mode "r").
 *
 * Returns the stream, for vel_file_close, or NULL with errno set. */
VEL_API FILE *vel_file_open_ascii(const char *filename);

/* Opens a file for writing text at its end, and creates it if it is not there (mode "a").
 *
 * Returns the stream, for vel_file_close, or NULL with errno set. */
VEL_API FILE *vel_file_append_ascii(const char *filename);

/* Closes a stream, as fclose does. The stream is gone also on failure.
 *
 * Returns 0, or EOF with errno set if what was buffered could not be written. */
VEL_API int vel_file_close(FILE *file);

/* Gives the standard input. */
VEL_API FILE *vel_file_get_stdin(void);

/* Gives the standard output. */
VEL_API FILE *vel_file_get_stdout(void);

/* Gives the standard error stream. */
VEL_API FILE *vel_file_get_stderr(void);

/* Reads bytes, as fread does.
 *
 * Returns how many were read: fewer than count at the end of the file or on a failure, which
 * vel_file_feof and vel_file_ferror tell apart. */
VEL_API size_t vel_file_read(FILE *file, void *buffer, size_t count);

/* Writes bytes, as fwrite does.
 *
 * Returns how many were written: fewer than count on a failure. */
VEL_API size_t vel_file_write(FILE *file, const void *buffer, size_t count);

/* Reads up to and with the next line feed, as fgets does.
 *
 * buffer  receives the text with a NUL.
 * size    its room in bytes.
 * stream  where to read.
 *
 * Returns the buffer, or NULL at the end of the file or on a failure. */
VEL_API char *vel_file_fgets(char *buffer, int size, FILE *stream);

/* Writes formatted text, as fprintf does.
 *
 * Returns the number of bytes written, or a negative number on a failure. */
VEL_API int vel_file_fprintf(FILE *file, const char *format, ...) VEL_PRINTF(2, 3);

/* Tells whether a read has met the end of the file, as feof does: 0 if not. */
VEL_API int vel_file_feof(FILE *file);

/* Tells whether an operation on the stream has failed, as ferror does: 0 if not. */
VEL_API int vel_file_ferror(FILE *file);

/* Moves the position, as fseek does.
 *
 * offset  in bytes, as wide as the platform's long.
 * whence  SEEK_SET, SEEK_CUR or SEEK_END, or it aborts.
 *
 * Returns 0, or -1 with errno set. */
VEL_API int vel_file_seek(FILE *file, long offset, int whence);

/* Moves the position by an offset of 64 bits, however wide the platform's long is.
 *
 * offset  in bytes; not negative with SEEK_SET.
 * whence  SEEK_SET, SEEK_CUR or SEEK_END, or it aborts.
 *
 * Returns 0, or a number other than 0. Logged are a negative offset with SEEK_SET, which leaves
 * the position alone, and an end that cannot be sought.
 * Note: after any other failure the position is undefined. */
VEL_API int vel_file_seek64(FILE *file, int64_t offset, int whence);

/* Moves the position towards the end of the file, and past it.
 *
 * amount  in bytes.
 *
 * Returns 0, or the result of the fseek that failed, after which the position is undefined. */
VEL_API int vel_file_seek_forwards_64(FILE *file, vel_uint64_t amount);

/* Moves the position towards the start of the file.
 *
 * amount  in bytes.
 *
 * Returns 0, or the result of the fseek that failed, after which the position is undefined. */
VEL_API int vel_file_seek_backwards_64(FILE *file, vel_uint64_t amount);

/* Gives the length of a file in bytes. The position stays as it was.
 *
 * Returns the length, or -1 with errno set. */
VEL_API int64_t vel_file_get_length(FILE *file);

/* Tells whether a file is there, of whatever kind. Symbolic links are followed, so one that leads
 * nowhere does not exist.
 *
 * name  a path; NULL gives -1.
 *
 * Returns 1 if it exists, 0 if it does not, and -1, with errno set, if that cannot be told. */
VEL_API int vel_file_exists(const char *name);

/* Saves data as the whole content of a file, which is created or emptied first.
 *
 * filename  of the file.
 * data      may be NULL if datalen is 0.
 * datalen   in bytes.
 *
 * Returns 0, or -1 with errno set.
 * Note: a save that fails, or is cut short by a crash, leaves what it has written so far. */
VEL_API int vel_file_data_save(const char *filename, const void *data, size_t datalen);

/* Loads a whole file.
 *
 * filename  of the file.
 * dataptr   receives the content in a new block, for vel_free, with a NUL behind it that is not
 *           counted.
 * datalen   receives its length in bytes. May be NULL.
 *
 * Returns 0, or -1 with NULL and 0 written: the file cannot be opened, is no file whose position
 * can be moved, or cannot be read to its end, or there is not enough memory. */
VEL_API int vel_file_data_load(const char *filename, void **dataptr, size_t *datalen);

/* Saves data as the whole content of a file in such a way that a complete version, the old or the
 * new, can be loaded by vel_file_data_load_with_backup at any moment, also after a crash in the
 * middle.
 *
 * The data is written to the name with ".tmp" at its end; then the file is renamed to the name
 * with ".bak" at its end, in place of the version before it, and the new one renamed to the name.
 *
 * filename  of the file.
 * data      may be NULL if datalen is 0.
 * datalen   in bytes.
 *
 * Returns 0, or -1; errno is set, but not for certain for want of memory for a name. Logged are
 * that want of memory, what fails after the data was written, and a temporary file that cannot be
 * deleted, which is also the case where it could not be created.
 * Note: nothing is forced to stable storage, so this is about a crash of the program, not of the
 * machine.
 * Note: a save that fails after the rename to ".bak" leaves the old version under that name alone,
 * and one that fails at that rename leaves no ".bak". */
VEL_API int vel_file_data_save_with_backup(const char *filename, const void *data, size_t datalen);

/* Loads a whole file, or if it cannot be opened the one with ".bak" at the end of its name.
 *
 * filename  of the file.
 * dataptr   receives the content, as from vel_file_data_load.
 * datalen   receives its length in bytes. May be NULL.
 *
 * Returns 0, or -1 with NULL and 0 written; only a lack of memory for the name is logged.
 * Note: a file that opens but cannot be read to its end gives -1; the backup is not tried. */
VEL_API int vel_file_data_load_with_backup(const char *filename, void **dataptr, size_t *datalen);

VEL_DECLARATIONS_END

#endif
