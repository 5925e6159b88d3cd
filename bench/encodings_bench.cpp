/* base64 and hex against OpenSSL, APR and GLib. Every contender puts its result in a new block and
 * frees it; those that write to a caller's block get one of the right size. */

#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>

#include <apr_base64.h>
#include <apr_escape.h>
#include <glib.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <vellib/velbase64.h>
#include <vellib/velbin2hex.h>
#include <vellib/velhex2bin.h>
#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "bench.h"

namespace {

/* The plain bytes, and both of their texts. */
struct input {
    std::string bytes, base64, lines, hex;

    explicit input(size_t len)
    {
        std::mt19937_64 random(len);
        bytes.resize(len);
        for (char &byte : bytes)
            byte = static_cast<char>(random());
        char *text = vel_base64_encode(bytes.data(), len);
        base64 = text;
        vel_free(text);
        for (size_t pos = 0; pos < base64.size(); pos += 64)
            lines += base64.substr(pos, 64) + "\n";
        text = vel_bin2hex(bytes.data(), len);
        hex = text;
        vel_free(text);
    }
};

const unsigned char *unsigned_bytes(const std::string &text)
{
    return reinterpret_cast<const unsigned char *>(text.data());
}

template <typename Result = char> Result *new_block(size_t size)
{
    return static_cast<Result *>(malloc(size));
}

struct contender {
    const char *name;
    std::function<void(const input &)> run; /* empty where the library has no such function */
};

struct row {
    const char *name;
    std::vector<contender> contenders;
};

void vel_decode(const std::string &text)
{
    void *block;
    size_t len;
    if (vel_base64_decode(&block, &len, text.data(), text.size()) != VEL_ERROR_NONE)
        abort();
    bench::keep(block);
    vel_free(block);
}

const row kBase64Encode = {
    "base64 encode",
    {{"vellib",
      [](const input &input) {
          char *text = vel_base64_encode(input.bytes.data(), input.bytes.size());
          bench::keep(text);
          vel_free(text);
      }},
     {"OpenSSL",
      [](const input &input) {
          auto *text = new_block<unsigned char>((input.bytes.size() + 2) / 3 * 4 + 1);
          EVP_EncodeBlock(text, unsigned_bytes(input.bytes), static_cast<int>(input.bytes.size()));
          bench::keep(text);
          free(text);
      }},
     {"APR",
      [](const input &input) {
          auto len = static_cast<int>(input.bytes.size());
          char *text = new_block(static_cast<size_t>(apr_base64_encode_len(len)));
          apr_base64_encode_binary(text, unsigned_bytes(input.bytes), len);
          bench::keep(text);
          free(text);
      }},
     {"GLib",
      [](const input &input) {
          char *text = g_base64_encode(unsigned_bytes(input.bytes), input.bytes.size());
          bench::keep(text);
          g_free(text);
      }}},
};

const row kBase64Decode = {
    "base64 decode",
    {{"vellib", [](const input &input) { vel_decode(input.base64); }},
     {"OpenSSL",
      [](const input &input) {
          auto *block = new_block<unsigned char>(input.base64.size() / 4 * 3 + 1);
          EVP_DecodeBlock(block, unsigned_bytes(input.base64),
                          static_cast<int>(input.base64.size()));
          bench::keep(block);
          free(block);
      }},
     {"APR",
      [](const input &input) {
          auto *block = new_block<unsigned char>(
              static_cast<size_t>(apr_base64_decode_len(input.base64.c_str())));
          apr_base64_decode_binary(block, input.base64.c_str());
          bench::keep(block);
          free(block);
      }},
     {"GLib",
      [](const input &input) {
          gsize len;
          guchar *block = g_base64_decode(input.base64.c_str(), &len);
          bench::keep(block);
          g_free(block);
      }}},
};

/* Neither APR nor a block of OpenSSL takes line ends; its stream does. */
const row kBase64Lines = {
    "base64 decode of lines",
    {{"vellib", [](const input &input) { vel_decode(input.lines); }},
     {"OpenSSL",
      [](const input &input) {
          auto *block = new_block<unsigned char>(input.lines.size() / 4 * 3 + 3);
          EVP_ENCODE_CTX *context = EVP_ENCODE_CTX_new();
          int len = 0, last = 0;
          EVP_DecodeInit(context);
          if (EVP_DecodeUpdate(context, block, &len, unsigned_bytes(input.lines),
                               static_cast<int>(input.lines.size())) < 0 ||
              EVP_DecodeFinal(context, block + len, &last) < 0)
              abort();
          EVP_ENCODE_CTX_free(context);
          bench::keep(block);
          free(block);
      }},
     {"APR", {}},
     {"GLib",
      [](const input &input) {
          gsize len;
          guchar *block = g_base64_decode(input.lines.c_str(), &len);
          bench::keep(block);
          g_free(block);
      }}},
};

const row kHexEncode = {
    "hex encode",
    {{"vellib",
      [](const input &input) {
          char *text = vel_bin2hex(input.bytes.data(), input.bytes.size());
          bench::keep(text);
          vel_free(text);
      }},
     {"OpenSSL",
      [](const input &input) {
          char *text = new_block(input.bytes.size() * 2 + 1);
          if (!OPENSSL_buf2hexstr_ex(text, input.bytes.size() * 2 + 1, nullptr,
                                     unsigned_bytes(input.bytes), input.bytes.size(), '\0'))
              abort();
          bench::keep(text);
          free(text);
      }},
     {"APR",
      [](const input &input) {
          char *text = new_block(input.bytes.size() * 2 + 1);
          apr_escape_hex(text, input.bytes.data(), input.bytes.size(), 0, nullptr);
          bench::keep(text);
          free(text);
      }},
     {"GLib", {}}},
};

const row kHexDecode = {
    "hex decode",
    {{"vellib",
      [](const input &input) {
          void *block;
          size_t len;
          if (vel_hex2bin(input.hex.c_str(), &block, &len) != VEL_ERROR_NONE)
              abort();
          bench::keep(block);
          vel_free(block);
      }},
     {"OpenSSL",
      [](const input &input) {
          long len;
          unsigned char *block = OPENSSL_hexstr2buf(input.hex.c_str(), &len);
          bench::keep(block);
          OPENSSL_free(block);
      }},
     {"APR",
      [](const input &input) {
          char *block = new_block(input.hex.size() / 2 + 1);
          apr_unescape_hex(block, input.hex.c_str(), static_cast<apr_ssize_t>(input.hex.size()), 0,
                           nullptr);
          bench::keep(block);
          free(block);
      }},
     {"GLib", {}}},
};

void bench_row(const row &row, const char *size, const input &input)
{
    const size_t calls = 1 + 200000 / (input.bytes.size() + 100);
    const std::string name = std::string(row.name) + ", " + size;
    bench::measure_row(name, row.contenders.size(), 101, [&](size_t i) {
        const contender &contender = row.contenders[i];
        return contender.run ? bench::sample(calls, [&] { contender.run(input); }) : 0;
    });
}

} // namespace

int main()
{
    vel_log_stderr_disable(nullptr);
    bench::print_header("ns a call", {"vellib", "OpenSSL", "APR", "GLib"});
    const struct {
        const char *name;
        size_t size;
    } sizes[] = {{"64 B", 64}, {"1 KiB", 1 << 10}, {"1 MiB", 1 << 20}};
    for (const auto &size : sizes) {
        const input input(size.size);
        for (const row *row :
             {&kBase64Encode, &kBase64Decode, &kBase64Lines, &kHexEncode, &kHexDecode})
            bench_row(*row, size.name, input);
    }
    return 0;
}
