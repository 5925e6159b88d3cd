#include <vellib/velgetopt.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velerror.h>

#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/optiontest.h"
#include "support/rows.h"
#include "support/stdstreams.h"

using support::asserts;
using support::kUsageHead;
using support::log_line;
using support::usage_text;

using log_lines = std::vector<log_line>;

static const std::string kIndent(30, ' ');

class VelgetoptUsage : public support::option_test {
  protected:
    void TearDown() override
    {
        option_test::TearDown();
        EXPECT_EQ(log.take(), (log_lines{}));
    }

    static vel_error_t take_word(const char *, void *)
    {
        return VEL_ERROR_NONE;
    }

    void declare_archiver();

    /* The usage as far as it comes to a stream that refuses any piece with this text in it. */
    std::string usage_refusing(const char *piece);

    support::log_capture log;
    int flag = 0;
    const char *string = nullptr;
};

/* ---- whole texts ---- */

/* Declares the options of an archiver, with names and texts of many lengths. */
void VelgetoptUsage::declare_archiver()
{
    vel_getopt_set_synopsis(options, "usage: pack [OPTIONS] [--] ARCHIVE [FILE]...");
    vel_getopt_set_footer(options, "\nWithout FILE the names come from the standard input.\n"
                                   "Exit status: 0 if all went well, 1 otherwise.\n");
    vel_getopt_flag_set(options, "create", 'c', &flag, "Create a new archive.");
    vel_getopt_flag_set(
        options, "extract", 'x', &flag,
        "Extract FILEs, or all that the archive holds, below the current directory.");
    vel_getopt_const_string(options, "directory", 'C', &string, "path",
                            "Change to this directory before anything else is done.");
    vel_getopt_int(
        options, "compression-level", 0, &flag, "1..9",
        "How hard to try: 1 is fast, 9 is small. The default is 6, which is a good choice "
        "for nearly everything.");
    vel_getopt_string_callback(
        options, "exclude", 'X', "pattern",
        "Pass over names that match the pattern. Can be given several times; "
        "a name is passed over if any of the patterns matches.",
        take_word, nullptr);
    vel_getopt_int(options, nullptr, 'b', &flag, "blocks",
                   "Size of a record, in blocks of 512 bytes.");
    vel_getopt_flag_set(options, "no-same-permissions-or-owner", 0, &flag,
                        "Leave permissions and owners to the system.");
    vel_getopt_flag_set(options, nullptr, 'v', &flag, "Tell more.");
    vel_getopt_help(options, "help", 'h');
}

static const char kArchiver[] =
    "usage: pack [OPTIONS] [--] ARCHIVE [FILE]...\n"
    "OPTIONS:\n"
    " -c, --create                 Create a new archive.\n"
    " -x, --extract                Extract FILEs, or all that the archive holds,\n"
    "                              below the current directory.\n"
    " -C, --directory=path         Change to this directory before anything else is\n"
    "                              done.\n"
    " --compression-level=1..9     How hard to try: 1 is fast, 9 is small. The\n"
    "                              default is 6, which is a good choice for nearly\n"
    "                              everything.\n"
    " -X, --exclude=pattern        Pass over names that match the pattern. Can be\n"
    "                              given several times; a name is passed over if\n"
    "                              any of the patterns matches.\n"
    " -b=blocks                    Size of a record, in blocks of 512 bytes.\n"
    " --no-same-permissions-or-owner\n"
    "                              Leave permissions and owners to the system.\n"
    " -v                           Tell more.\n"
    " -h, --help                   Show help.\n"
    "\n"
    "Without FILE the names come from the standard input.\n"
    "Exit status: 0 if all went well, 1 otherwise.\n";

TEST_F(VelgetoptUsage, Archiver)
{
    declare_archiver();
    EXPECT_EQ(usage_text(options), kArchiver);
}

TEST_F(VelgetoptUsage, StandardStreams)
{
    declare_archiver();
    {
        support::stream_capture out(stdout);
        support::stream_capture err(stderr);
        EXPECT_EQ(vel_getopt_usage_stdout(options), 0);
        EXPECT_EQ(out.text(), kArchiver);
        EXPECT_EQ(err.text(), "");
    }
    support::stream_capture out(stdout);
    support::stream_capture err(stderr);
    EXPECT_EQ(vel_getopt_usage_stderr(options), 0);
    EXPECT_EQ(err.text(), kArchiver);
    EXPECT_EQ(out.text(), "");
}

