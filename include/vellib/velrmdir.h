#ifndef VELLIB_VELRMDIR_H
#define VELLIB_VELRMDIR_H

#include <vellib/velapi.h>

/* velrmdir: removal of empty directories. */

VEL_DECLARATIONS_BEGIN

/* Removes an empty directory, as rmdir does. vel_dir_remove_recursive removes one with all that is
 * in it.
 *
 * Returns 0, or -1 with errno set; logs nothing.
 * Threads: any. */
VEL_API int vel_rmdir(const char *pathname);

VEL_DECLARATIONS_END

#endif
