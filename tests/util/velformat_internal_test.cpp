#include "util/velformat_internal.h"

#include <cstdarg>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/logcapture.h"

using support::asserts;
using support::log_line;

using log_lines = std::vector<log_line>;

/* What formatting into a buffer of a given size gives. */
struct filled {
    vel_error_t result;
    size_t length;
    std::string buffer;

    bool operator==(const filled &) const = default;
};

static std::ostream &operator<<(std::ostream &out, const filled &one)
{
    return out << one.result << " " << one.length << " '" << one.buffer << "'";
}

static vel_error_t call(char *buffer, size_t *lengthptr, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const vel_error_t result = vel_format_internal(buffer, lengthptr, format, arguments);
    va_end(arguments);
    return result;
}

/* The buffer is a block of exactly its size; a "?" stands where nothing was written. */
static filled fill(size_t size, const char *format)
{
    const auto buffer = std::make_unique<char[]>(size);
    memset(buffer.get(), '?', size);
    filled one = {-1, size, ""};
    one.result = call(size == 0 ? nullptr : buffer.get(), &one.length, format, "a", "12345", "b",
                      "", "null", static_cast<char *>(nullptr), static_cast<char *>(nullptr));
    one.buffer.assign(buffer.get(), size);
    return one;
}

static std::string terminated(const std::string &text)
{
    return text + '\0';
}

TEST(VelformatInternal, OutputThatDoesNotFitIsCounted)
{
    EXPECT_EQ(fill(0, "x%a%y"), (filled{VEL_ERROR_OUT_OF_RANGE, 8, ""}));
    EXPECT_EQ(fill(1, "x%a%y"), (filled{VEL_ERROR_OUT_OF_RANGE, 8, "x"}));
    EXPECT_EQ(fill(4, "x%a%y"), (filled{VEL_ERROR_OUT_OF_RANGE, 8, "x123"}));
    EXPECT_EQ(fill(6, "x%a%y"), (filled{VEL_ERROR_OUT_OF_RANGE, 8, "x12345"}));
    EXPECT_EQ(fill(7, "x%a%y"), (filled{VEL_ERROR_OUT_OF_RANGE, 8, "x12345y"}));
    EXPECT_EQ(fill(8, "x%a%y"), (filled{VEL_ERROR_NONE, 8, terminated("x12345y")}));
    EXPECT_EQ(fill(10, "x%a%y"), (filled{VEL_ERROR_NONE, 8, terminated("x12345y") + "??"}));
}

TEST(VelformatInternal, EmptyOutputNeedsItsTerminator)
{
    EXPECT_EQ(fill(0, ""), (filled{VEL_ERROR_OUT_OF_RANGE, 1, ""}));
    EXPECT_EQ(fill(1, ""), (filled{VEL_ERROR_NONE, 1, terminated("")}));
    EXPECT_EQ(fill(1, "%b%"), (filled{VEL_ERROR_NONE, 1, terminated("")}));
}

TEST(VelformatInternal, PercentSignsAreCounted)
{
    EXPECT_EQ(fill(0, "%%%%"), (filled{VEL_ERROR_OUT_OF_RANGE, 3, ""}));
    EXPECT_EQ(fill(2, "%%%%"), (filled{VEL_ERROR_OUT_OF_RANGE, 3, "%%"}));
    EXPECT_EQ(fill(3, "%%%%"), (filled{VEL_ERROR_NONE, 3, terminated("%%")}));
}

TEST(VelformatInternal, UnterminatedTextIsCounted)
{
    support::log_capture log;
    EXPECT_EQ(fill(0, "x%abc"), (filled{VEL_ERROR_OUT_OF_RANGE, 6, ""}));
    EXPECT_EQ(log.take(), (log_lines{}));
    EXPECT_EQ(fill(3, "x%abc"), (filled{VEL_ERROR_OUT_OF_RANGE, 6, "x%a"}));
    EXPECT_EQ(fill(6, "x%abc"), (filled{VEL_ERROR_NONE, 6, terminated("x%abc")}));
    const log_line line = {"util/velformat", 6,
                           "unterminated variable 'abc' in format string 'x%abc'"};
    EXPECT_EQ(log.take(), (log_lines{line, line}));
}

TEST(VelformatInternal, UnknownVariableIsLoggedWithBufferOnly)
{
    support::log_capture log;
    size_t length = 0;
    EXPECT_EQ(call(nullptr, &length, "%c%", "a", "1", static_cast<char *>(nullptr)),
              VEL_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(length, 1u);
    EXPECT_EQ(log.take(), (log_lines{}));

    char buffer[1] = {'?'};
    EXPECT_EQ(call(buffer, &length, "%c%", "a", "1", static_cast<char *>(nullptr)), VEL_ERROR_NONE);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(log.take(),
              (log_lines{{"util/velformat", 6, "no variable 'c' given for format string '%c%'"}}));
}

TEST(VelformatInternal, NullValueStandsWhateverFits)
{
    support::log_capture log;
    EXPECT_EQ(fill(0, "x%c%y"), (filled{VEL_ERROR_INVALID_ARGUMENT, 3, ""}));
    EXPECT_EQ(fill(1, "x%c%y"), (filled{VEL_ERROR_INVALID_ARGUMENT, 3, "x"}));
    EXPECT_EQ(fill(3, "x%c%y"), (filled{VEL_ERROR_INVALID_ARGUMENT, 3, terminated("xy")}));
    const log_line line = {"util/velformat", 6, "value given for '(null)' was NULL"};
    EXPECT_EQ(log.take(), (log_lines{line, line, line}));
}

TEST(VelformatInternalDeathTest, ArgumentsAreAsserted)
{
    const char *const function = "vel_format_internal";
    char *const nothing = nullptr;
    size_t length = 1;
    EXPECT_DEATH(call(nullptr, nullptr, nullptr, nothing),
                 asserts("bufferlenptr != NULL", function));
    EXPECT_DEATH(call(nullptr, &length, nullptr, nothing),
                 asserts("*bufferlenptr == 0 || buffer != NULL", function));
    length = 0;
    EXPECT_DEATH(call(nullptr, &length, nullptr, nothing), asserts("format != NULL", function));
}
