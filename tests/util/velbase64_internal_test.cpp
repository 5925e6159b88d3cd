#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velmalloc.h>

#include "support/decoded.h"
#include "support/logcapture.h"
#include "support/randombytes.h"
#include "support/textkernels.h"
#include "util/velbase64_internal.h"

/* With the lines of log. */
struct decoded : support::decoded {
    std::vector<support::log_line> lines;

    bool operator==(const decoded &) const = default;
};

static decoded decode(const vel_textkernels *kernels, const std::string &text)
{
    support::log_capture log;
    support::exact_block source(text);
    char dirt = 0;
    void *block = &dirt;
    size_t len = 77;
    const vel_error_t result =
        vel_base64_decode_with(kernels, &block, &len, source.data(), text.size());
    return {support::take_decoded(result, block, len), log.take()};
}

static std::string encode(const vel_textkernels *kernels, const std::string &bytes)
{
    support::exact_block source(bytes);
    char *text = vel_base64_encode_with(kernels, source.data(), bytes.size());
    std::string given = text;
    vel_free(text);
    return given;
}

static const std::string kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/* What must come out, by the plainest means: bit by bit. */
static std::string reference_encode(const std::string &bytes)
{
    std::string text;
    for (size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
        unsigned value = 0;
        for (size_t i = bit; i < bit + 6; i++)
            value = value << 1 | (i / 8 < bytes.size() ? bytes[i / 8] >> (7 - i % 8) & 1 : 0);
        text += kAlphabet[value];
    }
    return text + std::string((4 - text.size() % 4) % 4, '=');
}

static decoded failed(vel_error_t result, const char *format, unsigned byte)
{
    char text[80];
    snprintf(text, sizeof(text), format, byte);
    return {{result, {}}, {{"util/velbase64", 6, text}}};
}

static decoded reference_decode(const std::string &text)
{
    decoded expected = {{VEL_ERROR_NONE, {}}, {}};
    unsigned bits = 0, padding = 0;
    size_t digits = 0;
    for (char c : text) {
        auto byte = static_cast<uint8_t>(c);
        size_t value = kAlphabet.find(c);
        if (c == ' ' || (c >= '\t' && c <= '\r'))
            continue;
        if (c == '=') {
            if (++padding == 3)
                return failed(VEL_ERROR_INVALID_SYNTAX, "more than two padding characters present",
                              0);
            continue;
        }
        if (padding > 0)
            return failed(VEL_ERROR_INVALID_ARGUMENT, "unexpected character 0x%02x after padding",
                          byte);
        if (value == std::string::npos)
            return failed(VEL_ERROR_INVALID_ARGUMENT,
                          "invalid input character 0x%02x for base64 decoder", byte);
        bits = bits << 6 | static_cast<unsigned>(value);
        if (digits++ % 4 > 0)
            expected.data += static_cast<char>(bits >> (6 - (digits - 1) % 4 * 2));
    }
    if (digits % 4 == 1)
        expected.data += static_cast<char>(bits << 2);
    return expected;
}

using Velbase64Kernels = support::textkernels_test;

INSTANTIATE_TEST_SUITE_P(All, Velbase64Kernels, testing::ValuesIn(support::usable_textkernels()),
                         support::textkernels_name);

TEST_P(Velbase64Kernels, EncodesEveryLength)
{
    std::mt19937 random(1);
    for (size_t len = 0; len <= 300; len++) {
        std::string bytes = support::random_bytes(random, len);
        EXPECT_EQ(encode(GetParam(), bytes), reference_encode(bytes)) << len;
    }
}

TEST_P(Velbase64Kernels, DecodesEveryLength)
{
    std::mt19937 random(2);
    for (size_t len = 0; len <= 300; len++) {
        std::string bytes = support::random_bytes(random, len);
        EXPECT_EQ(decode(GetParam(), reference_encode(bytes)),
                  (decoded{{VEL_ERROR_NONE, bytes}, {}}))
            << len;
    }
}

TEST_P(Velbase64Kernels, DecodesEveryNumberOfDigits)
{
    std::mt19937 random(3);
    std::string digits = reference_encode(support::random_bytes(random, 225));
    for (size_t len = 0; len <= digits.size(); len++) {
        std::string text = digits.substr(0, len);
        EXPECT_EQ(decode(GetParam(), text), reference_decode(text)) << len;
    }
}

