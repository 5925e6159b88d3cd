#ifndef VELLIB_ADT_VELWCHAR_CORE_H
#define VELLIB_ADT_VELWCHAR_CORE_H

/* The whole of velwchar. It is compiled twice, as the names of the functions are output, in
 * assertions and in stacks: before including it, define VEL_WCHAR(verb), which gives a function its
 * name, and VEL_MODULE. */

#include "adt/velwchar_core_internal.h"

#include <cstdint>
#include <cstring>
#include <cwchar>

#include <vellib/velmalloc.h>

#include "platform/widekernels.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

static_assert(sizeof(wchar_t) == 4);

/* First bytes whose second byte is bounded further: a value from low to high is refused, as it
 * would be overlong, a surrogate or above U+10FFFF. */
static constexpr struct {
    unsigned char first, low, high;
} VEL_WCHAR(refused)[] = {
    {0xe0, 0x80, 0x9f},
    {0xed, 0xa0, 0xbf},
    {0xf0, 0x80, 0x8f},
    {0xf4, 0x90, 0xbf},
};

/* The length of the sequence at utf8 by its first two bytes, or 0 after logging what is wrong with
 * them. Whether the bytes behind the first are of the right form is for the caller to see. */
static size_t VEL_WCHAR(sequence_length)(const unsigned char *utf8)
{
    if (utf8[0] < 0x80)
        return 1;
    if (utf8[0] < 0xc2 || utf8[0] > 0xf7) {
        VEL_LOG(6, "invalid UTF-8 first byte 0x%02x", utf8[0]);
        return 0;
    }
    if (utf8[0] > 0xf4) {
        VEL_LOG(6, "invalid UTF-8 first byte 0x%02x in a 4-byte sequence", utf8[0]);
        return 0;
    }
    const unsigned int len = utf8[0] < 0xe0 ? 2 : utf8[0] < 0xf0 ? 3 : 4;
    for (const auto &entry : VEL_WCHAR(refused)) {
        if (utf8[0] == entry.first && utf8[1] >= entry.low && utf8[1] <= entry.high) {
            VEL_LOG(6,
                    "invalid UTF-8 second byte 0x%02x in a %u-byte sequence starting with 0x%02x",
                    utf8[1], len, utf8[0]);
            return 0;
        }
    }
    return len;
}

/* Reads the character at utf8. Returns its length, or 0 after logging what is wrong with it. The
 * terminator is never a further byte, so nothing behind it is read. */
static size_t VEL_WCHAR(read)(const char *utf8, wchar_t *valueptr)
{
    const auto *bytes = static_cast<const unsigned char *>(static_cast<const void *>(utf8));
    const size_t len = VEL_WCHAR(sequence_length)(bytes);
    if (len <= 1) {
        *valueptr = bytes[0];
        return len;
    }
    uint32_t value = bytes[0] & (0x7fu >> len);
    for (size_t i = 1; i < len; i++) {
        if ((bytes[i] & 0xc0) != 0x80) {
            VEL_LOG(6, "invalid UTF-8 continuation byte 0x%02x", bytes[i]);
            return 0;
        }
        value = value << 6 | (bytes[i] & 0x3f);
    }
    *valueptr = static_cast<wchar_t>(value);
    return len;
}

/* Kernels do as much as they can and the plain loop the rest. Once the array is full there is a
 * second round, which only counts. */
int VEL_WCHAR(buffer_from_utf8_with)(const vel_widekernels *kernels, wchar_t *warray,
                                     size_t *warraylenptr, const char *utf8, size_t len)
{
    const size_t capacity = *warraylenptr;
    size_t warraypos = 0, taken = 0;
    *warraylenptr = 0;
    while (taken < len) {
        wchar_t *dest = warraypos < capacity ? warray + warraypos : nullptr;
        size_t count;
        taken += kernels->to_wide(dest, capacity - warraypos, utf8 + taken, len - taken, &count);
        warraypos += count;
        while (taken < len && (!dest || warraypos < capacity)) {
            wchar_t value;
            const size_t step = VEL_WCHAR(read)(utf8 + taken, &value);
            if (step == 0) {
                warraypos = 0;
                VEL_ASSERT(warraypos == 0);
                return -1;
            }
            if (dest)
                warray[warraypos] = value;
            warraypos++;
            taken += step;
        }
    }
    if (warraypos < capacity)
        warray[warraypos] = 0;
    *warraylenptr = warraypos;
    return warraypos <= capacity ? 0 : 1;
}

/* The number of bytes that a character takes, or 0 if it is no code point. */
static size_t VEL_WCHAR(utf8_length)(uint32_t value)
{
    if (value < 0x80)
        return 1;
    if (value < 0x800)
        return 2;
    if (value < 0x10000)
        return 3;
    return value < 0x110000 ? 4 : 0;
}

/* Writes the bytes of a code point, and returns how many. */
static size_t VEL_WCHAR(utf8_convert)(char *buffer, uint32_t value)
{
    VEL_ASSERT(buffer != NULL);

    static constexpr unsigned char marks[] = {0, 0, 0xc0, 0xe0, 0xf0};
    const size_t len = VEL_WCHAR(utf8_length)(value);
    for (size_t i = len; i > 1; value >>= 6)
        buffer[--i] = static_cast<char>(0x80 | (value & 0x3f));
    buffer[0] = static_cast<char>(marks[len] | value);
    return len;
}

/* Reads the character at wide, or the pair of surrogates. Its top bit does not count, except that
 * with it a character is no surrogate. Returns the number of wide characters, or 0 after logging
 * what is wrong with the surrogate. */
