#include <csignal>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    /* A peer that closes must not end the test program. */
    signal(SIGPIPE, SIG_IGN);
    testing::InitGoogleTest(&argc, argv);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    return RUN_ALL_TESTS();
}
