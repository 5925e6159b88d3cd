#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_function.h"
#include "support/platform_malloc.h"
#include "support/rows.h"
#include "support/tempdir.h"

using lines = std::vector<support::log_line>;

/* How often the platform was asked, while counting. */
static bool counting;
static int lstats;
static int stats;

extern "C" int lstat(const char *path, struct stat *data) noexcept
{
    lstats += counting;
    return support::platform_function<int(const char *, struct stat *)>("lstat")(path, data);
}

extern "C" int stat(const char *path, struct stat *data) noexcept
{
    stats += counting;
    return support::platform_function<int(const char *, struct stat *)>("stat")(path, data);
}

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

class Velstat : public testing::Test {
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
        velstat = vel_stat_create();
        ASSERT_NE(velstat, nullptr);
    }
    void TearDown() override
    {
        vel_stat_destroy(velstat);
        EXPECT_EQ(log.take(), (lines{})); /* nothing of this logs */
    }

    answers ask()
    {
        return {vel_stat_is_directory(velstat), vel_stat_is_symlink(velstat),
                vel_stat_get_size(velstat)};
    }

    support::temporary_directory temporary;
    support::log_capture log;
    struct velstat *velstat = nullptr;
};

TEST_F(Velstat, FreshObjectKnowsNothing)
{
    EXPECT_EQ(ask(), kInvalid);
}

struct stat_case {
    const char *name;
    const char *path;
    int isdirectory;
    int issymlink;
    int64_t size; /* -1 where the platform decides */
    int stats;    /* how often the path is followed */
};

static void PrintTo(const stat_case &one, std::ostream *out)
{
    *out << one.name;
}

static const stat_case kStatCases[] = {
    {"File", "file", 0, 0, 10, 0},
    {"Directory", "directory", 1, 0, -1, 0},
    {"LinkToFile", "filelink", 0, 1, 4, 1},
    {"LinkToDirectory", "directorylink", 1, 1, 9, 1},
    {"LinkToLinkToDirectory", "linklink", 1, 1, 13, 1},
    {"DanglingLink", "dangling", 0, 1, 7, 1},
    {"LinkToItself", "loop", 0, 1, 4, 1},
    {"Fifo", "fifo", 0, 0, 0, 0},
    {"Device", "/dev/null", 0, 0, 0, 0},
    {"LinkWithSlashIsFollowed", "directorylink/", 1, 0, -1, 0},
};

class VelstatCase : public Velstat, public testing::WithParamInterface<stat_case> {};

TEST_P(VelstatCase, Answers)
{
    const stat_case &one = GetParam();
    counting = true;
    lstats = stats = 0;
    const int result = vel_stat_lstat(velstat, one.path);
    const answers given = ask();
    counting = false;

    EXPECT_EQ(result, 0);
    EXPECT_EQ(lstats, 1);
    EXPECT_EQ(stats, one.stats);
    const auto size = static_cast<int64_t>(one.size >= 0 ? one.size : static_cast<int64_t>([&one] {
        struct stat data = {};
        lstat(one.path, &data);
        return data.st_size;
    }()));
    EXPECT_EQ(given, (answers{one.isdirectory, one.issymlink, size}));
}

INSTANTIATE_TEST_SUITE_P(Rows, VelstatCase, testing::ValuesIn(kStatCases), support::row_name());

TEST_F(Velstat, LargeSize)
{
    ASSERT_EQ(vel_truncate("file", 5000000000), 0);
    EXPECT_EQ(vel_stat_lstat(velstat, "file"), 0);
    EXPECT_EQ(vel_stat_get_size(velstat), 5000000000);
}

TEST_F(Velstat, FailureMakesTheAnswersInvalid)
{
    EXPECT_EQ(vel_stat_lstat(velstat, "directorylink"), 0);
    errno = 0;
    EXPECT_EQ(vel_stat_lstat(velstat, "nowhere"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(ask(), kInvalid);
    EXPECT_EQ(vel_stat_lstat(velstat, "file/below"), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(ask(), kInvalid);
    EXPECT_EQ(vel_stat_lstat(velstat, ""), -1);
    EXPECT_EQ(errno, ENOENT);
}

/* One object for one path after the other. */
TEST_F(Velstat, EachLookReplacesTheOneBefore)
{
    EXPECT_EQ(vel_stat_lstat(velstat, "directorylink"), 0);
    EXPECT_EQ(ask(), (answers{1, 1, 9}));
    EXPECT_EQ(vel_stat_lstat(velstat, "file"), 0);
    EXPECT_EQ(ask(), (answers{0, 0, 10}));
    EXPECT_EQ(vel_stat_lstat(velstat, "nowhere"), -1);
    EXPECT_EQ(vel_stat_lstat(velstat, "dangling"), 0);
    EXPECT_EQ(ask(), (answers{0, 1, 7}));
}

static bool stat_life()
{
    struct velstat *velstat = vel_stat_create();
    if (!velstat)
        return false;
    EXPECT_EQ(vel_stat_lstat(velstat, "."), 0);
    EXPECT_EQ(vel_stat_is_directory(velstat), 1);
    vel_stat_destroy(velstat);
    return true;
}

TEST(VelstatOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(stat_life);
}

TEST(VelstatCreate, NoMemoryIsLogged)
{
    support::log_capture log;
    {
        const support::malloc_watch memory(1);
        EXPECT_EQ(vel_stat_create(), nullptr);
    }
    const lines taken = log.take();
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].module, "io/velstat");
    EXPECT_EQ(taken[0].level, 7);
    EXPECT_EQ(taken[0].text.rfind("not enough memory for", 0), 0u) << taken[0];
}

TEST(VelstatDeathTest, ArgumentsAreAsserted)
{
    const char *text = "velstat != NULL";
    EXPECT_DEATH(vel_stat_destroy(nullptr), support::asserts(text, "vel_stat_destroy"));
    EXPECT_DEATH(vel_stat_lstat(nullptr, nullptr), support::asserts(text, "vel_stat_lstat"));
    EXPECT_DEATH(vel_stat_is_directory(nullptr), support::asserts(text, "vel_stat_is_directory"));
    EXPECT_DEATH(vel_stat_is_symlink(nullptr), support::asserts(text, "vel_stat_is_symlink"));
    EXPECT_DEATH(vel_stat_get_size(nullptr), support::asserts(text, "vel_stat_get_size"));

    struct velstat *velstat = vel_stat_create();
    ASSERT_NE(velstat, nullptr);
    EXPECT_DEATH(vel_stat_lstat(velstat, nullptr),
                 support::asserts("path != NULL", "vel_stat_lstat"));
    vel_stat_destroy(velstat);
}
