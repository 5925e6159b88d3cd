#ifndef VELLIB_VELUTF8RMDIR_H
#define VELLIB_VELUTF8RMDIR_H

#include <vellib/velapi.h>

/* velutf8rmdir: velrmdir for paths in UTF-8. The two do the same. */

VEL_DECLARATIONS_BEGIN

/* Removes an empty directory under its name in UTF-8, as vel_rmdir does.
 *
 * Returns 0, or -1 with errno set; logs nothing.
 * Threads: any. */
VEL_API int vel_utf8rmdir(const char *pathname);

VEL_DECLARATIONS_END

#endif
