/* Numbers and their text, independently of the locale and correctly rounded. Ordinary numbers are
 * computed in integers of 128 bits, without error; the others go to the platform. So do all where the
 * compiler has no such integers, or where a step of computing is not rounded to double (x87). */
#include <bit>
#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <locale.h>

#include <vellib/velsnprintf.h>

#include "adt/veljson_internal.h"
#include "adt/veljson_scan.h"
#include "util/velassert.h"

#ifdef __SIZEOF_INT128__
using vel_json_uint128 = unsigned __int128;
#else
using vel_json_uint128 = uint64_t; /* not computed with */
#endif
static constexpr bool vel_json_computes =
    sizeof(vel_json_uint128) == 16 && (FLT_EVAL_METHOD == 0 || FLT_EVAL_METHOD == 1);

static constexpr unsigned int vel_json_powers = 28; /* 5 to the 27th is the last below 2^63 */

struct vel_json_power_table {
    uint64_t five[vel_json_powers];
};

static constexpr vel_json_power_table vel_json_make_powers()
{
    vel_json_power_table table = {};

    table.five[0] = 1;
    for (unsigned int i = 1; i < vel_json_powers; i++)
        table.five[i] = table.five[i - 1] * 5;
    return table;
}

static constexpr vel_json_power_table vel_json_power = vel_json_make_powers();

/* ---- From text ---- */

double vel_json_strtod(const char *text, char **endptr)
{
    /* The C locale needs no memory, so that this does not fail. Where it does, the locale of the
     * process has to do. */
    const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));

    if (!locale)
        return strtod(text, endptr);
    const double value = strtod_l(text, endptr, locale);
    freelocale(locale);
    return value;
}

/* digits divided by 10^scale, rounded half to even. */
static double vel_json_scale_down(uint64_t digits, unsigned int scale)
{
    if (digits == 0)
        return 0;

    /* Both are moved up so that the quotient has 63 or 64 bits; what is left over only matters in
     * being zero or not. */
    const uint64_t power = vel_json_power.five[scale];
    const int digitshift = std::countl_zero(digits), powershift = std::countl_zero(power);
    const uint64_t divisor = power << powershift;
    const auto dividend = static_cast<vel_json_uint128>(digits << digitshift) << 63;
    uint64_t quotient = static_cast<uint64_t>(dividend / divisor);
    int exponent = powershift - digitshift - 63 - static_cast<int>(scale);
    const bool inexact = static_cast<vel_json_uint128>(quotient) * divisor != dividend;

    const int shift = std::bit_width(quotient) - DBL_MANT_DIG;
    const uint64_t half = UINT64_C(1) << (shift - 1);
    const uint64_t rest = quotient & (2 * half - 1);
    quotient >>= shift;
    exponent += shift;
    if (rest > half || (rest == half && (inexact || quotient % 2 == 1)))
        quotient++;
    /* Far from the ends of the range of exponents, so that one is simply added. */
    return std::bit_cast<double>(std::bit_cast<uint64_t>(static_cast<double>(quotient)) +
                                 (static_cast<uint64_t>(exponent) << (DBL_MANT_DIG - 1)));
}

/* The number that eight digits make: pairs, then fours, then all. */
static uint64_t vel_json_eight_digits(const char *text)
{
    uint64_t block = vel_json_scan_load(text) - vel_json_scan_ones * '0';

    block = block * 10 + (block >> 8);
    block = ((block & UINT64_C(0x000000ff000000ff)) * (100 + (UINT64_C(1000000) << 32)) +
             (block >> 16 & UINT64_C(0x000000ff000000ff)) * (1 + (UINT64_C(10000) << 32))) >>
            32;
    return block & UINT32_MAX;
}

/* Takes count digits behind those that there are. */
static uint64_t vel_json_take_digits(uint64_t digits, const char *text, size_t count)
{
    for (; count >= 8; count -= 8, text += 8)
        digits = digits * 100000000 + vel_json_eight_digits(text);
    for (; count > 0; count--, text++)
        digits = digits * 10 + static_cast<uint64_t>(*text - '0');
    return digits;
}

