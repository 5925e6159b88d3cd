/* A server of datagrams without memory. Injection is for one allocating thread, so the clients are
 * plain sockets and the threads take turns. */

#include "support/udpserver.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/oom.h"
#include "support/platform_malloc.h"

namespace {

using support::log_line;
using support::log_lines;
using support::server_line;

using VeludpserverMemory = support::server_test;

TEST_F(VeludpserverMemory, CreateNeedsMemory)
{
    const char *const texts[] = {
        "not enough memory for the veludpserver context",
        "unable to create the udpserver connection mutex",
        "unable to create the udpserver connection list",
        "unable to create the udpserver finished list",
    };
    for (size_t i = 0; i < 4; i++) {
        veludpserver *server = nullptr;
        {
            const support::malloc_watch watch(i + 1);
            server = vel_udpserver_create();
        }
        EXPECT_EQ(server, nullptr);
        EXPECT_EQ(own_lines(), (log_lines{server_line(7, texts[i])}));
    }
}

TEST_F(VeludpserverMemory, AddressIsKeptWhereTheNewOneHasNoMemory)
{
    vel_error_t velerror = -1;
    {
        const support::malloc_watch watch(1);
        velerror = vel_udpserver_set_address(server_, "127.0.0.2");
    }
    EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(log_.take(),
              (log_lines{server_line(7, "not enough memory for the listen address '127.0.0.2'")}));
    start();
    const int client = connect();
    send(client, "ping");
    EXPECT_EQ(receive(client), "ping"); /* of 127.0.0.1 */
    stop_and_wait();
}

/* Every allocation of a start fails once. */
TEST_F(VeludpserverMemory, StartNeedsMemory)
{
    std::unique_ptr<support::malloc_watch> watch;
    calls_.oncreate = [&] { watch.reset(); }; /* what follows is the thread's */
    const auto texts = failures_of_start([&](size_t allocation) {
        watch = std::make_unique<support::malloc_watch>(allocation);
        const vel_error_t velerror = vel_udpserver_start(server_);
        watch.reset();
        if (velerror == VEL_ERROR_NONE)
            stop_and_wait();
        return velerror;
    });
    EXPECT_EQ(texts, (std::set<std::string>{
                         "unable to start listening to incoming UDP connections, error 12 (not "
                         "enough memory)\n",
                         "unable to start listening to incoming UDP connections, error 202 "
                         "(generic error)\n",
                         "unable to initialize threaded logging\n",
                         "unable to create the reception thread\n",
                     }));
}

/* The first allocation of the thread. The server looks as if it were running. */
TEST_F(VeludpserverMemory, ReceptionNeedsABuffer)
{
    std::unique_ptr<support::malloc_watch> watch;
    serve_ = [](velhandle *, const std::string &) { ADD_FAILURE() << "served"; };
    calls_.onthread = [&] { watch = std::make_unique<support::malloc_watch>(1); };
    start();
    ASSERT_TRUE(place_.wait([&] { return calls_.ended == 1; }));
    EXPECT_EQ(support::malloc_watch::sizes()[0], 65536u);
    watch.reset();
    EXPECT_EQ(calls_.reads, 0);
    EXPECT_EQ(vel_udpserver_start(server_), VEL_ERROR_BUSY);
    unsigned int port = 0;
    EXPECT_EQ(vel_udpserver_get_port(server_, &port), VEL_ERROR_NONE);
    EXPECT_EQ(port, port_);
    send(connect(), "ping"); /* goes to the socket and stays there */
    stop_and_wait();
    EXPECT_EQ(own_lines(), (log_lines{
                               server_line(7, "not enough memory for receive buffer (65536 bytes)"),
                               server_line(7, "the UDP server is already listening to connections"),
                               server_line(10, "waking up the reception thread"),
                           }));
}

/* A whole life, with one datagram. The thread allocates when it begins, and this one does after the
 * thread has come to wait or has ended without a buffer. */
bool exchange(veludpserver *server, support::server_calls *calls)
{
    unsigned int port = 0;
    calls->place.wait([&] { return calls->polls > 0 || calls->ended > 0; });
    if (vel_udpserver_get_port(server, &port) != VEL_ERROR_NONE || calls->ended > 0)
        return false;
    const int client = support::connect_plain(port, SOCK_DGRAM);
    char bytes[8];
    const bool good = send(client, "ping", 4, 0) == 4 &&
                      recv(client, bytes, sizeof bytes, 0) == 4 && memcmp(bytes, "ping", 4) == 0;
    close(client);
    calls->place.wait([&] { return calls->polls > 1; });
    return good;
}

bool server_life()
{
    support::server_calls own;
    veludpserver *server = vel_udpserver_create();
    if (!server)
        return false;
    support::calls = &own;
    vel_udpserver_set_callback(
        server,
        [](veludpserver *, velhandle *velhandle, const void *buffer, size_t length, void *) {
            vel_handle_write(velhandle, buffer, length);
        },
        nullptr);
    bool good = vel_udpserver_set_address(server, "127.0.0.1") == VEL_ERROR_NONE &&
                vel_udpserver_start(server) == VEL_ERROR_NONE;
    if (good) {
        good = exchange(server, &own);
        vel_udpserver_stop(server);
        vel_udpserver_wait(server);
    }
    vel_udpserver_destroy(server);
    support::calls = nullptr;
    return good;
}

TEST(VeludpserverOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(server_life);
}

} // namespace
