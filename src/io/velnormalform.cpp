/* Normalization Form C. Most names are in it already: they are ASCII, which eight bytes at a time
 * show, or consist of characters that the table knows to be settled. Only what is left is taken
 * apart, put into order and put together again (UAX #15, 1.3). */
#include "io/velnormalform_internal.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

#include <vellib/vellimit.h>
#include <vellib/velmalloc.h>

#include "io/velnormalform_table.h"

/* Syllables of Hangul are composed of a leading consonant, a vowel and perhaps a trailing one, all
 * by computation (The Unicode Standard, 3.12). */
static constexpr uint32_t vel_hangul_syllable = 0xac00, vel_hangul_leading = 0x1100,
                          vel_hangul_vowel = 0x1161, vel_hangul_trailing = 0x11a7;
static constexpr uint32_t vel_hangul_leadings = 19, vel_hangul_vowels = 21,
                          vel_hangul_trailings = 28;

/* A character on its way: its combining class from bit 56 on, its place in the text from bit 21 on,
 * and the code point. So plain numbers sort by class, and stably. */
using vel_normalform_item = uint64_t;

static uint32_t vel_normalform_character(vel_normalform_item item)
{
    return item & 0x1fffff;
}

static unsigned int vel_normalform_class(vel_normalform_item item)
{
    return static_cast<unsigned int>(item >> 56);
}

static const vel_normalform_record &vel_normalform_lookup(uint32_t character)
{
    if (character >= vel_normalform_end)
        return vel_normalform_records[0];
    const auto &page =
        vel_normalform_indexes[vel_normalform_pages[character >> vel_normalform_shift]];
    return vel_normalform_records[page[character & ((1u << vel_normalform_shift) - 1)]];
}

/* The number of bytes at the start that are ASCII. */
static size_t vel_normalform_ascii_length(const char *utf8, size_t len)
{
    size_t pos = 0;
    for (uint64_t word; len - pos >= sizeof(word); pos += sizeof(word)) {
        memcpy(&word, utf8 + pos, sizeof(word));
        if (word & 0x8080808080808080)
            break;
    }
    while (pos < len && !(utf8[pos] & 0x80))
        pos++;
    return pos;
}

/* Reads the character at utf8. Returns its length, or 0 if it is not valid. */
static size_t vel_normalform_read(const char *utf8, size_t len, uint32_t *characterptr)
{
    static constexpr uint32_t lowest[] = {0, 0, 0x80, 0x800, 0x10000}; /* of each length */
    const auto first = static_cast<unsigned char>(utf8[0]);
    *characterptr = first;
    if (first < 0x80)
        return 1;
    const size_t count = first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    if (first < 0xc0 || first > 0xf7 || count > len)
        return 0;
    uint32_t character = first & (0x7fu >> count);
    for (size_t i = 1; i < count; i++) {
        if ((utf8[i] & 0xc0) != 0x80)
            return 0;
        character = character << 6 | (utf8[i] & 0x3f);
    }
    *characterptr = character;
    const bool surrogate = character >= 0xd800 && character <= 0xdfff;
    return character >= lowest[count] && character <= 0x10ffff && !surrogate ? count : 0;
}

static size_t vel_normalform_utf8_length(uint32_t character)
{
    return character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
}

static void vel_normalform_write(char *dest, uint32_t character, size_t count)
{
    static constexpr unsigned char marks[] = {0, 0, 0xc0, 0xe0, 0xf0};
    for (size_t i = count; i > 1; character >>= 6)
        dest[--i] = static_cast<char>(0x80 | (character & 0x3f));
    dest[0] = static_cast<char>(marks[count] | character);
}

/* Tells whether a text has to be worked on: it is valid, and not known to be in the form. */
static bool vel_normalform_unsettled(const char *utf8, size_t len)
{
    bool unsettled = false;
    unsigned int lastclass = 0;
    for (size_t pos = 0; pos < len;) {
        uint32_t character;
        const size_t count = vel_normalform_read(utf8 + pos, len - pos, &character);
        if (count == 0)
            return false;
        pos += count;
        const vel_normalform_record &record = vel_normalform_lookup(character);
        if (record.unsettled || (record.combiningclass != 0 && record.combiningclass < lastclass))
            unsettled = true;
        lastclass = record.combiningclass;
    }
    return unsettled;
}

/* Room for a text of len bytes in full decomposition: a character of two bytes or more has four
 * parts at most, and ASCII stands for itself. */
static constexpr size_t vel_normalform_capacity(size_t len)
{
    return 2 * len;
}

/* Full canonical decomposition of a valid text. Returns the number of items. */
static size_t vel_normalform_decompose(const char *utf8, size_t len, vel_normalform_item *items)
{
    size_t count = 0;
    const auto add = [&](uint32_t character) {
        const uint64_t combiningclass = vel_normalform_lookup(character).combiningclass;
        items[count] = combiningclass << 56 | static_cast<uint64_t>(count) << 21 | character;
        count++;
    };
    for (size_t pos = 0; pos < len;) {
        uint32_t character;
        pos += vel_normalform_read(utf8 + pos, len - pos, &character);
        const uint32_t syllable = character - vel_hangul_syllable;
        const vel_normalform_record &record = vel_normalform_lookup(character);
        if (syllable < vel_hangul_leadings * vel_hangul_vowels * vel_hangul_trailings) {
            const uint32_t vowel = syllable / vel_hangul_trailings;
            add(vel_hangul_leading + vowel / vel_hangul_vowels);
            add(vel_hangul_vowel + vowel % vel_hangul_vowels);
            if (syllable % vel_hangul_trailings != 0)
                add(vel_hangul_trailing + syllable % vel_hangul_trailings);
        } else if (record.length == 0) {
            add(character);
        } else {
            for (uint32_t part : std::span(vel_normalform_parts + record.start, record.length))
                add(part);
        }
    }
    return count;
}

