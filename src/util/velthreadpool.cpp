#include <vellib/velthreadpool.h>

#include <cstddef>
#include <cstdint>

#include <vellib/vellockqueue.h>
#include <vellib/velmalloc.h>
#include <vellib/velthread.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velthreadpool"

struct velthreadpool_params {
    uint32_t num_threads;
    void *global_context; /* the host's */
    vel_threadpool_thread_ctx_create_cb *thread_ctx_create;
    vel_threadpool_thread_ctx_destroy_cb *thread_ctx_destroy;
    vel_threadpool_request_handler_cb *request_handler;
};

enum vel_threadpool_state : int32_t {
    VEL_THREADPOOL_STATE_STARTING = 0,
    VEL_THREADPOOL_STATE_RUNNING = 1,
    VEL_THREADPOOL_STATE_STOPPED = 2,
};

struct velthreadpool_thread {
    velthread *thread; /* NULL unless it was started */
    velthreadpool *pool;
    uint32_t thread_ctx_created; /* the context itself may be NULL */
    void *thread_ctx;            /* the host's */
};

struct velthreadpool {
    vel_threadpool_state state;
    vellockqueue *input_queue;
    vellockqueue *output_queue;
    velthreadpool_params params; /* own copy */
    velthreadpool_thread *threads;
};

/* ---- Parameters ---- */

velthreadpool_params *vel_threadpool_params_create_defaults(void)
{
    auto *params = static_cast<velthreadpool_params *>(vel_cmalloc(sizeof(velthreadpool_params)));
    if (params)
        vel_threadpool_params_set_defaults(params);
    return params;
}

void vel_threadpool_params_set_defaults(velthreadpool_params *params)
{
    VEL_ASSERT(params);

    *params = {};
    params->num_threads = 1;
}

void vel_threadpool_params_destroy(velthreadpool_params *params)
{
    VEL_ASSERT(params);

    vel_free(params);
}

void vel_threadpool_params_set_num_threads(velthreadpool_params *params, unsigned int numthreads)
{
    VEL_ASSERT(params);

    params->num_threads = numthreads;
}

void vel_threadpool_params_set_global_context(velthreadpool_params *params, void *global)
{
    VEL_ASSERT(params);

    params->global_context = global;
}

void vel_threadpool_params_set_thread_ctx_create(velthreadpool_params *params,
                                                 vel_threadpool_thread_ctx_create_cb *callback)
{
    VEL_ASSERT(params);

    params->thread_ctx_create = callback;
}

void vel_threadpool_params_set_thread_ctx_destroy(velthreadpool_params *params,
                                                  vel_threadpool_thread_ctx_destroy_cb *callback)
{
    VEL_ASSERT(params);

    params->thread_ctx_destroy = callback;
}

void vel_threadpool_params_set_request_handler(velthreadpool_params *params,
                                               vel_threadpool_request_handler_cb *callback)
{
    VEL_ASSERT(params);

    params->request_handler = callback;
}

/* ---- Workers ---- */

/* The element goes from one queue to the other as it is, so a worker never wants memory. */
static void *vel_threadpool_thread_func(void *arg)
{
    auto *const entry = static_cast<velthreadpool_thread *>(arg);
    velthreadpool *const pool = entry->pool;
    const velthreadpool_params *const params = &pool->params;

    for (;;) {
        vel_error_t queue_error = VEL_ERROR_GENERIC;
        vellockqueue_element *const element =
            vel_lockqueue_pop_element(pool->input_queue, &queue_error);
        if (!element) {
            if (queue_error == VEL_ERROR_NOT_FOUND)
                continue;
            VEL_ASSERT(queue_error == VEL_ERROR_END_OF_FILE);
            return nullptr;
        }
        VEL_ASSERT(queue_error == VEL_ERROR_NONE);
        if (params->request_handler)
            params->request_handler(params->global_context, entry->thread_ctx,
                                    vel_lockqueue_element_get_item(element));
        queue_error = vel_lockqueue_push_element(pool->output_queue, element);
        VEL_ASSERT(queue_error == VEL_ERROR_NONE);
    }
}

/* Lets the workers that were started finish what is queued, and joins them. */
static void vel_threadpool_stop_internal(velthreadpool *pool)
{
    if (!pool || pool->state != VEL_THREADPOOL_STATE_RUNNING || !pool->threads)
        return;
    vel_lockqueue_set_end(pool->input_queue);
    for (uint32_t i = 0; i < pool->params.num_threads; i++) {
        velthread *const thread = pool->threads[i].thread;
        if (!thread)
            continue;
        const int res = vel_thread_join(thread, nullptr);
        VEL_ASSERT(res == 0);
        vel_thread_destroy(thread);
        pool->threads[i].thread = nullptr;
    }
    pool->state = VEL_THREADPOOL_STATE_STOPPED;
}

/* ---- Life ---- */

static void vel_threadpool_destroy_thread_ctxs(const velthreadpool *pool)
{
    const velthreadpool_params *const params = &pool->params;
    if (!pool->threads || !params->thread_ctx_destroy)
        return;
    for (uint32_t i = 0; i < params->num_threads; i++) {
        const velthreadpool_thread *const entry = &pool->threads[i];
        if (entry->thread_ctx_created)
            params->thread_ctx_destroy(params->global_context, entry->thread_ctx);
    }
}

/* Takes any half-built state. */
static void vel_threadpool_destroy_internal(velthreadpool *pool)
{
    if (!pool)
        return;
    vel_threadpool_stop_internal(pool);
    vel_threadpool_destroy_thread_ctxs(pool);
    vel_free(pool->threads);
    if (pool->output_queue)
        vel_lockqueue_destroy(pool->output_queue, nullptr);
    if (pool->input_queue)
        vel_lockqueue_destroy(pool->input_queue, nullptr);
    vel_free(pool);
}

