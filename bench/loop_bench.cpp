/* The event loop against libuv, libevent and libev, and the UDP server against a plain loop. The
 * contract fixes what the loop asks of the kernel: a wait whose event is thrown away, and a fetch of
 * one event; and the lines it writes to the log, which no sink takes here. The first bare loop does that
 * and nothing else. */
#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <thread>

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <ev.h>
#include <uv.h>
/* The next one defines macros of the same names. */
static constexpr int libev_read = EV_READ;
#include <event2/event.h>
#include <event2/event_struct.h>

#include <vellib/velasync.h>
#include <vellib/vellog.h>
#include <vellib/veludpserver.h>

#include "bench.h"

namespace {

void check(bool good)
{
    if (!good)
        abort();
}

size_t served;

/* ---- timers ------------------------------------------------------------------------------------ */

/* One loop with timers. begin prepares memory that the caller of a peer provides. */
struct timers {
    virtual ~timers() = default;
    virtual void begin(size_t count) = 0;
    virtual void add(size_t i, unsigned int ms) = 0;
    virtual void cancel(size_t i) = 0;
    /* Calls what is due and what was cancelled. */
    virtual void turn() = 0;
};

struct vellib_timers : timers {
    velasync *loop = vel_async_create();
    std::vector<velasyncop *> ops;

    ~vellib_timers() override
    {
        vel_async_destroy(loop);
    }
    void begin(size_t count) override
    {
        ops.resize(count);
    }
    void add(size_t i, unsigned int ms) override
    {
        ops[i] = vel_async_register_timeout_ms(
            loop, ms, [](vel_error_t, void *) { served++; }, nullptr);
    }
    void cancel(size_t i) override
    {
        vel_async_cancel(loop, ops[i]);
    }
    void turn() override
    {
        vel_async_process(loop);
    }
};

struct libuv_timers : timers {
    uv_loop_t loop;
    std::unique_ptr<uv_timer_t[]> all;

    libuv_timers()
    {
        check(uv_loop_init(&loop) == 0);
    }
    ~libuv_timers() override
    {
        uv_walk(
            &loop, [](uv_handle_t *handle, void *) { uv_close(handle, nullptr); }, nullptr);
        uv_run(&loop, UV_RUN_DEFAULT);
        uv_loop_close(&loop);
    }
    void begin(size_t count) override
    {
        if (all) /* the loop knows them */
            return;
        all.reset(new uv_timer_t[count]);
        for (size_t i = 0; i < count; i++)
            uv_timer_init(&loop, &all[i]);
    }
    void add(size_t i, unsigned int ms) override
    {
        uv_timer_start(
            &all[i], [](uv_timer_t *) { served++; }, ms, 0);
    }
    void cancel(size_t i) override
    {
        uv_timer_stop(&all[i]);
        served++;
    }
    void turn() override
    {
        uv_run(&loop, UV_RUN_NOWAIT);
    }
};

struct libevent_timers : timers {
    event_base *base = event_base_new();
    std::vector<event *> all;

    ~libevent_timers() override
    {
        event_base_free(base);
    }
    void begin(size_t count) override
    {
        all.resize(count);
    }
    void add(size_t i, unsigned int ms) override
    {
        all[i] = evtimer_new(
            base,
            [](evutil_socket_t, short, void *context) {
                served++;
                event_free(*static_cast<event **>(context));
            },
            &all[i]);
        const timeval time = {static_cast<time_t>(ms / 1000),
                              static_cast<suseconds_t>(ms % 1000 * 1000)};
        evtimer_add(all[i], &time);
    }
    void cancel(size_t i) override
    {
        event_free(all[i]);
        served++;
    }
    void turn() override
    {
        event_base_loop(base, EVLOOP_NONBLOCK);
    }
};

struct libev_timers : timers {
    struct ev_loop *loop = ev_loop_new(EVFLAG_AUTO);
    std::unique_ptr<ev_timer[]> all;

