#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <locale.h>
#include <random>
#include <stdlib.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/jsontest.h"

using namespace support;

/* Numbers, bit for bit as the C locale's strtod reads them and its %g writes them, in whatever
 * locale the program runs. */
class VeljsonNumber : public testing::Test {
  protected:
    ~VeljsonNumber() override
    {
        freelocale(clocale);
    }

    double plain_strtod(const std::string &text)
    {
        return strtod_l(text.c_str(), nullptr, clocale);
    }

    /* As an element of a parsed array, and as the content of a string. */
    void expect_read(const std::string &text)
    {
        const double expected = plain_strtod(text);
        double number = 77;
        ASSERT_EQ(vel_json_parse(document, ("[" + text + "]").c_str()), 0) << text;
        ASSERT_EQ(vel_json_fetch_double(document, &number, "#", 0ul, nullptr), 0);
        ASSERT_EQ(std::bit_cast<uint64_t>(number), std::bit_cast<uint64_t>(expected)) << text;
        expect_converted(text);
    }

    void expect_converted(const std::string &text)
    {
        const double expected = plain_strtod(text);
        double number = 77;
        ASSERT_EQ(vel_json_node_set_string(document, nullptr, text.c_str()), VEL_ERROR_NONE);
        ASSERT_EQ(vel_json_fetch_double(document, &number, nullptr), 0) << text;
        ASSERT_EQ(std::bit_cast<uint64_t>(number), std::bit_cast<uint64_t>(expected)) << text;
    }

    void expect_written(double value)
    {
        char text[64];
        const auto end =
            std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6).ptr;
        ASSERT_EQ(vel_json_node_set_double(document, nullptr, value), VEL_ERROR_NONE);
        ASSERT_EQ(document.output(), std::string(text, end)) << std::bit_cast<uint64_t>(value);
    }

    /* All digits that the exact value of a double has. */
    static std::string exact(double value)
    {
        std::vector<char> text(1500);
        const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                       std::chars_format::fixed, 1080)
                             .ptr;
        return std::string(text.data(), end);
    }

    double any_double()
    {
        for (;;) {
            const auto value = std::bit_cast<double>(random());
            if (std::isfinite(value))
                return value;
        }
    }

    std::string digits(size_t count)
    {
        std::string text;
        for (size_t i = 0; i < count; i++)
            text += static_cast<char>('0' + random() % 10);
        return text;
    }

    std::mt19937_64 random{20261121};
    const locale_t clocale = newlocale(LC_ALL_MASK, "C", nullptr);
    json_document document;
};

TEST_F(VeljsonNumber, ReadsFractionsOfAnyLength)
{
    for (int i = 0; i < 40000; i++) {
        const size_t whole = 1 + random() % (i % 50 ? 20 : 400);
        const size_t fraction = 1 + random() % (i % 50 ? 25 : 400);
        std::string text = digits(whole);
        text[0] = static_cast<char>('1' + random() % 9);
        if (random() % 3 == 0)
            text = "0";
        text += "." + (random() % 4 ? "" : std::string(random() % 330, '0')) + digits(fraction);
        ASSERT_NO_FATAL_FAILURE(expect_read(random() % 2 ? text : "-" + text));
    }
}

/* Of few digits, as most are. */
TEST_F(VeljsonNumber, ReadsShortFractions)
{
    for (int i = 0; i < 15000; i++) {
        std::string text = std::to_string(random() % (i % 4 ? 1000 : 2)) + ".";
        text += digits(1 + random() % (i % 2 ? 17 : 4));
        if (random() % 2)
            text.insert(0, "-");
        ASSERT_NO_FATAL_FAILURE(expect_read(text));
        int64_t rounded = 77;
        ASSERT_EQ(vel_json_parse(document, ("[" + text + "]").c_str()), 0);
        ASSERT_EQ(vel_json_fetch_int64(document, &rounded, "#", 0ul, nullptr), 0);
        const double value = plain_strtod(text);
        ASSERT_EQ(rounded, static_cast<int64_t>(value < 0 ? value - 0.5 : value + 0.5)) << text;
    }
}

TEST_F(VeljsonNumber, ReadsTheExactValueOfADouble)
{
    for (int i = 0; i < 2000; i++)
        ASSERT_NO_FATAL_FAILURE(expect_read(exact(any_double())));
}

/* Between two doubles, and just beside the middle. */
TEST_F(VeljsonNumber, ReadsWhatStandsHalfway)
{
    for (int i = 0; i < 3000; i++) {
        const int exponent = static_cast<int>(random() % 180) - 90;
        const uint64_t mantissa = (uint64_t(1) << 52) | (random() >> 12);
        std::string text = exact(std::ldexp(static_cast<double>(mantissa), exponent));
        const double half = std::ldexp(1.0, exponent - 1);
        /* The sum in decimal: both are exact and have the same number of digits behind the dot. */
        std::string sum = exact(half);
        sum.insert(0, text.size() - sum.size(), '0');
        int carry = 0;
        for (size_t place = text.size(); place-- > 0;) {
            if (text[place] == '.')
                continue;
            const int digit = text[place] - '0' + sum[place] - '0' + carry;
            text[place] = static_cast<char>('0' + digit % 10);
            carry = digit / 10;
        }
        if (carry)
            text.insert(0, "1");
        ASSERT_NO_FATAL_FAILURE(expect_read(text));
        ASSERT_NO_FATAL_FAILURE(expect_read(text + "1"));
        text.erase(text.find_last_not_of('0') + 1);
        text += text.back() == '.' ? "0" : "";
        ASSERT_NO_FATAL_FAILURE(expect_read(text));
        if (text.back() != '0') {
            text.back()--;
            ASSERT_NO_FATAL_FAILURE(expect_read(text + "9999999999"));
        }
    }
}

