#ifndef TESTS_SUPPORT_UDPSERVER_H
#define TESTS_SUPPORT_UDPSERVER_H

/* Stands between a server of datagrams and the platform's threads, receptions and waits. Include
 * this in one source of a program, as it defines pthread_create, pthread_join, recvfrom and poll. */

#undef _FORTIFY_SOURCE /* recvfrom and poll must not be inline functions */

#include <poll.h>

#include "support/serverthreads.h"

namespace support {

inline log_line server_line(int level, const std::string &text)
{
    return {"net/veludpserver", level, text};
}

/* What the server logs around a read that gives so many bytes. */
inline log_line reading_line()
{
    return server_line(1, "vel_udpserver_reception_thread: call vel_handle_read()");
}
inline log_line read_line(size_t count)
{
    return server_line(1, "vel_udpserver_reception_thread: vel_handle_read() returned " +
                              std::to_string(count));
}

/* A server of a callback that a test supplies. */
class server_test : public server_threads_test {
  protected:
    server_test() : server_threads_test("net/veludpserver")
    {
    }
    void SetUp() override
    {
        server_ = vel_udpserver_create();
        ASSERT_NE(server_, nullptr);
        ASSERT_EQ(vel_udpserver_set_address(server_, "127.0.0.1"), VEL_ERROR_NONE);
        vel_udpserver_set_callback(
            server_,
            [](veludpserver *, velhandle *velhandle, const void *buffer, size_t length,
               void *context) {
                static_cast<server_test *>(context)->serve_(
                    velhandle, std::string(static_cast<const char *>(buffer), length));
            },
            this);
    }
    void TearDown() override
    {
        for (int client : clients_)
            close(client);
        vel_udpserver_destroy(server_);
        expect_all_gone();
    }

    void start()
    {
        ASSERT_EQ(vel_udpserver_start(server_), VEL_ERROR_NONE);
        listeners_++;
        ASSERT_EQ(vel_udpserver_get_port(server_, &port_), VEL_ERROR_NONE);
        ASSERT_GT(port_, 0u);
    }
    void stop_and_wait()
    {
        vel_udpserver_stop(server_);
        vel_udpserver_wait(server_);
    }
    /* Until the thread waits for a datagram, so often since the beginning. */
    void wait_for_polls(int count)
    {
        ASSERT_TRUE(place_.wait([&] { return calls_.polls >= count; }));
    }

    /* A socket that sends to the server and takes what comes from there; closed at the end. */
    int connect()
    {
        return clients_.emplace_back(connect_plain(port_, SOCK_DGRAM));
    }
    static void send(int client, const std::string &text)
    {
        EXPECT_EQ(::send(client, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    }
    static std::string receive(int client)
    {
        std::string text(65536, '?');
        const ssize_t count = recv(client, text.data(), text.size(), 0);
        EXPECT_GE(count, 0) << errno;
        text.resize(count < 0 ? 0 : static_cast<size_t>(count));
        return text;
    }

    std::function<void(velhandle *, const std::string &)> serve_ = [](velhandle *velhandle,
                                                                      const std::string &text) {
        EXPECT_EQ(vel_handle_write(velhandle, text.data(), text.size()), text.size());
    };
    veludpserver *server_ = nullptr;
    std::vector<int> clients_;
};

} // namespace support

ssize_t recvfrom(int descriptor, void *buffer, size_t size, int flags, sockaddr *sender,
                 socklen_t *length)
{
    using support::server_calls;
    static const auto next =
        support::platform_function<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)>(
            "recvfrom");
    if (support::server_call_fails(&server_calls::reads, &server_calls::onread,
                                   &server_calls::failread)) {
        errno = ENOBUFS;
        return -1;
    }
    return next(descriptor, buffer, size, flags, sender, length);
}

int poll(pollfd *set, nfds_t count, int milliseconds)
{
    static const auto next = support::platform_function<int(pollfd *, nfds_t, int)>("poll");
    if (support::server_calls *calls = support::calls) {
        calls->place.change([&] { calls->polls++; });
        if (calls->onpoll)
            calls->onpoll();
    }
    return next(set, count, milliseconds);
}

#endif
