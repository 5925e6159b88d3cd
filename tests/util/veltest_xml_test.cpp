#include <vellib/veltest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/descriptors.h"
#include "support/logcapture.h"
#include "support/optiontest.h"
#include "support/stdstreams.h"
#include "support/tempdir.h"
#include "support/wallclock.h"

using support::log_line;

using log_lines = std::vector<log_line>;

static void run_checks(veltestcase *veltestcase, void *context)
{
    for (const char *check = static_cast<const char *>(context); *check != '\0'; check++)
        vel_test_case_expect_true(veltestcase, "case.c", 1, "a == b", *check == '.');
}

class VeltestXml : public testing::Test {
  protected:
    void SetUp() override
    {
        setenv("TZ", "UTC0", 1);
        tzset();
        suite = vel_test_create("suite");
        ASSERT_NE(suite, nullptr);
    }
    void TearDown() override
    {
        vel_test_destroy(suite);
        unsetenv("TZ");
        tzset();
        EXPECT_EQ(log.take(), (log_lines{}));
    }

    void add(const char *checks)
    {
        ASSERT_EQ(vel_test_add(suite, run_checks, const_cast<char *>(checks)), 0);
    }

    void parse(const std::vector<std::string> &words)
    {
        kept.push_back(std::make_unique<support::arguments>(words));
        ASSERT_EQ(vel_test_parse_arguments(suite, kept.back()->count(), kept.back()->values()), 0);
    }

    int run()
    {
        support::stream_capture err(stderr);
        return vel_test_run(suite);
    }

    int summary()
    {
        support::stream_capture err(stderr);
        return vel_test_summary(suite);
    }

    support::log_capture log;
    support::temporary_directory temporary;
    support::wall_clock clock;
    std::vector<std::unique_ptr<support::arguments>> kept; /* the name of the file is not copied */
    veltest *suite = nullptr;
};

static std::string opening(const std::string &name, int tests, int failures,
                           const std::string &time,
                           const std::string &stamp = "2023-11-14T22:13:20")
{
    return "  <testsuite name=\"" + name + "\" hostname=\"localhost\" tests=\"" +
           std::to_string(tests) + "\" errors=\"0\" failures=\"" + std::to_string(failures) +
           "\" time=\"" + time + "\" timestamp=\"" + stamp + "\">\n";
}

static std::string testcase(int checks, const std::string &time, const std::string &inside = "")
{
    return "    <testcase name=\"XXX testcase name XXX\" assertions=\"" + std::to_string(checks) +
           "\" classname=\"XXX classname XXX\" status=\"\" time=\"" + time + "\">\n" + inside +
           "      <system-out>XXX</system-out>\n"
           "      <system-err>XXX</system-err>\n"
           "    </testcase>\n";
}

static std::string failure(int failures, int checks)
{
    return "      <failure message=\"" + std::to_string(failures) + "/" + std::to_string(checks) +
           " checks failed\" type=\"failed expectation\">      </failure>\n";
}

static const char kNotRun[] = "      <error message=\"testcase was not run at all\" "
                              "type=\"testcase not run\">      </error>\n";
static const char kClosing[] = "  </testsuite>\n";

/* The readings: the start, the end of each case, the end of the run. */
TEST_F(VeltestXml, ReportOfRun)
{
    add("..");
    add(".xx");
    add("");
    parse({"--output=report.xml"});
    clock.monotonic = {1000000, 2500000, 4000001, 13999999, 14250000};
    EXPECT_EQ(run(), 1);
    EXPECT_EQ(summary(), 0);
    EXPECT_EQ(support::read_file("report.xml"),
              opening("suite", 3, 2, "13.250000") + testcase(2, "1.500000") +
                  testcase(3, "3.000001", failure(2, 3)) + testcase(0, "12.999999") + kClosing);
}

TEST_F(VeltestXml, ReportWithoutRun)
{
    add("..");
    add("x");
    parse({"-o", "report.xml"});
    EXPECT_EQ(summary(), 0);
    EXPECT_EQ(support::read_file("report.xml"), opening("suite", 2, 4, "0.000000") +
                                                    testcase(0, "0.000000", kNotRun) +
                                                    testcase(0, "0.000000", kNotRun) + kClosing);
}

/* Case 1 has failed and has not come to its end. */
TEST_F(VeltestXml, CaseThatIsRunningIsAnError)
{
    const auto check = [](veltestcase *veltestcase, void *context) {
        vel_test_case_expect_true(veltestcase, "case.c", 1, "false", 0);
        EXPECT_EQ(vel_test_summary(*static_cast<veltest **>(context)), 0);
    };
    ASSERT_EQ(vel_test_add(suite, check, &suite), 0);
    parse({"-o", "report.xml"});
    EXPECT_EQ(run(), 1);
    EXPECT_EQ(support::read_file("report.xml"),
              opening("suite", 1, 2, "0.000000") + testcase(1, "0.000000", kNotRun) + kClosing);
}

