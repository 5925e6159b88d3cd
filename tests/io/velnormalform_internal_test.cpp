#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/normalfixture.h"

class Velnormalform : public support::normal_fixture {};

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
