#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/eachfailure.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/utf8model.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

using words = std::vector<wchar_t>;

/* By casts, as wchar_t has a sign on some processors only. */
static constexpr wchar_t kDirt = static_cast<wchar_t>(-7);
static constexpr wchar_t kAllBits = static_cast<wchar_t>(-1);

template <typename Set> class Velwchar : public testing::Test {
  protected:
    std::vector<log_line> line(const std::string &text)
    {
        return {{Set::module, 6, text}};
    }

    log_capture log;
};
TYPED_TEST_SUITE(Velwchar, wchar_sets, wchar_set_name);

/* Both take the result that a function allocated. */
static words take(wchar_t *wide)
{
    words taken(wide, wide + vel_wchar_strlen(wide));
    vel_free(wide);
    return taken;
}

static std::string take(char *utf8)
{
    std::string taken = utf8;
    vel_free(utf8);
    return taken;
}

TYPED_TEST(Velwchar, StrlenCountsToTheZero)
{
    EXPECT_EQ(TypeParam::strlen(L""), 0u);
    EXPECT_EQ(TypeParam::strlen(L"a"), 1u);
    EXPECT_EQ(TypeParam::strlen(L"ab\U0001F600\0c"), 3u);
    const wchar_t negative[] = {kAllBits, 0x100, 0};
    EXPECT_EQ(TypeParam::strlen(negative), 2u);
}

TYPED_TEST(Velwchar, AnEmptyStringConvertsInBothDirections)
{
    wchar_t *wide = TypeParam::from_utf8("");
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(wide[0], 0);
    vel_free(wide);

    char *utf8 = TypeParam::to_utf8(L"");
    ASSERT_NE(utf8, nullptr);
    EXPECT_EQ(utf8[0], 0);
    vel_free(utf8);
    EXPECT_THAT(this->log.take(), IsEmpty());
}

struct decoded_row {
    const char *utf8;
    words wide;
};

static const decoded_row kDecoded[] = {
    {"a", {'a'}},
    {"\x7F", {0x7F}},
    {"\xC2\x80", {0x80}},
    {"\xDF\xBF", {0x7FF}},
    {"\xE0\xA0\x80", {0x800}},
    {"\xEC\xBF\xBF", {0xCFFF}},
    {"\xED\x80\x80", {0xD000}},
    {"\xED\x9F\xBF", {0xD7FF}},
    {"\xEE\x80\x80", {0xE000}},
    {"\xEF\xBB\xBF", {0xFEFF}}, /* a byte order mark is a character */
    {"\xEF\xBF\xBF", {0xFFFF}},
    {"\xF0\x90\x80\x80", {0x10000}},
    {"\xF0\x9F\x98\x80", {0x1F600}},
    {"\xF3\xBF\xBF\xBF", {0xFFFFF}},
    {"\xF4\x80\x80\x80", {0x100000}},
    {"\xF4\x8F\xBF\xBF", {0x10FFFF}},
    {"a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z", {'a', 0xE4, 0x20AC, 0x1F600, 'z'}},
};

TYPED_TEST(Velwchar, ValidTextConvertsInBothDirections)
{
    for (const decoded_row &row : kDecoded) {
        SCOPED_TRACE(in_hex(row.utf8));
        wchar_t *wide = TypeParam::from_utf8(row.utf8);
        ASSERT_NE(wide, nullptr);
        EXPECT_EQ(take(wide), row.wide);

        words terminated = row.wide;
        terminated.push_back(0);
        char *utf8 = TypeParam::to_utf8(terminated.data());
        ASSERT_NE(utf8, nullptr);
        EXPECT_EQ(take(utf8), row.utf8);
    }
    EXPECT_THAT(this->log.take(), IsEmpty());
}

struct refused_row {
    const char *utf8;
    const char *line;
};

