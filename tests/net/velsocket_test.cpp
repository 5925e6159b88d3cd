#include <fcntl.h>
#include <functional>
#include <netinet/in.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/rows.h"
#include "support/sockettest.h"

namespace {

using support::asserts;
using support::bound;
using support::kLong;
using support::local_port;
using support::log_line;
using support::log_lines;
using support::socket_line;

using Velsocket = support::socket_test;

const log_line kNotEnabled = socket_line(6, "waking up this socket is not enabled");
const log_line kNotWritten = socket_line(7, "unable to write to the wakeup pipe, error 9");

/* Creation and destruction. */

struct create_case {
    const char *name;
    velsocket *(*create)();
    int domain;
    int type;
    int protocol;
};

std::ostream &operator<<(std::ostream &out, const create_case &row)
{
    return out << row.name;
}

const create_case kCreateCases[] = {
    {"Tcp", vel_socket_tcp_create, AF_INET, SOCK_STREAM, IPPROTO_TCP},
    {"Udp", vel_socket_udp_create, AF_INET, SOCK_DGRAM, IPPROTO_UDP},
    {"Local", [] { return vel_socket_create(AF_UNIX, SOCK_SEQPACKET, 0); }, AF_UNIX, SOCK_SEQPACKET,
     0},
};

class VelsocketCreateCase : public Velsocket, public testing::WithParamInterface<create_case> {};

TEST_P(VelsocketCreateCase, MakesOneDescriptorThatDoesNotBlock)
{
    velsocket *velsocket = GetParam().create();
    ASSERT_NE(velsocket, nullptr);
    const std::vector<int> added = support::descriptors_since(before_);
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(support::socket_option(added[0], SO_DOMAIN), GetParam().domain);
    EXPECT_EQ(support::socket_option(added[0], SO_TYPE), GetParam().type);
    EXPECT_EQ(support::socket_option(added[0], SO_PROTOCOL), GetParam().protocol);
    EXPECT_NE(fcntl(added[0], F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_NONE);
    vel_socket_destroy(velsocket);
    EXPECT_EQ(support::descriptors(), before_);
    EXPECT_EQ(log_.take(), log_lines{});
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketCreateCase, testing::ValuesIn(kCreateCases),
                         support::row_name());

TEST_F(Velsocket, PlatformRefusesAnUnknownDomain)
{
    EXPECT_EQ(vel_socket_create(9999, SOCK_STREAM, 0), nullptr);
    EXPECT_EQ(
        log_.take(),
        (log_lines{socket_line(7, "socket() call failed, error 97"),
                   socket_line(7, "unable to initialize socket, error 202 (generic error)")}));
}

/* Binding. */

TEST_F(Velsocket, BindToPort0GivesAFreePort)
{
    velsocket *first = bound(vel_socket_tcp_create());
    velsocket *second = bound(vel_socket_tcp_create());
    EXPECT_GT(local_port(first), 0u);
    EXPECT_LT(local_port(first), 65536u);
    EXPECT_NE(local_port(first), local_port(second));
    EXPECT_EQ(vel_socket_get_error(first), VEL_ERROR_NONE);
    vel_socket_destroy(first);
    vel_socket_destroy(second);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(Velsocket, BindToAPortInUse)
{
    listen();
    velsocket *other = vel_socket_tcp_create();
    EXPECT_EQ(vel_socket_bind(other, "127.0.0.1", local_port(listener_)), VEL_ERROR_ADDRESS_IN_USE);
    EXPECT_EQ(vel_socket_get_error(other), VEL_ERROR_ADDRESS_IN_USE);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "bind() returned error 98")}));
    vel_socket_destroy(other);
}

/* No option lets the next one have the port earlier. */
TEST_F(Velsocket, BindSetsNoOption)
{
    velsocket *velsocket = bound(vel_socket_tcp_create());
    const std::vector<int> added = support::descriptors_since(before_);
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(support::socket_option(added[0], SO_REUSEADDR), 0);
    EXPECT_EQ(support::socket_option(added[0], SO_REUSEPORT), 0);
    vel_socket_destroy(velsocket);
}

