#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/descriptors.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_malloc.h"

namespace {

using support::log_line;
using log_lines = std::vector<log_line>;

velhandle *const kDirt = reinterpret_cast<velhandle *>(16);

log_line line(int level, const std::string &text)
{
    return {"net/velhandle_tcp", level, text};
}

class VelhandleTcp : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_EQ(vel_handle_tcp_listen("127.0.0.1", 0, &listener_), VEL_ERROR_NONE);
        ASSERT_EQ(vel_handle_get_local_port(listener_, &port_), VEL_ERROR_NONE);
        log_.clear();
    }
    /* The pipe of the listener stays open, and nothing else. */
    void TearDown() override
    {
        for (velhandle *velhandle : {accepted_, client_, listener_}) {
            if (velhandle)
                vel_handle_destroy(velhandle);
        }
        EXPECT_EQ(support::descriptors_since(before_).size(), 2u);
    }

    void connect()
    {
        client_ = vel_handle_tcp_connect("127.0.0.1", port_);
        ASSERT_NE(client_, nullptr);
        vel_handle_set_read_timeout(client_, 20, 0);
        log_.clear();
    }
    void accept()
    {
        vel_handle_set_read_timeout(listener_, 20, 0);
        ASSERT_EQ(vel_handle_accept(listener_, &accepted_), VEL_ERROR_NONE);
        ASSERT_NE(accepted_, nullptr);
    }

    std::string read(velhandle *velhandle)
    {
        std::string bytes(100, '?');
        bytes.resize(vel_handle_read(velhandle, bytes.data(), bytes.size()));
        return bytes;
    }

    const std::set<int> before_ = support::descriptors();
    support::log_capture log_;
    velhandle *listener_ = nullptr;
    velhandle *client_ = nullptr;
    velhandle *accepted_ = nullptr;
    unsigned int port_ = 0;
};

TEST_F(VelhandleTcp, ListensWithRoomFor10)
{
    const int descriptor = support::descriptors_since(before_)[0];
    EXPECT_EQ(support::socket_option(descriptor, SO_ACCEPTCONN), 1);
    tcp_info info = {};
    socklen_t length = sizeof info;
    ASSERT_EQ(getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &length), 0);
    EXPECT_EQ(info.tcpi_sacked, 10u); /* of a listener: how many may wait */
}

