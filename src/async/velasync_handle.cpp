#include <vellib/velasync_handle.h>

#include <vellib/velmalloc.h>

#include "async/velasync_handle_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "async/velasync_handle"

velasyncop *vel_async_handle_create(vel_async_cancel_cb *cancel_callback, void *context)
{
    auto *velasyncop = static_cast<struct velasyncop *>(vel_cmalloc(sizeof(struct velasyncop)));
    if (!velasyncop) {
        VEL_LOG(7, "not enough memory for velasyncop context");
        return nullptr;
    }
    velasyncop->cancel_callback = cancel_callback;
    velasyncop->context = context;
    return velasyncop;
}

void vel_async_handle_destroy(velasyncop *velasyncop)
{
    VEL_ASSERT(velasyncop != NULL);

    vel_free(velasyncop);
}

void vel_async_handle_append(velasyncop *velasyncop, vel_list *vel_list)
{
    VEL_ASSERT(velasyncop != NULL);
    VEL_ASSERT(vel_list != NULL);

    VEL_LIST_ADD_TAIL(vel_list, velasyncop);
}

void vel_async_handle_remove(velasyncop *velasyncop, vel_list *vel_list)
{
    VEL_ASSERT(velasyncop != NULL);
    VEL_ASSERT(vel_list != NULL);

    VEL_LIST_REMOVE(vel_list, velasyncop);
}

void vel_async_handle_cancel(velasyncop *velasyncop)
{
    VEL_ASSERT(velasyncop != NULL);

    velasyncop->cancel_callback(velasyncop->context);
}
