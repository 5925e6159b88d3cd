#ifndef TESTS_SUPPORT_ICAP_H
#define TESTS_SUPPORT_ICAP_H

/* What the tests of the ICAP client share. It defines functions of the platform, so include this in
 * one source of a program, before the headers of libc. */

#undef _FORTIFY_SOURCE

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/httpserver.h"
#include "support/logcapture.h"
#include "support/platform_function.h"
#include "support/rows.h"

using support::asserts;
using support::http_ending;
using support::http_exchange;
using support::http_server;
using lines = std::vector<support::log_line>;
using texts = std::vector<std::string>;

/* What one call of the client gives in place of the platform's answer. */
struct wire_turn {
    bool real = true;
    int result = 0;
    int platformerrno = 0; /* with a result of -1 */
    short revents = 0;     /* of a poll */
};

/* What happens to the sockets of the client, which runs in the main thread, and to its clock; the
 * server has neither. */
struct wire_settings {
    size_t recvlimit = SIZE_MAX; /* bytes that one call takes */
    size_t sendlimit = SIZE_MAX; /* bytes that one call gives */
    int64_t recvtime = 0;        /* microseconds that pass with a call that brings something */
    int64_t sendtime = 0;        /* likewise */
    std::map<std::string, std::deque<wire_turn>> turns; /* by the name of the function */
    std::vector<int> waits;                             /* milliseconds of each poll */
    std::vector<int> connects;                          /* the family of each address */
    std::vector<int> ports;                             /* of each that has one */
    std::function<void(ssize_t)> onrecv;                /* told what a recv gives */
    bool played = false;                                /* the clock stands but for these times */
    int64_t clock = 1000000000000000;                   /* microseconds */
    size_t readings = 0;                                /* of the clock */
    size_t jumpat = 0; /* the reading of the clock before which it jumps, if not 0 */
};
inline wire_settings wire;

inline wire_turn passes()
{
    return {};
}

inline wire_turn fails(int platformerrno)
{
    return {false, -1, platformerrno, 0};
}

inline wire_turn gives(int result, short revents = 0)
{
    return {false, result, 0, revents};
}

/* So many turns that pass, and then others. */
inline std::deque<wire_turn> after(size_t count, const std::deque<wire_turn> &turns)
{
    std::deque<wire_turn> all(count, passes());
    all.insert(all.end(), turns.begin(), turns.end());
    return all;
}

inline wire_turn take_turn(const char *function)
{
    if (syscall(SYS_gettid) != getpid() || wire.turns.empty())
        return passes();
    std::deque<wire_turn> &turns = wire.turns[function];
    if (turns.empty())
        return passes();
    const wire_turn turn = turns.front();
    turns.pop_front();
    if (!turn.real)
        errno = turn.platformerrno;
    return turn;
}

extern "C" int gettimeofday(struct timeval *time, void *zone) noexcept
{
    static const auto next =
        support::platform_function<int(struct timeval *, void *)>("gettimeofday");
    if (!wire.played)
        return next(time, zone);
    if (++wire.readings == wire.jumpat)
        wire.clock += 3600000000;
    *time = {static_cast<time_t>(wire.clock / 1000000),
             static_cast<suseconds_t>(wire.clock % 1000000)};
    return 0;
}

extern "C" ssize_t recv(int descriptor, void *buffer, size_t size, int flags)
{
    static const auto next = support::platform_function<ssize_t(int, void *, size_t, int)>("recv");
    const wire_turn turn = take_turn("recv");
    if (!turn.real)
        return turn.result;
    const ssize_t count = next(descriptor, buffer, std::min(size, wire.recvlimit), flags);
    if (count > 0)
        wire.clock += wire.recvtime;
    const int platformerrno = errno;
    if (wire.onrecv)
        wire.onrecv(count);
    errno = platformerrno;
    return count;
}

extern "C" ssize_t recvfrom(int descriptor, void *buffer, size_t size, int flags, sockaddr *sender,
                            socklen_t *length)
{
    static const auto next =
        support::platform_function<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)>(
            "recvfrom");
    const wire_turn turn = take_turn("recvfrom");
    if (!turn.real)
        return turn.result;
    const ssize_t count =
        next(descriptor, buffer, std::min(size, wire.recvlimit), flags, sender, length);
    if (count > 0)
        wire.clock += wire.recvtime;
    return count;
}