/* Makes the context of one worker, if there shall be one. */
static vel_error_t vel_threadpool_create_thread_ctx(velthreadpool *pool, uint32_t index)
{
    const velthreadpool_params *const params = &pool->params;
    velthreadpool_thread *const entry = &pool->threads[index];
    if (!params->thread_ctx_create)
        return VEL_ERROR_NONE;

    vel_error_t result = VEL_ERROR_GENERIC;
    entry->thread_ctx = params->thread_ctx_create(params->global_context, &result);
    if (result != VEL_ERROR_NONE) {
        VEL_LOG(7, "failed to create thread context for thread %u", index);
        return result;
    }
    entry->thread_ctx_created = 1;
    return VEL_ERROR_NONE;
}

/* Starts one worker, whose entry is complete but for the thread itself. */
static vel_error_t vel_threadpool_start_thread(velthreadpool *pool, uint32_t index)
{
    velthreadpool_thread *const entry = &pool->threads[index];
    velthread *const thread = vel_thread_create();
    if (!thread) {
        VEL_LOG(7, "failed to create thread %u", index);
        return VEL_ERROR_GENERIC;
    }
    if (vel_thread_start(thread, vel_threadpool_thread_func, entry) != 0) {
        VEL_LOG(7, "failed to start thread %u", index);
        vel_thread_destroy(thread);
        return VEL_ERROR_GENERIC;
    }
    entry->thread = thread;
    return VEL_ERROR_NONE;
}

static vel_error_t vel_threadpool_build_queues(velthreadpool *pool)
{
    vel_error_t result;
    pool->input_queue = vel_lockqueue_create(&result);
    if (!pool->input_queue) {
        VEL_LOG(7, "failed to create input queue");
        return result;
    }
    pool->output_queue = vel_lockqueue_create(&result);
    if (!pool->output_queue)
        VEL_LOG(7, "failed to create output queue");
    return result;
}

static vel_error_t vel_threadpool_build_threads(velthreadpool *pool)
{
    const uint32_t count = pool->params.num_threads;
    pool->threads =
        static_cast<velthreadpool_thread *>(vel_calloc(count, sizeof(velthreadpool_thread)));
    if (!pool->threads) {
        VEL_LOG(7, "failed to allocate thread array");
        return VEL_ERROR_NO_MEMORY;
    }
    vel_error_t result = VEL_ERROR_NONE;
    for (uint32_t i = 0; i < count && result == VEL_ERROR_NONE; i++) {
        pool->threads[i].pool = pool;
        result = vel_threadpool_create_thread_ctx(pool, i);
        if (result == VEL_ERROR_NONE)
            result = vel_threadpool_start_thread(pool, i);
    }
    return result;
}

/* Builds the members in order. On failure the caller destroys what there is. */
static vel_error_t vel_threadpool_build(velthreadpool *pool, const velthreadpool_params *params)
{
    vel_error_t result = vel_threadpool_build_queues(pool);
    if (result != VEL_ERROR_NONE)
        return result;
    pool->params = *params;
    result = vel_threadpool_build_threads(pool);
    /* Also after a failure: the workers that run wait in the queue that is about to go, so the
     * destroy has to stop them. */
    pool->state = VEL_THREADPOOL_STATE_RUNNING;
    return result;
}

velthreadpool *vel_threadpool_create(const velthreadpool_params *params, vel_error_t *error_out)
{
    vel_error_t ignored;
    if (!error_out)
        error_out = &ignored;

    *error_out = VEL_ERROR_INTERNAL;
    if (!params) {
        *error_out = VEL_ERROR_INVALID_ARGUMENT;
        VEL_LOG(7, "vel_threadpool_create() called with NULL params");
        return nullptr;
    }
    auto *pool = static_cast<velthreadpool *>(vel_cmalloc(sizeof(velthreadpool)));
    if (!pool) {
        *error_out = VEL_ERROR_NO_MEMORY;
        VEL_LOG(7, "failed to allocate pool structure");
        return nullptr;
    }
    *error_out = vel_threadpool_build(pool, params);
    if (*error_out != VEL_ERROR_NONE) {
        vel_threadpool_destroy_internal(pool);
        pool = nullptr;
    }
    return pool;
}

void vel_threadpool_stop(velthreadpool *pool)
{
    VEL_ASSERT(pool);

    vel_threadpool_stop_internal(pool);
}

void vel_threadpool_destroy(velthreadpool *pool)
{
    VEL_ASSERT(pool);

    vel_threadpool_destroy_internal(pool);
}

/* ---- Requests ---- */

vel_error_t vel_threadpool_submit_request(velthreadpool *pool, void *request)
{
    VEL_ASSERT(pool);

    return vel_lockqueue_push(pool->input_queue, request);
}

/* The queue's own two pops differ in the same way. */
template <auto pop> static void *vel_threadpool_fetch(velthreadpool *pool, vel_error_t *error_out)
{
    vel_error_t queue_error = VEL_ERROR_GENERIC;
    void *const request = pop(pool->output_queue, &queue_error);
    if (error_out)
        *error_out = queue_error;
    return request;
}

void *vel_threadpool_get_result(velthreadpool *pool, vel_error_t *error_out)
{
    VEL_ASSERT(pool);

    return vel_threadpool_fetch<vel_lockqueue_pop>(pool, error_out);
}

void *vel_threadpool_get_result_try(velthreadpool *pool, vel_error_t *error_out)
{
    VEL_ASSERT(pool);

    return vel_threadpool_fetch<vel_lockqueue_pop_try>(pool, error_out);
}