/* The text of an action that prints to the standard output, which is a terminal of 40 columns. */
static std::string on_narrow_terminal(size_t length, const std::function<void()> &action)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    EXPECT_EQ(grantpt(master), 0);
    EXPECT_EQ(unlockpt(master), 0);
    const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
    EXPECT_GE(slave, 0);
    const winsize size = {10, 40, 0, 0};
    EXPECT_EQ(ioctl(slave, TIOCSWINSZ, &size), 0);
    termios settings;
    EXPECT_EQ(tcgetattr(slave, &settings), 0);
    cfmakeraw(&settings);
    EXPECT_EQ(tcsetattr(slave, TCSANOW, &settings), 0);

    fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    dup2(slave, STDOUT_FILENO);
    action();
    fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);

    std::string text(length, '\0');
    size_t got = 0;
    while (got < length) {
        pollfd ready = {master, POLLIN, 0};
        const ssize_t count =
            poll(&ready, 1, 10000) != 1 ? 0 : read(master, text.data() + got, length - got);
        if (count <= 0)
            break;
        got += static_cast<size_t>(count);
    }
    int more = 0;
    EXPECT_EQ(ioctl(master, FIONREAD, &more), 0);
    EXPECT_EQ(more, 0);
    close(slave);
    close(master);
    return text.substr(0, got);
}

TEST_F(VelgetoptUsage, LocaleAndTerminalChangeNothing)
{
    declare_archiver();
    setenv("COLUMNS", "40", 1);
    for (const char *locale : {"C", "C.UTF-8"}) {
        ASSERT_NE(setlocale(LC_ALL, locale), nullptr);
        EXPECT_EQ(usage_text(options), kArchiver) << locale;
        EXPECT_EQ(on_narrow_terminal(strlen(kArchiver),
                                     [&] { EXPECT_EQ(vel_getopt_usage_stdout(options), 0); }),
                  kArchiver)
            << locale;
    }
    setlocale(LC_ALL, "C");
    unsetenv("COLUMNS");
}

/* ---- synopsis and footer ---- */

TEST_F(VelgetoptUsage, NothingDeclared)
{
    EXPECT_EQ(usage_text(options), kUsageHead);
}

TEST_F(VelgetoptUsage, SynopsisAndFooterAreCopied)
{
    char synopsis[] = "first";
    char footer[] = "last, %s without a line feed";
    EXPECT_EQ(vel_getopt_set_synopsis(options, synopsis), 0);
    EXPECT_EQ(vel_getopt_set_footer(options, footer), 0);
    synopsis[0] = footer[0] = '?';
    EXPECT_EQ(usage_text(options), "first\nOPTIONS:\nlast, %s without a line feed");
}

TEST_F(VelgetoptUsage, SynopsisAndFooterAreReplaced)
{
    for (const char *text : {"a", "b%d\n", ""}) {
        EXPECT_EQ(vel_getopt_set_synopsis(options, text), 0);
        EXPECT_EQ(vel_getopt_set_footer(options, text), 0);
        EXPECT_EQ(usage_text(options), std::string(text) + "\nOPTIONS:\n" + text);
    }
}

TEST_F(VelgetoptUsage, NullClearsSynopsisAndFooter)
{
    EXPECT_EQ(vel_getopt_set_synopsis(options, nullptr), 0);
    EXPECT_EQ(vel_getopt_set_footer(options, nullptr), 0);
    EXPECT_EQ(usage_text(options), kUsageHead);

    vel_getopt_set_synopsis(options, "x");
    vel_getopt_set_footer(options, "x");
    EXPECT_EQ(vel_getopt_set_synopsis(options, nullptr), 0);
    EXPECT_EQ(vel_getopt_set_footer(options, nullptr), 0);
    EXPECT_EQ(usage_text(options), kUsageHead);
}

/* ---- the names of an option ---- */

struct name_case {
    const char *name;
    const char *longopt;
    int shortopt;
    const char *optionname; /* or NULL for a flag */
    std::string text;       /* up to the description, which is "D" */
};

