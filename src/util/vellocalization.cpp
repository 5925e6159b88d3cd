#include <vellib/vellocalization.h>

#include <cstdlib>
#include <cstring>

#include <vellib/velendswith.h>
#include <vellib/velfile.h>
#include <vellib/vellimit.h>
#include <vellib/velmalloc.h>
#include <vellib/velsizet.h>
#include <vellib/velstrdup.h>
#include <vellib/velstrdupf.h>
#include <vellib/velstrndup.h>
#include <vellib/velutf8dir.h>

#include "adt/velstringhash_internal.h"
#include "util/velassert.h"
#include "util/vellocalization_internal.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/vellocalization"

static constexpr char vel_localization_extension[] = ".po";
static constexpr size_t vel_localization_bufferlen = 4096;

/* ---- Languages ---- */

static void vel_localization_language_hash_destroy_cb(void *item, void *context)
{
    VEL_ASSERT(item != NULL);
    VEL_ASSERT(context == NULL);

    vel_free(item);
}

vellanguage *vel_localization_language_create(void)
{
    auto *vellanguage = static_cast<struct vellanguage *>(vel_cmalloc(sizeof(struct vellanguage)));
    if (!vellanguage) {
        VEL_LOG(7, "not enough memory for vellanguage context");
        return nullptr;
    }
    vellanguage->hash = vel_stringhash_create(vel_localization_language_hash_destroy_cb, nullptr);
    if (!vellanguage->hash) {
        VEL_LOG(7, "unable to create localization language hashtable");
        vel_localization_language_destroy(vellanguage);
        return nullptr;
    }
    return vellanguage;
}

void vel_localization_language_destroy(vellanguage *vellanguage)
{
    VEL_ASSERT(vellanguage != NULL);

    if (vellanguage->hash)
        vel_stringhash_destroy(vellanguage->hash);
    vel_free(vellanguage);
}

static void vel_localization_hash_destroy_callback(void *item, void *context)
{
    VEL_ASSERT(item != NULL);
    VEL_ASSERT(context == NULL);

    vel_localization_language_destroy(static_cast<struct vellanguage *>(item));
}

/* The language of a name, which is added if there is none; NULL if there is not enough memory. */
static vellanguage *vel_localization_language_obtain(vellocalization *vellocalization,
                                                     const char *language)
{
    struct vellanguage *vellanguage = vel_localization_language_get(vellocalization, language);
    if (vellanguage)
        return vellanguage;

    vellanguage = vel_localization_language_create();
    if (!vellanguage) {
        VEL_LOG(7, "unable to add language '%s'", language);
        return nullptr;
    }
    if (vel_stringhash_add(vellocalization->hash, language, vellanguage) != 0) {
        VEL_LOG(7, "unable to add language '%s' to localization context", language);
        vel_localization_language_destroy(vellanguage);
        return nullptr;
    }
    return vellanguage;
}

/* ---- Life ---- */

vellocalization *vel_localization_create(void)
{
    auto *vellocalization =
        static_cast<struct vellocalization *>(vel_cmalloc(sizeof(struct vellocalization)));
    if (!vellocalization) {
        VEL_LOG(7, "not enough memory for vellocalization context");
        return nullptr;
    }
    vellocalization->hash = vel_stringhash_create(vel_localization_hash_destroy_callback, nullptr);
    if (!vellocalization->hash) {
        VEL_LOG(7, "unable to create hashtable for localization");
        vel_localization_destroy(vellocalization);
        return nullptr;
    }
    return vellocalization;
}

void vel_localization_destroy(vellocalization *vellocalization)
{
    VEL_ASSERT(vellocalization != NULL);

    if (vellocalization->hash)
        vel_stringhash_destroy(vellocalization->hash);
    vel_free(vellocalization);
}

/* ---- Loading ---- */

