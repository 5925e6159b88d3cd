/* Time limits, progress and aborts. */

#include "support/httplite.h"

#include <set>
#include <thread>

#include <gmock/gmock.h>

#include "support/rows.h"

using told = std::vector<std::pair<int64_t, int64_t>>;
using testing::AnyOf;

static const support::log_line kIdle = front(7, "idle timeout occurred");
static const support::log_line kFull = front(7, "the full transfer timer expired");
static const support::log_line kTimeout = lite(7, "a timeout occurred");
static const support::log_line kUploadDue = front(13, "upload progress callback is due");

static const std::string kStatusLine = "HTTP/1.0 200 OK\r\n";
static const std::string kHead = kStatusLine + "Content-Length: 3\r\n\r\n";

/* Keeps what it is told, and gives its result from one call on. */
struct progress {
    told calls;
    int result = 0;
    size_t from = 1;
    std::function<void()> action = [] {};

    static int callback(int64_t current, int64_t total, void *context)
    {
        auto *self = static_cast<progress *>(context);
        self->calls.push_back({current, total});
        self->action();
        return self->calls.size() >= self->from ? self->result : 0;
    }
};

/* A peer that says nothing more. Real time passes; what notices its end depends on whether the wait
 * was a little shorter. */

struct stall_case {
    const char *name;
    std::string sent;
    bool status; /* the status line has come in */
    const char *failure;
};

