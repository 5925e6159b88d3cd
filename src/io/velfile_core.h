#ifndef VELLIB_IO_VELFILE_CORE_H
#define VELLIB_IO_VELFILE_CORE_H

#include <errno.h>

#include <vellib/veldeletefile.h>
#include <vellib/velfile.h>
#include <vellib/velmalloc.h>
#include <vellib/velrename.h>
#include <vellib/velstrdupf.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

/* The safe save and its load, which velfile shares with its twin for UTF-8 paths. A twin has
 *   module                        the path that its lines of log show
 *   remove_backup(backupname)     makes way for the new backup; what fails is not fatal
 *   result_without_backup(result) what the save returns when the rename to the backup gave result
 *
 * Between any two of these steps N or N.bak is complete, and whichever of them the load finds
 * first is the old version or the new one:
 *   1. write N.tmp   2. delete N.bak   3. rename N to N.bak   4. rename N.tmp to N
 * Between 3 and 4 there is no N; that is what the load has its second try for. */

/* Reads a stream from start to end into a new block and closes it. In velfile.cpp. */
int vel_file_load_stream(FILE *file, void **dataptr, size_t *datalen);

/* Cleans up after a failure. errno is what the failing call left: platformerrno. */
template <typename Twin>
static int vel_filecore_discard(const char *tempname, int result, int platformerrno)
{
    VEL_ASSERT(tempname != NULL);

    if (vel_deletefile(tempname) != 0)
        VEL_LOG_IN(Twin::module, 7, "unable to delete the temporary file");
    errno = platformerrno;
    return result;
}

template <typename Twin>
static int vel_filecore_save_named(const char *filename, const char *tempname,
                                   const char *backupname, const void *data, size_t datalen)
{
    int result = vel_file_data_save(tempname, data, datalen);
    if (result != 0)
        return vel_filecore_discard<Twin>(tempname, result, errno);

    /* If it cannot be told whether there is an old version, the new one is worth more. */
    if (vel_file_exists(filename) == 1) {
        Twin::remove_backup(backupname);
        result = vel_rename(filename, backupname);
        if (result != 0) {
            const int platformerrno = errno;
            VEL_LOG_IN(Twin::module, 7, "unable to rename the previous file as the backup file");
            return vel_filecore_discard<Twin>(tempname, Twin::result_without_backup(result),
                                              platformerrno);
        }
    }

    result = vel_rename(tempname, filename);
    if (result != 0) {
        const int platformerrno = errno;
        VEL_LOG_IN(Twin::module, 7, "unable to rename '%s' as '%s'", tempname, filename);
        return vel_filecore_discard<Twin>(tempname, result, platformerrno);
    }
    return 0;
}

template <typename Twin>
static int vel_filecore_save_with_backup(const char *filename, const void *data, size_t datalen)
{
    char *tempname = vel_strdupf("%s.tmp", filename);
    if (!tempname) {
        VEL_LOG_IN(Twin::module, 7, "not enough memory for temporary file name");
        return -1;
    }
    char *backupname = vel_strdupf("%s.bak", filename);
    if (!backupname) {
        VEL_LOG_IN(Twin::module, 7, "not enough memory for backup file name");
        vel_free(tempname);
        return -1;
    }

    const int result = vel_filecore_save_named<Twin>(filename, tempname, backupname, data, datalen);
    const int platformerrno = errno;
    vel_free(backupname);
    vel_free(tempname);
    errno = platformerrno;
    return result;
}

template <typename Twin> static FILE *vel_filecore_open_backup(const char *filename)
{
    char *backupname = vel_strdupf("%s.bak", filename);
    if (!backupname) {
        VEL_LOG_IN(Twin::module, 7, "not enough memory for backup file name '%s.bak'", filename);
        return nullptr;
    }
    FILE *file = vel_file_open_binary(backupname);
    const int platformerrno = errno;
    vel_free(backupname);
    errno = platformerrno;
    return file;
}

template <typename Twin>
static int vel_filecore_load_with_backup(const char *filename, void **dataptr, size_t *datalen)
{
    *dataptr = nullptr;
    if (datalen)
        *datalen = 0;

    FILE *file = vel_file_open_binary(filename);
    if (!file)
        file = vel_filecore_open_backup<Twin>(filename);
    return file ? vel_file_load_stream(file, dataptr, datalen) : -1;
}

#endif
