#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/time.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/platform_function.h"
#include "support/sockettest.h"

static std::atomic<int> polls;

/* Microseconds since 1970 while the clock is played, and how long a receive takes then. */
static long long playedtime = -1;
static long long receivetime;
static std::vector<int> playedwaits; /* which end at once */

extern "C" int gettimeofday(struct timeval *time, void *zone) noexcept
{
    static const auto next =
        support::platform_function<int(struct timeval *, void *)>("gettimeofday");
    if (playedtime < 0)
        return next(time, zone);
    *time = {static_cast<time_t>(playedtime / 1000000),
             static_cast<suseconds_t>(playedtime % 1000000)};
    return 0;
}

int poll(pollfd *set, nfds_t count, int milliseconds)
{
    static const auto next = support::platform_function<int(pollfd *, nfds_t, int)>("poll");
    polls++;
    if (playedtime < 0)
        return next(set, count, milliseconds);
    playedwaits.push_back(milliseconds);
    return 0;
}

/* While set, the lengths of transfers are noted, and one byte is transferred. */
static std::vector<size_t> *lengths;

static size_t noted(size_t len)
{
    if (!lengths)
        return len;
    lengths->push_back(len);
    return 1;
}

ssize_t send(int descriptor, const void *buf, size_t len, int flags)
{
    static const auto next =
        support::platform_function<ssize_t(int, const void *, size_t, int)>("send");
    return next(descriptor, buf, noted(len), flags);
}

ssize_t sendto(int descriptor, const void *buf, size_t len, int flags, const sockaddr *address,
               socklen_t length)
{
    static const auto next = support::platform_function<ssize_t(
        int, const void *, size_t, int, const sockaddr *, socklen_t)>("sendto");
    return next(descriptor, buf, noted(len), flags, address, length);
}

ssize_t recvfrom(int descriptor, void *buf, size_t len, int flags, sockaddr *address,
                 socklen_t *length)
{
    static const auto next =
        support::platform_function<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)>(
            "recvfrom");
    if (playedtime >= 0)
        playedtime += receivetime;
    return next(descriptor, buf, noted(len), flags, address, length);
}

namespace {

using support::bound;
using support::kLong;
using support::local_port;
using support::log_line;
using support::log_lines;
using support::reset_on_close;
using support::socket_line;

using VelsocketTransfer = support::socket_test;

const log_line kWouldBlock = socket_line(13, "recv() returned EWOULDBLOCK");

/* Reading. */

TEST_F(VelsocketTransfer, ReadWithoutTimeTriesNothing)
{
    connect();
    EXPECT_EQ(vel_socket_write(connection_, "data", 4), 4u);
    ASSERT_EQ(vel_socket_poll_read(client_, kLong, 0), VEL_ERROR_NONE);
    char bytes[8];
    EXPECT_EQ(vel_socket_read_with_timeout(client_, bytes, sizeof bytes, 0, 0), 0u);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(log_.take(), log_lines{});
    EXPECT_EQ(read(client_), "data");
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_NONE);
}

TEST_F(VelsocketTransfer, ReadTimesOut)
{
    connect();
    char bytes[8];
    EXPECT_EQ(vel_socket_read_with_timeout(client_, bytes, sizeof bytes, 0, 20000), 0u);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(
        log_.take(),
        (log_lines{kWouldBlock,
                   socket_line(13, "polling read for a socket returned error 201 (timed out)")}));
}