extern "C" ssize_t send(int descriptor, const void *buffer, size_t size, int flags)
{
    static const auto next =
        support::platform_function<ssize_t(int, const void *, size_t, int)>("send");
    const wire_turn turn = take_turn("send");
    if (!turn.real)
        return turn.result;
    const ssize_t count = next(descriptor, buffer, std::min(size, wire.sendlimit), flags);
    if (count > 0)
        wire.clock += wire.sendtime;
    return count;
}

/* The declaration of glibc tells g++ that poll writes to the set and does not read it. */
#ifndef __clang__
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
extern "C" int poll(pollfd *set, nfds_t count, int milliseconds)
{
    static const auto next = support::platform_function<int(pollfd *, nfds_t, int)>("poll");
    if (syscall(SYS_gettid) == getpid())
        wire.waits.push_back(milliseconds);
    const wire_turn turn = take_turn("poll");
    if (turn.real)
        return next(set, count, milliseconds);
    set->revents = turn.revents;
    return turn.result;
}
#ifndef __clang__
#pragma GCC diagnostic pop
#endif

extern "C" int connect(int descriptor, const sockaddr *address, socklen_t length)
{
    static const auto next =
        support::platform_function<int(int, const sockaddr *, socklen_t)>("connect");
    wire.connects.push_back(address->sa_family);
    if (address->sa_family == AF_INET) {
        const void *generic = address;
        wire.ports.push_back(ntohs(static_cast<const sockaddr_in *>(generic)->sin_port));
    }
    const wire_turn turn = take_turn("connect");
    return turn.real ? next(descriptor, address, length) : turn.result;
}

extern "C" int socket(int domain, int type, int protocol) noexcept
{
    static const auto next = support::platform_function<int(int, int, int)>("socket");
    const wire_turn turn = take_turn("socket");
    return turn.real ? next(domain, type, protocol) : turn.result;
}

extern "C" int fcntl(int descriptor, int command, ...)
{
    static const auto next = support::platform_function<int(int, int, ...)>("fcntl");
    va_list arguments;
    va_start(arguments, command);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    const wire_turn turn = take_turn(command == F_SETFL ? "fcntl F_SETFL" : "fcntl");
    return turn.real ? next(descriptor, command, argument) : turn.result;
}

inline support::log_line said(int level, const std::string &text)
{
    return {"net/velicap", level, text};
}

/* A line whose text ends in "error %d (%s)". */
inline support::log_line said_error(int level, const std::string &text, int error)
{
    return said(level,
                text + " error " + std::to_string(error) + " (" + vel_error_string(error) + ")");
}

inline support::log_line said_status(unsigned int code)
{
    return said(10, "the ICAP status code is " + std::to_string(code));
}

