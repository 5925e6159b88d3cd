#include <vellib/velasync.h>

#include <cerrno>
#include <cstdint>

#include <vellib/velmalloc.h>

#include "async/velasync_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "async/velasync"

/* Makes the members in order. On false the caller destroys what there is. */
static bool vel_async_build(velasync *velasync)
{
    if (vel_eventqueue_create(&velasync->eventqueue) != 0) {
        const int platformerrno = errno;
        VEL_LOG(6, "kqueue() failed, errno %d", platformerrno);
        return false;
    }
    velasync->operations = vel_async_operations_create();
    if (!velasync->operations)
        return false;
    velasync->timeout = vel_async_timeout_create(velasync->operations);
    if (!velasync->timeout)
        return false;
    velasync->socket = vel_async_socket_create();
    return velasync->socket != nullptr;
}

velasync *vel_async_create(void)
{
    auto *velasync = static_cast<struct velasync *>(vel_cmalloc(sizeof(struct velasync)));
    if (!velasync) {
        VEL_LOG(7, "not enough memory for velasync context");
        return nullptr;
    }
    if (!vel_async_build(velasync)) {
        vel_async_destroy(velasync);
        return nullptr;
    }
    return velasync;
}

void vel_async_destroy(velasync *velasync)
{
    VEL_ASSERT(velasync != NULL);

    if (velasync->socket)
        vel_async_socket_destroy(velasync->socket);
    velasync->socket = nullptr; /* the callbacks of timeouts still to come meet no freed memory */
    if (velasync->timeout)
        vel_async_timeout_destroy(velasync->timeout);
    if (velasync->operations)
        vel_async_operations_destroy(velasync->operations);
    vel_eventqueue_destroy(&velasync->eventqueue);
    vel_free(velasync);
}

int vel_async_get_native_handle(velasync *velasync)
{
    VEL_ASSERT(velasync != NULL);

    return vel_eventqueue_handle(&velasync->eventqueue);
}

velasyncop *vel_async_register_timeout_ms(velasync *velasync, unsigned int milliseconds,
                                          vel_async_timeout_cb *callback, void *context)
{
    VEL_ASSERT(velasync != NULL);
    VEL_ASSERT(callback != NULL);

    return vel_async_timeout_add_us(velasync->timeout, static_cast<int>(milliseconds / 1000),
                                    milliseconds % 1000 * 1000, callback, context);
}

vel_error_t vel_async_register_socket_read(velasync *velasync, int s, vel_async_socket_cb *callback,
                                           void *context)
{
    VEL_ASSERT(velasync != NULL);
    VEL_ASSERT(s >= 0);
    VEL_ASSERT(callback != NULL);

    return vel_async_socket_register_read(velasync, velasync->socket,
                                          velasync->eventqueue.descriptor, s, callback, context);
}

vel_error_t vel_async_register_socket_write(velasync *velasync, int s,
                                            vel_async_socket_cb *callback, void *context)
{
    VEL_ASSERT(velasync != NULL);
    VEL_ASSERT(s >= 0);
    VEL_ASSERT(callback != NULL);

    return vel_async_socket_register_write(velasync, velasync->socket,
                                           velasync->eventqueue.descriptor, s, callback, context);
}

vel_error_t vel_async_unregister_socket_read(velasync *velasync, int s)
{
    VEL_ASSERT(velasync != NULL);
    VEL_ASSERT(s >= 0);

    return vel_async_socket_unregister_read(velasync, velasync->socket,
                                            velasync->eventqueue.descriptor, s);
}

vel_error_t vel_async_unregister_socket_write(velasync *velasync, int s)
{
    VEL_ASSERT(velasync != NULL);
    VEL_ASSERT(s >= 0);

    return vel_async_socket_unregister_write(velasync, velasync->socket,
                                             velasync->eventqueue.descriptor, s);
}