static vel_error_t vel_localization_load_stream(vellocalization *vellocalization,
                                                const char *language, FILE *file, const char *path)
{
    auto *buffer = static_cast<char *>(vel_malloc(vel_localization_bufferlen));
    if (!buffer) {
        VEL_LOG(7, "not enough memory for read buffer");
        return VEL_ERROR_NO_MEMORY;
    }
    vel_error_t result = VEL_ERROR_NO_MEMORY;
    struct vellanguage *vellanguage = vel_localization_language_obtain(vellocalization, language);
    if (vellanguage) {
        result =
            vel_localization_load_po(vellanguage, file, path, buffer, vel_localization_bufferlen);
        /* From here on lookups only read, and may come from several threads. */
        vel_stringhash_settle(vellanguage->hash);
        if (result != VEL_ERROR_NONE)
            VEL_LOG(7, "unable to load po file %s, error %d (%s)", path, result,
                    vel_error_string(result));
    }
    vel_free(buffer);
    return result;
}

static vel_error_t vel_localization_load_file(vellocalization *vellocalization,
                                              const char *language, const char *path)
{
    FILE *file = vel_file_open_ascii(path);
    if (!file)
        return VEL_ERROR_NOT_FOUND;
    const vel_error_t result = vel_localization_load_stream(vellocalization, language, file, path);
    (void)vel_file_close(file);
    return result;
}

/* Loads the file that an entry of the directory names. */
static vel_error_t vel_localization_load_name(vellocalization *vellocalization, const char *dirpath,
                                              const char *name)
{
    char *language = vel_strndup(name, strlen(name) - strlen(vel_localization_extension));
    if (!language) {
        VEL_LOG(7, "not enough memory for the language name");
        return VEL_ERROR_NO_MEMORY;
    }
    vel_error_t result = VEL_ERROR_NO_MEMORY;
    char *path = vel_strdupf("%s%c%s", dirpath, vel_utf8dir_separator(), name);
    if (!path) {
        VEL_LOG(7, "not enough memory for localization file name");
    } else {
        result = vel_localization_load_file(vellocalization, language, path);
        if (result != VEL_ERROR_NONE)
            VEL_LOG(13, "failed to load localization file %s, error %d (%s)", path, result,
                    vel_error_string(result));
        vel_free(path);
    }
    vel_free(language);
    return result;
}

static vel_error_t vel_localization_load_entry(vellocalization *vellocalization,
                                               const char *dirpath, velutf8dir *velutf8dir)
{
    const char *name = vel_utf8dir_fetch_name(velutf8dir);
    if (!name) {
        VEL_LOG(7, "fetching the directory entry name failed");
        return VEL_ERROR_GENERIC;
    }
    const int isdirectory = vel_utf8dir_is_directory(velutf8dir);
    if (isdirectory == -1) {
        VEL_LOG(7, "error checking if '%s' is a directory", name);
        return VEL_ERROR_GENERIC;
    }
    if (isdirectory == 1 || strlen(name) <= strlen(vel_localization_extension) ||
        !vel_endswith(name, vel_localization_extension))
        return VEL_ERROR_NONE;
    return vel_localization_load_name(vellocalization, dirpath, name);
}

static vel_error_t vel_localization_load_directory(vellocalization *vellocalization,
                                                   const char *dirpath)
{
    velutf8dir *velutf8dir = vel_utf8dir_open(dirpath);
    if (!velutf8dir) {
        VEL_LOG(7, "unable to open directory '%s'", dirpath);
        return VEL_ERROR_NOT_FOUND;
    }
    vel_error_t result = VEL_ERROR_NONE;
    while (result == VEL_ERROR_NONE && vel_utf8dir_next(velutf8dir) == 0)
        result = vel_localization_load_entry(vellocalization, dirpath, velutf8dir);
    vel_utf8dir_destroy(velutf8dir);
    vel_stringhash_settle(vellocalization->hash);
    return result;
}

