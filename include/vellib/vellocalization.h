#ifndef VELLIB_VELLOCALIZATION_H
#define VELLIB_VELLOCALIZATION_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* vellocalization: translations of the strings of a program, read from the text form of GNU gettext
 * catalogues at run time. The catalogues of a text domain stand in one directory, a file a language:
 * LOCALEPATH/TEXTDOMAIN/LANGUAGE.po.
 *
 * What is read is a small subset: comments, and "msgid" with "msgstr", each with a string that may
 * continue on further lines. A context, a plural form or an indented keyword is a syntax error. A
 * backslash makes the character behind it literal and means nothing else: "\n" is the letter n.
 * Threads: one at a time until all is loaded; lookups after that may come from several at once. */
typedef struct vellocalization vellocalization;

/* The strings of one language. It belongs to the vellocalization. */
typedef struct vellanguage vellanguage;

VEL_DECLARATIONS_BEGIN

/* Creates a set of no languages.
 *
 * Returns it, for vel_localization_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API vellocalization *vel_localization_create(void);

/* Destroys the set with all languages and their strings. */
VEL_API void vel_localization_destroy(vellocalization *vellocalization);

/* Loads all files of a text domain whose names end in ".po", in the order of the directory. What
 * precedes that ending is the name of the language. A language that is already there takes the
 * strings in addition to its own; a string that it has already is replaced.
 *
 * Returns VEL_ERROR_NONE, also if there is no such file; VEL_ERROR_NOT_FOUND if the directory or a
 * file cannot be opened; VEL_ERROR_INVALID_SYNTAX if a file is not of the subset;
 * VEL_ERROR_NO_MEMORY; or VEL_ERROR_GENERIC if an entry of the directory cannot be examined. Each is
 * logged, with the number of the line where there is one. A failure ends the load, and what is
 * loaded until then stays, with all pairs of a file with a syntax error but the last.
 * Note: a directory that cannot be read to its end is taken for one that ends there.
 * Note: a failure to extend a string by a further line for lack of memory is logged and ends its
 * file, but is none of the load.
 * Note: a line of more than 4095 bytes is taken for several.
 * Note: in a first load a line of level 13 says of each language that there is none yet. */
VEL_API vel_error_t vel_localization_load_utf8(vellocalization *vellocalization,
                                               const char *localepath, const char *textdomain);

/* Lists the names of the languages, in byte order, with a "/" between them.
 *
 * Returns a new string, empty if there is no language, which is logged, or NULL if there is not
 * enough memory, which is logged. */
VEL_API char *vel_localization_list_languages(vellocalization *vellocalization);

/* Looks up a language by its name, which is that of its file without ".po".
 *
 * Returns the language, which stays the set's, or NULL, logged with level 13, if there is none. */
VEL_API vellanguage *vel_localization_language_get(vellocalization *vellocalization,
                                                   const char *language);

/* Looks up the translation of a string.
 *
 * vellanguage  may be NULL: no language, which has no translations.
 *
 * Returns the translation, which stays the language's, or NULL if there is none: no other language
 * is tried, and what to show instead is the caller's choice. Logs nothing.
 * Note: an entry that is not yet translated gives the empty string, and the empty string gives the
 * header of the catalogue. */
VEL_API const char *vel_localization_localize(vellanguage *vellanguage, const char *string);

VEL_DECLARATIONS_END

#endif
