/* Every call of the platform that a socket makes, failing with every errno that means something of
 * its own, and one that does not. Connecting has a test of its own. */

#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <ostream>
#include <sys/socket.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellog.h>
#include <vellib/velsocket.h>

#include "support/netfixture.h"

using support::log_line;
using support::log_lines;
using support::socket_line;

namespace {

/* A listener, a connection with both its ends, and two UDP sockets, of which one sends to the
 * other. */
class VelsocketFaults : public support::net_test {
  protected:
    void SetUp() override
    {
        unsigned int port = 0;
        vel_error_t velerror = -1;
        listener_ = vel_socket_tcp_create();
        ASSERT_EQ(vel_socket_bind(listener_, "127.0.0.1", 0), VEL_ERROR_NONE);
        ASSERT_EQ(vel_socket_listen(listener_, 5), VEL_ERROR_NONE);
        ASSERT_EQ(vel_socket_get_local_port(listener_, &port), VEL_ERROR_NONE);
        client_ = vel_socket_tcp_connect_with_timeout("127.0.0.1", port, 10, 0, &velerror);
        ASSERT_NE(client_, nullptr);
        ASSERT_EQ(vel_socket_poll_read(listener_, 10, 0), VEL_ERROR_NONE);
        ASSERT_EQ(vel_socket_accept(listener_, &server_), VEL_ERROR_NONE);

        udpserver_ = vel_socket_udp_create();
        ASSERT_EQ(vel_socket_bind(udpserver_, "127.0.0.1", 0), VEL_ERROR_NONE);
        ASSERT_EQ(vel_socket_get_local_port(udpserver_, &port), VEL_ERROR_NONE);
        udpclient_ = vel_socket_udp_connect("127.0.0.1", port, &velerror);
        ASSERT_NE(udpclient_, nullptr);

        leaked_ = 4;
        log_.clear();
    }
    void TearDown() override
    {
        for (velsocket *velsocket : {listener_, client_, server_, udpserver_, udpclient_}) {
            if (velsocket)
                vel_socket_destroy(velsocket);
        }
        support::net_test::TearDown();
    }

    /* Has something wait at the server. */
    void send_to_server()
    {
        ASSERT_EQ(vel_socket_write(client_, "ping", 4), 4u);
        ASSERT_EQ(vel_socket_poll_read(server_, 10, 0), VEL_ERROR_NONE);
    }

