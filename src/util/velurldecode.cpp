#include <vellib/velurldecode.h>

#include <cstdint>
#include <cstring>

#include <vellib/vellimit.h>
#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/velhexdigits_core.h"
#include "util/vellog_macros.h"
#include "util/velurldecode_internal.h"

#define VEL_MODULE "util/velurldecode"

/* The byte of the escape at source, which is left bytes from the end. */
static inline vel_error_t vel_urldecode_escape(const uint8_t *source, size_t left, uint8_t *byteptr)
{
    unsigned value = 0;
    for (size_t i = 1; i <= 2; i++) {
        if (left <= i)
            return VEL_ERROR_INCOMPLETE;
        const unsigned digit = vel_hexdigits_values[source[i]];
        if (digit == VEL_HEXDIGITS_INVALID)
            return VEL_ERROR_INVALID_SYNTAX;
        value = value << 4 | digit;
    }
    *byteptr = static_cast<uint8_t>(value);
    return VEL_ERROR_NONE;
}

/* Decodes up to the end or a bad escape, and gives the length; it goes on without room. The kernels
 * take what they can, and once there is no room left they get another turn, to count. */
static vel_error_t vel_urldecode_run(const vel_textkernels *kernels, uint8_t *dest, size_t room,
                                     size_t *countptr, const uint8_t *source, size_t len)
{
    const size_t most = vel_limit_max_size_t();
    size_t count, taken = kernels->percent_decode(dest, room, source, len, &count);
    bool counting = !dest;
    vel_error_t result = VEL_ERROR_NONE;
    while (taken < len && result == VEL_ERROR_NONE) {
        if (count >= room && !counting) {
            size_t more;
            taken += kernels->percent_decode(nullptr, 0, source + taken, len - taken, &more);
            count += more;
            counting = true;
            continue;
        }
        uint8_t byte = source[taken];
        size_t step = 1;
        if (byte == '%') {
            result = vel_urldecode_escape(source + taken, len - taken, &byte);
            if (result != VEL_ERROR_NONE)
                break;
            step = 3;
        } else if (byte == '+') {
            byte = ' ';
        }
        if (count < room)
            dest[count] = byte;
        taken += step;
        if (++count == most)
            result = VEL_ERROR_INVALID_ARGUMENT;
    }
    *countptr = count;
    return result;
}

vel_error_t vel_urldecode_buffer_with(const vel_textkernels *kernels, char *dst, size_t *dstlenptr,
                                      const char *src, size_t srclen)
{
    auto *dest = static_cast<uint8_t *>(static_cast<void *>(dst));
    const auto *source = static_cast<const uint8_t *>(static_cast<const void *>(src));
    const size_t room = *dstlenptr;
    size_t count;
    vel_error_t result = vel_urldecode_run(kernels, dest, room, &count, source, srclen);
    if (count < room)
        dest[count] = '\0';
    else if (count > room)
        result = VEL_ERROR_OUT_OF_RANGE;
    *dstlenptr = count;
    return result;
}

/* The second half of the string form: the room is known. */
static vel_error_t vel_urldecode_allocate(char **dstptr, const char *src, size_t srclen,
                                          size_t dstlen)
{
    const size_t size = dstlen + 1;
    if (size == 0) {
        VEL_LOG(6, "the decoded buffer needed is too long to fit the memory space");
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    auto *dst = static_cast<char *>(vel_malloc(size));
    if (!dst) {
        VEL_LOG(7, "not enough memory for decoded buffer (%lu bytes)",
                static_cast<unsigned long>(size));
        return VEL_ERROR_NO_MEMORY;
    }
    size_t len = size;
    const vel_error_t result = vel_urldecode_buffer(dst, &len, src, srclen);
    if (result != VEL_ERROR_NONE) {
        VEL_LOG(7, "unable to decode buffer, error %d (%s)", result, vel_error_string(result));
        vel_free(dst);
        return result;
    }
    VEL_ASSERT(dstlen == len);
    *dstptr = dst;
    return VEL_ERROR_NONE;
}

char *vel_urldecode(const char *string)
{
    VEL_ASSERT(string != NULL);

    char *result;
    if (vel_urldecode_string(&result, string) != VEL_ERROR_NONE)
        VEL_ASSERT(result == NULL);
    else
        VEL_ASSERT(result != NULL);
    return result;
}

/* The first pass knows a bad escape only where nothing came out before it: any room at all would
 * have been too little. The second pass finds the others. */
vel_error_t vel_urldecode_string(char **dstptr, const char *src)
{
    VEL_ASSERT(dstptr != NULL);
    VEL_ASSERT(src != NULL);

    char *dst = nullptr;
    const size_t srclen = strlen(src);
    size_t dstlen = 0;
    vel_error_t result = vel_urldecode_buffer(nullptr, &dstlen, src, srclen);
    if (result == VEL_ERROR_NONE) {
        dst = static_cast<char *>(vel_cmalloc(1));
        if (!dst) {
            VEL_LOG(7, "not enough memory for an empty result string");
            result = VEL_ERROR_NO_MEMORY;
        }
    } else if (result == VEL_ERROR_INVALID_SYNTAX) {
        VEL_LOG(6, "invalid percent encoding in the source string");
    } else {
        result = vel_urldecode_allocate(&dst, src, srclen, dstlen);
    }
    VEL_ASSERT(dst == NULL || result == VEL_ERROR_NONE);
    VEL_ASSERT(dst != NULL || result != VEL_ERROR_NONE);
    *dstptr = dst;
    return result;
}

vel_error_t vel_urldecode_buffer(char *dst, size_t *dstlenptr, const char *src, size_t srclen)
{
    VEL_ASSERT(dstlenptr != NULL);
    VEL_ASSERT(src != NULL);
    VEL_ASSERT(dst != NULL || *dstlenptr == 0);

    return vel_urldecode_buffer_with(vel_textkernels_best(), dst, dstlenptr, src, srclen);
}
