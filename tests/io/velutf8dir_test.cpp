#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/dircalls.h"
#include "support/eachfailure.h"
#include "support/normaltest.h"
#include "support/oom.h"
#include "support/pathfamily.h"

namespace fs = std::filesystem;
using support::dir_watch;
using support::malloc_watch;
using lines = std::vector<support::log_line>;
using texts = std::vector<std::string>;

/* What a UTF-8 handle does with names; all else is in veldir_test. */
class Velutf8dir : public support::path_test<support::utf8_paths> {
  protected:
    Velutf8dir() : path_test(support::memory_files())
    {
    }

    struct destroy {
        void operator()(velutf8dir *dir) const
        {
            vel_utf8dir_destroy(dir);
        }
    };
    using handle = std::unique_ptr<velutf8dir, destroy>;

    /* A handle on the one entry of a directory that is made for it. */
    handle on_entry(const std::string &name, const std::string &content = "")
    {
        fs::create_directory("directory");
        support::write_file("directory/" + name, content);
        handle dir(vel_utf8dir_open("directory"));
        EXPECT_NE(dir, nullptr);
        while (dir && vel_utf8dir_next(dir.get()) == 0)
            if (vel_utf8dir_is_directory(dir.get()) == 0)
                return dir;
        ADD_FAILURE() << name << " is not there";
        return nullptr;
    }

    static support::log_line line(int level, const std::string &text)
    {
        return {"io/velutf8dir", level, text};
    }
    const lines grows = {line(7, "unable to convert NFD string to NFC"),
                         line(7, "not enough memory to convert the filename to NFC")};
};

static const char *const kGrowing = "\xE0\xA5\x98"; /* U+0958 becomes two characters */
static const char *const kDecomposed = "e\xCC\x81";
static const char *const kComposed = "\xC3\xA9";

struct nfc_case {
    const char *name;
    std::string stored;
    std::string fetched;
};

static const nfc_case kNfcCases[] = {
    {"Ascii", "name", "name"},
    {"Latin", kDecomposed, kComposed},
    {"LatinComposed", kComposed, kComposed},
    {"Hangul", "\xE1\x84\x80\xE1\x85\xA1\xE1\x86\xA8", "\xEA\xB0\x81"},
    {"MarksInOrder", "a\xCC\x82\xCC\xA3", "\xE1\xBA\xAD"},
    {"LineFeed", "a\ne\xCC\x81", "a\n\xC3\xA9"},
    {"Longest", std::string(252, 'x') + kDecomposed, std::string(252, 'x') + kComposed},
    {"NotUtf8", "e\xCC\x81\xFF", "e\xCC\x81\xFF"},
    {"Surrogate", "e\xCC\x81\xED\xA0\x80", "e\xCC\x81\xED\xA0\x80"},
    {"CutOff", "e\xCC\x81\xE1\x84", "e\xCC\x81\xE1\x84"},
};

TEST_F(Velutf8dir, NamesAreComposed)
{
    for (const nfc_case &one : kNfcCases) {
        SCOPED_TRACE(one.name);
        auto dir = on_entry(one.stored, "12345");
        ASSERT_NE(dir, nullptr);
        const char *name = vel_utf8dir_fetch_name(dir.get());
        EXPECT_EQ(name, one.fetched);
        EXPECT_EQ(vel_utf8dir_fetch_name(dir.get()), name);
        char *copy = vel_utf8dir_copy_name(dir.get());
        EXPECT_EQ(copy, one.fetched);
        EXPECT_NE(copy, name);
        vel_free(copy);
        EXPECT_EQ(vel_utf8dir_get_size(dir.get()), 5);
        dir.reset();
        EXPECT_EQ(vel_utf8dir_remove_recursive("directory"), 0);
        log.clear();
    }
}

