#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/eachfailure.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/rows.h"

using support::asserts;
using lines = std::vector<support::log_line>;

static const char kModule[] = "net/velhttpheaders";

static support::log_line line(int level, const std::string &text)
{
    return {kModule, level, text};
}

static const support::log_line kSkipped =
    line(10, "skipping first line, should be HTTP request or status line");
static const support::log_line kNoColon = line(7, "no colon (:) found while parsing the headers");

class Velhttpheaders : public testing::Test {
  protected:
    void SetUp() override
    {
        headers = vel_httpheaders_create();
        ASSERT_NE(headers, nullptr);
    }
    void TearDown() override
    {
        vel_httpheaders_destroy(headers);
    }

    support::log_capture log;
    velhttpheaders *headers = nullptr;
};

TEST_F(Velhttpheaders, NewOneIsEmpty)
{
    EXPECT_EQ(vel_httpheaders_get(headers, "server"), nullptr);
    EXPECT_EQ(vel_httpheaders_get(headers, ""), nullptr);
    EXPECT_EQ(log.take_from(kModule), lines());
}

TEST_F(Velhttpheaders, NamesHaveNoCase)
{
    EXPECT_EQ(vel_httpheaders_add(headers, "Content-Type", "Text/Plain"), VEL_ERROR_NONE);
    for (const char *name : {"Content-Type", "content-type", "CONTENT-TYPE", "cOnTeNt-TyPe"})
        EXPECT_STREQ(vel_httpheaders_get(headers, name), "Text/Plain") << name;
    EXPECT_EQ(vel_httpheaders_get(headers, "content-typ"), nullptr);
    EXPECT_EQ(vel_httpheaders_get(headers, "content-type "), nullptr);
    EXPECT_EQ(log.take_from(kModule), lines());
}

TEST_F(Velhttpheaders, OnlyAsciiIsFolded)
{
    EXPECT_EQ(vel_httpheaders_add(headers, "X-\xc3\x84[Z", "1"), VEL_ERROR_NONE);
    EXPECT_STREQ(vel_httpheaders_get(headers, "x-\xc3\x84[z"), "1");
    EXPECT_EQ(vel_httpheaders_get(headers, "x-\xc3\xa4[z"), nullptr);
    EXPECT_EQ(vel_httpheaders_get(headers, "x-\xc3\x84{z"), nullptr);
}

