/* Before the headers of the platform, as it defines what they may have inline. */
#include "support/udpserver.h"

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"

/* The port of a server cannot be told while this is set. */
static std::atomic<bool> failname;

extern "C" int getsockname(int descriptor, sockaddr *address, socklen_t *length) noexcept
{
    static const auto next =
        support::platform_function<int(int, sockaddr *, socklen_t *)>("getsockname");
    if (!failname)
        return next(descriptor, address, length);
    errno = ENOBUFS;
    return -1;
}

/* No pipe can be made while this is set. */
static std::atomic<bool> failpipe;

extern "C" int pipe(int ends[2]) noexcept
{
    static const auto next = support::platform_function<int(int *)>("pipe");
    if (!failpipe)
        return next(ends);
    errno = EMFILE;
    return -1;
}

namespace {

using support::asserts;
using support::count_of;
using support::log_line;
using support::log_lines;
using support::read_line;
using support::reading_line;
using support::server_line;

using Veludpserver = support::server_test;

const log_line kWakingUp = server_line(10, "waking up the reception thread");
const log_line kWoken = server_line(9, "wakeup from read requested");
const log_line kServing = server_line(13, "serving client handle *");
const log_line kBusy = server_line(7, "the UDP server is already listening to connections");
const log_line kCannotStart = server_line(7, "unable to start the UDP server");

/* The port that a datagram came from, as the callback sees it. */
unsigned int sender_port(velhandle *velhandle)
{
    sockaddr_in sender = {};
    size_t length = sizeof sender;
    EXPECT_EQ(vel_handle_get_peer_name(velhandle, reinterpret_cast<sockaddr *>(&sender), &length),
              VEL_ERROR_NONE);
    EXPECT_EQ(length, sizeof sender);
    EXPECT_EQ(sender.sin_family, AF_INET);
    EXPECT_EQ(sender.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    return ntohs(sender.sin_port);
}

unsigned int own_port(int client)
{
    sockaddr_in own = {};
    socklen_t length = sizeof own;
    EXPECT_EQ(getsockname(client, reinterpret_cast<sockaddr *>(&own), &length), 0);
    return ntohs(own.sin_port);
}

/* The address that the listener is bound to. */
sockaddr_in bound_address(const std::set<int> &before)
{
    sockaddr_in local = {};
    socklen_t length = sizeof local;
    const int listener = support::descriptors_since(before)[0];
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&local), &length), 0);
    return local;
}

bool has_ipv6()
{
    const int descriptor = socket(AF_INET6, SOCK_STREAM, 0);
    sockaddr_in6 local = {};
    local.sin6_family = AF_INET6;
    local.sin6_addr = in6addr_loopback;
    const bool bound =
        bind(descriptor, reinterpret_cast<const sockaddr *>(&local), sizeof local) == 0;
    close(descriptor);
    return bound;
}

/* Starting and stopping. */

