#include <vellib/velicap.h>

#include <inttypes.h>
#include <string.h>

#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>

#include "net/velicap_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velicap"

/* Builds the members in order. On false the caller destroys what there is. */
static bool vel_icap_build(struct velicap *velicap)
{
    velicap->timeoutseconds = -1;
    velicap->bufferlen = kVelIcapBufferSize;
    velicap->buffer = static_cast<char *>(vel_malloc(velicap->bufferlen));
    if (!velicap->buffer) {
        VEL_LOG(7, "not enough memory for receive buffer (%" PRIu64 " bytes)", velicap->bufferlen);
        return false;
    }
    velicap->veltimeout = vel_timeout_create();
    if (!velicap->veltimeout) {
        VEL_LOG(7, "not enough memory for veltimeout context");
        return false;
    }
    velicap->responseheaders = vel_httpheaders_create();
    if (!velicap->responseheaders) {
        VEL_LOG(7, "not enough memory for the response header hashtable");
        return false;
    }
    return true;
}

/* Copies a part. On failure the part has no data. */
static vel_error_t vel_icap_store_part(velicappart *part, const void *data, uint64_t size)
{
    vel_free(part->data);
    part->size = 0;
    part->data = size < SIZE_MAX ? static_cast<char *>(vel_malloc(size + 1)) : nullptr;
    if (!part->data) {
        VEL_LOG(7, "not enough memory for the encapsulated part (%" PRIu64 " bytes)", size);
        return VEL_ERROR_NO_MEMORY;
    }
    if (size > 0)
        memcpy(part->data, data, size);
    part->data[size] = '\0';
    part->size = size;
    return VEL_ERROR_NONE;
}

static void vel_icap_drop_part_headers(velicappart *part)
{
    if (part->headers)
        vel_httpheaders_destroy(part->headers);
    part->headers = nullptr;
}

/* Reads what the stored headers of a message say. On failure the part has none by name. */
static vel_error_t vel_icap_parse_part_headers(velicappart *part)
{
    vel_icap_drop_part_headers(part);
    part->headers = vel_httpheaders_create();
    if (!part->headers)
        return VEL_ERROR_NO_MEMORY;
    const vel_error_t error =
        vel_httpheaders_parse_from_message(part->headers, part->data, part->size);
    if (error)
        vel_icap_drop_part_headers(part);
    return error;
}

vel_error_t vel_icap_set_encapsulated_part(struct velicap *velicap, unsigned int kind,
                                           const void *data, uint64_t size)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(kind < VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES);
    VEL_ASSERT(data != NULL || size == 0);

    velicappart *part = &velicap->encapsulated[kind];
    const vel_error_t error = vel_icap_store_part(part, data, size);
    if (error)
        return error;
    const bool areheaders =
        kind == VEL_ICAP_ENCAPSULATED_GEN_REQHDR || kind == VEL_ICAP_ENCAPSULATED_GEN_RESHDR;
    return areheaders ? vel_icap_parse_part_headers(part) : VEL_ERROR_NONE;
}

void vel_icap_free_response(struct velicap *velicap)
{
    vel_free(velicap->responsedata);
    velicap->responsedata = nullptr;
    velicap->responsedatalen = 0;
    velicap->responsedatacapacity = 0;
    velicap->responsedatapos = 0;
    vel_free(velicap->responseheader);
    velicap->responseheader = nullptr;
    velicap->responseheaderlen = 0;
}

void vel_icap_reset_options(struct velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    if (velicap->velhandle)
        vel_handle_destroy(velicap->velhandle);
    velicap->velhandle = nullptr;
    velicap->requestbodycallback = nullptr;
    velicap->requestbodycontext = nullptr;
    for (velicappart &part : velicap->encapsulated) {
        vel_free(part.data);
        part.data = nullptr;
        part.size = 0;
        vel_icap_drop_part_headers(&part);
    }
    velicap->method = VEL_ICAP_METHOD_NONE;
}

int vel_icap_timeout_check(struct velicap *velicap, int *secondsptr, unsigned int *microsecondsptr)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(velicap->veltimeout);

    return vel_timeout_check(velicap->veltimeout, secondsptr, microsecondsptr);
}

