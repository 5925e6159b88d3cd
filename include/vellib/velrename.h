#ifndef VELLIB_VELRENAME_H
#define VELLIB_VELRENAME_H

#include <vellib/velapi.h>

/* velrename: new names of files and directories. */

VEL_DECLARATIONS_BEGIN

/* Gives a file or directory a new name, as rename does: a file that had the new name is replaced
 * in one step.
 *
 * Returns 0, or -1 with errno set; logs nothing.
 * Threads: any. */
VEL_API int vel_rename(const char *oldpath, const char *newpath);

VEL_DECLARATIONS_END

#endif
