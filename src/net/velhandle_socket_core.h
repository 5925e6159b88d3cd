#ifndef VELLIB_NET_VELHANDLE_SOCKET_CORE_H
#define VELLIB_NET_VELHANDLE_SOCKET_CORE_H

/* The transport that TCP and UDP handles share: from the callbacks of a handle to a socket, from
 * the socket's result and code to the handle's count and error, and the timeouts that live in the
 * handle. The assertions on arguments stand in the callbacks themselves, which call in here.
 *
 * A twin is a struct of facts:
 *   module           the path of the module, for the log
 *   lower, upper     the protocol as the texts of the log write it
 *   create_socket    creates a socket to listen with
 *   connect_socket   creates a socket and begins to connect it, and checks the code that comes with
 *                    the socket
 *   read_error       gives the code of a read that failed, from what the socket says
 *   begin_listening  does what must be done after the bind
 *   set_callbacks    sets the callbacks that every handle has
 *   accept_callback  the callback that only a listening handle has */

#include <stddef.h>

#include <vellib/velerror.h>
#include <vellib/velhandle.h>
#include <vellib/velmalloc.h>
#include <vellib/velsocket.h>
#include <vellib/veltimeout.h>

#include "net/velsocket_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

/* The context of the handle. */
struct velhandle_socket {
    struct velsocket *velsocket; /* owned; NULL until connected or listening */
};

/* The context, or NULL. */
static inline velhandle_socket *vel_handlecore_context(velhandle *velhandle)
{
    return static_cast<velhandle_socket *>(vel_handle_get_context(velhandle));
}

static inline void vel_handlecore_destroy(velhandle_socket *context)
{
    if (context->velsocket)
        vel_socket_destroy(context->velsocket);
    vel_free(context);
}

template <typename Twin> static velhandle *vel_handlecore_create()
{
    velhandle *velhandle = vel_handle_create();
    if (!velhandle) {
        VEL_LOG_IN(Twin::module, 7, "unable to create an velhandle");
        return nullptr;
    }
    void *context = vel_cmalloc(sizeof(velhandle_socket));
    if (!context) {
        VEL_LOG_IN(Twin::module, 7, "not enough memory for %s handle", Twin::upper);
        vel_handle_destroy(velhandle);
        return nullptr;
    }
    vel_handle_set_context(velhandle, context);
    Twin::set_callbacks(velhandle);
    return velhandle;
}

template <typename Twin>
static vel_error_t vel_handlecore_begin_connect(velhandle_socket *context, const char *name,
                                                unsigned int port)
{
    if (context->velsocket) {
        VEL_LOG_IN(Twin::module, 7, "this handle is already connected");
        return VEL_ERROR_BUSY;
    }
    vel_error_t velerror = VEL_ERROR_NONE;
    context->velsocket = Twin::connect_socket(name, port, &velerror);
    if (!context->velsocket) {
        VEL_LOG_IN(Twin::module, 7, "failed to connect %s %s port %u, error %d (%s)", name,
                   Twin::lower, port, velerror, vel_error_string(velerror));
        VEL_ASSERT(velerror != VEL_ERROR_NONE);
    }
    return velerror;
}

/* Waits for the connect within the write timeout, which is the only limit a connect has. */
template <typename Twin>
static vel_error_t vel_handlecore_wait_connect(velhandle *velhandle, velsocket *velsocket)
{
    veltimeout *veltimeout = vel_timeout_create();
    if (!veltimeout) {
        VEL_LOG_IN(Twin::module, 7, "unable to create timeout context");
        return VEL_ERROR_NO_MEMORY;
    }
    int seconds = 0;
    unsigned int microseconds = 0;
    vel_handle_get_write_timeout(velhandle, &seconds, &microseconds);
    vel_timeout_set(veltimeout, seconds, microseconds);

    vel_error_t velerror = vel_socket_connect_wait(velsocket, seconds, microseconds);
    while (velerror == VEL_ERROR_IN_PROGRESS) {
        if (vel_timeout_check(veltimeout, &seconds, &microseconds) == 1) {
            VEL_LOG_IN(Twin::module, 13, "velhandle connect timed out");
            velerror = VEL_ERROR_TIMED_OUT;
        } else {
            velerror = vel_socket_connect_wait(velsocket, seconds, microseconds);
        }
    }
    vel_timeout_destroy(veltimeout);
    return velerror;
}

