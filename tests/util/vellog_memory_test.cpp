#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <vellib/vellib.h>

#include "support/fdcapture.h"
#include "support/platform_malloc.h"
#include "support/rows.h"
#include "support/tempdir.h"

using support::malloc_watch;
typedef std::vector<size_t> sizes;

static std::vector<std::string> messages;

static int keep(const char *string, size_t, int, time_t, void *)
{
    messages.push_back(string);
    return 0;
}

/* The callback sink alone, which allocates nothing. */
class VellogMemory : public testing::Test {
  protected:
    void SetUp() override
    {
        messages.clear();
        log_ = vel_log_create();
        ASSERT_NE(log_, nullptr);
        quiet(log_);
    }
    void TearDown() override
    {
        vel_log_destroy(log_);
        vel_log_uninit();
    }

    static void quiet(vellog *log)
    {
        vel_log_stderr_disable(log);
        vel_log_callback_set(log, keep, nullptr);
        vel_log_callback_enable(log);
    }

    vellog *log_ = nullptr;
};

/* The four ways to log a message of a given text. */
struct logging {
    const char *name;
    int (*log)(vellog *log, const std::string &text);
    bool prefixed; /* with "a:1[1]" */
};

static const logging kLoggings[] = {
    {"Log",
     [](vellog *log, const std::string &text) { return vel_log(log, 1, "%s", text.c_str()); },
     false},
    {"Raw",
     [](vellog *log, const std::string &text) { return vel_log_raw(log, 1, "%s", text.c_str()); },
     false},
    {"Macro",
     [](vellog *log, const std::string &text) {
         return vel_log_macro(log, 1, "a", 1, "%s", text.c_str());
     },
     true},
    {"MacroSteps",
     [](vellog *log, const std::string &text) {
         vel_log_macro_set_values(log, 1, "a", 1);
         return vel_log_macro_format("%s", text.c_str());
     },
     true},
};

class VellogBuffer : public VellogMemory, public testing::WithParamInterface<logging> {
  protected:
    sizes with_prefix(const sizes &buffers)
    {
        sizes all = buffers;
        if (GetParam().prefixed)
            all.insert(all.begin(), 7);
        return all;
    }
};

INSTANTIATE_TEST_SUITE_P(Ways, VellogBuffer, testing::ValuesIn(kLoggings), support::row_name());

TEST_P(VellogBuffer, GrowsToTheExactSizeAndIsReused)
{
    EXPECT_EQ(vel_log_init(), 0); /* the steps make it */
    malloc_watch watch;
    for (size_t length : {0, 3, 2, 0, 3, 4, 100000, 99999, 5, 100001})
        EXPECT_EQ(GetParam().log(log_, std::string(length, 'x')), 0);
    EXPECT_EQ(watch.sizes(), with_prefix({1, 4, 5, 100001, 100002}));
    ASSERT_EQ(messages.size(), 10u);
    EXPECT_EQ(messages[1], "xxx");
    EXPECT_EQ(messages[2], "xx");
    EXPECT_EQ(messages[9], std::string(100001, 'x'));
}

TEST_P(VellogBuffer, NoMemoryDeliversNothingAndTheNextMessageTriesAgain)
{
    EXPECT_EQ(vel_log_init(), 0);
    EXPECT_EQ(GetParam().log(log_, "first"), 0);
    {
        malloc_watch watch(1);
        EXPECT_EQ(GetParam().log(log_, "longer than that"), -1);
        EXPECT_EQ(watch.sizes(), sizes{17});
    }
    malloc_watch watch;
    EXPECT_EQ(GetParam().log(log_, "abc"), 0);
    EXPECT_EQ(watch.sizes(), sizes{4}) << "the old buffer was freed and its size forgotten";
    EXPECT_EQ(messages, (std::vector<std::string>{"first", "abc"}));
}

TEST_P(VellogBuffer, NoMemoryAtAllIsNoError)
{
    EXPECT_EQ(vel_log_init(), 0);
    malloc_watch watch(1, 1000);
    EXPECT_EQ(GetParam().log(log_, "text"), -1);
    EXPECT_TRUE(messages.empty());
}

