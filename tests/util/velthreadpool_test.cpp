#include <vellib/velthreadpool.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/eachfailure.h"
#include "support/oom.h"
#include "support/platform_malloc.h"
#include "support/rows.h"
#include "support/serverthreads.h"

using support::log_line;
using support::log_lines;

namespace {

const char kModule[] = "util/velthreadpool";

/* What a pool of a test does: its global context. */
struct office {
    support::meeting place;
    std::vector<std::string> events; /* of contexts, on the thread of the test */
    std::vector<void *> handled;     /* in the order in which handlers began */
    std::map<void *, std::set<std::thread::id>> threads; /* that had a context */
    std::set<void *> busy;                               /* contexts */
    bool shared = false; /* a context was with two handlers at once, or a global one was wrong */
    bool open = true;    /* or handlers wait */

    std::thread::id owner = std::this_thread::get_id();
    vel_error_t *outererror = nullptr; /* looked at while contexts are created */
    unsigned int failat = ~0u;         /* the context with this number fails with failcode */
    vel_error_t failcode = VEL_ERROR_GENERIC;
    bool nullcontexts = false;
    unsigned int created = 0;
    std::function<void(void *)> onrequest; /* on the thread of the worker */
};

char contexts[16];

void *create_context(void *global, vel_error_t *errorptr)
{
    auto *self = static_cast<office *>(global);
    EXPECT_EQ(std::this_thread::get_id(), self->owner);
    EXPECT_EQ(*errorptr, VEL_ERROR_GENERIC);
    if (self->outererror) {
        EXPECT_EQ(*self->outererror, VEL_ERROR_INTERNAL);
    }
    const unsigned int number = self->created++;
    self->events.push_back("create " + std::to_string(number));
    *errorptr = number == self->failat ? self->failcode : VEL_ERROR_NONE;
    return self->nullcontexts ? nullptr : &contexts[number];
}

void destroy_context(void *global, void *threadctx)
{
    auto *self = static_cast<office *>(global);
    EXPECT_EQ(std::this_thread::get_id(), self->owner);
    self->events.push_back(threadctx ? "destroy " +
                                           std::to_string(static_cast<char *>(threadctx) - contexts)
                                     : "destroy NULL");
}

void handle(void *global, void *threadctx, void *request)
{
    auto *self = static_cast<office *>(global);
    self->place.change([&] {
        self->handled.push_back(request);
        self->threads[threadctx].insert(std::this_thread::get_id());
        if (threadctx)
            self->shared |= !self->busy.insert(threadctx).second;
    });
    EXPECT_TRUE(self->place.wait([&] { return self->open; }));
    if (self->onrequest)
        self->onrequest(request);
    self->place.change([&] { self->busy.erase(threadctx); });
}

struct params_deleter {
    void operator()(velthreadpool_params *params) const
    {
        vel_threadpool_params_destroy(params);
    }
};
using params_ptr = std::unique_ptr<velthreadpool_params, params_deleter>;

class Velthreadpool : public support::server_threads_test {
  protected:
    Velthreadpool() : server_threads_test(kModule)
    {
        support::warm_log(log_);
    }
    ~Velthreadpool() override
    {
        if (pool_)
            vel_threadpool_destroy(pool_);
        expect_all_gone();
        EXPECT_FALSE(office_.shared);
        EXPECT_EQ(own_lines(), log_lines());
    }
    /* Parameters with all that an office has. */
    params_ptr params(unsigned int threads)
    {
        params_ptr params(vel_threadpool_params_create_defaults());
        vel_threadpool_params_set_num_threads(params.get(), threads);
        vel_threadpool_params_set_global_context(params.get(), &office_);
        vel_threadpool_params_set_thread_ctx_create(params.get(), create_context);
        vel_threadpool_params_set_thread_ctx_destroy(params.get(), destroy_context);
        vel_threadpool_params_set_request_handler(params.get(), handle);
        return params;
    }
    void create(const params_ptr &params)
    {
        error_ = -1;
        pool_ = vel_threadpool_create(params.get(), &error_);
        ASSERT_NE(pool_, nullptr);
        EXPECT_EQ(error_, VEL_ERROR_NONE);
    }
    void destroy()
    {
        vel_threadpool_destroy(pool_);
        pool_ = nullptr;
    }
    void submit(void *request)
    {
        EXPECT_EQ(vel_threadpool_submit_request(pool_, request), VEL_ERROR_NONE);
    }
    void expect_result(void *request)
    {
        error_ = -1;
        EXPECT_EQ(vel_threadpool_get_result(pool_, &error_), request);
        EXPECT_EQ(error_, VEL_ERROR_NONE);
    }
    void expect_no_result()
    {
        error_ = -1;
        EXPECT_EQ(vel_threadpool_get_result_try(pool_, &error_), nullptr);
        EXPECT_EQ(error_, VEL_ERROR_NOT_FOUND);
    }
    std::vector<void *> results_left()
    {
        std::vector<void *> results;
        while (true) {
            vel_error_t error = -1;
            void *result = vel_threadpool_get_result_try(pool_, &error);
            if (error != VEL_ERROR_NONE) {
                EXPECT_EQ(error, VEL_ERROR_NOT_FOUND);
                return results;
            }
            results.push_back(result);
        }
    }
    void set_open(bool open)
    {
        office_.place.change([&] { office_.open = open; });
    }

