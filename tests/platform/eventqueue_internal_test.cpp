/* What every mechanism of event queues owes, whichever the platform has. */

#include "platform/eventqueue.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <poll.h>
#include <random>
#include <sched.h>
#include <set>
#include <sys/select.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/asynctest.h"

namespace {

using support::socket_pair;

constexpr vel_eventfilter kRead = VEL_EVENTFILTER_READ;
constexpr vel_eventfilter kWrite = VEL_EVENTFILTER_WRITE;

using event = std::pair<int, vel_eventfilter>;

class Eventqueue : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_EQ(vel_eventqueue_create(&queue_), 0);
        ASSERT_GE(queue_.descriptor, 0);
    }
    void TearDown() override
    {
        vel_eventqueue_destroy(&queue_);
        EXPECT_EQ(support::descriptors_since(before_), std::vector<int>{});
    }
    int add(int descriptor, vel_eventfilter filter)
    {
        return vel_eventqueue_change(&queue_, descriptor, filter, true);
    }
    int remove(int descriptor, vel_eventfilter filter)
    {
        return vel_eventqueue_change(&queue_, descriptor, filter, false);
    }
    int wait(time_t seconds, long nanoseconds)
    {
        const timespec time = {seconds, nanoseconds};
        return vel_eventqueue_wait(&queue_, &time);
    }
    /* What so many fetches give, each of which must give something. */
    std::vector<event> fetch(size_t count)
    {
        std::vector<event> found;
        for (size_t i = 0; i < count; i++) {
            vel_event one = {-77, VEL_EVENTFILTER_COUNT};
            EXPECT_EQ(vel_eventqueue_fetch(&queue_, &one), 1);
            found.emplace_back(one.descriptor, one.filter);
        }
        return found;
    }
    std::set<event> fetch_set(size_t count)
    {
        const std::vector<event> found = fetch(count);
        return {found.begin(), found.end()};
    }
    /* Nothing, in all ways of asking. */
    void expect_nothing()
    {
        vel_event one = {-77, VEL_EVENTFILTER_COUNT};
        EXPECT_FALSE(outer_ready());
        EXPECT_EQ(wait(0, 0), 0);
        EXPECT_EQ(vel_eventqueue_fetch(&queue_, &one), 0);
        EXPECT_FALSE(outer_ready());
    }
    bool outer_ready()
    {
        const int handle = vel_eventqueue_handle(&queue_);
        pollfd polled = {handle, POLLIN, 0};
        const bool ready = ::poll(&polled, 1, 0) == 1;
        fd_set selected;
        FD_ZERO(&selected);
        FD_SET(handle, &selected);
        timeval none = {0, 0};
        EXPECT_EQ(select(handle + 1, &selected, nullptr, nullptr, &none), ready);
        return ready;
    }

    const std::set<int> before_ = support::descriptors();
    vel_eventqueue queue_ = {};
};

TEST_F(Eventqueue, EmptyOneHasNothing)
{
    expect_nothing();
    EXPECT_EQ(wait(0, -1000000), 0); /* no limit, if anything were watched */
    EXPECT_EQ(wait(0, 1000000), 0);
}

TEST_F(Eventqueue, IsLevelTriggered)
{
    socket_pair pair;
    EXPECT_EQ(add(pair.own(), kRead), 0);
    for (int round = 0; round < 3; round++) {
        expect_nothing();
        pair.make_readable();
        for (int i = 0; i < 3; i++) {
            EXPECT_TRUE(outer_ready());
            EXPECT_EQ(wait(0, 0), 1);
            EXPECT_EQ(wait(60, 0), 1);
            EXPECT_EQ(wait(0, -1000000), 1);
            EXPECT_EQ(fetch(1), (std::vector<event>{{pair.own(), kRead}}));
        }
        pair.drain();
    }
    EXPECT_EQ(remove(pair.own(), kRead), 0);
    pair.make_readable();
    expect_nothing();
}

