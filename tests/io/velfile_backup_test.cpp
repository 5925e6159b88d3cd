#include <cerrno>
#include <filesystem>
#include <ostream>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/filecalls.h"
#include "support/filetest.h"
#include "support/loadresult.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_malloc.h"
#include "support/rows.h"
#include "support/tempdir.h"

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

/* The safe save */

TEST_F(Velfile, SafeSaveOfANewFile)
{
    {
        const watch calls;
        EXPECT_EQ(vel_file_data_save_with_backup("file", "one", 3), 0);
        EXPECT_EQ(made, (texts{"fopen file.tmp wb", "fwrite 1 3", "fclose", "stat file",
                               "rename file.tmp file"}));
    }
    EXPECT_EQ(files_here(), (directory{{"file", "one"}}));
}

TEST_F(Velfile, SafeSaveKeepsOneVersionBefore)
{
    ASSERT_EQ(vel_file_data_save_with_backup("file", "one", 3), 0);
    {
        const watch calls;
        EXPECT_EQ(vel_file_data_save_with_backup("file", "second", 6), 0);
        EXPECT_EQ(made, (texts{"fopen file.tmp wb", "fwrite 1 6", "fclose", "stat file",
                               "unlink file.bak", "rename file file.bak", "rename file.tmp file"}));
    }
    EXPECT_EQ(files_here(), (directory{{"file", "second"}, {"file.bak", "one"}}));
    EXPECT_EQ(vel_file_data_save_with_backup("file", "third", 5), 0);
    EXPECT_EQ(files_here(), (directory{{"file", "third"}, {"file.bak", "second"}}));
}

TEST_F(Velfile, SafeSaveOverAStaleTemporaryFile)
{
    support::write_file("file", "old");
    support::write_file("file.tmp", "something longer of a crash");
    EXPECT_EQ(vel_file_data_save_with_backup("file", "new", 3), 0);
    EXPECT_EQ(files_here(), (directory{{"file", "new"}, {"file.bak", "old"}}));
}

TEST_F(Velfile, BackupStaysWhenThereIsNoFile)
{
    support::write_file("file.bak", "older");
    EXPECT_EQ(vel_file_data_save_with_backup("file", "new", 3), 0);
    EXPECT_EQ(files_here(), (directory{{"file", "new"}, {"file.bak", "older"}}));
}

/* A check that fails counts as no file: the new version goes over it, and the backup stays. */
TEST_F(Velfile, FailedCheckGoesOnToTheLastRename)
{
    support::write_file("file", "old");
    support::write_file("file.bak", "older");
    {
        const watch calls({{"stat", 1, EIO}});
        EXPECT_EQ(vel_file_data_save_with_backup("file", "new", 3), 0);
    }
    EXPECT_EQ(files_here(), (directory{{"file", "new"}, {"file.bak", "older"}}));
}

static const log_line kNotDeleted = {"io/velfile", 7, "unable to delete the temporary file"};
static const log_line kNotBackedUp = {"io/velfile", 7,
                                      "unable to rename the previous file as the backup file"};
static const log_line kNotRenamed = {"io/velfile", 7, "unable to rename 'file.tmp' as 'file'"};

struct failure_case {
    const char *name;
    std::vector<refusal> refusals;
    lines log;
    directory files;
    const char *loads; /* what the load gives afterwards; NULL for nothing */
};

static void PrintTo(const failure_case &one, std::ostream *out)
{
    *out << one.name;
}

/* At the start: file "old", file.bak "older"; what is saved is "data". */
static const failure_case kFailures[] = {
    {"Create",
     {{"fopen", 1, EMFILE}},
     {kNotDeleted},
     {{"file", "old"}, {"file.bak", "older"}},
     "old"},
    {"Write", {{"fwrite", 1, EMFILE}}, {}, {{"file", "old"}, {"file.bak", "older"}}, "old"},
    {"WriteAndCleanUp",
     {{"fwrite", 1, EMFILE}, {"unlink", 1, EACCES}},
     {kNotDeleted},
     {{"file", "old"}, {"file.bak", "older"}, {"file.tmp", "dat"}},
     "old"},
    {"FirstRename", {{"rename", 1, EMFILE}}, {kNotBackedUp}, {{"file", "old"}}, "old"},
    {"FirstRenameAndCleanUp",
     {{"rename", 1, EMFILE}, {"unlink", 2, EACCES}},
     {kNotBackedUp, kNotDeleted},
     {{"file", "old"}, {"file.tmp", "data"}},
     "old"},
    {"SecondRename", {{"rename", 2, EMFILE}}, {kNotRenamed}, {{"file.bak", "old"}}, "old"},
    {"SecondRenameAndCleanUp",
     {{"rename", 2, EMFILE}, {"unlink", 2, EACCES}},
     {kNotRenamed, kNotDeleted},
     {{"file.bak", "old"}, {"file.tmp", "data"}},
     "old"},
};

class VelfileFailure : public Velfile, public testing::WithParamInterface<failure_case> {};

TEST_P(VelfileFailure, LeavesACompleteVersion)
{
    support::write_file("file", "old");
    support::write_file("file.bak", "older");
    {
        const watch calls(GetParam().refusals);
        dirtyerrno = true;
        errno = 0;
        const int result = vel_file_data_save_with_backup("file", "data", 4);
        const int error = errno;
        EXPECT_EQ(result, -1);
        EXPECT_EQ(error, EMFILE); /* of what made the save fail */
    }
    EXPECT_EQ(log.take(), GetParam().log);
    EXPECT_EQ(files_here(), GetParam().files);
    EXPECT_EQ(load_with(vel_file_data_load_with_backup, "file"), loaded(GetParam().loads));
}

