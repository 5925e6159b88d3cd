#ifndef TESTS_SUPPORT_ASYNCTEST_H
#define TESTS_SUPPORT_ASYNCTEST_H

#include <deque>
#include <functional>
#include <poll.h>
#include <set>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/descriptors.h"
#include "support/logcapture.h"

namespace support {

using log_lines = std::vector<log_line>;
using names = std::vector<std::string>;

/* Lines of the modules of the event loop. */
inline log_line async_line(int level, const std::string &text)
{
    return {"async/velasync", level, text};
}
inline log_line async_line(const std::string &part, int level, const std::string &text)
{
    return {"async/velasync_" + part, level, text};
}

/* What the step of a pass that looks for events logs when there is none. */
inline const log_lines kNothingReady = {
    async_line(13, "vel_async_process_eventhandle()"),
    async_line(13, "vel_async_process_eventhandle(): nothing to process"),
};

/* And when a descriptor is ready. */
inline log_lines ready_lines(int s)
{
    return {
        async_line(13, "vel_async_process_eventhandle()"),
        async_line(1, "kevent() returned 1 descriptors"),
        async_line(1, "vel_async_process_eventhandle(): ident " + std::to_string(s) + " is ready"),
    };
}

inline log_lines operator+(log_lines lines, const log_lines &more)
{
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

/* Two connected sockets, closed at the end. */
class socket_pair {
  public:
    socket_pair()
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends_), 0);
    }
    ~socket_pair()
    {
        close_own();
        close_peer();
    }
    socket_pair(const socket_pair &) = delete;
    socket_pair &operator=(const socket_pair &) = delete;

    int own() const
    {
        return ends_[0];
    }
    int peer() const
    {
        return ends_[1];
    }
    void close_own()
    {
        close_end(&ends_[0]);
    }
    void close_peer()
    {
        close_end(&ends_[1]);
    }
    void make_readable()
    {
        EXPECT_EQ(write(ends_[1], "x", 1), 1);
    }
    void drain()
    {
        char bytes[4096];
        while (read(ends_[0], bytes, sizeof bytes) > 0) {
        }
    }
    void make_unwritable()
    {
        const std::string bytes(4096, 'x');
        while (write(ends_[0], bytes.data(), bytes.size()) > 0) {
        }
    }
    void make_writable()
    {
        char bytes[4096];
        while (read(ends_[1], bytes, sizeof bytes) > 0) {
        }
    }

  private:
    static void close_end(int *end)
    {
        if (*end >= 0) {
            EXPECT_EQ(close(*end), 0);
        }
        *end = -1;
    }
    int ends_[2] = {-1, -1};
};

/* The directions of a descriptor. */
struct direction {
    const char *name;
    const char *word; /* of the log */
    const char *filter;
    vel_error_t (*registers)(velasync *, int, vel_async_socket_cb *, void *);
    vel_error_t (*unregisters)(velasync *, int);
};

inline const direction kRead = {"Read", "reading", "EVFILT_READ", vel_async_register_socket_read,
                                vel_async_unregister_socket_read};
inline const direction kWrite = {"Write", "writing", "EVFILT_WRITE",
                                 vel_async_register_socket_write,
                                 vel_async_unregister_socket_write};

/* A loop, and callbacks that note that they were called, by name: "a" of a descriptor, "a timed
 * out" or "a canceled" of a timeout. The descriptors are those of the beginning at the end. */
class async_test : public testing::Test {
  protected:
    void SetUp() override
    {
        async_ = vel_async_create();
        ASSERT_NE(async_, nullptr);
        EXPECT_EQ(log_.take(), log_lines{});
    }
    void TearDown() override
    {
        if (async_)
            vel_async_destroy(async_);
        EXPECT_EQ(descriptors_since(before_), std::vector<int>{});
    }

    using action = std::function<void()>;

    velasyncop *timeout(
        unsigned int ms, const std::string &name, const action &then = [] {})
    {
        velasyncop *op = vel_async_register_timeout_ms(async_, ms, timed, note_of(name, then));
        EXPECT_NE(op, nullptr);
        return op;
    }
    vel_error_t watch(
        const direction &way, int s, const std::string &name, const action &then = [] {})
    {
        return way.registers(async_, s, ready, note_of(name, then));
    }
    vel_error_t watch_read(
        int s, const std::string &name, const action &then = [] {})
    {
        return watch(kRead, s, name, then);
    }
    vel_error_t watch_write(
        int s, const std::string &name, const action &then = [] {})
    {
        return watch(kWrite, s, name, then);
    }
    vel_error_t unwatch_read(int s)
    {
        return vel_async_unregister_socket_read(async_, s);
    }
    vel_error_t unwatch_write(int s)
    {
        return vel_async_unregister_socket_write(async_, s);
    }
    vel_error_t process()
    {
        return vel_async_process(async_);
    }
    /* The names since the last call. */
    names take()
    {
        return std::exchange(called_, {});
    }
    /* Whether a host that waits for the native handle would be woken now. */
    bool native_ready()
    {
        pollfd native = {vel_async_get_native_handle(async_), POLLIN, 0};
        return ::poll(&native, 1, 0) == 1;
    }
    log_lines own_lines()
    {
        return log_.take_from("async/");
    }

    struct note {
        names *called;
        std::string name;
        action then;
    };
    note *note_of(const std::string &name, const action &then)
    {
        return &notes_.emplace_back(note{&called_, name, then});
    }
    static void timed(vel_error_t code, void *context)
    {
        auto *one = static_cast<note *>(context);
        one->called->push_back(one->name + (code == VEL_ERROR_TIMED_OUT  ? " timed out"
                                            : code == VEL_ERROR_CANCELED ? " canceled"
                                                                         : " ?"));
        one->then();
    }
    static void ready(void *context)
    {
        auto *one = static_cast<note *>(context);
        one->called->push_back(one->name);
        one->then();
    }

    const std::set<int> before_ = descriptors();
    log_capture log_;
    velasync *async_ = nullptr;
    names called_;
    std::deque<note> notes_;
};

} // namespace support

#endif
