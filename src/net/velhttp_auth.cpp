#include "net/velhttp_internal.h"

#include <string.h>

#include <vellib/velbase64.h>
#include <vellib/velmalloc.h>
#include <vellib/velstrdupf.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp"

constexpr unsigned int kAuthBasic = 1; /* its bit in authoffered */

/* The schemes that are tried, in this order. The others are only noted when a proxy names them. */
static constexpr unsigned int kAuthOrder[] = {kAuthBasic};
static constexpr size_t kAuthOrderLength = sizeof(kAuthOrder) / sizeof(kAuthOrder[0]);

static bool vel_http_is_empty(const char *text)
{
    return !text || text[0] == '\0';
}

/* Forms the whole header line, a new string, or gives NULL without memory. */
static char *vel_http_format_basic_auth(const char *user, const char *password)
{
    char *line = nullptr;
    char *credentials = vel_strdupf("%s:%s", user, password ? password : "");
    char *encoded = credentials ? vel_base64_encode(credentials, strlen(credentials)) : nullptr;
    if (encoded)
        line = vel_strdupf("%s: Basic %s", kVelHttpProxyAuthorization, encoded);
    vel_free(encoded);
    vel_free(credentials);
    return line;
}

static vel_error_t vel_http_proxy_start_basic_auth(velhttprequest *request)
{
    if (vel_http_is_empty(request->proxyuser)) {
        VEL_LOG(7, "proxy auth user is not defined");
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    VEL_LOG(10, "HTTP proxy user: '%s'", request->proxyuser);

    char *line = vel_http_format_basic_auth(request->proxyuser, request->proxypassword);
    if (!line) {
        VEL_LOG(7, "not enough memory for proxy auth credentials");
        return VEL_ERROR_NO_MEMORY;
    }
    vel_http_request_remove_header(request, kVelHttpProxyAuthorization);
    const vel_error_t error = vel_http_request_add_header(request, line);
    if (error)
        VEL_LOG(7, "Can not add '%s' request header", kVelHttpProxyAuthorization);
    vel_free(line);
    return error;
}

static vel_error_t vel_http_handle_auth_basic(velhttprequest *request)
{
    if (request->authretries != 0)
        return VEL_ERROR_ACCESS;
    const vel_error_t error = vel_http_proxy_start_basic_auth(request);
    if (error)
        return error;

    VEL_LOG(10, "Retry with Basic authentication");
    vel_http_request_restart_progress(request);
    vel_http_request_reset_response(request);
    request->statuscode = 0;
    request->authretries++;
    return VEL_ERROR_NONE;
}

static vel_error_t vel_http_start_auth(velhttprequest *request, unsigned int scheme)
{
    if (!(request->authoffered & scheme))
        return VEL_ERROR_INVALID_ARGUMENT;
    return scheme == kAuthBasic ? vel_http_handle_auth_basic(request) : VEL_ERROR_NOT_IMPLEMENTED;
}

vel_error_t vel_http_handle_auth_request(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request = vel_http_get_active_request(velhttp, "no active request set");
    if (!request)
        return VEL_ERROR_INVALID_ARGUMENT;
    if (request->statuscode != 407) {
        VEL_LOG(7, "Proxy server has not requested authentication");
        return VEL_ERROR_NONE;
    }
    if (vel_http_is_empty(request->proxyhostname)) {
        VEL_LOG(7, "Proxy server is not defined");
        return VEL_ERROR_PROTOCOL;
    }
    if (vel_http_is_empty(request->proxyuser)) {
        VEL_LOG(7, "No user defined for proxy authentication");
        return VEL_ERROR_ACCESS;
    }
    for (size_t index = request->authindex; index < kAuthOrderLength; index++) {
        if (vel_http_start_auth(request, kAuthOrder[index]) == VEL_ERROR_NONE) {
            request->authmethod = kAuthOrder[index];
            request->authindex = index;
            return VEL_ERROR_NONE;
        }
        request->authretries = 0;
    }
    vel_http_request_reset_proxy_auth(request);
    return VEL_ERROR_NOT_FOUND;
}
