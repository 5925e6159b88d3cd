#include <cstring>
#include <memory>
#include <string>

#include <vellib/vellog.h>
#include <vellib/velmalloc.h>
#include <vellib/velwchar.h>

#include "adt/velwchar_core_internal.h"
#include "fuzz.h"

/* The last line of the log. */
static std::string line;

static int keep_line(const char *string, size_t length, int, time_t, void *)
{
    line.assign(string, length);
    return 0;
}

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    vel_log_callback_set(nullptr, keep_line, nullptr);
    vel_log_callback_enable(nullptr);
    return 0;
}

/* All that a conversion shows. */
struct outcome {
    int result;
    size_t len;
    std::string bytes, line;

    bool operator==(const outcome &) const = default;
};

static outcome to_wide(const vel_widekernels *kernels, const std::string &utf8, size_t capacity)
{
    std::unique_ptr<char[]> source(new char[utf8.size() + 1]);
    memcpy(source.get(), utf8.c_str(), utf8.size() + 1);
    std::unique_ptr<wchar_t[]> array(new wchar_t[capacity + 1]);
    std::fill_n(array.get(), capacity + 1, 0x5a5a5a5a);
    line.clear();
    outcome given = {0, capacity, {}, {}};
    given.result = vel_wchar_buffer_from_utf8_with(kernels, capacity ? array.get() : nullptr,
                                                   &given.len, source.get(), utf8.size());
    given.bytes.assign(reinterpret_cast<char *>(array.get()), (capacity + 1) * sizeof(wchar_t));
    given.line = line;
    return given;
}

static outcome to_utf8(const vel_widekernels *kernels, const std::wstring &wide, size_t room)
{
    std::unique_ptr<wchar_t[]> source(new wchar_t[wide.size() + 1]);
    memcpy(source.get(), wide.c_str(), (wide.size() + 1) * sizeof(wchar_t));
    std::unique_ptr<char[]> block(new char[room + 1]);
    line.clear();
    outcome given = {0, room, {}, {}};
    given.result =
        vel_wchar_to_utf8_buffer(kernels, room ? block.get() : nullptr, &given.len, source.get());
    if (given.result == 0)
        given.bytes.assign(block.get(), given.len + 1);
    given.line = line;
    return given;
}

/* Every set of kernels gives what the plain loops give. */
static void check_kernels(const std::string &utf8, const std::wstring &wide, size_t capacity)
{
    const vel_widekernels *plain = &vel_widekernels_all().back();
    for (const auto &kernels : vel_widekernels_all()) {
        if (!kernels.usable())
            continue;
        FUZZ_REQUIRE(to_wide(&kernels, utf8, 0) == to_wide(plain, utf8, 0));
        FUZZ_REQUIRE(to_wide(&kernels, utf8, capacity) == to_wide(plain, utf8, capacity));
        FUZZ_REQUIRE(to_utf8(&kernels, wide, 0) == to_utf8(plain, wide, 0));
        FUZZ_REQUIRE(to_utf8(&kernels, wide, capacity) == to_utf8(plain, wide, capacity));
    }
}

/* What is valid comes back as it was; what is not is said in one line. */
static void check_there_and_back(const std::string &utf8)
{
    line.clear();
    wchar_t *wide = vel_wchar_from_utf8(utf8.c_str());
    FUZZ_REQUIRE((wide == nullptr) == line.starts_with("invalid UTF-8 "));
    if (!wide)
        return;
    FUZZ_REQUIRE(vel_wchar_strlen(wide) <= utf8.size());
    char *back = vel_wchar_to_utf8(wide);
    FUZZ_REQUIRE(back && back == utf8);
    vel_free(back);
    vel_free(wide);
}

/* The first byte gives the capacity, and the rest is both texts. */
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    std::string utf8(data + 1, data + size);
    std::wstring wide(utf8.size() / sizeof(wchar_t), L'\0');
    memcpy(wide.data(), utf8.data(), wide.size() * sizeof(wchar_t));
    wide.resize(wcslen(wide.c_str()));
    utf8.resize(strlen(utf8.c_str()));

    check_kernels(utf8, wide, data[0]);
    check_kernels(utf8, wide, utf8.size() + 1);
    check_there_and_back(utf8);
    return 0;
}
