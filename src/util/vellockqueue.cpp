#include <vellib/vellockqueue.h>

#include <cstddef>

#include <vellib/velcond.h>
#include <vellib/vellist.h>
#include <vellib/velmalloc.h>

#include "util/velassert.h"

struct vellockqueue_element {
    vellockqueue_element *next;
    vellockqueue_element *prev;
    void *item; /* whoever pushed it owns it */
};

struct vellockqueue {
    vel_list list; /* of the elements, the oldest at the head */
    velcond *cond; /* guards all else; poppers wait on it */
    bool end;
};

/* ---- Elements ---- */

vellockqueue_element *vel_lockqueue_element_create(void)
{
    return static_cast<vellockqueue_element *>(vel_cmalloc(sizeof(vellockqueue_element)));
}

void vel_lockqueue_element_destroy(vellockqueue_element *element)
{
    VEL_ASSERT(element);

    vel_free(element);
}

void vel_lockqueue_element_set_item(vellockqueue_element *element, void *item)
{
    element->item = item;
}

void *vel_lockqueue_element_get_item(vellockqueue_element *element)
{
    return element->item;
}

/* ---- Life ---- */

vellockqueue *vel_lockqueue_create(vel_error_t *error_out)
{
    vel_error_t ignored;
    if (!error_out)
        error_out = &ignored;

    *error_out = VEL_ERROR_GENERIC;
    auto *queue = static_cast<vellockqueue *>(vel_cmalloc(sizeof(vellockqueue)));
    if (!queue) {
        *error_out = VEL_ERROR_NO_MEMORY;
        return nullptr;
    }
    vel_list_init(&queue->list);
    queue->cond = vel_cond_create();
    if (!queue->cond) { /* why is not known, so the code stays the general one */
        vel_lockqueue_destroy(queue, nullptr);
        return nullptr;
    }
    *error_out = VEL_ERROR_NONE;
    return queue;
}

void vel_lockqueue_destroy(vellockqueue *queue, vel_lockqueue_destroy_item_cb *destroyitem)
{
    VEL_ASSERT(queue);

    auto *element = static_cast<vellockqueue_element *>(queue->list.head);
    while (element) {
        vellockqueue_element *const next = element->next;
        if (destroyitem)
            destroyitem(element->item);
        vel_lockqueue_element_destroy(element);
        element = next;
    }
    if (queue->cond)
        vel_cond_destroy(queue->cond);
    vel_free(queue);
}

/* ---- In ---- */

vel_error_t vel_lockqueue_push_element(vellockqueue *queue, vellockqueue_element *element)
{
    VEL_ASSERT(queue);
    VEL_ASSERT(element);

    vel_error_t result = VEL_ERROR_WRITE;
    vel_cond_lock(queue->cond);
    if (!queue->end) {
        VEL_LIST_ADD_TAIL(&queue->list, element);
        result = VEL_ERROR_NONE;
    }
    vel_cond_signal(queue->cond);
    vel_cond_unlock(queue->cond);
    return result;
}

vel_error_t vel_lockqueue_push(vellockqueue *queue, void *item)
{
    VEL_ASSERT(queue);

    vellockqueue_element *const element = vel_lockqueue_element_create();
    if (!element)
        return VEL_ERROR_NO_MEMORY;
    vel_lockqueue_element_set_item(element, item);
    const vel_error_t result = vel_lockqueue_push_element(queue, element);
    if (result != VEL_ERROR_NONE)
        vel_lockqueue_element_destroy(element);
    return result;
}

void vel_lockqueue_set_end(vellockqueue *queue)
{
    VEL_ASSERT(queue);

    vel_cond_lock(queue->cond);
    queue->end = true;
    vel_cond_broadcast(queue->cond);
    vel_cond_unlock(queue->cond);
}

/* ---- Out ---- */

/* Takes the oldest element out, or tells why there is none. The caller holds the lock. */
static vellockqueue_element *vel_lockqueue_take_locked(vellockqueue *queue, vel_error_t *error_out)
{
    auto *const element = static_cast<vellockqueue_element *>(queue->list.head);
    if (!element) {
        *error_out = queue->end ? VEL_ERROR_END_OF_FILE : VEL_ERROR_NOT_FOUND;
        return nullptr;
    }
    VEL_LIST_REMOVE(&queue->list, element);
    *error_out = VEL_ERROR_NONE;
    return element;
}

static vellockqueue_element *vel_lockqueue_pop_internal(vellockqueue *queue, bool block,
                                                        vel_error_t *error_out)
{
    vel_error_t ignored;
    if (!error_out)
        error_out = &ignored;

    *error_out = VEL_ERROR_GENERIC; /* what it says while the pop waits */
    vel_cond_lock(queue->cond);
    while (block && !queue->end && !queue->list.head)
        vel_cond_wait(queue->cond);
    vellockqueue_element *const element = vel_lockqueue_take_locked(queue, error_out);
    vel_cond_unlock(queue->cond);
    return element;
}

static void *vel_lockqueue_pop_item(vellockqueue *queue, bool block, vel_error_t *error_out)
{
    vellockqueue_element *const element = vel_lockqueue_pop_internal(queue, block, error_out);
    if (!element)
        return nullptr;
    VEL_ASSERT(*error_out == VEL_ERROR_NONE);
    void *const item = vel_lockqueue_element_get_item(element);
    vel_lockqueue_element_destroy(element);
    return item;
}

vellockqueue_element *vel_lockqueue_pop_element(vellockqueue *queue, vel_error_t *error_out)
{
    VEL_ASSERT(queue);

    return vel_lockqueue_pop_internal(queue, /*block=*/true, error_out);
}

vellockqueue_element *vel_lockqueue_pop_element_try(vellockqueue *queue, vel_error_t *error_out)
{
    VEL_ASSERT(queue);

    return vel_lockqueue_pop_internal(queue, /*block=*/false, error_out);
}

void *vel_lockqueue_pop(vellockqueue *queue, vel_error_t *error_out)
{
    VEL_ASSERT(queue);
    VEL_ASSERT(error_out != NULL);

    return vel_lockqueue_pop_item(queue, /*block=*/true, error_out);
}

void *vel_lockqueue_pop_try(vellockqueue *queue, vel_error_t *error_out)
{
    VEL_ASSERT(queue);
    VEL_ASSERT(error_out != NULL);

    return vel_lockqueue_pop_item(queue, /*block=*/false, error_out);
}
