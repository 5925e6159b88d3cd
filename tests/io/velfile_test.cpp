#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <ostream>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/fdcapture.h"
#include "support/filecalls.h"
#include "support/filetest.h"
#include "support/logcapture.h"
#include "support/rows.h"
#include "support/tempdir.h"

using support::directory;
using support::files_here;
using support::log_line;
using support::made;
using support::watch;
using support::watching;
using lines = std::vector<log_line>;
using texts = std::vector<std::string>;

/* Opening */

struct open_case {
    const char *name;
    FILE *(*open)(const char *filename);
    const char *mode;
    bool creates;
    const char *rest; /* what is left of a file that was there */
    bool reads, writes;
};

static void PrintTo(const open_case &one, std::ostream *out)
{
    *out << one.name;
}

static const open_case kOpenCases[] = {
    {"CreateBinary", vel_file_create_binary, "wb", true, "", false, true},
    {"OpenBinary", vel_file_open_binary, "rb", false, "before", true, false},
    {"UpdateBinary", vel_file_update_binary, "rb+", false, "before", true, true},
    {"CreateAscii", vel_file_create_ascii, "w", true, "", false, true},
    {"OpenAscii", vel_file_open_ascii, "r", false, "before", true, false},
    {"AppendAscii", vel_file_append_ascii, "a", true, "before", false, true},
    {"Utf8CreateBinary", vel_utf8file_create_binary, "wb", true, "", false, true},
    {"Utf8OpenBinary", vel_utf8file_open_binary, "rb", false, "before", true, false},
    {"Utf8CreateAscii", vel_utf8file_create_ascii, "w", true, "", false, true},
    {"Utf8AppendAscii", vel_utf8file_append_ascii, "a", true, "before", false, true},
};

class VelfileOpen : public Velfile, public testing::WithParamInterface<open_case> {};

TEST_P(VelfileOpen, Mode)
{
    support::write_file("file", "before");
    const watch calls;
    FILE *file = GetParam().open("file");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(made, (texts{std::string("fopen file ") + GetParam().mode}));
    EXPECT_EQ(vel_file_close(file), 0);
    watching = false;
    EXPECT_EQ(files_here(), (directory{{"file", GetParam().rest}}));
}

TEST_P(VelfileOpen, Directions)
{
    support::write_file("file", "before");
    FILE *file = GetParam().open("file");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(take(file, 6), GetParam().reads ? "before" : "");
    EXPECT_EQ(vel_file_ferror(file) != 0, !GetParam().reads);
    EXPECT_EQ(vel_file_close(file), 0);

    file = GetParam().open("file");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(vel_file_write(file, "after!", 6), GetParam().writes ? 6u : 0u);
    EXPECT_EQ(vel_file_close(file), 0);
    const bool appends = std::string(GetParam().mode) == "a";
    EXPECT_EQ(support::read_file("file"), !GetParam().writes ? "before"
                                          : appends          ? "beforeafter!"
                                                             : "after!");
}

TEST_P(VelfileOpen, MissingFile)
{
    errno = 0;
    FILE *file = GetParam().open("file");
    EXPECT_EQ(file != nullptr, GetParam().creates);
    EXPECT_EQ(errno, GetParam().creates ? 0 : ENOENT);
    if (file) {
        EXPECT_EQ(vel_file_close(file), 0);
    }
    EXPECT_EQ(files_here(), GetParam().creates ? (directory{{"file", ""}}) : (directory{}));
}

