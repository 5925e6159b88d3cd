#include <vellib/vellocalization.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/allocfail.h"
#include "support/eachfailure.h"
#include "support/fakedirectory.h"
#include "support/oom.h"
#include "support/potest.h"

using support::log_line;

using log_lines = std::vector<log_line>;

static const char kModule[] = "util/vellocalization";

/* What an allocation that fails leads to: the code of the load, and the lines of the module but those
 * about new languages. */
struct load_failure {
    vel_error_t error;
    std::vector<std::string> texts; /* with their levels in front */

    bool operator==(const load_failure &) const = default;
};

static std::ostream &operator<<(std::ostream &out, const load_failure &failure)
{
    out << failure.error;
    for (const std::string &text : failure.texts)
        out << "\n    " << text;
    return out << "\n";
}

/* Loads ./domain for each allocation that fails in it, and gives what is new each time. */
static std::vector<load_failure> load_failures(support::log_capture &log,
                                               const std::string &language)
{
    std::vector<load_failure> failures;
    support::warm_log(log);
    for (size_t number = 1; number < 1000; number++) {
        vellocalization *localization = vel_localization_create();
        log.clear();
        load_failure failure;
        bool whole;
        {
            const support::fake_directory directory({"de.po"});
            support::malloc_watch watch(number, number);
            failure.error = vel_localization_load_utf8(localization, ".", "domain");
            whole = support::malloc_watch::count() < number;
        }
        for (const log_line &line : log.take_from(kModule))
            if (line.text != "no language '" + language + "'")
                failure.texts.push_back(std::to_string(line.level) + " " + line.text);
        vel_localization_destroy(localization);
        if (whole)
            return failures;
        if (failures.empty() || failures.back() != failure)
            failures.push_back(failure);
    }
    ADD_FAILURE() << "the allocations do not come to an end";
    return failures;
}

/* Whether the list of the languages is this one; NULL is not. */
static bool is_list(vellocalization *localization, const std::string &expected)
{
    char *list = vel_localization_list_languages(localization);
    support::malloc_pause pause;
    const bool given = list != nullptr;
    EXPECT_TRUE(!given || list == expected);
    vel_free(list);
    return given;
}

static const char kFailed[] =
    "13 failed to load localization file ./domain/de.po, error 12 (not enough memory)";
static const char kUnable[] =
    "7 unable to load po file ./domain/de.po, error 12 (not enough memory)";

/* A failure on the way to the strings of the file. */
static load_failure before_strings(std::vector<std::string> texts)
{
    texts.push_back(kFailed);
    return {VEL_ERROR_NO_MEMORY, texts};
}

/* A pair that cannot be added; the rest of the file is not read. */
static load_failure in_add(const std::string &key, int line)
{
    return {
        VEL_ERROR_NO_MEMORY,
        {"7 unable to add string for " + key + " in ./domain/de.po line " + std::to_string(line),
         kUnable, kFailed}};
}

/* A string that cannot be decoded: a syntax error, after which reading goes on. */
static load_failure in_string(const std::string &keyword, int line,
                              const std::vector<std::string> &later = {})
{
    load_failure failure = {VEL_ERROR_INVALID_SYNTAX, {"7 not enough memory for handling string"}};
    failure.texts.push_back("7 unable to handle " + keyword + " in ./domain/de.po line " +
                            std::to_string(line));
    failure.texts.insert(failure.texts.end(), later.begin(), later.end());
    failure.texts.push_back("7 unable to load po file ./domain/de.po, error 209 (invalid syntax)");
    failure.texts.push_back(
        "13 failed to load localization file ./domain/de.po, error 209 (invalid syntax)");
    return failure;
}

TEST_F(Vellocalization, EachAllocationOfLoad)
{
    support::write_file("domain/de.po", "msgid \"a\"\n\"b\"\nmsgstr \"x\"\n\"y\"\n# end\n");
    const std::vector<load_failure> expected = {
        {VEL_ERROR_NO_MEMORY, {"7 not enough memory for localization directory path './domain'"}},
        {VEL_ERROR_NOT_FOUND, {"7 unable to open directory './domain'"}},
        {VEL_ERROR_GENERIC, {"7 fetching the directory entry name failed"}},
        {VEL_ERROR_GENERIC, {"7 error checking if 'de.po' is a directory"}},
        {VEL_ERROR_NO_MEMORY, {"7 not enough memory for the language name"}},
        {VEL_ERROR_NO_MEMORY, {"7 not enough memory for localization file name"}},
        before_strings({"7 not enough memory for read buffer"}),
        before_strings(
            {"7 not enough memory for vellanguage context", "7 unable to add language 'de'"}),
        before_strings({"7 unable to create localization language hashtable",
                        "7 unable to add language 'de'"}),
        before_strings({"7 unable to add language 'de' to localization context"}),
        in_string("msgid", 1,
                  {"6 a continuation line without preceeding msgid in ./domain/de.po line 2",
                   "6 msgstr without preceeding msgid in ./domain/de.po line 3",
                   "6 a continuation line without preceeding msgid in ./domain/de.po line 4"}),
        in_string("msgid", 2),
        {VEL_ERROR_NONE, {"7 not enough memory to append msgid"}},
        in_string("msgstr", 3),
        in_string("msgstr", 4),
        {VEL_ERROR_NONE, {"7 not enough memory to append msgstr"}},
        in_add("ab", 5),
    };
    EXPECT_EQ(load_failures(log, "de"), expected);
}

