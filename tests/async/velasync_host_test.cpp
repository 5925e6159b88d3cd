/* Hosts that have a loop of their own and put the native handle of the library's into it: one that
 * calls poll, and one that is built on libuv. */

#include <functional>
#include <map>
#include <poll.h>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <uv.h>

#include <vellib/vellib.h>

#include "support/asynctest.h"

namespace {

using support::names;
using support::socket_pair;

/* What a host adds to a loop: a source of its own that counts, and the wait. */
class poll_host {
  public:
    explicit poll_host(velasync *async) : async_(async)
    {
    }
    socket_pair &own()
    {
        return own_;
    }
    /* Runs until the library has nothing to do any more, or a long time has passed. */
    void run(const std::function<void()> &onown)
    {
        while (vel_async_process(async_) == VEL_ERROR_INCOMPLETE) {
            pollfd set[] = {{vel_async_get_native_handle(async_), POLLIN, 0},
                            {own_.own(), POLLIN, 0}};
            const int count = poll(set, 2, vel_async_get_timeout_ms(async_));
            ASSERT_GE(count, 0);
            if (count == 0)
                timeouts++;
            if (set[1].revents & POLLIN)
                onown();
        }
    }
    int timeouts = 0; /* waits that ended by time alone */

  private:
    velasync *async_;
    socket_pair own_;
};

class uv_host {
  public:
    explicit uv_host(velasync *async) : async_(async)
    {
        EXPECT_EQ(uv_loop_init(&loop_), 0);
        EXPECT_EQ(uv_poll_init(&loop_, &native_, vel_async_get_native_handle(async)), 0);
        EXPECT_EQ(uv_poll_init(&loop_, &source_, own_.own()), 0);
        EXPECT_EQ(uv_timer_init(&loop_, &timer_), 0);
        native_.data = source_.data = timer_.data = this;
    }
    ~uv_host()
    {
        EXPECT_EQ(uv_loop_close(&loop_), 0);
    }
    uv_host(const uv_host &) = delete;
    uv_host &operator=(const uv_host &) = delete;

    socket_pair &own()
    {
        return own_;
    }
    void run(const std::function<void()> &onown)
    {
        onown_ = onown;
        EXPECT_EQ(uv_poll_start(&native_, UV_READABLE,
                                [](uv_poll_t *handle, int status, int) {
                                    EXPECT_EQ(status, 0);
                                    static_cast<uv_host *>(handle->data)->turn();
                                }),
                  0);
        EXPECT_EQ(uv_poll_start(&source_, UV_READABLE,
                                [](uv_poll_t *handle, int, int) {
                                    auto *self = static_cast<uv_host *>(handle->data);
                                    self->onown_();
                                    self->turn();
                                }),
                  0);
        turn();
        EXPECT_EQ(uv_run(&loop_, UV_RUN_DEFAULT), 0);
    }
    int timeouts = 0;

  private:
    void turn()
    {
        if (uv_is_closing(reinterpret_cast<uv_handle_t *>(&native_)))
            return;
        if (vel_async_process(async_) == VEL_ERROR_NONE) {
            uv_close(reinterpret_cast<uv_handle_t *>(&native_), nullptr);
            uv_close(reinterpret_cast<uv_handle_t *>(&source_), nullptr);
            uv_close(reinterpret_cast<uv_handle_t *>(&timer_), nullptr);
            return;
        }
        const int ms = vel_async_get_timeout_ms(async_);
        if (ms < 0) {
            uv_timer_stop(&timer_);
            return;
        }
        uv_update_time(&loop_);
        EXPECT_EQ(uv_timer_start(
                      &timer_,
                      [](uv_timer_t *timer) {
                          auto *self = static_cast<uv_host *>(timer->data);
                          self->timeouts++;
                          self->turn();
                      },
                      static_cast<uint64_t>(ms), 0),
                  0);
    }

