#include <vellib/velhandle.h>

#include <algorithm>
#include <cstring>

#include <vellib/velmalloc.h>
#include <vellib/velstrnchr.h>
#include <vellib/veltimeout.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "io/velhandle"

/* readbufferpos <= readbufferuse <= readbuffersize, and all are 0 without a read buffer. The bytes
 * between the first two have come from the transport and were not handed out yet; every read serves
 * them first. */
struct velhandle {
    struct veltimeout *veltimeout; /* the countdown of a line */
    vel_error_t error;
    int writetimeoutsecs; /* -1 is no limit */
    unsigned int writetimeoutusecs;
    int readtimeoutsecs; /* -1 is no limit; the time left while a line is read */
    unsigned int readtimeoutusecs;
    char *readbuffer; /* NULL until a line is read, and after a read has emptied it */
    size_t readbuffersize;
    size_t readbufferpos;
    size_t readbufferuse;
    void *context; /* the transport's */
    vel_handle_destroy_cb *destroy_callback;
    vel_handle_connect_cb *connect_callback;
    vel_handle_connect_wait_cb *connect_wait_callback;
    vel_handle_read_cb *read_callback;
    vel_handle_write_cb *write_callback;
    vel_handle_poll_write_cb *poll_write_callback;
    vel_handle_local_port_cb *local_port_callback;
    vel_handle_peer_name_cb *peer_name_callback;
    vel_handle_accept_cb *accept_callback;
    vel_handle_wakeup_cb *wakeup_callback;
};

/* The size of the read buffer, and the most that one read of a line asks for: so what comes behind
 * a line feed always fits. */
static constexpr size_t vel_handle_readbuffersize = 4096;

/* Hands out up to count bytes of what was read ahead. */
static size_t vel_handle_take_buffered(velhandle *velhandle, void *buf, size_t count)
{
    size_t length = std::min(count, velhandle->readbufferuse - velhandle->readbufferpos);
    if (length > 0) {
        memcpy(buf, velhandle->readbuffer + velhandle->readbufferpos, length);
        velhandle->readbufferpos += length;
    }
    return length;
}

static void vel_handle_free_readbuffer(velhandle *velhandle)
{
    vel_free(velhandle->readbuffer);
    velhandle->readbuffer = nullptr;
    velhandle->readbuffersize = 0;
    velhandle->readbufferpos = 0;
    velhandle->readbufferuse = 0;
}

/* Logs that the handle has no transport to read from, and says so in its error. */
static void vel_handle_refuse_read(velhandle *velhandle)
{
    VEL_LOG(6, "this handle cannot be used for reading");
    velhandle->error = VEL_ERROR_UNSUPPORTED;
}

/* Makes sure that there is a read buffer. Doing without one is slow but possible, so want of
 * memory is neither logged nor an error. */
static bool vel_handle_have_readbuffer(velhandle *velhandle)
{
    if (velhandle->readbuffer)
        return true;
    velhandle->readbuffer = static_cast<char *>(vel_malloc(vel_handle_readbuffersize));
    if (!velhandle->readbuffer)
        return false;
    velhandle->readbuffersize = vel_handle_readbuffersize;
    return true;
}

/* Reads a line byte by byte, so that nothing behind it is read and no buffer needed. */
static size_t vel_handle_read_line_unbuffered(velhandle *velhandle, void *buf, size_t size)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(buf != NULL);
    VEL_ASSERT(size > 0);

    if (!velhandle->read_callback) {
        vel_handle_refuse_read(velhandle);
        return 0;
    }
    auto *bytes = static_cast<char *>(buf);
    size_t result = 0;
    while (result < size && velhandle->read_callback(velhandle, bytes + result, 1) > 0) {
        if (bytes[result++] == '\n')
            break;
    }
    VEL_ASSERT(result > 0 || velhandle->error != VEL_ERROR_NONE);
    return result;
}

/* Asks the transport once for a piece of a line, within the time that is left for all of it. Where
 * that gives nothing, *reasonptr receives why. */
