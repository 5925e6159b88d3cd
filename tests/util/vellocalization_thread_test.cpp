/* Languages are loaded by one thread and looked up by several. */

#include <vellib/vellocalization.h>

#include <atomic>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velthread.h>

#include "support/potest.h"

namespace {

struct reader {
    vellocalization *localization;
    int languages;
    int strings;
    std::atomic<int> wrong = 0;
};

} // namespace

static void *read_all(void *context)
{
    auto *reader = static_cast<struct reader *>(context);
    for (int language = 0; language < reader->languages; language++) {
        vellanguage *vellanguage = vel_localization_language_get(
            reader->localization, ("language" + std::to_string(language)).c_str());
        for (int string = 0; string < reader->strings; string++) {
            const std::string key = "key" + std::to_string(string);
            const char *value = vel_localization_localize(vellanguage, key.c_str());
            reader->wrong += !value || value != key + " in " + std::to_string(language);
        }
        reader->wrong += vel_localization_localize(vellanguage, "missing") != nullptr;
    }
    reader->wrong += vel_localization_language_get(reader->localization, "missing") != nullptr;
    return nullptr;
}

/* As many languages as this, with as many strings in a load. */
class VellocalizationThread : public Vellocalization, public testing::WithParamInterface<int> {
  protected:
    void load_strings(int first)
    {
        for (int language = 0; language < GetParam(); language++) {
            std::string content;
            for (int string = first; string < first + GetParam(); string++) {
                const std::string key = "key" + std::to_string(string);
                content += "msgid \"" + key + "\"\nmsgstr \"" + key + " in " +
                           std::to_string(language) + "\"\n";
            }
            support::write_file("domain/language" + std::to_string(language) + ".po", content);
        }
        ASSERT_EQ(load_quietly(), VEL_ERROR_NONE);
    }

    void read_in_threads(int strings)
    {
        reader reader = {localization, GetParam(), strings};
        std::vector<velthread *> threads(4);
        for (velthread *&thread : threads) {
            thread = vel_thread_create();
            ASSERT_NE(thread, nullptr);
            ASSERT_EQ(vel_thread_start(thread, read_all, &reader), 0);
        }
        for (velthread *thread : threads) {
            EXPECT_EQ(vel_thread_join(thread, nullptr), 0);
            vel_thread_destroy(thread);
        }
        EXPECT_EQ(reader.wrong, 0);
        log.clear();
    }
};

/* Tables of all fillings, among them those that are about to grow or are growing. */
TEST_P(VellocalizationThread, LookupsOnlyRead)
{
    load_strings(0);
    read_in_threads(GetParam());
    load_strings(GetParam());
    read_in_threads(2 * GetParam());
}

INSTANTIATE_TEST_SUITE_P(Tables, VellocalizationThread, testing::Range(1, 40, 3));
