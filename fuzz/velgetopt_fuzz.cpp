#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <vellib/velgetopt.h>
#include <vellib/vellog.h>

#include "fuzz.h"

/* Help goes to the standard output, which is not wanted here. */
static FILE *nowhere;

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    nowhere = fopen("/dev/null", "w");
    return nowhere ? 0 : 1;
}

struct outcome {
    const char *string = nullptr;
    int number = -1;
    int flag = 0;
    size_t taken = 0;  /* values that went to the callback */
    size_t errors = 0; /* calls of the error callback */
    std::vector<char *> argv;
};

static bool is_argument(const outcome *seen, const char *text)
{
    return std::any_of(seen->argv.begin(), seen->argv.end(), [text](const char *argument) {
        return text >= argument && text <= argument + strlen(argument);
    });
}

static vel_error_t take(const char *argument, void *context)
{
    auto *seen = static_cast<outcome *>(context);
    FUZZ_REQUIRE(is_argument(seen, argument));
    seen->taken++;
    return strcmp(argument, "bad") == 0 ? VEL_ERROR_BUSY : VEL_ERROR_NONE;
}

static void learn(vel_error_t code, const char *option, const char *argument, void *context)
{
    auto *seen = static_cast<outcome *>(context);
    FUZZ_REQUIRE(option[0] == '-' && (strlen(option) == 2 || option[1] == '-'));
    FUZZ_REQUIRE((code == VEL_ERROR_NOT_FOUND || code == VEL_ERROR_INVALID_SYNTAX) == !argument);
    FUZZ_REQUIRE(!argument || is_argument(seen, argument));
    seen->errors++;
}

/* The usage text with a description and a name from the input: the former is all there but for
 * blanks, in lines that are not too long. */
static void check_usage(velgetopt *velgetopt, const std::string &description)
{
    char *text = nullptr;
    size_t len = 0;
    FILE *stream = open_memstream(&text, &len);
    FUZZ_REQUIRE(stream);
    FUZZ_REQUIRE(vel_getopt_usage(velgetopt, stream) == 0);
    fclose(stream);
    const std::string usage(text, len);
    free(text);

    std::string printed;
    size_t start = usage.find("=WORD") + strlen("=WORD");
    while (start < usage.size()) {
        const size_t end = usage.find('\n', start);
        FUZZ_REQUIRE(end != std::string::npos);
        if (end - start > 79)
            FUZZ_REQUIRE(description.find('\n') != std::string::npos);
        printed += usage.substr(start, end - start);
        start = end + 1;
    }
    const auto blanks = [](char ch) { return ch == ' ' || ch == '\n'; };
    std::string given = description;
    std::erase_if(given, blanks);
    std::erase_if(printed, blanks);
    FUZZ_REQUIRE(printed == given);
}

/* An argument a line; the first line is a description. */
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<std::string> lines(1);
    for (size_t i = 0; i < size; i++) {
        if (data[i] == '\n')
            lines.emplace_back();
        else if (data[i] != '\0')
            lines.back().push_back(static_cast<char>(data[i]));
    }
    outcome seen;
    for (std::string &line : lines)
        seen.argv.push_back(line.data());
    const int argc = static_cast<int>(seen.argv.size());

    velgetopt *velgetopt = vel_getopt_create();
    FUZZ_REQUIRE(velgetopt);
    FUZZ_REQUIRE(vel_getopt_help(velgetopt, "help", 'h') == 0);
    FUZZ_REQUIRE(vel_getopt_flag_set(velgetopt, "flag", 'f', &seen.flag, "A flag.") == 0);
    FUZZ_REQUIRE(vel_getopt_int(velgetopt, "number", 'n', &seen.number, "N", "A number.") == 0);
    FUZZ_REQUIRE(
        vel_getopt_string_callback(velgetopt, "take", 't', "T", "A string.", take, &seen) == 0);
    FUZZ_REQUIRE(vel_getopt_const_string(velgetopt, "string", 's', &seen.string, "WORD",
                                         lines[0].c_str()) == 0);
    vel_getopt_set_error_callback(velgetopt, learn, &seen);

    FILE *out = stdout;
    stdout = nowhere;
    const int result = vel_getopt_parse(velgetopt, argc, seen.argv.data());
    stdout = out;
    const int optind = vel_getopt_optind(velgetopt);
    FUZZ_REQUIRE(result >= -1 && result <= 1);
    FUZZ_REQUIRE(result == -1 ? optind == 0 && seen.errors == 1
                              : optind >= 1 && optind <= argc && seen.errors == 0);
    FUZZ_REQUIRE(!seen.string || is_argument(&seen, seen.string));
    FUZZ_REQUIRE(seen.taken < seen.argv.size());
    if (result != -1 && optind < argc && seen.argv[optind][0] == '-')
        FUZZ_REQUIRE(strcmp(seen.argv[optind - 1], "--") == 0);
    check_usage(velgetopt, lines[0]);
    vel_getopt_destroy(velgetopt);
    return 0;
}
