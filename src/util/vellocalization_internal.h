#ifndef VELLIB_UTIL_VELLOCALIZATION_INTERNAL_H
#define VELLIB_UTIL_VELLOCALIZATION_INTERNAL_H

/* What the sources of util/vellocalization share. All of them log as util/vellocalization. */

#include <stdio.h>

#include <cstddef>

#include <vellib/vellocalization.h>
#include <vellib/velstringhash.h>

struct vellocalization {
    velstringhash *hash; /* from the name of a language to its vellanguage */
};

struct vellanguage {
    velstringhash *hash; /* from msgid to msgstr, which is owned */
};

/* Creates a language without strings. Returns NULL, logged, if there is not enough memory. */
vellanguage *vel_localization_language_create(void);

void vel_localization_language_destroy(vellanguage *vellanguage);

/* Adds the strings of a file to a language. path is for messages; buffer, of bufferlen bytes, holds
 * a line. Failures are logged with their line. */
vel_error_t vel_localization_load_po(vellanguage *vellanguage, FILE *file, const char *path,
                                     char *buffer, size_t bufferlen);

/* Decodes a string as it stands behind a keyword or on a line of its own. Returns a new string, or
 * NULL if there is not enough memory, which is logged. */
char *vel_localization_handle_string(const char *string);

#endif
