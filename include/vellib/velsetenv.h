#ifndef VELLIB_VELSETENV_H
#define VELLIB_VELSETENV_H

#include <vellib/velapi.h>

/* velsetenv: changes of the environment.
 * Threads: none of them while another thread reads or changes the environment, which functions of
 * the platform may do unseen. */

VEL_DECLARATIONS_BEGIN

/* Sets a variable of the environment, as setenv does.
 *
 * name       of the variable.
 * value      is copied.
 * overwrite  0: leave a variable that is there as it is.
 *
 * Returns 0, or -1 with errno set. */
VEL_API int vel_setenv(const char *name, const char *value, int overwrite);

/* Removes a variable from the environment, as unsetenv does.
 *
 * Returns 0, also if there is no such variable, or -1 with errno set. */
VEL_API int vel_unsetenv(const char *name);

VEL_DECLARATIONS_END

#endif
