#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/dircalls.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_malloc.h"
#include "support/tempdir.h"

namespace fs = std::filesystem;
using support::dir_watch;
using lines = std::vector<support::log_line>;

class Velwdeletefile : public testing::Test {
  protected:
    void TearDown() override
    {
        EXPECT_EQ(log.take(), (lines{}));
    }

    support::temporary_directory temporary;
    support::log_capture log;
};

struct wname_case {
    const wchar_t *wide;
    const char *utf8;
};

static const wname_case kWnameCases[] = {
    {L"file", "file"},
    {L"caf\u00E9", "caf\xC3\xA9"},
    {L"e\u0301", "e\xCC\x81"}, /* stays as it is */
    {L"\uAC01", "\xEA\xB0\x81"},
    {L"\U0001F600", "\xF0\x9F\x98\x80"},
    {L"line\nfeed", "line\nfeed"},
};

TEST_F(Velwdeletefile, DeletesTheNameInUtf8)
{
    for (const wname_case &one : kWnameCases) {
        support::write_file(one.utf8, "");
        const dir_watch calls;
        EXPECT_EQ(vel_wdeletefile(one.wide), 0) << one.utf8;
        EXPECT_EQ(calls.made, (std::vector<std::string>{std::string("unlink ") + one.utf8}));
    }
    EXPECT_TRUE(fs::is_empty("."));
}

/* The two halves of a pair are one character. */
TEST_F(Velwdeletefile, SurrogatesArePaired)
{
    support::write_file("\xF0\x9F\x98\x80", "");
    const wchar_t name[] = {0xD83D, 0xDE00, 0};
    EXPECT_EQ(vel_wdeletefile(name), 0);
    EXPECT_TRUE(fs::is_empty("."));
}

TEST_F(Velwdeletefile, LinkAndNotItsTarget)
{
    support::write_file("file", "");
    fs::create_symlink("file", "link");
    EXPECT_EQ(vel_wdeletefile(L"link"), 0);
    EXPECT_FALSE(fs::is_symlink("link"));
    EXPECT_TRUE(fs::exists("file"));
}

TEST_F(Velwdeletefile, ErrnoIsThePlatforms)
{
    fs::create_directory("directory");
    support::write_file("file", "");
    errno = 0;
    EXPECT_EQ(vel_wdeletefile(L"none"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(vel_wdeletefile(L"file/below"), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(vel_wdeletefile(L"directory"), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(vel_wdeletefile(L""), -1);
    EXPECT_EQ(errno, ENOENT);
    for (const int error : {EACCES, EBUSY, EROFS}) {
        const dir_watch calls({{"unlink", "file", error}});
        EXPECT_EQ(vel_wdeletefile(L"file"), -1);
        EXPECT_EQ(errno, error);
    }
    EXPECT_TRUE(fs::exists("file"));
}

TEST_F(Velwdeletefile, NameThatCannotBeConverted)
{
    const struct {
        wchar_t name[3];
        const char *text;
    } rows[] = {
        {{0xD83D, 0, 0},
         "end of wide character string in the middle of surrogate pairs, first surrogate 0xd83d"},
        {{'a', 0xDE00, 0},
         "unexpected occurrence of a second part of the surrogate 0xde00 without a preceeding "
         "first part"},
        {{0x110000, 0, 0}, "invalid wide character 0x00110000"},
    };
    for (const auto &row : rows) {
        const dir_watch calls;
        errno = 0;
        EXPECT_EQ(vel_wdeletefile(row.name), -1);
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_EQ(log.take(), (lines{{"adt/velwchar", 6, row.text}}));
        EXPECT_EQ(calls.made, (std::vector<std::string>{}));
    }
}

TEST_F(Velwdeletefile, WithoutMemory)
{
    support::write_file("file", "");
    errno = 0;
    int result, error;
    {
        const support::malloc_watch memory(1);
        result = vel_wdeletefile(L"file");
        error = errno;
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, ENOMEM);
    EXPECT_TRUE(fs::exists("file"));
    log.clear(); /* what the conversion says is its own */
}

static bool wdeletefile_life()
{
    support::write_file("file", "");
    return vel_wdeletefile(L"file") == 0;
}

TEST(VelwdeletefileOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(wdeletefile_life);
}

TEST(VelwdeletefileDeathTest, NameIsAsserted)
{
    EXPECT_DEATH(vel_wdeletefile(nullptr),
                 support::asserts("wfilename != NULL", "vel_wdeletefile"));
}
