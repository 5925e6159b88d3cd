/* Lines from a made-up transport, by a clock that stands still unless it is moved. */

#include <random>
#include <string>
#include <sys/time.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/platform_function.h"
#include "support/platform_malloc.h"
#include "support/rows.h"
#include "support/transport.h"

/* Microseconds since 1970 while the clock is played. */
static long long playedtime = -1;

extern "C" int gettimeofday(struct timeval *time, void *zone) noexcept
{
    if (playedtime < 0)
        return support::platform_function<int(struct timeval *, void *)>("gettimeofday")(time,
                                                                                         zone);
    *time = {static_cast<time_t>(playedtime / 1000000),
             static_cast<suseconds_t>(playedtime % 1000000)};
    return 0;
}

namespace {

using support::asserts;
using support::bytes;
using support::fails_with;
using support::handle_line;
using support::log_line;
using support::log_lines;

using timeout_list = std::vector<std::pair<int, unsigned int>>;
using string_list = std::vector<std::string>;

const log_line kNoRead = handle_line(6, "this handle cannot be used for reading");

constexpr int kSecond = 1000000;

class VelhandleLine : public support::transport_test {
  protected:
    VelhandleLine()
    {
        playedtime = 1700000000ll * kSecond;
    }
    ~VelhandleLine() override
    {
        playedtime = -1;
    }
};

/* Bytes that take their time. */
support::transport_turn after(long long microseconds, support::transport_turn turn)
{
    turn.before = [microseconds] { playedtime += microseconds; };
    return turn;
}

/* What calls give, and what they ask the transport for. */
struct line_case {
    const char *name;
    string_list arrivals; /* one a read; then the end */
    size_t size;
    string_list lines; /* what the calls return */
    std::vector<size_t> asked;
};

std::ostream &operator<<(std::ostream &out, const line_case &row)
{
    return out << row.name;
}

using namespace std::string_literals;

const std::string k4094(4094, 'x');
const std::string k4095(4095, 'x');
const std::string k4096(4096, 'x');

const line_case kLineCases[] = {
    {"OneLine", {"line\n"}, 100, {"line\n"}, {100}},
    {"EmptyLine", {"\n"}, 100, {"\n"}, {100}},
    {"CarriageReturnStays", {"line\r\n"}, 100, {"line\r\n"}, {100}},
    {"TwoLinesInOneRead", {"first\nsecond\n"}, 100, {"first\n", "second\n"}, {100}},
    {"ThreeLinesInTwoReads",
     {"first\nsec", "ond\nthird\n"},
     100,
     {"first\n", "second\n", "third\n"},
     {100, 97}},
    {"ByteByByte", {"a", "b", "\n"}, 100, {"ab\n"}, {100, 99, 98}},
    {"RoomForOneByte", {"ab\n"}, 1, {"a", "b", "\n"}, {1, 1, 1}},
    {"RoomForTwoBytes", {"abcd\n"}, 2, {"ab", "cd", "\n"}, {2, 2, 2}},
    {"LineFillsTheRoom", {"abc\n", "d\n"}, 4, {"abc\n", "d\n"}, {4, 4}},
    {"TooLongLineComesInPieces", {"abcdefghij\n"}, 4, {"abcd", "efgh", "ij\n"}, {4, 4, 4}},
    {"BufferedPieceFillsTheRoom", {"a\nb"}, 3, {"a\n", "b"}, {3, 2}},
    {"NulsAreBytes", {"a\0b\n\0\n"s}, 100, {"a\0b\n"s, "\0\n"s}, {100}},
    {"EndWithoutLineFeed", {"abc"}, 100, {"abc"}, {100, 97}},
    {"OneBelowTheBuffer", {k4094 + "\n"}, 10000, {k4094 + "\n"}, {4096}},
    {"AsLongAsTheBuffer", {k4095 + "\n"}, 10000, {k4095 + "\n"}, {4096}},
    {"OneAboveTheBuffer", {k4096 + "\n"}, 10000, {k4096 + "\n"}, {4096, 4096}},
    {"OneBelowTheBufferAndMore", {k4094 + "\nyz\n"}, 10000, {k4094 + "\n", "yz\n"}, {4096, 4096}},
    {"OneAboveTheBufferAndMore", {k4096 + "\nyz\n"}, 10000, {k4096 + "\n", "yz\n"}, {4096, 4096}},
    {"SurplusFillsTheBuffer", {"\n" + k4095}, 10000, {"\n", k4095}, {4096, 4096}},
    {"NoMoreThanTheBufferAtATime",
     {k4096 + k4096 + k4094},
     9000,
     {k4096 + k4096 + std::string(808, 'x'), std::string(4094 - 808, 'x')},
     {4096, 4096, 808, 4096, 4096}},
    {"RoomOfTheBuffer", {k4096 + "\n"}, 4096, {k4096, "\n"}, {4096, 4096}},
    {"RoomOneAboveTheBuffer", {k4096 + "\n"}, 4097, {k4096 + "\n"}, {4096, 1}},
};

class VelhandleLineCase : public VelhandleLine, public testing::WithParamInterface<line_case> {};

TEST_P(VelhandleLineCase, ReadLine)
{
    for (const std::string &arrival : GetParam().arrivals)
        transport_.reads.push_back(bytes(arrival));
    for (const std::string &line : GetParam().lines) {
        vel_handle_set_error(handle_, VEL_ERROR_BUSY);
        EXPECT_EQ(read_line(GetParam().size), line);
        const bool whole = line.back() == '\n' || line.size() == GetParam().size;
        EXPECT_EQ(error(), whole ? VEL_ERROR_NONE : VEL_ERROR_END_OF_FILE);
    }
    std::vector<size_t> asked = transport_.asked;
    if (asked.size() > GetParam().asked.size())
        asked.resize(GetParam().asked.size() + 1);
    EXPECT_EQ(asked, GetParam().asked);
    /* What follows is the end, however often it is asked for. */
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(read_line(GetParam().size), "");
        EXPECT_EQ(error(), VEL_ERROR_END_OF_FILE);
    }
    EXPECT_EQ(log_.take(), log_lines{});
}

