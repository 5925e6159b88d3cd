#ifndef TESTS_SUPPORT_SERVERTHREADS_H
#define TESTS_SUPPORT_SERVERTHREADS_H

/* Stands between a server and the platform's threads. Include this in one source of a program, as
 * it defines pthread_create and pthread_join. */

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <pthread.h>
#include <regex>
#include <sched.h>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/descriptors.h"
#include "support/logcapture.h"
#include "support/plainclient.h"
#include "support/platform_function.h"

namespace support {

/* Where threads meet: numbers that only change here, and waits for what they come to. */
class meeting {
  public:
    void change(const std::function<void()> &action)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        action();
        changed_.notify_all();
    }
    /* Whether it came to that, and not to the end of a long time. */
    bool wait(const std::function<bool()> &predicate)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(60), predicate);
    }
    template <typename Number> Number get(const Number &number)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return number;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
};

/* What the platform was asked for, under the lock of the meeting, and what it shall do. */
struct server_calls {
    meeting place;
    int created = 0; /* threads */
    int ended = 0;   /* threads whose routine has returned */
    int joined = 0;
    int accepts = 0;
    int reads = 0; /* of datagrams */
    int polls = 0;

    std::atomic<int> failcreate = 0; /* so many calls of pthread_create fail, after ... */
    std::atomic<int> skipcreate = 0; /* ... so many good ones */
    std::atomic<int> failjoin = 0;
    std::atomic<int> failaccept = 0;
    std::atomic<int> failread = 0;
    std::function<void()> oncreate; /* run within the calls, on the thread that makes them */
    std::function<void()> onaccept;
    std::function<void()> onread;
    std::function<void()> onpoll;
    std::function<void()> onjoin;
    std::function<void()> onthread; /* run on a new thread, before its routine */
};

inline server_calls *calls; /* of the test that runs; the platform is on its own otherwise */

struct thread_routine {
    void *(*start)(void *);
    void *arg;
    server_calls *calls;
};

inline void *run_thread(void *arg)
{
    auto *routine = static_cast<thread_routine *>(arg);
    if (routine->calls->onthread)
        routine->calls->onthread();
    void *result = routine->start(routine->arg);
    routine->calls->place.change([&] { routine->calls->ended++; });
    delete routine;
    return result;
}

/* Counts a call and runs what belongs to it; whether it is to fail. */
inline bool server_call_fails(int server_calls::*count, std::function<void()> server_calls::*action,
                              std::atomic<int> server_calls::*failures)
{
    if (!calls)
        return false;
    calls->place.change([&] { (calls->*count)++; });
    if (calls->*action)
        (calls->*action)();
    if (calls->*failures == 0)
        return false;
    (calls->*failures)--;
    return true;
}

using log_lines = std::vector<log_line>;

inline size_t count_of(const log_lines &logged, const log_line &line)
{
    return static_cast<size_t>(std::count(logged.begin(), logged.end(), line));
}

inline size_t thread_count()
{
    size_t count = 0;
    DIR *directory = opendir("/proc/self/task");
    while (const dirent *entry = readdir(directory))
        count += entry->d_name[0] != '.';
    closedir(directory);
    return count;
}

/* A test of the server with this module. At the end all threads are gone and the descriptors are
 * those of the beginning, but for the pipes of its listeners. */
class server_threads_test : public testing::Test {
  protected:
    /* A sanitizer may start a thread of its own with the first one of the program. */
    static void SetUpTestSuite()
    {
        std::string task;
        std::thread([&] { task = "/proc/self/task/" + std::to_string(gettid()); }).join();
        while (access(task.c_str(), F_OK) == 0)
            sched_yield();
    }
    explicit server_threads_test(const std::string &module) : module_(module)
    {
        calls = &calls_;
    }
    ~server_threads_test() override
    {
        calls = nullptr;
    }
    /* When the server is destroyed. */
    void expect_all_gone()
    {
        EXPECT_EQ(descriptors_since(before_).size(), 2u * listeners_);
        EXPECT_EQ(calls_.ended, calls_.created);
        EXPECT_EQ(calls_.joined, calls_.created);
        /* A joined thread is in the list of the kernel for a moment still. */
        for (int i = 0; i < 100000 && thread_count() != threads_; i++)
            sched_yield();
        EXPECT_EQ(thread_count(), threads_);
    }

