/* Punycode beside Python's codec, and beside RFC 3492 in numbers without an end. */

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/punycode.h"
#include "support/pythoncheck.h"

using support::points;

static const size_t kRoom = 256;

using array_function = vel_error_t (*)(uint32_t *, size_t *, const uint32_t *, size_t);

/* Words in the rows; "." is the empty one. */
static std::string in_words(const points &values)
{
    std::string words = ".";
    for (const uint32_t value : values) {
        char digits[16];
        snprintf(digits, sizeof(digits), "%x.", value);
        words += digits;
    }
    return words;
}

static points make(array_function convert, const points &source, vel_error_t *resultptr)
{
    uint32_t room[kRoom];
    size_t len = kRoom;
    *resultptr = convert(room, &len, source.data(), source.size());
    return points(room, room + std::min(len, kRoom));
}

static std::string found(array_function convert, const points &source)
{
    vel_error_t result;
    const points made = make(convert, source, &result);
    return result == VEL_ERROR_NONE ? in_words(made) : "error" + std::to_string(result);
}

/* Letters of alphabets, of planes, and from everywhere. */
static uint32_t random_point(std::mt19937 &random, int kind)
{
    switch (kind) {
    case 0:
        return 'a' + static_cast<uint32_t>(random() % 26);
    case 1:
        return "-AZ09~!\x01\x7F"[random() % 9];
    case 2:
        return 0x80 + static_cast<uint32_t>(random() % 0x580);
    case 3:
        return 0x4E00 + static_cast<uint32_t>(random() % 0x5000);
    case 4:
        return 0x10FFFF - static_cast<uint32_t>(random() % 4);
    default:
        return 1 + static_cast<uint32_t>(random() % 0x10FFFF);
    }
}

static points random_label(std::mt19937 &random)
{
    points label;
    const int kinds[] = {static_cast<int>(random() % 6), static_cast<int>(random() % 6)};
    for (size_t left = 1 + random() % (random() % 10 ? 9 : 40); left > 0; left--)
        label.push_back(random_point(random, kinds[random() % 2]));
    return label;
}

static const char kCodec[] = R"(
def text_of(words):
    return ''.join(chr(int(word, 16)) for word in words.split('.') if word)
def expected(words):
    return '.' + ''.join('%x.' % byte for byte in text_of(words).encode('punycode'))
)";

/* Surrogates are code points here as they are for the codec. */
TEST(VelpunycodePython, RandomLabelsAndBack)
{
    support::python_check check(kCodec);
    std::mt19937 random(3492);
    for (int turn = 0; turn < 100000; turn++) {
        const points label = random_label(random);
        vel_error_t result;
        const points text = make(vel_punycode_velurl_decode_from_warray, label, &result);
        check.add(in_words(label), result == VEL_ERROR_NONE ? in_words(text) : "refused");
        ASSERT_EQ(make(vel_punycode_velurl_decode_to_warray, text, &result), label);
        ASSERT_EQ(result, VEL_ERROR_NONE);
    }
    check.compare();
}

/* The codec ends at U+10FFFF and reads a hyphen at the start as a delimiter, so texts that need not
 * be Punycode are read from the document, with integers that cannot overflow, and tested for the
 * size they would have. */
static const char kDocument[] = R"(
MAXINT = 0xFFFFFFFF
def digit_of(value):
    character = chr(value) if value < 128 else '!'
    if '0' <= character <= '9':
        return value - ord('0') + 26
    if 'a' <= character.lower() <= 'z':
        return ord(character.lower()) - ord('a')
    raise OverflowError
def threshold(k, bias):
    return max(1, min(26, k - bias))
def adapt(delta, numpoints, first):
    delta = delta // 700 if first else delta // 2
    delta += delta // numpoints
    k = 0
    while delta > 455:
        delta //= 35
        k += 36
    return k + 36 * delta // (delta + 38)
def fits(number):
    if number > MAXINT:
        raise OverflowError
    return number
