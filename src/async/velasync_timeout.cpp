#include <vellib/velasync_timeout.h>

#include <vellib/velmalloc.h>
#include <vellib/veltimer.h>

#include "async/velasync_handle_internal.h"
#include "async/velasync_timeoutheap.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "async/velasync_timeout"

struct velasynctimeout {
    velasyncoperations *operations;   /* not owned */
    velasynctimeoutheap *timeoutlist; /* owned, as is the next; deadlines by the timer */
    struct veltimer *veltimer;        /* started when the queue was created */
};

struct velasynctimeoutitem : velasynctimeoutnode {
    struct velasyncop *velasyncop;    /* owned by the list of operations that it is in */
    velasynctimeoutheap *timeoutlist; /* the one that the item was put in */
    bool queued;                      /* is still in it */
    vel_async_timeout_cb *callback;
    void *context;
};

/* Makes the members. On false the caller releases what there is. */
static bool vel_async_timeout_build(velasynctimeout *timeout)
{
    timeout->timeoutlist = vel_async_timeoutheap_create();
    if (!timeout->timeoutlist) {
        VEL_LOG(7, "not enough memory for velasync timeout list");
        return false;
    }
    timeout->veltimer = vel_timer_create();
    if (!timeout->veltimer) {
        VEL_LOG(7, "not enough memory for velasync timeout timer");
        return false;
    }
    return true;
}

velasynctimeout *vel_async_timeout_create(velasyncoperations *operations)
{
    VEL_ASSERT(operations != NULL);

    auto *timeout = static_cast<velasynctimeout *>(vel_cmalloc(sizeof(velasynctimeout)));
    if (!timeout) {
        VEL_LOG(7, "not enough memory for velasync timeout context");
        return nullptr;
    }
    timeout->operations = operations;
    if (!vel_async_timeout_build(timeout)) {
        vel_async_timeout_destroy(timeout);
        return nullptr;
    }
    return timeout;
}

/* Returns the first item, or NULL. */
static velasynctimeoutitem *vel_async_timeout_first(velasynctimeout *timeout)
{
    return static_cast<velasynctimeoutitem *>(vel_async_timeoutheap_first(timeout->timeoutlist));
}

static void vel_async_timeout_unlink(velasynctimeoutitem *item)
{
    if (item->queued)
        vel_async_timeoutheap_remove(item->timeoutlist, item);
    item->queued = false;
}

static void vel_async_timeout_item_destroy(velasynctimeoutitem *item)
{
    vel_free(item);
}

/* Ends an item that is cancelled. Its operation is left alone. */
static void vel_async_timeout_item_cancel(velasynctimeoutitem *item)
{
    vel_async_timeout_unlink(item);
    item->callback(VEL_ERROR_CANCELED, item->context);
    vel_async_timeout_item_destroy(item);
}

void vel_async_timeout_destroy(velasynctimeout *timeout)
{
    VEL_ASSERT(timeout != NULL);

    if (timeout->veltimer)
        vel_timer_destroy(timeout->veltimer);
    timeout->veltimer = nullptr; /* no callback adds a timeout now */
    if (timeout->timeoutlist) {
        while (velasynctimeoutitem *item = vel_async_timeout_first(timeout))
            vel_async_timeout_item_cancel(item);
        vel_async_timeoutheap_destroy(timeout->timeoutlist);
    }
    vel_free(timeout);
}

/* Runs in the cancel pass, which destroys the operation afterwards. */
static void vel_async_timeout_cancel_callback(void *context)
{
    VEL_ASSERT(context != NULL);
    auto *item = static_cast<velasynctimeoutitem *>(context);
    VEL_ASSERT(item->timeoutlist != NULL);

    vel_async_timeout_item_cancel(item);
}

/* Creates an item, and room for it in the queue. */
static velasynctimeoutitem *vel_async_timeout_item_create(velasynctimeout *timeout)
{
    VEL_ASSERT(timeout != NULL);

    velasynctimeoutitem *item = nullptr;
    if (vel_async_timeoutheap_reserve(timeout->timeoutlist))
        item = static_cast<velasynctimeoutitem *>(vel_malloc(sizeof(velasynctimeoutitem)));
    if (!item) {
        VEL_LOG(7, "not enough memory for a timeout");
        return nullptr;
    }
    *item = {};
    item->timeoutlist = timeout->timeoutlist;
    return item;
}

