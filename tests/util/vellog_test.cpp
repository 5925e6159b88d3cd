#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/fdcapture.h"
#include "support/oom.h"
#include "support/rows.h"
#include "support/tempdir.h"

using support::fd_capture;
using support::read_file;

/* The clock of the log, while armed. */
static bool armed;
static int looks;
static bool noplace;
static int yearshift;
static const time_t kNow = 1800000000;

extern "C" time_t time(time_t *result) noexcept
{
    if (!armed)
        return reinterpret_cast<time_t (*)(time_t *)>(dlsym(RTLD_NEXT, "time"))(result);
    looks++;
    if (result)
        *result = kNow;
    return kNow;
}

extern "C" struct tm *localtime_r(const time_t *timep, struct tm *result) noexcept
{
    if (armed && noplace)
        return nullptr;
    reinterpret_cast<struct tm *(*)(const time_t *, struct tm *)>(dlsym(RTLD_NEXT, "localtime_r"))(
        timep, result);
    result->tm_year += armed ? yearshift : 0;
    return result;
}

/* The time stamp of every line here. */
static std::string stamp()
{
    struct tm place;
    char text[64];
    localtime_r(&kNow, &place);
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S ", &place);
    return text;
}

/* What the callback sink was given. */
struct received {
    std::string string;
    size_t length;
    int level;
    time_t when;
    bool operator==(const received &) const = default;
};

struct receiver {
    std::vector<received> messages;
    int result = 0;
};

static std::ostream &operator<<(std::ostream &out, const received &message)
{
    return out << message.string << " " << message.length << " " << message.level;
}

static int receive(const char *string, size_t length, int level, time_t when, void *context)
{
    receiver *const to = static_cast<receiver *>(context);
    to->messages.push_back({string, length, level, when});
    return to->result;
}

class Vellog : public testing::Test {
  protected:
    void SetUp() override
    {
        armed = true;
        log_ = vel_log_create();
        ASSERT_NE(log_, nullptr);
    }
    void TearDown() override
    {
        vel_log_destroy(log_);
        vel_log_uninit();
        armed = false;
        noplace = false;
    }

    support::temporary_directory directory_;
    vellog *log_ = nullptr;
};

TEST_F(Vellog, NewLogWritesToTheStandardErrorAlone)
{
    fd_capture out(STDOUT_FILENO);
    fd_capture err(STDERR_FILENO);
    const int result = vel_log(log_, 8, "%s %d", "text", 42);
    const int above = vel_log(log_, 9, "above");
    const std::string errtext = err.stop();
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(errtext, stamp() + "text 42\n");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(above, 0) << "a message that no sink wants is delivered";
    EXPECT_TRUE(std::filesystem::is_empty("."));
}

TEST_F(Vellog, RawHasNoTimeButALineFeed)
{
    fd_capture err(STDERR_FILENO);
    EXPECT_EQ(vel_log_raw(log_, 1, "%s", "text"), 0);
    EXPECT_EQ(vel_log_raw(log_, 1, "%s", ""), 0);
    EXPECT_EQ(err.stop(), "text\n\n");
}

TEST_F(Vellog, EmptyMessageIsALineOfItsOwn)
{
    fd_capture err(STDERR_FILENO);
    EXPECT_EQ(vel_log(log_, 1, "%s", ""), 0);
    EXPECT_EQ(vel_log_macro(log_, 1, "adt/velcache", 61, "%s", ""), 0);
    EXPECT_EQ(err.stop(), stamp() + "\n" + stamp() + "adt/velcache:61[1] \n");
}

/* The length goes with the message: a byte of any value is text, and a line feed is not special. */
TEST_F(Vellog, MessageIsWrittenByteByByte)
{
    fd_capture err(STDERR_FILENO);
    EXPECT_EQ(vel_log_raw(log_, 1, "a%cb\n\xff", '\0'), 0);
    EXPECT_EQ(err.stop(), std::string("a\0b\n\xff\n", 6));
}

