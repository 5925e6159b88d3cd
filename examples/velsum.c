/* velsum: prints or checks the digests of files, several at a time.
 *
 * A host program of vellib: a thread pool whose workers each have a context of their own, results
 * that are shown in order whichever comes first, and an orderly end on a signal. */
#define _XOPEN_SOURCE     700
#define _FILE_OFFSET_BITS 64

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include "common.h"

enum {
    DIGEST_SIZE = 32,        /* bytes of the longest digest */
    PIECE_SIZE = 256 * 1024, /* bytes read at a time */
    BAR_MS = 100,            /* from one bar to the next */
    MOST_THREADS = 1024,
    FAILED = 1,
    FAILED_USAGE = 2,
    FAILED_SIGNAL = 128 /* plus the signal */
};

/* A kind of digest. */
struct algorithm {
    const char *name;
    const char *tag; /* how it is called in a line "SHA256 (name) = digest" */
    size_t size;     /* bytes */
};

static const struct algorithm algorithms[] = {{"sha256", "SHA256", 32}, {"sha1", "SHA1", 20}};

/* One file, which is one request to the pool. */
struct job {
    char *name;
    char *expected; /* in hexadecimal; NULL: print the digest */
    int isspent;    /* standard input that an earlier job reads to its end */
    int isdone;
    int error; /* an errno, or 0 */
    unsigned char digest[DIGEST_SIZE];
};

struct sum {
    const struct algorithm *algorithm;
    int checks; /* whether the operands are lists to check */
    int threads;

    struct job *jobs;
    size_t count, room;
    int readsinput;  /* whether a job has standard input */
    size_t shown;    /* jobs in front whose result has been printed */
    size_t badlines; /* of the list that is checked */
    size_t unreadable;
    size_t mismatched;
    int failed;

    velmutex *screen; /* guards what follows, and the terminal while there is a bar */
    int hasbar;
    int barisup;
    long long barms; /* when it was last drawn */
    double bytes, total;
};

/* What a worker has for itself. */
struct worker {
    velsha1 *velsha1;
    velsha256 *velsha256;
    unsigned char piece[PIECE_SIZE];
};

/* A pipe: whoever waits for a file waits for this too, and no signal is lost, whichever thread it
 * hits and when. It is read at the end, so that all see it. */
static int stoppipe[2];

/* Tells the signal to the pipe, as little else is safe here. From the second signal on the
 * platform's default action is back. */
static void on_signal(int velsignal, void *context)
{
    int olderrno = errno;
    unsigned char byte = (unsigned char)velsignal;
    (void)context;
    if (write(stoppipe[1], &byte, 1) == 1)
        signal(velsignal, SIG_DFL);
    errno = olderrno;
}

/* Whether a signal has asked the program to end. */
static int is_stopping(void)
{
    struct pollfd poller = {.fd = stoppipe[0], .events = POLLIN};
    return poll(&poller, 1, 0) > 0;
}

/* ---- messages and the progress bar ----------------------------------------------------------- */

/* Makes room for a line of output. The caller holds the screen. */
static void clear_bar(struct sum *sum)
{
    if (sum->barisup) {
        common_show_line("");
        fputc('\r', stderr);
    }
    sum->barisup = 0;
}

/* Writes a name into a message, so that nothing in it can steer the terminal, and in quotes where
 * its ends would not be seen otherwise. */
static void put_name(const char *name)
{
    const char *quote = *name == '\0' || strpbrk(name, " \t\n\r'\"\\$`*?[;&|<>(){}~#!") ? "'" : "";
    fputs(quote, stderr);
    for (; *name; name++)
        fputc((unsigned char)*name < ' ' || *name == 127 ? '?' : *name, stderr);
    fputs(quote, stderr);
}

/* Prints the line that says what went wrong, which makes the program fail. */
static void complain(struct sum *sum, const char *name, const char *reason)
{
    clear_bar(sum);
    fflush(stdout); /* both may go to one place */
    fputs("velsum: ", stderr);
    if (name) {
        put_name(name);
        fputs(": ", stderr);
    }
    fprintf(stderr, "%s\n", reason);
    sum->failed = 1;
}

static void complain_memory(struct sum *sum)
{
    complain(sum, NULL, tr(vel_error_string(VEL_ERROR_NO_MEMORY)));
}

