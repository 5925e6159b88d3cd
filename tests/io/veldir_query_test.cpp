#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/dircalls.h"
#include "support/dirtest.h"
#include "support/eachfailure.h"
#include "support/randomtree.h"

using support::dir_watch;
using support::family_name;
using support::malloc_watch;
using lines = std::vector<support::log_line>;
using texts = std::vector<std::string>;

struct query_case {
    const char *name;
    int isdirectory;
    int issymlink;
    int64_t size; /* -1 where the platform decides */
    bool follows;
};

static const query_case kQueryCases[] = {
    {"file", 0, 0, 10, false},        {"directory", 1, 0, -1, false}, {"filelink", 0, 1, 4, true},
    {"directorylink", 1, 1, 9, true}, {"dangling", 0, 1, 7, true},    {"loop", 0, 1, 4, true},
    {"linklink", 1, 1, 13, true},     {"fifo", 0, 0, 0, false},       {".", 1, 0, -1, false},
    {"..", 1, 0, -1, false},
};

template <typename Family> class VeldirQuery : public support::dir_test<Family> {
  protected:
    void SetUp() override
    {
        std::filesystem::create_directories("top/directory");
        support::write_file("top/file", "0123456789");
        std::filesystem::create_symlink("file", "top/filelink");
        std::filesystem::create_symlink("directory", "top/directorylink");
        std::filesystem::create_symlink("directorylink", "top/linklink");
        std::filesystem::create_symlink("nowhere", "top/dangling");
        std::filesystem::create_symlink("loop", "top/loop");
        mkfifo("top/fifo", 0600);
    }

    /* Each kind of entry, with one lstat, and one stat more for a link, however often it is asked;
     * before stands in front of the names that the platform is given. */
    void expect_answers(const char *path, const std::string &before)
    {
        for (const query_case &one : kQueryCases) {
            SCOPED_TRACE(one.name);
            const auto dir = this->at(path, one.name);
            ASSERT_NE(dir, nullptr);
            int64_t size = one.size;
            if (size < 0) {
                struct stat data = {};
                ASSERT_EQ(lstat((before + one.name).c_str(), &data), 0);
                size = data.st_size;
            }
            dir_watch calls;
            for (int i = 0; i < 3; i++) {
                EXPECT_EQ(Family::dir_is_symlink(dir.get()), one.issymlink);
                EXPECT_EQ(Family::dir_is_directory(dir.get()), one.isdirectory);
                EXPECT_EQ(Family::dir_get_size(dir.get()), size);
            }
            texts expected = {"lstat " + before + one.name};
            if (one.follows)
                expected.push_back("stat " + before + one.name);
            EXPECT_EQ(calls.made, expected);
        }
    }
};

TYPED_TEST_SUITE(VeldirQuery, support::path_families, support::path_family_name);

TYPED_TEST(VeldirQuery, KindsOfEntries)
{
    this->expect_answers("top", "top/");
}

/* The separator is put behind the path whatever it ends in. */
TYPED_TEST(VeldirQuery, PathThatEndsInASeparator)
{
    this->expect_answers("top/", "top//");
}

TYPED_TEST(VeldirQuery, WorkingDirectoryByBareNames)
{
    std::filesystem::current_path("top");
    this->expect_answers(nullptr, "");
    this->expect_answers(".", "./");
    std::filesystem::current_path("..");
}

TYPED_TEST(VeldirQuery, WalkForNamesMakesNoStat)
{
    dir_watch calls;
    typename TestFixture::handle dir(TypeParam::dir_open("top"));
    ASSERT_NE(dir, nullptr);
    EXPECT_EQ(this->names(dir.get()).size(), std::size(kQueryCases));
    dir.reset();
    EXPECT_EQ(calls.count({"stat", "lstat", "fstat"}), 0u);
    EXPECT_EQ(calls.count({"readdir"}), std::size(kQueryCases) + 1);
    EXPECT_EQ(calls.count({"opendir"}), 1u);
    EXPECT_EQ(calls.count({"closedir"}), 1u);
}

TYPED_TEST(VeldirQuery, OneLookAnEntryInAWholeWalk)
{
    dir_watch calls;
    typename TestFixture::handle dir(TypeParam::dir_open("top"));
    ASSERT_NE(dir, nullptr);
    while (TypeParam::dir_next(dir.get()) == 0) {
        EXPECT_NE(TypeParam::dir_is_directory(dir.get()), -1);
        EXPECT_NE(TypeParam::dir_is_symlink(dir.get()), -1);
        EXPECT_NE(TypeParam::dir_get_size(dir.get()), -1);
    }
    EXPECT_EQ(calls.count({"lstat"}), std::size(kQueryCases));
    EXPECT_EQ(calls.count({"stat"}), 5u); /* the links */
}

/* One object serves all entries; with bare names nothing else is needed. */
TYPED_TEST(VeldirQuery, OneObjectServesTheWalk)
{
    std::filesystem::current_path("top");
    typename TestFixture::handle dir(TypeParam::dir_open(nullptr));
    ASSERT_NE(dir, nullptr);
    {
        const malloc_watch memory;
        while (TypeParam::dir_next(dir.get()) == 0)
            EXPECT_NE(TypeParam::dir_is_directory(dir.get()), -1);
        EXPECT_EQ(memory.count(), 1u);
    }
    std::filesystem::current_path("..");
}

