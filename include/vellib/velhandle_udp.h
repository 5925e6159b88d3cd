#ifndef VELLIB_VELHANDLE_UDP_H
#define VELLIB_VELHANDLE_UDP_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>
#include <vellib/velhandle.h>

/* velhandle_udp: the UDP transport of a velhandle. A write sends one datagram and a read receives
 * one, of which it loses what does not fit. A connected handle sends to the address that it was
 * connected to, and a listening one to where the last datagram came from. On either,
 * vel_handle_get_peer_name tells where that was.
 *
 * Reading or writing a handle before it is connected or listens aborts, and so does asking it for
 * its port or peer. vel_handle_wakeup works on a listening handle; on any other it gives
 * VEL_ERROR_WRITE. Connecting a handle a second time gives VEL_ERROR_BUSY.
 * Threads: as velhandle has it.
 * Note: UDP destinations are IPv4; a name that has only IPv6 addresses cannot be connected to.
 * Note: an empty datagram reads as VEL_ERROR_END_OF_FILE. */

VEL_DECLARATIONS_BEGIN

/* Creates a handle that is not connected, for vel_handle_connect.
 *
 * Returns the handle, for vel_handle_destroy, or NULL if there is not enough memory. */
VEL_API velhandle *vel_handle_udp_create(void);

/* Creates a handle that sends to a host. Nothing is sent, so an unreachable host is noticed only
 * by a later write.
 *
 * name  a host name or a numeric address. "255.255.255.255" enables broadcast at once, any other
 *       broadcast address at the first write.
 * port  1 to 65535.
 *
 * Returns the handle, for vel_handle_destroy, or NULL, with the reason only in the log. */
VEL_API velhandle *vel_handle_udp_connect(const char *name, unsigned int port);

/* Creates a handle that receives datagrams at an address, by vel_handle_read.
 *
 * address          a numeric IPv4 address, or NULL for all IPv4 addresses of the host.
 * port             0 to 65535; 0 takes a free one, which vel_handle_get_local_port tells.
 * listenhandleptr  receives the handle, for vel_handle_destroy.
 *
 * Returns VEL_ERROR_NONE, VEL_ERROR_NO_MEMORY, VEL_ERROR_ADDRESS_IN_USE, VEL_ERROR_GENERIC or
 * another code of the bind; a failure is logged.
 * Note: a numeric IPv6 address gives a handle on a TCP socket, which receives nothing.
 * Note: vel_handle_accept waits for a datagram and then fails with VEL_ERROR_GENERIC, leaving the
 * datagram where it is. */
VEL_API vel_error_t vel_handle_udp_listen(const char *address, unsigned int port,
                                          velhandle **listenhandleptr);

VEL_DECLARATIONS_END

#endif
