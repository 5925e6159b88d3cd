#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include <vellib/velformat.h>
#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "fuzz.h"
#include "util/velformat_internal.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

/* The template, and three pairs of a name and a value. */
static constexpr size_t kLines = 7;

static std::vector<std::string> split(const uint8_t *data, size_t size)
{
    std::vector<std::string> lines(1);
    for (size_t i = 0; i < size; i++) {
        if (data[i] == '\n' && lines.size() < kLines)
            lines.emplace_back();
        else if (data[i] != '\0')
            lines.back().push_back(static_cast<char>(data[i]));
    }
    lines.resize(kLines);
    return lines;
}

/* What should come out. Returns false for a template that aborts, by ending in a "%" that opens a
 * variable. */
static bool expand(const std::vector<std::string> &lines, std::string *expected)
{
    const std::string &format = lines[0];
    size_t pos = 0;
    for (;;) {
        const size_t open = format.find('%', pos);
        expected->append(format, pos, open == std::string::npos ? open : open - pos);
        if (open == std::string::npos)
            return true;
        const size_t close = format.find('%', open + 1);
        if (close == std::string::npos) {
            expected->append(format, open);
            return open + 1 < format.size();
        }
        const std::string name = format.substr(open + 1, close - open - 1);
        if (name.empty())
            expected->push_back('%');
        for (size_t i = 1; i < kLines && !name.empty(); i += 2) {
            if (lines[i] == name) {
                expected->append(lines[i + 1]);
                break;
            }
        }
        pos = close + 1;
    }
}

/* Into a buffer of each size up to a little more than is needed, for templates that are short. */
static void check_sizes(const std::string &expected, const char *format, ...)
{
    if (expected.size() > 64)
        return;
    for (size_t size = 0; size < expected.size() + 3; size++) {
        std::vector<char> buffer(size + 1, 'x');
        size_t len = size;
        va_list arguments;
        va_start(arguments, format);
        const vel_error_t result = vel_format_internal(buffer.data(), &len, format, arguments);
        va_end(arguments);
        FUZZ_REQUIRE(len == expected.size() + 1);
        FUZZ_REQUIRE(result == (len <= size ? VEL_ERROR_NONE : VEL_ERROR_OUT_OF_RANGE));
        FUZZ_REQUIRE(memcmp(buffer.data(), expected.c_str(), std::min(len, size)) == 0);
        FUZZ_REQUIRE(buffer[size] == 'x');
    }
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::vector<std::string> lines = split(data, size);
    std::string expected;
    if (!expand(lines, &expected))
        return 0;

    char *result = vel_format(lines[0].c_str(), lines[1].c_str(), lines[2].c_str(),
                              lines[3].c_str(), lines[4].c_str(), lines[5].c_str(),
                              lines[6].c_str(), static_cast<char *>(nullptr));
    FUZZ_REQUIRE(result && expected == result);
    vel_free(result);
    check_sizes(expected, lines[0].c_str(), lines[1].c_str(), lines[2].c_str(), lines[3].c_str(),
                lines[4].c_str(), lines[5].c_str(), lines[6].c_str(), static_cast<char *>(nullptr));
    return 0;
}
