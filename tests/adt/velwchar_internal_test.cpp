#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "adt/velwchar_core_internal.h"
#include "platform/widekernels.h"
#include "support/logcapture.h"

/* Every set of kernels that the processor at hand can run gives what the plainest means give. */
class VelwcharKernels : public testing::TestWithParam<const vel_widekernels *> {
  protected:
    support::log_capture log;
};

static std::vector<const vel_widekernels *> usable_kernels()
{
    std::vector<const vel_widekernels *> usable;
    for (const auto &kernels : vel_widekernels_all())
        if (kernels.usable())
            usable.push_back(&kernels);
    return usable;
}

INSTANTIATE_TEST_SUITE_P(Usable, VelwcharKernels, testing::ValuesIn(usable_kernels()),
                         [](const auto &test) { return std::string(test.param->name); });

/* A copy on the heap of exactly these characters and the terminator, so that a read behind it is
 * found. */
template <typename Char> static std::unique_ptr<Char[]> exact(const std::basic_string<Char> &text)
{
    std::unique_ptr<Char[]> block(new Char[text.size() + 1]);
    text.copy(block.get(), text.size());
    block[text.size()] = 0;
    return block;
}

using lines = std::vector<support::log_line>;

static std::string format(const char *text, unsigned value, unsigned other = 0)
{
    char line[160];
    snprintf(line, sizeof(line), text, value, other);
    return line;
}

struct decoded {
    int result;
    std::u32string wide; /* what comes before the bad byte, if there is one */
    lines log;

    bool operator==(const decoded &) const = default;
};

static decoded refused(const std::u32string &wide, const std::string &text)
{
    return {-1, wide, {{"adt/velwchar", 6, text}}};
}

/* By the value: what is refused as a second byte is what makes it overlong, a surrogate or too
 * large. */
static decoded reference_decode(const std::string &utf8)
{
    std::u32string wide;
    const auto at = [&](size_t i) {
        return i < utf8.size() ? static_cast<unsigned char>(utf8[i]) : 0u;
    };
    for (size_t i = 0; i < utf8.size();) {
        const unsigned first = at(i), second = at(i + 1);
        if (first < 0x80) {
            wide += first;
            i++;
            continue;
        }
        if (first >= 0xf5 && first <= 0xf7)
            return refused(wide,
                           format("invalid UTF-8 first byte 0x%02x in a 4-byte sequence", first));
        if (first < 0xc2 || first > 0xf7)
            return refused(wide, format("invalid UTF-8 first byte 0x%02x", first));
        const size_t len = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
        char32_t value = first & (0xffu >> (len + 1));
        bool further = true;
        unsigned bad = 0;
        for (size_t k = 1; k < len && further; k++) {
            bad = at(i + k);
            further = bad >= 0x80 && bad < 0xc0;
            value = value << 6 | (bad & 0x3f);
        }
        const char32_t block = len == 4 ? (first & 7) << 18 | (second & 0x3f) << 12
                                        : (first & 15) << 12 | (second & 0x3f) << 6;
        if (len > 2 && second >= 0x80 && second < 0xc0 &&
            ((len == 3 && (block < 0x800 || (block >= 0xd800 && block < 0xe000))) ||
             (len == 4 && (block < 0x10000 || block > 0x10ffff))))
            return refused(
                wide, format(len == 3 ? "invalid UTF-8 second byte 0x%02x in a 3-byte sequence "
                                        "starting with 0x%02x"
                                      : "invalid UTF-8 second byte 0x%02x in a 4-byte sequence "
                                        "starting with 0x%02x",
                             second, first));
        if (!further)
            return refused(wide, format("invalid UTF-8 continuation byte 0x%02x", bad));
        wide += value;
        i += len;
    }
    return {0, wide, {}};
}

static std::string encode(char32_t value)
{
    std::string utf8;
    if (value < 0x80)
        return std::string(1, static_cast<char>(value));
    const int further = value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
    utf8 += static_cast<char>((0xff00 >> (further + 1) & 0xff) | value >> (6 * further));
    for (int k = further - 1; k >= 0; k--)
        utf8 += static_cast<char>(0x80 | (value >> (6 * k) & 0x3f));
    return utf8;
}

static const wchar_t kDirt = 0x5a5a5a5a;

