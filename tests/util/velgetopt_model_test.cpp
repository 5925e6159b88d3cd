/* Random declarations and command lines, beside a second, naive implementation. */

#include <vellib/velgetopt.h>

#include <deque>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velerror.h>

#include "support/logcapture.h"
#include "support/optiontest.h"
#include "support/stdstreams.h"

namespace {

enum class kind { help, string, number, flag, callback };

struct declaration {
    kind what;
    std::optional<std::string> longopt;
    char shortopt;
    std::string optionname;
    std::string description;
};

/* What can be seen of a parse. */
struct outcome {
    int result = 0;
    int optind = 0;
    std::vector<std::string> values; /* of each option, and the words that callbacks got */
    support::option_errors errors;
    std::vector<support::log_line> lines;
    std::string output;

    bool operator==(const outcome &) const = default;
};

std::ostream &operator<<(std::ostream &out, const outcome &one)
{
    out << "result " << one.result << " optind " << one.optind << "\nvalues:";
    for (const std::string &value : one.values)
        out << " '" << value << "'";
    for (const support::option_error &error : one.errors)
        out << "\nerror " << error;
    for (const support::log_line &line : one.lines)
        out << "\nlog " << line;
    return out << "\noutput:\n" << one.output;
}

/* ---- the naive implementation ---- */

std::string naive_usage(const std::vector<declaration> &declarations)
{
    std::string text = "usage: PROGRAM OPTIONS\nOPTIONS:\n";
    for (const declaration &one : declarations) {
        std::string left = one.shortopt ? std::string(" -") + one.shortopt : " --" + *one.longopt;
        if (one.shortopt && one.longopt)
            left += ", --" + *one.longopt;
        if (one.what != kind::flag && one.what != kind::help)
            left += "=" + one.optionname;
        if (left.size() >= 30)
            left += "\n" + std::string(30, ' ');
        else
            left.resize(30, ' ');
        text += left;

        std::string rest = one.what == kind::help ? "Show help." : one.description;
        while (rest.size() > 48) {
            size_t cut = rest.substr(0, 49).rfind(' ');
            if (cut == std::string::npos)
                cut = 49;
            text += rest.substr(0, cut) + "\n";
            rest = rest.substr(cut);
            if (rest.empty())
                goto next;
            if (rest[0] == ' ')
                rest = rest.substr(1);
            text += std::string(30, ' ');
        }
        text += rest + "\n";
    next:;
    }
    return text;
}

class naive_parser {
  public:
    naive_parser(const std::vector<declaration> &declarations,
                 const std::vector<std::string> &words)
        : declarations_(declarations), words_(words)
    {
        outcome_.values.resize(declarations.size());
    }

    outcome parse()
    {
        const bool succeeded = walk();
        outcome_.result = succeeded ? (help_ ? 1 : 0) : -1;
        outcome_.optind = succeeded ? static_cast<int>(index_) + 1 : 0;
        return outcome_;
    }

  private:
    bool walk()
    {
        while (index_ < words_.size() && words_[index_].starts_with("-")) {
            const std::string word = words_[index_++];
            if (word == "--")
                return true;
            if (word.starts_with("--")) {
                if (!long_option(word))
                    return false;
                continue;
            }
            for (const char letter : word.substr(1)) {
                const std::string text = std::string("-") + letter;
                if (!process(find([&](const declaration &one) { return one.shortopt == letter; }),
                             text, std::nullopt))
                    return false;
            }
        }
        return true;
    }

    bool long_option(const std::string &word)
    {
        const size_t sign = word.find('=');
        const std::string text = word.substr(0, sign);
        const size_t found =
            find([&](const declaration &one) { return one.longopt == text.substr(2); });
        if (sign == std::string::npos)
            return process(found, text, std::nullopt);
        return process(found, text, word.substr(sign + 1));
    }

    template <typename Matches> size_t find(Matches matches)
    {
        size_t found = 0;
        while (found < declarations_.size() && !matches(declarations_[found]))
            found++;
        return found;
    }

