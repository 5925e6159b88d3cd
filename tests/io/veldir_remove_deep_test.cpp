#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/descriptors.h"
#include "support/dircalls.h"
#include "support/eachfailure.h"
#include "support/removetest.h"

namespace fs = std::filesystem;
using support::dir_watch;
using support::family_name;
using support::malloc_watch;
using lines = std::vector<support::log_line>;

/* The removal of trees that are deep. */
template <typename Family> class VeldirRemoveDepth : public support::remove_test<Family> {
  protected:
    VeldirRemoveDepth() : support::remove_test<Family>(support::memory_files())
    {
    }
};
TYPED_TEST_SUITE(VeldirRemoveDepth, support::path_families, support::path_family_name);

/* Makes directories of one name, each in the one before, and leaves a file in the last. */
static void make_chain(const char *top, int levels)
{
    int at = open(".", O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < levels; level++) {
        const char *name = level == 0 ? top : "d";
        ASSERT_EQ(mkdirat(at, name, 0777), 0);
        const int next = openat(at, name, O_RDONLY | O_DIRECTORY);
        ASSERT_GE(next, 0);
        close(at);
        at = next;
    }
    close(openat(at, "file", O_WRONLY | O_CREAT, 0666));
    close(at);
}

static std::string chain_path(const char *top, size_t levels)
{
    std::string path = top;
    for (size_t level = 1; level < levels; level++)
        path += "/d";
    return path;
}

/* Gives the process this many descriptors while it lives. */
class descriptor_limit {
  public:
    explicit descriptor_limit(rlim_t limit)
    {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit now = {limit, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &now), 0);
    }
    ~descriptor_limit()
    {
        setrlimit(RLIMIT_NOFILE, &before_);
    }
    descriptor_limit(const descriptor_limit &) = delete;
    descriptor_limit &operator=(const descriptor_limit &) = delete;

  private:
    rlimit before_;
};

/* Deeper than the usual 1024 descriptors and the longest path, 4095 bytes, reach. */
TYPED_TEST(VeldirRemoveDepth, TenThousandLevels)
{
    make_chain("top", 10000);
    const std::set<int> before = support::descriptors();
    {
        const descriptor_limit limit(1024);
        EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
    }
    EXPECT_EQ(support::descriptors_since(before), (std::vector<int>{}));
    EXPECT_EQ(this->take_but_announcements({chain_path("top", 10000) + "/file"}), (lines{}));
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{}));
}

/* A file at the bottom that stays keeps all the directories above it. */
TYPED_TEST(VeldirRemoveDepth, FileThatStaysFarBelow)
{
    make_chain("top", 3000);
    support::write_file("top/d/d/other", "");
    {
        const dir_watch calls({{"unlink", "file", EACCES}});
        EXPECT_EQ(TypeParam::dir_remove_recursive("top"), -1);
        EXPECT_EQ(calls.count({"rmdir"}), 0u);
    }
    const std::string path = chain_path("top", 3000) + "/file";
    EXPECT_EQ(this->take_but_announcements({path, "top/d/d/other"}),
              (lines{this->line(7, "unable to delete file '" + path + "'")}));
    EXPECT_FALSE(fs::exists("top/d/d/other"));
    EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
    this->log.clear();
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{}));
}

/* A chain with more beside it in the upper levels: files and links. */
template <typename Family> class VeldirRemoveDeep : public VeldirRemoveDepth<Family> {
  protected:
    static constexpr size_t kLevels = 80, kUpper = 20;

    void SetUp() override
    {
        fs::create_directory("outside");
        support::write_file("outside/file", "kept");
    }
    void TearDown() override
    {
        EXPECT_EQ(support::read_file("outside/file"), "kept");
        support::remove_test<Family>::TearDown();
    }

    /* Whichever way a file system lists its entries, there are some before and behind the directory
     * that goes on. */
    static void make()
    {
        for (size_t level = 1; level <= kLevels; level++) {
            const std::string path = chain_path("top", level);
            fs::create_directory(path);
            for (const char *name : {"/a", "/b", "/c"})
                if (level <= kUpper)
                    support::write_file(path + name, "");
        }
        for (size_t level = 1; level <= kUpper; level++) {
            const std::string path = chain_path("top", level);
            support::write_file(path + "/z", "");
            fs::create_symlink(fs::absolute("outside"), path + "/link");
        }
        support::write_file(chain_path("top", kLevels) + "/file", "");
    }

    /* Removes a tree while something fails: the result tells whether all is gone, a line of level 7
     * tells what failed, and no descriptor is lost. Then the rest is removed. A file that there is
     * no memory to look at goes all the same. */
    template <typename Remove> bool remove_with(Remove remove)
    {
        make();
        const std::set<int> before = support::descriptors();
        const int result = remove();
        EXPECT_EQ(support::descriptors_since(before), (std::vector<int>{}));
        EXPECT_EQ(result == 0, !fs::exists("top"));
        size_t said = 0;
        for (const support::log_line &one : this->log.take()) {
            said += one.level == 7 && one.text != "not enough memory for stat path" &&
                    !one.text.starts_with("unable to create ") &&
                    !one.text.ends_with(family_name<Family>("stat"));
            /* what is known to hold something is not tried */
            EXPECT_FALSE(one.text.starts_with("unable to remove directory")) << one;
        }
        EXPECT_EQ(said > 0, result != 0);
        if (result != 0)
            remove_the_rest();
        return result == 0;
    }

    void remove_the_rest()
    {
        EXPECT_EQ(Family::dir_remove_recursive("top"), 0);
        this->log.clear();
        EXPECT_EQ(this->paths_here(), (std::set<std::string>{"outside", "outside/file"}));
    }
};