/* The wait has what the first attempt left of the time. */
TEST_F(VelsocketTransfer, ReadWaitsForTheTimeLeft)
{
    connect();
    char bytes[8];
    playedtime = 1700000000000000;
    playedwaits.clear();
    receivetime = 400000;
    EXPECT_EQ(vel_socket_read_with_timeout(client_, bytes, sizeof bytes, 2, 1), 0u);
    const vel_error_t first = vel_socket_get_error(client_);
    receivetime = 2000000;
    EXPECT_EQ(vel_socket_read_with_timeout(client_, bytes, sizeof bytes, 2, 0), 0u);
    const vel_error_t second = vel_socket_get_error(client_);
    playedtime = -1;
    EXPECT_EQ(first, VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(second, VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(playedwaits, std::vector<int>{1601}); /* the second had nothing left to wait */
    EXPECT_EQ(
        log_.take(),
        (log_lines{kWouldBlock,
                   socket_line(13, "polling read for a socket returned error 201 (timed out)"),
                   kWouldBlock}));
}

TEST_F(VelsocketTransfer, ReadGivesWhatFitsAndKeepsTheRest)
{
    connect();
    EXPECT_EQ(vel_socket_write(connection_, "abcdef", 6), 6u);
    EXPECT_EQ(read(client_, 4), "abcd");
    EXPECT_EQ(read(client_, 4), "ef");
}

/* The common case costs one system call. */
TEST_F(VelsocketTransfer, ReadOfWaitingDataDoesNotPoll)
{
    connect();
    EXPECT_EQ(vel_socket_write(connection_, "data", 4), 4u);
    ASSERT_EQ(vel_socket_poll_read(client_, kLong, 0), VEL_ERROR_NONE);
    const int before = polls;
    EXPECT_EQ(read(client_), "data");
    EXPECT_EQ(polls, before);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(VelsocketTransfer, ReadAtTheEnd)
{
    connect();
    EXPECT_EQ(vel_socket_write(connection_, "last", 4), 4u);
    close(&connection_);
    EXPECT_EQ(read(client_), "last");
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(read(client_), "");
        EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_END_OF_FILE);
    }
}

TEST_F(VelsocketTransfer, ReadWaitsForEver)
{
    connect();
    char bytes[8] = {};
    size_t count = 0;
    std::thread reader([&] { count = vel_socket_read(client_, bytes, sizeof bytes); });
    EXPECT_EQ(vel_socket_write(connection_, "data", 4), 4u);
    reader.join();
    EXPECT_EQ(count, 4u);
    EXPECT_STREQ(bytes, "data");
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_NONE);
}

TEST_F(VelsocketTransfer, ReadIsEndedByAWakeup)
{
    connect();
    EXPECT_EQ(vel_socket_enable_wakeup(client_), VEL_ERROR_NONE);
    pipes_++;
    size_t count = 77;
    std::thread reader([&] {
        char bytes[8];
        count = vel_socket_read(client_, bytes, sizeof bytes);
    });
    EXPECT_EQ(vel_socket_wakeup(client_), VEL_ERROR_NONE);
    reader.join();
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_WAKEUP);
    EXPECT_EQ(
        log_.take(),
        (log_lines{kWouldBlock, socket_line(13, "polling read for a socket returned error 213 "
                                                "(wakeup requested)")}));
}

/* The read after the reset, which is always made, finds the end. */
TEST_F(VelsocketTransfer, ReadOfAResetConnection)
{
    connect();
    const std::vector<int> opened = support::descriptors_since(before_);
    reset_on_close(opened.back()); /* of the connection, which was opened last */
    close(&connection_);
    ASSERT_EQ(vel_socket_poll_read(client_, kLong, 0), VEL_ERROR_NONE);
    EXPECT_EQ(read(client_), "");
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "recv() returned ECONNRESET")}));
}

/* A socket that is not connected is asked twice. */
TEST_F(VelsocketTransfer, ReadBeforeConnecting)
{
    velsocket *velsocket = vel_socket_tcp_create();
    EXPECT_EQ(read(velsocket), "");
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_INTERNAL);
    const log_line notconnected = socket_line(6, "INTERNAL ERROR: recv() returned ENOTCONN");
    EXPECT_EQ(
        log_.take(),
        (log_lines{notconnected, notconnected,
                   socket_line(7, "vel_socket_recvfrom() returned error 208 (internal error)")}));
    vel_socket_destroy(velsocket);
}

/* Writing. */