/* Whether the handle has its context still. The socket in it is not looked at: to use a handle
 * before it is connected is a bug of the caller, on which the socket layer aborts. */
template <typename Twin> static bool vel_handlecore_is_connected(velhandle_socket *context)
{
    if (context)
        return true;
    VEL_LOG_IN(Twin::module, 7, "this handle is not connected");
    return false;
}

template <typename Twin>
static size_t vel_handlecore_read(velhandle *velhandle, void *buf, size_t count)
{
    velhandle_socket *context = vel_handlecore_context(velhandle);
    if (!vel_handlecore_is_connected<Twin>(context)) {
        vel_handle_set_error(velhandle, VEL_ERROR_INVALID_ARGUMENT);
        return 0;
    }
    int seconds = 0;
    unsigned int microseconds = 0;
    vel_handle_get_read_timeout(velhandle, &seconds, &microseconds);
    size_t result =
        vel_socket_read_with_timeout(context->velsocket, buf, count, seconds, microseconds);
    if (result > 0)
        return result;

    vel_error_t velerror = Twin::read_error(context->velsocket->readerror);
    vel_handle_set_error(velhandle, velerror);
    if (velerror != VEL_ERROR_END_OF_FILE && velerror != VEL_ERROR_TIMED_OUT) {
        VEL_LOG_IN(Twin::module, velerror == VEL_ERROR_INTERRUPTED ? 13 : 7,
                   "unable to read from %s socket, error %d (%s)", Twin::lower, velerror,
                   vel_error_string(velerror));
    }
    return 0;
}

template <typename Twin>
static size_t vel_handlecore_write(velhandle *velhandle, const void *buf, size_t count)
{
    velhandle_socket *context = vel_handlecore_context(velhandle);
    if (!vel_handlecore_is_connected<Twin>(context)) {
        vel_handle_set_error(velhandle, VEL_ERROR_INVALID_ARGUMENT);
        return 0;
    }
    size_t result = vel_socket_write(context->velsocket, buf, count);
    if (result > 0)
        return result;

    vel_error_t velerror = context->velsocket->writeerror;
    if (velerror != VEL_ERROR_WOULD_BLOCK) {
        VEL_LOG_IN(Twin::module, 7, "unable to write to %s socket, error %d (%s)", Twin::lower,
                   velerror, vel_error_string(velerror));
    }
    vel_handle_set_error(velhandle, velerror);
    return 0;
}

template <typename Twin> static vel_error_t vel_handlecore_poll_write(velhandle *velhandle)
{
    velhandle_socket *context = vel_handlecore_context(velhandle);
    if (!vel_handlecore_is_connected<Twin>(context))
        return VEL_ERROR_INVALID_ARGUMENT;
    int seconds = 0;
    unsigned int microseconds = 0;
    vel_handle_get_write_timeout(velhandle, &seconds, &microseconds);
    return vel_socket_poll_write(context->velsocket, seconds, microseconds);
}

template <typename Twin>
static vel_error_t vel_handlecore_local_port(velsocket *velsocket, unsigned int *portptr)
{
    vel_error_t velerror = vel_socket_get_local_port(velsocket, portptr);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG_IN(Twin::module, 7,
                   "unable to fetch the local %s port number from the socket, error %d (%s)",
                   Twin::upper, velerror, vel_error_string(velerror));
    }
    return velerror;
}

template <typename Twin> static vel_error_t vel_handlecore_wakeup(velsocket *velsocket)
{
    vel_error_t velerror = vel_socket_wakeup(velsocket);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG_IN(Twin::module, 7, "socket wakeup returned %d (%s)", velerror,
                   vel_error_string(velerror));
    }
    return velerror;
}

