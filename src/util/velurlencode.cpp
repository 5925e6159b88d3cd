#include <vellib/velurlencode.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include <vellib/vellimit.h>
#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"
#include "util/velurlencode_internal.h"

#define VEL_MODULE "util/velurlencode"

/* What becomes of a byte. The encoder does not tell the latter two apart. */
enum : uint8_t {
    VEL_URLENCODE_ESCAPE = 0,
    VEL_URLENCODE_PLAIN = 1,
    VEL_URLENCODE_SKIP = 2, /* plain by vel_urlencode_skip */
};

struct velurlencode {
    std::array<uint8_t, 256> entries;
};

static constexpr std::array<uint8_t, 256> vel_urlencode_fill_entries()
{
    std::array<uint8_t, 256> entries = {};
    for (char c : "!'()*-.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz~")
        entries[static_cast<uint8_t>(c)] = VEL_URLENCODE_PLAIN;
    entries[0] = VEL_URLENCODE_ESCAPE; /* the end of that text */
    return entries;
}

static constexpr auto vel_urlencode_default_entries = vel_urlencode_fill_entries();

/* The escape of each byte, and the byte as it is. All are of one size, so that copying needs no
 * look at the length. */
struct vel_urlencode_texts {
    char escaped[256][4];
    char plain[256][4];
};

static constexpr vel_urlencode_texts vel_urlencode_fill_texts()
{
    constexpr char digits[] = "0123456789ABCDEF";
    vel_urlencode_texts texts = {};
    for (unsigned byte = 0; byte < 256; byte++) {
        texts.escaped[byte][0] = '%';
        texts.escaped[byte][1] = digits[byte >> 4];
        texts.escaped[byte][2] = digits[byte & 15];
        texts.plain[byte][0] = static_cast<char>(byte);
    }
    return texts;
}

static constexpr auto vel_urlencode_texts_table = vel_urlencode_fill_texts();

static inline bool vel_urlencode_needs_encoding(const struct velurlencode *velurlencode,
                                                uint8_t byte)
{
    return velurlencode->entries[byte] == VEL_URLENCODE_ESCAPE;
}

/* The text of a byte, of which the length counts. */
static inline const char *vel_urlencode_text(const struct velurlencode *velurlencode, uint8_t byte,
                                             size_t *lenptr)
{
    const bool escaped = vel_urlencode_needs_encoding(velurlencode, byte);
    *lenptr = escaped ? 3 : 1;
    return escaped ? vel_urlencode_texts_table.escaped[byte]
                   : vel_urlencode_texts_table.plain[byte];
}

/* Encodes bytes from the front without a branch, 4 bytes of text at once of which 1 or 3 count.
 * What goes beyond is overwritten by the text of the 3 bytes that are left over. Returns how many
 * bytes it took. */
static size_t vel_urlencode_fill_plainly(const struct velurlencode *velurlencode, char *dst,
                                         size_t room, size_t *countptr, const uint8_t *source,
                                         size_t len)
{
    size_t taken = 0, count = 0;
    while (len - taken > 3 && room - count >= 4) {
        size_t textlen;
        memcpy(dst + count, vel_urlencode_text(velurlencode, source[taken], &textlen), 4);
        count += textlen;
        taken++;
    }
    *countptr = count;
    return taken;
}

/* The length of the text of bytes so few that it cannot overflow. */
static size_t vel_urlencode_measure(const vel_textkernels *kernels,
                                    const struct velurlencode *velurlencode, const uint8_t *source,
                                    size_t len)
{
    size_t count;
    const size_t taken =
        kernels->percent_encode(nullptr, 0, source, len, velurlencode->entries.data(), &count);
    for (size_t i = taken; i < len; i++)
        count += vel_urlencode_needs_encoding(velurlencode, source[i]) ? 3 : 1;
    return count;
}

/* Encodes bytes from the front, as many as there is room for, but for a few. Returns how many. */
static size_t vel_urlencode_fill(const vel_textkernels *kernels,
                                 const struct velurlencode *velurlencode, char *dst, size_t room,
                                 size_t *countptr, const uint8_t *source, size_t len)
{
    size_t count, more;
    size_t taken =
        kernels->percent_encode(dst, room, source, len, velurlencode->entries.data(), &count);
    taken += vel_urlencode_fill_plainly(velurlencode, dst + count, room - count, &more,
                                        source + taken, len - taken);
    *countptr = count + more;
    return taken;
}

/* Encodes all, and gives the length; it goes on without room. */
static vel_error_t vel_urlencode_run(const vel_textkernels *kernels,
                                     const struct velurlencode *velurlencode, char *dst,
                                     size_t room, size_t *countptr, const uint8_t *source,
                                     size_t len)
{
    const size_t most = vel_limit_max_size_t();
    size_t taken = 0, count = 0;
    vel_error_t result = VEL_ERROR_NONE;
    if (room > 0)
        taken = vel_urlencode_fill(kernels, velurlencode, dst, room, &count, source, len);
    for (; taken < len; taken++) {
        if (count >= room && len - taken <= (most - count) / 3) {
            count += vel_urlencode_measure(kernels, velurlencode, source + taken, len - taken);
            break;
        }
        size_t textlen;
        const char *text = vel_urlencode_text(velurlencode, source[taken], &textlen);
        if (most - count < textlen) {
            result = VEL_ERROR_INVALID_ARGUMENT;
            break;
        }
        if (count < room)
            memcpy(dst + count, text, std::min(textlen, room - count));
        count += textlen;
    }
    *countptr = count;
    return result;
}

