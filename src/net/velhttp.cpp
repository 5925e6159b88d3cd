#include <vellib/velhttp.h>

#include <vellib/velmalloc.h>

#include "net/velhttp_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp"

velhttp *vel_http_generic_create()
{
    auto *velhttp = static_cast<struct velhttp *>(vel_cmalloc(sizeof(struct velhttp)));
    if (!velhttp) {
        VEL_LOG(7, "not enough memory for the velhttp context");
        return nullptr;
    }
    velhttp->preparereq = vel_http_request_create(velhttp);
    if (!velhttp->preparereq) {
        VEL_LOG(7, "unable to create HTTP request context");
        vel_http_destroy(velhttp);
        return nullptr;
    }
    return velhttp;
}

void vel_http_destroy(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    if (velhttp->destroycallback)
        velhttp->destroycallback(velhttp->context);
    if (velhttp->preparereq)
        vel_http_request_destroy(velhttp->preparereq);
    vel_free(velhttp);
}

vel_error_t vel_http_reset(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    vel_error_t result = VEL_ERROR_NONE;
    if (velhttp->resetcallback)
        result = velhttp->resetcallback(velhttp);

    vel_http_set_method_get(velhttp);
    preparereq->aborted.store(0, std::memory_order_relaxed);
    vel_http_progress_reset(&preparereq->uploadprogress);
    vel_http_progress_reset(&preparereq->downloadprogress);
    vel_free(preparereq->baseurl);
    preparereq->baseurl = nullptr;
    preparereq->statuscode = 0;
    vel_http_cleanup_request_headers(preparereq);
    vel_free(preparereq->requestbody);
    preparereq->requestbody = nullptr;
    preparereq->requestbodylen = 0;
    preparereq->responsebodycallback = nullptr;
    preparereq->responsebodycontext = nullptr;
    vel_http_request_free_response_data(preparereq);
    return result;
}

void vel_http_set_async_context(velhttp *velhttp, void *asynccontext)
{
    VEL_ASSERT(velhttp != NULL);

    velhttp->asynccontext = asynccontext;
}

void *vel_http_get_async_context(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    return velhttp->asynccontext;
}

void vel_http_set_context(velhttp *velhttp, void *context)
{
    VEL_ASSERT(velhttp != NULL);

    velhttp->context = context;
}

void *vel_http_get_context(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    return velhttp->context;
}

void vel_http_set_destroy_callback(velhttp *velhttp, vel_http_destroy_cb *callback)
{
    VEL_ASSERT(velhttp != NULL);

    velhttp->destroycallback = callback;
}

void vel_http_set_reset_callback(velhttp *velhttp, vel_http_reset_cb *callback)
{
    VEL_ASSERT(velhttp != NULL);

    velhttp->resetcallback = callback;
}

void vel_http_set_url_callback(velhttp *velhttp, vel_http_url_cb *callback)
{
    VEL_ASSERT(velhttp != NULL);

    velhttp->urlcallback = callback;
}

void vel_http_set_perform_callback(velhttp *velhttp, vel_http_perform_cb *callback)
{
    VEL_ASSERT(velhttp != NULL);

    velhttp->performcallback = callback;
}

void vel_http_set_perform_async_callback(velhttp *velhttp, vel_http_perform_async_cb *callback)
{
    VEL_ASSERT(velhttp != NULL);

    velhttp->performasynccallback = callback;
}

void vel_http_set_active_request(velhttp *velhttp, velhttprequest *request)
{
    VEL_ASSERT(velhttp != NULL);

    velhttp->activereq = request;
}
