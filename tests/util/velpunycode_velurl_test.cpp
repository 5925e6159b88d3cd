#include <cctype>
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

static const vel_error_t kTruncated = 223;
static const uint32_t kDirt = 0xA5A5A5A5;

/* The two directions, which share their rules on capacities and outputs. */
struct encoding {
    static constexpr auto convert = vel_punycode_velurl_decode_from_warray;
    static constexpr auto allocate = vel_punycode_velurl_encode;
};

struct decoding {
    static constexpr auto convert = vel_punycode_velurl_decode_to_warray;
    static constexpr auto allocate = vel_punycode_velurl_decode;
};

struct converted {
    vel_error_t result;
    points values;

    bool operator==(const converted &) const = default;
};

static void PrintTo(const converted &one, std::ostream *out)
{
    *out << one.result << " " << testing::PrintToString(one.values);
}

/* A source that is not NULL, even where it is empty. */
static const uint32_t *data_of(const points &source)
{
    static const uint32_t none = 0;
    return source.empty() ? &none : source.data();
}

/* Converts with room enough; what is not part of the result stays as it was. */
template <typename Direction> static converted convert(const points &source)
{
    points room(source.size() * 8 + 8, kDirt);
    size_t len = room.size();
    const vel_error_t result =
        Direction::convert(room.data(), &len, data_of(source), source.size());
    EXPECT_LT(len, room.size());
    for (size_t i = len; i < room.size(); i++)
        EXPECT_EQ(room[i], kDirt);
    room.resize(len);
    return {result, room};
}

template <typename Direction> static converted allocate(const points &source)
{
    uint32_t dirt = 0, *values = &dirt;
    size_t len = 77;
    const vel_error_t result = Direction::allocate(data_of(source), source.size(), &values, &len);
    EXPECT_EQ(values != nullptr, result == VEL_ERROR_NONE && len > 0);
    converted made{result, values ? points(values, values + len) : points()};
    vel_free(values);
    return made;
}

template <typename Direction> static void expect_every_capacity(const points &source)
{
    const converted whole = convert<Direction>(source);
    for (size_t capacity = 0; capacity <= whole.values.size() + 2; capacity++) {
        points room(whole.values.size() + 4, kDirt);
        size_t len = capacity;
        EXPECT_EQ(Direction::convert(room.data(), &len, data_of(source), source.size()),
                  whole.result == VEL_ERROR_NONE && capacity < whole.values.size() ? kTruncated
                                                                                   : whole.result);
        EXPECT_EQ(len, whole.values.size());
        points expected = whole.values;
        if (expected.size() > capacity)
            expected.resize(capacity);
        expected.resize(room.size(), kDirt);
        EXPECT_EQ(room, expected) << "capacity " << capacity;
    }
    size_t len = 0;
    EXPECT_EQ(Direction::convert(nullptr, &len, data_of(source), source.size()),
              whole.result == VEL_ERROR_NONE && !whole.values.empty() ? kTruncated : whole.result);
    EXPECT_EQ(len, whole.values.size());
}

static points ascii(const std::string &text)
{
    return points(text.begin(), text.end());
}

/* Samples */

class VelpunycodeArray : public testing::TestWithParam<punycode_sample> {};
INSTANTIATE_TEST_SUITE_P(Samples, VelpunycodeArray, testing::ValuesIn(kPunycodeSamples),
                         row_name());

TEST_P(VelpunycodeArray, Encodes)
{
    const converted expected{VEL_ERROR_NONE, ascii(GetParam().punycode)};
    EXPECT_EQ(convert<encoding>(points_of(GetParam().utf8)), expected);
    EXPECT_EQ(allocate<encoding>(points_of(GetParam().utf8)), expected);
}

TEST_P(VelpunycodeArray, Decodes)
{
    const converted expected{VEL_ERROR_NONE, points_of(GetParam().utf8)};
    EXPECT_EQ(convert<decoding>(ascii(GetParam().punycode)), expected);
    EXPECT_EQ(allocate<decoding>(ascii(GetParam().punycode)), expected);
}

/* Short results and long ones come about in different ways. */
TEST(VelpunycodeVelurl, AllocatesForAnyLength)
{
    for (size_t len = 1; len <= 200; len++) {
        points label(len, 'a');
        label[len / 2] = 0xfc;
        const converted punycode = convert<encoding>(label);
        EXPECT_EQ(punycode.result, VEL_ERROR_NONE);
        EXPECT_EQ(allocate<encoding>(label), punycode) << len;
        EXPECT_EQ(allocate<decoding>(punycode.values), (converted{VEL_ERROR_NONE, label})) << len;
    }
}

