/* veltimers: an echo service over TCP and UDP, on one thread.
 *
 * A host program of vellib: the event loop with plain descriptors, a time limit for each connection,
 * a line every second, a sink of the log that picks levels, and an orderly end on a signal. */
#define _XOPEN_SOURCE 700

#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "common.h"

enum {
    PIECE_SIZE = 16 * 1024,        /* of a connection that is echoed at a time */
    DATAGRAM_SIZE = 65536,         /* no datagram is longer */
    PORT_TRIES = 16,               /* to find a port that is free for both protocols */
    ACCEPT_PAUSE = 500,            /* milliseconds without accepting, after a failure */
    LONGEST_SECONDS = 24 * 60 * 60 /* of an option */
};

/* All that the callbacks share; there is one thread, so nothing needs a lock. */
struct service {
    velasync *loop;
    int listener, datagrams, signals; /* descriptors, -1 if closed */
    unsigned int idlems, statusms;    /* limits; 0 is none */
    vel_list connections;
    velasyncop *statustimer, *accepttimer; /* NULL while there is none */
    unsigned long seconds;                 /* that have been told of */
    unsigned long opened, open, received;  /* connections, and datagrams */
    unsigned long long echoed;             /* bytes */
    char datagram[DATAGRAM_SIZE];
};

/* A connection waits for one direction at a time: what was read is written before more is read, so
 * that a peer that does not read holds up itself alone. */
struct connection {
    struct connection *next, *prev; /* a vel_list item */
    struct service *service;
    int descriptor;
    int writing;            /* which direction is registered */
    velasyncop *idletimer;  /* NULL while there is none */
    size_t length, written; /* of piece */
    char piece[PIECE_SIZE];
};

static void idle_timer(vel_error_t code, void *context);
static void on_connection(void *context);
static void on_listener(void *context);

static void complain(const char *what, int platformerrno)
{
    common_fail(1, "%s: %s", what, tr(strerror(platformerrno)));
}

/* Cancels a timer, if there is one. Its callback is still called, with VEL_ERROR_CANCELED, and looks
 * at nothing then, as what it is about may be gone. */
static void stop_timer(struct service *service, velasyncop **timer)
{
    if (*timer)
        vel_async_cancel(service->loop, *timer);
    *timer = NULL;
}

static void close_connection(struct connection *connection)
{
    struct service *service = connection->service;
    stop_timer(service, &connection->idletimer);
    if (connection->writing)
        vel_async_unregister_socket_write(service->loop, connection->descriptor);
    else
        vel_async_unregister_socket_read(service->loop, connection->descriptor);
    close(connection->descriptor); /* only now: the loop must not know it any more */
    VEL_LIST_REMOVE(&service->connections, connection);
    service->open--;
    free(connection);
}

static void idle_timer(vel_error_t code, void *context)
{
    if (code == VEL_ERROR_CANCELED)
        return;
    struct connection *connection = context;
    connection->idletimer = NULL;
    close_connection(connection);
}

/* Begins the time of a connection anew. Returns whether there was memory for it. */
static int restart_idle_timer(struct connection *connection)
{
    struct service *service = connection->service;
    stop_timer(service, &connection->idletimer);
    if (service->idlems == 0)
        return 1;
    connection->idletimer =
        vel_async_register_timeout_ms(service->loop, service->idlems, idle_timer, connection);
    return connection->idletimer != NULL;
}

/* Waits for the other direction. The one waited for ends first: the loop would not keep them apart
 * otherwise. Returns whether it could. */
static int turn_around(struct connection *connection, int writing)
{
    velasync *loop = connection->service->loop;
    int s = connection->descriptor;
    if (connection->writing == writing)
        return 1;
    if (writing)
        vel_async_unregister_socket_read(loop, s);
    else
        vel_async_unregister_socket_write(loop, s);
    connection->writing = writing;
    if (writing)
        return vel_async_register_socket_write(loop, s, on_connection, connection) ==
               VEL_ERROR_NONE;
    return vel_async_register_socket_read(loop, s, on_connection, connection) == VEL_ERROR_NONE;
}

/* Reads a piece, if the last one was written, and writes what there is. Returns 0 when the connection
 * is over. */