INSTANTIATE_TEST_SUITE_P(Rows, VelfileFailure, testing::ValuesIn(kFailures), support::row_name());

/* The result of deleting the backup is not looked at: the rename goes over it. */
TEST_F(Velfile, BackupThatCannotBeDeletedIsReplaced)
{
    support::write_file("file", "old");
    support::write_file("file.bak", "older");
    {
        const watch calls({{"unlink", 1, EACCES}});
        EXPECT_EQ(vel_file_data_save_with_backup("file", "new", 3), 0);
    }
    EXPECT_EQ(files_here(), (directory{{"file", "new"}, {"file.bak", "old"}}));
}

TEST_F(Velfile, SafeSaveOfANewFileFailsAtItsOnlyRename)
{
    {
        const watch calls({{"rename", 1, EXDEV}});
        EXPECT_EQ(vel_file_data_save_with_backup("file", "new", 3), -1);
    }
    EXPECT_EQ(log.take(), (lines{kNotRenamed}));
    EXPECT_EQ(files_here(), (directory{}));
}

TEST_F(Velfile, SafeSaveInAMissingDirectory)
{
    errno = 0;
    EXPECT_EQ(vel_file_data_save_with_backup("none/file", "data", 4), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(log.take(), (lines{kNotDeleted}));
}

TEST_F(Velfile, SafeSaveOverADirectoryNamesBothFiles)
{
    std::filesystem::create_directories("file.bak/below");
    support::write_file("file", "old");
    EXPECT_EQ(vel_file_data_save_with_backup("file", "data", 4), -1);
    EXPECT_EQ(log.take(), (lines{kNotBackedUp}));
    EXPECT_EQ(support::read_file("file"), "old");
    EXPECT_FALSE(std::filesystem::exists("file.tmp"));
}

TEST_F(Velfile, FullDiskFailsASafeSave)
{
    support::write_file("file", "old");
    std::filesystem::create_symlink("/dev/full", "file.tmp");
    errno = 0;
    EXPECT_EQ(vel_file_data_save_with_backup("file", "new", 3), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(files_here(), (directory{{"file", "old"}}));
}

TEST_F(Velfile, SafeSaveWithoutMemoryTouchesNothing)
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
            EXPECT_EQ(vel_file_data_save_with_backup("file", "new", 3), -1);
            EXPECT_EQ(made, (texts{}));
        }
        EXPECT_EQ(log.take(), (lines{{"io/velfile", 7, row.text}}));
        EXPECT_EQ(files_here(), (directory{{"file", "old"}, {"file.tmp", "stale"}}));
    }
}

/* The load with the backup */

TEST_F(Velfile, BackupIsLoadedWhereThereIsNoFile)
{
    support::write_file("file.bak", "older");
    support::write_file("file.tmp", "newer, and never read");
    const watch calls;
    EXPECT_EQ(load_with(vel_file_data_load_with_backup, "file"), loaded("older"));
    EXPECT_EQ(made, (texts{"fopen file rb", "fopen file.bak rb", "fseek 0 2", "ftell", "fseek 0 0",
                           "fread 1 5", "fclose"}));
}

TEST_F(Velfile, BackupIsLoadedWhateverKeptTheFileFromOpening)
{
    support::write_file("file", "new");
    support::write_file("file.bak", "older");
    const watch calls({{"fopen", 1, EMFILE}});
    EXPECT_EQ(load_with(vel_file_data_load_with_backup, "file"), loaded("older"));
}

TEST_F(Velfile, PlainLoadKnowsNoBackup)
{
    support::write_file("file.bak", "older");
    EXPECT_EQ(load_with(vel_file_data_load, "file"), kNothing);
}

TEST_F(Velfile, FileThatOpensIsLoadedEvenIfEmpty)
{
    support::write_file("file", "");
    support::write_file("file.bak", "older");
    EXPECT_EQ(load_with(vel_file_data_load_with_backup, "file"), loaded(""));
}

TEST_F(Velfile, BackupThatCannotBeRead)
{
    support::write_file("file.bak", "older");
    const watch calls({{"fread", 1, EIO}});
    EXPECT_EQ(load_with(vel_file_data_load_with_backup, "file"), kNothing);
    EXPECT_EQ(counts["fclose"], 1);
}

TEST_F(Velfile, LoadWithoutMemoryForTheNameOfTheBackup)
{
    support::write_file("file.bak", "older");
    {
        const support::malloc_watch memory(1);
        EXPECT_EQ(load_with(vel_file_data_load_with_backup, "file"), kNothing);
    }
    EXPECT_EQ(log.take(),
              (lines{{"io/velfile", 7, "not enough memory for backup file name 'file.bak'"}}));
}

static bool file_life()
{
    for (const char *left : {"file", "file.tmp", "file.bak"})
        unlink(left);
    void *data = nullptr;
    size_t length = 77;
    bool completed = false;
    if (vel_file_data_save_with_backup("file", "one", 3) == 0 &&
        vel_file_data_save_with_backup("file", "second", 6) == 0 && unlink("file") == 0 &&
        vel_file_data_load_with_backup("file", &data, &length) == 0) {
        EXPECT_EQ(std::string(static_cast<char *>(data), length), "one");
        vel_free(data);
        completed = vel_file_data_save("file", "third", 5) == 0 &&
                    vel_file_data_load("file", &data, &length) == 0;
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
    support::vel_oom_drive(file_life);
}
