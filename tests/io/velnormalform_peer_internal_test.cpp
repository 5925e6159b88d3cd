#include <cstdint>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <utf8proc.h>

#include "support/normalfixture.h"

using support::utf8_encode;

/* Compared with another implementation. */
class VelnormalformPeer : public support::normal_fixture {};

/* What utf8proc says. It takes U+11A7, which is no consonant, for the lack of one
 * and drops it (utf8proc 2.8); no text for it may have that behind a syllable. */
static std::string other(const std::string &text)
{
    utf8proc_uint8_t *result = nullptr;
    const auto length =
        utf8proc_map(reinterpret_cast<const utf8proc_uint8_t *>(text.data()),
                     static_cast<utf8proc_ssize_t>(text.size()), &result,
                     static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
    if (length < 0)
        abort();
    std::string normal(reinterpret_cast<char *>(result), static_cast<size_t>(length));
    free(result);
    return normal;
}

static bool is_surrogate(uint32_t point)
{
    return point >= 0xD800 && point < 0xE000;
}

/* Combining marks, and the parts of which Hangul is composed. */
static bool is_combining(uint32_t point)
{
    return (point >= 0x1100 && point < 0x1200) ||
           utf8proc_get_property(static_cast<utf8proc_int32_t>(point))->combining_class != 0;
}

/* The conformance test says that every character it does not list changes in no form. There are some
 * whose normal form takes more bytes than they do. */
TEST_F(VelnormalformPeer, EveryCharacter)
{
    std::set<std::string> listed;
    for (const support::normal_row &row : support::normal_rows())
        if (row.oneforone)
            listed.insert(row.columns[0]);
    EXPECT_GT(listed.size(), 16000u);
    int grow = 0;
    for (uint32_t point = 1; point < 0x110000; point++) {
        if (is_surrogate(point))
            continue;
        const std::string text = utf8_encode(point);
        const std::string normal = other(text);
        expect(text, normal);
        EXPECT_TRUE(normal == text || listed.count(text)) << point;
        if (normal.size() > text.size()) {
            grow++;
            EXPECT_EQ(compose(text, normal.size()), normal);
            EXPECT_EQ(compose(text, normal.size() - 1), std::nullopt);
        }
    }
    EXPECT_EQ(grow, 92);
}

/* Each character between others that compose, are reordered, or keep it from composing. */
TEST_F(VelnormalformPeer, EveryCharacterInCompany)
{
    const std::string before[] = {"e", "\xE1\x84\x80", "\xEA\xB0\x80", "\xCC\x81"};
    const std::string behind[] = {"\xCC\x81", "\xE1\x85\xA1", "\xE3\x82\x99", "\xCC\xA3"};
    for (uint32_t point = 1; point < 0x30000; point++) {
        if (is_surrogate(point) || point == 0x11A7)
            continue;
        const std::string text = utf8_encode(point);
        /* most have nothing to do with all this, and one turn does for them */
        const bool concerned = is_combining(point) || other(text) != text;
        for (size_t i = concerned ? 0 : point % 4; i < 4; i += concerned ? 1 : 4) {
            expect(before[i] + text, other(before[i] + text));
            expect(text + behind[i], other(text + behind[i]));
        }
    }
}

/* Long runs of all that has anything to do with composition. */
TEST_F(VelnormalformPeer, RandomTexts)
{
    std::vector<std::string> pieces;
    for (uint32_t point = 1; point < 0x30000; point++) {
        if (is_surrogate(point) || (point >= 0xAC00 && point < 0xD7A4) || point == 0x11A7)
            continue;
        const std::string text = utf8_encode(point);
        if (is_combining(point) || other(text) != text)
            pieces.push_back(text);
    }
    ASSERT_GT(pieces.size(), 1500u);
    std::mt19937 random(15);
    for (int turn = 0; turn < 20000; turn++) {
        std::string text;
        for (unsigned count = random() % 30; count > 0; count--) {
            switch (random() % 6) {
            case 0:
                text += utf8_encode('A' + random() % 58);
                break;
            case 1:
                text +=
                    utf8_encode(random() % 2 ? 0x11A8 + random() % 0x58 : 0x1100 + random() % 0xA7);
                break;
            case 2:
                text += utf8_encode(0xAC00 + random() % (0xD7A4 - 0xAC00));
                break;
            default:
                text += pieces[random() % pieces.size()];
            }
        }
        const std::string normal = other(text);
        expect(text, normal);
        expect(normal, normal);
        EXPECT_EQ(compose(text, normal.size()), normal);
        if (!normal.empty()) {
            EXPECT_EQ(compose(text, normal.size() - 1), std::nullopt);
        }
    }
}

/* A letter with so many marks that no name could hold them, in the worst order. */
TEST_F(VelnormalformPeer, ManyMarks)
{
    for (const int count : {30, 31, 32, 33, 64, 100, 127, 128, 255, 256, 1000, 5000}) {
        std::string text = "a";
        for (int i = 0; i < count; i++)
            text += i % 2 ? "\xCC\xA3" : "\xCC\x82"; /* classes 230 and 220 */
        expect(text, other(text));
        expect(text + "\xE1\x84\x80" + text, other(text + "\xE1\x84\x80" + text));
    }
}

/* What is not valid UTF-8 comes out as it is, also where a part of it could be composed. */

TEST_F(VelnormalformPeer, AnyBytes)
{
    static const unsigned char interesting[] = {'e',  0x7F, 0x80, 0x81, 0x8F, 0x90, 0x9F, 0xA0,
                                                0xBF, 0xC0, 0xC1, 0xC3, 0xCC, 0xDF, 0xE0, 0xE1,
                                                0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xF8, 0xFE, 0xFF};
    const auto check = [this](const std::string &text) {
        expect(text, support::utf8_decode(text) ? other(text) : text);
    };
    for (int first = 1; first < 256; first++)
        for (int second = 1; second < 256; second++)
            check({'e', '\xCC', '\x81', static_cast<char>(first), static_cast<char>(second)});
    for (const unsigned char first : interesting)
        for (const unsigned char second : interesting)
            for (const unsigned char third : interesting)
                for (const unsigned char fourth : interesting)
                    if (first >= 0xE0)
                        check({static_cast<char>(first), static_cast<char>(second),
                               static_cast<char>(third), static_cast<char>(fourth), 'e', '\xCC',
                               '\x81'});
}

TEST_F(VelnormalformPeer, CutTexts)
{
    const std::string text = "e\xCC\x81\xE1\x84\x80\xE1\x85\xA1\xF0\x9D\x85\x9F";
    for (size_t length = 0; length <= text.size(); length++) {
        const std::string cut = text.substr(0, length);
        expect(cut, support::utf8_decode(cut) ? other(cut) : cut);
    }
}
