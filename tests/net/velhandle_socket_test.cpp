/* What the handles over TCP and UDP have in common. */

#include <cerrno>
#include <netdb.h>
#include <netinet/in.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/descriptors.h"
#include "support/netfixture.h"
#include "support/platform_malloc.h"

namespace {

using support::asserts;
using support::log_line;
using support::log_lines;

struct tcp_twin {
    static constexpr auto create = vel_handle_tcp_create;
    static constexpr auto connect = vel_handle_tcp_connect;
    static constexpr auto listen = vel_handle_tcp_listen;
    static constexpr const char *module = "net/velhandle_tcp";
    static constexpr const char *lower = "tcp";
    static constexpr const char *upper = "TCP";
    static constexpr const char *function = "vel_handle_tcp_";
    static constexpr const char *send = "send";
    static constexpr const char *record = "tcp != NULL";
    static constexpr int type = SOCK_STREAM;
};

struct udp_twin {
    static constexpr auto create = vel_handle_udp_create;
    static constexpr auto connect = vel_handle_udp_connect;
    static constexpr auto listen = vel_handle_udp_listen;
    static constexpr const char *module = "net/velhandle_udp";
    static constexpr const char *lower = "udp";
    static constexpr const char *upper = "UDP";
    static constexpr const char *function = "vel_handle_udp_";
    static constexpr const char *send = "sendto";
    static constexpr const char *record = "udp != NULL";
    static constexpr int type = SOCK_DGRAM;
};

template <typename Twin> class VelhandleSocket : public support::net_test {
  protected:
    void TearDown() override
    {
        for (velhandle *velhandle : {accepted_, client_, listener_}) {
            if (velhandle)
                vel_handle_destroy(velhandle);
        }
        net_test::TearDown();
    }

    /* Opens listener_ on the loopback network. */
    void listen()
    {
        ASSERT_EQ(Twin::listen("127.0.0.1", 0, &listener_), VEL_ERROR_NONE);
        ASSERT_NE(listener_, nullptr);
        leaked_ += 2;
        vel_handle_set_read_timeout(listener_, 20, 0);
        port_ = 0;
        ASSERT_EQ(vel_handle_get_local_port(listener_, &port_), VEL_ERROR_NONE);
        log_.clear();
    }

    /* Makes server() the other end of client_. */
    void connect()
    {
        listen();
        client_ = Twin::connect("127.0.0.1", port_);
        ASSERT_NE(client_, nullptr);
        if (Twin::type == SOCK_STREAM) {
            ASSERT_EQ(vel_handle_accept(listener_, &accepted_), VEL_ERROR_NONE);
            vel_handle_set_read_timeout(accepted_, 20, 0);
        }
        vel_handle_set_read_timeout(client_, 20, 0);
        log_.clear();
    }
    velhandle *server()
    {
        return accepted_ ? accepted_ : listener_;
    }

    std::string read(velhandle *velhandle)
    {
        std::string bytes(100, '?');
        bytes.resize(vel_handle_read(velhandle, bytes.data(), bytes.size()));
        return bytes;
    }

    log_line line(int level, const std::string &text)
    {
        return {Twin::module, level, text};
    }
    std::string upper(const std::string &text)
    {
        return replaced(text, Twin::upper);
    }
    std::string lower(const std::string &text)
    {
        return replaced(text, Twin::lower);
    }
    static std::string replaced(std::string text, const std::string &name)
    {
        return text.replace(text.find('@'), 1, name);
    }

    /* The lines of the module itself, without those of the modules below and above. */
    log_lines own_lines()
    {
        log_lines own;
        for (const log_line &logged : log_.take()) {
            if (logged.module == Twin::module)
                own.push_back(logged);
        }
        return own;
    }

    velhandle *listener_ = nullptr;
    velhandle *client_ = nullptr;
    velhandle *accepted_ = nullptr;
    unsigned int port_ = 0;
};

using twins = testing::Types<tcp_twin, udp_twin>;

struct twin_name {
    template <typename Twin> static std::string GetName(int)
    {
        return Twin::lower;
    }
};

TYPED_TEST_SUITE(VelhandleSocket, twins, twin_name);

/* Creation. */

TYPED_TEST(VelhandleSocket, CreateMakesNoSocket)
{
    this->client_ = TypeParam::create();
    ASSERT_NE(this->client_, nullptr);
    EXPECT_EQ(support::open_descriptors(), this->before_);
    EXPECT_NE(vel_handle_get_context(this->client_), nullptr);
    EXPECT_EQ(vel_handle_get_error(this->client_), VEL_ERROR_NONE);
    EXPECT_EQ(this->log_.take(), log_lines{});
}

TYPED_TEST(VelhandleSocket, CreateNeedsMemory)
{
    const log_line unable = this->line(7, "unable to create an velhandle");
    const log_lines logged[] = {
        {{"io/velhandle", 7, "not enough memory for velhandle"}, unable},
        {unable},
        {this->line(7, this->upper("not enough memory for @ handle"))},
    };
    for (size_t i = 0; i < 3; i++) {
        velhandle *velhandle = nullptr;
        {
            const support::malloc_watch watch(i + 1);
            velhandle = TypeParam::create();
        }
        EXPECT_EQ(velhandle, nullptr);
        EXPECT_EQ(this->log_.take(), logged[i]);
    }
}

/* Connecting. */

TYPED_TEST(VelhandleSocket, ConnectedHandlesExchangeBytes)
{
    this->connect();
    EXPECT_EQ(vel_handle_write(this->client_, "question", 8), 8u);
    EXPECT_EQ(this->read(this->server()), "question");
    EXPECT_EQ(vel_handle_write(this->server(), "answer", 6), 6u);
    EXPECT_EQ(this->read(this->client_), "answer");
    EXPECT_EQ(vel_handle_get_error(this->client_), VEL_ERROR_NONE);
    EXPECT_EQ(this->own_lines(), log_lines{});
}

TYPED_TEST(VelhandleSocket, CreatedHandleConnects)
{
    this->listen();
    this->client_ = TypeParam::create();
    EXPECT_EQ(vel_handle_connect(this->client_, "127.0.0.1", this->port_), VEL_ERROR_NONE);
    unsigned int port = 0;
    EXPECT_EQ(vel_handle_write(this->client_, "x", 1), 1u); /* gives a UDP socket its port */
    EXPECT_EQ(vel_handle_get_local_port(this->client_, &port), VEL_ERROR_NONE);
    EXPECT_GT(port, 0u);
    EXPECT_EQ(this->own_lines(), log_lines{});
}

TYPED_TEST(VelhandleSocket, SecondConnectIsRefusedAndTheConnectionStands)
{
    this->connect();
    EXPECT_EQ(vel_handle_connect(this->client_, "127.0.0.1", this->port_), VEL_ERROR_BUSY);
    EXPECT_EQ(this->log_.take(), (log_lines{this->line(7, "this handle is already connected")}));
    EXPECT_EQ(vel_handle_connect_begin(this->client_, "127.0.0.1", 9), VEL_ERROR_BUSY);
    EXPECT_EQ(vel_handle_write(this->client_, "ping", 4), 4u);
    EXPECT_EQ(this->read(this->server()), "ping");
}

TYPED_TEST(VelhandleSocket, ListenerDoesNotConnect)
{
    this->listen();
    EXPECT_EQ(vel_handle_connect(this->listener_, "127.0.0.1", 9), VEL_ERROR_BUSY);
    EXPECT_EQ(this->log_.take(), (log_lines{this->line(7, "this handle is already connected")}));
}

TYPED_TEST(VelhandleSocket, FailedConnectMayBeTriedAgain)
{
    this->listen();
    this->client_ = TypeParam::create();
    this->shim_.resolve_fails(EAI_NONAME);
    EXPECT_EQ(vel_handle_connect(this->client_, "host", 80), VEL_ERROR_HOST_UNRESOLVED);
    EXPECT_EQ(this->own_lines(),
              (log_lines{this->line(7, this->lower("failed to connect host @ port 80, error 210 "
                                                   "(unable to resolve host)"))}));
    this->shim_.resolve({{"127.0.0.1"}});
    EXPECT_EQ(vel_handle_connect(this->client_, "host", this->port_), VEL_ERROR_NONE);
}

TYPED_TEST(VelhandleSocket, ConnectGivesNothingOnFailure)
{
    this->shim_.resolve_fails(EAI_NONAME);
    EXPECT_EQ(TypeParam::connect("host", 80), nullptr);
    EXPECT_EQ(
        this->own_lines(),
        (log_lines{this->line(7, this->lower("failed to connect host @ port 80, error 210 (unable "
                                             "to resolve host)")),
                   this->line(7, "unable to connect, velerror 210 (unable to resolve host)")}));
}

TYPED_TEST(VelhandleSocket, ConnectNeedsAHandle)
{
    velhandle *velhandle = nullptr;
    {
        const support::malloc_watch watch(3);
        velhandle = TypeParam::connect("127.0.0.1", 9);
    }
    EXPECT_EQ(velhandle, nullptr);
    EXPECT_EQ(this->own_lines(),
              (log_lines{this->line(7, this->upper("not enough memory for @ handle")),
                         this->line(7, "unable to create an velhandle")}));
}

TYPED_TEST(VelhandleSocket, WaitWithNothingInProgress)
{
    this->connect();
    EXPECT_EQ(vel_handle_connect_wait(this->client_), VEL_ERROR_BAD_HANDLE);
    EXPECT_EQ(this->own_lines(), log_lines{});
    vel_error_t velerror = -1;
    {
        const support::malloc_watch watch(1);
        velerror = vel_handle_connect_wait(this->client_);
    }
    EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(this->own_lines(), (log_lines{this->line(7, "unable to create timeout context")}));
}

/* Reading. */

TYPED_TEST(VelhandleSocket, ReadKeepsToItsTime)
{
    this->connect();
    vel_handle_set_read_timeout(this->client_, 0, 20000);
    EXPECT_EQ(this->read(this->client_), "");
    EXPECT_EQ(vel_handle_get_error(this->client_), VEL_ERROR_TIMED_OUT);

    /* Without any time it does not look for bytes. */
    EXPECT_EQ(vel_handle_write(this->client_, "x", 1), 1u);
    EXPECT_EQ(this->read(this->server()), "x");
    EXPECT_EQ(vel_handle_write(this->server(), "ping", 4), 4u);
    vel_handle_set_read_timeout(this->client_, 0, 0);
    EXPECT_EQ(this->read(this->client_), "");
    EXPECT_EQ(vel_handle_get_error(this->client_), VEL_ERROR_TIMED_OUT);
    vel_handle_set_read_timeout(this->client_, -1, 0);
    EXPECT_EQ(this->read(this->client_), "ping");
    EXPECT_EQ(this->own_lines(), log_lines{});
}

TYPED_TEST(VelhandleSocket, ReadIsInterrupted)
{
    this->connect();
    this->shim_.fail("poll", EINTR);
    EXPECT_EQ(this->read(this->client_), "");
    EXPECT_EQ(vel_handle_get_error(this->client_), VEL_ERROR_INTERRUPTED);
    EXPECT_EQ(this->own_lines(),
              (log_lines{this->line(13, this->lower("unable to read from @ socket, error 4 "
                                                    "(interrupted system call)"))}));
}

TYPED_TEST(VelhandleSocket, ReadFails)
{
    this->connect();
    this->shim_.fail("recvfrom", ECONNRESET);
    EXPECT_EQ(this->read(this->client_), "");
    EXPECT_EQ(vel_handle_get_error(this->client_), VEL_ERROR_CONNECTION_RESET);
    EXPECT_EQ(this->own_lines(),
              (log_lines{this->line(7, this->lower("unable to read from @ socket, error 104 "
                                                   "(connection reset by peer)"))}));
}

/* Writing. */

TYPED_TEST(VelhandleSocket, WriteFails)
{
    this->connect();
    this->shim_.fail(TypeParam::send, EPIPE);
    EXPECT_EQ(vel_handle_write(this->client_, "ping", 4), 0u);
    EXPECT_EQ(vel_handle_get_error(this->client_), VEL_ERROR_BROKEN_PIPE);
    EXPECT_EQ(this->own_lines(), (log_lines{this->line(7, this->lower("unable to write to @ "
                                                                      "socket, error 32 (broken "
                                                                      "pipe)"))}));
}

TYPED_TEST(VelhandleSocket, WriteWaitsForRoom)
{
    this->connect();
    this->shim_.fail(TypeParam::send, EAGAIN, 0, 2);
    vel_handle_set_write_timeout(this->client_, 20, 0);
    EXPECT_EQ(vel_handle_write(this->client_, "ping", 4), 4u);
    EXPECT_EQ(vel_handle_get_error(this->client_), VEL_ERROR_NONE);
    EXPECT_EQ(this->read(this->server()), "ping");
    EXPECT_EQ(this->own_lines(), log_lines{});
}

TYPED_TEST(VelhandleSocket, WaitForRoomFails)
{
    this->connect();
    this->shim_.fail(TypeParam::send, EAGAIN);
    this->shim_.fail("poll", EINTR);
    EXPECT_EQ(vel_handle_write(this->client_, "ping", 4), 0u);
    EXPECT_EQ(vel_handle_get_error(this->client_), VEL_ERROR_INTERRUPTED);
    EXPECT_EQ(this->own_lines(), log_lines{});
}

/* Refused access comes back as a count of 13, and the rest of the bytes follow. */
TYPED_TEST(VelhandleSocket, RefusedAccessCountsAs13Bytes)
{
    this->connect();
    this->shim_.fail(TypeParam::send, EACCES, 0, TypeParam::type == SOCK_DGRAM ? 2 : 1);
    EXPECT_EQ(vel_handle_write(this->client_, "thirteen byteREST", 17), 17u);
    EXPECT_EQ(this->read(this->server()), "REST");
    EXPECT_EQ(this->own_lines(), log_lines{});
}

TYPED_TEST(VelhandleSocket, RefusedAccessOfThirteenBytesAtMost)
{
    this->connect();
    this->shim_.fail(TypeParam::send, EACCES);
    EXPECT_EQ(vel_handle_write(this->client_, "thirteen byte", 13), 13u);
    EXPECT_GE(vel_handle_write(this->client_, "few", 3), 3u);
    EXPECT_EQ(this->own_lines(), log_lines{});
}

/* Listening and accepting. */

TYPED_TEST(VelhandleSocket, ListensEverywhereOnAFreePort)
{
    const std::set<int> before = support::descriptors();
    ASSERT_EQ(TypeParam::listen(nullptr, 0, &this->listener_), VEL_ERROR_NONE);
    this->leaked_ = 2;
    ASSERT_NE(this->listener_, nullptr);
    unsigned int port = 0;
    EXPECT_EQ(vel_handle_get_local_port(this->listener_, &port), VEL_ERROR_NONE);

    sockaddr_in address = {};
    socklen_t length = sizeof address;
    const int descriptor = support::descriptors_since(before)[0];
    ASSERT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &length), 0);
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_EQ(ntohs(address.sin_port), port);
    EXPECT_GT(port, 0u);
    EXPECT_EQ(support::socket_option(descriptor, SO_TYPE), TypeParam::type);
    EXPECT_EQ(support::socket_option(descriptor, SO_REUSEADDR), 0);
    EXPECT_EQ(this->log_.take(), log_lines{});
}