INSTANTIATE_TEST_SUITE_P(Rows, VelhandleLineCase, testing::ValuesIn(kLineCases),
                         support::row_name());

/* Nothing of what the caller's room holds beyond the line is written. */
TEST_F(VelhandleLine, WritesNoTerminator)
{
    transport_.reads = {bytes("ab\n")};
    char room[8];
    memset(room, '?', sizeof room);
    EXPECT_EQ(vel_handle_read_line(handle_, room, sizeof room), 3u);
    EXPECT_EQ(std::string(room, sizeof room), "ab\n?????");
}

TEST_F(VelhandleLine, BufferComesOnce)
{
    transport_.reads = {bytes("a\nb\n"), bytes("c\n")};
    const support::malloc_watch watch;
    EXPECT_EQ(read_line(10), "a\n");
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{4096});
    EXPECT_EQ(read_line(10), "b\n");
    EXPECT_EQ(read_line(10), "c\n");
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{4096});
}

TEST_F(VelhandleLine, PlainReadTakesTheSurplusFirst)
{
    transport_.reads = {bytes("a\nbcd\nef"), bytes("g\nh")};
    EXPECT_EQ(read_line(100), "a\n");
    EXPECT_EQ(read(2), "bc");
    EXPECT_EQ(read_line(100), "d\n");
    EXPECT_EQ(read_line(100), "efg\n");
    EXPECT_EQ(read(100), "h");
}

/* The end of the stream. */

struct end_case {
    const char *name;
    vel_error_t velerror;
    log_lines logged;
};

std::ostream &operator<<(std::ostream &out, const end_case &row)
{
    return out << row.name;
}

const end_case kEndCases[] = {
    {"EndOfFile", VEL_ERROR_END_OF_FILE, {}},
    {"TimedOut", VEL_ERROR_TIMED_OUT, {}},
    {"Interrupted",
     VEL_ERROR_INTERRUPTED,
     {handle_line(13, "unable to read data from the handle, error 4 (interrupted system call)")}},
    {"Reset",
     VEL_ERROR_CONNECTION_RESET,
     {handle_line(7, "unable to read data from the handle, error 104 (connection reset by peer)")}},
    {"Wakeup",
     VEL_ERROR_WAKEUP,
     {handle_line(7, "unable to read data from the handle, error 213 (wakeup requested)")}},
    {"WouldBlock",
     VEL_ERROR_WOULD_BLOCK,
     {handle_line(7, "unable to read data from the handle, error 11 (would block)")}},
};

class VelhandleLineEndCase : public VelhandleLine, public testing::WithParamInterface<end_case> {};

/* Part of a line is given with the reason why it is no more; the next call goes on with the line. */
TEST_P(VelhandleLineEndCase, KeepsWhatCame)
{
    transport_.reads = {bytes("abc"), fails_with(GetParam().velerror),
                        fails_with(GetParam().velerror), bytes("def\n")};
    EXPECT_EQ(read_line(100), "abc");
    EXPECT_EQ(error(), GetParam().velerror);
    EXPECT_EQ(log_.take(), GetParam().logged);
    EXPECT_EQ(read_line(100), "");
    EXPECT_EQ(error(), GetParam().velerror);
    EXPECT_EQ(log_.take(), GetParam().logged);
    EXPECT_EQ(read_line(100), "def\n");
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(log_.take(), log_lines{});
}

