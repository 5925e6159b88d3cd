#include <cerrno>
#include <cstring>
#include <string>

#include <gmock/gmock.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/fdcapture.h"
#include "support/rows.h"

static const char *volatile null_format = nullptr;

/* The variadic forms below are only there to make an argument list. */
static int format_list(char *str, size_t size, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = vel_vsnprintf(str, size, format, arguments);
    va_end(arguments);
    return result;
}

typedef int print_function(char *str, size_t size, const char *format, ...);

struct print_twin {
    const char *name;
    print_function *print;
};

static const print_twin kTwins[] = {
    {"Arguments", vel_snprintf},
    {"ArgumentList", format_list},
};

class Velsnprintf : public testing::TestWithParam<print_twin> {};

TEST_P(Velsnprintf, TextThatFits)
{
    char text[32];
    memset(text, 'x', sizeof(text));
    EXPECT_EQ(GetParam().print(text, sizeof(text), "%s:%d[%c]", "abc", -7, 'z'), 9);
    EXPECT_STREQ(text, "abc:-7[z]");
}

TEST_P(Velsnprintf, TextThatJustFits)
{
    char text[] = "xxxxxx";
    EXPECT_EQ(GetParam().print(text, 4, "%s", "abc"), 3);
    EXPECT_EQ(std::string(text, 6), std::string("abc\0xx", 6));
}

TEST_P(Velsnprintf, TextThatIsCutIsTerminated)
{
    char text[] = "xxxxxx";
    EXPECT_EQ(GetParam().print(text, 4, "%s", "abcdefgh"), 8);
    EXPECT_EQ(std::string(text, 6), std::string("abc\0xx", 6));
}

TEST_P(Velsnprintf, BufferOfOneTakesTheTerminatorAlone)
{
    char text[] = "xx";
    EXPECT_EQ(GetParam().print(text, 1, "%s", "abc"), 3);
    EXPECT_EQ(std::string(text, 2), std::string("\0x", 2));
}

TEST_P(Velsnprintf, MeasuresWithoutBuffer)
{
    EXPECT_EQ(GetParam().print(nullptr, 0, "%05d %s", 12, "abc"), 9);
    EXPECT_EQ(GetParam().print(nullptr, 0, "%s", ""), 0);
}

TEST_P(Velsnprintf, BufferOfNoSizeIsLeftAlone)
{
    char text[] = "x";
    EXPECT_EQ(GetParam().print(text, 0, "%s", "abc"), 3);
    EXPECT_STREQ(text, "x");
}

/* The last byte, and not only the one behind the text, is set. */
TEST_P(Velsnprintf, LastByteOfTheBufferBecomesTheTerminator)
{
    char text[] = "xxxxxxxx";
    EXPECT_EQ(GetParam().print(text, 8, "%s", "ab"), 2);
    EXPECT_EQ(std::string(text, 8), std::string("ab\0xxxx\0", 8));
}

TEST_P(Velsnprintf, FormatErrorIsNegativeAndTheBufferEndsAllTheSame)
{
    char text[] = "xxxxxxxx";
    EXPECT_LT(GetParam().print(text, 8, "%ls", L"\x3b1"), 0) << "not a character of this locale";
    EXPECT_EQ(text[7], '\0');
    EXPECT_LT(GetParam().print(nullptr, 0, "%ls", L"\x3b1"), 0);
}

TEST_P(Velsnprintf, ArgumentsAreAsserted)
{
    char text[4];
    EXPECT_DEATH(GetParam().print(nullptr, 1, "%d", 1),
                 support::asserts("str != NULL || size == 0"));
    EXPECT_DEATH(GetParam().print(text, 4, null_format, 1), support::asserts("format != NULL"));
    EXPECT_DEATH(GetParam().print(nullptr, 1, null_format, 1),
                 support::asserts("str != NULL || size == 0"));
}

INSTANTIATE_TEST_SUITE_P(Twins, Velsnprintf, testing::ValuesIn(kTwins), support::row_name());

TEST(Velstdio, PrintsToTheStandardErrorStream)
{
    support::fd_capture capture(STDERR_FILENO);
    const int count = vel_stdio_printf_stderr("%s %d\n", "text", 42);
    const std::string text = capture.stop();
    EXPECT_EQ(count, 8);
    EXPECT_EQ(text, "text 42\n");
}

TEST(Velstdio, FormatErrorIsNegative)
{
    support::fd_capture capture(STDERR_FILENO);
    const int count = vel_stdio_printf_stderr("%ls", L"\x3b1");
    capture.stop();
    EXPECT_LT(count, 0);
}

TEST(VelstdioDeathTest, FormatIsAsserted)
{
    EXPECT_DEATH(vel_stdio_printf_stderr(null_format, 1), support::asserts("format != NULL"));
}
