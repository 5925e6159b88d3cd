#ifndef TESTS_SUPPORT_OPTIONTEST_H
#define TESTS_SUPPORT_OPTIONTEST_H

/* What the tests of command-line options share. */

#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velgetopt.h>

#include "support/logcapture.h"
#include "support/stdstreams.h"

namespace support {

/* One call of the error callback. */
struct option_error {
    vel_error_t code;
    std::string option;
    std::optional<std::string> argument;

    bool operator==(const option_error &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const option_error &error)
{
    return out << error.code << " " << error.option << " " << error.argument.value_or("NULL");
}

using option_errors = std::vector<option_error>;

inline void collect_option_error(vel_error_t code, const char *option, const char *argument,
                                 void *context)
{
    static_cast<option_errors *>(context)->push_back(
        {code, option, argument ? std::optional<std::string>(argument) : std::nullopt});
}

inline const std::string kUsageHead = "usage: PROGRAM OPTIONS\nOPTIONS:\n";

/* A test of options, of which there are none at first. */
class option_test : public testing::Test {
  protected:
    void SetUp() override
    {
        options = vel_getopt_create();
        ASSERT_NE(options, nullptr);
    }
    void TearDown() override
    {
        vel_getopt_destroy(options);
    }

    velgetopt *options = nullptr;
};

/* Arguments of a program, its name in front, in a block of exactly their size: nothing, and no
 * null pointer either, stands behind the last one. */
class arguments {
  public:
    explicit arguments(const std::vector<std::string> &words)
        : count_(static_cast<int>(words.size()) + 1),
          argv_(std::make_unique<char *[]>(words.size() + 1))
    {
        argv_[0] = strdup("prog");
        for (size_t index = 0; index < words.size(); index++)
            argv_[index + 1] = strdup(words[index].c_str());
    }
    ~arguments()
    {
        for (int index = 0; index < count_; index++)
            free(argv_[static_cast<size_t>(index)]);
    }
    arguments(const arguments &) = delete;
    arguments &operator=(const arguments &) = delete;

    int count() const
    {
        return count_;
    }
    char **values() const
    {
        return argv_.get();
    }

  private:
    int count_;
    std::unique_ptr<char *[]> argv_;
};

inline std::string usage_text(velgetopt *velgetopt)
{
    char *text = nullptr;
    size_t length = 0;
    FILE *out = open_memstream(&text, &length);
    EXPECT_EQ(vel_getopt_usage(velgetopt, out), 0);
    fclose(out);
    std::string result(text, length);
    free(text);
    return result;
}

} // namespace support

#endif
