#include <errno.h>

#include <cstddef>

#include <vellib/velfile.h>
#include <vellib/veltest.h>
#include <vellib/veltime.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"
#include "util/veltest_internal.h"

#define VEL_MODULE "util/veltest"

/* Whether the element could be written cannot be told before the file is closed: what fails is kept
 * by the stream. */
static void vel_test_summary_xml_testcase(FILE *out, const veltestcase *testcase)
{
    VEL_ASSERT(out != NULL);

    (void)vel_file_fprintf(out,
                           "    <testcase name=\"%s\" assertions=\"%u\" classname=\"%s\" "
                           "status=\"\" time=\"%d.%06u\">\n",
                           "XXX testcase name XXX", testcase->checks, "XXX classname XXX",
                           testcase->seconds, testcase->microseconds);
    if (!testcase->done) {
        (void)vel_file_fprintf(
            out, "      <error message=\"testcase was not run at all\" type=\"testcase not run\">");
        (void)vel_file_fprintf(out, "      </error>\n");
    } else if (testcase->failures != 0) {
        (void)vel_file_fprintf(
            out, "      <failure message=\"%u/%u checks failed\" type=\"failed expectation\">",
            testcase->failures, testcase->checks);
        (void)vel_file_fprintf(out, "      </failure>\n");
    }
    (void)vel_file_fprintf(out, "      <system-out>XXX</system-out>\n");
    (void)vel_file_fprintf(out, "      <system-err>XXX</system-err>\n");
    (void)vel_file_fprintf(out, "    </testcase>\n");
}

/* Formats the present local time. */
static bool vel_test_summary_xml_time(char *buffer, size_t bufferlen)
{
    const time_t now = vel_time(nullptr);
    struct tm tm;
    if (!vel_localtime_r(&now, &tm)) {
        VEL_LOG(7, "local time conversion failed");
        return false;
    }
    const size_t size = strftime(buffer, bufferlen, "%Y-%m-%dT%H:%M:%S", &tm);
    VEL_ASSERT(size > 0);
    return true;
}

/* Writes the suite. Returns 0, or -1 if something could not be written. */
static int vel_test_summary_xml_suite(FILE *out, const veltest *veltest,
                                      const vel_test_counts *counts)
{
    char timestamp[32];
    if (!vel_test_summary_xml_time(timestamp, sizeof(timestamp)))
        return -1;
    (void)vel_file_fprintf(
        out,
        "  <testsuite name=\"%s\" hostname=\"localhost\" tests=\"%u\" errors=\"0\" "
        "failures=\"%u\" time=\"%d.%06u\" timestamp=\"%s\">\n",
        veltest->name, counts->cases, counts->failedcases, veltest->totalseconds,
        veltest->totalmicroseconds, timestamp);
    for (auto *testcase = static_cast<veltestcase *>(veltest->testcases->head); testcase;
         testcase = testcase->next)
        vel_test_summary_xml_testcase(out, testcase);
    (void)vel_file_fprintf(out, "  </testsuite>\n");
    return vel_file_ferror(out) ? -1 : 0;
}

int vel_test_summary_xml(veltest *veltest, const char *filename, const vel_test_counts *counts)
{
    VEL_ASSERT(veltest != NULL);
    VEL_ASSERT(filename != NULL);

    FILE *out = veltest->append ? vel_file_append_ascii(filename) : vel_file_create_ascii(filename);
    if (!out) {
        const int platformerrno = errno;
        VEL_LOG(7, "unable to open file '%s' for writing, error %d", filename, platformerrno);
        return -1;
    }
    const int result = vel_test_summary_xml_suite(out, veltest, counts);
    return vel_file_close(out) == 0 ? result : -1;
}
