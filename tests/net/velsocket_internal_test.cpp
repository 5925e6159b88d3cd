/* What no caller can bring about from outside. */

#include <ostream>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "net/velsocket_internal.h"

namespace {

/* Which failure is kept when one follows another. */
struct survivor_case {
    const char *name;
    vel_error_t old;
    vel_error_t next;
    vel_error_t kept;
};

std::ostream &operator<<(std::ostream &out, const survivor_case &row)
{
    return out << row.name;
}

const survivor_case kSurvivorCases[] = {
    {"PlaceholderGivesWay", VEL_ERROR_CANNOT_CONNECT, VEL_ERROR_CONNECTION_REFUSED,
     VEL_ERROR_CONNECTION_REFUSED},
    {"PlaceholderGivesWayToTheEnd", VEL_ERROR_CANNOT_CONNECT, VEL_ERROR_END_OF_FILE,
     VEL_ERROR_END_OF_FILE},
    {"PlaceholderStaysForPermission", VEL_ERROR_CANNOT_CONNECT, VEL_ERROR_PERMISSION,
     VEL_ERROR_CANNOT_CONNECT},
    {"PlaceholderAgain", VEL_ERROR_CANNOT_CONNECT, VEL_ERROR_CANNOT_CONNECT,
     VEL_ERROR_CANNOT_CONNECT},
    {"FirstFailureStays", VEL_ERROR_CONNECTION_REFUSED, VEL_ERROR_CONNECTION_TIMED_OUT,
     VEL_ERROR_CONNECTION_REFUSED},
    {"FirstFailureStaysAtTheEnd", VEL_ERROR_CONNECTION_REFUSED, VEL_ERROR_END_OF_FILE,
     VEL_ERROR_CONNECTION_REFUSED},
    {"FirstFailureStaysForPermission", VEL_ERROR_CONNECTION_REFUSED, VEL_ERROR_PERMISSION,
     VEL_ERROR_CONNECTION_REFUSED},
    {"PermissionGivesWay", VEL_ERROR_PERMISSION, VEL_ERROR_CONNECTION_REFUSED,
     VEL_ERROR_CONNECTION_REFUSED},
    {"PermissionGivesWayToTheEnd", VEL_ERROR_PERMISSION, VEL_ERROR_END_OF_FILE,
     VEL_ERROR_END_OF_FILE},
    {"PermissionAgain", VEL_ERROR_PERMISSION, VEL_ERROR_PERMISSION, VEL_ERROR_PERMISSION},
};

class VelsocketSurvivorCase : public testing::TestWithParam<survivor_case> {};

TEST_P(VelsocketSurvivorCase, IsKept)
{
    velsocketconnect connectctx = {};
    connectctx.error = GetParam().old;
    vel_socket_connectctx_update_error(&connectctx, GetParam().next);
    EXPECT_EQ(connectctx.error, GetParam().kept);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketSurvivorCase, testing::ValuesIn(kSurvivorCases),
                         [](const auto &row) { return row.param.name; });

/* The port of a server may be asked for, by another thread, while its own reads and writes. */
TEST(VelsocketInternal, AskingForThePortLeavesWhatAHandleLooksFor)
{
    unsigned int port = 0;
    char byte = 0;
    velsocket *velsocket = vel_socket_udp_create();
    ASSERT_NE(velsocket, nullptr);
    ASSERT_EQ(vel_socket_bind(velsocket, "127.0.0.1", 0), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_read_with_timeout(velsocket, &byte, 1, 0, 0), 0u);
    EXPECT_EQ(vel_socket_write(velsocket, &byte, 1),
              0u); /* nothing has come that it could answer */
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_GENERIC);
    EXPECT_EQ(vel_socket_get_local_port(velsocket, &port), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_NONE);
    EXPECT_EQ(velsocket->readerror, VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(velsocket->writeerror, VEL_ERROR_GENERIC);
    vel_socket_destroy(velsocket);
}

TEST(VelsocketInternalDeathTest, InitAssertsHandle)
{
    EXPECT_DEATH(vel_socket_init(nullptr, AF_INET, SOCK_STREAM, 0),
                 "velsocket != NULL.*function vel_socket_init");
}

TEST(VelsocketInternalDeathTest, ContextFunctionsAssertContext)
{
    velsocket *velsocket = nullptr;
    EXPECT_DEATH(vel_socket_connectctx_destroy(nullptr), "connectctx != NULL");
    EXPECT_DEATH(vel_socket_connectctx_update_error(nullptr, 0), "connectctx != NULL");
    EXPECT_DEATH(vel_socket_tcp_connect_next(nullptr, &velsocket), "connectctx != NULL");
}

TEST(VelsocketInternalDeathTest, WalkersAssertTheRest)
{
    velsocketconnect connectctx = {};
    velsocket velsocket = {};
    EXPECT_DEATH(vel_socket_tcp_connect_next(&connectctx, nullptr), "velsocketptr != NULL");
    EXPECT_DEATH(vel_socket_connect_next(nullptr), "velsocket != NULL");
    EXPECT_DEATH(vel_socket_connect_next(&velsocket), "connectctx != NULL");
}

TEST(VelsocketInternalDeathTest, WaitAssertsTheTimeOfTheContext)
{
    velsocketconnect connectctx = {};
    velsocket velsocket = {};
    velsocket.connectctx = &connectctx;
    EXPECT_DEATH(vel_socket_connect_wait(&velsocket, 1, 0),
                 "veltimeout != NULL.*function vel_socket_connect_wait");
}

TEST(VelsocketInternalDeathTest, OtherTypesAreNotReached)
{
    velsocketconnect connectctx = {};
    velsocket velsocket = {};
    velsocket.connectctx = &connectctx;
    velsocket.socktype = SOCK_SEQPACKET;
    EXPECT_DEATH(vel_socket_connect_next(&velsocket),
                 "net/velsocket:[0-9]+\\[5\\] unsupported socktype 5\n"
                 "net/velsocket:[0-9]+: Assertion failed\\.");
}

} // namespace