    /* What the server says last when a start fails. try_start fails the allocation of the number
     * that it is given; it stops what has started, and that is the end. Each start has a log of its
     * own, so that the lock of the log is to be made each time. */
    std::set<std::string>
    failures_of_start(const std::function<vel_error_t(size_t allocation)> &try_start)
    {
        std::set<std::string> texts;
        vel_error_t velerror = VEL_ERROR_NO_MEMORY;
        for (size_t allocation = 1; velerror != VEL_ERROR_NONE && allocation < 100; allocation++) {
            vel_log_uninit();
            vel_log_stderr_disable(nullptr);
            char *text = nullptr;
            size_t length = 0;
            vel_log_logfile_set_filehandle(nullptr, open_memstream(&text, &length));
            vel_log_logfile_set_level(nullptr, 7);
            vel_log_logfile_enable(nullptr);
            const size_t before = descriptors().size();
            velerror = try_start(allocation);
            if (velerror != VEL_ERROR_NONE) {
                const std::string lines(text, length);
                const size_t last = lines.rfind(module_ + ":");
                EXPECT_NE(last, std::string::npos) << lines;
                if (last != std::string::npos)
                    texts.insert(lines.substr(lines.find("[7] ", last) + 4));
                EXPECT_EQ(calls_.created, 0);
            }
            vel_log_uninit();
            free(text);
            /* Of a listener that is gone the pipe stays. */
            if (descriptors().size() > before)
                listeners_++;
        }
        EXPECT_EQ(velerror, VEL_ERROR_NONE);
        return texts;
    }

    /* The lines of the server, with a star for each pointer. To be called without its threads. */
    log_lines own_lines()
    {
        static const std::regex pointer("0x[0-9a-f]+");
        log_lines own;
        for (log_line &logged : log_.take()) {
            if (logged.module != module_)
                continue;
            logged.text = std::regex_replace(logged.text, pointer, "*");
            own.push_back(logged);
        }
        return own;
    }

    const std::set<int> before_ = descriptors();
    const size_t threads_ = thread_count();
    log_capture log_;
    server_calls calls_;
    meeting &place_ = calls_.place;
    unsigned int listeners_ = 0;
    unsigned int port_ = 0;

  private:
    const std::string module_;
};

} // namespace support

int pthread_create(pthread_t *id, const pthread_attr_t *attr, void *(*start)(void *),
                   void *arg) noexcept
{
    static const auto next = support::platform_function<int(
        pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)>("pthread_create");
    support::server_calls *calls = support::calls;
    if (!calls)
        return next(id, attr, start, arg);
    if (calls->oncreate)
        calls->oncreate();
    if (calls->skipcreate > 0) {
        calls->skipcreate--;
    } else if (calls->failcreate > 0) {
        calls->failcreate--;
        return EAGAIN;
    }
    calls->place.change([&] { calls->created++; });
    return next(id, attr, support::run_thread, new support::thread_routine{start, arg, calls});
}

int pthread_join(pthread_t id, void **result)
{
    static const auto next = support::platform_function<int(pthread_t, void **)>("pthread_join");
    support::server_calls *calls = support::calls;
    if (calls && calls->onjoin)
        calls->onjoin();
    if (calls && calls->failjoin > 0) {
        calls->failjoin--;
        return EINVAL;
    }
    const int error = next(id, result);
    if (calls && error == 0)
        calls->place.change([&] { calls->joined++; });
    return error;
}

#endif
