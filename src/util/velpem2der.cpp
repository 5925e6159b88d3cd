#include <vellib/velpem2der.h>

#include <cstdint>
#include <string_view>

#include <vellib/velbase64.h>
#include <vellib/velmalloc.h>
#include <vellib/velmemdup.h>
#include <vellib/velmemmem.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velpem2der"

static constexpr std::string_view vel_pem2der_begin = "-----BEGIN CERTIFICATE-----";
static constexpr std::string_view vel_pem2der_end = "-----END CERTIFICATE-----";

struct velpem2der {
    uint8_t *pembuffer; /* the text from the first begin marker on; owned */
    uint64_t pembuflen;
    uint64_t pos; /* behind the last certificate that was delivered */
};

/* NULL if the marker does not stand between the two. */
static const uint8_t *vel_pem2der_find(const uint8_t *from, const uint8_t *end,
                                       std::string_view marker)
{
    return static_cast<const uint8_t *>(
        vel_memmem(from, static_cast<size_t>(end - from), marker.data(), marker.size()));
}

/* Passes one line end, CR LF or either alone. */
static const uint8_t *vel_pem2der_skip_line_end(const uint8_t *from, const uint8_t *end)
{
    if (from < end && *from == '\r')
        from++;
    if (from < end && *from == '\n')
        from++;
    return from;
}

/* Takes a copy of the text; errorptr is not NULL. */
static velpem2der *vel_pem2der_build(const void *text, size_t len, vel_error_t *errorptr)
{
    *errorptr = VEL_ERROR_NO_MEMORY;
    auto *velpem2der = static_cast<struct velpem2der *>(vel_cmalloc(sizeof(struct velpem2der)));
    if (!velpem2der) {
        VEL_LOG(7, "not enough memory for PEM to DER conversion context");
        return nullptr;
    }
    velpem2der->pembuffer = static_cast<uint8_t *>(vel_memdup(text, len));
    if (!velpem2der->pembuffer) {
        VEL_LOG(7, "not enough memory for the PEM certificate buffer");
        vel_pem2der_destroy(velpem2der);
        return nullptr;
    }
    velpem2der->pembuflen = len;
    *errorptr = VEL_ERROR_NONE;
    return velpem2der;
}

velpem2der *vel_pem2der_create(const void *pembuffer, size_t len, vel_error_t *errorptr)
{
    VEL_ASSERT(pembuffer != NULL);

    vel_error_t ignored;
    if (!errorptr)
        errorptr = &ignored;

    const uint8_t *end = static_cast<const uint8_t *>(pembuffer) + len;
    const uint8_t *first =
        vel_pem2der_find(static_cast<const uint8_t *>(pembuffer), end, vel_pem2der_begin);
    if (!first) {
        VEL_LOG(13, "the buffer is not in PEM format");
        *errorptr = VEL_ERROR_NOT_FOUND;
        return nullptr;
    }
    return vel_pem2der_build(first, static_cast<size_t>(end - first), errorptr);
}

void vel_pem2der_destroy(velpem2der *velpem2der)
{
    VEL_ASSERT(velpem2der != NULL);

    if (velpem2der->pembuffer)
        vel_free(velpem2der->pembuffer);
    vel_free(velpem2der);
}

vel_error_t vel_pem2der_next(velpem2der *velpem2der, void **bufferptr, size_t *buflenptr)
{
    VEL_ASSERT(velpem2der != NULL);
    VEL_ASSERT(bufferptr != NULL);
    VEL_ASSERT(buflenptr != NULL);

    *bufferptr = nullptr;
    *buflenptr = 0;

    const uint8_t *pembuffer = velpem2der->pembuffer;
    const uint8_t *end = pembuffer + velpem2der->pembuflen;
    uint64_t pos = velpem2der->pos;
    if (pos >= velpem2der->pembuflen)
        return VEL_ERROR_END_OF_FILE;
    const uint8_t *match = vel_pem2der_find(pembuffer + pos, end, vel_pem2der_begin);
    if (!match)
        return VEL_ERROR_END_OF_FILE;

    match = vel_pem2der_skip_line_end(match + vel_pem2der_begin.size(), end);
    VEL_ASSERT(match > pembuffer + pos);
    const uint8_t *bodyend = vel_pem2der_find(match, end, vel_pem2der_end);
    if (!bodyend)
        return VEL_ERROR_INCOMPLETE;

    auto *body = static_cast<const char *>(static_cast<const void *>(match));
    vel_error_t error =
        vel_base64_decode(bufferptr, buflenptr, body, static_cast<size_t>(bodyend - match));
    if (error != VEL_ERROR_NONE) {
        VEL_LOG(7, "unable to decode certificate, error %d (%s)", error, vel_error_string(error));
        return error;
    }
    velpem2der->pos = static_cast<uint64_t>(bodyend - pembuffer) + vel_pem2der_end.size();
    return VEL_ERROR_NONE;
}
