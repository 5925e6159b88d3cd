#include "support/httpserver.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace support {

static const int kBoundMs = 60000;
static const std::chrono::milliseconds kBound(kBoundMs);

/* What a request may be long without an allocation. */
static const size_t kRoom = 4096;

[[noreturn]] static void fail(const char *what)
{
    fprintf(stderr, "http_server: %s: %s\n", what, strerror(errno));
    abort();
}

http_server::http_server(std::vector<http_exchange> script, bool repeats, const std::string &path)
    : script_(std::move(script)), repeats_(repeats), path_(path), requests_(script_.size())
{
    for (size_t i = 0; i < script_.size(); i++)
        requests_[i].reserve(kRoom + script_[i].bodylen);
    if (pipe(stop_) != 0)
        fail("pipe");
    if (path_.empty() ? !listen_on_loopback() : !listen_locally())
        fail("listen");
    thread_ = std::thread(&http_server::run, this);
}

bool http_server::listen_on_loopback()
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto *generic = static_cast<sockaddr *>(static_cast<void *>(&address));
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    if (listener_ < 0 || bind(listener_, generic, length) != 0 || listen(listener_, 16) != 0 ||
        getsockname(listener_, generic, &length) != 0)
        return false;
    port_ = ntohs(address.sin_port);
    return true;
}

bool http_server::listen_locally()
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address.sun_path)
        return false;
    path_.copy(address.sun_path, path_.size());
    const auto *generic = static_cast<const sockaddr *>(static_cast<const void *>(&address));
    listener_ = socket(AF_UNIX, SOCK_STREAM, 0);
    return listener_ >= 0 && bind(listener_, generic, sizeof address) == 0 &&
           listen(listener_, 16) == 0;
}

http_server::~http_server()
{
    finish();
    if (!path_.empty())
        unlink(path_.c_str());
    close(listener_);
    close(stop_[0]);
    close(stop_[1]);
}

std::string http_server::url(const std::string &rest) const
{
    return "http://127.0.0.1:" + std::to_string(port_) + rest;
}

void http_server::open_gate()
{
    const std::lock_guard lock(mutex_);
    gateopen_ = true;
    changed_.notify_all();
}

bool http_server::wait_for_request()
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kBound, [this] { return complete_ > 0; });
}

std::vector<std::string> http_server::finish()
{
    if (thread_.joinable()) {
        if (write(stop_[1], "", 1) != 1)
            fail("write");
        open_gate();
        thread_.join();
    }
    std::vector<std::string> requests = requests_;
    requests.resize(begun_);
    return requests;
}

/* Waits for a connection that is there or for the end, whichever is there; a connection comes
 * first. */
bool http_server::wait_readable(int descriptor) const
{
    pollfd set[2] = {{descriptor, POLLIN, 0}, {stop_[0], POLLIN, 0}};
    if (poll(set, 2, kBoundMs) <= 0)
        return false;
    return set[0].revents != 0;
}

void http_server::run()
{
    size_t step = 0;
    while (step < script_.size() && wait_readable(listener_)) {
        const int connection = accept(listener_, nullptr, nullptr);
        if (connection < 0)
            fail("accept");
        serve(connection, &step);
        close(connection);
        if (repeats_ && step == script_.size())
            step = 0;
    }
}

void http_server::serve(int connection, size_t *stepptr)
{
    bool more = true;
    while (more && *stepptr < script_.size()) {
        const http_exchange &step = script_[*stepptr];
        std::string &request = requests_[*stepptr];
        begun_ = std::max(begun_, ++*stepptr);
        request.clear();
        more = exchange(connection, step, request);
    }
}

/* Reads what is there, within the room. False at the end of the connection. */
static bool take(int connection, std::string &request)
{
    char buffer[4096];
    pollfd set = {connection, POLLIN, 0};
    if (poll(&set, 1, kBoundMs) <= 0)
        return false;
    const ssize_t count = read(connection, buffer, sizeof buffer);
    if (count <= 0)
        return false;
    request.append(buffer, static_cast<size_t>(count));
    return true;
}

static bool is_complete(const std::string &request, size_t bodylen)
{
    const size_t end = request.find("\r\n\r\n");
    return end != request.npos && request.size() >= end + 4 + bodylen;
}

/* False when the client does not take it. */
static bool give(int connection, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = write(connection, bytes.data(), bytes.size());
        if (count <= 0)
            return false;
        bytes.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

/* A reset takes back what has not left yet. */
static void wait_until_delivered(int connection)
{
    const auto end = std::chrono::steady_clock::now() + kBound;
    int unacknowledged = 0;
    do {
        if (ioctl(connection, SIOCOUTQ, &unacknowledged) != 0)
            fail("ioctl");
    } while (unacknowledged > 0 && std::chrono::steady_clock::now() < end);
}

bool http_server::exchange(int connection, const http_exchange &step, std::string &request)
{
    while (step.reads && !is_complete(request, step.bodylen)) {
        if (!take(connection, request))
            return false;
    }
    {
        std::unique_lock lock(mutex_);
        complete_++;
        changed_.notify_all();
        if (step.gated)
            changed_.wait_for(lock, kBound, [this] { return gateopen_; });
    }
    if (!give(connection, step.answer))
        return false;
    if (step.ending == http_ending::keep)
        return true;
    if (step.ending == http_ending::reset) {
        wait_until_delivered(connection);
        const linger now = {1, 0};
        setsockopt(connection, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        return false;
    }
    if (step.ending == http_ending::close)
        shutdown(connection, SHUT_WR);
    if (step.reads) {
        while (take(connection, request)) {
        }
    } else {
        /* The end of the client may not be seen before all that it sent has been read. */
        pollfd set[2] = {{connection, 0, 0}, {stop_[0], POLLIN, 0}};
        (void)poll(set, 2, kBoundMs);
    }
    return false;
}

} // namespace support
