/* velfetch: fetches a URL over HTTP into a file or to standard output.
 *
 * A host program of vellib: an HTTP client with redirects, a proxy, time limits, a progress bar,
 * and an orderly end on a signal. */
#define _XOPEN_SOURCE     700
#define _FILE_OFFSET_BITS 64

#include <errno.h>
#include <getopt.h>
#include <inttypes.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vellib/vellib.h>

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

static const char usage[] =
    "usage: velfetch [OPTION]... URL\n"
    "Fetches an http:// URL, following redirects.\n"
    "\n"
    "  -o, --output FILE         write the body to FILE, not to standard output\n"
    "  -H, --header LINE         send this header line too; may be repeated\n"
    "  -X, --method METHOD       GET by default, or POST with -d\n"
    "  -d, --data DATA|@FILE     send DATA, or what is in FILE\n"
    "      --proxy HOST:PORT     go through an HTTP proxy\n"
    "      --proxy-user USER:PASSWORD\n"
    "                            what to tell the proxy\n"
    "      --timeout S           limit for all of it, in seconds; none by default\n"
    "      --idle-timeout S      limit for silence, in seconds; 30 by default\n"
    "  -v, --verbose             show the log of the library; twice: all of it\n"
    "      --help, --version\n"
    "\n"
    "Only the body of an answer with status 200 is written. It is gathered beside FILE, in\n"
    "FILE.XXXXXX, which takes the place of FILE when it is complete; whatever fails, a FILE that\n"
    "was there stays as it was. Anything but a regular file is written to directly.\n"
    "While the name of a host is looked up, an interrupt waits for the answer; a second one ends\n"
    "the program at once.\n"
    "\n"
    "Exit codes: 0 status 200; 1 out of memory; 2 usage; 3 URL; 6 host name not resolved; 7 not\n"
    "connected; 8 reply not understood; 18 body too short; 22 other status; 23 cannot write;\n"
    "28 time limit; 47 too many redirects; 56 connection lost; 128 + N ended by signal N.\n";

/* What has been reached of a pass; a redirect begins the next one. */
enum stage { STAGE_ANY, STAGE_URL, STAGE_CONNECT, STAGE_TRANSFER, STAGE_REDIRECT };

struct fetch {
    velhttp *velhttp;
    const char *url; /* without its fragment */
    enum stage stage;
    char peer[300]; /* where the pass in hand goes to, for messages */

    char *proxyhost; /* NULL: no proxy */
    unsigned int proxyport;
    char *proxyuser; /* NULL: none */
    char *proxypassword;
    char *proxyheader; /* owned */

    const char *filename; /* NULL: standard output */
    char *targetname;     /* owned; what filename stands for, unless it is not a regular file */
    char *sidename;       /* owned; the file beside it that is being written */
    FILE *stream;
    int writeerrno; /* why writing failed, or 0 */