TEST_F(VelhandleTcp, AcceptedHandleInheritsNothing)
{
    vel_handle_set_write_timeout(listener_, 5, 6);
    connect();
    accept();
    EXPECT_EQ(vel_handle_get_error(listener_), VEL_ERROR_NONE);
    EXPECT_NE(accepted_, listener_);
    int seconds = 77;
    unsigned int microseconds = 77;
    vel_handle_get_read_timeout(accepted_, &seconds, &microseconds);
    EXPECT_EQ(seconds, -1);
    EXPECT_EQ(microseconds, 0u);
    vel_handle_get_write_timeout(accepted_, &seconds, &microseconds);
    EXPECT_EQ(seconds, -1);
    EXPECT_EQ(microseconds, 0u);
    EXPECT_EQ(vel_handle_get_error(accepted_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_handle_connect(accepted_, "127.0.0.1", port_), VEL_ERROR_BUSY);
    unsigned int port = 0;
    EXPECT_EQ(vel_handle_get_local_port(accepted_, &port), VEL_ERROR_NONE);
    EXPECT_EQ(port, port_);
}

TEST_F(VelhandleTcp, AcceptedHandleHasNoWakeup)
{
    connect();
    accept();
    log_.clear();
    EXPECT_EQ(vel_handle_wakeup(accepted_), VEL_ERROR_WRITE);
    EXPECT_EQ(
        log_.take(),
        (log_lines{{"net/velsocket", 6, "waking up this socket is not enabled"},
                   {"net/velsocket", 7, "unable to write to the wakeup pipe, error 9"},
                   line(7, "socket wakeup returned 203 (write error)"),
                   {"io/velhandle", 7, "waking up a handle failed, error 203 (write error)"}}));
}

TEST_F(VelhandleTcp, AcceptsInTheOrderOfArrival)
{
    velhandle *clients[5];
    for (int i = 0; i < 5; i++) {
        clients[i] = vel_handle_tcp_connect("127.0.0.1", port_);
        ASSERT_NE(clients[i], nullptr);
        const std::string text = std::to_string(i);
        EXPECT_EQ(vel_handle_write(clients[i], text.data(), 1), 1u);
    }
    for (int i = 0; i < 5; i++) {
        accept();
        EXPECT_EQ(read(accepted_), std::to_string(i));
        vel_handle_destroy(accepted_);
        accepted_ = nullptr;
        vel_handle_destroy(clients[i]);
    }
}

/* The socket layer could answer, but this transport does not offer it. */
TEST_F(VelhandleTcp, PeerNameIsNotSupported)
{
    connect();
    sockaddr address = {};
    size_t length = sizeof address;
    EXPECT_EQ(vel_handle_get_peer_name(client_, &address, &length), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(log_.take(), (log_lines{{"io/velhandle", 6,
                                       "this handle does not support getting the peer name"}}));
}

TEST_F(VelhandleTcp, EndOfFileIsQuiet)
{
    connect();
    accept();
    EXPECT_EQ(vel_handle_write(accepted_, "last", 4), 4u);
    vel_handle_destroy(accepted_);
    accepted_ = nullptr;
    log_.clear();
    EXPECT_EQ(read(client_), "last");
    EXPECT_EQ(read(client_), "");
    EXPECT_EQ(vel_handle_get_error(client_), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(VelhandleTcp, LinesOverAConnection)
{
    connect();
    accept();
    EXPECT_EQ(vel_handle_write(accepted_, "one\r\ntwo\r\nthree", 15), 15u);
    vel_handle_destroy(accepted_);
    accepted_ = nullptr;
    char text[16] = {};
    EXPECT_EQ(vel_handle_read_line(client_, text, sizeof text), 5u);
    EXPECT_EQ(std::string(text, 5), "one\r\n");
    EXPECT_EQ(vel_handle_read_line(client_, text, sizeof text), 5u);
    EXPECT_EQ(std::string(text, 5), "two\r\n");
    EXPECT_EQ(vel_handle_read_line(client_, text, sizeof text), 5u);
    EXPECT_EQ(std::string(text, 5), "three");
    EXPECT_EQ(vel_handle_get_error(client_), VEL_ERROR_END_OF_FILE);
}

/* A write of more than the platform holds waits for the reader, piece by piece. */
TEST_F(VelhandleTcp, LongWriteGoesOnAsTheReaderReads)
{
    connect();
    accept();
    std::string text(20 << 20, '?');
    for (size_t i = 0; i < text.size(); i++)
        text[i] = static_cast<char>('a' + i % 23);
    size_t written = 0;
    std::thread writer([&] { written = vel_handle_write(client_, text.data(), text.size()); });
    std::string received;
    std::string piece(1 << 16, '?');
    vel_handle_set_read_timeout(accepted_, 20, 0);
    while (received.size() < text.size()) {
        const size_t count = vel_handle_read(accepted_, piece.data(), piece.size());
        if (count == 0)
            break;
        received.append(piece, 0, count);
    }
    writer.join();
    EXPECT_EQ(written, text.size());
    EXPECT_TRUE(received == text);
    EXPECT_EQ(vel_handle_get_error(client_), VEL_ERROR_NONE);
}

/* The time is that of one wait. */
TEST_F(VelhandleTcp, WriteTimesOutQuietly)
{
    connect();
    const std::string text(64 << 20, 'x');
    vel_handle_set_write_timeout(client_, 0, 20000);
    EXPECT_LT(vel_handle_write(client_, text.data(), text.size()), text.size());
    EXPECT_EQ(vel_handle_get_error(client_), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(VelhandleTcp, WakeupReachesABlockedAccept)
{
    vel_error_t velerror = -1;
    velhandle *connection = kDirt;
    std::thread acceptor([&] { velerror = vel_handle_accept(listener_, &connection); });
    EXPECT_EQ(vel_handle_wakeup(listener_), VEL_ERROR_NONE);
    acceptor.join();
    EXPECT_EQ(velerror, VEL_ERROR_WAKEUP);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(log_.take(), log_lines{});
}

/* Connecting. */

TEST_F(VelhandleTcp, ConnectInSteps)
{
    client_ = vel_handle_tcp_create();
    const vel_error_t begun = vel_handle_connect_begin(client_, "127.0.0.1", port_);
    ASSERT_EQ(begun, VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(vel_handle_connect_wait(client_), VEL_ERROR_NONE);
    accept();
    EXPECT_EQ(vel_handle_write(client_, "ping", 4), 4u);
    EXPECT_EQ(read(accepted_), "ping");
}

/* A refusal is found by the wait, so that the handle keeps its socket. */
TEST_F(VelhandleTcp, RefusedConnect)
{
    velsocket *closed = vel_socket_tcp_create();
    unsigned int port = 0;
    ASSERT_EQ(vel_socket_bind(closed, "127.0.0.1", 0), VEL_ERROR_NONE);
    ASSERT_EQ(vel_socket_get_local_port(closed, &port), VEL_ERROR_NONE);
    client_ = vel_handle_tcp_create();
    EXPECT_EQ(vel_handle_connect(client_, "127.0.0.1", port), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(vel_handle_connect(client_, "127.0.0.1", port), VEL_ERROR_BUSY);
    log_.clear();
    EXPECT_EQ(vel_handle_tcp_connect("127.0.0.1", port), nullptr);
    const log_lines logged = log_.take();
    ASSERT_FALSE(logged.empty());
    EXPECT_EQ(logged.back(), line(7, "unable to connect, velerror 111 (connection refused)"));
    vel_socket_destroy(closed);
}

/* The time of a connect is that of writing. The listener has no more room, so that the platform
 * lets a connect wait. */
TEST_F(VelhandleTcp, ConnectTimesOut)
{
    velsocket *listener = vel_socket_tcp_create();
    unsigned int port = 0;
    ASSERT_EQ(vel_socket_bind(listener, "127.0.0.1", 0), VEL_ERROR_NONE);
    ASSERT_EQ(vel_socket_get_local_port(listener, &port), VEL_ERROR_NONE);
    const std::set<int> before = support::descriptors();
    ASSERT_EQ(vel_socket_listen(listener, 0), VEL_ERROR_NONE);
    const std::vector<int> pipe = support::descriptors_since(before);
    velsocket *waiting[4];
    for (velsocket *&velsocket : waiting) {
        vel_error_t velerror = -1;
        velsocket = vel_socket_tcp_connect_async("127.0.0.1", port, &velerror);
        ASSERT_NE(velsocket, nullptr);
    }

    client_ = vel_handle_tcp_create();
    vel_handle_set_read_timeout(client_, 3600, 0);
    vel_handle_set_write_timeout(client_, 0, 20000);
    EXPECT_EQ(vel_handle_connect(client_, "127.0.0.1", port), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(vel_handle_connect_wait(client_), VEL_ERROR_TIMED_OUT);
    for (const log_line &logged : log_.take())
        EXPECT_NE(logged.module, "net/velhandle_tcp") << logged;

    for (velsocket *velsocket : waiting)
        vel_socket_destroy(velsocket);
    vel_socket_destroy(listener);
    for (int descriptor : pipe)
        close(descriptor);
}

TEST_F(VelhandleTcp, WaitNeedsMemory)
{
    client_ = vel_handle_tcp_create();
    ASSERT_EQ(vel_handle_connect_begin(client_, "127.0.0.1", port_), VEL_ERROR_IN_PROGRESS);
    log_.clear();
    vel_error_t velerror = -1;
    {
        const support::malloc_watch watch(1);
        velerror = vel_handle_connect_wait(client_);
    }
    EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(log_.take(), (log_lines{line(7, "unable to create timeout context")}));
    EXPECT_EQ(vel_handle_connect_wait(client_), VEL_ERROR_NONE);
}

/* Memory. */

/* The connection is closed, which its client sees; a later accept is none the worse. */
TEST_F(VelhandleTcp, AcceptNeedsMemory)
{
    vel_handle_set_read_timeout(listener_, 20, 0);
    for (size_t allocation = 1; allocation <= 5; allocation++) {
        connect();
        velhandle *connection = kDirt;
        vel_error_t velerror = -1;
        {
            const support::malloc_watch watch(allocation);
            velerror = vel_handle_accept(listener_, &connection);
        }
        EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
        EXPECT_EQ(connection, nullptr);
        log_lines logged = log_.take();
        ASSERT_GE(logged.size(), 2u);
        const log_line last = {"io/velhandle", 7,
                               "accepting an incoming connection failed, error 12 "
                               "(not enough memory)"};
        EXPECT_EQ(logged.back(), last);
        EXPECT_EQ(logged[logged.size() - 2],
                  line(7, allocation <= 2 ? "socket accept returned 12 (not enough memory)"
                                          : "unable to create a client TCP handle"));
        EXPECT_EQ(read(client_), "");
        EXPECT_EQ(vel_handle_get_error(client_), VEL_ERROR_END_OF_FILE);
        vel_handle_destroy(client_);
        client_ = nullptr;
    }
    connect();
    accept();
}

bool tcp_life()
{
    velhandle *listener = nullptr;
    velhandle *client = nullptr;
    velhandle *connection = nullptr;
    unsigned int port = 0;
    char text[8];

    bool good = vel_handle_tcp_listen(nullptr, 0, &listener) == VEL_ERROR_NONE &&
                vel_handle_get_local_port(listener, &port) == VEL_ERROR_NONE;
    if (good)
        client = vel_handle_tcp_connect("127.0.0.1", port);
    good = client && vel_handle_accept(listener, &connection) == VEL_ERROR_NONE &&
           vel_handle_write(client, "ping\n", 5) == 5 &&
           vel_handle_read_line(connection, text, sizeof text) == 5 &&
           vel_handle_write(connection, "pong", 4) == 4 &&
           vel_handle_read(client, text, sizeof text) == 4;
    for (velhandle *velhandle : {listener, client, connection}) {
        if (velhandle)
            vel_handle_destroy(velhandle);
    }
    return good;
}

TEST(VelhandleTcpOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(tcp_life);
}

} // namespace
