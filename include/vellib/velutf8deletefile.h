#ifndef VELLIB_VELUTF8DELETEFILE_H
#define VELLIB_VELUTF8DELETEFILE_H

#include <vellib/velapi.h>

/* velutf8deletefile: veldeletefile for paths in UTF-8. The two do the same. */

VEL_DECLARATIONS_BEGIN

/* Removes a name in UTF-8 from its directory, as vel_deletefile does.
 *
 * Returns 0, or -1 with errno set; logs nothing.
 * Threads: any. */
VEL_API int vel_utf8deletefile(const char *filename);

VEL_DECLARATIONS_END

#endif
