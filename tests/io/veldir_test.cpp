#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/descriptors.h"
#include "support/dircalls.h"
#include "support/dirtest.h"
#include "support/eachfailure.h"
#include "support/oom.h"
#include "support/pathfamily.h"

using support::asserts;
using support::dir_watch;
using support::family_function;
using support::family_name;
using support::malloc_watch;
using lines = std::vector<support::log_line>;
using texts = std::vector<std::string>;

template <typename Family> class Veldir : public support::dir_test<Family> {
};
TYPED_TEST_SUITE(Veldir, support::path_families, support::path_family_name);

/* Opening */

TYPED_TEST(Veldir, MissingDirectoryIsNotLogged)
{
    EXPECT_EQ(TypeParam::dir_open("none"), nullptr);
    EXPECT_EQ(TypeParam::dir_open("none/below"), nullptr);
    EXPECT_EQ(TypeParam::dir_open(""), nullptr);
    std::filesystem::create_symlink("nowhere", "dangling");
    EXPECT_EQ(TypeParam::dir_open("dangling"), nullptr);
}

TYPED_TEST(Veldir, FileIsNoDirectory)
{
    support::write_file("file", "");
    EXPECT_EQ(TypeParam::dir_open("file"), nullptr);
    EXPECT_EQ(this->log.take(),
              (lines{this->line(7, "unable to open directory 'file', error 20")}));
}

TYPED_TEST(Veldir, WhateverElseKeepsItFromOpeningIsLogged)
{
    std::filesystem::create_directory("directory");
    const std::set<int> before = support::descriptors();
    for (const int error : {EACCES, EMFILE, ENFILE, ENOMEM, ENOTDIR, ELOOP, ENAMETOOLONG, EIO}) {
        {
            const dir_watch calls({{"opendir", "directory", error}});
            EXPECT_EQ(TypeParam::dir_open("directory"), nullptr);
        }
        EXPECT_EQ(this->log.take(), (lines{this->line(7, "unable to open directory 'directory', "
                                                         "error " +
                                                             std::to_string(error))}));
    }
    {
        const dir_watch calls({{"opendir", "directory", ENOENT}});
        EXPECT_EQ(TypeParam::dir_open("directory"), nullptr);
    }
    EXPECT_EQ(support::descriptors_since(before), (std::vector<int>{}));
}

TYPED_TEST(Veldir, WorkingDirectoryThatCannotBeOpened)
{
    {
        const dir_watch calls({{"opendir", ".", EACCES}});
        EXPECT_EQ(TypeParam::dir_open(nullptr), nullptr);
    }
    const lines taken = this->log.take();
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].level, 7);
    EXPECT_EQ(taken[0].text.rfind("unable to open directory '", 0), 0u) << taken[0];
    EXPECT_TRUE(taken[0].text.ends_with("', error 13")) << taken[0];
}

TYPED_TEST(Veldir, OpeningWithoutMemory)
{
    std::filesystem::create_directory("directory");
    const auto failures = support::each_failure(this->log, "io/", [] {
        typename TypeParam::dir *dir = TypeParam::dir_open("directory");
        if (dir)
            TypeParam::dir_destroy(dir);
        return dir != nullptr;
    });
    EXPECT_EQ(failures,
              (std::vector<lines>{{this->line(7, "not enough memory for directory handle")},
                                  {this->line(7, "not enough memory for path 'directory'")}}));
}

/* The handle keeps a copy of the path. */
TYPED_TEST(Veldir, PathIsCopied)
{
    std::filesystem::create_directory("directory");
    support::write_file("directory/file", "12345");
    std::string path = "directory";
    typename TestFixture::handle dir(TypeParam::dir_open(path.c_str()));
    ASSERT_NE(dir, nullptr);
    path.assign("elsewhere");
    for (int i = 0; i < 3; i++) {
        ASSERT_EQ(TypeParam::dir_next(dir.get()), 0);
        if (TypeParam::dir_is_directory(dir.get()) == 0) {
            EXPECT_EQ(TypeParam::dir_get_size(dir.get()), 5);
        }
    }
}

TYPED_TEST(Veldir, DestroyClosesTheStream)
{
    const std::set<int> before = support::descriptors();
    typename TypeParam::dir *dir = TypeParam::dir_open(".");
    ASSERT_NE(dir, nullptr);
    EXPECT_EQ(support::descriptors_since(before).size(), 1u);
    EXPECT_EQ(TypeParam::dir_next(dir), 0);
    EXPECT_EQ(TypeParam::dir_is_directory(dir), 1);
    TypeParam::dir_destroy(dir);
    EXPECT_EQ(support::descriptors_since(before).size(), 0u);
}

/* The walk */

TYPED_TEST(Veldir, DotsAreEntriesToo)
{
    std::filesystem::create_directory("directory");
    typename TestFixture::handle dir(TypeParam::dir_open("directory"));
    ASSERT_NE(dir, nullptr);
    EXPECT_EQ(this->names(dir.get()), (std::multiset<std::string>{".", ".."}));
}