/* Converts with a capacity, and compares all that can be seen, dirt behind the end included. */
static void check_decode(const vel_widekernels *kernels, support::log_capture &log,
                         const std::string &utf8, size_t capacity)
{
    const decoded expected = reference_decode(utf8);
    const auto source = exact(utf8);
    std::unique_ptr<wchar_t[]> array(new wchar_t[capacity + 1]);
    std::fill_n(array.get(), capacity + 1, kDirt);
    size_t len = capacity;
    const int result = vel_wchar_buffer_from_utf8_with(kernels, capacity ? array.get() : nullptr,
                                                       &len, source.get(), utf8.size());

    const size_t count = expected.wide.size();
    if (expected.result == 0) {
        ASSERT_EQ(result, capacity >= count ? 0 : 1);
        ASSERT_EQ(len, count);
    } else {
        ASSERT_EQ(result, -1);
        ASSERT_EQ(len, 0u);
    }
    ASSERT_EQ(log.take(), expected.log);
    for (size_t i = 0; i < capacity + 1; i++) {
        wchar_t want = kDirt;
        if (i < count && i < capacity)
            want = static_cast<wchar_t>(expected.wide[i]);
        else if (i == count && i < capacity && expected.result == 0)
            want = 0;
        ASSERT_EQ(array[i], want) << "at " << i << " of " << count << ", capacity " << capacity;
    }
}

static void check_decode(const vel_widekernels *kernels, support::log_capture &log,
                         const std::string &utf8)
{
    check_decode(kernels, log, utf8, 0);
    check_decode(kernels, log, utf8, utf8.size() + 1);
}

/* Texts of every length of character, alone and mixed. */
static char32_t random_character(std::mt19937 &random, unsigned kind)
{
    const auto between = [&](char32_t low, char32_t high) {
        return low + static_cast<char32_t>(random() % (high - low + 1));
    };
    switch (kind % 5) {
    case 0:
        return between(1, 0x7f);
    case 1:
        return between(0x80, 0x7ff);
    case 2:
        return random() % 2 ? between(0x800, 0xd7ff) : between(0xe000, 0xffff);
    case 3:
        return between(0x10000, 0x10ffff);
    default:
        return random_character(random, static_cast<unsigned>(random() % 4));
    }
}

static std::u32string random_text(std::mt19937 &random, unsigned kind, size_t len)
{
    std::u32string text;
    while (text.size() < len)
        text += random_character(random, kind);
    return text;
}

static std::string encode(const std::u32string &text)
{
    std::string utf8;
    for (const char32_t c : text)
        utf8 += encode(c);
    return utf8;
}

TEST_P(VelwcharKernels, EveryCodePoint)
{
    std::u32string all;
    for (char32_t c = 1; c <= 0x10ffff; c++)
        if (c < 0xd800 || c > 0xdfff)
            all += c;
    check_decode(GetParam(), log, encode(all));
}

TEST_P(VelwcharKernels, EveryLengthAndKind)
{
    std::mt19937 random(1);
    for (unsigned kind = 0; kind < 5; kind++)
        for (size_t len = 0; len < 150; len++)
            check_decode(GetParam(), log, encode(random_text(random, kind, len)));
}

TEST_P(VelwcharKernels, EveryCapacity)
{
    std::mt19937 random(2);
    for (unsigned kind = 0; kind < 5; kind++) {
        const std::string utf8 = encode(random_text(random, kind, 140));
        for (size_t capacity = 0; capacity < 144; capacity++)
            check_decode(GetParam(), log, utf8, capacity);
    }
}

/* Every first byte with second ones on both sides of every bound, where steps are whole and at the
 * end of a text. */
TEST_P(VelwcharKernels, EveryFirstByte)
{
    static const unsigned seconds[] = {0x01, 0x41, 0x7f, 0x80, 0x81, 0x8f, 0x90, 0x91,
                                       0x9f, 0xa0, 0xa1, 0xbf, 0xc0, 0xc2, 0xe0, 0xff};
    const std::string behind(68, 'a');
    for (unsigned first = 0x80; first < 0x100; first++) {
        for (const unsigned second : seconds) {
            const std::string two = {static_cast<char>(first), static_cast<char>(second)};
            check_decode(GetParam(), log, two);
            check_decode(GetParam(), log, two + "\x80\x80" + behind);
        }
    }
}

