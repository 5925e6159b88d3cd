#include <algorithm>
#include <cstdint>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/eachfailure.h"
#include "support/guardedpages.h"
#include "support/logcapture.h"
#include "support/oom.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

/* By a cast, as wchar_t has a sign on some processors only. */
static constexpr wchar_t kAllBits = static_cast<wchar_t>(-1);

TEST(Velwcs, LenCountsToTheZero)
{
    EXPECT_EQ(vel_wcslen(L""), 0u);
    EXPECT_EQ(vel_wcslen(L"a\u20AC\U0001F600"), 3u);
    EXPECT_EQ(vel_wcslen(L"ab\0c"), 2u);
    const wchar_t odd[] = {kAllBits, 0x100, 0x10000, 0x1000000, 0};
    EXPECT_EQ(vel_wcslen(odd), 4u);
}

struct compare_row {
    std::wstring s1, s2;
    int difference;
};

static const wchar_t kTop = static_cast<wchar_t>(0x80000000u);
static const compare_row kCompares[] = {
    {L"", L"", 0},
    {L"abc", L"abc", 0},
    {L"abc", L"abd", -1},
    {L"abx", L"abc", 'x' - 'c'},
    {L"ac", L"bb", -1},
    {L"abc", L"ab", 'c'},
    {L"ab", L"abc", -'c'},
    {L"\U0001F600", L"", 0x1F600},
    {L"\u20AC", L"\u20AD", -1},
    {L"aX", L"ax", 'X' - 'x'},
    /* As unsigned numbers of 32 bits, whose difference is read as an int. */
    {{kTop}, L"\x01", 0x7FFFFFFF},
    {L"\x01", {kTop}, -0x7FFFFFFF},
    {{kAllBits}, L"\x01", -2},
    {L"\x01", {kAllBits}, 2},
    {{kAllBits}, {kAllBits - 1}, 1},
};

TEST(Velwcs, CmpGivesTheFirstDifference)
{
    for (const compare_row &row : kCompares)
        EXPECT_EQ(vel_wcscmp(row.s1.c_str(), row.s2.c_str()), row.difference)
            << testing::PrintToString(row.s1) << testing::PrintToString(row.s2);
}

TEST(Velwcs, NcmpOfEnoughIsCmp)
{
    for (const compare_row &row : kCompares)
        for (const size_t n : {row.s1.size() + row.s2.size() + 1, SIZE_MAX})
            EXPECT_EQ(vel_wcsncmp(row.s1.c_str(), row.s2.c_str(), n), row.difference)
                << testing::PrintToString(row.s1) << testing::PrintToString(row.s2);
}

TEST(Velwcs, NcmpStopsAtTheLimit)
{
    EXPECT_EQ(vel_wcsncmp(L"a", L"b", 0), 0);
    EXPECT_EQ(vel_wcsncmp(L"abc", L"abd", 2), 0);
    EXPECT_EQ(vel_wcsncmp(L"abc", L"abd", 3), -1);
    EXPECT_EQ(vel_wcsncmp(L"abc", L"ab", 2), 0);
    EXPECT_EQ(vel_wcsncmp(L"abc", L"ab", 3), 'c');
    EXPECT_EQ(vel_wcsncmp(L"ab\0x", L"ab\0y", 4), 0); /* the zero ends both */
}

/* Arrays without a terminator end where the memory ends. */
TEST(Velwcs, NcmpAndNdupReadNothingBehindTheLimit)
{
    const guarded_pages first, second;
    for (size_t n = 1; n < 70; n++) {
        const std::wstring text(n, L'\u20AC');
        const auto *s1 = static_cast<wchar_t *>(first.place(text.data(), n * sizeof(wchar_t)));
        const auto *s2 = static_cast<wchar_t *>(second.place(text.data(), n * sizeof(wchar_t)));
        ASSERT_EQ(vel_wcsncmp(s1, s2, n), 0);
        wchar_t *copy = vel_wcsndup(s1, n);
        ASSERT_EQ(copy, text);
        vel_free(copy);
    }
}

TEST(Velwcs, NothingIsReadBehindTheMemory)
{
    const guarded_pages first, second;
    for (size_t n = 0; n < 70; n++) {
        const std::wstring text(n, L'\u20AC');
        const size_t size = (n + 1) * sizeof(wchar_t);
        const auto *s1 = static_cast<wchar_t *>(first.place(text.c_str(), size));
        const auto *s2 = static_cast<wchar_t *>(second.place(text.c_str(), size));
        ASSERT_EQ(vel_wcslen(s1), n);
        ASSERT_EQ(vel_wcscmp(s1, s2), 0);
        ASSERT_EQ(vel_wcsncmp(s1, s2, SIZE_MAX), 0);
        for (wchar_t *copy : {vel_wcsdup(s1), vel_wcsndup(s1, SIZE_MAX)}) {
            ASSERT_EQ(copy, text);
            vel_free(copy);
        }
    }
}

