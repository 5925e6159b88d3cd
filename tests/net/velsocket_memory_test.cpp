#include <netinet/in.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/oom.h"
#include "support/platform_malloc.h"
#include "support/rows.h"
#include "support/sockettest.h"

namespace {

using support::bound;
using support::kLong;
using support::local_port;
using support::log_line;
using support::log_lines;
using support::socket_line;

using VelsocketMemory = support::socket_test;

velsocket *const kDirt = reinterpret_cast<velsocket *>(16);

struct memory_case {
    const char *name;
    size_t allocation;
    velsocket *(*create)();
    log_lines logged;
};

std::ostream &operator<<(std::ostream &out, const memory_case &row)
{
    return out << row.name;
}

const log_line kNoStructure = socket_line(7, "not enough memory for velsocket structure");
const log_line kNoTimeout = socket_line(7, "unable to create timeout context");
const log_line kNoTcp = socket_line(7, "unable to create a TCP socket");
const log_line kNoUdp = socket_line(7, "unable to create a UDP socket");

velsocket *create_plain()
{
    return vel_socket_create(AF_INET, SOCK_STREAM, 0);
}

const memory_case kMemoryCases[] = {
    {"Structure", 1, create_plain, {kNoStructure}},
    {"Timeout", 2, create_plain, {kNoTimeout}},
    {"TcpStructure", 1, vel_socket_tcp_create, {kNoStructure, kNoTcp}},
    {"TcpTimeout", 2, vel_socket_tcp_create, {kNoTimeout, kNoTcp}},
    {"UdpStructure", 1, vel_socket_udp_create, {kNoStructure, kNoUdp}},
    {"UdpTimeout", 2, vel_socket_udp_create, {kNoTimeout, kNoUdp}},
};

class VelsocketMemoryCase : public VelsocketMemory,
                            public testing::WithParamInterface<memory_case> {};

TEST_P(VelsocketMemoryCase, GivesNoSocket)
{
    velsocket *velsocket = nullptr;
    {
        const support::malloc_watch watch(GetParam().allocation);
        velsocket = GetParam().create();
    }
    EXPECT_EQ(velsocket, nullptr);
    EXPECT_EQ(log_.take(), GetParam().logged);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketMemoryCase, testing::ValuesIn(kMemoryCases),
                         support::row_name());

class VelsocketAcceptMemory : public VelsocketMemory, public testing::WithParamInterface<size_t> {};

/* The descriptor is closed, which the client sees. */
TEST_P(VelsocketAcceptMemory, GivesNoConnection)
{
    listen();
    vel_error_t velerror = -1;
    client_ = vel_socket_tcp_connect("127.0.0.1", local_port(listener_), &velerror);
    ASSERT_EQ(vel_socket_poll_read(listener_, kLong, 0), VEL_ERROR_NONE);
    log_.clear();
    velsocket *connection = kDirt;
    vel_error_t result = -1;
    {
        const support::malloc_watch watch(GetParam());
        result = vel_socket_accept(listener_, &connection);
    }
    EXPECT_EQ(result, VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(vel_socket_get_error(listener_), VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(log_.take(), (log_lines{GetParam() == 1 ? kNoStructure : kNoTimeout,
                                      socket_line(7, "unable to create a connection socket")}));
    EXPECT_EQ(read(client_), "");
    EXPECT_EQ(vel_socket_get_error(client_), VEL_ERROR_END_OF_FILE);
}

INSTANTIATE_TEST_SUITE_P(Allocations, VelsocketAcceptMemory, testing::Values(1, 2));

TEST_F(VelsocketMemory, LocalPortNeedsMemory)
{
    velsocket *velsocket = bound(vel_socket_tcp_create());
    unsigned int port = 99999;
    vel_error_t result = -1;
    {
        const support::malloc_watch watch(1);
        result = vel_socket_get_local_port(velsocket, &port);
    }
    EXPECT_EQ(result, VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(port, 0u);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(log_.take(),
              (log_lines{socket_line(7, "not enough memory for struct sockaddr_storage")}));
    vel_socket_destroy(velsocket);
}

class VelsocketBindMemory : public VelsocketMemory, public testing::WithParamInterface<size_t> {};

TEST_P(VelsocketBindMemory, IsAGenericFailure)
{
    velsocket *velsocket = vel_socket_tcp_create();
    vel_error_t result = -1;
    {
        const support::malloc_watch watch(GetParam());
        result = vel_socket_bind(velsocket, "127.0.0.1", 0);
    }
    EXPECT_EQ(result, VEL_ERROR_GENERIC);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_GENERIC);
    const log_lines logged = log_.take();
    ASSERT_EQ(logged.size(), 2u);
    EXPECT_EQ(logged[0].module, "net/veladdrinfo");
    EXPECT_EQ(logged[1], socket_line(7, "not enough memory for veladdrinfo context"));
    vel_socket_destroy(velsocket);
}

INSTANTIATE_TEST_SUITE_P(Allocations, VelsocketBindMemory, testing::Values(1, 2));

/* A connection and a pair of datagram sockets, in one thread. */

bool exchange(velsocket *from, velsocket *to)
{
    char bytes[8];
    return vel_socket_write(from, "ping", 4) == 4 &&
           vel_socket_read_with_timeout(to, bytes, sizeof bytes, kLong, 0) == 4;
}

bool stream_life()
{
    velsocket *listener = vel_socket_tcp_create();
    velsocket *client = nullptr;
    velsocket *connection = nullptr;
    unsigned int port = 0;
    vel_error_t velerror = -1;
    sockaddr_in peer;
    size_t length = sizeof peer;

    bool good = listener && vel_socket_bind(listener, "127.0.0.1", 0) == VEL_ERROR_NONE &&
                vel_socket_listen(listener, 5) == VEL_ERROR_NONE &&
                vel_socket_get_local_port(listener, &port) == VEL_ERROR_NONE;
    if (good)
        client = vel_socket_tcp_connect("127.0.0.1", port, &velerror);
    good = client && vel_socket_poll_read(listener, kLong, 0) == VEL_ERROR_NONE &&
           vel_socket_accept(listener, &connection) == VEL_ERROR_NONE &&
           exchange(client, connection) && exchange(connection, client) &&
           vel_socket_get_peer_name(client, reinterpret_cast<sockaddr *>(&peer), &length) ==
               VEL_ERROR_NONE;
    for (velsocket *velsocket : {listener, client, connection}) {
        if (velsocket)
            vel_socket_destroy(velsocket);
    }
    return good;
}

bool datagram_life()
{
    velsocket *receiver = vel_socket_udp_create();
    velsocket *sender = nullptr;
    unsigned int port = 0;
    vel_error_t velerror = -1;

    bool good = receiver && vel_socket_bind(receiver, "127.0.0.1", 0) == VEL_ERROR_NONE &&
                vel_socket_get_local_port(receiver, &port) == VEL_ERROR_NONE;
    if (good)
        sender = vel_socket_udp_connect("127.0.0.1", port, &velerror);
    good = sender && exchange(sender, receiver) && exchange(receiver, sender);
    for (velsocket *velsocket : {receiver, sender}) {
        if (velsocket)
            vel_socket_destroy(velsocket);
    }
    return good;
}

TEST(VelsocketOom, EveryAllocationOfAStreamMayFail)
{
    support::vel_oom_drive(stream_life);
}

TEST(VelsocketOom, EveryAllocationOfDatagramsMayFail)
{
    support::vel_oom_drive(datagram_life);
}

} // namespace