    velsocket *listener_ = nullptr;
    velsocket *client_ = nullptr;
    velsocket *server_ = nullptr;
    velsocket *udpserver_ = nullptr;
    velsocket *udpclient_ = nullptr;
    char bytes_[16] = {};
};

/* A failing call, what an operation then gives, and what it logs. */
struct errno_case {
    const char *name;
    int platformerrno;
    vel_error_t result;
    log_lines logged;
};

std::ostream &operator<<(std::ostream &out, const errno_case &row)
{
    return out << row.name;
}

std::string name_of(const testing::TestParamInfo<errno_case> &row)
{
    return row.param.name;
}

/* poll */

class VelsocketPollCase : public VelsocketFaults, public testing::WithParamInterface<errno_case> {};

const errno_case kPollCases[] = {
    {"Eintr", EINTR, VEL_ERROR_INTERRUPTED, {}},
    {"Enomem", ENOMEM, VEL_ERROR_NO_MEMORY, {}},
    {"Efault", EFAULT, VEL_ERROR_INTERNAL, {}},
    {"Einval", EINVAL, VEL_ERROR_INTERNAL, {}},
    {"Eio", EIO, VEL_ERROR_GENERIC, {socket_line(6, "poll() returned an unhandled error 5")}},
};

TEST_P(VelsocketPollCase, ForReading)
{
    shim_.fail("poll", GetParam().platformerrno);
    EXPECT_EQ(vel_socket_poll_read(server_, -1, 0), GetParam().result);
    EXPECT_EQ(vel_socket_get_error(server_), GetParam().result);
    EXPECT_EQ(log_.take(), GetParam().logged);
}

TEST_P(VelsocketPollCase, ForWriting)
{
    shim_.fail("poll", GetParam().platformerrno);
    EXPECT_EQ(vel_socket_poll_write(server_, -1, 0), GetParam().result);
    EXPECT_EQ(vel_socket_get_error(server_), GetParam().result);
    EXPECT_EQ(log_.take(), GetParam().logged);
}

/* The failed wait ends the read. */
TEST_P(VelsocketPollCase, WithinARead)
{
    shim_.fail("poll", GetParam().platformerrno);
    EXPECT_EQ(vel_socket_read_with_timeout(server_, bytes_, sizeof bytes_, 10, 0), 0u);
    EXPECT_EQ(vel_socket_get_error(server_), GetParam().result);
    log_lines logged = {socket_line(13, "recv() returned EWOULDBLOCK")};
    logged.insert(logged.end(), GetParam().logged.begin(), GetParam().logged.end());
    logged.push_back(socket_line(13, "polling read for a socket returned error " +
                                         std::to_string(GetParam().result) + " (" +
                                         vel_error_string(GetParam().result) + ")"));
    EXPECT_EQ(log_.take(), logged);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketPollCase, testing::ValuesIn(kPollCases), name_of);

/* A socket that never was connected reports that its peer has hung up, and nothing to read. */
TEST_F(VelsocketFaults, PollWithoutAnEventIsInternal)
{
    velsocket *velsocket = vel_socket_tcp_create();
    ASSERT_NE(velsocket, nullptr);
    EXPECT_EQ(vel_socket_poll_read(velsocket, 10, 0), VEL_ERROR_INTERNAL);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_INTERNAL);
    EXPECT_EQ(
        log_.take(),
        (log_lines{socket_line(6, "INTERNAL ERROR: poll() returned 1 but no event is available")}));
    vel_socket_destroy(velsocket);
}

/* recvfrom */

class VelsocketRecvCase : public VelsocketFaults, public testing::WithParamInterface<errno_case> {};

const errno_case kRecvCases[] = {
    {"Eintr",
     EINTR,
     VEL_ERROR_INTERRUPTED,
     {socket_line(13, "recv() returned EINTR"),
      socket_line(7, "vel_socket_recvfrom() returned error 4 (interrupted system call)")}},
    {"Ebadf",
     EBADF,
     VEL_ERROR_INTERNAL,
     {socket_line(6, "INTERNAL ERROR: recv() returned EBADF"),
      socket_line(7, "vel_socket_recvfrom() returned error 208 (internal error)")}},
    {"Enomem",
     ENOMEM,
     VEL_ERROR_NO_MEMORY,
     {socket_line(7, "recv() returned not enough memory"),
      socket_line(7, "vel_socket_recvfrom() returned error 12 (not enough memory)")}},
    {"Efault",
     EFAULT,
     VEL_ERROR_INTERNAL,
     {socket_line(6, "INTERNAL ERROR: recv() returned EFAULT"),
      socket_line(7, "vel_socket_recvfrom() returned error 208 (internal error)")}},
    {"Einval",
     EINVAL,
     VEL_ERROR_INTERNAL,
     {socket_line(6, "INTERNAL ERROR: recv() returned EINVAL"),
      socket_line(7, "vel_socket_recvfrom() returned error 208 (internal error)")}},
    {"Eagain",
     EAGAIN,
     VEL_ERROR_WOULD_BLOCK,
     {socket_line(13, "recv() returned EWOULDBLOCK"),
      socket_line(7, "vel_socket_recvfrom() returned error 11 (would block)")}},
    {"Enotsock",
     ENOTSOCK,
     VEL_ERROR_INTERNAL,
     {socket_line(6, "INTERNAL ERROR: recv() returned ENOTSOCK"),
      socket_line(7, "vel_socket_recvfrom() returned error 208 (internal error)")}},
    {"Econnreset",
     ECONNRESET,
     VEL_ERROR_CONNECTION_RESET,
     {socket_line(7, "recv() returned ECONNRESET"),
      socket_line(7, "vel_socket_recvfrom() returned error 104 (connection reset by peer)")}},
    {"Enotconn",
     ENOTCONN,
     VEL_ERROR_INTERNAL,
     {socket_line(6, "INTERNAL ERROR: recv() returned ENOTCONN"),
      socket_line(7, "vel_socket_recvfrom() returned error 208 (internal error)")}},
    {"Econnrefused",
     ECONNREFUSED,
     VEL_ERROR_INTERNAL,
     {socket_line(7, "INTERNAL ERROR: recv() returned connection refused"),
      socket_line(7, "vel_socket_recvfrom() returned error 208 (internal error)")}},
    {"Eio",
     EIO,
     VEL_ERROR_GENERIC,
     {socket_line(6, "recv() returned an unhandled error 5"),
      socket_line(7, "vel_socket_recvfrom() returned error 202 (generic error)")}},
};

