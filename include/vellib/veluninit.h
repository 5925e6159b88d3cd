#ifndef VELLIB_VELUNINIT_H
#define VELLIB_VELUNINIT_H

#include <vellib/velapi.h>

/* veluninit: the end of the library's global state, which arises by itself at first use. */

VEL_DECLARATIONS_BEGIN

/* Releases the default log, the failure database and the global random pool, in this order, where
 * they exist. The library can be used again afterwards, with default settings.
 * Threads: no other thread may be in the library. */
VEL_API void vel_uninit(void);

VEL_DECLARATIONS_END

#endif
