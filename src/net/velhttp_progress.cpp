#include "net/velhttp_internal.h"

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velhttp"

/* What is left of a countdown. Negative seconds are infinite. */
struct vel_http_remainder {
    int seconds;
    unsigned int microseconds;
};

static vel_http_remainder vel_http_smaller_remainder(vel_http_remainder a, vel_http_remainder b)
{
    if (a.seconds < 0)
        return b;
    if (b.seconds < 0 || a.seconds < b.seconds)
        return a;
    if (b.seconds < a.seconds)
        return b;
    return a.microseconds < b.microseconds ? a : b;
}

static bool vel_http_has_progress_callback(const velhttprequest *request)
{
    return request->uploadprogress.callback || request->downloadprogress.callback;
}

static bool vel_http_tick_is_due(velhttprequest *request)
{
    return vel_timeout_check(request->progresstimeout, nullptr, nullptr) == 1;
}

/* Starts the tick anew and calls the callback, which is there, with its numbers. */
static int vel_http_call_progress(velhttprequest *request, const velhttpprogress *progress)
{
    vel_timeout_set(request->progresstimeout, kVelHttpTickSeconds, 0);
    return progress->callback(progress->current, progress->total, progress->context);
}

void vel_http_request_start_timers(velhttprequest *request)
{
    vel_timeout_set(request->veltimeout, request->timeoutseconds, request->timeoutmicroseconds);
    vel_timeout_set(request->idletimeout, request->idleseconds, request->idlemicroseconds);
    vel_timeout_set(request->progresstimeout,
                    vel_http_has_progress_callback(request) ? kVelHttpTickSeconds : -1, 0);
}

void vel_http_request_restart_progress(velhttprequest *request)
{
    for (velhttpprogress *progress : {&request->uploadprogress, &request->downloadprogress}) {
        progress->total = -1;
        progress->current = 0;
    }
    vel_http_request_progress_download_force(request);
}

void vel_http_request_progress_download_force(velhttprequest *request)
{
    if (!request->downloadprogress.callback)
        return;
    const int answer = vel_http_call_progress(request, &request->downloadprogress);
    if (answer) {
        VEL_LOG(7, "The download progress callback returned %d, aborting the transfer", answer);
        vel_http_abort(request->velhttp);
    }
}

void vel_http_progress_check(velhttprequest *request)
{
    if (!request->downloadprogress.callback || !vel_http_tick_is_due(request))
        return;
    const int answer = vel_http_call_progress(request, &request->downloadprogress);
    if (answer) {
        VEL_LOG(7, "The progress callback returned %d, aborting the transfer", answer);
        vel_http_abort(request->velhttp);
    }
}

void vel_http_progress_upload_check(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request = vel_http_get_active_request(velhttp, "no active request set");
    if (!request || !request->uploadprogress.callback || !vel_http_tick_is_due(request))
        return;
    VEL_LOG(13, "upload progress callback is due");
    vel_http_progress_upload_force(velhttp);
}

void vel_http_progress_upload_force(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request = vel_http_get_active_request(velhttp, "no active request set");
    if (!request || !request->uploadprogress.callback)
        return;
    const int answer = vel_http_call_progress(request, &request->uploadprogress);
    if (answer) {
        VEL_LOG(7, "The upload progress callback returned %d, aborting the transfer", answer);
        vel_http_abort(velhttp);
    }
}

void vel_http_progress_download_check(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request = vel_http_get_active_request(velhttp, "no active request set");
    if (!request || !request->downloadprogress.callback || !vel_http_tick_is_due(request))
        return;
    VEL_LOG(13, "download progress callback is due");
    vel_http_progress_download_force(velhttp);
}

void vel_http_progress_download_force(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request = vel_http_get_active_request(velhttp, "no active request set");
    if (request)
        vel_http_request_progress_download_force(request);
}

void vel_http_reset_idle_timeout(velhttp *velhttp)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request =
        vel_http_get_active_request(velhttp, "vel_http_reset_idle_timeout: no active request set");
    if (request)
        vel_timeout_set(request->idletimeout, request->idleseconds, request->idlemicroseconds);
}

void vel_http_timeout_reset(velhttp *velhttp, int *secondsptr, unsigned int *microsecondsptr)
{
    VEL_ASSERT(velhttp != NULL);

    velhttprequest *request = velhttp->activereq;
    if (!request)
        request = velhttp->preparereq;
    vel_timeout_reset(request->veltimeout, secondsptr, microsecondsptr);
}

/* Checks all three timers; leftptr receives the smallest remainder. */
static vel_error_t vel_http_check_timers(velhttprequest *request, vel_http_remainder *leftptr)
{
    vel_error_t result = VEL_ERROR_NONE;
    vel_http_remainder left = {};
    if (vel_timeout_check(request->veltimeout, &left.seconds, &left.microseconds) == 1) {
        VEL_LOG(7, "the full transfer timer expired");
        result = VEL_ERROR_TIMER_EXPIRED;
    }
    vel_http_remainder idle = {};
    if (vel_timeout_check(request->idletimeout, &idle.seconds, &idle.microseconds) == 1 &&
        result == VEL_ERROR_NONE) {
        VEL_LOG(7, "idle timeout occurred");
        result = VEL_ERROR_TIMED_OUT;
    }
    vel_http_remainder tick = {};
    if (vel_timeout_check(request->progresstimeout, &tick.seconds, &tick.microseconds) == 1)
        tick = {};
    *leftptr = vel_http_smaller_remainder(vel_http_smaller_remainder(left, idle), tick);
    return result;
}

vel_error_t vel_http_timeout_check(velhttp *velhttp, int *secondsptr, unsigned int *microsecondsptr)
{
    VEL_ASSERT(velhttp != NULL);

    vel_error_t result = VEL_ERROR_INTERNAL;
    vel_http_remainder left = {-1, 0};
    velhttprequest *request =
        vel_http_get_active_request(velhttp, "vel_http_timeout_check: no active request set");
    if (request) {
        const veltimeout *veltimeout = request->veltimeout;
        VEL_ASSERT(veltimeout != NULL);
        result = vel_http_check_timers(request, &left);
    }
    if (secondsptr)
        *secondsptr = left.seconds;
    if (microsecondsptr)
        *microsecondsptr = left.microseconds;
    return result;
}