/* The bytes that wait let the poll between two attempts return at once. */
TEST_P(VelsocketRecvCase, TwiceIsTheResult)
{
    send_to_server();
    shim_.fail("recvfrom", GetParam().platformerrno);
    EXPECT_EQ(vel_socket_read(server_, bytes_, sizeof bytes_), 0u);
    EXPECT_EQ(vel_socket_get_error(server_), GetParam().result);
    log_lines logged = GetParam().logged;
    logged.insert(logged.begin(), logged.front());
    EXPECT_EQ(log_.take(), logged);
}

TEST_P(VelsocketRecvCase, OnceIsTriedAgain)
{
    send_to_server();
    shim_.fail("recvfrom", GetParam().platformerrno, 0, 1);
    EXPECT_EQ(vel_socket_read(server_, bytes_, sizeof bytes_), 4u);
    EXPECT_EQ(memcmp(bytes_, "ping", 4), 0);
    EXPECT_EQ(vel_socket_get_error(server_), VEL_ERROR_NONE);
    EXPECT_EQ(log_.take(), (log_lines{GetParam().logged.front()}));
}

TEST_P(VelsocketRecvCase, WithoutTimeNothingIsTried)
{
    send_to_server();
    shim_.fail("recvfrom", GetParam().platformerrno);
    EXPECT_EQ(vel_socket_read_with_timeout(server_, bytes_, sizeof bytes_, 0, 0), 0u);
    EXPECT_EQ(vel_socket_get_error(server_), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(log_.take(), log_lines{});
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketRecvCase, testing::ValuesIn(kRecvCases), name_of);

/* send and sendto */

struct write_case {
    const char *name;
    int platformerrno;
    size_t count;
    vel_error_t result;
    log_lines send;   /* logged for a stream */
    log_lines sendto; /* logged for a datagram */
};

std::ostream &operator<<(std::ostream &out, const write_case &row)
{
    return out << row.name;
}

const log_line kSendEacces = socket_line(7, "send() returned EACCES");
const log_line kSendtoEacces = socket_line(7, "sendto() returned EACCES");
const log_line kTryBroadcast = socket_line(7, "trying to enable sending to broadcast address");
const log_line kRetry = socket_line(7, "retrying sendto()");

log_line unable(int platformerrno)
{
    return socket_line(7, "unable to write to socket, error " + std::to_string(platformerrno));
}

const write_case kWriteCases[] = {
    {"Eacces",
     EACCES,
     13,
     VEL_ERROR_ACCESS,
     {unable(13), kSendEacces, kSendEacces},
     {unable(13), kSendtoEacces, kSendtoEacces, kTryBroadcast, kRetry, unable(13), kSendtoEacces,
      kSendtoEacces}},
    {"Epipe", EPIPE, 0, VEL_ERROR_BROKEN_PIPE, {unable(32)}, {unable(32)}},
    {"Eagain", EAGAIN, 0, VEL_ERROR_WOULD_BLOCK, {}, {}},
    {"Econnreset",
     ECONNRESET,
     0,
     VEL_ERROR_CONNECTION_RESET,
     {socket_line(7, "unable to write to socket, error 104 (ECONNRESET)"), unable(104),
      unable(104)},
     {socket_line(7, "unable to write to socket, error 104 (ECONNRESET)"), unable(104),
      unable(104)}},
    {"Enobufs",
     ENOBUFS,
     0,
     VEL_ERROR_GENERIC,
     {socket_line(7, "an unmapped error value 105"), unable(105),
      socket_line(7, "an unmapped error value 105")},
     {socket_line(7, "an unmapped error value 105"), unable(105),
      socket_line(7, "an unmapped error value 105")}},
};

class VelsocketWriteCase : public VelsocketFaults,
                           public testing::WithParamInterface<write_case> {};

TEST_P(VelsocketWriteCase, Stream)
{
    shim_.fail("send", GetParam().platformerrno);
    EXPECT_EQ(vel_socket_write(client_, "ping", 4), GetParam().count);
    EXPECT_EQ(vel_socket_get_error(client_), GetParam().result);
    EXPECT_EQ(log_.take(), GetParam().send);
}

TEST_P(VelsocketWriteCase, Datagram)
{
    shim_.fail("sendto", GetParam().platformerrno);
    EXPECT_EQ(vel_socket_write(udpclient_, "ping", 4), GetParam().count);
    EXPECT_EQ(vel_socket_get_error(udpclient_), GetParam().result);
    EXPECT_EQ(log_.take(), GetParam().sendto);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketWriteCase, testing::ValuesIn(kWriteCases),
                         [](const auto &row) { return row.param.name; });

/* The errno is read again behind the log, which here has an errno of its own at each line. */
TEST_F(VelsocketFaults, LogThatCannotBeWrittenChangesNoResult)
{
    ASSERT_EQ(vel_log_logfile_set_name(nullptr, "/no/such/directory/test.log"), 0);
    for (const write_case &row : kWriteCases) {
        shim_.fail("send", row.platformerrno);
        EXPECT_EQ(vel_socket_write(client_, "ping", 4), row.count) << row;
        EXPECT_EQ(vel_socket_get_error(client_), row.result) << row;
    }
}

TEST_F(VelsocketFaults, RefusedBroadcastIsSentAgain)
{
    shim_.fail("sendto", EACCES, 0, 1);
    EXPECT_EQ(vel_socket_write(udpclient_, "ping", 4), 4u);
    EXPECT_EQ(vel_socket_get_error(udpclient_), VEL_ERROR_NONE);
    EXPECT_EQ(log_.take(),
              (log_lines{unable(13), kSendtoEacces, kSendtoEacces, kTryBroadcast, kRetry}));
    EXPECT_EQ(vel_socket_read_with_timeout(udpserver_, bytes_, sizeof bytes_, 10, 0), 4u);
}

TEST_F(VelsocketFaults, RefusedBroadcastIsSentAgainThoughNotEnabled)
{
    shim_.fail("sendto", EACCES, 0, 1);
    shim_.fail("setsockopt", ENOPROTOOPT);
    EXPECT_EQ(vel_socket_write(udpclient_, "ping", 4), 4u);
    EXPECT_EQ(log_.take(),
              (log_lines{unable(13), kSendtoEacces, kSendtoEacces, kTryBroadcast,
                         socket_line(7, "setsockopt() SO_BROADCAST failed, errno 92"),
                         socket_line(7, "failed to enable sending to broadcast address, error 202 "
                                        "(generic error)"),
                         kRetry}));
}

TEST_F(VelsocketFaults, SecondFailureOfABroadcastIsTheResult)
{
    shim_.fail("sendto", EACCES, 0, 1);
    EXPECT_EQ(vel_socket_write(udpserver_, "ping", 4), 0u); /* no one to answer: EINVAL */
    EXPECT_EQ(vel_socket_get_error(udpserver_), VEL_ERROR_GENERIC);
    EXPECT_EQ(log_.take(), (log_lines{unable(13), kSendtoEacces, kSendtoEacces, kTryBroadcast,
                                      kRetry, socket_line(7, "an unmapped error value 22"),
                                      unable(22), socket_line(7, "an unmapped error value 22")}));
}

TEST_F(VelsocketFaults, EnableBroadcastDoesNotKeepItsResult)
{
    EXPECT_EQ(vel_socket_poll_read(udpclient_, 0, 0), VEL_ERROR_TIMED_OUT);
    shim_.fail("setsockopt", ENOPROTOOPT);
    EXPECT_EQ(vel_socket_enable_broadcast(udpclient_), VEL_ERROR_GENERIC);
    EXPECT_EQ(vel_socket_get_error(udpclient_), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(log_.take(),
              (log_lines{socket_line(7, "setsockopt() SO_BROADCAST failed, errno 92")}));
}

/* socket and fcntl, at creation */

struct creation_case {
    const char *name;
    const char *call;
    int platformerrno;
    velsocket *(*create)(void);
    log_lines logged;
};

std::ostream &operator<<(std::ostream &out, const creation_case &row)
{
    return out << row.name;
}

velsocket *create_plain()
{
    return vel_socket_create(AF_INET, SOCK_STREAM, 0);
}

const log_line kNoInit = socket_line(7, "unable to initialize socket, error 202 (generic error)");
const log_line kFcntl = socket_line(7, "fcntl() returned error -1");
const log_line kBlocking = socket_line(7, "unable to set the socket to non-blocking mode");

const creation_case kCreationCases[] = {
    {"Socket",
     "socket",
     EMFILE,
     create_plain,
     {socket_line(7, "socket() call failed, error 24"), kNoInit}},
    {"SocketTcp",
     "socket",
     ENFILE,
     vel_socket_tcp_create,
     {socket_line(7, "socket() call failed, error 23"), kNoInit,
      socket_line(7, "unable to create a TCP socket")}},
    {"SocketUdp",
     "socket",
     EACCES,
     vel_socket_udp_create,
     {socket_line(7, "socket() call failed, error 13"), kNoInit,
      socket_line(7, "unable to create a UDP socket")}},
    {"FcntlGet", "fcntl F_GETFL", EBADF, create_plain, {kFcntl, kBlocking, kNoInit}},
    {"FcntlSet", "fcntl F_SETFL", EPERM, create_plain, {kFcntl, kBlocking, kNoInit}},
};

class VelsocketCreationCase : public VelsocketFaults,
                              public testing::WithParamInterface<creation_case> {};

TEST_P(VelsocketCreationCase, GivesNoSocket)
{
    shim_.fail(GetParam().call, GetParam().platformerrno);
    EXPECT_EQ(GetParam().create(), nullptr);
    EXPECT_EQ(log_.take(), GetParam().logged);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketCreationCase, testing::ValuesIn(kCreationCases),
                         [](const auto &row) { return row.param.name; });

/* bind, listen and pipe */

struct setup_case {
    const char *name;
    const char *call;
    int platformerrno;
    bool udp;
    const char *address; /* to bind to; NULL to listen */
    vel_error_t result;
    log_lines logged;
    int leaked; /* descriptors of a wakeup pipe that was made */
};

std::ostream &operator<<(std::ostream &out, const setup_case &row)
{
    return out << row.name;
}

const log_line kPipe = socket_line(7, "pipe() returned error 24");
const log_line kNoIpv6 =
    socket_line(7, "unable to initialize socket for IPv6, error 202 (generic error)");

const setup_case kSetupCases[] = {
    {"BindEaddrinuse",
     "bind",
     EADDRINUSE,
     false,
     "127.0.0.1",
     VEL_ERROR_ADDRESS_IN_USE,
     {socket_line(7, "bind() returned error 98")},
     0},
    {"BindEacces",
     "bind",
     EACCES,
     false,
     "127.0.0.1",
     VEL_ERROR_GENERIC,
     {socket_line(7, "bind() returned error 13")},
     0},
    {"BindUdpEaddrnotavail",
     "bind",
     EADDRNOTAVAIL,
     true,
     "127.0.0.1",
     VEL_ERROR_GENERIC,
     {socket_line(7, "bind() returned error 99")},
     0},
    {"BindUdpPipe",
     "pipe",
     EMFILE,
     true,
     "127.0.0.1",
     VEL_ERROR_GENERIC,
     {kPipe, socket_line(7, "unable to enable wakeup on the UDP listen socket")},
     0},
    {"BindTcpNeedsNoPipe", "pipe", EMFILE, false, "127.0.0.1", VEL_ERROR_NONE, {}, 0},
    {"BindForeignFamilyBindsNothing",
     "bind",
     EACCES,
     false,
     "unix",
     VEL_ERROR_NONE,
     {socket_line(6, "unimplemented address family 1")},
     0},
    {"BindUdpForeignFamilyEndsThere",
     "pipe",
     EMFILE,
     true,
     "unix",
     VEL_ERROR_NONE,
     {socket_line(6, "unimplemented address family 1")},
     0},
    {"BindIpv6Socket",
     "socket AF_INET6",
     EAFNOSUPPORT,
     false,
     "::1",
     VEL_ERROR_GENERIC,
     {socket_line(7, "socket() call failed, error 97"), kNoIpv6},
     0},
    {"BindIpv6Fcntl",
     "fcntl F_SETFL",
     EPERM,
     true,
     "::1",
     VEL_ERROR_GENERIC,
     {kFcntl, kBlocking, kNoIpv6},
     0},
    {"Listen",
     "listen",
     EADDRINUSE,
     false,
     nullptr,
     VEL_ERROR_GENERIC,
     {socket_line(7, "listen() returned error 98")},
     2},
    {"ListenPipe",
     "pipe",
     EMFILE,
     false,
     nullptr,
     VEL_ERROR_GENERIC,
     {kPipe, socket_line(7, "unable to enable wakeup on the listen socket")},
     0},
};

class VelsocketSetupCase : public VelsocketFaults,
                           public testing::WithParamInterface<setup_case> {};

TEST_P(VelsocketSetupCase, IsTheResultAndKept)
{
    const setup_case &row = GetParam();
    velsocket *velsocket = row.udp ? vel_socket_udp_create() : vel_socket_tcp_create();
    ASSERT_NE(velsocket, nullptr);
    if (row.address)
        shim_.resolve({{row.address}});
    shim_.fail(row.call, row.platformerrno);
    EXPECT_EQ(row.address ? vel_socket_bind(velsocket, "address", 0)
                          : vel_socket_listen(velsocket, 5),
              row.result);
    EXPECT_EQ(vel_socket_get_error(velsocket), row.result);
    EXPECT_EQ(log_.take(), row.logged);
    vel_socket_destroy(velsocket);
    leaked_ += row.leaked;
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketSetupCase, testing::ValuesIn(kSetupCases),
                         [](const auto &row) { return row.param.name; });

TEST_F(VelsocketFaults, BindLooksUpNumericAddressesOfTheType)
{
    velsocket *tcp = vel_socket_tcp_create();
    velsocket *udp = vel_socket_udp_create();
    shim_.resolve_fails(EAI_NONAME);
    for (velsocket *velsocket : {tcp, udp}) {
        EXPECT_EQ(vel_socket_bind(velsocket, "address", 0), VEL_ERROR_INVALID_SYNTAX);
        EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_INVALID_SYNTAX);
        EXPECT_EQ(log_.take().back(),
                  socket_line(7, "address resolution failed, error 209 (invalid syntax)"));
        vel_socket_destroy(velsocket);
    }
    ASSERT_GE(shim_.lookups().size(), 2u);
    const addrinfo &udphints = shim_.lookups().back();
    const addrinfo &tcphints = shim_.lookups()[shim_.lookups().size() - 2];
    EXPECT_EQ(tcphints.ai_socktype, SOCK_STREAM);
    EXPECT_EQ(udphints.ai_socktype, SOCK_DGRAM);
    EXPECT_EQ(tcphints.ai_flags, AI_ADDRCONFIG | AI_V4MAPPED | AI_NUMERICHOST);
    EXPECT_EQ(udphints.ai_flags, AI_ADDRCONFIG | AI_V4MAPPED | AI_NUMERICHOST);
}

/* A descriptor of the right family stays, and the other is replaced by a stream. */
TEST_F(VelsocketFaults, BindToIpv6MakesAStream)
{
    velsocket *udp = vel_socket_udp_create();
    ASSERT_NE(udp, nullptr);
    shim_.resolve({{"::1"}});
    shim_.fail("bind", EADDRNOTAVAIL);
    EXPECT_EQ(vel_socket_bind(udp, "address", 0), VEL_ERROR_GENERIC);
    ASSERT_FALSE(shim_.sockets().empty());
    EXPECT_EQ(shim_.sockets().back(), (std::pair<int, int>(AF_INET6, SOCK_STREAM)));
    const size_t made = shim_.sockets().size();
    EXPECT_EQ(vel_socket_bind(udp, "address", 0), VEL_ERROR_GENERIC);
    EXPECT_EQ(shim_.sockets().size(), made);
    vel_socket_destroy(udp);
}

/* accept */

class VelsocketAcceptCase : public VelsocketFaults,
                            public testing::WithParamInterface<errno_case> {};

const errno_case kAcceptCases[] = {
    {"Einval", EINVAL, VEL_ERROR_INVALID_ARGUMENT, {}},
    {"Eagain", EAGAIN, VEL_ERROR_WOULD_BLOCK, {}},
    {"Emfile", EMFILE, VEL_ERROR_GENERIC, {socket_line(7, "accept() returned error 24")}},
    {"Econnaborted",
     ECONNABORTED,
     VEL_ERROR_GENERIC,
     {socket_line(7, "accept() returned error 103")}},
};

TEST_P(VelsocketAcceptCase, IsTheResultAndKept)
{
    velsocket *connection = listener_;
    shim_.fail("accept", GetParam().platformerrno);
    EXPECT_EQ(vel_socket_accept(listener_, &connection), GetParam().result);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(vel_socket_get_error(listener_), GetParam().result);
    EXPECT_EQ(log_.take(), GetParam().logged);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketAcceptCase, testing::ValuesIn(kAcceptCases), name_of);

TEST_F(VelsocketFaults, AcceptedConnectionThatMayBlockIsGivenUp)
{
    unsigned int port = 0;
    vel_error_t velerror = -1;
    ASSERT_EQ(vel_socket_get_local_port(listener_, &port), VEL_ERROR_NONE);
    velsocket *second = vel_socket_tcp_connect_with_timeout("127.0.0.1", port, 10, 0, &velerror);
    ASSERT_NE(second, nullptr);
    ASSERT_EQ(vel_socket_poll_read(listener_, 10, 0), VEL_ERROR_NONE);
    log_.clear();

    velsocket *connection = listener_;
    shim_.fail("fcntl F_SETFL", EPERM);
    EXPECT_EQ(vel_socket_accept(listener_, &connection), VEL_ERROR_GENERIC);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(vel_socket_get_error(listener_), VEL_ERROR_GENERIC);
    EXPECT_EQ(log_.take(),
              (log_lines{kFcntl, socket_line(7, "unable to set the connection socket to "
                                                "non-blocking mode")}));
    EXPECT_EQ(vel_socket_read_with_timeout(second, bytes_, sizeof bytes_, 10, 0), 0u);
    EXPECT_EQ(vel_socket_get_error(second), VEL_ERROR_END_OF_FILE);
    vel_socket_destroy(second);
}

/* getsockname and getpeername */

TEST_F(VelsocketFaults, LocalPort)
{
    unsigned int port = 99;
    shim_.fail("getsockname", ENOBUFS);
    EXPECT_EQ(vel_socket_get_local_port(server_, &port), VEL_ERROR_GENERIC);
    EXPECT_EQ(port, 0u);
    EXPECT_EQ(vel_socket_get_error(server_), VEL_ERROR_GENERIC);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "getsockname() returned error 105")}));
}