/* An entry that is gone when it is looked at: each query tries again. */
TYPED_TEST(VeldirQuery, EntryVanishes)
{
    const auto dir = this->at("top", "file");
    ASSERT_NE(dir, nullptr);
    const support::log_line gone = this->line(7, "unable to stat 'top/file'");
    {
        dir_watch calls;
        calls.before = [](const std::string &call) {
            if (call == "lstat top/file")
                std::filesystem::remove("top/file");
        };
        EXPECT_EQ(TypeParam::dir_is_directory(dir.get()), -1);
        EXPECT_EQ(TypeParam::dir_is_symlink(dir.get()), -1);
        EXPECT_EQ(TypeParam::dir_get_size(dir.get()), -1);
        EXPECT_EQ(calls.count({"lstat"}), 3u);
    }
    EXPECT_EQ(this->log.take(), (lines{gone, this->stat_failed(), gone, this->stat_failed(), gone,
                                       this->stat_failed()}));
    EXPECT_STREQ(TypeParam::dir_fetch_name(dir.get()), "file"); /* it is still the entry */
    EXPECT_EQ(TypeParam::dir_get_error(dir.get()), 0);

    support::write_file("top/file", "back");
    EXPECT_EQ(TypeParam::dir_get_size(dir.get()), 4);
}

/* What is known about an entry does not count for the next one. */
TYPED_TEST(VeldirQuery, FailureDoesNotShowTheEntryBefore)
{
    const auto dir = this->at("top", "directory");
    ASSERT_NE(dir, nullptr);
    EXPECT_EQ(TypeParam::dir_is_directory(dir.get()), 1);
    if (TypeParam::dir_next(dir.get()) == 0) {
        const dir_watch calls({{"lstat", nullptr, EACCES}});
        EXPECT_EQ(TypeParam::dir_is_directory(dir.get()), -1);
    } else {
        EXPECT_EQ(TypeParam::dir_is_directory(dir.get()), -1);
    }
    EXPECT_FALSE(this->log.take().empty());
}

TYPED_TEST(VeldirQuery, LinkWhoseTargetCannotBeSeen)
{
    const auto dir = this->at("top", "directorylink");
    ASSERT_NE(dir, nullptr);
    const dir_watch calls({{"stat", nullptr, EACCES}});
    EXPECT_EQ(TypeParam::dir_is_directory(dir.get()), 0);
    EXPECT_EQ(TypeParam::dir_is_symlink(dir.get()), 1);
}

TYPED_TEST(VeldirQuery, LookingWithoutMemory)
{
    const auto dir = this->at("top", "file");
    ASSERT_NE(dir, nullptr);
    const auto failures = support::each_failure(
        this->log, "io/", [&dir] { return TypeParam::dir_is_directory(dir.get()) == 0; });
    const std::string object = family_name<TypeParam>("stat");
    EXPECT_EQ(
        failures,
        (std::vector<lines>{
            {support::path_test<TypeParam>::line("stat", 7, "not enough memory for " + object),
             this->line(7, "unable to create " + object + " context"), this->stat_failed()},
            {this->line(7, "not enough memory for stat path"), this->stat_failed()}}));
}

/* Beside find */

template <typename Family> class VeldirFind : public support::path_test<Family> {
};
TYPED_TEST_SUITE(VeldirFind, support::path_families, support::path_family_name);

template <typename Family>
static void walk_tree(const std::string &path, const std::string &below, support::tree_map &found)
{
    typename Family::dir *dir = Family::dir_open(path.c_str());
    ASSERT_NE(dir, nullptr) << path;
    int result;
    while ((result = Family::dir_next(dir)) == 0) {
        const std::string name = Family::dir_fetch_name(dir);
        if (name == "." || name == "..")
            continue;
        const bool isdirectory = Family::dir_is_directory(dir) == 1;
        const bool issymlink = Family::dir_is_symlink(dir) == 1;
        const auto inserted =
            found.insert({below + name, {isdirectory, issymlink, Family::dir_get_size(dir)}});
        EXPECT_TRUE(inserted.second) << below + name << " comes twice";
        if (isdirectory && !issymlink)
            walk_tree<Family>(path + "/" + name, below + name + "/", found);
    }
    EXPECT_EQ(result, -1);
    Family::dir_destroy(dir);
}

TYPED_TEST(VeldirFind, SeesWhatFindSees)
{
    for (unsigned seed = 1; seed <= 10; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const std::string top = "tree" + std::to_string(seed);
        std::filesystem::create_directory(top);
        support::make_random_tree(random, top, 300);
        support::tree_map found;
        walk_tree<TypeParam>(top, "", found);
        const support::tree_map expected = support::find_tree(top);
        EXPECT_GT(expected.size(), 100u);
        EXPECT_EQ(found, expected);
    }
}
