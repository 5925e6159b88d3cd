#ifndef VELLIB_VELHTTPHEADERS_H
#define VELLIB_VELHTTPHEADERS_H

#include <stddef.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velhttpheaders: the headers of an HTTP or ICAP message by name, in any case of letters. A name
 * has one value: adding it again replaces the earlier one. The order of the headers is not kept.
 * Threads: one at a time. */
typedef struct velhttpheaders velhttpheaders;

VEL_DECLARATIONS_BEGIN

/* Creates an empty store.
 *
 * Returns the store, for vel_httpheaders_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API velhttpheaders *vel_httpheaders_create(void);

/* Destroys a store with all that is in it. */
VEL_API void vel_httpheaders_destroy(velhttpheaders *velhttpheaders);

/* Removes all headers. */
VEL_API void vel_httpheaders_clear(velhttpheaders *velhttpheaders);

/* Adds a header, or replaces the value of the one with this name.
 *
 * value  is copied. NULL is stored as it is.
 *
 * Returns VEL_ERROR_NONE, or VEL_ERROR_NO_MEMORY, logged, with the store unchanged.
 * Note: a value of NULL cannot be told from a missing name, and the process aborts by an assertion
 * when such an entry is replaced, cleared or destroyed. */
VEL_API vel_error_t vel_httpheaders_add(velhttpheaders *velhttpheaders, const char *name,
                                        const char *value);

/* Adds the headers of a text of lines "name: value", up to its first empty line, its first NUL or
 * its end. A line ends in CR LF, LF or CR. Blanks and tabs around the value are dropped, those
 * around the name are kept. Folded lines are not understood.
 *
 * buffer     the text, which needs no terminator.
 * bufferlen  its length in bytes.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_INVALID_SYNTAX for a line without a colon; VEL_ERROR_NO_MEMORY.
 * A failure is logged, and what stood before it has been added. */
VEL_API vel_error_t vel_httpheaders_parse(velhttpheaders *velhttpheaders, const char *buffer,
                                          size_t bufferlen);

/* Does what vel_httpheaders_parse does with a text that begins with a request or status line, which
 * is skipped unseen. */
VEL_API vel_error_t vel_httpheaders_parse_from_message(velhttpheaders *velhttpheaders,
                                                       const char *buffer, size_t bufferlen);

/* Looks up the value of a header.
 *
 * name  in any case of letters.
 *
 * Returns the value, which stays the store's until the header is replaced or removed; NULL for an
 * unknown name, which is not logged, or if there is not enough memory, which is. */
VEL_API const char *vel_httpheaders_get(velhttpheaders *velhttpheaders, const char *name);

VEL_DECLARATIONS_END

#endif
