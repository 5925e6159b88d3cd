#include <cstdio>
#include <cstring>
#include <string>

#include <gmock/gmock.h>

#include <vellib/vellib.h>

#include "support/fdcapture.h"
#include "support/tempdir.h"

using support::read_file;
using support::write_file;

static const char kDefault[] = "veldefault.log";

/* A stream that says when it is closed, and that can refuse its first bytes. */
struct cookie {
    std::string text;
    int refusals = 0;
    bool closed = false;
};

static ssize_t write_cookie(void *context, const char *buffer, size_t size)
{
    cookie *const to = static_cast<cookie *>(context);
    if (to->refusals > 0) {
        to->refusals--;
        errno = EIO;
        return 0;
    }
    to->text.append(buffer, size);
    return static_cast<ssize_t>(size);
}

static int close_cookie(void *context)
{
    static_cast<cookie *>(context)->closed = true;
    return 0;
}

static FILE *open_cookie(cookie *to)
{
    FILE *const stream = fopencookie(to, "w", {nullptr, write_cookie, nullptr, close_cookie});
    setvbuf(stream, nullptr, _IONBF, 0);
    return stream;
}

/* The log file sink, alone and without time stamps, in an empty directory. */
class VellogFile : public testing::Test {
  protected:
    void SetUp() override
    {
        log_ = vel_log_create();
        ASSERT_NE(log_, nullptr);
        vel_log_stderr_disable(log_);
    }
    void TearDown() override
    {
        if (log_)
            vel_log_destroy(log_);
        vel_log_uninit();
    }

    support::temporary_directory directory_;
    vellog *log_ = nullptr;
    cookie cookies_[3]; /* the log closes its stream after the test */
};

static bool exists(const char *name)
{
    return std::filesystem::exists(name);
}

TEST_F(VellogFile, DefaultNameIsOpenedByTheFirstMessageAndAppendedTo)
{
    write_file(kDefault, "before\n");
    vel_log_logfile_enable(log_);
    EXPECT_EQ(vel_log_raw(log_, 8, "one"), 0);
    EXPECT_EQ(read_file(kDefault), "before\none\n") << "flushed";
    EXPECT_EQ(vel_log_raw(log_, 9, "above"), 0);
    EXPECT_EQ(vel_log_raw(log_, 1, "two"), 0);
    EXPECT_EQ(read_file(kDefault), "before\none\ntwo\n");
}

TEST_F(VellogFile, EnablingCreatesNothing)
{
    vel_log_logfile_enable(log_);
    EXPECT_FALSE(exists(kDefault));
    EXPECT_EQ(vel_log_raw(log_, 9, "above the threshold"), 0);
    EXPECT_FALSE(exists(kDefault));
}

TEST_F(VellogFile, LineHasTimeAndPrefix)
{
    vel_log_logfile_enable(log_);
    EXPECT_EQ(vel_log_macro(log_, 7, "adt/velcache", 61, "text"), 0);
    EXPECT_THAT(read_file(kDefault),
                testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} "
                                      "adt/velcache:61\\[7\\] text\n"));
}

TEST_F(VellogFile, DisablingKeepsTheStreamOpen)
{
    vel_log_logfile_enable(log_);
    EXPECT_EQ(vel_log_raw(log_, 1, "one"), 0);
    vel_log_logfile_disable(log_);
    EXPECT_EQ(vel_log_raw(log_, 1, "lost"), 0);
    std::filesystem::rename(kDefault, "moved.log");
    vel_log_logfile_enable(log_);
    EXPECT_EQ(vel_log_raw(log_, 1, "two"), 0);
    EXPECT_EQ(read_file("moved.log"), "one\ntwo\n");
    EXPECT_FALSE(exists(kDefault));
}