static const refused_row kRefused[] = {
    {"\xC0\x80", "invalid UTF-8 first byte 0xc0"},
    {"\xC1\xBF", "invalid UTF-8 first byte 0xc1"},
    {"\x80", "invalid UTF-8 first byte 0x80"},
    {"\xBF", "invalid UTF-8 first byte 0xbf"},
    {"\xF8\x88\x80\x80\x80", "invalid UTF-8 first byte 0xf8"},
    {"\xFF", "invalid UTF-8 first byte 0xff"},
    {"\xF5\x80\x80\x80", "invalid UTF-8 first byte 0xf5 in a 4-byte sequence"},
    {"\xF7", "invalid UTF-8 first byte 0xf7 in a 4-byte sequence"},
    {"\xE0\x9F\xBF", "invalid UTF-8 second byte 0x9f in a 3-byte sequence starting with 0xe0"},
    {"\xE0\x80", "invalid UTF-8 second byte 0x80 in a 3-byte sequence starting with 0xe0"},
    {"\xED\xA0\x80", "invalid UTF-8 second byte 0xa0 in a 3-byte sequence starting with 0xed"},
    {"\xED\xBF", "invalid UTF-8 second byte 0xbf in a 3-byte sequence starting with 0xed"},
    {"\xF0\x8F\xBF\xBF", "invalid UTF-8 second byte 0x8f in a 4-byte sequence starting with 0xf0"},
    {"\xF0\x80", "invalid UTF-8 second byte 0x80 in a 4-byte sequence starting with 0xf0"},
    {"\xF4\x90\x80\x80", "invalid UTF-8 second byte 0x90 in a 4-byte sequence starting with 0xf4"},
    {"\xF4\xBF", "invalid UTF-8 second byte 0xbf in a 4-byte sequence starting with 0xf4"},
    /* What is no continuation byte at all is named as that, also in second place. */
    {"\xE0", "invalid UTF-8 continuation byte 0x00"},
    {"\xE0\x7F\x80", "invalid UTF-8 continuation byte 0x7f"},
    {"\xED\xC0\x80", "invalid UTF-8 continuation byte 0xc0"},
    {"\xF0\x7F", "invalid UTF-8 continuation byte 0x7f"},
    {"\xF4\xC0", "invalid UTF-8 continuation byte 0xc0"},
    {"\xC2", "invalid UTF-8 continuation byte 0x00"},
    {"\xC2"
     "A",
     "invalid UTF-8 continuation byte 0x41"},
    {"\xE2\x82", "invalid UTF-8 continuation byte 0x00"},
    {"\xE2\x82\xE2\x82\xAC", "invalid UTF-8 continuation byte 0xe2"},
    {"\xF0\x9F\x98", "invalid UTF-8 continuation byte 0x00"},
    {"\xF1\x80\x80\x7F", "invalid UTF-8 continuation byte 0x7f"},
    {"\xF3\x80\xFF\x80", "invalid UTF-8 continuation byte 0xff"},
    {"valid \xC3\xA4 in front of \xFE", "invalid UTF-8 first byte 0xfe"},
    {"only the first \xC0 of \xC1 two", "invalid UTF-8 first byte 0xc0"},
};

TYPED_TEST(Velwchar, InvalidTextIsRefusedWithOneLine)
{
    for (const refused_row &row : kRefused) {
        SCOPED_TRACE(in_hex(row.utf8));
        EXPECT_EQ(TypeParam::from_utf8(row.utf8), nullptr);
        EXPECT_EQ(this->log.take(), this->line(row.line));

        wchar_t wide[32];
        size_t length = 32;
        EXPECT_EQ(TypeParam::buffer_from_utf8(wide, &length, row.utf8), -1);
        EXPECT_EQ(length, 0u);
        EXPECT_EQ(this->log.take(), this->line(row.line));
    }
}

