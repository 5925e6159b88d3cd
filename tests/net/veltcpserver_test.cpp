#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/tcpserver.h"

namespace {

using support::asserts;
using support::count_of;
using support::log_line;
using support::log_lines;
using support::server_line;

using Veltcpserver = support::server_test;

const log_line kWakingUp = server_line(10, "waking up the accept thread");
const log_line kWoken = server_line(9, "wakeup from accept requested");
const log_line kServing = server_line(13, "serving client handle *");
const log_line kJoining = server_line(13, "joining finished connection *");
const log_line kWaiting = server_line(13, "waiting for connection * thread to exit");

/* Reads what there is. */
std::string read(velhandle *velhandle)
{
    std::string bytes(100, '?');
    vel_handle_set_read_timeout(velhandle, 60, 0);
    bytes.resize(vel_handle_read(velhandle, bytes.data(), bytes.size()));
    return bytes;
}

void write(velhandle *velhandle, const std::string &text)
{
    EXPECT_EQ(vel_handle_write(velhandle, text.data(), text.size()), text.size());
}

/* Starting and stopping. */

TEST_F(Veltcpserver, MayBeDestroyedUnused)
{
    EXPECT_EQ(support::descriptors(), before_);
    EXPECT_EQ(calls_.created, 0);
    vel_tcpserver_set_port(server_, 65535);
    vel_tcpserver_set_port(server_, 0);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(Veltcpserver, WaitBeforeTheStartReturnsAtOnce)
{
    vel_tcpserver_wait(server_);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(Veltcpserver, StopsWithoutAnyConnection)
{
    start();
    EXPECT_EQ(calls_.created, 1);
    /* Its turn begins with a wait that has no end. */
    stop_and_wait();
    EXPECT_EQ(calls_.joined, 1);
    const log_lines logged = own_lines();
    ASSERT_FALSE(logged.empty());
    EXPECT_EQ(logged[0], kWakingUp);
    /* A thread that had not begun to wait sees the stop first. */
    if (logged.size() > 1) {
        EXPECT_EQ(logged, (log_lines{kWakingUp, kWoken}));
    }
}

/* The accept thread waits, as it has accepted and served before. */
TEST_F(Veltcpserver, StopWakesTheAcceptThread)
{
    start();
    EXPECT_EQ(rest_of(connect()), "");
    stop_and_wait();
    const log_lines logged = own_lines();
    EXPECT_EQ(count_of(logged, kWakingUp), 1u);
    EXPECT_LE(count_of(logged, kWoken), 1u);
    EXPECT_EQ(count_of(logged, kServing), 1u);
    EXPECT_EQ(count_of(logged, kJoining) + count_of(logged, kWaiting), 1u);
}

TEST_F(Veltcpserver, StopMayBeRepeated)
{
    start();
    for (int i = 0; i < 3; i++)
        vel_tcpserver_stop(server_);
    vel_tcpserver_wait(server_);
    vel_tcpserver_stop(server_);
    EXPECT_EQ(count_of(own_lines(), kWakingUp), 4u);
}

/* It wakes nobody, and the thread to come sees it first. */
TEST_F(Veltcpserver, StopBeforeTheStartIsNotLost)
{
    vel_tcpserver_stop(server_);
    EXPECT_EQ(log_.take(), log_lines{});
    start();
    vel_tcpserver_wait(server_);
    EXPECT_EQ(own_lines(), log_lines{});
}

TEST_F(Veltcpserver, SecondStartIsRefusedAndTheServerGoesOn)
{
    start();
    EXPECT_EQ(vel_tcpserver_start(server_), VEL_ERROR_BUSY);
    EXPECT_EQ(calls_.created, 1);
    EXPECT_EQ(rest_of(connect()), "");
    stop_and_wait();
    EXPECT_EQ(
        count_of(own_lines(), server_line(7, "the TCP server is already listening to connections")),
        1u);
}

TEST_F(Veltcpserver, RunsOnlyOnce)
{
    start();
    stop_and_wait();
    log_.clear();
    EXPECT_EQ(vel_tcpserver_start(server_), VEL_ERROR_BUSY);
    EXPECT_EQ(own_lines(),
              (log_lines{server_line(7, "the TCP server is already listening to connections")}));
    EXPECT_EQ(vel_tcpserver_run(server_), VEL_ERROR_BUSY);
    EXPECT_EQ(own_lines(),
              (log_lines{server_line(7, "the TCP server is already listening to connections"),
                         server_line(7, "unable to start the TCP server")}));
    unsigned int port = 0;
    EXPECT_EQ(vel_tcpserver_get_port(server_, &port), VEL_ERROR_NONE);
    EXPECT_EQ(port, port_);
}

TEST_F(Veltcpserver, PortInUse)
{
    velhandle *other = nullptr;
    unsigned int port = 0;
    ASSERT_EQ(vel_handle_tcp_listen("127.0.0.1", 0, &other), VEL_ERROR_NONE);
    listeners_++;
    ASSERT_EQ(vel_handle_get_local_port(other, &port), VEL_ERROR_NONE);
    vel_tcpserver_set_port(server_, port);
    const log_line refused = server_line(7, "unable to start listening to incoming TCP "
                                            "connections, error 98 (address already in use)");
    EXPECT_EQ(vel_tcpserver_start(server_), VEL_ERROR_ADDRESS_IN_USE);
    EXPECT_EQ(own_lines(), (log_lines{refused}));
    EXPECT_EQ(vel_tcpserver_run(server_), VEL_ERROR_ADDRESS_IN_USE);
    EXPECT_EQ(own_lines(), (log_lines{refused, server_line(7, "unable to start the TCP server")}));
    EXPECT_EQ(calls_.created, 0);

    vel_handle_destroy(other);
    start(); /* as nothing was left behind */
    EXPECT_EQ(port_, port);
    stop_and_wait();
}

TEST_F(Veltcpserver, AddressThatIsNone)
{
    ASSERT_EQ(vel_tcpserver_set_address(server_, "nowhere"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_tcpserver_start(server_), VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(own_lines(), (log_lines{server_line(7, "unable to start listening to incoming TCP "
                                                     "connections, error 209 (invalid syntax)")}));
}

TEST_F(Veltcpserver, AddressIsCopiedAndTheLastOneCounts)
{
    char address[] = "127.0.0.3";
    ASSERT_EQ(vel_tcpserver_set_address(server_, "127.0.0.2"), VEL_ERROR_NONE);
    ASSERT_EQ(vel_tcpserver_set_address(server_, address), VEL_ERROR_NONE);
    memset(address, 'x', sizeof address - 1);
    start();
    sockaddr_in local = {};
    socklen_t length = sizeof local;
    const int listener = support::descriptors_since(before_)[0];
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&local), &length), 0);
    EXPECT_EQ(ntohl(local.sin_addr.s_addr), INADDR_LOOPBACK + 2);
    EXPECT_EQ(ntohs(local.sin_port), port_);
    stop_and_wait();
}

TEST_F(Veltcpserver, WithoutAddressItListensEverywhere)
{
    veltcpserver *everywhere = vel_tcpserver_create();
    ASSERT_NE(everywhere, nullptr);
    std::swap(everywhere, server_);
    start();
    sockaddr_in local = {};
    socklen_t length = sizeof local;
    const int listener = support::descriptors_since(before_)[0];
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&local), &length), 0);
    EXPECT_EQ(local.sin_addr.s_addr, htonl(INADDR_ANY));
    stop_and_wait();
    vel_tcpserver_destroy(everywhere);
}

