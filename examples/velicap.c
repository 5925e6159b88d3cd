/* velicap: hands a file to an ICAP service, such as a virus scanner or a content filter, and says what
 * came back.
 *
 * A host program of vellib: an ICAP client over TCP and UNIX-domain sockets. */
#define _XOPEN_SOURCE 700

#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "common.h"

enum {
    FAILED = 1,
    FAILED_USAGE = 2,
    FAILED_URL = 3,
    FAILED_RESOLVE = 6,
    FAILED_CONNECT = 7,
    FAILED_REPLY = 8,
    FAILED_STATUS = 22,
    FAILED_WRITE = 23,
    FAILED_READ = 26,
    FAILED_TIMEOUT = 28,
    FAILED_LOST = 56
};

static const char *const synopsis[] = {N_("velicap [OPTION]... --url icap://HOST[:PORT]/SERVICE"),
                                       N_("velicap [OPTION]... --socket PATH --url /SERVICE"),
                                       NULL};

static const char *const paragraphs[] = {
    N_("Hands an HTTP message to an ICAP service and says what came back."),
    N_("Headers that are not given are made up around the body. If headers that are given announce "
       "Transfer-Encoding: chunked, FILE must be in chunks, and so is what comes back. A file of "
       "headers has a first line and headers, up to an empty line or its end."),
    N_("All of it is sent before the answer is read: a service that answers while it still reads "
       "may "
       "come to a stop over some MiB, until the time limit."),
    N_("With -o, an answer that the message needs no change (status 204) writes the body that was "
       "sent. Nothing is written when velicap fails."),
    N_("Exit codes: 0 status 200 or 204; 1 out of memory; 2 usage; 3 URL; 6 host name not "
       "resolved; "
       "7 not connected; 8 reply not understood; 22 other status; 23 cannot write; 26 cannot read; "
       "28 time limit; 56 connection lost."),
    NULL};

enum method { RESPMOD, REQMOD, OPTIONS };
static const char *const method_names[] = {"RESPMOD", "REQMOD", "OPTIONS"};

struct block {
    char *data; /* owned; NULL: not there */
    size_t size;
};

struct job {
    velicap *velicap;
    enum method method;
    const char *url;                                                /* as given */
    const char *socketpath;                                         /* NULL: none */
    const char *bodyname, *requestname, *responsename, *outputname; /* NULL: not given */
    char *serviceurl;                                               /* owned; for the library */
    struct block body;
    int isinchunks;      /* the message is, by its headers */
    int verbose, traces; /* whether the log is shown, and whether all of it */
    int isresponse, isrequest, isoptions, allows204; /* what was asked for */
    struct common_reason reason;
};

/* ---- messages -------------------------------------------------------------------------------- */

/* What comes from a server may not steer the terminal. */
static void make_harmless(char *text)
{
    for (; *text; text++)
        *text = (unsigned char)*text < ' ' || *text == 127 ? '?' : *text;
}

static int fail_memory(void)
{
    return common_fail_memory(FAILED);
}

/* ---- what is read ---------------------------------------------------------------------------- */

static int read_file(const char *filename, struct block *block)
{
    int isstdin = strcmp(filename, "-") == 0;
    FILE *file = isstdin ? vel_file_get_stdin() : vel_file_open_binary(filename);
    int readerrno;

    block->data = file ? common_read(file, &block->size) : NULL;
    readerrno = errno;

    if (file && !isstdin)
        vel_file_close(file);
    return block->data
               ? 0
               : common_fail(FAILED_READ, tr("cannot read %s: %s"),
                             isstdin ? tr("standard input") : filename, tr(strerror(readerrno)));
}

/* Copies headers up to their empty line, every line with the end that the wire wants. */
static int take_lines(const struct block *text, struct block *headers)
{
    const char *pos = text->data, *end = text->data + text->size;

    headers->data = vel_malloc(2 * text->size + 4);
    if (!headers->data)
        return -1;
    while (pos < end && *pos != '\n' && *pos != '\r') {
        const char *lineend = memchr(pos, '\n', (size_t)(end - pos));
        size_t length = (size_t)((lineend ? lineend : end) - pos);
        size_t kept = length > 0 && pos[length - 1] == '\r' ? length - 1 : length;
        memcpy(headers->data + headers->size, pos, kept);
        memcpy(headers->data + headers->size + kept, "\r\n", 2);
        headers->size += kept + 2;
        pos += lineend ? length + 1 : length;
    }
    memcpy(headers->data + headers->size, "\r\n", 3);
    headers->size += 2;
    return 0;
}

