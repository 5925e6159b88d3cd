#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/punycode.h"
#include "support/rows.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

using log_lines = std::vector<log_line>;
using label_function = vel_error_t (*)(const char *, char **);

/* Samples */

class VelpunycodeLabel : public testing::TestWithParam<punycode_sample> {};
INSTANTIATE_TEST_SUITE_P(Samples, VelpunycodeLabel, testing::ValuesIn(kPunycodeSamples),
                         row_name());

TEST_P(VelpunycodeLabel, BothDirections)
{
    log_capture log;
    char dirt = 0, *output = &dirt;
    EXPECT_EQ(vel_punycode_encode(GetParam().utf8, &output), VEL_ERROR_NONE);
    EXPECT_STREQ(output, GetParam().punycode);
    vel_free(output);

    output = &dirt;
    EXPECT_EQ(vel_punycode_decode(GetParam().punycode, &output), VEL_ERROR_NONE);
    EXPECT_STREQ(output, GetParam().utf8);
    vel_free(output);
    EXPECT_THAT(log.take(), IsEmpty());
}

/* Rows */

struct label_case {
    const char *name;
    label_function convert;
    std::string input;
    vel_error_t result;
    const char *output; /* NULL where it fails */
    const char *logged = nullptr;
};

static void PrintTo(const label_case &row, std::ostream *out)
{
    *out << row.input;
}

static const label_case kLabelCases[] = {
    {"EncodeAscii", vel_punycode_encode, "abc", VEL_ERROR_NONE, "abc-"},
    {"EncodeUmlaut", vel_punycode_encode, "bücher", VEL_ERROR_NONE, "bcher-kva"},
    {"EncodeKeepsCase", vel_punycode_encode, "BÜcher", VEL_ERROR_NONE, "Bcher-2pa"},
    {"EncodeADot", vel_punycode_encode, "a.ü", VEL_ERROR_NONE, "a.-yka"},
    {"EncodeLast", vel_punycode_encode, "\xF4\x8F\xBF\xBF", VEL_ERROR_NONE, "dn32g"},
    {"EncodeBadFirstByte", vel_punycode_encode, "a\xFF", VEL_ERROR_GENERIC, nullptr,
     "invalid UTF-8 first byte 0xff"},
    {"EncodeCutUtf8", vel_punycode_encode, "a\xC3", VEL_ERROR_GENERIC, nullptr,
     "invalid UTF-8 continuation byte 0x00"},
    {"EncodeSurrogate", vel_punycode_encode, "\xED\xA0\x80", VEL_ERROR_GENERIC, nullptr,
     "invalid UTF-8 second byte 0xa0 in a 3-byte sequence starting with 0xed"},
    {"EncodeOverflow", vel_punycode_encode, std::string(3855, 'a') + "\xF4\x8F\xBF\xBF",
     VEL_ERROR_OUT_OF_RANGE, nullptr},

    {"DecodeAscii", vel_punycode_decode, "abc-", VEL_ERROR_NONE, "abc"},
    {"DecodeUpperCase", vel_punycode_decode, "Bcher-KVA", VEL_ERROR_NONE, "Bücher"},
    {"DecodeLast", vel_punycode_decode, "dn32g", VEL_ERROR_NONE, "\xF4\x8F\xBF\xBF"},
    {"DecodeDelimiterAtTheStart", vel_punycode_decode, "-abc", VEL_ERROR_OUT_OF_RANGE, nullptr},
    {"DecodeDelimiterAlone", vel_punycode_decode, "-", VEL_ERROR_OUT_OF_RANGE, nullptr},
    {"DecodeCutNumber", vel_punycode_decode, "bcher-kv", VEL_ERROR_OUT_OF_RANGE, nullptr},
    {"DecodeBadDigit", vel_punycode_decode, "bcher-k!a", VEL_ERROR_OUT_OF_RANGE, nullptr},
    {"DecodeOverflow", vel_punycode_decode, "99999999", VEL_ERROR_OUT_OF_RANGE, nullptr},
    {"DecodeHighDigit", vel_punycode_decode, "bcher-kvä", VEL_ERROR_OUT_OF_RANGE, nullptr},
    {"DecodeHighBasic", vel_punycode_decode, "bücher-kva", VEL_ERROR_OUT_OF_RANGE, nullptr},
    {"DecodeBadUtf8", vel_punycode_decode, "a\x80", VEL_ERROR_GENERIC, nullptr,
     "invalid UTF-8 first byte 0x80"},
    {"DecodeSurrogateAtTheEnd", vel_punycode_decode, "ib9b", VEL_ERROR_GENERIC, nullptr,
     "end of wide character string in the middle of surrogate pairs, first surrogate 0xd800"},
    {"DecodeSecondSurrogate", vel_punycode_decode, "r49b", VEL_ERROR_GENERIC, nullptr,
     "unexpected occurrence of a second part of the surrogate 0xdc00 without a preceeding first "
     "part"},
    {"DecodeSurrogatePair", vel_punycode_decode, "8c9bk9h", VEL_ERROR_NONE, "\xF0\x9F\x98\x80"},
    {"DecodeBehindTheLast", vel_punycode_decode, "en32g", VEL_ERROR_GENERIC, nullptr,
     "invalid wide character 0x00110000"},
    {"DecodeHighValue", vel_punycode_decode, "8016146o", VEL_ERROR_GENERIC, nullptr,
     "invalid wide character 0x7fffffff"},
};

