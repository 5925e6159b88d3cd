#include <vellib/velhttp_lite.h>

#include <string.h>

#include <vellib/velhandle_tcp.h>
#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>
#include <vellib/velurl.h>

#include "net/velhttp_lite_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp_lite"

constexpr unsigned int kMaxPasses = 10;

bool vel_http_lite_is_aborted(struct velhttp *velhttp)
{
    if (!vel_http_is_aborted(velhttp))
        return false;
    VEL_LOG(10, "the transfer was aborted");
    return true;
}

vel_error_t vel_http_lite_get_error(struct velhttp *velhttp, struct velhandle *velhandle)
{
    const vel_error_t error = vel_handle_get_error(velhandle);
    return error == VEL_ERROR_TIMED_OUT ? vel_http_timeout_check(velhttp, nullptr, nullptr) : error;
}

static void vel_http_lite_reset_buffer(velhttplite *http)
{
    http->bufferpos = 0;
    http->bufferuse = 0;
    http->bufferfill = 0;
}

static void vel_http_lite_reset_options(velhttplite *http)
{
    vel_http_lite_reset_buffer(http);
    if (http->velhandle)
        vel_handle_destroy(http->velhandle);
    http->velhandle = nullptr;
}

static void vel_http_lite_destroy_callback(void *context)
{
    auto *http = static_cast<velhttplite *>(context);
    VEL_ASSERT(http != NULL);

    vel_http_lite_reset_options(http);
    vel_free(http->url);
    vel_free(http->buffer);
    vel_free(http);
}

static velhttplite *vel_http_lite_get(struct velhttp *velhttp)
{
    return static_cast<velhttplite *>(vel_http_get_context(velhttp));
}

static vel_error_t vel_http_lite_reset_callback(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttplite *http = vel_http_lite_get(velhttp);
    VEL_ASSERT(http != NULL);

    vel_http_lite_reset_options(http);
    return VEL_ERROR_NONE;
}

static vel_error_t vel_http_lite_url_callback(velhttp *velhttp, const char *url)
{
    VEL_ASSERT(velhttp != NULL);
    VEL_ASSERT(url != NULL);
    velhttplite *http = vel_http_lite_get(velhttp);
    VEL_ASSERT(http != NULL);

    vel_free(http->url);
    http->url = vel_strdup(url);
    return http->url ? VEL_ERROR_NONE : VEL_ERROR_NO_MEMORY;
}

/* Checks the time limits and lets the next wait of a connect last as long as they allow. */
static vel_error_t vel_http_lite_set_connect_timeout(struct velhttp *velhttp,
                                                     struct velhandle *velhandle)
{
    int seconds = 0;
    unsigned int microseconds = 0;
    const vel_error_t error = vel_http_timeout_check(velhttp, &seconds, &microseconds);
    if (error) {
        VEL_LOG(7, "a timeout occurred");
        return error;
    }
    vel_handle_set_write_timeout(velhandle, seconds, microseconds);
    return VEL_ERROR_NONE;
}

/* Goes on with a connect whose wait has ended, which may have been for a progress tick. */
static vel_error_t vel_http_lite_connect_on(struct velhttp *velhttp, struct velhandle *velhandle)
{
    vel_error_t error = VEL_ERROR_TIMED_OUT;
    while (error == VEL_ERROR_TIMED_OUT) {
        error = vel_http_lite_set_connect_timeout(velhttp, velhandle);
        if (error)
            return error;
        error = vel_handle_connect_wait(velhandle);
        vel_http_progress_download_check(velhttp);
    }
    if (error)
        VEL_LOG(7, "connection failed, error %d (%s)", error, vel_error_string(error));
    return error;
}

static vel_error_t vel_http_lite_connect_handle(struct velhttp *velhttp,
                                                struct velhandle *velhandle, const char *host,
                                                unsigned int port)
{
    if (vel_http_lite_set_connect_timeout(velhttp, velhandle))
        return VEL_ERROR_TIMED_OUT;
    vel_error_t error = vel_handle_connect_begin(velhandle, host, port);
    while (error == VEL_ERROR_IN_PROGRESS) {
        vel_http_progress_download_check(velhttp);
        if (vel_http_lite_set_connect_timeout(velhttp, velhandle))
            return VEL_ERROR_TIMED_OUT;
        error = vel_handle_connect_wait(velhandle);
    }
    if (!error)
        return error;

    vel_http_progress_download_check(velhttp);
    if (error == VEL_ERROR_TIMED_OUT)
        return vel_http_lite_connect_on(velhttp, velhandle);
    VEL_LOG(error == VEL_ERROR_INTERRUPTED ? 13 : 7, "connection failed, error %d (%s)", error,
            vel_error_string(error));
    return error;
}

static vel_error_t vel_http_lite_connect(struct velhttp *velhttp, velhttplite *http,
                                         const char *host, unsigned int port)
{
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);

    http->velhandle = vel_handle_tcp_create();
    if (!http->velhandle) {
        VEL_LOG(7, "unable to create velhandle");
        return VEL_ERROR_NO_MEMORY;
    }
    vel_http_reset_idle_timeout(velhttp);
    const vel_error_t error = vel_http_lite_connect_handle(velhttp, http->velhandle, host, port);
    if (error) {
        vel_handle_destroy(http->velhandle);
        http->velhandle = nullptr;
    }
    return error;
}

