#ifndef VELLIB_VELADDRINFO_H
#define VELLIB_VELADDRINFO_H

#include <sys/socket.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* veladdrinfo: the addresses of one host name, in the order in which the platform's resolver gives
 * them. The resolver is asked by the first vel_addrinfo_get_next and not at creation, so that the
 * switches can be set before; without them the addresses are for TCP. No service is resolved:
 * every address comes with port 0, and the caller writes the port into it.
 * Threads: one at a time. */
typedef struct veladdrinfo veladdrinfo;

VEL_DECLARATIONS_BEGIN

/* Creates the list of a host's addresses. Nothing is looked up yet.
 *
 * hostname  a name or a numeric address, copied.
 *
 * Returns the list, for vel_addrinfo_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API veladdrinfo *vel_addrinfo_create(const char *hostname);

/* Destroys the list and with it every address that it has handed out. */
VEL_API void vel_addrinfo_destroy(veladdrinfo *veladdrinfo);

/* Asks for addresses of UDP sockets. There is no way back, and after the lookup it has no effect. */
VEL_API void vel_addrinfo_set_udp(veladdrinfo *veladdrinfo);

/* Takes the host name for a numeric address, so that no name is looked up. There is no way back,
 * and after the lookup it has no effect. */
VEL_API void vel_addrinfo_set_numerichost(veladdrinfo *veladdrinfo);

/* Hands out the next address, after the lookup if this is the first call.
 *
 * sockaddrptr  receives the address. It stays the list's until vel_addrinfo_destroy, and may be
 *              written to.
 * socklenptr   receives its length in bytes.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_END_OF_FILE past the last address, as often as asked; or the
 * reason for which the lookup failed, which is logged: VEL_ERROR_HOST_UNRESOLVED for an unknown
 * name, VEL_ERROR_INVALID_SYNTAX for a name that is not numeric but should be,
 * VEL_ERROR_TEMPORARY_FAILURE, VEL_ERROR_PERMANENT_FAILURE, VEL_ERROR_NOT_FOUND (a name without
 * addresses), VEL_ERROR_NO_ADDRESSES_IN_FAMILY, VEL_ERROR_UNSUPPORTED,
 * VEL_ERROR_INVALID_ARGUMENT, VEL_ERROR_NO_MEMORY or VEL_ERROR_GENERIC. After a failed lookup the
 * next call looks up anew.
 * Note: the lookup blocks for as long as the resolver takes; no timeout bounds it. */
VEL_API vel_error_t vel_addrinfo_get_next(veladdrinfo *veladdrinfo, struct sockaddr **sockaddrptr,
                                          socklen_t *socklenptr);

VEL_DECLARATIONS_END

#endif
