#include <cstdio>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/rows.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static const char kModule[] = "util/velurlencode";
static const std::string kUnescaped =
    "!'()*-.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz~";

static std::string every_byte()
{
    std::string bytes;
    for (int byte = 0; byte < 256; byte++)
        bytes.push_back(static_cast<char>(byte));
    return bytes;
}

/* What a table gives that lets these bytes stand. */
static std::string reference(const std::string &bytes, const std::string &unescaped)
{
    std::string text;
    for (const char byte : bytes) {
        char escape[4];
        snprintf(escape, sizeof(escape), "%%%02X", static_cast<unsigned char>(byte));
        text += unescaped.find(byte) != std::string::npos ? std::string(1, byte) : escape;
    }
    return text;
}

class Velurlencode : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_NE(table, nullptr);
    }

    ~Velurlencode() override
    {
        vel_urlencode_destroy(table);
    }

    /* Measures and fills; the room is that of the result and the terminator. */
    std::string encode(const std::string &bytes)
    {
        size_t len = 0;
        EXPECT_EQ(vel_urlencode_buffer(table, nullptr, &len, bytes.data(), bytes.size()),
                  bytes.empty() ? VEL_ERROR_NONE : VEL_ERROR_OUT_OF_RANGE);
        std::vector<char> text(len + 1, 'x');
        size_t filled = text.size();
        EXPECT_EQ(vel_urlencode_buffer(table, text.data(), &filled, bytes.data(), bytes.size()),
                  VEL_ERROR_NONE);
        EXPECT_EQ(filled, len);
        EXPECT_EQ(text[len], 0);
        return {text.data(), len};
    }

    log_capture log;
    velurlencode *table = vel_urlencode_create();
};

/* Texts */

struct encode_case {
    const char *name;
    const char *skipchars;
    const char *source;
    const char *encoded;
};

static const encode_case kEncodeCases[] = {
    {"Empty", "", "", ""},
    {"BlankPlusAndSlash", "", "a b+c/d", "a%20b%2Bc%2Fd"},
    {"SkippedSlash", "/", "a b+c/d", "a%20b%2Bc/d"},
    {"TildeAndAsterisk", "", "~*", "~*"},
    {"Percent", "", "%", "%25"},
    {"AnEscapeIsEscapedOnceMore", "", "%20", "%2520"},
    {"HighByte", "", "\xC3", "%C3"},
    {"Utf8", "", "\xC3\xBC", "%C3%BC"},
    {"SkippedHighByte", "\xC3", "\xC3\xBC", "\xC3%BC"},
    {"SkippedPercent", "%", "%20 ", "%20%20"},
    {"SkippedBlank", " ", "a b", "a b"},
    {"SkippedTwice", "//", "/", "/"},
    {"SkippedWhatStandsAnyway", "a~", "a~/", "a~%2F"},
    {"Unreserved", "", "AZaz09-._~", "AZaz09-._~"},
    {"Delimiters", "", ":/?#[]@!$&'()*+,;=", "%3A%2F%3F%23%5B%5D%40!%24%26'()*%2B%2C%3B%3D"},
};

class VelurlencodeText : public testing::TestWithParam<encode_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelurlencodeText, testing::ValuesIn(kEncodeCases), row_name());

TEST_P(VelurlencodeText, String)
{
    const encode_case &row = GetParam();
    log_capture log;
    velurlencode *table = vel_urlencode_create();
    ASSERT_NE(table, nullptr);
    vel_urlencode_skip(table, row.skipchars);
    char dirt = 0, *encoded = &dirt;
    EXPECT_EQ(vel_urlencode_string(table, &encoded, row.source), VEL_ERROR_NONE);
    EXPECT_STREQ(encoded, row.encoded);
    vel_free(encoded);
    vel_urlencode_destroy(table);

    if (!*row.skipchars) {
        char *text = vel_urlencode(row.source);
        EXPECT_STREQ(text, row.encoded);
        vel_free(text);
    }
    EXPECT_THAT(log.take(), IsEmpty());
}

/* Tables */

TEST_F(Velurlencode, DefaultTable)
{
    EXPECT_EQ(encode(every_byte()), reference(every_byte(), kUnescaped));
    for (int byte = 0; byte < 256; byte++) {
        const std::string one(1, static_cast<char>(byte));
        EXPECT_EQ(encode(one), reference(one, kUnescaped));
    }
}

TEST_F(Velurlencode, EachByteSkippedAlone)
{
    for (int byte = 1; byte < 256; byte++) {
        const std::string one(1, static_cast<char>(byte));
        vel_urlencode_skip(table, one.c_str());
        EXPECT_EQ(encode(every_byte()), reference(every_byte(), kUnescaped + one));
        vel_urlencode_reset(table);
        EXPECT_EQ(encode(every_byte()), reference(every_byte(), kUnescaped));
    }
}

