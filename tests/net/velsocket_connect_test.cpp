/* Connecting on the loopback network, with the platform's own answers. */

#include <cerrno>
#include <functional>
#include <netinet/in.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/oom.h"
#include "support/platform_malloc.h"
#include "support/sockettest.h"

/* For what the library loses by agreement; there only where leaks are looked for. */
extern "C" __attribute__((weak)) void __lsan_disable(void);
extern "C" __attribute__((weak)) void __lsan_enable(void);

namespace {

using support::asserts;
using support::bound;
using support::kLong;
using support::local_port;
using support::log_line;
using support::log_lines;
using support::socket_line;

const log_line kInProgress = socket_line(13, "connection in progress");
const log_line kConnected = socket_line(13, "connected");
const log_line kRefused = socket_line(7, "connection refused");
const log_line kListEnd =
    socket_line(7, "vel_socket_tcp_connect_next() returned 204 (end of file)");

log_line failed(unsigned int port, const std::string &error)
{
    return socket_line(7, "failed to connect 127.0.0.1 tcp port " + std::to_string(port) +
                              ", error " + error);
}

class VelsocketConnect : public support::socket_test {
  protected:
    /* A port that nobody listens to, kept until the end of the test. */
    unsigned int closed_port()
    {
        listener_ = bound(vel_socket_tcp_create());
        return local_port(listener_);
    }

    /* Accepts on listener_ and sees that bytes get through. */
    void expect_connected(velsocket *client)
    {
        ASSERT_EQ(vel_socket_poll_read(listener_, kLong, 0), VEL_ERROR_NONE);
        ASSERT_EQ(vel_socket_accept(listener_, &connection_), VEL_ERROR_NONE);
        EXPECT_EQ(vel_socket_write(client, "ping", 4), 4u);
        EXPECT_EQ(read(connection_), "ping");
        close(&connection_);
    }
};

TEST_F(VelsocketConnect, TcpWaitsForEver)
{
    listen();
    vel_error_t velerror = -1;
    client_ = vel_socket_tcp_connect("127.0.0.1", local_port(listener_), &velerror);
    ASSERT_NE(client_, nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_NONE);
    EXPECT_EQ(log_.take(), (log_lines{kInProgress, kInProgress, kConnected}));
    expect_connected(client_);
}

TEST_F(VelsocketConnect, TcpWithTimeout)
{
    listen();
    vel_error_t velerror = -1;
    client_ = vel_socket_tcp_connect_with_timeout("127.0.0.1", local_port(listener_), kLong, 999999,
                                                  &velerror);
    ASSERT_NE(client_, nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_NONE);
    expect_connected(client_);
}

/* The context is gone with the wait that found the connection. */
TEST_F(VelsocketConnect, TcpInTwoSteps)
{
    listen();
    vel_error_t velerror = -1;
    client_ = vel_socket_tcp_connect_async("127.0.0.1", local_port(listener_), &velerror);
    ASSERT_NE(client_, nullptr);
    ASSERT_EQ(velerror, VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(log_.take(), (log_lines{kInProgress, kInProgress}));
    EXPECT_EQ(vel_socket_connect_wait(client_, kLong, 0), VEL_ERROR_NONE);
    EXPECT_EQ(log_.take(), (log_lines{kConnected}));
    EXPECT_EQ(vel_socket_connect_wait(client_, kLong, 0), VEL_ERROR_BAD_HANDLE);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(6, "invalid call, no connect context present")}));
    expect_connected(client_);
}

TEST_F(VelsocketConnect, SocketOfTheCaller)
{
    listen();
    client_ = vel_socket_tcp_create();
    EXPECT_EQ(vel_socket_connect(client_, "127.0.0.1", local_port(listener_)), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_NONE);
    EXPECT_EQ(log_.take(), (log_lines{kInProgress, kInProgress, kConnected}));
    expect_connected(client_);
}

