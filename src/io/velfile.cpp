#include <vellib/velfile.h>

#include <errno.h>
#include <limits.h>
#include <stdarg.h>

#include <sys/stat.h>

#include <vellib/veldeletefile.h>
#include <vellib/velmalloc.h>

#include "io/velfile_core.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "io/velfile"

static FILE *vel_file_fopen(const char *filename, const char *mode)
{
    VEL_ASSERT(filename != NULL);
    VEL_ASSERT(mode != NULL);

    return fopen(filename, mode);
}

FILE *vel_file_create_binary(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_file_fopen(filename, "wb");
}

FILE *vel_file_open_binary(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_file_fopen(filename, "rb");
}

FILE *vel_file_update_binary(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_file_fopen(filename, "rb+");
}

FILE *vel_file_create_ascii(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_file_fopen(filename, "w");
}

FILE *vel_file_open_ascii(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_file_fopen(filename, "r");
}

FILE *vel_file_append_ascii(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_file_fopen(filename, "a");
}

int vel_file_close(FILE *file)
{
    VEL_ASSERT(file != NULL);

    return fclose(file);
}

FILE *vel_file_get_stdin(void)
{
    return stdin;
}

FILE *vel_file_get_stdout(void)
{
    return stdout;
}

FILE *vel_file_get_stderr(void)
{
    return stderr;
}

size_t vel_file_read(FILE *file, void *buffer, size_t count)
{
    VEL_ASSERT(file != NULL);
    VEL_ASSERT(buffer != NULL);

    return fread(buffer, 1, count, file);
}

size_t vel_file_write(FILE *file, const void *buffer, size_t count)
{
    VEL_ASSERT(file != NULL);
    VEL_ASSERT(buffer != NULL);

    return fwrite(buffer, 1, count, file);
}

char *vel_file_fgets(char *buffer, int size, FILE *stream)
{
    VEL_ASSERT(buffer != NULL);
    VEL_ASSERT(stream != NULL);

    return fgets(buffer, size, stream);
}

int vel_file_fprintf(FILE *file, const char *format, ...)
{
    VEL_ASSERT(file != NULL);
    VEL_ASSERT(format != NULL);

    va_list arguments;
    va_start(arguments, format);
    const int result = vfprintf(file, format, arguments);
    va_end(arguments);
    return result;
}

int vel_file_feof(FILE *file)
{
    VEL_ASSERT(file != NULL);

    return feof(file);
}

int vel_file_ferror(FILE *file)
{
    VEL_ASSERT(file != NULL);

    return ferror(file);
}

int vel_file_seek(FILE *file, long offset, int whence)
{
    VEL_ASSERT(file != NULL);
    VEL_ASSERT(whence == SEEK_SET || whence == SEEK_CUR || whence == SEEK_END);

    return fseek(file, offset, whence);
}

static int vel_file_seek_relative(FILE *file, int64_t offset)
{
    const auto amount = static_cast<vel_uint64_t>(offset);
    if (offset >= 0)
        return vel_file_seek_forwards_64(file, amount);
    return vel_file_seek_backwards_64(file, 0 - amount);
}

int vel_file_seek64(FILE *file, int64_t offset, int whence)
{
    VEL_ASSERT(file != NULL);
    VEL_ASSERT(whence == SEEK_SET || whence == SEEK_CUR || whence == SEEK_END);

    if (whence == SEEK_SET) {
        if (offset < 0) {
            VEL_LOG(6, "SEEK_SET cannot be called with a negative offset");
            return -1;
        }
        rewind(file);
        return vel_file_seek_forwards_64(file, static_cast<vel_uint64_t>(offset));
    }
    if (whence == SEEK_CUR)
        return vel_file_seek_relative(file, offset);
    if (whence == SEEK_END) {
        const int result = fseek(file, 0, SEEK_END);
        if (result != 0) {
            const int platformerrno = errno;
            VEL_LOG(6, "Failed to seek at the end of the file");
            errno = platformerrno;
            return result;
        }
        return vel_file_seek_relative(file, offset);
    }

    VEL_LOG(6, "Called with an invalid value %d for whence", whence);
    errno = EINVAL;
    return -1;
}

int vel_file_seek_forwards_64(FILE *file, vel_uint64_t amount)
{
    VEL_ASSERT(file != NULL);

    while (amount != 0) {
        if (amount <= static_cast<vel_uint64_t>(LONG_MAX))
            return fseek(file, static_cast<long>(amount), SEEK_CUR);
        const int result = fseek(file, LONG_MAX, SEEK_CUR);
        if (result != 0)
            return result;
        amount -= static_cast<vel_uint64_t>(LONG_MAX);
    }
    return 0;
}

