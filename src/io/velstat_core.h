#ifndef VELLIB_IO_VELSTAT_CORE_H
#define VELLIB_IO_VELSTAT_CORE_H

#include <fcntl.h>
#include <stdint.h>

#include <sys/stat.h>

/* The bodies that velstat shares with its twin for UTF-8 paths. Their handles derive from this and
 * add nothing. */
struct vel_statcore {
    int32_t valid; /* 1 if the last lstat succeeded */
    struct stat record;
    int32_t isdirectory;
};

/* look(follow, recordptr) is lstat, or stat if it is to follow a link. */
template <typename Look> inline int vel_statcore_look(vel_statcore *statcore, Look look)
{
    const int result = look(false, &statcore->record);
    statcore->valid = result == 0;
    if (result != 0)
        return result;

    statcore->isdirectory = S_ISDIR(statcore->record.st_mode);
    if (S_ISLNK(statcore->record.st_mode)) {
        struct stat target;
        if (look(true, &target) == 0 && S_ISDIR(target.st_mode))
            statcore->isdirectory = 1;
    }
    return 0;
}

inline int vel_statcore_lstat(vel_statcore *statcore, const char *path)
{
    return vel_statcore_look(statcore, [=](bool follow, struct stat *recordptr) {
        return follow ? stat(path, recordptr) : lstat(path, recordptr);
    });
}

/* The same for a name in an open directory. */
inline int vel_statcore_lstat_at(vel_statcore *statcore, int directory, const char *name)
{
    return vel_statcore_look(statcore, [=](bool follow, struct stat *recordptr) {
        return fstatat(directory, name, recordptr, follow ? 0 : AT_SYMLINK_NOFOLLOW);
    });
}

inline int vel_statcore_is_directory(const vel_statcore *statcore)
{
    return statcore->valid == 1 ? statcore->isdirectory : -1;
}

inline int vel_statcore_is_symlink(const vel_statcore *statcore)
{
    return statcore->valid == 1 ? S_ISLNK(statcore->record.st_mode) : -1;
}

inline int64_t vel_statcore_get_size(const vel_statcore *statcore)
{
    return statcore->valid == 1 ? static_cast<int64_t>(statcore->record.st_size) : -1;
}

#endif
