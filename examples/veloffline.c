/* veloffline: fetches a URL from a directory instead of the network.
 *
 * A host program of vellib: a whole backend of the HTTP client, which answers from a directory of saved
 * pages. The client above it does what it does over a network: redirects, headers, limits, callbacks. */
#define _XOPEN_SOURCE 700

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include "common.h"

enum { FAILED = 1, FAILED_USAGE = 2, FAILED_URL = 3, FAILED_STATUS = 22, FAILED_WRITE = 23 };

enum { PIECE_SIZE = 16 * 1024 };

#define LOG(level, ...) VEL_LOG_AT(NULL, level, "veloffline", __LINE__, __VA_ARGS__)

static const char *const synopsis[] = {N_("veloffline [OPTION]... DIRECTORY URL"), NULL};

static const char *const paragraphs[] = {
    N_("Fetches an http:// URL from a directory instead of the network."),
    N_("http://HOST:PORT/PATH?QUERY is the file DIRECTORY/HOST:PORT/PATH?QUERY, by these very "
       "characters; where that is a directory, the answer is its index.html, after a redirect to "
       "the URL with a slash at its end. Only the body of an answer with status 200 is written."),
    N_("Exit codes: 0 status 200; 1 out of memory or a file that cannot be read; 2 usage; 3 URL; "
       "22 other status; 23 cannot write."),
    NULL};

/* ---- the backend ----------------------------------------------------------------------------- */

/* What the backend keeps; the client hands it back by vel_http_get_context. */
struct offline {
    char *directory; /* NULL: not set */
    char *url;       /* of the next exchange; NULL: none */
};

static void offline_destroy(void *context)
{
    struct offline *offline = context;

    vel_free(offline->directory);
    vel_free(offline->url);
    vel_free(offline);
}

/* Puts a copy of the text in the place of another. */
static vel_error_t replace(char **placeptr, const char *text)
{
    char *copy = vel_strdup(text);

    if (!copy) {
        LOG(7, "not enough memory for '%s'", text);
        return VEL_ERROR_NO_MEMORY;
    }
    vel_free(*placeptr);
    *placeptr = copy;
    return VEL_ERROR_NONE;
}

/* The client gives each URL, also that of a redirect. */
static vel_error_t offline_take_url(velhttp *velhttp, const char *url)
{
    struct offline *offline = vel_http_get_context(velhttp);

    return replace(&offline->url, url);
}

static vel_error_t put_header(velhttp *velhttp, const char *name, const char *value)
{
    return value ? vel_http_write_response_header(velhttp, name, value) : VEL_ERROR_NO_MEMORY;
}

/* Answers without a body; with a header, unless name is NULL. */
static vel_error_t answer_plain(velhttp *velhttp, unsigned int status, const char *name,
                                const char *value)
{
    vel_error_t error = put_header(velhttp, "content-length", "0");

    vel_http_set_status_code(velhttp, status);
    return error == VEL_ERROR_NONE && name ? put_header(velhttp, name, value) : error;
}

/* Hands the file on, piece by piece, and sees between two of them whether it is to go on. */
static vel_error_t put_body(velhttp *velhttp, FILE *file)
{
    char piece[PIECE_SIZE];
    size_t count;

    while ((count = vel_file_read(file, piece, sizeof(piece))) > 0) {
        vel_error_t error = vel_http_timeout_check(velhttp, NULL, NULL);
        if (error == VEL_ERROR_NONE && vel_http_is_aborted(velhttp))
            error = VEL_ERROR_CANCELED;
        if (error == VEL_ERROR_NONE)
            error = vel_http_write_response_body(velhttp, piece, count);
        if (error != VEL_ERROR_NONE)
            return error;
        vel_http_reset_idle_timeout(velhttp);
        vel_http_progress_download_check(velhttp);
    }
    vel_http_progress_download_force(velhttp);
    return vel_file_ferror(file) ? VEL_ERROR_IO : VEL_ERROR_NONE;
}

