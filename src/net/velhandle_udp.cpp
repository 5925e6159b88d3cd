#include <vellib/velhandle_udp.h>

#include <cstring>

#include "net/velhandle_socket_core.h"

#define VEL_MODULE "net/velhandle_udp"

static vel_handle_accept_cb vel_handle_udp_accept_callback;

struct vel_handle_udp_twin {
    static constexpr const char *module = VEL_MODULE;
    static constexpr const char *lower = "udp";
    static constexpr const char *upper = "UDP";
    static constexpr auto create_socket = vel_socket_udp_create;
    static constexpr auto accept_callback = vel_handle_udp_accept_callback;

    static velsocket *connect_socket(const char *name, unsigned int port, vel_error_t *velerrorptr);
    static vel_error_t read_error(vel_error_t velerror);
    static vel_error_t begin_listening(velsocket *velsocket);
    static void set_callbacks(velhandle *velhandle);
};

velsocket *vel_handle_udp_twin::connect_socket(const char *name, unsigned int port,
                                               vel_error_t *velerrorptr)
{
    velsocket *velsocket = vel_socket_udp_connect(name, port, velerrorptr);
    if (!velsocket)
        return nullptr;
    VEL_ASSERT(*velerrorptr == VEL_ERROR_NONE);
    /* A write finds every other broadcast address by itself. */
    if (strcmp(name, "255.255.255.255") == 0)
        (void)vel_socket_enable_broadcast(velsocket);
    return velsocket;
}

/* An empty datagram has a code of its own, and no test is made that there is one. */
vel_error_t vel_handle_udp_twin::read_error(vel_error_t velerror)
{
    return velerror;
}

/* The bind has made the wakeup pipe already, and datagrams need no more. */
vel_error_t vel_handle_udp_twin::begin_listening(velsocket *)
{
    return VEL_ERROR_NONE;
}

static void vel_handle_udp_destroy(velhandle_socket *udp)
{
    VEL_ASSERT(udp != NULL);

    vel_handlecore_destroy(udp);
}

static void vel_handle_udp_destroy_callback(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);

    vel_handle_udp_destroy(vel_handlecore_context(velhandle));
}

static vel_error_t vel_handle_udp_connect_callback(velhandle *velhandle, const char *name,
                                                   unsigned int port)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);
    velhandle_socket *udp = vel_handlecore_context(velhandle);
    VEL_ASSERT(udp != NULL);

    return vel_handlecore_begin_connect<vel_handle_udp_twin>(udp, name, port);
}

static vel_error_t vel_handle_udp_connect_wait_callback(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);
    velhandle_socket *udp = vel_handlecore_context(velhandle);
    VEL_ASSERT(udp != NULL);

    return vel_handlecore_wait_connect<vel_handle_udp_twin>(velhandle, udp->velsocket);
}

static size_t vel_handle_udp_read_callback(velhandle *velhandle, void *buf, size_t count)
{
    VEL_ASSERT(velhandle != NULL);

    return vel_handlecore_read<vel_handle_udp_twin>(velhandle, buf, count);
}

static size_t vel_handle_udp_write_callback(velhandle *velhandle, const void *buf, size_t count)
{
    VEL_ASSERT(velhandle != NULL);

    return vel_handlecore_write<vel_handle_udp_twin>(velhandle, buf, count);
}

static vel_error_t vel_handle_udp_poll_write_callback(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);

    return vel_handlecore_poll_write<vel_handle_udp_twin>(velhandle);
}

static vel_error_t vel_handle_udp_local_port_callback(velhandle *velhandle, unsigned int *portptr)
{
    VEL_ASSERT(velhandle != NULL);
    velhandle_socket *udp = vel_handlecore_context(velhandle);
    VEL_ASSERT(udp != NULL);

    return vel_handlecore_local_port<vel_handle_udp_twin>(udp->velsocket, portptr);
}

/* The source of the last datagram. */
static vel_error_t vel_handle_udp_peer_name_callback(velhandle *velhandle,
                                                     struct sockaddr *sockaddr, size_t *salenptr)
{
    VEL_ASSERT(velhandle != NULL);
    velhandle_socket *udp = vel_handlecore_context(velhandle);
    VEL_ASSERT(udp != NULL);

    vel_error_t velerror = vel_socket_get_peer_name(udp->velsocket, sockaddr, salenptr);
    if (velerror != VEL_ERROR_NONE) {
        VEL_LOG(7, "unable to fetch the remote peer name from the socket, error %d (%s)", velerror,
                vel_error_string(velerror));
    }
    return velerror;
}

static vel_error_t vel_handle_udp_wakeup_callback(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);
    velhandle_socket *udp = vel_handlecore_context(velhandle);
    VEL_ASSERT(udp != NULL);

    return vel_handlecore_wakeup<vel_handle_udp_twin>(udp->velsocket);
}

static vel_error_t vel_handle_udp_accept_callback(velhandle *velhandle,
                                                  struct velhandle **connectionhandleptr)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(connectionhandleptr != NULL);
    velhandle_socket *udp = vel_handlecore_context(velhandle);
    VEL_ASSERT(udp != NULL);

    return vel_handlecore_accept<vel_handle_udp_twin>(velhandle, udp->velsocket,
                                                      connectionhandleptr);
}

void vel_handle_udp_twin::set_callbacks(velhandle *velhandle)
{
    vel_handle_set_destroy_callback(velhandle, vel_handle_udp_destroy_callback);
    vel_handle_set_connect_callback(velhandle, vel_handle_udp_connect_callback);
    vel_handle_set_connect_wait_callback(velhandle, vel_handle_udp_connect_wait_callback);
    vel_handle_set_read_callback(velhandle, vel_handle_udp_read_callback);
    vel_handle_set_write_callback(velhandle, vel_handle_udp_write_callback);
    vel_handle_set_poll_write_callback(velhandle, vel_handle_udp_poll_write_callback);
    vel_handle_set_local_port_callback(velhandle, vel_handle_udp_local_port_callback);
    vel_handle_set_peer_name_callback(velhandle, vel_handle_udp_peer_name_callback);
    vel_handle_set_wakeup_callback(velhandle, vel_handle_udp_wakeup_callback);
}

velhandle *vel_handle_udp_create(void)
{
    return vel_handlecore_create<vel_handle_udp_twin>();
}

velhandle *vel_handle_udp_connect(const char *name, unsigned int port)
{
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);

    return vel_handlecore_connect<vel_handle_udp_twin>(name, port);
}

vel_error_t vel_handle_udp_listen(const char *address, unsigned int port,
                                  velhandle **listenhandleptr)
{
    VEL_ASSERT(port <= 65535);
    VEL_ASSERT(listenhandleptr != NULL);

    return vel_handlecore_listen<vel_handle_udp_twin>(address, port, listenhandleptr);
}