static int echo(struct connection *connection)
{
    if (connection->written == connection->length) {
        ssize_t count = read(connection->descriptor, connection->piece, PIECE_SIZE);
        if (count < 0)
            return errno == EAGAIN || errno == EINTR;
        if (count == 0)
            return 0;
        connection->length = (size_t)count;
        connection->written = 0;
    }
    ssize_t count = write(connection->descriptor, connection->piece + connection->written,
                          connection->length - connection->written);
    if (count < 0 && errno != EAGAIN && errno != EINTR)
        return 0;
    if (count > 0) {
        connection->written += (size_t)count;
        connection->service->echoed += (unsigned long long)count;
    }
    return turn_around(connection, connection->written < connection->length) &&
           restart_idle_timer(connection);
}

static void on_connection(void *context)
{
    struct connection *connection = context;
    if (!echo(connection))
        close_connection(connection);
}

static int set_nonblocking(int descriptor)
{
    int flags = fcntl(descriptor, F_GETFL);
    return flags >= 0 && fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) == 0 &&
           fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0;
}

/* Takes over a descriptor. */
static void open_connection(struct service *service, int descriptor)
{
    struct connection *connection = malloc(sizeof *connection);
    if (!connection || !set_nonblocking(descriptor)) {
        close(descriptor);
        free(connection);
        return;
    }
    memset(connection, 0, offsetof(struct connection, piece));
    connection->service = service;
    connection->descriptor = descriptor;
    VEL_LIST_ADD_TAIL(&service->connections, connection);
    service->opened++;
    service->open++;
    if (vel_async_register_socket_read(service->loop, descriptor, on_connection, connection) !=
            VEL_ERROR_NONE ||
        !restart_idle_timer(connection))
        close_connection(connection);
}

static void accept_timer(vel_error_t code, void *context)
{
    if (code == VEL_ERROR_CANCELED)
        return;
    struct service *service = context;
    service->accepttimer = NULL;
    vel_async_register_socket_read(service->loop, service->listener, on_listener, service);
}

/* Without descriptors the listener stays ready, so it is left alone for a while. */
static void pause_accepting(struct service *service)
{
    vel_async_unregister_socket_read(service->loop, service->listener);
    service->accepttimer =
        vel_async_register_timeout_ms(service->loop, ACCEPT_PAUSE, accept_timer, service);
    if (!service->accepttimer)
        vel_async_register_socket_read(service->loop, service->listener, on_listener, service);
}

static void on_listener(void *context)
{
    struct service *service = context;
    int descriptor = accept(service->listener, NULL, NULL);
    if (descriptor >= 0) {
        open_connection(service, descriptor);
    } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        complain("accept", errno);
        pause_accepting(service);
    }
}

static void on_datagram(void *context)
{
    struct service *service = context;
    struct sockaddr_storage sender;
    socklen_t length = sizeof sender;
    ssize_t count = recvfrom(service->datagrams, service->datagram, DATAGRAM_SIZE, 0,
                             (struct sockaddr *)&sender, &length);
    if (count < 0)
        return;
    service->received++;
    /* What there is no room for is lost, as datagrams are. */
    if (sendto(service->datagrams, service->datagram, (size_t)count, 0, (struct sockaddr *)&sender,
               length) > 0)
        service->echoed += (unsigned long long)count;
}

static void print_status(const struct service *service)
{
    printf(tr("%lu s: %lu open, %lu opened, %lu datagrams, %llu bytes"), service->seconds,
           service->open, service->opened, service->received, service->echoed);
    putchar('\n');
    fflush(stdout);
}

static void status_timer(vel_error_t code, void *context)
{
    if (code == VEL_ERROR_CANCELED)
        return;
    struct service *service = context;
    service->seconds += service->statusms / 1000;
    print_status(service);
    service->statustimer =
        vel_async_register_timeout_ms(service->loop, service->statusms, status_timer, service);
}

/* Ends all that is registered. The loop is over when the cancelled timers have been told. */
static void stop(struct service *service)
{
    while (service->connections.head)
        close_connection(service->connections.head);
    stop_timer(service, &service->statustimer);
    if (service->accepttimer)
        stop_timer(service, &service->accepttimer);
    else
        vel_async_unregister_socket_read(service->loop, service->listener);
    vel_async_unregister_socket_read(service->loop, service->datagrams);
    vel_async_unregister_socket_read(service->loop, service->signals);
}