static void PrintTo(const stall_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelhttpLiteStall : public VelhttpLite, public testing::WithParamInterface<stall_case> {
  protected:
    using limiter = void (*)(velhttp *http, int seconds, unsigned int microseconds);

    /* What is logged when the limit strikes. It has to leave time for what the peer sends to come
     * in: on a busy machine a longer one does. */
    lines stall(limiter limit, vel_error_t error)
    {
        for (unsigned int microseconds = 50000;; microseconds *= 2) {
            http_server server({{GetParam().sent, http_ending::hold}});
            limit(http, static_cast<int>(microseconds / 1000000), microseconds % 1000000);
            EXPECT_EQ(fetch(server.url("/")), error);
            lines said = logged();
            const bool came = !said.empty() && said.front() == lite_status(200);
            if (came == GetParam().status || microseconds > 10000000)
                return said;
        }
    }

    void check(limiter limit, vel_error_t error, const support::log_line &expiry)
    {
        const lines said = stall(limit, error);
        lines soon, late;
        if (GetParam().status)
            soon.push_back(lite_status(200));
        soon.push_back(expiry);
        late = soon;
        if (GetParam().failure) {
            soon.push_back(lite_error(7, "checking timeout", error));
            late.push_back(lite_error(7, "reading input line failed", error));
            soon.push_back(lite_error(7, GetParam().failure, error));
            late.push_back(lite_error(7, GetParam().failure, error));
        } else {
            soon.push_back(kTimeout);
            late.push_back(lite_error(7, "unable to read more body information", error));
        }
        EXPECT_THAT(said, AnyOf(soon, late));
    }
};

TEST_P(VelhttpLiteStall, IdleLimit)
{
    check(vel_http_set_idle_timeout, VEL_ERROR_TIMED_OUT, kIdle);
}

TEST_P(VelhttpLiteStall, FullLimit)
{
    check(vel_http_set_timeout, VEL_ERROR_TIMER_EXPIRED, kFull);
}

static const stall_case kStallCases[] = {
    {"BeforeTheStatusLine", "", false, "reading HTTP status code failed"},
    {"InTheStatusLine", "HTTP/1.0 2", false, "reading HTTP status code failed"},
    {"BehindTheStatusLine", kStatusLine, true, "unable to read HTTP headers"},
    {"InAHeader", kStatusLine + "Conte", true, "unable to read HTTP headers"},
    {"BeforeTheEmptyLine", kStatusLine + "A: 1\r\n", true, "unable to read HTTP headers"},
    {"BeforeTheBody", kHead, true, nullptr},
    {"InTheBody", kHead + "12", true, nullptr},
    {"BehindABodyOfUnknownLength", kStatusLine + "\r\n12", true, nullptr},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpLiteStall, testing::ValuesIn(kStallCases),
                         support::row_name());

class VelhttpLiteBlockedWrite : public VelhttpLite {
  protected:
    void check(vel_error_t error, const support::log_line &expiry, const support::log_line &noticed)
    {
        const std::string large(32 << 20, 'x');
        EXPECT_EQ(vel_http_set_request_body(http, large.data(), large.size()), VEL_ERROR_NONE);
        http_server server({{"", http_ending::hold, 0, false}});
        EXPECT_EQ(fetch(server.url("/")), error);
        const support::log_line last = lite_error(7, "unable to send the request body", error);
        EXPECT_THAT(logged(),
                    AnyOf(lines{expiry, noticed, last},
                          lines{expiry, lite_error(7, "unable to send data", error), last}));
    }
};

TEST_F(VelhttpLiteBlockedWrite, IdleLimit)
{
    vel_http_set_idle_timeout(http, 0, 50000);
    check(VEL_ERROR_TIMED_OUT, kIdle, kTimeout);
}

TEST_F(VelhttpLiteBlockedWrite, FullLimit)
{
    vel_http_set_timeout(http, 0, 50000);
    check(VEL_ERROR_TIMER_EXPIRED, kFull, lite(7, "the full transfer timer expired"));
}

TEST_F(VelhttpLite, PeerGoesWhileTheBodyIsSent)
{
    const std::string large(32 << 20, 'x');
    EXPECT_EQ(vel_http_set_request_body(http, large.data(), large.size()), VEL_ERROR_NONE);
    http_server server({{"", http_ending::reset, 1}});
    const vel_error_t result = fetch(server.url("/"));
    EXPECT_TRUE(result == VEL_ERROR_BROKEN_PIPE || result == VEL_ERROR_CONNECTION_RESET) << result;
    const lines said = logged();
    ASSERT_EQ(said.size(), 2u);
    EXPECT_EQ(said[0], lite_error(7, "unable to send data", result));
    EXPECT_EQ(said[1], lite_error(7, "unable to send the request body", result));
}

/* A played clock, on which time passes with the calls. */

class VelhttpLitePlayed : public VelhttpLite {
  protected:
    void SetUp() override
    {
        VelhttpLite::SetUp();
        wire.played = true;
    }
};

TEST_F(VelhttpLitePlayed, SlowPeerIsNotIdle)
{
    wire.recvlimit = 1;
    wire.recvtime = 20000000;
    EXPECT_EQ(fetch_answer(kHead + "abc"), VEL_ERROR_NONE);
    EXPECT_EQ(body(), "abc");
    EXPECT_EQ(logged(), lines{lite_status(200)});
}

TEST_F(VelhttpLitePlayed, SlowPeerIsTooSlow)
{
    wire.recvlimit = 1;
    wire.recvtime = 20000000;
    for (const int limit : {100, 500, 780}) {
        vel_http_set_timeout(http, limit, 0);
        EXPECT_EQ(fetch_answer(kHead + "abc", http_ending::hold), VEL_ERROR_TIMER_EXPIRED);
        const lines said = logged();
        EXPECT_EQ(std::count(said.begin(), said.end(), kFull), 1);
        EXPECT_EQ(std::count(said.begin(), said.end(), kIdle), 0);
    }
}

TEST_F(VelhttpLitePlayed, SlowNetworkIsNotIdle)
{
    wire.sendtime = 20000000;
    vel_http_set_method_post(http);
    EXPECT_EQ(vel_http_set_request_body(http, "body", 4), VEL_ERROR_NONE);
    http_server server({{http_answer("200 OK", "", ""), http_ending::close, 4}});
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_NONE);
}

/* A result, and what was logged. */
using outcome = std::pair<vel_error_t, names>;