TEST_F(VelsocketFaults, LocalPortOfAForeignFamily)
{
    velsocket *velsocket = vel_socket_create(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_NE(velsocket, nullptr);
    unsigned int port = 99;
    EXPECT_EQ(vel_socket_get_local_port(velsocket, &port), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(port, 0u);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(6, "unimplemented address family 1")}));
    vel_socket_destroy(velsocket);
}

TEST_F(VelsocketFaults, PeerName)
{
    struct sockaddr_storage room;
    size_t length = sizeof room;
    shim_.fail("getpeername", ENOTCONN);
    EXPECT_EQ(
        vel_socket_get_peer_name(server_, reinterpret_cast<struct sockaddr *>(&room), &length),
        VEL_ERROR_GENERIC);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(vel_socket_get_error(server_), VEL_ERROR_GENERIC);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "getpeername() returned error 107")}));
}

TEST_F(VelsocketFaults, PeerNameOfAnotherType)
{
    velsocket *velsocket = vel_socket_create(AF_UNIX, SOCK_SEQPACKET, 0);
    ASSERT_NE(velsocket, nullptr);
    struct sockaddr_storage room;
    size_t length = sizeof room;
    EXPECT_EQ(
        vel_socket_get_peer_name(velsocket, reinterpret_cast<struct sockaddr *>(&room), &length),
        VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "unsupported socktype 5")}));
    vel_socket_destroy(velsocket);
}

