#include "net/velhttp_internal.h"

#include <vellib/velmalloc.h>
#include <vellib/velstrdupf.h>
#include <vellib/velurl.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp"

constexpr unsigned int kMaxPasses = 10;

/* Gives the progress tick and the time limits their turn between the steps of a pass. */
static vel_error_t vel_http_check_pass(velhttprequest *request)
{
    vel_http_progress_check(request);
    const vel_error_t error = vel_http_timeout_check(request->velhttp, nullptr, nullptr);
    if (error)
        VEL_LOG(7, "a timeout occurred");
    return error;
}

static vel_error_t vel_http_call_proxy_callback(struct velhttp *velhttp, velhttprequest *request,
                                                velurl *url)
{
    vel_error_t error = vel_url_set_url(url, request->baseurl);
    if (error) {
        VEL_LOG(7, "unable to parse URL '%s', error %d (%s)", request->baseurl, error,
                vel_error_string(error));
        return error;
    }
    velhttp->inproxycallback = 1;
    error = request->proxycallback(velhttp, vel_url_get_scheme(url), vel_url_get_host(url),
                                   vel_url_get_port(url), request->proxycallbackcontext);
    velhttp->inproxycallback = 0;
    if (error) {
        VEL_LOG(7, "the proxy callback returned error %d (%s)", error, vel_error_string(error));
    }
    return error;
}

/* Lets the proxy callback, if there is one, choose the proxy for the URL in hand. */
static vel_error_t vel_http_choose_proxy(struct velhttp *velhttp, velhttprequest *request)
{
    if (!request->proxycallback)
        return VEL_ERROR_NONE;

    velurl *url = vel_url_create();
    if (!url) {
        VEL_LOG(7, "not enough memory for URL parsing context");
        return VEL_ERROR_NO_MEMORY;
    }
    const vel_error_t error = vel_http_call_proxy_callback(velhttp, request, url);
    vel_url_destroy(url);
    return error;
}

/* Runs the backend once, up to the end of its response. */
static vel_error_t vel_http_perform_exchange(struct velhttp *velhttp, velhttprequest *request)
{
    vel_http_request_restart_progress(request);
    if (!velhttp->performcallback) {
        VEL_LOG(6, "The HTTP implementation does not support performing an operation");
        return VEL_ERROR_UNSUPPORTED;
    }
    vel_http_request_reset_response(request);
    request->statuscode = 0;

    vel_error_t error = vel_http_check_pass(request);
    if (!error)
        error = vel_http_choose_proxy(velhttp, request);
    if (!error)
        error = vel_http_check_pass(request);
    if (error)
        return error;

    error = velhttp->performcallback(velhttp);
    /* Credentials are for this pass: the next one may go elsewhere. */
    vel_http_request_reset_proxy_auth(request);
    vel_http_request_remove_header(request, kVelHttpProxyAuthorization);
    return error;
}

static vel_error_t vel_http_set_redirect_url(struct velhttp *velhttp, const char *url)
{
    const vel_error_t error = vel_http_set_url(velhttp, url);
    if (error)
        VEL_LOG(7, "Unable to set the redirect URL '%s'", url);
    return error;
}

/* Takes the location of a redirect for the next pass. */
static vel_error_t vel_http_follow_redirect(struct velhttp *velhttp, velhttprequest *request)
{
    VEL_LOG(13, "Got HTTP redirect (301/302)");
    vel_error_t error = vel_http_check_pass(request);
    if (error)
        return error;

    const char *location = vel_http_get_response_header(velhttp, "location");
    if (!location) {
        VEL_LOG(7, "Redirect without Location header");
        return VEL_ERROR_PROTOCOL;
    }
    if (location[0] != '/')
        return vel_http_set_redirect_url(velhttp, location);

    const char *baseurl = request->baseurl ? request->baseurl : "";
    char *url = vel_strdupf("%s%s", baseurl, location);
    if (!url) {
        VEL_LOG(7, "not enough memory for the redirect URL '%s%s'", baseurl, location);
        return VEL_ERROR_NO_MEMORY;
    }
    error = vel_http_set_redirect_url(velhttp, url);
    vel_free(url);
    return error;
}