static void on_signal(void *context)
{
    stop(context);
}

/* Opens a socket of one type and binds it. Returns the descriptor, or -1 with errno. */
static int bind_socket(const struct sockaddr *address, socklen_t length, int type)
{
    int on = 1;
    int descriptor = socket(address->sa_family, type, 0);
    if (descriptor < 0)
        return -1;
    if (set_nonblocking(descriptor) &&
        (type == SOCK_DGRAM ||
         setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0) &&
        bind(descriptor, address, length) == 0 &&
        (type == SOCK_DGRAM || listen(descriptor, SOMAXCONN) == 0))
        return descriptor;
    int saved = errno;
    close(descriptor);
    errno = saved;
    return -1;
}

static void close_sockets(struct service *service)
{
    if (service->listener >= 0)
        close(service->listener);
    if (service->datagrams >= 0)
        close(service->datagrams);
    service->listener = service->datagrams = -1;
}

/* Opens both sockets on one port. Port 0 takes what TCP gets, if UDP can have it too. Returns whether
 * it could, or leaves errno. */
static int open_sockets(struct service *service, const struct addrinfo *info, int anyport)
{
    struct sockaddr_storage bound;
    int tries = anyport ? PORT_TRIES : 1;
    while (tries-- > 0) {
        socklen_t length = sizeof bound;
        service->listener = bind_socket(info->ai_addr, info->ai_addrlen, SOCK_STREAM);
        if (service->listener >= 0 &&
            getsockname(service->listener, (struct sockaddr *)&bound, &length) == 0)
            service->datagrams = bind_socket((struct sockaddr *)&bound, length, SOCK_DGRAM);
        if (service->datagrams >= 0)
            return 1;
        int saved = errno;
        close_sockets(service);
        errno = saved;
        if (saved != EADDRINUSE)
            break;
    }
    return 0;
}

