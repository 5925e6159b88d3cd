/* Readiness of descriptors. */

#include "support/epollcalls.h"

#include <fcntl.h>
#include <regex>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/asynctest.h"
#include "support/rows.h"

namespace {

using support::asserts;
using support::async_line;
using support::direction;
using support::kNothingReady;
using support::kRead;
using support::kWrite;
using support::log_lines;
using support::names;
using support::ready_lines;
using support::socket_pair;

log_lines changed(int result)
{
    return {async_line("socket", 1, "kevent() returned " + std::to_string(result))};
}
log_lines refused(const std::string &text)
{
    return {async_line("socket", 6, text)};
}
std::string text_of(const std::string &before, int s)
{
    return before + std::to_string(s);
}

class VelasyncSocket : public support::async_test {};

/* Rules of both directions. */
class VelasyncSocketDirection : public VelasyncSocket,
                                public testing::WithParamInterface<direction> {
  protected:
    vel_error_t watch_it(
        int s, const std::string &name, const action &then = [] {})
    {
        return watch(GetParam(), s, name, then);
    }
    vel_error_t unwatch(int s)
    {
        return GetParam().unregisters(async_, s);
    }
    bool reads() const
    {
        return GetParam().word == kRead.word;
    }
    const direction &other() const
    {
        return reads() ? kWrite : kRead;
    }
    void make_ready(socket_pair &pair)
    {
        if (reads())
            pair.make_readable();
        else
            pair.make_writable();
    }
    void make_unready(socket_pair &pair)
    {
        if (reads())
            pair.drain();
        else
            pair.make_unwritable();
    }
    std::string filter() const
    {
        return GetParam().filter;
    }
};

INSTANTIATE_TEST_SUITE_P(, VelasyncSocketDirection, testing::Values(kRead, kWrite),
                         support::row_name());

/* For as long as it is ready. */
TEST_P(VelasyncSocketDirection, CallsWhileReady)
{
    socket_pair pair;
    make_unready(pair);
    EXPECT_EQ(watch_it(pair.own(), "a"), VEL_ERROR_NONE);
    EXPECT_EQ(own_lines(), changed(0));
    for (int round = 0; round < 3; round++) {
        EXPECT_FALSE(native_ready());
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
        EXPECT_EQ(take(), names{});
        EXPECT_EQ(own_lines(), kNothingReady);
        make_ready(pair);
        EXPECT_TRUE(native_ready());
        for (int i = 0; i < 3; i++) {
            EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
            EXPECT_EQ(take(), (names{"a"}));
            EXPECT_EQ(own_lines(), ready_lines(pair.own()));
        }
        make_unready(pair);
    }
    EXPECT_EQ(unwatch(pair.own()), VEL_ERROR_NONE);
    EXPECT_EQ(own_lines(), changed(0));
    make_ready(pair);
    EXPECT_FALSE(native_ready());
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), names{});
}

TEST_P(VelasyncSocketDirection, ReadyFromTheBeginning)
{
    socket_pair pair;
    make_ready(pair);
    EXPECT_EQ(watch_it(pair.own(), "a"), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"a"}));
    EXPECT_EQ(unwatch(pair.own()), VEL_ERROR_NONE);
}

TEST_P(VelasyncSocketDirection, SecondRegistrationIsAnUpdate)
{
    socket_pair pair;
    make_ready(pair);
    EXPECT_EQ(watch_it(pair.own(), "a"), VEL_ERROR_NONE);
    EXPECT_EQ(watch_it(pair.own(), "b"), VEL_ERROR_NONE);
    EXPECT_EQ(own_lines(), changed(0) + changed(0));
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"b", "b", "b"}));
    EXPECT_EQ(unwatch(pair.own()), VEL_ERROR_NONE); /* it is one item */
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), names{});
    log_.clear();
    EXPECT_EQ(unwatch(pair.own()), VEL_ERROR_NOT_FOUND);
}