    office office_;
    int request_[8] = {};
    vel_error_t error_ = -1;
    velthreadpool *pool_ = nullptr;
};

TEST_F(Velthreadpool, DefaultsGiveRequestsBack)
{
    const params_ptr defaults(vel_threadpool_params_create_defaults());
    ASSERT_NE(defaults, nullptr);
    create(defaults);
    EXPECT_EQ(calls_.created, 1);
    submit(&request_[0]);
    submit(nullptr);
    submit(&request_[1]);
    expect_result(&request_[0]);
    expect_result(nullptr);
    expect_result(&request_[1]);
    expect_no_result();
    destroy();
    EXPECT_EQ(calls_.joined, 1);
}

TEST_F(Velthreadpool, SetDefaultsResetsAll)
{
    const params_ptr reset = params(5);
    vel_threadpool_params_set_defaults(reset.get());
    create(reset);
    EXPECT_EQ(calls_.created, 1);
    submit(&request_[0]);
    expect_result(&request_[0]);
    destroy();
    EXPECT_TRUE(office_.events.empty());
    EXPECT_TRUE(office_.handled.empty());
}

TEST_F(Velthreadpool, NullParams)
{
    EXPECT_EQ(vel_threadpool_create(nullptr, &error_), nullptr);
    EXPECT_EQ(error_, VEL_ERROR_INVALID_ARGUMENT);
    const log_lines logged = {{kModule, 7, "vel_threadpool_create() called with NULL params"}};
    EXPECT_EQ(own_lines(), logged);
    EXPECT_EQ(vel_threadpool_create(nullptr, nullptr), nullptr);
    EXPECT_EQ(own_lines(), logged);
}

TEST_F(Velthreadpool, OptionalOutputs)
{
    pool_ = vel_threadpool_create(params(2).get(), nullptr);
    ASSERT_NE(pool_, nullptr);
    EXPECT_EQ(vel_threadpool_get_result_try(pool_, nullptr), nullptr);
    submit(&request_[0]);
    EXPECT_EQ(vel_threadpool_get_result(pool_, nullptr), &request_[0]);
}

TEST_F(Velthreadpool, ParamsAreCopied)
{
    params_ptr mine = params(2);
    create(mine);
    vel_threadpool_params_set_defaults(mine.get());
    vel_threadpool_params_set_num_threads(mine.get(), 77);
    mine.reset();
    submit(&request_[0]);
    expect_result(&request_[0]);
    destroy();
    EXPECT_EQ(office_.handled, std::vector<void *>{&request_[0]});
    EXPECT_EQ(office_.events,
              (std::vector<std::string>{"create 0", "create 1", "destroy 0", "destroy 1"}));
}

/* On the thread that creates and destroys; each before its worker starts, and after all have ended. */
TEST_F(Velthreadpool, Contexts)
{
    office_.outererror = &error_;
    calls_.oncreate = [&] {
        office_.events.push_back("start " + std::to_string(place_.get(calls_.created)));
    };
    calls_.onjoin = [&] { office_.events.push_back("join"); };
    const params_ptr mine = params(3);
    error_ = -1;
    pool_ = vel_threadpool_create(mine.get(), &error_);
    ASSERT_NE(pool_, nullptr);
    vel_threadpool_stop(pool_);
    office_.events.push_back("stopped");
    vel_threadpool_stop(pool_);
    destroy();
    EXPECT_EQ(office_.events,
              (std::vector<std::string>{"create 0", "start 0", "create 1", "start 1", "create 2",
                                        "start 2", "join", "join", "join", "stopped", "destroy 0",
                                        "destroy 1", "destroy 2"}));
}

TEST_F(Velthreadpool, NullIsAContext)
{
    office_.nullcontexts = true;
    create(params(2));
    submit(&request_[0]);
    expect_result(&request_[0]);
    destroy();
    EXPECT_EQ(office_.events,
              (std::vector<std::string>{"create 0", "create 1", "destroy NULL", "destroy NULL"}));
    EXPECT_EQ(office_.threads.size(), 1u);
    EXPECT_EQ(office_.threads.count(nullptr), 1u);
}

TEST_F(Velthreadpool, ContextsWithoutADestroyer)
{
    const params_ptr mine = params(2);
    vel_threadpool_params_set_thread_ctx_destroy(mine.get(), nullptr);
    create(mine);
    destroy();
    EXPECT_EQ(office_.events, (std::vector<std::string>{"create 0", "create 1"}));
}

/* What was not created is not destroyed. */
TEST_F(Velthreadpool, DestroyerWithoutContexts)
{
    const params_ptr mine = params(2);
    vel_threadpool_params_set_thread_ctx_create(mine.get(), nullptr);
    create(mine);
    submit(&request_[0]);
    expect_result(&request_[0]);
    destroy();
    EXPECT_TRUE(office_.events.empty());
    EXPECT_EQ(office_.threads.count(nullptr), 1u);
}

/* Four handlers at once, each with a context of its own, that stays with its thread. */
TEST_F(Velthreadpool, WorkersRunAtOnce)
{
    create(params(4));
    for (int round = 0; round < 3; round++) {
        set_open(false);
        for (int i = 0; i < 4; i++)
            submit(&request_[i]);
        EXPECT_TRUE(office_.place.wait([&] { return office_.busy.size() == 4; }));
        expect_no_result();
        set_open(true);
        std::set<void *> results;
        for (int i = 0; i < 4; i++)
            results.insert(vel_threadpool_get_result(pool_, &error_));
        EXPECT_EQ(results,
                  (std::set<void *>{&request_[0], &request_[1], &request_[2], &request_[3]}));
    }
    destroy();
    EXPECT_EQ(office_.threads.size(), 4u);
    for (const auto &[context, threads] : office_.threads)
        EXPECT_EQ(threads.size(), 1u);
}

/* The result is what the handler left behind the pointer. */
TEST_F(Velthreadpool, RequestIsItsResult)
{
    office_.onrequest = [](void *request) { *static_cast<int *>(request) *= 3; };
    create(params(1));
    for (int i = 0; i < 8; i++) {
        request_[i] = i;
        submit(&request_[i]);
    }
    for (int i = 0; i < 8; i++) {
        expect_result(&request_[i]);
        EXPECT_EQ(request_[i], 3 * i);
    }
}

/* The first join begins while all handlers wait; the stop ends when all have returned. */
TEST_F(Velthreadpool, StopDrains)
{
    office_.open = false;
    calls_.onjoin = [&] { set_open(true); };
    for (const unsigned int threads : {1u, 2u}) {
        create(params(threads));
        for (int i = 0; i < 8; i++)
            submit(&request_[i]);
        set_open(false);
        vel_threadpool_stop(pool_);
        EXPECT_EQ(office_.handled.size(), 8u);
        EXPECT_EQ(vel_threadpool_submit_request(pool_, &request_[0]), VEL_ERROR_WRITE);
        std::vector<void *> results = results_left();
        std::sort(results.begin(), results.end());
        ASSERT_EQ(results.size(), 8u);
        for (int i = 0; i < 8; i++)
            EXPECT_EQ(results[static_cast<size_t>(i)], &request_[i]);
        vel_threadpool_stop(pool_);
        expect_no_result();
        destroy();
        office_.handled.clear();
    }
}

TEST_F(Velthreadpool, ThreeRequestsAndAStop)
{
    create(params(1));
    for (int i = 0; i < 3; i++)
        submit(&request_[i]);
    vel_threadpool_stop(pool_);
    EXPECT_EQ(office_.handled.size(), 3u);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(vel_threadpool_get_result_try(pool_, &error_), &request_[i]);
        EXPECT_EQ(error_, VEL_ERROR_NONE);
    }
    expect_result(&request_[2]); /* a blocking get works as well, where there is one */
    expect_no_result();
    EXPECT_EQ(office_.handled.size(), 3u);
}