velhandle *const kDirt = reinterpret_cast<velhandle *>(16);

TYPED_TEST(VelhandleSocket, ListenOnAPortInUse)
{
    this->listen();
    velhandle *other = kDirt;
    EXPECT_EQ(TypeParam::listen("127.0.0.1", this->port_, &other), VEL_ERROR_ADDRESS_IN_USE);
    EXPECT_EQ(other, nullptr);
    const std::string rest =
        " port " + std::to_string(this->port_) + ", error 98 (address already in use)";
    EXPECT_EQ(
        this->own_lines(),
        (log_lines{this->line(7, this->upper("unable to bind the @ socket to 127.0.0.1") + rest)}));

    other = kDirt;
    EXPECT_EQ(TypeParam::listen(nullptr, this->port_, &other), VEL_ERROR_ADDRESS_IN_USE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(
        this->own_lines(),
        (log_lines{this->line(7, this->upper("unable to bind the @ socket to 0.0.0.0") + rest)}));
}

TYPED_TEST(VelhandleSocket, ListenTakesNoNames)
{
    velhandle *listener = kDirt;
    EXPECT_EQ(TypeParam::listen("localhost", 65535, &listener), VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(listener, nullptr);
    EXPECT_EQ(this->own_lines(),
              (log_lines{this->line(7, this->upper("unable to bind the @ socket to localhost port "
                                                   "65535, error 209 (invalid syntax)"))}));
}

TYPED_TEST(VelhandleSocket, ListenWithoutASocket)
{
    this->shim_.fail("socket", EMFILE);
    velhandle *listener = kDirt;
    EXPECT_EQ(TypeParam::listen(nullptr, 0, &listener), VEL_ERROR_GENERIC);
    EXPECT_EQ(listener, nullptr);
    EXPECT_EQ(this->own_lines(),
              (log_lines{this->line(7, this->upper("unable to create a @ socket"))}));
}

TYPED_TEST(VelhandleSocket, ListenNeedsMemory)
{
    for (size_t allocation : {1, 2, 3}) {
        velhandle *listener = kDirt;
        vel_error_t velerror = -1;
        {
            const support::malloc_watch watch(allocation);
            velerror = TypeParam::listen(nullptr, 0, &listener);
        }
        EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
        EXPECT_EQ(listener, nullptr);
        const log_lines logged = this->own_lines();
        ASSERT_FALSE(logged.empty());
        EXPECT_EQ(logged.back(), this->line(7, "unable to create an velhandle"));
    }
}

TYPED_TEST(VelhandleSocket, AcceptKeepsToItsTime)
{
    this->listen();
    vel_handle_set_read_timeout(this->listener_, 0, 20000);
    velhandle *connection = kDirt;
    EXPECT_EQ(vel_handle_accept(this->listener_, &connection), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(vel_handle_get_error(this->listener_), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(this->log_.take(), log_lines{});
}

TYPED_TEST(VelhandleSocket, WakeupEndsAnAccept)
{
    this->listen();
    vel_handle_set_read_timeout(this->listener_, -1, 0);
    EXPECT_EQ(vel_handle_wakeup(this->listener_), VEL_ERROR_NONE);
    velhandle *connection = kDirt;
    EXPECT_EQ(vel_handle_accept(this->listener_, &connection), VEL_ERROR_WAKEUP);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(vel_handle_get_error(this->listener_), VEL_ERROR_WAKEUP);
    EXPECT_EQ(this->log_.take(), log_lines{});
}

TYPED_TEST(VelhandleSocket, WaitOfAnAcceptFails)
{
    this->listen();
    this->shim_.fail("poll", EINTR);
    velhandle *connection = kDirt;
    EXPECT_EQ(vel_handle_accept(this->listener_, &connection), VEL_ERROR_INTERRUPTED);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(this->log_.take(),
              (log_lines{this->line(7, this->lower("unable to accept @ socket, error 4 "
                                                   "(interrupted system call)")),
                         {"io/velhandle", 7,
                          "accepting an incoming connection failed, error 4 (interrupted system "
                          "call)"}}));
}

TYPED_TEST(VelhandleSocket, OnlyListenersAccept)
{
    this->connect();
    velhandle *connection = kDirt;
    EXPECT_EQ(vel_handle_accept(this->client_, &connection), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(this->log_.take(),
              (log_lines{{"io/velhandle", 6,
                          "this handle does not support accepting incoming connections"}}));
}

/* The other callbacks. */

TYPED_TEST(VelhandleSocket, ClientsHaveNoWakeup)
{
    this->connect();
    EXPECT_EQ(vel_handle_wakeup(this->client_), VEL_ERROR_WRITE);
    EXPECT_EQ(
        this->log_.take(),
        (log_lines{support::socket_line(6, "waking up this socket is not enabled"),
                   support::socket_line(7, "unable to write to the wakeup pipe, error 9"),
                   this->line(7, "socket wakeup returned 203 (write error)"),
                   {"io/velhandle", 7, "waking up a handle failed, error 203 (write error)"}}));
}

TYPED_TEST(VelhandleSocket, LocalPortFails)
{
    this->connect();
    this->shim_.fail("getsockname", ENOBUFS);
    unsigned int port = 77;
    EXPECT_EQ(vel_handle_get_local_port(this->client_, &port), VEL_ERROR_GENERIC);
    EXPECT_EQ(port, 0u);
    EXPECT_EQ(this->own_lines(),
              (log_lines{this->line(7, this->upper("unable to fetch the local @ port number from "
                                                   "the socket, error 202 (generic error)"))}));
}

/* A datagram socket listens once it is bound. */
TYPED_TEST(VelhandleSocket, ListeningFails)
{
    this->shim_.fail("listen", EADDRINUSE);
    this->leaked_ += 2; /* the pipe to wake it up */
    const vel_error_t result = TypeParam::listen("127.0.0.1", 0, &this->listener_);
    if (TypeParam::type == SOCK_DGRAM) {
        EXPECT_EQ(result, VEL_ERROR_NONE);
        EXPECT_NE(this->listener_, nullptr);
        return;
    }
    EXPECT_EQ(result, VEL_ERROR_GENERIC);
    EXPECT_EQ(this->listener_, nullptr);
    EXPECT_EQ(this->own_lines()[0],
              this->line(7, "unable to start listening to incoming TCP connections, error 202 "
                            "(generic error)"));
}

/* A handle whose context was taken away. */
TYPED_TEST(VelhandleSocket, WithoutItsRecordAHandleIsNotConnected)
{
    this->connect();
    void *record = vel_handle_get_context(this->client_);
    const log_line notconnected = this->line(7, "this handle is not connected");

    vel_handle_set_context(this->client_, nullptr);
    EXPECT_EQ(this->read(this->client_), "");
    EXPECT_EQ(vel_handle_get_error(this->client_), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(this->own_lines(), (log_lines{notconnected}));
    vel_handle_set_error(this->client_, VEL_ERROR_NONE);
    EXPECT_EQ(vel_handle_write(this->client_, "x", 1), 0u);
    EXPECT_EQ(vel_handle_get_error(this->client_), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(this->own_lines(), (log_lines{notconnected}));

    vel_handle_set_write_callback(this->client_, [](velhandle *velhandle, const void *, size_t) {
        vel_handle_set_error(velhandle, VEL_ERROR_WOULD_BLOCK);
        return size_t{0};
    });
    EXPECT_EQ(vel_handle_write(this->client_, "x", 1), 0u);
    EXPECT_EQ(vel_handle_get_error(this->client_), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(this->own_lines(), (log_lines{notconnected}));
    vel_handle_set_context(this->client_, record);
}

/* Assertions. */

template <typename Twin> class VelhandleSocketDeathTest : public VelhandleSocket<Twin> {
};

TYPED_TEST_SUITE(VelhandleSocketDeathTest, twins, twin_name);

TYPED_TEST(VelhandleSocketDeathTest, Connect)
{
    const std::string function = std::string(TypeParam::function) + "connect";
    EXPECT_DEATH(TypeParam::connect(nullptr, 0), asserts("name != NULL", function));
    EXPECT_DEATH(TypeParam::connect("h", 0), asserts("port > 0", function));
    EXPECT_DEATH(TypeParam::connect("h", 65536), asserts("port < 65536", function));
}

TYPED_TEST(VelhandleSocketDeathTest, Listen)
{
    const std::string function = std::string(TypeParam::function) + "listen";
    velhandle *listener = nullptr;
    EXPECT_DEATH(TypeParam::listen(nullptr, 65536, nullptr), asserts("port <= 65535", function));
    EXPECT_DEATH(TypeParam::listen(nullptr, 0, nullptr),
                 asserts("listenhandleptr != NULL", function));
    EXPECT_DEATH(TypeParam::listen("127.0.0.1", 65536, &listener),
                 asserts("port <= 65535", function));
}

/* The record is there from the beginning, the socket is not. */
TYPED_TEST(VelhandleSocketDeathTest, UseBeforeConnecting)
{
    this->client_ = TypeParam::create();
    unsigned int port = 0;
    EXPECT_DEATH(this->read(this->client_), asserts("velsocket != NULL"));
    EXPECT_DEATH(vel_handle_write(this->client_, "x", 1), asserts("velsocket != NULL"));
    EXPECT_DEATH(vel_handle_wakeup(this->client_), asserts("velsocket != NULL"));
    EXPECT_DEATH(vel_handle_connect_wait(this->client_), asserts("velsocket != NULL"));
    EXPECT_DEATH(vel_handle_get_local_port(this->client_, &port), asserts("velsocket != NULL"));
}

TYPED_TEST(VelhandleSocketDeathTest, WithoutItsRecord)
{
    this->listen();
    void *record = vel_handle_get_context(this->listener_);
    velhandle *connection = nullptr;
    unsigned int port = 0;
    vel_handle_set_context(this->listener_, nullptr);
    EXPECT_DEATH(vel_handle_connect_wait(this->listener_), asserts(TypeParam::record));
    EXPECT_DEATH(vel_handle_get_local_port(this->listener_, &port), asserts(TypeParam::record));
    EXPECT_DEATH(vel_handle_wakeup(this->listener_), asserts(TypeParam::record));
    EXPECT_DEATH(vel_handle_connect(this->listener_, "h", 1), asserts(TypeParam::record));
    EXPECT_DEATH(vel_handle_accept(this->listener_, &connection), asserts(TypeParam::record));
    EXPECT_DEATH(vel_handle_destroy(this->listener_), asserts(TypeParam::record));
    vel_handle_set_context(this->listener_, record);
}

} // namespace