    int64_t current, total; /* bytes of the body; -1 is unknown */
    int ishead;             /* no body will come, whatever its length is said to be */
    const char *method;     /* NULL: by default */
    int verbose;
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

/* ---- messages and the progress bar ----------------------------------------------------------- */

static int terminal_width(void)
{
    struct winsize size;
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

static void show_line(const char *text)
{
    int width = terminal_width() - 1;
    fprintf(stderr, "\r%-*.*s", width, width, text);
}

/* Prints the one line that says what went wrong; returns the exit code. What it quotes may come from
 * a server, so nothing in it may steer the terminal. */
static int fail(struct fetch *fetch, int code, const char *format, ...)
{
    char text[2000];
    va_list arguments;

    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    for (char *byte = text; *byte; byte++)
        *byte = (unsigned char)*byte < ' ' || *byte == 127 ? '?' : *byte;
    if (fetch->showsbar) {
        show_line("");
        fputc('\r', stderr);
    }
    fprintf(stderr, "velfetch: %s\n", text);
    return code;
}

static int check(struct fetch *fetch, vel_error_t error)
{
    return error ? fail(fetch, FAILED, "%s", vel_error_string(error)) : 0;
}

/* Writes a number of bytes in at most 8 characters, such as "9.5 KiB". */
static void format_amount(char *text, size_t size, double bytes)
{
    static const char *const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    size_t unit = 0;

    for (; bytes >= 1023.5 && unit < 4; unit++)
        bytes /= 1024;
    snprintf(text, size, unit == 0 || bytes >= 9.95 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
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
    format_amount(progress->amount, sizeof(progress->amount), (double)fetch->current);
    format_amount(progress->rate, sizeof(progress->rate), rate);
    if (fetch->total > 0) {
        format_amount(progress->total, sizeof(progress->total), (double)fetch->total);
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
    int width = terminal_width() - 1;
    struct progress it;

    measure(fetch, isdone, &it);
    if (it.time[0])
        snprintf(when, sizeof(when), isdone ? "in %s" : "%5s left", it.time);
    if (!it.total[0])
        snprintf(facts, sizeof(facts), "%s  %s/s  %s", it.amount, it.rate, when);
    else if (snprintf(facts, sizeof(facts), "%8s of %s  %8s/s  %s", it.amount, it.total, it.rate,
                      when) > width)
        snprintf(facts, sizeof(facts), "%s of %s  %s/s  %s", it.amount, it.total, it.rate, it.time);

    int room = width - (int)strlen(widest);
    if (it.total[0] && room >= 10) {
        room = room < (int)sizeof(bar) ? room : (int)sizeof(bar) - 1;
        memset(bar, ' ', (size_t)room);
        memset(bar, '=', (size_t)(it.share * room));
    }
    snprintf(line, sizeof(line), bar[0] ? "[%s]  %s" : "%s%s", bar, facts);
    show_line(line);
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
    fetch->stage = STAGE_CONNECT;
    vel_timer_start(fetch->veltimer);
    snprintf(fetch->peer, sizeof(fetch->peer), "%s%s port %u", fetch->proxyhost ? "proxy " : "",
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
    {STAGE_ANY, VEL_ERROR_TIMER_EXPIRED, FAILED_TIMEOUT, "the time limit has passed"},
    {STAGE_ANY, VEL_ERROR_TIMED_OUT, FAILED_TIMEOUT, NULL},
    {STAGE_ANY, VEL_ERROR_CONNECTION_TIMED_OUT, FAILED_TIMEOUT, NULL},
    {STAGE_URL, VEL_ERROR_INVALID_ARGUMENT, FAILED_URL, "not a URL like http://host/path"},
    {STAGE_CONNECT, VEL_ERROR_UNSUPPORTED, FAILED_URL, "only http:// is supported"},
    {STAGE_CONNECT, VEL_ERROR_INVALID_ARGUMENT, FAILED_URL, "the URL is not valid"},
    {STAGE_CONNECT, VEL_ERROR_HOST_UNRESOLVED, FAILED_RESOLVE, NULL},
    {STAGE_CONNECT, VEL_ERROR_NOT_FOUND, FAILED_RESOLVE, "the name has no address"},
    {STAGE_CONNECT, VEL_ERROR_NO_ADDRESSES_IN_FAMILY, FAILED_RESOLVE, NULL},
    {STAGE_CONNECT, VEL_ERROR_TEMPORARY_FAILURE, FAILED_RESOLVE, "no answer from a name server"},
    {STAGE_CONNECT, VEL_ERROR_PERMANENT_FAILURE, FAILED_RESOLVE, "the name server refuses"},
    {STAGE_CONNECT, VEL_ERROR_END_OF_FILE, FAILED_CONNECT, "no address can be reached"},
    {STAGE_REDIRECT, VEL_ERROR_OUT_OF_RANGE, FAILED_REDIRECTS, "too many redirects"},
    {STAGE_REDIRECT, VEL_ERROR_INVALID_ARGUMENT, FAILED_URL, "redirects to what is not a URL"},
    {STAGE_REDIRECT, VEL_ERROR_PROTOCOL, FAILED_REPLY, "redirects without saying where to"},
    {STAGE_TRANSFER, VEL_ERROR_INVALID_ARGUMENT, FAILED_URL, "redirects to what is not a URL"},
    {STAGE_TRANSFER, VEL_ERROR_PROTOCOL, FAILED_REPLY, "the reply is not HTTP"},
    {STAGE_TRANSFER, VEL_ERROR_MESSAGE_TOO_LONG, FAILED_REPLY, "a header line is too long"},
    {STAGE_ANY, VEL_ERROR_END_OF_FILE, FAILED_LOST, "the connection was closed without an answer"},
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
    return fail(fetch, code, "%s%s: %s", stage == STAGE_CONNECT ? "cannot connect to " : "",
                stage == STAGE_URL ? fetch->url : fetch->peer, text);
}

/* Says how the transfer ended, and gives the exit code. */
static int explain(struct fetch *fetch, vel_error_t error)
{
    unsigned int status = fetch->stage == STAGE_URL ? 0 : vel_http_get_status_code(fetch->velhttp);

    if (stopsignal)
        return fail(fetch, FAILED_SIGNAL + stopsignal, "interrupted");
    if (fetch->writeerrno)
        return fail(fetch, fetch->writeerrno == ENOMEM ? FAILED : FAILED_WRITE,
                    "cannot write %s: %s", fetch->filename ? fetch->filename : "to standard output",
                    strerror(fetch->writeerrno));
    /* The library ends with no status at all where a proxy has refused a user. */
    if (fetch->stage == STAGE_TRANSFER && (status == 407 || (!error && status == 0)))
        return fail(fetch, FAILED_STATUS, "%s: %s", fetch->peer,
                    fetch->proxyuser ? "the user is not accepted" : "a user is asked for");
    if (error) {
        int isredirect = fetch->stage == STAGE_TRANSFER && (status == 301 || status == 302);
        return explain_error(fetch, isredirect ? STAGE_REDIRECT : fetch->stage, error);
    }
    if (status != 200)
        return fail(fetch, FAILED_STATUS, "%s: answered with status %u", fetch->peer, status);
    if (fetch->current < fetch->total && !fetch->ishead)
        return fail(fetch, FAILED_SHORT,
                    "%s: the connection was closed after %" PRId64 " of %" PRId64 " bytes",
                    fetch->peer, fetch->current, fetch->total);
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

/* Takes "HOST:PORT" apart in place. HOST may be an IPv6 address in brackets. */
static int set_proxy(struct fetch *fetch, char *text)
{
    char *colon = strrchr(text, ':'), *end = NULL;
    unsigned long port = colon ? strtoul(colon + 1, &end, 10) : 0;
    if (!colon || colon == text || *end || port < 1 || port > 65535)
        return fail(fetch, FAILED_USAGE, "not a HOST:PORT: %s", text);

    int hasbrackets = text[0] == '[' && colon[-1] == ']';
    colon[-hasbrackets] = '\0';
    fetch->proxyhost = text + hasbrackets;
    fetch->proxyport = (unsigned int)port;
    return 0;
}

static int set_proxy_user(struct fetch *fetch, char *text)
{
    char *colon = strchr(text, ':');
    if (!colon || colon == text)
        return fail(fetch, FAILED_USAGE, "not a USER:PASSWORD");

    char *encoded = vel_base64_encode(text, strlen(text));
    vel_free(fetch->proxyheader);
    fetch->proxyheader = encoded ? vel_strdupf("proxy-authorization: Basic %s", encoded) : NULL;
    vel_free(encoded);
    *colon = '\0';
    fetch->proxyuser = text;
    fetch->proxypassword = colon + 1;
    return check(fetch, fetch->proxyheader ? VEL_ERROR_NONE : VEL_ERROR_NO_MEMORY);
}

static int set_data(struct fetch *fetch, const char *text)
{
    void *data = NULL;
    size_t length = strlen(text);

    if (text[0] == '@' && vel_file_data_load(text + 1, &data, &length) != 0)
        return fail(fetch, FAILED_USAGE, "cannot read %s", text + 1);
    vel_error_t error = vel_http_set_request_body(fetch->velhttp, data ? data : text, length);
    vel_free(data);
    vel_http_set_method_post(fetch->velhttp);
    return check(fetch, error);
}

/* Sets one of the two time limits from a number such as 2.5. */
static int set_limit(struct fetch *fetch, const char *text,
                     void (*set)(velhttp *, int seconds, unsigned int microseconds))
{
    char *end = NULL;
    double seconds = strtod(text, &end);
    if (*end || !(seconds >= 0.000001 && seconds < 1e9))
        return fail(fetch, FAILED_USAGE, "not a number of seconds: %s", text);

    set(fetch->velhttp, (int)seconds, (unsigned int)((seconds - (int)seconds) * 1e6));
    return 0;
}

/* Takes one option; returns 0 or an exit code. */
static int take_option(struct fetch *fetch, int option)
{
    switch (option) {
    case 'o':
        fetch->filename = strcmp(optarg, "-") == 0 ? NULL : optarg;
        return 0;
    case 'H':
        if (strpbrk(optarg, "\r\n") || !strchr(optarg, ':'))
            return fail(fetch, FAILED_USAGE, "not a header line: %s", optarg);
        return check(fetch, vel_http_add_header(fetch->velhttp, optarg));
    case 'X':
        fetch->method = optarg;
        return 0;
    case 'd':
        return set_data(fetch, optarg);
    case 'v':
        fetch->verbose++;
        return 0;
    case 'p':
        return set_proxy(fetch, optarg);
    case 'u':
        return set_proxy_user(fetch, optarg);
    case 't':
        return set_limit(fetch, optarg, vel_http_set_timeout);
    case 'i':
        return set_limit(fetch, optarg, vel_http_set_idle_timeout);
    default:
        fputs("Try 'velfetch --help'.\n", stderr);
        return FAILED_USAGE;
    }
}

/* Takes all options; returns 0, or an exit code, or -1 if there is nothing left to do. */
static int take_options(struct fetch *fetch, int argc, char **argv)
{
    static const struct option options[] = {
        {"output", required_argument, NULL, 'o'},  {"header", required_argument, NULL, 'H'},
        {"method", required_argument, NULL, 'X'},  {"data", required_argument, NULL, 'd'},
        {"proxy", required_argument, NULL, 'p'},   {"proxy-user", required_argument, NULL, 'u'},
        {"timeout", required_argument, NULL, 't'}, {"idle-timeout", required_argument, NULL, 'i'},
        {"verbose", no_argument, NULL, 'v'},       {"help", no_argument, NULL, 'h'},
        {"version", no_argument, NULL, 'V'},       {NULL, 0, NULL, 0}};
    int option = 0;

    while ((option = getopt_long(argc, argv, "o:H:X:d:v", options, NULL)) != -1) {
        if (option == 'h' || option == 'V') {
            fputs(option == 'h' ? usage : "velfetch 1.0.0\n", stdout);
            return -1;
        }
        int code = take_option(fetch, option);
        if (code)
            return code;
    }
    if (argc - optind != 1)
        return fail(fetch, FAILED_USAGE, "one URL is needed; try 'velfetch --help'");
    const char *method = fetch->method;
    if (method && (!*method || strpbrk(method, " \t\r\n")))
        return fail(fetch, FAILED_USAGE, "not a method: %s", method);

    char *url = argv[optind];
    url[strcspn(url, "#")] = '\0'; /* a fragment is not for the server */
    fetch->url = url;
    if (url[strcspn(url, " \t\r\n")])
        return fail(fetch, FAILED_URL, "the URL has white space in it: %s", url);
    fetch->ishead = method && strcmp(method, "HEAD") == 0;
    /* Two writers on one terminal would tear the bar apart. */
    fetch->showsbar =
        isatty(STDERR_FILENO) && !fetch->verbose && (fetch->filename || !isatty(STDOUT_FILENO));
    if (fetch->verbose) {
        vel_log_stderr_enable(NULL);
        vel_log_stderr_set_level(NULL, fetch->verbose > 1 ? 16 : 8);
    }
    return check(fetch, method ? vel_http_set_method(fetch->velhttp, method) : VEL_ERROR_NONE);
}

int main(int argc, char **argv)
{
    struct fetch fetch = {.stage = STAGE_URL, .total = -1};
    int code = FAILED;

    vel_log_stderr_disable(NULL);
    vel_signal_ignore_sigpipe(); /* a closed connection is an error code, not the end */
    vel_signal_register_sigint(on_signal, NULL);
    vel_signal_register_sigterm(on_signal, NULL);

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
    vel_free(fetch.sidename);
    free(fetch.targetname);
    vel_uninit();
    return code < 0 ? 0 : code;
}
