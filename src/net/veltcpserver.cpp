/* Each connection has a thread, and no thread is detached: what is served must be joined by
 * somebody else. So a connection that has been served moves itself from the list of the running
 * ones to the list of the finished ones, and the accept thread, or in the end vel_tcpserver_wait,
 * joins and destroys what it finds there. */
#include <vellib/veltcpserver.h>

#include <vellib/velhandle_tcp.h>

#include "net/velserver_core.h"
#include "util/velassert.h"

#define VEL_MODULE "net/veltcpserver"

struct veltcpserver : velserver_core {
    vel_tcpserver_cb *callback;
};

/* In one of the two lists, or in none while it is being made. */
struct veltcpserverconnection {
    veltcpserverconnection *next;
    veltcpserverconnection *prev;
    struct veltcpserver *veltcpserver;
    struct velhandle *velhandle; /* owned; NULL once the callback has returned */
    struct velthread *velthread; /* owned */
};

static void *vel_tcpserver_accept_thread(void *arg);

struct vel_tcpserver_twin {
    static constexpr const char *module = VEL_MODULE;
    static constexpr const char *name = "tcpserver";
    static constexpr const char *protocol = "TCP";
    static constexpr const char *task = "accept";
    using server = veltcpserver;
    static constexpr auto destroy = vel_tcpserver_destroy;
    static constexpr auto listen = vel_handle_tcp_listen;
    static constexpr auto thread = vel_tcpserver_accept_thread;
    static constexpr auto wait = vel_tcpserver_wait;
};

static void vel_tcpserver_connection_destroy(veltcpserverconnection *connection)
{
    VEL_ASSERT(connection != NULL);

    if (connection->velhandle)
        vel_handle_destroy(connection->velhandle);
    if (connection->velthread)
        vel_thread_destroy(connection->velthread);
    vel_free(connection);
}

/* Joins what has finished. To join under the lock is short: a connection in the list has already
 * left its last locked section. */
static void vel_tcpserver_join_finished(veltcpserver *veltcpserver)
{
    VEL_ASSERT(veltcpserver != NULL);

    vel_mutex_lock(veltcpserver->connectionmutex);
    vel_list *finishedlist = veltcpserver->finishedlist;
    while (finishedlist->head) {
        auto *connection = static_cast<veltcpserverconnection *>(finishedlist->head);
        VEL_LIST_REMOVE(finishedlist, connection);
        VEL_LOG(13, "joining finished connection %p", static_cast<void *>(connection));
        int ret = vel_thread_join(connection->velthread, nullptr);
        VEL_ASSERT(ret == 0);
        vel_tcpserver_connection_destroy(connection);
    }
    vel_mutex_unlock(veltcpserver->connectionmutex);
}

static void *vel_tcpserver_connection_thread(void *arg)
{
    VEL_ASSERT(arg != NULL);
    auto *connection = static_cast<veltcpserverconnection *>(arg);
    veltcpserver *veltcpserver = connection->veltcpserver;
    VEL_ASSERT(veltcpserver != NULL);
    VEL_ASSERT(connection->velhandle != NULL);

    veltcpserver->callback(veltcpserver, connection->velhandle, veltcpserver->context);
    vel_handle_destroy(connection->velhandle);
    connection->velhandle = nullptr;

    vel_mutex_lock(veltcpserver->connectionmutex);
    VEL_LIST_REMOVE(veltcpserver->connectionlist, connection);
    VEL_LIST_ADD_TAIL(veltcpserver->finishedlist, connection);
    vel_mutex_unlock(veltcpserver->connectionmutex);
    return nullptr;
}

/* Starts the thread of a connection and enters it in the list. The lock is held across both, so
 * that a thread which ends at once finds itself in the list. */
static bool vel_tcpserver_start_connection(veltcpserver *veltcpserver,
                                           veltcpserverconnection *connection)
{
    vel_mutex_lock(veltcpserver->connectionmutex);
    int ret = vel_thread_start(connection->velthread, vel_tcpserver_connection_thread, connection);
    if (ret == 0)
        VEL_LIST_ADD_TAIL(veltcpserver->connectionlist, connection);
    vel_mutex_unlock(veltcpserver->connectionmutex);
    return ret == 0;
}

/* Takes over a client handle and has it served. */
static void vel_tcpserver_serve(veltcpserver *veltcpserver, velhandle *clienthandle)
{
    auto *connection =
        static_cast<veltcpserverconnection *>(vel_cmalloc(sizeof(veltcpserverconnection)));
    if (!connection) {
        VEL_LOG(7, "not enough memory for tcpserver connection structure");
        vel_handle_destroy(clienthandle);
        return;
    }
    connection->veltcpserver = veltcpserver;
    connection->velhandle = clienthandle;
    connection->velthread = vel_thread_create();
    if (!connection->velthread) {
        VEL_LOG(7, "unable to create a thread for handling the connection");
        vel_tcpserver_connection_destroy(connection);
        return;
    }
    if (!vel_tcpserver_start_connection(veltcpserver, connection)) {
        VEL_LOG(7, "unable to start a thread for handling the connection");
        vel_tcpserver_connection_destroy(connection);
    }
}

