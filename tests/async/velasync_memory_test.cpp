/* A loop without memory, and without what else it needs of the platform. */

#include "support/epollcalls.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/asynctest.h"
#include "support/eachfailure.h"
#include "support/oom.h"

/* The errno of the event counters that the platform does not give, or 0. */
static int failcounter;

int eventfd(unsigned int count, int flags) noexcept
{
    static const auto next = support::platform_function<int(unsigned int, int)>("eventfd");
    if (failcounter == 0)
        return next(count, flags);
    errno = failcounter;
    return -1;
}

namespace {

using support::async_line;
using support::each_failure;
using support::log_lines;
using support::socket_pair;

class VelasyncMemory : public testing::Test {
  protected:
    const std::set<int> before_ = support::descriptors();
    support::log_capture log_;
};

void timed(vel_error_t, void *)
{
}
void ready(void *)
{
}

TEST_F(VelasyncMemory, Create)
{
    velasync *async = nullptr;
    const std::vector<log_lines> expected = {
        {async_line(7, "not enough memory for velasync context")},
        {async_line("operations", 7, "not enough memory for asynchronous operations context")},
        {async_line("operations", 7, "not enough memory for active operations list")},
        {async_line("operations", 7, "not enough memory for canceled operations list")},
        {async_line("timeout", 7, "not enough memory for velasync timeout context")},
        {async_line("timeout", 7, "not enough memory for velasync timeout list")},
        {async_line("timeout", 7, "not enough memory for velasync timeout timer")},
        {async_line("socket", 7, "not enough memory for velasync socket context")},
        {async_line("socket", 7, "not enough memory for velasync socket list")},
    };
    EXPECT_EQ(each_failure(log_, "async/",
                           [&] {
                               async = vel_async_create();
                               return async != nullptr;
                           }),
              expected);
    vel_async_destroy(async);
    EXPECT_EQ(support::descriptors(), before_);
}

/* In a loop of its own each time, as a queue may keep the room that it got. */
TEST_F(VelasyncMemory, Timeout)
{
    const std::vector<log_lines> expected = {
        {async_line("timeout", 7, "not enough memory for a timeout"),
         async_line("timeout", 7, "not enough memory for a timeout")},
        {async_line("handle", 7, "not enough memory for velasyncop context"),
         async_line("timeout", 7, "unable to create asynchronous operation handle")},
    };
    const auto add = [](velasync *async) {
        const bool good = vel_async_register_timeout_ms(async, 0, timed, nullptr) != nullptr;
        const support::malloc_pause pause;
        EXPECT_EQ(vel_async_get_timeout_ms(async), good ? 0 : -1);
        EXPECT_EQ(vel_async_process(async), VEL_ERROR_NONE);
        return good;
    };
    EXPECT_EQ(each_failure(log_, "async/velasync_",
                           [&] {
                               velasync *async;
                               {
                                   const support::malloc_pause pause;
                                   async = vel_async_create();
                               }
                               const bool good = add(async);
                               vel_async_destroy(async);
                               return good;
                           }),
              expected);
}

/* Where a queue cannot grow, the room of a few that were cancelled will do. */
TEST_F(VelasyncMemory, RoomOfCancelledTimeouts)
{
    velasync *async = vel_async_create();
    const auto add = [&] { return vel_async_register_timeout_ms(async, 1000000, timed, nullptr); };
    const auto asks_to_grow = [&] { /* before it asks for the timeout, which is small */
                                    const support::malloc_watch watch(1);
                                    EXPECT_EQ(add(), nullptr);
                                    return support::malloc_watch::sizes()[0] > 512;
    };
    std::vector<velasyncop *> pending;
    while (!asks_to_grow() && pending.size() < 1000)
        pending.push_back(add());
    for (int i = 0; i < 3; i++) {
        vel_async_cancel(async, pending.back());
        pending.pop_back();
    }
    EXPECT_EQ(vel_async_process(async), VEL_ERROR_INCOMPLETE);
    log_.clear();
    {
        const support::malloc_watch watch(1);
        pending.push_back(add());
        EXPECT_EQ(support::malloc_watch::count(), 3u);
    }
    EXPECT_NE(pending.back(), nullptr);
    EXPECT_EQ(log_.take(), log_lines{});
    for (velasyncop *op : pending)
        vel_async_cancel(async, op);
    EXPECT_EQ(vel_async_process(async), VEL_ERROR_NONE);
    vel_async_destroy(async);
}

TEST_F(VelasyncMemory, Handle)
{
    velasyncop *op = nullptr;
    EXPECT_EQ(each_failure(log_, "async/",
                           [&] {
                               op = vel_async_handle_create(ready, nullptr);
                               return op != nullptr;
                           }),
              (std::vector<log_lines>{
                  {async_line("handle", 7, "not enough memory for velasyncop context")}}));
    vel_async_handle_destroy(op);
}

/* No item, and so nothing to unregister. */
TEST_F(VelasyncMemory, Descriptors)
{
    velasync *async = vel_async_create();
    socket_pair pair;
    for (const support::direction &way : {support::kRead, support::kWrite}) {
        std::vector<log_lines> failures = each_failure(log_, "async/", [&] {
            const vel_error_t result = way.registers(async, pair.own(), ready, nullptr);
            if (result != VEL_ERROR_NONE) {
                const support::malloc_pause pause;
                EXPECT_EQ(result, VEL_ERROR_NO_MEMORY);
                EXPECT_EQ(vel_async_process(async), VEL_ERROR_NONE);
            }
            return result == VEL_ERROR_NONE;
        });
        ASSERT_EQ(failures.size(), 1u);
        EXPECT_EQ(failures[0][0], async_line("socket", 7, "unable to create socket item"));
        EXPECT_EQ(way.unregisters(async, pair.own()), VEL_ERROR_NONE);
    }
    vel_async_destroy(async);
}

/* What holds the items may want to grow; without memory for that it goes on as it is. Each number
 * here is no descriptor, which has nothing to do with the items. */
TEST_F(VelasyncMemory, ManyDescriptors)
{
    constexpr int kFirst = 1000000;
    constexpr int kCount = 300;
    velasync *async = vel_async_create();
    support::warm_log(log_);
    for (int s = kFirst; s < kFirst + kCount; s++) {
        const support::malloc_watch watch(2);
        EXPECT_EQ(vel_async_register_socket_read(async, s, ready, nullptr), VEL_ERROR_GENERIC);
    }
    for (int s = kFirst; s < kFirst + kCount; s++)
        EXPECT_EQ(vel_async_unregister_socket_read(async, s), VEL_ERROR_GENERIC);
    EXPECT_EQ(vel_async_process(async), VEL_ERROR_NONE);
    vel_async_destroy(async);
}

/* What is always ready has an entry of its own, and something that stands for all such entries. Its
 * item stays without them, and a second try may be better. */
TEST_F(VelasyncMemory, RegularFile)
{
    velasync *async = vel_async_create();
    FILE *file = tmpfile();
    ASSERT_NE(file, nullptr);
    const auto watch = [&] {
        return vel_async_register_socket_read(async, fileno(file), ready, nullptr) ==
               VEL_ERROR_NONE;
    };
    const auto refused = [](int platformerrno) {
        return log_lines{
            async_line("socket", 1, "kevent() returned -1"),
            async_line("socket", 6,
                       "kevent() EVFILT_READ failed, errno " + std::to_string(platformerrno))};
    };
    failcounter = EMFILE;
    EXPECT_FALSE(watch());
    failcounter = 0;
    EXPECT_EQ(log_.take_from("async/"), refused(EMFILE));
    EXPECT_EQ(vel_async_process(async), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(vel_async_unregister_socket_read(async, fileno(file)), VEL_ERROR_GENERIC);
    const std::vector<log_lines> expected = {
        {async_line("socket", 7, "unable to create socket item")},
        refused(ENOMEM),
    };
    log_.clear();
    std::vector<log_lines> failures;
    for (size_t number = 1; number <= 2; number++) {
        bool good;
        {
            const support::malloc_watch fails(number);
            good = watch();
        }
        EXPECT_FALSE(good);
        failures.push_back(log_.take_from("async/"));
    }
    EXPECT_EQ(failures, expected);
    EXPECT_TRUE(watch());
    EXPECT_EQ(vel_async_unregister_socket_read(async, fileno(file)), VEL_ERROR_NONE);
    EXPECT_EQ(vel_async_process(async), VEL_ERROR_NONE);
    fclose(file);
    vel_async_destroy(async);
}

/* However many of them the mechanism makes. */
TEST_F(VelasyncMemory, EventQueue)
{
    velasync *async = nullptr;
    int failures = 0;
    while (!async) {
        {
            const support::epoll_failure failure("create", EMFILE, failures, 1);
            async = vel_async_create();
        }
        if (async)
            break;
        failures++;
        EXPECT_EQ(log_.take(), (log_lines{async_line(6, "kqueue() failed, errno 24")}));
        EXPECT_EQ(support::descriptors(), before_);
        ASSERT_LT(failures, 10);
    }
    EXPECT_GE(failures, 1);
    EXPECT_EQ(log_.take(), log_lines{});
    vel_async_destroy(async);
}

/* However many changes it takes to put together what a host waits for. One that has not got it may
 * ask again. */
TEST_F(VelasyncMemory, NativeHandle)
{
    velasync *async = vel_async_create();
    int handle = -1;
    for (int skip = 0; handle == -1; skip++) {
        const support::epoll_failure failure("change", ENOSPC, skip, 1);
        handle = vel_async_get_native_handle(async);
        EXPECT_EQ(handle == -1, failure.failed() == 1);
        ASSERT_LT(skip, 10);
    }
    EXPECT_EQ(vel_async_get_native_handle(async), handle);
    EXPECT_EQ(log_.take(), log_lines{});
    support::socket_pair pair;
    pair.make_readable();
    EXPECT_EQ(vel_async_register_socket_write(async, pair.own(), ready, nullptr), VEL_ERROR_NONE);
    pollfd native = {handle, POLLIN, 0};
    EXPECT_EQ(poll(&native, 1, 0), 1);
    EXPECT_EQ(vel_async_unregister_socket_write(async, pair.own()), VEL_ERROR_NONE);
    EXPECT_EQ(poll(&native, 1, 0), 0);
    EXPECT_EQ(vel_async_register_socket_read(async, pair.own(), ready, nullptr), VEL_ERROR_NONE);
    EXPECT_EQ(poll(&native, 1, 0), 1);
    EXPECT_EQ(vel_async_unregister_socket_read(async, pair.own()), VEL_ERROR_NONE);
    vel_async_destroy(async);
}

/* A whole life, with all kinds of operations. */
bool async_life()
{
    velasync *async = vel_async_create();
    if (!async)
        return false;
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    FILE *file = tmpfile();
    velasyncop *first = vel_async_register_timeout_ms(async, 1000, timed, nullptr);
    bool good = first != nullptr;
    if (good)
        vel_async_cancel(async, first);
    vel_async_process(async);
    good = good &&
           vel_async_register_socket_read(async, ends[0], ready, nullptr) == VEL_ERROR_NONE &&
           vel_async_register_socket_write(async, ends[0], ready, nullptr) == VEL_ERROR_NONE &&
           vel_async_register_socket_read(async, fileno(file), ready, nullptr) == VEL_ERROR_NONE;
    /* More than a first table of timeouts has room for, whatever it is. */
    velasyncop *ops[100] = {};
    for (unsigned int i = 0; i < 100 && good; i++) {
        ops[i] = vel_async_register_timeout_ms(async, 100000 + i * 7 % 13, timed, nullptr);
        good = ops[i] != nullptr;
    }
    vel_async_process(async);
    for (velasyncop *op : ops) {
        if (op)
            vel_async_cancel(async, op);
    }
    if (good)
        good = vel_async_process(async) == VEL_ERROR_INCOMPLETE &&
               vel_async_unregister_socket_read(async, ends[0]) == VEL_ERROR_NONE;
    vel_async_process(async);
    vel_async_destroy(async);
    fclose(file);
    close(ends[0]);
    close(ends[1]);
    return good;
}

TEST(VelasyncOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(async_life);
}

} // namespace
