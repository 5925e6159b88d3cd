#ifndef VELLIB_IO_VELDIR_CORE_H
#define VELLIB_IO_VELDIR_CORE_H

#include <dirent.h>
#include <errno.h>
#include <string.h>

#include <vellib/veldeletefile.h>
#include <vellib/veldir.h>
#include <vellib/velerror.h>
#include <vellib/velmalloc.h>
#include <vellib/velrmdir.h>
#include <vellib/velstrdup.h>
#include <vellib/velstrdupf.h>

#include "util/vellog_macros.h"

/* The walk of a directory and the removal of a tree, which veldir shares with its twin for names in
 * Normalization Form C. What asserts names its handle, so it stands in the twins. A twin has
 *   handle                 the type of its handle, whose fields have the names of veldir
 *   module, prefix         the path that its lines of log show, and what its functions begin with
 *   statname, stat         the type of its stat objects in the log, and the field that holds one
 *   stat_create ...        the functions of that type, and those of its own
 *   stored_name(dir)       the current entry's name as the file system has it, which is what every
 *                          path is built with; NULL, logged, without a current entry
 *   check_stat(dir)        looks at the current entry if that was not done
 *   deletes(path)          is told of each path before it is deleted that is no directory */

/* Zeroed fields are what a handle without a stream has. On false the caller destroys it. */
template <typename Twin> static bool vel_dircore_build(typename Twin::handle *dir, const char *path)
{
    if (path) {
        dir->path = vel_strdup(path);
        if (!dir->path) {
            VEL_LOG_IN(Twin::module, 7, "not enough memory for path '%s'", path);
            return false;
        }
    } else {
        path = ".";
    }
    dir->dir = opendir(path);
    if (dir->dir)
        return true;
    const int platformerrno = errno;
    if (platformerrno != ENOENT)
        VEL_LOG_IN(Twin::module, 7, "unable to open directory '%s', error %d", path, platformerrno);
    return false;
}

template <typename Twin> static typename Twin::handle *vel_dircore_open(const char *path)
{
    auto *dir = static_cast<typename Twin::handle *>(vel_cmalloc(sizeof(typename Twin::handle)));
    if (!dir) {
        VEL_LOG_IN(Twin::module, 7, "not enough memory for directory handle");
        return nullptr;
    }
    if (!vel_dircore_build<Twin>(dir, path)) {
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

template <typename Twin>
static bool vel_dircore_lstat_path(typename Twin::handle *dir, const char *path)
{
    if (Twin::stat_lstat(dir->*Twin::stat, path) == 0)
        return true;
    VEL_LOG_IN(Twin::module, 7, "unable to stat '%s'", path);
    return false;
}

/* Looks at the current entry. Returns false after logging why that cannot be done. */
template <typename Twin> static bool vel_dircore_lstat_entry(typename Twin::handle *dir)
{
    const char *name = Twin::stored_name(dir);
    if (!name) {
        VEL_LOG_IN(Twin::module, 6, "unable to fetch the entry name");
        return false;
    }
    if (!(dir->*Twin::stat)) {
        dir->*Twin::stat = Twin::stat_create();
        if (!(dir->*Twin::stat)) {
            VEL_LOG_IN(Twin::module, 7, "unable to create %s context", Twin::statname);
            return false;
        }
    }
    if (!dir->path)
        return vel_dircore_lstat_path<Twin>(dir, name);

    char *path = vel_strdupf("%s%c%s", dir->path, vel_dir_separator(), name);
    if (!path) {
        VEL_LOG_IN(Twin::module, 7, "not enough memory for stat path");
        return false;
    }
    const bool valid = vel_dircore_lstat_path<Twin>(dir, path);
    vel_free(path);
    return valid;
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

template <typename Twin> static int vel_dircore_remove_tree(const char *path);

/* Removes the current entry with all that is in it. What cannot be looked at is not entered. A link
 * to a directory is deleted as any file; a platform where that takes another call is why it has a
 * branch of its own. */
template <typename Twin>
static bool vel_dircore_remove_entry(typename Twin::handle *dir, const char *path)
{
    if (Twin::is_directory(dir) != 1) {
        Twin::deletes(path);
        if (vel_deletefile(path) == 0)
            return true;
        VEL_LOG_IN(Twin::module, 7, "unable to delete file '%s'", path);
        return false;
    }
    if (Twin::is_symlink(dir) == 0)
        return vel_dircore_remove_tree<Twin>(path) == 0;
    if (vel_deletefile(path) == 0)
        return true;
    VEL_LOG_IN(Twin::module, 7, "unable to delete symbolic link '%s'", path);
    return false;
}

/* Removes what is in a directory. Returns false if something stays, each failure being logged. */
template <typename Twin>
static bool vel_dircore_remove_entries(typename Twin::handle *dir, const char *dirpath)
{
    bool complete = true;
    int result;
    while ((result = Twin::next(dir)) == 0) {
        const char *name = Twin::stored_name(dir);
        if (!name) {
            VEL_LOG_IN(Twin::module, 7, "not enough memory for fetching directory entry name");
            return false;
        }
        if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0)
            continue;
        char *path = vel_strdupf("%s%c%s", dirpath, vel_dir_separator(), name);
        if (!path) {
            VEL_LOG_IN(Twin::module, 7, "not enough memory for path");
            complete = false;
            continue;
        }
        if (!vel_dircore_remove_entry<Twin>(dir, path))
            complete = false;
        vel_free(path);
    }
    if (result != -1) {
        VEL_LOG_IN(Twin::module, 7, "an error occurred reading the directory");
        return false;
    }
    return complete;
}

/* Calls itself for each level of the tree. A level keeps its stream open, so the descriptors of the
 * process, and else the longest path, end the descent long before the stack does. */
template <typename Twin> static int vel_dircore_remove_tree(const char *path)
{
    auto *dir = Twin::open(path);
    if (!dir) {
        VEL_LOG_IN(Twin::module, 13, "unable to open directory %s", path);
        return -1;
    }
    const bool complete = vel_dircore_remove_entries<Twin>(dir, path);
    Twin::destroy(dir);
    if (!complete)
        return -1;

    const int result = vel_rmdir(path);
    if (result != 0) {
        const int platformerrno = errno;
        VEL_LOG_IN(Twin::module, 7, "unable to remove directory '%s', errno %d", path,
                   platformerrno);
    }
    return result;
}

/* Tells whether the path is a directory itself (0) or a link to one (1). Anything else is logged
 * and gives -1. */
template <typename Twin> static int vel_dircore_inspect_root(const char *path)
{
    auto *stat = Twin::stat_create();
    if (!stat) {
        VEL_LOG_IN(Twin::module, 7, "not enough memory for %s context", Twin::statname);
        return -1;
    }
    int result = -1;
    if (Twin::stat_lstat(stat, path) != 0)
        VEL_LOG_IN(Twin::module, 7, "unable to stat path '%s'", path);
    else if (Twin::stat_is_directory(stat) != 1)
        VEL_LOG_IN(Twin::module, 7, "path '%s' is not a directory", path);
    else
        result = Twin::stat_is_symlink(stat);
    Twin::stat_destroy(stat);
    return result;
}

template <typename Twin> static int vel_dircore_remove_recursive(const char *path)
{
    const int islink = vel_dircore_inspect_root<Twin>(path);
    if (islink == -1)
        return -1;
    if (islink == 0)
        return vel_dircore_remove_tree<Twin>(path);

    const int result = vel_deletefile(path);
    if (result != 0)
        VEL_LOG_IN(Twin::module, 7, "unable to delete '%s'", path);
    return result;
}

#endif
