#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

/* What is to hold in any locale is tested once more in one with a decimal comma. */
static bool take_comma_locale()
{
    const char *const name = getenv("VEL_TEST_COMMA_LOCALE");
    if (!name || (setlocale(LC_ALL, name) && localeconv()->decimal_point == std::string(",")))
        return true;
    fprintf(stderr, "there is no locale %s with a decimal comma\n", name);
    return false;
}

int main(int argc, char **argv)
{
    if (!take_comma_locale())
        return EXIT_FAILURE;
    /* A peer that closes must not end the test program. */
    signal(SIGPIPE, SIG_IGN);
    testing::InitGoogleTest(&argc, argv);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    return RUN_ALL_TESTS();
}