TEST_F(VellogFile, NewNameClosesTheStreamAndOpensWithTheNextMessage)
{
    vel_log_logfile_enable(log_);
    EXPECT_EQ(vel_log_raw(log_, 1, "one"), 0);
    char name[] = "second.log";
    EXPECT_EQ(vel_log_logfile_set_name(log_, name), 0);
    memset(name, 'x', sizeof(name) - 1); /* it was copied */
    EXPECT_FALSE(exists("second.log"));
    EXPECT_EQ(vel_log_raw(log_, 1, "two"), 0);
    EXPECT_EQ(vel_log_logfile_set_name(log_, "third.log"), 0);
    EXPECT_EQ(vel_log_raw(log_, 1, "three"), 0);
    EXPECT_EQ(read_file(kDefault), "one\n");
    EXPECT_EQ(read_file("second.log"), "two\n");
    EXPECT_EQ(read_file("third.log"), "three\n");
}

TEST_F(VellogFile, RecreateFollowsAMovedFile)
{
    vel_log_logfile_enable(log_);
    EXPECT_EQ(vel_log_raw(log_, 1, "one"), 0);
    std::filesystem::rename(kDefault, "moved.log");
    EXPECT_EQ(vel_log_raw(log_, 1, "two"), 0);
    EXPECT_EQ(vel_log_logfile_recreate(log_), 0);
    EXPECT_EQ(read_file(kDefault), "") << "it is open at once";
    EXPECT_TRUE(exists(kDefault));
    EXPECT_EQ(vel_log_raw(log_, 1, "three"), 0);
    EXPECT_EQ(read_file("moved.log"), "one\ntwo\n");
    EXPECT_EQ(read_file(kDefault), "three\n");
}

TEST_F(VellogFile, RecreateOfADisabledSinkDoesNothing)
{
    EXPECT_EQ(vel_log_logfile_recreate(log_), 0);
    EXPECT_EQ(vel_log_logfile_recreate(nullptr), 0);
    EXPECT_FALSE(exists(kDefault));

    vel_log_logfile_enable(log_);
    EXPECT_EQ(vel_log_raw(log_, 1, "one"), 0);
    vel_log_logfile_disable(log_);
    std::filesystem::rename(kDefault, "moved.log");
    EXPECT_EQ(vel_log_logfile_recreate(log_), 0);
    vel_log_logfile_enable(log_);
    EXPECT_EQ(vel_log_raw(log_, 1, "two"), 0);
    EXPECT_EQ(read_file("moved.log"), "one\ntwo\n") << "the stream is still the old one";
}

TEST_F(VellogFile, FileThatCannotBeOpenedIsTriedAgain)
{
    EXPECT_EQ(vel_log_logfile_set_name(log_, "missing/some.log"), 0);
    vel_log_logfile_enable(log_);
    vel_log_stdout_enable(log_);
    support::fd_capture out(STDOUT_FILENO);
    const int first = vel_log_raw(log_, 1, "one");
    const int second = vel_log_raw(log_, 1, "two");
    const int recreated = vel_log_logfile_recreate(log_);
    std::filesystem::create_directory("missing");
    const int third = vel_log_raw(log_, 1, "three");
    EXPECT_EQ(out.stop(), "one\ntwo\nthree\n") << "the other sinks are served";
    EXPECT_EQ(first, -1);
    EXPECT_EQ(second, -1);
    EXPECT_EQ(recreated, -1);
    EXPECT_EQ(third, 0);
    EXPECT_EQ(read_file("missing/some.log"), "three\n");
}

TEST_F(VellogFile, RecreateThatFailsLeavesNoStream)
{
    vel_log_logfile_enable(log_);
    EXPECT_EQ(vel_log_raw(log_, 1, "one"), 0);
    std::filesystem::rename(kDefault, "moved.log");
    std::filesystem::create_directory(kDefault);
    EXPECT_EQ(vel_log_logfile_recreate(log_), -1);
    EXPECT_EQ(vel_log_raw(log_, 1, "two"), -1);
    std::filesystem::remove(kDefault);
    EXPECT_EQ(vel_log_raw(log_, 1, "three"), 0);
    EXPECT_EQ(read_file("moved.log"), "one\n");
    EXPECT_EQ(read_file(kDefault), "three\n");
}

