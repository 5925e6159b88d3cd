#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/dircalls.h"
#include "support/pathfamily.h"

namespace fs = std::filesystem;
using support::dir_watch;
using support::family_function;

/* The platform's result and errno, and no line. */
template <typename Family> class Velrmdir : public support::path_test<Family> {
};
TYPED_TEST_SUITE(Velrmdir, support::path_families, support::path_family_name);

TYPED_TEST(Velrmdir, RemovesAnEmptyDirectory)
{
    fs::create_directories("directory/below");
    {
        const dir_watch calls;
        EXPECT_EQ(TypeParam::rmdir("directory/below"), 0);
        EXPECT_EQ(calls.made, (std::vector<std::string>{"rmdir directory/below"}));
    }
    EXPECT_FALSE(fs::exists("directory/below"));
    EXPECT_EQ(TypeParam::rmdir("directory/"), 0);
    EXPECT_FALSE(fs::exists("directory"));
}

TYPED_TEST(Velrmdir, ErrnoIsLeft)
{
    fs::create_directories("directory/below");
    fs::create_symlink("directory/below", "link");
    support::write_file("file", "");
    errno = 0;
    EXPECT_EQ(TypeParam::rmdir("directory"), -1);
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_EQ(TypeParam::rmdir("file"), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(TypeParam::rmdir("link"), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(TypeParam::rmdir("none"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(TypeParam::rmdir("."), -1);
    EXPECT_EQ(errno, EINVAL);
    const dir_watch calls({{"rmdir", nullptr, EBUSY}});
    EXPECT_EQ(TypeParam::rmdir("directory/below"), -1);
    EXPECT_EQ(errno, EBUSY);
}

template <typename Family> class VelrmdirDeathTest : public testing::Test {
};
TYPED_TEST_SUITE(VelrmdirDeathTest, support::path_families, support::path_family_name);

TYPED_TEST(VelrmdirDeathTest, PathIsAsserted)
{
    EXPECT_DEATH(TypeParam::rmdir(nullptr),
                 support::asserts("pathname != NULL", family_function<TypeParam>("rmdir")));
}