TYPED_TEST_SUITE(VeldirRemoveDeep, support::path_families, support::path_family_name);

/* With no more descriptors than it says it takes. */
TYPED_TEST(VeldirRemoveDeep, AllGoes)
{
    this->make();
    const std::set<int> before = support::descriptors();
    {
        const descriptor_limit limit(static_cast<rlim_t>(*before.rbegin()) + 1 + 65);
        EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
    }
    EXPECT_EQ(support::descriptors_since(before), (std::vector<int>{}));
    std::vector<std::string> files = {chain_path("top", this->kLevels) + "/file"};
    for (size_t level = 1; level <= this->kUpper; level++)
        for (const char *name : {"/a", "/b", "/c", "/z"})
            files.push_back(chain_path("top", level) + name);
    EXPECT_EQ(this->take_but_announcements(files), (lines{}));
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{"outside", "outside/file"}));
}

/* A chain beside the first begins in a directory whose names are known from the way down: behind the
 * first in one of two orders in which a file system lists them. */
TYPED_TEST(VeldirRemoveDeep, SecondChainBesideTheFirst)
{
    const std::string fork = chain_path("top", 5);
    fs::create_directories(fork);
    for (const char *beside : {"/e", "/d", "/f"}) {
        std::string path = fork;
        for (size_t level = 0; level < this->kLevels; level++) {
            path += level == 0 ? beside : "/d";
            fs::create_directory(path);
        }
        support::write_file(path + "/file", "");
    }
    const std::set<int> before = support::descriptors();
    EXPECT_EQ(TypeParam::dir_remove_recursive("top"), 0);
    EXPECT_EQ(support::descriptors_since(before), (std::vector<int>{}));
    this->log.clear();
    EXPECT_EQ(this->paths_here(), (std::set<std::string>{"outside", "outside/file"}));
}

/* One file stays at each of the upper levels, and nothing but those and the chain down to them. */
TYPED_TEST(VeldirRemoveDeep, FilesThatStay)
{
    this->make();
    {
        const dir_watch calls({{"unlink", "z", EACCES}});
        EXPECT_EQ(TypeParam::dir_remove_recursive("top"), -1);
    }
    std::set<std::string> left = {"outside", "outside/file"};
    std::set<std::string> texts;
    for (size_t level = 1; level <= this->kUpper; level++) {
        const std::string path = chain_path("top", level);
        left.insert({path, path + "/z"});
        texts.insert("unable to delete file '" + path + "/z'");
    }
    EXPECT_EQ(this->paths_here(), left);
    for (const support::log_line &one : this->log.take())
        if (one.level == 7) {
            EXPECT_EQ(texts.erase(one.text), 1u) << one;
        }
    EXPECT_TRUE(texts.empty());
    this->remove_the_rest();
}

/* From some moment on, on the way down or up, nothing can be opened, or read. */
TYPED_TEST(VeldirRemoveDeep, OpeningsAndReadsFail)
{
    for (const char *call : {"opendir", "readdir"}) {
        bool completed = false;
        int passes = 0;
        for (; !completed && passes < 10000; passes += 13) {
            SCOPED_TRACE(call + std::to_string(passes));
            completed = this->remove_with([=] {
                const dir_watch calls({{call, nullptr, EIO, passes}});
                return TypeParam::dir_remove_recursive("top");
            });
        }
        EXPECT_TRUE(completed);
        EXPECT_GT(passes, 80);
    }
}

TYPED_TEST(VeldirRemoveDeep, EachAllocationFails)
{
    support::warm_log(this->log);
    bool completed = false;
    size_t number = 1;
    for (; !completed && number < 10000; number += 7)
        this->remove_with([&completed, number] {
            const malloc_watch memory(number);
            const int result = TypeParam::dir_remove_recursive("top");
            completed = memory.count() < number;
            return result;
        });
    EXPECT_TRUE(completed);
    EXPECT_GT(number, 300u);
}

/* The tree is moved away while the walk is far below: it ends, and touches nothing else. */
TYPED_TEST(VeldirRemoveDeep, TreeIsMovedAway)
{
    this->make();
    fs::create_directory("elsewhere");
    support::write_file("elsewhere/a", "kept");
    bool moved = false;
    {
        dir_watch calls;
        calls.before = [&moved](const std::string &call) {
            if (!moved && call.starts_with("unlink ") && call.ends_with("file")) {
                fs::rename("top/d/d", "elsewhere/d");
                moved = true;
            }
        };
        EXPECT_EQ(TypeParam::dir_remove_recursive("top"), -1);
    }
    EXPECT_TRUE(moved);
    EXPECT_EQ(support::read_file("elsewhere/a"), "kept");
    EXPECT_TRUE(fs::exists("elsewhere/d"));
    lines taken;
    for (const support::log_line &one : this->log.take())
        if (!one.text.starts_with("vel_utf8deletefile("))
            taken.push_back(one);
    EXPECT_EQ(taken, (lines{this->line(7, "unable to open directory 'top/d', error 116"),
                            this->line(13, "unable to open directory top/d")}));
    fs::remove_all("elsewhere");
    this->remove_the_rest();
}
