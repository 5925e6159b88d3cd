#ifndef VELLIB_VELGETHOSTNAME_H
#define VELLIB_VELGETHOSTNAME_H

#include <vellib/velapi.h>

/* velgethostname: the name of the host.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Gives the name of the host, of which at most 256 bytes are kept.
 *
 * Returns a new string, or NULL, logged, if there is not enough memory or the platform fails. */
VEL_API char *vel_gethostname(void);

VEL_DECLARATIONS_END

#endif