TEST_F(Velurlencode, EverySafeSetOfOneByteAmongAllOthers)
{
    std::string skipped;
    for (int byte = 255; byte > 0; byte--) {
        const std::string one(1, static_cast<char>(byte));
        vel_urlencode_skip(table, one.c_str());
        skipped += one;
        EXPECT_EQ(encode(every_byte()), reference(every_byte(), kUnescaped + skipped));
    }
    EXPECT_EQ(encode(every_byte()), "%00" + every_byte().substr(1));
}

TEST_F(Velurlencode, SkipsOfSeveralBytesAddUpUntilAReset)
{
    vel_urlencode_skip(table, "/:");
    vel_urlencode_skip(table, "");
    vel_urlencode_skip(table, "?");
    EXPECT_EQ(encode("/:?="), "/:?%3D");
    vel_urlencode_reset(table);
    vel_urlencode_reset(table);
    EXPECT_EQ(encode("/:?=a"), "%2F%3A%3F%3Da");
}

TEST_F(Velurlencode, TablesAreIndependent)
{
    velurlencode *other = vel_urlencode_create();
    ASSERT_NE(other, nullptr);
    vel_urlencode_skip(other, "/");
    EXPECT_EQ(encode("/"), "%2F");
    vel_urlencode_destroy(other);
}

TEST_F(Velurlencode, ConvenienceFunctionTakesTheDefaultTable)
{
    vel_urlencode_skip(table, "/");
    char *text = vel_urlencode("/");
    EXPECT_STREQ(text, "%2F");
    vel_free(text);
}

/* The room */