/* Serving. */

TEST_F(Veltcpserver, CallbackOwnsTheConnection)
{
    veltcpserver *server = nullptr;
    vel_tcpserver_set_callback(
        server_,
        [](veltcpserver *calling, velhandle *velhandle, void *context) {
            *static_cast<veltcpserver **>(context) = calling;
            int seconds = 77;
            unsigned int microseconds = 77;
            vel_handle_get_read_timeout(velhandle, &seconds, &microseconds);
            EXPECT_EQ(seconds, -1);
            EXPECT_EQ(microseconds, 0u);
            write(velhandle, "you said " + read(velhandle));
        },
        &server);
    start();
    const int client = connect();
    EXPECT_EQ(send(client, "hello", 5, 0), 5);
    EXPECT_EQ(rest_of(client), "you said hello");
    stop_and_wait();
    EXPECT_EQ(server, server_);
}

/* Whatever the callback did, or did not do. */
TEST_F(Veltcpserver, ConnectionIsClosedBehindTheCallback)
{
    start();
    for (int i = 0; i < 5; i++)
        EXPECT_EQ(rest_of(connect()), "");
    stop_and_wait();
    EXPECT_EQ(calls_.created, 6);
    EXPECT_EQ(count_of(own_lines(), kServing), 5u);
}

