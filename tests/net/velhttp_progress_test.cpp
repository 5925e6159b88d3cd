#include "support/httpperform.h"
#include "support/rows.h"

/* Time. */

TEST_F(VelhttpPerform, ZeroTimeIsOverBeforeTheBackendRuns)
{
    vel_http_set_timeout(http, 0, 0);
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_TIMER_EXPIRED);
    EXPECT_EQ(backend.calls, names());
    EXPECT_EQ(logged(), (lines{kFullExpired, kTimeout}));
}

TEST_F(VelhttpPerform, ZeroIdleTimeIsOverBeforeTheBackendRuns)
{
    vel_http_set_idle_timeout(http, 0, 0);
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_TIMED_OUT);
    EXPECT_EQ(backend.calls, names());
    EXPECT_EQ(logged(), (lines{kIdleExpired, kTimeout}));
}

TEST_F(VelhttpPerform, FullTimeComesFirst)
{
    vel_http_set_timeout(http, 0, 0);
    vel_http_set_idle_timeout(http, 0, 0);
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_TIMER_EXPIRED);
    EXPECT_EQ(logged(), (lines{kFullExpired, kTimeout}));
}

TEST_F(VelhttpPerform, TimeRunsOutInAPassThatRedirects)
{
    vel_http_set_timeout(http, 10, 0);
    backend.perform = [&](velhttp *) {
        pass(10);
        vel_http_set_status_code(http, 301);
        return VEL_ERROR_NONE;
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_TIMER_EXPIRED);
    EXPECT_EQ(backend.calls, names{"perform"});
    EXPECT_EQ(logged(), (lines{kRedirect, kFullExpired, kTimeout}));
}

