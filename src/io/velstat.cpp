#include <vellib/velstat.h>

#include <vellib/velmalloc.h>

#include "io/velstat_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "io/velstat"

velstat *vel_stat_create(void)
{
    auto *velstat = static_cast<struct velstat *>(vel_cmalloc(sizeof(struct velstat)));
    if (!velstat)
        VEL_LOG(7, "not enough memory for velstat");
    return velstat;
}

void vel_stat_destroy(velstat *velstat)
{
    VEL_ASSERT(velstat != NULL);

    vel_free(velstat);
}

int vel_stat_lstat(velstat *velstat, const char *path)
{
    VEL_ASSERT(velstat != NULL);
    VEL_ASSERT(path != NULL);

    return vel_statcore_lstat(velstat, path);
}

int vel_stat_is_directory(velstat *velstat)
{
    VEL_ASSERT(velstat != NULL);

    return vel_statcore_is_directory(velstat);
}

int vel_stat_is_symlink(velstat *velstat)
{
    VEL_ASSERT(velstat != NULL);

    return vel_statcore_is_symlink(velstat);
}

int64_t vel_stat_get_size(velstat *velstat)
{
    VEL_ASSERT(velstat != NULL);

    return vel_statcore_get_size(velstat);
}
