/* The queue between threads against GAsyncQueue and the simplest queue of the C++ library, and the
 * pool against GThreadPool and asio. vellib comes twice: with items, each of which is wrapped in a
 * block of its own as in the peers, and with elements, which are made once and pushed again. The
 * peers' pools have no results, so their handlers put each request into the queue of the same maker.
 */
#define ASIO_STANDALONE

#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include <asio/post.hpp>
#include <asio/thread_pool.hpp>
#include <glib.h>

#include <vellib/vellockqueue.h>
#include <vellib/velthreadpool.h>

#include "bench.h"

namespace {

constexpr size_t kItems = 100000;
constexpr unsigned kWorkers = 2;

/* An item that can be pushed as it is into any of the queues. */
struct request {
    vellockqueue_element *element = vel_lockqueue_element_create();
    size_t value = 0;
};

std::vector<request> requests(kItems);

/* ---- Queues ---- */

struct vel_items {
    vellockqueue *queue = vel_lockqueue_create(nullptr);

    void push(request *item)
    {
        if (vel_lockqueue_push(queue, item) != VEL_ERROR_NONE)
            abort();
    }

    request *pop()
    {
        vel_error_t error;
        return static_cast<request *>(vel_lockqueue_pop(queue, &error));
    }
};

struct vel_elements {
    vellockqueue *queue = vel_lockqueue_create(nullptr);

    void push(request *item)
    {
        vel_lockqueue_element_set_item(item->element, item);
        if (vel_lockqueue_push_element(queue, item->element) != VEL_ERROR_NONE)
            abort();
    }

    request *pop()
    {
        return static_cast<request *>(
            vel_lockqueue_element_get_item(vel_lockqueue_pop_element(queue, nullptr)));
    }
};

struct glib_queue {
    GAsyncQueue *queue = g_async_queue_new();

    void push(request *item)
    {
        g_async_queue_push(queue, item);
    }

    request *pop()
    {
        return static_cast<request *>(g_async_queue_pop(queue));
    }
};

struct std_queue {
    std::mutex mutex;
    std::condition_variable filled;
    std::deque<request *> items;

    void push(request *item)
    {
        {
            const std::lock_guard lock(mutex);
            items.push_back(item);
        }
        filled.notify_one();
    }

    request *pop()
    {
        std::unique_lock lock(mutex);
        filled.wait(lock, [this] { return !items.empty(); });
        request *item = items.front();
        items.pop_front();
        return item;
    }
};

template <typename Queue> double one_thread()
{
    static Queue queue;
    return bench::sample(kItems, [] {
        queue.push(&requests[0]);
        bench::keep(queue.pop());
    });
}

/* Each producer has its own share of the requests, so that none is in the queue twice. */
template <typename Queue> double many_threads(size_t pairs)
{
    static Queue queue;
    const size_t share = kItems / pairs;
    std::vector<std::thread> threads;
    const auto start = bench::clock::now();
    for (size_t pair = 0; pair < pairs; pair++) {
        threads.emplace_back([=] {
            for (size_t i = pair * share; i < (pair + 1) * share; i++)
                queue.push(&requests[i]);
        });
        threads.emplace_back([=] {
            for (size_t i = 0; i < share; i++)
                bench::keep(queue.pop());
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    return bench::nanoseconds(bench::clock::now() - start) / static_cast<double>(pairs * share);
}

/* One item there and back, with nobody else awake. */
template <typename Queue> double ping_pong()
{
    static Queue there, back;
    constexpr size_t rounds = 1000;
    std::thread thread([] {
        for (size_t i = 0; i < rounds; i++)
            back.push(there.pop());
    });
    const double result = bench::sample(rounds, [] {
        there.push(&requests[0]);
        bench::keep(back.pop());
    });
    thread.join();
    return result;
}

/* ---- Pools ---- */

void work(request *request)
{
    request->value++;
}

struct vel_pool {
    velthreadpool *pool;

    vel_pool()
    {
        velthreadpool_params *params = vel_threadpool_params_create_defaults();
        vel_threadpool_params_set_num_threads(params, kWorkers);
        vel_threadpool_params_set_request_handler(
            params, [](void *, void *, void *item) { work(static_cast<request *>(item)); });
        pool = vel_threadpool_create(params, nullptr);
        vel_threadpool_params_destroy(params);
    }

    ~vel_pool()
    {
        vel_threadpool_destroy(pool);
    }

    void submit(request *item)
    {
        if (vel_threadpool_submit_request(pool, item) != VEL_ERROR_NONE)
            abort();
    }

    request *result()
    {
        return static_cast<request *>(vel_threadpool_get_result(pool, nullptr));
    }
};

struct glib_pool {
    glib_queue results;
    GThreadPool *pool = g_thread_pool_new(
        [](gpointer item, gpointer self) {
            work(static_cast<request *>(item));
            static_cast<glib_pool *>(self)->results.push(static_cast<request *>(item));
        },
        this, kWorkers, TRUE, nullptr);

    ~glib_pool()
    {
        g_thread_pool_free(pool, FALSE, TRUE);
    }

    void submit(request *item)
    {
        g_thread_pool_push(pool, item, nullptr);
    }

    request *result()
    {
        return results.pop();
    }
};

struct asio_pool {
    std_queue results;
    asio::thread_pool pool{kWorkers};

    ~asio_pool()
    {
        pool.join();
    }

    void submit(request *item)
    {
        asio::post(pool, [this, item] {
            work(item);
            results.push(item);
        });
    }

    request *result()
    {
        return results.pop();
    }
};

template <typename Pool> double all_at_once()
{
    Pool pool;
    const auto start = bench::clock::now();
    for (request &request : requests)
        pool.submit(&request);
    for (size_t i = 0; i < kItems; i++)
        bench::keep(pool.result());
    return bench::nanoseconds(bench::clock::now() - start) / kItems;
}

template <typename Pool> double one_at_a_time()
{
    Pool pool;
    return bench::sample(1000, [&] {
        pool.submit(&requests[0]);
        bench::keep(pool.result());
    });
}

/* ---- Tables ---- */

void bench_row(const char *name, const std::vector<std::function<double()>> &contenders)
{
    bench::measure_row(name, contenders.size(), 21, [&](size_t i) { return contenders[i](); });
}

void bench_pairs(const char *name, size_t pairs)
{
    bench_row(name, {[=] { return many_threads<vel_items>(pairs); },
                     [=] { return many_threads<vel_elements>(pairs); },
                     [=] { return many_threads<glib_queue>(pairs); },
                     [=] { return many_threads<std_queue>(pairs); }});
}

} // namespace

int main()
{
    bench::print_header("ns an item",
                        {"vellib", "vellib elements", "GAsyncQueue", "std mutex and deque"});
    bench_row("push and pop in one thread", {one_thread<vel_items>, one_thread<vel_elements>,
                                             one_thread<glib_queue>, one_thread<std_queue>});
    bench_pairs("1 producer, 1 consumer", 1);
    bench_pairs("2 producers, 2 consumers", 2);
    bench_row("one item there and back", {ping_pong<vel_items>, ping_pong<vel_elements>,
                                          ping_pong<glib_queue>, ping_pong<std_queue>});

    bench::print_header("ns a request, 2 threads", {"vellib", "GThreadPool", "asio"});
    bench_row("100000 submitted, then collected",
              {all_at_once<vel_pool>, all_at_once<glib_pool>, all_at_once<asio_pool>});
    bench_row("one at a time",
              {one_at_a_time<vel_pool>, one_at_a_time<glib_pool>, one_at_a_time<asio_pool>});
    return 0;
}
