#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/dircalls.h"
#include "support/eachfailure.h"
#include "support/everyerrno.h"
#include "support/oom.h"
#include "support/pathfamily.h"
#include "support/smallstack.h"

namespace fs = std::filesystem;
using support::asserts;
using support::dir_watch;
using support::family_function;
using support::malloc_watch;
using lines = std::vector<support::log_line>;
using texts = std::vector<std::string>;

template <typename Family> class Velmkdir : public support::path_test<Family> {
  protected:
    Velmkdir() : support::path_test<Family>(support::memory_files())
    {
    }

    static support::log_line line(int level, const std::string &text)
    {
        return support::path_test<Family>::line("mkdir", level, text);
    }
};

TYPED_TEST_SUITE(Velmkdir, support::path_families, support::path_family_name);

/* One directory */

TYPED_TEST(Velmkdir, MakesOneWithTheWidestMode)
{
    const mode_t umaskbefore = umask(0);
    {
        dir_watch calls;
        EXPECT_EQ(TypeParam::mkdir("new"), 0);
        EXPECT_EQ(calls.made, (texts{"mkdir new"}));
        EXPECT_EQ(calls.mode, 0777u);
    }
    struct stat data = {};
    EXPECT_EQ(stat("new", &data), 0);
    EXPECT_EQ(data.st_mode, static_cast<mode_t>(S_IFDIR | 0777));
    umask(027);
    EXPECT_EQ(TypeParam::mkdir_recursive("new/below"), VEL_ERROR_NONE);
    EXPECT_EQ(stat("new/below", &data), 0);
    EXPECT_EQ(data.st_mode, static_cast<mode_t>(S_IFDIR | 0750));
    umask(umaskbefore);
}

