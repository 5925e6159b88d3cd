#include <cerrno>
#include <filesystem>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/eachfailure.h"
#include "support/filecalls.h"
#include "support/loadresult.h"
#include "support/oom.h"
#include "support/pathfamily.h"

using support::counts;
using support::directory;
using support::dirtyerrno;
using support::files_here;
using support::kNothing;
using support::load_with;
using support::loaded;
using support::log_line;
using support::made;
using support::refusal;
using support::watch;
using lines = std::vector<log_line>;
using texts = std::vector<std::string>;

/* What the save of each family does where they differ: making way for the new backup. */
template <typename Family> struct save_facts;

template <> struct save_facts<support::byte_paths> {
    static inline const texts removal = {"unlink file.bak"};
    static inline const texts removalofnone = {"unlink file.bak"};
    static inline const lines removalfailed = {};
    static constexpr int resultwithoutbackup = -1;
};

template <> struct save_facts<support::utf8_paths> {
    static inline const texts removal = {"stat file.bak", "unlink file.bak"};
    static inline const texts removalofnone = {"stat file.bak"};
    static inline const lines removalfailed = {
        {"io/velutf8file", 7, "unable to remove file 'file.bak'"}};
    static constexpr int resultwithoutbackup = 0; /* although nothing was saved */
};

template <typename Family> class VelfileBackup : public support::path_test<Family> {
  protected:
    using facts = save_facts<Family>;

    static int save(const std::string &data)
    {
        return Family::file_data_save_with_backup("file", data.data(), data.size());
    }
    static support::load_result load()
    {
        return load_with(Family::file_data_load_with_backup, "file");
    }
    static log_line line(const std::string &text)
    {
        return support::path_test<Family>::line("file", 7, text);
    }
    static texts joined(texts first, const texts &second, const texts &third)
    {
        first.insert(first.end(), second.begin(), second.end());
        first.insert(first.end(), third.begin(), third.end());
        return first;
    }

    const log_line notdeleted = line("unable to delete the temporary file");
    const log_line notbackedup = line("unable to rename the previous file as the backup file");
    const log_line notrenamed = line("unable to rename 'file.tmp' as 'file'");
};

TYPED_TEST_SUITE(VelfileBackup, support::path_families, support::path_family_name);

/* The safe save */

TYPED_TEST(VelfileBackup, SafeSaveOfANewFile)
{
    {
        const watch calls;
        EXPECT_EQ(this->save("one"), 0);
        EXPECT_EQ(made, (texts{"fopen file.tmp wb", "fwrite 1 3", "fclose", "stat file",
                               "rename file.tmp file"}));
    }
    EXPECT_EQ(files_here(), (directory{{"file", "one"}}));
}

TYPED_TEST(VelfileBackup, SafeSaveKeepsOneVersionBefore)
{
    const texts before = {"fopen file.tmp wb", "fwrite 1 6", "fclose", "stat file"};
    const texts after = {"rename file file.bak", "rename file.tmp file"};
    ASSERT_EQ(this->save("one"), 0);
    {
        const watch calls;
        EXPECT_EQ(this->save("second"), 0);
        EXPECT_EQ(made, this->joined(before, TestFixture::facts::removalofnone, after));
    }
    EXPECT_EQ(files_here(), (directory{{"file", "second"}, {"file.bak", "one"}}));
    {
        const watch calls;
        EXPECT_EQ(this->save("third!"), 0);
        EXPECT_EQ(made, this->joined(before, TestFixture::facts::removal, after));
    }
    EXPECT_EQ(files_here(), (directory{{"file", "third!"}, {"file.bak", "second"}}));
}

TYPED_TEST(VelfileBackup, SafeSaveOverAStaleTemporaryFile)
{
    support::write_file("file", "old");
    support::write_file("file.tmp", "something longer of a crash");
    EXPECT_EQ(this->save("new"), 0);
    EXPECT_EQ(files_here(), (directory{{"file", "new"}, {"file.bak", "old"}}));
}

TYPED_TEST(VelfileBackup, BackupStaysWhenThereIsNoFile)
{
    support::write_file("file.bak", "older");
    EXPECT_EQ(this->save("new"), 0);
    EXPECT_EQ(files_here(), (directory{{"file", "new"}, {"file.bak", "older"}}));
}

/* A check that fails counts as no file: the new version goes over it, and the backup stays. */
TYPED_TEST(VelfileBackup, FailedCheckGoesOnToTheLastRename)
{
    support::write_file("file", "old");
    support::write_file("file.bak", "older");
    {
        const watch calls({{"stat", 1, EIO}});
        EXPECT_EQ(this->save("new"), 0);
    }
    EXPECT_EQ(files_here(), (directory{{"file", "new"}, {"file.bak", "older"}}));
}