TEST_F(Vellocalization, EachAllocationOfPairs)
{
    support::write_file("domain/de.po", "msgid \"a\"\nmsgstr \"x\"\n\nmsgid \"b\"\nmsgstr \"y\"\n");
    const std::vector<load_failure> found = load_failures(log, "de");
    const std::vector<load_failure> expected = {
        in_string("msgid", 1, {"6 msgstr without preceeding msgid in ./domain/de.po line 2"}),
        in_string("msgstr", 2),
        in_add("a", 4),
        in_string("msgid", 4, {"6 msgstr without preceeding msgid in ./domain/de.po line 5"}),
        in_string("msgstr", 5),
        in_add("b", 5),
    };
    ASSERT_GT(found.size(), expected.size());
    EXPECT_EQ(
        std::vector<load_failure>(found.end() - static_cast<long>(expected.size()), found.end()),
        expected);
}

/* An append that fails ends the reading and is no failure of the load; what was added stays. */
TEST_F(Vellocalization, FailedAppendLosesTheRest)
{
    support::write_file("domain/de.po",
                        "msgid \"a\"\nmsgstr \"x\"\nmsgid \"b\"\nmsgstr \"y\"\n\"z\"\n"
                        "msgid \"c\"\nmsgstr \"z\"\n");
    support::warm_log(log);
    const log_line append = {kModule, 7, "not enough memory to append msgstr"};
    int appends = 0;
    for (size_t number = 1; number < 1000; number++) {
        vellocalization *other = vel_localization_create();
        vel_error_t result;
        {
            support::malloc_watch watch(number, number);
            result = vel_localization_load_utf8(other, ".", "domain");
        }
        const bool whole = support::malloc_watch::count() < number;
        const log_lines found = lines();
        if (!found.empty() && found.back() == append) {
            appends++;
            EXPECT_EQ(result, VEL_ERROR_NONE);
            vellanguage *language = vel_localization_language_get(other, "de");
            EXPECT_STREQ(vel_localization_localize(language, "a"), "x");
            EXPECT_EQ(vel_localization_localize(language, "b"), nullptr);
            EXPECT_EQ(vel_localization_localize(language, "c"), nullptr);
        }
        vel_localization_destroy(other);
        if (whole)
            break;
    }
    EXPECT_EQ(appends, 1);
}

TEST_F(Vellocalization, EachAllocationOfCreate)
{
    support::warm_log(log);
    const std::vector<log_lines> failures = support::allocfail_each(log, [&] {
        vellocalization *other = vel_localization_create();
        if (other)
            vel_localization_destroy(other);
        return other != nullptr;
    });
    ASSERT_GE(failures.size(), 2u);
    EXPECT_EQ(failures[0],
              (log_lines{{kModule, 7, "not enough memory for vellocalization context"}}));
    for (size_t number = 1; number < failures.size(); number++)
        EXPECT_EQ(failures[number].back(),
                  (log_line{kModule, 7, "unable to create hashtable for localization"}));
    log.clear();
}

TEST_F(Vellocalization, EachAllocationOfList)
{
    support::warm_log(log);
    EXPECT_EQ(support::allocfail_lines(log, [&] { return is_list(localization, ""); }),
              (log_lines{{kModule, 7, "not enough memory for an empty list of languages"}}));
    for (const char *name : {"de", "en", "fr"})
        support::write_file(std::string("domain/") + name + ".po", "msgid \"a\"\nmsgstr \"x\"\n");
    ASSERT_EQ(load_quietly(), VEL_ERROR_NONE);
    EXPECT_EQ(support::allocfail_lines(log, [&] { return is_list(localization, "de/en/fr"); }),
              (log_lines{{kModule, 7, "not enough memory for an array of 3 languages"},
                         {kModule, 7, "not enough memory for the list of languages"}}));
    log.clear();
}

/* ---- the whole life ---- */

TEST(VellocalizationOom, Life)
{
    support::vel_oom_drive([] {
        std::filesystem::create_directory("domain");
        support::write_file("domain/de.po", "msgid \"a\"\n\"b\"\nmsgstr \"x\"\n\"y\"\n"
                                            "msgid \"c\"\nmsgstr \"z\"\n");
        support::write_file("domain/en.po", "msgid \"ab\"\nmsgstr \"x\"\n");
        vellocalization *localization = vel_localization_create();
        if (!localization)
            return false;
        bool succeeded = false;
        if (vel_localization_load_utf8(localization, ".", "domain") == VEL_ERROR_NONE) {
            vellanguage *language = vel_localization_language_get(localization, "de");
            const char *text = vel_localization_localize(language, "ab");
            char *list = vel_localization_list_languages(localization);
            EXPECT_TRUE(!text || std::string(text) == "xy");
            EXPECT_TRUE(!list || std::string(list) == "de/en");
            succeeded = text && list;
            vel_free(list);
        }
        vel_localization_destroy(localization);
        return succeeded;
    });
}