/* Of an IPv6 sender 16 bytes are kept; what is handed out of the others is zero, and not what
 * happens to lie behind them. */
TEST_F(VelsocketFaults, Ipv6SenderIsCutShort)
{
    struct sockaddr_in6 sender = {};
    memset(&sender, 0xee, sizeof sender);
    sender.sin6_family = AF_INET6;
    sender.sin6_port = htons(1234);
    shim_.send_from(reinterpret_cast<struct sockaddr *>(&sender), sizeof sender);
    ASSERT_EQ(vel_socket_write(udpclient_, "ping", 4), 4u);
    ASSERT_EQ(vel_socket_read_with_timeout(udpserver_, bytes_, sizeof bytes_, 10, 0), 4u);

    unsigned char room[64];
    auto *sockaddr = reinterpret_cast<struct sockaddr *>(room);
    memset(room, 0xaa, sizeof room);
    size_t length = 27;
    EXPECT_EQ(vel_socket_get_peer_name(udpserver_, sockaddr, &length), VEL_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(length, 0u);
    length = sizeof room;
    EXPECT_EQ(vel_socket_get_peer_name(udpserver_, sockaddr, &length), VEL_ERROR_NONE);
    EXPECT_EQ(length, sizeof sender);
    EXPECT_EQ(memcmp(room, &sender, 16), 0);
    EXPECT_EQ(std::vector<unsigned char>(room + 16, room + 28), std::vector<unsigned char>(12, 0));
    EXPECT_EQ(room[28], 0xaa);
}

/* The wakeup pipe */

TEST_F(VelsocketFaults, EnableWakeup)
{
    shim_.fail("pipe", EMFILE, 0, 1);
    EXPECT_EQ(vel_socket_enable_wakeup(server_), VEL_ERROR_GENERIC);
    EXPECT_EQ(log_.take(), (log_lines{kPipe}));
    EXPECT_EQ(vel_socket_enable_wakeup(server_), VEL_ERROR_NONE);
    leaked_ += 2;
}

TEST_F(VelsocketFaults, WakeupWrite)
{
    shim_.fail("write", EIO);
    EXPECT_EQ(vel_socket_wakeup(listener_), VEL_ERROR_WRITE);
    EXPECT_EQ(log_.take(),
              (log_lines{socket_line(7, "unable to write to the wakeup pipe, error 5")}));
    EXPECT_EQ(vel_socket_poll_read(listener_, 0, 0), VEL_ERROR_TIMED_OUT);
}

/* The byte that could not be read ends the next wait too. */
TEST_F(VelsocketFaults, WakeupReadIsAWakeupAllTheSame)
{
    EXPECT_EQ(vel_socket_wakeup(listener_), VEL_ERROR_NONE);
    shim_.fail("read", EIO, 0, 1);
    EXPECT_EQ(vel_socket_poll_read(listener_, -1, 0), VEL_ERROR_WAKEUP);
    EXPECT_EQ(vel_socket_get_error(listener_), VEL_ERROR_WAKEUP);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(8, "wakeup pipe read failed, error 5")}));
    EXPECT_EQ(vel_socket_poll_read(listener_, -1, 0), VEL_ERROR_WAKEUP);
    EXPECT_EQ(log_.take(), log_lines{});
    EXPECT_EQ(vel_socket_poll_read(listener_, 0, 0), VEL_ERROR_TIMED_OUT);
}

} // namespace