/* At the start: file "old", file.bak "older"; what is saved is "data". */

enum kept_line { kNotDeleted, kNotBackedUp, kNotRenamed };

struct failure_case {
    const char *name;
    std::vector<refusal> refusals;
    std::vector<kept_line> log;
    directory files;
};

static const failure_case kFailures[] = {
    {"Create", {{"fopen", 1, EMFILE}}, {kNotDeleted}, {{"file", "old"}, {"file.bak", "older"}}},
    {"Write", {{"fwrite", 1, EMFILE}}, {}, {{"file", "old"}, {"file.bak", "older"}}},
    {"WriteAndCleanUp",
     {{"fwrite", 1, EMFILE}, {"unlink", 1, EACCES}},
     {kNotDeleted},
     {{"file", "old"}, {"file.bak", "older"}, {"file.tmp", "dat"}}},
    {"FirstRename", {{"rename", 1, EMFILE}}, {kNotBackedUp}, {{"file", "old"}}},
    {"FirstRenameAndCleanUp",
     {{"rename", 1, EMFILE}, {"unlink", 2, EACCES}},
     {kNotBackedUp, kNotDeleted},
     {{"file", "old"}, {"file.tmp", "data"}}},
    {"SecondRename", {{"rename", 2, EMFILE}}, {kNotRenamed}, {{"file.bak", "old"}}},
    {"SecondRenameAndCleanUp",
     {{"rename", 2, EMFILE}, {"unlink", 2, EACCES}},
     {kNotRenamed, kNotDeleted},
     {{"file.bak", "old"}, {"file.tmp", "data"}}},
};

TYPED_TEST(VelfileBackup, FailureLeavesACompleteVersion)
{
    const std::map<kept_line, log_line> texts = {{kNotDeleted, this->notdeleted},
                                                 {kNotBackedUp, this->notbackedup},
                                                 {kNotRenamed, this->notrenamed}};
    for (const failure_case &one : kFailures) {
        SCOPED_TRACE(one.name);
        for (const auto &[name, content] : files_here())
            unlink(name.c_str());
        support::write_file("file", "old");
        support::write_file("file.bak", "older");
        int result, error;
        {
            const watch calls(one.refusals);
            dirtyerrno = true;
            errno = 0;
            result = this->save("data");
            error = errno;
        }
        lines expected;
        for (const kept_line kept : one.log)
            expected.push_back(texts.at(kept));
        const bool nobackup = !one.log.empty() && one.log[0] == kNotBackedUp;
        EXPECT_EQ(result, nobackup ? TestFixture::facts::resultwithoutbackup : -1);
        EXPECT_EQ(error, EMFILE); /* of what made the save fail */
        EXPECT_EQ(this->log.take(), expected);
        EXPECT_EQ(files_here(), one.files);
        EXPECT_EQ(this->load(), loaded("old"));
    }
}

/* A backup that cannot be deleted is no hindrance: the rename goes over it. */
TYPED_TEST(VelfileBackup, BackupThatCannotBeDeletedIsReplaced)
{
    support::write_file("file", "old");
    support::write_file("file.bak", "older");
    {
        const watch calls({{"unlink", 1, EACCES}});
        EXPECT_EQ(this->save("new"), 0);
    }
    EXPECT_EQ(this->log.take(), TestFixture::facts::removalfailed);
    EXPECT_EQ(files_here(), (directory{{"file", "new"}, {"file.bak", "old"}}));
}

/* Nor is one that cannot be seen. */
TYPED_TEST(VelfileBackup, BackupThatCannotBeSeenIsReplaced)
{
    support::write_file("file", "old");
    support::write_file("file.bak", "older");
    {
        const watch calls({{"stat", 2, EIO}});
        EXPECT_EQ(this->save("new"), 0);
        EXPECT_EQ(counts["unlink"], TestFixture::facts::removalofnone.back() == "unlink file.bak");
    }
    EXPECT_EQ(files_here(), (directory{{"file", "new"}, {"file.bak", "old"}}));
}

/* A directory in the place of the backup can neither be deleted nor renamed over. */
TYPED_TEST(VelfileBackup, SafeSaveThatCannotMakeWay)
{
    std::filesystem::create_directories("file.bak/below");
    support::write_file("file", "old");
    EXPECT_EQ(this->save("data"), TestFixture::facts::resultwithoutbackup);
    lines expected = TestFixture::facts::removalfailed;
    expected.push_back(this->notbackedup);
    EXPECT_EQ(this->log.take(), expected);
    EXPECT_EQ(support::read_file("file"), "old");
    EXPECT_FALSE(std::filesystem::exists("file.tmp"));
}

