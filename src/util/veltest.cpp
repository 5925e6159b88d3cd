#include <vellib/veltest.h>

#include <cstddef>

#include <vellib/velgetopt.h>
#include <vellib/velmalloc.h>
#include <vellib/velstdio.h>
#include <vellib/velstrdup.h>
#include <vellib/veltime.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"
#include "util/veltest_internal.h"

#define VEL_MODULE "util/veltest"

/* ---- Life ---- */

static bool vel_test_build(veltest *veltest, const char *name)
{
    veltest->name = vel_strdup(name);
    if (!veltest->name) {
        VEL_LOG(7, "not enough memory for test name '%s'", name);
        return false;
    }
    veltest->testcases = vel_list_create();
    if (!veltest->testcases) {
        VEL_LOG(7, "not enough memory for test case list");
        return false;
    }
    veltest->veltimer = vel_timer_create();
    if (!veltest->veltimer) {
        VEL_LOG(7, "unable to create timer context");
        return false;
    }
    return true;
}

veltest *vel_test_create(const char *name)
{
    VEL_ASSERT(name != NULL);

    auto *veltest = static_cast<struct veltest *>(vel_cmalloc(sizeof(struct veltest)));
    if (!veltest) {
        VEL_LOG(7, "not enough memory for test context");
        return nullptr;
    }
    if (!vel_test_build(veltest, name)) {
        vel_test_destroy(veltest);
        return nullptr;
    }
    return veltest;
}

void vel_test_destroy(veltest *veltest)
{
    VEL_ASSERT(veltest != NULL);

    if (veltest->veltimer)
        vel_timer_destroy(veltest->veltimer);
    if (veltest->testcases) {
        while (auto *testcase = static_cast<veltestcase *>(veltest->testcases->head)) {
            VEL_LIST_REMOVE(veltest->testcases, testcase);
            vel_free(testcase);
        }
        vel_list_destroy(veltest->testcases);
    }
    if (veltest->name)
        vel_free(veltest->name);
    vel_free(veltest);
}

/* ---- Arguments ---- */

static bool vel_test_declare_options(veltest *veltest, velgetopt *velgetopt)
{
    return vel_getopt_flag_set(velgetopt, "xml", 'x', &veltest->xml, "Enable xml output.") == 0 &&
           vel_getopt_const_string(velgetopt, "output", 'o', &veltest->outfile, "outfile",
                                   "Output file name.") == 0 &&
           vel_getopt_flag_set(velgetopt, "append", 'a', &veltest->append,
                               "Append to a previous output file.") == 0 &&
           vel_getopt_help(velgetopt, "help", 'h') == 0;
}

/* Says what is wrong with the arguments. Returns -1, which is then the result. */
static int vel_test_refuse_arguments(velgetopt *velgetopt, const char *why)
{
    (void)vel_stdio_printf_stderr("%s\n", why);
    (void)vel_getopt_usage_stderr(velgetopt);
    return -1;
}

static int vel_test_parse_options(veltest *veltest, velgetopt *velgetopt, int argc, char **argv)
{
    if (!vel_test_declare_options(veltest, velgetopt)) {
        VEL_LOG(7, "unable to add command line options");
        return -1;
    }
    const int result = vel_getopt_parse(velgetopt, argc, argv);
    if (result < 0)
        return vel_test_refuse_arguments(velgetopt, "Parsing options failed.");
    if (result == 0 && vel_getopt_optind(velgetopt) != argc)
        return vel_test_refuse_arguments(velgetopt, "Too many arguments.");
    return result;
}

int vel_test_parse_arguments(veltest *veltest, int argc, char **argv)
{
    VEL_ASSERT(veltest != NULL);
    VEL_ASSERT(argc > 0);
    VEL_ASSERT(argv != NULL);

    velgetopt *velgetopt = vel_getopt_create();
    if (!velgetopt) {
        VEL_LOG(7, "unable to create getopt context");
        return -1;
    }
    const int result = vel_test_parse_options(veltest, velgetopt, argc, argv);
    vel_getopt_destroy(velgetopt);
    return result;
}

/* ---- Test cases ---- */

