#include <algorithm>
#include <map>
#include <string>
#include <string_view>

#include <vellib/velhttpheaders.h>
#include <vellib/vellog.h>

#include "fuzz.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

struct parsed {
    vel_error_t result = VEL_ERROR_NONE;
    std::map<std::string, std::string> values;
};

static std::string_view trim(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t");
    if (first == text.npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

static std::string fold(std::string_view name)
{
    std::string folded(name);
    for (char &c : folded)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return folded;
}

/* What the parser is to give, found line by line. */
static parsed expect(std::string_view text, bool message)
{
    static const std::string_view kEnds("\0\n\r", 3);

    parsed expected;
    for (bool first = true; !text.empty(); first = false) {
        const size_t end = std::min(text.find_first_of(kEnds), text.size());
        const std::string_view line = text.substr(0, end);
        if (line.empty())
            break;
        text.remove_prefix(end);
        if (text.starts_with('\r'))
            text.remove_prefix(1);
        if (text.starts_with('\n'))
            text.remove_prefix(1);
        if (first && message)
            continue;
        const size_t colon = line.find(':');
        if (colon == line.npos) {
            expected.result = VEL_ERROR_INVALID_SYNTAX;
            break;
        }
        expected.values[fold(line.substr(0, colon))] = trim(line.substr(colon + 1));
    }
    return expected;
}

static void check(const char *text, size_t size, bool message)
{
    const parsed expected = expect(std::string_view(text, size), message);
    velhttpheaders *headers = vel_httpheaders_create();
    FUZZ_REQUIRE(headers);
    FUZZ_REQUIRE((message ? vel_httpheaders_parse_from_message(headers, text, size)
                          : vel_httpheaders_parse(headers, text, size)) == expected.result);
    for (const auto &[name, value] : expected.values) {
        const char *found = vel_httpheaders_get(headers, name.c_str());
        FUZZ_REQUIRE(found);
        FUZZ_REQUIRE(value == found);
    }
    vel_httpheaders_destroy(headers);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const char *text = static_cast<const char *>(static_cast<const void *>(data));
    check(text, size, false);
    check(text, size, true);
    return 0;
}
