#ifndef VELLIB_ASYNC_VELASYNC_INTERNAL_H
#define VELLIB_ASYNC_VELASYNC_INTERNAL_H

#include <vellib/velasync.h>

#include "platform/eventqueue.h"

struct velasync {
    vel_eventqueue eventqueue;      /* its descriptor is the native handle */
    velasyncoperations *operations; /* owned, as are the next two */
    velasynctimeout *timeout;
    velasyncsocket *socket;
    size_t watchedcount; /* registrations that the queue took and that were not ended */
};

#endif