/* Reads the clock of the queue. */
static void vel_async_timeout_now(velasynctimeout *timeout, int *secondsptr,
                                  unsigned int *microsptr)
{
    vel_timer_split(timeout->veltimer);
    vel_timer_getsplit(timeout->veltimer, 0, secondsptr, microsptr, nullptr);
}

/* Writes the deadline. A sum of seconds that does not fit turns negative, and is due at once. */
static void vel_async_timeout_set_deadline(velasynctimeoutitem *item, int seconds,
                                           unsigned int microseconds, int nowseconds,
                                           unsigned int nowmicros)
{
    uint32_t sum = static_cast<uint32_t>(nowseconds) + static_cast<uint32_t>(seconds);
    item->micros = nowmicros + microseconds;
    if (item->micros >= 1000000) {
        sum++;
        item->micros -= 1000000;
    }
    VEL_ASSERT(item->micros < 1000000);
    item->seconds = static_cast<int32_t>(sum);
}

velasyncop *vel_async_timeout_add_us(velasynctimeout *timeout, int seconds,
                                     unsigned int microseconds, vel_async_timeout_cb *callback,
                                     void *context)
{
    VEL_ASSERT(timeout != NULL);
    VEL_ASSERT(seconds >= 0);
    VEL_ASSERT(microseconds < 1000000);
    VEL_ASSERT(callback != NULL);

    int nowseconds;
    unsigned int nowmicros;
    vel_async_timeout_now(timeout, &nowseconds, &nowmicros);
    velasynctimeoutitem *item = vel_async_timeout_item_create(timeout);
    if (!item) {
        VEL_LOG(7, "not enough memory for a timeout");
        return nullptr;
    }
    item->velasyncop = vel_async_handle_create(vel_async_timeout_cancel_callback, item);
    if (!item->velasyncop) {
        VEL_LOG(7, "unable to create asynchronous operation handle");
        vel_async_timeout_item_destroy(item);
        return nullptr;
    }
    vel_async_operations_append_active(timeout->operations, item->velasyncop);
    vel_async_timeout_set_deadline(item, seconds, microseconds, nowseconds, nowmicros);
    item->callback = callback;
    item->context = context;
    vel_async_timeoutheap_add(timeout->timeoutlist, item);
    item->queued = true;
    return item->velasyncop;
}

void vel_async_timeout_get_us(velasynctimeout *timeout, int *secondsptr,
                              unsigned int *microsecondsptr)
{
    VEL_ASSERT(timeout != NULL);
    VEL_ASSERT(secondsptr != NULL);
    VEL_ASSERT(microsecondsptr != NULL);

    *secondsptr = -1;
    *microsecondsptr = 0;
    const velasynctimeoutitem *item = vel_async_timeout_first(timeout);
    if (!item)
        return;
    int nowseconds;
    unsigned int nowmicros;
    vel_async_timeout_now(timeout, &nowseconds, &nowmicros);
    int seconds = static_cast<int>(static_cast<unsigned int>(item->seconds) -
                                   static_cast<unsigned int>(nowseconds));
    unsigned int micros = item->micros;
    if (micros < nowmicros) {
        seconds = static_cast<int>(static_cast<unsigned int>(seconds) - 1);
        micros += 1000000;
    }
    *secondsptr = 0;
    if (seconds < 0)
        return;
    VEL_ASSERT(micros >= nowmicros);
    *secondsptr = seconds;
    *microsecondsptr = micros - nowmicros;
}

vel_error_t vel_async_timeout_process(velasynctimeout *timeout)
{
    VEL_ASSERT(timeout != NULL);

    if (!vel_async_timeout_first(timeout))
        return VEL_ERROR_INCOMPLETE;
    int nowseconds;
    unsigned int nowmicros;
    vel_async_timeout_now(timeout, &nowseconds, &nowmicros);
    while (velasynctimeoutitem *item = vel_async_timeout_first(timeout)) {
        if (item->seconds > nowseconds || (item->seconds == nowseconds && item->micros > nowmicros))
            return VEL_ERROR_INCOMPLETE;
        vel_async_timeout_unlink(item);
        velasyncop *velasyncop = item->velasyncop;
        if (velasyncop->canceled)
            continue; /* by another one in this pass; the cancel pass calls it */
        vel_async_operations_remove_active(timeout->operations, velasyncop);
        item->callback(VEL_ERROR_TIMED_OUT, item->context);
        vel_async_timeout_item_destroy(item);
        vel_async_handle_destroy(velasyncop);
    }
    return VEL_ERROR_NONE;
}