    velasync *async_;
    socket_pair own_;
    std::function<void()> onown_;
    uv_loop_t loop_;
    uv_poll_t native_;
    uv_poll_t source_;
    uv_timer_t timer_;
};

/* A sanitizer and libuv alike may keep descriptors that they open once. */
template <typename Host> class VelasyncHost : public support::async_test {
  protected:
    static void SetUpTestSuite()
    {
        velasync *async = vel_async_create();
        {
            Host host(async);
            host.run([] {});
        }
        vel_async_destroy(async);
    }
};

using Hosts = testing::Types<poll_host, uv_host>;
TYPED_TEST_SUITE(VelasyncHost, Hosts);

TYPED_TEST(VelasyncHost, TimeoutsEndTheWait)
{
    TypeParam host(this->async_);
    for (unsigned int ms : {15, 5, 10, 0})
        this->timeout(ms, std::to_string(ms));
    host.run([] { ADD_FAILURE(); });
    EXPECT_EQ(this->take(), (names{"0 timed out", "5 timed out", "10 timed out", "15 timed out"}));
    EXPECT_GE(host.timeouts, 1);
}

/* Each message passes through the library's loop and the host's in turn. */
TYPED_TEST(VelasyncHost, EventsOfBothGoBackAndForth)
{
    TypeParam host(this->async_);
    socket_pair pair;
    int library = 0;
    int own = 0;
    velasyncop *limit = this->timeout(60000, "limit");
    this->watch_read(pair.own(), "", [&] {
        pair.drain();
        library++;
        host.own().make_readable();
    });
    pair.make_readable();
    host.run([&] {
        host.own().drain();
        if (++own < 200) {
            pair.make_readable();
        } else {
            vel_async_cancel(this->async_, limit);
            EXPECT_EQ(this->unwatch_read(pair.own()), VEL_ERROR_NONE);
        }
    });
    EXPECT_EQ(library, 200);
    EXPECT_EQ(own, 200);
    EXPECT_EQ(this->take().back(), "limit canceled");
}

/* Many descriptors are ready at a time: the handle stays readable until the last was served. */
TYPED_TEST(VelasyncHost, NoEventIsLost)
{
    TypeParam host(this->async_);
    std::vector<socket_pair> pairs(50);
    std::map<int, int> left; /* bytes to come, by descriptor */
    for (socket_pair &pair : pairs) {
        left[pair.own()] = 3;
        this->watch_read(pair.own(), "", [&, s = pair.own()] {
            char byte;
            EXPECT_EQ(read(s, &byte, 1), 1);
            if (--left[s] == 0) {
                EXPECT_EQ(this->unwatch_read(s), VEL_ERROR_NONE);
            }
        });
        for (int i = 0; i < 3; i++)
            pair.make_readable();
    }
    host.run([] { ADD_FAILURE(); });
    EXPECT_EQ(this->take().size(), 150u);
    for (const auto &[s, bytes] : left)
        EXPECT_EQ(bytes, 0) << s;
}

TYPED_TEST(VelasyncHost, MixOfAll)
{
    TypeParam host(this->async_);
    socket_pair pair;
    std::mt19937 random(3);
    int rounds = 0;
    int host_rounds = 0;
    FILE *file = tmpfile();
    ASSERT_NE(file, nullptr);
    std::function<void()> round = [&] {
        pair.drain();
        if (++rounds == 100) {
            EXPECT_EQ(this->unwatch_read(pair.own()), VEL_ERROR_NONE);
            return;
        }
        host.own().make_readable();
        velasyncop *op = this->timeout(random() % 3, "t", [&] { pair.make_readable(); });
        if (random() % 4 == 0)
            vel_async_cancel(this->async_, op); /* its callback runs all the same */
        if (rounds == 50) {
            this->watch_write(fileno(file), "file", [&] {
                EXPECT_EQ(this->unwatch_write(fileno(file)), VEL_ERROR_NONE);
            });
        }
    };
    this->watch_read(pair.own(), "r", round);
    pair.make_readable();
    host.run([&] {
        host.own().drain();
        host_rounds++;
    });
    EXPECT_EQ(rounds, 100);
    EXPECT_GE(host_rounds, 1);
    const names called = this->take();
    EXPECT_EQ(std::count(called.begin(), called.end(), "file"), 1);
    fclose(file);
}

} // namespace
