#ifndef VELLIB_IO_VELDIR_REMOVE_CORE_H
#define VELLIB_IO_VELDIR_REMOVE_CORE_H

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <sys/stat.h>

#include <vellib/veldeletefile.h>
#include <vellib/velmalloc.h>
#include <vellib/velrmdir.h>
#include <vellib/velstrdupf.h>

#include "io/veldir_core.h"
#include "io/velstat_core.h"
#include "util/vellog_macros.h"

/* The removal of a tree, for the twins of veldir_core.h. Each step names an entry by the open
 * directory that it stands in, so the tree may be deeper than the longest path, and nobody can lead
 * the walk astray by putting a link in place of a directory. Paths are for the log. All the same each
 * step allocates what the functions of a handle would, and says the same when it cannot.
 *
 * A directory stays open while its entries are removed. Once there are very many open, one above the
 * other, the highest is parked: the rest of its names is read into memory, and it is closed until the
 * walk comes back to it by "..". */

static constexpr size_t vel_dirwalk_most_open = 64;

/* Bytes that grow at the end. */
struct vel_dirwalk_text {
    char *bytes;
    size_t length, capacity;
};

/* Makes room behind the text. On false it is as it was. */
static inline bool vel_dirwalk_reserve(vel_dirwalk_text *text, size_t more)
{
    if (more <= text->capacity - text->length)
        return true;
    const size_t capacity = 2 * text->capacity + more;
    auto *bytes = static_cast<char *>(vel_realloc(text->bytes, capacity));
    if (!bytes)
        return false;
    text->bytes = bytes;
    text->capacity = capacity;
    return true;
}

/* Appends a string with its NUL. */
static inline bool vel_dirwalk_append(vel_dirwalk_text *text, const char *string)
{
    const size_t size = strlen(string) + 1;
    if (!vel_dirwalk_reserve(text, size))
        return false;
    memcpy(text->bytes + text->length, string, size);
    text->length += size;
    return true;
}

/* A directory whose entries are being removed. */
template <typename Twin> struct vel_dirwalk_level {
    vel_dirwalk_level *parent, *child;
    typename Twin::handle *dir; /* NULL while parked */
    size_t pathlength;          /* of the directory, whose path is in dir */
    bool allocated;             /* is a block of its own */
    bool incomplete;            /* something in it stays */
    bool listed;                /* was parked once: the names left then are here */
    vel_dirwalk_text names;     /* each with its NUL */
    size_t namespos;
    int result; /* what reading the names ended with */
    dev_t device;
    ino_t inode;
};

template <typename Twin> struct vel_dirwalk {
    vel_dirwalk_level<Twin> *highest, *deepest; /* of those open; the walk is in the deepest */
    size_t depth, opencount;                    /* levels in all, and those not parked */
    int result;                                 /* 0 until it is known that something stays */
    vel_dirwalk_level<Twin> levels[vel_dirwalk_most_open]; /* the uppermost */
};

static inline DIR *vel_dirwalk_opendir(int directory, const char *name)
{
    const int descriptor = openat(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor == -1)
        return nullptr;
    DIR *stream = fdopendir(descriptor);
    if (!stream) {
        const int platformerrno = errno;
        (void)close(descriptor);
        errno = platformerrno;
    }
    return stream;
}

template <typename Twin> static int vel_dirwalk_descriptor(const vel_dirwalk_level<Twin> *level)
{
    return dirfd(level->dir->dir);
}

/* The next name in a directory, but for "." and "..". Results are those of vel_dir_next. */
template <typename Twin>
static int vel_dirwalk_next(vel_dirwalk_level<Twin> *level, const char **nameptr)
{
    if (level->listed) {
        if (level->namespos == level->names.length)
            return level->result;
        *nameptr = level->names.bytes + level->namespos;
        level->namespos += strlen(*nameptr) + 1;
        return 0;
    }
    int result;
    do {
        result = Twin::next(level->dir);
        if (result != 0)
            return result;
        *nameptr = level->dir->entry->d_name;
    } while (strcmp(*nameptr, ".") == 0 || strcmp(*nameptr, "..") == 0);
    return 0;
}

/* Closes the highest open directory, whose names still to come are kept. */
template <typename Twin> static void vel_dirwalk_park(vel_dirwalk<Twin> *walk)
{
    vel_dirwalk_level<Twin> *level = walk->highest;
    struct stat record;
    if (fstat(vel_dirwalk_descriptor(level), &record) == 0) {
        level->device = record.st_dev;
        level->inode = record.st_ino;
    }
    const char *name;
    while (!level->listed && (level->result = vel_dirwalk_next(level, &name)) == 0) {
        if (vel_dirwalk_append(&level->names, name))
            continue;
        VEL_LOG_IN(Twin::module, 7, "not enough memory for path");
        level->incomplete = true;
        level->result = -1;
        break;
    }
    level->listed = true;
    Twin::destroy(level->dir);
    level->dir = nullptr;
    walk->highest = level->child;
    walk->opencount--;
}

