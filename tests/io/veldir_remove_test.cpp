#include <cerrno>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/descriptors.h"
#include "support/dircalls.h"
#include "support/eachfailure.h"
#include "support/pathfamily.h"
#include "support/randomtree.h"
#include "support/removetest.h"

namespace fs = std::filesystem;
using support::asserts;
using support::dir_refusal;
using support::dir_watch;
using support::family_function;
using support::family_name;
using support::malloc_watch;
using lines = std::vector<support::log_line>;
using texts = std::vector<std::string>;

template <typename Family> class VeldirRemove : public support::remove_test<Family> {
};
TYPED_TEST_SUITE(VeldirRemove, support::path_families, support::path_family_name);

/* What is given */

TYPED_TEST(VeldirRemove, MissingPath)
{
    EXPECT_EQ(TypeParam::dir_remove_recursive("none"), -1);
    EXPECT_EQ(TypeParam::dir_remove_recursive(""), -1);
    EXPECT_EQ(this->log.take(), (lines{this->line(7, "unable to stat path 'none'"),
                                       this->line(7, "unable to stat path ''")}));
}

TYPED_TEST(VeldirRemove, OnlyDirectories)
{
    support::write_file("file", "");
    mkfifo("fifo", 0600);
    fs::create_symlink("file", "filelink");
    fs::create_symlink("nowhere", "dangling");
    for (const char *path : {"file", "fifo", "filelink", "dangling"}) {
        EXPECT_EQ(TypeParam::dir_remove_recursive(path), -1);
        EXPECT_EQ(this->log.take(),
                  (lines{this->line(7, std::string("path '") + path + "' is not a directory")}));
    }
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{"file", "fifo", "filelink", "dangling"}));
}

TYPED_TEST(VeldirRemove, EmptyDirectory)
{
    fs::create_directories("directory/below");
    EXPECT_EQ(TypeParam::dir_remove_recursive("directory/below"), 0);
    EXPECT_EQ(TypeParam::dir_remove_recursive("directory/"), 0);
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{}));
}

TYPED_TEST(VeldirRemove, LinkToADirectoryGoesAlone)
{
    fs::create_directory("target");
    support::write_file("target/file", "kept");
    fs::create_symlink("target", "link");
    {
        dir_watch calls;
        EXPECT_EQ(TypeParam::dir_remove_recursive("link"), 0);
        EXPECT_EQ(calls.made, (texts{"lstat link", "stat link", "unlink link"}));
    }
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{"target", "target/file"}));
    EXPECT_EQ(support::read_file("target/file"), "kept");
}

TYPED_TEST(VeldirRemove, LinkThatCannotBeDeleted)
{
    fs::create_directory("target");
    fs::create_symlink("target", "link");
    {
        const dir_watch calls({{"unlink", "link", EACCES}});
        EXPECT_EQ(TypeParam::dir_remove_recursive("link"), -1);
    }
    EXPECT_EQ(this->log.take(), (lines{this->line(7, "unable to delete 'link'")}));
    EXPECT_TRUE(fs::is_symlink("link"));
}

/* What is in it */

