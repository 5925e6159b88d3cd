#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/descriptors.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_function.h"

/* While set, datagrams are not sent but noted, so that a test of broadcasts stays on its machine. */
static std::vector<sockaddr_in> *unsent;

extern "C" ssize_t sendto(int descriptor, const void *buf, size_t len, int flags,
                          const sockaddr *address, socklen_t length)
{
    static const auto next = support::platform_function<ssize_t(
        int, const void *, size_t, int, const sockaddr *, socklen_t)>("sendto");
    if (!unsent)
        return next(descriptor, buf, len, flags, address, length);
    unsent->push_back(*reinterpret_cast<const sockaddr_in *>(address));
    return static_cast<ssize_t>(len);
}

namespace {

using support::log_line;
using log_lines = std::vector<log_line>;

velhandle *const kDirt = reinterpret_cast<velhandle *>(16);

log_line line(int level, const std::string &text)
{
    return {"net/velhandle_udp", level, text};
}

class VelhandleUdp : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_EQ(vel_handle_udp_listen(nullptr, 0, &listener_), VEL_ERROR_NONE);
        ASSERT_EQ(vel_handle_get_local_port(listener_, &port_), VEL_ERROR_NONE);
        vel_handle_set_read_timeout(listener_, 20, 0);
        client_ = connect("127.0.0.1");
        log_.clear();
    }
    /* The pipe of the listener stays open, and nothing else. */
    void TearDown() override
    {
        vel_handle_destroy(client_);
        vel_handle_destroy(listener_);
        EXPECT_EQ(support::descriptors_since(before_).size(), 2u);
    }

    velhandle *connect(const char *name)
    {
        velhandle *client = vel_handle_udp_connect(name, port_);
        EXPECT_NE(client, nullptr);
        vel_handle_set_read_timeout(client, 20, 0);
        return client;
    }
    std::string read(velhandle *velhandle)
    {
        std::string bytes(100, '?');
        bytes.resize(vel_handle_read(velhandle, bytes.data(), bytes.size()));
        return bytes;
    }
    unsigned int sender_port(velhandle *velhandle)
    {
        sockaddr_in sender = {};
        size_t length = sizeof sender;
        EXPECT_EQ(
            vel_handle_get_peer_name(velhandle, reinterpret_cast<sockaddr *>(&sender), &length),
            VEL_ERROR_NONE);
        EXPECT_EQ(length, sizeof sender);
        EXPECT_EQ(sender.sin_family, AF_INET);
        return ntohs(sender.sin_port);
    }

    const std::set<int> before_ = support::descriptors();
    support::log_capture log_;
    velhandle *listener_ = nullptr;
    velhandle *client_ = nullptr;
    unsigned int port_ = 0;
};

/* Nothing is to be waited for. */
TEST_F(VelhandleUdp, ConnectsAtOnce)
{
    velhandle *other = vel_handle_udp_create();
    EXPECT_EQ(vel_handle_connect_begin(other, "127.0.0.1", port_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_handle_connect_wait(other), VEL_ERROR_BAD_HANDLE);
    EXPECT_EQ(log_.take(),
              (log_lines{{"net/velsocket", 6, "invalid call, no connect context present"}}));
    EXPECT_EQ(vel_handle_write(other, "ping", 4), 4u);
    EXPECT_EQ(read(listener_), "ping");
    vel_handle_destroy(other);
}

TEST_F(VelhandleUdp, ListenerAnswersTheLastSender)
{
    velhandle *other = connect("127.0.0.1");
    for (velhandle *sender : {client_, other, client_}) {
        EXPECT_EQ(vel_handle_write(sender, "question", 8), 8u);
        EXPECT_EQ(read(listener_), "question");
        EXPECT_EQ(vel_handle_write(listener_, "answer", 6), 6u);
        EXPECT_EQ(read(sender), "answer");
    }
    vel_handle_destroy(other);
}

TEST_F(VelhandleUdp, PeerNameIsTheSenderOfTheLastDatagram)
{
    velhandle *other = connect("127.0.0.1");
    for (velhandle *sender : {client_, other}) {
        EXPECT_EQ(vel_handle_write(sender, "x", 1), 1u);
        EXPECT_EQ(read(listener_), "x");
        unsigned int port = 0;
        EXPECT_EQ(vel_handle_get_local_port(sender, &port), VEL_ERROR_NONE);
        EXPECT_EQ(sender_port(listener_), port);
    }
    vel_handle_destroy(other);
    log_.clear();

    sockaddr_in sender = {};
    size_t length = sizeof sender - 1;
    EXPECT_EQ(vel_handle_get_peer_name(listener_, reinterpret_cast<sockaddr *>(&sender), &length),
              VEL_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(
        log_.take(),
        (log_lines{
            line(7,
                 "unable to fetch the remote peer name from the socket, error 34 (out of range)"),
            {"io/velhandle", 7,
             "getting the peer name for the handle failed, error 34 (out of "
             "range)"}}));
}

/* The platform refuses to accept on it, and the datagram stays where it is. */
TEST_F(VelhandleUdp, AcceptIsRefusedByThePlatform)
{
    EXPECT_EQ(vel_handle_write(client_, "ping", 4), 4u);
    velhandle *connection = kDirt;
    EXPECT_EQ(vel_handle_accept(listener_, &connection), VEL_ERROR_GENERIC);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(log_.take(),
              (log_lines{{"net/velsocket", 7, "accept() returned error 95"},
                         line(7, "socket accept returned 202 (generic error)"),
                         {"io/velhandle", 7,
                          "accepting an incoming connection failed, error 202 (generic error)"}}));
    EXPECT_EQ(read(listener_), "ping");
}

/* A read of the listener is what a server of datagrams waits in. */
TEST_F(VelhandleUdp, WakeupEndsARead)
{
    vel_handle_set_read_timeout(listener_, -1, 0);
    std::string text = "?";
    std::thread reader([&] { text = read(listener_); });
    EXPECT_EQ(vel_handle_wakeup(listener_), VEL_ERROR_NONE);
    reader.join();
    EXPECT_EQ(text, "");
    EXPECT_EQ(vel_handle_get_error(listener_), VEL_ERROR_WAKEUP);
    const log_lines logged = log_.take();
    ASSERT_FALSE(logged.empty());
    EXPECT_EQ(logged.back(),
              line(7, "unable to read from udp socket, error 213 (wakeup requested)"));
}

TEST_F(VelhandleUdp, EmptyDatagramIsAQuietEnd)
{
    const int plain = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port_));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(sendto(plain, "", 0, 0, reinterpret_cast<sockaddr *>(&to), sizeof to), 0);
    close(plain);
    EXPECT_EQ(read(listener_), "");
    EXPECT_EQ(vel_handle_get_error(listener_), VEL_ERROR_END_OF_FILE);
    for (const log_line &logged : log_.take())
        EXPECT_NE(logged.module, "net/velhandle_udp") << logged;
}

