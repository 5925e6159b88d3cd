#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/dircalls.h"
#include "support/eachfailure.h"
#include "support/oom.h"
#include "support/pathfamily.h"

using support::dir_watch;
using support::family_function;
using support::family_name;

using lines = std::vector<support::log_line>;

/* What the three queries say. */
struct answers {
    int isdirectory;
    int issymlink;
    int64_t size;

    bool operator==(const answers &) const = default;
};

static std::ostream &operator<<(std::ostream &out, const answers &one)
{
    return out << "directory " << one.isdirectory << ", link " << one.issymlink << ", size "
               << one.size;
}

static const answers kInvalid = {-1, -1, -1};

template <typename Family> class Velstat : public support::path_test<Family> {
  protected:
    void SetUp() override
    {
        support::write_file("file", "0123456789");
        std::filesystem::create_directory("directory");
        std::filesystem::create_symlink("file", "filelink");
        std::filesystem::create_symlink("directory", "directorylink");
        std::filesystem::create_symlink("directorylink", "linklink");
        std::filesystem::create_symlink("nowhere", "dangling");
        std::filesystem::create_symlink("loop", "loop");
        mkfifo("fifo", 0600);
        object = Family::stat_create();
        ASSERT_NE(object, nullptr);
    }
    void TearDown() override
    {
        Family::stat_destroy(object);
        support::path_test<Family>::TearDown(); /* nothing of this logs */
    }

    int look(const char *path)
    {
        return Family::stat_lstat(object, path);
    }
    answers ask()
    {
        return {Family::stat_is_directory(object), Family::stat_is_symlink(object),
                Family::stat_get_size(object)};
    }

    typename Family::stat *object = nullptr;
};

TYPED_TEST_SUITE(Velstat, support::path_families, support::path_family_name);

TYPED_TEST(Velstat, FreshObjectKnowsNothing)
{
    EXPECT_EQ(this->ask(), kInvalid);
}

struct stat_case {
    const char *name;
    const char *path;
    int isdirectory;
    int issymlink;
    int64_t size; /* -1 where the platform decides */
    bool follows; /* the platform is asked about the target */
};

static const stat_case kStatCases[] = {
    {"File", "file", 0, 0, 10, false},
    {"Directory", "directory", 1, 0, -1, false},
    {"LinkToFile", "filelink", 0, 1, 4, true},
    {"LinkToDirectory", "directorylink", 1, 1, 9, true},
    {"LinkToLinkToDirectory", "linklink", 1, 1, 13, true},
    {"DanglingLink", "dangling", 0, 1, 7, true},
    {"LinkToItself", "loop", 0, 1, 4, true},
    {"Fifo", "fifo", 0, 0, 0, false},
    {"Device", "/dev/null", 0, 0, 0, false},
    {"LinkWithSlashIsFollowed", "directorylink/", 1, 0, -1, false},
};

TYPED_TEST(Velstat, KindsOfFiles)
{
    for (const stat_case &one : kStatCases) {
        SCOPED_TRACE(one.name);
        int64_t size = one.size;
        if (size < 0) {
            struct stat data = {};
            ASSERT_EQ(lstat(one.path, &data), 0);
            size = data.st_size;
        }
        const dir_watch calls;
        EXPECT_EQ(this->look(one.path), 0);
        EXPECT_EQ(this->ask(), (answers{one.isdirectory, one.issymlink, size}));
        EXPECT_EQ(calls.count({"lstat"}), 1u);
        EXPECT_EQ(calls.count({"stat"}), one.follows ? 1u : 0u);
    }
}

/* A target that cannot be seen is no directory, and no failure. */
TYPED_TEST(Velstat, TargetThatCannotBeSeen)
{
    const dir_watch calls({{"stat", "directorylink", EACCES}});
    EXPECT_EQ(this->look("directorylink"), 0);
    EXPECT_EQ(this->ask(), (answers{0, 1, 9}));
}