static outcome outcome_of(vel_error_t result, const lines &said)
{
    outcome one = {result, {}};
    for (const support::log_line &line : said)
        one.second.push_back(line.text);
    return one;
}

/* What comes of a time that runs out, by what notices it: a check of both limits, of the idle one
 * alone where the time passed between the two, or the end of a wait. */
static std::set<outcome> expired_outcomes()
{
    const vel_error_t full = VEL_ERROR_TIMER_EXPIRED, idle = VEL_ERROR_TIMED_OUT;
    std::set<outcome> outcomes = {
        outcome_of(VEL_ERROR_NONE, {lite_status(200)}),
        outcome_of(idle, {kFull, kTimeout}), /* at the start of the connect */
        outcome_of(full, {kFull, lite_error(7, "reading input line failed", full),
                          lite_error(7, "reading HTTP status code failed", full)}),
    };
    for (const vel_error_t error : {full, idle}) {
        const support::log_line &expiry = error == full ? kFull : kIdle;
        const support::log_line &noticed = error == full ? kFull : kTimeout;
        const support::log_line check = lite_error(7, "checking timeout", error);
        for (const char *sending :
             {"sending request failed", "unable to send header 'a: 1'",
              "unable to send header 'a: 1' end of line", "unable to send content length",
              "unable to send end of headers", "unable to send the request body"})
            outcomes.insert(outcome_of(error, {expiry, noticed, lite_error(7, sending, error)}));
        for (const lines &said :
             {lines{expiry, kTimeout}, /* before the pass or in the connect */
              lines{expiry, check, lite_error(7, "reading HTTP status code failed", error)},
              lines{lite_status(200), expiry, check,
                    lite_error(7, "unable to read HTTP headers", error)},
              lines{lite_status(200), expiry, kTimeout}}) /* in the body */
            outcomes.insert(outcome_of(error, said));
    }
    return outcomes;
}

/* An hour passes before one reading of the clock, each one in turn. The number of readings differs a
 * little from one time to the next, so this is repeated until all outcomes have been met. */
TEST_F(VelhttpLitePlayed, TimeRunsOutAtEachReadingOfTheClock)
{
    const std::set<outcome> expected = expired_outcomes();
    std::set<outcome> met;
    http_server server({{kHead + "abc", http_ending::hold, 4}}, true);
    for (int round = 0; round < 50 && met != expected; round++) {
        bool completed = false;
        for (size_t reading = 1; !completed; reading++) {
            ASSERT_LT(reading, 1000u);
            vel_http_set_timeout(http, 600, 0);
            vel_http_set_method_post(http);
            EXPECT_EQ(vel_http_add_header(http, "a: 1"), VEL_ERROR_NONE);
            EXPECT_EQ(vel_http_set_request_body(http, "body", 4), VEL_ERROR_NONE);
            wire.readings = 0;
            wire.jumpat = reading;
            const vel_error_t result = fetch(server.url("/"));
            completed = wire.readings < reading;
            const outcome one = outcome_of(result, logged());
            ASSERT_EQ(expected.count(one), 1u) << testing::PrintToString(one);
            met.insert(one);
        }
    }
    EXPECT_EQ(met, expected);
}

/* Progress. */

TEST_F(VelhttpLitePlayed, DownloadIsToldWithEachTick)
{
    progress download;
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    wire.recvlimit = 1;
    wire.recvskip = kHead.size();
    wire.recvtime = 1000000;
    EXPECT_EQ(fetch_answer(kHead + "abc", http_ending::hold), VEL_ERROR_NONE);
    EXPECT_EQ(download.calls, (told{{0, -1}, {0, 3}, {0, 3}, {1, 3}, {2, 3}, {3, 3}}));
}

TEST_F(VelhttpLitePlayed, DownloadOfUnknownLength)
{
    progress download;
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    EXPECT_EQ(fetch_answer(http_answer("200 OK", "", std::string(10000, 'x'))), VEL_ERROR_NONE);
    EXPECT_EQ(download.calls, (told{{0, -1}, {0, -1}, {10000, -1}}));
}

