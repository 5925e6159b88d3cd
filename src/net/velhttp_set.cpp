#include "net/velhttp_internal.h"

#include <string.h>

#include <vellib/velmalloc.h>
#include <vellib/velmemdup.h>
#include <vellib/velstrdup.h>
#include <vellib/velstrndup.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp"

struct vel_http_method_name {
    const char *name;
    vel_http_method method;
};

static constexpr vel_http_method_name kMethodNames[] = {
    {"GET", VEL_HTTP_METHOD_GET},
    {"POST", VEL_HTTP_METHOD_POST},
    {"PUT", VEL_HTTP_METHOD_PUT},
    {"DELETE", VEL_HTTP_METHOD_DELETE},
};

/* Frees the text in *valueptr and puts value, owned, in its place. */
static void vel_http_replace_string(char **valueptr, char *value)
{
    vel_free(*valueptr);
    *valueptr = value;
}

/* Replaces the text in *valueptr by a copy of value, or by NULL. On failure the old one stays. */
static vel_error_t vel_http_set_string_utf8(char **valueptr, const char *value)
{
    if (*valueptr && value && strcmp(*valueptr, value) == 0)
        return VEL_ERROR_NONE;

    char *copy = value ? vel_strdup(value) : nullptr;
    if (value && !copy) {
        VEL_LOG(7, "not enough memory for copy of the value");
        return VEL_ERROR_NO_MEMORY;
    }
    vel_http_replace_string(valueptr, copy);
    return VEL_ERROR_NONE;
}

/* The request that the proxy setters address. */
static velhttprequest *vel_http_get_proxy_request(struct velhttp *velhttp)
{
    return velhttp->inproxycallback ? velhttp->activereq.load() : velhttp->preparereq;
}

vel_error_t vel_http_set_proxy(velhttp *velhttp, const char *hostname, unsigned int port)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(port <= 65535);
    VEL_ASSERT(hostname == NULL || port > 0);
    velhttprequest *request = vel_http_get_proxy_request(velhttp);
    VEL_ASSERT(request != NULL);

    vel_http_replace_string(&request->proxyuser, nullptr);
    vel_http_replace_string(&request->proxypassword, nullptr);

    char *copy = hostname ? vel_strdup(hostname) : nullptr;
    if (hostname && !copy) {
        VEL_LOG(7, "not enough memory for proxy hostname '%s'", hostname);
        return VEL_ERROR_NO_MEMORY;
    }
    vel_http_replace_string(&request->proxyhostname, copy);
    request->proxyport = port;
    return VEL_ERROR_NONE;
}

vel_error_t vel_http_set_proxy_with_auth(velhttp *velhttp, const char *hostname, unsigned int port,
                                         const char *user, const char *password)
{
    VEL_ASSERT(velhttp != NULL);

    vel_error_t result = VEL_ERROR_NO_MEMORY;
    char *usercopy = vel_strdup(user);
    char *passwordcopy = usercopy ? vel_strdup(password ? password : "") : nullptr;
    if (!passwordcopy)
        VEL_LOG(7, "not enough memory for proxy auth");
    else
        result = vel_http_set_proxy(velhttp, hostname, port);

    if (result == VEL_ERROR_NONE && usercopy[0] != '\0') {
        velhttprequest *request = vel_http_get_proxy_request(velhttp);
        request->proxyuser = usercopy;
        request->proxypassword = passwordcopy;
        return VEL_ERROR_NONE;
    }
    vel_free(usercopy);
    vel_free(passwordcopy);
    return result;
}

void vel_http_set_proxy_callback(velhttp *velhttp, vel_http_proxy_cb *callback, void *context)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    preparereq->proxycallback = callback;
    preparereq->proxycallbackcontext = context;
}

void vel_http_set_timeout(velhttp *velhttp, int seconds, unsigned int microseconds)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    preparereq->timeoutseconds = seconds;
    preparereq->timeoutmicroseconds = microseconds;
    vel_timeout_set(preparereq->veltimeout, seconds, microseconds);
}

void vel_http_set_idle_timeout(velhttp *velhttp, int seconds, unsigned int microseconds)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    preparereq->idleseconds = seconds;
    preparereq->idlemicroseconds = microseconds;
    vel_timeout_set(preparereq->idletimeout, seconds, microseconds);
}

void vel_http_enable_system_ca(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    preparereq->systemca = 1;
}

