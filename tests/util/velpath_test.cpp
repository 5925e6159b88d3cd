#include <vellib/velpath.h>

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/veldir.h>
#include <vellib/velmalloc.h>

#include "support/assertion.h"
#include "support/eachfailure.h"
#include "support/oom.h"
#include "support/rows.h"

using support::log_line;

using log_lines = std::vector<log_line>;

static const char kModule[] = "util/velpath";

class Velpath : public testing::Test {
  protected:
    Velpath()
    {
        EXPECT_NE(path_, nullptr);
    }
    ~Velpath() override
    {
        vel_path_destroy(path_);
    }
    void append(const std::vector<const char *> &names)
    {
        for (const char *name : names)
            EXPECT_EQ(vel_path_append(path_, name), 0);
    }
    std::string get()
    {
        char *copy = vel_path_get(path_);
        EXPECT_NE(copy, nullptr);
        const std::string text(copy ? copy : "");
        EXPECT_NE(copy, vel_path_peek(path_));
        EXPECT_STREQ(vel_path_peek(path_), text.c_str());
        vel_free(copy);
        return text;
    }

    support::log_capture log_;
    velpath *path_ = vel_path_create();
};

TEST_F(Velpath, EmptyIsEmptyString)
{
    EXPECT_STREQ(vel_path_peek(path_), "");
    EXPECT_EQ(get(), "");
    EXPECT_EQ(log_.take(), log_lines());
}

TEST_F(Velpath, NamesWithSeparators)
{
    append({"a"});
    EXPECT_EQ(get(), "a");
    append({"b", "c"});
    EXPECT_EQ(get(), "a/b/c");
    EXPECT_EQ(vel_dir_separator(), '/');
    EXPECT_EQ(log_.take(), log_lines());
}

TEST_F(Velpath, AnythingButASlashIsAName)
{
    append({"..", ".", " ", "\\", "%s", "\xc3\xa4\xff\n"});
    EXPECT_EQ(get(), ".././ /\\/%s/\xc3\xa4\xff\n");
}

TEST_F(Velpath, NameIsCopied)
{
    char name[] = "one";
    append({name, name});
    name[0] = 'x';
    EXPECT_EQ(get(), "one/one");
}

TEST_F(Velpath, PeekIsRenderedOnce)
{
    append({"a"});
    const char *first = vel_path_peek(path_);
    EXPECT_EQ(vel_path_peek(path_), first);
    char *copy = vel_path_get(path_);
    EXPECT_EQ(vel_path_peek(path_), first);
    vel_free(copy);
    append({"b"});
    EXPECT_STREQ(vel_path_peek(path_), "a/b");
}

/* A get is what renders the path, if nothing did. */
TEST_F(Velpath, PeekAfterGet)
{
    append({"a", "b"});
    char *copy = vel_path_get(path_);
    EXPECT_STREQ(copy, "a/b");
    EXPECT_STREQ(vel_path_peek(path_), "a/b");
    vel_free(copy);
}

TEST_F(Velpath, Clear)
{
    vel_path_clear(path_);
    append({"a", "b"});
    EXPECT_EQ(get(), "a/b");
    vel_path_clear(path_);
    EXPECT_EQ(get(), "");
    append({"c"});
    EXPECT_EQ(get(), "c");
    EXPECT_EQ(log_.take(), log_lines());
}

TEST_F(Velpath, RemoveLast)
{
    append({"a", "b"});
    EXPECT_EQ(get(), "a/b");
    EXPECT_EQ(vel_path_remove_last(path_), 0);
    EXPECT_EQ(get(), "a");
    append({"c"});
    EXPECT_EQ(get(), "a/c");
    EXPECT_EQ(vel_path_remove_last(path_), 0);
    EXPECT_EQ(vel_path_remove_last(path_), 0);
    EXPECT_EQ(get(), "");
    EXPECT_EQ(log_.take(), log_lines());
    EXPECT_EQ(vel_path_remove_last(path_), -1);
    EXPECT_EQ(log_.take(),
              (log_lines{{kModule, 6, "the path is empty, unable to remove the last item"}}));
    EXPECT_EQ(get(), "");
}

struct refused_case {
    const char *name;
    const char *component;
    const char *message;
};

static std::ostream &operator<<(std::ostream &out, const refused_case &row)
{
    return out << row.name;
}

static const refused_case kRefusedCases[] = {
    {"Empty", "", "path component cannot be empty"},
    {"Slash", "/", "path component '/' must not contain a slash"},
    {"LeadingSlash", "/a", "path component '/a' must not contain a slash"},
    {"SlashWithin", "a/b", "path component 'a/b' must not contain a slash"},
    {"SlashAtTheEnd", "a/", "path component 'a/' must not contain a slash"},
    {"Percent", "%s/%n", "path component '%s/%n' must not contain a slash"},
};

class VelpathRefused : public Velpath, public testing::WithParamInterface<refused_case> {};
INSTANTIATE_TEST_SUITE_P(, VelpathRefused, testing::ValuesIn(kRefusedCases), support::row_name());

TEST_P(VelpathRefused, LeavesThePath)
{
    append({"x", "y"});
    const char *rendered = vel_path_peek(path_);
    EXPECT_EQ(vel_path_append(path_, GetParam().component), -1);
    EXPECT_EQ(log_.take(), (log_lines{{kModule, 6, GetParam().message}}));
    EXPECT_EQ(vel_path_peek(path_), rendered);
    EXPECT_EQ(get(), "x/y");
}

