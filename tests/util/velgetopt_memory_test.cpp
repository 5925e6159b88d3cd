#include <vellib/velgetopt.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velerror.h>

#include "support/allocfail.h"
#include "support/eachfailure.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/optiontest.h"
#include "support/stdstreams.h"

using support::kUsageHead;
using support::log_line;

using log_lines = std::vector<log_line>;

static const char kModule[] = "util/velgetopt";

/* The lines of the log of an action for each allocation that fails in it; what it gives then is
 * the failure. */
template <typename Action> static log_lines failures(Action action)
{
    support::log_capture log;
    support::warm_log(log);
    return support::allocfail_lines(log, action);
}

TEST(VelgetoptMemory, Create)
{
    const log_lines lines = failures([] {
        velgetopt *options = vel_getopt_create();
        if (options)
            vel_getopt_destroy(options);
        return options != nullptr;
    });
    EXPECT_EQ(lines, (log_lines{{kModule, 7, "not enough memory for velgetopt context"},
                                {kModule, 7, "unable to create velgetopt option list"}}));
}

/* A declaration with all its strings, and one with the least of them. */
class VelgetoptDeclareMemory : public support::option_test {
  protected:
    template <typename Declare> log_lines declare_failures(Declare declare)
    {
        return failures([&] {
            const int result = declare();
            support::malloc_pause pause;
            EXPECT_TRUE(result == 0 || result == -1);
            if (result == -1) {
                EXPECT_EQ(support::usage_text(options), kUsageHead) << "the list has changed";
            }
            return result == 0;
        });
    }

    const char *string = nullptr;
    int number = 0;
};

static const log_lines kAllStrings = {{kModule, 7, "not enough memory for velgetopt option"},
                                      {kModule, 7, "not enough memory for long option 'name'"},
                                      {kModule, 7, "not enough memory for option name"},
                                      {kModule, 7, "not enough memory for option description"}};
static const log_lines kNoOptionName = {{kModule, 7, "not enough memory for velgetopt option"},
                                        {kModule, 7, "not enough memory for long option 'name'"},
                                        {kModule, 7, "not enough memory for option description"}};

TEST_F(VelgetoptDeclareMemory, ConstString)
{
    EXPECT_EQ(declare_failures([&] {
                  return vel_getopt_const_string(options, "name", 'n', &string, "word", "Text.");
              }),
              kAllStrings);
}

TEST_F(VelgetoptDeclareMemory, Int)
{
    EXPECT_EQ(declare_failures(
                  [&] { return vel_getopt_int(options, "name", 'n', &number, "word", "Text."); }),
              kAllStrings);
}

TEST_F(VelgetoptDeclareMemory, StringCallback)
{
    EXPECT_EQ(declare_failures([&] {
                  return vel_getopt_string_callback(options, "name", 'n', "word", "Text.", nullptr,
                                                    nullptr);
              }),
              kAllStrings);
}

TEST_F(VelgetoptDeclareMemory, FlagSet)
{
    EXPECT_EQ(declare_failures(
                  [&] { return vel_getopt_flag_set(options, "name", 'n', &number, "Text."); }),
              kNoOptionName);
}

TEST_F(VelgetoptDeclareMemory, Help)
{
    EXPECT_EQ(declare_failures([&] { return vel_getopt_help(options, "name", 'n'); }),
              kNoOptionName);
}

TEST_F(VelgetoptDeclareMemory, HelpWithoutLongName)
{
    EXPECT_EQ(declare_failures([&] { return vel_getopt_help(options, nullptr, 'n'); }),
              (log_lines{{kModule, 7, "not enough memory for velgetopt option"},
                         {kModule, 7, "not enough memory for option description"}}));
}

TEST_F(VelgetoptDeclareMemory, Synopsis)
{
    EXPECT_EQ(failures([&] { return vel_getopt_set_synopsis(options, "first") == 0; }),
              (log_lines{{kModule, 7, "not enough memory for synopsis string"}}));
    EXPECT_EQ(support::usage_text(options), "first\nOPTIONS:\n");
}

