#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/decoded.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/randombytes.h"
#include "support/rows.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static const char kModule[] = "util/velbase64";
static const std::string kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/* A copy in a block of its own size, so that a read beyond the end shows. */
static std::unique_ptr<char[]> exact_copy(const std::string &text)
{
    auto copy = std::make_unique<char[]>(text.size());
    std::copy(text.begin(), text.end(), copy.get());
    return copy;
}

static std::string encode(const std::string &data)
{
    char *encoded = vel_base64_encode(exact_copy(data).get(), data.size());
    const std::string result = encoded ? encoded : "(NULL)";
    vel_free(encoded);
    return result;
}

static decoded decode(const std::string &source)
{
    char dirt = 0;
    void *dest = &dirt;
    size_t length = 77;
    const vel_error_t result =
        vel_base64_decode(&dest, &length, exact_copy(source).get(), source.size());
    return take_decoded(result, dest, length);
}

/* The rules by the bit: the data is a row of six-bit values, cut into bytes from the left. */
static std::string oracle_encode(const std::string &data)
{
    std::string bits, result;
    for (const char byte : data)
        for (int bit = 7; bit >= 0; bit--)
            bits.push_back(static_cast<char>('0' + ((byte >> bit) & 1)));
    while (bits.size() % 6)
        bits.push_back('0');
    for (size_t i = 0; i < bits.size(); i += 6)
        result.push_back(kAlphabet[std::stoul(bits.substr(i, 6), nullptr, 2)]);
    while (result.size() % 4)
        result.push_back('=');
    return result;
}

static decoded oracle_decode(const std::string &source)
{
    const std::string blanks = "\t\n\v\f\r ";
    std::string bits;
    size_t pos = 0;
    for (; pos < source.size() && source[pos] != '='; pos++) {
        if (blanks.find(source[pos]) != std::string::npos)
            continue;
        const size_t value = kAlphabet.find(source[pos]);
        if (value == std::string::npos)
            return {VEL_ERROR_INVALID_ARGUMENT, ""};
        for (int bit = 5; bit >= 0; bit--)
            bits.push_back(static_cast<char>('0' + ((value >> bit) & 1)));
    }
    for (size_t padding = 0; pos < source.size(); pos++) {
        if (blanks.find(source[pos]) != std::string::npos)
            continue;
        if (source[pos] != '=')
            return {VEL_ERROR_INVALID_ARGUMENT, ""};
        if (++padding > 2)
            return {VEL_ERROR_INVALID_SYNTAX, ""};
    }
    if (bits.size() % 24 == 6) /* one value left over gives a byte, filled up with zeros */
        bits += "00";
    decoded out{VEL_ERROR_NONE, ""};
    for (size_t i = 0; i + 8 <= bits.size(); i += 8)
        out.data.push_back(static_cast<char>(std::stoul(bits.substr(i, 8), nullptr, 2)));
    return out;
}

TEST(Velbase64Encode, Rows)
{
    EXPECT_EQ(encode(""), "");
    EXPECT_EQ(encode("f"), "Zg==");
    EXPECT_EQ(encode("fo"), "Zm8=");
    EXPECT_EQ(encode("foo"), "Zm9v");
    EXPECT_EQ(encode("foob"), "Zm9vYg==");
    EXPECT_EQ(encode("fooba"), "Zm9vYmE=");
    EXPECT_EQ(encode("foobar"), "Zm9vYmFy");
    EXPECT_EQ(encode(std::string("\0\0\0", 3)), "AAAA");
    EXPECT_EQ(encode("\xff\xff\xff"), "////");
    EXPECT_EQ(encode("\xfb\xef\xbe"), "++++");
}

