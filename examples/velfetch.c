/* velfetch: fetches a URL over HTTP into a file or to standard output.
 *
 * A host program of vellib: an HTTP client with redirects, a proxy, time limits, a progress bar,
 * and an orderly end on a signal. */
#define _XOPEN_SOURCE     700
#define _FILE_OFFSET_BITS 64

#include <errno.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common.h"

enum {
    FAILED = 1,
    FAILED_USAGE = 2,
    FAILED_URL = 3,
    FAILED_RESOLVE = 6,
    FAILED_CONNECT = 7,
    FAILED_REPLY = 8,
    FAILED_SHORT = 18,
    FAILED_STATUS = 22,
    FAILED_WRITE = 23,
    FAILED_TIMEOUT = 28,
    FAILED_REDIRECTS = 47,
    FAILED_LOST = 56,
    FAILED_SIGNAL = 128 /* and the number of the signal */
};

static const char *const synopsis[] = {N_("velfetch [OPTION]... URL"), NULL};

static const char *const paragraphs[] = {
    N_("Fetches an http:// URL, following redirects."),
    N_("Options stand before the URL. Only the body of an answer with status 200 is written. It is "
       "gathered beside FILE, in FILE.XXXXXX, which takes the place of FILE when it is complete; "
       "whatever fails, a FILE that was there stays as it was. Anything but a regular file is "
       "written to directly."),
    N_("While the name of a host is looked up, an interrupt waits for the answer; a second one "
       "ends "
       "the program at once."),
    N_("Exit codes: 0 status 200; 1 out of memory; 2 usage; 3 URL; 6 host name not resolved; 7 not "
       "connected; 8 reply not understood; 18 body too short; 22 other status; 23 cannot write; "
       "28 time limit; 47 too many redirects; 56 connection lost; 128 + N ended by signal N."),
    NULL};

/* What has been reached of a pass; a redirect begins the next one. */
enum stage { STAGE_ANY, STAGE_URL, STAGE_CONNECT, STAGE_TRANSFER, STAGE_REDIRECT };

struct fetch {
    velhttp *velhttp;
    const char *url; /* without its fragment */
    enum stage stage;
    char peer[300]; /* where the pass in hand goes to, for messages */

    char *proxytext; /* owned */
    char *proxyhost; /* within it; NULL: no proxy */
    unsigned int proxyport;
    char *proxyuser;     /* owned; NULL: none */
    char *proxypassword; /* within it */
    char *proxyheader;   /* owned */

    const char *filename; /* NULL: standard output */
    char *targetname;     /* owned; what filename stands for, unless it is not a regular file */
    char *sidename;       /* owned; the file beside it that is being written */
    FILE *stream;
    int writeerrno; /* why writing failed, or 0 */

    int64_t current, total; /* bytes of the body; -1 is unknown */
    int ishead;             /* no body will come, whatever its length is said to be */
    const char *method;     /* NULL: by default */
    int verbose, traces;    /* whether the log is shown, and whether all of it */
    int showsbar;
    veltimer *veltimer; /* since the pass began */
};

static volatile sig_atomic_t stopsignal; /* the signal that asked the program to end, or 0 */

/* Only stores the signal, as nothing else is safe here. The waits of the library end by themselves
 * when a signal comes in; from the second signal on the platform's default action is back. */
static void on_signal(int velsignal, void *context)
{
    (void)context;
    stopsignal = velsignal;
    signal(velsignal, SIG_DFL);
}

static void on_hangup(int number)
{
    on_signal(number, NULL);
}

/* The library has the other two signals. A program that is to outlive its terminal ignores this one. */
static void catch_hangup(void)
{
    struct sigaction action;

    if (sigaction(SIGHUP, NULL, &action) != 0 || action.sa_handler == SIG_IGN)
        return;
    memset(&action, 0, sizeof(action));
    sigemptyset(&action.sa_mask);
    action.sa_handler = on_hangup; /* and no restart, so that a wait ends */
    sigaction(SIGHUP, &action, NULL);
}