/* Whether the first line of headers is one of a response, or of a request. */
static int begins_well(const struct block *headers, int isresponse)
{
    const char *protocol = strstr(headers->data, isresponse ? "HTTP/" : " HTTP/");

    return protocol &&
           (isresponse ? protocol == headers->data : protocol < strchr(headers->data, '\r'));
}

static int read_headers(const char *filename, int isresponse, struct block *headers)
{
    struct block text = {NULL, 0};
    int code = read_file(filename, &text);

    if (!code && take_lines(&text, headers) != 0)
        code = fail_memory();
    if (!code && !begins_well(headers, isresponse))
        code = common_fail(FAILED_READ, tr("%s: the first line must be like \"%s\""), filename,
                           isresponse ? "HTTP/1.1 200 OK" : "GET http://host/path HTTP/1.1");
    vel_free(text.data);
    return code;
}

/* ---- the message ----------------------------------------------------------------------------- */

/* A new string with everything escaped that may mean something in a URL. */
static char *escape(const char *text)
{
    static const char plain[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    char *escaped = vel_malloc(3 * strlen(text) + 1), *pos = escaped;

    for (; escaped && *text; text++)
        if (strchr(plain, *text))
            *pos++ = *text;
        else
            pos += vel_snprintf(pos, 4, "%%%02X", (unsigned int)(unsigned char)*text);
    if (escaped)
        *pos = '\0';
    return escaped;
}

/* Makes up the headers of a request that the body could be part of, or the answer to. */
static int make_request_headers(struct job *job, struct block *headers)
{
    int isnamed = job->bodyname && strcmp(job->bodyname, "-") != 0;
    const char *slash = isnamed ? strrchr(job->bodyname, '/') : NULL;
    char *name = escape(slash ? slash + 1 : isnamed ? job->bodyname : "");

    if (name && job->method == REQMOD && job->body.data)
        headers->data = vel_strdupf("POST http://velicap.invalid/%s HTTP/1.1\r\n"
                                    "Host: velicap.invalid\r\n"
                                    "Content-Type: application/octet-stream\r\n"
                                    "Content-Length: %lu\r\n\r\n",
                                    name, (unsigned long)job->body.size);
    else if (name)
        headers->data = vel_strdupf("GET http://velicap.invalid/%s HTTP/1.1\r\n"
                                    "Host: velicap.invalid\r\n\r\n",
                                    name);
    vel_free(name);
    headers->size = headers->data ? strlen(headers->data) : 0;
    return headers->data ? 0 : fail_memory();
}

static int make_response_headers(struct job *job, struct block *headers)
{
    headers->data = vel_strdupf("HTTP/1.1 200 OK\r\n"
                                "Content-Type: application/octet-stream\r\n"
                                "Content-Length: %lu\r\n\r\n",
                                (unsigned long)job->body.size);
    headers->size = headers->data ? strlen(headers->data) : 0;
    return headers->data ? 0 : fail_memory();
}

/* One kind of headers: where they come from if not from a file, and where they go. */
struct headers_kind {
    int isresponse;
    int (*make)(struct job *job, struct block *headers);
    vel_error_t (*set)(velicap *velicap, const void *data, size_t size);
};

static const struct headers_kind request_headers = {0, make_request_headers,
                                                    vel_icap_set_request_headers};
static const struct headers_kind response_headers = {1, make_response_headers,
                                                     vel_icap_set_response_headers};

static int set_headers(struct job *job, const struct headers_kind *kind, const char *filename)
{
    struct block headers = {NULL, 0};
    int code =
        filename ? read_headers(filename, kind->isresponse, &headers) : kind->make(job, &headers);

    if (!code) {
        vel_error_t error = kind->set(job->velicap, headers.data, headers.size);
        if (error == VEL_ERROR_INVALID_SYNTAX)
            code = common_fail(FAILED_READ, tr("%s: a line without a colon among the headers"),
                               filename);
        else if (error)
            code = fail_memory();
    }
    vel_free(headers.data);
    return code;
}

/* An empty body is none: there is nothing to put into a chunk. */
static int set_body(struct job *job)
{
    vel_error_t error = VEL_ERROR_NONE;

    if (job->body.size > 0 && job->method == REQMOD)
        error = vel_icap_set_request_body(job->velicap, job->body.data, job->body.size);
    else if (job->body.size > 0)
        error = vel_icap_set_response_body(job->velicap, job->body.data, job->body.size);
    return error ? fail_memory() : 0;
}

/* Whether a body can be one in chunks: a size and a line end, and an empty line at the end. */
static int looks_chunked(const struct block *body)
{
    size_t digits = 0;

    while (digits < body->size && isxdigit((unsigned char)body->data[digits]))
        digits++;
    return digits > 0 && body->size >= digits + 4 && memcmp(body->data + digits, "\r\n", 2) == 0 &&
           memcmp(body->data + body->size - 4, "\r\n\r\n", 4) == 0;
}

/* Headers may come from where the chunks were taken off. The server would wait for more of them. */
static int check_chunks(struct job *job)
{
    unsigned int kind = job->method == REQMOD ? VEL_ICAP_ENCAPSULATED_GEN_REQBODY
                                              : VEL_ICAP_ENCAPSULATED_GEN_RESBODY;

    if (vel_icap_part_is_chunk_encoded(job->velicap, kind, &job->isinchunks) != VEL_ERROR_NONE)
        return fail_memory();
    if (!job->isinchunks || job->body.size == 0 || looks_chunked(&job->body))
        return 0;
    return common_fail(FAILED_READ,
                       tr("%s is not in chunks; take Transfer-Encoding out of the headers"),
                       job->bodyname);
}

static int set_message(struct job *job)
{
    int code = 0;

    if (job->method == OPTIONS) {
        vel_icap_set_method_options(job->velicap);
        return 0;
    }
    if (job->bodyname)
        code = read_file(job->bodyname, &job->body);
    if (!code)
        code = set_headers(job, &request_headers, job->requestname);
    if (job->method == REQMOD) {
        vel_icap_set_method_reqmod(job->velicap);
    } else {
        vel_icap_set_method_respmod(job->velicap);
        if (!code)
            code = set_headers(job, &response_headers, job->responsename);
    }
    if (!code)
        code = check_chunks(job);
    return code ? code : set_body(job);
}

/* ---- the service ----------------------------------------------------------------------------- */

/* Makes the URL that goes through the socket from a path, or from the path of a URL. */
static char *make_socket_url(const char *socketpath, const char *servicepath)
{
    char *escaped = escape(socketpath);
    char *url = escaped ? vel_strdupf("icap+unix://%s%s", escaped, servicepath) : NULL;

    vel_free(escaped);
    return url;
}

static int use_socket(struct job *job, velurl *velurl)
{
    struct sockaddr_un address;
    const char *path = job->url;

    if (strlen(job->socketpath) >= sizeof(address.sun_path))
        return common_fail(FAILED_URL, tr("%s: a path of a socket has at most %lu bytes"),
                           job->socketpath, (unsigned long)sizeof(address.sun_path) - 1);
    if (path[0] != '/') {
        if (vel_url_set_url(velurl, path) != VEL_ERROR_NONE ||
            strcmp(vel_url_get_scheme(velurl), "icap") != 0)
            return common_fail(FAILED_URL, tr("%s: with --socket, --url is /SERVICE"), path);
        path = vel_url_get_localpart(velurl);
    }
    job->serviceurl = make_socket_url(job->socketpath, path);
    return job->serviceurl ? 0 : fail_memory();
}

static int use_url(struct job *job, velurl *velurl)
{
    vel_error_t error = vel_url_set_url(velurl, job->url);

    if (error == VEL_ERROR_NO_MEMORY)
        return fail_memory();
    if (error || !*vel_url_get_host(velurl))
        return common_fail(FAILED_URL, tr("%s: not a URL like icap://host/service"),
                           common_name(job->url));
    if (strcmp(vel_url_get_scheme(velurl), "icap") == 0) {
        unsigned int port = vel_url_get_port(velurl);
        if (port < 1 || port > 65535)
            return common_fail(FAILED_URL, tr("%s: a port is a number from 1 to 65535"), job->url);
    } else if (strcmp(vel_url_get_scheme(velurl), "icap+unix") != 0) {
        return common_fail(FAILED_URL, tr("%s: only icap:// and icap+unix:// are supported"),
                           job->url);
    }
    job->serviceurl = vel_strdup(job->url);
    return job->serviceurl ? 0 : fail_memory();
}

static int set_service(struct job *job)
{
    velurl *velurl = vel_url_create();
    if (!velurl)
        return fail_memory();

    int code = job->socketpath ? use_socket(job, velurl) : use_url(job, velurl);
    vel_url_destroy(velurl);
    if (!code && vel_icap_set_url(job->velicap, job->serviceurl) != VEL_ERROR_NONE)
        code = fail_memory();
    return code;
}

/* ---- what came back -------------------------------------------------------------------------- */

/* Prints lines that came from the server, each indented. */
static void print_lines(FILE *out, char *text)
{
    char *line = text, *next;

    for (; line && *line; line = next) {
        next = strchr(line, '\n');
        if (next)
            *next++ = '\0';
        line[strcspn(line, "\r")] = '\0';
        make_harmless(line);
        if (*line)
            fprintf(out, "  %s\n", line);
    }
}

static int save(const struct job *job, const struct block *body)
{
    int result = 0;

    if (!job->outputname)
        return 0;
    if (strcmp(job->outputname, "-") != 0)
        result = vel_file_data_save(job->outputname, body->data, body->size);
    else if (vel_file_write(stdout, body->data, body->size) != body->size)
        result = -1;
    return result == 0 ? 0
                       : common_fail(FAILED_WRITE, tr("cannot write %s: %s"),
                                     common_name(job->outputname), tr(strerror(errno)));
}

/* Says what became of the body, and saves it. */
static int take_body(struct job *job, FILE *out)
{
    struct block body = {NULL, 0};
    int isunchanged = vel_icap_get_status_code(job->velicap) == 204;
    int code;

    if (isunchanged) {
        fprintf(out, "%s\n", tr("Nothing to change"));
        return save(job, &job->body);
    }
    vel_error_t error = vel_icap_get_response_body_and_size(job->velicap, &body.data, &body.size);
    if (error == VEL_ERROR_NO_MEMORY)
        return fail_memory();
    if (job->isinchunks && body.size >= 5)
        body.size -= 5; /* the library ends a body in chunks twice */
    int issame = body.size == job->body.size &&
                 (body.size == 0 || memcmp(body.data, job->body.data, body.size) == 0);
    if (body.size == 0)
        fprintf(out, "%s\n", tr("No body"));
    else if (job->method == OPTIONS)
        fprintf(out, tr("Body: %lu bytes"), (unsigned long)body.size);
    else
        fprintf(out,
                issame ? tr("Body: %lu bytes, as they were sent")
                       : tr("Body: %lu bytes, not those that were sent"),
                (unsigned long)body.size);
    if (body.size > 0)
        fputc('\n', out);
    code = save(job, &body);
    vel_free(body.data);
    return code;
}

static void print_headers(struct job *job, FILE *out)
{
    char *text = NULL;

    fprintf(out, tr("ICAP status %u"), vel_icap_get_status_code(job->velicap));
    fputc('\n', out);
    if (vel_icap_get_response_icap_headers(job->velicap, &text) == VEL_ERROR_NONE)
        print_lines(out, text);
    vel_free(text);
    if (vel_icap_get_response_headers(job->velicap, &text) == VEL_ERROR_NONE) {
        fprintf(out, "%s\n", tr("HTTP message"));
        print_lines(out, text);
    }
    vel_free(text);
}

static const struct cause {
    vel_error_t error;
    int code;
    const char *text; /* NULL: that of the error */
} causes[] = {
    {VEL_ERROR_NO_MEMORY, FAILED, NULL},
    {VEL_ERROR_INVALID_ARGUMENT, FAILED_URL, N_("the URL is not valid")},
    {VEL_ERROR_INVALID_SYNTAX, FAILED_URL,
     N_("the path of the socket is not escaped well; use --socket")},
    {VEL_ERROR_HOST_UNRESOLVED, FAILED_RESOLVE, N_("no such host")},
    {VEL_ERROR_NOT_FOUND, FAILED_RESOLVE, N_("the name has no address")},
    {VEL_ERROR_NO_ADDRESSES_IN_FAMILY, FAILED_RESOLVE, NULL},
    {VEL_ERROR_TEMPORARY_FAILURE, FAILED_RESOLVE, N_("no answer from a name server")},
    {VEL_ERROR_PERMANENT_FAILURE, FAILED_RESOLVE, N_("the name server refuses")},
    {VEL_ERROR_GENERIC, FAILED_CONNECT, N_("cannot connect to the socket; is the server running?")},
    {VEL_ERROR_CONNECTION_REFUSED, FAILED_CONNECT,
     N_("the connection is refused; is the server running, and on this port?")},
    {VEL_ERROR_NETWORK_UNREACHABLE, FAILED_CONNECT, NULL},
    {VEL_ERROR_CONNECTION_TIMED_OUT, FAILED_TIMEOUT, NULL},
    {VEL_ERROR_TIMED_OUT, FAILED_TIMEOUT, N_("the time limit has passed; --timeout sets it")},
    {VEL_ERROR_END_OF_FILE, FAILED_LOST, N_("the server closed the connection without an answer")},
    {VEL_ERROR_BROKEN_PIPE, FAILED_LOST,
     N_("the server hung up before it had everything; is there such a service?")},
    {VEL_ERROR_CONNECTION_RESET, FAILED_LOST,
     N_("the server hung up before it had everything; is there such a service?")},
    {VEL_ERROR_PROTOCOL, FAILED_REPLY, N_("not an ICAP reply that is understood")},
    {VEL_ERROR_MESSAGE_TOO_LONG, FAILED_REPLY, N_("a line of the reply is too long")},
    {VEL_ERROR_UNSUPPORTED, FAILED_REPLY, N_("a reply of a form that is not supported")},
    {VEL_ERROR_INTERNAL, FAILED_REPLY, N_("the reply ends within a line")},
    {VEL_ERROR_INVALID_SYNTAX, FAILED_REPLY, N_("a header line without a colon")},
};

static int explain_error(const struct job *job, vel_error_t error)
{
    int hasstatus = vel_icap_get_status_code(job->velicap) != 0;
    int code = FAILED_LOST;
    const char *subject = common_name(job->socketpath ? job->socketpath : job->url);
    const char *text = vel_error_string(error);

    for (size_t i = 0; i < sizeof(causes) / sizeof(causes[0]); i++) {
        const struct cause *cause = &causes[i];
        int isearlier = cause->code > FAILED && cause->code < FAILED_REPLY;
        if (cause->error == error && !(hasstatus && isearlier)) {
            code = cause->code;
            text = cause->text ? cause->text : text;
            break;
        }
    }
    if (code == FAILED_REPLY && job->reason.text[0])
        return common_fail(code, "%s: %s: %s", subject, tr(text), job->reason.text);
    return common_fail(code, "%s: %s", subject, tr(text));
}

static int explain_status(const struct job *job, unsigned int status)
{
    const char *method = method_names[job->method];

    switch (status) {
    case 404:
        return common_fail(FAILED_STATUS,
                           tr("%s: ICAP status 404: no such service; see the path of the URL"),
                           job->url);
    case 405:
        return common_fail(FAILED_STATUS, tr("%s: ICAP status 405: the service does not take %s"),
                           job->url, method);
    default:
        return common_fail(FAILED_STATUS, tr("%s: ICAP status %u"), job->url, status);
    }
}

static int run(struct job *job)
{
    FILE *out = job->outputname && strcmp(job->outputname, "-") == 0 ? stderr : stdout;
    int code = set_service(job);
    if (!code)
        code = set_message(job);
    if (code)
        return code;

    job->reason.text[0] = '\0';
    vel_error_t error = vel_icap_perform(job->velicap);
    unsigned int status = vel_icap_get_status_code(job->velicap);
    int isrefusal = status != 0 && status != 200 && status != 204;
    if (error && !isrefusal)
        return explain_error(job, error);
    print_headers(job, out);
    fflush(out);
    code = isrefusal ? explain_status(job, status) : take_body(job, out);
    const char *reason = common_flush();
    if (reason && !code)
        code = common_fail(FAILED_WRITE, tr("cannot write to standard output: %s"), reason);
    return code;
}

/* ---- options --------------------------------------------------------------------------------- */

static vel_error_t on_timeout(const char *argument, void *context)
{
    struct job *job = context;
    double seconds;

    if (!common_parse_seconds(argument, 0, &seconds))
        return common_refuse(tr("not a number of seconds"));
    int whole = (int)seconds;
    unsigned int micros = (unsigned int)((seconds - whole) * 1e6);
    vel_icap_set_timeout(job->velicap, whole > 0 || micros > 0 ? whole : -1, micros);
    return VEL_ERROR_NONE;
}

/* Returns whether one could not be declared. */
static int declare_options(struct job *job, velgetopt *options)
{
    return vel_getopt_flag_set(options, "respmod", 0, &job->isresponse,
                               tr("The message is a response; this is the default.")) ||
           vel_getopt_flag_set(options, "reqmod", 0, &job->isrequest,
                               tr("The message is a request.")) ||
           vel_getopt_flag_set(options, "options", 0, &job->isoptions,
                               tr("No message: ask what the service can do.")) ||
           vel_getopt_const_string(options, "url", 0, &job->url, "URL",
                                   tr("The service; icap+unix://ESCAPED-PATH/SERVICE is known, "
                                      "too.")) ||
           vel_getopt_const_string(options, "socket", 0, &job->socketpath, tr("PATH"),
                                   tr("Go through the UNIX-domain socket PATH.")) ||
           vel_getopt_const_string(options, "body", 0, &job->bodyname, tr("FILE"),
                                   tr("The body of the message; - is standard input.")) ||
           vel_getopt_const_string(options, "request-headers", 0, &job->requestname, tr("FILE"),
                                   tr("The request line and headers before it.")) ||
           vel_getopt_const_string(options, "response-headers", 0, &job->responsename, tr("FILE"),
                                   tr("The status line and headers before it.")) ||
           vel_getopt_flag_set(options, "allow-204", 0, &job->allows204,
                               tr("Let the service answer just that it has nothing to change.")) ||
           vel_getopt_string_callback(options, "timeout", 0, "S",
                                      tr("Limit for all of it, in seconds; 300 by default, 0 for "
                                         "none."),
                                      on_timeout, job) ||
           vel_getopt_const_string(options, "output", 'o', &job->outputname, tr("FILE"),
                                   tr("Write the body that came back to FILE; - is standard "
                                      "output.")) ||
           vel_getopt_flag_set(options, "verbose", 'v', &job->verbose,
                               tr("Show the log of the library.")) ||
           vel_getopt_flag_set(options, "trace", 0, &job->traces, tr("Show all of that log."));
}

/* Tests that what was given fits together. */
static int check_options(struct job *job)
{
    if (!job->url) {
        common_mistake("%s", tr("--url is needed"));
        return FAILED_USAGE;
    }
    if (job->url[strcspn(job->url, " \t\r\n")])
        return common_fail(FAILED_URL, tr("the URL has white space in it: %s"), job->url);
    if (job->isresponse + job->isrequest + job->isoptions > 1) {
        common_mistake("%s", tr("--respmod, --reqmod and --options exclude each other"));
        return FAILED_USAGE;
    }
    job->method = job->isoptions ? OPTIONS : job->isrequest ? REQMOD : RESPMOD;
    if (job->method == OPTIONS && (job->bodyname || job->requestname || job->responsename))
        return common_fail(FAILED_USAGE, "%s", tr("--options takes no message"));
    if (job->method == REQMOD && job->responsename)
        return common_fail(FAILED_USAGE, "%s", tr("--reqmod takes no --response-headers"));
    return 0;
}

/* Takes all options; returns 0, or an exit code, or -1 if there is nothing left to do. */
static int take_options(struct job *job, int argc, char **argv)
{
    vel_icap_set_timeout(job->velicap, 300, 0);
    velgetopt *options = vel_getopt_create();
    int bad = !options || declare_options(job, options);
    int first = common_parse(options, bad, synopsis, paragraphs, argc, argv);

    if (first <= 0)
        return first == COMMON_DONE ? -1
                                    : common_exit_code(first, FAILED_USAGE, FAILED_WRITE, FAILED);
    if (first < argc) {
        common_mistake(tr("not an option: %s; a file is named by --body"), argv[first]);
        return FAILED_USAGE;
    }
    if (job->allows204)
        vel_icap_set_allow_204(job->velicap);
    if (job->verbose || job->traces) {
        vel_log_stderr_enable(NULL);
        vel_log_stderr_set_level(NULL, job->traces ? 16 : 8);
    }
    return check_options(job);
}

int main(int argc, char **argv)
{
    struct job job = {.method = RESPMOD};
    int code = FAILED;

    vel_log_stderr_disable(NULL);
    common_start("velicap");
    vel_log_callback_set(NULL, common_keep_reason, &job.reason);
    vel_log_callback_set_level(NULL, 7);
    vel_log_callback_enable(NULL);
    vel_signal_ignore_sigpipe(); /* a closed connection is an error code, not the end */

    job.velicap = vel_icap_create();
    if (!job.velicap)
        fail_memory();
    else if ((code = take_options(&job, argc, argv)) == 0)
        code = run(&job);

    if (job.velicap)
        vel_icap_destroy(job.velicap);
    vel_free(job.body.data);
    vel_free(job.serviceurl);
    common_end();
    vel_uninit();
    return code < 0 ? 0 : code;
}
