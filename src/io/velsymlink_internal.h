#ifndef VELLIB_IO_VELSYMLINK_INTERNAL_H
#define VELLIB_IO_VELSYMLINK_INTERNAL_H

#include <vellib/velerror.h>

/* Makes a symbolic link for velsymlink or its twin for UTF-8 paths. module is the path of the twin,
 * for the log. */
vel_error_t vel_symlink_unix(const char *module, const char *target, const char *linkpath);

#endif