inline lines joined(const std::vector<lines> &parts)
{
    lines all;
    for (const lines &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

static const support::log_line kTimeout = said(7, "a timeout occurred");
static const support::log_line kEncoded =
    said(10, "Part already chunk-encoded, not encoding again");
static const support::log_line kWouldBlock = said(13, "recv() returned EWOULDBLOCK");
static const support::log_line kNoIcapHeaders = said(6, "no ICAP response headers available");
static const support::log_line kNoHeaders = said(6, "no encapsulated response headers available");
static const support::log_line kNoBody = said(6, "no response data available");

/* Messages for the services, and what they answer. */
static const std::string kRequest = "GET http://h/ HTTP/1.1\r\nHost: h\r\n\r\n";
static const std::string kResponse = "HTTP/1.1 200 OK\r\nServer: y\r\n\r\n";
static const std::string kChunkedRequest =
    "POST http://h/ HTTP/1.1\r\nTransfer-Encoding: gzip, Chunked\r\n\r\n";
static const std::string kChunkedResponse = "HTTP/1.1 200 OK\r\nTRANSFER-ENCODING: chunked\r\n\r\n";

/* An ICAP server of the same script for both transports, reached through the loopback or a socket
 * in a directory of its own. */
class icap_server {
  public:
    icap_server(bool local, const std::vector<http_exchange> &script, bool repeats = false)
        : local_(local)
    {
        if (local_) {
            char name[] = "/tmp/velXXXXXX";
            if (!mkdtemp(name))
                abort();
            directory_ = name;
        }
        server_ = std::make_unique<http_server>(script, repeats, path());
    }
    ~icap_server()
    {
        server_.reset();
        if (local_)
            std::filesystem::remove_all(directory_);
    }
    icap_server(const icap_server &) = delete;
    icap_server &operator=(const icap_server &) = delete;

    std::string path() const
    {
        return local_ ? directory_ + "/s" : "";
    }

    /* The URL of a service, such as "/svc". */
    std::string url(const std::string &service) const
    {
        return (local_ ? "icap+unix://" + escape(path())
                       : "icap://127.0.0.1:" + std::to_string(server_->port())) +
               service;
    }

    /* What the client is to send in front of its parts. */
    std::string head(const std::string &method, const std::string &service,
                     const std::string &encapsulated, bool allow204 = false) const
    {
        const std::string host =
            local_ ? "localhost" : "127.0.0.1:" + std::to_string(server_->port());
        return method + " icap://" + host + service + " ICAP/1.0\r\nHost: " + host + "\r\n" +
               (allow204 ? "Allow: 204\r\n" : "") + "Encapsulated: " + encapsulated + "\r\n\r\n";
    }

    texts finish()
    {
        return server_->finish();
    }
    http_server &http()
    {
        return *server_;
    }

    static std::string escape(std::string text)
    {
        for (size_t at; (at = text.find('/')) != text.npos;)
            text.replace(at, 1, "%2F");
        return text;
    }

  private:
    const bool local_;
    std::string directory_;
    std::unique_ptr<http_server> server_;
};

/* A client, whose tests over a transport are run for both. */
class Velicap : public testing::Test {
  protected:
    void SetUp() override
    {
        wire = {};
        icap = vel_icap_create();
        ASSERT_NE(icap, nullptr);
    }
    void TearDown() override
    {
        if (icap)
            vel_icap_destroy(icap);
        wire = {};
    }

    /* An exchange with the service "/svc". */
    vel_error_t exchange(const icap_server &server)
    {
        EXPECT_EQ(vel_icap_set_url(icap, server.url("/svc").c_str()), VEL_ERROR_NONE);
        return vel_icap_perform(icap);
    }

    void set_request(const std::string &headers)
    {
        EXPECT_EQ(vel_icap_set_request_headers(icap, headers.data(), headers.size()),
                  VEL_ERROR_NONE);
    }
    void set_response(const std::string &headers)
    {
        EXPECT_EQ(vel_icap_set_response_headers(icap, headers.data(), headers.size()),
                  VEL_ERROR_NONE);
    }
    void set_request_body(const std::string &body)
    {
        EXPECT_EQ(vel_icap_set_request_body(icap, body.data(), body.size()), VEL_ERROR_NONE);
    }
    void set_response_body(const std::string &body)
    {
        EXPECT_EQ(vel_icap_set_response_body(icap, body.data(), body.size()), VEL_ERROR_NONE);
    }

    /* The three results log nothing that a test sees. */
    std::string icap_headers()
    {
        return kept(vel_icap_get_response_icap_headers, VEL_ERROR_INVALID_ARGUMENT);
    }
    std::string headers()
    {
        return kept(vel_icap_get_response_headers, VEL_ERROR_INVALID_ARGUMENT);
    }
    std::string body()
    {
        keep_lines();
        char dirt = 0, *text = &dirt;
        size_t size = 77;
        const vel_error_t result = vel_icap_get_response_body_and_size(icap, &text, &size);
        log.clear();
        if (result == VEL_ERROR_NONE) {
            std::string copy(text, size);
            vel_free(text);
            return copy;
        }
        EXPECT_EQ(result, VEL_ERROR_INVALID_ARGUMENT);
        EXPECT_EQ(text, nullptr);
        EXPECT_EQ(size, 0u);
        return "none";
    }

    /* What the client said, the layers below it left out. */
    lines all_logged()
    {
        keep_lines();
        return std::exchange(earlier_, {});
    }
    /* The same without what depends on who is faster, the client or the server. */
    lines logged()
    {
        lines all = all_logged();
        std::erase(all, kWouldBlock);
        return all;
    }

    support::log_capture log;
    velicap *icap = nullptr;

  private:
    void keep_lines()
    {
        const lines later = log.take_from("net/velicap");
        earlier_.insert(earlier_.end(), later.begin(), later.end());
    }
    std::string kept(vel_error_t (*get)(velicap *, char **), vel_error_t missing)
    {
        keep_lines();
        char dirt = 0, *text = &dirt;
        const vel_error_t result = get(icap, &text);
        log.clear();
        if (result == VEL_ERROR_NONE) {
            std::string copy(text);
            vel_free(text);
            return copy;
        }
        EXPECT_EQ(result, missing);
        EXPECT_EQ(text, nullptr);
        return "none";
    }

    lines earlier_;
};

/* The same over TCP and over a UNIX-domain socket. */
class VelicapBoth : public Velicap, public testing::WithParamInterface<bool> {};

struct transport_name {
    std::string operator()(const testing::TestParamInfo<bool> &info) const
    {
        return info.param ? "Unix" : "Tcp";
    }
};

#endif