int vel_file_seek_backwards_64(FILE *file, vel_uint64_t amount)
{
    VEL_ASSERT(file != NULL);

    /* An amount of exactly this much has no positive long, so the whole steps take it too. */
    const auto step = static_cast<vel_uint64_t>(LONG_MAX) + 1;
    while (amount != 0) {
        if (amount < step) {
            const long offset = -static_cast<long>(amount);
            /* clang-format off */
            VEL_ASSERT(amount == (vel_uint64_t) -offset);
            /* clang-format on */
            return fseek(file, offset, SEEK_CUR);
        }
        const int result = fseek(file, LONG_MIN, SEEK_CUR);
        if (result != 0)
            return result;
        amount -= step;
    }
    return 0;
}

int64_t vel_file_get_length(FILE *file)
{
    VEL_ASSERT(file != NULL);

    fpos_t position;
    if (fgetpos(file, &position) != 0)
        return -1;
    if (fseek(file, 0, SEEK_END) != 0)
        return -1;
    const long length = ftell(file);
    const int platformerrno = errno;
    if (fsetpos(file, &position) != 0)
        return -1;
    errno = platformerrno;
    return length;
}

int vel_file_exists(const char *name)
{
    /* What stat itself answers where the kernel sees the pointer. */
    if (!name) {
        errno = EFAULT;
        return -1;
    }

    struct stat record;
    if (stat(name, &record) == 0)
        return 1;
    return errno == ENOENT ? 0 : -1;
}

int vel_file_data_save(const char *filename, const void *data, size_t datalen)
{
    VEL_ASSERT(filename != NULL);
    VEL_ASSERT(data != NULL || datalen == 0);

    FILE *file = vel_file_create_binary(filename);
    if (!file)
        return -1;

    /* With a buffer, the end of the data would go out with the close, whose failure is not seen;
     * a full disk would then cost the old version. */
    (void)setvbuf(file, nullptr, _IONBF, 0);

    const size_t written = datalen != 0 ? vel_file_write(file, data, datalen) : 0;
    const int platformerrno = errno;
    (void)vel_file_close(file);
    errno = platformerrno;
    return written == datalen ? 0 : -1;
}

/* Reads from start to end into a new block. Returns NULL on failure, with errno as the failing call
 * left it. */
static void *vel_file_read_all(FILE *file, size_t *lengthptr)
{
    if (fseek(file, 0, SEEK_END) != 0)
        return nullptr;
    const long position = ftell(file);
    if (position < 0 || fseek(file, 0, SEEK_SET) != 0)
        return nullptr;

    /* What some file systems give for a directory; no block is that large. */
    if (position == LONG_MAX) {
        errno = EFBIG;
        return nullptr;
    }
    const auto length = static_cast<size_t>(position);
    auto *buffer = static_cast<char *>(vel_malloc(length + 1));
    if (!buffer)
        return nullptr;
    buffer[length] = '\0';
    if (vel_file_read(file, buffer, length) != length) {
        const int platformerrno = errno;
        vel_free(buffer);
        errno = platformerrno;
        return nullptr;
    }
    *lengthptr = length;
    return buffer;
}

int vel_file_load_stream(FILE *file, void **dataptr, size_t *datalen)
{
    size_t length = 0;
    *dataptr = vel_file_read_all(file, &length);
    const int platformerrno = errno;
    (void)vel_file_close(file);
    errno = platformerrno;

    if (datalen)
        *datalen = length;
    return *dataptr ? 0 : -1;
}

int vel_file_data_load(const char *filename, void **dataptr, size_t *datalen)
{
    VEL_ASSERT(filename != NULL);
    VEL_ASSERT(dataptr != NULL);

    *dataptr = nullptr;
    if (datalen)
        *datalen = 0;

    FILE *file = vel_file_open_binary(filename);
    return file ? vel_file_load_stream(file, dataptr, datalen) : -1;
}

struct file_twin {
    static constexpr const char *module = VEL_MODULE;

    static void remove_backup(const char *backupname)
    {
        (void)vel_deletefile(backupname); /* it need not be there */
    }

    static int result_without_backup(int result)
    {
        return result;
    }
};

int vel_file_data_save_with_backup(const char *filename, const void *data, size_t datalen)
{
    VEL_ASSERT(filename != NULL);
    VEL_ASSERT(data != NULL || datalen == 0);

    return vel_filecore_save_with_backup<file_twin>(filename, data, datalen);
}

int vel_file_data_load_with_backup(const char *filename, void **dataptr, size_t *datalen)
{
    VEL_ASSERT(filename != NULL);
    VEL_ASSERT(dataptr != NULL);

    return vel_filecore_load_with_backup<file_twin>(filename, dataptr, datalen);
}