/* All of them are in the callback at the same time, each on a thread of its own. */
TEST_F(Veltcpserver, ConnectionsAreServedSideBySide)
{
    constexpr size_t kClients = 30;
    std::set<std::thread::id> threads = {std::this_thread::get_id()};
    serve_ = [&](velhandle *velhandle) {
        place_.change([&] { threads.insert(std::this_thread::get_id()); });
        EXPECT_TRUE(place_.wait([&] { return threads.size() == kClients + 1; }));
        write(velhandle, "done");
    };
    start();
    std::vector<int> clients;
    for (size_t i = 0; i < kClients; i++)
        clients.push_back(connect());
    for (int client : clients)
        EXPECT_EQ(rest_of(client), "done");
    stop_and_wait();
    EXPECT_EQ(calls_.created, static_cast<int>(kClients) + 1);
}

TEST_F(Veltcpserver, ManyConnections)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    serve_ = [](velhandle *velhandle) { write(velhandle, read(velhandle)); };
    start();
    std::vector<std::thread> clients;
    for (int i = 0; i < kThreads; i++) {
        clients.emplace_back([this, i] {
            for (int round = 0; round < kRounds; round++) {
                const std::string text = std::to_string(i) + ":" + std::to_string(round);
                const int client = connect();
                EXPECT_EQ(send(client, text.data(), text.size(), 0),
                          static_cast<ssize_t>(text.size()));
                EXPECT_EQ(rest_of(client), text);
            }
        });
    }
    for (std::thread &client : clients)
        client.join();
    stop_and_wait();
    const log_lines logged = own_lines();
    EXPECT_EQ(count_of(logged, kServing), size_t{kThreads * kRounds});
    /* Each is waited for once, here or there. */
    EXPECT_EQ(count_of(logged, kJoining) + count_of(logged, kWaiting), size_t{kThreads * kRounds});
}

/* Joining. */

/* The next connection is what makes the accept thread turn to the finished one. */
TEST_F(Veltcpserver, FinishedConnectionIsJoinedAtTheNextTurn)
{
    start();
    EXPECT_EQ(rest_of(connect()), "");
    ASSERT_TRUE(place_.wait([&] { return calls_.ended == 1; }));
    bool released = false;
    serve_ = [&](velhandle *) { EXPECT_TRUE(place_.wait([&] { return released; })); };
    const int second = connect();
    EXPECT_TRUE(place_.wait([&] { return calls_.joined == 1; }));
    place_.change([&] { released = true; });
    EXPECT_EQ(rest_of(second), "");
    stop_and_wait();
    const log_lines logged = own_lines();
    EXPECT_GE(count_of(logged, kJoining), 1u);
    EXPECT_EQ(count_of(logged, kJoining) + count_of(logged, kWaiting), 2u);
}

/* Those that are finished when the wait comes, too. */
TEST_F(Veltcpserver, FinishedConnectionIsJoinedByTheWait)
{
    start();
    EXPECT_EQ(rest_of(connect()), "");
    ASSERT_TRUE(place_.wait([&] { return calls_.ended == 1; }));
    stop_and_wait();
    const log_lines logged = own_lines();
    EXPECT_EQ(count_of(logged, kJoining), 1u);
    EXPECT_EQ(count_of(logged, kWaiting), 0u);
}

