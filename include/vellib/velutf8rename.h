#ifndef VELLIB_VELUTF8RENAME_H
#define VELLIB_VELUTF8RENAME_H

#include <vellib/velapi.h>

/* velutf8rename: velrename for paths in UTF-8. The two do the same. */

VEL_DECLARATIONS_BEGIN

/* Gives a file or directory a new name, both in UTF-8, as vel_rename does.
 *
 * Returns 0, or -1 with errno set; logs nothing.
 * Threads: any. */
VEL_API int vel_utf8rename(const char *oldpath, const char *newpath);

VEL_DECLARATIONS_END

#endif
