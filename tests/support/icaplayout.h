#ifndef TESTS_SUPPORT_ICAPLAYOUT_H
#define TESTS_SUPPORT_ICAPLAYOUT_H

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <vellib/velerror.h>

/* A second implementation of the Encapsulated header of an ICAP answer, which takes the text to
 * pieces first. Tests and fuzz targets compare the client with it. */
namespace support {

struct icap_layout {
    uint64_t header;
    uint64_t body;
    int hasbody;

    bool operator==(const icap_layout &) const = default;
};

inline const std::string kIcapWords[] = {
    "req-hdr=", "res-hdr=", "req-body=", "res-body=", "opt-body=", "null-body="};

/* A number in front of a text, as strtoul takes it. */
struct icap_number {
    uint64_t value = 0;
    bool ranged = true;
    bool digits = false;
};

/* Takes it off the text, if there is one. */
inline icap_number icap_take_number(std::string_view &text, unsigned int base)
{
    icap_number one;
    std::string_view rest = text;
    while (!rest.empty() && std::string_view(" \t\n\v\f\r").find(rest[0]) != rest.npos)
        rest.remove_prefix(1);
    const bool negative = rest.starts_with('-');
    if (negative || rest.starts_with('+'))
        rest.remove_prefix(1);
    const std::string_view all = "0123456789abcdef";
    const auto digit_of = [&](size_t at) {
        if (at >= rest.size())
            return rest.npos;
        const char c = rest[at];
        const size_t digit = all.find(c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c);
        return digit < base ? digit : rest.npos;
    };
    if (base == 16 && (rest.starts_with("0x") || rest.starts_with("0X")) &&
        digit_of(2) != rest.npos)
        rest.remove_prefix(2);
    for (; digit_of(0) != rest.npos; rest.remove_prefix(1)) {
        const uint64_t digit = digit_of(0);
        one.ranged = one.ranged && one.value <= (UINT64_MAX - digit) / base;
        one.value = one.value * base + digit;
        one.digits = true;
    }
    if (negative)
        one.value = 0 - one.value;
    if (one.digits)
        text = rest;
    return one;
}

/* The values by their words, or none if the text is not well formed. */
inline std::optional<std::map<std::string, uint64_t>> icap_take_values(std::string_view text)
{
    std::map<std::string, uint64_t> values;
    size_t lowest = 0;
    while (true) {
        const std::string *word = nullptr;
        for (size_t number = lowest; number < std::size(kIcapWords); number++) {
            if (text.starts_with(kIcapWords[number])) {
                word = &kIcapWords[number];
                lowest = number + 1;
            }
        }
        if (!word)
            return std::nullopt;
        text.remove_prefix(word->size());
        const icap_number one = icap_take_number(text, 10);
        if (!one.ranged)
            return std::nullopt;
        values[word->substr(0, word->size() - 1)] = one.value;
        if (text.empty())
            return values;
        if (!text.starts_with(", "))
            return std::nullopt;
        text.remove_prefix(2);
    }
}

/* What the client makes of a text without a NUL, for REQMOD, RESPMOD and OPTIONS, which are 1, 2 and
 * 3, or another method. The layout is written for VEL_ERROR_NONE and VEL_ERROR_UNSUPPORTED. */
inline vel_error_t icap_layout_of(unsigned int method, std::string_view text, icap_layout *layout)
{
    const auto values = icap_take_values(text);
    if (!values)
        return VEL_ERROR_PROTOCOL;
    std::string words;
    for (const auto &[word, value] : *values)
        words += word + " ";
    static const std::map<unsigned int, std::vector<std::string>> kAllowed = {
        {1,
         {"req-body ", "req-body req-hdr ", "null-body req-hdr ", "res-body ", "res-body res-hdr ",
          "null-body res-hdr ", "null-body "}},
        {2, {"res-body ", "res-body res-hdr ", "null-body res-hdr ", "null-body "}},
        {3, {"opt-body ", "null-body "}}};
    if (!kAllowed.contains(method)) {
        const bool opt = values->contains("opt-body");
        const bool two = values->contains("null-body") &&
                         (values->contains("req-body") || values->contains("res-body"));
        return opt || two ? VEL_ERROR_PROTOCOL : VEL_ERROR_INTERNAL;
    }
    const std::vector<std::string> &allowed = kAllowed.at(method);
    if (std::find(allowed.begin(), allowed.end(), words) == allowed.end())
        return VEL_ERROR_PROTOCOL;
    *layout = {0, 0, values->contains("null-body") ? 0 : 1};
    for (const auto &[word, value] : *values)
        (word.ends_with("hdr") ? layout->header : layout->body) = value;
    return layout->header != 0 ? VEL_ERROR_UNSUPPORTED : VEL_ERROR_NONE;
}

} // namespace support

#endif