static void *vel_tcpserver_accept_thread(void *arg)
{
    VEL_ASSERT(arg != NULL);
    auto *veltcpserver = static_cast<struct veltcpserver *>(arg);
    velhandle *listenhandle = veltcpserver->listenhandle;
    VEL_ASSERT(listenhandle != NULL);

    while (!veltcpserver->stop) {
        vel_tcpserver_join_finished(veltcpserver);
        velhandle *clienthandle = nullptr;
        vel_error_t velerror = vel_handle_accept(listenhandle, &clienthandle);
        if (velerror == VEL_ERROR_WAKEUP) {
            VEL_LOG(9, "wakeup from accept requested");
            continue;
        }
        if (velerror != VEL_ERROR_NONE) {
            VEL_LOG(7, "accept returned %d (%s)", velerror, vel_error_string(velerror));
            continue;
        }
        VEL_LOG(13, "serving client handle %p", static_cast<void *>(clienthandle));
        if (veltcpserver->stop) {
            VEL_LOG(8, "shutting down, closing the handle just accepted");
            vel_handle_destroy(clienthandle);
            continue;
        }
        vel_tcpserver_serve(veltcpserver, clienthandle);
    }
    return nullptr;
}

veltcpserver *vel_tcpserver_create(void)
{
    return vel_servercore_create<vel_tcpserver_twin>();
}

void vel_tcpserver_destroy(veltcpserver *veltcpserver)
{
    VEL_ASSERT(veltcpserver != NULL);

    vel_servercore_release(veltcpserver);
    vel_free(veltcpserver);
}

vel_error_t vel_tcpserver_set_address(veltcpserver *veltcpserver, const char *address)
{
    VEL_ASSERT(veltcpserver != NULL);

    return vel_servercore_set_address<vel_tcpserver_twin>(veltcpserver, address);
}

void vel_tcpserver_set_port(veltcpserver *veltcpserver, unsigned int port)
{
    VEL_ASSERT(veltcpserver != NULL);
    VEL_ASSERT(port <= 65535);

    veltcpserver->port = port;
}

void vel_tcpserver_set_callback(veltcpserver *veltcpserver, vel_tcpserver_cb *callback,
                                void *context)
{
    VEL_ASSERT(veltcpserver != NULL);

    veltcpserver->callback = callback;
    veltcpserver->context = context;
}

vel_error_t vel_tcpserver_start(veltcpserver *veltcpserver)
{
    VEL_ASSERT(veltcpserver != NULL);

    return vel_servercore_start<vel_tcpserver_twin>(veltcpserver);
}

void vel_tcpserver_stop(veltcpserver *veltcpserver)
{
    VEL_ASSERT(veltcpserver != NULL);

    vel_servercore_stop<vel_tcpserver_twin>(veltcpserver);
}

/* Returns the connection that has run longest, or NULL. */
static veltcpserverconnection *vel_tcpserver_first_connection(veltcpserver *veltcpserver)
{
    vel_mutex_lock(veltcpserver->connectionmutex);
    auto *connection = static_cast<veltcpserverconnection *>(veltcpserver->connectionlist->head);
    vel_mutex_unlock(veltcpserver->connectionmutex);
    return connection;
}

void vel_tcpserver_wait(veltcpserver *veltcpserver)
{
    VEL_ASSERT(veltcpserver != NULL);

    if (veltcpserver->acceptthread) {
        int ret = vel_thread_join(veltcpserver->acceptthread, nullptr);
        VEL_ASSERT(ret == 0);
    }
    /* From here on nobody adds to the lists, and nobody else joins. */
    veltcpserverconnection *veltcpserverconnection;
    while ((veltcpserverconnection = vel_tcpserver_first_connection(veltcpserver))) {
        VEL_ASSERT(veltcpserverconnection->velthread != NULL);
        VEL_LOG(13, "waiting for connection %p thread to exit",
                static_cast<void *>(veltcpserverconnection));
        int ret = vel_thread_join(veltcpserverconnection->velthread, nullptr);
        VEL_ASSERT(ret == 0);
        vel_mutex_lock(veltcpserver->connectionmutex);
        /* The thread has moved itself to the other list. */
        VEL_ASSERT(veltcpserver->connectionlist->head != veltcpserverconnection);
        VEL_LIST_REMOVE(veltcpserver->finishedlist, veltcpserverconnection);
        vel_tcpserver_connection_destroy(veltcpserverconnection);
        vel_mutex_unlock(veltcpserver->connectionmutex);
    }
    vel_tcpserver_join_finished(veltcpserver);
}

vel_error_t vel_tcpserver_run(veltcpserver *veltcpserver)
{
    VEL_ASSERT(veltcpserver != NULL);

    return vel_servercore_run<vel_tcpserver_twin>(veltcpserver);
}

vel_error_t vel_tcpserver_get_port(veltcpserver *veltcpserver, unsigned int *portptr)
{
    VEL_ASSERT(veltcpserver != NULL);
    VEL_ASSERT(portptr != NULL);

    return vel_servercore_get_port<vel_tcpserver_twin>(veltcpserver, portptr);
}
