#include <vellib/velinifile.h>

#include <memory>
#include <ostream>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/rows.h"
#include "support/tempdir.h"

using support::log_line;

using log_lines = std::vector<log_line>;

struct inifile_deleter {
    void operator()(velinifile *inifile) const
    {
        vel_inifile_destroy(inifile);
    }
};
using inifile_ptr = std::unique_ptr<velinifile, inifile_deleter>;

class Velinifile : public testing::Test {
  protected:
    inifile_ptr read(const std::string &text)
    {
        support::write_file("in.ini", text);
        error_ = -1;
        return inifile_ptr(vel_inifile_create_from_file("in.ini", &error_));
    }
    /* Reads what shall be right. */
    inifile_ptr parse(const std::string &text)
    {
        inifile_ptr inifile = read(text);
        EXPECT_EQ(error_, VEL_ERROR_NONE);
        EXPECT_NE(inifile, nullptr);
        EXPECT_EQ(log_.take(), log_lines());
        return inifile;
    }
    static std::string written(const inifile_ptr &inifile)
    {
        support::write_file("out.ini", "before\n");
        EXPECT_EQ(vel_inifile_write_file(inifile.get(), "out.ini"), VEL_ERROR_NONE);
        return support::read_file("out.ini");
    }
    static void set(const inifile_ptr &inifile, const char *section, const char *key,
                    const char *value)
    {
        EXPECT_EQ(vel_inifile_set(inifile.get(), section, key, value), VEL_ERROR_NONE);
    }
    static const char *get(const inifile_ptr &inifile, const char *section, const char *key)
    {
        return vel_inifile_get(inifile.get(), section, key);
    }
    static unsigned int delete_all(const inifile_ptr &inifile, const char *section, const char *key)
    {
        unsigned int count = 77;
        vel_inifile_delete_all(inifile.get(), section, key, &count);
        return count;
    }

    support::temporary_directory directory_;
    support::log_capture log_;
    vel_error_t error_ = -1;
};

TEST_F(Velinifile, EmptyObject)
{
    const inifile_ptr inifile(vel_inifile_create(&error_));
    ASSERT_NE(inifile, nullptr);
    EXPECT_EQ(error_, VEL_ERROR_NONE);
    EXPECT_EQ(get(inifile, nullptr, "key"), nullptr);
    EXPECT_EQ(get(inifile, "section", "key"), nullptr);
    EXPECT_EQ(delete_all(inifile, nullptr, "key"), 0u);
    EXPECT_EQ(written(inifile), "");
    EXPECT_EQ(log_.take(), log_lines());
}

TEST_F(Velinifile, OptionalOutputs)
{
    const inifile_ptr empty(vel_inifile_create(nullptr));
    ASSERT_NE(empty, nullptr);
    support::write_file("in.ini", "a=1\n");
    const inifile_ptr inifile(vel_inifile_create_from_file("in.ini", nullptr));
    ASSERT_NE(inifile, nullptr);
    vel_inifile_delete_all(inifile.get(), nullptr, "a", nullptr);
    EXPECT_EQ(get(inifile, nullptr, "a"), nullptr);
    EXPECT_EQ(vel_inifile_create_from_file("missing.ini", nullptr), nullptr);
    support::write_file("in.ini", "a\n");
    EXPECT_EQ(vel_inifile_create_from_file("in.ini", nullptr), nullptr);
}

TEST_F(Velinifile, EmptyFile)
{
    const inifile_ptr inifile = parse("");
    EXPECT_EQ(written(inifile), "");
}

