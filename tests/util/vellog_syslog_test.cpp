#include <cstdarg>
#include <cstdio>
#include <string>
#include <syslog.h>
#include <vector>

#include <gmock/gmock.h>

#include <vellib/vellib.h>

#include "support/platform_malloc.h"
#include "support/rows.h"

struct syslog_line {
    int priority;
    std::string text;
    bool operator==(const syslog_line &) const = default;
};

static std::ostream &operator<<(std::ostream &out, const syslog_line &line)
{
    return out << line.priority << " " << line.text;
}

static std::vector<syslog_line> lines;
static int opened;
static std::vector<std::string> order; /* of the sinks */

extern "C" void openlog(const char *, int, int)
{
    opened++;
}

extern "C" void syslog(int priority, const char *format, ...)
{
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    lines.push_back({priority, text});
    order.push_back("syslog");
}

/* The syslog sink alone. */
class VellogSyslog : public testing::Test {
  protected:
    void SetUp() override
    {
        lines.clear();
        log_ = vel_log_create();
        ASSERT_NE(log_, nullptr);
        vel_log_stderr_disable(log_);
        vel_log_syslog_enable(log_);
    }
    void TearDown() override
    {
        vel_log_destroy(log_);
        vel_log_uninit();
    }

    vellog *log_ = nullptr;
};

static const int kPriorities[] = {
    LOG_DEBUG, LOG_EMERG,   LOG_EMERG,   LOG_ALERT,  LOG_CRIT,  LOG_ERR,
    LOG_ERR,   LOG_WARNING, LOG_WARNING, LOG_NOTICE, LOG_INFO,  LOG_NOTICE,
    LOG_INFO,  LOG_DEBUG,   LOG_DEBUG,   LOG_DEBUG,  LOG_DEBUG,
};

TEST_F(VellogSyslog, EveryLevelHasItsPriority)
{
    vel_log_syslog_set_level(log_, 16);
    std::vector<syslog_line> expected;
    for (int level = 0; level <= 16; level++) {
        EXPECT_EQ(vel_log(log_, level, "%d", level), 0);
        expected.push_back({kPriorities[level] | LOG_USER, std::to_string(level)});
    }
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(opened, 0) << "the identity is the host's";
}

/* The map has no entry for these; the nearest level counts. */
TEST_F(VellogSyslog, LevelOutsideTheMap)
{
    vel_log_syslog_set_level(log_, 100);
    EXPECT_EQ(vel_log_syslog_map(log_, 16, LOG_INFO), 0);
    EXPECT_EQ(vel_log(log_, -1, "below"), 0);
    EXPECT_EQ(vel_log(log_, 17, "above"), 0);
    EXPECT_EQ(lines, (std::vector<syslog_line>{{LOG_USER | LOG_DEBUG, "below"},
                                               {LOG_USER | LOG_INFO, "above"}}));
}

TEST_F(VellogSyslog, FlagAndThreshold)
{
    EXPECT_EQ(vel_log(log_, 8, "one"), 0);
    EXPECT_EQ(vel_log(log_, 9, "above"), 0);
    vel_log_syslog_set_level(log_, 3);
    EXPECT_EQ(vel_log(log_, 4, "above"), 0);
    EXPECT_EQ(vel_log(log_, 3, "two"), 0);
    vel_log_syslog_disable(log_);
    EXPECT_EQ(vel_log(log_, 3, "off"), 0);
    EXPECT_EQ(lines, (std::vector<syslog_line>{{LOG_USER | LOG_WARNING, "one"},
                                               {LOG_USER | LOG_ALERT, "two"}}));
}

TEST_F(VellogSyslog, NullSetsUpTheDefaultLog)
{
    vel_log_stderr_disable(nullptr);
    vel_log_syslog_enable(nullptr);
    vel_log_syslog_set_facility(nullptr, LOG_DAEMON);
    vel_log_syslog_set_level(nullptr, 6);
    VEL_LOG_AT(nullptr, 7, "a", 1, "above");
    VEL_LOG_AT(nullptr, 6, "a", 2, "one");
    vel_log_syslog_disable(nullptr);
    VEL_LOG_AT(nullptr, 6, "a", 3, "off");
    EXPECT_EQ(lines, (std::vector<syslog_line>{{LOG_DAEMON | LOG_ERR, "a:2[6] one"}}));
}