    ~libev_timers() override
    {
        ev_loop_destroy(loop);
    }
    void begin(size_t count) override
    {
        all.reset(new ev_timer[count]);
        ev_now_update(loop);
    }
    void add(size_t i, unsigned int ms) override
    {
        ev_timer_init(
            &all[i], [](struct ev_loop *, ev_timer *, int) { served++; }, ms / 1000.0, 0.0);
        ev_timer_start(loop, &all[i]);
    }
    void cancel(size_t i) override
    {
        ev_timer_stop(loop, &all[i]);
        served++;
    }
    void turn() override
    {
        ev_run(loop, EVRUN_NOWAIT);
    }
};

std::unique_ptr<timers> make_timers(size_t contender)
{
    switch (contender) {
    case 0:
        return std::make_unique<vellib_timers>();
    case 1:
        return std::make_unique<libuv_timers>();
    case 2:
        return std::make_unique<libevent_timers>();
    default:
        return std::make_unique<libev_timers>();
    }
}

/* Deadlines are spread over 30 ms in no order. */
void bench_timers(size_t count, int rounds)
{
    constexpr size_t contenders = 4;
    bench::series add(contenders), fire(contenders), both(contenders);
    std::mt19937 random(7);
    std::vector<unsigned int> times(count);
    for (unsigned int &time : times)
        time = 1 + static_cast<unsigned int>(random() % 30);

    for (int round = 0; round < rounds; round++)
        for (size_t contender = 0; contender < contenders; contender++) {
            auto loop = make_timers(contender);
            loop->begin(count);
            served = 0;
            size_t i = 0;
            add.add(contender, bench::sample(count, [&] {
                        loop->add(i, times[i]);
                        i++;
                    }));
            std::this_thread::sleep_for(std::chrono::milliseconds(35));
            fire.add(contender, bench::sample(1, [&] {
                                    while (served < count)
                                        loop->turn();
                                }) / static_cast<double>(count));
            loop->begin(count);
            served = 0;
            both.add(contender, bench::sample(1, [&] {
                                    for (size_t k = 0; k < count; k++)
                                        loop->add(k, 10000 + times[k]);
                                    for (size_t k = 0; k < count; k++)
                                        loop->cancel(k);
                                    loop->turn();
                                }) / static_cast<double>(count));
            check(served == count);
        }
    const std::string suffix = " " + std::to_string(count);
    bench::print_row("add" + suffix, add);
    bench::print_row("fire" + suffix, fire);
    bench::print_row("add and cancel" + suffix, both);
}

/* ---- descriptors ------------------------------------------------------------------------------- */

struct pipes {
    std::vector<std::array<int, 2>> all;

    explicit pipes(size_t count) : all(count)
    {
        for (auto &pipe : all)
            check(pipe2(pipe.data(), O_NONBLOCK) == 0);
    }
    ~pipes()
    {
        for (auto &pipe : all)
            for (int descriptor : pipe)
                close(descriptor);
    }
    void fill(size_t i) const
    {
        check(write(all[i][1], "x", 1) == 1);
    }
};

void drain(int descriptor)
{
    char bytes[8]; /* what an event counter gives at once */
    check(read(descriptor, bytes, sizeof(bytes)) > 0);
    served++;
}

/* One loop with descriptors to read from. */
struct readers {
    virtual ~readers() = default;
    virtual void add(size_t i, int descriptor) = 0;
    virtual void remove(size_t i) = 0;
    /* Waits, and serves what is ready. */
    virtual void turn() = 0;
};

struct vellib_readers : readers {
    velasync *loop = vel_async_create();
    std::vector<int> descriptors;
    bool waiting;

    vellib_readers(size_t count, bool wait) : descriptors(count), waiting(wait)
    {
    }
    ~vellib_readers() override
    {
        vel_async_destroy(loop);
    }
    void add(size_t i, int descriptor) override
    {
        descriptors[i] = descriptor;
        vel_async_register_socket_read(
            loop, descriptor, [](void *context) { drain(*static_cast<int *>(context)); },
            &descriptors[i]);
    }
    void remove(size_t i) override
    {
        vel_async_unregister_socket_read(loop, descriptors[i]);
    }
    void turn() override
    {
        if (waiting)
            vel_async_poll(loop);
        vel_async_process(loop);
    }
};

/* epoll with nothing around it: many events a wait, and no other call. */
struct bare_readers : readers {
    int queue = epoll_create1(0);
    std::vector<int> descriptors;

