#ifndef VELLIB_NET_VELSERVER_CORE_H
#define VELLIB_NET_VELSERVER_CORE_H

/* What servers share: a listening handle, the one thread that serves it, and the end of both. The
 * assertions on arguments stand in the exported functions, which call in here.
 *
 * A twin is a struct of facts:
 *   module    the path of the module, for the log
 *   name      the server as the texts of the log write it: "tcpserver"
 *   protocol  the same for the protocol: "TCP"
 *   task      the same for what the thread does: "accept"
 *   server    the type, which derives from velserver_core
 *   destroy   destroys a server, also a half-built one
 *   listen    makes the listening handle
 *   thread    the routine of the thread, which gets the server
 *   wait      waits for the end of the server */

#include <atomic>

#include <vellib/velerror.h>
#include <vellib/velhandle.h>
#include <vellib/vellist.h>
#include <vellib/vellog.h>
#include <vellib/velmalloc.h>
#include <vellib/velmutex.h>
#include <vellib/velstrdup.h>
#include <vellib/velthread.h>

#include "util/vellog_macros.h"

/* stop and listenhandle are atomic in sequential order, as a stop may come from another thread
 * while the server starts. One stores stop and then loads listenhandle, the other stores
 * listenhandle and then loads stop: one of the two sees what the other stored, so that no stop is
 * lost. */
struct velserver_core {
    velmutex *connectionmutex; /* guards the two lists */
    vel_list *connectionlist;  /* connections whose thread runs; none where there are none */
    vel_list *finishedlist;    /* connections that have been served, to be joined */
    char *address;             /* NULL is every IPv4 address */
    unsigned int port;
    void *context;                         /* the callback's, not owned */
    std::atomic<int> stop;                 /* set once and never cleared */
    std::atomic<velhandle *> listenhandle; /* also tells that the server was started */
    velthread *acceptthread;
};

/* Makes the members of a zeroed server. On false the caller destroys what there is. */
template <typename Twin> static bool vel_servercore_build(velserver_core *server)
{
    server->connectionmutex = vel_mutex_create();
    if (!server->connectionmutex) {
        VEL_LOG_IN(Twin::module, 7, "unable to create the %s connection mutex", Twin::name);
        return false;
    }
    server->connectionlist = vel_list_create();
    if (!server->connectionlist) {
        VEL_LOG_IN(Twin::module, 7, "unable to create the %s connection list", Twin::name);
        return false;
    }
    server->finishedlist = vel_list_create();
    if (!server->finishedlist) {
        VEL_LOG_IN(Twin::module, 7, "unable to create the %s finished list", Twin::name);
        return false;
    }
    return true;
}

/* Releases the members that there are. */
static inline void vel_servercore_release(velserver_core *server)
{
    if (server->acceptthread)
        vel_thread_destroy(server->acceptthread);
    if (server->listenhandle)
        vel_handle_destroy(server->listenhandle);
    if (server->address)
        vel_free(server->address);
    if (server->finishedlist)
        vel_list_destroy(server->finishedlist);
    if (server->connectionlist)
        vel_list_destroy(server->connectionlist);
    if (server->connectionmutex)
        vel_mutex_destroy(server->connectionmutex);
}

template <typename Twin> static typename Twin::server *vel_servercore_create()
{
    auto *server = static_cast<typename Twin::server *>(vel_cmalloc(sizeof(typename Twin::server)));
    if (!server) {
        VEL_LOG_IN(Twin::module, 7, "not enough memory for the vel%s context", Twin::name);
        return nullptr;
    }
    if (!vel_servercore_build<Twin>(server)) {
        Twin::destroy(server);
        return nullptr;
    }
    return server;
}

template <typename Twin>
static vel_error_t vel_servercore_set_address(velserver_core *server, const char *address)
{
    char *copy = vel_strdup(address);
    if (!copy) {
        VEL_LOG_IN(Twin::module, 7, "not enough memory for the listen address '%s'", address);
        return VEL_ERROR_NO_MEMORY;
    }
    if (server->address)
        vel_free(server->address);
    server->address = copy;
    return VEL_ERROR_NONE;
}

/* Starts the thread. On false the caller destroys the listening handle, which the server does not
 * hold then. */
template <typename Twin>
static bool vel_servercore_start_thread(typename Twin::server *server, velhandle *listenhandle)
{
    if (vel_log_init_threaded() != 0) {
        VEL_LOG_IN(Twin::module, 7, "unable to initialize threaded logging");
        return false;
    }
    velthread *thread = vel_thread_create();
    if (!thread) {
        VEL_LOG_IN(Twin::module, 7, "unable to create the %s thread", Twin::task);
        return false;
    }
    server->listenhandle = listenhandle; /* the thread needs it */
    if (vel_thread_start(thread, Twin::thread, server) != 0) {
        VEL_LOG_IN(Twin::module, 7, "unable to start the %s thread", Twin::task);
        server->listenhandle = nullptr;
        vel_thread_destroy(thread);
        return false;
    }
    server->acceptthread = thread;
    return true;
}

template <typename Twin> static vel_error_t vel_servercore_start(typename Twin::server *server)
{
    if (server->listenhandle) {
        VEL_LOG_IN(Twin::module, 7, "the %s server is already listening to connections",
                   Twin::protocol);
        return VEL_ERROR_BUSY;
    }
    velhandle *listenhandle = nullptr;
    vel_error_t velerror = Twin::listen(server->address, server->port, &listenhandle);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG_IN(Twin::module, 7,
                   "unable to start listening to incoming %s connections, error %d (%s)",
                   Twin::protocol, velerror, vel_error_string(velerror));
        return velerror;
    }
    if (!vel_servercore_start_thread<Twin>(server, listenhandle)) {
        vel_handle_destroy(listenhandle);
        return VEL_ERROR_NO_MEMORY;
    }
    return VEL_ERROR_NONE;
}

template <typename Twin> static vel_error_t vel_servercore_run(typename Twin::server *server)
{
    vel_error_t velerror = vel_servercore_start<Twin>(server);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG_IN(Twin::module, 7, "unable to start the %s server", Twin::protocol);
        return velerror;
    }
    Twin::wait(server);
    return VEL_ERROR_NONE;
}

/* Sets the flag and wakes the thread. If the thread does not wait at this moment, the wakeup waits
 * for it. */
template <typename Twin> static void vel_servercore_stop(velserver_core *server)
{
    server->stop = 1;
    velhandle *listenhandle = server->listenhandle;
    if (listenhandle) {
        VEL_LOG_IN(Twin::module, 10, "waking up the %s thread", Twin::task);
        (void)vel_handle_wakeup(listenhandle);
    }
}

template <typename Twin>
static vel_error_t vel_servercore_get_port(velserver_core *server, unsigned int *portptr)
{
    vel_error_t velerror = vel_handle_get_local_port(server->listenhandle, portptr);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG_IN(Twin::module, 7,
                   "unable to fetch the local %s port number from the handle, error %d (%s)",
                   Twin::protocol, velerror, vel_error_string(velerror));
    }
    return velerror;
}

#endif
