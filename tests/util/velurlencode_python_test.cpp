/* Percent encoding and decoding beside Python's urllib. */

#include <random>
#include <string>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/pythoncheck.h"
#include "support/utf8model.h"

using support::in_hex;

/* Hexadecimal text that is never empty. */
static std::string word(const std::string &bytes)
{
    return "x" + in_hex(bytes);
}

static std::string random_text(std::mt19937 &random, const std::string &letters, size_t limit)
{
    std::string text(random() % limit, '\0');
    for (char &byte : text)
        byte = letters.empty() ? static_cast<char>(1 + random() % 255)
                               : letters[random() % letters.size()];
    return text;
}

/* Bytes above 127 cannot be safe in urllib. */
static const char kEncode[] = R"(
from urllib.parse import quote
def expected(text, safe):
    safe = bytes.fromhex(safe[1:]).decode('ascii')
    return 'x' + quote(bytes.fromhex(text[1:]), safe="!'()*" + safe).encode('ascii').hex()
)";

TEST(VelurlencodePython, RandomTextsAndSafeBytes)
{
    support::python_check check(kEncode);
    std::mt19937 random(20240501);
    std::string ascii;
    for (char byte = 1; byte < 127; byte++)
        ascii.push_back(byte);
    for (int turn = 0; turn < 8000; turn++) {
        const std::string text = random_text(random, turn % 2 ? ascii : "", 90);
        const std::string skipped = random_text(random, ascii, 8);
        velurlencode *table = vel_urlencode_create();
        ASSERT_NE(table, nullptr);
        vel_urlencode_skip(table, skipped.c_str());
        char *encoded = nullptr;
        ASSERT_EQ(vel_urlencode_string(table, &encoded, text.c_str()), VEL_ERROR_NONE);
        check.add(word(text), word(skipped), word(encoded));
        vel_free(encoded);
        vel_urlencode_destroy(table);
    }
    check.compare();
}

/* urllib lets bad escapes stand. */
static const char kDecode[] = R"(
import re
from urllib.parse import unquote_to_bytes
bad = re.compile(rb'%(?![0-9A-Fa-f]{2})')
def expected(text):
    text = bytes.fromhex(text[1:])
    if bad.search(text):
        return 'refused'
    return 'x' + unquote_to_bytes(text.replace(b'+', b' ')).hex()
)";

TEST(VelurldecodePython, RandomTexts)
{
    support::python_check check(kDecode);
    std::mt19937 random(20240502);
    int refused = 0;
    for (int turn = 0; turn < 20000; turn++) {
        std::string text;
        for (size_t piece = random() % 20; piece > 0; piece--) {
            char escape[4];
            snprintf(escape, sizeof(escape), random() % 2 ? "%%%02x" : "%%%02X",
                     static_cast<unsigned int>(random() % 256));
            text += random() % 3 ? std::string(escape) : random_text(random, "", 12);
            if (random() % 100 == 0)
                text += random_text(random, "%aF0gG+ ", 5);
        }
        std::string decoded(text.size(), '\0');
        size_t len = decoded.size();
        const bool good =
            vel_urldecode_buffer(decoded.data(), &len, text.data(), text.size()) == VEL_ERROR_NONE;
        decoded.resize(len);
        refused += !good;
        check.add(word(text), good ? word(decoded) : "refused");
    }
    EXPECT_GT(refused, 500);
    EXPECT_LT(refused, 15000);
    check.compare();
}
