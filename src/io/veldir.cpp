#include <vellib/veldir.h>

#include "io/veldir_core.h"
#include "io/veldir_remove_core.h"
#include "io/velstat_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "io/veldir"

struct veldir {
    char *path;              /* NULL if the current directory was asked for */
    DIR *dir;                /* NULL only until it is opened */
    int32_t entryvalid;      /* 1 while there is a current entry */
    struct dirent *entry;    /* the platform's */
    int32_t statvalid;       /* 1 if velstat is about the current entry */
    struct velstat *velstat; /* NULL until first needed, then for all entries */
    int32_t error;
};

static void vel_dir_check_stat(veldir *veldir);

struct dir_twin {
    using handle = veldir;
    static constexpr auto module = VEL_MODULE, prefix = "vel_dir", statname = "velstat";
    static constexpr auto stat = &veldir::velstat;
    static constexpr auto stat_create = vel_stat_create;
    static constexpr auto stat_destroy = vel_stat_destroy;
    static constexpr auto stat_lstat = vel_stat_lstat;
    static constexpr auto stat_is_directory = vel_stat_is_directory;
    static constexpr auto stat_is_symlink = vel_stat_is_symlink;
    static constexpr auto destroy = vel_dir_destroy;
    static constexpr auto next = vel_dir_next;
    static constexpr auto fetch_name = vel_dir_fetch_name;
    static constexpr auto stored_name = vel_dir_fetch_name;
    static constexpr auto check_stat = vel_dir_check_stat;

    static void deletes(const char *)
    {
    }
};

static void vel_dir_check_stat(veldir *veldir)
{
    if (veldir->statvalid == 1)
        return;
    if (!vel_dircore_lstat_entry<dir_twin>(veldir)) {
        VEL_ASSERT(veldir->statvalid == 0);
        return;
    }
    veldir->statvalid = 1;
}

veldir *vel_dir_open(const char *path)
{
    return vel_dircore_open<dir_twin>(path);
}

void vel_dir_destroy(veldir *veldir)
{
    VEL_ASSERT(veldir != NULL);

    vel_dircore_destroy<dir_twin>(veldir);
}

int vel_dir_next(veldir *veldir)
{
    VEL_ASSERT(veldir != NULL);

    return vel_dircore_next<dir_twin>(veldir);
}

const char *vel_dir_fetch_name(veldir *veldir)
{
    VEL_ASSERT(veldir != NULL);

    if (!vel_dircore_has_name<dir_twin>(veldir))
        return nullptr;
    VEL_ASSERT(veldir->entry != NULL);
    return veldir->entry->d_name;
}

char *vel_dir_copy_name(veldir *veldir)
{
    VEL_ASSERT(veldir != NULL);

    return vel_dircore_copy_name<dir_twin>(veldir);
}

int vel_dir_is_directory(veldir *veldir)
{
    VEL_ASSERT(veldir != NULL);

    if (!vel_dircore_has_stat<dir_twin>(veldir))
        return -1;
    VEL_ASSERT(veldir->velstat != NULL);
    return vel_dircore_answer<dir_twin>(vel_stat_is_directory(veldir->velstat));
}

int vel_dir_is_symlink(veldir *veldir)
{
    VEL_ASSERT(veldir != NULL);

    if (!vel_dircore_has_stat<dir_twin>(veldir))
        return -1;
    VEL_ASSERT(veldir->velstat != NULL);
    return vel_dircore_answer<dir_twin>(vel_stat_is_symlink(veldir->velstat));
}

int64_t vel_dir_get_size(veldir *veldir)
{
    VEL_ASSERT(veldir != NULL);

    if (!vel_dircore_has_stat<dir_twin>(veldir))
        return -1;
    VEL_ASSERT(veldir->velstat != NULL);
    return vel_stat_get_size(veldir->velstat);
}

int vel_dir_get_error(veldir *veldir)
{
    VEL_ASSERT(veldir != NULL);

    return veldir->error;
}

char vel_dir_separator(void)
{
    return '/';
}

int vel_dir_remove_recursive(const char *path)
{
    VEL_ASSERT(path != NULL);

    return vel_dircore_remove_recursive<dir_twin>(path);
}