TYPED_TEST(Velstat, LargeSize)
{
    ASSERT_EQ(vel_truncate("file", 5000000000), 0);
    EXPECT_EQ(this->look("file"), 0);
    EXPECT_EQ(TypeParam::stat_get_size(this->object), 5000000000);
}

TYPED_TEST(Velstat, FailureMakesTheAnswersInvalid)
{
    EXPECT_EQ(this->look("directorylink"), 0);
    errno = 0;
    EXPECT_EQ(this->look("nowhere"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(this->ask(), kInvalid);
    EXPECT_EQ(this->look("file/below"), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(this->ask(), kInvalid);
    EXPECT_EQ(this->look(""), -1);
    EXPECT_EQ(errno, ENOENT);
}

/* One object for one path after the other. */
TYPED_TEST(Velstat, EachLookReplacesTheOneBefore)
{
    EXPECT_EQ(this->look("directorylink"), 0);
    EXPECT_EQ(this->ask(), (answers{1, 1, 9}));
    EXPECT_EQ(this->look("file"), 0);
    EXPECT_EQ(this->ask(), (answers{0, 0, 10}));
    EXPECT_EQ(this->look("nowhere"), -1);
    EXPECT_EQ(this->look("dangling"), 0);
    EXPECT_EQ(this->ask(), (answers{0, 1, 7}));
}

/* The direct failures of the platform are left in errno. */
TYPED_TEST(Velstat, ErrnoIsLeft)
{
    for (const int error : {EACCES, ELOOP, ENAMETOOLONG, ENOMEM}) {
        const dir_watch calls({{"lstat", "file", error}});
        EXPECT_EQ(this->look("file"), -1);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(this->ask(), kInvalid);
    }
}

template <typename Family> static bool stat_life()
{
    typename Family::stat *object = Family::stat_create();
    if (!object)
        return false;
    EXPECT_EQ(Family::stat_lstat(object, "."), 0);
    EXPECT_EQ(Family::stat_is_directory(object), 1);
    Family::stat_destroy(object);
    return true;
}

TEST(VelstatOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(stat_life<support::byte_paths>);
}

TEST(Velutf8statOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(stat_life<support::utf8_paths>);
}

TYPED_TEST(Velstat, CreationWithoutMemory)
{
    const auto failures = support::each_failure(this->log, "io/", [] {
        typename TypeParam::stat *created = TypeParam::stat_create();
        if (created)
            TypeParam::stat_destroy(created);
        return created != nullptr;
    });
    EXPECT_EQ(failures,
              (std::vector<lines>{{this->line(
                  "stat", 7, "not enough memory for " + family_name<TypeParam>("stat"))}}));
}

template <typename Family> class VelstatDeathTest : public testing::Test {
};
TYPED_TEST_SUITE(VelstatDeathTest, support::path_families, support::path_family_name);

TYPED_TEST(VelstatDeathTest, ArgumentsAreAsserted)
{
    const std::string text = family_name<TypeParam>("stat != NULL");
    const auto asserted = [&text](const char *function) {
        return support::asserts(text, family_function<TypeParam>(function));
    };
    EXPECT_DEATH(TypeParam::stat_destroy(nullptr), asserted("stat_destroy"));
    EXPECT_DEATH(TypeParam::stat_lstat(nullptr, nullptr), asserted("stat_lstat"));
    EXPECT_DEATH(TypeParam::stat_is_directory(nullptr), asserted("stat_is_directory"));
    EXPECT_DEATH(TypeParam::stat_is_symlink(nullptr), asserted("stat_is_symlink"));
    EXPECT_DEATH(TypeParam::stat_get_size(nullptr), asserted("stat_get_size"));

    typename TypeParam::stat *object = TypeParam::stat_create();
    ASSERT_NE(object, nullptr);
    EXPECT_DEATH(TypeParam::stat_lstat(object, nullptr),
                 support::asserts("path != NULL", family_function<TypeParam>("stat_lstat")));
    TypeParam::stat_destroy(object);
}
