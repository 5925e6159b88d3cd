/* Walks through several addresses, with a resolver and with answers of addresses that the test
 * makes up. */

#include <cerrno>
#include <netdb.h>
#include <netinet/in.h>
#include <ostream>
#include <sys/socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/velsocket.h>

#include "support/netfixture.h"

using support::log_line;
using support::log_lines;
using support::net_address;
using support::socket_line;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr auto kNow = support::net_answer::now;
constexpr auto kLater = support::net_answer::later;
constexpr auto kSilent = support::net_answer::silent;

const log_line kInProgress = socket_line(13, "connection in progress");
const log_line kConnected = socket_line(13, "connected");
const log_line kRefused = socket_line(7, "connection refused");
const log_line kUnreachable = socket_line(7, "connect() returned network unreachable");
const log_line kTimeout = socket_line(7, "connect() returned timeout");
const log_line kEperm = socket_line(7, "connect() returned EPERM");
const log_line kForeign = socket_line(6, "unimplemented address family 1");
const log_line kListEnd =
    socket_line(7, "vel_socket_tcp_connect_next() returned 204 (end of file)");
const log_line kSkipIpv6 = socket_line(
    9, "connect() was not permitted to an IPv6 address, skip trying any other IPv6 addresses");
const log_line kPollTimedOut =
    socket_line(13, "polling for connecting socket returned error 201 (timed out)");

log_line failed_line(int level, const std::string &reason)
{
    return socket_line(level, "failed to connect host tcp port 80, error " + reason);
}

const log_line kFailedRefused = failed_line(7, "111 (connection refused)");
const log_line kFailedEnd = failed_line(7, "204 (end of file)");
const log_line kFailedTimedOut = failed_line(7, "201 (timed out)");

class VelsocketWalk : public support::net_test {
  protected:
    /* Connects with a time of 5 seconds and gives up what came of it. */
    vel_error_t connect_tcp()
    {
        vel_error_t velerror = -1;
        velsocket *velsocket = vel_socket_tcp_connect_with_timeout("host", 80, 5, 0, &velerror);
        EXPECT_EQ(velsocket != nullptr, velerror == VEL_ERROR_NONE);
        if (velsocket)
            vel_socket_destroy(velsocket);
        return velerror;
    }
};

struct walk_case {
    const char *name;
    std::vector<net_address> addresses;
    vel_error_t result;
    std::vector<std::string> connects;
    log_lines logged;
};

std::ostream &operator<<(std::ostream &out, const walk_case &row)
{
    return out << row.name;
}

