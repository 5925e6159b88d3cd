#include "net/velhttp_internal.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp"

velhttprequest *vel_http_get_active_request(struct velhttp *velhttp, const char *message)
{
    velhttprequest *activereq = velhttp->activereq;
    if (!activereq)
        VEL_LOG(6, "%s", message);
    return activereq;
}

unsigned int vel_http_get_status_code(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request = vel_http_get_active_request(velhttp, "no active request set");
    return request ? request->statuscode : 0;
}

const char *vel_http_get_response_header(velhttp *velhttp, const char *name)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(name != NULL);

    velhttprequest *request = vel_http_get_active_request(velhttp, "no active request set");
    return request ? vel_httpheaders_get(request->responseheaders, name) : nullptr;
}

vel_error_t vel_http_get_response_header_int(velhttp *velhttp, const char *name, int *valueptr)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(valueptr != NULL);

    *valueptr = -1;
    const char *text = vel_http_get_response_header(velhttp, name);
    if (!text)
        return VEL_ERROR_NOT_FOUND;

    errno = 0;
    const long value = strtol(text, nullptr, 10);
    if (errno == ERANGE || value < INT_MIN || value > INT_MAX)
        return VEL_ERROR_OUT_OF_RANGE;
    *valueptr = static_cast<int>(value);
    return VEL_ERROR_NONE;
}

/* Copies the body in memory, with extra bytes of room behind it; extra does not wrap the size. */
static vel_error_t vel_http_copy_response_body(const velhttprequest *request, size_t extra,
                                               char **bodyptr)
{
    const size_t size = request->responsedatalen;
    auto *body = static_cast<char *>(vel_malloc(size + extra));
    if (!body) {
        VEL_LOG(7, "not enough memory for response body (%zu bytes)", size);
        return VEL_ERROR_NO_MEMORY;
    }
    memcpy(body, request->responsedata, size);
    *bodyptr = body;
    return VEL_ERROR_NONE;
}

vel_error_t vel_http_get_response_body(velhttp *velhttp, char **bodyptr)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(bodyptr != NULL);

    *bodyptr = nullptr;
    velhttprequest *request = vel_http_get_active_request(velhttp, "no active request set");
    if (!request)
        return VEL_ERROR_INVALID_ARGUMENT;
    if (!request->responsedata) {
        VEL_LOG(6, "no response data available");
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    if (request->responsedatalen == SIZE_MAX) {
        VEL_LOG(6, "body length too high, size would wrap around");
        return VEL_ERROR_OUT_OF_RANGE;
    }
    const vel_error_t error = vel_http_copy_response_body(request, 1, bodyptr);
    if (!error)
        (*bodyptr)[request->responsedatalen] = '\0';
    return error;
}

vel_error_t vel_http_get_response_body_and_size(velhttp *velhttp, char **bodyptr, size_t *sizeptr)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(bodyptr != NULL);
    VEL_ASSERT(sizeptr != NULL);

    *bodyptr = nullptr;
    *sizeptr = 0;
    velhttprequest *request = vel_http_get_active_request(
        velhttp, "vel_http_get_response_body_and_size: no active request set");
    if (!request)
        return VEL_ERROR_INVALID_ARGUMENT;
    if (!request->responsedata) {
        VEL_LOG(6, "no response data available");
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    const vel_error_t error = vel_http_copy_response_body(request, 0, bodyptr);
    if (!error)
        *sizeptr = request->responsedatalen;
    return error;
}

void vel_http_get_proxy(velhttp *velhttp, const char **hostnameptr, unsigned int *portptr)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request =
        vel_http_get_active_request(velhttp, "vel_http_get_proxy: no active request set");
    if (hostnameptr)
        *hostnameptr = request ? request->proxyhostname : nullptr;
    if (portptr)
        *portptr = request ? request->proxyport : 0;
}

void vel_http_get_proxy_auth(velhttp *velhttp, const char **userptr, const char **passwordptr)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request =
        vel_http_get_active_request(velhttp, "vel_http_get_proxy_auth: no active request set");
    if (userptr)
        *userptr = request ? request->proxyuser : nullptr;
    if (passwordptr)
        *passwordptr = request ? request->proxypassword : nullptr;
}

void vel_http_get_ca_information(velhttp *velhttp, const char **filenameptr, const char **pathptr)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request =
        vel_http_get_active_request(velhttp, "vel_http_get_ca_information: no active request set");
    if (filenameptr)
        *filenameptr = request ? request->cafilename : nullptr;
    if (pathptr)
        *pathptr = request ? request->capath : nullptr;
}

void vel_http_get_idle_timeout(velhttp *velhttp, int *secondsptr, unsigned int *microsecondsptr)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(secondsptr != NULL);
    VEL_ASSERT(microsecondsptr != NULL);

    velhttprequest *request =
        vel_http_get_active_request(velhttp, "vel_http_get_idle_timeout: no active request set");
    *secondsptr = request ? request->idleseconds : 0;
    *microsecondsptr = request ? request->idlemicroseconds : 0;
}

int vel_http_is_aborted(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request =
        vel_http_get_active_request(velhttp, "vel_http_is_aborted: no active request set");
    return request ? request->aborted.load(std::memory_order_relaxed) : 0;
}

const char *vel_http_get_method(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *activereq = velhttp->activereq;
    VEL_ASSERT(activereq != NULL);

    switch (activereq->method) {
    case VEL_HTTP_METHOD_CUSTOM:
        return activereq->custommethod;
    case VEL_HTTP_METHOD_GET:
        return "GET";
    case VEL_HTTP_METHOD_POST:
        return "POST";
    case VEL_HTTP_METHOD_PUT:
        return "PUT";
    case VEL_HTTP_METHOD_DELETE:
        return "DELETE";
    case VEL_HTTP_METHOD_NONE:
        break;
    }
    VEL_LOG(6, "INTERNAL ERROR: Unrecognized method %u", activereq->method);
    return "GET";
}

void *vel_http_get_header(velhttp *velhttp, void *iterator, const char **headerptr)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(headerptr != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    auto *header = iterator
                       ? static_cast<velhttprequestheader *>(iterator)->next
                       : static_cast<velhttprequestheader *>(preparereq->requestheaderlist->head);
    *headerptr = header ? header->text : nullptr;
    return header;
}

const void *vel_http_get_request_body(velhttp *velhttp, size_t *bodylenptr)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(bodylenptr != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    *bodylenptr = preparereq->requestbodylen;
    return preparereq->requestbody;
}

int vel_http_is_system_ca_enabled(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *activereq = velhttp->activereq;
    return activereq ? activereq->systemca : velhttp->preparereq->systemca;
}

velhttpdeprecated *vel_http_get_deprecated(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *preparereq = velhttp->preparereq;
    VEL_ASSERT(preparereq != NULL);

    return &preparereq->deprecated;
}

void vel_http_set_status_code(velhttp *velhttp, unsigned int code)
{
    VEL_ASSERT(velhttp != NULL);
    velhttprequest *velhttprequest = velhttp->activereq;
    VEL_ASSERT(velhttprequest != NULL);

    velhttprequest->statuscode = code;
}

void vel_http_abort(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request =
        vel_http_get_active_request(velhttp, "vel_http_abort: no active request set");
    if (!request)
        return;
    request->aborted.store(1, std::memory_order_relaxed);
    VEL_LOG(10, "aborting transfer");
}

void vel_http_reset_response(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request = vel_http_get_active_request(velhttp, "no active request set");
    if (request)
        vel_http_request_reset_response(request);
}