    explicit bare_readers(size_t count) : descriptors(count)
    {
    }
    ~bare_readers() override
    {
        close(queue);
    }
    void add(size_t i, int descriptor) override
    {
        epoll_event event = {EPOLLIN, {}};
        event.data.fd = descriptors[i] = descriptor;
        check(epoll_ctl(queue, EPOLL_CTL_ADD, descriptor, &event) == 0);
    }
    void remove(size_t i) override
    {
        epoll_event event = {};
        check(epoll_ctl(queue, EPOLL_CTL_DEL, descriptors[i], &event) == 0);
    }
    void turn() override
    {
        epoll_event events[64];
        const int count = epoll_wait(queue, events, 64, -1);
        for (int i = 0; i < count; i++)
            drain(events[i].data.fd);
    }
};

/* The calls and the lines of the contract. A wait that leaves the order alone polls the set. */
struct contract_readers : bare_readers {
    bool waiting;

    contract_readers(size_t count, bool wait) : bare_readers(count), waiting(wait)
    {
    }
    void add(size_t i, int descriptor) override
    {
        bare_readers::add(i, descriptor);
        VEL_LOG_AT(nullptr, 1, "async/velasync_socket", __LINE__, "kevent() returned %d", 0);
    }
    void remove(size_t i) override
    {
        bare_readers::remove(i);
        VEL_LOG_AT(nullptr, 1, "async/velasync_socket", __LINE__, "kevent() returned %d", 0);
    }
    void turn() override
    {
        epoll_event events[1];
        if (waiting) {
            pollfd polled = {queue, POLLIN, 0};
            const int ready = poll(&polled, 1, 0);
            VEL_LOG_AT(nullptr, 1, "async/velasync", __LINE__, "kevent() returned %d events",
                       ready);
        }
        VEL_LOG_AT(nullptr, 13, "async/velasync", __LINE__, "vel_async_process_eventhandle()");
        const int count = epoll_wait(queue, events, 1, 0);
        if (count != 1)
            return;
        VEL_LOG_AT(nullptr, 1, "async/velasync", __LINE__, "kevent() returned %d descriptors",
                   count);
        VEL_LOG_AT(nullptr, 1, "async/velasync", __LINE__,
                   "vel_async_process_eventhandle(): ident %lu is ready",
                   static_cast<unsigned long>(events[0].data.fd));
        drain(events[0].data.fd);
    }
};

struct libuv_readers : readers {
    uv_loop_t loop;
    std::unique_ptr<uv_poll_t[]> all;
    size_t closing = 0;

    explicit libuv_readers(size_t count) : all(new uv_poll_t[count])
    {
        check(uv_loop_init(&loop) == 0);
    }
    ~libuv_readers() override
    {
        uv_walk(
            &loop,
            [](uv_handle_t *handle, void *) {
                if (!uv_is_closing(handle))
                    uv_close(handle, nullptr);
            },
            nullptr);
        uv_run(&loop, UV_RUN_DEFAULT);
        uv_loop_close(&loop);
    }
    void add(size_t i, int descriptor) override
    {
        uv_poll_init(&loop, &all[i], descriptor);
        uv_poll_start(&all[i], UV_READABLE, [](uv_poll_t *handle, int, int) {
            int ready;
            uv_fileno(reinterpret_cast<uv_handle_t *>(handle), &ready);
            drain(ready);
        });
    }
    void remove(size_t i) override
    {
        uv_close(reinterpret_cast<uv_handle_t *>(&all[i]), nullptr);
    }
    void turn() override
    {
        uv_run(&loop, UV_RUN_ONCE);
    }
};

struct libevent_readers : readers {
    event_base *base = event_base_new();
    std::vector<event> all;

