#ifndef VELLIB_IO_VELHARDLINK_INTERNAL_H
#define VELLIB_IO_VELHARDLINK_INTERNAL_H

#include <vellib/velerror.h>

/* Makes a hard link for velhardlink or its twin for UTF-8 paths. module is the path of the twin,
 * for the log. */
vel_error_t vel_hardlink_internal(const char *module, const char *target, const char *linkpath);

#endif