TEST_F(VelhttpPerform, TimeRunsOutInAFinalPass)
{
    vel_http_set_timeout(http, 10, 0);
    EXPECT_EQ(inside([&] { pass(100); }), VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpPerform, TimeIsOfAllPasses)
{
    vel_http_set_timeout(http, 10, 0);
    backend.perform = [&](velhttp *) {
        pass(4);
        vel_http_set_status_code(http, 302);
        return vel_http_write_response_header(http, "location", "/x");
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_TIMER_EXPIRED);
    EXPECT_EQ(backend.count("perform"), 3u);
}

TEST_F(VelhttpPerform, TimesStartAgainWithEachTransfer)
{
    vel_http_set_timeout(http, 10, 500000);
    vel_http_set_idle_timeout(http, 20, 0);
    for (int round = 0; round < 3; round++) {
        EXPECT_EQ(inside([&] {
                      EXPECT_EQ(wait_of_check(), span(10, 500000));
                      pass(9);
                      EXPECT_EQ(wait_of_check(), span(1, 500000));
                  }),
                  VEL_ERROR_NONE);
        pass(100);
    }
}

TEST_F(VelhttpPerform, TimeoutsTakeEffectAtOnce)
{
    EXPECT_EQ(inside([&] {
                  vel_http_set_timeout(http, 5, 0);
                  vel_http_set_idle_timeout(http, 6, 0);
                  EXPECT_EQ(wait_of_check(), span(5, 0));
                  pass(3);
                  vel_http_set_timeout(http, 5, 0);
                  EXPECT_EQ(wait_of_check(), span(3, 0));
                  vel_http_set_idle_timeout(http, 6, 0);
                  EXPECT_EQ(wait_of_check(), span(5, 0));
              }),
              VEL_ERROR_NONE);
}

struct wait_case {
    const char *name;
    span full;
    span idle;
    bool ticks;
    double passed;
    span given;
};

static void PrintTo(const wait_case &one, std::ostream *out)
{
    *out << one.name;
}

class VelhttpWait : public VelhttpPerform, public testing::WithParamInterface<wait_case> {};

TEST_P(VelhttpWait, IsTheSmallest)
{
    const wait_case &row = GetParam();
    progress upload;
    vel_http_set_timeout(http, row.full.first, row.full.second);
    vel_http_set_idle_timeout(http, row.idle.first, row.idle.second);
    if (row.ticks)
        vel_http_set_upload_progress_callback(http, progress::callback, &upload);
    EXPECT_EQ(inside([&] {
                  pass(row.passed);
                  EXPECT_EQ(wait_of_check(), row.given);
                  EXPECT_EQ(wait_of_check(), row.given);
                  int seconds = 77;
                  unsigned int microseconds = 77;
                  EXPECT_EQ(vel_http_timeout_check(http, &seconds, nullptr), VEL_ERROR_NONE);
                  EXPECT_EQ(vel_http_timeout_check(http, nullptr, &microseconds), VEL_ERROR_NONE);
                  EXPECT_EQ(vel_http_timeout_check(http, nullptr, nullptr), VEL_ERROR_NONE);
                  EXPECT_EQ(span(seconds, microseconds), row.given);
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines());
}

static const wait_case kWaitCases[] = {
    {"None", {-1, 0}, {-1, 0}, false, 5, {-1, 0}},
    {"Full", {5, 3}, {-1, 0}, false, 0, {5, 3}},
    {"Idle", {-1, 0}, {7, 4}, false, 0, {7, 4}},
    {"FullIsLess", {5, 3}, {7, 2}, false, 0, {5, 3}},
    {"IdleIsLess", {7, 2}, {5, 3}, false, 0, {5, 3}},
    {"FullIsLessByMicroseconds", {5, 2}, {5, 3}, false, 0, {5, 2}},
    {"IdleIsLessByMicroseconds", {5, 3}, {5, 2}, false, 0, {5, 2}},
    {"TimePasses", {5, 0}, {7, 0}, false, 4.75, {0, 250000}},
    {"Tick", {-1, 0}, {-1, 0}, true, 0, {1, 0}},
    {"TickIsLess", {5, 0}, {7, 0}, true, 0.25, {0, 750000}},
    {"FullIsLessThanTick", {0, 500000}, {-1, 0}, true, 0, {0, 500000}},
    {"IdleIsLessThanTick", {-1, 0}, {0, 500000}, true, 0.25, {0, 250000}},
    {"TickIsDue", {-1, 0}, {-1, 0}, true, 1, {0, 0}},
    {"TickIsLongDue", {5, 0}, {7, 0}, true, 2.5, {0, 0}},
    {"Negative", {-9, 5}, {-7, 5}, false, 0, {-1, 0}},
};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpWait, testing::ValuesIn(kWaitCases), support::row_name());

TEST_F(VelhttpPerform, DefaultWaitIsTheIdleLimit)
{
    EXPECT_EQ(inside([&] { EXPECT_EQ(wait_of_check(), span(30, 0)); }), VEL_ERROR_NONE);
}

TEST_F(VelhttpPerform, ChecksAfterExpiry)
{
    vel_http_set_timeout(http, 5, 0);
    vel_http_set_idle_timeout(http, 3, 0);
    EXPECT_EQ(inside([&] {
                  pass(3);
                  EXPECT_EQ(wait_of_check(VEL_ERROR_TIMED_OUT), span(0, 0));
                  EXPECT_EQ(logged(), lines{kIdleExpired});
                  pass(2);
                  EXPECT_EQ(wait_of_check(VEL_ERROR_TIMER_EXPIRED), span(0, 0));
                  EXPECT_EQ(logged(), lines{kFullExpired});
                  EXPECT_EQ(vel_http_timeout_check(http, nullptr, nullptr),
                            VEL_ERROR_TIMER_EXPIRED);
                  EXPECT_EQ(logged(), lines{kFullExpired});
              }),
              VEL_ERROR_NONE);
}

TEST_F(VelhttpPerform, IdleTimeStartsAgain)
{
    vel_http_set_idle_timeout(http, 3, 7);
    EXPECT_EQ(inside([&] {
                  for (int round = 0; round < 4; round++) {
                      pass(2);
                      EXPECT_EQ(wait_of_check(), span(1, 7));
                      vel_http_reset_idle_timeout(http);
                      EXPECT_EQ(wait_of_check(), span(3, 7));
                  }
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpPerform, FullTimeStartsAgainByReset)
{
    vel_http_set_timeout(http, 3, 7);
    EXPECT_EQ(inside([&] {
                  pass(2);
                  EXPECT_EQ(wait_of_check(), span(1, 7));
                  int seconds = 77;
                  unsigned int microseconds = 77;
                  vel_http_timeout_reset(http, &seconds, &microseconds);
                  EXPECT_EQ(span(seconds, microseconds), span(3, 7));
                  EXPECT_EQ(wait_of_check(), span(3, 7));
              }),
              VEL_ERROR_NONE);
}

TEST_F(VelhttpPerform, ClockThatGoesBackCostsNothing)
{
    vel_http_set_timeout(http, 5, 0);
    EXPECT_EQ(inside([&] {
                  pass(2);
                  EXPECT_EQ(wait_of_check(), span(3, 0));
                  pass(-3600);
                  EXPECT_EQ(wait_of_check(), span(3, 0));
                  pass(1);
                  EXPECT_EQ(wait_of_check(), span(2, 0));
              }),
              VEL_ERROR_NONE);
}

/* Progress. */

TEST_F(VelhttpPerform, DownloadIsToldAtTheStartOfEachPass)
{
    progress download;
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    answer({301, 302, 200}, "/x");
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(download.calls, (told{{0, -1}, {0, -1}, {0, -1}}));
    EXPECT_EQ(logged(), lines(2, kRedirect));
}

TEST_F(VelhttpPerform, UploadIsNotToldAtTheStart)
{
    progress upload;
    vel_http_set_upload_progress_callback(http, progress::callback, &upload);
    EXPECT_EQ(inside([&] { EXPECT_EQ(wait_of_check(), span(1, 0)); }), VEL_ERROR_NONE);
    EXPECT_EQ(upload.calls, told());
}

TEST_F(VelhttpPerform, ChecksWaitForTheTick)
{
    progress upload, download;
    vel_http_set_progress_callbacks(http, progress::callback, &upload, progress::callback,
                                    &download);
    EXPECT_EQ(inside([&] {
                  download.calls.clear();
                  pass(0.999999);
                  vel_http_progress_upload_check(http);
                  vel_http_progress_download_check(http);
                  EXPECT_EQ(logged(), lines());
                  pass(0.000001);
                  vel_http_progress_upload_check(http);
                  EXPECT_EQ(logged(), lines{kUploadDue});
                  EXPECT_EQ(upload.calls, (told{{0, -1}}));
                  /* One tick serves both directions. */
                  vel_http_progress_download_check(http);
                  EXPECT_EQ(wait_of_check(), span(1, 0));
                  pass(1.5);
                  EXPECT_EQ(wait_of_check(), span(0, 0));
                  vel_http_progress_download_check(http);
                  vel_http_progress_upload_check(http);
                  EXPECT_EQ(logged(), lines{kDownloadDue});
                  EXPECT_EQ(wait_of_check(), span(1, 0));
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(upload.calls, (told{{0, -1}}));
    EXPECT_EQ(download.calls, (told{{0, -1}}));
}

TEST_F(VelhttpPerform, TickOfADirectionWithoutCallbackStaysDue)
{
    progress upload;
    vel_http_set_upload_progress_callback(http, progress::callback, &upload);
    EXPECT_EQ(inside([&] {
                  pass(1);
                  vel_http_progress_download_check(http);
                  vel_http_progress_download_force(http);
                  EXPECT_EQ(wait_of_check(), span(0, 0));
                  vel_http_progress_upload_check(http);
                  EXPECT_EQ(wait_of_check(), span(1, 0));
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines{kUploadDue});
}

TEST_F(VelhttpPerform, ForceDoesNotWaitForTheTick)
{
    progress upload, download;
    vel_http_set_progress_callbacks(http, progress::callback, &upload, progress::callback,
                                    &download);
    EXPECT_EQ(inside([&] {
                  pass(0.5);
                  vel_http_progress_upload_force(http);
                  EXPECT_EQ(wait_of_check(), span(1, 0));
                  pass(0.5);
                  vel_http_progress_download_force(http);
                  EXPECT_EQ(wait_of_check(), span(1, 0));
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(upload.calls, (told{{0, -1}}));
    EXPECT_EQ(download.calls, (told{{0, -1}, {0, -1}}));
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpPerform, ProgressWithoutCallbacksDoesNothing)
{
    EXPECT_EQ(inside([&] {
                  pass(5);
                  vel_http_progress_upload_check(http);
                  vel_http_progress_upload_force(http);
                  vel_http_progress_download_check(http);
                  vel_http_progress_download_force(http);
                  EXPECT_EQ(wait_of_check(), span(25, 0));
              }),
              VEL_ERROR_NONE);
    EXPECT_EQ(logged(), lines());
}

TEST_F(VelhttpPerform, ForceWithoutAnActiveRequestTellsNobody)
{
    progress upload, download;
    vel_http_set_progress_callbacks(http, progress::callback, &upload, progress::callback,
                                    &download);
    vel_http_progress_upload_force(http);
    vel_http_progress_download_force(http);
    EXPECT_EQ(upload.calls, told());
    EXPECT_EQ(download.calls, told());
}

TEST_F(VelhttpPerform, UploadCallbackAborts)
{
    progress upload;
    upload.result = -3;
    vel_http_set_upload_progress_callback(http, progress::callback, &upload);
    const lines expected = {
        line(7, "The upload progress callback returned -3, aborting the transfer"), kAborting};
    EXPECT_EQ(inside([&] {
                  vel_http_progress_upload_force(http);
                  EXPECT_EQ(logged(), expected);
                  EXPECT_EQ(vel_http_is_aborted(http), 1);
                  pass(1);
                  vel_http_progress_upload_check(http);
                  EXPECT_EQ(logged(), (lines{kUploadDue, expected[0], expected[1]}));
              }),
              VEL_ERROR_NONE);
}

TEST_F(VelhttpPerform, DownloadCallbackAborts)
{
    progress download;
    download.result = 4;
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    const lines expected = {
        line(7, "The download progress callback returned 4, aborting the transfer"), kAborting};
    EXPECT_EQ(inside([&] {
                  EXPECT_EQ(logged(), expected) << "from the start of the pass";
                  EXPECT_EQ(vel_http_is_aborted(http), 1);
                  pass(1);
                  vel_http_progress_download_check(http);
                  EXPECT_EQ(logged(), (lines{kDownloadDue, expected[0], expected[1]}));
              }),
              VEL_ERROR_NONE);
}

TEST_F(VelhttpPerform, SlowCallbackIsDueBeforeEachStep)
{
    progress download;
    download.takes = 2000000;
    download.result = 5;
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    EXPECT_EQ(inside([] {}), VEL_ERROR_NONE);
    EXPECT_EQ(download.calls, (told{{0, -1}, {0, -1}, {0, -1}}));
    EXPECT_EQ(logged(),
              (lines{line(7, "The download progress callback returned 5, aborting the transfer"),
                     kAborting, line(7, "The progress callback returned 5, aborting the transfer"),
                     kAborting, line(7, "The progress callback returned 5, aborting the transfer"),
                     kAborting}));
}

TEST_F(VelhttpPerform, DueTickAfterARedirect)
{
    progress download;
    vel_http_set_download_progress_callback(http, progress::callback, &download);
    backend.perform = [&](velhttp *) {
        const bool first = backend.count("perform") == 1;
        pass(1);
        vel_http_write_response_header(http, "content-length", "9");
        vel_http_set_status_code(http, first ? 302 : 200);
        return vel_http_write_response_header(http, "location", "/x");
    };
    EXPECT_EQ(vel_http_perform(http), VEL_ERROR_NONE);
    EXPECT_EQ(download.calls, (told{{0, -1}, {0, 9}, {0, -1}}));
}
