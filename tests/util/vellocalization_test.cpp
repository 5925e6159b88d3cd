#include <vellib/vellocalization.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/assertion.h"
#include "support/potest.h"

using support::asserts;
using support::kGoodPo;
using support::log_line;
using support::no_language_line;
using support::write_file;

using log_lines = std::vector<log_line>;

static const char kModule[] = "util/vellocalization";

/* ---- directories ---- */

TEST_F(Vellocalization, EmptyDirectoryIsGood)
{
    EXPECT_EQ(load(), VEL_ERROR_NONE);
    EXPECT_EQ(languages(), "");
    EXPECT_EQ(lines(), (log_lines{{kModule, 9, "no languages loaded"}}));
}

TEST_F(Vellocalization, MissingDirectory)
{
    EXPECT_EQ(vel_localization_load_utf8(localization, "some/where", "missing"),
              VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(lines(), (log_lines{{kModule, 7, "unable to open directory 'some/where/missing'"}}));
}

TEST_F(Vellocalization, FileInPlaceOfDirectory)
{
    write_file("file", "");
    EXPECT_EQ(vel_localization_load_utf8(localization, ".", "file"), VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(lines(), (log_lines{{kModule, 7, "unable to open directory './file'"}}));
}

TEST_F(Vellocalization, PathIsJoinedWithOneSeparator)
{
    write_file("domain/de.po", kGoodPo);
    for (const char *path : {".", "./", "domain/.."}) {
        vellocalization *other = vel_localization_create();
        EXPECT_EQ(vel_localization_load_utf8(other, path, "domain"), VEL_ERROR_NONE) << path;
        EXPECT_EQ(lines(), (log_lines{no_language_line("de")}));
        EXPECT_NE(vel_localization_language_get(other, "de"), nullptr);
        vel_localization_destroy(other);
    }
    EXPECT_EQ(vel_localization_load_utf8(localization, "", "domain"), VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(lines(), (log_lines{{kModule, 7, "unable to open directory '/domain'"}}));
    EXPECT_EQ(vel_localization_load_utf8(localization, "domain", ""), VEL_ERROR_NONE);
    EXPECT_EQ(lines(), (log_lines{no_language_line("de")}));
}

TEST_F(Vellocalization, FilesOfOtherNamesArePassedOver)
{
    for (const char *name : {".po", "de.PO", "de.po~", "de.po.bak", "de.mo", "depo", "po", "de"})
        write_file(std::string("domain/") + name, "not of this language at all");
    EXPECT_EQ(load(), VEL_ERROR_NONE);
    EXPECT_EQ(lines(), (log_lines{}));
}

TEST_F(Vellocalization, DirectoriesArePassedOver)
{
    std::filesystem::create_directory("domain/x.po");
    std::filesystem::create_directory_symlink("x.po", "domain/y.po");
    write_file("domain/x.po/z.po", kGoodPo);
    EXPECT_EQ(load(), VEL_ERROR_NONE);
    EXPECT_EQ(lines(), (log_lines{}));
}

TEST_F(Vellocalization, LinkToFileIsRead)
{
    write_file("elsewhere", kGoodPo);
    std::filesystem::create_symlink("../elsewhere", "domain/de.po");
    EXPECT_EQ(load_quietly(), VEL_ERROR_NONE);
    EXPECT_EQ(translation("de", "a"), "x");
}

TEST_F(Vellocalization, FileThatCannotBeOpened)
{
    std::filesystem::create_symlink("nowhere", "domain/de.po");
    EXPECT_EQ(load(), VEL_ERROR_NOT_FOUND);
    EXPECT_EQ(lines(),
              (log_lines{{kModule, 13,
                          "failed to load localization file ./domain/de.po, error 207 (item not "
                          "found)"}}));
    EXPECT_EQ(languages(), "");
    log.clear();
}

TEST_F(Vellocalization, NameOfLanguageIsNameOfFile)
{
    for (const char *name : {"de", "pt_BR", "a.b", "...", "x.po", "\xe6\x97\xa5\xe6\x9c\xac", " "})
        write_file(std::string("domain/") + name + ".po", kGoodPo);
    EXPECT_EQ(load_quietly(), VEL_ERROR_NONE);
    EXPECT_EQ(languages(), " /.../a.b/de/pt_BR/x.po/\xe6\x97\xa5\xe6\x9c\xac");
    EXPECT_EQ(translation("pt_BR", "a"), "x");
}

/* ---- languages ---- */

TEST_F(Vellocalization, NoLanguages)
{
    EXPECT_EQ(languages(), "");
    EXPECT_EQ(lines(), (log_lines{{kModule, 9, "no languages loaded"}}));
}

TEST_F(Vellocalization, OneLanguage)
{
    write_file("domain/de.po", kGoodPo);
    EXPECT_EQ(load_quietly(), VEL_ERROR_NONE);
    EXPECT_EQ(languages(), "de");
}

TEST_F(Vellocalization, LanguagesAreListedInByteOrder)
{
    for (const char *name : {"b", "a", "B", "\xc3\xa9", "ab", "a-b", "10", "9"})
        write_file(std::string("domain/") + name + ".po", kGoodPo);
    EXPECT_EQ(load_quietly(), VEL_ERROR_NONE);
    EXPECT_EQ(languages(), "10/9/B/a/a-b/ab/b/\xc3\xa9");
}

TEST_F(Vellocalization, ManyLanguages)
{
    std::string expected;
    for (int number = 100; number < 400; number++) {
        const std::string name = std::to_string(number);
        write_file("domain/" + name + ".po", "msgid \"a\"\nmsgstr \"" + name + "\"\n");
        expected += (expected.empty() ? "" : "/") + name;
    }
    EXPECT_EQ(load_quietly(), VEL_ERROR_NONE);
    EXPECT_EQ(languages(), expected);
    for (int number = 100; number < 400; number++)
        EXPECT_EQ(translation(std::to_string(number).c_str(), "a"), std::to_string(number));
}

TEST_F(Vellocalization, MissingLanguage)
{
    EXPECT_EQ(vel_localization_language_get(localization, "de"), nullptr);
    EXPECT_EQ(lines(), (log_lines{no_language_line("de")}));
    write_file("domain/de.po", kGoodPo);
    EXPECT_EQ(load_quietly(), VEL_ERROR_NONE);
    for (const char *language : {"DE", "d", "de.po", ""}) {
        EXPECT_EQ(vel_localization_language_get(localization, language), nullptr);
        EXPECT_EQ(lines(), (log_lines{no_language_line(language)}));
    }
}

TEST_F(Vellocalization, LanguageStaysTheSame)
{
    write_file("domain/de.po", kGoodPo);
    EXPECT_EQ(load_quietly(), VEL_ERROR_NONE);
    vellanguage *before = vel_localization_language_get(localization, "de");
    EXPECT_EQ(load(), VEL_ERROR_NONE);
    EXPECT_EQ(lines(), (log_lines{})) << "the language is not new";
    EXPECT_EQ(vel_localization_language_get(localization, "de"), before);
}

TEST_F(Vellocalization, SecondLoadAdds)
{
    std::filesystem::create_directory("other");
    write_file("domain/de.po", "msgid \"a\"\nmsgstr \"1\"\nmsgid \"b\"\nmsgstr \"2\"\n");
    write_file("other/de.po", "msgid \"b\"\nmsgstr \"3\"\nmsgid \"c\"\nmsgstr \"4\"\n");
    write_file("other/en.po", kGoodPo);
    EXPECT_EQ(load(), VEL_ERROR_NONE);
    EXPECT_EQ(vel_localization_load_utf8(localization, ".", "other"), VEL_ERROR_NONE);
    EXPECT_EQ(lines(), (log_lines{no_language_line("de"), no_language_line("en")}));
    EXPECT_EQ(languages(), "de/en");
    EXPECT_EQ(translation("de", "a"), "1");
    EXPECT_EQ(translation("de", "b"), "3");
    EXPECT_EQ(translation("de", "c"), "4");
    EXPECT_EQ(translation("en", "c"), std::nullopt);
}

/* ---- strings ---- */

TEST_F(Vellocalization, StringWithoutTranslation)
{
    write_file("domain/de.po", "msgid \"a\"\nmsgstr \"x\"\nmsgid \"empty\"\nmsgstr \"\"\n");
    EXPECT_EQ(load_quietly(), VEL_ERROR_NONE);
    EXPECT_EQ(translation("de", "A"), std::nullopt);
    EXPECT_EQ(translation("de", "x"), std::nullopt);
    EXPECT_EQ(translation("de", ""), std::nullopt);
    EXPECT_EQ(translation("de", "empty"), "");
    EXPECT_EQ(lines(), (log_lines{}));
}

TEST_F(Vellocalization, HeaderIsTheTranslationOfTheEmptyString)
{
    write_file("domain/de.po", "msgid \"\"\nmsgstr \"\"\n\"Language: de\\n\"\n");
    EXPECT_EQ(load_quietly(), VEL_ERROR_NONE);
    EXPECT_EQ(translation("de", ""), "Language: den");
}

TEST_F(Vellocalization, NoLanguageHasNoTranslations)
{
    log.clear();
    EXPECT_EQ(vel_localization_localize(nullptr, "x"), nullptr);
    EXPECT_EQ(vel_localization_localize(nullptr, ""), nullptr);
    EXPECT_EQ(log.take(), (log_lines{}));
}

TEST_F(Vellocalization, ManyStrings)
{
    std::string content;
    for (int number = 0; number < 20000; number++)
        content += "msgid \"key " + std::to_string(number) + "\"\nmsgstr \"value " +
                   std::to_string(number) + "\"\n\n";
    write_file("domain/de.po", content);
    EXPECT_EQ(load_quietly(), VEL_ERROR_NONE);
    vellanguage *vellanguage = vel_localization_language_get(localization, "de");
    for (int number = 0; number < 20000; number++)
        ASSERT_STREQ(
            vel_localization_localize(vellanguage, ("key " + std::to_string(number)).c_str()),
            ("value " + std::to_string(number)).c_str());
}

/* ---- assertions ---- */

class VellocalizationDeathTest : public Vellocalization {};

TEST_F(VellocalizationDeathTest, ArgumentsAreAsserted)
{
    EXPECT_DEATH(vel_localization_destroy(nullptr),
                 asserts("vellocalization != NULL", "vel_localization_destroy"));
    EXPECT_DEATH(vel_localization_load_utf8(nullptr, nullptr, nullptr),
                 asserts("vellocalization != NULL", "vel_localization_load_utf8"));
    EXPECT_DEATH(vel_localization_load_utf8(localization, nullptr, nullptr),
                 asserts("localepath != NULL", "vel_localization_load_utf8"));
    EXPECT_DEATH(vel_localization_load_utf8(localization, ".", nullptr),
                 asserts("textdomain != NULL", "vel_localization_load_utf8"));
    EXPECT_DEATH(vel_localization_list_languages(nullptr),
                 asserts("vellocalization != NULL", "vel_localization_list_languages"));
    EXPECT_DEATH(vel_localization_language_get(nullptr, nullptr),
                 asserts("vellocalization != NULL", "vel_localization_language_get"));
    EXPECT_DEATH(vel_localization_language_get(localization, nullptr),
                 asserts("language != NULL", "vel_localization_language_get"));
}

TEST_F(VellocalizationDeathTest, StringIsAsserted)
{
    write_file("domain/de.po", kGoodPo);
    EXPECT_EQ(load_quietly(), VEL_ERROR_NONE);
    vellanguage *vellanguage = vel_localization_language_get(localization, "de");
    EXPECT_DEATH(vel_localization_localize(vellanguage, nullptr),
                 asserts("string != NULL", "vel_localization_localize"));
}
