/* A server of datagrams that runs for long. */

#include "support/soak.h"

#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/plainclient.h"

namespace {

using support::soak_length;
using support::soak_look;
using support::soak_state;

/* Sends the numbers from first, each by another client, one ahead of the answers for each client,
 * and expects each back where it came from. */
void exchange(const std::vector<int> &clients, uint64_t first, uint64_t count)
{
    std::vector<char> bytes(2000);
    for (uint64_t number = first; number < first + count; number += clients.size()) {
        for (size_t i = 0; i < clients.size(); i++) {
            const uint64_t value = number + i;
            const size_t size = sizeof value + value % 1000;
            memcpy(bytes.data(), &value, sizeof value);
            ASSERT_EQ(send(clients[i], bytes.data(), size, 0), static_cast<ssize_t>(size));
        }
        for (size_t i = 0; i < clients.size(); i++) {
            uint64_t value = 0;
            const ssize_t size = recv(clients[i], bytes.data(), bytes.size(), 0);
            memcpy(&value, bytes.data(), sizeof value);
            ASSERT_EQ(value, number + i);
            ASSERT_EQ(size, static_cast<ssize_t>(sizeof value + value % 1000));
        }
    }
}

void echo(veludpserver *, velhandle *velhandle, const void *buffer, size_t length, void *context)
{
    (*static_cast<uint64_t *>(context))++;
    EXPECT_EQ(vel_handle_write(velhandle, buffer, length), length);
}

void serve(veludpserver *server, uint64_t count)
{
    uint64_t served = 0;
    unsigned int port = 0;
    ASSERT_EQ(vel_udpserver_set_address(server, "127.0.0.1"), VEL_ERROR_NONE);
    vel_udpserver_set_callback(server, echo, &served);
    ASSERT_EQ(vel_udpserver_start(server), VEL_ERROR_NONE);
    ASSERT_EQ(vel_udpserver_get_port(server, &port), VEL_ERROR_NONE);
    std::vector<int> clients;
    for (int i = 0; i < 8; i++)
        clients.push_back(support::connect_plain(port, SOCK_DGRAM));

    const uint64_t warmup = count / 10 / clients.size() * clients.size();
    exchange(clients, 0, warmup);
    const soak_state before = soak_look();
    EXPECT_GE(before.threads, 2u); /* this one and the server's */
    exchange(clients, warmup, count - warmup);
    const soak_state after = soak_look();
    EXPECT_EQ(after, before);
    EXPECT_LE(after.residents, before.residents + soak_length(1024, 65536));

    for (int client : clients)
        close(client);
    vel_udpserver_stop(server);
    vel_udpserver_wait(server);
    EXPECT_EQ(served, count);
}

TEST(VeludpserverSoak, OneServerAndManyDatagrams)
{
    vel_log_stderr_disable(nullptr);
    veludpserver *server = vel_udpserver_create();
    ASSERT_NE(server, nullptr);
    const uint64_t count = soak_length(1000000u, 20000u);
    serve(server, count);
    support::soak_report(count, "datagrams there and back");
    vel_udpserver_destroy(server);
    vel_log_uninit();
}

/* Only the pipe of a server stays when it is gone, which is two descriptors. */
TEST(VeludpserverSoak, ManyServers)
{
    vel_log_stderr_disable(nullptr);
    soak_state before = {};
    const int warmup = 5;
    const int turns = soak_length(200, 50);
    for (int turn = 0; turn < turns; turn++) {
        veludpserver *server = vel_udpserver_create();
        ASSERT_NE(server, nullptr);
        serve(server, 80);
        vel_udpserver_destroy(server);
        if (turn == warmup - 1)
            before = soak_look();
    }
    before.descriptors += 2u * (turns - warmup);
    EXPECT_EQ(soak_look(), before);
    support::soak_report(turns, "servers, one after the other");
    vel_log_uninit();
}

} // namespace