TYPED_TEST(VeldirRemove, AllKindsOfEntries)
{
    fs::create_directories("outside/below");
    support::write_file("outside/file", "kept");
    fs::create_directories("top/directory/deeper");
    support::write_file("top/directory/file", "");
    support::write_file("top/readonly", "");
    fs::permissions("top/readonly", fs::perms::none);
    fs::create_symlink("../outside", "top/link");
    fs::create_symlink(fs::absolute("outside"), "top/directory/link");
    fs::create_symlink("nowhere", "top/dangling");
    fs::create_symlink("loop", "top/loop");
    fs::create_symlink(".", "top/self");
    mkfifo("top/fifo", 0600);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = {AF_UNIX, "top/socket"};
    ASSERT_EQ(bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    close(descriptor);

    const std::set<int> before = support::descriptors();
    EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
    EXPECT_EQ(support::descriptors_since(before), (std::vector<int>{}));
    EXPECT_EQ(this->paths_here(),
              (std::set<std::string>{"outside", "outside/below", "outside/file"}));
    EXPECT_EQ(support::read_file("outside/file"), "kept");
    /* a link to a directory is not announced */
    EXPECT_EQ(this->take_but_announcements({"top/directory/file", "top/readonly", "top/dangling",
                                            "top/loop", "top/fifo", "top/socket"}),
              (lines{}));
}

TYPED_TEST(VeldirRemove, LinkIsLookedAtButNotEntered)
{
    fs::create_directories("outside/below");
    fs::create_directory("top");
    fs::create_symlink("../outside", "top/link");
    dir_watch calls;
    EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
    EXPECT_EQ(calls.count({"opendir"}), 1u);
    EXPECT_EQ(calls.count({"closedir"}), 1u);
    EXPECT_EQ(calls.count({"lstat"}), 2u);
    EXPECT_EQ(calls.count({"stat"}), 1u);
    EXPECT_EQ(calls.count({"unlink"}), 1u);
    EXPECT_EQ(calls.count({"rmdir"}), 1u);
    EXPECT_EQ(calls.made.back(), "rmdir top");
}

TYPED_TEST(VeldirRemove, NamesOfAllKinds)
{
    fs::create_directory("top");
    std::vector<std::string> paths;
    for (const std::string &name :
         {std::string("line\nfeed"), std::string(255, 'x'), std::string("\xFF\xFE"),
          std::string("e\xCC\x81"), std::string("\xE1\x84\x80\xE1\x85\xA1\xE1\x86\xA8"),
          std::string("%s%n"), std::string("...")}) {
        fs::create_directory("top/" + name);
        support::write_file("top/" + name + "/" + name, "");
    }
    EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{}));
    this->log.clear(); /* lines break in names */
}

TYPED_TEST(VeldirRemove, RandomTrees)
{
    fs::create_directory("outside");
    support::write_file("outside/file", "kept");
    for (unsigned seed = 100; seed < 110; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        fs::create_directory("top");
        fs::create_symlink(fs::absolute("outside"), "top/outside");
        support::make_random_tree(random, "top", 300);
        EXPECT_GT(support::find_tree("top").size(), 100u);

        EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
        EXPECT_EQ(this->paths_here(), (std::set<std::string>{"outside", "outside/file"}));
        this->log.clear();
    }
}

/* So many entries that the platform reads the directory in pieces while they vanish. */
TYPED_TEST(VeldirRemove, ManyEntries)
{
    fs::create_directory("top");
    std::vector<std::string> paths;
    for (int i = 0; i < 2000; i++) {
        paths.push_back("top/entry-with-a-longer-name-" + std::to_string(i));
        support::write_file(paths.back(), "");
    }
    EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
    EXPECT_EQ(this->take_but_announcements(paths), (lines{}));
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{}));
}

/* Failures: what fails stays with all above it, and everything else goes. */

struct remove_case {
    const char *name;
    std::vector<dir_refusal> refusals;
    std::vector<std::pair<int, const char *>> log;
    std::set<std::string> left;
};

