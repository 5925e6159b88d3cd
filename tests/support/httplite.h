#ifndef TESTS_SUPPORT_HTTPLITE_H
#define TESTS_SUPPORT_HTTPLITE_H

/* What the tests of the HTTP/1.0 client share. It defines functions of the platform, so include
 * this in one source of a program, before the headers of libc. */

#undef _FORTIFY_SOURCE

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/httpserver.h"
#include "support/logcapture.h"
#include "support/platform_function.h"

using support::http_ending;
using support::http_exchange;
using support::http_server;
using lines = std::vector<support::log_line>;
using names = std::vector<std::string>;

/* What happens to the sockets of the client and to its clock; the server uses neither. */
struct wire_settings {
    size_t recvlimit = SIZE_MAX;      /* bytes that one call takes */
    size_t sendlimit = SIZE_MAX;      /* bytes that one call gives */
    int64_t recvtime = 0;             /* microseconds that pass with each call */
    int64_t sendtime = 0;             /* likewise */
    size_t recvskip = 0;              /* calls that bring something before those two count */
    int recverrno = 0;                /* what a call fails with */
    int senderrno = 0;                /* likewise */
    size_t sendskip = 0;              /* likewise, for calls that send */
    int64_t readtime = 0;             /* microseconds that pass with each reading of the clock */
    size_t jumpat = 0;                /* the reading of the clock before which it jumps, if not 0 */
    bool played = false;              /* the clock stands but for these times */
    int64_t clock = 1000000000000000; /* microseconds */
    size_t readings = 0;
};
inline wire_settings wire;

extern "C" int gettimeofday(struct timeval *time, void *zone) noexcept
{
    static const auto next =
        support::platform_function<int(struct timeval *, void *)>("gettimeofday");
    if (!wire.played)
        return next(time, zone);
    wire.clock += wire.readtime;
    if (++wire.readings == wire.jumpat)
        wire.clock += 3600000000;
    *time = {static_cast<time_t>(wire.clock / 1000000),
             static_cast<suseconds_t>(wire.clock % 1000000)};
    return 0;
}

extern "C" ssize_t recvfrom(int descriptor, void *buffer, size_t size, int flags, sockaddr *sender,
                            socklen_t *length)
{
    static const auto next =
        support::platform_function<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)>(
            "recvfrom");
    if (wire.recvskip == 0 && wire.recverrno != 0) {
        errno = wire.recverrno;
        return -1;
    }
    const ssize_t count =
        next(descriptor, buffer, std::min(size, wire.recvlimit), flags, sender, length);
    if (count > 0 && wire.recvskip > 0)
        wire.recvskip--;
    else if (count > 0)
        wire.clock += wire.recvtime;
    return count;
}

extern "C" ssize_t send(int descriptor, const void *buffer, size_t size, int flags)
{
    static const auto next =
        support::platform_function<ssize_t(int, const void *, size_t, int)>("send");
    const bool skipped = wire.sendskip > 0;
    if (skipped)
        wire.sendskip--;
    if (!skipped && wire.senderrno != 0) {
        errno = wire.senderrno;
        return -1;
    }
    const ssize_t count = next(descriptor, buffer, std::min(size, wire.sendlimit), flags);
    if (count > 0)
        wire.clock += wire.sendtime;
    return count;
}

inline support::log_line front(int level, const std::string &text)
{
    return {"net/velhttp", level, text};
}

inline support::log_line lite(int level, const std::string &text)
{
    return {"net/velhttp_lite", level, text};
}

/* A line whose text ends in ", error %d (%s)". */
inline support::log_line lite_error(int level, const std::string &text, int error)
{
    return lite(level,
                text + ", error " + std::to_string(error) + " (" + vel_error_string(error) + ")");
}

inline support::log_line lite_status(unsigned int code)
{
    return lite(13, "the HTTP status code is " + std::to_string(code));
}

static const support::log_line kRedirect = front(13, "Got HTTP redirect (301/302)");
static const support::log_line kAborting = front(10, "aborting transfer");
static const support::log_line kAborted = lite(10, "the transfer was aborted");

/* A whole answer. */
inline std::string http_answer(const std::string &status, const std::string &headers,
                               const std::string &body)
{
    return "HTTP/1.0 " + status + "\r\n" + headers + "\r\n" + body;
}

class VelhttpLite : public testing::Test {
  protected:
    void SetUp() override
    {
        wire = {};
        http = vel_http_lite_create();
        ASSERT_NE(http, nullptr);
    }
    void TearDown() override
    {
        if (http)
            vel_http_destroy(http);
        wire = {};
    }

    vel_error_t fetch(const std::string &url)
    {
        EXPECT_EQ(vel_http_set_url(http, url.c_str()), VEL_ERROR_NONE);
        return vel_http_perform(http);
    }

    /* Fetches from a server that answers one request. */
    vel_error_t fetch_answer(const std::string &answer, http_ending ending = http_ending::close)
    {
        http_server server({{answer, ending}});
        return fetch(server.url("/"));
    }

    /* Logs nothing that a test sees. */
    std::string body()
    {
        earlier_ = logged();
        std::string text = kept_body();
        log.clear();
        return text;
    }

    std::string kept_body()
    {
        char *text = nullptr;
        size_t size = 0;
        if (vel_http_get_response_body_and_size(http, &text, &size) != VEL_ERROR_NONE)
            return "none";
        std::string copy(text, size);
        vel_free(text);
        return copy;
    }

    std::string header(const char *name)
    {
        const char *value = vel_http_get_response_header(http, name);
        return value ? value : "none";
    }

    /* What the client said, the layers below it left out. */
    lines logged()
    {
        lines all = std::move(earlier_);
        earlier_.clear();
        const lines later = log.take_from("net/velhttp");
        all.insert(all.end(), later.begin(), later.end());
        return all;
    }

    support::log_capture log;
    velhttp *http = nullptr;

  private:
    lines earlier_;
};

#endif