/* Nothing is sent to the queue. */
TEST_P(VelasyncSocketDirection, UnknownDescriptorIsNotFound)
{
    socket_pair pair;
    const int changes = support::epoll_changes;
    EXPECT_EQ(unwatch(pair.own()), VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(own_lines(), refused(text_of("socket ", pair.own()) + " was not registered"));
    EXPECT_EQ(unwatch(1000000), VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(own_lines(), refused("socket 1000000 was not registered"));
    EXPECT_EQ(support::epoll_changes, changes);
}

TEST_P(VelasyncSocketDirection, OtherDirectionIsNotFound)
{
    socket_pair pair;
    EXPECT_EQ(watch(other(), pair.own(), "a"), VEL_ERROR_NONE);
    log_.clear();
    const int changes = support::epoll_changes;
    EXPECT_EQ(unwatch(pair.own()), VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(own_lines(), refused(text_of("socket ", pair.own()) + " was not registered for " +
                                   GetParam().word));
    EXPECT_EQ(support::epoll_changes, changes);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
}

TEST_P(VelasyncSocketDirection, DescriptorThatIsNone)
{
    EXPECT_EQ(watch_it(1000000, "a"), VEL_ERROR_GENERIC);
    EXPECT_EQ(own_lines(), changed(-1) + refused("kevent() " + filter() + " failed, errno 9"));
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE); /* counts as registered */
    log_.clear();
    /* It is not in the queue, but its item is gone. */
    EXPECT_EQ(unwatch(1000000), VEL_ERROR_GENERIC);
    const log_lines logged = own_lines();
    ASSERT_EQ(logged.size(), 2u);
    EXPECT_EQ(logged[0], changed(-1)[0]);
    EXPECT_EQ(logged[1].text.rfind("kevent() " + filter() + " EV_DELETE failed, errno ", 0), 0u);
    EXPECT_EQ(logged[1].level, 6);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(unwatch(1000000), VEL_ERROR_NOT_FOUND);
}

/* No rollback: the item stays, and a second try may be better. */
TEST_P(VelasyncSocketDirection, ChangeFails)
{
    socket_pair pair;
    make_ready(pair);
    {
        const support::epoll_failure failure("change", ENOMEM);
        EXPECT_EQ(watch_it(pair.own(), "a"), VEL_ERROR_GENERIC);
    }
    EXPECT_EQ(own_lines(), changed(-1) + refused("kevent() " + filter() + " failed, errno 12"));
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), names{});
    EXPECT_EQ(watch_it(pair.own(), "b"), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"b"}));
    log_.clear();
    {
        const support::epoll_failure failure("change", ENOMEM);
        EXPECT_EQ(unwatch(pair.own()), VEL_ERROR_GENERIC);
    }
    EXPECT_EQ(own_lines(),
              changed(-1) + refused("kevent() " + filter() + " EV_DELETE failed, errno 12"));
    /* The item is gone, though the queue goes on telling of the descriptor. */
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), names{});
    EXPECT_EQ(own_lines(), ready_lines(pair.own()) +
                               refused(std::string("processing ") + (reads() ? "read" : "write") +
                                       text_of(" on an unrecognized socket ", pair.own())));
    EXPECT_EQ(unwatch(pair.own()), VEL_ERROR_NOT_FOUND);
}

/* Callbacks. */

TEST_P(VelasyncSocketDirection, CallbackMayUnregisterAndCloseItsDescriptor)
{
    socket_pair pair;
    make_ready(pair);
    EXPECT_EQ(watch_it(pair.own(), "a",
                       [&] {
                           EXPECT_EQ(unwatch(pair.own()), VEL_ERROR_NONE);
                           pair.close_own();
                       }),
              VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), (names{"a"}));
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), names{});
}

/* The platform forgets a closed descriptor, the item does not. */
TEST_P(VelasyncSocketDirection, CallbackMayCloseItsDescriptorFirst)
{
    socket_pair pair;
    make_ready(pair);
    const int s = pair.own();
    EXPECT_EQ(watch_it(s, "a", [&] { pair.close_own(); }), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"a"}));
    EXPECT_EQ(unwatch(s), VEL_ERROR_GENERIC);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    vel_async_poll(async_); /* which has nothing to wait for */
}

TEST_P(VelasyncSocketDirection, CallbackMayUnregisterAnother)
{
    socket_pair pairs[2];
    for (int i = 0; i < 2; i++) {
        make_ready(pairs[i]);
        EXPECT_EQ(watch_it(pairs[i].own(), std::to_string(i),
                           [&, i] { EXPECT_EQ(unwatch(pairs[1 - i].own()), VEL_ERROR_NONE); }),
                  VEL_ERROR_NONE);
    }
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    const names first = take();
    ASSERT_EQ(first.size(), 1u);
    const int winner = std::stoi(first[0]);
    EXPECT_EQ(unwatch(pairs[winner].own()), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), names{});
}