/* Accepts a connection, after a wait that listens to the wakeup pipe. */
template <typename Twin>
static vel_error_t vel_handlecore_accept(velhandle *listenhandle, velsocket *listensocket,
                                         velhandle **connectionhandleptr)
{
    int seconds = 0;
    unsigned int microseconds = 0;
    *connectionhandleptr = nullptr;
    vel_handle_get_read_timeout(listenhandle, &seconds, &microseconds);
    vel_error_t velerror = vel_socket_poll_read(listensocket, seconds, microseconds);
    if (velerror == VEL_ERROR_WAKEUP || velerror == VEL_ERROR_TIMED_OUT)
        return velerror;
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG_IN(Twin::module, 7, "unable to accept %s socket, error %d (%s)", Twin::lower,
                   velerror, vel_error_string(velerror));
        return velerror;
    }
    velsocket *connectionsocket = nullptr;
    velerror = vel_socket_accept(listensocket, &connectionsocket);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG_IN(Twin::module, 7, "socket accept returned %d (%s)", velerror,
                   vel_error_string(velerror));
        return velerror;
    }
    velhandle *connectionhandle = vel_handlecore_create<Twin>();
    if (!connectionhandle) {
        VEL_LOG_IN(Twin::module, 7, "unable to create a client %s handle", Twin::upper);
        vel_socket_destroy(connectionsocket);
        return VEL_ERROR_NO_MEMORY;
    }
    vel_handlecore_context(connectionhandle)->velsocket = connectionsocket;
    *connectionhandleptr = connectionhandle;
    return VEL_ERROR_NONE;
}

template <typename Twin>
static velhandle *vel_handlecore_connect(const char *name, unsigned int port)
{
    velhandle *velhandle = vel_handlecore_create<Twin>();
    if (!velhandle) {
        VEL_LOG_IN(Twin::module, 7, "unable to create an velhandle");
        return nullptr;
    }
    vel_error_t velerror = vel_handle_connect(velhandle, name, port);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG_IN(Twin::module, 7, "unable to connect, velerror %d (%s)", velerror,
                   vel_error_string(velerror));
        vel_handle_destroy(velhandle);
        return nullptr;
    }
    return velhandle;
}

/* Makes a new handle a listening one. */
template <typename Twin>
static vel_error_t vel_handlecore_open_listener(velhandle *velhandle, const char *address,
                                                unsigned int port)
{
    velsocket *velsocket = Twin::create_socket();
    if (!velsocket) {
        VEL_LOG_IN(Twin::module, 7, "unable to create a %s socket", Twin::upper);
        return VEL_ERROR_GENERIC;
    }
    vel_handlecore_context(velhandle)->velsocket = velsocket;

    vel_error_t velerror = vel_socket_bind(velsocket, address, port);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG_IN(Twin::module, 7, "unable to bind the %s socket to %s port %u, error %d (%s)",
                   Twin::upper, address, port, velerror, vel_error_string(velerror));
        return velerror;
    }
    velerror = Twin::begin_listening(velsocket);
    if (velerror == VEL_ERROR_NONE)
        vel_handle_set_accept_callback(velhandle, Twin::accept_callback);
    return velerror;
}

template <typename Twin>
static vel_error_t vel_handlecore_listen(const char *address, unsigned int port,
                                         velhandle **listenhandleptr)
{
    *listenhandleptr = nullptr;
    velhandle *velhandle = vel_handlecore_create<Twin>();
    if (!velhandle) {
        VEL_LOG_IN(Twin::module, 7, "unable to create an velhandle");
        return VEL_ERROR_NO_MEMORY;
    }
    vel_error_t velerror =
        vel_handlecore_open_listener<Twin>(velhandle, address ? address : "0.0.0.0", port);
    if (velerror != VEL_ERROR_NONE) {
        vel_handle_destroy(velhandle);
        return velerror;
    }
    *listenhandleptr = velhandle;
    return VEL_ERROR_NONE;
}

#endif
