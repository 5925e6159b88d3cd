#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include <sys/syscall.h>

#include <gtest/gtest.h>

#include <vellib/velfile.h>
#include <vellib/vellog.h>
#include <vellib/velmalloc.h>
#include <vellib/veluninit.h>

#include "support/tracee.h"

/* What a safe save leaves when it is killed, or refused something, at each of its system calls. */

using support::tracee_action;
using support::tracee_call;
using support::tracee_result;

static const size_t kSize = 100 * 1024;

static std::string content_of(char seed, size_t size)
{
    std::string content(size, '\0');
    for (size_t i = 0; i < size; i++)
        content[i] = static_cast<char>(seed + i * 31 % 251);
    return content;
}

static const std::string kOlder = content_of('a', kSize - 1);
static const std::string kOld = content_of('b', kSize);
static const std::string kNew = content_of('c', kSize + 1);
static const std::string kNext = content_of('d', 10);

enum outcome { kGivesNothing, kGivesOld, kGivesNew, kGivesOther };

struct start_state {
    const char *name;
    const std::string *file; /* NULL where there is none */
    const std::string *backup;
    bool staletemporary;
    outcome before;    /* what the load gives before the save */
    size_t leastcalls; /* what the save makes at the very least */
};

static void PrintTo(const start_state &state, std::ostream *out)
{
    *out << state.name;
}

/* Create, write and close the temporary file, look for the file, rename the temporary file; with a
 * file also delete the backup and rename the file. */
static const start_state kStartStates[] = {
    {"FileAndBackup", &kOld, &kOlder, false, kGivesOld, 7},
    {"FileAndStaleTemporary", &kOld, nullptr, true, kGivesOld, 7},
    {"BackupAndStaleTemporary", nullptr, &kOld, true, kGivesOld, 5},
    {"Nothing", nullptr, nullptr, false, kGivesNothing, 5},
};

class VelfileCrash : public testing::TestWithParam<start_state> {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/velfilecrashXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        directory = name;
        path = directory + "/file";
        vel_log_stderr_disable(nullptr); /* failing saves log, and many of them fail here */
    }

    void TearDown() override
    {
        std::filesystem::remove_all(directory);
        vel_uninit();
    }

    static void put(const std::string &name, const std::string *content)
    {
        std::filesystem::remove(name);
        if (!content)
            return;
        std::ofstream out(name, std::ios::binary);
        out << *content;
        ASSERT_TRUE(out.flush().good());
    }

    void make_start_state()
    {
        const std::string stale = kOlder.substr(0, 1000);
        put(path, GetParam().file);
        put(path + ".bak", GetParam().backup);
        put(path + ".tmp", GetParam().staletemporary ? &stale : nullptr);
    }

    outcome load()
    {
        char dirt = 0;
        void *data = &dirt;
        size_t length = 99;
        if (vel_file_data_load_with_backup(path.c_str(), &data, &length) != 0) {
            EXPECT_EQ(data, nullptr);
            EXPECT_EQ(length, 0u);
            return kGivesNothing;
        }
        const std::string loaded(static_cast<char *>(data), length);
        vel_free(data);
        if (loaded == kNew)
            return kGivesNew;
        return loaded == kOld ? kGivesOld : kGivesOther;
    }

    tracee_result save(const std::function<tracee_action(const tracee_call &)> &decide)
    {
        make_start_state();
        return support::vel_tracee_run(
            [this] {
                return vel_file_data_save_with_backup(path.c_str(), kNew.data(), kNew.size());
            },
            decide);
    }

    /* Whatever happened to a save, what it leaves is no hindrance to the next. */
    void expect_next_save_works()
    {
        EXPECT_EQ(vel_file_data_save_with_backup(path.c_str(), kNext.data(), kNext.size()), 0);
        std::ifstream in(path, std::ios::binary);
        EXPECT_EQ(std::string((std::istreambuf_iterator<char>(in)), {}), kNext);
        EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
    }

    /* Loads after a save that came to its end, however badly. */
    void expect_rule_holds(const tracee_result &result)
    {
        ASSERT_FALSE(result.killed);
        ASSERT_TRUE(result.status == 0 || result.status == -1) << result.status;
        const outcome loaded = load();
        const bool oldwilldo = result.status == -1 && loaded == GetParam().before;
        EXPECT_TRUE(loaded == kGivesNew || oldwilldo)
            << "the save gave " << result.status << " and the load " << loaded;
    }

    /* For the figures that ./dev test prints. */
    static void say_points(const char *what, size_t points)
    {
        printf("crash: VelfileCrash/%s/%s %zu points\n", GetParam().name, what, points);
    }

    void fail_each_call(bool andallafter);

    std::string directory;
    std::string path;
};

