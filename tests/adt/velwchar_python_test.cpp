/* Python's own codecs as the second opinion. */

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/tempdir.h"
#include "support/utf8model.h"

using namespace support;

/* Prints what differs, up to a few, and counts it in the exit status. */
static const char kScript[] = R"(
import sys

def lines(name):
    with open(name) as rows:
        for row in rows:
            yield row.rstrip('\n').split(' ')

differences = count = 0

def compare(source, expected, found):
    global differences, count
    count += 1
    if expected != found:
        differences += 1
        if differences < 10:
            print(source, 'is', expected, 'and not', found)

def decoded(text):
    try:
        return ','.join('%x' % ord(character) for character in bytes.fromhex(text).decode('utf-8'))
    except UnicodeDecodeError:
        return 'refused'

def encoded(words):
    wide = b''.join(int(word, 16).to_bytes(4, 'little') for word in words.split(',') if word)
    try:
        return wide.decode('utf-32-le', 'surrogatepass').encode('utf-16-le', 'surrogatepass') \
            .decode('utf-16-le').encode('utf-8').hex()
    except UnicodeDecodeError:
        return 'refused'

for text, found in lines('decoded'):
    compare(text, decoded(text), found)
for words, found in lines('encoded'):
    compare(words, encoded(words), found)
print(count, 'compared')
sys.exit(differences != 0 or count != int(sys.argv[1]))
)";

class VelwcharPython : public testing::Test {
  protected:
    VelwcharPython()
    {
        vel_log_stderr_disable(nullptr);
        write_file("compare.py", kScript);
        decoded = fopen("decoded", "w");
        encoded = fopen("encoded", "w");
    }
    ~VelwcharPython() override
    {
        vel_log_uninit();
    }

    void add_decoded(const std::string &text)
    {
        wchar_t *wide = vel_wchar_from_utf8(text.c_str());
        const std::string found = wide ? in_hex_words(wide) : "refused";
        fprintf(decoded, "%s %s\n", in_hex(text).c_str(), found.c_str());
        vel_free(wide);
        count++;
    }

    void add_encoded(std::vector<wchar_t> wide)
    {
        wide.push_back(0);
        char *utf8 = vel_wchar_to_utf8(wide.data());
        fprintf(encoded, "%s %s\n", in_hex_words(wide.data()).c_str(),
                utf8 ? in_hex(utf8).c_str() : "refused");
        vel_free(utf8);
        count++;
    }

    static std::string in_hex_words(const wchar_t *wide)
    {
        std::string words;
        for (; *wide; wide++) {
            char digits[16];
            snprintf(digits, sizeof(digits), "%s%x", words.empty() ? "" : ",",
                     static_cast<unsigned int>(*wide));
            words += digits;
        }
        return words;
    }

    void compare()
    {
        fclose(decoded);
        fclose(encoded);
        const std::string command =
            "python3 compare.py " + std::to_string(count) + " >differences 2>&1";
        EXPECT_EQ(system(command.c_str()), 0) << read_file("differences");
    }

    temporary_directory directory;
    FILE *decoded;
    FILE *encoded;
    size_t count = 0;
};

static std::string bytes(std::initializer_list<int> numbers)
{
    std::string text;
    for (const int number : numbers)
        text.push_back(static_cast<char>(number));
    return text;
}

TEST_F(VelwcharPython, EveryCodePoint)
{
    for (uint32_t point = 1; point < 0x110000; point += 8) {
        std::string text;
        std::vector<wchar_t> wide;
        for (uint32_t each = point; each < point + 8 && each < 0x110000; each++) {
            text += utf8_encode(each);
            wide.push_back(static_cast<wchar_t>(each));
        }
        add_decoded(text);
        add_encoded(wide);
    }
    compare();
}

TEST_F(VelwcharPython, EveryShortSequence)
{
    for (int first = 1; first < 0x100; first++) {
        add_decoded(bytes({first}));
        for (int second = 1; second < 0x100; second++)
            add_decoded(bytes({first, second}));
    }
    compare();
}

TEST_F(VelwcharPython, SequencesOfThreeAndFourBytes)
{
    const int edges[] = {0x01, 0x7F, 0x80, 0xBF, 0xC0, 0xFF};
    for (int first = 0xE0; first < 0x100; first++)
        for (int second = 0x70; second < 0xD0; second++)
            for (const int third : edges) {
                add_decoded(bytes({first, second, third}));
                for (const int fourth : edges)
                    add_decoded(bytes({first, second, third, fourth}));
            }
    compare();
}

TEST_F(VelwcharPython, Surrogates)
{
    for (wchar_t first = 0xD7F0; first < 0xE010; first += first % 0x100 < 0x10 ? 1 : 0x11) {
        add_encoded({first});
        for (wchar_t second = 0xDBF0; second < 0xE010; second += 0x0B)
            add_encoded({first, second, 'a'});
    }
    compare();
}
