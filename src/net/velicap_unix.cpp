#include "net/velicap_internal.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <vellib/velmalloc.h>
#include <vellib/velstrncpy.h>

#include "net/veldescriptor_core.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velicap"

/* The context of the handle. */
struct vel_icap_uds {
    struct velicap *velicap; /* has the countdown of the perform */
    int32_t fd;              /* -1 if there is none */
};

/* ---- The path -------------------------------------------------------------------------------- */

/* The value of a hexadecimal digit, or -1. */
static int vel_icap_hex_value(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

/* Decodes the two digits behind a "%". */
static vel_error_t vel_icap_unescape_byte(const char *digits, char *byteptr)
{
    int value = 0;
    for (int i = 0; i < 2; i++) {
        const int digit = vel_icap_hex_value(digits[i]);
        if (digit < 0) {
            VEL_LOG(6, "invalid character '%c' in percent encoding", digits[i]);
            return VEL_ERROR_INVALID_SYNTAX;
        }
        value = value * 16 + digit;
    }
    *byteptr = static_cast<char>(value);
    return VEL_ERROR_NONE;
}

vel_error_t vel_icap_unescape_buffer(char *dest, uint64_t *destlenptr, const char *src)
{
    VEL_ASSERT(destlenptr != NULL);
    VEL_ASSERT(dest != NULL || *destlenptr == 0);
    VEL_ASSERT(src != NULL);

    const uint64_t capacity = *destlenptr;
    *destlenptr = 0;
    for (;;) {
        char byte = *src++;
        if (byte == '%') {
            const vel_error_t error = vel_icap_unescape_byte(src, &byte);
            if (error)
                return error;
            src += 2;
        }
        if (*destlenptr < capacity)
            dest[*destlenptr] = byte;
        ++*destlenptr;
        if (byte == '\0')
            return *destlenptr > capacity ? VEL_ERROR_INCOMPLETE : VEL_ERROR_NONE;
    }
}

vel_error_t vel_icap_unescape_socket_path(char **destptr, const char *src)
{
    VEL_ASSERT(destptr != NULL);
    VEL_ASSERT(src != NULL);

    *destptr = nullptr;
    uint64_t length = 0;
    vel_error_t error = vel_icap_unescape_buffer(nullptr, &length, src);
    VEL_ASSERT(error != VEL_ERROR_NONE);
    if (error != VEL_ERROR_INCOMPLETE)
        return error;

    auto *dest = static_cast<char *>(vel_malloc(length));
    if (!dest) {
        VEL_LOG(7, "not enough memory for unescape buffer");
        return VEL_ERROR_NO_MEMORY;
    }
    error = vel_icap_unescape_buffer(dest, &length, src);
    if (error) {
        VEL_LOG(7, "unable to unescape buffer, error %d (%s)", error, vel_error_string(error));
        vel_free(dest);
        return error;
    }
    *destptr = dest;
    return VEL_ERROR_NONE;
}

/* ---- The callbacks of the handle ------------------------------------------------------------- */

static vel_icap_uds *vel_icap_uds_get(velhandle *handle)
{
    return static_cast<vel_icap_uds *>(vel_handle_get_context(handle));
}

static void vel_icap_uds_destroy_callback(velhandle *handle)
{
    vel_icap_uds *uds = vel_icap_uds_get(handle);
    VEL_ASSERT(uds != NULL);

    if (uds->fd >= 0)
        (void)close(uds->fd);
    vel_free(uds);
}

static vel_error_t vel_icap_uds_poll_read(vel_icap_uds *uds, int seconds, unsigned int microseconds)
{
    struct pollfd pollfd = {uds->fd, POLLIN, 0};
    int count = 0;
    const vel_error_t error =
        vel_descriptor_poll(VEL_MODULE, &pollfd, 1, seconds, microseconds, &count);
    if (!error && !(pollfd.revents & POLLIN))
        return vel_descriptor_no_event(VEL_MODULE, count);
    return error;
}

/* Waits for the rest of the perform's time, whatever the read timeout of the handle is. */
static vel_error_t vel_icap_uds_wait_to_read(vel_icap_uds *uds)
{
    int seconds = 0;
    unsigned int microseconds = 0;
    if (vel_icap_timeout_check(uds->velicap, &seconds, &microseconds) == 1)
        return VEL_ERROR_TIMED_OUT;
    const vel_error_t error = vel_icap_uds_poll_read(uds, seconds, microseconds);
    if (error) {
        VEL_LOG(13, "polling read for a socket returned error %d (%s)", error,
                vel_error_string(error));
    }
    return error;
}

/* Receives once, without waiting. */
static vel_error_t vel_icap_uds_receive(vel_icap_uds *uds, void *buf, size_t maxlen,
                                        size_t *countptr)
{
    const ssize_t count = recv(uds->fd, buf, maxlen, 0);
    if (count < 0)
        return vel_descriptor_map_errno(VEL_MODULE, vel_descriptor_recv_errors, errno);
    *countptr = static_cast<size_t>(count);
    return VEL_ERROR_NONE;
}

/* The first attempt comes before any wait. Whatever makes it fail, there is a second one and no
 * third. */
static vel_error_t vel_icap_uds_read(vel_icap_uds *uds, void *buf, size_t maxlen, size_t *countptr)
{
    if (vel_icap_timeout_check(uds->velicap, nullptr, nullptr) == 1)
        return VEL_ERROR_TIMED_OUT;

    vel_error_t error = vel_icap_uds_receive(uds, buf, maxlen, countptr);
    if (error == VEL_ERROR_WOULD_BLOCK) {
        error = vel_icap_uds_wait_to_read(uds);
        if (error)
            return error;
        error = VEL_ERROR_WOULD_BLOCK;
    }
    if (error) {
        error = vel_icap_uds_receive(uds, buf, maxlen, countptr);
        if (error) {
            VEL_LOG(7, "recv() returned error %d (%s)", error, vel_error_string(error));
            return error;
        }
    }
    return *countptr > 0 ? VEL_ERROR_NONE : VEL_ERROR_END_OF_FILE;
}

static size_t vel_icap_uds_read_callback(velhandle *handle, void *buf, size_t maxlen)
{
    VEL_ASSERT(buf != NULL);
    VEL_ASSERT(maxlen > 0);
    vel_icap_uds *uds = vel_icap_uds_get(handle);
    VEL_ASSERT(uds != NULL);
    VEL_ASSERT(uds->velicap != NULL);

    size_t count = 0;
    vel_handle_set_error(handle, vel_icap_uds_read(uds, buf, maxlen, &count));
    return count;
}

static size_t vel_icap_uds_write_callback(velhandle *handle, const void *buf, size_t len)
{
    VEL_ASSERT(buf != NULL);
    VEL_ASSERT(len > 0);
    vel_icap_uds *uds = vel_icap_uds_get(handle);
    VEL_ASSERT(uds != NULL);

    const ssize_t count = send(uds->fd, buf, len, 0);
    vel_error_t error = VEL_ERROR_NONE;
    if (count < 0)
        error = vel_descriptor_map_errno(VEL_MODULE, vel_descriptor_write_errors, errno);
    vel_handle_set_error(handle, error);
    return count < 0 ? 0 : static_cast<size_t>(count);
}

static vel_error_t vel_icap_uds_poll_write_callback(velhandle *handle)
{
    vel_icap_uds *uds = vel_icap_uds_get(handle);
    VEL_ASSERT(uds != NULL);

    int seconds = 0;
    unsigned int microseconds = 0;
    vel_handle_get_write_timeout(handle, &seconds, &microseconds);
    return vel_descriptor_poll_write(VEL_MODULE, uds->fd, seconds, microseconds);
}

/* ---- Connecting ------------------------------------------------------------------------------ */

/* Makes a handle without a socket. */
static struct velhandle *vel_icap_uds_create(struct velicap *velicap)
{
    struct velhandle *handle = vel_handle_create();
    if (!handle) {
        VEL_LOG(7, "not enough memory for unix domain socket handle");
        return nullptr;
    }
    auto *uds = static_cast<vel_icap_uds *>(vel_cmalloc(sizeof(vel_icap_uds)));
    if (!uds) {
        VEL_LOG(7, "not enough memory for TCP handle");
        vel_handle_destroy(handle);
        return nullptr;
    }
    uds->velicap = velicap;
    uds->fd = -1;
    vel_handle_set_context(handle, uds);
    vel_handle_set_destroy_callback(handle, vel_icap_uds_destroy_callback);
    vel_handle_set_read_callback(handle, vel_icap_uds_read_callback);
    vel_handle_set_write_callback(handle, vel_icap_uds_write_callback);
    vel_handle_set_poll_write_callback(handle, vel_icap_uds_poll_write_callback);
    return handle;
}

/* Connects the socket. The call does not wait for the time limit; where a listener's queue is full,
 * it fails. */
static vel_error_t vel_icap_uds_connect(vel_icap_uds *uds, const char *path)
{
    uds->fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (uds->fd < 0) {
        VEL_LOG(7, "unable to create a unix domain socket");
        return VEL_ERROR_GENERIC;
    }
    if (!vel_descriptor_set_nonblocking(VEL_MODULE, uds->fd))
        return VEL_ERROR_GENERIC;

    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    vel_strncpy(address.sun_path, path, sizeof(address.sun_path));
    if (connect(uds->fd, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) != 0) {
        const int platformerrno = errno;
        VEL_LOG(7, "connecting to unix domain socket '%s' failed, errno %d", path, platformerrno);
        return VEL_ERROR_GENERIC;
    }
    return VEL_ERROR_NONE;
}

vel_error_t vel_icap_connect_unix_domain_socket(struct velicap *velicap, const char *escapedpath)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(escapedpath != NULL);

    char *path = nullptr;
    vel_error_t error = vel_icap_unescape_socket_path(&path, escapedpath);
    if (error) {
        VEL_LOG(7, "unescaping socket path '%s' failed, error %d (%s)", escapedpath, error,
                vel_error_string(error));
        return error;
    }
    velicap->velhandle = vel_icap_uds_create(velicap);
    error = velicap->velhandle ? vel_icap_uds_connect(vel_icap_uds_get(velicap->velhandle), path)
                               : VEL_ERROR_NO_MEMORY;
    if (error && velicap->velhandle) {
        vel_handle_destroy(velicap->velhandle);
        velicap->velhandle = nullptr;
    }
    vel_free(path);
    return error;
}
