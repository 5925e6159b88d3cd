#include "net/velicap_internal.h"

#include <inttypes.h>
#include <string.h>

#include <vellib/velmalloc.h>
#include <vellib/velstrdupf.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/velicap"

/* The line end of the last chunk, and the chunk of size 0. */
static constexpr char kChunkEnd[] = "\r\n0\r\n\r\n";

/* Writes all of data. Where that fails, logs that it is unable to do what, and gives the error of
 * the handle. */
static vel_error_t vel_icap_write(struct velhandle *handle, const void *data, uint64_t size,
                                  const char *what)
{
    if (vel_handle_write(handle, data, size) == size)
        return VEL_ERROR_NONE;
    const vel_error_t error = vel_handle_get_error(handle);
    VEL_LOG(7, "unable to %s, error %d (%s)", what, error, vel_error_string(error));
    return error;
}

/* Nothing follows the data: the line end of a chunk is sent with the end of the body alone, so that
 * only a body of one chunk is framed right. That is how it is meant. */
vel_error_t vel_icap_send_chunk(struct velhandle *handle, const void *chunkdata, uint64_t chunklen)
{
    VEL_ASSERT(handle != NULL);
    VEL_ASSERT(chunkdata != NULL);
    VEL_ASSERT(chunklen > 0);

    char *line = vel_strdupf("%" PRIx64 "\r\n", chunklen);
    if (!line) {
        VEL_LOG(7, "not enough memory for chunk length");
        return VEL_ERROR_NO_MEMORY;
    }
    const size_t linelen = strlen(line);
    VEL_LOG(10, "chunk len: %zx", linelen);
    vel_error_t error = vel_icap_write(handle, line, linelen, "send chunk length");
    vel_free(line);
    if (!error)
        error = vel_icap_write(handle, chunkdata, chunklen, "send chunk data");
    return error;
}

vel_error_t vel_icap_send_chunk_end(struct velhandle *handle)
{
    VEL_ASSERT(handle != NULL);

    return vel_icap_write(handle, kChunkEnd, sizeof(kChunkEnd) - 1, "send the chunk end");
}

/* Ends a body in chunks; what fails is logged here as well as where it was found. */
static vel_error_t vel_icap_end_chunks(struct velicap *velicap)
{
    const vel_error_t error = vel_icap_send_chunk_end(velicap->velhandle);
    if (error)
        VEL_LOG(7, "unable to send the chunk end, error %d (%s)", error, vel_error_string(error));
    return error;
}

/* Sends what the callback gives, piece by piece. */
static vel_error_t vel_icap_stream_pieces(struct velicap *velicap, char *buffer, bool chunks)
{
    for (;;) {
        const size_t count =
            velicap->requestbodycallback(buffer, kVelIcapBufferSize, velicap->requestbodycontext);
        if (count == 0)
            return VEL_ERROR_NONE;

        vel_error_t error = VEL_ERROR_NONE;
        if (!chunks) {
            error = vel_icap_write(velicap->velhandle, buffer, count, "send encapsulated part");
        } else {
            error = vel_icap_send_chunk(velicap->velhandle, buffer, count);
            if (error) {
                VEL_LOG(7, "unable to send encapsulated part, error %d (%s)", error,
                        vel_error_string(error));
            }
        }
        if (error)
            return error;
    }
}

/* Sends the body that the callback gives, in the place of that of a request. */
static vel_error_t vel_icap_stream_body(struct velicap *velicap)
{
    int isencoded = 0;
    VEL_LOG(7, "call request body callback");
    vel_error_t error =
        vel_icap_part_is_chunk_encoded(velicap, VEL_ICAP_ENCAPSULATED_GEN_REQBODY, &isencoded);
    if (error) {
        VEL_LOG(7, "vel_icap_part_is_chunk_encoded() returned error %d (%s)", error,
                vel_error_string(error));
        return error;
    }
    auto *buffer = static_cast<char *>(vel_malloc(kVelIcapBufferSize));
    if (!buffer) {
        VEL_LOG(7, "not enough memory for chunk send buffer");
        return VEL_ERROR_NO_MEMORY;
    }
    error = vel_icap_stream_pieces(velicap, buffer, !isencoded);
    vel_free(buffer);
    if (!error && !isencoded)
        error = vel_icap_end_chunks(velicap);
    return error;
}