def decoded(source):
    delimiter = max((i for i, value in enumerate(source) if value == ord('-')), default=0)
    output = source[:delimiter]
    if any(value >= 128 for value in output):
        raise OverflowError
    n, i, bias = 128, 0, 72
    left = source[delimiter + 1 if delimiter else 0:]
    while left:
        before, w, k = i, 1, 36
        while True:
            if not left:
                raise OverflowError
            digit = digit_of(left.pop(0))
            i = fits(i + digit * w)
            t = threshold(k, bias)
            if digit < t:
                break
            w = fits(w * (36 - t))
            k += 36
        bias = adapt(i - before, len(output) + 1, before == 0)
        n = fits(n + i // (len(output) + 1))
        i %= len(output) + 1
        output.insert(i, n)
        i += 1
    return output
def encoded(source):
    digits = 'abcdefghijklmnopqrstuvwxyz0123456789'
    output = [value for value in source if value < 128]
    basic = done = len(output)
    if basic:
        output.append(ord('-'))
    n, delta, bias = 128, 0, 72
    while done < len(source):
        m = min(value for value in source if value >= n)
        if m >= 0x110000:
            raise OverflowError
        delta = fits(delta + (m - n) * (done + 1))
        n = m
        for value in source:
            if value < n:
                delta = fits(delta + 1)
            if value == n:
                q, k = delta, 36
                while q >= threshold(k, bias):
                    t = threshold(k, bias)
                    output.append(ord(digits[t + (q - t) % (36 - t)]))
                    q = (q - t) // (36 - t)
                    k += 36
                output.append(ord(digits[q]))
                bias = adapt(delta, done + 1, done == basic)
                delta = 0
                done += 1
        delta += 1
        n += 1
    return output
def expected(direction, words):
    source = [int(word, 16) for word in words.split('.') if word]
    try:
        output = decoded(source) if direction == 'decode' else encoded(source)
    except OverflowError:
        return 'error34'
    return '.' + ''.join('%x.' % value for value in output)
)";

static points random_text(std::mt19937 &random)
{
    static const char letters[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789--!";
    points text;
    for (size_t left = 1 + random() % 14; left > 0; left--)
        text.push_back(static_cast<uint32_t>(letters[random() % (random() % 3 ? 62 : 65)]));
    if (random() % 20 == 0)
        text[random() % text.size()] = static_cast<uint32_t>(random());
    return text;
}

TEST(VelpunycodePython, TextsThatNeedNotBePunycode)
{
    EXPECT_EQ(VEL_ERROR_OUT_OF_RANGE, 34);
    support::python_check check(kDocument);
    std::mt19937 random(3493);
    int refused = 0, beyond = 0;
    for (int turn = 0; turn < 16000; turn++) {
        points text = random_text(random);
        if (turn % 2) { /* what was Punycode before one element changed */
            vel_error_t result;
            text = make(vel_punycode_velurl_decode_from_warray, random_label(random), &result);
            text[random() % text.size()] = 'a' + static_cast<uint32_t>(random() % 26);
        }
        vel_error_t result;
        const points values = make(vel_punycode_velurl_decode_to_warray, text, &result);
        refused += result != VEL_ERROR_NONE;
        for (const uint32_t value : values)
            beyond += result == VEL_ERROR_NONE && value >= 0x110000;
        check.add(std::string("decode"), in_words(text),
                  found(vel_punycode_velurl_decode_to_warray, text));
    }
    EXPECT_GT(refused, 2000);
    EXPECT_LT(refused, 14000);
    EXPECT_GT(beyond, 1000);
    check.compare();
}

TEST(VelpunycodePython, ValuesThatNeedNotBeCodePoints)
{
    support::python_check check(kDocument);
    std::mt19937 random(3494);
    for (int turn = 0; turn < 3000; turn++) {
        points label = random_label(random);
        if (random() % 2)
            label[random() % label.size()] = random() % 3 ? 0x10FFFE + random() % 4 : random();
        check.add(std::string("encode"), in_words(label),
                  found(vel_punycode_velurl_decode_from_warray, label));
    }
    check.compare();
}