/* The line for the first malformed sequence of a text that has one, read from the same table. */
static std::string malformed_line(const std::string &text)
{
    const auto line = [](const char *kind, uint8_t byte, const std::string &more) {
        return std::string("invalid UTF-8 ") + kind + " byte 0x" +
               in_hex(std::string(1, static_cast<char>(byte))) + more;
    };
    for (size_t i = 0; i < text.size();) {
        const auto first = static_cast<uint8_t>(text[i]);
        const auto second = static_cast<uint8_t>(text.c_str()[i + 1]);
        if ((first >= 0x80 && first < 0xC2) || first >= 0xF8)
            return line("first", first, "");
        if (first >= 0xF5)
            return line("first", first, " in a 4-byte sequence");
        if (first == 0xE0 && second >= 0x80 && second <= 0x9F)
            return line("second", second, " in a 3-byte sequence starting with 0xe0");
        if (first == 0xED && second >= 0xA0 && second <= 0xBF)
            return line("second", second, " in a 3-byte sequence starting with 0xed");
        if (first == 0xF0 && second >= 0x80 && second <= 0x8F)
            return line("second", second, " in a 4-byte sequence starting with 0xf0");
        if (first == 0xF4 && second >= 0x90 && second <= 0xBF)
            return line("second", second, " in a 4-byte sequence starting with 0xf4");
        i++;
        for (int left = first < 0xC2   ? 0
                        : first < 0xE0 ? 1
                        : first < 0xF0 ? 2
                                       : 3;
             left > 0; left--) {
            const auto next = static_cast<uint8_t>(text.c_str()[i]);
            if ((next & 0xC0) != 0x80)
                return line("continuation", next, "");
            i++;
        }
    }
    return "";
}

TYPED_TEST(Velwchar, EveryKindOfMalformedSequenceHasItsLine)
{
    const std::string edges = {'\x01', '\x7F', '\x80', '\x8F', '\x90',
                               '\x9F', '\xA0', '\xBF', '\xC0', '\xFF'};
    std::vector<std::string> texts;
    for (int first = 0x80; first < 0x100; first++) {
        const std::string one(1, static_cast<char>(first));
        texts.push_back(one);
        for (const char second : edges) {
            texts.push_back(one + second);
            texts.push_back(one + second + '\xBF');
            texts.push_back(one + second + "\xBF\xC0");
        }
    }
    for (const std::string &text : texts) {
        const std::string expected = malformed_line(text);
        wchar_t *wide = TypeParam::from_utf8(text.c_str());
        EXPECT_EQ(wide == nullptr, !expected.empty()) << in_hex(text);
        vel_free(wide);
        EXPECT_EQ(this->log.take(),
                  expected.empty() ? std::vector<log_line>{} : this->line(expected))
            << in_hex(text);
    }
}

/* The string of two characters into arrays of each size; what is not written stays. */
TYPED_TEST(Velwchar, TheCapacityDecidesTheResultAndTheTerminator)
{
    static const struct {
        size_t capacity;
        int result;
        words stored;
    } rows[] = {
        {0, 1, {kDirt, kDirt, kDirt, kDirt}}, {1, 1, {0x20AC, kDirt, kDirt, kDirt}},
        {2, 0, {0x20AC, 'x', kDirt, kDirt}},  {3, 0, {0x20AC, 'x', 0, kDirt}},
        {4, 0, {0x20AC, 'x', 0, kDirt}},
    };
    for (const auto &row : rows) {
        words wide(4, kDirt);
        size_t length = row.capacity;
        EXPECT_EQ(TypeParam::buffer_from_utf8(wide.data(), &length, "\xE2\x82\xACx"), row.result)
            << row.capacity;
        EXPECT_EQ(length, 2u);
        EXPECT_EQ(wide, row.stored) << row.capacity;
    }
    size_t length = 0;
    EXPECT_EQ(TypeParam::buffer_from_utf8(nullptr, &length, "\xE2\x82\xACx"), 1);
    EXPECT_EQ(length, 2u);
    EXPECT_THAT(this->log.take(), IsEmpty());
}

TYPED_TEST(Velwchar, AnEmptyStringFitsIntoNothing)
{
    size_t length = 0;
    EXPECT_EQ(TypeParam::buffer_from_utf8(nullptr, &length, ""), 0);
    EXPECT_EQ(length, 0u);

    wchar_t wide = kDirt;
    EXPECT_EQ(TypeParam::buffer_from_utf8(&wide, &length, ""), 0);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(wide, kDirt);
    length = 1;
    EXPECT_EQ(TypeParam::buffer_from_utf8(&wide, &length, ""), 0);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(wide, 0);
}