TEST_F(Vellog, CallbackReceivesTheBareMessage)
{
    receiver to;
    vel_log_stderr_disable(log_);
    vel_log_callback_set(log_, receive, &to);
    EXPECT_EQ(vel_log(log_, 1, "off"), 0);
    EXPECT_TRUE(to.messages.empty()) << "setting does not enable";

    vel_log_callback_enable(log_);
    EXPECT_EQ(vel_log(log_, 16, "%s", "one"), 0);
    EXPECT_EQ(vel_log_raw(log_, 0, "%s", ""), 0);
    EXPECT_EQ(vel_log_macro(log_, 7, "adt/velcache", 61, "%s", "three"), 0);
    EXPECT_EQ(vel_log(log_, 17, "above its threshold"), 0);
    EXPECT_EQ(vel_log(log_, -1, "levels are signed"), 0);
    vel_log_callback_disable(log_);
    EXPECT_EQ(vel_log(log_, 1, "off again"), 0);
    EXPECT_EQ(to.messages, (std::vector<received>{{"one", 3, 16, kNow},
                                                  {"", 0, 0, kNow},
                                                  {"three", 5, 7, kNow},
                                                  {"levels are signed", 17, -1, kNow}}));
}

TEST_F(Vellog, CallbackThatFailsMakesTheDeliveryFail)
{
    for (int result : {1, -1}) {
        receiver to;
        to.result = result;
        vel_log_callback_set(log_, receive, &to);
        vel_log_callback_enable(log_);
        fd_capture err(STDERR_FILENO);
        EXPECT_EQ(vel_log(log_, 1, "text"), -1);
        EXPECT_EQ(vel_log_raw(log_, 1, "text"), -1);
        EXPECT_EQ(vel_log_macro(log_, 1, "a", 1, "text"), -1);
        vel_log_macro_set_values(log_, 1, "a", 1);
        EXPECT_EQ(vel_log_macro_format("text"), -1);
        const std::string text = err.stop();
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4) << "the others get the line";
        EXPECT_EQ(to.messages.size(), 4u);
    }
}

TEST_F(Vellog, EnabledCallbackWithoutFunctionFailsAtEveryMessage)
{
    vel_log_callback_enable(log_);
    fd_capture err(STDERR_FILENO);
    EXPECT_EQ(vel_log(log_, 1, "one"), -1);
    EXPECT_EQ(vel_log(log_, 1, "two"), -1);
    EXPECT_EQ(vel_log(log_, 17, "not served"), 0);
    EXPECT_EQ(err.stop(), stamp() + "one\n" + stamp() + "two\n");
}

/* One look at the clock, however many sinks there are. */
TEST_F(Vellog, EverySinkGetsTheSameTime)
{
    receiver to;
    vel_log_callback_set(log_, receive, &to);
    vel_log_callback_enable(log_);
    vel_log_stdout_enable(log_);
    vel_log_logfile_enable(log_);
    looks = 0;
    fd_capture out(STDOUT_FILENO);
    fd_capture err(STDERR_FILENO);
    EXPECT_EQ(vel_log(log_, 1, "text"), 0);
    const std::string line = stamp() + "text\n";
    EXPECT_EQ(err.stop(), line);
    EXPECT_EQ(out.stop(), line);
    EXPECT_EQ(read_file("veldefault.log"), line);
    EXPECT_EQ(looks, 1);
    EXPECT_EQ(to.messages, (std::vector<received>{{"text", 4, 1, kNow}}));
}

TEST_F(Vellog, YearsOfOtherThanFourDigits)
{
    const std::string rest = stamp().substr(4);
    for (const auto &[year, text] : {std::pair{9999, "9999"},
                                     {10000, "10000"},
                                     {1234567890, "1234567890"},
                                     {999, "0999"},
                                     {0, "0000"},
                                     {-1, "4294967295"}}) {
        fd_capture err(STDERR_FILENO);
        yearshift = year - 2027;
        EXPECT_EQ(vel_log(log_, 1, "text"), 0);
        yearshift = 0;
        EXPECT_EQ(err.stop(), text + rest + "text\n");
    }
}

TEST_F(Vellog, TimeWithoutPlaceIsZeroed)
{
    fd_capture err(STDERR_FILENO);
    noplace = true;
    EXPECT_EQ(vel_log(log_, 1, "text"), 0);
    noplace = false;
    EXPECT_EQ(err.stop(), "1900-01-00 00:00:00 text\n");
}

