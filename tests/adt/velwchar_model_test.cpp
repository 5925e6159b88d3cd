#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/guardedpages.h"
#include "support/utf8model.h"

using namespace support;

/* By a cast, as wchar_t has a sign on some processors only. */
static constexpr wchar_t kDirt = static_cast<wchar_t>(-7);

static bool is_surrogate(uint32_t point)
{
    return point >= 0xD800 && point <= 0xDFFF;
}

template <typename Set> class VelwcharModel : public testing::Test {
  protected:
    VelwcharModel()
    {
        vel_log_stderr_disable(nullptr);
    }
    ~VelwcharModel() override
    {
        vel_log_uninit();
    }

    /* Whether the library and the model read a sequence alike. */
    static bool agrees(std::string_view sequence)
    {
        char text[8] = {};
        memcpy(text, sequence.data(), sequence.size());
        const auto expected = utf8_decode(text);
        wchar_t wide[8];
        size_t length = 8;
        const int result = Set::buffer_from_utf8(wide, &length, text);
        if (!expected)
            return result == -1 && length == 0;
        return result == 0 && length == expected->size() && wide[length] == 0 &&
               std::equal(expected->begin(), expected->end(), wide);
    }
};
TYPED_TEST_SUITE(VelwcharModel, wchar_sets, wchar_set_name);

TYPED_TEST(VelwcharModel, EveryCodePointAlone)
{
    for (uint32_t point = 1; point < 0x110000; point++) {
        const std::string encoded = utf8_encode(point);
        wchar_t wide[2] = {kDirt, kDirt};
        size_t length = 2;
        const int result = TypeParam::buffer_from_utf8(wide, &length, encoded.c_str());
        if (is_surrogate(point)) {
            ASSERT_EQ(result, -1) << point;
            continue;
        }
        ASSERT_EQ(result, 0) << point;
        ASSERT_EQ(length, 1u) << point;
        ASSERT_EQ(wide[0], static_cast<wchar_t>(point));
        ASSERT_EQ(wide[1], 0) << point;
        char *utf8 = TypeParam::to_utf8(wide);
        ASSERT_STREQ(utf8, encoded.c_str()) << point;
        vel_free(utf8);
    }
}

TYPED_TEST(VelwcharModel, EveryCodePointInOneText)
{
    std::string encoded;
    std::vector<wchar_t> points;
    for (uint32_t point = 1; point < 0x110000; point++) {
        if (is_surrogate(point))
            continue;
        encoded += utf8_encode(point);
        points.push_back(static_cast<wchar_t>(point));
    }
    wchar_t *wide = TypeParam::from_utf8(encoded.c_str());
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(TypeParam::strlen(wide), points.size());
    EXPECT_TRUE(std::equal(points.begin(), points.end(), wide));
    char *utf8 = TypeParam::to_utf8(wide);
    ASSERT_NE(utf8, nullptr);
    EXPECT_TRUE(utf8 == encoded); /* too long to print */
    vel_free(wide);
    vel_free(utf8);
}

TYPED_TEST(VelwcharModel, EverySurrogatePair)
{
    std::string encoded;
    std::vector<wchar_t> pairs;
    for (wchar_t first = 0xD800; first < 0xDC00; first++)
        for (wchar_t second = 0xDC00; second < 0xE000; second++) {
            pairs.push_back(first);
            pairs.push_back(second);
            encoded += utf8_encode(0x10000 + static_cast<uint32_t>(encoded.size() / 4));
        }
    pairs.push_back(0);
    char *utf8 = TypeParam::to_utf8(pairs.data());
    ASSERT_NE(utf8, nullptr);
    EXPECT_TRUE(utf8 == encoded);
    vel_free(utf8);
}

TYPED_TEST(VelwcharModel, EveryLoneSurrogateIsRefused)
{
    for (wchar_t surrogate = 0xD800; surrogate < 0xE000; surrogate++) {
        const wchar_t alone[] = {surrogate, 0}, before[] = {surrogate, 'a', 0};
        ASSERT_EQ(TypeParam::to_utf8(alone), nullptr) << static_cast<int>(surrogate);
        ASSERT_EQ(TypeParam::to_utf8(before), nullptr) << static_cast<int>(surrogate);
    }
}

/* A zero in the sequence ends the text, so shorter sequences are among the longer ones. */
TYPED_TEST(VelwcharModel, EverySequenceOfTwoBytes)
{
    for (uint32_t bytes = 0; bytes < 0x10000; bytes++) {
        const char text[] = {static_cast<char>(bytes >> 8), static_cast<char>(bytes)};
        ASSERT_TRUE(this->agrees({text, 2})) << in_hex({text, 2});
    }
}

/* The second set is the same source, so that it has a sample of these only, below. */
using VelwcharSequences = VelwcharModel<wchar_set>;

TEST_F(VelwcharSequences, EveryOneOfThreeBytesThatBeginsAsOne)
{
    for (uint32_t bytes = 0xC00000; bytes < 0x1000000; bytes++) {
        const char text[] = {static_cast<char>(bytes >> 16), static_cast<char>(bytes >> 8),
                             static_cast<char>(bytes)};
        ASSERT_TRUE(agrees({text, 3})) << in_hex({text, 3});
    }
}