vel_error_t vel_icap_check_time(struct velicap *velicap, int *secondsptr,
                                unsigned int *microsecondsptr)
{
    if (vel_icap_timeout_check(velicap, secondsptr, microsecondsptr) != 1)
        return VEL_ERROR_NONE;
    VEL_LOG(7, "a timeout occurred");
    return VEL_ERROR_TIMED_OUT;
}

velicap *vel_icap_create()
{
    auto *velicap = static_cast<struct velicap *>(vel_cmalloc(sizeof(struct velicap)));
    if (!velicap) {
        VEL_LOG(7, "not enough memory for the velicap context");
        return nullptr;
    }
    if (!vel_icap_build(velicap)) {
        vel_icap_destroy(velicap);
        return nullptr;
    }
    return velicap;
}

void vel_icap_destroy(velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    vel_icap_reset(velicap);
    vel_free(velicap->url);
    if (velicap->responseheaders)
        vel_httpheaders_destroy(velicap->responseheaders);
    if (velicap->veltimeout)
        vel_timeout_destroy(velicap->veltimeout);
    vel_free(velicap->buffer);
    vel_free(velicap);
}

void vel_icap_reset(velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    vel_icap_reset_options(velicap);
    velicap->headeroffset = 0;
    velicap->bodyoffset = 0;
    velicap->hasbody = 0;
    vel_free(velicap->rawheaders);
    velicap->rawheaders = nullptr;
    velicap->rawheaderslen = 0;
    vel_icap_free_response(velicap);
}

vel_error_t vel_icap_set_url(velicap *velicap, const char *url)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(url != NULL);

    vel_free(velicap->url);
    velicap->url = vel_strdup(url);
    if (velicap->url)
        return VEL_ERROR_NONE;
    VEL_LOG(7, "not enough memory to set icap url to '%s'", url);
    return VEL_ERROR_NO_MEMORY;
}

void vel_icap_set_timeout(velicap *velicap, int seconds, unsigned int microseconds)
{
    VEL_ASSERT(velicap != NULL);

    velicap->timeoutseconds = seconds;
    velicap->timeoutmicroseconds = microseconds;
}

void vel_icap_set_method_reqmod(velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    velicap->method = VEL_ICAP_METHOD_REQMOD;
}

void vel_icap_set_method_respmod(velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    velicap->method = VEL_ICAP_METHOD_RESPMOD;
}

void vel_icap_set_method_options(velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    velicap->method = VEL_ICAP_METHOD_OPTIONS;
}

void vel_icap_set_allow_204(velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    velicap->allow204 = 1;
}

vel_error_t vel_icap_set_request_headers(velicap *velicap, const void *data, size_t size)
{
    VEL_ASSERT(velicap != NULL);

    return vel_icap_set_encapsulated_part(velicap, VEL_ICAP_ENCAPSULATED_GEN_REQHDR, data, size);
}

vel_error_t vel_icap_set_response_headers(velicap *velicap, const void *reshdr, size_t size)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(reshdr != NULL);
    VEL_ASSERT(size > 0);

    return vel_icap_set_encapsulated_part(velicap, VEL_ICAP_ENCAPSULATED_GEN_RESHDR, reshdr, size);
}

vel_error_t vel_icap_set_request_body(velicap *velicap, const void *data, size_t size)
{
    VEL_ASSERT(velicap != NULL);

    return vel_icap_set_encapsulated_part(velicap, VEL_ICAP_ENCAPSULATED_GEN_REQBODY, data, size);
}

vel_error_t vel_icap_set_response_body(velicap *velicap, const void *data, size_t size)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(data != NULL);
    VEL_ASSERT(size > 0);

    return vel_icap_set_encapsulated_part(velicap, VEL_ICAP_ENCAPSULATED_GEN_RESBODY, data, size);
}

void vel_icap_set_request_body_callback(velicap *velicap, vel_icap_body_cb *callback, void *context)
{
    VEL_ASSERT(velicap != NULL);

    velicap->requestbodycallback = callback;
    velicap->requestbodycontext = context;
}
