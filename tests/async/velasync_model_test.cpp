/* The loop beside a naive one: random registrations, cancels, readiness and time, from the outside
 * and from callbacks. Which of several ready descriptors comes next is the loop's own choice; the
 * naive one is told which, and says whether it could be. */

#include <algorithm>
#include <climits>
#include <fcntl.h>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/asynctest.h"
#include "support/playedclock.h"

namespace {

using support::names;

constexpr int kSlots = 6;
constexpr int kFile = 0;      /* this one is a regular file */
constexpr int kNumbers = 300; /* and their descriptors begin here */

enum way { reads, writes };
const char *const kWays[] = {"read", "write"};
const char *const kWords[] = {"reading", "writing"};
const char *const kFilters[] = {"EVFILT_READ", "EVFILT_WRITE"};

struct event {
    int s;
    way direction;

    auto operator<=>(const event &) const = default;
};

/* What happens to a world: its callbacks are told here. */
class listener {
  public:
    virtual ~listener() = default;
    virtual void timed(int id, vel_error_t code) = 0;
    virtual void ready(int s, way direction, int callback) = 0;
};

/* What a player can do. Timeouts have numbers, slots have descriptors of fixed numbers. */
class world {
  public:
    virtual ~world() = default;
    virtual void add(int id, unsigned int ms) = 0;
    virtual void cancel(int id) = 0;
    virtual vel_error_t registers(int s, way direction, int callback) = 0;
    virtual vel_error_t unregisters(int s, way direction) = 0;
    virtual void open(int s) = 0;
    virtual void close(int s) = 0;
    virtual void close_peer(int s) = 0;
    virtual void set_ready(int s, way direction, bool ready) = 0;
    virtual void move_us(int64_t microseconds) = 0;
    virtual int timeout_ms() = 0;
    virtual names take_log() = 0; /* lines of the levels 6 and 7, without errno */

    listener *listens = nullptr;
};

/* The library and the platform. */
class real_world : public world {
  public:
    real_world() : async_(vel_async_create())
    {
        EXPECT_NE(async_, nullptr);
        for (int s = kNumbers; s < kNumbers + kSlots; s++)
            open(s);
    }
    ~real_world() override
    {
        vel_async_destroy(async_);
        for (int s = kNumbers; s < kNumbers + kSlots; s++) {
            ::close(s);
            close_peer(s);
        }
    }
    void add(int id, unsigned int ms) override
    {
        ops_[id] = vel_async_register_timeout_ms(async_, ms, timed, context({this, id, reads, 0}));
        EXPECT_NE(ops_[id], nullptr);
    }
    void cancel(int id) override
    {
        vel_async_cancel(async_, ops_[id]);
    }
    vel_error_t registers(int s, way direction, int callback) override
    {
        void *own = context({this, s, direction, callback});
        return direction == reads ? vel_async_register_socket_read(async_, s, ready, own)
                                  : vel_async_register_socket_write(async_, s, ready, own);
    }
    vel_error_t unregisters(int s, way direction) override
    {
        return direction == reads ? vel_async_unregister_socket_read(async_, s)
                                  : vel_async_unregister_socket_write(async_, s);
    }
    void open(int s) override
    {
        if (s == kNumbers + kFile) {
            const int file = memfd_create("file", MFD_CLOEXEC);
            EXPECT_EQ(dup2(file, s), s);
            ::close(file);
            return;
        }
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
        EXPECT_EQ(dup2(ends[0], s), s);
        ::close(ends[0]);
        close_peer(s);
        peers_[s] = ends[1];
    }
    void close(int s) override
    {
        EXPECT_EQ(::close(s), 0);
    }
    void close_peer(int s) override
    {
        const auto found = peers_.find(s);
        if (found == peers_.end())
            return;
        ::close(found->second);
        peers_.erase(found);
    }
    void set_ready(int s, way direction, bool ready) override
    {
        if (direction == reads && ready)
            EXPECT_EQ(write(peers_[s], "x", 1), 1);
        else if (direction == reads)
            drain(s);
        else if (ready)
            drain(peers_[s]);
        else
            fill(s);
    }
    void move_us(int64_t microseconds) override
    {
        clock_.move_us(microseconds);
    }
    int timeout_ms() override
    {
        return vel_async_get_timeout_ms(async_);
    }
    names take_log() override
    {
        return std::exchange(lines_, {});
    }
    /* The result, and the event that was served. */
    vel_error_t process(std::optional<event> *served)
    {
        note_log(nullptr);
        called_.reset();
        const vel_error_t result = vel_async_process(async_);
        note_log(served);
        if (called_)
            *served = called_;
        return result;
    }
    void note_log(std::optional<event> *served)
    {
        static const std::regex number("errno [0-9]+");
        static const std::regex unserved("(?:no|processing) (read|write) .*socket ([0-9]+)");
        for (const support::log_line &line : log_.take_from("async/")) {
            if (line.level != 6 && line.level != 7)
                continue;
            lines_.push_back(std::regex_replace(line.text, number, "errno"));
            std::smatch match;
            if (served && std::regex_match(line.text, match, unserved))
                *served = event{std::stoi(match[2]), match[1] == "read" ? reads : writes};
        }
    }

