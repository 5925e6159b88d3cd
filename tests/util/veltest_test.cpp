#include <vellib/veltest.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/optiontest.h"
#include "support/rows.h"
#include "support/stdstreams.h"
#include "support/tempdir.h"

using support::asserts;
using support::log_line;

using log_lines = std::vector<log_line>;

/* A test case: a row of checks, "." for one that holds and "x" for one that does not. */
static void run_checks(veltestcase *veltestcase, void *context)
{
    const char *checks = static_cast<const char *>(context);
    for (int line = 1; *checks != '\0'; checks++, line++)
        vel_test_case_expect_true(veltestcase, "case.c", line, "a == b", *checks == '.');
}

class Veltest : public testing::Test {
  protected:
    void SetUp() override
    {
        suite = vel_test_create("suite");
        ASSERT_NE(suite, nullptr);
    }
    void TearDown() override
    {
        vel_test_destroy(suite);
        EXPECT_EQ(log.take(), (log_lines{}));
    }

    void add(const char *checks)
    {
        ASSERT_EQ(vel_test_add(suite, run_checks, const_cast<char *>(checks)), 0);
    }

    /* What an action prints to the standard error stream. */
    static std::string printed(const std::function<void()> &action)
    {
        support::stream_capture err(stderr);
        support::stream_capture out(stdout);
        action();
        EXPECT_EQ(out.text(), "");
        return err.text();
    }

    std::string summary()
    {
        return printed([&] { EXPECT_GE(vel_test_summary(suite), 0); });
    }

    support::log_capture log;
    support::temporary_directory temporary;
    veltest *suite = nullptr;
};

/* ---- summaries ---- */

struct suite_case {
    const char *name;
    std::vector<const char *> cases;
    int result;
    std::string errors;  /* what the run prints */
    std::string summary; /* after the run */
    std::string unrun;   /* without it */
};

static const suite_case kSuiteCases[] = {
    {"Nothing",
     {},
     0,
     "",
     "suite: 0/0 test cases (0/0 checks) succeeded, 0 (0) failed\n",
     "suite: 0/0 test cases (0/0 checks) succeeded, 0 (0) failed\n"},
    {"Good",
     {"..."},
     0,
     "",
     "suite: 1/1 test cases (3/3 checks) succeeded, 0 (0) failed\n",
     "suite: testcase 1, no checks were performed, considering test failed\n"
     "suite: testcase 1 has NOT been run!\n"
     "suite: 4294967295/1 test cases (0/1 checks) succeeded, 2 (1) failed\n"},
    {"OneOfTwoChecksFails",
     {"x."},
     1,
     "ERROR: case.c:1 failed condition: a == b\n",
     "suite: testcase 1, 1/2 checks succeeded, 1 failed\n"
     "suite: 0/1 test cases (1/2 checks) succeeded, 1 (1) failed\n",
     "suite: testcase 1, no checks were performed, considering test failed\n"
     "suite: testcase 1 has NOT been run!\n"
     "suite: 4294967295/1 test cases (0/1 checks) succeeded, 2 (1) failed\n"},
    {"NoChecks",
     {""},
     1,
     "",
     "suite: testcase 1, no checks were performed, considering test failed\n"
     "suite: 0/1 test cases (0/0 checks) succeeded, 1 (0) failed\n",
     "suite: testcase 1, no checks were performed, considering test failed\n"
     "suite: testcase 1 has NOT been run!\n"
     "suite: 4294967295/1 test cases (0/1 checks) succeeded, 2 (1) failed\n"},
    {"Mixed",
     {".", "", ".x.x", ".."},
     1,
     "ERROR: case.c:2 failed condition: a == b\n"
     "ERROR: case.c:4 failed condition: a == b\n",
     "suite: testcase 2, no checks were performed, considering test failed\n"
     "suite: testcase 3, 2/4 checks succeeded, 2 failed\n"
     "suite: 2/4 test cases (5/7 checks) succeeded, 2 (2) failed\n",
     "suite: testcase 1, no checks were performed, considering test failed\n"
     "suite: testcase 1 has NOT been run!\n"
     "suite: testcase 2, no checks were performed, considering test failed\n"
     "suite: testcase 2 has NOT been run!\n"
     "suite: testcase 3, no checks were performed, considering test failed\n"
     "suite: testcase 3 has NOT been run!\n"
     "suite: testcase 4, no checks were performed, considering test failed\n"
     "suite: testcase 4 has NOT been run!\n"
     "suite: 4294967292/4 test cases (0/4 checks) succeeded, 8 (4) failed\n"},
    {"LaterFailureStays",
     {"x", "."},
     1,
     "ERROR: case.c:1 failed condition: a == b\n",
     "suite: testcase 1, 0/1 checks succeeded, 1 failed\n"
     "suite: 1/2 test cases (1/2 checks) succeeded, 1 (1) failed\n",
     "suite: testcase 1, no checks were performed, considering test failed\n"
     "suite: testcase 1 has NOT been run!\n"
     "suite: testcase 2, no checks were performed, considering test failed\n"
     "suite: testcase 2 has NOT been run!\n"
     "suite: 4294967294/2 test cases (0/2 checks) succeeded, 4 (2) failed\n"},
};