const walk_case kWalkCases[] = {
    {"OneAtOnce", {{"127.0.0.1", kNow, 0}}, VEL_ERROR_NONE, {"127.0.0.1:80"}, {}},
    {"OneLater",
     {{"127.0.0.1", kLater, 0}},
     VEL_ERROR_NONE,
     {"127.0.0.1:80"},
     {kInProgress, kInProgress, kConnected}},
    {"Ipv6RefusedLaterIpv4Taken",
     {{"::1", kLater, ECONNREFUSED}, {"127.0.0.1", kLater, 0}},
     VEL_ERROR_NONE,
     {"[::1]:80", "127.0.0.1:80"},
     {kInProgress, kInProgress, kRefused, kInProgress, kInProgress, kConnected}},
    {"Ipv6RefusedLaterIpv4TakenAtOnce",
     {{"::1", kLater, ECONNREFUSED}, {"127.0.0.1", kNow, 0}},
     VEL_ERROR_NONE,
     {"[::1]:80", "127.0.0.1:80"},
     {kInProgress, kInProgress, kRefused}},
    {"Ipv6RefusedAtOnceIpv4Taken",
     {{"::1", kNow, ECONNREFUSED}, {"127.0.0.1", kLater, 0}},
     VEL_ERROR_NONE,
     {"[::1]:80", "127.0.0.1:80"},
     {kRefused, kInProgress, kInProgress, kConnected}},
    {"FirstRefusedSecondSilent",
     {{"127.0.0.1", kLater, ECONNREFUSED}, {"127.0.0.2", kSilent}},
     VEL_ERROR_TIMED_OUT,
     {"127.0.0.1:80", "127.0.0.2:80"},
     {kInProgress, kInProgress, kRefused, kInProgress, kInProgress, kPollTimedOut,
      kFailedTimedOut}},
    {"FirstSilentSecondNeverTried",
     {{"127.0.0.1", kSilent}, {"127.0.0.2", kLater, 0}},
     VEL_ERROR_TIMED_OUT,
     {"127.0.0.1:80"},
     {kInProgress, kInProgress, kPollTimedOut, kFailedTimedOut}},
    {"OneRefused",
     {{"127.0.0.1", kLater, ECONNREFUSED}},
     VEL_ERROR_CONNECTION_REFUSED,
     {"127.0.0.1:80"},
     {kInProgress, kInProgress, kRefused, kListEnd, kFailedRefused}},
    {"AllRefusedLater",
     {{"::1", kLater, ECONNREFUSED}, {"127.0.0.1", kLater, ECONNREFUSED}},
     VEL_ERROR_CONNECTION_REFUSED,
     {"[::1]:80", "127.0.0.1:80"},
     {kInProgress, kInProgress, kRefused, kInProgress, kInProgress, kRefused, kListEnd,
      kFailedRefused}},
    {"AllRefusedAtOnceIsEndOfFile",
     {{"::1", kNow, ECONNREFUSED}, {"127.0.0.1", kNow, ECONNREFUSED}},
     VEL_ERROR_END_OF_FILE,
     {"[::1]:80", "127.0.0.1:80"},
     {kRefused, kRefused, kListEnd, kFailedEnd}},
    {"RefusedLaterThenUnreachableAtOnce",
     {{"127.0.0.1", kLater, ECONNREFUSED}, {"127.0.0.2", kNow, ENETUNREACH}},
     VEL_ERROR_CONNECTION_REFUSED,
     {"127.0.0.1:80", "127.0.0.2:80"},
     {kInProgress, kInProgress, kRefused, kUnreachable, kListEnd, kFailedRefused}},
    {"RefusalBeatsTimeoutOfPlatform",
     {{"127.0.0.1", kLater, ECONNREFUSED}, {"127.0.0.2", kLater, ETIMEDOUT}},
     VEL_ERROR_CONNECTION_REFUSED,
     {"127.0.0.1:80", "127.0.0.2:80"},
     {kInProgress, kInProgress, kRefused, kInProgress, kInProgress, kTimeout, kListEnd,
      kFailedRefused}},
    {"TimeoutOfPlatformBeatsRefusal",
     {{"127.0.0.1", kLater, ETIMEDOUT}, {"127.0.0.2", kLater, ECONNREFUSED}},
     VEL_ERROR_CONNECTION_TIMED_OUT,
     {"127.0.0.1:80", "127.0.0.2:80"},
     {kInProgress, kInProgress, kTimeout, kInProgress, kInProgress, kRefused, kListEnd,
      failed_line(7, "110 (connection timed out)")}},
    {"FailureAtOnceIsKeptForTheWait",
     {{"127.0.0.1", kNow, ENETUNREACH}, {"127.0.0.2", kLater, ECONNREFUSED}},
     VEL_ERROR_NETWORK_UNREACHABLE,
     {"127.0.0.1:80", "127.0.0.2:80"},
     {kUnreachable, kInProgress, kInProgress, kRefused, kListEnd,
      failed_line(7, "101 (network unreachable)")}},
    {"Ipv6NotPermittedSkipsIpv6",
     {{"::1", kNow, EPERM}, {"::2", kLater, 0}, {"127.0.0.1", kLater, 0}},
     VEL_ERROR_NONE,
     {"[::1]:80", "127.0.0.1:80"},
     {kEperm, kSkipIpv6, kInProgress, kInProgress, kConnected}},
    {"Ipv4NotPermittedSkipsNothing",
     {{"127.0.0.1", kNow, EPERM}, {"127.0.0.2", kNow, EPERM}, {"::1", kLater, 0}},
     VEL_ERROR_NONE,
     {"127.0.0.1:80", "127.0.0.2:80", "[::1]:80"},
     {kEperm, kEperm, kInProgress, kInProgress, kConnected}},
    {"NotPermittedAtOnceIsForgotten",
     {{"::1", kNow, EPERM}, {"127.0.0.1", kLater, ECONNREFUSED}},
     VEL_ERROR_CONNECTION_REFUSED,
     {"[::1]:80", "127.0.0.1:80"},
     {kEperm, kSkipIpv6, kInProgress, kInProgress, kRefused, kListEnd, kFailedRefused}},
    {"NotPermittedLaterDoesNotReplaceRefusal",
     {{"127.0.0.1", kLater, ECONNREFUSED}, {"127.0.0.2", kLater, EPERM}},
     VEL_ERROR_CONNECTION_REFUSED,
     {"127.0.0.1:80", "127.0.0.2:80"},
     {kInProgress, kInProgress, kRefused, kInProgress, kInProgress, kEperm, kListEnd,
      kFailedRefused}},
    {"OnlyPermissionFailuresEndAsEndOfFile",
     {{"127.0.0.1", kLater, EPERM}, {"127.0.0.2", kLater, EPERM}},
     VEL_ERROR_END_OF_FILE,
     {"127.0.0.1:80", "127.0.0.2:80"},
     {kInProgress, kInProgress, kEperm, kInProgress, kInProgress, kEperm, kListEnd, kFailedEnd}},
    {"InterruptedConnectGoesOn",
     {{"127.0.0.1", kNow, EINTR}, {"127.0.0.2", kLater, 0}},
     VEL_ERROR_NONE,
     {"127.0.0.1:80", "127.0.0.2:80"},
     {socket_line(13, "connect() returned error 4"), kInProgress, kInProgress, kConnected}},
    {"InterruptedConnectIsReportedQuietly",
     {{"127.0.0.1", kLater, EINTR}},
     VEL_ERROR_INTERRUPTED,
     {"127.0.0.1:80"},
     {kInProgress, kInProgress, socket_line(13, "connect() returned error 4"), kListEnd,
      failed_line(13, "4 (interrupted system call)")}},
    {"ForeignFamilyIsSkipped",
     {{"unix"}, {"127.0.0.1", kLater, 0}},
     VEL_ERROR_NONE,
     {"127.0.0.1:80"},
     {kForeign, kInProgress, kInProgress, kConnected}},
    {"OnlyForeignFamilies",
     {{"unix"}},
     VEL_ERROR_END_OF_FILE,
     {},
     {kForeign, kListEnd, kFailedEnd}},
};