/* What a wait has seen may be gone when it is fetched. */
TEST_F(Eventqueue, ReadinessThatIsGoneIsNotFetched)
{
    socket_pair pairs[2];
    for (socket_pair &pair : pairs) {
        EXPECT_EQ(add(pair.own(), kRead), 0);
        pair.make_readable();
    }
    EXPECT_EQ(wait(0, 0), 1);
    pairs[0].drain();
    EXPECT_EQ(fetch(2), (std::vector<event>{{pairs[1].own(), kRead}, {pairs[1].own(), kRead}}));
    EXPECT_EQ(wait(0, 0), 1);
    pairs[1].drain();
    expect_nothing();
    pairs[0].make_readable();
    EXPECT_EQ(wait(0, 0), 1);
    EXPECT_EQ(remove(pairs[0].own(), kRead), 0);
    expect_nothing();
}

TEST_F(Eventqueue, FiltersAreIndependent)
{
    socket_pair pair;
    pair.make_readable();
    EXPECT_EQ(add(pair.own(), kWrite), 0);
    EXPECT_EQ(fetch_set(3), (std::set<event>{{pair.own(), kWrite}}));
    EXPECT_EQ(remove(pair.own(), kRead), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(add(pair.own(), kRead), 0);
    EXPECT_EQ(fetch_set(4), (std::set<event>{{pair.own(), kRead}, {pair.own(), kWrite}}));
    EXPECT_EQ(remove(pair.own(), kWrite), 0);
    EXPECT_EQ(fetch_set(3), (std::set<event>{{pair.own(), kRead}}));
    EXPECT_EQ(remove(pair.own(), kWrite), -1);
    EXPECT_EQ(errno, ENOENT);
    pair.drain();
    expect_nothing();
}

TEST_F(Eventqueue, AddedTwiceIsAddedOnce)
{
    socket_pair pair;
    for (vel_eventfilter filter : {kRead, kWrite}) {
        EXPECT_EQ(add(pair.own(), filter), 0);
        EXPECT_EQ(add(pair.own(), filter), 0);
        EXPECT_EQ(remove(pair.own(), filter), 0);
        EXPECT_EQ(remove(pair.own(), filter), -1);
        EXPECT_EQ(errno, ENOENT);
    }
    pair.make_readable();
    expect_nothing();
}

TEST_F(Eventqueue, DescriptorThatIsNone)
{
    EXPECT_EQ(add(1000000, kRead), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(add(1000000, kWrite), -1);
    EXPECT_EQ(errno, EBADF);
    expect_nothing();
}

/* Whatever is ready comes up before anything comes up again, but for the one that a turn of the
 * order skips: within two rounds each has come, and none more than its share. */
TEST_F(Eventqueue, ReadyOnesTakeTurns)
{
    constexpr size_t kPairs = 7;
    constexpr size_t kRounds = 50;
    socket_pair pairs[kPairs];
    std::set<event> all;
    for (size_t i = 0; i < kPairs; i++) {
        EXPECT_EQ(add(pairs[i].own(), kRead), 0);
        EXPECT_EQ(add(pairs[i].own(), kWrite), 0);
        pairs[i].make_readable();
        all.insert({pairs[i].own(), kRead});
        all.insert({pairs[i].own(), kWrite});
    }
    std::map<event, size_t> counts;
    for (size_t round = 0; round < kRounds; round++) {
        const std::vector<event> found = fetch(all.size());
        for (const event &one : found)
            counts[one]++;
        EXPECT_EQ(std::set<event>(found.begin(), found.end()), all) << round;
    }
    for (const auto &[one, count] : counts)
        EXPECT_EQ(count, kRounds) << one.first << " " << one.second;
}

/* One direction that is always ready does not keep the other from its turn. */
TEST_F(Eventqueue, FiltersTakeTurns)
{
    socket_pair writable[20];
    socket_pair readable;
    for (socket_pair &pair : writable)
        EXPECT_EQ(add(pair.own(), kWrite), 0);
    EXPECT_EQ(fetch(5).size(), 5u);
    EXPECT_EQ(add(readable.own(), kRead), 0);
    readable.make_readable();
    EXPECT_EQ(fetch_set(2).count({readable.own(), kRead}), 1u);
    EXPECT_EQ(fetch_set(2).count({readable.own(), kRead}), 1u);
}

/* With waits in between, as a loop has them. */
TEST_F(Eventqueue, TurnsGoOnAcrossWaits)
{
    socket_pair pairs[4];
    for (socket_pair &pair : pairs) {
        EXPECT_EQ(add(pair.own(), kRead), 0);
        EXPECT_EQ(add(pair.own(), kWrite), 0);
        pair.make_readable();
    }
    std::set<event> found;
    for (int i = 0; i < 8; i++) {
        EXPECT_EQ(wait(1, 0), 1);
        found.insert(fetch(1)[0]);
    }
    EXPECT_EQ(found.size(), 8u);
}

/* Files. */

class EventqueueFile : public Eventqueue {
  protected:
    void SetUp() override
    {
        Eventqueue::SetUp();
        file_ = tmpfile();
        ASSERT_NE(file_, nullptr);
    }
    void TearDown() override
    {
        if (file_)
            fclose(file_);
        Eventqueue::TearDown();
    }
    int own() const
    {
        return fileno(file_);
    }

    FILE *file_ = nullptr;
};

TEST_F(EventqueueFile, IsAlwaysReady)
{
    for (vel_eventfilter filter : {kRead, kWrite}) {
        EXPECT_EQ(remove(own(), filter), -1);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(add(own(), filter), 0);
        EXPECT_EQ(add(own(), filter), 0);
        EXPECT_TRUE(outer_ready());
        EXPECT_EQ(wait(0, 0), 1);
        EXPECT_EQ(wait(0, -1000000), 1);
        EXPECT_EQ(fetch(2), (std::vector<event>{{own(), filter}, {own(), filter}}));
        EXPECT_TRUE(outer_ready());
        EXPECT_EQ(remove(own(), filter), 0);
        EXPECT_EQ(remove(own(), filter), -1);
        EXPECT_EQ(errno, ENOENT);
        expect_nothing();
    }
}

TEST_F(EventqueueFile, TakesTurnsWithOthers)
{
    socket_pair pairs[3];
    FILE *other = tmpfile();
    ASSERT_NE(other, nullptr);
    std::set<event> all;
    for (int descriptor : {pairs[0].own(), own(), pairs[1].own(), fileno(other), pairs[2].own()}) {
        EXPECT_EQ(add(descriptor, kRead), 0);
        EXPECT_EQ(add(descriptor, kWrite), 0);
        all.insert({descriptor, kRead});
        all.insert({descriptor, kWrite});
    }
    for (socket_pair &pair : pairs)
        pair.make_readable();
    for (int round = 0; round < 10; round++) {
        const std::set<event> found = fetch_set(2 * all.size());
        EXPECT_EQ(found, all) << round;
    }
    fclose(other);
}

TEST_F(EventqueueFile, DoesNotComeBackWhenClosed)
{
    EXPECT_EQ(add(own(), kRead), 0);
    EXPECT_EQ(add(own(), kWrite), 0);
    EXPECT_EQ(fetch_set(4).size(), 2u);
    fclose(std::exchange(file_, nullptr));
    vel_event one = {-77, VEL_EVENTFILTER_COUNT};
    EXPECT_EQ(vel_eventqueue_fetch(&queue_, &one), 0);
    expect_nothing();
}

/* The number is that of another file now: it is not watched, until it is added. */
TEST_F(EventqueueFile, NumberComesBackAsAnotherFile)
{
    FILE *others[] = {tmpfile(), tmpfile(), tmpfile()};
    const int s = own();
    for (FILE *other : others)
        ASSERT_NE(other, nullptr);
    EXPECT_EQ(add(s, kRead), 0);
    EXPECT_EQ(fetch(1), (std::vector<event>{{s, kRead}}));
    ASSERT_EQ(dup2(fileno(others[0]), s), s);
    vel_event one = {-77, VEL_EVENTFILTER_COUNT};
    EXPECT_EQ(vel_eventqueue_fetch(&queue_, &one), 0);
    expect_nothing();

    EXPECT_EQ(add(s, kRead), 0);
    ASSERT_EQ(dup2(fileno(others[1]), s), s);
    EXPECT_EQ(add(s, kRead), 0); /* at once */
    EXPECT_EQ(fetch(1), (std::vector<event>{{s, kRead}}));
    EXPECT_EQ(remove(s, kRead), 0);
    expect_nothing();
    for (FILE *other : others)
        fclose(other);
}

/* A device is another file, and not one of the same file system. */
TEST_F(EventqueueFile, NumberComesBackAsADevice)
{
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    ASSERT_GE(null, 0);
    const int s = own();
    EXPECT_EQ(add(s, kRead), 0);
    ASSERT_EQ(dup2(null, s), s);
    vel_event one = {-77, VEL_EVENTFILTER_COUNT};
    EXPECT_EQ(vel_eventqueue_fetch(&queue_, &one), 0);
    expect_nothing();
    close(null);
}

TEST_F(EventqueueFile, OthersStayWhenOneIsRemoved)
{
    FILE *other = tmpfile();
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(add(own(), kRead), 0);
    EXPECT_EQ(add(fileno(other), kRead), 0);
    EXPECT_EQ(remove(own(), kRead), 0);
    EXPECT_EQ(fetch(2), (std::vector<event>{{fileno(other), kRead}, {fileno(other), kRead}}));
    EXPECT_EQ(remove(fileno(other), kRead), 0);
    expect_nothing();
    fclose(other);
}

/* What was watched under the number is gone, and the socket was not added. */
TEST_F(EventqueueFile, NumberOfASocketIsRemoved)
{
    socket_pair pair;
    const int s = own();
    EXPECT_EQ(add(s, kRead), 0);
    ASSERT_EQ(dup2(pair.own(), s), s);
    EXPECT_EQ(remove(s, kRead), -1);
    EXPECT_EQ(errno, ENOENT);
    expect_nothing();
}

TEST_F(EventqueueFile, NumberComesBackAsASocket)
{
    socket_pair pair;
    const int s = own();
    EXPECT_EQ(add(s, kRead), 0);
    ASSERT_EQ(dup2(pair.own(), s), s);
    EXPECT_EQ(add(s, kRead), 0);
    expect_nothing();
    pair.make_readable();
    EXPECT_EQ(fetch(2), (std::vector<event>{{s, kRead}, {s, kRead}}));
    EXPECT_EQ(remove(s, kRead), 0);
    expect_nothing();
}

TEST_F(Eventqueue, IsNotHandedToPrograms)
{
    for (int descriptor : support::descriptors_since(before_))
        EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC) << descriptor;
}

TEST_F(Eventqueue, ClosedDescriptorDoesNotComeBack)
{
    socket_pair pair;
    const int s = pair.own();
    pair.make_readable();
    EXPECT_EQ(add(s, kRead), 0);
    EXPECT_EQ(add(s, kWrite), 0);
    EXPECT_EQ(fetch_set(4).size(), 2u);
    pair.close_own();
    expect_nothing();

    socket_pair next;
    ASSERT_EQ(next.own(), s); /* the lowest that is free */
    next.make_readable();
    expect_nothing();
    EXPECT_EQ(remove(s, kRead), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(add(s, kRead), 0);
    EXPECT_EQ(fetch(1), (std::vector<event>{{s, kRead}}));
    EXPECT_EQ(remove(s, kRead), 0);
}

/* Ends. */

TEST_F(Eventqueue, EndsAreReadiness)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    EXPECT_EQ(add(ends[0], kRead), 0);
    expect_nothing();
    close(ends[1]);
    EXPECT_EQ(fetch(2), (std::vector<event>{{ends[0], kRead}, {ends[0], kRead}}));
    close(ends[0]);
    expect_nothing();

    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const std::string bytes(65536, 'x');
    while (write(ends[1], bytes.data(), bytes.size()) > 0) {
    }
    EXPECT_EQ(add(ends[1], kWrite), 0);
    expect_nothing();
    close(ends[0]);
    EXPECT_EQ(fetch(1), (std::vector<event>{{ends[1], kWrite}}));
    close(ends[1]);

    socket_pair pair;
    EXPECT_EQ(add(pair.own(), kRead), 0);
    expect_nothing();
    EXPECT_EQ(shutdown(pair.peer(), SHUT_WR), 0);
    EXPECT_EQ(fetch(1), (std::vector<event>{{pair.own(), kRead}}));
}

/* Waiting. */

bool sleeps(pid_t task)
{
    std::ifstream stat("/proc/self/task/" + std::to_string(task) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    return text.substr(text.rfind(')') + 2, 1) == "S";
}

TEST_F(Eventqueue, WaitEndsWithReadiness)
{
    for (timespec time : {timespec{0, -1000000}, timespec{-1, 0}, timespec{600, 0},
                          timespec{10000000000, 999999999}}) {
        for (vel_eventfilter filter : {kRead, kWrite}) {
            socket_pair pair;
            if (filter == kWrite)
                pair.make_unwritable();
            EXPECT_EQ(add(pair.own(), filter), 0);
            std::atomic<bool> waiting = false;
            std::atomic<bool> changed = false;
            std::thread peer([&, task = gettid()] {
                while (!waiting || !sleeps(task))
                    sched_yield();
                changed = true;
                if (filter == kRead)
                    pair.make_readable();
                else
                    pair.make_writable();
            });
            waiting = true;
            EXPECT_EQ(vel_eventqueue_wait(&queue_, &time), 1);
            EXPECT_TRUE(changed);
            peer.join();
            EXPECT_EQ(fetch(1), (std::vector<event>{{pair.own(), filter}}));
            EXPECT_EQ(remove(pair.own(), filter), 0);
        }
    }
}

int64_t now_us()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

/* A program may have closed its standard input, so that 0 is a descriptor like any other. */
TEST_F(EventqueueFile, StandInMayBeZero)
{
    const int input = fcntl(0, F_DUPFD_CLOEXEC, 3);
    ASSERT_GE(input, 0);
    close(0);
    EXPECT_EQ(add(own(), kRead), 0);
    EXPECT_EQ(add(own(), kWrite), 0);
    EXPECT_NE(fcntl(0, F_GETFD), -1);
    EXPECT_EQ(fetch_set(2), (std::set<event>{{own(), kRead}, {own(), kWrite}}));
    vel_eventqueue_destroy(&queue_);
    EXPECT_EQ(fcntl(0, F_GETFD), -1);
    dup2(input, 0);
    close(input);
    EXPECT_EQ(vel_eventqueue_create(&queue_), 0);
}

/* Not before its time. */
TEST_F(Eventqueue, WaitLastsItsTime)
{
    socket_pair pair;
    for (bool watched : {false, true}) {
        if (watched) {
            EXPECT_EQ(add(pair.own(), kRead), 0);
        }
        for (long us : {1, 999, 1000, 1001, 20000}) {
            const int64_t begin = now_us();
            EXPECT_EQ(wait(0, us * 1000), 0);
            EXPECT_GE(now_us() - begin, us);
        }
    }
}

/* The longest time that the loop asks for is not cut down to nothing. */
TEST_F(Eventqueue, LongWaitsAreWaits)
{
    socket_pair pair;
    EXPECT_EQ(add(pair.own(), kRead), 0);
    pair.make_readable();
    EXPECT_EQ(wait(2147483, 647000000), 1);
}

/* As many descriptors watched as there were added and not removed, when nothing is wrong. */
TEST_F(Eventqueue, WaitWithoutLimitIsForDescriptors)
{
    socket_pair pair;
    FILE *file = tmpfile();
    ASSERT_NE(file, nullptr);
    for (int descriptor : {pair.own(), fileno(file)}) {
        EXPECT_EQ(add(descriptor, kRead), 0);
        EXPECT_EQ(add(descriptor, kRead), 0);
        EXPECT_EQ(remove(descriptor, kRead), 0);
        EXPECT_EQ(remove(descriptor, kRead), -1);
        EXPECT_EQ(wait(0, -1000000), 0);
    }
    fclose(file);
}

/* Whenever it is asked for, and however often, it is the same, and tells of all that is ready. */
TEST_F(Eventqueue, HandleTellsOfWhatWasReadyBefore)
{
    for (vel_eventfilter filter : {kRead, kWrite}) {
        vel_eventqueue queue = {};
        socket_pair pair;
        pair.make_readable();
        ASSERT_EQ(vel_eventqueue_create(&queue), 0);
        EXPECT_EQ(vel_eventqueue_change(&queue, pair.own(), filter, true), 0);
        pollfd polled = {vel_eventqueue_handle(&queue), POLLIN, 0};
        EXPECT_EQ(polled.fd, queue.descriptor);
        EXPECT_EQ(::poll(&polled, 1, 0), 1);
        EXPECT_EQ(vel_eventqueue_handle(&queue), queue.descriptor);
        EXPECT_EQ(::poll(&polled, 1, 0), 1);
        EXPECT_EQ(vel_eventqueue_change(&queue, pair.own(), filter, false), 0);
        EXPECT_EQ(::poll(&polled, 1, 0), 0);
        vel_eventqueue_destroy(&queue);
    }
}

/* The host's own queue. */
TEST_F(Eventqueue, QueueOfQueues)
{
    vel_eventqueue outer = {};
    socket_pair pair;
    vel_event one = {};
    ASSERT_EQ(vel_eventqueue_create(&outer), 0);
    const int handle = vel_eventqueue_handle(&queue_);
    EXPECT_EQ(vel_eventqueue_change(&outer, handle, kRead, true), 0);
    EXPECT_EQ(vel_eventqueue_fetch(&outer, &one), 0);
    EXPECT_EQ(add(pair.own(), kRead), 0);
    pair.make_readable();
    EXPECT_EQ(vel_eventqueue_fetch(&outer, &one), 1);
    EXPECT_EQ(one.descriptor, handle);
    EXPECT_EQ(fetch(1), (std::vector<event>{{pair.own(), kRead}}));
    pair.drain();
    EXPECT_EQ(vel_eventqueue_fetch(&outer, &one), 0);
    vel_eventqueue_destroy(&outer);
}

/* Random changes beside a set. */
TEST_F(Eventqueue, ModelOfChanges)
{
    std::mt19937 random(4);
    std::vector<socket_pair> pairs(10);
    std::set<event> watched;
    std::set<event> ready;
    for (const socket_pair &pair : pairs)
        ready.insert({pair.own(), kWrite});
    for (int step = 0; step < 20000; step++) {
        socket_pair &pair = pairs[random() % pairs.size()];
        const event one = {pair.own(), random() % 2 ? kRead : kWrite};
        switch (random() % 4) {
        case 0:
            EXPECT_EQ(add(one.first, one.second), 0);
            watched.insert(one);
            break;
        case 1: {
            const int expected = watched.erase(one) ? 0 : -1;
            EXPECT_EQ(remove(one.first, one.second), expected);
            if (expected != 0) {
                EXPECT_EQ(errno, ENOENT);
            }
            break;
        }
        case 2:
            if (one.second == kRead && ready.insert(one).second) {
                pair.make_readable();
            } else if (one.second == kRead) {
                pair.drain();
                ready.erase(one);
            }
            break;
        default: {
            std::set<event> expected;
            std::set_intersection(watched.begin(), watched.end(), ready.begin(), ready.end(),
                                  std::inserter(expected, expected.begin()));
            vel_event got = {-77, VEL_EVENTFILTER_COUNT};
            ASSERT_EQ(vel_eventqueue_fetch(&queue_, &got), !expected.empty()) << step;
            ASSERT_EQ(outer_ready(), !expected.empty()) << step;
            if (!expected.empty()) {
                ASSERT_EQ(expected.count({got.descriptor, got.filter}), 1u) << step;
            }
        }
        }
    }
}

} // namespace