/* The platform is asked about the name as it is stored. */
TEST_F(Velutf8dir, EntryIsLookedAtByItsStoredName)
{
    fs::create_directories(std::string("directory/") + kDecomposed);
    fs::create_symlink(".", "directory/i\xCC\x88");
    std::map<std::string, std::string> expected = {
        {kComposed, std::string("lstat directory/") + kDecomposed},
        {"\xC3\xAF", "lstat directory/i\xCC\x88"}};
    const handle dir(vel_utf8dir_open("directory"));
    ASSERT_NE(dir, nullptr);
    while (vel_utf8dir_next(dir.get()) == 0) {
        const std::string name = vel_utf8dir_fetch_name(dir.get());
        if (name[0] == '.')
            continue;
        const dir_watch calls;
        EXPECT_EQ(vel_utf8dir_is_directory(dir.get()), 1);
        EXPECT_EQ(vel_utf8dir_is_symlink(dir.get()), name != kComposed);
        ASSERT_FALSE(calls.made.empty());
        EXPECT_EQ(calls.made[0], expected[name]);
        expected.erase(name);
    }
    EXPECT_TRUE(expected.empty());
}

/* On a file system that tells the forms apart they are two entries under one name. */
TEST_F(Velutf8dir, BothFormsInOneDirectory)
{
    support::write_file(kDecomposed, "decomposed");
    support::write_file(kComposed, "both");
    std::multiset<int64_t> sizes;
    const handle dir(vel_utf8dir_open(nullptr));
    ASSERT_NE(dir, nullptr);
    while (vel_utf8dir_next(dir.get()) == 0)
        if (strcmp(vel_utf8dir_fetch_name(dir.get()), kComposed) == 0)
            sizes.insert(vel_utf8dir_get_size(dir.get()));
    EXPECT_EQ(sizes, (std::multiset<int64_t>{4, 10}));
}

/* Conversion is made when it is asked for, once an entry, in a buffer as long as the stored name. */

TEST_F(Velutf8dir, WalkWithoutNamesConvertsNothing)
{
    for (int i = 0; i < 10; i++)
        support::write_file(kDecomposed + std::to_string(i), "");
    const handle dir(vel_utf8dir_open("."));
    ASSERT_NE(dir, nullptr);
    const malloc_watch memory;
    int entries = 0;
    while (vel_utf8dir_next(dir.get()) == 0)
        entries++;
    EXPECT_EQ(entries, 12);
    EXPECT_EQ(memory.count(), 0u);
}

TEST_F(Velutf8dir, OneConversionAnEntry)
{
    const auto dir = on_entry(kDecomposed);
    ASSERT_NE(dir, nullptr);
    const malloc_watch memory;
    EXPECT_STREQ(vel_utf8dir_fetch_name(dir.get()), kComposed);
    EXPECT_EQ(memory.sizes(), (std::vector<size_t>{4}));
    EXPECT_STREQ(vel_utf8dir_fetch_name(dir.get()), kComposed);
    EXPECT_EQ(memory.count(), 1u);
    vel_free(vel_utf8dir_copy_name(dir.get()));
    EXPECT_EQ(memory.sizes(), (std::vector<size_t>{4, 3}));
    EXPECT_EQ(vel_utf8dir_next(dir.get()) > 0, false);
}

TEST_F(Velutf8dir, AsciiNameHasABufferOfItsOwn)
{
    const auto dir = on_entry("name");
    ASSERT_NE(dir, nullptr);
    const malloc_watch memory;
    EXPECT_STREQ(vel_utf8dir_fetch_name(dir.get()), "name");
    EXPECT_EQ(memory.sizes(), (std::vector<size_t>{5}));
}

TEST_F(Velutf8dir, ConversionWithoutMemory)
{
    const auto dir = on_entry(kDecomposed);
    ASSERT_NE(dir, nullptr);
    support::warm_log(log);
    const lines nomemory = {line(7, "not enough memory for NFC string buffer (3 bytes)"),
                            line(7, "not enough memory to convert the filename to NFC")};
    for (int i = 0; i < 2; i++) {
        const malloc_watch memory(1);
        EXPECT_EQ(vel_utf8dir_fetch_name(dir.get()), nullptr);
        EXPECT_EQ(log.take(), nomemory);
    }
    {
        const malloc_watch memory(1);
        EXPECT_EQ(vel_utf8dir_copy_name(dir.get()), nullptr);
    }
    lines copied = nomemory;
    copied.push_back(line(6, "unable to fetch entry name"));
    EXPECT_EQ(log.take(), copied);
    EXPECT_EQ(vel_utf8dir_get_error(dir.get()), 0);
    EXPECT_STREQ(vel_utf8dir_fetch_name(dir.get()), kComposed);
}

