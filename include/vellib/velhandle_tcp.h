#ifndef VELLIB_VELHANDLE_TCP_H
#define VELLIB_VELHANDLE_TCP_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>
#include <vellib/velhandle.h>

/* velhandle_tcp: the TCP transport of a velhandle. A handle is connected once, for its life; there
 * is no other way to disconnect than vel_handle_destroy.
 *
 * Reading or writing a handle before it is connected aborts, and so does asking it for its port.
 * vel_handle_get_peer_name is not supported. vel_handle_wakeup works on a listening handle; on any
 * other it gives VEL_ERROR_WRITE. Connecting a handle a second time gives VEL_ERROR_BUSY.
 * Threads: as velhandle has it.
 * Note: a write to a connection that the peer has closed raises SIGPIPE, which ends a process that
 * has not called vel_signal_ignore_sigpipe or the like. */

VEL_DECLARATIONS_BEGIN

/* Creates a handle that is not connected, for vel_handle_connect or vel_handle_connect_begin.
 *
 * Returns the handle, for vel_handle_destroy, or NULL if there is not enough memory. */
VEL_API velhandle *vel_handle_tcp_create(void);

/* Connects to a host, without any limit of time.
 *
 * name  a host name or a numeric address.
 * port  1 to 65535.
 *
 * Returns the connected handle, for vel_handle_destroy, or NULL, with the reason only in the log.
 * Note: to have a limit or the reason, use vel_handle_tcp_create, vel_handle_set_write_timeout and
 * vel_handle_connect. The resolution of the name has no limit in any case. */
VEL_API velhandle *vel_handle_tcp_connect(const char *name, unsigned int port);

/* Listens for connections, for vel_handle_accept.
 *
 * address          a numeric address, IPv4 or IPv6, or NULL for all IPv4 addresses of the host.
 * port             0 to 65535; 0 takes a free one, which vel_handle_get_local_port tells.
 * listenhandleptr  receives the handle, for vel_handle_destroy.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_NO_MEMORY, VEL_ERROR_ADDRESS_IN_USE, VEL_ERROR_GENERIC or
 * another code of the bind; a failure is logged. */
VEL_API vel_error_t vel_handle_tcp_listen(const char *address, unsigned int port,
                                          velhandle **listenhandleptr);

VEL_DECLARATIONS_END

#endif
