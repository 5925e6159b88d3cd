/* velserve: serves the files below a directory over HTTP/1.0.
 *
 * A host program of vellib: a TCP server with a thread for each connection, reading lines and
 * writing through its handle, time limits, the log, and an orderly end on a signal. */
#define _XOPEN_SOURCE     700
#define _FILE_OFFSET_BITS 64

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "common.h"

enum {
    LINE_SIZE = 8192,       /* the longest line of a request, in bytes */
    HEADER_LINES = 100,     /* the most headers of a request */
    REQUEST_SECONDS = 10,   /* for a request to arrive, as a whole */
    WRITE_SECONDS = 10,     /* for the peer to take some more of an answer */
    WAIT_SECONDS = 1,       /* for each wait within these, so that the end is noticed */
    MOST_CONNECTIONS = 256, /* that are served at a time; fewer where descriptors are few */
    PIECE_SIZE = 64 * 1024  /* of a file that is sent */
};

/* What an answer begins with. Functions below return one of these, or NULL for success. */
static const char OK[] = "200 OK";
static const char MOVED[] = "301 Moved Permanently";
static const char BAD_REQUEST[] = "400 Bad Request";
static const char FORBIDDEN[] = "403 Forbidden";
static const char NOT_FOUND[] = "404 Not Found";
static const char BAD_METHOD[] = "405 Method Not Allowed";
static const char TOO_LONG[] = "414 URI Too Long";
static const char SERVER_ERROR[] = "500 Internal Server Error";
static const char OVERLOADED[] = "503 Service Unavailable";
static const char NO_ANSWER[] = ""; /* the peer has gone, or let its time pass */

/* What each page begins with. The icon keeps browsers from asking for one. Names are shown as they
 * are, with all their blanks, and wrapped anywhere. */
static const char page_head[] =
    "<!DOCTYPE html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n"
    "<meta name=\"viewport\" content=\"width=device-width\">\n"
    "<link rel=\"icon\" href=\"data:,\">\n"
    "<style>\n"
    ":root { color-scheme: light dark }\n"
    "body { font: 1rem/1.5 system-ui, sans-serif; max-width: 60rem; margin: 2rem auto; "
    "padding: 0 1rem }\n"
    "h1 { font-size: 1.4rem; padding: 0 .5rem; white-space: pre-wrap; overflow-wrap: anywhere }\n"
    "table { width: 100%; border-collapse: collapse }\n"
    "tr:hover { background: #8882 }\n"
    "td { padding: .3rem .5rem; border-top: 1px solid #8884; white-space: nowrap; "
    "text-align: right; font-variant-numeric: tabular-nums }\n"
    "td:first-child { width: 100%; white-space: pre-wrap; overflow-wrap: anywhere; "
    "text-align: left }\n"
    "a { text-decoration: none }\na:hover { text-decoration: underline }\n"
    "</style>\n";

/* What all connections share. */
struct site {
    char *root;        /* the resolved directory; "" is the root of the file system */
    unsigned int most; /* connections that are served at a time */
    velmutex *mutex;   /* guards what follows */
    int stopping;
    unsigned int connections; /* that there are */
};

/* One connection, which is one request. */
struct request {
    struct site *site;
    velhandle *handle;
    char line[LINE_SIZE + 1];
    const char *method; /* both within line */
    const char *target;
    const char *status;
    long long sent; /* bytes of the body */
};

static int is_stopping(struct site *site)
{
    vel_mutex_lock(site->mutex);
    int stopping = site->stopping;
    vel_mutex_unlock(site->mutex);
    return stopping;
}

/* Writes bytes that are safe in a line of the log: what is not printable ASCII as \xNN, cut at the
 * end of the room. */
static void escape_for_log(char *text, size_t room, const char *bytes)
{
    size_t length = 0;
    for (; *bytes && length + 5 <= room; bytes++) {
        int plain = *bytes > ' ' && *bytes < 127 && *bytes != '\\';
        length += (size_t)vel_snprintf(text + length, room - length, plain ? "%c" : "\\x%02x",
                                       (unsigned char)*bytes);
    }
    text[length] = '\0';
}