TEST_F(Vellog, FormatErrorGivesMinusOneAndDeliversNothing)
{
    receiver to;
    vel_log_callback_set(log_, receive, &to);
    vel_log_callback_enable(log_);
    vel_log_stderr_disable(log_);
    EXPECT_EQ(vel_log(log_, 1, "%ls", L"\x3b1"), -1);
    EXPECT_EQ(vel_log_raw(log_, 1, "%ls", L"\x3b1"), -1);
    EXPECT_EQ(vel_log_macro(log_, 1, "a", 1, "%ls", L"\x3b1"), -1);
    vel_log_macro_set_values(log_, 1, "a", 1);
    EXPECT_EQ(vel_log_macro_format("%ls", L"\x3b1"), -1);
    EXPECT_TRUE(to.messages.empty());
    EXPECT_EQ(vel_log(log_, 1, "text"), 0);
    EXPECT_EQ(to.messages.size(), 1u);
}

/* The sinks with a threshold that lines are read back from. */
struct sink_case {
    const char *name;
    void (*enable)(vellog *log);
    void (*disable)(vellog *log);
    void (*set_level)(vellog *log, int level);
    int threshold;
};

static const sink_case kSinks[] = {
    {"Callback", vel_log_callback_enable, vel_log_callback_disable, vel_log_callback_set_level, 16},
    {"Logfile", vel_log_logfile_enable, vel_log_logfile_disable, vel_log_logfile_set_level, 8},
    {"Stdout", vel_log_stdout_enable, vel_log_stdout_disable, vel_log_stdout_set_level, 8},
    {"Stderr", vel_log_stderr_enable, vel_log_stderr_disable, vel_log_stderr_set_level, 8},
};

class VellogSink : public Vellog, public testing::WithParamInterface<sink_case> {
  protected:
    /* Logs at every level in turn, and returns the levels that arrived. */
    std::string levels(vellog *log)
    {
        receiver to;
        vel_log_callback_set(log, receive, &to);
        std::filesystem::remove("veldefault.log");
        vel_log_logfile_recreate(log);
        fd_capture out(STDOUT_FILENO);
        fd_capture err(STDERR_FILENO);
        for (int level = 0; level <= 16; level++)
            EXPECT_EQ(vel_log_raw(log, level, "%c", 'a' + level), 0);
        std::string text = err.stop() + out.stop() + read_file("veldefault.log");
        std::erase(text, '\n');
        for (const received &message : to.messages)
            text += message.string;
        vel_log_callback_set(log, nullptr, nullptr);
        return text;
    }
};

TEST_P(VellogSink, FlagAndThreshold)
{
    const std::string all = "abcdefghijklmnopq";
    for (vellog *log : {log_, static_cast<vellog *>(nullptr)}) {
        vel_log_stderr_disable(log);
        EXPECT_EQ(levels(log), "");
        GetParam().enable(log);
        EXPECT_EQ(levels(log), all.substr(0, static_cast<size_t>(GetParam().threshold) + 1));
        for (int level : {0, 3, 16}) {
            GetParam().set_level(log, level);
            EXPECT_EQ(levels(log), all.substr(0, static_cast<size_t>(level) + 1));
        }
        GetParam().set_level(log, -1);
        EXPECT_EQ(levels(log), "");
        GetParam().set_level(log, 16);
        GetParam().disable(log);
        EXPECT_EQ(levels(log), "");
    }
}

INSTANTIATE_TEST_SUITE_P(Sinks, VellogSink, testing::ValuesIn(kSinks), support::row_name());

TEST_F(Vellog, MacroStepsWriteThePrefix)
{
    fd_capture err(STDERR_FILENO);
    vel_log_macro_mutex_lock();
    vel_log_macro_set_values(log_, 7, "adt/velhash", -12);
    EXPECT_EQ(vel_log_macro_format("%s", "own log"), 0);
    EXPECT_EQ(vel_log_macro_format("%s", "values stay"), 0);
    vel_log_macro_mutex_unlock();
    VEL_LOG_AT(nullptr, 8, "a/rather/long/path/of/a/module", 123456, "default %s", "log");
    VEL_LOG_AT(nullptr, 9, "adt/velhash", 1, "above");
    EXPECT_EQ(err.stop(), stamp() + "adt/velhash:-12[7] own log\n" + stamp() +
                              "adt/velhash:-12[7] values stay\n" + stamp() +
                              "a/rather/long/path/of/a/module:123456[8] default log\n");
}

