/* One item for each descriptor, with a callback for each direction, in a hash table by descriptor. An
 * item exists while at least one of its callbacks is set. */
#include <vellib/velasync_socket.h>

#include <cerrno>

#include <vellib/velmalloc.h>

#include "async/velasync_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "async/velasync_socket"

struct velasyncsocketwatch {
    vel_async_socket_cb *callback; /* NULL if the direction is not registered */
    void *context;
    const velasync *watchedby; /* the loop that counts it as watched, or NULL */
};

struct velasyncsocketitem {
    velasyncsocketitem *next; /* in the same slot */
    int s;
    velasyncsocketwatch watches[VEL_EVENTFILTER_COUNT];
};

struct velasyncsocket {
    velasyncsocketitem **slots; /* owned */
    size_t slotcount;           /* a power of two */
    size_t itemcount;
};

static constexpr size_t vel_async_socket_minslots = 64;

/* What differs between reading and writing. */
struct vel_async_socket_direction {
    vel_eventfilter filter;
    const char *filtername;
    const char *verb;
    const char *gerund;
    /* What an unregister ends in the queue while the other direction stays registered. That it is
     * reading in both cases is part of the interface. */
    vel_eventfilter partialfilter;
    const char *partialname;
};

static constexpr vel_async_socket_direction vel_async_socket_read = {
    VEL_EVENTFILTER_READ, "EVFILT_READ", "read", "reading", VEL_EVENTFILTER_READ, "EVFILT_READ"};
static constexpr vel_async_socket_direction vel_async_socket_write = {
    VEL_EVENTFILTER_WRITE, "EVFILT_WRITE", "write", "writing", VEL_EVENTFILTER_READ, "EVFILT_READ"};

static velasyncsocketitem **vel_async_socket_slot(velasyncsocket *velasyncsocket, int s)
{
    return &velasyncsocket->slots[static_cast<size_t>(s) & (velasyncsocket->slotcount - 1)];
}

/* Returns where the link to the item stands, or the end of its slot, where the link is NULL. */
static velasyncsocketitem **vel_async_socket_find(velasyncsocket *velasyncsocket, int s)
{
    velasyncsocketitem **link = vel_async_socket_slot(velasyncsocket, s);
    while (*link && (*link)->s != s)
        link = &(*link)->next;
    return link;
}

static velasyncsocketitem *vel_async_socket_item_fetch(velasyncsocket *velasyncsocket, int s)
{
    VEL_ASSERT(velasyncsocket != NULL);

    return *vel_async_socket_find(velasyncsocket, s);
}

/* Doubles the slots. Without memory for that all stays as it is, and lookups become slower. */
static void vel_async_socket_grow(velasyncsocket *velasyncsocket)
{
    velasyncsocketitem **oldslots = velasyncsocket->slots;
    const size_t oldcount = velasyncsocket->slotcount;
    auto **slots =
        static_cast<velasyncsocketitem **>(vel_calloc(2 * oldcount, sizeof(velasyncsocketitem *)));
    if (!slots)
        return;
    velasyncsocket->slots = slots;
    velasyncsocket->slotcount = 2 * oldcount;
    for (size_t i = 0; i < oldcount; i++) {
        while (velasyncsocketitem *item = oldslots[i]) {
            velasyncsocketitem **slot = vel_async_socket_slot(velasyncsocket, item->s);
            oldslots[i] = item->next;
            item->next = *slot;
            *slot = item;
        }
    }
    vel_free(oldslots);
}

static velasyncsocketitem *vel_async_socket_item_create(int s)
{
    VEL_ASSERT(s >= 0);

    auto *item = static_cast<velasyncsocketitem *>(vel_cmalloc(sizeof(velasyncsocketitem)));
    if (item)
        item->s = s;
    return item;
}

/* Returns the item of a descriptor, a new one if there was none, or NULL. */
static velasyncsocketitem *vel_async_socket_item_obtain(velasyncsocket *velasyncsocket, int s)
{
    velasyncsocketitem *item = vel_async_socket_item_fetch(velasyncsocket, s);
    if (item)
        return item;
    item = vel_async_socket_item_create(s);
    if (!item)
        return nullptr;
    if (velasyncsocket->itemcount >= velasyncsocket->slotcount)
        vel_async_socket_grow(velasyncsocket);
    *vel_async_socket_find(velasyncsocket, s) = item;
    velasyncsocket->itemcount++;
    return item;
}

