#include <vellib/velpunycode_velurl.h>

#include <algorithm>
#include <iterator>

#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/velurl_internal.h"

/* The parameters of RFC 3492, section 5. */
static constexpr uint32_t vel_punycode_base = 36;
static constexpr uint32_t vel_punycode_tmin = 1;
static constexpr uint32_t vel_punycode_tmax = 26;
static constexpr uint32_t vel_punycode_skew = 38;
static constexpr uint32_t vel_punycode_damp = 700;
static constexpr uint32_t vel_punycode_initial_bias = 72;
static constexpr uint32_t vel_punycode_initial_n = 128;
static constexpr uint32_t vel_punycode_delimiter = '-';

static constexpr uint32_t vel_punycode_maxint = UINT32_MAX;
static constexpr uint32_t vel_punycode_maxpoint = 0x10ffff;

/* Stands above every value of a digit. */
static constexpr uint32_t vel_punycode_nodigit = vel_punycode_base;

static uint32_t vel_punycode_digit(uint32_t value)
{
    return value < 26 ? 'a' + value : '0' + (value - 26);
}

static uint32_t vel_punycode_digit_value(uint32_t digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0' + 26;
    if (digit >= 'A' && digit <= 'Z')
        return digit - 'A';
    if (digit >= 'a' && digit <= 'z')
        return digit - 'a';
    return vel_punycode_nodigit;
}

/* The threshold of the digit at place k. */
static uint32_t vel_punycode_threshold(uint32_t k, uint32_t bias)
{
    return k <= bias ? vel_punycode_tmin
                     : std::clamp(k - bias, vel_punycode_tmin, vel_punycode_tmax);
}

/* RFC 3492, 6.1. */
static uint32_t vel_punycode_adapt(uint32_t delta, size_t numpoints, bool firsttime)
{
    constexpr uint32_t range = vel_punycode_base - vel_punycode_tmin;
    uint32_t k = 0;
    delta = firsttime ? delta / vel_punycode_damp : delta / 2;
    delta += static_cast<uint32_t>(delta / numpoints);
    for (; delta > range * vel_punycode_tmax / 2; k += vel_punycode_base)
        delta /= range;
    return k + (range + 1) * delta / (delta + vel_punycode_skew);
}

/* Where the text goes. The length counts on behind the end of the room. */
struct vel_punycode_output {
    uint32_t *elements;
    size_t capacity;
    size_t len;
};

static void vel_punycode_put(vel_punycode_output *output, uint32_t element)
{
    if (output->len < output->capacity)
        output->elements[output->len] = element;
    output->len++;
}

static vel_error_t vel_punycode_finish(const vel_punycode_output *output, vel_error_t error)
{
    if (error == VEL_ERROR_NONE && output->len > output->capacity)
        return VELURL_ERROR_TRUNCATED;
    return error;
}

/* Writes delta as a number of variable length. */
static void vel_punycode_put_number(vel_punycode_output *output, uint32_t delta, uint32_t bias)
{
    uint32_t rest = delta;
    for (uint32_t k = vel_punycode_base;; k += vel_punycode_base) {
        const uint32_t threshold = vel_punycode_threshold(k, bias);
        if (rest < threshold)
            break;
        const uint32_t span = vel_punycode_base - threshold;
        vel_punycode_put(output, vel_punycode_digit(threshold + (rest - threshold) % span));
        rest = (rest - threshold) / span;
    }
    vel_punycode_put(output, vel_punycode_digit(rest));
}

/* The smallest value not below n; there is one. */
static uint32_t vel_punycode_next_point(const uint32_t *warray, size_t warraylen, uint32_t n)
{
    uint32_t next = vel_punycode_maxint;
    for (size_t i = 0; i < warraylen; i++)
        if (warray[i] >= n && warray[i] < next)
            next = warray[i];
    return next;
}