TYPED_TEST(Velwchar, WhatDoesNotFitIsValidatedToo)
{
    wchar_t wide = kDirt;
    size_t length = 1;
    EXPECT_EQ(TypeParam::buffer_from_utf8(&wide, &length, "ab\xFF"), -1);
    EXPECT_EQ(length, 0u);
    length = 0;
    EXPECT_EQ(TypeParam::buffer_from_utf8(nullptr, &length, "ab\xFF"), -1);
    EXPECT_EQ(length, 0u);
    EXPECT_THAT(this->log.take(),
                testing::Each(log_line{TypeParam::module, 6, "invalid UTF-8 first byte 0xff"}));
}

/* Nothing is read behind the terminator: the address sanitizer watches the block. */
TYPED_TEST(Velwchar, ACutOffSequenceEndsTheReading)
{
    for (const char *text : {"\xC2", "\xE2", "\xE2\x82", "\xF0", "\xF0\x9F", "\xF0\x9F\x98"}) {
        for (size_t front = 0; front < 40; front++) {
            const std::string whole = std::string(front, 'x') + text;
            char *exact = new char[whole.size() + 1];
            memcpy(exact, whole.c_str(), whole.size() + 1);
            EXPECT_EQ(TypeParam::from_utf8(exact), nullptr);
            EXPECT_EQ(this->log.take(), this->line("invalid UTF-8 continuation byte 0x00"));
            delete[] exact;
        }
    }
}

struct encoded_row {
    words wide;
    const char *utf8;
};

constexpr wchar_t kTop = static_cast<wchar_t>(0x80000000u);

static const encoded_row kEncoded[] = {
    {{0xD83D, 0xDE00}, "\xF0\x9F\x98\x80"},
    {{0xD800, 0xDC00}, "\xF0\x90\x80\x80"},
    {{0xDBFF, 0xDFFF}, "\xF4\x8F\xBF\xBF"},
    {{'a', 0xD83D, 0xDE00, 0xD83D, 0xDE01, 'b'},
     "a\xF0\x9F\x98\x80\xF0\x9F\x98\x81"
     "b"},
    {{kTop | 0x41}, "A"},
    {{kTop | 0x20AC, 'x'}, "\xE2\x82\xACx"},
    {{kTop | 0x10FFFF}, "\xF4\x8F\xBF\xBF"},
    {{kTop | 0xDC00}, "\xED\xB0\x80"}, /* a negative number is not in the range of surrogates */
};

TYPED_TEST(Velwchar, PairsAndTopBitsAreTaken)
{
    for (const encoded_row &row : kEncoded) {
        words terminated = row.wide;
        terminated.push_back(0);
        char *utf8 = TypeParam::to_utf8(terminated.data());
        ASSERT_NE(utf8, nullptr) << row.utf8;
        EXPECT_EQ(take(utf8), row.utf8);
    }
    EXPECT_THAT(this->log.take(), IsEmpty());
}

struct unencodable_row {
    words wide;
    const char *line;
};

static const unencodable_row kUnencodable[] = {
    {{0xDE00},
     "unexpected occurrence of a second part of the surrogate 0xde00 without a preceeding first "
     "part"},
    {{0xDC00, 0xD800},
     "unexpected occurrence of a second part of the surrogate 0xdc00 without a preceeding first "
     "part"},
    {{0xD83D, 0xDE00, 0xDFFF},
     "unexpected occurrence of a second part of the surrogate 0xdfff without a preceeding first "
     "part"},
    {{0xD83D},
     "end of wide character string in the middle of surrogate pairs, first surrogate 0xd83d"},
    {{'a', 0xDBFF},
     "end of wide character string in the middle of surrogate pairs, first surrogate 0xdbff"},
    {{0xD800, 'A', 0xDC00},
     "invalid second part of the surrogate 0x0041 outside the valid range 0xdc00-0xdfff"},
    {{0xD800, 0xDBFF},
     "invalid second part of the surrogate 0xdbff outside the valid range 0xdc00-0xdfff"},
    {{0xD800, 0xE000},
     "invalid second part of the surrogate 0xe000 outside the valid range 0xdc00-0xdfff"},
    {{0xD800, kTop | 0xDC00},
     "invalid second part of the surrogate 0x8000dc00 outside the valid range 0xdc00-0xdfff"},
    {{0x110000}, "invalid wide character 0x00110000"},
    {{'a', 0x110000, 0x110001}, "invalid wide character 0x00110000"},
    {{0x7FFFFFFF}, "invalid wide character 0x7fffffff"},
    {{kTop | 0x110000}, "invalid wide character 0x00110000"},
    {{kAllBits}, "invalid wide character 0x7fffffff"},
};

