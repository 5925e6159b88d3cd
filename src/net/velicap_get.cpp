#include "net/velicap_internal.h"

#include <inttypes.h>
#include <string.h>

#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velicap"

/* Copies a text of the answer and terminates it. what is how the log calls it. */
static vel_error_t vel_icap_copy_text(const char *text, uint64_t length, const char *what,
                                      char **copyptr)
{
    *copyptr = nullptr;
    if (!text) {
        VEL_LOG(6, "no %s available", what);
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    auto *copy = static_cast<char *>(vel_malloc(length + 1));
    if (!copy) {
        VEL_LOG(7, "not enough memory for the %s", what);
        return VEL_ERROR_NO_MEMORY;
    }
    memcpy(copy, text, length);
    copy[length] = '\0';
    *copyptr = copy;
    return VEL_ERROR_NONE;
}

unsigned int vel_icap_get_status_code(velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    return velicap->statuscode;
}

vel_error_t vel_icap_get_response_icap_headers(velicap *velicap, char **headersptr)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(headersptr != NULL);

    return vel_icap_copy_text(velicap->rawheaders, velicap->rawheaderslen, "ICAP response headers",
                              headersptr);
}

vel_error_t vel_icap_get_response_headers(velicap *velicap, char **headersptr)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(headersptr != NULL);

    return vel_icap_copy_text(velicap->responseheader, velicap->responseheaderlen,
                              "encapsulated response headers", headersptr);
}

vel_error_t vel_icap_get_response_body_and_size(velicap *velicap, char **bodyptr, size_t *sizeptr)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(bodyptr != NULL);
    VEL_ASSERT(sizeptr != NULL);

    *bodyptr = nullptr;
    *sizeptr = 0;
    if (!velicap->responsedata) {
        VEL_LOG(6, "no response data available");
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    auto *body = static_cast<char *>(vel_malloc(velicap->responsedatalen));
    if (!body) {
        VEL_LOG(7, "not enough memory for response body (%" PRIu64 " bytes)",
                velicap->responsedatalen);
        return VEL_ERROR_NO_MEMORY;
    }
    memcpy(body, velicap->responsedata, velicap->responsedatalen);
    *bodyptr = body;
    *sizeptr = velicap->responsedatalen;
    return VEL_ERROR_NONE;
}
