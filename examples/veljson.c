/* veljson: reads a JSON document, and prints it or what a path leads to, or changes that.
 *
 * A host program of vellib: documents parsed, walked, built and written, and the library's own
 * reason shown where it refuses a text. */
#define _XOPEN_SOURCE 700

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "common.h"

enum { FAILED_DOCUMENT = 1, FAILED_PATH = 2, FAILED_USAGE = 3, FAILED_OTHER = 4 };

static const char *const synopsis[] = {N_("veljson [OPTION]... [FILE] [PATH...]"), NULL};

static const char *const paragraphs[] = {
    N_("Prints a JSON document, or the value that a path leads to, on one line."),
    N_("FILE is standard input if it is left out or \"-\". A path is a list of keys of objects "
       "and, "
       "for elements of arrays, of \"#\" followed by the index, from 0 on. (Shells want the \"#\" "
       "in "
       "quotes.) Options stand before FILE."),
    N_("Members are printed in no particular order, and fractions with six digits."),
    N_("Exit codes: 0 printed; 1 the document cannot be read; 2 the path leads nowhere, or not to "
       "an "
       "object for --keys; 3 usage; 4 out of memory or not written."),
    NULL};

struct job {
    const char *filename;
    char **path; /* the items, up to a NULL */
    const char *value;
    int type, keys, raw;
    veljson *document;
    struct common_reason reason;
};

static int fail_memory(void)
{
    return common_fail_memory(FAILED_OTHER);
}

/* ---- reading --------------------------------------------------------------------------------- */

/* The whole of a file as a string, or NULL with errno set; text behind a zero byte is lost. */
static char *read_file(const char *filename)
{
    if (strcmp(filename, "-") == 0)
        return common_read(vel_file_get_stdin(), NULL);

    FILE *file = vel_file_open_binary(filename);
    if (!file)
        return NULL;
    char *text = common_read(file, NULL);
    int readerrno = errno;
    vel_file_close(file);
    errno = readerrno;
    return text;
}

static int read_document(struct job *job)
{
    const char *shown =
        strcmp(job->filename, "-") == 0 ? tr("standard input") : common_name(job->filename);
    char *text = read_file(job->filename);

    if (!text)
        return common_fail(FAILED_DOCUMENT, "%s: %s", shown, tr(strerror(errno)));
    int result = vel_json_parse(job->document, text);
    vel_free(text);
    return result == 0 ? 0 : common_fail(FAILED_DOCUMENT, "%s: %s", shown, job->reason.text);
}

/* ---- walking --------------------------------------------------------------------------------- */

/* Whether an item of a path begins an index; then the number is stored. */
static int is_index(char **path, unsigned long *index)
{
    char *end;

    if (strcmp(path[0], "#") != 0 || !path[1] || path[1][0] < '0' || path[1][0] > '9')
        return 0;
    *index = strtoul(path[1], &end, 10);
    return *end == '\0';
}

/* Goes one key or index down from a node. Returns how many items of the path that took, or 0. */
static int step(struct job *job, char **path, veljsonnode **node)
{
    unsigned long index;
    veljsonnode *found;

    if (is_index(path, &index)) {
        if (vel_json_node_fetch_node(job->document, *node, &found, "#", index, (char *)NULL) != 0)
            return 0;
        *node = found;
        return 2;
    }
    if (strcmp(path[0], "#") == 0 ||
        vel_json_node_fetch_node(job->document, *node, &found, path[0], (char *)NULL) != 0)
        return 0;
    *node = found;
    return 1;
}

/* Adds what the last step of a path leads to, if only that is missing. */
static veljsonnode *add(struct job *job, char **path, veljsonnode *node)
{
    unsigned long index;
    veljsonnode *last;

    if (is_index(path, &index) && !path[2] && vel_json_is_array(job->document, node) &&
        (index == 0 ||
         vel_json_node_fetch_node(job->document, node, &last, "#", index - 1, (char *)NULL) == 0))
        return vel_json_node_array_add(job->document, node);
    if (strcmp(path[0], "#") != 0 && !path[1] && vel_json_is_object(job->document, node))
        return vel_json_node_object_add(job->document, node, path[0]);
    return NULL;
}