TEST_P(VellogBuffer, NoMemoryForTheDefaultLog)
{
    for (size_t last : {1, 2}) {
        malloc_watch watch(last, 1000);
        EXPECT_EQ(GetParam().log(nullptr, "text"), -1);
    }
    quiet(nullptr);
    EXPECT_EQ(GetParam().log(nullptr, "text"), 0);
    EXPECT_EQ(messages, std::vector<std::string>{"text"});
}

static const logging kPrefixed[] = {kLoggings[2], kLoggings[3]};

class VellogPrefix : public VellogMemory, public testing::WithParamInterface<logging> {};

INSTANTIATE_TEST_SUITE_P(Ways, VellogPrefix, testing::ValuesIn(kPrefixed), support::row_name());

TEST_P(VellogPrefix, NoMemoryLeavesItOut)
{
    EXPECT_EQ(vel_log_init(), 0);
    vel_log_stderr_enable(log_);
    EXPECT_EQ(vel_log(log_, 9, "a large enough buffer"), 0);

    support::fd_capture err(STDERR_FILENO);
    int failed = 0;
    {
        malloc_watch watch(1);
        failed = GetParam().log(log_, "one");
    }
    const int next = GetParam().log(log_, "two");
    EXPECT_THAT(err.stop(), testing::MatchesRegex("[0-9-]+ [0-9:]+ one\n"
                                                  "[0-9-]+ [0-9:]+ a:1\\[1\\] two\n"));
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(next, 0);
}

TEST_F(VellogMemory, PrefixGrowsToTheExactSizeAndIsReused)
{
    EXPECT_EQ(vel_log_init(), 0); /* the steps make it */
    EXPECT_EQ(vel_log(log_, 9, "a large enough buffer"), 0);
    malloc_watch watch;
    for (const char *file : {"abc", "ab", "abcd", "", "abcd"}) {
        EXPECT_EQ(vel_log_macro(log_, 1, file, 1, "text"), 0);
        vel_log_macro_set_values(log_, 1, file, 1);
        EXPECT_EQ(vel_log_macro_format("text"), 0);
    }
    EXPECT_EQ(watch.sizes(), (sizes{9, 10}));
}

TEST_F(VellogMemory, CreateFails)
{
    malloc_watch watch(1);
    EXPECT_EQ(vel_log_create(), nullptr);
}

TEST_F(VellogMemory, InitFailsAndCanBeTriedAgain)
{
    for (size_t failing : {1, 2}) {
        malloc_watch watch(failing);
        EXPECT_EQ(vel_log_init(), -1);
        EXPECT_EQ(watch.sizes().size(), failing) << "nothing more is tried";
    }
    EXPECT_EQ(vel_log_init(), 0);
    malloc_watch watch;
    EXPECT_EQ(vel_log_init(), 0);
    EXPECT_EQ(watch.sizes(), sizes{});
}

TEST_F(VellogMemory, InitThreadedFailsAndTheDefaultLogRemains)
{
    for (size_t failing : {1, 2}) {
        malloc_watch watch(failing);
        EXPECT_EQ(vel_log_init_threaded(), -1);
    }
    {
        malloc_watch watch(3);
        EXPECT_EQ(vel_log_init_threaded(), -1);
    }
    {
        malloc_watch watch;
        EXPECT_EQ(vel_log_init(), 0);
        EXPECT_EQ(watch.sizes(), sizes{});
    }
    malloc_watch watch;
    EXPECT_EQ(vel_log_init_threaded(), 0);
    EXPECT_EQ(watch.sizes().size(), 1u) << "the lock alone";
    EXPECT_EQ(vel_log_init_threaded(), 0);
    EXPECT_EQ(watch.sizes().size(), 1u);
}