    explicit libevent_readers(size_t count) : all(count)
    {
    }
    ~libevent_readers() override
    {
        event_base_free(base);
    }
    void add(size_t i, int descriptor) override
    {
        event_assign(
            &all[i], base, descriptor, EV_READ | EV_PERSIST,
            [](evutil_socket_t ready, short, void *) { drain(ready); }, nullptr);
        event_add(&all[i], nullptr);
    }
    void remove(size_t i) override
    {
        event_del(&all[i]);
    }
    void turn() override
    {
        event_base_loop(base, EVLOOP_ONCE);
    }
};

struct libev_readers : readers {
    struct ev_loop *loop = ev_loop_new(EVFLAG_AUTO);
    std::vector<ev_io> all;

    explicit libev_readers(size_t count) : all(count)
    {
    }
    ~libev_readers() override
    {
        ev_loop_destroy(loop);
    }
    void add(size_t i, int descriptor) override
    {
        ev_io_init(
            &all[i], [](struct ev_loop *, ev_io *io, int) { drain(io->fd); }, descriptor,
            libev_read);
        ev_io_start(loop, &all[i]);
    }
    void remove(size_t i) override
    {
        ev_io_stop(loop, &all[i]);
    }
    void turn() override
    {
        ev_run(loop, EVRUN_ONCE);
    }
};

/* The library first, with its wait or without, and then the same calls bare. */
using maker = std::function<std::unique_ptr<readers>(size_t count)>;

std::vector<maker> makers(bool waiting)
{
    return {
        [waiting](size_t count) { return std::make_unique<vellib_readers>(count, waiting); },
        [waiting](size_t count) { return std::make_unique<contract_readers>(count, waiting); },
        [](size_t count) { return std::make_unique<bare_readers>(count); },
        [](size_t count) { return std::make_unique<libuv_readers>(count); },
        [](size_t count) { return std::make_unique<libevent_readers>(count); },
        [](size_t count) { return std::make_unique<libev_readers>(count); },
    };
}

/* Of so many descriptors as many as are active are filled, and all of those are served. */
void bench_events(const std::string &name, size_t count, size_t active, bool waiting)
{
    const pipes pipes(count);
    const std::vector<maker> all = makers(waiting);
    const size_t calls = 20000 / active;
    std::vector<std::unique_ptr<readers>> loops;
    for (const maker &make : all) {
        loops.push_back(make(count));
        for (size_t i = 0; i < count; i++)
            loops.back()->add(i, pipes.all[i][0]);
        pipes.fill(0); /* what a loop does at its first turn is not measured */
        served = 0;
        while (served < 1)
            loops.back()->turn();
    }
    bench::measure_row(name, all.size(), 21, [&](size_t contender) {
        return bench::sample(calls, active, [&] {
            served = 0;
            for (size_t i = 0; i < active; i++)
                pipes.fill(count / 2 + i < count ? count / 2 + i : count / 2 + i - count);
            while (served < active)
                loops[contender]->turn();
        });
    });
}

void bench_registration(size_t count)
{
    std::vector<int> descriptors(count);
    for (int &descriptor : descriptors)
        check((descriptor = eventfd(0, EFD_NONBLOCK | EFD_SEMAPHORE)) >= 0);
    const std::vector<maker> all = makers(true);
    const std::string name = "register and unregister " + std::to_string(count);
    bench::measure_row(name, all.size(), 51, [&](size_t contender) {
        /* libev merges what is changed before a turn, so each contender takes one turn, which
         * the last descriptor ends. */
        auto loop = all[contender](count);
        check(eventfd_write(descriptors[count - 1], 1) == 0);
        served = 0;
        return bench::sample(1, count, [&] {
            for (size_t i = 0; i < count; i++)
                loop->add(i, descriptors[i]);
            while (served < 1)
                loop->turn();
            for (size_t i = 0; i < count; i++)
                loop->remove(i);
        });
    });
    for (int descriptor : descriptors)
        close(descriptor);
}

/* ---- the UDP server ---------------------------------------------------------------------------- */

/* Echoes until an empty datagram. */
void plain_echo(int s)
{
    std::vector<char> buffer(65536);
    for (;;) {
        sockaddr_in sender;
        socklen_t length = sizeof(sender);
        auto *address = reinterpret_cast<sockaddr *>(&sender);
        const ssize_t count = recvfrom(s, buffer.data(), buffer.size(), 0, address, &length);
        if (count == 0)
            return;
        check(count > 0 &&
              sendto(s, buffer.data(), static_cast<size_t>(count), 0, address, length) == count);
    }
}

int udp_socket(unsigned int port, bool connected)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    auto *pointer = reinterpret_cast<sockaddr *>(&address);
    const int s = socket(AF_INET, SOCK_DGRAM, 0);
    check((connected ? connect(s, pointer, sizeof(address)) : bind(s, pointer, sizeof(address))) ==
          0);
    return s;
}