/* The tree: top/before, top/directory/file, top/directory/link, top/empty, top/zfile. */
static const remove_case kRemoveCases[] = {
    {"Nothing", {}, {}, {}},
    {"File",
     {{"unlink", "zfile", EACCES}},
     {{7, "unable to delete file 'top/zfile'"}},
     {"top", "top/zfile"}},
    {"FileBelow",
     {{"unlink", "file", EACCES}},
     {{7, "unable to delete file 'top/directory/file'"}},
     {"top", "top/directory", "top/directory/file"}},
    {"LinkBelow",
     {{"unlink", "link", EPERM}},
     {{7, "unable to delete 'top/directory/link'"},
      {7, "unable to delete symbolic link 'top/directory/link'"}},
     {"top", "top/directory", "top/directory/link"}},
    {"Directory",
     {{"rmdir", "empty", EBUSY}},
     {{7, "unable to remove directory 'top/empty', errno 16"}},
     {"top", "top/empty"}},
    {"Top",
     {{"rmdir", "top", ENOTEMPTY}},
     {{7, "unable to remove directory 'top', errno 39"}},
     {"top"}},
    {"TopCannotBeSeen",
     {{"lstat", "top", EACCES}},
     {{7, "unable to stat path 'top'"}},
     {"top", "top/before", "top/directory", "top/directory/file", "top/directory/link", "top/empty",
      "top/zfile"}},
    {"TopCannotBeOpened",
     {{"opendir", "top", EACCES}},
     {{7, "unable to open directory 'top', error 13"}, {13, "unable to open directory top"}},
     {"top", "top/before", "top/directory", "top/directory/file", "top/directory/link", "top/empty",
      "top/zfile"}},
    {"DirectoryCannotBeOpened",
     {{"opendir", "empty", EMFILE}},
     {{7, "unable to open directory 'top/empty', error 24"},
      {13, "unable to open directory top/empty"}},
     {"top", "top/empty"}},
    /* a missing directory is not logged by the opening */
    {"DirectoryVanishes",
     {{"opendir", "empty", ENOENT}},
     {{13, "unable to open directory top/empty"}},
     {"top", "top/empty"}},
    {"DirectoryCannotBeRead",
     {{"readdir", "empty", EIO}},
     {{7, "an error occurred reading the directory"}},
     {"top", "top/empty"}},
    /* what cannot be looked at is taken for a file */
    {"FileCannotBeSeen",
     {{"lstat", "zfile", EACCES}},
     {{7, "unable to stat 'top/zfile'"}, {6, "calling stat() has failed"}},
     {}},
    {"DirectoryCannotBeSeen",
     {{"lstat", "empty", EACCES}},
     {{7, "unable to stat 'top/empty'"},
      {6, "calling stat() has failed"},
      {7, "unable to delete file 'top/empty'"}},
     {"top", "top/empty"}},
    /* then it is a link that leads to no directory */
    {"TargetCannotBeSeen", {{"stat", "link", EACCES}}, {}, {}},
    {"FileVanishes",
     {{"lstat", "zfile", ENOENT}, {"unlink", "zfile", ENOENT}},
     {{7, "unable to stat 'top/zfile'"},
      {6, "calling stat() has failed"},
      {7, "unable to delete file 'top/zfile'"}},
     {"top", "top/zfile"}},
};

TYPED_TEST(VeldirRemove, WhatFailsStays)
{
    fs::create_directory("outside");
    support::write_file("outside/file", "kept");
    for (const remove_case &one : kRemoveCases) {
        SCOPED_TRACE(one.name);
        fs::create_directories("top/directory");
        fs::create_directories("top/empty");
        support::write_file("top/before", "");
        support::write_file("top/directory/file", "");
        support::write_file("top/zfile", "");
        fs::create_symlink("../../outside", "top/directory/link");

        const std::set<int> before = support::descriptors();
        int result;
        {
            const dir_watch calls(one.refusals);
            result = TypeParam::dir_remove_recursive("top");
        }
        EXPECT_EQ(result, one.left.empty() ? 0 : -1);
        EXPECT_EQ(support::descriptors_since(before), (std::vector<int>{}));
        lines expected, taken;
        for (const auto &[level, text] : one.log)
            expected.push_back(this->line(level, text));
        for (const support::log_line &given : this->log.take())
            if (given.text.rfind("vel_utf8deletefile(", 0) != 0)
                taken.push_back(given);
        EXPECT_EQ(taken, expected);

        std::set<std::string> left = this->paths_here();
        EXPECT_EQ(left.erase("outside"), 1u);
        EXPECT_EQ(left.erase("outside/file"), 1u);
        EXPECT_EQ(left, one.left);
        fs::remove_all("top");
    }
}