class VelsocketWalkCase : public VelsocketWalk, public testing::WithParamInterface<walk_case> {};

TEST_P(VelsocketWalkCase, TcpConnect)
{
    shim_.resolve(GetParam().addresses);
    EXPECT_EQ(connect_tcp(), GetParam().result);
    EXPECT_EQ(shim_.connects(), GetParam().connects);
    EXPECT_EQ(log_.take(), GetParam().logged);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketWalkCase, testing::ValuesIn(kWalkCases),
                         [](const auto &row) { return row.param.name; });

/* Each errno that an address may end with, as it comes out of the wait when it was the only one. */
struct outcome_case {
    const char *name;
    int platformerrno;
    vel_error_t result;
    int level;
    const char *text;
};

std::ostream &operator<<(std::ostream &out, const outcome_case &row)
{
    return out << row.name;
}

const outcome_case kOutcomeCases[] = {
    {"Eintr", EINTR, VEL_ERROR_INTERRUPTED, 13, "connect() returned error 4"},
    {"Ebadf", EBADF, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: connect() returned EBADF"},
    {"Eacces", EACCES, VEL_ERROR_ACCESS, 7, "connect() returned EACCES"},
    {"Efault", EFAULT, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: connect() returned EFAULT"},
    {"Eagain", EAGAIN, VEL_ERROR_GENERIC, 7, "connect() returned error 11"},
    {"Ealready", EALREADY, VEL_ERROR_GENERIC, 7, "connect() returned error 114"},
    {"Eafnosupport", EAFNOSUPPORT, VEL_ERROR_GENERIC, 7, "connect() returned error 97"},
    {"Eaddrinuse", EADDRINUSE, VEL_ERROR_GENERIC, 7, "connect() returned error 98"},
    {"Enotsock", ENOTSOCK, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: connect() returned ENOTSOCK"},
    {"Enetunreach", ENETUNREACH, VEL_ERROR_NETWORK_UNREACHABLE, 7,
     "connect() returned network unreachable"},
    {"Eisconn", EISCONN, VEL_ERROR_INTERNAL, 6, "INTERNAL ERROR: connect() returned EISCONN"},
    {"Etimedout", ETIMEDOUT, VEL_ERROR_CONNECTION_TIMED_OUT, 7, "connect() returned timeout"},
    {"Econnrefused", ECONNREFUSED, VEL_ERROR_CONNECTION_REFUSED, 7, "connection refused"},
    {"Ehostunreach", EHOSTUNREACH, VEL_ERROR_GENERIC, 6,
     "connect() returned an unhandled error 113"},
};

class VelsocketOutcomeCase : public VelsocketWalk,
                             public testing::WithParamInterface<outcome_case> {};

TEST_P(VelsocketOutcomeCase, OfTheOnlyAddress)
{
    shim_.resolve({{"127.0.0.1", kLater, GetParam().platformerrno}});
    vel_error_t velerror = -1;
    velsocket *velsocket = vel_socket_tcp_connect_async("host", 80, &velerror);
    ASSERT_NE(velsocket, nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(vel_socket_connect_wait(velsocket, -1, 0), GetParam().result);
    EXPECT_EQ(log_.take(), (log_lines{kInProgress, kInProgress,
                                      socket_line(GetParam().level, GetParam().text), kListEnd}));
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_NONE); /* that of the poll */
    vel_socket_destroy(velsocket);
}

/* At once, the same errno leaves its line, and nothing else of it is seen. */
TEST_P(VelsocketOutcomeCase, AtOnce)
{
    shim_.resolve({{"127.0.0.1", kNow, GetParam().platformerrno}});
    EXPECT_EQ(connect_tcp(), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(log_.take(),
              (log_lines{socket_line(GetParam().level, GetParam().text), kListEnd, kFailedEnd}));
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketOutcomeCase, testing::ValuesIn(kOutcomeCases),
                         [](const auto &row) { return row.param.name; });

/* No other outcome leaves a connect that can be waited for again. */
TEST_F(VelsocketWalk, OutcomeStillInProgressEndsTheWaitAndNotTheConnect)
{
    shim_.resolve({{"127.0.0.1", kLater, EINPROGRESS}});
    vel_error_t velerror = -1;
    velsocket *velsocket = vel_socket_tcp_connect_async("host", 80, &velerror);
    ASSERT_NE(velsocket, nullptr);
    EXPECT_EQ(vel_socket_connect_wait(velsocket, 5, 0), VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(log_.take(), (log_lines{kInProgress, kInProgress, kInProgress, kListEnd}));
    EXPECT_THAT(shim_.waits(), ElementsAre(5000));

    shim_.answer({"127.0.0.1", kLater, 0});
    EXPECT_EQ(vel_socket_connect_wait(velsocket, 5, 0), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_connect_wait(velsocket, 5, 0), VEL_ERROR_BAD_HANDLE);
    vel_socket_destroy(velsocket);
}

TEST_F(VelsocketWalk, LookupAsksForTcpOfAnyFamily)
{
    shim_.resolve({{"127.0.0.1", kNow, 0}});
    EXPECT_EQ(connect_tcp(), VEL_ERROR_NONE);
    ASSERT_EQ(shim_.lookups().size(), 1u);
    EXPECT_EQ(shim_.lookups()[0].ai_family, AF_UNSPEC);
    EXPECT_EQ(shim_.lookups()[0].ai_socktype, SOCK_STREAM);
    EXPECT_EQ(shim_.lookups()[0].ai_protocol, IPPROTO_TCP);
    EXPECT_EQ(shim_.lookups()[0].ai_flags, AI_ADDRCONFIG | AI_V4MAPPED);
}

TEST_F(VelsocketWalk, FailedLookupEndsTheConnect)
{
    shim_.resolve_fails(EAI_AGAIN);
    EXPECT_EQ(connect_tcp(), VEL_ERROR_TEMPORARY_FAILURE);
    EXPECT_EQ(
        log_.take(),
        (log_lines{{"net/veladdrinfo", 7,
                    "getaddrinfo() returned error -3 "
                    "(EAI_AGAIN; temporary failure in name resolution)"},
                   socket_line(7, "name resolution failed, error 218 (temporary failure)"),
                   socket_line(7, "vel_socket_tcp_connect_next() returned 218 (temporary failure)"),
                   failed_line(7, "218 (temporary failure)")}));
}

const log_line kNoInit = socket_line(7, "unable to initialize socket, error 202 (generic error)");
const log_line kNoIpv4 =
    socket_line(7, "unable to create a TCP socket for IPv4, error 202 (generic error)");
const log_line kNoIpv6 =
    socket_line(7, "unable to create a TCP socket for IPv6, error 202 (generic error)");

TEST_F(VelsocketWalk, FamilyWithoutSocketsIsTriedOnceBeforeTheFirstSocket)
{
    shim_.resolve({{"::1", kLater, 0}, {"::2", kLater, 0}, {"127.0.0.1", kLater, 0}});
    shim_.fail("socket AF_INET6", EAFNOSUPPORT);
    EXPECT_EQ(connect_tcp(), VEL_ERROR_NONE);
    EXPECT_THAT(shim_.connects(), ElementsAre("127.0.0.1:80"));
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "socket() call failed, error 97"), kNoInit,
                                      kNoIpv6, kInProgress, kInProgress, kConnected}));
}

TEST_F(VelsocketWalk, FamilyWithoutSocketsIsTriedOnceAfterAnotherFamily)
{
    shim_.resolve({{"::1", kLater, ECONNREFUSED},
                   {"127.0.0.1", kLater, 0},
                   {"127.0.0.2", kLater, 0},
                   {"::2", kLater, ETIMEDOUT}});
    shim_.fail("socket AF_INET", EMFILE);
    EXPECT_EQ(connect_tcp(), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_THAT(shim_.connects(), ElementsAre("[::1]:80", "[::2]:80"));
    EXPECT_EQ(log_.take(),
              (log_lines{kInProgress, kInProgress, kRefused,
                         socket_line(7, "socket() call failed, error 24"), kNoIpv4, kInProgress,
                         kInProgress, kTimeout, kListEnd, kFailedRefused}));
}

TEST_F(VelsocketWalk, SocketThatStaysBlockingIsNotUsed)
{
    shim_.resolve({{"::1", kLater, 0}, {"127.0.0.1", kLater, 0}});
    shim_.fail("fcntl F_SETFL", EPERM, 0, 1);
    EXPECT_EQ(connect_tcp(), VEL_ERROR_NONE);
    EXPECT_THAT(shim_.connects(), ElementsAre("127.0.0.1:80"));
    EXPECT_EQ(log_.take(),
              (log_lines{socket_line(7, "fcntl() returned error -1"),
                         socket_line(7, "unable to set the socket to non-blocking mode"), kNoInit,
                         kNoIpv6, kInProgress, kInProgress, kConnected}));
}

TEST_F(VelsocketWalk, NoFamilyHasSockets)
{
    shim_.resolve({{"::1", kLater, 0}, {"127.0.0.1", kLater, 0}, {"127.0.0.2", kLater, 0}});
    shim_.fail("socket", ENFILE);
    EXPECT_EQ(connect_tcp(), VEL_ERROR_END_OF_FILE);
    EXPECT_THAT(shim_.connects(), IsEmpty());
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "socket() call failed, error 23"), kNoInit,
                                      kNoIpv6, socket_line(7, "socket() call failed, error 23"),
                                      kNoInit, kNoIpv4, kListEnd, kFailedEnd}));
}

