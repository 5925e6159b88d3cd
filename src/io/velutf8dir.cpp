#include <vellib/velutf8dir.h>

#include <limits.h>
#include <string.h>

#include <vellib/vellimit.h>
#include <vellib/velmalloc.h>

#include "io/veldir_core.h"
#include "io/veldir_remove_core.h"
#include "io/velnormalform_internal.h"
#include "io/velutf8dir_internal.h"
#include "io/velutf8stat_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "io/velutf8dir"

struct velutf8dir {
    char *path;           /* NULL if the current directory was asked for */
    DIR *dir;             /* NULL only until it is opened */
    int32_t entryvalid;   /* 1 while there is a current entry */
    struct dirent *entry; /* the platform's */
    char *nfcname;     /* what entry is called in Normalization Form C, or NULL until asked for */
    int32_t statvalid; /* 1 if velutf8stat is about the current entry */
    struct velutf8stat *velutf8stat; /* NULL until first needed, then for all entries */
    int32_t error;
};

static const char *vel_utf8dir_stored_name(velutf8dir *velutf8dir);
static void vel_utf8dir_check_stat(velutf8dir *velutf8dir);

struct utf8dir_twin {
    using handle = velutf8dir;
    static constexpr auto module = VEL_MODULE, prefix = "vel_utf8dir", statname = "velutf8stat";
    static constexpr auto stat = &velutf8dir::velutf8stat;
    static constexpr auto stat_create = vel_utf8stat_create;
    static constexpr auto stat_destroy = vel_utf8stat_destroy;
    static constexpr auto stat_lstat = vel_utf8stat_lstat;
    static constexpr auto stat_is_directory = vel_utf8stat_is_directory;
    static constexpr auto stat_is_symlink = vel_utf8stat_is_symlink;
    static constexpr auto destroy = vel_utf8dir_destroy;
    static constexpr auto next = vel_utf8dir_next;
    static constexpr auto fetch_name = vel_utf8dir_fetch_name;
    static constexpr auto stored_name = vel_utf8dir_stored_name;
    static constexpr auto check_stat = vel_utf8dir_check_stat;

    static void deletes(const char *path)
    {
        VEL_LOG(13, "vel_utf8deletefile(%s)", path);
    }
};

static const char *vel_utf8dir_stored_name(velutf8dir *velutf8dir)
{
    if (!vel_dircore_has_name<utf8dir_twin>(velutf8dir))
        return nullptr;
    VEL_ASSERT(velutf8dir->entry != NULL);
    return velutf8dir->entry->d_name;
}

static void vel_utf8dir_check_stat(velutf8dir *velutf8dir)
{
    if (velutf8dir->statvalid == 1)
        return;
    if (!vel_dircore_lstat_entry<utf8dir_twin>(velutf8dir)) {
        VEL_ASSERT(velutf8dir->statvalid == 0);
        return;
    }
    velutf8dir->statvalid = 1;
}

static void vel_utf8dir_forget_name(velutf8dir *velutf8dir)
{
    if (velutf8dir->nfcname)
        vel_free(velutf8dir->nfcname);
    velutf8dir->nfcname = nullptr;
}

/* Fills a buffer of length + 1 bytes. Returns false after logging why that cannot be done. */
static bool vel_utf8dir_fill_nfc(char *nfc, const char *nfd, size_t length)
{
    if (length >= SSIZE_MAX || length == vel_limit_max_size_t()) {
        VEL_LOG(6, "NFD string length %lu is too long to be converted",
                static_cast<unsigned long>(length));
        return false;
    }
    size_t nfclength;
    if (!vel_normalform_compose(nfd, length, nfc, length, &nfclength)) {
        VEL_LOG(7, "unable to convert NFD string to NFC");
        return false;
    }
    nfc[nfclength] = '\0';
    return true;
}

char *vel_utf8dir_nfd_to_nfc(const char *nfd)
{
    VEL_ASSERT(nfd != NULL);

    const size_t length = strlen(nfd);
    auto *nfc = static_cast<char *>(vel_malloc(length + 1));
    if (!nfc) {
        VEL_LOG(7, "not enough memory for NFC string buffer (%lu bytes)",
                static_cast<unsigned long>(length));
        return nullptr;
    }
    if (!vel_utf8dir_fill_nfc(nfc, nfd, length)) {
        vel_free(nfc);
        return nullptr;
    }
    return nfc;
}

velutf8dir *vel_utf8dir_open(const char *path)
{
    return vel_dircore_open<utf8dir_twin>(path);
}

void vel_utf8dir_destroy(velutf8dir *velutf8dir)
{
    VEL_ASSERT(velutf8dir != NULL);

    vel_utf8dir_forget_name(velutf8dir);
    vel_dircore_destroy<utf8dir_twin>(velutf8dir);
}

int vel_utf8dir_next(velutf8dir *velutf8dir)
{
    VEL_ASSERT(velutf8dir != NULL);

    vel_utf8dir_forget_name(velutf8dir);
    return vel_dircore_next<utf8dir_twin>(velutf8dir);
}

const char *vel_utf8dir_fetch_name(velutf8dir *velutf8dir)
{
    VEL_ASSERT(velutf8dir != NULL);

    const char *name = vel_utf8dir_stored_name(velutf8dir);
    if (!name)
        return nullptr;
    if (!velutf8dir->nfcname) {
        velutf8dir->nfcname = vel_utf8dir_nfd_to_nfc(name);
        if (!velutf8dir->nfcname)
            VEL_LOG(7, "not enough memory to convert the filename to NFC");
    }
    return velutf8dir->nfcname;
}

char *vel_utf8dir_copy_name(velutf8dir *velutf8dir)
{
    VEL_ASSERT(velutf8dir != NULL);

    return vel_dircore_copy_name<utf8dir_twin>(velutf8dir);
}

int vel_utf8dir_is_directory(velutf8dir *velutf8dir)
{
    VEL_ASSERT(velutf8dir != NULL);

    if (!vel_dircore_has_stat<utf8dir_twin>(velutf8dir))
        return -1;
    VEL_ASSERT(velutf8dir->velutf8stat != NULL);
    return vel_dircore_answer<utf8dir_twin>(vel_utf8stat_is_directory(velutf8dir->velutf8stat));
}

int vel_utf8dir_is_symlink(velutf8dir *velutf8dir)
{
    VEL_ASSERT(velutf8dir != NULL);

    if (!vel_dircore_has_stat<utf8dir_twin>(velutf8dir))
        return -1;
    VEL_ASSERT(velutf8dir->velutf8stat != NULL);
    return vel_dircore_answer<utf8dir_twin>(vel_utf8stat_is_symlink(velutf8dir->velutf8stat));
}

int64_t vel_utf8dir_get_size(velutf8dir *velutf8dir)
{
    VEL_ASSERT(velutf8dir != NULL);

    if (!vel_dircore_has_stat<utf8dir_twin>(velutf8dir))
        return -1;
    VEL_ASSERT(velutf8dir->velutf8stat != NULL);
    return vel_utf8stat_get_size(velutf8dir->velutf8stat);
}

int vel_utf8dir_get_error(velutf8dir *velutf8dir)
{
    VEL_ASSERT(velutf8dir != NULL);

    return velutf8dir->error;
}

char vel_utf8dir_separator(void)
{
    return vel_dir_separator();
}

int vel_utf8dir_remove_recursive(const char *path)
{
    VEL_ASSERT(path != NULL);

    return vel_dircore_remove_recursive<utf8dir_twin>(path);
}
