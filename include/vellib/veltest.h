#ifndef VELLIB_VELTEST_H
#define VELLIB_VELTEST_H

#include <vellib/velapi.h>

/* veltest: a small harness for a test program. It holds test cases, each a function with a context,
 * runs them in order, counts the checks that each makes, and reports:
 *
 *     static void test_add(veltestcase *testcase, void *context)
 *     {
 *         VEL_TEST_EXPECT(testcase, add(1, 2) == 3);
 *     }
 *
 *     veltest *veltest = vel_test_create("sums");
 *     vel_test_add(veltest, test_add, NULL);
 *     result = vel_test_run(veltest);
 *     vel_test_summary(veltest);
 *     vel_test_destroy(veltest);
 *
 * A case that makes no checks counts as failed, as it proves nothing.
 * Threads: one at a time; test functions run in the thread of vel_test_run. */
typedef struct veltest veltest;

/* A test case, as its function sees it. It belongs to the veltest. */
typedef struct veltestcase veltestcase;

/* Runs a test, and makes its checks with vel_test_case_expect_true.
 *
 * context  what was given to vel_test_add. */
typedef void vel_test_function_cb(veltestcase *veltestcase, void *context);

/* Checks a condition, with its text and where it stands. */
#define VEL_TEST_EXPECT(veltestcase, condition)                                                    \
    vel_test_case_expect_true(veltestcase, __FILE__, __LINE__, #condition, (condition) ? 1 : 0)

VEL_DECLARATIONS_BEGIN

/* Creates a suite of no test cases.
 *
 * name  for the reports; is copied.
 *
 * Returns the suite, for vel_test_destroy, or NULL if there is not enough memory, which is
 * logged. */
VEL_API veltest *vel_test_create(const char *name);

/* Destroys a suite with its test cases. */
VEL_API void vel_test_destroy(veltest *veltest);

/* Takes the arguments of a test program: --output FILE (-o) for a report in XML, --append (-a) to
 * add it to a file that is there, --xml (-x), and --help (-h).
 *
 * argc  their number, 1 at least.
 * argv  they themselves; the name of the report's file points into them.
 *
 * Returns 0; 1 if help was asked for and shown; or -1, with a text and the usage printed to the
 * standard error stream if the arguments are in error, or logged if there is not enough memory.
 * Note: --xml is accepted and means nothing: a report is written whenever it has a name. */
VEL_API int vel_test_parse_arguments(veltest *veltest, int argc, char **argv);

/* Adds a test case, which is run after those that were added before.
 *
 * testfunction  the test.
 * context       handed to it; may be NULL.
 *
 * Returns 0, or -1 if there is not enough memory, which is logged. */
VEL_API int vel_test_add(veltest *veltest, vel_test_function_cb *testfunction, void *context);

/* Runs all test cases.
 *
 * Returns 0 if every one made a check and none failed, otherwise 1. */
VEL_API int vel_test_run(veltest *veltest);

/* Prints to the standard error stream what failed, and a line of totals; then writes the report, if
 * vel_test_parse_arguments was given a file for it. The elements of the report are those of JUnit,
 * without a declaration or an element around the suite.
 *
 * Returns a negative number on a failure, of which those to open the file and to convert the time
 * are logged; otherwise 0 after a report, and what printf would return for the totals without one.
 * Note: a case that was not run counts as two that failed, so that the number of cases that
 * succeeded may wrap around.
 * Note: the time of a case in the report runs from the start of the run, not of the case.
 * Note: the name of the suite goes into the report as it is, with no escapes. */
VEL_API int vel_test_summary(veltest *veltest);

/* Counts a check of a test case. One that failed is printed to the standard error stream; the
 * function goes on.
 *
 * filename, line  where the check stands; line is 1 at least.
 * condstring      the text of the condition.
 * condition       0: the check failed. */
VEL_API void vel_test_case_expect_true(veltestcase *veltestcase, const char *filename, int line,
                                       const char *condstring, int condition);

VEL_DECLARATIONS_END

#endif
