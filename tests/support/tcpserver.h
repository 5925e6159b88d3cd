#ifndef TESTS_SUPPORT_TCPSERVER_H
#define TESTS_SUPPORT_TCPSERVER_H

/* Stands between a server and the platform's threads and accepts. Include this in one source of a
 * program, as it defines pthread_create, pthread_join and accept. */

#include "support/serverthreads.h"

namespace support {

inline log_line server_line(int level, const std::string &text)
{
    return {"net/veltcpserver", level, text};
}

/* A server of a callback that a test supplies. */
class server_test : public server_threads_test {
  protected:
    server_test() : server_threads_test("net/veltcpserver")
    {
    }
    void SetUp() override
    {
        server_ = vel_tcpserver_create();
        ASSERT_NE(server_, nullptr);
        ASSERT_EQ(vel_tcpserver_set_address(server_, "127.0.0.1"), VEL_ERROR_NONE);
        vel_tcpserver_set_callback(
            server_,
            [](veltcpserver *, velhandle *velhandle, void *context) {
                static_cast<server_test *>(context)->serve_(velhandle);
            },
            this);
    }
    void TearDown() override
    {
        vel_tcpserver_destroy(server_);
        expect_all_gone();
    }

    void start()
    {
        ASSERT_EQ(vel_tcpserver_start(server_), VEL_ERROR_NONE);
        listeners_++;
        ASSERT_EQ(vel_tcpserver_get_port(server_, &port_), VEL_ERROR_NONE);
        ASSERT_GT(port_, 0u);
    }
    void stop_and_wait()
    {
        vel_tcpserver_stop(server_);
        vel_tcpserver_wait(server_);
    }
    int connect()
    {
        return connect_plain(port_, SOCK_STREAM);
    }
    /* What the server sends until it closes the connection, and closes it here. */
    static std::string rest_of(int descriptor)
    {
        std::string text;
        char bytes[4096];
        ssize_t count;
        while ((count = recv(descriptor, bytes, sizeof bytes, 0)) > 0)
            text.append(bytes, static_cast<size_t>(count));
        EXPECT_EQ(count, 0) << errno;
        close(descriptor);
        return text;
    }

    std::function<void(velhandle *)> serve_ = [](velhandle *) {};
    veltcpserver *server_ = nullptr;
};

} // namespace support

int accept(int descriptor, sockaddr *address, socklen_t *length)
{
    using support::server_calls;
    static const auto next =
        support::platform_function<int(int, sockaddr *, socklen_t *)>("accept");
    if (support::server_call_fails(&server_calls::accepts, &server_calls::onaccept,
                                   &server_calls::failaccept)) {
        errno = EMFILE;
        return -1;
    }
    return next(descriptor, address, length);
}

#endif
