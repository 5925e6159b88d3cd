#ifndef VELLIB_ASYNC_VELASYNC_HANDLE_INTERNAL_H
#define VELLIB_ASYNC_VELASYNC_HANDLE_INTERNAL_H

#include <vellib/velasync_handle.h>

struct velasyncop {
    velasyncop *next;
    velasyncop *prev;
    vel_async_cancel_cb *cancel_callback;
    void *context;
    bool canceled; /* stands among those to be cancelled, and no longer among the pending ones */
};

#endif
