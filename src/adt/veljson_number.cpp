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
static constexpr unsigned int vel_json_halfbits = sizeof(vel_json_uint128) * 4;

static constexpr unsigned int vel_json_powers = 28; /* 5 to the 27th is the last below 2^63 */

struct vel_json_power_table {
    uint64_t five[vel_json_powers];
    /* The same moved up to the highest bit, and what 2^128 - 1 divided by that has beyond 2^64. */
    uint64_t divisor[vel_json_powers];
    uint64_t reciprocal[vel_json_powers];
};

static constexpr vel_json_power_table vel_json_make_powers()
{
    vel_json_power_table table = {};

    table.five[0] = 1;
    for (unsigned int i = 1; i < vel_json_powers; i++)
        table.five[i] = table.five[i - 1] * 5;
    for (unsigned int i = 0; i < vel_json_powers; i++) {
        table.divisor[i] = table.five[i] << std::countl_zero(table.five[i]);
        table.reciprocal[i] = static_cast<uint64_t>(~vel_json_uint128{0} / table.divisor[i]);
    }
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

/* dividend divided by the divisor of a power, by two multiplications (Möller and Granlund, Improved
 * division by invariant integers, algorithm 4). The quotient is below 2^64. */
static uint64_t vel_json_divide(vel_json_uint128 dividend, unsigned int power, uint64_t *restptr)
{
    const uint64_t divisor = vel_json_power.divisor[power];
    const auto high = static_cast<uint64_t>(dividend >> vel_json_halfbits);
    const vel_json_uint128 estimate =
        static_cast<vel_json_uint128>(vel_json_power.reciprocal[power]) * high + dividend;
    uint64_t quotient = static_cast<uint64_t>(estimate >> vel_json_halfbits) + 1;
    uint64_t rest = static_cast<uint64_t>(dividend) - quotient * divisor;

    const uint64_t toohigh = rest > static_cast<uint64_t>(estimate); /* as often as not */
    quotient -= toohigh;
    rest += divisor & -toohigh;
    if (rest >= divisor) [[unlikely]] {
        quotient++;
        rest -= divisor;
    }
    *restptr = rest;
    return quotient;
}

/* digits divided by 10^scale, rounded half to even. */
static double vel_json_scale_down(uint64_t digits, unsigned int scale)
{
    if (digits == 0)
        return 0;

    /* Both are moved up so that the quotient has 63 or 64 bits; what is left over only matters in
     * being zero or not. */
    const int digitshift = std::countl_zero(digits);
    const int powershift = std::countl_zero(vel_json_power.five[scale]);
    const auto dividend = static_cast<vel_json_uint128>(digits << digitshift) << 63;
    uint64_t remainder;
    uint64_t quotient = vel_json_divide(dividend, scale, &remainder);
    int exponent = powershift - digitshift - 63 - static_cast<int>(scale);

    const int shift = std::bit_width(quotient) - DBL_MANT_DIG;
    const uint64_t half = UINT64_C(1) << (shift - 1);
    const uint64_t rest = quotient & (2 * half - 1);
    quotient >>= shift;
    exponent += shift;
    /* No branch, as nobody could foretell it. */
    quotient += (rest > half) | ((rest == half) & ((remainder != 0) | (quotient & 1)));
    /* Far from the ends of the range of exponents, so that one is simply added. */
    return std::bit_cast<double>(
        std::bit_cast<uint64_t>(static_cast<double>(static_cast<int64_t>(quotient))) +
        (static_cast<uint64_t>(exponent) << (DBL_MANT_DIG - 1)));
}

bool vel_json_digits_to_double(uint64_t digits, size_t scale, double *valueptr)
{
    if (!vel_json_computes || scale >= vel_json_powers)
        return false;
    *valueptr = vel_json_scale_down(digits, static_cast<unsigned int>(scale));
    return true;
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
    uint64_t digits = 0;
    if (first < dot)
        (void)vel_json_read_digits(first, dot, &digits);
    if (dot < end)
        (void)vel_json_read_digits(first > dot ? first : dot + 1, end, &digits);
    double value;
    if (end - first > 19 + (dot > first) || !vel_json_digits_to_double(digits, scale, &value)) {
        char *last;
        value = vel_json_strtod(text, &last);
        *endptr = last;
        return value;
    }
    *endptr = end;
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