TEST_P(VelasyncSocketDirection, CallbackMayReplaceItself)
{
    socket_pair pair;
    make_ready(pair);
    EXPECT_EQ(watch_it(pair.own(), "a", [&] { watch_it(pair.own(), "b"); }), VEL_ERROR_NONE);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"a", "b", "b"}));
}

TEST_P(VelasyncSocketDirection, CallbackMayRegisterMore)
{
    socket_pair pairs[50];
    size_t next = 1;
    std::function<void()> more = [&] {
        if (next == 50)
            return;
        socket_pair &pair = pairs[next];
        make_ready(pair);
        EXPECT_EQ(watch_it(pair.own(), std::to_string(next), more), VEL_ERROR_NONE);
        EXPECT_EQ(unwatch(pairs[next - 1].own()), VEL_ERROR_NONE);
        next++;
    };
    make_ready(pairs[0]);
    EXPECT_EQ(watch_it(pairs[0].own(), "0", more), VEL_ERROR_NONE);
    names expected;
    for (int i = 0; i < 50; i++) {
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
        expected.push_back(std::to_string(i));
    }
    EXPECT_EQ(take(), expected);
    EXPECT_EQ(unwatch(pairs[49].own()), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
}

/* A new descriptor with the number of one that was closed. */
TEST_P(VelasyncSocketDirection, NumberOfAClosedDescriptorComesBack)
{
    socket_pair first;
    make_ready(first);
    const int s = first.own();
    EXPECT_EQ(watch_it(s, "first"), VEL_ERROR_NONE);
    first.close_own();
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), names{});

    socket_pair second;
    make_ready(second);
    ASSERT_EQ(second.own(), s);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE); /* which the queue does not know */
    EXPECT_EQ(take(), names{});
    EXPECT_EQ(watch_it(s, "second"), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"second"}));
    EXPECT_EQ(unwatch(s), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    vel_async_poll(async_); /* the first one does not count any longer */
}

/* Both directions of one descriptor. */

/* Nobody starves: within two rounds each has been called. */
TEST_F(VelasyncSocket, ReadyOnesTakeTurns)
{
    socket_pair pairs[5];
    std::set<std::string> all;
    for (int i = 0; i < 5; i++) {
        pairs[i].make_readable();
        for (const direction &way : {kRead, kWrite}) {
            const std::string name = std::to_string(i) + way.name;
            EXPECT_EQ(watch(way, pairs[i].own(), name), VEL_ERROR_NONE);
            all.insert(name);
        }
    }
    for (int round = 0; round < 4; round++) {
        for (int i = 0; i < 20; i++)
            EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
        const names called = take();
        EXPECT_EQ(called.size(), 20u);
        EXPECT_EQ(std::set<std::string>(called.begin(), called.end()), all);
    }
}

TEST_F(VelasyncSocket, UnregisteredReadLeavesWrite)
{
    socket_pair pair;
    pair.make_readable();
    EXPECT_EQ(watch_read(pair.own(), "r"), VEL_ERROR_NONE);
    EXPECT_EQ(watch_write(pair.own(), "w"), VEL_ERROR_NONE);
    log_.clear();
    EXPECT_EQ(unwatch_read(pair.own()), VEL_ERROR_NONE);
    EXPECT_EQ(own_lines(), changed(0));
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"w", "w", "w", "w"}));
    log_.clear();
    EXPECT_EQ(unwatch_read(pair.own()), VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(own_lines(),
              refused(text_of("socket ", pair.own()) + " was not registered for reading"));
    EXPECT_EQ(unwatch_write(pair.own()), VEL_ERROR_NONE);
    EXPECT_EQ(own_lines(), changed(0));
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(take(), names{});
}