static const name_case kNameCases[] = {
    {"ShortFlag", nullptr, 'a', nullptr, " -a                           "},
    {"LongFlag", "all", 0, nullptr, " --all                        "},
    {"BothFlag", "all", 'a', nullptr, " -a, --all                    "},
    {"ShortWithName", nullptr, 'a', "x", " -a=x                         "},
    {"LongWithName", "all", 0, "x", " --all=x                      "},
    {"BothWithName", "all", 'a', "x", " -a, --all=x                  "},
    {"EmptyName", "all", 'a', "", " -a, --all=                   "},
    {"EmptyLong", "", 0, nullptr, " --                           "},
    {"PercentShort", nullptr, '%', "%s", " -%=%s                        "},
    {"PercentLong", "%d%n", 0, nullptr, " --%d%n                       "},
    {"Of28", "aaaaaaaaaaaaaaaaaaaaaaaaa", 0, nullptr, " --aaaaaaaaaaaaaaaaaaaaaaaaa  "},
    {"Of29", "aaaaaaaaaaaaaaaaaaaaaaaaaa", 0, nullptr, " --aaaaaaaaaaaaaaaaaaaaaaaaaa "},
    {"Of30", "aaaaaaaaaaaaaaaaaaaaaaaaaaa", 0, nullptr,
     " --aaaaaaaaaaaaaaaaaaaaaaaaaaa\n" + kIndent},
    {"Of31", "aaaaaaaaaaaaaaaaaaaaaaaaaaaa", 0, nullptr,
     " --aaaaaaaaaaaaaaaaaaaaaaaaaaaa\n" + kIndent},
    {"Of29WithBoth", "aaaaaaaaaaaaa", 'a', "xxxxxxxx", " -a, --aaaaaaaaaaaaa=xxxxxxxx "},
    {"Of30WithBoth", "aaaaaaaaaaaaa", 'a', "xxxxxxxxx",
     " -a, --aaaaaaaaaaaaa=xxxxxxxxx\n" + kIndent},
};

class VelgetoptUsageName : public VelgetoptUsage, public testing::WithParamInterface<name_case> {};

TEST_P(VelgetoptUsageName, Text)
{
    const name_case &row = GetParam();
    if (row.optionname)
        ASSERT_EQ(vel_getopt_const_string(options, row.longopt, row.shortopt, &string,
                                          row.optionname, "D"),
                  0);
    else
        ASSERT_EQ(vel_getopt_flag_set(options, row.longopt, row.shortopt, &flag, "D"), 0);
    EXPECT_EQ(usage_text(options), kUsageHead + row.text + "D\n");
}

INSTANTIATE_TEST_SUITE_P(All, VelgetoptUsageName, testing::ValuesIn(kNameCases),
                         support::row_name());

TEST_F(VelgetoptUsage, TextOfNameThatIsFarTooLong)
{
    const std::string name(200, 'n');
    ASSERT_EQ(vel_getopt_flag_set(options, name.c_str(), 'n', &flag, "D"), 0);
    EXPECT_EQ(usage_text(options), kUsageHead + " -n, --" + name + "\n" + kIndent + "D\n");
}

/* ---- the wrapping of a description ---- */

static std::string letters(size_t count, char letter = 'x')
{
    return std::string(count, letter);
}

struct wrap_case {
    const char *name;
    std::string description;
    std::vector<std::string> lines;
};

static const wrap_case kWrapCases[] = {
    {"Empty", "", {""}},
    {"OneLetter", "x", {"x"}},
    {"Of48", letters(48), {letters(48)}},
    {"Of49", letters(49), {letters(49)}},
    {"Of50", letters(50), {letters(49), "x"}},
    {"Of98", letters(98), {letters(49), letters(49)}},
    {"Of120", letters(120), {letters(49), letters(49), letters(22)}},
    {"Of48WithSpace", letters(40) + " " + letters(7), {letters(40) + " " + letters(7)}},
    {"Of49WithSpaceIsCutAtIt", letters(40) + " " + letters(8), {letters(40), letters(8)}},
    {"Of50WithSpace", letters(40) + " " + letters(9), {letters(40), letters(9)}},
    {"SpaceIsCharacter49", letters(48) + " " + letters(3), {letters(48), letters(3)}},
    {"SpaceIsCharacter50", letters(49) + " " + letters(3), {letters(49), letters(3)}},
    {"LastSpaceIsTaken", "a b c d " + letters(45), {"a b c d", letters(45)}},
    {"SpaceInFrontOfLongWord", " " + letters(49), {"", letters(49)}},
    {"SpaceInFront", " a", {" a"}},
    {"SpaceBehind", "a ", {"a "}},
    {"SpaceBehindAt49", letters(48) + " ", {letters(48), ""}},
    {"SpaceBehindAt50", letters(49) + " ", {letters(49), ""}},
    {"OneSpaceIsSkipped", letters(30) + "  " + letters(30), {letters(30) + " ", letters(30)}},
    {"OneOfManySpacesIsSkipped", letters(49) + "   y", {letters(49), "  y"}},
    {"SpacesAlone", letters(60, ' '), {letters(48, ' '), letters(11, ' ')}},
    {"TabIsNoSpace",
     letters(30) + "\t" + letters(30),
     {letters(30) + "\t" + letters(18), letters(12)}},
    {"PercentSigns", "100%s of %d %n", {"100%s of %d %n"}},
    {"LineFeedIsCharacter", "a\nb", {"a\nb"}},
    {"BytesAreCounted", letters(47) + "\xc3\xa9\xc3\xa9", {letters(47) + "\xc3\xa9", "\xc3\xa9"}},
};