TEST_F(VelsocketWalk, TimeIsThatOfAllAddresses)
{
    shim_.resolve({{"127.0.0.1", kLater, ECONNREFUSED},
                   {"127.0.0.2", kLater, ECONNREFUSED},
                   {"127.0.0.3", kLater, 0}});
    EXPECT_EQ(connect_tcp(), VEL_ERROR_NONE);
    ASSERT_EQ(shim_.waits().size(), 3u);
    EXPECT_EQ(shim_.waits()[0], 5000);
    EXPECT_LE(shim_.waits()[1], 5000);
    EXPECT_LE(shim_.waits()[2], shim_.waits()[1]);
    EXPECT_GT(shim_.waits()[2], 0);
}

TEST_F(VelsocketWalk, WithoutTimeTheWaitsAreInfinite)
{
    shim_.resolve({{"127.0.0.1", kLater, ECONNREFUSED}, {"127.0.0.2", kLater, 0}});
    vel_error_t velerror = -1;
    velsocket *velsocket = vel_socket_tcp_connect("host", 80, &velerror);
    ASSERT_NE(velsocket, nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_NONE);
    EXPECT_THAT(shim_.waits(), ElementsAre(-1, -1));
    vel_socket_destroy(velsocket);
}

TEST_F(VelsocketWalk, TimeMayRunOutBetweenTwoAddresses)
{
    shim_.resolve({{"127.0.0.1", kLater, ECONNREFUSED}, {"127.0.0.2", kLater, 0}});
    vel_error_t velerror = -1;
    EXPECT_EQ(vel_socket_tcp_connect_with_timeout("host", 80, 0, 0, &velerror), nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(log_.take(),
              (log_lines{kInProgress, kInProgress, kRefused, kInProgress, kInProgress,
                         socket_line(13, "connect timeout occurred"), kFailedTimedOut}));
}

TEST_F(VelsocketWalk, WaitMayBeRepeatedAfterTimeout)
{
    shim_.resolve({{"127.0.0.1", kSilent}, {"127.0.0.2", kLater, 0}});
    vel_error_t velerror = -1;
    velsocket *velsocket = vel_socket_tcp_connect_async("host", 80, &velerror);
    ASSERT_NE(velsocket, nullptr);
    EXPECT_EQ(vel_socket_connect_wait(velsocket, 1, 1), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(vel_socket_connect_wait(velsocket, 0, 0), VEL_ERROR_TIMED_OUT);

    shim_.answer({"127.0.0.1", kLater, ECONNREFUSED});
    EXPECT_EQ(vel_socket_connect_wait(velsocket, 5, 0), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_connect_wait(velsocket, 5, 0), VEL_ERROR_BAD_HANDLE);
    EXPECT_THAT(shim_.connects(), ElementsAre("127.0.0.1:80", "127.0.0.2:80"));
    ASSERT_EQ(shim_.waits().size(), 4u);
    EXPECT_EQ(shim_.waits()[0], 1001);
    EXPECT_EQ(shim_.waits()[1], 0);
    EXPECT_EQ(shim_.waits()[2], 5000);
    vel_socket_destroy(velsocket);
}

TEST_F(VelsocketWalk, DestroyEndsAConnectInProgress)
{
    shim_.resolve({{"127.0.0.1", kSilent}});
    vel_error_t velerror = -1;
    velsocket *velsocket = vel_socket_tcp_connect_async("host", 80, &velerror);
    ASSERT_NE(velsocket, nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(shim_.open_lists(), 1);
    vel_socket_destroy(velsocket);
}

struct poll_case {
    const char *name;
    int platformerrno;
    vel_error_t result;
    log_lines logged;
};

std::ostream &operator<<(std::ostream &out, const poll_case &row)
{
    return out << row.name;
}

const poll_case kPollCases[] = {
    {"Eintr",
     EINTR,
     VEL_ERROR_INTERRUPTED,
     {socket_line(13, "polling for connecting socket returned error 4 (interrupted system call)"),
      failed_line(13, "4 (interrupted system call)")}},
    {"Enomem",
     ENOMEM,
     VEL_ERROR_NO_MEMORY,
     {socket_line(7, "polling for connecting socket returned error 12 (not enough memory)"),
      failed_line(7, "12 (not enough memory)")}},
    {"Einval",
     EINVAL,
     VEL_ERROR_INTERNAL,
     {socket_line(7, "polling for connecting socket returned error 208 (internal error)"),
      failed_line(7, "208 (internal error)")}},
    {"Eio",
     EIO,
     VEL_ERROR_GENERIC,
     {socket_line(6, "poll() returned an unhandled error 5"),
      socket_line(7, "polling for connecting socket returned error 202 (generic error)"),
      failed_line(7, "202 (generic error)")}},
};

class VelsocketWalkPollCase : public VelsocketWalk,
                              public testing::WithParamInterface<poll_case> {};

/* The second address would take the connection. */
TEST_P(VelsocketWalkPollCase, FailedPollEndsTheWalk)
{
    shim_.resolve({{"127.0.0.1", kLater, ECONNREFUSED}, {"127.0.0.2", kLater, 0}});
    shim_.fail("poll", GetParam().platformerrno);
    EXPECT_EQ(connect_tcp(), GetParam().result);
    log_lines logged = {kInProgress, kInProgress};
    logged.insert(logged.end(), GetParam().logged.begin(), GetParam().logged.end());
    EXPECT_EQ(log_.take(), logged);
    EXPECT_THAT(shim_.connects(), ElementsAre("127.0.0.1:80"));
}

INSTANTIATE_TEST_SUITE_P(Rows, VelsocketWalkPollCase, testing::ValuesIn(kPollCases),
                         [](const auto &row) { return row.param.name; });

TEST_F(VelsocketWalk, InterruptedWaitLosesTheWalk)
{
    shim_.resolve({{"127.0.0.1", kLater, 0}});
    shim_.fail("poll", EINTR, 0, 1);
    vel_error_t velerror = -1;
    velsocket *velsocket = vel_socket_tcp_connect_async("host", 80, &velerror);
    ASSERT_NE(velsocket, nullptr);
    EXPECT_EQ(vel_socket_connect_wait(velsocket, 5, 0), VEL_ERROR_INTERRUPTED);
    EXPECT_EQ(vel_socket_connect_wait(velsocket, 5, 0), VEL_ERROR_BAD_HANDLE);
    vel_socket_destroy(velsocket);
}

/* The line has what the call returned and not its errno. */
TEST_F(VelsocketWalk, FailedGetsockoptEndsTheWalk)
{
    shim_.resolve({{"127.0.0.1", kLater, 0}, {"127.0.0.2", kLater, 0}});
    shim_.fail("getsockopt", ENOBUFS);
    EXPECT_EQ(connect_tcp(), VEL_ERROR_GENERIC);
    EXPECT_EQ(log_.take(),
              (log_lines{kInProgress, kInProgress, socket_line(7, "getsockopt() failed, error -1"),
                         failed_line(7, "202 (generic error)")}));
    EXPECT_THAT(shim_.connects(), ElementsAre("127.0.0.1:80"));
}

/* The platform's own answers. */
class VelsocketRealWalk : public VelsocketWalk {
  protected:
    void SetUp() override
    {
        listener_ = vel_socket_tcp_create();
        ASSERT_NE(listener_, nullptr);
        ASSERT_EQ(vel_socket_bind(listener_, "127.0.0.1", 0), VEL_ERROR_NONE);
        ASSERT_EQ(vel_socket_get_local_port(listener_, &port_), VEL_ERROR_NONE);
        ASSERT_EQ(vel_socket_listen(listener_, 5), VEL_ERROR_NONE);
        leaked_ = 2;
    }
    void TearDown() override
    {
        if (listener_)
            vel_socket_destroy(listener_);
        VelsocketWalk::TearDown();
    }

    /* Sends through a connection, which must lead to the listener, and ends it. */
    void use_and_destroy(velsocket *client)
    {
        velsocket *server = nullptr;
        ASSERT_EQ(vel_socket_poll_read(listener_, 10, 0), VEL_ERROR_NONE);
        ASSERT_EQ(vel_socket_accept(listener_, &server), VEL_ERROR_NONE);
        EXPECT_EQ(vel_socket_write(client, "ping", 4), 4u);
        char bytes[8];
        EXPECT_EQ(vel_socket_read_with_timeout(server, bytes, sizeof bytes, 10, 0), 4u);
        vel_socket_destroy(server);
        vel_socket_destroy(client);
    }

    velsocket *listener_ = nullptr;
    unsigned int port_ = 0;
};

TEST_F(VelsocketRealWalk, RefusedThenTaken)
{
    shim_.resolve({{"127.0.0.2"}, {"127.0.0.1"}});
    vel_error_t velerror = -1;
    velsocket *client = vel_socket_tcp_connect_with_timeout("host", port_, 10, 0, &velerror);
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_NONE);
    EXPECT_THAT(log_.take(), testing::Contains(kRefused));
    use_and_destroy(client);
}

TEST_F(VelsocketRealWalk, GenericRefusedThenTaken)
{
    shim_.resolve({{"127.0.0.2"}, {"127.0.0.1"}});
    velsocket *client = vel_socket_tcp_create();
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(vel_socket_connect(client, "host", port_), VEL_ERROR_NONE);
    use_and_destroy(client);
}

TEST_F(VelsocketRealWalk, AllRefused)
{
    shim_.resolve({{"127.0.0.2"}, {"127.0.0.3"}});
    vel_error_t velerror = -1;
    EXPECT_EQ(vel_socket_tcp_connect_with_timeout("host", port_, 10, 0, &velerror), nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_CONNECTION_REFUSED);
}

/* The walk on a socket of the caller's. */
class VelsocketGenericWalk : public VelsocketWalk {
  protected:
    void SetUp() override
    {
        velsocket_ = vel_socket_tcp_create();
        ASSERT_NE(velsocket_, nullptr);
    }
    void TearDown() override
    {
        if (velsocket_)
            vel_socket_destroy(velsocket_);
        VelsocketWalk::TearDown();
    }
    velsocket *velsocket_ = nullptr;
};

TEST_F(VelsocketGenericWalk, RefusedThenTaken)
{
    shim_.resolve({{"::1", kLater, ECONNREFUSED}, {"127.0.0.1", kLater, 0}});
    EXPECT_EQ(vel_socket_connect(velsocket_, "host", 80), VEL_ERROR_NONE);
    EXPECT_EQ(vel_socket_get_error(velsocket_), VEL_ERROR_NONE);
    EXPECT_THAT(shim_.waits(), ElementsAre(-1, -1));
    EXPECT_EQ(log_.take(), (log_lines{kInProgress, kInProgress, kRefused, kInProgress, kInProgress,
                                      kConnected}));
    EXPECT_EQ(vel_socket_connect_wait(velsocket_, -1, 0), VEL_ERROR_BAD_HANDLE);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(6, "invalid call, no connect context present")}));
}