TYPED_TEST(Veldir, NamesComeAsTheyAre)
{
    const std::multiset<std::string> given = {"plain",
                                              "line\nfeed",
                                              "\n",
                                              " ",
                                              "%s%n",
                                              "'",
                                              "\xFF\xFE",
                                              "\xC3",
                                              "\xC3(",
                                              "\xED\xA0\x80",
                                              std::string(255, 'x'),
                                              std::string(253, 'y') + "\xC3\xA9",
                                              "\x01"};
    std::filesystem::create_directory("directory");
    for (const std::string &name : given)
        support::write_file("directory/" + name, name);

    typename TestFixture::handle dir(TypeParam::dir_open("directory"));
    ASSERT_NE(dir, nullptr);
    std::multiset<std::string> found;
    while (TypeParam::dir_next(dir.get()) == 0) {
        const std::string name = TypeParam::dir_fetch_name(dir.get());
        if (name[0] == '.')
            continue;
        found.insert(name);
        EXPECT_EQ(TypeParam::dir_get_size(dir.get()), static_cast<int64_t>(name.size())) << name;
    }
    EXPECT_EQ(found, given);
}

TYPED_TEST(Veldir, EndComesAgain)
{
    typename TestFixture::handle dir(TypeParam::dir_open("."));
    ASSERT_NE(dir, nullptr);
    errno = ENOTTY; /* is not taken for a failure */
    EXPECT_EQ(this->names(dir.get()).size(), 2u);
    for (int i = 0; i < 3; i++) {
        errno = ENOTTY;
        EXPECT_EQ(TypeParam::dir_next(dir.get()), -1);
        EXPECT_EQ(TypeParam::dir_get_error(dir.get()), 0);
    }
    this->expect_no_entry(dir.get(), 0);
}

TYPED_TEST(Veldir, NothingIsThereBeforeTheFirstNext)
{
    typename TestFixture::handle dir(TypeParam::dir_open("."));
    ASSERT_NE(dir, nullptr);
    EXPECT_EQ(TypeParam::dir_get_error(dir.get()), 0);
    this->expect_no_entry(dir.get(), 0);
}