TEST_F(VelhttpLitePlayed, UploadIsToldWithEachTick)
{
    progress upload;
    vel_http_set_upload_progress_callback(http, progress::callback, &upload);
    wire.sendtime = 1000000;
    EXPECT_EQ(vel_http_set_request_body(http, "body", 4), VEL_ERROR_NONE);
    http_server server({{http_answer("200 OK", "", ""), http_ending::close, 4}});
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_NONE);
    /* At the start, behind the head, the length, the empty line and the body, and at the end. */
    EXPECT_EQ(upload.calls, told(6, {0, -1}));
    EXPECT_EQ(logged(), (lines{kUploadDue, kUploadDue, kUploadDue, kUploadDue, lite_status(200)}));
}

/* Where every look at the clock takes longer than a tick, each check is a call. */
TEST_F(VelhttpLitePlayed, UploadIsCheckedBeforeTheBody)
{
    progress upload;
    upload.action = [&] {
        if (upload.calls.size() == 6)
            wire.readtime = 0; /* all is sent */
    };
    vel_http_set_upload_progress_callback(http, progress::callback, &upload);
    vel_http_set_idle_timeout(http, -1, 0);
    wire.readtime = 2000000;
    EXPECT_EQ(vel_http_set_request_body(http, "body", 4), VEL_ERROR_NONE);
    http_server server({{http_answer("200 OK", "", ""), http_ending::close, 4}});
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_NONE);
    EXPECT_EQ(upload.calls, told(7, {0, -1}));
}

/* Behind each read the progress callback takes most of the idle limit, and so does the body callback
 * then; what was read and what was handed on each begin it anew. */
TEST_F(VelhttpLitePlayed, SlowCallbacksAreNotIdle)
{
    progress download;
    download.action = [&] {
        const told &calls = download.calls;
        if (calls.size() > 2 && calls.back() == calls[calls.size() - 2])
            wire.clock += 20000000;
    };
    const auto take = [](const void *, size_t, void *) -> vel_error_t {
        wire.clock += 20000000;
        return VEL_ERROR_NONE;
    };
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    vel_http_set_response_body_callback(http, take, nullptr);
    wire.recvlimit = 1;
    wire.recvskip = kHead.size();
    wire.recvtime = 1000000;
    EXPECT_EQ(fetch_answer(kHead + "abc", http_ending::hold), VEL_ERROR_NONE);
    EXPECT_EQ(download.calls,
              (told{{0, -1}, {0, 3}, {0, 3}, {1, 3}, {1, 3}, {2, 3}, {2, 3}, {3, 3}, {3, 3}}));
}

/* Aborts. */

static lines aborted_by(const char *direction)
{
    return {front(7, std::string("The ") + direction +
                         " progress callback returned 9, aborting the transfer"),
            kAborting};
}

static lines joined(const std::vector<lines> &parts)
{
    lines all;
    for (const lines &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

TEST_F(VelhttpLitePlayed, UploadAbortsBeforeAnythingIsSent)
{
    progress upload;
    upload.result = 9;
    vel_http_set_upload_progress_callback(http, progress::callback, &upload);
    http_server server({{"", http_ending::hold}});
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_CANCELED);
    const lines call = aborted_by("upload");
    EXPECT_EQ(logged(), joined({call, {kAborted}, call}));
    EXPECT_EQ(server.finish(), names{""});
}

TEST_F(VelhttpLitePlayed, UploadAbortsWhenAllIsSent)
{
    progress upload;
    upload.result = 9;
    upload.from = 2;
    vel_http_set_upload_progress_callback(http, progress::callback, &upload);
    http_server server({{"", http_ending::hold}});
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_CANCELED);
    EXPECT_EQ(logged(), joined({aborted_by("upload"), {kAborted}}));
    EXPECT_EQ(server.finish().size(), 1u);
}

