#ifndef TESTS_SUPPORT_HTTPBACKEND_H
#define TESTS_SUPPORT_HTTPBACKEND_H

#include <functional>
#include <string>
#include <vector>

#include <vellib/velhttp.h>

namespace support {

/* A backend of velhttp that does what the test says, and keeps what it was asked for: "url TEXT",
 * "perform", "start", "reset" and "destroy". */
struct http_backend {
    std::function<vel_error_t(velhttp *)> perform;
    std::function<void *(velhttp *, velhttprequest *, vel_error_t *)> start;
    vel_error_t urlresult = VEL_ERROR_NONE;
    vel_error_t resetresult = VEL_ERROR_NONE;
    std::vector<std::string> calls;

    size_t count(const std::string &call) const
    {
        size_t found = 0;
        for (const std::string &one : calls)
            found += one == call;
        return found;
    }

    static http_backend *of(velhttp *velhttp)
    {
        return static_cast<http_backend *>(vel_http_get_context(velhttp));
    }

    static void destroy_callback(void *context)
    {
        static_cast<http_backend *>(context)->calls.push_back("destroy");
    }

    static vel_error_t reset_callback(velhttp *velhttp)
    {
        of(velhttp)->calls.push_back("reset");
        return of(velhttp)->resetresult;
    }

    static vel_error_t url_callback(velhttp *velhttp, const char *url)
    {
        of(velhttp)->calls.push_back(std::string("url ") + url);
        return of(velhttp)->urlresult;
    }

    static vel_error_t perform_callback(velhttp *velhttp)
    {
        of(velhttp)->calls.push_back("perform");
        return of(velhttp)->perform(velhttp);
    }

    static void *perform_async_callback(velhttp *velhttp, velhttprequest *request,
                                        vel_error_t *errorptr)
    {
        of(velhttp)->calls.push_back("start");
        return of(velhttp)->start(velhttp, request, errorptr);
    }

    /* Creates a context with this backend behind it, or NULL if there is no memory. */
    velhttp *create()
    {
        velhttp *created = vel_http_generic_create();
        if (!created)
            return nullptr;
        vel_http_set_context(created, this);
        vel_http_set_destroy_callback(created, destroy_callback);
        vel_http_set_reset_callback(created, reset_callback);
        vel_http_set_url_callback(created, url_callback);
        vel_http_set_perform_callback(created, perform_callback);
        vel_http_set_perform_async_callback(created, perform_async_callback);
        return created;
    }
};

/* The request headers that are there. */
inline std::vector<std::string> http_headers(velhttp *velhttp)
{
    std::vector<std::string> headers;
    const char *header = nullptr;
    for (void *it = nullptr; (it = vel_http_get_header(velhttp, it, &header)) != nullptr;)
        headers.push_back(header);
    return headers;
}

} // namespace support

#endif
