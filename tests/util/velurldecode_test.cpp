#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/rows.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static const char kModule[] = "util/velurldecode";

using log_lines = std::vector<log_line>;

/* The string form */

struct decode_case {
    const char *name;
    const char *source;
    vel_error_t result;
    const char *decoded; /* what a reader of the string sees; NULL where it fails */
};

static const decode_case kDecodeCases[] = {
    {"Empty", "", VEL_ERROR_NONE, ""},
    {"BothCases", "a%20b+c%2fd", VEL_ERROR_NONE, "a b c/d"},
    {"EscapedPlus", "a+b%2Bc", VEL_ERROR_NONE, "a b+c"},
    {"MixedCase", "%c3%BC%Fa%aF", VEL_ERROR_NONE, "\xC3\xBC\xFA\xAF"},
    {"PercentOnce", "%2520", VEL_ERROR_NONE, "%20"},
    {"OtherBytesUnchecked", "\x01 /?#\x7F\x80\xFF\"", VEL_ERROR_NONE, "\x01 /?#\x7F\x80\xFF\""},
    {"InnerNul", "a%00b", VEL_ERROR_NONE, "a"},

    {"PercentAlone", "%", VEL_ERROR_INCOMPLETE, nullptr},
    {"OneDigit", "%4", VEL_ERROR_INCOMPLETE, nullptr},
    {"EndsInPercent", "ab%", VEL_ERROR_INCOMPLETE, nullptr},
    {"EndsInOneDigit", "ab%f", VEL_ERROR_INCOMPLETE, nullptr},
    {"EndsInPercentAndNoDigit", "ab%g", VEL_ERROR_INVALID_SYNTAX, nullptr},
    {"LaterNoDigits", "abc%zz", VEL_ERROR_INVALID_SYNTAX, nullptr},
    {"LaterSecondNoDigit", "+%4G", VEL_ERROR_INVALID_SYNTAX, nullptr},
    {"LaterDoublePercent", "a%%41", VEL_ERROR_INVALID_SYNTAX, nullptr},
    {"TheFirstBadEscapeDecides", "a%4G%", VEL_ERROR_INVALID_SYNTAX, nullptr},

    {"NoDigits", "%zz", VEL_ERROR_INVALID_SYNTAX, nullptr},
    {"FirstNoDigit", "%G4", VEL_ERROR_INVALID_SYNTAX, nullptr},
    {"SecondNoDigit", "%4G", VEL_ERROR_INVALID_SYNTAX, nullptr},
    {"NoDigitAndTheEnd", "%G", VEL_ERROR_INVALID_SYNTAX, nullptr},
    {"BlankInEscape", "% 4", VEL_ERROR_INVALID_SYNTAX, nullptr},
    {"PlusInEscape", "%+4", VEL_ERROR_INVALID_SYNTAX, nullptr},
    {"SignInEscape", "%-1", VEL_ERROR_INVALID_SYNTAX, nullptr},
    {"PrefixInEscape", "%0x", VEL_ERROR_INVALID_SYNTAX, nullptr},
};

/* A bad escape before any output is seen when the text is measured, but for a cut one. */
static log_lines lines_of(const decode_case &row)
{
    if (row.result == VEL_ERROR_NONE)
        return {};
    if (row.result == VEL_ERROR_INVALID_SYNTAX && row.source[0] == '%')
        return {{kModule, 6, "invalid percent encoding in the source string"}};
    return {{kModule, 7,
             "unable to decode buffer, error " + std::to_string(row.result) + " (" +
                 vel_error_string(row.result) + ")"}};
}

class VelurldecodeText : public testing::TestWithParam<decode_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelurldecodeText, testing::ValuesIn(kDecodeCases), row_name());

TEST_P(VelurldecodeText, String)
{
    const decode_case &row = GetParam();
    log_capture log;
    char dirt = 0, *decoded = &dirt;
    EXPECT_EQ(vel_urldecode_string(&decoded, row.source), row.result);
    EXPECT_STREQ(decoded, row.decoded);
    vel_free(decoded);
    EXPECT_EQ(log.take(), lines_of(row));

    char *text = vel_urldecode(row.source);
    EXPECT_STREQ(text, row.decoded);
    vel_free(text);
    EXPECT_EQ(log.take(), lines_of(row));
}

TEST(Velurldecode, WordsOfTheLines)
{
    log_capture log;
    EXPECT_EQ(vel_urldecode("abc%zz"), nullptr);
    EXPECT_EQ(vel_urldecode("%4"), nullptr);
    EXPECT_THAT(
        log.take(),
        ElementsAre(
            log_line{kModule, 7, "unable to decode buffer, error 209 (invalid syntax)"},
            log_line{kModule, 7, "unable to decode buffer, error 214 (operation incomplete)"}));
}

