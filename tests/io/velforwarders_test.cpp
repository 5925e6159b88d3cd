#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/tempdir.h"

/* veldeletefile, velrename and veltruncate: the platform's result and errno, and no line. */
class Velforwarders : public testing::Test {
  protected:
    void SetUp() override
    {
        support::write_file("file", "0123456789");
        std::filesystem::create_directory("directory");
        errno = 0;
    }
    void TearDown() override
    {
        EXPECT_EQ(log.take(), (std::vector<support::log_line>{}));
    }

    support::temporary_directory temporary;
    support::log_capture log;
};

TEST_F(Velforwarders, DeletefileRemovesAFile)
{
    EXPECT_EQ(vel_deletefile("file"), 0);
    EXPECT_FALSE(std::filesystem::exists("file"));
    EXPECT_EQ(vel_deletefile("file"), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Velforwarders, DeletefileRemovesALinkAndNotItsTarget)
{
    std::filesystem::create_symlink("file", "filelink");
    std::filesystem::create_symlink("directory", "directorylink");
    EXPECT_EQ(vel_deletefile("filelink"), 0);
    EXPECT_EQ(vel_deletefile("directorylink"), 0);
    EXPECT_FALSE(std::filesystem::is_symlink("filelink"));
    EXPECT_FALSE(std::filesystem::is_symlink("directorylink"));
    EXPECT_TRUE(std::filesystem::exists("file"));
    EXPECT_TRUE(std::filesystem::exists("directory"));
}

TEST_F(Velforwarders, DeletefileRefusesADirectory)
{
    EXPECT_EQ(vel_deletefile("directory"), -1);
    EXPECT_TRUE(errno == EISDIR || errno == EPERM) << errno;
    EXPECT_TRUE(std::filesystem::exists("directory"));
}

TEST_F(Velforwarders, RenameMovesAndReplaces)
{
    support::write_file("other", "other");
    EXPECT_EQ(vel_rename("file", "other"), 0);
    EXPECT_FALSE(std::filesystem::exists("file"));
    EXPECT_EQ(support::read_file("other"), "0123456789");
    EXPECT_EQ(vel_rename("directory", "moved"), 0);
    EXPECT_TRUE(std::filesystem::is_directory("moved"));
}

TEST_F(Velforwarders, RenameLeavesErrno)
{
    EXPECT_EQ(vel_rename("none", "other"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(vel_rename("file", "directory"), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(vel_rename("directory", "file"), -1);
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

TEST(VelforwardersDeathTest, ArgumentsAreAsserted)
{
    EXPECT_DEATH(vel_deletefile(nullptr), support::asserts("filename != NULL", "vel_deletefile"));
    EXPECT_DEATH(vel_truncate(nullptr, 0), support::asserts("filename != NULL", "vel_truncate"));
    EXPECT_DEATH(vel_rename(nullptr, nullptr), support::asserts("oldpath != NULL", "vel_rename"));
    EXPECT_DEATH(vel_rename("old", nullptr), support::asserts("newpath != NULL", "vel_rename"));
}