vel_error_t vel_localization_load_utf8(vellocalization *vellocalization, const char *localepath,
                                       const char *textdomain)
{
    VEL_ASSERT(vellocalization != NULL);
    VEL_ASSERT(localepath != NULL);
    VEL_ASSERT(textdomain != NULL);

    const char separator = vel_utf8dir_separator();
    char *dirpath = vel_strdupf("%s%c%s", localepath, separator, textdomain);
    if (!dirpath) {
        VEL_LOG(7, "not enough memory for localization directory path '%s%c%s'", localepath,
                separator, textdomain);
        return VEL_ERROR_NO_MEMORY;
    }
    const vel_error_t result = vel_localization_load_directory(vellocalization, dirpath);
    vel_free(dirpath);
    return result;
}

/* ---- The list of languages ---- */

static int vel_localization_compare_function(const void *left, const void *right)
{
    return strcmp(*static_cast<const char *const *>(left),
                  *static_cast<const char *const *>(right));
}

/* Fills an array of count names, which stay the table's. */
static void vel_localization_fill_names(vellocalization *vellocalization, const char **names,
                                        size_t count)
{
    size_t idx = 0;
    const char *key;
    for (void *item = vel_stringhash_enumerate_start(vellocalization->hash, &key, nullptr); item;
         item = vel_stringhash_enumerate_next(vellocalization->hash, item, &key, nullptr)) {
        VEL_ASSERT(key != NULL);
        VEL_ASSERT(idx < count);
        names[idx++] = key;
    }
    VEL_ASSERT(idx == count);
}

/* Joins names to a new string of size bytes. */
static char *vel_localization_join_names(const char *const *names, size_t count, size_t size)
{
    auto *list = static_cast<char *>(vel_malloc(size));
    if (!list) {
        VEL_LOG(7, "not enough memory for the list of languages");
        return nullptr;
    }
    char *end = list;
    for (size_t i = 0; i < count; i++) {
        if (i > 0)
            *end++ = '/';
        end = stpcpy(end, names[i]);
    }
    return list;
}

static char *vel_localization_list_names(vellocalization *vellocalization, size_t count,
                                         size_t size)
{
    auto **names = static_cast<const char **>(
        vel_malloc(vel_sizet_multiply_and_limit(count, sizeof(const char *))));
    if (!names) {
        VEL_LOG(7, "not enough memory for an array of %lu languages",
                static_cast<unsigned long>(count));
        return nullptr;
    }
    vel_localization_fill_names(vellocalization, names, count);
    qsort(names, count, sizeof(const char *), vel_localization_compare_function);
    char *list = vel_localization_join_names(names, count, size);
    vel_free(names);
    return list;
}

char *vel_localization_list_languages(vellocalization *vellocalization)
{
    VEL_ASSERT(vellocalization != NULL);

    size_t count = 0;
    size_t size = 0; /* of the list: each name has a "/" or the NUL behind it */
    const char *key;
    for (void *item = vel_stringhash_enumerate_start(vellocalization->hash, &key, nullptr); item;
         item = vel_stringhash_enumerate_next(vellocalization->hash, item, &key, nullptr)) {
        VEL_ASSERT(key != NULL);
        count++;
        size += strlen(key) + 1;
    }
    if (count > 0)
        return vel_localization_list_names(vellocalization, count, size);

    VEL_LOG(9, "no languages loaded");
    char *list = vel_strdup("");
    if (!list)
        VEL_LOG(7, "not enough memory for an empty list of languages");
    return list;
}

/* ---- Lookups ---- */

vellanguage *vel_localization_language_get(vellocalization *vellocalization, const char *language)
{
    VEL_ASSERT(vellocalization != NULL);
    VEL_ASSERT(language != NULL);

    auto *vellanguage =
        static_cast<struct vellanguage *>(vel_stringhash_lookup(vellocalization->hash, language));
    if (!vellanguage)
        VEL_LOG(13, "no language '%s'", language);
    return vellanguage;
}

const char *vel_localization_localize(vellanguage *vellanguage, const char *string)
{
    VEL_ASSERT(string != NULL);

    if (!vellanguage)
        return nullptr;
    VEL_ASSERT(vellanguage->hash != NULL);
    return static_cast<const char *>(vel_stringhash_lookup(vellanguage->hash, string));
}
