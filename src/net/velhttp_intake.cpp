#include "net/velhttp_internal.h"

#include <string.h>

#include <vellib/velstrcasecmp.h>
#include <vellib/velstrncasecmp.h>
#include <vellib/velstrstrip.h>
#include <vellib/velstrtoi64.h>

#include "net/velresponsedata_core.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp"

/* How a "proxy-authenticate" value begins, and the bit of the scheme in authoffered. */
struct vel_http_auth_word {
    const char *word;
    unsigned int bit;
};

static constexpr vel_http_auth_word kAuthWords[] = {
    {"Basic", 1},
    {"Digest", 2},
    {"NTLM", 4},
    {"Negotiate", 8},
};

static void vel_http_take_content_length(velhttprequest *request, const char *value)
{
    int64_t total = 0;
    const vel_error_t error = vel_strtoi64(value, &total);
    if (error) {
        VEL_LOG(7, "parsing content-length '%s' failed, error %d (%s)", value, error,
                vel_error_string(error));
        VEL_LOG(6, "considering the content length unknown");
        total = -1;
    }
    request->downloadprogress.total = total;
}

static void vel_http_take_proxy_authenticate(velhttprequest *request, const char *value)
{
    size_t valuelen = strlen(value);
    vel_strptrstrip(&value, &valuelen);
    for (const vel_http_auth_word &scheme : kAuthWords) {
        const size_t wordlen = strlen(scheme.word);
        if (valuelen >= wordlen && vel_strncasecmp(value, scheme.word, wordlen) == 0) {
            request->authoffered |= scheme.bit;
            return;
        }
    }
}

vel_error_t vel_http_write_response_header(velhttp *velhttp, const char *name, const char *value)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(name != NULL);

    velhttprequest *request = vel_http_get_active_request(velhttp, "no active request set");
    if (!request)
        return VEL_ERROR_INVALID_ARGUMENT;

    const vel_error_t result = vel_httpheaders_add(request->responseheaders, name, value);
    if (value && vel_strcasecmp(name, "content-length") == 0)
        vel_http_take_content_length(request, value);
    else if (value && vel_strcasecmp(name, "proxy-authenticate") == 0)
        vel_http_take_proxy_authenticate(request, value);
    return result;
}

static vel_error_t vel_http_store_in_memory(velhttprequest *request, const void *data, size_t size)
{
    if (!vel_responsecore_reserve(request, size)) {
        VEL_LOG(7, "not enough memory for response body (%zu bytes)",
                request->responsedatapos + size);
        return VEL_ERROR_NO_MEMORY;
    }
    request->responsedatalen = request->responsedatapos + size;
    VEL_ASSERT(request->responsedatapos + size <= request->responsedatalen);
    memcpy(request->responsedata + request->responsedatapos, data, size);
    request->responsedatapos += size;
    return VEL_ERROR_NONE;
}

/* Tells whether the body belongs to an answer that nobody reads: a redirect or a challenge. */
static bool vel_http_drops_body(const velhttprequest *request)
{
    switch (request->statuscode) {
    case 301:
    case 302:
    case 401:
    case 407:
        return true;
    default:
        return false;
    }
}

static vel_error_t vel_http_hand_out_body(velhttprequest *request, const void *data, size_t size)
{
    if (vel_http_drops_body(request))
        return VEL_ERROR_NONE;
    if (request->responsebodycallback)
        return request->responsebodycallback(data, size, request->responsebodycontext);
    return vel_http_store_in_memory(request, data, size);
}

vel_error_t vel_http_write_response_body(velhttp *velhttp, const void *data, size_t size)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(data != NULL);
    VEL_ASSERT(size > 0);

    velhttprequest *request = vel_http_get_active_request(velhttp, "no active request set");
    if (!request)
        return VEL_ERROR_INVALID_ARGUMENT;

    const vel_error_t error = vel_http_hand_out_body(request, data, size);
    if (error)
        return error;
    const uint64_t increase = size;
    if (increase > INT64_MAX) {
        VEL_LOG(6, "The data size is so large that it doesn't fit in a 64-bit signed integer");
        return VEL_ERROR_OUT_OF_RANGE;
    }
    const uint64_t current = increase + static_cast<uint64_t>(request->downloadprogress.current);
    if (current > INT64_MAX) {
        VEL_LOG(6,
                "The total data size is so large that it doesn't fit in a 64-bit signed integer");
        return VEL_ERROR_OUT_OF_RANGE;
    }
    request->downloadprogress.current = static_cast<int64_t>(current);
    vel_http_progress_check(request);
    return VEL_ERROR_NONE;
}