TEST_F(VelhttpLitePlayed, UploadAbortsWhileTheHeadIsSent)
{
    progress upload;
    upload.result = 9;
    upload.from = 2;
    vel_http_set_upload_progress_callback(http, progress::callback, &upload);
    EXPECT_EQ(vel_http_add_header(http, "a: 1"), VEL_ERROR_NONE);
    wire.sendtime = 1000000;
    http_server server({{"", http_ending::hold}});
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_CANCELED);
    const lines call = aborted_by("upload");
    EXPECT_EQ(
        logged(),
        joined(
            {{kUploadDue}, call, {kAborted, lite_error(7, "sending request failed", 125)}, call}));
}

TEST_F(VelhttpLitePlayed, DownloadAbortsBeforeTheConnect)
{
    progress download;
    download.result = 9;
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    http_server server({{"", http_ending::hold}});
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_CANCELED);
    EXPECT_EQ(logged(), joined({aborted_by("download"), {kAborted}}));
    EXPECT_EQ(server.finish(), names());
}

TEST_F(VelhttpLitePlayed, DownloadAbortsAtTheEnd)
{
    progress download;
    download.result = 9;
    download.from = 3;
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    EXPECT_EQ(fetch_answer(kHead + "abc"), VEL_ERROR_CANCELED);
    EXPECT_EQ(logged(), joined({{lite_status(200)}, aborted_by("download"), {kAborted}}));
    EXPECT_EQ(body(), "abc");
}

/* At each call of the callback in turn, of which there is one for each byte. */
TEST_F(VelhttpLitePlayed, DownloadAbortsAnywhere)
{
    static const std::string answer = kHead + "abc";
    bool completed = false;
    size_t canceled = 0;
    for (size_t from = 1; !completed; from++) {
        ASSERT_LT(from, 1000u);
        progress download;
        download.result = 9;
        download.from = from;
        vel_http_set_download_progress_callback(http, progress::callback, &download);
        wire.recvlimit = 1;
        wire.recvtime = 1000000;
        const vel_error_t result = fetch_answer(answer, http_ending::hold);
        completed = download.calls.size() < from;
        EXPECT_EQ(result, completed ? VEL_ERROR_NONE : VEL_ERROR_CANCELED) << from;
        const lines said = logged();
        EXPECT_EQ(std::count(said.begin(), said.end(), kAborted), completed ? 0 : 1) << from;
        canceled += completed ? 0 : 1;
    }
    EXPECT_GE(canceled, answer.size());
}

/* Real ticks, of a second each. */

TEST_F(VelhttpLite, WaitForATickIsNoFailure)
{
    http_server server({{http_answer("200 OK", "", "late"), http_ending::close, 0, true, true}});
    progress download;
    download.action = [&] {
        if (download.calls.size() == 2)
            server.open_gate();
    };
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    EXPECT_EQ(fetch(server.url("/")), VEL_ERROR_NONE);
    EXPECT_EQ(body(), "late");
    EXPECT_GE(download.calls.size(), 4u);
}

/* The other thread begins within the transfer, so that what it reads has been written. */
TEST(VelhttpLiteThreads, AbortFromAnotherThread)
{
    wire = {};
    ASSERT_EQ(vel_log_init_threaded(), 0);
    vel_log_stderr_disable(nullptr);
    velhttp *http = vel_http_lite_create();
    ASSERT_NE(http, nullptr);
    http_server server({{"", http_ending::hold}});
    std::thread aborts;
    progress download;
    download.action = [&] {
        if (!aborts.joinable())
            aborts = std::thread([&] {
                EXPECT_TRUE(server.wait_for_request());
                vel_http_abort(http);
            });
    };
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    EXPECT_EQ(vel_http_set_url(http, server.url("/").c_str()), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_CANCELED);
    aborts.join();
    vel_http_destroy(http);
    vel_log_uninit();
}