TEST(Velurldecode, AnInnerNulIsFollowedByTheRest)
{
    char *decoded = nullptr;
    EXPECT_EQ(vel_urldecode_string(&decoded, "a%00b"), VEL_ERROR_NONE);
    EXPECT_EQ(memcmp(decoded, "a\0b", 4), 0);
    vel_free(decoded);
}

/* The buffer form */

struct decoded {
    vel_error_t result;
    std::string bytes;

    bool operator==(const decoded &) const = default;
};

static decoded decode(const std::string &text)
{
    std::vector<char> dst(text.size() + 1, 'x');
    size_t len = dst.size();
    const vel_error_t result = vel_urldecode_buffer(dst.data(), &len, text.data(), text.size());
    EXPECT_LE(len, text.size());
    EXPECT_EQ(dst[len], 0);
    return {result, std::string(dst.data(), len)};
}

/* Reads what the text says, a byte at a time. */
static decoded reference(const std::string &text)
{
    std::string bytes;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] != '%') {
            bytes.push_back(text[i] == '+' ? ' ' : text[i]);
            continue;
        }
        std::string digits;
        for (int digit = 0; digit < 2; digit++) {
            if (++i == text.size())
                return {VEL_ERROR_INCOMPLETE, bytes};
            if (!isxdigit(static_cast<unsigned char>(text[i])))
                return {VEL_ERROR_INVALID_SYNTAX, bytes};
            digits.push_back(text[i]);
        }
        bytes.push_back(static_cast<char>(std::stoi(digits, nullptr, 16)));
    }
    return {VEL_ERROR_NONE, bytes};
}

TEST(Velurldecode, EveryByteAlone)
{
    for (int byte = 0; byte < 256; byte++) {
        const char one = static_cast<char>(byte);
        EXPECT_EQ(decode({one}), one == '%'   ? (decoded{VEL_ERROR_INCOMPLETE, ""})
                                 : one == '+' ? (decoded{VEL_ERROR_NONE, " "})
                                              : (decoded{VEL_ERROR_NONE, {one}}))
            << byte;
    }
}

TEST(Velurldecode, EveryPairBehindAPercent)
{
    for (int first = 0; first < 256; first++) {
        const std::string half = {'%', static_cast<char>(first)};
        EXPECT_EQ(decode(half), reference(half)) << first;
        for (int second = 0; second < 256; second++) {
            const std::string text = half + static_cast<char>(second);
            EXPECT_EQ(decode(text), reference(text)) << first << " " << second;
        }
    }
}

TEST(Velurldecode, EveryByteInUpperAndLowerCase)
{
    for (int byte = 0; byte < 256; byte++)
        for (const char *format : {"%%%02X", "%%%02x"}) {
            char escape[4];
            snprintf(escape, sizeof(escape), format, byte);
            EXPECT_EQ(decode(escape), (decoded{VEL_ERROR_NONE, {static_cast<char>(byte)}}));
        }
}

TEST(Velurldecode, SourceBytesAreTakenAsTheLengthSays)
{
    EXPECT_EQ(decode(std::string("a\0b", 3)), (decoded{VEL_ERROR_NONE, std::string("a\0b", 3)}));
    EXPECT_EQ(decode(std::string("%\0\0", 3)), (decoded{VEL_ERROR_INVALID_SYNTAX, ""}));
    size_t len = 0;
    EXPECT_EQ(vel_urldecode_buffer(nullptr, &len, "%41", 2), VEL_ERROR_INCOMPLETE)
        << "nothing behind the source is read";
    EXPECT_EQ(len, 0u);
}

/* The room */

static void expect_room(const std::string &source, size_t room)
{
    const decoded whole = reference(source);
    std::vector<char> dst(source.size() + 4, '\x5A');
    size_t len = room;
    EXPECT_EQ(vel_urldecode_buffer(dst.data(), &len, source.data(), source.size()),
              room < whole.bytes.size() ? VEL_ERROR_OUT_OF_RANGE : whole.result)
        << source << " " << room;
    EXPECT_EQ(len, whole.bytes.size());

    std::string expected = whole.bytes.substr(0, room);
    if (room > whole.bytes.size())
        expected.push_back('\0');
    expected.resize(dst.size(), '\x5A');
    EXPECT_EQ(std::string(dst.data(), dst.size()), expected) << source << " " << room;
}

TEST(Velurldecode, EveryRoom)
{
    std::string longer;
    for (int turn = 0; turn < 30; turn++)
        longer += turn % 3 ? "plain+text/" : "%00%fF+%C3";
    for (const std::string &source :
         {std::string(), std::string("a"), std::string("%41"), std::string("a+%41b"),
          std::string("%41%42%43"), std::string(70, 'a'), std::string(70, '+'), longer})
        for (const char *end : {"", "%", "%4", "%4G", "%zz", "%zz%41"})
            for (size_t room = 0; room <= source.size() + 3; room++)
                expect_room(source + end, room);
}

