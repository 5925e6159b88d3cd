#ifndef VELLIB_VELPATH_H
#define VELLIB_VELPATH_H

#include <vellib/velapi.h>

/* velpath: a relative path that is built component by component.
 * Threads: one at a time. */
typedef struct velpath velpath;

VEL_DECLARATIONS_BEGIN

/* Creates an empty path.
 *
 * Returns the path, for vel_path_destroy, or NULL if there is not enough memory, which is logged. */
VEL_API velpath *vel_path_create(void);

/* Destroys a path. */
VEL_API void vel_path_destroy(velpath *velpath);

/* Appends a component.
 *
 * name  the component; not empty and without "/". It is copied.
 *
 * Returns 0, or -1 with the path unchanged, logged: the name is empty or has a slash in it, or there
 * is not enough memory. */
VEL_API int vel_path_append(velpath *velpath, const char *name);

/* Renders the path: its components with vel_dir_separator between them, none in front and none
 * behind. An empty path is "".
 *
 * Returns a new string, or NULL if there is not enough memory, which is logged. */
VEL_API char *vel_path_get(velpath *velpath);

/* Renders the path as vel_path_get does, at most once between two changes.
 *
 * Returns the string, or NULL if there is not enough memory, which is logged. It belongs to the path,
 * and is valid until the path is next changed. */
VEL_API const char *vel_path_peek(velpath *velpath);

/* Removes all components. */
VEL_API void vel_path_clear(velpath *velpath);

/* Removes the last component.
 *
 * Returns 0, or -1 if there is none, which is logged. */
VEL_API int vel_path_remove_last(velpath *velpath);

VEL_DECLARATIONS_END

#endif
