#ifndef TESTS_SUPPORT_SOCKETTEST_H
#define TESTS_SUPPORT_SOCKETTEST_H

#include <set>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/descriptors.h"
#include "support/logcapture.h"

namespace support {

using log_lines = std::vector<log_line>;

/* A line of the socket module. */
inline log_line socket_line(int level, const std::string &text)
{
    return {"net/velsocket", level, text};
}

constexpr int kLong = 20; /* seconds, for a wait that is to end before */

inline unsigned int local_port(velsocket *velsocket)
{
    unsigned int port = 99999;
    EXPECT_EQ(vel_socket_get_local_port(velsocket, &port), VEL_ERROR_NONE);
    return port;
}

inline velsocket *bound(velsocket *velsocket)
{
    EXPECT_EQ(vel_socket_bind(velsocket, "127.0.0.1", 0), VEL_ERROR_NONE);
    return velsocket;
}

/* Has the close of a connection reset it. */
inline void reset_on_close(int descriptor)
{
    const linger now = {1, 0};
    ASSERT_EQ(setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof now), 0);
}

/* Every test ends with the descriptors it began with, but for pipes, which the library keeps. */
class socket_test : public testing::Test {
  protected:
    void TearDown() override
    {
        if (connection_)
            vel_socket_destroy(connection_);
        if (client_)
            vel_socket_destroy(client_);
        if (listener_)
            vel_socket_destroy(listener_);
        const std::vector<int> left = support::descriptors_since(before_);
        EXPECT_EQ(left.size(), 2u * pipes_);
        for (int descriptor : left)
            EXPECT_EQ(::close(descriptor), 0);
    }

    void listen()
    {
        listener_ = bound(vel_socket_tcp_create());
        ASSERT_EQ(vel_socket_listen(listener_, 5), VEL_ERROR_NONE);
        pipes_++;
    }

    /* Makes client_ and connection_ the two ends of a connection. */
    void connect()
    {
        listen();
        vel_error_t velerror = -1;
        client_ = vel_socket_tcp_connect("127.0.0.1", local_port(listener_), &velerror);
        ASSERT_NE(client_, nullptr);
        ASSERT_EQ(velerror, VEL_ERROR_NONE);
        ASSERT_EQ(vel_socket_poll_read(listener_, kLong, 0), VEL_ERROR_NONE);
        ASSERT_EQ(vel_socket_accept(listener_, &connection_), VEL_ERROR_NONE);
        ASSERT_NE(connection_, nullptr);
        log_.clear();
    }

    std::string read(velsocket *velsocket, size_t room = 100)
    {
        std::string bytes(room, '?');
        bytes.resize(vel_socket_read_with_timeout(velsocket, bytes.data(), room, kLong, 0));
        return bytes;
    }

    void close(velsocket **velsocketptr)
    {
        vel_socket_destroy(*velsocketptr);
        *velsocketptr = nullptr;
    }

    const std::set<int> before_ = support::descriptors();
    support::log_capture log_;
    velsocket *listener_ = nullptr;
    velsocket *client_ = nullptr;
    velsocket *connection_ = nullptr;
    unsigned int pipes_ = 0;
};

} // namespace support

#endif