class VeltestSuite : public Veltest, public testing::WithParamInterface<suite_case> {};

TEST_P(VeltestSuite, RunAndSummary)
{
    for (const char *checks : GetParam().cases)
        add(checks);
    EXPECT_EQ(printed([&] { EXPECT_EQ(vel_test_run(suite), GetParam().result); }),
              GetParam().errors);
    EXPECT_EQ(summary(), GetParam().summary);
    EXPECT_EQ(summary(), GetParam().summary) << "a summary changes nothing";
}

TEST_P(VeltestSuite, SummaryWithoutRun)
{
    for (const char *checks : GetParam().cases)
        add(checks);
    EXPECT_EQ(summary(), GetParam().unrun);
    EXPECT_EQ(summary(), GetParam().unrun) << "a summary changes nothing";
}

INSTANTIATE_TEST_SUITE_P(All, VeltestSuite, testing::ValuesIn(kSuiteCases), support::row_name());

TEST_F(Veltest, SummaryGivesTheResultOfPrinting)
{
    support::stream_capture err(stderr);
    const int result = vel_test_summary(suite);
    EXPECT_EQ(result, static_cast<int>(err.text().size()));
}

TEST_F(Veltest, SummaryThatCannotBePrintedFails)
{
    FILE *saved = stderr;
    stderr = fopen("/dev/null", "r");
    const int result = vel_test_summary(suite);
    fclose(stderr);
    stderr = saved;
    EXPECT_LT(result, 0);
}

TEST_F(Veltest, NameIsCopiedAndShownAsItIs)
{
    char name[] = "100%s <name>";
    veltest *other = vel_test_create(name);
    ASSERT_NE(other, nullptr);
    name[0] = '?';
    EXPECT_EQ(printed([&] { vel_test_summary(other); }),
              "100%s <name>: 0/0 test cases (0/0 checks) succeeded, 0 (0) failed\n");
    vel_test_destroy(other);
}

/* ---- running ---- */

TEST_F(Veltest, CasesRunInOrderWithTheirContexts)
{
    static std::vector<void *> contexts;
    static std::vector<veltestcase *> cases;
    contexts.clear();
    cases.clear();
    const auto note = [](veltestcase *veltestcase, void *context) {
        cases.push_back(veltestcase);
        contexts.push_back(context);
        vel_test_case_expect_true(veltestcase, "case.c", 1, "true", 1);
    };
    int first = 0, second = 0;
    ASSERT_EQ(vel_test_add(suite, note, &second), 0);
    ASSERT_EQ(vel_test_add(suite, note, nullptr), 0);
    ASSERT_EQ(vel_test_add(suite, note, &first), 0);
    EXPECT_TRUE(contexts.empty()) << "adding runs nothing";
    EXPECT_EQ(vel_test_run(suite), 0);
    EXPECT_EQ(contexts, (std::vector<void *>{&second, nullptr, &first}));
    EXPECT_EQ(std::set<veltestcase *>(cases.begin(), cases.end()).size(), 3u);
}

TEST_F(Veltest, AnyConditionButZeroHolds)
{
    const auto check = [](veltestcase *veltestcase, void *) {
        for (const int condition : {1, -1, 256, 1 << 31})
            vel_test_case_expect_true(veltestcase, "case.c", 1, "condition", condition);
    };
    ASSERT_EQ(vel_test_add(suite, check, nullptr), 0);
    EXPECT_EQ(printed([&] { EXPECT_EQ(vel_test_run(suite), 0); }), "");
    EXPECT_EQ(summary(), "suite: 1/1 test cases (4/4 checks) succeeded, 0 (0) failed\n");
}

