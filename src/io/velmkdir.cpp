#include <vellib/velmkdir.h>

#include <errno.h>
#include <limits.h>
#include <string.h>

#include <sys/stat.h>

#include <vellib/velmalloc.h>
#include <vellib/velstrndup.h>

#include "io/velmkdir_internal.h"
#include "io/velpatherror_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "io/velmkdir"

/* Tells whether a directory is there (1), something else (0), also a link to one, or nothing that
 * can be looked at (-1). */
static int vel_mkdir_is_directory(const char *pathname)
{
    struct stat record;
    if (lstat(pathname, &record) != 0)
        return -1;
    return S_ISDIR(record.st_mode);
}

/* The length of the path above the first bytes of pathname, or 0 if there is none: no separator, or
 * only the root. */
static size_t vel_mkdir_parent_length(const char *pathname, size_t length)
{
    const auto *separator = static_cast<const char *>(memrchr(pathname, '/', length));
    return separator ? static_cast<size_t>(separator - pathname) : 0;
}

static vel_error_t vel_mkdir_translated(const char *module, const char *pathname)
{
    if (vel_mkdir(pathname) == 0)
        return VEL_ERROR_NONE;

    const int platformerrno = errno;
    const vel_error_t velerror = vel_patherror_find(platformerrno, &vel_patherror::mkdir);
    if (velerror == VEL_ERROR_GENERIC)
        VEL_LOG_IN(module, 7, "an unhandled error %d occurred", platformerrno);
    return velerror;
}

/* A directory above one that is to be made. Its path stands behind it. */
struct vel_mkdir_parent {
    vel_mkdir_parent *child; /* the one below, NULL if that is the last */
};

static char *vel_mkdir_parent_path(vel_mkdir_parent *parent)
{
    return reinterpret_cast<char *>(parent + 1);
}

static vel_mkdir_parent *vel_mkdir_create_parent(vel_mkdir_parent *child, const char *pathname,
                                                 size_t length)
{
    auto *parent =
        static_cast<vel_mkdir_parent *>(vel_malloc(sizeof(vel_mkdir_parent) + length + 1));
    if (!parent)
        return nullptr;
    parent->child = child;
    memcpy(vel_mkdir_parent_path(parent), pathname, length);
    vel_mkdir_parent_path(parent)[length] = '\0';
    return parent;
}

/* Finds the directories above that are missing; *parentptr receives the uppermost. The path may have
 * as many parts as it likes: the stack does not grow with them, and what is longer than any path is
 * not there, so that nobody looks. */
static vel_error_t vel_mkdir_find_parents(const char *module, const char *pathname,
                                          vel_mkdir_parent **parentptr)
{
    size_t length = strlen(pathname);
    while ((length = vel_mkdir_parent_length(pathname, length)) > 0) {
        if (length >= PATH_MAX)
            continue;
        vel_mkdir_parent *parent = vel_mkdir_create_parent(*parentptr, pathname, length);
        if (!parent) {
            VEL_LOG_IN(module, 7, "not enough memory for parent directory path name");
            return VEL_ERROR_NO_MEMORY;
        }
        /* Where something else is there, making what is below fails by itself. */
        if (vel_mkdir_is_directory(vel_mkdir_parent_path(parent)) != -1) {
            vel_free(parent);
            break;
        }
        *parentptr = parent;
    }
    return VEL_ERROR_NONE;
}

vel_error_t vel_mkdir_recursive_internal(const char *module, const char *pathname)
{
    const int res = vel_mkdir_is_directory(pathname);
    if (res == 1)
        return VEL_ERROR_NONE;
    if (res == 0)
        return VEL_ERROR_EXISTS;
    VEL_ASSERT(res == -1);

    vel_mkdir_parent *parent = nullptr;
    vel_error_t velerror = vel_mkdir_find_parents(module, pathname, &parent);
    while (parent) {
        vel_mkdir_parent *child = parent->child;
        if (velerror == VEL_ERROR_NONE)
            velerror = vel_mkdir_translated(module, vel_mkdir_parent_path(parent));
        vel_free(parent);
        parent = child;
    }
    return velerror == VEL_ERROR_NONE ? vel_mkdir_translated(module, pathname) : velerror;
}

int vel_mkdir_file_path_internal(const char *module, const char *filename)
{
    const size_t length = vel_mkdir_parent_length(filename, strlen(filename));
    if (length == 0)
        return 0;

    char *pathname = vel_strndup(filename, length);
    if (!pathname) {
        VEL_LOG_IN(module, 7, "not enough memory for copying path name for file '%s'", filename);
        errno = ENOMEM;
        return -1;
    }
    const vel_error_t velerror = vel_mkdir_recursive_internal(module, pathname);
    if (velerror != VEL_ERROR_NONE)
        VEL_LOG_IN(module, 7, "creating path '%s' failed, error %d (%s)", pathname, velerror,
                   vel_error_string(velerror));
    vel_free(pathname);
    return velerror == VEL_ERROR_NONE ? 0 : -1;
}

int vel_mkdir(const char *pathname)
{
    VEL_ASSERT(pathname != NULL);

    return mkdir(pathname, 0777);
}

vel_error_t vel_mkdir_recursive(const char *pathname)
{
    VEL_ASSERT(pathname != NULL);

    return vel_mkdir_recursive_internal(VEL_MODULE, pathname);
}

int vel_mkdir_file_path(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_mkdir_file_path_internal(VEL_MODULE, filename);
}