double vel_json_decimal_to_double(const char *text, size_t length, const char **endptr)
{
    const char *const end = text + length;
    const bool negative = *text == '-';
    const char *const start = text + negative;
    const auto *dot = static_cast<const char *>(memchr(start, '.', length - negative));

    if (!dot)
        dot = end;
    const size_t scale = dot < end ? static_cast<size_t>(end - dot - 1) : 0;
    const char *first = start; /* the first digit that counts */
    while (first < end && (*first == '0' || *first == '.'))
        first++;
    if (!vel_json_computes || end - first > 19 + (dot > first) || scale >= vel_json_powers) {
        char *last;
        const double value = vel_json_strtod(text, &last);
        *endptr = last;
        return value;
    }
    *endptr = end;
    uint64_t digits = 0;
    if (first < dot)
        digits = vel_json_take_digits(0, first, static_cast<size_t>(dot - first));
    if (dot < end) {
        const char *const fraction = first > dot ? first : dot + 1;
        digits = vel_json_take_digits(digits, fraction, static_cast<size_t>(end - fraction));
    }

    /* Where digits and the power of ten are exact as doubles, so is their quotient, once rounded. */
    double value;
    if (digits <= UINT64_C(1) << DBL_MANT_DIG && scale <= 22)
        value = static_cast<double>(digits) / (static_cast<double>(vel_json_power.five[scale]) *
                                               static_cast<double>(UINT64_C(1) << scale));
    else
        value = vel_json_scale_down(digits, static_cast<unsigned int>(scale));
    return negative ? -value : value;
}

/* ---- To text ---- */

static constexpr unsigned int vel_json_precision = 6; /* digits of %g */
static constexpr uint32_t vel_json_digitlimit = 1000000;

/* A value as its first six digits, rounded, and the power of ten of the first one. */
struct vel_json_decimal {
    uint32_t digits; /* 100000 to 999999 */
    int exponent;
};

/* mantissa * 2^binaryexponent * 10^scale as a whole number, rounded half to even. Returns false
 * where that is beyond 128 bits. The result is below 2^64: scale brings it near 10^6. */
static bool vel_json_round_scaled(uint64_t mantissa, int binaryexponent, int scale,
                                  uint64_t *resultptr)
{
    const unsigned int power = static_cast<unsigned int>(std::abs(scale));

    if (!vel_json_computes || power >= vel_json_powers)
        return false;
    vel_json_uint128 numerator = mantissa;
    const int shift = binaryexponent + scale; /* what remains after the fives */
    if (scale >= 0) {
        numerator *= vel_json_power.five[power]; /* below 2^116 */
        if (shift >= 0 || shift <= -128)
            return false;
        const vel_json_uint128 half = vel_json_uint128{1} << (-shift - 1);
        const vel_json_uint128 rest = numerator & (2 * half - 1);
        numerator >>= -shift;
        numerator += rest > half || (rest == half && numerator % 2 == 1);
    } else {
        const uint64_t divisor = vel_json_power.five[power];
        if (shift >= 0) {
            if (shift > 128 - DBL_MANT_DIG)
                return false;
            numerator <<= shift;
        }
        /* A shift to the right multiplies the divisor. */
        const int divisorshift = shift < 0 ? -shift : 0;
        if (divisorshift > 64)
            return false;
        const vel_json_uint128 fulldivisor = static_cast<vel_json_uint128>(divisor) << divisorshift;
        const vel_json_uint128 rest = numerator % fulldivisor;
        numerator /= fulldivisor;
        numerator +=
            rest > fulldivisor - rest || (rest == fulldivisor - rest && numerator % 2 == 1);
    }
    *resultptr = static_cast<uint64_t>(numerator);
    return true;
}

/* By the platform, whatever its locale puts between the first digit and the others. */
static vel_json_decimal vel_json_decimal_of_any(double magnitude)
{
    char text[32]; /* d.ddddde+ddd, and a decimal point of some bytes */
    const size_t len = sizeof text;
    const int res = vel_snprintf(text, len, "%.5e", magnitude);
    VEL_ASSERT(res >= 0);
    VEL_ASSERT((size_t) res < len);

    vel_json_decimal decimal = {};
    const char *ch = text;
    for (; *ch != 'e'; ch++)
        if (*ch >= '0' && *ch <= '9')
            decimal.digits = decimal.digits * 10 + static_cast<uint32_t>(*ch - '0');
    decimal.exponent = static_cast<int>(strtol(ch + 1, nullptr, 10));
    return decimal;
}

