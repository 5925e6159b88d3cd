#include <vellib/velutf8stat.h>

#include <vellib/velmalloc.h>

#include "io/velutf8stat_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "io/velutf8stat"

velutf8stat *vel_utf8stat_create(void)
{
    auto *velutf8stat = static_cast<struct velutf8stat *>(vel_cmalloc(sizeof(struct velutf8stat)));
    if (!velutf8stat)
        VEL_LOG(7, "not enough memory for velutf8stat");
    return velutf8stat;
}

void vel_utf8stat_destroy(velutf8stat *velutf8stat)
{
    VEL_ASSERT(velutf8stat != NULL);

    vel_free(velutf8stat);
}

int vel_utf8stat_lstat(velutf8stat *velutf8stat, const char *path)
{
    VEL_ASSERT(velutf8stat != NULL);
    VEL_ASSERT(path != NULL);

    return vel_statcore_lstat(velutf8stat, path);
}

int vel_utf8stat_is_directory(velutf8stat *velutf8stat)
{
    VEL_ASSERT(velutf8stat != NULL);

    return vel_statcore_is_directory(velutf8stat);
}

int vel_utf8stat_is_symlink(velutf8stat *velutf8stat)
{
    VEL_ASSERT(velutf8stat != NULL);

    return vel_statcore_is_symlink(velutf8stat);
}

int64_t vel_utf8stat_get_size(velutf8stat *velutf8stat)
{
    VEL_ASSERT(velutf8stat != NULL);

    return vel_statcore_get_size(velutf8stat);
}