/* The same where the part of the line was buffered. */
TEST_P(VelhandleLineEndCase, KeepsWhatWasBuffered)
{
    transport_.reads = {bytes("first\nabc"), fails_with(GetParam().velerror)};
    EXPECT_EQ(read_line(100), "first\n");
    EXPECT_EQ(read_line(100), "abc");
    EXPECT_EQ(error(), GetParam().velerror);
    EXPECT_EQ(log_.take(), GetParam().logged);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelhandleLineEndCase, testing::ValuesIn(kEndCases),
                         support::row_name());

TEST_F(VelhandleLine, WithoutATransport)
{
    vel_handle_set_read_callback(handle_, nullptr);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(read_line(100), "");
        EXPECT_EQ(error(), VEL_ERROR_UNSUPPORTED);
        EXPECT_EQ(log_.take(), (log_lines{kNoRead}));
    }
}

TEST_F(VelhandleLine, BufferIsDeliveredWithoutATransport)
{
    transport_.reads = {bytes("a\nb\ncde")};
    EXPECT_EQ(read_line(100), "a\n");
    vel_handle_set_read_callback(handle_, nullptr);
    EXPECT_EQ(read_line(100), "b\n");
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(read_line(100), "cde");
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(log_.take(), log_lines{});
    EXPECT_EQ(read_line(100), "");
    EXPECT_EQ(error(), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(log_.take(), (log_lines{kNoRead}));
}

/* The time of a line. */

TEST_F(VelhandleLine, TransportSeesTheTimeLeft)
{
    vel_handle_set_read_timeout(handle_, 2, 0);
    transport_.reads = {after(250000, bytes("a")), after(kSecond, bytes("b")),
                        after(700000, bytes("\n"))};
    EXPECT_EQ(read_line(100), "ab\n");
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(transport_.timeouts, (timeout_list{{2, 0}, {1, 750000}, {0, 750000}}));
    expect_read_timeout(2, 0);
}

TEST_F(VelhandleLine, TricklingLineHasNoMoreThanItsTime)
{
    vel_handle_set_read_timeout(handle_, 2, 0);
    for (int i = 0; i < 10; i++)
        transport_.reads.push_back(after(600000, bytes("x")));
    EXPECT_EQ(read_line(100), "xxxx");
    EXPECT_EQ(error(), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(transport_.timeouts, (timeout_list{{2, 0}, {1, 400000}, {0, 800000}, {0, 200000}}));
    expect_read_timeout(2, 0);
    EXPECT_EQ(log_.take(), log_lines{});

    /* The time begins anew with the next call. */
    EXPECT_EQ(read_line(100), "xxxx");
    expect_read_timeout(2, 0);
}

TEST_F(VelhandleLine, TimeIsPutBackAfterAFailure)
{
    vel_handle_set_read_timeout(handle_, 2, 7);
    transport_.reads = {after(kSecond, bytes("a")), fails_with(VEL_ERROR_CONNECTION_RESET)};
    EXPECT_EQ(read_line(100), "a");
    EXPECT_EQ(transport_.timeouts, (timeout_list{{2, 7}, {1, 7}}));
    expect_read_timeout(2, 7);
}

TEST_F(VelhandleLine, WithoutTimeNothingIsRead)
{
    transport_.reads = {bytes("one\ntwo\nthr"), bytes("ee\n")};
    EXPECT_EQ(read_line(100), "one\n");
    vel_handle_set_read_timeout(handle_, 0, 0);
    EXPECT_EQ(read_line(100), "two\n"); /* a whole line was there */
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(read_line(100), "thr");
    EXPECT_EQ(error(), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(read_line(100), "");
    EXPECT_EQ(error(), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(transport_.asked.size(), 1u);
    expect_read_timeout(0, 0);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(VelhandleLine, InfiniteTimeStaysInfinite)
{
    transport_.reads = {after(1000ll * kSecond, bytes("a")), after(kSecond, bytes("b\n"))};
    EXPECT_EQ(read_line(100), "ab\n");
    EXPECT_EQ(transport_.timeouts, (timeout_list{{-1, 0}, {-1, 0}}));
    expect_read_timeout(-1, 0);
}

/* Without memory for the buffer. */

class VelhandleUnbuffered : public VelhandleLine {
  protected:
    std::string read_unbuffered(size_t size)
    {
        std::string result(size, '?');
        const support::malloc_watch watch(1);
        result.resize(vel_handle_read_line(handle_, result.data(), size));
        return result;
    }
};

TEST_F(VelhandleUnbuffered, ReadsOneByteAtATime)
{
    transport_.reads = {bytes("ab\ncdef")};
    vel_handle_set_error(handle_, VEL_ERROR_BUSY);
    EXPECT_EQ(read_unbuffered(100), "ab\n");
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(transport_.asked, (std::vector<size_t>(3, 1)));
    EXPECT_EQ(read_unbuffered(2), "cd");
    EXPECT_EQ(error(), VEL_ERROR_NONE);
    EXPECT_EQ(read_unbuffered(100), "ef");
    EXPECT_EQ(error(), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(read_unbuffered(100), "");
    EXPECT_EQ(error(), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(log_.take(), log_lines{});
}

/* A later call that has the memory is none the worse for it. */
TEST_F(VelhandleUnbuffered, BufferIsTriedAgain)
{
    transport_.reads = {bytes("a\nb\nc\n")};
    EXPECT_EQ(read_unbuffered(100), "a\n");
    EXPECT_EQ(read_line(100), "b\n");
    EXPECT_EQ(transport_.asked, (std::vector<size_t>{1, 1, 100}));
    EXPECT_EQ(read_unbuffered(100), "c\n"); /* from the buffer, which is there now */
}

/* The time is not looked at between the bytes. */
TEST_F(VelhandleUnbuffered, DoesNotCountTheTime)
{
    vel_handle_set_read_timeout(handle_, 2, 5);
    transport_.reads = {after(3 * kSecond, bytes("a")), after(3 * kSecond, bytes("\n"))};
    EXPECT_EQ(read_unbuffered(100), "a\n");
    EXPECT_EQ(transport_.timeouts, (timeout_list{{2, 5}, {2, 5}}));
    expect_read_timeout(2, 5);

    vel_handle_set_read_timeout(handle_, 0, 0);
    transport_.reads = {bytes("b\n")};
    EXPECT_EQ(read_unbuffered(100), "b\n");
    expect_read_timeout(0, 0);
}

TEST_F(VelhandleUnbuffered, FailureIsNotLogged)
{
    transport_.reads = {bytes("a"), fails_with(VEL_ERROR_CONNECTION_RESET)};
    EXPECT_EQ(read_unbuffered(100), "a");
    EXPECT_EQ(error(), VEL_ERROR_CONNECTION_RESET);
    EXPECT_EQ(log_.take(), log_lines{});
}

TEST_F(VelhandleUnbuffered, WithoutATransport)
{
    vel_handle_set_read_callback(handle_, nullptr);
    EXPECT_EQ(read_unbuffered(100), "");
    EXPECT_EQ(error(), VEL_ERROR_UNSUPPORTED);
    EXPECT_EQ(log_.take(), (log_lines{kNoRead}));
}

/* Reads of both kinds over random arrivals, against the plain text. */
TEST_F(VelhandleLine, RandomReadsGiveTheText)
{
    std::mt19937 random(20240611);
    const auto below = [&random](size_t limit) { return random() % limit; };
    for (int round = 0; round < 60; round++) {
        std::string text;
        for (size_t i = 0, lines = 40 + below(40); i < lines; i++) {
            text.append(below(10) == 0 ? below(9000) : below(100), static_cast<char>(below(10)));
            text += '\n';
        }
        for (size_t pos = 0; pos < text.size();) {
            const size_t count = below(8) == 0 ? 1 + below(6000) : 1 + below(200);
            transport_.reads.push_back(bytes(text.substr(pos, count)));
            pos += count;
        }
        size_t pos = 0;
        for (int step = 0; step < 20000 && pos < text.size(); step++) {
            const size_t size = below(6) == 0 ? 1 + below(12000) : 1 + below(300);
            if (below(4) == 0) {
                const std::string got = read(size);
                ASSERT_GT(got.size(), 0u);
                ASSERT_EQ(got, text.substr(pos, got.size()));
                pos += got.size();
            } else {
                const size_t feed = text.find('\n', pos);
                const size_t length = std::min(feed + 1 - pos, size);
                ASSERT_EQ(read_line(size), text.substr(pos, length));
                ASSERT_EQ(error(), VEL_ERROR_NONE);
                pos += length;
            }
        }
        ASSERT_EQ(pos, text.size());
        ASSERT_EQ(read_line(10), "");
    }
}

using VelhandleLineDeathTest = VelhandleUnbuffered;

/* A transport that gives nothing has to say why. */
TEST_F(VelhandleLineDeathTest, NothingWithoutAReason)
{
    transport_.reads = {fails_with(VEL_ERROR_NONE)};
    EXPECT_DEATH(read_line(10), asserts("velerror != VEL_ERROR_NONE", "vel_handle_read_line"));
    EXPECT_DEATH(read_unbuffered(10), asserts("result > 0 || velhandle->error != VEL_ERROR_NONE",
                                              "vel_handle_read_line_unbuffered"));
    transport_.reads = {bytes("a"), fails_with(VEL_ERROR_NONE)};
    EXPECT_DEATH(read_line(10), asserts("velerror != VEL_ERROR_NONE", "vel_handle_read_line"));
}

} // namespace