static void log_request(const struct request *request)
{
    char method[64], target[1024];
    escape_for_log(method, sizeof method, request->method);
    escape_for_log(target, sizeof target, request->target);
    VEL_LOG_AT(NULL, 8, "velserve", __LINE__, "%s %s %.3s %lld", method, target, request->status,
               request->sent);
}

static void put_html(FILE *page, const char *text)
{
    static const char *const entities[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"};
    static const char special[] = "&<>\"'";
    for (; *text; text++) {
        const char *found = strchr(special, *text);
        fprintf(page, found ? "%s" : "%.1s", found ? entities[found - special] : text);
    }
}

/* Writes a path as it stands in a URL (RFC 3986, 2.3): all but the unreserved characters and the
 * slash is percent-encoded, so that no name can be taken for a scheme, a host or a query. */
static void put_path(FILE *page, const char *path)
{
    static const char plain[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
    for (; *path; path++)
        fprintf(page, strchr(plain, *path) ? "%c" : "%%%02X", (unsigned char)*path);
}

/* Why a file or directory cannot be served. */
static const char *status_of(int platformerrno)
{
    if (platformerrno == EACCES || platformerrno == EPERM)
        return FORBIDDEN;
    if (platformerrno == ENOMEM || platformerrno == EMFILE || platformerrno == ENFILE)
        return SERVER_ERROR;
    return NOT_FOUND;
}

static const char *type_of(const char *name)
{
    static const char *const types[] = {".html", "text/html; charset=utf-8",
                                        ".css",  "text/css; charset=utf-8",
                                        ".txt",  "text/plain; charset=utf-8",
                                        ".md",   "text/plain; charset=utf-8",
                                        ".js",   "text/javascript",
                                        ".json", "application/json",
                                        ".pdf",  "application/pdf",
                                        ".png",  "image/png",
                                        ".jpg",  "image/jpeg",
                                        ".gif",  "image/gif",
                                        ".svg",  "image/svg+xml",
                                        ".mp4",  "video/mp4",
                                        NULL};
    const char *suffix = strrchr(name, '.');
    for (size_t i = 0; suffix && types[i]; i += 2) {
        if (vel_strcasecmp(suffix, types[i]) == 0)
            return types[i + 1];
    }
    return "application/octet-stream";
}

/* Sends bytes, until the peer has taken none of them for too long or the program shall end. Returns
 * how many it has taken. */
static size_t send_bytes(struct request *request, const char *bytes, size_t count)
{
    size_t sent = 0;
    int waits = 0;
    while (sent < count && waits < WRITE_SECONDS / WAIT_SECONDS) {
        size_t written = vel_handle_write(request->handle, bytes + sent, count - sent);
        sent += written;
        waits = written > 0 ? 0 : waits + 1;
        if (sent < count && (vel_handle_get_error(request->handle) != VEL_ERROR_TIMED_OUT ||
                             is_stopping(request->site)))
            break; /* the handle has logged why, unless the peer was just too slow */
    }
    return sent;
}

/* Sends the status line and the headers. extra is further headers, each with its line end.
 * Returns whether a body shall follow. */
static int send_head(struct request *request, const char *status, const char *extra,
                     const char *type, long long length)
{
    request->status = status;
    char *head = vel_strdupf("HTTP/1.0 %s\r\nServer: velserve\r\nConnection: close\r\n%s"
                             "Content-Type: %s\r\nContent-Length: %lld\r\n\r\n",
                             status, extra, type, length);
    if (!head)
        return 0;
    size_t count = strlen(head);
    int written = send_bytes(request, head, count) == count;
    vel_free(head);
    return written && strcmp(request->method, "HEAD") != 0;
}

static void send_page(struct request *request, const char *status, const char *extra,
                      const char *page)
{
    size_t length = strlen(page);
    if (send_head(request, status, extra, "text/html; charset=utf-8", (long long)length))
        request->sent = (long long)send_bytes(request, page, length);
}

static void send_status(struct request *request, const char *status, const char *extra)
{
    char page[sizeof page_head + 128];
    vel_snprintf(page, sizeof page, "%s<title>%s</title>\n<h1>%s</h1>\n", page_head, status,
                 status);
    send_page(request, status, extra, page);
}

/* Sends the file of a resolved path, piece by piece. If it shrinks meanwhile, the connection ends
 * early, which the peer sees by the length. */
static void send_file(struct request *request, const char *path)
{
    /* The path has no link left. Should somebody put one there now, it is not followed; and what
     * has become a FIFO does not block. */
    int file = open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat attributes;
    if (file < 0 || fstat(file, &attributes) != 0) {
        send_status(request, status_of(errno), "");
    } else if (!S_ISREG(attributes.st_mode)) {
        send_status(request, FORBIDDEN, "");
    } else if (send_head(request, OK, "", type_of(path), (long long)attributes.st_size)) {
        char piece[PIECE_SIZE];
        while (request->sent < attributes.st_size && !is_stopping(request->site)) {
            long long left = attributes.st_size - request->sent;
            ssize_t count = read(file, piece, left < PIECE_SIZE ? (size_t)left : sizeof piece);
            if (count <= 0)
                break;
            size_t sent = send_bytes(request, piece, (size_t)count);
            request->sent += (long long)sent;
            if (sent < (size_t)count)
                break;
        }
    }
    if (file >= 0)
        close(file);
}

/* Resolves a decoded path to a file or directory that lies below the root, wherever links lead.
 * Returns NULL with *resolvedptr for free(), or the status to answer. */
static const char *resolve(const struct site *site, const char *path, const char *name,
                           char **resolvedptr)
{
    char *joined = vel_strdupf("%s%s%s", site->root, path, name);
    if (!joined)
        return SERVER_ERROR;
    *resolvedptr = realpath(joined, NULL);
    const char *status = *resolvedptr ? NULL : status_of(errno);
    vel_free(joined);
    size_t length = strlen(site->root);
    if (!status && (strncmp(*resolvedptr, site->root, length) != 0 ||
                    ((*resolvedptr)[length] != '/' && (*resolvedptr)[length] != '\0'))) {
        free(*resolvedptr);
        *resolvedptr = NULL;
        status = FORBIDDEN;
    }
    return status;
}

/* Writes the row of an entry of a directory, which is a path in the URL, if the entry is a directory
 * too, or if it is none. A link to nowhere is left out, and one that leads out of the root. */
static void put_entry(FILE *page, const struct site *site, const char *path, const char *name,
                      int isdirectory)
{
    struct stat attributes;
    struct tm modified;
    char size[16] = "", when[32] = "";
    char *resolved = NULL;
    if (resolve(site, path, name, &resolved) == NULL && stat(resolved, &attributes) == 0 &&
        !S_ISDIR(attributes.st_mode) == !isdirectory) {
        const char *slash = isdirectory ? "/" : "";
        if (localtime_r(&attributes.st_mtime, &modified))
            strftime(when, sizeof when, "%Y-%m-%d %H:%M", &modified);
        fputs("<tr><td><a href=\"", page);
        put_path(page, name);
        fprintf(page, "%s\">", slash);
        put_html(page, name);
        if (S_ISREG(attributes.st_mode))
            common_format_amount(size, sizeof size, (double)attributes.st_size);
        fprintf(page, "%s</a><td>%s<td>%s\n", slash, size, when);
    }
    free(resolved);
}

/* Writes a page that lists a directory: path in the URL, directory in the file system. Returns NULL
 * or the status to answer. */
static const char *put_listing(FILE *page, const struct site *site, const char *path,
                               const char *directory)
{
    struct dirent **entries;
    int isroot = path[strspn(path, "/")] == '\0';
    int count = scandir(directory, &entries, NULL, alphasort);
    if (count < 0)
        return status_of(errno);
    fprintf(page, "%s<title>", page_head);
    put_html(page, path);
    fputs("</title>\n<h1>", page);
    put_html(page, path);
    fputs("</h1>\n<table>\n", page);
    for (int i = 0; i < 2 * count; i++) { /* directories come first */
        const char *name = entries[i % count]->d_name;
        if (strcmp(name, ".") != 0 && (strcmp(name, "..") != 0 || !isroot))
            put_entry(page, site, path, name, i < count);
    }
    for (int i = 0; i < count; i++)
        free(entries[i]);
    free(entries);
    fputs("</table>\n", page);
    return NULL;
}

static void send_listing(struct request *request, const char *path, const char *directory)
{
    char *text = NULL;
    size_t length;
    FILE *page = open_memstream(&text, &length);
    const char *status = page ? put_listing(page, request->site, path, directory) : SERVER_ERROR;
    if (page && ferror(page))
        status = SERVER_ERROR;
    if (page && fclose(page) != 0)
        status = SERVER_ERROR;
    if (status)
        send_status(request, status, "");
    else
        send_page(request, OK, "", text);
    free(text);
}

/* Tells the peer to ask for the directory with a slash at its end, as the links in its page are
 * relative to that. */
static void send_redirect(struct request *request)
{
    const char *target = request->target;
    while (target[1] == '/') /* "//name" would be another host */
        target++;
    char *header = vel_strdupf("Location: %.*s/\r\n", (int)strcspn(target, "?#"), target);
    send_status(request, header ? MOVED : SERVER_ERROR, header ? header : "");
    vel_free(header);
}

static int hex_value(char digit)
{
    static const char digits[] = "0123456789abcdef0123456789ABCDEF";
    const char *found = digit ? strchr(digits, digit) : NULL;
    return found ? (int)(found - digits) % 16 : -1;
}

/* Writes the path that a target asks for, decoded and without its query; path has as much room as
 * target. Returns NULL or the status to answer. */
static const char *decode_target(char *path, const char *target)
{
    if (*target != '/')
        return BAD_REQUEST;
    char *end = path;
    for (; *target && *target != '?' && *target != '#'; target++) {
        *end = *target;
        if (*target == '%') {
            int high = hex_value(target[1]);
            int low = high < 0 ? -1 : hex_value(target[2]);
            if (low < 0 || (high == 0 && low == 0)) /* a NUL would end the path */
                return BAD_REQUEST;
            *end = (char)(16 * high + low);
            target += 2;
        }
        end++;
    }
    *end = '\0';
    for (const char *up = path; (up = strstr(up, "/..")); up += 3) {
        if (up[3] == '/' || up[3] == '\0')
            return FORBIDDEN;
    }
    return NULL;
}

/* Answers a request that was read in full. */
static void answer(struct request *request)
{
    char path[LINE_SIZE];
    char *resolved = NULL;
    const char *status = decode_target(path, request->target);
    if (!status)
        status = resolve(request->site, path, "", &resolved);
    struct stat attributes;
    if (!status && stat(resolved, &attributes) != 0)
        status = status_of(errno);

    char *index = NULL;
    if (status)
        send_status(request, status, "");
    else if (!S_ISDIR(attributes.st_mode))
        send_file(request, resolved);
    else if (path[strlen(path) - 1] != '/')
        send_redirect(request);
    else if (resolve(request->site, path, "index.html", &index) == NULL)
        send_file(request, index);
    else
        send_listing(request, path, resolved);
    free(index);
    free(resolved);
}

/* Reads a line, within the time left for the request and until the program shall end. A peer that
 * sends a byte now and then cannot draw it out: the limit of a handle is for a whole line.
 * Returns the length without the line end, -1 if the peer or the time has ended, and -2 if the line
 * does not fit. */
static int read_line(struct request *request, veltimeout *timeout, char *line, size_t room)
{
    size_t length = 0;
    do {
        length += vel_handle_read_line(request->handle, line + length, room - length);
        if (length > 0 && line[length - 1] == '\n') {
            length--;
            if (length > 0 && line[length - 1] == '\r')
                length--;
            return (int)length;
        }
        if (length == room)
            return -2;
    } while (vel_handle_get_error(request->handle) == VEL_ERROR_TIMED_OUT &&
             vel_timeout_check(timeout, NULL, NULL) == 0 && !is_stopping(request->site));
    return -1;
}

/* Takes the request line apart: a method, a target and the version, with a blank between them.
 * Returns NULL or the status to answer. */
static const char *parse_line(struct request *request, size_t length)
{
    request->line[length] = '\0';
    for (size_t i = 0; i < length; i++) {
        if ((unsigned char)request->line[i] < ' ') /* a NUL, or what could forge a header */
            return BAD_REQUEST;
    }
    char *target = strchr(request->line, ' ');
    char *version = target ? strchr(target + 1, ' ') : NULL;
    if (!version || strncmp(version + 1, "HTTP/", 5) != 0)
        return BAD_REQUEST;
    *target++ = '\0';
    *version = '\0';
    request->method = request->line;
    request->target = target;
    if (strcmp(request->method, "GET") != 0 && strcmp(request->method, "HEAD") != 0)
        return BAD_METHOD;
    return NULL;
}

/* Reads a request: its line, and its headers, none of which matters here. Returns NULL or the status
 * to answer. */
static const char *read_request(struct request *request, veltimeout *timeout)
{
    vel_timeout_set(timeout, REQUEST_SECONDS, 0);
    vel_handle_set_read_timeout(request->handle, WAIT_SECONDS, 0);
    int length = read_line(request, timeout, request->line, LINE_SIZE);
    if (length < 0)
        return length == -2 ? TOO_LONG : NO_ANSWER;
    const char *status = parse_line(request, (size_t)length);
    char header[LINE_SIZE];
    for (int lines = 0; length != 0; lines++) {
        length = read_line(request, timeout, header, sizeof header);
        if (length == -1)
            return NO_ANSWER;
        if (length == -2 || lines == HEADER_LINES)
            return BAD_REQUEST;
    }
    return status;
}

/* Reads what the peer may still be sending, for a moment: to close with data unread resets the
 * connection, and the peer may lose the answer. */
static void drain(struct request *request)
{
    char piece[LINE_SIZE];
    vel_handle_set_read_timeout(request->handle, 0, 250000);
    for (int i = 0; i < 32 && !is_stopping(request->site); i++) {
        if (vel_handle_read(request->handle, piece, sizeof piece) == 0)
            break;
    }
}

/* Reads a request and answers it. */
static void serve_request(struct request *request)
{
    veltimeout *timeout = vel_timeout_create();
    if (!timeout)
        return;
    const char *status = read_request(request, timeout);
    vel_timeout_destroy(timeout);
    if (status == NO_ANSWER)
        return;
    if (!status) {
        answer(request);
    } else {
        send_status(request, status, status == BAD_METHOD ? "Allow: GET, HEAD\r\n" : "");
        drain(request);
    }
    log_request(request);
}

/* Counts a connection in or out. Returns how many there are. */
static unsigned int count_connection(struct site *site, int change)
{
    vel_mutex_lock(site->mutex);
    site->connections += (unsigned int)change;
    unsigned int connections = site->connections;
    vel_mutex_unlock(site->mutex);
    return connections;
}

/* Serves one connection, on its own thread. Nothing else limits their number, and a server without
 * descriptors can only try to accept, again and again: so too many are sent away without a wait. */
static void serve(veltcpserver *server, velhandle *handle, void *context)
{
    (void)server;
    struct site *site = context;
    struct request request = {.site = site, .handle = handle, .method = "-"};
    request.target = request.line; /* what there is of it goes into the log */
    vel_handle_set_write_timeout(handle, WAIT_SECONDS, 0);
    if (count_connection(site, 1) <= site->most) {
        serve_request(&request);
    } else {
        send_status(&request, OVERLOADED, "");
        log_request(&request);
    }
    count_connection(site, -1);
}

/* How many connections there is room for: each has a descriptor, and one for its file, and as many
 * are left for those that are about to be sent away. */
static unsigned int most_connections(void)
{
    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur / 4 >= MOST_CONNECTIONS)
        return MOST_CONNECTIONS;
    return (unsigned int)limit.rlim_cur / 4;
}

/* Serves until a signal asks for the end. */
static vel_error_t run(veltcpserver *server, struct site *site, const char *directory,
                       const char *address)
{
    static int wakeup[2]; /* a pipe: no signal is lost, whichever thread it hits and when */
    unsigned int port;
    char byte;
    errno = 0;
    if (pipe(wakeup) != 0)
        return VEL_ERROR_GENERIC;
    vel_signal_ignore_sigpipe(); /* a peer that goes away is the error of a write, not our end */
    common_catch_signals(common_wake, &wakeup[1]);
    vel_error_t error = vel_tcpserver_start(server);
    if (error != VEL_ERROR_NONE)
        return error;
    if (vel_tcpserver_get_port(server, &port) == VEL_ERROR_NONE) {
        int colon = strchr(address, ':') != NULL; /* IPv6 goes into brackets */
        printf("velserve: ");
        printf(tr("serving %s on http://%s%s%s:%u/"), directory, colon ? "[" : "", address,
               colon ? "]" : "", port);
        printf("\n");
        fflush(stdout);
    }
    while (read(wakeup[0], &byte, 1) < 0 && errno == EINTR)
        ;
    common_catch_signals(NULL, NULL); /* a second signal ends the program at once */
    vel_mutex_lock(site->mutex);
    site->stopping = 1;
    vel_mutex_unlock(site->mutex);
    vel_tcpserver_stop(server);
    vel_tcpserver_wait(server); /* joins the threads of all connections */
    return VEL_ERROR_NONE;
}

/* Why it could not serve. For what the library has no code, the platform has told errno. */
static const char *reason_of(vel_error_t error)
{
    int platformerrno = errno;
    if (error == VEL_ERROR_INVALID_SYNTAX)
        return tr("not a numeric address");
    if (error == VEL_ERROR_GENERIC && platformerrno != 0)
        return tr(strerror(platformerrno));
    return tr(vel_error_string(error));
}

/* Makes what the server needs, and runs it. Returns the exit code. */
static int serve_directory(const char *directory, const char *address, unsigned int port)
{
    struct site site = {.root = realpath(directory, NULL)};
    struct stat attributes;
    if (!site.root || stat(site.root, &attributes) != 0 || !S_ISDIR(attributes.st_mode)) {
        common_fail(1, "%s: %s", common_name(directory), tr(strerror(site.root ? ENOTDIR : errno)));
        free(site.root);
        return 1;
    }
    if (strcmp(site.root, "/") == 0)
        site.root[0] = '\0';
    site.most = most_connections();
    site.mutex = vel_mutex_create();
    veltcpserver *server = vel_tcpserver_create();
    vel_error_t error = VEL_ERROR_NO_MEMORY;
    if (site.mutex && server)
        error = vel_tcpserver_set_address(server, address);
    if (error == VEL_ERROR_NONE) {
        vel_tcpserver_set_port(server, port);
        vel_tcpserver_set_callback(server, serve, &site);
        error = run(server, &site, directory, address);
    }
    if (error != VEL_ERROR_NONE)
        common_fail(1, tr("cannot serve on %s, port %u: %s"), common_name(address), port,
                    reason_of(error));
    if (server)
        vel_tcpserver_destroy(server);
    if (site.mutex)
        vel_mutex_destroy(site.mutex);
    free(site.root);
    return error == VEL_ERROR_NONE ? 0 : 1;
}

static const char *const synopsis[] = {N_("velserve [OPTION]... DIRECTORY"), NULL};

static const char *const paragraphs[] = {
    N_("Serves the files below DIRECTORY over HTTP/1.0 until interrupted."),
    N_("Exit code: 0 after an interrupt or termination signal, 1 on failure, 2 on bad usage."),
    NULL};

static vel_error_t on_port(const char *argument, void *context)
{
    int64_t port;

    if (vel_strtoi64(argument, &port) != VEL_ERROR_NONE || port < 0 || port > 65535)
        return common_refuse(tr("not a port number"));
    *(unsigned int *)context = (unsigned int)port;
    return VEL_ERROR_NONE;
}

/* Takes the command line and serves; returns the exit code. */
static int take_options(int argc, char **argv)
{
    const char *address = "127.0.0.1";
    unsigned int port = 8080;
    velgetopt *options = vel_getopt_create();
    int bad = !options ||
              vel_getopt_const_string(options, "address", 'a', &address, tr("ADDRESS"),
                                      tr("Listen on this numeric address (127.0.0.1).")) ||
              vel_getopt_string_callback(options, "port", 'p', tr("PORT"),
                                         tr("Listen on this port (8080); 0 picks a free one."),
                                         on_port, &port);
    int first = common_parse(options, bad, synopsis, paragraphs, argc, argv);

    if (first > 0 && argc - first != 1)
        first = common_mistake("%s", tr("one DIRECTORY is needed, behind all options"));
    if (first > 0)
        return serve_directory(argv[first], address, port);
    return common_exit_code(first, 2, 1, 1);
}

int main(int argc, char **argv)
{
    common_start("velserve");
    int code = take_options(argc, argv);
    common_end();
    vel_uninit();
    return code;
}
