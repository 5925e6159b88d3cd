/* A test program as a user writes it, for veltest_junit_test.py: its suites and their cases come
 * from the environment, and its arguments are those of the harness.
 *
 * VEL_TEST_SUITE  the name of the suite.
 * VEL_TEST_CASES  words of "." and "x", a word for each case and a letter for each check.
 * VEL_TEST_RUN    0 to print the summary without a run. */

#include <vellib/veltest.h>

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

static void run_checks(veltestcase *veltestcase, void *context)
{
    for (const char check : *static_cast<std::string *>(context))
        if (check != '-')
            VEL_TEST_EXPECT(veltestcase, check == '.');
}

static int run_suite(veltest *suite, int argc, char **argv)
{
    switch (vel_test_parse_arguments(suite, argc, argv)) {
    case -1:
        return 2;
    case 1:
        return 0;
    }
    std::vector<std::string> cases;
    std::istringstream words(getenv("VEL_TEST_CASES"));
    for (std::string word; words >> word;)
        cases.push_back(word);
    for (std::string &checks : cases)
        if (vel_test_add(suite, run_checks, &checks) != 0)
            return 2;
    const int result = strcmp(getenv("VEL_TEST_RUN"), "0") == 0 ? 0 : vel_test_run(suite);
    return vel_test_summary(suite) < 0 ? 2 : result;
}

int main(int argc, char **argv)
{
    veltest *suite = vel_test_create(getenv("VEL_TEST_SUITE"));
    if (!suite)
        return 2;
    const int result = run_suite(suite, argc, argv);
    vel_test_destroy(suite);
    return result;
}
