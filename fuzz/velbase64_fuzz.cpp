#include <string>

#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "fuzz.h"
#include "util/velbase64_internal.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

struct decoded {
    vel_error_t result;
    std::string bytes;

    bool operator==(const decoded &) const = default;
};

static decoded decode(const vel_textkernels &kernels, const char *text, size_t len)
{
    void *block;
    size_t blocklen;
    decoded given = {vel_base64_decode_with(&kernels, &block, &blocklen, text, len), {}};
    FUZZ_REQUIRE((block != nullptr) == (given.result == VEL_ERROR_NONE));
    if (block)
        given.bytes.assign(static_cast<char *>(block), blocklen);
    vel_free(block);
    return given;
}

static std::string encode(const vel_textkernels &kernels, const void *bytes, size_t len)
{
    char *text = vel_base64_encode_with(&kernels, bytes, len);
    FUZZ_REQUIRE(text);
    std::string given = text;
    vel_free(text);
    return given;
}

/* The input is text at one time and bytes at the other. All kernels agree, and what was encoded
 * decodes to itself. */
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const char *text = static_cast<const char *>(static_cast<const void *>(data));
    const vel_textkernels &plain = vel_textkernels_all().back();
    const decoded expected = decode(plain, text, size);
    const std::string encoded = encode(plain, data, size);
    FUZZ_REQUIRE(encoded.size() == (size + 2) / 3 * 4);

    for (const vel_textkernels &kernels : vel_textkernels_all()) {
        if (!kernels.usable())
            continue;
        FUZZ_REQUIRE(decode(kernels, text, size) == expected);
        FUZZ_REQUIRE(encode(kernels, data, size) == encoded);
        FUZZ_REQUIRE(decode(kernels, encoded.data(), encoded.size()) ==
                     (decoded{VEL_ERROR_NONE, std::string(text, size)}));
    }
    return 0;
}