TEST_F(VeltestXml, EmptySuite)
{
    parse({"-o", "report.xml"});
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(summary(), 0);
    EXPECT_EQ(support::read_file("report.xml"), opening("suite", 0, 0, "0.000000") + kClosing);
}

TEST_F(VeltestXml, NameIsNotEscaped)
{
    veltest *other = vel_test_create("a<b>&\"c\"%s");
    ASSERT_NE(other, nullptr);
    const support::arguments arguments({"-o", "report.xml"});
    ASSERT_EQ(vel_test_parse_arguments(other, arguments.count(), arguments.values()), 0);
    {
        support::stream_capture err(stderr);
        EXPECT_EQ(vel_test_summary(other), 0);
    }
    EXPECT_EQ(support::read_file("report.xml"),
              opening("a<b>&\"c\"%s", 0, 0, "0.000000") + kClosing);
    vel_test_destroy(other);
}

TEST_F(VeltestXml, TimeStampIsLocalAndOfTheSummary)
{
    setenv("TZ", "EAST-2", 1);
    tzset();
    parse({"-o", "report.xml"});
    EXPECT_EQ(run(), 0);
    clock.now = 1709251199; /* 2024-02-29T23:59:59Z */
    EXPECT_EQ(summary(), 0);
    EXPECT_EQ(support::read_file("report.xml"),
              opening("suite", 0, 0, "0.000000", "2024-03-01T01:59:59") + kClosing);
}

/* ---- the file ---- */

TEST_F(VeltestXml, XmlAloneWritesNothing)
{
    parse({"--xml"});
    EXPECT_EQ(run(), 0);
    EXPECT_GT(summary(), 0);
    EXPECT_TRUE(std::filesystem::is_empty("."));
}

TEST_F(VeltestXml, AppendAloneWritesNothing)
{
    parse({"--append"});
    EXPECT_GT(summary(), 0);
    EXPECT_TRUE(std::filesystem::is_empty("."));
}

TEST_F(VeltestXml, AppendAddsSuites)
{
    support::write_file("report.xml", "before\n");
    parse({"-ao", "report.xml"});
    const std::string report = opening("suite", 0, 0, "0.000000") + kClosing;
    EXPECT_EQ(summary(), 0);
    EXPECT_EQ(support::read_file("report.xml"), "before\n" + report);
    EXPECT_EQ(summary(), 0);
    EXPECT_EQ(support::read_file("report.xml"), "before\n" + report + report);
}

TEST_F(VeltestXml, AppendMakesTheFile)
{
    parse({"--append", "--output", "report.xml", "--xml"});
    EXPECT_EQ(summary(), 0);
    EXPECT_EQ(support::read_file("report.xml"), opening("suite", 0, 0, "0.000000") + kClosing);
}

TEST_F(VeltestXml, WithoutAppendTheFileStartsAnew)
{
    support::write_file("report.xml", std::string(10000, 'x'));
    parse({"-o", "report.xml"});
    const std::string report = opening("suite", 0, 0, "0.000000") + kClosing;
    EXPECT_EQ(summary(), 0);
    EXPECT_EQ(support::read_file("report.xml"), report);
    EXPECT_EQ(summary(), 0);
    EXPECT_EQ(support::read_file("report.xml"), report);
}

/* ---- failures ---- */

TEST_F(VeltestXml, FileThatCannotBeOpened)
{
    for (const char *option : {"-o", "-ao"}) {
        parse({option, "missing/report.xml"});
        support::stream_capture err(stderr);
        EXPECT_LT(vel_test_summary(suite), 0);
        EXPECT_EQ(err.text(), "suite: 0/0 test cases (0/0 checks) succeeded, 0 (0) failed\n");
        EXPECT_EQ(log.take(),
                  (log_lines{{"util/veltest", 7,
                              "unable to open file 'missing/report.xml' for writing, error 2"}}));
    }
}

TEST_F(VeltestXml, EmptyFileNameCannotBeOpened)
{
    parse({"--output="});
    EXPECT_LT(summary(), 0);
    EXPECT_EQ(log.take(),
              (log_lines{{"util/veltest", 7, "unable to open file '' for writing, error 2"}}));
}

TEST_F(VeltestXml, TimeThatCannotBeConverted)
{
    parse({"-o", "report.xml"});
    clock.localtimefails = true;
    const std::set<int> before = support::descriptors();
    EXPECT_LT(summary(), 0);
    EXPECT_EQ(support::descriptors(), before);
    EXPECT_EQ(log.take(), (log_lines{{"util/veltest", 7, "local time conversion failed"}}));
    EXPECT_EQ(support::read_file("report.xml"), "");
}