/* A name that would grow cannot be fetched; all else about the entry works. */

TEST_F(Velutf8dir, GrowingName)
{
    const auto dir = on_entry(kGrowing, "12345");
    ASSERT_NE(dir, nullptr);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(vel_utf8dir_fetch_name(dir.get()), nullptr);
        EXPECT_EQ(log.take(), grows);
    }
    EXPECT_EQ(vel_utf8dir_copy_name(dir.get()), nullptr);
    lines copied = grows;
    copied.push_back(line(6, "unable to fetch entry name"));
    EXPECT_EQ(log.take(), copied);
    EXPECT_EQ(vel_utf8dir_get_error(dir.get()), 0);
    EXPECT_EQ(vel_utf8dir_is_directory(dir.get()), 0);
    EXPECT_EQ(vel_utf8dir_get_size(dir.get()), 5);
    int result;
    while ((result = vel_utf8dir_next(dir.get())) == 0)
        EXPECT_NE(vel_utf8dir_fetch_name(dir.get()), nullptr);
    EXPECT_EQ(result, -1);
}

TEST_F(Velutf8dir, RemovalGoesByStoredNames)
{
    fs::create_directories(std::string("directory/") + kDecomposed + "/" + kGrowing);
    const std::string below = std::string("directory/") + kDecomposed + "/" + kGrowing + "/";
    support::write_file(below + kDecomposed, "");
    fs::create_directory(below + kComposed);
    EXPECT_EQ(vel_utf8dir_remove_recursive("directory"), 0);
    EXPECT_EQ(log.take(), (lines{line(13, "vel_utf8deletefile(" + below + kDecomposed + ")")}));
    EXPECT_FALSE(fs::exists("directory"));
}

/* Every text of the conformance test that can be the name of a file, in one directory. */
TEST_F(Velutf8dir, ConformanceTestOnDisk)
{
    std::map<std::string, std::string> normal; /* by stored name */
    for (const support::normal_row &row : support::normal_rows())
        for (int column = 0; column < 5; column++)
            normal[row.columns[column]] = row.columns[column < 3 ? 1 : 3];
    std::multiset<std::string> expected = {".", ".."};
    size_t growing = 0, unusable = 0;
    fs::create_directory("names");
    const int at = open("names", O_RDONLY | O_DIRECTORY);
    for (const auto &[stored, composed] : normal) {
        if (stored == "." || stored == ".." || stored.find('/') != std::string::npos) {
            unusable++;
            continue;
        }
        const int file = openat(at, stored.c_str(), O_WRONLY | O_CREAT, 0666);
        ASSERT_GE(file, 0) << support::in_hex(stored);
        close(file);
        if (composed.size() > stored.size())
            growing++;
        else
            expected.insert(composed);
    }
    close(at);
    EXPECT_LT(unusable, 20u);
    EXPECT_GE(growing, 92u);

    std::multiset<std::string> found;
    size_t refused = 0;
    handle dir(vel_utf8dir_open("names"));
    ASSERT_NE(dir, nullptr);
    while (vel_utf8dir_next(dir.get()) == 0) {
        if (const char *name = vel_utf8dir_fetch_name(dir.get())) {
            found.insert(name);
            continue;
        }
        refused++;
        EXPECT_EQ(log.take(), grows);
    }
    EXPECT_EQ(refused, growing);
    EXPECT_EQ(found.size(), expected.size());
    EXPECT_TRUE(found == expected);
    dir.reset();

    EXPECT_EQ(vel_utf8dir_remove_recursive("names"), 0);
    EXPECT_FALSE(fs::exists("names"));
    log.clear();
}

static bool utf8_names_life()
{
    mkdir("directory", 0777);
    support::write_file(std::string("directory/") + kDecomposed, "");
    velutf8dir *dir = vel_utf8dir_open("directory");
    if (!dir)
        return false;
    bool completed = true;
    while (completed && vel_utf8dir_next(dir) == 0)
        completed = vel_utf8dir_fetch_name(dir) && vel_utf8dir_is_directory(dir) != -1;
    vel_utf8dir_destroy(dir);
    return completed && vel_utf8dir_remove_recursive("directory") == 0;
}

TEST(Velutf8dirNamesOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(utf8_names_life);
}