/* Opens the directory above, if it is the one that was parked, and the walk has not been moved to
 * somewhere else together with the directory it is in. */
template <typename Twin>
static DIR *vel_dirwalk_opendir_above(const vel_dirwalk_level<Twin> *level,
                                      const vel_dirwalk_level<Twin> *parked)
{
    DIR *stream = vel_dirwalk_opendir(vel_dirwalk_descriptor(level), "..");
    struct stat record;
    if (!stream || (fstat(dirfd(stream), &record) == 0 && record.st_dev == parked->device &&
                    record.st_ino == parked->inode))
        return stream;
    (void)closedir(stream);
    errno = ESTALE;
    return nullptr;
}

/* Opens the parked directory above the deepest; its path comes later. On false the walk cannot go
 * on, which is logged. */
template <typename Twin> static bool vel_dirwalk_unpark(vel_dirwalk<Twin> *walk)
{
    vel_dirwalk_level<Twin> *level = walk->deepest->parent;
    char *path = walk->deepest->dir->path;
    const char cut = path[level->pathlength];
    path[level->pathlength] = '\0';
    level->dir = vel_dircore_create<Twin>();
    const bool attached =
        level->dir &&
        vel_dircore_attach<Twin>(level->dir, vel_dirwalk_opendir_above(walk->deepest, level), path);
    if (!attached)
        VEL_LOG_IN(Twin::module, 13, "unable to open directory %s", path);
    path[level->pathlength] = cut;
    walk->highest = level;
    walk->opencount++;
    return attached;
}

/* A new level below the deepest. Few trees need a block for it. */
template <typename Twin>
static vel_dirwalk_level<Twin> *vel_dirwalk_create_level(vel_dirwalk<Twin> *walk)
{
    using level_type = vel_dirwalk_level<Twin>;
    if (walk->depth < vel_dirwalk_most_open) {
        level_type *level = &walk->levels[walk->depth];
        *level = {};
        return level;
    }
    auto *level = static_cast<level_type *>(vel_cmalloc(sizeof(level_type)));
    if (!level) {
        VEL_LOG_IN(Twin::module, 7, "not enough memory for directory handle");
        return nullptr;
    }
    level->allocated = true;
    return level;
}

template <typename Twin> static void vel_dirwalk_destroy_level(vel_dirwalk_level<Twin> *level)
{
    if (level->dir)
        Twin::destroy(level->dir);
    if (level->names.bytes)
        vel_free(level->names.bytes);
    if (level->allocated)
        vel_free(level);
}

/* Opens the directory of a new level. On false the caller destroys what there is. */
template <typename Twin>
static bool vel_dirwalk_build_level(vel_dirwalk_level<Twin> *level, int directory, const char *name,
                                    const char *path)
{
    level->pathlength = strlen(path);
    level->dir = vel_dircore_create<Twin>();
    return level->dir && vel_dircore_copy_path<Twin>(level->dir, path) &&
           vel_dircore_attach<Twin>(level->dir, vel_dirwalk_opendir(directory, name), path);
}

/* Goes into a directory. On false it stays, which is logged. */
template <typename Twin>
static bool vel_dirwalk_enter(vel_dirwalk<Twin> *walk, int directory, const char *name,
                              const char *path)
{
    vel_dirwalk_level<Twin> *level = vel_dirwalk_create_level(walk);
    if (!level || !vel_dirwalk_build_level(level, directory, name, path)) {
        VEL_LOG_IN(Twin::module, 13, "unable to open directory %s", path);
        if (level)
            vel_dirwalk_destroy_level(level);
        return false;
    }
    level->parent = walk->deepest;
    if (level->parent)
        level->parent->child = level;
    else
        walk->highest = level;
    walk->deepest = level;
    walk->depth++;
    if (++walk->opencount > vel_dirwalk_most_open)
        vel_dirwalk_park(walk);
    return true;
}

/* Closes the deepest directory, and what is above it becomes the deepest. */
template <typename Twin> static void vel_dirwalk_pop(vel_dirwalk<Twin> *walk)
{
    vel_dirwalk_level<Twin> *level = walk->deepest;
    walk->deepest = level->parent;
    walk->depth--;
    walk->opencount--;
    vel_dirwalk_destroy_level(level);
}

/* Removes an emptied directory below the deepest, or the top. Returns false if it stays, which is
 * logged. */
template <typename Twin>
static bool vel_dirwalk_remove_directory(const vel_dirwalk<Twin> *walk, const char *path)
{
    const vel_dirwalk_level<Twin> *parent = walk->deepest;
    const int result = parent ? unlinkat(vel_dirwalk_descriptor(parent),
                                         path + parent->pathlength + 1, AT_REMOVEDIR)
                              : vel_rmdir(path);
    if (result == 0)
        return true;
    const int platformerrno = errno;
    VEL_LOG_IN(Twin::module, 7, "unable to remove directory '%s', errno %d", path, platformerrno);
    return false;
}

