/* Wide steps are the business of platform/textkernels.h. What they leave is done here: the ends of
 * the text and whatever stands around white space, padding and bad bytes. */
#include <vellib/velbase64.h>

#include <array>
#include <cstdint>
#include <initializer_list>

#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/velbase64_internal.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velbase64"

static constexpr char vel_base64_alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/* The class of a byte: a value below 64 for a digit, or one of these. */
enum : uint8_t {
    VEL_BASE64_SPACE = 64,
    VEL_BASE64_PADDING = 128,
    VEL_BASE64_INVALID = 192,
};

static constexpr std::array<uint8_t, 256> vel_base64_fill_classes()
{
    std::array<uint8_t, 256> classes = {};
    for (auto &entry : classes)
        entry = VEL_BASE64_INVALID;
    for (uint8_t value = 0; value < 64; value++)
        classes[static_cast<uint8_t>(vel_base64_alphabet[value])] = value;
    for (char c : {'\t', '\n', '\v', '\f', '\r', ' '})
        classes[static_cast<uint8_t>(c)] = VEL_BASE64_SPACE;
    classes['='] = VEL_BASE64_PADDING;
    return classes;
}

static constexpr auto vel_base64_classes = vel_base64_fill_classes();

/* Writes the digits of 1 to 3 bytes, with the padding. */
static void vel_base64_encode_group(char *dest, const uint8_t *bytes, size_t count)
{
    unsigned group = static_cast<unsigned>(bytes[0]) << 16;
    if (count > 1)
        group |= static_cast<unsigned>(bytes[1]) << 8;
    if (count > 2)
        group |= bytes[2];

    dest[0] = vel_base64_alphabet[group >> 18];
    dest[1] = vel_base64_alphabet[group >> 12 & 63];
    dest[2] = count > 1 ? vel_base64_alphabet[group >> 6 & 63] : '=';
    dest[3] = count > 2 ? vel_base64_alphabet[group & 63] : '=';
}

char *vel_base64_encode_with(const vel_textkernels *kernels, const void *buf, size_t len)
{
    size_t size = (len + 2) / 3 * 4 + 1;
    if (len + 2 < len || size < len) {
        VEL_LOG(6, "size too large, would overflow");
        return nullptr;
    }
    auto *text = static_cast<char *>(vel_malloc(size));
    if (!text) {
        VEL_LOG(7, "not enough memory for base64 encoding");
        return nullptr;
    }

    auto *source = static_cast<const uint8_t *>(buf);
    size_t pos = kernels->base64_encode(text, source, len);
    char *dest = text + pos / 3 * 4;
    for (; pos < len; pos += 3, dest += 4)
        vel_base64_encode_group(dest, source + pos, len - pos < 3 ? len - pos : 3);
    *dest = '\0';
    return text;
}

/* A walk through the text. It lives inside vel_base64_run alone, so that its fields can stand in
 * registers. */
struct vel_base64_walk {
    const uint8_t *source;
    const uint8_t *end;
    uint8_t *dest;      /* where the next byte goes, or NULL */
    size_t count = 0;   /* bytes that came out so far */
    unsigned group = 0; /* digits that wait for their group to fill, the last one lowest */
    unsigned held = 0;  /* their number, below 4 */
};

/* Gives out the upper bytes of a full group, 1 to 3. */
static inline void vel_base64_emit(vel_base64_walk *walk, unsigned group, unsigned bytes)
{
    walk->count += bytes;
    if (!walk->dest)
        return;
    *walk->dest++ = static_cast<uint8_t>(group >> 16);
    if (bytes > 1)
        *walk->dest++ = static_cast<uint8_t>(group >> 8);
    if (bytes > 2)
        *walk->dest++ = static_cast<uint8_t>(group);
}

static inline void vel_base64_take_digit(vel_base64_walk *walk, unsigned value)
{
    walk->group = walk->group << 6 | value;
    if (++walk->held < 4)
        return;
    vel_base64_emit(walk, walk->group, 3);
    walk->group = 0;
    walk->held = 0;
}

/* Takes as many whole groups as the kernels do. */
static inline void vel_base64_take_wide(vel_base64_walk *walk, const vel_textkernels *kernels)
{
    if (!walk->dest)
        return;
    size_t taken = kernels->base64_decode(walk->dest, walk->source,
                                          static_cast<size_t>(walk->end - walk->source));
    walk->source += taken;
    walk->dest += taken / 4 * 3;
    walk->count += taken / 4 * 3;
}

/* Takes whole groups up to the first that holds anything but digits. */
static inline void vel_base64_take_groups(vel_base64_walk *walk)
{
    for (; walk->end - walk->source >= 4; walk->source += 4) {
        const uint8_t *from = walk->source;
        unsigned a = vel_base64_classes[from[0]], b = vel_base64_classes[from[1]];
        unsigned c = vel_base64_classes[from[2]], d = vel_base64_classes[from[3]];
        if ((a | b | c | d) >= 64)
            return;
        vel_base64_emit(walk, a << 18 | b << 12 | c << 6 | d, 3);
    }
}