TEST_F(Velurlencode, SourceBytesAreTakenAsTheLengthSays)
{
    EXPECT_EQ(encode(std::string("a\0b\0", 4)), "a%00b%00");
    EXPECT_EQ(encode(std::string()), "");
    size_t len = 0;
    EXPECT_EQ(vel_urlencode_buffer(table, nullptr, &len, "abc/", 3), VEL_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(len, 3u);
}

/* The bytes of the result that fit, a terminator where one more fits, and nothing else. */
static void expect_room(velurlencode *table, const std::string &source, const std::string &whole,
                        size_t room)
{
    std::vector<char> dst(whole.size() + 4, '\x5A');
    size_t len = room;
    EXPECT_EQ(vel_urlencode_buffer(table, dst.data(), &len, source.data(), source.size()),
              room < whole.size() ? VEL_ERROR_OUT_OF_RANGE : VEL_ERROR_NONE)
        << room;
    EXPECT_EQ(len, whole.size());

    std::string expected = whole.substr(0, room);
    if (room > whole.size())
        expected.push_back('\0');
    expected.resize(dst.size(), '\x5A');
    EXPECT_EQ(std::string(dst.data(), dst.size()), expected) << room;
}

TEST_F(Velurlencode, EveryRoom)
{
    std::string longer;
    for (int turn = 0; turn < 40; turn++)
        longer += turn % 3 ? "plain text/" : std::string("\0\xFF \xC3", 4);
    for (const std::string &source :
         {std::string(), std::string("a"), std::string("/"), std::string("ab/cd"),
          std::string("///"), std::string(70, 'a'), std::string(70, ' '), every_byte(), longer}) {
        const std::string whole = reference(source, kUnescaped);
        for (size_t room = 0; room <= whole.size() + 3; room++)
            expect_room(table, source, whole, room);
    }
}

TEST_F(Velurlencode, NullMeasuresWithARoomOfZero)
{
    size_t len = 0;
    EXPECT_EQ(vel_urlencode_buffer(table, nullptr, &len, "a b", 3), VEL_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(len, 5u);
    len = 0;
    EXPECT_EQ(vel_urlencode_buffer(table, nullptr, &len, "", 0), VEL_ERROR_NONE);
    EXPECT_EQ(len, 0u);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(Velurlencode, LongText)
{
    std::string source;
    for (int turn = 0; turn < 4000; turn++)
        source += every_byte().substr(1);
    char *encoded = nullptr;
    EXPECT_EQ(vel_urlencode_string(table, &encoded, source.c_str()), VEL_ERROR_NONE);
    EXPECT_TRUE(encoded && reference(source, kUnescaped) == encoded);
    vel_free(encoded);
}

/* Out of memory */

static log_line no_memory(const std::string &what)
{
    return {kModule, 7, "not enough memory for " + what};
}

TEST(VelurlencodeMemory, CreateLogsTheTable)
{
    log_capture log;
    const auto failures = allocfail_each(log, [] {
        velurlencode *table = vel_urlencode_create();
        if (table)
            vel_urlencode_destroy(table);
        return table != nullptr;
    });
    EXPECT_THAT(failures, ElementsAre(ElementsAre(no_memory("URL encoding context"))));
}

TEST_F(Velurlencode, TheStringFormLogsWhatWasMissing)
{
    for (const auto &[source, what] :
         {std::pair("", "an empty result string"), std::pair("a b", "encoded buffer (6 bytes)")}) {
        const auto failures = allocfail_each(log, [this, &source = source] {
            char dirt = 0, *encoded = &dirt;
            const vel_error_t result = vel_urlencode_string(table, &encoded, source);
            if (result == VEL_ERROR_NONE) {
                vel_free(encoded);
                return true;
            }
            EXPECT_EQ(result, VEL_ERROR_NO_MEMORY);
            EXPECT_EQ(encoded, nullptr);
            return false;
        });
        EXPECT_THAT(failures, ElementsAre(ElementsAre(no_memory(what))));
    }
}

TEST(VelurlencodeMemory, ConvenienceFunctionLogsTheCauseAndItself)
{
    log_capture log;
    const auto failures = allocfail_each(log, [] {
        char *encoded = vel_urlencode("a%s");
        vel_free(encoded);
        return encoded != nullptr;
    });
    EXPECT_THAT(
        failures,
        ElementsAre(ElementsAre(no_memory("URL encoding context"),
                                log_line{kModule, 7, "unable to create URL encoding context"}),
                    ElementsAre(no_memory("encoded buffer (6 bytes)"),
                                log_line{kModule, 7,
                                         "unable to urlencode string 'a%s', error 12 "
                                         "(not enough memory)"})));
}

TEST(VelurlencodeOom, Life)
{
    vel_oom_drive([] {
        velurlencode *table = vel_urlencode_create();
        if (!table)
            return false;
        char *path = nullptr, *empty = nullptr;
        vel_urlencode_skip(table, "/");
        bool good = vel_urlencode_string(table, &path, "a/b c") == VEL_ERROR_NONE;
        vel_urlencode_reset(table);
        good = good && vel_urlencode_string(table, &empty, "") == VEL_ERROR_NONE;
        vel_urlencode_destroy(table);
        char *plain = good ? vel_urlencode("a/b") : nullptr;
        good = plain != nullptr;
        if (good) {
            EXPECT_STREQ(path, "a/b%20c");
            EXPECT_STREQ(empty, "");
            EXPECT_STREQ(plain, "a%2Fb");
        }
        vel_free(path);
        vel_free(empty);
        vel_free(plain);
        return good;
    });
}

/* Assertions */

using VelurlencodeDeathTest = Velurlencode;

TEST_F(VelurlencodeDeathTest, TablesAreAsserted)
{
    EXPECT_DEATH(vel_urlencode_destroy(nullptr),
                 asserts("velurlencode != NULL", "vel_urlencode_destroy"));
    EXPECT_DEATH(vel_urlencode_reset(nullptr),
                 asserts("velurlencode != NULL", "vel_urlencode_reset"));
    EXPECT_DEATH(vel_urlencode_skip(nullptr, nullptr),
                 asserts("velurlencode != NULL", "vel_urlencode_skip"));
    EXPECT_DEATH(vel_urlencode_skip(table, nullptr),
                 asserts("skipchars != NULL", "vel_urlencode_skip"));
}

TEST_F(VelurlencodeDeathTest, TheStringFormAssertsInTheOrderOfItsArguments)
{
    char *encoded;
    EXPECT_DEATH(vel_urlencode_string(nullptr, nullptr, nullptr),
                 asserts("velurlencode != NULL", "vel_urlencode_string"));
    EXPECT_DEATH(vel_urlencode_string(table, nullptr, nullptr),
                 asserts("dstptr != NULL", "vel_urlencode_string"));
    EXPECT_DEATH(vel_urlencode_string(table, &encoded, nullptr),
                 asserts("src != NULL", "vel_urlencode_string"));
    EXPECT_DEATH(vel_urlencode(nullptr), asserts("src != NULL", "vel_urlencode_string"));
}

TEST_F(VelurlencodeDeathTest, TheBufferFormAssertsItsRoomAndSource)
{
    char dst[4];
    size_t len = 4;
    EXPECT_DEATH(vel_urlencode_buffer(nullptr, dst, &len, "a", 1),
                 asserts("velurlencode != NULL", "vel_urlencode_buffer"));
    EXPECT_DEATH(vel_urlencode_buffer(table, dst, nullptr, "a", 1),
                 asserts("dstlenptr != NULL", "vel_urlencode_buffer"));
    EXPECT_DEATH(vel_urlencode_buffer(table, dst, &len, nullptr, 0),
                 asserts("src != NULL", "vel_urlencode_buffer"));
    EXPECT_DEATH(vel_urlencode_buffer(table, nullptr, &len, "a", 1),
                 asserts("dst != NULL || *dstlenptr == 0", "vel_urlencode_buffer"));
}