/* Each byte, at each place of a vector and in the ends that are left. */
TEST_P(Velbase64Kernels, TakesEveryByte)
{
    std::mt19937 random(4);
    std::string digits = reference_encode(support::random_bytes(random, 75));
    for (size_t pos : {0, 1, 2, 3, 15, 16, 31, 32, 63, 64, 65, 95, 96, 99}) {
        for (int byte = 0; byte < 256; byte++) {
            std::string text = digits;
            text[pos] = static_cast<char>(byte);
            ASSERT_EQ(decode(GetParam(), text), reference_decode(text)) << pos << " " << byte;
        }
    }
}

TEST_P(Velbase64Kernels, FindsAnErrorAtEveryPlace)
{
    std::mt19937 random(5);
    for (size_t len : {1, 4, 31, 32, 33, 63, 64, 65, 68, 127, 128, 160, 300}) {
        std::string digits = reference_encode(support::random_bytes(random, len)).substr(0, len);
        for (size_t pos = 0; pos < digits.size(); pos++) {
            std::string text = digits;
            text[pos] = '*';
            decoded given = decode(GetParam(), text);
            EXPECT_EQ(given.result, VEL_ERROR_INVALID_ARGUMENT) << len << " " << pos;
            EXPECT_EQ(given.lines, (std::vector<support::log_line>{
                                       {"util/velbase64", 6,
                                        "invalid input character 0x2a for base64 decoder"}}))
                << len << " " << pos;
        }
    }
}

/* The first of two bad bytes is the one that is named. */
TEST_P(Velbase64Kernels, NamesTheFirstOfTwoErrors)
{
    for (size_t first = 0; first < 140; first++) {
        for (size_t gap : {1, 2, 30, 59}) {
            std::string text(200, 'A');
            text[first] = '!';
            text[first + gap] = '?';
            decoded given = decode(GetParam(), text);
            ASSERT_EQ(given.lines.size(), 1u);
            EXPECT_EQ(given.lines[0].text, "invalid input character 0x21 for base64 decoder");
        }
    }
}

TEST_P(Velbase64Kernels, SkipsWhiteSpaceAtEveryPlace)
{
    std::mt19937 random(6);
    std::string bytes = support::random_bytes(random, 160);
    std::string digits = reference_encode(bytes);
    for (size_t pos = 0; pos <= digits.size(); pos++) {
        for (const char *space : {"\n", "\r\n", " \t\v\f  "}) {
            std::string text = digits;
            text.insert(pos, space);
            EXPECT_EQ(decode(GetParam(), text), (decoded{{VEL_ERROR_NONE, bytes}, {}})) << pos;
        }
    }
}

TEST_P(Velbase64Kernels, DecodesLinesOfEveryLength)
{
    std::mt19937 random(7);
    std::string bytes = support::random_bytes(random, 500);
    std::string digits = reference_encode(bytes);
    for (size_t width = 1; width <= 140; width++) {
        std::string text;
        for (size_t pos = 0; pos < digits.size(); pos += width)
            text += digits.substr(pos, width) + "\n";
        EXPECT_EQ(decode(GetParam(), text), (decoded{{VEL_ERROR_NONE, bytes}, {}})) << width;
    }
}

TEST_P(Velbase64Kernels, EndsAtPaddingAtEveryPlace)
{
    for (const char *end : {"=", "==", "===", "= =\n", "=A", "=*"}) {
        for (size_t len = 0; len <= 140; len++) {
            std::string text = std::string(len, 'x') + end;
            EXPECT_EQ(decode(GetParam(), text), reference_decode(text)) << len << end;
        }
    }
}

/* Texts of any kind: digits mostly, and now and then something else. */
TEST_P(Velbase64Kernels, DecodesRandomText)
{
    std::mt19937 random(8);
    for (int round = 0; round < 3000; round++) {
        std::string text(random() % 301, '\0');
        size_t oddness = 1 + random() % 200;
        for (char &byte : text)
            byte = random() % oddness == 0 ? " \n=*\xff"[random() % 5] : kAlphabet[random() % 64];
        ASSERT_EQ(decode(GetParam(), text), reference_decode(text)) << round;
    }
}