TEST_F(Velthreadpool, DestroyStopsAndDrains)
{
    create(params(2));
    set_open(false);
    for (int i = 0; i < 8; i++)
        submit(&request_[i]);
    calls_.onjoin = [&] { set_open(true); };
    destroy();
    EXPECT_EQ(office_.handled.size(), 8u);
    EXPECT_EQ(office_.events,
              (std::vector<std::string>{"create 0", "create 1", "destroy 0", "destroy 1"}));
}

/* The leak check finds elements that stay. */
TEST_F(Velthreadpool, ResultsThatNobodyGetsAreDropped)
{
    create(params(2));
    for (int i = 0; i < 8; i++)
        submit(&request_[i]);
    EXPECT_NE(vel_threadpool_get_result(pool_, &error_), nullptr);
    vel_threadpool_stop(pool_);
    destroy();
    EXPECT_EQ(office_.handled.size(), 8u);
}

TEST_F(Velthreadpool, NoThreads)
{
    create(params(0));
    EXPECT_EQ(calls_.created, 0);
    submit(&request_[0]);
    submit(&request_[1]);
    expect_no_result();
    vel_threadpool_stop(pool_);
    expect_no_result();
    EXPECT_EQ(vel_threadpool_submit_request(pool_, &request_[2]), VEL_ERROR_WRITE);
    destroy();
    EXPECT_TRUE(office_.handled.empty());
    EXPECT_TRUE(office_.events.empty());

    create(params(0));
    submit(&request_[0]);
    destroy();
}

