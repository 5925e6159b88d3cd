#ifndef TESTS_SUPPORT_PLAINCLIENT_H
#define TESTS_SUPPORT_PLAINCLIENT_H

#include <cstdint>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <gtest/gtest.h>

namespace support {

/* A plain socket that is connected to the port, as clients outside of the library have it. What does
 * not come from there within a minute does not come. */
inline int connect_plain(unsigned int port, int type)
{
    const int descriptor = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(descriptor, reinterpret_cast<const sockaddr *>(&to), sizeof to), 0);
    const timeval limit = {60, 0};
    EXPECT_EQ(setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
    return descriptor;
}

} // namespace support

#endif