unsigned int port_of(int s)
{
    sockaddr_in address;
    socklen_t length = sizeof(address);
    check(getsockname(s, reinterpret_cast<sockaddr *>(&address), &length) == 0);
    return ntohs(address.sin_port);
}

/* Several datagrams are under way at a time, so that the wake of a thread does not decide. */
void exchange(int s, size_t size)
{
    constexpr int window = 16;
    char bytes[2048] = {};
    for (int i = 0; i < window; i++)
        check(send(s, bytes, size, 0) == static_cast<ssize_t>(size));
    for (int i = 0; i < window; i++)
        check(recv(s, bytes, sizeof(bytes), 0) == static_cast<ssize_t>(size));
}

void bench_udp()
{
    veludpserver *server = vel_udpserver_create();
    unsigned int port;
    vel_udpserver_set_address(server, "127.0.0.1");
    vel_udpserver_set_callback(
        server,
        [](veludpserver *, velhandle *handle, const void *buffer, size_t length, void *) {
            vel_handle_write(handle, buffer, length);
        },
        nullptr);
    check(vel_udpserver_start(server) == VEL_ERROR_NONE);
    check(vel_udpserver_get_port(server, &port) == VEL_ERROR_NONE);
    const int plain = udp_socket(0, false);
    std::thread echo(plain_echo, plain);
    const int clients[] = {udp_socket(port, true), udp_socket(port_of(plain), true)};

    for (size_t size : {64, 1400})
        bench::measure_row(
            "echo " + std::to_string(size) + " bytes", 2, 101, [&](size_t contender) {
                return bench::sample(50, 16, [&] { exchange(clients[contender], size); });
            });
    check(send(clients[1], "", 0, 0) == 0);
    echo.join();
    vel_udpserver_stop(server);
    vel_udpserver_wait(server);
    vel_udpserver_destroy(server);
    for (int s : {plain, clients[0], clients[1]})
        close(s);
}

} // namespace

int main()
{
    rlimit limit;
    check(getrlimit(RLIMIT_NOFILE, &limit) == 0);
    limit.rlim_cur = limit.rlim_max;
    check(setrlimit(RLIMIT_NOFILE, &limit) == 0);
    /* Or each turn writes lines to standard error. */
    vel_log_stderr_disable(nullptr);

    bench::print_header("ns a timer", {"vellib", "libuv", "libevent", "libev"});
    bench_timers(1000, 21);
    bench_timers(100000, 11);

    const std::vector<std::string> contenders = {"vellib", "the same bare", "bare epoll",
                                                 "libuv",  "libevent",      "libev"};
    bench::print_header("ns an event or descriptor", contenders);
    bench_events("one active, alone", 1, 1, true);
    bench_events("one active of 1000", 1000, 1, true);
    bench_events("1000 active of 1000", 1000, 1000, true);
    bench_events("one active of 1000, no wait", 1000, 1, false);
    bench_events("1000 active of 1000, no wait", 1000, 1000, false);
    bench_registration(1000);
    bench_registration(10000);

    bench::print_header("ns a datagram", {"vellib", "plain loop"});
    bench_udp();
    return 0;
}