TEST_P(VelfileCrash, UntouchedSaveGivesTheNewData)
{
    const tracee_result result = save([](const tracee_call &) { return tracee_action{}; });
    EXPECT_FALSE(result.killed);
    EXPECT_EQ(result.status, 0);
    EXPECT_GE(result.calls, GetParam().leastcalls);
    EXPECT_EQ(load(), kGivesNew);
}

/* There is one moment at which the load turns from the old version to the new one. */
TEST_P(VelfileCrash, KilledBeforeAndAfterEachCall)
{
    std::vector<outcome> outcomes;
    bool killed = true;
    for (size_t point = 0; killed; point++) {
        SCOPED_TRACE("point " + std::to_string(point));
        const tracee_result result = save([point](const tracee_call &call) {
            tracee_action action;
            action.killbefore = call.index == point / 2 && point % 2 == 0;
            action.killafter = call.index == point / 2 && point % 2 == 1;
            return action;
        });
        killed = result.killed;
        EXPECT_EQ(result.status, 0);
        if (killed)
            outcomes.push_back(load());
        expect_next_save_works();
        ASSERT_LT(point, 1000u);
    }

    ASSERT_GE(outcomes.size(), 2 * GetParam().leastcalls);
    say_points("killed", outcomes.size());
    EXPECT_EQ(outcomes.front(), GetParam().before);
    EXPECT_EQ(outcomes.back(), kGivesNew);
    for (size_t i = 1; i < outcomes.size(); i++) {
        EXPECT_TRUE(outcomes[i] == outcomes[i - 1] || outcomes[i] == kGivesNew)
            << "point " << i << " gives " << outcomes[i];
    }
}

TEST_P(VelfileCrash, KilledInTheMiddleOfTheWrite)
{
    for (const uint64_t written : {uint64_t{1}, uint64_t{kSize / 2}, uint64_t{kSize}}) {
        SCOPED_TRACE(written);
        const tracee_result result = save([written](const tracee_call &call) {
            tracee_action action;
            if (call.number == SYS_write && call.arguments[2] > written) {
                action.shorten = true;
                action.length = written;
                action.killafter = true;
            }
            return action;
        });
        EXPECT_TRUE(result.killed);
        EXPECT_EQ(std::filesystem::file_size(path + ".tmp"), written);
        EXPECT_EQ(load(), GetParam().before);
        expect_next_save_works();
    }
}

/* A disk does not fill up between two writes but within one. */
TEST_P(VelfileCrash, DiskFillsUpWithinTheWrite)
{
    bool full = false;
    const tracee_result result = save([&full](const tracee_call &call) {
        tracee_action action;
        if (call.number == SYS_write) {
            action.error = full ? ENOSPC : 0;
            action.shorten = !full;
            action.length = kSize / 2;
            full = true;
        }
        return action;
    });
    EXPECT_TRUE(full);
    EXPECT_EQ(result.status, -1);
    EXPECT_EQ(load(), GetParam().before);
    EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
    expect_next_save_works();
}

void VelfileCrash::fail_each_call(bool andallafter)
{
    static const int errors[] = {ENOSPC, EIO, EACCES};
    size_t points = 0;
    for (const int error : errors) {
        size_t failures = 0;
        bool reached = true;
        for (size_t point = 0; reached; point++) {
            SCOPED_TRACE("errno " + std::to_string(error) + " at call " + std::to_string(point));
            const tracee_result result = save([=](const tracee_call &call) {
                tracee_action action;
                const bool hit = call.index == point || (andallafter && call.index > point);
                action.error = hit ? error : 0;
                return action;
            });
            reached = result.calls > point;
            points += reached;
            failures += result.status == -1;
            expect_rule_holds(result);
            EXPECT_TRUE(andallafter || !std::filesystem::exists(path + ".tmp"));
            expect_next_save_works();
            ASSERT_LT(point, 1000u);
        }
        /* That the file cannot be created, written or renamed is not hidden. */
        EXPECT_GE(failures, 3u);
    }
    say_points(andallafter ? "refused_from_there" : "refused", points);
}

TEST_P(VelfileCrash, EachCallFails)
{
    fail_each_call(/*andallafter=*/false);
}

TEST_P(VelfileCrash, EachCallFailsAndAllAfterIt)
{
    fail_each_call(/*andallafter=*/true);
}

INSTANTIATE_TEST_SUITE_P(From, VelfileCrash, testing::ValuesIn(kStartStates),
                         [](const auto &row) { return std::string(row.param.name); });