static veltestcase *vel_test_case_create(veltest *veltest, vel_test_function_cb *testfunction,
                                         void *context)
{
    auto *testcase = static_cast<veltestcase *>(vel_cmalloc(sizeof(veltestcase)));
    if (!testcase) {
        VEL_LOG(7, "not enough memory for a test case");
        return nullptr;
    }
    testcase->veltest = veltest;
    testcase->testfunction = testfunction;
    testcase->context = context;
    return testcase;
}

int vel_test_add(veltest *veltest, vel_test_function_cb *testfunction, void *context)
{
    VEL_ASSERT(veltest != NULL);
    VEL_ASSERT(testfunction != NULL);

    veltestcase *testcase = vel_test_case_create(veltest, testfunction, context);
    if (!testcase) {
        VEL_LOG(7, "unable to create test case");
        return -1;
    }
    VEL_LIST_ADD_TAIL(veltest->testcases, testcase);
    return 0;
}

int vel_test_run(veltest *veltest)
{
    VEL_ASSERT(veltest != NULL);

    int result = 0;
    veltest->starttime = vel_time(nullptr);
    vel_timer_start(veltest->veltimer);
    for (auto *testcase = static_cast<veltestcase *>(veltest->testcases->head); testcase;
         testcase = testcase->next) {
        testcase->testfunction(testcase, testcase->context);
        /* The split is not stored, so the time of a case is counted from the start of the run. */
        vel_timer_split(veltest->veltimer);
        vel_timer_getsplit(veltest->veltimer, 0, &testcase->seconds, &testcase->microseconds,
                           nullptr);
        testcase->done = 1;
        if (testcase->checks == 0 || testcase->failures != 0)
            result = 1;
    }
    vel_timer_split(veltest->veltimer);
    vel_timer_gettotal(veltest->veltimer, 0, &veltest->totalseconds, &veltest->totalmicroseconds,
                       nullptr);
    return result;
}

void vel_test_case_expect_true(veltestcase *veltestcase, const char *filename, int line,
                               const char *condstring, int condition)
{
    VEL_ASSERT(veltestcase != NULL);
    VEL_ASSERT(filename != NULL);
    VEL_ASSERT(line > 0);
    VEL_ASSERT(condstring != NULL);

    veltestcase->checks++;
    if (condition)
        return;
    veltestcase->failures++;
    (void)vel_stdio_printf_stderr("ERROR: %s:%d failed condition: %s\n", filename, line,
                                  condstring);
}

/* ---- Summary ---- */

/* Counts a case, and prints what is wrong with it. One that was not run counts as failed twice. */
static void vel_test_summarize_case(const veltestcase *testcase, vel_test_counts *counts)
{
    const char *name = testcase->veltest->name;
    const unsigned int number = ++counts->cases;

    counts->checks += testcase->checks;
    if (testcase->failures != 0) {
        (void)vel_stdio_printf_stderr("%s: testcase %u, %u/%u checks succeeded, %u failed\n", name,
                                      number, testcase->checks - testcase->failures,
                                      testcase->checks, testcase->failures);
        counts->failedcases++;
        counts->failedchecks += testcase->failures;
    } else if (testcase->checks == 0) {
        (void)vel_stdio_printf_stderr(
            "%s: testcase %u, no checks were performed, considering test failed\n", name, number);
        counts->failedcases++;
    }
    if (!testcase->done) {
        (void)vel_stdio_printf_stderr("%s: testcase %u has NOT been run!\n", name, number);
        counts->failedcases++;
        counts->checks++;
        counts->failedchecks++;
    }
}

int vel_test_summary(veltest *veltest)
{
    VEL_ASSERT(veltest != NULL);

    vel_test_counts counts = {};
    for (auto *testcase = static_cast<veltestcase *>(veltest->testcases->head); testcase;
         testcase = testcase->next)
        vel_test_summarize_case(testcase, &counts);

    const int result = vel_stdio_printf_stderr(
        "%s: %u/%u test cases (%u/%u checks) succeeded, %u (%u) failed\n", veltest->name,
        counts.cases - counts.failedcases, counts.cases, counts.checks - counts.failedchecks,
        counts.checks, counts.failedcases, counts.failedchecks);
    if (veltest->outfile)
        return vel_test_summary_xml(veltest, veltest->outfile, &counts);
    return result;
}