TEST_F(VellogMemory, OwnLockIsMadeAtTheFirstThreadedMessage)
{
    ASSERT_EQ(vel_log_init_threaded(), 0);
    EXPECT_EQ(vel_log_macro(log_, 1, "a", 1, "a large enough buffer"), 0);
    malloc_watch watch;
    EXPECT_EQ(vel_log_macro(log_, 1, "a", 1, "text"), 0);
    EXPECT_EQ(watch.sizes(), sizes{}) << "the macro takes no lock of the log";
    EXPECT_EQ(vel_log(log_, 1, "text"), 0);
    EXPECT_EQ(watch.sizes().size(), 1u);
    EXPECT_EQ(vel_log_raw(log_, 1, "text"), 0);
    EXPECT_EQ(watch.sizes().size(), 1u);
}

TEST_F(VellogMemory, WithoutLockTheMessageGoesOut)
{
    ASSERT_EQ(vel_log_init_threaded(), 0);
    EXPECT_EQ(vel_log_macro(log_, 1, "a", 1, "a large enough buffer"), 0);
    messages.clear();
    {
        malloc_watch watch(1);
        EXPECT_EQ(vel_log(log_, 1, "one"), 0);
        EXPECT_EQ(watch.sizes().size(), 1u);
    }
    malloc_watch watch;
    EXPECT_EQ(vel_log(log_, 1, "two"), 0);
    EXPECT_EQ(watch.sizes().size(), 1u) << "tried again";
    EXPECT_EQ(messages, (std::vector<std::string>{"one", "two"}));
}

TEST_F(VellogMemory, LogfileNameFailsAndTheOldStateStays)
{
    support::temporary_directory directory;
    EXPECT_EQ(vel_log_logfile_set_name(log_, "first.log"), 0);
    vel_log_logfile_enable(log_);
    EXPECT_EQ(vel_log_raw(log_, 1, "one"), 0);
    std::filesystem::rename("first.log", "moved.log");
    {
        malloc_watch watch(1);
        EXPECT_EQ(vel_log_logfile_set_name(log_, "second.log"), -1);
    }
    EXPECT_EQ(vel_log_raw(log_, 1, "two"), 0);
    EXPECT_EQ(support::read_file("moved.log"), "one\ntwo\n") << "the stream";
    EXPECT_EQ(vel_log_logfile_recreate(log_), 0);
    EXPECT_EQ(vel_log_raw(log_, 1, "three"), 0);
    EXPECT_EQ(support::read_file("first.log"), "three\n") << "the name";
    vel_log_logfile_disable(log_);
    vel_log_logfile_set_filehandle(log_, nullptr);
}

/* Every setter finds no log to set. */
TEST_F(VellogMemory, SettersDoNothingWithoutTheDefaultLog)
{
    support::temporary_directory directory;
    {
        malloc_watch watch(1, 1000);
        vel_log_callback_set(nullptr, keep, nullptr);
        vel_log_callback_enable(nullptr);
        vel_log_callback_disable(nullptr);
        vel_log_callback_set_level(nullptr, 0);
        EXPECT_EQ(vel_log_logfile_set_name(nullptr, "some.log"), -1);
        vel_log_logfile_enable(nullptr);
        EXPECT_EQ(vel_log_logfile_recreate(nullptr), 0);
        vel_log_logfile_disable(nullptr);
        vel_log_logfile_set_level(nullptr, 0);
        vel_log_stdout_enable(nullptr);
        vel_log_stdout_disable(nullptr);
        vel_log_stdout_set_level(nullptr, 0);
        vel_log_stderr_enable(nullptr);
        vel_log_stderr_disable(nullptr);
        vel_log_stderr_set_level(nullptr, 0);
        vel_log_syslog_enable(nullptr);
        vel_log_syslog_disable(nullptr);
        vel_log_syslog_set_level(nullptr, 0);
        vel_log_syslog_set_facility(nullptr, 0);
        vel_log_macro_set_values(nullptr, 1, "a", 1);
        EXPECT_EQ(vel_log_macro_format("text"), -1);
        EXPECT_GE(watch.sizes().size(), 21u) << "each tried to make it";
    }
    support::fd_capture err(STDERR_FILENO);
    EXPECT_EQ(vel_log_raw(nullptr, 8, "text"), 0);
    EXPECT_EQ(err.stop(), "text\n") << "the defaults";
    EXPECT_TRUE(std::filesystem::is_empty("."));
}
