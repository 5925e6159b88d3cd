#include <cerrno>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/dircalls.h"
#include "support/everyerrno.h"
#include "support/pathfamily.h"

namespace fs = std::filesystem;
using support::dir_watch;
using support::family_function;
using lines = std::vector<support::log_line>;
using texts = std::vector<std::string>;

/* The functions for files and for directories do the same. */
template <typename Family> class Velsymlink : public support::path_test<Family> {
  protected:
    static constexpr decltype(Family::symlink_file) functions[2] = {Family::symlink_file,
                                                                    Family::symlink_directory};

    static lines failure(int error)
    {
        return {support::path_test<Family>::line(
            "symlink", 7, "symlink() failed, errno " + std::to_string(error))};
    }
    static lines unhandled_failure(int error)
    {
        lines both = failure(error);
        both.push_back(support::path_test<Family>::line(
            "symlink", 6, "symlink() returned an unhandled error " + std::to_string(error)));
        return both;
    }
};

TYPED_TEST_SUITE(Velsymlink, support::path_families, support::path_family_name);

TYPED_TEST(Velsymlink, HoldsTheTargetAsGiven)
{
    fs::create_directory("directory");
    support::write_file("file", "");
    for (const auto function : this->functions)
        for (const std::string target :
             {"file", "directory", "nowhere", "../x//y/", "/", "\xFF\n", "e\xCC\x81"}) {
            {
                const dir_watch calls;
                EXPECT_EQ(function(target.c_str(), "link"), VEL_ERROR_NONE);
                EXPECT_EQ(calls.made, (texts{"symlink " + target + " link"}));
            }
            EXPECT_EQ(fs::read_symlink("link").string(), target);
            fs::remove("link");
        }
}

TYPED_TEST(Velsymlink, ExistingNameIsAnUnhandledError)
{
    support::write_file("file", "kept");
    fs::create_symlink("nowhere", "dangling");
    for (const auto function : this->functions)
        for (const char *name : {"file", "dangling", "."}) {
            EXPECT_EQ(function("target", name), VEL_ERROR_GENERIC);
            EXPECT_EQ(this->log.take(), this->unhandled_failure(EEXIST));
        }
    EXPECT_EQ(support::read_file("file"), "kept");
}

TYPED_TEST(Velsymlink, FailuresOfTheFileSystem)
{
    support::write_file("file", "");
    for (const auto function : this->functions) {
        EXPECT_EQ(function("target", "none/link"), VEL_ERROR_NOT_FOUND);
        EXPECT_EQ(this->log.take(), this->failure(ENOENT));
        EXPECT_EQ(function("", "link"), VEL_ERROR_NOT_FOUND);
        EXPECT_EQ(this->log.take(), this->failure(ENOENT));
        EXPECT_EQ(function("target", "file/link"), VEL_ERROR_GENERIC);
        EXPECT_EQ(this->log.take(), this->unhandled_failure(ENOTDIR));
        EXPECT_EQ(function("target", std::string(256, 'x').c_str()), VEL_ERROR_NAME_TOO_LONG);
        EXPECT_EQ(this->log.take(), this->failure(ENAMETOOLONG));
    }
}

static const std::map<int, vel_error_t> kSymlinkErrors = {
    {EPERM, VEL_ERROR_UNSUPPORTED},
    {ENOENT, VEL_ERROR_NOT_FOUND},
    {EIO, VEL_ERROR_IO},
    {ENOMEM, VEL_ERROR_NO_MEMORY},
    {EACCES, VEL_ERROR_ACCESS},
    {EFAULT, VEL_ERROR_BAD_ADDRESS},
    {ENOSPC, VEL_ERROR_NO_SPACE},
    {EROFS, VEL_ERROR_READ_ONLY},
    {ELOOP, VEL_ERROR_SYMLINK_LOOP},
    {ENAMETOOLONG, VEL_ERROR_NAME_TOO_LONG},
    {EDQUOT, VEL_ERROR_QUOTA},
};

TYPED_TEST(Velsymlink, EveryErrorOfThePlatform)
{
    for (const auto function : this->functions)
        support::expect_for_every_errno(this->log, "symlink", "link",
                                        {kSymlinkErrors, this->failure, this->unhandled_failure},
                                        [&] { return function("target", "link"); });
}

template <typename Family> class VelsymlinkDeathTest : public testing::Test {
};
TYPED_TEST_SUITE(VelsymlinkDeathTest, support::path_families, support::path_family_name);

TYPED_TEST(VelsymlinkDeathTest, ArgumentsAreAsserted)
{
    for (const auto function : {TypeParam::symlink_file, TypeParam::symlink_directory}) {
        EXPECT_DEATH(function(nullptr, nullptr), support::asserts("target != NULL"));
        EXPECT_DEATH(function("target", nullptr), support::asserts("linkpath != NULL"));
    }
}
