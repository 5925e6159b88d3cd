#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/tempdir.h"

/* Sizes at which a table that was only added to would be in the middle of growing: after so many
 * languages and so many strings a lookup would move what it finds. */
static constexpr int kLanguages = 7;
static constexpr int kStrings = 25;

static std::string language_name(int language)
{
    return "l" + std::to_string(language);
}

static void write_catalogue(const std::string &name, int first, int count)
{
    std::string text;
    for (int i = first; i < first + count; i++)
        text +=
            "msgid \"" + std::to_string(i) + "\"\nmsgstr \"" + name + std::to_string(i) + "\"\n";
    support::write_file("texts/" + name + ".po", text);
}

static void expect_all(vellocalization *localization, int count)
{
    for (int i = 0; i < kLanguages; i++) {
        vellanguage *language =
            vel_localization_language_get(localization, language_name(i).c_str());
        ASSERT_TRUE(language);
        for (int number = 0; number < count; number++)
            ASSERT_EQ(vel_localization_localize(language, std::to_string(number).c_str()),
                      language_name(i) + std::to_string(number));
    }
}

static void load(vellocalization *localization, int first, int count)
{
    for (int i = 0; i < kLanguages; i++)
        write_catalogue(language_name(i), first, count);
    ASSERT_EQ(vel_localization_load_utf8(localization, ".", "texts"), VEL_ERROR_NONE);
}

static void expect_all_in_threads(vellocalization *localization, int count)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([=] { expect_all(localization, count); });
    for (std::thread &thread : threads)
        thread.join();
}

TEST(VellocalizationThread, LookupsAfterALoadOnlyRead)
{
    support::temporary_directory directory;
    std::filesystem::create_directory("texts");
    vellocalization *localization = vel_localization_create();
    ASSERT_TRUE(localization);

    load(localization, 0, kStrings);
    expect_all_in_threads(localization, kStrings);
    load(localization, kStrings, kStrings * 3);
    expect_all_in_threads(localization, kStrings * 4);
    vel_localization_destroy(localization);
}