/* Writes until there is no more room. */
size_t fill(velsocket *velsocket)
{
    const std::string bytes(1 << 20, 'x');
    size_t total = 0;
    while (const size_t count = vel_socket_write(velsocket, bytes.data(), bytes.size())) {
        EXPECT_LE(count, bytes.size());
        EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_NONE);
        total += count;
    }
    return total;
}

TEST_F(VelsocketTransfer, WriteStopsWhereItWouldBlock)
{
    connect();
    const size_t total = fill(client_);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_WOULD_BLOCK);
    EXPECT_GT(total, 0u);
    EXPECT_EQ(log_.take(), log_lines{});
    EXPECT_EQ(vel_socket_poll_write(client_, 0, 1000), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_TIMED_OUT);

    size_t received = 0;
    while (received < total) {
        const size_t count = read(connection_, 1 << 20).size();
        ASSERT_GT(count, 0u);
        received += count;
    }
    EXPECT_EQ(received, total);
    EXPECT_EQ(vel_socket_poll_write(client_, kLong, 0), VEL_ERROR_NONE);
}

TEST_F(VelsocketTransfer, WakeupDoesNotEndAWaitForWriting)
{
    connect();
    EXPECT_EQ(vel_socket_enable_wakeup(client_), VEL_ERROR_NONE);
    pipes_++;
    fill(client_);
    EXPECT_EQ(vel_socket_wakeup(client_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_poll_write(client_, 0, 1000), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(vel_socket_poll_read(client_, kLong, 0), VEL_ERROR_WAKEUP);
}

/* The signal of a broken pipe is the business of the process. */
TEST_F(VelsocketTransfer, WriteToABrokenPipe)
{
    connect();
    reset_on_close(support::descriptors_since(before_).back());
    close(&connection_);
    ASSERT_EQ(vel_socket_poll_read(client_, kLong, 0), VEL_ERROR_NONE);
    EXPECT_EQ(read(client_), ""); /* takes the reset */
    log_.clear();

    auto *const handler = signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(vel_socket_write(client_, "x", 1), 0u);
    signal(SIGPIPE, handler);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_BROKEN_PIPE);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "unable to write to socket, error 32")}));
}

TEST_F(VelsocketTransfer, WriteToAResetConnection)
{
    connect();
    reset_on_close(support::descriptors_since(before_).back());
    close(&connection_);
    ASSERT_EQ(vel_socket_poll_read(client_, kLong, 0), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_write(client_, "x", 1), 0u);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_CONNECTION_RESET);
    EXPECT_EQ(log_.take(),
              (log_lines{socket_line(7, "unable to write to socket, error 104 (ECONNRESET)"),
                         socket_line(7, "unable to write to socket, error 104"),
                         socket_line(7, "unable to write to socket, error 104")}));
}

/* Datagrams. */

class VelsocketUdp : public VelsocketTransfer {
  protected:
    void SetUp() override
    {
        listener_ = bound(vel_socket_udp_create());
        pipes_++;
        vel_error_t velerror = -1;
        client_ = vel_socket_udp_connect("127.0.0.1", local_port(listener_), &velerror);
        ASSERT_NE(client_, nullptr);
        ASSERT_EQ(velerror, VEL_ERROR_NONE);
    }
};

TEST_F(VelsocketUdp, BoundSocketAnswersTheLastSender)
{
    vel_error_t velerror = -1;
    velsocket *other = vel_socket_udp_connect("127.0.0.1", local_port(listener_), &velerror);
    ASSERT_NE(other, nullptr);
    for (velsocket *sender : {client_, other, client_}) {
        EXPECT_EQ(vel_socket_write(sender, "question", 8), 8u);
        EXPECT_EQ(read(listener_), "question");
        EXPECT_EQ(vel_socket_write(listener_, "answer", 6), 6u);
        EXPECT_EQ(vel_socket_get_error(listener_), VEL_ERROR_NONE);
        EXPECT_EQ(read(sender), "answer");
    }
    vel_socket_destroy(other);
}