static vel_error_t answer_open_file(velhttp *velhttp, FILE *file, int hasbody)
{
    char *length = vel_i64tostr(vel_file_get_length(file));
    vel_error_t error = put_header(velhttp, "content-length", length);

    vel_free(length);
    vel_http_set_status_code(velhttp, 200);
    return error == VEL_ERROR_NONE && hasbody ? put_body(velhttp, file) : error;
}

static vel_error_t answer_file(velhttp *velhttp, const char *path, int hasbody)
{
    FILE *file = vel_file_open_binary(path);

    if (!file)
        return answer_plain(velhttp, 403, NULL, NULL);
    vel_error_t error = answer_open_file(velhttp, file, hasbody);
    vel_file_close(file);
    if (error != VEL_ERROR_NONE)
        LOG(7, "%s: %s", path, vel_error_string(error));
    return error;
}

/* Has the client ask again for what is in a directory. */
static vel_error_t answer_slash(velhttp *velhttp, const char *localpart)
{
    char *location = vel_strdupf("%s/", localpart);
    vel_error_t error = answer_plain(velhttp, 301, "location", location);

    vel_free(location);
    return error;
}

static vel_error_t answer_path(velhttp *velhttp, const char *path, const char *localpart)
{
    const char *method = vel_http_get_method(velhttp);
    int ishead = strcmp(method, "HEAD") == 0;
    struct stat status;

    if (!ishead && strcmp(method, "GET") != 0)
        return answer_plain(velhttp, 405, "allow", "GET, HEAD");
    if (stat(path, &status) == 0 && S_ISREG(status.st_mode))
        return answer_file(velhttp, path, !ishead);
    if (stat(path, &status) == 0 && S_ISDIR(status.st_mode) && !vel_endswith(localpart, "/"))
        return answer_slash(velhttp, localpart);
    return answer_plain(velhttp, 404, NULL, NULL);
}

/* Whether a part of the path would lead out of the directory. */
static int leads_out(const char *netloc, const char *localpart)
{
    return strcmp(netloc, "..") == 0 || strcmp(netloc, ".") == 0 || strstr(localpart, "/../") ||
           vel_endswith(localpart, "/..");
}

static vel_error_t answer_url(velhttp *velhttp, const char *directory, velurl *url)
{
    const char *netloc = vel_url_get_netloc(url), *localpart = vel_url_get_localpart(url);

    if (strcmp(vel_url_get_scheme(url), "http") != 0)
        return VEL_ERROR_UNSUPPORTED;
    if (!*netloc)
        return VEL_ERROR_INVALID_ARGUMENT;
    if (leads_out(netloc, localpart))
        return answer_plain(velhttp, 403, NULL, NULL);

    char *path = vel_strdupf("%s/%s%s%s", directory, netloc, localpart,
                             vel_endswith(localpart, "/") ? "index.html" : "");
    vel_error_t error = path ? answer_path(velhttp, path, localpart) : VEL_ERROR_NO_MEMORY;
    vel_free(path);
    return error;
}

/* One exchange. Any answer is a success, whatever its status code. */
static vel_error_t offline_perform(velhttp *velhttp)
{
    struct offline *offline = vel_http_get_context(velhttp);

    if (!offline->url || !offline->directory)
        return VEL_ERROR_INVALID_ARGUMENT;
    velurl *url = vel_url_create();
    if (!url)
        return VEL_ERROR_NO_MEMORY;
    vel_error_t error = vel_url_set_url(url, offline->url);
    if (error == VEL_ERROR_NONE)
        error = answer_url(velhttp, offline->directory, url);
    vel_url_destroy(url);
    return error;
}

/* The constructor: a vel_http_create_cb, like vel_http_lite_create. */
static velhttp *offline_create(void)
{
    velhttp *velhttp = vel_http_generic_create();
    struct offline *offline = vel_cmalloc(sizeof(*offline));

    if (!velhttp || !offline) {
        LOG(7, "not enough memory for an offline client");
        vel_free(offline);
        if (velhttp)
            vel_http_destroy(velhttp);
        return NULL;
    }
    vel_http_set_context(velhttp, offline);
    vel_http_set_destroy_callback(velhttp, offline_destroy);
    vel_http_set_url_callback(velhttp, offline_take_url);
    vel_http_set_perform_callback(velhttp, offline_perform);
    return velhttp;
}

