#ifndef VELLIB_IO_VELMKDIR_INTERNAL_H
#define VELLIB_IO_VELMKDIR_INTERNAL_H

#include <vellib/velerror.h>

/* The bodies that velmkdir shares with its twin for UTF-8 paths. module is the path of the twin,
 * for the log. */
vel_error_t vel_mkdir_recursive_internal(const char *module, const char *pathname);
int vel_mkdir_file_path_internal(const char *module, const char *filename);

#endif