TEST_P(VelpunycodeArray, DecodesDigitsInUpperCase)
{
    points upper = ascii(GetParam().punycode);
    bool digits = false;
    for (auto it = upper.rbegin(); it != upper.rend() && *it != '-'; ++it)
        digits = (*it = static_cast<uint32_t>(toupper(static_cast<int>(*it)))) != 0;
    EXPECT_EQ(digits, upper.back() != '-');
    EXPECT_EQ(convert<decoding>(upper), (converted{VEL_ERROR_NONE, points_of(GetParam().utf8)}));
}

TEST_P(VelpunycodeArray, EveryCapacity)
{
    expect_every_capacity<encoding>(points_of(GetParam().utf8));
    expect_every_capacity<decoding>(ascii(GetParam().punycode));
}

/* Rows */

struct encode_case {
    const char *name;
    points source;
    vel_error_t result;
    const char *punycode; /* up to the failure */
};

static const encode_case kEncodeCases[] = {
    {"Nothing", {}, VEL_ERROR_NONE, ""},
    {"Basic", {'a'}, VEL_ERROR_NONE, "a-"},
    {"Delimiter", {'-'}, VEL_ERROR_NONE, "--"},
    {"BasicIsAnyBelow128", {0, 0x7F}, VEL_ERROR_NONE, nullptr},
    {"CaseIsKept", {'A', 0xFC, 'B'}, VEL_ERROR_NONE, "AB-xka"},
    {"First", {0x80}, VEL_ERROR_NONE, "a"},
    {"Umlaut", {0xFC}, VEL_ERROR_NONE, "tda"},
    {"Last", {0x10FFFF}, VEL_ERROR_NONE, "dn32g"},
    {"Surrogate", {0xD800}, VEL_ERROR_NONE, "ib9b"},
    {"SurrogatePair", {0xD83D, 0xDE00}, VEL_ERROR_NONE, "8c9bk9h"},
    {"BehindTheLast", {0x110000}, VEL_ERROR_OUT_OF_RANGE, ""},
    {"Highest", {0xFFFFFFFF}, VEL_ERROR_OUT_OF_RANGE, ""},
    {"BehindBasic", {'a', 'b', 0x110000}, VEL_ERROR_OUT_OF_RANGE, "ab-"},
    {"AmongBasic", {0x110000, 'a'}, VEL_ERROR_OUT_OF_RANGE, "a-"},
    {"BehindAnother", {0xFC, 0x110000}, VEL_ERROR_OUT_OF_RANGE, "tda"},
};

static void PrintTo(const encode_case &row, std::ostream *out)
{
    *out << testing::PrintToString(row.source);
}

class VelpunycodeEncodeRow : public testing::TestWithParam<encode_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelpunycodeEncodeRow, testing::ValuesIn(kEncodeCases), row_name());

TEST_P(VelpunycodeEncodeRow, Row)
{
    const encode_case &row = GetParam();
    log_capture log;
    const points text = row.punycode ? ascii(row.punycode) : points{0, 0x7F, '-'};
    EXPECT_EQ(convert<encoding>(row.source), (converted{row.result, text}));
    EXPECT_EQ(allocate<encoding>(row.source),
              (converted{row.result, row.result == VEL_ERROR_NONE ? text : points()}));
    expect_every_capacity<encoding>(row.source);
    EXPECT_THAT(log.take(), IsEmpty());
}

struct decode_case {
    const char *name;
    points source;
    vel_error_t result;
    points values; /* up to the failure */
};