/* All second bytes, and for the others those at which a rule begins or ends. */
TYPED_TEST(VelwcharModel, SequencesOfFourBytes)
{
    const std::string edges = {'\0',   '\x01', '\x7F', '\x80', '\x8F', '\x90',
                               '\x9F', '\xA0', '\xBF', '\xC0', '\xFF'};
    for (int first = 0xE0; first < 0x100; first++)
        for (int second = 0; second < 0x100; second++)
            for (const char third : edges)
                for (const char fourth : edges) {
                    const char text[] = {static_cast<char>(first), static_cast<char>(second), third,
                                         fourth};
                    ASSERT_TRUE(this->agrees({text, 4})) << in_hex({text, 4});
                }
}

/* The byte in front and behind: where a long run of one kind ends, at every distance. */
TYPED_TEST(VelwcharModel, RunsOfAscii)
{
    for (size_t front = 0; front < 70; front++)
        for (const char *middle : {"\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xFF", "\x80",
                                   "\xC2", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
            for (size_t behind = 0; behind < 70; behind += 3) {
                const std::string text =
                    std::string(front, 'a') + middle + std::string(behind, 'b');
                const auto expected = utf8_decode(text);
                wchar_t *wide = TypeParam::from_utf8(text.c_str());
                ASSERT_EQ(wide != nullptr, expected.has_value()) << in_hex(text);
                if (!wide)
                    continue;
                ASSERT_EQ(TypeParam::strlen(wide), expected->size());
                ASSERT_TRUE(std::equal(expected->begin(), expected->end(), wide));
                char *utf8 = TypeParam::to_utf8(wide);
                ASSERT_EQ(utf8, text);
                vel_free(wide);
                vel_free(utf8);
            }
}

/* Strings of each short length that end where the memory ends. */
TYPED_TEST(VelwcharModel, NothingIsReadBehindTheMemory)
{
    const guarded_pages pages;
    for (const std::string last : {"a", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xC3",
                                   "\xE2\x82", "\xF0\x9F\x98", "\xFF"})
        for (size_t front = 0; front < 140; front++) {
            const std::string text = std::string(front, 'a') + last;
            const auto expected = utf8_decode(text);
            const char *placed = static_cast<char *>(pages.place(text.c_str(), text.size() + 1));
            wchar_t *wide = TypeParam::from_utf8(placed);
            ASSERT_EQ(wide != nullptr, expected.has_value()) << in_hex(text);
            if (!wide)
                continue;
            const size_t size = (expected->size() + 1) * sizeof(wchar_t);
            const auto *placedwide = static_cast<wchar_t *>(pages.place(wide, size));
            vel_free(wide);
            ASSERT_EQ(TypeParam::strlen(placedwide), expected->size());
            char *utf8 = TypeParam::to_utf8(placedwide);
            ASSERT_EQ(utf8, text);
            vel_free(utf8);
        }
}

/* An array that ends where the memory ends is filled to its last word. */
TYPED_TEST(VelwcharModel, NothingIsWrittenBehindTheArray)
{
    const guarded_pages pages;
    const std::string text = std::string(70, 'a') + "\xC3\xA4" + std::string(70, 'b');
    const auto points = utf8_decode(text).value();
    for (size_t capacity = 0; capacity < 145; capacity++) {
        std::vector<wchar_t> dirt(capacity, kDirt);
        auto *wide = static_cast<wchar_t *>(pages.place(dirt.data(), capacity * sizeof(wchar_t)));
        size_t length = capacity;
        ASSERT_EQ(TypeParam::buffer_from_utf8(wide, &length, text.c_str()),
                  capacity < points.size() ? 1 : 0);
        ASSERT_EQ(length, points.size());
        const size_t stored = std::min(capacity, points.size());
        ASSERT_TRUE(std::equal(wide, wide + stored, points.begin())) << capacity;
        if (capacity > points.size()) {
            ASSERT_EQ(wide[points.size()], 0);
        }
        for (size_t i = points.size() + 1; i < capacity; i++)
            ASSERT_EQ(wide[i], kDirt) << capacity;
    }
}

/* Runs of each kind of character in any order, whole and with one byte changed. */
TYPED_TEST(VelwcharModel, RandomTexts)
{
    static const uint32_t limits[] = {1, 0x80, 0x800, 0x10000, 0x110000};
    std::mt19937 random{20261121};
    size_t refused = 0;
    for (int i = 0; i < 20000; i++) {
        std::string text;
        for (size_t runs = random() % 6; runs > 0; runs--) {
            const size_t kind = random() % 4;
            for (size_t left = random() % 40; left > 0; left--) {
                const uint32_t range = limits[kind + 1] - limits[kind];
                const uint32_t point = limits[kind] + static_cast<uint32_t>(random()) % range;
                text += utf8_encode(is_surrogate(point) ? 0xFFFD : point);
            }
        }
        if (i % 2 && !text.empty())
            text[random() % text.size()] = static_cast<char>(1 + random() % 255);
        const auto expected = utf8_decode(text);
        wchar_t *wide = TypeParam::from_utf8(text.c_str());
        ASSERT_EQ(wide != nullptr, expected.has_value()) << in_hex(text);
        refused += !wide;
        if (!wide)
            continue;
        ASSERT_EQ(TypeParam::strlen(wide), expected->size());
        ASSERT_TRUE(std::equal(expected->begin(), expected->end(), wide)) << in_hex(text);
        char *utf8 = TypeParam::to_utf8(wide);
        ASSERT_EQ(utf8, text);
        vel_free(wide);
        vel_free(utf8);
    }
    EXPECT_GT(refused, 5000u);
}
