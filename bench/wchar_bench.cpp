/* UTF-8 to 32-bit wide characters and back, against GLib, the iconv of the C library, libunistring
 * and utf8proc. All validate, and all put their result in a new block. iconv and utf8proc cannot
 * measure, and so get a block of the largest size the result can have; iconv keeps its handle. */

#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>

#include <glib.h>
#include <iconv.h>
#include <unistr.h>
#include <utf8proc.h>

#include <vellib/velmalloc.h>
#include <vellib/velwchar.h>

#include "bench.h"

namespace {

/* A text in both forms. */
struct input {
    std::string utf8;
    std::u32string wide;
};

/* What a text is made of: ASCII, then two, three and four bytes, in so many of a hundred. */
struct kind {
    const char *name;
    unsigned ascii, two, three;
};

/* Kinds follow each other at random, which is hard on every branch that asks for the length. */
input make_input(const kind &kind, size_t size)
{
    std::mt19937 random(static_cast<unsigned>(size));
    const auto between = [&](char32_t low, char32_t high) {
        return low + static_cast<char32_t>(random() % (high - low + 1));
    };
    input input;
    while (input.utf8.size() + 4 <= size) {
        const unsigned which = static_cast<unsigned>(random() % 100);
        char32_t c;
        if (which < kind.ascii)
            c = between(0x20, 0x7e);
        else if (which < kind.ascii + kind.two)
            c = between(0xa1, 0x5ff);
        else if (which < kind.ascii + kind.two + kind.three)
            c = between(0x4e00, 0x9fff);
        else
            c = between(0x1f300, 0x1f64f);
        utf8proc_uint8_t bytes[4];
        const auto len = utf8proc_encode_char(static_cast<utf8proc_int32_t>(c), bytes);
        input.utf8.append(reinterpret_cast<char *>(bytes), static_cast<size_t>(len));
        input.wide += c;
    }
    return input;
}

template <typename Result> Result *new_block(size_t count)
{
    return static_cast<Result *>(malloc(count * sizeof(Result)));
}

void require(bool holds)
{
    if (!holds)
        abort();
}

void convert_iconv(iconv_t handle, const void *source, size_t sourcelen, size_t destlen)
{
    auto *block = new_block<char>(destlen);
    char *in = const_cast<char *>(static_cast<const char *>(source)), *out = block;
    require(iconv(handle, &in, &sourcelen, &out, &destlen) == 0);
    bench::keep(block);
    free(block);
}

struct contender {
    const char *name;
    std::function<void(const input &)> run; /* empty where the library has no such function */
};

struct row {
    const char *name;
    std::vector<contender> contenders;
};

const row kToWide = {
    "to wide",
    {{"vellib",
      [](const input &input) {
          wchar_t *wide = vel_wchar_from_utf8(input.utf8.c_str());
          require(wide);
          bench::keep(wide);
          vel_free(wide);
      }},
     {"GLib",
      [](const input &input) {
          gunichar *wide = g_utf8_to_ucs4(input.utf8.c_str(), -1, nullptr, nullptr, nullptr);
          require(wide);
          bench::keep(wide);
          g_free(wide);
      }},
     {"iconv",
      [](const input &input) {
          static const iconv_t handle = iconv_open("WCHAR_T", "UTF-8");
          convert_iconv(handle, input.utf8.data(), input.utf8.size(), 4 * input.utf8.size() + 4);
      }},
     {"libunistring",
      [](const input &input) {
          size_t len = 0;
          uint32_t *wide = u8_to_u32(reinterpret_cast<const uint8_t *>(input.utf8.data()),
                                     input.utf8.size(), nullptr, &len);
          require(wide);
          bench::keep(wide);
          free(wide);
      }},
     {"utf8proc",
      [](const input &input) {
          auto *wide = new_block<utf8proc_int32_t>(input.utf8.size() + 1);
          const auto *bytes = reinterpret_cast<const utf8proc_uint8_t *>(input.utf8.data());
          auto left = static_cast<utf8proc_ssize_t>(input.utf8.size());
          for (size_t i = 0; left > 0; i++) {
              const utf8proc_ssize_t len = utf8proc_iterate(bytes, left, &wide[i]);
              require(len > 0);
              bytes += len;
              left -= len;
          }
          bench::keep(wide);
          free(wide);
      }}},
};

const row kFromWide = {
    "from wide",
    {{"vellib",
      [](const input &input) {
          char *utf8 = vel_wchar_to_utf8(reinterpret_cast<const wchar_t *>(input.wide.c_str()));
          require(utf8);
          bench::keep(utf8);
          vel_free(utf8);
      }},
     {"GLib",
      [](const input &input) {
          gchar *utf8 = g_ucs4_to_utf8(reinterpret_cast<const gunichar *>(input.wide.c_str()), -1,
                                       nullptr, nullptr, nullptr);
          require(utf8);
          bench::keep(utf8);
          g_free(utf8);
      }},
     {"iconv",
      [](const input &input) {
          static const iconv_t handle = iconv_open("UTF-8", "WCHAR_T");
          convert_iconv(handle, input.wide.data(), 4 * input.wide.size(),
                        4 * input.wide.size() + 1);
      }},
     {"libunistring",
      [](const input &input) {
          size_t len = 0;
          uint8_t *utf8 = u32_to_u8(reinterpret_cast<const uint32_t *>(input.wide.data()),
                                    input.wide.size(), nullptr, &len);
          require(utf8);
          bench::keep(utf8);
          free(utf8);
      }},
     {"utf8proc",
      [](const input &input) {
          auto *utf8 = new_block<utf8proc_uint8_t>(4 * input.wide.size() + 1);
          size_t len = 0;
          for (const char32_t c : input.wide)
              len += static_cast<size_t>(
                  utf8proc_encode_char(static_cast<utf8proc_int32_t>(c), utf8 + len));
          bench::keep(utf8);
          free(utf8);
      }}},
};

void bench_row(const row &row, const std::string &name, const input &input)
{
    const size_t calls = 1 + 200000 / (input.utf8.size() + 100);
    bench::measure_row(
        std::string(row.name) + ", " + name, row.contenders.size(), 101,
        [&](size_t i) { return bench::sample(calls, [&] { row.contenders[i].run(input); }); });
}

} // namespace

int main()
{
    static const kind kinds[] = {
        {"ASCII", 100, 0, 0},
        {"mixed", 60, 20, 15},
        {"CJK", 0, 0, 100},
    };
    static const struct {
        const char *name;
        size_t size;
    } sizes[] = {{"64 B", 64}, {"1 KiB", 1 << 10}, {"1 MiB", 1 << 20}};

    bench::print_header("ns a call", {"vellib", "GLib", "iconv", "libunistring", "utf8proc"});
    for (const row *row : {&kToWide, &kFromWide})
        for (const kind &kind : kinds)
            for (const auto &size : sizes)
                bench_row(*row, std::string(kind.name) + ", " + size.name,
                          make_input(kind, size.size));
    return 0;
}