int vel_async_get_timeout_ms(velasync *velasync)
{
    VEL_ASSERT(velasync != NULL);

    int seconds;
    unsigned int microseconds;
    vel_async_timeout_get_us(velasync->timeout, &seconds, &microseconds);
    if (seconds == -1)
        return -1;
    VEL_ASSERT(seconds >= 0);
    const unsigned int ms = (microseconds + 999) / 1000;
    VEL_ASSERT(ms <= 1000);
    /* A time that is too long is to be seen as such below, and not to be undefined. */
    const int result = static_cast<int>(1000 * static_cast<unsigned int>(seconds) + ms);
    VEL_ASSERT(result >= 0);
    return result;
}

/* The event stays in the queue, for vel_async_process. */
void vel_async_poll(velasync *velasync)
{
    VEL_ASSERT(velasync != NULL);

    int64_t value = vel_async_get_timeout_ms(velasync); /* -1 stays negative below */
    if (value < 0 && velasync->watchedcount == 0)
        value = 0; /* whatever the queue thinks of descriptors that were closed */
    struct timespec time;
    time.tv_sec = static_cast<time_t>(value / 1000);
    time.tv_nsec = static_cast<long>(value % 1000 * 1000000);
    const int count = vel_eventqueue_wait(&velasync->eventqueue, &time);
    VEL_LOG(1, "kevent() returned %d events", count);
}

static void vel_async_process_canceled(velasync *velasync)
{
    vel_error_t velerror = vel_async_operations_process_canceled(velasync->operations);
    if (velerror != VEL_ERROR_NONE)
        VEL_LOG(7, "processing canceled operations failed, error %d (%s)", velerror,
                vel_error_string(velerror));
}

/* Serves one event. What fails is logged and stops nothing. */
static void vel_async_process_eventhandle(velasync *velasync)
{
    VEL_LOG(13, "vel_async_process_eventhandle()");
    vel_event event;
    const int count = vel_eventqueue_fetch(&velasync->eventqueue, &event);
    if (count < 0) {
        const int platformerrno = errno;
        VEL_LOG(6, "kevent() failed, errno %d", platformerrno);
        return;
    }
    if (count == 0) {
        VEL_LOG(13, "vel_async_process_eventhandle(): nothing to process");
        return;
    }
    const auto ident = static_cast<unsigned long>(event.descriptor);
    VEL_LOG(1, "kevent() returned %d descriptors", count);
    VEL_LOG(1, "vel_async_process_eventhandle(): ident %lu is ready", ident);
    VEL_ASSERT(ident <= 0x7fffffff);
    switch (event.filter) {
    case VEL_EVENTFILTER_READ:
        (void)vel_async_socket_process_read(velasync->socket, event.descriptor);
        return;
    case VEL_EVENTFILTER_WRITE:
        (void)vel_async_socket_process_write(velasync->socket, event.descriptor);
        return;
    default:
        VEL_UNREACHABLE();
    }
}

vel_error_t vel_async_process(velasync *velasync)
{
    VEL_ASSERT(velasync != NULL);

    vel_async_process_canceled(velasync);
    vel_async_process_eventhandle(velasync);
    vel_async_process_canceled(velasync);
    vel_error_t velerror = vel_async_timeout_process(velasync->timeout);
    if (velerror != VEL_ERROR_NONE && velerror != VEL_ERROR_INCOMPLETE)
        VEL_LOG(7, "processing timeouts failed, error %d (%s)", velerror,
                vel_error_string(velerror));
    vel_async_process_canceled(velasync);

    if (vel_async_socket_check(velasync->socket) || vel_async_get_timeout_ms(velasync) != -1)
        return VEL_ERROR_INCOMPLETE;
    return VEL_ERROR_NONE;
}

void vel_async_cancel(velasync *velasync, velasyncop *velasyncop)
{
    VEL_ASSERT(velasync);
    VEL_ASSERT(velasyncop);

    vel_async_operations_cancel(velasync->operations, velasyncop);
}