TEST_F(VelsocketConnect, SocketOfTheCallerInTwoSteps)
{
    listen();
    client_ = vel_socket_tcp_create();
    ASSERT_EQ(vel_socket_connect_async(client_, "127.0.0.1", local_port(listener_)),
              VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(vel_socket_connect_wait(client_, -1, 0), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_connect_wait(client_, -1, 0), VEL_ERROR_BAD_HANDLE);
    expect_connected(client_);
}

/* The connection there was ends, as its descriptor is made anew. */
TEST_F(VelsocketConnect, ConnectingAgainClosesTheConnection)
{
    connect();
    EXPECT_EQ(vel_socket_connect(client_, "127.0.0.1", local_port(listener_)), VEL_ERROR_NONE);
    EXPECT_EQ(read(connection_), "");
    EXPECT_EQ(vel_socket_get_error(connection_), VEL_ERROR_END_OF_FILE);
    close(&connection_);
    expect_connected(client_);
}

TEST_F(VelsocketConnect, WaitWithoutAConnectInProgress)
{
    velsocket *velsocket = vel_socket_tcp_create();
    std::vector<int> timeouts = {-1, 0, 5};
    for (int seconds : timeouts) {
        EXPECT_EQ(vel_socket_connect_wait(velsocket, seconds, 0), VEL_ERROR_BAD_HANDLE);
        EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_NONE); /* not recorded */
        EXPECT_EQ(log_.take(),
                  (log_lines{socket_line(6, "invalid call, no connect context present")}));
    }
    vel_socket_destroy(velsocket);
}