TEST_F(Veltest, FailedConditionIsShownAsItIs)
{
    const auto check = [](veltestcase *veltestcase, void *) {
        vel_test_case_expect_true(veltestcase, "a dir/%s.c", 2147483647, "x % 2 == \"%n\"", 0);
    };
    ASSERT_EQ(vel_test_add(suite, check, nullptr), 0);
    EXPECT_EQ(printed([&] { EXPECT_EQ(vel_test_run(suite), 1); }),
              "ERROR: a dir/%s.c:2147483647 failed condition: x % 2 == \"%n\"\n");
}

TEST_F(Veltest, CaseThatIsRunningHasNotBeenRun)
{
    add("x");
    const auto check = [](veltestcase *veltestcase, void *context) {
        vel_test_case_expect_true(veltestcase, "case.c", 1, "true", 1);
        vel_test_summary(*static_cast<veltest **>(context));
    };
    ASSERT_EQ(vel_test_add(suite, check, &suite), 0);
    EXPECT_EQ(printed([&] { EXPECT_EQ(vel_test_run(suite), 1); }),
              "ERROR: case.c:1 failed condition: a == b\n"
              "suite: testcase 1, 0/1 checks succeeded, 1 failed\n"
              "suite: testcase 2 has NOT been run!\n"
              "suite: 0/2 test cases (1/3 checks) succeeded, 2 (2) failed\n");
    EXPECT_EQ(summary(), "suite: testcase 1, 0/1 checks succeeded, 1 failed\n"
                         "suite: 1/2 test cases (1/2 checks) succeeded, 1 (1) failed\n");
}

TEST_F(Veltest, CaseThatFailsWhileItRunsCountsTwice)
{
    const auto check = [](veltestcase *veltestcase, void *context) {
        vel_test_case_expect_true(veltestcase, "case.c", 1, "true", 1);
        vel_test_case_expect_true(veltestcase, "case.c", 2, "false", 0);
        vel_test_summary(*static_cast<veltest **>(context));
    };
    ASSERT_EQ(vel_test_add(suite, check, &suite), 0);
    EXPECT_EQ(printed([&] { vel_test_run(suite); }),
              "ERROR: case.c:2 failed condition: false\n"
              "suite: testcase 1, 1/2 checks succeeded, 1 failed\n"
              "suite: testcase 1 has NOT been run!\n"
              "suite: 4294967295/1 test cases (1/3 checks) succeeded, 2 (2) failed\n");
}

TEST_F(Veltest, SecondRunAddsToTheCounts)
{
    add("..");
    add("");
    EXPECT_EQ(vel_test_run(suite), 1);
    EXPECT_EQ(vel_test_run(suite), 1);
    EXPECT_EQ(summary(), "suite: testcase 2, no checks were performed, considering test failed\n"
                         "suite: 1/2 test cases (4/4 checks) succeeded, 1 (0) failed\n");
}

TEST_F(Veltest, ManyCases)
{
    for (int index = 0; index < 10000; index++)
        ASSERT_EQ(vel_test_add(suite, run_checks, const_cast<char *>("...")), 0);
    EXPECT_EQ(vel_test_run(suite), 0);
    EXPECT_EQ(summary(), "suite: 10000/10000 test cases (30000/30000 checks) succeeded, 0 (0) "
                         "failed\n");
}

/* ---- arguments ---- */

static const std::string kUsage =
    "usage: PROGRAM OPTIONS\n"
    "OPTIONS:\n"
    " -x, --xml                    Enable xml output.\n"
    " -o, --output=outfile         Output file name.\n"
    " -a, --append                 Append to a previous output file.\n"
    " -h, --help                   Show help.\n";

struct arguments_case {
    const char *name;
    std::vector<std::string> arguments;
    int result;
    std::string out;
    std::string err;
    log_lines lines = {};
};

