#include "net/velicap_internal.h"

#include <string.h>

#include <vellib/velhandle_tcp.h>
#include <vellib/velmalloc.h>
#include <vellib/velstrdupf.h>
#include <vellib/velurl.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velicap"

const char *vel_icap_get_method(struct velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    const char *method = vel_icap_method_name(velicap->method);
    if (!method)
        VEL_LOG(6, "INTERNAL ERROR: Unrecognized method %u", velicap->method);
    return method;
}

/* ---- The transports -------------------------------------------------------------------------- */

static vel_error_t vel_icap_connect_handle(struct velicap *velicap, struct velhandle *handle,
                                           const char *host, unsigned int port)
{
    int seconds = 0;
    unsigned int microseconds = 0;
    vel_error_t error = vel_icap_check_time(velicap, &seconds, &microseconds);
    if (error)
        return error;
    vel_handle_set_write_timeout(handle, seconds, microseconds);
    error = vel_handle_connect(handle, host, port);
    if (error)
        VEL_LOG(7, "connection failed, error %d (%s)", error, vel_error_string(error));
    return error;
}

vel_error_t vel_icap_connect_tcp(struct velicap *velicap, const char *host, unsigned int port)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(host != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);

    struct velhandle *handle = vel_handle_tcp_create();
    if (!handle) {
        VEL_LOG(7, "unable to create velhandle");
        return VEL_ERROR_NO_MEMORY;
    }
    const vel_error_t error = vel_icap_connect_handle(velicap, handle, host, port);
    if (error)
        vel_handle_destroy(handle);
    else
        velicap->velhandle = handle;
    return error;
}

static vel_error_t vel_icap_request_by_tcp(struct velicap *velicap, const char *method, velurl *url)
{
    const char *host = vel_url_get_host(url);
    const unsigned int port = vel_url_get_port(url);
    const vel_error_t error = vel_icap_connect_tcp(velicap, host, port);
    return error ? error : vel_icap_send_request(velicap, method, velicap->url, host, port);
}

static vel_error_t vel_icap_request_by_unix_domain_socket(struct velicap *velicap,
                                                          const char *method, velurl *url)
{
    char *requesturl = vel_strdupf("icap://localhost%s", vel_url_get_localpart(url));
    if (!requesturl) {
        VEL_LOG(7, "not enough memory for the request URL");
        return VEL_ERROR_NO_MEMORY;
    }
    vel_error_t error = vel_icap_connect_unix_domain_socket(velicap, vel_url_get_host(url));
    if (!error)
        error = vel_icap_send_request(velicap, method, requesturl, "localhost", 0);
    vel_free(requesturl);
    return error;
}

/* ---- The exchange ---------------------------------------------------------------------------- */

static vel_error_t vel_icap_read_message_headers(struct velicap *velicap)
{
    VEL_ASSERT(velicap->headeroffset == 0);
    VEL_ASSERT(velicap->responsedata == NULL);

    const vel_error_t error =
        vel_icap_read_encapsulated_headers(velicap, velicap->bodyoffset - velicap->headeroffset);
    if (error) {
        VEL_LOG(6, "unable to read icap header");
        return error;
    }
    velicap->responseheader = velicap->responsedata;
    velicap->responseheaderlen = velicap->responsedatapos;
    velicap->responsedata = nullptr;
    velicap->responsedatalen = 0;
    velicap->responsedatacapacity = 0;
    velicap->responsedatapos = 0;
    return VEL_ERROR_NONE;
}

/* Reads what is encapsulated in the answer: HTTP headers, and a body if there is one. */
static vel_error_t vel_icap_read_message(struct velicap *velicap)
{
    const char *encapsulated = vel_httpheaders_get(velicap->responseheaders, "encapsulated");
    if (!encapsulated) {
        VEL_LOG(6, "no Encapsulated header in the ICAP response");
        return VEL_ERROR_PROTOCOL;
    }
    vel_error_t error = vel_icap_parse_encapsulated_header(velicap, encapsulated);
    if (error) {
        VEL_LOG(6, "unable to parse Encapsulated header");
        return error;
    }
    error = vel_icap_read_message_headers(velicap);
    if (error || !velicap->hasbody)
        return error;
    error = vel_icap_read_body_chunked(velicap);
    if (error)
        VEL_LOG(6, "unable to read encapsulated chunked body");
    return error;
}

static vel_error_t vel_icap_read_answer(struct velicap *velicap)
{
    vel_error_t error = vel_icap_read_status_code(velicap);
    if (!error)
        error = vel_icap_read_icap_headers(velicap);
    if (error || velicap->statuscode == 204)
        return error;
    return vel_icap_read_message(velicap);
}

static vel_error_t vel_icap_exchange(struct velicap *velicap, const char *method, velurl *url)
{
    vel_error_t error = vel_url_set_url(url, velicap->url);
    if (error) {
        VEL_LOG(7, "unable to parse URL '%s', error %d (%s)", velicap->url, error,
                vel_error_string(error));
        return error;
    }
    error = strcmp(vel_url_get_scheme(url), "icap+unix") == 0
                ? vel_icap_request_by_unix_domain_socket(velicap, method, url)
                : vel_icap_request_by_tcp(velicap, method, url);
    return error ? error : vel_icap_read_answer(velicap);
}

static vel_error_t vel_icap_perform_prepared(struct velicap *velicap)
{
    const char *method = vel_icap_get_method(velicap);
    if (!method)
        return VEL_ERROR_INVALID_ARGUMENT;
    if (!velicap->url) {
        VEL_LOG(6, "no URL set");
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    velurl *url = vel_url_create();
    if (!url) {
        VEL_LOG(7, "not enough memory for URL parsing context");
        return VEL_ERROR_NO_MEMORY;
    }
    const vel_error_t error = vel_icap_exchange(velicap, method, url);
    vel_url_destroy(url);
    return error;
}

vel_error_t vel_icap_perform(velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    vel_timeout_set(velicap->veltimeout, velicap->timeoutseconds, velicap->timeoutmicroseconds);
    vel_httpheaders_clear(velicap->responseheaders);
    vel_icap_free_response(velicap);
    const vel_error_t error = vel_icap_perform_prepared(velicap);
    vel_icap_reset_options(velicap);
    return error;
}