/* Leaves the deepest directory, and removes it if nothing stays in it. On false the walk cannot go
 * on. */
template <typename Twin> static bool vel_dirwalk_leave(vel_dirwalk<Twin> *walk)
{
    vel_dirwalk_level<Twin> *level = walk->deepest, *parent = level->parent;
    if (parent && !parent->dir && !vel_dirwalk_unpark(walk))
        return false;
    const bool incomplete = level->incomplete;
    char *path = level->dir->path;
    level->dir->path = nullptr;
    vel_dirwalk_pop(walk);

    if (incomplete || !vel_dirwalk_remove_directory(walk, path)) {
        if (parent)
            parent->incomplete = true;
        else
            walk->result = -1;
    }
    if (parent && !parent->dir->path) { /* was parked: its path is the beginning of this one */
        path[parent->pathlength] = '\0';
        parent->dir->path = path;
    } else {
        vel_free(path);
    }
    return true;
}

/* Looks at an entry of the deepest directory. Returns NULL, logged, if that cannot be done. */
template <typename Twin>
static const vel_statcore *vel_dirwalk_lstat(const vel_dirwalk_level<Twin> *level, const char *name)
{
    const int directory = vel_dirwalk_descriptor(level);
    const auto lstat = [=](vel_statcore *stat, const char *) {
        return vel_statcore_lstat_at(stat, directory, name);
    };
    if (vel_dircore_lstat_name<Twin>(level->dir, name, lstat))
        return level->dir->*Twin::stat;
    VEL_LOG_IN(Twin::module, 6, "calling stat() has failed");
    return nullptr;
}

/* Deletes a link to a directory; name and path are the same outside the walk. */
template <typename Twin>
static int vel_dirwalk_delete_link(int directory, const char *name, const char *path)
{
    const int result = directory == AT_FDCWD ? vel_deletefile(path) : unlinkat(directory, name, 0);
    if (result != 0)
        VEL_LOG_IN(Twin::module, 7, "unable to delete '%s'", path);
    return result;
}

/* Removes an entry of the deepest directory, or goes into it. Returns false if it stays, which is
 * logged. What cannot be looked at is taken for a file. A link to a directory is deleted as one, too,
 * but that takes another call on some platforms, and has its own lines. */
template <typename Twin>
static bool vel_dirwalk_remove_path(vel_dirwalk<Twin> *walk, const char *name, const char *path)
{
    const int directory = vel_dirwalk_descriptor(walk->deepest);
    const vel_statcore *stat = vel_dirwalk_lstat(walk->deepest, name);
    if (!stat || vel_statcore_is_directory(stat) != 1) {
        Twin::deletes(path);
        if (unlinkat(directory, name, 0) == 0)
            return true;
        VEL_LOG_IN(Twin::module, 7, "unable to delete file '%s'", path);
        return false;
    }
    if (vel_statcore_is_symlink(stat) == 0)
        return vel_dirwalk_enter(walk, directory, name, path);
    if (vel_dirwalk_delete_link<Twin>(directory, name, path) == 0)
        return true;
    VEL_LOG_IN(Twin::module, 7, "unable to delete symbolic link '%s'", path);
    return false;
}

template <typename Twin>
static bool vel_dirwalk_remove_entry(vel_dirwalk<Twin> *walk, const char *name)
{
    char *path = vel_strdupf("%s%c%s", walk->deepest->dir->path, vel_dir_separator(), name);
    if (!path) {
        VEL_LOG_IN(Twin::module, 7, "not enough memory for path");
        return false;
    }
    const bool removed = vel_dirwalk_remove_path(walk, name, path);
    vel_free(path);
    return removed;
}

/* Removes what the walk has entered, as far as that can be done. */
template <typename Twin> static void vel_dirwalk_run(vel_dirwalk<Twin> *walk)
{
    while (walk->deepest) {
        vel_dirwalk_level<Twin> *level = walk->deepest;
        const char *name;
        const int result = vel_dirwalk_next(level, &name);
        if (result == 0) {
            if (!vel_dirwalk_remove_entry(walk, name))
                level->incomplete = true;
            continue;
        }
        if (result != -1) {
            VEL_LOG_IN(Twin::module, 7, "an error occurred reading the directory");
            level->incomplete = true;
        }
        if (!vel_dirwalk_leave(walk)) {
            walk->result = -1;
            return;
        }
    }
}

template <typename Twin> static int vel_dircore_remove_tree(const char *path)
{
    vel_dirwalk<Twin> walk = {};
    if (!vel_dirwalk_enter(&walk, AT_FDCWD, path, path))
        return -1;
    vel_dirwalk_run(&walk);
    while (walk.deepest)
        vel_dirwalk_pop(&walk);
    return walk.result;
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
    return vel_dirwalk_delete_link<Twin>(AT_FDCWD, path, path);
}

#endif