/* The line comes ahead of the deletion, so also for a file that stays. */
TYPED_TEST(VeldirRemove, FailureFollowsTheAnnouncement)
{
    fs::create_directory("top");
    support::write_file("top/file", "");
    const dir_watch calls({{"unlink", "file", EACCES}});
    EXPECT_EQ(TypeParam::dir_remove_recursive("top"), -1);
    EXPECT_EQ(this->log.take(),
              (this->announced("top/file", {this->line(7, "unable to delete file 'top/file'")})));
}

/* A read error in the middle: what came before it is gone, and the rest stays. */
TYPED_TEST(VeldirRemove, ReadErrorEndsTheWalkOfADirectory)
{
    fs::create_directory("top");
    for (int i = 0; i < 10; i++)
        support::write_file("top/" + std::to_string(i), "");
    size_t deleted;
    {
        const dir_watch calls({{"readdir", "top", EIO, 7}});
        EXPECT_EQ(TypeParam::dir_remove_recursive("top"), -1);
        EXPECT_EQ(calls.count({"rmdir"}), 0u);
        EXPECT_EQ(calls.count({"closedir"}), 1u);
        deleted = calls.count({"unlink"});
    }
    EXPECT_GE(deleted, 5u); /* the dots are two of the seven at most */
    EXPECT_LE(deleted, 7u);
    EXPECT_EQ(this->paths_here().size(), 1 + 10 - deleted);
    const lines taken = this->log.take();
    ASSERT_FALSE(taken.empty());
    EXPECT_EQ(taken.back(), this->line(7, "an error occurred reading the directory"));
}

/* Somebody else removes an entry between its name and its deletion. */
TYPED_TEST(VeldirRemove, EntryVanishes)
{
    fs::create_directory("top");
    support::write_file("top/file", "");
    {
        dir_watch calls;
        calls.before = [](const std::string &call) {
            if (call.starts_with("lstat ") && call.ends_with("file"))
                fs::remove("top/file");
        };
        EXPECT_EQ(TypeParam::dir_remove_recursive("top"), -1);
    }
    EXPECT_EQ(this->take_but_announcements({"top/file"}),
              (lines{this->line(7, "unable to stat 'top/file'"),
                     this->line(6, "calling stat() has failed"),
                     this->line(7, "unable to delete file 'top/file'")}));
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{"top"}));
    EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
}

TYPED_TEST(VeldirRemove, EntryAppears)
{
    fs::create_directory("top");
    support::write_file("top/file", "");
    {
        dir_watch calls;
        calls.before = [](const std::string &call) {
            if (call == "rmdir top")
                support::write_file("top/new", "");
        };
        EXPECT_EQ(TypeParam::dir_remove_recursive("top"), -1);
    }
    EXPECT_EQ(this->take_but_announcements({"top/file"}),
              (lines{this->line(7, "unable to remove directory 'top', errno 39")}));
    EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
    EXPECT_EQ(this->take_but_announcements({"top/new"}), (lines{}));
}

/* A link that is put in the place of a directory after that was looked at is not followed. */
TYPED_TEST(VeldirRemove, DirectoryTurnsIntoALink)
{
    fs::create_directory("outside");
    support::write_file("outside/file", "kept");
    fs::create_directories("top/directory");
    {
        dir_watch calls;
        calls.before = [](const std::string &call) {
            if (call.starts_with("opendir ") && call.ends_with("directory")) {
                fs::remove("top/directory");
                fs::create_symlink("../outside", "top/directory");
            }
        };
        EXPECT_EQ(TypeParam::dir_remove_recursive("top"), -1);
    }
    EXPECT_EQ(this->log.take(),
              (lines{this->line(7, "unable to open directory 'top/directory', error 20"),
                     this->line(13, "unable to open directory top/directory")}));
    EXPECT_EQ(support::read_file("outside/file"), "kept");
    EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
    EXPECT_EQ(support::read_file("outside/file"), "kept");
}

