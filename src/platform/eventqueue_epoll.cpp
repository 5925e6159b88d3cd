/* Each filter has an epoll set of its own, so that the kernel keeps the two registrations of a
 * descriptor apart. A fetch asks a set itself. A wait polls the descriptors of the sets, and so does
 * not move what is ready to the back. For a host that waits by itself both sets stand in an outer one;
 * they are put there when it is first asked for, as every event then wakes that one as well.
 *
 * epoll refuses what is always ready, such as a regular file. A list in each set keeps those, and a
 * stand-in that is always ready stands in the set while the list has any. */
#include "platform/eventqueue.h"

#include <cerrno>
#include <climits>
#include <cstdint>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vellib/velmalloc.h>

/* A descriptor that is always ready, and the file it was opened for, as the kernel does not say when
 * it is closed. */
struct vel_eventalways {
    vel_eventalways *next;
    vel_eventalways *prev;
    int descriptor;
    dev_t device;
    ino_t inode;
};

static constexpr uint32_t vel_eventqueue_masks[VEL_EVENTFILTER_COUNT] = {EPOLLIN, EPOLLOUT};

static int vel_eventqueue_add(int set, int descriptor, uint32_t mask, int tag)
{
    struct epoll_event event = {};
    event.events = mask;
    event.data.fd = tag;
    return epoll_ctl(set, EPOLL_CTL_ADD, descriptor, &event);
}

static int vel_eventqueue_remove(int set, int descriptor)
{
    struct epoll_event event = {}; /* old kernels want one */
    return epoll_ctl(set, EPOLL_CTL_DEL, descriptor, &event);
}

static int vel_eventqueue_build(vel_eventqueue *queue)
{
    queue->descriptor = epoll_create1(EPOLL_CLOEXEC);
    if (queue->descriptor < 0)
        return -1;
    for (vel_eventset &set : queue->sets) {
        set.descriptor = epoll_create1(EPOLL_CLOEXEC);
        if (set.descriptor < 0)
            return -1;
    }
    return 0;
}

int vel_eventqueue_create(vel_eventqueue *queue)
{
    *queue = {};
    queue->descriptor = -1;
    queue->standin = -1;
    for (vel_eventset &set : queue->sets)
        set.descriptor = -1;
    if (vel_eventqueue_build(queue) == 0)
        return 0;
    const int platformerrno = errno;
    vel_eventqueue_destroy(queue);
    errno = platformerrno;
    return -1;
}

static void vel_eventqueue_close(int *descriptorptr)
{
    if (*descriptorptr >= 0)
        (void)close(*descriptorptr);
    *descriptorptr = -1;
}

void vel_eventqueue_destroy(vel_eventqueue *queue)
{
    for (vel_eventset &set : queue->sets) {
        while (set.alwaysready.head) {
            void *always = set.alwaysready.head;
            VEL_LIST_REMOVE(&set.alwaysready, static_cast<vel_eventalways *>(always));
            vel_free(always);
        }
        vel_eventqueue_close(&set.descriptor);
    }
    vel_eventqueue_close(&queue->standin);
    vel_eventqueue_close(&queue->descriptor);
}

static vel_eventalways *vel_eventqueue_find_always(const vel_eventset *set, int descriptor)
{
    auto *always = static_cast<vel_eventalways *>(set->alwaysready.head);
    while (always && always->descriptor != descriptor)
        always = always->next;
    return always;
}

/* Writes which file a descriptor is open for. Returns 0 or -1. */
static int vel_eventqueue_identify(int descriptor, dev_t *deviceptr, ino_t *inodeptr)
{
    struct stat attributes;
    if (fstat(descriptor, &attributes) != 0)
        return -1;
    *deviceptr = attributes.st_dev;
    *inodeptr = attributes.st_ino;
    return 0;
}

/* Puts the stand-in into a set. Returns 0 or -1. */
static int vel_eventqueue_begin_always(vel_eventqueue *queue, vel_eventset *set)
{
    if (queue->standin < 0)
        queue->standin = eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK);
    if (queue->standin < 0)
        return -1;
    return vel_eventqueue_add(set->descriptor, queue->standin, EPOLLIN, -1);
}

static int vel_eventqueue_add_always(vel_eventqueue *queue, vel_eventset *set, int descriptor)
{
    vel_eventalways *always = vel_eventqueue_find_always(set, descriptor);
    if (always)
        return vel_eventqueue_identify(descriptor, &always->device, &always->inode);
    always = static_cast<vel_eventalways *>(vel_cmalloc(sizeof(vel_eventalways)));
    if (!always) {
        errno = ENOMEM;
        return -1;
    }
    always->descriptor = descriptor;
    if (vel_eventqueue_identify(descriptor, &always->device, &always->inode) != 0 ||
        (!set->alwaysready.head && vel_eventqueue_begin_always(queue, set) != 0)) {
        const int platformerrno = errno;
        vel_free(always);
        errno = platformerrno;
        return -1;
    }
    VEL_LIST_ADD_TAIL(&set->alwaysready, always);
    set->watched++;
    return 0;
}

static void vel_eventqueue_drop_always(vel_eventqueue *queue, vel_eventset *set,
                                       vel_eventalways *always)
{
    VEL_LIST_REMOVE(&set->alwaysready, always);
    vel_free(always);
    set->watched--;
    if (!set->alwaysready.head)
        (void)vel_eventqueue_remove(set->descriptor, queue->standin);
}

