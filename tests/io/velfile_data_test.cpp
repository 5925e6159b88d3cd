#include <cerrno>
#include <cstdio>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/filecalls.h"
#include "support/filetest.h"
#include "support/loadresult.h"
#include "support/logcapture.h"
#include "support/platform_malloc.h"
#include "support/rows.h"
#include "support/tempdir.h"

using support::counts;
using support::directory;
using support::dirtyerrno;
using support::files_here;
using support::kNothing;
using support::load_function;
using support::load_result;
using support::load_with;
using support::loaded;
using support::log_line;
using support::made;
using support::refusal;
using support::watch;
using lines = std::vector<log_line>;
using texts = std::vector<std::string>;

struct twin_case {
    const char *name;
    const char *savename;
    const char *loadname;
    int (*save)(const char *filename, const void *data, size_t datalen);
    load_function load;
};

static void PrintTo(const twin_case &one, std::ostream *out)
{
    *out << one.name;
}

static const twin_case kTwins[] = {
    {"Plain", "vel_file_data_save", "vel_file_data_load", vel_file_data_save, vel_file_data_load},
    {"WithBackup", "vel_file_data_save_with_backup", "vel_file_data_load_with_backup",
     vel_file_data_save_with_backup, vel_file_data_load_with_backup},
    {"Utf8Plain", "vel_utf8file_data_save", "vel_utf8file_data_load", vel_utf8file_data_save,
     vel_utf8file_data_load},
    {"Utf8WithBackup", "vel_utf8file_data_save_with_backup", "vel_utf8file_data_load_with_backup",
     vel_utf8file_data_save_with_backup, vel_utf8file_data_load_with_backup},
};

class VelfileData : public Velfile, public testing::WithParamInterface<twin_case> {
  protected:
    load_result load(const char *name)
    {
        return load_with(GetParam().load, name);
    }
    int save(const char *name, const std::string &data)
    {
        return GetParam().save(name, data.data(), data.size());
    }
};

TEST_P(VelfileData, ComesBack)
{
    std::string all;
    for (int i = 0; i < 1000 * 256; i++)
        all += static_cast<char>(i % 251);
    EXPECT_EQ(save("file", all), 0);
    EXPECT_EQ(files_here(), (directory{{"file", all}}));
    EXPECT_EQ(load("file"), loaded(all));
}

TEST_P(VelfileData, EmptyData)
{
    EXPECT_EQ(GetParam().save("file", nullptr, 0), 0);
    EXPECT_EQ(files_here(), (directory{{"file", ""}}));
    {
        const support::malloc_watch memory;
        EXPECT_EQ(load("file"), loaded(""));
        EXPECT_EQ(memory.sizes(), (std::vector<size_t>{1}));
    }
    EXPECT_EQ(GetParam().save("file", "unused", 0), 0);
    EXPECT_EQ(support::read_file("file"), "");
}

TEST_P(VelfileData, LengthNeedNotBeTaken)
{
    ASSERT_EQ(save("file", "data"), 0);
    void *data = nullptr;
    EXPECT_EQ(GetParam().load("file", &data, nullptr), 0);
    EXPECT_STREQ(static_cast<char *>(data), "data");
    vel_free(data);

    char dirt = 0;
    data = &dirt;
    EXPECT_EQ(GetParam().load("none", &data, nullptr), -1);
    EXPECT_EQ(data, nullptr);
}

TEST_P(VelfileData, ShorterDataReplacesLonger)
{
    ASSERT_EQ(save("file", "something long"), 0);
    ASSERT_EQ(save("file", "short"), 0);
    EXPECT_EQ(load("file"), loaded("short"));
}

TEST_P(VelfileData, MissingFileIsNotLogged)
{
    errno = 0;
    EXPECT_EQ(load("file"), kNothing);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(files_here(), (directory{}));
}

/* The buffer has one byte more than the file, and nothing else is allocated. */
TEST_P(VelfileData, LoadAllocatesTheFileAndANul)
{
    ASSERT_EQ(save("file", "0123456789"), 0);
    const support::malloc_watch memory;
    EXPECT_EQ(load("file"), loaded("0123456789"));
    EXPECT_EQ(memory.sizes(), (std::vector<size_t>{11}));
}

TEST_P(VelfileData, LoadWithoutMemory)
{
    ASSERT_EQ(save("file", "0123456789"), 0);
    const support::malloc_watch memory(1);
    EXPECT_EQ(load("file"), kNothing);
}

