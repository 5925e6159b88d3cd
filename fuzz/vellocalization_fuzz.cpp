#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <vellib/vellog.h>

#include "fuzz.h"
#include "util/vellocalization_internal.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

typedef std::map<std::string, std::string> pairs;

/* Loads a text, with a buffer that holds lines of at most so many bytes. */
static vel_error_t load(std::string text, size_t bufferlen, pairs *loaded)
{
    vellanguage *language = vel_localization_language_create();
    FUZZ_REQUIRE(language);
    FILE *file = fmemopen(text.data(), text.size(), "r");
    FUZZ_REQUIRE(file);
    std::vector<char> buffer(bufferlen);
    const vel_error_t result =
        vel_localization_load_po(language, file, "fuzz.po", buffer.data(), buffer.size());
    FUZZ_REQUIRE(result == VEL_ERROR_NONE || result == VEL_ERROR_INVALID_SYNTAX);
    fclose(file);

    const char *key;
    void *value;
    for (void *item = vel_stringhash_enumerate_start(language->hash, &key, &value); item;
         item = vel_stringhash_enumerate_next(language->hash, item, &key, &value))
        loaded->emplace(key, static_cast<const char *>(value));
    for (const auto &[msgid, msgstr] : *loaded) {
        const char *found = vel_localization_localize(language, msgid.c_str());
        FUZZ_REQUIRE(found && msgstr == found);
    }
    vel_localization_language_destroy(language);
    return result;
}

static std::string quoted(const std::string &text)
{
    std::string result = "\"";
    for (const char ch : text) {
        if (ch == '"' || ch == '\\')
            result += '\\';
        result += ch;
    }
    return result + "\"";
}

/* What is loaded can be written and loaded again. */
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(data, data + size);
    pairs loaded, again;
    (void)load(text + "\n", 4096, &loaded);

    std::string written;
    for (const auto &[msgid, msgstr] : loaded)
        written += "msgid " + quoted(msgid) + "\nmsgstr " + quoted(msgstr) + "\n";
    FUZZ_REQUIRE(load(written + "\n", written.size() + 2, &again) == VEL_ERROR_NONE);
    FUZZ_REQUIRE(again == loaded);

    pairs pieces;
    (void)load(text + "\n", 8, &pieces);
    return 0;
}