TEST_F(VelsocketConnect, RefusedTcp)
{
    const unsigned int port = closed_port();
    vel_error_t velerror = -1;
    EXPECT_EQ(vel_socket_tcp_connect("127.0.0.1", port, &velerror), nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(log_.take(), (log_lines{kInProgress, kInProgress, kRefused, kListEnd,
                                      failed(port, "111 (connection refused)")}));
}

/* The wait itself records nothing in the socket; what is there comes from its poll. */
TEST_F(VelsocketConnect, RefusedWaitLeavesTheResultOfItsPoll)
{
    vel_error_t velerror = -1;
    client_ = vel_socket_tcp_connect_async("127.0.0.1", closed_port(), &velerror);
    ASSERT_NE(client_, nullptr);
    ASSERT_EQ(velerror, VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(vel_socket_connect_wait(client_, kLong, 0), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_connect_wait(client_, kLong, 0), VEL_ERROR_BAD_HANDLE);
}

TEST_F(VelsocketConnect, RefusedSocketOfTheCallerMayTryAgain)
{
    client_ = vel_socket_tcp_create();
    const unsigned int port = closed_port();
    EXPECT_EQ(vel_socket_connect(client_, "127.0.0.1", port), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_CONNECTION_REFUSED);
    ASSERT_EQ(vel_socket_listen(listener_, 5), VEL_ERROR_NONE);
    pipes_++;
    EXPECT_EQ(vel_socket_connect(client_, "127.0.0.1", port), VEL_ERROR_NONE);
    expect_connected(client_);
}

/* A listener whose queue is full, so that the platform drops what else arrives and a connect to it
 * stays in progress. */
class VelsocketSilence : public VelsocketConnect {
  protected:
    static constexpr int kWaiting = 4;

    void SetUp() override
    {
        listener_ = bound(vel_socket_tcp_create());
        ASSERT_EQ(vel_socket_listen(listener_, 0), VEL_ERROR_NONE);
        pipes_++;
        port_ = local_port(listener_);
        for (velsocket *&waiting : waiting_) {
            vel_error_t velerror = -1;
            waiting = vel_socket_tcp_connect_async("127.0.0.1", port_, &velerror);
            ASSERT_NE(waiting, nullptr);
        }
        log_.clear();
    }
    void TearDown() override
    {
        for (velsocket *waiting : waiting_)
            vel_socket_destroy(waiting);
        VelsocketConnect::TearDown();
    }

    velsocket *waiting_[kWaiting] = {};
    unsigned int port_ = 0;
};

TEST_F(VelsocketSilence, TimeoutDestroysTheSocket)
{
    const std::set<int> before = support::descriptors();
    vel_error_t velerror = -1;
    EXPECT_EQ(vel_socket_tcp_connect_with_timeout("127.0.0.1", port_, 0, 50000, &velerror),
              nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(support::descriptors(), before);
    EXPECT_EQ(log_.take(),
              (log_lines{kInProgress, kInProgress,
                         socket_line(13, "polling for connecting socket returned error 201 "
                                         "(timed out)"),
                         failed(port_, "201 (timed out)")}));
}

/* The descriptor of the address in progress stays open over the timeouts, and a connect that comes
 * about later is found. */
TEST_F(VelsocketSilence, WaitsUntilTheListenerHasRoom)
{
    client_ = vel_socket_tcp_create();
    ASSERT_EQ(vel_socket_connect_async(client_, "127.0.0.1", port_), VEL_ERROR_IN_PROGRESS);
    const std::set<int> before = support::descriptors();
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(vel_socket_connect_wait(client_, 0, 1), VEL_ERROR_TIMED_OUT);
        EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_TIMED_OUT);
    }
    EXPECT_EQ(support::descriptors(), before);

    vel_error_t velerror = VEL_ERROR_TIMED_OUT;
    for (int i = 0; i < 1000 && velerror == VEL_ERROR_TIMED_OUT; i++) {
        velsocket *accepted = nullptr;
        if (vel_socket_accept(listener_, &accepted) == VEL_ERROR_NONE)
            vel_socket_destroy(accepted);
        velerror = vel_socket_connect_wait(client_, 0, 50000);
    }
    EXPECT_EQ(velerror, VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_connect_wait(client_, kLong, 0), VEL_ERROR_BAD_HANDLE);
}

/* The pipe takes no part in a wait for writing; its byte ends the next wait for reading. */
TEST_F(VelsocketSilence, WakeupDoesNotEndTheWait)
{
    client_ = vel_socket_tcp_create();
    EXPECT_EQ(vel_socket_enable_wakeup(client_), VEL_ERROR_NONE);
    pipes_++;
    ASSERT_EQ(vel_socket_connect_async(client_, "127.0.0.1", port_), VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(vel_socket_wakeup(client_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_connect_wait(client_, 0, 20000), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(vel_socket_poll_read(client_, 0, 0), VEL_ERROR_WAKEUP);
}

TEST_F(VelsocketSilence, DestroyEndsTheConnect)
{
    velsocket *velsocket = vel_socket_tcp_create();
    ASSERT_EQ(vel_socket_connect_async(velsocket, "127.0.0.1", port_), VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(vel_socket_connect_wait(velsocket, 0, 0), VEL_ERROR_TIMED_OUT);
    vel_socket_destroy(velsocket);
}

/* The earlier context is lost, not freed; what counts is the later one. */
TEST_F(VelsocketSilence, SecondBeginTakesThePlaceOfTheFirst)
{
    velsocket *other = bound(vel_socket_tcp_create());
    ASSERT_EQ(vel_socket_listen(other, 5), VEL_ERROR_NONE);
    pipes_++;
    client_ = vel_socket_tcp_create();
    if (__lsan_disable)
        __lsan_disable();
    const vel_error_t first = vel_socket_connect_async(client_, "127.0.0.1", port_);
    if (__lsan_enable)
        __lsan_enable();
    ASSERT_EQ(first, VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(vel_socket_connect(client_, "127.0.0.1", local_port(other)), VEL_ERROR_NONE);
    std::swap(other, listener_);
    expect_connected(client_);
    vel_socket_destroy(other);
}

/* Datagrams. */

/* The platform does connect this one, at once. */
TEST_F(VelsocketConnect, DatagramSocketOfTheCaller)
{
    listener_ = bound(vel_socket_udp_create());
    pipes_++;
    const std::set<int> before = support::descriptors();
    client_ = vel_socket_udp_create();
    EXPECT_EQ(vel_socket_connect_async(client_, "127.0.0.1", local_port(listener_)),
              VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_connect_wait(client_, kLong, 0), VEL_ERROR_BAD_HANDLE);
    sockaddr_in peer = {};
    socklen_t length = sizeof peer;
    ASSERT_EQ(getpeername(support::descriptors_since(before).back(),
                          reinterpret_cast<sockaddr *>(&peer), &length),
              0);
    EXPECT_EQ(ntohs(peer.sin_port), local_port(listener_));
    EXPECT_EQ(vel_socket_connect(client_, "127.0.0.1", local_port(listener_)), VEL_ERROR_NONE);
}

/* No destination is stored by it, so that a write goes to the sender of the last datagram. */
TEST_F(VelsocketConnect, ConnectedDatagramSocketAnswers)
{
    listener_ = bound(vel_socket_udp_create());
    pipes_++;
    client_ = vel_socket_udp_create();
    EXPECT_EQ(vel_socket_connect(client_, "127.0.0.1", local_port(listener_)), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_write(client_, "lost", 4), 0u);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_GENERIC);

    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(local_port(client_)));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int descriptor = *support::descriptors_since(before_).begin(); /* the listener's */
    ASSERT_EQ(sendto(descriptor, "hello", 5, 0, reinterpret_cast<sockaddr *>(&to), sizeof to), 5);
    EXPECT_EQ(read(client_), "hello");
    EXPECT_EQ(vel_socket_write(client_, "answer", 6), 6u);
    EXPECT_EQ(read(listener_), "answer");
}

TEST_F(VelsocketConnect, UdpStoresADestination)
{
    listener_ = bound(vel_socket_udp_create());
    pipes_++;
    const std::set<int> before = support::descriptors();
    vel_error_t velerror = -1;
    client_ = vel_socket_udp_connect("127.0.0.1", local_port(listener_), &velerror);
    ASSERT_NE(client_, nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_NONE);
    const std::vector<int> added = support::descriptors_since(before);
    ASSERT_EQ(added.size(), 1u);
    sockaddr_in peer = {};
    socklen_t length = sizeof peer;
    EXPECT_EQ(getpeername(added[0], reinterpret_cast<sockaddr *>(&peer), &length), -1);
    EXPECT_EQ(errno, ENOTCONN);
    EXPECT_EQ(vel_socket_connect_wait(client_, kLong, 0), VEL_ERROR_BAD_HANDLE);
    log_.clear();
    EXPECT_EQ(vel_socket_write(client_, "ping", 4), 4u);
    EXPECT_EQ(read(listener_), "ping");
    EXPECT_EQ(log_.take(), log_lines{});
}

/* Memory. */

class VelsocketConnectMemory : public VelsocketConnect {
  protected:
    /* What connecting logs when one allocation fails. */
    template <typename Action> log_lines lines_of(size_t allocation, Action action)
    {
        log_.clear();
        const support::malloc_watch watch(allocation);
        action();
        return log_.take();
    }
};

const log_line kNoContext = socket_line(7, "not enough memory for socket connect context");
const log_line kNoTimeout = socket_line(7, "not enough memory for socket connect timeout context");
const log_line kUnable = socket_line(7, "unable to create socket connect context");
const log_line kNoList = {"net/veladdrinfo", 7, "not enough memory for veladdrinfo structure"};
const log_line kNoName = {"net/veladdrinfo", 7, "not enough memory for host name"};
const log_line kNoAddresses = socket_line(7, "not enough memory for veladdrinfo context");

TEST_F(VelsocketConnectMemory, Tcp)
{
    vel_error_t velerror = -1;
    const auto connect_tcp = [&] {
        velerror = -1;
        EXPECT_EQ(vel_socket_tcp_connect("127.0.0.1", 9, &velerror), nullptr);
    };
    const log_line end = failed(9, "12 (not enough memory)");
    EXPECT_EQ(lines_of(1, connect_tcp), (log_lines{kNoContext, kUnable, end}));
    EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(lines_of(2, connect_tcp), (log_lines{kNoTimeout, kUnable, end}));
    EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(lines_of(3, connect_tcp), (log_lines{kNoList, kNoAddresses, end}));
    EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(lines_of(4, connect_tcp), (log_lines{kNoName, kNoAddresses, end}));
    EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
}

/* A family without sockets is switched off, and no address is left. */
TEST_F(VelsocketConnectMemory, TcpSocket)
{
    vel_error_t velerror = -1;
    for (size_t allocation : {5, 6}) {
        const log_lines lines = lines_of(allocation, [&] {
            EXPECT_EQ(vel_socket_tcp_connect_async("127.0.0.1", 9, &velerror), nullptr);
        });
        EXPECT_EQ(velerror, VEL_ERROR_END_OF_FILE);
        ASSERT_EQ(lines.size(), 3u);
        EXPECT_EQ(lines[0],
                  socket_line(7, allocation == 5 ? "not enough memory for velsocket structure"
                                                 : "unable to create timeout context"));
        EXPECT_EQ(lines[1].level, 7);
        EXPECT_EQ(lines[1].text.rfind("unable to create a TCP socket for IPv4, error ", 0), 0u);
        EXPECT_EQ(lines[2], kListEnd);
    }
}

TEST_F(VelsocketConnectMemory, SocketOfTheCaller)
{
    client_ = vel_socket_tcp_create();
    vel_error_t velerror = -1;
    const auto connect_it = [&] { velerror = vel_socket_connect(client_, "127.0.0.1", 9); };
    const log_line end = failed(9, "12 (not enough memory)");
    EXPECT_EQ(lines_of(1, connect_it), (log_lines{kNoContext, kUnable, end}));
    EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(lines_of(2, connect_it), (log_lines{kNoTimeout, kUnable, end}));
    EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(vel_socket_connect_wait(client_, 0, 0), VEL_ERROR_BAD_HANDLE);
}

/* The context stays on the socket, whose wait then finds no failure to report. */
TEST_F(VelsocketConnectMemory, ContextStaysWithoutItsAddresses)
{
    const log_line end = failed(9, "12 (not enough memory)");
    for (size_t allocation : {3, 4}) {
        velsocket *velsocket = vel_socket_tcp_create();
        vel_error_t velerror = -1;
        EXPECT_EQ(
            lines_of(allocation, [&] { velerror = vel_socket_connect(velsocket, "127.0.0.1", 9); }),
            (log_lines{allocation == 3 ? kNoList : kNoName, kNoAddresses, end}));
        EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
        EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_NO_MEMORY);
        EXPECT_EQ(vel_socket_connect_wait(velsocket, 0, 1), VEL_ERROR_NONE);
        EXPECT_EQ(log_.take(), (log_lines{kConnected}));
        vel_socket_destroy(velsocket);
    }
}

TEST_F(VelsocketConnectMemory, Udp)
{
    vel_error_t velerror = -1;
    const auto connect_udp = [&] {
        velerror = -1;
        EXPECT_EQ(vel_socket_udp_connect("127.0.0.1", 9, &velerror), nullptr);
    };
    EXPECT_EQ(lines_of(1, connect_udp), (log_lines{kNoList, kNoAddresses}));
    EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(lines_of(2, connect_udp), (log_lines{kNoName, kNoAddresses}));
    EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
    for (size_t allocation : {3, 4}) {
        const log_lines lines = lines_of(allocation, connect_udp);
        EXPECT_EQ(velerror, VEL_ERROR_END_OF_FILE);
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[1].text.rfind("unable to create a UDP socket for IPv4, error ", 0), 0u);
    }
}

/* A connect in two steps, a refused one and a destination. */
bool connect_life()
{
    velsocket *listener = vel_socket_tcp_create();
    velsocket *client = vel_socket_tcp_create();
    velsocket *udp = nullptr;
    unsigned int port = 0;
    vel_error_t velerror = -1;

    bool good = listener && client && vel_socket_bind(listener, "127.0.0.1", 0) == VEL_ERROR_NONE &&
                vel_socket_get_local_port(listener, &port) == VEL_ERROR_NONE;
    good = good && vel_socket_connect(client, "127.0.0.1", port) == VEL_ERROR_CONNECTION_REFUSED &&
           !vel_socket_tcp_connect("127.0.0.1", port, &velerror) &&
           velerror == VEL_ERROR_CONNECTION_REFUSED;
    good = good && vel_socket_listen(listener, 5) == VEL_ERROR_NONE &&
           vel_socket_connect(client, "127.0.0.1", port) == VEL_ERROR_NONE;
    if (good)
        udp = vel_socket_udp_connect("127.0.0.1", port, &velerror);
    good = udp && vel_socket_connect(udp, "127.0.0.1", port) == VEL_ERROR_NONE;
    for (velsocket *velsocket : {listener, client, udp}) {
        if (velsocket)
            vel_socket_destroy(velsocket);
    }
    return good;
}

TEST(VelsocketConnectOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(connect_life);
}

/* Assertions. */

using VelsocketConnectDeathTest = VelsocketConnect;

TEST_F(VelsocketConnectDeathTest, Tcp)
{
    vel_error_t velerror = -1;
    EXPECT_DEATH(vel_socket_tcp_connect(nullptr, 0, nullptr), asserts("name != NULL"));
    EXPECT_DEATH(vel_socket_tcp_connect("h", 0, nullptr), asserts("port > 0"));
    EXPECT_DEATH(vel_socket_tcp_connect("h", 65536, nullptr), asserts("port < 65536"));
    EXPECT_DEATH(vel_socket_tcp_connect("h", 1, nullptr), asserts("velerrorptr != NULL"));

    const std::string function = "vel_socket_tcp_connect_with_timeout";
    EXPECT_DEATH(vel_socket_tcp_connect_with_timeout(nullptr, 0, 0, 1000000, nullptr),
                 asserts("name != NULL", function));
    EXPECT_DEATH(vel_socket_tcp_connect_with_timeout("h", 0, 0, 1000000, nullptr),
                 asserts("port > 0", function));
    EXPECT_DEATH(vel_socket_tcp_connect_with_timeout("h", 65536, 0, 1000000, nullptr),
                 asserts("port < 65536", function));
    EXPECT_DEATH(vel_socket_tcp_connect_with_timeout("h", 1, 0, 1000000, nullptr),
                 asserts("timeoutusecs < 1000000", function));
    EXPECT_DEATH(vel_socket_tcp_connect_with_timeout("h", 1, 0, 1000000, &velerror),
                 asserts("timeoutusecs < 1000000", function));
    EXPECT_DEATH(vel_socket_tcp_connect_with_timeout("h", 1, 0, 0, nullptr),
                 asserts("velerrorptr != NULL", function));
}

TEST_F(VelsocketConnectDeathTest, TcpAsync)
{
    const std::string function = "vel_socket_tcp_connect_async";
    EXPECT_DEATH(vel_socket_tcp_connect_async(nullptr, 0, nullptr),
                 asserts("name != NULL", function));
    EXPECT_DEATH(vel_socket_tcp_connect_async("h", 0, nullptr), asserts("port > 0", function));
    EXPECT_DEATH(vel_socket_tcp_connect_async("h", 65536, nullptr),
                 asserts("port < 65536", function));
    EXPECT_DEATH(vel_socket_tcp_connect_async("h", 1, nullptr),
                 asserts("velerrorptr != NULL", function));
}

TEST_F(VelsocketConnectDeathTest, Udp)
{
    const std::string function = "vel_socket_udp_connect";
    EXPECT_DEATH(vel_socket_udp_connect(nullptr, 0, nullptr), asserts("name != NULL", function));
    EXPECT_DEATH(vel_socket_udp_connect("h", 0, nullptr), asserts("port > 0", function));
    EXPECT_DEATH(vel_socket_udp_connect("h", 65536, nullptr), asserts("port < 65536", function));
    EXPECT_DEATH(vel_socket_udp_connect("h", 1, nullptr), asserts("velerrorptr != NULL", function));
}

TEST_F(VelsocketConnectDeathTest, SocketOfTheCaller)
{
    client_ = vel_socket_tcp_create();
    const struct {
        const char *name;
        vel_error_t (*connect)(velsocket *, const char *, unsigned int);
    } twins[] = {{"vel_socket_connect", vel_socket_connect},
                 {"vel_socket_connect_async", vel_socket_connect_async}};
    for (const auto &twin : twins) {
        EXPECT_DEATH(twin.connect(nullptr, nullptr, 0), asserts("velsocket != NULL", twin.name));
        EXPECT_DEATH(twin.connect(client_, nullptr, 0), asserts("name != NULL", twin.name));
        EXPECT_DEATH(twin.connect(client_, "h", 0), asserts("port > 0", twin.name));
        EXPECT_DEATH(twin.connect(client_, "h", 65536), asserts("port < 65536", twin.name));
    }
}

TEST_F(VelsocketConnectDeathTest, Wait)
{
    client_ = vel_socket_tcp_create();
    const std::string function = "vel_socket_connect_wait";
    EXPECT_DEATH(vel_socket_connect_wait(nullptr, -2, 1000000),
                 asserts("velsocket != NULL", function));
    EXPECT_DEATH(vel_socket_connect_wait(client_, -2, 1000000),
                 asserts("timeoutsecs >= -1", function));
    EXPECT_DEATH(vel_socket_connect_wait(client_, -1, 1000000),
                 asserts("timeoutusecs < 1000000", function));
}

} // namespace