/* The callbacks are let go only when the wait stands before one of their threads. */
TEST_F(Veltcpserver, WaitLastsUntilTheCallbacksReturn)
{
    constexpr int kClients = 3;
    int begun = 0;
    int returned = 0;
    bool released = false;
    serve_ = [&](velhandle *velhandle) {
        place_.change([&] { begun++; });
        EXPECT_TRUE(place_.wait([&] { return released; }));
        write(velhandle, "end");
        place_.change([&] { returned++; });
    };
    int joins = 0;
    calls_.onjoin = [&] {
        place_.change([&] {
            joins++;
            if (joins == 1) {
                EXPECT_EQ(returned, 0);
            }
            released = joins > 1; /* the first is that of the accept thread */
        });
    };
    start();
    std::vector<int> clients;
    for (int i = 0; i < kClients; i++)
        clients.push_back(connect());
    ASSERT_TRUE(place_.wait([&] { return begun == kClients; }));
    stop_and_wait();
    EXPECT_EQ(returned, kClients);
    EXPECT_EQ(joins, kClients + 1);
    for (int client : clients)
        EXPECT_EQ(rest_of(client), "end");
    const log_lines logged = own_lines();
    EXPECT_GE(count_of(logged, kWaiting), 1u);
    EXPECT_EQ(count_of(logged, kWaiting) + count_of(logged, kJoining), size_t{kClients});
}

TEST_F(Veltcpserver, StopWithinACallback)
{
    bool ended = false;
    serve_ = [&](velhandle *velhandle) {
        vel_tcpserver_stop(server_);
        write(velhandle, "still ");
        ASSERT_TRUE(place_.wait([&] { return calls_.ended == 1; })); /* the accept thread */
        write(velhandle, "here");
        place_.change([&] { ended = true; });
    };
    start();
    const int client = connect();
    vel_tcpserver_wait(server_);
    EXPECT_TRUE(ended);
    EXPECT_EQ(rest_of(client), "still here");
    EXPECT_EQ(count_of(own_lines(), kWakingUp), 1u);
}

/* The stop comes between the platform's news of a connection and its acceptance. */
TEST_F(Veltcpserver, ConnectionInTheInstantOfTheStopIsClosed)
{
    bool served = false;
    serve_ = [&](velhandle *) { served = true; };
    calls_.onaccept = [this] { vel_tcpserver_stop(server_); };
    start();
    const int client = connect();
    vel_tcpserver_wait(server_);
    EXPECT_EQ(rest_of(client), "");
    EXPECT_FALSE(served);
    EXPECT_EQ(calls_.created, 1);
    EXPECT_EQ(own_lines(),
              (log_lines{kWakingUp, kServing,
                         server_line(8, "shutting down, closing the handle just accepted")}));
}

/* Running. */

TEST_F(Veltcpserver, RunEndsWithAStop)
{
    const auto self = std::this_thread::get_id();
    calls_.oncreate = [&, self] {
        if (std::this_thread::get_id() == self)
            return; /* makes the thread below */
        unsigned int port = 0;
        EXPECT_EQ(vel_tcpserver_get_port(server_, &port), VEL_ERROR_NONE);
        place_.change([&] { port_ = port; });
    };
    serve_ = [&](velhandle *velhandle) {
        write(velhandle, "bye");
        vel_tcpserver_stop(server_);
    };
    vel_error_t result = -1;
    std::thread runner([&] { result = vel_tcpserver_run(server_); });
    ASSERT_TRUE(place_.wait([&] { return port_ != 0; }));
    listeners_++;
    EXPECT_EQ(rest_of(connect()), "bye");
    runner.join();
    EXPECT_EQ(result, VEL_ERROR_NONE);
    EXPECT_EQ(calls_.joined, 3);
}

/* Failures of single connections. */

TEST_F(Veltcpserver, AcceptThreadIsNotCreated)
{
    calls_.failcreate = 1;
    EXPECT_EQ(vel_tcpserver_start(server_), VEL_ERROR_NO_MEMORY);
    listeners_++; /* is gone, but its pipe stays */
    EXPECT_EQ(own_lines(), (log_lines{server_line(7, "unable to start the accept thread")}));
    start(); /* as nothing was left behind */
    EXPECT_EQ(rest_of(connect()), "");
    stop_and_wait();
}