/* The rule that surprises: it is the read filter that goes. */
TEST_F(VelasyncSocket, UnregisteredWriteTakesTheReadFilter)
{
    socket_pair pair;
    const int s = pair.own();
    pair.make_readable();
    EXPECT_EQ(watch_read(s, "r"), VEL_ERROR_NONE);
    EXPECT_EQ(watch_write(s, "w"), VEL_ERROR_NONE);
    log_.clear();
    EXPECT_EQ(unwatch_write(s), VEL_ERROR_NONE);
    EXPECT_EQ(own_lines(), changed(0));
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
        EXPECT_EQ(own_lines(),
                  ready_lines(s) + refused(text_of("no write callback set for socket ", s)));
    }
    EXPECT_EQ(take(), names{});

    /* The write side is gone, the read side is not, and neither is its write filter. */
    EXPECT_EQ(unwatch_write(s), VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(own_lines(), refused(text_of("socket ", s) + " was not registered for writing"));
    pair.make_unwritable();
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(own_lines(), kNothingReady);
    pair.make_writable();

    /* The read filter is not there to be removed; the item goes all the same. */
    EXPECT_EQ(unwatch_read(s), VEL_ERROR_GENERIC);
    EXPECT_EQ(own_lines(), changed(-1) + refused("kevent() EVFILT_READ EV_DELETE failed, errno 2"));
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(own_lines(),
              ready_lines(s) + refused(text_of("processing write on an unrecognized socket ", s)));
    EXPECT_EQ(unwatch_read(s), VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(take(), names{});

    /* Nobody waits for what is left of it. */
    pair.make_unwritable();
    vel_async_poll(async_);
}

/* A registration for reading brings the read callback back, one for writing the write callback. */
TEST_F(VelasyncSocket, RegistrationMendsWhatTheWriteSideTook)
{
    socket_pair pair;
    const int s = pair.own();
    pair.make_readable();
    EXPECT_EQ(watch_read(s, "r"), VEL_ERROR_NONE);
    EXPECT_EQ(watch_write(s, "w"), VEL_ERROR_NONE);
    EXPECT_EQ(unwatch_write(s), VEL_ERROR_NONE);
    EXPECT_EQ(watch_read(s, "r again"), VEL_ERROR_NONE);
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    names called = take();
    EXPECT_GE(called.size(), 1u); /* the other turns were those of the write filter */
    EXPECT_LT(called.size(), 4u);
    EXPECT_EQ(std::set<std::string>(called.begin(), called.end()),
              (std::set<std::string>{"r again"}));
    EXPECT_EQ(watch_write(s, "w again"), VEL_ERROR_NONE);
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    called = take();
    EXPECT_EQ(called.size(), 4u);
    EXPECT_EQ(std::set<std::string>(called.begin(), called.end()),
              (std::set<std::string>{"r again", "w again"}));
}

/* The first one has removed the read filter; the failure has its name, too. */
TEST_F(VelasyncSocket, UnregisteredWriteMayMissTheReadFilter)
{
    socket_pair pair;
    const int s = pair.own();
    EXPECT_EQ(watch_read(s, "r"), VEL_ERROR_NONE);
    EXPECT_EQ(watch_write(s, "w"), VEL_ERROR_NONE);
    EXPECT_EQ(unwatch_write(s), VEL_ERROR_NONE);
    EXPECT_EQ(watch_write(s, "w"), VEL_ERROR_NONE);
    log_.clear();
    EXPECT_EQ(unwatch_write(s), VEL_ERROR_GENERIC);
    EXPECT_EQ(own_lines(), changed(-1) + refused("kevent() EVFILT_READ EV_DELETE failed, errno 2"));
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), names{});
}

/* After the read side has gone, the write side is the only one. */
TEST_F(VelasyncSocket, LastOfBothGoesWithItsOwnFilter)
{
    socket_pair pair;
    const int s = pair.own();
    pair.make_readable();
    EXPECT_EQ(watch_read(s, "r"), VEL_ERROR_NONE);
    EXPECT_EQ(watch_write(s, "w"), VEL_ERROR_NONE);
    EXPECT_EQ(unwatch_read(s), VEL_ERROR_NONE);
    EXPECT_EQ(unwatch_write(s), VEL_ERROR_NONE);
    log_.clear();
    EXPECT_FALSE(native_ready());
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    EXPECT_EQ(own_lines(), kNothingReady);
}

/* Descriptors of all kinds. */

TEST_F(VelasyncSocket, EndOfAPipeIsReadable)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
    EXPECT_EQ(watch_read(ends[0], "end"), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), names{});
    close(ends[1]);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"end"}));
    EXPECT_EQ(unwatch_read(ends[0]), VEL_ERROR_NONE);
    close(ends[0]);
}

