#ifndef TESTS_SUPPORT_UTF8MODEL_H
#define TESTS_SUPPORT_UTF8MODEL_H

/* UTF-8 read plainly from the grammar of RFC 3629, section 4, and the two sets of functions that
 * convert it. */

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velpunycode_wchar.h>
#include <vellib/velwchar.h>

namespace support {

/* One production of UTF8-char: the range of each of its bytes. */
struct utf8_form {
    size_t length;
    struct {
        uint8_t low, high;
    } bytes[4];
};

constexpr utf8_form kUtf8Forms[] = {
    {1, {{0x01, 0x7F}}}, /* a zero ends the text */
    {2, {{0xC2, 0xDF}, {0x80, 0xBF}}},
    {3, {{0xE0, 0xE0}, {0xA0, 0xBF}, {0x80, 0xBF}}},
    {3, {{0xE1, 0xEC}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {3, {{0xED, 0xED}, {0x80, 0x9F}, {0x80, 0xBF}}},
    {3, {{0xEE, 0xEF}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {4, {{0xF0, 0xF0}, {0x90, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {4, {{0xF1, 0xF3}, {0x80, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {4, {{0xF4, 0xF4}, {0x80, 0x8F}, {0x80, 0xBF}, {0x80, 0xBF}}},
};

/* The code points, or nothing where a text is not UTF-8. */
inline std::optional<std::vector<wchar_t>> utf8_decode(std::string_view text)
{
    std::vector<wchar_t> points;
    while (!text.empty()) {
        const utf8_form *found = nullptr;
        for (const utf8_form &form : kUtf8Forms) {
            bool fits = form.length <= text.size();
            for (size_t i = 0; fits && i < form.length; i++) {
                const auto byte = static_cast<uint8_t>(text[i]);
                fits = byte >= form.bytes[i].low && byte <= form.bytes[i].high;
            }
            if (fits)
                found = &form;
        }
        if (!found)
            return {};
        static const int firstbits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
        wchar_t point = static_cast<uint8_t>(text[0]) & firstbits[found->length];
        for (size_t i = 1; i < found->length; i++)
            point = point * 64 + (static_cast<uint8_t>(text[i]) & 0x3F);
        points.push_back(point);
        text.remove_prefix(found->length);
    }
    return points;
}

/* The bytes of any number of up to 21 bits, a surrogate too. */
inline std::string utf8_encode(uint32_t point)
{
    if (point < 0x80)
        return {static_cast<char>(point)};
    const size_t length = point < 0x800 ? 2 : point < 0x10000 ? 3 : 4;
    std::string bytes(length, 0);
    for (size_t i = length - 1; i > 0; i--) {
        bytes[i] = static_cast<char>(0x80 | (point & 0x3F));
        point >>= 6;
    }
    bytes[0] = static_cast<char>(((0xF00 >> length) & 0xFF) | point);
    return bytes;
}

/* Printed in a failure. */
inline std::string in_hex(std::string_view text)
{
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (const char byte : text) {
        out += digits[static_cast<uint8_t>(byte) >> 4];
        out += digits[byte & 15];
    }
    return out;
}

struct wchar_set {
    static constexpr char module[] = "adt/velwchar";
    static constexpr char prefix[] = "vel_wchar_";
    static constexpr auto strlen = vel_wchar_strlen;
    static constexpr auto to_utf8 = vel_wchar_to_utf8;
    static constexpr auto from_utf8 = vel_wchar_from_utf8;
    static constexpr auto buffer_from_utf8 = vel_wchar_buffer_from_utf8;
};

struct punycode_wchar_set {
    static constexpr char module[] = "util/../adt/velwchar";
    static constexpr char prefix[] = "vel_punycode_wchar_";
    static constexpr auto strlen = vel_punycode_wchar_strlen;
    static constexpr auto to_utf8 = vel_punycode_wchar_to_utf8;
    static constexpr auto from_utf8 = vel_punycode_wchar_from_utf8;
    static constexpr auto buffer_from_utf8 = vel_punycode_wchar_buffer_from_utf8;
};

using wchar_sets = testing::Types<wchar_set, punycode_wchar_set>;

struct wchar_set_name {
    template <typename Set> static std::string GetName(int)
    {
        return std::string(Set::prefix).find("puny") == std::string::npos ? "velwchar"
                                                                          : "velpunycode_wchar";
    }
};

} // namespace support

#endif