static size_t vel_handle_read_piece(velhandle *velhandle, char *buf, size_t count,
                                    vel_error_t *reasonptr)
{
    /* The transport looks the time left up in the handle, so the countdown writes it there. */
    size_t length = 0;
    if (vel_timeout_check(velhandle->veltimeout, &velhandle->readtimeoutsecs,
                          &velhandle->readtimeoutusecs) == 1)
        velhandle->error = VEL_ERROR_TIMED_OUT;
    else
        length = velhandle->read_callback(velhandle, buf, count);
    if (length == 0)
        *reasonptr = velhandle->error;
    return length;
}

/* Reads the rest of a line from the transport, straight into buf, and keeps what comes behind its
 * line feed in the read buffer, which is empty. Returns the number of bytes in buf. */
static size_t vel_handle_read_line_rest(velhandle *velhandle, char *buf, size_t size,
                                        vel_error_t *reasonptr)
{
    size_t sizeleft = size;
    while (sizeleft > 0) {
        size_t length = vel_handle_read_piece(
            velhandle, buf, std::min(sizeleft, velhandle->readbuffersize), reasonptr);
        if (length == 0)
            break;
        const char *linefeed = vel_strnchr(buf, length, '\n');
        if (linefeed) {
            size_t linelength = static_cast<size_t>(linefeed - buf) + 1;
            if (linelength < length) {
                memcpy(velhandle->readbuffer, linefeed + 1, length - linelength);
                velhandle->readbufferpos = 0;
                velhandle->readbufferuse = length - linelength;
            }
            sizeleft -= linelength;
            break;
        }
        buf += length;
        sizeleft -= length;
    }
    return size - sizeleft;
}

/* Reads a line, first from what was read ahead and then from the transport. *reasonptr receives why
 * that gave nothing, and stays if it was not asked in vain. */
static size_t vel_handle_read_line_buffered(velhandle *velhandle, char *buf, size_t size,
                                            vel_error_t *reasonptr)
{
    size_t result = 0;
    size_t buffered = std::min(size, velhandle->readbufferuse - velhandle->readbufferpos);
    if (buffered > 0) {
        const char *start = velhandle->readbuffer + velhandle->readbufferpos;
        const char *linefeed = vel_strnchr(start, buffered, '\n');
        size_t count = linefeed ? static_cast<size_t>(linefeed - start) + 1 : buffered;
        result = vel_handle_take_buffered(velhandle, buf, count);
        if (linefeed || result == size)
            return result;
    }
    VEL_ASSERT(velhandle->readbufferpos == velhandle->readbufferuse);
    if (!velhandle->read_callback) {
        if (result == 0)
            vel_handle_refuse_read(velhandle);
        return result;
    }
    return result + vel_handle_read_line_rest(velhandle, buf + result, size - result, reasonptr);
}

/* Waits until the transport takes more, after it would block. False ends the write, with the
 * error of the handle as it shall stay. */
static bool vel_handle_wait_for_write(velhandle *velhandle)
{
    velhandle->error = VEL_ERROR_NONE;
    if (!velhandle->poll_write_callback) {
        VEL_LOG(7, "velhandle write would block but the handle does not have support for polling "
                   "writes");
        return false;
    }
    vel_error_t velerror = velhandle->poll_write_callback(velhandle);
    if (velerror == VEL_ERROR_NONE)
        return true;
    if (velerror != VEL_ERROR_TIMED_OUT) {
        VEL_LOG(7, "poll write callback returned error %d (%s)", velerror,
                vel_error_string(velerror));
    }
    vel_handle_set_error(velhandle, velerror);
    return false;
}

/* Logs the failure of an operation that is handed on to the transport, and returns it. */
static vel_error_t vel_handle_log_failure(const char *what, vel_error_t velerror)
{
    VEL_LOG(7, "%s failed, error %d (%s)", what, velerror, vel_error_string(velerror));
    return velerror;
}

