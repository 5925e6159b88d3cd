#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "fuzz.h"
#include "io/velnormalform_internal.h"
#include "io/velnormalform_table.h"
#include "io/velutf8dir_internal.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

/* Normalization Form C once more, as UAX #15 tells it, over the same tables but searched through
 * from end to end, and with the syllables of Hangul written out. */
namespace naive {

using text = std::u32string;

struct syllable {
    char32_t leading, vowel, trailing;
};

static syllable take_apart(char32_t character)
{
    const char32_t place = character - 0xac00;
    return {0x1100 + place / 588, 0x1161 + place % 588 / 28, 0x11a7 + place % 28};
}

static vel_normalform_record record(char32_t character)
{
    if (character >= vel_normalform_end)
        return {};
    const size_t page = vel_normalform_pages[character >> vel_normalform_shift];
    return vel_normalform_records[vel_normalform_indexes[page]
                                                        [character % (1 << vel_normalform_shift)]];
}

static text decompose(const text &given)
{
    text parts;
    for (const char32_t character : given) {
        const vel_normalform_record known = record(character);
        if (character >= 0xac00 && character <= 0xd7a3) {
            const syllable found = take_apart(character);
            parts += {found.leading, found.vowel};
            if (found.trailing != 0x11a7)
                parts += found.trailing;
        } else if (known.length == 0) {
            parts += character;
        } else {
            for (size_t i = 0; i < known.length; i++)
                parts += vel_normalform_parts[known.start + i];
        }
    }
    return parts;
}

/* Exchanges neighbours until none is out of order. */
static void reorder(text &parts)
{
    for (bool changed = true; changed;) {
        changed = false;
        for (size_t i = 1; i < parts.size(); i++) {
            const auto before = record(parts[i - 1]).combiningclass;
            const auto after = record(parts[i]).combiningclass;
            if (after != 0 && before > after) {
                std::swap(parts[i - 1], parts[i]);
                changed = true;
            }
        }
    }
}

static char32_t pair_up(char32_t first, char32_t second)
{
    const bool jamo = second >= 0x1161 && second <= 0x11c2;
    for (char32_t character = 0xac00; jamo && character <= 0xd7a3; character++) {
        const syllable found = take_apart(character);
        const bool open = found.trailing == 0x11a7;
        if (open && first == found.leading && second == found.vowel)
            return character;
        if (!open && first == character - (found.trailing - 0x11a7) && second == found.trailing)
            return character;
    }
    for (const auto &pair : vel_normalform_pairs)
        if (pair.first == first && pair.second == second)
            return pair.composite;
    return 0;
}

/* Looks back from each character for its starter, and past nothing that blocks it. */
static text compose(text parts)
{
    for (size_t i = 1; i < parts.size(); i++) {
        const auto own = record(parts[i]).combiningclass;
        size_t before = i;
        bool blocked = false;
        while (before > 0 && !blocked) {
            before--;
            const auto other = record(parts[before]).combiningclass;
            if (other == 0)
                break;
            blocked = other >= own;
        }
        if (blocked || record(parts[before]).combiningclass != 0)
            continue;
        if (const char32_t composite = pair_up(parts[before], parts[i])) {
            parts[before] = composite;
            parts.erase(i--, 1);
        }
    }
    return parts;
}

/* False if a text is not valid, of which RFC 3629 has a grammar. */
static bool decode(const std::string &utf8, text *decoded)
{
    for (size_t i = 0; i < utf8.size();) {
        const auto byte = [&](size_t ahead) -> unsigned char {
            return i + ahead < utf8.size() ? static_cast<unsigned char>(utf8[i + ahead]) : 0;
        };
        const auto tail = [&](size_t ahead) { return byte(ahead) >= 0x80 && byte(ahead) <= 0xbf; };
        const unsigned char first = byte(0), second = byte(1);
        size_t length = 0;
        if (first <= 0x7f)
            length = 1;
        else if (first >= 0xc2 && first <= 0xdf && tail(1))
            length = 2;
        else if (first >= 0xe0 && first <= 0xef && tail(1) && tail(2) &&
                 (first != 0xe0 || second >= 0xa0) && (first != 0xed || second <= 0x9f))
            length = 3;
        else if (first >= 0xf0 && first <= 0xf4 && tail(1) && tail(2) && tail(3) &&
                 (first != 0xf0 || second >= 0x90) && (first != 0xf4 || second <= 0x8f))
            length = 4;
        if (length == 0)
            return false;
        char32_t character = length == 1 ? first : first & (0x7f >> length);
        for (size_t ahead = 1; ahead < length; ahead++)
            character = character << 6 | (byte(ahead) & 0x3f);
        *decoded += character;
        i += length;
    }
    return true;
}

static std::string encode(const text &decoded)
{
    std::string utf8;
    for (const char32_t character : decoded) {
        if (character < 0x80) {
            utf8 += static_cast<char>(character);
        } else if (character < 0x800) {
            utf8 += static_cast<char>(0xc0 | character >> 6);
        } else if (character < 0x10000) {
            utf8 += static_cast<char>(0xe0 | character >> 12);
            utf8 += static_cast<char>(0x80 | (character >> 6 & 0x3f));
        } else {
            utf8 += static_cast<char>(0xf0 | character >> 18);
            utf8 += static_cast<char>(0x80 | (character >> 12 & 0x3f));
            utf8 += static_cast<char>(0x80 | (character >> 6 & 0x3f));
        }
        if (character >= 0x80)
            utf8 += static_cast<char>(0x80 | (character & 0x3f));
    }
    return utf8;
}

static std::string normalize(const std::string &utf8)
{
    text decoded;
    if (!decode(utf8, &decoded))
        return utf8;
    text parts = decompose(decoded);
    reorder(parts);
    return encode(compose(parts));
}

} // namespace naive

/* What is made of a text in exactly so much room, or "no" if that is not enough. */
static std::string convert(const std::string &utf8, size_t room)
{
    std::unique_ptr<char[]> source(new char[utf8.size()]), dest(new char[room]);
    memcpy(source.get(), utf8.data(), utf8.size());
    size_t length = 1;
    if (!vel_normalform_compose(source.get(), utf8.size(), dest.get(), room, &length)) {
        FUZZ_REQUIRE(length == 0);
        return "no";
    }
    FUZZ_REQUIRE(length <= room);
    return std::string(dest.get(), length);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string utf8(data, data + std::min<size_t>(size, 1024));
    const std::string expected = naive::normalize(utf8);
    FUZZ_REQUIRE(convert(utf8, expected.size()) == expected);
    FUZZ_REQUIRE(expected.empty() || convert(utf8, expected.size() - 1) == "no");
    FUZZ_REQUIRE(convert(expected, expected.size()) == expected);

    const std::string name = utf8.c_str();
    const std::string expectedname = naive::normalize(name);
    char *nfc = vel_utf8dir_nfd_to_nfc(name.c_str());
    FUZZ_REQUIRE((nfc != nullptr) == (expectedname.size() <= name.size()));
    FUZZ_REQUIRE(!nfc || nfc == expectedname);
    vel_free(nfc);
    return 0;
}