TEST_F(Veludpserver, MayBeDestroyedUnused)
{
    EXPECT_EQ(support::descriptors(), before_);
    EXPECT_EQ(calls_.created, 0);
    vel_udpserver_set_port(server_, 65535);
    vel_udpserver_set_port(server_, 0);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(Veludpserver, WaitBeforeTheStartReturnsAtOnce)
{
    vel_udpserver_wait(server_);
    EXPECT_EQ(log_.take(), log_lines{});
}

/* The thread waits without an end, and the byte in the pipe is what ends it. */
TEST_F(Veludpserver, StopWakesTheWaitingThread)
{
    start();
    wait_for_polls(1);
    EXPECT_EQ(calls_.created, 1);
    stop_and_wait();
    EXPECT_EQ(calls_.joined, 1);
    EXPECT_EQ(own_lines(), (log_lines{reading_line(), kWakingUp, read_line(0), kWoken}));
}

TEST_F(Veludpserver, StopWakesTheThreadAfterADatagram)
{
    start();
    wait_for_polls(1);
    const int client = connect();
    send(client, "ping");
    EXPECT_EQ(receive(client), "ping");
    wait_for_polls(2);
    stop_and_wait();
    EXPECT_EQ(own_lines(), (log_lines{reading_line(), read_line(4), kServing, reading_line(),
                                      kWakingUp, read_line(0), kWoken}));
}

/* A stop that comes before the wait is in the pipe when the wait begins. */
TEST_F(Veludpserver, StopInTheInstantOfTheWaitIsNotLost)
{
    calls_.onpoll = [this] { vel_udpserver_stop(server_); };
    start();
    vel_udpserver_wait(server_);
    EXPECT_EQ(own_lines(), (log_lines{reading_line(), kWakingUp, read_line(0), kWoken}));
}

TEST_F(Veludpserver, StopMayBeRepeated)
{
    start();
    for (int i = 0; i < 3; i++)
        vel_udpserver_stop(server_);
    vel_udpserver_wait(server_);
    vel_udpserver_stop(server_);
    EXPECT_EQ(count_of(own_lines(), kWakingUp), 4u);
}

/* It wakes nobody, and the thread to come sees it first. */
TEST_F(Veludpserver, StopBeforeTheStartIsNotLost)
{
    vel_udpserver_stop(server_);
    EXPECT_EQ(log_.take(), log_lines{});
    start();
    vel_udpserver_wait(server_);
    EXPECT_EQ(own_lines(), log_lines{});
    EXPECT_EQ(calls_.reads, 0);
}

TEST_F(Veludpserver, SecondStartIsRefusedAndTheServerGoesOn)
{
    start();
    EXPECT_EQ(vel_udpserver_start(server_), VEL_ERROR_BUSY);
    EXPECT_EQ(calls_.created, 1);
    const int client = connect();
    send(client, "still there?");
    EXPECT_EQ(receive(client), "still there?");
    stop_and_wait();
    EXPECT_EQ(count_of(own_lines(), kBusy), 1u);
}

TEST_F(Veludpserver, RunsOnlyOnce)
{
    start();
    stop_and_wait();
    log_.clear();
    EXPECT_EQ(vel_udpserver_start(server_), VEL_ERROR_BUSY);
    EXPECT_EQ(own_lines(), (log_lines{kBusy}));
    EXPECT_EQ(vel_udpserver_run(server_), VEL_ERROR_BUSY);
    EXPECT_EQ(own_lines(), (log_lines{kBusy, kCannotStart}));
    unsigned int port = 0;
    EXPECT_EQ(vel_udpserver_get_port(server_, &port), VEL_ERROR_NONE);
    EXPECT_EQ(port, port_);
}

TEST_F(Veludpserver, PortInUse)
{
    velhandle *other = nullptr;
    unsigned int port = 0;
    ASSERT_EQ(vel_handle_udp_listen("127.0.0.1", 0, &other), VEL_ERROR_NONE);
    listeners_++;
    ASSERT_EQ(vel_handle_get_local_port(other, &port), VEL_ERROR_NONE);
    vel_udpserver_set_port(server_, port);
    const log_line refused = server_line(7, "unable to start listening to incoming UDP "
                                            "connections, error 98 (address already in use)");
    EXPECT_EQ(vel_udpserver_start(server_), VEL_ERROR_ADDRESS_IN_USE);
    EXPECT_EQ(own_lines(), (log_lines{refused}));
    EXPECT_EQ(vel_udpserver_run(server_), VEL_ERROR_ADDRESS_IN_USE);
    EXPECT_EQ(own_lines(), (log_lines{refused, kCannotStart}));
    EXPECT_EQ(calls_.created, 0);

    vel_handle_destroy(other);
    start(); /* as nothing was left behind */
    EXPECT_EQ(port_, port);
    stop_and_wait();
}

TEST_F(Veludpserver, AddressThatIsNone)
{
    ASSERT_EQ(vel_udpserver_set_address(server_, "nowhere"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_udpserver_start(server_), VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(own_lines(), (log_lines{server_line(7, "unable to start listening to incoming UDP "
                                                     "connections, error 209 (invalid syntax)")}));
}

TEST_F(Veludpserver, AddressIsCopiedAndTheLastOneCounts)
{
    char address[] = "127.0.0.3";
    ASSERT_EQ(vel_udpserver_set_address(server_, "127.0.0.2"), VEL_ERROR_NONE);
    ASSERT_EQ(vel_udpserver_set_address(server_, address), VEL_ERROR_NONE);
    memset(address, 'x', sizeof address - 1);
    start();
    const sockaddr_in local = bound_address(before_);
    EXPECT_EQ(ntohl(local.sin_addr.s_addr), INADDR_LOOPBACK + 2);
    EXPECT_EQ(ntohs(local.sin_port), port_);
    stop_and_wait();
}

TEST_F(Veludpserver, WithoutAddressItListensEverywhere)
{
    veludpserver *everywhere = vel_udpserver_create();
    ASSERT_NE(everywhere, nullptr);
    std::swap(everywhere, server_);
    start();
    EXPECT_EQ(bound_address(before_).sin_addr.s_addr, htonl(INADDR_ANY));
    stop_and_wait();
    vel_udpserver_destroy(everywhere);
}

TEST_F(Veludpserver, ListensOnTheGivenPort)
{
    velhandle *other = nullptr;
    unsigned int port = 0;
    ASSERT_EQ(vel_handle_udp_listen("127.0.0.1", 0, &other), VEL_ERROR_NONE);
    listeners_++;
    ASSERT_EQ(vel_handle_get_local_port(other, &port), VEL_ERROR_NONE);
    vel_handle_destroy(other);
    vel_udpserver_set_port(server_, port);
    start();
    EXPECT_EQ(port_, port);
    stop_and_wait();
}

TEST_F(Veludpserver, PortOfAHandleThatDoesNotTell)
{
    start();
    unsigned int port = 77;
    wait_for_polls(1);
    log_.clear();
    failname = true;
    EXPECT_EQ(vel_udpserver_get_port(server_, &port), VEL_ERROR_GENERIC);
    failname = false;
    EXPECT_EQ(own_lines(), (log_lines{server_line(7, "unable to fetch the local UDP port number "
                                                     "from the handle, error 202 (generic "
                                                     "error)")}));
    EXPECT_EQ(port, 0u);
    stop_and_wait();
}

TEST_F(Veludpserver, NoPipe)
{
    failpipe = true;
    EXPECT_EQ(vel_udpserver_start(server_), VEL_ERROR_GENERIC);
    EXPECT_EQ(vel_udpserver_run(server_), VEL_ERROR_GENERIC);
    failpipe = false;
    const log_line refused = server_line(7, "unable to start listening to incoming UDP "
                                            "connections, error 202 (generic error)");
    EXPECT_EQ(own_lines(), (log_lines{refused, refused, kCannotStart}));
    EXPECT_EQ(support::descriptors(), before_);
    start(); /* as nothing was left behind */
    stop_and_wait();
}

TEST_F(Veludpserver, ReceptionThreadIsNotCreated)
{
    calls_.failcreate = 2;
    const log_line unable = server_line(7, "unable to start the reception thread");
    EXPECT_EQ(vel_udpserver_start(server_), VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(own_lines(), (log_lines{unable}));
    EXPECT_EQ(vel_udpserver_run(server_), VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(own_lines(), (log_lines{unable, kCannotStart}));
    listeners_ += 2; /* are gone, but their pipes stay */
    start();         /* as nothing was left behind */
    const int client = connect();
    send(client, "ping");
    EXPECT_EQ(receive(client), "ping");
    stop_and_wait();
}

/* Serving. */

TEST_F(Veludpserver, CallbackGetsTheDatagram)
{
    struct call {
        veludpserver *server;
        std::string bytes;
        std::thread::id thread;
        int seconds;
        unsigned int microseconds;
    } got = {nullptr, "", {}, 77, 77};
    vel_udpserver_set_callback(
        server_,
        [](veludpserver *server, velhandle *velhandle, const void *buffer, size_t length,
           void *context) {
            auto *gotptr = static_cast<call *>(context);
            gotptr->server = server;
            gotptr->bytes.assign(static_cast<const char *>(buffer), length);
            gotptr->thread = std::this_thread::get_id();
            vel_handle_get_read_timeout(velhandle, &gotptr->seconds, &gotptr->microseconds);
            EXPECT_EQ(vel_handle_write(velhandle, "got it", 6), 6u);
        },
        &got);
    start();
    const int client = connect();
    const std::string bytes("a\0b\xff", 4);
    send(client, bytes);
    EXPECT_EQ(receive(client), "got it");
    stop_and_wait();
    EXPECT_EQ(got.server, server_);
    EXPECT_EQ(got.bytes, bytes);
    EXPECT_NE(got.thread, std::this_thread::get_id());
    EXPECT_EQ(got.seconds, -1);
    EXPECT_EQ(got.microseconds, 0u);
}

TEST_F(Veludpserver, DatagramsArriveWhole)
{
    start();
    const int client = connect();
    for (size_t size :
         {size_t{1}, size_t{1472}, size_t{1473}, size_t{4096}, size_t{65506}, size_t{65507}}) {
        std::string bytes(size, '\0');
        for (size_t i = 0; i < size; i++)
            bytes[i] = static_cast<char>(i * 31 + size);
        send(client, bytes);
        EXPECT_EQ(receive(client), bytes) << size;
    }
    stop_and_wait();
    EXPECT_EQ(count_of(own_lines(), read_line(65507)), 1u);
}

/* Nothing longer than 65507 bytes exists. */
TEST_F(Veludpserver, LongerDatagramIsNotSent)
{
    start();
    const int client = connect();
    const std::string bytes(65508, 'x');
    EXPECT_EQ(::send(client, bytes.data(), bytes.size(), 0), -1);
    EXPECT_EQ(errno, EMSGSIZE);
    stop_and_wait();
}

TEST_F(Veludpserver, EmptyDatagramIsLoggedAndNotServed)
{
    std::vector<std::string> served;
    serve_ = [&](velhandle *velhandle, const std::string &text) {
        served.push_back(text);
        EXPECT_EQ(vel_handle_write(velhandle, "ok", 2), 2u);
    };
    start();
    wait_for_polls(1);
    const int client = connect();
    send(client, "");
    wait_for_polls(2);
    send(client, "x");
    EXPECT_EQ(receive(client), "ok");
    wait_for_polls(3);
    stop_and_wait();
    EXPECT_EQ(served, (std::vector<std::string>{"x"}));
    EXPECT_EQ(own_lines(),
              (log_lines{reading_line(), read_line(0),
                         server_line(7, "read returned 204 (end of file)"), reading_line(),
                         read_line(1), kServing, reading_line(), kWakingUp, read_line(0), kWoken}));
}

/* Each gets its own answers, and the callback sees who it was. */
TEST_F(Veludpserver, AlternatingSendersAreAnswered)
{
    serve_ = [](velhandle *velhandle, const std::string &text) {
        const std::string answer = text + " from " + std::to_string(sender_port(velhandle));
        EXPECT_EQ(vel_handle_write(velhandle, answer.data(), answer.size()), answer.size());
    };
    start();
    for (int i = 0; i < 5; i++)
        connect();
    for (int round = 0; round < 20; round++) {
        for (int client : clients_)
            send(client, std::to_string(round));
        for (int client : clients_) {
            EXPECT_EQ(receive(client),
                      std::to_string(round) + " from " + std::to_string(own_port(client)));
        }
    }
    stop_and_wait();
}

/* Several datagrams of several senders wait while the first is served: in the order in which they
 * came, one at a time, on one thread, each answered to its sender. */
TEST_F(Veludpserver, DatagramsWaitWhileOneIsServed)
{
    bool released = false;
    std::atomic<int> inside = 0;
    std::vector<std::string> served;
    std::set<std::thread::id> threads;
    serve_ = [&](velhandle *velhandle, const std::string &text) {
        EXPECT_EQ(++inside, 1);
        place_.change([&] { served.push_back(text); });
        threads.insert(std::this_thread::get_id());
        EXPECT_TRUE(place_.wait([&] { return released; }));
        EXPECT_EQ(vel_handle_write(velhandle, text.data(), text.size()), text.size());
        inside--;
    };
    start();
    const int clients[] = {connect(), connect(), connect()};
    std::vector<std::string> sent;
    for (int i = 0; i < 30; i++) {
        sent.push_back(std::to_string(i));
        send(clients[i % 3], sent.back());
    }
    ASSERT_TRUE(place_.wait([&] { return served.size() == 1; }));
    place_.change([&] { released = true; });
    for (int i = 0; i < 30; i++)
        EXPECT_EQ(receive(clients[i % 3]), sent[static_cast<size_t>(i)]);
    stop_and_wait();
    EXPECT_EQ(served, sent);
    EXPECT_EQ(threads.size(), 1u);
    EXPECT_EQ(calls_.created, 1);
}

TEST_F(Veludpserver, SendersSideBySide)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    start();
    for (int i = 0; i < kThreads; i++)
        connect();
    std::vector<std::thread> senders;
    for (int i = 0; i < kThreads; i++) {
        senders.emplace_back([i, client = clients_[static_cast<size_t>(i)]] {
            for (int round = 0; round < kRounds; round++) {
                const std::string text = std::to_string(i) + ":" + std::to_string(round);
                send(client, text);
                EXPECT_EQ(receive(client), text);
            }
        });
    }
    for (std::thread &sender : senders)
        sender.join();
    stop_and_wait();
    EXPECT_EQ(count_of(own_lines(), kServing), size_t{kThreads * kRounds});
}

/* Several answers to one datagram, or none, are the callback's own business. */
TEST_F(Veludpserver, CallbackAnswersAsItLikes)
{
    serve_ = [](velhandle *velhandle, const std::string &text) {
        for (int i = 0; i < std::stoi(text); i++)
            EXPECT_EQ(vel_handle_write(velhandle, "again", 5), 5u);
    };
    start();
    const int client = connect();
    send(client, "0");
    send(client, "3");
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(receive(client), "again");
    stop_and_wait();
    char byte;
    EXPECT_EQ(recv(client, &byte, 1, MSG_DONTWAIT), -1);
}

TEST_F(Veludpserver, StopWithinTheCallback)
{
    bool ended = false;
    serve_ = [&](velhandle *velhandle, const std::string &) {
        vel_udpserver_stop(server_);
        EXPECT_EQ(vel_handle_write(velhandle, "still here", 10), 10u);
        ended = true;
    };
    start();
    const int client = connect();
    send(client, "1");
    send(client, "2"); /* stays in the socket */
    vel_udpserver_wait(server_);
    EXPECT_TRUE(ended);
    EXPECT_EQ(receive(client), "still here");
    const log_lines logged = own_lines();
    EXPECT_EQ(logged, (log_lines{reading_line(), read_line(1), kServing, kWakingUp}));
}

/* A datagram comes together with the byte of the stop: the wait tells of both, the data wins, and
 * the datagram is dropped. */
TEST_F(Veludpserver, DatagramInTheInstantOfTheStopIsDropped)
{
    bool served = false;
    serve_ = [&](velhandle *, const std::string &) { served = true; };
    calls_.onpoll = [&] {
        EXPECT_EQ(vel_udpserver_get_port(server_, &port_), VEL_ERROR_NONE);
        send(connect(), "late");
        vel_udpserver_stop(server_);
    };
    ASSERT_EQ(vel_udpserver_start(server_), VEL_ERROR_NONE);
    listeners_++;
    vel_udpserver_wait(server_);
    EXPECT_FALSE(served);
    EXPECT_EQ(calls_.polls, 1);
    EXPECT_EQ(own_lines(),
              (log_lines{reading_line(), kWakingUp, read_line(4), kServing,
                         server_line(8, "shutting down, closing the handle just accepted")}));
    /* Nothing was closed: the port is still the server's. */
    unsigned int port = 0;
    EXPECT_EQ(vel_udpserver_get_port(server_, &port), VEL_ERROR_NONE);
    EXPECT_EQ(port, port_);
}

/* The IPv6 address makes a stream socket of the datagram socket, so there is nothing to read. */
TEST_F(Veludpserver, Ipv6AddressDoesNotMakeAServer)
{
    ASSERT_EQ(vel_udpserver_set_address(server_, "::1"), VEL_ERROR_NONE);
    if (!has_ipv6()) {
        EXPECT_EQ(vel_udpserver_start(server_), VEL_ERROR_GENERIC);
        listeners_ += support::descriptors_since(before_).size() / 2;
        return;
    }
    serve_ = [](velhandle *, const std::string &) { ADD_FAILURE() << "served"; };
    start();
    ASSERT_TRUE(place_.wait([&] { return calls_.reads >= 20; }));
    EXPECT_EQ(support::socket_option(support::descriptors_since(before_)[0], SO_TYPE),
              int{SOCK_STREAM});
    stop_and_wait();
    const log_lines logged = own_lines();
    EXPECT_GE(count_of(logged, server_line(7, "read returned 208 (internal error)")), 9u);
    EXPECT_EQ(count_of(logged, kServing), 0u);
}

/* Failures of single reads. */

/* Each failure is one turn of the loop, which nothing slows down. The socket tries twice. */
TEST_F(Veludpserver, FailingReadMakesTheLoopSpin)
{
    constexpr int kFailures = 1000;
    calls_.failread = 2 * kFailures;
    start();
    const int client = connect();
    send(client, "ping");
    EXPECT_EQ(receive(client), "ping");
    stop_and_wait();
    const log_lines logged = own_lines();
    const log_line failure = server_line(7, "read returned 202 (generic error)");
    EXPECT_EQ(count_of(logged, failure), size_t{kFailures});
    EXPECT_EQ(
        std::vector(logged.begin(), logged.begin() + 6),
        (log_lines{reading_line(), read_line(0), failure, reading_line(), read_line(0), failure}));
}

/* It also sees the stop. */
TEST_F(Veludpserver, StopEndsASpinningLoop)
{
    calls_.failread = 1 << 30;
    start();
    ASSERT_TRUE(place_.wait([&] { return calls_.reads >= 100; }));
    stop_and_wait();
}

/* Running. */

TEST_F(Veludpserver, RunEndsWithAStop)
{
    const auto self = std::this_thread::get_id();
    calls_.onpoll = [&, self] {
        ASSERT_NE(std::this_thread::get_id(), self);
        unsigned int port = 0;
        EXPECT_EQ(vel_udpserver_get_port(server_, &port), VEL_ERROR_NONE);
        place_.change([&] { port_ = port; });
    };
    serve_ = [&](velhandle *velhandle, const std::string &) {
        EXPECT_EQ(vel_handle_write(velhandle, "bye", 3), 3u);
        vel_udpserver_stop(server_);
    };
    vel_error_t result = -1;
    std::thread runner([&] { result = vel_udpserver_run(server_); });
    ASSERT_TRUE(place_.wait([&] { return port_ != 0; }));
    listeners_++;
    const int client = connect();
    send(client, "?");
    EXPECT_EQ(receive(client), "bye");
    runner.join();
    EXPECT_EQ(result, VEL_ERROR_NONE);
    EXPECT_EQ(calls_.joined, 2);
}

TEST_F(Veludpserver, ServersSideBySide)
{
    start();
    veludpserver *second = vel_udpserver_create();
    ASSERT_NE(second, nullptr);
    ASSERT_EQ(vel_udpserver_set_address(second, "127.0.0.1"), VEL_ERROR_NONE);
    vel_udpserver_set_callback(
        second,
        [](veludpserver *, velhandle *velhandle, const void *, size_t, void *) {
            EXPECT_EQ(vel_handle_write(velhandle, "second", 6), 6u);
        },
        nullptr);
    const int client = connect();
    std::swap(server_, second);
    start();
    const int other = connect();
    for (int i = 0; i < 10; i++) {
        send(client, "first");
        send(other, "?");
        EXPECT_EQ(receive(other), "second");
        EXPECT_EQ(receive(client), "first");
    }
    stop_and_wait();
    std::swap(server_, second);
    send(client, "first"); /* goes on */
    EXPECT_EQ(receive(client), "first");
    stop_and_wait();
    vel_udpserver_destroy(second);
}

/* Assertions. */

using VeludpserverDeathTest = Veludpserver;

TEST_F(VeludpserverDeathTest, Handle)
{
    const struct {
        const char *function;
        std::function<void()> call;
    } rows[] = {
        {"vel_udpserver_destroy", [] { vel_udpserver_destroy(nullptr); }},
        {"vel_udpserver_set_address", [] { vel_udpserver_set_address(nullptr, "127.0.0.1"); }},
        {"vel_udpserver_set_port", [] { vel_udpserver_set_port(nullptr, 65536); }},
        {"vel_udpserver_set_callback",
         [] { vel_udpserver_set_callback(nullptr, nullptr, nullptr); }},
        {"vel_udpserver_start", [] { vel_udpserver_start(nullptr); }},
        {"vel_udpserver_stop", [] { vel_udpserver_stop(nullptr); }},
        {"vel_udpserver_wait", [] { vel_udpserver_wait(nullptr); }},
        {"vel_udpserver_run", [] { vel_udpserver_run(nullptr); }},
        {"vel_udpserver_get_port", [] { vel_udpserver_get_port(nullptr, nullptr); }},
    };
    for (const auto &row : rows)
        EXPECT_DEATH(row.call(), asserts("veludpserver != NULL", row.function)) << row.function;
}

TEST_F(VeludpserverDeathTest, Ports)
{
    unsigned int port = 0;
    EXPECT_DEATH(vel_udpserver_set_port(server_, 65536),
                 asserts("port <= 65535", "vel_udpserver_set_port"));
    EXPECT_DEATH(vel_udpserver_get_port(server_, nullptr),
                 asserts("portptr != NULL", "vel_udpserver_get_port"));
    /* Before the start there is no handle to ask. */
    EXPECT_DEATH(vel_udpserver_get_port(server_, &port),
                 asserts("velhandle != NULL", "vel_handle_get_local_port"));
}

TEST_F(VeludpserverDeathTest, SecondWait)
{
    start();
    stop_and_wait();
    EXPECT_DEATH(vel_udpserver_wait(server_),
                 asserts("velthread->state == VEL_THREAD_STATE_RUNNING", "vel_thread_join"));
}

} // namespace
