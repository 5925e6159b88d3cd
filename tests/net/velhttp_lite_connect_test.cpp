/* The connect, with answers of addresses that the test makes up and a clock that moves with each
 * look at it. */

#include <algorithm>
#include <cerrno>
#include <functional>
#include <netdb.h>
#include <string>
#include <sys/time.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/netfixture.h"
#include "support/platform_function.h"

using lines = support::log_lines;
using support::net_answer;

/* While played, each reading of the wall clock takes this many microseconds. */
static bool played;
static int64_t wallclock;
static int64_t readtime;

extern "C" int gettimeofday(struct timeval *time, void *zone) noexcept
{
    static const auto next =
        support::platform_function<int(struct timeval *, void *)>("gettimeofday");
    if (!played)
        return next(time, zone);
    wallclock += readtime;
    *time = {static_cast<time_t>(wallclock / 1000000),
             static_cast<suseconds_t>(wallclock % 1000000)};
    return 0;
}

static support::log_line front(int level, const std::string &text)
{
    return {"net/velhttp", level, text};
}

static support::log_line lite(int level, const std::string &text)
{
    return {"net/velhttp_lite", level, text};
}

static const support::log_line kTimeout = lite(7, "a timeout occurred");
static const support::log_line kFull = front(7, "the full transfer timer expired");
static const support::log_line kDue = front(13, "download progress callback is due");
static const support::log_line kAborting = front(10, "aborting transfer");

struct progress {
    int calls = 0;
    std::function<int(int)> action = [](int) { return 0; };

    static int callback(int64_t, int64_t, void *context)
    {
        auto *self = static_cast<progress *>(context);
        return self->action(++self->calls);
    }
};

class VelhttpLiteConnect : public support::net_test {
  protected:
    void SetUp() override
    {
        played = true;
        wallclock = 1000000000000000;
        readtime = 100000;
        http = vel_http_lite_create();
        ASSERT_NE(http, nullptr);
    }
    void TearDown() override
    {
        vel_http_destroy(http);
        played = false;
        net_test::TearDown();
    }

    void answers(net_answer answer, int platformerrno = 0)
    {
        shim_.resolve({{"127.0.0.1", answer, platformerrno}});
    }

    vel_error_t fetch()
    {
        EXPECT_EQ(vel_http_set_url(http, "http://host:81/"), VEL_ERROR_NONE);
        return vel_http_perform(http);
    }

    lines logged()
    {
        return log_.take_from("net/velhttp");
    }

    /* The lines, without those about ticks, which depend on how often the clock was read. */
    lines logged_but_ticks()
    {
        lines said = logged();
        std::erase(said, kDue);
        return said;
    }

    velhttp *http = nullptr;
};