static const decode_case kDecodeCases[] = {
    {"Nothing", {}, VEL_ERROR_NONE, {}},
    {"BasicAlone", ascii("abc-"), VEL_ERROR_NONE, {'a', 'b', 'c'}},
    {"TheLastDelimiterCounts", ascii("-a-b-tda"), VEL_ERROR_NONE, {'-', 'a', '-', 'b', 0x98}},
    {"OnlyDelimiters", ascii("--"), VEL_ERROR_NONE, {'-'}},
    {"LowestDigits", ascii("a"), VEL_ERROR_NONE, {0x80}},
    {"Twice", ascii("aa"), VEL_ERROR_NONE, {0x80, 0x80}},
    {"UpperCase", ascii("TdA"), VEL_ERROR_NONE, {0xFC}},
    {"Surrogate", ascii("ib9b"), VEL_ERROR_NONE, {0xD800}},
    {"BehindTheLast", ascii("en32g"), VEL_ERROR_NONE, {0x110000}},
    {"HighestValue", ascii("ww902716a"), VEL_ERROR_NONE, {0xFFFFFFFF}},
    {"BehindTheHighest", ascii("xw902716a"), VEL_ERROR_OUT_OF_RANGE, {}},
    {"HalfOfTheHighest", ascii("8016146o"), VEL_ERROR_NONE, {0x7FFFFFFF}},

    {"DelimiterAlone", ascii("-"), VEL_ERROR_OUT_OF_RANGE, {}},
    {"DelimiterAtTheStart", ascii("-abc"), VEL_ERROR_OUT_OF_RANGE, {}},
    {"EndWithinANumber", ascii("t"), VEL_ERROR_OUT_OF_RANGE, {}},
    {"EndWithinTheSecond", ascii("tda9"), VEL_ERROR_OUT_OF_RANGE, {0xFC}},
    {"BadDigit", ascii("td!"), VEL_ERROR_OUT_OF_RANGE, {}},
    {"DigitBeforeZero", ascii("td/"), VEL_ERROR_OUT_OF_RANGE, {}},
    {"DigitBehindNine", ascii("td:"), VEL_ERROR_OUT_OF_RANGE, {}},
    {"DigitBeforeA", ascii("td@"), VEL_ERROR_OUT_OF_RANGE, {}},
    {"DigitBehindZ", ascii("td["), VEL_ERROR_OUT_OF_RANGE, {}},
    {"DigitBeforeSmallA", ascii("td`"), VEL_ERROR_OUT_OF_RANGE, {}},
    {"DigitBehindSmallZ", ascii("td{"), VEL_ERROR_OUT_OF_RANGE, {}},
    {"HighDigit", {'t', 0xE4}, VEL_ERROR_OUT_OF_RANGE, {}},
    {"DigitThatIsOneInItsLowByte", {'t', 'd', 0x161}, VEL_ERROR_OUT_OF_RANGE, {}},
    {"DigitOf32Bits", {'t', 'd', 0x80000061}, VEL_ERROR_OUT_OF_RANGE, {}},
    {"Overflow", ascii("99999999"), VEL_ERROR_OUT_OF_RANGE, {}},
    {"OverflowBehindBasic", ascii("a-99999999"), VEL_ERROR_OUT_OF_RANGE, {'a'}},
};

static void PrintTo(const decode_case &row, std::ostream *out)
{
    *out << testing::PrintToString(row.source);
}

class VelpunycodeDecodeRow : public testing::TestWithParam<decode_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelpunycodeDecodeRow, testing::ValuesIn(kDecodeCases), row_name());