/* What this backend has beside what all have. */
static vel_error_t offline_set_directory(velhttp *velhttp, const char *directory)
{
    struct offline *offline = vel_http_get_context(velhttp);

    return replace(&offline->directory, directory);
}

/* ---- the program ----------------------------------------------------------------------------- */

struct job {
    velhttp *velhttp;
    int writeerrno; /* why writing failed, or 0 */
};

/* Knows nothing of where the body comes from. */
static vel_error_t on_body(const void *data, size_t size, void *context)
{
    struct job *job = context;

    if (vel_http_get_status_code(job->velhttp) != 200 || fwrite(data, 1, size, stdout) == size)
        return VEL_ERROR_NONE;
    job->writeerrno = errno;
    return VEL_ERROR_WRITE;
}

static int explain(struct job *job, const char *url, vel_error_t error)
{
    const char *reason = job->writeerrno ? tr(strerror(job->writeerrno)) : common_flush();
    if (reason)
        return common_fail(FAILED_WRITE, tr("cannot write to standard output: %s"), reason);
    url = common_name(url);
    if (error == VEL_ERROR_UNSUPPORTED)
        return common_fail(FAILED_URL, "%s: %s", url, tr("only http:// is supported"));
    if (error == VEL_ERROR_INVALID_ARGUMENT)
        return common_fail(FAILED_URL, "%s: %s", url, tr("the URL is not valid"));
    if (error != VEL_ERROR_NONE)
        return common_fail(FAILED, "%s: %s", url, tr(vel_error_string(error)));
    unsigned int status = vel_http_get_status_code(job->velhttp);
    if (status != 200)
        return common_fail(FAILED_STATUS, tr("%s: answered with status %u"), url, status);
    return 0;
}

static int fetch(struct job *job, const char *directory, const char *url)
{
    vel_error_t error = offline_set_directory(job->velhttp, directory);

    vel_http_set_response_body_callback(job->velhttp, on_body, job);
    if (error == VEL_ERROR_NONE)
        error = vel_http_set_url(job->velhttp, url);
    if (error == VEL_ERROR_NONE)
        error = vel_http_perform(job->velhttp);
    return explain(job, url, error);
}

/* Why a directory is none, or NULL. */
static const char *check_directory(const char *directory)
{
    struct stat status;

    if (stat(directory, &status) != 0)
        return tr(strerror(errno));
    return S_ISDIR(status.st_mode) ? NULL : tr(strerror(ENOTDIR));
}

static int run(const char *directory, char *url)
{
    const char *reason = check_directory(directory);
    if (reason)
        return common_fail(FAILED, "%s: %s", common_name(directory), reason);
    url[strcspn(url, "#")] = '\0'; /* a fragment is not for the server */

    struct job job = {.velhttp = offline_create()};
    if (!job.velhttp)
        return common_fail_memory(FAILED);
    int code = fetch(&job, directory, url);
    vel_http_destroy(job.velhttp);
    return code;
}

int main(int argc, char **argv)
{
    int code, first, verbose = 0;

    vel_log_stderr_disable(NULL);
    common_start("veloffline");
    velgetopt *options = vel_getopt_create();
    int bad = !options || vel_getopt_flag_set(options, "verbose", 'v', &verbose,
                                              tr("Show the log of the library."));
    first = common_parse(options, bad, synopsis, paragraphs, argc, argv);
    if (verbose)
        vel_log_stderr_enable(NULL);

    if (first <= 0)
        code = common_exit_code(first, FAILED_USAGE, FAILED_WRITE, FAILED);
    else if (argc - first == 2)
        code = run(argv[first], argv[first + 1]);
    else {
        common_mistake("%s", tr("a DIRECTORY and a URL are needed, behind all options"));
        code = FAILED_USAGE;
    }
    common_end();
    vel_uninit();
    return code;
}
