#ifndef TESTS_SUPPORT_POTEST_H
#define TESTS_SUPPORT_POTEST_H

/* What the tests of localization share. */

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velerror.h>
#include <vellib/vellocalization.h>
#include <vellib/velmalloc.h>

#include "support/logcapture.h"
#include "support/tempdir.h"

namespace support {

/* A file with a message. */
inline constexpr char kGoodPo[] = "msgid \"a\"\nmsgstr \"x\"\n";

/* What is logged as a language comes up. */
inline log_line no_language_line(const std::string &language)
{
    return {"util/vellocalization", 13, "no language '" + language + "'"};
}

} // namespace support

/* An empty directory for the text domain "domain", and a set of languages. */
class Vellocalization : public testing::Test {
  protected:
    void SetUp() override
    {
        std::filesystem::create_directory("domain");
        localization = vel_localization_create();
        ASSERT_NE(localization, nullptr);
    }
    void TearDown() override
    {
        vel_localization_destroy(localization);
        EXPECT_EQ(lines(), (std::vector<support::log_line>{}));
    }

    /* What the module has logged; the tables below it tell of their own. */
    std::vector<support::log_line> lines()
    {
        return log.take_from("util/vellocalization");
    }

    vel_error_t load()
    {
        return vel_localization_load_utf8(localization, ".", "domain");
    }

    /* The same, without the lines of the log about new languages. */
    vel_error_t load_quietly()
    {
        const vel_error_t result = load();
        log.clear();
        return result;
    }

    std::string languages()
    {
        char *list = vel_localization_list_languages(localization);
        EXPECT_NE(list, nullptr);
        std::string text = list ? list : "?";
        vel_free(list);
        return text;
    }

    std::optional<std::string> translation(const char *language, const std::string &string)
    {
        vellanguage *vellanguage = vel_localization_language_get(localization, language);
        EXPECT_NE(vellanguage, nullptr) << language;
        const char *text = vel_localization_localize(vellanguage, string.c_str());
        return text ? std::optional<std::string>(text) : std::nullopt;
    }

    support::temporary_directory temporary;
    support::log_capture log;
    vellocalization *localization = nullptr;
};

#endif