/* RFC 3492, 6.3. */
static vel_error_t vel_punycode_write(vel_punycode_output *output, const uint32_t *warray,
                                      size_t warraylen)
{
    for (size_t i = 0; i < warraylen; i++)
        if (warray[i] < vel_punycode_initial_n)
            vel_punycode_put(output, warray[i]);
    const size_t basiclen = output->len;
    if (basiclen > 0)
        vel_punycode_put(output, vel_punycode_delimiter);

    uint32_t n = vel_punycode_initial_n, delta = 0, bias = vel_punycode_initial_bias;
    size_t handled = basiclen;
    while (handled < warraylen) {
        const uint32_t next = vel_punycode_next_point(warray, warraylen, n);
        if (next > vel_punycode_maxpoint)
            return VEL_ERROR_OUT_OF_RANGE;
        if (next - n > (vel_punycode_maxint - delta) / (handled + 1))
            return VEL_ERROR_OUT_OF_RANGE;
        delta += (next - n) * static_cast<uint32_t>(handled + 1);
        n = next;
        for (size_t i = 0; i < warraylen; i++) {
            if (warray[i] < n && ++delta == 0)
                return VEL_ERROR_OUT_OF_RANGE;
            if (warray[i] == n) {
                vel_punycode_put_number(output, delta, bias);
                bias = vel_punycode_adapt(delta, handled + 1, handled == basiclen);
                delta = 0;
                handled++;
            }
        }
        delta++;
        n++;
    }
    return VEL_ERROR_NONE;
}

/* Inserts a value, as far as there is room for it and for what stands behind it. */
static void vel_punycode_insert(vel_punycode_output *output, size_t pos, uint32_t value)
{
    if (pos < output->capacity) {
        uint32_t *elements = output->elements;
        const size_t end = std::min(output->len, output->capacity - 1);
        std::copy_backward(elements + pos, elements + end, elements + end + 1);
        elements[pos] = value;
    }
    output->len++;
}

/* Reads a number of variable length from *inptr on, and adds it to *iptr. */
static vel_error_t vel_punycode_read_number(const uint32_t *punycode, size_t punycodelen,
                                            size_t *inptr, uint32_t bias, uint32_t *iptr)
{
    uint32_t i = *iptr, weight = 1;
    for (uint32_t k = vel_punycode_base;; k += vel_punycode_base) {
        if (*inptr >= punycodelen)
            return VEL_ERROR_OUT_OF_RANGE;
        const uint32_t value = vel_punycode_digit_value(punycode[(*inptr)++]);
        const uint64_t sum = i + uint64_t{value} * weight;
        if (value == vel_punycode_nodigit || sum > vel_punycode_maxint)
            return VEL_ERROR_OUT_OF_RANGE;
        i = static_cast<uint32_t>(sum);
        const uint32_t threshold = vel_punycode_threshold(k, bias);
        if (value < threshold)
            break;
        const uint64_t nextweight = uint64_t{weight} * (vel_punycode_base - threshold);
        if (nextweight > vel_punycode_maxint)
            return VEL_ERROR_OUT_OF_RANGE;
        weight = static_cast<uint32_t>(nextweight);
    }
    *iptr = i;
    return VEL_ERROR_NONE;
}

/* The place of the last delimiter, or 0 if there is none. */
static size_t vel_punycode_basic_length(const uint32_t *punycode, size_t punycodelen)
{
    for (size_t i = punycodelen; i > 0; i--)
        if (punycode[i - 1] == vel_punycode_delimiter)
            return i - 1;
    return 0;
}

/* RFC 3492, 6.2. */
static vel_error_t vel_punycode_read(vel_punycode_output *output, const uint32_t *punycode,
                                     size_t punycodelen)
{
    const size_t basiclen = vel_punycode_basic_length(punycode, punycodelen);
    for (size_t in = 0; in < basiclen; in++) {
        if (punycode[in] >= vel_punycode_initial_n)
            return VEL_ERROR_OUT_OF_RANGE;
        vel_punycode_put(output, punycode[in]);
    }

    uint32_t n = vel_punycode_initial_n, i = 0, bias = vel_punycode_initial_bias;
    for (size_t in = basiclen > 0 ? basiclen + 1 : 0; in < punycodelen;) {
        const uint32_t before = i;
        const vel_error_t error = vel_punycode_read_number(punycode, punycodelen, &in, bias, &i);
        if (error != VEL_ERROR_NONE)
            return error;
        if (output->len >= vel_punycode_maxint)
            return VEL_ERROR_OUT_OF_RANGE;
        const auto numpoints = static_cast<uint32_t>(output->len + 1);
        bias = vel_punycode_adapt(i - before, numpoints, before == 0);
        if (i / numpoints > vel_punycode_maxint - n)
            return VEL_ERROR_OUT_OF_RANGE;
        n += i / numpoints;
        i %= numpoints;
        vel_punycode_insert(output, i, n);
        i++;
    }
    return VEL_ERROR_NONE;
}