TEST_P(VelfileData, LoadSeeksReadsAndCloses)
{
    ASSERT_EQ(save("file", "0123456789"), 0);
    const watch calls;
    EXPECT_EQ(load("file"), loaded("0123456789"));
    EXPECT_EQ(made,
              (texts{"fopen file rb", "fseek 0 2", "ftell", "fseek 0 0", "fread 1 10", "fclose"}));
}

/* Whatever it is that fails after the opening: the backup is not tried, the stream is closed, and
 * errno is that of the failure. */
TEST_P(VelfileData, LoadFailsWithAnyOfItsCalls)
{
    support::write_file("file", "0123456789");
    support::write_file("file.bak", "old");
    const refusal rows[] = {
        {"fseek", 1, EIO}, {"ftell", 1, EIO}, {"fseek", 2, EIO}, {"fread", 1, EIO}};
    for (const refusal &one : rows) {
        const watch calls({one});
        dirtyerrno = true;
        errno = 0;
        const load_result result = load("file");
        const int error = errno;
        EXPECT_EQ(result, kNothing) << one.call;
        EXPECT_EQ(error, EIO) << one.call;
        EXPECT_EQ(counts["fopen"], 1);
        EXPECT_EQ(counts["fclose"], 1);
    }
}

TEST_P(VelfileData, LoadOfAStreamThatCannotBeSought)
{
    ASSERT_EQ(mkfifo("file", 0600), 0);
    FILE *keepsopen = fopen("file", "rb+");
    ASSERT_NE(keepsopen, nullptr);
    EXPECT_EQ(load("file"), kNothing);
    fclose(keepsopen);
}

/* A failure to close at the end of a save, or of a load, does not count. */
TEST_P(VelfileData, CloseIsNotLookedAt)
{
    {
        const watch calls({{"fclose", 1, EIO}});
        EXPECT_EQ(save("file", "data"), 0);
        EXPECT_EQ(counts["fclose"], 1);
    }
    EXPECT_EQ(support::read_file("file"), "data");
    const watch calls({{"fclose", 1, EIO}});
    EXPECT_EQ(load("file"), loaded("data"));
}

INSTANTIATE_TEST_SUITE_P(Twins, VelfileData, testing::ValuesIn(kTwins), support::row_name());

class VelfilePlainSave : public VelfileData {};
INSTANTIATE_TEST_SUITE_P(Twins, VelfilePlainSave, testing::Values(kTwins[0], kTwins[2]),
                         support::row_name());

TEST_P(VelfilePlainSave, CreatesWritesAndCloses)
{
    const watch calls;
    EXPECT_EQ(GetParam().save("file", "data", 4), 0);
    EXPECT_EQ(made, (texts{"fopen file wb", "fwrite 1 4", "fclose"}));
    made.clear();
    EXPECT_EQ(GetParam().save("file", "data", 0), 0);
    EXPECT_EQ(made, (texts{"fopen file wb", "fclose"}));
}

TEST_P(VelfilePlainSave, CannotCreate)
{
    errno = 0;
    EXPECT_EQ(GetParam().save("none/file", "data", 4), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_P(VelfilePlainSave, LeavesAShortFile)
{
    support::write_file("file", "before");
    {
        const watch calls({{"fwrite", 1, ENOSPC}});
        dirtyerrno = true;
        errno = 0;
        const int result = GetParam().save("file", "data", 4);
        const int error = errno;
        EXPECT_EQ(result, -1);
        EXPECT_EQ(error, ENOSPC);
        EXPECT_EQ(counts["fclose"], 1);
    }
    EXPECT_EQ(files_here(), (directory{{"file", "dat"}}));
}

/* The write itself meets the full disk, as the close is not looked at. */
TEST_P(VelfilePlainSave, FullDisk)
{
    errno = 0;
    EXPECT_EQ(GetParam().save("/dev/full", "x", 1), -1);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(VelfileDeathTest, ArgumentsAreAsserted)
{
    void *data = nullptr;
    size_t length = 0;
    for (const twin_case &one : kTwins) {
        SCOPED_TRACE(one.name);
        EXPECT_DEATH(one.save(nullptr, nullptr, 1),
                     support::asserts("filename != NULL", one.savename));
        EXPECT_DEATH(one.save("file", nullptr, 1),
                     support::asserts("data != NULL || datalen == 0", one.savename));
        EXPECT_DEATH(one.load(nullptr, &data, &length),
                     support::asserts("filename != NULL", one.loadname));
        EXPECT_DEATH(one.load("file", nullptr, &length),
                     support::asserts("dataptr != NULL", one.loadname));
    }
}