TEST_F(VellogFile, GivenStreamBelongsToTheLog)
{
    cookie &first = cookies_[0];
    cookie &second = cookies_[1];
    cookie &third = cookies_[2];
    vel_log_logfile_enable(log_);
    vel_log_logfile_set_filehandle(log_, open_cookie(&first));
    EXPECT_EQ(vel_log_raw(log_, 1, "one"), 0);
    vel_log_logfile_set_filehandle(log_, open_cookie(&second));
    EXPECT_TRUE(first.closed);
    EXPECT_EQ(vel_log_raw(log_, 1, "two"), 0);
    EXPECT_EQ(vel_log_logfile_set_name(log_, "some.log"), 0);
    EXPECT_TRUE(second.closed);
    vel_log_logfile_set_filehandle(log_, open_cookie(&third));
    EXPECT_EQ(vel_log_raw(log_, 1, "three"), 0);
    vel_log_destroy(log_);
    log_ = nullptr;
    EXPECT_TRUE(third.closed);
    EXPECT_EQ(first.text, "one\n");
    EXPECT_EQ(second.text, "two\n");
    EXPECT_EQ(third.text, "three\n");
    EXPECT_FALSE(exists("some.log"));
}

TEST_F(VellogFile, RecreateLeavesAGivenStreamForTheName)
{
    cookie &given = cookies_[0];
    vel_log_logfile_enable(log_);
    vel_log_logfile_set_filehandle(log_, open_cookie(&given));
    EXPECT_EQ(vel_log_logfile_recreate(log_), 0);
    EXPECT_TRUE(given.closed);
    EXPECT_EQ(vel_log_raw(log_, 1, "one"), 0);
    EXPECT_EQ(read_file(kDefault), "one\n");
}

TEST_F(VellogFile, UninitClosesTheStreamOfTheDefaultLog)
{
    cookie &given = cookies_[0];
    vel_log_logfile_set_filehandle(nullptr, open_cookie(&given));
    vel_log_uninit();
    EXPECT_TRUE(given.closed);
}

TEST_F(VellogFile, PartThatFailsDoesNotStopTheLine)
{
    cookie &given = cookies_[0];
    vel_log_logfile_set_filehandle(log_, open_cookie(&given));
    vel_log_logfile_enable(log_);
    vel_log_stdout_enable(log_);
    given.refusals = 1;
    support::fd_capture out(STDOUT_FILENO);
    const int failed = vel_log_macro(log_, 1, "a", 2, "text");
    const std::string outtext = out.stop();
    EXPECT_EQ(failed, -1);
    EXPECT_THAT(given.text, testing::EndsWith("a:2[1] text\n"));
    EXPECT_THAT(outtext, testing::EndsWith(" a:2[1] text\n"));
    vel_log_stdout_disable(log_);
    EXPECT_EQ(vel_log_raw(log_, 1, "next"), 0) << "the stream is kept";
    EXPECT_THAT(given.text, testing::EndsWith("text\nnext\n"));
}

TEST_F(VellogFile, ShortWriteOfTheMessageCounts)
{
    cookie &given = cookies_[0];
    vel_log_logfile_set_filehandle(log_, open_cookie(&given));
    vel_log_logfile_enable(log_);
    given.refusals = 1;
    EXPECT_EQ(vel_log_raw(log_, 1, "text"), -1);
    EXPECT_EQ(given.text, "\n");
}

TEST_F(VellogFile, FailureOfASinkLeavesErrno)
{
    vel_log_logfile_enable(log_);
    ASSERT_EQ(vel_log_logfile_set_name(log_, "no/such.log"), 0);
    errno = EPIPE;
    EXPECT_EQ(vel_log_raw(log_, 8, "one"), -1);
    EXPECT_EQ(errno, EPIPE);

    cookies_[0].refusals = 1;
    vel_log_logfile_set_filehandle(log_, open_cookie(&cookies_[0]));
    EXPECT_EQ(vel_log_raw(log_, 8, "two"), -1);
    EXPECT_EQ(errno, EPIPE);
}