TEST_F(VelhttpLiteConnect, GoesToTheHostOfTheUrl)
{
    answers(net_answer::later, ECONNREFUSED);
    EXPECT_EQ(fetch(), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(shim_.connects(), std::vector<std::string>{"127.0.0.1:81"});
    EXPECT_EQ(logged(), lines{lite(7, "connection failed, error 111 (connection refused)")});
}

TEST_F(VelhttpLiteConnect, GoesToTheProxy)
{
    answers(net_answer::later, ECONNREFUSED);
    EXPECT_EQ(vel_http_set_proxy(http, "proxy", 3128), VEL_ERROR_NONE);
    EXPECT_EQ(fetch(), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(shim_.connects(), std::vector<std::string>{"127.0.0.1:3128"});
    EXPECT_EQ(logged(), (lines{lite(7, "connection failed, error 111 (connection refused)"),
                               lite(7, "connecting to proxy proxy port 3128 failed, error 111 "
                                       "(connection refused)")}));
}

TEST_F(VelhttpLiteConnect, UnknownHost)
{
    shim_.resolve_fails(EAI_NONAME);
    EXPECT_EQ(fetch(), VEL_ERROR_HOST_UNRESOLVED);
    EXPECT_EQ(logged(), lines{lite(7, "connection failed, error 210 (unable to resolve host)")});
}

TEST_F(VelhttpLiteConnect, IdleLimit)
{
    answers(net_answer::silent);
    EXPECT_EQ(fetch(), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(logged(), (lines{front(7, "idle timeout occurred"), kTimeout}));
    EXPECT_THAT(shim_.waits(), testing::Each(testing::Le(30000)));
    EXPECT_GT(shim_.waits().front(), 25000);
}

TEST_F(VelhttpLiteConnect, FullLimit)
{
    answers(net_answer::silent);
    vel_http_set_timeout(http, 20, 0);
    EXPECT_EQ(fetch(), VEL_ERROR_TIMER_EXPIRED);
    EXPECT_EQ(logged(), (lines{kFull, kTimeout}));
    EXPECT_THAT(shim_.waits(), testing::Each(testing::Le(20000)));
}

TEST_F(VelhttpLiteConnect, LimitsAreThoseOfAProxyToo)
{
    answers(net_answer::silent);
    EXPECT_EQ(vel_http_set_proxy(http, "proxy", 3128), VEL_ERROR_NONE);
    vel_http_set_timeout(http, 20, 0);
    EXPECT_EQ(fetch(), VEL_ERROR_TIMER_EXPIRED);
    EXPECT_EQ(logged(), (lines{kFull, kTimeout,
                               lite(7, "connecting to proxy proxy port 3128 failed, error 62 "
                                       "(timer expired)")}));
}

TEST_F(VelhttpLiteConnect, WaitsForNoLongerThanATick)
{
    progress download;
    answers(net_answer::silent);
    vel_http_set_timeout(http, 20, 0);
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    EXPECT_EQ(fetch(), VEL_ERROR_TIMER_EXPIRED);
    EXPECT_GE(download.calls, 8);
    EXPECT_LE(download.calls, 20);
    EXPECT_THAT(shim_.waits(), testing::Each(testing::Le(1000)));
    EXPECT_EQ(logged_but_ticks(), (lines{kFull, kTimeout}));
}

/* The peer of the made-up connection is nobody, so that sending fails. */
TEST_F(VelhttpLiteConnect, TickIsNoFailure)
{
    progress download;
    download.action = [&](int call) {
        if (call == 4)
            shim_.answer({"127.0.0.1", net_answer::later, 0});
        return 0;
    };
    answers(net_answer::silent);
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    EXPECT_EQ(fetch(), VEL_ERROR_BROKEN_PIPE);
    EXPECT_EQ(logged_but_ticks(),
              (lines{lite(7, "unable to send data, error 32 (broken pipe)"),
                     lite(7, "sending request failed, error 32 (broken pipe)")}));
}

TEST_F(VelhttpLiteConnect, RefusedBehindATick)
{
    progress download;
    download.action = [&](int call) {
        if (call == 4)
            shim_.answer({"127.0.0.1", net_answer::later, ECONNREFUSED});
        return 0;
    };
    answers(net_answer::silent);
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    EXPECT_EQ(fetch(), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(logged_but_ticks(),
              lines{lite(7, "connection failed, error 111 (connection refused)")});
}

/* Where every look at the clock takes longer than a tick, each check is a call: one before the first
 * wait, one behind it, and one behind each wait for a tick, also behind the last. */
TEST_F(VelhttpLiteConnect, EachCheckOfTheTick)
{
    progress download;
    readtime = 2000000;
    vel_http_set_idle_timeout(http, -1, 0);
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    const support::log_line refused = lite(7, "connection failed, error 111 (connection refused)");

    answers(net_answer::later, ECONNREFUSED);
    EXPECT_EQ(fetch(), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(logged(), (lines{kDue, kDue, refused}));

    download.action = [&, dues = 0](int) mutable {
        const lines said = logged();
        dues += static_cast<int>(std::count(said.begin(), said.end(), kDue));
        if (dues == 3)
            shim_.answer({"127.0.0.1", net_answer::later, ECONNREFUSED});
        return 0;
    };
    answers(net_answer::silent);
    EXPECT_EQ(fetch(), VEL_ERROR_CONNECTION_REFUSED);
    EXPECT_EQ(logged(), lines{refused}) << "the due ones were counted";
}

/* An abort is seen when the connect is over. */
TEST_F(VelhttpLiteConnect, AbortByATick)
{
    progress download;
    download.action = [&](int call) {
        if (call == 5)
            shim_.answer({"127.0.0.1", net_answer::later, 0});
        return call == 3 ? 9 : 0;
    };
    answers(net_answer::silent);
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    EXPECT_EQ(fetch(), VEL_ERROR_CANCELED);
    EXPECT_EQ(logged_but_ticks(),
              (lines{front(7, "The download progress callback returned 9, aborting the transfer"),
                     kAborting, lite(10, "the transfer was aborted")}));
    EXPECT_GE(download.calls, 5);
}

TEST_F(VelhttpLiteConnect, InterruptionIsADetail)
{
    answers(net_answer::later, 0);
    shim_.fail("poll", EINTR);
    EXPECT_EQ(fetch(), VEL_ERROR_INTERRUPTED);
    EXPECT_EQ(logged(), lines{lite(13, "connection failed, error 4 (interrupted system call)")});
}

TEST_F(VelhttpLiteConnect, InterruptionBehindATickIsNot)
{
    progress download;
    download.action = [&](int call) {
        if (call == 4)
            shim_.fail("poll", EINTR);
        return 0;
    };
    answers(net_answer::silent);
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    EXPECT_EQ(fetch(), VEL_ERROR_INTERRUPTED);
    EXPECT_EQ(logged_but_ticks(),
              lines{lite(7, "connection failed, error 4 (interrupted system call)")});
}

TEST_F(VelhttpLiteConnect, NoSocket)
{
    answers(net_answer::now, 0);
    shim_.fail("socket", EMFILE);
    const vel_error_t result = fetch();
    EXPECT_NE(result, VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines{lite(7, "connection failed, error " + std::to_string(result) + " (" +
                                          vel_error_string(result) + ")")});
}