static long long now_ms(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (long long)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

/* Draws "[====    ]  1.0 MiB of 2.0 MiB", or as much as is known and has room. */
static void draw_bar(struct sum *sum)
{
    char amount[16], total[16], facts[64], bar[201] = "", line[300];
    int room = common_terminal_width() - (int)sizeof "[]  8888 KiB of 8888 KiB ";

    common_format_amount(amount, sizeof amount, sum->bytes);
    common_format_amount(total, sizeof total, sum->total);
    if (sum->total > 0)
        snprintf(facts, sizeof facts, tr("%8s of %s"), amount, total);
    else
        snprintf(facts, sizeof facts, "%s", amount);
    if (sum->total > 0 && room >= 10) {
        double share = sum->bytes < sum->total ? sum->bytes / sum->total : 1;
        room = room < (int)sizeof bar ? room : (int)sizeof bar - 1;
        memset(bar, ' ', (size_t)room);
        memset(bar, '=', (size_t)(share * room));
    }
    snprintf(line, sizeof line, bar[0] ? "[%s]  %s" : "%s%s", bar, facts);
    common_show_line(line);
    sum->barisup = 1;
}

/* Counts bytes that were read; draws the bar if it is time. */
static void advance(struct sum *sum, size_t count)
{
    if (!sum->hasbar)
        return;
    vel_mutex_lock(sum->screen);
    sum->bytes += (double)count;
    long long ms = now_ms();
    if (ms - sum->barms >= BAR_MS) {
        sum->barms = ms;
        draw_bar(sum);
    }
    vel_mutex_unlock(sum->screen);
}

/* ---- the workers ----------------------------------------------------------------------------- */

static void destroy_worker(void *global, void *threadctx)
{
    struct worker *worker = threadctx;
    (void)global;
    if (worker->velsha1)
        vel_sha1_destroy(worker->velsha1);
    if (worker->velsha256)
        vel_sha256_destroy(worker->velsha256);
    vel_free(worker);
}

static void *create_worker(void *global, vel_error_t *errorptr)
{
    struct worker *worker = vel_cmalloc(sizeof *worker);
    if (worker) {
        worker->velsha1 = vel_sha1_create();
        worker->velsha256 = vel_sha256_create();
        if (worker->velsha1 && worker->velsha256) {
            *errorptr = VEL_ERROR_NONE;
            return worker;
        }
        destroy_worker(global, worker);
    }
    *errorptr = VEL_ERROR_NO_MEMORY;
    return NULL;
}

/* Opens a file to read it by read_piece. A FIFO without a writer does not block: it is waited for
 * like one without data. */
static int open_file(const char *name)
{
    return open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
}

/* Reads a piece, as soon as there is one. Returns its size, 0 at the end, or -1 with errno set, which
 * is EINTR if the program is to end. */
static ssize_t read_piece(int file, void *piece, size_t size)
{
    struct pollfd pollers[] = {
        {.fd = stoppipe[0], .events = POLLIN},
        {.fd = file, .events = POLLIN}}; /* a regular file is ready at once */
    for (;;) {
        if (poll(pollers, 2, -1) < 0) {
            if (errno != EINTR)
                return -1;
            continue; /* a signal, which the pipe tells */
        }
        if (pollers[0].revents) {
            errno = EINTR;
            return -1;
        }
        ssize_t count = read(file, piece, size);
        if (count >= 0 || (errno != EINTR && errno != EAGAIN))
            return count;
    }
}

static int hash_file(struct sum *sum, struct worker *worker, int file, unsigned char *digest)
{
    int issha1 = sum->algorithm->size == 20;
    ssize_t count = 0;

    vel_sha1_init(worker->velsha1);
    vel_sha256_init(worker->velsha256);
    while (file >= 0 && (count = read_piece(file, worker->piece, sizeof worker->piece)) > 0) {
        if (issha1)
            vel_sha1_update(worker->velsha1, worker->piece, (size_t)count);
        else
            vel_sha256_update(worker->velsha256, worker->piece, (size_t)count);
        advance(sum, (size_t)count);
    }
    if (count < 0)
        return errno;
    if (issha1) {
        vel_sha1_finalize(worker->velsha1);
        vel_sha1_digest(worker->velsha1, digest);
    } else {
        vel_sha256_finalize(worker->velsha256);
        vel_sha256_digest(worker->velsha256, digest);
    }
    return 0;
}

static void work(void *global, void *threadctx, void *request)
{
    struct sum *sum = global;
    struct job *job = request;

    if (is_stopping()) {
        job->error = EINTR;
    } else if (strcmp(job->name, "-") == 0) {
        job->error = hash_file(sum, threadctx, job->isspent ? -1 : STDIN_FILENO, job->digest);
    } else {
        int file = open_file(job->name);
        job->error = file < 0 ? errno : hash_file(sum, threadctx, file, job->digest);
        if (file >= 0)
            close(file);
    }
}

/* ---- results --------------------------------------------------------------------------------- */

/* Prints a name, with escapes if it would not stand on one line as it is. The line then begins with a
 * backslash. */
static void print_name(const char *name, int escapes)
{
    for (; *name; name++) {
        if (escapes && *name == '\n')
            fputs("\\n", stdout);
        else if (escapes && *name == '\r')
            fputs("\\r", stdout);
        else
            printf(escapes && *name == '\\' ? "\\%c" : "%c", *name);
    }
}

static void format_digest(const struct sum *sum, const struct job *job, char *text)
{
    for (size_t i = 0; i < sum->algorithm->size; i++)
        snprintf(text + 2 * i, 3, "%02x", job->digest[i]);
}

static void show_result(struct sum *sum, const struct job *job)
{
    char text[2 * DIGEST_SIZE + 1];
    const char *verdict = "OK";

    if (job->error)
        complain(sum, job->name, tr(strerror(job->error)));
    if (job->error && !job->expected)
        return;
    format_digest(sum, job, text);
    if (job->error) {
        verdict = "FAILED open or read";
        sum->unreadable++;
    } else if (job->expected && vel_strcasecmp(job->expected, text) != 0) {
        verdict = "FAILED";
        sum->mismatched++;
        sum->failed = 1;
    }
    clear_bar(sum);
    /* A verdict is for eyes, a digest is to be read again. */
    int escapes = strpbrk(job->name, job->expected ? "\n" : "\\\n\r") != NULL;
    if (escapes)
        putchar('\\');
    if (!job->expected)
        printf("%s  ", text);
    print_name(job->name, escapes);
    if (job->expected)
        printf(": %s", verdict);
    putchar('\n');
}

/* Prints what is known of the first jobs, up to the first that is not done. */
static void show_results(struct sum *sum)
{
    vel_mutex_lock(sum->screen);
    size_t shown = sum->shown;
    for (; !is_stopping() && sum->shown < sum->count && sum->jobs[sum->shown].isdone; sum->shown++)
        show_result(sum, &sum->jobs[sum->shown]);
    if (sum->hasbar && sum->shown > shown)
        fflush(stdout); /* or the bar comes in between */
    vel_mutex_unlock(sum->screen);
}

/* ---- jobs ------------------------------------------------------------------------------------ */

/* Adds a job with copies of both strings. Returns whether there was memory for it. */
static int add_job(struct sum *sum, const char *name, const char *expected)
{
    if (sum->count == sum->room) {
        size_t room = sum->room ? 2 * sum->room : 16;
        struct job *grown = vel_realloc(sum->jobs, room * sizeof *grown);
        if (!grown)
            return 0;
        sum->jobs = grown;
        sum->room = room;
    }
    struct job *job = &sum->jobs[sum->count];
    memset(job, 0, sizeof *job);
    job->name = vel_strdup(name);
    job->expected = expected ? vel_strdup(expected) : NULL;
    if (!job->name || (expected && !job->expected)) {
        vel_free(job->name);
        vel_free(job->expected);
        return 0;
    }
    if (strcmp(name, "-") == 0) {
        job->isspent = sum->readsinput;
        sum->readsinput = 1;
    }
    sum->count++;
    return 1;
}

static void free_jobs(struct sum *sum)
{
    for (size_t i = 0; i < sum->count; i++) {
        vel_free(sum->jobs[i].name);
        vel_free(sum->jobs[i].expected);
    }
    vel_free(sum->jobs);
    sum->jobs = NULL;
    sum->count = sum->room = sum->shown = 0;
}

static velthreadpool *create_pool(struct sum *sum, vel_error_t *errorptr)
{
    size_t threads = (size_t)sum->threads;
    velthreadpool_params *params = vel_threadpool_params_create_defaults();
    if (!params) {
        *errorptr = VEL_ERROR_NO_MEMORY;
        return NULL;
    }
    if (threads > sum->count)
        threads = sum->count;
    vel_threadpool_params_set_num_threads(params, (unsigned int)threads);
    vel_threadpool_params_set_global_context(params, sum);
    vel_threadpool_params_set_thread_ctx_create(params, create_worker);
    vel_threadpool_params_set_thread_ctx_destroy(params, destroy_worker);
    vel_threadpool_params_set_request_handler(params, work);
    velthreadpool *pool = vel_threadpool_create(params, errorptr);
    vel_threadpool_params_destroy(params);
    return pool;
}

static void measure_jobs(struct sum *sum)
{
    struct stat attributes;
    sum->bytes = sum->total = 0;
    for (size_t i = 0; i < sum->count; i++) {
        if (stat(sum->jobs[i].name, &attributes) == 0 && S_ISREG(attributes.st_mode))
            sum->total += (double)attributes.st_size;
    }
    sum->barms = now_ms(); /* what takes no time needs no bar */
}

/* Lets the pool do all jobs, and prints the results in the order of the jobs. After a signal the
 * workers give back what is left as it is, so the count is always right. */
static void run_jobs(struct sum *sum)
{
    vel_error_t error = VEL_ERROR_NONE;
    size_t waiting = 0;
    velthreadpool *pool = sum->count ? create_pool(sum, &error) : NULL;
    if (!pool) {
        if (sum->count)
            complain(sum, NULL, vel_error_string(error));
        return;
    }
    if (sum->hasbar)
        measure_jobs(sum);
    for (size_t i = 0; i < sum->count; i++) {
        if (vel_threadpool_submit_request(pool, &sum->jobs[i]) == VEL_ERROR_NONE) {
            waiting++;
        } else {
            sum->jobs[i].error = ENOMEM;
            sum->jobs[i].isdone = 1;
        }
    }
    for (; waiting > 0; waiting--) {
        struct job *job = vel_threadpool_get_result(pool, NULL);
        job->isdone = 1;
        show_results(sum);
    }
    vel_threadpool_destroy(pool);
    show_results(sum);
    clear_bar(sum);
}

/* ---- lists ----------------------------------------------------------------------------------- */

static int is_digest(const struct sum *sum, const char *text)
{
    size_t length = strlen(text);
    for (; isxdigit((unsigned char)*text); text++)
        ;
    return *text == '\0' && length == 2 * sum->algorithm->size;
}

static char *skip_blanks(char *text)
{
    return text + strspn(text, " \t");
}

/* Undoes in place what print_name does. Returns whether it could have done that. */
static int unescape(char *name)
{
    static const char letters[] = "\\nr", characters[] = "\\\n\r";
    char *end = name;
    for (; *name; name++) {
        if (*name == '\\') {
            const char *found = *++name ? strchr(letters, *name) : NULL;
            if (!found)
                return 0;
            *end++ = characters[found - letters];
        } else {
            *end++ = *name;
        }
    }
    *end = '\0';
    return 1;
}

/* Takes "SHA256 (name) = digest" apart in place, from behind the parenthesis. */
static int split_tagged(char *line, char **nameptr, char **digestptr)
{
    char *end = strrchr(line, ')');
    if (!end)
        return 0;
    *end = '\0';
    *nameptr = line;
    char *equals = skip_blanks(end + 1);
    *digestptr = skip_blanks(equals + 1);
    return *equals == '=';
}

/* Takes "digest  name", "digest *name" or, in a list that has only such lines, "digest name" apart in
 * place. *formptr is 0 before the first line, and then tells by which of the two forms the list goes:
 * who could mix them could make one name look like another. */
static int split_plain(const struct sum *sum, char *line, int *formptr, char **nameptr,
                       char **digestptr)
{
    enum { TWO_CHARACTERS = 1, ONE_BLANK = 2 };
    size_t width = 2 * sum->algorithm->size;
    if (strlen(line) < width + 2 || (line[width] != ' ' && line[width] != '\t'))
        return 0;
    line[width] = '\0';
    *digestptr = line;
    *nameptr = line + width + 1;
    if (!is_digest(sum, line))
        return 0;
    if ((*nameptr)[1] == '\0' || (**nameptr != ' ' && **nameptr != '*')) {
        if (*formptr == TWO_CHARACTERS)
            return 0;
        *formptr = ONE_BLANK;
    } else if (*formptr != ONE_BLANK) {
        *formptr = TWO_CHARACTERS;
        ++*nameptr;
    }
    return 1;
}

/* Takes a line of a list apart in place. Returns whether it is one. */
static int split_line(const struct sum *sum, char *line, int *formptr, char **nameptr,
                      char **digestptr)
{
    const char *tag = sum->algorithm->tag;
    line = skip_blanks(line);
    int isescaped = *line == '\\';
    line += isescaped;

    int istagged = strncmp(line, tag, strlen(tag)) == 0;
    if (istagged) {
        line += strlen(tag);
        line += *line == ' ';
        if (*line != '(' || !split_tagged(line + 1, nameptr, digestptr))
            return 0;
    } else if (!split_plain(sum, line, formptr, nameptr, digestptr)) {
        return 0;
    }
    return is_digest(sum, *digestptr) && (!isescaped || unescape(*nameptr));
}

/* Reads a list as a string into *textptr, for vel_free. Returns 0 or an errno. */
static int read_list(int file, char **textptr, size_t *lengthptr)
{
    size_t size = 65536, length = 0;
    ssize_t count = 0;
    char *text = vel_malloc(size);

    while (text && (count = read_piece(file, text + length, size - length - 1)) > 0) {
        length += (size_t)count;
        if (size - length < 4096) {
            char *grown = vel_realloc(text, size *= 2);
            if (!grown)
                vel_free(text);
            text = grown;
        }
    }
    int error = !text ? ENOMEM : count < 0 ? errno : 0;
    if (error) {
        vel_free(text);
        return error;
    }
    text[length] = '\0';
    *textptr = text;
    *lengthptr = length;
    return 0;
}

/* Makes the jobs of the lines of a list, and takes the text apart for that. Returns whether there
 * was memory for all. */
static int add_lines(struct sum *sum, char *text, size_t length, int isinput)
{
    char *end = text + length, *name, *digest;
    int form = 0;

    for (char *line = text, *next; line < end; line = next) {
        char *feed = memchr(line, '\n', (size_t)(end - line));
        next = feed ? feed + 1 : end;
        char *last = feed ? feed : end;
        if (last > line && last[-1] == '\r')
            last--;
        *last = '\0';
        if (line == last || *line == '#')
            continue;
        /* A list cannot be its own member. */
        if (!split_line(sum, line, &form, &name, &digest) || (isinput && strcmp(name, "-") == 0))
            sum->badlines++;
        else if (!add_job(sum, name, digest))
            return 0;
    }
    return 1;
}

static void warn(struct sum *sum, size_t count, const char *format)
{
    char text[200];
    if (count == 0)
        return;
    snprintf(text, sizeof text, format, count);
    int failed = sum->failed; /* which lines that are no members do not change */
    complain(sum, NULL, text);
    sum->failed = failed;
}

static void warn_of_list(struct sum *sum)
{
    size_t bad = sum->badlines, unreadable = sum->unreadable, mismatched = sum->mismatched;
    warn(sum, bad,
         bad == 1 ? tr("WARNING: %zu line is improperly formatted")
                  : tr("WARNING: %zu lines are improperly formatted"));
    warn(sum, unreadable,
         unreadable == 1 ? tr("WARNING: %zu listed file could not be read")
                         : tr("WARNING: %zu listed files could not be read"));
    warn(sum, mismatched,
         mismatched == 1 ? tr("WARNING: %zu computed checksum did NOT match")
                         : tr("WARNING: %zu computed checksums did NOT match"));
}

static void check_list(struct sum *sum, const char *name)
{
    int isinput = strcmp(name, "-") == 0;
    const char *shown = isinput ? tr("standard input") : name;
    int file = isinput ? STDIN_FILENO : open_file(name);
    char *text = NULL;
    size_t length = 0;
    int error = file < 0 ? errno : read_list(file, &text, &length);

    sum->badlines = sum->unreadable = sum->mismatched = 0;
    if (!error && !add_lines(sum, text, length, isinput))
        error = ENOMEM;
    if (error && !is_stopping())
        complain(sum, shown, tr(strerror(error)));
    else if (!error && sum->count == 0)
        complain(sum, shown, tr("no properly formatted checksum lines found"));
    if (!error && sum->count > 0)
        run_jobs(sum);
    if (!error && sum->count > 0 && !is_stopping())
        warn_of_list(sum);
    free_jobs(sum);
    vel_free(text);
    if (file >= 0 && !isinput)
        close(file);
}

/* ---- options --------------------------------------------------------------------------------- */

static const char *const synopsis[] = {N_("velsum [OPTION]... [FILE]..."), NULL};

static const char *const paragraphs[] = {
    N_("Prints or checks the digests of files, several at a time."),
    N_("Without a FILE, and for \"-\", standard input is read. Output has the form of sha256sum, "
       "in "
       "the order of the FILEs; its words OK and FAILED are the same in every language. Options "
       "stand before the FILEs."),
    N_("Exit codes: 0 all well; 1 something could not be read or written, or does not match; "
       "2 usage; 128 + N ended by signal N."),
    NULL};

static vel_error_t on_algorithm(const char *argument, void *context)
{
    struct sum *sum = context;
    for (size_t i = 0; i < sizeof algorithms / sizeof *algorithms; i++) {
        if (strcmp(argument, algorithms[i].name) == 0) {
            sum->algorithm = &algorithms[i];
            return VEL_ERROR_NONE;
        }
    }
    return common_refuse(tr("no such digest"));
}

static vel_error_t on_jobs(const char *argument, void *context)
{
    int64_t count;
    if (vel_strtoi64(argument, &count) != VEL_ERROR_NONE || count < 1 || count > MOST_THREADS)
        return common_refuse(tr("not a number from 1 to 1024"));
    *(int *)context = (int)count;
    return VEL_ERROR_NONE;
}

/* Returns whether one could not be declared. */
static int declare_options(struct sum *sum, velgetopt *options)
{
    return vel_getopt_string_callback(options, "algorithm", 'a', tr("NAME"),
                                      tr("The digest: sha256, which is the default, or sha1."),
                                      on_algorithm, sum) ||
           vel_getopt_flag_set(options, "check", 'c', &sum->checks,
                               tr("Check the files that each FILE lists, which has the form of "
                                  "this program's output.")) ||
           vel_getopt_string_callback(options, "jobs", 'j', "N",
                                      tr("Read N files at a time; by default one for each "
                                         "processor."),
                                      on_jobs, &sum->threads);
}

/* Returns the index of the first operand, or what common_parse gives where there is none. */
static int take_options(struct sum *sum, int argc, char **argv)
{
    long processors = sysconf(_SC_NPROCESSORS_ONLN);
    sum->threads = processors < 1 ? 1 : processors > MOST_THREADS ? MOST_THREADS : (int)processors;
    velgetopt *options = vel_getopt_create();
    int bad = !options || declare_options(sum, options);
    return common_parse(options, bad, synopsis, paragraphs, argc, argv);
}

/* Deals with one FILE. Returns whether there was memory for it. */
static int take_operand(struct sum *sum, const char *name)
{
    if (!sum->checks)
        return add_job(sum, name, NULL);
    if (!is_stopping())
        check_list(sum, name);
    return 1;
}

static int run(struct sum *sum, int first, int argc, char **argv)
{
    int operands = 0, memory = 1;
    unsigned char stopsignal;

    /* A "-" among the options is passed over by the parser, and is a value of none of them. */
    for (int i = 1; i < argc && memory; i++) {
        if (i >= first || strcmp(argv[i], "-") == 0) {
            memory = take_operand(sum, argv[i]);
            operands++;
        }
    }
    if (operands == 0)
        memory = take_operand(sum, "-");
    if (!memory)
        complain_memory(sum);
    else if (!sum->checks)
        run_jobs(sum);
    free_jobs(sum);
    const char *reason = common_flush();
    if (reason) {
        common_fail(FAILED, tr("standard output: %s"), reason);
        sum->failed = 1;
    }
    if (is_stopping() && read(stoppipe[0], &stopsignal, 1) == 1) {
        complain(sum, NULL, tr("interrupted"));
        return FAILED_SIGNAL + stopsignal;
    }
    return sum->failed ? FAILED : 0;
}

int main(int argc, char **argv)
{
    struct sum sum = {.algorithm = &algorithms[0]};
    int code = FAILED, first;

    vel_log_stderr_disable(NULL); /* messages are our own */
    common_start("velsum");
    if (pipe(stoppipe) != 0) {
        perror("velsum");
        return FAILED;
    }
    vel_signal_register_sigint(on_signal, NULL);
    vel_signal_register_sigterm(on_signal, NULL);
    sum.hasbar = isatty(STDERR_FILENO);
    sum.screen = vel_mutex_create();
    if (!sum.screen)
        complain_memory(&sum);
    else if ((first = take_options(&sum, argc, argv)) > 0)
        code = run(&sum, first, argc, argv);
    else
        code = common_exit_code(first, FAILED_USAGE, FAILED, FAILED);
    if (sum.screen)
        vel_mutex_destroy(sum.screen);
    common_end();
    vel_uninit();
    return code;
}