    bool fail(vel_error_t code, const std::string &text, std::optional<std::string> value)
    {
        outcome_.errors.push_back({code, text, value});
        return false;
    }

    bool process(size_t found, const std::string &text, std::optional<std::string> value)
    {
        if (found == declarations_.size())
            return fail(VEL_ERROR_NOT_FOUND, text, std::nullopt);
        const declaration &one = declarations_[found];
        std::string &stored = outcome_.values[found];
        if (one.what == kind::help) {
            help_ = true;
            outcome_.output += naive_usage(declarations_);
            return true;
        }
        if (one.what == kind::flag) {
            stored = "1";
            return true;
        }
        const bool behindsign = value.has_value();
        if (!behindsign && index_ < words_.size())
            value = words_[index_];
        if (!value) {
            outcome_.lines.push_back({"util/velgetopt", one.what == kind::number ? 6 : 13,
                                      "option '" + text + "' requires an argument"});
            return fail(VEL_ERROR_INVALID_SYNTAX, text, std::nullopt);
        }
        if (one.what == kind::number && !number(*value, text, stored))
            return false;
        if (one.what == kind::string)
            stored = *value;
        if (one.what == kind::callback) {
            stored += "<" + *value + ">";
            if (value->find('9') != std::string::npos)
                return fail(VEL_ERROR_QUOTA, text, value);
        }
        if (!behindsign)
            index_++;
        return true;
    }

    bool number(const std::string &value, const std::string &text, std::string &stored)
    {
        const bool negative = value.starts_with("-");
        const std::string digits = value.substr(negative || value.starts_with("+") ? 1 : 0);
        if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos)
            return fail(VEL_ERROR_INVALID_ARGUMENT, text, value);
        long long magnitude = 0;
        for (const char digit : digits)
            magnitude = std::min(magnitude * 10 + (digit - '0'), 1LL << 40);
        const long long signedvalue = negative ? -magnitude : magnitude;
        if (signedvalue < -2147483648LL || signedvalue > 2147483647LL)
            return fail(VEL_ERROR_OUT_OF_RANGE, text, value);
        stored = std::to_string(signedvalue);
        return true;
    }

    const std::vector<declaration> &declarations_;
    const std::vector<std::string> &words_;
    outcome outcome_;
    size_t index_ = 0;
    bool help_ = false;
};

/* ---- the library ---- */

struct destination {
    int number = -77;
    const char *string = nullptr;
    std::string words = {};
};

vel_error_t collect_word(const char *argument, void *context)
{
    static_cast<destination *>(context)->words += std::string("<") + argument + ">";
    return strchr(argument, '9') ? VEL_ERROR_QUOTA : VEL_ERROR_NONE;
}

int declare(velgetopt *options, const declaration &one, destination &to)
{
    const char *longopt = one.longopt ? one.longopt->c_str() : nullptr;
    const char *optionname = one.optionname.c_str();
    const char *description = one.description.c_str();
    switch (one.what) {
    case kind::help:
        return vel_getopt_help(options, longopt, one.shortopt);
    case kind::string:
        return vel_getopt_const_string(options, longopt, one.shortopt, &to.string, optionname,
                                       description);
    case kind::number:
        return vel_getopt_int(options, longopt, one.shortopt, &to.number, optionname, description);
    case kind::flag:
        return vel_getopt_flag_set(options, longopt, one.shortopt, &to.number, description);
    case kind::callback:
        return vel_getopt_string_callback(options, longopt, one.shortopt, optionname, description,
                                          collect_word, &to);
    }
    return -1;
}

std::string value_of(const declaration &one, const destination &to)
{
    if (one.what == kind::string)
        return to.string ? to.string : "";
    if (one.what == kind::callback)
        return to.words;
    return to.number == -77 ? "" : std::to_string(to.number);
}

