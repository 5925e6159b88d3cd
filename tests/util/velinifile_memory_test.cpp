/* INI files without memory, and on files that cannot be read to their end. */

#include <vellib/velinifile.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/eachfailure.h"
#include "support/inimodel.h"
#include "support/oom.h"
#include "support/platform_function.h"
#include "support/tempdir.h"

using support::ini_model;
using support::log_line;

using log_lines = std::vector<log_line>;

static const char kModule[] = "util/velinifile";

/* While set, a file that is opened for reading has this text, and ends in an error. */
static const std::string *torn;
static size_t tornpos;

static ssize_t read_torn(void *, char *buffer, size_t size)
{
    if (tornpos == torn->size()) {
        errno = EIO;
        return -1;
    }
    size = std::min(size, torn->size() - tornpos);
    memcpy(buffer, torn->data() + tornpos, size);
    tornpos += size;
    return static_cast<ssize_t>(size);
}

extern "C" FILE *fopen(const char *name, const char *mode)
{
    if (torn && mode[0] == 'r') {
        tornpos = 0;
        return fopencookie(nullptr, mode, {read_torn, nullptr, nullptr, nullptr});
    }
    return support::platform_function<FILE *(const char *, const char *)>("fopen")(name, mode);
}

static std::string written(velinifile *inifile)
{
    unlink("out.ini"); /* writing over a file may wait for the disk */
    EXPECT_EQ(vel_inifile_write_file(inifile, "out.ini"), VEL_ERROR_NONE);
    return support::read_file("out.ini");
}

class VelinifileTorn : public testing::Test {
  protected:
    /* What is read of a file that breaks off behind the text. */
    std::optional<std::string> read(const std::string &text)
    {
        torn = &text;
        error_ = -1;
        velinifile *inifile = vel_inifile_create_from_file("torn.ini", &error_);
        torn = nullptr;
        if (!inifile)
            return {};
        const std::string found = written(inifile);
        vel_inifile_destroy(inifile);
        return found;
    }

    support::temporary_directory directory_;
    support::log_capture log_;
    vel_error_t error_ = -1;
};

TEST_F(VelinifileTorn, GivesWholeLinesAndCode)
{
    const std::string longer = "[" + std::string(20000, 's') + "]\n";
    for (const std::string &whole : {std::string(), std::string("a=1\n;c\n"), longer})
        for (const char *part : {"", "b", "b=2", "[", "[s]x"}) {
            EXPECT_EQ(read(whole + part), whole);
            EXPECT_EQ(error_, VEL_ERROR_GENERIC);
            EXPECT_EQ(log_.take(), (log_lines{{kModule, 7, "fgets() returned error 1"}}));
        }
}

TEST_F(VelinifileTorn, InALineThatIsReadInPieces)
{
    EXPECT_EQ(read("a=1\nb=" + std::string(10000, 'v')), "a=1\n");
    EXPECT_EQ(error_, VEL_ERROR_GENERIC);
    EXPECT_EQ(log_.take(), (log_lines{{kModule, 7, "fgets() returned error 1"}}));
}

TEST_F(VelinifileTorn, FaultBeforeTheErrorDestroysTheObject)
{
    EXPECT_EQ(read("a=1\nb\nc=2"), std::nullopt);
    EXPECT_EQ(error_, VEL_ERROR_INVALID_SYNTAX);
}

/* What came of an operation of which one allocation failed. */
struct outcome {
    vel_error_t error;
    std::string text; /* of the file, or none */
    log_lines logged;

    bool operator==(const outcome &) const = default;
};

static std::ostream &operator<<(std::ostream &out, const outcome &one)
{
    out << one.error << " " << testing::PrintToString(one.text.substr(0, 60));
    for (const log_line &line : one.logged)
        out << " " << line;
    return out << "\n";
}

class VelinifileMemory : public testing::Test {
  protected:
    VelinifileMemory()
    {
        support::warm_log(log_);
    }
    /* Reads in.ini for each allocation that fails in it, and gives what is new each time. */
    std::vector<outcome> read_failures()
    {
        std::vector<outcome> outcomes;
        for (size_t number = 1; number < 1000; number++) {
            outcome one = {-1, "none", {}};
            velinifile *inifile;
            bool whole;
            {
                support::malloc_watch watch(number, number);
                inifile = vel_inifile_create_from_file("in.ini", &one.error);
                whole = support::malloc_watch::count() < number;
            }
            if (inifile) {
                one.text = written(inifile);
                vel_inifile_destroy(inifile);
            }
            one.logged = log_.take();
            if (outcomes.empty() || outcomes.back() != one)
                outcomes.push_back(one);
            if (whole)
                return outcomes;
        }
        ADD_FAILURE() << "the allocations do not come to an end";
        return outcomes;
    }

    support::temporary_directory directory_;
    support::log_capture log_;
};

static const outcome kNothing = {VEL_ERROR_NO_MEMORY, "none", {}};