TEST_F(Velsocket, BindTwiceIsRefused)
{
    velsocket *velsocket = bound(vel_socket_tcp_create());
    EXPECT_EQ(vel_socket_bind(velsocket, "127.0.0.1", 0), VEL_ERROR_GENERIC);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_GENERIC);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "bind() returned error 22")}));
    vel_socket_destroy(velsocket);
}

TEST_F(Velsocket, BindResolvesNoNames)
{
    velsocket *velsocket = vel_socket_udp_create();
    EXPECT_EQ(vel_socket_bind(velsocket, "localhost", 0), VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(log_.take(), (log_lines{{"net/veladdrinfo", 7,
                                       "getaddrinfo() returned error -2 (EAI_NONAME; numeric "
                                       "hostname could not be converted)"},
                                      socket_line(7, "address resolution failed, error 209 "
                                                     "(invalid syntax)")}));
    vel_socket_destroy(velsocket);
}

TEST_F(Velsocket, BindOfAnotherTypeIsUnsupported)
{
    velsocket *velsocket = vel_socket_create(AF_UNIX, SOCK_SEQPACKET, 0);
    EXPECT_EQ(vel_socket_bind(velsocket, "127.0.0.1", 0), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "unsupported socktype 5")}));
    vel_socket_destroy(velsocket);
}

TEST_F(Velsocket, BindOfTcpEnablesNoWakeup)
{
    velsocket *velsocket = bound(vel_socket_tcp_create());
    EXPECT_EQ(vel_socket_wakeup(velsocket), VEL_ERROR_WRITE);
    vel_socket_destroy(velsocket);
}

TEST_F(Velsocket, BindOfUdpEnablesWakeup)
{
    velsocket *velsocket = bound(vel_socket_udp_create());
    pipes_++;
    EXPECT_EQ(vel_socket_wakeup(velsocket), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_poll_read(velsocket, kLong, 0), VEL_ERROR_WAKEUP);
    vel_socket_destroy(velsocket);
}

TEST_F(Velsocket, LocalPortBeforeBindIs0)
{
    velsocket *velsocket = vel_socket_tcp_create();
    EXPECT_EQ(local_port(velsocket), 0u);
    vel_socket_destroy(velsocket);
}

/* Listening and accepting. */

TEST_F(Velsocket, ListenEnablesWakeup)
{
    listen();
    EXPECT_EQ(vel_socket_get_error(listener_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_wakeup(listener_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_poll_read(listener_, kLong, 0), VEL_ERROR_WAKEUP);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(Velsocket, ListenOnDatagrams)
{
    velsocket *velsocket = vel_socket_udp_create();
    EXPECT_EQ(vel_socket_listen(velsocket, 5), VEL_ERROR_GENERIC);
    pipes_++; /* it comes first */
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_GENERIC);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "listen() returned error 95")}));
    vel_socket_destroy(velsocket);
}

velsocket *const kDirt = reinterpret_cast<velsocket *>(16);

TEST_F(Velsocket, AcceptDoesNotWait)
{
    listen();
    velsocket *connection = kDirt;
    EXPECT_EQ(vel_socket_accept(listener_, &connection), VEL_ERROR_WOULD_BLOCK);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(vel_socket_get_error(listener_), VEL_ERROR_WOULD_BLOCK);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(Velsocket, AcceptWithoutListening)
{
    velsocket *velsocket = vel_socket_tcp_create();
    struct velsocket *connection = kDirt;
    EXPECT_EQ(vel_socket_accept(velsocket, &connection), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(log_.take(), log_lines{});
    vel_socket_destroy(velsocket);
}

TEST_F(Velsocket, AcceptOnDatagrams)
{
    velsocket *velsocket = vel_socket_udp_create();
    struct velsocket *connection = kDirt;
    EXPECT_EQ(vel_socket_accept(velsocket, &connection), VEL_ERROR_GENERIC);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "accept() returned error 95")}));
    vel_socket_destroy(velsocket);
}

