/* The kernel queue is all that this operation set describes. It keeps the order of turns itself. */
#include "platform/eventqueue.h"

#include <sys/types.h>

#include <sys/event.h>
#include <unistd.h>

int vel_eventqueue_create(vel_eventqueue *queue)
{
    *queue = {};
    queue->descriptor = kqueue();
    return queue->descriptor < 0 ? -1 : 0;
}

void vel_eventqueue_destroy(vel_eventqueue *queue)
{
    if (queue->descriptor >= 0)
        (void)close(queue->descriptor);
    queue->descriptor = -1;
}

int vel_eventqueue_change(vel_eventqueue *queue, int descriptor, vel_eventfilter filter, bool add)
{
    struct kevent change;
    EV_SET(&change, static_cast<uintptr_t>(descriptor),
           filter == VEL_EVENTFILTER_READ ? EVFILT_READ : EVFILT_WRITE,
           add ? EV_ADD | EV_ENABLE : EV_DELETE, 0, 0, nullptr);
    if (kevent(queue->descriptor, &change, 1, nullptr, 0, nullptr) != 0)
        return -1;
    queue->sets[filter].watched += add ? 1 : -1; /* an update counts twice, which does no harm */
    return 0;
}

int vel_eventqueue_handle(vel_eventqueue *queue)
{
    return queue->descriptor;
}

static int vel_eventqueue_ask(const vel_eventqueue *queue, const struct timespec *time,
                              struct kevent *found)
{
    return kevent(queue->descriptor, nullptr, 0, found, 1, time);
}

int vel_eventqueue_wait(vel_eventqueue *queue, const struct timespec *time)
{
    static constexpr struct timespec none = {};
    struct kevent found;
    if (time->tv_sec >= 0 && time->tv_nsec >= 0)
        return vel_eventqueue_ask(queue, time, &found);
    for (const vel_eventset &set : queue->sets) {
        if (set.watched > 0)
            return vel_eventqueue_ask(queue, nullptr, &found);
    }
    return vel_eventqueue_ask(queue, &none, &found);
}

int vel_eventqueue_fetch(vel_eventqueue *queue, vel_event *event)
{
    static constexpr struct timespec none = {};
    struct kevent found;
    const int count = vel_eventqueue_ask(queue, &none, &found);
    if (count == 1) {
        event->descriptor = static_cast<int>(found.ident);
        event->filter = found.filter == EVFILT_READ ? VEL_EVENTFILTER_READ : VEL_EVENTFILTER_WRITE;
    }
    return count;
}
