/* Datagrams make no connections: one thread reads from the listening handle and calls the host for
 * each datagram, so the two lists of a server, which are made like the rest of it, stay empty, and
 * nobody looks into them. */
#include <vellib/veludpserver.h>

#include <vellib/velhandle_udp.h>

#include "net/velserver_core.h"
#include "util/velassert.h"

#define VEL_MODULE "net/veludpserver"

struct veludpserver : velserver_core {
    vel_udpserver_cb *callback;
};

/* Takes any datagram whole. */
static constexpr size_t vel_udpserver_buffersize = 65536;

static void *vel_udpserver_reception_thread(void *arg);

struct vel_udpserver_twin {
    static constexpr const char *module = VEL_MODULE;
    static constexpr const char *name = "udpserver";
    static constexpr const char *protocol = "UDP";
    static constexpr const char *task = "reception";
    using server = veludpserver;
    static constexpr auto destroy = vel_udpserver_destroy;
    static constexpr auto listen = vel_handle_udp_listen;
    static constexpr auto thread = vel_udpserver_reception_thread;
    static constexpr auto wait = vel_udpserver_wait;
};

/* Logs why a read has given nothing. */
static void vel_udpserver_log_failure(vel_error_t velerror)
{
    if (velerror == VEL_ERROR_WAKEUP)
        VEL_LOG(9, "wakeup from read requested");
    else
        VEL_LOG(7, "read returned %d (%s)", velerror, vel_error_string(velerror));
}

static void *vel_udpserver_reception_thread(void *arg)
{
    VEL_ASSERT(arg != NULL);
    auto *veludpserver = static_cast<struct veludpserver *>(arg);
    velhandle *listenhandle = veludpserver->listenhandle;
    VEL_ASSERT(listenhandle != NULL);

    void *buffer = vel_malloc(vel_udpserver_buffersize);
    if (!buffer) {
        VEL_LOG(7, "not enough memory for receive buffer (%lu bytes)",
                static_cast<unsigned long>(vel_udpserver_buffersize));
        return nullptr;
    }
    while (!veludpserver->stop) {
        VEL_LOG(1, "vel_udpserver_reception_thread: call vel_handle_read()");
        size_t length = vel_handle_read(listenhandle, buffer, vel_udpserver_buffersize);
        VEL_LOG(1, "vel_udpserver_reception_thread: vel_handle_read() returned %lu",
                static_cast<unsigned long>(length));
        if (length == 0) {
            vel_udpserver_log_failure(vel_handle_get_error(listenhandle));
            continue;
        }
        VEL_LOG(13, "serving client handle %p", static_cast<void *>(listenhandle));
        if (veludpserver->stop) {
            /* No handle is closed; the datagram is dropped. */
            VEL_LOG(8, "shutting down, closing the handle just accepted");
            continue;
        }
        veludpserver->callback(veludpserver, listenhandle, buffer, length, veludpserver->context);
    }
    vel_free(buffer);
    return nullptr;
}

veludpserver *vel_udpserver_create(void)
{
    return vel_servercore_create<vel_udpserver_twin>();
}

void vel_udpserver_destroy(veludpserver *veludpserver)
{
    VEL_ASSERT(veludpserver != NULL);

    vel_servercore_release(veludpserver);
    vel_free(veludpserver);
}

vel_error_t vel_udpserver_set_address(veludpserver *veludpserver, const char *address)
{
    VEL_ASSERT(veludpserver != NULL);

    return vel_servercore_set_address<vel_udpserver_twin>(veludpserver, address);
}

void vel_udpserver_set_port(veludpserver *veludpserver, unsigned int port)
{
    VEL_ASSERT(veludpserver != NULL);
    VEL_ASSERT(port <= 65535);

    veludpserver->port = port;
}

void vel_udpserver_set_callback(veludpserver *veludpserver, vel_udpserver_cb *callback,
                                void *context)
{
    VEL_ASSERT(veludpserver != NULL);

    veludpserver->callback = callback;
    veludpserver->context = context;
}

vel_error_t vel_udpserver_start(veludpserver *veludpserver)
{
    VEL_ASSERT(veludpserver != NULL);

    return vel_servercore_start<vel_udpserver_twin>(veludpserver);
}

void vel_udpserver_stop(veludpserver *veludpserver)
{
    VEL_ASSERT(veludpserver != NULL);

    vel_servercore_stop<vel_udpserver_twin>(veludpserver);
}

void vel_udpserver_wait(veludpserver *veludpserver)
{
    VEL_ASSERT(veludpserver != NULL);

    if (veludpserver->acceptthread) {
        int ret = vel_thread_join(veludpserver->acceptthread, nullptr);
        VEL_ASSERT(ret == 0);
    }
}

vel_error_t vel_udpserver_run(veludpserver *veludpserver)
{
    VEL_ASSERT(veludpserver != NULL);

    return vel_servercore_run<vel_udpserver_twin>(veludpserver);
}

vel_error_t vel_udpserver_get_port(veludpserver *veludpserver, unsigned int *portptr)
{
    VEL_ASSERT(veludpserver != NULL);
    VEL_ASSERT(portptr != NULL);

    return vel_servercore_get_port<vel_udpserver_twin>(veludpserver, portptr);
}
