#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "fuzz.h"
#include "net/velicap_internal.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

/* A second implementation: what has been decoded, and whether all of it was good. */
static bool decode(std::string_view text, std::string *decoded)
{
    static const std::string_view kDigits = "0123456789abcdef0123456789ABCDEF";
    for (size_t at = 0; at < text.size(); at++) {
        char byte = text[at];
        if (byte == '%') {
            const std::string_view digits = text.substr(at + 1, 2);
            if (digits.size() < 2 || digits.find_first_not_of(kDigits) != digits.npos)
                return false;
            byte =
                static_cast<char>(kDigits.find(digits[0]) % 16 * 16 + kDigits.find(digits[1]) % 16);
            if (byte == '\0')
                break;
            at += 2;
        }
        *decoded += byte;
    }
    decoded->push_back('\0');
    return true;
}

/* The first byte of the input is the room for the result; the rest is the text, up to a NUL. */
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const auto *bytes = static_cast<const char *>(static_cast<const void *>(data + 1));
    const std::string text(bytes, strnlen(bytes, size - 1));
    std::string decoded;
    const bool good = decode(text, &decoded);

    const size_t room = data[0];
    std::unique_ptr<char[]> dest(room > 0 ? new char[room] : nullptr);
    uint64_t length = room;
    const vel_error_t result = vel_icap_unescape_buffer(dest.get(), &length, text.c_str());
    FUZZ_REQUIRE(length == decoded.size());
    FUZZ_REQUIRE(std::string_view(dest.get(), std::min<size_t>(room, length)) ==
                 std::string_view(decoded).substr(0, room));
    if (!good)
        FUZZ_REQUIRE(result == VEL_ERROR_INVALID_SYNTAX);
    else
        FUZZ_REQUIRE(result == (length > room ? VEL_ERROR_INCOMPLETE : VEL_ERROR_NONE));

    char *path;
    FUZZ_REQUIRE(vel_icap_unescape_socket_path(&path, text.c_str()) ==
                 (good ? VEL_ERROR_NONE : VEL_ERROR_INVALID_SYNTAX));
    FUZZ_REQUIRE(good ? decoded == std::string_view(path, strlen(path) + 1) : !path);
    vel_free(path);
    return 0;
}