TYPED_TEST(Velmkdir, ErrnoIsLeft)
{
    support::write_file("file", "");
    errno = 0;
    EXPECT_EQ(TypeParam::mkdir("file"), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(TypeParam::mkdir("none/new"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(TypeParam::mkdir("file/new"), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(TypeParam::mkdir(std::string(256, 'x').c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(TypeParam::mkdir(""), -1);
    EXPECT_EQ(errno, ENOENT);
    const dir_watch calls({{"mkdir", "new", EDQUOT}});
    EXPECT_EQ(TypeParam::mkdir("new"), -1);
    EXPECT_EQ(errno, EDQUOT);
}

/* A path of directories. The tree before: directory, file, directorylink, filelink, dangling. */

struct recursive_case {
    const char *path;
    vel_error_t result;
    texts calls;
    std::set<std::string> added;
};

static const recursive_case kRecursiveCases[] = {
    {"new", VEL_ERROR_NONE, {"lstat new", "mkdir new"}, {"new"}},
    {"a/b/c",
     VEL_ERROR_NONE,
     {"lstat a/b/c", "lstat a/b", "lstat a", "mkdir a", "mkdir a/b", "mkdir a/b/c"},
     {"a", "a/b", "a/b/c"}},
    {"directory", VEL_ERROR_NONE, {"lstat directory"}, {}},
    {"directory/", VEL_ERROR_NONE, {"lstat directory/"}, {}},
    {"/", VEL_ERROR_NONE, {"lstat /"}, {}},
    {".", VEL_ERROR_NONE, {"lstat ."}, {}},
    {"directory/new",
     VEL_ERROR_NONE,
     {"lstat directory/new", "lstat directory", "mkdir directory/new"},
     {"directory/new"}},
    {"./new", VEL_ERROR_NONE, {"lstat ./new", "lstat .", "mkdir ./new"}, {"new"}},
    /* what ends in a separator is made as its own parent, and is there then */
    {"new/", VEL_ERROR_NONE, {"lstat new/", "lstat new", "mkdir new", "mkdir new/"}, {"new"}},
    {"a//b",
     VEL_ERROR_NONE,
     {"lstat a//b", "lstat a/", "lstat a", "mkdir a", "mkdir a/", "mkdir a//b"},
     {"a", "a/b"}},
    {"file", VEL_ERROR_EXISTS, {"lstat file"}, {}},
    {"filelink", VEL_ERROR_EXISTS, {"lstat filelink"}, {}},
    {"dangling", VEL_ERROR_EXISTS, {"lstat dangling"}, {}},
    {"directorylink", VEL_ERROR_EXISTS, {"lstat directorylink"}, {}},
    /* behind a separator, the platform follows it */
    {"directorylink/", VEL_ERROR_NONE, {"lstat directorylink/"}, {}},
    {"directorylink/new",
     VEL_ERROR_NONE,
     {"lstat directorylink/new", "lstat directorylink", "mkdir directorylink/new"},
     {"directory/new"}},
    {"file/new", VEL_ERROR_NOT_DIRECTORY, {"lstat file/new", "lstat file", "mkdir file/new"}, {}},
    {"file/a/b",
     VEL_ERROR_NOT_DIRECTORY,
     {"lstat file/a/b", "lstat file/a", "lstat file", "mkdir file/a"},
     {}},
    {"filelink/new",
     VEL_ERROR_NOT_DIRECTORY,
     {"lstat filelink/new", "lstat filelink", "mkdir filelink/new"},
     {}},
    {"dangling/new",
     VEL_ERROR_NOT_DIRECTORY,
     {"lstat dangling/new", "lstat dangling", "mkdir dangling/new"},
     {}},
    {"", VEL_ERROR_NOT_DIRECTORY, {"lstat", "mkdir"}, {}},
};

template <typename Family> class VelmkdirRecursive : public Velmkdir<Family> {
  protected:
    void SetUp() override
    {
        fs::create_directory("directory");
        support::write_file("file", "");
        fs::create_symlink("directory", "directorylink");
        fs::create_symlink("file", "filelink");
        fs::create_symlink("nowhere", "dangling");
    }
    const std::set<std::string> before = {"directory", "file", "directorylink", "filelink",
                                          "dangling"};
};

TYPED_TEST_SUITE(VelmkdirRecursive, support::path_families, support::path_family_name);

TYPED_TEST(VelmkdirRecursive, Paths)
{
    for (const recursive_case &one : kRecursiveCases) {
        SCOPED_TRACE(one.path);
        {
            const dir_watch calls;
            EXPECT_EQ(TypeParam::mkdir_recursive(one.path), one.result);
            EXPECT_EQ(calls.made, one.calls);
        }
        std::set<std::string> expected = this->before;
        expected.insert(one.added.begin(), one.added.end());
        EXPECT_EQ(this->paths_here(), expected);
        if (one.result == VEL_ERROR_NONE) {
            EXPECT_EQ(TypeParam::mkdir_recursive(one.path), VEL_ERROR_NONE); /* again */
        }
        for (auto added = one.added.rbegin(); added != one.added.rend(); ++added)
            fs::remove(*added);
    }
}

TYPED_TEST(VelmkdirRecursive, NothingAboveTheFirstSeparator)
{
    const dir_watch calls({{"mkdir", "/vel-new", EACCES}});
    EXPECT_EQ(TypeParam::mkdir_recursive("/vel-new"), VEL_ERROR_ACCESS);
    EXPECT_EQ(calls.made, (texts{"lstat /vel-new", "mkdir /vel-new"}));
}

TYPED_TEST(VelmkdirRecursive, AbsolutePath)
{
    const std::string path = fs::absolute("a/b").string();
    EXPECT_EQ(TypeParam::mkdir_recursive(path.c_str()), VEL_ERROR_NONE);
    EXPECT_TRUE(fs::is_directory("a/b"));
}

TYPED_TEST(VelmkdirRecursive, TooLong)
{
    const std::string name(256, 'x');
    EXPECT_EQ(TypeParam::mkdir_recursive(name.c_str()), VEL_ERROR_NAME_TOO_LONG);
    EXPECT_EQ(TypeParam::mkdir_recursive((name + "/new").c_str()), VEL_ERROR_NAME_TOO_LONG);
    EXPECT_EQ(TypeParam::mkdir_recursive(("new/" + name).c_str()), VEL_ERROR_NAME_TOO_LONG);
    EXPECT_TRUE(fs::is_directory("new")); /* what was made stays */
}

/* The longest path of the platform has 4095 bytes. A path of many parts is no burden of its own. */
TYPED_TEST(VelmkdirRecursive, PathOfManyParts)
{
    std::string path = "d";
    while (path.size() < 20000)
        path += "/d";
    support::run_on_small_stack(
        [&path] { EXPECT_EQ(TypeParam::mkdir_recursive(path.c_str()), VEL_ERROR_NAME_TOO_LONG); });
    EXPECT_TRUE(fs::is_directory(path.substr(0, 4095)));
    EXPECT_EQ(system("rm -r d"), 0);
}

/* A refusal above: nothing below it is tried. */
TYPED_TEST(VelmkdirRecursive, FailureAboveIsTheResult)
{
    const dir_watch calls({{"mkdir", "b", EROFS}});
    EXPECT_EQ(TypeParam::mkdir_recursive("a/b/c/d"), VEL_ERROR_READ_ONLY);
    EXPECT_EQ(calls.made.back(), "mkdir a/b");
}

/* Somebody else is faster. */
TYPED_TEST(VelmkdirRecursive, DirectoryAppears)
{
    dir_watch calls;
    calls.before = [](const std::string &call) {
        if (call.rfind("mkdir ", 0) == 0)
            fs::create_directory(call.substr(6));
    };
    EXPECT_EQ(TypeParam::mkdir_recursive("a/b/c"), VEL_ERROR_NONE);
    EXPECT_EQ(calls.count({"mkdir"}), 3u);
}

/* The same holds for what is no directory: only the next part down finds that out. */
TYPED_TEST(VelmkdirRecursive, FileAppears)
{
    dir_watch calls;
    calls.before = [](const std::string &call) {
        if (call == "mkdir a")
            support::write_file("a", "");
    };
    EXPECT_EQ(TypeParam::mkdir_recursive("a"), VEL_ERROR_NONE);
    fs::remove("a");
    EXPECT_EQ(TypeParam::mkdir_recursive("a/b"), VEL_ERROR_NOT_DIRECTORY);
}

TYPED_TEST(VelmkdirRecursive, SeveralProcessesMakeTheSameTree)
{
    for (int round = 0; round < 5; round++) {
        std::string path = "round" + std::to_string(round);
        for (int i = 0; i < 60; i++)
            path += "/d";
        int start[2];
        ASSERT_EQ(pipe(start), 0);
        std::vector<pid_t> children;
        for (int i = 0; i < 4; i++) {
            const pid_t child = fork();
            ASSERT_GE(child, 0);
            if (child == 0) {
                close(start[1]);
                char end;
                (void)!read(start[0], &end, 1); /* comes back when all are there */
                _exit(TypeParam::mkdir_recursive(path.c_str()));
            }
            children.push_back(child);
        }
        close(start[0]);
        close(start[1]);
        for (const pid_t child : children) {
            int status = -1;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            EXPECT_TRUE(WIFEXITED(status));
            EXPECT_EQ(WEXITSTATUS(status), VEL_ERROR_NONE);
        }
        EXPECT_TRUE(fs::is_directory(path));
    }
}

TYPED_TEST(VelmkdirRecursive, WithoutMemory)
{
    const support::log_line expected =
        this->line(7, "not enough memory for parent directory path name");
    support::warm_log(this->log);
    for (const size_t copy : {1, 2}) { /* "a/b" and "a" */
        {
            const malloc_watch memory(copy);
            EXPECT_EQ(TypeParam::mkdir_recursive("a/b/c"), VEL_ERROR_NO_MEMORY);
        }
        EXPECT_EQ(this->log.take(), (lines{expected}));
        EXPECT_EQ(this->paths_here(), this->before);
    }

    const malloc_watch memory(1); /* nothing is needed without a parent */
    EXPECT_EQ(TypeParam::mkdir_recursive("new"), VEL_ERROR_NONE);
    EXPECT_EQ(TypeParam::mkdir_recursive("directory"), VEL_ERROR_NONE);
    EXPECT_EQ(memory.count(), 0u);
}

/* Every error of the platform */

static const std::map<int, vel_error_t> kMkdirErrors = {
    {EPERM, VEL_ERROR_ACCESS},
    {ENOENT, VEL_ERROR_NOT_DIRECTORY},
    {ENOMEM, VEL_ERROR_NO_MEMORY},
    {EACCES, VEL_ERROR_ACCESS},
    {EEXIST, VEL_ERROR_NONE},
    {ENOTDIR, VEL_ERROR_NOT_DIRECTORY},
    {ENOSPC, VEL_ERROR_NO_SPACE},
    {EROFS, VEL_ERROR_READ_ONLY},
    {EMLINK, VEL_ERROR_TOO_MANY_LINKS},
    {ELOOP, VEL_ERROR_SYMLINK_LOOP},
    {ENAMETOOLONG, VEL_ERROR_NAME_TOO_LONG},
};

TYPED_TEST(VelmkdirRecursive, EveryErrorOfThePlatform)
{
    const support::errno_expectations expected = {
        kMkdirErrors, [](int) { return lines(); },
        [this](int error) {
            return lines{
                this->line(7, "an unhandled error " + std::to_string(error) + " occurred")};
        }};
    support::expect_for_every_errno(this->log, "mkdir", "new", expected,
                                    [] { return TypeParam::mkdir_recursive("directory/new"); });
    EXPECT_EQ(this->paths_here(), this->before);
}

/* Whatever keeps the path from being seen, the directory is tried. */
TYPED_TEST(VelmkdirRecursive, AnyFailureToLookGoesOn)
{
    for (const int error : {ENOENT, EACCES, EIO, ENOTDIR}) {
        const dir_watch calls({{"lstat", "directory", error}});
        EXPECT_EQ(TypeParam::mkdir_recursive("directory"), VEL_ERROR_NONE); /* it is there */
        EXPECT_EQ(calls.made, (texts{"lstat directory", "mkdir directory"}));
    }
}

/* The directory of a file */

TYPED_TEST(VelmkdirRecursive, FileWithoutADirectory)
{
    const dir_watch calls;
    const malloc_watch memory;
    for (const char *name : {"name", "/name", "", "/", "."})
        EXPECT_EQ(TypeParam::mkdir_file_path(name), 0) << name;
    EXPECT_EQ(calls.made, (texts{}));
    EXPECT_EQ(memory.count(), 0u);
}

TYPED_TEST(VelmkdirRecursive, DirectoriesOfAFile)
{
    EXPECT_EQ(TypeParam::mkdir_file_path("a/b/name"), 0);
    EXPECT_EQ(TypeParam::mkdir_file_path("a/b/name"), 0);
    EXPECT_EQ(TypeParam::mkdir_file_path("c/"), 0);
    EXPECT_EQ(TypeParam::mkdir_file_path((fs::absolute("d/name")).c_str()), 0);
    EXPECT_EQ(TypeParam::mkdir_file_path("directory/name"), 0);
    std::set<std::string> expected = this->before;
    expected.insert({"a", "a/b", "c", "d"});
    EXPECT_EQ(this->paths_here(), expected);
}

TYPED_TEST(VelmkdirRecursive, DirectoriesOfAFileThatCannotBe)
{
    const auto failed = [this](const char *rest) {
        return this->line(7, std::string("creating path '") + rest);
    };
    EXPECT_EQ(TypeParam::mkdir_file_path("file/name"), -1);
    EXPECT_EQ(TypeParam::mkdir_file_path("file/below/name"), -1);
    EXPECT_EQ(TypeParam::mkdir_file_path("directorylink/name"), -1); /* stays so */
    EXPECT_EQ(this->log.take(),
              (lines{failed("file' failed, error 17 (item already exists)"),
                     failed("file/below' failed, error 20 (not a directory)"),
                     failed("directorylink' failed, error 17 (item already exists)")}));
    EXPECT_EQ(TypeParam::mkdir_file_path("directorylink/below/name"), 0);
    fs::remove("directory/below");
    {
        const dir_watch calls({{"mkdir", nullptr, EIO}});
        EXPECT_EQ(TypeParam::mkdir_file_path("new/name"), -1);
    }
    EXPECT_EQ(this->log.take(), (lines{this->line(7, "an unhandled error 5 occurred"),
                                       failed("new' failed, error 202 (generic error)")}));
    EXPECT_EQ(this->paths_here(), this->before);
}

TYPED_TEST(VelmkdirRecursive, DirectoriesOfAFileWithoutMemory)
{
    support::warm_log(this->log);
    errno = 0;
    {
        const malloc_watch memory(1);
        EXPECT_EQ(TypeParam::mkdir_file_path("a/b/name"), -1);
    }
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(
        this->log.take(),
        (lines{this->line(7, "not enough memory for copying path name for file 'a/b/name'")}));
    {
        const malloc_watch memory(2);
        EXPECT_EQ(TypeParam::mkdir_file_path("a/b/name"), -1);
    }
    EXPECT_EQ(this->log.take(),
              (lines{this->line(7, "not enough memory for parent directory path name"),
                     this->line(7, "creating path 'a/b' failed, error 12 (not enough memory)")}));
    EXPECT_EQ(this->paths_here(), this->before);
}

template <typename Family> static bool mkdir_life()
{
    for (const char *left : {"a/b/c", "a/b", "a"})
        rmdir(left);
    return Family::mkdir_recursive("a/b") == VEL_ERROR_NONE &&
           Family::mkdir_file_path("a/b/c/name") == 0 && Family::rmdir("a/b/c") == 0;
}

TEST(VelmkdirOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(mkdir_life<support::byte_paths>);
}

TEST(Velutf8mkdirOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(mkdir_life<support::utf8_paths>);
}

template <typename Family> class VelmkdirDeathTest : public testing::Test {
};
TYPED_TEST_SUITE(VelmkdirDeathTest, support::path_families, support::path_family_name);

TYPED_TEST(VelmkdirDeathTest, ArgumentsAreAsserted)
{
    EXPECT_DEATH(TypeParam::mkdir(nullptr),
                 asserts("pathname != NULL", family_function<TypeParam>("mkdir")));
    EXPECT_DEATH(TypeParam::mkdir_recursive(nullptr),
                 asserts("pathname != NULL", family_function<TypeParam>("mkdir_recursive")));
    EXPECT_DEATH(TypeParam::mkdir_file_path(nullptr),
                 asserts("filename != NULL", family_function<TypeParam>("mkdir_file_path")));
}