/* Says where the service is. */
static void announce(const struct service *service)
{
    struct sockaddr_storage bound;
    socklen_t length = sizeof bound;
    char host[64], port[8];
    if (getsockname(service->listener, (struct sockaddr *)&bound, &length) != 0 ||
        getnameinfo((struct sockaddr *)&bound, length, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return;
    printf("veltimers: ");
    printf(tr("echoing on %s port %s, TCP and UDP"), host, port);
    putchar('\n');
    fflush(stdout);
}

/* Registers what the service begins with. Returns whether it could. */
static int begin(struct service *service)
{
    velasync *loop = service->loop;
    if (vel_async_register_socket_read(loop, service->listener, on_listener, service) !=
            VEL_ERROR_NONE ||
        vel_async_register_socket_read(loop, service->datagrams, on_datagram, service) !=
            VEL_ERROR_NONE ||
        vel_async_register_socket_read(loop, service->signals, on_signal, service) !=
            VEL_ERROR_NONE)
        return 0;
    if (service->statusms > 0)
        service->statustimer =
            vel_async_register_timeout_ms(loop, service->statusms, status_timer, service);
    return service->statusms == 0 || service->statustimer;
}

/* Serves until a signal asks for the end. Returns whether it could. */
static int run(struct service *service)
{
    static int wakeup[2]; /* a pipe: no signal is lost, whenever it comes */
    if (pipe(wakeup) != 0 || !set_nonblocking(wakeup[1])) {
        complain("pipe", errno);
        return 0;
    }
    service->signals = wakeup[0];
    vel_signal_ignore_sigpipe(); /* a peer that goes away is the error of a write, not our end */
    common_catch_signals(common_wake, &wakeup[1]);
    int began = begin(service);
    if (began)
        announce(service);
    else
        stop(service);
    while (vel_async_process(service->loop) == VEL_ERROR_INCOMPLETE)
        vel_async_poll(service->loop);
    common_catch_signals(NULL, NULL);
    close(wakeup[0]);
    close(wakeup[1]);
    if (began)
        print_status(service);
    return began;
}

/* The loop tells the log at level 1 what each turn does. This sink shows failures and nothing else,
 * which a limit of level alone cannot do. */
static int show_failures(const char *string, size_t length, int level, time_t when, void *context)
{
    (void)when;
    (void)context;
    if (level > 1)
        fprintf(stderr, "veltimers: %.*s\n", (int)length, string);
    return 0;
}

static void set_up_log(void)
{
    vel_log_stderr_disable(NULL);
    vel_log_callback_set(NULL, show_failures, NULL);
    vel_log_callback_set_level(NULL, 8);
    vel_log_callback_enable(NULL);
}

/* Makes what the service needs, and runs it. Returns the exit code. */
static int serve(const char *address, const char *port, unsigned int idlems, unsigned int statusms)
{
    struct addrinfo hints, *info = NULL;
    memset(&hints, 0, sizeof hints);
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    int code = getaddrinfo(address, port, &hints, &info);
    if (code != 0)
        return common_fail(1, "%s: %s", common_name(address),
                           code == EAI_MEMORY ? tr(vel_error_string(VEL_ERROR_NO_MEMORY))
                                              : tr("not a numeric address"));
    static struct service service = {.listener = -1, .datagrams = -1, .signals = -1};
    service.idlems = idlems;
    service.statusms = statusms;
    int served = 0;
    if (!open_sockets(&service, info, strcmp(port, "0") == 0)) {
        common_fail(1, tr("cannot listen on %s port %s: %s"), address, port, tr(strerror(errno)));
    } else if ((service.loop = vel_async_create()) != NULL) {
        served = run(&service);
        vel_async_destroy(service.loop);
    }
    close_sockets(&service);
    freeaddrinfo(info);
    return served ? 0 : 1;
}

static const char *const synopsis[] = {N_("veltimers [OPTION]..."), NULL};

static const char *const paragraphs[] = {
    N_("Echoes what it gets by TCP and UDP until interrupted, on one thread."),
    N_("Exit code: 0 after an interrupt or termination signal, 1 on failure, 2 on bad usage."),
    NULL};

/* Reads a number of an option. */
static vel_error_t take_number(const char *text, int64_t highest, const char *refusal,
                               unsigned int *numberptr)
{
    int64_t number;

    if (vel_strtoi64(text, &number) != VEL_ERROR_NONE || number < 0 || number > highest)
        return common_refuse(refusal);
    *numberptr = (unsigned int)number;
    return VEL_ERROR_NONE;
}

static vel_error_t on_port(const char *argument, void *context)
{
    return take_number(argument, 65535, tr("not a port number"), context);
}

static vel_error_t on_seconds(const char *argument, void *context)
{
    return take_number(argument, LONGEST_SECONDS, tr("not a number of seconds"), context);
}

/* Takes the command line and serves; returns the exit code. */
static int take_options(int argc, char **argv)
{
    const char *address = "127.0.0.1";
    unsigned int port = 7007, idle = 60, interval = 1;
    char porttext[12];
    velgetopt *options = vel_getopt_create();
    int bad = !options ||
              vel_getopt_const_string(options, "address", 'a', &address, tr("ADDRESS"),
                                      tr("Listen on this numeric address (127.0.0.1).")) ||
              vel_getopt_string_callback(options, "port", 'p', tr("PORT"),
                                         tr("Listen on this port (7007); 0 picks a free one."),
                                         on_port, &port) ||
              vel_getopt_string_callback(options, "timeout", 't', tr("SECONDS"),
                                         tr("Close a connection on which nothing moves (60); 0 for "
                                            "never."),
                                         on_seconds, &idle) ||
              vel_getopt_string_callback(options, "interval", 'i', tr("SECONDS"),
                                         tr("Say how it goes that often (1); 0 for never."),
                                         on_seconds, &interval);
    int first = common_parse(options, bad, synopsis, paragraphs, argc, argv);

    if (first > 0 && first != argc)
        first = common_mistake(tr("not an option: %s"), argv[first]);
    if (first <= 0)
        return common_exit_code(first, 2, 1, 1);
    vel_snprintf(porttext, sizeof porttext, "%u", port);
    return serve(address, porttext, idle * 1000, interval * 1000);
}

int main(int argc, char **argv)
{
    set_up_log();
    common_start("veltimers");
    int code = take_options(argc, argv);
    common_end();
    vel_uninit();
    return code;
}
