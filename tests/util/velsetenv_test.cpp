#include <vellib/velsetenv.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "support/assertion.h"

using support::asserts;

static const char kName[] = "VEL_TEST_VARIABLE";

class Velsetenv : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_EQ(unsetenv(kName), 0);
    }
    void TearDown() override
    {
        unsetenv(kName);
    }
};

TEST_F(Velsetenv, SetsNewVariable)
{
    EXPECT_EQ(vel_setenv(kName, "one", 0), 0);
    EXPECT_STREQ(getenv(kName), "one");
}

TEST_F(Velsetenv, OverwritesIfAsked)
{
    for (const int overwrite : {1, 2, -1}) {
        ASSERT_EQ(setenv(kName, "one", 1), 0);
        EXPECT_EQ(vel_setenv(kName, "two", overwrite), 0);
        EXPECT_STREQ(getenv(kName), "two");
    }
}

TEST_F(Velsetenv, KeepsIfNotAsked)
{
    EXPECT_EQ(vel_setenv(kName, "one", 1), 0);
    EXPECT_EQ(vel_setenv(kName, "two", 0), 0);
    EXPECT_STREQ(getenv(kName), "one");
}

TEST_F(Velsetenv, CopiesItsArguments)
{
    char name[] = "VEL_TEST_VARIABLE";
    char value[] = "one";
    EXPECT_EQ(vel_setenv(name, value, 1), 0);
    name[0] = value[0] = '?';
    EXPECT_STREQ(getenv(kName), "one");
}

TEST_F(Velsetenv, EmptyValueIsValue)
{
    EXPECT_EQ(vel_setenv(kName, "", 1), 0);
    EXPECT_STREQ(getenv(kName), "");
}

TEST_F(Velsetenv, ChildrenInheritIt)
{
    EXPECT_EQ(vel_setenv(kName, "for the child", 1), 0);
    EXPECT_EQ(system("test \"$VEL_TEST_VARIABLE\" = 'for the child'"), 0);
    EXPECT_EQ(vel_unsetenv(kName), 0);
    EXPECT_EQ(system("test -z \"${VEL_TEST_VARIABLE+set}\""), 0);
}

TEST_F(Velsetenv, BadNamesLeaveErrno)
{
    for (const char *name : {"", "A=B", "="}) {
        errno = 0;
        EXPECT_EQ(vel_setenv(name, "x", 1), -1) << name;
        EXPECT_EQ(errno, EINVAL) << name;
        errno = 0;
        EXPECT_EQ(vel_unsetenv(name), -1) << name;
        EXPECT_EQ(errno, EINVAL) << name;
    }
}

TEST_F(Velsetenv, UnsetRemoves)
{
    ASSERT_EQ(setenv(kName, "one", 1), 0);
    EXPECT_EQ(vel_unsetenv(kName), 0);
    EXPECT_EQ(getenv(kName), nullptr);
    EXPECT_EQ(vel_unsetenv(kName), 0) << "what is not there can be removed";
}

TEST(VelsetenvDeathTest, ArgumentsAreAsserted)
{
    EXPECT_DEATH(vel_setenv(nullptr, nullptr, 1), asserts("name != NULL", "vel_setenv"));
    EXPECT_DEATH(vel_setenv(kName, nullptr, 1), asserts("value != NULL", "vel_setenv"));
    EXPECT_DEATH(vel_unsetenv(nullptr), asserts("name != NULL", "vel_unsetenv"));
}
