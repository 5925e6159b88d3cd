#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

static const int kThreads = 4;
static const int kLines = 500;

/* What is logged by one thread at one turn; the lengths differ, so that buffers grow meanwhile. */
static std::string message(int thread, int turn)
{
    return "thread " + std::to_string(thread) + " turn " + std::to_string(turn) + " " +
           std::string(static_cast<size_t>((turn * 7 + thread) % 300),
                       static_cast<char>('a' + thread));
}

static void run_threads(void (*body)(int thread))
{
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; thread++)
        threads.emplace_back(body, thread);
    for (std::thread &thread : threads)
        thread.join();
}

/* Every line is there, whole and once, and those of one thread are in order. */
static void expect_all(const std::vector<std::string> &lines)
{
    int next[kThreads] = {};
    EXPECT_EQ(lines.size(), static_cast<size_t>(kThreads) * kLines);
    for (const std::string &line : lines) {
        int thread = -1;
        ASSERT_EQ(sscanf(line.c_str(), "thread %d ", &thread), 1) << line;
        ASSERT_TRUE(thread >= 0 && thread < kThreads) << line;
        EXPECT_EQ(line, message(thread, next[thread]));
        next[thread]++;
    }
}

/* A callback that takes no lock of its own: the log's has to do. */
static std::vector<std::string> taken;

static int take(const char *string, size_t length, int, time_t, void *)
{
    taken.push_back(std::string(string, length));
    return 0;
}

class VellogThreads : public testing::Test {
  protected:
    void SetUp() override
    {
        taken.clear();
        ASSERT_EQ(vel_log_init_threaded(), 0);
    }
    void TearDown() override
    {
        vel_log_uninit();
    }

    /* The callback and a log file. */
    void set_up(vellog *log)
    {
        vel_log_stderr_disable(log);
        vel_log_callback_set(log, take, nullptr);
        vel_log_callback_enable(log);
        vel_log_logfile_set_filehandle(log, open_memstream(&text_, &length_));
        vel_log_logfile_enable(log);
    }

    /* The lines of the log file, without what stands before the message. */
    std::vector<std::string> file_lines()
    {
        std::vector<std::string> lines;
        std::istringstream in(std::string(text_, length_));
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        free(text_);
        return lines;
    }

    char *text_ = nullptr;
    size_t length_ = 0;
};

TEST_F(VellogThreads, MacroLinesOfTheDefaultLogAreWhole)
{
    set_up(nullptr);
    run_threads([](int thread) {
        for (int turn = 0; turn < kLines; turn++)
            VEL_LOG_AT(nullptr, thread, "adt/velcache", turn, "%s", message(thread, turn).c_str());
    });
    vel_log_uninit();

    expect_all(taken);
    std::vector<std::string> lines = file_lines();
    for (std::string &line : lines) {
        int level = -1;
        int number = -1;
        int length = 0;
        ASSERT_EQ(
            sscanf(line.c_str(), "%*10s %*8s adt/velcache:%d[%d] %n", &number, &level, &length), 2)
            << line;
        ASSERT_GT(length, 0) << line;
        line.erase(0, static_cast<size_t>(length));
        EXPECT_EQ(line, message(level, number)) << "the prefix is its own line's";
    }
    expect_all(lines);
}

static vellog *own;

TEST_F(VellogThreads, LinesOfAnOwnLogAreWhole)
{
    own = vel_log_create();
    ASSERT_NE(own, nullptr);
    vel_log_stderr_disable(own);
    EXPECT_EQ(vel_log(own, 1, "makes the lock of the log"), 0);
    set_up(own);
    run_threads([](int thread) {
        for (int turn = 0; turn < kLines; turn++) {
            if (turn % 2)
                EXPECT_EQ(vel_log(own, 1, "%s", message(thread, turn).c_str()), 0);
            else
                EXPECT_EQ(vel_log_raw(own, 1, "%s", message(thread, turn).c_str()), 0);
        }
    });
    vel_log_destroy(own);

    expect_all(taken);
    std::vector<std::string> lines = file_lines();
    for (std::string &line : lines)
        line.erase(0, std::min(line.find("thread "), line.size()));
    expect_all(lines);
}

/* The two locks are apart, so each log has its own threads here. */
TEST_F(VellogThreads, DefaultLogAndOwnLogAtTheSameTime)
{
    own = vel_log_create();
    ASSERT_NE(own, nullptr);
    vel_log_stderr_disable(own);
    EXPECT_EQ(vel_log(own, 1, "makes the lock of the log"), 0);
    char *text = nullptr;
    size_t length = 0;
    vel_log_logfile_set_filehandle(own, open_memstream(&text, &length));
    vel_log_logfile_enable(own);
    set_up(nullptr);
    run_threads([](int thread) {
        for (int turn = 0; turn < kLines; turn++) {
            VEL_LOG_AT(nullptr, 1, "adt/velcache", turn, "%s", message(thread, turn).c_str());
            EXPECT_EQ(vel_log_raw(own, 1, "%s", message(thread, turn).c_str()), 0);
        }
    });
    vel_log_destroy(own);
    vel_log_uninit();

    expect_all(taken);
    free(text_);
    std::vector<std::string> lines;
    std::istringstream in(std::string(text, length));
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    free(text);
    expect_all(lines);
}