static const arguments_case kArgumentsCases[] = {
    {"None", {}, 0, "", ""},
    {"Dashes", {"--"}, 0, "", ""},
    {"AllShort", {"-xa", "-o", "out"}, 0, "", ""},
    {"AllLong", {"--xml", "--append", "--output", "out"}, 0, "", ""},
    {"Help", {"--help"}, 1, kUsage, ""},
    {"ShortHelp", {"-h"}, 1, kUsage, ""},
    {"HelpWithTooMany", {"-h", "file"}, 1, kUsage, ""},
    {"TooMany", {"file"}, -1, "", "Too many arguments.\n" + kUsage},
    {"TooManyBehindOption", {"-x", "file", "-a"}, -1, "", "Too many arguments.\n" + kUsage},
    {"TooManyBehindDashes", {"--", "-x"}, -1, "", "Too many arguments.\n" + kUsage},
    {"EmptyIsTooMany", {""}, -1, "", "Too many arguments.\n" + kUsage},
    {"Unknown", {"--bogus"}, -1, "", "Parsing options failed.\n" + kUsage},
    {"UnknownShort", {"-y"}, -1, "", "Parsing options failed.\n" + kUsage},
    {"UnknownBehindHelp", {"-h", "-y"}, -1, kUsage, "Parsing options failed.\n" + kUsage},
    {"UnknownBeforeTooMany", {"-y", "file"}, -1, "", "Parsing options failed.\n" + kUsage},
    {"OutputWithoutValue",
     {"--output"},
     -1,
     "",
     "Parsing options failed.\n" + kUsage,
     {{"util/velgetopt", 13, "option '--output' requires an argument"}}},
};

class VeltestArguments : public Veltest, public testing::WithParamInterface<arguments_case> {};

TEST_P(VeltestArguments, Parse)
{
    const support::arguments arguments(GetParam().arguments);
    support::stream_capture out(stdout);
    support::stream_capture err(stderr);
    EXPECT_EQ(vel_test_parse_arguments(suite, arguments.count(), arguments.values()),
              GetParam().result);
    EXPECT_EQ(out.text(), GetParam().out);
    EXPECT_EQ(err.text(), GetParam().err);
    EXPECT_EQ(log.take(), GetParam().lines);
    EXPECT_EQ(vel_test_run(suite), 0) << "the suite is as good as before";
    EXPECT_FALSE(std::filesystem::exists("out"));
}

INSTANTIATE_TEST_SUITE_P(All, VeltestArguments, testing::ValuesIn(kArgumentsCases),
                         support::row_name());

/* ---- assertions ---- */

class VeltestDeathTest : public Veltest {};

TEST_F(VeltestDeathTest, SuiteIsAsserted)
{
    EXPECT_DEATH(vel_test_create(nullptr), asserts("name != NULL", "vel_test_create"));
    EXPECT_DEATH(vel_test_destroy(nullptr), asserts("veltest != NULL", "vel_test_destroy"));
    EXPECT_DEATH(vel_test_parse_arguments(nullptr, 0, nullptr),
                 asserts("veltest != NULL", "vel_test_parse_arguments"));
    EXPECT_DEATH(vel_test_add(nullptr, nullptr, nullptr),
                 asserts("veltest != NULL", "vel_test_add"));
    EXPECT_DEATH(vel_test_run(nullptr), asserts("veltest != NULL", "vel_test_run"));
    EXPECT_DEATH(vel_test_summary(nullptr), asserts("veltest != NULL", "vel_test_summary"));
}

TEST_F(VeltestDeathTest, ArgumentsAreAsserted)
{
    EXPECT_DEATH(vel_test_parse_arguments(suite, 0, nullptr),
                 asserts("argc > 0", "vel_test_parse_arguments"));
    EXPECT_DEATH(vel_test_parse_arguments(suite, -1, nullptr),
                 asserts("argc > 0", "vel_test_parse_arguments"));
    EXPECT_DEATH(vel_test_parse_arguments(suite, 1, nullptr),
                 asserts("argv != NULL", "vel_test_parse_arguments"));
    EXPECT_DEATH(vel_test_add(suite, nullptr, nullptr),
                 asserts("testfunction != NULL", "vel_test_add"));
}

TEST_F(VeltestDeathTest, CheckIsAsserted)
{
    const char *const function = "vel_test_case_expect_true";
    EXPECT_DEATH(vel_test_case_expect_true(nullptr, nullptr, 0, nullptr, 1),
                 asserts("veltestcase != NULL", function));

    static veltestcase *testcase;
    const auto note = [](veltestcase *veltestcase, void *) { testcase = veltestcase; };
    ASSERT_EQ(vel_test_add(suite, note, nullptr), 0);
    EXPECT_EQ(vel_test_run(suite), 1);
    EXPECT_DEATH(vel_test_case_expect_true(testcase, nullptr, 0, nullptr, 1),
                 asserts("filename != NULL", function));
    EXPECT_DEATH(vel_test_case_expect_true(testcase, "f", 0, nullptr, 1),
                 asserts("line > 0", function));
    EXPECT_DEATH(vel_test_case_expect_true(testcase, "f", 1, nullptr, 1),
                 asserts("condstring != NULL", function));
}
