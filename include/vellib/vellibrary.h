#ifndef VELLIB_VELLIBRARY_H
#define VELLIB_VELLIBRARY_H

#include <vellib/velapi.h>

/* vellibrary: a shared library that is loaded at run time.
 * Threads: any may look up; one at a time creates and destroys. */
typedef struct vellibrary vellibrary;

/* A function of a library, to be cast to what it is before it is called. */
typedef void vel_library_entry(void);

VEL_DECLARATIONS_BEGIN

/* Loads a library, with all that it needs.
 *
 * filename  as for dlopen: a name without "/" is searched for.
 *
 * Returns the library, for vel_library_destroy, or NULL if it cannot be loaded, which is logged with
 * level 13, or if there is not enough memory, which is not logged. */
VEL_API vellibrary *vel_library_create(const char *filename);

/* Gives the library back to the platform, which unloads it if nobody else uses it. Addresses in it
 * are not good any more. */
VEL_API void vel_library_destroy(vellibrary *vellibrary);

/* Looks up a function.
 *
 * Returns its address, or NULL if there is none of that name. Logs nothing. */
VEL_API vel_library_entry *vel_library_function(vellibrary *vellibrary, const char *symbol);

/* Looks up an object.
 *
 * Returns its address, or NULL if there is none of that name. Logs nothing. */
VEL_API void *vel_library_data(vellibrary *vellibrary, const char *symbol);

VEL_DECLARATIONS_END

#endif