static size_t VEL_WCHAR(read_wide)(const wchar_t *wide, uint32_t *valueptr)
{
    *valueptr = static_cast<uint32_t>(wide[0]) & 0x7fffffff;
    if (wide[0] < 0xd800 || wide[0] > 0xdfff)
        return 1;
    const auto first = static_cast<uint32_t>(wide[0]);
    if (wide[0] >= 0xdc00) {
        VEL_LOG(6,
                "unexpected occurrence of a second part of the surrogate 0x%04x without a "
                "preceeding first part",
                first);
        return 0;
    }
    const auto second = static_cast<uint32_t>(wide[1]);
    if (wide[1] == 0) {
        VEL_LOG(6,
                "end of wide character string in the middle of surrogate pairs, first surrogate "
                "0x%04x",
                first);
        return 0;
    }
    if (wide[1] < 0xdc00 || wide[1] > 0xdfff) {
        VEL_LOG(6,
                "invalid second part of the surrogate 0x%04x outside the valid range "
                "0xdc00-0xdfff",
                second);
        return 0;
    }
    *valueptr = ((first & 0x3ff) << 10 | (second & 0x3ff)) + 0x10000;
    return 2;
}

/* Where the bytes go. The position counts on behind the end of the room. */
struct vel_wchar_output {
    char *utf8; /* NULL to measure */
    size_t capacity;
    size_t pos;
};

/* Converts from the place *takenptr up to end, and the second surrogate of a pair that stands
 * across it. Returns false after logging what is wrong. */
static bool VEL_WCHAR(write)(vel_wchar_output *output, const wchar_t *wstring, size_t *takenptr,
                             size_t end)
{
    while (*takenptr < end) {
        uint32_t value;
        const size_t step = VEL_WCHAR(read_wide)(wstring + *takenptr, &value);
        if (step == 0)
            return false;
        const size_t len = VEL_WCHAR(utf8_length)(value);
        if (len == 0) {
            VEL_LOG(6, "invalid wide character 0x%08x", value);
            output->pos = 0;
            return false;
        }
        if (output->pos < output->capacity && len <= output->capacity - output->pos) {
            const size_t len2 = VEL_WCHAR(utf8_convert)(output->utf8 + output->pos, value);
            VEL_ASSERT(len2 == len);
        }
        output->pos += len;
        *takenptr += step;
    }
    return true;
}

/* The end of the string is looked for in pieces that are still in the cache when the kernel comes.
 * What a kernel does not take, a pair of surrogates for instance, need not be wrong, so it gets
 * another turn behind a few characters of the plain loop. */
int VEL_WCHAR(to_utf8_buffer)(const vel_widekernels *kernels, char *utf8, size_t *utf8lenptr,
                              const wchar_t *wstring)
{
    VEL_ASSERT(utf8 != NULL || *utf8lenptr == 0);
    VEL_ASSERT(wstring != NULL);

    static constexpr size_t piece = 4096, turn = 16;
    vel_wchar_output output = {utf8, *utf8lenptr, 0};
    size_t taken = 0, end = 0, len = piece;
    bool valid = true;
    while (valid && (taken < end || len == piece)) {
        if (taken >= end) {
            len = wcsnlen(wstring + taken, piece);
            end = taken + len;
        }
        if (!utf8 || output.pos < output.capacity) {
            size_t count;
            taken +=
                kernels->to_utf8(utf8 ? utf8 + output.pos : nullptr, output.capacity - output.pos,
                                 wstring + taken, end - taken, &count);
            output.pos += count;
        }
        valid = VEL_WCHAR(write)(&output, wstring, &taken, end - taken > turn ? taken + turn : end);
    }
    *utf8lenptr = output.pos;
    if (!valid)
        return -1;
    if (output.pos >= output.capacity)
        return 1;
    utf8[output.pos] = '\0';
    return 0;
}

size_t VEL_WCHAR(strlen)(const wchar_t *wstring)
{
    return wcslen(wstring);
}

char *VEL_WCHAR(to_utf8)(const wchar_t *wstring)
{
    const vel_widekernels *kernels = vel_widekernels_best();
    size_t len = 0;
    if (VEL_WCHAR(to_utf8_buffer)(kernels, nullptr, &len, wstring) == -1)
        return nullptr;

    size_t utf8len = len + 1;
    auto *utf8 = static_cast<char *>(vel_malloc(utf8len));
    if (!utf8)
        return nullptr;
    const int error = VEL_WCHAR(to_utf8_buffer)(kernels, utf8, &utf8len, wstring);
    VEL_ASSERT(error == 0);
    return utf8;
}

wchar_t *VEL_WCHAR(from_utf8)(const char *utf8)
{
    size_t warraylen = 0;
    if (VEL_WCHAR(buffer_from_utf8)(nullptr, &warraylen, utf8) == -1)
        return nullptr;

    /* No overflow: there is a byte for each character, and the text stands in memory. */
    auto *wstring = static_cast<wchar_t *>(vel_malloc((warraylen + 1) * sizeof(wchar_t)));
    if (!wstring)
        return nullptr;
    wstring[warraylen] = 0;
    size_t len = warraylen;
    const int res = VEL_WCHAR(buffer_from_utf8)(wstring, &len, utf8);
    VEL_ASSERT(res == 0);
    VEL_ASSERT(len == warraylen);
    VEL_ASSERT(wstring[warraylen] == 0);
    return wstring;
}

int VEL_WCHAR(buffer_from_utf8)(wchar_t *warray, size_t *warraylenptr, const char *utf8)
{
    VEL_ASSERT(warraylenptr != NULL);
    VEL_ASSERT(warray != NULL || *warraylenptr == 0);
    VEL_ASSERT(utf8 != NULL);

    return VEL_WCHAR(buffer_from_utf8_with)(vel_widekernels_best(), warray, warraylenptr, utf8,
                                            strlen(utf8));
}

#endif