TEST_F(Velsocket, AcceptedConnection)
{
    listen();
    vel_error_t velerror = -1;
    client_ = vel_socket_tcp_connect("127.0.0.1", local_port(listener_), &velerror);
    ASSERT_NE(client_, nullptr);
    ASSERT_EQ(vel_socket_poll_read(listener_, kLong, 0), VEL_ERROR_NONE);
    const std::set<int> before = support::descriptors();
    ASSERT_EQ(vel_socket_accept(listener_, &connection_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_get_error(listener_), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_get_error(connection_), VEL_ERROR_NONE);

    const std::vector<int> added = support::descriptors_since(before);
    ASSERT_EQ(added.size(), 1u);
    EXPECT_NE(fcntl(added[0], F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(local_port(connection_), local_port(listener_));

    sockaddr_in peer = {};
    size_t length = sizeof peer;
    EXPECT_EQ(vel_socket_get_peer_name(connection_, reinterpret_cast<sockaddr *>(&peer), &length),
              VEL_ERROR_NONE);
    EXPECT_EQ(length, sizeof peer);
    EXPECT_EQ(peer.sin_family, AF_INET);
    EXPECT_EQ(ntohs(peer.sin_port), local_port(client_));
}

TEST_F(Velsocket, ConnectionsHaveNoWakeup)
{
    connect();
    for (velsocket *velsocket : {client_, connection_}) {
        EXPECT_EQ(vel_socket_wakeup(velsocket), VEL_ERROR_WRITE);
        EXPECT_EQ(log_.take(), (log_lines{kNotEnabled, kNotWritten}));
    }
}

/* The listening socket goes on while a connection lives, and the other way round. */
TEST_F(Velsocket, ConnectionOutlivesItsListener)
{
    connect();
    close(&listener_);
    EXPECT_EQ(vel_socket_write(client_, "ping", 4), 4u);
    EXPECT_EQ(read(connection_), "ping");
}

/* The peer of a stream. */

TEST_F(Velsocket, PeerNameBeforeConnecting)
{
    velsocket *velsocket = vel_socket_tcp_create();
    sockaddr_in peer;
    size_t length = sizeof peer;
    EXPECT_EQ(vel_socket_get_peer_name(velsocket, reinterpret_cast<sockaddr *>(&peer), &length),
              VEL_ERROR_GENERIC);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_GENERIC);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "getpeername() returned error 107")}));
    vel_socket_destroy(velsocket);
}

TEST_F(Velsocket, PeerNameInLessRoomIsCut)
{
    connect();
    unsigned char bytes[sizeof(sockaddr_in)];
    memset(bytes, 0xee, sizeof bytes);
    size_t length = 4; /* the family and the port */
    EXPECT_EQ(vel_socket_get_peer_name(client_, reinterpret_cast<sockaddr *>(bytes), &length),
              VEL_ERROR_NONE);
    EXPECT_EQ(length, sizeof(sockaddr_in));
    EXPECT_EQ(bytes[2] << 8 | bytes[3], static_cast<int>(local_port(listener_)));
    EXPECT_EQ(bytes[4], 0xee);
}

/* Assertions. */

class VelsocketDeathTest : public testing::Test {
  protected:
    void SetUp() override
    {
        velsocket_ = vel_socket_tcp_create();
        ASSERT_NE(velsocket_, nullptr);
    }
    void TearDown() override
    {
        vel_socket_destroy(velsocket_);
    }
    velsocket *velsocket_ = nullptr;
    char bytes_[8] = {};
    unsigned int port_ = 0;
    size_t length_ = sizeof(sockaddr);
    sockaddr address_ = {};
};