outcome library_parse(const std::vector<declaration> &declarations,
                      const std::vector<std::string> &words, support::log_capture &log)
{
    outcome result;
    std::deque<destination> destinations(declarations.size());
    velgetopt *options = vel_getopt_create();
    for (size_t index = 0; index < declarations.size(); index++)
        EXPECT_EQ(declare(options, declarations[index], destinations[index]), 0);
    vel_getopt_set_error_callback(options, support::collect_option_error, &result.errors);

    EXPECT_EQ(support::usage_text(options), naive_usage(declarations));
    const support::arguments arguments(words);
    {
        support::stream_capture out(stdout);
        result.result = vel_getopt_parse(options, arguments.count(), arguments.values());
        result.output = out.text();
    }
    result.optind = vel_getopt_optind(options);
    result.lines = log.take();
    for (size_t index = 0; index < declarations.size(); index++)
        result.values.push_back(value_of(declarations[index], destinations[index]));
    vel_getopt_destroy(options);
    return result;
}

/* ---- what is tried ---- */

class generator {
  public:
    explicit generator(unsigned seed) : engine_(seed)
    {
    }

    size_t below(size_t limit)
    {
        return std::uniform_int_distribution<size_t>(0, limit - 1)(engine_);
    }

    std::string of(const std::string &letters, size_t maximum)
    {
        std::string text;
        for (size_t count = below(maximum + 1); count > 0; count--)
            text += letters[below(letters.size())];
        return text;
    }

    declaration any_declaration()
    {
        declaration one = {static_cast<kind>(below(12) == 0 ? 0 : 1 + below(4)), std::nullopt, '\0',
                           of("NAME", 6), of("abcdefgh   ", below(4) ? 60 : 300)};
        if (below(3) != 0)
            one.shortopt = "abcdef-="[below(8)];
        if (one.shortopt == '\0' || below(3) != 0)
            one.longopt = below(4) ? of("ab", 2) : of("abcdef-", 40);
        return one;
    }

    std::string any_value()
    {
        static const char *const kValues[] = {
            "0",           "-1",  "+12", "2147483647", "-2147483648", "2147483648",
            "-2147483649", "12a", "",    "a",          "=",           "9"};
        return below(3) ? of("0123456789", 12) : kValues[below(std::size(kValues))];
    }

    std::string any_word(const std::vector<declaration> &declarations)
    {
        if (declarations.empty() || below(8) == 0)
            return of("-ab=", 5);
        const declaration &one = declarations[below(declarations.size())];
        switch (below(5)) {
        case 0:
            return "-" + std::string(1, one.shortopt ? one.shortopt : 'a') + of("abcdef-", 3);
        case 1:
            return "-" + std::string(one.shortopt ? 1 : 0, one.shortopt);
        case 2:
            return "--" + one.longopt.value_or("ab");
        case 3:
            return "--" + one.longopt.value_or("ab") + "=" + any_value();
        default:
            return any_value();
        }
    }

  private:
    std::mt19937 engine_;
};

} // namespace

TEST(VelgetoptModel, RandomCommandLines)
{
    support::log_capture log;
    size_t succeeded = 0;
    for (unsigned seed = 0; seed < 4000; seed++) {
        generator generator(seed);
        std::vector<declaration> declarations;
        for (size_t count = generator.below(8); count > 0; count--)
            declarations.push_back(generator.any_declaration());
        std::vector<std::string> words;
        for (size_t count = generator.below(7); count > 0; count--)
            words.push_back(generator.any_word(declarations));

        const outcome expected = naive_parser(declarations, words).parse();
        const outcome found = library_parse(declarations, words, log);
        std::string commandline;
        for (const std::string &word : words)
            commandline += " '" + word + "'";
        ASSERT_EQ(found, expected) << "seed " << seed << ":" << commandline;
        succeeded += expected.result >= 0;
    }
    EXPECT_GT(succeeded, 1000u);
    EXPECT_LT(succeeded, 3000u);
}