/* magnitude is above 0 and finite. */
static vel_json_decimal vel_json_decimal_of(double magnitude)
{
    const auto bits = std::bit_cast<uint64_t>(magnitude);
    const int bitexponent = static_cast<int>(bits >> (DBL_MANT_DIG - 1));
    const int binaryexponent = bitexponent - (DBL_MAX_EXP - 1) - (DBL_MANT_DIG - 1);
    const uint64_t implied = UINT64_C(1) << (DBL_MANT_DIG - 1);
    const uint64_t mantissa = (bits & (implied - 1)) | implied;

    /* The power of ten of the first digit, from that of two (its logarithm is 78913/2^18): at most
     * one too low, which one digit too many shows. */
    int exponent = ((bitexponent - (DBL_MAX_EXP - 1)) * 78913) >> 18;
    for (int last = exponent + 1; bitexponent > 0 && exponent <= last; exponent++) {
        uint64_t digits;
        if (!vel_json_round_scaled(mantissa, binaryexponent,
                                   static_cast<int>(vel_json_precision) - 1 - exponent, &digits))
            break;
        if (digits < vel_json_digitlimit)
            return {static_cast<uint32_t>(digits), exponent};
    }
    return vel_json_decimal_of_any(magnitude);
}

/* Writes the lowest count digits of number and returns where they end. */
static char *vel_json_put_digits(char *text, uint32_t number, unsigned int count)
{
    for (unsigned int i = count; i > 0; i--) {
        text[i - 1] = static_cast<char>('0' + number % 10);
        number /= 10;
    }
    return text + count;
}

/* Writes d.ddde+dd with count digits. */
static char *vel_json_put_scientific(char *text, const char *digits, unsigned int count,
                                     int exponent)
{
    const auto power = static_cast<uint32_t>(std::abs(exponent));

    *text++ = digits[0];
    if (count > 1) {
        *text++ = '.';
        memcpy(text, digits + 1, count - 1);
        text += count - 1;
    }
    *text++ = 'e';
    *text++ = exponent < 0 ? '-' : '+';
    return vel_json_put_digits(text, power, power < 100 ? 2 : 3);
}

/* Writes ddd, ddd.ddd or 0.000ddd with count digits. */
static char *vel_json_put_fixed(char *text, const char *digits, unsigned int count, int exponent)
{
    if (exponent < 0) {
        const auto zeros = static_cast<size_t>(-exponent - 1);
        memcpy(text, "0.000", 2 + zeros);
        memcpy(text + 2 + zeros, digits, count);
        return text + 2 + zeros + count;
    }
    const unsigned int whole = static_cast<unsigned int>(exponent) + 1;
    memcpy(text, digits, whole); /* with the zeros that do not count */
    if (count <= whole)
        return text + whole;
    text[whole] = '.';
    memcpy(text + whole + 1, digits + whole, count - whole);
    return text + count + 1;
}

/* Infinity and not-a-number, as the platform has them. */
static size_t vel_json_put_special(char *text, double value)
{
    const size_t len = vel_json_doublesize;
    const int res = vel_snprintf(text, len, "%g", value);

    VEL_ASSERT(res >= 0);
    VEL_ASSERT((size_t) res < len);
    return static_cast<size_t>(res);
}

size_t vel_json_double_to_text(char *text, double value)
{
    char *ch = text;

    if (!std::isfinite(value))
        return vel_json_put_special(text, value);
    if (std::signbit(value))
        *ch++ = '-';
    if (value == 0) {
        *ch++ = '0';
        return static_cast<size_t>(ch - text);
    }

    const vel_json_decimal decimal = vel_json_decimal_of(std::fabs(value));
    char digits[vel_json_precision];
    (void)vel_json_put_digits(digits, decimal.digits, vel_json_precision);
    unsigned int count = vel_json_precision;
    while (digits[count - 1] == '0')
        count--;
    const int exponent = decimal.exponent;
    if (exponent < -4 || exponent >= static_cast<int>(vel_json_precision))
        ch = vel_json_put_scientific(ch, digits, count, exponent);
    else
        ch = vel_json_put_fixed(ch, digits, count, exponent);
    return static_cast<size_t>(ch - text);
}
