#include "util/vellocalization_internal.h"

#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velmalloc.h>

#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/pomodel.h"

using support::asserts;

/* What the library reads of a file, with a buffer of exactly the given size. */
static support::po_result load(const std::string &content, size_t bufferlen,
                               support::log_capture &log)
{
    support::po_result result;
    vellanguage *language = vel_localization_language_create();
    EXPECT_NE(language, nullptr);
    std::string copy = content + '\n'; /* no stream in memory is empty */
    FILE *file = fmemopen(copy.data(), copy.size(), "r");
    const auto buffer = std::make_unique<char[]>(bufferlen);
    log.clear();
    result.error = vel_localization_load_po(language, file, "the/file.po", buffer.get(), bufferlen);
    result.lines = log.take_from("util/vellocalization");
    fclose(file);

    const char *key = nullptr;
    void *value = nullptr;
    for (void *item = vel_stringhash_enumerate_start(language->hash, &key, &value); item;
         item = vel_stringhash_enumerate_next(language->hash, item, &key, &value))
        result.translations[key] = static_cast<char *>(value);
    vel_localization_language_destroy(language);
    return result;
}

/* ---- beside a second implementation ---- */

static std::string any_string(std::mt19937 &engine)
{
    static const char *const kPieces[] = {"a",  "b", "\\\"", "\\\\", "\\n",      "\"",
                                          "\\", " ", "\r",   "#",    "\xc3\xa9", "word"};
    std::string text = engine() % 8 ? "\"" : "";
    for (unsigned count = engine() % 5; count > 0; count--)
        text += kPieces[engine() % std::size(kPieces)];
    if (engine() % 40 == 0)
        text.append(engine() % 100, 'l');
    if (engine() % 300 == 0)
        text += '\0';
    return text + (engine() % 8 ? "\"" : "");
}

static std::string any_line(std::mt19937 &engine, bool good)
{
    static const char *const kBad[] = {
        " ",       "msgid",           "msgstr", "msgid_plural \"a\"", "msgctxt \"a\"",
        "  \"a\"", "msgstr[0] \"x\"", "bad"};
    switch (engine() % (good ? 20 : 22)) {
    case 0:
        return "";
    case 1:
        return "# " + any_string(engine);
    case 2:
    case 3:
        return "\"" + any_string(engine);
    case 20:
        return kBad[engine() % std::size(kBad)];
    case 21:
        return (engine() % 2 ? "msgid " : "msgstr ") + any_string(engine);
    default:
        return "";
    }
}

static std::string any_file(std::mt19937 &engine)
{
    const bool good = engine() % 2;
    std::string content;
    for (unsigned count = engine() % 12; count > 0; count--) {
        const char *ending = engine() % 6 ? "\n" : "\r\n";
        content += "msgid " + any_string(engine) + ending;
        for (unsigned lines = engine() % 3; lines > 0; lines--)
            content += any_line(engine, good) + ending;
        content += "msgstr " + any_string(engine) + ending;
        for (unsigned lines = engine() % 3; lines > 0; lines--)
            content += any_line(engine, good) + ending;
    }
    return content;
}

TEST(VellocalizationModel, RandomFiles)
{
    support::log_capture log;
    std::mt19937 engine(12);
    size_t good = 0;
    for (int turn = 0; turn < 3000; turn++) {
        const std::string content = any_file(engine);
        const size_t bufferlen = engine() % 3 ? 4096 : 2 + engine() % 60;
        const support::po_result expected =
            support::po_read(content + '\n', bufferlen, "the/file.po");
        ASSERT_EQ(load(content, bufferlen, log), expected) << "buffer of " << bufferlen << ":\n"
                                                           << content;
        good += expected.error == VEL_ERROR_NONE;
    }
    EXPECT_GT(good, 500u);
    EXPECT_LT(good, 2500u);
}

TEST(VellocalizationModel, RandomStrings)
{
    std::mt19937 engine(13);
    for (int turn = 0; turn < 5000; turn++) {
        const std::string text = any_string(engine).c_str();
        char *decoded = vel_localization_handle_string(text.c_str());
        EXPECT_STREQ(decoded, support::po_decode(text).c_str()) << text;
        vel_free(decoded);
    }
}

/* ---- assertions ---- */

TEST(VellocalizationInternalDeathTest, StringIsAsserted)
{
    EXPECT_DEATH(vel_localization_handle_string(nullptr),
                 asserts("string != NULL", "vel_localization_handle_string"));
}

TEST(VellocalizationInternalDeathTest, ParserAssertsItsArguments)
{
    const char *const function = "vel_localization_load_po";
    vellanguage *language = vel_localization_language_create();
    ASSERT_NE(language, nullptr);
    char buffer[16];
    EXPECT_DEATH(vel_localization_load_po(nullptr, nullptr, "x", nullptr, 0),
                 asserts("vellanguage != NULL", function));
    EXPECT_DEATH(vel_localization_load_po(language, nullptr, "x", nullptr, 0),
                 asserts("file != NULL", function));
    EXPECT_DEATH(vel_localization_load_po(language, stdin, "x", nullptr, 0),
                 asserts("buffer != NULL", function));
    EXPECT_DEATH(vel_localization_load_po(language, stdin, "x", buffer, 0),
                 asserts("bufferlen > 0", function));
    EXPECT_DEATH(vel_localization_load_po(language, stdin, "x", buffer, size_t{1} << 31),
                 asserts("res == 0"));
    vel_localization_language_destroy(language);
}

TEST(VellocalizationInternalDeathTest, LanguageHasTable)
{
    vellanguage language = {nullptr};
    EXPECT_DEATH(vel_localization_localize(&language, "x"),
                 asserts("vellanguage->hash != NULL", "vel_localization_localize"));
}
