#include "net/velhttp_internal.h"

#include <string.h>

#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>
#include <vellib/velstrncasecmp.h>
#include <vellib/velstrstrip.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp"

/* Creates a countdown, or logs what there is not enough memory for. */
static veltimeout *vel_http_request_create_timeout(const char *what)
{
    veltimeout *timeout = vel_timeout_create();
    if (!timeout)
        VEL_LOG(7, "not enough memory for %s", what);
    return timeout;
}

/* Builds the members in order. On false the caller destroys what there is. */
static bool vel_http_request_build(velhttprequest *request)
{
    request->veltimeout = vel_http_request_create_timeout("veltimeout context");
    if (!request->veltimeout)
        return false;
    request->timeoutseconds = -1;
    vel_timeout_set(request->veltimeout, request->timeoutseconds, request->timeoutmicroseconds);

    request->idletimeout = vel_http_request_create_timeout("idle timeout");
    if (!request->idletimeout)
        return false;
    request->idleseconds = kVelHttpIdleSeconds;
    vel_timeout_set(request->idletimeout, request->idleseconds, request->idlemicroseconds);

    request->method = VEL_HTTP_METHOD_GET;

    request->progresstimeout = vel_http_request_create_timeout("progress callback timeout");
    if (!request->progresstimeout)
        return false;

    request->requestheaderlist = vel_list_create();
    if (!request->requestheaderlist) {
        VEL_LOG(7, "not enough memory for the request header list");
        return false;
    }
    request->responseheaders = vel_httpheaders_create();
    if (!request->responseheaders) {
        VEL_LOG(7, "unable to create the response headers module context");
        return false;
    }
    return true;
}

velhttprequest *vel_http_request_create(struct velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    auto *request = static_cast<velhttprequest *>(vel_cmalloc(sizeof(velhttprequest)));
    if (!request) {
        VEL_LOG(7, "not enough memory for velhttp request context");
        return nullptr;
    }
    request->velhttp = velhttp;
    if (!vel_http_request_build(request)) {
        vel_http_request_destroy(request);
        return nullptr;
    }
    return request;
}

static void vel_http_request_destroy_timeout(veltimeout *timeout)
{
    if (timeout)
        vel_timeout_destroy(timeout);
}

void vel_http_request_destroy(velhttprequest *request)
{
    VEL_ASSERT(request != NULL);

    vel_http_request_free_response_data(request);
    if (request->responseheaders)
        vel_httpheaders_destroy(request->responseheaders);
    if (request->requestheaderlist) {
        vel_http_cleanup_request_headers(request);
        VEL_ASSERT(request->requestheaderlist->head == NULL);
        vel_list_destroy(request->requestheaderlist);
    }
    vel_http_request_destroy_timeout(request->veltimeout);
    vel_http_request_destroy_timeout(request->idletimeout);
    vel_http_request_destroy_timeout(request->progresstimeout);
    for (void *text :
         {static_cast<void *>(request->proxyhostname), static_cast<void *>(request->proxyuser),
          static_cast<void *>(request->proxypassword), static_cast<void *>(request->cafilename),
          static_cast<void *>(request->capath), static_cast<void *>(request->baseurl),
          static_cast<void *>(request->custommethod), request->requestbody})
        vel_free(text);
    vel_free(request);
}

static void vel_http_request_destroy_header(velhttprequest *request, velhttprequestheader *header)
{
    VEL_LIST_REMOVE(request->requestheaderlist, header);
    vel_free(header->text);
    vel_free(header);
}

vel_error_t vel_http_request_add_header(velhttprequest *request, const char *header)
{
    auto *entry = static_cast<velhttprequestheader *>(vel_cmalloc(sizeof(velhttprequestheader)));
    if (!entry) {
        VEL_LOG(7, "not enough memory for header entry");
        return VEL_ERROR_NO_MEMORY;
    }
    entry->text = vel_strdup(header);
    if (!entry->text) {
        VEL_LOG(7, "not enough memory for header line");
        vel_free(entry);
        return VEL_ERROR_NO_MEMORY;
    }
    VEL_LIST_ADD_TAIL(request->requestheaderlist, entry);
    return VEL_ERROR_NONE;
}

/* The first header of this name, in any case and with white space around its name. */
static velhttprequestheader *vel_http_request_find_header(velhttprequest *request,
                                                          const char *headername)
{
    const size_t headernamelen = strlen(headername);
    auto *header = static_cast<velhttprequestheader *>(request->requestheaderlist->head);

    for (; header; header = header->next) {
        const char *colon = strchr(header->text, ':');
        if (!colon)
            continue;
        const char *name = header->text;
        size_t namelen = static_cast<size_t>(colon - name);
        vel_strptrstrip(&name, &namelen);
        if (namelen == headernamelen && vel_strncasecmp(name, headername, namelen) == 0)
            return header;
    }
    return nullptr;
}

void vel_http_request_remove_header(velhttprequest *request, const char *headername)
{
    velhttprequestheader *header = vel_http_request_find_header(request, headername);
    if (header)
        vel_http_request_destroy_header(request, header);
}

void vel_http_cleanup_request_headers(velhttprequest *request)
{
    while (request->requestheaderlist->head) {
        vel_http_request_destroy_header(
            request, static_cast<velhttprequestheader *>(request->requestheaderlist->head));
    }
}

void vel_http_progress_reset(velhttpprogress *progress)
{
    progress->callback = nullptr;
    progress->context = nullptr;
    progress->total = -1;
    progress->current = 0;
}

void vel_http_request_free_response_data(velhttprequest *request)
{
    vel_free(request->responsedata);
    request->responsedata = nullptr;
    request->responsedatalen = 0;
    request->responsedatacapacity = 0;
    request->responsedatapos = 0;
}

void vel_http_request_reset_response(velhttprequest *request)
{
    vel_httpheaders_clear(request->responseheaders);
    vel_http_request_free_response_data(request);
}

void vel_http_request_reset_proxy_auth(velhttprequest *request)
{
    request->authoffered = 0;
    request->authindex = 0;
    request->authmethod = 0;
    request->authretries = 0;
}