TEST_F(Velthreadpool, HandlersSubmit)
{
    std::atomic<vel_error_t> refused = VEL_ERROR_NONE;
    office_.onrequest = [&](void *request) {
        auto *left = static_cast<int *>(request);
        if (*left == 0)
            return;
        --*left;
        const vel_error_t error = vel_threadpool_submit_request(pool_, request);
        if (error != VEL_ERROR_NONE)
            refused = error;
    };
    create(params(1)); /* else the result may be got while the next handler has it */
    request_[0] = 5;
    submit(&request_[0]);
    for (int i = 0; i < 6; i++)
        expect_result(&request_[0]);
    EXPECT_EQ(request_[0], 0);
    EXPECT_EQ(refused, VEL_ERROR_NONE);

    request_[0] = 5;
    calls_.onjoin = [&] { set_open(true); };
    set_open(false);
    submit(&request_[0]);
    vel_threadpool_stop(pool_);
    EXPECT_EQ(refused, VEL_ERROR_WRITE);
    EXPECT_EQ(request_[0], 4);
    expect_result(&request_[0]);
    expect_no_result();
}

TEST_F(Velthreadpool, SubmitWithoutMemory)
{
    create(params(1));
    {
        support::malloc_watch watch(1, 1);
        EXPECT_EQ(vel_threadpool_submit_request(pool_, &request_[0]), VEL_ERROR_NO_MEMORY);
    }
    submit(&request_[1]);
    expect_result(&request_[1]);
    EXPECT_EQ(office_.place.get(office_.handled), std::vector<void *>{&request_[1]});
}

/* A request is moved from queue to queue as it is, and nothing is wanted for the stop. */
TEST_F(Velthreadpool, WorkersWantNoMemory)
{
    create(params(2));
    set_open(false);
    for (int i = 0; i < 1000; i++)
        submit(&request_[i % 8]);
    office_.place.change([&] { office_.handled.reserve(1000); });
    calls_.onjoin = [&] { set_open(true); };
    {
        support::malloc_watch watch;
        vel_threadpool_stop(pool_);
        EXPECT_EQ(support::malloc_watch::count(), 0u);
    }
    EXPECT_EQ(office_.handled.size(), 1000u);
    EXPECT_EQ(results_left().size(), 1000u);
}