/* Repeats the exchange while the answer is a redirect. */
static vel_error_t vel_http_perform_passes(struct velhttp *velhttp, velhttprequest *request)
{
    for (unsigned int passes = 0; passes < kMaxPasses; passes++) {
        vel_error_t error = vel_http_perform_exchange(velhttp, request);
        if (error || (request->statuscode != 301 && request->statuscode != 302))
            return error;
        error = vel_http_follow_redirect(velhttp, request);
        if (error)
            return error;
    }
    VEL_LOG(7, "Too many redirects (%u)", kMaxPasses);
    return VEL_ERROR_OUT_OF_RANGE;
}

vel_error_t vel_http_perform(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *request = velhttp->preparereq;
    VEL_ASSERT(request != NULL);

    velhttp->activereq = request;
    vel_http_request_start_timers(request);
    vel_http_request_reset_proxy_auth(request);

    const vel_error_t result = vel_http_perform_passes(velhttp, request);

    request->aborted.store(0, std::memory_order_relaxed);
    vel_http_cleanup_request_headers(request);
    vel_http_request_reset_proxy_auth(request);
    return result;
}

/* Hands the request to the backend, which owns it on VEL_ERROR_NONE with *startedptr set. */
static vel_error_t vel_http_start_async(struct velhttp *velhttp, velhttprequest *request,
                                        bool *startedptr)
{
    *startedptr = false;
    vel_http_request_start_timers(request);
    vel_http_request_reset_proxy_auth(request);
    vel_http_request_restart_progress(request);
    if (!velhttp->performasynccallback) {
        VEL_LOG(6, "The HTTP implementation does not support performing an asynchronous operation");
        return VEL_ERROR_UNSUPPORTED;
    }
    vel_http_request_reset_response(request);
    request->statuscode = 0;
    vel_error_t error = vel_http_choose_proxy(velhttp, request);
    if (error)
        return error;
    request->statuscode = 0;

    *startedptr = velhttp->performasynccallback(velhttp, request, &error) != nullptr;
    return *startedptr ? VEL_ERROR_NONE : error;
}

void *vel_http_perform_async(velhttp *velhttp, vel_http_completion_cb *callback, void *context,
                             vel_error_t *result)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(callback != NULL);
    VEL_ASSERT(result != NULL);
    velhttprequest *request = velhttp->preparereq;
    VEL_ASSERT(request != NULL);

    velhttprequest *newrequest = vel_http_request_create(velhttp);
    if (!newrequest) {
        VEL_LOG(7, "unable to create new velhttp request context");
        *result = VEL_ERROR_NO_MEMORY;
        return nullptr;
    }
    request->completioncallback = callback;
    request->completioncontext = context;
    bool started = false;
    const vel_error_t velerror = vel_http_start_async(velhttp, request, &started);
    velhttp->preparereq = newrequest;
    if (!started) {
        VEL_ASSERT(velerror != VEL_ERROR_NONE);
        /* A synchronous transfer before may have left it readable. */
        if (velhttp->activereq == request)
            velhttp->activereq = nullptr;
        vel_http_request_destroy(request);
    }
    *result = velerror;
    return started ? velhttp : nullptr;
}

void vel_http_complete_request(velhttp *velhttp, velhttprequest *velhttprequest, vel_error_t error)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(velhttprequest != NULL);

    velhttp->activereq = velhttprequest;
    velhttprequest->completioncallback(velhttp, error, velhttprequest->completioncontext);
    velhttp->activereq = nullptr;
    VEL_ASSERT(velhttp->preparereq != velhttprequest);
    vel_http_request_destroy(velhttprequest);
}