TEST_P(VelfileOpen, FailureLeavesErrno)
{
    errno = 0;
    EXPECT_EQ(GetParam().open("none/file"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    support::write_file("file", "");
    EXPECT_EQ(GetParam().open("file/below"), nullptr);
    EXPECT_EQ(errno, ENOTDIR);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelfileOpen, testing::ValuesIn(kOpenCases), support::row_name());

/* Reading and writing */

TEST_F(Velfile, ReadAndWriteCountBytes)
{
    FILE *file = open_digits();
    {
        const watch calls({}, {file});
        EXPECT_EQ(vel_file_write(file, "abc", 3), 3u);
        vel_file_seek(file, 0, SEEK_CUR);
        char buffer[20];
        EXPECT_EQ(vel_file_read(file, buffer, sizeof(buffer)), 7u);
        EXPECT_EQ(made, (texts{"fwrite 1 3", "fseek 0 1", "fread 1 20"}));
        EXPECT_EQ(std::string(buffer, 7), "3456789");
    }
    EXPECT_NE(vel_file_feof(file), 0);
    EXPECT_EQ(vel_file_ferror(file), 0);
    EXPECT_EQ(vel_file_close(file), 0);
    EXPECT_EQ(support::read_file("digits"), "abc3456789");
}

TEST_F(Velfile, FgetsReadsLines)
{
    support::write_file("lines", "one\ntwo\nlast");
    FILE *file = vel_file_open_ascii("lines");
    ASSERT_NE(file, nullptr);
    char buffer[6];
    EXPECT_EQ(vel_file_fgets(buffer, 6, file), buffer);
    EXPECT_STREQ(buffer, "one\n");
    EXPECT_EQ(vel_file_fgets(buffer, 3, file), buffer);
    EXPECT_STREQ(buffer, "tw");
    EXPECT_EQ(vel_file_fgets(buffer, 6, file), buffer);
    EXPECT_STREQ(buffer, "o\n");
    EXPECT_EQ(vel_file_feof(file), 0);
    EXPECT_EQ(vel_file_fgets(buffer, 6, file), buffer);
    EXPECT_STREQ(buffer, "last");
    EXPECT_NE(vel_file_feof(file), 0);
    EXPECT_EQ(vel_file_fgets(buffer, 6, file), nullptr);
    EXPECT_EQ(vel_file_close(file), 0);
}

TEST_F(Velfile, FprintfFormats)
{
    FILE *file = vel_file_create_ascii("text");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(vel_file_fprintf(file, "%s-%d", "number", 7), 8);
    EXPECT_EQ(vel_file_fprintf(file, "%s", ""), 0);
    EXPECT_EQ(vel_file_close(file), 0);
    EXPECT_EQ(support::read_file("text"), "number-7");

    file = vel_file_open_ascii("text");
    ASSERT_NE(file, nullptr);
    EXPECT_LT(vel_file_fprintf(file, "%d", 7), 0);
    EXPECT_NE(vel_file_ferror(file), 0);
    EXPECT_EQ(vel_file_close(file), 0);
}

TEST_F(Velfile, CloseHandsFailuresOn)
{
    FILE *file = vel_file_create_binary("/dev/full");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(vel_file_write(file, "x", 1), 1u); /* buffered */
    errno = 0;
    EXPECT_EQ(vel_file_close(file), EOF);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(Velfile, StandardStreams)
{
    EXPECT_EQ(vel_file_get_stdin(), stdin);
    EXPECT_EQ(vel_file_get_stdout(), stdout);
    EXPECT_EQ(vel_file_get_stderr(), stderr);

    support::fd_capture capture(1);
    EXPECT_EQ(vel_file_fprintf(vel_file_get_stdout(), "%s", "printed"), 7);
    EXPECT_EQ(fflush(stdout), 0);
    EXPECT_EQ(capture.stop(), "printed");
}

/* Length */

TEST_F(Velfile, LengthKeepsThePosition)
{
    FILE *file = open_digits();
    ASSERT_EQ(fseek(file, 4, SEEK_SET), 0);
    EXPECT_EQ(vel_file_get_length(file), 10);
    EXPECT_EQ(ftell(file), 4);
    EXPECT_EQ(take(file, 2), "45");
    ASSERT_EQ(truncate("digits", 5000000000), 0); /* a hole */
    EXPECT_EQ(vel_file_get_length(file), 5000000000);
    EXPECT_EQ(ftell(file), 6);
    EXPECT_EQ(vel_file_close(file), 0);
}

TEST_F(Velfile, LengthOfAnEmptyFileAndOfWhatIsBuffered)
{
    FILE *file = vel_file_create_binary("empty");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(vel_file_get_length(file), 0);
    EXPECT_EQ(vel_file_write(file, "abc", 3), 3u);
    EXPECT_EQ(vel_file_get_length(file), 3);
    EXPECT_EQ(vel_file_write(file, "d", 1), 1u);
    EXPECT_EQ(vel_file_close(file), 0);
    EXPECT_EQ(support::read_file("empty"), "abcd");
}

TEST_F(Velfile, LengthFailsWithAnyOfItsCalls)
{
    FILE *file = open_digits();
    for (const char *call : {"fgetpos", "fseek", "ftell", "fsetpos"}) {
        const watch calls({{call, 1, EIO}}, {file});
        errno = 0;
        EXPECT_EQ(vel_file_get_length(file), -1) << call;
        EXPECT_EQ(errno, EIO) << call;
    }
    EXPECT_EQ(vel_file_close(file), 0);
}

/* Whether a file is there */

struct exists_case {
    const char *name;
    int (*exists)(const char *name);
};

static void PrintTo(const exists_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelfileExists : public Velfile, public testing::WithParamInterface<exists_case> {};
INSTANTIATE_TEST_SUITE_P(Twins, VelfileExists,
                         testing::Values(exists_case{"Byte", vel_file_exists},
                                         exists_case{"Utf8", vel_utf8file_exists}),
                         support::row_name());

TEST_P(VelfileExists, Answers)
{
    support::write_file("file", "");
    std::filesystem::create_directory("directory");
    std::filesystem::create_symlink("file", "link");
    std::filesystem::create_symlink("nowhere", "dangling");
    std::filesystem::create_symlink("loop", "loop");
    EXPECT_EQ(GetParam().exists("file"), 1);
    EXPECT_EQ(GetParam().exists("directory"), 1);
    EXPECT_EQ(GetParam().exists("link"), 1);
    EXPECT_EQ(GetParam().exists("nowhere"), 0);
    EXPECT_EQ(GetParam().exists("dangling"), 0);
    EXPECT_EQ(GetParam().exists(""), 0);
    errno = 0;
    EXPECT_EQ(GetParam().exists("file/below"), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(GetParam().exists("loop"), -1);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(GetParam().exists(std::string(5000, 'a').c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(GetParam().exists(nullptr), -1); /* not asserted */
}

TEST_P(VelfileExists, AsksOnce)
{
    support::write_file("file", "");
    {
        const watch calls;
        EXPECT_EQ(GetParam().exists("file"), 1);
        EXPECT_EQ(made, (texts{"stat file"}));
    }
    const watch calls({{"stat", 1, EACCES}});
    errno = 0;
    EXPECT_EQ(GetParam().exists("file"), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(VelfileDeathTest, FilenameIsAsserted)
{
    for (const open_case &one : kOpenCases)
        EXPECT_DEATH(one.open(nullptr), support::asserts("filename != NULL")) << one.name;
}

TEST_F(VelfileDeathTest, FileIsAsserted)
{
    const char *text = "file != NULL";
    char buffer[4];
    EXPECT_DEATH(vel_file_read(nullptr, buffer, 1), support::asserts(text, "vel_file_read"));
    EXPECT_DEATH(vel_file_read(nullptr, nullptr, 1), support::asserts(text, "vel_file_read"));
    EXPECT_DEATH(vel_file_write(nullptr, buffer, 1), support::asserts(text, "vel_file_write"));
    EXPECT_DEATH(vel_file_write(nullptr, nullptr, 1), support::asserts(text, "vel_file_write"));
    EXPECT_DEATH(vel_file_fprintf(nullptr, "%d", 1), support::asserts(text, "vel_file_fprintf"));
    EXPECT_DEATH(vel_file_feof(nullptr), support::asserts(text, "vel_file_feof"));
    EXPECT_DEATH(vel_file_ferror(nullptr), support::asserts(text, "vel_file_ferror"));
    EXPECT_DEATH(vel_file_seek(nullptr, 0, 77), support::asserts(text, "vel_file_seek"));
    EXPECT_DEATH(vel_file_seek64(nullptr, 0, 77), support::asserts(text, "vel_file_seek64"));
    EXPECT_DEATH(vel_file_seek_forwards_64(nullptr, 0),
                 support::asserts(text, "vel_file_seek_forwards_64"));
    EXPECT_DEATH(vel_file_seek_backwards_64(nullptr, 0),
                 support::asserts(text, "vel_file_seek_backwards_64"));
    EXPECT_DEATH(vel_file_close(nullptr), support::asserts(text, "vel_file_close"));
    EXPECT_DEATH(vel_file_get_length(nullptr), support::asserts(text, "vel_file_get_length"));
}

TEST_F(VelfileDeathTest, BufferStreamAndFormatAreAsserted)
{
    FILE *file = open_digits();
    char buffer[4];
    const char *noformat = nullptr;
    EXPECT_DEATH(vel_file_read(file, nullptr, 0),
                 support::asserts("buffer != NULL", "vel_file_read"));
    EXPECT_DEATH(vel_file_write(file, nullptr, 0),
                 support::asserts("buffer != NULL", "vel_file_write"));
    EXPECT_DEATH(vel_file_fgets(nullptr, 4, nullptr),
                 support::asserts("buffer != NULL", "vel_file_fgets"));
    EXPECT_DEATH(vel_file_fgets(buffer, 4, nullptr),
                 support::asserts("stream != NULL", "vel_file_fgets"));
    EXPECT_DEATH(vel_file_fprintf(file, noformat, 1),
                 support::asserts("format != NULL", "vel_file_fprintf"));
    EXPECT_EQ(vel_file_close(file), 0);
}