velhandle *vel_handle_create(void)
{
    auto *velhandle = static_cast<struct velhandle *>(vel_cmalloc(sizeof(struct velhandle)));
    if (!velhandle) {
        VEL_LOG(7, "not enough memory for velhandle");
        return nullptr;
    }
    velhandle->veltimeout = vel_timeout_create();
    if (!velhandle->veltimeout) {
        vel_handle_destroy(velhandle);
        return nullptr;
    }
    velhandle->writetimeoutsecs = -1;
    velhandle->readtimeoutsecs = -1;
    return velhandle;
}

void vel_handle_destroy(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);

    if (velhandle->destroy_callback)
        velhandle->destroy_callback(velhandle);
    if (velhandle->readbuffer)
        vel_free(velhandle->readbuffer);
    if (velhandle->veltimeout)
        vel_timeout_destroy(velhandle->veltimeout);
    vel_free(velhandle);
}

void vel_handle_set_destroy_callback(velhandle *velhandle, vel_handle_destroy_cb *callback)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->destroy_callback = callback;
}

void vel_handle_set_connect_callback(velhandle *velhandle, vel_handle_connect_cb *callback)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->connect_callback = callback;
}

void vel_handle_set_connect_wait_callback(velhandle *velhandle,
                                          vel_handle_connect_wait_cb *callback)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->connect_wait_callback = callback;
}

void vel_handle_set_read_callback(velhandle *velhandle, vel_handle_read_cb *callback)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->read_callback = callback;
}

void vel_handle_set_write_callback(velhandle *velhandle, vel_handle_write_cb *callback)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->write_callback = callback;
}

void vel_handle_set_poll_write_callback(velhandle *velhandle, vel_handle_poll_write_cb *callback)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->poll_write_callback = callback;
}

void vel_handle_set_local_port_callback(velhandle *velhandle, vel_handle_local_port_cb *callback)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->local_port_callback = callback;
}

void vel_handle_set_peer_name_callback(velhandle *velhandle, vel_handle_peer_name_cb *callback)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->peer_name_callback = callback;
}

void vel_handle_set_accept_callback(velhandle *velhandle, vel_handle_accept_cb *callback)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->accept_callback = callback;
}

void vel_handle_set_wakeup_callback(velhandle *velhandle, vel_handle_wakeup_cb *callback)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->wakeup_callback = callback;
}

void vel_handle_set_context(velhandle *velhandle, void *context)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->context = context;
}

void *vel_handle_get_context(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);

    return velhandle->context;
}

void vel_handle_set_error(velhandle *velhandle, vel_error_t velerror)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(velerror < VEL_ERROR_COUNT);

    velhandle->error = velerror;
}

vel_error_t vel_handle_get_error(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);

    return velhandle->error;
}

void vel_handle_set_write_timeout(velhandle *velhandle, int seconds, unsigned int microseconds)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->writetimeoutsecs = seconds < 0 ? -1 : seconds;
    velhandle->writetimeoutusecs = seconds < 0 ? 0 : microseconds;
}

void vel_handle_set_read_timeout(velhandle *velhandle, int seconds, unsigned int microseconds)
{
    VEL_ASSERT(velhandle != NULL);

    velhandle->readtimeoutsecs = seconds < 0 ? -1 : seconds;
    velhandle->readtimeoutusecs = seconds < 0 ? 0 : microseconds;
}

void vel_handle_get_write_timeout(velhandle *velhandle, int *secondsptr,
                                  unsigned int *microsecondsptr)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(secondsptr != NULL);
    VEL_ASSERT(microsecondsptr != NULL);

    *secondsptr = velhandle->writetimeoutsecs;
    *microsecondsptr = velhandle->writetimeoutusecs;
}

void vel_handle_get_read_timeout(velhandle *velhandle, int *secondsptr,
                                 unsigned int *microsecondsptr)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(secondsptr != NULL);
    VEL_ASSERT(microsecondsptr != NULL);

    *secondsptr = velhandle->readtimeoutsecs;
    *microsecondsptr = velhandle->readtimeoutusecs;
}

