#ifndef TESTS_SUPPORT_HTTPPERFORM_H
#define TESTS_SUPPORT_HTTPPERFORM_H

/* What the tests of transfers share: a played clock, and a context whose backend is the test. It
 * defines a function of the platform, so include this in one source of a program. */

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <sys/time.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/eachfailure.h"
#include "support/httpbackend.h"
#include "support/logcapture.h"
#include "support/platform_function.h"

using support::asserts;
using support::each_failure;
using support::http_headers;
using lines = std::vector<support::log_line>;
using names = std::vector<std::string>;

inline const char kModule[] = "net/velhttp";
/* While played, the wall clock shows this many microseconds. */
inline bool played;
inline int64_t wallclock;

extern "C" int gettimeofday(struct timeval *time, void *zone) noexcept
{
    if (!played)
        return support::platform_function<int(struct timeval *, void *)>("gettimeofday")(time,
                                                                                         zone);
    *time = {static_cast<time_t>(wallclock / 1000000),
             static_cast<suseconds_t>(wallclock % 1000000)};
    return 0;
}

inline support::log_line line(int level, const std::string &text)
{
    return {kModule, level, text};
}

inline const support::log_line kRedirect = line(13, "Got HTTP redirect (301/302)");
inline const support::log_line kAborting = line(10, "aborting transfer");
inline const support::log_line kFullExpired = line(7, "the full transfer timer expired");
inline const support::log_line kIdleExpired = line(7, "idle timeout occurred");
inline const support::log_line kTimeout = line(7, "a timeout occurred");
inline const support::log_line kUploadDue = line(13, "upload progress callback is due");
inline const support::log_line kDownloadDue = line(13, "download progress callback is due");

using told = std::vector<std::pair<int64_t, int64_t>>;

/* A progress callback that keeps what it is told. */
struct progress {
    told calls;
    int result = 0;
    int64_t takes = 0; /* microseconds */

    static int callback(int64_t current, int64_t total, void *context)
    {
        auto *self = static_cast<progress *>(context);
        self->calls.push_back({current, total});
        wallclock += self->takes;
        return self->result;
    }
};

/* A function with its context, for callbacks that take a context. */
using proxy_function =
    std::function<vel_error_t(velhttp *, const std::string &, const std::string &, unsigned int)>;

inline vel_error_t call_proxy(velhttp *velhttp, const char *scheme, const char *host,
                              unsigned int port, void *context)
{
    return (*static_cast<proxy_function *>(context))(velhttp, scheme, host, port);
}

using body_function = std::function<vel_error_t(const void *, size_t)>;

inline vel_error_t call_body(const void *data, size_t size, void *context)
{
    return (*static_cast<body_function *>(context))(data, size);
}

using completion_function = std::function<void(velhttp *, vel_error_t)>;

inline void call_completion(velhttp *velhttp, vel_error_t result, void *context)
{
    (*static_cast<completion_function *>(context))(velhttp, result);
}

class VelhttpPerform : public testing::Test {
  protected:
    void SetUp() override
    {
        played = true;
        wallclock = 1000000000250000;
        http = backend.create();
        ASSERT_NE(http, nullptr);
        ASSERT_EQ(vel_http_set_url(http, "http://a:81/b"), VEL_ERROR_NONE);
        backend.calls.clear();
        backend.perform = [](velhttp *) { return VEL_ERROR_NONE; };
    }
    void TearDown() override
    {
        if (http)
            vel_http_destroy(http);
        played = false;
    }

    static void pass(double seconds)
    {
        wallclock += static_cast<int64_t>(seconds * 1000000);
    }

    /* Runs an action as the only pass of a transfer, and gives the result of the transfer. */
    vel_error_t inside(const std::function<void()> &action)
    {
        backend.perform = [&](velhttp *) {
            action();
            return VEL_ERROR_NONE;
        };
        return vel_http_perform(http);
    }

    /* Has the passes answer with these statuses in turn, and with this location. */
    void answer(const std::vector<unsigned int> &statuses, const char *location)
    {
        backend.perform = [this, statuses, location](velhttp *) {
            const size_t number = std::min(backend.count("perform"), statuses.size());
            vel_http_set_status_code(http, statuses[number - 1]);
            return location ? vel_http_write_response_header(http, "Location", location)
                            : VEL_ERROR_NONE;
        };
    }

    std::pair<int, unsigned int> wait_of_check(vel_error_t expected = VEL_ERROR_NONE)
    {
        int seconds = 77;
        unsigned int microseconds = 77;
        EXPECT_EQ(vel_http_timeout_check(http, &seconds, &microseconds), expected);
        return {seconds, microseconds};
    }

    /* What the download progress is at, told by a callback of its own. */
    std::pair<int64_t, int64_t> downloaded()
    {
        progress probe;
        vel_http_set_download_progress_callback(http, progress::callback, &probe);
        vel_http_progress_download_force(http);
        vel_http_set_download_progress_callback(http, nullptr, nullptr);
        return probe.calls.empty() ? std::pair<int64_t, int64_t>(77, 77) : probe.calls.back();
    }

    std::string response_body()
    {
        char *body = nullptr;
        size_t size = 0;
        if (vel_http_get_response_body_and_size(http, &body, &size) != VEL_ERROR_NONE)
            return "none";
        std::string text(body, size);
        vel_free(body);
        return text;
    }

    lines logged()
    {
        return log.take_from(kModule);
    }

    support::log_capture log;
    support::http_backend backend;
    velhttp *http = nullptr;
};

using span = std::pair<int, unsigned int>;
using state = std::pair<int64_t, int64_t>;

#endif
