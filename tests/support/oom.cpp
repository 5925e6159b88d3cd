#include "support/oom.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <vellib/vellog.h>
#include <vellib/veluninit.h>

extern char **environ;

namespace support {

static const char kDriven[] = "VEL_OOM_DRIVEN";
static const char kDatabase[] = "velmallocfail.db";
static const char kErrors[] = "errors";
static const int kCompleted = 42;

static size_t count_stacks(const std::string &path)
{
    std::ifstream in(path);
    size_t count = 0;
    for (std::string line; std::getline(in, line);)
        count++;
    return count;
}

/* What a reader needs of the messages, which can be many. */
static std::string last_errors(const std::string &path)
{
    std::ifstream in(path);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return text.size() > 8000 ? text.substr(text.size() - 8000) : text;
}

/* In the process of its own: every round meets at least one new stack, or is the last. */
[[noreturn]] static void drive(bool (*scenario)())
{
    bool completed = false;
    size_t before = 0;
    size_t after = 0;
    do {
        before = after;
        completed = scenario();
        vel_log_uninit();
        after = count_stacks(kDatabase);
    } while (after != before);

    vel_uninit();
    if (!completed)
        fprintf(stderr, "oom: the scenario fails although no allocation does\n");
    /* exit runs the leak check, which replaces the code with its own. */
    exit(completed && !testing::Test::HasFailure() ? kCompleted : 1);
}

size_t vel_oom_drive(bool (*scenario)())
{
    if (getenv(kDriven))
        drive(scenario);

    const testing::TestInfo *info = testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = std::string(info->test_suite_name()) + "." + info->name();
    char directory[] = "/tmp/oomXXXXXX";
    if (!mkdtemp(directory)) {
        ADD_FAILURE() << "cannot make a directory below /tmp";
        return 0;
    }

    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const std::string filter = "--gtest_filter=" + name;
        const std::string self = std::filesystem::read_symlink("/proc/self/exe");
        unsetenv("GTEST_OUTPUT");
        setenv(kDriven, "1", 1);
        setenv("VELMALLOC_FAILMODE", "", 1);
        if (chdir(directory) == 0 && freopen(kErrors, "w", stderr))
            execl(self.c_str(), self.c_str(), filter.c_str(), nullptr);
        _exit(126);
    }

    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == kCompleted)
        << name << " under failure injection ended with wait status " << status << " after:\n"
        << last_errors(std::string(directory) + "/" + kErrors);

    const size_t stacks = count_stacks(std::string(directory) + "/" + kDatabase);
    EXPECT_GT(stacks, 0u) << name << " allocated nothing";
    printf("oom: %s %zu stacks\n", name.c_str(), stacks);
    std::filesystem::remove_all(directory);
    return stacks;
}

} // namespace support