/* Takes the always ready one whose turn it is, and drops what was closed meanwhile. */
static bool vel_eventqueue_next_always(vel_eventqueue *queue, vel_eventset *set, int *descriptorptr)
{
    while (set->alwaysready.head) {
        auto *always = static_cast<vel_eventalways *>(set->alwaysready.head);
        dev_t device;
        ino_t inode;
        if (vel_eventqueue_identify(always->descriptor, &device, &inode) == 0 &&
            device == always->device && inode == always->inode) {
            VEL_LIST_REMOVE(&set->alwaysready, always);
            VEL_LIST_ADD_TAIL(&set->alwaysready, always);
            *descriptorptr = always->descriptor;
            return true;
        }
        vel_eventqueue_drop_always(queue, set, always);
    }
    return false;
}

static int vel_eventqueue_begin(vel_eventqueue *queue, vel_eventset *set, int descriptor,
                                uint32_t mask)
{
    const int result = vel_eventqueue_add(set->descriptor, descriptor, mask, descriptor);
    if (result != 0 && errno == EPERM)
        return vel_eventqueue_add_always(queue, set, descriptor);
    if (result != 0 && errno != EEXIST)
        return -1;
    if (result == 0)
        set->watched++;
    /* The number may have belonged to a file before. */
    vel_eventalways *always = vel_eventqueue_find_always(set, descriptor);
    if (always)
        vel_eventqueue_drop_always(queue, set, always);
    return 0;
}

static int vel_eventqueue_end(vel_eventqueue *queue, vel_eventset *set, int descriptor)
{
    if (vel_eventqueue_remove(set->descriptor, descriptor) == 0) {
        set->watched--;
        return 0;
    }
    const int platformerrno = errno;
    vel_eventalways *always = vel_eventqueue_find_always(set, descriptor);
    if (always)
        vel_eventqueue_drop_always(queue, set, always);
    if (always && platformerrno == EPERM)
        return 0;
    errno = platformerrno == EPERM ? ENOENT : platformerrno;
    return -1;
}

int vel_eventqueue_change(vel_eventqueue *queue, int descriptor, vel_eventfilter filter, bool add)
{
    vel_eventset *set = &queue->sets[filter];
    if (add)
        return vel_eventqueue_begin(queue, set, descriptor, vel_eventqueue_masks[filter]);
    return vel_eventqueue_end(queue, set, descriptor);
}

int vel_eventqueue_handle(vel_eventqueue *queue)
{
    for (vel_eventset &set : queue->sets) {
        if (set.joined)
            continue;
        if (vel_eventqueue_add(queue->descriptor, set.descriptor, EPOLLIN, 0) != 0)
            return -1;
        set.joined = true;
    }
    return queue->descriptor;
}

/* How poll takes a time: in milliseconds, rounded up, and -1 for no limit. */
static int vel_eventqueue_milliseconds(const vel_eventqueue *queue, const struct timespec *time)
{
    if (time->tv_sec < 0 || time->tv_nsec < 0) {
        for (const vel_eventset &set : queue->sets) {
            if (set.watched > 0)
                return -1;
        }
        return 0;
    }
    const int64_t rest = (static_cast<int64_t>(time->tv_nsec) + 999999) / 1000000;
    if (time->tv_sec > (INT_MAX - rest) / 1000)
        return INT_MAX;
    return static_cast<int>(static_cast<int64_t>(time->tv_sec) * 1000 + rest);
}

int vel_eventqueue_wait(vel_eventqueue *queue, const struct timespec *time)
{
    const int milliseconds = vel_eventqueue_milliseconds(queue, time);
    struct pollfd polled[VEL_EVENTFILTER_COUNT];
    for (int filter = 0; filter < VEL_EVENTFILTER_COUNT; filter++) {
        const vel_eventset *set = &queue->sets[filter];
        polled[filter] = {set->watched > 0 ? set->descriptor : -1, POLLIN, 0};
    }
    /* Without a time poll does not queue up for a wake, which is dear if something is ready. */
    int count = poll(polled, VEL_EVENTFILTER_COUNT, 0);
    if (count == 0 && milliseconds != 0)
        count = poll(polled, VEL_EVENTFILTER_COUNT, milliseconds);
    queue->pending = 0;
    for (int filter = 0; filter < VEL_EVENTFILTER_COUNT && count > 0; filter++) {
        if (polled[filter].revents != 0)
            queue->pending |= 1U << filter;
    }
    return count > 0 ? 1 : count;
}

/* Fetches an event of one filter. */
static int vel_eventqueue_fetch_from(vel_eventqueue *queue, vel_eventfilter filter,
                                     vel_event *event)
{
    vel_eventset *set = &queue->sets[filter];
    struct epoll_event found;
    while (set->watched > 0) {
        const int count = epoll_wait(set->descriptor, &found, 1, 0);
        if (count != 1)
            return count;
        event->filter = filter;
        event->descriptor = found.data.fd;
        if (event->descriptor >= 0 || vel_eventqueue_next_always(queue, set, &event->descriptor))
            return 1;
        /* The stand-in stood for closed files only, and has left the set. */
    }
    return 0;
}

int vel_eventqueue_fetch(vel_eventqueue *queue, vel_event *event)
{
    /* The filter whose turn it is, unless the wait has seen nothing but the other one. */
    vel_eventfilter filter = queue->turn;
    auto other = filter == VEL_EVENTFILTER_READ ? VEL_EVENTFILTER_WRITE : VEL_EVENTFILTER_READ;
    if (queue->pending == 1U << other) {
        other = filter;
        filter = static_cast<vel_eventfilter>(1 - filter);
    }
    queue->pending = 0;
    int count = vel_eventqueue_fetch_from(queue, filter, event);
    if (count == 0)
        count = vel_eventqueue_fetch_from(queue, other, event);
    if (count == 1)
        queue->turn = static_cast<vel_eventfilter>(1 - event->filter);
    return count;
}