TEST_F(VelgetoptDeclareMemory, Footer)
{
    EXPECT_EQ(failures([&] { return vel_getopt_set_footer(options, "last") == 0; }),
              (log_lines{{kModule, 7, "not enough memory for footer string"}}));
    EXPECT_EQ(support::usage_text(options), kUsageHead + "last");
}

TEST_F(VelgetoptDeclareMemory, LongOptionName)
{
    support::option_errors errors;
    ASSERT_EQ(vel_getopt_int(options, "name", 'n', &number, "word", "Text."), 0);
    vel_getopt_set_error_callback(options, support::collect_option_error, &errors);
    const support::arguments arguments({"--name=5", "file"});
    const log_lines lines = failures([&] {
        const int result = vel_getopt_parse(options, arguments.count(), arguments.values());
        EXPECT_EQ(vel_getopt_optind(options), result == 0 ? 2 : 0);
        EXPECT_EQ(number, result == 0 ? 5 : 0);
        return result == 0;
    });
    EXPECT_EQ(lines, (log_lines{{kModule, 7, "not enough memory for long option name"}}));
    EXPECT_EQ(errors, (support::option_errors{}));
}

/* Nothing else of a parse allocates. */
TEST_F(VelgetoptDeclareMemory, ParseWithoutEqualSign)
{
    ASSERT_EQ(vel_getopt_int(options, "name", 'n', &number, "word", "Text."), 0);
    ASSERT_EQ(vel_getopt_flag_set(options, "flag", 'f', &number, "Text."), 0);
    ASSERT_EQ(vel_getopt_const_string(options, "text", 't', &string, "word", "Text."), 0);
    const support::arguments arguments({"-ntf", "5", "x", "--name", "6", "--flag", "--", "file"});
    EXPECT_EQ(failures([&] {
                  return vel_getopt_parse(options, arguments.count(), arguments.values()) == 0;
              }),
              (log_lines{}));
}

/* ---- the whole life ---- */

static vel_error_t take_word(const char *, void *)
{
    return VEL_ERROR_NONE;
}

struct destinations {
    const char *string;
    int number;
    int flag;
};

static bool declare_and_parse(velgetopt *options, destinations *to)
{
    char prog[] = "prog", string[] = "--string=x", number[] = "--number=5", word[] = "--word=w",
         cluster[] = "-hf", file[] = "file";
    char *argv[] = {prog, string, number, word, cluster, file, nullptr};
    return vel_getopt_set_synopsis(options, "usage: prog [OPTIONS]") == 0 &&
           vel_getopt_set_footer(options, "The end.\n") == 0 &&
           vel_getopt_const_string(options, "string", 's', &to->string, "text", "A string.") == 0 &&
           vel_getopt_int(options, "number", 'n', &to->number, "count", "A number.") == 0 &&
           vel_getopt_flag_set(options, "flag", 'f', &to->flag, "A flag.") == 0 &&
           vel_getopt_string_callback(options, "word", 'w', "word", "A word.", take_word, to) ==
               0 &&
           vel_getopt_help(options, "help", 'h') == 0 &&
           vel_getopt_set_footer(options, nullptr) == 0 &&
           vel_getopt_parse(options, 6, argv) == 1 && vel_getopt_optind(options) == 5;
}

TEST(VelgetoptOom, Life)
{
    support::vel_oom_drive([] {
        support::stream_capture out(stdout);
        destinations to = {};
        velgetopt *options = vel_getopt_create();
        if (!options)
            return false;
        const bool succeeded = declare_and_parse(options, &to);
        vel_getopt_destroy(options);
        EXPECT_TRUE(!succeeded || (to.number == 5 && to.flag == 1));
        return succeeded;
    });
}