TYPED_TEST(Velwchar, WhatHasNoUtf8IsRefusedWithOneLine)
{
    for (const unencodable_row &row : kUnencodable) {
        words terminated = row.wide;
        terminated.push_back(0);
        EXPECT_EQ(TypeParam::to_utf8(terminated.data()), nullptr) << row.line;
        EXPECT_EQ(this->log.take(), this->line(row.line));
    }
}

TYPED_TEST(Velwchar, MissingMemoryGivesNullAndNoLine)
{
    const auto tried = each_failure(this->log, "", [] {
        wchar_t *wide = TypeParam::from_utf8("abc");
        const bool succeeded = wide != nullptr;
        vel_free(wide);
        return succeeded;
    });
    EXPECT_THAT(tried, ElementsAre(IsEmpty()));
    EXPECT_THAT(each_failure(this->log, "",
                             [] {
                                 char *utf8 = TypeParam::to_utf8(L"abc");
                                 const bool succeeded = utf8 != nullptr;
                                 vel_free(utf8);
                                 return succeeded;
                             }),
                ElementsAre(IsEmpty()));
}

/* Measured, then filled: one block of the exact size. */
TYPED_TEST(Velwchar, OneAllocationOfTheExactSize)
{
    {
        malloc_watch watch;
        vel_free(TypeParam::from_utf8("a\xE2\x82\xAC"));
        EXPECT_THAT(malloc_watch::sizes(), ElementsAre(3 * sizeof(wchar_t)));
    }
    {
        malloc_watch watch;
        vel_free(TypeParam::to_utf8(L"a\u20AC"));
        EXPECT_THAT(malloc_watch::sizes(), ElementsAre(5));
    }
}

template <typename Set> static bool wchar_life()
{
    wchar_t *wide = Set::from_utf8("a\xE2\x82\xAC");
    char *utf8 = wide ? Set::to_utf8(wide) : nullptr;
    if (utf8) {
        EXPECT_STREQ(utf8, "a\xE2\x82\xAC");
    }
    vel_free(wide);
    vel_free(utf8);
    return utf8 != nullptr;
}

template <typename Set> class VelwcharOom : public testing::Test {
};
TYPED_TEST_SUITE(VelwcharOom, wchar_sets, wchar_set_name);

TYPED_TEST(VelwcharOom, Life)
{
    vel_oom_drive(wchar_life<TypeParam>);
}

template <typename Set> using VelwcharDeathTest = Velwchar<Set>;
TYPED_TEST_SUITE(VelwcharDeathTest, wchar_sets, wchar_set_name);

TYPED_TEST(VelwcharDeathTest, Arguments)
{
    const std::string prefix = TypeParam::prefix;
    wchar_t wide[2];
    size_t length = 1;
    EXPECT_DEATH(TypeParam::buffer_from_utf8(wide, nullptr, "a"),
                 asserts("warraylenptr != NULL", prefix + "buffer_from_utf8"));
    EXPECT_DEATH(TypeParam::buffer_from_utf8(nullptr, &length, "a"),
                 asserts("warray != NULL || *warraylenptr == 0", prefix + "buffer_from_utf8"));
    EXPECT_DEATH(TypeParam::buffer_from_utf8(wide, &length, nullptr),
                 asserts("utf8 != NULL", prefix + "buffer_from_utf8"));
    EXPECT_DEATH(TypeParam::from_utf8(nullptr),
                 asserts("utf8 != NULL", prefix + "buffer_from_utf8"));
    EXPECT_DEATH(TypeParam::to_utf8(nullptr),
                 asserts("wstring != NULL", prefix + "to_utf8_buffer"));
}
