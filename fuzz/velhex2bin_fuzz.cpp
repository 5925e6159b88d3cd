#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>

#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "fuzz.h"
#include "util/velbin2hex_internal.h"
#include "util/velhex2bin_internal.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

static std::string encode(const vel_textkernels &kernels, const void *bytes, size_t len)
{
    char *text = vel_bin2hex_with(&kernels, bytes, len);
    FUZZ_REQUIRE(text);
    std::string given = text;
    vel_free(text);
    return given;
}

/* A text is good or bad by a simple rule, and good text comes back in lower case. */
static void check_text(const vel_textkernels &kernels, const std::string &text)
{
    void *block;
    size_t len;
    const vel_error_t result = vel_hex2bin_with(&kernels, text.c_str(), &block, &len);
    const bool digits = std::all_of(text.begin(), text.end(), [](char c) {
        return memchr("0123456789abcdefABCDEF", c, 22) != nullptr;
    });
    FUZZ_REQUIRE(result == (text.size() % 2 ? VEL_ERROR_INCOMPLETE
                            : digits        ? VEL_ERROR_NONE
                                            : VEL_ERROR_OUT_OF_RANGE));
    FUZZ_REQUIRE((block != nullptr) == (result == VEL_ERROR_NONE));
    if (!block)
        return;
    std::string lower = text;
    for (char &digit : lower)
        digit = static_cast<char>(tolower(digit));
    FUZZ_REQUIRE(encode(kernels, block, len) == lower);
    vel_free(block);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(data, data + size);
    text.resize(strlen(text.c_str()));
    for (const vel_textkernels &kernels : vel_textkernels_all()) {
        if (!kernels.usable())
            continue;
        check_text(kernels, text);
        check_text(kernels, encode(kernels, data, size));
    }
    return 0;
}