/* Where a connected socket has received from does not matter. */
TEST_F(VelsocketUdp, ConnectedSocketSendsToItsDestination)
{
    EXPECT_EQ(vel_socket_write(client_, "1", 1), 1u);
    EXPECT_EQ(read(listener_), "1");

    vel_error_t velerror = -1;
    velsocket *other = vel_socket_udp_connect("127.0.0.1", local_port(client_), &velerror);
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(vel_socket_write(other, "2", 1), 1u);
    EXPECT_EQ(read(client_), "2");
    EXPECT_EQ(vel_socket_write(client_, "3", 1), 1u);
    EXPECT_EQ(read(listener_), "3");
    vel_socket_destroy(other);
}

TEST_F(VelsocketUdp, SenderIsThePeer)
{
    sockaddr_storage peer;
    memset(&peer, 0xee, sizeof peer);
    auto *address = reinterpret_cast<sockaddr *>(&peer);
    size_t length = sizeof peer;
    EXPECT_EQ(vel_socket_get_peer_name(listener_, address, &length), VEL_ERROR_NONE);
    EXPECT_EQ(length, 0u); /* nobody yet */

    EXPECT_EQ(vel_socket_write(client_, "x", 1), 1u);
    EXPECT_EQ(read(listener_), "x");
    for (size_t room : {sizeof(sockaddr_in), sizeof peer}) {
        length = room;
        EXPECT_EQ(vel_socket_get_peer_name(listener_, address, &length), VEL_ERROR_NONE);
        EXPECT_EQ(length, sizeof(sockaddr_in));
        EXPECT_EQ(peer.ss_family, AF_INET);
        const auto *inet = reinterpret_cast<const sockaddr_in *>(&peer);
        EXPECT_EQ(ntohs(inet->sin_port), local_port(client_));
        EXPECT_EQ(ntohl(inet->sin_addr.s_addr), INADDR_LOOPBACK);
    }
    for (size_t room : {size_t{1}, sizeof(sockaddr_in) - 1}) {
        length = room;
        EXPECT_EQ(vel_socket_get_peer_name(listener_, address, &length), VEL_ERROR_OUT_OF_RANGE);
        EXPECT_EQ(length, 0u);
        EXPECT_EQ(vel_socket_get_error(listener_), VEL_ERROR_OUT_OF_RANGE);
    }
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(VelsocketUdp, EmptyDatagramReadsAsTheEnd)
{
    EXPECT_EQ(vel_socket_write(client_, "x", 1), 1u); /* binds it */
    EXPECT_EQ(read(listener_), "x");

    const int plain = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(local_port(listener_)));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(sendto(plain, "", 0, 0, reinterpret_cast<sockaddr *>(&to), sizeof to), 0);
    ::close(plain);
    EXPECT_EQ(read(listener_), "");
    EXPECT_EQ(vel_socket_get_error(listener_), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(vel_socket_write(client_, "y", 1), 1u);
    EXPECT_EQ(read(listener_), "y");
}

TEST_F(VelsocketUdp, DatagramIsCutToTheRoom)
{
    EXPECT_EQ(vel_socket_write(client_, "abcdef", 6), 6u);
    EXPECT_EQ(vel_socket_write(client_, "gh", 2), 2u);
    EXPECT_EQ(read(listener_, 4), "abcd");
    EXPECT_EQ(read(listener_, 4), "gh");
}

TEST_F(VelsocketUdp, WithoutDestinationThePlatformRefuses)
{
    const int plain = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in nowhere = {};
    EXPECT_EQ(sendto(plain, "x", 1, 0, reinterpret_cast<sockaddr *>(&nowhere), 0), -1);
    const std::string number = std::to_string(errno);
    ::close(plain);

    velsocket *velsocket = vel_socket_udp_create();
    EXPECT_EQ(vel_socket_write(velsocket, "x", 1), 0u);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_GENERIC);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "an unmapped error value " + number),
                                      socket_line(7, "unable to write to socket, error " + number),
                                      socket_line(7, "an unmapped error value " + number)}));
    vel_socket_destroy(velsocket);
}