TEST_F(VelasyncSocket, PipeWithoutAReaderIsWritable)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
    const std::string bytes(65536, 'x');
    while (write(ends[1], bytes.data(), bytes.size()) > 0) {
    }
    EXPECT_EQ(watch_write(ends[1], "broken"), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), names{});
    close(ends[0]);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"broken"}));
    EXPECT_EQ(unwatch_write(ends[1]), VEL_ERROR_NONE);
    close(ends[1]);
}

TEST_F(VelasyncSocket, ClosedPeerIsReadable)
{
    socket_pair pair;
    EXPECT_EQ(watch_read(pair.own(), "end"), VEL_ERROR_NONE);
    pair.close_peer();
    for (int i = 0; i < 2; i++)
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"end", "end"}));
    EXPECT_EQ(unwatch_read(pair.own()), VEL_ERROR_NONE);
}

/* A regular file is always ready, in both directions, beside descriptors that are not. */
TEST_F(VelasyncSocket, RegularFilesAreAlwaysReady)
{
    socket_pair pair;
    FILE *file = tmpfile();
    ASSERT_NE(file, nullptr);
    const int s = fileno(file);
    EXPECT_EQ(watch_read(pair.own(), "pair", [&] { pair.drain(); }), VEL_ERROR_NONE);
    EXPECT_EQ(watch_read(s, "r"), VEL_ERROR_NONE);
    EXPECT_TRUE(native_ready());
    vel_async_poll(async_); /* returns */
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"r", "r", "r"}));
    EXPECT_EQ(watch_write(s, "w"), VEL_ERROR_NONE);
    pair.make_readable();
    for (int i = 0; i < 8; i++)
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    const names called = take();
    EXPECT_EQ(called.size(), 8u);
    EXPECT_EQ(std::set<std::string>(called.begin(), called.end()),
              (std::set<std::string>{"pair", "r", "w"}));
    EXPECT_EQ(unwatch_read(s), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"w"}));
    EXPECT_EQ(unwatch_write(s), VEL_ERROR_NONE);
    EXPECT_FALSE(native_ready());
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), names{});
    EXPECT_EQ(unwatch_read(pair.own()), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
    fclose(file);
}

TEST_F(VelasyncSocket, ClosedRegularFileDoesNotComeBack)
{
    FILE *file = tmpfile();
    ASSERT_NE(file, nullptr);
    const int s = fileno(file);
    EXPECT_EQ(watch_read(s, "r"), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"r"}));
    fclose(file);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE); /* the item stays */
    EXPECT_EQ(take(), names{});
}

/* The loop of another loop: a native handle is a descriptor like others. */
TEST_F(VelasyncSocket, LoopWithinALoop)
{
    socket_pair pair;
    velasync *inner = vel_async_create();
    ASSERT_NE(inner, nullptr);
    note *ready_note = note_of("inner", [&] { pair.drain(); });
    EXPECT_EQ(vel_async_register_socket_read(inner, pair.own(), ready, ready_note), VEL_ERROR_NONE);
    EXPECT_EQ(watch_read(vel_async_get_native_handle(inner), "outer",
                         [&] { EXPECT_EQ(vel_async_process(inner), VEL_ERROR_INCOMPLETE); }),
              VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), names{});
    pair.make_readable();
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"outer", "inner"}));
    EXPECT_EQ(unwatch_read(vel_async_get_native_handle(inner)), VEL_ERROR_NONE);
    vel_async_destroy(inner);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
}

TEST_F(VelasyncSocket, HundredsOfDescriptors)
{
    constexpr size_t kCount = 300;
    std::vector<socket_pair> pairs(kCount);
    for (size_t i = 0; i < kCount; i++) {
        EXPECT_EQ(watch_read(pairs[i].own(), std::to_string(i), [&pairs, i] { pairs[i].drain(); }),
                  VEL_ERROR_NONE);
    }
    for (socket_pair &pair : pairs)
        pair.make_readable();
    for (size_t i = 0; i < kCount; i++)
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    const names called = take();
    EXPECT_EQ(called.size(), kCount);
    EXPECT_EQ(std::set<std::string>(called.begin(), called.end()).size(), kCount);
    EXPECT_FALSE(native_ready());
    for (size_t i = 0; i < kCount; i++)
        EXPECT_EQ(unwatch_read(pairs[i].own()), VEL_ERROR_NONE);
    EXPECT_EQ(process(), VEL_ERROR_NONE);
}