/* Broadcasts. */

TEST_F(VelhandleUdp, BroadcastToAllIsEnabledAtOnce)
{
    const std::set<int> before = support::descriptors();
    velhandle *sender = connect("255.255.255.255");
    const std::vector<int> added = support::descriptors_since(before);
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(support::socket_option(added[0], SO_BROADCAST), 1);

    std::vector<sockaddr_in> noted;
    unsent = &noted;
    EXPECT_EQ(vel_handle_write(sender, "all", 3), 3u);
    unsent = nullptr;
    ASSERT_EQ(noted.size(), 1u);
    EXPECT_EQ(noted[0].sin_addr.s_addr, htonl(INADDR_BROADCAST));
    EXPECT_EQ(ntohs(noted[0].sin_port), port_);
    EXPECT_EQ(log_.take(), log_lines{});
    vel_handle_destroy(sender);
}

/* 127.255.255.255 is the broadcast address of the loopback network. */
TEST_F(VelhandleUdp, BroadcastToANetworkIsEnabledByTheRetry)
{
    const std::set<int> before = support::descriptors();
    velhandle *sender = connect("127.255.255.255");
    const std::vector<int> added = support::descriptors_since(before);
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(support::socket_option(added[0], SO_BROADCAST), 0);
    EXPECT_EQ(vel_handle_write(sender, "all", 3), 3u);
    EXPECT_EQ(vel_handle_get_error(sender), VEL_ERROR_NONE);
    EXPECT_EQ(support::socket_option(added[0], SO_BROADCAST), 1);
    EXPECT_EQ(read(listener_), "all");
    const log_lines logged = log_.take();
    ASSERT_FALSE(logged.empty());
    EXPECT_EQ(logged.back(), (log_line{"net/velsocket", 7, "retrying sendto()"}));
    vel_handle_destroy(sender);
}

TEST_F(VelhandleUdp, OtherAddressesAreNotBroadcast)
{
    const std::vector<int> opened = support::descriptors_since(before_);
    EXPECT_EQ(support::socket_option(opened.back(), SO_BROADCAST), 0);
}

bool udp_life()
{
    velhandle *listener = nullptr;
    velhandle *client = nullptr;
    unsigned int port = 0;
    sockaddr_in sender;
    size_t length = sizeof sender;
    char text[8];

    bool good = vel_handle_udp_listen(nullptr, 0, &listener) == VEL_ERROR_NONE &&
                vel_handle_get_local_port(listener, &port) == VEL_ERROR_NONE;
    if (good)
        client = vel_handle_udp_connect("127.0.0.1", port);
    good = client && vel_handle_write(client, "ping", 4) == 4 &&
           vel_handle_read(listener, text, sizeof text) == 4 &&
           vel_handle_get_peer_name(listener, reinterpret_cast<sockaddr *>(&sender), &length) ==
               VEL_ERROR_NONE &&
           vel_handle_write(listener, "pong", 4) == 4 &&
           vel_handle_read(client, text, sizeof text) == 4;
    for (velhandle *velhandle : {listener, client}) {
        if (velhandle)
            vel_handle_destroy(velhandle);
    }
    return good;
}

TEST(VelhandleUdpOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(udp_life);
}

} // namespace
