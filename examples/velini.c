/* velini: reads and changes single values of an INI file, and leaves the other lines in it alone.
 *
 * A host program of vellib: files edited line by line, the library's own reason shown where it
 * refuses a line, and a save after which the file is there as a whole, whatever happens. */
#define _XOPEN_SOURCE   700
#define _DEFAULT_SOURCE /* flock */

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "common.h"

enum {
    FAILED_MISSING = 1,
    FAILED_USAGE = 2,
    FAILED_READ = 3,
    FAILED_SYNTAX = 4,
    FAILED_WRITE = 5,
    FAILED_MEMORY = 6
};

enum { LOCK_TRIES = 1000 };

struct job {
    const char *filename;
    char *section, *key, *value; /* owned, without white space around them; NULL: not given */
    velinifile *inifile;
    char *target; /* owned; the file itself, where filename is a link */
    int lock;     /* a descriptor of it, or -1: there is no such file yet */
    struct common_reason reason;
};

static int fail_memory(void)
{
    return common_fail_memory(FAILED_MEMORY);
}

static int fail_file(int code, const struct job *job, int platformerrno)
{
    return common_fail(code, "%s: %s", common_name(job->filename), tr(strerror(platformerrno)));
}

/* ---- reading --------------------------------------------------------------------------------- */

/* The library says "Parse error at FILE:LINE: REASON". What it says of the line is translated. */
static int fail_syntax(const struct job *job)
{
    static const char *const reasons[] = {N_("no '=' found on non-empty non-comment line"),
                                          N_("bogus characters after ']'")};
    const char *place = strstr(job->reason.text, job->filename);
    const char *reason = place ? strstr(place + strlen(job->filename), ": ") : NULL;

    for (size_t i = 0; reason && i < sizeof(reasons) / sizeof(reasons[0]); i++)
        if (strcmp(reason + 2, reasons[i]) == 0)
            return common_fail(FAILED_SYNTAX, "%.*s: %s", (int)(reason - place), place,
                               tr(reasons[i]));
    return common_fail(FAILED_SYNTAX, "%s", job->reason.text);
}