/* Sends the request and reads the response, once. */
static vel_error_t vel_http_lite_exchange(struct velhttp *velhttp, velhttplite *http,
                                          const char *query, velurl *url)
{
    const char *method = vel_http_get_method(velhttp);
    VEL_ASSERT(method != NULL);
    if (vel_http_lite_is_aborted(velhttp))
        return VEL_ERROR_CANCELED;

    vel_error_t error = vel_http_lite_send_request(velhttp, http->velhandle, method, query,
                                                   vel_url_get_host(url), vel_url_get_port(url));
    if (!error)
        error = vel_http_lite_read_status_code(velhttp, http);
    if (!error)
        error = vel_http_lite_read_headers(velhttp, http);
    if (!error)
        error = vel_http_lite_read_body(velhttp, http);
    return error;
}

/* Repeats the exchange over one connection as long as a proxy refuses it and no user is set.
 *
 * That is how it is meant: where a user is set and the header with the credentials has been added,
 * the request is not sent again, and the transfer ends without a status code. */
static vel_error_t vel_http_lite_exchange_all(struct velhttp *velhttp, velhttplite *http,
                                              const char *query, velurl *url)
{
    for (unsigned int passes = 0; passes < kMaxPasses; passes++) {
        const vel_error_t error = vel_http_lite_exchange(velhttp, http, query, url);
        if (error)
            return error;
        if (vel_http_get_status_code(velhttp) != 407)
            break;
        if (vel_http_handle_auth_request(velhttp) != VEL_ERROR_ACCESS)
            break;
        vel_http_lite_reset_buffer(http);
    }
    return VEL_ERROR_NONE;
}

static vel_error_t vel_http_lite_perform_url(struct velhttp *velhttp, velhttplite *http,
                                             velurl *url)
{
    vel_error_t error = vel_url_set_url(url, http->url);
    if (error) {
        VEL_LOG(7, "parsing URL '%s' failed, error %d (%s)", http->url, error,
                vel_error_string(error));
        return error;
    }
    if (strcmp(vel_url_get_scheme(url), "http") != 0) {
        VEL_LOG(6, "the URL '%s' must start with http://", http->url);
        return VEL_ERROR_UNSUPPORTED;
    }
    const char *proxyhost = nullptr;
    unsigned int proxyport = 0;
    vel_http_get_proxy(velhttp, &proxyhost, &proxyport);
    if (vel_http_lite_is_aborted(velhttp))
        return VEL_ERROR_CANCELED;

    error = proxyhost ? vel_http_lite_connect(velhttp, http, proxyhost, proxyport)
                      : vel_http_lite_connect(velhttp, http, vel_url_get_host(url),
                                              vel_url_get_port(url));
    if (error) {
        if (proxyhost) {
            VEL_LOG(7, "connecting to proxy %s port %u failed, error %d (%s)", proxyhost, proxyport,
                    error, vel_error_string(error));
        }
        return error;
    }
    return vel_http_lite_exchange_all(velhttp, http,
                                      proxyhost ? http->url : vel_url_get_localpart(url), url);
}

static vel_error_t vel_http_lite_perform_callback(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);
    velhttplite *http = vel_http_lite_get(velhttp);
    VEL_ASSERT(http != NULL);

    if (!http->url) {
        VEL_LOG(6, "no URL set");
        vel_http_lite_reset_options(http);
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    velurl *url = vel_url_create();
    if (!url) {
        VEL_LOG(7, "unable to create URL parsing context");
        vel_http_lite_reset_options(http);
        return VEL_ERROR_NO_MEMORY;
    }
    const vel_error_t error = vel_http_lite_perform_url(velhttp, http, url);
    vel_http_lite_reset_options(http);
    vel_url_destroy(url);
    return error;
}

/* Gives a context its backend. On false the caller destroys the context. */
static bool vel_http_lite_build(struct velhttp *velhttp)
{
    auto *http = static_cast<velhttplite *>(vel_cmalloc(sizeof(velhttplite)));
    if (!http) {
        VEL_LOG(7, "not enough memory for velhttp lite context");
        return false;
    }
    vel_http_set_context(velhttp, http);
    vel_http_set_destroy_callback(velhttp, vel_http_lite_destroy_callback);
    vel_http_set_reset_callback(velhttp, vel_http_lite_reset_callback);
    vel_http_set_url_callback(velhttp, vel_http_lite_url_callback);
    vel_http_set_perform_callback(velhttp, vel_http_lite_perform_callback);

    http->bufferlen = kVelHttpLiteBufferSize;
    http->buffer = static_cast<char *>(vel_malloc(kVelHttpLiteReadSize));
    if (!http->buffer) {
        VEL_LOG(7, "not enough memory for receive buffer (%zu bytes)", http->bufferlen);
        return false;
    }
    return true;
}

velhttp *vel_http_lite_create()
{
    velhttp *velhttp = vel_http_generic_create();
    if (!velhttp) {
        VEL_LOG(7, "unable to create generic velhttp context");
        return nullptr;
    }
    if (!vel_http_lite_build(velhttp)) {
        vel_http_destroy(velhttp);
        return nullptr;
    }
    return velhttp;
}