TEST_F(VelsocketDeathTest, Handle)
{
    const struct {
        const char *function;
        std::function<void()> call;
    } calls[] = {
        {"vel_socket_destroy", [&] { vel_socket_destroy(nullptr); }},
        {"vel_socket_get_error", [&] { vel_socket_get_error(nullptr); }},
        {"vel_socket_bind", [&] { vel_socket_bind(nullptr, nullptr, 65536); }},
        {"vel_socket_listen", [&] { vel_socket_listen(nullptr, 5); }},
        {"vel_socket_accept", [&] { vel_socket_accept(nullptr, nullptr); }},
        {"vel_socket_read_with_timeout",
         [&] { vel_socket_read_with_timeout(nullptr, nullptr, 0, 0, 1000000); }},
        {"vel_socket_read", [&] { vel_socket_read(nullptr, nullptr, 0); }},
        {"vel_socket_write", [&] { vel_socket_write(nullptr, nullptr, 0); }},
        {"vel_socket_poll_read", [&] { vel_socket_poll_read(nullptr, 0, 1000000); }},
        {"vel_socket_poll_write", [&] { vel_socket_poll_write(nullptr, 0, 1000000); }},
        {"vel_socket_enable_wakeup", [&] { vel_socket_enable_wakeup(nullptr); }},
        {"vel_socket_wakeup", [&] { vel_socket_wakeup(nullptr); }},
        {"vel_socket_enable_broadcast", [&] { vel_socket_enable_broadcast(nullptr); }},
        {"vel_socket_get_local_port", [&] { vel_socket_get_local_port(nullptr, nullptr); }},
        {"vel_socket_get_peer_name", [&] { vel_socket_get_peer_name(nullptr, nullptr, nullptr); }},
    };
    for (const auto &row : calls)
        EXPECT_DEATH(row.call(), asserts("velsocket != NULL", row.function)) << row.function;
}

TEST_F(VelsocketDeathTest, Bind)
{
    EXPECT_DEATH(vel_socket_bind(velsocket_, nullptr, 65536),
                 asserts("address != NULL", "vel_socket_bind"));
    EXPECT_DEATH(vel_socket_bind(velsocket_, "127.0.0.1", 65536),
                 asserts("port < 65536", "vel_socket_bind"));
}

TEST_F(VelsocketDeathTest, Accept)
{
    EXPECT_DEATH(vel_socket_accept(velsocket_, nullptr),
                 asserts("connectionsocketptr != NULL", "vel_socket_accept"));
}

TEST_F(VelsocketDeathTest, Read)
{
    EXPECT_DEATH(vel_socket_read(velsocket_, nullptr, 0), asserts("buf != NULL"));
    EXPECT_DEATH(vel_socket_read(velsocket_, bytes_, 0), asserts("maxlen > 0"));
    EXPECT_DEATH(vel_socket_read_with_timeout(velsocket_, nullptr, 0, 0, 1000000),
                 asserts("buf != NULL", "vel_socket_read_with_timeout"));
    EXPECT_DEATH(vel_socket_read_with_timeout(velsocket_, bytes_, 0, 0, 1000000),
                 asserts("maxlen > 0", "vel_socket_read_with_timeout"));
    EXPECT_DEATH(vel_socket_read_with_timeout(velsocket_, bytes_, 8, 0, 1000000),
                 asserts("timeoutusecs < 1000000", "vel_socket_read_with_timeout"));
}

TEST_F(VelsocketDeathTest, Write)
{
    EXPECT_DEATH(vel_socket_write(velsocket_, nullptr, 0),
                 asserts("buf != NULL", "vel_socket_write"));
    EXPECT_DEATH(vel_socket_write(velsocket_, bytes_, 0), asserts("len > 0", "vel_socket_write"));
}

TEST_F(VelsocketDeathTest, Poll)
{
    EXPECT_DEATH(vel_socket_poll_read(velsocket_, -1, 1000000),
                 asserts("timeoutusecs < 1000000", "vel_socket_poll_read"));
    EXPECT_DEATH(vel_socket_poll_write(velsocket_, -1, 1000000),
                 asserts("timeoutusecs < 1000000", "vel_socket_poll_write"));
}

TEST_F(VelsocketDeathTest, LocalPortAndPeerName)
{
    EXPECT_DEATH(vel_socket_get_local_port(velsocket_, nullptr),
                 asserts("portptr != NULL", "vel_socket_get_local_port"));
    EXPECT_DEATH(vel_socket_get_peer_name(velsocket_, nullptr, nullptr),
                 asserts("sockaddr != NULL", "vel_socket_get_peer_name"));
    EXPECT_DEATH(vel_socket_get_peer_name(velsocket_, &address_, nullptr),
                 asserts("salenptr != NULL", "vel_socket_get_peer_name"));
    length_ = 0;
    EXPECT_DEATH(vel_socket_get_peer_name(velsocket_, &address_, &length_),
                 asserts("*salenptr > 0", "vel_socket_get_peer_name"));
}

} // namespace