/* Checks what stands from the first padding on. */
static vel_error_t vel_base64_check_padding(const uint8_t *from, const uint8_t *end)
{
    unsigned padding = 0;
    for (; from < end; from++) {
        switch (vel_base64_classes[*from]) {
        case VEL_BASE64_SPACE:
            break;
        case VEL_BASE64_PADDING:
            if (++padding > 2) {
                VEL_LOG(6, "more than two padding characters present");
                return VEL_ERROR_INVALID_SYNTAX;
            }
            break;
        default:
            VEL_LOG(6, "unexpected character 0x%02x after padding", unsigned{*from});
            return VEL_ERROR_INVALID_ARGUMENT;
        }
    }
    return VEL_ERROR_NONE;
}

/* Walks through the text, and fills the block; without one, it only checks and counts. The wide
 * steps start anew behind white space, wherever a group begins there. */
static vel_error_t vel_base64_run(const vel_textkernels *kernels, uint8_t *dest, size_t *countptr,
                                  const uint8_t *source, size_t len)
{
    vel_base64_walk walk = {.source = source, .end = source + len, .dest = dest};
    vel_error_t result = VEL_ERROR_NONE;
    bool wide = true;
    while (walk.source < walk.end) {
        if (wide && walk.held == 0) {
            vel_base64_take_wide(&walk, kernels);
            vel_base64_take_groups(&walk);
            wide = false;
            continue;
        }
        unsigned byte = *walk.source;
        unsigned kind = vel_base64_classes[byte];
        if (kind == VEL_BASE64_INVALID) {
            VEL_LOG(6, "invalid input character 0x%02x for base64 decoder", byte);
            return VEL_ERROR_INVALID_ARGUMENT;
        }
        if (kind == VEL_BASE64_PADDING) {
            result = vel_base64_check_padding(walk.source, walk.end);
            break;
        }
        if (kind == VEL_BASE64_SPACE)
            wide = true;
        else
            vel_base64_take_digit(&walk, kind);
        walk.source++;
    }

    /* A group that did not fill gives 1 byte for 1 or 2 digits, 2 for 3. */
    if (walk.held > 0)
        vel_base64_emit(&walk, walk.group << (4 - walk.held) * 6, walk.held == 3 ? 2 : 1);
    *countptr = walk.count;
    return result;
}

/* What comes out of a text without white space; any other gives less. */
static size_t vel_base64_most(const uint8_t *source, size_t len)
{
    for (int padding = 0; padding < 2 && len > 0 && source[len - 1] == '='; padding++)
        len--;
    return len / 4 * 3 + (len % 4 + 1) / 2;
}

/* One walk does it all, as the block is allocated before the text is known. Where there is no
 * memory for it the walk is done all the same: bad text is told from a lack of memory, whose
 * message names the size that was needed. The sizes cannot overflow, as they are less than len. */
vel_error_t vel_base64_decode_with(const vel_textkernels *kernels, void **destptr,
                                   size_t *destlenptr, const char *source, size_t sourcelen)
{
    *destptr = nullptr;
    *destlenptr = 0;

    auto *text = static_cast<const uint8_t *>(static_cast<const void *>(source));
    size_t most = vel_base64_most(text, sourcelen), count;
    auto *dest = static_cast<uint8_t *>(vel_malloc(most + 1));
    vel_error_t error = vel_base64_run(kernels, dest, &count, text, sourcelen);
    if (error != VEL_ERROR_NONE) {
        vel_free(dest);
        return error;
    }
    if (!dest) {
        VEL_LOG(7, "not enough memory for the destination buffer (%lu bytes)",
                static_cast<unsigned long>(count + 1));
        return VEL_ERROR_NO_MEMORY;
    }

    dest[count] = '\0';
    void *shrunk = count < most ? vel_realloc(dest, count + 1) : nullptr;
    *destptr = shrunk ? shrunk : dest;
    *destlenptr = count;
    return VEL_ERROR_NONE;
}

char *vel_base64_encode(const void *buf, size_t len)
{
    VEL_ASSERT(buf != NULL);

    return vel_base64_encode_with(vel_textkernels_best(), buf, len);
}

vel_error_t vel_base64_decode(void **destptr, size_t *destlenptr, const char *source,
                              size_t sourcelen)
{
    VEL_ASSERT(destptr != NULL);
    VEL_ASSERT(destlenptr != NULL);
    VEL_ASSERT(source != NULL);

    return vel_base64_decode_with(vel_textkernels_best(), destptr, destlenptr, source, sourcelen);
}
