#include <vellib/veltest.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/allocfail.h"
#include "support/eachfailure.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/optiontest.h"
#include "support/stdstreams.h"
#include "support/tempdir.h"

using support::log_line;

using log_lines = std::vector<log_line>;

static const char kModule[] = "util/veltest";

static void hold(veltestcase *veltestcase, void *)
{
    vel_test_case_expect_true(veltestcase, "case.c", 1, "true", 1);
}

static void fail(veltestcase *veltestcase, void *)
{
    vel_test_case_expect_true(veltestcase, "case.c", 1, "false", 0);
}

TEST(VeltestMemory, Create)
{
    support::log_capture log;
    support::warm_log(log);
    const std::vector<log_lines> lines = support::allocfail_each(log, [] {
        veltest *suite = vel_test_create("the suite");
        if (suite)
            vel_test_destroy(suite);
        return suite != nullptr;
    });
    EXPECT_EQ(lines,
              (std::vector<log_lines>{{{kModule, 7, "not enough memory for test context"}},
                                      {{kModule, 7, "not enough memory for test name 'the suite'"}},
                                      {{kModule, 7, "not enough memory for test case list"}},
                                      {{"util/veltimer", 7, "not enough memory for timer context"},
                                       {kModule, 7, "unable to create timer context"}}}));
}

class VeltestSuiteMemory : public testing::Test {
  protected:
    void SetUp() override
    {
        support::warm_log(log);
        suite = vel_test_create("suite");
        ASSERT_NE(suite, nullptr);
    }
    void TearDown() override
    {
        vel_test_destroy(suite);
    }

    support::log_capture log;
    veltest *suite = nullptr;
};

TEST_F(VeltestSuiteMemory, Add)
{
    EXPECT_EQ(support::allocfail_each(log, [&] { return vel_test_add(suite, hold, nullptr) == 0; }),
              (std::vector<log_lines>{{{kModule, 7, "not enough memory for a test case"},
                                       {kModule, 7, "unable to create test case"}}}));
    EXPECT_EQ(vel_test_run(suite), 0);
    support::stream_capture err(stderr);
    vel_test_summary(suite);
    EXPECT_EQ(err.text(), "suite: 1/1 test cases (1/1 checks) succeeded, 0 (0) failed\n");
}

TEST_F(VeltestSuiteMemory, ParseArguments)
{
    static const char kOptions[] = "util/velgetopt";
    const log_line context = {kModule, 7, "unable to create getopt context"};
    const log_line options = {kModule, 7, "unable to add command line options"};
    std::vector<log_lines> expected = {
        {{kOptions, 7, "not enough memory for velgetopt context"}, context},
        {{kOptions, 7, "unable to create velgetopt option list"}, context}};
    for (const std::string name : {"xml", "output", "append", "help"}) {
        expected.push_back({{kOptions, 7, "not enough memory for velgetopt option"}, options});
        expected.push_back(
            {{kOptions, 7, "not enough memory for long option '" + name + "'"}, options});
        if (name == "output")
            expected.push_back({{kOptions, 7, "not enough memory for option name"}, options});
        expected.push_back({{kOptions, 7, "not enough memory for option description"}, options});
    }

    const support::arguments arguments({"-x"});
    support::stream_capture err(stderr);
    EXPECT_EQ(support::allocfail_each(log,
                                      [&] {
                                          const int result = vel_test_parse_arguments(
                                              suite, arguments.count(), arguments.values());
                                          EXPECT_TRUE(result == 0 || result == -1) << result;
                                          return result == 0;
                                      }),
              expected);
    EXPECT_EQ(err.text(), "") << "that is no fault of the user";
}

TEST_F(VeltestSuiteMemory, RunAndReportNeedNone)
{
    const support::temporary_directory temporary;
    const support::arguments arguments({"-o", "report.xml"});
    ASSERT_EQ(vel_test_parse_arguments(suite, arguments.count(), arguments.values()), 0);
    ASSERT_EQ(vel_test_add(suite, hold, nullptr), 0);
    ASSERT_EQ(vel_test_add(suite, fail, nullptr), 0);
    support::stream_capture err(stderr);
    support::malloc_watch watch(1);
    EXPECT_EQ(vel_test_run(suite), 1);
    EXPECT_EQ(vel_test_summary(suite), 0);
    EXPECT_EQ(support::malloc_watch::count(), 0u);
}

TEST(VeltestOom, Life)
{
    support::vel_oom_drive([] {
        const support::stream_capture err(stderr);
        const support::arguments arguments({"--output=report.xml", "-ax"});
        veltest *suite = vel_test_create("suite");
        if (!suite)
            return false;
        const bool succeeded =
            vel_test_parse_arguments(suite, arguments.count(), arguments.values()) == 0 &&
            vel_test_add(suite, hold, nullptr) == 0 && vel_test_add(suite, fail, nullptr) == 0 &&
            vel_test_run(suite) == 1 && vel_test_summary(suite) == 0;
        vel_test_destroy(suite);
        return succeeded;
    });
}