TEST(Velurldecode, ATooSmallRoomHidesABadEscape)
{
    char dst[8] = "zzzzzzz";
    size_t len = 1;
    EXPECT_EQ(vel_urldecode_buffer(dst, &len, "ab%zz", 5), VEL_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(len, 2u);
    EXPECT_STREQ(dst, "azzzzzz");
    EXPECT_EQ(vel_urldecode_buffer(dst, &len, "ab%zz", 5), VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(len, 2u);
    EXPECT_STREQ(dst, "abzzzzz");
}

TEST(Velurldecode, NullMeasuresWithARoomOfZero)
{
    log_capture log;
    struct {
        const char *source;
        vel_error_t result;
        size_t len;
    } const rows[] = {
        {"", VEL_ERROR_NONE, 0},           {"a%20b", VEL_ERROR_OUT_OF_RANGE, 3},
        {"%", VEL_ERROR_INCOMPLETE, 0},    {"%zz", VEL_ERROR_INVALID_SYNTAX, 0},
        {"a%", VEL_ERROR_OUT_OF_RANGE, 1}, {"ab%zzcd", VEL_ERROR_OUT_OF_RANGE, 2},
    };
    for (const auto &row : rows) {
        size_t len = 0;
        EXPECT_EQ(vel_urldecode_buffer(nullptr, &len, row.source, strlen(row.source)), row.result)
            << row.source;
        EXPECT_EQ(len, row.len) << row.source;
    }
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(Velurldecode, TakesBackWhatTheEncoderGives)
{
    std::string bytes;
    for (int turn = 0; turn < 3000; turn++)
        for (int byte = 1; byte < 256; byte++)
            bytes.push_back(static_cast<char>(byte));
    char *encoded = vel_urlencode(bytes.c_str());
    ASSERT_NE(encoded, nullptr);
    char *text = vel_urldecode(encoded);
    EXPECT_TRUE(text && bytes == text);
    vel_free(text);
    vel_free(encoded);
}

/* Out of memory */

TEST(VelurldecodeMemory, TheStringFormLogsWhatWasMissing)
{
    log_capture log;
    for (const auto &[source, what] :
         {std::pair("", "an empty result string"), std::pair("a%20b", "decoded buffer (4 bytes)"),
          std::pair("a%20b%zz", "decoded buffer (4 bytes)"),
          std::pair("%", "decoded buffer (1 bytes)")}) {
        const auto failures = allocfail_each(log, [&source = source] {
            char dirt = 0, *text = &dirt;
            const vel_error_t result = vel_urldecode_string(&text, source);
            EXPECT_EQ(text != nullptr, result == VEL_ERROR_NONE);
            vel_free(text);
            return result != VEL_ERROR_NO_MEMORY;
        });
        EXPECT_THAT(failures, ElementsAre(ElementsAre(log_line{
                                  kModule, 7, "not enough memory for " + std::string(what)})));
    }
}

TEST(VelurldecodeMemory, ConvenienceFunctionAddsNoLine)
{
    log_capture log;
    const auto failures = allocfail_each(log, [] {
        char *text = vel_urldecode("ab");
        vel_free(text);
        return text != nullptr;
    });
    EXPECT_THAT(failures, ElementsAre(ElementsAre(log_line{
                              kModule, 7, "not enough memory for decoded buffer (3 bytes)"})));
}

TEST(VelurldecodeOom, Life)
{
    vel_oom_drive([] {
        bool good = true;
        for (const auto &[source, expected] :
             {std::pair("a%20b", "a b"), std::pair("", ""), std::pair("+", " ")}) {
            char *text = good ? vel_urldecode(source) : nullptr;
            good = text != nullptr;
            if (good) {
                EXPECT_STREQ(text, expected);
            }
            vel_free(text);
        }
        for (const char *source : {"a%zz", "%zz", "%"})
            EXPECT_EQ(vel_urldecode(source), nullptr);
        return good;
    });
}

/* Assertions */

TEST(VelurldecodeDeathTest, PointersAreAsserted)
{
    char dst[4], *text;
    size_t len = 4;
    EXPECT_DEATH(vel_urldecode(nullptr), asserts("string != NULL", "vel_urldecode"));
    EXPECT_DEATH(vel_urldecode_string(nullptr, nullptr),
                 asserts("dstptr != NULL", "vel_urldecode_string"));
    EXPECT_DEATH(vel_urldecode_string(&text, nullptr),
                 asserts("src != NULL", "vel_urldecode_string"));
    EXPECT_DEATH(vel_urldecode_buffer(dst, nullptr, "a", 1),
                 asserts("dstlenptr != NULL", "vel_urldecode_buffer"));
    EXPECT_DEATH(vel_urldecode_buffer(dst, &len, nullptr, 0),
                 asserts("src != NULL", "vel_urldecode_buffer"));
    EXPECT_DEATH(vel_urldecode_buffer(nullptr, &len, "a", 1),
                 asserts("dst != NULL || *dstlenptr == 0", "vel_urldecode_buffer"));
}