static int fail_path(char **path)
{
    int isindex = strcmp(path[0], "#") == 0 && path[1];

    return common_fail(FAILED_PATH, "%s%s%s: %s", common_name(path[0]), isindex ? " " : "",
                       isindex ? path[1] : "", tr("the path leads nowhere"));
}

/* Finds what the path leads to. */
static int walk(struct job *job, veljsonnode **node)
{
    char **path = job->path;

    *node = NULL;
    vel_json_fetch_node(job->document, node, (char *)NULL);
    while (*path) {
        int taken = step(job, path, node);
        if (taken == 0) {
            *node = job->value ? add(job, path, *node) : NULL;
            return *node ? 0 : fail_path(path);
        }
        path += taken;
    }
    return 0;
}

/* ---- printing -------------------------------------------------------------------------------- */

static int print(veljson *document)
{
    char *text = vel_json_output(document);

    if (!text)
        return fail_memory();
    puts(text);
    vel_free(text);
    return 0;
}

/* A document writes itself as a whole; so a part of one is copied into another. */
static int print_node(struct job *job, veljsonnode *node)
{
    veljson *part = vel_json_create();
    veljsonnode *root;
    int code = FAILED_OTHER;

    if (part && vel_json_node_set_null(part, NULL) == VEL_ERROR_NONE &&
        vel_json_fetch_node(part, &root, (char *)NULL) == 0 &&
        vel_json_node_copy_node(part, root, job->document, node) == VEL_ERROR_NONE)
        code = print(part);
    else
        fail_memory();
    if (part)
        vel_json_destroy(part);
    return code;
}

static int print_value(struct job *job, veljsonnode *node)
{
    const char *string;

    if (job->raw && vel_json_node_fetch_string(job->document, node, &string, (char *)NULL) == 0) {
        puts(string);
        return 0;
    }
    return print_node(job, node);
}

static int print_type(veljson *document, const veljsonnode *node)
{
    static const struct {
        int (*is)(veljson *, const veljsonnode *);
        const char *name;
    } types[] = {{vel_json_is_object, "object"}, {vel_json_is_array, "array"},
                 {vel_json_is_string, "string"}, {vel_json_is_number, "number"},
                 {vel_json_is_true, "true"},     {vel_json_is_false, "false"},
                 {vel_json_is_null, "null"}};

    for (size_t i = 0; i < sizeof(types) / sizeof(types[0]); i++)
        if (types[i].is(document, node))
            puts(types[i].name);
    return 0;
}

static int compare_keys(const void *left, const void *right)
{
    return strcmp(*(const char *const *)left, *(const char *const *)right);
}

/* Stores the keys unless keys is NULL; returns how many there are. */
static size_t take_keys(struct job *job, veljsonnode *node, const char **keys)
{
    size_t count = 0;
    const char *key;
    veljsonnode *value;
    void *member = vel_json_enumerate_start(job->document, node, &key, &value);

    for (; member; member = vel_json_enumerate_next(job->document, node, member, &key, &value)) {
        if (keys)
            keys[count] = key;
        count++;
    }
    return count;
}

static int print_keys(struct job *job, veljsonnode *node)
{
    if (!vel_json_is_object(job->document, node))
        return common_fail(FAILED_PATH, "--keys: %s", tr("this is not an object"));

    size_t count = take_keys(job, node, NULL);
    const char **keys = vel_calloc(count + 1, sizeof(*keys));
    if (!keys)
        return fail_memory();
    take_keys(job, node, keys);
    qsort(keys, count, sizeof(*keys), compare_keys);
    for (size_t i = 0; i < count; i++)
        puts(keys[i]);
    vel_free(keys);
    return 0;
}

/* ---- changing -------------------------------------------------------------------------------- */