/* The shortest strings over few letters meet every end and every limit. */
TEST(Velwcs, CompareAgreesWithAPlainReading)
{
    std::mt19937 random{20261121};
    const auto random_string = [&random] {
        static const wchar_t letters[] = {'a', 'b', 0x20AC, kAllBits, kTop};
        std::wstring string;
        for (size_t left = random() % 5; left > 0; left--)
            string.push_back(letters[random() % std::size(letters)]);
        return string;
    };
    for (int i = 0; i < 50000; i++) {
        const std::wstring s1 = random_string(), s2 = random_string();
        const size_t n = random() % 7;
        uint32_t all = 0, limited = 0; /* at the first difference */
        for (size_t k = 0; k <= std::min(s1.size(), s2.size()) && all == 0; k++) {
            all = static_cast<uint32_t>(s1.c_str()[k]) - static_cast<uint32_t>(s2.c_str()[k]);
            if (k < n)
                limited = all;
        }
        ASSERT_EQ(vel_wcscmp(s1.c_str(), s2.c_str()), static_cast<int>(all));
        ASSERT_EQ(vel_wcsncmp(s1.c_str(), s2.c_str(), n), static_cast<int>(limited));
    }
}

TEST(Velwcs, DupCopies)
{
    wchar_t source[] = L"a\u20AC";
    wchar_t *copy = vel_wcsdup(source);
    source[0] = 'x';
    EXPECT_STREQ(copy, L"a\u20AC");
    vel_free(copy);

    wchar_t *empty = vel_wcsdup(L"");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty[0], 0);
    vel_free(empty);
}

TEST(Velwcs, NdupCopiesUpToTheLimitOrTheZero)
{
    static const struct {
        const wchar_t *source;
        size_t n;
        const wchar_t *copy;
    } rows[] = {
        {L"abc", 0, L""},           {L"abc", 2, L"ab"},   {L"abc", 3, L"abc"}, {L"abc", 4, L"abc"},
        {L"abc", SIZE_MAX, L"abc"}, {L"ab\0c", 4, L"ab"}, {L"", 0, L""},       {L"", 5, L""},
    };
    for (const auto &row : rows) {
        wchar_t *copy = vel_wcsndup(row.source, row.n);
        EXPECT_STREQ(copy, row.copy) << row.n;
        vel_free(copy);
    }
}

TEST(Velwcs, CopiesAreOneBlockOfTheExactSize)
{
    {
        malloc_watch watch;
        vel_free(vel_wcsdup(L"abc"));
        EXPECT_THAT(malloc_watch::sizes(), ElementsAre(4 * sizeof(wchar_t)));
    }
    {
        malloc_watch watch;
        vel_free(vel_wcsndup(L"abc", 2));
        EXPECT_THAT(malloc_watch::sizes(), ElementsAre(3 * sizeof(wchar_t)));
    }
}

TEST(Velwcs, MissingMemoryGivesNullAndNoLine)
{
    log_capture log;
    const auto failures = each_failure(log, "", [] {
        wchar_t *copy = vel_wcsdup(L"abc");
        wchar_t *part = copy ? vel_wcsndup(copy, 2) : nullptr;
        const bool succeeded = part != nullptr;
        vel_free(copy);
        vel_free(part);
        return succeeded;
    });
    EXPECT_THAT(failures, ElementsAre(IsEmpty()));
}

static bool wcs_life()
{
    wchar_t *copy = vel_wcsdup(L"abc");
    if (!copy)
        return false;
    wchar_t *part = vel_wcsndup(copy, 2);
    if (part) {
        EXPECT_EQ(vel_wcscmp(part, L"ab"), 0);
    }
    const bool good = part != nullptr;
    vel_free(copy);
    vel_free(part);
    return good;
}

TEST(VelwcsOom, Life)
{
    vel_oom_drive(wcs_life);
}

TEST(VelwcsDeathTest, Arguments)
{
    EXPECT_DEATH(vel_wcslen(nullptr), asserts("wstring != NULL", "vel_wcslen"));
    EXPECT_DEATH(vel_wcscmp(nullptr, L"a"), asserts("s1 != NULL", "vel_wcscmp"));
    EXPECT_DEATH(vel_wcscmp(L"a", nullptr), asserts("s2 != NULL", "vel_wcscmp"));
    EXPECT_DEATH(vel_wcsncmp(nullptr, L"a", 0), asserts("s1 != NULL", "vel_wcsncmp"));
    EXPECT_DEATH(vel_wcsncmp(L"a", nullptr, 0), asserts("s2 != NULL", "vel_wcsncmp"));
    EXPECT_DEATH(vel_wcsdup(nullptr), asserts("wstring != NULL", "vel_wcsdup"));
    EXPECT_DEATH(vel_wcsndup(nullptr, 0), asserts("wstring != NULL", "vel_wcsndup"));
}
