#ifndef VELLIB_VELUNAME_H
#define VELLIB_VELUNAME_H

#include <vellib/velapi.h>

/* veluname: what the system is called, as uname has it.
 * Threads: any. */

VEL_DECLARATIONS_BEGIN

/* Gives the name of the operating system, such as "Linux".
 *
 * Returns a new string, or NULL if there is not enough memory, which is logged, or if the platform
 * fails, which is not. */
VEL_API char *vel_uname_sysname(void);

/* Gives the name of the machine in its network.
 *
 * Returns a new string, or NULL, logged, if there is not enough memory or the platform fails. */
VEL_API char *vel_uname_nodename(void);

/* Gives the release of the operating system and its version, with a blank between them.
 *
 * Returns a new string, or NULL, logged, if there is not enough memory or the platform fails. */
VEL_API char *vel_uname_version(void);

/* Gives the name of the architecture, such as "x86_64".
 *
 * Returns a new string, or NULL, logged, if there is not enough memory or the platform fails. */
VEL_API char *vel_uname_architecture(void);

VEL_DECLARATIONS_END

#endif