TEST_F(VelinifileMemory, Create)
{
    size_t failures = 0;
    while (true) {
        vel_error_t error = -1;
        velinifile *inifile;
        {
            support::malloc_watch watch(failures + 1, failures + 1);
            inifile = vel_inifile_create(&error);
        }
        if (inifile) {
            EXPECT_EQ(error, VEL_ERROR_NONE);
            vel_inifile_destroy(inifile);
            break;
        }
        EXPECT_EQ(error, VEL_ERROR_NO_MEMORY);
        failures++;
    }
    EXPECT_GE(failures, 1u);
    support::malloc_watch watch(1);
    EXPECT_EQ(vel_inifile_create(nullptr), nullptr);
    EXPECT_EQ(log_.take(), log_lines());
}

/* Without an object; with one and without a buffer; and without one for want of a line. */
TEST_F(VelinifileMemory, Read)
{
    const std::string text = "a=1\n;c\n[s]\nb=2\n";
    support::write_file("in.ini", text);
    EXPECT_EQ(read_failures(),
              (std::vector<outcome>{
                  kNothing, {VEL_ERROR_NO_MEMORY, "", {}}, kNothing, {VEL_ERROR_NONE, text, {}}}));
}

TEST_F(VelinifileMemory, ReadLongLine)
{
    const std::string text = "a=1\nb=" + std::string(10000, 'v') + "\n[s]\n";
    support::write_file("in.ini", text);
    const outcome grown = {
        VEL_ERROR_NO_MEMORY, "a=1\n", {{kModule, 7, "not enough memory for the line buffer"}}};
    EXPECT_EQ(read_failures(), (std::vector<outcome>{kNothing,
                                                     {VEL_ERROR_NO_MEMORY, "", {}},
                                                     kNothing,
                                                     grown,
                                                     kNothing,
                                                     {VEL_ERROR_NONE, text, {}}}));
}

/* The code is the same where nothing can be logged. */
TEST_F(VelinifileMemory, FaultWithoutMemoryForItsLine)
{
    support::write_file("in.ini", "[s]\nb\n");
    const std::vector<outcome> outcomes = read_failures();
    ASSERT_GE(outcomes.size(), 4u) << testing::PrintToString(outcomes);
    const outcome silent = {VEL_ERROR_INVALID_SYNTAX, "none", {}};
    outcome last = silent;
    last.logged.push_back(
        {kModule, 6, "Parse error at in.ini:2: no '=' found on non-empty non-comment line"});
    EXPECT_EQ(outcomes.back(), last);
    EXPECT_NE(std::find(outcomes.begin(), outcomes.end(), silent), outcomes.end())
        << testing::PrintToString(outcomes);
}

TEST_F(VelinifileMemory, PrefixAndMessageOfAFaultAreBuiltEachByItself)
{
    support::write_file("in.ini", "b\n");
    EXPECT_EQ(vel_inifile_create_from_file("in.ini", nullptr), nullptr);
    EXPECT_EQ(log_.take().size(), 1u);
    size_t total;
    {
        support::malloc_watch watch;
        EXPECT_EQ(vel_inifile_create_from_file("in.ini", nullptr), nullptr);
        total = support::malloc_watch::count();
    }
    EXPECT_EQ(log_.take().size(), 1u);

    for (size_t number = total - 1; number <= total; number++) {
        vel_error_t error = VEL_ERROR_NONE;
        {
            support::malloc_watch watch(number, number);
            EXPECT_EQ(vel_inifile_create_from_file("in.ini", &error), nullptr);
        }
        EXPECT_EQ(error, VEL_ERROR_INVALID_SYNTAX) << number;
        EXPECT_TRUE(log_.take().empty()) << number;
    }
}

struct edit_case {
    std::string name;
    std::string text;
    const char *section;
    const char *key;
    const char *value;
};

static std::vector<edit_case> edit_cases()
{
    std::vector<edit_case> rows = {
        {"Replace", ";\n[s]\n a = 1\n", "s", "a", " 2 "},
        {"Add", ";\n[s]\n a = 1\n;\n", "s", "n", " 2 "},
        {"AddToNull", ";\n[s]\n a = 1\n;\n", nullptr, "n", " 2 "},
        {"AddOnTop", "[s]\n a = 1\n;\n", nullptr, "n", " 2 "},
        {"AddSection", ";\n[s]\n a = 1\n;\n", "t", "n", " 2 "},
        {"AddUnstrippedSection", ";\n[s]\n a = 1\n;\n", " t ", "n", " 2 "},
        {"AddToEmptyFile", "", nullptr, "n", ""},
    };
    /* Whatever finds the lines has to grow somewhere among these. */
    std::string text = "[s]\na=1\n";
    for (int i = 0; i < 70; i++) {
        text += "k" + std::to_string(i) + "=1\n";
        rows.push_back({"AddTo" + std::to_string(i), text, "s", "n", "2"});
        rows.push_back({"AddSectionTo" + std::to_string(i), text, "t", "n", "2"});
    }
    return rows;
}