TEST_F(Velhttpheaders, SecondValueReplacesTheFirst)
{
    EXPECT_EQ(vel_httpheaders_add(headers, "a", "1"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_httpheaders_add(headers, "b", "3"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_httpheaders_add(headers, "A", "2"), VEL_ERROR_NONE);
    EXPECT_STREQ(vel_httpheaders_get(headers, "a"), "2");
    EXPECT_STREQ(vel_httpheaders_get(headers, "b"), "3");
}

TEST_F(Velhttpheaders, KeepsCopies)
{
    char name[] = "name", value[] = "value";
    EXPECT_EQ(vel_httpheaders_add(headers, name, value), VEL_ERROR_NONE);
    memset(name, 'x', 4);
    memset(value, 'x', 5);
    EXPECT_STREQ(vel_httpheaders_get(headers, "name"), "value");
}

TEST_F(Velhttpheaders, ValueIsTakenAsItIs)
{
    EXPECT_EQ(vel_httpheaders_add(headers, " N:\t", "  v \r\n"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_httpheaders_add(headers, "", ""), VEL_ERROR_NONE);
    EXPECT_STREQ(vel_httpheaders_get(headers, " n:\t"), "  v \r\n");
    EXPECT_STREQ(vel_httpheaders_get(headers, ""), "");
}

TEST_F(Velhttpheaders, GetIsBorrowed)
{
    EXPECT_EQ(vel_httpheaders_add(headers, "a", "1"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_httpheaders_get(headers, "a"), vel_httpheaders_get(headers, "A"));
}

TEST_F(Velhttpheaders, ClearKeepsTheStore)
{
    for (int round = 0; round < 3; round++) {
        EXPECT_EQ(vel_httpheaders_parse(headers, "a: 1\nb: 2", 9), VEL_ERROR_NONE);
        EXPECT_STREQ(vel_httpheaders_get(headers, "b"), "2");
        vel_httpheaders_clear(headers);
        EXPECT_EQ(vel_httpheaders_get(headers, "a"), nullptr);
        EXPECT_EQ(vel_httpheaders_get(headers, "b"), nullptr);
    }
    EXPECT_EQ(log.take_from(kModule), lines());
}

TEST_F(Velhttpheaders, LikeAMap)
{
    std::map<std::string, std::string> expected;
    unsigned int random = 1;
    for (int step = 0; step < 5000; step++) {
        random = random * 1664525u + 1013904223u;
        const std::string number = std::to_string((random >> 8) % 700);
        ASSERT_EQ(vel_httpheaders_add(headers, ("X-Name-" + number).c_str(),
                                      std::to_string(step).c_str()),
                  VEL_ERROR_NONE);
        expected["x-name-" + number] = std::to_string(step);
    }
    for (const auto &[name, value] : expected)
        EXPECT_STREQ(vel_httpheaders_get(headers, name.c_str()), value.c_str()) << name;
    EXPECT_EQ(vel_httpheaders_get(headers, "x-name-700"), nullptr);
}

/* In a child, as the store cannot be destroyed any more. */
TEST_F(Velhttpheaders, NullValueLooksLikeAnUnknownName)
{
    EXPECT_EXIT(
        {
            const bool added = vel_httpheaders_add(headers, "a", nullptr) == VEL_ERROR_NONE &&
                               vel_httpheaders_get(headers, "a") == nullptr;
            _exit(added ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

struct parse_case {
    const char *name;
    bool message;
    std::string text;
    vel_error_t result;
    std::map<std::string, std::string> stored;
    std::vector<std::string> missing;
    lines logged;
};

static void PrintTo(const parse_case &one, std::ostream *out)
{
    *out << testing::PrintToString(one.text);
}

class VelhttpheadersParse : public testing::TestWithParam<parse_case> {
  protected:
    void check(const char *buffer)
    {
        const parse_case &row = GetParam();
        support::log_capture log;
        velhttpheaders *headers = vel_httpheaders_create();
        ASSERT_NE(headers, nullptr);
        ASSERT_EQ(vel_httpheaders_add(headers, "earlier", "kept"), VEL_ERROR_NONE);
        EXPECT_EQ(row.message ? vel_httpheaders_parse_from_message(headers, buffer, row.text.size())
                              : vel_httpheaders_parse(headers, buffer, row.text.size()),
                  row.result);
        EXPECT_EQ(log.take_from(kModule), row.logged);
        EXPECT_STREQ(vel_httpheaders_get(headers, "earlier"), "kept");
        for (const auto &[name, value] : row.stored)
            EXPECT_STREQ(vel_httpheaders_get(headers, name.c_str()), value.c_str()) << name;
        for (const std::string &name : row.missing)
            EXPECT_EQ(vel_httpheaders_get(headers, name.c_str()), nullptr) << name;
        vel_httpheaders_destroy(headers);
    }
};

TEST_P(VelhttpheadersParse, Terminated)
{
    check(GetParam().text.c_str());
}

/* A read behind the text is one behind the block. */
TEST_P(VelhttpheadersParse, InABlockOfItsSize)
{
    const std::string &text = GetParam().text;
    std::unique_ptr<char[]> block(new char[text.size()]);
    memcpy(block.get(), text.data(), text.size());
    check(block.get());
}

/* More of the text than the length says is there, and is not looked at. */
TEST_P(VelhttpheadersParse, FollowedByALineEnd)
{
    check((GetParam().text + "\nbehind: 1\n").c_str());
}

static const std::string kNul("\0", 1);
static const parse_case kParseCases[] = {
    {"Empty", false, "", VEL_ERROR_NONE, {}, {""}, {}},
    {"OneLine", false, "a: 1", VEL_ERROR_NONE, {{"a", "1"}}, {"behind"}, {}},
    {"EndsAtEmptyLine",
     false,
     "a: 1\r\nb: 2\r\n\r\nc: 3",
     VEL_ERROR_NONE,
     {{"a", "1"}, {"b", "2"}},
     {"c"},
     {}},
    {"Replaced", false, "A: 1\nA: 2", VEL_ERROR_NONE, {{"a", "2"}}, {}, {}},
    {"ReplacedInOtherCase", false, "A: 1\na: 2", VEL_ERROR_NONE, {{"a", "2"}}, {}, {}},
    {"NoValue", false, "x:", VEL_ERROR_NONE, {{"x", ""}}, {}, {}},
    {"NoValueLine", false, "x:\ny: 1", VEL_ERROR_NONE, {{"x", ""}, {"y", "1"}}, {}, {}},
    {"BlankValue", false, "x:   \t", VEL_ERROR_NONE, {{"x", ""}}, {}, {}},
    {"BlankValueLine", false, "x:   \t\r\ny: 1", VEL_ERROR_NONE, {{"x", ""}, {"y", "1"}}, {}, {}},
    {"NoName", false, ": v", VEL_ERROR_NONE, {{"", "v"}}, {}, {}},
    {"ColonAlone", false, ":", VEL_ERROR_NONE, {{"", ""}}, {}, {}},
    {"NameIsFolded", false, "CONTENT-type: A", VEL_ERROR_NONE, {{"content-type", "A"}}, {}, {}},
    {"NameIsNotTrimmed",
     false,
     "Name : x\n\tOther: y",
     VEL_ERROR_NONE,
     {{"name ", "x"}, {"\tother", "y"}},
     {"name", "other"},
     {}},
    {"NotFolded", false, "a: 1\r\n  b: 2", VEL_ERROR_NONE, {{"a", "1"}, {"  b", "2"}}, {"b"}, {}},
    {"ValueIsTrimmed",
     false,
     "a:1\nb: \t 2 \t \nc:\t3\nd: 4 5\t6 ",
     VEL_ERROR_NONE,
     {{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4 5\t6"}},
     {},
     {}},
    {"OtherSpaceStays", false, "a: \v1\f ", VEL_ERROR_NONE, {{"a", "\v1\f"}}, {}, {}},
    {"LaterColons",
     false,
     "a: b: c:\nd::",
     VEL_ERROR_NONE,
     {{"a", "b: c:"}, {"d", ":"}},
     {"a: b"},
     {}},
    {"LineFeeds", false, "a: 1\nb: 2\n", VEL_ERROR_NONE, {{"a", "1"}, {"b", "2"}}, {}, {}},
    {"Returns", false, "a: 1\rb: 2\r", VEL_ERROR_NONE, {{"a", "1"}, {"b", "2"}}, {}, {}},
    {"AllLineEnds",
     false,
     "a: 1\r\nb: 2\rc: 3\nd: 4",
     VEL_ERROR_NONE,
     {{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}},
     {},
     {}},
    {"FeedAndReturnEnd", false, "a: 1\n\rb: 2", VEL_ERROR_NONE, {{"a", "1"}}, {"b"}, {}},
    {"TwoFeedsEnd", false, "a: 1\n\nb: 2", VEL_ERROR_NONE, {{"a", "1"}}, {"b"}, {}},
    {"TwoReturnsEnd", false, "a: 1\r\rb: 2", VEL_ERROR_NONE, {{"a", "1"}}, {"b"}, {}},
    {"ReturnAndTwoFeedsEnd", false, "a: 1\r\n\nb: 2", VEL_ERROR_NONE, {{"a", "1"}}, {"b"}, {}},
    {"NulEnds", false, "a: 1" + kNul + "b: 2", VEL_ERROR_NONE, {{"a", "1"}}, {"b"}, {}},
    {"NulInName", false, "a" + kNul + "b: 2", VEL_ERROR_INVALID_SYNTAX, {}, {"a", "b"}, {kNoColon}},
    {"NulBehindLine", false, "a: 1\n" + kNul + "b: 2", VEL_ERROR_NONE, {{"a", "1"}}, {"b"}, {}},
    {"EmptyLineFirst", false, "\na: 1", VEL_ERROR_NONE, {}, {"a"}, {}},
    {"NulFirst", false, kNul + "a: 1", VEL_ERROR_NONE, {}, {"a"}, {}},
    {"NoColon", false, "HTTP/1.1 200 OK", VEL_ERROR_INVALID_SYNTAX, {}, {}, {kNoColon}},
    {"ColonInALaterLine",
     false,
     "HTTP/1.1 200 OK\r\na: 1",
     VEL_ERROR_INVALID_SYNTAX,
     {},
     {"a"},
     {kNoColon}},
    {"NoColonLater",
     false,
     "a: 1\r\nb\r\nc: 3",
     VEL_ERROR_INVALID_SYNTAX,
     {{"a", "1"}},
     {"b", "c"},
     {kNoColon}},
    {"BlankLineHasNoColon",
     false,
     "a: 1\r\n \r\n",
     VEL_ERROR_INVALID_SYNTAX,
     {{"a", "1"}},
     {},
     {kNoColon}},
    {"StatusLineWithColon",
     false,
     "HTTP/1.1 200 OK: x",
     VEL_ERROR_NONE,
     {{"http/1.1 200 ok", "x"}},
     {},
     {}},
    {"Message",
     true,
     "HTTP/1.1 200 OK\r\nServer: y\r\n\r\n",
     VEL_ERROR_NONE,
     {{"server", "y"}},
     {"http/1.1 200 ok"},
     {kSkipped}},
    {"MessageColonInFirstLine",
     true,
     "GET http://h/ HTTP/1.1\nServer: y",
     VEL_ERROR_NONE,
     {{"server", "y"}},
     {"get http"},
     {kSkipped}},
    {"MessageOnlyFirstLineIsSkipped",
     true,
     "a: 1\nb: 2\nc",
     VEL_ERROR_INVALID_SYNTAX,
     {{"b", "2"}},
     {"a"},
     {kSkipped, kNoColon}},
    {"MessageFirstLineAlone", true, "HTTP/1.1 200 OK", VEL_ERROR_NONE, {}, {}, {kSkipped}},
    {"MessageEmpty", true, "", VEL_ERROR_NONE, {}, {}, {}},
    {"MessageEmptyFirstLine", true, "\r\na: 1", VEL_ERROR_NONE, {}, {"a"}, {}},
    {"MessageNulFirst", true, kNul + "\na: 1", VEL_ERROR_NONE, {}, {"a"}, {}},
    {"MessageNoHeaders", true, "HTTP/1.1 200\r\n\r\na: 1", VEL_ERROR_NONE, {}, {"a"}, {kSkipped}},
    {"MessageNulEndsFirstLine",
     true,
     "HTTP" + kNul + "\na: 1",
     VEL_ERROR_NONE,
     {},
     {"a"},
     {kSkipped}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpheadersParse, testing::ValuesIn(kParseCases),
                         support::row_name());

TEST_F(Velhttpheaders, ParseStopsAtTheLengthInsideAName)
{
    EXPECT_EQ(vel_httpheaders_parse(headers, "a: 1\nbc: 2", 7), VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(vel_httpheaders_parse(headers, "a: 12", 4), VEL_ERROR_NONE);
    EXPECT_STREQ(vel_httpheaders_get(headers, "a"), "1");
    EXPECT_EQ(log.take_from(kModule), lines{kNoColon});
}

TEST_F(Velhttpheaders, ParseTakesLongLines)
{
    const std::string name(100000, 'N'), value(1000000, 'v');
    const std::string text = name + ": " + value + "\r\n";
    EXPECT_EQ(vel_httpheaders_parse(headers, text.data(), text.size()), VEL_ERROR_NONE);
    EXPECT_STREQ(vel_httpheaders_get(headers, std::string(100000, 'n').c_str()), value.c_str());
}

using VelhttpheadersMemory = Velhttpheaders;

TEST_F(VelhttpheadersMemory, Create)
{
    const auto failures = support::each_failure(log, kModule, [] {
        velhttpheaders *created = vel_httpheaders_create();
        if (created)
            vel_httpheaders_destroy(created);
        return created != nullptr;
    });
    ASSERT_EQ(failures.size(), 2u);
    EXPECT_EQ(failures[0], lines{line(7, "not enough memory for velhttpheaders structure")});
    EXPECT_EQ(failures[1], lines{line(7, "not enough memory for the response header hashtable")});
}

/* The log says what the caller says. */
TEST_F(VelhttpheadersMemory, Add)
{
    const auto failures = support::each_failure(
        log, kModule, [&] { return vel_httpheaders_add(headers, "Name", "v") == VEL_ERROR_NONE; });
    EXPECT_EQ(failures, (std::vector<lines>{
                            {line(7, "not enough memory for duplicating header name 'Name'")},
                            {line(7, "not enough memory for duplicating value 'v'")},
                            {line(7, "unable to store the header 'Name' value 'v'")},
                        }));
}

static bool add_without_value_says_null(support::log_capture &log, velhttpheaders *headers)
{
    const std::vector<lines> expected = {
        {line(7, "not enough memory for duplicating header name 'Name'")},
        {line(7, "unable to store the header 'Name' value '<NULL>'")},
    };
    return support::each_failure(log, kModule, [&] {
               return vel_httpheaders_add(headers, "Name", nullptr) == VEL_ERROR_NONE;
           }) == expected;
}

/* In a child, as the store cannot be destroyed any more. */
TEST_F(VelhttpheadersMemory, AddWithoutValue)
{
    EXPECT_EXIT(_exit(add_without_value_says_null(log, headers) ? 0 : 1),
                testing::ExitedWithCode(0), "");
}

TEST_F(VelhttpheadersMemory, FailedAddKeepsTheEarlierValue)
{
    ASSERT_EQ(vel_httpheaders_add(headers, "name", "earlier"), VEL_ERROR_NONE);
    support::each_failure(log, kModule, [&] {
        if (vel_httpheaders_add(headers, "name", "v") == VEL_ERROR_NONE)
            return true;
        support::malloc_watch pause;
        EXPECT_STREQ(vel_httpheaders_get(headers, "name"), "earlier");
        return false;
    });
    EXPECT_STREQ(vel_httpheaders_get(headers, "name"), "v");
}

TEST_F(VelhttpheadersMemory, Parse)
{
    const auto failures = support::each_failure(log, kModule, [&] {
        return vel_httpheaders_parse(headers, "Name: v\n", 8) == VEL_ERROR_NONE;
    });
    EXPECT_EQ(failures, (std::vector<lines>{
                            {line(7, "not enough memory for header name")},
                            {line(7, "not enough memory for header value")},
                            {line(7, "unable to store the header 'name' value 'v'")},
                        }));
}

TEST_F(VelhttpheadersMemory, FailedParseKeepsEarlierLines)
{
    size_t ofaline;
    {
        support::malloc_watch watch;
        ASSERT_EQ(vel_httpheaders_parse(headers, "a: 1\n", 5), VEL_ERROR_NONE);
        ofaline = watch.sizes().size();
    }
    support::warm_log(log);
    for (size_t number = 1; number <= 2 * ofaline; number++) {
        vel_httpheaders_clear(headers);
        {
            support::malloc_watch watch(number);
            EXPECT_EQ(vel_httpheaders_parse(headers, "a: 1\nb: 2\n", 10), VEL_ERROR_NO_MEMORY);
        }
        EXPECT_STREQ(vel_httpheaders_get(headers, "a"), number > ofaline ? "1" : nullptr);
        EXPECT_EQ(vel_httpheaders_get(headers, "b"), nullptr);
    }
}

TEST_F(VelhttpheadersMemory, Get)
{
    ASSERT_EQ(vel_httpheaders_add(headers, "a", "1"), VEL_ERROR_NONE);
    const auto failures = support::each_failure(
        log, kModule, [&] { return vel_httpheaders_get(headers, "A") != nullptr; });
    EXPECT_EQ(failures, (std::vector<lines>{
                            {line(7, "unable to convert the header name to lowercase")},
                        }));
}

static bool ordinary_life()
{
    static const char kMessage[] = "HTTP/1.0 200 OK\r\nServer: y\r\nDate: z\r\n\r\n";

    velhttpheaders *headers = vel_httpheaders_create();
    if (!headers)
        return false;
    const char *value = nullptr;
    const bool completed =
        vel_httpheaders_add(headers, "Name", "value") == VEL_ERROR_NONE &&
        vel_httpheaders_add(headers, "NAME", "other") == VEL_ERROR_NONE &&
        vel_httpheaders_parse(headers, "a: 1\r\nb: 2", 10) == VEL_ERROR_NONE &&
        vel_httpheaders_parse_from_message(headers, kMessage, strlen(kMessage)) == VEL_ERROR_NONE &&
        (value = vel_httpheaders_get(headers, "name")) != nullptr;
    if (completed) {
        EXPECT_STREQ(value, "other");
    }
    vel_httpheaders_clear(headers);
    vel_httpheaders_destroy(headers);
    return completed;
}

TEST(VelhttpheadersOom, OrdinaryLife)
{
    support::vel_oom_drive(ordinary_life);
}

class VelhttpheadersDeathTest : public Velhttpheaders {};

TEST_F(VelhttpheadersDeathTest, Handle)
{
    const char *const text = "velhttpheaders != NULL";
    EXPECT_DEATH(vel_httpheaders_destroy(nullptr), asserts(text, "vel_httpheaders_destroy"));
    EXPECT_DEATH(vel_httpheaders_clear(nullptr), asserts(text, "vel_httpheaders_clear"));
    EXPECT_DEATH(vel_httpheaders_add(nullptr, nullptr, nullptr),
                 asserts(text, "vel_httpheaders_add"));
    EXPECT_DEATH(vel_httpheaders_parse(nullptr, nullptr, 0),
                 asserts(text, "vel_httpheaders_parse"));
    EXPECT_DEATH(vel_httpheaders_parse_from_message(nullptr, nullptr, 0),
                 asserts(text, "vel_httpheaders_parse_from_message"));
    EXPECT_DEATH(vel_httpheaders_get(nullptr, nullptr), asserts(text, "vel_httpheaders_get"));
}

TEST_F(VelhttpheadersDeathTest, NameAndBuffer)
{
    EXPECT_DEATH(vel_httpheaders_add(headers, nullptr, "v"),
                 asserts("name != NULL", "vel_httpheaders_add"));
    EXPECT_DEATH(vel_httpheaders_get(headers, nullptr),
                 asserts("name != NULL", "vel_httpheaders_get"));
    EXPECT_DEATH(vel_httpheaders_parse(headers, nullptr, 0),
                 asserts("buffer != NULL", "vel_httpheaders_parse"));
    EXPECT_DEATH(vel_httpheaders_parse_from_message(headers, nullptr, 0),
                 asserts("buffer != NULL", "vel_httpheaders_parse_from_message"));
}

TEST_F(VelhttpheadersDeathTest, NullValueLeaves)
{
    const auto text = asserts("item != NULL", "vel_httpheaders_header_destroy");
    const auto with_null = [&] { vel_httpheaders_add(headers, "a", nullptr); };
    EXPECT_DEATH((with_null(), vel_httpheaders_destroy(headers)), text);
    EXPECT_DEATH((with_null(), vel_httpheaders_clear(headers)), text);
    EXPECT_DEATH((with_null(), vel_httpheaders_add(headers, "A", "1")), text);
}
