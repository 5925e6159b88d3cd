#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/pathfamily.h"

/* veldeletefile, velrename and veltruncate: the platform's result and errno, and no line. */
template <typename Family> class VelforwardersOf : public support::path_test<Family> {
  protected:
    void SetUp() override
    {
        support::write_file("file", "0123456789");
        std::filesystem::create_directory("directory");
        errno = 0;
    }
};

TYPED_TEST_SUITE(VelforwardersOf, support::path_families, support::path_family_name);
using Velforwarders = VelforwardersOf<support::byte_paths>; /* veltruncate has no twin */

TYPED_TEST(VelforwardersOf, DeletefileRemovesAFile)
{
    EXPECT_EQ(TypeParam::deletefile("file"), 0);
    EXPECT_FALSE(std::filesystem::exists("file"));
    EXPECT_EQ(TypeParam::deletefile("file"), -1);
    EXPECT_EQ(errno, ENOENT);
}

TYPED_TEST(VelforwardersOf, DeletefileRemovesALinkAndNotItsTarget)
{
    std::filesystem::create_symlink("file", "filelink");
    std::filesystem::create_symlink("directory", "directorylink");
    EXPECT_EQ(TypeParam::deletefile("filelink"), 0);
    EXPECT_EQ(TypeParam::deletefile("directorylink"), 0);
    EXPECT_FALSE(std::filesystem::is_symlink("filelink"));
    EXPECT_FALSE(std::filesystem::is_symlink("directorylink"));
    EXPECT_TRUE(std::filesystem::exists("file"));
    EXPECT_TRUE(std::filesystem::exists("directory"));
}

TYPED_TEST(VelforwardersOf, DeletefileRefusesADirectory)
{
    EXPECT_EQ(TypeParam::deletefile("directory"), -1);
    EXPECT_TRUE(errno == EISDIR || errno == EPERM) << errno;
    EXPECT_TRUE(std::filesystem::exists("directory"));
}

TYPED_TEST(VelforwardersOf, RenameMovesAndReplaces)
{
    support::write_file("other", "other");
    EXPECT_EQ(TypeParam::rename("file", "other"), 0);
    EXPECT_FALSE(std::filesystem::exists("file"));
    EXPECT_EQ(support::read_file("other"), "0123456789");
    EXPECT_EQ(TypeParam::rename("directory", "moved"), 0);
    EXPECT_TRUE(std::filesystem::is_directory("moved"));
}

TYPED_TEST(VelforwardersOf, RenameLeavesErrno)
{
    EXPECT_EQ(TypeParam::rename("none", "other"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(TypeParam::rename("file", "directory"), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(TypeParam::rename("directory", "file"), -1);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(Velforwarders, TruncateCutsAndFills)
{
    EXPECT_EQ(vel_truncate("file", 3), 0);
    EXPECT_EQ(support::read_file("file"), "012");
    EXPECT_EQ(vel_truncate("file", 5), 0);
    EXPECT_EQ(support::read_file("file"), std::string("012\0\0", 5));
    EXPECT_EQ(vel_truncate("file", 0), 0);
    EXPECT_EQ(support::read_file("file"), "");
    EXPECT_EQ(vel_truncate("file", 5000000000), 0);
    EXPECT_EQ(std::filesystem::file_size("file"), 5000000000u);
}

TEST_F(Velforwarders, TruncateLeavesErrno)
{
    EXPECT_EQ(vel_truncate("none", 3), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(vel_truncate("directory", 3), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(vel_truncate("file", -1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(support::read_file("file"), "0123456789");
}

template <typename Family> class VelforwardersDeathTest : public testing::Test {
};
TYPED_TEST_SUITE(VelforwardersDeathTest, support::path_families, support::path_family_name);

TYPED_TEST(VelforwardersDeathTest, ArgumentsAreAsserted)
{
    const std::string deletefile = support::family_function<TypeParam>("deletefile");
    const std::string rename = support::family_function<TypeParam>("rename");
    EXPECT_DEATH(TypeParam::deletefile(nullptr), support::asserts("filename != NULL", deletefile));
    EXPECT_DEATH(TypeParam::rename(nullptr, nullptr), support::asserts("oldpath != NULL", rename));
    EXPECT_DEATH(TypeParam::rename("old", nullptr), support::asserts("newpath != NULL", rename));
}

TEST(VeltruncateDeathTest, FilenameIsAsserted)
{
    EXPECT_DEATH(vel_truncate(nullptr, 0), support::asserts("filename != NULL", "vel_truncate"));
}
