#include "net/velhttp_internal.h"

#include <vellib/velfile.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp"

static vel_error_t vel_http_write_to_file(const void *data, size_t size, void *context)
{
    const size_t written = vel_file_write(static_cast<FILE *>(context), data, size);
    if (written != size) {
        VEL_LOG(7, "short write %zu/%zu bytes", written, size);
        return VEL_ERROR_WRITE;
    }
    return VEL_ERROR_NONE;
}

static vel_error_t vel_http_fetch(velhttp *velhttp, const char *url, FILE *file, int seconds,
                                  unsigned int microseconds)
{
    vel_error_t error = vel_http_set_url(velhttp, url);
    if (error) {
        VEL_LOG(7, "unable to set the URL, error %d (%s)", error, vel_error_string(error));
        return error;
    }
    vel_http_set_response_body_callback(velhttp, vel_http_write_to_file, file);
    vel_http_set_timeout(velhttp, seconds, microseconds);
    error = vel_http_perform(velhttp);
    if (error) {
        VEL_LOG(7, "unable to download, error %d (%s)", error, vel_error_string(error));
        return error;
    }
    const unsigned int statuscode = vel_http_get_status_code(velhttp);
    if (statuscode != 200) {
        VEL_LOG(7, "The HTTP server returned status code %d", static_cast<int>(statuscode));
        return VEL_ERROR_GENERIC;
    }
    return VEL_ERROR_NONE;
}

vel_error_t vel_http_generic_get_url_to_fileptr_with_timeout(const char *url, FILE *file,
                                                             int seconds, unsigned int microseconds,
                                                             vel_http_create_cb *createfunc)
{
    VEL_ASSERT(url != NULL);
    VEL_ASSERT(file != NULL);
    VEL_ASSERT(createfunc != NULL);

    velhttp *velhttp = createfunc();
    if (!velhttp) {
        VEL_LOG(7, "unable to create the HTTP context");
        return VEL_ERROR_GENERIC;
    }
    const vel_error_t error = vel_http_fetch(velhttp, url, file, seconds, microseconds);
    vel_http_destroy(velhttp);
    return error;
}

vel_error_t vel_http_generic_get_url_to_file(const char *url, const char *filename,
                                             vel_http_create_cb *createfunc)
{
    VEL_ASSERT(url != NULL);
    VEL_ASSERT(filename != NULL);
    VEL_ASSERT(createfunc != NULL);

    FILE *file = vel_file_create_binary(filename);
    if (!file) {
        VEL_LOG(7, "unable to create the output file '%s'", filename);
        return VEL_ERROR_WRITE;
    }
    /* Without a buffer a full disk shows at the write and not at the close, whose result is not
     * looked at. The pieces of a body are no smaller than a buffer would be. */
    (void)setvbuf(file, nullptr, _IONBF, 0);
    const vel_error_t error =
        vel_http_generic_get_url_to_fileptr_with_timeout(url, file, -1, 0, createfunc);
    (void)vel_file_close(file);
    return error;
}