/* 127.255.255.255 is the broadcast address of the loopback network. */
TEST_F(VelsocketUdp, BroadcastIsEnabledWhereThePlatformAsksForIt)
{
    velsocket *everywhere = vel_socket_udp_create();
    ASSERT_EQ(vel_socket_bind(everywhere, "0.0.0.0", 0), VEL_ERROR_NONE);
    pipes_++;
    const std::set<int> before = support::descriptors();
    vel_error_t velerror = -1;
    velsocket *sender =
        vel_socket_udp_connect("127.255.255.255", local_port(everywhere), &velerror);
    ASSERT_NE(sender, nullptr);
    const std::vector<int> added = support::descriptors_since(before);
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(support::socket_option(added[0], SO_BROADCAST), 0);
    log_.clear();

    EXPECT_EQ(vel_socket_write(sender, "all", 3), 3u);
    EXPECT_EQ(vel_socket_get_error(sender), VEL_ERROR_NONE);
    EXPECT_EQ(support::socket_option(added[0], SO_BROADCAST), 1);
    EXPECT_EQ(read(everywhere), "all");
    const log_line refused = socket_line(7, "sendto() returned EACCES");
    EXPECT_EQ(log_.take(),
              (log_lines{socket_line(7, "unable to write to socket, error 13"), refused, refused,
                         socket_line(7, "trying to enable sending to broadcast address"),
                         socket_line(7, "retrying sendto()")}));

    EXPECT_EQ(vel_socket_write(sender, "more", 4), 4u);
    EXPECT_EQ(read(everywhere), "more");
    EXPECT_EQ(log_.take(), log_lines{});
    vel_socket_destroy(sender);
    vel_socket_destroy(everywhere);
}

TEST_F(VelsocketUdp, EnableBroadcast)
{
    EXPECT_EQ(vel_socket_poll_read(client_, 0, 0), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(vel_socket_enable_broadcast(client_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(support::socket_option(support::descriptors_since(before_).back(), SO_BROADCAST), 1);
}

/* Neither the platform nor a signed count is ever asked for more than half of what a size holds. */
TEST_F(VelsocketUdp, LengthsAreClamped)
{
    std::vector<size_t> found;
    char byte = 'x';
    lengths = &found;
    EXPECT_EQ(vel_socket_write(client_, &byte, SIZE_MAX), 1u);
    EXPECT_EQ(vel_socket_write(client_, &byte, SIZE_MAX / 2), 1u);
    EXPECT_EQ(vel_socket_read_with_timeout(listener_, &byte, SIZE_MAX, kLong, 0), 1u);
    lengths = nullptr;
    EXPECT_EQ(found, std::vector<size_t>(3, SIZE_MAX / 2));
    EXPECT_EQ(read(listener_), "x");
}

TEST_F(VelsocketTransfer, LengthOfAStreamIsClamped)
{
    connect();
    std::vector<size_t> found;
    lengths = &found;
    EXPECT_EQ(vel_socket_write(client_, "x", SIZE_MAX), 1u);
    lengths = nullptr;
    EXPECT_EQ(found, std::vector<size_t>{SIZE_MAX / 2});
}

/* A process that has not dealt with the signal ends with the first write to a closed connection. */
TEST_F(VelsocketTransfer, WriteToABrokenPipeRaisesTheSignal)
{
    connect();
    reset_on_close(support::descriptors_since(before_).back());
    close(&connection_);
    ASSERT_EQ(vel_socket_poll_read(client_, kLong, 0), VEL_ERROR_NONE);
    EXPECT_EQ(read(client_), "");
    EXPECT_EXIT(
        {
            signal(SIGPIPE, SIG_DFL);
            vel_socket_write(client_, "x", 1);
        },
        testing::KilledBySignal(SIGPIPE), "");
}

} // namespace
