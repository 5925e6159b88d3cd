/* A server without memory. Injection is for one allocating thread, so the clients are plain sockets
 * and the threads of a server take turns. */

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/oom.h"
#include "support/platform_malloc.h"
#include "support/tcpserver.h"

namespace {

using support::log_line;
using support::log_lines;
using support::server_line;

using VeltcpserverMemory = support::server_test;

TEST_F(VeltcpserverMemory, CreateNeedsMemory)
{
    const char *const texts[] = {
        "not enough memory for the veltcpserver context",
        "unable to create the tcpserver connection mutex",
        "unable to create the tcpserver connection list",
        "unable to create the tcpserver finished list",
    };
    for (size_t i = 0; i < 4; i++) {
        veltcpserver *server = nullptr;
        {
            const support::malloc_watch watch(i + 1);
            server = vel_tcpserver_create();
        }
        EXPECT_EQ(server, nullptr);
        EXPECT_EQ(own_lines(), (log_lines{server_line(7, texts[i])}));
    }
}

TEST_F(VeltcpserverMemory, AddressIsKeptWhereTheNewOneHasNoMemory)
{
    vel_error_t velerror = -1;
    {
        const support::malloc_watch watch(1);
        velerror = vel_tcpserver_set_address(server_, "127.0.0.2");
    }
    EXPECT_EQ(velerror, VEL_ERROR_NO_MEMORY);
    EXPECT_EQ(log_.take(),
              (log_lines{server_line(7, "not enough memory for the listen address '127.0.0.2'")}));
    start();
    EXPECT_EQ(rest_of(connect()), ""); /* of 127.0.0.1 */
    stop_and_wait();
}

/* Every allocation of a start fails once. */
TEST_F(VeltcpserverMemory, StartNeedsMemory)
{
    const auto texts = failures_of_start([this](size_t allocation) {
        vel_error_t velerror;
        {
            const support::malloc_watch watch(allocation);
            velerror = vel_tcpserver_start(server_);
        }
        if (velerror == VEL_ERROR_NONE)
            stop_and_wait();
        return velerror;
    });
    EXPECT_EQ(texts, (std::set<std::string>{
                         "unable to start listening to incoming TCP connections, error 12 (not "
                         "enough memory)\n",
                         "unable to start listening to incoming TCP connections, error 202 "
                         "(generic error)\n",
                         "unable to initialize threaded logging\n",
                         "unable to create the accept thread\n",
                     }));
}

/* Every allocation of an accept fails once. The client is closed without being served, and the next
 * one gets further. */
TEST_F(VeltcpserverMemory, ConnectionsNeedMemory)
{
    std::unique_ptr<support::malloc_watch> watch;
    size_t allocation = 0;
    calls_.onaccept = [&] {
        watch.reset();
        watch = std::make_unique<support::malloc_watch>(++allocation);
    };
    serve_ = [](velhandle *velhandle) { EXPECT_EQ(vel_handle_write(velhandle, "served", 6), 6u); };
    start();
    std::string text;
    int refused = 0;
    while ((text = rest_of(connect())).empty() && refused < 100)
        refused++;
    EXPECT_EQ(text, "served");
    stop_and_wait();
    watch.reset();
    EXPECT_EQ(calls_.created, 2);

    std::set<std::string> texts;
    for (const log_line &line : own_lines()) {
        if (line.level == 7)
            texts.insert(line.text);
    }
    EXPECT_EQ(texts, (std::set<std::string>{
                         "accept returned 12 (not enough memory)",
                         "not enough memory for tcpserver connection structure",
                         "unable to create a thread for handling the connection",
                     }));
}

/* A whole life, with one client. Its threads allocate one after the other: the accept thread when
 * there is a client, the connection's after that, and this one when the client is served. */
bool serve_one(veltcpserver *server)
{
    unsigned int port = 0;
    if (vel_tcpserver_get_port(server, &port) != VEL_ERROR_NONE)
        return false;
    const int client = support::connect_plain(port, SOCK_STREAM);
    char bytes[8];
    const bool good = recv(client, bytes, sizeof bytes, MSG_WAITALL) == 6;
    close(client);
    return good;
}

bool server_life()
{
    veltcpserver *server = vel_tcpserver_create();
    if (!server)
        return false;
    vel_tcpserver_set_callback(
        server,
        [](veltcpserver *, velhandle *velhandle, void *) {
            vel_handle_write(velhandle, "served", 6);
        },
        nullptr);
    bool good = vel_tcpserver_set_address(server, "127.0.0.1") == VEL_ERROR_NONE &&
                vel_tcpserver_start(server) == VEL_ERROR_NONE;
    if (good) {
        good = serve_one(server);
        vel_tcpserver_stop(server);
        vel_tcpserver_wait(server);
    }
    vel_tcpserver_destroy(server);
    return good;
}

TEST(VeltcpserverOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(server_life);
}

} // namespace