  private:
    struct own_context {
        real_world *self;
        int number; /* of the timeout, or the descriptor */
        way direction;
        int callback;
    };
    void *context(const own_context &own)
    {
        return &contexts_.emplace_back(own);
    }
    static void timed(vel_error_t code, void *context)
    {
        auto *own = static_cast<own_context *>(context);
        own->self->ops_.erase(own->number);
        own->self->listens->timed(own->number, code);
    }
    static void ready(void *context)
    {
        const auto own = *static_cast<own_context *>(context);
        EXPECT_FALSE(own.self->called_.has_value()) << "a second event in one pass";
        own.self->called_ = event{own.number, own.direction};
        own.self->listens->ready(own.number, own.direction, own.callback);
    }
    static void drain(int descriptor)
    {
        char bytes[65536];
        while (read(descriptor, bytes, sizeof bytes) > 0) {
        }
    }
    static void fill(int descriptor)
    {
        static const std::string bytes(65536, 'x');
        while (write(descriptor, bytes.data(), bytes.size()) > 0) {
        }
    }

    support::played_clock clock_;
    support::log_capture log_;
    velasync *async_;
    std::map<int, velasyncop *> ops_;
    std::map<int, int> peers_;
    std::deque<own_context> contexts_;
    std::optional<event> called_;
    names lines_;
};

/* The rules, as plainly as they can be written down. */
class naive_world : public world {
  public:
    naive_world()
    {
        for (int s = kNumbers; s < kNumbers + kSlots; s++)
            open(s);
    }
    void add(int id, unsigned int ms) override
    {
        const int64_t deadline = now_ + int64_t{ms} * 1000;
        auto place = timeouts_.begin();
        while (place != timeouts_.end() && place->deadline <= deadline)
            ++place;
        timeouts_.insert(place, {id, deadline});
    }
    void cancel(int id) override
    {
        tocancel_.push_back(id);
    }
    vel_error_t registers(int s, way direction, int callback) override
    {
        items_[s].callbacks[direction] = callback;
        if (sockets_[s].open) {
            queue_.insert({s, direction});
            return VEL_ERROR_NONE;
        }
        log_.push_back("kevent() " + std::string(kFilters[direction]) + " failed, errno");
        return VEL_ERROR_GENERIC;
    }
    vel_error_t unregisters(int s, way direction) override
    {
        const auto item = items_.find(s);
        if (item == items_.end() || item->second.callbacks[direction] == 0) {
            log_.push_back("socket " + std::to_string(s) + " was not registered" +
                           (item == items_.end() ? "" : std::string(" for ") + kWords[direction]));
            return VEL_ERROR_NOT_FOUND;
        }
        item->second.callbacks[direction] = 0;
        way removed = direction;
        if (item->second.callbacks[1 - direction] != 0)
            removed = reads; /* whichever it was */
        else
            items_.erase(item);
        if (queue_.erase({s, removed}) == 1)
            return VEL_ERROR_NONE;
        log_.push_back("kevent() " + std::string(kFilters[removed]) + " EV_DELETE failed, errno");
        return VEL_ERROR_GENERIC;
    }
    void open(int s) override
    {
        sockets_[s] = {true, s == kNumbers + kFile, {s == kNumbers + kFile, true}};
    }
    void close(int s) override
    {
        sockets_[s].open = false;
        queue_.erase({s, reads});
        queue_.erase({s, writes});
    }
    void close_peer(int s) override
    {
        sockets_[s].ended = true;
    }
    void set_ready(int s, way direction, bool ready) override
    {
        sockets_[s].ready[direction] = ready;
    }
    void move_us(int64_t microseconds) override
    {
        now_ += microseconds;
    }
    int timeout_ms() override
    {
        if (timeouts_.empty())
            return -1;
        const int64_t left = timeouts_[0].deadline - now_;
        return left <= 0 ? 0 : static_cast<int>((left + 999) / 1000);
    }
    names take_log() override
    {
        return std::exchange(log_, {});
    }

