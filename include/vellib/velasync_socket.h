#ifndef VELLIB_VELASYNC_SOCKET_H
#define VELLIB_VELASYNC_SOCKET_H

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* The event loop of velasync.h. */
typedef struct velasync velasync;

/* velasync_socket: which functions an event loop calls for which descriptors. A part of velasync,
 * which a host need not use: the functions of velasync.h are these with two arguments less.
 *
 * Everywhere velasync is the loop, eventhandle its native handle, and s a descriptor that is not
 * negative.
 *
 * Threads: one at a time. */
typedef struct velasyncsocket velasyncsocket;

/* Serves a descriptor that is ready. It is called again, in later passes, for as long as the
 * descriptor stays ready and registered. It may register and unregister any descriptor, and close
 * its own after that. */
typedef void vel_async_socket_cb(void *context);

VEL_DECLARATIONS_BEGIN

/* Creates an object without descriptors.
 *
 * Returns the object, for vel_async_socket_destroy, or NULL, logged, if there is not enough
 * memory. */
VEL_API velasyncsocket *vel_async_socket_create(void);

/* Destroys an object. Descriptors that are registered stay in the event queue of the loop. */
VEL_API void vel_async_socket_destroy(velasyncsocket *velasyncsocket);

/* Registers a descriptor for reading; in place of the callback and context, if it is registered for
 * that already.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_NO_MEMORY; or VEL_ERROR_GENERIC if the platform refuses the
 * descriptor, which counts as registered all the same. A failure is logged. */
VEL_API vel_error_t vel_async_socket_register_read(velasync *velasync,
                                                   velasyncsocket *velasyncsocket, int eventhandle,
                                                   int s, vel_async_socket_cb *callback,
                                                   void *context);

/* Registers a descriptor for writing, in the way of vel_async_socket_register_read. */
VEL_API vel_error_t vel_async_socket_register_write(velasync *velasync,
                                                    velasyncsocket *velasyncsocket, int eventhandle,
                                                    int s, vel_async_socket_cb *callback,
                                                    void *context);

/* Ends the registration of a descriptor for reading.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_NOT_FOUND if there was none; or VEL_ERROR_GENERIC, with the
 * registration ended, if the platform knows of none, as when the descriptor was closed before. A
 * failure is logged. */
VEL_API vel_error_t vel_async_socket_unregister_read(velasync *velasync,
                                                     velasyncsocket *velasyncsocket,
                                                     int eventhandle, int s);

/* Ends the registration of a descriptor for writing, in the way of vel_async_socket_unregister_read.
 * Note: where the descriptor is registered for reading too, the event queue is told to end the
 * reading instead: the read callback is called no more, and each time the descriptor is ready for
 * writing a line is logged at level 6. Unregister reading first, and register it again. */
VEL_API vel_error_t vel_async_socket_unregister_write(velasync *velasync,
                                                      velasyncsocket *velasyncsocket,
                                                      int eventhandle, int s);

/* Calls the read callback of a descriptor.
 *
 * Returns VEL_ERROR_NONE; VEL_ERROR_NOT_FOUND if the descriptor is not registered; or
 * VEL_ERROR_BAD_HANDLE if it is registered for writing only. A failure is logged. */
VEL_API vel_error_t vel_async_socket_process_read(velasyncsocket *velasyncsocket, int s);

/* Calls the write callback of a descriptor, in the way of vel_async_socket_process_read. */
VEL_API vel_error_t vel_async_socket_process_write(velasyncsocket *velasyncsocket, int s);

/* Returns 1 if any descriptor is registered, and 0 otherwise. */
VEL_API int vel_async_socket_check(velasyncsocket *velasyncsocket);

VEL_DECLARATIONS_END

#endif