/* The library does not tell why a file cannot be opened, but the platform does once more. */
static int fail_open(const struct job *job)
{
    int descriptor = open(job->filename, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    int platformerrno = descriptor < 0 ? errno : EIO;

    if (descriptor >= 0)
        close(descriptor);
    return fail_file(FAILED_READ, job, platformerrno);
}

static int is_directory(const char *filename)
{
    struct stat attributes;

    return stat(filename, &attributes) == 0 && S_ISDIR(attributes.st_mode);
}

static int read_file(struct job *job)
{
    vel_error_t error;

    job->inifile = vel_inifile_create_from_file(job->filename, &error);
    switch (error) {
    case VEL_ERROR_NONE:
        return 0;
    case VEL_ERROR_NOT_FOUND:
        return fail_open(job);
    case VEL_ERROR_INVALID_SYNTAX:
        return fail_syntax(job);
    case VEL_ERROR_NO_MEMORY:
        return fail_memory();
    default:
        return is_directory(job->filename)
                   ? fail_file(FAILED_READ, job, EISDIR)
                   : common_fail(FAILED_READ, tr("%s: cannot be read to its end"), job->filename);
    }
}

/* Reads the text of the file. A zero byte in it would end a line early, which a new version would
 * then lose. */
static int read_text(struct job *job, char **textptr)
{
    void *text;
    size_t length;

    *textptr = NULL;
    if (vel_file_data_load(job->filename, &text, &length) != 0)
        return common_fail(FAILED_READ, tr("%s: cannot be read to its end"), job->filename);
    if (memchr(text, '\0', length)) {
        vel_free(text);
        return common_fail(FAILED_SYNTAX, tr("%s: there is a zero byte in it"), job->filename);
    }
    *textptr = text;
    return 0;
}

/* ---- saving ---------------------------------------------------------------------------------- */

static int has_return(const struct job *job)
{
    return (job->section && strchr(job->section, '\r')) || strchr(job->key, '\r') ||
           (job->value && strchr(job->value, '\r'));
}

/* Whether what is written reads as what was asked for: a value with a line end does not, nor does a
 * key with "=" in it. A carriage return would do here, but is a line end to others. */
static int reads_back(struct job *job, const char *filename)
{
    vel_error_t error;
    velinifile *written = vel_inifile_create_from_file(filename, &error);
    const char *value = NULL;

    if (error == VEL_ERROR_NONE && !has_return(job))
        value = vel_inifile_get(written, job->section, job->key);
    int issame =
        job->value ? value && strcmp(value, job->value) == 0 : error == VEL_ERROR_NONE && !value;
    if (written)
        vel_inifile_destroy(written);
    return issame;
}

/* Gives the new file the owner and the mode of the old one. A group that cannot be kept must not get
 * what its members may not see. */
static void keep_attributes(const struct job *job, int descriptor)
{
    struct stat old, new;
    mode_t mask = umask(0);
    mode_t mode = 0666 & ~mask;

    umask(mask);
    if (job->lock >= 0 && fstat(job->lock, &old) == 0 && fstat(descriptor, &new) == 0) {
        mode = old.st_mode & 07777;
        if ((old.st_uid != new.st_uid || old.st_gid != new.st_gid) &&
            fchown(descriptor, old.st_uid, old.st_gid) != 0)
            mode &= ~(mode_t)07070;
    }
    (void)fchmod(descriptor, mode); /* not every file system can */
}

/* Forces the new name in the directory to stable storage, where the platform can. */
static void sync_directory(const char *filename)
{
    char *directory = vel_strdup(filename);
    char *slash = directory ? strrchr(directory, '/') : NULL;

    if (slash)
        slash[slash == directory] = '\0';
    int descriptor = open(slash ? directory : ".", O_RDONLY | O_CLOEXEC);
    if (descriptor >= 0) {
        (void)fsync(descriptor);
        close(descriptor);
    }
    vel_free(directory);
}

/* Writes the side file, and puts it in the place of the file. */
static int save_aside(struct job *job, int descriptor, const char *sidename)
{
    int code = 0;

    errno = 0;
    if (vel_inifile_write_file(job->inifile, sidename) != VEL_ERROR_NONE)
        return fail_file(FAILED_WRITE, job, errno ? errno : EIO);
    if (!reads_back(job, sidename))
        return common_fail(FAILED_USAGE, "%s", tr("this cannot be written so that it reads back"));
    keep_attributes(job, descriptor);
    if (fsync(descriptor) != 0 || rename(sidename, job->target) != 0)
        code = fail_file(FAILED_WRITE, job, errno);
    return code;
}

/* The rename puts a complete file in the place of a complete file: no reader sees anything else, and
 * no crash leaves anything else. vel_file_data_save_with_backup would leave a moment without a file
 * of that name, and nothing on stable storage. */
static int save(struct job *job)
{
    char *sidename = vel_strdupf("%s.XXXXXX", job->target);

    if (!sidename)
        return fail_memory();
    int descriptor = mkstemp(sidename);
    int code = descriptor < 0 ? fail_file(FAILED_WRITE, job, errno)
                              : save_aside(job, descriptor, sidename);
    if (descriptor >= 0) {
        close(descriptor);
        if (code == 0)
            sync_directory(job->target);
        else
            (void)vel_deletefile(sidename);
    }
    vel_free(sidename);
    return code;
}

/* ---- one writer at a time -------------------------------------------------------------------- */

/* Whether the descriptor is what stands under the name: the writer before may have exchanged it. */
static int is_current(int descriptor, const char *filename)
{
    struct stat opened, named;

    return fstat(descriptor, &opened) == 0 && stat(filename, &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

/* Opens and locks the file. Opening it for writing also refuses where it is write-protected. */
static int open_locked(struct job *job)
{
    struct stat attributes;

    for (int i = 0; i < LOCK_TRIES; i++) {
        job->lock = open(job->target, O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (job->lock < 0)
            return fail_file(FAILED_WRITE, job, errno);
        if (fstat(job->lock, &attributes) != 0 || !S_ISREG(attributes.st_mode))
            return common_fail(FAILED_WRITE, tr("%s: not a regular file"), job->filename);
        while (flock(job->lock, LOCK_EX) != 0 && errno == EINTR)
            ; /* a file system without locks goes without one */
        if (is_current(job->lock, job->target))
            return 0;
        close(job->lock);
        job->lock = -1;
    }
    return common_fail(FAILED_WRITE, tr("%s: changes all the time"), job->filename);
}

/* Takes hold of the file; one that is not there is to be made, if that is allowed. */
static int take_file(struct job *job, int maycreate)
{
    job->target = realpath(job->filename, NULL);
    if (job->target)
        return open_locked(job);
    if (errno != ENOENT || !maycreate)
        return fail_file(errno == ENOENT ? FAILED_READ : FAILED_WRITE, job, errno);
    job->target = strdup(job->filename);
    return job->target ? 0 : fail_memory();
}

/* ---- the commands ---------------------------------------------------------------------------- */

static int fail_missing(const struct job *job)
{
    if (job->section)
        return common_fail(FAILED_MISSING, tr("%s: there is no key '%s' in section '%s'"),
                           job->filename, job->key, job->section);
    return common_fail(FAILED_MISSING, tr("%s: there is no key '%s' ahead of the sections"),
                       job->filename, job->key);
}

static int get(struct job *job)
{
    int code = read_file(job);
    const char *value = code == 0 ? vel_inifile_get(job->inifile, job->section, job->key) : NULL;

    if (value)
        puts(value);
    return code || value ? code : fail_missing(job);
}

/* Begins a change: the file is locked, whole, and in memory; or it is new and empty. */
static int open_for_change(struct job *job, int maycreate)
{
    char *text;
    int code = take_file(job, maycreate);

    if (code == 0 && job->lock >= 0) {
        code = read_file(job);
        if (code == 0)
            code = read_text(job, &text);
        if (code == 0)
            vel_free(text);
    } else if (code == 0) {
        job->inifile = vel_inifile_create(NULL);
        code = job->inifile ? 0 : fail_memory();
    }
    return code;
}

static int set(struct job *job)
{
    int code = open_for_change(job, 1);
    if (code)
        return code;

    const char *former = vel_inifile_get(job->inifile, job->section, job->key);
    if (former && strcmp(former, job->value) == 0)
        return 0;
    if (vel_inifile_set(job->inifile, job->section, job->key, job->value) != VEL_ERROR_NONE)
        return fail_memory();
    return save(job);
}

static int delete (struct job *job)
{
    unsigned int count = 0;
    int code = open_for_change(job, 0);
    if (code)
        return code;

    vel_inifile_delete_all(job->inifile, job->section, job->key, &count);
    return count > 0 ? save(job) : fail_missing(job);
}

/* ---- the list -------------------------------------------------------------------------------- */

/* A section of the list, with its keys in their order. */
struct listed {
    struct listed *next, *prev; /* a vel_list item */
    const char *name;           /* within the text; NULL: ahead of all headers */
    vel_list keys;
};

struct listedkey {
    struct listedkey *next, *prev; /* a vel_list item */
    const char *name;              /* within the text */
};

struct listing {
    vel_list sections;
    velstringhash *known; /* "[NAME" leads to a section, "KEY\nNAME" says that the key is listed */
};

static struct listed *add_section(struct listing *listing, const char *name)
{
    char *path = name ? vel_strdupf("[%s", name) : vel_strdup("");
    struct listed *section = path ? vel_stringhash_lookup(listing->known, path) : NULL;

    if (path && !section && (section = vel_cmalloc(sizeof(*section))) != NULL) {
        section->name = name;
        VEL_LIST_ADD_TAIL(&listing->sections, section);
        if (vel_stringhash_add(listing->known, path, section) != 0)
            section = NULL;
    }
    vel_free(path);
    return section;
}

/* Adds a key unless it stands there. Returns whether there was memory. */
static int add_key(struct listing *listing, struct listed *section, const char *name)
{
    char *path = vel_strdupf("%s\n%s", name, section->name ? section->name : "\n");
    struct listedkey *key = NULL;
    int isknown = path && vel_stringhash_lookup(listing->known, path);

    if (path && !isknown && (key = vel_cmalloc(sizeof(*key))) != NULL) {
        key->name = name;
        VEL_LIST_ADD_TAIL(&section->keys, key);
        isknown = vel_stringhash_add(listing->known, path, section) == 0;
    }
    vel_free(path);
    return isknown;
}

/* Ends a text at a place, and takes the white space off both ends. */
static char *strip(char *text, char *end)
{
    while (end > text && isspace((unsigned char)end[-1]))
        end--;
    *end = '\0';
    while (isspace((unsigned char)*text))
        text++;
    return text;
}

/* Takes the lines as the library does, which has found all of them to be good, but has no way to
 * enumerate them. Returns whether there was memory. */
static int list_lines(struct listing *listing, char *text)
{
    struct listed *section = add_section(listing, NULL);
    char *next;

    for (char *line = text; section && *line; line = next) {
        size_t length = strcspn(line, "\n");
        next = line + length + (line[length] == '\n');
        line = strip(line, line + length);
        char *end = strrchr(line, ']');
        if (*line == '[' && end)
            section = add_section(listing, strip(line + 1, end));
        else if (*line && !strchr(";#", *line) && (end = strchr(line + 1, '=')) != NULL &&
                 !add_key(listing, section, strip(line, end)))
            return 0;
    }
    return section != NULL;
}

static void print_section(const struct job *job, const struct listed *section)
{
    if (!job->section && section->name)
        printf("[%s]\n", section->name);
    for (struct listedkey *key = section->keys.head; key; key = key->next)
        puts(key->name);
}

static int print_listing(const struct job *job, const struct listing *listing)
{
    int isfound = !job->section;

    for (struct listed *section = listing->sections.head; section; section = section->next) {
        if (job->section && (!section->name || strcmp(section->name, job->section) != 0))
            continue;
        print_section(job, section);
        isfound = 1;
    }
    return isfound ? 0
                   : common_fail(FAILED_MISSING, tr("%s: there is no section '%s'"), job->filename,
                                 job->section);
}

static void free_listing(struct listing *listing)
{
    struct listed *section;
    struct listedkey *key;

    while ((section = listing->sections.head) != NULL) {
        while ((key = section->keys.head) != NULL) {
            VEL_LIST_REMOVE(&section->keys, key);
            vel_free(key);
        }
        VEL_LIST_REMOVE(&listing->sections, section);
        vel_free(section);
    }
    vel_stringhash_destroy(listing->known);
}

static int list(struct job *job)
{
    struct listing listing = {{NULL, NULL}, vel_stringhash_create(NULL, NULL)};
    char *text = NULL;
    int code = listing.known ? read_file(job) : fail_memory();

    if (code == 0)
        code = read_text(job, &text);
    if (code == 0)
        code = list_lines(&listing, text) ? print_listing(job, &listing) : fail_memory();
    if (listing.known)
        free_listing(&listing);
    vel_free(text);
    return code;
}

/* ---- the command line ------------------------------------------------------------------------ */

static const struct command {
    const char *name;
    int (*run)(struct job *job);
    int least, most; /* words behind it */
    int values;      /* of these, at the end */
    int keys;        /* in front of them */
} commands[] = {{"get", get, 1, 2, 0, 1},
                {"set", set, 2, 3, 1, 1},
                {"delete", delete, 1, 2, 0, 1},
                {"list", list, 0, 1, 0, 0}};

static const char *const synopsis[] = {
    N_("velini FILE get [SECTION] KEY"), N_("velini FILE set [SECTION] KEY VALUE"),
    N_("velini FILE delete [SECTION] KEY"), N_("velini FILE list [SECTION]"), NULL};

static const char *const paragraphs[] = {
    N_("Reads and changes single values of an INI file. Comments, empty lines and the order of "
       "lines "
       "stay as they are."),
    N_("get prints the value of a key; where a key stands twice, the last one counts. set changes "
       "it in that place, or adds it behind the last key of the section; the section and the file "
       "are made if they are not there. delete removes every line with the key. list prints the "
       "keys of a section, one a line, each once; without SECTION it prints all keys, under the "
       "sections as \"[SECTION]\". Without SECTION the other commands mean the lines ahead of the "
       "first section."),
    N_("A line is empty, a comment (it begins with ; or #), a section \"[NAME]\" or \"KEY=VALUE\". "
       "White space around names, keys and values does not count, case does. There are no quotes, "
       "no escapes and no continued lines. A change ends each line with a line feed alone, and "
       "takes "
       "the white space off the front of keys; nothing else in other lines changes."),
    N_("A change is written to FILE.XXXXXX in the same directory, forced to stable storage and "
       "then "
       "renamed to FILE. Whoever reads FILE meanwhile, and whatever crashes, finds the old or the "
       "new file, never a part of one; a crash may leave FILE.XXXXXX behind. Owner and mode are "
       "kept; where FILE is a link, the file behind it is changed. Changes by several velini at a "
       "time wait for each other."),
    N_("Exit codes: 0 done; 1 no such key or section; 2 usage, or a text that would not read back; "
       "3 FILE cannot be opened or read; 4 a line of FILE is none of the above; 5 cannot write; "
       "6 out of memory."),
    NULL};

/* Copies the next word of the command line without white space around it, if there is one more. */
static int take_word(char **wordptr, char ***words, int istaken)
{
    if (!istaken)
        return 1;
    *wordptr = vel_strstrip(*(*words)++);
    return *wordptr != NULL;
}

/* Runs a command with the words behind it. */
static int run_command(struct job *job, const struct command *command, char **words, int count)
{
    int hassection = count > command->keys + command->values;

    if (!take_word(&job->section, &words, hassection) ||
        !take_word(&job->key, &words, command->keys) ||
        !take_word(&job->value, &words, command->values))
        return fail_memory();
    int code = command->run(job);
    const char *reason = common_flush();
    if (reason && code == 0)
        code = common_fail(FAILED_WRITE, tr("standard output: %s"), reason);
    return code;
}

static int run(struct job *job, int argc, char **argv)
{
    if (argc < 2) {
        common_mistake("%s", tr("a file and a command are needed"));
        return FAILED_USAGE;
    }
    job->filename = argv[0];
    for (size_t i = 0; i < sizeof(commands) / sizeof(commands[0]); i++) {
        const struct command *command = &commands[i];
        if (strcmp(argv[1], command->name) != 0)
            continue;
        if (argc - 2 >= command->least && argc - 2 <= command->most)
            return run_command(job, command, argv + 2, argc - 2);
        common_mistake(tr("%s: too few or too many words behind this command"), argv[1]);
        return FAILED_USAGE;
    }
    common_mistake(tr("%s: there is no such command"), argv[1]);
    return FAILED_USAGE;
}

int main(int argc, char **argv)
{
    static struct job job = {.lock = -1};

    vel_log_stderr_disable(NULL);
    common_start("velini");
    vel_log_callback_set(NULL, common_keep_reason, &job.reason);
    vel_log_callback_set_level(NULL, 8);
    vel_log_callback_enable(NULL);

    int code = common_parse(vel_getopt_create(), 0, synopsis, paragraphs, argc, argv);
    if (code > 0)
        code = run(&job, argc - code, argv + code);
    else
        code = common_exit_code(code, FAILED_USAGE, FAILED_WRITE, FAILED_MEMORY);

    if (job.inifile)
        vel_inifile_destroy(job.inifile);
    if (job.lock >= 0)
        close(job.lock);
    free(job.target);
    vel_free(job.section);
    vel_free(job.key);
    vel_free(job.value);
    common_end();
    vel_uninit();
    return code;
}