/* One of the two functions on a caller's array. */
typedef vel_error_t vel_punycode_convert(uint32_t *dest, size_t *destlen, const uint32_t *source,
                                         size_t sourcelen);

/* Converts into room that does for the label of a host, and else only measures, so that the array
 * has the size it needs. */
static vel_error_t vel_punycode_allocate(vel_punycode_convert *convert, const uint32_t *source,
                                         size_t sourcelen, uint32_t **destptr, size_t *destlenptr)
{
    *destptr = nullptr;
    *destlenptr = 0;
    uint32_t room[64];
    size_t len = std::size(room);
    vel_error_t error = convert(room, &len, source, sourcelen);
    if ((error != VEL_ERROR_NONE && error != VELURL_ERROR_TRUNCATED) || len == 0)
        return error;

    uint32_t *result = nullptr;
    if (len <= SIZE_MAX / sizeof(uint32_t))
        result = static_cast<uint32_t *>(vel_malloc(len * sizeof(uint32_t)));
    if (!result)
        return VEL_ERROR_NO_MEMORY;
    if (error == VEL_ERROR_NONE) {
        std::copy(room, room + len, result);
    } else {
        size_t resultlen = len;
        error = convert(result, &resultlen, source, sourcelen);
        VEL_ASSERT(error != VELURL_ERROR_TRUNCATED);
        VEL_ASSERT(resultlen == len);
    }
    *destptr = result;
    *destlenptr = len;
    return error;
}

vel_error_t vel_punycode_velurl_decode_from_warray(uint32_t *punycode, size_t *punycodelen,
                                                   const uint32_t *warray, size_t warraylen)
{
    VEL_ASSERT(punycodelen != NULL);
    VEL_ASSERT(punycode != NULL || *punycodelen == 0);
    VEL_ASSERT(warray != NULL);

    vel_punycode_output output = {punycode, *punycodelen, 0};
    const vel_error_t error = vel_punycode_write(&output, warray, warraylen);
    *punycodelen = output.len;
    return vel_punycode_finish(&output, error);
}

vel_error_t vel_punycode_velurl_decode_to_warray(uint32_t *warray, size_t *warraylen,
                                                 const uint32_t *punycode, size_t punycodelen)
{
    VEL_ASSERT(warraylen != NULL);
    VEL_ASSERT(warray != NULL || *warraylen == 0);

    vel_punycode_output output = {warray, *warraylen, 0};
    const vel_error_t error = vel_punycode_read(&output, punycode, punycodelen);
    *warraylen = output.len;
    return vel_punycode_finish(&output, error);
}

vel_error_t vel_punycode_velurl_encode(const uint32_t *warray, size_t warraylen,
                                       uint32_t **punycode, size_t *punycodelen)
{
    VEL_ASSERT(punycode != NULL);
    VEL_ASSERT(punycodelen != NULL);

    return vel_punycode_allocate(vel_punycode_velurl_decode_from_warray, warray, warraylen,
                                 punycode, punycodelen);
}

vel_error_t vel_punycode_velurl_decode(const uint32_t *punycode, size_t punycodelen,
                                       uint32_t **warray, size_t *warraylen)
{
    VEL_ASSERT(warray != NULL);
    VEL_ASSERT(warraylen != NULL);

    return vel_punycode_allocate(vel_punycode_velurl_decode_to_warray, punycode, punycodelen,
                                 warray, warraylen);
}