/* Makes a node what a text says. The parser wants a container, so the text is put into one. */
static vel_error_t set_value(veljson *document, veljsonnode *node, const char *text)
{
    veljson *parsed = vel_json_create();
    char *list = vel_strdupf("[%s\n]", text);
    veljsonnode *value;
    vel_error_t error = VEL_ERROR_NO_MEMORY;

    if (parsed && list && vel_json_parse(parsed, list) == 0 &&
        vel_json_fetch_node(parsed, &value, "#", 0UL, (char *)NULL) == 0 &&
        !vel_json_node_fetch_next(parsed, value))
        error = vel_json_node_copy_node(document, node, parsed, value);
    else if (parsed && list)
        error = vel_json_node_set_string(document, node, text);
    vel_free(list);
    if (parsed)
        vel_json_destroy(parsed);
    return error;
}

/* ---- the program ----------------------------------------------------------------------------- */

static int run(struct job *job)
{
    veljsonnode *node;
    int code = read_document(job);

    if (code == 0)
        code = walk(job, &node);
    if (code != 0)
        return code;
    if (job->value)
        code = set_value(job->document, node, job->value) ? fail_memory() : print(job->document);
    else if (job->type)
        code = print_type(job->document, node);
    else if (job->keys)
        code = print_keys(job, node);
    else
        code = print_value(job, node);
    const char *reason = common_flush();
    if (reason && code == 0)
        code = common_fail(FAILED_OTHER, tr("standard output: %s"), reason);
    return code;
}

static int declare_options(struct job *job, velgetopt *options)
{
    return vel_getopt_const_string(options, "set", 's', &job->value, tr("VALUE"),
                                   tr("Put VALUE where the path leads, and print the document; a "
                                      "missing last key, or an index just behind the end, is "
                                      "added. VALUE is JSON, or else taken for a string.")) ||
           vel_getopt_flag_set(options, "type", 't', &job->type,
                               tr("Print what the value is: object, array, string, number, true, "
                                  "false, null.")) ||
           vel_getopt_flag_set(options, "keys", 'k', &job->keys,
                               tr("Print the keys of the object, sorted, one a line.")) ||
           vel_getopt_flag_set(options, "raw", 'r', &job->raw,
                               tr("Print a string as it is, without quotes."));
}

/* Returns 0, -1 if the program is done, or an exit code. */
static int take_options(struct job *job, int argc, char **argv)
{
    velgetopt *options = vel_getopt_create();
    int bad = !options || declare_options(job, options);
    int first = common_parse(options, bad, synopsis, paragraphs, argc, argv);

    if (first <= 0)
        return first == COMMON_DONE
                   ? -1
                   : common_exit_code(first, FAILED_USAGE, FAILED_OTHER, FAILED_OTHER);
    if ((job->value != NULL) + job->type + job->keys > 1) {
        common_mistake("%s", tr("--set, --type and --keys exclude each other"));
        return FAILED_USAGE;
    }
    /* A "-" passes for an option without letters. As an operand it stands last of what was parsed,
     * if it is not what --set was given. */
    if (first > 1 && strcmp(argv[first - 1], "-") == 0 && argv[first - 1] != job->value)
        first--;
    if (first < argc)
        job->filename = argv[first++];
    job->path = argv + first;
    return 0;
}

int main(int argc, char **argv)
{
    struct job job = {.filename = "-"};
    int code = FAILED_OTHER;

    vel_log_stderr_disable(NULL);
    common_start("veljson");
    vel_log_callback_set(NULL, common_keep_reason, &job.reason);
    vel_log_callback_set_level(NULL, 8);
    vel_log_callback_enable(NULL);

    job.document = vel_json_create();
    if (!job.document)
        fail_memory();
    else if ((code = take_options(&job, argc, argv)) == 0)
        code = run(&job);
    if (job.document)
        vel_json_destroy(job.document);
    common_end();
    vel_uninit();
    return code < 0 ? 0 : code;
}