TEST_P(VelwcharKernels, FaultAtEveryPlace)
{
    static const std::string faults[] = {"\x80",     "\xc0\x80",         "\xc3",
                                         "\xc3(",    "\xe0\x9f\xbf",     "\xe2\x82",
                                         "\xe2\x82", "\xed\xa0\x80",     "\xf0\x8f\xbf\xbf",
                                         "\xf0\x9f", "\xf0\x9f\x98",     "\xff",
                                         "\xf8",     "\xf4\x90\x80\x80", "\xf5\x80\x80\x80",
                                         "\xe2(\xa1"};
    std::mt19937 random(3);
    for (const std::string &fault : faults) {
        for (unsigned kind = 0; kind < 5; kind++) {
            const std::u32string text = random_text(random, kind, 150);
            for (size_t place = 0; place <= text.size(); place += 1 + random() % 3)
                check_decode(GetParam(), log,
                             encode(text.substr(0, place)) + fault + encode(text.substr(place)));
        }
    }
}

TEST_P(VelwcharKernels, CutAtEveryByte)
{
    std::mt19937 random(4);
    for (unsigned kind = 1; kind < 5; kind++) {
        const std::string utf8 = encode(random_text(random, kind, 60));
        for (size_t len = 0; len < utf8.size(); len++)
            check_decode(GetParam(), log, utf8.substr(0, len));
    }
}

TEST_P(VelwcharKernels, ChangedBytes)
{
    std::mt19937 random(5);
    for (int step = 0; step < 5000; step++) {
        std::string utf8 = encode(random_text(random, 4, 80));
        utf8[random() % utf8.size()] = static_cast<char>(1 + random() % 255);
        check_decode(GetParam(), log, utf8);
    }
}

struct encoded {
    int result; /* 0 or -1 */
    std::string utf8;
    size_t len; /* what is told; on failure that is not always the length of utf8 */
    lines log;
};

static encoded wide_refused(const std::string &utf8, size_t len, const std::string &text)
{
    return {-1, utf8, len, {{"adt/velwchar", 6, text}}};
}

static encoded reference_encode(const std::wstring &wide)
{
    std::string utf8;
    for (size_t i = 0; i < wide.size(); i++) {
        const int32_t c = wide[i];
        char32_t value = static_cast<char32_t>(c) % 0x80000000u;
        if (c >= 0xdc00 && c < 0xe000)
            return wide_refused(utf8, utf8.size(),
                                format("unexpected occurrence of a second part of the surrogate "
                                       "0x%04x without a preceeding first part",
                                       static_cast<unsigned>(c)));
        if (c >= 0xd800 && c < 0xdc00) {
            const int32_t next = i + 1 < wide.size() ? wide[i + 1] : 0;
            if (next == 0)
                return wide_refused(utf8, utf8.size(),
                                    format("end of wide character string in the middle of "
                                           "surrogate pairs, first surrogate 0x%04x",
                                           static_cast<unsigned>(c)));
            if (next < 0xdc00 || next > 0xdfff)
                return wide_refused(utf8, utf8.size(),
                                    format("invalid second part of the surrogate 0x%04x outside "
                                           "the valid range 0xdc00-0xdfff",
                                           static_cast<unsigned>(next)));
            value = 0x10000 + static_cast<char32_t>(c - 0xd800) * 0x400 +
                    static_cast<char32_t>(next - 0xdc00);
            i++;
        }
        if (value > 0x10ffff)
            return wide_refused(utf8, 0, format("invalid wide character 0x%08x", value));
        utf8 += encode(value);
    }
    return {0, utf8, utf8.size(), {}};
}

/* Measures and converts with a room. Kernels may use all of it, so only what counts is compared,
 * and the dirt behind the room. */
static void check_encode(const vel_widekernels *kernels, support::log_capture &log,
                         const std::wstring &wide, size_t room)
{
    const encoded expected = reference_encode(wide);
    const auto source = exact(wide);
    std::unique_ptr<char[]> block(new char[room + 1]);
    std::fill_n(block.get(), room + 1, 'Z');
    size_t len = room;
    const int result =
        vel_wchar_to_utf8_buffer(kernels, room ? block.get() : nullptr, &len, source.get());

    ASSERT_EQ(len, expected.len);
    ASSERT_EQ(log.take(), expected.log);
    ASSERT_EQ(block[room], 'Z');
    if (expected.result != 0) {
        ASSERT_EQ(result, -1);
        return;
    }
    ASSERT_EQ(result, room > expected.len ? 0 : 1);
    if (result == 0) {
        ASSERT_TRUE(std::string(block.get(), len + 1) == expected.utf8 + '\0') << "room " << room;
    }
}

static std::wstring widen(const std::u32string &text)
{
    return std::wstring(text.begin(), text.end());
}