    vel_error_t process(const std::optional<event> &served)
    {
        serve_canceled();
        serve_event(served);
        serve_canceled();
        serve_timeouts();
        serve_canceled();
        return items_.empty() && timeouts_.empty() ? VEL_ERROR_NONE : VEL_ERROR_INCOMPLETE;
    }

  private:
    struct timeout {
        int id;
        int64_t deadline;
    };
    struct item {
        int callbacks[2] = {0, 0};
    };
    struct socket {
        bool open;
        bool ended; /* and so always ready */
        bool ready[2];
    };

    void serve_canceled()
    {
        while (!tocancel_.empty()) {
            const int id = tocancel_[0];
            std::erase_if(timeouts_, [&](const timeout &one) { return one.id == id; });
            listens->timed(id, VEL_ERROR_CANCELED);
            tocancel_.erase(tocancel_.begin());
        }
    }
    void serve_event(const std::optional<event> &served)
    {
        std::set<event> ready;
        for (const event &one : queue_) {
            if (sockets_[one.s].ended || sockets_[one.s].ready[one.direction])
                ready.insert(one);
        }
        EXPECT_EQ(served.has_value(), !ready.empty());
        if (!served)
            return;
        EXPECT_EQ(ready.count(*served), 1u) << kWays[served->direction] << " " << served->s;
        const std::string s = std::to_string(served->s);
        const auto item = items_.find(served->s);
        if (item == items_.end()) {
            log_.push_back("processing " + std::string(kWays[served->direction]) +
                           " on an unrecognized socket " + s);
        } else if (item->second.callbacks[served->direction] == 0) {
            log_.push_back("no " + std::string(kWays[served->direction]) +
                           " callback set for socket " + s);
        } else {
            listens->ready(served->s, served->direction, item->second.callbacks[served->direction]);
        }
    }
    void serve_timeouts()
    {
        const int64_t now = now_;
        for (;;) {
            const auto head =
                std::find_if(timeouts_.begin(), timeouts_.end(), [&](const timeout &one) {
                    return std::find(tocancel_.begin(), tocancel_.end(), one.id) == tocancel_.end();
                });
            if (head == timeouts_.end() || head->deadline > now)
                return;
            const int id = head->id;
            timeouts_.erase(head);
            listens->timed(id, VEL_ERROR_TIMED_OUT);
        }
    }

    int64_t now_ = 0;
    std::vector<timeout> timeouts_;
    std::vector<int> tocancel_;
    std::map<int, item> items_;
    std::set<event> queue_;
    std::map<int, socket> sockets_;
    names log_;
};

/* Plays by chance. What it does depends on its own state and on numbers that are the same for every
 * player of the same seed, so that two worlds get the same play as long as they answer the same. */
class player : public listener {
  public:
    explicit player(world *played) : world_(played)
    {
        world_->listens = this;
        for (slot &one : slots_)
            one = {true, true, false, true};
    }

    void begin(unsigned int seed)
    {
        random_.seed(seed);
        trace.clear();
    }
    /* Does one thing. */
    void act()
    {
        const int s = kNumbers + number(kSlots);
        slot &one = slots_[s - kNumbers];
        const way direction = number(2) ? writes : reads;
        switch (number(12)) {
        case 0:
        case 1:
        case 2:
            add();
            break;
        case 3:
        case 4:
            cancel();
            break;
        case 5:
        case 6: {
            const int callback = ++callbacks_;
            note("register", s, direction, world_->registers(s, direction, callback));
            break;
        }
        case 7:
            note("unregister", s, direction, world_->unregisters(s, direction));
            break;
        case 8:
            world_->move_us(number(4) ? number(3000) : number(3));
            break;
        case 9:
            change_slot(s, &one);
            break;
        default:
            if (s != kNumbers + kFile && one.open && one.peer) {
                bool &ready = direction == reads ? one.readable : one.writable;
                ready = !ready;
                world_->set_ready(s, direction, ready);
            }
        }
    }
    void cancel_all()
    {
        for (int id : std::exchange(pending_, {}))
            world_->cancel(id);
    }