TEST_F(Velpath, RandomSteps)
{
    std::mt19937 random(1);
    const auto below = [&](size_t limit) {
        return std::uniform_int_distribution<size_t>(0, limit - 1)(random);
    };
    std::vector<std::string> names;
    for (int i = 0; i < 3000; i++) {
        if (below(3)) {
            names.push_back(std::string(1 + below(below(20) ? 8 : 3000), "abc."[below(4)]));
            ASSERT_EQ(vel_path_append(path_, names.back().c_str()), 0);
        } else if (below(100) == 0) {
            names.clear();
            vel_path_clear(path_);
        } else {
            ASSERT_EQ(vel_path_remove_last(path_), names.empty() ? -1 : 0);
            if (!names.empty())
                names.pop_back();
        }
        std::string expected;
        for (const std::string &name : names)
            expected += (expected.empty() ? "" : "/") + name;
        ASSERT_STREQ(vel_path_peek(path_), expected.c_str());
    }
}

static log_lines without_memory(const char *what)
{
    return {{kModule, 7, std::string("not enough memory for ") + what}};
}

TEST(VelpathMemory, Create)
{
    support::log_capture log;
    const auto failures = support::each_failure(log, kModule, [] {
        velpath *path = vel_path_create();
        if (!path)
            return false;
        vel_path_destroy(path);
        return true;
    });
    EXPECT_EQ(failures, (std::vector<log_lines>{without_memory("velpath context"),
                                                without_memory("velpath list")}));
}

TEST_F(Velpath, AppendWithoutMemory)
{
    append({"a"});
    EXPECT_EQ(get(), "a");
    const char *rendered = vel_path_peek(path_);
    const auto failures = support::each_failure(log_, kModule, [&] {
        if (vel_path_append(path_, "b") == 0)
            return true;
        EXPECT_EQ(vel_path_peek(path_), rendered);
        return false;
    });
    EXPECT_EQ(failures, (std::vector<log_lines>{without_memory("path item"),
                                                without_memory("path item name")}));
    EXPECT_EQ(get(), "a/b");
}

TEST_F(Velpath, PeekWithoutMemory)
{
    for (const char *name : {"", "a", "b"}) {
        if (*name)
            append({name});
        const auto failures =
            support::each_failure(log_, kModule, [&] { return vel_path_peek(path_) != nullptr; });
        EXPECT_EQ(failures, (std::vector<log_lines>{without_memory("rendering the path")}));
    }
    EXPECT_EQ(get(), "a/b");
}

TEST_F(Velpath, GetWithoutMemory)
{
    append({"a", "b"});
    const auto get = [&] {
        char *copy = vel_path_get(path_);
        if (!copy)
            return false;
        EXPECT_STREQ(copy, "a/b");
        vel_free(copy);
        return true;
    };
    log_.clear();
    {
        support::malloc_watch watch(1, 1);
        EXPECT_FALSE(get());
    }
    EXPECT_EQ(log_.take(), without_memory("rendering the path"));
    vel_path_peek(path_);
    {
        support::malloc_watch watch(1, 1);
        EXPECT_FALSE(get());
    }
    EXPECT_EQ(log_.take(), without_memory("making a duplicate of the path"));
    EXPECT_TRUE(get());
}

/* No memory is wanted to take something away. */
TEST_F(Velpath, RemovingDoesNotAllocate)
{
    append({"a", "b", "c"});
    support::malloc_watch watch(1, 1000);
    EXPECT_EQ(vel_path_remove_last(path_), 0);
    vel_path_clear(path_);
    EXPECT_EQ(support::malloc_watch::count(), 0u);
}

static bool use_path()
{
    velpath *path = vel_path_create();
    if (!path)
        return false;
    char *copy = nullptr;
    const bool done = vel_path_append(path, "a") == 0 && vel_path_append(path, "b") == 0 &&
                      vel_path_peek(path) && (copy = vel_path_get(path)) &&
                      vel_path_remove_last(path) == 0 && vel_path_peek(path);
    if (done) {
        EXPECT_STREQ(copy, "a/b");
        EXPECT_STREQ(vel_path_peek(path), "a");
        vel_path_clear(path);
    }
    vel_free(copy);
    vel_path_destroy(path);
    return done;
}

TEST(VelpathFailures, EachAllocation)
{
    EXPECT_GE(support::vel_oom_drive(use_path), 6u);
}

TEST(VelpathDeathTest, Handle)
{
    const testing::Matcher<const std::string &> asserts = support::asserts("velpath != NULL");
    EXPECT_DEATH(vel_path_destroy(nullptr), asserts);
    EXPECT_DEATH((void)vel_path_append(nullptr, nullptr), asserts);
    EXPECT_DEATH((void)vel_path_get(nullptr), asserts);
    EXPECT_DEATH((void)vel_path_peek(nullptr), asserts);
    EXPECT_DEATH(vel_path_clear(nullptr), asserts);
    EXPECT_DEATH((void)vel_path_remove_last(nullptr), asserts);
}

TEST(VelpathDeathTest, Name)
{
    velpath *path = vel_path_create();
    EXPECT_DEATH((void)vel_path_append(path, nullptr), support::asserts("name != NULL"));
    vel_path_destroy(path);
}
