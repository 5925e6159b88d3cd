#include <csetjmp>
#include <csignal>
#include <cstring>
#include <string>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

#include <vellib/vellog.h>
#include <vellib/velxml.h>

#include "fuzz.h"

/* Some texts abort, as documented. Between arm and disarm an assertion comes back here with its
 * text: its report goes through writev, and its end through abort. Any other way to end the program,
 * those of the sanitizers included, ends it. */
static jmp_buf aborted;
static volatile bool armed = false;
static std::string assertion;

extern "C" ssize_t writev(int descriptor, const struct iovec *pieces, int count)
{
    if (!armed || descriptor != STDERR_FILENO || count < 2)
        return syscall(SYS_writev, descriptor, pieces, count);
    assertion.assign(static_cast<const char *>(pieces[1].iov_base), pieces[1].iov_len);
    return 0;
}

extern "C" void abort() noexcept
{
    if (armed && !assertion.empty()) {
        armed = false;
        longjmp(aborted, 1);
    }
    signal(SIGABRT, SIG_DFL);
    raise(SIGABRT);
    _exit(134);
}

/* Runs a step. Returns false if an assertion ended it. */
template <typename Step> static bool survives(Step step)
{
    assertion.clear();
    if (setjmp(aborted) != 0)
        return false;
    armed = true;
    step();
    armed = false;
    return true;
}

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

/* A value is a piece of the text between two marks, and has no white space in front. */
static void check_value(const std::string &text, const char *value, size_t len)
{
    if (!value) {
        FUZZ_REQUIRE(len == 0);
        return;
    }
    const std::string copy(value, len);
    FUZZ_REQUIRE(len > 0 && text.find(copy) != std::string::npos);
    FUZZ_REQUIRE(copy.find_first_of("<>") == std::string::npos);
    FUZZ_REQUIRE(!strchr(" \r\n", copy[0]));
}

/* The names that a text has, as far as a path can be made of them. */
static std::vector<std::string> names_of(const std::string &text)
{
    std::vector<std::string> names = {""};
    for (size_t pos = text.find('<'); pos != std::string::npos && names.size() < 8;
         pos = text.find('<', pos + 1))
        names.push_back(text.substr(pos + 1, text.find_first_of(" <>", pos + 1) - pos - 1));
    return names;
}

static void check_queries(velxml *document, const std::string &text, bool parsed)
{
    const std::vector<std::string> names = names_of(text);
    const char *value;
    size_t len;
    for (const std::string &first : names) {
        if (!first.empty() && first.back() == '#')
            continue;
        const int result =
            vel_xml_query_value_const(document, &value, &len, first.c_str(), (char *)nullptr);
        FUZZ_REQUIRE(result == 0 || (result == -1 && !value));
        FUZZ_REQUIRE(parsed || result == -1);
        check_value(text, value, len);
        for (const std::string &second : names) {
            const std::string numbered = second + "#";
            for (unsigned int number = 0; number < 2; number++) {
                (void)vel_xml_query_value_const(document, &value, &len, first.c_str(),
                                                numbered.c_str(), number, (char *)nullptr);
                check_value(text, value, len);
            }
        }
    }
}

/* What is written comes out the same twice. Only a document without any node aborts. */
static std::string output(velxml *document)
{
    char *written = nullptr;
    size_t len = 0;
    FILE *stream = open_memstream(&written, &len);
    FUZZ_REQUIRE(stream);
    if (!survives([&] { FUZZ_REQUIRE(vel_xml_output(document, stream) == 0); }))
        FUZZ_REQUIRE(assertion == "velxmlnode != NULL");
    fclose(stream);
    std::string text(written, len);
    free(written);
    return text;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(data, data + size);
    text.resize(strlen(text.c_str()));
    velxml *document = vel_xml_create();
    FUZZ_REQUIRE(document);

    /* Text in front of the parent's end tag; at the very start of all it has a length alone. An
     * object that an assertion left can be destroyed, as every node stands in the tree. */
    static int result;
    if (!survives([&] { result = vel_xml_parse(document, text.c_str()); })) {
        FUZZ_REQUIRE(assertion == "velxmlnode->valuestart == 0" ||
                     assertion == "velxmlnode->valuelen == 0");
        vel_xml_destroy(document);
        return 0;
    }
    FUZZ_REQUIRE(result == 0 || result == -1);
    check_queries(document, text, result == 0);
    const std::string written = output(document);
    FUZZ_REQUIRE(result == 0 || written.empty());
    FUZZ_REQUIRE(output(document) == written);
    vel_xml_destroy(document);
    return 0;
}