TEST(Velbase64, EveryLengthAgreesWithTheOracleBothWays)
{
    log_capture log;
    std::mt19937 random(20261121);
    for (size_t length = 0; length < 400; length++) {
        const std::string data = support::random_bytes(random, length);
        const std::string text = oracle_encode(data);
        ASSERT_EQ(encode(data), text) << "length " << length;
        ASSERT_EQ(decode(text), (decoded{VEL_ERROR_NONE, data})) << "length " << length;
    }
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(Velbase64, LargeDataComesBack)
{
    std::mt19937 random(20261121);
    for (size_t length = 1000000; length < 1000003; length++) {
        const std::string data = support::random_bytes(random, length);
        const std::string text = encode(data);
        ASSERT_EQ(text.size(), (length + 2) / 3 * 4);
        ASSERT_TRUE(decode(text) == (decoded{VEL_ERROR_NONE, data}));
    }
}

TEST(Velbase64Encode, ASizeThatWrapsIsRefused)
{
    log_capture log;
    const log_line line{kModule, 6, "size too large, would overflow"};
    /* length + 2 wraps, or four times a third of it does and is smaller than the length */
    for (const size_t length : {SIZE_MAX, SIZE_MAX - 1, SIZE_MAX - 2, SIZE_MAX / 4 * 3 + 1}) {
        EXPECT_EQ(vel_base64_encode("", length), nullptr) << length;
        EXPECT_THAT(log.take(), ElementsAre(line)) << length;
    }
}

struct decode_case {
    const char *name;
    std::string source;
    decoded expected;
    const char *line = nullptr; /* of level 6 */
};

static void PrintTo(const decode_case &row, std::ostream *out)
{
    *out << testing::PrintToString(row.source);
}

static const char kThreePaddings[] = "more than two padding characters present";

static const decode_case kDecodeCases[] = {
    {"Whole", "Zm9v", {VEL_ERROR_NONE, "foo"}},
    {"OnePadding", "Zm8=", {VEL_ERROR_NONE, "fo"}},
    {"TwoPaddings", "Zg==", {VEL_ERROR_NONE, "f"}},
    {"ThreeValuesWithoutPadding", "Zm8", {VEL_ERROR_NONE, "fo"}},
    {"TwoValuesWithoutPadding", "Zg", {VEL_ERROR_NONE, "f"}},
    {"OneValueGivesAByte", "Q", {VEL_ERROR_NONE, "\x40"}},
    {"OneValueBehindAGroup", "Zm9vQ", {VEL_ERROR_NONE, "foo\x40"}},
    {"LowBitsAreDropped", "Zh==", {VEL_ERROR_NONE, "f"}},
    {"Empty", "", {VEL_ERROR_NONE, ""}},
    {"BlanksOnly", " \t\n\v\f\r", {VEL_ERROR_NONE, ""}},
    {"LineFeed", "Zm9v\nYmFy", {VEL_ERROR_NONE, "foobar"}},
    {"BlanksAnywhere", "\tZ\nm\v9\fv\r Y\r\nm F y ", {VEL_ERROR_NONE, "foobar"}},
    {"BlanksAroundThePadding", "Zg \n= \t= \r", {VEL_ERROR_NONE, "f"}},
    {"PaddingOnly", "==", {VEL_ERROR_NONE, ""}},
    {"PaddingBehindAWholeGroup", "Zm9v==", {VEL_ERROR_NONE, "foo"}},
    {"OnePaddingWhereTwoBelong", "Zg=", {VEL_ERROR_NONE, "f"}},
    {"TwoPaddingsWhereOneBelongs", "Zm8==", {VEL_ERROR_NONE, "fo"}},

    {"ThreePaddings", "Zg===", {VEL_ERROR_INVALID_SYNTAX, ""}, kThreePaddings},
    {"ThreePaddingsWithBlanks", "Zg= =\n=", {VEL_ERROR_INVALID_SYNTAX, ""}, kThreePaddings},
    {"ThePaddingThatComesFirstCounts", "=== a", {VEL_ERROR_INVALID_SYNTAX, ""}, kThreePaddings},
    {"ValueBehindPadding",
     "Zg=a",
     {VEL_ERROR_INVALID_ARGUMENT, ""},
     "unexpected character 0x61 after padding"},
    {"HighByteBehindPadding",
     "Zg=\xff",
     {VEL_ERROR_INVALID_ARGUMENT, ""},
     "unexpected character 0xff after padding"},
    {"NulBehindPadding",
     std::string("Zg=\0", 4),
     {VEL_ERROR_INVALID_ARGUMENT, ""},
     "unexpected character 0x00 after padding"},
    {"InvalidCharacter",
     "Zm9v!",
     {VEL_ERROR_INVALID_ARGUMENT, ""},
     "invalid input character 0x21 for base64 decoder"},
    {"FirstInvalidCharacterCounts",
     "Z-m_",
     {VEL_ERROR_INVALID_ARGUMENT, ""},
     "invalid input character 0x2d for base64 decoder"},
    {"HighByte",
     "Zm\x80v",
     {VEL_ERROR_INVALID_ARGUMENT, ""},
     "invalid input character 0x80 for base64 decoder"},
    {"HighestByte",
     "\xff",
     {VEL_ERROR_INVALID_ARGUMENT, ""},
     "invalid input character 0xff for base64 decoder"},
    {"Nul",
     std::string("\0", 1),
     {VEL_ERROR_INVALID_ARGUMENT, ""},
     "invalid input character 0x00 for base64 decoder"},
};

class Velbase64Decode : public testing::TestWithParam<decode_case> {};

TEST_P(Velbase64Decode, Case)
{
    log_capture log;
    EXPECT_EQ(decode(GetParam().source), GetParam().expected);
    if (GetParam().line)
        EXPECT_THAT(log.take(), ElementsAre(log_line{kModule, 6, GetParam().line}));
    else
        EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(oracle_decode(GetParam().source), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Table, Velbase64Decode, testing::ValuesIn(kDecodeCases), row_name());

TEST(Velbase64Decode, EveryByteIsClassifiedAtEveryPosition)
{
    log_capture log; /* keeps the lines off the terminal */
    const std::string text = oracle_encode("The quick brown fox jumps over the lazy dog.+++");
    for (size_t pos = 0; pos <= text.size(); pos++) {
        for (int byte = 0; byte < 256; byte++) {
            std::string source = text;
            source.insert(pos, 1, static_cast<char>(byte));
            ASSERT_EQ(decode(source), oracle_decode(source)) << "byte " << byte << " at " << pos;
        }
        log.clear();
    }
}

/* Runs of values, with now and then a blank, a padding or an invalid byte. */
TEST(Velbase64Decode, RandomTextAgreesWithTheOracle)
{
    log_capture log;
    std::mt19937 random(20261121);
    for (int round = 0; round < 4000; round++) {
        const unsigned rare = 3 + random() % 300;
        std::string source;
        for (size_t length = random() % 300; source.size() < length;) {
            const bool odd = random() % rare == 0;
            source.push_back(odd ? " \n\t\r=\x80!"[random() % 7] : kAlphabet[random() % 64]);
        }
        source.append(random() % 3, '=');
        ASSERT_EQ(decode(source), oracle_decode(source)) << source;
        log.clear();
    }
}

TEST(Velbase64Memory, EncodeLogsWhatWasMissing)
{
    log_capture log;
    const auto failures = allocfail_each(log, [] {
        char *text = vel_base64_encode("foo", 3);
        vel_free(text);
        return text != nullptr;
    });
    EXPECT_THAT(failures, ElementsAre(ElementsAre(
                              log_line{kModule, 7, "not enough memory for base64 encoding"})));
}

TEST(Velbase64Memory, DecodeLogsWhatWasMissing)
{
    log_capture log;
    const auto failures = allocfail_each(log, [] {
        const decoded out = decode("Zm9vYg==");
        EXPECT_TRUE(out.result == VEL_ERROR_NONE || out.result == VEL_ERROR_NO_MEMORY);
        return out.result == VEL_ERROR_NONE;
    });
    EXPECT_THAT(failures,
                ElementsAre(ElementsAre(log_line{
                    kModule, 7, "not enough memory for the destination buffer (5 bytes)"})));
}

static bool base64_life()
{
    char *text = vel_base64_encode("foobar", 6);
    if (!text)
        return false;
    void *data = nullptr;
    size_t length = 0;
    const vel_error_t result = vel_base64_decode(&data, &length, text, 8);
    vel_free(text);
    vel_free(data);
    EXPECT_EQ(length, result == VEL_ERROR_NONE ? 6u : 0u);
    return result == VEL_ERROR_NONE;
}

TEST(Velbase64Oom, Life)
{
    vel_oom_drive(base64_life);
}

TEST(Velbase64DeathTest, Assertions)
{
    void *dest = nullptr;
    size_t length = 0;
    EXPECT_DEATH(vel_base64_encode(nullptr, 0), asserts("buf != NULL", "vel_base64_encode"));
    EXPECT_DEATH(vel_base64_decode(nullptr, &length, "", 0),
                 asserts("destptr != NULL", "vel_base64_decode"));
    EXPECT_DEATH(vel_base64_decode(&dest, nullptr, "", 0),
                 asserts("destlenptr != NULL", "vel_base64_decode"));
    EXPECT_DEATH(vel_base64_decode(&dest, &length, nullptr, 0),
                 asserts("source != NULL", "vel_base64_decode"));
}