TEST_F(Velinifile, MissingFile)
{
    EXPECT_EQ(vel_inifile_create_from_file("missing.ini", &error_), nullptr);
    EXPECT_EQ(error_, VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(log_.take(), log_lines());
}

/* A name that leads through a file cannot be opened by root either. */
TEST_F(Velinifile, FileThatCannotBeOpened)
{
    support::write_file("in.ini", "a=1\n");
    EXPECT_EQ(vel_inifile_create_from_file("in.ini/in.ini", &error_), nullptr);
    EXPECT_EQ(error_, VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(log_.take(), log_lines());
    if (geteuid() != 0) {
        ASSERT_EQ(truncate("in.ini", 0), 0);
        std::filesystem::permissions("in.ini", std::filesystem::perms::none);
        EXPECT_EQ(vel_inifile_create_from_file("in.ini", &error_), nullptr);
        EXPECT_EQ(error_, VEL_ERROR_NOT_FOUND);
    }
}

/* A directory can be opened, and not read. */
TEST_F(Velinifile, DirectoryGivesEmptyObjectWithCode)
{
    const inifile_ptr inifile(vel_inifile_create_from_file(".", &error_));
    ASSERT_NE(inifile, nullptr);
    EXPECT_EQ(error_, VEL_ERROR_GENERIC);
    EXPECT_EQ(log_.take(), (log_lines{{"util/velinifile", 7, "fgets() returned error 1"}}));
    EXPECT_EQ(written(inifile), "");
}

struct copy_case {
    const char *name;
    std::string text;
    std::string written;
};

static std::ostream &operator<<(std::ostream &out, const copy_case &row)
{
    return out << row.name;
}

using namespace std::string_literals;

static const copy_case kCopyCases[] = {
    {"KeyLine", "a=1\n", "a=1\n"},
    {"CommentsAndBlanks", "; c\n\n#d\n \t\n  ; e \na=1\n", "; c\n\n#d\n \t\n  ; e \na=1\n"},
    {"SpaceInsideStays", "a  b =  c d  \n", "a  b =  c d  \n"},
    {"LeadingSpaceOfKeyLineGoes", " \t\v\fa=1\n", "a=1\n"},
    {"LeadingSpaceOfHeaderStays", "  [s] \t\n", "  [s] \t\n"},
    {"CarriageReturnsGo", "a=1\r\n[s]\r\r\n;c\r\n\r\n", "a=1\n[s]\n;c\n\n"},
    {"CarriageReturnInsideStays", "a=1\r2\r \r\n", "a=1\r2\r \n"},
    {"LastLineWithoutNewline", "a=1\nb=2", "a=1\nb=2\n"},
    {"LastCommentWithoutNewline", "a=1\n;", "a=1\n;\n"},
    {"OnlySpaceWithoutNewline", " ", " \n"},
    {"OnlyNewlines", "\n\n\r\n", "\n\n\n"},
    {"OnlyCarriageReturn", "\r", "\n"},
    {"RepeatedSectionsAndKeys", "[s]\na=1\na=2\n[t]\n[s]\na=3\n", "[s]\na=1\na=2\n[t]\n[s]\na=3\n"},
    {"BytesAboveAscii", "\xff\xa0=\xc3\xa4\x85\n", "\xff\xa0=\xc3\xa4\x85\n"},
    {"PercentSigns", "%s%n=%d\n;%s\n[%s]\n", "%s%n=%d\n;%s\n[%s]\n"},
    {"NulHidesRestAndLineFeed", "a=1\0zz\nb=2\nc=3\n"s, "a=1b=2\nc=3\n"},
    {"NulAtStart", "\0zz\nb=2\n\0"s, "b=2\n"},
    {"NulAtEndOfFile", "a=1\0"s, "a=1\n"},
};

class VelinifileCopy : public Velinifile, public testing::WithParamInterface<copy_case> {};
INSTANTIATE_TEST_SUITE_P(, VelinifileCopy, testing::ValuesIn(kCopyCases), support::row_name());

TEST_P(VelinifileCopy, ReadAndWritten)
{
    EXPECT_EQ(written(parse(GetParam().text)), GetParam().written);
}

struct get_case {
    const char *name;
    const char *text;
    const char *section;
    const char *key;
    const char *value;
};

static std::ostream &operator<<(std::ostream &out, const get_case &row)
{
    return out << row.name;
}

static const get_case kGetCases[] = {
    {"Plain", "a=1\n", nullptr, "a", "1"},
    {"Stripped", " \t a b \v=\f c d \t\r\n", nullptr, "a b", "c d"},
    {"ArgumentIsNotStripped", "a=1\n", nullptr, "a ", nullptr},
    {"CaseCounts", "a=1\n", nullptr, "A", nullptr},
    {"EmptyValue", "a=\n", nullptr, "a", ""},
    {"BlankValue", "a= \t \n", nullptr, "a", ""},
    {"ValueKeepsEquals", "a=b=c\n", nullptr, "a", "b=c"},
    {"LeadingEqualsIsOfTheKey", "=x=y\n", nullptr, "=x", "y"},
    {"TwoEquals", "==\n", nullptr, "=", ""},
    {"LeadingEqualsBehindSpace", "  ==y\n", nullptr, "=", "y"},
    {"ThreeEquals", "===\n", nullptr, "=", "="},
    {"BracketWithoutClose", "[a=1\n", nullptr, "[a", "1"},
    {"BracketWithoutCloseAloneBeforeEquals", "[=1\n", nullptr, "[", "1"},
    {"ClosingBracketIsAKey", "]=1\n", nullptr, "]", "1"},
    {"CommentSignInValue", "a=1;2#3\n", nullptr, "a", "1;2#3"},
    {"CommentSignInKey", "a;b=1\n", nullptr, "a;b", "1"},
    {"CommentIsNoKey", ";a=1\n", nullptr, ";a", nullptr},
    {"CommentIsNoKeyWithoutSign", "; a=1\n", nullptr, "a", nullptr},
    {"QuotesStay", "a=\"1\"\n", nullptr, "a", "\"1\""},
    {"Section", "[s]\na=1\n", "s", "a", "1"},
    {"SectionIsNotNull", "[s]\na=1\n", nullptr, "a", nullptr},
    {"NullIsNotEmpty", "a=1\n", "", "a", nullptr},
    {"EmptySection", "[]\na=1\n", "", "a", "1"},
    {"EmptySectionIsNotNull", "[]\na=1\n", nullptr, "a", nullptr},
    {"BlankSection", "[ \t]\na=1\n", "", "a", "1"},
    {"SectionCaseCounts", "[s]\na=1\n", "S", "a", nullptr},
    {"SectionStripped", "  [ \ts t ]  \na=1\n", "s t", "a", "1"},
    {"SectionArgumentIsNotStripped", "[ s ]\na=1\n", " s ", "a", nullptr},
    {"SpaceBehindHeader", "[a] \nk=1\n", "a", "k", "1"},
    {"LastBracketEndsTheName", "[a]b]\nk=1\n", "a]b", "k", "1"},
    {"BracketsOnly", "[]]\nk=1\n", "]", "k", "1"},
    {"OpeningBracketInName", "[[a]\nk=1\n", "[a", "k", "1"},
    {"EqualsInName", "[a=1]\nk=1\n", "a=1", "k", "1"},
    {"CommentSignInName", "[;a]\nk=1\n", ";a", "k", "1"},
    {"SectionEndsAtTheNext", "[s]\na=1\n[t]\nb=2\n", "s", "b", nullptr},
    {"LastOfTwo", "[s]\na=1\na=2\n", "s", "a", "2"},
    {"LastOfTwoSections", "[s]\na=1\n[t]\n[s]\na=3\n", "s", "a", "3"},
    {"EarlierSectionIsSeen", "[s]\na=1\n[t]\n[s]\nb=3\n", "s", "a", "1"},
    {"HeaderIsNoKey", "[s]\n", "s", "[s]", nullptr},
    {"EmptyKeyIsAbsent", "\n;\n[s]\n\n", "s", "", nullptr},
};

class VelinifileGet : public Velinifile, public testing::WithParamInterface<get_case> {};
INSTANTIATE_TEST_SUITE_P(, VelinifileGet, testing::ValuesIn(kGetCases), support::row_name());

TEST_P(VelinifileGet, Value)
{
    const get_case &row = GetParam();
    const inifile_ptr inifile = parse(row.text);
    EXPECT_STREQ(get(inifile, row.section, row.key), row.value);
    EXPECT_EQ(log_.take(), log_lines());
}

struct fault_case {
    const char *name;
    const char *text;
    const char *message;
};

static std::ostream &operator<<(std::ostream &out, const fault_case &row)
{
    return out << row.name;
}

static const char kBogus[] = "bogus characters after ']'";
static const char kNoEquals[] = "no '=' found on non-empty non-comment line";

static const fault_case kFaultCases[] = {
    {"KeyAlone", "1: key\n", kNoEquals},
    {"ThirdLine", "3: a=1\n;\n  key\nb\n", kNoEquals},
    {"EqualsAlone", "1: =\n", kNoEquals},
    {"EqualsFirst", "1: =x\n", kNoEquals},
    {"EqualsFirstBehindSpace", "1:  \t=x\n", kNoEquals},
    {"OpenBracket", "1: [a\n", kNoEquals},
    {"OpenBracketAlone", "1: [", kNoEquals},
    {"ClosingBracket", "1: ]\n", kNoEquals},
    {"Behind", "1: [a]b\n", kBogus},
    {"BehindSpace", "2: \n[a] \t;c\n", kBogus},
    {"KeyLikeHeader", "1: [a]=1\n", kBogus},
    {"LastLineWithoutNewline", "2: [a]\nb", kNoEquals},
    {"CarriageReturn", "2: \r\nb\r\n", kNoEquals},
    {"CarriageReturnIsNoLineEnd", "1: [a]\rb=1\n", kBogus},
};

class VelinifileFault : public Velinifile, public testing::WithParamInterface<fault_case> {};
INSTANTIATE_TEST_SUITE_P(, VelinifileFault, testing::ValuesIn(kFaultCases), support::row_name());

TEST_P(VelinifileFault, IsLoggedWithItsLine)
{
    const std::string text = GetParam().text;
    EXPECT_EQ(read(text.substr(3)), nullptr);
    EXPECT_EQ(error_, VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(log_.take(), (log_lines{{"util/velinifile", 6,
                                       "Parse error at in.ini:" + text.substr(0, 1) + ": " +
                                           GetParam().message}}));
}

TEST_F(Velinifile, FaultNamesFileAndHighLine)
{
    std::string text;
    for (int i = 0; i < 12345; i++)
        text += "\n";
    support::write_file("%s.ini", text + "oops\n");
    EXPECT_EQ(vel_inifile_create_from_file("./%s.ini", &error_), nullptr);
    EXPECT_EQ(error_, VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(log_.take(),
              (log_lines{{"util/velinifile", 6, "Parse error at ./%s.ini:12346: "s + kNoEquals}}));
}

struct set_case {
    const char *name;
    const char *text;
    const char *section;
    const char *key;
    const char *value;
    const char *written;
};

static std::ostream &operator<<(std::ostream &out, const set_case &row)
{
    return out << row.name;
}

static const set_case kSetCases[] = {
    {"Replaces", "a = 1\nb = 2\n", nullptr, "a", "3", "a=3\nb = 2\n"},
    {"ReplacesStripped", "  a = 1  \n", nullptr, "\ta ", "  3 4 ", "a=3 4\n"},
    {"ReplacesTheLast", "[s]\na=1\na = 2\n", "s", "a", "3", "[s]\na=1\na=3\n"},
    {"ReplacesTheLastOfTwoSections", "[s]\na=1\n[t]\n[s]\na=2\n", "s", "a", "3",
     "[s]\na=1\n[t]\n[s]\na=3\n"},
    {"ReplacesInTheEarlierSection", "[s]\na=1\n[t]\n[s]\nb=2\n", "s", "a", "3",
     "[s]\na=3\n[t]\n[s]\nb=2\n"},
    {"AddsBehindTheLastKey", "[s]\na=1\n; c\n\n[t]\nb=1\n", "s", "n", "2",
     "[s]\na=1\nn=2\n; c\n\n[t]\nb=1\n"},
    {"AddsBehindTheHeader", "[s]\n; c\n\n[t]\nb=1\n", "s", "n", "2", "[s]\nn=2\n; c\n\n[t]\nb=1\n"},
    {"AddsBehindTheFirstOfTwoHeaders", "[s]\n; c\n[t]\n[s]\n;d\n", "s", "n", "2",
     "[s]\nn=2\n; c\n[t]\n[s]\n;d\n"},
    {"AddsBehindTheLastKeyOfTwoSections", "[s]\na=1\n[t]\n[s]\n;d\n", "s", "n", "2",
     "[s]\na=1\nn=2\n[t]\n[s]\n;d\n"},
    {"AddsInTheLaterSection", "[s]\na=1\n[t]\n[s]\nb=1\n;d\n", "s", "n", "2",
     "[s]\na=1\n[t]\n[s]\nb=1\nn=2\n;d\n"},
    {"AddsToNullBehindKey", "a=1\n;c\n[s]\n", nullptr, "n", "2", "a=1\nn=2\n;c\n[s]\n"},
    {"AddsToNullBehindFirstLine", ";c\n;d\n[s]\n", nullptr, "n", "2", ";c\nn=2\n;d\n[s]\n"},
    {"AddsToNullOnTop", "[s]\na=1\n", nullptr, "n", "2", "n=2\n[s]\na=1\n"},
    {"AddsToNullInEmptyFile", "", nullptr, "n", "2", "n=2\n"},
    {"AddsSection", "a=1\n[s]\n;c\n", "t", "n", "2", "a=1\n[s]\n;c\n[t]\nn=2\n"},
    {"AddsSectionInEmptyFile", "", "t", "n", "2", "[t]\nn=2\n"},
    {"AddsEmptySection", "a=1\n", "", "n", "2", "a=1\n[]\nn=2\n"},
    {"NewLineKeepsSpacesOfValue", "[s]\n", "s", " n ", "  2 ", "[s]\nn=  2 \n"},
    {"SectionIsComparedUnstripped", "[ s ]\na=1\n", " s ", "a", "2", "[ s ]\na=1\n[ s ]\na=2\n"},
    {"CaseCounts", "a=1\n", nullptr, "A", "2", "a=1\nA=2\n"},
    {"EmptyValue", "a=1\n", nullptr, "a", "", "a=\n"},
    {"EmptyKey", "a=1\n", nullptr, " ", "2", "a=1\n=2\n"},
    {"KeyWithEquals", "a=1\n", nullptr, "a=b", "2", "a=1\na=b=2\n"},
    {"PercentSigns", "a=1\n", "%n", "%s", "%d", "a=1\n[%n]\n%s=%d\n"},
};

class VelinifileSet : public Velinifile, public testing::WithParamInterface<set_case> {};
INSTANTIATE_TEST_SUITE_P(, VelinifileSet, testing::ValuesIn(kSetCases), support::row_name());

TEST_P(VelinifileSet, Written)
{
    const set_case &row = GetParam();
    const inifile_ptr inifile = parse(row.text);
    set(inifile, row.section, row.key, row.value);
    EXPECT_EQ(written(inifile), row.written);
    EXPECT_EQ(log_.take(), log_lines());
}

TEST_F(Velinifile, SetValueReadsStripped)
{
    const inifile_ptr inifile = parse("");
    set(inifile, "s", " new ", "  1 2 ");
    EXPECT_STREQ(get(inifile, "s", "new"), "1 2");
    set(inifile, "s", "new", "\t3 ");
    EXPECT_STREQ(get(inifile, "s", "new"), "3");
    set(inifile, "s", " ", "x");
    EXPECT_STREQ(get(inifile, "s", ""), "x");
    EXPECT_EQ(delete_all(inifile, "s", ""), 1u);
}

/* A section that is added has the name that a reader would find. */
TEST_F(Velinifile, AddedSectionIsStripped)
{
    const inifile_ptr inifile = parse("");
    set(inifile, " s ", "a", "1");
    EXPECT_EQ(get(inifile, " s ", "a"), nullptr);
    EXPECT_STREQ(get(inifile, "s", "a"), "1");
    set(inifile, "s", "b", "2");
    EXPECT_EQ(written(inifile), "[ s ]\na=1\nb=2\n");
    set(inifile, " s ", "a", "3");
    EXPECT_EQ(written(inifile), "[ s ]\na=1\nb=2\n[ s ]\na=3\n");
    EXPECT_STREQ(get(inifile, "s", "a"), "3");
}

/* The arguments may come out of the object. */
TEST_F(Velinifile, SetToOwnValue)
{
    const inifile_ptr inifile = parse("a = 1 2 3 \nb=x\n");
    set(inifile, nullptr, "a", get(inifile, nullptr, "a"));
    set(inifile, nullptr, get(inifile, nullptr, "b"), get(inifile, nullptr, "a"));
    EXPECT_EQ(written(inifile), "a=1 2 3\nb=x\nx=1 2 3\n");
}

TEST_F(Velinifile, DeleteAllCounts)
{
    const inifile_ptr inifile = parse("a=0\n[s]\na=1\n;c\na=1\nb=2\n[t]\na=3\n[s]\n a =4\n");
    EXPECT_EQ(delete_all(inifile, "s", " a "), 0u);
    EXPECT_EQ(delete_all(inifile, " s ", "a"), 0u);
    EXPECT_EQ(delete_all(inifile, "s", "a"), 3u);
    EXPECT_EQ(get(inifile, "s", "a"), nullptr);
    EXPECT_EQ(delete_all(inifile, "s", "a"), 0u);
    EXPECT_EQ(written(inifile), "a=0\n[s]\n;c\nb=2\n[t]\na=3\n[s]\n");
    EXPECT_EQ(delete_all(inifile, nullptr, "a"), 1u);
    EXPECT_EQ(delete_all(inifile, "t", "a"), 1u);
    EXPECT_EQ(written(inifile), "[s]\n;c\nb=2\n[t]\n[s]\n");
    set(inifile, "t", "n", "1");
    EXPECT_EQ(written(inifile), "[s]\n;c\nb=2\n[t]\nn=1\n[s]\n");
    EXPECT_EQ(log_.take(), log_lines());
}

TEST_F(Velinifile, KeyTwiceInOneSection)
{
    const inifile_ptr inifile = parse("a=1\na=2\n");
    EXPECT_STREQ(get(inifile, nullptr, "a"), "2");
    set(inifile, nullptr, "a", "3");
    EXPECT_EQ(written(inifile), "a=1\na=3\n");
    EXPECT_EQ(delete_all(inifile, nullptr, "a"), 2u);
    EXPECT_EQ(written(inifile), "");
}

/* The buffer holds 4095 bytes at first, then 8190, 16380 and so on, with a NUL. */
TEST_F(Velinifile, LongLines)
{
    for (const size_t length :
         {4090u, 4091u, 4092u, 4093u, 4094u, 4095u, 4096u, 8187u, 8188u, 8189u, 8190u, 100000u})
        for (const char *end : {"\n", "\r\n", ""}) {
            const std::string value(length - 2, 'v');
            const inifile_ptr inifile = parse("[s]\na=" + value + end);
            EXPECT_EQ(get(inifile, "s", "a"), value) << length;
            EXPECT_EQ(written(inifile), "[s]\na=" + value + "\n");
        }
}

TEST_F(Velinifile, LongLinesAmongShortOnes)
{
    const std::string longer(50000, 'v'), between(20000, 'w');
    const std::string text =
        ";" + between + "\n[" + between + "]\na=" + longer + "\nb=1\n" + longer + "=2\nc=3\n";
    const inifile_ptr inifile = parse(text);
    EXPECT_EQ(written(inifile), text);
    EXPECT_EQ(get(inifile, between.c_str(), "a"), longer);
    EXPECT_STREQ(get(inifile, between.c_str(), longer.c_str()), "2");
    EXPECT_STREQ(get(inifile, between.c_str(), "c"), "3");
}

/* A piece ends where the buffer does, and a NUL hides only the rest of its piece. */
TEST_F(Velinifile, NulInALongLine)
{
    const std::string head = "a=" + std::string(10, 'x');
    const inifile_ptr inifile = parse(head + '\0' + std::string(5000, 'y') + "\nb=1\n");
    const std::string shown(head.size() + 1 + 5000 - 4094, 'y');
    EXPECT_EQ(written(inifile), head + shown + "\nb=1\n");
}

TEST_F(Velinifile, WriteFails)
{
    const inifile_ptr inifile = parse("a=1\n");
    EXPECT_EQ(vel_inifile_write_file(inifile.get(), "missing/out.ini"), VEL_ERROR_WRITE);
    EXPECT_EQ(vel_inifile_write_file(inifile.get(), "."), VEL_ERROR_WRITE);
    EXPECT_EQ(vel_inifile_write_file(inifile.get(), "/dev/full"), VEL_ERROR_WRITE);
    set(inifile, nullptr, "b", std::string(100000, 'v').c_str());
    set(inifile, nullptr, "c", std::string(100000, 'v').c_str());
    EXPECT_EQ(vel_inifile_write_file(inifile.get(), "/dev/full"), VEL_ERROR_WRITE);
    EXPECT_EQ(log_.take(), log_lines());
}

TEST_F(Velinifile, WritesOverTheFileThatWasRead)
{
    const inifile_ptr inifile = parse("a=1\nb=22222\n");
    EXPECT_EQ(delete_all(inifile, nullptr, "b"), 1u);
    EXPECT_EQ(vel_inifile_write_file(inifile.get(), "in.ini"), VEL_ERROR_NONE);
    EXPECT_EQ(support::read_file("in.ini"), "a=1\n");
    EXPECT_FALSE(std::filesystem::exists("in.ini.bak"));
    EXPECT_FALSE(std::filesystem::exists("in.ini.tmp"));
}

class VelinifileDeathTest : public testing::Test {
  protected:
    const inifile_ptr inifile_{vel_inifile_create(nullptr)};
    velinifile *const ini_ = inifile_.get();
};

TEST_F(VelinifileDeathTest, Handle)
{
    EXPECT_DEATH(vel_inifile_destroy(nullptr), support::asserts("inifile"));
    EXPECT_DEATH((void)vel_inifile_write_file(nullptr, nullptr), support::asserts("inifile"));
    EXPECT_DEATH((void)vel_inifile_get(nullptr, "", nullptr), support::asserts("inifile"));
    EXPECT_DEATH((void)vel_inifile_set(nullptr, "", nullptr, nullptr), support::asserts("inifile"));
    EXPECT_DEATH(vel_inifile_delete_all(nullptr, "", nullptr, nullptr),
                 support::asserts("inifile"));
}

TEST_F(VelinifileDeathTest, Filename)
{
    EXPECT_DEATH((void)vel_inifile_create_from_file(nullptr, nullptr),
                 support::asserts("filename"));
    EXPECT_DEATH((void)vel_inifile_write_file(ini_, nullptr), support::asserts("filename"));
}

TEST_F(VelinifileDeathTest, Key)
{
    EXPECT_DEATH((void)vel_inifile_get(ini_, nullptr, nullptr), support::asserts("key"));
    EXPECT_DEATH((void)vel_inifile_set(ini_, nullptr, nullptr, nullptr), support::asserts("key"));
    EXPECT_DEATH(vel_inifile_delete_all(ini_, nullptr, nullptr, nullptr), support::asserts("key"));
}

TEST_F(VelinifileDeathTest, NewValue)
{
    EXPECT_DEATH((void)vel_inifile_set(ini_, nullptr, "", nullptr), support::asserts("new_value"));
}
