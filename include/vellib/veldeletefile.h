#ifndef VELLIB_VELDELETEFILE_H
#define VELLIB_VELDELETEFILE_H

#include <vellib/velapi.h>

/* veldeletefile: removal of a name of a file. */

VEL_DECLARATIONS_BEGIN

/* Removes a name from its directory, as unlink does; a symbolic link itself, not its target.
 *
 * Returns 0, or -1 with errno set; logs nothing.
 * Threads: any. */
VEL_API int vel_deletefile(const char *filename);

VEL_DECLARATIONS_END

#endif
