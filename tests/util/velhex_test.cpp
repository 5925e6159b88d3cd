#include <cstdint>
#include <memory>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/decoded.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/rows.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static const char kBin2hexModule[] = "util/velbin2hex";
static const char kHex2binModule[] = "util/velhex2bin";

/* A copy in a block of its own size, so that a read beyond the end shows. */
static std::string to_hex(const std::string &data)
{
    auto copy = std::make_unique<char[]>(data.size());
    std::copy(data.begin(), data.end(), copy.get());
    char *text = vel_bin2hex(copy.get(), data.size());
    const std::string result = text ? text : "(NULL)";
    vel_free(text);
    return result;
}

static decoded from_hex(const std::string &text)
{
    auto copy = std::make_unique<char[]>(text.size() + 1);
    std::copy(text.begin(), text.end(), copy.get());
    char dirt = 0;
    void *dest = &dirt;
    size_t length = 77;
    const vel_error_t result = vel_hex2bin(copy.get(), &dest, &length);
    return take_decoded(result, dest, length);
}

static std::string oracle_to_hex(const std::string &data)
{
    std::string text;
    for (const char byte : data) {
        char digits[3];
        snprintf(digits, sizeof(digits), "%02x", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

static decoded oracle_from_hex(const std::string &text)
{
    if (text.size() % 2)
        return {VEL_ERROR_INCOMPLETE, ""};
    if (text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        return {VEL_ERROR_OUT_OF_RANGE, ""};
    decoded out{VEL_ERROR_NONE, ""};
    for (size_t i = 0; i < text.size(); i += 2)
        out.data.push_back(static_cast<char>(std::stoul(text.substr(i, 2), nullptr, 16)));
    return out;
}

TEST(Velbin2hex, Rows)
{
    EXPECT_EQ(to_hex(""), "");
    EXPECT_EQ(to_hex(std::string("\x00\x01\x7f\x80\xab\xff", 6)), "00017f80abff");
}

TEST(Velbin2hex, ASizeThatWrapsIsRefused)
{
    log_capture log;
    const log_line line{kBin2hexModule, 6, "size is too high for a size_t"};
    for (const size_t length : {SIZE_MAX, SIZE_MAX - 1, SIZE_MAX / 2 + 1}) {
        EXPECT_EQ(vel_bin2hex("", length), nullptr) << length;
        EXPECT_THAT(log.take(), ElementsAre(line)) << length;
    }
}

TEST(Velhex, EveryLengthAgreesWithTheOracleBothWays)
{
    log_capture log;
    std::mt19937 random(20261121);
    for (size_t length = 0; length < 400; length++) {
        std::string data;
        for (size_t i = 0; i < length; i++)
            data.push_back(static_cast<char>(random()));
        std::string text = oracle_to_hex(data);
        ASSERT_EQ(to_hex(data), text) << "length " << length;
        ASSERT_EQ(from_hex(text), (decoded{VEL_ERROR_NONE, data})) << "length " << length;
        for (char &digit : text) /* either case, mixed */
            if (random() % 2)
                digit = static_cast<char>(toupper(digit));
        ASSERT_EQ(from_hex(text), (decoded{VEL_ERROR_NONE, data})) << "length " << length;
        ASSERT_EQ(from_hex(text + "a"), (decoded{VEL_ERROR_INCOMPLETE, ""}));
    }
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(Velhex, LargeDataComesBack)
{
    std::string data;
    for (std::mt19937 random(20261121); data.size() < 1000001;)
        data.push_back(static_cast<char>(random()));
    const std::string text = to_hex(data);
    ASSERT_EQ(text.size(), 2 * data.size());
    ASSERT_TRUE(text == oracle_to_hex(data));
    ASSERT_TRUE(from_hex(text) == (decoded{VEL_ERROR_NONE, data}));
}

struct hex_case {
    const char *name;
    const char *text;
    decoded expected;
};

static void PrintTo(const hex_case &row, std::ostream *out)
{
    *out << testing::PrintToString(row.text);
}

static const hex_case kHexCases[] = {
    {"Empty", "", {VEL_ERROR_NONE, ""}},
    {"BothCases", "AbCd", {VEL_ERROR_NONE, "\xab\xcd"}},
    {"AllDigits",
     "0123456789abcdefABCDEF",
     {VEL_ERROR_NONE, "\x01\x23\x45\x67\x89\xab\xcd\xef\xab\xcd\xef"}},
    {"ZeroBytes", "0000", {VEL_ERROR_NONE, std::string(2, 0)}},
    {"OddLength", "abc", {VEL_ERROR_INCOMPLETE, ""}},
    {"OneDigit", "a", {VEL_ERROR_INCOMPLETE, ""}},
    {"OddLengthComesBeforeTheDigits", "zzz", {VEL_ERROR_INCOMPLETE, ""}},
    {"NoDigits", "zz", {VEL_ERROR_OUT_OF_RANGE, ""}},
    {"BadHighNibble", "ab:0", {VEL_ERROR_OUT_OF_RANGE, ""}},
    {"BadLowNibble", "ab0g", {VEL_ERROR_OUT_OF_RANGE, ""}},
    {"Blank", "ab cd ", {VEL_ERROR_OUT_OF_RANGE, ""}},
    {"Prefix", "0xab", {VEL_ERROR_OUT_OF_RANGE, ""}},
};

class Velhex2bin : public testing::TestWithParam<hex_case> {};

TEST_P(Velhex2bin, CaseIsSilent)
{
    log_capture log;
    EXPECT_EQ(from_hex(GetParam().text), GetParam().expected);
    EXPECT_THAT(log.take(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Table, Velhex2bin, testing::ValuesIn(kHexCases), row_name());

TEST(Velhex2bin, EveryByteIsClassifiedAtEveryPosition)
{
    log_capture log;
    const std::string text = "00112233445566778899aabbccddeeff0011223344556677889900112233445566";
    for (size_t pos = 0; pos < text.size(); pos++) {
        for (int byte = 1; byte < 256; byte++) {
            std::string changed = text;
            changed[pos] = static_cast<char>(byte);
            ASSERT_EQ(from_hex(changed), oracle_from_hex(changed)) << byte << " at " << pos;
        }
    }
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(VelhexMemory, LogsWhatWasMissing)
{
    log_capture log;
    EXPECT_THAT(allocfail_each(log, [] { return to_hex("ab") != "(NULL)"; }),
                ElementsAre(ElementsAre(
                    log_line{kBin2hexModule, 7, "not enough memory for conversion result"})));
    const auto failures = allocfail_each(log, [] {
        const decoded out = from_hex("61626364");
        EXPECT_TRUE(out.result == VEL_ERROR_NONE || out.result == VEL_ERROR_NO_MEMORY);
        return out.result == VEL_ERROR_NONE;
    });
    EXPECT_THAT(failures,
                ElementsAre(ElementsAre(
                    log_line{kHex2binModule, 7, "not enough memory for binary buffer (5 bytes)"})));
}

static bool hex_life()
{
    char *text = vel_bin2hex("foobar", 6);
    if (!text)
        return false;
    void *data = nullptr;
    size_t length = 0;
    const vel_error_t result = vel_hex2bin(text, &data, &length);
    vel_free(text);
    vel_free(data);
    EXPECT_EQ(vel_hex2bin("zz", &data, &length) == VEL_ERROR_NONE, false);
    return result == VEL_ERROR_NONE;
}

TEST(VelhexOom, Life)
{
    vel_oom_drive(hex_life);
}

TEST(VelhexDeathTest, Assertions)
{
    void *dest = nullptr;
    size_t length = 0;
    EXPECT_DEATH(vel_bin2hex(nullptr, 0), asserts("buf != NULL", "vel_bin2hex"));
    EXPECT_DEATH(vel_hex2bin(nullptr, &dest, &length), asserts("hexstring != NULL", "vel_hex2bin"));
    EXPECT_DEATH(vel_hex2bin("", nullptr, &length), asserts("destptr != NULL", "vel_hex2bin"));
    EXPECT_DEATH(vel_hex2bin("", &dest, nullptr), asserts("destlenptr != NULL", "vel_hex2bin"));
}