TEST_P(VelpunycodeDecodeRow, Row)
{
    const decode_case &row = GetParam();
    log_capture log;
    EXPECT_EQ(convert<decoding>(row.source), (converted{row.result, row.values}));
    EXPECT_EQ(allocate<decoding>(row.source),
              (converted{row.result, row.result == VEL_ERROR_NONE ? row.values : points()}));
    expect_every_capacity<decoding>(row.source);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(VelpunycodeDecode, AHighBasicElementIsRefused)
{
    for (const uint32_t element : {0x80u, 0xE4u, 0x161u, 0xFFFFFFFFu})
        for (const points &source : {points{element, '-'}, points{'a', element, '-', 't'}})
            EXPECT_EQ(convert<decoding>(source).result, VEL_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(convert<decoding>({0x7F, 0, '-'}), (converted{VEL_ERROR_NONE, {0x7F, 0}}));
}

/* Overflow, where the arithmetic just fits and where it does not any more. */

TEST(VelpunycodeOverflow, TheDistanceTimesTheLength)
{
    points source(3854, 'a');
    source.push_back(0x10FFFF);
    const converted text = convert<encoding>(source);
    EXPECT_EQ(text.result, VEL_ERROR_NONE);
    EXPECT_EQ(convert<decoding>(text.values), (converted{VEL_ERROR_NONE, source}));

    source.insert(source.begin(), 'a');
    points basic(3855, 'a');
    basic.push_back('-');
    EXPECT_EQ(convert<encoding>(source), (converted{VEL_ERROR_OUT_OF_RANGE, basic}));
}

/* 65537 x 65535 is the greatest number of 32 bits. */
TEST(VelpunycodeOverflow, TheIncrementOfTheDelta)
{
    points source(65534, 'a');
    source.insert(source.begin(), 128 + 65537);
    const converted text = convert<encoding>(source);
    EXPECT_EQ(text.result, VEL_ERROR_NONE);
    EXPECT_EQ(convert<decoding>(text.values), (converted{VEL_ERROR_NONE, source}));

    std::swap(source[0], source[1]);
    points basic(65534, 'a');
    basic.push_back('-');
    EXPECT_EQ(convert<encoding>(source), (converted{VEL_ERROR_OUT_OF_RANGE, basic}));
}

/* Out of memory */

template <typename Direction> class VelpunycodeMemory : public testing::Test {
};
using directions = testing::Types<encoding, decoding>;
TYPED_TEST_SUITE(VelpunycodeMemory, directions);

TYPED_TEST(VelpunycodeMemory, IsSilent)
{
    log_capture log;
    const points source = {'a', 'b', '-'};
    const auto failures = allocfail_each(log, [&source] {
        uint32_t dirt = 0, *values = &dirt;
        size_t len = 77;
        const vel_error_t result = TypeParam::allocate(source.data(), source.size(), &values, &len);
        EXPECT_TRUE(result == VEL_ERROR_NONE || result == VEL_ERROR_NO_MEMORY);
        EXPECT_EQ(values != nullptr, result == VEL_ERROR_NONE);
        vel_free(values);
        return result == VEL_ERROR_NONE;
    });
    EXPECT_THAT(failures, ElementsAre(IsEmpty()));
}

TEST(VelpunycodeVelurlOom, Life)
{
    vel_oom_drive([] {
        const points source = points_of("bücher");
        uint32_t *text = nullptr, *values = nullptr;
        size_t textlen = 0, len = 0;
        const bool good =
            vel_punycode_velurl_encode(source.data(), source.size(), &text, &textlen) ==
                VEL_ERROR_NONE &&
            vel_punycode_velurl_decode(text, textlen, &values, &len) == VEL_ERROR_NONE;
        if (good) {
            EXPECT_EQ(points(values, values + len), source);
        }
        vel_free(text);
        vel_free(values);
        return good;
    });
}

/* Assertions */

TEST(VelpunycodeVelurlDeathTest, PointersAreAsserted)
{
    uint32_t room[4] = {'a', '-'};
    size_t len = 4, none = 0;
    EXPECT_DEATH(vel_punycode_velurl_decode_from_warray(room, nullptr, room, 1),
                 asserts("punycodelen != NULL", "vel_punycode_velurl_decode_from_warray"));
    EXPECT_DEATH(vel_punycode_velurl_decode_from_warray(nullptr, &none, nullptr, 0),
                 asserts("warray != NULL", "vel_punycode_velurl_decode_from_warray"));
    EXPECT_DEATH(
        vel_punycode_velurl_decode_from_warray(nullptr, &len, room, 1),
        asserts("punycode != NULL || *punycodelen == 0", "vel_punycode_velurl_decode_from_warray"));
    EXPECT_DEATH(vel_punycode_velurl_decode_to_warray(room, nullptr, room, 1),
                 asserts("warraylen != NULL", "vel_punycode_velurl_decode_to_warray"));
    EXPECT_DEATH(
        vel_punycode_velurl_decode_to_warray(nullptr, &len, room, 1),
        asserts("warray != NULL || *warraylen == 0", "vel_punycode_velurl_decode_to_warray"));
}

TEST(VelpunycodeVelurlDeathTest, OutputsAreAsserted)
{
    uint32_t text[4] = {'a', '-'}, *values = nullptr;
    size_t len = 0;
    EXPECT_DEATH(vel_punycode_velurl_encode(text, 1, nullptr, &len),
                 asserts("punycode != NULL", "vel_punycode_velurl_encode"));
    EXPECT_DEATH(vel_punycode_velurl_encode(text, 1, &values, nullptr),
                 asserts("punycodelen != NULL", "vel_punycode_velurl_encode"));
    EXPECT_DEATH(vel_punycode_velurl_decode(text, 2, nullptr, &len),
                 asserts("warray != NULL", "vel_punycode_velurl_decode"));
    EXPECT_DEATH(vel_punycode_velurl_decode(text, 2, &values, nullptr),
                 asserts("warraylen != NULL", "vel_punycode_velurl_decode"));
}