class VelpunycodeRow : public testing::TestWithParam<label_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelpunycodeRow, testing::ValuesIn(kLabelCases), row_name());

TEST_P(VelpunycodeRow, Row)
{
    const label_case &row = GetParam();
    log_capture log;
    char dirt = 0, *output = &dirt;
    EXPECT_EQ(row.convert(row.input.c_str(), &output), row.result);
    EXPECT_STREQ(output, row.output);
    vel_free(output);
    EXPECT_EQ(log.take(),
              row.logged ? log_lines({{punycode_wchar_set::module, 6, row.logged}}) : log_lines());
}

TEST(Velpunycode, NullIsRefusedInSilence)
{
    log_capture log;
    for (const label_function convert : {vel_punycode_encode, vel_punycode_decode}) {
        char dirt = 0, *output = &dirt;
        EXPECT_EQ(convert(nullptr, &output), VEL_ERROR_INVALID_ARGUMENT);
        EXPECT_EQ(output, nullptr);
        EXPECT_EQ(convert("a", nullptr), VEL_ERROR_INVALID_ARGUMENT);
        EXPECT_EQ(convert(nullptr, nullptr), VEL_ERROR_INVALID_ARGUMENT);
    }
    EXPECT_THAT(log.take(), IsEmpty());
}

/* The wide-character conversions around the array function have one code for all. */
TEST(Velpunycode, WithoutMemory)
{
    log_capture log;
    for (const auto &[convert, input] : {std::pair(&vel_punycode_encode, "bücher"),
                                         std::pair(&vel_punycode_decode, "bcher-kva")}) {
        std::vector<vel_error_t> codes;
        const auto failures = allocfail_each(log, [&, &convert = convert, &input = input] {
            char dirt = 0, *output = &dirt;
            const vel_error_t result = convert(input, &output);
            if (result != VEL_ERROR_NONE)
                codes.push_back(result);
            EXPECT_EQ(output != nullptr, result == VEL_ERROR_NONE);
            vel_free(output);
            return result == VEL_ERROR_NONE;
        });
        /* The code points; the array of the result; its copy with a terminator; the text. */
        EXPECT_THAT(codes, ElementsAre(VEL_ERROR_GENERIC, VEL_ERROR_NO_MEMORY, VEL_ERROR_GENERIC,
                                       VEL_ERROR_GENERIC));
        EXPECT_THAT(failures, testing::Each(IsEmpty()));
    }
}

TEST(VelpunycodeOom, Life)
{
    vel_oom_drive([] {
        char *text = nullptr, *label = nullptr;
        const bool good = vel_punycode_encode("bücher", &text) == VEL_ERROR_NONE &&
                          vel_punycode_decode(text, &label) == VEL_ERROR_NONE;
        if (good) {
            EXPECT_STREQ(label, "bücher");
        }
        vel_free(text);
        vel_free(label);
        return good;
    });
}

TEST(VelpunycodeDeathTest, AnEmptyLabelIsAsserted)
{
    char *output;
    EXPECT_DEATH(vel_punycode_encode("", &output),
                 asserts("buffer != NULL", "vel_punycode_unicode_buffer_to_utf8"));
    EXPECT_DEATH(vel_punycode_decode("", &output),
                 asserts("buffer != NULL", "vel_punycode_unicode_buffer_to_utf8"));
}
