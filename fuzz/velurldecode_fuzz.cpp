#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "fuzz.h"
#include "util/velurldecode_internal.h"
#include "util/velurlencode_internal.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

struct outcome {
    vel_error_t result;
    size_t len;
    std::string bytes; /* the whole of the room */

    bool operator==(const outcome &) const = default;
};

static outcome decode(const vel_textkernels &kernels, const std::string &text, size_t room)
{
    outcome given = {VEL_ERROR_NONE, room, std::string(room, '#')};
    given.result = vel_urldecode_buffer_with(&kernels, room ? given.bytes.data() : nullptr,
                                             &given.len, text.data(), text.size());
    return given;
}

static outcome encode(const vel_textkernels &kernels, velurlencode *table, const std::string &bytes,
                      size_t room)
{
    outcome given = {VEL_ERROR_NONE, room, std::string(room, '#')};
    given.result = vel_urlencode_buffer_with(&kernels, table, room ? given.bytes.data() : nullptr,
                                             &given.len, bytes.data(), bytes.size());
    return given;
}

/* What stands in the room: the result as far as it goes, a terminator, and what was there before. */
static void check_room(const outcome &given, const outcome &full, size_t room)
{
    FUZZ_REQUIRE(given.len == full.len);
    FUZZ_REQUIRE(given.result == (full.len > room ? VEL_ERROR_OUT_OF_RANGE : full.result));
    std::string expected = full.bytes.substr(0, std::min(room, full.len));
    if (expected.size() < room)
        expected += '\0';
    expected.resize(room, '#');
    FUZZ_REQUIRE(given.bytes == expected);
}

/* The string form gives what the buffer form with enough room does. */
static void check_string(const std::string &text)
{
    const outcome full = decode(vel_textkernels_all().back(), text.c_str(), text.size() + 1);
    char *string;
    FUZZ_REQUIRE(vel_urldecode_string(&string, text.c_str()) == full.result);
    FUZZ_REQUIRE((string != nullptr) == (full.result == VEL_ERROR_NONE));
    FUZZ_REQUIRE(!string || memcmp(string, full.bytes.data(), full.len + 1) == 0);
    vel_free(string);
}

/* The first bytes choose a room and what is skipped. The rest is text at one time and bytes at the
 * other: all kernels agree, and what was encoded decodes to itself. */
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const size_t room = data[0];
    const char skip[] = {static_cast<char>(data[1]), '\0'};
    const std::string text(data + 2, data + size);
    velurlencode *table = vel_urlencode_create();
    FUZZ_REQUIRE(table);
    if (*skip != '%' && *skip != '+')
        vel_urlencode_skip(table, skip);

    const vel_textkernels &plain = vel_textkernels_all().back();
    const outcome decoded = decode(plain, text, size),
                  encoded = encode(plain, table, text, size * 3);
    FUZZ_REQUIRE(encoded.result == VEL_ERROR_NONE);
    const std::string escaped = encoded.bytes.substr(0, encoded.len);
    for (const vel_textkernels &kernels : vel_textkernels_all()) {
        if (!kernels.usable())
            continue;
        FUZZ_REQUIRE(decode(kernels, text, size) == decoded);
        FUZZ_REQUIRE(encode(kernels, table, text, size * 3) == encoded);
        check_room(decode(kernels, text, room), decoded, room);
        check_room(encode(kernels, table, text, room), encoded, room);
        const outcome again = decode(kernels, escaped, size);
        FUZZ_REQUIRE(again.result == VEL_ERROR_NONE && again.bytes.substr(0, again.len) == text);
    }
    vel_urlencode_destroy(table);
    check_string(text);
    return 0;
}