/* Fetches that fail. */

TEST_F(VelasyncSocket, FailedFetchIsLoggedAndNoMore)
{
    socket_pair pair;
    pair.make_readable();
    EXPECT_EQ(watch_read(pair.own(), "a"), VEL_ERROR_NONE);
    timeout(0, "t");
    log_.clear();
    {
        const support::epoll_failure failure("wait", EINTR);
        EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
        EXPECT_EQ(own_lines(), (log_lines{async_line(13, "vel_async_process_eventhandle()"),
                                          async_line(6, "kevent() failed, errno 4")}));
        EXPECT_EQ(take(), (names{"t timed out"})); /* the pass goes on */
        vel_async_poll(async_);
        EXPECT_EQ(own_lines(), (log_lines{async_line(1, "kevent() returned -1 events")}));
    }
    EXPECT_EQ(process(), VEL_ERROR_INCOMPLETE);
    EXPECT_EQ(take(), (names{"a"}));
}

/* The building blocks. */

class VelasyncSocketObject : public support::async_test {
  protected:
    void SetUp() override
    {
        async_test::SetUp();
        socket_ = vel_async_socket_create();
        ASSERT_NE(socket_, nullptr);
        queue_ = vel_async_get_native_handle(async_);
    }
    void TearDown() override
    {
        vel_async_socket_destroy(socket_);
        async_test::TearDown();
    }
    velasyncsocket *socket_ = nullptr;
    int queue_ = -1;
};

TEST_F(VelasyncSocketObject, Check)
{
    socket_pair pair;
    EXPECT_EQ(vel_async_socket_check(socket_), 0);
    EXPECT_EQ(vel_async_socket_register_read(async_, socket_, queue_, pair.own(), ready,
                                             note_of("r", [] {})),
              VEL_ERROR_NONE);
    EXPECT_EQ(vel_async_socket_check(socket_), 1);
    EXPECT_EQ(vel_async_socket_register_write(async_, socket_, queue_, pair.own(), ready,
                                              note_of("w", [] {})),
              VEL_ERROR_NONE);
    EXPECT_EQ(vel_async_socket_check(socket_), 1);
    EXPECT_EQ(vel_async_socket_unregister_read(async_, socket_, queue_, pair.own()),
              VEL_ERROR_NONE);
    EXPECT_EQ(vel_async_socket_check(socket_), 1);
    EXPECT_EQ(vel_async_socket_unregister_write(async_, socket_, queue_, pair.own()),
              VEL_ERROR_NONE);
    EXPECT_EQ(vel_async_socket_check(socket_), 0);
    EXPECT_EQ(own_lines(), changed(0) + changed(0) + changed(0) + changed(0));
}

