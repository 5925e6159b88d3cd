#ifndef TESTS_SUPPORT_NETFIXTURE_H
#define TESTS_SUPPORT_NETFIXTURE_H

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/logcapture.h"
#include "support/netshim.h"

namespace support {

using log_lines = std::vector<log_line>;

/* A line of the socket module. */
inline log_line socket_line(int level, const std::string &text)
{
    return {"net/velsocket", level, text};
}

/* A test between the library and the platform, which must leave no descriptor and no list of
 * addresses behind. */
class net_test : public testing::Test {
  protected:
    void TearDown() override
    {
        EXPECT_EQ(open_descriptors(), before_ + leaked_);
        EXPECT_EQ(shim_.open_lists(), 0);
    }

    int before_ = open_descriptors();
    int leaked_ = 0; /* 2 for each wakeup pipe, which the library never closes */
    log_capture log_;
    net_shim shim_;
};

} // namespace support

#endif