vel_error_t vel_http_set_ca_filename(velhttp *velhttp, const char *filename)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    return vel_http_set_string_utf8(&preparereq->cafilename, filename);
}

vel_error_t vel_http_set_ca_path(velhttp *velhttp, const char *path)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    return vel_http_set_string_utf8(&preparereq->capath, path);
}

/* Stores all of a URL before its third slash. */
static vel_error_t vel_http_set_base_url(velhttprequest *request, const char *url)
{
    const char *slash = strchr(url, '/');
    slash = slash ? strchr(slash + 1, '/') : nullptr;
    if (!slash) {
        VEL_LOG(6, "invalid URL '%s'", url);
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    const char *end = strchr(slash + 1, '/');
    char *baseurl = end ? vel_strndup(url, static_cast<size_t>(end - url)) : vel_strdup(url);
    if (!baseurl) {
        VEL_LOG(7, "not enough memory for base URL");
        return VEL_ERROR_NO_MEMORY;
    }
    vel_http_replace_string(&request->baseurl, baseurl);
    return VEL_ERROR_NONE;
}

vel_error_t vel_http_set_url(velhttp *velhttp, const char *url)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(url != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    if (!velhttp->urlcallback) {
        VEL_LOG(6, "this HTTP implementation does not support setting the URL");
        return VEL_ERROR_UNSUPPORTED;
    }
    const vel_error_t error = velhttp->urlcallback(velhttp, url);
    if (error)
        return error;
    return vel_http_set_base_url(preparereq, url);
}

vel_error_t vel_http_set_method(velhttp *velhttp, const char *method)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(method != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    for (const vel_http_method_name &known : kMethodNames) {
        if (strcmp(method, known.name) == 0) {
            preparereq->method = known.method;
            return VEL_ERROR_NONE;
        }
    }
    /* The copy comes first, as method may be what vel_http_get_method gave. */
    char *copy = vel_strdup(method);
    if (!copy)
        VEL_LOG(7, "not enough memory for setting method to '%s'", method);
    vel_http_replace_string(&preparereq->custommethod, copy);
    preparereq->method = copy ? VEL_HTTP_METHOD_CUSTOM : VEL_HTTP_METHOD_NONE;
    return copy ? VEL_ERROR_NONE : VEL_ERROR_NO_MEMORY;
}

void vel_http_set_method_get(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    preparereq->method = VEL_HTTP_METHOD_GET;
}

void vel_http_set_method_post(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    preparereq->method = VEL_HTTP_METHOD_POST;
}

void vel_http_set_method_put(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    preparereq->method = VEL_HTTP_METHOD_PUT;
}

void vel_http_set_method_delete(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    preparereq->method = VEL_HTTP_METHOD_DELETE;
}

vel_error_t vel_http_add_header(velhttp *velhttp, const char *header)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(header != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    return vel_http_request_add_header(preparereq, header);
}

vel_error_t vel_http_set_request_body(velhttp *velhttp, const void *data, size_t size)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(data != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    void *body = vel_memdup(data, size);
    if (!body) {
        VEL_LOG(7, "not enough memory for request body (%zu bytes)", size);
        return VEL_ERROR_NO_MEMORY;
    }
    vel_free(preparereq->requestbody);
    preparereq->requestbody = body;
    preparereq->requestbodylen = size;
    return VEL_ERROR_NONE;
}

void vel_http_set_response_body_callback(velhttp *velhttp, vel_http_body_cb *callback,
                                         void *context)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    preparereq->responsebodycallback = callback;
    preparereq->responsebodycontext = context;
}

void vel_http_set_upload_progress_callback(velhttp *velhttp, vel_http_progress_cb *callback,
                                           void *context)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    preparereq->uploadprogress.callback = callback;
    preparereq->uploadprogress.context = context;
}

void vel_http_set_download_progress_callback(velhttp *velhttp, vel_http_progress_cb *callback,
                                             void *context)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    preparereq->downloadprogress.callback = callback;
    preparereq->downloadprogress.context = context;
}

void vel_http_set_progress_callbacks(velhttp *velhttp, vel_http_progress_cb *uploadcallback,
                                     void *uploadcontext, vel_http_progress_cb *downloadcallback,
                                     void *downloadcontext)
{
    VEL_ASSERT(velhttp != NULL);

    vel_http_set_upload_progress_callback(velhttp, uploadcallback, uploadcontext);
    vel_http_set_download_progress_callback(velhttp, downloadcallback, downloadcontext);
}
