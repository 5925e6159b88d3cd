#include "util/veltest_internal.h"

#include <cstddef>

#include <gtest/gtest.h>

#include "support/assertion.h"

using support::asserts;

TEST(VeltestInternalDeathTest, ReportAssertsItsFileName)
{
    veltest *suite = vel_test_create("suite");
    ASSERT_NE(suite, nullptr);
    const vel_test_counts counts = {};
    EXPECT_DEATH(vel_test_summary_xml(suite, nullptr, &counts),
                 asserts("filename != NULL", "vel_test_summary_xml"));
    vel_test_destroy(suite);
}

TEST(VeltestInternal, StartOfRunIsKept)
{
    veltest *suite = vel_test_create("suite");
    ASSERT_NE(suite, nullptr);
    EXPECT_EQ(suite->starttime, 0);
    const time_t before = time(nullptr);
    EXPECT_EQ(vel_test_run(suite), 0);
    EXPECT_GE(suite->starttime, before);
    EXPECT_LE(suite->starttime, time(nullptr));
    vel_test_destroy(suite);
}