static vel_error_t vel_icap_send_as_chunk(struct velicap *velicap, const velicappart *part)
{
    const vel_error_t error = vel_icap_send_chunk(velicap->velhandle, part->data, part->size);
    if (error) {
        VEL_LOG(7, "unable to send chunk, error %d (%s)", error, vel_error_string(error));
        return error;
    }
    return vel_icap_end_chunks(velicap);
}

vel_error_t vel_icap_send_encapsulated_part(struct velicap *velicap, unsigned int i)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(i < VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES);

    if (i == VEL_ICAP_ENCAPSULATED_GEN_REQBODY && velicap->requestbodycallback)
        return vel_icap_stream_body(velicap);
    const velicappart *part = &velicap->encapsulated[i];
    if (!part->data)
        return VEL_ERROR_NONE;

    if (i == VEL_ICAP_ENCAPSULATED_GEN_REQBODY || i == VEL_ICAP_ENCAPSULATED_GEN_RESBODY) {
        int isencoded = 0;
        const vel_error_t error = vel_icap_part_is_chunk_encoded(velicap, i, &isencoded);
        if (error)
            return error;
        if (!isencoded)
            return vel_icap_send_as_chunk(velicap, part);
    }
    if (part->size == 0)
        return VEL_ERROR_NONE;
    return vel_icap_write(velicap->velhandle, part->data, part->size, "send encapsulated part");
}

vel_error_t vel_icap_send_encapsulated_parts(struct velicap *velicap)
{
    VEL_ASSERT(velicap != NULL);

    vel_error_t error = VEL_ERROR_NONE;
    for (unsigned int i = 0; i < VEL_ICAP_ENCAPSULATED_GEN_NUMTYPES && !error; i++)
        error = vel_icap_send_encapsulated_part(velicap, i);
    return error;
}

static char *vel_icap_format_head(struct velicap *velicap, const char *method, const char *url,
                                  const char *host, unsigned int port)
{
    const char *allow = velicap->allow204 ? "Allow: 204\r\n" : "";
    const char *encapsulated = vel_icap_build_encapsulated_header(velicap);
    if (port > 0)
        return vel_strdupf("%s %s ICAP/1.0\r\nHost: %s:%u\r\n%sEncapsulated: %s\r\n\r\n", method,
                           url, host, port, allow, encapsulated);
    return vel_strdupf("%s %s ICAP/1.0\r\nHost: %s\r\n%sEncapsulated: %s\r\n\r\n", method, url,
                       host, allow, encapsulated);
}

static vel_error_t vel_icap_send_head(struct velicap *velicap, const char *head)
{
    int seconds = 0;
    unsigned int microseconds = 0;
    vel_error_t error = vel_icap_check_time(velicap, &seconds, &microseconds);
    if (error)
        return error;

    vel_handle_set_write_timeout(velicap->velhandle, seconds, microseconds);
    const size_t length = strlen(head);
    for (size_t pos = 0; pos < length;) {
        const size_t count = vel_handle_write(velicap->velhandle, head + pos, length - pos);
        error = vel_handle_get_error(velicap->velhandle);
        if (count != length && error) {
            VEL_LOG(7, "short write, %zu/%zu bytes written", count, length);
            return error;
        }
        pos += count;
    }
    return VEL_ERROR_NONE;
}

vel_error_t vel_icap_send_request(struct velicap *velicap, const char *method, const char *url,
                                  const char *host, unsigned int port)
{
    VEL_ASSERT(velicap != NULL);
    VEL_ASSERT(url != NULL);
    VEL_ASSERT(host != NULL);
    VEL_ASSERT(port <= 65535);
    VEL_ASSERT(velicap->velhandle != NULL);

    vel_error_t error = vel_icap_check_parts(velicap);
    if (error)
        return error;
    char *head = vel_icap_format_head(velicap, method, url, host, port);
    if (!head) {
        VEL_LOG(7, "not enough memory for request");
        return VEL_ERROR_NO_MEMORY;
    }
    error = vel_icap_send_head(velicap, head);
    vel_free(head);
    return error ? error : vel_icap_send_encapsulated_parts(velicap);
}