/* Lines of the library beside printf, in buffers that are too small and in some that are not. */
template <typename... Arguments> static void expect_as_printf(const char *format, Arguments... rest)
{
    std::vector<char> expected(70000);
    const int count = snprintf(expected.data(), expected.size(), format, rest...);
    ASSERT_GE(count, 0);
    for (const int before : {0, count - 1, count, count + 1, count + 100}) {
        vellog *const log = vel_log_create();
        vel_log_stderr_disable(log);
        receiver to;
        vel_log_callback_set(log, receive, &to);
        vel_log_callback_enable(log);
        vel_log_macro_set_values(log, 8, "a", 1);
        if (before >= 0)
            vel_log_macro_format("%s", std::string(static_cast<size_t>(before), 'x').c_str());
        EXPECT_EQ(vel_log_macro_format(format, rest...), 0);
        EXPECT_EQ(to.messages.back().string, expected.data()) << format << " after " << before;
        EXPECT_EQ(to.messages.back().length, static_cast<size_t>(count));
        vel_log_destroy(log);
    }
}

TEST_F(Vellog, MacroFormatsAsPrintf)
{
    const char *const none = nullptr;
    expect_as_printf("", 1);
    expect_as_printf("text", 1);
    expect_as_printf("%s", "");
    expect_as_printf("%s", std::string(60000, 'y').c_str());
    expect_as_printf("<%s> and <%s>", none, "\xff%d%%");
    expect_as_printf("%d%d%d %d %d", 0, -1, 10, INT_MIN, INT_MAX);
    expect_as_printf("%lu %lu %lu", 0UL, ULONG_MAX, 9UL);
    expect_as_printf("%zu %zu of %zu", size_t{0}, SIZE_MAX, size_t{9});
    expect_as_printf("%s %d %lu%s", "a", 1, 2UL, "b");
    expect_as_printf("%d %% %d", 1, 2);
    expect_as_printf("%d %5d|%-5d|%05d|%+d", 1, 2, 3, 4, 5);
    expect_as_printf("%s %.2s|%5s|%-5s|%.*s", "abc", "def", "ghi", "jkl", 1, "mno");
    expect_as_printf("%d %u %x %c %ld %lld %lx %zu %hd", 1, 2U, 3U, 'c', 4L, 5LL, 6UL, size_t{7},
                     8);
    expect_as_printf("%s %p", "a", static_cast<const void *>("p"));
    expect_as_printf("%lu %f %s", 1UL, 2.5, "c");
}

TEST_F(Vellog, MacroFormatsNumbersOfEveryLength)
{
    for (unsigned long power = 1;; power *= 10) {
        for (const unsigned long number : {power - 1, power, power * 5}) {
            expect_as_printf("%lu", number);
            expect_as_printf("%d", static_cast<int>(number));
            expect_as_printf("%d", static_cast<int>(0 - number));
        }
        if (power > ULONG_MAX / 10)
            break;
    }
}

TEST_F(Vellog, PrefixesOfAllKinds)
{
    std::string expected;
    fd_capture err(STDERR_FILENO);
    for (const char *file : {"a", "", "longer/than/that", "b", "%d%s"}) {
        for (const int line : {0, -1, INT_MIN, INT_MAX, 10}) {
            vel_log_macro_set_values(log_, line % 8, file, line);
            EXPECT_EQ(vel_log_macro_format("text"), 0);
            expected += stamp() + file + ":" + std::to_string(line) + "[" +
                        std::to_string(line % 8) + "] text\n";
        }
    }
    EXPECT_EQ(err.stop(), expected);
}

TEST_F(Vellog, MacroInOneCallStoresNothing)
{
    fd_capture err(STDERR_FILENO);
    vel_log_macro_set_values(log_, 7, "adt/velhash", 12);
    EXPECT_EQ(vel_log_macro(nullptr, 8, "util/velurl", 99, "%s", "one call"), 0);
    EXPECT_EQ(vel_log_macro_format("%s", "steps"), 0);
    EXPECT_EQ(err.stop(),
              stamp() + "util/velurl:99[8] one call\n" + stamp() + "adt/velhash:12[7] steps\n");
}