vel_error_t vel_handle_connect(velhandle *velhandle, const char *name, unsigned int port)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);

    vel_error_t velerror = vel_handle_connect_begin(velhandle, name, port);
    if (velerror != VEL_ERROR_IN_PROGRESS)
        return velerror;
    if (!velhandle->connect_wait_callback) {
        VEL_LOG(6, "connect in progress but no wait callback available");
        return VEL_ERROR_IN_PROGRESS;
    }
    while (velerror == VEL_ERROR_IN_PROGRESS)
        velerror = velhandle->connect_wait_callback(velhandle);
    return velerror;
}

vel_error_t vel_handle_connect_begin(velhandle *velhandle, const char *name, unsigned int port)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(port > 0);
    VEL_ASSERT(port < 65536);

    if (!velhandle->connect_callback) {
        VEL_LOG(6, "this handle cannot be used to connect");
        return VEL_ERROR_UNSUPPORTED;
    }
    return velhandle->connect_callback(velhandle, name, port);
}

vel_error_t vel_handle_connect_wait(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);

    if (!velhandle->connect_wait_callback) {
        VEL_LOG(6, "this handle cannot be used to wait for connection");
        return VEL_ERROR_UNSUPPORTED;
    }
    return velhandle->connect_wait_callback(velhandle);
}

size_t vel_handle_read(velhandle *velhandle, void *buf, size_t count)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(buf != NULL);
    VEL_ASSERT(count > 0);

    size_t result = 0;
    velhandle->error = VEL_ERROR_NONE;
    if (velhandle->readbuffer) {
        result = vel_handle_take_buffered(velhandle, buf, count);
        if (result == count)
            return count;
        VEL_ASSERT(velhandle->readbufferpos == velhandle->readbufferuse);
        vel_handle_free_readbuffer(velhandle);
    }
    if (velhandle->read_callback) {
        /* Stays if the transport reads nothing and gives no reason. */
        velhandle->error = VEL_ERROR_INTERNAL;
        result +=
            velhandle->read_callback(velhandle, static_cast<char *>(buf) + result, count - result);
        if (result > 0)
            velhandle->error = VEL_ERROR_NONE;
    } else if (result == 0) {
        vel_handle_refuse_read(velhandle);
    }
    VEL_ASSERT(result > 0 || velhandle->error != VEL_ERROR_NONE);
    return result;
}

size_t vel_handle_write(velhandle *velhandle, const void *buf, size_t count)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(buf != NULL);
    VEL_ASSERT(count > 0);

    if (!velhandle->write_callback) {
        VEL_LOG(6, "this handle cannot be used for writing");
        velhandle->error = VEL_ERROR_UNSUPPORTED;
        return 0;
    }
    velhandle->error = VEL_ERROR_NONE;
    auto *bytes = static_cast<const char *>(buf);
    size_t total = 0;
    while (total < count) { /* a transport may claim more than it was given */
        size_t length = velhandle->write_callback(velhandle, bytes + total, count - total);
        total += length;
        if (length > 0)
            continue;
        vel_error_t velerror = velhandle->error;
        if (velerror != VEL_ERROR_WOULD_BLOCK) {
            VEL_LOG(7, "velhandle write returned error %d (%s)", velerror,
                    vel_error_string(velerror));
            break;
        }
        if (!vel_handle_wait_for_write(velhandle))
            break;
    }
    return total;
}