static void vel_async_socket_item_destroy(velasyncsocket *velasyncsocket, int s)
{
    velasyncsocketitem **link = vel_async_socket_find(velasyncsocket, s);
    velasyncsocketitem *item = *link;
    *link = item->next;
    vel_free(item);
    velasyncsocket->itemcount--;
}

velasyncsocket *vel_async_socket_create(void)
{
    auto *socket = static_cast<struct velasyncsocket *>(vel_cmalloc(sizeof(struct velasyncsocket)));
    if (!socket) {
        VEL_LOG(7, "not enough memory for velasync socket context");
        return nullptr;
    }
    socket->slots = static_cast<velasyncsocketitem **>(
        vel_calloc(vel_async_socket_minslots, sizeof(velasyncsocketitem *)));
    if (!socket->slots) {
        VEL_LOG(7, "not enough memory for velasync socket list");
        vel_async_socket_destroy(socket);
        return nullptr;
    }
    socket->slotcount = vel_async_socket_minslots;
    return socket;
}

void vel_async_socket_destroy(velasyncsocket *socket)
{
    VEL_ASSERT(socket != NULL);

    for (size_t i = 0; i < socket->slotcount; i++) {
        while (velasyncsocketitem *item = socket->slots[i]) {
            socket->slots[i] = item->next;
            vel_free(item);
        }
    }
    if (socket->slots)
        vel_free(socket->slots);
    vel_free(socket);
}

/* Tells the event queue of the loop. A handle that is not the loop's belongs to no queue. Returns 0,
 * or the errno. */
static int vel_async_socket_change(velasync *velasync, int eventhandle, int s,
                                   vel_eventfilter filter, bool add)
{
    int res = -1;
    if (eventhandle == velasync->eventqueue.descriptor)
        res = vel_eventqueue_change(&velasync->eventqueue, s, filter, add);
    else
        errno = EBADF;
    const int platformerrno = errno;
    VEL_LOG(1, "kevent() returned %d", res);
    if (res == -1)
        return platformerrno;
    VEL_ASSERT(res == 0);
    return 0;
}

/* The loop counts what is watched by itself: the queue cannot tell the end of a descriptor that was
 * closed before from the end of one that it never had. */
static void vel_async_socket_count_in(velasync *velasync, velasyncsocketwatch *watch)
{
    if (watch->watchedby == velasync)
        return;
    watch->watchedby = velasync;
    velasync->watchedcount++;
}

static void vel_async_socket_count_out(velasync *velasync, velasyncsocketwatch *watch)
{
    if (watch->watchedby != velasync)
        return;
    watch->watchedby = nullptr;
    velasync->watchedcount--;
}

static vel_error_t vel_async_socket_register(velasync *velasync, velasyncsocket *velasyncsocket,
                                             int eventhandle, int s,
                                             const vel_async_socket_direction &direction,
                                             vel_async_socket_cb *callback, void *context)
{
    velasyncsocketitem *item = vel_async_socket_item_obtain(velasyncsocket, s);
    if (!item) {
        VEL_LOG(7, "unable to create socket item");
        return VEL_ERROR_NO_MEMORY;
    }
    velasyncsocketwatch *watch = &item->watches[direction.filter];
    watch->callback = callback;
    watch->context = context;
    const int platformerrno =
        vel_async_socket_change(velasync, eventhandle, s, direction.filter, true);
    if (platformerrno == 0) {
        vel_async_socket_count_in(velasync, watch);
        return VEL_ERROR_NONE;
    }
    /* The callback stays, and the descriptor counts as registered. */
    VEL_LOG(6, "kevent() %s failed, errno %d", direction.filtername, platformerrno);
    return VEL_ERROR_GENERIC;
}

static vel_error_t vel_async_socket_unregister(velasync *velasync, velasyncsocket *velasyncsocket,
                                               int eventhandle, int s,
                                               const vel_async_socket_direction &direction)
{
    velasyncsocketitem *item = vel_async_socket_item_fetch(velasyncsocket, s);
    if (!item) {
        VEL_LOG(6, "socket %d was not registered", s);
        return VEL_ERROR_NOT_FOUND;
    }
    if (!item->watches[direction.filter].callback) {
        VEL_LOG(6, "socket %d was not registered for %s", s, direction.gerund);
        return VEL_ERROR_NOT_FOUND;
    }
    item->watches[direction.filter].callback = nullptr;
    item->watches[direction.filter].context = nullptr;
    const bool partial = item->watches[1 - direction.filter].callback != nullptr;
    const vel_eventfilter filter = partial ? direction.partialfilter : direction.filter;
    vel_async_socket_count_out(velasync, &item->watches[filter]);
    if (!partial) {
        /* The other one may stand in the queue still, but nobody waits for it. */
        vel_async_socket_count_out(velasync, &item->watches[1 - filter]);
        vel_async_socket_item_destroy(velasyncsocket, s);
    }
    const int platformerrno = vel_async_socket_change(velasync, eventhandle, s, filter, false);
    if (platformerrno == 0)
        return VEL_ERROR_NONE;
    VEL_LOG(6, "kevent() %s EV_DELETE failed, errno %d",
            partial ? direction.partialname : direction.filtername, platformerrno);
    return VEL_ERROR_GENERIC;
}