TEST_F(Vellog, FirstCallMakesTheDefaultLog)
{
    fd_capture err(STDERR_FILENO);
    EXPECT_EQ(vel_log(nullptr, 1, "one"), 0);
    vel_log_uninit();
    EXPECT_EQ(vel_log_macro(nullptr, 1, "a", 2, "two"), 0);
    vel_log_uninit();
    VEL_LOG_AT(nullptr, 1, "b", 3, "three");
    vel_log_uninit();
    EXPECT_EQ(vel_log_raw(nullptr, 1, "four"), 0);
    EXPECT_EQ(err.stop(),
              stamp() + "one\n" + stamp() + "a:2[1] two\n" + stamp() + "b:3[1] three\nfour\n");
}

TEST_F(Vellog, InitIsIdempotent)
{
    EXPECT_EQ(vel_log_init(), 0);
    vel_log_stderr_disable(nullptr);
    EXPECT_EQ(vel_log_init(), 0);
    EXPECT_EQ(vel_log_init_threaded(), 0);
    EXPECT_EQ(vel_log_init_threaded(), 0);
    fd_capture err(STDERR_FILENO);
    VEL_LOG_AT(nullptr, 1, "a", 1, "off");
    EXPECT_EQ(err.stop(), "") << "the settings stay";
    vel_log_uninit();
    vel_log_uninit();
}

/* Once threaded, an own log takes its lock; the lines do not change. */
TEST_F(Vellog, ThreadedLogWritesTheSame)
{
    ASSERT_EQ(vel_log_init_threaded(), 0);
    fd_capture err(STDERR_FILENO);
    EXPECT_EQ(vel_log(log_, 1, "one"), 0);
    EXPECT_EQ(vel_log_raw(log_, 1, "two"), 0);
    EXPECT_EQ(vel_log(nullptr, 1, "three"), 0);
    VEL_LOG_AT(nullptr, 1, "a", 1, "four");
    EXPECT_EQ(vel_log(log_, 1, "%ls", L"\x3b1"), -1);
    EXPECT_EQ(vel_log(log_, 1, "the lock was released"), 0);
    EXPECT_EQ(err.stop(), stamp() + "one\ntwo\n" + stamp() + "three\n" + stamp() + "a:1[1] four\n" +
                              stamp() + "the lock was released\n");
}

/* Own logs are their owner's. */
TEST_F(Vellog, UninitLeavesOwnLogsAlone)
{
    EXPECT_EQ(vel_log_init(), 0);
    vel_log_uninit();
    fd_capture err(STDERR_FILENO);
    EXPECT_EQ(vel_log(log_, 1, "one"), 0);
    EXPECT_EQ(err.stop(), stamp() + "one\n");
}

TEST_F(Vellog, LockStepsAreHarmlessWithoutALock)
{
    vel_log_macro_mutex_lock();
    vel_log_macro_mutex_unlock();
    EXPECT_EQ(vel_log_init(), 0);
    vel_log_macro_mutex_lock();
    vel_log_macro_mutex_lock();
    vel_log_macro_mutex_unlock();
}

TEST(VellogDeathTest, ArgumentsAreAsserted)
{
    EXPECT_DEATH(vel_log_destroy(nullptr), support::asserts("vellog != NULL", "vel_log_destroy"));
    EXPECT_DEATH(vel_log_syslog_map(nullptr, 1, 1),
                 support::asserts("vellog != NULL", "vel_log_syslog_map"));
    EXPECT_DEATH(vel_log_macro(nullptr, 1, nullptr, 1, "text"),
                 support::asserts("file != NULL", "vel_log_macro"));
}

static bool log_life()
{
    receiver to;
    vellog *log = vel_log_create();
    if (!log)
        return false;
    vel_log_stderr_disable(log);
    vel_log_callback_set(log, receive, &to);
    vel_log_callback_enable(log);
    const bool complete =
        vel_log_init_threaded() == 0 && vel_log_logfile_set_name(log, "life.log") == 0 &&
        vel_log(log, 1, "%s", "text") == 0 && vel_log_raw(log, 1, "%s", "a longer text") == 0 &&
        vel_log_macro(log, 1, "adt/velcache", 1, "%s", "an even longer text") == 0 &&
        (vel_log_macro_set_values(log, 1, "adt/velcache", 1), true) &&
        vel_log_macro_format("%s", "the longest text of all of them") == 0 &&
        vel_log(nullptr, 9, "%s", "default log") == 0 && to.messages.size() == 4;
    vel_log_destroy(log);
    vel_log_uninit();
    return complete;
}

TEST(VellogMemory, EveryAllocationMayFail)
{
    EXPECT_GT(support::vel_oom_drive(log_life), 10u);
}
