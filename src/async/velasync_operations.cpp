#include <vellib/velasync_operations.h>

#include <vellib/velmalloc.h>

#include "async/velasync_handle_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "async/velasync_operations"

struct velasyncoperations {
    vel_list *activeops;   /* pending */
    vel_list *tocancelops; /* cancelled, with the callback still to be called */
};

/* Makes the lists. On false the caller destroys what there is. */
static bool vel_async_operations_build(velasyncoperations *operations)
{
    operations->activeops = vel_list_create();
    if (!operations->activeops) {
        VEL_LOG(7, "not enough memory for active operations list");
        return false;
    }
    operations->tocancelops = vel_list_create();
    if (!operations->tocancelops) {
        VEL_LOG(7, "not enough memory for canceled operations list");
        return false;
    }
    return true;
}

velasyncoperations *vel_async_operations_create(void)
{
    auto *operations = static_cast<velasyncoperations *>(vel_cmalloc(sizeof(velasyncoperations)));
    if (!operations) {
        VEL_LOG(7, "not enough memory for asynchronous operations context");
        return nullptr;
    }
    if (!vel_async_operations_build(operations)) {
        vel_async_operations_destroy(operations);
        return nullptr;
    }
    return operations;
}

void vel_async_operations_destroy(velasyncoperations *operations)
{
    VEL_ASSERT(operations != NULL);

    if (operations->tocancelops) {
        VEL_ASSERT(operations->tocancelops->head == NULL);
        vel_list_destroy(operations->tocancelops);
    }
    if (operations->activeops) {
        VEL_ASSERT(operations->activeops->head == NULL);
        vel_list_destroy(operations->activeops);
    }
    vel_free(operations);
}

void vel_async_operations_append_active(velasyncoperations *operations, velasyncop *velasyncop)
{
    VEL_ASSERT(operations != NULL);

    vel_async_handle_append(velasyncop, operations->activeops);
}

void vel_async_operations_remove_active(velasyncoperations *operations, velasyncop *velasyncop)
{
    VEL_ASSERT(operations != NULL);

    vel_async_handle_remove(velasyncop, operations->activeops);
}

void vel_async_operations_cancel(velasyncoperations *operations, velasyncop *velasyncop)
{
    VEL_ASSERT(operations != NULL);

    if (velasyncop && velasyncop->canceled)
        return; /* it is not in the list of the pending ones */
    vel_async_handle_remove(velasyncop, operations->activeops);
    vel_async_handle_append(velasyncop, operations->tocancelops);
    velasyncop->canceled = true;
}

vel_error_t vel_async_operations_process_canceled(velasyncoperations *operations)
{
    VEL_ASSERT(operations != NULL);

    while (operations->tocancelops->head) {
        auto *velasyncop = static_cast<struct velasyncop *>(operations->tocancelops->head);
        vel_async_handle_cancel(velasyncop);
        vel_async_handle_remove(velasyncop, operations->tocancelops);
        vel_async_handle_destroy(velasyncop);
    }
    return VEL_ERROR_NONE;
}