class VelgetoptUsageWrap : public VelgetoptUsage, public testing::WithParamInterface<wrap_case> {};

TEST_P(VelgetoptUsageWrap, Lines)
{
    const wrap_case &row = GetParam();
    ASSERT_EQ(vel_getopt_flag_set(options, nullptr, 'a', &flag, row.description.c_str()), 0);
    std::string expected = kUsageHead + " -a";
    size_t column = strlen(" -a");
    for (const std::string &line : row.lines) {
        expected += std::string(30 - column, ' ') + line + "\n";
        column = 0;
    }
    EXPECT_EQ(usage_text(options), expected);
}

INSTANTIATE_TEST_SUITE_P(All, VelgetoptUsageWrap, testing::ValuesIn(kWrapCases),
                         support::row_name());

/* ---- a stream that cannot be written to ---- */

struct refusing_stream {
    const char *refused;
    std::string written = {};

    static ssize_t write(void *cookie, const char *buffer, size_t size)
    {
        auto *stream = static_cast<refusing_stream *>(cookie);
        const std::string_view piece(buffer, size);
        if (piece.find(stream->refused) != std::string_view::npos) {
            errno = ENOSPC;
            return 0;
        }
        stream->written += piece;
        return static_cast<ssize_t>(size);
    }
};

std::string VelgetoptUsage::usage_refusing(const char *piece)
{
    refusing_stream refusing = {piece};
    FILE *out = fopencookie(&refusing, "w", {nullptr, refusing_stream::write, nullptr, nullptr});
    EXPECT_NE(out, nullptr);
    setvbuf(out, nullptr, _IONBF, 0);
    EXPECT_EQ(vel_getopt_usage(options, out), 0);
    fclose(out);
    EXPECT_EQ(log.take(), (log_lines{{"util/velgetopt", 6, "unable to output usage"}}));
    return refusing.written;
}

TEST_F(VelgetoptUsage, FailureEndsTheListOfOptions)
{
    ASSERT_EQ(vel_getopt_flag_set(options, "alpha", 0, &flag, "One."), 0);
    ASSERT_EQ(vel_getopt_flag_set(options, "beta", 'b', &flag, "Two."), 0);
    ASSERT_EQ(vel_getopt_flag_set(options, "gamma", 0, &flag, "Three."), 0);
    vel_getopt_set_footer(options, "The end.");

    EXPECT_EQ(usage_refusing("b"),
              kUsageHead + " --alpha                      One.\n" + "The end.");
}

TEST_F(VelgetoptUsage, FailureOfArgumentNameEndsTheListOfOptions)
{
    int number = 0;
    ASSERT_EQ(vel_getopt_int(options, "beta", 0, &number, "count", "Two."), 0);
    ASSERT_EQ(vel_getopt_flag_set(options, "gamma", 0, &flag, "Three."), 0);
    vel_getopt_set_footer(options, "The end.");

    const std::string written = usage_refusing("count");
    EXPECT_EQ(written.find("Three."), std::string::npos);
    EXPECT_NE(written.find("The end."), std::string::npos);
}

TEST_F(VelgetoptUsage, FullDevice)
{
    ASSERT_EQ(vel_getopt_flag_set(options, "alpha", 0, &flag, "One."), 0);
    ASSERT_EQ(vel_getopt_flag_set(options, "beta", 0, &flag, "Two."), 0);
    FILE *out = fopen("/dev/full", "w");
    ASSERT_NE(out, nullptr);
    setvbuf(out, nullptr, _IONBF, 0);
    EXPECT_EQ(vel_getopt_usage(options, out), 0);
    fclose(out);
    EXPECT_EQ(log.take(), (log_lines{{"util/velgetopt", 6, "unable to output usage"}}));
}

/* ---- assertions ---- */

class VelgetoptUsageDeathTest : public VelgetoptUsage {};

TEST_F(VelgetoptUsageDeathTest, ArgumentsAreAsserted)
{
    EXPECT_DEATH(vel_getopt_usage(nullptr, nullptr),
                 asserts("velgetopt != NULL", "vel_getopt_usage"));
    EXPECT_DEATH(vel_getopt_usage(options, nullptr), asserts("out != NULL", "vel_getopt_usage"));
    EXPECT_DEATH(vel_getopt_usage_stdout(nullptr), asserts("velgetopt != NULL"));
    EXPECT_DEATH(vel_getopt_usage_stderr(nullptr), asserts("velgetopt != NULL"));
}

TEST_F(VelgetoptUsageDeathTest, OptionHasSomeName)
{
    ASSERT_EQ(vel_getopt_flag_set(options, nullptr, 0, &flag, "Nobody can give it."), 0);
    EXPECT_DEATH(usage_text(options), asserts("longopt != NULL"));
}
