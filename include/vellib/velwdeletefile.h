#ifndef VELLIB_VELWDELETEFILE_H
#define VELLIB_VELWDELETEFILE_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velwdeletefile: veldeletefile for paths in wide characters. */

VEL_DECLARATIONS_BEGIN

/* Removes a name in wide characters from its directory, as vel_deletefile does for the same name in
 * UTF-8.
 *
 * Returns 0, or -1 with errno set. What vel_wchar_to_utf8 refuses it logs, and gives ENOMEM.
 * Threads: any. */
VEL_API int vel_wdeletefile(const wchar_t *wfilename);

VEL_DECLARATIONS_END

#endif