TEST_F(Veltcpserver, ConnectionThreadIsNotCreated)
{
    calls_.skipcreate = 1;
    calls_.failcreate = 2;
    serve_ = [](velhandle *velhandle) { write(velhandle, "served"); };
    start();
    EXPECT_EQ(rest_of(connect()), "");
    EXPECT_EQ(rest_of(connect()), "");
    EXPECT_EQ(rest_of(connect()), "served");
    stop_and_wait();
    EXPECT_EQ(calls_.created, 2);
    EXPECT_EQ(count_of(own_lines(),
                       server_line(7, "unable to start a thread for handling the connection")),
              2u);
}

/* Each failure is one turn of the loop, which nothing slows down. */
TEST_F(Veltcpserver, FailingAcceptMakesTheLoopSpin)
{
    constexpr int kFailures = 1000;
    calls_.failaccept = kFailures;
    serve_ = [](velhandle *velhandle) { write(velhandle, "served"); };
    start();
    EXPECT_EQ(rest_of(connect()), "served");
    stop_and_wait();
    EXPECT_EQ(calls_.accepts, kFailures + 1);
    EXPECT_EQ(count_of(own_lines(), server_line(7, "accept returned 202 (generic error)")),
              size_t{kFailures});
}

/* It also sees the stop. */
TEST_F(Veltcpserver, StopEndsASpinningLoop)
{
    calls_.failaccept = 1 << 30;
    start();
    const int client = connect();
    ASSERT_TRUE(place_.wait([&] { return calls_.accepts >= 100; }));
    stop_and_wait();
    close(client);
}

/* Assertions. */

using VeltcpserverDeathTest = Veltcpserver;

TEST_F(VeltcpserverDeathTest, Handle)
{
    const struct {
        const char *function;
        std::function<void()> call;
    } rows[] = {
        {"vel_tcpserver_destroy", [] { vel_tcpserver_destroy(nullptr); }},
        {"vel_tcpserver_set_address", [] { vel_tcpserver_set_address(nullptr, "127.0.0.1"); }},
        {"vel_tcpserver_set_port", [] { vel_tcpserver_set_port(nullptr, 65536); }},
        {"vel_tcpserver_set_callback",
         [] { vel_tcpserver_set_callback(nullptr, nullptr, nullptr); }},
        {"vel_tcpserver_start", [] { vel_tcpserver_start(nullptr); }},
        {"vel_tcpserver_stop", [] { vel_tcpserver_stop(nullptr); }},
        {"vel_tcpserver_wait", [] { vel_tcpserver_wait(nullptr); }},
        {"vel_tcpserver_run", [] { vel_tcpserver_run(nullptr); }},
        {"vel_tcpserver_get_port", [] { vel_tcpserver_get_port(nullptr, nullptr); }},
    };
    for (const auto &row : rows)
        EXPECT_DEATH(row.call(), asserts("veltcpserver != NULL", row.function)) << row.function;
}

TEST_F(VeltcpserverDeathTest, Ports)
{
    unsigned int port = 0;
    EXPECT_DEATH(vel_tcpserver_set_port(server_, 65536),
                 asserts("port <= 65535", "vel_tcpserver_set_port"));
    EXPECT_DEATH(vel_tcpserver_get_port(server_, nullptr),
                 asserts("portptr != NULL", "vel_tcpserver_get_port"));
    /* Before the start there is no handle to ask. */
    EXPECT_DEATH(vel_tcpserver_get_port(server_, &port),
                 asserts("velhandle != NULL", "vel_handle_get_local_port"));
}

TEST_F(VeltcpserverDeathTest, SecondWait)
{
    start();
    stop_and_wait();
    EXPECT_DEATH(vel_tcpserver_wait(server_),
                 asserts("velthread->state == VEL_THREAD_STATE_RUNNING", "vel_thread_join"));
}

} // namespace
