#ifndef VELLIB_VELSTRNCPY_H
#define VELLIB_VELSTRNCPY_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velstrncpy: a bounded copy that is always terminated.
 * Threads: any, at any time. */

VEL_DECLARATIONS_BEGIN

/* Copies at most n - 1 bytes of a string and terminates them. Unlike strncpy it leaves the rest
 * of the destination alone.
 *
 * dest  n bytes.
 * src   a string, of which at most n bytes are read.
 * n     0 writes nothing.
 *
 * Returns dest. */
VEL_API char *vel_strncpy(char *dest, const char *src, size_t n);

VEL_DECLARATIONS_END

#endif