TEST_F(VelasyncSocketObject, ProcessCallsWhatIsRegistered)
{
    socket_pair pair;
    const int s = pair.own();
    EXPECT_EQ(vel_async_socket_process_read(socket_, s), VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(own_lines(), refused(text_of("processing read on an unrecognized socket ", s)));
    EXPECT_EQ(vel_async_socket_process_write(socket_, s), VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(own_lines(), refused(text_of("processing write on an unrecognized socket ", s)));

    vel_async_socket_register_read(async_, socket_, queue_, s, ready, note_of("r", [] {}));
    log_.clear();
    EXPECT_EQ(vel_async_socket_process_read(socket_, s), VEL_ERROR_NONE);
    EXPECT_EQ(own_lines(), log_lines{});
    EXPECT_EQ(vel_async_socket_process_write(socket_, s), VEL_ERROR_BAD_HANDLE);
    EXPECT_EQ(own_lines(), refused(text_of("no write callback set for socket ", s)));

    vel_async_socket_register_write(async_, socket_, queue_, s, ready, note_of("w", [] {}));
    vel_async_socket_unregister_read(async_, socket_, queue_, s);
    log_.clear();
    EXPECT_EQ(vel_async_socket_process_write(socket_, s), VEL_ERROR_NONE);
    EXPECT_EQ(vel_async_socket_process_read(socket_, s), VEL_ERROR_BAD_HANDLE);
    EXPECT_EQ(own_lines(), refused(text_of("no read callback set for socket ", s)));
    EXPECT_EQ(take(), (names{"r", "w"}));
}

/* The queue is the loop's. */
TEST_F(VelasyncSocketObject, AnotherHandleIsRefused)
{
    socket_pair pair;
    const int s = pair.own(), changes = support::epoll_changes;
    EXPECT_EQ(vel_async_socket_register_read(async_, socket_, s, s, ready, nullptr),
              VEL_ERROR_GENERIC);
    EXPECT_EQ(own_lines(), changed(-1) + refused("kevent() EVFILT_READ failed, errno 9"));
    EXPECT_EQ(vel_async_socket_check(socket_), 1);
    EXPECT_EQ(vel_async_socket_unregister_read(async_, socket_, s, s), VEL_ERROR_GENERIC);
    EXPECT_EQ(own_lines(), changed(-1) + refused("kevent() EVFILT_READ EV_DELETE failed, errno 9"));
    EXPECT_EQ(vel_async_socket_check(socket_), 0);
    EXPECT_EQ(support::epoll_changes, changes);
}

TEST_F(VelasyncSocketObject, DestroySendsNothingToTheQueue)
{
    socket_pair pair;
    vel_async_socket_register_read(async_, socket_, queue_, pair.own(), ready, note_of("r", [] {}));
    const int changes = support::epoll_changes;
    log_.clear();
    vel_async_socket_destroy(socket_);
    EXPECT_EQ(support::epoll_changes, changes);
    EXPECT_EQ(own_lines(), log_lines{});
    socket_ = vel_async_socket_create();
    ASSERT_NE(socket_, nullptr);
}

using VelasyncSocketDeathTest = VelasyncSocketObject;

TEST_F(VelasyncSocketDeathTest, Arguments)
{
    const struct {
        const char *name;
        vel_error_t (*registers)(velasync *, velasyncsocket *, int, int, vel_async_socket_cb *,
                                 void *);
        vel_error_t (*unregisters)(velasync *, velasyncsocket *, int, int);
        vel_error_t (*process)(velasyncsocket *, int);
    } rows[] = {
        {"read", vel_async_socket_register_read, vel_async_socket_unregister_read,
         vel_async_socket_process_read},
        {"write", vel_async_socket_register_write, vel_async_socket_unregister_write,
         vel_async_socket_process_write},
    };
    for (const auto &row : rows) {
        const std::string registers = std::string("vel_async_socket_register_") + row.name;
        const std::string unregisters = std::string("vel_async_socket_unregister_") + row.name;
        const std::string process = std::string("vel_async_socket_process_") + row.name;
        EXPECT_DEATH(row.registers(nullptr, nullptr, -1, -1, nullptr, nullptr),
                     asserts("velasync != NULL", registers));
        EXPECT_DEATH(row.registers(async_, nullptr, -1, -1, nullptr, nullptr),
                     asserts("velasyncsocket != NULL", registers));
        EXPECT_DEATH(row.registers(async_, socket_, -1, -1, nullptr, nullptr),
                     asserts("eventhandle >= 0", registers));
        EXPECT_DEATH(row.registers(async_, socket_, queue_, -1, nullptr, nullptr),
                     asserts("s >= 0", registers));
        EXPECT_DEATH(row.registers(async_, socket_, queue_, 0, nullptr, nullptr),
                     asserts("callback != NULL", registers));
        EXPECT_DEATH(row.unregisters(nullptr, nullptr, -1, -1),
                     asserts("velasync != NULL", unregisters));
        EXPECT_DEATH(row.unregisters(async_, nullptr, -1, -1),
                     asserts("velasyncsocket != NULL", unregisters));
        EXPECT_DEATH(row.unregisters(async_, socket_, -1, -1),
                     asserts("eventhandle >= 0", unregisters));
        EXPECT_DEATH(row.unregisters(async_, socket_, queue_, -1), asserts("s >= 0", unregisters));
        EXPECT_DEATH(row.process(nullptr, -1), asserts("velasyncsocket != NULL", process));
        EXPECT_DEATH(row.process(socket_, -1), asserts("s >= 0", process));
    }
    EXPECT_DEATH(vel_async_socket_destroy(nullptr),
                 asserts("socket != NULL", "vel_async_socket_destroy"));
    EXPECT_DEATH(vel_async_socket_check(nullptr),
                 asserts("velasyncsocket != NULL", "vel_async_socket_check"));
}

} // namespace