TEST_F(VellogSyslog, TextHasThePrefixButNoTime)
{
    vel_log_syslog_set_facility(log_, LOG_LOCAL3);
    EXPECT_EQ(vel_log(log_, 7, "plain %%s"), 0);
    EXPECT_EQ(vel_log_raw(log_, 7, "raw"), 0);
    EXPECT_EQ(vel_log_macro(log_, 7, "adt/velcache", 61, "%s", "prefix %n"), 0);
    EXPECT_EQ(vel_log_raw(log_, 7, "%s", ""), 0);
    const int priority = LOG_LOCAL3 | LOG_WARNING;
    EXPECT_EQ(lines, (std::vector<syslog_line>{{priority, "plain %s"},
                                               {priority, "raw"},
                                               {priority, "adt/velcache:61[7] prefix %n"},
                                               {priority, ""}}));
}

struct map_case {
    const char *name;
    int level;
    int result;
};

static const map_case kMapCases[] = {
    {"Below", -1, -1}, {"Lowest", 0, 0},          {"Highest", 16, 0},
    {"Above", 17, -1}, {"FarAbove", 1000000, -1},
};

class VellogSyslogMap : public VellogSyslog, public testing::WithParamInterface<map_case> {};

TEST_P(VellogSyslogMap, ChangesItsLevelAlone)
{
    const int marked = LOG_CRIT | LOG_LOCAL7;
    vel_log_syslog_set_level(log_, 16);
    EXPECT_EQ(vel_log_syslog_map(log_, GetParam().level, marked), GetParam().result);
    for (int level = 0; level <= 16; level++)
        EXPECT_EQ(vel_log(log_, level, "text"), 0);
    ASSERT_EQ(lines.size(), 17u);
    for (int level = 0; level <= 16; level++) {
        const bool changed = level == GetParam().level;
        EXPECT_EQ(lines[static_cast<size_t>(level)].priority,
                  (changed ? marked : kPriorities[level]) | LOG_USER);
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, VellogSyslogMap, testing::ValuesIn(kMapCases), support::row_name());

/* The buffers are large enough after the first message, so that the sink alone allocates. */
TEST_F(VellogSyslog, NoMemoryForTheString)
{
    EXPECT_EQ(vel_log_macro(log_, 7, "a", 1, "some text"), 0);
    support::malloc_watch watch(1);
    EXPECT_EQ(vel_log_macro(log_, 5, "a", 2, "some text"), 0);
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{10});
    EXPECT_EQ(lines.back(),
              (syslog_line{LOG_USER | LOG_ERR, "not enough memory for logging string"}));
    EXPECT_EQ(lines.size(), 2u);
}

TEST_F(VellogSyslog, NoMemoryForThePrefix)
{
    EXPECT_EQ(vel_log_macro(log_, 7, "a", 1, "some text"), 0);
    support::malloc_watch watch(2);
    EXPECT_EQ(vel_log_macro(log_, 5, "a", 2, "some text"), 0);
    EXPECT_EQ(watch.sizes(), (std::vector<size_t>{10, 17}));
    EXPECT_EQ(lines.back(),
              (syslog_line{LOG_USER | LOG_ERR, "<not enough memory for prefix> some text"}));
    EXPECT_EQ(lines.size(), 2u);
}

static int note_callback(const char *, size_t, int, time_t, void *)
{
    order.push_back("callback");
    return 0;
}

static ssize_t note_stream(void *context, const char *, size_t size)
{
    order.push_back(static_cast<const char *>(context));
    return static_cast<ssize_t>(size);
}

/* A stream that says its name at each flush. */
static FILE *open_noting(const char *name)
{
    static char buffers[3][BUFSIZ];
    static size_t next;
    FILE *const stream =
        fopencookie(const_cast<char *>(name), "w", {nullptr, note_stream, nullptr, nullptr});
    setvbuf(stream, buffers[next++ % 3], _IOFBF, BUFSIZ);
    return stream;
}

TEST_F(VellogSyslog, SinksAreServedInOrder)
{
    vel_log_callback_set(log_, note_callback, nullptr);
    vel_log_callback_enable(log_);
    vel_log_logfile_set_filehandle(log_, open_noting("file"));
    vel_log_logfile_enable(log_);
    vel_log_stdout_enable(log_);
    vel_log_stderr_enable(log_);

    FILE *const savedout = stdout;
    FILE *const savederr = stderr;
    stdout = open_noting("stdout");
    stderr = open_noting("stderr");
    order.clear();
    const int result = vel_log_macro(log_, 1, "adt/velcache", 61, "text");
    const std::vector<std::string> seen = order;
    fclose(stdout);
    fclose(stderr);
    stdout = savedout;
    stderr = savederr;

    EXPECT_EQ(result, 0);
    EXPECT_EQ(seen, (std::vector<std::string>{"callback", "file", "stdout", "stderr", "syslog"}));
}