TEST_F(VeljsonNumber, ReadsTheEndsOfTheRange)
{
    using limits = std::numeric_limits<double>;
    for (const double value :
         {limits::max(), limits::min(), limits::denorm_min(), std::nextafter(limits::min(), 0.0),
          std::ldexp(1.0, 53), std::ldexp(1.0, 63), std::ldexp(1.0, 64), 0.5, 0.1, 1e22, 1e23})
        ASSERT_NO_FATAL_FAILURE(expect_read(exact(value)));
    ASSERT_NO_FATAL_FAILURE(expect_read("1" + std::string(308, '0') + ".0"));
    ASSERT_NO_FATAL_FAILURE(expect_read("1" + std::string(309, '0') + ".0"));
    ASSERT_NO_FATAL_FAILURE(expect_read("-" + std::string(400, '9') + ".9"));
    ASSERT_NO_FATAL_FAILURE(expect_read("0." + std::string(322, '0') + "1"));
    ASSERT_NO_FATAL_FAILURE(expect_read("0." + std::string(323, '0') + "2"));
    ASSERT_NO_FATAL_FAILURE(expect_read("0." + std::string(323, '0') + "24703282292062327208"));
    ASSERT_NO_FATAL_FAILURE(expect_read("0." + std::string(323, '0') + "24703282292062327209"));
    ASSERT_NO_FATAL_FAILURE(expect_read("0." + std::string(400, '0') + "1"));
    ASSERT_NO_FATAL_FAILURE(expect_read("-0." + std::string(400, '0')));
    ASSERT_NO_FATAL_FAILURE(expect_read("0" + std::string(1, '1') + std::string(30, '0') + ".5"));
}

TEST_F(VeljsonNumber, ConvertsStringsWithExponents)
{
    for (int i = 0; i < 40000; i++) {
        std::string text = digits(1 + random() % 22);
        if (random() % 2)
            text.insert(random() % (text.size() + 1), ".");
        text += (random() % 2 ? "e" : "E") + std::to_string(static_cast<int>(random() % 700) - 350);
        ASSERT_NO_FATAL_FAILURE(expect_converted(text));
    }
}

TEST_F(VeljsonNumber, ConvertsWhatElseStrtodKnows)
{
    for (const char *text : {"0x1.fffffffffffff8p0",
                             "0x.8p1",
                             "-0X10",
                             "0x1p-1074",
                             "0x",
                             "0x.",
                             "0xp3",
                             "1e+",
                             "1e-x",
                             "1e99999999999999999999",
                             "1e-99999999999999999999",
                             "0e99999999999999999999",
                             "\t\n\v\f\r 5.5",
                             "infinity",
                             "INF",
                             "infinite",
                             "-inf",
                             "  +.5e1",
                             "5.",
                             "5.e2",
                             "1_000",
                             "1.5.5",
                             "1,5",
                             "0,5"})
        ASSERT_NO_FATAL_FAILURE(expect_converted(text));
}

TEST_F(VeljsonNumber, WritesAnyDouble)
{
    for (int i = 0; i < 40000; i++)
        ASSERT_NO_FATAL_FAILURE(expect_written(any_double()));
}

TEST_F(VeljsonNumber, WritesOrdinaryDoubles)
{
    for (int i = 0; i < 40000; i++) {
        const auto whole = static_cast<double>(random() % 100000000);
        ASSERT_NO_FATAL_FAILURE(expect_written(whole / std::pow(10, random() % 12)));
        ASSERT_NO_FATAL_FAILURE(expect_written(-whole / std::pow(2, random() % 30)));
    }
}

/* The seventh digit is an exact 5, or all but one. */
TEST_F(VeljsonNumber, WritesWhatStandsHalfway)
{
    for (int i = 0; i < 40000; i++) {
        const double half = static_cast<double>(100000 + random() % 900000) + 0.5;
        const double value = half * std::pow(10, random() % 16);
        for (const double each : {value, std::nextafter(value, 0.0), std::nextafter(value, 1e300),
                                  std::ldexp(half, -static_cast<int>(random() % 8))})
            ASSERT_NO_FATAL_FAILURE(expect_written(each));
    }
}

TEST_F(VeljsonNumber, WritesPowersOfTenAndTheirNeighbours)
{
    for (int exponent = -323; exponent <= 308; exponent++) {
        const double value = plain_strtod("1e" + std::to_string(exponent));
        for (const double each : {value, std::nextafter(value, 0.0), std::nextafter(value, 1e308),
                                  value * 9.999995, value * 9.9999949}) {
            if (std::isfinite(each)) {
                ASSERT_NO_FATAL_FAILURE(expect_written(each));
            }
        }
    }
}

TEST_F(VeljsonNumber, ReadsAndWritesEveryIntegerThatFits)
{
    for (int i = 0; i < 40000; i++) {
        const auto value = static_cast<int64_t>(random() >> random() % 64) * (i % 2 ? 1 : -1);
        const std::string text = "[ " + std::to_string(value) + " ]";
        ASSERT_EQ(vel_json_parse(document, text.c_str()), 0);
        int64_t read = 77;
        ASSERT_EQ(vel_json_fetch_int64(document, &read, "#", 0ul, nullptr), 0);
        ASSERT_EQ(read, value);
        ASSERT_EQ(document.output(), text);
        double number = 77;
        ASSERT_EQ(vel_json_fetch_double(document, &number, "#", 0ul, nullptr), 0);
        ASSERT_EQ(number, static_cast<double>(value));
    }
}
