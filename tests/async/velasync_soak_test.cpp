/* A loop that runs for long. */

#include "support/soak.h"

#include <chrono>
#include <random>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

namespace {

using support::soak_length;
using support::soak_look;
using support::soak_state;

constexpr int kPairs = 16;
constexpr int kTimeouts = 200;

/* Does all that a loop is for, by chance, and counts. */
class traffic {
  public:
    traffic() : async_(vel_async_create()), random_(1)
    {
        EXPECT_NE(async_, nullptr);
        for (int i = 0; i < kPairs; i++)
            pairs_[i] = {this, {-1, -1}};
        for (timer &one : timers_)
            one = {this, nullptr};
    }
    ~traffic()
    {
        vel_async_destroy(async_);
    }
    traffic(const traffic &) = delete;
    traffic &operator=(const traffic &) = delete;

    /* Runs for a while, and ends with nothing registered. */
    void run(std::chrono::milliseconds time)
    {
        const auto end = std::chrono::steady_clock::now() + time;
        running_ = true;
        for (pair &one : pairs_)
            open(&one);
        for (timer &one : timers_)
            start(&one);
        while (vel_async_process(async_) == VEL_ERROR_INCOMPLETE) {
            vel_async_poll(async_);
            if (running_ && std::chrono::steady_clock::now() >= end)
                stop();
        }
        EXPECT_EQ(vel_async_get_timeout_ms(async_), -1);
    }

    uint64_t events = 0;
    uint64_t expiries = 0;
    uint64_t cancels = 0;

  private:
    struct pair {
        traffic *self;
        int ends[2];
    };
    struct timer {
        traffic *self;
        velasyncop *op;
    };

    void open(pair *one)
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, one->ends), 0);
        for (int end : one->ends) {
            EXPECT_EQ(vel_async_register_socket_read(async_, end, readable, one), VEL_ERROR_NONE);
        }
        EXPECT_EQ(vel_async_register_socket_write(async_, one->ends[0], writable, one),
                  VEL_ERROR_NONE);
    }
    void close_both(pair *one)
    {
        for (int &end : one->ends) {
            if (end < 0)
                continue;
            (void)vel_async_unregister_socket_read(async_, end);
            (void)vel_async_unregister_socket_write(async_, end);
            EXPECT_EQ(close(end), 0);
            end = -1;
        }
    }
    /* Which end was ready is not said: both are looked at. */
    static void readable(void *context)
    {
        auto *one = static_cast<pair *>(context);
        one->self->events++;
        char bytes[64];
        for (int end : one->ends) {
            const ssize_t count = read(end, bytes, sizeof bytes);
            if (count > 0) {
                EXPECT_EQ(write(end, bytes, static_cast<size_t>(count)), count);
            }
        }
        if (one->self->random_() % 1000 == 0) {
            one->self->close_both(one);
            one->self->open(one);
        }
    }
    /* Begins the going back and forth, and ends its own registration by a new one for reading. */
    static void writable(void *context)
    {
        auto *one = static_cast<pair *>(context);
        one->self->events++;
        EXPECT_EQ(write(one->ends[0], "x", 1), 1);
        velasync *async = one->self->async_;
        EXPECT_EQ(vel_async_unregister_socket_read(async, one->ends[0]), VEL_ERROR_NONE);
        EXPECT_EQ(vel_async_unregister_socket_write(async, one->ends[0]), VEL_ERROR_NONE);
        EXPECT_EQ(vel_async_register_socket_read(async, one->ends[0], readable, one),
                  VEL_ERROR_NONE);
    }
    void start(timer *one)
    {
        /* Some would take an hour, and are canceled before. */
        const unsigned int ms = random_() % 8 ? random_() % 20 : 3600000;
        one->op = vel_async_register_timeout_ms(async_, ms, timed, one);
        EXPECT_NE(one->op, nullptr);
    }
    static void timed(vel_error_t code, void *context)
    {
        auto *one = static_cast<timer *>(context);
        traffic *self = one->self;
        one->op = nullptr;
        if (code == VEL_ERROR_TIMED_OUT)
            self->expiries++;
        else
            self->cancels++;
        if (!self->running_)
            return;
        self->start(one);
        /* Now and then another one, which is started again by its callback. */
        timer *other = &self->timers_[self->random_() % kTimeouts];
        if (other->op && self->random_() % 4 == 0) {
            velasyncop *op = other->op;
            other->op = nullptr;
            vel_async_cancel(self->async_, op);
        }
    }
    void stop()
    {
        running_ = false;
        for (pair &one : pairs_)
            close_both(&one);
        for (timer &one : timers_) {
            if (one.op)
                vel_async_cancel(async_, one.op);
        }
    }

    velasync *async_;
    std::mt19937 random_;
    bool running_ = false;
    pair pairs_[kPairs];
    timer timers_[kTimeouts];
};

/* One loop all the time, and a short one beside it each time it rests. */
TEST(VelasyncSoak, TenMinutes)
{
    vel_log_stderr_disable(nullptr);
    const auto slice = std::chrono::milliseconds(soak_length(1000, 100));
    const int slices = soak_length(600, 15);
    const int warmup = 5;
    {
        traffic loop;
        soak_state rest = {};
        for (int i = 0; i < slices; i++) {
            loop.run(slice);
            {
                traffic other;
                other.run(slice / 10);
            }
            const soak_state now = soak_look();
            if (i < warmup) {
                rest = now;
                continue;
            }
            ASSERT_EQ(now, rest) << i;
        }
        const soak_state now = soak_look();
        EXPECT_LE(now.residents, rest.residents + soak_length(1024, 65536));
        EXPECT_GT(loop.events, 1000u);
        EXPECT_GT(loop.expiries, 1000u);
        EXPECT_GT(loop.cancels, 100u);
        support::soak_report(loop.events + loop.expiries + loop.cancels,
                             "events, timeouts and cancels in one loop");
    }
    vel_log_uninit();
}

} // namespace
