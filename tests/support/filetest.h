#ifndef TESTS_SUPPORT_FILETEST_H
#define TESTS_SUPPORT_FILETEST_H

/* What the tests of files share: a directory of their own, and a log of which no line is left. */

#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velfile.h>

#include "support/logcapture.h"
#include "support/tempdir.h"

class Velfile : public testing::Test {
  protected:
    /* Every line is to be taken by the test that causes it. */
    void TearDown() override
    {
        EXPECT_EQ(log.take(), (std::vector<support::log_line>{}));
    }

    /* Opens a file with the ten digits for reading and writing. */
    FILE *open_digits()
    {
        support::write_file("digits", "0123456789");
        FILE *file = vel_file_update_binary("digits");
        EXPECT_NE(file, nullptr);
        return file;
    }

    support::temporary_directory temporary;
    support::log_capture log;
};

class VelfileDeathTest : public Velfile {};

/* Reads at most count bytes. */
inline std::string take(FILE *file, size_t count)
{
    std::string buffer(count, '?');
    buffer.resize(vel_file_read(file, buffer.data(), count));
    return buffer;
}

#endif
