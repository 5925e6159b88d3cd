#include <cctype>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include <vellib/velmalloc.h>

#include "support/decoded.h"
#include "support/randombytes.h"
#include "support/textkernels.h"
#include "util/velbin2hex_internal.h"
#include "util/velhex2bin_internal.h"

using support::decoded;

static std::string encode(const vel_textkernels *kernels, const std::string &bytes)
{
    support::exact_block source(bytes);
    char *text = vel_bin2hex_with(kernels, source.data(), bytes.size());
    std::string given = text;
    vel_free(text);
    return given;
}

/* A digit pair at a time. */
static std::string reference_encode(const std::string &bytes)
{
    std::string text;
    for (char byte : bytes) {
        char pair[3];
        snprintf(pair, sizeof(pair), "%02x", static_cast<uint8_t>(byte));
        text += pair;
    }
    return text;
}

static decoded decode(const vel_textkernels *kernels, const std::string &text)
{
    support::exact_block source(text + std::string(1, '\0'));
    char dirt = 0;
    void *block = &dirt;
    size_t len = 77;
    const vel_error_t result = vel_hex2bin_with(kernels, source.data(), &block, &len);
    return support::take_decoded(result, block, len);
}

using VelhexKernels = support::textkernels_test;

INSTANTIATE_TEST_SUITE_P(All, VelhexKernels, testing::ValuesIn(support::usable_textkernels()),
                         support::textkernels_name);

TEST_P(VelhexKernels, EncodesEveryLength)
{
    std::mt19937 random(1);
    for (size_t len = 0; len <= 300; len++) {
        std::string bytes = support::random_bytes(random, len);
        EXPECT_EQ(encode(GetParam(), bytes), reference_encode(bytes)) << len;
    }
}

TEST_P(VelhexKernels, DecodesEveryLengthInEitherCase)
{
    std::mt19937 random(2);
    for (size_t len = 0; len <= 300; len++) {
        std::string bytes = support::random_bytes(random, len);
        std::string text = reference_encode(bytes);
        for (char &digit : text)
            if (random() % 2)
                digit = static_cast<char>(toupper(digit));
        EXPECT_EQ(decode(GetParam(), text), (decoded{VEL_ERROR_NONE, bytes})) << len;
    }
}

TEST_P(VelhexKernels, RefusesEveryOddLength)
{
    for (size_t len = 1; len <= 300; len += 2) {
        EXPECT_EQ(decode(GetParam(), std::string(len, 'a')), (decoded{VEL_ERROR_INCOMPLETE, {}}));
        EXPECT_EQ(decode(GetParam(), std::string(len, 'z')), (decoded{VEL_ERROR_INCOMPLETE, {}}));
    }
}

/* Each byte but the NUL, at each place of a vector and in the ends that are left. */
TEST_P(VelhexKernels, TakesDigitsAndNothingElse)
{
    for (size_t pos : {0, 1, 15, 16, 30, 31, 32, 33, 63, 64, 65, 95, 96, 99}) {
        for (int byte = 1; byte < 256; byte++) {
            std::string text(100, '5');
            text[pos] = static_cast<char>(byte);
            decoded expected = {VEL_ERROR_OUT_OF_RANGE, {}};
            if (isxdigit(byte)) {
                expected = {VEL_ERROR_NONE, std::string(50, '\x55')};
                auto value = static_cast<char>(std::stoi(text.substr(pos / 2 * 2, 2), nullptr, 16));
                expected.data[pos / 2] = value;
            }
            ASSERT_EQ(decode(GetParam(), text), expected) << pos << " " << byte;
        }
    }
}

TEST_P(VelhexKernels, FindsAnErrorAtEveryPlace)
{
    std::mt19937 random(3);
    for (size_t len = 1; len <= 150; len++) {
        std::string digits = reference_encode(support::random_bytes(random, len));
        for (size_t pos = 0; pos < digits.size(); pos++) {
            std::string text = digits;
            text[pos] = "g@/:`G\x80\xff"[random() % 8];
            ASSERT_EQ(decode(GetParam(), text), (decoded{VEL_ERROR_OUT_OF_RANGE, {}}))
                << len << " " << pos;
        }
    }
}