/* ---- messages and the progress bar ----------------------------------------------------------- */

/* Prints the one line that says what went wrong; returns the exit code. */
static int COMMON_PRINTF(3, 4) fail(struct fetch *fetch, int code, const char *format, ...)
{
    va_list arguments;

    if (fetch->showsbar) {
        common_show_line("");
        fputc('\r', stderr);
    }
    va_start(arguments, format);
    common_fail_list(code, format, arguments);
    va_end(arguments);
    return code;
}

static int check(struct fetch *fetch, vel_error_t error)
{
    return error ? fail(fetch, FAILED, "%s", tr(vel_error_string(error))) : 0;
}

static void format_time(char *text, size_t size, int seconds)
{
    if (seconds < 3600)
        snprintf(text, size, "%d:%02d", seconds / 60, seconds % 60);
    else
        snprintf(text, size, "%d:%02d:%02d", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

/* What the progress line is made of. */
struct progress {
    char amount[16], total[16], rate[16], time[16]; /* time is left, or taken; may be empty */
    double share;                                   /* of the total, 0 to 1 */
};

static void measure(struct fetch *fetch, int isdone, struct progress *progress)
{
    double rate = 0;
    int seconds = 0;

    vel_timer_split(fetch->veltimer);
    vel_timer_gettotal(fetch->veltimer, (uint64_t)fetch->current, &seconds, NULL, &rate);
    if (!(rate < 1e15)) /* no time has passed */
        rate = 0;
    double left = rate >= 1 ? (double)(fetch->total - fetch->current) / rate + 0.5 : -1;

    memset(progress, 0, sizeof(*progress));
    common_format_amount(progress->amount, sizeof(progress->amount), (double)fetch->current);
    common_format_amount(progress->rate, sizeof(progress->rate), rate);
    if (fetch->total > 0) {
        common_format_amount(progress->total, sizeof(progress->total), (double)fetch->total);
        progress->share =
            fetch->current < fetch->total ? (double)fetch->current / (double)fetch->total : 1;
    }
    if (isdone)
        format_time(progress->time, sizeof(progress->time), seconds);
    else if (left >= 0 && left < 360000)
        format_time(progress->time, sizeof(progress->time), (int)left);
}

/* Shows "[====    ]  1.0 MiB of 2.0 MiB  1.0 MiB/s  0:01 left", or as much as is known and has room.
 * The columns stay where they are from one time to the next. */
static void show_progress(struct fetch *fetch, int isdone)
{
    static const char widest[] = "[]  8888 KiB of 8888 KiB  8888 KiB/s  88:88:88 left";
    char facts[160], when[32] = "", bar[201] = "", line[400];
    int width = common_terminal_width() - 1;
    struct progress it;

    measure(fetch, isdone, &it);
    if (it.time[0])
        snprintf(when, sizeof(when), isdone ? tr("in %s") : tr("%5s left"), it.time);
    if (!it.total[0])
        snprintf(facts, sizeof(facts), "%s  %s/s  %s", it.amount, it.rate, when);
    else if (snprintf(facts, sizeof(facts), tr("%8s of %s  %8s/s  %s"), it.amount, it.total,
                      it.rate, when) > width)
        snprintf(facts, sizeof(facts), tr("%s of %s  %s/s  %s"), it.amount, it.total, it.rate,
                 it.time);

    int room = width - (int)strlen(widest);
    if (it.total[0] && room >= 10) {
        room = room < (int)sizeof(bar) ? room : (int)sizeof(bar) - 1;
        memset(bar, ' ', (size_t)room);
        memset(bar, '=', (size_t)(it.share * room));
    }
    snprintf(line, sizeof(line), bar[0] ? "[%s]  %s" : "%s%s", bar, facts);
    common_show_line(line);
}

/* ---- where the body goes --------------------------------------------------------------------- */

/* Opens a new file beside the one to replace, with the permissions that it is to have. */
static FILE *open_side_file(struct fetch *fetch, const struct stat *old)
{
    mode_t mask = umask(0);
    umask(mask);
    mode_t mode = old ? old->st_mode & 0777 : 0666 & ~mask;

    fetch->targetname = old ? realpath(fetch->filename, NULL) : strdup(fetch->filename);
    fetch->sidename = fetch->targetname ? vel_strdupf("%s.XXXXXX", fetch->targetname) : NULL;
    if (!fetch->sidename) {
        errno = fetch->targetname ? ENOMEM : errno; /* vel_strdupf fails of nothing else */
        return NULL;
    }
    int descriptor = mkstemp(fetch->sidename);
    if (descriptor >= 0) {
        (void)fchmod(descriptor, mode); /* not every file system can */
        return fdopen(descriptor, "wb");
    }
    vel_free(fetch->sidename); /* there is nothing to remove */
    fetch->sidename = NULL;
    return NULL;
}

static int open_output(struct fetch *fetch)
{
    struct stat old;

    if (!fetch->filename)
        fetch->stream = stdout;
    else if (stat(fetch->filename, &old) != 0)
        fetch->stream = open_side_file(fetch, NULL);
    else if (S_ISREG(old.st_mode))
        fetch->stream = open_side_file(fetch, &old);
    else
        fetch->stream = vel_file_create_binary(fetch->filename);
    return fetch->stream ? 0 : -1;
}

/* Closes the output; puts the side file in its place if all went well, or removes it. */
static int close_output(struct fetch *fetch, int iscomplete)
{
    int result = 0;

    if (!fetch->stream && iscomplete)
        result = open_output(fetch); /* the body is empty */
    if (fetch->stream && (fetch->stream == stdout ? fflush(stdout) : vel_file_close(fetch->stream)))
        result = -1;
    fetch->stream = NULL;
    if (fetch->sidename && iscomplete && result == 0)
        result = vel_rename(fetch->sidename, fetch->targetname);
    if (result != 0)
        fetch->writeerrno = errno;
    if (fetch->sidename && (!iscomplete || result != 0))
        vel_deletefile(fetch->sidename);
    return result;
}

/* ---- what the library calls ------------------------------------------------------------------ */

static vel_error_t on_body(const void *data, size_t size, void *context)
{
    struct fetch *fetch = context;

    if (stopsignal)
        return VEL_ERROR_CANCELED;
    if (vel_http_get_status_code(fetch->velhttp) != 200)
        return VEL_ERROR_NONE;
    if ((fetch->stream || open_output(fetch) == 0) &&
        vel_file_write(fetch->stream, data, size) == size)
        return VEL_ERROR_NONE;
    fetch->writeerrno = errno;
    return VEL_ERROR_WRITE;
}

/* Begins a pass. The library forgets a "proxy-authorization" header after each one, since the next
 * may go through another proxy; so this is the place to add it. */
static vel_error_t on_pass(velhttp *velhttp, const char *scheme, const char *host,
                           unsigned int port, void *context)
{
    struct fetch *fetch = context;

    (void)scheme;
    if (!*host)
        return VEL_ERROR_INVALID_ARGUMENT; /* the stage tells where that URL is from */
    fetch->stage = STAGE_CONNECT;
    vel_timer_start(fetch->veltimer);
    snprintf(fetch->peer, sizeof(fetch->peer),
             fetch->proxyhost ? tr("proxy %s port %u") : tr("%s port %u"),
             fetch->proxyhost ? fetch->proxyhost : host,
             fetch->proxyhost ? fetch->proxyport : port);
    if (!fetch->proxyhost)
        return VEL_ERROR_NONE;
    if (!fetch->proxyuser)
        return vel_http_set_proxy(velhttp, fetch->proxyhost, fetch->proxyport);

    vel_error_t error = vel_http_set_proxy_with_auth(velhttp, fetch->proxyhost, fetch->proxyport,
                                                     fetch->proxyuser, fetch->proxypassword);
    return error ? error : vel_http_add_header(velhttp, fetch->proxyheader);
}

/* Ends the transfer once a signal has come in. A connect looks at the time limits alone, so these
 * end it. */
static int check_signal(struct fetch *fetch)
{
    if (stopsignal)
        vel_http_set_timeout(fetch->velhttp, 0, 0);
    return stopsignal != 0;
}

static int on_upload(int64_t current, int64_t total, void *context)
{
    struct fetch *fetch = context;

    (void)current;
    (void)total;
    fetch->stage = STAGE_TRANSFER; /* sending begins with this call */
    return check_signal(fetch);
}

static int on_download(int64_t current, int64_t total, void *context)
{
    struct fetch *fetch = context;

    fetch->current = current;
    fetch->total = total;
    if (fetch->showsbar)
        show_progress(fetch, 0);
    return check_signal(fetch);
}

/* ---- the exit code --------------------------------------------------------------------------- */

static const struct cause {
    enum stage stage;
    vel_error_t error;
    int code;
    const char *text; /* NULL: that of the error */
} causes[] = {
    {STAGE_ANY, VEL_ERROR_NO_MEMORY, FAILED, NULL},
    {STAGE_ANY, VEL_ERROR_TIMER_EXPIRED, FAILED_TIMEOUT, N_("the time limit has passed")},
    {STAGE_ANY, VEL_ERROR_TIMED_OUT, FAILED_TIMEOUT, NULL},
    {STAGE_ANY, VEL_ERROR_CONNECTION_TIMED_OUT, FAILED_TIMEOUT, NULL},
    {STAGE_URL, VEL_ERROR_INVALID_ARGUMENT, FAILED_URL, N_("not a URL like http://host/path")},
    {STAGE_CONNECT, VEL_ERROR_UNSUPPORTED, FAILED_URL, N_("only http:// is supported")},
    {STAGE_CONNECT, VEL_ERROR_INVALID_ARGUMENT, FAILED_URL, N_("the URL is not valid")},
    {STAGE_CONNECT, VEL_ERROR_HOST_UNRESOLVED, FAILED_RESOLVE, NULL},
    {STAGE_CONNECT, VEL_ERROR_NOT_FOUND, FAILED_RESOLVE, N_("the name has no address")},
    {STAGE_CONNECT, VEL_ERROR_NO_ADDRESSES_IN_FAMILY, FAILED_RESOLVE, NULL},
    {STAGE_CONNECT, VEL_ERROR_TEMPORARY_FAILURE, FAILED_RESOLVE,
     N_("no answer from a name server")},
    {STAGE_CONNECT, VEL_ERROR_PERMANENT_FAILURE, FAILED_RESOLVE, N_("the name server refuses")},
    {STAGE_CONNECT, VEL_ERROR_END_OF_FILE, FAILED_CONNECT, N_("no address can be reached")},
    {STAGE_REDIRECT, VEL_ERROR_OUT_OF_RANGE, FAILED_REDIRECTS, N_("too many redirects")},
    {STAGE_REDIRECT, VEL_ERROR_INVALID_ARGUMENT, FAILED_URL, N_("redirects to what is not a URL")},
    {STAGE_REDIRECT, VEL_ERROR_PROTOCOL, FAILED_REPLY, N_("redirects without saying where to")},
    {STAGE_TRANSFER, VEL_ERROR_INVALID_ARGUMENT, FAILED_URL, N_("redirects to what is not a URL")},
    {STAGE_TRANSFER, VEL_ERROR_PROTOCOL, FAILED_REPLY, N_("the reply is not HTTP")},
    {STAGE_TRANSFER, VEL_ERROR_MESSAGE_TOO_LONG, FAILED_REPLY, N_("a header line is too long")},
    {STAGE_ANY, VEL_ERROR_END_OF_FILE, FAILED_LOST,
     N_("the connection was closed without an answer")},
};

static int explain_error(struct fetch *fetch, enum stage stage, vel_error_t error)
{
    int code = stage == STAGE_CONNECT ? FAILED_CONNECT : FAILED_LOST;
    const char *text = vel_error_string(error);

    for (size_t i = 0; i < sizeof(causes) / sizeof(causes[0]); i++) {
        const struct cause *cause = &causes[i];
        if (cause->error == error && (cause->stage == STAGE_ANY || cause->stage == stage)) {
            code = cause->code;
            text = cause->text ? cause->text : text;
            break;
        }
    }
    return fail(fetch, code, stage == STAGE_CONNECT ? tr("cannot connect to %s: %s") : "%s: %s",
                stage == STAGE_URL ? common_name(fetch->url) : fetch->peer, tr(text));
}

/* Says how the transfer ended, and gives the exit code. */
static int explain(struct fetch *fetch, vel_error_t error)
{
    unsigned int status = fetch->stage == STAGE_URL ? 0 : vel_http_get_status_code(fetch->velhttp);

    if (stopsignal)
        return fail(fetch, FAILED_SIGNAL + stopsignal, "%s", tr("interrupted"));
    if (fetch->writeerrno)
        return fail(fetch, fetch->writeerrno == ENOMEM ? FAILED : FAILED_WRITE,
                    tr("cannot write %s: %s"),
                    fetch->filename ? common_name(fetch->filename) : tr("to standard output"),
                    tr(strerror(fetch->writeerrno)));
    /* The library ends with no status at all where a proxy has refused a user. */
    if (fetch->stage == STAGE_TRANSFER && (status == 407 || (!error && status == 0)))
        return fail(fetch, FAILED_STATUS, "%s: %s", fetch->peer,
                    fetch->proxyuser ? tr("the user is not accepted") : tr("a user is asked for"));
    if (error) {
        int isredirect = fetch->stage == STAGE_TRANSFER && (status == 301 || status == 302);
        return explain_error(fetch, isredirect ? STAGE_REDIRECT : fetch->stage, error);
    }
    if (status != 200)
        return fail(fetch, FAILED_STATUS, tr("%s: answered with status %u"), fetch->peer, status);
    if (fetch->current < fetch->total && !fetch->ishead)
        return fail(fetch, FAILED_SHORT,
                    tr("%s: the connection was closed after %lld of %lld bytes"), fetch->peer,
                    (long long)fetch->current, (long long)fetch->total);
    if (fetch->showsbar) {
        show_progress(fetch, 1);
        fputc('\n', stderr);
    }
    return 0;
}

static int run(struct fetch *fetch)
{
    vel_http_set_response_body_callback(fetch->velhttp, on_body, fetch);
    vel_http_set_proxy_callback(fetch->velhttp, on_pass, fetch);
    /* Set also without a bar: it is the tick that notices a signal. */
    vel_http_set_progress_callbacks(fetch->velhttp, on_upload, fetch, on_download, fetch);

    vel_error_t error = vel_http_set_url(fetch->velhttp, fetch->url);
    if (!error)
        error = vel_http_perform(fetch->velhttp);
    int iscomplete = !error && !stopsignal && vel_http_get_status_code(fetch->velhttp) == 200 &&
                     (fetch->current >= fetch->total || fetch->ishead);
    close_output(fetch, iscomplete);
    return explain(fetch, error);
}

/* ---- options --------------------------------------------------------------------------------- */

/* Takes "HOST:PORT" apart. HOST may be an IPv6 address in brackets. */
static vel_error_t on_proxy(const char *argument, void *context)
{
    struct fetch *fetch = context;
    char *text = vel_strdup(argument), *end = NULL;
    char *colon = text ? strrchr(text, ':') : NULL;
    int hasport = colon && colon[1] >= '0' && colon[1] <= '9'; /* no sign and no blank */
    unsigned long port = hasport ? strtoul(colon + 1, &end, 10) : 0;

    vel_free(fetch->proxytext);
    fetch->proxytext = text;
    if (!text)
        return VEL_ERROR_NO_MEMORY;
    if (!hasport || colon == text || *end || port < 1 || port > 65535)
        return common_refuse(tr("not a HOST:PORT"));

    int hasbrackets = text[0] == '[' && colon[-1] == ']';
    colon[-hasbrackets] = '\0';
    fetch->proxyhost = text + hasbrackets;
    fetch->proxyport = (unsigned int)port;
    return VEL_ERROR_NONE;
}

static vel_error_t on_proxy_user(const char *argument, void *context)
{
    struct fetch *fetch = context;
    char *text = vel_strdup(argument);
    char *colon = text ? strchr(text, ':') : NULL;
    char *encoded = text ? vel_base64_encode(text, strlen(text)) : NULL;

    vel_free(fetch->proxyuser);
    vel_free(fetch->proxyheader);
    fetch->proxyuser = text;
    fetch->proxyheader = encoded ? vel_strdupf("proxy-authorization: Basic %s", encoded) : NULL;
    vel_free(encoded);
    if (!fetch->proxyheader)
        return VEL_ERROR_NO_MEMORY;
    if (!colon || colon == text)
        return common_refuse(tr("not a USER:PASSWORD"));
    *colon = '\0';
    fetch->proxypassword = colon + 1;
    return VEL_ERROR_NONE;
}

static vel_error_t on_header(const char *argument, void *context)
{
    struct fetch *fetch = context;

    if (strpbrk(argument, "\r\n") || !strchr(argument, ':'))
        return common_refuse(tr("not a header line"));
    return vel_http_add_header(fetch->velhttp, argument);
}

static vel_error_t on_data(const char *argument, void *context)
{
    struct fetch *fetch = context;
    void *data = NULL;
    size_t length = strlen(argument);

    if (argument[0] == '@' && vel_file_data_load(argument + 1, &data, &length) != 0)
        return errno == ENOMEM ? VEL_ERROR_NO_MEMORY : common_refuse(tr("cannot be read"));
    vel_error_t error = vel_http_set_request_body(fetch->velhttp, data ? data : argument, length);
    vel_free(data);
    vel_http_set_method_post(fetch->velhttp);
    return error;
}

/* Sets one of the two time limits. */
static vel_error_t set_limit(struct fetch *fetch, const char *argument,
                             void (*set)(velhttp *, int seconds, unsigned int microseconds))
{
    double seconds;

    if (!common_parse_seconds(argument, 0.000001, &seconds))
        return common_refuse(tr("not a number of seconds"));
    set(fetch->velhttp, (int)seconds, (unsigned int)((seconds - (int)seconds) * 1e6));
    return VEL_ERROR_NONE;
}

static vel_error_t on_timeout(const char *argument, void *context)
{
    return set_limit(context, argument, vel_http_set_timeout);
}

static vel_error_t on_idle_timeout(const char *argument, void *context)
{
    return set_limit(context, argument, vel_http_set_idle_timeout);
}

/* Returns whether one could not be declared. */
static int declare_options(struct fetch *fetch, velgetopt *options)
{
    return vel_getopt_const_string(options, "output", 'o', &fetch->filename, tr("FILE"),
                                   tr("Write the body to FILE, not to standard output.")) ||
           vel_getopt_string_callback(options, "header", 'H', tr("LINE"),
                                      tr("Send this header line too; may be repeated."), on_header,
                                      fetch) ||
           vel_getopt_const_string(options, "method", 'X', &fetch->method, tr("METHOD"),
                                   tr("GET by default, or POST with -d.")) ||
           vel_getopt_string_callback(options, "data", 'd', tr("DATA"),
                                      tr("Send DATA, or with @FILE what is in FILE."), on_data,
                                      fetch) ||
           vel_getopt_string_callback(options, "proxy", 0, tr("HOST:PORT"),
                                      tr("Go through an HTTP proxy."), on_proxy, fetch) ||
           vel_getopt_string_callback(options, "proxy-user", 0, tr("USER:PASSWORD"),
                                      tr("What to tell the proxy."), on_proxy_user, fetch) ||
           vel_getopt_string_callback(options, "timeout", 0, "S",
                                      tr("Limit for all of it, in seconds; none by default."),
                                      on_timeout, fetch) ||
           vel_getopt_string_callback(options, "idle-timeout", 0, "S",
                                      tr("Limit for silence, in seconds; 30 by default."),
                                      on_idle_timeout, fetch) ||
           vel_getopt_flag_set(options, "verbose", 'v', &fetch->verbose,
                               tr("Show the log of the library.")) ||
           vel_getopt_flag_set(options, "trace", 0, &fetch->traces, tr("Show all of that log."));
}

/* Takes what the options leave over; returns 0 or an exit code. */
static int take_operands(struct fetch *fetch, int argc, char **argv)
{
    const char *method = fetch->method;

    if (argc != 1) {
        common_mistake("%s", tr("one URL is needed, behind all options"));
        return FAILED_USAGE;
    }
    if (method && (!*method || strpbrk(method, " \t\r\n")))
        return fail(fetch, FAILED_USAGE, tr("not a method: %s"), common_name(method));

    char *url = argv[0];
    url[strcspn(url, "#")] = '\0'; /* a fragment is not for the server */
    if (vel_strncasecmp(url, "http://", 7) == 0)
        memcpy(url, "http", 4); /* the library wants it in lower case */
    fetch->url = url;
    if (url[strcspn(url, " \t\r\n")])
        return fail(fetch, FAILED_URL, tr("the URL has white space in it: %s"), url);
    fetch->ishead = method && strcmp(method, "HEAD") == 0;
    if (fetch->filename && strcmp(fetch->filename, "-") == 0)
        fetch->filename = NULL;
    /* Two writers on one terminal would tear the bar apart. */
    fetch->verbose |= fetch->traces;
    fetch->showsbar =
        isatty(STDERR_FILENO) && !fetch->verbose && (fetch->filename || !isatty(STDOUT_FILENO));
    if (fetch->verbose) {
        vel_log_stderr_enable(NULL);
        vel_log_stderr_set_level(NULL, fetch->traces ? 16 : 8);
    }
    return check(fetch, method ? vel_http_set_method(fetch->velhttp, method) : VEL_ERROR_NONE);
}

/* Takes the command line; returns 0, or an exit code, or -1 if there is nothing left to do. */
static int take_options(struct fetch *fetch, int argc, char **argv)
{
    velgetopt *options = vel_getopt_create();
    int bad = !options || declare_options(fetch, options);
    int first = common_parse(options, bad, synopsis, paragraphs, argc, argv);

    if (first > 0)
        return take_operands(fetch, argc - first, argv + first);
    return first == COMMON_DONE ? -1 : common_exit_code(first, FAILED_USAGE, FAILED_WRITE, FAILED);
}

int main(int argc, char **argv)
{
    struct fetch fetch = {.stage = STAGE_URL, .total = -1};
    int code = FAILED;

    vel_log_stderr_disable(NULL);
    common_start("velfetch");
    vel_signal_ignore_sigpipe(); /* a closed connection is an error code, not the end */
    vel_signal_register_sigint(on_signal, NULL);
    vel_signal_register_sigterm(on_signal, NULL);
    catch_hangup();

    fetch.velhttp = vel_http_lite_create();
    fetch.veltimer = vel_timer_create();
    if (!fetch.velhttp || !fetch.veltimer)
        check(&fetch, VEL_ERROR_NO_MEMORY);
    else if ((code = take_options(&fetch, argc, argv)) == 0)
        code = run(&fetch);

    if (fetch.veltimer)
        vel_timer_destroy(fetch.veltimer);
    if (fetch.velhttp)
        vel_http_destroy(fetch.velhttp);
    vel_free(fetch.proxyheader);
    vel_free(fetch.proxyuser);
    vel_free(fetch.proxytext);
    vel_free(fetch.sidename);
    free(fetch.targetname);
    common_end();
    vel_uninit();
    return code < 0 ? 0 : code;
}