TYPED_TEST(VelfileBackup, SafeSaveOfANewFileFailsAtItsOnlyRename)
{
    {
        const watch calls({{"rename", 1, EXDEV}});
        EXPECT_EQ(this->save("new"), -1);
    }
    EXPECT_EQ(this->log.take(), (lines{this->notrenamed}));
    EXPECT_EQ(files_here(), (directory{}));
}

TYPED_TEST(VelfileBackup, SafeSaveInAMissingDirectory)
{
    errno = 0;
    EXPECT_EQ(TypeParam::file_data_save_with_backup("none/file", "data", 4), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(this->log.take(), (lines{this->notdeleted}));
}

TYPED_TEST(VelfileBackup, FullDiskFailsASafeSave)
{
    support::write_file("file", "old");
    std::filesystem::create_symlink("/dev/full", "file.tmp");
    errno = 0;
    EXPECT_EQ(this->save("new"), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(files_here(), (directory{{"file", "old"}}));
}

TYPED_TEST(VelfileBackup, SafeSaveWithoutMemoryTouchesNothing)
{
    support::write_file("file", "old");
    support::write_file("file.tmp", "stale");
    const struct {
        size_t allocation;
        const char *text;
    } rows[] = {
        {1, "not enough memory for temporary file name"},
        {2, "not enough memory for backup file name"},
    };
    for (const auto &row : rows) {
        {
            const watch calls;
            const support::malloc_watch memory(row.allocation);
            EXPECT_EQ(this->save("new"), -1);
            EXPECT_EQ(made, (texts{}));
        }
        EXPECT_EQ(this->log.take(), (lines{this->line(row.text)}));
        EXPECT_EQ(files_here(), (directory{{"file", "old"}, {"file.tmp", "stale"}}));
    }
}

/* The load with the backup */

TYPED_TEST(VelfileBackup, BackupIsLoadedWhereThereIsNoFile)
{
    support::write_file("file.bak", "older");
    support::write_file("file.tmp", "newer, and never read");
    const watch calls;
    EXPECT_EQ(this->load(), loaded("older"));
    EXPECT_EQ(made, (texts{"fopen file rb", "fopen file.bak rb", "fseek 0 2", "ftell", "fseek 0 0",
                           "fread 1 5", "fclose"}));
}

TYPED_TEST(VelfileBackup, BackupIsLoadedWhateverKeptTheFileFromOpening)
{
    support::write_file("file", "new");
    support::write_file("file.bak", "older");
    const watch calls({{"fopen", 1, EMFILE}});
    EXPECT_EQ(this->load(), loaded("older"));
}

TYPED_TEST(VelfileBackup, PlainLoadKnowsNoBackup)
{
    support::write_file("file.bak", "older");
    EXPECT_EQ(load_with(TypeParam::file_data_load, "file"), kNothing);
}

TYPED_TEST(VelfileBackup, FileThatOpensIsLoadedEvenIfEmpty)
{
    support::write_file("file", "");
    support::write_file("file.bak", "older");
    EXPECT_EQ(this->load(), loaded(""));
}

TYPED_TEST(VelfileBackup, BackupThatCannotBeRead)
{
    support::write_file("file.bak", "older");
    const watch calls({{"fread", 1, EIO}});
    EXPECT_EQ(this->load(), kNothing);
    EXPECT_EQ(counts["fclose"], 1);
}

TYPED_TEST(VelfileBackup, LoadWithoutMemoryForTheNameOfTheBackup)
{
    support::write_file("file.bak", "older");
    {
        const support::malloc_watch memory(1);
        EXPECT_EQ(this->load(), kNothing);
    }
    EXPECT_EQ(this->log.take(),
              (lines{this->line("not enough memory for backup file name 'file.bak'")}));
}

template <typename Family> static bool file_life()
{
    for (const char *left : {"file", "file.tmp", "file.bak"})
        unlink(left);
    void *data = nullptr;
    size_t length = 77;
    bool completed = false;
    if (Family::file_data_save_with_backup("file", "one", 3) == 0 &&
        Family::file_data_save_with_backup("file", "second", 6) == 0 && unlink("file") == 0 &&
        Family::file_data_load_with_backup("file", &data, &length) == 0) {
        EXPECT_EQ(std::string(static_cast<char *>(data), length), "one");
        vel_free(data);
        completed = Family::file_data_save("file", "third", 5) == 0 &&
                    Family::file_data_load("file", &data, &length) == 0;
    }
    if (completed) {
        EXPECT_EQ(std::string(static_cast<char *>(data), length), "third");
        vel_free(data);
    } else {
        EXPECT_TRUE(!data || length == 3);
    }
    return completed;
}

TEST(VelfileOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(file_life<support::byte_paths>);
}

TEST(Velutf8fileOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(file_life<support::utf8_paths>);
}
