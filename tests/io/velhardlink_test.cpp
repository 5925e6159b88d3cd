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

template <typename Family> class Velhardlink : public support::path_test<Family> {
  protected:
    static lines failure(int error)
    {
        return {support::path_test<Family>::line("hardlink", 7,
                                                 "link() failed, error " + std::to_string(error))};
    }
    /* The second line has the word of the other module, on purpose. */
    static lines unhandled_failure(int error)
    {
        lines both = failure(error);
        both.push_back(support::path_test<Family>::line(
            "hardlink", 6, "symlink() returned an unhandled error " + std::to_string(error)));
        return both;
    }
};

TYPED_TEST_SUITE(Velhardlink, support::path_families, support::path_family_name);

TYPED_TEST(Velhardlink, IsTheSameFile)
{
    support::write_file("file", "before");
    {
        const dir_watch calls;
        EXPECT_EQ(TypeParam::hardlink("file", "other"), VEL_ERROR_NONE);
        EXPECT_EQ(calls.made, (texts{"link file other"}));
    }
    support::write_file("other", "after");
    EXPECT_EQ(support::read_file("file"), "after");
    EXPECT_EQ(fs::hard_link_count("file"), 2u);
}

TYPED_TEST(Velhardlink, FailuresOfTheFileSystem)
{
    support::write_file("file", "");
    support::write_file("other", "kept");
    fs::create_directory("directory");
    const struct {
        std::string target, linkpath;
        vel_error_t result;
        int error;
    } rows[] = {
        {"file", "other", VEL_ERROR_EXISTS, EEXIST},
        {"file", "file", VEL_ERROR_EXISTS, EEXIST},
        {"none", "new", VEL_ERROR_NOT_FOUND, ENOENT},
        {"file", "none/new", VEL_ERROR_NOT_FOUND, ENOENT},
        {"", "new", VEL_ERROR_NOT_FOUND, ENOENT},
        {"file/below", "new", VEL_ERROR_NOT_DIRECTORY, ENOTDIR},
        {"file", "other/new", VEL_ERROR_NOT_DIRECTORY, ENOTDIR},
        {"directory", "new", VEL_ERROR_UNSUPPORTED, EPERM},
        {"file", std::string(256, 'x'), VEL_ERROR_NAME_TOO_LONG, ENAMETOOLONG},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.target + " " + row.linkpath);
        EXPECT_EQ(TypeParam::hardlink(row.target.c_str(), row.linkpath.c_str()), row.result);
        EXPECT_EQ(this->log.take(), this->failure(row.error));
    }
    EXPECT_EQ(support::read_file("other"), "kept");
}

static const std::map<int, vel_error_t> kHardlinkErrors = {
    {EPERM, VEL_ERROR_UNSUPPORTED},
    {ENOENT, VEL_ERROR_NOT_FOUND},
    {EIO, VEL_ERROR_IO},
    {ENOMEM, VEL_ERROR_NO_MEMORY},
    {EACCES, VEL_ERROR_ACCESS},
    {EFAULT, VEL_ERROR_BAD_ADDRESS},
    {EEXIST, VEL_ERROR_EXISTS},
    {EXDEV, VEL_ERROR_CROSS_DEVICE},
    {ENOTDIR, VEL_ERROR_NOT_DIRECTORY},
    {ENOSPC, VEL_ERROR_NO_SPACE},
    {EROFS, VEL_ERROR_READ_ONLY},
    {EMLINK, VEL_ERROR_TOO_MANY_LINKS},
    {ELOOP, VEL_ERROR_SYMLINK_LOOP},
    {ENAMETOOLONG, VEL_ERROR_NAME_TOO_LONG},
    {EDQUOT, VEL_ERROR_QUOTA},
};

TYPED_TEST(Velhardlink, EveryErrorOfThePlatform)
{
    support::expect_for_every_errno(this->log, "link", "other",
                                    {kHardlinkErrors, this->failure, this->unhandled_failure},
                                    [] { return TypeParam::hardlink("file", "other"); });
}

template <typename Family> class VelhardlinkDeathTest : public testing::Test {
};
TYPED_TEST_SUITE(VelhardlinkDeathTest, support::path_families, support::path_family_name);

TYPED_TEST(VelhardlinkDeathTest, ArgumentsAreAsserted)
{
    const std::string function = family_function<TypeParam>("hardlink");
    EXPECT_DEATH(TypeParam::hardlink(nullptr, nullptr),
                 support::asserts("target != NULL", function));
    EXPECT_DEATH(TypeParam::hardlink("target", nullptr),
                 support::asserts("linkpath != NULL", function));
}