/* Here a failure in the wait is not logged a second time, with the name. */
TEST_F(VelsocketGenericWalk, AllRefusedLater)
{
    shim_.resolve({{"::1", kLater, ECONNREFUSED}, {"127.0.0.1", kLater, ECONNREFUSED}});
    EXPECT_EQ(vel_socket_connect(velsocket_, "host", 80), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(vel_socket_get_error(velsocket_), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(log_.take(), (log_lines{kInProgress, kInProgress, kRefused, kInProgress, kInProgress,
                                      kRefused, kListEnd}));
}

TEST_F(VelsocketGenericWalk, AllRefusedAtOnceIsEndOfFile)
{
    shim_.resolve({{"::1", kNow, ECONNREFUSED}, {"127.0.0.1", kNow, ECONNREFUSED}});
    EXPECT_EQ(vel_socket_connect(velsocket_, "host", 80), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(vel_socket_get_error(velsocket_), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(log_.take(),
              (log_lines{kRefused, kRefused,
                         socket_line(7, "vel_socket_connect_next() returned 204 (end of file)"),
                         kFailedEnd}));
    EXPECT_EQ(vel_socket_connect_wait(velsocket_, -1, 0), VEL_ERROR_BAD_HANDLE);
}

TEST_F(VelsocketGenericWalk, Ipv6NotPermittedSkipsNothing)
{
    shim_.resolve({{"::1", kNow, EPERM}, {"::2", kNow, EPERM}, {"127.0.0.1", kNow, 0}});
    EXPECT_EQ(vel_socket_connect_async(velsocket_, "host", 80), VEL_ERROR_NONE);
    EXPECT_THAT(shim_.connects(), ElementsAre("[::1]:80", "[::2]:80", "127.0.0.1:80"));
    EXPECT_EQ(log_.take(), (log_lines{kEperm, kEperm}));
}

TEST_F(VelsocketGenericWalk, FailedLookup)
{
    shim_.resolve_fails(EAI_NONAME);
    EXPECT_EQ(vel_socket_connect(velsocket_, "host", 80), VEL_ERROR_HOST_UNRESOLVED);
    EXPECT_EQ(vel_socket_get_error(velsocket_), VEL_ERROR_HOST_UNRESOLVED);
    EXPECT_EQ(log_.take(),
              (log_lines{
                  {"net/veladdrinfo", 7,
                   "getaddrinfo() returned error -2 (EAI_NONAME; name does not resolve)"},
                  socket_line(7, "name resolution failed, error 210 (unable to resolve host)"),
                  socket_line(7, "vel_socket_connect_next() returned 210 (unable to resolve host)"),
                  failed_line(7, "210 (unable to resolve host)")}));
}

TEST_F(VelsocketGenericWalk, FamiliesWithoutSocketsAreTriedOnce)
{
    shim_.resolve(
        {{"::1", kNow, 0}, {"::2", kNow, 0}, {"127.0.0.1", kNow, 0}, {"127.0.0.2", kNow, 0}});
    shim_.fail("socket", EMFILE);
    EXPECT_EQ(vel_socket_connect_async(velsocket_, "host", 80), VEL_ERROR_END_OF_FILE);
    EXPECT_THAT(shim_.connects(), IsEmpty());
    EXPECT_EQ(log_.take(),
              (log_lines{socket_line(7, "socket() call failed, error 24"), kNoIpv6,
                         socket_line(7, "socket() call failed, error 24"), kNoIpv4,
                         socket_line(7, "vel_socket_connect_next() returned 204 (end of file)")}));
}

TEST_F(VelsocketWalk, UdpSocketGetsUdpDescriptorsAndFromTheWaitTcpOnes)
{
    velsocket *udp = vel_socket_udp_create();
    ASSERT_NE(udp, nullptr);
    shim_.resolve({{"127.0.0.1", kNow, ECONNREFUSED},
                   {"::1", kLater, ECONNREFUSED},
                   {"127.0.0.2", kLater, 0}});
    EXPECT_EQ(vel_socket_connect_async(udp, "host", 80), VEL_ERROR_IN_PROGRESS);
    EXPECT_EQ(vel_socket_get_error(udp), VEL_ERROR_IN_PROGRESS);
    ASSERT_EQ(shim_.lookups().size(), 1u);
    EXPECT_EQ(shim_.lookups()[0].ai_socktype, SOCK_DGRAM);
    EXPECT_EQ(shim_.lookups()[0].ai_protocol, IPPROTO_UDP);
    EXPECT_EQ(vel_socket_connect_wait(udp, 5, 0), VEL_ERROR_NONE);
    EXPECT_THAT(shim_.sockets(), ElementsAre(std::pair<int, int>(AF_INET, SOCK_DGRAM),
                                             std::pair<int, int>(AF_INET, SOCK_DGRAM),
                                             std::pair<int, int>(AF_INET6, SOCK_DGRAM),
                                             std::pair<int, int>(AF_INET, SOCK_STREAM)));
    vel_socket_destroy(udp);
}

TEST_F(VelsocketWalk, OtherTypesAreUnsupported)
{
    velsocket *velsocket = vel_socket_create(AF_UNIX, SOCK_SEQPACKET, 0);
    ASSERT_NE(velsocket, nullptr);
    shim_.resolve({{"127.0.0.1", kNow, 0}});
    EXPECT_EQ(vel_socket_connect(velsocket, "host", 80), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(vel_socket_get_error(velsocket), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(log_.take(), (log_lines{socket_line(7, "unsupported socktype 5"),
                                      failed_line(7, "205 (unsupported operation)")}));
    EXPECT_THAT(shim_.lookups(), IsEmpty());
    vel_socket_destroy(velsocket); /* and with it the context that is still there */
}

/* The walk of a UDP destination, which connects nothing. */

const log_line kTooLong = socket_line(7, "address length 28 exceeds the maximum 16 supported");

TEST_F(VelsocketWalk, UdpTakesTheFirstIpv4Address)
{
    shim_.resolve({{"::1"}, {"unix"}, {"127.0.0.1"}, {"127.0.0.2"}});
    vel_error_t velerror = -1;
    velsocket *velsocket = vel_socket_udp_connect("host", 80, &velerror);
    ASSERT_NE(velsocket, nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_NONE);
    EXPECT_EQ(log_.take(), (log_lines{kTooLong, kForeign}));
    EXPECT_THAT(shim_.connects(), IsEmpty());
    EXPECT_THAT(shim_.sockets(), ElementsAre(std::pair<int, int>(AF_INET6, SOCK_DGRAM),
                                             std::pair<int, int>(AF_INET, SOCK_DGRAM)));
    EXPECT_EQ(shim_.open_lists(), 0);
    vel_socket_destroy(velsocket);
}

TEST_F(VelsocketWalk, UdpHasNoUseForIpv6)
{
    shim_.resolve({{"::1"}, {"::2"}});
    vel_error_t velerror = -1;
    EXPECT_EQ(vel_socket_udp_connect("host", 80, &velerror), nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(log_.take(), (log_lines{kTooLong, kTooLong}));
}

TEST_F(VelsocketWalk, UdpFamiliesWithoutSocketsAreTriedOnce)
{
    shim_.resolve({{"::1"}, {"::2"}, {"127.0.0.1"}, {"127.0.0.2"}});
    shim_.fail("socket", EMFILE);
    vel_error_t velerror = -1;
    EXPECT_EQ(vel_socket_udp_connect("host", 80, &velerror), nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(
        log_.take(),
        (log_lines{
            socket_line(7, "socket() call failed, error 24"), kNoInit,
            socket_line(7, "unable to create a UDP socket for IPv6, error 202 (generic error)"),
            socket_line(7, "socket() call failed, error 24"), kNoInit,
            socket_line(7, "unable to create a UDP socket for IPv4, error 202 (generic error)")}));
}

TEST_F(VelsocketWalk, UdpLookupFails)
{
    shim_.resolve_fails(EAI_FAIL);
    vel_error_t velerror = -1;
    EXPECT_EQ(vel_socket_udp_connect("host", 80, &velerror), nullptr);
    EXPECT_EQ(velerror, VEL_ERROR_PERMANENT_FAILURE);
    EXPECT_EQ(log_.take(),
              (log_lines{{"net/veladdrinfo", 7,
                          "getaddrinfo() returned error -4 "
                          "(EAI_FAIL; permanent failure in name resolution)"},
                         socket_line(7, "name resolution failed, error 219 (permanent failure)")}));
}

} // namespace