vel_error_t vel_urlencode_buffer_with(const vel_textkernels *kernels, velurlencode *velurlencode,
                                      char *dst, size_t *dstlenptr, const char *src, size_t srclen)
{
    const auto *source = static_cast<const uint8_t *>(static_cast<const void *>(src));
    const size_t room = *dstlenptr;
    size_t count;
    vel_error_t result =
        vel_urlencode_run(kernels, velurlencode, dst, room, &count, source, srclen);
    if (count < room)
        dst[count] = '\0';
    else if (count > room)
        result = VEL_ERROR_OUT_OF_RANGE;
    *dstlenptr = count;
    return result;
}

/* The second half of the string form: the room is known. */
static vel_error_t vel_urlencode_allocate(velurlencode *velurlencode, char **dstptr,
                                          const char *src, size_t srclen, size_t dstlen)
{
    const size_t size = dstlen + 1;
    if (size == 0) {
        VEL_LOG(6, "the encoded buffer needed is too long to fit the memory space");
        return VEL_ERROR_INVALID_ARGUMENT;
    }
    auto *dst = static_cast<char *>(vel_malloc(size));
    if (!dst) {
        VEL_LOG(7, "not enough memory for encoded buffer (%lu bytes)",
                static_cast<unsigned long>(size));
        return VEL_ERROR_NO_MEMORY;
    }
    size_t len = size;
    const vel_error_t result = vel_urlencode_buffer(velurlencode, dst, &len, src, srclen);
    if (result != VEL_ERROR_NONE) {
        VEL_LOG(7, "unable to encode buffer, error %d (%s)", result, vel_error_string(result));
        vel_free(dst);
        return result;
    }
    VEL_ASSERT(dstlen == len);
    *dstptr = dst;
    return VEL_ERROR_NONE;
}

char *vel_urlencode(const char *string)
{
    velurlencode *context = vel_urlencode_create();
    if (!context) {
        VEL_LOG(7, "unable to create URL encoding context");
        return nullptr;
    }
    char *encoded;
    const vel_error_t result = vel_urlencode_string(context, &encoded, string);
    if (result != VEL_ERROR_NONE)
        VEL_LOG(7, "unable to urlencode string '%s', error %d (%s)", string, result,
                vel_error_string(result));
    vel_urlencode_destroy(context);
    return encoded;
}

velurlencode *vel_urlencode_create(void)
{
    auto *context = static_cast<velurlencode *>(vel_malloc(sizeof(velurlencode)));
    if (!context) {
        VEL_LOG(7, "not enough memory for URL encoding context");
        return nullptr;
    }
    vel_urlencode_reset(context);
    return context;
}

void vel_urlencode_destroy(velurlencode *velurlencode)
{
    VEL_ASSERT(velurlencode != NULL);

    vel_free(velurlencode);
}

void vel_urlencode_reset(velurlencode *velurlencode)
{
    VEL_ASSERT(velurlencode != NULL);

    velurlencode->entries = vel_urlencode_default_entries;
}

void vel_urlencode_skip(velurlencode *velurlencode, const char *skipchars)
{
    VEL_ASSERT(velurlencode != NULL);
    VEL_ASSERT(skipchars != NULL);

    for (; *skipchars; skipchars++)
        velurlencode->entries[static_cast<uint8_t>(*skipchars)] = VEL_URLENCODE_SKIP;
}

vel_error_t vel_urlencode_string(velurlencode *velurlencode, char **dstptr, const char *src)
{
    VEL_ASSERT(velurlencode != NULL);
    VEL_ASSERT(dstptr != NULL);
    VEL_ASSERT(src != NULL);

    char *dst = nullptr;
    const size_t srclen = strlen(src);
    size_t dstlen = 0;
    vel_error_t result = vel_urlencode_buffer(velurlencode, nullptr, &dstlen, src, srclen);
    if (result == VEL_ERROR_NONE) {
        dst = static_cast<char *>(vel_cmalloc(1));
        if (!dst) {
            VEL_LOG(7, "not enough memory for an empty result string");
            result = VEL_ERROR_NO_MEMORY;
        }
    } else if (result == VEL_ERROR_OUT_OF_RANGE) {
        result = vel_urlencode_allocate(velurlencode, &dst, src, srclen, dstlen);
    } else {
        VEL_LOG(7, "encoding resulted an unexpected error %d (%s)", result,
                vel_error_string(result));
    }
    VEL_ASSERT(dst == NULL || result == VEL_ERROR_NONE);
    VEL_ASSERT(dst != NULL || result != VEL_ERROR_NONE);
    *dstptr = dst;
    return result;
}

vel_error_t vel_urlencode_buffer(velurlencode *velurlencode, char *dst, size_t *dstlenptr,
                                 const char *src, size_t srclen)
{
    VEL_ASSERT(velurlencode != NULL);
    VEL_ASSERT(dstlenptr != NULL);
    VEL_ASSERT(src != NULL);
    VEL_ASSERT(dst != NULL || *dstlenptr == 0);

    return vel_urlencode_buffer_with(vel_textkernels_best(), velurlencode, dst, dstlenptr, src,
                                     srclen);
}
