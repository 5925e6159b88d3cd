#ifndef VELLIB_VELUTF8HARDLINK_H
#define VELLIB_VELUTF8HARDLINK_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velutf8hardlink: velhardlink for paths in UTF-8. The two do the same. */

VEL_DECLARATIONS_BEGIN

/* Gives a file a further name, both in UTF-8, as vel_hardlink does, with its results.
 * Threads: any. */
VEL_API vel_error_t vel_utf8hardlink(const char *target, const char *linkpath);

VEL_DECLARATIONS_END

#endif