static vel_error_t vel_async_socket_process(velasyncsocket *velasyncsocket, int s,
                                            const vel_async_socket_direction &direction)
{
    const velasyncsocketitem *item = vel_async_socket_item_fetch(velasyncsocket, s);
    if (!item) {
        VEL_LOG(6, "processing %s on an unrecognized socket %d", direction.verb, s);
        return VEL_ERROR_NOT_FOUND;
    }
    const velasyncsocketwatch watch = item->watches[direction.filter];
    if (!watch.callback) {
        VEL_LOG(6, "no %s callback set for socket %d", direction.verb, s);
        return VEL_ERROR_BAD_HANDLE;
    }
    watch.callback(watch.context); /* which may end the item */
    return VEL_ERROR_NONE;
}

vel_error_t vel_async_socket_register_read(velasync *velasync, velasyncsocket *velasyncsocket,
                                           int eventhandle, int s, vel_async_socket_cb *callback,
                                           void *context)
{
    VEL_ASSERT(velasync != NULL);
    VEL_ASSERT(velasyncsocket != NULL);
    VEL_ASSERT(eventhandle >= 0);
    VEL_ASSERT(s >= 0);
    VEL_ASSERT(callback != NULL);

    return vel_async_socket_register(velasync, velasyncsocket, eventhandle, s,
                                     vel_async_socket_read, callback, context);
}

vel_error_t vel_async_socket_register_write(velasync *velasync, velasyncsocket *velasyncsocket,
                                            int eventhandle, int s, vel_async_socket_cb *callback,
                                            void *context)
{
    VEL_ASSERT(velasync != NULL);
    VEL_ASSERT(velasyncsocket != NULL);
    VEL_ASSERT(eventhandle >= 0);
    VEL_ASSERT(s >= 0);
    VEL_ASSERT(callback != NULL);

    return vel_async_socket_register(velasync, velasyncsocket, eventhandle, s,
                                     vel_async_socket_write, callback, context);
}

vel_error_t vel_async_socket_unregister_read(velasync *velasync, velasyncsocket *velasyncsocket,
                                             int eventhandle, int s)
{
    VEL_ASSERT(velasync != NULL);
    VEL_ASSERT(velasyncsocket != NULL);
    VEL_ASSERT(eventhandle >= 0);
    VEL_ASSERT(s >= 0);

    return vel_async_socket_unregister(velasync, velasyncsocket, eventhandle, s,
                                       vel_async_socket_read);
}

vel_error_t vel_async_socket_unregister_write(velasync *velasync, velasyncsocket *velasyncsocket,
                                              int eventhandle, int s)
{
    VEL_ASSERT(velasync != NULL);
    VEL_ASSERT(velasyncsocket != NULL);
    VEL_ASSERT(eventhandle >= 0);
    VEL_ASSERT(s >= 0);

    return vel_async_socket_unregister(velasync, velasyncsocket, eventhandle, s,
                                       vel_async_socket_write);
}

vel_error_t vel_async_socket_process_read(velasyncsocket *velasyncsocket, int s)
{
    VEL_ASSERT(velasyncsocket != NULL);
    VEL_ASSERT(s >= 0);

    return vel_async_socket_process(velasyncsocket, s, vel_async_socket_read);
}

vel_error_t vel_async_socket_process_write(velasyncsocket *velasyncsocket, int s)
{
    VEL_ASSERT(velasyncsocket != NULL);
    VEL_ASSERT(s >= 0);

    return vel_async_socket_process(velasyncsocket, s, vel_async_socket_write);
}

int vel_async_socket_check(velasyncsocket *velasyncsocket)
{
    VEL_ASSERT(velasyncsocket != NULL);

    return velasyncsocket->itemcount > 0 ? 1 : 0;
}