/* The field error: 22 by the fetch alone, 0 by the clean end alone. */
TYPED_TEST(Veldir, ErrorStaysUntilTheEnd)
{
    typename TestFixture::handle dir(TypeParam::dir_open("."));
    ASSERT_NE(dir, nullptr);
    EXPECT_EQ(TypeParam::dir_fetch_name(dir.get()), nullptr);
    this->log.clear();
    EXPECT_EQ(TypeParam::dir_next(dir.get()), 0);
    EXPECT_NE(TypeParam::dir_fetch_name(dir.get()), nullptr);
    EXPECT_EQ(TypeParam::dir_get_error(dir.get()), VEL_ERROR_INVALID_ARGUMENT);
    {
        const dir_watch calls({{"readdir", nullptr, EIO}});
        EXPECT_EQ(TypeParam::dir_next(dir.get()), EIO);
    }
    EXPECT_EQ(TypeParam::dir_get_error(dir.get()), VEL_ERROR_INVALID_ARGUMENT);
    while (TypeParam::dir_next(dir.get()) == 0)
        EXPECT_EQ(TypeParam::dir_get_error(dir.get()), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(TypeParam::dir_get_error(dir.get()), 0);
}

TYPED_TEST(Veldir, ReadErrorIsThePlatformsNumber)
{
    typename TestFixture::handle dir(TypeParam::dir_open("."));
    ASSERT_NE(dir, nullptr);
    for (const int error : {EBADF, EIO, ENOENT, EOVERFLOW, 250}) {
        const dir_watch calls({{"readdir", nullptr, error}});
        EXPECT_EQ(TypeParam::dir_next(dir.get()), error);
    }
    this->expect_no_entry(dir.get(), 0);
    EXPECT_EQ(this->names(dir.get()).size(), 2u); /* the walk goes on */
}

/* Whatever a readdir leaves in errno counts, even with an entry. */
TYPED_TEST(Veldir, NumberInErrnoOverridesAnEntry)
{
    typename TestFixture::handle dir(TypeParam::dir_open("."));
    ASSERT_NE(dir, nullptr);
    {
        dir_watch calls;
        calls.leavenumber = ENOTTY;
        EXPECT_EQ(TypeParam::dir_next(dir.get()), ENOTTY);
    }
    this->expect_no_entry(dir.get(), 0);
}

TYPED_TEST(Veldir, Separator)
{
    EXPECT_EQ(TypeParam::dir_separator(), '/');
}

/* Names */

TYPED_TEST(Veldir, FetchedNameStaysTheSame)
{
    support::write_file("file", "");
    const auto dir = this->at(".", "file");
    ASSERT_NE(dir, nullptr);
    const char *name = TypeParam::dir_fetch_name(dir.get());
    EXPECT_EQ(TypeParam::dir_is_directory(dir.get()), 0);
    EXPECT_EQ(TypeParam::dir_fetch_name(dir.get()), name);
    EXPECT_STREQ(name, "file");
}

TYPED_TEST(Veldir, CopiedNameIsTheCallers)
{
    support::write_file("file", "");
    auto dir = this->at(".", "file");
    ASSERT_NE(dir, nullptr);
    char *name = TypeParam::dir_copy_name(dir.get());
    ASSERT_NE(name, nullptr);
    EXPECT_NE(name, TypeParam::dir_fetch_name(dir.get()));
    dir.reset();
    EXPECT_STREQ(name, "file");
    vel_free(name);
}

TYPED_TEST(Veldir, CopyingANameWithoutMemory)
{
    support::write_file("file", "");
    const auto dir = this->at(".", "file");
    ASSERT_NE(dir, nullptr);
    {
        const malloc_watch memory(1);
        EXPECT_EQ(TypeParam::dir_copy_name(dir.get()), nullptr);
    }
    EXPECT_EQ(this->log.take(),
              (lines{this->line(7, "not enough memory for copying name 'file'")}));
    EXPECT_EQ(TypeParam::dir_get_error(dir.get()), 0);
}

/* A directory so large that the platform reads it in many pieces. */
TYPED_TEST(Veldir, ManyEntries)
{
    std::filesystem::create_directory("many");
    std::multiset<std::string> expected = {".", ".."};
    for (int i = 0; i < 3000; i++) {
        const std::string name = "entry-with-a-longer-name-" + std::to_string(i);
        support::write_file("many/" + name, "");
        expected.insert(name);
    }
    typename TestFixture::handle dir(TypeParam::dir_open("many"));
    ASSERT_NE(dir, nullptr);
    EXPECT_EQ(this->names(dir.get()), expected);
}

/* Two handles on one directory do not disturb each other. */
TYPED_TEST(Veldir, HandlesAreIndependent)
{
    for (const char *name : {"one", "two", "three"})
        support::write_file(name, "");
    typename TestFixture::handle first(TypeParam::dir_open("."));
    typename TestFixture::handle second(TypeParam::dir_open("."));
    ASSERT_TRUE(first && second);
    EXPECT_EQ(TypeParam::dir_next(first.get()), 0);
    const std::string name = TypeParam::dir_fetch_name(first.get());
    EXPECT_EQ(this->names(second.get()).size(), 5u);
    EXPECT_EQ(TypeParam::dir_fetch_name(first.get()), name);
    EXPECT_EQ(this->names(first.get()).size(), 4u);
}

/* Want of memory */

template <typename Family> static bool dir_life()
{
    mkdir("directory", 0777);
    mkdir("directory/below", 0777);
    typename Family::dir *dir = Family::dir_open("directory");
    if (!dir)
        return false;
    bool completed = true;
    while (completed && Family::dir_next(dir) == 0) {
        char *name = Family::dir_copy_name(dir);
        completed = name && Family::dir_is_directory(dir) == 1 &&
                    Family::dir_is_symlink(dir) == 0 && Family::dir_get_size(dir) >= 0;
        vel_free(name);
    }
    Family::dir_destroy(dir);
    return completed && Family::dir_remove_recursive("directory") == 0;
}

TEST(VeldirOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(dir_life<support::byte_paths>);
}

TEST(Velutf8dirOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(dir_life<support::utf8_paths>);
}

template <typename Family> class VeldirDeathTest : public testing::Test {
};
TYPED_TEST_SUITE(VeldirDeathTest, support::path_families, support::path_family_name);

TYPED_TEST(VeldirDeathTest, HandleIsAsserted)
{
    const std::string text = family_name<TypeParam>("dir != NULL");
    const auto asserted = [&text](const char *function) {
        return asserts(text, family_function<TypeParam>(function));
    };
    EXPECT_DEATH(TypeParam::dir_destroy(nullptr), asserted("dir_destroy"));
    EXPECT_DEATH(TypeParam::dir_next(nullptr), asserted("dir_next"));
    EXPECT_DEATH(TypeParam::dir_fetch_name(nullptr), asserted("dir_fetch_name"));
    EXPECT_DEATH(TypeParam::dir_copy_name(nullptr), asserted("dir_copy_name"));
    EXPECT_DEATH(TypeParam::dir_is_directory(nullptr), asserted("dir_is_directory"));
    EXPECT_DEATH(TypeParam::dir_is_symlink(nullptr), asserted("dir_is_symlink"));
    EXPECT_DEATH(TypeParam::dir_get_size(nullptr), asserted("dir_get_size"));
    EXPECT_DEATH(TypeParam::dir_get_error(nullptr), asserted("dir_get_error"));
}