TEST_P(VelwcharKernels, EveryCodePointBack)
{
    std::wstring all;
    for (wchar_t c = 1; c <= 0x10ffff; c++)
        if (c < 0xd800 || c > 0xdfff)
            all += c;
    check_encode(GetParam(), log, all, 0);
    check_encode(GetParam(), log, all, 5000000);
}

TEST_P(VelwcharKernels, EveryLengthAndKindBack)
{
    std::mt19937 random(6);
    for (unsigned kind = 0; kind < 5; kind++) {
        for (size_t len = 0; len < 100; len++) {
            const std::wstring wide = widen(random_text(random, kind, len));
            const size_t exactroom = reference_encode(wide).len + 1;
            check_encode(GetParam(), log, wide, 0);
            check_encode(GetParam(), log, wide, exactroom);
            check_encode(GetParam(), log, wide, exactroom - 1);
        }
    }
}

TEST_P(VelwcharKernels, OddCharactersAtEveryPlace)
{
    static const std::wstring odd[] = {
        {wchar_t(0xd83d), wchar_t(0xde00)},
        {wchar_t(0xd83d)},
        {wchar_t(0xde00)},
        {wchar_t(0xd83d), L'a'},
        {wchar_t(0xd83d), wchar_t(0xe000)},
        {wchar_t(0xd83d), wchar_t(0x8000dc00u)},
        {wchar_t(0x80000041u)},
        {wchar_t(0x8000d800u)},
        {wchar_t(0x80110000u)},
        {wchar_t(0x110000)},
        {wchar_t(0x7fffffff)},
    };
    std::mt19937 random(7);
    for (const std::wstring &characters : odd) {
        for (unsigned kind = 0; kind < 5; kind++) {
            for (size_t place = 0; place <= 70; place++) {
                std::wstring wide = widen(random_text(random, kind, 70));
                wide.insert(place, characters);
                check_encode(GetParam(), log, wide, 0);
                check_encode(GetParam(), log, wide, reference_encode(wide).len + 1);
            }
        }
    }
}

TEST_P(VelwcharKernels, PairsOnly)
{
    std::mt19937 random(8);
    std::wstring wide;
    for (size_t pair = 0; pair < 300; pair++) {
        wide += static_cast<wchar_t>(0xd800 + random() % 0x400);
        wide += static_cast<wchar_t>(0xdc00 + random() % 0x400);
        check_encode(GetParam(), log, wide, 4 * pair + 5);
    }
}

/* The end of a string is looked for in pieces, and a pair may stand across two of them. */
TEST_P(VelwcharKernels, PairAcrossPieces)
{
    for (size_t place = 4090; place < 4100; place++) {
        std::wstring wide(8200, L'a');
        wide[place] = wchar_t(0xd83d);
        wide[place + 1] = wchar_t(0xde00);
        check_encode(GetParam(), log, wide, reference_encode(wide).len + 1);
        check_encode(GetParam(), log, wide.substr(0, place + 1), 0);
        check_encode(GetParam(), log, wide.substr(0, place + 2), 0);
    }
}

/* The second set of names stands on the same source; its lines name it as seen from there. */
TEST(VelpunycodeWcharKernels, SameSourceOtherPath)
{
    support::log_capture log;
    size_t len = 0;
    EXPECT_EQ(
        vel_punycode_wchar_buffer_from_utf8_with(vel_widekernels_best(), nullptr, &len, "\xff", 1),
        -1);
    EXPECT_EQ(log.take(), (lines{{"util/../adt/velwchar", 6, "invalid UTF-8 first byte 0xff"}}));
}

TEST(VelwcharDeathTest, BufferAssertsRoomAndString)
{
    size_t len = 1;
    EXPECT_DEATH(vel_wchar_to_utf8_buffer(vel_widekernels_best(), nullptr, &len, L"a"),
                 "utf8 != NULL \\|\\| \\*utf8lenptr == 0\\), function vel_wchar_to_utf8_buffer,");
    len = 0;
    EXPECT_DEATH(vel_punycode_wchar_to_utf8_buffer(vel_widekernels_best(), nullptr, &len, nullptr),
                 "wstring != NULL\\), function vel_punycode_wchar_to_utf8_buffer,");
}

TEST(Widekernels, BestIsTheFirstUsable)
{
    EXPECT_EQ(vel_widekernels_best(), usable_kernels().front());
}

TEST(Widekernels, LastIsPlainAndAlwaysUsable)
{
    EXPECT_STREQ(vel_widekernels_all().back().name, "plain");
    EXPECT_TRUE(vel_widekernels_all().back().usable());
}