/* The platform does not remove the directory under these names, but what is in it goes. */
TYPED_TEST(VeldirRemove, NamesThatThePlatformRefuses)
{
    fs::create_directory("top");
    fs::create_symlink("top", "link");
    support::write_file("top/file", "");
    EXPECT_EQ(TypeParam::dir_remove_recursive("link/"), -1);
    EXPECT_EQ(this->take_but_announcements({"link//file"}),
              (lines{this->line(7, "unable to remove directory 'link/', errno 20")}));
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{"top", "link"}));

    EXPECT_EQ(TypeParam::dir_remove_recursive("."), -1);
    EXPECT_EQ(this->take_but_announcements({"./link"}),
              (lines{this->line(7, "unable to remove directory '.', errno 22")}));
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{}));
}

/* Each allocation on the way fails once, and what failed is said. */
TYPED_TEST(VeldirRemove, WithoutMemory)
{
    const std::string object = family_name<TypeParam>("stat");
    const support::log_line noobject =
        support::path_test<TypeParam>::line("stat", 7, "not enough memory for " + object);
    const support::log_line nostat = this->line(6, "calling stat() has failed");
    const support::log_line nodelete = this->line(7, "unable to delete file 'top/below'");
    const auto notopen = [this](const std::string &line, const std::string &path) {
        return lines{this->line(7, line), this->line(13, "unable to open directory " + path)};
    };
    const auto notseen = [&](lines first) {
        first.push_back(nostat);
        for (const support::log_line &one : this->announced("top/below", {nodelete}))
            first.push_back(one);
        return first;
    };
    const std::vector<lines> expected = {
        {noobject, this->line(7, "not enough memory for " + object + " context")},
        notopen("not enough memory for directory handle", "top"),
        notopen("not enough memory for path 'top'", "top"),
        {this->line(7, "not enough memory for path")},
        notseen({noobject, this->line(7, "unable to create " + object + " context")}),
        notseen({this->line(7, "not enough memory for stat path")}),
        notopen("not enough memory for directory handle", "top/below"),
        notopen("not enough memory for path 'top/below'", "top/below")};
    fs::create_directories("top/below");
    EXPECT_EQ(support::each_failure(this->log, "io/",
                                    [] { return TypeParam::dir_remove_recursive("top") == 0; }),
              expected);
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{}));
}

/* A file that there is no memory to look at goes all the same. */
TYPED_TEST(VeldirRemove, FileIsNotLookedAtWithoutMemory)
{
    const std::string object = family_name<TypeParam>("stat");
    const support::log_line nostat = this->line(6, "calling stat() has failed");
    const lines expected[] = {
        {support::path_test<TypeParam>::line("stat", 7, "not enough memory for " + object),
         this->line(7, "unable to create " + object + " context"), nostat},
        {this->line(7, "not enough memory for stat path"), nostat}};
    support::warm_log(this->log);
    for (size_t failing : {5, 6}) {
        fs::create_directory("top");
        support::write_file("top/file", "");
        {
            const malloc_watch memory(failing);
            EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
        }
        EXPECT_EQ(this->take_but_announcements({"top/file"}), expected[failing - 5]);
        EXPECT_FALSE(fs::exists("top"));
    }
}

template <typename Family> class VeldirRemoveDeathTest : public testing::Test {
};
TYPED_TEST_SUITE(VeldirRemoveDeathTest, support::path_families, support::path_family_name);

TYPED_TEST(VeldirRemoveDeathTest, PathIsAsserted)
{
    EXPECT_DEATH(TypeParam::dir_remove_recursive(nullptr),
                 asserts("path != NULL", family_function<TypeParam>("dir_remove_recursive")));
}
