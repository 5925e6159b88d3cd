#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <utf8proc.h>

#include <vellib/velmalloc.h>

#include "io/velnormalform_internal.h"
#include "io/velutf8dir_internal.h"
#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/normaltest.h"
#include "support/utf8model.h"

using support::in_hex;
using support::utf8_encode;
using lines = std::vector<support::log_line>;

/* Normal form C of names, and of any text. */
class Velnormalform : public testing::Test {
  protected:
    void TearDown() override
    {
        EXPECT_EQ(log.take(), (lines{}));
    }

    /* The text in normal form, or nothing where it does not fit in as many bytes. */
    std::optional<std::string> convert(const std::string &text)
    {
        char *converted = vel_utf8dir_nfd_to_nfc(text.c_str());
        if (!converted) {
            EXPECT_EQ(log.take(),
                      (lines{{"io/velutf8dir", 7, "unable to convert NFD string to NFC"}}));
            return {};
        }
        EXPECT_NE(converted, text.c_str());
        std::string result = converted;
        vel_free(converted);
        return result;
    }

    /* The normal form is this, unless it is longer than the text. */
    void expect(const std::string &text, const std::string &normal)
    {
        const std::optional<std::string> converted = convert(text);
        if (normal.size() > text.size())
            EXPECT_EQ(converted, std::nullopt) << in_hex(text);
        else if (converted != normal)
            ADD_FAILURE() << in_hex(text) << " gives " << in_hex(converted.value_or("nothing"))
                          << " and not " << in_hex(normal);
    }

    /* What another implementation says. It takes U+11A7, which is no consonant, for the lack of one
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

    /* Whether compose gives this in so much room, and writes nothing behind it. */
    static std::optional<std::string> compose(const std::string &text, size_t room)
    {
        const std::unique_ptr<char[]> dest(new char[room]);
        size_t length = 77;
        if (!vel_normalform_compose(text.data(), text.size(), dest.get(), room, &length)) {
            EXPECT_EQ(length, 0u);
            return {};
        }
        return std::string(dest.get(), length);
    }

    support::log_capture log;
};

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

TEST_F(Velnormalform, ConformanceTest)
{
    for (const support::normal_row &row : support::normal_rows()) {
        SCOPED_TRACE(row.number);
        for (int column : {0, 1, 2})
            expect(row.columns[column], row.columns[1]);
        for (int column : {3, 4})
            expect(row.columns[column], row.columns[3]);
    }
}

/* The conformance test says that every character it does not list changes in no form. There are some
 * whose normal form takes more bytes than they do. */
TEST_F(Velnormalform, EveryCharacter)
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
TEST_F(Velnormalform, EveryCharacterInCompany)
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
TEST_F(Velnormalform, RandomTexts)
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

struct name_case {
    const char *name;
    const char *text;
    const char *normal;
};

static const name_case kNameCases[] = {
    {"Empty", "", ""},
    {"Ascii", "name.txt", "name.txt"},
    {"Latin", "e\xCC\x81", "\xC3\xA9"},
    {"LatinComposed", "\xC3\xA9", "\xC3\xA9"},
    {"TwoMarks", "a\xCC\xA3\xCC\x82", "\xE1\xBA\xAD"},
    {"TwoMarksTheOtherWay", "a\xCC\x82\xCC\xA3", "\xE1\xBA\xAD"},
    {"SameClassTwice", "a\xCC\x81\xCC\x82", "\xC3\xA1\xCC\x82"},
    {"MarkAlone", "\xCC\x81", "\xCC\x81"},
    {"MarkInFront",
     "\xCC\x81"
     "e\xCC\x81",
     "\xCC\x81\xC3\xA9"},
    {"HangulTwo", "\xE1\x84\x80\xE1\x85\xA1", "\xEA\xB0\x80"},
    {"HangulThree", "\xE1\x84\x80\xE1\x85\xA1\xE1\x86\xA8", "\xEA\xB0\x81"},
    {"HangulSyllableAndLast", "\xEA\xB0\x80\xE1\x86\xA8", "\xEA\xB0\x81"},
    {"HangulVowelAlone", "\xE1\x85\xA1\xE1\x86\xA8", "\xE1\x85\xA1\xE1\x86\xA8"},
    /* U+11A7 is no last consonant */
    {"HangulNoLast", "\xEA\xB0\x80\xE1\x86\xA7", "\xEA\xB0\x80\xE1\x86\xA7"},
    {"HangulNoLastBesideAnother", "\xEA\xB0\x80\xE1\x86\xA7\xEA\xB0\x80\xE1\x86\xA8",
     "\xEA\xB0\x80\xE1\x86\xA7\xEA\xB0\x81"},
    {"Singleton", "\xE2\x84\xAB", "\xC3\x85"},
    {"Kana", "\xE3\x81\x8B\xE3\x82\x99", "\xE3\x81\x8C"},
    {"NotCompatibility", "\xEF\xAC\x81", "\xEF\xAC\x81"},
};

TEST_F(Velnormalform, Names)
{
    for (const name_case &one : kNameCases) {
        SCOPED_TRACE(one.name);
        EXPECT_EQ(convert(one.text), one.normal);
    }
}

/* What counts is the whole: what one character grows by, others may make up for. */
TEST_F(Velnormalform, GrowthCountsOverAll)
{
    const std::string grows = "\xE0\xA5\x98"; /* U+0958, by 3 bytes */
    const std::string shrinks = "e\xCC\x81";  /* by 1 byte */
    const std::string grown = "\xE0\xA4\x95\xE0\xA4\xBC", shrunk = "\xC3\xA9";
    EXPECT_EQ(convert(grows), std::nullopt);
    EXPECT_EQ(convert(shrinks + shrinks + grows), std::nullopt);
    EXPECT_EQ(convert(grows + shrinks + shrinks), std::nullopt);
    EXPECT_EQ(convert(shrinks + shrinks + shrinks + grows), shrunk + shrunk + shrunk + grown);
    EXPECT_EQ(convert(grows + shrinks + shrinks + shrinks), grown + shrunk + shrunk + shrunk);
}

/* A letter with so many marks that no name could hold them, in the worst order. */
TEST_F(Velnormalform, ManyMarks)
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

TEST_F(Velnormalform, AnyBytes)
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

TEST_F(Velnormalform, CutTexts)
{
    const std::string text = "e\xCC\x81\xE1\x84\x80\xE1\x85\xA1\xF0\x9D\x85\x9F";
    for (size_t length = 0; length <= text.size(); length++) {
        const std::string cut = text.substr(0, length);
        expect(cut, support::utf8_decode(cut) ? other(cut) : cut);
    }
}

TEST_F(Velnormalform, RoomForNothing)
{
    EXPECT_EQ(compose("", 0), "");
    EXPECT_EQ(compose("a", 0), std::nullopt);
    EXPECT_EQ(compose("\xFF", 0), std::nullopt);
    EXPECT_EQ(compose("\xFF\xFF", 1), std::nullopt);
    EXPECT_EQ(compose("\xFF\xFF", 2), "\xFF\xFF");
    EXPECT_EQ(compose("e\xCC\x81", 1), std::nullopt);
    EXPECT_EQ(compose("e\xCC\x81", 2), "\xC3\xA9");
}

TEST(VelnormalformDeathTest, NameIsAsserted)
{
    EXPECT_DEATH(vel_utf8dir_nfd_to_nfc(nullptr),
                 support::asserts("nfd != NULL", "vel_utf8dir_nfd_to_nfc"));
}
