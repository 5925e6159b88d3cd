/* Percent encoding against curl, GLib and APR, and host names against GLib and libidn2. Every
 * contender puts its result in a new block and frees it; those that write to a caller's block get
 * one of the right size. */

#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>

#include <apr_escape.h>
#include <curl/curl.h>
#include <glib.h>
#include <idn2.h>

#include <vellib/velmalloc.h>
#include <vellib/velurl.h>
#include <vellib/velurldecode.h>
#include <vellib/velurlencode.h>

#include "bench.h"

namespace {

struct contender {
    const char *name;
    std::function<void(const char *text, size_t len)> run;
};

/* A quarter of the bytes needs an escape, at random. */
std::string plain_text(size_t len)
{
    std::mt19937_64 random(len);
    std::string text(len, '\0');
    for (char &byte : text)
        byte =
            random() % 4 == 0 ? " /%&\xc3"[random() % 5] : static_cast<char>('a' + random() % 26);
    return text;
}

/* Everyone's escapes are alike. */
std::string encoded_text(const std::string &plain)
{
    char *encoded = vel_urlencode(plain.c_str());
    std::string text = encoded;
    vel_free(encoded);
    return text;
}

CURL *curl_handle()
{
    static CURL *handle = curl_easy_init();
    return handle;
}

const std::vector<contender> kEncode = {
    {"vellib",
     [](const char *text, size_t) {
         static velurlencode *table = vel_urlencode_create();
         char *encoded;
         if (vel_urlencode_string(table, &encoded, text) != VEL_ERROR_NONE)
             abort();
         bench::keep(encoded);
         vel_free(encoded);
     }},
    {"curl",
     [](const char *text, size_t len) {
         char *encoded = curl_easy_escape(curl_handle(), text, static_cast<int>(len));
         bench::keep(encoded);
         curl_free(encoded);
     }},
    {"GLib",
     [](const char *text, size_t) {
         char *encoded = g_uri_escape_string(text, nullptr, FALSE);
         bench::keep(encoded);
         g_free(encoded);
     }},
    {"APR",
     [](const char *text, size_t len) {
         apr_size_t size;
         apr_escape_path_segment(nullptr, text, static_cast<apr_ssize_t>(len), &size);
         auto *encoded = static_cast<char *>(malloc(size));
         apr_escape_path_segment(encoded, text, static_cast<apr_ssize_t>(len), nullptr);
         bench::keep(encoded);
         free(encoded);
     }},
};

const std::vector<contender> kDecode = {
    {"vellib",
     [](const char *text, size_t) {
         char *plain;
         if (vel_urldecode_string(&plain, text) != VEL_ERROR_NONE)
             abort();
         bench::keep(plain);
         vel_free(plain);
     }},
    {"curl",
     [](const char *text, size_t len) {
         int size;
         char *plain = curl_easy_unescape(curl_handle(), text, static_cast<int>(len), &size);
         bench::keep(plain);
         curl_free(plain);
     }},
    {"GLib",
     [](const char *text, size_t) {
         char *plain = g_uri_unescape_string(text, nullptr);
         bench::keep(plain);
         g_free(plain);
     }},
    {"APR",
     [](const char *text, size_t len) {
         auto *plain = static_cast<char *>(malloc(len + 1));
         apr_unescape_url(plain, text, static_cast<apr_ssize_t>(len), nullptr, nullptr, 1, nullptr);
         bench::keep(plain);
         free(plain);
     }},
};

void bench_percent(const char *name, const std::vector<contender> &contenders,
                   const std::string &text)
{
    const size_t calls = 1 + 200000 / (text.size() + 100);
    bench::measure_row(name, contenders.size(), 101, [&](size_t i) {
        return bench::sample(calls, [&] { contenders[i].run(text.c_str(), text.size()); });
    });
}

const char *const kHosts[] = {
    "www.example.com",
    "b\u00fccher.example",
    "www.\u4f8b\u3048.jp",
    "\u043f\u0440\u0438\u043c\u0435\u0440.\u0438\u0441\u043f\u044b\u0442\u0430\u043d\u0438\u0435",
    "xn--bcher-kva.xn--p1ai",
};

const struct {
    const char *name;
    char *(*convert)(const char *host);
    void (*release)(void *);
} kToAscii[] =
    {
        {"vellib",
         [](const char *host) {
             char *ascii;
             return vel_url_idna_host_to_ascii(host, &ascii) == VEL_ERROR_NONE ? ascii : nullptr;
         },
         vel_free},
        {"GLib", g_hostname_to_ascii, g_free},
        {"libidn2",
         [](const char *host) {
             char *ascii;
             return idn2_to_ascii_8z(host, &ascii, IDN2_NONTRANSITIONAL) == IDN2_OK ? ascii
                                                                                    : nullptr;
         },
         idn2_free},
},
  kToUnicode[] = {
      {"vellib",
       [](const char *host) {
           char *unicode;
           return vel_url_idna_host_to_unicode(host, &unicode) == VEL_ERROR_NONE ? unicode
                                                                                 : nullptr;
       },
       vel_free},
      {"GLib", g_hostname_to_unicode, g_free},
      {"libidn2",
       [](const char *host) {
           char *unicode;
           return idn2_to_unicode_8z8z(host, &unicode, 0) == IDN2_OK ? unicode : nullptr;
       },
       idn2_free},
};

template <typename Contenders>
void bench_hosts(const char *name, const Contenders &contenders,
                 const std::vector<std::string> &hosts)
{
    bench::measure_row(name, std::size(contenders), 101, [&](size_t i) {
        return bench::sample(100, hosts.size(), [&] {
            for (const std::string &host : hosts) {
                char *converted = contenders[i].convert(host.c_str());
                if (!converted)
                    abort();
                contenders[i].release(converted);
            }
        });
    });
}

} // namespace

int main()
{
    bench::print_header("ns a call", {"vellib", "curl", "GLib", "APR"});
    const struct {
        const char *name;
        size_t size;
    } sizes[] = {{"64 B", 64}, {"1 KiB", 1 << 10}, {"1 MiB", 1 << 20}};
    for (const auto &size : sizes) {
        const std::string plain = plain_text(size.size), encoded = encoded_text(plain);
        bench_percent((std::string("percent encode, ") + size.name).c_str(), kEncode, plain);
        bench_percent((std::string("percent decode, ") + size.name).c_str(), kDecode, encoded);
    }

    bench::print_header("ns a host name", {"vellib", "GLib", "libidn2"});
    std::vector<std::string> hosts(std::begin(kHosts), std::end(kHosts)), ascii;
    for (const std::string &host : hosts) {
        char *converted = kToAscii[0].convert(host.c_str());
        ascii.push_back(converted);
        vel_free(converted);
    }
    bench_hosts("mean of 5, to ASCII", kToAscii, hosts);
    bench_hosts("mean of 5, to Unicode", kToUnicode, ascii);
    return 0;
}