/* Three threads submit and three collect. */
TEST_F(Velthreadpool, EachRequestOnce)
{
    constexpr uintptr_t kEach = 3000;
    create(params(4));
    std::vector<std::thread> threads;
    std::atomic<int> failures = 0;
    std::vector<std::vector<void *>> collected(3);
    for (uintptr_t i = 0; i < 3; i++) {
        threads.emplace_back([&, i] {
            for (uintptr_t k = 0; k < kEach; k++)
                failures += vel_threadpool_submit_request(
                                pool_, reinterpret_cast<void *>(i * kEach + k)) != VEL_ERROR_NONE;
        });
        threads.emplace_back([&, i] {
            for (uintptr_t k = 0; k < kEach; k++) {
                vel_error_t error = -1;
                collected[i].push_back(vel_threadpool_get_result(pool_, &error));
                failures += error != VEL_ERROR_NONE;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
    expect_no_result();
    std::set<void *> all;
    for (const std::vector<void *> &results : collected)
        all.insert(results.begin(), results.end());
    EXPECT_EQ(all.size(), 3 * kEach);
    EXPECT_EQ(*all.rbegin(), reinterpret_cast<void *>(3 * kEach - 1));
    EXPECT_EQ(office_.place.get(office_.handled).size(), 3 * kEach);
}

/* ---- Creations that fail ---- */

struct create_failure {
    vel_error_t error;
    std::string text;

    bool operator==(const create_failure &) const = default;
};

std::ostream &operator<<(std::ostream &out, const create_failure &failure)
{
    return out << failure.error << " " << failure.text << "\n";
}

class VelthreadpoolFailed : public Velthreadpool {
  protected:
    /* Tries to create a pool; all that was begun is undone again. */
    create_failure fail(const params_ptr &params)
    {
        office_.created = 0;
        office_.events.clear();
        error_ = -1;
        pool_ = vel_threadpool_create(params.get(), &error_);
        if (pool_)
            return {error_, "none"};
        EXPECT_EQ(calls_.joined, calls_.created);
        EXPECT_EQ(calls_.ended, calls_.created);
        const log_lines logged = own_lines();
        if (logged.size() != 1 || logged[0].level != 7)
            return {error_, testing::PrintToString(logged)};
        return {error_, logged[0].text};
    }
    /* The contexts with numbers below were created, and are destroyed but for the failed one. */
    void expect_contexts(unsigned int created, unsigned int destroyed)
    {
        std::vector<std::string> events;
        for (unsigned int i = 0; i < created; i++)
            events.push_back("create " + std::to_string(i));
        for (unsigned int i = 0; i < destroyed; i++)
            events.push_back("destroy " + std::to_string(i));
        EXPECT_EQ(office_.events, events);
    }
};

TEST_F(VelthreadpoolFailed, EachAllocation)
{
    const std::vector<create_failure> expected = {
        {VEL_ERROR_NO_MEMORY, "failed to allocate pool structure"},
        {VEL_ERROR_NO_MEMORY, "failed to create input queue"},
        {VEL_ERROR_GENERIC, "failed to create input queue"}, /* for want of its lock */
        {VEL_ERROR_NO_MEMORY, "failed to create output queue"},
        {VEL_ERROR_GENERIC, "failed to create output queue"},
        {VEL_ERROR_NO_MEMORY, "failed to allocate thread array"},
        {VEL_ERROR_GENERIC, "failed to create thread 0"},
        {VEL_ERROR_GENERIC, "failed to create thread 1"},
        {VEL_ERROR_GENERIC, "failed to create thread 2"},
    };
    /* The log has its lock from the first thread on. */
    const params_ptr mine = params(3);
    create(mine);
    destroy();

    std::vector<create_failure> failures;
    for (size_t number = 1; number <= 20; number++) {
        create_failure failure;
        {
            support::malloc_watch watch(number, number);
            failure = fail(mine);
        }
        if (pool_)
            break;
        failures.push_back(failure);
        const auto count = static_cast<unsigned int>(number > 6 ? number - 6 : 0);
        expect_contexts(count, count);
    }
    EXPECT_EQ(failures, expected);
}

TEST_F(VelthreadpoolFailed, ThreadsThatDoNotStart)
{
    const params_ptr mine = params(4);
    for (unsigned int i = 0; i < 4; i++) {
        calls_.skipcreate = static_cast<int>(i);
        calls_.failcreate = 1;
        EXPECT_EQ(fail(mine), (create_failure{VEL_ERROR_GENERIC,
                                              "failed to start thread " + std::to_string(i)}));
        expect_contexts(i + 1, i + 1);
    }
    calls_.failcreate = 1;
    EXPECT_EQ(vel_threadpool_create(mine.get(), nullptr), nullptr);
    EXPECT_EQ(own_lines().size(), 1u);
}

TEST_F(VelthreadpoolFailed, ThreadsThatDoNotStartWithoutContexts)
{
    const params_ptr mine(vel_threadpool_params_create_defaults());
    vel_threadpool_params_set_num_threads(mine.get(), 3);
    vel_threadpool_params_set_thread_ctx_destroy(mine.get(), destroy_context);
    calls_.skipcreate = 2;
    calls_.failcreate = 1;
    EXPECT_EQ(fail(mine), (create_failure{VEL_ERROR_GENERIC, "failed to start thread 2"}));
    EXPECT_TRUE(office_.events.empty());
}

/* The code counts, whatever is returned. */
TEST_F(VelthreadpoolFailed, ContextsThatAreNotCreated)
{
    const params_ptr mine = params(3);
    for (const bool nullcontexts : {false, true})
        for (const int code : {int(VEL_ERROR_GENERIC), int(VEL_ERROR_NO_MEMORY), 77, -1})
            for (unsigned int i = 0; i < 3; i++) {
                office_.failat = i;
                office_.failcode = code;
                office_.nullcontexts = nullcontexts;
                EXPECT_EQ(fail(mine), (create_failure{code, "failed to create thread context for "
                                                            "thread " +
                                                                std::to_string(i)}));
                if (!nullcontexts)
                    expect_contexts(i + 1, i);
                else
                    EXPECT_EQ(office_.events.size(), 2 * i + 1);
            }
}

TEST_F(VelthreadpoolFailed, ParamsWithoutMemory)
{
    support::malloc_watch watch(1, 1);
    EXPECT_EQ(vel_threadpool_params_create_defaults(), nullptr);
}

/* Out of the fixture, as no thread may have run in this process before. */
int request;

bool use_pool()
{
    office mine;
    const params_ptr params(vel_threadpool_params_create_defaults());
    if (!params)
        return false;
    vel_threadpool_params_set_num_threads(params.get(), 3);
    vel_threadpool_params_set_global_context(params.get(), &mine);
    vel_threadpool_params_set_thread_ctx_create(params.get(), create_context);
    vel_threadpool_params_set_thread_ctx_destroy(params.get(), destroy_context);
    vel_threadpool_params_set_request_handler(params.get(), handle);
    vel_error_t error = -1;
    velthreadpool *pool = vel_threadpool_create(params.get(), &error);
    EXPECT_EQ(pool == nullptr, error != VEL_ERROR_NONE);
    if (!pool)
        return false;
    const vel_error_t submitted = vel_threadpool_submit_request(pool, &request);
    if (submitted == VEL_ERROR_NONE) {
        EXPECT_EQ(vel_threadpool_get_result(pool, nullptr), &request);
    }
    vel_threadpool_destroy(pool);
    EXPECT_EQ(mine.events.size(), 6u);
    return submitted == VEL_ERROR_NONE;
}

TEST(VelthreadpoolFailures, EachAllocation)
{
    EXPECT_GE(support::vel_oom_drive(use_pool), 10u);
}

TEST(VelthreadpoolDeathTest, Params)
{
    const testing::Matcher<const std::string &> asserts = support::asserts("params");
    EXPECT_DEATH(vel_threadpool_params_set_defaults(nullptr), asserts);
    EXPECT_DEATH(vel_threadpool_params_set_num_threads(nullptr, 1), asserts);
    EXPECT_DEATH(vel_threadpool_params_set_global_context(nullptr, nullptr), asserts);
    EXPECT_DEATH(vel_threadpool_params_set_thread_ctx_create(nullptr, nullptr), asserts);
    EXPECT_DEATH(vel_threadpool_params_set_thread_ctx_destroy(nullptr, nullptr), asserts);
    EXPECT_DEATH(vel_threadpool_params_set_request_handler(nullptr, nullptr), asserts);
    EXPECT_DEATH(vel_threadpool_params_destroy(nullptr), asserts);
}

TEST(VelthreadpoolDeathTest, Pool)
{
    const testing::Matcher<const std::string &> asserts = support::asserts("pool");
    EXPECT_DEATH(vel_threadpool_stop(nullptr), asserts);
    EXPECT_DEATH(vel_threadpool_destroy(nullptr), asserts);
    EXPECT_DEATH(vel_threadpool_submit_request(nullptr, nullptr), asserts);
    EXPECT_DEATH(vel_threadpool_get_result(nullptr, nullptr), asserts);
    EXPECT_DEATH(vel_threadpool_get_result_try(nullptr, nullptr), asserts);
}

TEST(VelthreadpoolDeathTest, Join)
{
    const auto stop_with_failed_join = [] {
        support::server_calls failing;
        failing.failjoin = 1;
        support::calls = &failing;
        const params_ptr params(vel_threadpool_params_create_defaults());
        velthreadpool *pool = vel_threadpool_create(params.get(), nullptr);
        vel_threadpool_stop(pool);
    };
    EXPECT_DEATH(stop_with_failed_join(),
                 support::asserts("res == 0", "vel_threadpool_stop_internal"));
}

} // namespace
