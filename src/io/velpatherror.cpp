#include "io/velpatherror_internal.h"

#include <errno.h>

/* Stands for an error that the operation does not expect. */
static constexpr vel_error_t unhandled = VEL_ERROR_GENERIC;

/* The differences along a row are deliberate. */
/* clang-format off */
static constexpr vel_patherror vel_patherrors[] = {
    /*              symlink                  hardlink                  mkdir */
    {EPERM,        VEL_ERROR_UNSUPPORTED,   VEL_ERROR_UNSUPPORTED,    VEL_ERROR_ACCESS},
    {ENOENT,       VEL_ERROR_NOT_FOUND,     VEL_ERROR_NOT_FOUND,      VEL_ERROR_NOT_DIRECTORY},
    {EIO,          VEL_ERROR_IO,            VEL_ERROR_IO,             unhandled},
    {ENOMEM,       VEL_ERROR_NO_MEMORY,     VEL_ERROR_NO_MEMORY,      VEL_ERROR_NO_MEMORY},
    {EACCES,       VEL_ERROR_ACCESS,        VEL_ERROR_ACCESS,         VEL_ERROR_ACCESS},
    {EFAULT,       VEL_ERROR_BAD_ADDRESS,   VEL_ERROR_BAD_ADDRESS,    unhandled},
    {EEXIST,       unhandled,               VEL_ERROR_EXISTS,         VEL_ERROR_NONE}, /* another was faster */
    {EXDEV,        unhandled,               VEL_ERROR_CROSS_DEVICE,   unhandled},
    {ENOTDIR,      unhandled,               VEL_ERROR_NOT_DIRECTORY,  VEL_ERROR_NOT_DIRECTORY},
    {ENOSPC,       VEL_ERROR_NO_SPACE,      VEL_ERROR_NO_SPACE,       VEL_ERROR_NO_SPACE},
    {EROFS,        VEL_ERROR_READ_ONLY,     VEL_ERROR_READ_ONLY,      VEL_ERROR_READ_ONLY},
    {EMLINK,       unhandled,               VEL_ERROR_TOO_MANY_LINKS, VEL_ERROR_TOO_MANY_LINKS},
    {ELOOP,        VEL_ERROR_SYMLINK_LOOP,  VEL_ERROR_SYMLINK_LOOP,   VEL_ERROR_SYMLINK_LOOP},
    {ENAMETOOLONG, VEL_ERROR_NAME_TOO_LONG, VEL_ERROR_NAME_TOO_LONG,  VEL_ERROR_NAME_TOO_LONG},
    {EDQUOT,       VEL_ERROR_QUOTA,         VEL_ERROR_QUOTA,          unhandled},
};
/* clang-format on */

vel_error_t vel_patherror_find(int platformerrno, vel_error_t vel_patherror::*operation)
{
    for (const vel_patherror &entry : vel_patherrors) {
        if (entry.platformerrno == platformerrno)
            return entry.*operation;
    }
    return unhandled;
}