/* A failed edit leaves the file as it was, and works when it is repeated. */
TEST_F(VelinifileMemory, Set)
{
    for (const edit_case &row : edit_cases()) {
        SCOPED_TRACE(row.name);
        const ini_model::name section = row.section ? ini_model::name(row.section) : std::nullopt;
        ini_model before, after;
        ASSERT_EQ(before.parse(row.text).number, 0u);
        after = before;
        after.set(section, row.key, row.value);
        unlink("in.ini");
        support::write_file("in.ini", row.text);

        size_t failures = 0;
        while (true) {
            velinifile *inifile = vel_inifile_create_from_file("in.ini", nullptr);
            ASSERT_NE(inifile, nullptr);
            vel_error_t result;
            {
                support::malloc_watch watch(failures + 1, failures + 1);
                result = vel_inifile_set(inifile, row.section, row.key, row.value);
                if (support::malloc_watch::count() <= failures)
                    failures = 0;
                else
                    failures++;
            }
            if (failures == 0)
                EXPECT_EQ(result, VEL_ERROR_NONE);
            else
                EXPECT_EQ(result, VEL_ERROR_NO_MEMORY);
            if (result != VEL_ERROR_NONE) {
                const std::string found = written(inifile);
                EXPECT_EQ(found, before.text());
                const char *old = vel_inifile_get(inifile, row.section, row.key);
                EXPECT_EQ(old ? ini_model::name(old) : std::nullopt, before.get(section, row.key));
                EXPECT_EQ(vel_inifile_set(inifile, row.section, row.key, row.value),
                          VEL_ERROR_NONE);
            }
            EXPECT_EQ(written(inifile), after.text());
            EXPECT_STREQ(vel_inifile_get(inifile, "s", "a"),
                         after.get("s", "a") ? after.get("s", "a")->c_str() : nullptr);
            vel_inifile_destroy(inifile);
            if (failures == 0)
                break;
        }
        EXPECT_EQ(log_.take(), log_lines());
    }
}

/* Deleting and looking up want no memory. */
TEST_F(VelinifileMemory, NothingElseAllocates)
{
    std::string text;
    for (int i = 0; i < 200; i++)
        text += "[s" + std::to_string(i % 7) + "]\nk" + std::to_string(i % 50) + "=v\n";
    support::write_file("in.ini", text);
    velinifile *inifile = vel_inifile_create_from_file("in.ini", nullptr);
    ASSERT_NE(inifile, nullptr);
    {
        support::malloc_watch watch(1, 1000000);
        EXPECT_STREQ(vel_inifile_get(inifile, "s3", "k3"), "v");
        EXPECT_EQ(vel_inifile_get(inifile, "s3", "absent"), nullptr);
        unsigned int count = 0;
        vel_inifile_delete_all(inifile, "s3", "k3", &count);
        EXPECT_EQ(count, 1u);
        EXPECT_EQ(vel_inifile_get(inifile, "s3", "k3"), nullptr);
        EXPECT_EQ(vel_inifile_write_file(inifile, "out.ini"), VEL_ERROR_NONE);
    }
    vel_inifile_destroy(inifile);
}

static bool use_inifile()
{
    support::write_file("in.ini", "a=1\n;c\n[s]\n b = 2\n[s]\nb=" + std::string(9000, 'v') + "\n");
    vel_error_t error = VEL_ERROR_NONE;
    velinifile *inifile = vel_inifile_create_from_file("in.ini", &error);
    bool done = inifile && error == VEL_ERROR_NONE &&
                vel_inifile_set(inifile, "s", " b ", " 3 ") == VEL_ERROR_NONE &&
                vel_inifile_set(inifile, " t ", "n", " 4 ") == VEL_ERROR_NONE &&
                vel_inifile_set(inifile, nullptr, "m", "5") == VEL_ERROR_NONE;
    for (int i = 0; done && i < 40; i++)
        done =
            vel_inifile_set(inifile, ("s" + std::to_string(i)).c_str(), "n", "v") ==
                VEL_ERROR_NONE &&
            vel_inifile_set(inifile, "s", ("k" + std::to_string(i)).c_str(), "v") == VEL_ERROR_NONE;
    if (done) {
        EXPECT_STREQ(vel_inifile_get(inifile, "t", "n"), "4");
        EXPECT_STREQ(vel_inifile_get(inifile, "s39", "n"), "v");
        EXPECT_STREQ(vel_inifile_get(inifile, "s", "k7"), "v");
        vel_inifile_delete_all(inifile, "s", "b", nullptr);
        done = vel_inifile_write_file(inifile, "out.ini") == VEL_ERROR_NONE;
    }
    if (inifile)
        vel_inifile_destroy(inifile);
    if (!done)
        return false;

    support::write_file("in.ini", "oops\n");
    inifile = vel_inifile_create_from_file("in.ini", &error);
    if (inifile)
        vel_inifile_destroy(inifile);
    if (error == VEL_ERROR_NO_MEMORY)
        return false;
    EXPECT_EQ(inifile, nullptr);
    EXPECT_EQ(error, VEL_ERROR_INVALID_SYNTAX);
    return true;
}

TEST(VelinifileFailures, EachAllocation)
{
    EXPECT_GE(support::vel_oom_drive(use_inifile), 5u);
}