/* Puts each row of combining characters into the order of their classes. */
static void vel_normalform_reorder(std::span<vel_normalform_item> items)
{
    const auto combining = [](vel_normalform_item item) { return vel_normalform_class(item) != 0; };
    for (auto begin = items.begin(); begin != items.end();) {
        begin = std::find_if(begin, items.end(), combining);
        const auto end = std::find_if_not(begin, items.end(), combining);
        std::sort(begin, end);
        begin = end;
    }
}

/* The character that two others are composed to, or 0. */
static uint32_t vel_normalform_pair_up(uint32_t first, uint32_t second)
{
    const uint32_t leading = first - vel_hangul_leading, vowel = second - vel_hangul_vowel;
    if (leading < vel_hangul_leadings && vowel < vel_hangul_vowels)
        return vel_hangul_syllable + (leading * vel_hangul_vowels + vowel) * vel_hangul_trailings;

    const uint32_t syllable = first - vel_hangul_syllable, trailing = second - vel_hangul_trailing;
    if (syllable < vel_hangul_leadings * vel_hangul_vowels * vel_hangul_trailings &&
        syllable % vel_hangul_trailings == 0 && trailing - 1 < vel_hangul_trailings - 1)
        return first + trailing;

    const auto *found =
        std::lower_bound(std::begin(vel_normalform_pairs), std::end(vel_normalform_pairs), 0,
                         [=](const vel_normalform_pair &pair, int) {
                             return pair.first != first ? pair.first < first : pair.second < second;
                         });
    if (found == std::end(vel_normalform_pairs) || found->first != first || found->second != second)
        return 0;
    return found->composite;
}

/* Canonical composition in place. A starter is a character of class 0; what follows it composes
 * with it unless something that stays in between is of the same class, or a starter. Returns the
 * number of items that are left. */
static size_t vel_normalform_recompose(std::span<vel_normalform_item> items)
{
    size_t count = 0, starter = 0;
    bool started = false;
    unsigned int lastclass = 0;
    for (const vel_normalform_item item : items) {
        const unsigned int itemclass = vel_normalform_class(item);
        const bool adjacent = starter + 1 == count;
        if (started && (adjacent || lastclass < itemclass)) {
            const uint32_t composite = vel_normalform_pair_up(
                vel_normalform_character(items[starter]), vel_normalform_character(item));
            if (composite != 0) {
                items[starter] = composite;
                continue;
            }
        }
        items[count] = item;
        lastclass = itemclass;
        if (itemclass == 0) {
            starter = count;
            started = true;
        }
        count++;
    }
    return count;
}

static bool vel_normalform_encode(std::span<const vel_normalform_item> items, char *dest,
                                  size_t room, size_t *lengthptr)
{
    size_t length = 0;
    for (const vel_normalform_item item : items) {
        const uint32_t character = vel_normalform_character(item);
        const size_t count = vel_normalform_utf8_length(character);
        if (count > room - length)
            return false;
        vel_normalform_write(dest + length, character, count);
        length += count;
    }
    *lengthptr = length;
    return true;
}

static bool vel_normalform_convert(const char *utf8, size_t len, vel_normalform_item *items,
                                   char *dest, size_t room, size_t *lengthptr)
{
    const size_t parts = vel_normalform_decompose(utf8, len, items);
    vel_normalform_reorder({items, parts});
    const size_t count = vel_normalform_recompose({items, parts});
    return vel_normalform_encode({items, count}, dest, room, lengthptr);
}

/* The same with a block for the items, if the text is longer than a file name. */
static bool vel_normalform_convert_any(const char *utf8, size_t len, char *dest, size_t room,
                                       size_t *lengthptr)
{
    vel_normalform_item few[vel_normalform_capacity(256)];
    if (vel_normalform_capacity(len) <= std::size(few))
        return vel_normalform_convert(utf8, len, few, dest, room, lengthptr);

    if (len > vel_limit_max_size_t() / vel_normalform_capacity(sizeof(vel_normalform_item)))
        return false;
    auto *items = static_cast<vel_normalform_item *>(
        vel_malloc(vel_normalform_capacity(len) * sizeof(vel_normalform_item)));
    if (!items)
        return false;
    const bool converted = vel_normalform_convert(utf8, len, items, dest, room, lengthptr);
    vel_free(items);
    return converted;
}

bool vel_normalform_compose(const char *utf8, size_t len, char *dest, size_t room,
                            size_t *lengthptr)
{
    *lengthptr = 0;
    size_t start = vel_normalform_ascii_length(utf8, len);
    if (start == len || !vel_normalform_unsettled(utf8 + start, len - start)) {
        if (len > room)
            return false;
        memcpy(dest, utf8, len);
        *lengthptr = len;
        return true;
    }
    if (start > 0)
        start--; /* the last of ASCII may get an accent */
    if (start > room)
        return false;
    memcpy(dest, utf8, start);
    size_t length;
    if (!vel_normalform_convert_any(utf8 + start, len - start, dest + start, room - start, &length))
        return false;
    *lengthptr = start + length;
    return true;
}