    void timed(int id, vel_error_t code) override
    {
        trace.push_back("timeout " + std::to_string(id) + ": " + std::to_string(code));
        std::erase(pending_, id);
        act_within();
    }
    void ready(int s, way direction, int callback) override
    {
        trace.push_back(std::string(kWays[direction]) + " " + std::to_string(s) + " by " +
                        std::to_string(callback));
        act_within();
    }

    names trace;

  private:
    struct slot {
        bool open;
        bool peer;
        bool readable;
        bool writable;
    };

    int number(int below)
    {
        return static_cast<int>(random_() % static_cast<unsigned int>(below));
    }
    void note(const char *what, int s, way direction, vel_error_t result)
    {
        trace.push_back(std::string(what) + " " + kWays[direction] + " " + std::to_string(s) +
                        ": " + std::to_string(result));
    }
    void act_within()
    {
        for (int i = number(4); i > 1; i--)
            act();
    }
    void add()
    {
        if (pending_.size() >= 30)
            return;
        const int id = ++ids_;
        const unsigned int ms = number(3) ? static_cast<unsigned int>(number(8)) : 0;
        pending_.push_back(id);
        trace.push_back("add " + std::to_string(id) + ": " + std::to_string(ms));
        world_->add(id, ms);
    }
    void cancel()
    {
        if (pending_.empty())
            return;
        const auto chosen = pending_.begin() + number(static_cast<int>(pending_.size()));
        trace.push_back("cancel " + std::to_string(*chosen));
        world_->cancel(*chosen);
        pending_.erase(chosen);
    }
    void change_slot(int s, slot *one)
    {
        if (s == kNumbers + kFile)
            return;
        if (!one->open) {
            world_->open(s);
            *one = {true, true, false, true};
        } else if (number(2)) {
            world_->close(s);
            one->open = false;
        } else if (one->peer) {
            world_->close_peer(s);
            one->peer = false;
        }
    }

    world *world_;
    std::mt19937 random_;
    slot slots_[kSlots];
    std::vector<int> pending_; /* timeouts that may be canceled */
    int ids_ = 0;
    int callbacks_ = 0;
};

class VelasyncModel : public testing::TestWithParam<unsigned int> {};

INSTANTIATE_TEST_SUITE_P(Seeds, VelasyncModel, testing::Range(1u, 9u));

TEST_P(VelasyncModel, DoesAsTheNaiveOne)
{
    constexpr int kSteps = 3000;
    real_world real;
    naive_world naive;
    player actor(&real);
    player shadow(&naive);
    int events = 0;
    for (int step = 0; step < kSteps; step++) {
        SCOPED_TRACE(step);
        const unsigned int seed = GetParam() * kSteps + static_cast<unsigned int>(step);
        actor.begin(seed);
        shadow.begin(seed);
        if (step == kSteps - 1) {
            actor.cancel_all();
            shadow.cancel_all();
        }
        if (step % 3 != 2) {
            actor.act();
            shadow.act();
            real.note_log(nullptr);
        } else {
            std::optional<event> served;
            const vel_error_t result = real.process(&served);
            events += served.has_value();
            EXPECT_EQ(naive.process(served), result);
        }
        ASSERT_EQ(actor.trace, shadow.trace);
        ASSERT_EQ(real.take_log(), naive.take_log());
        ASSERT_EQ(real.timeout_ms(), naive.timeout_ms());
        if (HasFailure())
            break;
    }
    EXPECT_GT(events, kSteps / 10);

    /* So that the loop may go. */
    while (naive.timeout_ms() != -1) {
        actor.cancel_all();
        shadow.cancel_all();
        actor.begin(0);
        shadow.begin(0);
        std::optional<event> served;
        const vel_error_t result = real.process(&served);
        ASSERT_EQ(naive.process(served), result);
        ASSERT_EQ(actor.trace, shadow.trace);
        ASSERT_EQ(real.timeout_ms(), naive.timeout_ms());
    }
}

} // namespace
