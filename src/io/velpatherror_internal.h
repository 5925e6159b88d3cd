#ifndef VELLIB_IO_VELPATHERROR_INTERNAL_H
#define VELLIB_IO_VELPATHERROR_INTERNAL_H

#include <vellib/velerror.h>

/* What an error of the platform means to each of the operations that make a name. */
struct vel_patherror {
    int platformerrno;
    vel_error_t symlink, hardlink, mkdir;
};

/* Translates platformerrno for one operation, as &vel_patherror::mkdir. VEL_ERROR_GENERIC is what
 * the operation does not expect, for the caller to log. */
vel_error_t vel_patherror_find(int platformerrno, vel_error_t vel_patherror::*operation);

#endif
