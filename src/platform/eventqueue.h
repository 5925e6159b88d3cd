#ifndef VELLIB_PLATFORM_EVENTQUEUE_H
#define VELLIB_PLATFORM_EVENTQUEUE_H

#include <stddef.h>
#include <time.h>

#include <vellib/vellist.h>

/* Readiness of descriptors: level-triggered, one event at a time. Reading and writing of a
 * descriptor are watched independently of one another. Where several things are ready, they take
 * turns. -1 means that errno tells why. */

enum vel_eventfilter {
    VEL_EVENTFILTER_READ,
    VEL_EVENTFILTER_WRITE,
    VEL_EVENTFILTER_COUNT,
};

struct vel_event {
    int descriptor;
    vel_eventfilter filter;
};

/* What is watched with one filter, where the mechanism has a set of its own for each. */
struct vel_eventset {
    int descriptor;
    bool joined;          /* stands in the queue that a host waits for */
    size_t watched;       /* no less than there are descriptors in the set */
    vel_list alwaysready; /* what the mechanism cannot watch, as it always is ready */
};

/* Only the first field is for everybody; the rest is the mechanism's. */
struct vel_eventqueue {
    int descriptor; /* names the queue, see vel_eventqueue_handle; -1 if there is none */
    vel_eventset sets[VEL_EVENTFILTER_COUNT];
    int standin;          /* a descriptor that is always ready, or -1 */
    unsigned int pending; /* the filters that the last wait has seen ready, as bits; or 0 */
    vel_eventfilter turn; /* the filter that is looked at first */
};

/* Returns 0 or -1. */
int vel_eventqueue_create(vel_eventqueue *queue);

/* Takes a queue that was created, or whose creation failed. */
void vel_eventqueue_destroy(vel_eventqueue *queue);

/* Begins or ends watching a descriptor. To begin twice is to begin once; the end of what has not
 * begun is ENOENT. What is closed is not watched any longer.
 *
 * Returns 0 or -1. */
int vel_eventqueue_change(vel_eventqueue *queue, int descriptor, vel_eventfilter filter, bool add);

/* Returns the descriptor of the queue, from now on readable while there is an event, or -1. */
int vel_eventqueue_handle(vel_eventqueue *queue);

/* Waits for an event and leaves it where it is. A negative time is no limit if any descriptor is
 * watched, and no time otherwise.
 *
 * Returns 1, 0 or -1. */
int vel_eventqueue_wait(vel_eventqueue *queue, const struct timespec *time);

/* Fetches an event without waiting. What stays ready is fetched again, after all else that is.
 *
 * Returns 1, 0 or -1. */
int vel_eventqueue_fetch(vel_eventqueue *queue, vel_event *event);

#endif