size_t vel_handle_read_line(velhandle *velhandle, void *buf, size_t size)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(buf != NULL);
    VEL_ASSERT(size > 0);

    const int timeoutsecs = velhandle->readtimeoutsecs;
    const unsigned int timeoutusecs = velhandle->readtimeoutusecs;
    vel_timeout_set(velhandle->veltimeout, timeoutsecs, timeoutusecs);
    velhandle->error = VEL_ERROR_NONE;
    vel_error_t velerror = VEL_ERROR_END_OF_FILE; /* which is not logged */
    size_t result =
        vel_handle_have_readbuffer(velhandle)
            ? vel_handle_read_line_buffered(velhandle, static_cast<char *>(buf), size, &velerror)
            : vel_handle_read_line_unbuffered(velhandle, buf, size);
    /* A transport that reads nothing has to say why. */
    VEL_ASSERT(velerror != VEL_ERROR_NONE);
    if (velerror != VEL_ERROR_END_OF_FILE && velerror != VEL_ERROR_TIMED_OUT) {
        VEL_LOG(velerror == VEL_ERROR_INTERRUPTED ? 13 : 7,
                "unable to read data from the handle, error %d (%s)", velerror,
                vel_error_string(velerror));
    }
    velhandle->readtimeoutsecs = timeoutsecs;
    velhandle->readtimeoutusecs = timeoutusecs;
    VEL_ASSERT(result > 0 || velhandle->error != VEL_ERROR_NONE);
    return result;
}

vel_error_t vel_handle_get_local_port(velhandle *velhandle, unsigned int *portptr)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(portptr != NULL);

    *portptr = 0;
    if (!velhandle->local_port_callback) {
        VEL_LOG(6, "this handle does not support getting the local port number");
        return VEL_ERROR_UNSUPPORTED;
    }
    vel_error_t velerror = velhandle->local_port_callback(velhandle, portptr);
    if (velerror == VEL_ERROR_NONE)
        return VEL_ERROR_NONE;
    *portptr = 0;
    return vel_handle_log_failure("getting the local port for the handle", velerror);
}

vel_error_t vel_handle_get_peer_name(velhandle *velhandle, struct sockaddr *sockaddr,
                                     size_t *salenptr)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(sockaddr != NULL);
    VEL_ASSERT(salenptr != NULL);
    VEL_ASSERT(*salenptr > 0);

    if (!velhandle->peer_name_callback) {
        VEL_LOG(6, "this handle does not support getting the peer name");
        *salenptr = 0;
        return VEL_ERROR_UNSUPPORTED;
    }
    vel_error_t velerror = velhandle->peer_name_callback(velhandle, sockaddr, salenptr);
    if (velerror == VEL_ERROR_NONE)
        return VEL_ERROR_NONE;
    *salenptr = 0;
    return vel_handle_log_failure("getting the peer name for the handle", velerror);
}

vel_error_t vel_handle_accept(velhandle *velhandle, struct velhandle **connectionhandleptr)
{
    VEL_ASSERT(velhandle != NULL);
    VEL_ASSERT(connectionhandleptr != NULL);

    *connectionhandleptr = nullptr;
    vel_error_t velerror = VEL_ERROR_UNSUPPORTED;
    if (!velhandle->accept_callback) {
        VEL_LOG(6, "this handle does not support accepting incoming connections");
    } else {
        velerror = velhandle->accept_callback(velhandle, connectionhandleptr);
        if (velerror != VEL_ERROR_NONE)
            *connectionhandleptr = nullptr;
        if (velerror != VEL_ERROR_NONE && velerror != VEL_ERROR_TIMED_OUT &&
            velerror != VEL_ERROR_WAKEUP)
            vel_handle_log_failure("accepting an incoming connection", velerror);
    }
    velhandle->error = velerror;
    return velerror;
}

vel_error_t vel_handle_wakeup(velhandle *velhandle)
{
    VEL_ASSERT(velhandle != NULL);

    if (!velhandle->wakeup_callback) {
        VEL_LOG(6, "this handle does not support waking up");
        return VEL_ERROR_UNSUPPORTED;
    }
    vel_error_t velerror = velhandle->wakeup_callback(velhandle);
    if (velerror == VEL_ERROR_NONE)
        return VEL_ERROR_NONE;
    return vel_handle_log_failure("waking up a handle", velerror);
}
