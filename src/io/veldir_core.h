#ifndef VELLIB_IO_VELDIR_CORE_H
#define VELLIB_IO_VELDIR_CORE_H

#include <dirent.h>
#include <errno.h>

#include <vellib/veldir.h>
#include <vellib/velerror.h>
#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>
#include <vellib/velstrdupf.h>

#include "util/vellog_macros.h"

/* The walk of a directory, which veldir shares with its twin for names in Normalization Form C, and
 * veldir_remove_core.h has the removal of a tree. What asserts names its handle, so it stands in the
 * twins. A twin has
 *   handle                 the type of its handle, whose fields have the names of veldir
 *   module, prefix         the path that its lines of log show, and what its functions begin with
 *   statname, stat         the type of its stat objects in the log, and the field that holds one
 *   stat_create ...        the functions of that type, and those of its own
 *   stored_name(dir)       the current entry's name as the file system has it, which is what the
 *                          entry is looked up by; NULL, logged, without a current entry
 *   check_stat(dir)        looks at the current entry if that was not done
 *   deletes(path)          is told of each path before it is deleted that is no directory */

/* A handle without a path and a stream. */
template <typename Twin> static typename Twin::handle *vel_dircore_create()
{
    auto *dir = static_cast<typename Twin::handle *>(vel_cmalloc(sizeof(typename Twin::handle)));
    if (!dir)
        VEL_LOG_IN(Twin::module, 7, "not enough memory for directory handle");
    return dir;
}

/* Gives the handle the stream that was just opened on path, or says why there is none. That the
 * directory is missing is an ordinary answer. */
template <typename Twin>
static bool vel_dircore_attach(typename Twin::handle *dir, DIR *stream, const char *path)
{
    const int platformerrno = errno;
    dir->dir = stream;
    if (!stream && platformerrno != ENOENT)
        VEL_LOG_IN(Twin::module, 7, "unable to open directory '%s', error %d", path, platformerrno);
    return stream;
}

template <typename Twin>
static bool vel_dircore_copy_path(typename Twin::handle *dir, const char *path)
{
    dir->path = vel_strdup(path);
    if (!dir->path)
        VEL_LOG_IN(Twin::module, 7, "not enough memory for path '%s'", path);
    return dir->path;
}

/* On false the caller destroys the handle. */
template <typename Twin> static bool vel_dircore_build(typename Twin::handle *dir, const char *path)
{
    if (!path)
        return vel_dircore_attach<Twin>(dir, opendir("."), ".");
    return vel_dircore_copy_path<Twin>(dir, path) &&
           vel_dircore_attach<Twin>(dir, opendir(path), path);
}

template <typename Twin> static typename Twin::handle *vel_dircore_open(const char *path)
{
    auto *dir = vel_dircore_create<Twin>();
    if (dir && !vel_dircore_build<Twin>(dir, path)) {
        Twin::destroy(dir);
        return nullptr;
    }
    return dir;
}

template <typename Twin> static void vel_dircore_destroy(typename Twin::handle *dir)
{
    if (dir->*Twin::stat)
        Twin::stat_destroy(dir->*Twin::stat);
    if (dir->dir)
        (void)closedir(dir->dir);
    if (dir->path)
        vel_free(dir->path);
    vel_free(dir);
}

template <typename Twin> static int vel_dircore_next(typename Twin::handle *dir)
{
    errno = 0;
    dir->entry = readdir(dir->dir);
    int result = dir->entry ? 0 : -1;
    if (errno != 0)
        result = errno;
    if (result == -1)
        dir->error = VEL_ERROR_NONE;
    dir->entryvalid = result == 0;
    dir->statvalid = 0;
    return result;
}

template <typename Twin> static bool vel_dircore_has_entry(const typename Twin::handle *dir)
{
    if (dir->entryvalid == 1)
        return true;
    VEL_LOG_IN(Twin::module, 6, "%s_next() has not been successfully called", Twin::prefix);
    return false;
}

/* The same before the name is given out, which is what the error of the handle is about. */
template <typename Twin> static bool vel_dircore_has_name(typename Twin::handle *dir)
{
    if (dir->entryvalid != 1)
        dir->error = VEL_ERROR_INVALID_ARGUMENT;
    return vel_dircore_has_entry<Twin>(dir);
}

template <typename Twin> static char *vel_dircore_copy_name(typename Twin::handle *dir)
{
    const char *name = Twin::fetch_name(dir);
    if (!name) {
        VEL_LOG_IN(Twin::module, 6, "unable to fetch entry name");
        return nullptr;
    }
    char *copy = vel_strdup(name);
    if (!copy)
        VEL_LOG_IN(Twin::module, 7, "not enough memory for copying name '%s'", name);
    return copy;
}

/* Looks at an entry by its name into the handle's stat object: lstat(stat, path) does it. Returns
 * false after logging why that cannot be done. */
template <typename Twin, typename Lstat>
static bool vel_dircore_lstat_name(typename Twin::handle *dir, const char *name, Lstat lstat)
{
    if (!(dir->*Twin::stat)) {
        dir->*Twin::stat = Twin::stat_create();
        if (!(dir->*Twin::stat)) {
            VEL_LOG_IN(Twin::module, 7, "unable to create %s context", Twin::statname);
            return false;
        }
    }
    char *path = nullptr;
    if (dir->path) {
        path = vel_strdupf("%s%c%s", dir->path, vel_dir_separator(), name);
        if (!path) {
            VEL_LOG_IN(Twin::module, 7, "not enough memory for stat path");
            return false;
        }
        name = path;
    }
    const bool valid = lstat(dir->*Twin::stat, name) == 0;
    if (!valid)
        VEL_LOG_IN(Twin::module, 7, "unable to stat '%s'", name);
    if (path)
        vel_free(path);
    return valid;
}

/* The same for the current entry. */
template <typename Twin> static bool vel_dircore_lstat_entry(typename Twin::handle *dir)
{
    const char *name = Twin::stored_name(dir);
    if (!name) {
        VEL_LOG_IN(Twin::module, 6, "unable to fetch the entry name");
        return false;
    }
    return vel_dircore_lstat_name<Twin>(dir, name, Twin::stat_lstat);
}

/* What each query of the current entry begins with. */
template <typename Twin> static bool vel_dircore_has_stat(typename Twin::handle *dir)
{
    if (!vel_dircore_has_entry<Twin>(dir))
        return false;
    Twin::check_stat(dir);
    if (dir->statvalid == 1)
        return true;
    VEL_LOG_IN(Twin::module, 6, "calling stat() has failed");
    return false;
}

/* What the queries that tell kinds apart end with. */
template <typename Twin> static int vel_dircore_answer(int answer)
{
    if (answer == -1)
        VEL_LOG_IN(Twin::module, 6, "INTERNAL ERROR: stat result was not valid");
    return answer;
}

#endif
