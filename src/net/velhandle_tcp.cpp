#include <vellib/velhandle_tcp.h>

#include "net/velhandle_socket_core.h"

#define VEL_MODULE "net/velhandle_tcp"

static vel_handle_accept_cb vel_handle_tcp_accept_callback;

struct vel_handle_tcp_twin {
    static constexpr const char *module = VEL_MODULE;
    static constexpr const char *lower = "tcp";
    static constexpr const char *upper = "TCP";
    static constexpr auto create_socket = vel_socket_tcp_create;
    static constexpr auto accept_callback = vel_handle_tcp_accept_callback;

    static velsocket *connect_socket(const char *name, unsigned int port, vel_error_t *velerrorptr);
    static vel_error_t read_error(vel_error_t velerror);
    static vel_error_t begin_listening(velsocket *velsocket);
    static void set_callbacks(velhandle *velhandle);
};

velsocket *vel_handle_tcp_twin::connect_socket(const char *name, unsigned int port,
                                               vel_error_t *velerrorptr)
{
    velsocket *velsocket = vel_socket_tcp_connect_async(name, port, velerrorptr);
    VEL_ASSERT(!velsocket || *velerrorptr == VEL_ERROR_NONE ||
               *velerrorptr == VEL_ERROR_IN_PROGRESS);
    return velsocket;
}

vel_error_t vel_handle_tcp_twin::read_error(vel_error_t velerror)
{
    if (velerror != VEL_ERROR_NONE)
        return velerror;
    VEL_LOG(8, "ERROR: no data read from socket and no error set");
    return VEL_ERROR_INTERNAL;
}

vel_error_t vel_handle_tcp_twin::begin_listening(velsocket *velsocket)
{
    vel_error_t velerror = vel_socket_listen(velsocket, 10);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG(7, "unable to start listening to incoming TCP connections, error %d (%s)", velerror,
                vel_error_string(velerror));
    }
    return velerror;
}

static void vel_handle_tcp_destroy(velhandle_socket *tcp)
{
    VEL_ASSERT(tcp != NULL);

    vel_handlecore_destroy(tcp);
}

static void vel_handle_tcp_destroy_callback(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);

    vel_handle_tcp_destroy(vel_handlecore_context(velhandle));
}

static vel_error_t vel_handle_tcp_connect_callback(velhandle *velhandle, const char *name,
                                                   unsigned int port)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);
    velhandle_socket *tcp = vel_handlecore_context(velhandle);
    VEL_ASSERT(tcp != NULL);

    return vel_handlecore_begin_connect<vel_handle_tcp_twin>(tcp, name, port);
}

static vel_error_t vel_handle_tcp_connect_wait_callback(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);
    velhandle_socket *tcp = vel_handlecore_context(velhandle);
    VEL_ASSERT(tcp != NULL);

    return vel_handlecore_wait_connect<vel_handle_tcp_twin>(velhandle, tcp->velsocket);
}

static size_t vel_handle_tcp_read_callback(velhandle *velhandle, void *buf, size_t count)
{
    VEL_ASSERT(velhandle != NULL);

    return vel_handlecore_read<vel_handle_tcp_twin>(velhandle, buf, count);
}

static size_t vel_handle_tcp_write_callback(velhandle *velhandle, const void *buf, size_t count)
{
    VEL_ASSERT(velhandle != NULL);

    return vel_handlecore_write<vel_handle_tcp_twin>(velhandle, buf, count);
}

static vel_error_t vel_handle_tcp_poll_write_callback(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);

    return vel_handlecore_poll_write<vel_handle_tcp_twin>(velhandle);
}

static vel_error_t vel_handle_tcp_local_port_callback(velhandle *velhandle, unsigned int *portptr)
{
    VEL_ASSERT(velhandle != NULL);
    velhandle_socket *tcp = vel_handlecore_context(velhandle);
    VEL_ASSERT(tcp != NULL);

    return vel_handlecore_local_port<vel_handle_tcp_twin>(tcp->velsocket, portptr);
}

static vel_error_t vel_handle_tcp_wakeup_callback(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);
    velhandle_socket *tcp = vel_handlecore_context(velhandle);
    VEL_ASSERT(tcp != NULL);

    return vel_handlecore_wakeup<vel_handle_tcp_twin>(tcp->velsocket);
}

static vel_error_t vel_handle_tcp_accept_callback(velhandle *velhandle,
                                                  struct velhandle **connectionhandleptr)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(connectionhandleptr != NULL);
    velhandle_socket *tcp = vel_handlecore_context(velhandle);
    VEL_ASSERT(tcp != NULL);

    return vel_handlecore_accept<vel_handle_tcp_twin>(velhandle, tcp->velsocket,
                                                      connectionhandleptr);
}

void vel_handle_tcp_twin::set_callbacks(velhandle *velhandle)
{
    vel_handle_set_destroy_callback(velhandle, vel_handle_tcp_destroy_callback);
    vel_handle_set_connect_callback(velhandle, vel_handle_tcp_connect_callback);
    vel_handle_set_connect_wait_callback(velhandle, vel_handle_tcp_connect_wait_callback);
    vel_handle_set_read_callback(velhandle, vel_handle_tcp_read_callback);
    vel_handle_set_write_callback(velhandle, vel_handle_tcp_write_callback);
    vel_handle_set_poll_write_callback(velhandle, vel_handle_tcp_poll_write_callback);
    vel_handle_set_local_port_callback(velhandle, vel_handle_tcp_local_port_callback);
    vel_handle_set_wakeup_callback(velhandle, vel_handle_tcp_wakeup_callback);
}

velhandle *vel_handle_tcp_create(void)
{
    return vel_handlecore_create<vel_handle_tcp_twin>();
}

velhandle *vel_handle_tcp_connect(const char *name, unsigned int port)
{
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);

    return vel_handlecore_connect<vel_handle_tcp_twin>(name, port);
}

vel_error_t vel_handle_tcp_listen(const char *address, unsigned int port,
                                  velhandle **listenhandleptr)
{
    VEL_ASSERT(port <= 65535);
    VEL_ASSERT(listenhandleptr != NULL);

    return vel_handlecore_listen<vel_handle_tcp_twin>(address, port, listenhandleptr);
}
